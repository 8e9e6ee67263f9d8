// tests/tools/tavlo_test.cpp: the tavlo command run as a user runs it, on
// database files good and bad: what it prints, where, and its exit status.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

TEST(TavloCommand, CheckReportsEachFileAndTheFirstErrorAsComposed) {
    const std::string good = Corpus("abs.dbc");
    const std::string bad = Corpus("is_in_phys_range.dbc");
    const Outcome run = Tavlo("check " + good + " " + bad);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, good + ": OK\n");
    EXPECT_EQ(run.err, bad + ": database: invalid char in symbol, line 11, Corvan__XXX :\n");
    EXPECT_EQ(Tavlo("check " + good).status, 0);
    EXPECT_EQ(Tavlo("check " + Corpus("no-such-file.dbc")).status, 1);
    const std::string directory = std::filesystem::temp_directory_path().string();
    const Outcome notAFile = Tavlo("check " + directory);
    EXPECT_EQ(notAFile.status, 1);
    EXPECT_EQ(notAFile.err, directory + ": database: not found, " + directory + "\n");
}

TEST(TavloCommand, AWarningOnManyLinesIsShownOnceWithItsCount) {
    const std::string path = Corpus("bus_comment.dbc");
    const Outcome run = Tavlo("check " + path);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, path +
                           ": new symbol not supported, line 79, SG_MUL_VAL_ (and 10 more like "
                           "it)\n");
}

TEST(TavloCommand, InfoCountsEveryKind) {
    const std::string path = ManagerData("powertrain.dbc");
    const Outcome run = Tavlo("info " + path);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    for (const char* line : {"version:               \"PT 1.2\"\n", "nodes:                 3\n",
                             "messages:              3\n", "signals:               9\n",
                             "environment variables: 2\n", "attribute definitions: 7\n",
                             "attribute DBName:  \"Powertrain\"\n"}) {
        EXPECT_NE(run.out.find(line), std::string::npos) << line;
    }
}

TEST(TavloCommand, FormatWritesTheCanonicalForm) {
    const std::string in = ManagerData("body.dbc");
    const std::string out = TestFilePath(".dbc");
    std::remove(out.c_str());
    ASSERT_EQ(Tavlo("format " + in + " " + out).status, 0);
    const std::string written = FileBytes(out);
    EXPECT_NE(written.find("BO_ 768 DoorStatus: 4 Door"), std::string::npos);
    // Without OUT the same text goes to standard output.
    EXPECT_EQ(Tavlo("format " + in).out, written);
    // In place only when asked.
    EXPECT_EQ(Tavlo("format " + out + " " + out).status, 2);
    const Outcome inPlace = Tavlo("format --in-place " + out);
    EXPECT_EQ(inPlace.status, 0);
    EXPECT_EQ(FileBytes(out), written);
    std::remove(out.c_str());
}

