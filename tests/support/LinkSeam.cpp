#include "LinkSeam.h"

// The linker's --wrap=<call> fixes these names.
// NOLINTBEGIN(bugprone-reserved-identifier): they are the linker's choice
extern "C" {
void* __real_dlopen(const char* file, int mode);
char* __real_strdup(const char* text);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_dlopen(const char* file, int mode);
char* __wrap_strdup(const char* text);
void* __wrap_calloc(std::size_t count, std::size_t size);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
}

namespace {

LinkSeam* installed = nullptr;

}  // namespace

void* __wrap_dlopen(const char* file, int mode) {
    LinkSeam* const seam = LinkSeam::current();
    return seam == nullptr ? __real_dlopen(file, mode) : seam->load(file, mode);
}

char* __wrap_strdup(const char* text) {
    const LinkSeam* const seam = LinkSeam::current();
    return seam == nullptr ? __real_strdup(text) : seam->copy(text);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    const LinkSeam* const seam = LinkSeam::current();
    return seam == nullptr ? __real_calloc(count, size) : seam->zeroed(count, size);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    LinkSeam* const seam = LinkSeam::current();
    return seam == nullptr ? __real_pthread_create(thread, attributes, body, argument)
                           : seam->startThread(thread, attributes, body, argument);
}

LinkSeam::LinkSeam() {
    installed = this;
}

LinkSeam::~LinkSeam() {
    installed = nullptr;
}

LinkSeam* LinkSeam::current() {
    return installed;
}

void* LinkSeam::load(const char* file, int mode) {
    m_loads.push_back({file, mode});
    if (m_failLoads) return nullptr;
    return __real_dlopen(m_instead.empty() ? file : m_instead.c_str(), mode);
}

char* LinkSeam::copy(const char* text) const {
    return m_uncopied == text ? nullptr : __real_strdup(text);
}

void* LinkSeam::zeroed(std::size_t count, std::size_t size) const {
    return m_failZeroedMemory ? nullptr : __real_calloc(count, size);
}

int LinkSeam::startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    if (m_threadsUntilFailure-- == 0) return m_threadError;
    return __real_pthread_create(thread, attributes, body, argument);
}
// NOLINTEND(bugprone-reserved-identifier)
