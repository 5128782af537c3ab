// The string of names and values that come from XML documents.
//
// Purpose: UTF-8 text whose length is counted in characters.
// Ownership: a value.
// Threads: one thread at a time.
// Units: length() in characters (code points).
// Errors: none; a null text is an empty string. In bytes that are no UTF-8, each that could begin a character
//   counts as one.
#pragma once

#include <cstddef>
#include <string>

class I18NString {
  public:
    I18NString() = default;
    I18NString(const char* utf8)
        : m_utf8(utf8 == nullptr ? "" : utf8) {}  // implicit: names are often literals
    I18NString(std::string utf8) : m_utf8(std::move(utf8)) {}

    bool empty() const { return m_utf8.empty(); }
    std::size_t length() const;
    const char* c_str() const { return m_utf8.c_str(); }
    const std::string& str() const { return m_utf8; }

    friend bool operator==(const I18NString& left, const I18NString& right) = default;

  private:
    std::string m_utf8;
};
