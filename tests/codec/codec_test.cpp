// The signal value codec. The bit layer, reading and writing fields of frame
// data in either byte order, checked on random fields against a reference
// that walks a field one bit at a time; then raw values with their sign and
// length rules, float and double signals, multiplexed signals, raw and
// physical values with the range rule, and the text formats (formats.txt).
// The random tests' seed is fixed, printed and recorded with the result, so
// that a failing run can be repeated; TAVLOMS_CODEC_SEED tries another.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/model.h"
#include "tavloms/tavloms.h"

namespace {

inline std::uint32_t CodecSeed(std::uint32_t offset) {
    const char* text = std::getenv("TAVLOMS_CODEC_SEED");
    const auto seed = text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0)) : 20261122u;
    std::cout << "[   SEED   ] " << seed << " + " << offset << " (TAVLOMS_CODEC_SEED=" << seed << " repeats it)\n";
    ::testing::Test::RecordProperty("seed", std::to_string(seed));
    return seed + offset;
}

using Frame = std::array<unsigned char, 16>;

// "AB CD ..." as the first bytes of a frame of `fill` bytes.
inline Frame FrameOf(const std::string& hex, unsigned char fill = 0) {
    Frame frame;
    frame.fill(fill);
    for (std::size_t i = 0; 3 * i + 1 < hex.size(); ++i) {
        frame[i] = static_cast<unsigned char>(std::stoul(hex.substr(3 * i, 2), nullptr, 16));
    }
    return frame;
}

// Bytes as "AB CD ...".
inline std::string Hex(const unsigned char* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += (i != 0 ? " " : "") + std::string(1, "0123456789ABCDEF"[bytes[i] >> 4]) + "0123456789ABCDEF"[bytes[i] & 0xF];
    }
    return text;
}

struct Release {
    void operator()(void* block) const { TAVLO_MFREE(block); }
};
using Image = std::unique_ptr<unsigned char, Release>;
using Text = std::unique_ptr<char, Release>;

constexpr unsigned int kIntel = 0, kMotorola = TAVLO_SIG_MOTOROLA, kSigned = TAVLO_SIG_SIGNED;

struct Layout {
    unsigned int flags, startBit, length;
    double factor = 1.0, offset = 0.0, minimum = 0.0, maximum = 0.0;
    unsigned int valueType = TAVLO_VALUE_INTEGER;
};

sigblk SignalOf(const Layout& layout, const char* unit = "") {
    sigblk signal{};
    signal.start_bit = static_cast<unsigned short>(layout.startBit);
    signal.length = static_cast<unsigned short>(layout.length);
    signal.flags = static_cast<unsigned char>(layout.flags);
    signal.factor = layout.factor;
    signal.offset = layout.offset;
    signal.minimum = layout.minimum;
    signal.maximum = layout.maximum;
    std::strcpy(signal.unit, unit);
    signal.value_type = layout.valueType;
    return signal;
}

// ---- The reference: a field as the frame positions of its bits, least
// significant first. Intel: the start bit is the least significant bit and
// the field runs up the frame's bit numbers. Motorola: the start bit is the
// most significant; towards less significant bits it steps down within a
// byte and from bit 0 on to bit 7 of the next byte.
struct BitAt {
    int byte;
    int bit;
};

std::vector<BitAt> FieldBits(unsigned int startBit, unsigned int length, bool motorola) {
    std::vector<BitAt> bits;
    BitAt at{static_cast<int>(startBit / 8), static_cast<int>(startBit % 8)};
    for (unsigned int k = 1; motorola && k < length; ++k) {  // down to the least significant
        at = at.bit == 0 ? BitAt{at.byte + 1, 7} : BitAt{at.byte, at.bit - 1};
    }
    for (unsigned int k = 0; k < length; ++k) {
        bits.push_back(at);
        const bool nextByte = at.bit == 7;
        at = {at.byte + (nextByte ? (motorola ? -1 : 1) : 0), nextByte ? 0 : at.bit + 1};
    }
    return bits;
}

