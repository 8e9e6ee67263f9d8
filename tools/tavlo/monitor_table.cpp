// tools/tavlo/monitor_table.cpp: the monitor's table of messages, its clock
// and its rows as text, without a terminal.
#include "monitor_table.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace tavlo::tool::monitor {
namespace {

constexpr std::size_t kIdWidth = 8;
constexpr std::size_t kCountWidth = 10;
constexpr std::size_t kRateWidth = 8;
constexpr std::size_t kAgeWidth = 8;
constexpr std::size_t kGap = 2;
// Longer message names are cut to this many columns.
constexpr std::size_t kWidestName = 40;

std::size_t Slot(std::int64_t bucket) {
    return static_cast<std::size_t>(((bucket % kBuckets) + kBuckets) % kBuckets);
}

std::int64_t Bucket(double time) { return static_cast<std::int64_t>(std::floor(time / kBucketSeconds)); }

std::optional<double> Seconds(std::string_view text) {
    double seconds = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, seconds);
    if (text.empty() || read.ec != std::errc() || read.ptr != end || !std::isfinite(seconds)) {
        return std::nullopt;
    }
    return seconds;
}

// The byte where column `column` of text begins (its size past the end).
std::size_t ColumnOffset(std::string_view text, std::size_t column) {
    std::size_t at = 0;
    for (std::size_t seen = 0; at < text.size(); ++at) {
        if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80 && seen++ == column) {
            return at;
        }
    }
    return at;
}

// text in exactly `width` columns: cut with a '~', or padded with blanks.
std::string Fitted(std::string_view text, std::size_t width) {
    const std::size_t columns = Columns(text);
    if (columns > width) {
        return width == 0 ? std::string() : std::string(text.substr(0, ColumnOffset(text, width - 1))) + "~";
    }
    return std::string(text) + std::string(width - columns, ' ');
}

// The length of the UTF-8 sequence at text[at], 0 when it is not one.
std::size_t Utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    if (length == 0 || at + length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // No overlong forms, surrogates or code points past U+10FFFF.
    const unsigned char second = byte(at + 1);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) {
        return 0;
    }
    return length;
}

}  // namespace

void RateWindow::Add(double time) {
    if (!std::isfinite(time)) {
        return;
    }
    const std::int64_t bucket = Bucket(time);
    if (latest_ == INT64_MIN || bucket - latest_ >= kBuckets) {
        counts_.fill(0);
        latest_ = bucket;
    } else if (bucket > latest_) {
        for (std::int64_t b = latest_ + 1; b <= bucket; ++b) {
            counts_[Slot(b)] = 0;
        }
        latest_ = bucket;
    } else if (bucket <= latest_ - kBuckets) {
        return;  // older than the window
    }
    ++counts_[Slot(bucket)];
}

std::optional<double> RateWindow::Rate(double now) const {
    if (!(now >= kShortestSpan)) {
        return std::nullopt;
    }
    const std::int64_t last = Bucket(now);
    const std::int64_t first = last - (kBuckets - 1);
    std::uint64_t frames = 0;
    if (latest_ != INT64_MIN) {
        for (std::int64_t b = std::max(first, latest_ - (kBuckets - 1)); b <= std::min(last, latest_);
             ++b) {
            frames += counts_[Slot(b)];
        }
    }
    const double start = std::max(static_cast<double>(first) * kBucketSeconds, 0.0);
    return static_cast<double>(frames) / (now - start);
}

double FrameClock::Place(std::string_view time, double wall) {
    if (pace_ == Pace::kLive) {
        started_ = true;
        latest_ = std::max(latest_, wall);
        return wall;
    }
    if (!started_) {
        started_ = true;
        wallOrigin_ = wall;
    }
    double placed = pace_ == Pace::kReplay ? Now(wall) : latest_;
    if (const std::optional<double> own = Seconds(time)) {
        if (!timed_) {
            timed_ = true;
            logOrigin_ = *own;
        }
        placed = *own - logOrigin_;
    }
    latest_ = std::max(latest_, placed);
    return placed;
}

