// Tolerant loading of broken variants of a corpus file: one row per kind of
// fault. Each broken file loads with one warning (besides those of its kept
// statements) at the faulty statement's line and column, and gives the
// records and kept statements of the file as it should have been written
// (the faulty statement left out or repaired); a strict load fails.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/describe.h"
#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

struct Fault {
    const char* name;
    bool replaces;         // the span `find` matches; else inserts before it
    const char* find;      // in the corpus file; "..." stands for anything between
    const char* broken;    // what replaces it in the broken file
    const char* repaired;  // ... and in the file as it should have been (null: the original)
    unsigned int code;
    unsigned int line;
    unsigned int column;
};

const char* const kBefore113 = "BA_ \"VFrameFormat\" BO_ 2147483649 1;";
const char* const kSignal43 = " SG_ muxed_A_1 m1 : 8|8@1- (1,0) [0|0] \"\" Corvan__XXX\r\n";

const Fault kFaults[] = {
    {"CommentOfUnknownSignal", false, kBefore113, "CM_ SG_ 2147483649 nosuch \"x\";\r\n", "", 20, 113, 1},
    {"ValuesOfUnknownMessage", false, kBefore113, "VAL_ 99 muxed_A_1 1 \"one\" ;\r\n", "", 20, 113, 1},
    {"ValueOfUndefinedAttribute", false, kBefore113, "BA_ \"NoSuch\" BO_ 2147483649 1;\r\n", "", 21, 113, 1},
    {"ValueOfUnknownVariable", false, kBefore113, "BA_ \"ECU\" EV_ nosuch \"x\";\r\n", "", 20, 113, 1},
    {"DataOfUnknownVariable", false, kBefore113, "EV_DATA_ nosuch: 4;\r\n", "", 29, 113, 1},
    {"AttributeDefinedTwice", false, kBefore113, "BA_DEF_ BU_  \"ECU\" STRING ;\r\n", "", 19, 113, 1},
    {"ValueTableTwice", false, "BO_ 2147483649", "VAL_TABLE_ T 1 \"a\" ;\r\n VAL_TABLE_ T 2 \"b\" ;\r\n",
     "VAL_TABLE_ T 1 \"a\" ;\r\n", 19, 40, 2},
    {"CommentWithoutSemicolon", false, kBefore113, "CM_ BO_ 2147483649 \"note\"\r\n",
     "CM_ BO_ 2147483649 \"note\";\r\n", 101, 113, 1},
    {"UnknownMultiplexerForm", true, kSignal43, " SG_ muxed_A_1 m1x : 8|8@1- (1,0) [0|0] \"\" Corvan__XXX\r\n",
     " SG_ muxed_A_1 : 8|8@1- (1,0) [0|0] \"\" Corvan__XXX\r\n", 11, 43, 2},
    {"SignalTwice", false, " SG_ MUX_A M", " SG_ muxed_A_1 m1 : 0|1@1- (1,0) [0|0] \"\" X\r\n", "", 19, 44, 2},
    {"MessageTwice", false, "BA_DEF_ SG_  \"SigType\"",
     "BO_ 2147483649 again: 8 X\r\n SG_ s : 0|8@1+ (1,0) [0|0] \"\" Y\r\n", "", 19, 48, 1},
    {"LengthOutOfField", true, kSignal43, " SG_ muxed_A_1 m1 : 8|70000@1- (1,0) [0|0] \"\" Corvan__XXX\r\n",
     "", 1, 43, 2},
    {"StraySemicolon", true, "Corvan__XXX\r\n SG_ muxed_A_2", "Corvan__XXX;\r\n SG_ muxed_A_2",
     "Corvan__XXX\r\n SG_ muxed_A_2", 102, 41, 55},
    {"NoHeader", true, "VERSION...BU_:\r\n", "", nullptr, 100, 79, 1},
};

