// tests/tools/monitor_table_test.cpp: what tavlo monitor shows, without a
// terminal: rates over the recent window, the clock frames are placed on,
// the rows of the messages seen (latest values, unknown identifiers),
// filtering by name, and lines cut to the screen's width.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "monitor_table.h"

namespace tavlo::tool::monitor {
namespace {

// "100#A00F02", "00000300#07" (8 digits: extended), "555#R" (remote),
// "!100#0004" (an error frame).
Frame Parse(std::string text) {
    Frame frame;
    frame.error = text[0] == '!';
    text.erase(0, frame.error ? 1 : 0);
    const std::size_t hash = text.find('#');
    frame.id = static_cast<unsigned int>(std::stoul(text.substr(0, hash), nullptr, 16)) |
               (hash == 8 ? kExtendedFlag : 0);
    const std::string data = text.substr(hash + 1);
    frame.remote = data == "R";
    for (std::size_t at = 0; !frame.remote && at + 1 < data.size(); at += 2) {
        frame.data[frame.length++] = static_cast<unsigned char>(std::stoul(data.substr(at, 2), nullptr, 16));
    }
    return frame;
}

TEST(MonitorRate, OverTheRecentWindow) {
    struct Case {
        double period;  // frames every period seconds
        double from;    // the first frame's time
        double until;   // no frame at or after this
        double now;
        std::optional<double> rate;
    };
    const Case kCases[] = {
        {0.01, 0, 5, 5.0, 100},      // steady: the frames of the last two seconds
        {0.01, 0, 5, 8.0, 0},        // stopped for longer than the window
        {0.02, 0, 3, 4.0, 25},       // stopped within it: its 50 frames of 2 s
        {0.1, 0, 1, 1.0, 10},        // the clock's first second: over that second only
        {0.1, 0, 0.3, 0.3, std::nullopt},  // too soon to tell
        {2.0, 0, 10.1, 10.05, 0.5},  // slower than the window
        {0.01, 100, 105, 105.0, 100},
    };
    for (const Case& c : kCases) {
        RateWindow window;
        for (int i = 0; c.from + i * c.period < c.until; ++i) {
            window.Add(c.from + i * c.period);
        }
        const std::optional<double> rate = window.Rate(c.now);
        ASSERT_EQ(rate.has_value(), c.rate.has_value()) << "period " << c.period << ", now " << c.now;
        if (rate) {
            EXPECT_NEAR(*rate, *c.rate, *c.rate * 0.06 + 0.01)
                << "period " << c.period << ", now " << c.now;
        }
    }
}

TEST(MonitorClock, PlacesFramesByPace) {
    struct Step {
        const char* time;  // the frame's, as the log writes it
        double wall;       // when it arrives
        double placed;
        double now;        // the clock's reading at the same wall time
    };
    struct Case {
        Pace pace;
        std::vector<Step> steps;
    };
    const Case kCases[] = {
        {Pace::kLive, {{"1600000000.5", 2.0, 2.0, 2.0}, {"", 3.5, 3.5, 3.5}}},
        // The log's own time from its first frame; the clock stands at the latest.
        {Pace::kFast,
         {{"1600000000.250000", 0.1, 0, 0}, {"1600000001.750000", 0.1, 1.5, 1.5}, {"", 0.2, 1.5, 1.5}}},
        // The same times, running with the wall clock from the first frame.
        {Pace::kReplay,
         {{"1600000000.250000", 0.5, 0, 0}, {"1600000001.750000", 0.6, 1.5, 0.1}, {"", 2.5, 2.0, 2.0}}},
    };
    for (const Case& c : kCases) {
        FrameClock clock(c.pace);
        for (const Step& step : c.steps) {
            EXPECT_NEAR(clock.Place(step.time, step.wall), step.placed, 1e-6)
                << static_cast<int>(c.pace) << " " << step.time;
            EXPECT_NEAR(clock.Now(step.wall), step.now, 1e-6) << static_cast<int>(c.pace) << " " << step.time;
        }
    }
    FrameClock replay(Pace::kReplay);
    replay.Place("10.0", 4.0);
    EXPECT_DOUBLE_EQ(replay.DueAt(replay.Place("12.5", 4.1)), 6.5);
}

TEST(MonitorRows, LatestValuesOfEveryMessageSeen) {
    DecodedDatabase db;
    ASSERT_TRUE(LoadDecoder(std::string(TAVLOMS_MANAGER_DATA_DIR) + "/powertrain.dbc", db));
    MessageTable table(db);
    const char* const kFrames[] = {
        "100#A00F022103000000",  // multiplexer 1: OilLevel
        "555#0102",
        "200#05",
        "00000300#07",
        "100#A00F020003000000",  // multiplexer 0: OilPressure, and OilLevel kept
        "555#0A0B0C",
        "7FF#R",
        "200#",                  // too short for Gear: it keeps its value
        "!100#0004",             // an error frame: not EngineData's
    };
    double time = 0;
    for (const char* text : kFrames) {
        table.Add(Parse(text), time += 0.25);
    }
    struct Expected {
        const char* id;
        const char* name;
        std::uint64_t count;
        double age;
        const char* signals;
    };
    const Expected kRows[] = {
        {"100", "EngineData", 2, 1.0,
         "EngineSpeed=1000 rpm  EngineTemp=-38 degC \"Hot\"  Mux=0  OilPressure=48 kPa  OilLevel=50 %  "
         "StatusWithAVeryLongSignalNameAb1=0  StatusWithAVeryLongSignalNameAb2=0"},
        {"200", "GearData", 2, 0.25, "Gear=5"},
        {"555", "unknown", 2, 0.75, "0A 0B 0C"},
        {"7FF", "unknown", 1, 0.5, "remote"},
        {"100", "error", 1, 0, "00 04"},
        {"00000300", "ExtendedData", 1, 1.25, "Counter=7"},
    };
    const std::vector<Row> rows = table.Rows(time);
    ASSERT_EQ(rows.size(), std::size(kRows));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(IdText(rows[i].id), kRows[i].id);
        EXPECT_EQ(rows[i].name, kRows[i].name) << kRows[i].id;
        EXPECT_EQ(rows[i].count, kRows[i].count) << kRows[i].id;
        EXPECT_NEAR(rows[i].age, kRows[i].age, 1e-9) << kRows[i].id;
        EXPECT_EQ(rows[i].signals, kRows[i].signals) << kRows[i].id;
    }
    EXPECT_EQ(table.Frames(), std::size(kFrames));

