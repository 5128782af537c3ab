// Any bytes as a disturbed dialogue with a real TLS peer: what goes wrong on the way, then who does what. What is read is
// what was sent, in its order and no more; the stream ends when the peer says so and in no other way.
//
// The first byte: bit 0 TLS 1.2 in place of 1.3, bit 1 a peer with another host's name, and from bit 2 on the number of
// disturbances. Each has three bytes: a place in what the peer sends, and what is changed there; nothing: the end comes
// there. All others are commands.

#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FuzzTarget.h"
#include "FuzzTls.h"
#include "SEKDocument.h"
#include "SEKErrors.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;

namespace {

using Step = SEKTlsStream::Step;

constexpr std::size_t kMostDisturbances = 8;
constexpr std::size_t kMostCommands = 256;
constexpr int kMostSteps = 200;
constexpr const char* kHost = "localhost";

struct Disturbance {
    std::size_t place;
    char change;
};

struct SslFreer {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};

// What is left of the input.
class Bytes {
  public:
    Bytes(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}
    bool empty() const { return m_left == 0; }
    std::uint8_t take() {
        if (m_left == 0) return 0;
        --m_left;
        return *m_data++;
    }

  private:
    const std::uint8_t* m_data;
    std::size_t m_left;
};

// The other end: OpenSSL with its records in memory, and the way from there, on which they are disturbed.
class Peer {
  public:
    Peer(const FuzzTls::Connection& connection, int version, std::vector<Disturbance> disturbances)
        : m_ssl(SSL_new(FuzzTls::context(SEKRole::Server))),
          m_connection(connection),
          m_disturbances(std::move(disturbances)) {
        SSL_set_max_proto_version(m_ssl.get(), version);
        SSL_set_bio(m_ssl.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(m_ssl.get());
    }

    void shakeHands() {
        takeIn();
        SSL_do_handshake(m_ssl.get());
        giveOut();
    }
    void send(const std::string& data) {
        if (!isGood() || data.empty()) return;
        std::size_t written = 0;
        if (SSL_write_ex(m_ssl.get(), data.data(), data.size(), &written) == 1)
            m_sent += data.substr(0, written);
        giveOut();
    }
    std::string receive() {
        takeIn();
        std::string all;
        std::array<char, 512> block{};
        for (std::size_t got = 1; isGood() && got > 0;) {
            got = 0;
            if (SSL_read_ex(m_ssl.get(), block.data(), block.size(), &got) == 1)
                all.append(block.data(), got);
        }
        giveOut();
        return all;
    }
    void renewKeys(int kind) {
        if (isGood() && SSL_version(m_ssl.get()) == TLS1_3_VERSION) SSL_key_update(m_ssl.get(), kind);
        finish();
    }
    void giveTicket() {
        if (isGood() && SSL_version(m_ssl.get()) == TLS1_3_VERSION) SSL_new_session_ticket(m_ssl.get());
        finish();
    }
    void sayGoodbye() {
        if (!isGood()) return;
        m_saidGoodbye = true;
        SSL_shutdown(m_ssl.get());
        giveOut();
    }
    void sendRaw(const std::string& bytes) { pass(bytes); }
    void end() {
        m_hasEnded = true;
        m_connection.sendEnd();
    }

    const std::string& sent() const { return m_sent; }
    bool saidGoodbye() const { return m_saidGoodbye; }
    bool hasEnded() const { return m_hasEnded; }
    bool moved() { return std::exchange(m_moved, false); }

  private:
    bool isGood() const { return SSL_is_init_finished(m_ssl.get()) == 1 && !m_saidGoodbye; }
    void finish() {
        if (isGood()) SSL_do_handshake(m_ssl.get());
        giveOut();
    }
    void takeIn() {
        const std::string bytes = m_connection.takeSent();
        if (!bytes.empty())
            BIO_write(SSL_get_rbio(m_ssl.get()), bytes.data(), static_cast<int>(bytes.size()));
    }
    void giveOut() {
        BIO* const out = SSL_get_wbio(m_ssl.get());
        std::string bytes(BIO_ctrl_pending(out), '\0');
        if (!bytes.empty()) BIO_read(out, bytes.data(), static_cast<int>(bytes.size()));
        ERR_clear_error();
        pass(bytes);
    }
    void pass(std::string bytes) {
        if (m_hasEnded || bytes.empty()) return;
        const std::size_t end = disturb(bytes);
        m_passed += bytes.size();
        m_connection.send(bytes.substr(0, end));
        m_moved = true;
        if (end < bytes.size()) this->end();
    }
    // Where the bytes end.
    std::size_t disturb(std::string& bytes) const {
        std::size_t end = bytes.size();
        for (const auto& [place, change] : m_disturbances) {
            if (place < m_passed || place - m_passed >= bytes.size()) continue;
            bytes[place - m_passed] = static_cast<char>(bytes[place - m_passed] ^ change);
            if (change == 0) end = std::min(end, place - m_passed);
        }
        return end;
    }

    std::unique_ptr<SSL, SslFreer> m_ssl;
    const FuzzTls::Connection& m_connection;
    std::vector<Disturbance> m_disturbances;
    std::size_t m_passed = 0;
    std::string m_sent;
    bool m_saidGoodbye = false;
    bool m_hasEnded = false;
    bool m_moved = false;
};

// The end under test, and its promises.
class Dialogue {
  public:
    Dialogue(int version, bool isForAnother, std::vector<Disturbance> disturbances)
        : m_stream(FuzzTls::context(SEKRole::Client), m_connection.here(), SEKRole::Client),
          m_peer(m_connection, version, std::move(disturbances)),
          m_isForAnother(isForAnother) {
        m_stream.expectPeer(isForAnother ? "another.example" : kHost);
    }

