// Each allocation of the service fails once in its turn, and from there on, through a whole life. What holds then is in
// docs/faults.md.
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>

#include "AllocationSeam.h"
#include "AmpleOs.h"
#include "ChosenUses.h"
#include "ResultTable.h"
#include "ScriptedSek.h"
#include "ServiceLife.h"

using AllocationSeam::Exempt;

// The functions of the C library that the service takes memory from are led here by the linker. What they give goes back
// by free(), so the seam is only asked whether it is to be refused.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's
char* __real_strdup(const char* text);
void* __real_calloc(std::size_t count, std::size_t size);

static bool refusesMemory() {
    void* const probe = AllocationSeam::allocate(1, AllocationSeam::Source::New);
    AllocationSeam::release(probe);
    return probe == nullptr;
}

char* __wrap_strdup(const char* text) {
    return refusesMemory() ? nullptr : __real_strdup(text);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return refusesMemory() ? nullptr : __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

class ExhaustedServiceTest : public ServiceLifeTest {
  protected:
    struct Tally {
        int once = 0;
        int fromThere = 0;
        std::map<std::string, int> outcomes;
    };

    // A life in which memory is short as told; nothing is kept of what the service has taken in it.
    Life live(const std::function<void()>& shorten) {
        m_refuse = [&](FailingOs& failing) {
            ample.emplace(failing);
            leaveOutTheLibrary();
        };
        m_look = [&](FailingOs&) { ample.reset(); };
        // The beginning is left out where the run is meant: what fails there ends the service before it has begun.
        m_enter = [&, isFirst = true]() mutable {
            m_counted.emplace();
            if (isFirst) shorten();
            isFirst = false;
        };
        m_leave = [&] { m_counted.reset(); };
        Life life = ServiceLifeTest::live();
        AllocationSeam::stop();
        return life;
    }

    // The security library has its own ways with memory; this one's belongs to the test.
    void leaveOutTheLibrary() const {
        sek.onEntry = [staged = sek.onEntry] {
            inLibrary.emplace();
            staged();
        };
        sek.onExit = [staged = sek.onExit] {
            staged();
            inLibrary.reset();
        };
    }

    static bool hasBegun(const Life& life) { return life.initialized && (!life.thrown || life.starts > 0); }

    static std::string complaints(const Life& life) {
        std::ostringstream text;
        if (life.descriptorsKept != 0) text << life.descriptorsKept << " descriptors kept\n";
        if (life.threadsKept != 0) text << life.threadsKept << " threads kept\n";
        if (life.handlesKept != 0) text << life.handlesKept << " connections kept\n";
        if (life.detailsKept != 0) text << life.detailsKept << " detail texts kept\n";
        if (!life.left.empty()) text << life.left.size() << " processes left\n";
        const bool isSignalled = life.signalledMs >= 0;
        if (!isSignalled && hasBegun(life)) text << "it has ended by itself\n";
        if (isSignalled && life.endedMs - life.signalledMs > kIntervalMs + kLongestKillMs)
            text << "signalled at " << life.signalledMs << ", ended at " << life.endedMs << "\n";
        if (text.str().empty()) return "";
        return text.str() + "--- log\n" + joined(life.lines);
    }

    static std::string outcomeOf(const Life& life) {
        if (!hasBegun(life)) return life.thrown ? "no memory to begin" : "not initialised";
        if (life.thrown) return "served, and stopped, without memory for the end";
        return complaintsAbout(life, kIntervalMs + kLongestKillMs).empty() ? "as ever"
                                                                           : "served, and stopped";
    }

    std::optional<AmpleOs> ample;

  private:
    static inline thread_local std::optional<Exempt> inLibrary;
    const Exempt m_exempt;
    std::optional<AllocationSeam::Counted> m_counted;
};

TEST_F(ExhaustedServiceTest, TheServiceGoesOnOrEndsInOrderAndKeepsNothing) {
    EXPECT_EQ(complaintsAbout(live([] { AllocationSeam::failNth(0); })), "");
    const int uses = AllocationSeam::counted();
    EXPECT_GT(uses, 500);
    Tally tally;
    for (const int number : chosenUses(uses, 150)) {
        const Life life = live([=] { AllocationSeam::failNth(number); });
        EXPECT_EQ(complaints(life), "") << "allocation " << number;
        ++tally.outcomes[outcomeOf(life)];
        ++tally.once;
    }
    for (const int number : chosenUses(uses, 60)) {
        const Life life = live([=] { AllocationSeam::failFrom(number); });
        EXPECT_EQ(complaints(life), "") << "allocation " << number << " and all after it";
        ++tally.outcomes[outcomeOf(life)];
        ++tally.fromThere;
    }
    std::string outcomes;
    for (const auto& [outcome, times] : tally.outcomes)
        outcomes += (outcomes.empty() ? "" : ", ") + outcome + " (" + std::to_string(times) + ")";
    ResultTable("faults", {"kind", "uses in a life", "failed once", "failed from there on", "outcomes"})
        .add({"operator new, strdup and calloc of the service", std::to_string(uses),
              std::to_string(tally.once), std::to_string(tally.fromThere), outcomes});
    EXPECT_EQ(complaintsAbout(live([] { AllocationSeam::failNth(0); })), "") << "the next life is as ever";
}

}  // namespace