    // As a line: the columns line up with the header's.
    const std::size_t width = table.NameWidth();
    EXPECT_EQ(width, std::string("ExtendedData").size());
    Row row = rows[0];
    row.rate = 12.345;
    EXPECT_EQ(FormatRow(row, width),
              "100       EngineData           2    12.3     1.0  EngineSpeed=1000 rpm  EngineTemp=-38 "
              "degC \"Hot\"  Mux=0  OilPressure=48 kPa  OilLevel=50 %  StatusWithAVeryLongSignalNameAb1=0  "
              "StatusWithAVeryLongSignalNameAb2=0");
    EXPECT_EQ(HeaderLine(width), "ID        NAME             COUNT  RATE/s   AGE/s  SIGNALS");
    EXPECT_EQ(HeaderLine(width).find("SIGNALS"), SignalsColumn(width));
    row.rate.reset();
    EXPECT_EQ(FormatRow(row, width).substr(0, SignalsColumn(width)),
              "100       EngineData           2       -     1.0  ");
}

TEST(MonitorFilter, MatchesAPartOfTheNameInAnyCase) {
    struct Case {
        const char* name;
        const char* filter;
        bool matches;
    };
    const Case kCases[] = {
        {"EngineData", "", true},          {"EngineData", "Engine", true},
        {"EngineData", "data", true},      {"EngineData", "ENGINEDATA", true},
        {"GearData", "eng", false},        {"Eng", "Engine", false},
        {"unknown", "unk", true},          {"EngineData", "Data2", false},
    };
    for (const Case& c : kCases) {
        EXPECT_EQ(Matches(c.name, c.filter), c.matches) << c.name << " / " << c.filter;
    }
}

TEST(MonitorText, CutToTheScreenAndShownAsItIs) {
    struct Clipped {
        const char* line;
        std::size_t fixed;
        std::size_t shift;
        std::size_t width;
        const char* shown;
    };
    const Clipped kClips[] = {
        {"0C8  Name  A=1 rpm  B=2", 11, 0, 80, "0C8  Name  A=1 rpm  B=2"},
        {"0C8  Name  A=1 rpm  B=2", 11, 9, 80, "0C8  Name  B=2"},       // the signals shifted
        {"0C8  Name  A=1 rpm  B=2", 11, 0, 14, "0C8  Name  A=1"},
        {"0C8  Name  A=1 rpm  B=2", 11, 0, 7, "0C8  Na"},               // narrower than the fixed part
        {"0C8  Name  T=5 \xC2\xB0" "C  B=2", 11, 0, 16, "0C8  Name  T=5 \xC2\xB0"},  // by characters
        {"0C8  Name  T=5 \xC2\xB0" "C  B=2", 11, 5, 80, "0C8  Name  C  B=2"},
    };
    for (const Clipped& c : kClips) {
        EXPECT_EQ(Clip(c.line, c.fixed, c.shift, c.width), c.shown) << c.line << " " << c.width;
    }
    struct Shown {
        const char* text;
        const char* shown;
    };
    const Shown kTexts[] = {
        {"km/h", "km/h"},
        {"\xC2\xB0" "C", "\xC2\xB0" "C"},  // UTF-8 kept
        {"\xB0" "C", "\xC2\xB0" "C"},      // Latin-1 made UTF-8
        {"a\tb\x1B[2J", "a?b?[2J"},        // no control characters reach the terminal
        {"\xE2\x82", "\xC3\xA2?"},         // a cut UTF-8 sequence: Latin-1, C1 control
    };
    for (const Shown& s : kTexts) {
        EXPECT_EQ(Displayable(s.text), s.shown) << s.text;
    }
}

}  // namespace
}  // namespace tavlo::tool::monitor
