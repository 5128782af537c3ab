#include "ZORLogger.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <list>
#include <regex>
#include <sstream>

#include "TVLThread.h"
#include "TestKit.h"
#include "VirtualOs.h"
#include "ZORCmdLine.h"
#include "ZORModes.h"

namespace {

namespace fs = std::filesystem;

class Runnable : public TVLThreadRunnable {
  public:
    explicit Runnable(std::function<void()> body) : m_body(std::move(body)) {}
    void run() override { m_body(); }

  private:
    std::function<void()> m_body;
};

// The factory without destinations; each test adds its own. The document model is up and the console is not
// prepared.
class ZORLoggerTest : public ServiceTest {
  protected:
    ZORLoggerTest() { factory.reset(); }
    ~ZORLoggerTest() override { factory.reset(); }

    ZORLogger* logger(const char* name = "Name") {
        // Never deleted, as everywhere: a logger takes its factory with it. Reachable for leak checkers.
        static auto* const kept = new std::vector<ZORLogger*>;
        kept->push_back(factory.getLogger(name));
        return kept->back();
    }
    void logTo(const std::string& relative, int level = ZOR_DEBUG) {
        factory.addFile(folder.path(relative).c_str(), 0);
        factory.setLevel(level);
    }
    // The messages of the file's lines, without their prefixes.
    std::vector<std::string> messages(const std::string& relative) const {
        static const std::regex prefix(R"(^.{24}  .{5} t\[[0-9a-f]+\] \S+ )");
        std::vector<std::string> result;
        std::istringstream text(folder.read(relative));
        for (std::string line; std::getline(text, line);)
            result.push_back(std::regex_replace(line, prefix, ""));
        return result;
    }
    // What one message becomes, without the prefix.
    template <typename... Arguments>
    std::string formatted(const char* format, Arguments... arguments) {
        factory.reset();
        logTo("logs/formatted");
        logger()->log(ZOR_FATAL, format, arguments...);
        const std::vector<std::string> lines = messages("logs/formatted");
        return lines.size() == 1 ? lines[0] : std::to_string(lines.size()) + " lines";
    }
    // Configures from the document as a whole.
    int prepare(const std::string& xml) {
        const XmlText document(xml);
        return factory.prepare(document.root());
    }
    int levelAfter(const std::string& xml) {
        prepare(xml);
        return factory.getLevel();
    }
    int levelNamed(const char* name) {
        factory.setLevel(name);
        return factory.getLevel();
    }
    static std::ptrdiff_t openDescriptors(const std::string& path) {
        const auto refersToIt = [&](const fs::directory_entry& entry) {
            std::error_code error;
            return fs::read_symlink(entry.path(), error) == path;
        };
        return std::count_if(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator(), refersToIt);
    }

