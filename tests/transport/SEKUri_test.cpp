#include "SEKUri.h"

#include <gtest/gtest.h>

#include "SEKErrors.h"

namespace {

std::string refusalOf(const std::string& text) {
    try {
        SEKUri::parse(text);
    } catch (const SEKFailure& failure) {
        return failure.what();
    }
    return "accepted";
}

TEST(SEKUriTest, SchemesDecideAboutTlsAndDefaultPort) {
    EXPECT_FALSE(SEKUri::parse("http://host").isSecure());
    EXPECT_EQ(SEKUri::parse("http://host").port(), 80);
    EXPECT_TRUE(SEKUri::parse("https://host").isSecure());
    EXPECT_EQ(SEKUri::parse("https://host").port(), 443);
    EXPECT_FALSE(SEKUri::parse("tcp://host:9300").isSecure());
    EXPECT_TRUE(SEKUri::parse("tls://host:9300").isSecure());
    EXPECT_TRUE(SEKUri::parse("HTTPS://host").isSecure());
}

TEST(SEKUriTest, SchemesWithoutDefaultNeedAPort) {
    EXPECT_EQ(refusalOf("tcp://host"), "bad address \"tcp://host\": no port");
    EXPECT_EQ(refusalOf("tls://host/path"), "bad address \"tls://host/path\": no port");
}

TEST(SEKUriTest, PathQueryAndFragmentPlayNoPart) {
    for (const char* tail : {"", "/", "/dispatch", "/a:1/b", "?q=1:2", "#x"}) {
        const SEKUri uri = SEKUri::parse(std::string("https://localhost:9300") + tail);
        EXPECT_EQ(uri.host(), "localhost") << tail;
        EXPECT_EQ(uri.port(), 9300) << tail;
    }
}

TEST(SEKUriTest, BracketedAddressesLoseTheirBrackets) {
    EXPECT_EQ(SEKUri::parse("http://[::1]").host(), "::1");
    EXPECT_EQ(SEKUri::parse("http://[::1]").port(), 80);
    EXPECT_EQ(SEKUri::parse("http://[::1]:9300/x").port(), 9300);
    EXPECT_EQ(SEKUri::parse("http://[::1]:9300/x").authority(), "[::1]:9300");
}

TEST(SEKUriTest, ZonesMayBeWrittenEitherWay) {
    EXPECT_EQ(SEKUri::parse("http://[fe80::1%eth0]:80").host(), "fe80::1%eth0");
    EXPECT_EQ(SEKUri::parse("http://[fe80::1%25eth0]:80").host(), "fe80::1%eth0");
}

TEST(SEKUriTest, PortsReachFromZeroTo65535) {
    EXPECT_EQ(SEKUri::parse("http://h:65535").port(), 65535);
    EXPECT_EQ(SEKUri::parse("http://h:0").port(), 0);
    EXPECT_EQ(SEKUri::parse("http://h:").port(), 80);
    for (const char* port : {"65536", "-1", "+1", " 1", "1 ", "x", "1x", "99999999999"})
        EXPECT_EQ(refusalOf(std::string("http://h:") + port),
                  std::string("bad address \"http://h:") + port + "\": bad port");
}

TEST(SEKUriTest, RefusalsSayWhatIsWrong) {
    struct Refusal {
        std::string text;
        std::string reason;
    };
    const Refusal refusals[] = {{"", "no scheme"},
                                {"localhost:80", "no scheme"},
                                {"http:/host", "no scheme"},
                                {"ftp://host", "unknown scheme"},
                                {"://host", "unknown scheme"},
                                {"http://", "no host"},
                                {"http:///path", "no host"},
                                {"http://:80", "no host"},
                                {"http://::1", "an IPv6 address stands in brackets"},
                                {"http://a:1:2", "an IPv6 address stands in brackets"},
                                {"http://[::1", "no closing bracket"},
                                {"http://[]", "bad IPv6 address"},
                                {"http://[host]", "bad IPv6 address"},
                                {"http://[::1]x", "bad text after the IPv6 address"},
                                {"http://a b", "bad host name"},
                                {"http://.localhost", "bad host name"},
                                {"http://user@host", "bad host name"},
                                {"http://a\nb", "bad host name"},
                                {"http://a]b", "bad host name"}};
    for (const auto& [text, reason] : refusals)
        EXPECT_EQ(refusalOf(text), "bad address \"" + text + "\": " + reason);
}

TEST(SEKUriTest, OverlongNamesAreRefused) {
    EXPECT_EQ(SEKUri::parse("http://" + std::string(253, 'a')).host().size(), 253U);
    EXPECT_NE(refusalOf("http://" + std::string(254, 'a')).find("host name too long"), std::string::npos);
}

}  // namespace
