// The flat finders: keys, first match wins, positions, the attribute
// questions, value descriptions and the file comment copy.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/death.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::AppendNumberAttr;
using tavlo::test::AppendTextAttr;
using tavlo::test::AppendValue;
using tavlo::test::Text;

class Query : public ::testing::Test {
protected:
    void SetUp() override { db_ = tavlo::test::BuildSampleDatabase(); }
    void TearDown() override { TAVLO_FREE_ROOT(&db_); }

    msgblk* EngineData() { return TAVLO_GET_MESSAGE_NAME(db_.messages, "EngineData"); }

    tavlo_root_t db_{};
};

// Builds a message list from (name, id) pairs, in order.
msgblk* Messages(const std::vector<std::pair<const char*, unsigned int>>& entries) {
    msgblk* head = nullptr;
    unsigned int position = 0;
    for (const auto& [name, id] : entries) {
        msgblk* message = TAVLO_CREATE_MSGBLK();
        std::strcpy(message->name, name);
        message->id = id;
        CAN_INSERT_MSG(&head, message, position++);
    }
    return head;
}

void ReleaseMessages(msgblk* messages) {
    const filter_t none{};
    TAVLO_FREE(nullptr, messages, nullptr, nullptr, nullptr, nullptr, nullptr, none, nullptr,
               nullptr, nullptr, nullptr);
}

TEST(Finders, FirstMatchNearestTheHeadWins) {
    msgblk* messages = Messages({{"A", 1}, {"B", 2}, {"A", 1}, {"C", 0x80000123u}});
    msgblk* first = messages;
    EXPECT_EQ(TAVLO_GET_MESSAGE(messages, 1), first);
    EXPECT_EQ(TAVLO_GET_MESSAGE_NAME(messages, "A"), first);
    EXPECT_STREQ(TAVLO_GET_MESSAGE(messages, 0x80000123u)->name, "C");
    EXPECT_EQ(TAVLO_GET_MESSAGE(messages, 3), nullptr);
    EXPECT_EQ(TAVLO_GET_MESSAGE(nullptr, 1), nullptr);
    EXPECT_EQ(TAVLO_GET_MESSAGE_NAME(nullptr, "A"), nullptr);
    ReleaseMessages(messages);
}

TEST_F(Query, NamesAreComparedExactlyAndCaseSensitively) {
    struct Case {
        const char* name;
        bool found;
    };
    const Case cases[] = {{"Engine", true}, {"engine", false}, {"Eng", false},
                          {"Engine ", false}, {"", false}, {nullptr, false}};
    for (const Case& c : cases) {
        const char* shown = c.name != nullptr ? c.name : "(null)";
        EXPECT_EQ(TAVLO_GET_SYMBOL_NAME(db_.nodes, c.name) != nullptr, c.found) << shown;
    }
}

TEST_F(Query, EachFinderFindsItsRecordByItsKey) {
    EXPECT_STREQ(TAVLO_GET_SYMBOL_NAME(db_.nodes, "Dash")->name, "Dash");
    EXPECT_STREQ(TAVLO_GET_EVBLK_NAME(db_.envvars, "EvBlob")->name, "EvBlob");
    EXPECT_STREQ(TAVLO_GET_EVBLK_H(db_.envvars, 7)->name, "EvSpeed");
    EXPECT_EQ(TAVLO_GET_EVBLK_H(db_.envvars, 8), nullptr);
    EXPECT_EQ(+TAVLO_GET_BTLBLK(db_.bit_timings, 250)->baudrate, 250);
    EXPECT_EQ(TAVLO_GET_BTLBLK(db_.bit_timings, 125), nullptr);
    EXPECT_STREQ(TAVLO_GET_ATTR_DEF_NAME(db_.attr_defs, "BusType")->name, "BusType");
    EXPECT_STREQ(TAVLO_GET_SIGTYPE_NAME(db_.sig_types, "GearType")->name, "GearType");
    EXPECT_STREQ(TAVLO_GET_VALTABLE_NAME(db_.value_tables, "OnOff")->name, "OnOff");
    EXPECT_STREQ(TAVLO_GET_SIGNAL(db_.messages, 0x100, "Rpm")->name, "Rpm");
    EXPECT_EQ(TAVLO_GET_SIGNAL(db_.messages, 0x101, "Rpm"), nullptr);
    EXPECT_STREQ(TAVLO_GET_SIGNAL_OF_MSG_NAME(EngineData(), "Gear")->name, "Gear");
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_NAME(EngineData(), "Speed"), nullptr);
}