    using Texts = std::vector<std::string>;
    ZORLoggerFactory& factory = *ZORLoggerFactory::getInstance();
};

// ---- Lines ----

TEST_F(ZORLoggerTest, ALineHasTimeLevelThreadNameAndMessage) {
    logTo("logs/a");
    logger("PingChildProcess")->log(ZOR_WARN, "no answer from %s in %s.", "alpha", "time");
    std::ostringstream thread;
    thread << std::hex << TVLThread::currentThreadId();
    EXPECT_TRUE(std::regex_match(
        folder.read("logs/a"),
        std::regex(
            "(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] "
            "[0-2][0-9]:[0-5][0-9]:[0-6][0-9] [0-9]{4}  WARN  t\\[" +
            thread.str() + "\\] PingChildProcess no answer from alpha in time\\.\n")))
        << folder.read("logs/a");
}

TEST_F(ZORLoggerTest, TheTimeIsUtc) {
    setenv("TZ", "XXX+11:30", 1);
    tzset();
    logTo("logs/a");
    const std::time_t before = std::time(nullptr);
    logger()->log(ZOR_FATAL, "x");
    const std::time_t after = std::time(nullptr);
    unsetenv("TZ");
    tzset();
    bool found = false;
    for (std::time_t time = before; time <= after; ++time) {
        std::string text = std::asctime(std::gmtime(&time));
        text.back() = ' ';
        found = found || folder.read("logs/a").rfind(text + " FATAL t[", 0) == 0;
    }
    EXPECT_TRUE(found) << folder.read("logs/a");
}

TEST_F(ZORLoggerTest, EveryLevelIsPaddedToFiveCharacters) {
    logTo("logs/a");
    for (const int level : {ZOR_FATAL, ZOR_ERROR, ZOR_WARN, ZOR_INFO, ZOR_DEBUG})
        logger()->log(level, "x");
    std::istringstream text(folder.read("logs/a"));
    for (const char* const expected :
         {"  FATAL t[", "  ERROR t[", "  WARN  t[", "  INFO  t[", "  DEBUG t["}) {
        std::string line;
        ASSERT_TRUE(std::getline(text, line));
        EXPECT_EQ(line.substr(24, 10), expected);
    }
}

TEST_F(ZORLoggerTest, TheThreadIsTheKernelsId) {
    logTo("logs/a");
    unsigned int id = 0;
    Runnable runnable([&] {
        id = TVLThread::currentThreadId();
        logger()->log(ZOR_FATAL, "x");
    });
    TVLThread thread(&runnable, std::size_t{256} * 1024);
    thread.start();
    thread.join();
    std::ostringstream expected;
    expected << " t[" << std::hex << id << "] Name x\n";
    EXPECT_NE(folder.read("logs/a").find(expected.str()), std::string::npos);
}

TEST_F(ZORLoggerTest, ALongLoggerNameIsPrintedWhole) {
    const std::string name(300, 'N');
    logTo("logs/a");
    logger(name.c_str())->log(ZOR_DEBUG, "message");
    EXPECT_NE(folder.read("logs/a").find("] " + name + " message\n"), std::string::npos);
}

TEST_F(ZORLoggerTest, AMessageTakesTwoTextsOrOneNumber) {
    EXPECT_EQ(formatted("no conversion"), "no conversion");
    EXPECT_EQ(formatted("one %s.", "text"), "one text.");
    EXPECT_EQ(formatted("two %s and %s.", "texts", "more"), "two texts and more.");
    EXPECT_EQ(formatted("number %d.", -42), "number -42.");
    EXPECT_EQ(formatted("number %x.", 0xbeef), "number beef.");
    EXPECT_EQ(formatted("number %ld.", 7), "number 7.");
    EXPECT_EQ(formatted("100%%"), "100%");
}

TEST_F(ZORLoggerTest, AMissingTextIsPrintedAsNull) {
    EXPECT_EQ(formatted("[%s]", static_cast<const char*>(nullptr)), "[(null)]");
    EXPECT_EQ(formatted("[%s] [%s]", "first"), "[first] [(null)]");
    EXPECT_EQ(formatted("[%s] [%s] [%s]", "first", "second"), "[first] [second] [(null)]");
    EXPECT_EQ(formatted("[%s] [%s]", nullptr, "second"), "[(null)] [second]");
}

TEST_F(ZORLoggerTest, PercentSignsOfArgumentsStandForThemselves) {
    EXPECT_EQ(formatted("%s", "100%s %d %n"), "100%s %d %n");
}

TEST_F(ZORLoggerTest, ConversionsOfAnotherKindStandForThemselves) {
    EXPECT_EQ(formatted("%d", "text"), "%d");
    EXPECT_EQ(formatted("%s", 5), "%s");
    EXPECT_EQ(formatted("%y and %", "text"), "%y and %");
    EXPECT_EQ(formatted("%l", 5), "%l");
}

TEST_F(ZORLoggerTest, LongMessagesAreWrittenWhole) {
    const std::string text(1000000, 'x');
    EXPECT_EQ(formatted("<%s>", text.c_str()), "<" + text + ">");
}

TEST_F(ZORLoggerTest, ANullFormatWritesThePrefixOnly) {
    logTo("logs/a");
    logger()->log(ZOR_FATAL, nullptr);
    logger()->log(ZOR_FATAL, nullptr, 5);
    EXPECT_TRUE(
        std::regex_match(folder.read("logs/a"), std::regex("(.{24}  FATAL t\\[[0-9a-f]+\\] Name \n){2}")));
}

TEST_F(ZORLoggerTest, EveryLineReachesEveryDestinationAtOnce) {
    logTo("logs/a");
    logTo("logs/b");
    logTo("logs/b");
    logger()->log(ZOR_FATAL, "first");
    EXPECT_EQ(messages("logs/a"), Texts{"first"}) << "flushed at once";
    logger()->log(ZOR_FATAL, "second");
    EXPECT_EQ(messages("logs/a"), (Texts{"first", "second"}));
    EXPECT_EQ(folder.read("logs/a").substr(0, folder.read("logs/b").size()), folder.read("logs/b"));
}

TEST_F(ZORLoggerTest, ADestinationListedTwiceGetsEachLineTwice) {
    factory.addFile(folder.path("logs/a").c_str(), 1);
    factory.addFile(folder.path("logs/a").c_str(), 1);
    logger()->log(ZOR_FATAL, "x");
    EXPECT_EQ(messages("logs/a"), (Texts{"x", "x"}));
}

// ---- Levels ----

TEST_F(ZORLoggerTest, ALineIsWrittenUpToTheLevel) {
    for (int threshold = ZOR_FATAL; threshold <= ZOR_DEBUG; ++threshold) {
        factory.reset();
        logTo("logs/a", threshold);
        for (int level = ZOR_FATAL; level <= ZOR_DEBUG; ++level) {
            logger()->log(level, "text");
            logger()->log(level, "%d", level);
            EXPECT_EQ(logger()->writes(level), level <= threshold);
        }
        EXPECT_EQ(messages("logs/a").size(), static_cast<std::size_t>(2 * (threshold + 1)));
    }
}

// The arguments of a line that is not written are not even read.
TEST_F(ZORLoggerTest, ASuppressedLineBuildsNothing) {
    logTo("logs/a", ZOR_INFO);
    void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    const char* const unreadable = static_cast<const char*>(page);
    logger()->log(ZOR_DEBUG, unreadable, unreadable, unreadable);
    logger()->log(ZOR_DEBUG, unreadable, 5);
    munmap(page, 4096);
    EXPECT_EQ(folder.read("logs/a"), "");
}

// One thread is in the middle of a line, for which it holds the lock: the pipe it writes to is full.
TEST_F(ZORLoggerTest, ASuppressedLineTakesNoLock) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    std::FILE* const pipeStream = fdopen(ends[1], "w");
    factory.addFile(pipeStream, 1);
    factory.setLevel(ZOR_FATAL);
    const std::string moreThanFits(2000000, 'x');
    ZORLogger* const busy = logger();
    ZORLogger* const suppressed = logger();
    Runnable runnable([&] { busy->log(ZOR_FATAL, "%s", moreThanFits.c_str()); });
    TVLThread thread(&runnable, std::size_t{256} * 1024);
    thread.start();
    pollfd begun{ends[0], POLLIN, 0};
    ASSERT_EQ(poll(&begun, 1, -1), 1);

