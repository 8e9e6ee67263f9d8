// tests/manager/manager_test.cpp: opening, naming, sharing, caching and
// closing databases in managers, with every status value.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <tuple>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

class ManagerOpenTest : public ManagerTest {
protected:
    // The handles in list order, as texts.
    static std::vector<std::string> Names(const TavloManager& mgr) {
        std::vector<std::string> names;
        for (const DbListNode* n = mgr.ListFirstNode(); n != nullptr; n = n->mNext) {
            names.push_back(n->mName);
        }
        return names;
    }

    TavloManager mgr_{static_cast<void*>(nullptr)};
};

TEST_F(ManagerOpenTest, OpenStatuses) {
    const std::string net = WriteDatabase("net.dbc", {"once"});
    const std::string readOnly = WriteDatabase("ro.dbc");
    SetReadOnly(readOnly, true);
    const char* handle = Open(mgr_, net, "Net");
    WriteDatabase("net.dbc", {"twice"});
    const std::string missing = dir_ + "/missing.dbc";
    // What the handle out parameter holds: nothing, the very handle the
    // file is open under, or a new one. A default name that is taken
    // releases the object just made.
    const std::string taken = WriteDatabase("b/Net.dbc");
    const std::tuple<std::string, const char*, unsigned int, std::string> cases[] = {
        {net, "1net", TAVLO_STATUS_INVALID_NAME, "null"},
        {taken, nullptr, TAVLO_STATUS_NAME_USED, "null"},
        {net, "", TAVLO_STATUS_INVALID_NAME, "null"},
        {missing, "a-b", TAVLO_STATUS_INVALID_NAME, "null"},  // names before the file
        {WriteDatabase("other.dbc"), "Net", TAVLO_STATUS_NAME_USED, "null"},
        {missing, "Missing", TAVLO_STATUS_NO_FILE, "null"},
        {net, "Again", TAVLO_STATUS_ALREADY_OPEN, "the handle"},
        {readOnly, "Ro", TAVLO_STATUS_OK, "Ro"},
    };
    for (const auto& [path, name, status, out] : cases) {
        const char* given = nullptr;
        EXPECT_EQ(mgr_.OpenDatabase(path.c_str(), &given, name, 0), status) << path;
        EXPECT_EQ(given == nullptr ? "null" : given == handle ? "the handle" : given, out) << path;
    }
    EXPECT_EQ(TavloDatabase::ListFindDb(taken.c_str()), nullptr);
    EXPECT_EQ(Names(mgr_), (std::vector<std::string>{"Net", "Ro"}));
    EXPECT_STREQ(mgr_.GetDatabase(handle)->mUserData, "once");  // not read again
    EXPECT_EQ(mgr_.GetDatabase(handle)->mRefCount, 1u);
}

TEST_F(ManagerOpenTest, ListStaysInDescendingPriorityWithEqualOnesInOpeningOrder) {
    const std::pair<const char*, unsigned int> opens[] = {
        {"a", 5}, {"b", 5}, {"c", 3}, {"d", 5}, {"e", 0}, {"f", 4}};
    for (const auto& [name, priority] : opens) {
        Open(mgr_, WriteDatabase(std::string(name) + ".dbc"), nullptr, priority);
    }
    // A given name always means priority 0: behind every other entry of 0.
    const char* named = Open(mgr_, WriteDatabase("g.dbc"), "Named", 9);
    EXPECT_EQ(Names(mgr_), (std::vector<std::string>{"a", "b", "d", "f", "c", "e", "Named"}));
    EXPECT_EQ(mgr_.GetPriority(named), 0u);
    EXPECT_EQ(mgr_.GetPriority(mgr_.GetUniqueDatabaseName("d")), 5u);
    const TavloSelectionPattern& pattern = mgr_.GetSelectionPattern(named);
    EXPECT_EQ(pattern.major, 0xFFFFFFFFu);
    EXPECT_EQ(pattern.minor, 0xFFFFu);
}

