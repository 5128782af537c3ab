// Whom a client believes: what a peer shows, against each of the ways to say whom to trust. What a row says holds
// under all of them; VerifyMode = None alone believes everybody.

#include <ostream>

#include "PolicyTest.h"

namespace {

using Key = TestPki::Key;
using Purpose = TestPki::Purpose;
using Extensions = TestPki::Extensions;

struct Way {
    const char* settings;  // null: no file
    bool isVerified;
};

const Way ways[] = {
    {nullptr, true},
    {"", true},
    {POLICY_TRUST, true},
    {"VerifyCAPath = ../configuration/trusted\n", true},
    {"VerifyCAStore = ../configuration/trusted.pem\n", true},
    {POLICY_TRUST "VerifyMode = Peer\n", true},
    {POLICY_TRUST "VerifyMode = None\n", false},
};

struct Row {
    const char* name;
    const char* peer;
    PeerContext (*make)(PolicyWorld&);
    const char* refusal;  // "" when the peer is believed
    const char* host = "localhost";
    const char* unverified = "";  // what is said under VerifyMode = None
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class PolicyOfCertificates : public PolicyTest, public testing::WithParamInterface<Row> {};

TEST_P(PolicyOfCertificates, HoldsUnderEachWayToTrust) {
    const Row& row = GetParam();
    const PeerContext context = row.make(world());
    for (const Way& way : ways) {
        settle(way.settings);
        const char* const words = way.isVerified ? row.refusal : row.unverified;
        judge(row.name, row.peer, way.settings, speak(answering(context), row.host),
              *words == '\0' ? SEK_Ok : SEK_Failed, words);
    }
}

constexpr const char* mismatch = "hostname mismatch";
constexpr const char* otherAddress = "IP address mismatch";
constexpr const char* noIssuer = "unable to get local issuer certificate";
constexpr const char* unsuitable = "certificate purpose";
constexpr const char* noAuthority = "invalid CA certificate";

PeerContext named(const PolicyWorld& world, const std::vector<std::string>& alternatives) {
    return world.server(PolicyWorld::named(alternatives));
}

PeerContext dated(const PolicyWorld& world, long notBeforeSec, long notAfterSec) {
    TestPki::Request request = PolicyWorld::leaf();
    request.notBeforeSec = notBeforeSec;
    request.notAfterSec = notAfterSec;
    return world.server(request);
}

PeerContext extended(const PolicyWorld& world, Purpose purpose, const Extensions& extensions) {
    TestPki::Request request = PolicyWorld::leaf();
    request.purpose = purpose;
    request.extensions = extensions;
    return world.server(request);
}

PeerContext keyed(const PolicyWorld& world, Key key) {
    TestPki::Request request = PolicyWorld::leaf();
    request.key = key;
    // What such keys cannot sign in the newest version they can in the one before.
    return speaking(world.server(request), TLS1_2_VERSION, key == Key::Rsa ? TLS1_3_VERSION : TLS1_2_VERSION);
}

// Shown with the authority, which is below the root.
PeerContext below(PolicyWorld& world, const TestPki::Traits& traits,
                  const TestPki::Request& request = PolicyWorld::leaf()) {
    TestPki& middle = world.below(world.root(), "middle", traits);
    return PolicyWorld::server(middle.issue(request), {&middle});
}

PeerContext belowExtended(PolicyWorld& world, const Extensions& extensions) {
    TestPki::Traits traits;
    traits.extensions = extensions;
    return below(world, traits);
}

TestPki::Traits permitting(const char* constraint) {
    TestPki::Traits traits;
    traits.extensions.push_back(std::string("nameConstraints=critical,") + constraint);
    return traits;
}

PeerContext withDigest(const PolicyWorld& world, const char* digest) {
    TestPki::Request request = PolicyWorld::leaf();
    request.digest = digest;
    return world.server(request);
}

PeerContext belowRsaWithDigest(PolicyWorld& world, const char* digest) {
    TestPki::Traits traits;
    traits.key = Key::Rsa;
    TestPki::Request request = PolicyWorld::leaf();
    request.digest = digest;
    return below(world, traits, request);
}

// A root of that kind, which the client trusts.
PeerContext trusting(PolicyWorld& world, const TestPki::Traits& traits) {
    world.trust(world.otherRoot("kind", traits));
    return world.good();
}

TestPki::Traits ofKey(Key key) {
    TestPki::Traits traits;
    traits.key = key;
    return traits;
}

TestPki::Traits ofDates(long notBeforeSec, long notAfterSec) {
    TestPki::Traits traits;
    traits.notBeforeSec = notBeforeSec;
    traits.notAfterSec = notAfterSec;
    return traits;
}

const Row dates[] = {
    {"Good", "a good certificate", [](PolicyWorld& w) { return w.good(); }, ""},
    {"Expired", "expired a minute ago", [](PolicyWorld& w) { return dated(w, -3600, -60); },
     "certificate has expired"},
    {"NotYetValid", "good in half an hour", [](PolicyWorld& w) { return dated(w, 1800, 3600); },
     "certificate is not yet valid"},
    {"DatesInReverse", "ends before it begins", [](PolicyWorld& w) { return dated(w, 3600, -3600); },
     "certificate is not yet valid"},
    {"ExpiredAuthorityBetween", "below an authority that has expired",
     [](PolicyWorld& w) { return below(w, ofDates(-7200, -60)); }, "certificate has expired"},
    {"ExpiredRoot", "below a trusted root that has expired",
     [](PolicyWorld& w) { return trusting(w, ofDates(-7200, -60)); }, "certificate has expired"},
};

const Row names[] = {
    {"NameInAnyCase", "names DNS:LocalHost", [](PolicyWorld& w) { return named(w, {"DNS:LocalHost"}); }, ""},
    {"OtherName", "names DNS:elsewhere.example",
     [](PolicyWorld& w) { return named(w, {"DNS:elsewhere.example"}); }, mismatch},
    {"OneOfManyNames", "names a hundred others and DNS:localhost",
     [](PolicyWorld& w) {
         std::vector<std::string> all;
         for (int i = 0; i < 100; ++i)
             all.push_back("DNS:n" + std::to_string(i) + ".example");
         all.emplace_back("DNS:localhost");
         return named(w, all);
     },
     ""},
    {"NameWithFinalDotInTheUri", "names DNS:localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:localhost"}); }, "", "localhost."},
    {"NameBelow", "names DNS:localhost", [](PolicyWorld& w) { return named(w, {"DNS:localhost"}); }, mismatch,
     "a.localhost"},
    {"NameAbove", "names DNS:a.localhost", [](PolicyWorld& w) { return named(w, {"DNS:a.localhost"}); },
     mismatch},
    {"CommonNameAlone", "common name localhost, no alternative names",
     [](PolicyWorld& w) {
         TestPki::Request request = PolicyWorld::named({});
         request.commonName = "localhost";
         return w.server(request);
     },
     mismatch},
    {"CommonNameBesideAUri", "common name localhost, names URI:https://localhost/",
     [](PolicyWorld& w) {
         TestPki::Request request = PolicyWorld::named({"URI:https://localhost/"});
         request.commonName = "localhost";
         return w.server(request);
     },
     mismatch},
    {"CommonNameBesideAnAddress", "common name localhost, names IP:127.0.0.1",
     [](PolicyWorld& w) {
         TestPki::Request request = PolicyWorld::named({"IP:127.0.0.1"});
         request.commonName = "localhost";
         return w.server(request);
     },
     mismatch},
    {"CommonNameIsTheAddress", "common name 127.0.0.1, no alternative names",
     [](PolicyWorld& w) {
         TestPki::Request request = PolicyWorld::named({});
         request.commonName = "127.0.0.1";
         return w.server(request);
     },
     otherAddress, "127.0.0.1"},
    {"UriOnly", "names URI:https://localhost/",
     [](PolicyWorld& w) { return named(w, {"URI:https://localhost/"}); }, mismatch},
    {"EmailOnly", "names email:root@localhost",
     [](PolicyWorld& w) { return named(w, {"email:root@localhost"}); }, mismatch},
    {"AddressOfTheHost", "names IP:127.0.0.1", [](PolicyWorld& w) { return named(w, {"IP:127.0.0.1"}); }, "",
     "127.0.0.1"},
    {"AddressForAName", "names IP:127.0.0.1", [](PolicyWorld& w) { return named(w, {"IP:127.0.0.1"}); },
     mismatch},
    {"NameForAnAddress", "names DNS:localhost", [](PolicyWorld& w) { return named(w, {"DNS:localhost"}); },
     otherAddress, "127.0.0.1"},
    {"AddressAsAName", "names DNS:127.0.0.1", [](PolicyWorld& w) { return named(w, {"DNS:127.0.0.1"}); },
     otherAddress, "127.0.0.1"},
    {"OtherAddress", "names IP:127.0.0.2", [](PolicyWorld& w) { return named(w, {"IP:127.0.0.2"}); },
     otherAddress, "127.0.0.1"},
    {"MappedAddress", "names IP:::ffff:127.0.0.1",
     [](PolicyWorld& w) { return named(w, {"IP:::ffff:127.0.0.1"}); }, otherAddress, "127.0.0.1"},
    {"NameWithAZeroByte", "names DNS:localhost, a zero byte and .example",
     [](PolicyWorld& w) {
         TestPki::Request request = PolicyWorld::named({});
         // The bytes of a list of names with one entry of the kind DNS.
         request.extensions = {
             "subjectAltName=DER:30:13:82:11:6c:6f:63:61:6c:68:6f:73:74:00:65:78:61:6d:70:6c:65"};
         return w.server(request);
     },
     mismatch},
    {"Wildcard", "names DNS:*.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*.site.localhost"}); }, "", "a.site.localhost"},
    {"WildcardInAnyCase", "names DNS:*.SITE.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*.SITE.localhost"}); }, "", "a.site.LOCALHOST"},
    {"WildcardForTwoLabels", "names DNS:*.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*.site.localhost"}); }, mismatch, "a.b.site.localhost"},
    {"WildcardForNoLabel", "names DNS:*.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*.site.localhost"}); }, mismatch, "site.localhost"},
    {"WildcardRightBelowTheTop", "names DNS:*.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*.localhost"}); }, mismatch, "a.localhost"},
    {"WildcardForLocalhost", "names DNS:*", [](PolicyWorld& w) { return named(w, {"DNS:*"}); }, mismatch},
    {"WildcardAtTheEnd", "names DNS:a*.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:a*.site.localhost"}); }, mismatch, "ab.site.localhost"},
    {"WildcardAtTheBeginning", "names DNS:*b.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*b.site.localhost"}); }, mismatch, "ab.site.localhost"},
    {"WildcardInTheMiddle", "names DNS:a.*.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:a.*.site.localhost"}); }, mismatch, "a.b.site.localhost"},
    {"TwoWildcards", "names DNS:*.*.site.localhost",
     [](PolicyWorld& w) { return named(w, {"DNS:*.*.site.localhost"}); }, mismatch, "a.b.site.localhost"},
    {"WildcardForAnAddress", "names DNS:*.0.0.1", [](PolicyWorld& w) { return named(w, {"DNS:*.0.0.1"}); },
     otherAddress, "127.0.0.1"},
};

