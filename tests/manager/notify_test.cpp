// tests/manager/notify_test.cpp: who is told of a change, in which order,
// with which parameters.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "manager/fixture.h"
#include "support/post_capture.h"

namespace tavlo::test {
namespace {

HWND Window(std::uintptr_t n) {
    return reinterpret_cast<HWND>(n);
}

void* Thread(std::uintptr_t n) {
    return reinterpret_cast<void*>(n);
}

class NotifyTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        path_ = WriteDatabase("net.dbc");
        message_ = TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);
    }

    // Opens the shared file in mgr; returns the handle.
    const char* Open(TavloManager& mgr, const char* name = nullptr) {
        const char* handle = nullptr;
        EXPECT_EQ(mgr.OpenDatabase(path_.c_str(), &handle, name, 0), TAVLO_STATUS_OK);
        return handle;
    }
    // What the posts of one notification must be: the broadcast, then one
    // post to a window (wParam: the sender's window) or a thread (wParam:
    // the sender's thread id) per receiving entry, lParam its handle.
    struct Told {
        HWND window;
        unsigned long thread;
        std::uintptr_t wParam;
        const char* handle;
    };
    void ExpectPosts(const TavloManager& sender, const TavloDatabase& db,
                     const std::vector<Told>& told) {
        posts_.clear();
        TavloManager::NotifyChanges(sender, db);
        std::vector<PostedMessage> expected = {{HWND_BROADCAST, 0, message_, 0, 0}};
        for (const Told& t : told) {
            expected.push_back(
                {t.window, t.thread, message_, t.wParam, reinterpret_cast<std::intptr_t>(t.handle)});
        }
        EXPECT_EQ(posts_.posts(), expected);
    }

    std::string path_;
    unsigned int message_ = 0;
    PostCapture posts_;
};

TEST_F(NotifyTest, TheSenderFirstThenEveryOtherManagerWithTheFileFromTheNewestOn) {
    TavloManager sender(Window(0x10));
    TavloManager reader1(Window(0x20));
    TavloManager without(Window(0x30));  // has another file only
    TavloManager reader2(Window(0x40));
    const char* senderName = Open(sender);
    const char* name1 = Open(reader1, "First");
    ASSERT_EQ(without.OpenDatabase(WriteDatabase("other.dbc").c_str(), nullptr, 0), 0u);
    const char* name2 = Open(reader2);
    ExpectPosts(sender, *sender.GetDatabase(senderName),
                {{Window(0x10), 0, 0x10, senderName},
                 {Window(0x40), 0, 0x10, name2},
                 {Window(0x20), 0, 0x10, name1}});
    // The handle in lParam works with the receiving manager.
    const auto* received = reinterpret_cast<const char*>(posts_.posts()[3].lParam);
    EXPECT_EQ(reader1.GetDatabase(received), reader1.GetDatabase(name1));

    // Another object of the same file counts as the same database; the
    // sender need not have the file open.
    const TavloDatabase privateCopy(*reader1.GetDatabase(name1));
    ExpectPosts(without, privateCopy,
                {{Window(0x40), 0, 0x30, name2}, {Window(0x20), 0, 0x30, name1},
                 {Window(0x10), 0, 0x30, senderName}});
}

TEST_F(NotifyTest, ThreadsGetThreadPostsWithTheSendersThreadId) {
    TavloManager sender(Thread(7));
    TavloManager reader(Thread(9));
    TavloManager windowed(Window(0x20));
    const char* senderName = Open(sender);
    const char* readerName = Open(reader);
    const char* windowedName = Open(windowed);
    // A sender without a window gives window receivers a null wParam.
    ExpectPosts(sender, *sender.GetDatabase(senderName),
                {{nullptr, 7, 7, senderName},
                 {Window(0x20), 0, 0, windowedName},
                 {nullptr, 9, 7, readerName}});

    const TavloDatabase& db = *reader.GetDatabase(readerName);
    reader.SetHandle(Window(0x21));
    windowed.SetHandle(Thread(33));
    sender.SetHandle(Window(0x10));
    ExpectPosts(sender, db,
                {{Window(0x10), 0, 0x10, senderName},
                 {nullptr, 33, 0, windowedName},
                 {Window(0x21), 0, 0x10, readerName}});
    // Neither window nor thread: not told.
    windowed.SetHandle(Thread(0));
    reader.SetHandle(Thread(0));
    sender.SetHandle(Thread(0));
    ExpectPosts(sender, db, {});
}

TEST_F(NotifyTest, APathlessDatabaseReachesOnlyTheBroadcast) {
    TavloManager sender(Window(0x10));
    TavloDatabase& db = sender.AssignDatabase(nullptr);
    sender.ListInsertDatabase(db, "New", 0);
    ExpectPosts(sender, db, {});
}

}  // namespace
}  // namespace tavlo::test
