// The bit layer of the signal codec: where a field lies in frame data in
// either byte order, reading it (ExtractLong, ExtractString) and writing it
// (IncorporateValue, SetSignalRawValue) without disturbing its neighbours.
// Fixed cases first; then random fields, in the first 8 bytes (the 64-bit
// word path) and reaching into bytes 8..15 (the byte-by-byte path), checked
// against a reference written here that walks a field one bit at a time.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "codec/support.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::Hex;

constexpr std::size_t kFrameBytes = 16;
using Frame = std::array<unsigned char, kFrameBytes>;

struct ImageFree {
    void operator()(unsigned char* image) const { TAVLO_MFREE(image); }
};
using Image = std::unique_ptr<unsigned char, ImageFree>;

// A frame of fill bytes with the given (index, byte) pairs set.
Frame FrameWith(unsigned char fill,
                std::initializer_list<std::pair<std::size_t, unsigned char>> bytes) {
    Frame frame;
    frame.fill(fill);
    for (const auto& [index, byte] : bytes) {
        frame[index] = byte;
    }
    return frame;
}

std::uint32_t Mask32(unsigned int length) {
    return length >= 32 ? 0xFFFFFFFFu : (std::uint32_t{1} << length) - 1;
}

// ---- The reference ----------------------------------------------------------------
//
// A field as the frame positions of its bits, least significant first.
// Intel: the start bit is the least significant bit and the field runs up
// through the frame's bit numbers. Motorola: the start bit is the most
// significant bit; going towards less significant bits steps down within a
// byte and from bit 0 on to bit 7 of the next byte. So walk down from the
// start bit to find the least significant bit, then collect the bits from
// there upwards (within a byte up, from bit 7 back to bit 0 of the byte
// before).

struct BitAt {
    int byte;
    int bit;
};

std::vector<BitAt> FieldBits(unsigned int startBit, unsigned int length, bool motorola) {
    std::vector<BitAt> bits;
    if (!motorola) {
        for (unsigned int k = 0; k < length; ++k) {
            bits.push_back({static_cast<int>((startBit + k) / 8),
                            static_cast<int>((startBit + k) % 8)});
        }
        return bits;
    }
    BitAt at{static_cast<int>(startBit / 8), static_cast<int>(startBit % 8)};
    for (unsigned int k = 1; k < length; ++k) {
        if (at.bit == 0) {
            ++at.byte;
            at.bit = 7;
        } else {
            --at.bit;
        }
    }
    for (unsigned int k = 0; k < length; ++k) {
        bits.push_back(at);
        if (at.bit == 7) {
            --at.byte;
            at.bit = 0;
        } else {
            ++at.bit;
        }
    }
    return bits;
}

// The field's value as a little-endian image of (length + 7) / 8 bytes.
std::vector<unsigned char> ReferenceRead(const unsigned char* frame,
                                         const std::vector<BitAt>& bits) {
    std::vector<unsigned char> value((bits.size() + 7) / 8, 0);
    for (std::size_t k = 0; k < bits.size(); ++k) {
        if (((frame[bits[k].byte] >> bits[k].bit) & 1) != 0) {
            value[k / 8] = static_cast<unsigned char>(value[k / 8] | (1u << (k % 8)));
        }
    }
    return value;
}

void ReferenceWrite(const unsigned char* value, const std::vector<BitAt>& bits,
                    unsigned char* frame) {
    for (std::size_t k = 0; k < bits.size(); ++k) {
        const unsigned int mask = 1u << bits[k].bit;
        unsigned char& byte = frame[bits[k].byte];
        byte = static_cast<unsigned char>(((value[k / 8] >> (k % 8)) & 1) != 0 ? byte | mask
                                                                               : byte & ~mask);
    }
}

// Which bits of the frame the field covers, one mask byte per frame byte.
Frame FieldMask(const std::vector<BitAt>& bits) {
    Frame mask{};
    for (const BitAt& at : bits) {
        mask[at.byte] = static_cast<unsigned char>(mask[at.byte] | (1u << at.bit));
    }
    return mask;
}

