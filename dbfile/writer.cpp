// dbfile/writer.cpp: TAVLO_WRITE, the database file writer.
//
// Writes the sections of the file in their fixed order, one pass over the
// lists per section and always in list order; nothing is filtered. A node
// reference that is missing is written as the dummy node name. Quoted texts
// are written as they are, except comments, whose double quotes get a
// backslash.
#include "dbfile/writer.h"

#include <algorithm>
#include <string>

#include <vector>

#include "dbfile/keywords.h"
#include "dbfile/report.h"
#include "platform/platform.h"
#include "tavloms/dbfile.h"

namespace tavlo::dbfile {

OutputText::OutputText(std::FILE* file) : file_(file), block_(new char[kBlockSize]) {}

OutputText::~OutputText() {
    Flush();
}

void OutputText::Flush() {
    if (used_ > 0) {
        std::fwrite(block_.get(), 1, used_, file_);
        used_ = 0;
    }
}

void OutputText::PutLong(const char* text, std::size_t length) {
    Flush();
    if (length >= kBlockSize) {
        std::fwrite(text, 1, length, file_);
        return;
    }
    std::memcpy(block_.get(), text, length);
    used_ = length;
}

namespace {

constexpr const char* kModule = "canddbw";


bool IsEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

const char* NodeName(const symblk* node) {
    return node != nullptr ? node->name : kNoNode;
}

bool IsRelation(unsigned int objectType) {
    return objectType == TAVLO_OBJ_NODE_SIGNAL || objectType == TAVLO_OBJ_NODE_MESSAGE ||
           objectType == TAVLO_OBJ_NODE_ENVVAR;
}

// The object word of an attribute definition, with its trailing blank.
const char* ObjectWord(unsigned int objectType) {
    switch (objectType) {
    case TAVLO_OBJ_NODE: return "BU_ ";
    case TAVLO_OBJ_MESSAGE: return "BO_ ";
    case TAVLO_OBJ_SIGNAL:
    case TAVLO_OBJ_SIGTYPE: return "SG_ ";
    case TAVLO_OBJ_ENVVAR: return "EV_ ";
    case TAVLO_OBJ_NODE_SIGNAL: return "BU_SG_REL_ ";
    case TAVLO_OBJ_NODE_MESSAGE: return "BU_BO_REL_ ";
    case TAVLO_OBJ_NODE_ENVVAR: return "BU_EV_REL_ ";
    default: return "";  // the database itself
    }
}

// ---- Pieces of lines ------------------------------------------------------

enum class Quotes { kAsIs, kEscaped };

// The one writer of quoted texts. kEscaped (comments only) writes every
// double quote of the text as backslash and double quote.
void PutQuoted(OutputText& out, const char* text, std::size_t length, Quotes quotes) {
    out.Put('"');
    if (quotes == Quotes::kEscaped) {
        const char* end = text + length;
        for (const char* quote;
             (quote = static_cast<const char*>(std::memchr(text, '"', end - text))) != nullptr;
             text = quote + 1) {
            out.Put(text, static_cast<std::size_t>(quote - text));
            out.Put("\\\"", 2);
        }
        length = static_cast<std::size_t>(end - text);
    }
    out.Put(text, length);
    out.Put('"');
}

void PutQuoted(OutputText& out, const char* text, Quotes quotes = Quotes::kAsIs) {
    if (text == nullptr) {
        text = "";
    }
    PutQuoted(out, text, std::strlen(text), quotes);
}

// A comment's text and the end of its line.
void PutCommentText(OutputText& out, const char* text) {
    PutQuoted(out, text, Quotes::kEscaped);
    out.Put(";\n");
}

// A number right-aligned in `width` columns, as "%<width>u" does.
void PutPadded(OutputText& out, unsigned int value, std::size_t width) {
    char digits[kNumberRoom];
    const std::size_t length = FormatUnsigned(value, digits);
    for (std::size_t i = length; i < width; ++i) {
        out.Put(' ');
    }
    out.Put(digits, length);
}

// Byte order and sign: "@0+", "@1-", ...
void PutOrderAndSign(OutputText& out, unsigned int flags) {
    out.Put('@');
    out.Put((flags & TAVLO_SIG_MOTOROLA) != 0 ? '0' : '1');
    out.Put((flags & TAVLO_SIG_SIGNED) != 0 ? '-' : '+');
}

// " (factor,offset) [minimum|maximum] "unit" "
void PutScalingAndUnit(OutputText& out, double factor, double offset, double minimum,
                       double maximum, const char* unit) {
    out.Put(" (", 2);
    out.Number(factor);
    out.Put(',');
    out.Number(offset);
    out.Put(") [", 3);
    out.Number(minimum);
    out.Put('|');
    out.Number(maximum);
    out.Put("] ", 2);
    PutQuoted(out, unit);
    out.Put(' ');
}

// The node names of a relation list, separated by commas.
void PutNodeNames(OutputText& out, const rxblk* list) {
    for (const rxblk* entry = list; entry != nullptr; entry = entry->next) {
        if (entry != list) {
            out.Put(',');
        }
        out.Put(NodeName(entry->symbol));
    }
}

// "<id> <signal>", how a signal is named outside its message.
void PutSignalKey(OutputText& out, const msgblk* message, const sigblk* signal) {
    out.Unsigned(message->id);
    out.Put(' ');
    out.Put(signal->name);
}

// `<value> "<text>" ` for each entry.
void PutValueDescriptions(OutputText& out, const val* list) {
    for (const val* entry = list; entry != nullptr; entry = entry->next) {
        out.Signed(entry->value);
        out.Put(' ');
        PutQuoted(out, entry->text);
        out.Put(' ');
    }
}

// The enumeration texts of an ENUM definition, held as one text with line
// feeds between them: each piece quoted, the first after a blank, the others
// after a comma. An empty piece is written as the placeholder; an empty last
// piece only when no placeholder has been written before it.
void PutEnumTexts(OutputText& out, const char* texts) {
    if (texts == nullptr) {
        texts = "";
    }
    bool placeholderWritten = false;
    char separator = ' ';
    auto putPiece = [&](const char* piece, std::size_t length) {
        out.Put(separator);
        separator = ',';
        if (length == 0) {
            PutQuoted(out, kEmptyEnumText);
            placeholderWritten = true;
        } else {
            PutQuoted(out, piece, length, Quotes::kAsIs);
        }
    };
    const char* piece = texts;
    for (const char* lineFeed; (lineFeed = std::strchr(piece, '\n')) != nullptr;
         piece = lineFeed + 1) {
        putPiece(piece, static_cast<std::size_t>(lineFeed - piece));
    }
    if (*piece != '\0' || !placeholderWritten) {
        putPiece(piece, std::strlen(piece));
    }
}

// The one formatter of attribute values (and of INT, FLOAT, HEX and STRING
// defaults): STRING as a quoted text, INT, FLOAT, HEX and ENUM (its index)
// as a number, any other value type as nothing.
void PutAttrValue(OutputText& out, const attr_def* def, tavlo_attr_value_t value) {
    switch (def->value_type) {
    case TAVLO_ATTR_STRING: PutQuoted(out, value.text); break;
    case TAVLO_ATTR_INT:
    case TAVLO_ATTR_FLOAT:
    case TAVLO_ATTR_HEX:
    case TAVLO_ATTR_ENUM: out.Number(value.number); break;
    default: break;
    }
}

// The definition of an attribute value; one without is a broken database.
const attr_def* DefinitionOf(const attr* value) {
    const attr_def* attr = value->def;
    TAVLO_ASSERT(attr, kModule);
    return attr;
}

// One line per attribute value: `<keyword> "<name>" <object><value>;`, where
// putObject writes the object's part with its trailing blank.
template <class PutObject>
void PutAttrLines(OutputText& out, const char* keyword, const attr* list, PutObject putObject) {
    for (const attr* value = list; value != nullptr; value = value->next) {
        const attr_def* def = DefinitionOf(value);
        out.Put(keyword);
        out.Put(' ');
        PutQuoted(out, def->name);
        out.Put(' ');
        putObject();
        PutAttrValue(out, def, value->value);
        out.Put(";\n", 2);
    }
}

// The messages and their signals in file order: one row per message (with
// a null signal), followed by one row per signal of it. Most sections walk
// all signals; walking these rows instead of the links lets the records be
// fetched ahead rather than one link at a time, which matters with hundreds
// of thousands of signals. Each row also notes what the later sections will
// find in its record, so that each of them passes over the rows alone and
// reads only the records it writes something of: a large database's records
// lie far apart in memory, and reading every one of them in every section
// was most of a write's time.
enum RecordHas : unsigned int {
    kHasComment = 1u,
    kHasAttributes = 2u,
    kHasRelations = 4u,  // a receiver or transmitter with attributes ("BA_REL_")
    kHasValues = 8u,     // signals only, as the three after it
    kHasType = 16u,
    kHasValueType = 32u,
    kHasTransmitters = 64u,  // messages only, as the two after it
    kHasCategory = 128u,
    kHasGroups = 256u,
};

struct Row {
    const msgblk* message;
    const sigblk* signal;  // null on the message's own row
    unsigned int has;      // RecordHas bits of the signal's or the message's record
};
using Rows = std::vector<Row>;

// kHasRelations when an entry of the relation list has attributes.
unsigned int RelationsHave(const rxblk* list) {
    for (; list != nullptr; list = list->next) {
        if (list->attributes != nullptr) {
            return kHasRelations;
        }
    }
    return 0;
}

unsigned int WhatSignalHas(const sigblk* signal) {
    unsigned int has = 0;
    has |= !IsEmpty(signal->comment) ? kHasComment : 0u;
    has |= signal->attributes != nullptr ? kHasAttributes : 0u;
    has |= RelationsHave(signal->receivers);
    has |= signal->value_descriptions != nullptr ? kHasValues : 0u;
    has |= signal->sig_type != nullptr ? kHasType : 0u;
    has |= signal->value_type != TAVLO_VALUE_INTEGER ? kHasValueType : 0u;
    return has;
}

unsigned int WhatMessageHas(const msgblk* message) {
    unsigned int has = 0;
    has |= !IsEmpty(message->comment) ? kHasComment : 0u;
    has |= message->attributes != nullptr ? kHasAttributes : 0u;
    has |= message->transmitters != nullptr ? kHasTransmitters : 0u;
    has |= RelationsHave(message->transmitters);
    has |= message->category != nullptr ? kHasCategory : 0u;
    has |= message->signal_groups != nullptr ? kHasGroups : 0u;
    return has;
}

Rows FlattenMessages(const msgblk* messages) {
    Rows rows;
    for (const msgblk* message = messages; message != nullptr; message = message->next) {
        rows.push_back({message, nullptr, WhatMessageHas(message)});
        for (const sigblk* signal = message->signals; signal != nullptr; signal = signal->next) {
            rows.push_back({message, signal, WhatSignalHas(signal)});
        }
    }
    return rows;
}

// The messages whose rows have any of the bits of has.
template <class Visit>
void ForEachMessage(const Rows& rows, unsigned int has, Visit visit) {
    for (const Row& row : rows) {
        if (row.signal == nullptr && (row.has & has) != 0) {
            visit(row.message);
        }
    }
}

// The signals whose rows have any of the bits of has.
template <class Visit>
void ForEachSignal(const Rows& rows, unsigned int has, Visit visit) {
    for (const Row& row : rows) {
        if (row.signal != nullptr && (row.has & has) != 0) {
            visit(row.message, row.signal);
        }
    }
}

// ---- Sections, in file order ----------------------------------------------

void WriteVersion(OutputText& out, const char* version) {
    out.Put("VERSION ");
    PutQuoted(out, version);
    out.Put("\n\n", 2);
}

// Whether the database holds anything beyond nodes, messages without signals
// and plain variables. The filter number and database attributes do not
// count.
bool NeedsNewSymbolList(const tavlo_root_t& db) {
    if (!IsEmpty(db.comment)) {
        return true;
    }
    for (const symblk* node = db.nodes; node != nullptr; node = node->next) {
        if (!IsEmpty(node->comment)) {
            return true;
        }
    }
    for (const msgblk* message = db.messages; message != nullptr; message = message->next) {
        if (!IsEmpty(message->comment) || message->signals != nullptr) {
            return true;
        }
    }
    for (const env_var_blk* envvar = db.envvars; envvar != nullptr; envvar = envvar->next) {
        if (envvar->type == TAVLO_ENV_DATA) {
            return true;
        }
    }
    return db.filter.categories != nullptr || db.filter.nodes != nullptr ||
           db.attr_defs != nullptr || db.categories != nullptr || db.sig_types != nullptr;
}

// The keywords after "NS_", the new symbols of the current read and those
// of the statements written after the database.
void WriteNewSymbols(OutputText& out, const std::vector<std::string>& keptSymbols) {
    out.Put("\nNS_ : \n");
    for (int row = kNewSymbolRow + 1; row < kKeywordCount; ++row) {
        out.Put('\t');
        out.Put(kKeywords[row].text);
        out.Put('\n');
    }
    for (const NewSymbol* symbol = NewSymbols(); symbol != nullptr; symbol = symbol->next) {
        out.Put('\t');
        out.Put(symbol->name);
        out.Put('\n');
    }
    for (const std::string& symbol : keptSymbols) {
        out.Put('\t');
        out.Put(symbol.c_str(), symbol.size());
        out.Put('\n');
    }
    out.Put('\n');
}

void WriteBitTimings(OutputText& out, const btlblk* timings) {
    out.Put("BS_:\n");
    for (const btlblk* timing = timings; timing != nullptr; timing = timing->next) {
        out.Put(' ');
        PutPadded(out, timing->baudrate, 5);
        out.Put(':');
        PutPadded(out, timing->btr1, 3);
        out.Put(',');
        PutPadded(out, timing->btr2, 3);
        out.Put('\n');
    }
    out.Put('\n');
}

void WriteNodes(OutputText& out, const symblk* nodes) {
    out.Put("BU_:");
    for (const symblk* node = nodes; node != nullptr; node = node->next) {
        out.Put(' ');
        out.Put(node->name);
    }
    out.Put('\n');
}

void WriteValueTables(OutputText& out, const valtable* tables) {
    for (const valtable* table = tables; table != nullptr; table = table->next) {
        out.Put("VAL_TABLE_ ");
        out.Put(table->name);
        out.Put(' ');
        PutValueDescriptions(out, table->value_descriptions);
        out.Put(";\n", 2);
    }
    out.Put('\n');
}

void WriteSignal(OutputText& out, const sigblk* signal) {
    out.Put(" SG_ ", 5);
    out.Put(signal->name);
    const unsigned int flags = signal->flags;
    if ((flags & TAVLO_SIG_MODE) != 0) {
        out.Put(" M", 2);
    } else if ((flags & TAVLO_SIG_MULTIPLEXED) != 0) {
        out.Put(" m", 2);
        out.Unsigned(signal->mode_value);
    }
    out.Put(" : ", 3);
    out.Unsigned(signal->start_bit);
    out.Put('|');
    out.Unsigned(signal->length);
    PutOrderAndSign(out, flags);
    PutScalingAndUnit(out, signal->factor, signal->offset, signal->minimum, signal->maximum,
                      signal->unit);
    const rxblk* receivers = signal->receivers;
    if (receivers != nullptr) {
        out.Put(' ');
        PutNodeNames(out, receivers);
    } else {
        out.Put(kNoNode, sizeof kNoNode - 1);
    }
    out.Put('\n');
}

void WriteMessages(OutputText& out, const Rows& rows) {
    for (const Row& row : rows) {
        if (row.signal != nullptr) {
            WriteSignal(out, row.signal);
            continue;
        }
        const msgblk* message = row.message;
        out.Put("\nBO_ ", 5);
        out.Unsigned(message->id);
        out.Put(' ');
        out.Put(message->name);
        out.Put(": ", 2);
        out.Unsigned(message->dlc);
        out.Put(' ');
        out.Put(NodeName(message->transmitter));
        out.Put('\n');
    }
    out.Put('\n');
}

// A single transmitter entry is never written.
void WriteTransmitters(OutputText& out, const Rows& rows) {
    ForEachMessage(rows, kHasTransmitters, [&](const msgblk* message) {
        const rxblk* transmitters = message->transmitters;
        if (transmitters == nullptr || transmitters->next == nullptr) {
            return;
        }
        out.Put("BO_TX_BU_ ");
        out.Unsigned(message->id);
        out.Put(" : ", 3);
        PutNodeNames(out, transmitters);
        out.Put(";\n", 2);
    });
}

// Strings and data are written as type 0; a string variable is marked by
// the access bit instead, a data variable by its ENVVAR_DATA_ line.
void WriteEnvvars(OutputText& out, const env_var_blk* envvars) {
    out.Put('\n');
    for (const env_var_blk* envvar = envvars; envvar != nullptr; envvar = envvar->next) {
        const unsigned int type = envvar->type;
        out.Put("\nEV_ ");
        out.Put(envvar->name);
        out.Put(": ", 2);
        out.Unsigned(type == TAVLO_ENV_STRING || type == TAVLO_ENV_DATA ? 0 : type);
        out.Put(" [", 2);
        out.Number(envvar->minimum);
        out.Put('|');
        out.Number(envvar->maximum);
        out.Put("] ", 2);
        PutQuoted(out, envvar->unit);
        out.Put(' ');
        out.Number(envvar->initial_value);
        out.Put(' ');
        out.Unsigned(envvar->id);
        out.Put(' ');
        out.Put(kAccessWord, sizeof kAccessWord - 1);
        out.Hex(envvar->access_type | (type == TAVLO_ENV_STRING ? kStringAccess : 0u));
        out.Put(' ');
        const rxblk* accessNodes = envvar->access_nodes;
        if (accessNodes != nullptr) {
            out.Put(' ');
            PutNodeNames(out, accessNodes);
        } else {
            out.Put(kNoNode, sizeof kNoNode - 1);
        }
        out.Put(";\n", 2);
    }
}

void WriteEnvvarData(OutputText& out, const env_var_blk* envvars) {
    for (const env_var_blk* envvar = envvars; envvar != nullptr; envvar = envvar->next) {
        if (envvar->type != TAVLO_ENV_DATA) {
            continue;
        }
        out.Put("ENVVAR_DATA_ ");
        out.Put(envvar->name);
        out.Put(": ", 2);
        out.Unsigned(envvar->data_length);
        out.Put(";\n", 2);
    }
}

void WriteSigTypes(OutputText& out, const sigtype* types) {
    for (const sigtype* type = types; type != nullptr; type = type->next) {
        out.Put("SGTYPE_ ");
        out.Put(type->name);
        out.Put(" : ", 3);
        out.Unsigned(type->length);
        PutOrderAndSign(out, type->flags);
        PutScalingAndUnit(out, type->factor, type->offset, type->minimum, type->maximum,
                          type->unit);
        out.Put(' ');
        out.Number(type->default_value);
        const valtable* table = type->value_list;
        if (table != nullptr) {
            out.Put(' ');
            out.Put(table->name);
        }
        out.Put(";\n", 2);
    }
}

void WriteComments(OutputText& out, const tavlo_root_t& db, const Rows& rows) {
    out.Put('\n');
    if (!IsEmpty(db.comment)) {
        out.Put("CM_ ");
        PutCommentText(out, db.comment);
    }
    for (const symblk* node = db.nodes; node != nullptr; node = node->next) {
        if (!IsEmpty(node->comment)) {
            out.Put("CM_ BU_ ");
            out.Put(node->name);
            out.Put(' ');
            PutCommentText(out, node->comment);
        }
    }
    for (const Row& row : rows) {
        if (row.signal == nullptr) {
            if ((row.has & kHasComment) != 0) {
                out.Put("CM_ BO_ ");
                out.Unsigned(row.message->id);
                out.Put(' ');
                PutCommentText(out, row.message->comment);
            }
        } else if ((row.has & kHasComment) != 0) {
            out.Put("CM_ SG_ ");
            PutSignalKey(out, row.message, row.signal);
            out.Put(' ');
            PutCommentText(out, row.signal->comment);
        }
    }
    for (const env_var_blk* envvar = db.envvars; envvar != nullptr; envvar = envvar->next) {
        if (!IsEmpty(envvar->comment)) {
            out.Put("CM_ EV_ ");
            out.Put(envvar->name);
            out.Put(' ');
            PutCommentText(out, envvar->comment);
        }
    }
    for (const sigtype* type = db.sig_types; type != nullptr; type = type->next) {
        if (!IsEmpty(type->comment)) {
            out.Put("CM_ SGTYPE_ ");
            out.Put(type->name);
            out.Put(' ');
            PutCommentText(out, type->comment);
        }
    }
}

// `<keyword> <object word> "<name>" <value type>;`
void PutAttrDefLine(OutputText& out, const char* keyword, const attr_def* def) {
    out.Put(keyword);
    out.Put(ObjectWord(def->object_type));
    out.Put(' ');
    PutQuoted(out, def->name);
    out.Put(' ');
    WriteValueType(out, def);
    out.Put(";\n", 2);
}

// Three passes: plain definitions (signal types with the object word of
// signals), signal-type definitions once more, relation definitions.
void WriteAttrDefs(OutputText& out, const attr_def* defs) {
    for (const attr_def* def = defs; def != nullptr; def = def->next) {
        if (!IsRelation(def->object_type)) {
            PutAttrDefLine(out, "BA_DEF_ ", def);
        }
    }
    for (const attr_def* def = defs; def != nullptr; def = def->next) {
        if (def->object_type == TAVLO_OBJ_SIGTYPE) {
            out.Put("BA_DEF_SGTYPE_ ");
            PutQuoted(out, def->name);
            out.Put(";\n", 2);
        }
    }
    for (const attr_def* def = defs; def != nullptr; def = def->next) {
        if (IsRelation(def->object_type)) {
            PutAttrDefLine(out, "BA_DEF_REL_ ", def);
        }
    }
}

void WriteAttrDefaults(OutputText& out, const attr_def* defs) {
    for (const attr_def* def = defs; def != nullptr; def = def->next) {
        out.Put(IsRelation(def->object_type) ? "BA_DEF_DEF_REL_" : "BA_DEF_DEF_ ");
        out.Put(' ');
        PutQuoted(out, def->name);
        out.Put(' ');
        const tavlo_attr_value_t value = def->default_value;
        if (def->value_type == TAVLO_ATTR_ENUM) {
            PutQuoted(out, value.text);  // an ENUM default is its text
        } else {
            PutAttrValue(out, def, value);
        }
        out.Put(";\n", 2);
    }
}

void WriteAttrValues(OutputText& out, const tavlo_root_t& db, const Rows& rows) {
    PutAttrLines(out, "BA_", db.db_attrs, [] {});
    for (const symblk* node = db.nodes; node != nullptr; node = node->next) {
        PutAttrLines(out, "BA_", node->attributes, [&] {
            out.Put("BU_ ", 4);
            out.Put(node->name);
            out.Put(' ');
        });
    }
    ForEachMessage(rows, kHasAttributes, [&](const msgblk* message) {
        PutAttrLines(out, "BA_", message->attributes, [&] {
            out.Put("BO_ ", 4);
            out.Unsigned(message->id);
            out.Put(' ');
        });
    });
    ForEachSignal(rows, kHasAttributes, [&](const msgblk* message, const sigblk* signal) {
        PutAttrLines(out, "BA_", signal->attributes, [&] {
            out.Put("SG_ ", 4);
            PutSignalKey(out, message, signal);
            out.Put(' ');
        });
    });
    for (const env_var_blk* envvar = db.envvars; envvar != nullptr; envvar = envvar->next) {
        PutAttrLines(out, "BA_", envvar->attributes, [&] {
            out.Put("EV_ ", 4);
            out.Put(envvar->name);
            out.Put(' ');
        });
    }
    for (const sigtype* type = db.sig_types; type != nullptr; type = type->next) {
        PutAttrLines(out, "BA_SGTYPE_", type->attributes, [&] {
            out.Put("SGTYPE_ ");
            out.Put(type->name);
            out.Put(' ');
        });
    }

    ForEachSignal(rows, kHasRelations, [&](const msgblk* message, const sigblk* signal) {
        for (const rxblk* rx = signal->receivers; rx != nullptr; rx = rx->next) {
            PutAttrLines(out, "BA_REL_", rx->attributes, [&] {
                out.Put("BU_SG_REL_ ");
                out.Put(NodeName(rx->symbol));
                out.Put(" SG_ ", 5);
                PutSignalKey(out, message, signal);
                out.Put(' ');
            });
        }
    });
    ForEachMessage(rows, kHasRelations, [&](const msgblk* message) {
        for (const rxblk* tx = message->transmitters; tx != nullptr; tx = tx->next) {
            PutAttrLines(out, "BA_REL_", tx->attributes, [&] {
                out.Put("BU_BO_REL_ ");
                out.Put(NodeName(tx->symbol));
                out.Put(' ');
                out.Unsigned(message->id);
                out.Put(' ');
            });
        }
    });
    for (const env_var_blk* envvar = db.envvars; envvar != nullptr; envvar = envvar->next) {
        for (const rxblk* access = envvar->access_nodes; access != nullptr; access = access->next) {
            PutAttrLines(out, "BA_REL_", access->attributes, [&] {
                out.Put("BU_EV_REL_ ");
                out.Put(NodeName(access->symbol));
                out.Put(' ');
                out.Put(envvar->name);
                out.Put(' ');
            });
        }
    }
}

void WriteValueDescriptions(OutputText& out, const Rows& rows, const env_var_blk* envvars) {
    ForEachSignal(rows, kHasValues, [&](const msgblk* message, const sigblk* signal) {
        const val* descriptions = signal->value_descriptions;
        if (descriptions != nullptr) {
            out.Put("VAL_ ", 5);
            PutSignalKey(out, message, signal);
            out.Put(' ');
            PutValueDescriptions(out, descriptions);
            out.Put(";\n", 2);
        }
    });
    for (const env_var_blk* envvar = envvars; envvar != nullptr; envvar = envvar->next) {
        const val* descriptions = envvar->value_descriptions;
        if (descriptions != nullptr) {
            out.Put("VAL_ ", 5);
            out.Put(envvar->name);
            out.Put(' ');
            PutValueDescriptions(out, descriptions);
            out.Put(";\n", 2);
        }
    }
}

void WriteCategories(OutputText& out, const tavlo_root_t& db, const Rows& rows) {
    for (const cat* category = db.categories; category != nullptr; category = category->next) {
        out.Put("CAT_DEF_ ");
        out.Signed(category->number);
        out.Put(' ');
        out.Put(category->name);
        out.Put(' ');
        out.Signed(category->value);
        out.Put(";\n", 2);
    }
    for (const symblk* node = db.nodes; node != nullptr; node = node->next) {
        const cat* category = node->category;
        if (category != nullptr) {
            out.Put("CAT_ BU_ ");
            out.Put(node->name);
            out.Put(' ');
            out.Signed(category->number);
            out.Put(";\n", 2);
        }
    }
    for (const env_var_blk* envvar = db.envvars; envvar != nullptr; envvar = envvar->next) {
        const cat* category = envvar->category;
        if (category != nullptr) {
            out.Put("CAT_ EV_ ");
            out.Put(envvar->name);
            out.Put(' ');
            out.Signed(category->number);
            out.Put(";\n", 2);
        }
    }
    ForEachMessage(rows, kHasCategory, [&](const msgblk* message) {
        const cat* category = message->category;
        if (category != nullptr) {
            out.Put("CAT_ BO_ ");
            out.Unsigned(message->id);
            out.Put(' ');
            out.Signed(category->number);
            out.Put(";\n", 2);
        }
    });
}

// Null entries stand for the NONE category and the NONE node; an empty list
// is written as its NONE entry.
void WriteFilter(OutputText& out, const filter_t& filter) {
    const filtercatblk* categories = filter.categories;
    const rxblk* nodes = filter.nodes;
    if (categories == nullptr && nodes == nullptr) {
        return;
    }
    out.Put("FILTER ");
    out.Unsigned(filter.number);
    out.Put(" CAT_ ");
    if (categories == nullptr) {
        out.Put("0 ", 2);
    }
    for (const filtercatblk* entry = categories; entry != nullptr; entry = entry->next) {
        const cat* category = entry->act;
        out.Signed(category != nullptr ? category->number : 0);
        out.Put(' ');
    }
    out.Put("BU_ ", 4);
    if (nodes == nullptr) {
        PutQuoted(out, kNoneNode);
        out.Put(' ');
    }
    for (const rxblk* entry = nodes; entry != nullptr; entry = entry->next) {
        const symblk* node = entry->symbol;
        if (node != nullptr) {
            out.Put(node->name);
        } else {
            PutQuoted(out, kNoneNode);
        }
        out.Put(' ');
    }
    out.Put(";\n", 2);
}

void WriteSigTypeRefs(OutputText& out, const Rows& rows) {
    ForEachSignal(rows, kHasType, [&](const msgblk* message, const sigblk* signal) {
        const sigtype* type = signal->sig_type;
        if (type != nullptr) {
            out.Put("SIG_TYPE_REF_ ");
            PutSignalKey(out, message, signal);
            out.Put(" : ", 3);
            out.Put(type->name);
            out.Put(";\n", 2);
        }
    });
}

void WriteSignalGroups(OutputText& out, const Rows& rows) {
    ForEachMessage(rows, kHasGroups, [&](const msgblk* message) {
        for (const siggroupblk* group = message->signal_groups; group != nullptr;
             group = group->next) {
            out.Put("SIG_GROUP_ ");
            out.Unsigned(message->id);
            out.Put(' ');
            out.Put(group->name);
            out.Put(' ');
            out.Unsigned(group->repetitions);
            out.Put(" :", 2);
            for (const siglistblk* member = group->signals; member != nullptr;
                 member = member->next) {
                const sigblk* signal = member->signal;
                if (signal != nullptr) {
                    out.Put(' ');
                    out.Put(signal->name);
                }
            }
            out.Put(";\n", 2);
        }
    });
}

void WriteSignalValueTypes(OutputText& out, const Rows& rows) {
    ForEachSignal(rows, kHasValueType, [&](const msgblk* message, const sigblk* signal) {
        const unsigned int valueType = signal->value_type;
        if (valueType != TAVLO_VALUE_INTEGER) {
            out.Put("SIG_VALTYPE_ ");
            PutSignalKey(out, message, signal);
            out.Put(" : ", 3);
            out.Unsigned(valueType);
            out.Put(";\n", 2);
        }
    });
}

void WriteSigTypeValueTypes(OutputText& out, const sigtype* types) {
    for (const sigtype* type = types; type != nullptr; type = type->next) {
        const unsigned int valueType = type->value_type;
        if (valueType != TAVLO_VALUE_INTEGER) {
            out.Put("SIGTYPE_VALTYPE_ ");
            out.Put(type->name);
            out.Put(" : ", 3);
            out.Unsigned(valueType);
            out.Put(";\n", 2);
        }
    }
}

void WriteDatabase(OutputText& out, const tavlo_root_t& db,
                   const std::vector<std::string>& keptSymbols) {
    const Rows rows = FlattenMessages(db.messages);
    WriteVersion(out, db.version);
    if (NeedsNewSymbolList(db) || !keptSymbols.empty()) {
        WriteNewSymbols(out, keptSymbols);
    }
    WriteBitTimings(out, db.bit_timings);
    WriteNodes(out, db.nodes);
    WriteValueTables(out, db.value_tables);
    WriteMessages(out, rows);
    WriteTransmitters(out, rows);
    WriteEnvvars(out, db.envvars);
    WriteEnvvarData(out, db.envvars);
    WriteSigTypes(out, db.sig_types);
    WriteComments(out, db, rows);
    WriteAttrDefs(out, db.attr_defs);
    WriteAttrDefaults(out, db.attr_defs);
    WriteAttrValues(out, db, rows);
    WriteValueDescriptions(out, rows, db.envvars);
    WriteCategories(out, db, rows);
    WriteFilter(out, db.filter);
    WriteSigTypeRefs(out, rows);
    WriteSignalGroups(out, rows);
    WriteSignalValueTypes(out, rows);
    WriteSigTypeValueTypes(out, db.sig_types);
}

}  // namespace

unsigned int WriteWithKept(const char* file, const tavlo_root_t& db, const tavlo_kept_t* kept,
                           std::size_t keptCount) {
    // The first symbol of each kept statement that is no keyword, once.
    std::vector<std::string> symbols;
    for (std::size_t i = 0; i < keptCount; ++i) {
        const char* text = kept[i].text != nullptr ? kept[i].text : "";
        std::size_t length = 0;
        while (text[length] != '\0' && text[length] != ':' && text[length] != ';' &&
               static_cast<unsigned char>(text[length]) > ' ') {
            ++length;
        }
        int token = 0;
        std::string symbol(text, length);
        if (length == 0 || length >= TAVLO_NAME_SIZE || LookupKeyword(symbol.c_str(), &token) ||
            std::find(symbols.begin(), symbols.end(), symbol) != symbols.end()) {
            continue;
        }
        symbols.push_back(std::move(symbol));
    }
    std::FILE* stream = file != nullptr ? std::fopen(file, "w") : nullptr;
    if (stream == nullptr) {
        return kMsgCouldNotWrite;
    }
    {
        OutputText out(stream);
        WriteDatabase(out, db, symbols);
        // A kept statement's line ends are the file's; written here, they are
        // the stream's, as every other line of the file.
        for (std::size_t i = 0; i < keptCount; ++i) {
            for (const char* c = kept[i].text; c != nullptr && *c != '\0'; ++c) {
                if (*c != '\r' || c[1] != '\n') {
                    out.Put(*c);
                }
            }
            if (kept[i].text != nullptr) {
                out.Put('\n');
            }
        }
    }
    const bool failed = std::ferror(stream) != 0;
    const bool closed = std::fclose(stream) == 0;
    return closed && !failed ? 0u : static_cast<unsigned int>(kMsgCouldNotWrite);
}

void WriteValueType(OutputText& out, const attr_def* attr) {
    TAVLO_ASSERT(attr, kModule);
    switch (attr->value_type) {
    case TAVLO_ATTR_INT:
    case TAVLO_ATTR_HEX:
    case TAVLO_ATTR_FLOAT: {
        const tavlo_attr_value_t minimum = attr->minimum;
        out.Put(attr->value_type == TAVLO_ATTR_INT   ? "INT "
                : attr->value_type == TAVLO_ATTR_HEX ? "HEX "
                                                     : "FLOAT ");
        out.Number(minimum.number);
        out.Put(' ');
        out.Number(attr->maximum);
        break;
    }
    case TAVLO_ATTR_STRING: out.Put("STRING "); break;
    case TAVLO_ATTR_ENUM: {
        const tavlo_attr_value_t texts = attr->minimum;
        out.Put("ENUM ");
        PutEnumTexts(out, texts.text);
        break;
    }
    default: break;
    }
}

void WriteNewSymbolDescriptions(OutputText& out) {
    out.Put("NS_DESC_ :");
    for (const Keyword& keyword : kKeywords) {
        out.Put(' ');
        out.Put(keyword.text);
        out.Put(' ');
        out.Put(keyword.description);
    }
    out.Put(';');
}

}  // namespace tavlo::dbfile

extern "C" unsigned int TAVLO_WRITE(const char* file, symblk* nodes, msgblk* messages,
                                    env_var_blk* envvars, btlblk* bitTimings,
                                    attr_def* attrDefs, attr* dbAttrs, cat* categories,
                                    filter_t filter, char* comment, char* version,
                                    sigtype* sigTypes, valtable* valueTables) {
    std::FILE* stream = file != nullptr ? std::fopen(file, "w") : nullptr;
    if (stream == nullptr) {
        return tavlo::dbfile::kMsgCouldNotWrite;
    }
    const tavlo_root_t db{nodes,      messages, envvars, bitTimings, attrDefs, dbAttrs,
                          categories, filter,   comment, version,    sigTypes, valueTables};
    {
        tavlo::dbfile::OutputText out(stream);
        tavlo::dbfile::WriteDatabase(out, db, {});
    }
    std::fclose(stream);
    return 0;
}
