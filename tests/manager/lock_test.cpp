// tests/manager/lock_test.cpp: what managers of one file do to each other:
// read and write locks with the refusal message and when locks go away, and
// who is told of a change, in which order, with which parameters.

#include <cstdint>
#include <tuple>

#include "manager/fixture.h"
#include "support/post_capture.h"

namespace tavlo::test {
namespace {

class LockTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        path_ = WriteDatabase("shared.dbc");
        holderName_ = Open(holder_, path_);
        askerName_ = Open(asker_, path_);
    }

    TavloDatabase& Shared() { return *asker_.GetDatabase(askerName_); }
    // Whether asker_ would be refused a lock of the kind on db.
    bool Refused(bool write, TavloDatabase& db) {
        return (write ? TavloWriteLock::GetLock(asker_, db) : TavloReadLock::GetLock(asker_, db)) !=
               nullptr;
    }
    static TavloLock* Lock(TavloManager& mgr, const char* dbName, bool write, const char* user) {
        return write ? TavloWriteLock::Create(mgr, dbName, user)
                     : TavloReadLock::Create(mgr, dbName, user);
    }

    std::string path_;
    TavloManager holder_{static_cast<void*>(nullptr)};
    TavloManager asker_{static_cast<void*>(nullptr)};
    const char* holderName_ = nullptr;
    const char* askerName_ = nullptr;
};

TEST_F(LockTest, OnlyReadLocksShareAndARefusalNamesTheHolder) {
    for (const bool heldWrite : {false, true}) {
        for (const bool askedWrite : {false, true}) {
            SCOPED_TRACE(::testing::Message() << "held write " << heldWrite << ", asked write "
                                              << askedWrite);
            TavloLock* held = Lock(holder_, holderName_, heldWrite, "Holder's editor");
            ASSERT_NE(held, nullptr);
            EXPECT_EQ(held->IsWriteLock(), heldWrite);
            // A manager's own locks never refuse it.
            EXPECT_EQ(TavloWriteLock::GetLock(holder_, Shared()), nullptr);
            const bool granted = !heldWrite && !askedWrite;
            const std::size_t shown = shown_.messages().size();
            EXPECT_EQ(Refused(askedWrite, Shared()), !granted);
            EXPECT_EQ(Lock(asker_, askerName_, askedWrite, "Asker") != nullptr, granted);
            ASSERT_EQ(shown_.messages().size(), shown + (granted ? 0 : 1));
            if (!granted) {
                const ShownMessage& refusal = shown_.messages().back();
                EXPECT_EQ(refusal.text, "Database access refused!\nHolder's editor");
                EXPECT_EQ(refusal.caption, "TAVLOMS.DLL");
                EXPECT_EQ(refusal.style, 0x2010u);  // task-modal, stop icon
            }
            asker_.UnlockDatabase(nullptr);
            holder_.UnlockDatabase(nullptr);
            EXPECT_FALSE(Refused(true, Shared()));
        }
    }
    // A holder without a text: nothing after the line break.
    ASSERT_NE(Lock(holder_, holderName_, true, nullptr), nullptr);
    EXPECT_FALSE(asker_.LockDatabase(askerName_, "asker"));
    EXPECT_EQ(shown_.messages().back().text, "Database access refused!\n");
}

TEST_F(LockTest, LocksHoldOnTheFileAndOnlyHandlesNameDatabases) {
    // A private copy of the file (as a write manager edits) is the same
    // database for locks; a database without a file is equal to nothing.
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "reader"));
    TavloDatabase copy(Shared());
    EXPECT_TRUE(Refused(true, copy));
    EXPECT_FALSE(Refused(false, copy));
    TavloDatabase pathless;
    EXPECT_FALSE(Refused(true, pathless));
    // Unknown handles are refused silently and unlock nothing.
    const std::string text = holderName_;
    EXPECT_FALSE(holder_.LockDatabase(text.c_str(), "x"));
    EXPECT_EQ(TavloWriteLock::Create(holder_, text.c_str(), "x"), nullptr);
    holder_.UnlockDatabase(text.c_str());
    EXPECT_TRUE(Refused(true, Shared()));
    EXPECT_TRUE(shown_.messages().empty());
}

TEST_F(LockTest, LockAllStopsAtTheFirstRefusalAndFreesWhatItTook) {
    TavloManager locker(static_cast<void*>(nullptr));
    const char* names[] = {Open(locker, WriteDatabase("first.dbc")), Open(locker, path_),
                           Open(locker, WriteDatabase("third.dbc"))};
    ASSERT_NE(Lock(holder_, holderName_, true, "holder"), nullptr);
    EXPECT_FALSE(locker.LockAllDatabases("locker"));
    EXPECT_EQ(shown_.messages().size(), 1u);
    TavloManager probe(static_cast<void*>(nullptr));
    const auto locked = [&](const char* name) {
        return TavloWriteLock::GetLock(probe, *locker.GetDatabase(name)) != nullptr;
    };
    EXPECT_FALSE(locked(names[0]) || locked(names[2]));  // only the holder's lock is left
    holder_.UnlockDatabase(nullptr);
    EXPECT_FALSE(locked(names[1]));
    EXPECT_TRUE(locker.LockAllDatabases("locker"));
    EXPECT_TRUE(locked(names[0]) && locked(names[1]) && locked(names[2]));
    // Unlocking one database keeps the locks on the others.
    locker.UnlockDatabase(names[1]);
    EXPECT_TRUE(locked(names[0]) && !locked(names[1]) && locked(names[2]));
}

