// dbfile/number.h: the number forms of the database file, written straight
// into a character buffer.
//
// Every floating-point field of the file has the form of printf's "%.11G";
// FormatNumber produces exactly those bytes, mostly without going through
// printf. Identifiers and counts are plain decimal, access codes upper-case
// hexadecimal.
#ifndef TAVLOMS_DBFILE_NUMBER_H
#define TAVLOMS_DBFILE_NUMBER_H

#include <cstddef>

namespace tavlo::dbfile {

// Room that every writer below needs at most (FormatNumber's longest form is
// "-2.2250738585E-308"-like, 18 characters; a 64-bit decimal is 20 digits and
// a sign).
constexpr std::size_t kNumberRoom = 32;

// Powers of ten that doubles hold exactly: a decimal of up to 15 digits is
// its integer divided by one of them, which IEEE division rounds correctly
// (the reader converts plain decimals so, the writer finds short ones so).
constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                        1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Writes `value` as snprintf("%.11G") would, without a terminating zero, and
// returns the length.
std::size_t FormatNumber(double value, char* out);

// Writes a decimal number without a terminating zero; returns the length.
std::size_t FormatUnsigned(unsigned long long value, char* out);
std::size_t FormatSigned(long long value, char* out);

// Writes upper-case hexadecimal without leading zeros ("%X"); returns the
// length.
std::size_t FormatHex(unsigned int value, char* out);

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_NUMBER_H
