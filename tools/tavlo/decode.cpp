// tools/tavlo/decode.cpp: the decode subcommand, logs or a live bus printed
// frame by frame with every signal present as physical value, unit and value
// description, through the compiled decoder (64-bit values exact, FD
// frames, extended multiplexing), as text, JSON or CSV. Names and the fixed
// parts of each output line are prepared once per message, so a frame costs
// its signal decoding and the number formatting, and output leaves in large
// blocks (and at once whenever live input waits).
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "commands.h"
#include "decoding.h"
#include "log.h"

namespace tavlo::tool {
namespace {

const char kDecodeHelp[] =
    "usage: tavlo decode [OPTIONS] DB [LOG...]\n"
    "       tavlo decode [OPTIONS] DB --bus INTERFACE\n"
    "Decodes CAN logs (files, or standard input without LOG) or, on Linux, the\n"
    "frames a SocketCAN interface receives. Logs are candump logs (the file form\n"
    "'(1600000000.123456) can0 123#11223344', FD frames with '##', and the screen\n"
    "form 'can0  123   [4]  11 22 33 44'), Vector ASC and BLF, and PEAK TRC, told\n"
    "by their content. Each frame is printed with its time, channel, identifier\n"
    "as the log writes it, message name and every signal present as name=value,\n"
    "unit and value description ('-' for a time or channel the log does not\n"
    "give); identifiers the database does not know are marked unknown with\n"
    "their data, remote frames remote, error frames error with their data.\n"
    "Extended identifiers are matched against the database's identifiers with\n"
    "bit 31 set. Signals the frame's data does not reach are left out.\n"
    "\n"
    "--format json prints one JSON object per frame; --format csv one row per\n"
    "signal value (time, channel, id, message, signal, raw, physical, unit,\n"
    "description) under a header line. --message and --signal (each may be\n"
    "given many times) print only the frames of those messages, and of --signal\n"
    "messages only those signals (a frame with none of them is left out). A\n"
    "message is named by its name or identifier (0x123); a signal by NAME, or\n"
    "MESSAGE.NAME where several messages have it, '*' standing for any\n"
    "characters. Live input (a pipe, a terminal, a bus) is written out frame by\n"
    "frame as it arrives.\n";

enum class Format { kText, kJson, kCsv };

// How a signal's value is written: as PutValue writes it, an integer
// without scaling exactly, else the physical value, from its exact decimal
// where the scaling is decimal; or, for a short integer signal, its text
// taken from a table of every raw value's, made once (kTable).
enum class ValueForm : std::uint8_t { kSigned, kUnsigned, kDecimal, kNumber, kTable };

// A value's text in a table: its characters, then their count.
struct alignas(16) ValueText {
    char text[15];
    std::uint8_t size;
};
// Raw values of the signals given tables, at most: the tables of all
// signals of the same kind, length and scaling are one, so these few
// tables cover most signals and stay in the processor's cache.
constexpr unsigned int kMostTableBits = 12;
constexpr std::size_t kMostValueTexts = std::size_t{1} << 14;

// What stays the same for a signal from frame to frame, in 32 bytes: a
// frame's signals are read one after the other, from a message chosen by
// the frame, so few cache lines a message matter. Its texts are in the
// decoder's text block, the message's together.
struct SignalOutput {
    std::int64_t factor = 0;   // its DecimalScale, when decimal; with kTable its first
    std::int64_t offset = 0;   //   value text, and (CSV) its first raw value text
    std::uint32_t text = 0;    // "  Name=", ",{"name":"Name","value":" or "Message,Name,", then
    std::uint16_t before = 0;  //   (after `before` characters) " unit", ","unit":"unit"" or
    std::uint16_t after = 0;   //   ",unit,"
    std::uint32_t describe = 0;  // 1 + its place in the decoder's Describes, or 0: none
    ValueForm form = ValueForm::kNumber;
    std::uint8_t decimals = 0;  // with kTable: the raw value's bits
    bool integer = false;       // with kTable: the raw value is signed
    bool shown = true;
};

// How a signal's value descriptions are found: an integer signal's as the
// form writes them, by raw value from low: `size` entries from `table` in
// the decoder's tables, each the text's place in the text block (shifted
// left 8) and its length, or 0 for a value without one. size 0: the
// library's look-up.
struct Describes {
    std::uint32_t table = 0;
    std::uint32_t size = 0;
    std::int64_t low = 0;
};

struct MessageOutput {
    std::uint32_t name = 0;  // text, or a JSON string, in the text block
    std::uint32_t nameSize = 0;
    std::size_t room = 0;  // the most its signals' text can take, but CSV's row starts
    std::uint32_t first = 0;  // its signals in the decoder's signal outputs
    std::uint32_t count = 0;
    bool shown = true;
    bool allSignals = true;  // every signal is shown
};

// A CSV field: as it is, or in double quotes (doubled inside) when it holds
// a comma, a quote or a line end. At most 2 + 2 * size characters.
struct CsvSpecials {
    bool special[256] = {};
    constexpr CsvSpecials() {
        special[static_cast<unsigned char>(',')] = true;
        special[static_cast<unsigned char>('"')] = true;
        special[static_cast<unsigned char>('\r')] = true;
        special[static_cast<unsigned char>('\n')] = true;
    }
};
constexpr CsvSpecials kCsvSpecials;

// Whether [from, end) holds a comma, a quote or a line end; with SSE2,
// sixteen characters at a time, reading up to 15 bytes past end (which
// must be readable) without counting them.
bool CsvSpecialIn(const char* from, const char* end) {
#if defined(__SSE2__)
    const __m128i comma = _mm_set1_epi8(',');
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i carriageReturn = _mm_set1_epi8('\r');
    const __m128i lineFeed = _mm_set1_epi8('\n');
    for (; from < end; from += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        const __m128i found =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, comma), _mm_cmpeq_epi8(block, quote)),
                         _mm_or_si128(_mm_cmpeq_epi8(block, carriageReturn),
                                      _mm_cmpeq_epi8(block, lineFeed)));
        auto bits = static_cast<unsigned int>(_mm_movemask_epi8(found));
        if (end - from < 16) {
            bits &= (1u << (end - from)) - 1;
        }
        if (bits != 0) {
            return true;
        }
    }
    return false;
