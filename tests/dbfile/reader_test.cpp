// Reading database files: every statement into its records, the decisions
// for what files from other tools do, and every failure with its text and
// line.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dbfile/input.h"
#include "dbfile/keywords.h"
#include "model/model.h"
#include "support/describe.h"
#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::ReadOutcome;
using tavlo::test::ReadText;

const char kHeader[] = "VERSION \"1.0\"\n\nNS_ :\n\tCM_\n\tSG_MUL_VAL_\n\nBS_:\n\nBU_: A B\n";

class Reader : public ::testing::Test {
protected:
    ~Reader() override { TAVLO_FREE_ROOT(&root_); }

    ReadOutcome Read(const std::string& body, bool withHeader = true) {
        return ReadText(withHeader ? kHeader + body : body, &root_);
    }

    // Reads a file that must read without any message.
    void ReadClean(const std::string& body) {
        const ReadOutcome outcome = Read(body);
        ASSERT_FALSE(outcome.raised);
        ASSERT_EQ(outcome.result, 0u);
        ASSERT_TRUE(outcome.messages.empty()) << outcome.messages.front();
    }

    msgblk* Message(unsigned int id) { return TAVLO_GET_MESSAGE(root_.messages, id); }
    sigblk* Signal(unsigned int id, const char* name) {
        return TAVLO_GET_SIGNAL(root_.messages, id, name);
    }
    symblk* Node(const char* name) { return TAVLO_GET_SYMBOL_NAME(root_.nodes, name); }

    std::vector<std::string> NodeNames() {
        std::vector<std::string> names;
        for (symblk* node = root_.nodes; node != nullptr; node = node->next) {
            names.push_back(node->name);
        }
        return names;
    }

    tavlo_root_t root_ = {};
};

const char kMessages[] =
    "BO_ 100 Engine: 8 A\n"
    " SG_ Mode M : 0|4@1+ (1,0) [0|15] \"\" B\n"
    " SG_ Speed m3 : 7|16@0- (0.01,-40) [-40|615.35] \"km/h\"  A,B\n"
    " SG_ Both m2M : 20|4@1+ (1,0) [0|0] \"\" Corvan__XXX\n"
    "\n"
    "BO_ 4294967295 Extended: 0 Corvan__XXX\n";

TEST_F(Reader, MessagesAndSignalsTakeEveryField) {
    ReadClean(kMessages);
    EXPECT_STREQ(root_.version, "1.0");
    msgblk* engine = Message(100);
    ASSERT_NE(engine, nullptr);
    EXPECT_STREQ(engine->name, "Engine");
    EXPECT_EQ(+engine->dlc, 8);
    EXPECT_EQ(+engine->signal_count, 3);
    EXPECT_EQ(+engine->transmitter, Node("A"));
    sigblk* mode = Signal(100, "Mode");
    ASSERT_NE(mode, nullptr);
    EXPECT_EQ(+mode->flags, TAVLO_SIG_MODE);
    EXPECT_EQ(+mode->receiver_count, 1);
    EXPECT_EQ(+mode->receivers->symbol, Node("B"));
    sigblk* speed = Signal(100, "Speed");
    ASSERT_NE(speed, nullptr);
    EXPECT_EQ(+speed->flags, TAVLO_SIG_MULTIPLEXED | TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED);
    EXPECT_EQ(+speed->mode_value, 3u);
    EXPECT_EQ(+speed->start_bit, 7);
    EXPECT_EQ(+speed->length, 16);
    EXPECT_EQ(+speed->factor, 0.01);
    EXPECT_EQ(+speed->offset, -40.0);
    EXPECT_EQ(+speed->minimum, -40.0);
    EXPECT_EQ(+speed->maximum, 615.35);
    EXPECT_STREQ(speed->unit, "km/h");
    EXPECT_EQ(+speed->receiver_count, 2);
    EXPECT_EQ(+speed->receivers->next->symbol, Node("B"));
    sigblk* both = Signal(100, "Both");
    ASSERT_NE(both, nullptr);
    EXPECT_EQ(+both->flags, TAVLO_SIG_MODE | TAVLO_SIG_MULTIPLEXED);
    EXPECT_EQ(+both->mode_value, 2u);
    EXPECT_EQ(+both->receivers, nullptr);
    msgblk* extended = Message(4294967295u);
    ASSERT_NE(extended, nullptr);
    EXPECT_EQ(+extended->transmitter, nullptr);
    EXPECT_EQ(+extended->signal_count, 0);
    EXPECT_EQ(NodeNames(), (std::vector<std::string>{"A", "B"}));
}

