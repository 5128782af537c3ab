#include "TerminalProgram.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <utility>

TerminalProgram::TerminalProgram(const std::vector<std::string>& command, int columns) {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    int terminal = -1;
    m_process = forkpty(&terminal, nullptr, nullptr, &size);
    if (m_process == 0) {
        setenv("TERM", "xterm", 1);
        execvp(arguments.front(), arguments.data());
        _exit(127);
    }
    if (m_process < 0) throw std::runtime_error("no pseudo-terminal");
    m_terminal = SEKDescriptor(terminal);
}

TerminalProgram::~TerminalProgram() {
    m_terminal.reset();
    if (m_process < 0) return;
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

void TerminalProgram::type(const std::string& keys) const {
    if (write(m_terminal.get(), keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        throw std::runtime_error("the terminal takes no keys");
}

// False when the program has closed its side.
bool TerminalProgram::readMore(std::chrono::steady_clock::time_point deadline) {
    pollfd entry{m_terminal.get(), POLLIN, 0};
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) == 0)
        throw std::runtime_error("waited too long; shown until then: " + m_shown);
    std::array<char, 4096> block{};
    const ssize_t got = read(m_terminal.get(), block.data(), block.size());
    if (got > 0) m_shown.append(block.data(), static_cast<std::size_t>(got));
    return got > 0;
}

void TerminalProgram::waitFor(const std::string& words) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (m_shown.find(words) == std::string::npos) {
        if (!readMore(deadline)) throw std::runtime_error("ended without \"" + words + "\": " + m_shown);
    }
}

int TerminalProgram::waitForEnd() {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (readMore(deadline)) {
    }
    int status = 0;
    waitpid(std::exchange(m_process, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
