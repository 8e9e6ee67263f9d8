// dbfile/keywords.cpp: keyword look-up and the new-symbol list.
#include "dbfile/keywords.h"

#include <cstdint>
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

// The keywords' rows by a hash of their text, in an open-addressing table
// made when the library is compiled: the hash is chosen so that no two
// keywords share a place, and a look-up reads one. Rows go in in order, so
// that of equal texts the first would be found, as in the table itself.
struct KeywordPlaces {
    static constexpr std::size_t kPlaces = 256;
    signed char rows[kPlaces] = {};  // -1: free
    unsigned char lengths[kKeywordCount] = {};
    std::size_t longest = 0;

    static constexpr std::size_t Hash(const char* text, std::size_t length) {
        std::uint32_t hash = 2166136261u;
        for (std::size_t i = 0; i < length; ++i) {
            hash = (hash ^ static_cast<unsigned char>(text[i])) * 16777619u;
        }
        return static_cast<std::uint32_t>(hash * 35u) >> 24;
    }

    constexpr KeywordPlaces() {
        static_assert(kKeywordCount < kPlaces / 2, "the table stays at most half full");
        for (signed char& row : rows) {
            row = -1;
        }
        for (int row = 0; row < kKeywordCount; ++row) {
            std::size_t length = 0;
            while (kKeywords[row].text[length] != '\0') {
                ++length;
            }
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
constexpr KeywordPlaces kPlaces;

}  // namespace

int LookupKeyword(const char* text, std::size_t length, int* token) {
    *token = 0;
    if (length == 0 || length > kPlaces.longest) {
        return 0;
    }
    for (std::size_t place = KeywordPlaces::Hash(text, length); kPlaces.rows[place] >= 0;
         place = (place + 1) % KeywordPlaces::kPlaces) {
        const int row = kPlaces.rows[place];
        if (kPlaces.lengths[row] != length) {
            continue;
        }
        // Keywords are short: compared here rather than by a library call.
        const char* keyword = kKeywords[row].text;
        std::size_t i = 0;
        while (i < length && keyword[i] == text[i]) {
            ++i;
        }
        if (i == length) {
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