std::uint32_t Low32(const std::vector<unsigned char>& image) {
    std::uint32_t value = 0;
    for (std::size_t i = std::min<std::size_t>(image.size(), 4); i-- > 0;) {
        value = (value << 8) | image[i];
    }
    return value;
}

// ---- Fixed cases ----------------------------------------------------------------

struct ReadCase {
    const char* what;
    Frame frame;
    unsigned int startBit;
    unsigned int length;
    bool motorola;
    std::uint32_t expected;
};

const ReadCase kReadCases[] = {
    {"Intel across a byte boundary", FrameWith(0, {{0, 0xAB}, {1, 0xCD}}), 4, 8, false, 0xDA},
    {"Motorola, two whole bytes", FrameWith(0, {{0, 0x12}, {1, 0x34}}), 7, 16, true, 0x1234},
    {"Motorola across a byte boundary", FrameWith(0, {{0, 0x12}, {1, 0x34}}), 3, 8, true, 0x23},
    {"Intel single bit", FrameWith(0xFB, {{1, 0x04}}), 10, 1, false, 1},
    {"Motorola single bit clear among ones", FrameWith(0xFF, {{1, 0xFB}}), 10, 1, true, 0},
    {"Intel 29 bits from bit 3", FrameWith(0, {{0, 0xC0}, {1, 0xB3}, {2, 0xA2}, {3, 0x91}}), 3,
     29, false, 0x12345678},
    {"Motorola, 32 bits", FrameWith(0, {{0, 0x12}, {1, 0x34}, {2, 0x56}, {3, 0x78}}), 7, 32,
     true, 0x12345678},
    {"Motorola ending at bit 0 of byte 7", FrameWith(0xFF, {{6, 0x12}, {7, 0x34}}), 55, 16,
     true, 0x1234},
    {"Intel ending at bit 7 of byte 7", FrameWith(0, {{6, 0x34}, {7, 0x12}}), 48, 16, false,
     0x1234},
    {"Intel across bytes 7 and 8", FrameWith(0, {{7, 0xAB}, {8, 0xCD}}), 60, 8, false, 0xDA},
    {"Motorola across bytes 7 and 8", FrameWith(0, {{7, 0x12}, {8, 0x34}}), 59, 8, true, 0x23},
    {"Motorola, bytes 8 and 9", FrameWith(0xFF, {{8, 0x12}, {9, 0x34}}), 71, 16, true, 0x1234},
    {"Intel at the end of 16 bytes", FrameWith(0, {{14, 0x80}, {15, 0x7F}}), 119, 9, false,
     0xFF},
    {"Intel, 64 bits: the low 32", FrameWith(0xEE, {{0, 0x78}, {1, 0x56}, {2, 0x34}, {3, 0x12}}),
     0, 64, false, 0x12345678},
    {"Motorola, 40 bits: the low 32",
     FrameWith(0xEE, {{0, 0xAA}, {1, 0x12}, {2, 0x34}, {3, 0x56}, {4, 0x78}}), 7, 40, true,
     0x12345678},
    {"Intel, 40 bits from byte 6: the low 32",
     FrameWith(0, {{6, 0x78}, {7, 0x56}, {8, 0x34}, {9, 0x12}, {10, 0xAB}}), 48, 40, false,
     0x12345678},
    {"no bits", FrameWith(0xFF, {}), 5, 0, false, 0},
    {"no bits at Motorola start bit 7", FrameWith(0xFF, {}), 7, 0, true, 0},
    {"no bits at Intel start bit 64", FrameWith(0xFF, {}), 64, 0, false, 0},
};

TEST(BitFields, ReadFixedCases) {
    for (const ReadCase& c : kReadCases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(TavloManager::ExtractLong(c.frame.data(), static_cast<unsigned short>(c.startBit),
                                            static_cast<unsigned short>(c.length), c.motorola),
                  c.expected);
        // The reference agrees with the table, so that it can be trusted
        // with the random cases below.
        EXPECT_EQ(Low32(ReferenceRead(c.frame.data(), FieldBits(c.startBit, c.length, c.motorola))),
                  c.expected);
    }
}

