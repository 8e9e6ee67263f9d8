// tools/tavlo/plot.cpp: the plot subcommand, the physical values of chosen
// signals over a candump log drawn as an SVG chart: a panel per signal,
// stacked on a shared time axis. The SVG is written as text; long logs are
// thinned per pixel column, so the file stays small whatever the log's size.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "commands.h"
#include "decoding.h"
#include "log.h"
#include "system.h"

namespace tavlo::tool {
namespace {

const char kPlotHelp[] =
    "usage: tavlo plot [OPTIONS] DB LOG SIGNAL... -o SVG\n"
    "Draws the physical values of signals in a candump log (LOG, or '-' for\n"
    "standard input) as an SVG chart into the file SVG ('-' for standard\n"
    "output): one panel per signal, stacked on a shared time axis in seconds\n"
    "from the log's first frame, or on frame numbers when the log has no\n"
    "timestamps. A signal is named NAME, or MESSAGE.NAME when several messages\n"
    "have a signal of that name. A '*' in either part (quoted from the shell)\n"
    "stands for any characters and chooses every signal that matches, in the\n"
    "database's order; a signal chosen twice gets one panel.\n"
    "\n"
    "A value holds until the next one and is drawn as a step. A multiplexed\n"
    "signal has values only in the frames of its multiplexer value: its line\n"
    "breaks from the first frame of its message without it to the next frame\n"
    "with it. A frame too short for a signal has none. Long logs are thinned to\n"
    "the first, smallest, largest and last value of each pixel column, which\n"
    "keeps the curve's outline; their breaks narrower than a pixel are closed.\n"
    "\n"
    "--from and --to draw only the frames from and up to a time, in seconds from\n"
    "the log's first frame, and the time axis spans them; in a log without\n"
    "timestamps they are frame numbers, counted from 1.\n"
    "\n"
    "A signal without values in the log (or the window) gets a panel saying so\n"
    "and a note on standard error; that alone is not an error (exit status 0).\n"
    "Lines that are not frames are reported and skipped: the chart is written\n"
    "all the same and the exit status is 1.\n";

// The chart's layout in pixels: panels of kPlotHeight under a title line,
// the time axis' labels under the last one.
constexpr int kWidth = 960;
constexpr int kLeft = 84;  // room for the value labels and the unit
constexpr int kPlotWidth = kWidth - kLeft - 24;
constexpr int kTop = 12;
constexpr int kTitleHeight = 24;
constexpr int kPlotHeight = 150;
constexpr int kPanelGap = 14;
constexpr int kBottom = 48;
constexpr int kPanelHeight = kTitleHeight + kPlotHeight + kPanelGap;
constexpr int kInset = 6;  // between the frame and the lowest and highest value

constexpr int kMostTicks = 50;

// Samples are marked with a dot while there are no more than this: a lone
// value is seen, and few values are told from the steps between them.
constexpr std::size_t kMostDots = 100;

// More samples than this per pixel column are thinned.
constexpr std::size_t kSamplesPerColumn = 2;

const char* const kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#17becf"};

// A frame of a multiplexed signal's message that lacks the signal is kept
// as a sample of this value: its line breaks there.
constexpr double kAbsent = std::numeric_limits<double>::quiet_NaN();

struct Sample {
    std::size_t frame;  // the frame's number in the log, from 0
    double value;       // kAbsent in a frame of the message without the signal
};

struct Series {
    const msgblk* message;
    const sigblk* signal;
    std::string name;  // Message.Signal
    std::size_t messageIndex;  // the decoder's
    std::size_t signalIndex;
    bool multiplexed;  // present only in the frames of its multiplexer's values
    std::vector<Sample> samples;
    std::size_t values = 0;  // the samples that are not kAbsent, once drawn ones are chosen
};

// Adds the signals a command line names (see FindSignals) to those chosen,
// a signal already chosen not again. False with the reason shown.
bool Choose(const DecodedDatabase& db, const std::string& path, const std::string& text,
            std::vector<Series>& chosen) {
    std::vector<SignalRef> found;
    if (!FindSignals(db, path, text, found)) {
        return false;
    }
    for (const SignalRef& ref : found) {
        const msgblk& message = *db.records[ref.message];
        const sigblk* signal = message.signals;
        for (std::size_t i = 0; i < ref.signal; ++i) {
            signal = signal->next;
        }
        const auto same = [signal](const Series& each) { return each.signal == signal; };
        if (std::any_of(chosen.begin(), chosen.end(), same)) {
            continue;
        }
        const tavlo_dec_message_t& compiled = *db.decoder.Message(ref.message);
        const bool multiplexed =
            ref.signal < compiled.signal_count && compiled.signals[ref.signal].multiplexer >= 0;
        chosen.push_back({&message, signal, MessageName(message) + "." + SignalName(*signal),
                          ref.message, ref.signal, multiplexed, {}});
    }
    return true;
}

// The samples of the chosen signals and the frames' times, gathered from
// the log frame by frame.
class Collector {
public:
    Collector(const tavlo::Decoder& decoder, std::vector<Series>& series)
        : decoder_(decoder), series_(series) {
        for (std::size_t i = 0; i < series.size(); ++i) {
            const unsigned int id = series[i].message->id;
            byId_[id].push_back(i);
            values_.resize(std::max(values_.size(),
                                    decoder.Message(series[i].messageIndex)->signal_count));
        }
    }

