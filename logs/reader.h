// logs/reader.h: the reader object shared by the log formats: the bytes of
// the log in large blocks, the place of the last record, its error text and
// counts, and each format's state. The formats' parsers are the functions at
// the end, one file each; reader.cpp drives them and holds the C entries.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tavloms/logs.h"

struct tavlo_log_reader_t {
    // Where the bytes come from: a FILE*, a file descriptor or memory.
    std::FILE* file = nullptr;
    bool ownsFile = false;
    int fd = -1;
    const char* memory = nullptr;
    std::size_t memorySize = 0;
    std::string name;
    void (*idle)(void* context) = nullptr;  // see tavlo_log_set_idle
    void* idleContext = nullptr;

    int format = TAVLO_LOG_DETECT;
    bool finished = false;  // END or READ_FAILED has been returned

    // The bytes read and not yet used are buffer[start, end); offset is the
    // log's byte offset of buffer[0].
    std::vector<char> buffer;
    std::size_t start = 0;
    std::size_t end = 0;
    std::uint64_t bufferOffset = 0;
    bool eof = false;
    bool readFailed = false;

    // The last record: its line (or object number), offset, text.
    unsigned long line = 0;
    std::uint64_t offset = 0;
    std::string_view text;
    unsigned long skipped = 0;
    unsigned long bad = 0;
    std::string error;

    // ASC: numbers in hex or decimal, times absolute or since the last line.
    bool ascDecimal = false;
    bool ascRelative = false;
    double ascLastTime = 0;
    // TRC: the version times ten (10, 11, 13, 20, 21), and for 2.x which
    // column holds what (in the order of kColumnLetters in trc.cpp), -1 for
    // a missing one.
    int trcVersion = 10;
    int trcColumn[10] = {};
    int trcColumnCount = 0;

    // BLF: the bytes of the objects inside containers (uncompressed), read
    // from blfStart; the container they came from.
    bool blfHeaderRead = false;
    std::vector<unsigned char> blfInner;
    std::size_t blfStart = 0;
    std::uint64_t blfContainerOffset = 0;
    void* blfStream = nullptr;  // zlib's z_stream, made on the first compressed container

    ~tavlo_log_reader_t();

    // Makes at least count bytes available from start unless the log ends
    // first; false then (or on a read error, with readFailed set).
    bool Need(std::size_t count);
    // The next line without its end; false at the end of the log.
    bool NextLine(std::string_view& line);
    // Sets the error text (printf style) and returns code.
    int Fail(int code, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 3, 4)))
#endif
        ;
    // A bad line: "<what>: <the line>".
    int BadLine(const char* what);
};

namespace tavlo::logs {

// Each format's next frame: TAVLO_LOG_OK, END, BAD_RECORD or READ_FAILED.
int NextCandump(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame);
int NextAsc(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame);
int NextTrc(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame);
int NextBlf(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame);
void FreeBlf(tavlo_log_reader_t& reader);

// Text helpers shared by the text formats.
inline bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// The next blank-separated word from at; at moves past it.
inline std::string_view Word(std::string_view line, std::size_t& at) {
    while (at < line.size() && IsBlank(line[at])) {
        ++at;
    }
    const std::size_t first = at;
    while (at < line.size() && !IsBlank(line[at])) {
        ++at;
    }
    return line.substr(first, at - first);
}

// The value of each byte as a hex digit, -1 for the others: a table, since
// every byte of a text log passes through here.
struct HexTable {
    signed char value[256];
    constexpr HexTable() : value() {
        for (int c = 0; c < 256; ++c) {
            value[c] = c >= '0' && c <= '9'   ? static_cast<signed char>(c - '0')
                       : c >= 'a' && c <= 'f' ? static_cast<signed char>(c - 'a' + 10)
                       : c >= 'A' && c <= 'F' ? static_cast<signed char>(c - 'A' + 10)
                                              : -1;
        }
    }
};
inline constexpr HexTable kHex;
inline int HexDigit(char c) { return kHex.value[static_cast<unsigned char>(c)]; }

// An unsigned number of base 16 or 10 filling the whole text; false when it
// is not one or does not fit 32 bits.
bool ParseNumber(std::string_view text, int base, std::uint32_t& value);
// A decimal number of seconds (or other units) filling the whole text.
bool ParseTime(std::string_view text, double& value);
// Copies a channel's text, cut to fit.
void SetChannel(tavlo_log_frame_t& frame, std::string_view text);
// Clears what a frame's parse fills, so that nothing of an earlier frame
// shows through (data only as far as it was used).
void ClearFrame(tavlo_log_frame_t& frame);
// The data length of an FD DLC (0 to 15).
unsigned int FdLength(unsigned int dlc);

}  // namespace tavlo::logs
