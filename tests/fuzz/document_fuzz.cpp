// Any bytes as a document: when two parsers take them, they read the same from them. One without declarations that the
// other parser takes is taken.

#include <set>
#include <string>
#include <vector>

#include "FuzzService.h"
#include "IndependentXml.h"
#include "TVLIDOM_Helper.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;

namespace {

using Kind = XmlEvent::Kind;

// Goes through a tree along the events of the other reading, without recursion: depth does not matter.
class Comparison {
  public:
    explicit Comparison(const std::vector<XmlEvent>& events) : m_events(events) {}

    void run(const TVLIDOM_Element& root) {
        enter(root);
        while (!m_open.empty()) {
            if (m_next.isNull()) {
                leave();
            } else if (m_next.getNodeType() == TVLIDOM_Node::ELEMENT_NODE) {
                enter(TVLIDOM_Element(m_next));
            } else {
                pass();
            }
        }
        require(m_at == m_events.size(), "nothing is left out at the end");
        requireSame(m_text, root.getTextContent().str(), "the text content is all texts in their order");
    }

  private:
    const XmlEvent& expect(Kind kind) {
        require(m_at < m_events.size() && m_events[m_at].kind == kind, "the nodes are of the same kinds");
        return m_events[m_at++];
    }

    void enter(const TVLIDOM_Element& element) {
        const XmlEvent& event = expect(Kind::Open);
        requireSame(event.text, element.getTagName().str(), "an element has its name");
        for (const auto& [name, value] : event.attributes)
            requireSame(value, element.getAttribute(name).str(), "an attribute has its value");
        require(event.attributes.count("absent") != 0 || element.getAttribute("absent").empty(),
                "an absent attribute is empty");
        require(m_open.empty() || element.getParentNode() == m_open.back(), "a child knows its parent");
        if (m_seen.insert(event.text).second && !m_open.empty())
            require(TVLIDOM_Helper::findFirstElementWithName(m_open.front(), event.text) == element,
                    "the first element of a name is found");
        m_open.push_back(element);
        m_next = element.getFirstChild();
    }

    void leave() {
        expect(Kind::Close);
        m_next = m_open.back().getNextSibling();
        m_open.pop_back();
    }

    void pass() {
        const int type = m_next.getNodeType();
        if (type != TVLIDOM_Node::TEXT_NODE && type != TVLIDOM_Node::CDATA_SECTION_NODE) {
            expect(Kind::Other);
        } else {
            const XmlEvent& event = expect(type == TVLIDOM_Node::TEXT_NODE ? Kind::Text : Kind::Cdata);
            requireSame(event.text, m_next.getNodeValue().str(), "a text is whole");
            m_text += event.text;
        }
        m_next = m_next.getNextSibling();
    }

    const std::vector<XmlEvent>& m_events;
    std::size_t m_at = 0;
    std::vector<TVLIDOM_Element> m_open;
    TVLIDOM_Node m_next;
    std::set<std::string> m_seen;
    std::string m_text;
};

// Of elements and attributes; ours has a limit of different ones.
constexpr std::size_t kMostNames = 1000;

std::size_t nameCount(const std::vector<XmlEvent>& events) {
    std::set<std::string> names;
    for (const XmlEvent& event : events) {
        if (event.kind == Kind::Open) names.insert(event.text);
        for (const auto& [name, value] : event.attributes)
            names.insert(name);
    }
    return names.size();
}

// A type, entities, or a version and an encoding, of which the other parser takes more; also in two bytes a character.
bool declaresAnything(const std::string& bytes) {
    return bytes.find("<!D") != std::string::npos || bytes.find("<?xml") != std::string::npos ||
           bytes.find('\0') != std::string::npos;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzService::begin();
    const std::string bytes = FuzzTarget::textOf(data, size);
    TVLIDOM_Document document;
    const bool isAccepted = FuzzService::parse(bytes, document);
    const auto events = readIndependently(bytes);
    if (isAccepted && events) Comparison(*events).run(document.getDocumentElement());
    const bool isPlain = events && !declaresAnything(bytes) && nameCount(*events) <= kMostNames;
    require(isAccepted || !isPlain, "a plain document is accepted");
    return 0;
}
