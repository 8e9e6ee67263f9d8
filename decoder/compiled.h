// decoder/compiled.h: what a compiled decoder holds, and reading and writing
// one signal's bits with its plan. The decoder's own helpers; not part of the
// public interface (include/tavloms/decoder.h is).
#ifndef TAVLOMS_DECODER_COMPILED_H
#define TAVLOMS_DECODER_COMPILED_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "codec/bits.h"
#include "tavloms/decoder.h"

namespace tavlo::decoder {

// Frames are copied into a zeroed buffer of this size before their signals
// are read: a field's plan loads 8 bytes from its first byte (at most 63)
// and one more, so no read leaves the buffer, and bytes past the frame's
// length read as zero.
constexpr std::size_t kPadded = 72;

// Plan::need of a signal no frame carries: too long, beyond 64 bytes, or
// selected through a cycle of multiplexers.
constexpr std::uint8_t kNever = 255;
constexpr std::int16_t kNoSelector = -1;

// How to take one signal out of a padded frame, precomputed; 32 bytes, so
// that a message's plans take few cache lines.
struct Plan {
    double factor;
    double offset;
    std::uint32_t firstRange;
    std::int16_t selector;  // its multiplexer's slot in the message's order, or kNoSelector
    std::uint16_t rangeCount;
    std::uint8_t byte;      // the 8 bytes loaded start here
    std::uint8_t shift;     // without spill: the left shift that puts the field's top bit
                            // at bit 63 of the (byte-swapped for Motorola) word; with
                            // spill (Intel): the field's right shift
    std::uint8_t spill;     // 0, or the bits the field takes from byte + 8
    std::uint8_t motorola;
    std::uint8_t kind;      // TAVLO_DEC_*
    std::uint8_t need;      // bytes a frame needs to carry it, or kNever
    std::uint8_t length;    // bits, 0 to 64
    std::uint8_t exactAsSigned;  // the raw value converts to double as an int64_t

