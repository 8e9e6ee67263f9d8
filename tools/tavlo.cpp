// tools/tavlo.cpp: the tavlo command, what engineers do every day with a
// database file from a terminal. It uses only the library's public
// interface. Subcommands so far: decode, check, info, format, show, encode.
//
// Exit status: 0 success, 1 a database or input error, 2 a usage error.
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <unordered_map>
#include <string>
#include <vector>

#include <tavloms/tavloms.h>

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// ---- The library's messages --------------------------------------------------
// Message boxes become lines on standard error prefixed with the file being
// worked on. A message shown many times (a skipped statement of a declared
// new symbol, say) is printed once with its count.

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

// Prints what the library showed while working on gFile; the number of
// messages printed.
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

// ---- Reading ------------------------------------------------------------------

// Reads path into root; false when the read failed (its message shown).
bool Read(const std::string& path, tavlo_root_t& root) {
    gFile = path;
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

// Opens a database file in a manager for the subcommands that work through
// one. A manager keeps what a failed read left without saying so, so the
// file is read once on its own first to learn whether it reads cleanly; its
// messages are shown then, not a second time.
bool OpenChecked(const std::string& path, TavloManager& manager, const char*& db) {
    tavlo_root_t check{};
    const bool readable = Read(path, check);
    TAVLO_FREE_ROOT(&check);
    if (!readable) {
        return false;
    }
    const unsigned int status = manager.OpenDatabase(path.c_str(), &db, "Opened", 0);
    gShown.clear();
    if (status != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be opened\n", path.c_str());
        return false;
    }
    return true;
}

template <class T>
unsigned int Length(const T* list) {
    unsigned int n = 0;
    for (; list != nullptr; list = list->next) {
        ++n;
    }
    return n;
}

// ---- Subcommands ----------------------------------------------------------------

const char kCheckHelp[] =
    "usage: tavlo check DB...\n"
    "Reads each database file and reports the first error of each, as the\n"
    "library composes it, after the file name. Exit status 1 if any failed.\n";

int Check(const std::vector<std::string>& args) {
    if (args.empty()) {
        std::fputs(kCheckHelp, stderr);
        return kUsage;
    }
    int status = kOk;
    for (const std::string& path : args) {
        tavlo_root_t root{};
        const bool read = Read(path, root);
        TAVLO_FREE_ROOT(&root);
        if (read) {
            std::printf("%s: OK\n", path.c_str());
        } else {
            status = kFailed;
        }
    }
    return status;
}

const char kInfoHelp[] =
    "usage: tavlo info DB\n"
    "Prints the version string, the number of objects of every kind and the\n"
    "database's own attribute values.\n";

int Info(const std::vector<std::string>& args) {
    if (args.size() != 1) {
        std::fputs(kInfoHelp, stderr);
        return kUsage;
    }
    tavlo_root_t root{};
    if (!Read(args[0], root)) {
        TAVLO_FREE_ROOT(&root);
        return kFailed;
    }
    unsigned int signals = 0;
    for (const msgblk* m = root.messages; m != nullptr; m = m->next) {
        signals += Length<sigblk>(m->signals);
    }
    std::printf("file:                  %s\n", args[0].c_str());
    std::printf("version:               \"%s\"\n", root.version != nullptr ? root.version : "");
    std::printf("nodes:                 %u\n", Length<symblk>(root.nodes));
    std::printf("messages:              %u\n", Length<msgblk>(root.messages));
    std::printf("signals:               %u\n", signals);
    std::printf("environment variables: %u\n", Length<env_var_blk>(root.envvars));
    std::printf("value tables:          %u\n", Length<valtable>(root.value_tables));
    std::printf("signal types:          %u\n", Length<sigtype>(root.sig_types));
    std::printf("categories:            %u\n", Length<cat>(root.categories));
    std::printf("bit timings:           %u\n", Length<btlblk>(root.bit_timings));
    std::printf("attribute definitions: %u\n", Length<attr_def>(root.attr_defs));
    for (const attr* value = root.db_attrs; value != nullptr; value = value->next) {
        const attr_def* def = value->def;
        if (def == nullptr) {
            continue;
        }
        const unsigned int type = def->value_type;
        if (type == TAVLO_ATTR_STRING) {
            const char* text = value->value.text;
            std::printf("attribute %s:  \"%s\"\n", def->name, text != nullptr ? text : "");
        } else {
            const double number = value->value.number;
            std::printf("attribute %s:  %.17g\n", def->name, number);
        }
    }
    TAVLO_FREE_ROOT(&root);
    return kOk;
}

const char kFormatHelp[] =
    "usage: tavlo format IN [OUT]\n"
    "       tavlo format --in-place IN\n"
    "Reads a database file and writes it in canonical form: to OUT, to\n"
    "standard output without OUT, or back to IN with --in-place.\n";

bool CopyToStdout(const std::string& path) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (in == nullptr) {
        return false;
    }
    char block[1 << 16];
    std::size_t n = 0;
    while ((n = std::fread(block, 1, sizeof block, in)) > 0) {
        std::fwrite(block, 1, n, stdout);
    }
    std::fclose(in);
    return true;
}

