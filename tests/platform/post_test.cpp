// Posts through the client's hook or the default, and window messages
// registered by name.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "tavloms/platform.h"

namespace {

struct Post {
    HWND window;
    unsigned long threadId;
    unsigned int message;
    uintptr_t wParam;
    intptr_t lParam;
};

std::vector<Post>& Posts() {
    static std::vector<Post> posts;
    return posts;
}

void RecordingHook(HWND window, unsigned long threadId, unsigned int message, uintptr_t wParam,
                   intptr_t lParam) {
    Posts().push_back({window, threadId, message, wParam, lParam});
}

int gOtherCalls = 0;

void OtherHook(HWND, unsigned long, unsigned int, uintptr_t, intptr_t) {
    ++gOtherCalls;
}

// Installs the recording hook for one test and takes it out again, so that a
// failing test leaves no hook behind for the next.
class PostHook : public ::testing::Test {
protected:
    void SetUp() override {
        Posts().clear();
        ASSERT_EQ(TAVLO_SET_POST_HOOK(&RecordingHook), nullptr);
    }
    void TearDown() override { TAVLO_SET_POST_HOOK(nullptr); }
};

HWND SomeWindow() {
    return reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234));
}

TEST_F(PostHook, ReceivesWindowThreadAndBroadcastPostsWithTheirArguments) {
    tavlo::platform::PostToWindow(SomeWindow(), 0xC001, 7, -3);
    tavlo::platform::PostToThread(4711, 0xC002, UINTPTR_MAX, INTPTR_MIN);
    tavlo::platform::PostToWindow(HWND_BROADCAST, 0xC003, 0, 1);

    const std::vector<Post>& posts = Posts();
    ASSERT_EQ(posts.size(), 3u);

    EXPECT_EQ(posts[0].window, SomeWindow());
    EXPECT_EQ(posts[0].threadId, 0u);  // a window post names no thread
    EXPECT_EQ(posts[0].message, 0xC001u);
    EXPECT_EQ(posts[0].wParam, 7u);
    EXPECT_EQ(posts[0].lParam, -3);

    EXPECT_EQ(posts[1].window, nullptr);  // a thread post names no window
    EXPECT_EQ(posts[1].threadId, 4711u);
    EXPECT_EQ(posts[1].message, 0xC002u);
    EXPECT_EQ(posts[1].wParam, UINTPTR_MAX);
    EXPECT_EQ(posts[1].lParam, INTPTR_MIN);

    EXPECT_EQ(posts[2].window, HWND_BROADCAST);
    EXPECT_EQ(posts[2].threadId, 0u);
    EXPECT_EQ(posts[2].message, 0xC003u);
    EXPECT_EQ(posts[2].wParam, 0u);
    EXPECT_EQ(posts[2].lParam, 1);
}

TEST_F(PostHook, SetterReturnsThePreviousHookAndNullRestoresTheDefault) {
    EXPECT_EQ(TAVLO_SET_POST_HOOK(&OtherHook), &RecordingHook);
    tavlo::platform::PostToThread(1, 2, 3, 4);
    EXPECT_EQ(gOtherCalls, 1);
    EXPECT_TRUE(Posts().empty());

    EXPECT_EQ(TAVLO_SET_POST_HOOK(nullptr), &OtherHook);
    // The default has nobody to deliver to: the posts are dropped quietly.
    ::testing::internal::CaptureStderr();
    ::testing::internal::CaptureStdout();
    tavlo::platform::PostToWindow(SomeWindow(), 0xC001, 0, 0);
    tavlo::platform::PostToWindow(HWND_BROADCAST, 0xC001, 0, 0);
    tavlo::platform::PostToThread(1, 0xC001, 0, 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(gOtherCalls, 1);
    EXPECT_TRUE(Posts().empty());

    EXPECT_EQ(TAVLO_SET_POST_HOOK(&RecordingHook), nullptr);
    tavlo::platform::PostToThread(9, 0xC001, 0, 0);
    ASSERT_EQ(Posts().size(), 1u);
    EXPECT_EQ(Posts()[0].threadId, 9u);
}

TEST(RegisterWindowMessage, SameNumberForTheSameNameWhateverItsCase) {
    struct Case {
        const char* first;
        const char* second;
    };
    const Case cases[] = {
        {"PostTestMessageA", "PostTestMessageA"},
        {"PostTestMessageB", "posttestmessageb"},
        {"post_test_message_c", "POST_TEST_MESSAGE_C"},
        {"PostTest 9:x", "POSTTEST 9:X"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.first);
        const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE(c.first);
        EXPECT_GE(number, 0xC000u);
        EXPECT_LE(number, 0xFFFFu);
        EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE(c.second), number);
        EXPECT_EQ(tavlo::platform::RegisterMessageName(c.second), number);
    }
}

