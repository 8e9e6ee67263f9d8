// tests/convert/json_test.cpp: the JSON converter module, loaded from its
// built file through the library's importer and exporter. Databases go out
// as JSON and come back with the same five lists (compared as described
// text); edge values (texts of every byte, doubles at their limits,
// enumeration texts, null and empty texts) survive; a broken document is
// refused with one line on standard error and leaves the new database empty.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "manager/fixture.h"
#include "support/describe.h"
#include "support/post_capture.h"
#include "support/read_database.h"
#include "tavloms/convert.h"
#include "tavloms/copy.h"
#include "tavloms/lifecycle.h"
#include "tavloms/writemanager.h"

namespace tavlo::test {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kModule = TAVLOMS_JSON_MODULE;

HWND Window(std::uintptr_t n) {
    return reinterpret_cast<HWND>(n);
}

// A root holding only the five lists a module sees (not owned).
tavlo_root_t FiveLists(const tavlo_root_t& db) {
    tavlo_root_t five{};
    five.nodes = db.nodes;
    five.messages = db.messages;
    five.envvars = db.envvars;
    five.attr_defs = db.attr_defs;
    five.db_attrs = db.db_attrs;
    return five;
}

std::string DescribeFive(const tavlo_root_t& db) {
    return DescribeDatabase(FiveLists(db));
}

void ReleaseAttrList(attr* list) {
    TAVLO_FREE(nullptr, nullptr, nullptr, nullptr, nullptr, list, nullptr, filter_t{}, nullptr,
               nullptr, nullptr, nullptr);
}

void StripRelationValues(rxblk* list) {
    for (; list != nullptr; list = list->next) {
        ReleaseAttrList(list->attributes);
        list->attributes = nullptr;
    }
}

// Takes out of a database what the JSON document does not carry: category
// and signal type references, signal groups, relation values.
void StripUncarried(tavlo_root_t& db) {
    for (symblk* n = db.nodes; n != nullptr; n = n->next) {
        n->category = nullptr;
    }
    for (msgblk* m = db.messages; m != nullptr; m = m->next) {
        m->category = nullptr;
        while (m->signal_groups != nullptr) {
            CAN_DELETE_SIGGROUP(m, m->signal_groups);
        }
        StripRelationValues(m->transmitters);
        for (sigblk* s = m->signals; s != nullptr; s = s->next) {
            s->sig_type = nullptr;
            StripRelationValues(s->receivers);
        }
    }
    for (env_var_blk* e = db.envvars; e != nullptr; e = e->next) {
        e->category = nullptr;
        StripRelationValues(e->access_nodes);
    }
}

// A database file read into a root of the test's own.
struct ReadRoot {
    explicit ReadRoot(const std::string& path) {
        const ReadOutcome outcome = ReadDatabase(path, &root);
        ok = !outcome.raised && outcome.result == 0;
    }
    ~ReadRoot() { TAVLO_FREE_ROOT(&root); }
    ReadRoot(const ReadRoot&) = delete;
    ReadRoot& operator=(const ReadRoot&) = delete;

