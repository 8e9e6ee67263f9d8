// tests/codec/support.h: what both codec test files use: the seed of the
// random tests (fixed, printed with the test output and recorded with its
// result, so that a failing run can be repeated) and bytes as hex text.
#ifndef TAVLOMS_TESTS_CODEC_SUPPORT_H
#define TAVLOMS_TESTS_CODEC_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

namespace tavlo::test {

constexpr std::uint32_t kCodecSeed = 20261122u;

// kCodecSeed, or TAVLOMS_CODEC_SEED from the environment to repeat another
// run or to try a new one. Each test adds its own offset so that the tests do
// not draw the same numbers.
inline std::uint32_t CodecSeed(std::uint32_t offset) {
    std::uint32_t seed = kCodecSeed;
    if (const char* text = std::getenv("TAVLOMS_CODEC_SEED")) {
        seed = static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0));
    }
    std::cout << "[   SEED   ] " << seed << " + " << offset
              << " (TAVLOMS_CODEC_SEED=" << seed << " repeats it)" << std::endl;
    ::testing::Test::RecordProperty("seed", std::to_string(seed));
    return seed + offset;
}

// Bytes as "AB CD ...", for messages of failed checks.
inline std::string Hex(const unsigned char* bytes, std::size_t count) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0) {
            text += ' ';
        }
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xF];
    }
    return text;
}

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_CODEC_SUPPORT_H
