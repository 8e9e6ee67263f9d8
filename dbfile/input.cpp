// dbfile/input.cpp: the module-wide input of the reader.
#include "dbfile/input.h"

#include <cstdio>
#include <string>

namespace tavlo::dbfile {

namespace {

std::string gBytes;
bool gOpen = false;
bool gHeld = false;
bool gCarriageReturns = false;

// The file is text: as a text-mode read on Windows does, a carriage return
// directly before a line feed is dropped, so line ends read the same from
// files written on either platform (comments keep no stray returns).
bool DropCarriageReturns(std::string& bytes) {
    std::size_t from = bytes.find('\r');
    if (from == std::string::npos) {
        return false;
    }
    std::size_t to = from;
    for (; from < bytes.size(); ++from) {
        const char c = bytes[from];
        if (c == '\r' && from + 1 < bytes.size() && bytes[from + 1] == '\n') {
            continue;
        }
        bytes[to++] = c;
    }
    const bool dropped = to != bytes.size();
    bytes.resize(to);
    return dropped;
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
    // one buffer of that size; a file that grows meanwhile is read on. What
    // is not a file (a directory opens on some systems) tells a size no
    // buffer could hold, and then fails to read.
    std::string bytes;
    if (std::fseek(file, 0, SEEK_END) == 0) {
        const long size = std::ftell(file);
        if (size > 0 && static_cast<unsigned long>(size) < bytes.max_size() / 2) {
            bytes.resize(static_cast<std::size_t>(size));
        }
        std::rewind(file);
    }
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    char chunk[1 << 16];
    std::size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        bytes.append(chunk, got);
    }
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        return false;
    }
    gCarriageReturns = DropCarriageReturns(bytes);
    gBytes.swap(bytes);
    gOpen = true;
    return true;
}

bool IsInputOpen() {
    return gOpen;
}

const unsigned char* InputData() {
    return gOpen ? reinterpret_cast<const unsigned char*>(gBytes.data()) : nullptr;
}

std::size_t InputSize() {
    return gOpen ? gBytes.size() : 0;
}

void CloseInput() {
    if (gHeld) {
        return;
    }
    std::string().swap(gBytes);
    gOpen = false;
}

void HoldInput(bool hold) {
    gHeld = hold;
}

bool InputHadCarriageReturns() {
    return gOpen && gCarriageReturns;
}

}  // namespace tavlo::dbfile