    tavlo_root_t root{};
    bool ok = false;
};

std::string FileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class JsonTest : public ManagerTest {
protected:
    std::string Path(const std::string& name) const {
        return (std::filesystem::path(dir_) / name).string();  // the platform's separator
    }

    // Copies a database file into the test's directory (the manager takes
    // locks beside the files it opens).
    std::string CopyIn(const std::string& source) {
        const std::string target =
            Path("src_" + std::filesystem::path(source).filename().string());
        std::filesystem::copy_file(source, target);
        return target;
    }

    // Export and Import called straight, on the five lists of `db`; the
    // lists read back, released by the caller with TAVLO_FREE_ROOT.
    bool ThroughEntries(const tavlo_root_t& db, const std::string& jsonPath, tavlo_root_t* out) {
        TavloExporter exporter(reader_, kModule, "Export");
        TavloImporter importer(writer_, kModule, "Import");
        if (exporter.mEntry == nullptr || importer.mEntry == nullptr) {
            ADD_FAILURE() << "module " << kModule << " has no entries";
            return false;
        }
        if (exporter.mEntry(jsonPath.c_str(), db.messages, db.nodes, db.envvars, db.attr_defs,
                            db.db_attrs) != 1) {
            ADD_FAILURE() << "Export failed";
            return false;
        }
        return importer.mEntry(jsonPath.c_str(), &out->messages, &out->nodes, &out->envvars,
                               &out->attr_defs, &out->db_attrs) == 1;
    }

    // Writes `text` as a JSON file and imports it through the importer
    // into a new database; the import's status, its stderr and the database.
    struct Imported {
        unsigned int status = 0;
        std::string errors;
        TavloDatabase* db = nullptr;
    };
    Imported ImportText(const std::string& name, const std::string& text) {
        const std::string path = WriteFile(name, text);
        Imported result;
        TavloImporter importer(writer_, kModule, "Import");
        const char* handle = nullptr;
        testing::internal::CaptureStderr();
        result.status = importer.Import(name.substr(0, name.find('.')).c_str(), &handle,
                                        path.c_str());
        result.errors = testing::internal::GetCapturedStderr();
        result.db = handle != nullptr ? writer_.GetDatabase(handle) : nullptr;
        return result;
    }

    PostCapture posts_;
    TavloManager reader_{Window(1)};
    TavloWriteManager writer_{Window(2)};
};

// ---- Database files out and back --------------------------------------------------

std::vector<std::string> RoundTripFiles() {
    std::vector<std::string> files;
    for (const char* name : {"powertrain.dbc", "body.dbc", "diagnosis.dbc"}) {
        files.push_back(DataFile(name));
    }
    for (const char* name :
         {"abs.dbc", "attributes.dbc", "big_numbers.dbc", "choices.dbc", "cp1252.dbc",
          "emc32.dbc", "floating_point.dbc", "j1939.dbc", "long_names.dbc",
          "motohawk_with_comments.dbc", "multiple_senders.dbc", "multiplex_2.dbc",
          "no_sender.dbc", "relation_attributes.dbc", "sig_groups.dbc", "socialledge.dbc",
          "timing.dbc", "val_table.dbc", "vehicle.dbc", "issue_636_negative_scaling.dbc"}) {
        files.push_back(std::string(TAVLOMS_CORPUS_DIR) + "/" + name);
    }
    return files;
}

std::string FileTestName(const testing::TestParamInfo<std::string>& info) {
    std::string name = std::filesystem::path(info.param).stem().string();
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) {
            c = '_';
        }
    }
    return name;
}

class JsonRoundTrip : public JsonTest, public testing::WithParamInterface<std::string> {};

// The entries straight: every field the document carries comes back,
// including those the library's copy leaves out (further transmitters,
// value types, data lengths).
TEST_P(JsonRoundTrip, EntriesReproduceTheFiveLists) {
    ReadRoot source(GetParam());
    ASSERT_TRUE(source.ok) << GetParam();
    StripUncarried(source.root);
    tavlo_root_t back{};
    const std::string json = Path("out.json");
    ASSERT_TRUE(ThroughEntries(source.root, json, &back));
    EXPECT_EQ(DescribeFive(back), DescribeFive(source.root));
    TAVLO_FREE_ROOT(&back);
}

// Through the exporter and the importer: the database opened in one write
// manager comes back in another as the library's copy of the same lists.
TEST_P(JsonRoundTrip, ImporterReproducesTheExportedDatabase) {
    const std::string dbcPath = CopyIn(GetParam());
    TavloWriteManager source(Window(3));
    const char* sourceHandle = nullptr;
    ASSERT_EQ(source.OpenDatabase(dbcPath.c_str(), &sourceHandle, 0), TAVLO_STATUS_OK);
    const std::string json = Path("exported.json");
    EXPECT_EQ(TavloExporter(source, kModule, "Export").Export(sourceHandle, json.c_str()),
              TAVLO_STATUS_OK);
    ASSERT_TRUE(std::filesystem::exists(json));

    const char* handle = nullptr;
    TavloImporter importer(writer_, kModule, "Import");
    ASSERT_EQ(importer.Import("Imported", &handle, json.c_str()), TAVLO_STATUS_OK);
    EXPECT_EQ(importer.mFailed, 0u);
    TavloDatabase* imported = writer_.GetDatabase(handle);
    ASSERT_NE(imported, nullptr);

    // What the library keeps of the module's lists: its own copy.
    ReadRoot expected(dbcPath);
    ASSERT_TRUE(expected.ok);
    StripUncarried(expected.root);
    const tavlo_root_t five = FiveLists(expected.root);
    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&five, &copy), 1);
    EXPECT_EQ(DescribeFive(imported->Root()), DescribeFive(copy));
    TAVLO_FREE_ROOT(&copy);
}

