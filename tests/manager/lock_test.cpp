// tests/manager/lock_test.cpp: read and write locks between managers, the
// refusal message, and when locks go away.
#include <gtest/gtest.h>

#include <string>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

const unsigned int kRefusalStyle = 0x2010;

class LockTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        path_ = WriteDatabase("shared.dbc");
        ASSERT_EQ(holder_.OpenDatabase(path_.c_str(), &holderName_, 0), TAVLO_STATUS_OK);
        ASSERT_EQ(asker_.OpenDatabase(path_.c_str(), &askerName_, 0), TAVLO_STATUS_OK);
    }

    TavloDatabase& Shared() { return *holder_.GetDatabase(holderName_); }

    // Takes a lock of the given kind for a manager.
    static bool Lock(TavloManager& mgr, const char* dbName, bool write, const char* user) {
        const TavloLock* lock = write ? TavloWriteLock::Create(mgr, dbName, user)
                                      : TavloReadLock::Create(mgr, dbName, user);
        return lock != nullptr;
    }

    std::string path_;
    TavloManager holder_{static_cast<void*>(nullptr)};
    TavloManager asker_{static_cast<void*>(nullptr)};
    const char* holderName_ = nullptr;
    const char* askerName_ = nullptr;
};

TEST_F(LockTest, ConflictTable) {
    struct Case {
        bool heldWrite;
        bool askedWrite;
        bool granted;
    };
    const Case cases[] = {
        {false, false, true}, {false, true, false}, {true, false, false}, {true, true, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.heldWrite ? "write" : "read") + " held, " +
                     (c.askedWrite ? "write" : "read") + " asked");
        ASSERT_TRUE(Lock(holder_, holderName_, c.heldWrite, "Holder's editor"));
        const std::size_t shownBefore = shown_.messages().size();
        EXPECT_EQ(Lock(asker_, askerName_, c.askedWrite, "Asker"), c.granted);
        if (c.granted) {
            EXPECT_EQ(shown_.messages().size(), shownBefore);
        } else {
            ASSERT_EQ(shown_.messages().size(), shownBefore + 1);
            const ShownMessage& shown = shown_.messages().back();
            EXPECT_EQ(shown.text, "Database access refused!\nHolder's editor");
            EXPECT_TRUE(shown.hasCaption);
            EXPECT_EQ(shown.caption, "TAVLOMS.DLL");
            EXPECT_EQ(shown.style, kRefusalStyle);
        }
        // The kind-specific conflict searches agree with the table.
        const bool readRefused = TavloReadLock::GetLock(asker_, Shared()) != nullptr;
        const bool writeRefused = TavloWriteLock::GetLock(asker_, Shared()) != nullptr;
        EXPECT_EQ(readRefused, c.heldWrite);
        EXPECT_TRUE(writeRefused);
        asker_.UnlockDatabase(nullptr);
        holder_.UnlockDatabase(nullptr);
        EXPECT_EQ(TavloWriteLock::GetLock(asker_, Shared()), nullptr);
    }
}

TEST_F(LockTest, OwnLocksNeverRefuse) {
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "me"));
    EXPECT_TRUE(Lock(holder_, holderName_, true, "me again"));
    EXPECT_TRUE(holder_.LockDatabase(holderName_, "and again"));
    EXPECT_TRUE(shown_.messages().empty());
}

TEST_F(LockTest, ANullHolderTextShowsNothingAfterTheLineBreak) {
    ASSERT_TRUE(Lock(holder_, holderName_, true, nullptr));
    EXPECT_FALSE(asker_.LockDatabase(askerName_, "asker"));
    ASSERT_EQ(shown_.messages().size(), 1u);
    EXPECT_EQ(shown_.messages()[0].text, "Database access refused!\n");
}

TEST_F(LockTest, AnotherObjectOfTheSameFileConflicts) {
    // A private copy of the file (as a write manager edits) is the same
    // database for locks.
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "reader"));
    TavloDatabase copy(Shared());
    EXPECT_NE(TavloWriteLock::GetLock(asker_, copy), nullptr);
    EXPECT_EQ(TavloReadLock::GetLock(asker_, copy), nullptr);
    // A database without a file is equal to nothing, not even itself.
    TavloDatabase pathless;
    EXPECT_EQ(TavloWriteLock::GetLock(asker_, pathless), nullptr);
}

