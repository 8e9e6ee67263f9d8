// tests/manager/manager_test.cpp: opening, naming, sharing, caching and
// closing databases in managers, with every status value.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

class ManagerOpenTest : public ManagerTest {
protected:
    static std::vector<std::string> Names(const TavloManager& mgr) {
        std::vector<std::string> names;
        for (const DbListNode* n = mgr.ListFirstNode(); n != nullptr;
             n = TavloManager::ListNextNode(n)) {
            names.push_back(n->mName);
        }
        return names;
    }
};

// A manager that claims every file for writing, as a write manager that has
// it open would.
class ClaimingManager : public TavloManager {
public:
    ClaimingManager() : TavloManager(static_cast<void*>(nullptr)) {}
    bool OwnsDatabaseForWrite(const char*) const override { return true; }
    unsigned int CheckForWriteOpen(const char* path) const override {
        return IsDatabaseOpenedForWrite(path) ? TAVLO_STATUS_OPEN_FOR_WRITE : TAVLO_STATUS_OK;
    }
};

TEST_F(ManagerOpenTest, OpenStatuses) {
    const std::string net = WriteDatabase("net.dbc");
    const std::string readOnly = WriteDatabase("ro.dbc");
    SetReadOnly(readOnly, true);
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* handle = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(net.c_str(), &handle, "Net", 0), TAVLO_STATUS_OK);

    struct Case {
        const char* what;
        std::string path;
        const char* name;
        unsigned int expected;
    };
    const Case cases[] = {
        {"invalid name", net, "1net", TAVLO_STATUS_INVALID_NAME},
        {"empty name", net, "", TAVLO_STATUS_INVALID_NAME},
        {"name in use", WriteDatabase("other.dbc"), "Net", TAVLO_STATUS_NAME_USED},
        {"missing file", dir_ + "/missing.dbc", "Missing", TAVLO_STATUS_NO_FILE},
        {"already open", net, "Again", TAVLO_STATUS_ALREADY_OPEN},
        {"read-only file", readOnly, "Ro", TAVLO_STATUS_OK},
    };
    for (const Case& c : cases) {
        const char* out = nullptr;
        EXPECT_EQ(mgr.OpenDatabase(c.path.c_str(), &out, c.name, 0), c.expected) << c.what;
    }
    EXPECT_EQ(Names(mgr), (std::vector<std::string>{"Net", "Ro"}));
    // Name checks come before the file check.
    EXPECT_EQ(mgr.OpenDatabase((dir_ + "/missing.dbc").c_str(), nullptr, "a-b", 0),
              TAVLO_STATUS_INVALID_NAME);

    ClaimingManager writer;
    EXPECT_EQ(writer.OpenDatabase(net.c_str(), nullptr, 0), TAVLO_STATUS_OPEN_FOR_WRITE);
    EXPECT_TRUE(TavloManager::IsDatabaseOpenedForWrite(net.c_str()));
}

TEST_F(ManagerOpenTest, OpeningTheSameFileTwiceHandsOutTheFirstName) {
    const std::string net = WriteDatabase("net.dbc", {"once"});
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* first = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(net.c_str(), &first, 0), TAVLO_STATUS_OK);
    EXPECT_STREQ(first, "net");
    WriteDatabase("net.dbc", {"twice"});
    const char* second = nullptr;
    EXPECT_EQ(mgr.OpenDatabase(net.c_str(), &second, "Other", 0), TAVLO_STATUS_ALREADY_OPEN);
    EXPECT_EQ(second, first);
    EXPECT_STREQ(mgr.GetDatabase(first)->mUserData, "once");
    EXPECT_EQ(mgr.GetDatabase(first)->mRefCount, 1u);
}

