// Whom a server believes: what a client shows and speaks against each VerifyMode, and against lists and versions.

#include <ostream>
#include <thread>

#include "PolicyTest.h"

namespace {

struct Mode {
    const char* settings;
    bool isAsked;     // for a certificate
    bool isRequired;  // to show one
};

#define POLICY_SERVER \
    "Certificate = ../configuration/server.pem\nPrivateKey = ../configuration/server.key\n" POLICY_TRUST

const Mode modes[] = {
    {POLICY_SERVER, false, false},
    {POLICY_SERVER "VerifyMode = None\n", false, false},
    {POLICY_SERVER "VerifyMode = Request\n", true, false},
    {POLICY_SERVER "VerifyMode = Peer\n", true, false},
    {POLICY_SERVER "VerifyMode = Require\n", true, true},
    {POLICY_SERVER "VerifyMode = Peer,Require\n", true, true},
};

// What a client shows; no file for none.
TestPki::Issued none(PolicyWorld&) {
    return {};
}
TestPki::Issued good(PolicyWorld& world) {
    return world.root().issueForClient();
}

struct Row {
    const char* name;
    const char* client;
    TestPki::Issued (*make)(PolicyWorld&);
    const char* refusal;  // where a certificate is asked for; "" when the client is believed
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class ServerTest : public PolicyTest {
  protected:
    static PeerContext client(const TestPki::Issued& identity) {
        PeerContext context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        SSL_CTX_set_security_level(context.get(), 0);
        SSL_CTX_set_cipher_list(context.get(), "ALL:COMPLEMENTOFALL");
        SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
        if (identity.key.empty()) return context;
        EXPECT_EQ(SSL_CTX_use_certificate_chain_file(context.get(), identity.certificate.c_str()), 1);
        EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context.get(), identity.key.c_str(), SSL_FILETYPE_PEM), 1);
        return context;
    }
    // What the library, as the server, makes of the client.
    static Outcome serve(const PeerContext& context) {
        SekHandle listener;
        const std::uint16_t port = listener.listen("https");
        std::thread peer([&] {
            PeerConnection connection(connectPlain(port));
            if (connection.connectTls(context, nullptr)) connection.waitForEnd();
        });
        SekHandle accepted(listener.accept());
        const long result = accepted.establish();
        const Outcome outcome{result, accepted.details()};
        accepted.close();
        peer.join();
        return outcome;
    }
};

class PolicyOfServers : public ServerTest, public testing::WithParamInterface<Row> {};

TEST_P(PolicyOfServers, HoldsInEachMode) {
    const Row& row = GetParam();
    const TestPki::Issued identity = row.make(world());
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const PeerContext context = speaking(client(identity), version, version);
        for (const Mode& mode : modes) {
            settle(mode.settings);
            const bool isMissed = identity.key.empty() && mode.isRequired;
            const char* const words = isMissed       ? "peer did not return a certificate"
                                      : mode.isAsked ? row.refusal
                                                     : "";
            judge(row.name, std::string(row.client) + (version == TLS1_2_VERSION ? ", TLS 1.2" : ", TLS 1.3"),
                  mode.settings, serve(context), *words == '\0' ? SEK_Ok : SEK_Failed, words);
        }
    }
}

TestPki::Issued requested(PolicyWorld& world, void (*change)(TestPki::Request&)) {
    TestPki::Request request;
    request.name = "client";
    request.purpose = TestPki::Purpose::Client;
    change(request);
    return world.root().issue(request);
}

