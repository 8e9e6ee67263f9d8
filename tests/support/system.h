// tests/support/system.h: the few operating system calls the tests make
// themselves (the dynamic loader, file modes, directories), the same on
// POSIX systems and Windows.
#pragma once

#include <string>

namespace tavlo::test {

// Whether the module (shared library or DLL) at path is loaded; asking does not load it.
bool ModuleLoaded(const char* path);

// The address of a loaded module's exported function; null when there is none.
void* ModuleSymbol(void* module, const char* name);

// The full file name of the running program.
std::string ProgramPath();

// Sets a file's permission bits; Windows keeps only whether the owner may write.
bool SetFileMode(const std::string& path, unsigned int mode);

bool MakeDirectory(const std::string& path);

}  // namespace tavlo::test
