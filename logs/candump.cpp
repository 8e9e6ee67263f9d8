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

// The lines candump -L writes are read eight bytes at a time: the first
// byte of the text is the lowest of the number, as little-endian machines
// load it, and each test below marks the high bit of the bytes it finds. The
// tests that look for the first byte of a kind may carry from a byte above
// 0x7F into the next, but mark that byte, so that the first marked byte is
// right and the bytes before it are unmarked.
#if defined(__GNUC__)
// Inlined always: GCC otherwise calls some of these, which costs more than
// their work.
#define TAVLO_INLINE inline __attribute__((always_inline))
#else
#define TAVLO_INLINE inline
#endif
constexpr std::uint64_t kOnes = 0x0101010101010101u;
constexpr std::uint64_t kHighBits = 0x8080808080808080u;
constexpr std::uint64_t kLow7Bits = 0x7F7F7F7F7F7F7F7Fu;
constexpr std::uint64_t kZeros = '0' * kOnes;

TAVLO_INLINE std::uint64_t Load8(const char* at) {
    std::uint64_t value = 0;
    std::memcpy(&value, at, sizeof value);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap64(value);
#endif
    return value;
}

TAVLO_INLINE void Store8(void* to, std::uint64_t value) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap64(value);
#endif
    std::memcpy(to, &value, sizeof value);
}

TAVLO_INLINE void Store4(void* to, std::uint32_t value) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap32(value);
#endif
    std::memcpy(to, &value, sizeof value);
}

// The bytes of digits (bytes ^ '0', so that decimal digits are 0 to 9) that
// are not decimal digits.
TAVLO_INLINE std::uint64_t NotDigits(std::uint64_t digits) {
    return ((digits + (0x80 - 10) * kOnes) | digits) & kHighBits;
}

// The bytes that are not hex digits (of either case).
TAVLO_INLINE std::uint64_t NotHexDigits(std::uint64_t bytes) {
    // Letters of either case as 0x7A to 0x7F; a byte above 0x7F is not one,
    // carry or not, and NotDigits marks it.
    const std::uint64_t letters = (bytes | 0x20 * kOnes) + (0x80 - 'f' - 1) * kOnes;
    const std::uint64_t notLetters = letters | ~(letters + ('f' - 'a' + 1) * kOnes);
    return NotDigits(bytes ^ kZeros) & notLetters;
}

// The bytes at or below ' ' (blanks among them): where a word ends.
TAVLO_INLINE std::uint64_t WordEnds(std::uint64_t bytes) {
    return ~(((bytes & kLow7Bits) + (0x80 - ' ' - 1) * kOnes) | bytes) & kHighBits;
}

// How many bytes come before the first marked one (marked is not 0).
TAVLO_INLINE unsigned int FirstMarked(std::uint64_t marked) {
#if defined(__GNUC__)
    return static_cast<unsigned int>(__builtin_ctzll(marked)) / 8;
#else
    const std::uint64_t before = ((marked & (0 - marked)) >> 7) - 1;  // 0xFF per byte before it
    return static_cast<unsigned int>(((before & kOnes) * kOnes) >> 56);
#endif
}

// How many bytes come before the first marked one, 8 for none.
TAVLO_INLINE unsigned int Unmarked(std::uint64_t marked) {
    return marked != 0 ? FirstMarked(marked) : 8;
}

// The first count bytes moved to the top, zeros below: a number's digits
// behind leading zeros (count 0 to 8).
TAVLO_INLINE std::uint64_t Leading(std::uint64_t bytes, unsigned int count) {
    return bytes << 4 * (8 - count) << 4 * (8 - count);
}

// The value of eight decimal digits, each byte one digit's value (0 to 9),
// the first the most significant.
TAVLO_INLINE std::uint32_t DecimalValue(std::uint64_t digits) {
    // Pairs, then fours, then all eight: each product adds the first times its
    // weight to the second, in the second's place, which the shift moves down.
    digits = (digits * (1 + (10 << 8)) >> 8) & 0x00FF00FF00FF00FFu;
    digits = (digits * (1 + (100 << 16)) >> 16) & 0x0000FFFF0000FFFFu;
    return static_cast<std::uint32_t>(digits * (1 + (std::uint64_t{10000} << 32)) >> 32);
}

// The value of each byte of hex digits (garbage for other bytes).
TAVLO_INLINE std::uint64_t Nibbles(std::uint64_t bytes) {
    return (bytes & 0x0F * kOnes) + ((bytes >> 6) & kOnes) * 9;  // letters have bit 6
}

// The value of eight hex digits' nibbles, the first the most significant.
TAVLO_INLINE std::uint32_t HexValue(std::uint64_t nibbles) {
    nibbles = (nibbles << 4 | nibbles >> 8) & 0x00FF00FF00FF00FFu;
    nibbles = (nibbles << 8 | nibbles >> 16) & 0x0000FFFF0000FFFFu;
    return static_cast<std::uint32_t>(nibbles << 16 | nibbles >> 32);
}

// The four bytes eight hex digits' nibbles write, the first in the lowest.
TAVLO_INLINE std::uint32_t HexBytes(std::uint64_t nibbles) {
    nibbles = (nibbles << 4 | nibbles >> 8) & 0x00FF00FF00FF00FFu;
    nibbles = (nibbles | nibbles >> 8) & 0x0000FFFF0000FFFFu;
    return static_cast<std::uint32_t>(nibbles | nibbles >> 16);
}