const Row purposes[] = {
    {"NoPurposeSaid", "no extendedKeyUsage", [](PolicyWorld& w) { return extended(w, Purpose::Unsaid, {}); },
     ""},
    {"ForClientsOnly", "extendedKeyUsage clientAuth",
     [](PolicyWorld& w) { return extended(w, Purpose::Client, {}); }, unsuitable},
    {"ForCodeOnly", "extendedKeyUsage codeSigning",
     [](PolicyWorld& w) { return extended(w, Purpose::Unsaid, {"extendedKeyUsage=codeSigning"}); },
     unsuitable},
    {"ForBothSides", "extendedKeyUsage serverAuth, clientAuth",
     [](PolicyWorld& w) { return extended(w, Purpose::Unsaid, {"extendedKeyUsage=serverAuth,clientAuth"}); },
     ""},
    {"ForAnything", "extendedKeyUsage anyExtendedKeyUsage",
     [](PolicyWorld& w) { return extended(w, Purpose::Unsaid, {"extendedKeyUsage=anyExtendedKeyUsage"}); },
     unsuitable},
    {"KeyForSignatures", "keyUsage digitalSignature",
     [](PolicyWorld& w) { return extended(w, Purpose::Server, {"keyUsage=critical,digitalSignature"}); }, ""},
    {"KeyForCertificatesOnly", "keyUsage keyCertSign",
     [](PolicyWorld& w) { return extended(w, Purpose::Server, {"keyUsage=critical,keyCertSign"}); },
     unsuitable},
    {"KeyForDataOnly", "keyUsage dataEncipherment",
     [](PolicyWorld& w) { return extended(w, Purpose::Server, {"keyUsage=critical,dataEncipherment"}); },
     unsuitable},
    {"UnknownCriticalExtension", "an unknown critical extension",
     [](PolicyWorld& w) {
         OBJ_create("1.2.3.4.5.6", "unheardOf", "unheard of");
         return extended(w, Purpose::Server, {"unheardOf=critical,DER:05:00"});
     },
     "unhandled critical extension"},
    {"AuthorityBetweenForClientsOnly", "below an authority with extendedKeyUsage clientAuth",
     [](PolicyWorld& w) {
         return belowExtended(w, {"basicConstraints=critical,CA:TRUE", "keyUsage=critical,keyCertSign",
                                  "extendedKeyUsage=clientAuth"});
     },
     "certificate purpose"},
};

