// What a client speaks, and what it makes of each command: versions, suites, extensions, slips of the pen.

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "PolicyTest.h"

namespace fs = std::filesystem;

namespace {

using Script = TestPeer::Script;

struct Row {
    const char* name;
    const char* peer;
    Script (*make)(PolicyWorld&);
    const char* settings;  // null: no file
    long result;
    const char* words;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class PolicyOfSections : public PolicyTest {};

class PolicyOfSettings : public PolicyTest, public testing::WithParamInterface<Row> {};

TEST_P(PolicyOfSettings, IsWhatTheRowSays) {
    const Row& row = GetParam();
    const Script script = row.make(world());
    settle(row.settings);
    judge(row.name, row.peer, row.settings, speak(script), row.result, row.words);
}

// A slip in the section's own name must not mean the defaults.
TEST_F(PolicyOfSections, ASectionOfAnotherNameIsNotTakenForTheDefaults) {
    write("sek.cnf", "[gatway]\n" POLICY_TRUST);
    judge("MisspeltSection", "a good certificate", "[gatway]", speak(answering(world().good())), -1,
          "../configuration/sek.cnf [gateway]: no such section");
}

// A peer that answers the greeting with these versions and suites.
Script good(PolicyWorld& world) {
    return answering(world.good());
}
template <int Version>
Script only(PolicyWorld& world) {
    return answering(speaking(world.good(), Version, Version));
}
template <int Least, int Most>
Script between(PolicyWorld& world) {
    return answering(speaking(world.good(), Least, Most));
}
// --- greetings by hand, for what OpenSSL no longer speaks ---

struct Greeting {
    char minorVersion = 3;  // of TLS 1.2
    const char* suite = "\xC0\x2C";
    char compression = 0;
    bool tellsOfRenegotiation = true;
};

std::string withLength(const std::string& body, std::size_t bytes) {
    std::string text;
    for (std::size_t i = bytes; i-- > 0;)
        text += static_cast<char>(body.size() >> (8 * i) & 0xFFU);
    return text + body;
}

Script greeting(const Greeting& greeting) {
    const std::string version = {'\x03', greeting.minorVersion};
    const std::string extensions =
        withLength(greeting.tellsOfRenegotiation ? std::string("\xFF\x01\x00\x01\x00", 5) : "", 2);
    const std::string hello = version + std::string(32, 'r') + std::string(1, '\0') +
                              std::string(greeting.suite, 2) + greeting.compression + extensions;
    const std::string record = "\x16" + version + withLength("\x02" + withLength(hello, 3), 2);
    return [record](PeerConnection& connection) {
        connection.read();
        connection.write(record);
        connection.waitForEnd();
    };
}

Script greetingWithSuite(const char* suite) {
    Greeting hello;
    hello.suite = suite;
    return greeting(hello);
}

// --- odd peers ---

Script anonymous(PolicyWorld& world) {
    return answering(
        speaking(world.good(), TLS1_2_VERSION, TLS1_2_VERSION, "ADH-AES256-GCM-SHA384:AECDH-AES256-SHA"));
}

unsigned sharedKey(SSL*, const char*, unsigned char* key, unsigned) {
    *key = 7;
    return 1;
}

template <int Version>
Script withSharedKey(PolicyWorld&) {
    PeerContext context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_set_psk_server_callback(context.get(), sharedKey);
    return answering(speaking(context, Version, Version, "PSK"));
}

// Asks for another handshake in the midst. One that it gets is over before the answer; a refusal ends the connection.
Script renegotiating(PolicyWorld& world) {
    const PeerContext context = speaking(world.good(), TLS1_2_VERSION, TLS1_2_VERSION);
    return [context](PeerConnection& connection) {
        if (!connection.acceptTls(context) || connection.read() != "ping") return;
        const timeval limit{1, 0};
        setsockopt(connection.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        SSL_renegotiate(connection.tls());
        SSL_do_handshake(connection.tls());
        connection.read();
        connection.write("pong");
    };
}

// Demands a certificate of the root's.
template <int Version>
Script demanding(PolicyWorld& world) {
    const PeerContext context = speaking(world.good(), Version, Version);
    SSL_CTX_load_verify_locations(context.get(), world.root().authorityFile().c_str(), nullptr);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    world.root().issueForClient();
    return answering(context);
}

Script signedWithSha1(PolicyWorld& world) {
    TestPki::Request request = PolicyWorld::leaf();
    request.digest = "SHA1";
    return answering(world.server(request));
}

Script expired(PolicyWorld& world) {
    TestPki::Request request = PolicyWorld::leaf();
    request.notAfterSec = -60;
    return answering(world.server(request));
}

Script withSmallGroup(PolicyWorld& world) {
    const PeerContext context =
        speaking(world.rsa(), TLS1_2_VERSION, TLS1_2_VERSION, "DHE-RSA-AES256-GCM-SHA384");
    SSL_CTX_set_dh_auto(context.get(), 2);  // of 1024 bits
    return answering(context);
}

// RSA is slow to make, so only suites that need it get it.
Script withKeyExchangeOfRsa(PolicyWorld& world) {
    return answering(speaking(world.rsa(), TLS1_2_VERSION, TLS1_2_VERSION, "AES256-GCM-SHA384"));
}
Script withNullSuite(PolicyWorld& world) {
    return answering(speaking(world.good(), TLS1_2_VERSION, TLS1_2_VERSION, "ECDHE-ECDSA-NULL-SHA"));
}

Script selfSigned(PolicyWorld& world) {
    TestPki::Request request = PolicyWorld::leaf();
    request.isSelfSigned = true;
    return answering(world.server(request));
}

Script belowMiddle(PolicyWorld& world) {
    TestPki& middle = world.below(world.root(), "middle");
    return answering(PolicyWorld::server(middle.issue(PolicyWorld::leaf()), {&middle}));
}

// The client's certificate is below an authority that the peer does not know.
Script demandingAChain(PolicyWorld& world) {
    const Script script = demanding<TLS1_3_VERSION>(world);
    world.below(world.root(), "middle").issueForClient();
    return script;
}

#define POLICY_CLIENT "Certificate = ../configuration/client.pem\nPrivateKey = ../configuration/client.key\n"
#define POLICY_LEVEL_0 "CipherString = DEFAULT:@SECLEVEL=0\n"

constexpr const char* version = "protocol version";
constexpr const char* failure = "handshake failure";
constexpr const char* unverified = "the peer would not be verified";

const Row versions[] = {
    {"AnyVersion", "TLS 1.0 to 1.3", between<TLS1_VERSION, TLS1_3_VERSION>, nullptr, 0, "TLSv1.3 TLS_AES"},
    {"Tls13", "TLS 1.3 only", only<TLS1_3_VERSION>, POLICY_TRUST, 0, "TLSv1.3 "},
    {"Tls12", "TLS 1.2 only", only<TLS1_2_VERSION>, nullptr, 0,
     "TLSv1.2 ECDHE-ECDSA-AES256-GCM-SHA384, verified"},
    {"Tls11", "TLS 1.1 only", only<TLS1_1_VERSION>, nullptr, -1, version},
    {"Tls10", "TLS 1.0 only", only<TLS1_VERSION>, nullptr, -1, version},
    {"Tls11Trusted", "TLS 1.1 only", only<TLS1_1_VERSION>, POLICY_TRUST, -1, version},
    {"Ssl3", "SSL 3 only",
     [](PolicyWorld&) {
         Greeting hello;
         hello.minorVersion = 0;
         return greeting(hello);
     },
     nullptr, -1, "unsupported protocol"},
    {"Min13Refuses12", "TLS 1.2 only", only<TLS1_2_VERSION>, POLICY_TRUST "MinProtocol = TLSv1.3\n", -1,
     version},
    {"Min13", "TLS 1.0 to 1.3", between<TLS1_VERSION, TLS1_3_VERSION>, POLICY_TRUST "MinProtocol = TLSv1.3\n",
     0, "TLSv1.3 "},
    {"Max12", "TLS 1.0 to 1.3", between<TLS1_VERSION, TLS1_3_VERSION>, POLICY_TRUST "MaxProtocol = TLSv1.2\n",
     0, "TLSv1.2 "},
    {"Max12Refuses13", "TLS 1.3 only", only<TLS1_3_VERSION>, POLICY_TRUST "MaxProtocol = TLSv1.2\n", -1,
     version},
    {"Max11", "TLS 1.0 to 1.3", between<TLS1_VERSION, TLS1_3_VERSION>, POLICY_TRUST "MaxProtocol = TLSv1.1\n",
     -1, "no protocols available"},
    {"Min10Alone", "TLS 1.0 only", only<TLS1_VERSION>, POLICY_TRUST "MinProtocol = TLSv1\n", -1, ""},
    {"Min10WithLevel0", "TLS 1.0 only", only<TLS1_VERSION>,
     POLICY_TRUST "MinProtocol = TLSv1\n" POLICY_LEVEL_0, 0, "TLSv1 ECDHE-ECDSA-AES256-SHA, verified"},
    {"Min11WithLevel0Refuses10", "TLS 1.0 only", only<TLS1_VERSION>,
     POLICY_TRUST "MinProtocol = TLSv1.1\n" POLICY_LEVEL_0, -1, version},
    {"Level0AloneRefuses11", "TLS 1.1 only", only<TLS1_1_VERSION>, POLICY_TRUST POLICY_LEVEL_0, -1, version},
    {"ProtocolAllRefuses11", "TLS 1.1 only", only<TLS1_1_VERSION>,
     POLICY_TRUST POLICY_LEVEL_0 "Protocol = ALL\n", -1, version},
    {"ProtocolNamedRefuses11", "TLS 1.1 only", only<TLS1_1_VERSION>,
     POLICY_TRUST POLICY_LEVEL_0 "Protocol = TLSv1.1\n", -1, version},
    {"ProtocolAloneRefuses11", "TLS 1.1 only", only<TLS1_1_VERSION>,
     POLICY_TRUST POLICY_LEVEL_0 "Protocol = -ALL,TLSv1.1\n", -1, "no protocols available"},
    {"MinNoneRefuses11WithoutLevel0", "TLS 1.1 only", only<TLS1_1_VERSION>,
     POLICY_TRUST "MinProtocol = None\n", -1, ""},
    {"Min10StillTakesTheNewest", "TLS 1.0 to 1.3", between<TLS1_VERSION, TLS1_3_VERSION>,
     POLICY_TRUST "MinProtocol = TLSv1\n", 0, "TLSv1.3 "},
    {"MinMisspelt", "a good peer", good, POLICY_TRUST "MinProtocol = TLS1.3\n", -1,
     "MinProtocol = TLS1.3: bad value"},
};

const Row suites[] = {
    {"KeyExchangeOfRsa", "RSA key exchange only", withKeyExchangeOfRsa, nullptr, 0,
     "TLSv1.2 AES256-GCM-SHA384, verified"},
    {"KeyExchangeOfRsaExcluded", "RSA key exchange only", withKeyExchangeOfRsa,
     POLICY_TRUST "CipherString = DEFAULT:!kRSA\n", -1, failure},
    {"DiffieHellman", "DHE with 2048 bits",
     [](PolicyWorld& w) {
         const PeerContext c = speaking(w.rsa(), TLS1_2_VERSION, TLS1_2_VERSION, "DHE-RSA-AES256-GCM-SHA384");
         SSL_CTX_set_security_level(c.get(), 2);
         SSL_CTX_set_dh_auto(c.get(), 1);
         return answering(c);
     },
     nullptr, 0, "TLSv1.2 DHE-RSA-AES256-GCM-SHA384"},
    {"SmallDiffieHellman", "DHE with 1024 bits", withSmallGroup, nullptr, -1, "dh key too small"},
    {"NoEncryption", "ECDHE-ECDSA-NULL-SHA only", withNullSuite, nullptr, -1, failure},
    {"NoEncryptionNamed", "ECDHE-ECDSA-NULL-SHA only", withNullSuite,
     POLICY_TRUST "CipherString = ECDHE-ECDSA-NULL-SHA:@SECLEVEL=0\n", -1,
     "CipherString = ECDHE-ECDSA-NULL-SHA:@SECLEVEL=0: nothing would be encrypted with ECDHE-ECDSA-NULL-SHA"},
    {"NoEncryptionNamedWithoutVerification", "ECDHE-ECDSA-NULL-SHA only", withNullSuite,
     "VerifyMode = None\nCipherString = eNULL:@SECLEVEL=0\n", -1, "nothing would be encrypted with "},
    {"Anonymous", "suites without certificates only", anonymous, nullptr, -1, failure},
    {"AnonymousNamed", "suites without certificates only", anonymous,
     POLICY_TRUST "CipherString = ALL:@SECLEVEL=0\n", -1, unverified},
    {"AnonymousOnlyNamed", "suites without certificates only", anonymous,
     POLICY_TRUST "CipherString = aNULL:@SECLEVEL=0\n", -1, unverified},
    {"AnonymousAtTheUsualLevel", "suites without certificates only", anonymous,
     POLICY_TRUST "CipherString = ALL\n", -1, failure},
    {"AnonymousWithoutVerification", "suites without certificates only", anonymous,
     "VerifyMode = None\nCipherString = ALL:@SECLEVEL=0\n", 0, "not verified"},
    {"SharedKeyIn12", "a shared key, TLS 1.2", withSharedKey<TLS1_2_VERSION>, nullptr, -1, failure},
    {"SharedKeyIn13", "a shared key, TLS 1.3", withSharedKey<TLS1_3_VERSION>, nullptr, -1, failure},
    {"SharedKeyNamed", "a shared key, TLS 1.2", withSharedKey<TLS1_2_VERSION>,
     POLICY_TRUST "CipherString = PSK\nMaxProtocol = TLSv1.2\n", -1, "no ciphers available"},
    {"Rc4", "chooses RC4-SHA", [](PolicyWorld&) { return greetingWithSuite("\x00\x05"); }, nullptr, -1,
     "unknown cipher returned"},
    {"TripleDes", "chooses DES-CBC3-SHA", [](PolicyWorld&) { return greetingWithSuite("\x00\x0A"); }, nullptr,
     -1, "unknown cipher returned"},
    {"Export", "chooses EXP-RC4-MD5", [](PolicyWorld&) { return greetingWithSuite("\x00\x03"); }, nullptr, -1,
     "unknown cipher returned"},
    {"NoEncryptionChosen", "chooses NULL-SHA256 unasked",
     [](PolicyWorld&) { return greetingWithSuite("\x00\x3B"); }, nullptr, -1, "wrong cipher returned"},
    {"AnonymousChosen", "chooses ADH-AES256-GCM-SHA384 unasked",
     [](PolicyWorld&) { return greetingWithSuite("\x00\xA7"); }, nullptr, -1, "wrong cipher returned"},
    {"Rc4Named", "a good peer", good, POLICY_TRUST "CipherString = RC4-SHA\n", -1,
     "CipherString = RC4-SHA: no cipher match"},
    {"TripleDesNamed", "a good peer", good, POLICY_TRUST "CipherString = DES-CBC3-SHA\n", -1,
     "no cipher match"},
    {"ExportNamed", "a good peer", good, POLICY_TRUST "CipherString = EXPORT\n", -1, "no cipher match"},
    {"SuiteMisspelt", "a good peer", good, POLICY_TRUST "CipherString = ECHDE\n", -1, "no cipher match"},
    {"SuitesOf13", "a good peer", good, POLICY_TRUST "Ciphersuites = TLS_CHACHA20_POLY1305_SHA256\n", 0,
     "TLSv1.3 TLS_CHACHA20_POLY1305_SHA256, verified"},
    {"SuitesOf13Misspelt", "a good peer", good, POLICY_TRUST "Ciphersuites = TLS_NULL\n", -1,
     "Ciphersuites = TLS_NULL: no cipher match"},
    {"Compression", "compresses",
     [](PolicyWorld&) {
         Greeting hello;
         hello.compression = 1;
         return greeting(hello);
     },
     nullptr, -1, "compression disabled"},
    {"CompressionNamed", "compresses",
     [](PolicyWorld&) {
         Greeting hello;
         hello.compression = 1;
         return greeting(hello);
     },
     POLICY_TRUST "Options = Compression\n", -1, "compression disabled"},
    {"NoWordOfRenegotiation", "knows no safe renegotiation",
     [](PolicyWorld&) {
         Greeting hello;
         hello.tellsOfRenegotiation = false;
         return greeting(hello);
     },
     nullptr, -1, "unsafe legacy renegotiation disabled"},
    {"Renegotiation", "asks for renegotiation", renegotiating, nullptr, -1, "cannot receive from "},
    {"RenegotiationNamed", "asks for renegotiation", renegotiating,
     POLICY_TRUST "Options = -NoRenegotiation,UnsafeLegacyRenegotiation\n", -1, "cannot receive from "},
    {"Level0TakesSha1", "signed with SHA-1", signedWithSha1, POLICY_TRUST POLICY_LEVEL_0, 0, "verified"},
    {"Level3RefusesRsa2048", "RSA of 2048 bits", [](PolicyWorld& w) { return answering(w.rsa()); },
     POLICY_TRUST "CipherString = DEFAULT:@SECLEVEL=3\n", -1, "EE certificate key too weak"},
    {"Groups", "a good peer", good, POLICY_TRUST "Groups = P-384\n", 0, "verified"},
    {"GroupsMisspelt", "a good peer", good, POLICY_TRUST "Groups = P-0\n", -1, "Groups = P-0: "},
    {"NoCommonGroup", "a good peer", good, POLICY_TRUST "Groups = P-521\n", -1, failure},
    {"NoCommonSignature", "signs with EC", good, POLICY_TRUST "SignatureAlgorithms = rsa_pss_rsae_sha256\n",
     -1, failure},
    {"OptionMisspelt", "a good peer", good, POLICY_TRUST "Options = NoVerify\n", -1,
     "Options = NoVerify: bad value"},
};

const Row modes[] = {
    {"ModeNone", "expired", expired, "VerifyMode = None\n", 0, "not verified"},
    {"ModePeer", "expired", expired, POLICY_TRUST "VerifyMode = Peer\n", -1, "certificate has expired"},
    {"ModeRequire", "expired", expired, POLICY_TRUST "VerifyMode = Require\n", -1, "certificate has expired"},
    {"ModeRequest", "expired", expired, POLICY_TRUST "VerifyMode = Request\n", -1, "certificate has expired"},
    {"ModeOnce", "expired", expired, POLICY_TRUST "VerifyMode = Peer,Once\n", -1, "certificate has expired"},
    {"ModeNoneInLowerCase", "expired", expired, "VerifyMode = none\n", -1, "VerifyMode = none: "},
    {"ModeNoneInUpperCase", "expired", expired, "VerifyMode = NONE\n", -1, "VerifyMode = NONE: "},
    {"ModeMisspelt", "expired", expired, "VerifyMode = Pear\n", -1, "VerifyMode = Pear: bad value"},
    {"ModeMisspeltNone", "expired", expired, "VerifyMode = Non\n", -1, "VerifyMode = Non: bad value"},
    {"ModeQuotedNone", "expired", expired, "VerifyMode = \"None\"\n", 0, "not verified"},
    {"ModeEmpty", "expired", expired, "VerifyMode =\n", -1, "VerifyMode = : "},
    {"ModeTakenAway", "expired", expired, "VerifyMode = Peer,-Peer\n", -1,
     "the peer would not be verified, which only the value None may say"},
    {"ModePeerAndNone", "expired", expired, "VerifyMode = Peer,None\n", -1, "VerifyMode = Peer,None: "},
    {"ModeNoneThenPeer", "expired", expired, POLICY_TRUST "VerifyMode = None\nVerifyMode = Peer\n", -1,
     "certificate has expired"},
    {"ModeOfAnotherSection", "expired", expired, POLICY_TRUST "[other]\nVerifyMode = None\n", -1,
     "certificate has expired"},
    {"CommandMisspelt", "a good peer", good, "VerfyMode = Peer\n", -1, "VerfyMode = Peer: unknown command"},
    {"CommandInAnyCase", "expired", expired, "verifymode = Peer\n" POLICY_TRUST, -1,
     "certificate has expired"},
};

const Row files[] = {
    {"CaFileMissing", "a good peer", good, "VerifyCAFile = ../configuration/missing\n", -1,
     "VerifyCAFile = ../configuration/missing: No such file"},
    {"CaFileIsAFolder", "a good peer", good, "VerifyCAFile = ../configuration\n", -1,
     "VerifyCAFile = ../configuration: Is a directory"},
    {"CaFileIsADevice", "a good peer", good, "VerifyCAFile = /dev/zero\n", -1, "not a regular file"},
    {"CaFileWithoutCertificates", "a good peer", good, "VerifyCAFile = ../configuration/sek.cnf\n", -1,
     "no certificate in it"},
    {"CaPathMissing", "a good peer", good, "VerifyCAPath = ../configuration/missing\n", -1, "No such file"},
    {"CaPathIsAFile", "a good peer", good, "VerifyCAPath = ../configuration/trusted.pem\n", -1,
     "Not a directory"},
    {"CaPathEmpty", "a good peer", good, "VerifyCAPath = ../bin\n", -1,
     "unable to get local issuer certificate"},
    {"CaPathList", "a good peer", good, "VerifyCAPath = ../bin:../configuration/trusted\n", 0, "verified"},
    {"CaStoreFolder", "a good peer", good, "VerifyCAStore = ../configuration/trusted\n", 0, "verified"},
    {"CaStoreMissing", "a good peer", good, "VerifyCAStore = ../configuration/missing\n", -1, "No such file"},
    {"CaStoreUnknownKind", "a good peer", good, "VerifyCAStore = nowhere:x\n", -1, ""},
    {"CaFileShutsTheSystemOut", "a good peer", good, "VerifyCAFile = ../configuration/server.pem\n", -1,
     "unable to get local issuer certificate"},
    {"OnlyThePeerIsNamed", "a good peer", good, "VerifyCAFile = ../configuration/peer.pem\n", -1,
     "unable to get local issuer certificate"},
    {"OnlyTheAuthorityBetweenIsNamed", "below an authority that it shows", belowMiddle,
     "VerifyCAFile = ../configuration/middle.pem\n", -1, "unable to get issuer certificate"},
    {"PathsAddUp", "a good peer", good,
     "VerifyCAFile = ../configuration/server.pem\nVerifyCAPath = ../configuration/trusted\n", 0, "verified"},
    {"SelfSignedNamed", "signed by itself", selfSigned, "VerifyCAFile = ../configuration/peer.pem\n", 0,
     "verified"},
    {"ListFileMissing", "a good peer", good, POLICY_TRUST "CRLFile = ../configuration/missing\n", -1,
     "No such file"},
    {"ListFileWithoutLists", "a good peer", good, POLICY_TRUST "CRLFile = ../configuration/trusted.pem\n", -1,
     "no revocation list in it"},
    {"ListCheckWithoutLists", "a good peer", good, POLICY_TRUST "CRLCheck = chain\n", -1,
     "there is no CRLFile"},
    {"ListCheckMisspelt", "a good peer", good, POLICY_TRUST "CRLCheck = Leaf\n", -1,
     "CRLCheck = Leaf: neither leaf nor chain"},
    {"IncludeMissing", "a good peer", good, ".include ../configuration/missing\n", -1,
     "cannot read ../configuration/missing: No such file"},
    {"IncludeTakesTrust", "a good peer", good, POLICY_TRUST ".include ../configuration/all.crl\n", 0,
     "verified"},
};

const Row identities[] = {
    {"ShowsNoneIn13", "TLS 1.3, demands a certificate", demanding<TLS1_3_VERSION>, POLICY_TRUST, -1,
     "certificate required"},
    {"ShowsNoneIn12", "TLS 1.2, demands a certificate", demanding<TLS1_2_VERSION>, POLICY_TRUST, -1, failure},
    {"ShowsOneIn13", "TLS 1.3, demands a certificate", demanding<TLS1_3_VERSION>, POLICY_TRUST POLICY_CLIENT,
     0, "verified"},
    {"ShowsOneIn12", "TLS 1.2, demands a certificate", demanding<TLS1_2_VERSION>, POLICY_TRUST POLICY_CLIENT,
     0, "verified"},
    {"ShowsOneWithoutItsChain", "demands a certificate with its chain", demandingAChain,
     POLICY_TRUST POLICY_CLIENT, -1, "unknown ca"},
    {"ShowsOneWithItsChain", "demands a certificate with its chain", demandingAChain,
     POLICY_TRUST POLICY_CLIENT "ChainCAFile = ../configuration/middle.pem\n", 0, "verified"},
    {"ShowsAServers", "TLS 1.3, demands a certificate", demanding<TLS1_3_VERSION>,
     POLICY_TRUST "Certificate = ../configuration/server.pem\nPrivateKey = ../configuration/server.key\n", -1,
     "alert"},
    {"ShowsOneUnasked", "a good peer",
     [](PolicyWorld& w) {
         w.root().issueForClient();
         return good(w);
     },
     POLICY_TRUST POLICY_CLIENT, 0, "verified"},
    {"KeyMissing", "a good peer", good,
     POLICY_TRUST "Certificate = ../configuration/server.pem\nPrivateKey = ../configuration/missing\n", -1,
     "PrivateKey = ../configuration/missing: No such file"},
    {"KeyNotNamed", "a good peer", good, POLICY_TRUST "Certificate = ../configuration/server.pem\n", -1,
     "no private key for the certificate"},
    {"KeyOfAnother", "a good peer",
     [](PolicyWorld& w) {
         w.root().issueForClient();
         return good(w);
     },
     POLICY_TRUST "Certificate = ../configuration/server.pem\nPrivateKey = ../configuration/client.key\n", -1,
     "key values mismatch"},
    {"CertificateMissing", "a good peer", good, POLICY_TRUST "Certificate = ../configuration/missing\n", -1,
     "No such file"},
    {"CertificateIsAKey", "a good peer", good, POLICY_TRUST "Certificate = ../configuration/server.key\n", -1,
     "Certificate = ../configuration/server.key: "},
};

const auto nameOf = [](const auto& tested) { return std::string(tested.param.name); };

INSTANTIATE_TEST_SUITE_P(Versions, PolicyOfSettings, testing::ValuesIn(versions), nameOf);
INSTANTIATE_TEST_SUITE_P(Suites, PolicyOfSettings, testing::ValuesIn(suites), nameOf);
INSTANTIATE_TEST_SUITE_P(Modes, PolicyOfSettings, testing::ValuesIn(modes), nameOf);
INSTANTIATE_TEST_SUITE_P(Files, PolicyOfSettings, testing::ValuesIn(files), nameOf);
INSTANTIATE_TEST_SUITE_P(Identities, PolicyOfSettings, testing::ValuesIn(identities), nameOf);

// The word without one of its letters, and with one of them twice.
std::vector<std::string> slipsOf(const std::string& word) {
    std::vector<std::string> slips;
    for (std::size_t at = 0; at < word.size(); ++at) {
        slips.push_back(std::string(word).erase(at, 1));
        slips.push_back(std::string(word).insert(at, 1, word[at]));
    }
    return slips;
}

// What a slip of the pen leaves is refused, and nothing falls back to what asks for less.
TEST_F(PolicyTest, NoSlipInAWordIsTaken) {
    const std::string settings =
        "VerifyCAFile = ../configuration/trusted.pem\nVerifyMode = Peer\nMinProtocol = TLSv1.2\n"
        "CRLFile = ../configuration/all.crl\nCRLCheck = chain\n";
    const Script peer = good(world());
    settle(settings.c_str());
    fs::rename(world().root().revocationList({}), configuration() / "all.crl");
    for (const std::string word : {"VerifyCAFile", "VerifyMode", "MinProtocol", "CRLFile", "CRLCheck", "Peer",
                                   "TLSv1.2", "chain", "gateway"}) {
        for (const std::string& slip : slipsOf(word)) {
            std::string lines = "[gateway]\n" + settings;
            lines.replace(lines.find(word), word.size(), slip);
            writeSettings(lines);
            EXPECT_NE(speak(peer).result, 0) << lines;
        }
    }
    // Last, since good settings would stay in force.
    settle(settings.c_str());
    const Outcome right = speak(peer);
    EXPECT_EQ(right.result, 0) << right.words;
}

}  // namespace
