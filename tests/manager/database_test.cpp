// tests/manager/database_test.cpp: the shared database object: the name it
// proposes, sharing by file, counters and caching, copies, re-reading,
// writing and the records by kind.

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "manager/fixture.h"
#include "model/model.h"
#include "support/describe.h"

namespace tavlo::test {
namespace {

class DatabaseTest : public ManagerTest {};

TEST_F(DatabaseTest, DefaultNameComesFromTheDbNameAttributeElseTheFileName) {
    // Until a character that can begin a name, others become '_'; later
    // ones are dropped. Names are cut to 32 characters.
    const std::pair<std::string, const char*> cases[] = {
        {WriteDatabase("a/attr.dbc", {"v", 0, "Engine Bus"}), "EngineBus"},
        {WriteDatabase("b/attr.dbc", {"v", 0, std::string(40, 'N')}), "NNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNN"},
        {DataFile("dbname_default.dbc"), "Fromdefault"},  // no value: the default text
        {DataFile("dbname_int.dbc"), "dbname_int"},       // not a string: the file name
        {WriteDatabase("12-ab.dbc"), "___ab"},
        {WriteDatabase("a1-2_b.dbc"), "a12_b"},
        {WriteDatabase("plain.name.dbc"), "plainname"},
        {WriteDatabase(std::string(40, 'f') + ".dbc"), "ffffffffffffffffffffffffffffffff"},
        {WriteDatabase("noext"), "noext"},
        {"", ""},  // no path at all
    };
    for (const auto& [path, expected] : cases) {
        TavloDatabase db(path.empty() ? nullptr : path.c_str());
        char* name = db.GetDefaultName();
        ASSERT_NE(name, nullptr);
        EXPECT_STREQ(name, expected) << path;
        TAVLO_MFREE(name);
    }
    EXPECT_TRUE(shown_.messages().empty());
}

TEST_F(DatabaseTest, OneSharedObjectPerFileWhateverTheSpelling) {
    const std::string path = WriteDatabase("Net/Bus.dbc");
    TavloDatabase* first = TavloDatabase::CreateDatabase(path.c_str());
    std::string upper = path;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
    for (const std::string& spelling : {upper, dir_ + "/./Net//x/../Bus.dbc", std::string("Net/bus.DBC")}) {
        EXPECT_TRUE(first->IsPathEqual(spelling.c_str())) << spelling;
        EXPECT_EQ(TavloDatabase::CreateDatabase(spelling.c_str()), first) << spelling;
    }
    std::filesystem::current_path(here);
    EXPECT_EQ(first->mRefCount, 4u);
    EXPECT_STREQ(first->mDbPath, path.c_str());  // kept as the opener gave it
    EXPECT_FALSE(first->IsPathEqual(nullptr));
    EXPECT_FALSE(first->IsPathEqual((path + "2").c_str()));
    for (int i = 0; i < 4; ++i) {
        TavloDatabase::DestroyDatabase(*first, false);
    }

    TavloDatabase* pathless = TavloDatabase::CreateDatabase(nullptr);
    EXPECT_STREQ(pathless->mUserData, "");
    EXPECT_EQ(pathless->ReopenDatabaseFile(), TAVLO_STATUS_NO_FILE);
    EXPECT_FALSE(*pathless == *pathless);  // no path: equal to nothing
    TavloDatabase::DestroyDatabase(*pathless, false);
}

TEST_F(DatabaseTest, ACachedObjectComesBackUnreadAndStaysWhileACacheHoldsIt) {
    const std::string path = WriteDatabase("net.dbc", {"first"});
    TavloDatabase* db = TavloDatabase::CreateDatabase(path.c_str());
    TavloDatabase::DestroyDatabase(*db, true);
    EXPECT_EQ(db->mRefCount, 0u);
    EXPECT_EQ(db->mCacheCount, 1u);
    WriteDatabase("net.dbc", {"second"});
    EXPECT_EQ(TavloDatabase::CreateDatabase(path.c_str()), db);
    EXPECT_EQ(db->mCacheCount, 0u);
    EXPECT_STREQ(db->mUserData, "first");
    EXPECT_EQ(db->ReopenDatabaseFile(), TAVLO_STATUS_OK);
    EXPECT_STREQ(db->mUserData, "second");

    // A second reference cached, the first given up: the cache keeps it.
    TavloDatabase::CreateDatabase(path.c_str());
    TavloDatabase::DestroyDatabase(*db, true);
    TavloDatabase::DestroyDatabase(*db, false);
    ASSERT_EQ(TavloDatabase::ListFindDb(path.c_str()), db);
    EXPECT_EQ(db->mRefCount, 0u);
    EXPECT_EQ(db->mCacheCount, 1u);
}

TEST_F(DatabaseTest, ReleaseCacheDeletesEveryUnreferencedObjectAndKeepsOpenOnes) {
    // Adjacent unreferenced objects, an open one between them, one at each end.
    const bool open[] = {false, false, true, false, true, false};
    std::vector<std::string> paths;
    std::vector<TavloDatabase*> dbs;
    for (const bool isOpen : open) {
        paths.push_back(WriteDatabase("db" + std::to_string(paths.size()) + ".dbc"));
        dbs.push_back(TavloDatabase::CreateDatabase(paths.back().c_str()));
        if (!isOpen) {
            TavloDatabase::DestroyDatabase(*dbs.back(), true);
        }
    }
    TavloDatabase::ReleaseCache();
    for (std::size_t i = 0; i < dbs.size(); ++i) {
        EXPECT_EQ(TavloDatabase::ListFindDb(paths[i].c_str()), open[i] ? dbs[i] : nullptr) << i;
        if (open[i]) {
            TavloDatabase::DestroyDatabase(*dbs[i], false);
        }
    }
}

TEST_F(DatabaseTest, CopiesAreDeepAndCarryThePathButNotTheCounters) {
    const std::string path = WriteDatabase("net.dbc", {"v9", 4, "Net"});
    TavloDatabase source(path.c_str());
    source.mRefCount = 5;
    source.SetComment("about the net");
    TavloDatabase copy(source);
    EXPECT_EQ(copy.mRefCount, 1u);
    EXPECT_STREQ(copy.mDbPath, path.c_str());
    EXPECT_NE(copy.mMessages, source.mMessages);
    EXPECT_EQ(DescribeDatabase(copy.Root()), DescribeDatabase(source.Root()));
    EXPECT_TRUE(copy == source);
    TavloDatabase assigned;
    assigned.mRefCount = 3;
    assigned.CreateNode(0);
    assigned = source;
    EXPECT_EQ(assigned.mRefCount, 3u);
    EXPECT_STREQ(assigned.mDbPath, path.c_str());
    EXPECT_EQ(DescribeDatabase(assigned.Root()), DescribeDatabase(source.Root()));
    assigned = TavloDatabase();
    EXPECT_EQ(assigned.mDbPath, nullptr);
    EXPECT_EQ(DescribeDatabase(assigned.Root()), DescribeDatabase(TavloDatabase().Root()));

    // Running out of memory midway leaves the target as it was.
    const TavloDatabase other(WriteDatabase("other.dbc", {"other"}).c_str());
    model::FailAllocationsAfter(3);
    EXPECT_THROW(copy = other, std::bad_alloc);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(DescribeDatabase(copy.Root()), DescribeDatabase(source.Root()));
    EXPECT_STREQ(copy.mDbPath, path.c_str());
}

// Of the file's view filter, the object keeps the categories: its node list
// and filter word stay empty and zero, after a re-read too.
TEST_F(DatabaseTest, TheObjectsViewFilterTakesOnlyTheFilesCategories) {
    TavloDatabase db(WriteFile("filter.dbc", SmallDatabaseText({}) +
                                                 "CAT_DEF_ 1 Drive 0;\nFILTER 7 CAT_ 1 BU_ A B ;\n")
                         .c_str());
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_TRUE(shown_.messages().empty());
        ASSERT_NE(db.mFilter.categories, nullptr);
        EXPECT_EQ(+db.mFilter.categories->act, db.mCategories);
        EXPECT_EQ(db.mFilter.nodes, nullptr);
        EXPECT_EQ(db.mFilter.number, 0u);
        ASSERT_EQ(db.ReopenDatabaseFile(), TAVLO_STATUS_OK);
    }
}

TEST_F(DatabaseTest, WritingACopyCommitsItIntoTheListedObject) {
    const std::string path = WriteDatabase("net.dbc", {"before"});
    TavloDatabase* listed = TavloDatabase::CreateDatabase(path.c_str());
    TavloDatabase edited(*listed);
    edited.SetUserData("after");
    edited.CreateNode(0);
    // The same file under the listed object belongs to another object.
    EXPECT_EQ(edited.Write(path.c_str()), TAVLO_STATUS_PATH_TAKEN);
    EXPECT_EQ(edited.Write(nullptr), TAVLO_STATUS_OK);
    EXPECT_EQ(DescribeDatabase(listed->Root()), DescribeDatabase(edited.Root()));
    EXPECT_EQ(listed->mRefCount, 1u);
    TavloDatabase::DestroyDatabase(*listed, false);
}

TEST_F(DatabaseTest, GetFindsRecordsByNameOrKey) {
    TavloDatabase db(DataFile("powertrain.dbc").c_str());
    EXPECT_EQ(db.GetNode("Gateway"), +db.mNodes->next);
    EXPECT_EQ(db.GetMessage(512ul), +db.mMessages->next);
    EXPECT_EQ(db.GetMessage("GearData"), +db.mMessages->next);
    EXPECT_EQ(db.GetMessage(2147484416ul), +db.mMessages->next->next);  // extended
    if (sizeof(unsigned long) > 4) {  // a key wider than 32 bits names nothing
        EXPECT_EQ(db.GetMessage(static_cast<unsigned long>((1ull << 32) + 512)), nullptr);
    }
    EXPECT_EQ(db.GetEnvvar("PtEnvB"), +db.mEnvvars->next);
    EXPECT_EQ(db.GetBitTiming(500), db.mBitTimings);
    EXPECT_EQ(db.GetValueTable("GearTable"), db.mValueTables);
    EXPECT_EQ(db.GetAttrDef("SigMode"), +db.mAttrDefs->next->next);
    const TavloDatabase extras(DataFile("extras.dbc").c_str());
    EXPECT_EQ(extras.GetSignalType("Raw16"), +extras.mSigTypes->next);
}

}  // namespace
}  // namespace tavlo::test