    void run(Bytes& input) {
        try {
            handshake();
            require(!m_isForAnother, "a certificate for another host is refused");
            for (std::size_t count = 0; count < kMostCommands && !input.empty(); ++count)
                obey(input.take(), input);
            m_stream.sayGoodbye();
        } catch (const SEKFailure& failure) {
            FuzzTls::checkReason(failure.what());
            checkBroken(failure.what());
        }
    }

  private:
    void handshake() {
        for (int steps = 0; !m_stream.isEstablished(); ++steps) {
            require(steps < kMostSteps, "a handshake comes to its end");
            m_stream.handshake();
            m_peer.shakeHands();
            if (!m_stream.isEstablished() && !m_peer.moved() && !m_peer.hasEnded()) m_peer.end();
        }
        m_peer.shakeHands();
    }

    void obey(std::uint8_t command, Bytes& input) {
        switch (command % 10) {
            case 0:
                return m_peer.send(std::string(std::size_t{8} * input.take(),
                                               static_cast<char>('a' + m_peer.sent().size() % 26)));
            case 1:
                return m_peer.renewKeys(SSL_KEY_UPDATE_NOT_REQUESTED);
            case 2:
                return m_peer.renewKeys(SSL_KEY_UPDATE_REQUESTED);
            case 3:
                return m_peer.sayGoodbye();
            case 4:
                return m_peer.sendRaw(std::string(1, static_cast<char>(input.take())));
            case 5:
                return m_peer.end();
            case 6:
                return m_peer.giveTicket();
            case 7:
                return read(1U + input.take());
            case 8:
                return write(std::string(1U + input.take(), 'z'));
            default:
                return look();
        }
    }

    void read(std::size_t room) {
        std::string block(room, '\0');
        std::size_t received = 0;
        const Step step = m_stream.read(block.data(), room, received);
        if (step == Step::Done) take(block.substr(0, received));
        if (step == Step::EndOfStream) checkEnd();
    }
    void take(const std::string& block) {
        require(!block.empty(), "a block that is read is not empty");
        m_read += block;
        requireSame(m_peer.sent().substr(0, m_read.size()), m_read, "what is read is what was sent");
    }
    void checkEnd() const {
        require(m_peer.saidGoodbye(), "only the peer itself can end the stream");
        require(m_read == m_peer.sent(), "and not before all has been read");
    }
    void write(const std::string& data) {
        std::size_t sent = 0;
        if (m_stream.write(data.data(), data.size(), sent) != Step::Done) return;
        require(sent > 0 && sent <= data.size(), "what is sent is counted");
        m_written += sent;
        m_arrived += m_peer.receive().size();
        require(m_arrived <= m_written, "no more arrives than was sent");
    }
    void look() {
        if (m_stream.peek() == Step::Done)
            require(m_read.size() < m_peer.sent().size(), "what is announced is there");
        const SEKDocument description = SEKDocument::parse(m_stream.describePeer());
        requireSame("peerDescription", description.rootName(), "an established peer is described");
        require(description.children().count("protocol") == 1, "with its protocol");
    }

    void checkBroken(const std::string& reason) {
        try {
            m_stream.peek();
        } catch (const SEKFailure& again) {
            return requireSame(reason, again.what(), "what has failed once fails ever after");
        }
        require(false, "what has failed once fails ever after");
    }

    FuzzTls::Connection m_connection;
    SEKTlsStream m_stream;
    Peer m_peer;
    bool m_isForAnother;
    std::string m_read;
    std::size_t m_written = 0;
    std::size_t m_arrived = 0;
};

std::vector<Disturbance> disturbancesOf(std::size_t count, Bytes& input) {
    std::vector<Disturbance> all;
    for (; all.size() < std::min(count, kMostDisturbances) && !input.empty();) {
        const std::size_t high = input.take();
        const std::size_t place = high << 8U | input.take();
        all.push_back({place, static_cast<char>(input.take())});
    }
    return all;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzTls::context(SEKRole::Client);
    FuzzTls::beginRandom();
    const FuzzTarget::NothingLeftOpen check;
    Bytes input(data, size);
    const std::uint8_t first = input.take();
    const int version = (first & 1U) != 0 ? TLS1_2_VERSION : TLS1_3_VERSION;
    Dialogue dialogue(version, (first & 2U) != 0, disturbancesOf(first >> 2U, input));
    dialogue.run(input);
    return 0;
}
