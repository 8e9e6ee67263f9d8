// tests/manager/owner_test.cpp: counts of a manager's objects and the
// database that owns an object.
#include <gtest/gtest.h>

#include <string>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

class OwnerTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("powertrain.dbc").c_str(), &powertrain_, 1), 0u);
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("body.dbc").c_str(), &body_, 1), 0u);
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("diagnosis.dbc").c_str(), &diagnosis_, 0), 0u);
    }

    TavloDatabase& Db(const char* handle) { return *mgr_.GetDatabase(handle); }

    TavloManager mgr_{static_cast<void*>(nullptr)};
    const char* powertrain_ = nullptr;
    const char* body_ = nullptr;
    const char* diagnosis_ = nullptr;
};

TEST_F(OwnerTest, CountsPerDatabaseAddUpToTheWholeManager) {
    using CountFn = unsigned int (TavloManager::*)(const char*) const;
    struct Case {
        const char* kind;
        CountFn count;
        unsigned int powertrain, body, diagnosis;
    };
    const Case cases[] = {
        {"nodes", &TavloManager::NodeCount, 3, 3, 0},
        {"messages", &TavloManager::MessageCount, 3, 2, 1},
        {"envvars", &TavloManager::EnvvarCount, 2, 1, 0},
        {"bit timings", &TavloManager::BitTimingCount, 1, 0, 0},
        {"attribute definitions", &TavloManager::AttrDefinitionCount, 7, 2, 0},
        {"categories", &TavloManager::CategoryCount, 1, 1, 0},
        {"signal types", &TavloManager::SignalTypeCount, 0, 0, 0},
        {"value tables", &TavloManager::ValueTableCount, 1, 0, 0},
        {"network attributes", &TavloManager::AttributeCount, 1, 0, 0},
    };
    const std::string unknown = powertrain_;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.kind);
        EXPECT_EQ((mgr_.*c.count)(powertrain_), c.powertrain);
        EXPECT_EQ((mgr_.*c.count)(body_), c.body);
        EXPECT_EQ((mgr_.*c.count)(diagnosis_), c.diagnosis);
        EXPECT_EQ((mgr_.*c.count)(nullptr), c.powertrain + c.body + c.diagnosis);
        EXPECT_EQ((mgr_.*c.count)(unknown.c_str()), 0u);
    }
    EXPECT_EQ(mgr_.DatabaseCount(), 3u);
    TavloManager empty(static_cast<void*>(nullptr));
    EXPECT_EQ(empty.DatabaseCount(), 0u);
    EXPECT_EQ(empty.NodeCount(nullptr), 0u);
}

TEST_F(OwnerTest, CountsOfOneObject) {
    const TavloDatabase& pt = Db(powertrain_);
    const msgblk& engineData = *pt.GetMessage("EngineData");
    EXPECT_EQ(mgr_.SignalCount(engineData), 7u);
    EXPECT_EQ(mgr_.SignalGroupCount(engineData), 1u);
    EXPECT_EQ(mgr_.AttributeCount(engineData), 1u);
    EXPECT_EQ(mgr_.AttributeCount(*pt.GetNode("Engine")), 1u);
    EXPECT_EQ(mgr_.AttributeCount(*pt.GetNode("Gateway")), 0u);
    EXPECT_EQ(mgr_.AttributeCount(*engineData.signals->next), 1u);  // EngineTemp
    EXPECT_EQ(mgr_.AttributeCount(*pt.GetEnvvar("PtEnvB")), 0u);

    // A member that names no signal still counts.
    siglistblk* member = engineData.signal_groups->signals;
    sigblk* kept = member->signal;
    member->signal = nullptr;
    EXPECT_EQ(mgr_.SignalCount(*engineData.signal_groups), 2u);
    member->signal = kept;
}

TEST_F(OwnerTest, EveryKindNamesItsOwnDatabase) {
    const TavloDatabase& pt = Db(powertrain_);
    const TavloDatabase& body = Db(body_);
    const msgblk& engineData = *pt.GetMessage("EngineData");
    EXPECT_EQ(mgr_.GetDatabaseName(*pt.GetNode("Gateway")), powertrain_);
    EXPECT_EQ(mgr_.GetDatabaseName(*body.GetNode("Gateway")), body_);  // same name, other record
    EXPECT_EQ(mgr_.GetDatabaseName(*body.GetMessage(512ul)), body_);
    EXPECT_EQ(mgr_.GetDatabaseName(*Db(diagnosis_).mMessages), diagnosis_);
    EXPECT_EQ(mgr_.GetDatabaseName(*body.GetEnvvar("BodyEnv")), body_);
    EXPECT_EQ(mgr_.GetDatabaseName(*body.GetAttrDef("NodeLayer")), body_);
    EXPECT_EQ(mgr_.GetDatabaseName(*pt.GetValueTable("GearTable")), powertrain_);
    EXPECT_EQ(mgr_.GetDatabaseName(*body.mMessages->signals->next), body_);
    EXPECT_EQ(mgr_.GetDatabaseName(*engineData.signal_groups), powertrain_);

    // Relations: receivers, further transmitters, access nodes.
    EXPECT_EQ(mgr_.GetDatabaseName(*engineData.signals->receivers, TAVLO_OBJ_NODE_SIGNAL),
              powertrain_);
    EXPECT_EQ(mgr_.GetDatabaseName(*body.mMessages->signals->receivers->next,
                                   TAVLO_OBJ_NODE_SIGNAL),
              body_);
    EXPECT_EQ(mgr_.GetDatabaseName(*engineData.transmitters->next, TAVLO_OBJ_NODE_MESSAGE),
              powertrain_);
    EXPECT_EQ(mgr_.GetDatabaseName(*pt.GetEnvvar("PtEnvA")->access_nodes,
                                   TAVLO_OBJ_NODE_ENVVAR),
              powertrain_);
    // The right record under the wrong relation type is not found.
    EXPECT_EQ(mgr_.GetDatabaseName(*engineData.transmitters, TAVLO_OBJ_NODE_SIGNAL), nullptr);
}

TEST_F(OwnerTest, RecordsOfNoOpenDatabaseHaveNoOwner) {
    TavloDatabase outside(DataFile("body.dbc").c_str());
    EXPECT_EQ(mgr_.GetDatabaseName(*outside.GetNode("Door")), nullptr);
    EXPECT_EQ(mgr_.GetDatabaseName(*outside.mMessages), nullptr);
    EXPECT_EQ(mgr_.GetDatabaseName(*outside.mMessages->signals), nullptr);
    EXPECT_EQ(mgr_.GetDatabaseName(*outside.mMessages->signals->receivers,
                                   TAVLO_OBJ_NODE_SIGNAL),
              nullptr);
    siggroupblk orphan{};
    EXPECT_EQ(mgr_.GetDatabaseName(orphan), nullptr);
}

TEST_F(OwnerTest, OtherRelationTypesAreProgrammingErrors) {
    const rxblk& receiver = *Db(powertrain_).mMessages->signals->receivers;
    EXPECT_DEATH(mgr_.GetDatabaseName(receiver, TAVLO_OBJ_NODE),
                 "Assertion failed: 0, module dbmsread");
}

}  // namespace
}  // namespace tavlo::test
