// decoder/compile.cpp: a decoder compiled from a database's records and the
// SG_MUL_VAL_ statements a read kept: per signal an extraction plan, per
// message the order in which its multiplexers are read, an identifier table,
// and the introspection records. Also the look-ups by identifier and name.
#include <algorithm>
#include <cstring>
#include <map>
#include <new>
#include <utility>

#include "decoder/compiled.h"

namespace tavlo::decoder {
namespace {

constexpr std::size_t kNameLength = TAVLO_NAME_SIZE - 1;

std::string RecordText(const char* text) {
    std::size_t length = 0;
    while (length < kNameLength && text[length] != '\0') {
        ++length;
    }
    return std::string(text, length);
}

// One SG_MUL_VAL_ statement:
// mul_val -> SG_MUL_VAL_ id signal multiplexer range (',' range)* ';'
// range -> unsigned '-' unsigned
struct MulVal {
    unsigned int id = 0;
    std::string signal;
    std::string multiplexer;
    std::vector<tavlo_dec_range_t> ranges;
};

class Cursor {
public:
    explicit Cursor(const char* text) : p_(text) {}

    void Blanks() {
        while (*p_ == ' ' || *p_ == '\t' || *p_ == '\r' || *p_ == '\n') {
            ++p_;
        }
    }
    bool Accept(char c) {
        Blanks();
        if (*p_ != c) {
            return false;
        }
        ++p_;
        return true;
    }
    bool Unsigned(std::uint64_t& value) {
        Blanks();
        if (*p_ < '0' || *p_ > '9') {
            return false;
        }
        value = 0;
        for (; *p_ >= '0' && *p_ <= '9'; ++p_) {
            const auto digit = static_cast<std::uint64_t>(*p_ - '0');
            if (value > (~std::uint64_t{0} - digit) / 10) {
                return false;
            }
            value = value * 10 + digit;
        }
        return true;
    }
    bool Name(std::string& name) {
        Blanks();
        const char* start = p_;
        while ((*p_ >= 'A' && *p_ <= 'Z') || (*p_ >= 'a' && *p_ <= 'z') ||
               (*p_ >= '0' && *p_ <= '9') || *p_ == '_') {
            ++p_;
        }
        // Cut as the records cut names.
        name.assign(start, std::min<std::size_t>(static_cast<std::size_t>(p_ - start), kNameLength));
        return p_ != start;
    }
    bool AtEnd() {
        Blanks();
        return *p_ == '\0';
    }

private:
    const char* p_;
};

bool IsMulVal(const char* text) {
    static const char kKeyword[] = "SG_MUL_VAL_";
    const std::size_t length = sizeof kKeyword - 1;
    return text != nullptr && std::strncmp(text, kKeyword, length) == 0 &&
           (text[length] == ' ' || text[length] == '\t' || text[length] == '\r' ||
            text[length] == '\n');
}

bool ParseMulVal(const char* text, MulVal& statement) {
    Cursor cursor(text + 11);
    std::uint64_t id = 0;
    if (!cursor.Unsigned(id) || id > 0xFFFFFFFFu || !cursor.Name(statement.signal) ||
        !cursor.Name(statement.multiplexer)) {
        return false;
    }
    statement.id = static_cast<unsigned int>(id);
    do {
        tavlo_dec_range_t range{};
        if (!cursor.Unsigned(range.low) || !cursor.Accept('-') || !cursor.Unsigned(range.high) ||
            range.low > range.high) {
            return false;
        }
        statement.ranges.push_back(range);
    } while (cursor.Accept(','));
    return cursor.Accept(';') && cursor.AtEnd();
}

// Where a signal's bits lie, as the codec numbers them: Intel from the least
// significant bit upwards; Motorola from the most significant bit, whose
// linear position (from bit 7 of byte 0) grows towards less significant bits
// and later bytes.
Plan MakePlan(const sigblk& signal) {
    Plan plan{};
    const unsigned int flags = signal.flags;
    const unsigned int valueType = signal.value_type;
    unsigned int length = signal.length;
    plan.kind = (flags & TAVLO_SIG_SIGNED) != 0 ? TAVLO_DEC_SIGNED : TAVLO_DEC_UNSIGNED;
    if (valueType == TAVLO_VALUE_FLOAT) {
        plan.kind = TAVLO_DEC_FLOAT;
        length = 32;
    } else if (valueType == TAVLO_VALUE_DOUBLE) {
        plan.kind = TAVLO_DEC_DOUBLE;
        length = 64;
    }
    plan.factor = signal.factor;
    plan.offset = signal.offset;
    plan.selector = kNoSelector;
    plan.motorola = (flags & TAVLO_SIG_MOTOROLA) != 0 ? 1 : 0;
    plan.need = kNever;
    if (length == 0 || length > 64) {
        return plan;
    }
    plan.length = static_cast<std::uint8_t>(length);
    plan.exactAsSigned = plan.kind == TAVLO_DEC_SIGNED || (plan.kind == TAVLO_DEC_UNSIGNED && length < 64);
    const unsigned int start = signal.start_bit;
    unsigned int lastByte;
    if (plan.motorola == 0) {
        lastByte = (start + length - 1) / 8;
        plan.byte = static_cast<std::uint8_t>(std::min(start / 8, 63u));
        plan.spill = start % 8 + length > 64 ? 1 : 0;
        plan.shift = static_cast<std::uint8_t>(plan.spill != 0 ? start % 8 : 64 - start % 8 - length);
    } else {
        const unsigned int msb = start / 8 * 8 + 7 - start % 8;
        const unsigned int lsb = msb + length - 1;
        lastByte = lsb / 8;
        plan.byte = static_cast<std::uint8_t>(std::min(msb / 8, 63u));
        const unsigned int last = msb % 8 + length - 1;  // in the loaded word, from its top
        if (last <= 63) {
            plan.shift = static_cast<std::uint8_t>(msb % 8);
        } else {
            plan.spill = static_cast<std::uint8_t>(last - 63);
        }
    }
    if (lastByte < 64) {
        plan.need = static_cast<std::uint8_t>(lastByte + 1);
    }
    return plan;
}

// The key a description's value is kept under: the records hold 32-bit
// numbers, read as unsigned for an unsigned signal.
std::int64_t DescriptionKey(int value, unsigned int kind) {
    return kind == TAVLO_DEC_UNSIGNED ? static_cast<std::int64_t>(static_cast<std::uint32_t>(value))
                                      : static_cast<std::int64_t>(value);
}

class Compiler {
public:
    Compiler(tavlo_decoder_t& out) : d_(out) {}