int Format(const std::vector<std::string>& args) {
    bool inPlace = false;
    std::vector<std::string> files;
    for (const std::string& arg : args) {
        if (arg == "--in-place") {
            inPlace = true;
        } else {
            files.push_back(arg);
        }
    }
    if (files.empty() || files.size() > 2 || (inPlace && files.size() != 1)) {
        std::fputs(kFormatHelp, stderr);
        return kUsage;
    }
    const std::string& in = files[0];
    if (files.size() == 2 && files[1] == in) {
        std::fprintf(stderr, "tavlo format: %s: writing a file over itself needs --in-place\n",
                     in.c_str());
        return kUsage;
    }
    tavlo_root_t root{};
    if (!Read(in, root)) {
        TAVLO_FREE_ROOT(&root);
        return kFailed;
    }
    const bool toStdout = files.size() == 1 && !inPlace;
    const std::string out = inPlace ? in : toStdout ? in + ".tavlo-format.tmp" : files[1];
    gFile = out;
    const unsigned int written =
        TAVLO_WRITE(out.c_str(), root.nodes, root.messages, root.envvars, root.bit_timings,
                    root.attr_defs, root.db_attrs, root.categories, root.filter, root.comment,
                    root.version, root.sig_types, root.value_tables);
    FlushMessages();
    TAVLO_FREE_ROOT(&root);
    if (written != 0) {
        std::fprintf(stderr, "tavlo format: %s: cannot be written\n", out.c_str());
        std::remove(toStdout ? out.c_str() : "");
        return kFailed;
    }
    if (toStdout) {
        const bool copied = CopyToStdout(out);
        std::remove(out.c_str());
        return copied ? kOk : kFailed;
    }
    return kOk;
}

const char kShowHelp[] =
    "usage: tavlo show DB [MESSAGE]\n"
    "Lists the messages with identifier, length, transmitter and signals\n"
    "(start bit, length, byte order, sign, factor, offset, range, unit,\n"
    "receivers, multiplexing). For one message (by name or identifier) it\n"
    "also draws which bits of the frame belong to which signal.\n";

// A name as other tools keep it when it is longer than 32 characters: in a
// string attribute of the object, else the record's own name.
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

std::string MessageName(const msgblk& message) {
    return FullName(message.attributes, message.name, "SystemMessageLongSymbol");
}

std::string SignalName(const sigblk& signal) {
    return FullName(signal.attributes, signal.name, "SystemSignalLongSymbol");
}

constexpr unsigned int kExtendedFlag = 0x80000000u;

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

