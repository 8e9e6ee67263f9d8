// manager/module.cpp: the module frame. The load hook that counts how often
// the module is attached, the version question clients ask first, database
// names (qualified names split, names checked), the "None" records of view
// filter iteration, the file-status probe and the notification message.
#if defined(_WIN32)
#  include <windows.h>
#endif

#include <cstdint>
#include <cstring>

#include "manager/frame.h"
#include "manager/names.h"
#include "platform/platform.h"
#include "tavloms/module.h"

namespace {

constexpr const char* kModule = "tavloms";

constexpr char kVersionText[] = "Tavloms Version 2.53";

// Callers built for a newer interface than this one are turned away.
constexpr int kNewestCallerVersion = 250;

constexpr size_t kMaxDatabaseNameLength = 32;

// Written only by the load hook, which the loader serialises.
void* gInstance = nullptr;
std::uint32_t gAttachCount = 0;

template <class Record>
Record MakeNoneRecord() {
    Record record{};
    std::strcpy(record.name, "None");
    return record;
}

}  // namespace

namespace tavlo::manager {

int ModuleLoadHook(void* instance, unsigned long reason) {
    if (reason == kProcessAttach) {
        if (gAttachCount++ == 0) {
            gInstance = instance;
        }
    } else if (reason == kProcessDetach) {
        if (gAttachCount-- == 1) {
            gInstance = nullptr;
        }
    }
    return 1;
}

void* ModuleInstance() {
    return gInstance;
}

unsigned int ModuleAttachCount() {
    return gAttachCount;
}

unsigned int GetFileStatus(const char* path) {
    TAVLO_ASSERT(path != NULL, kModule);
    unsigned int mode = 0;
    if (!platform::FileMode(path, mode)) {
        return kFileMissing;
    }
    return (mode & 0200u) == 0 ? kFileReadOnly : kFileWritable;
}

unsigned int NotificationMessage() {
    return platform::RegisterMessageName(TAVLONOTIFICATIONMESSAGESTRING);
}

}  // namespace tavlo::manager

#if defined(_WIN32)
#  if defined(TAVLOMS_BUILDING)
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
    return tavlo::manager::ModuleLoadHook(instance, reason);
}
#  endif
namespace {

// Linked into a program instead of loaded as a DLL, the library gets no
// DllMain call: this object attaches it when the program starts and
// detaches it when the program ends.
struct ProgramAttach {
    ProgramAttach()
        : inProgram(tavlo::platform::ThisModule() == static_cast<void*>(GetModuleHandleA(nullptr))) {
        if (inProgram) {
            tavlo::manager::ModuleLoadHook(tavlo::platform::ThisModule(),
                                           tavlo::manager::kProcessAttach);
        }
    }
    ~ProgramAttach() {
        if (inProgram) {
            tavlo::manager::ModuleLoadHook(tavlo::platform::ThisModule(),
                                           tavlo::manager::kProcessDetach);
        }
    }
    bool inProgram;
};

ProgramAttach gProgramAttach;

}  // namespace
#else
namespace {

// Shared objects have no load hook of their own; the loader runs these when
// the library (or the program it is linked into) is loaded and unloaded.
__attribute__((constructor)) void AttachModule() {
    tavlo::manager::ModuleLoadHook(tavlo::platform::ThisModule(), tavlo::manager::kProcessAttach);
}

__attribute__((destructor)) void DetachModule() {
    tavlo::manager::ModuleLoadHook(tavlo::platform::ThisModule(), tavlo::manager::kProcessDetach);
}

}  // namespace
#endif

extern "C" const char TAVLONOTIFICATIONMESSAGESTRING[] = "TavloMessageNotification";
extern "C" const char TAVLODATABASENAMEATTRIBUTE[] = "DBName";

extern "C" int TAVLOMSGETMODULEPARAMETERS(char* moduleFileName, int moduleFileNameSize,
                                          char* versionText, int versionTextSize,
                                          int callerVersion) {
    if (moduleFileName != nullptr && moduleFileNameSize > 1) {
        tavlo::platform::ModuleFileName(tavlo::manager::ModuleInstance(), moduleFileName,
                                        static_cast<unsigned int>(moduleFileNameSize - 1));
    }
    if (versionText != nullptr && versionTextSize > 1) {
        // Deliberately unterminated when cut: callers pass a buffer ending in zero.
        std::strncpy(versionText, kVersionText, static_cast<size_t>(versionTextSize - 1));
    }
    return callerVersion <= kNewestCallerVersion ? 1 : 0;
}

extern "C" bool TAVLOSPLITQUALIFIEDNAME(char* qualifiedName, const char** dbName,
                                        const char** objName) {
    TAVLO_ASSERT(dbName != NULL, kModule);
    TAVLO_ASSERT(objName != NULL, kModule);
    *dbName = qualifiedName;
    char* p = std::strchr(qualifiedName, ':');
    // Deliberately restarts at the colon it found, so a lone ':' never ends: database names hold none.
    while (p != nullptr && p[1] != ':') {
        p = std::strchr(p, ':');
    }
    if (p != nullptr) {
        *p = '\0';
        *objName = p + 2;
        return true;
    }
    *objName = nullptr;
    return false;
}

extern "C" bool TAVLOVERIFYDATABASENAME(const char* name) {
    if (name == nullptr) {
        return false;
    }
    const size_t length = std::strlen(name);
    if (length > kMaxDatabaseNameLength) {
        return false;
    }
    for (size_t i = 1; i < length; ++i) {
        if (!tavlo::manager::IsNameChar(name[i])) {
            return false;
        }
    }
    return tavlo::manager::IsLetter(name[0]) || name[0] == '_';
}

extern "C" cat* TAVLONONEFILTERCATEGORY(void) {
    static cat none = MakeNoneRecord<cat>();
    return &none;
}

extern "C" symblk* TAVLONONEFILTERNODE(void) {
    static symblk none = MakeNoneRecord<symblk>();
    return &none;
}

extern "C" sigblk* TAVLONONESUBSIGNAL(void) {
    static sigblk none = MakeNoneRecord<sigblk>();
    return &none;
}
