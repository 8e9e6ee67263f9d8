/* tavloms/copy.h: deep copies of the lists of a database.
 *
 * A copy shares no record and no owned text with its source. References
 * inside a copy are re-pointed to the copy's own records by looking them up
 * by key (name or number) in lists copied before, which is why some copies
 * take already copied lists and why a whole database is copied in a fixed
 * order (TAVLO_COPY_DATABASE does that). Each list copy returns the new head,
 * or null when the source is empty or memory ran out (then nothing of the
 * failed copy stays allocated).
 *
 * Left out of every copy: the signal groups and further transmitters of a
 * message, the value types of signals and signal types, the data length of
 * environment variables, and the relation values at receiver, access node
 * and filter entries. A reference that cannot be re-pointed stops the
 * program with an assertion. Compiles as C99. */
#ifndef TAVLOMS_COPY_H
#define TAVLOMS_COPY_H

#include "records.h"

TAVLO_BEGIN_C

TAVLO_API attr_def* TAVLO_COPY_ATTR_DEFS(const attr_def* source);
/* def re-pointed by name into attrDefs. */
TAVLO_API attr* TAVLO_COPY_ATTRS(const attr* source, attr_def* attrDefs);
TAVLO_API cat* TAVLO_COPY_CATEGORIES(const cat* source);
TAVLO_API val* TAVLO_COPY_VALUE_DESCRIPTIONS(const val* source);
/* Receivers, access nodes and filter nodes: symbol re-pointed by name. */
TAVLO_API rxblk* TAVLO_COPY_RELATIONS(const rxblk* source, symblk* nodes);
/* act re-pointed by category number. */
TAVLO_API filtercatblk* TAVLO_COPY_FILTER_CATEGORIES(const filtercatblk* source,
                                                     cat* categories);
TAVLO_API valtable* TAVLO_COPY_VALTABLES(const valtable* source);
/* value_list re-pointed by value table name. */
TAVLO_API sigtype* TAVLO_COPY_SIGTYPES(const sigtype* source, attr_def* attrDefs,
                                       valtable* valueTables);
/* category re-pointed by number. */
TAVLO_API symblk* TAVLO_COPY_SYMBOLS(const symblk* source, attr_def* attrDefs, cat* categories);
/* Signals of one message: receivers by node name, sig_type by type name. */
TAVLO_API sigblk* TAVLO_COPY_SIGNALS(const sigblk* source, attr_def* attrDefs, symblk* nodes,
                                     sigtype* sigTypes);
/* Messages with their signals: transmitter by node name, category by number. */
TAVLO_API msgblk* TAVLO_COPY_MESSAGES(const msgblk* source, attr_def* attrDefs, cat* categories,
                                      symblk* nodes, sigtype* sigTypes);
/* node by node name, category by number. */
TAVLO_API env_var_blk* TAVLO_COPY_EVBLKS(const env_var_blk* source, attr_def* attrDefs,
                                         cat* categories, symblk* nodes);
TAVLO_API btlblk* TAVLO_COPY_BTLBLKS(const btlblk* source);

/* Copies a whole database root into *copy, in the order that lets every
 * reference be re-pointed. A missing version string becomes an empty one.
 * Returns 1; when memory runs out, releases what it made, leaves *copy empty
 * and returns 0. Release the copy with TAVLO_FREE_ROOT. */
TAVLO_API int TAVLO_COPY_DATABASE(const tavlo_root_t* source, tavlo_root_t* copy);

TAVLO_END_C

#endif /* TAVLOMS_COPY_H */