TEST_F(Query, CategoriesAreNumberedWithSignedSixteenBits) {
    cat* wide = TAVLO_CREATE_CATEGORY();
    wide->number = static_cast<short>(40000);  // stored as -25536
    cat* top = TAVLO_CREATE_CATEGORY();
    top->number = 32767;
    wide->next = top;
    db_.categories->next->next = wide;
    EXPECT_STREQ(TAVLO_GET_CATEGORY(db_.categories, 1)->name, "Chassis");
    EXPECT_STREQ(TAVLO_GET_CATEGORY(db_.categories, -1)->name, "Misc");
    EXPECT_EQ(TAVLO_GET_CATEGORY(db_.categories, 32767), top);
    EXPECT_EQ(TAVLO_GET_CATEGORY(db_.categories, 40000), nullptr);
    EXPECT_EQ(TAVLO_GET_CATEGORY(db_.categories, 65535), nullptr);
}

TEST_F(Query, ModeSignalIsTheFirstSignalWithTheModeFlag) {
    EXPECT_STREQ(TAVLO_GET_MODE_SIGNAL(db_.messages, 0x100)->name, "Mode");
    EXPECT_EQ(TAVLO_GET_MODE_SIGNAL(db_.messages, 0x80000123u), nullptr);  // no signals
    EXPECT_EQ(TAVLO_GET_MODE_SIGNAL(db_.messages, 0x555), nullptr);        // no message
}

TEST_F(Query, PositionsCountFromOne) {
    EXPECT_STREQ(TAVLO_GET_MESSAGE_N(db_.messages, 2)->name, "Diagnostics");
    EXPECT_EQ(TAVLO_GET_MESSAGE_N(db_.messages, 3), nullptr);
    EXPECT_EQ(TAVLO_GET_MESSAGE_N(nullptr, 1), nullptr);
    EXPECT_STREQ(TAVLO_GET_SYMBOL_N(db_.nodes, 1)->name, "Engine");
    EXPECT_STREQ(TAVLO_GET_SYMBOL_N(db_.nodes, 3)->name, "Gateway");
    EXPECT_EQ(TAVLO_GET_SYMBOL_N(db_.nodes, 4), nullptr);
    EXPECT_STREQ(TAVLO_GET_EVBLK_N(db_.envvars, 2)->name, "EvBlob");
    EXPECT_STREQ(TAVLO_GET_SIGNAL_OF_MSG_N(EngineData(), 3)->name, "Gear");
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_N(EngineData(), 4), nullptr);
}

TEST_F(Query, NthSignalByIdentifierIsAlwaysNull) {
    for (int n = 1; n <= 4; ++n) {
        EXPECT_EQ(TAVLO_GET_SIGNAL_N(db_.messages, 0x100, n), nullptr) << n;
    }
}

TEST(FindersDeathTest, PositionsBelowOneAndMissingMessagesStopTheProgram) {
    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
        {"n > 0", [] { TAVLO_GET_MESSAGE_N(nullptr, 0); }},
        {"n > 0", [] { TAVLO_GET_SYMBOL_N(nullptr, -1); }},
        {"n > 0", [] { TAVLO_GET_EVBLK_N(nullptr, 0); }},
        {"n > 0", [] { TAVLO_GET_SIGNAL_N(nullptr, 1, 0); }},
        {"n > 0", [] { TAVLO_GET_SIGNAL_OF_MSG_N(nullptr, 0); }},
        {"msg != NULL", [] { TAVLO_GET_SIGNAL_OF_MSG_N(nullptr, 1); }},
    };
    for (const auto& [assertion, call] : cases) {
        EXPECT_DEATH(call(), "Assertion failed: " + assertion + ", module canbdbs, line " TAVLO_LINE_NUMBER)
            << assertion;
    }
}

