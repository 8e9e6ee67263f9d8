// tools/tavlo/number.cpp: numbers as the command prints them, with the 10
// significant digits a database file's scaling supports, as "%.10g" would.
// Decoding writes millions of them a second, and formatting to a precision
// costs over 100 ns a number, so the common case is done here: the value
// scaled to ten digits before the point and rounded, then laid out.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "common.h"

namespace tavlo::tool {
namespace {

constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10,
                              1e11, 1e12, 1e13, 1e14};

char* Formatted(char* at, double value) {
    return std::to_chars(at, at + kNumberRoom, value, std::chars_format::general, 10).ptr;
}

// A number as digits and a power of ten, digits * 10^-decimals, from its
// shortest text; false when that is not a short decimal.
bool Decimal(double value, std::int64_t& digits, int& decimals) {
    char text[40];
    const char* end = std::to_chars(text, text + sizeof text, value).ptr;
    digits = 0;
    decimals = 0;
    int exponent = 0;
    bool point = false;
    bool negative = false;
    for (const char* c = text; c < end; ++c) {
        if (*c == '-') {
            negative = true;
        } else if (*c == '.') {
            point = true;
        } else if (*c == 'e') {
            if (std::from_chars(c + 1 + (c[1] == '+'), end, exponent).ec != std::errc()) {
                return false;
            }
            break;
        } else if (*c >= '0' && *c <= '9') {
            if (digits > (std::int64_t{1} << 40)) {
                return false;
            }
            digits = digits * 10 + (*c - '0');
            decimals += point ? 1 : 0;
        } else {
            return false;  // inf, nan
        }
    }
    decimals -= exponent;
    for (; decimals < 0; ++decimals) {
        if (digits > (std::int64_t{1} << 40)) {
            return false;
        }
        digits *= 10;
    }
    digits = negative ? -digits : digits;
    return decimals <= 9;
}

// A quarter of a unit in the tenth significant digit below a number of
// exponent e (10^e <= |number| < 10^(e+1)), for e from -4 to 9: within it,
// rounding to ten significant digits cannot go another way.
constexpr double kQuarterUnit[] = {0.25e-14, 0.25e-13, 0.25e-12, 0.25e-11, 0.25e-10,
                                   0.25e-9,  0.25e-8,  0.25e-7,  0.25e-6,  0.25e-5,
                                   0.25e-4,  0.25e-3,  0.25e-2,  0.25e-1};

}  // namespace

bool MakeDecimalScale(double factor, double offset, unsigned int bits, bool isSigned,
                      DecimalScale& scale) {
    std::int64_t factorDigits = 0;
    std::int64_t offsetDigits = 0;
    int factorDecimals = 0;
    int offsetDecimals = 0;
    if (bits == 0 || bits > 62 || !Decimal(factor, factorDigits, factorDecimals) ||
        !Decimal(offset, offsetDigits, offsetDecimals)) {
        return false;
    }
    scale.decimals = std::max(factorDecimals, offsetDecimals);
    for (; factorDecimals < scale.decimals; ++factorDecimals) {
        factorDigits *= 10;
    }
    for (; offsetDecimals < scale.decimals; ++offsetDecimals) {
        offsetDigits *= 10;
    }
    scale.factor = factorDigits;
    scale.offset = offsetDigits;
    scale.integer = factor == 1 && offset == 0;
    // raw * factor + offset stays below 2^62.
    const double mostRaw = std::ldexp(1.0, static_cast<int>(isSigned ? bits - 1 : bits));
    const double most = mostRaw * std::fabs(static_cast<double>(factorDigits)) +
                        std::fabs(static_cast<double>(offsetDigits));
    return most < 4e18;
}

