#include "CTLTerminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace {

bool wantsColour() {
    const char* const unwanted = std::getenv("NO_COLOR");
    if (unwanted != nullptr && *unwanted != '\0') return false;
    const char* const kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && kind != nullptr && std::string(kind) != "dumb";
}

const char* markOf(CTLColour colour) {
    switch (colour) {
        case CTLColour::Plain:
            return "";
        case CTLColour::Good:
            return "\033[32m";
        case CTLColour::Warning:
            return "\033[33m";
        case CTLColour::Bad:
            return "\033[31m";
        case CTLColour::Faint:
            return "\033[2m";
        case CTLColour::Bold:
            return "\033[1m";
    }
    return "";
}

}  // namespace

CTLTerminal::CTLTerminal() : CTLTerminal(std::cout, std::cerr, wantsColour()) {}

std::string CTLTerminal::painted(CTLColour colour, const std::string& text) const {
    if (!m_colour || colour == CTLColour::Plain) return text;
    return markOf(colour) + text + "\033[0m";
}

bool CTLTerminal::failed() {
    m_out.flush();
    return !m_out.good();
}

int CTLTerminal::columns() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}