const Row rows[] = {
    {"ClientShowsNone", "a client without a certificate", none, ""},
    {"ClientIsGood", "a client with a good certificate", good, ""},
    {"ClientIsUnknown", "a client of an authority that is not trusted",
     [](PolicyWorld& w) { return w.otherRoot("stranger").issueForClient(); },
     "unable to get local issuer certificate"},
    {"ClientOfAnImpostor", "a client of an authority of the trusted one's name",
     [](PolicyWorld& w) { return w.impostor().issueForClient(); }, "certificate signature failure"},
    {"ClientIsExpired", "a client whose certificate has expired",
     [](PolicyWorld& w) { return requested(w, [](TestPki::Request& r) { r.notAfterSec = -60; }); },
     "certificate has expired"},
    {"ClientIsEarly", "a client whose certificate is not yet valid",
     [](PolicyWorld& w) { return requested(w, [](TestPki::Request& r) { r.notBeforeSec = 1800; }); },
     "certificate is not yet valid"},
    {"ClientIsAServer", "a client with a server's certificate",
     [](PolicyWorld& w) {
         return requested(w, [](TestPki::Request& r) { r.purpose = TestPki::Purpose::Server; });
     },
     "certificate purpose"},
    {"ClientIsForAnything", "a client with a certificate without extendedKeyUsage",
     [](PolicyWorld& w) {
         return requested(w, [](TestPki::Request& r) { r.purpose = TestPki::Purpose::Unsaid; });
     },
     ""},
    {"ClientSignedItself", "a client that signed its certificate itself",
     [](PolicyWorld& w) { return requested(w, [](TestPki::Request& r) { r.isSelfSigned = true; }); },
     "self-signed certificate"},
    {"ClientIsSignedWithSha1", "a client whose certificate is signed with SHA-1",
     [](PolicyWorld& w) { return requested(w, [](TestPki::Request& r) { r.digest = "SHA1"; }); },
     "CA signature digest algorithm too weak"},
};

INSTANTIATE_TEST_SUITE_P(Clients, PolicyOfServers, testing::ValuesIn(rows),
                         [](const auto& tested) { return std::string(tested.param.name); });

// Clients that speak what the settings forbid, and settings that would let them.
struct SpeechRow {
    const char* name;
    const char* client;
    int version;
    const char* suites;
    const char* settings;
    const char* refusal;
};

void PrintTo(const SpeechRow& row, std::ostream* out) {
    *out << row.name;
}

class PolicyOfServersSpeech : public ServerTest, public testing::WithParamInterface<SpeechRow> {};

TEST_P(PolicyOfServersSpeech, IsWhatTheRowSays) {
    const SpeechRow& row = GetParam();
    settle(row.settings);
    const PeerContext context = speaking(client({}), row.version, row.version, row.suites);
    judge(row.name, std::string("a client, ") + row.client, row.settings, serve(context),
          *row.refusal == '\0' ? SEK_Ok : SEK_Failed, row.refusal);
}

const SpeechRow speech[] = {
    {"ServerRefuses11", "TLS 1.1 only", TLS1_1_VERSION, "ALL", POLICY_SERVER, "unsupported protocol"},
    {"ServerRefuses10", "TLS 1.0 only", TLS1_VERSION, "ALL", POLICY_SERVER, "unsupported protocol"},
    {"ServerTakes11WhenTold", "TLS 1.1 only", TLS1_1_VERSION, "ALL",
     POLICY_SERVER "MinProtocol = TLSv1.1\nCipherString = DEFAULT:@SECLEVEL=0\n", ""},
    {"ServerMin13Refuses12", "TLS 1.2 only", TLS1_2_VERSION, "ALL", POLICY_SERVER "MinProtocol = TLSv1.3\n",
     "unsupported protocol"},
    {"ServerRefusesAnonymous", "suites without certificates only", TLS1_2_VERSION, "aNULL", POLICY_SERVER,
     "no shared cipher"},
    {"ServerRefusesNoEncryption", "suites without encryption only", TLS1_2_VERSION, "eNULL", POLICY_SERVER,
     "no shared cipher"},
    {"ServerRefusesAnonymousNamed", "suites without certificates only", TLS1_2_VERSION, "aNULL",
     POLICY_SERVER "VerifyMode = Require\nCipherString = ALL:@SECLEVEL=0\n",
     "the peer would not be verified"},
    {"ServerRefusesNoEncryptionNamed", "suites without encryption only", TLS1_2_VERSION, "eNULL",
     POLICY_SERVER "CipherString = eNULL:@SECLEVEL=0\n", "nothing would be encrypted"},
    {"ServerWithoutCertificate", "TLS 1.3", TLS1_3_VERSION, "ALL", POLICY_TRUST,
     "no Certificate for the server's side"},
    {"ServerModeMisspelt", "TLS 1.3", TLS1_3_VERSION, "ALL", POLICY_SERVER "VerifyMode = Requires\n",
     "VerifyMode = Requires: bad value"},
    {"ServerModeNoneInLowerCase", "TLS 1.3", TLS1_3_VERSION, "ALL", POLICY_SERVER "VerifyMode = none\n",
     "VerifyMode = none: "},
};

INSTANTIATE_TEST_SUITE_P(Speech, PolicyOfServersSpeech, testing::ValuesIn(speech),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
