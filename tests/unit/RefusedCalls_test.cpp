// What comes of a call that the operating system refuses, kind by kind. Calls whose refusal other tests of a class show,
// because a folder, a limit or a peer brings it about, are not repeated. Files take the way of root here.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "FailingOs.h"
#include "TVLDescriptor.h"
#include "TVLFile.h"
#include "TVLFileStream.h"
#include "TVLFmDir.h"
#include "TVLProcessTable.h"
#include "TVLStreamWriter.h"
#include "TVLThread.h"
#include "TestWorld.h"
#include "ZORCryptoHelper.h"
#include "ZOREnvironment.h"
#include "ZORPidFile.h"
#include "ZORSignalHandlerThread.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kLogger = "ZORBootstrapService";

std::ptrdiff_t openDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

// Files are no larger for as long as it exists.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit small = m_before;
        small.rlim_cur = bytes;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_before{};
    void (*m_handler)(int);
};

class RefusedCallTest : public ServiceTest {
  protected:
    // Lets each call of the kind be refused in its turn, until a run goes through. A run that meets with a refusal
    // fails with its reason and leaves no descriptor open.
    void refuseEach(OsKind kind, int error, const std::function<bool()>& run) {
        const std::ptrdiff_t before = openDescriptors();
        for (int number = 1;; ++number) {
            os.failNth(kind, number, error);
            errno = 0;
            const bool done = run();
            const int reason = errno;
            const bool isRefused = os.refusals(kind) == 1;
            os.reset();
            ASSERT_EQ(openDescriptors(), before) << nameOf(kind) << " " << number;
            ASSERT_EQ(done, !isRefused) << nameOf(kind) << " " << number;
            if (!isRefused) {
                EXPECT_GT(number, 1) << nameOf(kind) << " is not used";
                return;
            }
            EXPECT_EQ(reason, error) << nameOf(kind) << " " << number;
        }
    }
    void giveLogsAway() const { ASSERT_EQ(chown(folder.path("logs").c_str(), kUser, kUser), 0); }
    uid_t ownerOf(const std::string& relative) const {
        struct stat status {};
        EXPECT_EQ(stat(folder.path(relative).c_str(), &status), 0) << relative;
        return status.st_uid;
    }

    static constexpr uid_t kUser = 12345;
    FailingOs os;
};

// ---- Files ----

TEST_F(RefusedCallTest, AFileIsReadWholeOrNotAtAll) {
    folder.write("temp/a", "content");
    fs::create_symlink("a", folder.path("temp/link"));
    const auto read = [] { return TVLFile::read("../temp/link", 100) == "content"; };
    for (const OsKind kind : {OsKind::Open, OsKind::Status, OsKind::Read, OsKind::ReadLink})
        refuseEach(kind, EIO, read);
}

TEST_F(RefusedCallTest, AStreamIsOpenedOrNot) {
    folder.write("temp/a", "content");
    const auto open = [] { return TVLFile::openForReading("../temp/a", 100) != nullptr; };
    for (const OsKind kind : {OsKind::Open, OsKind::Status, OsKind::OpenStream})
        refuseEach(kind, ENOMEM, open);
}

TEST_F(RefusedCallTest, ALogIsOpenedOrNot) {
    const auto open = [] { return TVLFile::openLog("../logs/a.log", false) != nullptr; };
    for (const OsKind kind : {OsKind::Status, OsKind::Truncate, OsKind::OpenStream})
        refuseEach(kind, EIO, open);
}

TEST_F(RefusedCallTest, AFileStaysWhenItsNameCannotBeRemoved) {
    folder.write("temp/a", "");
    refuseEach(OsKind::Remove, EBUSY, [] { return TVLFile::remove("../temp/a"); });
    EXPECT_FALSE(folder.exists("temp/a"));
}

