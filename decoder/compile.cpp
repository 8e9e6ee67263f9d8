// decoder/compile.cpp: a decoder compiled from a database's records and the
// SG_MUL_VAL_ statements a read kept: per signal an extraction plan, per
// message the order in which its multiplexers are read, an identifier table,
// and the introspection records. Also the look-ups by identifier and name.
#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <new>
#include <unordered_map>
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

    // The identifier table: buckets of about four identifiers, taken
    // largest first, each displaced by the first value that puts all its
    // identifiers in free places (a power of two of them, at least one per
    // identifier); with a fresh multiplier when some bucket finds none, and
    // twice the room after every fourth such attempt. Of a repeated
    // identifier, the first message has it.
    void BuildTable() {
        std::vector<std::uint32_t> ids;
        std::unordered_map<std::uint32_t, std::uint32_t> first;
        places_.assign(records_.size(), kEmpty);
        for (std::uint32_t i = 0; i < records_.size(); ++i) {
            const std::uint32_t id = records_[i]->id;  // copied: the records are packed
            if (first.emplace(id, i).second) {
                ids.push_back(id);
            }
        }
        IdTable& table = d_.table;
        std::size_t room = 1;
        while (room < ids.size()) {
            room *= 2;
        }
        for (std::uint64_t attempt = 0;; ++attempt) {
            table.multiplier = 0x9E3779B97F4A7C15u + 2 * attempt * 0x632BE59BD9B4E019u;
            table.bucketShift = 63;
            while ((std::size_t{1} << (64 - table.bucketShift)) * 4 < ids.size()) {
                --table.bucketShift;
            }
            table.displacement.assign(std::size_t{1} << (64 - table.bucketShift), 0);
            table.heads.assign(room, Head{0, kEmpty, 0, 0, {}});
            table.mask = static_cast<std::uint32_t>(room - 1);
            if (Displace(ids)) {
                break;
            }
            if (attempt % 4 == 3) {
                room *= 2;
            }
        }
        for (std::uint32_t place = 0; place < table.heads.size(); ++place) {
            Head& head = table.heads[place];
            if (head.message != kEmpty) {
                head.message = first[head.id];
                places_[head.message] = place;  // a repeated identifier's others have none
            }
        }
    }

    // Places the identifiers (each head's message not yet its own); false
    // when some bucket found no displacement.
    bool Displace(const std::vector<std::uint32_t>& ids) {
        IdTable& table = d_.table;
        std::vector<std::vector<std::uint32_t>> buckets(table.displacement.size());
        for (const std::uint32_t id : ids) {
            buckets[table.Bucket(id * table.multiplier)].push_back(id);
        }
        std::vector<std::uint32_t> order(buckets.size());
        for (std::uint32_t b = 0; b < order.size(); ++b) {
            order[b] = b;
        }
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return buckets[a].size() > buckets[b].size();
        });
        std::vector<std::uint32_t> places;
        const auto fits = [&](const std::vector<std::uint32_t>& bucket, std::uint32_t displaced) {
            places.clear();
            for (const std::uint32_t id : bucket) {
                const std::uint32_t place = table.Place(id * table.multiplier, displaced);
                if (table.heads[place].message != kEmpty ||
                    std::find(places.begin(), places.end(), place) != places.end()) {
                    return false;
                }
                places.push_back(place);
            }
            return true;
        };
        for (const std::uint32_t b : order) {
            if (buckets[b].empty()) {
                break;
            }
            std::uint32_t k = 0;
            while (k < 4096 && !fits(buckets[b], k * 0x9E3779B1u)) {
                ++k;
            }
            if (k == 4096) {
                return false;
            }
            table.displacement[b] = k * 0x9E3779B1u;
            for (std::size_t i = 0; i < places.size(); ++i) {
                table.heads[places[i]].id = buckets[b][i];
                table.heads[places[i]].message = 0;
            }
        }
        return true;
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
        Head head{};
        head.first = code.firstPlan;
        const bool laned = lanes_ && quick &&
                           std::all_of(d_.plans.begin() + code.firstPlan, d_.plans.end(), CanBeLane);
        if (quick && code.muxCount == 0 && n <= kQuickCount) {
            head.quick = static_cast<std::uint32_t>(n);
            if (laned) {
                head.quick |= kLaned;
                head.first = AddLanes(head, n);
            }
        } else if (laned && n <= kMostGated && Gateable(code)) {
            head.quick = static_cast<std::uint32_t>(n) | kLaned | kGated;
            const std::uint32_t more = AddLanes(head, n);
            head.first = AddGates(code, muxes, depth, more);
        }
        const std::uint32_t place = places_[d_.code.size()];
        if (place != kEmpty) {
            Head& placed = d_.table.heads[place];
            head.id = placed.id;
            head.message = placed.message;
            placed = head;
        }
        code.quickMultiplexed =
            quick && code.muxCount != 0 && code.muxCount <= kQuickMultiplexers ? 1 : 0;
        d_.code.push_back(code);
        d_.messages.push_back(info);
    }

    // Whether each signal of a multiplexed message that its multiplexer
    // selects is selected by one range of values below 2^32.
    bool Gateable(const MessageCode& code) const {
        for (std::size_t i = 0; i < code.planCount; ++i) {
            const Plan& plan = d_.plans[code.firstPlan + i];
            if (plan.selector == kNoSelector) {
                continue;
            }
            const tavlo_dec_range_t& range = d_.ranges[plan.firstRange];
            if (plan.rangeCount != 1 || range.high > 0xFFFFFFFFu) {
                return false;
            }
        }
        return true;
    }

    // The gate block of a gateable message; returns its index.
    std::uint32_t AddGates(const MessageCode& code, const std::vector<std::size_t>& muxes,
                           const std::vector<long>& depth, std::uint32_t more) {
        const auto at = static_cast<std::uint32_t>(d_.gates.size());
        d_.gates.push_back(more);
        if (muxes.size() == 1 && d_.plans[code.firstPlan + muxes[0]].selector == kNoSelector) {
            AddSimpleGates(code, muxes[0]);
            return at;
        }
        const std::size_t n = code.planCount;
        std::vector<std::size_t> order(n);
        for (std::size_t i = 0; i < n; ++i) {
            order[i] = i;
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return depth[a] < depth[b]; });
        std::vector<char> multiplexer(n, 0);
        for (const std::size_t mux : muxes) {
            multiplexer[mux] = 1;
        }
        d_.gates.push_back(0);
        for (const std::size_t i : order) {
            const Plan& plan = d_.plans[code.firstPlan + i];
            const bool selected = plan.selector != kNoSelector;
            if (!selected && multiplexer[i] == 0) {
                continue;
            }
            std::uint32_t low = 0;
            std::uint32_t span = 0;
            std::size_t mux = 0;
            if (selected) {
                const tavlo_dec_range_t& range = d_.ranges[plan.firstRange];
                low = static_cast<std::uint32_t>(range.low);
                span = static_cast<std::uint32_t>(range.high - range.low);
                mux = muxes[static_cast<std::size_t>(plan.selector)];
            }
            d_.gates.push_back(low);
            d_.gates.push_back(span);
            d_.gates.push_back(GateWords::Pack(i, mux, multiplexer[i] != 0, selected));
            ++d_.gates[at + 1];
        }
        return at;
    }

    // The simple form of the gates of a message with one multiplexer, mux,
    // itself not selected (see GateWords).
    void AddSimpleGates(const MessageCode& code, std::size_t mux) {
        const std::size_t n = code.planCount;
        d_.gates.push_back(GateWords::kSimpleGates);
        d_.gates.push_back(static_cast<std::uint32_t>(mux));
        std::uint64_t selected = 0;
        std::vector<std::uint32_t> lows((n + 7) / 8 * 8, 0);
        std::vector<std::uint32_t> spans(lows.size(), 0xFFFFFFFFu);
        for (std::size_t i = 0; i < n; ++i) {
            const Plan& plan = d_.plans[code.firstPlan + i];
            if (plan.selector != kNoSelector) {
                const tavlo_dec_range_t& range = d_.ranges[plan.firstRange];
                selected |= std::uint64_t{1} << i;
                lows[i] = static_cast<std::uint32_t>(range.low);
                spans[i] = static_cast<std::uint32_t>(range.high - range.low);
            }
        }
        d_.gates.push_back(static_cast<std::uint32_t>(selected));
        d_.gates.push_back(static_cast<std::uint32_t>(selected >> 32));
        for (std::size_t first = 0; first < lows.size(); first += 8) {
            d_.gates.insert(d_.gates.end(), lows.begin() + first, lows.begin() + first + 8);
            for (std::size_t k = first; k < first + 8; ++k) {
                d_.gates.push_back(spans[k] ^ 0x80000000u);
            }
        }
    }

    // The lanes of a quick message's n plans in groups of four, the first
    // in its head.
    std::uint32_t AddLanes(Head& head, std::size_t n) {
        const auto more = static_cast<std::uint32_t>(d_.lanes.size());
        for (std::size_t group = 0; group * 4 < n; ++group) {
            LaneGroup lanes{};
            LaneScales scales{};
            for (std::size_t k = 0; k < 4; ++k) {
                const std::size_t i = group * 4 + k;
                if (i >= n) {
                    break;
                }
                const Plan& plan = d_.plans[head.first + i];
                const Quick& quick = d_.quick[head.first + i];
                lanes.shift[k] = quick.shift;
                lanes.down[k] = quick.down;
                lanes.sign[k] = static_cast<std::uint8_t>(
                    plan.kind == TAVLO_DEC_SIGNED ? plan.length - 1 : 64);
                lanes.motorola[k] = plan.motorola != 0 ? 0xFF : 0;
                scales.factor[k] = plan.factor;
                scales.offset[k] = plan.offset;
            }
            // Shared by their bits, so that no two differ in anything.
            std::array<std::uint64_t, 8> bits;
            static_assert(sizeof bits == sizeof scales, "four factors, then four offsets");
            std::memcpy(bits.data(), &scales, sizeof bits);
            const auto found = laneScalesAt_.emplace(
                bits, static_cast<std::uint32_t>(d_.laneScales.size()));
            if (found.second) {
                d_.laneScales.push_back(scales);
            }
            lanes.scales = found.first->second;
            if (group < kHeadGroups) {
                head.groups[group] = lanes;
            } else {
                d_.lanes.push_back(lanes);
            }
        }
        return more;
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
    }

    const char* Text(std::string text) {
        d_.texts.push_back(std::move(text));
        return d_.texts.back().c_str();
    }

    tavlo_decoder_t& d_;
    std::vector<const msgblk*> records_;
    std::vector<std::size_t> descriptionsAt_;
    std::vector<std::uint32_t> places_;  // by message: its place in the table, or kEmpty
    const bool lanes_ = LanesSupported();
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint32_t> scaleAt_;
    std::map<std::array<std::uint64_t, 8>, std::uint32_t> laneScalesAt_;
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
