// bench/codec_bench.cpp: decoding the signals of a classic 8-byte frame,
// raw and physical, through the manager's signal value operations. The
// message holds 8 signals of mixed byte order, sign and length, as real
// powertrain messages do; the figure that matters is ns_per_signal.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <tavloms/tavloms.h>

namespace {

struct Layout {
    const char* name;
    unsigned short startBit;
    unsigned short length;
    unsigned char flags;
    double factor;
    double offset;
};

// 64 bits in all, Intel and Motorola mixed.
constexpr Layout kLayouts[] = {
    {"EngineSpeed", 0, 16, 0, 0.25, 0},
    {"Torque", 16, 12, TAVLO_SIG_SIGNED, 0.5, -500},
    {"Gear", 28, 4, 0, 1, 0},
    {"Throttle", 39, 8, TAVLO_SIG_MOTOROLA, 0.4, 0},
    {"Coolant", 47, 8, TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED, 1, -40},
    {"Flags", 48, 3, 0, 1, 0},
    {"Pressure", 55, 13, TAVLO_SIG_MOTOROLA, 0.1, 0},
    {"Crc", 59, 5, 0, 1, 0},
};

class Frame {
public:
    Frame() : message_(TAVLO_CREATE_MSGBLK()) {
        message_->dlc = 8;
        unsigned int position = 0;
        for (const Layout& layout : kLayouts) {
            sigblk* signal = TAVLO_CREATE_SIGBLK();
            std::strncpy(signal->name, layout.name, TAVLO_NAME_SIZE - 1);
            signal->start_bit = layout.startBit;
            signal->length = layout.length;
            signal->flags = layout.flags;
            signal->factor = layout.factor;
            signal->offset = layout.offset;
            CAN_INSERT_SIG(message_, signal, position++);
            signals_.push_back(signal);
        }
        std::mt19937 random(42);
        for (auto& frame : frames_) {
            for (unsigned char& byte : frame) {
                byte = static_cast<unsigned char>(random());
            }
        }
    }
    ~Frame() {
        msgblk* messages = message_;
        CAN_DELETE_MSG(&messages, message_);
    }

    const msgblk& message() const { return *message_; }
    const std::vector<sigblk*>& signals() const { return signals_; }
    const unsigned char* frame(std::size_t i) const { return frames_[i % frames_.size()].data(); }

private:
    msgblk* message_;
    std::vector<sigblk*> signals_;
    std::array<std::array<unsigned char, 8>, 64> frames_{};
};

// Reports the figure that matters: nanoseconds per signal decoded or encoded.
void CountSignals(benchmark::State& state, const Frame& frame) {
    const auto signals = static_cast<double>(state.iterations() * frame.signals().size());
    state.counters["ns_per_signal"] =
        benchmark::Counter(signals, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetItemsProcessed(static_cast<std::int64_t>(signals));
}

void BM_CodecRawValues(benchmark::State& state) {
    const Frame frame;
    const TavloManager manager(static_cast<void*>(nullptr));
    std::size_t i = 0;
    for (auto _ : state) {
        const unsigned char* data = frame.frame(i++);
        for (const sigblk* signal : frame.signals()) {
            unsigned int raw = 0;
            const unsigned int result =
                manager.GetSignalRawValue(data, *signal, frame.message(), raw);
            benchmark::DoNotOptimize(raw);
            benchmark::DoNotOptimize(result);
        }
    }
    CountSignals(state, frame);
}
BENCHMARK(BM_CodecRawValues);

void BM_CodecPhysicalValues(benchmark::State& state) {
    const Frame frame;
    const TavloManager manager(static_cast<void*>(nullptr));
    std::size_t i = 0;
    for (auto _ : state) {
        const unsigned char* data = frame.frame(i++);
        for (const sigblk* signal : frame.signals()) {
            double physical = 0;
            const unsigned int result =
                manager.GetSignalPhysicalValue(data, *signal, frame.message(), physical);
            benchmark::DoNotOptimize(physical);
            benchmark::DoNotOptimize(result);
        }
    }
    CountSignals(state, frame);
}
BENCHMARK(BM_CodecPhysicalValues);

void BM_CodecEncodePhysical(benchmark::State& state) {
    const Frame frame;
    const TavloManager manager(static_cast<void*>(nullptr));
    unsigned char data[8] = {};
    double value = 0;
    for (auto _ : state) {
        for (const sigblk* signal : frame.signals()) {
            benchmark::DoNotOptimize(
                manager.SetSignalPhysicalValue(data, *signal, frame.message(), value));
        }
        value += 1.0;
        benchmark::ClobberMemory();
    }
    CountSignals(state, frame);
}
BENCHMARK(BM_CodecEncodePhysical);

}  // namespace