#else
    bool special = false;
    for (; from < end; ++from) {
        special |= kCsvSpecials.special[static_cast<unsigned char>(*from)];
    }
    return special;
#endif
}

char* PutCsvField(char* at, std::string_view text) {
    bool special = false;
    for (const char c : text) {
        special |= kCsvSpecials.special[static_cast<unsigned char>(c)];
    }
    if (!special) {
        return Put(at, text);
    }
    *at++ = '"';
    for (const char c : text) {
        if (c == '"') {
            *at++ = '"';
        }
        *at++ = c;
    }
    *at++ = '"';
    return at;
}

std::string CsvField(std::string_view text) {
    std::string field(2 + 2 * text.size(), '\0');
    field.resize(static_cast<std::size_t>(PutCsvField(field.data(), text) - field.data()));
    return field;
}

// A raw value as its kind reads it: an integer exactly, a float's number.
char* PutRaw(char* at, const tavlo_dec_signal_t& signal, std::uint64_t raw) {
    switch (signal.kind) {
    case TAVLO_DEC_SIGNED:
        return std::to_chars(at, at + kNumberRoom, static_cast<std::int64_t>(raw)).ptr;
    case TAVLO_DEC_FLOAT: {
        const auto bits = static_cast<std::uint32_t>(raw);
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return PutNumber(at, value);
    }
    case TAVLO_DEC_DOUBLE: {
        double value;
        std::memcpy(&value, &raw, sizeof value);
        return PutNumber(at, value);
    }
    default:
        return std::to_chars(at, at + kNumberRoom, raw).ptr;
    }
}

