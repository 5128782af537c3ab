#include "ExternalProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace {

struct Channel {
    SEKDescriptor ours;
    SEKDescriptor theirs;
};

// A pair of sockets, since only those can be written to without SIGPIPE when the program has gone.
Channel makeChannel() {
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error("no channel to a program");
    return {SEKDescriptor(ends[0]), SEKDescriptor(ends[1])};
}

// A pipe, which programs may open once more by the name /dev/stderr; sockets refuse that.
Channel makePipe() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe from a program");
    return {SEKDescriptor(ends[0]), SEKDescriptor(ends[1])};
}

}  // namespace

ExternalProgram::ExternalProgram(const std::vector<std::string>& command, const std::string& folder)
    : m_parent(getpid()) {
    Channel input = makeChannel();
    Channel output = makePipe();
    m_process = fork();
    if (m_process < 0) throw std::runtime_error("cannot start " + command.front());
    if (m_process == 0) becomeProgram(command, folder, input.theirs.get(), output.theirs.get());
    m_input = std::move(input.ours);
    m_output = std::move(output.ours);
}

void ExternalProgram::becomeProgram(const std::vector<std::string>& command, const std::string& folder,
                                    int input, int output) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != m_parent) _exit(127);  // the test ended before it could be followed
    std::vector<std::string> copies = command;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& copy : copies)
        arguments.push_back(copy.data());
    arguments.push_back(nullptr);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    if (folder.empty() || chdir(folder.c_str()) == 0) execvp(arguments.front(), arguments.data());
    _exit(127);
}

ExternalProgram::~ExternalProgram() {
    if (m_exitCode.has_value()) return;
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

bool ExternalProgram::type(const std::string& input) const {
    const ssize_t count = send(m_input.get(), input.data(), input.size(), MSG_NOSIGNAL);
    return count == static_cast<ssize_t>(input.size());
}

void ExternalProgram::interrupt() const {
    if (!m_exitCode.has_value()) kill(m_process, SIGTERM);
}

std::string ExternalProgram::waitForLine(const std::string& words) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        const std::size_t place = m_words.find(words);
        const std::size_t end = place == std::string::npos ? place : m_words.find('\n', place);
        if (end != std::string::npos) {
            const std::size_t start = m_words.rfind('\n', place);
            return m_words.substr(start + 1, end - start - 1);  // npos + 1 is the beginning
        }
        if (!readMore(deadline)) return "";
    }
}

int ExternalProgram::waitForEnd() {
    if (m_exitCode.has_value()) return *m_exitCode;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (readMore(deadline))
        continue;
    int status = 0;
    if (waitpid(m_process, &status, 0) != m_process) throw std::runtime_error("a program was lost");
    m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return *m_exitCode;
}

// False at the end of the program's output, which is that of the program.
bool ExternalProgram::readMore(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd entry{m_output.get(), POLLIN, 0};
    const int ready = left.count() > 0 ? poll(&entry, 1, static_cast<int>(left.count())) : 0;
    if (ready < 0 && errno == EINTR) return true;
    if (ready <= 0) throw std::runtime_error("a program takes too long; it said: " + m_words);
    std::array<char, 4096> block{};
    const ssize_t count = read(m_output.get(), block.data(), block.size());
    if (count > 0) m_words.append(block.data(), static_cast<std::size_t>(count));
    return count > 0;
}
