// A text with places where something is put in, as the log's messages have them.
//
// Purpose: tells whether a text is such a message with values put in, and which values.
// Ownership: owns its pieces.
// Threads: as any value.
// Units: none.
// Errors: none.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class CTLTextPattern {
  public:
    // With the conversions of the service's logging: %s, %d, %x and %ld. Blanks at the end do not count.
    static CTLTextPattern ofFormat(std::string_view format) { return CTLTextPattern(format, true); }
    // As the guide prints a message: with an ellipsis for each value.
    static CTLTextPattern ofPrinted(std::string_view printed) { return CTLTextPattern(printed, false); }

    // Whether the whole text is this message; the values go into `values`, if there is one. Each value ends where the next
    // piece first begins.
    bool matches(std::string_view text, std::vector<std::string>* values = nullptr) const;
    // How many letters are the message's own.
    std::size_t ownLetters() const;

  private:
    CTLTextPattern(std::string_view text, bool isFormat);
    bool matchesWhole(std::string_view text, std::vector<std::string>* values) const;

    std::vector<std::string> m_pieces;  // with a value between each two
};
