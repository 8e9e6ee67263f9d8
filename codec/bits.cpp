// codec/bits.cpp: reading and writing bit fields of frame data in both byte
// orders. Fields within the first 8 bytes, nearly every signal of a classic
// frame, take a fast path through one 64-bit word; the rest go byte by byte.
#include "codec/bits.h"

#include <cstring>

namespace tavlo::codec {
namespace {

constexpr unsigned int kMaxFieldBits = 96;

// The 8 bytes of a frame as one little-endian word, whatever the host's
// byte order (compilers turn this into a single load).
std::uint64_t Load64(const unsigned char* data) {
    std::uint64_t word = 0;
    for (int i = 7; i >= 0; --i) {
        word = (word << 8) | data[i];
    }
    return word;
}

void Store64(unsigned char* data, std::uint64_t word) {
    for (int i = 0; i < 8; ++i) {
        data[i] = static_cast<unsigned char>(word >> (8 * i));
    }
}

std::uint64_t Swap64(std::uint64_t word) {
#if defined(__GNUC__) || defined(__clang__)
    return __builtin_bswap64(word);
#else
    std::uint64_t swapped = 0;
    for (int i = 0; i < 8; ++i) {
        swapped = (swapped << 8) | ((word >> (8 * i)) & 0xFF);
    }
    return swapped;
#endif
}

std::uint64_t Mask64(unsigned int length) {
    return length >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << length) - 1;
}

// Whether the field lies within the first 8 bytes, so that the 64-bit word
// path can serve it.
bool InFirstWord(const Placement& place) {
    if (place.motorola) {
        return place.lowByte <= 7 && place.lowByte - (place.bytes - 1) >= 0;
    }
    return place.lowByte + place.bytes <= 8;
}

// The bit of the 64-bit word (little-endian load, or byte-swapped for
// Motorola) where the field's least significant bit lies.
unsigned int WordShift(const Placement& place, unsigned int startBit) {
    return place.motorola ? 63u - static_cast<unsigned int>(place.lsb) : startBit;
}

}  // namespace

Placement Place(unsigned int startBit, unsigned int length, bool motorola) {
    Placement place{};
    place.motorola = motorola;
    if (motorola) {
        const int msb = static_cast<int>(startBit / 8 * 8 + 7 - startBit % 8);
        place.lsb = msb + static_cast<int>(length) - 1;
        place.lowByte = place.lsb / 8;
        place.shift = 7 - place.lsb % 8;
    } else {
        place.lowByte = static_cast<int>(startBit / 8);
        place.shift = static_cast<int>(startBit % 8);
        place.lsb = 0;
    }
    place.bytes = length == 0 ? 0 : (static_cast<int>(length) + place.shift - 1) / 8 + 1;
    return place;
}

void ReadField(const unsigned char* data, unsigned int startBit, unsigned int length,
               bool motorola, unsigned char* image) {
    std::memset(image, 0, kMaxImageBytes);
    if (length > kMaxFieldBits) {
        length = kMaxFieldBits;
    }
    const Placement place = Place(startBit, length, motorola);
    if (place.bytes == 0) {
        return;
    }
    // The touched bytes in little-endian order, then shifted right as one
    // long number.
    unsigned char raw[kMaxImageBytes + 1] = {};
    for (int i = 0; i < place.bytes; ++i) {
        const int byte = motorola ? place.lowByte - i : place.lowByte + i;
        raw[i] = byte >= 0 ? data[byte] : 0;
    }
    for (int i = 0; i < place.bytes; ++i) {
        image[i] = static_cast<unsigned char>((raw[i] >> place.shift) |
                                              ((raw[i + 1] << (8 - place.shift)) & 0xFF));
    }
    const unsigned int fullBytes = length / 8;
    const unsigned int topBits = length % 8;
    if (topBits != 0) {
        image[fullBytes] &= static_cast<unsigned char>((1u << topBits) - 1);
    }
    for (unsigned int i = fullBytes + (topBits != 0 ? 1 : 0); i < kMaxImageBytes; ++i) {
        image[i] = 0;
    }
}

std::uint32_t ReadLow32(const unsigned char* data, unsigned int startBit, unsigned int length,
                        bool motorola) {
    const Placement place = Place(startBit, length, motorola);
    if (length <= 64 && InFirstWord(place)) {
        std::uint64_t word = Load64(data);
        if (motorola) {
            word = Swap64(word);
        }
        return static_cast<std::uint32_t>((word >> WordShift(place, startBit)) & Mask64(length));
    }
    unsigned char image[kMaxImageBytes];
    ReadField(data, startBit, length, motorola, image);
    return static_cast<std::uint32_t>(image[0]) | static_cast<std::uint32_t>(image[1]) << 8 |
           static_cast<std::uint32_t>(image[2]) << 16 | static_cast<std::uint32_t>(image[3]) << 24;
}

void WriteField(const unsigned char* value, unsigned int startBit, unsigned int length,
                bool motorola, unsigned char* data) {
    if (length == 0 || length > kMaxFieldBits) {
        return;
    }
    const Placement place = Place(startBit, length, motorola);
    const unsigned int valueBytes = (length + 7) / 8;
    if (length <= 64 && InFirstWord(place)) {
        std::uint64_t bits = 0;
        for (unsigned int i = valueBytes; i-- > 0;) {
            bits = (bits << 8) | value[i];
        }
        const unsigned int at = WordShift(place, startBit);
        const std::uint64_t mask = Mask64(length) << at;
        std::uint64_t word = Load64(data);
        if (motorola) {
            word = Swap64(word);
        }
        word = (word & ~mask) | ((bits << at) & mask);
        Store64(data, motorola ? Swap64(word) : word);
        return;
    }
    // Byte by byte: the value shifted into place, merged with the bits of the
    // touched bytes that lie outside the field.
    unsigned char image[kMaxImageBytes + 1] = {};
    unsigned char fieldMask[kMaxImageBytes + 1] = {};
    for (unsigned int bit = 0; bit < length; ++bit) {
        const unsigned int at = bit + static_cast<unsigned int>(place.shift);
        if ((value[bit / 8] >> (bit % 8)) & 1u) {
            image[at / 8] |= static_cast<unsigned char>(1u << (at % 8));
        }
        fieldMask[at / 8] |= static_cast<unsigned char>(1u << (at % 8));
    }
    for (int i = 0; i < place.bytes; ++i) {
        const int byte = motorola ? place.lowByte - i : place.lowByte + i;
        if (byte < 0) {
            break;  // a field that would start before the frame: nothing there to write
        }
        data[byte] = static_cast<unsigned char>((data[byte] & ~fieldMask[i]) | image[i]);
    }
}

}  // namespace tavlo::codec