TEST_F(Reader, HeaderTimingsNodesAndValueTables) {
    const ReadOutcome outcome = ReadText(
        "VERSION \"\"\nNS_ :\nBS_: 500 : 12,34 125:1,2\nBU_: A Corvan__XXX B A\n"
        "VAL_TABLE_ Gears 0 \"P\" -1 \"R\" 4294967295 \"max\" ;\nVAL_TABLE_ Empty ;\n",
        &root_);
    ASSERT_FALSE(outcome.raised);
    ASSERT_NE(root_.bit_timings, nullptr);
    EXPECT_EQ(+root_.bit_timings->baudrate, 500);
    EXPECT_EQ(+root_.bit_timings->btr1, 12);
    EXPECT_EQ(+root_.bit_timings->btr2, 34);
    EXPECT_EQ(+root_.bit_timings->next->baudrate, 125);
    EXPECT_EQ(NodeNames(), (std::vector<std::string>{"A", "B"}));
    valtable* gears = TAVLO_GET_VALTABLE_NAME(root_.value_tables, "Gears");
    ASSERT_NE(gears, nullptr);
    val* entry = gears->value_descriptions;
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(+entry->value, 0);
    EXPECT_STREQ(entry->text, "P");
    EXPECT_EQ(+entry->next->value, -1);
    EXPECT_EQ(+entry->next->next->value, -1);  // 4294967295 as a 32-bit value
    EXPECT_STREQ(entry->next->next->text, "max");
    EXPECT_EQ(+TAVLO_GET_VALTABLE_NAME(root_.value_tables, "Empty")->value_descriptions, nullptr);
}

TEST_F(Reader, TransmittersCommentsValueDescriptionsGroupsAndTypes) {
    ReadClean(std::string(kMessages) +
              "BO_TX_BU_ 100 : A,B,C;\n"
              "CM_ \"file \\\"quoted\\\"\nsecond line\";\n"
              "CM_ BU_ A \"node\";\n"
              "CM_ BO_ 100 \"message\";\n"
              "CM_ SG_ 100 Speed \"first\";\n"
              "CM_ SG_ 100 Speed \"replaced\";\n"
              "VAL_ 100 Mode 1 \"one\" 2 \"two\" ;\n"
              "SIG_GROUP_ 100 Group 2 : Mode Speed;\n"
              "SIG_VALTYPE_ 100 Speed : 1;\n");
    msgblk* engine = Message(100);
    ASSERT_NE(+engine->transmitters, nullptr);
    EXPECT_EQ(+engine->transmitters->symbol, Node("A"));
    EXPECT_EQ(+engine->transmitters->next->next->symbol, Node("C"));
    EXPECT_STREQ(root_.comment, "file \"quoted\"\nsecond line");
    EXPECT_STREQ(Node("A")->comment, "node");
    EXPECT_STREQ(engine->comment, "message");
    EXPECT_STREQ(Signal(100, "Speed")->comment, "replaced");
    val* values = Signal(100, "Mode")->value_descriptions;
    ASSERT_NE(values, nullptr);
    EXPECT_STREQ(values->next->text, "two");
    siggroupblk* group = engine->signal_groups;
    ASSERT_NE(group, nullptr);
    EXPECT_STREQ(group->name, "Group");
    EXPECT_EQ(+group->repetitions, 2u);
    EXPECT_EQ(+group->message, engine);
    EXPECT_EQ(+group->signals->next->signal, Signal(100, "Speed"));
    EXPECT_EQ(+Signal(100, "Speed")->value_type, 1u);
    EXPECT_EQ(NodeNames(), (std::vector<std::string>{"A", "B", "C"}));
}

TEST_F(Reader, EnvironmentVariablesTakeTheirAccessWordAndNodes) {
    ReadClean(
        "EV_ Plain: 0 [0|100] \"V\" 5 1 DUMMY_NODE_CORVAN0 Corvan__XXX;\n"
        "EV_ Text: 0 [0|0] \"\" 0 2 DUMMY_NODE_CORVAN8003  A,New;\n"
        "EV_ Blob: 0 [0|0] \"\" 0 3 DUMMY_NODE_CORVAN1 Corvan__XXX;\n"
        "EV_ Legacy: 1 [-1.5|1.5] \"\" 0.5 4 B;\n"
        "ENVVAR_DATA_ Blob: 12;\n"
        "EV_DATA_ Text: 4;\n"
        "VAL_ Plain 0 \"off\" 1 \"on\" ;\n"
        "CM_ EV_ Plain \"variable\";\n");
    env_var_blk* plain = TAVLO_GET_EVBLK_NAME(root_.envvars, "Plain");
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(+plain->type, TAVLO_ENV_INTEGER);
    EXPECT_STREQ(plain->unit, "V");
    EXPECT_EQ(+plain->maximum, 100.0);
    EXPECT_EQ(+plain->initial_value, 5.0);
    EXPECT_EQ(+plain->id, 1u);
    EXPECT_EQ(+plain->access_type, 0u);
    EXPECT_EQ(+plain->access_nodes, nullptr);
    EXPECT_STREQ(plain->comment, "variable");
    EXPECT_STREQ(plain->value_descriptions->next->text, "on");
    env_var_blk* text = TAVLO_GET_EVBLK_NAME(root_.envvars, "Text");
    // 0x8000 in the access word makes a string variable; the data line that
    // follows makes it a data variable.
    EXPECT_EQ(+text->type, TAVLO_ENV_DATA);
    EXPECT_EQ(+text->data_length, 4u);
    EXPECT_EQ(+text->access_type, 0x3u);
    EXPECT_EQ(+text->access_node_count, 2);
    EXPECT_EQ(+text->access_nodes->next->symbol, Node("New"));
    env_var_blk* blob = TAVLO_GET_EVBLK_NAME(root_.envvars, "Blob");
    EXPECT_EQ(+blob->type, TAVLO_ENV_DATA);
    EXPECT_EQ(+blob->data_length, 12u);
    env_var_blk* legacy = TAVLO_GET_EVBLK_NAME(root_.envvars, "Legacy");
    EXPECT_EQ(+legacy->type, TAVLO_ENV_FLOAT);
    EXPECT_EQ(+legacy->minimum, -1.5);
    EXPECT_EQ(+legacy->access_type, 0x2u);  // a node in the word's place
    EXPECT_EQ(+legacy->access_nodes->symbol, Node("B"));
    EXPECT_EQ(NodeNames(), (std::vector<std::string>{"A", "B", "New"}));
}

