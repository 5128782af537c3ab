#include "SEKSocketBio.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "SEKErrors.h"

using SEKSocketBio::fruitlessLimitBytes;
using SEKSocketBio::stepLimitBytes;

namespace {

struct State {
    int descriptor = -1;
    bool atEnd = false;
    int error = 0;
    std::size_t readInStep = 0;
    std::size_t readInVain = 0;  // since the last progress
    bool isOverfed = false;
};

State& stateOf(BIO* bio) {
    return *static_cast<State*>(BIO_get_data(bio));
}

int finish(BIO* bio, ssize_t count, int retryFlag) {
    BIO_clear_retry_flags(bio);
    if (count >= 0) return static_cast<int>(count);
    if (errno == EAGAIN || errno == EINTR)
        BIO_set_flags(bio, retryFlag | BIO_FLAGS_SHOULD_RETRY);
    else
        stateOf(bio).error = errno;
    return -1;
}

int writeBytes(BIO* bio, const char* data, int length) {
    const ssize_t count = send(stateOf(bio).descriptor, data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    return finish(bio, count, BIO_FLAGS_WRITE);
}

int comeBackLater(BIO* bio) {
    BIO_clear_retry_flags(bio);
    BIO_set_flags(bio, BIO_FLAGS_READ | BIO_FLAGS_SHOULD_RETRY);
    return -1;
}

int refuseMore(BIO* bio) {
    BIO_clear_retry_flags(bio);
    stateOf(bio).isOverfed = true;
    return -1;
}

int readBytes(BIO* bio, char* buffer, int capacity) {
    State& state = stateOf(bio);
    if (state.readInVain >= fruitlessLimitBytes) return refuseMore(bio);
    if (state.readInStep >= stepLimitBytes) return comeBackLater(bio);
    const std::size_t room =
        std::min<std::size_t>(static_cast<std::size_t>(capacity), stepLimitBytes - state.readInStep);
    const ssize_t count = recv(state.descriptor, buffer, room, 0);
    if (count == 0) state.atEnd = true;
    if (count > 0) {
        state.readInStep += static_cast<std::size_t>(count);
        state.readInVain += static_cast<std::size_t>(count);
    }
    return finish(bio, count, BIO_FLAGS_READ);
}

long control(BIO* bio, int command, long, void*) {
    if (command == BIO_CTRL_FLUSH) return 1;  // nothing is buffered here
    if (command == BIO_CTRL_EOF) return stateOf(bio).atEnd ? 1 : 0;
    return 0;
}

int destroy(BIO* bio) {
    delete static_cast<State*>(BIO_get_data(bio));
    BIO_set_data(bio, nullptr);
    return 1;
}

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
struct MethodFreer {
    void operator()(BIO_METHOD* method) const { BIO_meth_free(method); }
};

[[noreturn]] void refuse() {
    throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
}

BIO_METHOD* makeMethod() {
    const int index = BIO_get_new_index();
    if (index < 0) refuse();
    std::unique_ptr<BIO_METHOD, MethodFreer> method(
        BIO_meth_new(index | BIO_TYPE_SOURCE_SINK, "socket without signals"));
    if (method == nullptr || BIO_meth_set_write(method.get(), writeBytes) != 1 ||
        BIO_meth_set_read(method.get(), readBytes) != 1 || BIO_meth_set_ctrl(method.get(), control) != 1 ||
        BIO_meth_set_destroy(method.get(), destroy) != 1)
        refuse();
    return method.release();
}

// Lives as long as the process: a connection may outlast the library's termination.
const BIO_METHOD* method() {
    static const BIO_METHOD* const instance = makeMethod();
    return instance;
}

}  // namespace

namespace SEKSocketBio {

BIO* create(int descriptor) {
    std::unique_ptr<BIO, BioFreer> bio(BIO_new(method()));
    if (bio == nullptr) refuse();
    BIO_set_data(bio.get(), new State{descriptor});
    BIO_set_init(bio.get(), 1);
    return bio.release();
}

void beginStep(BIO* bio) {
    stateOf(bio).readInStep = 0;
}

void noteProgress(BIO* bio) {
    stateOf(bio).readInVain = 0;
}

bool isOverfed(BIO* bio) {
    return stateOf(bio).isOverfed;
}

int lastError(BIO* bio) {
    return stateOf(bio).error;
}

}  // namespace SEKSocketBio
