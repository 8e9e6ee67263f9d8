// dbfile/input.cpp: the module-wide input of the reader.
#include "dbfile/input.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "platform/platform.h"

namespace tavlo::dbfile {

namespace {

// The file's bytes and kInputPadding zeros after them, in a block of the
// system's (see DiscardInputBefore); a string would first fill the whole
// size with zeros.
struct Bytes {
    char* data = nullptr;
    std::size_t capacity = 0;  // the block holds capacity + kInputPadding bytes

    Bytes() = default;
    // Written in full right away: its pages are taken at once.
    explicit Bytes(std::size_t size)
        : data(static_cast<char*>(
              platform::AllocateAligned(size + kInputPadding, kAlignment))),
          capacity(data != nullptr ? size : 0) {
        if (data != nullptr) {
            platform::PreferLargePages(data, data + size + kInputPadding);
            platform::PopulatePages(data, data + size + kInputPadding);
        }
    }
    ~Bytes() {
        if (data != nullptr) {
            platform::FreeAligned(data, capacity + kInputPadding);
        }
    }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    void Swap(Bytes& other) {
        std::swap(data, other.data);
        std::swap(capacity, other.capacity);
    }

    static constexpr std::size_t kAlignment = 4096;
};

Bytes gBytes;
std::size_t gSize = 0;
const unsigned char* gDiscarded = nullptr;  // the input before it has been given back
bool gOpen = false;
bool gHeld = false;
bool gCarriageReturns = false;

// The least step of giving input back, and how far back a line's start is
// looked for.
constexpr std::size_t kDiscardStep = std::size_t{1} << 18;
constexpr std::size_t kLongestLineBack = std::size_t{1} << 16;

// The file is text: as a text-mode read on Windows does, a carriage return
// directly before a line feed is dropped, so line ends read the same from
// files written on either platform (comments keep no stray returns).
// Returns the new size.
std::size_t DropCarriageReturns(char* bytes, std::size_t size) {
    const void* first = std::memchr(bytes, '\r', size);
    if (first == nullptr) {
        return size;
    }
    std::size_t from = static_cast<std::size_t>(static_cast<const char*>(first) - bytes);
    std::size_t to = from;
    for (; from < size; ++from) {
        const char c = bytes[from];
        if (c == '\r' && from + 1 < size && bytes[from + 1] == '\n') {
            continue;
        }
        bytes[to++] = c;
    }
    return to;
}

}  // namespace

bool OpenInput(const char* path) {
    const bool held = gHeld;
    gHeld = false;
    CloseInput();
    gHeld = held;
    if (path == nullptr) {
        return false;
    }
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr) {
        return false;
    }
    // The file's size is known up front, so the bytes are read straight into
    // one buffer of that size; a file that grows meanwhile is read on, the
    // buffer doubled as needed. What is not a file (a directory opens on
    // some systems) tells a size no buffer could hold, and then fails to
    // read.
    std::size_t capacity = 0;
    if (std::fseek(file, 0, SEEK_END) == 0) {
        const long size = std::ftell(file);
        if (size > 0 && static_cast<unsigned long>(size) < static_cast<std::size_t>(-1) / 4) {
            capacity = static_cast<std::size_t>(size);
        }
        std::rewind(file);
    }
    Bytes bytes(capacity);
    std::size_t size = bytes.data != nullptr ? std::fread(bytes.data, 1, capacity, file) : 0;
    int next = 0;
    while (bytes.data != nullptr && size == capacity && (next = std::fgetc(file)) != EOF) {
        capacity = capacity < (1u << 16) ? (1u << 16) : capacity * 2;
        Bytes larger(capacity);
        if (larger.data != nullptr) {
            std::memcpy(larger.data, bytes.data, size);
            larger.data[size++] = static_cast<char>(next);
            size += std::fread(larger.data + size, 1, capacity - size, file);
        }
        bytes.Swap(larger);
    }
    const bool failed = bytes.data == nullptr || std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        return false;
    }
    const std::size_t kept = DropCarriageReturns(bytes.data, size);
    gCarriageReturns = kept != size;
    std::memset(bytes.data + kept, 0, size - kept + kInputPadding);
    gBytes.Swap(bytes);
    gSize = kept;
    gDiscarded = reinterpret_cast<const unsigned char*>(gBytes.data);
    gOpen = true;
    return true;
}

void DiscardInputBefore(const unsigned char* position) {
    if (!gOpen || position == nullptr || position < gDiscarded ||
        static_cast<std::size_t>(position - gDiscarded) < kDiscardStep + kLongestLineBack ||
        position > InputData() + gSize) {
        return;
    }
    const unsigned char* lineStart = position;
    const unsigned char* const limit = position - kLongestLineBack;
    while (lineStart > limit && lineStart[-1] != '\n') {
        --lineStart;
    }
    if (lineStart == limit) {
        return;  // a very long line: kept until a later statement
    }
    platform::DiscardPages(const_cast<unsigned char*>(gDiscarded),
                           const_cast<unsigned char*>(lineStart));
    gDiscarded = lineStart;
}

bool IsInputOpen() {
    return gOpen;
}

const unsigned char* InputData() {
    return gOpen ? reinterpret_cast<const unsigned char*>(gBytes.data) : nullptr;
}

std::size_t InputSize() {
    return gOpen ? gSize : 0;
}

void CloseInput() {
    if (gHeld) {
        return;
    }
    Bytes none;
    gBytes.Swap(none);
    gSize = 0;
    gDiscarded = nullptr;
    gOpen = false;
}

void HoldInput(bool hold) {
    gHeld = hold;
}

bool InputHadCarriageReturns() {
    return gOpen && gCarriageReturns;
}

}  // namespace tavlo::dbfile