    void Run(const tavlo_root_t& root, const tavlo_kept_t* kept, std::size_t count) {
        for (const msgblk* m = root.messages; m != nullptr; m = m->next) {
            records_.push_back(m);
        }
        BuildTable();
        for (std::uint32_t i = 0; i < records_.size(); ++i) {
            d_.byName.emplace(RecordText(records_[i]->name), i);
        }
        std::vector<MulVal> mulVals;
        std::vector<unsigned int> lines;
        for (std::size_t i = 0; i < count; ++i) {
            if (!IsMulVal(kept[i].text)) {
                continue;
            }
            MulVal statement;
            if (!ParseMulVal(kept[i].text, statement)) {
                d_.skipped.push_back(kept[i].line);
                continue;
            }
            mulVals.push_back(std::move(statement));
            lines.push_back(kept[i].line);
        }
        // Each message's signals, with the statements applied to them.
        std::vector<std::vector<const sigblk*>> signals(records_.size());
        for (std::size_t m = 0; m < records_.size(); ++m) {
            for (const sigblk* s = records_[m]->signals; s != nullptr; s = s->next) {
                signals[m].push_back(s);
            }
        }
        std::vector<std::vector<Selection>> selections(records_.size());
        for (std::size_t m = 0; m < records_.size(); ++m) {
            selections[m].resize(signals[m].size());
        }
        for (std::size_t k = 0; k < mulVals.size(); ++k) {
            const MulVal& statement = mulVals[k];
            const std::uint32_t m = d_.Find(statement.id);
            const long signal = m == kEmpty ? -1 : IndexOf(signals[m], statement.signal);
            const long multiplexer = m == kEmpty ? -1 : IndexOf(signals[m], statement.multiplexer);
            if (signal < 0 || multiplexer < 0 || signal == multiplexer) {
                d_.skipped.push_back(lines[k]);
                continue;
            }
            Selection& selection = selections[m][static_cast<std::size_t>(signal)];
            if (!selection.extended || selection.multiplexer != multiplexer) {
                selection.ranges.clear();  // a later statement of another multiplexer replaces
            }
            selection.extended = true;
            selection.multiplexer = multiplexer;
            selection.ranges.insert(selection.ranges.end(), statement.ranges.begin(),
                                    statement.ranges.end());
        }
        for (std::size_t m = 0; m < records_.size(); ++m) {
            CompileMessage(*records_[m], signals[m], selections[m]);
        }
        Publish();
    }

private:
    struct Selection {
        bool extended = false;
        long multiplexer = -1;
        std::vector<tavlo_dec_range_t> ranges;
    };