TEST_F(ManagerOpenTest, ATakenDefaultNameReleasesTheNewObject) {
    const std::string a = WriteDatabase("a/net.dbc");
    const std::string b = WriteDatabase("b/net.dbc");
    TavloManager mgr(static_cast<void*>(nullptr));
    ASSERT_EQ(mgr.OpenDatabase(a.c_str(), nullptr, 0), TAVLO_STATUS_OK);
    const char* out = nullptr;
    EXPECT_EQ(mgr.OpenDatabase(b.c_str(), &out, 0), TAVLO_STATUS_NAME_USED);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(TavloDatabase::ListFindDb(b.c_str()), nullptr);
    // Under a name of its own it opens.
    EXPECT_EQ(mgr.OpenDatabase(b.c_str(), &out, "net2", 0), TAVLO_STATUS_OK);
    EXPECT_STREQ(out, "net2");
}

TEST_F(ManagerOpenTest, TheDbNameAttributeNamesTheDatabase) {
    const std::string path = WriteDatabase("file.dbc", {"v", 0, "Body Bus"});
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* handle = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &handle, 0), TAVLO_STATUS_OK);
    EXPECT_STREQ(handle, "BodyBus");
}

TEST_F(ManagerOpenTest, ListStaysInDescendingPriorityWithEqualOnesInOpeningOrder) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const std::pair<const char*, unsigned int> opens[] = {
        {"a", 5}, {"b", 5}, {"c", 3}, {"d", 5}, {"e", 0}, {"f", 4}};
    for (const auto& [name, priority] : opens) {
        const std::string path = WriteDatabase(std::string(name) + ".dbc");
        ASSERT_EQ(mgr.OpenDatabase(path.c_str(), nullptr, priority), TAVLO_STATUS_OK) << name;
    }
    // An explicit name always gets priority 0: behind every other entry of 0.
    const std::string named = WriteDatabase("named.dbc");
    ASSERT_EQ(mgr.OpenDatabase(named.c_str(), nullptr, "Named", 9), TAVLO_STATUS_OK);
    EXPECT_EQ(Names(mgr), (std::vector<std::string>{"a", "b", "d", "f", "c", "e", "Named"}));
    std::vector<unsigned int> priorities;
    for (const DbListNode* n = mgr.ListFirstNode(); n != nullptr; n = n->mNext) {
        priorities.push_back(n->mPriority);
        EXPECT_EQ(n->mPattern.major, 0xFFFFFFFFu);
        EXPECT_EQ(n->mPattern.minor, 0xFFFFu);
    }
    EXPECT_EQ(priorities, (std::vector<unsigned int>{5, 5, 5, 4, 3, 0, 0}));
}

TEST_F(ManagerOpenTest, AStrictlyHigherPriorityDropsTheListedEntries) {
    const std::string low = WriteDatabase("low.dbc");
    const std::string mid = WriteDatabase("mid.dbc");
    const std::string high = WriteDatabase("high.dbc");
    TavloDatabase* lowDb = nullptr;
    TavloDatabase* midDb = nullptr;
    {
        TavloManager mgr(static_cast<void*>(nullptr));
        ASSERT_EQ(mgr.OpenDatabase(mid.c_str(), nullptr, 5), TAVLO_STATUS_OK);
        ASSERT_EQ(mgr.OpenDatabase(low.c_str(), nullptr, 3), TAVLO_STATUS_OK);
        ASSERT_EQ(mgr.OpenDatabase(high.c_str(), nullptr, 6), TAVLO_STATUS_OK);
        EXPECT_EQ(Names(mgr), std::vector<std::string>{"high"});
        lowDb = TavloDatabase::ListFindDb(low.c_str());
        midDb = TavloDatabase::ListFindDb(mid.c_str());
        // Still open and referenced, only no longer listed by the manager.
        ASSERT_NE(lowDb, nullptr);
        ASSERT_NE(midDb, nullptr);
        EXPECT_EQ(mgr.GetUniqueDatabaseName("mid"), nullptr);
        EXPECT_EQ(mgr.OpenDatabase(mid.c_str(), nullptr, 6), TAVLO_STATUS_OK);
        EXPECT_EQ(midDb->mRefCount, 2u);
    }
    EXPECT_EQ(lowDb->mRefCount, 1u);
    EXPECT_EQ(midDb->mRefCount, 1u);
    EXPECT_EQ(TavloDatabase::ListFindDb(high.c_str()), nullptr);
    TavloDatabase::DestroyDatabase(*lowDb, false);
    TavloDatabase::DestroyDatabase(*midDb, false);
}

