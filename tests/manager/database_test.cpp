// tests/manager/database_test.cpp: the shared database object: names it
// proposes, sharing by file, counters, copies, re-reading, writing and the
// records by kind.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "manager/fixture.h"
#include "manager/names.h"
#include "model/model.h"
#include "support/describe.h"
#include "support/read_database.h"

namespace tavlo::test {
namespace {

struct NameCase {
    const char* source;
    unsigned int limit;
    const char* expected;
};

TEST(MakeDatabaseNameTest, LeadingIllegalCharactersBecomeUnderscoresLaterOnesDisappear) {
    const std::string forty(40, 'a');
    const NameCase cases[] = {
        {"12-ab", 33, "___ab"},       {"my-db", 33, "mydb"},     {"-x", 33, "_x"},
        {"Engine Bus", 33, "EngineBus"}, {"2nd-net", 33, "_ndnet"}, {"net", 33, "net"},
        {"", 33, ""},                 {"a1-2_b", 33, "a12_b"},   {"__x", 33, "__x"},
        {forty.c_str(), 33, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
        {"abcdef", 4, "abc"},         {"-1-", 3, "__"},          {"ab", 1, ""},
    };
    for (const NameCase& c : cases) {
        char dst[64];
        std::memset(dst, '#', sizeof dst);
        manager::MakeDatabaseName(dst, c.source, c.limit);
        EXPECT_STREQ(dst, c.expected) << "from \"" << c.source << "\" limit " << c.limit;
        EXPECT_TRUE(std::strlen(dst) == 0 || TAVLOVERIFYDATABASENAME(dst)) << dst;
    }
}

TEST(MakeDatabaseNameTest, WorksInPlace) {
    char text[] = "12-my net";
    manager::MakeDatabaseName(text, text, sizeof text);
    EXPECT_STREQ(text, "___mynet");
}

class DatabaseTest : public ManagerTest {};

TEST_F(DatabaseTest, DefaultNameComesFromTheDbNameAttributeElseTheFileName) {
    struct Case {
        const char* file;
        SmallDatabase content;
        const char* expected;
    };
    const std::string longName(40, 'N');
    const Case cases[] = {
        {"a/attr.dbc", {"v", 0, "Engine Bus"}, "EngineBus"},
        {"b/attr.dbc", {"v", 0, longName}, "NNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNN"},
        {"2nd-net.dbc", {}, "_ndnet"},
        {"plain.name.dbc", {}, "plainname"},
        {"noext", {}, "noext"},
    };
    for (const Case& c : cases) {
        const std::string path = WriteDatabase(c.file, c.content);
        TavloDatabase db(path.c_str());
        char* name = db.GetDefaultName();
        ASSERT_NE(name, nullptr);
        EXPECT_STREQ(name, c.expected) << c.file;
        TAVLO_MFREE(name);
    }
}

TEST_F(DatabaseTest, DbNameFallsBackToTheDefaultTextThenToEmpty) {
    const std::string withDefault = WriteFile(
        "default.dbc", "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_:\n\n"
                       "BA_DEF_  \"DBName\" STRING ;\nBA_DEF_DEF_  \"DBName\" \"From default\";\n");
    const std::string empty = WriteFile(
        "empty.dbc", "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_:\n\n"
                     "BA_DEF_  \"DBName\" STRING ;\nBA_DEF_DEF_  \"DBName\" \"\";\n");
    // Only a string attribute of the database itself counts.
    const std::string wrongKind = WriteFile(
        "wrongkind.dbc", "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_:\n\n"
                         "BA_DEF_  \"DBName\" INT 0 10;\nBA_DEF_DEF_  \"DBName\" 3;\n");
    const std::pair<std::string, const char*> cases[] = {
        {withDefault, "Fromdefault"}, {empty, ""}, {wrongKind, "wrongkind"}};
    for (const auto& [path, expected] : cases) {
        TavloDatabase db(path.c_str());
        char* name = db.GetDefaultName();
        ASSERT_NE(name, nullptr);
        EXPECT_STREQ(name, expected) << path;
        TAVLO_MFREE(name);
    }
    TavloDatabase pathless;
    char* name = pathless.GetDefaultName();
    EXPECT_STREQ(name, "");
    TAVLO_MFREE(name);
}

TEST_F(DatabaseTest, OneSharedObjectPerFileWhateverTheSpelling) {
    const std::string path = WriteDatabase("Net/Bus.dbc");
    TavloDatabase* first = TavloDatabase::CreateDatabase(path.c_str());
    EXPECT_EQ(first->mRefCount, 1u);
    EXPECT_EQ(first->mCacheCount, 0u);
    std::string upper = path;
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
    const std::string spellings[] = {upper, dir_ + "/./Net//x/../Bus.dbc", "Net/bus.DBC"};
    for (const std::string& spelling : spellings) {
        EXPECT_TRUE(first->IsPathEqual(spelling.c_str())) << spelling;
        EXPECT_EQ(TavloDatabase::CreateDatabase(spelling.c_str()), first) << spelling;
    }
    std::filesystem::current_path(here);
    EXPECT_EQ(first->mRefCount, 4u);
    EXPECT_STREQ(first->mDbPath, path.c_str());  // kept as the opener gave it
    EXPECT_FALSE(first->IsPathEqual(nullptr));
    EXPECT_FALSE(first->IsPathEqual((dir_ + "/Net/Bus.dbc2").c_str()));
    for (int i = 0; i < 4; ++i) {
        TavloDatabase::DestroyDatabase(*first, false);
    }
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
}

TEST_F(DatabaseTest, CachedObjectComesBackWithoutReadingTheFileAgain) {
    const std::string path = WriteDatabase("net.dbc", {"first"});
    TavloDatabase* db = TavloDatabase::CreateDatabase(path.c_str());
    TavloDatabase::DestroyDatabase(*db, true);
    EXPECT_EQ(db->mRefCount, 0u);
    EXPECT_EQ(db->mCacheCount, 1u);
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), db);

