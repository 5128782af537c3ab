// Logging.
//
// Purpose: every class writes its lines through a named ZORLogger; the one ZORLoggerFactory holds the
//   threshold level and the destinations (ZORLogFile); ZORConsole carries the few texts meant for a person at
//   a terminal.
// Ownership: factory and console are process-wide and live until the process ends. A logger belongs to
//   whoever asked for it and normally lives as long as the process. The factory closes the files that it
//   opened, never standard output or standard error.
// Threads: any thread may log; lines never interleave, and each line reaches every destination before the
//   next one starts. Everything that configures belongs to the main thread before other threads exist. A
//   child that is forked while another thread logs can log as well.
// Units: levels are ZORLogLevel values; a smaller number is more severe.
// Errors: files that cannot be opened are left out, failed writes are ignored, a line for which there is no memory
//   is dropped, and a destination that takes no data is waited for no longer than TVLStreamWriter says: logging never
//   stops the service.
#pragma once

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "TVLByteBuffer.h"
#include "TVLIDOM_Node.h"
#include "TVLStreamWriter.h"
#include "TVLThreadSync.h"

enum ZORLogLevel : int { ZOR_FATAL = 0, ZOR_ERROR = 1, ZOR_WARN = 2, ZOR_INFO = 3, ZOR_DEBUG = 4 };

class ZORLoggerFactory;

// A name that lines are written under. Messages use at most two %s conversions, or one %d, %x or %ld;
// "(null)" stands for a text that is missing.
class ZORLogger {
  public:
    ZORLogger(ZORLoggerFactory* factory, const char* name);
    ZORLogger(const ZORLogger&) = delete;
    ZORLogger& operator=(const ZORLogger&) = delete;
    // Deliberate: ends the factory with it, so a logger is never deleted while logging is still needed; see
    // ZORLoggerTest.DestroyingALoggerDestroysItsFactory.
    virtual ~ZORLogger();

    const char* getName() const { return m_name.c_str(); }
    // Whether a line of that level would be written: for callers whose arguments cost something.
    bool writes(int level) const;
    void log(int level, const char* format, const char* arg1 = nullptr, const char* arg2 = nullptr);
    void log(int level, const char* format, int value);

  private:
    ZORLoggerFactory* m_factory;
    std::string m_name;
};

// One destination. Destroying it forgets the stream and never closes it.
class ZORLogFile {
  public:
    ZORLogFile(std::FILE* stream, int owned) : m_stream(stream), m_owned(owned) {}
    ZORLogFile(const ZORLogFile&) = default;
    ZORLogFile& operator=(const ZORLogFile&) = default;
    ~ZORLogFile() { m_stream = nullptr; }

    std::FILE* getStream() const { return m_stream; }
    bool isOwned() const { return m_owned != 0; }  // the factory opened it and closes it

  private:
    std::FILE* m_stream;
    int m_owned;
};

class ZORLoggerFactory final {
  public:
    ZORLoggerFactory();
    ZORLoggerFactory(const ZORLoggerFactory&) = delete;
    ZORLoggerFactory& operator=(const ZORLoggerFactory&) = delete;
    ~ZORLoggerFactory();

    // Creates the factory on the first call: level DEBUG, no destinations.
    static ZORLoggerFactory* getInstance();

    void setLevel(int level) { m_level.store(level, std::memory_order_relaxed); }
    // A level's name in any letter case; null or empty is INFO, an unknown name DEBUG.
    void setLevel(const char* name);
    int getLevel() const { return m_level.load(std::memory_order_relaxed); }

    void reset();  // level FATAL, no destinations
    void addFile(std::FILE* stream, int owned);
    void addFile(const char* path, int append);  // `append` 0 truncates

    // Configures from the first "logging" element at or below `root`; 0 when there is none.
    virtual int prepare(TVLIDOM_Element root);
    // The same from a section of a logging document; 0, and a FATAL line, when that fails.
    int prepare(const char* fileName, const char* sectionName);
    void simplePrepare(int level, const char* path);

    ZORLogger* getLogger(const char* name);  // a new logger, the caller's

    void log(ZORLogger* logger, int level, const char* format, const char* arg1, const char* arg2);
    void log(ZORLogger* logger, int level, const char* format, int value);

  private:
    struct Destination {
        ZORLogFile file;
        std::shared_ptr<TVLStreamWriter>
            writer;  // shared by all that lead to the same pipe, terminal or socket
    };

    void prepareFiles(const TVLIDOM_Element& logFiles);
    std::shared_ptr<TVLStreamWriter> writerFor(std::FILE* stream) const TVL_REQUIRES(m_mutex);
    template <typename AppendMessage>
    void write(const ZORLogger& logger, int level, const char* format, AppendMessage appendMessage);
    void writeToAll(const std::string& line) TVL_REQUIRES(m_mutex);

    static ZORLoggerFactory* m_pInstance;

    std::atomic<int> m_level{ZOR_DEBUG};
    TVLThreadMutex m_mutex;  // held while a line is written
    std::vector<Destination> m_files TVL_GUARDED_BY(m_mutex);
    ZORLogger* m_ownLogger = nullptr;  // for the messages of prepare(); made when needed, never freed
};

class ZORConsole {
  public:
    virtual ~ZORConsole();

    static ZORConsole* getInstance();

    void prepare();  // from now on texts go to standard error
    void print(const char* text);
    void print(TVLByteBuffer& buffer);
    void destroy();  // does nothing

  private:
    friend class TestAccess;

    static ZORConsole* m_pConsole;

    std::FILE* m_stream = nullptr;  // null until prepared
};
