// decoder/decode.cpp: frames decoded with a compiled decoder, one at a time
// into values or many at once into columns, and value descriptions looked
// up. Nothing here allocates per frame or writes to the decoder.
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "decoder/compiled.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define TAVLO_DECODER_AVX2 1
#include <immintrin.h>
#endif

namespace tavlo::decoder {
namespace {

constexpr std::size_t kMultiplexersOnStack = 64;

// Whether a signal is selected by its multiplexer: it has none, or that one
// is present with a value in one of the signal's ranges.
inline bool Selects(const Plan& plan, const bool* muxPresent, const std::uint64_t* muxValue,
                    const tavlo_dec_range_t* ranges) {
        if (plan.selector == kNoSelector) {
            return true;
        }
        const auto slot = static_cast<std::size_t>(plan.selector);
        if (!muxPresent[slot]) {
            return false;
        }
        const std::uint64_t value = muxValue[slot];
        for (std::uint32_t r = 0; r < plan.rangeCount; ++r) {
            const tavlo_dec_range_t& range = ranges[plan.firstRange + r];
            if (value >= range.low && value <= range.high) {
                return true;
            }
        }
        return false;
}

// Calls sink(signal, raw, physical, present) for every signal of message
// number m in a frame of length bytes: first the message's multiplexers are
// read, each after the one selecting it, then every signal in order. The
// sink is taken and given back by value, so that what it carries stays in
// registers.
template <class Sink>
Sink Walk(const tavlo_decoder_t& d, std::uint32_t m, const unsigned char* data, std::size_t length,
          Sink sink) {
    unsigned char padded[kPadded];
    std::memset(padded, 0, sizeof padded);
    if (length == 8) {
        std::memcpy(padded, data, 8);
    } else if (length > 0) {
        std::memcpy(padded, data, length);
    }
    const MessageCode& code = d.code[m];
    const Plan* plans = d.plans.data() + code.firstPlan;
    const tavlo_dec_range_t* ranges = d.ranges.data();

    std::uint64_t stackValues[kMultiplexersOnStack];
    bool stackPresent[kMultiplexersOnStack];
    std::unique_ptr<std::uint64_t[]> heapValues;  // a message of very many multiplexers only
    std::unique_ptr<bool[]> heapPresent;
    std::uint64_t* muxValue = stackValues;
    bool* muxPresent = stackPresent;
    if (code.muxCount > kMultiplexersOnStack) {
        heapValues.reset(new std::uint64_t[code.muxCount]);
        heapPresent.reset(new bool[code.muxCount]);
        muxValue = heapValues.get();
        muxPresent = heapPresent.get();
    }
    const auto selected = [&](const Plan& plan) {
        return length >= plan.need && Selects(plan, muxPresent, muxValue, ranges);
    };
    for (std::uint32_t k = 0; k < code.muxCount; ++k) {
        const Plan& plan = d.plans[d.muxSignals[code.firstMux + k]];
        muxPresent[k] = selected(plan);
        muxValue[k] = muxPresent[k] ? Extract(plan, padded) : 0;
    }
    for (std::uint32_t i = 0; i < code.planCount; ++i) {
        const Plan& plan = plans[i];
        if (!selected(plan)) {
            sink(i, std::uint64_t{0}, 0.0, false);
            continue;
        }
        const std::uint64_t value = Extract(plan, padded);
        double number = static_cast<double>(static_cast<std::int64_t>(value));
        if (plan.exactAsSigned == 0) {
            number = RawNumber(plan, value);
        }
        sink(i, value, number * plan.factor + plan.offset, true);
    }
    return sink;
}

// The values of the signals present, one after the other.
struct Appender {
    tavlo_dec_value_t* out;

