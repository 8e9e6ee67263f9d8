// A deterministic, realistic database file text for benchmarks and fuzz seeds.
//
// The text is made of the canonical line forms in the order the writer emits
// them, so reading it and writing the result back gives (nearly) the same
// bytes. The same message count always gives the same text.
#ifndef TAVLOMS_BENCH_GENERATED_DATABASE_H
#define TAVLOMS_BENCH_GENERATED_DATABASE_H

#include <string>

namespace tavloms_bench {

// Messages in the full benchmark database (8 signals each, about 14 MB).
constexpr unsigned int kGeneratedMessages = 20000;
constexpr unsigned int kGeneratedSignalsPerMessage = 8;

// Returns the file text of a database with `messages` messages of 8 signals
// each: a handful of nodes, value tables, standard and extended identifiers,
// both byte orders, multiplexed messages, receivers, comments, attribute
// definitions of every value type for the database, nodes, messages and
// signals with their defaults and values, and value descriptions.
std::string GenerateDatabaseText(unsigned int messages = kGeneratedMessages);

}  // namespace tavloms_bench

#endif  // TAVLOMS_BENCH_GENERATED_DATABASE_H
