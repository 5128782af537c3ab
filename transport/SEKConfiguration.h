// The text of sek.cnf, with the files that it includes.
//
// Purpose: hands OpenSSL's reader one text in which every ".include" line has been replaced by what it names, so
//   that each file is opened by this library, as a regular file of a sane size, and leaves a stamp. Paths are
//   resolved as OpenSSL does it: its own reader expands quotes, escapes and variables; "includedir" and
//   OPENSSL_CONF_INCLUDE stand before relative ones. A folder stands for its files that end in .cnf or .conf, in
//   the order of their names. Unlike OpenSSL's reader, this one never passes over a file that cannot be read.
// Ownership: owns the parsed configuration.
// Threads: used by one thread at a time; no shared state.
// Units: bytes and lines.
// Errors: the constructor throws SEKFailure that names file, line and reason.
#pragma once

#include <openssl/conf.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "SEKFile.h"

class SEKConfiguration {
  public:
    // The stamps of all files read are added to the sources, also when reading fails.
    SEKConfiguration(const std::string& path, std::vector<SEKFileStamp>& sources);

    // Null when there is no such section.
    const STACK_OF(CONF_VALUE) * section(const std::string& name) const;

  private:
    static constexpr int depthLimit = 16;
    static constexpr std::size_t fileLimit = 200;
    static constexpr std::size_t textLimit = 4U << 20U;  // all files together

    struct ConfFreer {
        void operator()(CONF* conf) const { NCONF_free(conf); }
    };
    using ConfPtr = std::unique_ptr<CONF, ConfFreer>;
    // Where a line of the text comes from.
    struct Origin {
        std::size_t file = 0;
        long line = 0;
    };

    void append(const std::string& path, int depth);
    void appendLine(const std::string& line, const Origin& origin);
    void takeLine(const std::string& line, const Origin& origin, int depth);
    void include(const std::string& written, const Origin& origin, int depth);
    void includeFolder(const std::string& path, int depth);
    void heedPragma(const std::string& line);
    std::string expanded(const std::string& written, const Origin& origin) const;
    ConfPtr parse(const std::string& text, const Origin& last) const;
    std::string place(const Origin& origin) const;

    std::vector<SEKFileStamp>& m_sources;
    std::vector<std::string> m_files;
    std::vector<Origin> m_origins;  // of each line of the text
    std::string m_text;
    std::string m_includeFolder;
    bool m_absoluteOnly = false;
    ConfPtr m_conf;
};
