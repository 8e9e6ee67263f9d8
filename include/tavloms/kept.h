/* tavloms/kept.h: statements of a database file that a read keeps as text.
 *
 * A read takes into records what the records can hold. A statement it cannot
 * take (one that begins with a symbol the file declares but the reader does
 * not support, such as "SG_MUL_VAL_", or one whose entries it drops, such as
 * "SGTYPE_VAL_") is kept as it was written, so that a write can give it back
 * and a decoder can use what it says. Compiles as C99. */
#ifndef TAVLOMS_KEPT_H
#define TAVLOMS_KEPT_H

#include "export.h"

TAVLO_BEGIN_C

/* One kept statement. The text runs from the statement's first symbol
 * through its closing ';', with its line ends as in the file; line is the
 * 1-based line of its first symbol. */
typedef struct tavlo_kept_t {
    const char* text;
    unsigned int line;
} tavlo_kept_t;

TAVLO_END_C

#endif /* TAVLOMS_KEPT_H */
