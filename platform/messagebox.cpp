// platform/messagebox.cpp: message boxes, through the client's hook when one
// is installed, else through the platform's default.
#include "platform/platform.h"

#include "tavloms/platform.h"

namespace {

TAVLO_MESSAGEBOX_HOOK gMessageBoxHook = nullptr;

}  // namespace

namespace tavlo::platform {

int ShowMessageBox(const char* text, const char* caption, unsigned int style) {
    if (gMessageBoxHook != nullptr) {
        return gMessageBoxHook(text, caption, style);
    }
    return DefaultMessageBox(text, caption, style);
}

}  // namespace tavlo::platform

extern "C" TAVLO_MESSAGEBOX_HOOK TAVLO_SET_MESSAGEBOX_HOOK(TAVLO_MESSAGEBOX_HOOK hook) {
    TAVLO_MESSAGEBOX_HOOK previous = gMessageBoxHook;
    gMessageBoxHook = hook;
    return previous;
}
