// tests/tools/tavlo_convert_test.cpp: tavlo convert through the JSON module
// found next to the command: a database goes out and comes back describing
// the same messages, and bad conversions leave nothing behind.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

void WriteFile(const std::string& path, const std::string& text) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    ASSERT_NE(out, nullptr) << path;
    std::fputs(text.c_str(), out);
    std::fclose(out);
}

class TavloConvert : public ::testing::Test {
protected:
    void SetUp() override {
#ifndef TAVLOMS_HAVE_JSON_MODULE
        GTEST_SKIP() << "built without the JSON module";
#endif
    }
    void TearDown() override {
        for (const std::string& path : made_) {
            chmod(path.c_str(), 0644);
            std::remove(path.c_str());
        }
    }
    // A file path of the test's own, removed after it.
    std::string Made(const std::string& suffix) {
        made_.push_back(TestFilePath(suffix));
        std::remove(made_.back().c_str());
        return made_.back();
    }

private:
    std::vector<std::string> made_;
};

// The lines of a database file as the library writes them: in text mode,
// so with the system's line ends.
std::vector<std::string> Lines(const std::string& text) {
#if defined(_WIN32)
    const std::string lineEnd = "\r\n";
#else
    const std::string lineEnd = "\n";
#endif
    std::vector<std::string> lines;
    std::size_t at = 0;
    for (std::size_t end = text.find(lineEnd); end != std::string::npos;
         at = end + lineEnd.size(), end = text.find(lineEnd, at)) {
        lines.push_back(text.substr(at, end - at));
    }
    EXPECT_EQ(at, text.size()) << "the last line unended";
    return lines;
}

// A converter module carries messages (with signals, further transmitters
// and value types), nodes, environment variables, attribute definitions and
// database attribute values. What a database file keeps besides stays
// behind: these statements.
bool StaysBehind(const std::string& line) {
    for (const char* start : {"VERSION ", "VAL_TABLE_ ", "CM_ \"", "BA_REL_ ", "CAT_DEF_ ",
                              "CAT_ ", "FILTER ", "SIG_GROUP_ ", "   "}) {
        if (line.rfind(start, 0) == 0) {
            return true;
        }
    }
    return false;
}

TEST_F(TavloConvert, OutAndBackKeepsEverythingTheModulesCarry) {
    const std::string json = Made(".json");
    const std::string back = Made(".dbc");
    for (const std::string& original : {Example("vehicle.dbc"), ManagerData("powertrain.dbc"),
                                        ManagerData("body.dbc"), Corpus("abs.dbc")}) {
        std::remove(json.c_str());
        std::remove(back.c_str());
        const Outcome out = Tavlo("convert " + original + " " + json);
        ASSERT_EQ(out.status, 0) << out.err;
        EXPECT_EQ(out.err, "");
        const Outcome in = Tavlo("convert " + json + " " + back);
        ASSERT_EQ(in.status, 0) << in.err;
        EXPECT_EQ(in.err, "");
        // Both in canonical form: the round trip adds nothing and loses
        // only what stays behind.
        std::vector<std::string> before = Lines(Tavlo("format " + original).out);
        std::vector<std::string> after = Lines(Tavlo("format " + back).out);
        ASSERT_GT(before.size(), 20u) << original;
        ASSERT_EQ(after.front(), "VERSION \"\"");
        std::size_t kept = 1;
        for (const std::string& line : before) {
            if (kept < after.size() && after[kept] == line) {
                ++kept;
            } else {
                EXPECT_TRUE(StaysBehind(line)) << original << ": lost " << line;
            }
        }
        EXPECT_EQ(kept, after.size()) << original << ": added " << after[kept];
    }
}

TEST_F(TavloConvert, AnImportWorksBesideAnExistingDatabaseFileAndFromAReadOnlySource) {
    const std::string json = Made(".json");
    ASSERT_EQ(Tavlo("convert " + ManagerData("body.dbc") + " " + json).status, 0);
    // The importer's own database path (the source's with ".DBC") is taken,
    // and the source is read-only: neither may matter.
    const std::string beside = json.substr(0, json.size() - 5) + ".DBC";
    std::remove(beside.c_str());
    WriteFile(beside, "keep me");
    chmod(json.c_str(), 0444);
    // Not named as the file beside but for case, which is the same file
    // where names are compared without regard to case (Windows).
    const std::string back = Made(".back.dbc");
    const Outcome in = Tavlo("convert " + json + " " + back);
    EXPECT_EQ(in.status, 0) << in.err;
    EXPECT_EQ(Tavlo("show " + back).out, Tavlo("show " + ManagerData("body.dbc")).out);
    EXPECT_EQ(FileContent(beside), "keep me");
    std::remove(beside.c_str());
}

TEST_F(TavloConvert, FailuresSayWhyAndWriteNothing) {
    const std::string brokenJson = Made(".broken.json");
    WriteFile(brokenJson, "{\"messages\": 3}");
    const std::string notAModule = Made(".module.so");
    WriteFile(notAModule, "not a shared library");
    const std::string existing = Made(".existing.dbc");
    WriteFile(existing, "old content");
    const std::string target = Made(".target.dbc");
    const std::string db = ManagerData("powertrain.dbc");
    struct Case {
        std::string arguments;
        int status;
        std::string errStart;  // stderr begins with it
    };
    const Case cases[] = {
        {"convert " + brokenJson + " " + target, 1, "tavlo_json: " + brokenJson + ": "},
        {"convert " + db + " " + existing, 2, "tavlo convert: exactly one of"},
        {"convert " + brokenJson + " " + existing, 1, existing + ": exists; give --force"},
        {"convert --module " + notAModule + " " + db + " " + target + ".json", 1,
         notAModule + ": cannot be loaded as a converter module"},
        {"convert " + db + " " + target + ".xml", 1,
         "tavlo convert: no converter module for '.xml'"},
        {"convert " + Corpus("is_in_phys_range.dbc") + " " + target + ".json", 1,
         Corpus("is_in_phys_range.dbc") + ": database: invalid char in symbol"},
        {"convert " + db, 2, "usage: tavlo convert"},
        {"convert --frobnicate " + db + " " + target + ".json", 2,
         "tavlo convert: unknown option '--frobnicate'"},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo(c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(run.err.rfind(c.errStart, 0), 0u) << c.arguments << "\n" << run.err;
        EXPECT_EQ(FileContent(target), "") << c.arguments;
        EXPECT_EQ(FileContent(target + ".json"), "") << c.arguments;
        EXPECT_EQ(FileContent(existing), "old content") << c.arguments;
    }
    // --force replaces an existing target.
    const Outcome forced = Tavlo("convert --force " + db + " " + target + ".json");
    EXPECT_EQ(forced.status, 0) << forced.err;
    EXPECT_NE(FileContent(target + ".json"), "");
    std::remove((target + ".json").c_str());
}

}  // namespace
}  // namespace tavlo::test
