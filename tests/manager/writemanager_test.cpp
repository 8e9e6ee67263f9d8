// tests/manager/writemanager_test.cpp: the write manager's databases (one
// writer per file, creating, writing, committing, clearing), its objects
// (created, and deleted with every reference to them), and its edits of
// attribute values, descriptions, comments and filters with the removal walk.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>

#include "manager/fixture.h"
#include "model/model.h"
#include "support/post_capture.h"
#include "support/read_database.h"

namespace tavlo::test {
namespace {

HWND Window(std::uintptr_t n) {
    return reinterpret_cast<HWND>(n);
}

class WriteManagerTest : public ManagerTest {
protected:
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
    EXPECT_FALSE(std::filesystem::exists(fresh));  // nothing written yet
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
    EXPECT_TRUE(std::filesystem::exists(upper));
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
    EXPECT_FALSE(std::filesystem::exists(second));  // nothing written, not even the unlocked one
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
    const auto names = [](std::string line, const std::string& words) {
        for (char& c : line) {
            c = std::isalnum(static_cast<unsigned char>(c)) || c == '_' ? c : ' ';
        }
        std::istringstream in(words);
        bool found = false;
        for (std::string word; std::getline(in, word, '|');) {
            found = found || (" " + line + " ").find(" " + word + " ") != std::string::npos;
        }
        return found;
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
        msgblk* message = db.GetMessage(record.substr(0, slash).c_str());  // or none
        const char* name = record.c_str();
        sigblk* signal = TAVLO_GET_SIGNAL_OF_MSG_NAME(db.GetMessage("EngineData"), name + (slash + 1));
        TavloWriteManager& w = writer_;
        const std::map<std::string, std::function<void()>> deletions = {
            {"node", [&] { w.DeleteNode(*db.GetNode(name), handle); }},
            {"message", [&] { w.DeleteMessage(*message, dbName); }},
            {"signal", [&] { w.DeleteSignal(*signal, *message); }},
            {"group", [&] { w.DeleteSignalGroup(*message->signal_groups, *message); }},
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

// ---- Edits of attribute values, value descriptions, comments and filters ----------

// What show makes of each entry of a list, each followed by after.
template <class Entry, class Show>
std::string Listed(const Entry* entry, Show show, const std::string& after = " ") {
    std::string seen;
    for (; entry != nullptr; entry = entry->next) {
        seen += show(*entry) + after;
    }
    return seen;
}

// "name=value " for each attribute value of a list, in list order.
std::string Values(const attr* list) {
    return Listed(list, [](const attr& a) {
        const std::string number = std::to_string(long(a.value.number));
        return std::string(a.def->name) + "=" +
               (a.def->value_type == TAVLO_ATTR_STRING ? a.value.text : number);
    });
}

// Every edit stays in memory: nothing is written to the data files.
class EditTest : public DataTest<TavloWriteManager> {
protected:
    symblk& Node(const char* dbName, const char* name) { return *Db(dbName).GetNode(name); }
    sigblk& Signal(const char* dbName, const char* message, const char* name) {
        return *TAVLO_GET_SIGNAL_OF_MSG_NAME(Db(dbName).GetMessage(message), name);
    }
};

TEST_F(EditTest, ANewValueGoesToTheHeadAnOldOneIsOverwrittenInItsRecord) {
    symblk& engine = Node(pt_, "Engine");
    msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    // No range, type or object kind check: a network INT and an
    // out-of-range FLOAT are taken on a node.
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "BusSpeed", AttrNumber(250000)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "EnvLevel", AttrNumber(12)));
    EXPECT_EQ(Values(engine.attributes), "EnvLevel=12 BusSpeed=250000 NodeLayer=hw ");
    EXPECT_EQ(+engine.attributes->def, Db(pt_).GetAttrDef("EnvLevel"));
    // A signal type's value is made of its own database's definition.
    sigtype* type = Db(body_).CreateSignalType(0);
    EXPECT_TRUE(mgr_.SetAttrValue(*type, "NodeLayer", AttrNumber(4)));
    EXPECT_EQ(+type->attributes->def, Db(body_).GetAttrDef("NodeLayer"));

    const long blocks = model::LiveAllocations();
    const attr* cycle = engineData.attributes;
    EXPECT_TRUE(mgr_.SetAttrValue(engineData, "GenMsgCycleTime", AttrNumber(0)));
    sigblk& temp = Signal(pt_, "EngineData", "EngineTemp");
    EXPECT_TRUE(mgr_.SetAttrValue(temp, "SigMode", AttrNumber(0)));  // an ENUM index
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "EnvLevel", AttrNumber(3)));
    EXPECT_EQ(model::LiveAllocations(), blocks);
    EXPECT_EQ(+engineData.attributes, cycle);
    EXPECT_EQ(Values(engineData.attributes) + Values(temp.attributes) + Values(engine.attributes),
              "GenMsgCycleTime=0 SigMode=0 EnvLevel=3 BusSpeed=250000 NodeLayer=hw ");