const Row chains[] = {
    {"AuthorityBetween", "below an authority that it shows", [](PolicyWorld& w) { return below(w, {}); }, ""},
    {"MissingAuthorityBetween", "below an authority that it does not show",
     [](PolicyWorld& w) {
         return PolicyWorld::server(w.below(w.root(), "middle").issue(PolicyWorld::leaf()));
     },
     noIssuer},
    {"ChainInWrongOrder", "two authorities between, shown in the wrong order",
     [](PolicyWorld& w) {
         TestPki& upper = w.below(w.root(), "upper");
         TestPki& lower = w.below(upper, "lower");
         return PolicyWorld::server(lower.issue(PolicyWorld::leaf()), {&upper, &lower});
     },
     ""},
    {"ChainWithAStranger", "shows a stranger's authority, too",
     [](PolicyWorld& w) {
         return PolicyWorld::server(w.root().issue(PolicyWorld::leaf()), {&w.otherRoot("stranger")});
     },
     ""},
    {"CutChain", "two authorities between, shows the lower one only",
     [](PolicyWorld& w) {
         TestPki& upper = w.below(w.root(), "upper");
         TestPki& lower = w.below(upper, "lower");
         return PolicyWorld::server(lower.issue(PolicyWorld::leaf()), {&lower});
     },
     noIssuer},
    {"ShowsTheRoot", "shows the root, too",
     [](PolicyWorld& w) { return PolicyWorld::server(w.root().issue(PolicyWorld::leaf()), {&w.root()}); },
     ""},
    {"UnknownAuthority", "below an authority that is not trusted",
     [](PolicyWorld& w) { return PolicyWorld::server(w.otherRoot("stranger").issue(PolicyWorld::leaf())); },
     noIssuer},
    {"UnknownAuthorityShown", "below an authority that is not trusted, which it shows",
     [](PolicyWorld& w) {
         TestPki& stranger = w.otherRoot("stranger");
         return PolicyWorld::server(stranger.issue(PolicyWorld::leaf()), {&stranger});
     },
     "self-signed certificate in certificate chain"},
    {"ImpostorOfTheAuthority", "below an authority of the trusted one's name and another key",
     [](PolicyWorld& w) { return PolicyWorld::server(w.impostor().issue(PolicyWorld::leaf())); },
     "certificate signature failure"},
    {"SelfSigned", "signed by itself",
     [](PolicyWorld& w) {
         TestPki::Request request = PolicyWorld::leaf();
         request.isSelfSigned = true;
         return w.server(request);
     },
     "self-signed certificate"},
    {"LeafAsAuthority", "below a server's certificate",
     [](PolicyWorld& w) {
         return belowExtended(w,
                              {"basicConstraints=critical,CA:FALSE", "keyUsage=critical,digitalSignature"});
     },
     noAuthority},
    {"AuthorityWithoutTheFlag", "below one that does not say that it is an authority",
     [](PolicyWorld& w) { return belowExtended(w, {}); }, noAuthority},
    {"AuthorityThatMayNotSign", "below an authority with keyUsage cRLSign",
     [](PolicyWorld& w) {
         return belowExtended(w, {"basicConstraints=critical,CA:TRUE", "keyUsage=critical,cRLSign"});
     },
     noAuthority},
    {"PathLengthExceeded", "two authorities below one with the path length 0",
     [](PolicyWorld& w) {
         TestPki::Traits traits;
         traits.extensions = {"basicConstraints=critical,CA:TRUE,pathlen:0", "keyUsage=critical,keyCertSign"};
         TestPki& upper = w.below(w.root(), "upper", traits);
         TestPki& lower = w.below(upper, "lower");
         return PolicyWorld::server(lower.issue(PolicyWorld::leaf()), {&lower, &upper});
     },
     "path length constraint exceeded"},
    {"PathLengthKept", "below an authority with the path length 0",
     [](PolicyWorld& w) {
         return belowExtended(
             w, {"basicConstraints=critical,CA:TRUE,pathlen:0", "keyUsage=critical,keyCertSign"});
     },
     ""},
    {"PermittedName", "below an authority for DNS:localhost",
     [](PolicyWorld& w) {
         return below(w, permitting("permitted;DNS:localhost"), PolicyWorld::named({"DNS:localhost"}));
     },
     ""},
    {"NameOutsideThePermitted", "below an authority for DNS:example",
     [](PolicyWorld& w) { return below(w, permitting("permitted;DNS:example")); },
     "permitted subtree violation"},
    {"ExcludedName", "below an authority for all but DNS:localhost",
     [](PolicyWorld& w) { return below(w, permitting("excluded;DNS:localhost")); },
     "excluded subtree violation"},
    {"AddressOutsideThePermitted", "below an authority for IP:10.0.0.0/8",
     [](PolicyWorld& w) { return below(w, permitting("permitted;IP:10.0.0.0/255.0.0.0")); },
     "permitted subtree violation", "127.0.0.1"},
};