TEST_F(ManagerOpenTest, AStrictlyHigherPriorityDropsTheListedEntries) {
    const std::string low = WriteDatabase("low.dbc");
    const std::string mid = WriteDatabase("mid.dbc");
    TavloDatabase* lowDb = nullptr;
    {
        TavloManager mgr(static_cast<void*>(nullptr));
        Open(mgr, mid, nullptr, 5);
        Open(mgr, low, nullptr, 5);
        Open(mgr, WriteDatabase("high.dbc"), nullptr, 6);
        EXPECT_EQ(Names(mgr), std::vector<std::string>{"high"});
        // Still open and referenced, only no longer listed by the manager.
        lowDb = TavloDatabase::ListFindDb(low.c_str());
        ASSERT_NE(lowDb, nullptr);
        Open(mgr, mid, nullptr, 6);
        EXPECT_EQ(TavloDatabase::ListFindDb(mid.c_str())->mRefCount, 2u);
    }
    EXPECT_EQ(lowDb->mRefCount, 1u);
    TavloDatabase::DestroyDatabase(*lowDb, false);
    TavloDatabase::DestroyDatabase(*TavloDatabase::ListFindDb(mid.c_str()), false);
}

TEST_F(ManagerOpenTest, ManagersShareOneObjectPerFileAndADestroyedOneReleasesItsOwn) {
    const std::string path = WriteDatabase("shared.dbc");
    const std::string cached = WriteDatabase("cached.dbc");
    const MngrListNode* before = TavloManager::GetManagersList();
    auto first = std::make_unique<TavloManager>(static_cast<void*>(nullptr));
    EXPECT_EQ(TavloManager::GetManagersList()->mManager, first.get());
    EXPECT_EQ(TavloManager::GetManagersList()->mNext, before);
    TavloDatabase* db = first->GetDatabase(Open(*first, path, "One"));
    first->CloseDatabase(Open(*first, cached), true);
    const char* name = Open(mgr_, path, nullptr, 7);
    EXPECT_STREQ(name, "shared");
    EXPECT_EQ(mgr_.GetDatabase(name), db);
    EXPECT_EQ(db->mRefCount, 2u);
    first.reset();  // closes without caching, and empties the cache
    EXPECT_EQ(TavloManager::GetManagersList(), before);
    EXPECT_EQ(db->mRefCount, 1u);
    EXPECT_EQ(TavloDatabase::ListFindDb(cached.c_str()), nullptr);
}

TEST_F(ManagerOpenTest, ClosedIntoTheCacheAndReopenedWithoutReading) {
    const std::string path = WriteDatabase("net.dbc", {"first"});
    const char* name = Open(mgr_, path);
    TavloDatabase* db = mgr_.GetDatabase(name);
    mgr_.CloseDatabase(name, true);
    EXPECT_EQ(mgr_.CacheFindDatabase(path.c_str()), db);
    EXPECT_EQ(db->mCacheCount, 1u);

    WriteDatabase("net.dbc", {"second"});
    EXPECT_EQ(mgr_.GetDatabase(Open(mgr_, path)), db);
    EXPECT_STREQ(db->mUserData, "first");
    EXPECT_EQ(mgr_.CacheFindDatabase(path.c_str()), nullptr);
    EXPECT_EQ(db->mCacheCount, 0u);

    // Flushing in between deletes it instead; the next open reads the file.
    mgr_.CloseDatabase(true);
    mgr_.FlushDatabaseCache();
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    EXPECT_STREQ(mgr_.GetDatabase(Open(mgr_, path))->mUserData, "second");
}

TEST_F(ManagerOpenTest, ACacheEntryGoesWithTheObjectRatherThanDangle) {
    const std::string path = WriteDatabase("net.dbc");
    TavloManager user(static_cast<void*>(nullptr));
    TavloDatabase* db = mgr_.GetDatabase(Open(mgr_, path));
    mgr_.CloseDatabase(true);
    // Opening elsewhere takes the cache count; this manager's entry stays.
    EXPECT_EQ(user.GetDatabase(Open(user, path)), db);
    EXPECT_EQ(db->mCacheCount, 0u);
    EXPECT_EQ(mgr_.CacheFindDatabase(path.c_str()), db);
    // The object goes with its last reference, and the entry with it.
    user.CloseDatabase(false);
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    EXPECT_EQ(mgr_.CacheFindDatabase(path.c_str()), nullptr);
    EXPECT_EQ(mgr_.GetDatabase(Open(mgr_, path))->mRefCount, 1u);

    // So do the entries of what ReleaseCache deletes.
    mgr_.CloseDatabase(true);
    TavloDatabase::ReleaseCache();
    EXPECT_EQ(mgr_.CacheFindDatabase(path.c_str()), nullptr);
}