    std::uint64_t Mask() const { return length == 0 ? 0 : ~std::uint64_t{0} >> (64 - length); }
    // SIGNED: the field's top bit, else 0.
    std::uint64_t SignBit() const {
        return length == 0 ? 0 : std::uint64_t{kind == TAVLO_DEC_SIGNED} << (length - 1);
    }
};

// Frame words in either byte order, as the legacy codec reads them.
using codec::Load64;
using codec::Store64;
using codec::Swap64;

// The field's raw value: right-aligned, sign-extended when signed. An Intel
// field is taken from the little-endian word at its low byte, a Motorola
// field from the big-endian word at its most significant byte: shifted left
// so that the field's top bit is bit 63, then right, arithmetically for a
// signed field. Byte order and sign are chosen without a branch, as a
// message's signals mix them in no pattern a branch predictor could learn.
// A field that reaches into a ninth byte (rare) takes the slow way.
std::uint64_t ExtractSpilled(const Plan& plan, const unsigned char* padded);

inline std::uint64_t Extract(const Plan& plan, const unsigned char* padded) {
    if (plan.spill != 0) {
        return ExtractSpilled(plan, padded);
    }
    const std::uint64_t word = Load64(padded + plan.byte);
    const std::uint64_t motorola = std::uint64_t{0} - plan.motorola;  // all ones or zero
    const std::uint64_t top = ((Swap64(word) & motorola) | (word & ~motorola)) << plan.shift;
    const unsigned int down = 64u - plan.length;
    const std::uint64_t unsignedValue = top >> down;
    const auto signedValue = static_cast<std::uint64_t>(static_cast<std::int64_t>(top) >> down);
    const std::uint64_t isSigned = std::uint64_t{0} - (plan.kind == TAVLO_DEC_SIGNED);
    return unsignedValue ^ ((unsignedValue ^ signedValue) & isSigned);
}

// Writes the field's bits (value holds no bits above the field) into a
// padded frame, leaving every other bit as it was.
void Insert(const Plan& plan, std::uint64_t value, unsigned char* padded);

// Of the kinds of the records: a raw value as the number it stands for.
inline double RawNumber(const Plan& plan, std::uint64_t raw) {
    switch (plan.kind) {
    case TAVLO_DEC_SIGNED:
        return static_cast<double>(static_cast<std::int64_t>(raw));
    case TAVLO_DEC_FLOAT: {
        const auto bits = static_cast<std::uint32_t>(raw);
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    case TAVLO_DEC_DOUBLE: {
        double value;
        std::memcpy(&value, &raw, sizeof value);
        return value;
    }
    default:
        return static_cast<double>(raw);
    }
}

// A factor and an offset. Quick plans share them: a database has few
// distinct pairs, so the table of them stays in the nearest cache.
struct Scale {
    double factor;
    double offset;
};

// The part of a plan that decoding a frame of at least 8 bytes reads, for a
// message whose signals all lie in its first 8 bytes (see Head::quick
// and MessageCode::quickMultiplexed): 8 bytes, so that a message's plans take
// one cache line and those of the messages a stream of frames touches stay
// in cache.
struct Quick {
    std::uint32_t scale;    // in the decoder's scales
    std::uint8_t shift;     // the left shift that puts the field's top bit at bit 63 of
                            // the frame's first 8 bytes as a little-endian (Intel) or
                            // big-endian (Motorola) word
    std::uint8_t down;      // 64 - length: the arithmetic right shift that then
                            // right-aligns it
    std::uint8_t motorola;  // which of the two words
    std::uint8_t keep;      // the right shift of all ones that gives the bits the value
                            // keeps: down when unsigned, 0 when signed
};

// The quick plan of a plan (but its scale), if its signal is one the quick
// loops can decode: in the first 8 bytes, no ninth byte, its raw value exact
// as an int64_t. (Whether a multiplexed one is present the multiplexed loop
// asks its plan.)
inline bool MakeQuick(const Plan& plan, Quick& quick) {
    if (plan.need > 8 || plan.spill != 0 || plan.exactAsSigned == 0 || plan.length == 0) {
        return false;
    }
    quick.shift = static_cast<std::uint8_t>(plan.motorola != 0 ? plan.shift + 8 * plan.byte
                                                               : plan.shift - 8 * plan.byte);
    quick.down = static_cast<std::uint8_t>(64 - plan.length);
    quick.motorola = plan.motorola;
    quick.keep = plan.kind == TAVLO_DEC_SIGNED ? 0 : quick.down;
    return true;
}

// A quick plan's raw value from the frame's first 8 bytes, words[0] as a
// little-endian word and words[1] as a big-endian one: no branch on byte
// order or sign, and few operations (the field is shifted to the top, shifted
// down with its sign, and an unsigned field's value masked).
inline std::uint64_t ExtractQuick(const Quick& quick, const std::uint64_t* words) {
    const std::uint64_t top = words[quick.motorola] << quick.shift;
    const auto extended = static_cast<std::uint64_t>(static_cast<std::int64_t>(top) >> quick.down);
    return extended & (~std::uint64_t{0} >> quick.keep);
}

// A message's place in the decoder's arrays.
struct MessageCode {
    std::uint32_t firstPlan;   // its signals' plans, in the records' order
    std::uint32_t planCount;
    std::uint32_t firstMux;    // its multiplexers, each after the one selecting it
    std::uint32_t muxCount;
    std::uint32_t quickMultiplexed;  // 1: every plan has a quick plan, and there are
                                     // multiplexers, at most kQuickMultiplexers
};

// Multiplexers of a message the multiplexed quick loop decodes, at most.
constexpr std::uint32_t kQuickMultiplexers = 16;

// Four signals of a quick message laid out to be decoded side by side, the
// frame's two words shifted by vector instructions where the processor has
// them. The lanes of a last, partial group are decoded but not written.
struct LaneGroup {
    std::uint8_t shift[4];     // as Quick::shift
    std::uint8_t down[4];      // 64 - length: the logical right shift that right-aligns it
    std::uint8_t sign[4];      // signed: length - 1, the place of its sign bit; else 64
    std::uint8_t motorola[4];  // 0xFF: from the big-endian word
    std::uint32_t scales;      // its lanes' factors and offsets in the decoder's laneScales
};

// The factors and the offsets of a lane group's four signals, each a vector
// (a partial group's unused lanes hold zeros). Groups with the same ones
// share them: a database has few distinct pairs, and fewer distinct fours
// than groups.
struct alignas(64) LaneScales {
    double factor[4];
    double offset[4];
};

// Whether a quick plan can be a lane: its raw value is exact through the
// vector conversion to double, which adds it to 2^52 + 2^51.
inline bool CanBeLane(const Plan& plan) {
    return plan.length <= (plan.kind == TAVLO_DEC_SIGNED ? 52 : 51);
}

// A message's place in the identifier table, which holds what decoding a
// frame of it needs first, in one cache line: how it is decoded and, for a
// message decoded in lanes, its first groups (a message of eight signals
// has no others).
constexpr std::size_t kHeadGroups = 2;
struct alignas(64) Head {
    std::uint32_t id;
    std::uint32_t message;     // kEmpty: a free place
    std::uint32_t quick;       // its plan count if every plan has a quick plan and it has no
                               // multiplexers (a frame of at least 8 bytes then decodes in
                               // one loop without a check), else 0; with kLaned when it
                               // decodes in lanes
    std::uint32_t first;       // decoded in lanes: its groups in the decoder's lanes after
                               // those here, or gated its block in the gates; else its
                               // first plan
    LaneGroup groups[kHeadGroups];
};
static_assert(sizeof(Head) == 64, "a head is one cache line");
constexpr std::uint32_t kLaned = 0x10000u;
constexpr std::uint32_t kGated = 0x20000u;  // with kLaned: multiplexed, see GateWords
constexpr std::uint32_t kQuickCount = 0xFFFFu;

// A multiplexed message decoded in lanes (kGated) has a block in the
// decoder's gates: the index of its lane groups after those in its head,
// then the number of gates and the gates, three words each: one per signal
// that is a multiplexer or is selected by one, in an order where each
// multiplexer comes before the signals it selects. A selected signal is
// present when its multiplexer is present and that one's value minus low is
// at most span; a multiplexer's gate also takes its value. Signals without a
// gate are always present. Such a message has at most kMostGated signals.
//
// A message with a single multiplexer, itself not selected, has the simple
// form instead, tested side by side: kSimpleGates, the multiplexer's index,
// the signals it selects as a 64-bit mask (low word first), then per eight
// signals (the last eight padded) eight lows and eight spans, each span with
// its top bit flipped; a signal it does not select has low 0 and span
// 0xFFFFFFFF, so that every value below 2^32 passes (a value at or above
// 2^32 selects none).
struct GateWords {
    static constexpr std::uint32_t kMultiplexer = 1u << 16;
    static constexpr std::uint32_t kSelected = 1u << 17;
    static constexpr std::uint32_t kSimpleGates = 1u << 31;
    static std::uint32_t Pack(std::size_t signal, std::size_t mux, bool multiplexer,
                              bool selected) {
        return static_cast<std::uint32_t>(signal | mux << 8) | (multiplexer ? kMultiplexer : 0) |
               (selected ? kSelected : 0);
    }
};
constexpr std::size_t kMostGated = 64;
constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;

// The identifier table is a perfect hash: an identifier's hash picks a
// bucket, whose displacement (chosen when compiling so that no two
// identifiers meet) moves it to its place. A look-up reads a small array
// and one line, without probing.
struct IdTable {
    std::uint64_t multiplier = 1;
    unsigned int bucketShift = 63;            // 64 - log2 of the bucket count
    std::uint32_t mask = 0;                   // heads.size() - 1, a power of two less one
    std::vector<std::uint32_t> displacement;  // by bucket, a power of two of them
    std::vector<Head> heads;                  // by place

    std::uint32_t Bucket(std::uint64_t hash) const {
        return static_cast<std::uint32_t>(hash >> bucketShift);
    }
    std::uint32_t Place(std::uint64_t hash, std::uint32_t displaced) const {
        return (static_cast<std::uint32_t>(hash >> 32) ^ displaced) & mask;
    }
    const Head& Find(std::uint32_t id) const {
        const std::uint64_t hash = id * multiplier;
        return heads[Place(hash, displacement[Bucket(hash)])];
    }
};

// Whether this processor decodes quick messages in lanes.
bool LanesSupported();

}  // namespace tavlo::decoder

struct tavlo_decoder_t {
    std::vector<tavlo::decoder::Plan> plans;
    std::vector<tavlo::decoder::Quick> quick;  // by plan; of a quick message's plans only
    std::vector<tavlo::decoder::Scale> scales;
    std::vector<tavlo::decoder::LaneGroup> lanes;  // groups after those in the heads
    std::vector<tavlo::decoder::LaneScales> laneScales;
    std::vector<std::uint32_t> gates;
    std::vector<tavlo::decoder::MessageCode> code;
    std::vector<std::uint32_t> muxSignals;  // plan index of each multiplexer slot
    std::vector<tavlo_dec_range_t> ranges;
    tavlo::decoder::IdTable table;
    std::size_t mostMultiplexers = 0;

    // Introspection; the texts live in `texts`.
    std::vector<tavlo_dec_message_t> messages;
    std::vector<tavlo_dec_signal_t> signals;
    std::vector<tavlo_dec_description_t> descriptions;
    std::deque<std::string> texts;
    std::unordered_map<std::string, std::uint32_t> byName;
    std::vector<unsigned int> skipped;

    // The head of an identifier's message, or null.
    const tavlo::decoder::Head* FindHead(std::uint32_t id) const {
        const tavlo::decoder::Head& head = table.Find(id);
        return head.id == id && head.message != tavlo::decoder::kEmpty ? &head : nullptr;
    }
    // The message of an identifier, or kEmpty.
    std::uint32_t Find(std::uint32_t id) const {
        const tavlo::decoder::Head* head = FindHead(id);
        return head != nullptr ? head->message : tavlo::decoder::kEmpty;
    }
};

#endif  // TAVLOMS_DECODER_COMPILED_H
