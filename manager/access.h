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

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_ACCESS_H