class Decoder {
public:
    Decoder(const DecodedDatabase& db, Format format) : db_(db), format_(format) {
        std::size_t most = 0;
        for (std::size_t m = 0; m < db.records.size(); ++m) {
            messages_.push_back(Prepare(*db.records[m], *db.decoder.Message(m)));
            most = std::max(most, db.decoder.Message(m)->signal_count);
        }
        texts_.append(kOverRoom, '\0');  // for PutOver
        values_.resize(most);
    }

    // Only the frames of these messages and of the messages of these
    // signals, and of the latter only these signals.
    void Restrict(const std::vector<long>& messages, const std::vector<SignalRef>& signals) {
        filtered_ = true;
        for (MessageOutput& message : messages_) {
            message.shown = false;
        }
        for (const long m : messages) {
            messages_[static_cast<std::size_t>(m)].shown = true;
        }
        for (const SignalRef& ref : signals) {
            MessageOutput& message = messages_[ref.message];
            if (!message.shown) {  // of --signal only: its signals named
                message.shown = true;
                message.allSignals = false;
                for (std::uint32_t i = 0; i < message.count; ++i) {
                    signals_[message.first + i].shown = false;
                }
            }
            signals_[message.first + ref.signal].shown = true;
        }
    }

    void Start(OutputBlock& out) const {
        if (format_ == Format::kCsv) {
            out.Written(Put(out.Room(128),
                            "time,channel,id,message,signal,raw,physical,unit,description\n"));
        }
    }

