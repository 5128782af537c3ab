// A child for the tests of the real executable: notes down what it was given and does what it is told.
//
// fakechild <folder> [option...]; the folder is the test's view of it. Before anything else it writes there,
// each into a file of its own:
//   environ, args   as /proc/self has them
//   fds             one line per open descriptor: number, blank, what it is
// and then one line with its process id to "pids". Signals that arrive are noted in "signals", commands in
// "commands".
//
// Options:
//   ignoreTerm   notes termination signals but goes on
//   blocked      leaves the signal mask as it was inherited
//   exit         ends right after the notes
//   port=<n>     listens on 127.0.0.1; the file "answer" says what a command is answered with. An empty one:
//                nothing, the connection stays open. The word "close": nothing, and the connection is closed.
//                The command "SHUTDOWN" ends the process, unless ignoreTerm is given.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

// A child that everybody has forgotten ends by itself.
constexpr unsigned kLifetimeSec = 300;

constexpr int kBindAttempts = 250;

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void append(const fs::path& path, const std::string& line) {
    std::ofstream(path, std::ios::app) << line << '\n' << std::flush;
}

void noteStart(const fs::path& folder) {
    std::ofstream(folder / "environ") << contentOf("/proc/self/environ");
    std::ofstream(folder / "args") << contentOf("/proc/self/cmdline");
}

void noteDescriptors(const fs::path& folder) {
    std::ostringstream lines;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        std::error_code error;
        const fs::path target = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
        if (!error) lines << descriptor << ' ' << target.string() << '\n';
    }
    std::ofstream(folder / "fds") << lines.str();
}

class Child {
  public:
    Child(fs::path folder, const std::vector<std::string>& options) : m_folder(std::move(folder)) {
        for (const std::string& option : options) {
            if (option == "ignoreTerm") m_ignoresTerm = true;
            if (option == "blocked") m_keepsMask = true;
            if (option == "exit") m_exits = true;
            if (option.rfind("port=", 0) == 0) m_port = std::atoi(option.c_str() + 5);
        }
    }

    int run() {
        noteDescriptors(m_folder);
        noteStart(m_folder);
        if (!m_keepsMask) awaitSignals();
        if (m_port != 0 && !listen()) return 1;
        append(m_folder / "pids", std::to_string(getpid()));
        if (m_exits) return 0;
        while (serve()) {
        }
        return 0;
    }

  private:
    // Takes signals as records, as a program of its own would unblock and handle them.
    void awaitSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2})
            sigaddset(&signals, signal);
        sigprocmask(SIG_SETMASK, &signals, nullptr);
        m_signals = signalfd(-1, &signals, SFD_CLOEXEC);
    }

    bool listen() {
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int yes = 1;
        setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(m_port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // A predecessor that was just killed may still hold the port.
        for (int attempt = 0; attempt < kBindAttempts; ++attempt) {
            if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return ::listen(m_listener, 8) == 0;
    }

    bool serve() {
        std::vector<pollfd> entries{{m_signals, POLLIN, 0}, {m_listener, POLLIN, 0}};
        for (const int connection : m_connections)
            entries.push_back({connection, POLLIN, 0});
        if (poll(entries.data(), entries.size(), -1) < 0) return errno == EINTR;
        if (entries[0].revents != 0 && !takeSignal()) return false;
        for (std::size_t i = 2; i < entries.size(); ++i) {
            if (entries[i].revents != 0 && !takeCommand(entries[i].fd)) return false;
        }
        if (entries[1].revents != 0) m_connections.push_back(accept(m_listener, nullptr, nullptr));
        return true;
    }

    bool takeSignal() {
        signalfd_siginfo info{};
        if (read(m_signals, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return false;
        append(m_folder / "signals", std::to_string(info.ssi_signo));
        return m_ignoresTerm || info.ssi_signo != static_cast<std::uint32_t>(SIGTERM);
    }

    bool takeCommand(int connection) {
        std::array<char, 256> buffer{};
        const ssize_t got = recv(connection, buffer.data(), buffer.size(), 0);
        if (got <= 0) {
            drop(connection);
            return true;
        }
        const std::string command(buffer.data(), static_cast<std::size_t>(got));
        append(m_folder / "commands", command);
        const std::string answer = contentOf(m_folder / "answer");
        if (answer == "close") {
            drop(connection);
        } else if (!answer.empty()) {
            send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
        return m_ignoresTerm || command != "SHUTDOWN";
    }

    void drop(int connection) {
        close(connection);
        std::erase(m_connections, connection);
    }

    fs::path m_folder;
    bool m_ignoresTerm = false;
    bool m_keepsMask = false;
    bool m_exits = false;
    int m_port = 0;
    int m_signals = -1;
    int m_listener = -1;
    std::vector<int> m_connections;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    alarm(kLifetimeSec);
    return Child(argv[1], std::vector<std::string>(argv + 2, argv + argc)).run();
}