    void operator()(std::uint32_t signal, std::uint64_t raw, double physical, bool present) {
        if (present) {
            out->raw = raw;
            out->physical = physical;
            out->signal = signal;
            ++out;
        }
    }
};

// A frame of at least 8 bytes of a message with multiplexers whose plans
// all have quick plans: as Walk gives them to an Appender, but every signal
// is taken from the frame's first 8 bytes, which it always has. Returns the
// number of values.
std::size_t DecodeQuickMultiplexed(const tavlo_decoder_t& d, const MessageCode& code,
                                   const unsigned char* data, tavlo_dec_value_t* values) {
    std::uint64_t words[2];
    words[0] = Load64(data);
    words[1] = Swap64(words[0]);
    const Quick* quick = d.quick.data() + code.firstPlan;
    const Plan* plans = d.plans.data() + code.firstPlan;
    const Scale* scales = d.scales.data();
    const tavlo_dec_range_t* ranges = d.ranges.data();
    std::uint64_t muxValue[kQuickMultiplexers];
    bool muxPresent[kQuickMultiplexers];
    const auto selected = [&](const Plan& plan) {
        return Selects(plan, muxPresent, muxValue, ranges);
    };
    for (std::uint32_t k = 0; k < code.muxCount; ++k) {
        const std::uint32_t at = d.muxSignals[code.firstMux + k];
        muxPresent[k] = selected(d.plans[at]);
        muxValue[k] = muxPresent[k] ? ExtractQuick(d.quick[at], words) : 0;
    }
    tavlo_dec_value_t* out = values;
    for (std::uint32_t i = 0; i < code.planCount; ++i) {
        if (!selected(plans[i])) {
            continue;
        }
        const Quick& plan = quick[i];
        const Scale& scale = scales[plan.scale];
        const std::uint64_t raw = ExtractQuick(plan, words);
        const double number = static_cast<double>(static_cast<std::int64_t>(raw));
        out->raw = raw;
        out->physical = number * scale.factor + scale.offset;
        out->signal = i;
        ++out;
    }
    return static_cast<std::size_t>(out - values);
}

#if TAVLO_DECODER_AVX2
#define TAVLO_LANES __attribute__((target("avx2"), always_inline)) inline

// The raw and physical values of one group's four lanes (see LaneGroup):
// each field is shifted to the top of its word and down again, its sign
// extended by flipping and subtracting its sign bit, converted to double by
// adding it to 2^52 + 2^51 as an integer and subtracting that as a double
// (exact for the fields lanes take), and scaled by a multiplication and an
// addition rounded as the scalar loops round them. little and big hold the
// frame's first 8 bytes as a little- and a big-endian word in every lane.
struct LanePairs {
    __m256i low;   // [raw0 physical0 | raw2 physical2]
    __m256i high;  // [raw1 physical1 | raw3 physical3]
};
TAVLO_LANES LanePairs DecodeGroup(const LaneGroup& g, __m256i little, __m256i big,
                                  const LaneScales* scales) {
    const auto bytes = [](const std::uint8_t* four) {
        std::int32_t packed;
        std::memcpy(&packed, four, sizeof packed);
        return _mm_cvtsi32_si128(packed);
    };
    // The same bits are the integer added and the double taken away.
    const __m256d magicNumber = _mm256_set1_pd(6755399441055744.0);  // 2^52 + 2^51
    const __m256i magic = _mm256_castpd_si256(magicNumber);
    const __m256i motorola = _mm256_cvtepi8_epi64(bytes(g.motorola));
    const __m256i top = _mm256_sllv_epi64(_mm256_blendv_epi8(little, big, motorola),
                                          _mm256_cvtepu8_epi64(bytes(g.shift)));
    const __m256i field = _mm256_srlv_epi64(top, _mm256_cvtepu8_epi64(bytes(g.down)));
    const __m256i sign =
        _mm256_sllv_epi64(_mm256_set1_epi64x(1), _mm256_cvtepu8_epi64(bytes(g.sign)));
    const __m256i raw = _mm256_sub_epi64(_mm256_xor_si256(field, sign), sign);
    const __m256d number =
        _mm256_sub_pd(_mm256_castsi256_pd(_mm256_add_epi64(raw, magic)), magicNumber);
    const LaneScales& scale = scales[g.scales];
    const __m256i physical = _mm256_castpd_si256(_mm256_add_pd(
        _mm256_mul_pd(number, _mm256_load_pd(scale.factor)), _mm256_load_pd(scale.offset)));
    return LanePairs{_mm256_unpacklo_epi64(raw, physical), _mm256_unpackhi_epi64(raw, physical)};
}

// Writes value number `first + k` of the lanes at out[k], k < Count (1 to
// 4), with one 16-byte store for the raw and physical value of each.
template <std::size_t Count>
TAVLO_LANES void StoreGroup(const LanePairs& pairs, std::size_t first, tavlo_dec_value_t* out) {
    static_assert(sizeof(tavlo_dec_value_t) == 24, "a value is three 64-bit words");
    const auto store = [out, first](std::size_t k, __m128i lane) {
        std::memcpy(&out[k], &lane, sizeof lane);
        out[k].signal = static_cast<unsigned int>(first + k);
    };
    store(0, _mm256_castsi256_si128(pairs.low));
    if constexpr (Count > 1) {
        store(1, _mm256_castsi256_si128(pairs.high));
    }
    if constexpr (Count > 2) {
        store(2, _mm256_extracti128_si256(pairs.low, 1));
    }
    if constexpr (Count > 3) {
        store(3, _mm256_extracti128_si256(pairs.high, 1));
    }
}

// The n values of a message decoded in lanes whose groups all lie in its
// head (n at most 4 * kHeadGroups), in straight code for each n.
template <std::size_t N>
TAVLO_LANES void DecodeHeadLanes(const Head& head, const LaneScales* scales, __m256i little,
                                 __m256i big, tavlo_dec_value_t* values) {
    static_assert(N > 0 && N <= 4 * kHeadGroups, "the head's groups only");
    StoreGroup<(N < 4 ? N : 4)>(DecodeGroup(head.groups[0], little, big, scales), 0, values);
    if constexpr (N > 4) {
        StoreGroup<N - 4>(DecodeGroup(head.groups[1], little, big, scales), 4, values + 4);
    }
}

// The lane group of signal i of a message decoded in lanes, its groups
// after those in the head at more.
inline const LaneGroup& GroupOf(const Head& head, const LaneGroup* more, std::size_t i) {
    return i / 4 < kHeadGroups ? head.groups[i / 4] : more[i / 4 - kHeadGroups];
}

// The n values of a message decoded in lanes with groups beyond its head:
// whole groups without a check per value, then the rest. Apart, so that
// the usual messages' straight code keeps to few registers.
__attribute__((target("avx2"), noinline)) void DecodeManyLanes(
    const Head& head, const LaneGroup* more, const LaneScales* scales, std::size_t n,
    std::uint64_t word, tavlo_dec_value_t* values) {
    const __m256i little = _mm256_set1_epi64x(static_cast<long long>(word));
    const __m256i big = _mm256_set1_epi64x(static_cast<long long>(Swap64(word)));
    std::size_t done = 0;
    for (; done + 4 <= n; done += 4) {
        StoreGroup<4>(DecodeGroup(GroupOf(head, more, done), little, big, scales), done,
                      values + done);
    }
    if (done == n) {
        return;
    }
    const LanePairs rest = DecodeGroup(GroupOf(head, more, done), little, big, scales);
    switch (n - done) {
    case 1: return StoreGroup<1>(rest, done, values + done);
    case 2: return StoreGroup<2>(rest, done, values + done);
    default: return StoreGroup<3>(rest, done, values + done);
    }
}

// The n values (1 to 4 * kHeadGroups) of a message decoded in lanes, from
// the frame's first 8 bytes as a little-endian word.
TAVLO_LANES void DecodeInHead(const Head& head, const LaneScales* scales, std::size_t n,
                              std::uint64_t word, tavlo_dec_value_t* values) {
    static_assert(kHeadGroups == 2, "the straight cases below cover the head's groups");
    const __m256i little = _mm256_set1_epi64x(static_cast<long long>(word));
    const __m256i big = _mm256_set1_epi64x(static_cast<long long>(Swap64(word)));
    switch (n) {
    case 1: return DecodeHeadLanes<1>(head, scales, little, big, values);
    case 2: return DecodeHeadLanes<2>(head, scales, little, big, values);
    case 3: return DecodeHeadLanes<3>(head, scales, little, big, values);
    case 4: return DecodeHeadLanes<4>(head, scales, little, big, values);
    case 5: return DecodeHeadLanes<5>(head, scales, little, big, values);
    case 6: return DecodeHeadLanes<6>(head, scales, little, big, values);
    case 7: return DecodeHeadLanes<7>(head, scales, little, big, values);
    default: return DecodeHeadLanes<8>(head, scales, little, big, values);
    }
}

// A frame of at least 8 bytes of a quick message without multiplexers
// decoded in lanes: its n values, the groups after those in the head at
// more.
TAVLO_LANES void DecodeLanes(const Head& head, const LaneGroup* more, const LaneScales* scales,
                             std::size_t n, const unsigned char* data,
                             tavlo_dec_value_t* values) {
    if (n <= 4 * kHeadGroups) {
        DecodeInHead(head, scales, n, Load64(data), values);
    } else {
        DecodeManyLanes(head, more, scales, n, Load64(data), values);
    }
}

// A frame of at least 8 bytes of a multiplexed message decoded in lanes
// (kGated): the gates are opened, side by side in the simple form, else in
// their order taking the multiplexers' values on the way, into a mask of the
// signals absent. Then every signal is decoded in lanes, straight into values
// when all are present, else into a buffer from which those present are
// copied in order, so that nothing past the values kept is touched. Returns
// the number of values.
__attribute__((target("avx2"))) std::size_t DecodeGated(const tavlo_decoder_t& d,
                                                         const Head& head, std::size_t n,
                                                         const unsigned char* data,
                                                         tavlo_dec_value_t* values) {
    std::uint64_t words[2];
    words[0] = Load64(data);
    words[1] = Swap64(words[0]);
    const std::uint32_t* gate = d.gates.data() + head.first;
    const LaneGroup* more = d.lanes.data() + gate[0];
    const auto group = [&head, more](std::size_t i) -> const LaneGroup& {
        return GroupOf(head, more, i);
    };
    const auto value = [&words, &group](std::uint32_t i) {
        const LaneGroup& g = group(i);
        const std::uint32_t lane = i % 4;
        const std::uint64_t field = words[g.motorola[lane] & 1] << g.shift[lane] >> g.down[lane];
        const std::uint64_t sign = g.sign[lane] < 64 ? std::uint64_t{1} << g.sign[lane] : 0;
        return (field ^ sign) - sign;
    };
    std::uint64_t absent = 0;
    if ((gate[1] & GateWords::kSimpleGates) != 0) {
        const std::uint64_t mux = value(gate[2]);
        const std::uint64_t selected = gate[3] | std::uint64_t{gate[4]} << 32;
        if (mux >> 32 != 0) {
            absent = selected;
        } else {
            const __m256i muxes = _mm256_set1_epi32(static_cast<int>(mux));
            const __m256i flip = _mm256_set1_epi32(std::numeric_limits<std::int32_t>::min());
            const std::uint32_t* eight = gate + 5;
            for (std::size_t first = 0; first < n; first += 8, eight += 16) {
                const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(eight));
                const __m256i span =
                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(eight + 8));
                const __m256i beyond =
                    _mm256_cmpgt_epi32(_mm256_xor_si256(_mm256_sub_epi32(muxes, low), flip), span);
                absent |= std::uint64_t{static_cast<std::uint32_t>(
                              _mm256_movemask_ps(_mm256_castsi256_ps(beyond)))}
                          << first;
            }
        }
    } else {
        std::uint64_t muxRaw[kMostGated];
        const std::uint32_t* const end = gate + 2 + 3 * std::size_t{gate[1]};
        for (gate += 2; gate != end; gate += 3) {
            const std::uint32_t packed = gate[2];
            const std::uint32_t i = packed & 0xFF;
            if ((packed & GateWords::kSelected) != 0) {
                const std::uint32_t mux = packed >> 8 & 0xFF;
                const std::uint64_t shut =
                    (absent >> mux & 1) | (muxRaw[mux] - gate[0] > gate[1]);
                absent |= shut << i;
            }
            if ((packed & GateWords::kMultiplexer) != 0) {
                muxRaw[i] = value(i);
            }
        }
    }
    const LaneScales* scales = d.laneScales.data();
    if (absent == 0) {
        DecodeLanes(head, more, scales, n, data, values);
        return n;
    }
    tavlo_dec_value_t all[kMostGated];
    DecodeLanes(head, more, scales, n, data, all);
    std::size_t count = 0;
    const std::uint64_t signals = n < 64 ? (std::uint64_t{1} << n) - 1 : ~std::uint64_t{0};
    for (std::uint64_t keep = signals & ~absent; keep != 0; keep &= keep - 1) {
        values[count++] = all[__builtin_ctzll(keep)];
    }
    return count;
}

