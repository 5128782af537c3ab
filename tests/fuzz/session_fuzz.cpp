// Any bytes as a session document: what is taken from it, against what the other parser of this system reads.

#include <sys/socket.h>

#include <string>

#include "FuzzService.h"
#include "SEKErrors.h"
#include "SEKSession.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;

namespace {

constexpr const char* kRoot = "sessionConfigDocument";

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

std::string withoutPrefix(const std::string& name) {
    return name.substr(name.find(':') + 1);
}

// The texts right below an element.
std::string ownText(const TVLIDOM_Element& element) {
    std::string text;
    for (TVLIDOM_Node at = element.getFirstChild(); !at.isNull(); at = at.getNextSibling()) {
        const int type = at.getNodeType();
        const bool isText = type == TVLIDOM_Node::TEXT_NODE || type == TVLIDOM_Node::CDATA_SECTION_NODE;
        if (isText) text += at.getNodeValue().str();
    }
    return text;
}

bool hasChild(const TVLIDOM_Element& root, const std::string& name, const std::string& text) {
    const TVLIDOM_NodeList children = root.getChildNodes();
    for (std::size_t i = 0; i < children.getLength(); ++i) {
        const TVLIDOM_Element child(children.item(i));
        if (withoutPrefix(child.getTagName().str()) == name && trimmed(ownText(child)) == text) return true;
    }
    return false;
}

void checkAgainstOtherParser(const std::string& bytes, const SEKSession& session) {
    TVLIDOM_Document document;
    if (!FuzzService::parse(bytes, document)) return;
    const TVLIDOM_Element root = document.getDocumentElement();
    requireSame(kRoot, withoutPrefix(root.getTagName().str()), "the root is the one that was asked for");
    require(hasChild(root, "serviceID", session.serviceID), "the service's id stands in the document");
    require(hasChild(root, "protocolFamily", session.family == AF_INET ? "IPv4" : "IPv6"),
            "and so does the family");
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '&'    ? "&amp;"
                  : c == '<'  ? "&lt;"
                  : c == '>'  ? "&gt;"
                  : c == '\r' ? "&#13;"
                              : std::string(1, c);
    return result;
}

void checkRoundTrip(const SEKSession& session) {
    const std::string document =
        "<sessionConfigDocument><serviceID>" + escaped(session.serviceID) + "</serviceID><protocolFamily>" +
        (session.family == AF_INET ? "IPv4" : "IPv6") + "</protocolFamily></sessionConfigDocument>";
    const SEKSession again = SEKSession::parse(document.c_str());
    requireSame(session.serviceID, again.serviceID, "an id that is written down is read as the same");
    require(session.family == again.family, "and so is the family");
}

void checkSession(const std::string& bytes) {
    try {
        const SEKSession session = SEKSession::parse(bytes.c_str());
        requireSame(bytes, session.text, "a session keeps its document");
        require(!session.serviceID.empty(), "a session has a service's id");
        require(session.family == AF_INET || session.family == AF_INET6, "a session has a family");
        checkAgainstOtherParser(bytes, session);
        checkRoundTrip(session);
    } catch (const SEKFailure& reason) {
        require(std::string(reason.what()).rfind("bad sessionConfigDocument: ", 0) == 0,
                "a refusal names the document");
    }
}

void checkOtherDocument(const std::string& bytes, const std::string& rootName) {
    try {
        checkServiceDocument(bytes.c_str(), rootName);
    } catch (const SEKFailure& reason) {
        require(std::string(reason.what()).rfind("bad " + rootName + ": ", 0) == 0,
                "a refusal names the document");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzService::begin();
    const std::string bytes = FuzzTarget::untilZero(FuzzTarget::textOf(data, size));
    checkSession(bytes);
    checkOtherDocument(bytes, "initializeDocument");
    checkOtherDocument(bytes, "terminateDocument");
    return 0;
}