void PrintSignal(const sigblk& signal) {
    const unsigned int flags = signal.flags;
    const unsigned int start = signal.start_bit;
    const unsigned int length = signal.length;
    const double factor = signal.factor;
    const double offset = signal.offset;
    const double minimum = signal.minimum;
    const double maximum = signal.maximum;
    const unsigned int valueType = signal.value_type;
    std::string receivers;
    for (const rxblk* r = signal.receivers; r != nullptr; r = r->next) {
        const symblk* node = r->symbol;
        receivers += receivers.empty() ? "" : ", ";
        receivers += node != nullptr ? node->name : "-";
    }
    std::string multiplexing;
    if ((flags & TAVLO_SIG_MODE) != 0) {
        multiplexing = "  multiplexer";
    }
    if ((flags & TAVLO_SIG_MULTIPLEXED) != 0) {
        const unsigned int mode = signal.mode_value;
        multiplexing += "  when multiplexer = " + std::to_string(mode);
    }
    const char* sign = valueType == TAVLO_VALUE_FLOAT    ? "float"
                       : valueType == TAVLO_VALUE_DOUBLE ? "double"
                       : (flags & TAVLO_SIG_SIGNED) != 0 ? "signed"
                                                         : "unsigned";
    std::printf("  %-32s %3u|%-2u %-8s %-8s (%.10g, %.10g) [%.10g .. %.10g] \"%s\"%s%s%s\n",
                SignalName(signal).c_str(), start, length,
                (flags & TAVLO_SIG_MOTOROLA) != 0 ? "Motorola" : "Intel", sign, factor, offset,
                minimum, maximum, signal.unit, receivers.empty() ? "" : "  -> ",
                receivers.c_str(), multiplexing.c_str());
}

// Which signal each bit of the frame belongs to, byte by byte, most
// significant bit first; signals are lettered in their order.
void DrawLayout(const msgblk& message) {
    const unsigned int dlc = message.dlc;
    const unsigned int bytes = dlc > 0 ? dlc : 8;
    std::vector<char> owner(bytes * 8, '.');
    std::vector<std::string> legend;
    char letter = 'A';
    for (const sigblk* s = message.signals; s != nullptr; s = s->next) {
        const unsigned int length = s->length;
        for (unsigned int i = 0; i < length; ++i) {
            const int bit = FrameBit(*s, i);
            if (bit < 0 || static_cast<unsigned int>(bit) >= owner.size()) {
                continue;
            }
            // Signals that share bits (multiplexed ones) are marked '*'.
            owner[bit] = owner[bit] == '.' ? letter : '*';
        }
        legend.push_back(std::string(1, letter) + " = " + SignalName(*s));
        letter = letter == 'Z' ? 'a' : letter == 'z' ? '#' : static_cast<char>(letter + 1);
    }
    std::printf("\n         bit 7 6 5 4 3 2 1 0\n");
    for (unsigned int byte = 0; byte < bytes; ++byte) {
        std::printf("  byte %2u     ", byte);
        for (int bit = 7; bit >= 0; --bit) {
            std::printf("%c%s", owner[byte * 8 + bit], bit > 0 ? " " : "\n");
        }
    }
    std::printf("\n");
    for (const std::string& line : legend) {
        std::printf("  %s\n", line.c_str());
    }
    std::printf("  * = more than one signal (multiplexed)\n");
}

int Show(const std::vector<std::string>& args) {
    if (args.empty() || args.size() > 2) {
        std::fputs(kShowHelp, stderr);
        return kUsage;
    }
    tavlo_root_t root{};
    if (!Read(args[0], root)) {
        TAVLO_FREE_ROOT(&root);
        return kFailed;
    }
    int status = kOk;
    bool found = false;
    for (const msgblk* m = root.messages; m != nullptr; m = m->next) {
        const unsigned int id = m->id;
        if (args.size() == 2) {
            char* end = nullptr;
            const unsigned long asNumber = std::strtoul(args[1].c_str(), &end, 0);
            const bool byId = end != nullptr && *end == '\0' &&
                              (asNumber == id || (asNumber | kExtendedFlag) == id);
            if (!byId && MessageName(*m) != args[1] && args[1] != m->name) {
                continue;
            }
        }
        found = true;
        const symblk* transmitter = m->transmitter;
        const unsigned int dlc = m->dlc;
        std::printf("%s  %s  %u bytes  from %s\n", MessageName(*m).c_str(),
                    Identifier(id).c_str(), dlc,
                    transmitter != nullptr ? transmitter->name : "-");
        for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
            PrintSignal(*s);
        }
        if (args.size() == 2) {
            DrawLayout(*m);
            break;
        }
    }
    if (args.size() == 2 && !found) {
        std::fprintf(stderr, "%s: no message %s\n", args[0].c_str(), args[1].c_str());
        status = kFailed;
    }
    TAVLO_FREE_ROOT(&root);
    return status;
}

