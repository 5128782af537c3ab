// The supervisor's readiness flags as another thread sees them at any moment.
#include <set>
#include <utility>

#include "TestWorld.h"
#include "WorkCounter.h"

namespace {

class PingChildProcessFlagsTest : public WorldTest {
  protected:
    using Flags = std::pair<int, int>;  // nothing dead or silent, every ping answered

    ~PingChildProcessFlagsTest() override { WorkCounter::lookBetweenSteps({}); }

    Flags flags() const {
        return {TestAccess::allChildrenRunning(supervisor), TestAccess::allPingsAnswered(supervisor)};
    }
    // What there was to see from the end of the cycle before that one to its own end.
    void lookDuring(int cycle) {
        before(cycle, [this] { WorkCounter::lookBetweenSteps([this] { m_seen.insert(flags()); }); });
        before(cycle + 1, [] { WorkCounter::lookBetweenSteps({}); });
    }
    void refusesFrom(int cycle) {
        before(cycle, [this] { pingPeer("alpha").refuses = true; });
    }
    void answersFrom(int cycle, const std::string& text) {
        before(cycle, [this, text] {
            pingPeer("alpha").refuses = false;
            answers("alpha", text);
        });
    }

    std::set<Flags> m_seen;
};

TEST_F(PingChildProcessFlagsTest, AWrongAnswerAndThenNoneIsNeverReadiness) {
    begin({ChildXml{}});
    answersFrom(1, "something else entirely");
    refusesFrom(2);
    lookDuring(2);
    runCycles(2);
    EXPECT_EQ(m_seen, (std::set<Flags>{{1, 0}, {0, 0}, {0, 1}}));
}

TEST_F(PingChildProcessFlagsTest, NoAnswerAndThenAWrongOneIsNeverReadiness) {
    begin({ChildXml{}});
    refusesFrom(1);
    answersFrom(2, "something else entirely");
    lookDuring(2);
    runCycles(2);
    EXPECT_EQ(m_seen, (std::set<Flags>{{0, 1}, {0, 0}, {1, 0}}));
}

TEST_F(PingChildProcessFlagsTest, AGoodAnswerIsReadinessUntilTheCycleWithoutOneEnds) {
    begin({ChildXml{}});
    answersFrom(1, "READY");
    refusesFrom(2);
    lookDuring(2);
    runCycles(2);
    EXPECT_EQ(m_seen, (std::set<Flags>{{1, 1}, {0, 1}}));
}

// The other way round: the cycle ends between two steps of the reader, whichever they are.
TEST_F(PingChildProcessFlagsTest, ACycleThatEndsWhileTheFlagsAreReadIsNeverReadiness) {
    const Flags wrongAnswer{1, 0};
    const Flags noAnswer{0, 1};
    for (const auto& [first, then] : {std::pair{wrongAnswer, noAnswer}, {noAnswer, wrongAnswer}}) {
        int steps = 0;
        for (int at = 1; at <= steps + 1; ++at) {
            TestAccess::setFlags(supervisor, first.first, first.second, 0);
            steps = 0;
            WorkCounter::lookBetweenSteps([&, next = then] {
                if (++steps == at) TestAccess::setFlags(supervisor, next.first, next.second, 0);
            });
            EXPECT_EQ(supervisor.isReady(), 0)
                << "from " << first.first << first.second << " before step " << at;
            WorkCounter::lookBetweenSteps({});
        }
        EXPECT_GT(steps, 2) << "the reader has been interrupted";
    }
}

}  // namespace
