#include "ZORCryptoHelper.h"

#include <malloc.h>

#include "NotedLoads.h"
#include "ScriptedSek.h"
#include "TestKit.h"

namespace {

class ZORCryptoHelperTest : public ServiceTest {
  protected:
    ZORCryptoHelperTest() { sek.reset(); }
    ~ZORCryptoHelperTest() override {
        ZORCryptoHelper::TerminateCrypto();
        sek.reset();
    }

    static std::vector<LogLine> fatalLines(const std::vector<std::string>& texts) {
        std::vector<LogLine> lines;
        lines.reserve(texts.size());
        for (const std::string& text : texts)
            lines.push_back({"FATAL", "ZORCryptoHelper", text, {}});
        return lines;
    }

    ScriptedSek& sek = ScriptedSek::instance();
};

TEST_F(ZORCryptoHelperTest, ThereIsNoLibraryBeforeItIsInitialised) {
    EXPECT_EQ(ZORCryptoHelper::GetCrypto(), nullptr);
}

TEST_F(ZORCryptoHelperTest, InitialisesTheLibraryForThisService) {
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 1);
    ASSERT_NE(ZORCryptoHelper::GetCrypto(), nullptr);
    EXPECT_EQ(ZORCryptoHelper::GetCrypto()->isOpen(), 1);
    EXPECT_EQ(sek.count("SEK_CryptoInitialize"), 1U);
    EXPECT_EQ(sek.last("SEK_CryptoInitialize").text,
              R"(<?xml version="1.0" encoding="UTF-8"?><initializeDocument><serviceID>BTSV</serviceID>)"
              "</initializeDocument>");
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORCryptoHelperTest, ASecondInitialisationDoesNothing) {
    ZORCryptoHelper::InitializeCrypto();
    const TVLCrypto* const first = ZORCryptoHelper::GetCrypto();
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 1);
    EXPECT_EQ(ZORCryptoHelper::GetCrypto(), first);
    EXPECT_EQ(sek.count("SEK_CryptoInitialize"), 1U);
}

TEST_F(ZORCryptoHelperTest, AFailedInitialisationIsReportedWithItsDetails) {
    sek.queue("SEK_CryptoInitialize", {-17, "no settings"});
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 0);
    EXPECT_EQ(log.lines(), fatalLines({"SEK_CryptoInitialize failed, return code: -17 ",
                                       "SEK_CryptoInitialize failed, SEK error details: no settings "}));
    EXPECT_EQ(sek.count("SEK_CryptoFree"), 1U);
    EXPECT_EQ(sek.unfreedDetails(), 0);
}

TEST_F(ZORCryptoHelperTest, AnyCodeButZeroIsAFailure) {
    sek.queue("SEK_CryptoInitialize", {3, {}});
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 0);
    EXPECT_EQ(log.lines(), fatalLines({"SEK_CryptoInitialize failed, return code: 3 "}));
    EXPECT_EQ(sek.count("SEK_CryptoFree"), 0U);
}

TEST_F(ZORCryptoHelperTest, ASecondInitialisationAfterAFailureReportsSuccess) {
    sek.queue("SEK_CryptoInitialize", {-17, {}});
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 0);
    log.clear();
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 1);
    EXPECT_EQ(sek.count("SEK_CryptoInitialize"), 1U);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORCryptoHelperTest, AMissingLibraryIsReportedOnce) {
    NotedLoads os;
    os.failFrom(OsKind::LoadLibrary, 1, ENOENT);
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 0);
    ASSERT_NE(ZORCryptoHelper::GetCrypto(), nullptr);
    EXPECT_EQ(ZORCryptoHelper::GetCrypto()->isOpen(), 0);
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 1);
    EXPECT_EQ(log.lines(), fatalLines({"failed to initialize crypto."}));
    ASSERT_EQ(os.loads().size(), 1U);
    EXPECT_EQ(os.loads()[0].file, "libSEK_Crypto_Interface.so");
}