    void Add(const Frame& frame) {
        const std::size_t number = frames_++;
        if (timed_) {
            AddTime(frame.time);
        }
        const auto found = byId_.find(frame.id);
        if (found == byId_.end() || frame.remote) {
            return;
        }
        const long message = decoder_.FindId(frame.id);
        std::size_t count = 0;
        tavlo_decoder_decode_message(decoder_.get(), static_cast<std::size_t>(message), frame.data,
                                     frame.length, values_.data(), values_.size(), &count);
        for (const std::size_t index : found->second) {
            Series& series = series_[index];
            if (series.messageIndex != static_cast<std::size_t>(message)) {
                continue;  // a second message of the same identifier
            }
            bool present = false;
            for (std::size_t i = 0; i < count; ++i) {
                if (values_[i].signal == series.signalIndex) {
                    present = true;
                    if (std::isfinite(values_[i].physical)) {
                        series.samples.push_back({number, values_[i].physical});
                    }
                }
            }
            if (!present && series.multiplexed) {
                series.samples.push_back({number, kAbsent});
            }
        }
    }

    std::size_t Frames() const { return frames_; }

    // Whether every frame had a time; if not, frame numbers stand for them.
    bool Timed() const { return timed_ && frames_ > 0; }

    // Where a frame stands on the time axis.
    double X(std::size_t frame) const {
        return Timed() ? times_[frame] - times_.front() : static_cast<double>(frame + 1);
    }

private:
    void AddTime(std::string_view text) {
        double time = 0;
        const char* end = text.data() + text.size();
        const std::from_chars_result read = std::from_chars(text.data(), end, time);
        if (text.empty() || read.ec != std::errc() || read.ptr != end || !std::isfinite(time)) {
            timed_ = false;
            times_ = std::vector<double>();
            return;
        }
        times_.push_back(time);
    }

    const tavlo::Decoder& decoder_;
    std::vector<Series>& series_;
    std::vector<tavlo_dec_value_t> values_;
    std::unordered_map<unsigned int, std::vector<std::size_t>> byId_;
    std::size_t frames_ = 0;
    bool timed_ = true;
    std::vector<double> times_;  // of every frame while all have one
};

// The stretch of the time axis drawn, as --from and --to give it; the whole
// log without them.
struct Window {
    std::optional<double> from;
    std::optional<double> to;

    bool Holds(double x) const { return (!from || x >= *from) && (!to || x <= *to); }
};

// Reads --from and --to: numbers, not negative, the first not after the
// second; false (a usage error, shown) otherwise.
bool ReadWindow(const Invocation& line, Window& window) {
    const std::pair<const char*, std::optional<double>*> options[] = {{"--from", &window.from},
                                                                      {"--to", &window.to}};
    for (const auto& [name, bound] : options) {
        if (!line.Given(name)) {
            continue;
        }
        const std::string text = line.Value(name, "");
        double value = 0;
        const char* end = text.data() + text.size();
        const std::from_chars_result read = std::from_chars(text.data(), end, value);
        if (text.empty() || read.ec != std::errc() || read.ptr != end || !std::isfinite(value)) {
            std::fprintf(stderr, "tavlo plot: %s: '%s' is not a number\n", name, text.c_str());
            return false;
        }
        if (value < 0) {
            std::fprintf(stderr, "tavlo plot: %s: '%s' is negative\n", name, text.c_str());
            return false;
        }
        *bound = value + 0.0;  // + 0.0: no "-0"
    }
    if (window.from && window.to && *window.from > *window.to) {
        std::fprintf(stderr, "tavlo plot: --from %s is after --to %s\n",
                     line.Value("--from", "").c_str(), line.Value("--to", "").c_str());
        return false;
    }
    return true;
}

// Keeps the samples of frames inside the window, and of each run of frames
// without the signal only the first, after a value: the break in its line.
void KeepInWindow(const Collector& collector, const Window& window, Series& series) {
    std::vector<Sample> kept;
    for (const Sample& sample : series.samples) {
        if (!window.Holds(collector.X(sample.frame))) {
            continue;
        }
        const bool absent = std::isnan(sample.value);
        if (absent && (kept.empty() || std::isnan(kept.back().value))) {
            continue;
        }
        kept.push_back(sample);
        series.values += absent ? 0 : 1;
    }
    series.samples = std::move(kept);
}

// An axis from low to high with ticks at round numbers: 1, 2 or 5 times a
// power of ten apart.
struct Axis {
    double low;
    double high;
    double step;

