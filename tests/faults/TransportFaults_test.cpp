// Each call of the security library fails once in its turn, and from there on; and so does each allocation. What holds
// then is in docs/faults.md.
#include "TransportFaults.h"

#include <gtest/gtest.h>

#include "ChosenUses.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include "ResultTable.h"
#include "SEK_Crypto_Interface.h"
#include "TransportLife.h"
#include "TransportTest.h"

using AllocationSeam::Source;
using TransportFaults::Function;

namespace {

// What a life that goes on without goes on without.
const std::set<std::string> kDispensable{
    // The words of an address, and the description of a certificate.
    "getnameinfo", "inet_ntop", "X509_NAME_print_ex", "X509_get_ext_d2i", "X509_digest", "ASN1_TIME_to_tm",
    "X509_VERIFY_PARAM_get1_ip_asc", "SSL_set_ex_data", "BIO_new",
    // The farewell, and options of a socket.
    "shutdown", "SSL_shutdown", "setsockopt", "poll", "recv", "send",
    // The stamp of a file, which is then read again; whether there are settings, which then have to be read; a
    // standard stream, which then counts as closed.
    "stat", "lstat", "fcntl",
    // The suites of the settings; the one that a handshake comes to is judged once more.
    "SSL_get1_supported_ciphers"};

// The peers close their ends at a time of their own, which nothing tells.
std::size_t descriptorsInTheEnd(std::size_t expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::size_t count = openDescriptors();
    while (count != expected && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
        count = openDescriptors();
    }
    return count;
}

// OSSL_STORE_attach() forgets its loader, ten blocks, when there is no memory left for what holds it.
constexpr long kLostByOpenSsl = 10;

class TransportFaultsTest : public testing::Test {
  protected:
    struct Tally {
        int uses = 0;
        int once = 0;
        int fromThere = 0;
        std::map<std::string, int> outcomes;
    };

    TransportFaultsTest() {
        EXPECT_TRUE(TransportFaults::hasOpenSslMemory());
        warmUp();
    }
    ~TransportFaultsTest() override {
        TransportFaults::reset();
        AllocationSeam::stop();
    }

    // What is made once in a process is there afterwards.
    void warmUp() {
        for (const Way way : kWays)
            expectUndisturbed(way);
        // OpenSSL keeps what belongs to a suite once it was used.
        for (const Function& function : TransportFaults::functions()) {
            if (std::string(function.name) == "SSL_get1_supported_ciphers")
                TransportFaults::failNth(function, 1);
        }
        world.live(Way::ToBare);
        TransportFaults::reset();
    }

    void expectUndisturbed(Way way) {
        const TransportLife life = world.live(way);
        const TransportLife::Step* const failure = life.failure();
        EXPECT_EQ(failure == nullptr, !isWrong(way)) << nameOf(way) << ": " << wordsOf(life);
        EXPECT_EQ(life.isAnswered, !isWrong(way)) << nameOf(way) << ": " << wordsOf(life);
    }

    // A life in which something is made to fail. Afterwards nothing is kept, but what OpenSSL has where somebody wants
    // to know how much that is.
    TransportLife liveWithFault(Way way, const std::string& what, long* keptByOpenSsl = nullptr) {
        const long blocks = AllocationSeam::outstanding(Source::New);
        const long blocksOfOpenSsl = AllocationSeam::outstanding(Source::OpenSsl);
        const TransportLife life = world.live(way);
        long kept = 0;
        (keptByOpenSsl == nullptr ? kept : *keptByOpenSsl) =
            AllocationSeam::outstanding(Source::OpenSsl) - blocksOfOpenSsl;
        EXPECT_LE(kept, 0) << what << ": " << wordsOf(life);
        EXPECT_EQ(descriptorsInTheEnd(descriptors), descriptors) << what << ": " << wordsOf(life);
        EXPECT_EQ(AllocationSeam::outstanding(Source::New), blocks) << what << ": " << wordsOf(life);
        if (isWrong(way)) {
            EXPECT_FALSE(life.isConnected) << what << ": " << wordsOf(life);
            EXPECT_FALSE(life.peerGotData) << what << ": " << wordsOf(life);
        }
        for (const TransportLife::Step& step : life.steps) {
            if (step.code == SEK_Failed) {
                EXPECT_NE(step.text, "") << what << ": " << step.name;
            }
        }
        return life;
    }

    static void count(Tally& tally, const TransportLife& life, Way way) {
        const TransportLife::Step* const failure = life.failure();
        if (failure == nullptr)
            ++tally.outcomes[life.isAnswered ? "goes on" : "goes no further"];
        else
            ++tally.outcomes[(isWrong(way) ? "wrong peer: " : "") + failure->name + " " +
                             std::to_string(failure->code)];
    }

