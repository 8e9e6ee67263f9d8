/* tavloms/platform.h: what the library would show the user or post to its
 * windows and threads, and how a client intercepts it.
 *
 * The library shows message boxes (read errors, refused locks) and posts the
 * change notification message. Without hooks, Windows builds call
 * MessageBoxA, PostMessageA, PostThreadMessageA and RegisterWindowMessageA;
 * elsewhere a message box is written to standard error as one line
 * "<caption>: <text>" ("Error" for a null caption) and counts as OK, and a
 * post is dropped. A client that sets a hook receives every message box or
 * post instead. Compiles as C99. */
#ifndef TAVLOMS_PLATFORM_H
#define TAVLOMS_PLATFORM_H

#include <stdint.h>

#include "export.h"

#if defined(_WIN32)
#  ifndef NOMINMAX
#    define NOMINMAX /* std::min and std::max stay usable */
#  endif
#  include <windows.h>
/* <windows.h> makes GetMessage a macro naming GetMessageA (or GetMessageW),
 * which would rename the class interface's GetMessage members. The library
 * is built without the macro, so it exports them as GetMessage; for clients,
 * the classes declare them with the macro set aside and add forwarders
 * named after its expansions, so that a call written GetMessage still
 * reaches them. */
#  if defined(GetMessage)
#    if defined(TAVLOMS_BUILDING)
#      undef GetMessage
#    else
#      define TAVLO_GETMESSAGE_IS_A_MACRO 1
#    endif
#  endif
#else
typedef struct HWND__* HWND;            /* opaque window handle, as STRICT Windows */
#  define HWND_BROADCAST ((HWND)0xFFFF)
#  define MB_ICONHAND 0x00000010u
#  define MB_TASKMODAL 0x00002000u
#endif

TAVLO_BEGIN_C

/* Receives every message box the library shows; returns the button pressed
 * (1 = OK). caption is null where Windows would show its default caption. */
typedef int (*TAVLO_MESSAGEBOX_HOOK)(const char* text, const char* caption,
                                     unsigned int style);

/* Installs a message box hook and returns the previous one; null restores
 * the default. */
TAVLO_API TAVLO_MESSAGEBOX_HOOK TAVLO_SET_MESSAGEBOX_HOOK(TAVLO_MESSAGEBOX_HOOK hook);

/* Receives every posted message: a window post has threadId 0; a broadcast
 * has window HWND_BROADCAST; a thread post has window NULL. */
typedef void (*TAVLO_POST_HOOK)(HWND window, unsigned long threadId, unsigned int message,
                                uintptr_t wParam, intptr_t lParam);

/* Installs a post hook and returns the previous one; null restores the
 * default. */
TAVLO_API TAVLO_POST_HOOK TAVLO_SET_POST_HOOK(TAVLO_POST_HOOK hook);

/* The number of a window message registered by name: the same number for the
 * same name (compared without regard to case) within a process, from 0xC000
 * upwards; 0 for a null or empty name or when the numbers are used up. */
TAVLO_API unsigned int TAVLO_REGISTER_WINDOW_MESSAGE(const char* name);

TAVLO_END_C

#endif /* TAVLOMS_PLATFORM_H */