    // Writes a frame's lines: room for the longest it can make is made first.
    void Write(const Frame& frame, OutputBlock& out) {
        const long index = frame.error ? -1 : db_.decoder.FindId(frame.id);
        const MessageOutput* message =
            index >= 0 ? &messages_[static_cast<std::size_t>(index)] : nullptr;
        if (filtered_ && (message == nullptr || !message->shown)) {
            return;
        }
        if (format_ == Format::kCsv) {
            if (message != nullptr && !frame.remote) {
                WriteRows(frame, static_cast<std::size_t>(index), *message, out);
            }
            return;
        }
        const bool json = format_ == Format::kJson;
        constexpr std::size_t kFixed = 96 + 2 * 64;  // punctuation, and the data in hex
        char* at = out.Room(kFixed + frame.time.size() + JsonRoom(frame.channel.size()) +
                            frame.idText.size() + (message != nullptr ? message->room : 0));
        if (json) {
            at = Put(at, "{\"time\":");
            at = PutShort(at, frame.time.empty() ? std::string_view("null") : frame.time);
            at = Put(at, ",\"channel\":");
            at = frame.channel.empty() ? Put(at, "null") : PutJsonText(at, frame.channel);
            at = Put(at, ",\"id\":\"");
            at = PutShort(at, frame.idText);
            at = Put(at, frame.error ? "\",\"error\":true" : "\",\"message\":");
            if (!frame.error) {
                at = message != nullptr ? PutOver(at, texts_.data() + message->name, message->nameSize)
                                        : Put(at, "null");
            }
        } else {
            if (frame.time.empty()) {
                *at++ = '-';
            } else {
                *at++ = '(';
                at = PutShort(at, frame.time);
                *at++ = ')';
            }
            *at++ = ' ';
            at = PutShort(at, frame.channel.empty() ? std::string_view("-") : frame.channel);
            *at++ = ' ';
            at = PutShort(at, frame.idText);
            *at++ = ' ';
            at = frame.error        ? Put(at, "error")
                 : message != nullptr ? PutOver(at, texts_.data() + message->name, message->nameSize)
                                      : Put(at, "unknown");
        }
        if (message == nullptr) {
            at = Put(at, json ? ",\"data\":\"" : "  ");
            at = PutHex(at, frame);
            out.Written(Put(at, json ? "\"}\n" : "\n"));
            return;
        }
        if (frame.remote) {
            out.Written(Put(at, json ? ",\"remote\":true,\"signals\":[]}\n" : "  remote\n"));
            return;
        }
        if (json) {
            at = Put(at, ",\"signals\":");
        }
        // A JSON signal's object starts with a comma, which the first one's
        // gives way to the array's bracket, and ends in its text after the
        // value unless a description comes first.
        char* const signals = at;
        const auto m = static_cast<std::size_t>(index);
        const std::size_t count = Decode(frame);
        // The arrays the loop reads are found once: its writes through char
        // pointers could change anything, as far as the compiler knows.
        const Texts texts = TextsNow();
        const SignalOutput* const outputs = signals_.data() + message->first;
        const tavlo_dec_value_t* const values = values_.data();
        const bool all = message->allSignals;
        for (std::size_t i = 0; i < count; ++i) {
            const tavlo_dec_value_t& value = values[i];
            const SignalOutput& output = outputs[value.signal];
            if (!all && !output.shown) {
                continue;
            }
            at = PutSignal(at, texts, output, value);
            if (output.describe != 0) {
                at = PutDescription(at, m, describes_[output.describe - 1], value);
                if (json) {
                    *at++ = '}';
                }
            }
        }
        if (at == signals && !message->allSignals) {
            return;  // none of the signals asked for is in this frame: no line
        }
        if (json) {
            if (at == signals) {
                *at++ = '[';
            } else {
                *signals = '[';
            }
        }
        out.Written(Put(at, json ? "]}\n" : "\n"));
    }

private:
    // A CSV row per signal shown: the frame's time, channel and identifier
    // are made once and copied to the start of each.
    void WriteRows(const Frame& frame, std::size_t m, const MessageOutput& message,
                   OutputBlock& out) {
        char start[3 * 122 + 3 + kOverRoom];  // three fields of at most 122, their commas
        // As they are, unless one must be quoted: the three are looked at in
        // one pass, their commas put in after.
        char* end = PutShort(start, frame.time.substr(0, 60));
        char* const firstComma = end++;
        end = PutShort(end, frame.channel.substr(0, 60));
        char* const secondComma = end++;
        end = PutShort(end, frame.idText.substr(0, 60));
        *firstComma = ' ';
        *secondComma = ' ';
        std::memset(end, 0, 16);  // read past the end by the check, unused
        if (!CsvSpecialIn(start, end)) {
            *firstComma = ',';
            *secondComma = ',';
        } else {
            end = PutCsvField(start, frame.time.substr(0, 60));
            *end++ = ',';
            end = PutCsvField(end, frame.channel.substr(0, 60));
            *end++ = ',';
            end = PutCsvField(end, frame.idText.substr(0, 60));
        }
        *end++ = ',';
        const std::string_view rowStart(start, static_cast<std::size_t>(end - start));
        const std::size_t count = Decode(frame);
        char* at = out.Room(message.room + count * rowStart.size());
        const tavlo_dec_message_t& compiled = *db_.decoder.Message(m);
        const Texts texts = TextsNow();  // as in Write
        const SignalOutput* const outputs = signals_.data() + message.first;
        const tavlo_dec_value_t* const values = values_.data();
        const bool all = message.allSignals;
        for (std::size_t i = 0; i < count; ++i) {
            const tavlo_dec_value_t& value = values[i];
            const SignalOutput& output = outputs[value.signal];
            if (!all && !output.shown) {
                continue;
            }
            at = PutOver(at, rowStart.data(), rowStart.size());
            const char* text = texts.block + output.text;
            at = PutOver(at, text, output.before);
            at = output.form == ValueForm::kTable
                     ? PutTableText(at, texts, output, output.offset, value)
                     : PutRaw(at, compiled.signals[value.signal], value.raw);
            *at++ = ',';
            at = PutPhysical(at, texts, output, value);
            at = PutOver(at, text + output.before, output.after);
            if (output.describe != 0) {
                at = PutDescription(at, m, describes_[output.describe - 1], value);
            }
            *at++ = '\n';
        }
        out.Written(at);
    }