TEST(TavloCommand, ShowListsMessagesAndDrawsOneMessagesBits) {
    const std::string path = ManagerData("powertrain.dbc");
    const Outcome all = Tavlo("show " + path);
    EXPECT_EQ(all.status, 0);
    for (const char* line :
         {"EngineData  0x100  8 bytes  from Engine\n", "GearData  0x200  2 bytes  from Gearbox\n",
          "ExtendedData  0x00000300 (extended)  8 bytes  from Gateway\n"}) {
        EXPECT_NE(all.out.find(line), std::string::npos) << line;
    }
    EXPECT_NE(all.out.find("16383.75] \"rpm\"  -> Gateway, Gearbox"), std::string::npos);
    EXPECT_NE(all.out.find("when multiplexer = 1"), std::string::npos);

    // One message by name or identifier: a Motorola signal from bit 7 fills
    // byte 0; multiplexed signals sharing bits are marked.
    for (const char* key : {"GearData", "0x200", "512"}) {
        const Outcome one = Tavlo("show " + path + " " + key);
        EXPECT_EQ(one.status, 0) << key;
        EXPECT_NE(one.out.find("  byte  0     A A A A A A A A\n  byte  1     . . . . . . . .\n"),
                  std::string::npos)
            << key << one.out;
    }
    // A multiplexed message: one drawing per multiplexer value, each with
    // the signals present for it (OilPressure D for 0, OilLevel E for 1).
    const Outcome muxed = Tavlo("show " + path + " EngineData");
    const std::size_t page0 = muxed.out.find("  multiplexer = 0:\n");
    const std::size_t page1 = muxed.out.find("  multiplexer = 1:\n");
    ASSERT_NE(page0, std::string::npos) << muxed.out;
    ASSERT_NE(page1, std::string::npos) << muxed.out;
    const std::string bytes3And4[] = {"  byte  3     D D D D C C C C\n  byte  4     . . . . D D D D\n",
                                      "  byte  3     E E E E C C C C\n  byte  4     . . . . E E E E\n"};
    const std::size_t drawing0 = muxed.out.find(bytes3And4[0]);
    const std::size_t drawing1 = muxed.out.find(bytes3And4[1]);
    EXPECT_TRUE(drawing0 > page0 && drawing0 < page1) << muxed.out;
    EXPECT_TRUE(drawing1 > page1 && drawing1 != std::string::npos) << muxed.out;
    EXPECT_EQ(muxed.out.find('*'), std::string::npos) << muxed.out;
    EXPECT_EQ(Tavlo("show " + path + " 0x300").status, 0);  // extended, by its 29 bits
    const Outcome missing = Tavlo("show " + path + " NoSuchMessage");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, path + ": no message NoSuchMessage\n");
}

