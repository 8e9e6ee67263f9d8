// The flat finders over the sample database: keys, first match wins,
// positions from one, the attribute questions, value descriptions and the
// file comment copy.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/death.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

class Query : public ::testing::Test {
protected:
    void TearDown() override { TAVLO_FREE_ROOT(&db_); }
    tavlo_root_t db_ = tavlo::test::BuildSampleDatabase();
    msgblk* engineData_ = TAVLO_GET_MESSAGE_NAME(db_.messages, "EngineData");
    sigblk* rpm_ = TAVLO_GET_SIGNAL(db_.messages, 0x100, "Rpm");
    symblk* engine_ = TAVLO_GET_SYMBOL_NAME(db_.nodes, "Engine");
    env_var_blk* speed_ = TAVLO_GET_EVBLK_H(db_.envvars, 7);
};

TEST_F(Query, EachFinderFindsItsRecordByItsKey) {
    msgblk* twin = TAVLO_CREATE_MSGBLK();  // a second "EngineData" 0x100 at the end: not found
    std::strcpy(twin->name, "EngineData");
    twin->id = 0x100;
    CAN_INSERT_MSG(&db_.messages, twin, 2);
    ASSERT_NE(engineData_, nullptr);
    EXPECT_EQ(TAVLO_GET_MESSAGE(db_.messages, 0x100), engineData_);
    EXPECT_STREQ(TAVLO_GET_MESSAGE(db_.messages, 0x80000123u)->name, "Diagnostics");
    EXPECT_EQ(TAVLO_GET_MESSAGE(db_.messages, 0x123), nullptr);
    for (const char* name : {"engine", "Eng", "Engine ", ""}) {  // exactly, and with case
        EXPECT_EQ(TAVLO_GET_SYMBOL_NAME(db_.nodes, name), nullptr) << name;
    }
    EXPECT_STREQ(speed_->name, "EvSpeed");
    EXPECT_EQ(+TAVLO_GET_BTLBLK(db_.bit_timings, 250)->baudrate, 250);
    EXPECT_STREQ(rpm_->name, "Rpm");
    EXPECT_STREQ(TAVLO_GET_MODE_SIGNAL(db_.messages, 0x100)->name, "Mode");
    EXPECT_EQ(TAVLO_GET_MODE_SIGNAL(db_.messages, 0x80000123u), nullptr);
    // Category numbers are signed 16-bit numbers.
    EXPECT_STREQ(TAVLO_GET_CATEGORY(db_.categories, -1)->name, "Misc");
    EXPECT_EQ(TAVLO_GET_CATEGORY(db_.categories, 65535), nullptr);
}

TEST_F(Query, PositionsCountFromOneAndTheNthSignalByIdentifierIsAlwaysNull) {
    EXPECT_STREQ(TAVLO_GET_MESSAGE_N(db_.messages, 2)->name, "Diagnostics");
    EXPECT_EQ(TAVLO_GET_MESSAGE_N(db_.messages, 3), nullptr);
    EXPECT_STREQ(TAVLO_GET_SYMBOL_N(db_.nodes, 3)->name, "Gateway");
    EXPECT_EQ(TAVLO_GET_SYMBOL_N(db_.nodes, 4), nullptr);
    EXPECT_STREQ(TAVLO_GET_SIGNAL_OF_MSG_N(engineData_, 3)->name, "Gear");
    for (int n = 1; n <= 4; ++n) {  // deliberately: it has always given null
        EXPECT_EQ(TAVLO_GET_SIGNAL_N(db_.messages, 0x100, n), nullptr) << n;
    }
    EXPECT_DEATH(TAVLO_GET_SYMBOL_N(nullptr, 0), "Assertion failed: n > 0, module canbdbs, line " TAVLO_LINE_NUMBER);
    EXPECT_DEATH(TAVLO_GET_SIGNAL_OF_MSG_N(nullptr, 1), "Assertion failed: msg != NULL, module canbdbs");
}

