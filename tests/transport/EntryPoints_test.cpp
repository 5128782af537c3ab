#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <set>
#include <thread>

#include "SEK_EntryPoints.h"
#include "SEK_HandleSet.h"
#include "TransportTest.h"

namespace {

#define VBS_NAME(name, parameters, arguments, details) #name,
const std::set<std::string> entryPoints{SEK_ENTRY_POINTS(VBS_NAME)};
#undef VBS_NAME

std::set<std::string> definedSymbols() {
    const std::string command =
        std::string(NM_PROGRAM) + " -D --defined-only --format=posix " + SEK_LIBRARY_FILE;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(popen(command.c_str(), "re"), pclose);
    std::set<std::string> names;
    std::array<char, 512> line{};
    while (std::fgets(line.data(), line.size(), output.get()) != nullptr) {
        const std::string entry = line.data();
        names.insert(entry.substr(0, entry.find(' ')));
    }
    return names;
}

TEST(EntryPointsTest, TheLibraryExportsExactlyThe38) {
    ASSERT_EQ(entryPoints.size(), 38U);
    EXPECT_EQ(definedSymbols(), entryPoints);
}

TEST(EntryPointsTest, EveryEntryPointIsFoundByName) {
    void* library = dlopen(SEK_LIBRARY_FILE, RTLD_LAZY);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string& name : entryPoints)
        EXPECT_NE(dlsym(library, name.c_str()), nullptr) << name;
    dlclose(library);
}

using NotOfferedTest = TransportTest;

TEST_F(NotOfferedTest, OperationsOnAHandleSaySoAtTheHandle) {
    SekHandle handle;
    void* const h = handle.get();
    void* memory = nullptr;
    char* answer = nullptr;
    unsigned long length = 0;
    const auto expectRefusal = [&](long result) {
        EXPECT_EQ(result, SEK_NotSupported);
        EXPECT_EQ(handle.details(), "not supported");
        handle.connectUrl("");  // leaves another text
    };
    expectRefusal(SEK_SocketSecurityOp(h, nullptr, &answer, nullptr));
    expectRefusal(SEK_SocketSecurityOp(h, text("describepeer"), &answer, nullptr));
    expectRefusal(SEK_SetInfo(h, nullptr, nullptr));
    expectRefusal(SEK_GetInfo(h, nullptr, &answer, nullptr));
    expectRefusal(SEK_ProtectData(h, nullptr, 0, &memory, &length, nullptr));
    expectRefusal(SEK_UnprotectData(h, nullptr, 0, &memory, &length, nullptr));
    expectRefusal(SEK_ImpUsrNegotiate(h, nullptr, &answer, nullptr));
    expectRefusal(SEK_ImpUsrImpersonate(h, nullptr));
    expectRefusal(SEK_ImpUsrRevert(h, nullptr));
    expectRefusal(SEK_ImpUsrSerializeHandle(h, &answer, nullptr));
    expectRefusal(SEK_EncryptCredential(h, 0, nullptr, 0, 0, &memory, &length, nullptr));
    expectRefusal(SEK_DecryptCredential(h, 0, nullptr, 0, &memory, &length, nullptr));
}

TEST_F(NotOfferedTest, OperationsWithoutAHandleSaySoAtTheThread) {
    void* memory = nullptr;
    char* details = nullptr;
    unsigned long length = 0;
    int textLength = 0;
    const auto expectRefusal = [](long result) {
        EXPECT_EQ(result, SEK_NotSupported);
        EXPECT_EQ(detailsOf(nullptr), "not supported");
        SEK_CryptoInitialize(nullptr, nullptr, nullptr);  // leaves another text
    };
    expectRefusal(SEK_PersistentInitialize(&memory, nullptr, nullptr, &details));
    EXPECT_STREQ(details, "not supported");
    SEK_CryptoFree(details, nullptr);
    expectRefusal(SEK_ImpUsrInitialize(&memory, nullptr, nullptr, nullptr));
    // The text that this one would give back is no place for details.
    char* result = nullptr;
    expectRefusal(SEK_ImpUsrDeserializeHandle(nullptr, &memory, &result, nullptr));
    EXPECT_EQ(result, nullptr);
    expectRefusal(SEK_CMDRT_DecryptPassport(nullptr, 0, &memory, &length, nullptr));
    expectRefusal(AS_DecryptText(0, 0, 0, nullptr, &textLength, nullptr));
}

TEST_F(NotOfferedTest, RandomDataIsReal) {
    std::array<unsigned char, 64> first{};
    std::array<unsigned char, 64> second{};
    ASSERT_EQ(SEK_GetRandomData(first.size(), first.data(), nullptr), SEK_Ok);
    ASSERT_EQ(SEK_GetRandomData(second.size(), second.data(), nullptr), SEK_Ok);
    EXPECT_NE(first, second);
    EXPECT_EQ(SEK_GetRandomData(0, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(SEK_GetRandomData(1, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "no memory given");
}

}  // namespace
