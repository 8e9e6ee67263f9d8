// Message boxes through the client's hook or the default, and the format of
// the library's assertions.
#include <string>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "tavloms/platform.h"

namespace {

int gHookCalls = 0;

int CountingHook(const char*, const char*, unsigned int) {
    ++gHookCalls;
    return 7;
}

int OtherHook(const char*, const char*, unsigned int) {
    return 2;
}

#if !defined(_WIN32)  // Windows shows a real message box
TEST(MessageBox, WithoutAHookOneLineGoesToStandardError) {
    struct Case {
        const char* text;
        const char* caption;
        const char* line;
    };
    const Case cases[] = {
        {"database: not found, x.dbc", nullptr, "Error: database: not found, x.dbc\n"},
        {"Database access refused!\nAnna", "TAVLOMS.DLL",
         "TAVLOMS.DLL: Database access refused!\nAnna\n"},
    };
    for (const Case& c : cases) {
        ::testing::internal::CaptureStderr();
        const int button = tavlo::platform::ShowMessageBox(c.text, c.caption, MB_ICONHAND);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), c.line);
        EXPECT_EQ(button, 1);  // OK
    }
}
#endif

TEST(MessageBox, AHookReceivesEveryBoxUntilItIsRemoved) {
    EXPECT_EQ(TAVLO_SET_MESSAGEBOX_HOOK(&CountingHook), nullptr);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(tavlo::platform::ShowMessageBox("text", nullptr, MB_ICONHAND), 7);
    EXPECT_EQ(gHookCalls, 1);
    EXPECT_EQ(TAVLO_SET_MESSAGEBOX_HOOK(&OtherHook), &CountingHook);
    EXPECT_EQ(tavlo::platform::ShowMessageBox("text", nullptr, MB_ICONHAND), 2);
    EXPECT_EQ(TAVLO_SET_MESSAGEBOX_HOOK(nullptr), &OtherHook);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
#if !defined(_WIN32)  // without the hook Windows would show a real box
    ::testing::internal::CaptureStderr();
    tavlo::platform::ShowMessageBox("back", nullptr, MB_ICONHAND);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Error: back\n");
#endif
    EXPECT_EQ(gHookCalls, 1);
}

TEST(AssertionDeathTest, NamesConditionModuleAndLine) {
    const int line = __LINE__ + 1;
    EXPECT_DEATH(TAVLO_ASSERT(line < 0, "canddbm"),
                 "Assertion failed: line < 0, module canddbm, line " + std::to_string(line) +
                     "\n");
}

}  // namespace
