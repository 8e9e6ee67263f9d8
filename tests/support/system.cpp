// tests/support/system.cpp: the tests' own operating system calls, on POSIX
// systems and on Windows.
#include "support/system.h"

#if defined(_WIN32)
#  include <windows.h>
#  include <direct.h>
#  include <io.h>
#  include <sys/stat.h>
#else
#  include <dlfcn.h>
#  include <sys/stat.h>
#  include <unistd.h>
#endif

namespace tavlo::test {

#if defined(_WIN32)

bool ModuleLoaded(const char* path) { return GetModuleHandleA(path) != nullptr; }

void* ModuleSymbol(void* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

std::string ProgramPath() {
    char buffer[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, buffer, sizeof buffer);
    return std::string(buffer, length);
}

bool SetFileMode(const std::string& path, unsigned int mode) {
    return _chmod(path.c_str(), (mode & 0200) != 0 ? _S_IREAD | _S_IWRITE : _S_IREAD) == 0;
}

bool MakeDirectory(const std::string& path) { return _mkdir(path.c_str()) == 0; }

#else

bool ModuleLoaded(const char* path) {
    void* handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) {
        return false;
    }
    dlclose(handle);
    return true;
}

void* ModuleSymbol(void* module, const char* name) { return dlsym(module, name); }

std::string ProgramPath() {
    char buffer[4096];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : "";
}

bool SetFileMode(const std::string& path, unsigned int mode) {
    return chmod(path.c_str(), mode) == 0;
}

bool MakeDirectory(const std::string& path) { return mkdir(path.c_str(), 0700) == 0; }

#endif

}  // namespace tavlo::test
