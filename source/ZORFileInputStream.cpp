#include "ZORFileInputStream.h"

ZORFileInputStream::ZORFileInputStream() = default;

ZORFileInputStream::ZORFileInputStream(const char* path)
    : TVLFileStream(path == nullptr ? nullptr : TVLFile::openDocument(path)) {}

ZORFileInputStream::~ZORFileInputStream() {
    try {
        ZORFileInputStream::close();
    } catch (...) {
        // A file that cannot be closed properly has been read all the same.
    }
}

int ZORFileInputStream::open(const char* path) {
    close();
    if (path == nullptr) return 0;
    take(TVLFile::openDocument(path));
    return isOpen();
}