TEST_F(ManagerOpenTest, ManagersShareOneObjectPerFile) {
    const std::string path = WriteDatabase("shared.dbc");
    auto first = std::make_unique<TavloManager>(static_cast<void*>(nullptr));
    TavloManager second(static_cast<void*>(nullptr));
    const char* firstName = nullptr;
    const char* secondName = nullptr;
    ASSERT_EQ(first->OpenDatabase(path.c_str(), &firstName, "One", 0), TAVLO_STATUS_OK);
    ASSERT_EQ(second.OpenDatabase(path.c_str(), &secondName, 7), TAVLO_STATUS_OK);
    TavloDatabase* db = first->GetDatabase(firstName);
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(second.GetDatabase(secondName), db);
    EXPECT_EQ(db->mRefCount, 2u);
    EXPECT_STREQ(secondName, "shared");
    EXPECT_NE(static_cast<const void*>(firstName), static_cast<const void*>(secondName));

    first.reset();  // the destructor closes without caching
    EXPECT_EQ(db->mRefCount, 1u);
    second.CloseDatabase(secondName, false);
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
}

TEST_F(ManagerOpenTest, ClosedIntoTheCacheAndReopenedWithoutReading) {
    const std::string path = WriteDatabase("net.dbc", {"first"});
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* name = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    TavloDatabase* db = mgr.GetDatabase(name);
    mgr.CloseDatabase(name, true);
    EXPECT_FALSE(mgr.IsDatabaseName(mgr.GetUniqueDatabaseName("net")));
    EXPECT_EQ(mgr.CacheFindDatabase(path.c_str()), db);
    EXPECT_EQ(db->mCacheCount, 1u);

    WriteDatabase("net.dbc", {"second"});
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr.GetDatabase(name), db);
    EXPECT_STREQ(db->mUserData, "first");
    EXPECT_EQ(mgr.CacheFindDatabase(path.c_str()), nullptr);
    EXPECT_EQ(db->mCacheCount, 0u);
    EXPECT_EQ(db->mRefCount, 1u);

    // Flushing in between deletes it instead; the next open reads the file.
    mgr.CloseDatabase(name, true);
    mgr.FlushDatabaseCache();
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    EXPECT_STREQ(mgr.GetDatabase(name)->mUserData, "second");
}

TEST_F(ManagerOpenTest, AnotherManagersCacheKeepsTheObjectAlive) {
    const std::string path = WriteDatabase("net.dbc");
    TavloManager keeper(static_cast<void*>(nullptr));
    TavloManager user(static_cast<void*>(nullptr));
    const char* name = nullptr;
    ASSERT_EQ(keeper.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    TavloDatabase* db = keeper.GetDatabase(name);
    keeper.CloseDatabase(true);
    // Opening elsewhere takes the cache count; keeper's cache entry stays.
    ASSERT_EQ(user.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    EXPECT_EQ(user.GetDatabase(name), db);
    EXPECT_EQ(db->mCacheCount, 0u);
    EXPECT_EQ(keeper.CacheFindDatabase(path.c_str()), db);
    // The object goes with its last reference; the keeper's entry goes too
    // rather than dangle.
    user.CloseDatabase(false);
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    EXPECT_EQ(keeper.CacheFindDatabase(path.c_str()), nullptr);
    ASSERT_EQ(keeper.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    EXPECT_EQ(keeper.GetDatabase(name)->mRefCount, 1u);
}

TEST_F(ManagerOpenTest, ReleaseCacheDropsTheCacheEntriesOfWhatItDeletes) {
    const std::string path = WriteDatabase("net.dbc");
    TavloManager keeper(static_cast<void*>(nullptr));
    ASSERT_EQ(keeper.OpenDatabase(path.c_str(), nullptr, 0), TAVLO_STATUS_OK);
    keeper.CloseDatabase(true);
    ASSERT_NE(keeper.CacheFindDatabase(path.c_str()), nullptr);
    TavloDatabase::ReleaseCache();
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    EXPECT_EQ(keeper.CacheFindDatabase(path.c_str()), nullptr);
    keeper.FlushDatabaseCache();
}

TEST_F(ManagerOpenTest, DatabaseNameOfAFileThatIsNotOpenIsAFreshProposal) {
    const std::string path = WriteDatabase("12-engine.dbc");
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* proposal = mgr.GetDatabaseName(path.c_str());
    ASSERT_NE(proposal, nullptr);
    EXPECT_STREQ(proposal, "___engine");
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr.GetDatabase(proposal), nullptr);  // not a handle
    TavloDatabase* cached = mgr.CacheFindDatabase(path.c_str());
    ASSERT_NE(cached, nullptr);
    TAVLO_MFREE(const_cast<char*>(proposal));

    const char* handle = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &handle, 0), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr.GetDatabase(handle), cached);
    EXPECT_EQ(mgr.GetDatabaseName(path.c_str()), handle);

    EXPECT_EQ(mgr.GetDatabaseName((dir_ + "/none.dbc").c_str()), nullptr);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
}