TEST_F(RefusedCallTest, WithoutANumberAboveTheStandardStreamsNoFileIsOpened) {
    folder.write("temp/a", "");
    // Two: the folder may have the one, the file then gets the other.
    const TVLDescriptor input(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    const TVLDescriptor output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    refuseEach(OsKind::Duplicate, EMFILE, [&] {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
        const bool opened = TVLFile::openForReading("../temp/a", 100) != nullptr;
        const int error = errno;
        ::dup2(input.get(), STDIN_FILENO);
        ::dup2(output.get(), STDOUT_FILENO);
        errno = error;
        return opened;
    });
}

TEST_F(RefusedCallTest, AFileWhoseRightsCannotBeChangedIsWrittenAllTheSame) {
    os.failFrom(OsKind::ChangeMode, 1, EPERM);
    EXPECT_TRUE(TVLFile::openForAllToRead("../temp/a"));
    EXPECT_EQ(os.refusals(OsKind::ChangeMode), 1);
}

TEST_F(RefusedCallTest, AFileThatCannotBeGivenToItsFoldersOwnerIsNotLeftBehind) {
    giveLogsAway();
    os.failFrom(OsKind::ChangeOwner, 1, EPERM);
    EXPECT_FALSE(TVLFile::openLog("../logs/a.log", true));
    EXPECT_EQ(errno, EPERM);
    EXPECT_FALSE(folder.exists("logs/a.log"));
}

TEST_F(RefusedCallTest, AFolderThatCannotBeReadToItsEndIsNotTakenForEmpty) {
    for (const int number : {1, 2, 3}) {
        const std::string name = "logs/" + std::to_string(number);
        giveLogsAway();
        os.failNth(OsKind::ReadFolder, number, EIO);
        TVLFmDir::createWithParents(folder.path(name).c_str());
        EXPECT_EQ(os.refusals(OsKind::ReadFolder), 1);
        EXPECT_EQ(ownerOf(name), 0U) << "given away after " << number << " reads";
    }
    os.failNth(OsKind::OpenFolder, 1, ENOMEM);
    TVLFmDir::createWithParents(folder.path("logs/4").c_str());
    EXPECT_EQ(ownerOf("logs/4"), 0U);
}

TEST_F(RefusedCallTest, AFolderThatCannotBeMadeIsNotThere) {
    os.failNth(OsKind::MakeFolder, 2, ENOSPC);
    EXPECT_FALSE(TVLFmDir::createWithParents("../temp/a/b"));
    EXPECT_TRUE(folder.exists("temp/a"));
    os.reset();
    EXPECT_TRUE(TVLFmDir::createWithParents("../temp/a/b"));
    os.failFrom(OsKind::NamedStatus, 1, EACCES);
    EXPECT_FALSE(TVLFmDir::exists("../temp"));
}

TEST_F(RefusedCallTest, ALinkOfAnUnknownFileSystemIsReadAsText) {
    folder.write("temp/a", "");
    const TVLDescriptor file(::open(folder.path("temp/a").c_str(), O_RDONLY | O_CLOEXEC));
    const std::string link = "/proc/self/fd/" + std::to_string(file.get());
    os.failFrom(OsKind::FileSystem, 1, EIO);
    EXPECT_TRUE(TVLFile::openForReading(link.c_str(), 100)) << "the text is a path";
    fs::remove(folder.path("temp/a"));
    EXPECT_FALSE(TVLFile::openForReading(link.c_str(), 100)) << "the text is none any more";
}

TEST_F(RefusedCallTest, APipeThatCannotBeWaitedForSaysWhy) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const TVLDescriptor writer(ends[1]);
    TVLFileStream stream(TVLFilePtr(fdopen(ends[0], "r")));
    os.failNth(OsKind::Poll, 1, ENOMEM);
    EXPECT_EQ(stream.read(), -1);
    EXPECT_EQ(stream.error(), std::strerror(ENOMEM));
}

// ---- Working directory and environment ----

TEST_F(RefusedCallTest, APathWhoseFolderCannotBeEnteredResolvesToNothing) {
    const fs::path bin = fs::current_path();
    for (const OsKind kind : {OsKind::WorkingFolder, OsKind::Open, OsKind::ChangeFolder}) {
        refuseEach(kind, EIO, [] { return !TVLFmDir::resolveByChangingInto("../temp").empty(); });
        EXPECT_EQ(fs::current_path(), bin) << nameOf(kind);
    }
    os.failNth(OsKind::ReturnToFolder, 1, EIO);
    EXPECT_EQ(TVLFmDir::resolveByChangingInto("../temp"), "");
    fs::current_path(bin);
}