// The text with the span `find` matches replaced by `by`, or with `by`
// inserted before it for the faults that add a statement.
std::string Mutated(std::string text, const Fault& fault, const std::string& by) {
    const std::string find = fault.find;
    const std::size_t dots = find.find("...");
    const std::size_t at = text.find(find.substr(0, dots));
    if (at == std::string::npos) {
        ADD_FAILURE() << find;
        return text;
    }
    std::size_t end = at + find.size();
    if (dots != std::string::npos) {
        end = text.find(find.substr(dots + 3), at) + find.size() - dots - 3;
    }
    return text.replace(at, fault.replaces ? end - at : 0, by);
}

std::string Written(const std::string& text, const char* suffix) {
    const std::string path = tavlo::test::TestFilePath(suffix);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::vector<std::string> Texts(const tavlo::Loaded& loaded) {
    std::vector<std::string> texts;
    for (const tavlo_kept_t& statement : loaded.kept()) {
        texts.push_back(statement.text);
    }
    return texts;
}

class Tolerance : public ::testing::TestWithParam<Fault> {};

TEST_P(Tolerance, SkipsOrRepairsTheOneStatement) {
    const Fault& fault = GetParam();
    std::ifstream in(std::string(TAVLOMS_CORPUS_DIR) + "/issue_184_extended_mux_cascaded.dbc",
                     std::ios::binary);
    const std::string original{std::istreambuf_iterator<char>(in), {}};
    const std::string broken = Written(Mutated(original, fault, fault.broken), "_broken.dbc");
    const std::string repaired = Written(
        fault.repaired != nullptr ? Mutated(original, fault, fault.repaired) : original,
        "_repaired.dbc");

    tavlo::Loaded tolerant(broken.c_str(), TAVLO_LOAD_TOLERANT);
    tavlo::Loaded expected(repaired.c_str(), TAVLO_LOAD_STRICT);
    tavlo::Loaded strict(broken.c_str(), TAVLO_LOAD_STRICT);
    std::remove(broken.c_str());
    std::remove(repaired.c_str());

    ASSERT_TRUE(expected.ok());
    EXPECT_TRUE(tolerant.ok());
    EXPECT_FALSE(strict.ok());
    std::size_t errors = 0;  // a strict load fails with one error, whatever stopped it
    for (const tavlo_diagnostic_t& diagnostic : strict.diagnostics()) {
        errors += diagnostic.severity == TAVLO_SEVERITY_ERROR ? 1 : 0;
    }
    EXPECT_EQ(errors, 1u);
    std::vector<tavlo_diagnostic_t> faults;
    for (const tavlo_diagnostic_t& diagnostic : tolerant.diagnostics()) {
        EXPECT_EQ(diagnostic.severity, TAVLO_SEVERITY_WARNING);
        if (diagnostic.code != 26) {  // "new symbol not supported": a kept statement
            faults.push_back(diagnostic);
        }
    }
    ASSERT_GE(faults.size(), 1u);
    EXPECT_EQ(faults[0].code, fault.code) << faults[0].text;
    EXPECT_EQ(faults[0].line, fault.line) << faults[0].text;
    EXPECT_EQ(faults[0].column, fault.column) << faults[0].text;
    if (fault.code != 100) {
        EXPECT_EQ(faults.size(), 1u);
    }
    EXPECT_EQ(tavlo::test::DescribeDatabase(tolerant.root()),
              tavlo::test::DescribeDatabase(expected.root()));
    EXPECT_EQ(Texts(tolerant), Texts(expected));
}

INSTANTIATE_TEST_SUITE_P(Faults, Tolerance, ::testing::ValuesIn(kFaults),
                         [](const ::testing::TestParamInfo<Fault>& info) {
                             return std::string(info.param.name);
                         });

// A definition followed by a token that cannot be read (line 10) is linked
// in before the fault; later statements must find it: a default of the
// wrong kind for it is refused as such (illegal mode, line 11) and the
// definition's default stays.
TEST(Tolerance, DefinitionBeforeAnUnreadableTokenIsFound) {
    const std::string path = Written(
        "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_: A\n\nBA_DEF_ \"Level\" INT 0 10;\nX\xff;\n"
        "BA_DEF_DEF_ \"Level\" \"high\";\n",
        "_unreadable.dbc");
    tavlo::Loaded tolerant(path.c_str(), TAVLO_LOAD_TOLERANT);
    std::remove(path.c_str());
    ASSERT_TRUE(tolerant.ok());
    bool refused = false;
    for (const tavlo_diagnostic_t& diagnostic : tolerant.diagnostics()) {
        refused = refused || (diagnostic.code == 11 && diagnostic.line == 11);
    }
    EXPECT_TRUE(refused);
    ASSERT_NE(tolerant.root().attr_defs, nullptr);
    const double kept = tolerant.root().attr_defs->default_value.number;  // a packed record's
    EXPECT_EQ(kept, 0.0);
}

}  // namespace

