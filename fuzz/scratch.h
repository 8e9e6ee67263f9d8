// fuzz/scratch.h: the files a fuzz target passes each input through, kept in
// /dev/shm when there is one (no disk write per input), else in TMPDIR or
// /tmp, and named after the target and the process.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

inline std::string ScratchPath(const std::string& name) {
    std::string directory = "/dev/shm";
    if (access(directory.c_str(), W_OK) != 0) {
        const char* tmp = std::getenv("TMPDIR");
        directory = tmp && *tmp ? tmp : "/tmp";
    }
    return directory + "/tavloms_" + name + "_" + std::to_string(getpid());
}

// Writes the input to path; a file that cannot be written ends the run.
inline void WriteInput(const std::string& path, const uint8_t* data, size_t size) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) std::abort();
    if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
    if (std::fclose(file) != 0) std::abort();
}