INSTANTIATE_TEST_SUITE_P(Files, JsonRoundTrip, testing::ValuesIn(RoundTripFiles()),
                         FileTestName);

// ---- Edge values ------------------------------------------------------------------

char* Text(const char* text) {
    char* copy = static_cast<char*>(TAVLO_MALLOC(std::strlen(text) + 1));
    std::strcpy(copy, text);
    return copy;
}

attr* Value(attr_def* def, double number) {
    attr* value = static_cast<attr*>(TAVLO_MALLOC(sizeof(attr)));
    value->def = def;
    value->value.number = number;
    return value;
}

// A database made by hand with values at the edges of what the records hold.
struct EdgeDatabase {
    EdgeDatabase() {
        attr_def* enumDef = TAVLO_CREATE_ATTR_DEF();
        std::strcpy(enumDef->name, "Mode");
        enumDef->object_type = TAVLO_OBJ_MESSAGE;
        enumDef->value_type = TAVLO_ATTR_ENUM;
        enumDef->minimum.text = Text("Off\n\nOn\n");  // four texts, two empty
        enumDef->default_value.text = Text("On");
        attr_def* textDef = TAVLO_CREATE_ATTR_DEF();
        std::strcpy(textDef->name, "Note");
        textDef->object_type = TAVLO_OBJ_NODE;
        textDef->value_type = TAVLO_ATTR_STRING;  // default stays null
        attr_def* floatDef = TAVLO_CREATE_ATTR_DEF();
        std::strcpy(floatDef->name, "Gain");
        floatDef->value_type = TAVLO_ATTR_FLOAT;
        floatDef->minimum.number = std::numeric_limits<double>::lowest();
        floatDef->maximum = std::numeric_limits<double>::max();
        floatDef->default_value.number = 0.1;
        enumDef->next = textDef;
        textDef->next = floatDef;
        db.attr_defs = enumDef;
        db.db_attrs = Value(floatDef, 5e-324);

        symblk* node = TAVLO_CREATE_SYMBOL();
        std::strcpy(node->name, "N2345678901234567890123456789012");  // 32 bytes
        node->comment = Text("");
        attr* note = Value(textDef, 0);
        note->value.text = Text("caf\xE9 \x80\x01\x7F\xFF");
        node->attributes = note;
        symblk* other = TAVLO_CREATE_SYMBOL();
        std::strcpy(other->name, "Other");
        node->next = other;
        db.nodes = node;

        msgblk* message = TAVLO_CREATE_MSGBLK();
        std::strcpy(message->name, "M");
        message->id = 0xFFFFFFFFu;
        message->dlc = 65535;
        message->signal_count = 7;  // kept as given, not counted
        message->transmitter = other;
        message->attributes = Value(enumDef, 3);
        message->transmitters = TAVLO_CREATE_TX(node);
        message->transmitters->next = TAVLO_CREATE_TX(other);
        sigblk* signal = TAVLO_CREATE_SIGBLK();
        std::strcpy(signal->name, "S");
        signal->start_bit = 63;
        signal->length = 64;
        signal->flags = TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED | TAVLO_SIG_MULTIPLEXED;
        signal->mode_value = 4000000000u;
        signal->offset = -0.0;
        signal->factor = 1e-300;
        std::strcpy(signal->unit, "\xB0" "C");
        signal->minimum = std::numeric_limits<double>::lowest();
        signal->maximum = 0.30000000000000004;
        signal->receivers = TAVLO_CREATE_RX(other);
        signal->receiver_count = 1;
        signal->value_type = TAVLO_VALUE_DOUBLE;
        val* low = static_cast<val*>(TAVLO_MALLOC(sizeof(val)));
        low->value = std::numeric_limits<int>::min();
        std::strcpy(low->text, "lowest");
        val* high = static_cast<val*>(TAVLO_MALLOC(sizeof(val)));
        high->value = std::numeric_limits<int>::max();
        std::strcpy(high->text, "");
        low->next = high;
        signal->value_descriptions = low;
        message->signals = signal;
        db.messages = message;

        env_var_blk* envvar = TAVLO_CREATE_EVBLK();
        std::strcpy(envvar->name, "E");
        envvar->type = TAVLO_ENV_DATA;
        envvar->initial_value = std::numeric_limits<double>::min();
        envvar->maximum = std::numeric_limits<double>::max();
        envvar->id = 42;
        envvar->node = node;
        envvar->access_type = 0x8003;
        envvar->access_nodes = TAVLO_CREATE_RX(node);
        envvar->access_nodes->next = TAVLO_CREATE_RX(other);
        envvar->access_node_count = 2;
        envvar->data_length = 12;
        envvar->comment = Text("line one\nline \"two\"\\\t");
        db.envvars = envvar;
    }
    ~EdgeDatabase() { TAVLO_FREE_ROOT(&db); }
    EdgeDatabase(const EdgeDatabase&) = delete;
    EdgeDatabase& operator=(const EdgeDatabase&) = delete;

