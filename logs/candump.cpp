// logs/candump.cpp: candump logs, both forms candump writes: the file form
// "(1600000000.123456) can0 123#11223344" (FD frames "123##1...", remote
// frames "123#R") and the screen form "can0  123   [4]  11 22 33 44". A
// million-frame log reads in about a second, so a line is cut into its
// parts in place, without copying or allocating.
#include <cstring>

#include "reader.h"

namespace tavlo::logs {
namespace {

// candump's flag of an error frame in an 8-digit identifier (CAN_ERR_FLAG).
constexpr std::uint32_t kErrorFlag = 0x20000000u;

// The identifier of digits hex digits, of value id: more than three digits
// (or a value above 11 bits) name an extended identifier; eight digits may
// carry the error frame flag.
void SetId(tavlo_log_frame_t& frame, std::uint32_t id, std::size_t digits) {
    if (digits > 3 || id > 0x7FF) {
        if (digits == 8 && (id & kErrorFlag) != 0) {
            frame.flags |= TAVLO_LOG_ERROR_FRAME;
            id &= ~kErrorFlag;
        }
        frame.flags |= TAVLO_LOG_EXTENDED;
        id |= 0x80000000u;
    }
    frame.id = id;
}

bool ParseId(std::string_view text, tavlo_log_frame_t& frame) {
    if (text.empty() || text.size() > 8) {
        return false;
    }
    std::uint32_t id = 0;
    for (const char c : text) {
        const int digit = HexDigit(c);
        if (digit < 0) {
            return false;
        }
        id = id << 4 | static_cast<std::uint32_t>(digit);
    }
    SetId(frame, id, text.size());
    return true;
}

// Hex byte pairs, separated by blanks where spaced.
bool ParseBytes(std::string_view text, bool spaced, tavlo_log_frame_t& frame) {
    // The file form's usual data, pairs and nothing else, without a test per
    // character; anything else (a '\r', a bad digit) the general way.
    const std::size_t pairs = text.size() / 2;
    if (!spaced && text.size() % 2 == 0 && frame.length + pairs <= sizeof frame.data) {
        int bad = 0;
        for (std::size_t i = 0; i < pairs; ++i) {
            const int high = HexDigit(text[2 * i]);
            const int low = HexDigit(text[2 * i + 1]);
            bad |= high | low;  // negative when either is not a digit
            frame.data[frame.length + i] =
                static_cast<unsigned char>(static_cast<unsigned int>(high) << 4 | (low & 15));
        }
        if (bad >= 0) {
            frame.length += static_cast<unsigned int>(pairs);
            return true;
        }
        std::memset(frame.data + frame.length, 0, pairs);
    }
    std::size_t at = 0;
    while (at < text.size()) {
        if (IsBlank(text[at])) {
            if (!spaced && text[at] != '\r') {
                return false;
            }
            ++at;
            continue;
        }
        const int high = HexDigit(text[at]);
        const int low = high >= 0 && at + 1 < text.size() ? HexDigit(text[at + 1]) : -1;
        if (low < 0 || frame.length >= sizeof frame.data) {
            return false;
        }
        frame.data[frame.length++] = static_cast<unsigned char>(high << 4 | low);
        at += 2;
    }
    return true;
}

// Seconds as candump writes them: digits, a point, digits.
bool ParseCandumpTime(std::string_view text, double& value) {
    return !text.empty() && text.front() != '.' && text.back() != '.' && ParseTime(text, value);
}

// A line from its first character that is not blank (at).
bool ParseLine(std::string_view line, std::size_t at, tavlo_log_frame_t& frame) {
    ClearFrame(frame);
    if (line[at] == '(') {
        const void* found = std::memchr(line.data() + at, ')', line.size() - at);
        if (found == nullptr) {
            return false;
        }
        const auto close = static_cast<std::size_t>(static_cast<const char*>(found) - line.data());
        if (!ParseCandumpTime(line.substr(at + 1, close - at - 1), frame.time)) {
            return false;
        }
        frame.has_time = 1;
        at = close + 1;
    }
    // Not named "interface": <windows.h> makes that a macro.
    const std::string_view device = Word(line, at);
    // The next word, and where its first '#' is, in one pass.
    while (at < line.size() && IsBlank(line[at])) {
        ++at;
    }
    const std::size_t first = at;
    std::size_t hash = std::string_view::npos;
    for (; at < line.size() && !IsBlank(line[at]); ++at) {
        if (line[at] == '#' && hash == std::string_view::npos) {
            hash = at - first;
        }
    }
    const std::string_view next = line.substr(first, at - first);
    if (device.empty() || next.empty()) {
        return false;
    }
    SetChannel(frame, device);
    if (hash != std::string_view::npos) {  // file form: ID#DATA, ID##FDATA, ID#R
        if (!ParseId(next.substr(0, hash), frame)) {
            return false;
        }
        std::string_view data = next.substr(hash + 1);
        if (!data.empty() && data[0] == '#') {
            const int fdFlags = data.size() >= 2 ? HexDigit(data[1]) : -1;
            if (fdFlags < 0) {
                return false;  // FD frames carry a flags digit
            }
            frame.flags |= TAVLO_LOG_FD | ((fdFlags & 1) != 0 ? TAVLO_LOG_BRS : 0u) |
                           ((fdFlags & 2) != 0 ? TAVLO_LOG_ESI : 0u);
            data.remove_prefix(2);
        } else if (!data.empty() && (data[0] == 'R' || data[0] == 'r')) {
            frame.flags |= TAVLO_LOG_REMOTE;  // possibly with a length digit after the R
            return true;
        }
        return ParseBytes(data, false, frame);
    }
    // Screen form: ID [LEN] BYTES...
    if (!ParseId(next, frame)) {
        return false;
    }
    while (at < line.size() && IsBlank(line[at])) {
        ++at;
    }
    if (at >= line.size() || line[at] != '[') {
        return false;
    }
    const std::size_t close = line.find(']', at);
    if (close == std::string_view::npos || close == at + 1) {
        return false;
    }
    unsigned int length = 0;
    for (std::size_t i = at + 1; i < close; ++i) {
        if (line[i] < '0' || line[i] > '9' || length > 64) {
            return false;
        }
        length = length * 10 + static_cast<unsigned int>(line[i] - '0');
    }
    if (length > 8) {
        frame.flags |= TAVLO_LOG_FD;
    }
    return ParseBytes(line.substr(close + 1), true, frame) && frame.length == length;
}

// The line as candump -L writes it, "(SECONDS.FRACTION) DEVICE ID#HEX" with
// single spaces and nothing after the data, read in one pass; false for
// anything else (FD and remote frames too), which ParseLine then reads. Where
// this succeeds ParseLine would make the same frame: it is only quicker.
bool ParseFileForm(std::string_view line, tavlo_log_frame_t& frame) {
    const char* at = line.data();
    const char* const end = at + line.size();
    if (at == end || *at != '(') {
        return false;
    }
    std::uint64_t mantissa = 0;
    const auto digits = [&] {
        const char* const first = at;
        for (; at < end && static_cast<unsigned int>(*at - '0') < 10; ++at) {
            mantissa = mantissa * 10 + static_cast<unsigned int>(*at - '0');
        }
        return static_cast<std::size_t>(at - first);
    };
    ++at;
    const std::size_t whole = digits();
    if (whole == 0 || at == end || *at++ != '.') {
        return false;
    }
    const std::size_t decimals = digits();
    if (decimals == 0 || whole + decimals > 19 || mantissa > (std::uint64_t{1} << 53) ||
        end - at < 2 || at[0] != ')' || at[1] != ' ') {
        return false;
    }
    at += 2;
    const char* const device = at;
    while (at < end && !IsBlank(*at)) {
        ++at;
    }
    if (at == device || end - at < 2 || *at++ != ' ') {
        return false;
    }
    const char* const id = at;
    while (at < end && HexDigit(*at) >= 0) {
        ++at;
    }
    if (at == id || at - id > 8 || at == end || *at != '#' ||
        (end - at > 1 && (at[1] == '#' || at[1] == 'R' || at[1] == 'r'))) {
        return false;
    }
    const std::string_view data(at + 1, static_cast<std::size_t>(end - at - 1));
    if (data.size() % 2 != 0 || data.size() > 2 * sizeof frame.data) {
        return false;
    }
    ClearFrame(frame);
    if (!ParseId(std::string_view(id, static_cast<std::size_t>(at - id)), frame) ||
        !ParseBytes(data, false, frame) || frame.length != data.size() / 2) {
        return false;
    }
    static constexpr double kTens[] = {1,    1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                       1e16, 1e17, 1e18, 1e19};
    frame.time = static_cast<double>(mantissa) / kTens[decimals];  // as ParseTime reads it
    frame.has_time = 1;
    SetChannel(frame, std::string_view(device, static_cast<std::size_t>(id - 1 - device)));
    return true;
}

}  // namespace

int NextCandump(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame) {
    std::string_view line;
    while (reader.NextLine(line)) {
        std::size_t at = 0;
        while (at < line.size() && IsBlank(line[at])) {
            ++at;
        }
        if (at == line.size()) {
            continue;  // a blank line
        }
        if (!ParseFileForm(line.substr(at), frame) && !ParseLine(line, at, frame)) {
            return reader.BadLine("not a CAN frame");
        }
        return TAVLO_LOG_OK;
    }
    return TAVLO_LOG_END;
}

}  // namespace tavlo::logs
