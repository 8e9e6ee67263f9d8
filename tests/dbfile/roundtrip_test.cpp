// Writing and reading back: a written file reads back to the same records
// and writes again to the same bytes, except where the writer's own rules
// reorder or drop something; each such rule is tested as the behaviour it is.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/describe.h"
#include "support/read_database.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::DescribeDatabase;
using tavlo::test::FileContent;
using tavlo::test::ReadDatabase;
using tavlo::test::ReadOutcome;
using tavlo::test::ReadText;
using tavlo::test::TestFilePath;
using tavlo::test::WriteDatabase;

// A database released at the end of the scope.
struct Database {
    tavlo_root_t root = {};
    ~Database() { TAVLO_FREE_ROOT(&root); }
};

// Writes `root`, reads the file into `back`; returns the written text.
std::string WriteAndRead(const tavlo_root_t& root, Database* back, ReadOutcome* outcome = nullptr) {
    const std::string path = TestFilePath(".dbc");
    EXPECT_EQ(WriteDatabase(path, root), 0u);
    const std::string text = FileContent(path);
    const ReadOutcome read = ReadDatabase(path, &back->root);
    std::remove(path.c_str());
    if (outcome != nullptr) {
        *outcome = read;
    } else {
        EXPECT_FALSE(read.raised);
        EXPECT_EQ(read.result, 0u);
        EXPECT_TRUE(read.messages.empty()) << read.messages.front();
    }
    return text;
}

std::string CorpusPath(const std::string& file) {
    return std::string(TAVLOMS_CORPUS_DIR) + "/" + file;
}

// The corpus files that read (the rest fail on purpose; see EXPECTED.tsv).
std::vector<std::string> ReadableCorpusFiles() {
    std::vector<std::string> files;
    std::ifstream in(CorpusPath("EXPECTED.tsv"));
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        std::stringstream fields(line);
        std::string file;
        std::string outcome;
        std::getline(fields, file, '\t');
        std::getline(fields, outcome, '\t');
        if (outcome == "OK") {
            files.push_back(file);
        }
    }
    return files;
}

// Drops an empty comment, as the writer does not write it.
void DropEmpty(char** comment) {
    if (*comment != nullptr && **comment == '\0') {
        TAVLO_MFREE(*comment);
        *comment = nullptr;
    }
}

// What the writer cannot keep, taken out of a database read from a file: a
// multiplexed signal that is also the mode signal is written as " M" alone;
// empty comments are not written. (Numbers keep 11 significant digits; the
// comparison describes them so.)
void DropWhatTheWriterLoses(tavlo_root_t* root) {
    DropEmpty(&root->comment);
    for (symblk* node = root->nodes; node != nullptr; node = node->next) {
        char* comment = node->comment;
        DropEmpty(&comment);
        node->comment = comment;
    }
    for (msgblk* message = root->messages; message != nullptr; message = message->next) {
        char* comment = message->comment;
        DropEmpty(&comment);
        message->comment = comment;
        for (sigblk* signal = message->signals; signal != nullptr; signal = signal->next) {
            comment = signal->comment;
            DropEmpty(&comment);
            signal->comment = comment;
            if ((signal->flags & TAVLO_SIG_MODE) != 0) {
                signal->flags = static_cast<unsigned char>(signal->flags & ~TAVLO_SIG_MULTIPLEXED);
                signal->mode_value = 0;
            }
        }
    }
    for (env_var_blk* envvar = root->envvars; envvar != nullptr; envvar = envvar->next) {
        char* comment = envvar->comment;
        DropEmpty(&comment);
        envvar->comment = comment;
    }
}

class CorpusRoundTrip : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusRoundTrip, ReadsBackTheSameRecordsAndWritesTheSameBytes) {
    Database first;
    const ReadOutcome read = ReadDatabase(CorpusPath(GetParam()), &first.root);
    ASSERT_FALSE(read.raised);
    Database second;
    const std::string written = WriteAndRead(first.root, &second);
    DropWhatTheWriterLoses(&first.root);
    EXPECT_EQ(DescribeDatabase(second.root, 11), DescribeDatabase(first.root, 11));
    Database third;
    EXPECT_EQ(WriteAndRead(second.root, &third), written);
}

std::string FileName(const ::testing::TestParamInfo<std::string>& info) {
    std::string name;
    for (char c : info.param) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Files, CorpusRoundTrip, ::testing::ValuesIn(ReadableCorpusFiles()),
                         FileName);

TEST(RoundTrip, EveryKindOfRecordSurvivesAndTheSecondWriteIsIdentical) {
    Database sample;
    sample.root = tavlo::test::BuildSampleDatabase();
    Database back;
    const std::string first = WriteAndRead(sample.root, &back);
    Database again;
    EXPECT_EQ(WriteAndRead(back.root, &again), first);
    EXPECT_EQ(DescribeDatabase(again.root), DescribeDatabase(back.root));
}

