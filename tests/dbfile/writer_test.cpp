// Writing database files: the exact text of every line form, the order of
// the sections, the conditions under which sections and lines are written,
// quoting, the ENUM placeholder, and the failure to open the file.
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dbfile/keywords.h"
#include "dbfile/writer.h"
#include "model/model.h"
#include "support/death.h"
#include "support/message_capture.h"
#include "support/read_database.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::AppendNumberAttr;
using tavlo::test::AppendRelation;
using tavlo::test::AppendTextAttr;
using tavlo::test::AppendValue;
using tavlo::test::FileContent;
using tavlo::test::MessageCapture;
using tavlo::test::Text;

// A database root released at the end of the test, with definitions that
// values refer to but that are not in its list.
struct Database {
    tavlo_root_t root{};
    attr_def* unlisted = nullptr;
    ~Database() {
        TAVLO_FREE_ROOT(&root);
        tavlo::model::ReleaseAttrDefs(unlisted);
    }
};

void SetName(char* field, const char* name) {
    tavlo::model::CopyName(field, name);
}

symblk* AddNode(tavlo_root_t& db, const char* name) {
    symblk* node = TAVLO_CREATE_SYMBOL();
    SetName(node->name, name);
    tavlo::model::AppendTail(&db.nodes, node);
    return node;
}

msgblk* AddMessage(tavlo_root_t& db, unsigned int id, const char* name) {
    msgblk* message = TAVLO_CREATE_MSGBLK();
    message->id = id;
    SetName(message->name, name);
    message->signal_count = 0;
    tavlo::model::AppendTail(&db.messages, message);
    return message;
}

sigblk* AddSignal(msgblk* message, const char* name) {
    sigblk* signal = TAVLO_CREATE_SIGBLK();
    SetName(signal->name, name);
    sigblk* signals = message->signals;
    tavlo::model::AppendTail(&signals, signal);
    message->signals = signals;
    return signal;
}

env_var_blk* AddEnvvar(tavlo_root_t& db, const char* name, unsigned int type) {
    env_var_blk* envvar = TAVLO_CREATE_EVBLK();
    SetName(envvar->name, name);
    envvar->type = type;
    tavlo::model::AppendTail(&db.envvars, envvar);
    return envvar;
}

attr_def* AddDef(attr_def** list, const char* name, unsigned int objectType,
                 unsigned int valueType) {
    attr_def* def = TAVLO_CREATE_ATTR_DEF();
    SetName(def->name, name);
    def->object_type = objectType;
    def->value_type = valueType;
    tavlo::model::AppendTail(list, def);
    return def;
}

cat* AddCategory(tavlo_root_t& db, short number, const char* name) {
    cat* category = TAVLO_CREATE_CATEGORY();
    category->number = number;
    SetName(category->name, name);
    tavlo::model::AppendTail(&db.categories, category);
    return category;
}

void AddFilterCategory(tavlo_root_t& db, cat* category) {
    filtercatblk* entry = tavlo::model::Allocate<filtercatblk>();
    entry->act = category;
    tavlo::model::AppendTail(&db.filter.categories, entry);
}

void AddFilterNode(tavlo_root_t& db, symblk* node) {
    rxblk* entry = tavlo::model::Allocate<rxblk>();
    entry->symbol = node;
    tavlo::model::AppendTail(&db.filter.nodes, entry);
}

