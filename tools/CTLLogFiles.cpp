#include "CTLLogFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <system_error>
#include <utility>

#include "CTLInstance.h"
#include "TVLDescriptor.h"
#include "TVLFile.h"
#include "TVLIDOM_Document.h"
#include "TVLRealOs.h"
#include "ZOREnvironment.h"
#include "ZORLogger.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kUsualName = "velbootstrapservice.log";
constexpr int kMostRotated = 1000;
constexpr std::size_t kFirstLook = std::size_t{64} * 1024;

// Stands in the doorway while the service's logging opens its files: what would be written to is noted and refused.
class NotedFiles final : public TVLRealOs {
  public:
    NotedFiles() : m_before(install(this)) {}
    ~NotedFiles() override { install(m_before); }

    int openat(int folder, const char* path, int flags, mode_t mode) override {
        if ((flags & O_ACCMODE) == O_RDONLY) return TVLRealOs::openat(folder, path, flags, mode);
        m_names.push_back(pathOf(folder) / path);
        errno = EACCES;
        return -1;
    }
    const std::vector<fs::path>& names() const { return m_names; }

  private:
    static fs::path pathOf(int folder) {
        std::error_code error;
        if (folder == AT_FDCWD) return fs::current_path(error);
        return fs::read_symlink("/proc/self/fd/" + std::to_string(folder), error);
    }

    TVLOs* m_before;
    std::vector<fs::path> m_names;
};

// Works in a folder for as long as it lives.
class WorkingFolder {
  public:
    explicit WorkingFolder(const fs::path& folder) : m_before(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        std::error_code error;
        fs::current_path(folder, error);
    }
    ~WorkingFolder() {
        if (m_before.isOpen()) (void)!fchdir(m_before.get());
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

  private:
    TVLDescriptor m_before;
};

bool mayBeRead(const fs::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) return true;  // not there yet
    return S_ISREG(status.st_mode);
}

// The files that the daemon would open for its log.
std::vector<fs::path> namesInDocument(const CTLInstance& instance) {
    // Never freed: it keeps a logger of its own, which would be lost with it.
    static ZORLoggerFactory& factory = *new ZORLoggerFactory;
    const WorkingFolder bin(instance.bin());
    std::string installRoot;
    std::string binDirectory;
    ZOREnvironment::findHome(installRoot, binDirectory);
    TVLIDOM_DOMImplementation::initialize();
    const NotedFiles noted;
    factory.prepare(instance.loggingDocument().c_str(), "run");
    factory.reset();
    return noted.names();
}

bool isThere(const fs::path& file) {
    struct stat status {};
    return lstat(file.c_str(), &status) == 0;
}

// The newest text of a file, in whole lines.
struct Tail {
    std::string text;
    bool isWhole = false;  // it begins where the file does
    std::int64_t end = 0;  // where it ends in the file
};

// The bytes from `begin` on, up to `end` or where the file ends meanwhile.
std::string bytesOf(std::FILE* file, std::int64_t begin, std::int64_t end) {
    std::string bytes(static_cast<std::size_t>(end - begin), '\0');
    std::size_t got = 0;
    while (got < bytes.size()) {
        const ssize_t more = pread(fileno(file), bytes.data() + got, bytes.size() - got,
                                   static_cast<off_t>(begin + static_cast<std::int64_t>(got)));
        if (more < 0 && errno == EINTR) continue;
        if (more <= 0) break;
        got += static_cast<std::size_t>(more);
    }
    bytes.resize(got);
    return bytes;
}

// Without what stands before the first line feed, the rest of a line that was cut.
void dropTornLine(std::string& text) {
    const std::size_t end = text.find('\n');
    text.erase(0, end == std::string::npos ? text.size() : end + 1);
}

// Whether the text begins before that time, by its first line that tells one.
bool beginsBefore(const std::string& text, std::time_t since) {
    CTLLogLine line;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (CTLLogLine::parse(text.substr(at, end - at), line)) return line.time < since;
        at = end + 1;
    }
    return false;
}

// Of a file that is as it was written: looked at from its end, twice as far each time.
Tail plainTail(std::FILE* file, std::time_t since, std::size_t most) {
    struct stat status {};
    if (fstat(fileno(file), &status) != 0) return {{}, true, 0};
    const std::int64_t size = status.st_size;
    for (std::int64_t look = kFirstLook;; look *= 2) {
        const std::int64_t reach = std::min({look, size, static_cast<std::int64_t>(most)});
        Tail tail{bytesOf(file, size - reach, size), reach == size, size};
        if (!tail.isWhole) dropTornLine(tail.text);
        if (reach < look || beginsBefore(tail.text, since)) return tail;
    }
}

