// The seed of the codec's random tests: fixed, printed with the test output
// and recorded with its result, so that a failing run can be repeated.
#ifndef TAVLOMS_TESTS_CODEC_SEED_H
#define TAVLOMS_TESTS_CODEC_SEED_H

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

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_CODEC_SEED_H
