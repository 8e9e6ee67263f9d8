/* tavloms/exception.h: the exception that ends a failed read.
 *
 * When reading a database fails (or memory runs out while records are made),
 * the library shows the message and throws TavloException to the caller of
 * the read. C++ only; in C this header declares nothing. */
#ifndef TAVLOMS_EXCEPTION_H
#define TAVLOMS_EXCEPTION_H

#include "export.h"

#ifdef __cplusplus

class TAVLO_API TavloException {
public:
    explicit TavloException(int code = 1) : mCode(code) {}

    int mCode; /* 1 when raised by the reader */
};

#endif /* __cplusplus */

#endif /* TAVLOMS_EXCEPTION_H */
