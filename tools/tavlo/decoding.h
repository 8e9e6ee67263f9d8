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

// The message a command line names: by its name or long name, or by its
// identifier as a number in C's notation (0x for hex), standard or extended;
// the decoder's index, or -1.
long FindMessage(const DecodedDatabase& db, const std::string& text);

// A signal by the decoder's indexes of its message and of it in the message.
struct SignalRef {
    std::size_t message;
    std::size_t signal;
};
// The signals a command line names, NAME or MESSAGE.NAME (each by the
// record's name or long name), where `*` in either part stands for any run
// of characters; appended to found, in the database's order. False with the
// reason shown ("<path>: ...") when it names none, or when a name without a
// `*` is of signals in several messages and the message is not given.
bool FindSignals(const DecodedDatabase& db, const std::string& path, const std::string& text,
                 std::vector<SignalRef>& found);

// A decoded value as printed: an integer signal without scaling exactly,
// whatever its length; any other as its physical value. At most
// kNumberRoom characters; returns their end.
char* PutValue(char* at, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value);
void AppendValue(std::string& out, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value);

}  // namespace tavlo::tool