    static long IndexOf(const std::vector<const sigblk*>& signals, const std::string& name) {
        for (std::size_t i = 0; i < signals.size(); ++i) {
            if (RecordText(signals[i]->name) == name) {
                return static_cast<long>(i);
            }
        }
        return -1;
    }

    void BuildTable() {
        std::uint32_t size = 8;
        while (size < 2 * records_.size()) {
            size *= 2;
        }
        d_.table.assign(size, Slot{0, kEmpty, 0, 0});
        d_.tableMask = size - 1;
        for (std::uint32_t i = 0; i < records_.size(); ++i) {
            const std::uint32_t id = records_[i]->id;
            std::uint32_t at = SlotOf(id, d_.tableMask);
            while (d_.table[at].message != kEmpty && d_.table[at].id != id) {
                at = (at + 1) & d_.tableMask;
            }
            if (d_.table[at].message == kEmpty) {  // of a repeated identifier, the first
                d_.table[at] = Slot{id, i, 0, 0};
            }
        }
    }

    // Plain multiplexing where no statement decides: the message's first
    // mode signal other than the signal itself, and its mode value.
    static void PlainSelections(const std::vector<const sigblk*>& signals,
                                std::vector<Selection>& selections) {
        for (std::size_t i = 0; i < signals.size(); ++i) {
            const unsigned int flags = signals[i]->flags;
            if (selections[i].extended || (flags & TAVLO_SIG_MULTIPLEXED) == 0) {
                continue;
            }
            selections[i].multiplexer = -2;  // no mode signal: never present
            for (std::size_t j = 0; j < signals.size(); ++j) {
                const unsigned int modeFlags = signals[j]->flags;
                if (j != i && (modeFlags & TAVLO_SIG_MODE) != 0) {
                    selections[i].multiplexer = static_cast<long>(j);
                    break;
                }
            }
            const std::uint64_t value = signals[i]->mode_value;
            selections[i].ranges.assign(1, tavlo_dec_range_t{value, value});
        }
    }