struct WriteCase {
    const char* what;
    unsigned char fill;
    unsigned int startBit;
    unsigned int length;
    bool motorola;
    std::uint32_t value;
    Frame expected;
};

const WriteCase kWriteCases[] = {
    {"Intel across a byte boundary", 0x00, 4, 8, false, 0xDA,
     FrameWith(0x00, {{0, 0xA0}, {1, 0x0D}})},
    {"Intel zeros among ones", 0xFF, 4, 8, false, 0x00, FrameWith(0xFF, {{0, 0x0F}, {1, 0xF0}})},
    {"Motorola across a byte boundary", 0x00, 3, 8, true, 0x23,
     FrameWith(0x00, {{0, 0x02}, {1, 0x30}})},
    {"Motorola zeros among ones", 0xFF, 3, 8, true, 0x00, FrameWith(0xFF, {{0, 0xF0}, {1, 0x0F}})},
    {"Motorola, two whole bytes", 0x00, 7, 16, true, 0x1234,
     FrameWith(0x00, {{0, 0x12}, {1, 0x34}})},
    {"bits above the length are not written", 0x00, 0, 4, false, 0xFFFFFFF5,
     FrameWith(0x00, {{0, 0x05}})},
    {"Motorola ending at bit 0 of byte 7", 0x00, 55, 16, true, 0x1234,
     FrameWith(0x00, {{6, 0x12}, {7, 0x34}})},
    {"Intel zeros across bytes 7 and 8", 0xFF, 60, 8, false, 0x00,
     FrameWith(0xFF, {{7, 0x0F}, {8, 0xF0}})},
    {"Motorola across bytes 7 and 8", 0x00, 59, 8, true, 0x23,
     FrameWith(0x00, {{7, 0x02}, {8, 0x30}})},
    {"Motorola, bytes 8 and 9", 0xFF, 71, 16, true, 0x1234,
     FrameWith(0xFF, {{8, 0x12}, {9, 0x34}})},
    {"Intel, 32 bits from bit 3", 0x00, 3, 32, false, 0xFFFFFFFF,
     FrameWith(0x00, {{0, 0xF8}, {1, 0xFF}, {2, 0xFF}, {3, 0xFF}, {4, 0x07}})},
    {"no bits", 0xA5, 5, 0, false, 0xFFFFFFFF, FrameWith(0xA5, {})},
};

TEST(BitFields, WriteFixedCases) {
    for (const WriteCase& c : kWriteCases) {
        SCOPED_TRACE(c.what);
        unsigned char value[4];
        for (int i = 0; i < 4; ++i) {
            value[i] = static_cast<unsigned char>(c.value >> (8 * i));
        }
        Frame frame;
        frame.fill(c.fill);
        TavloManager::IncorporateValue(value, static_cast<unsigned short>(c.startBit),
                                       static_cast<unsigned short>(c.length), c.motorola,
                                       frame.data());
        EXPECT_EQ(Hex(frame.data(), frame.size()), Hex(c.expected.data(), c.expected.size()));

        Frame reference;
        reference.fill(c.fill);
        ReferenceWrite(value, FieldBits(c.startBit, c.length, c.motorola), reference.data());
        EXPECT_EQ(Hex(reference.data(), reference.size()),
                  Hex(c.expected.data(), c.expected.size()));
    }
}

// The image's size follows the length; its last byte is always zero, and
// 90 bits or more give no image at all.
TEST(BitFields, ExtractStringSizes) {
    Frame ones;
    ones.fill(0xFF);
    const struct {
        unsigned int length;
        std::size_t size;
    } cases[] = {{0, 5}, {1, 5}, {32, 5}, {33, 9}, {64, 9}, {65, 13}, {89, 13}};
    for (const auto& c : cases) {
        SCOPED_TRACE("length " + std::to_string(c.length));
        Image image(TavloManager::ExtractString(ones.data(), 0,
                                                static_cast<unsigned short>(c.length), false));
        ASSERT_NE(image, nullptr);
        // Every bit of the field is one, the rest of the image zero.
        std::vector<unsigned char> expected(c.size, 0);
        for (unsigned int bit = 0; bit < c.length; ++bit) {
            expected[bit / 8] = static_cast<unsigned char>(expected[bit / 8] | (1u << (bit % 8)));
        }
        EXPECT_EQ(Hex(image.get(), c.size), Hex(expected.data(), c.size));
    }
    for (unsigned int length : {90u, 96u, 200u}) {
        SCOPED_TRACE("length " + std::to_string(length));
        Image image(TavloManager::ExtractString(ones.data(), 0,
                                                static_cast<unsigned short>(length), true));
        EXPECT_EQ(image, nullptr);
    }
}

