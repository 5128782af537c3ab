#include "TVLIDOM_Text.h"

#include <unicode/ustring.h>
#include <cstdint>
#include <limits>
#include <new>

static_assert(sizeof(XMLCh) == sizeof(UChar), "both libraries count in UTF-16 units");

namespace {

std::int32_t lengthOf(std::size_t length) {
    if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) throw std::bad_alloc();
    return static_cast<std::int32_t>(length);
}

// Both conversions write into a given buffer and tell the length that they need. One unit for a unit is exact
// for ASCII, which nearly every text is.
template <typename Text, typename Conversion>
Text converted(std::size_t length, Conversion convert) {
    Text result(length, 0);
    std::int32_t needed = 0;
    UErrorCode status = U_ZERO_ERROR;
    convert(result.data(), lengthOf(length), &needed, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        result.resize(static_cast<std::size_t>(needed));
        status = U_ZERO_ERROR;
        convert(result.data(), needed, &needed, &status);
    }
    if (U_FAILURE(status)) return {};
    result.resize(static_cast<std::size_t>(needed));
    return result;
}

}  // namespace

namespace TVLIDOM_Text {

I18NString fromXml(XmlView text) {
    if (text.empty()) return {};
    return converted<std::string>(
        text.size(), [&](char* to, std::int32_t room, std::int32_t* needed, UErrorCode* status) {
            u_strToUTF8(to, room, needed, text.data(), lengthOf(text.size()), status);
        });
}

I18NString fromXml(const XMLCh* text) {
    return fromXml(text == nullptr ? XmlView() : XmlView(text));
}

XmlString toXml(const I18NString& text) {
    const std::string& utf8 = text.str();
    if (utf8.empty()) return {};
    return converted<XmlString>(
        utf8.size(), [&](XMLCh* to, std::int32_t room, std::int32_t* needed, UErrorCode* status) {
            u_strFromUTF8(to, room, needed, utf8.data(), lengthOf(utf8.size()), status);
        });
}

}  // namespace TVLIDOM_Text
