// Helpers for element text and path strings.
//
// Purpose: what every class that reads configuration shares. Stateless.
// Ownership: none.
// Threads: any.
// Units: none.
// Errors: none.
#pragma once

#include <string>

#include "TVLIDOM_Node.h"

class ZORHelpers {
  public:
    // Sets `text` to the last non-empty text child of the element; leaves it alone when there is none.
    // Deliberate: text broken by comments or elements is not joined; see ZORHelpersTest.TheLastTextChildWins.
    static void getElemText(const TVLIDOM_Element& element, I18NString& text);
    static void fixPathDelimiters(std::string& path);   // backslashes become slashes
    static void stripTrailingSlash(std::string& path);  // "/opt/x//" becomes "/opt/x", "/" becomes ""
    static void stripLastDir(std::string& path);        // cuts at the last slash or backslash
    // The next line with its line feed, at most `most` bytes of it; moves `at`, which is inside of the text, behind it.
    static std::string nextLine(const std::string& text, std::size_t& at, std::size_t most);
};
