// tests/convert/converter_test.cpp: converter modules driven through the
// test module (test_module.cpp): unloading, every outcome of an import and
// of an export in a table each, what an import leaves in the database and in
// memory, and the assertions on null arguments.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
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

constexpr const char* kModule = TAVLOMS_TEST_CONVERTER;

// A counter of the module ("ImportCalls", "ExportCalls"); -1: not loaded.
int Calls(const TavloConverter& converter, const char* counter) {
    auto count = reinterpret_cast<int (*)()>(converter.GetFunction(counter));
    return count != nullptr ? count() : -1;
}

// Whether a database has nothing but its version text.
bool Empty(const TavloDatabase& db) {
    tavlo_root_t root = db.Root();
    root.version = nullptr;
    return DescribeDatabase(root) == DescribeDatabase(tavlo_root_t{});
}

class ConverterTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        LiveAllocations();  // counting starts here, before any record is made
        notLibrary_ = WriteFile("garbage.so", "not a shared library\n");
    }

    TavloWriteManager writer_{reinterpret_cast<HWND>(1)};
    std::string notLibrary_;
};

TEST_F(ConverterTest, TheLastConverterOnAModuleUnloadsIt) {
    ASSERT_FALSE(ModuleLoaded(kModule));
    auto importer = std::make_unique<TavloImporter>(writer_, kModule, "Import");
    EXPECT_TRUE(ModuleLoaded(kModule));
    {
        TavloExporter exporter(writer_, kModule, "Export");
        EXPECT_TRUE(ModuleLoaded(kModule));
    }
    EXPECT_TRUE(ModuleLoaded(kModule));  // the importer's own load still holds it
    importer.reset();
    EXPECT_FALSE(ModuleLoaded(kModule));
}

// Every outcome of an import: refused before the module runs (nothing is
// made), a database left open and empty when the module does not fill it,
// and a filled database whose path is the source's with ".DBC".
TEST_F(ConverterTest, ImportOutcomes) {
    const char* taken = nullptr;
    ASSERT_EQ(writer_.CreateDatabase("Taken", &taken, nullptr), TAVLO_STATUS_OK);
    const std::string takenText = "Taken";  // the same text at another address
    SetReadOnly(WriteFile("locked/net.xyz", "ECU\n"), true);
    WriteFile("blocked/net.DBC", "already here\n");
    SetReadOnly(WriteFile("blockedro/net.DBC", "already here\n"), true);
    WriteFile("bare/net.DBC", "already here\n");
    struct Case {
        const char* source;  // written with "ECU" here unless it starts with '-'
        const char* name;
        unsigned int status;
        int calls = 0;                 // of the module's import entries; -1: not loaded
        const char* target = nullptr;  // the database's path; null when none is made
        std::string module = kModule;
        const char* entry = "Import";
    };
    const Case cases[] = {
        {"-missing.xyz", "Fresh", TAVLO_STATUS_NO_FILE},
        {"-locked/net.xyz", "Fresh", TAVLO_STATUS_READ_ONLY},
        {"-missing.xyz", taken, TAVLO_STATUS_NO_FILE},
        {"net.xyz", taken, TAVLO_STATUS_NAME_USED},
        {"net.xyz", takenText.c_str(), TAVLO_STATUS_NAME_USED},
        {"net.xyz", "9lives", TAVLO_STATUS_INVALID_NAME},
        {"blocked/net.xyz", "9lives", TAVLO_STATUS_INVALID_NAME},
        {"blocked/net.xyz", "Fresh", TAVLO_STATUS_PATH_TAKEN},
        {"blockedro/net.xyz", "Fresh", TAVLO_STATUS_PATH_TAKEN},
        {"itself/net.DBC", "Fresh", TAVLO_STATUS_PATH_TAKEN},
        {"bare/net", "Fresh", TAVLO_STATUS_PATH_TAKEN},
        {"net.xyz", "Net", TAVLO_STATUS_CONVERSION_FAILED, 1, "net.DBC", kModule, "ImportFails"},
        {"net.xyz", "Net", TAVLO_STATUS_CONVERSION_FAILED, 0, "net.DBC", kModule, nullptr},
        {"net.xyz", "Net", TAVLO_STATUS_CONVERSION_FAILED, 0, "net.DBC", kModule, "NoSuchEntry"},
        {"net.xyz", "Net", TAVLO_STATUS_CONVERSION_FAILED, -1, "net.DBC", dir_ + "/missing.so"},
        {"net.xyz", "Net", TAVLO_STATUS_CONVERSION_FAILED, -1, "net.DBC", notLibrary_},
        {"a/net.xyz", "Net", TAVLO_STATUS_OK, 1, "a/net.DBC"},
        {"b/net", "Net", TAVLO_STATUS_OK, 1, "b/net.DBC"},
        {"c.d/net", "Net", TAVLO_STATUS_OK, 1, "c.d/net.DBC"},
        {"e/net.tar.gz", "Net", TAVLO_STATUS_OK, 1, "e/net.tar.DBC"},
#if !defined(_WIN32)  // on Windows names do not differ by case: net.DBC is the source
        {"f/net.dbc", "Net", TAVLO_STATUS_OK, 1, "f/net.DBC"},
#endif
        {"g/.hidden", "Net", TAVLO_STATUS_OK, 1, "g/.DBC"},
    };
    for (const Case& c : cases) {
        const std::string source =
            c.source[0] == '-' ? dir_ + "/" + (c.source + 1) : WriteFile(c.source, "ECU\n");
        const long before = LiveAllocations();
        TavloImporter importer(writer_, c.module.c_str(), c.entry);
        const char* out = "untouched";
        EXPECT_EQ(importer.Import(c.name, &out, source.c_str()), c.status) << c.source;
        EXPECT_EQ(importer.mFailed, c.status != TAVLO_STATUS_OK ? 1u : 0u) << c.source;
        EXPECT_EQ(Calls(importer, "ImportCalls"), c.calls) << c.source;
        EXPECT_TRUE(c.source[0] == '-' || FileContent(source) == "ECU\n") << c.source;
        if (c.target == nullptr) {
            EXPECT_STREQ(out, "untouched") << c.source;
            EXPECT_EQ(importer.mDatabase, nullptr) << c.source;
            EXPECT_EQ(writer_.GetUniqueDatabaseName("Fresh"), nullptr) << c.source;
            EXPECT_EQ(writer_.GetUniqueDatabaseName("9lives"), nullptr) << c.source;
            EXPECT_EQ(LiveAllocations(), before) << c.source;
            continue;
        }
        ASSERT_EQ(writer_.GetUniqueDatabaseName("Net"), out) << c.source;
        const TavloDatabase* db = writer_.GetDatabase(out);
        ASSERT_NE(db, nullptr) << c.source;
        EXPECT_EQ(importer.mDatabase, db) << c.source;
        EXPECT_EQ(Empty(*db), c.status != TAVLO_STATUS_OK) << c.source;
        // The same path whichever separators it is written with (Windows' are '\\').
        EXPECT_EQ(std::filesystem::path(db->mDbPath).lexically_normal(),
                  std::filesystem::path(dir_ + "/" + c.target).lexically_normal());
        EXPECT_FALSE(std::filesystem::exists(dir_ + "/" + c.target)) << c.source;
        writer_.CloseDatabase(out, false);
        EXPECT_EQ(LiveAllocations(), before) << c.source;
    }
    EXPECT_TRUE(Empty(*writer_.GetDatabase(taken)));
    EXPECT_EQ(FileContent(dir_ + "/blocked/net.DBC"), "already here\n");
}

