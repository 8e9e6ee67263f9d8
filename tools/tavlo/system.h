// tools/tavlo/system.h: the few calls of the operating system the tavlo
// command makes beyond the C++ library, each the same on POSIX systems and
// on Windows: files as bytes (no line end translation anywhere), the
// terminal, the command's own path and a directory of its own for a while.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace tavlo::tool {

// Standard input, output and error carry bytes as they are: what the
// command writes is byte for byte the same on every system ("\n" line ends
// on Windows too), and logs and databases piped in are read as they are.
// Called once, before anything is read or written.
void UseBinaryStandardStreams();

bool StandardErrorIsTerminal();

// A file opened to be read as bytes, -1 when it cannot be (errno says why).
int OpenToRead(const std::string& path);
constexpr int kStandardInputFile = 0;
// Up to size bytes into buffer: how many, 0 at the end, -1 on an error
// (errno says which); an interrupted read is retried.
long ReadSome(int file, char* buffer, std::size_t size);
void CloseFile(int file);

// A file opened to be written as bytes, created when missing but not
// emptied; null when it cannot be (errno says why). EmptyIfRegular empties
// it just before it is written.
std::FILE* OpenToWrite(const std::string& path);
// Empties an open file that is a regular file; devices and pipes are left
// as they are. False when it could not be emptied.
bool EmptyIfRegular(std::FILE* file);

bool Exists(const std::string& path);
// Writable by its mode bits (which the library goes by, also for root) and
// for this process.
bool Writable(const std::string& path);

// Where the directory part of a path ends (the last separator: '/', on
// Windows '\\' as well), or npos for a bare name.
std::size_t LastSeparator(const std::string& path);
// directory and name joined by the system's separator.
std::string JoinPath(const std::string& directory, const std::string& name);

// The directory the running command is in, "" when it cannot be told.
std::string CommandDirectory();

// A new, empty directory for this process alone, among the system's
// temporary files; "" when none could be made.
std::string MakeTemporaryDirectory();
// Removes an empty directory.
void RemoveEmptyDirectory(const std::string& path);

}  // namespace tavlo::tool
