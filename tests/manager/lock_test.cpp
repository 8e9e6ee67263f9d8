// tests/manager/lock_test.cpp: read and write locks between managers, the
// refusal message, and when locks go away.
#include <gtest/gtest.h>

#include <string>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

class LockTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        path_ = WriteDatabase("shared.dbc");
        ASSERT_EQ(holder_.OpenDatabase(path_.c_str(), &holderName_, 0), TAVLO_STATUS_OK);
        ASSERT_EQ(asker_.OpenDatabase(path_.c_str(), &askerName_, 0), TAVLO_STATUS_OK);
    }

    TavloDatabase& Shared() { return *holder_.GetDatabase(holderName_); }
    // Whether asker_ would get a lock of the kind on db.
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
            SCOPED_TRACE(std::string(heldWrite ? "write" : "read") + " held, " +
                         (askedWrite ? "write" : "read") + " asked");
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
                const ShownMessage& shown = shown_.messages().back();
                EXPECT_EQ(shown.text, "Database access refused!\nHolder's editor");
                EXPECT_EQ(shown.caption, "TAVLOMS.DLL");
                EXPECT_EQ(shown.style, 0x2010u);  // task-modal, stop icon
            }
            asker_.UnlockDatabase(nullptr);
            holder_.UnlockDatabase(nullptr);
            EXPECT_FALSE(Refused(true, Shared()));
        }
    }
}

TEST_F(LockTest, ANullHolderTextShowsNothingAfterTheLineBreak) {
    ASSERT_NE(Lock(holder_, holderName_, true, nullptr), nullptr);
    EXPECT_FALSE(asker_.LockDatabase(askerName_, "asker"));
    ASSERT_EQ(shown_.messages().size(), 1u);
    EXPECT_EQ(shown_.messages()[0].text, "Database access refused!\n");
}

TEST_F(LockTest, LocksHoldOnTheFileNotTheObject) {
    // A private copy of the file (as a write manager edits) is the same
    // database for locks; a database without a file is equal to nothing.
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "reader"));
    TavloDatabase copy(Shared());
    EXPECT_TRUE(Refused(true, copy));
    EXPECT_FALSE(Refused(false, copy));
    TavloDatabase pathless;
    EXPECT_FALSE(Refused(true, pathless));
}

TEST_F(LockTest, UnknownHandlesAreRefusedSilentlyAndUnlockNothing) {
    const std::string text = holderName_;
    EXPECT_FALSE(holder_.LockDatabase(text.c_str(), "x"));
    EXPECT_EQ(TavloWriteLock::Create(holder_, text.c_str(), "x"), nullptr);
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "x"));
    holder_.UnlockDatabase(text.c_str());
    EXPECT_TRUE(Refused(true, Shared()));
    EXPECT_TRUE(shown_.messages().empty());
}

TEST_F(LockTest, UnlockingOneDatabaseKeepsTheLocksOnOthers) {
    const std::string otherPath = WriteDatabase("other.dbc");
    const char* other = nullptr;
    const char* askerOther = nullptr;
    ASSERT_EQ(holder_.OpenDatabase(otherPath.c_str(), &other, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(asker_.OpenDatabase(otherPath.c_str(), &askerOther, 0), TAVLO_STATUS_OK);
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "h"));
    ASSERT_TRUE(holder_.LockDatabase(holderName_, "h2"));  // several on one database
    ASSERT_TRUE(holder_.LockDatabase(other, "h"));
    holder_.UnlockDatabase(holderName_);
    EXPECT_FALSE(Refused(true, Shared()));
    EXPECT_TRUE(Refused(true, *asker_.GetDatabase(askerOther)));
}

TEST_F(LockTest, LockAllStopsAtTheFirstRefusalAndFreesWhatItTook) {
    TavloManager locker(static_cast<void*>(nullptr));
    const std::string paths[] = {WriteDatabase("first.dbc"), path_, WriteDatabase("third.dbc")};
    const char* names[3] = {};
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(locker.OpenDatabase(paths[i].c_str(), &names[i], 0), TAVLO_STATUS_OK);
    }
    ASSERT_NE(Lock(holder_, holderName_, true, "holder"), nullptr);
    EXPECT_FALSE(locker.LockAllDatabases("locker"));
    EXPECT_EQ(shown_.messages().size(), 1u);
    TavloManager probe(static_cast<void*>(nullptr));
    for (const char* name : names) {  // only the holder's lock is left
        EXPECT_EQ(TavloWriteLock::GetLock(probe, *locker.GetDatabase(name)) != nullptr,
                  name == names[1])
            << name;
    }
    holder_.UnlockDatabase(nullptr);
    EXPECT_TRUE(locker.LockAllDatabases("locker"));
    for (const char* name : names) {
        EXPECT_NE(TavloWriteLock::GetLock(probe, *locker.GetDatabase(name)), nullptr) << name;
    }
}

TEST_F(LockTest, ClosingOrDestroyingAManagerOrDeletingALockFreesIt) {
    TavloDatabase& shared = *asker_.GetDatabase(askerName_);
    ASSERT_NE(Lock(holder_, holderName_, true, "holder"), nullptr);
    holder_.CloseDatabase(holderName_, true);
    EXPECT_FALSE(Refused(true, shared));
    {
        TavloManager shortLived(static_cast<void*>(nullptr));
        const char* name = nullptr;
        ASSERT_EQ(shortLived.OpenDatabase(path_.c_str(), &name, 0), TAVLO_STATUS_OK);
        ASSERT_NE(Lock(shortLived, name, true, "short"), nullptr);
        EXPECT_TRUE(Refused(false, shared));
    }
    EXPECT_FALSE(Refused(true, shared));

    TavloLock* lock = Lock(asker_, askerName_, true, "asker");
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(lock->mManager, &asker_);
    EXPECT_EQ(lock->mDatabase, &shared);
    EXPECT_STREQ(lock->mUser, "asker");
    delete lock;
    EXPECT_EQ(TavloWriteLock::GetLock(holder_, shared), nullptr);
    TavloLock::ListRemoveLock(Lock(asker_, askerName_, false, "asker"));
    EXPECT_EQ(TavloWriteLock::GetLock(holder_, shared), nullptr);
}

}  // namespace
}  // namespace tavlo::test
