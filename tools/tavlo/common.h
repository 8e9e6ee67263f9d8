// tools/tavlo/common.h: what the subcommands of the tavlo command share:
// exit statuses, the library's messages on standard error, reading a
// database file, the names other tools keep in attributes, and number and
// JSON text formatting. The command uses only the library's public interface.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <tavloms/tavloms.h>

namespace tavlo::tool {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// Identifiers as the database keeps them: bit 31 marks an extended one.
constexpr unsigned int kExtendedFlag = 0x80000000u;

using Arguments = std::vector<std::string>;

// The message box hook: the library's messages are collected while a file
// is worked on and printed by FlushMessages as "<file>: <text>", a message
// repeated on many lines once with its count.
int CollectMessage(const char* text, const char* caption, unsigned int style);
// The post hook: the library's change notifications are dropped, as they
// are on systems without windows. The command has no window and no other
// manager to tell; on Windows, writing a database would otherwise broadcast
// to every top-level window of the desktop, a side effect nobody asks of a
// command-line program (under Wine without a display, the broadcast even
// starts a desktop process that holds the command's standard handles for
// about a second after it ends).
void DropPost(HWND window, unsigned long threadId, unsigned int message, uintptr_t wParam,
              intptr_t lParam);
// Names the file the next messages belong to.
void SetMessageFile(const std::string& path);
// Prints the collected messages; how many lines it printed.
std::size_t FlushMessages();
// Drops the collected messages unprinted.
void DropMessages();

// How database files are loaded: tolerantly unless the command line asks
// for --strict (see tavlo_load).
void SetStrict(bool strict);
bool Strict();

// Statements a load kept, over texts of their own.
struct KeptStatements {
    std::vector<std::string> texts;
    std::vector<tavlo_kept_t> statements;  // pointing into texts
};

// Loads path into root; false when the load failed. Its diagnostics are
// shown as "<file>:<line>:<column>: <text>", each kind once with its count
// (every one with `listAll`). The caller frees root with TAVLO_FREE_ROOT
// either way. `kept` receives the kept statements; the warnings of
// statements kept for lack of support are then not shown, as the caller
// takes them. `repaired` is set when the load
// skipped or repaired a statement, which a strict load would have failed on.
bool Read(const std::string& path, tavlo_root_t& root, bool strict, bool listAll = false,
          KeptStatements* kept = nullptr, bool* repaired = nullptr);
inline bool Read(const std::string& path, tavlo_root_t& root) {
    return Read(path, root, Strict());
}

// Opens a database file in a manager; false (with the reason shown) when it
// does not load or cannot be opened. A file that loads only tolerantly is
// opened as it loaded (from a repaired copy).
bool OpenChecked(const std::string& path, TavloManager& manager, const char*& db);

template <class T>
unsigned int Length(const T* list) {
    unsigned int n = 0;
    for (; list != nullptr; list = list->next) {
        ++n;
    }
    return n;
}

// Names as other tools keep them when they are longer than 32 characters:
// in a string attribute of the object, else the record's own name.
std::string MessageName(const msgblk& message);
std::string SignalName(const sigblk& signal);

// "0x123" or "0x12345678 (extended)".
std::string Identifier(unsigned int id);

// The frame bit (byte * 8 + bit in byte) of the i-th bit of a signal,
// counted from its least significant bit; -1 before the frame.
int FrameBit(const sigblk& signal, unsigned int i);
// The data bytes a frame needs to carry the whole signal.
unsigned int BytesNeeded(const sigblk& signal);

// Writes a number with the 10 significant digits a database file's scaling
// supports: at most kNumberRoom characters at `at`; returns their end.
constexpr std::size_t kNumberRoom = 32;
char* PutNumber(char* at, double value);

// A signal's scaling in decimal: its factor is factor / 10^decimals and its
// offset offset / 10^decimals, as the database writes them, so that a raw
// value's physical value is (raw * factor + offset) / 10^decimals exactly,
// for every raw value of its signal. An integer one (factor
// 1, offset 0) is written exactly, whatever its number of digits.
struct DecimalScale {
    std::int64_t factor = 0;
    std::int64_t offset = 0;
    int decimals = 0;
    bool integer = false;
};
// The decimal scaling of a signal of `bits` bits, signed or not, whose raw
// values are at most 2^bits (signed 2^(bits - 1)) in magnitude; false when
// it has none that integers can carry.
bool MakeDecimalScale(double factor, double offset, unsigned int bits, bool isSigned,
                      DecimalScale& scale);
// As PutNumber(at, value) for the physical value of raw under scale (value
// is that physical value as the decoder computed it), or raw exactly for an
// integer scale: written from the exact decimal where that gives the same
// text, which is nearly always and several times quicker, else by
// PutNumber. Writes up to kNumberRoom + kOverRoom characters (more than it
// returns).
char* PutScaled(char* at, const DecimalScale& scale, std::int64_t raw, double value);
void AppendNumber(std::string& out, double value);
std::string Number(double value);

// Writes text as a JSON string, at most JsonRoom(text.size()) characters;
// returns their end.
constexpr std::size_t JsonRoom(std::size_t size) { return 2 + 6 * size; }
char* PutJsonText(char* at, std::string_view text);
void AppendJsonText(std::string& out, std::string_view text);
std::string JsonText(std::string_view text);

// Writes text; returns its end.
inline char* Put(char* at, std::string_view text) {
    std::memcpy(at, text.data(), text.size());
    return at + text.size();
}

// As Put, for the short texts of every frame (a time, a channel, an
// identifier): one of at most 32 characters is moved without a call, by two
// moves of a power of two that overlap, each inside the text's place.
template <typename Piece>
inline void PutOverlapping(char* at, const char* from, std::size_t n) {
    Piece first;
    Piece last;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, from + n - sizeof last, sizeof last);
    std::memcpy(at, &first, sizeof first);
    std::memcpy(at + n - sizeof last, &last, sizeof last);
}
struct Piece16 {
    char bytes[16];
};
inline char* PutShort(char* at, std::string_view text) {
    const char* from = text.data();
    const std::size_t n = text.size();
    if (n >= 16 && n <= 32) {
        PutOverlapping<Piece16>(at, from, n);
    } else if (n >= 8 && n < 16) {
        PutOverlapping<std::uint64_t>(at, from, n);
    } else if (n >= 4 && n < 8) {
        PutOverlapping<std::uint32_t>(at, from, n);
    } else if (n > 0 && n < 4) {
        at[0] = from[0];
        at[n / 2] = from[n / 2];
        at[n - 1] = from[n - 1];
    } else if (n > 32) {
        std::memcpy(at, from, n);
    }
    return at + n;
}