    // A name agrees with a value's in its first 32 characters; a new value
    // needs the definition's name itself.
    attr_def* def = Db(pt_).CreateAttrDef(0);
    const std::string name32 = "Attribute_name_of_32_characters_";
    model::CopyName(def->name, name32.c_str());
    def->object_type = TAVLO_OBJ_NODE;
    def->value_type = TAVLO_ATTR_INT;
    EXPECT_FALSE(mgr_.SetAttrValue(engine, (name32 + "x").c_str(), AttrNumber(1)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, name32.c_str(), AttrNumber(1)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, (name32 + "and_more").c_str(), AttrNumber(2)));
    EXPECT_EQ(Values(engine.attributes), name32 + "=2 EnvLevel=3 BusSpeed=250000 NodeLayer=hw ");
    EXPECT_TRUE(mgr_.ResetAttrValue(engine, (name32 + "y").c_str()));
    EXPECT_EQ(Values(engine.attributes), "EnvLevel=3 BusSpeed=250000 NodeLayer=hw ");
}

TEST_F(EditTest, AStringValueIsACopyAndTheTextItReplacesStaysForItsReaders) {
    symblk& gateway = Node(pt_, "Gateway");
    std::string first = "first";
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "NodeLayer", AttrText(first.c_str())));
    const attr* record = gateway.attributes;
    char* const firstCopy = record->value.text;
    first[0] = 'F';
    EXPECT_STREQ(firstCopy, "first");
    const long blocks = model::LiveAllocations();
    EXPECT_TRUE(mgr_.SetAttrValue(gateway, "NodeLayer", AttrText("second")));
    EXPECT_EQ(model::LiveAllocations(), blocks + 1);  // the new copy; the old text stays
    EXPECT_EQ(+gateway.attributes, record);
    EXPECT_EQ(Values(gateway.attributes), "NodeLayer=second ");
    TAVLO_MFREE(firstCopy);  // this test read it, so it frees it

    // The database's name text the same way.
    char* const oldName = Db(pt_).mDbAttrs->value.text;
    EXPECT_TRUE(mgr_.SetAttrValue("DBName", pt_, AttrText("Renamed")));
    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", pt_).text, "Renamed");
    TAVLO_MFREE(oldName);
}