    tavlo_root_t db{};
};

TEST_F(JsonTest, EdgeValuesComeBackExactly) {
    EdgeDatabase edge;
    tavlo_root_t back{};
    const std::string json = Path("edge.json");
    ASSERT_TRUE(ThroughEntries(edge.db, json, &back));
    EXPECT_EQ(DescribeFive(back), DescribeFive(edge.db));
    // Fields the description does not show.
    ASSERT_NE(back.messages, nullptr);
    ASSERT_NE(back.envvars, nullptr);
    EXPECT_EQ(+back.envvars->data_length, 12u);
    EXPECT_EQ(+back.envvars->node, back.nodes);
    EXPECT_EQ(+back.messages->signals->value_type, TAVLO_VALUE_DOUBLE);
    EXPECT_TRUE(std::signbit(+back.messages->signals->offset));
    EXPECT_EQ(+back.attr_defs->maximum, 0.0);  // not carried for ENUM
    TAVLO_FREE_ROOT(&back);
}

// The document's form: names and numbers as in the records, references by
// name, texts as one character per byte, numbers JSON has no form for as
// texts.
TEST_F(JsonTest, DocumentHoldsRecordsByNameAndNumber) {
    EdgeDatabase edge;
    edge.db.attr_defs->next->next->minimum.number = -std::numeric_limits<double>::infinity();
    edge.db.envvars->initial_value = std::numeric_limits<double>::quiet_NaN();
    edge.db.envvars->maximum = std::numeric_limits<double>::infinity();
    // Left out: a value without a definition, a receiver without a node.
    edge.db.db_attrs->next = Value(nullptr, 1);
    edge.db.messages->signals->receivers->next = TAVLO_CREATE_RX(nullptr);
    const std::string json = Path("form.json");
    ASSERT_EQ(TavloExporter(reader_, kModule, "Export")
                  .mEntry(json.c_str(), edge.db.messages, edge.db.nodes, edge.db.envvars,
                          edge.db.attr_defs, edge.db.db_attrs),
              1);
    const Json doc = Json::parse(FileText(json));

    const Json& mode = doc["attribute_definitions"][0];
    EXPECT_EQ(mode["object_type"], 2);
    EXPECT_EQ(mode["value_type"], 3);
    EXPECT_EQ(mode["enumeration"], Json::array({"Off", "", "On", ""}));
    EXPECT_FALSE(mode.contains("minimum"));
    EXPECT_EQ(mode["default"], "On");
    EXPECT_TRUE(doc["attribute_definitions"][1]["default"].is_null());
    EXPECT_EQ(doc["attribute_definitions"][2]["minimum"], "-inf");
    EXPECT_EQ(doc["attribute_definitions"][2]["default"].get<double>(), 0.1);
    EXPECT_EQ(doc["database_attributes"],
              Json::array({Json{{"definition", "Gain"}, {"value", 5e-324}}}));

    EXPECT_EQ(doc["nodes"][0]["comment"], "");
    EXPECT_TRUE(doc["nodes"][1]["comment"].is_null());
    EXPECT_EQ(doc["nodes"][0]["attributes"][0]["value"], "caf\u00e9 \u0080\u0001\u007f\u00ff");

    const Json& message = doc["messages"][0];
    EXPECT_EQ(message["id"], 4294967295u);
    EXPECT_EQ(message["transmitter"], "Other");
    EXPECT_EQ(message["transmitters"], Json::array({"N2345678901234567890123456789012", "Other"}));
    EXPECT_EQ(message["attributes"][0], (Json{{"definition", "Mode"}, {"value", 3.0}}));
    const Json& signal = message["signals"][0];
    EXPECT_EQ(signal["receivers"], Json::array({"Other"}));
    EXPECT_EQ(signal["unit"], "\u00b0C");
    EXPECT_EQ(signal["maximum"].get<double>(), 0.30000000000000004);
    EXPECT_EQ(signal["value_descriptions"][0],
              (Json{{"value", std::numeric_limits<int>::min()}, {"text", "lowest"}}));

    const Json& envvar = doc["environment_variables"][0];
    EXPECT_EQ(envvar["initial_value"], "nan");
    EXPECT_EQ(envvar["maximum"], "inf");
    EXPECT_EQ(envvar["access_nodes"], Json::array({"N2345678901234567890123456789012", "Other"}));
    EXPECT_EQ(envvar["data_length"], 12);
}

