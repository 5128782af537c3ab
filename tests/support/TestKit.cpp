#include "TestKit.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "TVLIDOM_Parser.h"
#include "TestAccess.h"
#include "TextStream.h"

namespace fs = std::filesystem;

InstallFolder::InstallFolder() : m_before(fs::current_path()) {
    std::string name = (fs::temp_directory_path() / "vbs_unit_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    m_root = fs::canonical(name);
    for (const char* const child : {"bin", "configuration", "logs", "temp"})
        fs::create_directory(m_root / child);
    fs::current_path(m_root / "bin");
}

InstallFolder::~InstallFolder() {
    std::error_code error;
    fs::current_path(m_before, error);
    fs::remove_all(m_root, error);
}

std::string InstallFolder::path(const std::string& relative) const {
    return relative.empty() ? m_root.string() : (m_root / relative).string();
}

void InstallFolder::write(const std::string& relative, std::string_view content) const {
    std::ofstream file(m_root / relative, std::ios::binary);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + relative);
}

std::string InstallFolder::read(const std::string& relative) const {
    std::ifstream file(m_root / relative, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool InstallFolder::exists(const std::string& relative) const {
    return fs::exists(m_root / relative);
}

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << line.level << ' ' << line.logger << " \"" << line.text << '"';
}

LogCapture::LogCapture() : m_stream(open_memstream(&m_text, &m_size)) {
    ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
    factory->reset();
    factory->setLevel(ZOR_DEBUG);
    factory->addFile(m_stream, 0);
}

LogCapture::~LogCapture() {
    ZORLoggerFactory::getInstance()->reset();
    std::fclose(m_stream);
    std::free(m_text);
}

std::string LogCapture::raw() const {
    return std::string(m_text, m_size).substr(m_from);
}

std::vector<LogLine> LogCapture::lines() const {
    static const std::regex head(
        R"(^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}  ([A-Z]{4,5}) {1,2}t\[[0-9a-f]+\] (\S+) ((?:.|\n)*)$)");
    std::vector<LogLine> result;
    std::istringstream text(raw());
    for (std::string line; std::getline(text, line);) {
        std::smatch match;
        if (std::regex_match(line, match, head)) {
            result.push_back({match[1], match[2], match[3], line});
        } else if (!result.empty()) {
            result.back().text += "\n" + line;
            result.back().raw += "\n" + line;
        }
    }
    return result;
}

std::vector<LogLine> LogCapture::linesOf(const std::string& logger) const {
    std::vector<LogLine> result = lines();
    std::erase_if(result, [&](const LogLine& line) { return line.logger != logger; });
    return result;
}

std::size_t LogCapture::count(const std::string& level, const std::string& logger,
                              const std::string& text) const {
    const std::vector<LogLine> all = lines();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), LogLine{level, logger, text, {}}));
}

bool LogCapture::inOrder(const std::vector<LogLine>& expected) const {
    std::size_t next = 0;
    for (const LogLine& line : lines()) {
        if (next < expected.size() && line == expected[next]) ++next;
    }
    return next == expected.size();
}

void LogCapture::clear() {
    std::fflush(m_stream);
    m_from = m_size;
}

XmlText::XmlText(const std::string& text) {
    TVLIDOM_Parser parser;
    TextStream stream(text);
    if (parser.parse(stream, m_document) != 1) {
        throw std::runtime_error(std::string("test document: ") + parser.getErrorString().c_str());
    }
}

ServiceTest::ServiceTest() {
    TVLIDOM_DOMImplementation::initialize();
    TestAccess::renewProperties();
    TestAccess::renewConfiguration();
    TestAccess::renewConsole();
}

ServiceTest::~ServiceTest() {
    ZORBootstrapService::m_envp = nullptr;  // it belonged to the test
    TestAccess::renewConfiguration();
    TVLIDOM_DOMImplementation::terminate();
}

const char* ServiceTest::property(const char* name) {
    return ZORPropertyInserter::getInstance()->get(name);
}

void ServiceTest::setProperty(const char* name, const char* value) {
    ZORPropertyInserter::getInstance()->add(name, value);
}

void ServiceTest::writeStartup(const std::string& elements) const {
    folder.write("configuration/startup.xml", "<startupConfiguration xmlns:vrx=\"urn:velmora:startup\">" +
                                                  elements + "</startupConfiguration>");
    TestAccess::renewConfiguration();
}