TEST_F(Reader, StringVariableKeepsItsTypeWithoutData) {
    ReadClean("EV_ Name: 0 [0|0] \"\" 0 7 DUMMY_NODE_CORVAN8001 Corvan__XXX;\n");
    env_var_blk* name = root_.envvars;
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(+name->type, TAVLO_ENV_STRING);
    EXPECT_EQ(+name->access_type, 1u);
}

const char kDefinitions[] =
    "BA_DEF_  \"DbInt\" INT -5 10;\n"
    "BA_DEF_ BU_  \"NodeText\" STRING ;\n"
    "BA_DEF_ BO_  \"Cycle\" INT 0 18446744073709551615;\n"
    "BA_DEF_ SG_  \"Start\" FLOAT -1.5 +2.5E3;\n"
    "BA_DEF_ EV_  \"EvHex\" HEX 0 255;\n"
    "BA_DEF_ SG_  \"Kind\" ENUM  \"a\",\"corvan_leerstring\",\"b\";\n"
    "BA_DEF_SGTYPE_ \"Kind\";\n"
    "BA_DEF_ SG_  \"SigEnum\" ENUM  \"Off\",\"On\";\n"
    "BA_DEF_REL_ BU_SG_REL_  \"RxTime\" INT 0 100;\n"
    "BA_DEF_REL_ BU_BO_REL_  \"TxTime\" INT 0 100;\n"
    "BA_DEF_REL_ BU_EV_REL_  \"EvRel\" STRING ;\n"
    "BA_DEF_DEF_  \"DbInt\" 3;\n"
    "BA_DEF_DEF_  \"NodeText\" \"none\";\n"
    "BA_DEF_DEF_  \"SigEnum\" \"On\";\n"
    "BA_DEF_DEF_REL_ \"RxTime\" 7;\n";

TEST_F(Reader, AttributeDefinitionsAndDefaults) {
    ReadClean(kDefinitions);
    struct Case {
        const char* name;
        unsigned int objectType;
        unsigned int valueType;
        double minimum;
        double maximum;
    };
    const Case cases[] = {
        {"DbInt", TAVLO_OBJ_NETWORK, TAVLO_ATTR_INT, -5, 10},
        {"NodeText", TAVLO_OBJ_NODE, TAVLO_ATTR_STRING, 0, 0},
        {"Cycle", TAVLO_OBJ_MESSAGE, TAVLO_ATTR_INT, 0, 18446744073709551615.0},
        {"Start", TAVLO_OBJ_SIGNAL, TAVLO_ATTR_FLOAT, -1.5, 2500},
        {"EvHex", TAVLO_OBJ_ENVVAR, TAVLO_ATTR_HEX, 0, 255},
        {"Kind", TAVLO_OBJ_SIGTYPE, TAVLO_ATTR_ENUM, 0, 0},
        {"RxTime", TAVLO_OBJ_NODE_SIGNAL, TAVLO_ATTR_INT, 0, 100},
        {"TxTime", TAVLO_OBJ_NODE_MESSAGE, TAVLO_ATTR_INT, 0, 100},
        {"EvRel", TAVLO_OBJ_NODE_ENVVAR, TAVLO_ATTR_STRING, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        attr_def* def = TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, c.name);
        ASSERT_NE(def, nullptr);
        EXPECT_EQ(+def->object_type, c.objectType);
        EXPECT_EQ(+def->value_type, c.valueType);
        if (c.valueType != TAVLO_ATTR_STRING && c.valueType != TAVLO_ATTR_ENUM) {
            EXPECT_EQ(+def->minimum.number, c.minimum);
            EXPECT_EQ(+def->maximum, c.maximum);
        }
    }
    EXPECT_STREQ(TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, "Kind")->minimum.text, "a\n\nb");
    EXPECT_EQ(+TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, "DbInt")->default_value.number, 3.0);
    EXPECT_STREQ(TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, "NodeText")->default_value.text, "none");
    EXPECT_STREQ(TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, "SigEnum")->default_value.text, "On");
    EXPECT_EQ(+TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, "RxTime")->default_value.number, 7.0);
    EXPECT_EQ(+TAVLO_GET_ATTR_DEF_NAME(root_.attr_defs, "Start")->default_value.number, -1.5);
}