TEST_F(Query, AttributeTypesAndDefinitionsForObjectKinds) {
    EXPECT_EQ(TAVLO_GET_ATTRTYPE(db_.attr_defs, "BusType"), TAVLO_ATTR_ENUM);
    EXPECT_EQ(TAVLO_GET_ATTRTYPE(db_.attr_defs, "EnvMask"), TAVLO_ATTR_HEX);
    EXPECT_EQ(TAVLO_GET_ATTRTYPE(db_.attr_defs, "Nothing"), 0xFFFFFFFFu);

    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(db_.attr_defs, TAVLO_OBJ_NODE, "NodeLevel"), 1);
    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(db_.attr_defs, TAVLO_OBJ_SIGNAL, "NodeLevel"), 0);
    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(db_.attr_defs, TAVLO_OBJ_NODE, "Nothing"), 0);
    // Only the first definition of a name counts.
    attr_def* shadow = TAVLO_CREATE_ATTR_DEF();
    std::strcpy(shadow->name, "NodeLevel");
    shadow->object_type = TAVLO_OBJ_MESSAGE;
    TAVLO_GET_ATTR_DEF_NAME(db_.attr_defs, "EvAccess")->next = shadow;
    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(db_.attr_defs, TAVLO_OBJ_MESSAGE, "NodeLevel"),
              0);
}

TEST_F(Query, AttributeValuesAreFoundOnTheirObjects) {
    symblk* engine = TAVLO_GET_SYMBOL_NAME(db_.nodes, "Engine");
    sigblk* rpm = TAVLO_GET_SIGNAL(db_.messages, 0x100, "Rpm");
    env_var_blk* speed = TAVLO_GET_EVBLK_H(db_.envvars, 7);
    EXPECT_EQ(TAVLO_IS_DB_ATTRIBUTE_DEFINED(db_.db_attrs, "BusType"), 1);
    EXPECT_EQ(TAVLO_IS_SYM_ATTRIBUTE_DEFINED(engine, "NodeLevel"), 1);
    EXPECT_EQ(TAVLO_IS_SYM_ATTRIBUTE_DEFINED(engine, "MsgCycle"), 0);
    EXPECT_EQ(TAVLO_IS_MSG_ATTRIBUTE_DEFINED(EngineData(), "MsgCycle"), 1);
    EXPECT_EQ(TAVLO_IS_SIG_ATTRIBUTE_DEFINED(rpm, "SigNote"), 1);
    EXPECT_EQ(TAVLO_IS_EV_ATTRIBUTE_DEFINED(speed, "EnvMask"), 1);
    EXPECT_EQ(TAVLO_IS_ATTRIBUTE_DEFINED(nullptr, "EnvMask"), 0);

    tavlo_attr_value_t value;
    EXPECT_EQ(TAVLO_GET_DB_ATTRVAL(&value, db_.db_attrs, "BusType"), &value);
    EXPECT_EQ(value.number, 1.0);
    TAVLO_GET_SYM_ATTRVAL(&value, engine, "NodeLevel");
    EXPECT_EQ(value.number, 5.0);
    TAVLO_GET_MSG_ATTRVAL(&value, EngineData(), "MsgCycle");
    EXPECT_EQ(value.number, 20.0);
    TAVLO_GET_EV_ATTRVAL(&value, speed, "EnvMask");
    EXPECT_EQ(value.number, 255.0);
    // A text value is handed out as the database's own pointer.
    TAVLO_GET_SIG_ATTRVAL(&value, rpm, "SigNote");
    EXPECT_EQ(value.text, +rpm->attributes->value.text);
    EXPECT_STREQ(value.text, "fast");
    TAVLO_GET_ATTRVAL(&value, db_.db_attrs, "DBName");
    EXPECT_STREQ(value.text, "BodyNet");
}