// ---- Broken documents -------------------------------------------------------------

// A valid document of a real database, to be broken in one place.
Json ValidDocument(const std::string& jsonPath) {
    ReadRoot source(DataFile("powertrain.dbc"));
    EXPECT_TRUE(source.ok);
    StripUncarried(source.root);
    TavloManager mgr(Window(9));
    TavloExporter exporter(mgr, kModule, "Export");
    EXPECT_EQ(exporter.mEntry(jsonPath.c_str(), source.root.messages, source.root.nodes,
                              source.root.envvars, source.root.attr_defs, source.root.db_attrs),
              1);
    return Json::parse(FileText(jsonPath));
}

struct BrokenCase {
    const char* name;
    std::function<std::string(Json&)> breakIt;  // returns the file's text
    const char* complaint;                      // part of the stderr line
};

Json& LastSignal(Json& doc) {
    return doc["messages"].back()["signals"].back();
}

std::string Dumped(Json& doc) {
    return doc.dump(1);
}

// Puts the JSON text `value` at `pointer` ("/messages/0/name"; a last "-"
// appends to an array).
std::function<std::string(Json&)> Set(const char* pointer, const char* value) {
    return [=](Json& doc) {
        doc[Json::json_pointer(pointer)] = Json::parse(value);
        return Dumped(doc);
    };
}

