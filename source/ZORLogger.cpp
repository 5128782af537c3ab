#include "ZORLogger.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>

#include "TVLDocumentFile.h"
#include "TVLFile.h"
#include "TVLIDOM_Helper.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "TVLThrowable.h"
#include "ZORFileInputStream.h"
#include "ZORPropertyInserter.h"

namespace {

constexpr std::array<const char*, 6> kLevelNames{"FATAL", "ERROR", "WARN", "INFO", "DEBUG", nullptr};

struct NamedLevel {
    const char* name;
    int level;
};
constexpr std::array<NamedLevel, 6> kNamedLevels{{{"DEBUG", ZOR_DEBUG},
                                                  {"INFO", ZOR_INFO},
                                                  {"WARN", ZOR_WARN},
                                                  {"ERROR", ZOR_ERROR},
                                                  {"FATAL", ZOR_FATAL},
                                                  {nullptr, ZOR_DEBUG}}};

// Deliberate: the document's level is case-sensitive while the command line's is not; see
// ZORLoggerTest.LevelNamesAreCaseSensitiveInTheDocumentOnly.
int determineLevel(const char* name) {
    if (name == nullptr) return ZOR_DEBUG;
    for (std::size_t level = 0; kLevelNames[level] != nullptr; ++level) {
        if (std::strcmp(name, kLevelNames[level]) == 0) return static_cast<int>(level);
    }
    return ZOR_DEBUG;
}

// The name as printed; a level beyond the names is printed as its nearest.
const char* levelName(int level) {
    return kLevelNames[static_cast<std::size_t>(std::clamp<int>(level, ZOR_FATAL, ZOR_DEBUG))];
}

// Now, in UTC, as the fixed 24 characters of asctime and a blank.
std::string timeStamp() {
    const std::time_t now = TVLOs::current().wallClock();
    std::tm utc{};
    std::array<char, 64> text{};
    if (gmtime_r(&now, &utc) == nullptr || asctime_r(&utc, text.data()) == nullptr) return " ";
    std::string stamp(text.data());
    stamp.back() = ' ';
    return stamp;
}

std::string prefix(const char* logger, int level) {
    std::array<char, 96> head{};
    std::snprintf(head.data(), head.size(), "%s %-5.5s t[%x] ", timeStamp().c_str(), levelName(level),
                  TVLThread::currentThreadId());
    return std::string(head.data()) + logger + " ";
}

// Copies `format`, handing the conversion character of each %s, %d, %x (also with "l") to `convert`.
// Everything else stands for itself and "%%" for a percent sign: a line is complete whatever the text holds.
template <typename Convert>
void appendFormatted(std::string& line, std::string_view format, Convert convert) {
    std::size_t at = 0;
    while (at < format.size()) {
        const std::size_t percent = std::min(format.find('%', at), format.size());
        line.append(format.substr(at, percent - at));
        at = percent + 1;
        if (at < format.size() && format[at] == 'l') ++at;
        if (at < format.size() && format[at] == '%') {
            line += '%';
        } else if (at >= format.size() || !convert(line, format[at])) {
            line.append(format.substr(std::min(percent, format.size()), at + 1 - percent));
        }
        ++at;
    }
}

void appendNumber(std::string& line, const char* format, int value) {
    appendFormatted(line, format, [&](std::string& out, char conversion) {
        if (conversion != 'd' && conversion != 'x') return false;
        std::array<char, 16> digits{};
        std::snprintf(digits.data(), digits.size(), conversion == 'd' ? "%d" : "%x", value);
        out += digits.data();
        return true;
    });
}

// For a destination that may take data again, whatever the level: only it lacks the lines. Empty when nothing was
// dropped, and when there is no memory to say so.
std::string dropNotice(int dropped) {
    if (dropped == 0) return {};
    try {
        std::string notice = prefix("ZORLoggerFactory", ZOR_WARN);
        appendNumber(notice, "%d lines were dropped here, because nobody read them.", dropped);
        return notice + '\n';
    } catch (const std::bad_alloc&) {
        return {};
    }
}

}  // namespace

ZORLoggerFactory* ZORLoggerFactory::m_pInstance = nullptr;
ZORConsole* ZORConsole::m_pConsole = nullptr;

