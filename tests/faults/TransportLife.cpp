#include "TransportLife.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "SEK_Crypto_Interface.h"
#include "TransportFaults.h"
#include "TransportTest.h"

namespace fs = std::filesystem;
using AllocationSeam::Exempt;
using TransportFaults::inside;

namespace {

constexpr int kForEver = 1 << 30;

// One life's calls; the first that fails is the last, but for the end.
class Caller {
  public:
    Caller(TransportLife& life, const std::string& service)
        : m_life(life), m_session(sessionDocument("IPv4", service)) {}

    bool begin() {
        return note("initialize",
                    [&](char** details) {
                        return SEK_CryptoInitialize(text(initializeText), nullptr, details);
                    }) &&
               note("socket",
                    [&](char** details) { return SEK_Socket(&handle, text(m_session), nullptr, details); });
    }
    void close() {
        note("close", [&](char** details) { return SEK_CloseHandle(&handle, nullptr, details); });
    }
    void terminate() {
        const bool isTerminated = note("terminate", [&](char** details) {
            return SEK_CryptoTerminate(text(terminateText), nullptr, details);
        });
        // The next life begins with a library that has no settings yet.
        if (!isTerminated && m_life.steps.front().code == SEK_Ok)
            SEK_CryptoTerminate(text(terminateText), nullptr, nullptr);
    }
    void end() {
        close();
        terminate();
    }

    // A call that belongs to no handle.
    template <typename Call>
    bool note(const char* name, Call&& call) {
        char* details = nullptr;
        const long code = inside([&] { return call(&details); });
        return keep(name, code, details, nullptr);
    }
    // A call on a handle.
    template <typename Call>
    bool onHandle(const char* name, void* of, Call&& call) {
        const long code = inside([&] { return call(); });
        if (code >= 0) return keep(name, code, nullptr, of);
        char* details = nullptr;
        inside([&] { SEK_CryptoGetLastErrorDetails(of, nullptr, &details); });
        return keep(name, code, details, of);
    }
    template <typename Call>
    bool onHandle(const char* name, Call&& call) {
        return onHandle(name, handle, std::forward<Call>(call));
    }

    bool reach(const std::string& url) {
        const auto connectUrl = [&] {
            return onHandle("connect", [&] { return SEK_Connect_Url(handle, text(url), nullptr); });
        };
        if (connectUrl()) return true;
        return m_life.steps.back().code == SEK_HandshakePending && establish(handle) && connectUrl();
    }
    // Shakes hands for as long as the library asks for it.
    bool establish(void* of) {
        for (int turn = 0; turn < 3; ++turn) {
            onHandle("establish", of, [&] { return SEK_EstablishSecure(of, nullptr); });
            if (m_life.steps.back().code != SEK_CallAgain) break;
        }
        const bool isDone = m_life.steps.back().code == SEK_Ok;
        // Whoever asks again after a failure must not get what was refused.
        m_life.isConnected = isDone || SEK_EstablishSecure(of, nullptr) == SEK_Ok;
        return isDone;
    }
    bool describe(void* of) {
        char* description = nullptr;
        std::array<char, 16> operation{"describePeer"};
        const bool isDone = onHandle("describe", of, [&] {
            return SEK_SocketSecurityOp(of, operation.data(), &description, nullptr);
        });
        SEK_CryptoFree(description, nullptr);
        return isDone;
    }
    bool names(void* of) {
        sockaddr_storage address{};
        long length = sizeof address;
        return onHandle("local name", of, [&] { return SEK_GetSockName(of, &address, &length, nullptr); }) &&
               onHandle("peer's name", of, [&] { return SEK_GetPeerName(of, &address, &length, nullptr); });
    }
    bool options() {
        int value = 1;
        long length = sizeof value;
        return onHandle(
                   "set option",
                   [&] { return SEK_SetSockOpt(handle, SO_KEEPALIVE, &value, sizeof value, nullptr); }) &&
               onHandle("get option",
                        [&] { return SEK_GetSockOpt(handle, SO_KEEPALIVE, &value, &length, nullptr); });
    }
    bool limitReceiving() {
        const timeval limit{5, 0};
        return onHandle("limit",
                        [&] { return SEK_SetSockOpt(handle, SO_RCVTIMEO, &limit, sizeof limit, nullptr); });
    }
    bool random() {
        std::array<char, 16> bytes{};
        return onHandle("random", nullptr,
                        [&] { return SEK_GetRandomData(bytes.size(), bytes.data(), nullptr); });
    }
    bool send(void* of, const char* what) {
        long sent = 0;
        return onHandle("send", of, [&] {
            return SEK_Send(of, what, static_cast<long>(std::strlen(what)), 0, &sent, nullptr);
        });
    }
    bool poll(void* of) {
        SEK_Pollfd entry{of, SEK_Readable, 0};
        return note("poll", [&](char** details) { return SEK_Poll(&entry, 1, 5000, nullptr, details); }) &&
               (entry.revents & SEK_Readable) != 0;
    }
    bool receive(void* of, const char* expected) {
        std::array<char, 64> buffer{};
        long count = 0;
        return onHandle("receive", of,
                        [&] {
                            return SEK_Recv(of, buffer.data(), static_cast<long>(buffer.size()), 0, &count,
                                            nullptr);
                        }) &&
               std::string(buffer.data(), static_cast<std::size_t>(count)) == expected;
    }