TEST_F(Reader, AttributeValuesOnEveryKindOfObject) {
    ReadClean(std::string(kMessages) +
              "EV_ Var: 0 [0|1] \"\" 0 1 DUMMY_NODE_CORVAN0 A;\n"
              "SGTYPE_ Type : 8@1+ (1,0) [0|255] \"\"  0;\n" + kDefinitions +
              "BA_ \"DbInt\" 4;\n"
              "BA_ \"NodeText\" BU_ Fresh \"text\";\n"
              "BA_ \"Cycle\" BO_ 100 100;\n"
              "BA_ \"Cycle\" BO_ 100 200;\n"
              "BA_ \"Start\" SG_ 100 Speed +1.25;\n"
              "BA_ \"SigEnum\" SG_ 100 Mode \"On\";\n"
              "BA_ \"SigEnum\" SG_ 100 Speed 0;\n"
              "BA_ \"EvHex\" EV_ Var 16;\n"
              "BA_SGTYPE_ \"Kind\" SGTYPE_ Type 2;\n"
              "BA_REL_ \"RxTime\" BU_SG_REL_ A SG_ 100 Speed 9;\n"
              "BA_REL_ \"TxTime\" BU_BO_REL_ A 100 11;\n"
              "BA_REL_ \"EvRel\" BU_EV_REL_ A Var \"rel\";\n");
    ASSERT_NE(root_.db_attrs, nullptr);
    EXPECT_EQ(+root_.db_attrs->value.number, 4.0);
    symblk* fresh = Node("Fresh");  // named by an attribute only: appended
    ASSERT_NE(fresh, nullptr);
    EXPECT_STREQ(fresh->attributes->value.text, "text");
    attr* cycle = Message(100)->attributes;
    ASSERT_NE(cycle, nullptr);
    EXPECT_EQ(+cycle->next, nullptr);  // the second value replaced the first
    EXPECT_EQ(+cycle->value.number, 200.0);
    EXPECT_EQ(+Signal(100, "Speed")->attributes->value.number, 1.25);
    EXPECT_EQ(+Signal(100, "Speed")->attributes->next->value.number, 0.0);
    EXPECT_EQ(+Signal(100, "Mode")->attributes->value.number, 1.0);  // "On" is index 1
    EXPECT_EQ(+root_.envvars->attributes->value.number, 16.0);
    EXPECT_EQ(+root_.sig_types->attributes->value.number, 2.0);
    rxblk* receiver = Signal(100, "Speed")->receivers;
    EXPECT_EQ(+receiver->symbol, Node("A"));
    EXPECT_EQ(+receiver->attributes->value.number, 9.0);
    rxblk* transmitter = Message(100)->transmitters;  // made for the value
    ASSERT_NE(transmitter, nullptr);
    EXPECT_EQ(+transmitter->symbol, Node("A"));
    EXPECT_EQ(+transmitter->attributes->value.number, 11.0);
    EXPECT_STREQ(root_.envvars->access_nodes->attributes->value.text, "rel");
}

TEST_F(Reader, SignalTypesCategoriesAndTheViewFilter) {
    ReadClean(std::string(kMessages) +
              "VAL_TABLE_ Table 0 \"zero\" ;\n"
              "SGTYPE_ Type : 16@0- (0.5,1) [-10|10] \"m\"  2 Table;\n"
              "SGTYPE_VAL_ Type 0 \"dropped\" ;\n"
              "SIG_TYPE_REF_ 100 Speed : Type;\n"
              "SIGTYPE_VALTYPE_ Type : 2;\n"
              "CM_ SGTYPE_ Type \"type\";\n"
              "CAT_DEF_ 1 Powertrain 7;\n"
              "CAT_DEF_ -2 Body -3;\n"
              "CAT_ BU_ A 1;\n"
              "CAT_ BO_ 100 -2;\n"
              "FILTER 3 CAT_ 1 0 BU_ A \"<<none>>\" Corvan__XXX ;\n");
    sigtype* type = root_.sig_types;
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(+type->length, 16);
    EXPECT_EQ(+type->flags, TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED);
    EXPECT_EQ(+type->factor, 0.5);
    EXPECT_EQ(+type->default_value, 2.0);
    EXPECT_EQ(+type->value_list, root_.value_tables);
    EXPECT_EQ(+type->value_type, 2u);
    EXPECT_STREQ(type->comment, "type");
    EXPECT_EQ(+Signal(100, "Speed")->sig_type, type);
    cat* body = TAVLO_GET_CATEGORY(root_.categories, -2);
    ASSERT_NE(body, nullptr);
    EXPECT_EQ(+body->value, -3);
    EXPECT_EQ(+Node("A")->category, TAVLO_GET_CATEGORY(root_.categories, 1));
    EXPECT_EQ(+Message(100)->category, body);
    EXPECT_EQ(+root_.filter.number, 3);
    ASSERT_NE(root_.filter.categories, nullptr);
    EXPECT_EQ(+root_.filter.categories->act, TAVLO_GET_CATEGORY(root_.categories, 1));
    ASSERT_NE(+root_.filter.categories->next, nullptr);
    EXPECT_EQ(+root_.filter.categories->next->act, nullptr);
    rxblk* nodes = root_.filter.nodes;
    ASSERT_NE(nodes, nullptr);
    EXPECT_EQ(+nodes->symbol, Node("A"));
    ASSERT_NE(+nodes->next, nullptr);
    EXPECT_EQ(+nodes->next->symbol, nullptr);
    ASSERT_NE(+nodes->next->next, nullptr);
    EXPECT_EQ(+nodes->next->next->symbol, nullptr);
}