TEST_F(EditTest, NoValueIsAddedWithoutADefinitionInTheObjectsOwnDatabaseOrMemory) {
    // A node of another manager's database: none of mgr_'s holds it.
    TavloManager reader(static_cast<void*>(nullptr));
    symblk& stranger = *reader.GetDatabase(Open(reader, WriteDatabase("small.dbc")))->GetNode("A");
    symblk& gateway = Node(pt_, "Gateway");
    const long blocks = model::LiveAllocations();
    EXPECT_FALSE(mgr_.SetAttrValue(Signal(body_, "DoorStatus", "DoorOpen"), "SigMode", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(*Db(body_).GetEnvvar("BodyEnv"), "EnvLevel", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(*Db(body_).GetMessage("DoorStatus"), "BusSpeed", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(Node(body_, "Door"), "NoSuchAttribute", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(gateway, "nodelayer", AttrText("x")));
    EXPECT_FALSE(mgr_.SetAttrValue("BusSpeed", body_, AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(stranger, "NodeLayer", AttrText("x")));  // Pt defines it
    EXPECT_FALSE(mgr_.SetAttrValue("BusSpeed", unknown_.c_str(), AttrNumber(1)));
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    // Nor when memory runs out: allocations that still succeed, and a value set.
    symblk& engine = Node(pt_, "Engine");
    const attr* engineLayer = engine.attributes;
    const std::pair<long, std::function<bool()>> cases[] = {
        {0, [&] { return mgr_.SetAttrValue(gateway, "BusSpeed", AttrNumber(1)); }},
        {1, [&] { return mgr_.SetAttrValue(gateway, "NodeLayer", AttrText("x")); }},  // no text
        {0, [&] { return mgr_.SetAttrValue(engine, "NodeLayer", AttrText("x")); }},
    };
    for (const auto& [allowed, set] : cases) {
        model::FailAllocationsAfter(allowed);
        EXPECT_FALSE(set());
        model::FailAllocationsAfter(-1);
    }
    EXPECT_EQ(model::LiveAllocations(), blocks);  // nothing was made
    EXPECT_EQ(+gateway.attributes, nullptr);
    EXPECT_EQ(+engine.attributes, engineLayer);
    EXPECT_EQ(Values(engine.attributes), "NodeLayer=hw ");
}

TEST_F(EditTest, ResetRemovesTheFirstValueOfTheNameOnEveryKindOfObject) {
    symblk& gateway = Node(pt_, "Gateway");
    // Two values of one name, as a file naming it twice leaves them.
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "BusSpeed", AttrNumber(1)));
    attr* twice = gateway.attributes->next = model::Allocate<attr>();
    twice->def = Db(pt_).GetAttrDef("BusSpeed");
    twice->value = AttrNumber(2);
    const long blocks = model::LiveAllocations();
    EXPECT_TRUE(mgr_.ResetAttrValue(gateway, "BusSpeed"));
    EXPECT_EQ(model::LiveAllocations(), blocks - 1);
    EXPECT_EQ(Values(gateway.attributes), "BusSpeed=2 ");
    // A STRING value goes as a record only: its text stays for its readers.
    symblk& engine = Node(pt_, "Engine");
    char* const hw = engine.attributes->value.text;
    EXPECT_TRUE(mgr_.ResetAttrValue(engine, "NodeLayer"));
    EXPECT_STREQ(hw, "hw");
    TAVLO_MFREE(hw);

    msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    sigblk& temp = Signal(pt_, "EngineData", "EngineTemp");
    env_var_blk& knob = *Db(extras_).GetEnvvar("Knob");
    sigtype& raw8 = *Db(extras_).mSigTypes;
    ASSERT_TRUE(mgr_.SetAttrValue("BusSpeed", pt_, AttrNumber(1)));  // of the database
    const std::function<bool()> resets[] = {
        [&] { return mgr_.ResetAttrValue(engineData, "GenMsgCycleTime"); },
        [&] { return mgr_.ResetAttrValue(temp, "SigMode"); },
        [&] { return mgr_.ResetAttrValue(knob, "EnvLevel"); },
        [&] { return mgr_.ResetAttrValue(raw8, "TypeRank"); },
        [&] { return mgr_.ResetAttrValue("BusSpeed", pt_); },
    };
    for (const auto& reset : resets) {
        EXPECT_TRUE(reset()) << &reset - resets;
        EXPECT_FALSE(reset()) << &reset - resets;  // gone
    }
    EXPECT_FALSE(mgr_.ResetAttrValue("DBName", unknown_.c_str()));
}

// ---- Value descriptions, comments, user data -------------------------------------

// Record by record, a record with the text gets the value, else one with
// the value gets the text; none: a new record at the head.
template <class Record>
void ExpectDescriptions(TavloWriteManager& mgr, Record& object) {
    const std::string t = "Temperature_sensor_reading_fault";  // 32 characters
    const std::string u = "Undervoltage";
    const std::string w(40, 'W');
    const long wide = sizeof(long) > sizeof(int) ? static_cast<long>(0x100000005LL) : 5;
    const auto listed = [&object] {
        return Listed(+object.value_descriptions,
                      [](const val& v) { return std::to_string(v.value) + "=" + v.text; });
    };
    const std::tuple<std::string, long, std::string> cases[] = {
        {t, 5, "5=" + t + " 5=" + u},  // the first record bears the text
        {u, 3, "3=" + u + " 5=" + u},  // the first bears the value, a later one the text
        {"Valve", 5, "3=" + t + " 5=Valve"},
        {u, 5, "3=" + t + " 5=" + u},
        {t + "_extra", 9, "9=" + t + " 5=" + u},  // texts agree in their first 32 characters
        {"Valve", 7, "7=Valve 3=" + t + " 5=" + u},
        {w, 8, "8=" + w.substr(0, 32) + " 3=" + t + " 5=" + u},  // a new text is cut to 32
        {"Valve", wide, "3=" + t + " 5=Valve"},  // values match on their low 32 bits
    };
    for (const auto& [text, value, expected] : cases) {
        model::ReleaseValueDescriptions(object.value_descriptions);
        object.value_descriptions = nullptr;
        mgr.SetValueDescription(object, u.c_str(), 5);
        mgr.SetValueDescription(object, t.c_str(), 3);
        mgr.SetValueDescription(object, text.c_str(), value);
        EXPECT_EQ(listed(), expected + " ") << text;
    }
    const std::string before = listed();
    const long blocks = model::LiveAllocations();
    model::FailAllocationsAfter(0);
    mgr.SetValueDescription(object, "Fresh", 42);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(listed(), before);
    EXPECT_EQ(model::LiveAllocations(), blocks);
}

TEST_F(EditTest, ValueDescriptionsTextFirstThenValueRecordByRecord) {
    ExpectDescriptions(mgr_, Signal(pt_, "EngineData", "EngineTemp"));
    ExpectDescriptions(mgr_, *Db(body_).GetEnvvar("BodyEnv"));
}

// Stored as a copy; its own comment handed back stays; null removes it.
template <class Record>
void ExpectComments(TavloWriteManager& mgr, Record& object) {
    const std::string text = "a comment";
    const char* stored = mgr.SetComment(object, text.c_str());
    EXPECT_EQ(stored, +object.comment);
    EXPECT_NE(stored, text.c_str());
    stored = mgr.SetComment(object, object.comment);
    EXPECT_EQ(stored, +object.comment);
    EXPECT_EQ(std::string(object.comment), text);
    const long blocks = model::LiveAllocations();
    EXPECT_EQ(mgr.SetComment(object, nullptr), nullptr);
    EXPECT_EQ(+object.comment, nullptr);
    EXPECT_EQ(model::LiveAllocations(), blocks - 1);
}

TEST_F(EditTest, CommentsAndUserDataAreCopies) {
    ExpectComments(mgr_, Node(pt_, "Engine"));
    ExpectComments(mgr_, *Db(pt_).GetMessage("GearData"));
    ExpectComments(mgr_, *Db(pt_).GetEnvvar("PtEnvB"));
    ExpectComments(mgr_, Signal(body_, "GearData", "GearEcho"));
    ExpectComments(mgr_, *Db(extras_).mSigTypes);

    mgr_.SetDatabaseComment("Changed", pt_);
    mgr_.SetDatabaseComment(mgr_.GetDatabaseComment(pt_), pt_);
    mgr_.SetDatabaseComment("Elsewhere", unknown_.c_str());
    EXPECT_STREQ(mgr_.GetDatabaseComment(pt_), "Changed");
    mgr_.SetDatabaseComment(nullptr, pt_);
    EXPECT_EQ(mgr_.GetDatabaseComment(pt_), nullptr);

    const std::string version = "PT 2.0";
    const char* stored = mgr_.SetUserData(version.c_str(), pt_);
    EXPECT_EQ(stored, +Db(pt_).mUserData);
    EXPECT_NE(stored, version.c_str());
    EXPECT_STREQ(stored, "PT 2.0");
    EXPECT_STREQ(mgr_.GetUserData(body_), "Body 3");
    EXPECT_EQ(mgr_.GetDatabaseComment(body_), nullptr);
    // An unknown handle (or none) has no texts, and says so with status 2.
    for (const char* unknown : {unknown_.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(mgr_.SetUserData("Body 9", unknown), nullptr);
        mgr_.GetPriority(pt_);
        EXPECT_EQ(mgr_.GetDatabaseComment(unknown), nullptr);
        EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
        mgr_.GetPriority(pt_);
        EXPECT_EQ(mgr_.GetUserData(unknown), nullptr);
        EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    }
}

// ---- View filters and the removal walk ------------------------------------------------

// The names of what the entries of a list name, each followed by after.
template <class Entry, class Target>
std::string Targets(const Entry* list, Target* Entry::*field, const std::string& after = " ") {
    return Listed(list, [field](const Entry& entry) {
        return std::string(entry.*field != nullptr ? (entry.*field)->name : "(none)");
    }, after);
}

TEST_F(EditTest, FilterEntriesGoToTheHeadAndNoneIsStoredAsAnEntryNamingNone) {
    TavloDatabase& body = Db(body_);
    symblk& door = Node(body_, "Door");
    for (symblk* node : {&door, TAVLONONEFILTERNODE(), &door}) {
        mgr_.AddFilterNode(*node, body_);
    }
    mgr_.AddFilterCategory(*TAVLONONEFILTERCATEGORY(), body_);
    mgr_.AddFilterCategory(*body.mCategories, body_);
    EXPECT_TRUE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), body_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*TAVLONONEFILTERCATEGORY(), body_));
    // Removing None looks for the None record itself, which no entry holds.
    mgr_.RemoveFilterNode(*TAVLONONEFILTERNODE(), body_);
    mgr_.RemoveFilterCategory(*TAVLONONEFILTERCATEGORY(), body_);
    // Unknown handles and failed allocations change nothing.
    mgr_.AddFilterNode(door, unknown_.c_str());
    mgr_.RemoveFilterNode(Node(pt_, "Engine"), unknown_.c_str());
    mgr_.AddFilterCategory(*body.mCategories, unknown_.c_str());
    mgr_.RemoveFilterCategory(*Db(pt_).mCategories, unknown_.c_str());
    model::FailAllocationsAfter(0);
    mgr_.AddFilterNode(door, body_);
    mgr_.AddFilterCategory(*body.mCategories, body_);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(Targets(+body.mFilter.nodes, &rxblk::symbol), "Door (none) Door ");
    EXPECT_EQ(+body.mFilter.nodes->next->attributes, nullptr);
    EXPECT_EQ(Targets(+body.mFilter.categories, &filtercatblk::act), "Comfort (none) ");
    EXPECT_EQ(Targets(+Db(pt_).mFilter.nodes, &rxblk::symbol), "Engine (none) ");
    EXPECT_EQ(Targets(+Db(pt_).mFilter.categories, &filtercatblk::act), "Drive (none) ");
}

// A list of references the removal walk works on: add and remove an entry
// naming the node (signal, category) of a name, and what the list names.
struct WalkedList {
    const char* what;
    std::function<void(char)> add;
    std::function<void(char)> remove;
    std::function<std::string()> names;
};

TEST_F(EditTest, RemovalTakesEveryEntryOfTheTargetAndDropsWhatPrecedesARepeat) {
    // The walk forgets its predecessor after each removal, so a match right
    // behind another is unlinked as if it were the head: the list then starts
    // behind it, and the entries in front of it drop out unreleased.
    // Deliberate. The entries put in front of a list, and those of them left
    // after X is removed.
    const std::pair<std::string, std::string> cases[] = {
        {"AXX", ""},  {"XAX", "A"}, {"AXBX", "AB"},  {"XXA", "A"},    {"AB", "AB"},
        {"X", ""},    {"XXX", ""},  {"AXBXX", ""},   {"ABXXC", "C"}, {"", ""}};
    TavloDatabase& db = Db(extras_);
    msgblk& frame = *db.mMessages;
    sigblk& signal = *frame.signals;
    siggroupblk& group = *frame.signal_groups;
    env_var_blk& knob = *db.mEnvvars;
    std::map<char, symblk*> nodes;
    std::map<char, cat*> categories;
    std::map<char, sigblk*> signals;
    const unsigned short signalCount = frame.signal_count;
    for (const char letter : {'A', 'B', 'C', 'X'}) {
        const char name[] = {letter, '\0'};
        model::CopyName((nodes[letter] = mgr_.CreateNode(extras_, 0))->name, name);
        model::CopyName((categories[letter] = mgr_.CreateCategory(extras_, 0))->name, name);
        model::CopyName((signals[letter] = mgr_.CreateSignal(frame, 0))->name, name);
        mgr_.AddAccessNode(knob, *nodes[letter]);  // counted, never removed
    }
    EXPECT_EQ(+frame.signal_count, signalCount + 4);
    EXPECT_EQ(Targets(+knob.access_nodes, &rxblk::symbol), "X C B A Alpha Gateway ");
    EXPECT_EQ(+knob.access_node_count, 6);
    const WalkedList lists[] = {
        {"filter nodes", [&](char n) { mgr_.AddFilterNode(*nodes[n], extras_); },
         [&](char n) { mgr_.RemoveFilterNode(*nodes[n], extras_); },
         [&] { return Targets(+db.mFilter.nodes, &rxblk::symbol, ""); }},
        {"filter categories", [&](char n) { mgr_.AddFilterCategory(*categories[n], extras_); },
         [&](char n) { mgr_.RemoveFilterCategory(*categories[n], extras_); },
         [&] { return Targets(+db.mFilter.categories, &filtercatblk::act, ""); }},
        {"receivers", [&](char n) { mgr_.AddReceiver(signal, *nodes[n]); },
         [&](char n) { mgr_.RemoveReceiver(signal, *nodes[n]); },
         [&] { return Targets(+signal.receivers, &rxblk::symbol, ""); }},
        {"transmitters", [&](char n) { mgr_.AddTransmitter(frame, *nodes[n]); },
         [&](char n) { mgr_.RemoveTransmitter(frame, *nodes[n]); },
         [&] { return Targets(+frame.transmitters, &rxblk::symbol, ""); }},
        {"group members", [&](char n) { mgr_.AddSignal(group, *signals[n]); },
         [&](char n) { mgr_.RemoveSignal(group, *signals[n]); },
         [&] { return Targets(+group.signals, &siglistblk::signal, ""); }},
    };
    for (const WalkedList& list : lists) {
        for (const auto& [order, left] : cases) {
            SCOPED_TRACE(std::string(list.what) + " " + order);
            const std::string before = list.names();  // none of them X
            const int receivers = signal.receiver_count;
            for (auto letter = order.rbegin(); letter != order.rend(); ++letter) {
                list.add(*letter);
            }
            ASSERT_EQ(list.names(), order + before);
            const long blocks = model::LiveAllocations();
            list.remove('X');
            EXPECT_EQ(list.names(), left + before);
            const long removed = std::count(order.begin(), order.end(), 'X');
            EXPECT_EQ(model::LiveAllocations(), blocks - removed);  // the dropped ones are not released
            if (&list == &lists[2]) {
                EXPECT_EQ(+signal.receiver_count, receivers + static_cast<int>(order.size() - removed));
            }
        }
    }
}

}  // namespace
}  // namespace tavlo::test
