// logs/asc.cpp: Vector ASC logs, the text form. A header ("date ...",
// "base hex|dec timestamps absolute|relative", "Begin Triggerblock ...")
// says how numbers and times are written; then one event a line, each
// after its time:
//   0.001000 1  123             Rx   d 8 11 22 33 44 55 66 77 88
//   0.002000 1  1ABCDEFx        Tx   r 4
//   0.003000 1  ErrorFrame
//   0.004000 CANFD   1 Rx  123  Name  1 0 a 16 11 22 ... <duration> <bits> <flags> ...
// Events other than frames (statistics, statuses, markers) are counted as
// skipped; a line that starts as a frame and breaks off is a bad line.
#include "reader.h"

namespace tavlo::logs {
namespace {

// ASC's flags field of CANFD lines: an FD frame (not classic), a remote one.
constexpr std::uint32_t kAscFdFlag = 0x1000u;
constexpr std::uint32_t kAscRemoteFlag = 0x10u;

bool IsDirection(std::string_view word) { return word == "Rx" || word == "Tx"; }

bool EqualsNoCase(std::string_view text, std::string_view lower) {
    if (text.size() != lower.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] - 'A' + 'a')
                                                         : text[i];
        if (c != lower[i]) {
            return false;
        }
    }
    return true;
}

// An identifier: a number in the log's base, extended with a trailing 'x'.
bool ParseAscId(std::string_view word, bool decimal, tavlo_log_frame_t& frame) {
    bool extended = false;
    if (!word.empty() && (word.back() == 'x' || word.back() == 'X')) {
        extended = true;
        word.remove_suffix(1);
    }
    std::uint32_t id = 0;
    if (!ParseNumber(word, decimal ? 10 : 16, id) || id > (extended ? 0x1FFFFFFFu : 0x7FFu)) {
        return false;
    }
    frame.id = extended ? id | 0x80000000u : id;
    frame.flags |= extended ? TAVLO_LOG_EXTENDED : 0u;
    return true;
}

// count data bytes from at, in the log's base.
bool ParseAscBytes(std::string_view line, std::size_t& at, unsigned int count, bool decimal,
                   tavlo_log_frame_t& frame) {
    for (unsigned int i = 0; i < count; ++i) {
        std::uint32_t value = 0;
        if (!ParseNumber(Word(line, at), decimal ? 10 : 16, value) || value > 255) {
            return false;
        }
        frame.data[i] = static_cast<unsigned char>(value);
    }
    frame.length = count;
    return true;
}

// "<channel> <id> <dir> d|r <dlc> <bytes>..." after the time.
int ClassicFrame(tavlo_log_reader_t& reader, std::string_view line, std::size_t at,
                 std::string_view channel, tavlo_log_frame_t& frame) {
    const std::string_view idWord = Word(line, at);
    if (EqualsNoCase(idWord, "errorframe")) {
        frame.flags |= TAVLO_LOG_ERROR_FRAME;
        SetChannel(frame, channel);
        return TAVLO_LOG_OK;
    }
    std::size_t after = at;
    const std::string_view direction = Word(line, after);
    if (!IsDirection(direction)) {
        ++reader.skipped;  // another event of the channel ("Statistic:", "Status:" ...)
        return TAVLO_LOG_BAD_RECORD;
    }
    at = after;
    const std::string_view kind = Word(line, at);
    if (!ParseAscId(idWord, reader.ascDecimal, frame) || (kind != "d" && kind != "r")) {
        return reader.BadLine("not an ASC frame");
    }
    SetChannel(frame, channel);
    std::size_t dlcAt = at;
    std::uint32_t dlc = 0;
    const std::string_view dlcWord = Word(line, dlcAt);
    if (kind == "r") {
        frame.flags |= TAVLO_LOG_REMOTE;  // its length, when written, is only asked for
        return dlcWord.empty() || ParseNumber(dlcWord, 16, dlc) ? TAVLO_LOG_OK
                                                                 : reader.BadLine("not an ASC frame");
    }
    if (!ParseNumber(dlcWord, 16, dlc) || dlc > 15 ||
        !ParseAscBytes(line, dlcAt, dlc > 8 ? 8 : dlc, reader.ascDecimal, frame)) {
        return reader.BadLine("not an ASC frame");
    }
    return TAVLO_LOG_OK;
}