TEST_F(Reader, StatementsAfterTheHeaderComeInAnyOrder) {
    ReadClean(
        "BA_DEF_ BO_  \"Cycle\" INT 0 100;\n"
        "BO_ 1 First: 8 A\n SG_ S : 0|8@1+ (1,0) [0|0] \"\" B\n"
        "BA_ \"Cycle\" BO_ 1 10;\n"
        "CM_ SG_ 1 S \"early\";\n"
        "VAL_TABLE_ Late 1 \"x\" ;\n"
        "BA_DEF_DEF_  \"Cycle\" 5;\n"
        "BO_ 2 Second: 8 B\n");
    EXPECT_EQ(+Message(1)->attributes->value.number, 10.0);
    EXPECT_STREQ(Signal(1, "S")->comment, "early");
    EXPECT_NE(Message(2), nullptr);
    EXPECT_EQ(+Message(1)->next, Message(2));
}

TEST_F(Reader, IgnoresNewSymbolsAndDescriptionsWithAWarningEach) {
    const ReadOutcome outcome = Read(
        "NS_DESC_ : BO_ Message EV_DATA_ Environment variable of type \"DATA\" ;\n"
        "SG_MUL_VAL_ 100 Speed Mode 3-3;\n"
        "BO_ 7 M: 1 A\n"
        "SG_MUL_VAL_ 7 x y 1-1;\n");
    EXPECT_FALSE(outcome.raised);
    EXPECT_EQ(outcome.result, 0u);
    EXPECT_EQ(outcome.messages, (std::vector<std::string>{
                                    "new symbol not supported, line 10, SG_MUL_VAL_",
                                    "new symbol not supported, line 12, SG_MUL_VAL_"}));
    EXPECT_NE(Message(7), nullptr);
}

TEST_F(Reader, NullFileNameReadsNothingButGivesAVersion) {
    symblk* marker = reinterpret_cast<symblk*>(&root_);
    root_.nodes = marker;
    const unsigned int result =
        TAVLO_READ(nullptr, &root_.nodes, &root_.messages, &root_.envvars, &root_.bit_timings,
                   &root_.attr_defs, &root_.db_attrs, &root_.categories, &root_.filter,
                   &root_.comment, &root_.version, &root_.sig_types, &root_.value_tables);
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(root_.nodes, marker);
    ASSERT_NE(root_.version, nullptr);
    EXPECT_STREQ(root_.version, "");
    root_.nodes = nullptr;
}

// A missing file and what cannot be read as a file (a directory) alike.
TEST_F(Reader, UnreadableFileIsReportedWithItsName) {
    const std::string directory = tavlo::test::TestFilePath(".dir");
    std::filesystem::create_directories(directory);
    for (const std::string& path : {tavlo::test::TestFilePath(".missing"), directory}) {
        const ReadOutcome outcome = tavlo::test::ReadDatabase(path, &root_);
        EXPECT_TRUE(outcome.raised);
        EXPECT_EQ(outcome.messages, std::vector<std::string>{"database: not found, " + path});
    }
    std::filesystem::remove(directory);
}