TEST_F(RefusedCallTest, WithoutAWorkingDirectoryThereAreNoInstallPaths) {
    os.failFrom(OsKind::WorkingFolder, 1, EIO);
    ZORBootstrapService service;
    EXPECT_EQ(service.findHome(), 0);
    EXPECT_TRUE(log.has("FATAL", kLogger, "Install home directory has not been specified"));
}

TEST_F(RefusedCallTest, AVariableThatCannotBeSetIsAnError) {
    folder.write("configuration/zorEnvironmentVars.ini", "VBS_TEST_A\nVBS_TEST_B\n");
    os.failNth(OsKind::SetVariable, 2, ENOMEM);
    EXPECT_THROW(ZOREnvironment::applyFile(), TVLOutOfMemoryError);
    EXPECT_EQ(os.uses(OsKind::SetVariable), 2);
}

// ---- Standard streams ----

int inAChild(const std::function<bool()>& scenario) {
    const pid_t child = fork();
    if (child == 0) ::_exit(scenario() ? 0 : 1);
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : -1;
}

bool areOccupied() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (write(descriptor, "x", 1) != -1 || errno != EBADF || fcntl(descriptor, F_GETFD) < 0) return false;
    }
    return true;
}

TEST_F(RefusedCallTest, StreamsThatCannotBeLedElsewhereKeepTheirNumbersFromOthers) {
    for (const auto& [kind, number] :
         {std::pair{OsKind::Open, 1}, {OsKind::Duplicate, 1}, {OsKind::Duplicate, 2}}) {
        EXPECT_EQ(inAChild([&, refusedKind = kind, refusedNumber = number] {
                      os.failNth(refusedKind, refusedNumber, ENFILE);
                      if (TVLOs::redirectStandardStreams() || errno != ENFILE) return false;
                      return fcntl(STDERR_FILENO, F_GETFD) >= 0 &&
                             (refusedKind != OsKind::Open || areOccupied());
                  }),
                  0)
            << nameOf(kind) << " " << number;
    }
}

TEST_F(RefusedCallTest, StreamsThatCannotBeOccupiedAreLeftClosed) {
    EXPECT_EQ(inAChild([&] {
                  ::close(STDIN_FILENO);
                  os.failFrom(OsKind::Open, 1, ENFILE);
                  TVLOs::occupyStandardStreams();
                  return os.refusals(OsKind::Open) == 1 && fcntl(STDIN_FILENO, F_GETFD) < 0;
              }),
              0);
}

// ---- Log destinations ----

class RefusedLogTest : public RefusedCallTest {
  protected:
    // The stream of one end; what comes out of the other.
    void connect(bool isSocket) {
        std::array<int, 2> ends{};
        ASSERT_EQ(isSocket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) : pipe(ends.data()), 0);
        reader = TVLDescriptor(ends[0]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        stream.reset(fdopen(ends[1], "w"));
    }
    std::string received() const {
        std::array<char, 4096> text{};
        const ssize_t got = ::read(reader.get(), text.data(), text.size());
        return {text.data(), static_cast<std::size_t>(got < 0 ? 0 : got)};
    }
    void write(TVLStreamWriter& writer, const char* line) const {
        writer.write(stream.get(), line, "notice\n");
    }

    VirtualOs time;
    FailingOs os{time};
    TVLDescriptor reader;
    TVLFilePtr stream;
};

TEST_F(RefusedLogTest, ALineThatCannotBeWrittenIsLostAndNoOther) {
    for (const bool isSocket : {false, true}) {
        connect(isSocket);
        TVLStreamWriter writer(stream.get());
        os.failNth(isSocket ? OsKind::Send : OsKind::Write, 1, EIO);
        write(writer, "lost\n");
        write(writer, "next\n");
        EXPECT_EQ(received(), "next\n");
    }
}

TEST_F(RefusedLogTest, APipeWhoseFlagsAreUnknownIsNotTakenForOneThatNeverWaits) {
    connect(false);
    TVLStreamWriter writer(stream.get());
    os.failFrom(OsKind::StatusFlags, 1, EBADF);
    const std::string line(5000, 'x');
    for (int i = 0; i < 20; ++i)  // more than a pipe takes
        write(writer, line.c_str());
    EXPECT_GT(writer.dropped(), 0);
}

