// A text as a stream, for the XML parser.
#pragma once

#include <sstream>
#include <string>

#include "PLXInputStream.h"

class TextStream : public PLXInputStream {
  public:
    explicit TextStream(const std::string& text) : m_text(text) {}

    int read(TVLByteBuffer& buffer, int count) override { return read(buffer.data(), count); }
    int read(char* buffer, int count) override {
        m_text.read(buffer, count);
        return m_text.gcount() > 0 ? static_cast<int>(m_text.gcount()) : -1;
    }
    int read() override { return m_text.get(); }
    void close() override {}
    bool canUnread() override { return false; }

  private:
    std::istringstream m_text;
};