    void* handle = nullptr;

  private:
    bool keep(const char* name, long code, char* details, void* of) {
        TransportLife::Step step{name, code, details != nullptr ? details : ""};
        SEK_CryptoFree(details, nullptr);
        // The copy may have found no memory; asked for once more, it is there.
        if (code == SEK_Failed && step.text.empty()) step.text = detailsOf(of);
        m_life.steps.push_back(step);
        return code == SEK_Ok;
    }

    TransportLife& m_life;
    std::string m_session;
};

// One that ends the test can only have come from the library.
void blockSigpipe() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

const TransportLife::Step* TransportLife::failure() const {
    for (const Step& step : steps) {
        if (step.code < 0 && step.code != SEK_HandshakePending && step.code != SEK_CallAgain) return &step;
    }
    return nullptr;
}

const char* nameOf(Way way) {
    static constexpr std::array names{
        "by name",    "by address",    "to a stranger", "to another host", "to another name",
        "to revoked", "to a bare one", "plain",         "serving",         "serving a stranger"};
    return names[static_cast<std::size_t>(way)];
}

bool isWrong(Way way) {
    return way == Way::ToStranger || way == Way::ToOther || way == Way::ToOtherName ||
           way == Way::ToRevoked || way == Way::ToBare || way == Way::ServingStranger;
}

TransportWorld::TransportWorld() {
    std::string pattern = (fs::temp_directory_path() / "faults-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder");
    m_root = pattern;
    m_folder = m_root / "configuration";
    fs::create_directories(m_root / "bin");
    fs::create_directories(m_folder / "hashed");
    fs::create_directories(m_folder / "other");
    fs::current_path(m_root / "bin");
    makeAuthorities();
    writeSettings();
}

TransportWorld::~TransportWorld() {
    fs::current_path("/");
    fs::remove_all(m_root);
}

void TransportWorld::makeAuthorities() {
    m_pki = std::make_unique<TestPki>(m_folder);
    m_otherPki = std::make_unique<TestPki>(m_folder / "other");
    m_server = m_pki->issueForLocalhost();
    m_client = m_pki->issueForClient();
    m_strangeClient = m_otherPki->issueForClient();
    const TestPki::Issued revoked = m_pki->issueForLocalhost("revoked");
    const fs::path list = m_pki->revocationList(revoked.certificate);
    m_right = peerWith(m_server);
    m_stranger = peerWith(m_otherPki->issueForLocalhost());
    TestPki::Request elsewhere;
    elsewhere.name = "elsewhere";
    elsewhere.alternatives = {"DNS:elsewhere.example", "IP:192.0.2.1"};
    m_other = peerWith(m_pki->issue(elsewhere));
    m_revoked = peerWith(revoked);
    m_bare = peerWith(m_server, "ECDHE-ECDSA-NULL-SHA:@SECLEVEL=0");
    m_old = peerWith(m_server, "DEFAULT");
    m_plain = std::make_unique<TestPeer>(
        [](PeerConnection& peer) {
            const Exempt here;
            if (!peer.read().empty()) peer.write("READY");
            peer.waitForEnd();
        },
        kForEver);
    // As a folder of authorities has them, with an authority that nobody needs.
    const TestPki unneeded(m_folder, "unneeded");
    fs::copy_file(unneeded.authorityFile(), m_folder / "hashed" / (unneeded.nameHash() + ".0"));
    fs::copy_file(list, m_folder / "revoked.crl");
    fs::copy_file(list, m_folder / "hashed" / (m_pki->nameHash() + ".r0"));
    fs::copy_file(unneeded.authorityFile(), m_folder / "store.pem");
}

std::unique_ptr<TestPeer> TransportWorld::peerWith(const TestPki::Issued& identity, const char* suites) {
    const PeerContext context = serverContext(identity);
    if (suites != nullptr) {
        SSL_CTX_set_cipher_list(context.get(), suites);
        SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION);
    }
    return std::make_unique<TestPeer>(
        [this, context](PeerConnection& peer) {
            const Exempt here;
            if (!peer.acceptTls(context)) return;
            if (!peer.read().empty()) {
                m_gotData = true;
                peer.write("READY");
            }
            peer.closePolitely();
        },
        kForEver);
}

