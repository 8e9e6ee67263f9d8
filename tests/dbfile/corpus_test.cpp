// Real files as other tools write them (corpus/, with corpus/EXPECTED.tsv):
// each reads with the outcome, the number of warnings and the first message
// the table gives; each that reads is written, read back to the same records
// (less what the writer drops) and written again to the same bytes. The same
// round trip for the sample database, which holds every kind of record.
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
using tavlo::test::ReadDatabase;
using tavlo::test::ReadOutcome;

struct Expectation {
    std::string file;
    std::string outcome;  // "OK" or "ERROR"
    std::size_t warnings;
    std::string firstMessage;
};

std::string CorpusPath(const std::string& file) {
    return std::string(TAVLOMS_CORPUS_DIR) + "/" + file;
}

std::vector<Expectation> LoadExpectations() {
    std::vector<Expectation> rows;
    std::ifstream in(CorpusPath("EXPECTED.tsv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::stringstream stream(line);
        for (std::string field; std::getline(stream, field, '\t');) {
            fields.push_back(field);
        }
        fields.resize(4);
        rows.push_back({fields[0], fields[1], std::stoul(fields[2]), fields[3]});
    }
    return rows;
}

// A database released at the end of the scope.
struct Database {
    tavlo_root_t root = {};
    ~Database() { TAVLO_FREE_ROOT(&root); }
};

// Writes `root`, reads the file into `back`, which must read cleanly;
// returns the written text.
std::string WriteAndRead(const tavlo_root_t& root, Database* back) {
    const std::string path = tavlo::test::TestFilePath(".dbc");
    EXPECT_EQ(tavlo::test::WriteDatabase(path, root), 0u);
    const std::string text = tavlo::test::FileContent(path);
    const ReadOutcome read = ReadDatabase(path, &back->root);
    std::remove(path.c_str());
    EXPECT_FALSE(read.raised);
    EXPECT_EQ(read.result, 0u);
    EXPECT_EQ(read.messages, std::vector<std::string>{});
    return text;
}

// What the writer does not keep: empty comments, and the multiplexed flag
// and value of a signal that is also the mode signal (written as " M").
void DropWhatTheWriterLoses(tavlo_root_t* root) {
    auto dropEmpty = [](char* comment) -> char* {  // by value: the records' fields are packed
        if (comment != nullptr && *comment == '\0') {
            TAVLO_MFREE(comment);
            return nullptr;
        }
        return comment;
    };
    root->comment = dropEmpty(root->comment);
    for (symblk* node = root->nodes; node != nullptr; node = node->next) {
        node->comment = dropEmpty(node->comment);
    }
    for (msgblk* message = root->messages; message != nullptr; message = message->next) {
        message->comment = dropEmpty(message->comment);
        for (sigblk* signal = message->signals; signal != nullptr; signal = signal->next) {
            signal->comment = dropEmpty(signal->comment);
            if ((signal->flags & TAVLO_SIG_MODE) != 0) {
                signal->flags = static_cast<unsigned char>(signal->flags & ~TAVLO_SIG_MULTIPLEXED);
                signal->mode_value = 0;
            }
        }
    }
    for (env_var_blk* envvar = root->envvars; envvar != nullptr; envvar = envvar->next) {
        envvar->comment = dropEmpty(envvar->comment);
    }
}

class Corpus : public ::testing::TestWithParam<Expectation> {};

TEST_P(Corpus, ReadsAsExpectedAndRoundTrips) {
    const Expectation& expected = GetParam();
    Database first;
    const ReadOutcome outcome = ReadDatabase(CorpusPath(expected.file), &first.root);
    EXPECT_EQ(outcome.raised ? "ERROR" : "OK", expected.outcome);
    EXPECT_EQ(outcome.result, 0u);
    EXPECT_EQ(outcome.messages.size() - (outcome.raised ? 1 : 0), expected.warnings);
    EXPECT_EQ(outcome.messages.empty() ? "" : outcome.messages.front(), expected.firstMessage);
    if (outcome.raised) {
        return;
    }
    Database second;
    const std::string written = WriteAndRead(first.root, &second);
    DropWhatTheWriterLoses(&first.root);
    EXPECT_EQ(DescribeDatabase(second.root, 11), DescribeDatabase(first.root, 11));
    Database third;
    EXPECT_EQ(WriteAndRead(second.root, &third), written);
}

std::vector<std::string> Texts(const std::vector<tavlo_kept_t>& kept) {
    std::vector<std::string> texts;
    for (const tavlo_kept_t& statement : kept) {
        texts.push_back(std::to_string(statement.line) + ":" + statement.text);
    }
    return texts;
}

// The loading entry: strict loading gives TAVLO_READ's records, with its
// warnings and its one error as diagnostics; tolerant loading gives the same
// records from a file TAVLO_READ reads, and the statements it keeps come back
// from a write with them.
TEST_P(Corpus, LoadsAsTheReaderReads) {
    const Expectation& expected = GetParam();
    const std::string path = CorpusPath(expected.file);
    Database legacy;
    const ReadOutcome outcome = ReadDatabase(path, &legacy.root);
    tavlo::Loaded strict(path.c_str(), TAVLO_LOAD_STRICT);
    EXPECT_EQ(strict.ok(), !outcome.raised);
    EXPECT_EQ(DescribeDatabase(strict.root()), DescribeDatabase(legacy.root));
    std::size_t counts[2] = {0, 0};  // errors, warnings
    for (const tavlo_diagnostic_t& diagnostic : strict.diagnostics()) {
        ++counts[diagnostic.severity];
        EXPECT_GT(diagnostic.line * diagnostic.column, 0u) << diagnostic.text;
    }
    EXPECT_EQ(counts[TAVLO_SEVERITY_ERROR], outcome.raised ? 1u : 0u);
    EXPECT_EQ(counts[TAVLO_SEVERITY_WARNING], expected.warnings);
    if (outcome.raised) {
        return;
    }
    tavlo::Loaded tolerant(path.c_str(), TAVLO_LOAD_TOLERANT);
    EXPECT_TRUE(tolerant.ok());
    EXPECT_EQ(DescribeDatabase(tolerant.root()), DescribeDatabase(legacy.root));
    EXPECT_EQ(Texts(tolerant.kept()), Texts(strict.kept()));
    const std::string copy = tavlo::test::TestFilePath(".dbc");
    ASSERT_EQ(tolerant.Write(copy.c_str()), 0u);
    tavlo::Loaded back(copy.c_str(), TAVLO_LOAD_STRICT);
    std::remove(copy.c_str());
    EXPECT_TRUE(back.ok());
    std::vector<std::string> texts;
    for (const tavlo_kept_t& statement : back.kept()) {
        texts.push_back(statement.text);
    }
    std::vector<std::string> original;
    for (const tavlo_kept_t& statement : tolerant.kept()) {
        original.push_back(statement.text);
    }
    EXPECT_EQ(texts, original);
}

std::string RowName(const ::testing::TestParamInfo<Expectation>& info) {
    return tavlo::test::TestName(info.param.file);
}

INSTANTIATE_TEST_SUITE_P(Files, Corpus, ::testing::ValuesIn(LoadExpectations()), RowName);

TEST(Corpus, TableListsEveryFile) {
    EXPECT_EQ(LoadExpectations().size(), 83u);
}

TEST(RoundTrip, EveryKindOfRecordSurvivesAndTheSecondWriteIsIdentical) {
    Database sample;
    sample.root = tavlo::test::BuildSampleDatabase();
    Database back;
    const std::string first = WriteAndRead(sample.root, &back);
    Database again;
    EXPECT_EQ(WriteAndRead(back.root, &again), first);
    EXPECT_EQ(DescribeDatabase(again.root), DescribeDatabase(back.root));
}

}  // namespace