// An importer that notes what PostProcess was given while the module's
// records still exist, then lets the base release them.
class RecordingImporter : public TavloImporter {
public:
    using TavloImporter::TavloImporter;

    bool PostProcess(symblk* nodes, msgblk* messages, env_var_blk* envvars, btlblk* bitTimings,
                     attr_def* attrDefs, attr* dbAttrs, cat* categories, filter_t filter,
                     char* comment, char* userData, sigtype* sigTypes,
                     valtable* valueTables) override {
        made = {nodes,    messages, envvars, bitTimings, attrDefs, dbAttrs,
                categories, filter, comment, userData,  sigTypes, valueTables};
        madeText = DescribeDatabase(made);
        ++calls;
        return TavloImporter::PostProcess(nodes, messages, envvars, bitTimings, attrDefs,
                                          dbAttrs, categories, filter, comment, userData,
                                          sigTypes, valueTables);
    }

    int calls = 0;
    tavlo_root_t made{};  // released by the time Import returns: compared, never followed
    std::string madeText;
};

// The database holds copies of the module's records, every reference
// pointing into its own; PostProcess got the module's records once and
// released them. (The tool tests write imported databases to files.)
TEST_F(ConverterTest, ImportFillsTheDatabaseWithCopiesOfTheModulesRecords) {
    const long before = LiveAllocations();
    const std::string source = WriteFile("net.xyz", "Gateway\n");
    RecordingImporter importer(writer_, kModule, "Import");
    const char* out = nullptr;
    ASSERT_EQ(importer.Import("Net", &out, source.c_str()), TAVLO_STATUS_OK);
    const TavloDatabase& db = *writer_.GetDatabase(out);
    EXPECT_EQ(importer.calls, 1);
    EXPECT_NE(+db.mNodes, importer.made.nodes);
    EXPECT_NE(+db.mMessages, importer.made.messages);
    EXPECT_NE(+db.mAttrDefs, importer.made.attr_defs);
    EXPECT_NE(+db.mDbAttrs, importer.made.db_attrs);
    EXPECT_EQ(DescribeDatabase(db.Root()), importer.madeText);
    EXPECT_STREQ(db.mNodes->name, "Gateway");  // the module read the source
    EXPECT_EQ(+db.mMessages->transmitter, db.mNodes);
    EXPECT_EQ(+db.mMessages->signals->receivers->symbol, db.mNodes);
    EXPECT_EQ(+db.mMessages->attributes->def, db.mAttrDefs);
    EXPECT_EQ(+db.mDbAttrs->def, +db.mAttrDefs->next);

    writer_.CloseDatabase(false);
    EXPECT_EQ(LiveAllocations(), before);
}

