// The number form of the file: FormatNumber must give exactly the bytes of
// snprintf("%.11G") for every double, which no set of database files can
// show: chosen values where the forms meet, powers of ten, and random ones.
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

TEST(FormatNumber, MatchesPrintf) {
    std::vector<double> values = {
        0.0, -0.0, 1, -32768, 4294967295.0, 0.1 + 0.2, 1.0 / 3, 655.35, -37.45, 0.01 * 255 - 40,
        1e-5, 1e-4, 9.9999e-5, 0.000099999999999, 0.0000999999999995, 99999999999.0,
        99999999999.5, 12345678901.5, 12345678902.5, 9.99999999995, 9.999999999949,
        0.999999999995, 1234567890.25, 1e15, 1e17, 1e22, 1e23, DBL_MAX, DBL_MIN, DBL_EPSILON,
        std::numeric_limits<double>::denorm_min(), 1e-310, 9007199254740993.0,
        std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()};
    for (int exponent = -324; exponent <= 308; ++exponent) {
        const double power = std::pow(10.0, exponent);
        for (double v : {power, std::nextafter(power, 0.0), std::nextafter(power, HUGE_VAL),
                         5 * power, 9.5 * power}) {
            values.push_back(v);
        }
    }
    std::mt19937_64 random(20240611);
    for (int i = 0; i < 200000; ++i) {
        const unsigned long long bits = random();
        double v;
        std::memcpy(&v, &bits, sizeof v);
        switch (i % 4) {
            case 0: values.push_back(v); break;  // any bit pattern
            case 1: values.push_back(static_cast<double>(static_cast<long long>(bits % 2000001) - 1000000) / 1000); break;
            case 2: values.push_back(static_cast<double>(bits % 20000000001ull) / std::pow(10.0, static_cast<double>(bits % 13))); break;
            default: values.push_back(std::pow(10.0, std::uniform_real_distribution<double>(-330, 308)(random))); break;
        }
    }
    int mismatches = 0;
    for (double value : values) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "%.11G", value);
        char text[tavlo::dbfile::kNumberRoom];
        const std::string actual(text, tavlo::dbfile::FormatNumber(value, text));
        if (actual != expected && ++mismatches <= 10) {
            char exact[64];
            std::snprintf(exact, sizeof exact, "%a", value);
            ADD_FAILURE() << exact << " gives \"" << actual << "\", printf \"" << expected << "\"";
        }
    }
    EXPECT_EQ(mismatches, 0) << "of " << values.size() << " values";
}

// Integers are written as "%llu" and "%lld" write them, at every count of
// digits and at the ends of their types.
TEST(FormatNumber, IntegersMatchPrintf) {
    std::vector<unsigned long long> values = {0, ULLONG_MAX, ULLONG_MAX - 1};
    for (unsigned long long power = 1; power <= ULLONG_MAX / 10; power *= 10) {
        values.insert(values.end(), {power - 1, power, power * 10 - 1, power * 10});
    }
    for (const unsigned long long value : values) {
        char expected[32];
        char text[tavlo::dbfile::kNumberRoom];
        std::snprintf(expected, sizeof expected, "%llu", value);
        EXPECT_EQ(std::string(text, tavlo::dbfile::FormatUnsigned(value, text)), expected);
        const auto signedValue = static_cast<long long>(value);
        std::snprintf(expected, sizeof expected, "%lld", signedValue);
        EXPECT_EQ(std::string(text, tavlo::dbfile::FormatSigned(signedValue, text)), expected);
    }
}

}  // namespace