    std::size_t Decode(const Frame& frame) {
        std::size_t count = 0;
        tavlo_decoder_decode(db_.decoder.get(), frame.id, frame.data, frame.length, values_.data(),
                             values_.size(), &count);
        return count;
    }

    // Where the text block and the value texts are, while they do not grow.
    struct Texts {
        const char* block;
        const ValueText* values;
    };
    Texts TextsNow() const { return Texts{texts_.data(), valueTexts_.data()}; }

    // The value and the texts around it.
    static char* PutSignal(char* at, const Texts& texts, const SignalOutput& output,
                           const tavlo_dec_value_t& value) {
        const char* text = texts.block + output.text;
        at = PutOver(at, text, output.before);
        at = PutPhysical(at, texts, output, value);
        return PutOver(at, text + output.before, output.after);
    }

    static char* PutPhysical(char* at, const Texts& texts, const SignalOutput& output,
                             const tavlo_dec_value_t& value) {
        if (output.form == ValueForm::kTable) {
            return PutTableText(at, texts, output, output.factor, value);
        }
        return PutComputed(at, output, value);
    }

    // The text of a value from the table at first (kTable).
    static char* PutTableText(char* at, const Texts& texts, const SignalOutput& output,
                              std::int64_t first, const tavlo_dec_value_t& value) {
        // Signed raw values count from the lowest, -2^(bits - 1).
        const std::uint64_t index =
            value.raw + (static_cast<std::uint64_t>(output.integer) << (output.decimals - 1));
        if (index >> output.decimals != 0) {  // never from the decoder
            return PutNumber(at, value.physical);
        }
        const ValueText& entry = texts.values[static_cast<std::size_t>(first) + index];
        std::memcpy(at, entry.text, sizeof entry);
        return at + entry.size;
    }

    static char* PutComputed(char* at, const SignalOutput& output, const tavlo_dec_value_t& value) {
        switch (output.form) {
        case ValueForm::kSigned:
            return std::to_chars(at, at + kNumberRoom, static_cast<std::int64_t>(value.raw)).ptr;
        case ValueForm::kUnsigned:
            return std::to_chars(at, at + kNumberRoom, value.raw).ptr;
        case ValueForm::kDecimal:
            return PutScaled(at, DecimalScale{output.factor, output.offset, output.decimals,
                                              output.integer},
                             static_cast<std::int64_t>(value.raw), value.physical);
        case ValueForm::kNumber:
        case ValueForm::kTable:
            break;
        }
        return PutNumber(at, value.physical);
    }

    // The value's description as the form writes it, if it has one: from the
    // signal's table, or the library's look-up.
    char* PutDescription(char* at, std::size_t m, const Describes& describes,
                         const tavlo_dec_value_t& value) const {
        if (describes.size != 0) {
            const std::uint64_t index = value.raw - static_cast<std::uint64_t>(describes.low);
            const std::uint32_t entry = index < describes.size ? tables_[describes.table + index] : 0;
            return PutOver(at, texts_.data() + (entry >> 8), entry & 0xFF);
        }
        const char* description = db_.decoder.Describe(m, value.signal, value.raw);
        if (description == nullptr) {
            return at;
        }
        switch (format_) {
        case Format::kJson:
            return PutJsonText(Put(at, ",\"description\":"), description);
        case Format::kCsv:
            return PutCsvField(at, description);
        case Format::kText:
            break;
        }
        at = Put(Put(at, " \""), description);
        *at++ = '"';
        return at;
    }