char* PutScaled(char* at, const DecimalScale& scale, std::int64_t raw, double value) {
    const std::int64_t exact = raw * scale.factor + scale.offset;
    const std::uint64_t magnitude = exact < 0 ? 0 - static_cast<std::uint64_t>(exact)
                                              : static_cast<std::uint64_t>(exact);
    constexpr std::uint64_t kTenDigits = 10000000000u;
    if (magnitude >= kTenDigits || (exact == 0 && !scale.integer)) {
        if (scale.integer) {
            return std::to_chars(at, at + kNumberRoom, exact).ptr;
        }
        return exact == 0 && value == 0 && !std::signbit(value) ? Put(at, "0")
                                                                : PutNumber(at, value);
    }
    // The digits, right-aligned after zeros (from which "0." reads its 0),
    // two at a time from the right.
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    char text[16 + kOverRoom];  // the digits end at text + 16; then room to copy past them
    char* const end = text + 16;
    std::memcpy(text, "0000000000000000", 16);
    std::memset(end, 0, kOverRoom);
    char* first = end;
    std::uint64_t left = magnitude;
    while (left >= 100) {
        first -= 2;
        std::memcpy(first, kPairs + 2 * (left % 100), 2);
        left /= 100;
    }
    if (left >= 10) {
        first -= 2;
        std::memcpy(first, kPairs + 2 * left, 2);
    } else {
        *--first = static_cast<char>('0' + left);
    }
    const int count = static_cast<int>(end - first);  // significant digits
    int zeros = 0;
    while (zeros < scale.decimals && end[-1 - zeros] == '0') {
        ++zeros;
    }
    const int decimals = scale.decimals - zeros;
    const int exponent = count - 1 - scale.decimals;
    static constexpr double kTenths[] = {1, 1e-1, 1e-2, 1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9};
    if (!scale.integer &&
        (exponent < -4 ||
         !(std::fabs(value - static_cast<double>(exact) * kTenths[scale.decimals]) <=
           kQuarterUnit[exponent + 4]))) {
        return PutNumber(at, value);
    }
    *at = '-';
    at += exact < 0 ? 1 : 0;
    const int whole = std::max(count - scale.decimals, 1);
    at = PutOver(at, end - scale.decimals - whole, static_cast<std::size_t>(whole));
    *at = '.';
    PutOver(at + 1, end - scale.decimals, static_cast<std::size_t>(decimals));
    return at + (decimals > 0 ? 1 + decimals : 0);
}

char* PutNumber(char* at, double value) {
    const double magnitude = std::fabs(value);
    // Written in fixed form ("%g" does for exponents -4 to 9) and away from
    // the smallest numbers; zero, infinities and NaN go the general way.
    if (!(magnitude >= 1e-4 && magnitude < 1e10)) {
        return Formatted(at, value);
    }
    int exponent = 9;  // of the leading digit
    while (exponent > 0 && magnitude < kPowers[exponent]) {
        --exponent;
    }
    while (exponent <= 0 && magnitude * kPowers[-exponent] < 1) {  // 1e-4 <= magnitude < 1
        --exponent;
    }
    // Ten digits before the point. The product is the exact one rounded to
    // the nearest double, and halves are doubles at this size, so it lies on
    // the same side of one half as the exact product, or on it: then the
    // exact product may lie either side, and the general way decides.
    const double scaled = magnitude * kPowers[9 - exponent];
    const double whole = std::floor(scaled);
    const double fraction = scaled - whole;
    if (fraction == 0.5) {
        return Formatted(at, value);
    }
    auto digits = static_cast<std::uint64_t>(whole) + (fraction > 0.5 ? 1 : 0);
    if (digits >= 10000000000u) {  // rounded up to the next power of ten
        digits /= 10;
        ++exponent;
        if (exponent >= 10) {
            return Formatted(at, value);
        }
    }
    char mantissa[10];
    for (int pair = 4; pair >= 0; --pair) {  // two digits at a time, from the right
        const auto two = static_cast<unsigned int>(digits % 100);
        digits /= 100;
        mantissa[2 * pair] = static_cast<char>('0' + two / 10);
        mantissa[2 * pair + 1] = static_cast<char>('0' + two % 10);
    }
    int count = 10;
    while (count > 1 && mantissa[count - 1] == '0') {
        --count;
    }
    if (value < 0) {
        *at++ = '-';
    }
    if (exponent < 0) {  // 0.000ddd
        at = Put(at, "0.");
        std::memset(at, '0', static_cast<std::size_t>(-exponent - 1));
        at += -exponent - 1;
        return Put(at, std::string_view(mantissa, static_cast<std::size_t>(count)));
    }
    if (count <= exponent + 1) {  // ddd, ddd000
        return Put(at, std::string_view(mantissa, static_cast<std::size_t>(exponent + 1)));
    }
    at = Put(at, std::string_view(mantissa, static_cast<std::size_t>(exponent + 1)));  // ddd.ddd
    *at++ = '.';
    return Put(at, std::string_view(mantissa + exponent + 1,
                                    static_cast<std::size_t>(count - exponent - 1)));
}

}  // namespace tavlo::tool