// The lines of a text that begin with `prefix`, without their line feeds.
std::vector<std::string> LinesStartingWith(const std::string& text, const std::string& prefix) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t end = text.find('\n', begin);
        if (end == std::string::npos) {
            end = text.size();
        }
        if (text.compare(begin, prefix.size(), prefix) == 0) {
            lines.push_back(text.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return lines;
}

class Writer : public ::testing::Test {
protected:
    // Each write goes to a file of its own in the temporary directory: tests
    // run in parallel processes.
    std::string NextPath() {
        return ::testing::TempDir() + "tavloms_writer_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
               std::to_string(getpid()) + "_" + std::to_string(++writes_) + ".dbc";
    }

    std::string Write(const tavlo_root_t& db) {
        const std::string path = NextPath();
        EXPECT_EQ(TAVLO_WRITE(path.c_str(), db.nodes, db.messages, db.envvars, db.bit_timings,
                              db.attr_defs, db.db_attrs, db.categories, db.filter, db.comment,
                              db.version, db.sig_types, db.value_tables),
                  0u);
        std::string text = FileContent(path);
        std::remove(path.c_str());
        return text;
    }

private:
    int writes_ = 0;
};

constexpr char kNewSymbolBlock[] =
    "\nNS_ : \n"
    "\tNS_DESC_\n\tCM_\n\tBA_DEF_\n\tBA_\n\tVAL_\n\tCAT_DEF_\n\tCAT_\n\tFILTER\n"
    "\tBA_DEF_DEF_\n\tEV_DATA_\n\tENVVAR_DATA_\n\tSGTYPE_\n\tSGTYPE_VAL_\n\tBA_DEF_SGTYPE_\n"
    "\tBA_SGTYPE_\n\tSIG_TYPE_REF_\n\tVAL_TABLE_\n\tSIG_GROUP_\n\tSIG_VALTYPE_\n"
    "\tSIGTYPE_VALTYPE_\n\tBO_TX_BU_\n\tBA_DEF_REL_\n\tBA_REL_\n\tBA_DEF_DEF_REL_\n"
    "\tBU_SG_REL_\n\tBU_EV_REL_\n\tBU_BO_REL_\n";

// Every section and line form in order, from a database with every kind of
// record.
TEST_F(Writer, WritesTheSampleDatabaseSectionBySection) {
    Database db;
    db.root = tavlo::test::BuildSampleDatabase();
    const std::string expected = std::string("VERSION \"1.0\"\n\n") + kNewSymbolBlock +
        "\n"
        "BS_:\n"
        "   500:  1,  2\n"
        "   250:  0,  0\n"
        "\n"
        "BU_: Engine Dash Gateway\n"
        "VAL_TABLE_ Gears 0 \"P\" 1 \"R\" 2 \"N\" ;\n"
        "VAL_TABLE_ OnOff 0 \"Off\" 1 \"On\" ;\n"
        "\n"
        "\n"
        "BO_ 256 EngineData: 8 Engine\n"
        " SG_ Mode M : 0|2@1+ (1,0) [0|0] \"\"  Dash,Gateway\n"
        " SG_ Rpm m1 : 8|16@1+ (0.25,-10) [-10|16373.75] \"rpm\" Corvan__XXX\n"
        " SG_ Gear : 31|3@0- (1,0) [0|0] \"\" Corvan__XXX\n"
        "\n"
        "BO_ 2147483939 Diagnostics: 1 Corvan__XXX\n"
        "\n"
        "BO_TX_BU_ 256 : Engine,Gateway;\n"
        "\n"
        "\n"
        "EV_ EvSpeed: 1 [0|250] \"km/h\" 10 7 DUMMY_NODE_CORVAN3  Engine,Dash;\n"
        "\n"
        "EV_ EvBlob: 0 [0|0] \"\" 0 9 DUMMY_NODE_CORVAN0 Corvan__XXX;\n"
        "ENVVAR_DATA_ EvBlob: 16;\n"
        "SGTYPE_ GearType : 3@0- (1,0) [0|7] \"gear\"  2 Gears;\n"
        "\n"
        "CM_ \"sample network\";\n"
        "CM_ BU_ Engine \"engine control unit\";\n"
        "CM_ BO_ 256 \"engine state\";\n"
        "CM_ SG_ 256 Rpm \"engine speed\";\n"
        "CM_ EV_ EvSpeed \"vehicle speed\";\n"
        "CM_ SGTYPE_ GearType \"gear selector\";\n"
        "BA_DEF_ BU_  \"NodeLevel\" INT 0 10;\n"
        "BA_DEF_ BO_  \"MsgCycle\" FLOAT 0 1000;\n"
        "BA_DEF_ SG_  \"SigNote\" STRING ;\n"
        "BA_DEF_  \"BusType\" ENUM  \"CAN\",\"FD\",\"LIN\";\n"
        "BA_DEF_  \"DBName\" STRING ;\n"
        "BA_DEF_ EV_  \"EnvMask\" HEX 0 65535;\n"
        "BA_DEF_ SG_  \"TypeNote\" STRING ;\n"
        "BA_DEF_SGTYPE_ \"TypeNote\";\n"
        "BA_DEF_REL_ BU_SG_REL_  \"RxNote\" STRING ;\n"
        "BA_DEF_REL_ BU_BO_REL_  \"TxPrio\" INT 0 7;\n"
        "BA_DEF_REL_ BU_EV_REL_  \"EvAccess\" STRING ;\n"
        "BA_DEF_DEF_  \"NodeLevel\" 3;\n"
        "BA_DEF_DEF_  \"MsgCycle\" 100;\n"
        "BA_DEF_DEF_  \"SigNote\" \"none\";\n"
        "BA_DEF_DEF_  \"BusType\" \"CAN\";\n"
        "BA_DEF_DEF_  \"DBName\" \"\";\n"
        "BA_DEF_DEF_  \"EnvMask\" 15;\n"
        "BA_DEF_DEF_  \"TypeNote\" \"\";\n"
        "BA_DEF_DEF_REL_ \"RxNote\" \"\";\n"
        "BA_DEF_DEF_REL_ \"TxPrio\" 0;\n"
        "BA_DEF_DEF_REL_ \"EvAccess\" \"rw\";\n"
        "BA_ \"BusType\" 1;\n"
        "BA_ \"DBName\" \"BodyNet\";\n"
        "BA_ \"NodeLevel\" BU_ Engine 5;\n"
        "BA_ \"MsgCycle\" BO_ 256 20;\n"
        "BA_ \"SigNote\" SG_ 256 Rpm \"fast\";\n"
        "BA_ \"EnvMask\" EV_ EvSpeed 255;\n"
        "BA_SGTYPE_ \"TypeNote\" SGTYPE_ GearType \"typed\";\n"
        "BA_REL_ \"RxNote\" BU_SG_REL_ Dash SG_ 256 Mode \"seen\";\n"
        "BA_REL_ \"TxPrio\" BU_BO_REL_ Gateway 256 3;\n"
        "BA_REL_ \"EvAccess\" BU_EV_REL_ Engine EvSpeed \"r\";\n"
        "VAL_ 256 Rpm 0 \"Stopped\" ;\n"
        "VAL_ EvSpeed 0 \"standing\" ;\n"
        "CAT_DEF_ 1 Chassis 10;\n"
        "CAT_DEF_ -1 Misc 0;\n"
        "CAT_ BU_ Engine 1;\n"
        "CAT_ BU_ Gateway -1;\n"
        "CAT_ EV_ EvSpeed 1;\n"
        "CAT_ BO_ 256 1;\n"
        "FILTER 4 CAT_ 1 BU_ Engine ;\n"
        "SIG_TYPE_REF_ 256 Gear : GearType;\n"
        "SIG_GROUP_ 256 Drive 1 : Mode Rpm;\n"
        "SIG_VALTYPE_ 256 Gear : 2;\n"
        "SIGTYPE_VALTYPE_ GearType : 1;\n";
    EXPECT_EQ(Write(db.root), expected);
}

TEST_F(Writer, WritesSignalLinesWithEveryMultiplexFormAndReceiverSpacing) {
    struct Case {
        unsigned int flags;
        unsigned int modeValue;
        std::vector<const char*> receivers;
        const char* line;
    };
    const Case cases[] = {
        {TAVLO_SIG_MULTIPLEXED | TAVLO_SIG_MOTOROLA, 3, {"Brake", "Dash"},
         " SG_ S m3 : 7|16@0+ (0.01,0) [0|655.35] \"km/h\"  Brake,Dash"},
        {TAVLO_SIG_MODE, 0, {"Brake"}, " SG_ S M : 7|16@1+ (0.01,0) [0|655.35] \"km/h\"  Brake"},
        {TAVLO_SIG_MODE | TAVLO_SIG_MULTIPLEXED, 5, {},
         " SG_ S M : 7|16@1+ (0.01,0) [0|655.35] \"km/h\" Corvan__XXX"},
        {TAVLO_SIG_SIGNED, 0, {"Brake", "Dash", "Gateway"},
         " SG_ S : 7|16@1- (0.01,0) [0|655.35] \"km/h\"  Brake,Dash,Gateway"},
    };
    for (const Case& c : cases) {
        Database db;
        msgblk* message = AddMessage(db.root, 1, "M");
        sigblk* signal = AddSignal(message, "S");
        signal->flags = static_cast<unsigned char>(c.flags);
        signal->mode_value = c.modeValue;
        signal->start_bit = 7;
        signal->length = 16;
        signal->factor = 0.01;
        signal->maximum = 655.35;
        SetName(signal->unit, "km/h");
        for (const char* name : c.receivers) {
            signal->receivers = AppendRelation(signal->receivers, AddNode(db.root, name));
        }
        EXPECT_EQ(LinesStartingWith(Write(db.root), " SG_ "), std::vector<std::string>{c.line});
    }
}

TEST_F(Writer, WritesBitTimingsRightAligned) {
    Database db;
    btlblk* wide = TAVLO_CREATE_BTLBLK();
    wide->baudrate = 65535;
    wide->btr1 = 255;
    wide->btr2 = 9;
    db.root.bit_timings = wide;
    EXPECT_EQ(LinesStartingWith(Write(db.root), " 6"), std::vector<std::string>{" 65535:255,  9"});
}

// Only databases with nothing beyond nodes, messages without signals and
// plain variables lose the "NS_ : " block.
TEST_F(Writer, WritesTheNewSymbolBlockOnlyWhenTheDatabaseNeedsIt) {
    struct Case {
        const char* what;
        bool needed;
        std::function<void(Database&)> change;
    };
    const Case cases[] = {
        {"nothing", false, [](Database&) {}},
        {"empty file comment", false, [](Database& db) { db.root.comment = Text(""); }},
        {"empty node comment", false, [](Database& db) { db.root.nodes->comment = Text(""); }},
        {"empty message comment", false,
         [](Database& db) { db.root.messages->comment = Text(""); }},
        {"string variable", false, [](Database& db) { db.root.envvars->type = TAVLO_ENV_STRING; }},
        {"filter number", false, [](Database& db) { db.root.filter.number = 3; }},
        {"database attribute", false,
         [](Database& db) {
             attr_def* def = AddDef(&db.unlisted, "A", TAVLO_OBJ_NETWORK, TAVLO_ATTR_INT);
             db.root.db_attrs = AppendNumberAttr(nullptr, def, 1);
         }},
        {"file comment", true, [](Database& db) { db.root.comment = Text("c"); }},
        {"node comment", true, [](Database& db) { db.root.nodes->comment = Text("c"); }},
        {"message comment", true, [](Database& db) { db.root.messages->comment = Text("c"); }},
        {"signal", true, [](Database& db) { AddSignal(db.root.messages, "S"); }},
        {"data variable", true, [](Database& db) { db.root.envvars->type = TAVLO_ENV_DATA; }},
        {"filter category", true, [](Database& db) { AddFilterCategory(db.root, nullptr); }},
        {"filter node", true, [](Database& db) { AddFilterNode(db.root, nullptr); }},
        {"attribute definition", true,
         [](Database& db) { AddDef(&db.root.attr_defs, "A", TAVLO_OBJ_NODE, TAVLO_ATTR_INT); }},
        {"category", true, [](Database& db) { AddCategory(db.root, 1, "C"); }},
        {"signal type", true,
         [](Database& db) { CAN_INSERT_SIGTYPE(&db.root.sig_types, TAVLO_CREATE_SIGTYPE(), 0); }},
    };
    for (const Case& c : cases) {
        Database db;  // a null version is written as empty
        AddNode(db.root, "N");
        AddMessage(db.root, 1, "M");
        AddEnvvar(db.root, "E", TAVLO_ENV_INTEGER);
        c.change(db);
        const std::string text = Write(db.root);
        const std::string head = "VERSION \"\"\n\n";
        if (c.needed) {
            EXPECT_EQ(text.rfind(head + kNewSymbolBlock + "\nBS_:\n", 0), 0u) << c.what;
        } else {
            EXPECT_EQ(text.rfind(head + "BS_:\n", 0), 0u) << c.what;
            EXPECT_EQ(text.find("NS_"), std::string::npos) << c.what;
        }
    }
}

TEST_F(Writer, ListsTheNewSymbolsOfTheReadAfterTheKeywords) {
    ASSERT_EQ(tavlo::dbfile::DeclareNewSymbol("SG_MUL_VAL_"), 1);
    ASSERT_EQ(tavlo::dbfile::DeclareNewSymbol("BO_"), 1);  // a keyword: not listed twice
    ASSERT_EQ(tavlo::dbfile::DeclareNewSymbol("BU_EXTRA_"), 1);
    Database db;
    db.root.comment = Text("c");
    const std::string text = Write(db.root);
    tavlo::dbfile::FreeNewSymbols();
    EXPECT_NE(text.find(std::string(kNewSymbolBlock) + "\tBU_EXTRA_\n\tSG_MUL_VAL_\n\nBS_:\n"),
              std::string::npos);
}

TEST_F(Writer, WritesTransmitterListsOfTwoOrMoreEntries) {
    struct Case {
        std::vector<const char*> transmitters;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {{}, {}},
        {{"A"}, {}},
        {{"A", "B"}, {"BO_TX_BU_ 513 : A,B;"}},
        {{"A", "B", "C"}, {"BO_TX_BU_ 513 : A,B,C;"}},
    };
    for (const Case& c : cases) {
        Database db;
        msgblk* message = AddMessage(db.root, 513, "M");
        for (const char* name : c.transmitters) {
            rxblk* list = message->transmitters;
            tavlo::model::AppendTail(&list, TAVLO_CREATE_TX(AddNode(db.root, name)));
            message->transmitters = list;
        }
        message->transmitter = db.root.nodes;
        EXPECT_EQ(LinesStartingWith(Write(db.root), "BO_TX_BU_"), c.lines)
            << c.transmitters.size() << " entries";
    }
}

TEST_F(Writer, WritesVariablesWithTypeZeroForStringsAndData) {
    struct Case {
        unsigned int type;
        unsigned int accessType;
        std::vector<const char*> accessNodes;
        std::vector<std::string> lines;  // the EV_ line, then the ENVVAR_DATA_ line if any
    };
    const Case cases[] = {
        {TAVLO_ENV_STRING, 1, {},
         {"EV_ V: 0 [-1.5|2.5] \"V\" 0.5 42 DUMMY_NODE_CORVAN8001 Corvan__XXX;"}},
        {TAVLO_ENV_STRING, 0x8000, {"A"},
         {"EV_ V: 0 [-1.5|2.5] \"V\" 0.5 42 DUMMY_NODE_CORVAN8000  A;"}},
        {TAVLO_ENV_DATA, 0, {},
         {"EV_ V: 0 [-1.5|2.5] \"V\" 0.5 42 DUMMY_NODE_CORVAN0 Corvan__XXX;",
          "ENVVAR_DATA_ V: 4;"}},
        {TAVLO_ENV_FLOAT, 0xABC, {"A", "B"},
         {"EV_ V: 1 [-1.5|2.5] \"V\" 0.5 42 DUMMY_NODE_CORVANABC  A,B;"}},
        {TAVLO_ENV_INTEGER, 2, {}, {"EV_ V: 0 [-1.5|2.5] \"V\" 0.5 42 DUMMY_NODE_CORVAN2 Corvan__XXX;"}},
    };
    for (const Case& c : cases) {
        Database db;
        env_var_blk* envvar = AddEnvvar(db.root, "V", c.type);
        envvar->access_type = c.accessType;
        envvar->minimum = -1.5;
        envvar->maximum = 2.5;
        envvar->initial_value = 0.5;
        envvar->id = 42;
        envvar->data_length = 4;
        SetName(envvar->unit, "V");
        for (const char* name : c.accessNodes) {
            envvar->access_nodes = AppendRelation(envvar->access_nodes, AddNode(db.root, name));
        }
        const std::string text = Write(db.root);
        std::vector<std::string> lines = LinesStartingWith(text, "EV_ ");
        for (const std::string& line : LinesStartingWith(text, "ENVVAR_DATA_ ")) {
            lines.push_back(line);
        }
        EXPECT_EQ(lines, c.lines) << c.type;
    }
}

TEST_F(Writer, WritesEnumTextsWithThePlaceholderForEmptyOnes) {
    struct Case {
        const char* texts;
        const char* written;
    };
    const Case cases[] = {
        {"a\n\nb", " \"a\",\"corvan_leerstring\",\"b\""},
        {"x", " \"x\""},
        {"a\nb\n", " \"a\",\"b\",\"corvan_leerstring\""},  // empty last piece, none before
        {"a\n\n", " \"a\",\"corvan_leerstring\""},           // empty last piece after one
        {"\n", " \"corvan_leerstring\""},
        {"", " \"corvan_leerstring\""},
        {nullptr, " \"corvan_leerstring\""},
        {"say \"x\"", " \"say \"x\"\""},  // not escaped
    };
    for (const Case& c : cases) {
        Database db;
        attr_def* def = AddDef(&db.root.attr_defs, "E", TAVLO_OBJ_NETWORK, TAVLO_ATTR_ENUM);
        def->minimum.text = c.texts != nullptr ? Text(c.texts) : nullptr;
        const std::string text = Write(db.root);
        EXPECT_EQ(LinesStartingWith(text, "BA_DEF_ "),
                  std::vector<std::string>{std::string("BA_DEF_  \"E\" ENUM ") + c.written + ";"})
            << (c.texts != nullptr ? c.texts : "(null)");
        if (c.texts != nullptr) {
            const tavlo_attr_value_t texts = def->minimum;
            EXPECT_STREQ(texts.text, c.texts);  // the definition is left as it was
        }
    }
}

// One formatter for values and defaults: STRING quoted as it is, numbers
// "%.11G", ENUM values by index and defaults by text, other types nothing.
TEST_F(Writer, WritesAttributeValuesAndDefaultsByValueType) {
    struct Case {
        unsigned int valueType;
        bool text;
        const char* textValue;
        double number;
        const char* valueLine;
        const char* defaultLine;
    };
    const Case cases[] = {
        {TAVLO_ATTR_INT, false, nullptr, -12, "BA_ \"A\" -12;", "BA_DEF_DEF_  \"A\" -12;"},
        {TAVLO_ATTR_FLOAT, false, nullptr, 0.1, "BA_ \"A\" 0.1;", "BA_DEF_DEF_  \"A\" 0.1;"},
        {TAVLO_ATTR_HEX, false, nullptr, 255, "BA_ \"A\" 255;", "BA_DEF_DEF_  \"A\" 255;"},
        {TAVLO_ATTR_FLOAT, false, nullptr, 1e-7, "BA_ \"A\" 1E-07;", "BA_DEF_DEF_  \"A\" 1E-07;"},
        {TAVLO_ATTR_STRING, true, "a\"b", 0, "BA_ \"A\" \"a\"b\";", "BA_DEF_DEF_  \"A\" \"a\"b\";"},
        {TAVLO_ATTR_ENUM, true, "off", 2, "BA_ \"A\" 2;", "BA_DEF_DEF_  \"A\" \"off\";"},
        {7, false, nullptr, 3, "BA_ \"A\" ;", "BA_DEF_DEF_  \"A\" ;"},
    };
    for (const Case& c : cases) {
        Database db;
        attr_def* def = AddDef(&db.root.attr_defs, "A", TAVLO_OBJ_NETWORK, c.valueType);
        if (c.valueType == TAVLO_ATTR_ENUM) {
            def->minimum.text = Text("on\noff");
        }
        if (c.text) {
            def->default_value.text = Text(c.textValue);
        } else {
            def->default_value.number = c.number;
        }
        db.root.db_attrs = c.valueType == TAVLO_ATTR_STRING
                               ? AppendTextAttr(nullptr, def, c.textValue)
                               : AppendNumberAttr(nullptr, def, c.number);
        const std::string text = Write(db.root);
        EXPECT_EQ(LinesStartingWith(text, "BA_ "), std::vector<std::string>{c.valueLine});
        EXPECT_EQ(LinesStartingWith(text, "BA_DEF_DEF_"), std::vector<std::string>{c.defaultLine});
    }
}

// Relation definitions come after all others; signal-type definitions are
// written with the object word of signals and once more as BA_DEF_SGTYPE_.
TEST_F(Writer, WritesDefinitionsInThreePasses) {
    Database db;
    struct Def {
        const char* name;
        unsigned int objectType;
    };
    const Def defs[] = {{"Rx", TAVLO_OBJ_NODE_SIGNAL}, {"Type1", TAVLO_OBJ_SIGTYPE},
                        {"Net", TAVLO_OBJ_NETWORK},    {"Tx", TAVLO_OBJ_NODE_MESSAGE},
                        {"Sig", TAVLO_OBJ_SIGNAL},     {"Ev", TAVLO_OBJ_NODE_ENVVAR},
                        {"Type2", TAVLO_OBJ_SIGTYPE}};
    for (const Def& d : defs) {
        AddDef(&db.root.attr_defs, d.name, d.objectType, TAVLO_ATTR_STRING);
    }
    const std::string text = Write(db.root);
    const std::vector<std::string> expected = {
        "BA_DEF_ SG_  \"Type1\" STRING ;",
        "BA_DEF_  \"Net\" STRING ;",
        "BA_DEF_ SG_  \"Sig\" STRING ;",
        "BA_DEF_ SG_  \"Type2\" STRING ;",
        "BA_DEF_SGTYPE_ \"Type1\";",
        "BA_DEF_SGTYPE_ \"Type2\";",
        "BA_DEF_REL_ BU_SG_REL_  \"Rx\" STRING ;",
        "BA_DEF_REL_ BU_BO_REL_  \"Tx\" STRING ;",
        "BA_DEF_REL_ BU_EV_REL_  \"Ev\" STRING ;",
        "BA_DEF_DEF_REL_ \"Rx\" \"\";",
        "BA_DEF_DEF_  \"Type1\" \"\";",
        "BA_DEF_DEF_  \"Net\" \"\";",
        "BA_DEF_DEF_REL_ \"Tx\" \"\";",
        "BA_DEF_DEF_  \"Sig\" \"\";",
        "BA_DEF_DEF_REL_ \"Ev\" \"\";",
        "BA_DEF_DEF_  \"Type2\" \"\";",
    };
    EXPECT_EQ(LinesStartingWith(text, "BA_DEF"), expected);
}

TEST_F(Writer, EscapesOnlyDoubleQuotesAndOnlyInComments) {
    Database db;
    db.root.version = Text("v\"1");
    symblk* node = AddNode(db.root, "N");
    node->comment = Text("say \"hi\"\nback\\slash");
    msgblk* message = AddMessage(db.root, 5, "M");
    message->comment = Text("\"");
    sigblk* signal = AddSignal(message, "S");
    signal->comment = Text("");  // empty: not written
    signal->value_descriptions = AppendValue(nullptr, -3, "q\"");
    const std::string text = Write(db.root);
    EXPECT_EQ(text.rfind("VERSION \"v\"1\"\n", 0), 0u);
    EXPECT_NE(text.find("\nCM_ BU_ N \"say \\\"hi\\\"\nback\\slash\";\nCM_ BO_ 5 \"\\\"\";\nVAL_ "),
              std::string::npos);
    EXPECT_TRUE(LinesStartingWith(text, "CM_ SG_").empty());
    EXPECT_EQ(LinesStartingWith(text, "VAL_ "), std::vector<std::string>{"VAL_ 5 S -3 \"q\"\" ;"});
}

TEST_F(Writer, WritesTheViewFilterWithNoneEntries) {
    struct Case {
        const char* what;
        std::vector<int> categories;  // category numbers, 0 for the NONE entry
        std::vector<const char*> nodes;  // node names, null for the NONE entry
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"both lists empty", {}, {}, {}},
        {"no nodes", {3}, {}, {"FILTER 2 CAT_ 3 BU_ \"<<none>>\" ;"}},
        {"no categories", {}, {"A"}, {"FILTER 2 CAT_ 0 BU_ A ;"}},
        {"NONE entries", {0, 3, -4}, {nullptr, "A", "B"},
         {"FILTER 2 CAT_ 0 3 -4 BU_ \"<<none>>\" A B ;"}},
    };
    for (const Case& c : cases) {
        Database db;
        db.root.filter.number = 2;
        for (int number : c.categories) {
            AddFilterCategory(db.root,
                              number != 0 ? AddCategory(db.root, static_cast<short>(number), "C")
                                          : nullptr);
        }
        for (const char* name : c.nodes) {
            AddFilterNode(db.root, name != nullptr ? AddNode(db.root, name) : nullptr);
        }
        EXPECT_EQ(LinesStartingWith(Write(db.root), "FILTER"), c.lines) << c.what;
    }
}

