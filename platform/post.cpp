// platform/post.cpp: posted window and thread messages, through the client's
// post hook when one is installed, else through the platform's default; and
// the public name for registering a window message.
#include <atomic>

#include "platform/platform.h"

#include "tavloms/platform.h"

namespace {

// Posts may come from any thread that changes a database, while the client
// swaps the hook from its own; an atomic keeps each post on one whole hook.
std::atomic<TAVLO_POST_HOOK> gPostHook{nullptr};

}  // namespace

namespace tavlo::platform {

void PostToWindow(HWND window, unsigned int message, uintptr_t wParam, intptr_t lParam) {
    if (TAVLO_POST_HOOK hook = gPostHook.load()) {
        hook(window, 0, message, wParam, lParam);
        return;
    }
    DefaultPostToWindow(window, message, wParam, lParam);
}

void PostToThread(unsigned long threadId, unsigned int message, uintptr_t wParam,
                  intptr_t lParam) {
    if (TAVLO_POST_HOOK hook = gPostHook.load()) {
        hook(nullptr, threadId, message, wParam, lParam);
        return;
    }
    DefaultPostToThread(threadId, message, wParam, lParam);
}

}  // namespace tavlo::platform

extern "C" TAVLO_POST_HOOK TAVLO_SET_POST_HOOK(TAVLO_POST_HOOK hook) {
    return gPostHook.exchange(hook);
}

extern "C" unsigned int TAVLO_REGISTER_WINDOW_MESSAGE(const char* name) {
    return tavlo::platform::RegisterMessageName(name);
}
