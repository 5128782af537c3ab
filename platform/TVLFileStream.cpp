#include "TVLFileStream.h"

#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "TVLOs.h"

namespace {

constexpr std::int64_t kPipeMs = 10000;

bool isPipe(std::FILE* file) {
    struct stat status {};
    return TVLOs::current().fstat(fileno(file), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

TVLFileStream::TVLFileStream() = default;

TVLFileStream::TVLFileStream(TVLFilePtr file) {
    take(std::move(file));
}

void TVLFileStream::take(TVLFilePtr file) {
    m_file = std::move(file);
    m_left = TVLFile::kMostOfADocument;
    m_deadlineMs = m_file && isPipe(m_file.get()) ? TVLOs::current().nowMs() + kPipeMs : TVLOs::kForever;
    m_error.clear();
}

int TVLFileStream::read(TVLByteBuffer& buffer, int count) {
    return read(buffer.data(), count);
}

int TVLFileStream::read(char* buffer, int count) {
    if (!m_file || buffer == nullptr || count < 1 || !m_error.empty()) return -1;
    std::int64_t got = -1;
    do {
        if (!waitForBytes()) return -1;
        got = readSome(buffer, count);
        // Another reader of the same pipe was quicker.
    } while (got < 0 && errno == EAGAIN && m_deadlineMs != TVLOs::kForever);
    if (got < 0) return fail(std::strerror(errno));
    if (got > m_left) return fail(TVLFile::tooLarge(TVLFile::kMostOfADocument));
    m_left -= got;
    return got > 0 ? static_cast<int>(got) : -1;
}

int TVLFileStream::read() {
    char byte = 0;
    return read(&byte, 1) == 1 ? static_cast<unsigned char>(byte) : -1;
}

void TVLFileStream::close() {
    m_file.reset();
}

bool TVLFileStream::canUnread() {
    return false;
}

int TVLFileStream::isOpen() const {
    return m_file ? 1 : 0;
}

// A pipe that nobody has written to yet has no end either: its reader learns of it by the poll alone.
bool TVLFileStream::waitForBytes() {
    if (m_deadlineMs == TVLOs::kForever) return true;
    for (;;) {
        const std::int64_t leftMs = m_deadlineMs - TVLOs::current().nowMs();
        if (leftMs <= 0) return comesTooLate();
        pollfd pipe{fileno(m_file.get()), POLLIN, 0};
        const int ready = TVLOs::current().poll(&pipe, 1, static_cast<int>(std::min(leftMs, kPipeMs)));
        if (ready > 0) return true;
        if (ready == 0) return comesTooLate();
        if (errno != EINTR) {
            fail(std::strerror(errno));
            return false;
        }
    }
}

bool TVLFileStream::comesTooLate() {
    fail("does not come to its end in time");
    return false;
}

std::int64_t TVLFileStream::readSome(char* buffer, std::int64_t count) {
    ssize_t got = -1;
    do {
        got = TVLOs::current().read(fileno(m_file.get()), buffer, static_cast<std::size_t>(count));
    } while (got < 0 && errno == EINTR);
    return got;
}

int TVLFileStream::fail(const std::string& error) {
    m_error = error;
    return -1;
}
