// A file that is there whole, or not at all.
//
// Purpose: what is written goes into a new file beside the one that is meant, and takes its name when all of it is there: a
//   reader sees the old file or the new one, never a part.
// Ownership: owns the new file; without take() it goes with this object.
// Threads: one.
// Units: bytes.
// Errors: CTLError; the file that was there stays as it was.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "TVLDescriptor.h"

class CTLNewFile {
  public:
    explicit CTLNewFile(const std::string& path);
    ~CTLNewFile();
    CTLNewFile(const CTLNewFile&) = delete;
    CTLNewFile& operator=(const CTLNewFile&) = delete;

    void write(std::string_view text);
    void take(mode_t rights);

  private:
    [[noreturn]] void fail() const;

    std::string m_path;
    std::string m_name;  // until it has got its name
    TVLDescriptor m_file;
};
