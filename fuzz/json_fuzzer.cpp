// libFuzzer target: imports arbitrary bytes through the JSON converter
// module's "Import" entry; convert/json/json_module.cpp is compiled into
// this program, under the same instrumentation as the library.
//
// A refused document is an expected outcome. A document the module accepts
// must keep the module's promises: the library's deep copy takes its lists
// (as an importer does), the database written with TAVLO_WRITE reads back
// with TAVLO_READ without an error, and the module's own export of it
// imports again. A broken promise aborts, saying which on the standard error
// the target had at its start (libFuzzer's -close_fd_mask=2 silences the
// module's complaints, not this). Everything is released after each input,
// so that the leak checker sees what was left.
//
// Most changes to the bytes of a document break its JSON, and few inputs
// would get past the parser to the module's own checks; so three mutations
// in four change one value of the parsed document instead (see
// MutateDocument), and the fourth is libFuzzer's own.
//
//     scripts/fuzz.sh [seconds]
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "scratch.h"
#include "tavloms/exception.h"
#include "tavloms/tavloms.h"

extern "C" int Import(const char* sourcePath, msgblk** messages, symblk** nodes,
                      env_var_blk** envvars, attr_def** attrDefs, attr** dbAttrs);
extern "C" int Export(const char* targetPath, msgblk* messages, symblk* nodes,
                      env_var_blk* envvars, attr_def* attrDefs, attr* dbAttrs);
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

struct Scratch {
    std::string input;     // the document
    std::string database;  // the database file written from it
    std::string exported;  // the module's export of it
    FILE* report = nullptr;
};

Scratch& Files() {
    static Scratch files;
    return files;
}

std::string& LastMessage() {
    static std::string text;
    return text;
}

int KeepMessage(const char* text, const char*, unsigned int) {
    LastMessage() = text != nullptr ? text : "";
    return 1;
}

void RemoveFiles() {
    for (const std::string* path : {&Files().input, &Files().database, &Files().exported}) {
        std::remove(path->c_str());
    }
}

[[noreturn]] void Broken(const char* what) {
    std::fprintf(Files().report, "json_fuzzer: the module accepted a document that %s%s%s\n",
                 what, LastMessage().empty() ? "" : ": ", LastMessage().c_str());
    std::fflush(Files().report);
    std::abort();
}

bool ImportFile(const std::string& path, tavlo_root_t& root) {
    return Import(path.c_str(), &root.messages, &root.nodes, &root.envvars, &root.attr_defs,
                  &root.db_attrs) == 1;
}

void CheckAccepted(const tavlo_root_t& imported) {
    tavlo_root_t copy{};
    if (TAVLO_COPY_DATABASE(&imported, &copy) != 1) {
        Broken("the library cannot copy");
    }
    TAVLO_FREE_ROOT(&copy);

    // The module's own lists hold all that the copy holds, and what the
    // tavlo command takes over from them besides (value types, further
    // transmitters, data lengths).
    const char* database = Files().database.c_str();
    if (TAVLO_WRITE(database, imported.nodes, imported.messages, imported.envvars, nullptr,
                    imported.attr_defs, imported.db_attrs, nullptr, filter_t{}, nullptr, nullptr,
                    nullptr, nullptr) != 0) {
        Broken("cannot be written");
    }
    tavlo_root_t back{};
    LastMessage().clear();
    unsigned int read = 1;
    try {
        read = TAVLO_READ(database, &back.nodes, &back.messages, &back.envvars, &back.bit_timings,
                          &back.attr_defs, &back.db_attrs, &back.categories, &back.filter,
                          &back.comment, &back.version, &back.sig_types, &back.value_tables);
    } catch (const TavloException&) {
        // Reported below, with the reader's message.
    }
    TAVLO_FREE_ROOT(&back);
    if (read != 0) {
        Broken("does not read back from a database file");
    }

    const std::string& exported = Files().exported;
    if (Export(exported.c_str(), imported.messages, imported.nodes, imported.envvars,
               imported.attr_defs, imported.db_attrs) != 1) {
        Broken("cannot be exported");
    }
    tavlo_root_t again{};
    const bool imports = ImportFile(exported, again);
    TAVLO_FREE_ROOT(&again);
    if (!imports) {
        Broken("is exported as a document the import refuses");
    }
}

// ---- Mutation --------------------------------------------------------------------

using Json = nlohmann::ordered_json;

// Values that the module's checks tell apart.
const char* const kTellingValues[] = {
    R"("")", R"("a b")", R"("BO_")", R"("Corvan__XXX")", R"("x\"y")", R"("x\\")",
    R"("inf")", R"("nan")", "null", "true", "[]", "{}", "-1", "0", "0.5", "3", "4", "9", "16",
    "256", "65536", "4294967296", "1e308"};

// Every value of the document, the document first.
std::vector<Json*> AllValues(Json& doc) {
    std::vector<Json*> values{&doc};
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i]->is_structured()) {
            for (Json& child : *values[i]) {
                values.push_back(&child);
            }
        }
    }
    return values;
}

// One change to one value: a telling value put in, another value of the
// document copied over it (names twice, references to what is not there,
// values of the wrong kind), an array entry doubled or dropped, or the bytes
// of a text changed.
void MutateDocument(Json& doc, std::minstd_rand& random) {
    const std::vector<Json*> values = AllValues(doc);
    Json& target = *values[random() % values.size()];
    switch (random() % 4) {
    case 0:
        target = Json::parse(kTellingValues[random() % std::size(kTellingValues)]);
        break;
    case 1: {
        Json copy = *values[random() % values.size()];
        target = std::move(copy);
        break;
    }
    case 2:
        if (target.is_array() && !target.empty()) {
            Json copy = target[random() % target.size()];
            target.push_back(std::move(copy));
        }
        break;
    default:
        if (target.is_array() && !target.empty()) {
            target.erase(random() % target.size());
        } else if (target.is_string()) {
            std::string text = target.get<std::string>();
            const std::size_t size = text.size();
            text.resize(size + 8);
            text.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(text.data()), size,
                                         text.size()));
            target = std::move(text);
        }
        break;
    }
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned int seed) {
    std::minstd_rand random(seed);
    if (random() % 4 != 0) {
        // Values nested deeper than the module reads are dropped; the
        // document is then shallow enough for dump's recursion.
        Json doc = Json::parse(
            data, data + size,
            [](int depth, Json::parse_event_t, Json&) { return depth <= 64; }, false);
        if (!doc.is_discarded()) {
            MutateDocument(doc, random);
            const std::string text = doc.dump(-1, ' ', false, Json::error_handler_t::replace);
            if (text.size() <= maxSize) {
                std::memcpy(data, text.data(), text.size());
                return text.size();
            }
        }
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const std::string base = ScratchPath("json_fuzzer");
    Files().input = base + ".json";
    Files().database = base + ".dbc";
    Files().exported = base + "_exported.json";
    Files().report = fdopen(dup(STDERR_FILENO), "w");
    if (Files().report == nullptr) {
        Files().report = stderr;
    }
    std::atexit(RemoveFiles);
    TAVLO_SET_MESSAGEBOX_HOOK(KeepMessage);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    WriteInput(Files().input, data, size);
    tavlo_root_t imported{};
    if (ImportFile(Files().input, imported)) {
        CheckAccepted(imported);
    }
    TAVLO_FREE_ROOT(&imported);  // empty when refused
    // Removed after every input: a leak report ends the process without
    // running exit handlers.
    RemoveFiles();
    return 0;
}
