// tools/tavlo/decode.cpp: the decode subcommand, candump logs printed frame
// by frame with every signal present as physical value, unit and value
// description, through the compiled decoder (64-bit values exact, FD
// frames, extended multiplexing). Names and the fixed parts of each output
// line are prepared once per message, so a frame costs its signal decoding
// and the number formatting, and output leaves in large blocks.
#include <algorithm>
#include <vector>

#include "commands.h"
#include "decoding.h"
#include "log.h"

namespace tavlo::tool {
namespace {

const char kDecodeHelp[] =
    "usage: tavlo decode [OPTIONS] DB [LOG...]\n"
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
    std::string beforeValue;  // "  Name=" or ",{"name":"Name","value":"
    std::string afterValue;   // " unit" or ","unit":"unit""
};

struct MessageOutput {
    std::string name;  // text, or a JSON string
    std::vector<SignalOutput> signals;
};

class Decoder {
public:
    Decoder(const DecodedDatabase& db, bool json) : db_(db), json_(json) {
        std::size_t most = 0;
        for (std::size_t m = 0; m < db.records.size(); ++m) {
            messages_.push_back(Prepare(*db.records[m]));
            most = std::max(most, db.decoder.Message(m)->signal_count);
        }
        values_.resize(most);
    }

    void Append(const Frame& frame, std::string& out) {
        const long index = db_.decoder.FindId(frame.id);
        const MessageOutput* message = index >= 0 ? &messages_[static_cast<std::size_t>(index)] : nullptr;
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
        const auto m = static_cast<std::size_t>(index);
        const tavlo_dec_message_t& compiled = *db_.decoder.Message(m);
        std::size_t count = 0;
        tavlo_decoder_decode_message(db_.decoder.get(), m, frame.data, frame.length, values_.data(),
                                     values_.size(), &count);
        for (std::size_t i = 0; i < count; ++i) {
            const tavlo_dec_value_t& value = values_[i];
            const SignalOutput& output = message->signals[value.signal];
            if (json_ && i > 0) {
                out += ',';
            }
            out += output.beforeValue;
            AppendValue(out, compiled.signals[value.signal], value);
            out += output.afterValue;
            if (const char* description = db_.decoder.Describe(m, value.signal, value.raw)) {
                if (json_) {
                    out += ",\"description\":";
                    AppendJsonText(out, description);
                } else {
                    out += " \"";
                    out += description;
                    out += '"';
                }
            }
            if (json_) {
                out += '}';
            }
        }
        out += json_ ? "]}\n" : "\n";
    }

private:
    MessageOutput Prepare(const msgblk& message) const {
        MessageOutput prepared{json_ ? JsonText(MessageName(message)) : MessageName(message), {}};
        for (const sigblk* s = message.signals; s != nullptr; s = s->next) {
            SignalOutput output;
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

    static void AppendHex(const Frame& frame, std::string& out) {
        static const char kHex[] = "0123456789ABCDEF";
        for (unsigned int i = 0; i < frame.length; ++i) {
            out += kHex[frame.data[i] >> 4];
            out += kHex[frame.data[i] & 15];
        }
    }

    const DecodedDatabase& db_;
    bool json_;
    std::vector<MessageOutput> messages_;  // by the decoder's message index
    std::vector<tavlo_dec_value_t> values_;
};

int Decode(const Invocation& line) {
    const bool json = line.Value("--format", "text") == "json";
    const Arguments& files = line.operands;
    if (files.empty()) {
        return line.Misused();
    }
    DecodedDatabase db;
    if (!LoadDecoder(files[0], db)) {
        return kFailed;
    }
    Decoder decoder(db, json);
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
                         &Decode, kDecodeHelp,
                         {{"-f,--format", "FORMAT", "text (the default) or json", {"text", "json"}}}};

}  // namespace tavlo::tool
