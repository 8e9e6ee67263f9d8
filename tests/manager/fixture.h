// tests/manager/fixture.h: a directory of database files of its own for each
// test, and small databases made for the manager tests.
#ifndef TAVLOMS_TESTS_MANAGER_FIXTURE_H
#define TAVLOMS_TESTS_MANAGER_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>

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

// Gives db the view filter nodes of powertrain.dbc's FILTER line (Engine,
// then the NONE entry), which an object opened from the file leaves out.
void LinkPowertrainFilterNodes(TavloDatabase& db);

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

    std::string dir_;
    MessageCapture shown_;  // read errors and lock refusals land here
};

// A manager of type Manager with powertrain.dbc ("Pt") first and body.dbc
// ("Body") behind it, both at priority 0 under names of their own, so that
// neither drops the other. Both are opened in place: opening only reads.
template <class Manager>
class PowertrainAndBodyTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("powertrain.dbc").c_str(), &pt_, "Pt", 0),
                  TAVLO_STATUS_OK);
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("body.dbc").c_str(), &body_, "Body", 0),
                  TAVLO_STATUS_OK);
        ASSERT_TRUE(shown_.messages().empty());
        ASSERT_EQ(mgr_.ListFirstNode()->mName, pt_);
        unknown_ = pt_;
    }

    Manager mgr_{static_cast<void*>(nullptr)};
    const char* pt_ = nullptr;
    const char* body_ = nullptr;
    std::string unknown_;  // Pt's text but not its handle: handles are compared by pointer
};

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_MANAGER_FIXTURE_H
