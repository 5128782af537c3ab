// Whom a client believes when it has revocation lists: how far the check goes up the chain.

#include <filesystem>
#include <ostream>

#include "PolicyTest.h"

namespace {

namespace fs = std::filesystem;

using Lists = std::vector<fs::path>;

// A server below an authority that is below the root.
struct Chain {
    TestPki& root;
    TestPki& middle;
    TestPki::Issued leaf;
    PolicyWorld& world;
};

// Under VerifyMode = None nobody is refused, and so without a CRLFile.
struct Row {
    const char* name;
    const char* lists;
    Lists (*make)(Chain&);
    const char* available;  // what is said without CRLCheck; "" when the peer is believed
    const char* leaf;
    const char* chain;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class PolicyOfRevocation : public PolicyTest, public testing::WithParamInterface<Row> {
  protected:
    void judgeUnder(const char* settings, const PeerContext& context, const char* words) {
        settle(settings);
        judge(GetParam().name, std::string("a chain of three, ") + GetParam().lists, settings,
              speak(answering(context)), *words == '\0' ? SEK_Ok : SEK_Failed, words);
    }
};

#define POLICY_LISTS POLICY_TRUST "CRLFile = ../configuration/all.crl\n"

TEST_P(PolicyOfRevocation, GoesAsFarAsTheSettingsSay) {
    const Row& row = GetParam();
    TestPki& middle = world().below(world().root(), "middle");
    Chain chain{world().root(), middle, middle.issue(PolicyWorld::leaf()), world()};
    const PeerContext context = PolicyWorld::server(chain.leaf, {&middle});
    std::string all;
    for (const fs::path& list : row.make(chain))
        all += contentOf(list);
    write("all.crl", all);
    judgeUnder(POLICY_LISTS, context, row.available);
    judgeUnder(POLICY_LISTS "CRLCheck = leaf\n", context, row.leaf);
    judgeUnder(POLICY_LISTS "CRLCheck = chain\n", context, row.chain);
    judgeUnder("CRLFile = ../configuration/all.crl\n", context, row.available);
    judgeUnder(POLICY_LISTS "VerifyMode = None\n", context, "");
    judgeUnder(POLICY_TRUST, context, "");
}

constexpr const char* revoked = "certificate revoked";
constexpr const char* missing = "unable to get certificate CRL";
constexpr const char* expired = "CRL has expired";
constexpr const char* forged = "CRL signature failure";

const Row rows[] = {
    {"NobodyRevoked", "lists of both issuers with nobody on them",
     [](Chain& c) {
         return Lists{c.middle.revocationList(""), c.root.revocationList("")};
     },
     "", "", ""},
    {"LeafRevoked", "the peer is on the list of its issuer",
     [](Chain& c) {
         return Lists{c.middle.revocationList(c.leaf.certificate), c.root.revocationList("")};
     },
     revoked, revoked, revoked},
    {"AuthorityRevoked", "the peer's issuer is on the list of the root",
     [](Chain& c) {
         return Lists{c.middle.revocationList(""), c.root.revocationList(c.middle.authorityFile())};
     },
     revoked, "", revoked},
    {"BothRevoked", "both are on a list",
     [](Chain& c) {
         return Lists{c.middle.revocationList(c.leaf.certificate),
                      c.root.revocationList(c.middle.authorityFile())};
     },
     revoked, revoked, revoked},
    {"RootsListMissing", "the list of the peer's issuer alone",
     [](Chain& c) { return Lists{c.middle.revocationList("")}; }, "", "", missing},
    {"LeafRevokedAndRootsListMissing", "the peer is on the list of its issuer, the only one",
     [](Chain& c) { return Lists{c.middle.revocationList(c.leaf.certificate)}; }, revoked, revoked, revoked},
    {"LeafsListMissing", "the list of the root alone",
     [](Chain& c) { return Lists{c.root.revocationList("")}; }, missing, missing, missing},
    {"ListOfAStranger", "a stranger's list alone",
     [](Chain& c) { return Lists{c.world.otherRoot("stranger").revocationList("")}; }, missing, missing,
     missing},
    {"LeafsListExpired", "the list of the peer's issuer has expired",
     [](Chain& c) {
         return Lists{c.middle.revocationList("", -60), c.root.revocationList("")};
     },
     expired, expired, expired},
    {"RootsListExpired", "the list of the root has expired",
     [](Chain& c) {
         return Lists{c.middle.revocationList(""), c.root.revocationList("", -60)};
     },
     expired, "", expired},
    {"LeafsListNotYetValid", "the list of the peer's issuer holds from tomorrow on",
     [](Chain& c) {
         return Lists{c.middle.revocationList("", 172'800, 86'400), c.root.revocationList("")};
     },
     "CRL is not yet valid", "CRL is not yet valid", "CRL is not yet valid"},
    {"RootsListForged", "a list in the root's name, signed with another key",
     [](Chain& c) {
         return Lists{c.middle.revocationList(""), c.world.impostor().revocationList("")};
     },
     forged, "", forged},
};

INSTANTIATE_TEST_SUITE_P(Lists, PolicyOfRevocation, testing::ValuesIn(rows),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