// Text larger than the output block, and many lines across block ends.
TEST_F(Writer, WritesOutputLargerThanItsBlock) {
    Database db;
    std::string comment;
    std::string escaped;
    for (int i = 0; i < 300000; ++i) {
        comment += "0123456789\"";
        escaped += "0123456789\\\"";
    }
    db.root.comment = Text(comment.c_str());
    std::string messages;
    msgblk* last = nullptr;
    for (unsigned int id = 0; id < 60000; ++id) {
        msgblk* message = TAVLO_CREATE_MSGBLK();
        message->id = id;
        message->dlc = 8;
        SetName(message->name, "Msg");
        (last != nullptr ? last->next : db.root.messages) = message;  // append in O(1)
        last = message;
        messages += "\nBO_ " + std::to_string(id) + " Msg: 8 Corvan__XXX\n";
    }
    const std::string text = Write(db.root);
    EXPECT_NE(text.find("\nBU_:\n\n" + messages + "\n\n\nCM_ \"" + escaped + "\";\n"),
              std::string::npos);
}

TEST_F(Writer, ReturnsCouldNotWriteWithoutAMessageWhenTheFileCannotBeOpened) {
    Database db;
    db.root = tavlo::test::BuildSampleDatabase();
    const std::string path = ::testing::TempDir() + "tavloms_missing_directory_" +
                             std::to_string(getpid()) + "/net.dbc";
    MessageCapture capture;
    for (const char* file : {path.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(TAVLO_WRITE(file, db.root.nodes, db.root.messages, db.root.envvars,
                              db.root.bit_timings, db.root.attr_defs, db.root.db_attrs,
                              db.root.categories, db.root.filter, db.root.comment,
                              db.root.version, db.root.sig_types, db.root.value_tables),
                  13u);
    }
    EXPECT_TRUE(capture.messages().empty());
    EXPECT_EQ(std::fopen(path.c_str(), "r"), nullptr);
}

TEST(WriterDeathTest, AssertsOnAMissingDefinition) {
    const std::string path = ::testing::TempDir() + "tavloms_writer_death_" +
                             std::to_string(getpid()) + ".dbc";
    EXPECT_DEATH(
        {
            std::FILE* file = std::tmpfile();
            tavlo::dbfile::OutputText out(file);
            tavlo::dbfile::WriteValueType(out, nullptr);
        },
        "Assertion failed: attr, module canddbw, line " TAVLO_LINE_NUMBER);
    EXPECT_DEATH(
        {
            tavlo_attr_value_t value{};
            attr* values = tavlo::test::AppendAttr(nullptr, nullptr, value);
            TAVLO_WRITE(path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, values,
                        nullptr, filter_t{}, nullptr, nullptr, nullptr, nullptr);
        },
        "Assertion failed: attr, module canddbw, line " TAVLO_LINE_NUMBER);
    std::remove(path.c_str());
}

TEST(NewSymbolDescriptions, ListsEveryKeywordWithItsDescription) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        tavlo::dbfile::OutputText out(file);
        tavlo::dbfile::WriteNewSymbolDescriptions(out);
    }
    std::rewind(file);
    std::string text;
    for (int c; (c = std::fgetc(file)) != EOF;) {
        text += static_cast<char>(c);
    }
    std::fclose(file);
    EXPECT_EQ(text,
              "NS_DESC_ : BO_ Message SG_ Signal BU_ Network node BS_ Bit timing register "
              "VERSION Version information EV_ Environment variable INT Integer HEX Hex "
              "FLOAT Float STRING String ENUM Enumeration NS_ New symbol "
              "NS_DESC_ Description of new symbol CM_ Comment "
              "BA_DEF_ Definition of user defined attribute BA_ User defined attribute "
              "VAL_ Signal values CAT_DEF_ Category definition CAT_ Category FILTER View filter "
              "BA_DEF_DEF_ Default for user defined attribute "
              "EV_DATA_ Environment variable of type \"DATA\" "
              "ENVVAR_DATA_ Environment variable of type \"DATA\" SGTYPE_ Signaltype "
              "SGTYPE_VAL_ Signaltype values "
              "BA_DEF_SGTYPE_ Definition of user defined attributes for signaltypes "
              "BA_SGTYPE_ User defined attributes for signaltypes "
              "SIG_TYPE_REF_ Reference to signaltype VAL_TABLE_ Value description table "
              "SIG_GROUP_ Signal group SIG_VALTYPE_ Valuetype of signal "
              "SIGTYPE_VALTYPE_ Valuetype of signaltype BO_TX_BU_ Transmitting nodes "
              "BA_DEF_REL_ Definition of user defined relation BA_REL_ User defined relation "
              "BA_DEF_DEF_REL_ Default for user defined relation "
              "BU_SG_REL_ Node-Signal-Relation BU_EV_REL_ Node-Environment-variable-Relation "
              "BU_BO_REL_ Node-TxMsg-Relation;");
}

}  // namespace
