// bench/decoder_bench.cpp: the compiled decoder over the generated database
// of 2,000 messages of 8 signals (mixed byte order, sign and length, some
// multiplexed): compiling it, decoding frames of random known identifiers to
// raw and physical values, and decoding a batch into columns.
//
//     build/release/bench/tavloms_bench --benchmark_filter=Decoder
//
// Targets: at most 3 ns per signal (counter ns_per_signal) for single frames,
// including the identifier look-up; at least 30 million signals per second
// in columns (signals_per_second); compiling in under 20 ms.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "generated_database.h"
#include "tavloms/tavloms.h"

namespace {

constexpr unsigned int kMessages = 2000;
constexpr std::size_t kFrames = 1 << 16;

// The database's records, and frames of its identifiers with random data.
struct Fixture {
    tavlo_root_t root{};
    std::vector<unsigned int> ids;
    std::vector<unsigned char> lengths;
    std::vector<unsigned char> data;  // 64 bytes per frame
    std::vector<unsigned char> classic;  // the same frames' first 8 bytes
    std::vector<double> times;

    Fixture() {
        const std::filesystem::path path = std::filesystem::temp_directory_path() /
            ("tavloms_decoder_bench_" + std::to_string(static_cast<long>(getpid())) + ".dbc");
        {
            std::ofstream out(path, std::ios::binary);
            out << tavloms_bench::GenerateDatabaseText(kMessages);
        }
        TAVLO_READ(path.string().c_str(), &root.nodes, &root.messages, &root.envvars,
                   &root.bit_timings, &root.attr_defs, &root.db_attrs, &root.categories,
                   &root.filter, &root.comment, &root.version, &root.sig_types,
                   &root.value_tables);
        std::filesystem::remove(path);
        std::vector<unsigned int> known;
        for (const msgblk* m = root.messages; m != nullptr; m = m->next) {
            known.push_back(m->id);
        }
        std::mt19937 random(7);
        for (std::size_t i = 0; i < kFrames; ++i) {
            ids.push_back(known[random() % known.size()]);
            lengths.push_back(8);
            times.push_back(0.001 * static_cast<double>(i));
            for (int b = 0; b < 64; ++b) {
                data.push_back(static_cast<unsigned char>(random()));
            }
            classic.insert(classic.end(), data.end() - 64, data.end() - 56);
        }
    }
    ~Fixture() { TAVLO_FREE_ROOT(&root); }
};

const Fixture& Get() {
    static const Fixture fixture;
    return fixture;
}

void DecoderCompile(benchmark::State& state) {
    const Fixture& f = Get();
    for (auto _ : state) {
        tavlo_decoder_t* decoder = tavlo_decoder_compile(&f.root, nullptr, 0);
        benchmark::DoNotOptimize(decoder);
        tavlo_decoder_free(decoder);
    }
    // Seconds per compile (the time column gives it in ms as well).
    state.counters["compile"] = benchmark::Counter(
        static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(DecoderCompile)->Unit(benchmark::kMillisecond);

void DecoderFrames(benchmark::State& state) {
    const Fixture& f = Get();
    tavlo_decoder_t* decoder = tavlo_decoder_compile(&f.root, nullptr, 0);
    tavlo_dec_value_t values[64];
    std::size_t signals = 0;
    std::size_t i = 0;
    for (auto _ : state) {
        std::size_t count = 0;
        tavlo_decoder_decode(decoder, f.ids[i], f.classic.data() + 8 * i, f.lengths[i], values, 64,
                             &count);
        benchmark::DoNotOptimize(values);
        signals += 8;  // every signal of the message is looked at, present or not
        i = (i + 1) % kFrames;
    }
    state.counters["ns_per_signal"] = benchmark::Counter(
        static_cast<double>(signals), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    tavlo_decoder_free(decoder);
}
BENCHMARK(DecoderFrames);

void DecoderColumns(benchmark::State& state) {
    const Fixture& f = Get();
    tavlo_decoder_t* decoder = tavlo_decoder_compile(&f.root, nullptr, 0);
    tavlo_dec_batch_t* batch = tavlo_dec_batch_new(decoder);
    for (auto _ : state) {
        tavlo_dec_batch_decode(batch, kFrames, f.times.data(), f.ids.data(), f.lengths.data(),
                               f.data.data(), 64);
        benchmark::ClobberMemory();
    }
    state.counters["signals_per_second"] = benchmark::Counter(
        8.0 * kFrames * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    tavlo_dec_batch_free(batch);
    tavlo_decoder_free(decoder);
}
BENCHMARK(DecoderColumns)->Unit(benchmark::kMillisecond);

}  // namespace