TEST(BitFields, ExtractStringByteOrder) {
    const Frame counting =
        FrameWith(0, {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 7}, {7, 8}, {8, 9}});
    Image intel(TavloManager::ExtractString(counting.data(), 0, 64, false));
    Image motorola(TavloManager::ExtractString(counting.data(), 7, 64, true));
    Image shifted(TavloManager::ExtractString(counting.data(), 12, 40, false));
    ASSERT_NE(intel, nullptr);
    ASSERT_NE(motorola, nullptr);
    ASSERT_NE(shifted, nullptr);
    EXPECT_EQ(Hex(intel.get(), 9), "01 02 03 04 05 06 07 08 00");
    EXPECT_EQ(Hex(motorola.get(), 9), "08 07 06 05 04 03 02 01 00");
    // Bits 12..51: the frame's first 8 bytes as a little-endian number,
    // 0x0807060504030201, shifted down 12 bits and cut to 40.
    EXPECT_EQ(Hex(shifted.get(), 9), "30 40 50 60 70 00 00 00 00");
}

// ---- Random fields against the reference --------------------------------------------

struct Field {
    unsigned int startBit;
    unsigned int length;
    bool motorola;
    std::vector<BitAt> bits;

    bool InFirstWord() const {
        for (const BitAt& at : bits) {
            if (at.byte >= 8) {
                return false;
            }
        }
        return true;
    }
    std::string Describe() const {
        std::ostringstream text;
        text << (motorola ? "Motorola" : "Intel") << " start " << startBit << " length "
             << length;
        return text.str();
    }
};

// A random field of minLength..maxLength bits in either byte order. Most lie
// within the first 8 bytes; one in four (and every one longer than 64 bits)
// reaches into bytes 8..15. Placements that would leave the 16-byte frame
// (past its end, or before byte 0) are drawn again.
Field DrawField(std::mt19937& random, unsigned int minLength, unsigned int maxLength) {
    const bool wide = std::uniform_int_distribution<int>(0, 3)(random) == 0 || minLength > 64;
    const unsigned int limit = wide ? 16 : 8;
    for (;;) {
        Field field;
        field.startBit = std::uniform_int_distribution<unsigned int>(0, limit * 8 - 1)(random);
        field.length = std::uniform_int_distribution<unsigned int>(minLength, maxLength)(random);
        field.motorola = std::uniform_int_distribution<int>(0, 1)(random) == 1;
        field.bits = FieldBits(field.startBit, field.length, field.motorola);
        bool inside = true;
        for (const BitAt& at : field.bits) {
            inside = inside && at.byte >= 0 && at.byte < static_cast<int>(limit);
        }
        if (inside && field.InFirstWord() != wide) {
            return field;
        }
    }
}

Frame RandomFrame(std::mt19937& random) {
    Frame frame;
    for (unsigned char& byte : frame) {
        byte = static_cast<unsigned char>(random());
    }
    return frame;
}

// Counts the kinds of field a property saw, so that a generator that drifts
// (only one byte order, never past byte 7) is noticed.
struct Coverage {
    int firstWord[2] = {};  // [motorola]
    int beyond[2] = {};

    void Count(const Field& field) {
        (field.InFirstWord() ? firstWord : beyond)[field.motorola ? 1 : 0]++;
    }
    void ExpectBroad(int cases) const {
        for (int order = 0; order < 2; ++order) {
            EXPECT_GT(firstWord[order], cases / 5) << "byte order " << order;
            EXPECT_GT(beyond[order], cases / 20) << "byte order " << order;
        }
    }
};