TEST_F(ManagerOpenTest, TheNameOfAFileThatIsNotOpenIsAFreshProposal) {
    const std::string path = WriteDatabase("12-engine.dbc");
    const char* proposal = mgr_.GetDatabaseName(path.c_str());
    ASSERT_NE(proposal, nullptr);
    EXPECT_STREQ(proposal, "___engine");
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr_.GetDatabase(proposal), nullptr);  // not a handle
    TavloDatabase* cached = mgr_.CacheFindDatabase(path.c_str());
    ASSERT_NE(cached, nullptr);
    TAVLO_MFREE(const_cast<char*>(proposal));

    const char* handle = Open(mgr_, path);
    EXPECT_EQ(mgr_.GetDatabase(handle), cached);
    EXPECT_EQ(mgr_.GetDatabaseName(path.c_str()), handle);
    EXPECT_EQ(mgr_.GetDatabaseName((dir_ + "/none.dbc").c_str()), nullptr);
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
}

TEST_F(ManagerOpenTest, NamesAreHandlesComparedByPointer) {
    const std::string path = WriteDatabase("net.dbc");
    const char* handle = Open(mgr_, path, "Net");
    const std::string text = "Net";
    EXPECT_EQ(mgr_.GetDatabase(text.c_str()), nullptr);
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_FALSE(mgr_.IsDatabaseName(text.c_str()));
    EXPECT_TRUE(mgr_.IsDatabaseName(handle));
    EXPECT_EQ(mgr_.GetUniqueDatabaseName(text.c_str()), handle);
    EXPECT_EQ(mgr_.GetUniqueDatabaseName("net"), nullptr);  // case counts
    EXPECT_STREQ(mgr_.GetDatabasePath(text.c_str()), path.c_str());
    EXPECT_EQ(mgr_.GetDatabasePath("Other"), nullptr);
    mgr_.CloseDatabase(text.c_str(), false);  // a text copy closes nothing
    EXPECT_TRUE(mgr_.IsDatabaseName(handle));

    // One memo remembers the last entry found for the whole process, so
    // another manager finds it by its handle too. Deliberate.
    TavloManager stranger(static_cast<void*>(nullptr));
    EXPECT_EQ(stranger.GetDatabase(handle), mgr_.GetDatabase(handle));
    // Any removal clears the memo.
    stranger.CloseDatabase(Open(stranger, WriteDatabase("other.dbc")), false);
    EXPECT_EQ(stranger.GetDatabase(handle), nullptr);
}

TEST_F(ManagerOpenTest, RenameStatuses) {
    const char* a = Open(mgr_, WriteDatabase("a.dbc"));
    Open(mgr_, WriteDatabase("b.dbc"));
    TavloDatabase* db = mgr_.GetDatabase(a);
    const char* out = nullptr;
    EXPECT_EQ(mgr_.SetDatabaseName("a", &out, "x"), TAVLO_STATUS_UNKNOWN_NAME);
    EXPECT_EQ(mgr_.SetDatabaseName(a, &out, "no good"), TAVLO_STATUS_INVALID_NAME);
    EXPECT_EQ(mgr_.SetDatabaseName(a, &out, "b"), TAVLO_STATUS_NAME_USED);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(mgr_.SetDatabaseName(a, &out, "a"), TAVLO_STATUS_OK);
    EXPECT_EQ(out, a);
    EXPECT_EQ(mgr_.SetDatabaseName(a, &out, "Renamed"), TAVLO_STATUS_OK);
    EXPECT_STREQ(out, "Renamed");
    EXPECT_EQ(mgr_.GetDatabase(out), db);
    EXPECT_EQ(mgr_.GetUniqueDatabaseName("a"), nullptr);
}