    void CompileMessage(const msgblk& message, const std::vector<const sigblk*>& signals,
                        std::vector<Selection>& selections) {
        PlainSelections(signals, selections);
        const std::size_t n = signals.size();
        // Depth in the chain of multiplexers (0: selected by none); -1 for a
        // signal whose chain runs into a cycle or a missing mode signal.
        constexpr long kUnknown = -2;
        std::vector<long> depth(n, kUnknown);
        for (std::size_t i = 0; i < n; ++i) {
            std::vector<std::size_t> chain;
            std::size_t at = i;
            long top;  // depth of what the chain's last signal hangs below
            for (;;) {
                if (depth[at] != kUnknown) {
                    top = depth[at] < 0 ? -1 : depth[at];
                    break;
                }
                if (std::find(chain.begin(), chain.end(), at) != chain.end()) {
                    top = -1;
                    break;
                }
                chain.push_back(at);
                const long up = selections[at].multiplexer;
                if (up < 0) {
                    top = up == -1 ? kUnknown : -1;  // kUnknown here: selected by none
                    break;
                }
                at = static_cast<std::size_t>(up);
            }
            long next = top == kUnknown ? 0 : top < 0 ? -1 : top + 1;
            for (std::size_t k = chain.size(); k-- > 0;) {
                if (depth[chain[k]] == kUnknown) {
                    depth[chain[k]] = next;
                }
                next = next < 0 ? -1 : depth[chain[k]] + 1;
            }
        }
        MessageCode code{};
        code.firstPlan = static_cast<std::uint32_t>(d_.plans.size());
        code.planCount = static_cast<std::uint32_t>(n);
        code.firstMux = static_cast<std::uint32_t>(d_.muxSignals.size());
        // Multiplexers by depth, so that each is read after its own.
        std::vector<std::size_t> muxes;
        std::vector<char> selects(n, 0);
        for (std::size_t i = 0; i < n; ++i) {
            if (depth[i] > 0) {
                selects[static_cast<std::size_t>(selections[i].multiplexer)] = 1;
            }
        }
        for (std::size_t i = 0; i < n; ++i) {
            if (selects[i] != 0) {
                muxes.push_back(i);
            }
        }
        std::stable_sort(muxes.begin(), muxes.end(),
                         [&](std::size_t a, std::size_t b) { return depth[a] < depth[b]; });
        std::vector<std::int16_t> slot(n, kNoSelector);
        // A selector is 16 bits: signals under any multiplexer past 32766 are
        // never decoded (no real message has that many).
        muxes.resize(std::min<std::size_t>(muxes.size(), 0x7FFF));
        for (std::size_t k = 0; k < muxes.size(); ++k) {
            slot[muxes[k]] = static_cast<std::int16_t>(k);
            d_.muxSignals.push_back(code.firstPlan + static_cast<std::uint32_t>(muxes[k]));
        }
        code.muxCount = static_cast<std::uint32_t>(muxes.size());
        d_.mostMultiplexers = std::max(d_.mostMultiplexers, muxes.size());

        tavlo_dec_message_t info{};
        info.name = Text(RecordText(message.name));
        info.sender = Text(message.transmitter != nullptr ? RecordText(message.transmitter->name) : "");
        info.id = message.id;
        info.length = std::min<unsigned int>(message.dlc, 64);
        info.signal_count = n;
        for (std::size_t i = 0; i < n; ++i) {
            const sigblk& signal = *signals[i];
            Plan plan = MakePlan(signal);
            const Selection& selection = selections[i];
            tavlo_dec_signal_t s{};
            s.multiplexer = -1;
            if (depth[i] < 0) {
                plan.need = kNever;
            } else if (depth[i] > 0) {
                plan.selector = slot[static_cast<std::size_t>(selection.multiplexer)];
                if (plan.selector == kNoSelector) {
                    plan.need = kNever;
                }
                s.multiplexer = selection.multiplexer;
            }
            if (selection.multiplexer >= 0) {
                plan.firstRange = static_cast<std::uint32_t>(d_.ranges.size());
                // (More than 65535 ranges of one signal: the first 65535.)
                plan.rangeCount = static_cast<std::uint16_t>(std::min<std::size_t>(selection.ranges.size(), 0xFFFF));
                d_.ranges.insert(d_.ranges.end(), selection.ranges.begin(),
                                 selection.ranges.begin() + plan.rangeCount);
                s.multiplexer = selection.multiplexer;
            }
            s.name = Text(RecordText(signal.name));
            s.unit = Text(RecordText(signal.unit));
            s.start_bit = signal.start_bit;
            s.length = plan.kind == TAVLO_DEC_FLOAT    ? 32
                       : plan.kind == TAVLO_DEC_DOUBLE ? 64
                                                       : signal.length;
            s.motorola = plan.motorola;
            s.kind = plan.kind;
            s.factor = signal.factor;
            s.offset = signal.offset;
            s.minimum = signal.minimum;
            s.maximum = signal.maximum;
            s.bytes_needed = plan.need == kNever ? 65u : plan.need;
            const unsigned int flags = signal.flags;
            s.is_multiplexer = selects[i] != 0 || (flags & TAVLO_SIG_MODE) != 0;
            s.range_count = plan.rangeCount;
            // Descriptions by value, the first of a repeated value kept.
            const std::size_t first = d_.descriptions.size();
            for (const val* v = signal.value_descriptions; v != nullptr; v = v->next) {
                d_.descriptions.push_back({DescriptionKey(v->value, plan.kind), Text(RecordText(v->text))});
            }
            const auto begin = d_.descriptions.begin() + static_cast<long>(first);
            std::stable_sort(begin, d_.descriptions.end(),
                             [](const tavlo_dec_description_t& a, const tavlo_dec_description_t& b) {
                                 return a.value < b.value;
                             });
            d_.descriptions.erase(
                std::unique(begin, d_.descriptions.end(),
                            [](const tavlo_dec_description_t& a, const tavlo_dec_description_t& b) {
                                return a.value == b.value;
                            }),
                d_.descriptions.end());
            s.description_count = d_.descriptions.size() - first;
            descriptionsAt_.push_back(first);  // pointers once every array is whole
            d_.plans.push_back(plan);
            d_.signals.push_back(s);
        }
        d_.quick.resize(d_.plans.size());
        bool quick = n != 0;
        for (std::size_t i = code.firstPlan; i < d_.plans.size(); ++i) {
            const Plan& plan = d_.plans[i];
            if (!MakeQuick(plan, d_.quick[i])) {
                quick = false;
                continue;
            }
            // Scales by their bits, so that no two differ in anything.
            std::uint64_t bits[2];
            std::memcpy(&bits[0], &plan.factor, sizeof bits[0]);
            std::memcpy(&bits[1], &plan.offset, sizeof bits[1]);
            const auto found = scaleAt_.emplace(std::make_pair(bits[0], bits[1]),
                                                static_cast<std::uint32_t>(d_.scales.size()));
            if (found.second) {
                d_.scales.push_back(Scale{plan.factor, plan.offset});
            }
            d_.quick[i].scale = found.first->second;
        }
        quickCount_.push_back(quick && code.muxCount == 0 ? static_cast<std::uint32_t>(n) : 0);
        code.quickMultiplexed =
            quick && code.muxCount != 0 && code.muxCount <= kQuickMultiplexers ? 1 : 0;
        d_.code.push_back(code);
        d_.messages.push_back(info);
    }