double FrameClock::Now(double wall) const {
    switch (pace_) {
    case Pace::kLive:
        return wall;
    case Pace::kFast:
        return latest_;
    case Pace::kReplay:
        break;
    }
    return started_ ? wall - wallOrigin_ : 0;
}

MessageTable::MessageTable(const DecodedDatabase& db) : db_(db) {
    std::size_t mostSignals = 0;
    nameWidth_ = std::string_view("unknown").size();
    for (const msgblk* record : db.records) {
        Message& message = messages_.emplace_back();
        message.name = Displayable(MessageName(*record));
        nameWidth_ = std::max(nameWidth_, std::min(Columns(message.name), kWidestName));
        for (const sigblk* s = record->signals; s != nullptr; s = s->next) {
            Signal& signal = message.signals.emplace_back();
            signal.before = Displayable(SignalName(*s)) + "=";
            if (s->unit[0] != '\0') {
                signal.after = " " + Displayable(s->unit);
            }
        }
        mostSignals = std::max(mostSignals, message.signals.size());
    }
    decoded_.resize(mostSignals);
}

void MessageTable::Add(const Frame& frame, double time) {
    ++frames_;
    // Error frames have rows of their own: never those of a message.
    const auto [found, added] = seen_.try_emplace(frame.error ? frame.id | kErrorKey : frame.id);
    Seen& seen = found->second;
    if (added) {
        seen.error = frame.error;
        seen.index = frame.error ? -1 : db_.decoder.FindId(frame.id);
        if (seen.index >= 0) {
            const std::size_t count = db_.decoder.Message(static_cast<std::size_t>(seen.index))->signal_count;
            seen.values.resize(count);
            seen.valued.resize(count);
        }
    }
    ++seen.count;
    seen.latest = time;
    seen.rate.Add(time);
    if (seen.index < 0) {
        seen.remote = frame.remote;
        seen.length = frame.length;
        std::copy(frame.data, frame.data + sizeof frame.data, seen.data);
        return;
    }
    if (frame.remote) {
        return;  // counted; it carries no values
    }
    std::size_t count = 0;
    tavlo_decoder_decode_message(db_.decoder.get(), static_cast<std::size_t>(seen.index), frame.data,
                                 frame.length, decoded_.data(), decoded_.size(), &count);
    for (std::size_t i = 0; i < count; ++i) {
        const tavlo_dec_value_t& value = decoded_[i];
        seen.values[value.signal] = value;
        seen.valued[value.signal] = 1;
    }
}

std::vector<Row> MessageTable::Rows(double now) const {
    std::vector<Row> rows;
    rows.reserve(seen_.size());
    for (const auto& [id, seen] : seen_) {
        Row& row = rows.emplace_back();
        row.id = id & ~kErrorKey;
        row.name = seen.index >= 0 ? messages_[static_cast<std::size_t>(seen.index)].name
                   : seen.error    ? "error"
                                   : "unknown";
        row.count = seen.count;
        row.rate = seen.rate.Rate(now);
        row.age = std::max(0.0, now - seen.latest);
        row.signals = Signals(seen);
    }
    return rows;
}

std::string MessageTable::Signals(const Seen& seen) const {
    std::string text;
    if (seen.index < 0) {
        if (seen.remote) {
            return "remote";
        }
        static const char kHex[] = "0123456789ABCDEF";
        for (unsigned int i = 0; i < seen.length; ++i) {
            if (i > 0) {
                text += ' ';
            }
            text += kHex[seen.data[i] >> 4];
            text += kHex[seen.data[i] & 15];
        }
        return text;
    }
    const auto m = static_cast<std::size_t>(seen.index);
    const tavlo_dec_message_t& compiled = *db_.decoder.Message(m);
    const Message& message = messages_[m];
    for (std::size_t s = 0; s < seen.values.size(); ++s) {
        if (!seen.valued[s]) {
            continue;
        }
        if (!text.empty()) {
            text += "  ";
        }
        text += message.signals[s].before;
        AppendValue(text, compiled.signals[s], seen.values[s]);
        text += message.signals[s].after;
        if (const char* description = db_.decoder.Describe(m, s, seen.values[s].raw)) {
            text += " \"" + Displayable(description) + "\"";
        }
    }
    return text;
}

