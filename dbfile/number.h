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