    suppressed->log(ZOR_DEBUG, "suppressed");

    std::string drained(2000000, '\0');
    for (std::size_t missing = moreThanFits.size(); missing > 0;) {
        const ssize_t got = ::read(ends[0], drained.data(), missing);
        ASSERT_GT(got, 0);
        missing -= static_cast<std::size_t>(got);
    }
    // The prefix and the line feed still fit into the pipe.
    thread.join();
    ::close(ends[0]);
}

TEST_F(ZORLoggerTest, ANewFactoryIsAtDebugWithoutFiles) {
    ZORLoggerFactory own;
    EXPECT_EQ(own.getLevel(), ZOR_DEBUG);
    own.log(logger(), ZOR_FATAL, "goes nowhere", nullptr, nullptr);
    own.log(logger(), ZOR_FATAL, "%d", 5);
    own.reset();
    EXPECT_EQ(own.getLevel(), ZOR_FATAL);
}

TEST_F(ZORLoggerTest, ALevelIsStoredUnchanged) {
    for (const int level : {-5, 0, 3, 4, 100}) {
        factory.setLevel(level);
        EXPECT_EQ(factory.getLevel(), level);
    }
}

TEST_F(ZORLoggerTest, ALevelBeyondTheNamesIsPrintedAsTheNearest) {
    logTo("logs/a", 100);
    logger()->log(50, "x");
    logger()->log(-50, "y");
    EXPECT_NE(folder.read("logs/a").find("  DEBUG t["), std::string::npos);
    EXPECT_NE(folder.read("logs/a").find("  FATAL t["), std::string::npos);
}

TEST_F(ZORLoggerTest, LevelNamesOfTheCommandLineAreKnownInAnyLetterCase) {
    EXPECT_EQ(levelNamed("FATAL"), ZOR_FATAL);
    EXPECT_EQ(levelNamed("error"), ZOR_ERROR);
    EXPECT_EQ(levelNamed("Warn"), ZOR_WARN);
    EXPECT_EQ(levelNamed("iNFO"), ZOR_INFO);
    EXPECT_EQ(levelNamed("debug"), ZOR_DEBUG);
}

TEST_F(ZORLoggerTest, AnUnknownLevelNameOfTheCommandLineIsDebug) {
    for (const char* const name : {"LOUD", "WARNING", " WARN", "2"})
        EXPECT_EQ(levelNamed(name), ZOR_DEBUG) << name;
}

TEST_F(ZORLoggerTest, AnEmptyLevelNameOfTheCommandLineIsInfo) {
    EXPECT_EQ(levelNamed(""), ZOR_INFO);
    EXPECT_EQ(levelNamed(nullptr), ZOR_INFO);
}

