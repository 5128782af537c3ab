#include "IndependentXml.h"

#include <expat.h>

#include <memory>
#include <type_traits>

namespace {

using Events = std::vector<XmlEvent>;

struct ParserFreer {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

struct Reading {
    Events events;
    int depth = 0;
    bool inCdata = false;

    void add(XmlEvent::Kind kind, std::string text = {}) {
        if (depth > 0) events.push_back({kind, std::move(text)});
    }
};

Reading& readingOf(void* self) {
    return *static_cast<Reading*>(self);
}

void XMLCALL onStart(void* self, const char* name, const char** attributes) {
    Reading& reading = readingOf(self);
    ++reading.depth;
    reading.add(XmlEvent::Kind::Open, name);
    for (; *attributes != nullptr; attributes += 2)
        reading.events.back().attributes.emplace(attributes[0], attributes[1]);
}

void XMLCALL onEnd(void* self, const char* /*name*/) {
    readingOf(self).add(XmlEvent::Kind::Close);
    --readingOf(self).depth;
}

void XMLCALL onText(void* self, const char* text, int length) {
    Reading& reading = readingOf(self);
    const auto kind = reading.inCdata ? XmlEvent::Kind::Cdata : XmlEvent::Kind::Text;
    if (reading.events.empty() || reading.events.back().kind != kind) reading.add(kind);
    reading.events.back().text.append(text, static_cast<std::size_t>(length));
}

void XMLCALL onCdataStart(void* self) {
    readingOf(self).inCdata = true;
    readingOf(self).add(XmlEvent::Kind::Cdata);
}

void XMLCALL onCdataEnd(void* self) {
    readingOf(self).inCdata = false;
}

void XMLCALL onComment(void* self, const char* /*text*/) {
    readingOf(self).add(XmlEvent::Kind::Other);
}

void XMLCALL onInstruction(void* self, const char* /*target*/, const char* /*text*/) {
    readingOf(self).add(XmlEvent::Kind::Other);
}

}  // namespace

std::optional<Events> readIndependently(const std::string& bytes) {
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserFreer> parser(XML_ParserCreate(nullptr));
    Reading reading;
    XML_SetUserData(parser.get(), &reading);
    XML_SetElementHandler(parser.get(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser.get(), onText);
    XML_SetCdataSectionHandler(parser.get(), onCdataStart, onCdataEnd);
    XML_SetCommentHandler(parser.get(), onComment);
    XML_SetProcessingInstructionHandler(parser.get(), onInstruction);
    const auto status = XML_Parse(parser.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
    if (status != XML_STATUS_OK) return std::nullopt;
    return std::move(reading.events);
}
