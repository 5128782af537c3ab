// Failures inside the library, and the detail texts that callers see.
//
// Purpose: one exception type that carries a result code and its detail text from the place of the failure
//   to the entry point, and the words of the system and of OpenSSL for such a text.
// Ownership: a SEKFailure owns its text; copyText returns heap memory that SEK_CryptoFree releases.
// Threads: everything here may be used by any thread; tlsReason reads the calling thread's own error queue.
// Units: none.
// Errors: copyText returns null when there is no memory; nothing else here fails.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

// A failed operation. It never leaves the library: the entry points turn it into a result and a detail text.
class SEKFailure : public std::runtime_error {
  public:
    explicit SEKFailure(const std::string& text, long code = -1) : std::runtime_error(text), m_code(code) {}
    long code() const noexcept { return m_code; }

  private:
    long m_code;
};

namespace SEKErrors {

// The system's words for an errno value.
std::string systemReason(int error);

// OpenSSL's words for the first cause in this thread's error queue, which is empty afterwards. "unknown
// error" when there is none.
std::string tlsReason();

// What an exception says, in a user's words.
const char* reasonOf(const std::exception& error) noexcept;

// A heap copy for the caller of an entry point.
char* copyText(const std::string& text) noexcept;

}  // namespace SEKErrors
