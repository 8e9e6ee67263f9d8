// Building and releasing databases through the flat interface: creating,
// inserting and freeing 100,000 signals in 100 messages.
//
//     build/bench/tavloms_bench --benchmark_filter=Model
#include <benchmark/benchmark.h>

#include "tavloms/tavloms.h"

namespace {

constexpr unsigned int kMessages = 100;
constexpr unsigned int kSignalsPerMessage = 1000;

// position(i) says where the i-th signal of a message is inserted.
template <class Position>
void BuildAndFree(benchmark::State& state, Position position) {
    for (auto _ : state) {
        msgblk* messages = nullptr;
        for (unsigned int m = 0; m < kMessages; ++m) {
            msgblk* message = TAVLO_CREATE_MSGBLK();
            message->id = m;
            for (unsigned int s = 0; s < kSignalsPerMessage; ++s) {
                sigblk* signal = TAVLO_CREATE_SIGBLK();
                signal->start_bit = static_cast<unsigned short>(s % 64);
                CAN_INSERT_SIG(message, signal, position(s));
            }
            message->signal_count = kSignalsPerMessage;
            CAN_INSERT_MSG(&messages, message, 0);
        }
        benchmark::DoNotOptimize(messages);
        TAVLO_FREE(nullptr, messages, nullptr, nullptr, nullptr, nullptr, nullptr, filter_t{},
                   nullptr, nullptr, nullptr, nullptr);
    }
    state.SetItemsProcessed(state.iterations() * kMessages * kSignalsPerMessage);
}

// Each signal goes in front: the cheapest insertion.
void BM_ModelSignalsInsertedAtHead(benchmark::State& state) {
    BuildAndFree(state, [](unsigned int) { return 0u; });
}
BENCHMARK(BM_ModelSignalsInsertedAtHead)->Unit(benchmark::kMillisecond);

// Each signal appended by position, as a reader keeping file order through
// the positional interface would: the walk to the end grows with the list.
void BM_ModelSignalsAppendedByPosition(benchmark::State& state) {
    BuildAndFree(state, [](unsigned int index) { return index; });
}
BENCHMARK(BM_ModelSignalsAppendedByPosition)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
