// tools/tavlo/decoding.cpp: a database read with its compiled decoder, and
// signal values as text, for decode, encode and plot.
#include "decoding.h"

#include <charconv>
#include <cstdint>
#include <fstream>

namespace tavlo::tool {
namespace {

// The file's SG_MUL_VAL_ statements (each from the start of a line through
// its ';') as a read would keep them. Until reads keep such statements
// themselves, the file is looked through once more for them.
struct Kept {
    std::vector<std::string> texts;
    std::vector<tavlo_kept_t> kept;
};

Kept KeptMultiplexing(const std::string& path) {
    Kept found;
    std::vector<unsigned int> lines;
    std::ifstream in(path, std::ios::binary);
    std::string line;
    for (unsigned int number = 1; std::getline(in, line); ++number) {
        if (line.compare(0, 11, "SG_MUL_VAL_") != 0) {
            continue;
        }
        const unsigned int first = number;
        std::string text = line;
        while (text.find(';') == std::string::npos && std::getline(in, line)) {
            ++number;
            text += "\n" + line;
        }
        found.texts.push_back(text.substr(0, text.find(';') + 1));
        lines.push_back(first);
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
        found.kept.push_back({found.texts[i].c_str(), lines[i]});
    }
    return found;
}

}  // namespace

bool LoadDecoder(const std::string& path, DecodedDatabase& db) {
    if (!Read(path, db.root)) {
        return false;
    }
    for (const msgblk* m = db.root.messages; m != nullptr; m = m->next) {
        db.records.push_back(m);
    }
    const Kept kept = KeptMultiplexing(path);
    db.decoder = tavlo::Decoder(db.root, kept.kept);
    if (!db.decoder) {
        std::fprintf(stderr, "%s: out of memory\n", path.c_str());
        return false;
    }
    const unsigned int* lines = nullptr;
    const std::size_t skipped = tavlo_decoder_skipped(db.decoder.get(), &lines);
    for (std::size_t i = 0; i < skipped; ++i) {
        std::fprintf(stderr, "%s: SG_MUL_VAL_ on line %u not understood; ignored\n", path.c_str(),
                     lines[i]);
    }
    return true;
}

void AppendValue(std::string& out, const tavlo_dec_signal_t& signal, const tavlo_dec_value_t& value) {
    if (signal.kind <= TAVLO_DEC_SIGNED && signal.factor == 1 && signal.offset == 0) {
        char text[24];
        const std::to_chars_result written =
            signal.kind == TAVLO_DEC_SIGNED
                ? std::to_chars(text, text + sizeof text, static_cast<std::int64_t>(value.raw))
                : std::to_chars(text, text + sizeof text, value.raw);
        out.append(text, written.ptr);
        return;
    }
    AppendNumber(out, value.physical);
}

}  // namespace tavlo::tool
