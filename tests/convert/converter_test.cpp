// tests/convert/converter_test.cpp: converter modules driven through the
// test module: loading and unloading, the module's functions, every status
// of an import (the source, the new database, the target path, the entry)
// and of an export, what an import leaves in the database and in memory,
// what an export hands the module, and the assertions on null arguments.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "manager/fixture.h"
#include "model/model.h"
#include "support/death.h"
#include "support/describe.h"
#include "support/read_database.h"
#include "support/system.h"
#include "tavloms/convert.h"

namespace tavlo::test {
namespace {

using tavlo::model::LiveAllocations;

constexpr const char* kModulePath = TAVLOMS_TEST_CONVERTER;

HWND Window(std::uintptr_t n) {
    return reinterpret_cast<HWND>(n);
}

bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

// The same path, whichever separators it is written with (Windows takes
// both and its runtime writes '\\').
bool SamePath(const std::string& a, const std::string& b) {
    return std::filesystem::path(a).lexically_normal() ==
           std::filesystem::path(b).lexically_normal();
}

std::string Address(const void* p) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%p", p);
    return buffer;
}

// One of the module's counters ("ImportCalls", "ExportCalls").
int Calls(const TavloConverter& converter, const char* counter) {
    auto count = reinterpret_cast<int (*)()>(converter.GetFunction(counter));
    return count != nullptr ? count() : -1;
}

bool Empty(const TavloDatabase& db) {
    return db.mNodes == nullptr && db.mMessages == nullptr && db.mEnvvars == nullptr &&
           db.mBitTimings == nullptr && db.mAttrDefs == nullptr && db.mDbAttrs == nullptr &&
           db.mCategories == nullptr && db.mSigTypes == nullptr && db.mValueTables == nullptr &&
           db.mComment == nullptr;
}

// An importer that notes what PostProcess was given and compares it with the
// database while the module's records still exist, then lets the base
// release them.
class RecordingImporter : public TavloImporter {
public:
    using TavloImporter::TavloImporter;

    bool PostProcess(symblk* nodes, msgblk* messages, env_var_blk* envvars, btlblk* bitTimings,
                     attr_def* attrDefs, attr* dbAttrs, cat* categories, filter_t filter,
                     char* comment, char* userData, sigtype* sigTypes,
                     valtable* valueTables) override {
        ++calls;
        made = tavlo_root_t{nodes,    messages, envvars, bitTimings, attrDefs, dbAttrs,
                            categories, filter,  comment, userData,  sigTypes, valueTables};
        madeText = DescribeDatabase(made);
        heldText = DescribeDatabase(mDatabase->Root());
        return TavloImporter::PostProcess(nodes, messages, envvars, bitTimings, attrDefs,
                                          dbAttrs, categories, filter, comment, userData,
                                          sigTypes, valueTables);
    }

    int calls = 0;
    tavlo_root_t made{};  // released by the time Import returns: compare, never follow
    std::string madeText;
    std::string heldText;
};

class ConverterTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        LiveAllocations();  // counting starts here, before any record is made
        notLibrary_ = WriteFile("garbage.so", "not a shared library\n");
    }

    std::string notLibrary_;
};

// ---- Loading ----------------------------------------------------------------------

TEST_F(ConverterTest, ModulesThatCannotBeLoadedLeaveTheConverterFailed) {
    TavloWriteManager writer(Window(1));
    struct Case {
        const char* what;
        std::string module;
        bool loads;
    };
    const Case cases[] = {
        {"test module", kModulePath, true},
        {"missing file", dir_ + "/missing.so", false},
        {"not a shared library", notLibrary_, false},
    };
    for (const Case& c : cases) {
        TavloImporter importer(writer, c.module.c_str(), "Import");
        TavloExporter exporter(writer, c.module.c_str(), "Export");
        const TavloConverter* const converters[] = {&importer, &exporter};
        for (const TavloConverter* converter : converters) {
            EXPECT_EQ(converter->mFailed, c.loads ? 0u : 1u) << c.what;
            EXPECT_EQ(converter->mModule != nullptr, c.loads) << c.what;
            EXPECT_EQ(converter->mManager, &writer) << c.what;
            EXPECT_EQ(converter->mDatabase, nullptr) << c.what;
        }
        EXPECT_EQ(importer.mEntry != nullptr, c.loads) << c.what;
        EXPECT_EQ(exporter.mEntry != nullptr, c.loads) << c.what;
        EXPECT_EQ(importer.GetFunction("Import") != nullptr, c.loads) << c.what;
    }
}