    double Fraction(double value) const { return (value - low) / (high - low); }
};

// About `ticks` ticks over [low, high], no closer than minimumStep; with
// widen, the ends move out to the next ticks.
Axis RoundAxis(double low, double high, int ticks, double minimumStep, bool widen) {
    if (!(high - low > std::max(std::fabs(low), std::fabs(high)) * 1e-12)) {
        const double half = low != 0 ? std::fabs(low) * 0.1 : 1.0;
        low -= half;
        high += half;
    }
    const double rough = (high - low) / ticks;
    if (!std::isfinite(rough)) {
        return {low, high, high - low};  // no round numbers at the ends of the doubles
    }
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    const double mantissa = rough / power;
    const double round = mantissa <= 1 ? 1 : mantissa <= 2 ? 2 : mantissa <= 5 ? 5 : 10;
    double step = round * power;
    while (step < minimumStep * (1 - 1e-9)) {  // the next round number up
        const double next = step / std::pow(10.0, std::floor(std::log10(step) + 1e-9));
        step *= next < 1.5 ? 2 : next < 3 ? 2.5 : 2;
    }
    if (widen) {
        low = std::floor(low / step) * step;
        high = std::ceil(high / step) * step;
    }
    return {low, high, step};
}

// Appends a pixel coordinate with one decimal, without a trailing ".0".
void AppendCoordinate(std::string& out, double value) {
    char text[32];
    const double rounded = std::round(value * 10) / 10 + 0.0;  // + 0.0: no "-0"
    const std::to_chars_result written =
        std::to_chars(text, text + sizeof text, rounded, std::chars_format::fixed, 1);
    std::size_t length = static_cast<std::size_t>(written.ptr - text);
    if (length >= 2 && text[length - 2] == '.' && text[length - 1] == '0') {
        length -= 2;
    }
    out.append(text, length);
}

// Appends text as XML character data or attribute value. Texts are bytes of
// the file's code page; each stands for the character of the same number.
void AppendXmlText(std::string& out, std::string_view text) {
    static const char kHex[] = "0123456789ABCDEF";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        default:
            if (byte >= 0x80) {
                out += "&#x";
                out += kHex[byte >> 4];
                out += kHex[byte & 15];
                out += ';';
            } else if (byte < 0x20) {
                out += "&#xFFFD;";  // control characters have no place in XML
            } else {
                out += c;
            }
        }
    }
}

// A tick's label: as many decimals as the step needs, in exponent form only
// for numbers too long to read otherwise.
std::string TickLabel(double value, double step) {
    if (std::fabs(value) < step * 1e-6) {
        value = 0;  // not "-0" or "1e-17"
    }
    char text[64];
    const double largest = std::max(std::fabs(value), step);
    std::to_chars_result written{};
    if (largest < 1e10 && step >= 1e-6) {
        const int decimals = step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
        written = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
    } else {
        const int digits =
            std::clamp(static_cast<int>(std::ceil(std::log10(largest / step))) + 1, 1, 17);
        written = std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits);
    }
    return std::string(text, written.ptr);
}

// The ticks of an axis inside it.
std::vector<double> Ticks(const Axis& axis) {
    std::vector<double> ticks;
    const double first = std::ceil(axis.low / axis.step - 1e-9);
    const double count = std::floor(axis.high / axis.step + 1e-9) - first;
    if (!(count >= 0 && count <= kMostTicks)) {
        return ticks;  // steps too small to tell the values apart
    }
    for (int k = 0; k <= static_cast<int>(count); ++k) {
        ticks.push_back((first + k) * axis.step);
    }
    return ticks;
}

