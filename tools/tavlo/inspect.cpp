// tools/tavlo/inspect.cpp: the subcommands that look at a database file:
// check (its first error), info (counts and attributes), format (canonical
// form) and show (messages, signals and one message's bit layout).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"

namespace tavlo::tool {
namespace {

const char kCheckHelp[] =
    "usage: tavlo check [OPTIONS] DB...\n"
    "Loads each database file strictly and reports its error and warnings as\n"
    "FILE:LINE:COLUMN: message (each warning once, with how many more there\n"
    "are). With --tolerant, loads as the other subcommands do and lists every\n"
    "statement it had to skip or repair. Exit status 1 if any failed.\n";

int Check(const Invocation& line) {
    if (line.operands.empty()) {
        return line.Misused();
    }
    int status = kOk;
    for (const std::string& path : line.operands) {
        tavlo_root_t root{};
        const bool read = Read(path, root, Strict(), !Strict());
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
    "usage: tavlo info [OPTIONS] DB\n"
    "Prints the version string, the number of objects of every kind and the\n"
    "database's own attribute values.\n";

int Info(const Invocation& line) {
    const Arguments& args = line.operands;
    if (args.size() != 1) {
        return line.Misused();
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
    "usage: tavlo format [OPTIONS] IN [OUT]\n"
    "       tavlo format [OPTIONS] --in-place IN\n"
    "Reads a database file and writes it in canonical form, followed by the\n"
    "statements the library keeps as text (such as SG_MUL_VAL_): to OUT, to\n"
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

int Format(const Invocation& line) {
    const bool inPlace = line.Given("--in-place");
    const Arguments& files = line.operands;
    if (files.empty() || files.size() > 2 || (inPlace && files.size() != 1)) {
        return line.Misused();
    }
    const std::string& in = files[0];
    if (files.size() == 2 && files[1] == in) {
        std::fprintf(stderr, "tavlo format: %s: writing a file over itself needs --in-place\n",
                     in.c_str());
        return kUsage;
    }
    tavlo_root_t root{};
    KeptStatements kept;
    if (!Read(in, root, Strict(), false, &kept)) {
        TAVLO_FREE_ROOT(&root);
        return kFailed;
    }
    const bool toStdout = files.size() == 1 && !inPlace;
    const std::string out = inPlace ? in : toStdout ? in + ".tavlo-format.tmp" : files[1];
    SetMessageFile(out);
    const unsigned int written = tavlo_write_kept(out.c_str(), &root, kept.statements.data(), kept.statements.size());
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
    "usage: tavlo show [OPTIONS] DB [MESSAGE]\n"
    "Lists the messages with identifier, length, transmitter and signals\n"
    "(start bit, length, byte order, sign, factor, offset, range, unit,\n"
    "receivers, multiplexing). For one message (by name or identifier) it\n"
    "also draws which bits of the frame belong to which signal.\n";

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
// significant bit first; signals are lettered in their order. A multiplexed
// message gets one drawing per multiplexer value, with the signals present
// for it; bits claimed by two signals of one drawing are marked '*'.
void DrawLayout(const msgblk& message) {
    const unsigned int dlc = message.dlc;
    const unsigned int bytes = dlc > 0 ? dlc : 8;
    std::vector<const sigblk*> signals;
    std::vector<unsigned int> pages;  // multiplexer values, in order of appearance
    for (const sigblk* s = message.signals; s != nullptr; s = s->next) {
        signals.push_back(s);
        const unsigned int flags = s->flags;
        const unsigned int mode = s->mode_value;
        if ((flags & TAVLO_SIG_MULTIPLEXED) != 0 &&
            std::find(pages.begin(), pages.end(), mode) == pages.end()) {
            pages.push_back(mode);
        }
    }
    const auto letterOf = [](std::size_t index) {
        return index < 26 ? static_cast<char>('A' + index)
               : index < 52 ? static_cast<char>('a' + index - 26)
                            : '#';
    };
    bool shared = false;
    const auto draw = [&](bool allPages, unsigned int page) {
        std::vector<char> owner(bytes * 8, '.');
        for (std::size_t index = 0; index < signals.size(); ++index) {
            const sigblk& signal = *signals[index];
            const unsigned int flags = signal.flags;
            const unsigned int mode = signal.mode_value;
            if (!allPages && (flags & TAVLO_SIG_MULTIPLEXED) != 0 && mode != page) {
                continue;
            }
            const unsigned int length = signal.length;
            for (unsigned int i = 0; i < length; ++i) {
                const int bit = FrameBit(signal, i);
                if (bit < 0 || static_cast<unsigned int>(bit) >= owner.size()) {
                    continue;
                }
                shared = shared || owner[bit] != '.';
                owner[bit] = owner[bit] == '.' ? letterOf(index) : '*';
            }
        }
        std::printf("         bit 7 6 5 4 3 2 1 0\n");
        for (unsigned int byte = 0; byte < bytes; ++byte) {
            std::printf("  byte %2u     ", byte);
            for (int bit = 7; bit >= 0; --bit) {
                std::printf("%c%s", owner[byte * 8 + bit], bit > 0 ? " " : "\n");
            }
        }
    };
    if (pages.empty()) {
        std::printf("\n");
        draw(true, 0);
    }
    for (const unsigned int page : pages) {
        std::printf("\n  multiplexer = %u:\n", page);
        draw(false, page);
    }
    std::printf("\n");
    for (std::size_t index = 0; index < signals.size(); ++index) {
        std::printf("  %c = %s\n", letterOf(index), SignalName(*signals[index]).c_str());
    }
    if (shared) {
        std::printf("  * = more than one signal\n");
    }
}

int Show(const Invocation& line) {
    const Arguments& args = line.operands;
    if (args.empty() || args.size() > 2) {
        return line.Misused();
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

}  // namespace

const Subcommand kCheck{"check", "DB...", "read database files and report their errors", &Check,
                        kCheckHelp, {}, true};
const Subcommand kInfo{"info", "DB", "version, counts of objects, database attributes", &Info,
                       kInfoHelp, {}};
const Subcommand kFormat{"format", "IN [OUT]", "write a database file in canonical form",
                         &Format, kFormatHelp,
                         {{"-i,--in-place", nullptr, "write back over IN", {}}}};
const Subcommand kShow{"show", "DB [MESSAGE]", "messages and signals; one message's bit layout",
                       &Show, kShowHelp, {}};

}  // namespace tavlo::tool