const BrokenCase kBrokenCases[] = {
    {"TruncatedDocument",
     [](Json& doc) {
         const std::string text = Dumped(doc);
         return text.substr(0, text.size() * 2 / 3);
     },
     "parse error at line"},
    {"NotJsonAtAll", [](Json&) { return std::string("BO_ 1 M: 8 A"); }, "parse error at line 1"},
    {"TopLevelArray", [](Json&) { return std::string("[]"); }, "the document is not an object"},
    {"MissingList",
     [](Json& doc) {
         doc.erase("environment_variables");
         return Dumped(doc);
     },
     "environment_variables: missing"},
    {"DlcAsText",
     [](Json& doc) {
         doc["messages"].back()["dlc"] = "8";
         return Dumped(doc);
     },
     "].dlc: not a whole number from 0 to 65535"},
    {"LengthTooLarge",
     [](Json& doc) {
         LastSignal(doc)["length"] = 65536;
         return Dumped(doc);
     },
     "].length: not a whole number from 0 to 65535"},
    {"NegativeId",
     [](Json& doc) {
         doc["messages"].back()["id"] = -1;
         return Dumped(doc);
     },
     "].id: not a whole number from 0 to 4294967295"},
    {"FactorAsBoolean",
     [](Json& doc) {
         LastSignal(doc)["factor"] = true;
         return Dumped(doc);
     },
     "].factor: not a number"},
    {"SignalsNotAnArray",
     [](Json& doc) {
         doc["messages"].back()["signals"] = Json::object();
         return Dumped(doc);
     },
     "].signals: not an array"},
    {"MissingComment",
     [](Json& doc) {
         LastSignal(doc).erase("comment");
         return Dumped(doc);
     },
     "].comment: missing"},
    {"NameTooLong",
     [](Json& doc) {
         LastSignal(doc)["name"] = std::string(33, 'x');
         return Dumped(doc);
     },
     "].name: longer than 32 bytes"},
    {"CharacterBeyondOneByte",
     [](Json& doc) {
         doc["nodes"].back()["comment"] = "\u20ac";
         return Dumped(doc);
     },
     "].comment: a character beyond U+00FF has no byte"},
    {"UnknownReceiver",
     [](Json& doc) {
         LastSignal(doc)["receivers"].push_back("Nobody");
         return Dumped(doc);
     },
     "no node \"Nobody\""},
    {"UnknownTransmitter",
     [](Json& doc) {
         doc["messages"].back()["transmitter"] = "Nobody";
         return Dumped(doc);
     },
     "].transmitter: no node \"Nobody\""},
    {"UnknownFurtherTransmitter",
     [](Json& doc) {
         doc["messages"].back()["transmitters"].push_back("Nobody");
         return Dumped(doc);
     },
     "no node \"Nobody\""},
    {"UnknownDefinition",
     [](Json& doc) {
         LastSignal(doc)["attributes"].push_back(Json{{"definition", "Nothing"}, {"value", 1}});
         return Dumped(doc);
     },
     "no attribute definition \"Nothing\""},
    {"BadValueDescription",
     [](Json& doc) {
         LastSignal(doc)["value_descriptions"].push_back(Json{{"value", 1.5}, {"text", "x"}});
         return Dumped(doc);
     },
     "].value: not a whole number in the range of int"},
    {"UnknownValueType",
     [](Json& doc) {
         doc["attribute_definitions"].back()["value_type"] = 5;
         return Dumped(doc);
     },
     "].value_type: not a whole number from 0 to 4"},
    {"EnumerationNotAnArray",
     [](Json& doc) {
         doc["attribute_definitions"].push_back(Json{{"object_type", 0},
                                                     {"name", "E"},
                                                     {"value_type", 3},
                                                     {"enumeration", "A"},
                                                     {"default", "A"}});
         return Dumped(doc);
     },
     "].enumeration: not an array"},
    {"StringValueAsNumber",
     [](Json& doc) {
         doc["attribute_definitions"].push_back(
             Json{{"object_type", 1}, {"name", "T"}, {"value_type", 2}, {"default", ""}});
         doc["nodes"].back()["attributes"].push_back(Json{{"definition", "T"}, {"value", 1}});
         return Dumped(doc);
     },
     "].value: not a text"},
    // What the database file cannot hold, or what the library's copy of the
    // lists would stop the process on.
    {"NestedTooDeep", [](Json&) { return std::string(100000, '['); }, "64 deep at byte 64"},
    {"NullDefinition", Set("/database_attributes/-", R"({"definition": null, "value": 1})"),
     "database_attributes[1].definition: not a text"},
    {"NullReceiver", Set("/messages/0/signals/0/receivers/-", "null"), "receivers[2]: not a text"},
    {"EmptyName", Set("/nodes/0/name", R"("")"), "nodes[0].name: \"\" is not a name"},
    {"NameWithBlank", Set("/messages/0/signals/0/name", R"("a b")"), "\"a b\" is not a name"},
    {"KeywordAsName", Set("/messages/1/name", R"("BO_")"), "\"BO_\" is a keyword"},
    {"NoNodeAsName", Set("/nodes/0/name", R"("Corvan__XXX")"), "stands for no node"},
    {"FactorNaN", Set("/messages/0/signals/0/factor", R"("nan")"),
     "messages[0].signals[0].factor: not a finite number"},
    {"EnvvarType4", Set("/environment_variables/0/type", "4"),
     "environment_variables[0].type: not a whole number from 0 to 3"},
    {"SameMessageId", Set("/messages/1/id", "256"), "messages[1].id: a second message 256"},
    {"SameMessageName", Set("/messages/1/name", R"("EngineData")"), "a second message \"Engine"},
    {"SameSignalName", Set("/messages/0/signals/1/name", R"("EngineSpeed")"), "a second signal"},
    {"SameNodeName", Set("/nodes/1/name", R"("Engine")"), "nodes[1].name: a second node"},
    {"SameEnvvarName", Set("/environment_variables/1/name", R"("PtEnvA")"), "a second envir"},
    {"SameDefinitionName", Set("/attribute_definitions/1/name", R"("GenMsgCycleTime")"),
     "attribute_definitions[1].name: a second definition"},
    {"ObjectType9", Set("/attribute_definitions/0/object_type", "9"), "number from 0 to 8"},
    {"FlagBit4", Set("/messages/0/signals/0/flags", "16"),
     "signals[0].flags: not a whole number from 0 to 15"},
    {"SignalValueType3", Set("/messages/0/signals/0/value_type", "3"), "from 0 to 2"},
    {"EnumIndexBeyondTexts",
     Set("/messages/0/signals/0/attributes/-", R"({"definition": "SigMode", "value": 3})"),
     "].value: not the index of one of the 3 enumeration texts"},
    {"AttributeOfOtherObjects",
     Set("/nodes/0/attributes/-", R"({"definition": "GenMsgCycleTime", "value": 1})"),
     "is defined for another kind of object"},
    {"QuoteInUnit", Set("/messages/0/signals/0/unit", R"("a\"b")"), "].unit: a double quote"},
    {"CommentEndsWithBackslash", Set("/nodes/0/comment", R"("a\\")"), "ends with a backslash"},
};

