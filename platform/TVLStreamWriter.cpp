#include "TVLStreamWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <new>

#include "TVLOs.h"

namespace {

// The other end of a terminal device is left out: opening it once more would make another terminal.
bool isTerminal(int descriptor, const struct stat& status) {
    return S_ISCHR(status.st_mode) && TVLOs::current().isTerminal(descriptor);
}

constexpr off_t kUnknownSize = -1;

bool examine(std::FILE* stream, struct stat& status) {
    return TVLOs::current().fstat(fileno(stream), &status) == 0;
}

bool isNonblocking(int descriptor) {
    const int flags = TVLOs::current().statusFlags(descriptor);
    return flags >= 0 && (flags & O_NONBLOCK) != 0;
}

bool isPlain(const struct stat& status) {
    return S_ISREG(status.st_mode);
}

}  // namespace

// A descriptor that is written without blocking, for as long as a line takes.
//
// It may be shared with other processes, so its flags are left alone. A pipe or a terminal is opened once more for
// the line and not longer: whoever waits for the end of a pipe must not wait for a descriptor that is kept.
class TVLStreamWriter::Outlet {
  public:
    Outlet(int descriptor, const struct stat& status)
        : m_descriptor(descriptor),
          m_isSocket(S_ISSOCK(status.st_mode)),
          m_isTerminal(isTerminal(descriptor, status)) {
        const bool canBeReopened = S_ISFIFO(status.st_mode) || m_isTerminal;
        if (isNonblocking(descriptor)) {
            m_nonblocking = descriptor;
        } else if (canBeReopened) {
            m_nonblocking = m_reopened = reopen(descriptor);
        }
    }
    ~Outlet() {
        if (m_reopened >= 0) close(m_reopened);
    }
    Outlet(const Outlet&) = delete;
    Outlet& operator=(const Outlet&) = delete;

    int descriptor() const { return m_descriptor; }

    // As write(): -1 with EAGAIN when nothing can be taken now.
    ssize_t write(std::string_view text) const {
        TVLOs& os = TVLOs::current();
        if (m_isSocket) return os.sendNoWait(m_descriptor, text.data(), text.size());
        if (m_nonblocking >= 0) return os.write(m_nonblocking, text.data(), text.size());
        // For what cannot be opened again, such as another user's pipe, where the kernel knows how.
        const ssize_t written = os.writeNoWait(m_descriptor, text.data(), text.size());
        return written < 0 && errno == EOPNOTSUPP ? writeWhenReady(text) : written;
    }

  private:
    static int reopen(int descriptor) {
        std::array<char, 40> path{};
        std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", descriptor);
        return TVLOs::current().openat(AT_FDCWD, path.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                                       0);
    }

    // The last resort. A pipe that is ready has room for PIPE_BUF bytes, a terminal for one.
    ssize_t writeWhenReady(std::string_view text) const {
        pollfd entry{m_descriptor, POLLOUT, 0};
        if (TVLOs::current().poll(&entry, 1, 0) <= 0) {
            errno = EAGAIN;
            return -1;
        }
        const std::size_t most = m_isTerminal ? 1 : PIPE_BUF;
        return TVLOs::current().write(m_descriptor, text.data(), std::min(text.size(), most));
    }

    int m_descriptor;
    bool m_isSocket;
    bool m_isTerminal;
    int m_nonblocking = -1;
    int m_reopened = -1;
};

TVLStreamWriter::TVLStreamWriter(std::FILE* stream) : m_recoveredAtMs(TVLOs::current().nowMs()) {
    struct stat status {};
    m_isShared = stream != nullptr && examine(stream, status) && !isPlain(status);
    m_device = status.st_dev;
    m_inode = status.st_ino;
}

bool TVLStreamWriter::leadsTo(std::FILE* stream) const {
    struct stat status {};
    return m_isShared && stream != nullptr && examine(stream, status) && status.st_dev == m_device &&
           status.st_ino == m_inode;
}

void TVLStreamWriter::write(std::FILE* stream, std::string_view line, std::string_view notice) noexcept {
    struct stat status {};
    // Looked at anew each time: a standard stream may have been led elsewhere.
    const bool isKnown = examine(stream, status);
    if (!isKnown || isPlain(status)) {
        writePlain(stream, line, isKnown ? status.st_size : kUnknownSize);
        return;
    }
    recover();
    const Outlet outlet(fileno(stream), status);
    m_rest.erase(0, push(outlet, m_rest, false));
    if (m_rest.empty() && (m_dropped == 0 ? begin(outlet, line, true) : resume(outlet, line, notice))) return;
    ++m_dropped;
}

void TVLStreamWriter::writePlain(std::FILE* stream, std::string_view line, off_t size) {
    TVLOs& os = TVLOs::current();
    if (m_isTorn) {
        if (!os.writeStream(stream, "\n")) return;
        ++size;
        m_isTorn = false;
    }
    if (os.writeStream(stream, line) || size == kUnknownSize) return;
    struct stat after {};
    m_isTorn = examine(stream, after) && after.st_size > size;
}

// Notice and line are one text: a place may have room left for the one and not for the other, and then the next
// line would bring a notice of its own. False when the stream still takes nothing.
bool TVLStreamWriter::resume(const Outlet& outlet, std::string_view line, std::string_view notice) {
    if (notice.empty()) return false;
    const int told = m_dropped;
    try {
        std::string text(notice);
        text += line;
        if (!begin(outlet, text, false)) return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    m_dropped -= told;
    return true;
}

// False when nothing of the text could be written. What is left of a part is kept.
bool TVLStreamWriter::begin(const Outlet& outlet, std::string_view text, bool mayWait) {
    const std::size_t written = push(outlet, text, mayWait);
    if (written == 0) return false;
    keep(text.substr(written));
    return true;
}

void TVLStreamWriter::keep(std::string_view rest) {
    try {
        m_rest.assign(rest);
    } catch (const std::bad_alloc&) {
        // The rest is lost. What follows begins on a line of its own, for which no memory is needed.
        m_rest.clear();
        m_rest.push_back('\n');
        ++m_dropped;
    }
}

// How much of the text is done with; a failure that no waiting can mend does away with all of it.
std::size_t TVLStreamWriter::push(const Outlet& outlet, std::string_view text, bool mayWait) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = outlet.write(text.substr(done));
        if (written > 0) {
            done += static_cast<std::size_t>(written);
            continue;
        }
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno != EAGAIN) return text.size();
        if (!mayWait || !await(outlet.descriptor())) break;
    }
    return done;
}

// A wait costs what it lasts and a little more, so that many short ones cannot add up to more than is given.
bool TVLStreamWriter::await(int descriptor) {
    const std::int64_t patienceMs = m_credit / kRecovery;
    if (patienceMs <= 0) return false;
    TVLOs& os = TVLOs::current();
    const std::int64_t beginMs = os.nowMs();
    const bool ready = os.waitWritable(descriptor, patienceMs);
    m_recoveredAtMs = os.nowMs();
    m_credit = std::max<std::int64_t>(m_credit - (m_recoveredAtMs - beginMs + 1) * kRecovery, 0);
    return ready;
}

void TVLStreamWriter::recover() {
    const std::int64_t nowMs = TVLOs::current().nowMs();
    const std::int64_t sinceMs =
        std::clamp<std::int64_t>(nowMs - m_recoveredAtMs, 0, kPatienceMs * kRecovery);
    m_credit = std::min(m_credit + sinceMs, kPatienceMs * kRecovery);
    m_recoveredAtMs = nowMs;
}