// The n values of a frame of at least 8 bytes of a gated message, or of one
// with groups beyond its head, as DecodeLanedFrame gives them.
__attribute__((target("avx2"), noinline)) int DecodeUnusualLanes(const tavlo_decoder_t& d,
                                                                 const Head& head, std::size_t n,
                                                                 const unsigned char* data,
                                                                 tavlo_dec_value_t* values,
                                                                 std::size_t* count) {
    if ((head.quick & kGated) != 0) {
        *count = DecodeGated(d, head, n, data, values);
        return TAVLO_DEC_OK;
    }
    DecodeManyLanes(head, d.lanes.data() + head.first, d.laneScales.data(), n, Load64(data),
                    values);
    *count = n;
    return TAVLO_DEC_OK;
}

// A frame of at least 8 bytes (at most 64) of a message decoded in lanes,
// gated or not, the values room enough: the usual messages (not
// gated, groups all in the head) in straight code that needs no frame and no
// saved registers, the others handed over.
__attribute__((target("avx2"), noinline)) int DecodeLanedFrame(const tavlo_decoder_t& d,
                                                               const Head& head,
                                                               const unsigned char* data,
                                                               tavlo_dec_value_t* values,
                                                               std::size_t* count) {
    const std::size_t n = head.quick & kQuickCount;
    if ((head.quick & kGated) != 0 || n > 4 * kHeadGroups) {
        return DecodeUnusualLanes(d, head, n, data, values, count);
    }
    DecodeInHead(head, d.laneScales.data(), n, Load64(data), values);
    *count = n;
    return TAVLO_DEC_OK;
}

