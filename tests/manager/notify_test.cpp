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

std::intptr_t Handle(const char* name) {
    return reinterpret_cast<std::intptr_t>(name);
}

class NotifyTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        path_ = WriteDatabase("net.dbc");
        message_ = TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);
        ASSERT_GE(message_, 0xC000u);
    }

    PostedMessage Broadcast() const { return {HWND_BROADCAST, 0, message_, 0, 0}; }
    PostedMessage ToWindow(HWND to, HWND from, const char* name) const {
        return {to, 0, message_, reinterpret_cast<std::uintptr_t>(from), Handle(name)};
    }
    PostedMessage ToThread(unsigned long to, unsigned long from, const char* name) const {
        return {nullptr, to, message_, from, Handle(name)};
    }

    std::string path_;
    unsigned int message_ = 0;
    PostCapture posts_;
};

TEST_F(NotifyTest, EveryManagerWithTheFileIsToldOnceBesidesTheBroadcast) {
    TavloManager sender(Window(0x10));
    TavloManager reader1(Window(0x20));
    TavloManager without(Window(0x30));  // has another file only
    TavloManager reader2(Window(0x40));
    const char* senderName = nullptr;
    const char* name1 = nullptr;
    const char* name2 = nullptr;
    ASSERT_EQ(sender.OpenDatabase(path_.c_str(), &senderName, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(reader1.OpenDatabase(path_.c_str(), &name1, "First", 0), TAVLO_STATUS_OK);
    ASSERT_EQ(without.OpenDatabase(WriteDatabase("other.dbc").c_str(), nullptr, 0),
              TAVLO_STATUS_OK);
    ASSERT_EQ(reader2.OpenDatabase(path_.c_str(), &name2, 0), TAVLO_STATUS_OK);
    posts_.clear();

    TavloManager::NotifyChanges(sender, *sender.GetDatabase(senderName));
    // The sender first, then the others from the most recently made on.
    const std::vector<PostedMessage> expected = {
        Broadcast(),
        ToWindow(Window(0x10), Window(0x10), senderName),
        ToWindow(Window(0x40), Window(0x10), name2),
        ToWindow(Window(0x20), Window(0x10), name1),
    };
    EXPECT_EQ(posts_.posts(), expected);
}

TEST_F(NotifyTest, AnotherObjectOfTheSameFileCountsAsTheSameDatabase) {
    TavloManager sender(Window(0x10));
    TavloManager reader(Window(0x20));
    const char* name = nullptr;
    ASSERT_EQ(reader.OpenDatabase(path_.c_str(), &name, 0), TAVLO_STATUS_OK);
    const TavloDatabase privateCopy(*reader.GetDatabase(name));
    posts_.clear();
    TavloManager::NotifyChanges(sender, privateCopy);
    const std::vector<PostedMessage> expected = {Broadcast(),
                                                 ToWindow(Window(0x20), Window(0x10), name)};
    EXPECT_EQ(posts_.posts(), expected);
}

TEST_F(NotifyTest, ThreadsGetThreadPostsWithTheSendersThreadId) {
    TavloManager sender(Thread(7));
    TavloManager reader(Thread(9));
    TavloManager windowed(Window(0x20));
    const char* senderName = nullptr;
    const char* readerName = nullptr;
    const char* windowedName = nullptr;
    ASSERT_EQ(sender.OpenDatabase(path_.c_str(), &senderName, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(reader.OpenDatabase(path_.c_str(), &readerName, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(windowed.OpenDatabase(path_.c_str(), &windowedName, 0), TAVLO_STATUS_OK);
    posts_.clear();

    TavloManager::NotifyChanges(sender, *sender.GetDatabase(senderName));
    // A sender without a window gives window receivers a null wParam.
    const std::vector<PostedMessage> expected = {
        Broadcast(),
        ToThread(7, 7, senderName),
        ToWindow(Window(0x20), nullptr, windowedName),
        ToThread(9, 7, readerName),
    };
    EXPECT_EQ(posts_.posts(), expected);
}

TEST_F(NotifyTest, SetHandleChangesHowAManagerIsTold) {
    TavloManager sender(Window(0x10));
    TavloManager reader(Window(0x20));
    const char* name = nullptr;
    ASSERT_EQ(reader.OpenDatabase(path_.c_str(), &name, 0), TAVLO_STATUS_OK);
    const TavloDatabase& db = *reader.GetDatabase(name);

    reader.SetHandle(Thread(33));
    posts_.clear();
    TavloManager::NotifyChanges(sender, db);
    EXPECT_EQ(posts_.posts(), (std::vector<PostedMessage>{Broadcast(), ToThread(33, 0, name)}));

    reader.SetHandle(Window(0x21));
    sender.SetHandle(Thread(5));
    posts_.clear();
    TavloManager::NotifyChanges(sender, db);
    EXPECT_EQ(posts_.posts(),
              (std::vector<PostedMessage>{Broadcast(), ToWindow(Window(0x21), nullptr, name)}));

    // Neither window nor thread: only the broadcast is left.
    reader.SetHandle(Thread(0));
    posts_.clear();
    TavloManager::NotifyChanges(sender, db);
    EXPECT_EQ(posts_.posts(), std::vector<PostedMessage>{Broadcast()});
}

TEST_F(NotifyTest, TheHandleInLParamWorksWithTheReceivingManager) {
    TavloManager sender(Window(0x10));
    TavloManager reader(Window(0x20));
    const char* name = nullptr;
    ASSERT_EQ(reader.OpenDatabase(path_.c_str(), &name, "Renamed", 0), TAVLO_STATUS_OK);
    posts_.clear();
    TavloManager::NotifyChanges(sender, *reader.GetDatabase(name));
    ASSERT_EQ(posts_.posts().size(), 2u);
    const auto* received = reinterpret_cast<const char*>(posts_.posts()[1].lParam);
    EXPECT_EQ(reader.GetDatabase(received), reader.GetDatabase(name));
    EXPECT_STREQ(received, "Renamed");
}

TEST_F(NotifyTest, APathlessDatabaseReachesOnlyTheBroadcast) {
    TavloManager sender(Window(0x10));
    TavloDatabase& db = sender.AssignDatabase(nullptr);
    sender.ListInsertDatabase(db, "New", 0);
    posts_.clear();
    TavloManager::NotifyChanges(sender, db);
    EXPECT_EQ(posts_.posts(), std::vector<PostedMessage>{Broadcast()});
}

}  // namespace
}  // namespace tavlo::test