TEST_F(Query, AttributesAreFoundOnTheirObjects) {
    EXPECT_EQ(TAVLO_GET_ATTRTYPE(db_.attr_defs, "Nothing"), 0xFFFFFFFFu);
    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(db_.attr_defs, TAVLO_OBJ_NODE, "NodeLevel"), 1);
    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(db_.attr_defs, TAVLO_OBJ_SIGNAL, "NodeLevel"), 0);
    EXPECT_EQ(TAVLO_IS_DB_ATTRIBUTE_DEFINED(db_.db_attrs, "BusType"), 1);
    EXPECT_EQ(TAVLO_IS_MSG_ATTRIBUTE_DEFINED(engineData_, "MsgCycle"), 1);
    EXPECT_EQ(TAVLO_IS_EV_ATTRIBUTE_DEFINED(speed_, "EnvMask"), 1);
    tavlo_attr_value_t value;
    EXPECT_EQ(TAVLO_GET_DB_ATTRVAL(&value, db_.db_attrs, "BusType"), &value);
    EXPECT_EQ(value.number, 1.0);
    TAVLO_GET_SYM_ATTRVAL(&value, engine_, "NodeLevel");
    EXPECT_EQ(value.number, 5.0);
    TAVLO_GET_MSG_ATTRVAL(&value, engineData_, "MsgCycle");
    EXPECT_EQ(value.number, 20.0);
    TAVLO_GET_SIG_ATTRVAL(&value, rpm_, "SigNote");
    EXPECT_EQ(value.text, +rpm_->attributes->value.text);  // the database's own text
    std::memset(&value, 0xAB, sizeof value);  // a missing value reads as zero bytes, not the default
    TAVLO_GET_SYM_ATTRVAL(&value, TAVLO_GET_SYMBOL_NAME(db_.nodes, "Dash"), "NodeLevel");
    EXPECT_EQ(value.text, nullptr);
    TAVLO_GET_ATTRDEFAULT(&value, db_.attr_defs, "NodeLevel");
    EXPECT_EQ(value.number, 3.0);
    TAVLO_GET_ATTRDEFAULT(&value, db_.attr_defs, "BusType");
    EXPECT_STREQ(value.text, "CAN");
}

TEST_F(Query, ValueDescriptionsInBothDirections) {
    rpm_->value_descriptions = tavlo::test::AppendValue(tavlo::test::AppendValue(rpm_->value_descriptions, 5, "Idle"), 5, "Later");
    EXPECT_STREQ(TAVLO_GET_SIG_ENUMSYMBOL(rpm_, 5), "Idle");
    EXPECT_EQ(TAVLO_GET_SIG_ENUMVALUE(rpm_, "Idle"), 5);
    EXPECT_EQ(TAVLO_GET_SIG_ENUMVALUE(rpm_, "Unknown"), 0);  // the same as a description of 0
    EXPECT_STREQ(TAVLO_GET_EV_ENUMSYMBOL(speed_, 0), "standing");
    EXPECT_EQ(TAVLO_GET_SIG_FACTOR(rpm_), 0.25);
    EXPECT_EQ(TAVLO_GET_SIG_OFFSET(rpm_), -10.0);
}

TEST(FileComment, CopiesAtMostSizeMinusOneCharactersWithoutTerminatingAFullCopy) {
    const struct { const char* comment; int size; const char* buffer; int result; } cases[] = {
        {nullptr, 8, "", 0}, {"abc", 8, "abc", 3}, {"abc", 4, "abc", 3}, {"abcdef", 4, "abc", 3}, {"abc", 1, "", 0}};
    for (const auto& c : cases) {
        char buffer[16];
        std::memset(buffer, 'x', sizeof buffer);
        buffer[c.size - 1] = '\0';  // the caller's last byte is zero
        EXPECT_EQ(TAVLO_GET_FILE_COMMENT(c.comment, buffer, c.size), c.result) << c.size;
        EXPECT_STREQ(buffer, c.buffer);
    }
    char full[4] = {'x', 'x', 'x', 'x'};
    TAVLO_GET_FILE_COMMENT("abc", full, 4);
    EXPECT_EQ(std::string(full, 4), "abcx");
}

}  // namespace
