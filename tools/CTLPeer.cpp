#include "CTLPeer.h"

#include <algorithm>
#include <cstring>

#include "PLXInputStream.h"
#include "TVLIDOM_Document.h"
#include "TVLIDOM_Helper.h"
#include "TVLIDOM_Parser.h"

namespace {

class TextInput final : public PLXInputStream {
  public:
    explicit TextInput(const std::string& text) : m_text(text) {}

    int read(TVLByteBuffer& /*buffer*/, int /*count*/) override { return -1; }
    int read(char* buffer, int count) override {
        const std::size_t length =
            std::min(m_text.size() - m_at, static_cast<std::size_t>(std::max(0, count)));
        if (length == 0) return -1;
        std::memcpy(buffer, m_text.data() + m_at, length);
        m_at += length;
        return static_cast<int>(length);
    }
    int read() override { return m_at < m_text.size() ? static_cast<unsigned char>(m_text[m_at++]) : -1; }
    void close() override { m_at = m_text.size(); }
    bool canUnread() override { return false; }

  private:
    const std::string& m_text;
    std::size_t m_at = 0;
};

std::string textOf(const TVLIDOM_Element& parent, const char* name) {
    const TVLIDOM_Element element = TVLIDOM_Helper::findFirstElementWithName(parent, name);
    return element.isNull() ? std::string() : element.getTextContent().str();
}

std::time_t timeOf(const TVLIDOM_Element& parent, const char* name) {
    std::tm parts{};
    const std::string text = textOf(parent, name);
    return strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) == nullptr ? 0 : timegm(&parts);
}

CTLCertificate certificateOf(const TVLIDOM_Element& element) {
    CTLCertificate certificate{
        textOf(element, "subject"),   textOf(element, "issuer"),   {},
        timeOf(element, "notBefore"), timeOf(element, "notAfter"), textOf(element, "fingerprint")};
    const TVLIDOM_NodeList names = element.getElementsByTagName("name");
    for (std::size_t index = 0; index < names.getLength(); ++index) {
        const TVLIDOM_Element name(names.item(index));
        certificate.names.push_back(name.getAttribute("kind").str() + ":" + name.getTextContent().str());
    }
    return certificate;
}

}  // namespace

CTLPeer CTLPeer::of(const std::string& description) {
    CTLPeer peer;
    TVLIDOM_Document document;
    TVLIDOM_Parser parser;
    TextInput input(description);
    if (description.empty() || parser.parse(input, document) == 0) return peer;
    const TVLIDOM_Element root = document.getDocumentElement();
    peer.protocol = textOf(root, "protocol");
    peer.cipher = textOf(root, "cipher");
    peer.isVerified = root.getAttribute("verified") == "true";
    const TVLIDOM_NodeList certificates = root.getElementsByTagName("certificate");
    for (std::size_t index = 0; index < certificates.getLength(); ++index)
        peer.chain.push_back(certificateOf(TVLIDOM_Element(certificates.item(index))));
    return peer;
}

std::optional<std::time_t> CTLPeer::expiry() const {
    std::optional<std::time_t> first;
    for (const CTLCertificate& certificate : chain) {
        if (!first || certificate.notAfter < *first) first = certificate.notAfter;
    }
    return first;
}