TEST_F(ManagerOpenTest, NamesAreHandlesComparedByPointer) {
    const std::string path = WriteDatabase("net.dbc");
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* handle = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &handle, "Net", 0), TAVLO_STATUS_OK);
    const std::string text = "Net";
    EXPECT_EQ(mgr.GetDatabase(text.c_str()), nullptr);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_FALSE(mgr.IsDatabaseName(text.c_str()));
    EXPECT_EQ(mgr.GetUniqueDatabaseName(text.c_str()), handle);
    EXPECT_EQ(mgr.GetUniqueDatabaseName("net"), nullptr);  // case counts
    EXPECT_TRUE(mgr.IsDatabaseName(handle));
    EXPECT_STREQ(mgr.GetDatabasePath(text.c_str()), path.c_str());
    EXPECT_EQ(mgr.GetDatabasePath("Other"), nullptr);

    // A text copy closes nothing.
    mgr.CloseDatabase(text.c_str(), false);
    EXPECT_TRUE(mgr.IsDatabaseName(handle));
}

TEST_F(ManagerOpenTest, TheLookupMemoServesTheWholeProcess) {
    // The memo remembers the last entry found in any manager, so another
    // manager finds it by its handle too. Deliberate.
    const std::string path = WriteDatabase("net.dbc");
    TavloManager owner(static_cast<void*>(nullptr));
    TavloManager stranger(static_cast<void*>(nullptr));
    const char* handle = nullptr;
    ASSERT_EQ(owner.OpenDatabase(path.c_str(), &handle, 0), TAVLO_STATUS_OK);
    TavloDatabase* db = owner.GetDatabase(handle);
    EXPECT_EQ(stranger.GetDatabase(handle), db);
    // Any removal clears the memo.
    const std::string other = WriteDatabase("other.dbc");
    ASSERT_EQ(stranger.OpenDatabase(other.c_str(), nullptr, 0), TAVLO_STATUS_OK);
    stranger.CloseDatabase(stranger.GetUniqueDatabaseName("other"), false);
    EXPECT_EQ(stranger.GetDatabase(handle), nullptr);
}

TEST_F(ManagerOpenTest, RenameStatuses) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* a = nullptr;
    const char* b = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("a.dbc").c_str(), &a, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("b.dbc").c_str(), &b, 0), TAVLO_STATUS_OK);
    TavloDatabase* db = mgr.GetDatabase(a);
    const char* out = nullptr;
    EXPECT_EQ(mgr.SetDatabaseName("a", &out, "x"), TAVLO_STATUS_UNKNOWN_NAME);
    EXPECT_EQ(mgr.SetDatabaseName(a, &out, "no good"), TAVLO_STATUS_INVALID_NAME);
    EXPECT_EQ(mgr.SetDatabaseName(a, &out, "b"), TAVLO_STATUS_NAME_USED);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(mgr.SetDatabaseName(a, &out, "a"), TAVLO_STATUS_OK);
    EXPECT_EQ(out, a);
    EXPECT_EQ(mgr.SetDatabaseName(a, &out, "Renamed"), TAVLO_STATUS_OK);
    EXPECT_STREQ(out, "Renamed");
    EXPECT_EQ(mgr.GetDatabase(out), db);
    EXPECT_EQ(mgr.GetUniqueDatabaseName("a"), nullptr);
    EXPECT_EQ(mgr.GetUniqueDatabaseName("Renamed"), out);
}

