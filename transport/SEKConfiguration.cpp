#include "SEKConfiguration.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>

#include "SEKErrors.h"

namespace fs = std::filesystem;

namespace {

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioFreer>;

constexpr const char* blanks = " \t\r\n";

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

bool beginsWith(const std::string& text, const char* beginning) {
    return text.rfind(beginning, 0) == 0;
}

// What follows the directive on a line that is one: the reader takes any name that begins like it, when a blank
// or an equals sign follows. "name::" before it tells a section and changes nothing.
bool takeDirective(const std::string& line, const std::string& directive, std::string& rest) {
    constexpr const char* nameCharacters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_!.%&*+,/;?@^~|-";
    std::string text = trimmed(line);
    std::size_t end = std::min(text.find_first_not_of(nameCharacters), text.size());
    if (text.compare(end, 2, "::") == 0) {
        text.erase(0, end + 2);
        end = std::min(text.find_first_not_of(nameCharacters), text.size());
    }
    if (!beginsWith(text, directive.c_str())) return false;
    rest = trimmed(text.substr(end));
    const bool isAssigned = beginsWith(rest, "=");
    const bool isSeparate = end != directive.size() || (end < text.size() && text[end] <= ' ');
    if (isAssigned) rest = trimmed(rest.substr(1));
    return isAssigned || isSeparate;
}

bool isOneOf(const std::string& value, std::initializer_list<const char*> words) {
    return std::any_of(words.begin(), words.end(),
                       [&](const char* word) { return strcasecmp(value.c_str(), word) == 0; });
}

bool isContinued(const std::string& line) {
    const std::size_t count = line.size();
    return count > 0 && line[count - 1] == '\\' && (count == 1 || line[count - 2] != '\\');
}

bool isConfiguration(const fs::path& file) {
    return isOneOf(file.extension().string(), {".cnf", ".conf"});
}

// The reader takes one before the first file only; editors put one into any.
std::string withoutMark(std::string text) {
    if (beginsWith(text, "\xEF\xBB\xBF")) text.erase(0, 3);
    return text;
}

}  // namespace

SEKConfiguration::SEKConfiguration(const std::string& path, std::vector<SEKFileStamp>& sources)
    : m_sources(sources) {
    append(path, 0);
    m_conf = parse(m_text, {0, 0});
}

const STACK_OF(CONF_VALUE) * SEKConfiguration::section(const std::string& name) const {
    const STACK_OF(CONF_VALUE)* values = NCONF_get_section(m_conf.get(), name.c_str());
    ERR_clear_error();
    return values;
}

std::string SEKConfiguration::place(const Origin& origin) const {
    return m_files.at(origin.file) + " line " + std::to_string(origin.line);
}

// Takes over the lines of one file; a line that continues on the next counts as one.
void SEKConfiguration::append(const std::string& path, int depth) {
    m_sources.push_back(SEKFileStamp::of(path));
    if (depth > depthLimit || m_files.size() >= fileLimit)
        throw SEKFailure("cannot read " + path + ": too many included files");
    std::string content;
    try {
        content = withoutMark(SEKFile::read(path, SEKFile::configurationLimit));
    } catch (const SEKFailure& reason) {
        throw SEKFailure("cannot read " + path + ": " + reason.what());
    }
    // To OpenSSL's reader a zero byte at the begin of a line is the end of the file.
    if (content.find('\0') != std::string::npos) throw SEKFailure("cannot read " + path + ": not a text");
    Origin origin{m_files.size(), 0};
    m_files.push_back(path);
    std::string whole;
    for (std::size_t begin = 0; begin < content.size();) {
        const std::size_t end = std::min(content.find('\n', begin), content.size());
        std::string line = content.substr(begin, end - begin);
        begin = end + 1;
        ++origin.line;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const bool goesOn = isContinued(line) && begin < content.size();
        whole += line + (goesOn ? "\n" : "");
        if (goesOn) continue;
        takeLine(whole, origin, depth);
        whole.clear();
    }
}

void SEKConfiguration::takeLine(const std::string& line, const Origin& origin, int depth) {
    std::string written;
    if (takeDirective(line, ".include", written)) return include(written, origin, depth);
    heedPragma(line);
    appendLine(line, origin);
}

