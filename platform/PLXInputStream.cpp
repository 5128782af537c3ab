#include "PLXInputStream.h"

PLXInputStream::~PLXInputStream() = default;

int PLXInputStream::readFully(TVLByteBuffer& buffer, int count) {
    return readFully(buffer.data(), count);
}

int PLXInputStream::readFully(char* buffer, int count) {
    if (buffer == nullptr) return -1;
    int total = 0;
    while (total < count) {
        const int got = read(buffer + total, count - total);
        if (got < 1) break;
        total += got;
    }
    return total > 0 ? total : -1;
}

void PLXInputStream::unread(const char* /*bytes*/, int /*count*/) {
    throw "not implemented";
}

bool PLXInputStream::canTimeout() const {
    return false;
}

void PLXInputStream::setTimeout(int /*timeoutMs*/) {
    throw "not implemented";
}

int PLXInputStream::getTimeout() const {
    return -1;
}

bool PLXInputStream::canCancel() const {
    return false;
}