TEST_F(ManagerOpenTest, DefaultDatabaseNameIntoABuffer) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* handle = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("engine.dbc").c_str(), &handle, "E", 0),
              TAVLO_STATUS_OK);
    char buffer[16];
    EXPECT_TRUE(mgr.GetDefaultDatabaseName(handle, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "engine");
    EXPECT_TRUE(mgr.GetDefaultDatabaseName(handle, buffer, 7));
    EXPECT_STREQ(buffer, "engine");
    EXPECT_FALSE(mgr.GetDefaultDatabaseName(handle, buffer, 6));
    EXPECT_STREQ(buffer, "engin");
    EXPECT_FALSE(mgr.GetDefaultDatabaseName("E", buffer, sizeof buffer));
}

TEST_F(ManagerOpenTest, DatabaseInfoAndStatus) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* handle = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("net.dbc").c_str(), &handle, 0), TAVLO_STATUS_OK);
    int info = 0;
    EXPECT_EQ(mgr.GetDatabaseInfo(handle), nullptr);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_FALSE(mgr.AssignDatabaseInfo(&info, "net"));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_TRUE(mgr.AssignDatabaseInfo(&info, handle));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr.GetDatabaseInfo(handle), &info);
    EXPECT_EQ(mgr.GetDatabaseInfo("net"), nullptr);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    // A hit leaves the status as it was.
    EXPECT_NE(mgr.GetDatabase(handle), nullptr);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
}

TEST_F(ManagerOpenTest, ReopenReadsTheFilesAgainForEveryManager) {
    const std::string one = WriteDatabase("one.dbc", {"1a"});
    const std::string two = WriteDatabase("two.dbc", {"2a"});
    TavloManager mgr(static_cast<void*>(nullptr));
    TavloManager other(static_cast<void*>(nullptr));
    EXPECT_EQ(mgr.ReopenDatabase(nullptr), TAVLO_STATUS_OK);  // nothing open
    const char* h1 = nullptr;
    const char* h2 = nullptr;
    const char* seen = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(one.c_str(), &h1, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(mgr.OpenDatabase(two.c_str(), &h2, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(other.OpenDatabase(one.c_str(), &seen, 0), TAVLO_STATUS_OK);

    WriteDatabase("one.dbc", {"1b"});
    WriteDatabase("two.dbc", {"2b"});
    EXPECT_EQ(mgr.ReopenDatabase("one"), TAVLO_STATUS_UNKNOWN_NAME);
    EXPECT_EQ(mgr.ReopenDatabase(h1), TAVLO_STATUS_OK);
    EXPECT_STREQ(other.GetDatabase(seen)->mUserData, "1b");
    EXPECT_STREQ(mgr.GetDatabase(h2)->mUserData, "2a");

    WriteDatabase("one.dbc", {"1c"});
    std::remove(two.c_str());
    EXPECT_EQ(mgr.ReopenDatabase(nullptr), TAVLO_STATUS_NO_FILE);
    EXPECT_STREQ(mgr.GetDatabase(h1)->mUserData, "1c");
    EXPECT_STREQ(mgr.GetDatabase(h2)->mUserData, "2a");  // kept as it was
    EXPECT_EQ(mgr.ReopenDatabase(h2), TAVLO_STATUS_NO_FILE);
}

TEST_F(ManagerOpenTest, ReopenFlushesTheCache) {
    const std::string path = WriteDatabase("net.dbc");
    TavloManager mgr(static_cast<void*>(nullptr));
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), nullptr, 0), TAVLO_STATUS_OK);
    mgr.CloseDatabase(true);
    EXPECT_NE(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    EXPECT_EQ(mgr.ReopenDatabase(nullptr), TAVLO_STATUS_OK);
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
}

TEST_F(ManagerOpenTest, HandleBasesAddUpAndNeverShrinkWhileEntriesRemain) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* a = nullptr;
    const char* b = nullptr;
    const char* c = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("a.dbc", {"v", 7}).c_str(), &a, 0), 0u);
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("b.dbc").c_str(), &b, 0), 0u);
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("c.dbc", {"v", 3}).c_str(), &c, 0), 0u);
    std::vector<unsigned int> bases;
    for (const DbListNode* n = mgr.ListFirstNode(); n != nullptr; n = n->mNext) {
        bases.push_back(n->mHandleBase);
    }
    EXPECT_EQ(bases, (std::vector<unsigned int>{0, 7, 7}));
    EXPECT_EQ(mgr.GetHandleTotal(), 10u);

    mgr.CloseDatabase(a, false);
    mgr.CloseDatabase(b, false);
    mgr.CloseDatabase(c, false);
    EXPECT_EQ(mgr.GetHandleTotal(), 10u);
    const char* d = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("d.dbc", {"v", 2}).c_str(), &d, 0), 0u);
    EXPECT_EQ(mgr.ListFirstNode()->mHandleBase, 10u);
    EXPECT_EQ(mgr.GetHandleTotal(), 12u);

    // Removing from an empty list resets the total; closing all does too.
    mgr.CloseDatabase(d, false);
    TavloDatabase unlisted;
    mgr.ListRemoveDatabase(unlisted);
    EXPECT_EQ(mgr.GetHandleTotal(), 0u);
    ASSERT_EQ(mgr.OpenDatabase(WriteDatabase("e.dbc", {"v", 4}).c_str(), nullptr, 0), 0u);
    mgr.CloseDatabase(false);
    EXPECT_EQ(mgr.GetHandleTotal(), 0u);
}

