#include "SEKDescriptor.h"

SEKStandardNumbers::SEKStandardNumbers() noexcept {
    for (std::size_t number = 0; number < m_places.size(); ++number) {
        // The system hands out the lowest number that is free.
        if (::fcntl(static_cast<int>(number), F_GETFD) < 0)
            m_places[number] = SEKDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
    }
}

SEKStandardNumbers::~SEKStandardNumbers() {
    const int error = errno;
    for (SEKDescriptor& place : m_places)
        place.reset();
    errno = error;
}

// Another thread may have let go of a number in between.
SEKDescriptor SEKDescriptor::moved(SEKDescriptor made) noexcept {
    if (!made.isOpen() || made.get() > STDERR_FILENO) return made;
    SEKDescriptor higher(::fcntl(made.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    const int error = errno;
    made.reset();
    errno = error;
    return higher;
}