const char kEncodeHelp[] =
    "usage: tavlo encode DB MESSAGE NAME=VALUE...\n"
    "Builds the frame of a message from physical values (or value description\n"
    "texts) of its signals and prints it in candump form (ID#DATA). Signals\n"
    "not given are 0. A value out of a signal's range is reported; the frame\n"
    "is printed all the same and the exit status is 1.\n";

int Encode(const std::vector<std::string>& args) {
    if (args.size() < 2) {
        std::fputs(kEncodeHelp, stderr);
        return kUsage;
    }
    const std::string& path = args[0];
    TavloManager manager(static_cast<void*>(nullptr));
    const char* db = nullptr;
    if (!OpenChecked(path, manager, db)) {
        return kFailed;
    }
    const msgblk* message = manager.GetMessage(args[1].c_str(), db);
    if (message == nullptr) {
        char* end = nullptr;
        const unsigned long id = std::strtoul(args[1].c_str(), &end, 0);
        if (end != nullptr && *end == '\0' && end != args[1].c_str()) {
            message = manager.GetMessage(id, db);
            if (message == nullptr) {
                message = manager.GetMessage(id | kExtendedFlag, db);
            }
        }
    }
    if (message == nullptr) {
        std::fprintf(stderr, "%s: no message %s\n", path.c_str(), args[1].c_str());
        return kFailed;
    }
    unsigned char data[64] = {};
    int status = kOk;
    for (std::size_t i = 2; i < args.size(); ++i) {
        const std::string& assignment = args[i];
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            std::fprintf(stderr, "tavlo encode: '%s' is not NAME=VALUE\n", assignment.c_str());
            return kUsage;
        }
        const std::string name = assignment.substr(0, equals);
        const std::string text = assignment.substr(equals + 1);
        const sigblk* signal = manager.GetSignal(*message, name.c_str());
        if (signal == nullptr) {
            std::fprintf(stderr, "%s: message %s has no signal %s\n", path.c_str(),
                         message->name, name.c_str());
            return kFailed;
        }
        char* end = nullptr;
        double physical = std::strtod(text.c_str(), &end);
        if (text.empty() || end == nullptr || *end != '\0') {
            // A value description text stands for its raw value.
            const long raw = manager.GetDescriptionValue(*signal, text.c_str());
            if (manager.GetStatus() != TAVLO_STATUS_OK) {
                std::fprintf(stderr, "%s: %s=%s: neither a number nor a value description\n",
                             path.c_str(), name.c_str(), text.c_str());
                return kFailed;
            }
            manager.RawToPhysicalValue(static_cast<unsigned int>(raw), *signal, physical);
        }
        const unsigned int result = manager.SetSignalPhysicalValue(data, *signal, *message, physical);
        if (result == TAVLO_SIGNAL_OUT_OF_RANGE) {
            const double minimum = signal->minimum;
            const double maximum = signal->maximum;
            std::fprintf(stderr, "%s: %s=%s is out of range [%.10g .. %.10g]\n", path.c_str(),
                         name.c_str(), text.c_str(), minimum, maximum);
            status = kFailed;
        } else if (result != TAVLO_SIGNAL_OK && result != TAVLO_SIGNAL_NOT_PRESENT) {
            std::fprintf(stderr, "%s: %s=%s cannot be encoded (code %u)\n", path.c_str(),
                         name.c_str(), text.c_str(), result);
            status = kFailed;
        }
    }
    const unsigned int id = message->id;
    const unsigned int dlc = message->dlc;
    const unsigned int bytes = dlc <= sizeof data ? dlc : sizeof data;
    if ((id & kExtendedFlag) != 0) {
        std::printf("%08X#", id & ~kExtendedFlag);
    } else {
        std::printf("%03X#", id);
    }
    for (unsigned int i = 0; i < bytes; ++i) {
        std::printf("%02X", data[i]);
    }
    std::printf("\n");
    return status;
}