TEST_F(ManagerOpenTest, DestroyingAManagerReleasesItsDatabasesAndItsCache) {
    const std::string open = WriteDatabase("open.dbc");
    const std::string cached = WriteDatabase("cached.dbc");
    const MngrListNode* before = TavloManager::GetManagersList();
    {
        TavloManager mgr(static_cast<void*>(nullptr));
        EXPECT_EQ(TavloManager::GetManagersList()->mManager, &mgr);
        EXPECT_EQ(TavloManager::GetManagersList()->mNext, before);
        ASSERT_EQ(mgr.OpenDatabase(open.c_str(), nullptr, 0), 0u);
        ASSERT_EQ(mgr.OpenDatabase(cached.c_str(), nullptr, 0), 0u);
        mgr.CloseDatabase(mgr.GetUniqueDatabaseName("cached"), true);
    }
    EXPECT_EQ(TavloManager::GetManagersList(), before);
    EXPECT_EQ(TavloDatabase::ListFindDb(open.c_str()), nullptr);
    EXPECT_EQ(TavloDatabase::ListFindDb(cached.c_str()), nullptr);
}

TEST_F(ManagerOpenTest, HandlesAreSetOneAtATime) {
    TavloManager byThread(reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x1234'5678'9ABCull)));
    EXPECT_EQ(byThread.GetThreadId(), 0x5678'9ABCu);  // the low 32 bits
    EXPECT_EQ(byThread.GetWindow(), nullptr);
    const HWND window = reinterpret_cast<HWND>(std::uintptr_t{0x4711});
    byThread.SetHandle(window);
    EXPECT_EQ(byThread.GetWindow(), window);
    EXPECT_EQ(byThread.GetThreadId(), 0u);
    byThread.SetHandle(reinterpret_cast<void*>(std::uintptr_t{77}));
    EXPECT_EQ(byThread.GetWindow(), nullptr);
    EXPECT_EQ(byThread.GetThreadId(), 77u);
    TavloManager byWindow(window);
    EXPECT_EQ(byWindow.GetWindow(), window);
    EXPECT_EQ(byWindow.GetThreadId(), 0u);
}

}  // namespace
}  // namespace tavlo::test
