#include "LinkSeam.h"

// The linker's --wrap=<call> fixes these names.
// NOLINTBEGIN(bugprone-reserved-identifier): they are the linker's choice
extern "C" {
char* __real_strdup(const char* text);
void* __real_calloc(std::size_t count, std::size_t size);
char* __wrap_strdup(const char* text);
void* __wrap_calloc(std::size_t count, std::size_t size);
}

namespace {

LinkSeam* installed = nullptr;

}  // namespace

char* __wrap_strdup(const char* text) {
    const LinkSeam* const seam = LinkSeam::current();
    return seam == nullptr ? __real_strdup(text) : seam->copy(text);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    const LinkSeam* const seam = LinkSeam::current();
    return seam == nullptr ? __real_calloc(count, size) : seam->zeroed(count, size);
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

char* LinkSeam::copy(const char* text) const {
    return m_uncopied == text ? nullptr : __real_strdup(text);
}

void* LinkSeam::zeroed(std::size_t count, std::size_t size) const {
    return m_failZeroedMemory ? nullptr : __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)
