// codec/bits.h: where a signal's bits lie in frame data, and reading and
// writing them. The codec's own helpers; not part of the public interface.
#ifndef TAVLOMS_CODEC_BITS_H
#define TAVLOMS_CODEC_BITS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tavlo::codec {

// The longest field an image holds: 12 bytes and a shift.
constexpr int kMaxImageBytes = 16;

// Where a field lies: its least significant bit is bit `shift` of byte
// `lowByte`; it touches `bytes` bytes, going up from lowByte (Intel) or down
// towards byte 0 (Motorola).
struct Placement {
    int lowByte;
    int shift;
    int bytes;
    int lsb;  // Motorola: linear position of the least significant bit
    bool motorola;
};

inline Placement Place(unsigned int startBit, unsigned int length, bool motorola) {
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

// The 8 bytes of a frame as one little-endian word, whatever the host's
// byte order.
inline std::uint64_t Load64(const unsigned char* data) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    std::uint64_t word;
    std::memcpy(&word, data, sizeof word);
    return word;
#else
    std::uint64_t word = 0;
    for (int i = 7; i >= 0; --i) {
        word = (word << 8) | data[i];
    }
    return word;
#endif
}

inline void Store64(unsigned char* data, std::uint64_t word) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    std::memcpy(data, &word, sizeof word);
#else
    for (int i = 0; i < 8; ++i) {
        data[i] = static_cast<unsigned char>(word >> (8 * i));
    }
#endif
}

inline std::uint64_t Swap64(std::uint64_t word) {
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

inline std::uint64_t Mask64(unsigned int length) {
    return length >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << length) - 1;
}

// Whether the field lies within the first 8 bytes, so that one 64-bit word
// serves it.
inline bool InFirstWord(const Placement& place) {
    if (place.motorola) {
        return place.lowByte <= 7 && place.lowByte - (place.bytes - 1) >= 0;
    }
    return place.lowByte + place.bytes <= 8;
}

// The bit of that word (byte-swapped for Motorola) where the field's least
// significant bit lies.
inline unsigned int WordShift(const Placement& place, unsigned int startBit) {
    return place.motorola ? 63u - static_cast<unsigned int>(place.lsb) : startBit;
}

// Reads the field into image as a right-aligned little-endian value with the
// bits above length cleared (image holds kMaxImageBytes bytes). Bytes the
// field would need before byte 0 read as zero. Lengths above 96 read 96 bits.
void ReadField(const unsigned char* data, unsigned int startBit, unsigned int length,
               bool motorola, unsigned char* image);

// A field of 1 to 32 bits that lies within the first 8 bytes: true, and the
// frame's 64-bit word shifted so that the field's most significant bit is
// bit 63; shifting that right by 64 - length (arithmetically for a signed
// field) gives the value. False when the field lies elsewhere or is longer.
// A Motorola field's most significant bit lies at linear position
// startBit ^ 7 of the byte-swapped word.
inline bool AlignShortField(const unsigned char* data, unsigned int startBit,
                            unsigned int length, bool motorola, std::uint64_t& aligned) {
    if (length - 1u >= 32u) {
        return false;
    }
    std::uint64_t word = Load64(data);
    unsigned int left = 0;
    if (motorola) {
        left = startBit ^ 7u;
        if (left + length > 64) {
            return false;
        }
        word = Swap64(word);
    } else {
        const unsigned int end = startBit + length;
        if (end > 64) {
            return false;
        }
        left = 64 - end;
    }
    aligned = word << left;
    return true;
}

// The low 32 bits of a field that ReadLow32 could not take from the first
// word.
#if defined(__GNUC__) || defined(__clang__)
__attribute__((cold))
#endif
std::uint32_t ReadLow32Slow(const unsigned char* data, unsigned int startBit,
                            unsigned int length, bool motorola);

// The low 32 bits of the field; the fast path of every integer read, inline
// because decoding a frame calls it once per signal.
inline std::uint32_t ReadLow32(const unsigned char* data, unsigned int startBit,
                               unsigned int length, bool motorola) {
    const Placement place = Place(startBit, length, motorola);
    // No bits at all is never taken from the word, where it would be a shift
    // by 64 (at Motorola start bit 7 or Intel start bit 64).
    if (length - 1u < 64u && InFirstWord(place)) {
        std::uint64_t word = Load64(data);
        if (motorola) {
            word = Swap64(word);
        }
        return static_cast<std::uint32_t>((word >> WordShift(place, startBit)) & Mask64(length));
    }
    return ReadLow32Slow(data, startBit, length, motorola);
}

// Writes the low length bits of a little-endian value image of valueBytes
// bytes into the field (bits beyond the image are zeros), leaving every
// other bit of data as it was. Any length: data must hold the bytes the
// field touches; a Motorola field's bits before byte 0 are not written.
void WriteField(const unsigned char* value, std::size_t valueBytes, unsigned int startBit,
                unsigned int length, bool motorola, unsigned char* data);

}  // namespace tavlo::codec

#endif  // TAVLOMS_CODEC_BITS_H
