// Numbers as the command prints them: its own quick layout against the
// standard library's formatting to 10 significant digits, on the values
// decoding makes (raw values times decimal factors plus offsets, around
// every power of ten and halfway between ten-digit numbers) and on any bits.
#include <charconv>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "common.h"

namespace {

std::string Expected(double value) {
    char text[40];
    return std::string(text, std::to_chars(text, text + sizeof text, value,
                                           std::chars_format::general, 10).ptr);
}

TEST(Number, IsWhatTenSignificantDigitsGive) {
    std::mt19937_64 random(20261124);
    const double kFactors[] = {1, 0.1, 0.5, 0.01, 0.001, 0.25, 1e-6, 3.6, 1.0 / 3};
    std::size_t checked = 0;
    const auto check = [&checked](double value) {
        char text[tavlo::tool::kNumberRoom];
        ASSERT_EQ(std::string(text, tavlo::tool::PutNumber(text, value)), Expected(value))
            << std::hexfloat << value;
        ++checked;
    };
    for (int i = 0; i < 200000; ++i) {
        const double raw = static_cast<double>(static_cast<std::int64_t>(random() % 2000001) - 1000000);
        check(raw * kFactors[i % 9] + static_cast<double>(random() % 81) - 40);
        std::uint64_t bits = random();
        double any;
        std::memcpy(&any, &bits, sizeof any);
        check(any);
    }
    // The doubles nearest to halfway between two ten-digit numbers.
    for (int i = 0; i < 20000; ++i) {
        const double digits = static_cast<double>(1000000000 + random() % 9000000000);
        check((digits + 0.5) / std::pow(10.0, static_cast<int>(random() % 14)));
    }
    for (int exponent = -6; exponent <= 12; ++exponent) {
        const double power = std::pow(10.0, exponent);
        for (const double around : {power, std::nextafter(power, 0.0), std::nextafter(power, 1e300),
                                  9.9999999995 * power, 9.99999999949 * power,
                                  1.00000000005 * power, 1.23456789015 * power}) {
            check(around);
            check(-around);
        }
    }
    for (const double special : {0.0, -0.0, 1e-5, 1e-4, 0.1, 1e10, 9999999999.0, 9999999999.5,
                                 HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        check(special);
    }
    EXPECT_GT(checked, 400000u);
}

// Physical values written from their exact decimal are what formatting the
// decoder's double gives, for decimal scalings of every size, raw values of
// every length and sign, and cancellation to (almost) zero; unscaled
// integers are written exactly.
TEST(Number, ScaledIsWhatTheDoubleGives) {
    std::mt19937_64 random(7);
    const double kFactors[] = {1, 0.1, 0.5, 0.01, 0.001, 0.25, 1e-6, 3.6, 0.0625, 1e-9, 100, 0.03};
    const double kOffsets[] = {0, -40, 0.5, -273.15, 1000, -0.001, 12.7, -100000, 5e6};
    for (int i = 0; i < 300000; ++i) {
        const double factor = kFactors[random() % std::size(kFactors)] * (random() % 4 == 0 ? -1 : 1);
        const double offset = kOffsets[random() % std::size(kOffsets)];
        const unsigned int bits = 1 + static_cast<unsigned int>(random() % 40);
        const bool isSigned = random() % 2 == 0;
        tavlo::tool::DecimalScale scale;
        ASSERT_TRUE(tavlo::tool::MakeDecimalScale(factor, offset, bits, isSigned, scale))
            << factor << " " << offset;
        const std::uint64_t mostRaw = std::uint64_t{1} << (isSigned ? bits - 1 : bits);
        std::int64_t raw = static_cast<std::int64_t>(random() % mostRaw);
        raw = isSigned && random() % 2 == 0 ? -raw : raw;
        if (i % 7 == 0 && factor != 0) {  // near where the offset cancels it
            raw = std::llround(-offset / factor) + static_cast<std::int64_t>(random() % 2001) - 1000;
        }
        const double value = static_cast<double>(raw) * factor + offset;
        char text[tavlo::tool::kNumberRoom + tavlo::tool::kOverRoom];
        // Unscaled integers are written exactly, whatever their length.
        const std::string expected = scale.integer ? std::to_string(raw) : Expected(value);
        ASSERT_EQ(std::string(text, tavlo::tool::PutScaled(text, scale, raw, value)), expected)
            << raw << " * " << factor << " + " << offset;
    }
    tavlo::tool::DecimalScale scale;
    EXPECT_FALSE(tavlo::tool::MakeDecimalScale(1.0 / 3, 0, 8, false, scale));
    EXPECT_FALSE(tavlo::tool::MakeDecimalScale(1, 0, 64, false, scale));
    EXPECT_FALSE(tavlo::tool::MakeDecimalScale(1e12, 0, 40, true, scale));
}

}  // namespace
