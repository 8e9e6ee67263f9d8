// decoder/load.cpp: the loading entry (tavlo_load) and the write that gives
// kept statements back, over the reader's sessions (dbfile/session.h).
#include <string>
#include <vector>

#include "dbfile/report.h"
#include "dbfile/session.h"
#include "dbfile/writer.h"
#include "tavloms/load.h"

struct tavlo_load_result_t {
    std::vector<std::string> texts;  // owns what the two views point to
    std::vector<tavlo_diagnostic_t> diagnostics;
    std::vector<tavlo_kept_t> kept;
};

namespace {

using tavlo::dbfile::ReadSession;

tavlo_load_result_t* ResultOf(ReadSession& session) {
    auto* result = new tavlo_load_result_t;
    auto& diagnostics = session.diagnostics();
    auto& kept = session.kept();
    result->texts.reserve(diagnostics.size() + kept.size());
    for (auto& diagnostic : diagnostics) {
        result->texts.push_back(std::move(diagnostic.text));
        result->diagnostics.push_back(tavlo_diagnostic_t{
            diagnostic.error ? TAVLO_SEVERITY_ERROR : TAVLO_SEVERITY_WARNING, diagnostic.line,
            diagnostic.column, diagnostic.code, result->texts.back().c_str()});
    }
    for (auto& statement : kept) {
        result->texts.push_back(std::move(statement.text));
        result->kept.push_back(tavlo_kept_t{result->texts.back().c_str(), statement.line});
    }
    return result;
}

}  // namespace

extern "C" {

unsigned int tavlo_load(const char* file, unsigned int mode, tavlo_root_t* root,
                        tavlo_load_result_t** result) {
    using namespace tavlo::dbfile;
    if (result != nullptr) {
        *result = nullptr;
    }
    if (root == nullptr) {
        return TAVLO_LOAD_NOT_FOUND;
    }
    ReadSession session(mode == TAVLO_LOAD_TOLERANT, true);
    if (file == nullptr) {
        session.Add(true, kMsgNotFound, nullptr);
    }
    const unsigned int read =
        file == nullptr
            ? kMsgNotFound
            : ReadWith(file,
                       Lists{&root->nodes, &root->messages, &root->envvars, &root->bit_timings,
                             &root->attr_defs, &root->db_attrs, &root->categories, &root->filter,
                             &root->comment, &root->version, &root->sig_types,
                             &root->value_tables},
                       &session);
    bool notFound = read == kMsgNotFound;
    for (const Diagnostic& diagnostic : session.diagnostics()) {
        notFound = notFound || diagnostic.code == kMsgNotFound;
    }
    if (result != nullptr) {
        *result = ResultOf(session);
    }
    return notFound ? TAVLO_LOAD_NOT_FOUND : read == 0 ? TAVLO_LOAD_OK : TAVLO_LOAD_FAILED;
}

const tavlo_diagnostic_t* tavlo_load_diagnostics(const tavlo_load_result_t* result,
                                                 size_t* count) {
    if (count != nullptr) {
        *count = result != nullptr ? result->diagnostics.size() : 0;
    }
    return result != nullptr ? result->diagnostics.data() : nullptr;
}

const tavlo_kept_t* tavlo_load_kept(const tavlo_load_result_t* result, size_t* count) {
    if (count != nullptr) {
        *count = result != nullptr ? result->kept.size() : 0;
    }
    return result != nullptr ? result->kept.data() : nullptr;
}

void tavlo_load_release(tavlo_load_result_t* result) {
    delete result;
}

unsigned int tavlo_write_kept(const char* file, const tavlo_root_t* root,
                              const tavlo_kept_t* kept, size_t count) {
    if (root == nullptr || (kept == nullptr && count != 0)) {
        return tavlo::dbfile::kMsgCouldNotWrite;
    }
    return tavlo::dbfile::WriteWithKept(file, *root, kept, count);
}

}  // extern "C"
