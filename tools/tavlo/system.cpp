// tools/tavlo/system.cpp: the operating system calls of the tavlo command,
// once for POSIX systems and once for Windows.
#include "system.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <string>

#if defined(_WIN32)
#include <io.h>
#include <direct.h>
#include <windows.h>
#else
#include <unistd.h>

#include <cstdlib>
#endif

namespace tavlo::tool {

#if defined(_WIN32)

void UseBinaryStandardStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

// A console, not just any character device: NUL is one too.
bool StandardErrorIsTerminal() {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

int OpenToRead(const std::string& path) { return _open(path.c_str(), _O_RDONLY | _O_BINARY); }

long ReadSome(int file, char* buffer, std::size_t size) {
    return _read(file, buffer, static_cast<unsigned int>(size < INT_MAX ? size : INT_MAX));
}

void CloseFile(int file) { _close(file); }

namespace {

int OpenFileToWrite(const std::string& path) {
    return _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_BINARY, _S_IREAD | _S_IWRITE);
}

std::FILE* StreamOf(int file) { return _fdopen(file, "wb"); }

}  // namespace

bool EmptyIfRegular(std::FILE* file) {
    const int descriptor = _fileno(file);
    struct _stat info {};
    return _fstat(descriptor, &info) != 0 || (info.st_mode & _S_IFMT) != _S_IFREG ||
           _chsize(descriptor, 0) == 0;
}

bool Exists(const std::string& path) {
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Of the mode bits Windows keeps only whether a file is read-only; the
// library's come from that too.
bool Writable(const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) == 0;
}

std::size_t LastSeparator(const std::string& path) { return path.find_last_of("/\\"); }

// The name's parts may be separated by '/' (as CMake writes relative paths).
std::string JoinPath(const std::string& directory, const std::string& name) {
    std::string path = directory + "\\" + name;
    for (std::size_t at = directory.size(); at < path.size(); ++at) {
        path[at] = path[at] == '/' ? '\\' : path[at];
    }
    return path;
}

std::string CommandDirectory() {
    std::string path(MAX_PATH, '\0');
    for (;;) {
        const DWORD length =
            GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return "";
        }
        if (length < path.size()) {  // else cut short: again with more room
            path.resize(length);
            break;
        }
        if (path.size() >= 32768) {
            return "";
        }
        path.resize(path.size() * 2);
    }
    const std::size_t separator = LastSeparator(path);
    return separator == std::string::npos ? "" : path.substr(0, separator);
}

std::string MakeTemporaryDirectory() {
    char base[MAX_PATH + 1];
    const DWORD length = GetTempPathA(sizeof base, base);  // ends with a separator
    if (length == 0 || length > MAX_PATH) {
        return "";
    }
    const std::string prefix = std::string(base, length) + "tavlo-convert-" +
                               std::to_string(GetCurrentProcessId()) + "-";
    for (unsigned int attempt = 0; attempt < 100; ++attempt) {
        const std::string path = prefix + std::to_string(attempt);
        if (CreateDirectoryA(path.c_str(), nullptr)) {
            return path;
        }
        if (GetLastError() != ERROR_ALREADY_EXISTS) {
            return "";
        }
    }
    return "";
}

void RemoveEmptyDirectory(const std::string& path) { _rmdir(path.c_str()); }

#else

void UseBinaryStandardStreams() {}  // POSIX streams never translate

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) != 0; }

int OpenToRead(const std::string& path) { return open(path.c_str(), O_RDONLY); }

long ReadSome(int file, char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t got = read(file, buffer, size < SSIZE_MAX ? size : SSIZE_MAX);
        if (got >= 0 || errno != EINTR) {
            return static_cast<long>(got);
        }
    }
}

void CloseFile(int file) { close(file); }

namespace {

int OpenFileToWrite(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT, 0666);
}

std::FILE* StreamOf(int file) { return fdopen(file, "wb"); }

}  // namespace

bool EmptyIfRegular(std::FILE* file) {
    const int descriptor = fileno(file);
    struct stat info {};
    return fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode) || ftruncate(descriptor, 0) == 0;
}

bool Exists(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

bool Writable(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && (info.st_mode & S_IWUSR) != 0 &&
           access(path.c_str(), W_OK) == 0;
}

std::size_t LastSeparator(const std::string& path) { return path.find_last_of('/'); }

std::string JoinPath(const std::string& directory, const std::string& name) {
    return directory + "/" + name;
}

std::string CommandDirectory() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) {
        return "";
    }
    const std::string command(path, static_cast<std::size_t>(length));
    return command.substr(0, LastSeparator(command));
}

std::string MakeTemporaryDirectory() {
    const char* const base = std::getenv("TMPDIR");
    std::string pattern = base != nullptr ? base : "/tmp";
    pattern += "/tavlo-convert-XXXXXX";
    return mkdtemp(pattern.data()) != nullptr ? pattern : "";
}

void RemoveEmptyDirectory(const std::string& path) { rmdir(path.c_str()); }

#endif

std::FILE* OpenToWrite(const std::string& path) {
    const int file = OpenFileToWrite(path);
    std::FILE* stream = file >= 0 ? StreamOf(file) : nullptr;
    if (stream == nullptr && file >= 0) {
        const int error = errno;
        CloseFile(file);
        errno = error;
    }
    return stream;
}

}  // namespace tavlo::tool