void TransportWorld::writeSettings(const char* change) const {
    const std::string folder = m_folder.string();
    std::ofstream(m_folder / "more.cnf") << "[included]\nMinProtocol = TLSv1.2\n";
    std::ofstream(m_folder / "sek.cnf")
        << "folder = " << folder << "\n.include $(folder)/more.cnf\n[gateway]\nVerifyCAFile = " << folder
        << "/authority.pem\nVerifyCAPath = " << folder << "/hashed\nVerifyCAStore = file:" << folder
        << "/store.pem\nCRLFile = " << folder
        << "/revoked.crl\nCRLCheck = leaf\nCertificate = " << m_client.certificate.string()
        << "\nPrivateKey = " << m_client.key.string() << "\n"
        << change << "[bare]\nVerifyCAFile = " << folder
        << "/authority.pem\nCipherString = ECDHE-ECDSA-NULL-SHA:@SECLEVEL=0\nMaxProtocol = TLSv1.2"
        << "\n[system]\nMinProtocol = TLSv1.2\n[server]\nCertificate = " << m_server.certificate.string()
        << "\nPrivateKey = " << m_server.key.string() << "\nVerifyMode = Require\nVerifyCAFile = " << folder
        << "/authority.pem\n";
    // The system's trust store, as the environment names it.
    setenv("SSL_CERT_FILE", m_pki->authorityFile().c_str(), 1);
    setenv("SSL_CERT_DIR", (folder + "/hashed").c_str(), 1);
}

TransportLife TransportWorld::live(Way way) {
    TransportLife life;
    m_gotData = false;
    std::thread([&] {
        const Exempt here;
        if (way == Way::Serving || way == Way::ServingStranger)
            serve(life, way);
        else
            connect(life, way);
    }).join();
    life.peerGotData = m_gotData;
    return life;
}

const TestPeer& TransportWorld::peerFor(Way way) const {
    switch (way) {
        case Way::ToStranger:
            return *m_stranger;
        case Way::ToOther:
        case Way::ToOtherName:
            return *m_other;
        case Way::ToRevoked:
            return *m_revoked;
        case Way::ToBare:
            return *m_bare;
        case Way::Plain:
            return *m_plain;
        default:
            return *m_right;
    }
}

