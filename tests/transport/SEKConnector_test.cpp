#include "SEKConnector.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "SEKErrors.h"

namespace {

SEKAddress loopback(std::uint16_t port = 0) {
    return SEKAddress::resolve("127.0.0.1", port, AF_INET, SEKAddress::Use::Connect, SEKDeadline(-1)).front();
}

// A port that nobody else gets; connections to it are refused until it listens.
class SilentPort {
  public:
    SilentPort() : m_endpoint(AF_INET) { m_endpoint.bind(loopback()); }
    SEKAddress address() const { return m_endpoint.localAddress(); }
    std::string portText() const { return address().text().substr(address().text().rfind(':')); }
    void listen() const { ASSERT_EQ(::listen(m_endpoint.descriptor(), 4), 0); }

  private:
    SEKEndpoint m_endpoint;
};

// "" when it went well.
template <typename Work>
std::string failureOf(Work&& work) {
    try {
        work();
        return "";
    } catch (const SEKFailure& failure) {
        return failure.what();
    }
}

TEST(SEKConnectorTest, AnAddressThatRefusesIsNamedWithItsReason) {
    const SilentPort port;
    SEKEndpoint endpoint(AF_INET);
    EXPECT_EQ(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }),
              "cannot connect to " + port.address().text() + ": Connection refused");
}

TEST(SEKConnectorTest, AfterAFailureTheEndpointConnectsFromTheAddressItWasBoundTo) {
    const SilentPort port;
    SEKEndpoint endpoint(AF_INET);
    endpoint.bind(loopback());
    const std::string bound = endpoint.localAddress().text();
    EXPECT_NE(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }), "");
    port.listen();
    EXPECT_EQ(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }), "");
    EXPECT_EQ(endpoint.localAddress().text(), bound);
    EXPECT_EQ(endpoint.peerAddress().text(), port.address().text());
}

// Somebody else listens on the port meanwhile, so that it cannot be had.
TEST(SEKConnectorTest, AnAddressThatCannotBeHadForAWhileIsNotForgotten) {
    const SilentPort port;
    SEKEndpoint endpoint(AF_INET);
    endpoint.bind(loopback());
    const SEKAddress bound = endpoint.localAddress();
    EXPECT_NE(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }), "");
    port.listen();
    {
        SEKEndpoint intruder(AF_INET);
        intruder.bind(bound);
        ASSERT_EQ(::listen(intruder.descriptor(), 4), 0);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }),
                      "cannot bind to " + bound.text() + ": Address already in use");
            EXPECT_EQ(endpoint.localAddress().text(), bound.text());
        }
    }
    EXPECT_EQ(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }), "");
    EXPECT_EQ(endpoint.localAddress().text(), bound.text());
}

TEST(SEKConnectorTest, AfterAFailureTheEndpointHasItsOptions) {
    const SilentPort port;
    SEKEndpoint endpoint(AF_INET);
    const int on = 1;
    endpoint.setOption(SO_OOBINLINE, &on, sizeof on);
    EXPECT_NE(failureOf([&] { SEKConnector(endpoint).connect(port.address()); }), "");
    endpoint.prepareAttempt();
    int value = 0;
    socklen_t length = sizeof value;
    endpoint.getOption(SO_OOBINLINE, &value, length);
    EXPECT_EQ(value, 1);
}

TEST(SEKConnectorTest, TheAddressThatWasReachedIsTold) {
    const SilentPort port;
    port.listen();
    SEKEndpoint endpoint(AF_INET);
    const SEKUri uri = SEKUri::parse("tcp://two.example" + port.portText());
    EXPECT_EQ(SEKConnector(endpoint).connect(uri).text(), port.address().text());
}

TEST(SEKConnectorTest, AUriWithoutAPortIsRefused) {
    SEKEndpoint endpoint(AF_INET);
    EXPECT_EQ(failureOf([&] { SEKConnector(endpoint).connect(SEKUri::parse("tcp://127.0.0.1:0")); }),
              "cannot connect to 127.0.0.1:0: no port");
}

}  // namespace
