// tools/tavlo/common.cpp: the library's messages on standard error, reading
// a database file, long names, and number and JSON text formatting for the
// subcommands of the tavlo command.
#include "common.h"

#include <algorithm>
#include <charconv>

namespace tavlo::tool {
namespace {

struct Shown {
    std::string key;   // the text without its line number
    std::string text;  // the first one shown
    unsigned int count;
};

std::string gFile;
std::vector<Shown> gShown;

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

std::string FullName(attr* values, const char* name, const char* longNameAttribute) {
    if (TAVLO_IS_ATTRIBUTE_DEFINED(values, longNameAttribute)) {
        tavlo_attr_value_t value{};
        TAVLO_GET_ATTRVAL(value.bytes, values, longNameAttribute);
        if (value.text != nullptr && value.text[0] != '\0') {
            return value.text;
        }
    }
    return name;
}

}  // namespace

int CollectMessage(const char* text, const char* /*caption*/, unsigned int /*style*/) {
    const std::string message = text != nullptr ? text : "";
    const std::string key = WithoutLine(message);
    for (Shown& shown : gShown) {
        if (shown.key == key) {
            ++shown.count;
            return 1;
        }
    }
    gShown.push_back({key, message, 1});
    return 1;
}

void DropPost(HWND /*window*/, unsigned long /*threadId*/, unsigned int /*message*/,
              uintptr_t /*wParam*/, intptr_t /*lParam*/) {}

void SetMessageFile(const std::string& path) { gFile = path; }

std::size_t FlushMessages() {
    for (const Shown& shown : gShown) {
        std::fprintf(stderr, "%s: %s", gFile.c_str(), shown.text.c_str());
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

bool Read(const std::string& path, tavlo_root_t& root) {
    SetMessageFile(path);
    bool read = true;
    try {
        const unsigned int result =
            TAVLO_READ(path.c_str(), &root.nodes, &root.messages, &root.envvars,
                       &root.bit_timings, &root.attr_defs, &root.db_attrs, &root.categories,
                       &root.filter, &root.comment, &root.version, &root.sig_types,
                       &root.value_tables);
        read = result == 0;
    } catch (const TavloException&) {
        read = false;
    }
    FlushMessages();
    return read;
}

// A manager keeps what a failed read left without saying so, so the file is
// read once on its own first to learn whether it reads cleanly; its messages
// are shown then, not a second time.
bool OpenChecked(const std::string& path, TavloManager& manager, const char*& db) {
    tavlo_root_t check{};
    const bool readable = Read(path, check);
    TAVLO_FREE_ROOT(&check);
    if (!readable) {
        return false;
    }
    const unsigned int status = manager.OpenDatabase(path.c_str(), &db, "Opened", 0);
    DropMessages();
    if (status != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be opened\n", path.c_str());
        return false;
    }
    return true;
}

std::string MessageName(const msgblk& message) {
    return FullName(message.attributes, message.name, "SystemMessageLongSymbol");
}

std::string SignalName(const sigblk& signal) {
    return FullName(signal.attributes, signal.name, "SystemSignalLongSymbol");
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
    char text[40];
    const std::to_chars_result written =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, 10);
    out.append(text, written.ptr);
}

std::string Number(double value) {
    std::string text;
    AppendNumber(text, value);
    return text;
}

void AppendJsonText(std::string& out, std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (byte < 0x20 || byte >= 0x80) {
            // Texts are bytes of the file's code page; each stands for the
            // character of the same number, so the output is valid JSON.
            out += "\\u00";
            out += kHex[byte >> 4];
            out += kHex[byte & 15];
        } else {
            out += c;
        }
    }
    out += '"';
}

std::string JsonText(std::string_view text) {
    std::string quoted;
    AppendJsonText(quoted, text);
    return quoted;
}

}  // namespace tavlo::tool