// The field's value as a little-endian image of 16 bytes.
Frame ReferenceRead(const unsigned char* frame, const std::vector<BitAt>& bits) {
    Frame value{};
    for (std::size_t k = 0; k < bits.size(); ++k) {
        value[k / 8] |= static_cast<unsigned char>(((frame[bits[k].byte] >> bits[k].bit) & 1) << (k % 8));
    }
    return value;
}

void ReferenceWrite(const unsigned char* value, const std::vector<BitAt>& bits, unsigned char* frame) {
    for (std::size_t k = 0; k < bits.size(); ++k) {
        unsigned char& byte = frame[bits[k].byte];
        byte = static_cast<unsigned char>((byte & ~(1u << bits[k].bit)) |
                                          (((value[k / 8] >> (k % 8)) & 1u) << bits[k].bit));
    }
}

std::uint32_t Low32(const unsigned char* image) {
    return image[0] | image[1] << 8 | image[2] << 16 | static_cast<std::uint32_t>(image[3]) << 24;
}

// ---- Fixed cases, which also show that the reference can be trusted.
TEST(BitFields, ReadFixedCases) {
    const struct { const char* frame; unsigned int startBit, length; bool motorola; std::uint32_t value; } cases[] = {
        {"AB CD", 4, 8, false, 0xDA},               {"12 34", 7, 16, true, 0x1234},
        {"12 34", 3, 8, true, 0x23},                {"00 04", 10, 1, false, 1},
        {"C0 B3 A2 91", 3, 29, false, 0x12345678},  {"12 34 56 78", 7, 32, true, 0x12345678},
        {"00 00 00 00 00 00 12 34", 55, 16, true, 0x1234}, {"00 00 00 00 00 00 00 AB CD", 60, 8, false, 0xDA},
        {"00 00 00 00 00 00 00 12 34", 59, 8, true, 0x23}, {"00 00 00 00 00 00 00 00 12 34", 71, 16, true, 0x1234},
        {"78 56 34 12 EE EE EE EE", 0, 64, false, 0x12345678}, {"AA 12 34 56 78", 7, 40, true, 0x12345678},
        {"00", 5, 0, false, 0},                     {"00", 64, 0, false, 0},
    };
    for (const auto& c : cases) {
        const Frame frame = FrameOf(c.frame);
        EXPECT_EQ(TavloManager::ExtractLong(frame.data(), static_cast<unsigned short>(c.startBit),
                                            static_cast<unsigned short>(c.length), c.motorola), c.value) << c.frame;
        EXPECT_EQ(Low32(ReferenceRead(frame.data(), FieldBits(c.startBit, c.length, c.motorola)).data()), c.value);
    }
    // The image of a field up to 32 bits has 5 bytes, the last zero.
    Image small(TavloManager::ExtractString(FrameOf("AB CD EF").data(), 4, 12, false));
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(Hex(small.get(), 5), "DA 0C 00 00 00");
}

