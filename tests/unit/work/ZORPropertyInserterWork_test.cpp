#include <functional>

#include "TestKit.h"
#include "WorkCounter.h"
#include "ZORPropertyInserter.h"

namespace {

class ZORPropertyInserterWorkTest : public ServiceTest {
  protected:
    // What comes in and goes out is logged in full otherwise, which is work of its own.
    ZORPropertyInserterWorkTest() { ZORLoggerFactory::getInstance()->reset(); }

    static std::string repeated(const std::string& piece, std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i)
            text += piece;
        return text;
    }
    static std::uint64_t workOf(std::string text) {
        WorkCounter::start();
        ZORPropertyInserter::getInstance()->insertProperties(text);
        return WorkCounter::stop();
    }
    // Four times the text may cost four times the work and a little; a quadratic algorithm needs sixteen
    // times.
    static void expectLinear(const std::function<std::string(std::size_t)>& textOfSize) {
        const std::uint64_t small = workOf(textOfSize(2000));
        const std::uint64_t big = workOf(textOfSize(8000));
        EXPECT_GT(small, 2000U) << "every reference was looked at";
        EXPECT_LT(big, 5 * small) << small << " steps became " << big;
    }
};

TEST_F(ZORPropertyInserterWorkTest, GrowsWithTheNumberOfReferences) {
    setProperty("a", "some value");
    expectLinear([](std::size_t count) { return repeated("text ${a} ", count); });
}

TEST_F(ZORPropertyInserterWorkTest, GrowsWithTheNumberOfUnknownReferences) {
    expectLinear([](std::size_t count) { return repeated("${unknown} ", count); });
}

TEST_F(ZORPropertyInserterWorkTest, GrowsWithTheNumberOfUnclosedReferences) {
    expectLinear([](std::size_t count) { return repeated("${", count); });
}

TEST_F(ZORPropertyInserterWorkTest, GrowsWithTheNumberOfEmptyValues) {
    setProperty("e", "");
    expectLinear([](std::size_t count) { return repeated("$${e}", count); });
}

TEST_F(ZORPropertyInserterWorkTest, GrowsWithWhatValuesBringIn) {
    setProperty("inner", "v");
    expectLinear([](std::size_t count) {
        setProperty("outer", repeated("${inner} ", count).c_str());
        return std::string("${outer}");
    });
}

}  // namespace