TEST_F(RefusedLogTest, APipeThatCannotBeOpenedOnceMoreIsWrittenAllTheSame) {
    connect(false);
    TVLStreamWriter writer(stream.get());
    os.failFrom(OsKind::Open, 1, EACCES);
    write(writer, "by the kernel's own way\n");
    EXPECT_EQ(received(), "by the kernel's own way\n");
    os.reset();
    FailingOs older;  // of a kernel that has no such way
    os.failFrom(OsKind::Open, 1, EACCES);
    older.failFrom(OsKind::WriteNoWait, 1, EOPNOTSUPP);
    write(writer, "when it is ready\n");
    EXPECT_EQ(received(), "when it is ready\n");
}

TEST_F(RefusedLogTest, ALineIsDroppedWhenTheWaitForItsReaderFails) {
    connect(true);
    TVLStreamWriter writer(stream.get());
    os.failNth(OsKind::Send, 1, EAGAIN);
    FailingOs waiting;
    waiting.failNth(OsKind::WaitWritable, 1, ENOMEM);
    write(writer, "dropped\n");
    EXPECT_EQ(writer.dropped(), 1);
    write(writer, "next\n");
    EXPECT_EQ(received(), "notice\nnext\n");
}

TEST_F(RefusedLogTest, AFullDiskCostsTheLinesThatItDoesNotTake) {
    stream = TVLFile::openLog("../logs/a.log", true);
    TVLStreamWriter writer(stream.get());
    os.failNth(OsKind::WriteStream, 2, ENOSPC);
    for (const char* const line : {"one\n", "two\n", "three\n"})
        write(writer, line);
    EXPECT_EQ(folder.read("logs/a.log"), "one\nthree\n");
}

TEST_F(RefusedLogTest, AfterALineThatADiskHasTakenAPartOfTheNextBeginsAnew) {
    stream = TVLFile::openLog("../logs/a.log", true);
    TVLStreamWriter writer(stream.get());
    write(writer, "one\n");
    {
        const FileSizeLimit limit(6);
        write(writer, "second\n");
        write(writer, "third\n");
    }
    write(writer, "fourth\n");
    write(writer, "fifth\n");
    EXPECT_EQ(folder.read("logs/a.log"), "one\nse\nfourth\nfifth\n");
}

// ---- The PID file ----

class RefusedPidFileTest : public RefusedCallTest {
  protected:
    RefusedPidFileTest() { pidFile.setPath(folder.path("logs/pid")); }
    bool hasNoWord() const {
        return log.has("WARN", kLogger,
                       "Process ID could not be written to file.  The velbootstrapservice -stop command will "
                       "not work. Use 'kill -9' instead.");
    }
    std::string path() const { return folder.path("logs/pid"); }

    ZORPidFile pidFile;
    int pid = 7;
};

TEST_F(RefusedPidFileTest, AnIdThatCannotBeWrittenIsToldAndNotThere) {
    for (const OsKind kind : {OsKind::Open, OsKind::OpenStream, OsKind::Truncate, OsKind::WriteStream}) {
        log.clear();
        os.failNth(kind, 1, ENOSPC);
        pidFile.write();
        EXPECT_TRUE(hasNoWord()) << nameOf(kind);
    }
    EXPECT_EQ(folder.read("logs/pid"), "");
}

TEST_F(RefusedPidFileTest, APartOfAnIdIsNotLeftToBeTakenForAnotherProcesss) {
    {
        const FileSizeLimit limit(1);
        pidFile.write();
    }
    EXPECT_TRUE(hasNoWord());
    EXPECT_EQ(folder.read("logs/pid"), "");
}

