/* tavloms/dbfile.h: reading and writing database files (".DBC").
 *
 * TAVLO_READ fills the twelve items of a database root from a file;
 * TAVLO_WRITE writes them back in the file's canonical line forms and
 * section order. Both take the items in the root order of records.h.
 * Reading and writing are not reentrant: one at a time in a process.
 * Compiles as C99. */
#ifndef TAVLOMS_DBFILE_H
#define TAVLOMS_DBFILE_H

#include "records.h"

TAVLO_BEGIN_C

/* What TAVLO_READ and TAVLO_WRITE return: numbers of the module's messages. */
enum {
    TAVLO_FILE_OK = 0,
    TAVLO_FILE_NOT_WRITTEN = 13,  /* "database: could not write" */
    TAVLO_FILE_STOPPED = 15,      /* "database: formaterror": a warning ended the read */
    TAVLO_FILE_NOT_FOUND = 16     /* "database: not found" */
};

/* Reads `file` into the lists and strings the arguments point to. A null
 * *version is first replaced by a new empty string. Returns TAVLO_FILE_OK when
 * the file was read (or `file` is null: then nothing is read),
 * TAVLO_FILE_NOT_FOUND when it cannot be read as a file, TAVLO_FILE_STOPPED
 * when the read ended at one of the two warnings that stop it
 * (unknown variable in "ENVVAR_DATA_", unknown attribute in
 * "BA_DEF_SGTYPE_"). Every error is shown through the message box hook with
 * its line; from C++ it then throws TavloException (exception.h), and the
 * lists keep what had been linked in before the error. */
TAVLO_API unsigned int TAVLO_READ(const char* file, symblk** nodes, msgblk** messages,
                                  env_var_blk** envvars, btlblk** bitTimings,
                                  attr_def** attrDefs, attr** dbAttrs, cat** categories,
                                  filter_t* filter, char** comment, char** version,
                                  sigtype** sigTypes, valtable** valueTables);

/* Writes the database to `file`, replacing it. Returns TAVLO_FILE_OK, or
 * TAVLO_FILE_NOT_WRITTEN when the file cannot be opened for writing (no
 * message is shown). A null comment or
 * version is written as empty. */
TAVLO_API unsigned int TAVLO_WRITE(const char* file, symblk* nodes, msgblk* messages,
                                   env_var_blk* envvars, btlblk* bitTimings,
                                   attr_def* attrDefs, attr* dbAttrs, cat* categories,
                                   filter_t filter, char* comment, char* version,
                                   sigtype* sigTypes, valtable* valueTables);

TAVLO_END_C

#endif /* TAVLOMS_DBFILE_H */
