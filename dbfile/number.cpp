// dbfile/number.cpp: number forms of the database file.
//
// "%.11G" prints a value rounded to 11 significant digits. For a normal
// double, the shortest digits that read back as the same double lie within
// half a unit in the last place of it, far closer than the spacing of
// 11-digit decimals; so when that shortest form has at most 11 digits it is
// exactly what "%.11G" rounds to, and only the layout (fixed or exponent
// form) is left to do here. Longer shortest forms, subnormals, infinities
// and NaNs go through snprintf itself.
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

// Lays out significant digits d1 d2 ... dn (no trailing zeros) of the value
// d1.d2...dn * 10^exponent as "%G" does.
std::size_t LayOutDigits(bool negative, const char* digits, int count, int exponent,
                         char* out) {
    char* p = out;
    if (negative) {
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

}  // namespace

std::size_t FormatUnsigned(unsigned long long value, char* out) {
    char text[24];
    char* end = text + sizeof text;
    char* p = end;
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
    const std::size_t length = static_cast<std::size_t>(end - p);
    std::memcpy(out, p, length);
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
    if (!(magnitude >= DBL_MIN) || magnitude > DBL_MAX) {  // subnormal, inf, nan
        return PrintfNumber(value, out);
    }

    char text[kNumberRoom];
    const std::to_chars_result result =
        std::to_chars(text, text + sizeof text, value, std::chars_format::scientific);
    // result is [-]d[.ddd]e(+|-)xx
    const char* p = text;
    const bool negative = *p == '-';
    if (negative) {
        ++p;
    }
    char digits[kNumberRoom];
    int count = 0;
    for (; p < result.ptr && *p != 'e'; ++p) {
        if (*p != '.') {
            digits[count++] = *p;
        }
    }
    while (count > 1 && digits[count - 1] == '0') {
        --count;
    }
    if (count > kSignificantDigits) {
        return PrintfNumber(value, out);
    }
    ++p;  // 'e'
    const bool negativeExponent = *p == '-';
    int exponent = 0;
    for (++p; p < result.ptr; ++p) {
        exponent = exponent * 10 + (*p - '0');
    }
    return LayOutDigits(negative, digits, count, negativeExponent ? -exponent : exponent, out);
}

}  // namespace tavlo::dbfile
