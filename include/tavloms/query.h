/* tavloms/query.h: finding records in the lists of a database.
 *
 * Finders take list heads or records directly (no database handle), never
 * allocate, never lock and report nothing but the assertions named below.
 * Name comparisons are exact and case-sensitive over the whole name; every
 * search walks from the head and stops at the first match, so of two records
 * with the same key the one nearer the head wins. Results point into the
 * lists and stay owned by them. A null list or object finds nothing.
 * Compiles as C99. */
#ifndef TAVLOMS_QUERY_H
#define TAVLOMS_QUERY_H

#include "records.h"

TAVLO_BEGIN_C

/* ---- Finders: the record, or null when there is none ------------------- */

TAVLO_API msgblk* TAVLO_GET_MESSAGE(msgblk* messages, unsigned int id);
TAVLO_API msgblk* TAVLO_GET_MESSAGE_NAME(msgblk* messages, const char* name);
TAVLO_API symblk* TAVLO_GET_SYMBOL_NAME(symblk* nodes, const char* name);
TAVLO_API env_var_blk* TAVLO_GET_EVBLK_NAME(env_var_blk* envvars, const char* name);
TAVLO_API env_var_blk* TAVLO_GET_EVBLK_H(env_var_blk* envvars, unsigned int id);
TAVLO_API btlblk* TAVLO_GET_BTLBLK(btlblk* bitTimings, unsigned short baudrate);
/* Categories are numbered with signed 16 bits: a number above 32767 never
 * matches. */
TAVLO_API cat* TAVLO_GET_CATEGORY(cat* categories, int number);
TAVLO_API attr_def* TAVLO_GET_ATTR_DEF_NAME(attr_def* attrDefs, const char* name);
TAVLO_API sigtype* TAVLO_GET_SIGTYPE_NAME(sigtype* sigTypes, const char* name);
TAVLO_API valtable* TAVLO_GET_VALTABLE_NAME(valtable* valueTables, const char* name);

/* The message's first signal with the mode signal flag, or null (also when no
 * message has the identifier). */
TAVLO_API sigblk* TAVLO_GET_MODE_SIGNAL(msgblk* messages, unsigned int id);
/* The signal of that name in the message with that identifier. */
TAVLO_API sigblk* TAVLO_GET_SIGNAL(msgblk* messages, unsigned int id, const char* name);
TAVLO_API sigblk* TAVLO_GET_SIGNAL_OF_MSG_NAME(msgblk* message, const char* name);

/* The value_type of the definition of that name, or all bits set. */
TAVLO_API unsigned int TAVLO_GET_ATTRTYPE(attr_def* attrDefs, const char* name);

/* ---- Positional finders: the n-th record (first = 1), or null when the
 * list is shorter. n must be at least 1 (assertion "n > 0"). */

TAVLO_API msgblk* TAVLO_GET_MESSAGE_N(msgblk* messages, int n);
TAVLO_API symblk* TAVLO_GET_SYMBOL_N(symblk* nodes, int n);
TAVLO_API env_var_blk* TAVLO_GET_EVBLK_N(env_var_blk* envvars, int n);
/* The message must not be null (assertion "msg != NULL"). */
TAVLO_API sigblk* TAVLO_GET_SIGNAL_OF_MSG_N(msgblk* msg, int n);
/* Always null: it walks the signals of the message with that identifier
 * without ever comparing the count with n. Kept as it is; use
 * TAVLO_GET_SIGNAL_OF_MSG_N for the n-th signal. */
TAVLO_API sigblk* TAVLO_GET_SIGNAL_N(msgblk* messages, unsigned int id, int n);

/* ---- Attribute questions ------------------------------------------------
 * The "defined" questions return 1 or 0. The value getters copy the 8-byte
 * value (an f64, or a string pointer still owned by the database; see
 * tavlo_attr_value_t) into an 8-byte buffer and return the buffer; when
 * nothing is found the buffer gets eight zero bytes, never the default. */

/* 1 if the first definition of that name is for exactly that object type. */
TAVLO_API int TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(attr_def* attrDefs, tavlo_obj_t objectType,
                                                  const char* name);
/* 1 if some value of the list belongs to a definition of that name. */
TAVLO_API int TAVLO_IS_ATTRIBUTE_DEFINED(attr* values, const char* name);
TAVLO_API int TAVLO_IS_DB_ATTRIBUTE_DEFINED(attr* dbAttrs, const char* name);
TAVLO_API int TAVLO_IS_SYM_ATTRIBUTE_DEFINED(symblk* node, const char* name);
TAVLO_API int TAVLO_IS_MSG_ATTRIBUTE_DEFINED(msgblk* message, const char* name);
TAVLO_API int TAVLO_IS_SIG_ATTRIBUTE_DEFINED(sigblk* signal, const char* name);
TAVLO_API int TAVLO_IS_EV_ATTRIBUTE_DEFINED(env_var_blk* envvar, const char* name);

TAVLO_API void* TAVLO_GET_ATTRVAL(void* buffer, attr* values, const char* name);
TAVLO_API void* TAVLO_GET_DB_ATTRVAL(void* buffer, attr* dbAttrs, const char* name);
TAVLO_API void* TAVLO_GET_SYM_ATTRVAL(void* buffer, symblk* node, const char* name);
TAVLO_API void* TAVLO_GET_MSG_ATTRVAL(void* buffer, msgblk* message, const char* name);
TAVLO_API void* TAVLO_GET_SIG_ATTRVAL(void* buffer, sigblk* signal, const char* name);
TAVLO_API void* TAVLO_GET_EV_ATTRVAL(void* buffer, env_var_blk* envvar, const char* name);
/* The default_value of the definition of that name. */
TAVLO_API void* TAVLO_GET_ATTRDEFAULT(void* buffer, attr_def* attrDefs, const char* name);

/* ---- Signals and environment variables ---------------------------------- */

TAVLO_API double TAVLO_GET_SIG_OFFSET(sigblk* signal);
TAVLO_API double TAVLO_GET_SIG_FACTOR(sigblk* signal);
/* The text of the first value description of that raw value, or null. */
TAVLO_API char* TAVLO_GET_SIG_ENUMSYMBOL(sigblk* signal, int value);
/* The value of the first value description with that text, or 0 when none
 * (which cannot be told from a description of the value 0). */
TAVLO_API int TAVLO_GET_SIG_ENUMVALUE(sigblk* signal, const char* text);
TAVLO_API char* TAVLO_GET_EV_ENUMSYMBOL(env_var_blk* envvar, int value);
TAVLO_API int TAVLO_GET_EV_ENUMVALUE(env_var_blk* envvar, const char* text);

/* Copies at most size - 1 characters of the file comment into the buffer and
 * returns the length of the buffer's text; a null comment gives an empty
 * buffer and 0. A comment of size - 1 characters or more is copied without a
 * terminating zero, so the caller hands in a buffer whose last byte is zero. */
TAVLO_API int TAVLO_GET_FILE_COMMENT(const char* comment, char* buffer, int size);

TAVLO_END_C

#endif /* TAVLOMS_QUERY_H */
