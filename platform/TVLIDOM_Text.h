// Conversions between the parser's UTF-16 texts and UTF-8.
//
// Purpose: for the document model's own use; nobody else sees UTF-16.
// Ownership: values.
// Threads: any.
// Units: none.
// Errors: text that is not valid in its encoding converts to an empty text. A text beyond 2 GiB throws
//   std::bad_alloc.
#pragma once

#include <string>
#include <string_view>
#include <xercesc/util/XercesDefs.hpp>

#include "I18NString.h"

namespace TVLIDOM_Text {

using XmlString = std::basic_string<XMLCh>;
using XmlView = std::basic_string_view<XMLCh>;

I18NString fromXml(XmlView text);
I18NString fromXml(const XMLCh* text);  // null is empty
XmlString toXml(const I18NString& text);

}  // namespace TVLIDOM_Text
