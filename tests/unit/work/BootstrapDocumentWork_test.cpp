#include "AllocationCounter.h"
#include "TestKit.h"
#include "WorkCounter.h"
#include "ZORBootstrapService.h"

namespace {

constexpr std::size_t kBytesOfChild = 2000;

class BootstrapDocumentWorkTest : public ServiceTest {
  protected:
    // What is read is logged in full otherwise, which is work of its own.
    BootstrapDocumentWorkTest() {
        ZORLoggerFactory::getInstance()->reset();
        setProperty("a", "/opt/product");
    }

    // Each child with a path and nine parameters that hold a reference.
    static std::string documentOf(int children) {
        std::string text = "<bootstrap>";
        for (int i = 0; i < children; ++i) {
            text += "<process name='p'><start><spawn><path>${a}/x</path>";
            for (int k = 0; k < 9; ++k)
                text += "<param>-D=${a}/x</param>";
            text += "</spawn></start><stop type='signal'><signal signal='15'/></stop></process>";
        }
        return text + "<daemonSpawn><path>x</path></daemonSpawn></bootstrap>";
    }
    // Beside the text itself, from there to children that are ready to start.
    static std::size_t peakBytesOf(const std::string& text) {
        const std::size_t before = AllocationCounter::aliveBytes();
        AllocationCounter::beginPeak();
        workOf(text);
        return AllocationCounter::peakBytes() - before;
    }
    static std::uint64_t workOf(const std::string& text) {
        WorkCounter::start();
        const XmlText document(text);
        ZORBootstrapService service;
        EXPECT_EQ(service.parseParams(document.root()), 1);
        return WorkCounter::stop();
    }
};

// Four times the children may cost four times the work and a little; looking through the document once more for each
// child would need sixteen times.
TEST_F(BootstrapDocumentWorkTest, GrowsWithTheNumberOfChildren) {
    const std::uint64_t small = workOf(documentOf(200));
    const std::uint64_t big = workOf(documentOf(800));
    EXPECT_GT(small, 200U * 10U) << "every reference was looked at";
    EXPECT_LT(big * 10, small * 44) << small << " steps became " << big;
}

// What 400 children more need at most at once. The document's tree, its children's commands and what the parser keeps
// for a moment are in it.
TEST_F(BootstrapDocumentWorkTest, NeedsLittleMemoryForEachChild) {
    peakBytesOf(documentOf(100));  // what is allocated once
    const std::size_t small = peakBytesOf(documentOf(400));
    const std::size_t medium = peakBytesOf(documentOf(800));
    const std::size_t big = peakBytesOf(documentOf(1600));
    EXPECT_LT((medium - small) / 400, kBytesOfChild);
    EXPECT_LT((big - medium) / 800, kBytesOfChild) << "and no more in a longer document";
}

}  // namespace