// "CANFD <channel> <dir> <id> [name] <brs> <esi> <dlc> <length> <bytes>...
// <duration> <bits> <flags> ..." after the time.
int FdFrame(tavlo_log_reader_t& reader, std::string_view line, std::size_t at,
            tavlo_log_frame_t& frame) {
    const std::string_view channel = Word(line, at);
    const std::string_view direction = Word(line, at);
    const std::string_view idWord = Word(line, at);
    SetChannel(frame, channel);
    if (EqualsNoCase(idWord, "errorframe") && IsDirection(direction)) {
        frame.flags |= TAVLO_LOG_ERROR_FRAME | TAVLO_LOG_FD;
        return TAVLO_LOG_OK;
    }
    if (!IsDirection(direction)) {
        ++reader.skipped;  // another FD event (statistics, bus states)
        return TAVLO_LOG_BAD_RECORD;
    }
    if (!ParseAscId(idWord, reader.ascDecimal, frame)) {
        return reader.BadLine("not an ASC CAN FD frame");
    }
    // A symbolic name may stand between the identifier and the BRS bit.
    std::size_t probe = at;
    const std::string_view first = Word(line, probe);
    const std::string_view second = Word(line, probe);
    if (!((first == "0" || first == "1") && (second == "0" || second == "1"))) {
        Word(line, at);
    }
    const std::string_view brs = Word(line, at);
    const std::string_view esi = Word(line, at);
    std::uint32_t dlc = 0;
    std::uint32_t length = 0;
    if ((brs != "0" && brs != "1") || (esi != "0" && esi != "1") ||
        !ParseNumber(Word(line, at), 16, dlc) || dlc > 15 ||
        !ParseNumber(Word(line, at), 10, length) || length > 64 ||
        !ParseAscBytes(line, at, length, reader.ascDecimal, frame)) {
        return reader.BadLine("not an ASC CAN FD frame");
    }
    // The flags after duration and bit count tell a classic frame on an FD
    // channel from an FD one; without them it is taken for FD.
    std::uint32_t ascFlags = kAscFdFlag;
    Word(line, at);
    Word(line, at);
    const std::string_view flagsWord = Word(line, at);
    if (!flagsWord.empty() && !ParseNumber(flagsWord, 16, ascFlags)) {
        ascFlags = kAscFdFlag;
    }
    if ((ascFlags & kAscFdFlag) != 0) {
        frame.flags |= TAVLO_LOG_FD | (brs == "1" ? TAVLO_LOG_BRS : 0u) |
                       (esi == "1" ? TAVLO_LOG_ESI : 0u);
    } else if ((ascFlags & kAscRemoteFlag) != 0) {
        frame.flags |= TAVLO_LOG_REMOTE;
        frame.length = 0;
        for (unsigned char& byte : frame.data) {
            byte = 0;
        }
    }
    return TAVLO_LOG_OK;
}

// A header line: "base ..." sets how numbers and times are read.
void HeaderLine(tavlo_log_reader_t& reader, std::string_view line, std::size_t at) {
    const std::string_view base = Word(line, at);
    if (base == "hex" || base == "dec") {
        reader.ascDecimal = base == "dec";
    }
    while (at < line.size()) {
        const std::string_view word = Word(line, at);
        if (word == "absolute" || word == "relative") {
            reader.ascRelative = word == "relative";
        }
    }
}

}  // namespace

int NextAsc(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame) {
    std::string_view line;
    while (reader.NextLine(line)) {
        std::size_t at = 0;
        const std::string_view first = Word(line, at);
        if (first.empty() || first.substr(0, 2) == "//") {
            continue;
        }
        if (first == "base") {
            HeaderLine(reader, line, at);
            continue;
        }
        double time = 0;
        if (!ParseTime(first, time)) {
            // The header's words, and the trigger blocks' bounds.
            if (first == "date" || first == "Begin" || first == "End" || first == "internal" ||
                first == "no") {
                continue;
            }
            return reader.BadLine("not an ASC line");
        }
        if (reader.ascRelative) {
            time += reader.ascLastTime;
        }
        reader.ascLastTime = time;
        ClearFrame(frame);
        frame.time = time;
        frame.has_time = 1;
        const std::string_view channel = Word(line, at);
        std::uint32_t number = 0;
        int result = TAVLO_LOG_BAD_RECORD;
        const unsigned long badBefore = reader.bad;
        if (channel == "CANFD") {
            result = FdFrame(reader, line, at, frame);
        } else if (ParseNumber(channel, 10, number)) {
            result = ClassicFrame(reader, line, at, channel, frame);
        } else {
            ++reader.skipped;  // an event of no channel ("Start of measurement", markers)
        }
        if (result == TAVLO_LOG_BAD_RECORD && reader.bad == badBefore) {
            continue;  // skipped, not bad
        }
        return result;
    }
    return TAVLO_LOG_END;
}

}  // namespace tavlo::logs