// ---- Random fields of 1..120 bits against the reference: (a) what is read,
// (b) what is written, with no bit outside the field moved, and (c) through a
// signal of up to 32 bits: the value cut to the length, sign-extended when
// signed. The image of ExtractString has 9 bytes up to 64 bits, 13 up to 89
// and none from 90 on.
TEST(BitFields, RandomFieldsAgreeWithTheReference) {
    std::mt19937 random(CodecSeed(0));
    TavloManager manager(static_cast<void*>(nullptr));
    const msgblk message{};
    int failures = 0;
    int kinds[2][2][2] = {};  // [motorola][beyond byte 7][over 32 bits]
    constexpr int kCases = 40000;
    for (int n = 0; n < kCases; ++n) {
        const bool wide = random() % 4 == 0;  // reaching into bytes 8..15
        const unsigned int limit = wide ? 16 : 8;
        unsigned int startBit, length;
        bool motorola, inside, beyond;
        std::vector<BitAt> bits;
        do {
            startBit = random() % (limit * 8);
            length = random() % 3 == 0 ? 33 + random() % (wide ? 88 : 32) : 1 + random() % 32;
            motorola = random() % 2 == 1;
            bits = FieldBits(startBit, length, motorola);
            beyond = false;
            inside = std::all_of(bits.begin(), bits.end(), [&](BitAt at) {
                beyond = beyond || at.byte >= 8;
                return at.byte >= 0 && at.byte < static_cast<int>(limit);
            });
        } while (!inside || beyond != wide);
        kinds[motorola][beyond][length > 32]++;
        Frame before, value;
        std::generate(before.begin(), before.end(), [&] { return static_cast<unsigned char>(random()); });
        std::generate(value.begin(), value.end(), [&] { return static_cast<unsigned char>(random()); });
        const auto start = static_cast<unsigned short>(startBit);
        const auto len = static_cast<unsigned short>(length);
        const Frame expectedImage = ReferenceRead(before.data(), bits);
        Frame expectedAfter = before;
        ReferenceWrite(value.data(), bits, expectedAfter.data());
        Frame after = before;
        TavloManager::IncorporateValue(value.data(), start, len, motorola, after.data());
        bool ok = TavloManager::ExtractLong(before.data(), start, len, motorola) ==
                      Low32(expectedImage.data()) && after == expectedAfter;
        if (length > 32) {
            Image image(TavloManager::ExtractString(before.data(), start, len, motorola));
            const std::size_t size = length <= 64 ? 9 : 13;
            ok = ok && (length >= 90 ? !image : image && std::memcmp(image.get(), expectedImage.data(), size) == 0);
        } else {
            const bool isSigned = random() % 2 == 1;
            const sigblk signal = SignalOf({(motorola ? kMotorola : kIntel) | (isSigned ? kSigned : 0u), startBit, length});
            const std::uint32_t mask = length == 32 ? 0xFFFFFFFFu : (1u << length) - 1;
            std::uint32_t expected = Low32(value.data()) & mask;
            expected |= isSigned && (expected >> (length - 1)) != 0 ? ~mask : 0;
            Frame frame = before;
            unsigned int raw = 0;
            ok = ok && manager.SetSignalRawValue(frame.data(), signal, message, Low32(value.data())) == TAVLO_SIGNAL_OK &&
                 frame == expectedAfter &&
                 manager.GetSignalRawValue(frame.data(), signal, message, raw) == TAVLO_SIGNAL_OK && raw == expected;
        }
        if (!ok && ++failures <= 10) {
            ADD_FAILURE() << (motorola ? "Motorola" : "Intel") << " start " << startBit << " length " << length
                          << "\n  frame " << Hex(before.data(), 16) << "\n  value " << Hex(value.data(), 16);
        }
    }
    EXPECT_EQ(failures, 0) << "of " << kCases << " cases";
    for (const auto& order : kinds) {  // every kind of field was drawn often
        EXPECT_TRUE(order[0][0] > kCases / 50 && order[0][1] > kCases / 50 && order[1][0] > kCases / 100 && order[1][1] > kCases / 100);
    }
}

class SignalValues : public ::testing::Test {
protected:
    TavloManager manager{static_cast<void*>(nullptr)};
    const msgblk none{};  // the message of signals that are not multiplexed
};

