// tools/tavlo/number.cpp: numbers as the command prints them, with the 10
// significant digits a database file's scaling supports, as "%.10g" would.
// Decoding writes millions of them a second, and formatting to a precision
// costs over 100 ns a number, so the common case is done here: the value
// scaled to ten digits before the point and rounded, then laid out.
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

}  // namespace

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
