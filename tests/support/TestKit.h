// What most unit tests need: a fresh set of singletons, a folder of their own, the log as it was written, and
// documents from text.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "TVLIDOM_Document.h"
#include "ZORLogger.h"

// A temporary folder with bin/, configuration/, logs/ and temp/ that is the working directory's parent (the
// test works in bin/, as the service does) for as long as it exists.
class InstallFolder {
  public:
    InstallFolder();
    ~InstallFolder();
    InstallFolder(const InstallFolder&) = delete;
    InstallFolder& operator=(const InstallFolder&) = delete;

    std::string path(const std::string& relative = {}) const;
    void write(const std::string& relative, std::string_view content) const;
    std::string read(const std::string& relative) const;
    bool exists(const std::string& relative) const;

  private:
    std::filesystem::path m_before;
    std::filesystem::path m_root;
};

struct LogLine {
    std::string level;  // "FATAL", "ERROR", "WARN", "INFO" or "DEBUG"
    std::string logger;
    std::string text;  // may hold line feeds
    std::string raw;   // as written, without the last line feed

    friend bool operator==(const LogLine& left, const LogLine& right) {
        return left.level == right.level && left.logger == right.logger && left.text == right.text;
    }
};
void PrintTo(const LogLine& line, std::ostream* out);

// Takes everything that is logged from its construction on, at DEBUG.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string raw() const;
    std::vector<LogLine> lines() const;
    std::vector<LogLine> linesOf(const std::string& logger) const;
    std::size_t count(const std::string& level, const std::string& logger, const std::string& text) const;
    bool has(const std::string& level, const std::string& logger, const std::string& text) const {
        return count(level, logger, text) > 0;
    }
    // Whether these lines were written in this order, others between them or not.
    bool inOrder(const std::vector<LogLine>& expected) const;
    void clear();

  private:
    char* m_text = nullptr;
    std::size_t m_size = 0;
    std::FILE* m_stream;
    std::size_t m_from = 0;
};

// Parsed from text; the root element lives as long as this object.
class XmlText {
  public:
    explicit XmlText(const std::string& text);
    TVLIDOM_Element root() const { return m_document.getDocumentElement(); }

  private:
    TVLIDOM_Document m_document;
};

// Empty property table, no startup configuration read yet, console not prepared; the document model is up.
class ServiceTest : public testing::Test {
  protected:
    ServiceTest();
    ~ServiceTest() override;

    static const char* property(const char* name);
    static void setProperty(const char* name, const char* value);
    // Writes configuration/startup.xml around these elements; it is read again on the next use.
    void writeStartup(const std::string& elements) const;

    InstallFolder folder;
    LogCapture log;
};