std::string Displayable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x20 || byte == 0x7F || (byte >= 0x80 && byte < 0xA0 && Utf8Length(text, at) == 0)) {
            shown += '?';
            ++at;
        } else if (byte < 0x80) {
            shown += static_cast<char>(byte);
            ++at;
        } else if (const std::size_t length = Utf8Length(text, at)) {
            shown.append(text.substr(at, length));
            at += length;
        } else {  // Latin-1
            shown += static_cast<char>(0xC0 | (byte >> 6));
            shown += static_cast<char>(0x80 | (byte & 0x3F));
            ++at;
        }
    }
    return shown;
}

std::size_t Columns(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::string IdText(unsigned int id) {
    char text[16];
    const bool extended = (id & kExtendedFlag) != 0;
    std::snprintf(text, sizeof text, extended ? "%08X" : "%03X", id & (extended ? 0x1FFFFFFFu : 0x7FFu));
    return text;
}

bool Matches(std::string_view name, std::string_view filter) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::search(name.begin(), name.end(), filter.begin(), filter.end(),
                       [&lower](char a, char b) { return lower(a) == lower(b); }) != name.end() ||
           filter.empty();
}

std::string FormatRow(const Row& row, std::size_t nameWidth) {
    char numbers[96];
    char rate[32] = "-";
    if (row.rate) {
        std::snprintf(rate, sizeof rate, "%.1f", *row.rate);
    }
    const std::string count = std::to_string(row.count);
    std::snprintf(numbers, sizeof numbers, "%*s%*s%*.1f", static_cast<int>(kCountWidth), count.c_str(),
                  static_cast<int>(kRateWidth), rate, static_cast<int>(kAgeWidth), row.age);
    std::string line = Fitted(IdText(row.id), kIdWidth) + std::string(kGap, ' ') +
                       Fitted(row.name, nameWidth) + numbers;
    if (!row.signals.empty()) {
        line += std::string(kGap, ' ') + row.signals;
    }
    return line;
}

std::string HeaderLine(std::size_t nameWidth) {
    char numbers[64];
    std::snprintf(numbers, sizeof numbers, "%*s%*s%*s", static_cast<int>(kCountWidth), "COUNT",
                  static_cast<int>(kRateWidth), "RATE/s", static_cast<int>(kAgeWidth), "AGE/s");
    return Fitted("ID", kIdWidth) + std::string(kGap, ' ') + Fitted("NAME", nameWidth) + numbers +
           std::string(kGap, ' ') + "SIGNALS";
}

std::size_t SignalsColumn(std::size_t nameWidth) {
    return kIdWidth + kGap + nameWidth + kCountWidth + kRateWidth + kAgeWidth + kGap;
}

std::string Clip(std::string_view line, std::size_t fixed, std::size_t shift, std::size_t width) {
    if (width <= fixed) {
        return std::string(line.substr(0, ColumnOffset(line, width)));
    }
    std::string clipped(line.substr(0, ColumnOffset(line, fixed)));
    const std::string_view rest = line.substr(ColumnOffset(line, fixed + shift));
    clipped.append(rest.substr(0, ColumnOffset(rest, width - fixed)));
    return clipped;
}

void View::Scroll(long by, std::size_t rows, std::size_t height) {
    const std::size_t last = rows > height ? rows - height : 0;
    const long moved = static_cast<long>(std::min(top, last)) + by;
    top = moved < 0 ? 0 : std::min(static_cast<std::size_t>(moved), last);
}

}  // namespace tavlo::tool::monitor
