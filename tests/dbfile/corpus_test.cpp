// Real files as other tools write them: each reads with the outcome, the
// number of warnings and the first message that corpus/EXPECTED.tsv gives.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

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
        std::string field;
        while (std::getline(stream, field, '\t')) {
            fields.push_back(field);
        }
        fields.resize(4);
        rows.push_back({fields[0], fields[1], std::stoul(fields[2]), fields[3]});
    }
    return rows;
}

class Corpus : public ::testing::TestWithParam<Expectation> {};

TEST_P(Corpus, ReadsAsExpected) {
    const Expectation& expected = GetParam();
    tavlo_root_t root = {};
    const ReadOutcome outcome = ReadDatabase(CorpusPath(expected.file), &root);
    EXPECT_EQ(outcome.raised ? "ERROR" : "OK", expected.outcome);
    if (!outcome.raised) {
        EXPECT_EQ(outcome.result, 0u);
    }
    const std::size_t warnings = outcome.messages.size() - (outcome.raised ? 1 : 0);
    EXPECT_EQ(warnings, expected.warnings);
    EXPECT_EQ(outcome.messages.empty() ? "" : outcome.messages.front(), expected.firstMessage);
    TAVLO_FREE_ROOT(&root);
}

std::string RowName(const ::testing::TestParamInfo<Expectation>& info) {
    std::string name;
    for (char c : info.param.file) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Files, Corpus, ::testing::ValuesIn(LoadExpectations()), RowName);

TEST(CorpusTable, ListsEveryFileOfTheCorpus) {
    EXPECT_EQ(LoadExpectations().size(), 83u);
}

}  // namespace