struct Point {
    double x;
    double y;
};

// The pixel column of an x coordinate.
int Column(double x) {
    return std::clamp(static_cast<int>(x - kLeft), 0, kPlotWidth - 1);
}

// Adds the points of [begin, end) to draw to kept: all of them without
// thinning; otherwise of each run of points in one column its first,
// smallest, largest and last, in their order, so that spikes survive.
void Thin(const std::vector<Point>& points, std::size_t begin, std::size_t end, bool thin,
          std::vector<std::size_t>& kept) {
    if (!thin) {
        for (std::size_t i = begin; i < end; ++i) {
            kept.push_back(i);
        }
        return;
    }
    std::size_t first = begin;
    std::size_t lowest = begin;  // by pixel: the largest y
    std::size_t highest = begin;
    for (std::size_t i = begin + 1; i <= end; ++i) {
        if (i < end && Column(points[i].x) == Column(points[first].x)) {
            lowest = points[i].y > points[lowest].y ? i : lowest;
            highest = points[i].y < points[highest].y ? i : highest;
            continue;
        }
        std::size_t run[] = {first, std::min(lowest, highest), std::max(lowest, highest), i - 1};
        for (const std::size_t index : run) {
            if (kept.empty() || kept.back() != index) {
                kept.push_back(index);
            }
        }
        first = lowest = highest = i;
    }
}

class Chart {
public:
    // The time axis spans the window's frames, or the window where it is given.
    Chart(const Collector& collector, const Window& window, const std::vector<Series>& series)
        : collector_(collector), series_(series) {
        double low = window.from ? *window.from : window.to ? *window.to : 1;
        double high = low;
        bool any = false;
        for (std::size_t frame = 0; frame < collector.Frames(); ++frame) {
            const double x = collector.X(frame);
            if (window.Holds(x)) {
                low = any ? std::min(low, x) : x;
                high = any ? std::max(high, x) : x;
                any = true;
            }
        }
        low = window.from ? *window.from : low;
        high = window.to ? *window.to : high;
        time_ = RoundAxis(low, high, 10, collector.Timed() ? 0 : 1, false);
        height_ = kTop + static_cast<int>(series.size()) * kPanelHeight + kBottom;
    }

    std::string Svg() const {
        std::string out;
        out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
        out += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(kWidth) +
               "\" height=\"" + std::to_string(height_) + "\" viewBox=\"0 0 " +
               std::to_string(kWidth) + " " + std::to_string(height_) + "\">\n";
        out += "<title>";
        for (std::size_t i = 0; i < series_.size(); ++i) {
            out += i == 0 ? "" : ", ";
            AppendXmlText(out, series_[i].name);
        }
        out += "</title>\n";
        out +=
            "<style>\n"
            "text{font-family:sans-serif;font-size:11px;fill:#333}\n"
            ".title{font-size:13px;font-weight:bold}\n"
            ".message{font-weight:normal;fill:#777}\n"
            ".ytick{text-anchor:end;dominant-baseline:middle}\n"
            ".xtick,.unit,.axis,.empty{text-anchor:middle}\n"
            ".empty{fill:#999;font-size:13px}\n"
            ".grid{stroke:#e6e6e6}\n"
            ".frame{fill:none;stroke:#999}\n"
            ".line{fill:none;stroke-width:1.2;stroke-linejoin:round}\n"
            "</style>\n"
            "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
        for (std::size_t i = 0; i < series_.size(); ++i) {
            AppendPanel(out, series_[i], kTop + static_cast<int>(i) * kPanelHeight + kTitleHeight,
                        kColours[i % (sizeof kColours / sizeof kColours[0])]);
        }
        AppendTimeAxis(out, kTop + static_cast<int>(series_.size()) * kPanelHeight - kPanelGap);
        out += "</svg>\n";
        return out;
    }

private:
    double PixelX(double x) const { return kLeft + time_.Fraction(x) * kPlotWidth; }