TEST_F(ConverterTest, EntriesAreTheModulesFunctionsOfThatName) {
    TavloWriteManager writer(Window(1));
    struct Case {
        const char* entry;
        bool found;
    };
    const Case cases[] = {
        {"Import", true},       {"ImportFails", true}, {"Export", true},
        {"ExportFails", true},  {"ImportCalls", true}, {"NoSuchEntry", false},
        {"import", false},      {"", false},
    };
    TavloImporter importer(writer, kModulePath, nullptr);
    EXPECT_EQ(importer.mEntry, nullptr);
    EXPECT_EQ(importer.mFailed, 0u);
    EXPECT_EQ(importer.GetFunction(nullptr), nullptr);
    for (const Case& c : cases) {
        void* function = importer.GetFunction(c.entry);
        EXPECT_EQ(function != nullptr, c.found) << c.entry;
        EXPECT_EQ(function, ModuleSymbol(importer.mModule, c.entry)) << c.entry;
        TavloImporter named(writer, kModulePath, c.entry);
        EXPECT_EQ(reinterpret_cast<void*>(named.mEntry), function) << c.entry;
        TavloExporter exporting(writer, kModulePath, c.entry);
        EXPECT_EQ(reinterpret_cast<void*>(exporting.mEntry), function) << c.entry;
    }
}

TEST_F(ConverterTest, TheDestructorUnloadsTheModule) {
    TavloWriteManager writer(Window(1));
    ASSERT_FALSE(ModuleLoaded(kModulePath));
    {
        auto importer = std::make_unique<TavloImporter>(writer, kModulePath, "Import");
        EXPECT_TRUE(ModuleLoaded(kModulePath));
        {
            TavloExporter exporter(writer, kModulePath, "Export");
            EXPECT_TRUE(ModuleLoaded(kModulePath));
        }
        EXPECT_TRUE(ModuleLoaded(kModulePath));  // the importer's own load still holds it
        importer.reset();
        EXPECT_FALSE(ModuleLoaded(kModulePath));
    }
    // Loaded again, the module starts with fresh counters; a second converter
    // on it shares the loaded instance.
    TavloImporter importer(writer, kModulePath, "Import");
    EXPECT_EQ(Calls(importer, "ImportCalls"), 0);
    const std::string source = WriteFile("net.xyz", "ECU\n");
    ASSERT_EQ(importer.Import("Net", nullptr, source.c_str()), TAVLO_STATUS_OK);
    EXPECT_EQ(Calls(importer, "ImportCalls"), 1);
    TavloImporter again(writer, kModulePath, "Import");
    EXPECT_EQ(Calls(again, "ImportCalls"), 1);
}

TEST_F(ConverterTest, GetDatabaseGoesByHandle) {
    TavloWriteManager writer(Window(1));
    const char* handle = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Net", &handle, nullptr), TAVLO_STATUS_OK);
    const std::string sameText = "Net";
    TavloExporter exporter(writer, kModulePath, "Export");
    EXPECT_EQ(exporter.GetDatabase(handle), writer.GetDatabase(handle));
    EXPECT_NE(exporter.GetDatabase(handle), nullptr);
    EXPECT_EQ(exporter.GetDatabase(sameText.c_str()), nullptr);
    exporter.FetchDatabase(handle);
    EXPECT_EQ(exporter.mDatabase, writer.GetDatabase(handle));
    exporter.FetchDatabase(sameText.c_str());
    EXPECT_EQ(exporter.mDatabase, nullptr);
}

// ---- Import: statuses before the module runs ---------------------------------------