// Writes n characters from `from`, in 16-byte pieces: as many as 31 bytes
// past them are read and written too, so both places must have that room.
// Texts of a few words cost a few moves, and no branch on their length
// below 32.
inline char* PutOver(char* at, const char* from, std::size_t n) {
    char piece[32];
    std::memcpy(piece, from, sizeof piece);
    std::memcpy(at, piece, sizeof piece);
    if (n > sizeof piece) {
        std::memcpy(at + sizeof piece, from + sizeof piece, n - sizeof piece);
    }
    return at + n;
}
constexpr std::size_t kOverRoom = 32;

// Output that leaves in large blocks. Text is written by pointer: room for
// the longest text a piece can make is asked for first (the block is
// written out when it lacks it), so nothing is checked while writing.
class OutputBlock {
public:
    explicit OutputBlock(std::FILE* stream, std::size_t size = std::size_t{1} << 16)
        : stream_(stream), data_(size) {}
    OutputBlock(const OutputBlock&) = delete;
    OutputBlock& operator=(const OutputBlock&) = delete;

    // Where to write at most n characters, and kOverRoom more for PutOver.
    char* Room(std::size_t n) {
        n += kOverRoom;
        if (data_.size() - used_ < n) {
            Flush();
            if (data_.size() < n) {
                data_.resize(n);
            }
        }
        return data_.data() + used_;
    }
    // What was written ends at end.
    void Written(const char* end) { used_ = static_cast<std::size_t>(end - data_.data()); }
    // Writes out what the block holds; false when the stream failed.
    bool Flush() {
        const bool ok = std::fwrite(data_.data(), 1, used_, stream_) == used_;
        used_ = 0;
        return ok;
    }

private:
    std::FILE* stream_;
    std::vector<char> data_;
    std::size_t used_ = 0;
};

}  // namespace tavlo::tool
