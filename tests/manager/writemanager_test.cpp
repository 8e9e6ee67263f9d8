// tests/manager/writemanager_test.cpp: the write manager's databases (one
// writer per file, creating, writing with every status, committing,
// clearing) and its objects (create and delete in databases, inside messages,
// signals and environment variables).
#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "manager/fixture.h"
#include "support/post_capture.h"
#include "support/read_database.h"

namespace tavlo::test {
namespace {

HWND Window(std::uintptr_t n) {
    return reinterpret_cast<HWND>(n);
}

class WriteManagerTest : public ManagerTest {
protected:
    bool Exists(const std::string& path) const { return std::filesystem::exists(path); }

    PostCapture posts_;
};

TEST_F(WriteManagerTest, OneWriteManagerPerFile) {
    const std::string path = WriteDatabase("net.dbc");
    TavloWriteManager first(Window(1));
    TavloWriteManager second(Window(2));
    TavloManager reader(Window(3));
    const char* name = nullptr;
    ASSERT_EQ(first.OpenDatabase(path.c_str(), &name, 0), TAVLO_STATUS_OK);
    EXPECT_TRUE(first.OwnsDatabaseForWrite(path.c_str()));
    EXPECT_FALSE(second.OwnsDatabaseForWrite(path.c_str()));
    EXPECT_TRUE(TavloManager::IsDatabaseOpenedForWrite(path.c_str()));
    EXPECT_EQ(second.OpenDatabase(path.c_str(), nullptr, 0), TAVLO_STATUS_OPEN_FOR_WRITE);
    const char* readName = nullptr;
    ASSERT_EQ(reader.OpenDatabase(path.c_str(), &readName, 0), TAVLO_STATUS_OK);
    EXPECT_EQ(reader.GetDatabase(readName), first.GetDatabase(name));
    EXPECT_EQ(first.GetDatabase(name)->mRefCount, 2u);

    first.CloseDatabase(name, false);
    EXPECT_FALSE(TavloManager::IsDatabaseOpenedForWrite(path.c_str()));
    EXPECT_EQ(second.OpenDatabase(path.c_str(), nullptr, 0), TAVLO_STATUS_OK);
}

TEST_F(WriteManagerTest, CreateDatabaseStatuses) {
    TavloWriteManager writer(Window(1));
    const std::string existing = WriteDatabase("existing.dbc");
    const std::string readOnly = WriteDatabase("readonly.dbc");
    SetReadOnly(readOnly, true);
    const std::string fresh = dir_ + "/fresh.dbc";
    const char* handle = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Fresh", &handle, fresh.c_str()), TAVLO_STATUS_OK);
    struct Case {
        const char* what;
        const char* name;
        const char* path;
        unsigned int expected;
    };
    const Case cases[] = {
        {"invalid name", "9lives", nullptr, TAVLO_STATUS_INVALID_NAME},
        {"name in use", "Fresh", nullptr, TAVLO_STATUS_NAME_USED},
        {"file exists", "Other", existing.c_str(), TAVLO_STATUS_PATH_TAKEN},
        {"read-only file exists", "Other", readOnly.c_str(), TAVLO_STATUS_PATH_TAKEN},
        {"no path", "Memory", nullptr, TAVLO_STATUS_OK},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(writer.CreateDatabase(c.name, nullptr, c.path), c.expected) << c.what;
    }
    EXPECT_STREQ(handle, "Fresh");
    EXPECT_EQ(writer.GetUniqueDatabaseName("Fresh"), handle);
    EXPECT_FALSE(Exists(fresh));  // nothing written yet
    TavloDatabase* db = writer.GetDatabase(handle);
    EXPECT_STREQ(db->mDbPath, fresh.c_str());
    EXPECT_EQ(TavloDatabase::ListFindDb(fresh.c_str()), db);
    EXPECT_EQ(writer.ListFirstNode()->mPriority, 0u);
    EXPECT_EQ(writer.GetDatabase(writer.GetUniqueDatabaseName("Memory"))->mDbPath, nullptr);
}

TEST_F(WriteManagerTest, WriteOneDatabaseAndTellEveryone) {
    TavloWriteManager writer(Window(0x10));
    TavloManager reader(Window(0x20));
    const std::string path = dir_ + "/made.dbc";
    const char* handle = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Made", &handle, path.c_str()), TAVLO_STATUS_OK);
    writer.GetDatabase(handle)->SetUserData("made here");
    posts_.clear();
    ASSERT_EQ(writer.WriteDatabase(handle, nullptr), TAVLO_STATUS_OK);
    TavloDatabase reread(path.c_str());
    EXPECT_STREQ(reread.mUserData, "made here");
    // Only the writer has it open so far: the broadcast and its own post.
    const unsigned int message = TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);
    EXPECT_EQ(posts_.posts(),
              (std::vector<PostedMessage>{
                  {HWND_BROADCAST, 0, message, 0, 0},
                  {Window(0x10), 0, message, 0x10, reinterpret_cast<std::intptr_t>(handle)}}));