const char kDecodeHelp[] =
    "usage: tavlo decode [--format text|json] DB [LOG...]\n"
    "Decodes candump logs (files, or standard input without LOG): the file form\n"
    "'(1600000000.123456) can0 123#11223344' (FD frames with '##'), and the\n"
    "screen form 'can0  123   [4]  11 22 33 44'. Each frame is printed with its\n"
    "time, message name and every signal present as name=value, unit and\n"
    "value description; identifiers the database does not know are marked\n"
    "unknown. Extended identifiers (8 hex digits) are matched against the\n"
    "database's identifiers with bit 31 set. --format json prints one JSON\n"
    "object per frame.\n";

struct Frame {
    std::string time;       // as written, without parentheses; may be empty
    unsigned int id = 0;    // as the database writes it: bit 31 for extended
    std::string idText;     // as written in the log
    unsigned char data[64] = {};
    unsigned int length = 0;
};

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Reads hex digits into id; false when there are none or too many.
bool ParseId(const std::string& text, Frame& frame) {
    if (text.empty() || text.size() > 8) {
        return false;
    }
    unsigned int id = 0;
    for (char c : text) {
        const int digit = HexDigit(c);
        if (digit < 0) {
            return false;
        }
        id = id << 4 | static_cast<unsigned int>(digit);
    }
    frame.idText = text;
    // Eight digits (or a value above 11 bits) name an extended identifier.
    frame.id = text.size() > 3 || id > 0x7FF ? id | kExtendedFlag : id;
    return true;
}

bool ParseBytes(const char* text, bool spaced, Frame& frame) {
    frame.length = 0;
    const char* p = text;
    while (*p != '\0' && *p != '\n' && *p != '\r') {
        if (*p == ' ' || *p == '\t') {
            if (!spaced) {
                return false;
            }
            ++p;
            continue;
        }
        const int high = HexDigit(p[0]);
        const int low = high >= 0 ? HexDigit(p[1]) : -1;
        if (low < 0 || frame.length >= sizeof frame.data) {
            return false;
        }
        frame.data[frame.length++] = static_cast<unsigned char>(high << 4 | low);
        p += 2;
    }
    return true;
}

// One log line into a frame; false when it is not one.
bool ParseLine(const std::string& line, Frame& frame) {
    std::size_t at = 0;
    const auto skipBlanks = [&] {
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) {
            ++at;
        }
    };
    const auto word = [&] {
        skipBlanks();
        const std::size_t start = at;
        while (at < line.size() && line[at] != ' ' && line[at] != '\t' && line[at] != '\r') {
            ++at;
        }
        return line.substr(start, at - start);
    };
    frame.time.clear();
    skipBlanks();
    if (at < line.size() && line[at] == '(') {
        const std::size_t close = line.find(')', at);
        if (close == std::string::npos) {
            return false;
        }
        frame.time = line.substr(at + 1, close - at - 1);
        at = close + 1;
    }
    const std::string interface = word();
    const std::string next = word();
    if (interface.empty() || next.empty()) {
        return false;
    }
    const std::size_t hash = next.find('#');
    if (hash != std::string::npos) {  // file form: ID#DATA, ID##FDATA, ID#R
        if (!ParseId(next.substr(0, hash), frame)) {
            return false;
        }
        std::string data = next.substr(hash + 1);
        if (!data.empty() && data[0] == '#') {
            data = data.size() >= 2 ? data.substr(2) : std::string();  // FD flags nibble
        } else if (!data.empty() && (data[0] == 'R' || data[0] == 'r')) {
            frame.length = 0;
            return true;
        }
        return ParseBytes(data.c_str(), false, frame);
    }
    // Screen form: ID [LEN] BYTES...
    if (!ParseId(next, frame)) {
        return false;
    }
    skipBlanks();
    if (at >= line.size() || line[at] != '[') {
        return false;
    }
    const std::size_t close = line.find(']', at);
    if (close == std::string::npos) {
        return false;
    }
    const unsigned long length = std::strtoul(line.c_str() + at + 1, nullptr, 10);
    if (!ParseBytes(line.c_str() + close + 1, true, frame)) {
        return false;
    }
    return frame.length == length;
}