TEST(TavloCommand, EncodeBuildsTheFrameFromPhysicalValuesAndDescriptions) {
    const std::string path = ManagerData("powertrain.dbc");
    struct Case {
        const char* arguments;
        int status;
        const char* out;
        const char* err;  // after "<path>: ", or null for none
    };
    // EngineSpeed 1000 rpm is raw 4000 (0x0FA0, Intel); "Hot" is raw 2 of
    // EngineTemp; Mux 1 and OilLevel 50 share byte 3.
    const Case cases[] = {
        {"EngineData EngineSpeed=1000 EngineTemp=Hot Mux=1 OilLevel=50", 0,
         "100#A00F022103000000\n", nullptr},
        {"0x200 Gear=5", 0, "200#0500\n", nullptr},
        {"GearData Gear=9", 1, "200#0900\n", "Gear=9 is out of range [0 .. 8]\n"},
        {"0x300 Counter=7", 0, "00000300#0700000000000000\n", nullptr},
        {"Nope", 1, "", "no message Nope\n"},
        {"EngineData Speed=1", 1, "", "message EngineData has no signal Speed\n"},
        {"EngineData EngineTemp=Boiling", 1, "",
         "EngineTemp=Boiling: neither a number nor a value description\n"},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo("encode " + path + " " + c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(run.out, c.out) << c.arguments;
        EXPECT_EQ(run.err, c.err != nullptr ? path + ": " + c.err : "") << c.arguments;
    }
    EXPECT_EQ(Tavlo("encode " + path + " EngineData Speed").status, 2);
}

TEST(TavloCommand, TheExampleVehicleDatabaseIsClean) {
    const std::string path = Example("vehicle.dbc");
    const Outcome check = Tavlo("check " + path);
    EXPECT_EQ(check.status, 0);
    EXPECT_EQ(check.err, "");
    const Outcome info = Tavlo("info " + path);
    EXPECT_NE(info.out.find("messages:              14\n"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("nodes:                 6\n"), std::string::npos) << info.out;
    // Writing it in canonical form and checking that again changes nothing more.
    const std::string once = TestFilePath(".once.dbc");
    const std::string twice = TestFilePath(".twice.dbc");
    std::remove(once.c_str());
    std::remove(twice.c_str());
    ASSERT_EQ(Tavlo("format " + path + " " + once).status, 0);
    ASSERT_EQ(Tavlo("format " + once + " " + twice).status, 0);
    EXPECT_EQ(FileBytes(once), FileBytes(twice));
    std::remove(once.c_str());
    std::remove(twice.c_str());
}

TEST(TavloCommand, DecodeBothLogFormsKnownAndUnknownFrames) {
    const std::string db = ManagerData("powertrain.dbc");
    const std::string log = TestFilePath(".log");
    {
        std::FILE* out = std::fopen(log.c_str(), "w");
        ASSERT_NE(out, nullptr);
        std::fputs("(1600000000.000100) can0 100#A00F022103000000\n"
                   "  can0  200   [2]  05 00\n"
                   "(1600000000.000300) can0 00000300#07\n"
                   "(1600000000.000400) can0 555#0102\n"
                   "this is not a frame\n"
                   "(1600000000.000500) can0 100#A00F020003000000\n",
                   out);
        std::fclose(out);
    }
    const Outcome text = Tavlo("decode " + db + " " + log);
    EXPECT_EQ(text.status, 1);  // the bad line
    EXPECT_EQ(text.err, log + ":5: not a CAN frame: this is not a frame\n");
    // Multiplexing honoured: Mux 1 shows OilLevel, Mux 0 OilPressure.
    EXPECT_EQ(text.out,
              "(1600000000.000100) 100 EngineData  EngineSpeed=1000 rpm  EngineTemp=-38 degC "
              "\"Hot\"  Mux=1  OilLevel=50 %  StatusWithAVeryLongSignalNameAb1=0  "
              "StatusWithAVeryLongSignalNameAb2=0\n"
              "- 200 GearData  Gear=5\n"
              "(1600000000.000300) 00000300 ExtendedData  Counter=7\n"
              "(1600000000.000400) 555 unknown  0102\n"
              "(1600000000.000500) 100 EngineData  EngineSpeed=1000 rpm  EngineTemp=-38 degC "
              "\"Hot\"  Mux=0  OilPressure=48 kPa  StatusWithAVeryLongSignalNameAb1=0  "
              "StatusWithAVeryLongSignalNameAb2=0\n");
    const Outcome json = Tavlo("decode --format json " + db + " " + log);
    EXPECT_NE(json.out.find("{\"time\":1600000000.000400,\"id\":\"555\",\"message\":null,"
                            "\"data\":\"0102\"}\n"),
              std::string::npos)
        << json.out;
    EXPECT_NE(json.out.find("{\"name\":\"EngineTemp\",\"value\":-38,\"unit\":\"degC\","
                            "\"description\":\"Hot\"}"),
              std::string::npos)
        << json.out;
    // Standard input when no log is named.
    const Outcome piped = Tavlo("decode " + db + " < " + log);
    EXPECT_EQ(piped.out, text.out);
    std::remove(log.c_str());
    EXPECT_EQ(Tavlo("decode --format xml " + db).status, 2);
}

TEST(TavloCommand, DecodeTheExampleLog) {
    const Outcome run = Tavlo("decode " + Example("vehicle.dbc") + " " + Example("vehicle.log"));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    std::size_t lines = 0;
    for (const char c : run.out) {
        lines += c == '\n' ? 1 : 0;
    }
    EXPECT_EQ(lines, 3000u);
    EXPECT_NE(run.out.find(" unknown "), std::string::npos);  // 0x555 is not in the database
}

// Whole outputs kept as files in tests/tools/data: the example log, a log
// with lines that are not frames (and a remote frame, a frame too short for
// every signal, FD and screen forms), names kept in long name attributes, a
// database with a syntax error (its line is one less than the editor's, as
// the reader counts), and an unknown message to encode.
TEST(TavloCommand, OutputsMatchTheExpectedFiles) {
    struct Case {
        std::string arguments;
        int status;
        const char* out;  // expected standard output file, or null for none
        const char* err;  // expected standard error file, or null for none
    };
    const std::string longNames = ToolData("long_names.dbc");
    const Case cases[] = {
        {"decode " + Example("vehicle.dbc") + " " + ToolData("vehicle_head.log"), 0,
         "vehicle_head.out", nullptr},
        {"decode " + longNames + " " + ToolData("bad.log"), 1, "decode_bad_log.out",
         "decode_bad_log.err"},
        {"decode --format json " + longNames + " " + ToolData("bad.log"), 1,
         "decode_bad_log.json", "decode_bad_log.err"},
        {"show " + longNames + " BatteryManagementSystemStatus_0123456789", 0,
         "show_long_names.out", nullptr},
        {"check " + ToolData("syntax_error.dbc"), 1, nullptr, "check_syntax_error.err"},
        {"encode " + longNames + " Nope", 1, nullptr, "encode_unknown_message.err"},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo(c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(run.out, c.out != nullptr ? Expected(c.out) : "") << c.arguments;
        EXPECT_EQ(run.err, c.err != nullptr ? Expected(c.err) : "") << c.arguments;
    }
}

// A log long enough for progress to be shown (every 100000 lines), of the
// running test's own.
std::string LongLog() {
    const std::string log = TestFilePath(".log");
    std::FILE* out = std::fopen(log.c_str(), "wb");
    EXPECT_NE(out, nullptr) << log;
    if (out != nullptr) {
        for (int i = 0; i < 250000; ++i) {
            std::fputs("(1600000000.000100) can0 7FF#01\n", out);
        }
        std::fclose(out);
    }
    return log;
}

// Progress goes to standard error only when it is a terminal.
TEST(TavloCommand, DecodeShowsNoProgressIntoAFile) {
    const std::string log = LongLog();
    const Outcome run = Tavlo("decode " + ManagerData("powertrain.dbc") + " " + log);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    std::remove(log.c_str());
}

// On a pseudo-terminal made by script(1).
TEST(TavloCommand, DecodeShowsProgressOnATerminal) {
#if defined(_WIN32)
    GTEST_SKIP() << "the pseudo-terminal comes from script(1), which Windows does not have";
#else
    const std::string log = LongLog();
    const std::string db = ManagerData("powertrain.dbc");
    const std::string command = "script -qec '" + std::string(TAVLO_COMMAND) + " decode " + db +
                                " " + log + " >/dev/null' /dev/null";
    std::FILE* terminal = popen(command.c_str(), "r");
    ASSERT_NE(terminal, nullptr);
    std::string shown;
    char block[4096];
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, terminal)) > 0;) {
        shown.append(block, n);
    }
    EXPECT_EQ(pclose(terminal), 0);
    EXPECT_NE(shown.find("\r" + log + ": 100000 lines\r" + log + ": 200000 lines"),
              std::string::npos)
        << shown;
    EXPECT_NE(shown.find("\r" + log + ": 250000 lines\r\n"), std::string::npos) << shown;
    std::remove(log.c_str());
#endif
}

