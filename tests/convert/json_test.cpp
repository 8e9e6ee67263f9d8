// tests/convert/json_test.cpp: the JSON converter module. Databases go out
// as JSON and come back with the same five lists; a document of edge values
// (tests/convert/data/edge.json) comes back byte for byte; each broken
// document of data/json_broken.txt is refused with one line on standard
// error and leaves the database empty.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "manager/fixture.h"
#include "support/describe.h"
#include "support/post_capture.h"
#include "support/read_database.h"
#include "tavloms/convert.h"
#include "tavloms/lifecycle.h"
#include "tavloms/writemanager.h"

namespace tavlo::test {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kModule = TAVLOMS_JSON_MODULE;
const std::string kData = TAVLOMS_CONVERT_DATA_DIR;

// The five lists a module sees, described (references by name).
std::string DescribeFive(const tavlo_root_t& db) {
    tavlo_root_t five{};
    five.nodes = db.nodes;
    five.messages = db.messages;
    five.envvars = db.envvars;
    five.attr_defs = db.attr_defs;
    five.db_attrs = db.db_attrs;
    return DescribeDatabase(five);
}

void StripRelationValues(rxblk* list) {
    for (; list != nullptr; list = list->next) {
        TAVLO_FREE(nullptr, nullptr, nullptr, nullptr, nullptr, list->attributes, nullptr,
                   filter_t{}, nullptr, nullptr, nullptr, nullptr);
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

// A root of the test's own, released with it: read from a database file
// (what the document does not carry taken out), or empty.
struct Root {
    explicit Root(const std::string& path = "") {
        const ReadOutcome read = path.empty() ? ReadOutcome{} : ReadDatabase(path, &root);
        EXPECT_TRUE(!read.raised && read.result == 0) << path;
        StripUncarried(root);
    }
    ~Root() { TAVLO_FREE_ROOT(&root); }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;

    tavlo_root_t root{};
};

class JsonTest : public ManagerTest {
protected:
    std::string Path(const std::string& name) const {
        return (std::filesystem::path(dir_) / name).string();  // the platform's separator
    }
    // The module's entries called straight.
    int Export(const tavlo_root_t& db, const std::string& path) {
        return exporter_.mEntry(path.c_str(), db.messages, db.nodes, db.envvars, db.attr_defs,
                                db.db_attrs);
    }
    int Import(const std::string& path, tavlo_root_t& db) {
        return importer_.mEntry(path.c_str(), &db.messages, &db.nodes, &db.envvars, &db.attr_defs,
                                &db.db_attrs);
    }

    PostCapture posts_;
    TavloManager reader_{reinterpret_cast<HWND>(1)};
    TavloWriteManager writer_{reinterpret_cast<HWND>(2)};
    TavloExporter exporter_{reader_, kModule, "Export"};
    TavloImporter importer_{writer_, kModule, "Import"};
};

// ---- Database files out and back --------------------------------------------------

std::vector<std::string> RoundTripFiles() {
    std::vector<std::string> files = {DataFile("powertrain.dbc"), DataFile("body.dbc"),
                                      DataFile("diagnosis.dbc")};
    for (const char* name : {"abs.dbc", "attributes.dbc", "big_numbers.dbc", "choices.dbc",
                             "cp1252.dbc", "emc32.dbc", "floating_point.dbc", "j1939.dbc",
                             "long_names.dbc", "motohawk_with_comments.dbc", "multiple_senders.dbc",
                             "multiplex_2.dbc", "no_sender.dbc", "relation_attributes.dbc",
                             "sig_groups.dbc", "socialledge.dbc", "timing.dbc", "val_table.dbc",
                             "vehicle.dbc", "issue_636_negative_scaling.dbc"}) {
        files.push_back(std::string(TAVLOMS_CORPUS_DIR) + "/" + name);
    }
    return files;
}

class JsonRoundTrip : public JsonTest, public testing::WithParamInterface<std::string> {};

// Every field the document carries comes back, including those the
// library's copy leaves out (further transmitters, value types, data
// lengths); this also shows the document the broken rows start from
// (powertrain.dbc's) to be sound. The tool tests take databases through the
// library's exporter and importer.
TEST_P(JsonRoundTrip, EntriesReproduceTheFiveLists) {
    Root source(GetParam());
    Root back;
    ASSERT_EQ(Export(source.root, Path("out.json")), 1);
    ASSERT_EQ(Import(Path("out.json"), back.root), 1);
    EXPECT_EQ(DescribeFive(back.root), DescribeFive(source.root));
}

INSTANTIATE_TEST_SUITE_P(Files, JsonRoundTrip, testing::ValuesIn(RoundTripFiles()));

// ---- Edge values ------------------------------------------------------------------

// Values at the edges of what the records hold, as the records hold them,
// and back in the same text.
TEST_F(JsonTest, EdgeValuesComeBackExactly) {
    const std::string edgePath = kData + "/edge.json";
    Root edge;
    ASSERT_EQ(Import(edgePath, edge.root), 1);
    const msgblk& message = *edge.root.messages;
    const sigblk& signal = *message.signals;
    EXPECT_EQ(+message.id, 0xFFFFFFFFu);
    EXPECT_EQ(+message.signal_count, 7);  // kept as given, not counted
    EXPECT_STREQ(signal.unit, "\xB0" "C");  // a character per byte
    EXPECT_TRUE(std::signbit(+signal.offset));
    EXPECT_EQ(+signal.minimum, std::numeric_limits<double>::lowest());
    EXPECT_STREQ(edge.root.attr_defs->minimum.text, "Off\n\nOn\n");  // four texts, two empty
    EXPECT_EQ(+edge.root.envvars->node, edge.root.nodes);
    ASSERT_EQ(Export(edge.root, Path("back.json")), 1);
    EXPECT_EQ(FileContent(Path("back.json")), FileContent(edgePath));

    // What the document cannot name is left out; numbers JSON has no form
    // for are texts.
    edge.root.db_attrs->next = static_cast<attr*>(TAVLO_MALLOC(sizeof(attr)));  // zeroed
    edge.root.messages->signals->receivers->next = TAVLO_CREATE_RX(nullptr);
    edge.root.envvars->initial_value = std::numeric_limits<double>::quiet_NaN();
    edge.root.envvars->maximum = std::numeric_limits<double>::infinity();
    edge.root.attr_defs->next->next->minimum.number = -std::numeric_limits<double>::infinity();
    ASSERT_EQ(Export(edge.root, Path("odd.json")), 1);
    Json expected = Json::parse(FileContent(edgePath));
    expected["environment_variables"][0]["initial_value"] = "nan";
    expected["environment_variables"][0]["maximum"] = "inf";
    expected["attribute_definitions"][2]["minimum"] = "-inf";
    EXPECT_EQ(Json::parse(FileContent(Path("odd.json"))), expected);
}

// ---- Broken documents -------------------------------------------------------------

struct Broken {
    std::string row;        // as written, for the failure message
    std::string pointer;    // where the document is changed; "" for all of it
    std::string value;      // the JSON put there ("" removes it), or the whole text
    std::string complaint;  // part of the one line on standard error
};

// The rows of json_broken.txt: "POINTER [VALUE] => COMPLAINT" or
// "text: TEXT => COMPLAINT".
std::vector<Broken> BrokenRows() {
    std::vector<Broken> rows;
    std::ifstream in(kData + "/json_broken.txt");
    for (std::string line; std::getline(in, line);) {
        const std::size_t arrow = line.rfind(" => ");
        if (line.empty() || line[0] == '#' || arrow == std::string::npos) {
            continue;
        }
        const std::string change = line.substr(0, arrow);
        const bool text = change.rfind("text: ", 0) == 0;
        const std::size_t blank = text ? 5 : std::min(change.find(' '), change.size());
        rows.push_back({line, text ? "" : change.substr(0, blank),
                        blank < change.size() ? change.substr(blank + 1) : "",
                        line.substr(arrow + 4)});
    }
    return rows;
}

class JsonBroken : public JsonTest, public testing::WithParamInterface<Broken> {};

TEST_P(JsonBroken, RefusedWithOneLineAndAnEmptyDatabase) {
    const Broken& broken = GetParam();
    std::string text = broken.value;
    if (!broken.pointer.empty()) {
        Root source(DataFile("powertrain.dbc"));
        ASSERT_EQ(Export(source.root, Path("valid.json")), 1);
        Json doc = Json::parse(FileContent(Path("valid.json")));
        const Json::json_pointer at(broken.pointer);
        if (broken.value.empty()) {
            doc[at.parent_pointer()].erase(at.back());
        } else {
            doc[at] = Json::parse(broken.value);
        }
        text = doc.dump(1);
    }
    const std::string path = WriteFile("Broken.json", text);
    const char* handle = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(importer_.Import("Broken", &handle, path.c_str()), 1u) << broken.row;
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(errors.rfind("tavlo_json: " + path + ": ", 0), 0u) << broken.row << "\n" << errors;
    EXPECT_NE(errors.find(broken.complaint), std::string::npos) << broken.row << "\n" << errors;
    EXPECT_EQ(errors.find('\n'), errors.size() - 1) << broken.row << "\n" << errors;
    ASSERT_NE(writer_.GetDatabase(handle), nullptr);  // created, open, and empty
    EXPECT_EQ(DescribeFive(writer_.GetDatabase(handle)->Root()), DescribeFive(tavlo_root_t{}));
}

INSTANTIATE_TEST_SUITE_P(Rows, JsonBroken, testing::ValuesIn(BrokenRows()));

// (The tool tests show an export to a path that cannot be written, and of
// an empty database.)
TEST_F(JsonTest, ImportReportsAFileItCannotRead) {
    const std::string missing = Path("no/such/dir/x.json");
    Root none;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Import(missing, none.root), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tavlo_json: " + missing + ": cannot be opened for reading\n");
    EXPECT_EQ(none.root.messages, nullptr);
}

}  // namespace
}  // namespace tavlo::test
