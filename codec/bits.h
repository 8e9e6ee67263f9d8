// codec/bits.h: where a signal's bits lie in frame data, and reading and
// writing them. The codec's own helpers; not part of the public interface.
#ifndef TAVLOMS_CODEC_BITS_H
#define TAVLOMS_CODEC_BITS_H

#include <cstdint>

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

Placement Place(unsigned int startBit, unsigned int length, bool motorola);

// Reads the field into image as a right-aligned little-endian value with the
// bits above length cleared (image holds kMaxImageBytes bytes). Bytes the
// field would need before byte 0 read as zero. Lengths above 96 read 96 bits.
void ReadField(const unsigned char* data, unsigned int startBit, unsigned int length,
               bool motorola, unsigned char* image);

// The low 32 bits of the field; the fast path of every integer read.
std::uint32_t ReadLow32(const unsigned char* data, unsigned int startBit, unsigned int length,
                        bool motorola);

// Writes the low length bits of a little-endian value image of at least
// (length + 7) / 8 bytes into the field, leaving every other bit of data as
// it was. Lengths above 96 write nothing.
void WriteField(const unsigned char* value, unsigned int startBit, unsigned int length,
                bool motorola, unsigned char* data);

}  // namespace tavlo::codec

#endif  // TAVLOMS_CODEC_BITS_H
