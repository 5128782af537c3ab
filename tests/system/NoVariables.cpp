// A C library that has no memory for a further variable of the environment.
#include <cerrno>

extern "C" int putenv(char* /*variable*/) noexcept {
    errno = ENOMEM;
    return -1;
}
