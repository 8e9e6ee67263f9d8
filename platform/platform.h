// platform/platform.h: the few calls through which the library reaches the
// operating system, declared once. messagebox.cpp honours the client's hooks;
// posix.cpp and win32.cpp hold the defaults of each platform. Also the
// library's assertion, which every subsystem uses.
#ifndef TAVLOMS_PLATFORM_PLATFORM_H
#define TAVLOMS_PLATFORM_PLATFORM_H

namespace tavlo::platform {

// Shows a message box (through the client's hook when one is set) and returns
// the button pressed; 1 is OK.
int ShowMessageBox(const char* text, const char* caption, unsigned int style);

// The platform's own message box, used when no hook is set.
int DefaultMessageBox(const char* text, const char* caption, unsigned int style);

// Writes "Assertion failed: <condition>, module <module>, line <line>" to
// standard error and stops the program.
[[noreturn]] void AssertFailed(const char* condition, const char* module, int line);

}  // namespace tavlo::platform

// Asserts a condition; the condition's own text is what gets reported, so
// write it as the message should read ("s != NULL").
#define TAVLO_ASSERT(condition, module) \
    ((condition) ? (void)0 : ::tavlo::platform::AssertFailed(#condition, (module), __LINE__))

#endif  // TAVLOMS_PLATFORM_PLATFORM_H