// 10 to the powers 0 to 8.
constexpr std::uint32_t kTensUpTo8[] = {1,      10,      100,      1000,     10000,
                                        100000, 1000000, 10000000, 100000000};

// Decimal digits from at on, added to mantissa (modulo 2 to the 64): how
// many there were.
TAVLO_INLINE std::size_t ReadDigits(const char*& at, std::uint64_t& mantissa) {
    std::size_t count = 0;
    for (;;) {
        const std::uint64_t digits = Load8(at) ^ kZeros;
        const unsigned int read = Unmarked(NotDigits(digits));
        mantissa = mantissa * kTensUpTo8[read] + DecimalValue(Leading(digits, read));
        at += read;
        count += read;
        if (read < 8) {
            return count;
        }
    }
}

// The line as candump -L writes it, "(SECONDS.FRACTION) DEVICE ID#HEX" with
// single spaces and nothing after the data, read in one pass, eight bytes at
// a time; false for anything else (FD and remote frames too), which ParseLine
// then reads. Where this succeeds ParseLine would make the same frame, to the
// last byte: it is only quicker. The line [at, end) has its '\n' at end, and
// the eight bytes from end can be read: every run of digits or other
// characters stops there.
bool ParseFileForm(const char* at, const char* end, tavlo_log_frame_t& frame) {
    if (*at++ != '(') {
        return false;
    }
    std::uint64_t mantissa = 0;
    const std::size_t whole = ReadDigits(at, mantissa);
    if (whole == 0 || *at++ != '.') {
        return false;
    }
    const std::size_t decimals = ReadDigits(at, mantissa);
    if (decimals == 0 || whole + decimals > 19 || mantissa > (std::uint64_t{1} << 53) ||
        at[0] != ')' || at[1] != ' ') {
        return false;
    }
    at += 2;

    // The device: bytes above ' ', then one ' '.
    const char* const device = at;
    const std::uint64_t name = Load8(at);
    std::uint64_t ends = WordEnds(name);
    while (ends == 0) {
        at += 8;
        ends = WordEnds(Load8(at));
    }
    at += FirstMarked(ends);
    const auto deviceSize = static_cast<std::size_t>(at - device);
    if (deviceSize == 0 || *at++ != ' ') {
        return false;
    }

    // The identifier, its value in the pass that finds its end.
    const std::uint64_t idText = Load8(at);
    const unsigned int digits = Unmarked(NotHexDigits(idText));
    at += digits;
    if (digits == 0 || *at++ != '#') {
        return false;
    }

    // The data: hex digits to the end of the line.
    const auto size = static_cast<std::size_t>(end - at);
    if (size % 2 != 0 || size > 2 * sizeof frame.data) {
        return false;
    }
    // Cleared in parts, which compilers clear with plain stores rather than a
    // string instruction.
    std::memset(frame.data, 0, 16);
    std::memset(frame.data + 16, 0, 16);
    std::memset(frame.data + 32, 0, 16);
    std::memset(frame.data + 48, 0, 16);
    unsigned char* to = frame.data;
    std::uint64_t bad = 0;
    for (; at < end; at += 8, to += 4) {
        std::uint64_t bytes = Load8(at);
        if (end - at < 8) {
            // Two, four or six digits; zero digits after them make zero bytes.
            const std::uint64_t kept = (std::uint64_t{1} << 8 * (end - at)) - 1;
            bytes = (bytes & kept) | (kZeros & ~kept);
        }
        bad |= NotHexDigits(bytes);
        Store4(to, HexBytes(Nibbles(bytes)));
    }
    if (bad != 0) {
        return false;  // ParseLine clears the frame again
    }
    static constexpr double kTens[] = {1,    1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                       1e16, 1e17, 1e18, 1e19};
    frame.time = static_cast<double>(mantissa) / kTens[decimals];  // as ParseTime reads it
    frame.has_time = 1;
    frame.flags = 0;
    SetId(frame, HexValue(Leading(Nibbles(idText), digits)), digits);
    frame.length = static_cast<unsigned int>(size / 2);
    Store8(frame.channel + 8, 0);
    if (deviceSize < 8) {
        // The name and its terminating zero in one store.
        Store8(frame.channel, name & ((std::uint64_t{1} << 8 * deviceSize) - 1));
    } else {
        Store8(frame.channel, 0);
        SetChannel(frame, std::string_view(device, deviceSize));
    }
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
        // The quick way for lines ended by a '\n' with eight bytes of the
        // buffer after it (all but the last of a log, nearly always).
        const char* const end = line.data() + line.size();
        const bool padded = static_cast<std::size_t>(reader.buffer.data() + reader.buffer.size() -
                                                     end) >= 8 &&
                            *end == '\n';
        if (!(padded && ParseFileForm(line.data() + at, end, frame)) &&
            !ParseLine(line, at, frame)) {
            return reader.BadLine("not a CAN frame");
        }
        return TAVLO_LOG_OK;
    }
    return TAVLO_LOG_END;
}

}  // namespace tavlo::logs
