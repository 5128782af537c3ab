// A child for the bootstrap service to start, ping and stop; see --help.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "SampleDialogue.h"
#include "SampleLog.h"
#include "SampleOptions.h"
#include "SampleServer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTurnMs = 100;  // how late a signal or the last command may be noticed

std::atomic<int> endSignal{0};  // the signal that asked for the end; 0: none
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

void noteSignal(int signal) {
    endSignal = signal;
}

void setHandler(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

// The bootstrap service hands down SIGINT, SIGQUIT, SIGTERM and SIGHUP blocked, so a program that wants to
// end on them must open them itself.
void takeCharge(bool stubborn) {
    setHandler(SIGPIPE, SIG_IGN);  // a client that goes while being answered is no reason to end
    sigset_t ending{};
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&ending, signal);
        setHandler(signal, stubborn && signal == SIGTERM ? SIG_IGN : noteSignal);
    }
    pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
}

// The file with the process id, for as long as the program listens.
class PidFile {
  public:
    explicit PidFile(const std::string& path) : m_path(path) {
        if (m_path.empty()) return;
        // Written aside and moved into place, so that a reader never sees half a number.
        const std::string aside = m_path + "." + std::to_string(getpid());
        std::ofstream file(aside);
        file << getpid() << '\n';
        file.close();
        if (!file || std::rename(aside.c_str(), m_path.c_str()) != 0) {
            throw std::runtime_error("cannot write " + m_path + ": " + std::strerror(errno));
        }
    }
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;
    ~PidFile() {
        if (!m_path.empty()) unlink(m_path.c_str());
    }

  private:
    const std::string m_path;
};

class Dispatcher {
  public:
    Dispatcher(const SampleOptions& options, SampleLog& log)
        : m_options(options),
          m_log(log),
          m_dialogue(options, log),
          m_server(
              {options.listenUri, options.service, options.idleLimitSec},
              [this](const std::string& peer, const std::string& received) {
                  return m_dialogue.reply(peer, received);
              },
              log) {}

    void run() {
        takeCharge(m_options.stubborn);
        if (!listen()) return;
        const PidFile pidFile(m_options.pidFile);
        while (!isToEnd())
            m_server.turn(kTurnMs);
        if (endSignal != 0) m_log.line("received signal " + std::to_string(endSignal) + ", ending");
        m_server.endConnections();
        m_log.line("ended");
    }

  private:
    // False when told to end while waiting for the port.
    bool listen() {
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(m_options.waitForPortSec);
        while (!m_server.listen()) {
            if (Clock::now() >= deadline) {
                throw std::runtime_error("cannot listen on " + m_options.listenUri + ": the port is in use");
            }
            m_server.turn(kTurnMs);
            if (isToEnd()) return false;
        }
        return true;
    }

    bool isToEnd() const { return endSignal != 0 || m_dialogue.finished(); }

    const SampleOptions& m_options;
    SampleLog& m_log;
    SampleDialogue m_dialogue;
    SampleServer m_server;
};

int runDispatcher(const SampleOptions& options) {
    SampleLog log;
    try {
        log.openFile(options.logFile);
        Dispatcher(options, log).run();
        return 0;
    } catch (const std::runtime_error& error) {
        log.line(error.what());
        std::cerr << "sampledispatcher: " << error.what() << '\n';
        return 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const SampleOptions options = SampleOptions::parse(argc, argv);
        if (!options.help) return runDispatcher(options);
        std::cout << SampleOptions::helpText();
        return 0;
    } catch (const std::invalid_argument& error) {
        std::cerr << "sampledispatcher: " << error.what() << "\nTry sampledispatcher --help.\n";
        return 2;
    }
}