#undef TAVLO_LANES
#endif
}  // namespace

bool LanesSupported() {
#if TAVLO_DECODER_AVX2
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

std::uint64_t ExtractSpilled(const Plan& plan, const unsigned char* padded) {
    const std::uint64_t word = Load64(padded + plan.byte);
    const std::uint64_t next = padded[plan.byte + 8];
    const std::uint64_t bits = (plan.motorola == 0
                                    ? (word >> plan.shift) | (next << (64 - plan.shift))
                                    : (Swap64(word) << plan.spill) | (next >> (8 - plan.spill))) &
                               plan.Mask();
    const std::uint64_t sign = plan.SignBit();
    return (bits ^ sign) - sign;
}

void Insert(const Plan& plan, std::uint64_t value, unsigned char* padded) {
    unsigned char* at = padded + plan.byte;
    std::uint64_t word = Load64(at);
    // Without spill, the field's right shift in the (swapped) word.
    const unsigned int down = plan.spill != 0 ? plan.shift : 64u - plan.shift - plan.length;
    if (plan.motorola == 0) {
        word = (word & ~(plan.Mask() << down)) | (value << down);
        if (plan.spill != 0) {
            const unsigned int up = 64u - plan.shift;
            const auto keep = static_cast<unsigned char>(~(plan.Mask() >> up));
            at[8] = static_cast<unsigned char>((at[8] & keep) | (value >> up));
        }
        Store64(at, word);
        return;
    }
    word = Swap64(word);
    if (plan.spill == 0) {
        word = (word & ~(plan.Mask() << down)) | (value << down);
    } else {
        // The low `spill` bits go to the top of the ninth byte, the rest to
        // the bottom of the word.
        const unsigned int low = plan.spill;
        const unsigned int lowMask = (1u << low) - 1;
        const unsigned int at8 = 8 - low;
        at[8] = static_cast<unsigned char>((at[8] & ~(lowMask << at8)) |
                                           ((static_cast<unsigned int>(value) & lowMask) << at8));
        word = (word & ~(plan.Mask() >> low)) | (value >> low);
    }
    Store64(at, Swap64(word));
}

}  // namespace tavlo::decoder

