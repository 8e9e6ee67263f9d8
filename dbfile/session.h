// dbfile/session.h: what a read gives besides its records, for the readers
// beside TAVLO_READ (the loading entry, the manager): the statements it kept
// as text, its messages as diagnostics instead of message boxes, and, when
// asked, tolerance: a faulty statement is skipped and the read goes on.
// TAVLO_READ reads without a session and behaves as it always has.
#ifndef TAVLOMS_DBFILE_SESSION_H
#define TAVLOMS_DBFILE_SESSION_H

#include <mutex>
#include <string>
#include <vector>

#include "tavloms/kept.h"
#include "tavloms/records.h"

namespace tavlo::dbfile {

// The items of the database being read.
struct Lists {
    symblk** nodes;
    msgblk** messages;
    env_var_blk** envvars;
    btlblk** bitTimings;
    attr_def** attrDefs;
    attr** dbAttrs;
    cat** categories;
    filter_t* filter;
    char** comment;
    char** version;
    sigtype** sigTypes;
    valtable** valueTables;
};

// A statement kept as it was written; line counted from 1.
struct KeptText {
    std::string text;
    unsigned int line;
};

// Kept statements as clients see them, over the texts they own (taken from
// a session's KeptText, which is left empty).
struct KeptStatements {
    std::vector<std::string> texts;
    std::vector<tavlo_kept_t> statements;  // pointing into texts

    KeptStatements() = default;
    explicit KeptStatements(std::vector<KeptText>& kept) {
        texts.reserve(kept.size());  // no reallocation moves a text pointed to
        for (KeptText& statement : kept) {
            texts.push_back(std::move(statement.text));
            statements.push_back(tavlo_kept_t{texts.back().c_str(), statement.line});
        }
        kept.clear();
    }
};

// A message of a read: line and column count from 1 (0: no place in the
// file); code is the reader's message code (report.h) or a kDiag* code.
struct Diagnostic {
    bool error;
    unsigned int line;
    unsigned int column;
    unsigned int code;
    std::string text;
};

// Codes of the diagnostics only a tolerant read gives; above the reader's
// message codes.
enum DiagnosticCode : unsigned int {
    kDiagUnknownStatement = 100,  // a statement of an undeclared symbol, kept
    kDiagMissingSemicolon = 101,  // a comment without its ';', taken as ended
    kDiagStraySemicolon = 102,    // a ';' between the signals of a message
    kDiagLateHeader = 103,        // VERSION, NS_, BS_ or BU_ after other statements
};

class ReadSession {
public:
    explicit ReadSession(bool tolerant, bool capture) : tolerant_(tolerant), capture_(capture) {}

    bool tolerant() const { return tolerant_; }
    bool capture() const { return capture_; }
    std::vector<KeptText>& kept() { return kept_; }
    std::vector<Diagnostic>& diagnostics() { return diagnostics_; }

    // The place later messages are given at: a statement's first token
    // (`at` into the input, `line` counted from 0).
    void SetPlace(const unsigned char* at, int line) {
        place_ = at;
        placeLine_ = line;
    }
    // Keeps the input's bytes [from, to) as a statement of the given line
    // (counted from 0).
    void Keep(const unsigned char* from, const unsigned char* to, int line);
    // A message of the reader (report.cpp) or of tolerance, at the place.
    void Add(bool error, unsigned int code, const char* context);
    // While quiet, messages are dropped (skipping the rest of a statement
    // that has been reported already).
    void SetQuiet(bool quiet) { quiet_ = quiet; }

private:
    bool tolerant_;
    bool capture_;
    bool quiet_ = false;
    const unsigned char* place_ = nullptr;
    int placeLine_ = -1;
    std::vector<KeptText> kept_;
    std::vector<Diagnostic> diagnostics_;
};

// The session of the read under way; null outside one and in TAVLO_READ.
ReadSession* CurrentSession();

// Reads `file` into `lists` as TAVLO_READ does (which is this with a null
// session), returning its result. With a session the input stays open until
// the read ends (messages point into it) and a read error is returned as
// kMsgFormatError instead of thrown. The reader keeps its input,
// scanner and new symbols module-wide, so it is not reentrant: every read
// holds ReadMutex() throughout.
unsigned int ReadWith(const char* file, const Lists& lists, ReadSession* session);
std::mutex& ReadMutex();

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_SESSION_H
