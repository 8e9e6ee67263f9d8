// tests/manager/writemanager_test.cpp: the write manager's databases (one
// writer per file, creating, writing with every status, committing,
// clearing) and its objects (created and deleted in databases and inside
// messages, with every reference to a deleted record).

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <sstream>

#include "manager/fixture.h"
#include "model/model.h"
#include "support/describe.h"
#include "support/post_capture.h"
#include "support/read_database.h"

namespace tavlo::test {
namespace {

HWND Window(std::uintptr_t n) {
    return reinterpret_cast<HWND>(n);
}

class WriteManagerTest : public ManagerTest {
protected:
    static bool Exists(const std::string& path) { return std::filesystem::exists(path); }
    // A database made by writer_ under name, to be written to path (or none).
    const char* Create(const char* name, const std::string& path = "") {
        const char* handle = nullptr;
        EXPECT_EQ(writer_.CreateDatabase(name, &handle, path.empty() ? nullptr : path.c_str()), 0u);
        return handle;
    }
    // The notification for a window; lParam the handle, wParam the writer's window.
    static PostedMessage Told(HWND window, const char* handle) {
        const unsigned int message = TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);
        return {window, 0, message, window == HWND_BROADCAST ? 0u : 0x10u,
                reinterpret_cast<std::intptr_t>(handle)};
    }

