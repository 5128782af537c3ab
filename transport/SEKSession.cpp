#include "SEKSession.h"

#include <sys/socket.h>

#include <iterator>

#include "SEKDocument.h"
#include "SEKErrors.h"

namespace {

constexpr const char* cryptoNamespace = "http://schemas.velmora.example/sek/crypto/1/";

SEKDocument parseDocument(const char* document, const std::string& rootName) {
    try {
        if (document == nullptr) throw SEKFailure("no document");
        SEKDocument parsed = SEKDocument::parse(document);
        if (parsed.rootName() != rootName) throw SEKFailure("root element is " + parsed.rootName());
        return parsed;
    } catch (const SEKFailure& reason) {
        throw SEKFailure("bad " + rootName + ": " + reason.what());
    }
}

std::string childOf(const SEKDocument& document, const std::string& name) {
    const auto [first, end] = document.children().equal_range(name);
    const auto count = std::distance(first, end);
    // Two could say two things, and which one holds would be anybody's guess.
    if (count > 1) throw SEKFailure("bad " + document.rootName() + ": element " + name + " given twice");
    if (count == 0 || first->second.empty()) throw SEKFailure("bad " + document.rootName() + ": no " + name);
    return first->second;
}

void checkNamespace(const SEKDocument& document) {
    const std::string& space = document.rootNamespace();
    if (!space.empty() && space != cryptoNamespace)
        throw SEKFailure("bad " + document.rootName() + ": unknown namespace " + space);
}

int familyNamed(const std::string& name) {
    if (name == "IPv4") return AF_INET;
    if (name == "IPv6") return AF_INET6;
    throw SEKFailure("bad sessionConfigDocument: protocolFamily is \"" + name + "\", not IPv4 or IPv6");
}

}  // namespace

SEKSession SEKSession::parse(const char* text) {
    const SEKDocument document = parseDocument(text, "sessionConfigDocument");
    checkNamespace(document);
    SEKSession session;
    session.text = text;
    session.serviceID = childOf(document, "serviceID");
    session.family = familyNamed(childOf(document, "protocolFamily"));
    return session;
}

void checkServiceDocument(const char* text, const std::string& rootName) {
    childOf(parseDocument(text, rootName), "serviceID");
}
