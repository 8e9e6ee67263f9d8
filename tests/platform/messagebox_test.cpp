// Message boxes through the client's hook or the default, and the format of
// the library's assertions.
#include <string>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "tavloms/platform.h"

namespace {

int gHookCalls = 0;

int CountingHook(const char*, const char*, unsigned int) { return ++gHookCalls, 7; }

int OtherHook(const char*, const char*, unsigned int) { return 2; }

TEST(MessageBox, AHookReceivesEveryBoxUntilItIsRemoved) {
    EXPECT_EQ(TAVLO_SET_MESSAGEBOX_HOOK(&CountingHook), nullptr);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(tavlo::platform::ShowMessageBox("text", nullptr, MB_ICONHAND), 7);
    EXPECT_EQ(TAVLO_SET_MESSAGEBOX_HOOK(&OtherHook), &CountingHook);
    EXPECT_EQ(tavlo::platform::ShowMessageBox("text", nullptr, MB_ICONHAND), 2);
    EXPECT_EQ(TAVLO_SET_MESSAGEBOX_HOOK(nullptr), &OtherHook);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(gHookCalls, 1);
#if !defined(_WIN32)  // Windows shows a real box: without a hook, one line goes to standard error
    const struct { const char* text; const char* caption; const char* line; } cases[] = {
        {"database: not found, x.dbc", nullptr, "Error: database: not found, x.dbc\n"},
        {"Database access refused!\nAnna", "TAVLOMS.DLL", "TAVLOMS.DLL: Database access refused!\nAnna\n"},
    };
    for (const auto& c : cases) {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(tavlo::platform::ShowMessageBox(c.text, c.caption, MB_ICONHAND), 1);  // OK
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), c.line);
    }
#endif
}

TEST(AssertionDeathTest, NamesConditionModuleAndLine) {
    const int line = __LINE__ + 1;
    EXPECT_DEATH(TAVLO_ASSERT(line < 0, "canddbm"),
                 "Assertion failed: line < 0, module canddbm, line " + std::to_string(line) + "\n");
}

}  // namespace
