// platform/win32.cpp: the platform defaults on Windows, the real Win32 calls:
// message boxes, registered window messages, posts, the C runtime's path
// functions and file status, and the module's own handle and file name.
#include <windows.h>

#include <malloc.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "platform/platform.h"

namespace tavlo::platform {

int DefaultMessageBox(const char* text, const char* caption, unsigned int style) {
    return MessageBoxA(nullptr, text, caption, style);
}

unsigned int RegisterMessageName(const char* name) {
    if (name == nullptr || name[0] == '\0') {
        return 0;
    }
    return RegisterWindowMessageA(name);
}

void DefaultPostToWindow(HWND window, unsigned int message, uintptr_t wParam, intptr_t lParam) {
    PostMessageA(window, message, static_cast<WPARAM>(wParam), static_cast<LPARAM>(lParam));
}

void DefaultPostToThread(unsigned long threadId, unsigned int message, uintptr_t wParam,
                         intptr_t lParam) {
    PostThreadMessageA(static_cast<DWORD>(threadId), message, static_cast<WPARAM>(wParam),
                       static_cast<LPARAM>(lParam));
}

std::string FullPath(const char* path) {
    if (path == nullptr || path[0] == '\0') {
        return std::string();
    }
    char full[_MAX_PATH];
    if (_fullpath(full, path, sizeof full) == nullptr) {
        return std::string();
    }
    return full;
}

std::string FileTitle(const char* path) {
    if (path == nullptr) {
        return std::string();
    }
    char title[_MAX_FNAME];
    _splitpath(path, nullptr, nullptr, title, nullptr);
    return title;
}

std::string WithExtension(const char* path, const char* extension) {
    if (path == nullptr) {
        return std::string(extension);
    }
    char drive[_MAX_DRIVE];
    char folder[_MAX_DIR];
    char title[_MAX_FNAME];
    _splitpath(path, drive, folder, title, nullptr);
    char made[_MAX_PATH];
    _makepath(made, drive, folder, title, extension);
    return made;
}

void* LoadModule(const char* file) {
    return file != nullptr ? reinterpret_cast<void*>(LoadLibraryA(file)) : nullptr;
}

void* ModuleFunction(void* module, const char* name) {
    if (module == nullptr || name == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void UnloadModule(void* module) {
    if (module != nullptr) {
        FreeLibrary(static_cast<HMODULE>(module));
    }
}

bool FileMode(const char* path, unsigned int& mode) {
    struct _stat status;
    if (path == nullptr || _stat(path, &status) != 0) {
        return false;
    }
    mode = static_cast<unsigned int>(status.st_mode) & 0777u;
    return true;
}

void* ThisModule() {
    HMODULE module = nullptr;
    // Asked by an address inside the library, so that the answer is this
    // DLL (or the program the static library is linked into), not the
    // program that loaded it.
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCSTR>(&ThisModule), &module)) {
        return nullptr;
    }
    return module;
}

unsigned int ModuleFileName(void* module, char* buffer, unsigned int size) {
    // A null module would name the program, not a module of the caller's.
    if (module == nullptr || buffer == nullptr || size == 0) {
        return 0;
    }
    DWORD length = GetModuleFileNameA(static_cast<HMODULE>(module), buffer, size);
    if (length == 0) {
        return 0;
    }
    // Older systems leave a cut name unterminated and report the full size.
    if (length >= size) {
        length = size - 1;
        buffer[length] = '\0';
    }
    return length;
}

void* AllocateAligned(std::size_t size, std::size_t alignment) {
    void* block = _aligned_malloc(size, alignment);
    if (block != nullptr) {
        memset(block, 0, size);
    }
    return block;
}

void FreeAligned(void* block, std::size_t) {
    _aligned_free(block);
}

void DiscardPages(void*, void*) {}

void PreferLargePages(void*, void*) {}  // large pages need a privilege here

void PopulatePages(void*, void*) {}  // the block was written with zeros

}  // namespace tavlo::platform