class JsonBroken : public JsonTest, public testing::WithParamInterface<BrokenCase> {};

TEST_P(JsonBroken, RefusedWithOneLineAndAnEmptyDatabase) {
    Json doc = ValidDocument(Path("valid.json"));
    const std::string text = GetParam().breakIt(doc);
    const Imported result = ImportText("Broken.json", text);
    EXPECT_EQ(result.status, 1u);
    const std::string expectedStart = "tavlo_json: " + Path("Broken.json") + ": ";
    EXPECT_EQ(result.errors.rfind(expectedStart, 0), 0u) << result.errors;
    EXPECT_NE(result.errors.find(GetParam().complaint), std::string::npos) << result.errors;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    ASSERT_NE(result.db, nullptr);  // created, open, and empty
    const tavlo_root_t root = result.db->Root();
    EXPECT_EQ(root.messages, nullptr);
    EXPECT_EQ(root.nodes, nullptr);
    EXPECT_EQ(root.envvars, nullptr);
    EXPECT_EQ(root.attr_defs, nullptr);
    EXPECT_EQ(root.db_attrs, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Cases, JsonBroken, testing::ValuesIn(kBrokenCases),
                         [](const testing::TestParamInfo<BrokenCase>& info) {
                             return std::string(info.param.name);
                         });

// The unbroken document imports, so the cases above fail for their one fault.
TEST_F(JsonTest, UnbrokenDocumentImports) {
    Json doc = ValidDocument(Path("valid.json"));
    const Imported result = ImportText("Whole.json", doc.dump(1));
    EXPECT_EQ(result.status, 0u) << result.errors;
    EXPECT_EQ(result.errors, "");
    ASSERT_NE(result.db, nullptr);
    EXPECT_NE(result.db->Root().messages, nullptr);
}

// ---- Files that cannot be read or written ----------------------------------------

TEST_F(JsonTest, EntriesReportFilesTheyCannotUse) {
    TavloExporter exporter(reader_, kModule, "Export");
    TavloImporter importer(writer_, kModule, "Import");
    ASSERT_NE(exporter.mEntry, nullptr);
    ASSERT_NE(importer.mEntry, nullptr);

    const std::string missing = Path("no/such/dir/x.json");
    testing::internal::CaptureStderr();
    EXPECT_EQ(exporter.mEntry(missing.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tavlo_json: " + missing + ": cannot be opened for writing\n");

    msgblk* messages = nullptr;
    symblk* nodes = nullptr;
    env_var_blk* envvars = nullptr;
    attr_def* defs = nullptr;
    attr* values = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(importer.mEntry(missing.c_str(), &messages, &nodes, &envvars, &defs, &values), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tavlo_json: " + missing + ": cannot be opened for reading\n");
    EXPECT_EQ(messages, nullptr);

    // An empty database makes a document of five empty lists.
    const std::string empty = Path("empty.json");
    EXPECT_EQ(exporter.mEntry(empty.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(Json::parse(FileText(empty)),
              (Json{{"attribute_definitions", Json::array()},
                    {"database_attributes", Json::array()},
                    {"nodes", Json::array()},
                    {"messages", Json::array()},
                    {"environment_variables", Json::array()}}));
}

TEST_F(JsonTest, ExporterFailsWhenTheFileCannotBeWritten) {
    const std::string dbcPath = WriteDatabase("net.dbc");
    const char* handle = nullptr;
    ASSERT_EQ(reader_.OpenDatabase(dbcPath.c_str(), &handle, 0), TAVLO_STATUS_OK);
    const std::string target = Path("missing_dir/out.json");
    testing::internal::CaptureStderr();
    EXPECT_EQ(TavloExporter(reader_, kModule, "Export").Export(handle, target.c_str()),
              TAVLO_STATUS_WRITE_FAILED);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(target), std::string::npos);
}

}  // namespace
}  // namespace tavlo::test