    static std::string wordsOf(const TransportLife& life) {
        std::string words;
        for (const TransportLife::Step& step : life.steps)
            words += step.name + " " + std::to_string(step.code) + " " + step.text + "; ";
        return words;
    }

    static void tell(const std::string& what, const Tally& tally) {
        std::string outcomes;
        for (const auto& [outcome, times] : tally.outcomes)
            outcomes += (outcomes.empty() ? "" : ", ") + outcome + " (" + std::to_string(times) + ")";
        ResultTable("faults", {"kind", "uses in a life", "failed once", "failed from there on", "outcomes"})
            .add({what, std::to_string(tally.uses), std::to_string(tally.once),
                  std::to_string(tally.fromThere), outcomes});
    }

    const AllocationSeam::Exempt m_exempt;
    TransportWorld world;
    const std::size_t descriptors = openDescriptors();  // before any life
};

// ---- The calls ----

class RefusedTransportCallTest : public TransportFaultsTest, public testing::WithParamInterface<Function> {
  protected:
    void refuse(Way way, int number, bool fromThere, Tally& tally) {
        const Function& function = GetParam();
        const std::string what = std::string(function.name) + " " + std::to_string(number) +
                                 (fromThere ? " and all after it, " : ", ") + nameOf(way);
        if (fromThere)
            TransportFaults::failFrom(function, number);
        else
            TransportFaults::failNth(function, number);
        AllocationSeam::failNth(0);  // only counted
        const TransportLife life = liveWithFault(way, what);
        AllocationSeam::stop();
        const bool isRefused = TransportFaults::refusals() > 0;
        TransportFaults::reset();
        count(tally, life, way);
        ++(fromThere ? tally.fromThere : tally.once);
        // The order in which a peer's records arrive decides how often they are asked for.
        if (!isRefused || isWrong(way)) return;
        if (kDispensable.count(function.name) == 0) {
            EXPECT_TRUE(life.failure() != nullptr) << what << ": " << wordsOf(life);
        }
    }
};

TEST_P(RefusedTransportCallTest, NothingIsKeptNobodyIsBelievedAndTheNextLifeIsAsEver) {
    Tally tally;
    for (const Way way : kWays) {
        TransportFaults::reset();
        world.live(way);
        const int uses = TransportFaults::uses(GetParam());
        tally.uses = std::max(tally.uses, uses);
        for (const int number : chosenUses(uses, 3))
            refuse(way, number, false, tally);
        for (const int number : chosenUses(uses, 2))
            refuse(way, number, true, tally);
        expectUndisturbed(way);
    }
    EXPECT_GT(tally.uses, 0) << "no life calls it";
    tell(GetParam().name, tally);
}

INSTANTIATE_TEST_SUITE_P(Calls, RefusedTransportCallTest, testing::ValuesIn(TransportFaults::functions()),
                         [](const auto& function) { return std::string(function.param.name); });

// ---- Settings that change ----

// Whether it is only called while settings are read.
bool readsSettings(const std::string& name) {
    static const std::set<std::string> others{"open",    "read",    "fstat",
                                              "opendir", "readdir", "X509_VERIFY_PARAM_set_flags"};
    if (name == "SSL_CTX_up_ref") return false;
    for (const char* const beginning :
         {"NCONF_", "SSL_CONF_", "SSL_CTX_", "PEM_", "OSSL_STORE_", "X509_STORE_"}) {
        if (name.starts_with(beginning)) return true;
    }
    return others.count(name) != 0;
}

// Whose settings are read anew: those of a process that had good ones.
class RefusedRenewalTest : public TransportFaultsTest, public testing::WithParamInterface<Way> {
  protected:
    using Renewal = TransportWorld::Renewal;

    Renewal renewWith(const std::function<void()>& refuse) {
        return world.renew(GetParam(), refuse, [] {
            AllocationSeam::stop();
            TransportFaults::reset();
        });
    }

