#include "TVLCrypto.h"

#include <dlfcn.h>

#include <array>
#include <functional>
#include <set>
#include <type_traits>
#include <utility>

#include "NotedLoads.h"
#include "ScriptedSek.h"
#include "TestKit.h"

namespace {

constexpr std::size_t kMostParameters = 8;
using Slots = std::array<char*, kMostParameters>;  // what pointer arguments point to, one for each

// One forwarding member, called with arguments that are all different.
struct Member {
    std::string entry;
    std::size_t parameters;
    std::function<long(TVLCrypto&, Slots&)> call;
    std::function<long(TVLCrypto&)> callWithNulls;
    std::function<std::string(Slots&)> spelled;
};

template <typename Parameter>
Parameter argument(Slots& slots, std::size_t index) {
    if constexpr (std::is_pointer_v<Parameter>) {
        return static_cast<Parameter>(static_cast<void*>(&slots[index]));
    } else {
        return static_cast<Parameter>(100 + index);
    }
}

template <typename... Parameters, std::size_t... Index>
Member makeMember(const char* entry, long (TVLCrypto::*forward)(Parameters...),
                  std::index_sequence<Index...>) {
    return {entry, sizeof...(Parameters),
            [=](TVLCrypto& crypto, Slots& slots) {
                return (crypto.*forward)(argument<Parameters>(slots, Index)...);
            },
            [=](TVLCrypto& crypto) { return (crypto.*forward)(Parameters{}...); },
            [](Slots& slots) { return ScriptedSek::spell(argument<Parameters>(slots, Index)...); }};
}

template <typename... Parameters>
Member member(const char* entry, long (TVLCrypto::*forward)(Parameters...)) {
    static_assert(sizeof...(Parameters) <= kMostParameters);
    return makeMember(entry, forward, std::index_sequence_for<Parameters...>());
}

std::vector<Member> members() {
#define VBS_MEMBER(name, parameters, arguments, details) member(#name, &TVLCrypto::name),
    return {SEK_ENTRY_POINTS(VBS_MEMBER)};
#undef VBS_MEMBER
}

// The entries whose last argument takes error details. Written out: the list of entry points must not be the judge of
// what it says itself.
const std::set<std::string> kWithDetails{"SEK_CryptoInitialize",
                                         "SEK_CryptoTerminate",
                                         "SEK_CryptoGetLastErrorDetails",
                                         "SEK_Socket",
                                         "SEK_Select",
                                         "SEK_Poll",
                                         "SEK_CloseHandle",
                                         "SEK_PersistentInitialize",
                                         "SEK_ImpUsrInitialize"};

// The entries that the scripted library acts on; their arguments must mean something.
const std::set<std::string> kWithBehaviour{"SEK_CryptoInitialize",
                                           "SEK_CryptoTerminate",
                                           "SEK_CryptoFree",
                                           "SEK_CryptoGetLastErrorDetails",
                                           "SEK_Socket",
                                           "SEK_Connect_Url",
                                           "SEK_EstablishSecure",
                                           "SEK_Send",
                                           "SEK_Recv",
                                           "SEK_Poll",
                                           "SEK_CloseHandle"};

void expectEveryMemberFails(TVLCrypto& crypto) {
    for (const Member& member : members()) {
        Slots slots{};
        EXPECT_EQ(member.call(crypto, slots), -1) << member.entry;
        const bool withDetails = kWithDetails.count(member.entry) > 0;
        for (std::size_t i = 0; i < slots.size(); ++i) {
            const bool isDetails = withDetails && i + 1 == member.parameters;
            EXPECT_STREQ(slots[i], isDetails ? "" : nullptr) << member.entry << ", argument " << i;
        }
        EXPECT_EQ(member.callWithNulls(crypto), -1) << member.entry;
    }
}

bool isMapped(const char* file) {
    void* const handle = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

constexpr const char* kComplete = "SEK_Crypto_Interface";
constexpr const char* kIncomplete = "SEK_Incomplete";
constexpr const char* kIncompleteFile = "libSEK_Incomplete.so";
constexpr const char* kMissing = "SEK_Missing";

class TVLCryptoTest : public testing::Test {
  protected:
    TVLCryptoTest() { sek.reset(); }
    ~TVLCryptoTest() override { sek.reset(); }

    ScriptedSek& sek = ScriptedSek::instance();
};

TEST_F(TVLCryptoTest, ThereAreThirtyEightMembers) {
    EXPECT_EQ(members().size(), 38U);
    EXPECT_EQ(TVLCrypto::kEntryCount, 38U);
}

TEST_F(TVLCryptoTest, LoadsTheLibraryByItsFileNameAtOnceAndLazily) {
    NotedLoads os;
    TVLCrypto crypto(kComplete);
    EXPECT_EQ(crypto.isOpen(), 1);
    ASSERT_EQ(os.loads().size(), 1U);
    EXPECT_EQ(os.loads()[0].file, "libSEK_Crypto_Interface.so");
    EXPECT_EQ(os.loads()[0].mode, RTLD_LAZY);
    EXPECT_EQ(crypto.close(), 0);
}

TEST_F(TVLCryptoTest, AMissingLibraryIsNoErrorOfOpen) {
    NotedLoads os;
    TVLCrypto crypto(kMissing);
    EXPECT_EQ(crypto.isOpen(), 0);
    EXPECT_EQ(os.loads().size(), 1U) << "there is no second attempt";
    EXPECT_EQ(crypto.open(kMissing), 1);
    EXPECT_EQ(crypto.isOpen(), 0);
    EXPECT_EQ(crypto.tryOpen(kMissing), 0);
    EXPECT_EQ(crypto.close(), 0);
}

TEST_F(TVLCryptoTest, OpenLoadsOnlyWhenNothingIsLoaded) {
    TVLCrypto crypto(kMissing);
    EXPECT_EQ(crypto.open(kComplete), 1);
    EXPECT_EQ(crypto.isOpen(), 1);
    NotedLoads os;
    EXPECT_EQ(crypto.open(kIncomplete), 1);
    EXPECT_TRUE(os.loads().empty());
    EXPECT_EQ(crypto.close(), 0);
    EXPECT_EQ(crypto.isOpen(), 0);
}

TEST_F(TVLCryptoTest, ALibraryThatLacksTheLastEntryIsUnloadedAgain) {
    TVLCrypto crypto(kMissing);
    EXPECT_EQ(crypto.open(kIncomplete), 0);
    EXPECT_EQ(crypto.isOpen(), 0);
    EXPECT_FALSE(isMapped(kIncompleteFile));
    EXPECT_EQ(crypto.open(kComplete), 1);
    EXPECT_EQ(crypto.isOpen(), 1);
    crypto.close();
}

TEST_F(TVLCryptoTest, TheIncompleteLibraryIsThere) {
    TVLCrypto crypto(kMissing);
    EXPECT_EQ(crypto.tryOpen(kIncomplete), 1);
    EXPECT_EQ(crypto.isOpen(), 1);
    EXPECT_TRUE(isMapped(kIncompleteFile));
    EXPECT_EQ(crypto.close(), 0);
    EXPECT_FALSE(isMapped(kIncompleteFile));
}

TEST_F(TVLCryptoTest, TheDestructorLeavesTheLibraryMapped) {
    {
        TVLCrypto crypto(kMissing);
        ASSERT_EQ(crypto.tryOpen(kIncomplete), 1);
    }
    void* const handle = dlopen(kIncompleteFile, RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    dlclose(handle);
    dlclose(handle);  // the load that the destructor kept
    EXPECT_FALSE(isMapped(kIncompleteFile));
}

TEST_F(TVLCryptoTest, EveryMemberOfALibraryThatIsMissingFails) {
    TVLCrypto crypto(kMissing);
    expectEveryMemberFails(crypto);
}

TEST_F(TVLCryptoTest, EveryMemberOfALibraryThatWasIncompleteFails) {
    TVLCrypto crypto(kIncomplete);
    expectEveryMemberFails(crypto);
    EXPECT_TRUE(sek.calls().empty());
}

TEST_F(TVLCryptoTest, EveryMemberWithoutItsEntryPointFails) {
    TVLCrypto crypto(kMissing);
    ASSERT_EQ(crypto.tryOpen(kComplete), 1);
    expectEveryMemberFails(crypto);
    EXPECT_TRUE(sek.calls().empty());
    crypto.close();
}

TEST_F(TVLCryptoTest, EveryMemberOfAClosedLibraryFails) {
    TVLCrypto crypto(kComplete);
    ASSERT_EQ(crypto.isOpen(), 1);
    EXPECT_EQ(crypto.close(), 0);
    expectEveryMemberFails(crypto);
    EXPECT_TRUE(sek.calls().empty());
    EXPECT_EQ(crypto.close(), 0);
}

TEST_F(TVLCryptoTest, EveryMemberPassesItsArgumentsOnAndGivesTheResultBack) {
    TVLCrypto crypto(kComplete);
    long code = -1000;
    for (const Member& member : members()) {
        if (kWithBehaviour.count(member.entry) > 0) continue;
        sek.queue(member.entry, {++code, {}});
        Slots slots{};
        EXPECT_EQ(member.call(crypto, slots), code) << member.entry;
        ASSERT_FALSE(sek.calls().empty()) << member.entry;
        EXPECT_EQ(sek.calls().back().entry, member.entry);
        EXPECT_EQ(sek.calls().back().text, member.spelled(slots)) << member.entry;
    }
    EXPECT_EQ(sek.calls().size(), 27U);
    crypto.close();
}

TEST_F(TVLCryptoTest, TheMembersThatTheServiceCallsReachTheLibrary) {
    TVLCrypto crypto(kComplete);
    std::string document = "<document/>";
    std::string url = "https://localhost:1";
    char* details = nullptr;
    sek.queue("SEK_CryptoInitialize", {-2, "initialize"});
    EXPECT_EQ(crypto.SEK_CryptoInitialize(document.data(), nullptr, &details), -2);
    EXPECT_EQ(sek.last("SEK_CryptoInitialize").text, document);
    EXPECT_STREQ(details, "initialize");
    EXPECT_EQ(crypto.SEK_CryptoFree(details, nullptr), 0);
    sek.queue("SEK_CryptoTerminate", {-3, "terminate"});
    EXPECT_EQ(crypto.SEK_CryptoTerminate(document.data(), nullptr, &details), -3);
    EXPECT_STREQ(details, "terminate");
    EXPECT_EQ(crypto.SEK_CryptoFree(details, nullptr), 0);

    void* handle = nullptr;
    EXPECT_EQ(crypto.SEK_Socket(&handle, document.data(), nullptr, &details), 0);
    ASSERT_NE(handle, nullptr);
    sek.queue("SEK_Connect_Url", {-4, "connect"});
    EXPECT_EQ(crypto.SEK_Connect_Url(handle, url.data(), document.data()), -4);
    EXPECT_EQ(sek.last("SEK_Connect_Url").text, url);
    EXPECT_EQ(sek.last("SEK_Connect_Url").document, document);
    EXPECT_EQ(crypto.SEK_CryptoGetLastErrorDetails(handle, nullptr, &details), 0);
    EXPECT_STREQ(details, "connect");
    EXPECT_EQ(crypto.SEK_CryptoFree(details, nullptr), 0);
    sek.queue("SEK_EstablishSecure", {-23, {}});
    EXPECT_EQ(crypto.SEK_EstablishSecure(handle, nullptr), -23);

    long moved = 0;
    EXPECT_EQ(crypto.SEK_Send(handle, "ping", 4, 6, &moved, nullptr), 0);
    EXPECT_EQ(moved, 4);
    EXPECT_EQ(sek.last("SEK_Send").text, "ping");
    EXPECT_EQ(sek.last("SEK_Send").flags, 6);
    SEK_Pollfd entry{handle, SEK_Readable, 0};
    EXPECT_EQ(crypto.SEK_Poll(&entry, 1, 250, nullptr, &details), 0);
    EXPECT_EQ(entry.revents, SEK_Readable);
    EXPECT_EQ(sek.last("SEK_Poll").number, 250);
    std::array<char, 4> buffer{};
    EXPECT_EQ(crypto.SEK_Recv(handle, buffer.data(), 4, 8, &moved, nullptr), 0);
    EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(moved)), "OK");
    EXPECT_EQ(sek.last("SEK_Recv").flags, 8);
    EXPECT_EQ(crypto.SEK_CloseHandle(&handle, nullptr, &details), 0);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(sek.unfreedDetails(), 0);
    crypto.close();
}

}  // namespace
