// tools/tavlo/decode.cpp: the decode subcommand, candump logs printed frame
// by frame with every signal present as physical value, unit and value
// description. Names and the fixed parts of each output line are prepared
// once per message, so a frame costs its signal decoding and the number
// formatting, and output leaves in large blocks.
#include <array>
#include <unordered_map>
#include <vector>

#include "commands.h"
#include "log.h"

namespace tavlo::tool {
namespace {

const char kDecodeHelp[] =
    "usage: tavlo decode [--format text|json] DB [LOG...]\n"
    "Decodes candump logs (files, or standard input without LOG): the file form\n"
    "'(1600000000.123456) can0 123#11223344' (FD frames with '##'), and the\n"
    "screen form 'can0  123   [4]  11 22 33 44'. Each frame is printed with its\n"
    "time, message name and every signal present as name=value, unit and\n"
    "value description; identifiers the database does not know are marked\n"
    "unknown. Extended identifiers (8 hex digits) are matched against the\n"
    "database's identifiers with bit 31 set. Signals the frame's data does not\n"
    "reach are left out; remote frames are marked remote. --format json prints\n"
    "one JSON object per frame.\n";

constexpr std::size_t kOutputBlock = 1 << 16;

// What stays the same for a signal from frame to frame.
struct SignalOutput {
    const sigblk* signal;
    bool multiplexed;       // present only for its multiplexer value
    bool described;         // has value descriptions
    unsigned int bytes;     // data bytes a frame needs to carry it
    std::string beforeValue;  // "  Name=" or ",{"name":"Name","value":"
    std::string afterValue;   // " unit" or ","unit":"unit""
};

struct MessageOutput {
    const msgblk* message;
    std::string name;  // text, or a JSON string
    std::vector<SignalOutput> signals;
    unsigned int multiplexerBytes;  // data bytes a frame needs to carry the multiplexer
};

class Decoder {
public:
    Decoder(const TavloManager& manager, const char* db, bool json)
        : manager_(manager), json_(json) {
        for (auto it = manager.GetMessageIterator(db); !it.AtEnd(); ++it) {
            const unsigned int id = (*it)->id;
            if (byId_.count(id) == 0) {  // the first of a duplicated identifier
                byId_.emplace(id, Prepare(**it));
            }
        }
        standard_.fill(nullptr);
        for (const auto& [id, message] : byId_) {
            if (id < standard_.size()) {
                standard_[id] = &message;
            }
        }
    }

    void Append(const Frame& frame, std::string& out) const {
        const MessageOutput* message = Find(frame.id);
        if (json_) {
            out += "{\"time\":";
            out += frame.time.empty() ? std::string_view("null") : frame.time;
            out += ",\"id\":\"";
            out += frame.idText;
            out += "\",\"message\":";
            out += message != nullptr ? std::string_view(message->name) : "null";
        } else {
            if (frame.time.empty()) {
                out += '-';
            } else {
                out += '(';
                out += frame.time;
                out += ')';
            }
            out += ' ';
            out += frame.idText;
            out += ' ';
            out += message != nullptr ? std::string_view(message->name) : "unknown";
        }
        if (message == nullptr) {
            out += json_ ? ",\"data\":\"" : "  ";
            AppendHex(frame, out);
            out += json_ ? "\"}\n" : "\n";
            return;
        }
        if (frame.remote) {
            out += json_ ? ",\"remote\":true,\"signals\":[]}\n" : "  remote\n";
            return;
        }
        if (json_) {
            out += ",\"signals\":[";
        }
        bool first = true;
        for (const SignalOutput& output : message->signals) {
            const sigblk& signal = *output.signal;
            if (output.bytes > frame.length ||
                (output.multiplexed &&
                 (message->multiplexerBytes > frame.length ||
                  !manager_.CheckSignalModeValue(frame.data, signal, *message->message)))) {
                continue;
            }
            double physical = 0;
            manager_.GetSignalPhysicalValue(frame.data, signal, *message->message, physical);
            if (json_ && !first) {
                out += ',';
            }
            first = false;
            out += output.beforeValue;
            AppendNumber(out, physical);
            out += output.afterValue;
            if (output.described) {
                AppendDescription(frame, output, *message->message, out);
            }
            if (json_) {
                out += '}';
            }
        }
        out += json_ ? "]}\n" : "\n";
    }

private:
    const MessageOutput* Find(unsigned int id) const {
        if (id < standard_.size()) {
            return standard_[id];
        }
        const auto found = byId_.find(id);
        return found != byId_.end() ? &found->second : nullptr;
    }