constexpr const char* handshakeFailure = "handshake failure";

const Row strengths[] = {
    {"Rsa2048", "RSA of 2048 bits", [](PolicyWorld& w) { return keyed(w, Key::Rsa); }, ""},
    {"Rsa1024", "RSA of 1024 bits", [](PolicyWorld& w) { return keyed(w, Key::Rsa1024); },
     "EE certificate key too weak"},
    {"Rsa512", "RSA of 512 bits", [](PolicyWorld& w) { return keyed(w, Key::Rsa512); },
     "EE certificate key too weak"},
    {"P224", "EC of 224 bits", [](PolicyWorld& w) { return keyed(w, Key::EcdsaP224); }, handshakeFailure,
     "localhost", handshakeFailure},
    {"P192", "EC of 192 bits", [](PolicyWorld& w) { return keyed(w, Key::EcdsaP192); }, handshakeFailure,
     "localhost", handshakeFailure},
    {"Rsa1024Authority", "below an authority with RSA of 1024 bits",
     [](PolicyWorld& w) { return below(w, ofKey(Key::Rsa1024)); }, "CA certificate key too weak"},
    {"P192Authority", "below an authority with EC of 192 bits",
     [](PolicyWorld& w) { return below(w, ofKey(Key::EcdsaP192)); }, "CA certificate key too weak"},
    {"P224Authority", "below an authority with EC of 224 bits",
     [](PolicyWorld& w) { return below(w, ofKey(Key::EcdsaP224)); }, ""},
    {"Rsa1024Root", "below a trusted root with RSA of 1024 bits",
     [](PolicyWorld& w) { return trusting(w, ofKey(Key::Rsa1024)); }, "CA certificate key too weak"},
    {"Sha1", "signed with SHA-1", [](PolicyWorld& w) { return withDigest(w, "SHA1"); },
     "CA signature digest algorithm too weak"},
    {"Md5", "signed with MD5", [](PolicyWorld& w) { return belowRsaWithDigest(w, "MD5"); },
     "CA signature digest algorithm too weak"},
    {"Sha512", "signed with SHA-512", [](PolicyWorld& w) { return withDigest(w, "SHA512"); }, ""},
    {"Sha1Authority", "below an authority that is signed with SHA-1",
     [](PolicyWorld& w) {
         TestPki::Traits traits;
         traits.digest = "SHA1";
         return below(w, traits);
     },
     "CA signature digest algorithm too weak"},
    {"Sha1Root", "below a trusted root that is signed with SHA-1",
     [](PolicyWorld& w) {
         TestPki::Traits traits;
         traits.digest = "SHA1";
         return trusting(w, traits);
     },
     ""},
};

const auto nameOf = [](const auto& tested) { return std::string(tested.param.name); };

INSTANTIATE_TEST_SUITE_P(Dates, PolicyOfCertificates, testing::ValuesIn(dates), nameOf);
INSTANTIATE_TEST_SUITE_P(Names, PolicyOfCertificates, testing::ValuesIn(names), nameOf);
INSTANTIATE_TEST_SUITE_P(Purposes, PolicyOfCertificates, testing::ValuesIn(purposes), nameOf);
INSTANTIATE_TEST_SUITE_P(Chains, PolicyOfCertificates, testing::ValuesIn(chains), nameOf);
INSTANTIATE_TEST_SUITE_P(Strengths, PolicyOfCertificates, testing::ValuesIn(strengths), nameOf);

}  // namespace