// A number with the 10 significant digits a database file's scaling
// supports.
std::string Number(double value) {
    char text[40];
    const std::to_chars_result written =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, 10);
    return std::string(text, written.ptr);
}

std::string JsonText(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(c));
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

class Decoder {
public:
    Decoder(const TavloManager& manager, const char* db, bool json)
        : manager_(manager), json_(json) {
        for (auto it = manager.GetMessageIterator(db); !it.AtEnd(); ++it) {
            const unsigned int id = (*it)->id;
            messages_.emplace(id, *it);
        }
    }

    void Print(const Frame& frame, std::string& out) const {
        out.clear();
        const auto found = messages_.find(frame.id);
        const msgblk* message = found != messages_.end() ? found->second : nullptr;
        if (json_) {
            out += "{\"time\":" + (frame.time.empty() ? std::string("null") : frame.time);
            out += ",\"id\":\"" + frame.idText + "\"";
            out += ",\"message\":" + (message != nullptr ? JsonText(MessageName(*message)) : "null");
        } else {
            out += frame.time.empty() ? std::string("-") : "(" + frame.time + ")";
            out += ' ';
            out += frame.idText;
            out += ' ';
            out += message != nullptr ? MessageName(*message) : std::string("unknown");
        }
        if (message == nullptr) {
            std::string bytes;
            for (unsigned int i = 0; i < frame.length; ++i) {
                char pair[4];
                std::snprintf(pair, sizeof pair, "%02X", frame.data[i]);
                bytes += pair;
            }
            out += json_ ? ",\"data\":\"" + bytes + "\"}\n" : "  " + bytes + "\n";
            return;
        }
        if (json_) {
            out += ",\"signals\":[";
        }
        bool first = true;
        for (const sigblk* s = message->signals; s != nullptr; s = s->next) {
            if (!manager_.CheckSignalModeValue(frame.data, *s, *message)) {
                continue;
            }
            double physical = 0;
            manager_.GetSignalPhysicalValue(frame.data, *s, *message, physical);
            unsigned int raw = 0;
            manager_.GetSignalRawValue(frame.data, *s, *message, raw);
            const char* description =
                s->value_descriptions != nullptr
                    ? manager_.GetValueDescription(*s, static_cast<long>(static_cast<int>(raw)))
                    : nullptr;
            if (json_) {
                out += first ? "" : ",";
                out += "{\"name\":" + JsonText(SignalName(*s)) + ",\"value\":" +
                       Number(physical) + ",\"unit\":" + JsonText(s->unit);
                if (description != nullptr) {
                    out += ",\"description\":" + JsonText(description);
                }
                out += "}";
            } else {
                out += "  ";
                out += SignalName(*s);
                out += '=';
                out += Number(physical);
                if (s->unit[0] != '\0') {
                    out += ' ';
                    out += s->unit;
                }
                if (description != nullptr) {
                    out += " \"";
                    out += description;
                    out += '"';
                }
            }
            first = false;
        }
        out += json_ ? "]}\n" : "\n";
    }

private:
    const TavloManager& manager_;
    bool json_;
    std::unordered_map<unsigned int, const msgblk*> messages_;
};