    WriteDatabase("net.dbc", {"second"});
    EXPECT_EQ(TavloDatabase::CreateDatabase(path.c_str()), db);
    EXPECT_EQ(db->mRefCount, 1u);
    EXPECT_EQ(db->mCacheCount, 0u);
    EXPECT_STREQ(db->mUserData, "first");

    EXPECT_EQ(db->ReopenDatabaseFile(), 0u);
    EXPECT_STREQ(db->mUserData, "second");
    EXPECT_EQ(db->mRefCount, 1u);
    TavloDatabase::DestroyDatabase(*db, false);
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
}

TEST_F(DatabaseTest, DestroyKeepsAnObjectThatACacheStillHolds) {
    const std::string path = WriteDatabase("net.dbc");
    TavloDatabase* db = TavloDatabase::CreateDatabase(path.c_str());
    TavloDatabase::CreateDatabase(path.c_str());
    TavloDatabase::DestroyDatabase(*db, true);  // refs 1, cache 1
    TavloDatabase::DestroyDatabase(*db, false);
    ASSERT_EQ(TavloDatabase::ListFindDb(path.c_str()), db);
    EXPECT_EQ(db->mRefCount, 0u);
    EXPECT_EQ(db->mCacheCount, 1u);
    TavloDatabase::ReleaseCache();
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
}

TEST_F(DatabaseTest, ReleaseCacheDeletesEveryUnreferencedObjectAndKeepsOpenOnes) {
    // Adjacent unreferenced objects, an open one between them, one at each end.
    const char* states[] = {"cached", "cached", "open", "cached", "open", "cached"};
    std::vector<std::string> paths;
    std::vector<TavloDatabase*> dbs;
    for (const char* state : states) {
        paths.push_back(WriteDatabase("db" + std::to_string(paths.size()) + ".dbc"));
        dbs.push_back(TavloDatabase::CreateDatabase(paths.back().c_str()));
        if (std::strcmp(state, "cached") == 0) {
            TavloDatabase::DestroyDatabase(*dbs.back(), true);
        }
    }
    TavloDatabase::ReleaseCache();
    for (std::size_t i = 0; i < dbs.size(); ++i) {
        const bool open = std::strcmp(states[i], "open") == 0;
        EXPECT_EQ(TavloDatabase::ListFindDb(paths[i].c_str()), open ? dbs[i] : nullptr) << i;
        if (open) {
            TavloDatabase::DestroyDatabase(*dbs[i], false);
        }
    }
}

TEST_F(DatabaseTest, NullPathGivesAnEmptyListedObject) {
    TavloDatabase* db = TavloDatabase::CreateDatabase(nullptr);
    EXPECT_EQ(db->mDbPath, nullptr);
    EXPECT_STREQ(db->mUserData, "");
    EXPECT_EQ(db->mNodes, nullptr);
    EXPECT_EQ(db->mRefCount, 1u);
    EXPECT_EQ(db->ReopenDatabaseFile(), TAVLO_STATUS_NO_FILE);
    TavloDatabase::DestroyDatabase(*db, false);
}

TEST_F(DatabaseTest, CopiesAreDeepAndCarryThePath) {
    const std::string path = WriteDatabase("net.dbc", {"v9", 4, "Net"});
    TavloDatabase source(path.c_str());
    source.mRefCount = 5;
    source.SetComment("about the net");
    const std::string described = DescribeDatabase(source.Root());

    TavloDatabase copy(source);
    EXPECT_EQ(copy.mRefCount, 1u);
    EXPECT_EQ(copy.mCacheCount, 0u);
    EXPECT_STREQ(copy.mDbPath, path.c_str());
    EXPECT_NE(copy.mDbPath, source.mDbPath);
    EXPECT_NE(copy.mMessages, source.mMessages);
    EXPECT_EQ(DescribeDatabase(copy.Root()), described);
    EXPECT_TRUE(copy == source);

    TavloDatabase assigned;
    assigned.mRefCount = 3;
    assigned.CreateNode(0);
    assigned = source;
    EXPECT_EQ(assigned.mRefCount, 3u);  // counters belong to the object
    EXPECT_STREQ(assigned.mDbPath, path.c_str());
    EXPECT_EQ(DescribeDatabase(assigned.Root()), described);

    const TavloDatabase& same = assigned;
    assigned = same;
    EXPECT_EQ(DescribeDatabase(assigned.Root()), described);

    TavloDatabase empty;
    assigned = empty;
    EXPECT_EQ(assigned.mDbPath, nullptr);
    EXPECT_EQ(assigned.mMessages, nullptr);
    EXPECT_STREQ(assigned.mUserData, "");
    EXPECT_FALSE(assigned == empty);  // no path: equal to nothing
}

TEST_F(DatabaseTest, AssignmentThatRunsOutOfMemoryLeavesTheTargetAsItWas) {
    const std::string path = WriteDatabase("net.dbc", {"v9", 4, "Net"});
    const TavloDatabase source(path.c_str());
    TavloDatabase target(WriteDatabase("other.dbc", {"other"}).c_str());
    const std::string before = DescribeDatabase(target.Root());
    model::FailAllocationsAfter(3);
    EXPECT_THROW(target = source, std::bad_alloc);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(DescribeDatabase(target.Root()), before);
    EXPECT_TRUE(target.IsPathEqual(target.mDbPath));
}

TEST_F(DatabaseTest, AReadErrorIsShownOnceAndWhatWasReadIsKept) {
    const std::string path =
        WriteFile("broken.dbc", SmallDatabaseText({}) + "BO_ 200 Broken: 8 A\n SG_ ;\n");
    TavloDatabase db(path.c_str());
    ASSERT_EQ(shown_.messages().size(), 1u);
    ASSERT_NE(db.GetMessage("Msg1"), nullptr);
    EXPECT_NE(db.GetNode("B"), nullptr);
}

// Of the file's view filter, the object keeps the categories: its node list
// and filter word stay empty and zero, after a re-read too.
TEST_F(DatabaseTest, TheObjectsViewFilterTakesOnlyTheFilesCategories) {
    const std::string path = WriteFile(
        "filter.dbc", SmallDatabaseText({}) + "CAT_DEF_ 1 Drive 0;\nFILTER 7 CAT_ 1 BU_ A B ;\n");
    TavloDatabase db(path.c_str());
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_TRUE(shown_.messages().empty());
        ASSERT_NE(db.mFilter.categories, nullptr);
        EXPECT_EQ(+db.mFilter.categories->act, db.mCategories);
        EXPECT_EQ(db.mFilter.nodes, nullptr);
        EXPECT_EQ(db.mFilter.number, 0u);
        ASSERT_EQ(db.ReopenDatabaseFile(), TAVLO_STATUS_OK);
    }
}

