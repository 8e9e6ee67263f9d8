// dbfile/number.cpp: number forms of the database file.
//
// "%.11G" prints a value rounded to 11 significant digits. For a normal
// double, the shortest digits that read back as the same double lie within
// half a unit in the last place of it, far closer than the spacing of
// 11-digit decimals; so when that shortest form has at most 11 digits it is
// exactly what "%.11G" rounds to. Longer shortest forms and subnormals are
// rounded to 11 digits by to_chars with a precision, which is exact as
// printf is. Decimals of few places, the common case, are found without
// to_chars at all. Only the layout (fixed or exponent form) is done here;
// infinities and NaNs go through snprintf itself.
#include "dbfile/number.h"

#include <charconv>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace tavlo::dbfile {

namespace {

constexpr int kSignificantDigits = 11;

// "00" "01" ... "99": two decimal digits at a time.
constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

std::size_t PrintfNumber(double value, char* out) {
    char text[kNumberRoom];
    const int length = std::snprintf(text, sizeof text, "%.11G", value);
    std::memcpy(out, text, static_cast<std::size_t>(length));
    return static_cast<std::size_t>(length);
}

// A value as significant digits d1 d2 ... dn, without trailing zeros, and
// the exponent of d1.d2...dn * 10^exponent.
struct ScientificDigits {
    bool negative;
    char digits[kNumberRoom];
    int count;
    int exponent;
};

// Reads to_chars' scientific form [-]d[.ddd]e(+|-)xx. False when it has more
// significant digits than "%.11G" prints.
bool ReadScientific(const char* p, const char* end, ScientificDigits* number) {
    number->negative = *p == '-';
    if (number->negative) {
        ++p;
    }
    int count = 0;
    for (; p < end && *p != 'e'; ++p) {
        if (*p != '.') {
            number->digits[count++] = *p;
        }
    }
    while (count > 1 && number->digits[count - 1] == '0') {
        --count;
    }
    number->count = count;
    ++p;  // 'e'
    const bool negativeExponent = *p == '-';
    int exponent = 0;
    for (++p; p < end; ++p) {
        exponent = exponent * 10 + (*p - '0');
    }
    number->exponent = negativeExponent ? -exponent : exponent;
    return count <= kSignificantDigits;
}

// Lays the digits out as "%G" does: fixed form for exponents from -4 to 10,
// exponent form with at least two exponent digits otherwise.
std::size_t LayOutDigits(const ScientificDigits& number, char* out) {
    const char* digits = number.digits;
    const int count = number.count;
    const int exponent = number.exponent;
    char* p = out;
    if (number.negative) {
        *p++ = '-';
    }
    if (exponent < -4 || exponent >= kSignificantDigits) {
        *p++ = digits[0];
        if (count > 1) {
            *p++ = '.';
            std::memcpy(p, digits + 1, static_cast<std::size_t>(count - 1));
            p += count - 1;
        }
        *p++ = 'E';
        *p++ = exponent < 0 ? '-' : '+';
        const unsigned int magnitude = static_cast<unsigned int>(exponent < 0 ? -exponent : exponent);
        if (magnitude >= 100) {
            *p++ = static_cast<char>('0' + magnitude / 100);
        }
        std::memcpy(p, kDigitPairs + 2 * (magnitude % 100), 2);
        p += 2;
    } else if (exponent >= 0) {
        const int whole = exponent + 1;  // digits before the point
        if (count <= whole) {
            std::memcpy(p, digits, static_cast<std::size_t>(count));
            p += count;
            std::memset(p, '0', static_cast<std::size_t>(whole - count));
            p += whole - count;
        } else {
            std::memcpy(p, digits, static_cast<std::size_t>(whole));
            p += whole;
            *p++ = '.';
            std::memcpy(p, digits + whole, static_cast<std::size_t>(count - whole));
            p += count - whole;
        }
    } else {
        *p++ = '0';
        *p++ = '.';
        std::memset(p, '0', static_cast<std::size_t>(-exponent - 1));
        p += -exponent - 1;
        std::memcpy(p, digits, static_cast<std::size_t>(count));
        p += count;
    }
    return static_cast<std::size_t>(p - out);
}

constexpr int kMostPlaces = 22;  // the last of kExactPowersOfTen
constexpr double kMostDigitsBound = 1e11;  // numbers of 11 digits lie below it

// The digits of a normal value that is a decimal of at most 11 digits with
// few places, m / 10^k, found without to_chars: m and 10^k are exact
// doubles and their quotient is correctly rounded, so when it gives the
// value back, m / 10^k is a decimal that reads as the value, and "%.11G"
// prints it (see the top of this file). The least such k leaves m without
// trailing zeros. False when there is none.
bool ShortDecimal(double value, ScientificDigits* number) {
    const double magnitude = std::fabs(value);
    for (int k = 1; k <= kMostPlaces; ++k) {
        const double scaled = magnitude * kExactPowersOfTen[k];
        if (scaled >= kMostDigitsBound) {
            return false;
        }
        const auto whole = static_cast<unsigned long long>(scaled + 0.5);
        const auto wholeValue = static_cast<double>(whole);
        if (whole == 0 || wholeValue >= kMostDigitsBound ||
            wholeValue / kExactPowersOfTen[k] != magnitude) {
            continue;
        }
        number->negative = value < 0;
        number->count = static_cast<int>(FormatUnsigned(whole, number->digits));
        number->exponent = number->count - 1 - k;
        return true;
    }
    return false;
}

}  // namespace