// Every failure: the file, the exact message, whether it raises (else the
// read returns 15).
TEST_F(Reader, FailuresShowTheirTextAndLine) {
    struct Case {
        const char* name;
        std::string text;
        std::string message;
        bool raises;
    };
    const std::string messages(kMessages);  // header lines 0-8, messages 9-14
    const Case cases[] = {
        {"syntax error in the first line", "BO_ x y\n", ", error: syntax", true},
        {"syntax error later", messages + "BO_TX_BU_ 100 A;\n", ", line 15, error: syntax", true},
        {"bad exponent", "VERSION \"\"\nBS_:\nBU_:\nBO_ 1 M: 1e X\n", ", line 3, error: syntax",
         true},
        {"duplicate definition", "BA_DEF_ \"X\" INT 0 1;\n\nBA_DEF_ BO_ \"X\" STRING;\n",
         "!=Datenbasis: doppelte Definition von Symbol ignoriert, line 11, X", true},
        {"duplicate message", messages + "BO_ 100 Again: 1 A\n",
         "!=Datenbasis: doppelte Definition von Symbol ignoriert, line 15, Again", true},
        {"default of an unknown attribute", "BA_DEF_DEF_ \"Nope\" 1;\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 9, Nope", true},
        {"unknown message", "CM_ BO_ 77 \"x\";\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 9, 77", true},
        {"unknown signal", messages + "VAL_ 100\n Nope 1 \"x\";\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 16, Nope", true},
        {"unknown variable", "CM_ EV_ Nope \"x\";\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 9, Nope", true},
        {"unknown value table", "SGTYPE_ T : 8@1+ (1,0) [0|0] \"\"  0 Nope;\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 9, Nope", true},
        {"unknown signal type", messages + "SIG_TYPE_REF_ 100 Speed : Nope;\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 15, Nope", true},
        {"unknown message of transmitters", "BO_TX_BU_ 5 : A,B;\n",
         "!=Datenbasis: unbekanntes Symbol neu definiert, line 9, Msg &lu", true},
        {"value of an undefined attribute", "BA_ \"Nope\" 1;\n",
         "undefined attribute, line 9, Nope", true},
        {"text for a number", "BA_DEF_ \"N\" INT 0 1;\nBA_ \"N\" \"x\";\n",
         "database: illegal mode, line 10, N", true},
        {"number for a text", "BA_DEF_ \"T\" STRING;\nBA_ \"T\" 1;\n",
         "database: illegal mode, line 10, T", true},
        {"unknown enumeration text", "BA_DEF_ \"E\" ENUM \"a\";\nBA_ \"E\" \"b\";\n",
         "database: illegal mode, line 10, E", true},
        {"value for another kind of object", messages + "BA_DEF_ BU_ \"N\" INT 0 1;\nBA_ \"N\" BO_ 100 1;\n",
         "database: illegal mode, line 16, N", true},
        {"multiplexer form", "BO_ 1 M: 1 A\n SG_ S m1x : 0|1@1+ (1,0) [0|0] \"\" A\n",
         "database: illegal mode, line 10, m1x", true},
        {"unknown category", "CAT_ BU_ A\n 4;\n", "unknoen category, line 10", true},
        {"unknown filter category", "FILTER 1 CAT_ 2 BU_ ;\n", "unknoen category, line 9", true},
        {"variable type", "EV_ V: 2 [0|1] \"\" 0 1 DUMMY_NODE_CORVAN0 Corvan__XXX;\n",
         "type of environment variable not allowed, line 9", true},
        {"data of an unknown variable", "ENVVAR_DATA_ Nope: 4;\n",
         "Database: unknown environment variable of type data, type ignored, line 9, Nope",
         false},
        {"signal-type attribute never defined", "BA_DEF_SGTYPE_ \"Nope\";\n",
         "undefined attribute, line 9, Nope", false},
        {"name too long", std::string(81, 'x') + " ",
         "database: invalid char in symbol, line 9, " + std::string(80, 'x'), true},
        {"number too long", "BO_ " + std::string(81, '1') + " M: 1 A\n",
         "database: invalid char in symbol, line 9, " + std::string(80, '1'), true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TAVLO_FREE_ROOT(&root_);
        root_ = tavlo_root_t();
        const bool withHeader = std::string(c.name) != "syntax error in the first line" &&
                                std::string(c.name) != "bad exponent";
        const ReadOutcome outcome = Read(c.text, withHeader);
        EXPECT_EQ(outcome.raised, c.raises);
        if (!c.raises) {
            EXPECT_EQ(outcome.result, 15u);
        }
        EXPECT_EQ(outcome.messages, std::vector<std::string>{c.message});
        EXPECT_FALSE(tavlo::dbfile::IsInputOpen());
    }
}

TEST_F(Reader, FailedReadKeepsWhatWasLinkedBeforeTheError) {
    const ReadOutcome outcome = Read(std::string(kMessages) +
                                     "BO_ 200 Partial: 8 A\n"
                                     " SG_ Good : 0|8@1+ (1,0) [0|0] \"\" A\n"
                                     " SG_ Bad : 8|8@1+ (1,0) [0|0] \"\" A,\n");
    EXPECT_TRUE(outcome.raised);
    ASSERT_NE(Message(200), nullptr);
    EXPECT_NE(Signal(200, "Good"), nullptr);
    EXPECT_NE(Signal(200, "Bad"), nullptr);
    EXPECT_NE(Message(100), nullptr);
}

TEST_F(Reader, RunningOutOfMemoryIsReportedWithoutALine) {
    const std::string text = std::string(kHeader) + kMessages + "CM_ BO_ 100 \"text\";\n";
    // Fail every allocation from the first on, then later ones: each read
    // either succeeds or reports exactly "not enough memory", and nothing
    // leaks once the partial lists are released.
    for (long allowed = 0; allowed < 40; ++allowed) {
        SCOPED_TRACE(allowed);
        TAVLO_FREE_ROOT(&root_);
        root_ = tavlo_root_t();
        root_.version = tavlo::model::DuplicateText("");
        tavlo::dbfile::FreeNewSymbols();
        const long before = tavlo::model::LiveAllocations();
        tavlo::model::FailAllocationsAfter(allowed);
        const ReadOutcome outcome = ReadText(text, &root_);
        tavlo::model::FailAllocationsAfter(-1);
        if (outcome.raised) {
            EXPECT_EQ(outcome.messages, std::vector<std::string>{"not enough memory"});
        } else {
            EXPECT_TRUE(outcome.messages.empty());
        }
        TAVLO_FREE_ROOT(&root_);
        root_ = tavlo_root_t();
        tavlo::dbfile::FreeNewSymbols();  // a failed read leaves them to the next
        EXPECT_EQ(tavlo::model::LiveAllocations(), before - 1);  // the version went too
    }
}

}  // namespace

