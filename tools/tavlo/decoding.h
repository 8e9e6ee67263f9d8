// tools/tavlo/decoding.h: what decode, encode and plot share: a database
// read with its compiled decoder, and signal values as text.
#pragma once

#include <string>
#include <vector>

#include "common.h"

namespace tavlo::tool {

// A database file's records and the decoder compiled from them; message i
// of the decoder is records[i].
struct DecodedDatabase {
    tavlo_root_t root{};
    std::vector<const msgblk*> records;
    tavlo::Decoder decoder;

    DecodedDatabase() = default;
    DecodedDatabase(const DecodedDatabase&) = delete;
    DecodedDatabase& operator=(const DecodedDatabase&) = delete;
    ~DecodedDatabase() { TAVLO_FREE_ROOT(&root); }
};

// Reads path and compiles its decoder, with the file's extended
// multiplexing; false when the read failed (its message shown).
bool LoadDecoder(const std::string& path, DecodedDatabase& db);

// A decoded value as printed: an integer signal without scaling exactly,
// whatever its length; any other as its physical value. At most
// kNumberRoom characters; returns their end.
char* PutValue(char* at, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value);
void AppendValue(std::string& out, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value);

}  // namespace tavlo::tool