    // A table of an integer signal's descriptions (see Describes), when
    // their values are few and close together and each text is short; their
    // values are those the library's look-up takes (at most 32 bits).
    void Tabulate(const tavlo_dec_signal_t& signal, Describes& output) {
        constexpr std::int64_t kMostEntries = 1024;
        const tavlo_dec_description_t* first = signal.descriptions;
        const tavlo_dec_description_t* last = first + signal.description_count - 1;
        const bool isSigned = signal.kind == TAVLO_DEC_SIGNED;
        const std::int64_t lowest = isSigned ? INT32_MIN : 0;
        const std::int64_t highest = isSigned ? INT32_MAX : std::int64_t{0xFFFFFFFF};
        if ((signal.kind != TAVLO_DEC_SIGNED && signal.kind != TAVLO_DEC_UNSIGNED) ||
            first->value < lowest || last->value > highest ||
            last->value - first->value >= kMostEntries) {
            return;
        }
        std::vector<std::uint32_t> entries(static_cast<std::size_t>(last->value - first->value + 1));
        for (const tavlo_dec_description_t* d = first; d <= last; ++d) {
            std::string text;
            switch (format_) {
            case Format::kJson:
                text = ",\"description\":" + JsonText(d->text);
                break;
            case Format::kCsv:
                text = CsvField(d->text);
                break;
            case Format::kText:
                text = std::string(" \"") + d->text + "\"";
                break;
            }
            std::uint32_t& entry = entries[static_cast<std::size_t>(d->value - first->value)];
            if (text.size() > 0xFF || texts_.size() > 0xFFFFFF) {
                return;  // the library's look-up, then
            }
            if (entry == 0) {  // the first of a value, as the look-up finds it
                entry = Keep(text) << 8 | static_cast<std::uint32_t>(text.size());
            }
        }
        output.table = static_cast<std::uint32_t>(tables_.size());
        output.size = static_cast<std::uint32_t>(entries.size());
        output.low = first->value;
        tables_.insert(tables_.end(), entries.begin(), entries.end());
    }

    // Gives an integer signal of at most kMostTableBits bits the tables of
    // its raw values' texts: as PutComputed writes its physical value (from
    // the physical value the decoder computes) and, for CSV, its raw value;
    // while the tables have room and every text fits.
    void Tabulate(const tavlo_dec_signal_t& signal, SignalOutput& output) {
        const bool isSigned = signal.kind == TAVLO_DEC_SIGNED;
        SignalOutput raw;
        raw.form = isSigned ? ValueForm::kSigned : ValueForm::kUnsigned;
        const std::size_t values = TableOf(signal, signal.factor, signal.offset, output);
        const std::size_t raws = format_ == Format::kCsv ? TableOf(signal, 1, 0, raw) : 0;
        if (values == kNoTable || raws == kNoTable) {
            return;
        }
        output.form = ValueForm::kTable;
        output.factor = static_cast<std::int64_t>(values);
        output.offset = static_cast<std::int64_t>(raws);
        output.decimals = static_cast<std::uint8_t>(signal.length);
        output.integer = isSigned;
    }

    // The first of the texts of the signal's raw values under this scaling,
    // as `computed` writes them: a table shared by the signals of the same
    // kind, length and scaling, made when first asked for. kNoTable when
    // there is no room for it or a text does not fit.
    static constexpr std::size_t kNoTable = ~std::size_t{0};
    std::size_t TableOf(const tavlo_dec_signal_t& signal, double factor, double offset,
                        const SignalOutput& computed) {
        const bool isSigned = signal.kind == TAVLO_DEC_SIGNED;
        const ScalingKey key = KeyOf(signal, factor, offset);
        const auto found = valueTables_.find(key);
        if (found != valueTables_.end()) {
            return found->second;
        }
        const std::size_t count = std::size_t{1} << signal.length;
        if (signal.length == 0 || valueTexts_.size() + count > kMostValueTexts) {
            valueTables_.emplace(key, kNoTable);
            return kNoTable;
        }
        const std::int64_t lowest = isSigned ? -(std::int64_t{1} << (signal.length - 1)) : 0;
        const std::size_t first = valueTexts_.size();
        for (std::size_t i = 0; i < count; ++i) {
            tavlo_dec_value_t value{};
            const std::int64_t raw = lowest + static_cast<std::int64_t>(i);
            value.raw = static_cast<std::uint64_t>(raw);
            value.physical = static_cast<double>(raw) * factor + offset;
            char text[kNumberRoom + kOverRoom];
            const auto size = static_cast<std::size_t>(PutComputed(text, computed, value) - text);
            ValueText entry{};
            if (size > sizeof entry.text) {
                valueTexts_.resize(first);
                valueTables_.emplace(key, kNoTable);
                return kNoTable;
            }
            std::memcpy(entry.text, text, size);
            entry.size = static_cast<std::uint8_t>(size);
            valueTexts_.push_back(entry);
        }
        valueTables_.emplace(key, first);
        return first;
    }