struct GzCloser {
    void operator()(gzFile_s* file) const { gzclose_r(file); }
};

// Keeps the newest of it.
void keepLast(Tail& tail, std::size_t most) {
    if (tail.text.size() <= most) return;
    tail.text.erase(0, tail.text.size() - most);
    tail.isWhole = false;
}

// Of a packed file, which can be read from its beginning only. One that does not come to its end is left out: what of
// it is the newest cannot be told.
Tail packedTail(std::FILE* file, std::size_t most) {
    TVLDescriptor descriptor(fcntl(fileno(file), F_DUPFD_CLOEXEC, 3));
    const std::unique_ptr<gzFile_s, GzCloser> packed(gzdopen(descriptor.get(), "rb"));
    if (!packed) return {};
    descriptor.release();
    Tail tail{{}, true, 0};
    std::vector<char> block(std::size_t{256} * 1024);
    for (std::size_t unpacked = 0; unpacked <= CTLLogFiles::kMostUnpacked;) {
        const int got = gzread(packed.get(), block.data(), static_cast<unsigned>(block.size()));
        if (got <= 0) {
            keepLast(tail, most);
            if (!tail.isWhole) dropTornLine(tail.text);
            return tail;
        }
        unpacked += static_cast<std::size_t>(got);
        tail.text.append(block.data(), static_cast<std::size_t>(got));
        if (tail.text.size() >= 2 * most) keepLast(tail, most);
    }
    return {};
}

Tail tailOf(const fs::path& path, std::time_t since, std::size_t most) {
    const bool isPacked = path.extension() == ".gz";
    const std::int64_t largest =
        isPacked ? std::int64_t{CTLLogFiles::kMostUnpacked} : std::numeric_limits<std::int64_t>::max();
    const TVLFilePtr file = TVLFile::openForReading(path.c_str(), largest);
    if (!file) return {{}, true, 0};
    return isPacked ? packedTail(file.get(), most) : plainTail(file.get(), since, most);
}

// Of the present file: without a last line that is still being written.
void leaveUnfinished(Tail& tail) {
    const std::size_t lineFeed = tail.text.rfind('\n');
    const std::size_t finished = lineFeed == std::string::npos ? 0 : lineFeed + 1;
    tail.end -= static_cast<std::int64_t>(tail.text.size() - finished);
    tail.text.resize(finished);
}

std::vector<CTLLogLine> linesOf(std::string text, std::time_t since) {
    std::istringstream log(std::move(text));
    std::vector<CTLLogLine> lines = CTLLogLine::read(log);
    std::erase_if(lines, [&](const CTLLogLine& line) { return line.time < since; });
    return lines;
}

}  // namespace

CTLLogFiles::CTLLogFiles(const CTLInstance& instance) : m_present(instance.logs() / kUsualName) {
    const std::vector<fs::path> names = namesInDocument(instance);
    const auto usable = std::find_if(names.begin(), names.end(), mayBeRead);
    if (usable != names.end()) m_present = usable->lexically_normal();
}

std::vector<fs::path> CTLLogFiles::files() const {
    std::vector<fs::path> newestFirst{m_present};
    for (int number = 1; number <= kMostRotated; ++number) {
        const std::string plain = m_present.string() + "." + std::to_string(number);
        const std::string packed = plain + ".gz";
        // While it is being packed both are there; the plain one is whole.
        if (isThere(plain)) {
            newestFirst.emplace_back(plain);
        } else if (isThere(packed)) {
            newestFirst.emplace_back(packed);
        } else {
            break;
        }
    }
    return {newestFirst.rbegin(), newestFirst.rend()};
}

std::vector<CTLLogLine> CTLLogFiles::linesSince(std::time_t since, bool* isComplete,
                                                std::int64_t* end) const {
    std::vector<std::vector<CTLLogLine>> newestFirst;
    std::size_t left = kMostBytes;
    bool complete = true;
    const std::vector<fs::path> all = files();
    for (auto file = all.rbegin(); file != all.rend() && complete; ++file) {
        Tail tail = tailOf(*file, since, left);
        if (file == all.rbegin()) leaveUnfinished(tail);
        if (file == all.rbegin() && end != nullptr) *end = tail.end;
        const bool reachesBack = beginsBefore(tail.text, since);
        complete = reachesBack || tail.isWhole;
        left -= std::min(left, tail.text.size());
        newestFirst.push_back(linesOf(std::move(tail.text), since));
        if (reachesBack) break;
    }
    if (isComplete != nullptr) *isComplete = complete;
    std::vector<CTLLogLine> lines;
    for (auto part = newestFirst.rbegin(); part != newestFirst.rend(); ++part)
        std::move(part->begin(), part->end(), std::back_inserter(lines));
    return lines;
}
