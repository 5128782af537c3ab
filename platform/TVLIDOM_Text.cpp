#include "TVLIDOM_Text.h"

#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

namespace TVLIDOM_Text {

I18NString fromXml(const XMLCh* text) {
    if (text == nullptr || *text == 0) return {};
    try {
        const xercesc::TranscodeToStr utf8(text, "UTF-8");
        return std::string(reinterpret_cast<const char*>(utf8.str()), utf8.length());
    } catch (const xercesc::XMLException&) {
        return {};
    }
}

XmlString toXml(const I18NString& text) {
    if (text.empty()) return {};
    try {
        const auto* const bytes = reinterpret_cast<const XMLByte*>(text.c_str());
        const xercesc::TranscodeFromStr utf16(bytes, text.str().size(), "UTF-8");
        return {utf16.str(), utf16.length()};
    } catch (const xercesc::XMLException&) {
        return {};
    }
}

}  // namespace TVLIDOM_Text