TEST_F(ZORLoggerTest, LevelNamesAreCaseSensitiveInTheDocumentOnly) {
    EXPECT_EQ(levelAfter("<logging level='WARN'/>"), ZOR_WARN);
    EXPECT_EQ(levelAfter("<logging level='warn'/>"), ZOR_DEBUG);
    EXPECT_EQ(levelNamed("warn"), ZOR_WARN);
}

TEST_F(ZORLoggerTest, EveryLevelNameIsKnownInTheDocument) {
    EXPECT_EQ(levelAfter("<logging level='FATAL'/>"), ZOR_FATAL);
    EXPECT_EQ(levelAfter("<logging level='ERROR'/>"), ZOR_ERROR);
    EXPECT_EQ(levelAfter("<logging level='INFO'/>"), ZOR_INFO);
    EXPECT_EQ(levelAfter("<logging level='DEBUG'/>"), ZOR_DEBUG);
    EXPECT_EQ(levelAfter("<logging level='LOUD'/>"), ZOR_DEBUG);
}

TEST_F(ZORLoggerTest, NoLevelMeansFatal) {
    factory.setLevel(ZOR_DEBUG);
    EXPECT_EQ(levelAfter("<logging/>"), ZOR_FATAL);
    factory.setLevel(ZOR_DEBUG);
    EXPECT_EQ(levelAfter("<logging level=''/>"), ZOR_FATAL);
}

// ---- Destinations ----

TEST_F(ZORLoggerTest, AFileIsTruncatedOrAppendedTo) {
    folder.write("logs/a", "before\n");
    factory.addFile(folder.path("logs/a").c_str(), 1);
    EXPECT_EQ(folder.read("logs/a"), "before\n");
    factory.reset();
    factory.addFile(folder.path("logs/a").c_str(), 0);
    EXPECT_EQ(folder.read("logs/a"), "");
}

TEST_F(ZORLoggerTest, ANullPathAddsNothing) {
    const auto openedByThisProcess = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    logTo("logs/b");
    const auto before = openedByThisProcess();
    EXPECT_NO_THROW(factory.addFile(static_cast<const char*>(nullptr), 1));
    EXPECT_NO_THROW(factory.addFile(static_cast<const char*>(nullptr), 0));
    EXPECT_EQ(openedByThisProcess(), before);
    logger()->log(ZOR_FATAL, "x");
    EXPECT_EQ(messages("logs/b"), Texts{"x"}) << "the others are as they were";
}

TEST_F(ZORLoggerTest, AFileInAMissingFolderIsLeftOut) {
    logTo("none/a");
    logTo("logs/b");
    logger()->log(ZOR_FATAL, "x");
    EXPECT_FALSE(folder.exists("none"));
    EXPECT_EQ(messages("logs/b"), Texts{"x"});
}