TEST_F(SignalValues, RawIntegerValues) {
    // Each frame is read, and the raw value written into a frame of 0xEE bytes.
    const struct { Layout layout; const char* frame; std::uint32_t raw; unsigned int result; const char* written; } cases[] = {
        {{kIntel, 0, 8}, "FF", 255u, TAVLO_SIGNAL_OK, "FF EE"},
        {{kSigned, 0, 8}, "FF", 0xFFFFFFFFu, TAVLO_SIGNAL_OK, "FF EE"},
        {{kSigned, 4, 4}, "8F", 0xFFFFFFF8u, TAVLO_SIGNAL_OK, "8E EE"},
        {{kSigned, 3, 1}, "08", 0xFFFFFFFFu, TAVLO_SIGNAL_OK, "EE EE"},
        {{kSigned, 0, 32}, "00 00 00 80", 0x80000000u, TAVLO_SIGNAL_OK, "00 00 00 80 EE"},
        {{kSigned | kMotorola, 7, 12}, "80 1F", 0xFFFFF801u, TAVLO_SIGNAL_OK, "80 1E EE"},
        {{kSigned, 0, 33}, "01 00 00 80 01", 0x80000001u, TAVLO_SIGNAL_TOO_LONG, "01 00 00 80 EE"},
        {{kIntel, 0, 40}, "78 56 34 12 AB", 0x12345678u, TAVLO_SIGNAL_OK, "78 56 34 12 00 EE"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.frame);
        const sigblk signal = SignalOf(c.layout);
        unsigned int raw = 0xDEADBEEF;
        EXPECT_EQ(manager.GetSignalRawValue(FrameOf(c.frame).data(), signal, none, raw), c.result);
        EXPECT_EQ(raw, c.raw);
        Frame frame = FrameOf("", 0xEE);
        const unsigned int written = manager.SetSignalRawValue(frame.data(), signal, none, c.raw);
        EXPECT_EQ(written, c.layout.length > 32 ? TAVLO_SIGNAL_TOO_LONG : TAVLO_SIGNAL_OK);
        EXPECT_EQ(Hex(frame.data(), (std::strlen(c.written) + 1) / 3), c.written);
    }
    // A double handed to an integer signal: the low bits of its image, and 2.
    const std::uint64_t bits = 0x4000000000000ABCull;
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    Frame frame = FrameOf("", 0xFF);
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), SignalOf({kIntel, 4, 12}), none, value), TAVLO_SIGNAL_WRONG_TYPE);
    EXPECT_EQ(Hex(frame.data(), 3), "CF AB FF");
}

// Float and double signals round trip in both byte orders, in the first 8
// bytes and beyond, and lie in the frame as their bytes in the signal's order.
TEST_F(SignalValues, FloatAndDoubleSignals) {
    const double values[] = {0.0, -1.5, 3.141592653589793, 1e300, -2.2250738585072014e-308, -INFINITY};
    for (int kind = 0; kind < 8; ++kind) {  // byte order, float or double, in the first word or not
        const unsigned int order = kind & 1 ? kMotorola : kIntel, size = kind & 2 ? 8 : 4, firstByte = kind & 4 ? 8 : 1;
        const unsigned int startBit = 8 * firstByte + (order == kMotorola ? 7 : 0);
        const sigblk signal = SignalOf({order, startBit, 8 * size, 1, 0, 0, 0, size == 4 ? TAVLO_VALUE_FLOAT : TAVLO_VALUE_DOUBLE});
        for (const double value : values) {
            SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(value));
            const float narrow = static_cast<float>(value);
            unsigned char image[8];
            std::memcpy(image, size == 4 ? static_cast<const void*>(&narrow) : &value, size);
            Frame frame = FrameOf("", 0xA5);
            EXPECT_EQ(manager.SetSignalRawValue(frame.data(), signal, none, value), TAVLO_SIGNAL_OK);
            for (unsigned int i = 0; i < size; ++i) {  // little-endian hosts
                EXPECT_EQ(frame[firstByte + i], image[order == kMotorola ? size - 1 - i : i]);
            }
            EXPECT_EQ(frame[firstByte - 1] & frame[(firstByte + size) % 16], 0xA5);  // the neighbours
            double back = 0;
            EXPECT_EQ(manager.GetSignalRawValue(frame.data(), signal, none, back), TAVLO_SIGNAL_OK);
            EXPECT_EQ(back, size == 4 ? static_cast<double>(narrow) : value);
        }
    }
    double back = 0;  // an integer signal has no such value
    EXPECT_EQ(manager.GetSignalRawValue(FrameOf("").data(), SignalOf({kIntel, 0, 32}), none, back), TAVLO_SIGNAL_WRONG_TYPE);
}