TEST_F(LockTest, ClosingOrDestroyingAManagerOrDeletingALockFreesIt) {
    ASSERT_NE(Lock(holder_, holderName_, true, "holder"), nullptr);
    ASSERT_NE(Lock(holder_, holderName_, true, "holder again"), nullptr);
    holder_.CloseDatabase(holderName_, true);
    EXPECT_FALSE(Refused(true, Shared()));
    {
        TavloManager shortLived(static_cast<void*>(nullptr));
        ASSERT_NE(Lock(shortLived, Open(shortLived, path_), true, "short"), nullptr);
        EXPECT_TRUE(Refused(false, Shared()));
    }
    EXPECT_FALSE(Refused(true, Shared()));
    TavloLock* lock = Lock(asker_, askerName_, true, "asker");
    ASSERT_NE(lock, nullptr);
    delete lock;
    EXPECT_EQ(TavloWriteLock::GetLock(holder_, Shared()), nullptr);
    TavloLock::ListRemoveLock(Lock(asker_, askerName_, false, "asker"));
    EXPECT_EQ(TavloWriteLock::GetLock(holder_, Shared()), nullptr);
}

// ---- Change notification ---------------------------------------------------------

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
    }
    // The posts of one notification: the broadcast, then per receiving entry
    // one to its window or thread, wParam the sender's window or thread id,
    // lParam the receiver's handle.
    using Told = std::tuple<HWND, unsigned long, std::uintptr_t, const char*>;
    void ExpectPosts(const TavloManager& sender, const TavloDatabase& db,
                     const std::vector<Told>& told) {
        const unsigned int message = TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);
        posts_.clear();
        TavloManager::NotifyChanges(sender, db);
        std::vector<PostedMessage> expected = {{HWND_BROADCAST, 0, message, 0, 0}};
        for (const auto& [window, thread, wParam, handle] : told) {
            expected.push_back({window, thread, message, wParam, reinterpret_cast<std::intptr_t>(handle)});
        }
        EXPECT_EQ(posts_.posts(), expected);
    }

    std::string path_;
    PostCapture posts_;
};

TEST_F(NotifyTest, TheSenderFirstThenEveryOtherManagerWithTheFileFromTheNewestOn) {
    TavloManager sender(Window(0x10));
    TavloManager reader1(Window(0x20));
    TavloManager without(Window(0x30));  // has another file only
    TavloManager reader2(Window(0x40));
    const char* senderName = Open(sender, path_);
    const char* name1 = Open(reader1, path_, "First");
    Open(without, WriteDatabase("other.dbc"));
    const char* name2 = Open(reader2, path_);
    ExpectPosts(sender, *sender.GetDatabase(senderName),
                {{Window(0x10), 0, 0x10, senderName},
                 {Window(0x40), 0, 0x10, name2},
                 {Window(0x20), 0, 0x10, name1}});
    // The handle in lParam works with the receiving manager.
    const auto* received = reinterpret_cast<const char*>(posts_.posts()[3].lParam);
    EXPECT_EQ(reader1.GetDatabase(received), reader1.GetDatabase(name1));

    // Another object of the same file counts as the same database; the
    // sender need not have the file open. A database without a file reaches
    // only the broadcast.
    const TavloDatabase privateCopy(*reader1.GetDatabase(name1));
    ExpectPosts(without, privateCopy,
                {{Window(0x40), 0, 0x30, name2}, {Window(0x20), 0, 0x30, name1},
                 {Window(0x10), 0, 0x30, senderName}});
    TavloDatabase& pathless = sender.AssignDatabase(nullptr);
    sender.ListInsertDatabase(pathless, "New", 0);
    ExpectPosts(sender, pathless, {});
}

TEST_F(NotifyTest, ThreadsGetThreadPostsWithTheSendersThreadId) {
    TavloManager sender(Thread(7));
    TavloManager reader(Thread(9));
    TavloManager windowed(Window(0x20));
    const char* senderName = Open(sender, path_);
    const char* readerName = Open(reader, path_);
    const char* windowedName = Open(windowed, path_);
    // A sender without a window gives window receivers a null wParam.
    ExpectPosts(sender, *sender.GetDatabase(senderName),
                {{nullptr, 7, 7, senderName},
                 {Window(0x20), 0, 0, windowedName},
                 {nullptr, 9, 7, readerName}});
    // SetHandle makes a manager told the other way.
    const TavloDatabase& db = *reader.GetDatabase(readerName);
    reader.SetHandle(Window(0x21));
    windowed.SetHandle(Thread(33));
    sender.SetHandle(Window(0x10));
    ExpectPosts(sender, db,
                {{Window(0x10), 0, 0x10, senderName},
                 {nullptr, 33, 0, windowedName},
                 {Window(0x21), 0, 0x10, readerName}});
    // Neither window nor thread: not told.
    for (TavloManager* mgr : {&windowed, &reader, &sender}) {
        mgr->SetHandle(Thread(0));
    }
    ExpectPosts(sender, db, {});
}

}  // namespace
}  // namespace tavlo::test
