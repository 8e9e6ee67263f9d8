// dbfile/keywords.cpp: keyword look-up and the new-symbol list.
#include "dbfile/keywords.h"

#include <array>
#include <cstring>

#include "model/model.h"

namespace tavlo::dbfile {

namespace {

NewSymbol* gNewSymbols = nullptr;

}  // namespace

int LookupKeyword(const char* text, int* token) {
    return LookupKeyword(text, std::strlen(text), token);
}

int LookupKeyword(const char* text, std::size_t length, int* token) {
    // Lengths first: most names are not keywords and fail there.
    static const auto lengths = [] {
        std::array<std::size_t, kKeywordCount> result{};
        for (int row = 0; row < kKeywordCount; ++row) {
            result[row] = std::strlen(kKeywords[row].text);
        }
        return result;
    }();
    for (int row = 0; row < kKeywordCount; ++row) {
        const Keyword& keyword = kKeywords[row];
        if (lengths[row] == length && keyword.text[0] == text[0] &&
            keyword.text[1] == text[1] && std::memcmp(keyword.text, text, length) == 0) {
            *token = keyword.token;
            return 1;
        }
    }
    *token = 0;
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