TEST_F(ConverterTest, ImportRefusesBeforeCallingTheModule) {
    TavloWriteManager writer(Window(1));
    const char* taken = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Taken", &taken, nullptr), TAVLO_STATUS_OK);
    const std::string takenText = "Taken";  // same text, another pointer
    const std::string source = WriteFile("net.xyz", "ECU\n");
    const std::string readOnly = WriteFile("locked/net.xyz", "ECU\n");
    SetReadOnly(readOnly, true);
    const std::string blocked = WriteFile("blocked/net.xyz", "ECU\n");
    WriteFile("blocked/net.DBC", "already here\n");
    const std::string blockedReadOnly = WriteFile("blockedro/net.xyz", "ECU\n");
    SetReadOnly(WriteFile("blockedro/net.DBC", "already here\n"), true);
    const std::string itself = WriteFile("itself/net.DBC", "ECU\n");
    const std::string noExtension = WriteFile("bare/net", "ECU\n");
    WriteFile("bare/net.DBC", "already here\n");

    struct Case {
        const char* what;
        const char* name;
        std::string source;
        unsigned int expected;
    };
    const Case cases[] = {
        {"missing source", "Fresh", dir_ + "/missing.xyz", 2},
        {"read-only source", "Fresh", readOnly, 8},
        {"missing source, name in use", taken, dir_ + "/missing.xyz", 2},
        {"the handle of an open database", taken, source, TAVLO_STATUS_NAME_USED},
        {"the text of a name in use", takenText.c_str(), source, TAVLO_STATUS_NAME_USED},
        {"invalid name", "9lives", source, TAVLO_STATUS_INVALID_NAME},
        {"invalid name, target taken", "9lives", blocked, TAVLO_STATUS_INVALID_NAME},
        {"target exists", "Fresh", blocked, TAVLO_STATUS_PATH_TAKEN},
        {"read-only target exists", "Fresh", blockedReadOnly, TAVLO_STATUS_PATH_TAKEN},
        {"the source is the target", "Fresh", itself, TAVLO_STATUS_PATH_TAKEN},
        {"target of a source without extension exists", "Fresh", noExtension,
         TAVLO_STATUS_PATH_TAKEN},
    };
    for (const Case& c : cases) {
        const long before = LiveAllocations();
        TavloImporter importer(writer, kModulePath, "Import");
        const char* const untouched = "untouched";
        const char* out = untouched;
        EXPECT_EQ(importer.Import(c.name, &out, c.source.c_str()), c.expected) << c.what;
        EXPECT_EQ(importer.mFailed, 1u) << c.what;
        EXPECT_EQ(importer.mDatabase, nullptr) << c.what;
        EXPECT_EQ(out, untouched) << c.what;
        EXPECT_EQ(Calls(importer, "ImportCalls"), 0) << c.what;
        EXPECT_EQ(writer.GetUniqueDatabaseName("Fresh"), nullptr) << c.what;
        EXPECT_EQ(writer.GetUniqueDatabaseName("9lives"), nullptr) << c.what;
        EXPECT_EQ(LiveAllocations(), before) << c.what;
    }
    EXPECT_EQ(writer.GetUniqueDatabaseName("Taken"), taken);
    EXPECT_TRUE(Empty(*writer.GetDatabase(taken)));
    EXPECT_EQ(FileContent(dir_ + "/blocked/net.DBC"), "already here\n");
    EXPECT_FALSE(Exists(dir_ + "/net.DBC"));
    EXPECT_FALSE(Exists(dir_ + "/locked/net.DBC"));
}

// ---- Import: the module does not fill the database ---------------------------------

TEST_F(ConverterTest, ImportWithoutAWorkingEntryLeavesAnEmptyDatabaseOpen) {
    TavloWriteManager writer(Window(1));
    const std::string source = WriteFile("net.xyz", "ECU\n");
    const std::string target = dir_ + "/net.DBC";
    struct Case {
        const char* what;
        std::string module;
        const char* entry;
        int calls;  // of the module's import entries; -1: not loaded
    };
    const Case cases[] = {
        {"the entry fails", kModulePath, "ImportFails", 1},
        {"no entry named", kModulePath, nullptr, 0},
        {"no such entry", kModulePath, "NoSuchEntry", 0},
        {"module missing", dir_ + "/missing.so", "Import", -1},
        {"not a shared library", notLibrary_, "Import", -1},
    };
    for (const Case& c : cases) {
        const long before = LiveAllocations();
        TavloImporter importer(writer, c.module.c_str(), c.entry);
        const char* out = nullptr;
        EXPECT_EQ(importer.Import("Net", &out, source.c_str()), 1u) << c.what;
        EXPECT_EQ(importer.mFailed, 1u) << c.what;
        EXPECT_EQ(Calls(importer, "ImportCalls"), c.calls) << c.what;
        ASSERT_NE(out, nullptr) << c.what;
        EXPECT_STREQ(out, "Net") << c.what;
        EXPECT_EQ(writer.GetUniqueDatabaseName("Net"), out) << c.what;
        TavloDatabase* db = writer.GetDatabase(out);
        ASSERT_NE(db, nullptr) << c.what;
        EXPECT_EQ(importer.mDatabase, db) << c.what;
        EXPECT_TRUE(Empty(*db)) << c.what;
        EXPECT_TRUE(SamePath(db->mDbPath, target)) << c.what << ": " << db->mDbPath;
        EXPECT_FALSE(Exists(target)) << c.what;
        writer.CloseDatabase(out, false);
        EXPECT_EQ(LiveAllocations(), before) << c.what;
    }
    EXPECT_EQ(FileContent(source), "ECU\n");
}

