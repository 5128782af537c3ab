#include "CTLNewFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CTLError.h"

CTLNewFile::CTLNewFile(const std::string& path) : m_path(path), m_name(path + ".XXXXXX") {
    m_file = TVLDescriptor(mkostemp(m_name.data(), O_CLOEXEC));
    if (m_file.isOpen()) return;
    m_name.clear();
    fail();
}

CTLNewFile::~CTLNewFile() {
    if (!m_name.empty()) unlink(m_name.c_str());
}

void CTLNewFile::fail() const {
    throw CTLError(CTLError::kFailed, m_path + ": " + std::strerror(errno));
}

void CTLNewFile::write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(m_file.get(), text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail();
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void CTLNewFile::take(mode_t rights) {
    if (fchmod(m_file.get(), rights) != 0 || std::rename(m_name.c_str(), m_path.c_str()) != 0) fail();
    m_name.clear();
}
