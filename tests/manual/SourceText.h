// The texts in a C++ source file.
//
// Purpose: reads the string literals of a file, joined where the language joins them, with the code before each;
//   comments and preprocessor lines are left out.
// Ownership: plain values.
// Threads: may be used by any thread.
// Units: none.
// Errors: none; the files are those that the compiler accepts.
#pragma once

#include <string>
#include <vector>

class SourceText {
  public:
    struct Literal {
        std::string text;   // without quotes and escapes
        std::string level;  // FATAL to DEBUG when it is the message of a call of log(), otherwise empty
    };

    explicit SourceText(const std::string& code);

    const std::vector<Literal>& literals() const { return m_literals; }
    // What the file's loggers are called.
    const std::vector<std::string>& loggers() const { return m_loggers; }

  private:
    void skipLine();
    void skipComment();
    void readCharacter();
    void readString();
    void finishLiteral();
    void keepCode(char c);
    bool isAt(const char* words) const {
        return m_source.compare(m_at, std::char_traits<char>::length(words), words) == 0;
    }

    std::string m_source;
    std::size_t m_at = 0;
    bool m_lineIsEmpty = true;  // nothing but blanks until here
    bool m_inLiteral = false;   // another string would belong to the last one
    std::string m_code;         // without blanks and literals
    std::vector<Literal> m_literals;
    std::vector<std::string> m_loggers;
};