// The message's first mode signal decides; a mode signal that is multiplexed
// itself must be present too. An absent signal is read and written all the
// same, and says so with 5, before any range.
TEST_F(SignalValues, MultiplexedSignals) {
    msgblk* message = TAVLO_CREATE_MSGBLK();
    unsigned int count = 0;
    auto add = [&](const Layout& layout, unsigned int modeValue) {
        sigblk* signal = TAVLO_CREATE_SIGBLK();
        *signal = SignalOf(layout);
        signal->mode_value = modeValue;
        CAN_INSERT_SIG(message, signal, count++);
        return signal;
    };
    val answer{0x42, "Answer", nullptr};  // not released with the message
    sigblk* muxed = add({TAVLO_SIG_MULTIPLEXED, 8, 8, 1, 0, 0, 100}, 3);
    muxed->value_descriptions = &answer;
    EXPECT_FALSE(manager.CheckSignalModeValue(FrameOf("03 42").data(), *muxed, *message));  // no mode signal
    const sigblk* plain = add({kIntel, 16, 8}, 0);
    add({TAVLO_SIG_MODE | TAVLO_SIG_MULTIPLEXED, 0, 8}, 3);
    add({TAVLO_SIG_MODE, 24, 8}, 0);
    const Frame selected = FrameOf("03 42 10 04");
    const Frame other = FrameOf("04 42 10 03");  // only the later mode signal holds 3
    EXPECT_TRUE(manager.CheckSignalModeValue(selected.data(), *muxed, *message));
    EXPECT_FALSE(manager.CheckSignalModeValue(other.data(), *muxed, *message));
    EXPECT_TRUE(manager.CheckSignalModeValue(other.data(), *plain, *message));
    message->signals->next->next->mode_value = 4;  // the mode signal is absent itself
    EXPECT_FALSE(manager.CheckSignalModeValue(selected.data(), *muxed, *message));
    message->signals->next->next->mode_value = 3;
    unsigned int raw = 0;
    double physical = 0;
    EXPECT_EQ(manager.GetSignalRawValue(other.data(), *muxed, *message, raw), TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(raw, 0x42u);  // read all the same
    Frame frame = other;
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), *muxed, *message, 0x99u), TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(manager.SetSignalPhysicalValue(frame.data(), *muxed, *message, 200.0), TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(Hex(frame.data(), 4), "04 C8 10 03");
    EXPECT_EQ(manager.GetSignalValue(frame.data(), *muxed, *message, raw, physical), TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(manager.GetSignalValue(selected.data(), *muxed, *message, raw, physical), TAVLO_SIGNAL_OK);
    for (int format = SigvalueRawDec; format <= SigvalueBinary; ++format) {  // the text is made
        char* made = nullptr;
        EXPECT_EQ(manager.GetSignalValue(other.data(), *muxed, *message, made, static_cast<TavloSigvalueFormat>(format), nullptr),
                  TAVLO_SIGNAL_NOT_PRESENT) << format;
        EXPECT_NE(Text(made), nullptr);
    }
    msgblk* head = message;
    CAN_DELETE_MSG(&head, message);
}

// physical = raw * factor + offset; [0, 0] is no range, else both limits
// are inside. To raw: rounded half away from zero, the low 32 bits.
TEST_F(SignalValues, RawAndPhysicalValues) {
    const struct { Layout layout; std::uint32_t raw; double physical; unsigned int result; } toPhysical[] = {
        {{kIntel, 0, 8, 0.5, -40.0}, 200, 60.0, TAVLO_SIGNAL_OK}, {{kSigned, 0, 8}, 0xFFFFFFFFu, -1.0, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 32, 1000.0}, 0xFFFFFFFFu, 4294967295000.0, TAVLO_SIGNAL_OK},
        {{kSigned, 0, 16, 0.25, 100.0}, 0xFFFFFF9Cu, 75.0, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 8, 1.0, 0.0, 0.0, 100.0}, 100, 100.0, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 16, 0.1, 0.0, 0.0, 100.0}, 1001, 100.1, TAVLO_SIGNAL_OUT_OF_RANGE},
        {{kIntel, 0, 8, 1.0, -10.0, -10.0, 10.0}, 0, -10.0, TAVLO_SIGNAL_OK},
        {{kSigned, 0, 8, 1.0, 0.0, -10.0, 10.0}, 0xFFFFFFF5u, -11.0, TAVLO_SIGNAL_OUT_OF_RANGE},
        {{kIntel, 0, 8, 1.0, 0.0, -5.0, 0.0}, 1, 1.0, TAVLO_SIGNAL_OUT_OF_RANGE},
    };
    for (const auto& c : toPhysical) {
        SCOPED_TRACE(c.physical);
        const sigblk signal = SignalOf(c.layout);
        double physical = 0;
        EXPECT_EQ(manager.RawToPhysicalValue(c.raw, signal, physical), c.result);
        EXPECT_DOUBLE_EQ(physical, c.physical);
        const double raw = (c.layout.flags & kSigned) != 0 ? static_cast<double>(static_cast<std::int32_t>(c.raw)) : c.raw;
        EXPECT_EQ(manager.RawToPhysicalValue(raw, signal, physical), c.result);
        EXPECT_DOUBLE_EQ(physical, c.physical);
    }
    const double belowHalf = std::nextafter(0.5, 0.0);
    const struct { Layout layout; double physical; std::uint32_t raw; unsigned int result; } toRaw[] = {
        {{kIntel, 0, 8, 0.5}, 1.25, 3, TAVLO_SIGNAL_OK},         {{kSigned, 0, 8, 0.5}, -1.25, 0xFFFFFFFDu, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 8, 0.5}, 1.24, 2, TAVLO_SIGNAL_OK},         {{kSigned, 0, 8, 0.5}, -1.24, 0xFFFFFFFEu, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 8, 0.5, -40.0}, 60.0, 200, TAVLO_SIGNAL_OK}, {{kIntel, 0, 8}, belowHalf, 0, TAVLO_SIGNAL_OK},
        {{kSigned, 0, 8}, -belowHalf, 0, TAVLO_SIGNAL_OK},       {{kIntel, 0, 32}, 4503599627370497.0, 1, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 32}, 4294967301.0, 5, TAVLO_SIGNAL_OK},     {{kIntel, 0, 8}, 1e6, 1000000, TAVLO_SIGNAL_OK},
        {{kIntel, 0, 8, 1.0, 0.0, 0.0, 100.0}, 100.1, 100, TAVLO_SIGNAL_OUT_OF_RANGE},
    };
    for (const auto& c : toRaw) {
        SCOPED_TRACE(c.physical);
        unsigned int raw = 0xDEADBEEF;
        EXPECT_EQ(manager.PhysicalToRawValue(c.physical, SignalOf(c.layout), raw), c.result);
        EXPECT_EQ(raw, c.raw);
        Frame frame = FrameOf("");
        EXPECT_EQ(manager.SetSignalPhysicalValue(frame.data(), SignalOf(c.layout), none, c.physical), c.result);
        EXPECT_EQ(frame[0], static_cast<unsigned char>(c.raw));
    }
    double raw = 0;
    EXPECT_EQ(manager.PhysicalToRawValue(-50.0, SignalOf({kIntel, 0, 32, 0.5, -40.0, 0.0, 100.0}), raw), TAVLO_SIGNAL_OUT_OF_RANGE);
    EXPECT_DOUBLE_EQ(raw, -20.0);  // the double form does not round
    double physical = 0;
    EXPECT_EQ(manager.GetSignalPhysicalValue(FrameOf("00 00 C0 3F").data(), SignalOf({kIntel, 0, 32, 2.0, 1.0, 0, 0, TAVLO_VALUE_FLOAT}), none, physical),
              TAVLO_SIGNAL_OK);
    EXPECT_EQ(physical, 4.0);
}

