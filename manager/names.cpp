// manager/names.cpp: making a valid database name out of any text.
#include "manager/names.h"

namespace tavlo::manager {

void MakeDatabaseName(char* dst, const char* src, unsigned int limit) {
    if (limit == 0) {
        return;
    }
    // begun: a character that can begin a name has been written. Before it,
    // a digit becomes '_' too and the digit is lost: deliberate, so that
    // "2nd-net" gives "_ndnet".
    bool begun = false;
    unsigned int written = 0;
    for (const char* s = src; written < limit; ++s) {
        const char c = *s;
        if (c != '\0' && !IsNameChar(c)) {
            if (!begun) {
                dst[written++] = '_';
            }
            continue;
        }
        if (IsDigit(c) && !begun) {
            dst[written++] = '_';
            continue;
        }
        dst[written++] = c;
        begun = true;
        if (c == '\0') {
            return;
        }
    }
    dst[limit - 1] = '\0';
}

}  // namespace tavlo::manager

#include <cstring>

#include "manager/access.h"

namespace tavlo::manager {

bool SameName32(const char* a, const char* b) {
    return std::strncmp(a, b, TAVLO_NAME_SIZE - 1) == 0;
}

}  // namespace tavlo::manager
