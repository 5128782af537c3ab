#include "TVLCrypto.h"

#include <dlfcn.h>

#include <type_traits>

#include "TVLFmDir.h"
#include "TVLOs.h"

namespace {

#define TVL_NAME(name, parameters, arguments, details) #name,
constexpr std::array kEntryNames{SEK_ENTRY_POINTS(TVL_NAME)};
#undef TVL_NAME

#define TVL_INDEX(name, parameters, arguments, details) kIndex_##name,
enum EntryIndex : std::size_t { SEK_ENTRY_POINTS(TVL_INDEX) };
#undef TVL_INDEX

// The list says of each entry point what its declaration says.
#define TVL_SAME_TYPE(name, parameters, arguments, details) \
    static_assert(std::is_same_v<decltype(::name), long parameters>);
SEK_ENTRY_POINTS(TVL_SAME_TYPE)
#undef TVL_SAME_TYPE

// The result of a member whose entry point is not there.
long missing(char** details) {
    static char empty[] = "";
    if (details != nullptr) *details = empty;
    return -1;
}

}  // namespace

TVLCrypto::TVLCrypto(const char* libraryName) {
    open(libraryName);
}

TVLCrypto::~TVLCrypto() = default;

int TVLCrypto::open(const char* libraryName) {
    if (m_handle == nullptr) tryOpen(libraryName);
    if (m_handle == nullptr) return 1;
    for (std::size_t entry = 0; entry < kEntryCount; ++entry) {
        m_entries[entry] = TVLOs::current().dlsym(m_handle, kEntryNames[entry]);
        if (m_entries[entry] != nullptr) continue;
        close();
        return 0;
    }
    return 1;
}

int TVLCrypto::tryOpen(const char* libraryName) {
    const std::string fileName = std::string("lib") + libraryName + ".so";
    m_handle = TVLOs::current().dlopen(TVLFmDir::resolveEffectivePath(fileName).c_str(), RTLD_LAZY);
    return isOpen();
}

int TVLCrypto::close() {
    if (m_handle == nullptr) return 0;
    const int result = TVLOs::current().dlclose(m_handle);
    m_handle = nullptr;
    return result;
}

#define TVL_FORWARD(name, parameters, arguments, details)                               \
    long TVLCrypto::name parameters {                                                   \
        if (!has(kIndex_##name)) return missing(details);                               \
        return reinterpret_cast<decltype(&::name)>(m_entries[kIndex_##name]) arguments; \
    }
SEK_ENTRY_POINTS(TVL_FORWARD)
#undef TVL_FORWARD