// ---- Import: success ---------------------------------------------------------------

TEST_F(ConverterTest, ImportTargetIsTheSourceWithTheExtensionDBC) {
    TavloWriteManager writer(Window(1));
    struct Case {
        const char* source;
        const char* target;
    };
    const Case cases[] = {
        {"a/net.xyz", "a/net.DBC"},
        {"b/net", "b/net.DBC"},
        {"c.d/net", "c.d/net.DBC"},
        {"e/net.tar.gz", "e/net.tar.DBC"},
#if !defined(_WIN32)  // on Windows names do not differ by case: net.DBC is the source
        {"f/net.dbc", "f/net.DBC"},
#endif
        {"g/.hidden", "g/.DBC"},
    };
    int n = 0;
    for (const Case& c : cases) {
        const std::string source = WriteFile(c.source, "ECU\n");
        const std::string name = "Net" + std::to_string(n++);
        TavloImporter importer(writer, kModulePath, "Import");
        const char* out = nullptr;
        ASSERT_EQ(importer.Import(name.c_str(), &out, source.c_str()), TAVLO_STATUS_OK)
            << c.source;
        EXPECT_TRUE(SamePath(writer.GetDatabase(out)->mDbPath, dir_ + "/" + c.target))
            << c.source;
        EXPECT_FALSE(Exists(dir_ + "/" + c.target)) << c.source;
        EXPECT_TRUE(Exists(source)) << c.source;
    }
}

