// libFuzzer target: reads arbitrary bytes as a database file.
//
// Each input is written to the one scratch file of the process (scratch.h)
// and read with TAVLO_READ into twelve empty items. A failed read
// (TavloException) is an expected outcome; whatever was read, in full or in
// part, is then released with TAVLO_FREE, so that the leak checker sees
// every record the reader left unreleased. The same input is then loaded
// tolerantly (tavlo_load), which goes on past every fault: it must neither
// crash nor leak what it skipped. Message boxes are answered silently.
//
//     scripts/fuzz.sh [seconds]
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "scratch.h"
#include "tavloms/exception.h"
#include "tavloms/tavloms.h"

namespace {

std::string& InputPath() {
    static std::string path;
    return path;
}

int AnswerOk(const char*, const char*, unsigned int) { return 1; }

void RemoveInput() { std::remove(InputPath().c_str()); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    InputPath() = ScratchPath("read_fuzzer") + ".dbc";
    std::atexit(RemoveInput);
    TAVLO_SET_MESSAGEBOX_HOOK(AnswerOk);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    WriteInput(InputPath(), data, size);

    symblk* nodes = nullptr;
    msgblk* messages = nullptr;
    env_var_blk* envvars = nullptr;
    btlblk* bitTimings = nullptr;
    attr_def* attrDefs = nullptr;
    attr* dbAttrs = nullptr;
    cat* categories = nullptr;
    filter_t filter;
    std::memset(&filter, 0, sizeof filter);
    char* comment = nullptr;
    char* version = nullptr;
    sigtype* sigTypes = nullptr;
    valtable* valueTables = nullptr;
    try {
        TAVLO_READ(InputPath().c_str(), &nodes, &messages, &envvars, &bitTimings, &attrDefs,
                   &dbAttrs, &categories, &filter, &comment, &version, &sigTypes, &valueTables);
    } catch (const TavloException&) {
        // A file the reader refuses: what it had linked in is released below.
    }
    TAVLO_FREE(nodes, messages, envvars, bitTimings, attrDefs, dbAttrs, categories, filter,
               comment, version, sigTypes, valueTables);
    tavlo_root_t root;
    std::memset(&root, 0, sizeof root);
    tavlo_load_result_t* result = nullptr;
    tavlo_load(InputPath().c_str(), TAVLO_LOAD_TOLERANT, &root, &result);
    tavlo_load_release(result);
    TAVLO_FREE_ROOT(&root);
    // Removed after every input: a leak report ends the process without
    // running exit handlers.
    RemoveInput();
    return 0;
}