    void AppendPanel(std::string& out, const Series& series, int top, const char* colour) const {
        const std::size_t samples = series.values;
        out += "<g class=\"panel\">\n<text class=\"title\" x=\"" + std::to_string(kLeft) +
               "\" y=\"" + std::to_string(top - 7) + "\">";
        AppendXmlText(out, SignalName(*series.signal));
        out += " <tspan class=\"message\">in ";
        AppendXmlText(out, MessageName(*series.message));
        out += ", " + std::to_string(samples) + (samples == 1 ? " value" : " values");
        out += "</tspan></text>\n";
        for (const double tick : Ticks(time_)) {
            AppendLine(out, PixelX(tick), top, PixelX(tick), top + kPlotHeight);
        }
        if (series.values == 0) {
            out += "<text class=\"empty\" x=\"" + std::to_string(kLeft + kPlotWidth / 2) +
                   "\" y=\"" + std::to_string(top + kPlotHeight / 2) + "\">no values</text>\n";
        } else {
            AppendValues(out, series, top, colour);
        }
        out += "<rect class=\"frame\" x=\"" + std::to_string(kLeft) + "\" y=\"" +
               std::to_string(top) + "\" width=\"" + std::to_string(kPlotWidth) +
               "\" height=\"" + std::to_string(kPlotHeight) + "\"/>\n</g>\n";
    }

    void AppendValues(std::string& out, const Series& series, int top, const char* colour) const {
        double low = series.samples.front().value;  // a value: no kAbsent comes first
        double high = low;
        for (const Sample& sample : series.samples) {
            low = std::fmin(low, sample.value);  // fmin, fmax: kAbsent left out
            high = std::fmax(high, sample.value);
        }
        // An integer signal's values lie a factor apart: no ticks between.
        const unsigned int valueType = series.signal->value_type;
        const double factor = series.signal->factor;
        const Axis values = RoundAxis(low, high, 5,
                                      valueType == TAVLO_VALUE_INTEGER ? std::fabs(factor) : 0, true);
        const auto pixelY = [&](double value) {
            return top + kInset + (1 - values.Fraction(value)) * (kPlotHeight - 2 * kInset);
        };
        for (const double tick : Ticks(values)) {
            AppendLine(out, kLeft, pixelY(tick), kLeft + kPlotWidth, pixelY(tick));
            out += "<text class=\"ytick\" x=\"" + std::to_string(kLeft - 6) + "\" y=\"";
            AppendCoordinate(out, pixelY(tick));
            out += "\">" + TickLabel(tick, values.step) + "</text>\n";
        }
        const std::string unit = series.signal->unit;
        if (!unit.empty()) {
            out += "<text class=\"unit\" transform=\"translate(14 " +
                   std::to_string(top + kPlotHeight / 2) + ") rotate(-90)\">";
            AppendXmlText(out, unit);
            out += "</text>\n";
        }
        // The values' points, each with the x where the line breaks after it
        // (NaN: it goes on to the next one).
        std::vector<Point> points;
        std::vector<double> breaks;
        points.reserve(series.values);
        breaks.reserve(series.values);
        for (const Sample& sample : series.samples) {
            const double x = PixelX(collector_.X(sample.frame));
            if (std::isnan(sample.value)) {
                breaks.back() = x;
            } else {
                points.push_back({x, pixelY(sample.value)});
                breaks.push_back(kAbsent);
            }
        }
        // A line for each run of values without a break between them. A thinned
        // line keeps the breaks of a pixel or more: a narrower one cannot be
        // seen, and keeping each would let a signal whose multiplexer changes
        // every frame fill the file. What is kept of a column then belongs
        // to one line, as a break kept ends in a later column.
        const bool thin = points.size() > kSamplesPerColumn * kPlotWidth;
        std::vector<std::size_t> kept;
        std::size_t first = 0;
        for (std::size_t i = 0; i < points.size(); ++i) {
            const bool last = i + 1 == points.size();
            const bool gap = !std::isnan(breaks[i]) &&
                             (last || !thin || points[i + 1].x - breaks[i] >= 1);
            if (gap || last) {
                const std::size_t from = kept.size();
                Thin(points, first, i + 1, thin, kept);
                AppendSteps(out, colour, points, kept, from, gap ? breaks[i] : kAbsent);
                first = i + 1;
            }
        }
        if (kept.size() <= kMostDots) {
            out += "<g class=\"dots\" fill=\"";
            out += colour;
            out += "\">\n";
            for (const std::size_t index : kept) {
                out += "<circle cx=\"";
                AppendCoordinate(out, points[index].x);
                out += "\" cy=\"";
                AppendCoordinate(out, points[index].y);
                out += "\" r=\"2\"/>\n";
            }
            out += "</g>\n";
        }
    }

