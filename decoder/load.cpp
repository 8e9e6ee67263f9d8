// decoder/load.cpp: the loading entry (tavlo_load) and the write that gives
// kept statements back, over the reader's sessions (dbfile/session.h).
#include <string>
#include <vector>

#include "dbfile/report.h"
#include "dbfile/session.h"
#include "dbfile/writer.h"
#include "tavloms/load.h"

struct tavlo_load_result_t {
    std::vector<std::string> texts;  // of the diagnostics
    std::vector<tavlo_diagnostic_t> diagnostics;
    tavlo::dbfile::KeptStatements kept;
};

namespace {

using tavlo::dbfile::ReadSession;

tavlo_load_result_t* ResultOf(ReadSession& session) {
    auto* result = new tavlo_load_result_t;
    auto& diagnostics = session.diagnostics();
    result->texts.reserve(diagnostics.size());
    for (auto& diagnostic : diagnostics) {
        result->texts.push_back(std::move(diagnostic.text));
        result->diagnostics.push_back(tavlo_diagnostic_t{
            diagnostic.error ? TAVLO_SEVERITY_ERROR : TAVLO_SEVERITY_WARNING, diagnostic.line,
            diagnostic.column, diagnostic.code, result->texts.back().c_str()});
    }
    result->kept = tavlo::dbfile::KeptStatements(session.kept());
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
        *count = result != nullptr ? result->kept.statements.size() : 0;
    }
    return result != nullptr ? result->kept.statements.data() : nullptr;
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
