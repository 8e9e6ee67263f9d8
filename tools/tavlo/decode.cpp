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

// What stays the same for a signal from frame to frame.
struct SignalOutput {
    std::string beforeValue;  // "  Name=" or ",{"name":"Name","value":"
    std::string afterValue;   // " unit" or ","unit":"unit""
};

struct MessageOutput {
    std::string name;  // text, or a JSON string
    std::vector<SignalOutput> signals;
    std::size_t room = 0;  // the most its signals' text can take
};

class Decoder {
public:
    Decoder(const DecodedDatabase& db, bool json) : db_(db), json_(json) {
        std::size_t most = 0;
        for (std::size_t m = 0; m < db.records.size(); ++m) {
            messages_.push_back(Prepare(*db.records[m], *db.decoder.Message(m)));
            most = std::max(most, db.decoder.Message(m)->signal_count);
        }
        values_.resize(most);
    }

    // Writes a frame's line: room for its longest is made first.
    void Write(const Frame& frame, OutputBlock& out) {
        const long index = db_.decoder.FindId(frame.id);
        const MessageOutput* message = index >= 0 ? &messages_[static_cast<std::size_t>(index)] : nullptr;
        constexpr std::size_t kFixed = 64 + 2 * 64;  // punctuation, and the data in hex
        char* at = out.Room(kFixed + frame.time.size() + frame.idText.size() +
                            (message != nullptr ? message->name.size() + message->room : 0));
        if (json_) {
            at = Put(at, "{\"time\":");
            at = Put(at, frame.time.empty() ? std::string_view("null") : frame.time);
            at = Put(at, ",\"id\":\"");
            at = Put(at, frame.idText);
            at = Put(at, "\",\"message\":");
            at = Put(at, message != nullptr ? std::string_view(message->name) : "null");
        } else {
            if (frame.time.empty()) {
                *at++ = '-';
            } else {
                *at++ = '(';
                at = Put(at, frame.time);
                *at++ = ')';
            }
            *at++ = ' ';
            at = Put(at, frame.idText);
            *at++ = ' ';
            at = Put(at, message != nullptr ? std::string_view(message->name) : "unknown");
        }
        if (message == nullptr) {
            at = Put(at, json_ ? ",\"data\":\"" : "  ");
            at = PutHex(at, frame);
            out.Written(Put(at, json_ ? "\"}\n" : "\n"));
            return;
        }
        if (frame.remote) {
            out.Written(Put(at, json_ ? ",\"remote\":true,\"signals\":[]}\n" : "  remote\n"));
            return;
        }
        if (json_) {
            at = Put(at, ",\"signals\":[");
        }
        const auto m = static_cast<std::size_t>(index);
        const tavlo_dec_message_t& compiled = *db_.decoder.Message(m);
        std::size_t count = 0;
        tavlo_decoder_decode(db_.decoder.get(), frame.id, frame.data, frame.length, values_.data(),
                             values_.size(), &count);
        for (std::size_t i = 0; i < count; ++i) {
            const tavlo_dec_value_t& value = values_[i];
            const SignalOutput& output = message->signals[value.signal];
            if (json_ && i > 0) {
                *at++ = ',';
            }
            at = Put(at, output.beforeValue);
            at = PutValue(at, compiled.signals[value.signal], value);
            at = Put(at, output.afterValue);
            if (const char* description = db_.decoder.Describe(m, value.signal, value.raw)) {
                if (json_) {
                    at = Put(at, ",\"description\":");
                    at = PutJsonText(at, description);
                } else {
                    at = Put(at, " \"");
                    at = Put(at, description);
                    *at++ = '"';
                }
            }
            if (json_) {
                *at++ = '}';
            }
        }
        out.Written(Put(at, json_ ? "]}\n" : "\n"));
    }

private:
    MessageOutput Prepare(const msgblk& message, const tavlo_dec_message_t& compiled) const {
        MessageOutput prepared{json_ ? JsonText(MessageName(message)) : MessageName(message), {}, 0};
        std::size_t i = 0;
        for (const sigblk* s = message.signals; s != nullptr; s = s->next, ++i) {
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
            // The longest description, as the form writes it.
            std::size_t description = 0;
            const tavlo_dec_signal_t& signal = compiled.signals[i];
            for (std::size_t d = 0; d < signal.description_count; ++d) {
                description = std::max(description, std::strlen(signal.descriptions[d].text));
            }
            prepared.room += output.beforeValue.size() + kNumberRoom + output.afterValue.size() +
                             32 + JsonRoom(description);
            prepared.signals.push_back(std::move(output));
        }
        return prepared;
    }

    static char* PutHex(char* at, const Frame& frame) {
        static const char kHex[] = "0123456789ABCDEF";
        for (unsigned int i = 0; i < frame.length; ++i) {
            *at++ = kHex[frame.data[i] >> 4];
            *at++ = kHex[frame.data[i] & 15];
        }
        return at;
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
    OutputBlock out(stdout);
    // Live input is waited for: what was decoded so far is written out first.
    bool written = true;
    const int status = ReadFrames(
        Arguments(files.begin() + 1, files.end()),
        [&](const Frame& frame) { decoder.Write(frame, out); },
        [&] { written = out.Flush() && std::fflush(stdout) == 0 && written; });
    written = out.Flush() && written;
    return std::fflush(stdout) == 0 && written ? status : kFailed;
}

}  // namespace

const Subcommand kDecode{"decode", "DB [LOG...]", "decode candump logs (or standard input)",
                         &Decode, kDecodeHelp,
                         {{"-f,--format", "FORMAT", "text (the default) or json", {"text", "json"}}}};

}  // namespace tavlo::tool