TEST_F(ZORCryptoHelperTest, AnIncompleteLibraryIsTreatedAsMissing) {
    NotedLoads os;
    os.loadInstead("libSEK_Incomplete.so");
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 0);
    EXPECT_EQ(ZORCryptoHelper::GetCrypto()->isOpen(), 0);
    EXPECT_EQ(log.lines(), fatalLines({"failed to initialize crypto."}));
    EXPECT_TRUE(sek.calls().empty());
}

TEST_F(ZORCryptoHelperTest, TerminatesTheLibraryWithItsOwnDocument) {
    ZORCryptoHelper::InitializeCrypto();
    ZORCryptoHelper::TerminateCrypto();
    EXPECT_EQ(sek.count("SEK_CryptoTerminate"), 1U);
    EXPECT_EQ(sek.last("SEK_CryptoTerminate").text,
              "<terminateDocument><serviceID>BTSV</serviceID></terminateDocument>");
    EXPECT_EQ(ZORCryptoHelper::GetCrypto(), nullptr);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORCryptoHelperTest, TerminatingWhatWasNeverInitialisedDoesNothing) {
    ZORCryptoHelper::TerminateCrypto();
    EXPECT_TRUE(sek.calls().empty());
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORCryptoHelperTest, AFailedTerminationIsReportedAndEndsTheInstanceAllTheSame) {
    ZORCryptoHelper::InitializeCrypto();
    sek.queue("SEK_CryptoTerminate", {-5, "still in use"});
    ZORCryptoHelper::TerminateCrypto();
    EXPECT_EQ(log.lines(), fatalLines({"SEK_CryptoTerminate failed, return code: -5 ",
                                       "SEK_CryptoTerminate failed, SEK error details: still in use "}));
    EXPECT_EQ(sek.count("SEK_CryptoFree"), 1U);
    EXPECT_EQ(sek.unfreedDetails(), 0);
    EXPECT_EQ(ZORCryptoHelper::GetCrypto(), nullptr);
}

TEST_F(ZORCryptoHelperTest, AFailedTerminationWithoutDetailsIsReportedByItsCode) {
    ZORCryptoHelper::InitializeCrypto();
    sek.queue("SEK_CryptoTerminate", {5, {}});
    ZORCryptoHelper::TerminateCrypto();
    EXPECT_EQ(log.lines(), fatalLines({"SEK_CryptoTerminate failed, return code: 5 "}));
    EXPECT_EQ(sek.count("SEK_CryptoFree"), 0U);
}

TEST_F(ZORCryptoHelperTest, TerminatingAMissingLibraryFailsWithEmptyDetails) {
    NotedLoads os;
    os.failFrom(OsKind::LoadLibrary, 1, ENOENT);
    ZORCryptoHelper::InitializeCrypto();
    log.clear();
    ZORCryptoHelper::TerminateCrypto();
    EXPECT_EQ(log.lines(), fatalLines({"SEK_CryptoTerminate failed, return code: -1 ",
                                       "SEK_CryptoTerminate failed, SEK error details:  "}));
    EXPECT_EQ(ZORCryptoHelper::GetCrypto(), nullptr);
}

TEST_F(ZORCryptoHelperTest, AfterTerminationItCanBeInitialisedAnew) {
    ZORCryptoHelper::InitializeCrypto();
    ZORCryptoHelper::TerminateCrypto();
    EXPECT_EQ(ZORCryptoHelper::InitializeCrypto(), 1);
    EXPECT_EQ(sek.count("SEK_CryptoInitialize"), 2U);
}

TEST_F(ZORCryptoHelperTest, ATerminatedInstanceLeavesNothingBehind) {
    const auto once = [this] {
        ZORCryptoHelper::InitializeCrypto();
        ZORCryptoHelper::TerminateCrypto();
        sek.reset();
    };
    once();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i)
        once();
    EXPECT_LT(mallinfo2().uordblks, before + 100000);
}

}  // namespace
