// platform/posix.cpp: the platform defaults where there is no window system.
// A message box becomes one line on standard error and counts as OK, posts
// are dropped, and message names get their numbers from a registry of the
// process's own. Paths, file modes and the module's file name come from POSIX
// and the dynamic loader.
#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/platform.h"

namespace {

// Window messages registered by name share the numbers Windows gives them.
constexpr unsigned int kFirstMessageNumber = 0xC000;
constexpr unsigned int kLastMessageNumber = 0xFFFF;

// Names are keyed in lower case so that the registry ignores case as Windows
// does; only ASCII letters fold, whatever the locale says.
std::string FoldCase(const char* name) {
    std::string folded(name);
    for (char& c : folded) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return folded;
}

struct MessageRegistry {
    std::mutex mutex;
    std::unordered_map<std::string, unsigned int> numbers;
    unsigned int next = kFirstMessageNumber;
};

// Built on first use: a message may be registered from another translation
// unit's static initialisation.
MessageRegistry& Registry() {
    static MessageRegistry registry;
    return registry;
}

std::string CurrentDirectory() {
    std::vector<char> buffer(256);
    for (;;) {
        if (getcwd(buffer.data(), buffer.size()) != nullptr) {
            return buffer.data();
        }
        if (errno != ERANGE) {
            return std::string();
        }
        buffer.resize(buffer.size() * 2);
    }
}

// The main executable's file name, for the loader reports it only as the
// program was started (possibly relative) or not at all.
std::string ExecutableName() {
    std::vector<char> buffer(256);
    for (;;) {
        const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (length < 0) {
            return std::string();
        }
        if (static_cast<size_t>(length) < buffer.size()) {
            return std::string(buffer.data(), static_cast<size_t>(length));
        }
        buffer.resize(buffer.size() * 2);  // possibly cut: try again with more room
    }
}

// Whether an address lies in the main program's image. The loader names the
// main program only as it was started, which may be relative, while a library
// opened by a relative name is named relative to the directory of that time;
// the two call for different repairs.
bool InMainProgram(const void* address) {
    struct Search {
        uintptr_t address;
        bool found;
    } search = {reinterpret_cast<uintptr_t>(address), false};
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) -> int {
            Search& s = *static_cast<Search*>(data);
            for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
                const ElfW(Phdr)& segment = info->dlpi_phdr[i];
                if (segment.p_type != PT_LOAD) {
                    continue;
                }
                // The image is mapped from the page its first segment starts on.
                const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
                const uintptr_t begin = (info->dlpi_addr + segment.p_vaddr) & ~(page - 1);
                const uintptr_t end = info->dlpi_addr + segment.p_vaddr + segment.p_memsz;
                if (s.address >= begin && s.address < end) {
                    s.found = true;
                }
            }
            return 1;  // the main program is always visited first: stop there
        },
        &search);
    return search.found;
}

}  // namespace

namespace tavlo::platform {

int DefaultMessageBox(const char* text, const char* caption, unsigned int /*style*/) {
    std::fprintf(stderr, "%s: %s\n", caption != nullptr ? caption : "Error",
                 text != nullptr ? text : "");
    std::fflush(stderr);
    return 1;  // IDOK
}

unsigned int RegisterMessageName(const char* name) {
    if (name == nullptr || name[0] == '\0') {
        return 0;
    }
    std::string key = FoldCase(name);
    MessageRegistry& registry = Registry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const auto found = registry.numbers.find(key);
    if (found != registry.numbers.end()) {
        return found->second;
    }
    if (registry.next > kLastMessageNumber) {
        return 0;
    }
    const unsigned int number = registry.next++;
    registry.numbers.emplace(std::move(key), number);
    return number;
}

// Nobody could receive a post without a window system.
void DefaultPostToWindow(HWND, unsigned int, uintptr_t, intptr_t) {}

void DefaultPostToThread(unsigned long, unsigned int, uintptr_t, intptr_t) {}

std::string FullPath(const char* path) {
    if (path == nullptr || path[0] == '\0') {
        return std::string();
    }
    std::string text;
    if (path[0] != '/') {
        text = CurrentDirectory();
        if (text.empty()) {
            return std::string();
        }
        text += '/';
    }
    text += path;

    // Resolved by the text alone, as the file need not exist: a symbolic link
    // followed by ".." is not looked at.
    std::vector<std::string> segments;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('/', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string segment = text.substr(start, end - start);
        if (segment == "..") {
            if (!segments.empty()) {
                segments.pop_back();
            }
        } else if (!segment.empty() && segment != ".") {
            segments.push_back(segment);
        }
        start = end + 1;
    }

    std::string full;
    for (const std::string& segment : segments) {
        full += '/';
        full += segment;
    }
    // A trailing separator still says "directory", as the full-path function
    // on Windows keeps it.
    if (full.empty() || text.back() == '/') {
        full += '/';
    }
    return full;
}

std::string FileTitle(const char* path) {
    if (path == nullptr) {
        return std::string();
    }
    const char* slash = std::strrchr(path, '/');
    const std::string name = slash != nullptr ? slash + 1 : path;
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string WithExtension(const char* path, const char* extension) {
    if (path == nullptr) {
        return std::string(extension);
    }
    const char* slash = std::strrchr(path, '/');
    const std::string folder(path, slash != nullptr ? slash + 1 - path : 0);
    return folder + FileTitle(path) + extension;
}

void* LoadModule(const char* file) {
    return file != nullptr ? dlopen(file, RTLD_NOW | RTLD_LOCAL) : nullptr;
}

void* ModuleFunction(void* module, const char* name) {
    return module != nullptr && name != nullptr ? dlsym(module, name) : nullptr;
}

void UnloadModule(void* module) {
    if (module != nullptr) {
        dlclose(module);
    }
}

bool FileMode(const char* path, unsigned int& mode) {
    struct stat status;
    if (path == nullptr || stat(path, &status) != 0) {
        return false;
    }
    mode = static_cast<unsigned int>(status.st_mode) & 0777u;
    return true;
}

void* ThisModule() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&ThisModule), &info) == 0) {
        return nullptr;
    }
    return info.dli_fbase;
}