    PostCapture posts_;
    TavloWriteManager writer_{Window(0x10)};
};

TEST_F(WriteManagerTest, OneWriteManagerPerFileUntilItClosesItOrGoes) {
    const std::string path = WriteDatabase("net.dbc");
    TavloManager reader(Window(3));
    TavloDatabase* db = reader.GetDatabase(Open(reader, path));
    const char* name = Open(writer_, path);
    {
        TavloWriteManager second(Window(2));
        EXPECT_TRUE(writer_.OwnsDatabaseForWrite(path.c_str()));
        EXPECT_FALSE(second.OwnsDatabaseForWrite(path.c_str()));
        EXPECT_EQ(second.OpenDatabase(path.c_str(), nullptr, 0), TAVLO_STATUS_OPEN_FOR_WRITE);
        EXPECT_EQ(writer_.GetDatabase(name), db);
        writer_.CloseDatabase(name, true);
        EXPECT_FALSE(TavloManager::IsDatabaseOpenedForWrite(path.c_str()));
        second.CloseDatabase(Open(second, path), true);
        Open(second, path);
        EXPECT_TRUE(TavloManager::IsDatabaseOpenedForWrite(path.c_str()));
        ASSERT_EQ(second.CreateDatabase("Made", nullptr, nullptr), 0u);
    }
    // Gone, it released what it held, open or cached: the reader's reference is left.
    EXPECT_FALSE(TavloManager::IsDatabaseOpenedForWrite(path.c_str()));
    EXPECT_EQ(db->mRefCount, 1u);
}

TEST_F(WriteManagerTest, CreateDatabaseStatuses) {
    const std::string readOnly = WriteDatabase("readonly.dbc");
    SetReadOnly(readOnly, true);
    const std::string fresh = dir_ + "/fresh.dbc";
    const char* handle = Create("Fresh", fresh);
    const std::tuple<const char*, std::string, unsigned int> cases[] = {
        {"9lives", "", TAVLO_STATUS_INVALID_NAME},
        {"Fresh", "", TAVLO_STATUS_NAME_USED},
        {"Other", WriteDatabase("existing.dbc"), TAVLO_STATUS_PATH_TAKEN},
        {"Other", readOnly, TAVLO_STATUS_PATH_TAKEN},
        {"Memory", "", TAVLO_STATUS_OK},
    };
    for (const auto& [name, path, status] : cases) {
        EXPECT_EQ(writer_.CreateDatabase(name, nullptr, path.empty() ? nullptr : path.c_str()),
                  status)
            << name << " " << path;
    }
    EXPECT_STREQ(handle, "Fresh");
    EXPECT_FALSE(Exists(fresh));  // nothing written yet
    EXPECT_EQ(TavloDatabase::ListFindDb(fresh.c_str()), writer_.GetDatabase(handle));
    EXPECT_EQ(writer_.GetPriority(handle), 0u);
    EXPECT_EQ(writer_.GetDatabase(writer_.GetUniqueDatabaseName("Memory"))->mDbPath, nullptr);
}

TEST_F(WriteManagerTest, WritingTellsEveryManagerThatHasTheFileAndAFailureNobody) {
    const std::string path = dir_ + "/made.dbc";
    const char* made = Create("Made", path);
    writer_.SetUserData("made here", made);
    posts_.clear();
    ASSERT_EQ(writer_.WriteDatabase(made, nullptr), TAVLO_STATUS_OK);
    EXPECT_STREQ(TavloDatabase(path.c_str()).mUserData, "made here");
    EXPECT_EQ(posts_.posts(),
              (std::vector<PostedMessage>{Told(HWND_BROADCAST, nullptr), Told(Window(0x10), made)}));
    TavloManager reader(Window(0x20));
    const char* seen = Open(reader, path);
    posts_.clear();
    // To a path of its own, under another spelling of its own file, then
    // to its own again: each write tells the reader too.
    const std::string copy = dir_ + "/copy.dbc";
    const std::string upper = copy.substr(0, copy.size() - 3) + "DBC";
    for (const std::string& to : {copy, upper, upper}) {
        ASSERT_EQ(writer_.WriteDatabase(made, to.c_str()), TAVLO_STATUS_OK) << to;
    }
    EXPECT_STREQ(writer_.GetDatabasePath(made), upper.c_str());  // the new path is its own
    EXPECT_EQ(posts_.posts().size(), 9u);
    EXPECT_EQ(posts_.posts()[2], Told(Window(0x20), seen));

    const char* pathless = Create("Pathless");
    const char* broken = Create("Broken", dir_ + "/no/such/dir.dbc");
    const std::string roPath = WriteDatabase("ro.dbc");
    const std::string roOther = WriteDatabase("ro2.dbc");
    SetReadOnly(roPath, true);
    SetReadOnly(roOther, true);
    const char* readOnly = Open(writer_, roPath);
    const std::string other = WriteDatabase("other.dbc");
    Open(reader, other);
    const std::string text = "Pathless";
    const std::string missing = dir_ + "/missing/x.dbc";
    const std::tuple<const char*, std::string, unsigned int> cases[] = {
        {text.c_str(), "", TAVLO_STATUS_WRITE_FAILED},  // an unknown handle
        {pathless, "", TAVLO_STATUS_NO_FILE},
        {broken, "", TAVLO_STATUS_WRITE_FAILED},  // the probe passes, the writer fails
        {readOnly, "", TAVLO_STATUS_READ_ONLY},
        {readOnly, roPath, TAVLO_STATUS_READ_ONLY},
        {pathless, roOther, TAVLO_STATUS_READ_ONLY},
        {pathless, other, TAVLO_STATUS_PATH_TAKEN},  // another object's file
        {pathless, missing, TAVLO_STATUS_WRITE_FAILED},
    };
    posts_.clear();
    for (const auto& [dbName, to, status] : cases) {
        EXPECT_EQ(writer_.WriteDatabase(dbName, to.empty() ? nullptr : to.c_str()), status) << to;
    }
    EXPECT_TRUE(posts_.posts().empty());
    EXPECT_STREQ(writer_.GetDatabasePath(pathless), missing.c_str());  // taken before writing
    // All at once: every database is tried, the first failure is returned.
    std::filesystem::remove(upper);
    EXPECT_EQ(writer_.WriteDatabase(nullptr, nullptr), TAVLO_STATUS_WRITE_FAILED);
    EXPECT_TRUE(Exists(upper));
    EXPECT_EQ(posts_.posts().size(), 3u);  // for Made only
    EXPECT_EQ(TavloWriteManager(Window(3)).WriteDatabase(nullptr, nullptr), TAVLO_STATUS_OK);
}

TEST_F(WriteManagerTest, AnotherManagersLockStopsWritingCommitTellsEveryoneClearNobody) {
    const std::string path = WriteDatabase("net.dbc", {"old"});
    const std::string second = dir_ + "/second.dbc";
    TavloManager reader(Window(0x20));
    const char* name = Open(writer_, path);
    Create("Second", second);
    const char* readName = Open(reader, path);
    ASSERT_TRUE(reader.LockDatabase(readName, "Reader view"));
    writer_.SetUserData("new", name);
    for (const char* dbName : {name, static_cast<const char*>(nullptr)}) {
        const std::size_t shown = shown_.messages().size();
        posts_.clear();
        EXPECT_EQ(writer_.WriteDatabase(dbName, nullptr), TAVLO_STATUS_LOCKED);
        ASSERT_EQ(shown_.messages().size(), shown + 1);
        EXPECT_EQ(shown_.messages().back().text, "Database access refused!\nReader view");
        EXPECT_TRUE(posts_.posts().empty());
    }
    EXPECT_FALSE(Exists(second));  // nothing written, not even the unlocked one
    EXPECT_STREQ(TavloDatabase(path.c_str()).mUserData, "old");
    // The writer's own locks never stop it; its write lock refuses a reader.
    reader.UnlockDatabase(nullptr);
    ASSERT_TRUE(writer_.LockAllDatabases("Writer"));
    EXPECT_FALSE(reader.LockDatabase(readName, "Reader"));
    EXPECT_EQ(writer_.WriteDatabase(name, nullptr), TAVLO_STATUS_OK);

    const std::vector<PostedMessage> told = {Told(HWND_BROADCAST, nullptr),
                                             Told(Window(0x10), name), Told(Window(0x20), readName)};
    const char* const dbNames[] = {name, "net", nullptr};  // "net" is a text, not the handle
    for (const char* dbName : dbNames) {
        posts_.clear();
        writer_.CommitDatabase(dbName);
        const std::size_t copies = dbName == dbNames[1] ? 0 : dbName == name ? 3 : 5;
        EXPECT_EQ(posts_.posts().size(), copies);
        EXPECT_TRUE(copies == 0 || std::equal(told.begin(), told.end(), posts_.posts().begin()));
    }
    posts_.clear();
    writer_.ClearDatabase(nullptr);
    EXPECT_TRUE(posts_.posts().empty());
    const TavloDatabase* shared = reader.GetDatabase(readName);
    EXPECT_EQ(shared->mMessages, nullptr);  // the reader shares the cleared object
    EXPECT_STREQ(shared->mDbPath, path.c_str());
}

TEST_F(WriteManagerTest, ObjectsGoToTheirIndexAndNodesAreDeletedOnlyByHandle) {
    const char* a = Create("A");
    EXPECT_EQ(writer_.CreateMessage("A", 0), nullptr);  // a text, not the handle
    msgblk* first = writer_.CreateMessage(a, 0);
    msgblk* appended = writer_.CreateMessage(a, 1000);
    msgblk* head = writer_.CreateMessage(a, 0);
    msgblk* second = writer_.CreateMessage(a, 1);
    EXPECT_EQ(writer_.GetDatabase(a)->mMessages, head);
    EXPECT_EQ(+head->next, second);
    EXPECT_EQ(+second->next, first);
    EXPECT_EQ(+first->next, appended);
    model::FailAllocationsAfter(0);
    EXPECT_EQ(writer_.CreateMessage(a, 2), nullptr);
    model::FailAllocationsAfter(-1);
    const int signals = first->signal_count;
    const sigblk* signal = writer_.CreateSignal(*first, 5);
    EXPECT_EQ(+first->signals, signal);
    EXPECT_EQ(+first->signal_count, signals + 1);
    msgblk stranger{};
    writer_.DeleteMessage(stranger, nullptr);  // held by none: nothing
    symblk* node = writer_.CreateNode(a, 0);
    writer_.DeleteNode(*node, nullptr);  // deliberate: nodes need a handle
    EXPECT_EQ(writer_.NodeCount(a), 1u);
    writer_.DeleteNode(*node, a);
    EXPECT_EQ(writer_.NodeCount(a), 0u);
}

// Deleting a record that others refer to takes every reference with it: the
// database writes, reads back and keeps its counts, the deleted name is gone,
// and every line that did not name it is still there. The cases are in
// data/deletions.txt.
TEST_F(WriteManagerTest, DeletingARecordTakesEveryReferenceToIt) {
    const std::string source = FileContent(DataFile("references.dbc"));
    const char* other = Create("Other");
    const auto lines = [](const std::string& path) {
        std::vector<std::string> found;
        std::istringstream in(FileContent(path));
        for (std::string line; std::getline(in, line);) {
            found.push_back(line);
        }
        return found;
    };
    // Whether a line holds any of the words (between |) as a whole word.
    const auto names = [](const std::string& line, const std::string& words) {
        return words != "-" && std::regex_search(line, std::regex("\\b(" + words + ")\\b"));
    };
    const auto length = [](const rxblk* list) {
        int entries = 0;
        for (; list != nullptr; list = list->next) {
            ++entries;
        }
        return entries;
    };
    const std::vector<CaseLine> cases = ReadCases("deletions.txt");
    ASSERT_EQ(cases.size(), 20u);
    for (const CaseLine& c : cases) {
        SCOPED_TRACE("deletions.txt:" + std::to_string(c.number));
        const char* handle = Open(writer_, WriteFile("references.dbc", source));
        TavloDatabase& db = *writer_.GetDatabase(handle);
        writer_.AddFilterNode(*db.GetNode("Gateway"), handle);
        db.GetEnvvar("Level")->node = db.GetNode("Gateway");
        ASSERT_EQ(writer_.WriteDatabase(handle, (dir_ + "/before.dbc").c_str()), 0u);

        const std::string& kind = c.fields[0];
        std::string record = c.fields[1];
        const std::size_t at = record.find('@');
        const char* dbName = at == std::string::npos ? nullptr : other;
        record = record.substr(0, at);
        const std::size_t slash = record.find('/');
        msgblk& message = *db.GetMessage(record.substr(0, slash).c_str());
        const char* name = record.c_str();
        sigblk* signal = TAVLO_GET_SIGNAL_OF_MSG_NAME(db.GetMessage("EngineData"), name + (slash + 1));
        TavloWriteManager& w = writer_;
        const std::map<std::string, std::function<void()>> deletions = {
            {"node", [&] { w.DeleteNode(*db.GetNode(name), handle); }},
            {"message", [&] { w.DeleteMessage(message, dbName); }},
            {"signal", [&] { w.DeleteSignal(*signal, message); }},
            {"group", [&] { w.DeleteSignalGroup(*message.signal_groups, message); }},
            {"envvar", [&] { w.DeleteEnvvar(*db.GetEnvvar(name), nullptr); }},
            {"category", [&] { w.DeleteCategory(*db.mCategories, nullptr); }},
            {"type", [&] { w.DeleteSignalType(*db.GetSignalType(name), nullptr); }},
            {"table", [&] { w.DeleteValueTable(*db.GetValueTable(name), nullptr); }},
            {"definition", [&] { w.DeleteAttrDefinition(*db.GetAttrDef(name), nullptr); }}};
        deletions.at(kind)();
        for (const msgblk* m = db.mMessages; m != nullptr; m = m->next) {
            for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
                EXPECT_EQ(length(s->receivers), +s->receiver_count) << s->name;
            }
        }
        for (const env_var_blk* e = db.mEnvvars; e != nullptr; e = e->next) {
            EXPECT_EQ(length(e->access_nodes), +e->access_node_count) << e->name;
        }
        ASSERT_EQ(writer_.WriteDatabase(handle, (dir_ + "/after.dbc").c_str()), 0u);
        tavlo_root_t reread{};
        EXPECT_TRUE(ReadDatabase(dir_ + "/after.dbc", &reread).messages.empty());
        TAVLO_FREE_ROOT(&reread);
        const std::vector<std::string> after = lines(dir_ + "/after.dbc");
        const std::string& gone = c.fields[2];
        const std::string changed = c.fields.size() > 3 ? c.fields[3] : "-";
        for (const std::string& line : after) {
            EXPECT_FALSE(names(line, gone)) << line;
        }
        for (const std::string& line : lines(dir_ + "/before.dbc")) {
            if (!names(line, gone) && !names(line, changed)) {
                EXPECT_NE(std::find(after.begin(), after.end(), line), after.end()) << line;
            }
        }
        writer_.CloseDatabase(handle, false);
    }
}

}  // namespace
}  // namespace tavlo::test