namespace {

// An error right after a text or an entry was read must not lose it: every
// block the read made is in the lists and goes with them.
TEST(ReaderErrors, ErrorAfterATextOrEntryLosesNothing) {
    const char* texts[] = {
        "VERSION \"\" \xff",
        "VERSION \"\"\nCM_ \"x\"\xff",
        "VERSION \"\"\nBO_ 1 M: 1 A\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" A\nCM_ SG_ 1 S \"x\"\xff",
        "VERSION \"\"\nBA_DEF_  \"S\" STRING ;\nBA_ \"S\" \"x\"\xff",
        "VERSION \"\"\nBA_DEF_  \"A\" ENUM  \"x\";\xff",
        "VERSION \"\"\nVAL_TABLE_ T 1 \"a\" \xff",
        "VERSION \"\"\nBO_ 1 M: 1 A\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" A\nVAL_ 1 S 1 \"a\" \xff",
    };
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        tavlo::dbfile::FreeNewSymbols();
        const long before = tavlo::model::LiveAllocations();
        tavlo_root_t root = {};
        const ReadOutcome outcome = ReadText(text, &root);
        EXPECT_TRUE(outcome.raised);
        TAVLO_FREE_ROOT(&root);
        EXPECT_EQ(tavlo::model::LiveAllocations(), before);
    }
}

}  // namespace

namespace {

// Signal lines written plainly are read in one go; every other form token
// by token. Both must give the same records: each line is read as it is and
// again with a line feed after its ":", which always takes the token path.
TEST(ReaderSignalLayout, PlainAndTokenPathsAgree) {
    const char* layouts[] = {
        "7|16@0+ (0.01,-40) [-40|615.35] \"km/h\"",
        "0|1@1- (1,0) [0|1] \"\"",
        " 63 | 64 @ 1 + ( 1 , 0 ) [ 0 | 18446744073709551615 ] \"\"",
        "\t8|8@1+\t(+0.5,+1)\t[-1.5|+2.5]\t\"x\"",
        "8|8@1+ (1e3,2.5E-3) [1.|2.] \"u\"",
        "8|8@1+ (0.1234567890123456789,0) [0|1] \"u\"",
        "8|8@1+ (123456789012345678,0) [0|1] \"u\"",
        "8|8@1+ (1,0) [0|1] \"a\\\"b\\c\"",
        "8|8@1+ (1,0) [0|1] \"a unit longer than thirty-two characters\"",
        "8|8@1+ (1,0) [0|1] \"\xb0" "C\"",
        "008|0016@01+ (0.000001,-0.0) [-0|1] \"\"",
    };
    for (const char* layout : layouts) {
        SCOPED_TRACE(layout);
        const std::string head = "VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n SG_ S :";
        const std::string tail = std::string(layout) + " A\nCM_ SG_ 1 S \"c\";\n";
        tavlo_root_t plain = {};
        tavlo_root_t tokens = {};
        const ReadOutcome first = ReadText(head + " " + tail, &plain);
        const ReadOutcome second = ReadText(head + "\n" + tail, &tokens);
        EXPECT_FALSE(first.raised);
        EXPECT_FALSE(second.raised);
        EXPECT_EQ(tavlo::test::DescribeDatabase(plain), tavlo::test::DescribeDatabase(tokens));
        ASSERT_NE(plain.messages, nullptr);
        EXPECT_NE(+plain.messages->signals, nullptr);
        TAVLO_FREE_ROOT(&plain);
        TAVLO_FREE_ROOT(&tokens);
    }
}

TEST(ReaderSignalLayout, BadLayoutsFailAsTheTokenPathSays) {
    struct Case {
        const char* layout;
        const char* message;
    };
    const Case cases[] = {
        {"7|16@2+ (1,0) [0|1] \"\"", ", line 4, error: syntax"},
        {"7|65536@1+ (1,0) [0|1] \"\"", ", line 4, error: syntax"},
        {"7|16@1* (1,0) [0|1] \"\"", ", line 4, error: syntax"},
        {"7.5|16@1+ (1,0) [0|1] \"\"", ", line 4, error: syntax"},
        {"7|16@1+ (1x,0) [0|1] \"\"", ", line 4, error: syntax"},
        {"7|16@1+ (1,0) [0|1e] \"\"", ", line 4, error: syntax"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.layout);
        tavlo_root_t root = {};
        const ReadOutcome outcome = ReadText(
            std::string("VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n SG_ S : ") + c.layout + " A\n",
            &root);
        EXPECT_TRUE(outcome.raised);
        EXPECT_EQ(outcome.messages, std::vector<std::string>{c.message});
        TAVLO_FREE_ROOT(&root);
    }
}

}  // namespace

