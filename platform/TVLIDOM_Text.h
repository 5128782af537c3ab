// Conversions between the parser's UTF-16 texts and UTF-8, for the document model's own use.
//
// Errors: text that is not valid in its encoding converts to an empty text.
#pragma once

#include <string>
#include <xercesc/util/XercesDefs.hpp>

#include "I18NString.h"

namespace TVLIDOM_Text {

using XmlString = std::basic_string<XMLCh>;

I18NString fromXml(const XMLCh* text);  // null is empty
XmlString toXml(const I18NString& text);

}  // namespace TVLIDOM_Text
