// dbfile/keywords.h: the vocabulary of the database file, shared by the
// scanner, the parser and the writer.
//
// Token numbers follow the grammar's token list: 0 is the end of the file,
// character tokens (":", ";", "+", ...) are their character codes, and the
// named tokens start at 256. The keyword table's order matters: the writer's
// "NS_" block lists its rows after "NS_", and keywords are searched from the
// top.
#ifndef TAVLOMS_DBFILE_KEYWORDS_H
#define TAVLOMS_DBFILE_KEYWORDS_H

#include <cstddef>

#include "tavloms/records.h"

namespace tavlo::dbfile {

enum Token : int {
    kTokEnd = 0,
    kTokError = 256,
    kTokIllegal = 257,
    kTokInteger = 258,  // digits, value up to 32767
    kTokLong = 259,     // digits, larger value
    kTokFloat = 260,
    kTokSymbol = 261,
    kTokString = 262,
    kTokBotschaft = 263,        // "BO_"
    kTokUnterbotschaft,         // "SG_"
    kTokBusteilnehmer,          // "BU_"
    kTokBitsegmentierung,       // "BS_"
    kTokEmpfaenger,             // declared, never produced
    kTokSender,                 // declared, never produced
    kTokBits,                   // declared, never produced
    kTokBytes,                  // declared, never produced
    kTokWertebereich,           // declared, never produced
    kTokUmrechnung,             // declared, never produced
    kTokVer,                    // "VERSION"
    kTokSigned,                 // declared, never produced
    kTokEnvvar,                 // "EV_"
    kTokNewSymbol,              // "NS_"
    kTokNewSymbolDesc,          // "NS_DESC_"
    kTokComment,                // "CM_"
    kTokUserDefine,             // "BA_DEF_"
    kTokUserAttribute,          // "BA_"
    kTokUserInt,                // "INT"
    kTokUserHex,                // "HEX"
    kTokUserFloat,              // "FLOAT"
    kTokUserString,             // "STRING"
    kTokUserEnum,               // "ENUM"
    kTokSignalValues,           // "VAL_"
    kTokCategoryDefine,         // "CAT_DEF_"
    kTokCategory,               // "CAT_"
    kTokFilter,                 // "FILTER"
    kTokUserDefineDefault,      // "BA_DEF_DEF_"
    kTokEnvvarData,             // "ENVVAR_DATA_" and "EV_DATA_"
    kTokSignalType,             // "SGTYPE_"
    kTokSignalTypeValues,       // "SGTYPE_VAL_"
    kTokSignalTypeAttribute,    // "BA_DEF_SGTYPE_"
    kTokUserAttributeSigtype,   // "BA_SGTYPE_"
    kTokSignalTypeRef,          // "SIG_TYPE_REF_"
    kTokValueTable,             // "VAL_TABLE_"
    kTokSignalGroup,            // "SIG_GROUP_"
    kTokSignalValtype,          // "SIG_VALTYPE_"
    kTokSignalTypeValtype,      // "SIGTYPE_VALTYPE_"
    kTokMsgTxNode,              // "BO_TX_BU_"
    kTokUserDefineRel,          // "BA_DEF_REL_"
    kTokUserAttributeRel,       // "BA_REL_"
    kTokUserDefineDefaultRel,   // "BA_DEF_DEF_REL_"
    kTokNodeRxSigRel,           // "BU_SG_REL_"
    kTokNodeEnvvarRel,          // "BU_EV_REL_"
    kTokNodeTxMsgRel,           // "BU_BO_REL_" (307)
    kTokUminus,                 // unary minus of the grammar's operators
};

// Words with a fixed meaning wherever they stand in a file.
constexpr char kNoNode[] = "Corvan__XXX";            // no node, where a node name stands
constexpr char kAccessWord[] = "DUMMY_NODE_CORVAN";  // then a variable's access code in hex
constexpr std::size_t kAccessWordLength = sizeof kAccessWord - 1;
constexpr char kEmptyEnumText[] = "corvan_leerstring";  // an empty enumeration text
constexpr char kNoneNode[] = "<<none>>";                // the view filter's NONE node
constexpr unsigned int kStringAccess = 0x8000u;         // access code bit of a string variable

struct Keyword {
    const char* text;
    int token;
    const char* description;
};

constexpr int kKeywordCount = 39;
// In the header, so that the JSON converter module, which links only the
// library's exported entries, refuses names the scanner would take for
// keywords by the same table.
inline constexpr Keyword kKeywords[kKeywordCount] = {
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

// Row index of "NS_" in kKeywords: the writer's "NS_" block lists the rows
// after it.
constexpr int kNewSymbolRow = 11;

// Searches the keyword table in order with an exact comparison. Returns 1 and
// the keyword's token, or 0 and token 0.
int LookupKeyword(const char* text, int* token);
int LookupKeyword(const char* text, std::size_t length, int* token);  // length known

// A name declared in a file's "NS_" section that is not a keyword; the
// scanner skips every statement such a name begins.
struct NewSymbol {
    char name[TAVLO_NAME_SIZE];
    const char* self;  // its own name, the context of the warning
    NewSymbol* next;
};

// Declares a name of the "NS_" section: a keyword is accepted and ignored;
// any other name is put at the head of the new-symbol list. Returns 1, or 0
// when the record cannot be allocated.
int DeclareNewSymbol(const char* name);

// The declared new symbols, most recent first; empty outside a read.
const NewSymbol* NewSymbols();

// The new symbol of this name, or null.
const NewSymbol* FindNewSymbol(const char* name);

// Frees the whole list. The reader calls it at the end of a read that did
// not end by an error, and at the start of every read (a read that ended by
// an error leaves its list behind until then).
void FreeNewSymbols();

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_KEYWORDS_H
