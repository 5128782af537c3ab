// A whole exchange with a peer, from the socket to the close, through the security library, against the same
// exchange written by hand. The two take turns, since a shared machine changes its pace during a run, and each row
// gives the median of both in microseconds and the ratio of the medians. The time of a row is the library's.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DirectExchange.h"
#include "SEK_Crypto_Interface.h"
#include "TestPeer.h"
#include "TestPki.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

const std::string kCommand = "PING";
const std::string kAnswer = "READY";

void require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("benchmark: ") + what);
}

// An exchange as the service makes it.
class SekExchange {
  public:
    explicit SekExchange(std::string url) : m_url(std::move(url)) {}

    std::string run() {
        void* handle = nullptr;
        require(SEK_Socket(&handle, m_session.data(), nullptr, nullptr) == SEK_Ok, "socket");
        connect(handle);
        require(SEK_Send(handle, kCommand.data(), static_cast<long>(kCommand.size()), 0, nullptr, nullptr) ==
                    SEK_Ok,
                "send");
        SEK_Pollfd entry{handle, SEK_Readable, 0};
        require(SEK_Poll(&entry, 1, 5000, nullptr, nullptr) == SEK_Ok, "poll");
        std::array<char, 4096> block{};
        long count = 0;
        require(SEK_Recv(handle, block.data(), static_cast<long>(block.size()), 0, &count, nullptr) == SEK_Ok,
                "receive");
        require(SEK_CloseHandle(&handle, nullptr, nullptr) == SEK_Ok, "close");
        return {block.data(), static_cast<std::size_t>(count)};
    }

  private:
    void connect(void* handle) {
        const long result = SEK_Connect_Url(handle, m_url.data(), m_session.data());
        if (result == SEK_Ok) return;
        require(result == SEK_HandshakePending, "connect");
        while (SEK_EstablishSecure(handle, nullptr) == SEK_CallAgain)
            continue;
        require(SEK_Connect_Url(handle, m_url.data(), m_session.data()) == SEK_Ok, "handshake");
    }

    std::string m_url;
    std::string m_session =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><sessionConfigDocument "
        "xmlns=\"http://schemas.velmora.example/sek/crypto/1/\"><serviceID>gateway</serviceID>"
        "<protocolFamily>IPv4</protocolFamily></sessionConfigDocument>";
};

// A folder with certificates and settings, and the library initialised in it.
class World {
  public:
    World() {
        std::string pattern = (fs::temp_directory_path() / "transport-bench-XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr, "folder");
        m_root = pattern;
        for (const char* const folder : {"bin", "configuration"})
            fs::create_directory(m_root / folder);
        fs::current_path(m_root / "bin");
        m_pki = std::make_unique<TestPki>(m_root / "configuration");
        m_server = serverContext(m_pki->issueForLocalhost());
        m_client = clientContext(m_pki->authorityFile());
        SSL_CTX_set_session_cache_mode(m_client.get(), SSL_SESS_CACHE_OFF);
        std::ofstream("../configuration/sek.cnf")
            << "[gateway]\nVerifyCAFile = " << m_pki->authorityFile().string() << "\n";
        std::string document = "<initializeDocument><serviceID>BTSV</serviceID></initializeDocument>";
        require(SEK_CryptoInitialize(document.data(), nullptr, nullptr) == SEK_Ok, "initialise");
    }
    ~World() {
        std::string document = "<terminateDocument><serviceID>BTSV</serviceID></terminateDocument>";
        SEK_CryptoTerminate(document.data(), nullptr, nullptr);
        std::error_code error;
        fs::remove_all(m_root, error);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    const PeerContext& server() const { return m_server; }
    const PeerContext& client() const { return m_client; }

  private:
    fs::path m_root;
    std::unique_ptr<TestPki> m_pki;
    PeerContext m_server;
    PeerContext m_client;
};

const World& world() {
    static const World instance;
    return instance;
}

void answerOne(PeerConnection& connection, const PeerContext& context) {
    // Otherwise the answer waits behind the session tickets until the client has acknowledged them.
    const int on = 1;
    setsockopt(connection.descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (context != nullptr && !connection.acceptTls(context)) return;
    if (connection.read() != kCommand || !connection.write(kAnswer)) return;
    connection.waitForEnd();
    connection.closePolitely();
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <typename Exchange>
double secondsOf(Exchange&& exchange) {
    const Clock::time_point begin = Clock::now();
    require(exchange() == kAnswer, "wrong answer");
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

void compare(benchmark::State& state, bool isTls, const std::string& host) {
    const World& here = world();
    const PeerContext context = isTls ? here.server() : nullptr;
    const TestPeer peer([&](PeerConnection& connection) { answerOne(connection, context); },
                        std::numeric_limits<int>::max());
    SekExchange library(peer.url(isTls ? "https" : "http", host));
    const DirectExchange direct(host, peer.port(), isTls ? here.client().get() : nullptr);
    const auto runLibrary = [&] { return library.run(); };
    const auto runDirect = [&] { return direct.run(kCommand); };
    require(runLibrary() == runDirect(), "different answers");  // and whatever is made once is made

    std::vector<double> librarySec;
    std::vector<double> directSec;
    bool libraryFirst = false;
    for (auto step : state) {
        (void)step;
        libraryFirst = !libraryFirst;
        if (libraryFirst) librarySec.push_back(secondsOf(runLibrary));
        directSec.push_back(secondsOf(runDirect));
        if (!libraryFirst) librarySec.push_back(secondsOf(runLibrary));
        state.SetIterationTime(librarySec.back());
    }
    const double libraryMedian = median(librarySec);
    const double directMedian = median(directSec);
    state.counters["library_us"] = libraryMedian * 1e6;
    state.counters["direct_us"] = directMedian * 1e6;
    state.counters["ratio"] = libraryMedian / directMedian;
}

BENCHMARK_CAPTURE(compare, plain_address, false, "127.0.0.1")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(compare, plain_name, false, "localhost")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(compare, tls_address, true, "127.0.0.1")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(compare, tls_name, true, "localhost")->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    // OpenSSL's own socket writes raise it when a peer has gone.
    std::signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