TEST_F(ConverterTest, ImportFillsTheNewDatabaseWithCopiesOfTheModulesRecords) {
    TavloWriteManager writer(Window(1));
    const std::string source = WriteFile("net.xyz", "Gateway\n");
    const long before = LiveAllocations();
    RecordingImporter importer(writer, kModulePath, "Import");
    const char* out = nullptr;
    ASSERT_EQ(importer.Import("Net", &out, source.c_str()), TAVLO_STATUS_OK);
    EXPECT_EQ(importer.mFailed, 0u);
    EXPECT_EQ(Calls(importer, "ImportCalls"), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(writer.GetUniqueDatabaseName("Net"), out);
    TavloDatabase* db = writer.GetDatabase(out);
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(importer.mDatabase, db);
    EXPECT_TRUE(SamePath(db->mDbPath, dir_ + "/net.DBC")) << db->mDbPath;
    EXPECT_FALSE(Exists(dir_ + "/net.DBC"));

    // PostProcess got the module's own records, once, after the database
    // had copies of the same content.
    const void* node = nullptr;
    const void* message = nullptr;
    const void* attrDefs = nullptr;
    const void* dbAttrs = nullptr;
    auto records = reinterpret_cast<void (*)(const void**, const void**, const void**,
                                             const void**)>(
        importer.GetFunction("ImportedRecords"));
    ASSERT_NE(records, nullptr);
    records(&node, &message, &attrDefs, &dbAttrs);
    EXPECT_EQ(importer.calls, 1);
    EXPECT_EQ(importer.made.nodes, node);
    EXPECT_EQ(importer.made.messages, message);
    EXPECT_EQ(importer.made.attr_defs, attrDefs);
    EXPECT_EQ(importer.made.db_attrs, dbAttrs);
    EXPECT_EQ(importer.madeText, importer.heldText);
    EXPECT_EQ(DescribeDatabase(db->Root()), importer.madeText);
    struct Head {
        const char* list;
        const void* made;
        const void* held;
    };
    const Head heads[] = {
        {"nodes", node, db->mNodes},
        {"messages", message, db->mMessages},
        {"attribute definitions", attrDefs, db->mAttrDefs},
        {"database attributes", dbAttrs, db->mDbAttrs},
        {"user data", importer.made.version, db->mUserData},
    };
    for (const Head& h : heads) {
        EXPECT_NE(h.held, nullptr) << h.list;
        EXPECT_NE(h.held, h.made) << h.list;
    }

    // The content, with every reference pointing into the database's own
    // records.
    const symblk* gateway = db->mNodes;
    ASSERT_NE(gateway, nullptr);
    EXPECT_STREQ(gateway->name, "Gateway");  // the module read the source file
    EXPECT_EQ(+gateway->next, nullptr);
    const msgblk* engine = db->mMessages;
    ASSERT_NE(engine, nullptr);
    EXPECT_STREQ(engine->name, "Engine");
    EXPECT_EQ(+engine->id, 100u);
    EXPECT_EQ(+engine->dlc, 8);
    EXPECT_EQ(+engine->signal_count, 1);
    EXPECT_EQ(+engine->transmitter, gateway);
    EXPECT_EQ(+engine->next, nullptr);
    const sigblk* speed = engine->signals;
    ASSERT_NE(speed, nullptr);
    EXPECT_STREQ(speed->name, "Speed");
    EXPECT_EQ(+speed->length, 16);
    EXPECT_EQ(+speed->factor, 0.5);
    EXPECT_EQ(+speed->receiver_count, 1);
    const rxblk* receiver = speed->receivers;
    ASSERT_NE(receiver, nullptr);
    EXPECT_EQ(+receiver->symbol, gateway);
    const attr_def* cycle = db->GetAttrDef("CycleTime");
    const attr_def* bus = db->GetAttrDef("BusType");
    ASSERT_NE(cycle, nullptr);
    ASSERT_NE(bus, nullptr);
    EXPECT_EQ(+cycle->object_type, static_cast<unsigned int>(TAVLO_OBJ_MESSAGE));
    EXPECT_EQ(+bus->value_type, TAVLO_ATTR_STRING);
    const attr* cycleValue = engine->attributes;
    ASSERT_NE(cycleValue, nullptr);
    EXPECT_EQ(+cycleValue->def, cycle);
    const tavlo_attr_value_t cycleNumber = cycleValue->value;
    EXPECT_EQ(cycleNumber.number, 100.0);
    const attr* busValue = db->mDbAttrs;
    ASSERT_NE(busValue, nullptr);
    EXPECT_EQ(+busValue->def, bus);
    const tavlo_attr_value_t busText = busValue->value;
    EXPECT_STREQ(busText.text, "CAN");
    EXPECT_EQ(db->mEnvvars, nullptr);
    EXPECT_STREQ(db->mUserData, "");

    // The module's records are gone: closing the database leaves nothing.
    writer.CloseDatabase(out, false);
    EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(ConverterTest, ImportWithoutNameOutAndRepeated) {
    TavloWriteManager writer(Window(1));
    const std::string first = WriteFile("one/net.xyz", "First\n");
    const std::string second = WriteFile("two/net.xyz", "Second\n");
    const long before = LiveAllocations();
    TavloImporter importer(writer, kModulePath, "Import");
    ASSERT_EQ(importer.Import("One", nullptr, first.c_str()), TAVLO_STATUS_OK);
    TavloDatabase* one = importer.mDatabase;
    // The same importer again: a second database, the first one untouched.
    ASSERT_EQ(importer.Import("Two", nullptr, second.c_str()), TAVLO_STATUS_OK);
    TavloDatabase* two = importer.mDatabase;
    EXPECT_EQ(Calls(importer, "ImportCalls"), 2);
    const char* oneHandle = writer.GetUniqueDatabaseName("One");
    const char* twoHandle = writer.GetUniqueDatabaseName("Two");
    ASSERT_NE(oneHandle, nullptr);
    ASSERT_NE(twoHandle, nullptr);
    EXPECT_EQ(writer.GetDatabase(oneHandle), one);
    EXPECT_EQ(writer.GetDatabase(twoHandle), two);
    EXPECT_NE(one, two);
    EXPECT_STREQ(one->mNodes->name, "First");
    EXPECT_STREQ(two->mNodes->name, "Second");
    // A failure afterwards leaves the last database as the importer's.
    EXPECT_EQ(importer.Import("One", nullptr, first.c_str()), TAVLO_STATUS_NAME_USED);
    EXPECT_EQ(importer.mFailed, 1u);
    writer.CloseDatabase(false);
    EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(ConverterTest, ImportedDatabaseIsWrittenAsAnyOther) {
    TavloWriteManager writer(Window(1));
    const std::string source = WriteFile("net.xyz", "Gateway\n");
    TavloImporter importer(writer, kModulePath, "Import");
    const char* out = nullptr;
    ASSERT_EQ(importer.Import("Net", &out, source.c_str()), TAVLO_STATUS_OK);
    const std::string expected = DescribeDatabase(writer.GetDatabase(out)->Root(), 11);
    ASSERT_EQ(writer.WriteDatabase(out, nullptr), TAVLO_STATUS_OK);
    const std::string target = dir_ + "/net.DBC";
    ASSERT_TRUE(Exists(target));
    writer.CloseDatabase(out, false);
    TavloDatabase::ReleaseCache();
    TavloManager reader(Window(2));
    const char* read = nullptr;
    ASSERT_EQ(reader.OpenDatabase(target.c_str(), &read, "Net", 0), TAVLO_STATUS_OK);
    EXPECT_EQ(DescribeDatabase(reader.GetDatabase(read)->Root(), 11), expected);
    EXPECT_TRUE(shown_.messages().empty());
}

// ---- Export ------------------------------------------------------------------------

class ExportTest : public ConverterTest {
protected:
    void SetUp() override {
        ConverterTest::SetUp();
        const std::string path = WriteDatabase("net.dbc", SmallDatabase("v1", 2, "Small"));
        ASSERT_EQ(writer_.OpenDatabase(path.c_str(), &handle_, "Net", 0), TAVLO_STATUS_OK);
        db_ = writer_.GetDatabase(handle_);
        ASSERT_NE(db_, nullptr);
    }

    // What the test module's Export writes for the database.
    std::string Expected() const {
        return "messages " + Address(db_->mMessages) + " 1 Msg1\n" +  //
               "nodes " + Address(db_->mNodes) + " 2 A B\n" +          //
               "envvars " + Address(db_->mEnvvars) + " 2 EnvLow EnvHigh\n" +
               "attrDefs " + Address(db_->mAttrDefs) + " 1 DBName\n" +  //
               "dbAttrs " + Address(db_->mDbAttrs) + " 1 DBName\n";
    }

    TavloWriteManager writer_{Window(1)};
    const char* handle_ = nullptr;
    TavloDatabase* db_ = nullptr;
};

TEST_F(ExportTest, HandsTheModuleFiveListsInOrder) {
    const std::string target = dir_ + "/out/net.xyz";
    std::filesystem::create_directories(dir_ + "/out");
    const std::string before = DescribeDatabase(db_->Root());
    TavloExporter exporter(writer_, kModulePath, "Export");
    EXPECT_EQ(exporter.Export(handle_, target.c_str()), TAVLO_STATUS_OK);
    EXPECT_EQ(exporter.mFailed, 0u);
    EXPECT_EQ(exporter.mDatabase, db_);
    EXPECT_EQ(Calls(exporter, "ExportCalls"), 1);
    EXPECT_EQ(FileContent(target), Expected());
    EXPECT_EQ(DescribeDatabase(db_->Root()), before);  // the lists are the database's own
    EXPECT_EQ(writer_.GetDatabase(handle_), db_);
}

TEST_F(ExportTest, Statuses) {
    const std::string taken = WriteFile("taken.xyz", "already here\n");
    const std::string takenReadOnly = WriteFile("takenro.xyz", "already here\n");
    SetReadOnly(takenReadOnly, true);
    const std::string sameText = "Net";  // the handle's text at another address
    struct Case {
        const char* what;
        std::string module;
        const char* entry;
        const char* name;
        std::string target;
        unsigned int expected;
        int calls;        // of the module's export entries; -1: not loaded
        bool written;     // the target holds the module's account afterwards
    };
    const Case cases[] = {
        {"target exists", kModulePath, "Export", handle_, taken, TAVLO_STATUS_PATH_TAKEN, 0,
         false},
        {"read-only target exists", kModulePath, "Export", handle_, takenReadOnly,
         TAVLO_STATUS_PATH_TAKEN, 0, false},
        {"unknown handle", kModulePath, "Export", sameText.c_str(), dir_ + "/a.xyz",
         TAVLO_STATUS_WRITE_FAILED, 0, false},
        {"the entry fails", kModulePath, "ExportFails", handle_, dir_ + "/b.xyz",
         TAVLO_STATUS_WRITE_FAILED, 1, false},
        {"no entry named", kModulePath, nullptr, handle_, dir_ + "/c.xyz", TAVLO_STATUS_OK, 0,
         false},
        {"no such entry", kModulePath, "NoSuchEntry", handle_, dir_ + "/d.xyz",
         TAVLO_STATUS_OK, 0, false},
        {"module missing", dir_ + "/missing.so", "Export", handle_, dir_ + "/e.xyz",
         TAVLO_STATUS_OK, -1, false},
        {"module missing, unknown handle", dir_ + "/missing.so", "Export", sameText.c_str(),
         dir_ + "/f.xyz", TAVLO_STATUS_WRITE_FAILED, -1, false},
        {"not a shared library", notLibrary_, "Export", handle_, dir_ + "/g.xyz",
         TAVLO_STATUS_OK, -1, false},
        {"success", kModulePath, "Export", handle_, dir_ + "/h.xyz", TAVLO_STATUS_OK, 1, true},
    };
    for (const Case& c : cases) {
        const bool existed = Exists(c.target);
        const std::string old = existed ? FileContent(c.target) : "";
        TavloExporter exporter(writer_, c.module.c_str(), c.entry);
        EXPECT_EQ(exporter.Export(c.name, c.target.c_str()), c.expected) << c.what;
        EXPECT_EQ(exporter.mFailed, c.expected == TAVLO_STATUS_OK ? 0u : 1u) << c.what;
        EXPECT_EQ(Calls(exporter, "ExportCalls"), c.calls) << c.what;
        if (c.written) {
            EXPECT_EQ(FileContent(c.target), Expected()) << c.what;
        } else if (existed) {
            EXPECT_EQ(FileContent(c.target), old) << c.what;
        } else {
            EXPECT_FALSE(Exists(c.target)) << c.what;
        }
    }
    EXPECT_EQ(writer_.GetDatabase(handle_), db_);
}

// ---- Assertions --------------------------------------------------------------------

TEST_F(ConverterTest, NullPathsAndNamesAreAssertions) {
    TavloWriteManager writer(Window(1));
    const char* handle = nullptr;
    ASSERT_EQ(writer.CreateDatabase("Net", &handle, nullptr), TAVLO_STATUS_OK);
    // What a case gets besides the writer: an open database's handle, an
    // existing source to import and a free target to export to.
    struct Args {
        const char* handle;
        std::string source;
        std::string target;
    };
    const Args args{handle, WriteFile("net.xyz", "ECU\n"), dir_ + "/out.xyz"};
    const std::string importAssertion =
        "Assertion failed: filePath != NULL, module dbmsconv, line " TAVLO_LINE_NUMBER;
    const std::string nameAssertion =
        "Assertion failed: \\(dbName != NULL\\), module dbmsconv, line " TAVLO_LINE_NUMBER;
    const std::string exportAssertion =
        "Assertion failed: \\(dbName != NULL\\) && \\(filePath != NULL\\), module dbmsconv, "
        "line " TAVLO_LINE_NUMBER;
    struct Case {
        const char* what;
        void (*call)(TavloWriteManager&, const Args&);
        const std::string& assertion;
    };
    const Case cases[] = {
        {"import without a source",
         [](TavloWriteManager& w, const Args&) {
             TavloImporter importer(w, kModulePath, "Import");
             importer.Import("Fresh", nullptr, nullptr);
         },
         importAssertion},
        // Checked once the source has passed, when the database is made.
        {"import without a name",
         [](TavloWriteManager& w, const Args& a) {
             TavloImporter importer(w, kModulePath, "Import");
             importer.Import(nullptr, nullptr, a.source.c_str());
         },
         nameAssertion},
        {"export without a handle",
         [](TavloWriteManager& w, const Args& a) {
             TavloExporter exporter(w, kModulePath, "Export");
             exporter.Export(nullptr, a.target.c_str());
         },
         exportAssertion},
        {"export without a target",
         [](TavloWriteManager& w, const Args& a) {
             TavloExporter exporter(w, kModulePath, "Export");
             exporter.Export(a.handle, nullptr);
         },
         exportAssertion},
        {"export without either",
         [](TavloWriteManager& w, const Args&) {
             TavloExporter exporter(w, kModulePath, "Export");
             exporter.Export(nullptr, nullptr);
         },
         exportAssertion},
    };
    for (const Case& c : cases) {
        EXPECT_DEATH(c.call(writer, args), c.assertion) << c.what;
    }
    EXPECT_FALSE(Exists(args.target));
    EXPECT_FALSE(Exists(dir_ + "/net.DBC"));
}

}  // namespace
}  // namespace tavlo::test