// Raw values of random signals through physical and back come out as they
// went in, whatever the scaling.
TEST_F(SignalValues, RawPhysicalRawRoundTrip) {
    std::mt19937 random(CodecSeed(10));
    const double factors[] = {1.0, 0.5, 0.1, 0.01, 0.125, 2.0, 1.0 / 3.0, 0.0625, 10.0};
    int failures = 0;
    for (int n = 0; n < 20000; ++n) {
        const Layout layout{random() % 2 == 1 ? kSigned : kIntel, 0, static_cast<unsigned int>(1 + random() % 32), factors[random() % 9],
                            static_cast<int>(random() % 2001) / 4.0 - 250};
        std::uint32_t raw = random();
        if (layout.length < 32) {
            const std::uint32_t mask = (1u << layout.length) - 1;
            raw &= mask;
            raw |= (layout.flags & kSigned) != 0 && (raw >> (layout.length - 1)) != 0 ? ~mask : 0;
        }
        double physical = 0;
        unsigned int back = 0;
        manager.RawToPhysicalValue(raw, SignalOf(layout), physical);
        manager.PhysicalToRawValue(physical, SignalOf(layout), back);
        if (back != raw && ++failures <= 10) {
            ADD_FAILURE() << "raw " << raw << " flags " << layout.flags << " length " << layout.length
                          << " factor " << layout.factor << " offset " << layout.offset << " gives " << back;
        }
    }
    EXPECT_EQ(failures, 0);
}