int Decode(const std::vector<std::string>& args) {
    bool json = false;
    std::vector<std::string> files;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--format" && i + 1 < args.size()) {
            const std::string& format = args[++i];
            if (format != "json" && format != "text") {
                std::fprintf(stderr, "tavlo decode: unknown format '%s'\n", format.c_str());
                return kUsage;
            }
            json = format == "json";
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty()) {
        std::fputs(kDecodeHelp, stderr);
        return kUsage;
    }
    const std::string& path = files[0];
    TavloManager manager(static_cast<void*>(nullptr));
    const char* db = nullptr;
    if (!OpenChecked(path, manager, db)) {
        return kFailed;
    }
    const Decoder decoder(manager, db, json);
    std::vector<std::string> logs(files.begin() + 1, files.end());
    if (logs.empty()) {
        logs.push_back("-");
    }
    const bool progress = isatty(fileno(stderr)) != 0;
    int status = kOk;
    std::string line;
    std::string out;
    Frame frame;
    for (const std::string& log : logs) {
        std::FILE* in = log == "-" ? stdin : std::fopen(log.c_str(), "r");
        const std::string name = log == "-" ? "<standard input>" : log;
        if (in == nullptr) {
            std::fprintf(stderr, "%s: cannot be read\n", name.c_str());
            status = kFailed;
            continue;
        }
        char buffer[4096];
        unsigned long lineNumber = 0;
        while (std::fgets(buffer, sizeof buffer, in) != nullptr) {
            ++lineNumber;
            line.assign(buffer);
            while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
                line.pop_back();
            }
            if (line.find_first_not_of(" \t") == std::string::npos) {
                continue;
            }
            if (!ParseLine(line, frame)) {
                std::fprintf(stderr, "%s:%lu: not a CAN frame: %s\n", name.c_str(), lineNumber,
                             line.c_str());
                status = kFailed;
                continue;
            }
            decoder.Print(frame, out);
            std::fwrite(out.data(), 1, out.size(), stdout);
            if (progress && lineNumber % 100000 == 0) {
                std::fprintf(stderr, "\r%s: %lu lines", name.c_str(), lineNumber);
            }
        }
        if (progress && lineNumber >= 100000) {
            std::fprintf(stderr, "\r%s: %lu lines\n", name.c_str(), lineNumber);
        }
        if (in != stdin) {
            std::fclose(in);
        }
    }
    return status;
}

struct Subcommand {
    const char* name;
    int (*run)(const std::vector<std::string>&);
    const char* help;
};

const Subcommand kSubcommands[] = {
    {"check", &Check, kCheckHelp},
    {"info", &Info, kInfoHelp},
    {"format", &Format, kFormatHelp},
    {"show", &Show, kShowHelp},
    {"encode", &Encode, kEncodeHelp},
    {"decode", &Decode, kDecodeHelp},
};

void Usage(std::FILE* to) {
    std::fputs("usage: tavlo SUBCOMMAND [ARGS...]\n\nSubcommands:\n", to);
    std::fputs("  decode DB [LOG...]   decode candump logs (or standard input)\n", to);
    std::fputs("  check DB...          read database files and report their errors\n", to);
    std::fputs("  info DB              version, counts of objects, database attributes\n", to);
    std::fputs("  format IN [OUT]      write a database file in canonical form\n", to);
    std::fputs("  show DB [MESSAGE]    messages and signals; one message's bit layout\n", to);
    std::fputs("  encode DB MESSAGE NAME=VALUE...  a frame from physical values\n", to);
    std::fputs("\n'tavlo SUBCOMMAND --help' tells more.\n", to);
}

}  // namespace

int main(int argc, char** argv) {
    TAVLO_SET_MESSAGEBOX_HOOK(&CollectMessage);
    if (argc < 2) {
        Usage(stderr);
        return kUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        Usage(stdout);
        return kOk;
    }
    for (const Subcommand& subcommand : kSubcommands) {
        if (name != subcommand.name) {
            continue;
        }
        std::vector<std::string> args(argv + 2, argv + argc);
        for (const std::string& arg : args) {
            if (arg == "--help" || arg == "-h") {
                std::fputs(subcommand.help, stdout);
                return kOk;
            }
        }
        return subcommand.run(args);
    }
    std::fprintf(stderr, "tavlo: unknown subcommand '%s'\n\n", name.c_str());
    Usage(stderr);
    return kUsage;
}
