/* tavloms/platform.h: what the library would show the user, and how a client
 * intercepts it.
 *
 * The library shows message boxes (read errors, refused locks). Without a
 * hook, Windows builds call MessageBoxA; elsewhere the text is written to
 * standard error as one line "<caption>: <text>" ("Error" for a null caption)
 * and counts as OK. A client that sets a hook receives every message box
 * instead. Compiles as C99. */
#ifndef TAVLOMS_PLATFORM_H
#define TAVLOMS_PLATFORM_H

#include <stdint.h>

#include "export.h"

#if defined(_WIN32)
#  include <windows.h>
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

TAVLO_END_C

#endif /* TAVLOMS_PLATFORM_H */
