// manager/access.h: what the layer's own files may reach inside a manager
// (its status field), without making it public.
#ifndef TAVLOMS_MANAGER_ACCESS_H
#define TAVLOMS_MANAGER_ACCESS_H

#include "tavloms/manager.h"

struct TavloManagerAccess {
    static void SetStatus(const TavloManager& manager, unsigned int status) {
        manager.mStatus = status;
    }
};

namespace tavlo::manager {

// Name comparison of the manager's own loops: case-sensitive, at most the
// first 32 characters, so names that agree in those are the same name.
bool SameName32(const char* a, const char* b);

// Whether a value description's value is the given one. Descriptions hold
// signed 32-bit values and callers pass raw words too, so the comparison is
// on the low 32 bits: 0xFFFFFFFF is the description of -1.
inline bool SameValue32(int stored, long value) {
    return static_cast<unsigned int>(stored) == static_cast<unsigned int>(value);
}

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_ACCESS_H
