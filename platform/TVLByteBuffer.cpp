#include "TVLByteBuffer.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

TVLByteBuffer::TVLByteBuffer(std::size_t initialSize, std::size_t growthStep)
    : m_growthStep(std::max<std::size_t>(growthStep, 1)), m_storage(initialSize + 1) {}

TVLByteBuffer& TVLByteBuffer::operator<<(std::string_view text) {
    ensureCapacity(m_length + text.size());
    std::copy(text.begin(), text.end(), m_storage.begin() + static_cast<std::ptrdiff_t>(m_length));
    setLength(m_length + text.size());
    return *this;
}

TVLByteBuffer& TVLByteBuffer::operator<<(int value) {
    return *this << std::to_string(value);
}

void TVLByteBuffer::printf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int needed = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (needed > 0) {
        const auto size = static_cast<std::size_t>(needed);
        ensureCapacity(m_length + size);
        std::vsnprintf(data() + m_length, size + 1, format, again);
        m_length += size;
    }
    va_end(again);
}

void TVLByteBuffer::clear() {
    setLength(0);
}

void TVLByteBuffer::ensureCapacity(std::size_t size) {
    if (size <= capacity()) return;
    const std::size_t steps = (size - capacity() + m_growthStep - 1) / m_growthStep;
    // Whole steps as asked, yet at least half as much again: appending stays linear in the text.
    m_storage.resize(std::max(m_storage.size() + steps * m_growthStep, m_storage.size() * 3 / 2));
}

void TVLByteBuffer::setLength(std::size_t length) {
    m_length = std::min(length, capacity());
    m_storage[m_length] = '\0';
}