// GetSignalValue's text formats, from formats.txt.
TEST_F(SignalValues, FormattedText) {
    const char* formats[] = {"RawDec", "RawHex", "BytesDec", "BytesHex", "Phys", "PhysUnit", "Description", "RawBytes", "Binary", "Unknown"};
    val descriptions[3] = {{1, "On", &descriptions[1]}, {-1, "Error", &descriptions[2]}, {3, "Both bits", nullptr}};
    std::ifstream in(TAVLOMS_CODEC_FORMATS);
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line);
        std::string flags, frame, format, formatString, text;
        Layout layout{};
        unsigned int result = 0;
        fields >> flags >> layout.startBit >> layout.length >> layout.factor >> layout.offset >> layout.minimum >>
            layout.maximum >> std::quoted(frame) >> format >> std::quoted(formatString) >> std::quoted(text) >> result;
        layout.flags = (flags.find('m') != std::string::npos ? kMotorola : 0u) | (flags.find('s') != std::string::npos ? kSigned : 0u);
        SCOPED_TRACE(line);
        sigblk signal = SignalOf(layout, "V");
        signal.value_descriptions = descriptions;
        char untouched = 0;
        char* made = &untouched;  // the call sets it, also when it makes nothing
        const auto which = static_cast<TavloSigvalueFormat>(std::find(formats, formats + 10, format) - formats);
        EXPECT_EQ(manager.GetSignalValue(FrameOf(frame).data(), signal, none, made, which,
                                         formatString == "null" ? nullptr : formatString.c_str()), result);
        ASSERT_NE(made, &untouched);
        Text release(made);
        EXPECT_STREQ(made, text == "null" ? nullptr : text.c_str());
        ++count;
    }
    EXPECT_EQ(count, 29);
    const Layout wide{kIntel, 0, 40};
    const char* wideFrame = "78 56 34 12 AB";
    char* made = nullptr;  // the raw byte image: 5 bytes up to 32 bits, 9 up to 64
    EXPECT_EQ(manager.GetSignalValue(FrameOf(wideFrame).data(), SignalOf(wide), none, made, SigvalueRawBytes, nullptr), TAVLO_SIGNAL_OK);
    Text image(made);
    EXPECT_EQ(Hex(reinterpret_cast<unsigned char*>(made), 9), "78 56 34 12 AB 00 00 00 00");
}

// Out of memory, for the image or for the text: 6, no text, nothing left
// allocated. The raw byte image needs one block only, being the text itself.
TEST_F(SignalValues, FormattedOutOfMemory) {
    val answer = {0x42, "Answer", nullptr};
    sigblk signal = SignalOf({kIntel, 0, 8}, "V");
    signal.value_descriptions = &answer;
    // Each format with no allocation allowed, then with one.
    for (int format = SigvalueRawDec, allowed = 0; format <= SigvalueBinary; format += allowed, allowed = 1 - allowed) {
        SCOPED_TRACE(std::to_string(format) + " after " + std::to_string(allowed));
        const bool enough = allowed == 1 && format == SigvalueRawBytes;
        const long before = tavlo::model::LiveAllocations();
        char* made = nullptr;
        tavlo::model::FailAllocationsAfter(allowed);
        EXPECT_EQ(manager.GetSignalValue(FrameOf("42").data(), signal, none, made, static_cast<TavloSigvalueFormat>(format), nullptr),
                  enough ? TAVLO_SIGNAL_OK : TAVLO_SIGNAL_NO_MEMORY);
        tavlo::model::FailAllocationsAfter(-1);
        EXPECT_EQ(made != nullptr, enough);
        Text(made).reset();
        EXPECT_EQ(tavlo::model::LiveAllocations(), before);
    }
}

}  // namespace
