// dbfile/keywords.cpp: the keyword table and the new-symbol list.
#include "dbfile/keywords.h"

#include <array>
#include <cstring>

#include "model/model.h"

namespace tavlo::dbfile {

const Keyword kKeywords[kKeywordCount] = {
    {"BO_", kTokBotschaft, "Message"},
    {"SG_", kTokUnterbotschaft, "Signal"},
    {"BU_", kTokBusteilnehmer, "Network node"},
    {"BS_", kTokBitsegmentierung, "Bit timing register"},
    {"VERSION", kTokVer, "Version information"},
    {"EV_", kTokEnvvar, "Environment variable"},
    {"INT", kTokUserInt, "Integer"},
    {"HEX", kTokUserHex, "Hex"},
    {"FLOAT", kTokUserFloat, "Float"},
    {"STRING", kTokUserString, "String"},
    {"ENUM", kTokUserEnum, "Enumeration"},
    {"NS_", kTokNewSymbol, "New symbol"},
    {"NS_DESC_", kTokNewSymbolDesc, "Description of new symbol"},
    {"CM_", kTokComment, "Comment"},
    {"BA_DEF_", kTokUserDefine, "Definition of user defined attribute"},
    {"BA_", kTokUserAttribute, "User defined attribute"},
    {"VAL_", kTokSignalValues, "Signal values"},
    {"CAT_DEF_", kTokCategoryDefine, "Category definition"},
    {"CAT_", kTokCategory, "Category"},
    {"FILTER", kTokFilter, "View filter"},
    {"BA_DEF_DEF_", kTokUserDefineDefault, "Default for user defined attribute"},
    {"EV_DATA_", kTokEnvvarData, "Environment variable of type \"DATA\""},
    {"ENVVAR_DATA_", kTokEnvvarData, "Environment variable of type \"DATA\""},
    {"SGTYPE_", kTokSignalType, "Signaltype"},
    {"SGTYPE_VAL_", kTokSignalTypeValues, "Signaltype values"},
    {"BA_DEF_SGTYPE_", kTokSignalTypeAttribute,
     "Definition of user defined attributes for signaltypes"},
    {"BA_SGTYPE_", kTokUserAttributeSigtype, "User defined attributes for signaltypes"},
    {"SIG_TYPE_REF_", kTokSignalTypeRef, "Reference to signaltype"},
    {"VAL_TABLE_", kTokValueTable, "Value description table"},
    {"SIG_GROUP_", kTokSignalGroup, "Signal group"},
    {"SIG_VALTYPE_", kTokSignalValtype, "Valuetype of signal"},
    {"SIGTYPE_VALTYPE_", kTokSignalTypeValtype, "Valuetype of signaltype"},
    {"BO_TX_BU_", kTokMsgTxNode, "Transmitting nodes"},
    {"BA_DEF_REL_", kTokUserDefineRel, "Definition of user defined relation"},
    {"BA_REL_", kTokUserAttributeRel, "User defined relation"},
    {"BA_DEF_DEF_REL_", kTokUserDefineDefaultRel, "Default for user defined relation"},
    {"BU_SG_REL_", kTokNodeRxSigRel, "Node-Signal-Relation"},
    {"BU_EV_REL_", kTokNodeEnvvarRel, "Node-Environment-variable-Relation"},
    {"BU_BO_REL_", kTokNodeTxMsgRel, "Node-TxMsg-Relation"},
};

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
