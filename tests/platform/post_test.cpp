// Posts through the client's hook or the default, and window messages
// registered by name.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/post_capture.h"
#include "tavloms/platform.h"

namespace {

using tavlo::test::PostedMessage;

const HWND kWindow = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234));

TEST(Post, AHookReceivesWindowThreadAndBroadcastPostsUntilItIsRemoved) {
    {
        tavlo::test::PostCapture capture;
        tavlo::platform::PostToWindow(kWindow, 0xC001, 7, -3);
        tavlo::platform::PostToThread(4711, 0xC002, UINTPTR_MAX, INTPTR_MIN);
        tavlo::platform::PostToWindow(HWND_BROADCAST, 0xC003, 0, 1);
        EXPECT_EQ(capture.posts(), (std::vector<PostedMessage>{{kWindow, 0, 0xC001, 7, -3},
                                                               {nullptr, 4711, 0xC002, UINTPTR_MAX, INTPTR_MIN},
                                                               {HWND_BROADCAST, 0, 0xC003, 0, 1}}));
    }
#if !defined(_WIN32)  // the default has nobody to deliver to: the posts are dropped quietly
    EXPECT_EQ(TAVLO_SET_POST_HOOK(nullptr), nullptr);
    ::testing::internal::CaptureStderr();
    ::testing::internal::CaptureStdout();
    tavlo::platform::PostToWindow(kWindow, 0xC001, 0, 0);
    tavlo::platform::PostToThread(1, 0xC001, 0, 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr(), "");
#endif
}

TEST(RegisterWindowMessage, OneNumberForEachNameWhateverItsCase) {
    const struct { const char* first; const char* second; } same[] = {
        {"PostTestMessageA", "PostTestMessageA"}, {"PostTestMessageB", "posttestmessageb"}, {"PostTest 9:x", "POSTTEST 9:X"}};
    for (const auto& c : same) {
        const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE(c.first);
        EXPECT_TRUE(number >= 0xC000u && number <= 0xFFFFu) << c.first;
        EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE(c.second), number) << c.second;
        EXPECT_EQ(tavlo::platform::RegisterMessageName(c.second), number) << c.second;
    }
    std::vector<unsigned int> numbers;
    for (const char* name : {"PostTestOne", "PostTestTwo", "PostTestOne2", "PostTestOn",
#if !defined(_WIN32)  // Windows folds the letters of its code page
                             "PostTest\xC4", "PostTest\xE4",  // non-ASCII letters do not fold
#endif
                             }) {
        const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE(name);
        EXPECT_EQ(std::count(numbers.begin(), numbers.end(), number), 0) << name;
        numbers.push_back(number);
    }
    EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE(nullptr) + TAVLO_REGISTER_WINDOW_MESSAGE(""), 0u);
}

#if !defined(_WIN32)  // Windows numbers its atoms its own way
// In a child process, so that the numbers used up there are not missing from
// the other tests.
TEST(RegisterWindowMessageDeathTest, NumbersRunOutAfter0xFFFF) {
    EXPECT_EXIT(
        {
            unsigned int last = 0;
            unsigned int count = 0;
            for (unsigned int number; (number = TAVLO_REGISTER_WINDOW_MESSAGE(("Exhaust" + std::to_string(count)).c_str())) != 0; ++count) {
                if (last != 0 && number != last + 1) {
                    std::exit(1);  // a gap
                }
                last = number;
            }
            std::fprintf(stderr, "last %x kept %d refused %d", last, TAVLO_REGISTER_WINDOW_MESSAGE("exhaust0") != 0,
                         TAVLO_REGISTER_WINDOW_MESSAGE("ExhaustOnceMore") == 0);
            std::exit(count > 0 && count <= 0x4000u ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "last ffff kept 1 refused 1");
}
#else
// Without a hook, posts go into the real message queues of Windows.
TEST(RealQueue, APostArrivesWithItsArguments) {
    MSG msg;
    PeekMessageA(&msg, nullptr, 0, 0, PM_NOREMOVE);  // the thread gets its queue
    const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE("PostTestRealQueue");
    tavlo::platform::PostToThread(GetCurrentThreadId(), number, 7, -3);
    ASSERT_TRUE(PeekMessageA(&msg, nullptr, number, number, PM_REMOVE));
    EXPECT_TRUE(msg.hwnd == nullptr && msg.wParam == 7u && msg.lParam == -3);
    HWND window = CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    if (window == nullptr) {
        GTEST_SKIP() << "no window can be made here";
    }
    tavlo::platform::PostToWindow(window, number, 11, 12);
    ASSERT_TRUE(PeekMessageA(&msg, window, number, number, PM_REMOVE));
    EXPECT_TRUE(msg.hwnd == window && msg.wParam == 11u && msg.lParam == 12);
    DestroyWindow(window);
}
#endif

}  // namespace
