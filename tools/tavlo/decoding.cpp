// tools/tavlo/decoding.cpp: a database read with its compiled decoder, and
// signal values as text, for decode, encode and plot.
#include "decoding.h"

#include <charconv>
#include <cstdint>

namespace tavlo::tool {

bool LoadDecoder(const std::string& path, DecodedDatabase& db) {
    KeptStatements kept;
    if (!Read(path, db.root, Strict(), false, &kept)) {
        return false;
    }
    for (const msgblk* m = db.root.messages; m != nullptr; m = m->next) {
        db.records.push_back(m);
    }
    db.decoder = tavlo::Decoder(db.root, kept.statements);
    if (!db.decoder) {
        std::fprintf(stderr, "%s: out of memory\n", path.c_str());
        return false;
    }
    const unsigned int* lines = nullptr;
    const std::size_t skipped = tavlo_decoder_skipped(db.decoder.get(), &lines);
    for (std::size_t i = 0; i < skipped; ++i) {
        std::fprintf(stderr, "%s:%u: SG_MUL_VAL_ not understood; ignored\n", path.c_str(), lines[i]);
    }
    return true;
}

char* PutValue(char* at, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value) {
    if (signal.kind <= TAVLO_DEC_SIGNED && signal.factor == 1 && signal.offset == 0) {
        return signal.kind == TAVLO_DEC_SIGNED
                   ? std::to_chars(at, at + kNumberRoom, static_cast<std::int64_t>(value.raw)).ptr
                   : std::to_chars(at, at + kNumberRoom, value.raw).ptr;
    }
    return PutNumber(at, value.physical);
}

void AppendValue(std::string& out, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value) {
    char text[kNumberRoom];
    out.append(text, PutValue(text, signal, value));
}

}  // namespace tavlo::tool