std::size_t FormatUnsigned(unsigned long long value, char* out) {
    // The digits are counted first and written straight into place from
    // the last, two at a time.
    std::size_t length = 1;
    for (unsigned long long bound = 10; length < 20 && value >= bound; bound *= 10) {
        ++length;
    }
    char* p = out + length;
    while (value >= 100) {
        p -= 2;
        std::memcpy(p, kDigitPairs + 2 * (value % 100), 2);
        value /= 100;
    }
    if (value >= 10) {
        p -= 2;
        std::memcpy(p, kDigitPairs + 2 * value, 2);
    } else {
        *--p = static_cast<char>('0' + value);
    }
    return length;
}

std::size_t FormatSigned(long long value, char* out) {
    if (value < 0) {
        *out = '-';
        // Negate in unsigned arithmetic so that the smallest value is safe.
        return 1 + FormatUnsigned(0ull - static_cast<unsigned long long>(value), out + 1);
    }
    return FormatUnsigned(static_cast<unsigned long long>(value), out);
}

std::size_t FormatHex(unsigned int value, char* out) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    char text[8];
    char* end = text + sizeof text;
    char* p = end;
    do {
        *--p = kHexDigits[value & 0xFu];
        value >>= 4;
    } while (value != 0);
    const std::size_t length = static_cast<std::size_t>(end - p);
    std::memcpy(out, p, length);
    return length;
}

std::size_t FormatNumber(double value, char* out) {
    const double magnitude = std::fabs(value);
    // Whole numbers below 1e11 have at most 11 digits: "%.11G" prints them
    // as integers ("-0" for negative zero).
    if (magnitude < 1e11) {
        const long long whole = static_cast<long long>(value);
        if (static_cast<double>(whole) == value) {
            if (whole == 0 && std::signbit(value)) {
                out[0] = '-';
                out[1] = '0';
                return 2;
            }
            return FormatSigned(whole, out);
        }
    }
    if (!std::isfinite(value)) {
        return PrintfNumber(value, out);  // printf's own spelling of inf and nan
    }

    char text[kNumberRoom];
    char* const end = text + sizeof text;
    ScientificDigits number;
    // The shortest digits stand for the rounded value only for normal numbers
    // (see the top of this file); otherwise, or when they are too many, round
    // to 11 digits exactly as printf does.
    if (magnitude >= DBL_MIN && ShortDecimal(value, &number)) {
        return LayOutDigits(number, out);
    }
    if (!(magnitude >= DBL_MIN) ||
        !ReadScientific(text, std::to_chars(text, end, value, std::chars_format::scientific).ptr,
                        &number)) {
        ReadScientific(text,
                       std::to_chars(text, end, value, std::chars_format::scientific,
                                     kSignificantDigits - 1)
                           .ptr,
                       &number);
    }
    return LayOutDigits(number, out);
}

}  // namespace tavlo::dbfile
