// dbfile/keywords.cpp: keyword look-up and the new-symbol list.
#include "dbfile/keywords.h"

#include <cstring>

#include "model/model.h"

namespace tavlo::dbfile {

namespace {

NewSymbol* gNewSymbols = nullptr;

}  // namespace

int LookupKeyword(const char* text, int* token) {
    return LookupKeyword(text, std::strlen(text), token);
}

namespace {

// The keywords' rows by a hash of their length and first and last
// characters, in an open-addressing table made once: a look-up reads one or
// two places. Rows go in in order, so that of equal texts the first is
// found, as in the table itself.
struct KeywordPlaces {
    static constexpr std::size_t kPlaces = 128;
    signed char rows[kPlaces];  // -1: free
    unsigned char lengths[kKeywordCount];
    std::size_t longest = 0;

    static std::size_t Hash(const char* text, std::size_t length) {
        return (length * 37 + static_cast<unsigned char>(text[0]) * 11 +
                static_cast<unsigned char>(text[length - 1])) %
               kPlaces;
    }

    KeywordPlaces() {
        static_assert(kKeywordCount < kPlaces / 2, "the table stays at most half full");
        std::memset(rows, -1, sizeof rows);
        for (int row = 0; row < kKeywordCount; ++row) {
            const std::size_t length = std::strlen(kKeywords[row].text);
            lengths[row] = static_cast<unsigned char>(length);
            longest = length > longest ? length : longest;
            std::size_t place = Hash(kKeywords[row].text, length);
            while (rows[place] >= 0) {
                place = (place + 1) % kPlaces;
            }
            rows[place] = static_cast<signed char>(row);
        }
    }
};

}  // namespace

int LookupKeyword(const char* text, std::size_t length, int* token) {
    static const KeywordPlaces places;
    *token = 0;
    if (length == 0 || length > places.longest) {
        return 0;
    }
    for (std::size_t place = KeywordPlaces::Hash(text, length); places.rows[place] >= 0;
         place = (place + 1) % KeywordPlaces::kPlaces) {
        const int row = places.rows[place];
        if (places.lengths[row] == length && std::memcmp(kKeywords[row].text, text, length) == 0) {
            *token = kKeywords[row].token;
            return 1;
        }
    }
    return 0;
}

int DeclareNewSymbol(const char* name) {
    int token;
    if (LookupKeyword(name, &token)) {
        return 1;
    }
    NewSymbol* symbol = model::Allocate<NewSymbol>();
    if (symbol == nullptr) {
        return 0;
    }
    model::CopyName(symbol->name, name);
    symbol->self = symbol->name;
    symbol->next = gNewSymbols;
    gNewSymbols = symbol;
    return 1;
}

const NewSymbol* NewSymbols() {
    return gNewSymbols;
}

const NewSymbol* FindNewSymbol(const char* name) {
    for (const NewSymbol* symbol = gNewSymbols; symbol != nullptr; symbol = symbol->next) {
        if (std::strcmp(symbol->name, name) == 0) {
            return symbol;
        }
    }
    return nullptr;
}

void FreeNewSymbols() {
    model::ReleaseEntries(gNewSymbols);
    gNewSymbols = nullptr;
}

}  // namespace tavlo::dbfile
