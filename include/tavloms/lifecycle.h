/* tavloms/lifecycle.h: how records come into being, are linked into lists,
 * are unlinked and are released.
 *
 * These flat functions are the only way to make and free records, so that a
 * client module never frees with an allocator other than the library's.
 * Caller errors (a position past the end of a list, a null argument that must
 * not be null) are assertions: the condition, the module and the line are
 * written to standard error and the program stops. Compiles as C99. */
#ifndef TAVLOMS_LIFECYCLE_H
#define TAVLOMS_LIFECYCLE_H

#include <stddef.h>

#include "records.h"

TAVLO_BEGIN_C

/* ---- Memory ------------------------------------------------------------ */

/* Returns a zero-filled block of size bytes (a block of one byte for size 0),
 * or null when memory is exhausted. Release it with TAVLO_MFREE. */
TAVLO_API void* TAVLO_MALLOC(size_t size);

/* Releases a block from TAVLO_MALLOC, or a text the library allocated for the
 * caller. A null block is ignored. */
TAVLO_API void TAVLO_MFREE(void* block);

/* Does nothing; kept for compatibility. TAVLO_FREE calls it first. */
TAVLO_API void TAVLO_FREE_MODE_CACHE(void);

/* ---- Creation ----------------------------------------------------------
 * Each returns a new zero-filled record, not linked into any list, with the
 * defaults named. When memory is exhausted, error 24 "not enough memory" is
 * shown and a TavloException (C++) is raised to abort the read under way.
 * The functions of the first group first close a reader's input, and only
 * report when no error has yet been reported during the current read;
 * otherwise they return null. The second group always reports. */

TAVLO_API msgblk* TAVLO_CREATE_MSGBLK(void);           /* dlc 1, signal_count 1 */
TAVLO_API sigblk* TAVLO_CREATE_SIGBLK(void);           /* length 1, factor 1.0 */
TAVLO_API btlblk* TAVLO_CREATE_BTLBLK(void);
TAVLO_API symblk* TAVLO_CREATE_SYMBOL(void);
TAVLO_API rxblk* TAVLO_CREATE_RX(symblk* node);        /* symbol = node */
TAVLO_API rxblk* TAVLO_CREATE_TX(symblk* node);        /* symbol = node */
TAVLO_API env_var_blk* TAVLO_CREATE_EVBLK(void);       /* type 0 */

TAVLO_API attr_def* TAVLO_CREATE_ATTR_DEF(void);
TAVLO_API cat* TAVLO_CREATE_CATEGORY(void);
TAVLO_API valtable* TAVLO_CREATE_VALTABLE(void);
TAVLO_API sigtype* TAVLO_CREATE_SIGTYPE(void);
TAVLO_API siggroupblk* TAVLO_CREATE_SIGGROUP(msgblk* message); /* repetitions 1 */
TAVLO_API siglistblk* TAVLO_CREATE_SIGLIST(sigblk* signal);

/* ---- Insertion ---------------------------------------------------------
 * Links a record into a list so that it follows the position-th record:
 * position 0 puts it at the head; position n >= 1 links it directly behind
 * the n-th record, so position = length appends. A position past the length
 * is a caller error (assertion). No counter (signal_count, receiver_count...)
 * is changed; the caller keeps them. */

TAVLO_API void CAN_INSERT_SYMBOL(symblk** head, symblk* node, unsigned int position);
TAVLO_API void CAN_INSERT_MSG(msgblk** head, msgblk* message, unsigned int position);
TAVLO_API void CAN_INSERT_EVBLK(env_var_blk** head, env_var_blk* envvar, unsigned int position);
TAVLO_API void CAN_INSERT_SIGTYPE(sigtype** head, sigtype* type, unsigned int position);
TAVLO_API void CAN_INSERT_VALTABLE(valtable** head, valtable* table, unsigned int position);
TAVLO_API void CAN_INSERT_SIG(msgblk* message, sigblk* signal, unsigned int position);

/* ---- Deletion ----------------------------------------------------------
 * Unlinks a record from its list and releases it. A record that is not in the
 * list is still released (the message functions CAN_DELETE_SIG and
 * CAN_DELETE_SIGGROUP instead require it to be there). Each releases exactly
 * what is named; everything else the record owned stays allocated, and
 * references that other records hold to it are not cleared. A null record is
 * ignored. */

TAVLO_API void CAN_DELETE_SYMBOL(symblk** head, symblk* node);        /* comment, node */
TAVLO_API void CAN_DELETE_MSG(msgblk** head, msgblk* message);        /* signals as
                                            CAN_DELETE_SIGLIST, comment, message */
TAVLO_API void CAN_DELETE_EVBLK(env_var_blk** head, env_var_blk* envvar); /* comment, record */
TAVLO_API void CAN_DELETE_BTL(btlblk** head, btlblk* timing);         /* record */
TAVLO_API void CAN_DELETE_ATTR_DEF(attr_def** head, attr_def* def);   /* ENUM texts or
                                            STRING default, record (an ENUM default is kept) */
TAVLO_API void CAN_DELETE_CATEGORY(cat** head, cat* category);        /* record */
TAVLO_API void CAN_DELETE_SIGTYPE(sigtype** head, sigtype* type);     /* record only */
TAVLO_API void CAN_DELETE_VALTABLE(valtable** head, valtable* table); /* record only */

/* Releases an unlinked signal: its receiver entries (not their relation
 * values), its comment and the signal. */
TAVLO_API void CAN_DEALLOCATE_SIG(sigblk* signal);
/* Unlinks the signal from the message's list, then as CAN_DEALLOCATE_SIG. */
TAVLO_API void CAN_DELETE_SIG(msgblk* message, sigblk* signal);
/* Releases an unlinked group: its member entries, its comment and the group. */
TAVLO_API void CAN_DEALLOCATE_SIGGROUP(siggroupblk* group);
/* Unlinks the group from the message's list, then as CAN_DEALLOCATE_SIGGROUP. */
TAVLO_API void CAN_DELETE_SIGGROUP(msgblk* message, siggroupblk* group);
/* Releases a whole signal list, each signal as CAN_DEALLOCATE_SIG; returns null. */
TAVLO_API sigblk* CAN_DELETE_SIGLIST(sigblk* first);

/* ---- Whole database ----------------------------------------------------
 * Releases every record and text of a database root. */
TAVLO_API void TAVLO_FREE(symblk* nodes, msgblk* messages, env_var_blk* envvars,
                          btlblk* bitTimings, attr_def* attrDefs, attr* dbAttrs,
                          cat* categories, filter_t filter, char* comment, char* version,
                          sigtype* sigTypes, valtable* valueTables);

/* TAVLO_FREE on the items of a root, which is then emptied. Null is ignored. */
TAVLO_API void TAVLO_FREE_ROOT(tavlo_root_t* root);

TAVLO_END_C

#endif /* TAVLOMS_LIFECYCLE_H */
