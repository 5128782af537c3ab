#include "TVLThrowable.h"

TVLThrowable::TVLThrowable(const char* message, const char* file, int line) : m_message(message) {
    addBackTrace(file, line);
}

TVLThrowable::~TVLThrowable() = default;

void TVLThrowable::addBackTrace(const char* file, int line) {
    m_backTrace.append(file).append(":").append(std::to_string(line)).append("\n");
}

TVLOutOfMemoryError::TVLOutOfMemoryError(const char* file, int line)
    : TVLThrowable("out of memory", file, line) {}