// Gives up the superuser's right to write everywhere, if the test has it.
class AsNobody {
  public:
    AsNobody() : m_before(geteuid()) {
        if (m_before == 0) m_changed = seteuid(65534) == 0;
    }
    ~AsNobody() {
        if (m_changed && seteuid(m_before) != 0) std::abort();
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

  private:
    uid_t m_before;
    bool m_changed = false;
};

TEST_F(ZORLoggerTest, AFileInAReadOnlyFolderIsLeftOut) {
    fs::permissions(folder.path(), fs::perms(0755));
    fs::permissions(folder.path("logs"), fs::perms(0555));
    {
        const AsNobody nobody;
        logTo("logs/a");
    }
    fs::permissions(folder.path("logs"), fs::perms(0755));
    logger()->log(ZOR_FATAL, "goes nowhere");
    EXPECT_FALSE(folder.exists("logs/a"));
}

TEST_F(ZORLoggerTest, ADestinationThatCannotBeWrittenDoesNotStopTheOthers) {
    factory.addFile("/dev/full", 1);
    logTo("logs/b");
    logger()->log(ZOR_FATAL, "x");
    logger()->log(ZOR_FATAL, "y");
    EXPECT_EQ(messages("logs/b"), (Texts{"x", "y"}));
}

TEST_F(ZORLoggerTest, ANullStreamIsPassedOver) {
    factory.addFile(static_cast<std::FILE*>(nullptr), 1);
    logTo("logs/b");
    logger()->log(ZOR_FATAL, "x");
    EXPECT_EQ(messages("logs/b"), Texts{"x"});
    factory.reset();
}

TEST_F(ZORLoggerTest, NoChildInheritsALog) {
    logTo("logs/a");
    int checked = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (fs::read_symlink(entry.path(), error) != folder.path("logs/a")) continue;
        ++checked;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(checked, 1);
}

TEST_F(ZORLoggerTest, ResetClosesItsOwnFilesAndSilencesTheRest) {
    logTo("logs/a");
    std::FILE* const others = std::fopen(folder.path("logs/b").c_str(), "w");
    factory.addFile(others, 0);
    factory.reset();
    EXPECT_EQ(factory.getLevel(), ZOR_FATAL);
    EXPECT_EQ(openDescriptors(folder.path("logs/a")), 0);
    EXPECT_EQ(openDescriptors(folder.path("logs/b")), 1);
    logger()->log(ZOR_FATAL, "goes nowhere");
    EXPECT_EQ(folder.read("logs/a"), "");
    std::fputs("still open", others);
    std::fclose(others);
    EXPECT_EQ(folder.read("logs/b"), "still open");
}

TEST_F(ZORLoggerTest, ADestroyedLogFileLeavesItsStreamOpen) {
    std::FILE* const stream = std::fopen(folder.path("logs/a").c_str(), "w");
    {
        const ZORLogFile file(stream, 1);
        ZORLogFile copy(nullptr, 0);
        copy = file;
        EXPECT_EQ(copy.getStream(), stream);
        EXPECT_TRUE(copy.isOwned());
    }
    EXPECT_EQ(openDescriptors(folder.path("logs/a")), 1);
    std::fclose(stream);
}

TEST_F(ZORLoggerTest, SimplePrepareIsOneTruncatedFileAtALevel) {
    logTo("logs/old");
    folder.write("logs/zordefault.log", "before\n");
    factory.simplePrepare(ZOR_FATAL, "../logs/zordefault.log");
    EXPECT_EQ(factory.getLevel(), ZOR_FATAL);
    logger()->log(ZOR_ERROR, "suppressed");
    logger()->log(ZOR_FATAL, "x");
    EXPECT_EQ(messages("logs/zordefault.log"), Texts{"x"});
    EXPECT_EQ(folder.read("logs/old"), "");
}

// ---- Loggers ----

TEST_F(ZORLoggerTest, EveryLoggerIsANewOne) {
    ZORLogger* const first = logger("Same");
    ZORLogger* const second = logger("Same");
    EXPECT_NE(first, second);
    EXPECT_STREQ(first->getName(), "Same");
}

TEST_F(ZORLoggerTest, ALoggerCopiesItsName) {
    std::string name = "Name";
    const ZORLogger* const named = logger(name.c_str());
    name = "Gone";
    EXPECT_STREQ(named->getName(), "Name");
}

TEST_F(ZORLoggerTest, DestroyingALoggerDestroysItsFactory) {
    auto* const own = new ZORLoggerFactory;
    own->addFile(folder.path("logs/own").c_str(), 0);
    EXPECT_EQ(openDescriptors(folder.path("logs/own")), 1);
    delete own->getLogger("Last");
    EXPECT_EQ(openDescriptors(folder.path("logs/own")), 0);
    EXPECT_EQ(ZORLoggerFactory::getInstance(), &factory);
}

// ---- Documents ----

TEST_F(ZORLoggerTest, ALoggingElementConfiguresLevelAndFiles) {
    folder.write("logs/appended", "before\n");
    folder.write("logs/truncated", "before\n");
    setProperty("install_path", folder.path().c_str());
    EXPECT_EQ(prepare("<start><logging level='INFO'><logFiles><!-- two -->"
                      "<file name='${install_path}/logs/appended' append='true'/>text"
                      "<file name='../logs/truncated' append='TRUE'/><other/>"
                      "</logFiles></logging></start>"),
              1);
    EXPECT_EQ(factory.getLevel(), ZOR_INFO);
    logger()->log(ZOR_DEBUG, "suppressed");
    logger()->log(ZOR_INFO, "x");
    EXPECT_EQ(messages("logs/appended"), (Texts{"before", "x"}));
    EXPECT_EQ(messages("logs/truncated"), Texts{"x"});
}

TEST_F(ZORLoggerTest, WithoutAnAppendAttributeAFileIsTruncated) {
    folder.write("logs/a", "before\n");
    prepare("<logging><logFiles><file name='../logs/a'/></logFiles></logging>");
    EXPECT_EQ(folder.read("logs/a"), "");
}

TEST_F(ZORLoggerTest, AFileWithoutANameIsLeftOut) {
    EXPECT_EQ(prepare("<logging><logFiles><file/><file name='../logs/a'/></logFiles></logging>"), 1);
    logger()->log(ZOR_FATAL, "x");
    EXPECT_EQ(messages("logs/a"), Texts{"x"});
}

TEST_F(ZORLoggerTest, StandardStreamsAreDestinations) {
    EXPECT_EQ(prepare("<logging><logFiles><stdout/><stderr/><stderr/></logFiles></logging>"), 1);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    logger()->log(ZOR_FATAL, "x");
    const std::string line = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(line, std::regex(".{24}  FATAL t\\[[0-9a-f]+\\] Name x\n"))) << line;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line);
}

