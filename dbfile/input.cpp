// dbfile/input.cpp: the module-wide input of the reader.
#include "dbfile/input.h"

#include <cstdio>
#include <string>

namespace tavlo::dbfile {

namespace {

std::string gBytes;
bool gOpen = false;

}  // namespace

bool OpenInput(const char* path) {
    CloseInput();
    if (path == nullptr) {
        return false;
    }
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr) {
        return false;
    }
    std::string bytes;
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
    std::string().swap(gBytes);
    gOpen = false;
}

}  // namespace tavlo::dbfile