    // A signal's kind, length and scaling, its numbers by their bits (so
    // that any two are ordered).
    using ScalingKey = std::tuple<bool, unsigned int, std::uint64_t, std::uint64_t>;
    static ScalingKey KeyOf(const tavlo_dec_signal_t& signal, double factor, double offset) {
        std::uint64_t factorBits;
        std::uint64_t offsetBits;
        std::memcpy(&factorBits, &factor, sizeof factorBits);
        std::memcpy(&offsetBits, &offset, sizeof offsetBits);
        return ScalingKey(signal.kind == TAVLO_DEC_SIGNED, signal.length, factorBits, offsetBits);
    }

    // The signal's decimal scaling (MakeDecimalScale), found once for each
    // kind, length and scaling: a database repeats few of them.
    bool DecimalScaleOf(const tavlo_dec_signal_t& signal, DecimalScale& scale) {
        const ScalingKey key = KeyOf(signal, signal.factor, signal.offset);
        auto found = scales_.find(key);
        if (found == scales_.end()) {
            DecimalScale made;
            const bool decimal = MakeDecimalScale(signal.factor, signal.offset, signal.length,
                                                  std::get<0>(key), made);
            found = scales_.emplace(key, std::make_pair(decimal, made)).first;
        }
        scale = found->second.second;
        return found->second.first;
    }

    // Appends text to the text block; where it starts.
    std::uint32_t Keep(const std::string& text) {
        const auto at = static_cast<std::uint32_t>(texts_.size());
        texts_ += text;
        return at;
    }