void TransportWorld::connect(TransportLife& life, Way way) {
    Caller caller(life, way == Way::ByAddress ? "system" : way == Way::ToBare ? "bare" : "gateway");
    const bool isByAddress = way == Way::ByAddress || way == Way::ToOther || way == Way::Plain;
    const std::string url =
        peerFor(way).url(way == Way::Plain ? "tcp" : "https", isByAddress ? "127.0.0.1"
                                                              : way == Way::ToOtherName
                                                                  ? "a.name.without.a.certificate.localhost"
                                                                  : "localhost");
    life.isAnswered = caller.begin() && caller.options() && caller.reach(url) &&
                      caller.names(caller.handle) && caller.random() &&
                      (way == Way::Plain || caller.describe(caller.handle)) &&
                      caller.send(caller.handle, "PING") && caller.poll(caller.handle) &&
                      caller.receive(caller.handle, "READY");
    caller.end();
}

bool TransportWorld::reaches(const TestPeer& peer) const {
    TransportLife life;
    Caller caller(life, "gateway");
    const bool isReached = caller.begin() && caller.reach(peer.url("https", "localhost"));
    caller.end();
    return isReached;
}

TransportWorld::Renewal TransportWorld::renew(Way way, const std::function<void()>& arm,
                                              const std::function<void()>& disarm) {
    Renewal renewal;
    m_gotData = false;
    std::thread([&] {
        const Exempt here;
        TransportLife before;
        // The library stays initialised, and has settings, until the end.
        Caller first(before, "gateway");
        renewal.isBegun = first.begin() && first.reach(m_right->url("https", "localhost"));
        first.close();
        writeSettings("MinProtocol = TLSv1.3\n");
        arm();
        connect(renewal.life, way);
        disarm();
        renewal.life.peerGotData = m_gotData;
        renewal.isForgotten = !reaches(*m_right);
        renewal.isRenewed = !reaches(*m_old);
        first.terminate();
        writeSettings();
    }).join();
    return renewal;
}

void TransportWorld::serve(TransportLife& life, Way way) {
    Caller caller(life, "server");
    std::string url = "tls://127.0.0.1:0";
    const bool isListening = caller.begin() && caller.limitReceiving() && caller.onHandle("bind", [&] {
        return SEK_Bind_Url(caller.handle, text(url), nullptr);
    }) && caller.onHandle("listen", [&] { return SEK_Listen(caller.handle, 4, nullptr); });
    if (isListening) connectWhileServing(life, caller.handle, way);
    caller.end();
}

void TransportWorld::connectWhileServing(TransportLife& life, void*& handle, Way way) {
    sockaddr_storage any{};
    long length = sizeof any;
    if (SEK_GetSockName(handle, &any, &length, nullptr) != SEK_Ok) return;
    sockaddr_in address{};
    std::memcpy(&address, &any, sizeof address);
    const TestPki::Issued& identity = way == Way::Serving ? m_client : m_strangeClient;
    std::thread client([this, port = ntohs(address.sin_port), &identity] {
        const Exempt here;
        blockSigpipe();
        PeerConnection connection(connectPlain(port));
        const PeerContext context = clientContext(m_pki->authorityFile());
        SSL_CTX_use_certificate_chain_file(context.get(), identity.certificate.c_str());
        SSL_CTX_use_PrivateKey_file(context.get(), identity.key.c_str(), SSL_FILETYPE_PEM);
        if (!connection.connectTls(context, "localhost")) return;
        if (connection.write("PING") && connection.read() == "READY") m_gotData = true;
        connection.closePolitely();
    });
    Caller caller(life, "server");
    void* accepted = nullptr;
    sockaddr_storage peer{};
    long peerLength = sizeof peer;
    if (caller.onHandle("accept", handle,
                        [&] { return SEK_Accept(handle, &accepted, &peer, &peerLength, nullptr); }))
        life.isAnswered = caller.establish(accepted) && caller.names(accepted) && caller.describe(accepted) &&
                          caller.poll(accepted) && caller.receive(accepted, "PING") &&
                          caller.send(accepted, "READY");
    caller.note("close", [&](char** details) { return SEK_CloseHandle(&accepted, nullptr, details); });
    // A client that was not accepted is let go by the listener's end.
    caller.note("close", [&](char** details) { return SEK_CloseHandle(&handle, nullptr, details); });
    client.join();
}