TEST(RegisterWindowMessage, DifferentNamesGetDifferentNumbers) {
    const char* const names[] = {
        "PostTestOne", "PostTestTwo", "PostTestOne2", "PostTestOn",
#if !defined(_WIN32)  // Windows folds the letters of its code page
        "PostTest\xC4", "PostTest\xE4",  // non-ASCII letters do not fold
#endif
    };
    std::vector<unsigned int> numbers;
    for (const char* name : names) {
        const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE(name);
        EXPECT_GE(number, 0xC000u) << name;
        for (unsigned int earlier : numbers) {
            EXPECT_NE(number, earlier) << name;
        }
        numbers.push_back(number);
    }
}

TEST(RegisterWindowMessage, NullAndEmptyNamesGetZero) {
    EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE(nullptr), 0u);
    EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE(""), 0u);
    EXPECT_EQ(tavlo::platform::RegisterMessageName(nullptr), 0u);
}

#if !defined(_WIN32)  // Windows numbers its atoms its own way
// Run in a child process, so that the numbers used up there are not missing
// from the other tests.
TEST(RegisterWindowMessageDeathTest, NumbersRunOutAfter0xFFFF) {
    EXPECT_EXIT(
        {
            unsigned int last = 0;
            unsigned int count = 0;
            std::string name;
            for (;; ++count) {
                name = "Exhaust" + std::to_string(count);
                const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE(name.c_str());
                if (number == 0) {
                    break;
                }
                if (last != 0 && number != last + 1) {
                    std::fprintf(stderr, "gap after %x", last);
                    std::exit(1);
                }
                last = number;
            }
            const bool kept = TAVLO_REGISTER_WINDOW_MESSAGE("exhaust0") != 0;
            const bool refused = TAVLO_REGISTER_WINDOW_MESSAGE("ExhaustOnceMore") == 0;
            std::fprintf(stderr, "last %x kept %d refused %d", last, kept, refused);
            std::exit(count > 0 && count <= 0x4000u ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "last ffff kept 1 refused 1");
}
#endif

#if defined(_WIN32)
// Without a hook, posts go into the real message queues of Windows: the test
// thread reads them back with PeekMessageA.
TEST(RealQueue, AThreadPostArrivesWithItsArguments) {
    MSG msg;
    PeekMessageA(&msg, nullptr, 0, 0, PM_NOREMOVE);  // the thread gets its queue
    const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE("PostTestRealQueue");
    ASSERT_NE(number, 0u);
    tavlo::platform::PostToThread(GetCurrentThreadId(), number, 7, -3);
    ASSERT_TRUE(PeekMessageA(&msg, nullptr, number, number, PM_REMOVE));
    EXPECT_EQ(msg.hwnd, nullptr);
    EXPECT_EQ(msg.message, number);
    EXPECT_EQ(msg.wParam, 7u);
    EXPECT_EQ(msg.lParam, -3);
    EXPECT_FALSE(PeekMessageA(&msg, nullptr, number, number, PM_REMOVE));
}

TEST(RealQueue, AWindowPostArrivesAtTheWindowsThread) {
    HWND window = CreateWindowExA(0, "STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                  nullptr, nullptr);
    if (window == nullptr) {
        GTEST_SKIP() << "no window can be made here";
    }
    const unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE("PostTestRealWindow");
    tavlo::platform::PostToWindow(window, number, 11, 12);
    MSG msg;
    ASSERT_TRUE(PeekMessageA(&msg, window, number, number, PM_REMOVE));
    EXPECT_EQ(msg.hwnd, window);
    EXPECT_EQ(msg.wParam, 11u);
    EXPECT_EQ(msg.lParam, 12);
    DestroyWindow(window);
}
#endif

}  // namespace