namespace {

// Attribute names are cut to 32 characters and read tabs as blanks in
// definitions, defaults and values alike.
TEST(ReaderAttributeNames, LongAndTabbedNamesMatchThroughout) {
    const std::string longName = "AnAttributeNameOfMoreThan32Characters";
    tavlo_root_t root = {};
    const ReadOutcome outcome = ReadText(
        "VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n"
        "BA_DEF_ BO_  \"" + longName + "\" INT 0 9;\n"
        "BA_DEF_  \"Tab\tName\" STRING ;\n"
        "BA_DEF_DEF_  \"" + longName + "\" 3;\n"
        "BA_DEF_DEF_  \"Tab Name\" \"t\";\n"
        "BA_ \"" + longName + "\" BO_ 1 4;\n"
        "BA_ \"Tab\tName\" \"v\";\n",
        &root);
    EXPECT_FALSE(outcome.raised);
    EXPECT_TRUE(outcome.messages.empty());
    attr_def* cut = TAVLO_GET_ATTR_DEF_NAME(root.attr_defs, longName.substr(0, 32).c_str());
    ASSERT_NE(cut, nullptr);
    EXPECT_EQ(+cut->default_value.number, 3.0);
    attr_def* tabbed = TAVLO_GET_ATTR_DEF_NAME(root.attr_defs, "Tab Name");
    ASSERT_NE(tabbed, nullptr);
    EXPECT_STREQ(tabbed->default_value.text, "t");
    ASSERT_NE(root.messages, nullptr);
    ASSERT_NE(+root.messages->attributes, nullptr);
    EXPECT_EQ(+root.messages->attributes->value.number, 4.0);
    ASSERT_NE(root.db_attrs, nullptr);
    EXPECT_STREQ(root.db_attrs->value.text, "v");
    TAVLO_FREE_ROOT(&root);
}

}  // namespace

namespace {

// A node name that "BU_" did not declare makes a new node at the end of the
// node list, wherever it stands; "Corvan__XXX" never does.
TEST(ReaderNodes, UndeclaredNodesAreAppendedWhereverTheyStand) {
    const std::string base =
        "VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" A\n"
        "EV_ V: 0 [0|1] \"\" 0 1 DUMMY_NODE_CORVAN0 A;\nCAT_DEF_ 1 C 0;\n"
        "BA_DEF_ BU_ \"N\" INT 0 1;\nBA_DEF_REL_ BU_SG_REL_ \"R\" INT 0 1;\n";
    const char* statements[] = {
        "BO_ 2 T: 8 New\n",
        "BO_ 2 T: 8 A\n SG_ X : 0|1@1+ (1,0) [0|1] \"\" A,New\n",
        "BO_TX_BU_ 1 : A,New;\n",
        "CM_ BU_ New \"c\";\n",
        "BA_ \"N\" BU_ New 1;\n",
        "BA_REL_ \"R\" BU_SG_REL_ New SG_ 1 S 1;\n",
        "CAT_ BU_ New 1;\n",
        "FILTER 1 CAT_ 1 BU_ New ;\n",
        "EV_ W: 0 [0|1] \"\" 0 2 DUMMY_NODE_CORVAN0  A,New;\n",
    };
    for (const char* statement : statements) {
        SCOPED_TRACE(statement);
        tavlo_root_t root = {};
        const ReadOutcome outcome = ReadText(base + statement, &root);
        EXPECT_FALSE(outcome.raised);
        ASSERT_NE(root.nodes, nullptr);
        ASSERT_NE(+root.nodes->next, nullptr);
        EXPECT_STREQ(root.nodes->next->name, "New");
        EXPECT_EQ(+root.nodes->next->next, nullptr);
        TAVLO_FREE_ROOT(&root);
    }
    tavlo_root_t root = {};
    ReadText(base + "BO_ 2 T: 8 Corvan__XXX\n SG_ X : 0|1@1+ (1,0) [0|1] \"\" Corvan__XXX\n",
             &root);
    ASSERT_NE(root.nodes, nullptr);
    EXPECT_EQ(+root.nodes->next, nullptr);
    TAVLO_FREE_ROOT(&root);
}

}  // namespace