// A file in canonical form, as the writer itself would write it, reads and
// writes back byte for byte.
TEST(RoundTrip, CanonicalFileIsWrittenBackByteForByte) {
    const std::string text =
        "VERSION \"7\"\n"
        "\n"
        "\n"
        "NS_ : \n"
        "\tNS_DESC_\n\tCM_\n\tBA_DEF_\n\tBA_\n\tVAL_\n\tCAT_DEF_\n\tCAT_\n\tFILTER\n"
        "\tBA_DEF_DEF_\n\tEV_DATA_\n\tENVVAR_DATA_\n\tSGTYPE_\n\tSGTYPE_VAL_\n"
        "\tBA_DEF_SGTYPE_\n\tBA_SGTYPE_\n\tSIG_TYPE_REF_\n\tVAL_TABLE_\n\tSIG_GROUP_\n"
        "\tSIG_VALTYPE_\n\tSIGTYPE_VALTYPE_\n\tBO_TX_BU_\n\tBA_DEF_REL_\n\tBA_REL_\n"
        "\tBA_DEF_DEF_REL_\n\tBU_SG_REL_\n\tBU_EV_REL_\n\tBU_BO_REL_\n"
        "\n"
        "BS_:\n"
        "\n"
        "BU_: A B\n"
        "VAL_TABLE_ T 1 \"one\" 0 \"zero\" ;\n"
        "\n"
        "\n"
        "BO_ 2147483748 Big: 8 A\n"
        " SG_ Mux M : 0|8@1+ (1,0) [0|255] \"\"  B\n"
        " SG_ Value m1 : 15|16@0- (0.01,-40) [-40|615.35] \"km/h\"  A,B\n"
        "\n"
        "BO_ 5 Small: 1 Corvan__XXX\n"
        " SG_ Bit : 0|1@1+ (1,0) [0|1] \"\" Corvan__XXX\n"
        "\n"
        "BO_TX_BU_ 2147483748 : A,B;\n"
        "\n"
        "\n"
        "EV_ Level: 1 [-1.5|1E+20] \"V\" 0.25 3 DUMMY_NODE_CORVAN3  A,B;\n"
        "\n"
        "EV_ Name: 0 [0|0] \"\" 0 4 DUMMY_NODE_CORVAN8001 Corvan__XXX;\n"
        "\n"
        "EV_ Blob: 0 [0|0] \"\" 0 5 DUMMY_NODE_CORVAN0 Corvan__XXX;\n"
        "ENVVAR_DATA_ Blob: 6;\n"
        "SGTYPE_ Type : 8@1+ (1,0) [0|255] \"\"  0 T;\n"
        "\n"
        "CM_ \"file \\\"one\\\"\nline two\";\n"
        "CM_ BU_ A \"node\";\n"
        "CM_ BO_ 2147483748 \"message\";\n"
        "CM_ SG_ 2147483748 Value \"signal\";\n"
        "CM_ EV_ Level \"variable\";\n"
        "CM_ SGTYPE_ Type \"type\";\n"
        "BA_DEF_  \"Db\" INT -5 10;\n"
        "BA_DEF_ BO_  \"Cycle\" HEX 0 4294967295;\n"
        "BA_DEF_ SG_  \"Kind\" ENUM  \"a\",\"corvan_leerstring\",\"b\";\n"
        "BA_DEF_ SG_  \"TypeAttr\" FLOAT 0 1;\n"
        "BA_DEF_SGTYPE_ \"TypeAttr\";\n"
        "BA_DEF_REL_ BU_SG_REL_  \"Rx\" STRING ;\n"
        "BA_DEF_DEF_  \"Db\" 1;\n"
        "BA_DEF_DEF_  \"Cycle\" 100;\n"
        "BA_DEF_DEF_  \"Kind\" \"b\";\n"
        "BA_DEF_DEF_  \"TypeAttr\" 0.5;\n"
        "BA_DEF_DEF_REL_ \"Rx\" \"\";\n"
        "BA_ \"Db\" 2;\n"
        "BA_ \"Cycle\" BO_ 2147483748 255;\n"
        "BA_ \"Kind\" SG_ 2147483748 Value 2;\n"
        "BA_SGTYPE_ \"TypeAttr\" SGTYPE_ Type 0.75;\n"
        "BA_REL_ \"Rx\" BU_SG_REL_ B SG_ 2147483748 Value \"late\";\n"
        "VAL_ 2147483748 Mux 0 \"zero\" 1 \"one\" ;\n"
        "VAL_ Level -1 \"low\" ;\n"
        "CAT_DEF_ 1 Chassis 2;\n"
        "CAT_ BU_ A 1;\n"
        "CAT_ EV_ Level 1;\n"
        "CAT_ BO_ 5 1;\n"
        "FILTER 9 CAT_ 1 0 BU_ A \"<<none>>\" ;\n"
        "SIG_TYPE_REF_ 5 Bit : Type;\n"
        "SIG_GROUP_ 2147483748 Pair 1 : Mux Value;\n"
        "SIG_VALTYPE_ 2147483748 Value : 1;\n"
        "SIGTYPE_VALTYPE_ Type : 2;\n";
    Database db;
    const ReadOutcome read = ReadText(text, &db.root);
    ASSERT_FALSE(read.raised);
    ASSERT_TRUE(read.messages.empty()) << read.messages.front();
    Database back;
    EXPECT_EQ(WriteAndRead(db.root, &back), text);
}

}  // namespace

