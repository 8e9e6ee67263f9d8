// tools/tavlo/decoding.cpp: a database read with its compiled decoder, and
// signal values as text, for decode, encode and plot.
#include "decoding.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>

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

namespace {

// Whether text matches a pattern in which '*' stands for any run of
// characters: on a mismatch, the last '*' takes one character more.
bool Matches(std::string_view pattern, std::string_view text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos;
    std::size_t resume = 0;  // where the text goes on after the last '*'
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

}  // namespace

long FindMessage(const DecodedDatabase& db, const std::string& text) {
    const long named = db.decoder.FindName(text.c_str());
    if (named >= 0) {
        return named;
    }
    for (std::size_t m = 0; m < db.records.size(); ++m) {
        if (text == MessageName(*db.records[m])) {
            return static_cast<long>(m);
        }
    }
    char* end = nullptr;
    const unsigned long id = std::strtoul(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || text[0] == '-' || id > 0x1FFFFFFFu) {
        return -1;
    }
    const long standard = db.decoder.FindId(static_cast<unsigned int>(id));
    return standard >= 0 ? standard : db.decoder.FindId(static_cast<unsigned int>(id) | kExtendedFlag);
}

bool FindSignals(const DecodedDatabase& db, const std::string& path, const std::string& text,
                 std::vector<SignalRef>& found) {
    const std::size_t dot = text.find('.');
    const std::string messagePattern = dot == std::string::npos ? "*" : text.substr(0, dot);
    const std::string signalPattern = dot == std::string::npos ? text : text.substr(dot + 1);
    std::vector<SignalRef> matches;
    std::string names;
    for (std::size_t m = 0; m < db.records.size(); ++m) {
        const msgblk& message = *db.records[m];
        if (!Matches(messagePattern, message.name) &&
            !Matches(messagePattern, MessageName(message))) {
            continue;
        }
        std::size_t index = 0;
        for (const sigblk* s = message.signals; s != nullptr; s = s->next, ++index) {
            if (Matches(signalPattern, s->name) || Matches(signalPattern, SignalName(*s))) {
                matches.push_back({m, index});
                names += (names.empty() ? "" : ", ") + MessageName(message) + "." + SignalName(*s);
            }
        }
    }
    if (matches.empty()) {
        std::fprintf(stderr, "%s: no signal %s\n", path.c_str(), text.c_str());
        return false;
    }
    const bool several = std::any_of(matches.begin(), matches.end(), [&](const SignalRef& ref) {
        return ref.message != matches.front().message;
    });
    if (several && dot == std::string::npos && text.find('*') == std::string::npos) {
        std::fprintf(stderr, "%s: signal %s is in several messages: %s\n", path.c_str(),
                     text.c_str(), names.c_str());
        return false;
    }
    found.insert(found.end(), matches.begin(), matches.end());
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
