#include <fcntl.h>

#include <set>
#include <thread>

#include "TransportTest.h"

namespace {

// Without the fixture's initialisation.
struct Outcome {
    long result;
    std::string details;
};

Outcome initialize(char* document) {
    char* details = nullptr;
    const long result = SEK_CryptoInitialize(document, nullptr, &details);
    Outcome outcome{result, details != nullptr ? details : ""};
    SEK_CryptoFree(details, nullptr);
    return outcome;
}

Outcome terminate(char* document) {
    char* details = nullptr;
    const long result = SEK_CryptoTerminate(document, nullptr, &details);
    Outcome outcome{result, details != nullptr ? details : ""};
    SEK_CryptoFree(details, nullptr);
    return outcome;
}

TEST(LifecycleTest, InitialiseAndTerminateWithTheirDocuments) {
    const Outcome begun = initialize(text(initializeText));
    EXPECT_EQ(begun.result, SEK_Ok);
    EXPECT_EQ(begun.details, "");
    const Outcome ended = terminate(text(terminateText));
    EXPECT_EQ(ended.result, SEK_Ok);
    EXPECT_EQ(ended.details, "");
}

TEST(LifecycleTest, DocumentsAreChecked) {
    EXPECT_EQ(initialize(nullptr).details, "bad initializeDocument: no document");
    EXPECT_EQ(initialize(text(terminateText)).details,
              "bad initializeDocument: root element is terminateDocument");
    EXPECT_EQ(initialize(text("<initializeDocument></initializeDocument>")).details,
              "bad initializeDocument: no serviceID");
    ASSERT_EQ(initialize(text(initializeText)).result, SEK_Ok);
    EXPECT_EQ(terminate(text("<terminateDocument>")).result, SEK_Failed);
    EXPECT_EQ(terminate(text(terminateText)).result, SEK_Ok);
}

TEST(LifecycleTest, TerminateWithoutInitialiseFails) {
    const Outcome outcome = terminate(text(terminateText));
    EXPECT_EQ(outcome.result, SEK_Failed);
    EXPECT_EQ(outcome.details, "the library is not initialised");
}

TEST(LifecycleTest, EachInitialiseNeedsItsTerminate) {
    ASSERT_EQ(initialize(text(initializeText)).result, SEK_Ok);
    ASSERT_EQ(initialize(text(initializeText)).result, SEK_Ok);
    EXPECT_EQ(terminate(text(terminateText)).result, SEK_Ok);
    { SekHandle stillWorks; }
    EXPECT_EQ(terminate(text(terminateText)).result, SEK_Ok);
    EXPECT_EQ(terminate(text(terminateText)).result, SEK_Failed);
}

TEST(LifecycleTest, CallsBeforeInitialiseFailWithAText) {
    void* handle = nullptr;
    char* details = nullptr;
    EXPECT_EQ(SEK_Socket(&handle, text(sessionDocument()), nullptr, &details), SEK_Failed);
    EXPECT_STREQ(details, "the library is not initialised");
    EXPECT_EQ(handle, nullptr);
    SEK_CryptoFree(details, nullptr);
    EXPECT_EQ(SEK_Poll(nullptr, 0, 0, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "the library is not initialised");
    EXPECT_EQ(SEK_EstablishSecure(nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "the library is not initialised");
    EXPECT_EQ(SEK_CryptoFree(nullptr, nullptr), SEK_Ok);
}

TEST(LifecycleTest, AHandleMayBeClosedAfterTerminate) {
    ASSERT_EQ(initialize(text(initializeText)).result, SEK_Ok);
    void* handle = nullptr;
    ASSERT_EQ(SEK_Socket(&handle, text(sessionDocument()), nullptr, nullptr), SEK_Ok);
    ASSERT_EQ(terminate(text(terminateText)).result, SEK_Ok);
    EXPECT_EQ(SEK_CloseHandle(&handle, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(handle, nullptr);
}

using HandleTest = TransportTest;

TEST_F(HandleTest, CloseClearsTheHandleAndTakesNull) {
    void* handle = nullptr;
    ASSERT_EQ(SEK_Socket(&handle, text(sessionDocument()), nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(SEK_CloseHandle(&handle, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(SEK_CloseHandle(&handle, nullptr, nullptr), SEK_Ok);
    char* details = nullptr;
    EXPECT_EQ(SEK_CloseHandle(nullptr, nullptr, &details), SEK_Failed);
    EXPECT_STREQ(details, "no place of the handle given");
    SEK_CryptoFree(details, nullptr);
}

TEST_F(HandleTest, WrongHandlesAreToldFromLiveOnes) {
    int somethingElse = 0;
    void* wrong = &somethingElse;
    EXPECT_EQ(SEK_Listen(wrong, 1, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(wrong), "not a handle of this library");
    EXPECT_EQ(SEK_CloseHandle(&wrong, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(SEK_Listen(nullptr, 1, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "null handle");
    void* closed = nullptr;
    ASSERT_EQ(SEK_Socket(&closed, text(sessionDocument()), nullptr, nullptr), SEK_Ok);
    void* stale = closed;
    ASSERT_EQ(SEK_CloseHandle(&closed, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(SEK_Listen(stale, 1, nullptr), SEK_Failed);
    EXPECT_EQ(SEK_CloseHandle(&stale, nullptr, nullptr), SEK_Failed);
}

TEST_F(HandleTest, SocketRefusesBadDocuments) {
    void* handle = nullptr;
    char* details = nullptr;
    EXPECT_EQ(SEK_Socket(&handle, text(sessionDocument("IPv5")), nullptr, &details), SEK_Failed);
    EXPECT_STREQ(details, "bad sessionConfigDocument: protocolFamily is \"IPv5\", not IPv4 or IPv6");
    SEK_CryptoFree(details, nullptr);
    EXPECT_EQ(SEK_Socket(&handle, nullptr, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "bad sessionConfigDocument: no document");
    EXPECT_EQ(SEK_Socket(nullptr, nullptr, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "no place for the handle given");
}

TEST_F(HandleTest, DetailsBelongToTheirHandle) {
    SekHandle first;
    SekHandle second;
    EXPECT_EQ(first.connectUrl("x"), SEK_Failed);
    EXPECT_EQ(second.connectUrl("ftp://y"), SEK_Failed);
    EXPECT_EQ(first.details(), "bad address \"x\": no scheme");
    EXPECT_EQ(first.details(), "bad address \"x\": no scheme");  // reading takes nothing away
    EXPECT_EQ(second.details(), "bad address \"ftp://y\": unknown scheme");
    EXPECT_FALSE(hasDetails(nullptr));
}

TEST_F(HandleTest, DetailsWithoutAHandleBelongToTheThread) {
    EXPECT_EQ(SEK_Listen(nullptr, 1, nullptr), SEK_Failed);
    bool seenElsewhere = true;
    std::thread([&] { seenElsewhere = hasDetails(nullptr); }).join();
    EXPECT_FALSE(seenElsewhere);
    EXPECT_TRUE(hasDetails(nullptr));
}

TEST_F(HandleTest, SuccessClearsTheDetails) {
    SekHandle handle;
    EXPECT_EQ(handle.connectUrl("x"), SEK_Failed);
    EXPECT_EQ(SEK_Bind_Url(handle.get(), text("tcp://127.0.0.1:0"), nullptr), SEK_Ok);
    EXPECT_FALSE(handle.hasDetails());
}

TEST_F(HandleTest, DetailsNeedAPlace) {
    EXPECT_EQ(SEK_CryptoGetLastErrorDetails(nullptr, nullptr, nullptr), SEK_Failed);
}

std::set<int> descriptorsKeptOnExec() {
    std::set<int> kept;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) kept.insert(descriptor);
    }
    return kept;
}

TEST_F(HandleTest, EveryDescriptorClosesOnExec) {
    const std::set<int> inherited = descriptorsKeptOnExec();
    SekHandle listener;
    const std::uint16_t port = listener.listen("tcp");
    SekHandle client;
    ASSERT_EQ(client.connectUrl("tcp://localhost:" + std::to_string(port)), SEK_Ok) << client.details();
    SekHandle accepted(listener.accept());
    EXPECT_EQ(descriptorsKeptOnExec(), inherited);
}

}  // namespace