TEST_F(ZORLoggerTest, ResetLeavesStandardStreamsOpen) {
    prepare("<logging><logFiles><stdout/><stderr/></logFiles></logging>");
    factory.reset();
    EXPECT_NE(fcntl(STDOUT_FILENO, F_GETFD), -1);
    EXPECT_NE(fcntl(STDERR_FILENO, F_GETFD), -1);
    EXPECT_EQ(std::fflush(stdout), 0);
}

TEST_F(ZORLoggerTest, WithoutALoggingElementNothingChanges) {
    logTo("logs/a", ZOR_WARN);
    ZORConsole::getInstance()->prepare();
    testing::internal::CaptureStderr();
    EXPECT_EQ(prepare("<start><log/></start>"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "no logger element in config, so LoggerFactory is not reconfigured.\n");
    EXPECT_EQ(factory.getLevel(), ZOR_WARN);
    logger()->log(ZOR_WARN, "x");
    EXPECT_EQ(messages("logs/a"), Texts{"x"});
}

TEST_F(ZORLoggerTest, WithoutLogFilesNothingIsLoggedAnyMore) {
    ZORConsole::getInstance()->prepare();
    for (const char* const xml :
         {"<logging level='DEBUG'/>", "<logging level='DEBUG'><logFiles/></logging>"}) {
        logTo("logs/a");
        testing::internal::CaptureStderr();
        EXPECT_EQ(prepare(xml), 1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "no log file elements in config, so no log files added.\n");
        EXPECT_EQ(factory.getLevel(), ZOR_DEBUG);
        logger()->log(ZOR_FATAL, "goes nowhere");
        EXPECT_EQ(folder.read("logs/a"), "");
    }
}

TEST_F(ZORLoggerTest, LogFilesWithTextOnlyAreWorthNoMessage) {
    ZORConsole::getInstance()->prepare();
    logTo("logs/a");
    testing::internal::CaptureStderr();
    EXPECT_EQ(prepare("<logging><logFiles> <!-- none --> </logFiles></logging>"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    logger()->log(ZOR_FATAL, "goes nowhere");
    EXPECT_EQ(folder.read("logs/a"), "");
}

TEST_F(ZORLoggerTest, WithoutAConsoleTheMessagesAreNotShown) {
    logTo("logs/a");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    prepare("<start/>");
    EXPECT_EQ(folder.read("logs/a"), "");
    prepare("<logging/>");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

class LoggingDocumentTest : public ZORLoggerTest {
  protected:
    LoggingDocumentTest() { logTo("logs/before", ZOR_FATAL); }

    bool fatal(const std::string& text) const {
        const std::string line = folder.read("logs/before");
        return std::regex_search(line, std::regex("^.{24}  FATAL t\\[[0-9a-f]+\\] ZORLoggerFactory ")) &&
               messages("logs/before") == Texts{text};
    }
    int prepareSection(const std::string& xml, const char* section) {
        folder.write("bin/zorlogconfig.xml", xml);
        return factory.prepare("zorlogconfig.xml", section);
    }
};

TEST_F(LoggingDocumentTest, TheSectionIsApplied) {
    EXPECT_EQ(prepareSection("<config><default><logging level='ERROR'/></default><deeper><start>"
                             "<logging level='INFO'><logFiles><file name='../logs/a'/></logFiles></logging>"
                             "</start></deeper></config>",
                             "start"),
              1);
    EXPECT_EQ(factory.getLevel(), ZOR_INFO);
    logger()->log(ZOR_INFO, "x");
    EXPECT_EQ(messages("logs/a"), Texts{"x"});
    EXPECT_EQ(folder.read("logs/before"), "");
}

TEST_F(LoggingDocumentTest, TheDocumentElementCanBeTheSection) {
    EXPECT_EQ(prepareSection("<run><logging level='WARN'/></run>", "run"), 1);
    EXPECT_EQ(factory.getLevel(), ZOR_WARN);
}

TEST_F(LoggingDocumentTest, ASectionWithoutALoggingElementChangesNothing) {
    EXPECT_EQ(prepareSection("<config><start/></config>", "start"), 0);
    logger()->log(ZOR_FATAL, "still here");
    EXPECT_EQ(messages("logs/before"), Texts{"still here"});
}

TEST_F(LoggingDocumentTest, AMissingFileIsFatalInTheLogOnly) {
    EXPECT_EQ(factory.prepare("none.xml", "start"), 0);
    EXPECT_TRUE(fatal("cannot open logging config file \"none.xml\"."));
}

TEST_F(LoggingDocumentTest, AMalformedFileIsFatalInTheLogOnly) {
    EXPECT_EQ(prepareSection("<config>\n  <start></config>", "start"), 0);
    EXPECT_TRUE(
        fatal("Error parsing logging config file = zorlogconfig.xml, error string = "
              "line 2, column 12: expected end of tag 'start'"))
        << folder.read("logs/before");
}

TEST_F(LoggingDocumentTest, AMissingSectionIsFatalInTheLogOnly) {
    EXPECT_EQ(prepareSection("<config><start/></config>", "stop"), 0);
    EXPECT_TRUE(fatal("logging config element \"stop\" is missing."));
}

// ---- The option that adds standard output ----

class StdoutLogTest : public ZORLoggerTest {
  protected:
    // What is written to standard output after the option, by a line of each level.
    std::string outputWith(std::string option) {
        folder.write("bin/zorlogconfig.xml", "<c><default><logging level='ERROR'/></default></c>");
        std::string program = "program";
        char* arguments[] = {program.data(), option.data(), nullptr};
        const ZORCmdLine cmdLine(2, arguments);
        testing::internal::CaptureStdout();
        ZORModes::configureLogging(cmdLine);
        for (int level = ZOR_FATAL; level <= ZOR_DEBUG; ++level)
            logger()->log(level, "x");
        return testing::internal::GetCapturedStdout();
    }
    static std::ptrdiff_t lines(const std::string& text) {
        return std::count(text.begin(), text.end(), '\n');
    }
};

TEST_F(StdoutLogTest, AddsStandardOutputAtItsLevel) {
    EXPECT_EQ(lines(outputWith("-stdoutLog=WARN")), 3);
    EXPECT_EQ(factory.getLevel(), ZOR_WARN);
}

TEST_F(StdoutLogTest, TheLevelIsKnownInLowerCase) {
    EXPECT_EQ(lines(outputWith("-stdoutLog=warn")), 3);
}

TEST_F(StdoutLogTest, AnEmptyValueIsInfo) {
    EXPECT_EQ(lines(outputWith("-stdoutLog=")), 4);
}

TEST_F(StdoutLogTest, AnUnknownLevelIsDebug) {
    EXPECT_EQ(lines(outputWith("-stdoutLog=LOUD")), 5);
}

TEST_F(StdoutLogTest, WithoutAValueItHasNoEffect) {
    EXPECT_EQ(outputWith("-stdoutLog"), "");
    EXPECT_EQ(factory.getLevel(), ZOR_ERROR);
}

// ---- The console ----

class ZORConsoleTest : public ServiceTest {};

TEST_F(ZORConsoleTest, ThereIsOneInstance) {
    EXPECT_EQ(ZORConsole::getInstance(), ZORConsole::getInstance());
}

TEST_F(ZORConsoleTest, PrintsNothingUntilPrepared) {
    TVLByteBuffer buffer(16, 16);
    buffer << "buffer";
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ZORConsole::getInstance()->print("text");
    ZORConsole::getInstance()->print(buffer);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ZORConsoleTest, PrintsToStandardErrorAsItStands) {
    ZORConsole::getInstance()->prepare();
    TVLByteBuffer buffer(16, 16);
    buffer << "buffer 100%s %n";
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ZORConsole::getInstance()->print("text 100%s %n\n");
    ZORConsole::getInstance()->print(buffer);
    ZORConsole::getInstance()->destroy();
    ZORConsole::getInstance()->print("!");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "text 100%s %n\nbuffer 100%s %n!");
}

// ---- Destinations that take no data ----

class StalledDestinationTest : public ZORLoggerTest {
  protected:
    StalledDestinationTest() {
        EXPECT_EQ(pipe(m_ends), 0);
        fcntl(m_ends[0], F_SETFL, O_NONBLOCK);
        m_stream = fdopen(m_ends[1], "w");
        factory.reset();
        factory.setLevel(ZOR_INFO);
    }
    ~StalledDestinationTest() override {
        factory.reset();
        std::fclose(m_stream);
        close(m_ends[0]);
    }

    Texts read() const {
        std::string text(1 << 20, '\0');
        const ssize_t got = ::read(m_ends[0], text.data(), text.size());
        folder.write("temp/read",
                     std::string_view(text).substr(0, got < 0 ? 0 : static_cast<std::size_t>(got)));
        return messages("temp/read");
    }

    VirtualOs os;
    int m_ends[2] = {-1, -1};
    std::FILE* m_stream = nullptr;
};

TEST_F(StalledDestinationTest, TheOthersGetEveryLineMeanwhile) {
    factory.addFile(m_stream, 0);
    logTo("logs/a");
    for (int i = 0; i < 3000; ++i)
        logger()->log(ZOR_INFO, "number %d", i);
    EXPECT_EQ(os.nowMs(), 1000);
    const Texts complete = messages("logs/a");
    ASSERT_EQ(complete.size(), 3000U);
    EXPECT_EQ(complete.back(), "number 2999");
}

TEST_F(StalledDestinationTest, OneLineTellsHowManyWereDropped) {
    factory.addFile(m_stream, 0);
    logTo("logs/a");
    for (int i = 0; i < 3000; ++i)
        logger()->log(ZOR_INFO, "number %d", i);
    const std::size_t written = read().size();
    logger()->log(ZOR_INFO, "back");
    logger()->log(ZOR_INFO, "again");
    EXPECT_EQ(read(),
              (Texts{std::to_string(3000 - written) + " lines were dropped here, because nobody read them.",
                     "back", "again"}));
    EXPECT_NE(folder.read("temp/read").find("  WARN  t["), std::string::npos);
    EXPECT_NE(folder.read("temp/read").find("] ZORLoggerFactory "), std::string::npos);
    EXPECT_EQ(messages("logs/a").size(), 3002U) << "only the destination that lacks lines is told";
}

TEST_F(StalledDestinationTest, TwoStreamsToOnePlaceHaveOneSecondTogether) {
    std::FILE* const twin = fdopen(dup(m_ends[1]), "w");
    factory.addFile(m_stream, 0);
    factory.addFile(twin, 1);
    factory.addFile(m_stream, 0);
    for (int i = 0; i < 3000; ++i)
        logger()->log(ZOR_INFO, "number %d", i);
    EXPECT_EQ(os.nowMs(), 1000);
    const Texts lines = read();
    ASSERT_GT(lines.size(), 3U);
    EXPECT_EQ(lines[2], "number 0") << "three times, as it is listed";
    logger()->log(ZOR_INFO, "back");
    EXPECT_EQ(read(), (Texts{std::to_string(9000 - lines.size()) +
                                 " lines were dropped here, because nobody read them.",
                             "back", "back", "back"}));
}

// ---- Several threads, several processes ----

class LoggingThreads {
  public:
    LoggingThreads(int count, std::function<void()> body) : m_runnable(std::move(body)) {
        for (int i = 0; i < count; ++i)
            m_threads.emplace_back(&m_runnable, std::size_t{256} * 1024).start();
    }
    void join() {
        for (TVLThread& thread : m_threads)
            thread.join();
    }

  private:
    Runnable m_runnable;
    std::list<TVLThread> m_threads;
};

TEST_F(ZORLoggerTest, LinesOfSeveralThreadsNeverInterleave) {
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    logTo("logs/a");
    logTo("logs/b");
    ZORLogger* const shared = logger();
    std::atomic<char> nextLetter{'a'};
    LoggingThreads threads(kThreads, [&] {
        const std::string text(200, nextLetter++);
        for (int i = 0; i < kLines; ++i)
            shared->log(ZOR_INFO, "<%s>", text.c_str());
    });
    threads.join();
    const std::regex whole("<([a-z])\\1{199}>");
    const Texts lines = messages("logs/a");
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
    for (const std::string& line : lines)
        ASSERT_TRUE(std::regex_match(line, whole)) << line;
    EXPECT_EQ(folder.read("logs/a"), folder.read("logs/b")) << "the same lines in the same order";
}

// A child gets a copy of every lock as it is at the fork; one that another thread held would stay locked in
// the child for ever. The alarm ends a child that waits for such a lock.
TEST_F(ZORLoggerTest, AForkedChildCanLogWhileAnotherThreadLogs) {
    logTo("logs/a");
    ZORLogger* const shared = logger();
    std::atomic<bool> stop{false};
    TVLThreadSemaphore begun(0);
    LoggingThreads threads(2, [&] {
        begun.post();
        while (!stop)
            shared->log(ZOR_INFO, "from a thread");
    });
    begun.wait();
    begun.wait();
    constexpr int kForks = 25;
    int logged = 0;
    for (bool allDid = true; allDid && logged < kForks;) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10);
            shared->log(ZOR_INFO, "from a child");
            _exit(0);
        }
        int status = -1;
        allDid = waitpid(child, &status, 0) == child && status == 0;
        if (allDid) ++logged;
    }
    stop = true;
    threads.join();
    EXPECT_EQ(logged, kForks);
    // The threads have written as much as the machine could: the fewer words about each line, the better.
    int written = 0;
    std::istringstream lines(folder.read("logs/a"));
    for (std::string line; std::getline(lines, line);)
        written += line.ends_with(" from a child") ? 1 : 0;
    EXPECT_EQ(written, kForks);
}

}  // namespace