TEST_F(Query, AMissingValueReadsAsZeroBytesNotAsTheDefault) {
    tavlo_attr_value_t value;
    std::memset(&value, 0xAB, sizeof value);
    TAVLO_GET_SYM_ATTRVAL(&value, TAVLO_GET_SYMBOL_NAME(db_.nodes, "Dash"), "NodeLevel");
    for (unsigned char byte : value.bytes) {
        EXPECT_EQ(byte, 0);
    }
    TAVLO_GET_ATTRDEFAULT(&value, db_.attr_defs, "NodeLevel");
    EXPECT_EQ(value.number, 3.0);
    TAVLO_GET_ATTRDEFAULT(&value, db_.attr_defs, "BusType");
    EXPECT_STREQ(value.text, "CAN");
    std::memset(&value, 0xAB, sizeof value);
    TAVLO_GET_ATTRDEFAULT(&value, db_.attr_defs, "Nothing");
    EXPECT_EQ(value.text, nullptr);
}

TEST_F(Query, ValueDescriptionsInBothDirections) {
    sigblk* rpm = TAVLO_GET_SIGNAL(db_.messages, 0x100, "Rpm");
    rpm->value_descriptions = AppendValue(AppendValue(rpm->value_descriptions, 5, "Idle"), 5, "Later");
    EXPECT_STREQ(TAVLO_GET_SIG_ENUMSYMBOL(rpm, 5), "Idle");
    EXPECT_EQ(TAVLO_GET_SIG_ENUMSYMBOL(rpm, 6), nullptr);
    EXPECT_EQ(TAVLO_GET_SIG_ENUMVALUE(rpm, "Idle"), 5);
    EXPECT_EQ(TAVLO_GET_SIG_ENUMVALUE(rpm, "Stopped"), 0);
    EXPECT_EQ(TAVLO_GET_SIG_ENUMVALUE(rpm, "Unknown"), 0);  // same as a description of 0
    env_var_blk* speed = TAVLO_GET_EVBLK_H(db_.envvars, 7);
    speed->value_descriptions = AppendValue(speed->value_descriptions, -3, "reverse");
    EXPECT_STREQ(TAVLO_GET_EV_ENUMSYMBOL(speed, -3), "reverse");
    EXPECT_EQ(TAVLO_GET_EV_ENUMVALUE(speed, "reverse"), -3);
    EXPECT_EQ(TAVLO_GET_EV_ENUMSYMBOL(speed, 1), nullptr);
    EXPECT_EQ(TAVLO_GET_SIG_FACTOR(rpm), 0.25);
    EXPECT_EQ(TAVLO_GET_SIG_OFFSET(rpm), -10.0);
}

TEST(FileComment, CopiesAtMostSizeMinusOneCharacters) {
    struct Case {
        const char* comment;
        int size;
        const char* buffer;  // what the caller then finds
        int result;
    };
    const Case cases[] = {
        {nullptr, 8, "", 0},     {"", 8, "", 0},       {"abc", 8, "abc", 3},
        {"abc", 4, "abc", 3},    {"abcdef", 4, "abc", 3}, {"abc", 1, "", 0},
    };
    for (const Case& c : cases) {
        char buffer[16];
        std::memset(buffer, 'x', sizeof buffer);
        buffer[c.size - 1] = '\0';  // the caller's last byte is zero
        EXPECT_EQ(TAVLO_GET_FILE_COMMENT(c.comment, buffer, c.size), c.result)
            << (c.comment != nullptr ? c.comment : "(null)") << " in " << c.size;
        EXPECT_STREQ(buffer, c.buffer);
    }
}

TEST(FileComment, AFullCopyIsNotTerminatedByItself) {
    char buffer[4] = {'x', 'x', 'x', 'x'};
    TAVLO_GET_FILE_COMMENT("abc", buffer, 4);
    EXPECT_EQ(std::string(buffer, 4), "abcx");
}

}  // namespace
