// A program that was started without its standard streams.

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TransportTest.h"

namespace {

bool areStandardNumbersFree() {
    return fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
}

// The exit code tells the step that failed; 0 when the numbers stayed free through all of them.
int connectAndAccept(const std::string& scheme) {
    SekHandle listener;
    if (!areStandardNumbersFree()) return 1;
    const std::uint16_t port = listener.listen(scheme);
    SekHandle client;
    // The first attempt fails, and the second one needs a new descriptor.
    if (client.connectUrl(scheme + "://127.0.0.1:1") == SEK_Ok) return 2;
    const long connected = client.connectUrl(scheme + "://127.0.0.1:" + std::to_string(port));
    if (connected != SEK_Ok && connected != SEK_HandshakePending) return 3;
    if (!areStandardNumbersFree()) return 4;
    SekHandle accepted(listener.accept());
    if (accepted.get() == nullptr) return 5;
    return areStandardNumbersFree() ? 0 : 6;
}

using DescriptorsTest = TransportTest;

TEST_F(DescriptorsTest, SocketsNeverTakeTheNumbersOfTheStandardStreams) {
    for (const char* const scheme : {"tcp", "tls"}) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (const int number : {0, 1, 2})
                close(number);
            _exit(connectAndAccept(scheme));
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << scheme;
    }
}

}  // namespace
