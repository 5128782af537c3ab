// The security library, loaded at run time.
//
// Purpose: finds libSEK_Crypto_Interface.so, looks its entry points up into a table, and forwards to them
//   under their own names.
// Ownership: holds the library while it is open. The destructor does not unload it: code of the library may
//   still be on its way out.
// Threads: opened and closed on the main thread; the forwarding members may be called from any thread.
// Units: as SEK_Crypto_Interface.h has them.
// Errors: a forwarding member without its entry point returns -1, and empty error details where it has them.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <utility>

#include "SEK_Crypto_Interface.h"
#include "SEK_EntryPoints.h"

class TVLCrypto {
  public:
#define TVL_COUNTED(name, parameters, arguments, details) +1
    static constexpr std::size_t kEntryCount = 0 SEK_ENTRY_POINTS(TVL_COUNTED);
#undef TVL_COUNTED

    explicit TVLCrypto(const char* libraryName);  // opens; ask isOpen() for the outcome
    TVLCrypto(const TVLCrypto&) = delete;
    TVLCrypto& operator=(const TVLCrypto&) = delete;
    virtual ~TVLCrypto();

    // 0 when the library lacks an entry point (it is unloaded again), otherwise 1. Deliberate: a library that
    // is not there gives 1 as well; see TVLCryptoTest.AMissingLibraryIsNoErrorOfOpen.
    int open(const char* libraryName);
    int tryOpen(const char* libraryName);  // one attempt to load "lib<name>.so"; 1 when it is loaded
    int isOpen() const {
        return m_handle != nullptr ? 1 : 0;
    }
    int close();  // what dlclose returns; 0 when nothing was open
    // Puts a function of the same type in the place of an entry point, in front of it for example, and gives back what
    // was there. `entry` counts from 0 in the order of the list.
    void* replaceEntry(std::size_t entry, void* function) {
        return std::exchange(m_entries[entry], function);
    }

    // The forwarding members, each with the name and the parameters of its entry point.
#define TVL_MEMBER(name, parameters, arguments, details) long name parameters;
    SEK_ENTRY_POINTS(TVL_MEMBER)
#undef TVL_MEMBER

  private:
    bool has(std::size_t entry) const {
        return m_handle != nullptr && m_entries[entry] != nullptr;
    }

    void* m_handle = nullptr;
    std::array<void*, kEntryCount> m_entries{};  // in the order of the list
};
