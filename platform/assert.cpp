// platform/assert.cpp: the library's assertion. A failed assertion is a
// programming error of the caller; the program stops after saying which
// condition failed, in which module and on which line.
#include <cstdio>
#include <cstdlib>

#include "platform/platform.h"

namespace tavlo::platform {

void AssertFailed(const char* condition, const char* module, int line) {
    std::fprintf(stderr, "Assertion failed: %s, module %s, line %d\n", condition, module, line);
    std::fflush(stderr);
    std::abort();
}

}  // namespace tavlo::platform
