// platform/platform.h: the few calls through which the library reaches the
// operating system, declared once. messagebox.cpp and post.cpp honour the
// client's hooks; posix.cpp and win32.cpp hold what differs per platform.
// Also the library's assertion, which every subsystem uses.
//
// Names avoid the Win32 ones (PostMessage, MessageBox...), which <windows.h>
// defines as macros.
#ifndef TAVLOMS_PLATFORM_PLATFORM_H
#define TAVLOMS_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "tavloms/platform.h"

namespace tavlo::platform {

// Shows a message box (through the client's hook when one is set) and returns
// the button pressed; 1 is OK.
int ShowMessageBox(const char* text, const char* caption, unsigned int style);

// The platform's own message box, used when no hook is set.
int DefaultMessageBox(const char* text, const char* caption, unsigned int style);

// ---- Window messages ------------------------------------------------------

// The number registered for a message name: the same for the same name
// (without regard to case) throughout the process, from 0xC000 upwards; 0 for
// a null or empty name or when the numbers are used up.
unsigned int RegisterMessageName(const char* name);

// Post a message (through the client's post hook when one is set) without
// waiting for it to be handled. HWND_BROADCAST reaches every top-level window.
void PostToWindow(HWND window, unsigned int message, uintptr_t wParam, intptr_t lParam);
void PostToThread(unsigned long threadId, unsigned int message, uintptr_t wParam,
                  intptr_t lParam);

// The platform's own posts, used when no hook is set (dropped where there is
// no window system).
void DefaultPostToWindow(HWND window, unsigned int message, uintptr_t wParam, intptr_t lParam);
void DefaultPostToThread(unsigned long threadId, unsigned int message, uintptr_t wParam,
                         intptr_t lParam);

// ---- Files and paths -------------------------------------------------------

// The full absolute form of a path, made from the text alone as the runtime's
// full-path function does: a relative path is taken from the current
// directory, "." and ".." and repeated separators are resolved; the file
// need not exist. Empty for a null or empty path.
std::string FullPath(const char* path);

// The file name part of a path without its directories and its extension
// (the text from the last '.' on): "net" for "/data/net.dbc".
std::string FileTitle(const char* path);

// The path with its extension (the file name's text from the last '.' on,
// if any) replaced: "/data/net.dbc" with ".DBC" gives "/data/net.DBC".
std::string WithExtension(const char* path, const char* extension);

// Reads a file's permission bits (0200 is the owner's write permission);
// false when the file's status cannot be read.
bool FileMode(const char* path, unsigned int& mode);

// ---- Loadable modules --------------------------------------------------------

// Loads a module (a shared library) by file name; null when it cannot be
// loaded.
void* LoadModule(const char* file);

// The address of a module's exported function; null when it has none of
// that name (or the module is null).
void* ModuleFunction(void* module, const char* name);

void UnloadModule(void* module);

// ---- The module ------------------------------------------------------------

// The handle of this library's own module, as its load hook receives it.
void* ThisModule();

// Writes the full file name of a module into buffer, as GetModuleFileNameA
// does: at most size - 1 characters and a terminating zero (a longer name is
// cut). Returns the number of characters written, 0 for a null module or a
// size of 0.
unsigned int ModuleFileName(void* module, char* buffer, unsigned int size);

// ---- Memory ---------------------------------------------------------------

// A block of `size` bytes of zeros at a multiple of `alignment` (a power of
// two), from the system and not from the C heap; null when there is no
// memory. Where the system allows, its pages are taken only when first
// written. Give it back with FreeAligned, with the same size.
void* AllocateAligned(std::size_t size, std::size_t alignment);
void FreeAligned(void* block, std::size_t size);

// Gives the memory of the whole pages within [begin, end) of a block from
// AllocateAligned back to the system where it allows (elsewhere nothing
// happens); their bytes then read as zeros.
void DiscardPages(void* begin, void* end);

// Asks for the memory within [begin, end) of a block from AllocateAligned to
// be given in the system's large pages where it can (on Linux, transparent
// huge pages that the system is set to give when asked): one page fault and
// one page table entry for what takes hundreds of small pages. Elsewhere
// nothing happens.
void PreferLargePages(void* begin, void* end);

// Takes the memory of the whole pages within [begin, end) of a block from
// AllocateAligned at once, for a caller about to write all of them, where
// the system allows (elsewhere nothing happens); their bytes stay as they
// are.
void PopulatePages(void* begin, void* end);

// Writes "Assertion failed: <condition>, module <module>, line <line>" to
// standard error and stops the program.
[[noreturn]] void AssertFailed(const char* condition, const char* module, int line);

}  // namespace tavlo::platform

// Asserts a condition; the condition's own text is what gets reported, so
// write it as the message should read ("s != NULL").
#define TAVLO_ASSERT(condition, module) \
    ((condition) ? (void)0 : ::tavlo::platform::AssertFailed(#condition, (module), __LINE__))

#endif  // TAVLOMS_PLATFORM_PLATFORM_H