// Every outcome of an export; the module gets the database's own five
// lists in order and leaves them as they were.
TEST_F(ConverterTest, ExportOutcomes) {
    const char* net = nullptr;
    const std::string path = WriteDatabase("net.dbc", SmallDatabase("v1", 2, "Small"));
    ASSERT_EQ(writer_.OpenDatabase(path.c_str(), &net, "Net", 0), TAVLO_STATUS_OK);
    const TavloDatabase& db = *writer_.GetDatabase(net);
    const std::string content = DescribeDatabase(db.Root());
    const std::string netText = "Net";  // the handle's text at another address
    WriteFile("taken.xyz", "already here\n");
    SetReadOnly(WriteFile("takenro.xyz", "already here\n"), true);
    char written[512];
    std::snprintf(written, sizeof written,
                  "messages %p 1 Msg1\nnodes %p 2 A B\nenvvars %p 2 EnvLow EnvHigh\n"
                  "attrDefs %p 1 DBName\ndbAttrs %p 1 DBName\n",
                  static_cast<void*>(db.mMessages), static_cast<void*>(db.mNodes),
                  static_cast<void*>(db.mEnvvars), static_cast<void*>(db.mAttrDefs),
                  static_cast<void*>(db.mDbAttrs));
    struct Case {
        const char* target;
        const char* name;
        unsigned int status;
        int calls;  // of the module's export entries; -1: not loaded
        std::string module = kModule;
        const char* entry = "Export";
    };
    const Case cases[] = {
        {"taken.xyz", net, TAVLO_STATUS_PATH_TAKEN, 0},
        {"takenro.xyz", net, TAVLO_STATUS_PATH_TAKEN, 0},
        {"a.xyz", netText.c_str(), TAVLO_STATUS_WRITE_FAILED, 0},
        {"b.xyz", net, TAVLO_STATUS_WRITE_FAILED, 1, kModule, "ExportFails"},
        {"c.xyz", net, TAVLO_STATUS_OK, 0, kModule, nullptr},  // counts as done
        {"d.xyz", net, TAVLO_STATUS_OK, 0, kModule, "NoSuchEntry"},
        {"e.xyz", net, TAVLO_STATUS_OK, -1, dir_ + "/missing.so"},
        {"f.xyz", netText.c_str(), TAVLO_STATUS_WRITE_FAILED, -1, dir_ + "/missing.so"},
        {"g.xyz", net, TAVLO_STATUS_OK, -1, notLibrary_},
        {"h.xyz", net, TAVLO_STATUS_OK, 1},
    };
    for (const Case& c : cases) {
        const std::string target = dir_ + "/" + c.target;
        const std::string old = FileContent(target);
        TavloExporter exporter(writer_, c.module.c_str(), c.entry);
        EXPECT_EQ(exporter.Export(c.name, target.c_str()), c.status) << c.target;
        EXPECT_EQ(exporter.mFailed, c.status == TAVLO_STATUS_OK ? 0u : 1u) << c.target;
        EXPECT_EQ(Calls(exporter, "ExportCalls"), c.calls) << c.target;
        const bool wrote = c.calls == 1 && c.status == TAVLO_STATUS_OK;
        EXPECT_EQ(FileContent(target), wrote ? written : old) << c.target;
    }
    EXPECT_EQ(DescribeDatabase(db.Root()), content);
}

TEST_F(ConverterTest, NullPathsAndNamesAreAssertions) {
    const std::string source = WriteFile("net.xyz", "ECU\n");
    const auto failed = [](const std::string& condition) {
        return "Assertion failed: " + condition + ", module dbmsconv, line " TAVLO_LINE_NUMBER;
    };
    const std::string exported = failed("\\(dbName != NULL\\) && \\(filePath != NULL\\)");
    TavloImporter importer(writer_, kModule, "Import");
    TavloExporter exporter(writer_, kModule, "Export");
    EXPECT_DEATH(importer.Import("Fresh", nullptr, nullptr), failed("filePath != NULL"));
    // Checked once the source has passed, when the database is made.
    EXPECT_DEATH(importer.Import(nullptr, nullptr, source.c_str()), failed("\\(dbName != NULL\\)"));
    EXPECT_DEATH(exporter.Export(nullptr, (dir_ + "/out.xyz").c_str()), exported);
    EXPECT_DEATH(exporter.Export("Net", nullptr), exported);
    EXPECT_FALSE(std::filesystem::exists(dir_ + "/out.xyz"));
    EXPECT_FALSE(std::filesystem::exists(dir_ + "/net.DBC"));
}

}  // namespace
}  // namespace tavlo::test