    const char* readName = nullptr;
    ASSERT_EQ(reader.OpenDatabase(path.c_str(), &readName, 0), TAVLO_STATUS_OK);
    posts_.clear();
    const std::string copy = dir_ + "/copy.dbc";
    ASSERT_EQ(writer.WriteDatabase(handle, copy.c_str()), TAVLO_STATUS_OK);
    EXPECT_TRUE(Exists(copy));
    EXPECT_STREQ(writer.GetDatabasePath(handle), copy.c_str());  // the new path is its own
    // The reader shares the object, so it is told as well.
    ASSERT_EQ(posts_.posts().size(), 3u);
    EXPECT_EQ(posts_.posts()[2].window, Window(0x20));
    EXPECT_EQ(posts_.posts()[2].lParam, reinterpret_cast<std::intptr_t>(readName));
}

TEST_F(WriteManagerTest, WriteStatuses) {
    TavloWriteManager writer(Window(1));
    const char* pathless = nullptr;
    const char* broken = nullptr;
    const char* readOnly = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Pathless", &pathless, nullptr), 0u);
    ASSERT_EQ(writer.CreateDatabase("Broken", &broken, (dir_ + "/no/such/dir.dbc").c_str()), 0u);
    const std::string roPath = WriteDatabase("ro.dbc");
    SetReadOnly(roPath, true);
    ASSERT_EQ(writer.OpenDatabase(roPath.c_str(), &readOnly, 0), TAVLO_STATUS_OK);
    const std::string text = "Pathless";
    const std::string other = WriteDatabase("other.dbc");
    TavloManager holder(Window(2));
    ASSERT_EQ(holder.OpenDatabase(other.c_str(), nullptr, 0), 0u);
    struct Case {
        const char* what;
        const char* dbName;
        std::string path;
        unsigned int expected;
    };
    const Case cases[] = {
        {"unknown handle", text.c_str(), "", TAVLO_STATUS_WRITE_FAILED},
        {"no path", pathless, "", TAVLO_STATUS_NO_FILE},
        {"writer fails", broken, "", TAVLO_STATUS_WRITE_FAILED},
        {"read-only file", readOnly, "", TAVLO_STATUS_READ_ONLY},
        {"another object's file", pathless, other, TAVLO_STATUS_PATH_TAKEN},
    };
    for (const Case& c : cases) {
        posts_.clear();
        EXPECT_EQ(writer.WriteDatabase(c.dbName, c.path.empty() ? nullptr : c.path.c_str()),
                  c.expected)
            << c.what;
        EXPECT_TRUE(posts_.posts().empty()) << c.what;  // nobody told of a failure
    }
    // All at once: every database is tried, the first failure is returned.
    const char* good = nullptr;
    const std::string goodPath = dir_ + "/good.dbc";
    ASSERT_EQ(writer.CreateDatabase("Good", &good, goodPath.c_str()), 0u);
    posts_.clear();
    EXPECT_EQ(writer.WriteDatabase(nullptr, nullptr), TAVLO_STATUS_NO_FILE);
    EXPECT_TRUE(Exists(goodPath));
    EXPECT_EQ(posts_.posts().size(), 2u);  // broadcast and own post for Good only
    TavloWriteManager empty(Window(3));
    EXPECT_EQ(empty.WriteDatabase(nullptr, nullptr), TAVLO_STATUS_OK);
}

TEST_F(WriteManagerTest, AnotherManagersLockStopsWriting) {
    const std::string path = WriteDatabase("net.dbc", {"old"});
    const std::string second = dir_ + "/second.dbc";
    TavloWriteManager writer(Window(1));
    TavloManager reader(Window(2));
    const char* name = nullptr;
    const char* readName = nullptr;
    const char* secondName = nullptr;
    ASSERT_EQ(writer.OpenDatabase(path.c_str(), &name, 0), 0u);
    ASSERT_EQ(writer.CreateDatabase("Second", &secondName, second.c_str()), 0u);
    ASSERT_EQ(reader.OpenDatabase(path.c_str(), &readName, 0), 0u);
    ASSERT_TRUE(reader.LockDatabase(readName, "Reader view"));
    writer.GetDatabase(name)->SetUserData("new");

    for (const char* dbName : {name, static_cast<const char*>(nullptr)}) {
        const std::size_t before = shown_.messages().size();
        posts_.clear();
        EXPECT_EQ(writer.WriteDatabase(dbName, nullptr), TAVLO_STATUS_LOCKED);
        ASSERT_EQ(shown_.messages().size(), before + 1);
        EXPECT_EQ(shown_.messages().back().text, "Database access refused!\nReader view");
        EXPECT_TRUE(posts_.posts().empty());
    }
    EXPECT_FALSE(Exists(second));  // nothing written, not even the unlocked one
    TavloDatabase onDisk(path.c_str());
    EXPECT_STREQ(onDisk.mUserData, "old");

    // The writer's own locks never stop it; its write lock refuses the reader.
    reader.UnlockDatabase(nullptr);
    ASSERT_TRUE(writer.LockDatabase(name, "Writer"));
    EXPECT_FALSE(reader.LockDatabase(readName, "Reader"));
    EXPECT_EQ(writer.WriteDatabase(name, nullptr), TAVLO_STATUS_OK);
    EXPECT_FALSE(writer.LockAllDatabases("x") && reader.LockAllDatabases("y"));
}

TEST_F(WriteManagerTest, CommitTellsEveryoneClearTellsNobody) {
    const std::string path = WriteDatabase("net.dbc");
    TavloWriteManager writer(Window(1));
    TavloManager reader(Window(2));
    const char* name = nullptr;
    const char* readName = nullptr;
    ASSERT_EQ(writer.OpenDatabase(path.c_str(), &name, 0), 0u);
    ASSERT_EQ(reader.OpenDatabase(path.c_str(), &readName, 0), 0u);
    posts_.clear();
    writer.CommitDatabase(name);
    EXPECT_EQ(posts_.posts().size(), 3u);
    posts_.clear();
    writer.CommitDatabase("net");  // a text, not the handle: nothing
    EXPECT_TRUE(posts_.posts().empty());
    writer.CommitDatabase(nullptr);
    EXPECT_EQ(posts_.posts().size(), 3u);

    posts_.clear();
    writer.ClearDatabase(name);
    EXPECT_TRUE(posts_.posts().empty());
    const TavloDatabase* shared = reader.GetDatabase(readName);
    EXPECT_EQ(shared->mMessages, nullptr);  // the reader shares the cleared object
    EXPECT_STREQ(shared->mDbPath, path.c_str());
    EXPECT_EQ(reader.MessageCount(readName), 0u);
}

TEST_F(WriteManagerTest, CreateAndDeleteInADatabase) {
    TavloWriteManager writer(Window(1));
    const char* a = nullptr;
    const char* b = nullptr;
    ASSERT_EQ(writer.CreateDatabase("A", &a, nullptr), 0u);
    ASSERT_EQ(writer.CreateDatabase("B", &b, nullptr), 0u);
    const std::string text = "A";
    EXPECT_EQ(writer.CreateMessage(text.c_str(), 0), nullptr);  // handles only
    msgblk* first = writer.CreateMessage(b, 0);
    msgblk* appended = writer.CreateMessage(b, 1000);
    msgblk* head = writer.CreateMessage(b, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(writer.GetDatabase(b)->mMessages, head);
    EXPECT_EQ(+head->next, first);
    EXPECT_EQ(+first->next, appended);

    // A null handle finds the database that holds the record.
    writer.DeleteMessage(*first, nullptr);
    EXPECT_EQ(writer.MessageCount(b), 2u);
    msgblk stranger{};
    writer.DeleteMessage(stranger, nullptr);  // held by none: nothing
    EXPECT_EQ(writer.MessageCount(nullptr), 2u);

    // Nodes need a handle.
    symblk* node = writer.CreateNode(a, 0);
    ASSERT_NE(node, nullptr);
    writer.DeleteNode(*node, nullptr);
    EXPECT_EQ(writer.NodeCount(a), 1u);
    writer.DeleteNode(*node, a);
    EXPECT_EQ(writer.NodeCount(a), 0u);

    // Every other kind, created in A and deleted through the search.
    btlblk* timing = writer.CreateBitTiming(a, 0);
    cat* category = writer.CreateCategory(a, 0);
    sigtype* type = writer.CreateSignalType(a, 0);
    valtable* table = writer.CreateValueTable(a, 0);
    attr_def* def = writer.CreateAttrDefinition(a, 0);
    env_var_blk* envvar = writer.CreateEnvvar(a, 0);
    ASSERT_TRUE(timing && category && type && table && def && envvar);
    EXPECT_EQ(writer.BitTimingCount(a) + writer.CategoryCount(a) + writer.SignalTypeCount(a) +
                  writer.ValueTableCount(a) + writer.AttrDefinitionCount(a) +
                  writer.EnvvarCount(a),
              6u);
    writer.DeleteBitTiming(*timing, nullptr);
    writer.DeleteCategory(*category, nullptr);
    writer.DeleteSignalType(*type, nullptr);
    writer.DeleteValueTable(*table, nullptr);
    writer.DeleteAttrDefinition(*def, nullptr);
    writer.DeleteEnvvar(*envvar, a);
    EXPECT_EQ(writer.BitTimingCount(a) + writer.CategoryCount(a) + writer.SignalTypeCount(a) +
                  writer.ValueTableCount(a) + writer.AttrDefinitionCount(a) +
                  writer.EnvvarCount(a),
              0u);
}

// Every line of a written database, and whether a line names any of words
// (as a whole word).
std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

int Length(const rxblk* list) {
    int length = 0;
    for (; list != nullptr; list = list->next) {
        ++length;
    }
    return length;
}

bool Names(const std::string& line, const std::vector<std::string>& words) {
    const auto isWord = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    for (const std::string& word : words) {
        for (std::size_t at = line.find(word); at != std::string::npos;
             at = line.find(word, at + 1)) {
            const std::size_t end = at + word.size();
            if ((at == 0 || !isWord(line[at - 1])) && (end == line.size() || !isWord(line[end]))) {
                return true;
            }
        }
    }
    return false;
}

// Deleting a record that others refer to takes every reference with it: the
// database writes, reads back and keeps its counts, the deleted name is gone,
// and every line that did not name it is still there.
TEST_F(WriteManagerTest, DeletingARecordTakesEveryReferenceToIt) {
    const std::string source = FileContent(DataFile("references.dbc"));
    using Db = TavloDatabase;
    struct Case {
        const char* what;
        std::function<void(TavloWriteManager&, const char*, Db&)> remove;
        std::vector<std::string> gone;     // names no line may hold afterwards
        std::vector<std::string> changed;  // further words of lines that may change
    };
    const auto message = [](Db& db, const char* name) { return db.GetMessage(name); };
    const auto signal = [message](Db& db, const char* msg, const char* name) {
        return TAVLO_GET_SIGNAL_OF_MSG_NAME(message(db, msg), name);
    };
    const Case cases[] = {
        {"receiver, further transmitter, access node, filter node, relation values",
         [](TavloWriteManager& w, const char* h, Db& db) { w.DeleteNode(*db.GetNode("Gateway"), h); },
         {"Gateway"}, {}},
        {"transmitter", [](TavloWriteManager& w, const char* h, Db& db) { w.DeleteNode(*db.GetNode("Engine"), h); },
         {"Engine"}, {"EngineData"}},
        {"message with grouped signals",
         [message](TavloWriteManager& w, const char*, Db& db) { w.DeleteMessage(*message(db, "EngineData"), nullptr); },
         {"EngineData", "Speed", "Temp", "Pair", "256"}, {}},
        {"message under another database's handle",
         [message](TavloWriteManager& w, const char*, Db& db) {
             const char* other = nullptr;
             ASSERT_EQ(w.CreateDatabase("Other", &other, nullptr), 0u);
             w.DeleteMessage(*message(db, "EngineData"), other);
         },
         {}, {}},
        {"grouped signal", [signal](TavloWriteManager& w, const char*, Db& db) {
             w.DeleteSignal(*signal(db, "EngineData", "Temp"), *db.GetMessage("EngineData"));
         }, {"Temp"}, {}},
        {"signal of another message", [signal](TavloWriteManager& w, const char*, Db& db) {
             w.DeleteSignal(*signal(db, "EngineData", "Temp"), *db.GetMessage("DashData"));
         }, {}, {}},
        {"signal group", [message](TavloWriteManager& w, const char*, Db& db) {
             msgblk* m = message(db, "EngineData");
             w.DeleteSignalGroup(*m->signal_groups, *m);
         }, {"Pair"}, {}},
        {"environment variable", [](TavloWriteManager& w, const char*, Db& db) { w.DeleteEnvvar(*db.GetEnvvar("Level"), nullptr); },
         {"Level"}, {}},
        {"category", [](TavloWriteManager& w, const char*, Db& db) { w.DeleteCategory(*db.mCategories, nullptr); },
         {"Drive"}, {"CAT_"}},
        {"signal type", [](TavloWriteManager& w, const char*, Db& db) { w.DeleteSignalType(*db.GetSignalType("GearType"), nullptr); },
         {"GearType"}, {}},
        {"value table", [](TavloWriteManager& w, const char*, Db& db) { w.DeleteValueTable(*db.GetValueTable("Gears"), nullptr); },
         {"Gears"}, {}},
    };
    std::vector<Case> all(std::begin(cases), std::end(cases));
    for (const char* def : {"Layer", "Mode", "Bus", "EnvLevel", "TypeInfo", "RxTimeout", "TxDelay", "EvAccess", "Cycle"}) {
        all.push_back({def, [def](TavloWriteManager& w, const char*, Db& db) {
                          w.DeleteAttrDefinition(*db.GetAttrDef(def), nullptr);
                      }, {def}, {}});
    }
    for (const Case& c : all) {
        SCOPED_TRACE(c.what);
        const std::string path = WriteFile("references.dbc", source);
        TavloWriteManager writer(Window(1));
        const char* handle = nullptr;
        ASSERT_EQ(writer.OpenDatabase(path.c_str(), &handle, 0), 0u);
        Db& db = *writer.GetDatabase(handle);
        writer.AddFilterNode(*db.GetNode("Gateway"), handle);
        db.GetEnvvar("Level")->node = db.GetNode("Gateway");
        ASSERT_EQ(writer.WriteDatabase(handle, (dir_ + "/before.dbc").c_str()), 0u);
        const std::vector<std::string> before = Lines(FileContent(dir_ + "/before.dbc"));

        c.remove(writer, handle, db);
        for (const msgblk* m = db.mMessages; m != nullptr; m = m->next) {
            for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
                EXPECT_EQ(Length(s->receivers), +s->receiver_count) << s->name;
            }
        }
        for (const env_var_blk* e = db.mEnvvars; e != nullptr; e = e->next) {
            EXPECT_EQ(Length(e->access_nodes), +e->access_node_count);
        }
        const std::string after = dir_ + "/after.dbc";
        ASSERT_EQ(writer.WriteDatabase(handle, after.c_str()), 0u);
        tavlo_root_t reread{};
        EXPECT_TRUE(ReadDatabase(after, &reread).messages.empty());
        TAVLO_FREE_ROOT(&reread);
        const std::vector<std::string> lines = Lines(FileContent(after));
        for (const std::string& line : lines) {
            EXPECT_FALSE(Names(line, c.gone)) << line;
        }
        std::vector<std::string> touched = c.gone;
        touched.insert(touched.end(), c.changed.begin(), c.changed.end());
        for (const std::string& line : before) {
            if (!Names(line, touched)) {
                EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
            }
        }
    }
}

TEST_F(WriteManagerTest, SignalsAndGroupsInsideAMessage) {
    TavloWriteManager writer(Window(1));
    const char* db = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Db", &db, nullptr), 0u);
    msgblk* message = writer.CreateMessage(db, 0);
    const unsigned short created = message->signal_count;
    sigblk* s1 = writer.CreateSignal(*message, 0);
    sigblk* s3 = writer.CreateSignal(*message, 5);
    sigblk* s2 = writer.CreateSignal(*message, 1);
    ASSERT_TRUE(s1 && s2 && s3);
    EXPECT_EQ(writer.SignalCount(*message), 3u);
    sigblk* s0 = writer.CreateSignal(*message, 0);
    EXPECT_EQ(+message->signals, s0);
    EXPECT_EQ(+s0->next, s1);
    EXPECT_EQ(+s1->next, s2);
    EXPECT_EQ(+s2->next, s3);
    EXPECT_EQ(+message->signal_count, created + 4);
    writer.DeleteSignal(*s2, *message);
    EXPECT_EQ(+s1->next, s3);

    siggroupblk* g1 = writer.CreateSignalGroup(*message, 0);
    siggroupblk* g0 = writer.CreateSignalGroup(*message, 0);
    ASSERT_TRUE(g0 && g1);
    EXPECT_EQ(+message->signal_groups, g0);
    EXPECT_EQ(+g1->message, message);
    writer.AddSignal(*g1, *s1);
    writer.AddSignal(*g1, *s3);
    writer.AddSignal(*g1, *s1);
    EXPECT_EQ(writer.SignalCount(*g1), 3u);
    writer.RemoveSignal(*g1, *s1);
    EXPECT_EQ(writer.SignalCount(*g1), 1u);
    EXPECT_EQ(+g1->signals->signal, s3);
    writer.DeleteSignalGroup(*g0, *message);
    EXPECT_EQ(+message->signal_groups, g1);
}

TEST_F(WriteManagerTest, RelationsCountAndTheRemovalWalk) {
    TavloWriteManager writer(Window(1));
    const char* db = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Db", &db, nullptr), 0u);
    symblk* a = writer.CreateNode(db, 0);
    symblk* x = writer.CreateNode(db, 0);
    msgblk* message = writer.CreateMessage(db, 0);
    sigblk* signal = writer.CreateSignal(*message, 0);

    writer.AddReceiver(*signal, *x);
    writer.AddReceiver(*signal, *x);
    EXPECT_EQ(+signal->receiver_count, 2);
    writer.RemoveReceiver(*signal, *x);
    EXPECT_EQ(+signal->receiver_count, 0);
    EXPECT_EQ(+signal->receivers, nullptr);

    // A, X, X in list order, X removed: the second X is unlinked by making
    // its successor the head, so A leaves the list too. Deliberate.
    writer.AddReceiver(*signal, *x);
    writer.AddReceiver(*signal, *x);
    writer.AddReceiver(*signal, *a);
    writer.RemoveReceiver(*signal, *x);
    EXPECT_EQ(+signal->receivers, nullptr);
    EXPECT_EQ(+signal->receiver_count, 1);

    writer.AddTransmitter(*message, *x);
    writer.AddTransmitter(*message, *a);
    writer.AddTransmitter(*message, *x);  // X, A, X
    writer.RemoveTransmitter(*message, *x);
    ASSERT_NE(+message->transmitters, nullptr);
    EXPECT_EQ(+message->transmitters->symbol, a);
    EXPECT_EQ(+message->transmitters->next, nullptr);

    env_var_blk* envvar = writer.CreateEnvvar(db, 0);
    writer.AddAccessNode(*envvar, *a);
    writer.AddAccessNode(*envvar, *x);
    EXPECT_EQ(+envvar->access_node_count, 2);
    EXPECT_EQ(+envvar->access_nodes->symbol, x);
}

TEST_F(WriteManagerTest, DestroyingAWriteManagerReleasesItsDatabases) {
    const std::string path = WriteDatabase("net.dbc");
    {
        TavloWriteManager writer(Window(1));
        ASSERT_EQ(writer.OpenDatabase(path.c_str(), nullptr, 0), 0u);
        ASSERT_EQ(writer.CreateDatabase("Made", nullptr, nullptr), 0u);
        writer.CloseDatabase(writer.GetUniqueDatabaseName("net"), true);
    }
    EXPECT_EQ(TavloDatabase::ListFindDb(path.c_str()), nullptr);
    EXPECT_FALSE(TavloManager::IsDatabaseOpenedForWrite(path.c_str()));
}

}  // namespace
}  // namespace tavlo::test
