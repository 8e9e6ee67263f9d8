// codec/bits.cpp: reading and writing bit fields of frame data in both byte
// orders. Fields within the first 8 bytes, nearly every signal of a classic
// frame, take a fast path through one 64-bit word; the rest go byte by byte.
#include "codec/bits.h"

namespace tavlo::codec {
namespace {

constexpr unsigned int kMaxFieldBits = 96;

}  // namespace

void ReadField(const unsigned char* data, unsigned int startBit, unsigned int length,
               bool motorola, unsigned char* image) {
    std::memset(image, 0, kMaxImageBytes);
    // Placed by its whole length (a Motorola field's least significant bit
    // depends on it), read for its low 96 bits at most.
    const Placement place = Place(startBit, length, motorola);
    if (length > kMaxFieldBits) {
        length = kMaxFieldBits;
    }
    const int bytes = length == 0 ? 0 : (static_cast<int>(length) + place.shift - 1) / 8 + 1;
    // The touched bytes in little-endian order, then shifted right as one
    // long number.
    unsigned char raw[kMaxImageBytes + 1] = {};
    for (int i = 0; i < bytes; ++i) {
        const int byte = motorola ? place.lowByte - i : place.lowByte + i;
        raw[i] = byte >= 0 ? data[byte] : 0;
    }
    for (int i = 0; i < bytes; ++i) {
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

std::uint32_t ReadLow32Slow(const unsigned char* data, unsigned int startBit,
                            unsigned int length, bool motorola) {
    unsigned char image[kMaxImageBytes];
    ReadField(data, startBit, length, motorola, image);
    return static_cast<std::uint32_t>(image[0]) | static_cast<std::uint32_t>(image[1]) << 8 |
           static_cast<std::uint32_t>(image[2]) << 16 | static_cast<std::uint32_t>(image[3]) << 24;
}

void WriteField(const unsigned char* value, std::size_t valueBytes, unsigned int startBit,
                unsigned int length, bool motorola, unsigned char* data) {
    if (length == 0) {
        return;
    }
    const Placement place = Place(startBit, length, motorola);
    const std::size_t fieldBytes = (length + 7) / 8;
    if (length <= 64 && InFirstWord(place)) {
        std::uint64_t bits = 0;
        for (std::size_t i = fieldBytes < valueBytes ? fieldBytes : valueBytes; i-- > 0;) {
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
    // Bit by bit, from the least significant: the byte holding each bit lies
    // above the first byte (Intel) or below it (Motorola).
    for (unsigned int bit = 0; bit < length; ++bit) {
        const unsigned int at = bit + static_cast<unsigned int>(place.shift);
        const long offset = static_cast<long>(at / 8);
        const long byte = motorola ? place.lowByte - offset : place.lowByte + offset;
        if (byte < 0) {
            break;  // a field that would start before the frame: nothing there to write
        }
        const auto mask = static_cast<unsigned char>(1u << (at % 8));
        const bool one = bit / 8 < valueBytes && ((value[bit / 8] >> (bit % 8)) & 1u) != 0;
        data[byte] = static_cast<unsigned char>(one ? data[byte] | mask : data[byte] & ~mask);
    }
}

}  // namespace tavlo::codec