namespace {

// Deliberate: the console logs nothing, its name among the loggers is taken all the same; see
// RulesTest.WhatIsKeptUnusedIsUsedByNothing.
[[maybe_unused]] ZORLogger* const consoleLogger = ZORLoggerFactory::getInstance()->getLogger("ZORConsole");

}  // namespace

ZORLogger::ZORLogger(ZORLoggerFactory* factory, const char* name) : m_factory(factory), m_name(name) {}

ZORLogger::~ZORLogger() {
    delete m_factory;
    m_factory = nullptr;
}

bool ZORLogger::writes(int level) const {
    return level <= m_factory->getLevel();
}

void ZORLogger::log(int level, const char* format, const char* arg1, const char* arg2) {
    m_factory->log(this, level, format, arg1, arg2);
}

void ZORLogger::log(int level, const char* format, int value) {
    m_factory->log(this, level, format, value);
}

ZORLoggerFactory::ZORLoggerFactory() = default;

ZORLoggerFactory::~ZORLoggerFactory() {
    reset();
    if (m_pInstance == this) m_pInstance = nullptr;
}

ZORLoggerFactory* ZORLoggerFactory::getInstance() {
    // No lock: the first call comes from static construction, before any thread exists.
    if (m_pInstance != nullptr) return m_pInstance;
    try {
        m_pInstance = new (std::nothrow) ZORLoggerFactory;
        if (m_pInstance == nullptr) throw TVLOutOfMemoryError(__FILE__, __LINE__);
        m_pInstance->m_mutex.holdAcrossFork();
    } catch (TVLThrowable& throwable) {
        throwable.addBackTrace(__FILE__, __LINE__);
        throw;
    }
    return m_pInstance;
}

void ZORLoggerFactory::setLevel(const char* name) {
    if (name == nullptr || *name == '\0') {
        setLevel(ZOR_INFO);
        return;
    }
    const NamedLevel* entry = kNamedLevels.data();
    while (entry->name != nullptr && strcasecmp(entry->name, name) != 0)
        ++entry;
    setLevel(entry->level);
}

void ZORLoggerFactory::reset() {
    setLevel(ZOR_FATAL);
    const TVLThreadGuard guard(m_mutex);
    for (const auto& [file, writer] : m_files) {
        if (file.isOwned() && file.getStream() != nullptr) std::fclose(file.getStream());
    }
    m_files.clear();
}

void ZORLoggerFactory::addFile(std::FILE* stream, int owned) {
    const TVLThreadGuard guard(m_mutex);
    m_files.push_back({{stream, owned}, writerFor(stream)});
}

void ZORLoggerFactory::addFile(const char* path, int append) {
    if (path == nullptr) return;
    TVLFilePtr file = TVLFile::openLog(path, append != 0);
    if (!file) return;
    addFile(file.get(), 1);
    static_cast<void>(file.release());
}

std::shared_ptr<TVLStreamWriter> ZORLoggerFactory::writerFor(std::FILE* stream) const {
    for (const auto& [file, writer] : m_files) {
        if (writer->leadsTo(stream)) return writer;
    }
    return std::make_shared<TVLStreamWriter>(stream);
}

int ZORLoggerFactory::prepare(TVLIDOM_Element root) {
    const TVLIDOM_Element logging = TVLIDOM_Helper::findFirstElementWithName(root, "logging");
    if (logging.isNull()) {
        ZORConsole::getInstance()->print(
            "no logger element in config, so LoggerFactory is not reconfigured.\n");
        return 0;
    }
    reset();
    // Deliberate: without a level only FATAL lines are written; see ZORLoggerTest.NoLevelMeansFatal.
    const I18NString level = logging.getAttribute("level");
    if (!level.empty()) setLevel(determineLevel(level.c_str()));
    const TVLIDOM_Element logFiles = TVLIDOM_Helper::findFirstElementWithName(logging, "logFiles");
    if (logFiles.getFirstChild().isNull()) {
        ZORConsole::getInstance()->print("no log file elements in config, so no log files added.\n");
        return 1;
    }
    prepareFiles(logFiles);
    return 1;
}

