// tests/tools/tavlo_diff_test.cpp: tavlo diff run as a user runs it: what it
// reports between two database files, its exit status with and without
// --exit-code, unreadable files and usage errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

void WriteText(const std::string& path, const std::string& text) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    ASSERT_NE(out, nullptr) << path;
    std::fwrite(text.data(), 1, text.size(), out);
    std::fclose(out);
}

// The lines of a text that start with prefix.
std::vector<std::string> LinesStartingWith(const std::string& text, const std::string& prefix) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        end = end == std::string::npos ? text.size() : end;
        const std::string line = text.substr(from, end - from);
        if (line.rfind(prefix, 0) == 0) {
            lines.push_back(line.substr(prefix.size()));
        }
        from = end + 1;
    }
    return lines;
}

TEST(TavloDiff, EveryKindOfChangeBetweenTwoDatabases) {
    const Outcome run = Tavlo("diff " + ToolData("diff_a.dbc") + " " + ToolData("diff_b.dbc"));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, Expected("diff_a_b.expected"));
}

TEST(TavloDiff, TheOtherWayRoundAdditionsAreRemovals) {
    const Outcome forward = Tavlo("diff " + ToolData("diff_a.dbc") + " " + ToolData("diff_b.dbc"));
    const Outcome backward =
        Tavlo("diff " + ToolData("diff_b.dbc") + " " + ToolData("diff_a.dbc"));
    ASSERT_EQ(backward.status, 0);
    const auto sorted = [](std::vector<std::string> lines) {
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    const std::vector<std::string> added = sorted(LinesStartingWith(forward.out, "+ "));
    const std::vector<std::string> removed = sorted(LinesStartingWith(forward.out, "- "));
    ASSERT_FALSE(added.empty());
    ASSERT_FALSE(removed.empty());
    EXPECT_EQ(sorted(LinesStartingWith(backward.out, "- ")), added);
    EXPECT_EQ(sorted(LinesStartingWith(backward.out, "+ ")), removed);
    EXPECT_EQ(LinesStartingWith(backward.out, "~ ").size(),
              LinesStartingWith(forward.out, "~ ").size());
}

// One edit of diff_a.dbc at a time and exactly what it is reported as.
TEST(TavloDiff, EachEditIsReportedAsItsOwnChange) {
    struct Case {
        const char* before;  // text in diff_a.dbc
        const char* after;   // what it is replaced by
        const char* out;     // the whole report
    };
    const Case cases[] = {
        {"BO_ 512 GearData: 2 Gearbox", "BO_ 512 GearData: 3 Gearbox",
         "~ message 0x200 GearData: dlc 2 -> 3\n"},
        {"BO_ 768 Obsolete: 1 Gateway", "BO_ 768 Obsolete: 1 Engine",
         "~ message 0x300 Obsolete: transmitter Gateway -> Engine\n"},
        // Messages are matched by identifier: a new one is another message.
        {"BO_ 2147484416 ExtendedData", "BO_ 2147484417 ExtendedData",
         "- message 0x00000300 (extended) ExtendedData\n"
         "+ message 0x00000301 (extended) ExtendedData\n"},
        {"SG_ Old :", "SG_ New :", "- signal Obsolete.Old\n+ signal Obsolete.New\n"},
        // Beyond the 10 digits numbers show with, the exact values are shown.
        {"7|8@0+ (1,0) [0|8]", "7|8@0+ (1.00000000001,0) [0|8]",
         "~ signal GearData.Gear: factor 1 -> 1.00000000001\n"},
        {"SG_ OilLevel m1", "SG_ OilLevel", "~ signal EngineData.OilLevel: multiplexing "
                                            "multiplexed 1 -> none\n"},
        {"SG_ Mux M", "SG_ Mux m3M",
         "~ signal EngineData.Mux: multiplexing multiplexer -> multiplexer, multiplexed 3\n"},
        {"Gateway SG_ 256 EngineSpeed 200", "Gateway SG_ 256 EngineSpeed 250",
         "~ signal EngineData.EngineSpeed: attribute \"RxTimeout\" of receiver Gateway 200 -> "
         "250\n"},
        {"CM_ BO_ 256 \"Fast engine data\";\n", "",
         "~ message 0x100 EngineData: comment \"Fast engine data\" -> none\n"},
        {"BA_ \"GenMsgCycleTime\" BO_ 512 100;\n", "",
         "~ message 0x200 GearData: attribute \"GenMsgCycleTime\" 100 -> none\n"},
        {"BU_: Engine Gateway Gearbox Dashboard", "BU_: Engine Gateway Gearbox",
         "- node Dashboard\n"},
        {"VAL_TABLE_ Doors 1 \"Open\"", "VAL_TABLE_ Doors 1 \"Opened\"",
         "~ value table Doors: value description 1 \"Open\" -> \"Opened\"\n"},
        {"EV_ EnvA: 0 [0|100]", "EV_ EnvA: 1 [0|100]",
         "~ environment variable EnvA: type integer -> float\n"},
        {"DUMMY_NODE_CORVAN0 Engine;", "DUMMY_NODE_CORVAN1 Engine;",
         "~ environment variable EnvA: access 0x2 -> 0x3\n"},
        {"\"BusSpeed\" INT 0 1000000;", "\"BusSpeed\" HEX 0 1000000;",
         "~ attribute definition \"BusSpeed\": type INT -> HEX\n"},
        // An enumeration value is its text: the same index now means another.
        {"ENUM  \"Off\",\"On\",\"Error\"", "ENUM  \"Error\",\"Off\",\"On\"",
         "~ signal EngineData.EngineTemp: attribute \"SigMode\" \"Error\" -> \"On\"\n"
         "~ attribute definition \"SigMode\": values \"Off\",\"On\",\"Error\" -> "
         "\"Error\",\"Off\",\"On\"\n"},
        // What only stands elsewhere in the file is no change.
        {"[0|8] \"\" Engine,Gateway", "[0|8] \"\" Gateway,Engine", ""},
        {" SG_ Counter : 0|8@1+ (1,0) [0|255] \"\" Engine\n"
         " SG_ Accel : 8|32@1- (1,0) [-100|100] \"m/s2\" Engine\n",
         " SG_ Accel : 8|32@1- (1,0) [-100|100] \"m/s2\" Engine\n"
         " SG_ Counter : 0|8@1+ (1,0) [0|255] \"\" Engine\n",
         ""},
    };
    const std::string original = ToolData("diff_a.dbc");
    const std::string text = FileContent(original);
    const std::string edited = TestFilePath(".dbc");
    for (const Case& c : cases) {
        const std::size_t at = text.find(c.before);
        ASSERT_NE(at, std::string::npos) << c.before;
        std::string changed = text;
        changed.replace(at, std::string(c.before).size(), c.after);
        WriteText(edited, changed);
        const Outcome run = Tavlo("diff " + original + " " + edited);
        EXPECT_EQ(run.status, 0) << c.after;
        EXPECT_EQ(run.err, "") << c.after;
        EXPECT_EQ(run.out, c.out) << c.after;
    }
    std::remove(edited.c_str());
}

TEST(TavloDiff, ADatabaseAgainstItselfOrItsCanonicalFormHasNoDifferences) {
    const std::string files[] = {Example("vehicle.dbc"), ManagerData("powertrain.dbc"),
                                 ManagerData("body.dbc"), ManagerData("diagnosis.dbc"),
                                 ToolData("diff_a.dbc"), ToolData("diff_b.dbc")};
    const std::string canonical = TestFilePath(".dbc");
    for (const std::string& path : files) {
        const Outcome same = Tavlo("diff --exit-code " + path + " " + path);
        EXPECT_EQ(same.status, 0) << path;
        EXPECT_EQ(same.out, "") << path;
        EXPECT_EQ(same.err, "") << path;
        ASSERT_EQ(Tavlo("format " + path + " " + canonical).status, 0) << path;
        const Outcome formatted = Tavlo("diff --exit-code " + path + " " + canonical);
        EXPECT_EQ(formatted.status, 0) << path;
        EXPECT_EQ(formatted.out, "") << path;
    }
    std::remove(canonical.c_str());
}

TEST(TavloDiff, ExitCodeTellsWhetherTheDatabasesDiffer) {
    const std::string a = ToolData("diff_a.dbc");
    const std::string b = ToolData("diff_b.dbc");
    struct Case {
        std::string arguments;
        int status;
        bool printed;
    };
    const Case cases[] = {
        {a + " " + b, 0, true},
        {"--exit-code " + a + " " + b, 1, true},
        {a + " " + b + " --exit-code", 1, true},
        {"--exit-code " + b + " " + b, 0, false},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo("diff " + c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(!run.out.empty(), c.printed) << c.arguments;
        EXPECT_EQ(run.err, "") << c.arguments;
    }
}

TEST(TavloDiff, AnUnreadableDatabaseFailsWithTheLibrarysError) {
    const std::string good = ToolData("diff_a.dbc");
    const std::string bad = Corpus("is_in_phys_range.dbc");
    const std::string missing = ToolData("no-such-file.dbc");
    const std::string badError =
        bad + ": database: invalid char in symbol, line 11, Corvan__XXX :\n";
    struct Case {
        std::string arguments;
        std::string err;
    };
    const Case cases[] = {
        {bad + " " + good, badError},
        {good + " " + bad, badError},
        {"--exit-code " + good + " " + bad, badError},
        // Both are read, so the errors of both are shown.
        {bad + " " + bad, badError + badError},
        {good + " " + missing, missing + ": database: not found, " + missing + "\n"},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo("diff " + c.arguments);
        EXPECT_EQ(run.status, 1) << c.arguments;
        EXPECT_EQ(run.out, "") << c.arguments;
        EXPECT_EQ(run.err, c.err) << c.arguments;
    }
}

TEST(TavloDiff, UsageErrorsAndHelp) {
    const std::string a = ToolData("diff_a.dbc");
    struct Case {
        std::string arguments;
        int status;
        std::string out;  // expected at the start of standard output
        std::string err;  // expected at the start of standard error
    };
    const Case cases[] = {
        {"diff", 2, "", "usage: tavlo diff [--exit-code] A B\n"},
        {"diff " + a, 2, "", "usage: tavlo diff [--exit-code] A B\n"},
        {"diff " + a + " " + a + " " + a, 2, "", "usage: tavlo diff [--exit-code] A B\n"},
        {"diff --exit-code " + a, 2, "", "usage: tavlo diff [--exit-code] A B\n"},
        {"diff --stat " + a + " " + a, 2, "",
         "tavlo diff: unknown option '--stat'\n\nusage: tavlo diff [--exit-code] A B\n"},
        {"diff --help", 0, "usage: tavlo diff [--exit-code] A B\n", ""},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo(c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(run.out.rfind(c.out, 0), 0u) << c.arguments << ": " << run.out;
        EXPECT_EQ(run.err.rfind(c.err, 0), 0u) << c.arguments << ": " << run.err;
        EXPECT_EQ(run.out.empty(), c.out.empty()) << c.arguments;
        EXPECT_EQ(run.err.empty(), c.err.empty()) << c.arguments;
    }
    // The overview lists it.
    EXPECT_NE(Tavlo("--help").out.find("\n  diff [--exit-code] A B "), std::string::npos);
}

}  // namespace
}  // namespace tavlo::test