    // Array positions into pointers.
    void Publish() {
        for (std::size_t m = 0; m < d_.messages.size(); ++m) {
            d_.messages[m].signals = d_.signals.data() + d_.code[m].firstPlan;
        }
        for (std::size_t i = 0; i < d_.signals.size(); ++i) {
            d_.signals[i].descriptions = d_.descriptions.data() + descriptionsAt_[i];
            d_.signals[i].ranges = d_.ranges.data() + d_.plans[i].firstRange;
        }
        for (Slot& slot : d_.table) {
            if (slot.message != kEmpty) {
                slot.firstPlan = d_.code[slot.message].firstPlan;
                slot.quickCount = quickCount_[slot.message];
            }
        }
    }

    const char* Text(std::string text) {
        d_.texts.push_back(std::move(text));
        return d_.texts.back().c_str();
    }

    tavlo_decoder_t& d_;
    std::vector<const msgblk*> records_;
    std::vector<std::size_t> descriptionsAt_;
    std::vector<std::uint32_t> quickCount_;  // by message, for its slot
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint32_t> scaleAt_;
};

}  // namespace
}  // namespace tavlo::decoder

using tavlo::decoder::kEmpty;

tavlo_decoder_t* tavlo_decoder_compile(const tavlo_root_t* root, const tavlo_kept_t* kept,
                                       size_t count) {
    if (root == nullptr || (kept == nullptr && count != 0)) {
        return nullptr;
    }
    try {
        auto* decoder = new tavlo_decoder_t();
        try {
            tavlo::decoder::Compiler(*decoder).Run(*root, kept, count);
        } catch (...) {
            delete decoder;
            throw;
        }
        return decoder;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void tavlo_decoder_free(tavlo_decoder_t* decoder) { delete decoder; }

size_t tavlo_decoder_skipped(const tavlo_decoder_t* decoder, const unsigned int** lines) {
    if (decoder == nullptr) {
        return 0;
    }
    if (lines != nullptr) {
        *lines = decoder->skipped.data();
    }
    return decoder->skipped.size();
}

size_t tavlo_decoder_message_count(const tavlo_decoder_t* decoder) {
    return decoder != nullptr ? decoder->messages.size() : 0;
}

const tavlo_dec_message_t* tavlo_decoder_message(const tavlo_decoder_t* decoder, size_t index) {
    return decoder != nullptr && index < decoder->messages.size() ? &decoder->messages[index]
                                                                   : nullptr;
}

long tavlo_decoder_find_id(const tavlo_decoder_t* decoder, unsigned int id) {
    if (decoder == nullptr) {
        return -1;
    }
    const std::uint32_t found = decoder->Find(id);
    return found == kEmpty ? -1 : static_cast<long>(found);
}

long tavlo_decoder_find_name(const tavlo_decoder_t* decoder, const char* name) {
    if (decoder == nullptr || name == nullptr) {
        return -1;
    }
    const auto found = decoder->byName.find(name);
    return found == decoder->byName.end() ? -1 : static_cast<long>(found->second);
}

long tavlo_decoder_find_signal(const tavlo_decoder_t* decoder, size_t message, const char* name) {
    const tavlo_dec_message_t* m = tavlo_decoder_message(decoder, message);
    if (m == nullptr || name == nullptr) {
        return -1;
    }
    for (std::size_t i = 0; i < m->signal_count; ++i) {
        if (std::strcmp(m->signals[i].name, name) == 0) {
            return static_cast<long>(i);
        }
    }
    return -1;
}