void ZORLoggerFactory::prepareFiles(const TVLIDOM_Element& logFiles) {
    for (TVLIDOM_Node child = logFiles.getFirstChild(); !child.isNull(); child = child.getNextSibling()) {
        if (TVLIDOM_Helper::isElementNamed(child, "file")) {
            const TVLIDOM_Element file(child);
            std::string name = file.getAttribute("name").str();
            ZORPropertyInserter::getInstance()->insertProperties(name);
            addFile(name.c_str(), file.getAttribute("append") == "true" ? 1 : 0);
        } else if (TVLIDOM_Helper::isElementNamed(child, "stdout")) {
            addFile(stdout, 0);
        } else if (TVLIDOM_Helper::isElementNamed(child, "stderr")) {
            addFile(stderr, 0);
        }
    }
}

int ZORLoggerFactory::prepare(const char* fileName, const char* sectionName) {
    // Never freed: a logger takes its factory with it.
    if (m_ownLogger == nullptr) m_ownLogger = getLogger("ZORLoggerFactory");
    ZORLogger* const logger = m_ownLogger;
    TVLIDOM_Document document;
    ZORFileInputStream stream(fileName);
    const auto cannotOpen = [&] {
        logger->log(ZOR_FATAL, "cannot open logging config file \"%s\".", fileName);
    };
    const auto cannotParse = [&](const char* words) {
        logger->log(ZOR_FATAL, "Error parsing logging config file = %s, error string = %s", fileName, words);
    };
    if (!TVLDocumentFile::read(stream, document, {cannotOpen, cannotParse})) return 0;
    const TVLIDOM_Element section =
        TVLIDOM_Helper::findFirstElementWithName(document.getDocumentElement(), sectionName);
    if (section.isNull()) {
        logger->log(ZOR_FATAL, "logging config element \"%s\" is missing.", sectionName);
        return 0;
    }
    return prepare(section);
}

void ZORLoggerFactory::simplePrepare(int level, const char* path) {
    reset();
    setLevel(level);
    addFile(path, 0);
}

ZORLogger* ZORLoggerFactory::getLogger(const char* name) {
    return new ZORLogger(this, name);
}

template <typename AppendMessage>
void ZORLoggerFactory::write(const ZORLogger& logger, int level, const char* format,
                             AppendMessage appendMessage) {
    const TVLThreadGuard guard(m_mutex);
    if (m_files.empty()) return;
    try {
        std::string line = prefix(logger.getName(), level);
        if (format != nullptr) appendMessage(line);
        line += '\n';
        writeToAll(line);
    } catch (const std::bad_alloc&) {
        // The line is dropped; what it was about goes on.
    }
}

void ZORLoggerFactory::writeToAll(const std::string& line) {
    for (const auto& [file, writer] : m_files) {
        if (file.getStream() == nullptr) continue;
        writer->write(file.getStream(), line, dropNotice(writer->dropped()));
    }
}

void ZORLoggerFactory::log(ZORLogger* logger, int level, const char* format, const char* arg1,
                           const char* arg2) {
    if (level > getLevel()) return;
    write(*logger, level, format, [&](std::string& line) {
        std::array<const char*, 3> arguments{arg1, arg2, nullptr};
        std::size_t next = 0;
        appendFormatted(line, format, [&](std::string& out, char conversion) {
            if (conversion != 's') return false;
            const char* const text = arguments[std::min<std::size_t>(next++, 2)];
            out += text == nullptr ? "(null)" : text;
            return true;
        });
    });
}

void ZORLoggerFactory::log(ZORLogger* logger, int level, const char* format, int value) {
    if (level > getLevel()) return;
    write(*logger, level, format, [&](std::string& line) { appendNumber(line, format, value); });
}

ZORConsole::~ZORConsole() = default;

ZORConsole* ZORConsole::getInstance() {
    if (m_pConsole == nullptr) m_pConsole = new ZORConsole;
    return m_pConsole;
}

void ZORConsole::prepare() {
    m_stream = stderr;
}

void ZORConsole::print(const char* text) {
    if (m_stream != nullptr) std::fputs(text, m_stream);
}

void ZORConsole::print(TVLByteBuffer& buffer) {
    if (m_stream != nullptr) std::fputs(buffer.str(), m_stream);
}

void ZORConsole::destroy() {}