// Reports the first few failing cases in full; the rest only count.
struct Failures {
    int count = 0;
    bool Report() { return ++count <= 10; }
};

constexpr int kCases = 20000;
constexpr int kLongCases = 5000;

// (a) What is written reads back; (b) no bit outside the field moves; (c)
// the bytes written and the value read equal the reference's.
TEST(BitProperties, FieldsUpTo32Bits) {
    const std::uint32_t seed = tavlo::test::CodecSeed(0);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Coverage coverage;
    Failures failures;
    for (int n = 0; n < kCases; ++n) {
        const Field field = DrawField(random, 1, 32);
        coverage.Count(field);
        const Frame before = RandomFrame(random);
        // The value image is 16 random bytes: what lies above the length must
        // not be written.
        const Frame value = RandomFrame(random);
        const auto start = static_cast<unsigned short>(field.startBit);
        const auto length = static_cast<unsigned short>(field.length);

        const std::uint32_t read = TavloManager::ExtractLong(before.data(), start, length,
                                                             field.motorola);
        const std::uint32_t expectedRead = Low32(ReferenceRead(before.data(), field.bits));

        Frame after = before;
        TavloManager::IncorporateValue(value.data(), start, length, field.motorola, after.data());
        Frame expectedAfter = before;
        ReferenceWrite(value.data(), field.bits, expectedAfter.data());
        const std::uint32_t readBack = TavloManager::ExtractLong(after.data(), start, length,
                                                                 field.motorola);
        std::uint32_t written = 0;
        for (int i = 3; i >= 0; --i) {
            written = (written << 8) | value[static_cast<std::size_t>(i)];
        }
        written &= Mask32(field.length);

        const Frame mask = FieldMask(field.bits);
        bool neighboursKept = true;
        for (std::size_t i = 0; i < kFrameBytes; ++i) {
            neighboursKept = neighboursKept && ((before[i] ^ after[i]) & ~mask[i]) == 0;
        }

        const bool ok = read == expectedRead && readBack == written && neighboursKept &&
                        after == expectedAfter;
        if (!ok && failures.Report()) {
            ADD_FAILURE() << field.Describe() << "\n  frame   " << Hex(before.data(), kFrameBytes)
                          << "\n  value   " << Hex(value.data(), 4) << "\n  read    " << read
                          << " expected " << expectedRead << "\n  read back " << readBack
                          << " expected " << written << "\n  written "
                          << Hex(after.data(), kFrameBytes)
                          << "\n  expected " << Hex(expectedAfter.data(), kFrameBytes)
                          << (neighboursKept ? "" : "\n  bits outside the field changed");
        }
    }
    EXPECT_EQ(failures.count, 0) << "of " << kCases << " cases";
    coverage.ExpectBroad(kCases);
}

