// platform/posix.cpp: the platform defaults where there is no window system.
// A message box becomes one line on standard error and counts as OK.
#include <cstdio>

#include "platform/platform.h"

namespace tavlo::platform {

int DefaultMessageBox(const char* text, const char* caption, unsigned int /*style*/) {
    std::fprintf(stderr, "%s: %s\n", caption != nullptr ? caption : "Error",
                 text != nullptr ? text : "");
    std::fflush(stderr);
    return 1;  // IDOK
}

}  // namespace tavlo::platform
