#include "CTLLogFollower.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBlock = std::size_t{64} * 1024;
constexpr std::size_t kMark = 256;
// Of one look: what writes faster than this is caught up with in the next.
constexpr std::int64_t kMostOfALook = std::int64_t{8} * 1024 * 1024;

TVLFilePtr openLog(const fs::path& path) {
    return TVLFile::openForReading(path.c_str(), std::numeric_limits<std::int64_t>::max());
}

std::int64_t sizeOf(std::FILE* file) {
    struct stat status {};
    return fstat(fileno(file), &status) == 0 ? std::int64_t{status.st_size} : 0;
}

std::size_t readAt(std::FILE* file, std::int64_t at, char* into, std::size_t size) {
    const ssize_t got = pread(fileno(file), into, size, static_cast<off_t>(at));
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

}  // namespace

CTLLogFollower::CTLLogFollower(const fs::path& file, std::int64_t from) : m_path(file), m_block(kBlock) {
    if (!open()) return;
    const std::int64_t size = sizeOf(m_file.get());
    m_at = from == kEnd ? size : std::min(from, size);
    m_mark.resize(static_cast<std::size_t>(std::min<std::int64_t>(m_at, kMark)));
    const auto begin = m_at - static_cast<std::int64_t>(m_mark.size());
    m_mark.resize(readAt(m_file.get(), begin, m_mark.data(), m_mark.size()));
}

bool CTLLogFollower::open() {
    m_file = openLog(m_path);
    m_at = 0;
    m_mark.clear();
    m_torn.clear();
    return m_file != nullptr;
}

std::vector<CTLLogLine> CTLLogFollower::read() {
    std::vector<CTLLogLine> lines;
    if (m_file || open()) readNew(lines);
    if (m_file && !hasPlace()) {
        // Renamed, or removed: what was written to it until now has been read.
        finish(lines);
        if (open()) readNew(lines);
    }
    return lines;
}

void CTLLogFollower::readNew(std::vector<CTLLogLine>& lines) {
    if (!isAsLeft(m_file.get())) followRotation(lines);
    const std::int64_t before = m_at;
    readRest(m_file.get(), lines);
    if (m_at == before) finish(lines);
}

// Whether the file still has what was read last, in its place.
bool CTLLogFollower::isAsLeft(std::FILE* file) const {
    if (m_mark.empty()) return m_at == 0;
    std::string mark(m_mark.size(), '\0');
    const auto begin = m_at - static_cast<std::int64_t>(m_mark.size());
    return readAt(file, begin, mark.data(), mark.size()) == mark.size() && mark == m_mark;
}

// Whether the path still leads to the file.
bool CTLLogFollower::hasPlace() const {
    struct stat open {};
    struct stat there {};
    if (fstat(fileno(m_file.get()), &open) != 0 || stat(m_path.c_str(), &there) != 0) return false;
    return open.st_dev == there.st_dev && open.st_ino == there.st_ino;
}

// It was copied and emptied: the copy has what was written before that.
void CTLLogFollower::followRotation(std::vector<CTLLogLine>& lines) {
    const TVLFilePtr copy = openLog(m_path.string() + ".1");
    if (copy && isAsLeft(copy.get())) readRest(copy.get(), lines);
    finish(lines);
    m_at = 0;
    m_mark.clear();
    m_torn.clear();
}

void CTLLogFollower::readRest(std::FILE* file, std::vector<CTLLogLine>& lines) {
    const std::int64_t enough = m_at + kMostOfALook;
    while (m_at < enough) {
        const std::size_t got = readAt(file, m_at, m_block.data(), m_block.size());
        if (got == 0) return;
        m_at += static_cast<std::int64_t>(got);
        const std::string bytes(m_block.data(), got);
        m_mark += bytes;
        if (m_mark.size() > kMark) m_mark.erase(0, m_mark.size() - kMark);
        take(bytes, lines);
    }
}

void CTLLogFollower::take(const std::string& bytes, std::vector<CTLLogLine>& lines) {
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
        const std::size_t room = kMostOfALine - std::min(m_torn.size(), kMostOfALine);
        m_torn.append(bytes, at, std::min(end - at, room));
        if (end < bytes.size()) takeLine(std::exchange(m_torn, {}), lines);
        at = end + 1;
    }
}

void CTLLogFollower::takeLine(const std::string& text, std::vector<CTLLogLine>& lines) {
    CTLLogLine line;
    if (CTLLogLine::parse(text, line)) {
        finish(lines);
        m_pending = std::move(line);
    } else if (m_pending && m_pending->text.size() < kMostOfALine) {
        m_pending->text += "\n" + text;
    }
}

void CTLLogFollower::finish(std::vector<CTLLogLine>& lines) {
    if (m_pending) lines.push_back(*std::move(m_pending));
    m_pending.reset();
}