TEST_F(RefusedPidFileTest, AFileThatCannotBeExaminedOrReadNamesNobody) {
    pidFile.write();
    os.failNth(OsKind::NamedStatus, 1, EACCES);
    EXPECT_FALSE(pidFile.read(pid));
    EXPECT_TRUE(log.has("DEBUG", kLogger, "getPID() - stat() failed on file: " + path() + " errno=13"));
    os.failNth(OsKind::OpenStream, 1, ENOMEM);
    EXPECT_FALSE(pidFile.read(pid));
    EXPECT_TRUE(log.has("DEBUG", kLogger, "getPID() - couldn't open \"" + path() + "\"."));
    os.failNth(OsKind::ReadLine, 1, EIO);
    EXPECT_FALSE(pidFile.read(pid));
    EXPECT_EQ(pid, 7) << "left alone";
    os.reset();
    EXPECT_TRUE(pidFile.read(pid));
    EXPECT_EQ(pid, getpid());
}

TEST_F(RefusedPidFileTest, AProcessThatMayNotBeSignalledIsNotRunning) {
    pidFile.write();
    os.failNth(OsKind::TestProcess, 1, EPERM);
    EXPECT_FALSE(pidFile.read(pid));
    EXPECT_EQ(pid, 0);
}

TEST_F(RefusedPidFileTest, AUsersFileNamesNobodyWhenItsProcessCannotBeHeld) {
    pidFile.write();
    ASSERT_EQ(chown(folder.path("logs/pid").c_str(), kUser, kUser), 0);
    os.failNth(OsKind::HoldProcess, 1, EPERM);
    EXPECT_FALSE(pidFile.read(pid));
    EXPECT_EQ(os.uses(OsKind::TestProcess), 0);
    EXPECT_TRUE(log.has("DEBUG", kLogger, "testPID() - sigsend failed, errno=1"));
}

TEST_F(RefusedPidFileTest, AFileThatCannotBeRemovedIsToldOf) {
    pidFile.write();
    os.failNth(OsKind::Remove, 1, EROFS);
    pidFile.remove();
    EXPECT_TRUE(log.has("WARN", kLogger, "PID file \"" + path() + "\" could not be removed, errno=30"));
    log.clear();
    pidFile.remove();
    pidFile.remove();  // nothing is there to remove
    EXPECT_EQ(log.raw(), "");
}

// ---- Processes ----

class RefusedProcessTest : public RefusedCallTest {
  protected:
    pid_t forked() {
        const pid_t child = table.fork();
        if (child != 0) return child;
        for (;;)
            pause();
    }
    void end(pid_t child) {
        EXPECT_EQ(table.kill(child, SIGKILL), 0);
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
    }

    TVLProcessTable table;
};

TEST_F(RefusedProcessTest, AChildThatCannotBeHeldByADescriptorIsSpokenToByItsId) {
    for (const OsKind kind : {OsKind::OpenProcess, OsKind::ExamineChild, OsKind::DescriptorLimit}) {
        const std::ptrdiff_t before = openDescriptors();
        os.failNth(kind, 1, ENOSYS);
        const pid_t child = forked();
        EXPECT_EQ(os.refusals(kind), 1) << nameOf(kind);
        EXPECT_EQ(openDescriptors(), before) << nameOf(kind);
        end(child);
    }
}

TEST_F(RefusedProcessTest, ASignalThatIsRefusedIsNoSignOfAnEnd) {
    const pid_t child = forked();
    os.failNth(OsKind::SignalProcess, 1, EPERM);
    EXPECT_EQ(table.kill(child, SIGTERM), -1);
    EXPECT_EQ(errno, EPERM);
    end(child);
}

TEST_F(RefusedProcessTest, AChildThatCannotBeLookedAtIsKept) {
    const pid_t first = forked();
    os.failNth(OsKind::Poll, 1, ENOMEM);
    const pid_t second = forked();
    EXPECT_EQ(os.refusals(OsKind::Poll), 1);
    end(first);
    end(second);
}

TEST_F(RefusedProcessTest, AProcessWhoseUserCannotBeToldIsNotHeld) {
    const pid_t child = forked();
    for (const OsKind kind : {OsKind::Open, OsKind::Read}) {
        os.failNth(kind, 1, EIO);
        EXPECT_FALSE(table.hold(child, getuid())) << nameOf(kind);
        EXPECT_EQ(errno, EPERM) << nameOf(kind);
    }
    os.reset();
    EXPECT_TRUE(table.hold(child, getuid()));
    EXPECT_EQ(table.kill(child, 0), 0);
    end(child);
}

