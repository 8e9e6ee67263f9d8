/* tavloms/load.h: loading a database file with diagnostics, the statements
 * a read keeps, writing them back, and the full names of objects.
 *
 * tavlo_load reads a file into a database as TAVLO_READ does, but returns
 * its messages as diagnostics (1-based line and column, code, text) instead
 * of showing message boxes, and keeps the statements the reader skips (see
 * kept.h). Strict loading accepts exactly what TAVLO_READ accepts; tolerant
 * loading reports a faulty statement as a warning, skips it (or repairs it)
 * and goes on. The reader is not reentrant: loads, TAVLO_READ and managers'
 * reads from several threads are serialised by one lock. Compiles as C99. */
#ifndef TAVLOMS_LOAD_H
#define TAVLOMS_LOAD_H

#include <stddef.h>

#include "export.h"
#include "kept.h"
#include "lifecycle.h"
#include "records.h"

TAVLO_BEGIN_C

/* Modes of tavlo_load. */
#define TAVLO_LOAD_STRICT 0u
#define TAVLO_LOAD_TOLERANT 1u

/* Results of tavlo_load. */
#define TAVLO_LOAD_OK 0u        /* read; diagnostics are warnings only */
#define TAVLO_LOAD_FAILED 1u    /* strict: the read failed (one error diagnostic) */
#define TAVLO_LOAD_NOT_FOUND 2u /* the file cannot be read */

#define TAVLO_SEVERITY_ERROR 0u
#define TAVLO_SEVERITY_WARNING 1u

/* Codes of diagnostics only tolerant loading gives; every other code is the
 * reader's message number (19 duplicate definition, 20 unknown symbol, ...). */
#define TAVLO_DIAG_UNKNOWN_STATEMENT 100u /* an undeclared statement kind, kept */
#define TAVLO_DIAG_MISSING_SEMICOLON 101u /* a comment without ';', taken as ended */
#define TAVLO_DIAG_STRAY_SEMICOLON 102u   /* a ';' between the signals of a message */
#define TAVLO_DIAG_LATE_HEADER 103u       /* VERSION, NS_, BS_ or BU_ out of place */

/* One diagnostic; line and column count from 1 (0: not in the file). text is
 * the reader's message without its line, e.g. "!=Datenbasis: unbekanntes
 * Symbol neu definiert, EngineSpeed". */
typedef struct tavlo_diagnostic_t {
    unsigned int severity;
    unsigned int line;
    unsigned int column;
    unsigned int code;
    const char* text;
} tavlo_diagnostic_t;

/* What a load gives besides the database: its diagnostics and kept
 * statements. Opaque; released with tavlo_load_release. */
typedef struct tavlo_load_result_t tavlo_load_result_t;

/* Reads file into *root (a zero-filled root, or one whose lists the read
 * appends to, as TAVLO_READ) in the given mode. *result (when result is not
 * NULL) receives the diagnostics and kept statements, also on failure. The
 * database is the caller's either way: release it with TAVLO_FREE_ROOT.
 * Returns TAVLO_LOAD_OK, TAVLO_LOAD_FAILED or TAVLO_LOAD_NOT_FOUND. */
TAVLO_API unsigned int tavlo_load(const char* file, unsigned int mode, tavlo_root_t* root,
                                  tavlo_load_result_t** result);

/* The diagnostics and kept statements of a load, in file order; valid until
 * tavlo_load_release. count may be NULL. */
TAVLO_API const tavlo_diagnostic_t* tavlo_load_diagnostics(const tavlo_load_result_t* result,
                                                           size_t* count);
TAVLO_API const tavlo_kept_t* tavlo_load_kept(const tavlo_load_result_t* result, size_t* count);
TAVLO_API void tavlo_load_release(tavlo_load_result_t* result);

/* Writes root as TAVLO_WRITE does, then the kept statements; the "NS_" list
 * declares their symbols, so the file loads back to the same records and
 * kept statements. Returns 0, or 13 (TAVLO_FILE_NOT_WRITTEN). */
TAVLO_API unsigned int tavlo_write_kept(const char* file, const tavlo_root_t* root,
                                        const tavlo_kept_t* kept, size_t count);

/* The full name of a node, message, signal or environment variable
 * (objectType TAVLO_OBJ_NODE ... TAVLO_OBJ_ENVVAR, record its record): the
 * long name other tools keep in the attribute "SystemNodeLongSymbol",
 * "SystemMessageLongSymbol", "SystemSignalLongSymbol" or
 * "SystemEnvVarLongSymbol" when it has a non-empty one, else its name. The
 * text belongs to the record. NULL for another type or a NULL record. */
TAVLO_API const char* tavlo_full_name(unsigned int objectType, const void* record);

TAVLO_END_C

#ifdef __cplusplus
#include <string>
#include <vector>

class TavloManager;

/* The statements kept when a manager's database was read (dbName as the
 * manager handed it out); NULL and 0 for a database read from no file or a
 * name the manager does not know. Valid until the database is read again or
 * closed for good. */
TAVLO_API const tavlo_kept_t* TavloGetKeptStatements(const TavloManager& manager,
                                                     const char* dbName, size_t* count);

namespace tavlo {

/* The C++ face of tavlo_load: the database (released by the destructor) with
 * its diagnostics and kept statements. */
class Loaded {
public:
    Loaded() = default;
    Loaded(const char* file, unsigned int mode) : root_() {
        status_ = tavlo_load(file, mode, &root_, &result_);
    }
    ~Loaded() {
        tavlo_load_release(result_);
        TAVLO_FREE_ROOT(&root_);
    }
    Loaded(const Loaded&) = delete;
    Loaded& operator=(const Loaded&) = delete;

    unsigned int status() const { return status_; }
    bool ok() const { return status_ == TAVLO_LOAD_OK; }
    tavlo_root_t& root() { return root_; }
    std::vector<tavlo_diagnostic_t> diagnostics() const {
        size_t count = 0;
        const tavlo_diagnostic_t* first = tavlo_load_diagnostics(result_, &count);
        return std::vector<tavlo_diagnostic_t>(first, first + count);
    }
    std::vector<tavlo_kept_t> kept() const {
        size_t count = 0;
        const tavlo_kept_t* first = tavlo_load_kept(result_, &count);
        return std::vector<tavlo_kept_t>(first, first + count);
    }
    /* tavlo_write_kept of this database and its kept statements. */
    unsigned int Write(const char* file) const {
        size_t count = 0;
        const tavlo_kept_t* first = tavlo_load_kept(result_, &count);
        return tavlo_write_kept(file, &root_, first, count);
    }

private:
    tavlo_root_t root_{};
    tavlo_load_result_t* result_ = nullptr;
    unsigned int status_ = TAVLO_LOAD_NOT_FOUND;
};

inline std::string FullName(unsigned int objectType, const void* record) {
    const char* name = tavlo_full_name(objectType, record);
    return name != nullptr ? name : "";
}

}  // namespace tavlo
#endif

#endif /* TAVLOMS_LOAD_H */
