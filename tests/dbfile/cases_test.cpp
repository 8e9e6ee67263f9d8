// Runs the reading and writing cases of tests/dbfile/cases/*.txt: each is a
// database text, what reading it gives, lines its description must hold and
// what writing it back gives. A case file is read line by line:
//   "=== name"                      a new case; the text's lines follow
//   "--- ok" | "--- raised" | "--- result N"
//                                   the read's outcome; the messages it shows
//                                   follow, one a line, in order
//   "--- has"                       description lines (tests/support/describe.h,
//                                   15 digits) that must follow one another,
//                                   each given by its start (not empty)
//   "--- lacks"                     texts the description must not contain
//   "--- writes" | "--- writes same"
//                                   the whole text written back (or the input)
// Outside the text and the written text, lines starting with "#" are
// comments and empty lines are skipped.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dbfile/input.h"
#include "support/describe.h"
#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::ReadOutcome;

struct Case {
    std::string name;
    std::string text;
    std::string outcome = "ok";
    std::vector<std::string> messages;
    std::vector<std::vector<std::string>> has;
    std::vector<std::string> lacks;
    bool writes = false;
    std::string written;
};

std::vector<Case> LoadCases() {
    std::vector<Case> cases;
    for (const char* file : {"reading.txt", "writing.txt"}) {
        std::ifstream in(std::string(TAVLOMS_CORPUS_DIR) + "/../cases/" + file, std::ios::binary);
        EXPECT_TRUE(in.is_open()) << file;
        std::string line;
        std::string section;
        while (std::getline(in, line)) {
            if (line.rfind("=== ", 0) == 0) {
                cases.emplace_back();
                cases.back().name = line.substr(4);
                section = "text";
            } else if (cases.empty() || ((line.empty() || line[0] == '#') &&
                                         section != "text" && section != "writes")) {
                continue;
            } else if (line.rfind("--- ", 0) == 0) {
                Case& c = cases.back();
                section = line.substr(4);
                if (section == "has") {
                    c.has.emplace_back();
                } else if (section.rfind("writes", 0) == 0) {
                    c.writes = true;
                    c.written = section == "writes same" ? c.text : "";
                } else if (section != "lacks") {
                    c.outcome = section;
                }
            } else if (section == "text") {
                cases.back().text += line + "\n";
            } else if (section == "writes") {
                cases.back().written += line + "\n";
            } else if (section == "has") {
                cases.back().has.back().push_back(line);
            } else if (section == "lacks") {
                cases.back().lacks.push_back(line);
            } else {
                cases.back().messages.push_back(line);
            }
        }
    }
    return cases;
}

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

// Whether `block` matches consecutive lines of `lines`, each line by its start.
bool Holds(const std::vector<std::string>& lines, const std::vector<std::string>& block) {
    for (std::size_t first = 0; first + block.size() <= lines.size(); ++first) {
        std::size_t i = 0;
        while (i < block.size() && lines[first + i].rfind(block[i], 0) == 0) {
            ++i;
        }
        if (i == block.size()) {
            return true;
        }
    }
    return false;
}

class Cases : public ::testing::TestWithParam<Case> {};

TEST_P(Cases, ReadAndWriteAsGiven) {
    const Case& c = GetParam();
    tavlo_root_t root = {};
    const ReadOutcome read = tavlo::test::ReadText(c.text, &root);
    EXPECT_EQ(read.raised ? "raised" : read.result == 0 ? "ok" : "result " + std::to_string(read.result),
              c.outcome);
    EXPECT_EQ(read.messages, c.messages);
    EXPECT_FALSE(tavlo::dbfile::IsInputOpen());
    const std::string description = tavlo::test::DescribeDatabase(root, 15);
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; at < description.size(); at = end + 1) {
        end = description.find('\n', at);
        lines.push_back(description.substr(at, end - at));
    }
    for (const std::vector<std::string>& block : c.has) {
        EXPECT_TRUE(Holds(lines, block)) << "no lines starting\n" << ::testing::PrintToString(block)
                                         << "\nin\n" << description;
    }
    for (const std::string& text : c.lacks) {
        EXPECT_EQ(description.find(text), std::string::npos) << text << "\nin\n" << description;
    }
    if (c.writes) {
        const std::string path = tavlo::test::TestFilePath(".dbc");
        EXPECT_EQ(tavlo::test::WriteDatabase(path, root), 0u);
        EXPECT_EQ(tavlo::test::FileContent(path), c.written);
        std::remove(path.c_str());
    }
    TAVLO_FREE_ROOT(&root);
}

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
    return tavlo::test::TestName(info.param.name);
}

INSTANTIATE_TEST_SUITE_P(Files, Cases, ::testing::ValuesIn(LoadCases()), CaseName);

}  // namespace