// ---- Libraries ----

class RefusedLibraryTest : public RefusedCallTest {
  protected:
    ~RefusedLibraryTest() override { ZORCryptoHelper::TerminateCrypto(); }
};

TEST_F(RefusedLibraryTest, ALibraryInWhichANameIsNotFoundIsUnloaded) {
    os.failNth(OsKind::FindSymbol, 20, ENOENT);
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 0);
    EXPECT_TRUE(log.has("FATAL", "ZORCryptoHelper", "failed to initialize crypto."));
    EXPECT_EQ(ZORCryptoHelper::GetCrypto()->isOpen(), 0);
    EXPECT_EQ(os.uses(OsKind::UnloadLibrary), 1);
}

TEST_F(RefusedLibraryTest, ALibraryThatCannotBeUnloadedIsClosedAllTheSame) {
    TVLCrypto crypto("SEK_Crypto_Interface");
    ASSERT_EQ(crypto.isOpen(), 1);
    os.failNth(OsKind::UnloadLibrary, 1, EBUSY);
    EXPECT_EQ(crypto.close(), -1);
    EXPECT_EQ(crypto.isOpen(), 0);
    EXPECT_EQ(crypto.close(), 0);
}

// ---- Threads and waits ----

TEST_F(RefusedCallTest, AThreadThatCannotBeStartedIsNotAliveAndCanBeStartedLater) {
    TVLThread thread(nullptr, 0);
    os.failNth(OsKind::StartThread, 1, EAGAIN);
    EXPECT_THROW(thread.start(), TVLThreadResourceError);
    EXPECT_FALSE(thread.isAlive());
    thread.join();
    thread.start();
    thread.join();
}

TEST_F(RefusedCallTest, AWaitThatIsRefusedIsAnErrorAndNoneToAJoin) {
    os.failFrom(OsKind::Wait, 1, EPERM);
    TVLThreadSemaphore semaphore(0);
    EXPECT_THROW(semaphore.wait(), TVLThreadResourceError);
    semaphore.post();
    EXPECT_EQ(semaphore.timedWait(0), 1) << "what is there is taken without waiting";
    TVLThread thread(nullptr, 0);
    thread.start();
    thread.join();
    EXPECT_FALSE(thread.isAlive());
}

class RefusedRunTest : public WorldTest {
  protected:
    FailingOs failing{os};
};

TEST_F(RefusedRunTest, AWaitForSignalsThatEndsWithoutOneIsRepeated) {
    TestAccess::mainThreadWait(service) = &finished;
    failing.failNth(OsKind::WaitForSignal, 1, EINTR);
    {
        ZORSignalHandlerThread thread(&service);
        thread.start();
        TVLThread::sleep(1000);
        EXPECT_FALSE(supervisorLogged("INFO", "Child process supervisor has been told to stop"));
        os.raiseSignal(SIGTERM);
        thread.join();
    }
    EXPECT_TRUE(log.inOrder({{"DEBUG", "ZORSignalHandlerThread", "Signal 0 caught.", {}},
                             {"DEBUG", "ZORSignalHandlerThread", "Signal 15 caught.", {}}}));
    EXPECT_TRUE(supervisorLogged("INFO", "Child process supervisor has been told to stop"));
}

TEST_F(RefusedRunTest, TheSecondForkOfADetachmentIsToldOfWhenItFails) {
    EXPECT_EQ(inAChild([&] {
                  os.forkIntoChild(0);
                  failing.failNth(OsKind::Fork, 2, EAGAIN);
                  return service.runAsDaemon() == 0 &&
                         log.has("ERROR", kLogger, "runAsDaemon() - fork failed, errno=11");
              }),
              0);
}

TEST_F(RefusedRunTest, WithoutASessionOfItsOwnADaemonIsStartedAllTheSame) {
    EXPECT_EQ(inAChild([&] {
                  os.forkIntoChild(0);
                  failing.failNth(OsKind::NewSession, 1, EPERM);
                  service.runAsDaemon();
                  return failing.refusals(OsKind::NewSession) == 1 && os.lastPid() == 1001;
              }),
              0);
}

}  // namespace
