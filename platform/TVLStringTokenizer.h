// Splits a text at delimiter characters.
//
// Purpose: the tokens of a text, one after the other; runs of delimiters yield no empty tokens.
// Ownership: keeps its own copy of the text.
// Threads: one thread at a time.
// Units: none.
// Errors: nextToken() past the last token is an empty string.
#pragma once

#include <cstddef>
#include <string>

class TVLStringTokenizer {
  public:
    TVLStringTokenizer(std::string text, std::string delimiters);

    bool hasMoreTokens() const;
    std::string nextToken();

  private:
    std::string m_text;
    std::string m_delimiters;
    std::size_t m_position = 0;
};