    MessageOutput Prepare(const msgblk& message) const {
        MessageOutput prepared{&message, json_ ? JsonText(MessageName(message)) : MessageName(message),
                               {}, 0};
        for (const sigblk* s = message.signals; s != nullptr; s = s->next) {
            const unsigned int flags = s->flags;
            if ((flags & TAVLO_SIG_MODE) != 0) {
                prepared.multiplexerBytes = BytesNeeded(*s);
            }
            SignalOutput output{s, (flags & TAVLO_SIG_MULTIPLEXED) != 0,
                                s->value_descriptions != nullptr, BytesNeeded(*s), {}, {}};
            if (json_) {
                output.beforeValue = "{\"name\":" + JsonText(SignalName(*s)) + ",\"value\":";
                output.afterValue = ",\"unit\":" + JsonText(s->unit);
            } else {
                output.beforeValue = "  " + SignalName(*s) + "=";
                if (s->unit[0] != '\0') {
                    output.afterValue = std::string(" ") + s->unit;
                }
            }
            prepared.signals.push_back(std::move(output));
        }
        return prepared;
    }

    void AppendDescription(const Frame& frame, const SignalOutput& output, const msgblk& message,
                           std::string& out) const {
        unsigned int raw = 0;
        manager_.GetSignalRawValue(frame.data, *output.signal, message, raw);
        // Descriptions are kept under the low 32 bits of the raw value, read
        // as a signed number.
        const char* description =
            manager_.GetValueDescription(*output.signal, static_cast<long>(static_cast<int>(raw)));
        if (description == nullptr) {
            return;
        }
        if (json_) {
            out += ",\"description\":";
            AppendJsonText(out, description);
        } else {
            out += " \"";
            out += description;
            out += '"';
        }
    }

    static void AppendHex(const Frame& frame, std::string& out) {
        static const char kHex[] = "0123456789ABCDEF";
        for (unsigned int i = 0; i < frame.length; ++i) {
            out += kHex[frame.data[i] >> 4];
            out += kHex[frame.data[i] & 15];
        }
    }

    const TavloManager& manager_;
    bool json_;
    std::unordered_map<unsigned int, MessageOutput> byId_;
    std::array<const MessageOutput*, 0x800> standard_;  // standard identifiers, directly
};

int Decode(const Arguments& args) {
    bool json = false;
    Arguments files;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--format") {
            const std::string format = i + 1 < args.size() ? args[++i] : "";
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
    TavloManager manager(static_cast<void*>(nullptr));
    const char* db = nullptr;
    if (!OpenChecked(files[0], manager, db)) {
        return kFailed;
    }
    const Decoder decoder(manager, db, json);
    std::string out;
    out.reserve(2 * kOutputBlock);
    const auto flush = [&out] {
        std::fwrite(out.data(), 1, out.size(), stdout);
        out.clear();
    };
    const int status = ReadFrames(Arguments(files.begin() + 1, files.end()), [&](const Frame& frame) {
        decoder.Append(frame, out);
        if (out.size() >= kOutputBlock) {
            flush();
        }
    });
    flush();
    return std::fflush(stdout) == 0 ? status : kFailed;
}

}  // namespace

const Subcommand kDecode{"decode", "DB [LOG...]", "decode candump logs (or standard input)",
                         &Decode, kDecodeHelp};

}  // namespace tavlo::tool
