// Any bytes as what a peer sends and then ends: to a TLS client, to a TLS server, and over a plain connection. The first
// byte chooses which. Since the random numbers are always the same, what a real server once answered is an answer to this
// client, too.

#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "FuzzTarget.h"
#include "FuzzTls.h"
#include "SEKErrors.h"
#include "SEKSocket.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;

namespace {

using Step = SEKTlsStream::Step;

// Whatever is sent is there and then the end, so each step but the last has something to read.
constexpr int kMostSteps = 1000;

void handshake(SEKTlsStream& stream) {
    for (int steps = 0; !stream.isEstablished(); ++steps) {
        require(steps < kMostSteps, "a handshake comes to its end");
        stream.handshake();
    }
}

void readAll(SEKTlsStream& stream) {
    std::array<char, 512> block{};
    for (int steps = 0; steps < kMostSteps; ++steps) {
        std::size_t received = 0;
        const Step step = stream.read(block.data(), block.size(), received);
        require(received <= block.size(), "no more is read than there is room");
        if (step == Step::EndOfStream) return;
    }
    require(false, "a stream comes to its end");
}

std::string reasonOf(SEKTlsStream& stream) {
    try {
        handshake(stream);
        readAll(stream);
        return "";
    } catch (const SEKFailure& failure) {
        return failure.what();
    }
}

void checkTls(SEKRole role, const std::string& bytes) {
    const FuzzTls::Connection connection;
    SEKTlsStream stream(FuzzTls::context(role), connection.here(), role);
    if (role == SEKRole::Client) stream.expectPeer("localhost");
    connection.send(bytes);
    connection.sendEnd();
    const std::string reason = reasonOf(stream);
    if (!reason.empty()) {
        FuzzTls::checkReason(reason);
        requireSame(reason, reasonOf(stream), "what has failed once fails ever after");
    }
    stream.sayGoodbye();
}

SEKAddress somebody() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    return {reinterpret_cast<const sockaddr*>(&address), sizeof address};
}

// A block is as long as the caller's room at most; the bytes are those that were sent, in their order.
void checkPlain(std::size_t room, const std::string& bytes) {
    FuzzTls::Connection connection;
    SEKSocket socket({"gateway", AF_INET}, connection.releaseHere(), somebody(), false);
    connection.send(bytes);
    connection.sendEnd();
    std::string all;
    std::string block(room, '\0');
    short events = 0;
    require(!socket.hasInput(events) && events != 0, "a plain socket is looked at by the system");
    for (std::size_t received = 1; received > 0;) {
        received = socket.receive(block.data(), block.size());
        require(received <= room, "no more is read than there is room");
        all.append(block, 0, received);
    }
    requireSame(bytes, all, "what was sent is received");
    std::size_t sent = 0;
    socket.send(bytes.data(), bytes.size(), sent);
    requireSame(bytes, connection.takeSent(), "what is sent arrives");
    require(sent == bytes.size(), "and is counted");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    FuzzTls::context(SEKRole::Client);
    FuzzTls::beginRandom();
    const std::string bytes = FuzzTarget::textOf(data + 1, size - 1);
    const FuzzTarget::NothingLeftOpen check;
    switch (data[0] & 3U) {
        case 0:
            checkPlain(1 + (data[0] >> 2U), bytes);
            break;
        case 1:
            checkTls(SEKRole::Server, bytes);
            break;
        default:
            checkTls(SEKRole::Client, bytes);
    }
    return 0;
}
