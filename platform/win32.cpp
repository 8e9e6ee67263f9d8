// platform/win32.cpp: the platform defaults on Windows, the real Win32 calls.
#include <windows.h>

#include "platform/platform.h"

namespace tavlo::platform {

int DefaultMessageBox(const char* text, const char* caption, unsigned int style) {
    return MessageBoxA(nullptr, text, caption, style);
}

}  // namespace tavlo::platform