    // A line of steps through the points kept[from...]: a value holds until
    // the next one comes, the last one until x `until` (if not NaN).
    static void AppendSteps(std::string& out, const char* colour, const std::vector<Point>& points,
                            const std::vector<std::size_t>& kept, std::size_t from, double until) {
        out += "<polyline class=\"line\" stroke=\"";
        out += colour;
        out += "\" points=\"";
        for (std::size_t k = from; k < kept.size(); ++k) {
            const Point& point = points[kept[k]];
            if (k > from) {
                out += ' ';
                AppendCoordinate(out, point.x);
                out += ',';
                AppendCoordinate(out, points[kept[k - 1]].y);
                out += ' ';
            }
            AppendCoordinate(out, point.x);
            out += ',';
            AppendCoordinate(out, point.y);
        }
        if (!std::isnan(until)) {
            out += ' ';
            AppendCoordinate(out, until);
            out += ',';
            AppendCoordinate(out, points[kept.back()].y);
        }
        out += "\"/>\n";
    }

    void AppendTimeAxis(std::string& out, int bottom) const {
        for (const double tick : Ticks(time_)) {
            out += "<text class=\"xtick\" x=\"";
            AppendCoordinate(out, PixelX(tick));
            out += "\" y=\"" + std::to_string(bottom + 16) + "\">" + TickLabel(tick, time_.step) +
                   "</text>\n";
        }
        out += "<text class=\"axis\" x=\"" + std::to_string(kLeft + kPlotWidth / 2) + "\" y=\"" +
               std::to_string(bottom + 36) + "\">" +
               (collector_.Timed() ? "time in s from the first frame"
                                   : "frame number (the log has no timestamps)") +
               "</text>\n";
    }

    static void AppendLine(std::string& out, double x1, double y1, double x2, double y2) {
        out += "<line class=\"grid\" x1=\"";
        AppendCoordinate(out, x1);
        out += "\" y1=\"";
        AppendCoordinate(out, y1);
        out += "\" x2=\"";
        AppendCoordinate(out, x2);
        out += "\" y2=\"";
        AppendCoordinate(out, y2);
        out += "\"/>\n";
    }

    const Collector& collector_;
    const std::vector<Series>& series_;
    Axis time_{};
    int height_ = 0;
};

int Plot(const Invocation& line) {
    const Arguments& positional = line.operands;
    const std::string output = line.Value("--output", "");
    if (output.empty() || positional.size() < 3) {
        return line.Misused();
    }
    Window window;
    if (!ReadWindow(line, window)) {
        return kUsage;
    }
    const std::string& path = positional[0];
    const std::string& log = positional[1];
    DecodedDatabase db;
    if (!LoadDecoder(path, db)) {
        return kFailed;
    }
    std::vector<Series> series;
    for (std::size_t i = 2; i < positional.size(); ++i) {
        if (!Choose(db, path, positional[i], series)) {
            return kFailed;
        }
    }
    // Opened before the log is read, so that a chart that cannot be written
    // does not wait for a long log, and emptied only after it: a log named
    // as the chart by mistake is still read whole.
    const bool toStdout = output == "-";
    std::FILE* out = toStdout ? stdout : OpenToWrite(output);
    if (out == nullptr) {
        std::fprintf(stderr, "%s: cannot be written: %s\n", output.c_str(), std::strerror(errno));
        return kFailed;
    }
    Collector collector(db.decoder, series);
    int status = ReadFrames({log}, [&collector](const Frame& frame) { collector.Add(frame); });
    for (Series& each : series) {
        KeepInWindow(collector, window, each);
        if (each.values == 0) {
            std::fprintf(stderr, "%s: no values of %s\n",
                         log == "-" ? "<standard input>" : log.c_str(), each.name.c_str());
        }
    }
    const std::string svg = Chart(collector, window, series).Svg();
    const bool emptied = toStdout || EmptyIfRegular(out);
    const bool written =
        emptied && std::fwrite(svg.data(), 1, svg.size(), out) == svg.size();
    const bool closed = toStdout ? std::fflush(out) == 0 : std::fclose(out) == 0;
    if (!written || !closed) {
        std::fprintf(stderr, "%s: cannot be written: %s\n", output.c_str(), std::strerror(errno));
        status = kFailed;
    }
    return status;
}

}  // namespace

const Subcommand kPlot{"plot", "DB LOG SIGNAL... -o SVG", "draw signals of a log as SVG",
                       &Plot, kPlotHelp,
                       {{"-o,--output", "SVG", "the chart's file ('-' for standard output)", {}},
                        {"--from", "SECONDS", "draw the frames from this time on", {}},
                        {"--to", "SECONDS", "draw the frames up to this time", {}}}};

}  // namespace tavlo::tool
