// The number forms of the file: FormatNumber must give exactly the bytes of
// snprintf("%.11G") for every double, and the integer writers those of "%llu",
// "%lld" and "%X".
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dbfile/number.h"

namespace {

using namespace tavlo::dbfile;

std::string Printf(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string Formatted(double value) {
    char text[kNumberRoom];
    return std::string(text, FormatNumber(value, text));
}

// Compares every value and reports the first few differences with the exact
// value, so that a systematic fault does not flood the output.
void ExpectSameAsPrintf(const std::vector<double>& values, const char* what) {
    int mismatches = 0;
    for (double value : values) {
        const std::string expected = Printf("%.11G", value);
        const std::string actual = Formatted(value);
        if (actual != expected && ++mismatches <= 10) {
            ADD_FAILURE() << what << ": " << Printf("%a", value) << " gives \"" << actual
                          << "\", printf \"" << expected << "\"";
        }
    }
    EXPECT_EQ(mismatches, 0) << what << ", of " << values.size() << " values";
}

TEST(FormatNumber, MatchesPrintfOnChosenValues) {
    const double denormMin = std::numeric_limits<double>::denorm_min();
    const std::vector<double> values = {
        0.0, -0.0, 1, -1, 2, 10, 100, -32768, 65535, 4294967295.0,
        0.1, 0.2, 0.1 + 0.2, 0.3, 1.0 / 3, 2.0 / 3, -1.0 / 3, 0.5, 0.25, 0.125, 0.01, 0.001,
        655.35, 16373.75, -10.5, 123456.789, 3.14159265358979, 2.718281828459045,
        // where fixed and exponent forms meet
        1e-5, 1e-4, 9.9999e-5, 0.00010000000001, 0.000099999999999, 0.0000999999999995,
        1.5e-5, -1e-5, -1e-4, 1e10, 1e11, -1e11, 99999999999.0, 99999999999.4,
        99999999999.5, 99999999999.9, 12345678901.0, 123456789012.0, 1e11 - 1, 1e11 + 1,
        9.99999999995, 9.999999999949, 1234567890.25, 1234567890.75, -1234567890.25,
        12345678901.5, 12345678902.5, 0.1234567890625, -37.45, 0.01 * 255 - 40, 9.9999999999, 0.99999999999, 0.999999999995,
        // large, small, limits, infinities and NaNs
        1e15, 1e16, 1e17, 1e21, 1e22, 1e23, 1.5e300, -1.5e300, 1e308, 1e-300, 1e-307,
        DBL_MAX, -DBL_MAX, DBL_MIN, -DBL_MIN, DBL_EPSILON, std::nextafter(DBL_MIN, 0.0),
        denormMin, -denormMin, 2 * denormMin, 1e-310, 4.9406564584124654e-320, 1e-323,
        std::nextafter(1.0, 2.0), std::nextafter(1.0, 0.0), 9007199254740993.0,
        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::quiet_NaN(),
    };
    ExpectSameAsPrintf(values, "chosen");
}

TEST(FormatNumber, MatchesPrintfOnPowersOfTenAndTheirNeighbours) {
    std::vector<double> values;
    for (int exponent = -324; exponent <= 308; ++exponent) {
        const double power = std::pow(10.0, exponent);
        for (double v : {power, std::nextafter(power, 0.0), std::nextafter(power, HUGE_VAL),
                         5 * power, 9.5 * power, 1.25 * power}) {
            values.push_back(v);
            values.push_back(-v);
        }
    }
    ExpectSameAsPrintf(values, "powers of ten");
}

TEST(FormatNumber, MatchesPrintfOnRandomValues) {
    std::mt19937_64 random(20240611);
    constexpr int kCount = 100000;
    struct Source {
        const char* what;
        double (*make)(std::mt19937_64&);
    };
    const Source sources[] = {
        {"any bit pattern",
         [](std::mt19937_64& r) {
             const unsigned long long bits = r();
             double v;
             std::memcpy(&v, &bits, sizeof v);
             return v;
         }},
        {"short decimals k/100 and k/1000",
         [](std::mt19937_64& r) {
             const long long k = static_cast<long long>(r() % 2000001) - 1000000;
             return (r() & 1) ? k / 100.0 : k / 1000.0;
         }},
        {"decimals with up to 12 places",
         [](std::mt19937_64& r) {
             const long long k = static_cast<long long>(r() % 20000000001ull) - 10000000000;
             return k / std::pow(10.0, static_cast<double>(r() % 13));
         }},
        {"whole numbers of every size",
         [](std::mt19937_64& r) {
             const long long k = static_cast<long long>(r() >> (r() % 64));
             return (r() & 1) ? static_cast<double>(k) : -static_cast<double>(k);
         }},
        {"uniform in +-1e12",
         [](std::mt19937_64& r) {
             return std::uniform_real_distribution<double>(-1e12, 1e12)(r);
         }},
        {"log-uniform over all magnitudes",
         [](std::mt19937_64& r) {
             const double exponent = std::uniform_real_distribution<double>(-330, 308)(r);
             return ((r() & 1) ? 1 : -1) * std::pow(10.0, exponent);
         }},
        {"few digits times a power of ten",
         [](std::mt19937_64& r) {
             const double digits = static_cast<double>(r() % 100000);
             return digits * std::pow(10.0, static_cast<double>(r() % 40) - 20);
         }},
    };
    for (const Source& source : sources) {
        std::vector<double> values(kCount);
        for (double& v : values) {
            v = source.make(random);
        }
        ExpectSameAsPrintf(values, source.what);
    }
}

TEST(FormatIntegers, MatchPrintf) {
    std::mt19937_64 random(7);
    std::vector<unsigned long long> values = {0, 1, 9, 10, 99, 100, 999, 1000, 65535, 4294967295u,
                                              ULLONG_MAX, static_cast<unsigned long long>(LLONG_MAX),
                                              static_cast<unsigned long long>(LLONG_MIN)};
    for (int i = 0; i < 20000; ++i) {
        values.push_back(random() >> (random() % 64));
    }
    char text[kNumberRoom];
    char expected[64];
    for (unsigned long long v : values) {
        std::snprintf(expected, sizeof expected, "%llu", v);
        EXPECT_EQ(std::string(text, FormatUnsigned(v, text)), expected);
        const long long s = static_cast<long long>(v);
        std::snprintf(expected, sizeof expected, "%lld", s);
        EXPECT_EQ(std::string(text, FormatSigned(s, text)), expected);
        const unsigned int h = static_cast<unsigned int>(v);
        std::snprintf(expected, sizeof expected, "%X", h);
        EXPECT_EQ(std::string(text, FormatHex(h, text)), expected);
    }
}

}  // namespace
