// tests/manager/fixture.h: a directory of database files of its own for each
// test, small databases made for the tests, and the databases of
// tests/manager/data opened side by side in one manager.
#ifndef TAVLOMS_TESTS_MANAGER_FIXTURE_H
#define TAVLOMS_TESTS_MANAGER_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/message_capture.h"
#include "tavloms/tavloms.h"

namespace tavlo::test {

// What a small database holds: a version text, the largest environment
// variable handle (0: no environment variable), and its "DBName" attribute
// value (empty: no attribute).
struct SmallDatabase {
    SmallDatabase(std::string versionText = "v1", unsigned int maxHandle = 0,
                  std::string dbNameValue = "")
        : version(std::move(versionText)), maxEnvvarHandle(maxHandle), dbName(std::move(dbNameValue)) {}

    std::string version;
    unsigned int maxEnvvarHandle;
    std::string dbName;
};

// The file text of a small database: nodes A and B, message Msg1 (id 100)
// with signal Sig1.
std::string SmallDatabaseText(const SmallDatabase& content);

// The path of a database file of tests/manager/data.
inline std::string DataFile(const std::string& name) {
    return std::string(TAVLOMS_MANAGER_DATA_DIR) + "/" + name;
}

// The cases of a file of tests/manager/data, one a line, split at blanks;
// empty lines and lines that start with '#' are left out.
struct CaseLine {
    int number;
    std::vector<std::string> fields;
};
std::vector<CaseLine> ReadCases(const std::string& name);

// Gives db the view filter nodes of powertrain.dbc's FILTER line (Engine,
// then the entry naming none), which an object opened from the file leaves
// out.
void LinkPowertrainFilterNodes(TavloDatabase& db);

// Attribute values as the attribute calls take them, every other byte zero.
inline tavlo_attr_value_t AttrNumber(double number) {
    tavlo_attr_value_t value{};
    value.number = number;
    return value;
}
inline tavlo_attr_value_t AttrText(const char* text) {
    tavlo_attr_value_t value{};
    value.text = const_cast<char*>(text);
    return value;
}

class ManagerTest : public ::testing::Test {
protected:
    void SetUp() override;
    // Deletes what no manager holds any more and the test's directory.
    void TearDown() override;

    // Writes a file at dir/relative (folders made as needed); returns its path.
    std::string WriteFile(const std::string& relative, const std::string& text);
    std::string WriteDatabase(const std::string& relative, const SmallDatabase& content = {}) {
        return WriteFile(relative, SmallDatabaseText(content));
    }
    // Clears or sets the owner's (and everyone's) write permission.
    static void SetReadOnly(const std::string& path, bool readOnly);
    // Opens path in mgr, under name or its default name, and gives the handle.
    static const char* Open(TavloManager& mgr, const std::string& path, const char* name = nullptr,
                            unsigned int priority = 0);

    std::string dir_;
    MessageCapture shown_;  // read errors and lock refusals land here
};

// A manager of type Manager with powertrain.dbc ("Pt"), diagnosis.dbc
// ("Diag"), body.dbc ("Body") and extras.dbc ("Extras") in that list order,
// all opened in place (opening only reads); powertrain's view filter nodes
// are linked as LinkPowertrainFilterNodes does.
template <class Manager>
class DataTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        pt_ = Open(mgr_, DataFile("powertrain.dbc"), "Pt");
        diag_ = Open(mgr_, DataFile("diagnosis.dbc"), "Diag");
        body_ = Open(mgr_, DataFile("body.dbc"), "Body");
        extras_ = Open(mgr_, DataFile("extras.dbc"), "Extras");
        ASSERT_TRUE(shown_.messages().empty()) << shown_.messages().front().text;
        LinkPowertrainFilterNodes(Db(pt_));
        unknown_ = pt_;
    }

    TavloDatabase& Db(const char* handle) { return *mgr_.GetDatabase(handle); }

    Manager mgr_{static_cast<void*>(nullptr)};
    const char* pt_ = nullptr;
    const char* diag_ = nullptr;
    const char* body_ = nullptr;
    const char* extras_ = nullptr;
    std::string unknown_;  // Pt's text but not its handle: handles are compared by pointer
};

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_MANAGER_FIXTURE_H
