// manager/frame.h: the module frame as the rest of the library sees it: the
// load hook with its attach counter, the file-status probe and the
// notification message number. Not part of the public interface.
#ifndef TAVLOMS_MANAGER_FRAME_H
#define TAVLOMS_MANAGER_FRAME_H

namespace tavlo::manager {

// Load hook reasons.
constexpr unsigned long kProcessDetach = 0;
constexpr unsigned long kProcessAttach = 1;

// The module's load hook (DllMain on Windows; the library's constructor and
// destructor call it elsewhere). Counts process attaches and detaches; the
// first attach stores the instance handle, the last detach clears it. Other
// reasons do nothing. Returns 1.
int ModuleLoadHook(void* instance, unsigned long reason);

// The stored instance handle (null while not attached) and the attach count.
void* ModuleInstance();
unsigned int ModuleAttachCount();

// File status codes.
constexpr unsigned int kFileWritable = 0;  // exists, owner may write
constexpr unsigned int kFileMissing = 2;   // status cannot be read
constexpr unsigned int kFileReadOnly = 8;  // exists, owner-write bit clear

// The status of a file: kFileMissing, kFileReadOnly or kFileWritable. The
// path must not be null (assertion).
unsigned int GetFileStatus(const char* path);

// The number of the change notification message, registered under
// "TavloMessageNotification" on every call.
unsigned int NotificationMessage();

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_FRAME_H