unsigned int ModuleFileName(void* module, char* buffer, unsigned int size) {
    if (module == nullptr || buffer == nullptr || size == 0) {
        return 0;
    }
    Dl_info info;
    if (dladdr(module, &info) == 0) {
        return 0;
    }
    std::string name;
    if (info.dli_fname != nullptr && info.dli_fname[0] == '/') {
        name = FullPath(info.dli_fname);
    } else if (info.dli_fname == nullptr || info.dli_fname[0] == '\0' || InMainProgram(module)) {
        name = FullPath(ExecutableName().c_str());
    } else {
        name = FullPath(info.dli_fname);
    }
    const size_t length = name.size() < size - 1 ? name.size() : size - 1;
    std::memcpy(buffer, name.data(), length);
    buffer[length] = '\0';
    return static_cast<unsigned int>(length);
}

// Mapped anonymously (zeros, taken on first write): twice the alignment's
// worth is asked for, and what lies outside the aligned block given back.
void* AllocateAligned(std::size_t size, std::size_t alignment) {
    const std::size_t asked = size + alignment;
    void* mapped = mmap(nullptr, asked, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    const auto start = reinterpret_cast<std::uintptr_t>(mapped);
    const std::uintptr_t aligned = (start + alignment - 1) & ~(std::uintptr_t{alignment} - 1);
    if (aligned != start) {
        munmap(mapped, aligned - start);
    }
    const std::uintptr_t end = start + asked;
    if (end != aligned + size) {
        munmap(reinterpret_cast<void*>(aligned + size), end - (aligned + size));
    }
    return reinterpret_cast<void*>(aligned);
}

void FreeAligned(void* block, std::size_t size) {
    if (block != nullptr) {
        munmap(block, size);
    }
}

namespace {

// Advice the system may lack (kNoAdvice then).
constexpr int kNoAdvice = -1;
#if defined(MADV_HUGEPAGE)
constexpr int kLargePagesAdvice = MADV_HUGEPAGE;
#else
constexpr int kLargePagesAdvice = kNoAdvice;
#endif
// In one call where the kernel has it (5.14 on): a page fault each costs
// more than the zeroing.
#if defined(MADV_POPULATE_WRITE)
constexpr int kPopulateAdvice = MADV_POPULATE_WRITE;
#else
constexpr int kPopulateAdvice = kNoAdvice;
#endif

// Advice for the whole pages within [begin, end).
void AdvisePages(void* begin, void* end, int advice) {
    const long page = sysconf(_SC_PAGESIZE);
    if (page <= 0 || advice == kNoAdvice) {
        return;
    }
    const auto mask = static_cast<std::uintptr_t>(page) - 1;
    const std::uintptr_t from = (reinterpret_cast<std::uintptr_t>(begin) + mask) & ~mask;
    const std::uintptr_t to = reinterpret_cast<std::uintptr_t>(end) & ~mask;
    if (from < to) {
        madvise(reinterpret_cast<void*>(from), to - from, advice);
    }
}

}  // namespace

void PreferLargePages(void* begin, void* end) {
    AdvisePages(begin, end, kLargePagesAdvice);
}

void DiscardPages(void* begin, void* end) {
    AdvisePages(begin, end, MADV_DONTNEED);
}

void PopulatePages(void* begin, void* end) {
    AdvisePages(begin, end, kPopulateAdvice);
}

}  // namespace tavlo::platform
