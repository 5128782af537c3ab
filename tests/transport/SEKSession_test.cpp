#include "SEKSession.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "SEKErrors.h"

namespace {

std::string document(const std::string& content, const std::string& attributes = "") {
    return "<sessionConfigDocument" + attributes + ">" + content + "</sessionConfigDocument>";
}

std::string refusalOf(const char* text) {
    try {
        SEKSession::parse(text);
    } catch (const SEKFailure& failure) {
        return failure.what();
    }
    return "accepted";
}
std::string refusalOf(const std::string& text) {
    return refusalOf(text.c_str());
}

const std::string service = "<serviceID>gateway</serviceID>";
const std::string family = "<protocolFamily>IPv4</protocolFamily>";

TEST(SEKSessionTest, ReadsServiceAndFamily) {
    const SEKSession v4 = SEKSession::parse(document(service + family).c_str());
    EXPECT_EQ(v4.serviceID, "gateway");
    EXPECT_EQ(v4.family, AF_INET);
    const SEKSession v6 =
        SEKSession::parse(document(service + "<protocolFamily>IPv6</protocolFamily>").c_str());
    EXPECT_EQ(v6.family, AF_INET6);
}

TEST(SEKSessionTest, RefusesWhatIsNoSession) {
    EXPECT_EQ(refusalOf(nullptr), "bad sessionConfigDocument: no document");
    EXPECT_EQ(refusalOf("<other></other>"), "bad sessionConfigDocument: root element is other");
    EXPECT_EQ(refusalOf(document(service)), "bad sessionConfigDocument: no protocolFamily");
    EXPECT_EQ(refusalOf(document(family)), "bad sessionConfigDocument: no serviceID");
    EXPECT_EQ(refusalOf(document("<serviceID> </serviceID>" + family)),
              "bad sessionConfigDocument: no serviceID");
    EXPECT_EQ(refusalOf(document(service + service + family)),
              "bad sessionConfigDocument: element serviceID given twice");
    EXPECT_EQ(refusalOf("<sessionConfigDocument>"),
              "bad sessionConfigDocument: document not well-formed, line 1, column 24: no element found");
}

TEST(SEKSessionTest, RefusesOtherFamilies) {
    for (const char* name : {"IPv5", "ipv4", "IPX", "AF_INET"})
        EXPECT_EQ(
            refusalOf(document(service + "<protocolFamily>" + name + "</protocolFamily>")),
            std::string("bad sessionConfigDocument: protocolFamily is \"") + name + "\", not IPv4 or IPv6");
}

TEST(SEKSessionTest, ChecksTheNamespaceWhereOneIsGiven) {
    const std::string content = service + family;
    EXPECT_EQ(refusalOf(document(content, " xmlns=\"http://schemas.velmora.example/sek/crypto/1/\"")),
              "accepted");
    EXPECT_EQ(refusalOf(document(content, " xmlns=\"urn:x\"")),
              "bad sessionConfigDocument: unknown namespace urn:x");
}

TEST(SEKSessionTest, APrefixOfTheSchemaWillDo) {
    EXPECT_EQ(refusalOf("<c:sessionConfigDocument xmlns:c=\"http://schemas.velmora.example/sek/crypto/1/\">"
                        "<c:serviceID>gateway</c:serviceID><c:protocolFamily>IPv6</c:protocolFamily>"
                        "</c:sessionConfigDocument>"),
              "accepted");
    EXPECT_EQ(refusalOf("<c:sessionConfigDocument xmlns:c=\"urn:x\"/>"),
              "bad sessionConfigDocument: unknown namespace urn:x");
}

TEST(SEKSessionTest, UnknownElementsArePassedOver) {
    EXPECT_EQ(refusalOf(document(service + "<more>x</more><more/>" + family)), "accepted");
}

TEST(SEKSessionTest, ServiceDocumentsHoldAService) {
    EXPECT_NO_THROW(checkServiceDocument("<d><serviceID>BTSV</serviceID></d>", "d"));
    EXPECT_THROW(checkServiceDocument("<d></d>", "d"), SEKFailure);
    EXPECT_THROW(checkServiceDocument("<e><serviceID>BTSV</serviceID></e>", "d"), SEKFailure);
    EXPECT_NO_THROW(checkServiceDocument("<d><serviceID>BTSV</serviceID><x/></d>", "d"));
    EXPECT_THROW(checkServiceDocument(nullptr, "d"), SEKFailure);
}

}  // namespace