TEST_F(DatabaseTest, ClearReleasesEverythingButPathAndCounters) {
    const std::string path = WriteDatabase("net.dbc", {"v", 3, "Net"});
    TavloDatabase db(path.c_str());
    db.mRefCount = 2;
    db.SetComment("c");
    db.Clear();
    EXPECT_EQ(DescribeDatabase(db.Root()), DescribeDatabase(tavlo_root_t{}));
    EXPECT_EQ(db.mUserData, nullptr);
    EXPECT_STREQ(db.mDbPath, path.c_str());
    EXPECT_EQ(db.mRefCount, 2u);
    db.SetUserData("again");
    EXPECT_STREQ(db.mUserData, "again");
    db.SetComment(nullptr);
    EXPECT_EQ(db.mComment, nullptr);
}

TEST_F(DatabaseTest, LargestEnvironmentVariableHandle) {
    TavloDatabase none(WriteDatabase("none.dbc").c_str());
    EXPECT_EQ(none.GetMaxEnvvarHandle(), 0u);
    TavloDatabase some(WriteDatabase("some.dbc", {"v", 42}).c_str());
    EXPECT_EQ(some.GetMaxEnvvarHandle(), 42u);
}

TEST_F(DatabaseTest, WriteStatuses) {
    const std::string listedPath = WriteDatabase("listed.dbc");
    TavloDatabase* listed = TavloDatabase::CreateDatabase(listedPath.c_str());

    TavloDatabase pathless;
    EXPECT_EQ(pathless.Write(nullptr), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(pathless.Write(listedPath.c_str()), TAVLO_STATUS_PATH_TAKEN);
    EXPECT_EQ(pathless.mDbPath, nullptr);

    const std::string readOnly = WriteDatabase("readonly.dbc");
    SetReadOnly(readOnly, true);
    EXPECT_EQ(pathless.Write(readOnly.c_str()), TAVLO_STATUS_READ_ONLY);
    TavloDatabase own(readOnly.c_str());
    EXPECT_EQ(own.Write(readOnly.c_str()), TAVLO_STATUS_READ_ONLY);
    EXPECT_EQ(own.Write(nullptr), TAVLO_STATUS_READ_ONLY);

    // A missing folder: the status probe lets it pass, the writer fails.
    const std::string unwritable = dir_ + "/missing/folder/x.dbc";
    EXPECT_EQ(pathless.Write(unwritable.c_str()), TAVLO_STATUS_WRITE_FAILED);
    EXPECT_STREQ(pathless.mDbPath, unwritable.c_str());  // taken over before writing

    const std::string fresh = dir_ + "/fresh.dbc";
    own.SetUserData("written");
    EXPECT_EQ(own.Write(fresh.c_str()), TAVLO_STATUS_OK);
    EXPECT_STREQ(own.mDbPath, fresh.c_str());
    TavloDatabase reread(fresh.c_str());
    EXPECT_STREQ(reread.mUserData, "written");
    EXPECT_EQ(DescribeDatabase(reread.Root()), DescribeDatabase(own.Root()));

    // The listed object itself may write to its own file under any spelling.
    std::string upper = listedPath;
    upper.replace(upper.size() - 3, 3, "DBC");
    EXPECT_EQ(listed->Write(upper.c_str()), TAVLO_STATUS_OK);
    EXPECT_STREQ(listed->mDbPath, upper.c_str());
    TavloDatabase::DestroyDatabase(*listed, false);
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
    EXPECT_STREQ(listed->mUserData, "after");
    EXPECT_EQ(DescribeDatabase(listed->Root()), DescribeDatabase(edited.Root()));
    EXPECT_EQ(listed->mRefCount, 1u);

    // Committing the listed object itself changes nothing.
    const std::string described = DescribeDatabase(listed->Root());
    listed->Commit();
    EXPECT_EQ(DescribeDatabase(listed->Root()), described);
    TavloDatabase::DestroyDatabase(*listed, false);
}

// Create/Get/Delete of one kind, driven through member pointers.
template <class T>
struct KindOps {
    const char* kind;
    T* (TavloDatabase::*create)(unsigned int);
    void (TavloDatabase::*erase)(T&);
    T* TavloDatabase::*list;
};

template <class T>
std::vector<T*> ListOf(const TavloDatabase& db, T* TavloDatabase::*list) {
    std::vector<T*> records;
    for (T* r = db.*list; r != nullptr; r = r->next) {
        records.push_back(r);
    }
    return records;
}

template <class T>
void CheckCreateAndDelete(const KindOps<T>& ops) {
    SCOPED_TRACE(ops.kind);
    TavloDatabase db;
    T* only = (db.*ops.create)(0);
    ASSERT_NE(only, nullptr);
    EXPECT_EQ(ListOf(db, ops.list), std::vector<T*>{only});
    T* last = (db.*ops.create)(1000);
    T* head = (db.*ops.create)(0);
    T* second = (db.*ops.create)(1);
    T* appended = (db.*ops.create)(4);
    EXPECT_EQ(ListOf(db, ops.list), (std::vector<T*>{head, second, only, last, appended}));

    model::FailAllocationsAfter(0);
    EXPECT_EQ((db.*ops.create)(2), nullptr);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(ListOf(db, ops.list).size(), 5u);

    (db.*ops.erase)(*only);
    (db.*ops.erase)(*head);
    EXPECT_EQ(ListOf(db, ops.list), (std::vector<T*>{second, last, appended}));
}

TEST_F(DatabaseTest, CreateLinksAtTheIndexAndDeleteUnlinks) {
    CheckCreateAndDelete(KindOps<symblk>{"node", &TavloDatabase::CreateNode,
                                         &TavloDatabase::DeleteNode, &TavloDatabase::mNodes});
    CheckCreateAndDelete(KindOps<msgblk>{"message", &TavloDatabase::CreateMessage,
                                         &TavloDatabase::DeleteMessage,
                                         &TavloDatabase::mMessages});
    CheckCreateAndDelete(KindOps<env_var_blk>{"envvar", &TavloDatabase::CreateEnvvar,
                                              &TavloDatabase::DeleteEnvvar,
                                              &TavloDatabase::mEnvvars});
    CheckCreateAndDelete(KindOps<btlblk>{"bit timing", &TavloDatabase::CreateBitTiming,
                                         &TavloDatabase::DeleteBitTiming,
                                         &TavloDatabase::mBitTimings});
    CheckCreateAndDelete(KindOps<valtable>{"value table", &TavloDatabase::CreateValueTable,
                                           &TavloDatabase::DeleteValueTable,
                                           &TavloDatabase::mValueTables});
    CheckCreateAndDelete(KindOps<sigtype>{"signal type", &TavloDatabase::CreateSignalType,
                                          &TavloDatabase::DeleteSignalType,
                                          &TavloDatabase::mSigTypes});
    CheckCreateAndDelete(KindOps<cat>{"category", &TavloDatabase::CreateCategory,
                                      &TavloDatabase::DeleteCategory,
                                      &TavloDatabase::mCategories});
    CheckCreateAndDelete(KindOps<attr_def>{"attribute definition", &TavloDatabase::CreateAttrDef,
                                           &TavloDatabase::DeleteAttrDef,
                                           &TavloDatabase::mAttrDefs});
}

TEST_F(DatabaseTest, GetFindsRecordsByNameOrKey) {
    const std::string path = WriteFile(
        "kinds.dbc", SmallDatabaseText({"v", 5}) +
                         "VAL_TABLE_ Gears 1 \"one\" 0 \"zero\" ;\n"
                         "BA_DEF_ BO_  \"Cycle\" INT 0 1000;\n"
                         "BA_DEF_DEF_  \"Cycle\" 100;\n");
    TavloDatabase db(path.c_str());
    EXPECT_EQ(db.GetNode("B"), +db.mNodes->next);
    EXPECT_EQ(db.GetNode("C"), nullptr);
    ASSERT_NE(db.GetMessage("Msg1"), nullptr);
    EXPECT_EQ(db.GetMessage(100ul), db.GetMessage("Msg1"));
    EXPECT_EQ(db.GetMessage(101ul), nullptr);
    if (sizeof(unsigned long) > 4) {  // a key wider than 32 bits names nothing
        EXPECT_EQ(db.GetMessage(static_cast<unsigned long>((1ull << 32) + 100)), nullptr);
    }
    ASSERT_NE(db.GetEnvvar("EnvHigh"), nullptr);
    EXPECT_EQ(+db.GetEnvvar("EnvHigh")->id, 5u);
    ASSERT_NE(db.GetValueTable("Gears"), nullptr);
    EXPECT_EQ(db.GetValueTable("Gear"), nullptr);
    ASSERT_NE(db.GetAttrDef("Cycle"), nullptr);
    EXPECT_EQ(+db.GetAttrDef("Cycle")->object_type, unsigned{TAVLO_OBJ_MESSAGE});
    EXPECT_EQ(db.GetSignalType("None"), nullptr);
    btlblk* timing = db.CreateBitTiming(0);
    timing->baudrate = 500;
    EXPECT_EQ(db.GetBitTiming(500), timing);
    EXPECT_EQ(db.GetBitTiming(250), nullptr);
}

}  // namespace
}  // namespace tavlo::test