namespace {

const char kRuleHeader[] = "VERSION \"\"\nBS_:\nBU_: A B\n";

// Reads `text`, lets `change` alter the records, writes them and reads the
// file back into `back`; returns the written text.
template <class Change>
std::string ReadWriteRead(const std::string& text, Change change, Database* back,
                          ReadOutcome* outcome = nullptr) {
    Database first;
    const ReadOutcome read = ReadText(kRuleHeader + text, &first.root);
    EXPECT_FALSE(read.raised);
    change(&first.root);
    return WriteAndRead(first.root, back, outcome);
}

void NoChange(tavlo_root_t*) {}

TEST(WriterRules, RelationDefinitionsComeAfterTheOthers) {
    Database back;
    ReadWriteRead("BA_DEF_REL_ BU_SG_REL_ \"Rel\" INT 0 1;\nBA_DEF_ \"Db\" INT 0 1;\n", NoChange,
                  &back);
    ASSERT_NE(back.root.attr_defs, nullptr);
    EXPECT_STREQ(back.root.attr_defs->name, "Db");
    EXPECT_STREQ(back.root.attr_defs->next->name, "Rel");
}

TEST(WriterRules, LoneTransmitterEntryIsKeptOnlyThroughItsRelationValues) {
    const std::string messages = "BO_ 1 One: 1 A\nBO_ 2 Two: 1 A\nBO_TX_BU_ 1 : A;\nBO_TX_BU_ 2 : A;\n"
                                 "BA_DEF_REL_ BU_BO_REL_ \"Tx\" INT 0 9;\n";
    Database back;
    const std::string written =
        ReadWriteRead(messages + "BA_REL_ \"Tx\" BU_BO_REL_ A 2 5;\n", NoChange, &back);
    EXPECT_EQ(written.find("\nBO_TX_BU_ "), std::string::npos);
    EXPECT_EQ(+TAVLO_GET_MESSAGE(back.root.messages, 1)->transmitters, nullptr);
    rxblk* kept = TAVLO_GET_MESSAGE(back.root.messages, 2)->transmitters;
    ASSERT_NE(kept, nullptr);
    EXPECT_STREQ(kept->symbol->name, "A");
    EXPECT_EQ(+kept->attributes->value.number, 5.0);
}

TEST(WriterRules, AccessNodeBringsBitOneOfTheAccessCode) {
    Database back;
    ReadWriteRead(
        "EV_ V: 0 [0|1] \"\" 0 1 DUMMY_NODE_CORVAN1 A;\n",
        [](tavlo_root_t* root) { root->envvars->access_type = 1; }, &back);
    EXPECT_EQ(+back.root.envvars->access_type, 3u);
}

TEST(WriterRules, ModeSignalLosesItsMultiplexedFlag) {
    Database back;
    const std::string written =
        ReadWriteRead("BO_ 1 M: 1 A\n SG_ S m3M : 0|1@1+ (1,0) [0|1] \"\" B\n", NoChange, &back);
    EXPECT_NE(written.find(" SG_ S M : 0|1@1+"), std::string::npos);
    EXPECT_EQ(+back.root.messages->signals->flags, TAVLO_SIG_MODE);
}

TEST(WriterRules, EmptyFilterListReadsBackAsTheNoneEntry) {
    Database back;
    const std::string written = ReadWriteRead("FILTER 4 CAT_ BU_ A ;\n", NoChange, &back);
    EXPECT_NE(written.find("FILTER 4 CAT_ 0 BU_ A ;"), std::string::npos);
    ASSERT_NE(back.root.filter.categories, nullptr);
    EXPECT_EQ(+back.root.filter.categories->act, nullptr);
}

TEST(WriterRules, EmptyCommentsAndLongNumbersAreNotKept) {
    Database back;
    ReadWriteRead("CM_ BU_ A \"\";\nBO_ 1 M: 1 A\n SG_ S : 0|1@1+ (0.1234567890123,0) [0|1] \"\" B\n",
                  NoChange, &back);
    EXPECT_EQ(+TAVLO_GET_SYMBOL_NAME(back.root.nodes, "A")->comment, nullptr);
    EXPECT_EQ(+back.root.messages->signals->factor, 0.12345678901);
}

TEST(WriterRules, QuoteInAStringValueIsWrittenUnescapedAndBreaksTheFile) {
    Database back;
    ReadOutcome outcome;
    ReadWriteRead(
        "BA_DEF_ \"S\" STRING ;\nBA_ \"S\" \"plain\";\n",
        [](tavlo_root_t* root) {
            TAVLO_MFREE(root->db_attrs->value.text);
            root->db_attrs->value.text = tavlo::test::Text("say \"hi\"");
        },
        &back, &outcome);
    EXPECT_TRUE(outcome.raised);
    ASSERT_EQ(outcome.messages.size(), 1u);
    EXPECT_NE(outcome.messages[0].find("error: syntax"), std::string::npos);
}

}  // namespace