namespace {

// A database a manager opens keeps its statements as the loading entry does,
// until it is closed.
TEST(KeptStatements, ReachableForManagerDatabases) {
    const std::string path =
        std::string(TAVLOMS_CORPUS_DIR) + "/issue_184_extended_mux_cascaded.dbc";
    const tavlo::Loaded loaded(path.c_str(), TAVLO_LOAD_STRICT);
    ASSERT_EQ(Texts(loaded).size(), 4u);
    TavloManager manager(static_cast<void*>(nullptr));
    const char* db = nullptr;
    ASSERT_EQ(manager.OpenDatabase(path.c_str(), &db, 0), TAVLO_STATUS_OK);
    size_t count = 0;
    const tavlo_kept_t* kept = TavloGetKeptStatements(manager, db, &count);
    ASSERT_EQ(count, 4u);
    for (size_t i = 0; i < count; ++i) {
        EXPECT_STREQ(kept[i].text, loaded.kept()[i].text);
        EXPECT_EQ(kept[i].line, loaded.kept()[i].line);
    }
    manager.CloseDatabase(db, false);
    EXPECT_EQ(TavloGetKeptStatements(manager, db, &count), nullptr);
    EXPECT_EQ(count, 0u);
}

}  // namespace

namespace {

// A long file is read in full whatever the reader gives back of what it has
// read: every kept statement's text and line, a comment on a line longer
// than the reader looks back, and the place of a fault at the end, with
// either line end.
TEST(KeptStatements, EveryOneOfALongFile) {
    for (const std::string end : {"\n", "\r\n"}) {
        std::string text = "VERSION \"\"" + end + "NS_ :" + end + " SG_MUL_VAL_" + end + "BS_:" +
                           end + "BU_: A" + end + "BO_ 1 M: 8 A" + end +
                           " SG_ S m0 : 0|8@1+ (1,0) [0|0] \"\" A" + end +
                           " SG_ Mx M : 8|8@1+ (1,0) [0|0] \"\" A" + end;
        unsigned int line = 8;
        const std::string note(100000, 'n');
        std::vector<std::string> statements;
        for (int i = 0; i < 120000; ++i) {
            if (i == 60000) {
                text += "CM_ BO_ 1 \"" + note + "\";" + end;
                ++line;
            }
            statements.push_back("SG_MUL_VAL_ 1 S Mx " + std::to_string(i) + "-" +
                                 std::to_string(i) + ";" + end);
            text += statements.back();
            ++line;
        }
        text += "CM_ SG_ 1 nosuch \"x\";" + end;
        const std::string path = Written(text, "_long.dbc");
        tavlo::Loaded loaded(path.c_str(), TAVLO_LOAD_TOLERANT);
        std::remove(path.c_str());
        ASSERT_TRUE(loaded.ok());
        const std::vector<tavlo_kept_t> kept = loaded.kept();
        ASSERT_EQ(kept.size(), statements.size());
        for (std::size_t i = 0; i < statements.size(); ++i) {
            ASSERT_EQ(kept[i].text, statements[i].substr(0, statements[i].size() - end.size()));
            ASSERT_EQ(kept[i].line, 9 + i + (i >= 60000 ? 1 : 0));
        }
        ASSERT_NE(loaded.root().messages, nullptr);
        EXPECT_EQ(std::string(loaded.root().messages->comment), note);
        const tavlo_diagnostic_t last = loaded.diagnostics().back();
        EXPECT_EQ(last.code, 20u);
        EXPECT_EQ(last.line, line + 1);
        EXPECT_EQ(last.column, 1u);
    }
}

}  // namespace