TEST(TavloCommand, UsageErrorsAndHelp) {
    struct Case {
        const char* arguments;
        int status;
        const char* inOut;  // expected at the start of stdout, or null
        const char* inErr;  // expected at the start of stderr, or null
    };
    const Case cases[] = {
        {"", 2, nullptr, "usage: tavlo SUBCOMMAND"},
        {"--help", 0, "usage: tavlo SUBCOMMAND", nullptr},
        {"bogus", 2, nullptr, "tavlo: unknown subcommand 'bogus'"},
        {"check", 2, nullptr, "usage: tavlo check DB..."},
        {"check --help", 0, "usage: tavlo check DB...", nullptr},
        {"info a.dbc b.dbc", 2, nullptr, "usage: tavlo info DB"},
        {"format --help", 0, "usage: tavlo format IN [OUT]", nullptr},
        {"format --in-place a.dbc b.dbc", 2, nullptr, "usage: tavlo format IN [OUT]"},
        {"show", 2, nullptr, "usage: tavlo show DB [MESSAGE]"},
        {"encode a.dbc", 2, nullptr, "usage: tavlo encode DB MESSAGE NAME=VALUE..."},
        {"decode", 2, nullptr, "usage: tavlo decode"},
        {"decode --help", 0, "usage: tavlo decode", nullptr},
    };
    for (const Case& c : cases) {
        const Outcome run = Tavlo(c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        if (c.inOut != nullptr) {
            EXPECT_EQ(run.out.rfind(c.inOut, 0), 0u) << c.arguments << ": " << run.out;
        }
        if (c.inErr != nullptr) {
            EXPECT_EQ(run.err.rfind(c.inErr, 0), 0u) << c.arguments << ": " << run.err;
        }
    }
}

}  // namespace
}  // namespace tavlo::test