using tavlo::decoder::kEmpty;
using tavlo::decoder::Appender;
using tavlo::decoder::Walk;

int tavlo_decoder_decode_message(const tavlo_decoder_t* decoder, size_t index,
                                 const unsigned char* data, size_t length,
                                 tavlo_dec_value_t* values, size_t capacity, size_t* count) {
    if (count != nullptr) {
        *count = 0;
    }
    if (decoder == nullptr || count == nullptr || (data == nullptr && length != 0) || length > 64) {
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    if (index >= decoder->code.size()) {
        return TAVLO_DEC_UNKNOWN_MESSAGE;
    }
    if (capacity < decoder->code[index].planCount || (values == nullptr && capacity != 0)) {
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    const Appender end = Walk(*decoder, static_cast<std::uint32_t>(index), data, length,
                              Appender{values});
    *count = static_cast<std::size_t>(end.out - values);
    return TAVLO_DEC_OK;
}

namespace {

// The n signals of a frame of at least 8 bytes of a quick message (not
// decoded in lanes), from its first 8 bytes read once in both byte orders,
// each without a check; returns n.
inline std::size_t DecodeQuick(const tavlo_decoder_t& d, const tavlo::decoder::Head& head,
                               std::uint32_t n, const unsigned char* data,
                               tavlo_dec_value_t* values) {
    const tavlo::decoder::Quick* quick = d.quick.data() + head.first;
    const tavlo::decoder::Scale* scales = d.scales.data();
    std::uint64_t words[2];
    words[0] = tavlo::decoder::Load64(data);
    words[1] = tavlo::decoder::Swap64(words[0]);
    for (std::uint32_t i = 0; i < n; ++i) {
        const tavlo::decoder::Quick& plan = quick[i];
        const tavlo::decoder::Scale& scale = scales[plan.scale];
        const std::uint64_t raw = tavlo::decoder::ExtractQuick(plan, words);
        const double number = static_cast<double>(static_cast<std::int64_t>(raw));
        values[i].raw = raw;
        values[i].physical = number * scale.factor + scale.offset;
        values[i].signal = i;
    }
    return n;
}

// A frame after its message was looked up (null: unknown), every way but
// lanes: see tavlo_decoder_decode.
__attribute__((noinline)) int DecodeFound(const tavlo_decoder_t* decoder,
                                          const tavlo::decoder::Head* found,
                                          const unsigned char* data, size_t length,
                                          tavlo_dec_value_t* values, size_t capacity,
                                          size_t* count) {
    if (found == nullptr) {
        if (count != nullptr) {
            *count = 0;
        }
        return TAVLO_DEC_UNKNOWN_MESSAGE;
    }
    const tavlo::decoder::Head& head = *found;
    const std::uint32_t m = head.message;
    const std::uint32_t n = head.quick & tavlo::decoder::kQuickCount;
    const bool quickFrame =
        length >= 8 && length <= 64 && data != nullptr && count != nullptr && values != nullptr;
    if (quickFrame && n != 0 && capacity >= n && (head.quick & tavlo::decoder::kLaned) == 0) {
        *count = DecodeQuick(*decoder, head, n, data, values);
        return TAVLO_DEC_OK;
    }
    if (quickFrame && n == 0) {
        const tavlo::decoder::MessageCode& code = decoder->code[m];
        if (code.quickMultiplexed != 0 && capacity >= code.planCount) {
            *count = tavlo::decoder::DecodeQuickMultiplexed(*decoder, code, data, values);
            return TAVLO_DEC_OK;
        }
    }
    return tavlo_decoder_decode_message(decoder, m, data, length, values, capacity, count);
}

// Every signal of a frame of at least 8 bytes (and at most 64) of a quick
// message of at most kMostEvery signals without multiplexers, in order, into
// values; returns how many, or 0 when the message is not such a one.
constexpr std::size_t kMostEvery = 64;
inline std::size_t DecodeEvery(const tavlo_decoder_t& d, const tavlo::decoder::Head& head,
                               const unsigned char* data, std::size_t length,
                               tavlo_dec_value_t* values) {
    const std::uint32_t n = head.quick & tavlo::decoder::kQuickCount;
    if (n == 0 || n > kMostEvery || length < 8 || length > 64 ||
        (head.quick & tavlo::decoder::kGated) != 0) {
        return 0;
    }
#if TAVLO_DECODER_AVX2
    if ((head.quick & tavlo::decoder::kLaned) != 0) {
        std::size_t count = 0;
        tavlo::decoder::DecodeLanedFrame(d, head, data, values, &count);
        return count;
    }
#endif
    return DecodeQuick(d, head, n, data, values);
}

}  // namespace

int tavlo_decoder_decode(const tavlo_decoder_t* decoder, unsigned int id, const unsigned char* data,
                         size_t length, tavlo_dec_value_t* values, size_t capacity, size_t* count) {
    if (decoder == nullptr) {
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    // The common case: a frame of at least 8 bytes of a message whose signals
    // all lie in them. Without multiplexers every signal is present: decoded
    // in lanes where the processor can, else from the frame's first 8 bytes
    // read once in both byte orders, each signal without a check. A
    // multiplexed one is decoded in lanes and gated, or by the multiplexed
    // quick loop; anything else the general way.
    const tavlo::decoder::Head* head = decoder->FindHead(id);
#if TAVLO_DECODER_AVX2
    if (head != nullptr && (head->quick & tavlo::decoder::kLaned) != 0 && length >= 8 &&
        length <= 64 && data != nullptr && count != nullptr && values != nullptr &&
        capacity >= (head->quick & tavlo::decoder::kQuickCount)) {
        return tavlo::decoder::DecodeLanedFrame(*decoder, *head, data, values, count);
    }
#endif
    return DecodeFound(decoder, head, data, length, values, capacity, count);
}

const char* tavlo_decoder_describe(const tavlo_decoder_t* decoder, size_t message, size_t signal,
                                   uint64_t raw) {
    const tavlo_dec_message_t* m = tavlo_decoder_message(decoder, message);
    if (m == nullptr || signal >= m->signal_count) {
        return nullptr;
    }
    const tavlo_dec_signal_t& s = m->signals[signal];
    if (s.description_count == 0) {
        return nullptr;
    }
    std::int64_t key = 0;
    if (s.kind == TAVLO_DEC_UNSIGNED) {
        if (raw > 0xFFFFFFFFu) {
            return nullptr;
        }
        key = static_cast<std::int64_t>(raw);
    } else if (s.kind == TAVLO_DEC_SIGNED) {
        key = static_cast<std::int64_t>(raw);
        if (key < INT32_MIN || key > INT32_MAX) {
            return nullptr;
        }
    } else {
        const double number =
            tavlo::decoder::RawNumber(decoder->plans[decoder->code[message].firstPlan + signal], raw);
        if (!(number >= INT32_MIN && number <= INT32_MAX) || number != std::floor(number)) {
            return nullptr;
        }
        key = static_cast<std::int64_t>(number);
    }
    const tavlo_dec_description_t* end = s.descriptions + s.description_count;
    const tavlo_dec_description_t* found = std::lower_bound(
        s.descriptions, end, key,
        [](const tavlo_dec_description_t& d, std::int64_t value) { return d.value < value; });
    return found != end && found->value == key ? found->text : nullptr;
}

size_t tavlo_decoder_count(const tavlo_decoder_t* decoder, size_t frames, const unsigned int* ids,
                           size_t* rows) {
    if (decoder == nullptr || ids == nullptr || rows == nullptr) {
        return frames;
    }
    std::size_t unknown = 0;
    for (std::size_t i = 0; i < frames; ++i) {
        const std::uint32_t m = decoder->Find(ids[i]);
        if (m == kEmpty) {
            ++unknown;
        } else {
            ++rows[m];
        }
    }
    return unknown;
}

namespace {

// Decodes frames into columns (see tavlo_decoder_decode_columns) and keeps
// the result: TAVLO_DEC_BAD_ARGUMENT once a frame was too long, else
// TAVLO_DEC_NO_MEMORY once a column was full.
class ColumnWriter {
public:
    ColumnWriter(const tavlo_decoder_t& decoder, const double* times, const unsigned char* lengths,
                 const unsigned char* data, std::size_t stride, tavlo_dec_columns_t* columns)
        : decoder_(decoder), times_(times), lengths_(lengths), data_(data), stride_(stride),
          columns_(columns) {}

    int result() const { return result_; }

    // Frame i, of the message of head, as the next row of its column.
    void Row(std::size_t i, const tavlo::decoder::Head& head) {
        constexpr double kAbsent = std::numeric_limits<double>::quiet_NaN();
        const std::uint32_t m = head.message;
        const std::size_t length = lengths_[i];
        if (length > 64 || length > stride_) {
            result_ = TAVLO_DEC_BAD_ARGUMENT;
            return;
        }
        tavlo_dec_columns_t& column = columns_[m];
        if (column.rows >= column.capacity) {
            if (result_ == TAVLO_DEC_OK) {
                result_ = TAVLO_DEC_NO_MEMORY;
            }
            return;
        }
        const std::size_t row = column.rows++;
        if (column.times != nullptr) {
            column.times[row] = times_ != nullptr ? times_[i] : kAbsent;
        }
        double** physical = column.physical;
        std::uint64_t** raw = column.raw;
        const unsigned char* frame = data_ + i * stride_;
        const std::size_t every = DecodeEvery(decoder_, head, frame, length, values_);
        if (every != 0) {
            for (std::size_t s = 0; s < every; ++s) {
                if (physical != nullptr && physical[s] != nullptr) {
                    physical[s][row] = values_[s].physical;
                }
                if (raw != nullptr && raw[s] != nullptr) {
                    raw[s][row] = values_[s].raw;
                }
            }
            return;
        }
        Walk(decoder_, m, frame, length,
             [physical, raw, row](std::uint32_t signal, std::uint64_t value, double number,
                                  bool present) {
                 if (physical != nullptr && physical[signal] != nullptr) {
                     physical[signal][row] = present ? number : kAbsent;
                 }
                 if (raw != nullptr && raw[signal] != nullptr) {
                     raw[signal][row] = value;
                 }
             });
    }

private:
    const tavlo_decoder_t& decoder_;
    const double* times_;
    const unsigned char* lengths_;
    const unsigned char* data_;
    std::size_t stride_;
    tavlo_dec_columns_t* columns_;
    int result_ = TAVLO_DEC_OK;
    tavlo_dec_value_t values_[kMostEvery];
};

// Frames are decoded a group at a time, message by message within the group
// (each message's frames in their order), so that the columns are written
// in runs rather than a value here and there across all of them: with
// thousands of messages the scattered writes would miss the caches and the
// address translations at nearly every value.
constexpr std::size_t kGroupFrames = 32768;
constexpr std::uint32_t kPrefetchAhead = 8;

struct Grouping {
    std::vector<const tavlo::decoder::Head*> heads;  // of the group's frames; null: unknown
    std::vector<std::uint32_t> order;                // the group's frames, message by message
    std::vector<std::uint32_t> touched;              // the group's messages
    std::vector<std::uint32_t> place;                // by message: frames, then the next place

    explicit Grouping(std::size_t messages)
        : heads(kGroupFrames), order(kGroupFrames), place(messages, 0) {
        touched.reserve(kGroupFrames);
    }
};

}  // namespace

int tavlo_decoder_decode_columns(const tavlo_decoder_t* decoder, size_t frames, const double* times,
                                 const unsigned int* ids, const unsigned char* lengths,
                                 const unsigned char* data, size_t stride,
                                 tavlo_dec_columns_t* columns, size_t* unknown) {
    if (unknown != nullptr) {
        *unknown = 0;
    }
    if (decoder == nullptr || columns == nullptr ||
        (frames != 0 && (ids == nullptr || lengths == nullptr || data == nullptr))) {
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    ColumnWriter writer(*decoder, times, lengths, data, stride, columns);
    std::size_t strangers = 0;
    std::unique_ptr<Grouping> grouping;
    if (frames > kGroupFrames / 4) {
        try {
            grouping = std::make_unique<Grouping>(decoder->messages.size());
        } catch (const std::bad_alloc&) {
            grouping.reset();  // then frame by frame, in their order
        }
    }
    if (grouping == nullptr) {
        for (std::size_t i = 0; i < frames; ++i) {
            const tavlo::decoder::Head* head = decoder->FindHead(ids[i]);
            if (head == nullptr) {
                ++strangers;
            } else {
                writer.Row(i, *head);
            }
        }
    }
    for (std::size_t first = 0; grouping != nullptr && first < frames; first += kGroupFrames) {
        Grouping& g = *grouping;
        const std::size_t count = std::min(kGroupFrames, frames - first);
        g.touched.clear();
        for (std::size_t k = 0; k < count; ++k) {
            const tavlo::decoder::Head* head = decoder->FindHead(ids[first + k]);
            g.heads[k] = head;
            if (head == nullptr) {
                ++strangers;
            } else if (g.place[head->message]++ == 0) {
                g.touched.push_back(head->message);
            }
        }
        std::uint32_t next = 0;
        for (const std::uint32_t m : g.touched) {
            const std::uint32_t n = g.place[m];
            g.place[m] = next;
            next += n;
        }
        for (std::size_t k = 0; k < count; ++k) {
            if (g.heads[k] != nullptr) {
                g.order[g.place[g.heads[k]->message]++] = static_cast<std::uint32_t>(k);
            }
        }
        for (const std::uint32_t m : g.touched) {
            g.place[m] = 0;
        }
        for (std::uint32_t k = 0; k < next; ++k) {
            if (k + kPrefetchAhead < next) {
                const std::size_t ahead = first + g.order[k + kPrefetchAhead];
                __builtin_prefetch(data + ahead * stride);
                if (times != nullptr) {
                    __builtin_prefetch(times + ahead);
                }
            }
            const std::size_t frame = g.order[k];
            writer.Row(first + frame, *g.heads[frame]);
        }
    }
    if (unknown != nullptr) {
        *unknown = strangers;
    }
    return writer.result();
}

// Library-owned columns: one block per message holding its times, then its
// physical columns, then its raw ones.
struct tavlo_dec_batch_t {
    const tavlo_decoder_t* decoder;
    std::vector<std::unique_ptr<double[]>> blocks;        // times and physical, per message
    std::vector<std::unique_ptr<std::uint64_t[]>> raws;   // raw, per message
    std::vector<std::vector<double*>> physical;
    std::vector<std::vector<std::uint64_t*>> raw;
    std::vector<tavlo_dec_columns_t> columns;
};

tavlo_dec_batch_t* tavlo_dec_batch_new(const tavlo_decoder_t* decoder) {
    if (decoder == nullptr) {
        return nullptr;
    }
    try {
        auto* batch = new tavlo_dec_batch_t();
        batch->decoder = decoder;
        const std::size_t messages = decoder->messages.size();
        batch->blocks.resize(messages);
        batch->raws.resize(messages);
        batch->physical.resize(messages);
        batch->raw.resize(messages);
        batch->columns.assign(messages, tavlo_dec_columns_t{});
        return batch;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void tavlo_dec_batch_free(tavlo_dec_batch_t* batch) { delete batch; }

int tavlo_dec_batch_decode(tavlo_dec_batch_t* batch, size_t frames, const double* times,
                           const unsigned int* ids, const unsigned char* lengths,
                           const unsigned char* data, size_t stride) {
    if (batch == nullptr || (frames != 0 && ids == nullptr)) {
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    const tavlo_decoder_t& d = *batch->decoder;
    try {
        std::vector<std::size_t> rows(d.messages.size(), 0);
        tavlo_decoder_count(&d, frames, ids, rows.data());
        for (std::size_t m = 0; m < rows.size(); ++m) {
            const std::size_t signals = d.messages[m].signal_count;
            tavlo_dec_columns_t& column = batch->columns[m];
            column = tavlo_dec_columns_t{};
            batch->blocks[m].reset();
            batch->raws[m].reset();
            if (rows[m] == 0) {
                continue;
            }
            batch->blocks[m].reset(new double[rows[m] * (1 + signals)]);
            batch->raws[m].reset(new std::uint64_t[rows[m] * std::max<std::size_t>(signals, 1)]);
            batch->physical[m].resize(signals);
            batch->raw[m].resize(signals);
            for (std::size_t s = 0; s < signals; ++s) {
                batch->physical[m][s] = batch->blocks[m].get() + rows[m] * (1 + s);
                batch->raw[m][s] = batch->raws[m].get() + rows[m] * s;
            }
            column.capacity = rows[m];
            column.times = batch->blocks[m].get();
            column.physical = batch->physical[m].data();
            column.raw = batch->raw[m].data();
        }
    } catch (const std::bad_alloc&) {
        for (tavlo_dec_columns_t& column : batch->columns) {
            column = tavlo_dec_columns_t{};
        }
        return TAVLO_DEC_NO_MEMORY;
    }
    return tavlo_decoder_decode_columns(&d, frames, times, ids, lengths, data, stride,
                                        batch->columns.data(), nullptr);
}

size_t tavlo_dec_batch_rows(const tavlo_dec_batch_t* batch, size_t message) {
    return batch != nullptr && message < batch->columns.size() ? batch->columns[message].rows : 0;
}

const double* tavlo_dec_batch_times(const tavlo_dec_batch_t* batch, size_t message) {
    return tavlo_dec_batch_rows(batch, message) != 0 ? batch->columns[message].times : nullptr;
}

const double* tavlo_dec_batch_physical(const tavlo_dec_batch_t* batch, size_t message,
                                       size_t signal) {
    if (tavlo_dec_batch_rows(batch, message) == 0 || signal >= batch->physical[message].size()) {
        return nullptr;
    }
    return batch->physical[message][signal];
}

const uint64_t* tavlo_dec_batch_raw(const tavlo_dec_batch_t* batch, size_t message,
                                    size_t signal) {
    if (tavlo_dec_batch_rows(batch, message) == 0 || signal >= batch->raw[message].size()) {
        return nullptr;
    }
    return batch->raw[message][signal];
}