    MessageOutput Prepare(const msgblk& message, const tavlo_dec_message_t& compiled) {
        const std::string name = MessageName(message);
        MessageOutput prepared;
        const std::string nameText = format_ == Format::kJson ? JsonText(name) : name;
        prepared.name = Keep(nameText);
        prepared.nameSize = static_cast<std::uint32_t>(nameText.size());
        prepared.room = nameText.size();
        prepared.first = static_cast<std::uint32_t>(signals_.size());
        std::size_t i = 0;
        for (const sigblk* s = message.signals; s != nullptr; s = s->next, ++i) {
            const tavlo_dec_signal_t& signal = compiled.signals[i];
            std::string before;
            std::string after;
            switch (format_) {
            case Format::kJson:
                before = ",{\"name\":" + JsonText(SignalName(*s)) + ",\"value\":";
                after = ",\"unit\":" + JsonText(s->unit) + (signal.description_count == 0 ? "}" : "");
                break;
            case Format::kCsv:
                before = CsvField(name) + "," + CsvField(SignalName(*s)) + ",";
                after = "," + CsvField(s->unit) + ",";
                break;
            case Format::kText:
                before = "  " + SignalName(*s) + "=";
                if (s->unit[0] != '\0') {
                    after = std::string(" ") + s->unit;
                }
                break;
            }
            SignalOutput output;
            output.text = Keep(before + after);
            output.before = static_cast<std::uint16_t>(std::min<std::size_t>(before.size(), 0xFFFF));
            output.after = static_cast<std::uint16_t>(std::min<std::size_t>(after.size(), 0xFFFF));
            if (signal.description_count != 0) {
                Describes describes;
                Tabulate(signal, describes);
                describes_.push_back(describes);
                output.describe = static_cast<std::uint32_t>(describes_.size());
            }
            const bool integer = signal.kind == TAVLO_DEC_SIGNED || signal.kind == TAVLO_DEC_UNSIGNED;
            const bool isSigned = signal.kind == TAVLO_DEC_SIGNED;
            DecimalScale scale;
            if (integer && DecimalScaleOf(signal, scale)) {
                output.form = ValueForm::kDecimal;
                output.factor = scale.factor;
                output.offset = scale.offset;
                output.decimals = static_cast<std::uint8_t>(scale.decimals);
                output.integer = scale.integer;
            } else if (integer && signal.factor == 1 && signal.offset == 0) {
                output.form = isSigned ? ValueForm::kSigned : ValueForm::kUnsigned;
            }
            if (output.form != ValueForm::kNumber && signal.length <= kMostTableBits) {
                Tabulate(signal, output);
            }
            // The longest description, as the form writes it.
            std::size_t description = 0;
            for (std::size_t d = 0; d < signal.description_count; ++d) {
                description = std::max(description, std::strlen(signal.descriptions[d].text));
            }
            prepared.room += before.size() + 2 * kNumberRoom + after.size() + 32 +
                             JsonRoom(description);
            signals_.push_back(output);
            ++prepared.count;
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
    Format format_;
    std::string texts_;                    // the text block
    std::vector<std::uint32_t> tables_;    // of descriptions
    std::vector<Describes> describes_;
    std::vector<MessageOutput> messages_;  // by the decoder's message index
    std::vector<SignalOutput> signals_;
    std::vector<ValueText> valueTexts_;
    std::map<ScalingKey, std::size_t> valueTables_;
    std::map<ScalingKey, std::pair<bool, DecimalScale>> scales_;
    std::vector<tavlo_dec_value_t> values_;
    bool filtered_ = false;
};

int Decode(const Invocation& line) {
    const std::string format = line.Value("--format", "text");
    const Arguments& files = line.operands;
    const bool bus = line.Given("--bus");
    if (files.empty() || (bus && files.size() > 1)) {
        return line.Misused();
    }
    DecodedDatabase db;
    if (!LoadDecoder(files[0], db)) {
        return kFailed;
    }
    Decoder decoder(db, format == "json" ? Format::kJson
                        : format == "csv" ? Format::kCsv
                                          : Format::kText);
    const std::vector<std::string> messageNames = line.All("--message");
    const std::vector<std::string> signalNames = line.All("--signal");
    if (!messageNames.empty() || !signalNames.empty()) {
        std::vector<long> messages;
        std::vector<SignalRef> signals;
        for (const std::string& name : messageNames) {
            messages.push_back(FindMessage(db, name));
            if (messages.back() < 0) {
                std::fprintf(stderr, "%s: no message %s\n", files[0].c_str(), name.c_str());
                return kFailed;
            }
        }
        for (const std::string& name : signalNames) {
            if (!FindSignals(db, files[0], name, signals)) {
                return kFailed;
            }
        }
        decoder.Restrict(messages, signals);
    }
    OutputBlock out(stdout);
    decoder.Start(out);
    // Live input is waited for: what was decoded so far is written out first.
    bool written = true;
    const auto write = [&](const Frame& frame) { decoder.Write(frame, out); };
    const auto idle = [&] { written = out.Flush() && std::fflush(stdout) == 0 && written; };
    const int status = bus ? ReadBus(line.Value("--bus", ""), write, idle)
                           : ReadFrames(Arguments(files.begin() + 1, files.end()), write, idle);
    written = out.Flush() && written;
    return std::fflush(stdout) == 0 && written ? status : kFailed;
}

}  // namespace

const Subcommand kDecode{
    "decode", "DB [LOG...]", "decode CAN logs, standard input or a bus", &Decode, kDecodeHelp,
    {{"-f,--format", "FORMAT", "text (the default), json or csv", {"text", "json", "csv"}},
     {"-m,--message", "MESSAGE", "only the frames of this message", {}, true},
     {"-s,--signal", "SIGNAL", "only this signal (and its message's frames)", {}, true},
     {"-b,--bus", "INTERFACE", "read the frames a SocketCAN interface receives (Linux)", {}}}};

}  // namespace tavlo::tool