void SEKConfiguration::appendLine(const std::string& line, const Origin& origin) {
    if (m_text.size() + line.size() > textLimit) throw SEKFailure(place(origin) + ": too much included");
    m_text += line + "\n";
    m_origins.insert(m_origins.end(),
                     1 + static_cast<std::size_t>(std::count(line.begin(), line.end(), '\n')), origin);
}

void SEKConfiguration::include(const std::string& written, const Origin& origin, int depth) {
    std::string path = expanded(written, origin);
    if (path.empty()) throw SEKFailure("cannot read " + place(origin) + ": no file to include");
    const char* const folder = secure_getenv("OPENSSL_CONF_INCLUDE");
    const std::string base = folder != nullptr ? folder : m_includeFolder;
    if (path.front() != '/' && !base.empty()) path.insert(0, base + "/");
    if (path.front() != '/' && m_absoluteOnly)
        throw SEKFailure("cannot read " + place(origin) + ": the path " + path + " is relative");
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) return includeFolder(path, depth);
    append(path, depth + 1);
}

void SEKConfiguration::includeFolder(const std::string& path, int depth) {
    m_sources.push_back(SEKFileStamp::of(path));
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code ignored;
        if (!isConfiguration(entry->path()) || entry->is_directory(ignored)) continue;
        files.push_back(entry->path().string());
        if (files.size() > fileLimit) throw SEKFailure("cannot read " + path + ": too many included files");
    }
    if (error) throw SEKFailure("cannot read " + path + ": " + SEKErrors::systemReason(error.value()));
    std::sort(files.begin(), files.end());
    for (const std::string& file : files)
        append(file, depth + 1);
}

// The two pragmas that say how the paths of includes are meant; the reader itself judges all of them.
void SEKConfiguration::heedPragma(const std::string& line) {
    std::string rest;
    if (!takeDirective(line, ".pragma", rest)) return;
    rest = trimmed(rest.substr(0, rest.find('#')));
    const std::size_t colon = rest.find(':');
    if (colon == std::string::npos) return;
    const std::string name = trimmed(rest.substr(0, colon));
    const std::string value = trimmed(rest.substr(colon + 1));
    if (name == "includedir") m_includeFolder = value;
    if (name == "abspath") m_absoluteOnly = isOneOf(value, {"on", "true"});
}

// The path as the reader understands it at this place of the text: with the variables of the section that is
// open here.
std::string SEKConfiguration::expanded(const std::string& written, const Origin& origin) const {
    if (written.find_first_of("$\\\"'`#(") == std::string::npos) return written;
    const std::string key = "path.of.the.included.file";
    const ConfPtr conf = parse(m_text + key + " = " + written + "\n", origin);
    const std::unique_ptr<STACK_OF(OPENSSL_CSTRING), void (*)(STACK_OF(OPENSSL_CSTRING)*)> sections(
        NCONF_get_section_names(conf.get()),
        [](STACK_OF(OPENSSL_CSTRING) * all) { sk_OPENSSL_CSTRING_free(all); });
    if (sections == nullptr) throw SEKFailure("cannot read " + place(origin) + ": " + SEKErrors::tlsReason());
    for (int i = 0; i < sk_OPENSSL_CSTRING_num(sections.get()); ++i) {
        const char* const section = sk_OPENSSL_CSTRING_value(sections.get(), i);
        // A look-up would fall back to the default section, which is harmless: the name is nobody else's.
        const char* const value = NCONF_get_string(conf.get(), section, key.c_str());
        ERR_clear_error();
        if (value != nullptr) return value;
    }
    return "";
}

// Lines beyond those taken over so far come from the last origin.
SEKConfiguration::ConfPtr SEKConfiguration::parse(const std::string& text, const Origin& last) const {
    ConfPtr conf(NCONF_new(nullptr));
    const BioPtr input(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    long line = 0;
    if (conf != nullptr && input != nullptr && NCONF_load_bio(conf.get(), input.get(), &line) > 0)
        return conf;
    const bool isTaken = line > 0 && static_cast<std::size_t>(line) <= m_origins.size();
    const Origin& origin = isTaken ? m_origins[static_cast<std::size_t>(line) - 1] : last;
    std::string reason = SEKErrors::tlsReason();
    // The reader counts the lines of the joined text.
    const std::string counted = " (line " + std::to_string(line) + ")";
    if (reason.ends_with(counted)) reason.erase(reason.size() - counted.size());
    throw SEKFailure("cannot read " + (origin.line > 0 ? place(origin) : m_files.front()) + ": " + reason);
}