TEST_F(LockTest, UnknownHandlesAreRefusedSilently) {
    const std::string text = holderName_;
    EXPECT_FALSE(holder_.LockDatabase(text.c_str(), "x"));
    EXPECT_EQ(TavloWriteLock::Create(holder_, text.c_str(), "x"), nullptr);
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "x"));
    holder_.UnlockDatabase(text.c_str());  // nothing happens
    EXPECT_NE(TavloWriteLock::GetLock(asker_, Shared()), nullptr);
    EXPECT_TRUE(shown_.messages().empty());
}

TEST_F(LockTest, UnlockOneDatabaseKeepsTheOthers) {
    const std::string otherPath = WriteDatabase("other.dbc");
    const char* other = nullptr;
    const char* askerOther = nullptr;
    ASSERT_EQ(holder_.OpenDatabase(otherPath.c_str(), &other, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(asker_.OpenDatabase(otherPath.c_str(), &askerOther, 0), TAVLO_STATUS_OK);
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "h"));
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "h2"));  // several on one database
    ASSERT_TRUE(holder_.LockDatabase(other, "h"));
    holder_.UnlockDatabase(holderName_);
    EXPECT_EQ(TavloWriteLock::GetLock(asker_, Shared()), nullptr);
    EXPECT_NE(TavloWriteLock::GetLock(asker_, *asker_.GetDatabase(askerOther)), nullptr);
}

TEST_F(LockTest, LockAllStopsAtTheFirstRefusalAndFreesWhatItTook) {
    const std::string firstPath = WriteDatabase("first.dbc");
    const std::string thirdPath = WriteDatabase("third.dbc");
    TavloManager locker(static_cast<void*>(nullptr));
    const char* first = nullptr;
    const char* second = nullptr;
    const char* third = nullptr;
    ASSERT_EQ(locker.OpenDatabase(firstPath.c_str(), &first, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(locker.OpenDatabase(path_.c_str(), &second, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(locker.OpenDatabase(thirdPath.c_str(), &third, 0), TAVLO_STATUS_OK);
    ASSERT_TRUE(Lock(holder_, holderName_, true, "holder"));

    EXPECT_FALSE(locker.LockAllDatabases("locker"));
    EXPECT_EQ(shown_.messages().size(), 1u);
    TavloManager probe(static_cast<void*>(nullptr));
    for (const char* name : {first, second, third}) {
        EXPECT_EQ(TavloWriteLock::GetLock(probe, *locker.GetDatabase(name)) != nullptr,
                  name == second)
            << name;  // only the holder's lock is left
    }

    holder_.UnlockDatabase(nullptr);
    EXPECT_TRUE(locker.LockAllDatabases("locker"));
    for (const char* name : {first, second, third}) {
        EXPECT_NE(TavloWriteLock::GetLock(probe, *locker.GetDatabase(name)), nullptr) << name;
    }
    TavloManager empty(static_cast<void*>(nullptr));
    EXPECT_TRUE(empty.LockAllDatabases("nothing to lock"));
}

TEST_F(LockTest, ClosingOrDestroyingAManagerFreesItsLocks) {
    ASSERT_TRUE(Lock(holder_, holderName_, true, "holder"));
    holder_.CloseDatabase(holderName_, true);
    EXPECT_TRUE(asker_.LockDatabase(askerName_, "asker"));
    asker_.UnlockDatabase(nullptr);

    {
        TavloManager shortLived(static_cast<void*>(nullptr));
        const char* name = nullptr;
        ASSERT_EQ(shortLived.OpenDatabase(path_.c_str(), &name, 0), TAVLO_STATUS_OK);
        ASSERT_TRUE(Lock(shortLived, name, true, "short"));
        EXPECT_FALSE(asker_.LockDatabase(askerName_, "asker"));
    }
    EXPECT_TRUE(asker_.LockDatabase(askerName_, "asker"));
}

TEST_F(LockTest, ALockDeletedDirectlyLeavesTheList) {
    TavloLock* lock = TavloWriteLock::Create(holder_, holderName_, "holder");
    ASSERT_NE(lock, nullptr);
    EXPECT_TRUE(lock->IsWriteLock());
    EXPECT_EQ(lock->mManager, &holder_);
    EXPECT_EQ(lock->mDatabase, &Shared());
    EXPECT_STREQ(lock->mUser, "holder");
    delete lock;
    EXPECT_EQ(TavloWriteLock::GetLock(asker_, Shared()), nullptr);

    TavloLock* read = TavloReadLock::Create(holder_, holderName_, "reader");
    ASSERT_NE(read, nullptr);
    EXPECT_FALSE(read->IsWriteLock());
    TavloLock::ListRemoveLock(read);
    EXPECT_EQ(TavloWriteLock::GetLock(asker_, Shared()), nullptr);
}

}  // namespace
}  // namespace tavlo::test
