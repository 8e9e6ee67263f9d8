// tools/tavlo/common.cpp: the library's messages on standard error, reading
// a database file, long names, and number and JSON text formatting for the
// subcommands of the tavlo command.
#include "common.h"
#include "system.h"

#include <algorithm>
#include <charconv>

namespace tavlo::tool {
namespace {

struct Shown {
    std::string key;   // the text without its line number
    std::string text;  // the first one shown
    unsigned int count;
    bool placed;  // text begins with "<line>:<column>: "
};

std::string gFile;
std::vector<Shown> gShown;
bool gStrict = false;

// The reader's warning for a statement it keeps (tavlo_load's code 26).
constexpr unsigned int kNewSymbolNotSupported = 26;

// Shows a message once; the same key again counts as one more like it.
void Collect(const std::string& key, const std::string& text, bool placed) {
    for (Shown& shown : gShown) {
        if (shown.key == key) {
            ++shown.count;
            return;
        }
    }
    gShown.push_back({key, text, 1, placed});
}

// A message without its ", line N": the same warning on many lines is one.
std::string WithoutLine(const std::string& text) {
    const std::size_t at = text.find(", line ");
    if (at == std::string::npos) {
        return text;
    }
    std::size_t end = at + 7;
    while (end < text.size() && text[end] >= '0' && text[end] <= '9') {
        ++end;
    }
    return text.substr(0, at) + text.substr(end);
}

}  // namespace

int CollectMessage(const char* text, const char* /*caption*/, unsigned int /*style*/) {
    const std::string message = text != nullptr ? text : "";
    Collect(WithoutLine(message), message, false);
    return 1;
}

void DropPost(HWND /*window*/, unsigned long /*threadId*/, unsigned int /*message*/,
              uintptr_t /*wParam*/, intptr_t /*lParam*/) {}

void SetMessageFile(const std::string& path) { gFile = path; }

std::size_t FlushMessages() {
    for (const Shown& shown : gShown) {
        std::fprintf(stderr, shown.placed ? "%s:%s" : "%s: %s", gFile.c_str(),
                     shown.text.c_str());
        if (shown.count > 1) {
            std::fprintf(stderr, " (and %u more like it)", shown.count - 1);
        }
        std::fputc('\n', stderr);
    }
    const std::size_t printed = gShown.size();
    gShown.clear();
    return printed;
}

void DropMessages() { gShown.clear(); }

void SetStrict(bool strict) { gStrict = strict; }

bool Strict() { return gStrict; }

bool Read(const std::string& path, tavlo_root_t& root, bool strict, bool listAll,
          KeptStatements* kept, bool* repaired) {
    SetMessageFile(path);
    tavlo_load_result_t* result = nullptr;
    const unsigned int status =
        tavlo_load(path.c_str(), strict ? TAVLO_LOAD_STRICT : TAVLO_LOAD_TOLERANT, &root, &result);
    std::size_t count = 0;
    const tavlo_diagnostic_t* diagnostics = tavlo_load_diagnostics(result, &count);
    for (std::size_t i = 0; i < count; ++i) {
        const tavlo_diagnostic_t& diagnostic = diagnostics[i];
        const std::string text = diagnostic.text;
        if (repaired != nullptr && diagnostic.code != kNewSymbolNotSupported) {
            *repaired = true;  // anything else stops a strict load
        }
        if (kept != nullptr && diagnostic.code == kNewSymbolNotSupported) {
            continue;  // the caller takes the statement: nothing is lost
        }
        if (diagnostic.line == 0) {
            Collect(text, text, false);
            continue;
        }
        const std::string place =
            std::to_string(diagnostic.line) + ":" + std::to_string(diagnostic.column) + ": ";
        // One line per kind (code), or per diagnostic with `listAll`.
        Collect(listAll ? place + text : "#" + std::to_string(diagnostic.code), place + text, true);
    }
    if (kept != nullptr) {
        std::size_t count = 0;
        const tavlo_kept_t* statements = tavlo_load_kept(result, &count);
        kept->texts.clear();
        kept->texts.reserve(count);  // no reallocation moves a text pointed to
        kept->statements.clear();
        for (std::size_t i = 0; i < count; ++i) {
            kept->texts.emplace_back(statements[i].text);
            kept->statements.push_back(tavlo_kept_t{kept->texts.back().c_str(), statements[i].line});
        }
    }
    tavlo_load_release(result);
    FlushMessages();
    return status == TAVLO_LOAD_OK;
}

// A manager keeps what a failed read left without saying so, so the file is
// loaded once on its own first to learn whether it loads; its messages are
// shown then, not a second time. A file that loads only tolerantly is
// written as it loaded, with its kept statements, and that copy is opened.
bool OpenChecked(const std::string& path, TavloManager& manager, const char*& db) {
    tavlo_root_t check{};
    KeptStatements kept;
    bool repaired = false;
    const bool readable = Read(path, check, Strict(), false, &kept, &repaired);
    // The copy goes to a directory of its own under the system's temporary
    // one, by the file's own name (the database's name comes from it).
    std::string open = path;
    std::string directory;
    std::string copy;
    if (readable && repaired) {
        directory = MakeTemporaryDirectory();
        const std::size_t slash = LastSeparator(path);
        copy = JoinPath(directory, slash == std::string::npos ? path : path.substr(slash + 1));
        if (!directory.empty() &&
            tavlo_write_kept(copy.c_str(), &check, kept.statements.data(), kept.statements.size()) == 0) {
            open = copy;
        }
    }
    TAVLO_FREE_ROOT(&check);
    const unsigned int status =
        readable ? manager.OpenDatabase(open.c_str(), &db, "Opened", 0) : TAVLO_STATUS_OK;
    DropMessages();
    if (!directory.empty()) {
        std::remove(copy.c_str());
        RemoveEmptyDirectory(directory);
    }
    if (!readable) {
        return false;
    }
    if (status != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be opened\n", path.c_str());
        return false;
    }
    return true;
}

std::string MessageName(const msgblk& message) {
    return tavlo::FullName(TAVLO_OBJ_MESSAGE, &message);
}

std::string SignalName(const sigblk& signal) {
    return tavlo::FullName(TAVLO_OBJ_SIGNAL, &signal);
}

std::string Identifier(unsigned int id) {
    char text[40];
    if ((id & kExtendedFlag) != 0) {
        std::snprintf(text, sizeof text, "0x%08X (extended)", id & ~kExtendedFlag);
    } else {
        std::snprintf(text, sizeof text, "0x%03X", id);
    }
    return text;
}

// The frame bit (byte * 8 + bit in byte) of the i-th bit of a signal,
// counted from its least significant bit; -1 before the frame.
int FrameBit(const sigblk& signal, unsigned int i) {
    const unsigned int start = signal.start_bit;
    const unsigned int flags = signal.flags;
    if ((flags & TAVLO_SIG_MOTOROLA) == 0) {
        return static_cast<int>(start + i);
    }
    const unsigned int length = signal.length;
    const int lsb = static_cast<int>((start ^ 7u) + length - 1);
    const int linear = lsb - static_cast<int>(i);
    return linear < 0 ? -1 : linear / 8 * 8 + 7 - linear % 8;
}

unsigned int BytesNeeded(const sigblk& signal) {
    const unsigned int length = signal.length;
    const int last = std::max(FrameBit(signal, 0), FrameBit(signal, length > 0 ? length - 1 : 0));
    return last < 0 ? 0 : static_cast<unsigned int>(last) / 8 + 1;
}

void AppendNumber(std::string& out, double value) {
    char text[kNumberRoom];
    out.append(text, PutNumber(text, value));
}

std::string Number(double value) {
    std::string text;
    AppendNumber(text, value);
    return text;
}

char* PutJsonText(char* at, std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    *at++ = '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            *at++ = '\\';
            *at++ = c;
        } else if (byte < 0x20 || byte >= 0x80) {
            // Texts are bytes of the file's code page; each stands for the
            // character of the same number, so the output is valid JSON.
            at = Put(at, "\\u00");
            *at++ = kHex[byte >> 4];
            *at++ = kHex[byte & 15];
        } else {
            *at++ = c;
        }
    }
    *at++ = '"';
    return at;
}

void AppendJsonText(std::string& out, std::string_view text) {
    const std::size_t at = out.size();
    out.resize(at + JsonRoom(text.size()));
    out.resize(static_cast<std::size_t>(PutJsonText(&out[at], text) - out.data()));
}

std::string JsonText(std::string_view text) {
    std::string quoted;
    AppendJsonText(quoted, text);
    return quoted;
}

}  // namespace tavlo::tool