    void expectLastGoodSettings(const std::string& what, const std::function<void()>& refuse, Tally& tally,
                                bool goesOn = false) {
        const Renewal renewal = renewWith(refuse);
        const std::string words = what + ": " + wordsOf(renewal.life);
        EXPECT_TRUE(renewal.isBegun) << words;
        if (isWrong(GetParam())) {
            EXPECT_FALSE(renewal.life.isConnected) << words;
            EXPECT_FALSE(renewal.life.peerGotData) << words;
        }
        if (goesOn) {
            EXPECT_EQ(renewal.life.isAnswered, !isWrong(GetParam())) << words;
        }
        EXPECT_FALSE(renewal.isForgotten) << words;
        EXPECT_TRUE(renewal.isRenewed) << words;
        EXPECT_EQ(descriptorsInTheEnd(descriptors), descriptors) << words;
        count(tally, renewal.life, GetParam());
    }
};

TEST_P(RefusedRenewalTest, TheLastGoodSettingsAreInForceUntilTheNewOnesAreRead) {
    Tally tally;
    for (const Function& function : TransportFaults::functions()) {
        int uses = 0;
        world.renew(
            GetParam(), [] { TransportFaults::reset(); }, [&] { uses = TransportFaults::uses(function); });
        tally.uses += uses;
        for (const int number : chosenUses(uses, 2)) {
            expectLastGoodSettings(
                std::string(function.name) + " " + std::to_string(number),
                [&] { TransportFaults::failNth(function, number); }, tally, readsSettings(function.name));
            ++tally.once;
            expectLastGoodSettings(
                std::string(function.name) + " from " + std::to_string(number),
                [&] { TransportFaults::failFrom(function, number); }, tally, readsSettings(function.name));
            ++tally.fromThere;
        }
    }
    tell(std::string("any call while settings are renewed, ") + nameOf(GetParam()), tally);
}

TEST_P(RefusedRenewalTest, TheyAreInForceWhenMemoryRunsOut) {
    for (const Source source : {Source::New, Source::OpenSsl}) {
        Tally tally;
        world.renew(
            GetParam(), [&] { AllocationSeam::failNth(0, source); }, [] { AllocationSeam::stop(); });
        tally.uses = AllocationSeam::counted();
        const std::string name = source == Source::New ? "operator new" : "memory of OpenSSL";
        for (const int number : chosenUses(tally.uses, 25)) {
            expectLastGoodSettings(
                name + " " + std::to_string(number), [&] { AllocationSeam::failNth(number, source); }, tally);
            ++tally.once;
        }
        tell(name + " while settings are renewed, " + nameOf(GetParam()), tally);
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, RefusedRenewalTest, testing::Values(Way::ByName, Way::ToOther, Way::ToRevoked),
                         [](const auto& way) {
                             std::string name = nameOf(way.param);
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

// ---- What is called once in a process ----

// In a process of its own, where nothing has been called yet. A life with a refused certificate calls them all. The exit
// code tells what went wrong.
void failBeforeTheFirstLife(const Function& function) {
    TransportWorld world;
    TransportFaults::failNth(function, 1);
    const TransportLife first = world.live(Way::ToStranger);
    if (TransportFaults::refusals() != 1) std::_Exit(3);
    TransportFaults::reset();
    if (first.isConnected || first.peerGotData) std::_Exit(4);
    if (!world.live(Way::ByName).isAnswered) std::_Exit(5);
    const TransportLife refused = world.live(Way::ToStranger);
    const bool isDescribed =
        refused.failure() != nullptr && refused.failure()->text.find("certificate of ") != std::string::npos;
    std::_Exit(isDescribed && !refused.isConnected ? 0 : 6);
}

class FirstCallTest : public testing::TestWithParam<Function> {};

TEST_P(FirstCallTest, AProcessWhoseFirstCallFailsTriesAgain) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(failBeforeTheFirstLife(GetParam()), testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(Calls, FirstCallTest, testing::ValuesIn(TransportFaults::firstFunctions()),
                         [](const auto& function) { return std::string(function.param.name); });

// ---- Memory ----

class TransportMemoryTest : public TransportFaultsTest, public testing::WithParamInterface<Way> {
  protected:
    void exhaust(Source source, int most, const char* name) {
        Tally tally;
        AllocationSeam::failNth(0, source);
        world.live(GetParam());
        AllocationSeam::stop();
        tally.uses = AllocationSeam::counted();
        ASSERT_GT(tally.uses, 10);
        for (const int number : chosenOf(tally.uses, most)) {
            run(
                std::string(name) + " " + std::to_string(number), source,
                [&] { AllocationSeam::failNth(number, source); }, tally);
            ++tally.once;
        }
        for (const int number : chosenUses(tally.uses, 15)) {
            run(
                std::string(name) + " from " + std::to_string(number), source,
                [&] { AllocationSeam::failFrom(number, source); }, tally);
            ++tally.fromThere;
        }
        expectUndisturbed(GetParam());
        tell(std::string(name) + ", " + nameOf(GetParam()), tally);
    }

  private:
    // A peer who is not believed is judged at the end of its life: there none is passed over.
    static std::set<int> chosenOf(int uses, int most) {
        constexpr int kJudging = 200;
        const std::vector<int> spread = chosenUses(uses, most);
        std::set<int> chosen(spread.begin(), spread.end());
        for (int number = std::max(1, uses - kJudging); isWrong(GetParam()) && number <= uses; ++number)
            chosen.insert(number);
        return chosen;
    }

    void run(const std::string& what, Source source, const std::function<void()>& refuse, Tally& tally) {
        // OpenSSL itself loses a block here and there when it gets none; an object of ours that is lost has dozens. What
        // it has begun to know it may keep, but not once more.
        const long allowed = source == Source::OpenSsl ? kLostByOpenSsl : 0;
        if (keptIn(what, refuse, tally) <= allowed) return;
        Tally again;
        EXPECT_LE(keptIn(what, refuse, again), allowed) << what;
    }

    long keptIn(const std::string& what, const std::function<void()>& refuse, Tally& tally) {
        long kept = 0;
        refuse();
        const TransportLife life = liveWithFault(GetParam(), what, &kept);
        AllocationSeam::stop();
        count(tally, life, GetParam());
        return kept;
    }
};

TEST_P(TransportMemoryTest, TheLibrarysOwn) {
    // Where it matters most at which one it is, none is passed over.
    exhaust(Source::New, GetParam() == Way::ToOtherName ? 400 : 60, "operator new");
}

TEST_P(TransportMemoryTest, OpenSsls) {
    exhaust(Source::OpenSsl, 60, "memory of OpenSSL");
}

INSTANTIATE_TEST_SUITE_P(Ways, TransportMemoryTest, testing::ValuesIn(kWays), [](const auto& way) {
    std::string name = nameOf(way.param);
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

// ---- The list ----

// Without what a C library or its headers put around a name.
std::string plainName(std::string name) {
    for (const char* const beginning : {"__isoc23_", "__"}) {
        if (name.rfind(beginning, 0) == 0) name.erase(0, std::string(beginning).size());
    }
    for (const char* const end : {"_chk", "_time64", "64"}) {
        const std::string tail = end;
        if (name.size() > tail.size() && name.ends_with(tail)) name.erase(name.size() - tail.size());
    }
    return name;
}

std::set<std::string> calledByTheLibrary() {
    const std::string command =
        std::string(NM_PROGRAM) + " -u --format=posix " + SEK_CORE_FILE + " " + SEK_ENTRY_OBJECTS;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(popen(command.c_str(), "re"), pclose);
    std::set<std::string> names;
    std::array<char, 512> line{};
    while (std::fgets(line.data(), line.size(), output.get()) != nullptr) {
        const std::string entry = line.data();
        const std::size_t end = entry.find(" U");
        if (end != std::string::npos) names.insert(entry.substr(0, end));
    }
    return names;
}

// The language's own functions begin with underscores; those of the C library that fortified builds call in place of
// others do, too.
bool isTheLanguages(const std::string& name) {
    if (name.rfind("_Z", 0) == 0 || name.rfind("_Unwind", 0) == 0 || name.rfind("_GLOBAL", 0) == 0)
        return true;
    for (const char* const beginning :
         {"__cxa_", "__dynamic_cast", "__gxx_", "__gcc_", "__gcov", "__llvm", "__asan", "__ubsan", "__tsan",
          "__sanitizer", "__stack_chk", "__dso_handle", "__tls_get_addr", "___tls_get_addr",
          "__errno_location", "__libc_single_threaded", "__once_proxy", "__x86.",
          // Numbers wider than the processor's, and counters without a lock.
          "__div", "__udiv", "__mod", "__umod", "__aarch64_"}) {
        if (name.rfind(beginning, 0) == 0) return true;
    }
    return false;
}

TEST(TransportCallsTest, EveryFunctionThatTheLibraryCallsIsMadeToFailOrListedAsSure) {
    const std::vector<std::string> wrapped = TransportFaults::symbols();
    const std::vector<std::string> sure = TransportFaults::sureNames();
    const std::set<std::string> called = calledByTheLibrary();
    EXPECT_GT(called.size(), 100U);
    for (const std::string& name : called) {
        const bool isWrapped = std::count(wrapped.begin(), wrapped.end(), name) > 0;
        const bool isSure = std::count(sure.begin(), sure.end(), plainName(name)) > 0 ||
                            std::count(sure.begin(), sure.end(), name) > 0;
        const bool isOurs = name.rfind("SEK", 0) == 0;
        EXPECT_TRUE(isWrapped || isSure || isOurs || isTheLanguages(name))
            << name << " is in none of the lists of TransportCalls.h";
    }
}

}  // namespace
