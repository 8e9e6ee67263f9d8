// tools/tavlo/monitor_table.h: what the monitor subcommand shows, without a
// terminal: the table of the messages seen (count, rate, age, the latest
// value of each signal), the clock their times are told on, a message's row
// as text, filtering by name and scrolling. The screen (monitor_screen.cpp)
// only draws these rows and reads keys.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "decoding.h"
#include "log.h"

namespace tavlo::tool::monitor {

// Rates count the frames of the last two seconds, in buckets of a tenth.
constexpr double kBucketSeconds = 0.1;
constexpr int kBuckets = 20;
// Less time than this since the clock started tells no rate yet.
constexpr double kShortestSpan = 0.5;

// A message's frames per second over the recent window: the frames of the
// window's buckets (the last up to now) over the time from the window's
// start (or the clock's, 0, when later) to now.
class RateWindow {
public:
    void Add(double time);
    std::optional<double> Rate(double now) const;

private:
    std::array<std::uint32_t, kBuckets> counts_{};
    std::int64_t latest_ = INT64_MIN;  // the bucket of the latest frame
};

// How frames come in, which sets what a frame's time is.
enum class Pace {
    kLive,    // as they arrive (standard input, a pipe, a device): the wall clock
    kFast,    // a log file read as fast as it can be: the frames' own times
    kReplay,  // a log replayed at its frames' pace: their own times, kept to the wall clock
};

// The monitor's clock, in seconds from its start. Live, a frame is placed
// at the wall time it arrives (seconds since the monitor started). From a
// log, at its own time less the first timed frame's; a frame without a
// time at the latest time placed. Read fast, the clock stands at the latest
// frame; replayed, it runs with the wall clock from the first frame on.
class FrameClock {
public:
    explicit FrameClock(Pace pace) : pace_(pace) {}

    double Place(std::string_view time, double wall);
    // Replayed: the wall time when a frame placed at `time` is due.
    double DueAt(double time) const { return wallOrigin_ + time; }
    double Now(double wall) const;

private:
    Pace pace_;
    bool started_ = false;   // a frame was placed
    double logOrigin_ = 0;   // the first timed frame's own time
    bool timed_ = false;     // logOrigin_ is set
    double wallOrigin_ = 0;  // the wall time of the first frame (replayed)
    double latest_ = 0;      // the latest time placed
};

// A message seen, as a row shows it.
struct Row {
    unsigned int id = 0;  // as the database keeps it: bit 31 for extended
    std::string name;     // "unknown" for an identifier the database lacks, "error" for
                          // error frames
    std::uint64_t count = 0;
    std::optional<double> rate;
    double age = 0;
    std::string signals;  // Name=value unit "description", two blanks apart; unknown: data in hex
};

// The messages seen, by identifier.
class MessageTable {
public:
    explicit MessageTable(const DecodedDatabase& db);

    void Add(const Frame& frame, double time);
    // Every message seen, by identifier, as of now.
    std::vector<Row> Rows(double now) const;

    std::uint64_t Frames() const { return frames_; }
    // The widest message name to make room for (at least "unknown").
    std::size_t NameWidth() const { return nameWidth_; }

private:
    struct Signal {
        std::string before;  // "Name="
        std::string after;   // " unit"
    };
    struct Message {
        std::string name;
        std::vector<Signal> signals;
    };
    struct Seen {
        long index = -1;  // the decoder's message; -1 for an unknown identifier
        std::uint64_t count = 0;
        double latest = 0;
        RateWindow rate;
        // A known message: the latest value of each signal, once it had one.
        std::vector<tavlo_dec_value_t> values;
        std::vector<char> valued;
        // An unknown one, or error frames: its latest frame.
        bool error = false;
        unsigned int length = 0;
        bool remote = false;
        unsigned char data[64] = {};
    };

    std::string Signals(const Seen& seen) const;

    const DecodedDatabase& db_;
    std::vector<Message> messages_;        // by the decoder's index
    // Error frames' identifiers are kept with this bit, which no identifier
    // of the records has (extended ones have bit 31 and 29 bits).
    static constexpr unsigned int kErrorKey = 0x40000000u;
    std::map<unsigned int, Seen> seen_;    // by identifier
    std::vector<tavlo_dec_value_t> decoded_;
    std::uint64_t frames_ = 0;
    std::size_t nameWidth_ = 0;
};

// Text that a terminal shows as it is: valid UTF-8 is kept, any other byte
// taken as Latin-1 (as older database files write units such as "°C"), and
// control characters become '?'.
std::string Displayable(std::string_view text);
// The columns text takes on a terminal: one per character.
std::size_t Columns(std::string_view text);

// The identifier as candump writes it: 3 hex digits, 8 for an extended one.
std::string IdText(unsigned int id);

// Whether a row's name holds the filter, in any case; an empty filter
// holds every row.
bool Matches(std::string_view name, std::string_view filter);

// A row as a line: identifier, name (in nameWidth columns), count, rate,
// age, then the signals (from column SignalsColumn(nameWidth) on).
std::string FormatRow(const Row& row, std::size_t nameWidth);
std::string HeaderLine(std::size_t nameWidth);
std::size_t SignalsColumn(std::size_t nameWidth);

// A line cut to width columns, its part from column `fixed` on shifted left
// by `shift` columns (the signals scrolled sideways, the rest kept).
std::string Clip(std::string_view line, std::size_t fixed, std::size_t shift, std::size_t width);

// What the screen shows and how: the filter, the scrolling, the pause.
struct View {
    std::string filter;      // applied
    bool editing = false;    // typing a new filter
    std::string typed;       // its text so far
    bool paused = false;
    std::size_t top = 0;     // the first row shown
    std::size_t shift = 0;   // columns the signals are shifted left by

    // Scrolls by `by` rows (negative: up) among `rows`, `height` shown.
    void Scroll(long by, std::size_t rows, std::size_t height);
    // Keeps the first row in range after the rows or the height changed.
    void Fit(std::size_t rows, std::size_t height) { Scroll(0, rows, height); }
};

}  // namespace tavlo::tool::monitor