TEST_F(ManagerOpenTest, DefaultNameIntoABufferAndClientData) {
    const char* handle = Open(mgr_, WriteDatabase("engine.dbc"), "E");
    char buffer[16];
    EXPECT_TRUE(mgr_.GetDefaultDatabaseName(handle, buffer, 7));
    EXPECT_STREQ(buffer, "engine");
    EXPECT_FALSE(mgr_.GetDefaultDatabaseName(handle, buffer, 6));
    EXPECT_STREQ(buffer, "engin");
    EXPECT_FALSE(mgr_.GetDefaultDatabaseName("E", buffer, sizeof buffer));

    int info = 0;
    EXPECT_FALSE(mgr_.AssignDatabaseInfo(&info, "E"));
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_TRUE(mgr_.AssignDatabaseInfo(&info, handle));
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr_.GetDatabaseInfo(handle), &info);
    EXPECT_EQ(mgr_.GetDatabaseInfo("E"), nullptr);
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_NE(mgr_.GetDatabase(handle), nullptr);  // a hit leaves the status
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
}

TEST_F(ManagerOpenTest, ReopenFlushesTheCacheAndReadsTheFilesAgainForEveryManager) {
    const std::string one = WriteDatabase("one.dbc", {"1a"});
    const std::string two = WriteDatabase("two.dbc", {"2a"});
    const std::string cached = WriteDatabase("cached.dbc");
    TavloManager other(static_cast<void*>(nullptr));
    EXPECT_EQ(mgr_.ReopenDatabase(nullptr), TAVLO_STATUS_OK);  // nothing open
    mgr_.CloseDatabase(Open(mgr_, cached), true);
    const char* h1 = Open(mgr_, one);
    const char* h2 = Open(mgr_, two);
    const char* seen = Open(other, one);

    WriteDatabase("one.dbc", {"1b"});
    WriteDatabase("two.dbc", {"2b"});
    EXPECT_EQ(mgr_.ReopenDatabase("one"), TAVLO_STATUS_UNKNOWN_NAME);
    EXPECT_EQ(mgr_.ReopenDatabase(h1), TAVLO_STATUS_OK);
    EXPECT_EQ(TavloDatabase::ListFindDb(cached.c_str()), nullptr);
    EXPECT_STREQ(other.GetDatabase(seen)->mUserData, "1b");
    EXPECT_STREQ(mgr_.GetDatabase(h2)->mUserData, "2a");

    WriteDatabase("one.dbc", {"1c"});
    std::remove(two.c_str());
    EXPECT_EQ(mgr_.ReopenDatabase(nullptr), TAVLO_STATUS_NO_FILE);
    EXPECT_STREQ(mgr_.GetDatabase(h1)->mUserData, "1c");
    EXPECT_STREQ(mgr_.GetDatabase(h2)->mUserData, "2a");  // kept as it was
}

TEST_F(ManagerOpenTest, HandleBasesAddUpAndNeverShrinkWhileEntriesRemain) {
    const char* a = Open(mgr_, WriteDatabase("a.dbc", {"v", 7}));
    const char* b = Open(mgr_, WriteDatabase("b.dbc"));
    const char* c = Open(mgr_, WriteDatabase("c.dbc", {"v", 3}));
    EXPECT_EQ(mgr_.ListFirstNode()->mNext->mNext->mHandleBase, 7u);
    EXPECT_EQ(mgr_.GetHandleTotal(), 10u);

    for (const char* handle : {a, b, c}) {
        mgr_.CloseDatabase(handle, false);
    }
    EXPECT_EQ(mgr_.GetHandleTotal(), 10u);
    const char* d = Open(mgr_, WriteDatabase("d.dbc", {"v", 2}));
    EXPECT_EQ(mgr_.ListFirstNode()->mHandleBase, 10u);
    EXPECT_EQ(mgr_.GetHandleTotal(), 12u);

    // Removing from an empty list resets the total; closing all does too.
    mgr_.CloseDatabase(d, false);
    TavloDatabase unlisted;
    mgr_.ListRemoveDatabase(unlisted);
    EXPECT_EQ(mgr_.GetHandleTotal(), 0u);
    Open(mgr_, WriteDatabase("e.dbc", {"v", 4}));
    mgr_.CloseDatabase(false);
    EXPECT_EQ(mgr_.GetHandleTotal(), 0u);
}

}  // namespace
}  // namespace tavlo::test