// 33..120 bits: the byte image of ExtractString (none from 90 bits on) and
// the low 32 bits of ExtractLong against the reference, and writes of the
// whole length.
TEST(BitProperties, FieldsLongerThan32Bits) {
    const std::uint32_t seed = tavlo::test::CodecSeed(1);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Coverage coverage;
    Failures failures;
    int longest = 0;
    for (int n = 0; n < kLongCases; ++n) {
        // Up to 64 bits mostly; a share up to 120, which only fit past byte 7.
        const bool over64 = std::uniform_int_distribution<int>(0, 4)(random) == 0;
        const Field field = over64 ? DrawField(random, 65, 120) : DrawField(random, 33, 64);
        coverage.Count(field);
        longest = std::max(longest, static_cast<int>(field.length));
        const Frame before = RandomFrame(random);
        const Frame value = RandomFrame(random);
        const auto start = static_cast<unsigned short>(field.startBit);
        const auto length = static_cast<unsigned short>(field.length);

        std::vector<unsigned char> expectedImage = ReferenceRead(before.data(), field.bits);
        const std::size_t size = field.length <= 64 ? 9 : 13;
        expectedImage.resize(size, 0);
        Image image(TavloManager::ExtractString(before.data(), start, length, field.motorola));
        const std::uint32_t low = TavloManager::ExtractLong(before.data(), start, length,
                                                            field.motorola);

        Frame after = before;
        TavloManager::IncorporateValue(value.data(), start, length, field.motorola, after.data());
        Frame expectedAfter = before;
        ReferenceWrite(value.data(), field.bits, expectedAfter.data());

        const bool imaged = field.length < 90
                                ? image != nullptr &&
                                      std::memcmp(image.get(), expectedImage.data(), size) == 0
                                : image == nullptr;
        const bool ok = imaged && low == Low32(expectedImage) && after == expectedAfter;
        if (!ok && failures.Report()) {
            ADD_FAILURE() << field.Describe() << "\n  frame    " << Hex(before.data(), kFrameBytes)
                          << "\n  image    "
                          << (image != nullptr ? Hex(image.get(), size) : std::string("null"))
                          << "\n  expected " << Hex(expectedImage.data(), size) << "\n  low 32   "
                          << low << "\n  written  " << Hex(after.data(), kFrameBytes)
                          << "\n  expected " << Hex(expectedAfter.data(), kFrameBytes);
        }
    }
    EXPECT_EQ(failures.count, 0) << "of " << kLongCases << " cases";
    EXPECT_GT(longest, 110);
    // Fields over 64 bits never fit the first word, so only the share
    // beyond it is checked.
    for (int order = 0; order < 2; ++order) {
        EXPECT_GT(coverage.firstWord[order], kLongCases / 10);
        EXPECT_GT(coverage.beyond[order], kLongCases / 20);
    }
}

// The same through signals: SetSignalRawValue then GetSignalRawValue gives
// the value cut to the length, sign-extended for a signed signal, and the
// frame equals the reference's write.
TEST(BitProperties, SignalRawValuesRoundTrip) {
    const std::uint32_t seed = tavlo::test::CodecSeed(2);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    TavloManager manager(static_cast<void*>(nullptr));
    msgblk message{};
    Coverage coverage;
    Failures failures;
    for (int n = 0; n < kCases; ++n) {
        const Field field = DrawField(random, 1, 32);
        coverage.Count(field);
        const bool isSigned = std::uniform_int_distribution<int>(0, 1)(random) == 1;
        sigblk signal{};
        signal.start_bit = static_cast<unsigned short>(field.startBit);
        signal.length = static_cast<unsigned short>(field.length);
        signal.flags = static_cast<unsigned char>((field.motorola ? TAVLO_SIG_MOTOROLA : 0u) |
                                                  (isSigned ? TAVLO_SIG_SIGNED : 0u));
        signal.factor = 1.0;

        const Frame before = RandomFrame(random);
        const std::uint32_t value = random();
        Frame after = before;
        const unsigned int setResult =
            manager.SetSignalRawValue(after.data(), signal, message, value);
        unsigned int raw = 0;
        const unsigned int getResult =
            manager.GetSignalRawValue(after.data(), signal, message, raw);

        std::uint32_t expected = value & Mask32(field.length);
        if (isSigned && field.length < 32 && (expected >> (field.length - 1)) != 0) {
            expected |= ~Mask32(field.length);
        }
        unsigned char image[4];
        for (int i = 0; i < 4; ++i) {
            image[i] = static_cast<unsigned char>(value >> (8 * i));
        }
        Frame expectedAfter = before;
        ReferenceWrite(image, field.bits, expectedAfter.data());

        const bool ok = setResult == TAVLO_SIGNAL_OK && getResult == TAVLO_SIGNAL_OK &&
                        raw == expected && after == expectedAfter;
        if (!ok && failures.Report()) {
            ADD_FAILURE() << field.Describe() << (isSigned ? " signed" : " unsigned")
                          << "\n  frame    " << Hex(before.data(), kFrameBytes) << "\n  value    "
                          << value << "\n  results  " << setResult << ", " << getResult
                          << "\n  raw      " << raw << " expected " << expected
                          << "\n  written  " << Hex(after.data(), kFrameBytes) << "\n  expected "
                          << Hex(expectedAfter.data(), kFrameBytes);
        }
    }
    EXPECT_EQ(failures.count, 0) << "of " << kCases << " cases";
    coverage.ExpectBroad(kCases);
}

}  // namespace
