#include "ZORFileInputStream.h"

ZORFileInputStream::ZORFileInputStream() = default;

ZORFileInputStream::ZORFileInputStream(const char* path)
    : m_file(path == nullptr ? nullptr : TVLFile::open(path, "rb")) {}

ZORFileInputStream::~ZORFileInputStream() {
    try {
        ZORFileInputStream::close();
    } catch (...) {
        // A file that cannot be closed properly has been read all the same.
    }
}

int ZORFileInputStream::read(TVLByteBuffer& buffer, int count) {
    return read(buffer.data(), count);
}

int ZORFileInputStream::read(char* buffer, int count) {
    if (!m_file || buffer == nullptr || count < 1) return -1;
    const std::size_t got = std::fread(buffer, 1, static_cast<std::size_t>(count), m_file.get());
    return got > 0 ? static_cast<int>(got) : -1;
}

int ZORFileInputStream::read() {
    return m_file ? std::fgetc(m_file.get()) : -1;
}

void ZORFileInputStream::close() {
    m_file.reset();
}

bool ZORFileInputStream::canUnread() {
    return false;
}

int ZORFileInputStream::open(const char* path) {
    close();
    if (path == nullptr) return 0;
    m_file = TVLFile::open(path, "rb");
    return isOpen();
}

int ZORFileInputStream::isOpen() const {
    return m_file ? 1 : 0;
}
