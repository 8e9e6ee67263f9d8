// convert/json/json_module.cpp: the JSON converter module. "Export" writes
// five lists of a database (attribute definitions, database attribute
// values, nodes, messages with their signals, environment variables) as one
// JSON document; "Import" reads such a document back into new records.
//
// The document holds the records' own names and numbers. References are
// written by name: transmitters, receivers and access nodes by node name,
// attribute values by definition name. Texts are byte strings in the
// records; each byte is written as the character of the same number
// (ISO 8859-1), so that every file, whatever its code page, comes back byte
// for byte. Numbers that JSON cannot hold (infinities, NaN) are written as
// the texts "inf", "-inf" and "nan".
//
// Import takes only a document whose database the library can write to a
// database file and read back; what it refuses, it names by its place in
// the document.
//
// Not carried: categories, signal types and signal groups (their lists are
// not handed to a module), and the attribute values of relations.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <limits>
#include <map>
#include <iterator>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "dbfile/keywords.h"
#include "manager/names.h"
#include "tavloms/convert.h"
#include "tavloms/exception.h"
#include "tavloms/lifecycle.h"

#if defined(_WIN32)
#define TAVLO_JSON_ENTRY __declspec(dllexport)
#else
#define TAVLO_JSON_ENTRY __attribute__((visibility("default")))
#endif

namespace {

using Json = nlohmann::ordered_json;

// An error in the document; the text names where it is and what is wrong.
class DocumentError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

void Complain(const char* path, const std::string& what) {
    std::fprintf(stderr, "tavlo_json: %s: %s\n", path != nullptr ? path : "(null)",
                 what.c_str());
}

// ---- Texts ------------------------------------------------------------------------

// Bytes to UTF-8, one character per byte.
std::string BytesToJson(const char* bytes, std::size_t length) {
    std::string text;
    text.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte < 0x80) {
            text += static_cast<char>(byte);
        } else {
            text += static_cast<char>(0xC0 | (byte >> 6));
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

std::string NameToJson(const char* name) {
    std::size_t length = 0;
    while (length < TAVLO_NAME_SIZE && name[length] != '\0') {
        ++length;
    }
    return BytesToJson(name, length);
}

Json TextToJson(const char* text) {
    return text != nullptr ? Json(BytesToJson(text, std::strlen(text))) : Json(nullptr);
}

// UTF-8 (as the parser checked it) back to bytes; a character above 255
// has no byte.
std::string JsonToBytes(const std::string& text, const std::string& where) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            bytes += static_cast<char>(lead);
        } else if ((lead == 0xC2 || lead == 0xC3) && i + 1 < text.size()) {
            const auto next = static_cast<unsigned char>(text[++i]);
            bytes += static_cast<char>(((lead & 0x03) << 6) | (next & 0x3F));
        } else {
            throw DocumentError(where + ": a character beyond U+00FF has no byte");
        }
    }
    if (bytes.find('\0') != std::string::npos) {
        throw DocumentError(where + ": a text must not hold U+0000");
    }
    return bytes;
}

// ---- Numbers ----------------------------------------------------------------------

Json DoubleToJson(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value > 0 ? "inf" : "-inf";
    }
    return value;
}

// ---- Export -----------------------------------------------------------------------
// Record fields are packed: they go into the document as copies (unary +),
// never bound to the references nlohmann's setters take.
//
// An attribute value without a definition has no name to be written by, and
// a relation entry without a node is what the database file writes as no
// node and reads back as nothing: neither goes into the document, which the
// import would refuse for them.

Json AttrsToJson(const attr* list) {
    Json values = Json::array();
    for (; list != nullptr; list = list->next) {
        const attr_def* def = list->def;
        if (def == nullptr) {
            continue;
        }
        Json value;
        value["definition"] = NameToJson(def->name);
        if (def->value_type == TAVLO_ATTR_STRING) {
            value["value"] = TextToJson(list->value.text);
        } else {
            value["value"] = DoubleToJson(list->value.number);
        }
        values.push_back(std::move(value));
    }
    return values;
}

Json ValuesToJson(const val* list) {
    Json values = Json::array();
    for (; list != nullptr; list = list->next) {
        values.push_back(Json{{"value", +list->value}, {"text", NameToJson(list->text)}});
    }
    return values;
}

Json NodeRef(const symblk* node) {
    return node != nullptr ? Json(NameToJson(node->name)) : Json(nullptr);
}

Json RelationsToJson(const rxblk* list) {
    Json names = Json::array();
    for (; list != nullptr; list = list->next) {
        if (list->symbol != nullptr) {
            names.push_back(NameToJson(list->symbol->name));
        }
    }
    return names;
}

// The enumeration texts of an ENUM definition, which the record joins by
// line feeds: k line feeds make k + 1 texts.
Json EnumTextsToJson(const char* joined) {
    if (joined == nullptr) {
        return nullptr;
    }
    Json texts = Json::array();
    const char* start = joined;
    for (const char* c = joined;; ++c) {
        if (*c == '\n' || *c == '\0') {
            texts.push_back(BytesToJson(start, static_cast<std::size_t>(c - start)));
            if (*c == '\0') {
                break;
            }
            start = c + 1;
        }
    }
    return texts;
}

Json DefinitionToJson(const attr_def* d) {
    Json def;
    def["object_type"] = +d->object_type;
    def["name"] = NameToJson(d->name);
    def["value_type"] = +d->value_type;
    switch (d->value_type) {
        case TAVLO_ATTR_STRING:
            def["default"] = TextToJson(d->default_value.text);
            break;
        case TAVLO_ATTR_ENUM:
            def["enumeration"] = EnumTextsToJson(d->minimum.text);
            def["default"] = TextToJson(d->default_value.text);
            break;
        default:
            def["minimum"] = DoubleToJson(d->minimum.number);
            def["maximum"] = DoubleToJson(d->maximum);
            def["default"] = DoubleToJson(d->default_value.number);
            break;
    }
    return def;
}

Json SignalToJson(const sigblk* s) {
    Json signal;
    signal["name"] = NameToJson(s->name);
    signal["start_bit"] = +s->start_bit;
    signal["length"] = +s->length;
    signal["flags"] = +s->flags;
    signal["mode_value"] = +s->mode_value;
    signal["offset"] = DoubleToJson(s->offset);
    signal["factor"] = DoubleToJson(s->factor);
    signal["unit"] = NameToJson(s->unit);
    signal["minimum"] = DoubleToJson(s->minimum);
    signal["maximum"] = DoubleToJson(s->maximum);
    signal["receivers"] = RelationsToJson(s->receivers);
    signal["comment"] = TextToJson(s->comment);
    signal["attributes"] = AttrsToJson(s->attributes);
    signal["value_descriptions"] = ValuesToJson(s->value_descriptions);
    signal["value_type"] = +s->value_type;
    return signal;
}

Json MessageToJson(const msgblk* m) {
    Json message;
    message["name"] = NameToJson(m->name);
    message["id"] = +m->id;
    message["dlc"] = +m->dlc;
    message["signal_count"] = +m->signal_count;
    message["transmitter"] = NodeRef(m->transmitter);
    message["comment"] = TextToJson(m->comment);
    message["attributes"] = AttrsToJson(m->attributes);
    Json signals = Json::array();
    for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
        signals.push_back(SignalToJson(s));
    }
    message["signals"] = std::move(signals);
    message["transmitters"] = RelationsToJson(m->transmitters);
    return message;
}

Json EnvvarToJson(const env_var_blk* e) {
    Json envvar;
    envvar["name"] = NameToJson(e->name);
    envvar["type"] = +e->type;
    envvar["unit"] = NameToJson(e->unit);
    envvar["minimum"] = DoubleToJson(e->minimum);
    envvar["maximum"] = DoubleToJson(e->maximum);
    envvar["initial_value"] = DoubleToJson(e->initial_value);
    envvar["id"] = +e->id;
    envvar["node"] = NodeRef(e->node);
    envvar["access_type"] = +e->access_type;
    envvar["access_nodes"] = RelationsToJson(e->access_nodes);
    envvar["data_length"] = +e->data_length;
    envvar["comment"] = TextToJson(e->comment);
    envvar["attributes"] = AttrsToJson(e->attributes);
    envvar["value_descriptions"] = ValuesToJson(e->value_descriptions);
    return envvar;
}

Json DatabaseToJson(const msgblk* messages, const symblk* nodes, const env_var_blk* envvars,
                    const attr_def* attrDefs, const attr* dbAttrs) {
    Json doc;
    Json defs = Json::array();
    for (const attr_def* d = attrDefs; d != nullptr; d = d->next) {
        defs.push_back(DefinitionToJson(d));
    }
    doc["attribute_definitions"] = std::move(defs);
    doc["database_attributes"] = AttrsToJson(dbAttrs);
    Json nodeList = Json::array();
    for (const symblk* n = nodes; n != nullptr; n = n->next) {
        nodeList.push_back(Json{{"name", NameToJson(n->name)},
                                {"comment", TextToJson(n->comment)},
                                {"attributes", AttrsToJson(n->attributes)}});
    }
    doc["nodes"] = std::move(nodeList);
    Json messageList = Json::array();
    for (const msgblk* m = messages; m != nullptr; m = m->next) {
        messageList.push_back(MessageToJson(m));
    }
    doc["messages"] = std::move(messageList);
    Json envvarList = Json::array();
    for (const env_var_blk* e = envvars; e != nullptr; e = e->next) {
        envvarList.push_back(EnvvarToJson(e));
    }
    doc["environment_variables"] = std::move(envvarList);
    return doc;
}

// ---- Import: what the database file can hold --------------------------------------
// A document is refused unless the library can write its database to a file
// and read that file back: each rule below is one that the reader
// (dbfile/reader.cpp, dbfile/scanner.cpp) applies to what the writer makes
// of the records.

// A place in the document, for messages: "messages[3].signals[0].length".
std::string At(const std::string& where, const char* key) {
    return where.empty() ? key : where + "." + key;
}

std::string At(const std::string& where, std::size_t index) {
    return where + "[" + std::to_string(index) + "]";
}

// A text as a complaint shows it: quoted, control characters as \xNN, so
// that the complaint stays one line.
std::string Shown(const std::string& text) {
    std::string shown = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02X", byte);
            shown += escape;
        } else {
            shown += c;
        }
    }
    return shown + "\"";
}

// The module's documents nest arrays and objects six deep. A deeper text is
// refused before the parser builds anything of it.
constexpr std::size_t kDeepestNesting = 64;

void CheckNesting(const std::string& text) {
    std::size_t depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;  // the escaped character
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kDeepestNesting) {
                throw DocumentError("arrays and objects nested more than " +
                                    std::to_string(kDeepestNesting) + " deep at byte " +
                                    std::to_string(i));
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
}

// How the database file writes a text, which decides what the text may hold.
enum class Form {
    kSymbol,   // bare: names of nodes, messages, signals and variables
    kQuoted,   // between double quotes as it is: units, attribute names, values
    kComment,  // between double quotes, a backslash before each double quote
};

bool IsSymbol(const std::string& text) {
    using tavlo::manager::IsLetter;
    using tavlo::manager::IsNameChar;
    return !text.empty() && (IsLetter(text[0]) || text[0] == '_') &&
           std::all_of(text.begin(), text.end(), IsNameChar);
}

void CheckForm(const std::string& text, Form form, const std::string& where) {
    switch (form) {
    case Form::kSymbol:
        if (!IsSymbol(text)) {
            throw DocumentError(where + ": " + Shown(text) +
                                " is not a name (a letter or '_', then letters, digits and '_')");
        }
        for (const tavlo::dbfile::Keyword& keyword : tavlo::dbfile::kKeywords) {
            if (text == keyword.text) {
                throw DocumentError(where + ": " + Shown(text) +
                                    " is a keyword of the database file");
            }
        }
        return;
    case Form::kQuoted:
        if (text.find('"') != std::string::npos) {
            throw DocumentError(where + ": a double quote, which this text cannot hold");
        }
        break;
    case Form::kComment:
        break;
    }
    // The scanner reads a backslash before the closing quote as an escaped
    // quote.
    if (!text.empty() && text.back() == '\\') {
        throw DocumentError(where + ": ends with a backslash");
    }
}

// ---- Import: reading fields -------------------------------------------------------

const Json& Field(const Json& object, const char* key, const std::string& where) {
    if (!object.is_object()) {
        throw DocumentError(where.empty() ? "the document is not an object"
                                          : where + ": not an object");
    }
    const auto found = object.find(key);
    if (found == object.end()) {
        throw DocumentError(At(where, key) + ": missing");
    }
    return *found;
}

const Json& ArrayField(const Json& object, const char* key, const std::string& where) {
    const Json& value = Field(object, key, where);
    if (!value.is_array()) {
        throw DocumentError(At(where, key) + ": not an array");
    }
    return value;
}

std::uint64_t UnsignedField(const Json& object, const char* key, const std::string& where,
                            std::uint64_t maximum) {
    const Json& value = Field(object, key, where);
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > maximum) {
        throw DocumentError(At(where, key) + ": not a whole number from 0 to " +
                            std::to_string(maximum));
    }
    return value.get<std::uint64_t>();
}

unsigned int UIntField(const Json& object, const char* key, const std::string& where,
                       unsigned int maximum = std::numeric_limits<unsigned int>::max()) {
    return static_cast<unsigned int>(UnsignedField(object, key, where, maximum));
}

unsigned short UShortField(const Json& object, const char* key, const std::string& where) {
    return static_cast<unsigned short>(
        UnsignedField(object, key, where, std::numeric_limits<unsigned short>::max()));
}

int IntField(const Json& object, const char* key, const std::string& where) {
    const Json& value = Field(object, key, where);
    if (value.is_number_unsigned()) {
        if (value.get<std::uint64_t>() <= static_cast<std::uint64_t>(INT32_MAX)) {
            return static_cast<int>(value.get<std::uint64_t>());
        }
    } else if (value.is_number_integer()) {
        const std::int64_t number = value.get<std::int64_t>();
        if (number >= INT32_MIN && number <= INT32_MAX) {
            return static_cast<int>(number);
        }
    }
    throw DocumentError(At(where, key) + ": not a whole number in the range of int");
}

// A number the database file can hold: a finite one. The export's texts for
// infinities and NaN are told from other texts for the complaint.
double NumberField(const Json& object, const char* key, const std::string& where) {
    const Json& value = Field(object, key, where);
    if (value.is_number() && std::isfinite(value.get<double>())) {
        return value.get<double>();
    }
    const bool number =
        value.is_number() || value == "inf" || value == "-inf" || value == "nan";
    throw DocumentError(At(where, key) + (number ? ": not a finite number" : ": not a number"));
}

std::string StringValue(const Json& value, const std::string& where) {
    if (!value.is_string()) {
        throw DocumentError(where + ": not a text");
    }
    return JsonToBytes(value.get_ref<const std::string&>(), where);
}

// A name field of 32 bytes at most, copied into a record's name array.
void NameField(char* field, const Json& object, const char* key, const std::string& where,
               Form form) {
    const std::string name = StringValue(Field(object, key, where), At(where, key));
    if (name.size() >= TAVLO_NAME_SIZE) {
        throw DocumentError(At(where, key) + ": longer than " +
                            std::to_string(TAVLO_NAME_SIZE - 1) + " bytes");
    }
    CheckForm(name, form, At(where, key));
    std::memcpy(field, name.c_str(), name.size() + 1);
}

// A text of the library's memory.
char* CopyText(const std::string& text) {
    char* copy = static_cast<char*>(TAVLO_MALLOC(text.size() + 1));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

// A text field as a text of the library's memory, or null for a JSON null.
char* TextField(const Json& object, const char* key, const std::string& where, Form form) {
    const Json& value = Field(object, key, where);
    if (value.is_null()) {
        return nullptr;
    }
    const std::string text = StringValue(value, At(where, key));
    CheckForm(text, form, At(where, key));
    return CopyText(text);
}

// The reader compares attribute names with tabs read as blanks.
std::string AttributeKey(std::string name) {
    std::replace(name.begin(), name.end(), '\t', ' ');
    return name;
}

template <typename Record>
Record* Made(Record* record) {
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    return record;
}

template <typename Record>
Record* Allocated() {
    return Made(static_cast<Record*>(TAVLO_MALLOC(sizeof(Record))));
}

// Appends records to a singly linked list whose head lives elsewhere; every
// record is linked as soon as it is made, so that releasing the heads
// releases everything made so far.
template <typename Record>
class Appender {
public:
    explicit Appender(Record*& head) : head_(head), tail_(head) {
        while (tail_ != nullptr && tail_->next != nullptr) {
            tail_ = tail_->next;
        }
    }
    void Append(Record* record) {
        if (tail_ == nullptr) {
            head_ = record;
        } else {
            tail_->next = record;
        }
        tail_ = record;
    }

private:
    Record*& head_;
    Record* tail_;
};

// Refuses a key met before in the same list.
template <typename Key>
void Once(std::set<Key>& seen, const Key& key, const std::string& where,
          const std::string& what) {
    if (!seen.insert(key).second) {
        throw DocumentError(where + ": a second " + what);
    }
}

// ---- Import: building records -----------------------------------------------------

// The flags of a signal record: byte order, sign, mode, multiplexed.
constexpr std::uint64_t kSignalFlags =
    TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED | TAVLO_SIG_MODE | TAVLO_SIG_MULTIPLEXED;

class Builder {
public:
    explicit Builder(tavlo_root_t& root) : root_(root) {}

    void Build(const Json& doc) {
        if (!doc.is_object()) {
            throw DocumentError("the document is not an object");
        }
        Definitions(ArrayField(doc, "attribute_definitions", ""));
        root_.db_attrs = Attrs(doc, "database_attributes", "", TAVLO_OBJ_NETWORK);
        Nodes(ArrayField(doc, "nodes", ""));
        Messages(ArrayField(doc, "messages", ""));
        Envvars(ArrayField(doc, "environment_variables", ""));
    }

private:
    void Definitions(const Json& list) {
        Appender<attr_def> defs(root_.attr_defs);
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string where = At("attribute_definitions", i);
            const Json& item = list[i];
            attr_def* def = Made(TAVLO_CREATE_ATTR_DEF());
            defs.Append(def);
            def->object_type = UIntField(item, "object_type", where, TAVLO_OBJ_NODE_ENVVAR);
            NameField(def->name, item, "name", where, Form::kQuoted);
            const unsigned int type = UIntField(item, "value_type", where, TAVLO_ATTR_HEX);
            def->value_type = type;
            if (type == TAVLO_ATTR_STRING) {
                def->default_value.text = TextField(item, "default", where, Form::kQuoted);
            } else if (type == TAVLO_ATTR_ENUM) {
                def->minimum.text = EnumTexts(Field(item, "enumeration", where),
                                              At(where, "enumeration"));
                def->default_value.text = TextField(item, "default", where, Form::kQuoted);
            } else {
                def->minimum.number = NumberField(item, "minimum", where);
                def->maximum = NumberField(item, "maximum", where);
                def->default_value.number = NumberField(item, "default", where);
            }
            if (!definitions_.emplace(AttributeKey(def->name), def).second) {
                throw DocumentError(At(where, "name") + ": a second definition " +
                                    Shown(def->name));
            }
        }
    }

    static char* EnumTexts(const Json& value, const std::string& where) {
        if (value.is_null()) {
            return nullptr;
        }
        if (!value.is_array()) {
            throw DocumentError(where + ": not an array");
        }
        std::string joined;
        for (std::size_t i = 0; i < value.size(); ++i) {
            const std::string text = StringValue(value[i], At(where, i));
            if (text.find('\n') != std::string::npos) {
                throw DocumentError(At(where, i) + ": an enumeration text holds a line feed");
            }
            CheckForm(text, Form::kQuoted, At(where, i));
            joined += (i != 0 ? "\n" : "") + text;
        }
        return CopyText(joined);
    }

    // The values of `objectType`'s attributes.
    attr* Attrs(const Json& object, const char* key, const std::string& where,
                unsigned int objectType) {
        const Json& list = ArrayField(object, key, where);
        const std::string place = At(where, key);
        attr* head = nullptr;
        try {
            Appender<attr> values(head);
            for (std::size_t i = 0; i < list.size(); ++i) {
                const std::string at = At(place, i);
                const Json& item = list[i];
                const std::string nameAt = At(at, "definition");
                const std::string name = StringValue(Field(item, "definition", at), nameAt);
                const auto found = definitions_.find(AttributeKey(name));
                if (found == definitions_.end()) {
                    throw DocumentError(nameAt + ": no attribute definition " + Shown(name));
                }
                attr_def* def = found->second;
                if (def->object_type != objectType) {
                    throw DocumentError(nameAt + ": " + Shown(name) +
                                        " is defined for another kind of object");
                }
                attr* value = Allocated<attr>();
                value->def = def;
                values.Append(value);
                if (def->value_type == TAVLO_ATTR_STRING) {
                    value->value.text = TextField(item, "value", at, Form::kQuoted);
                    continue;
                }
                const double number = NumberField(item, "value", at);
                value->value.number = number;
                if (def->value_type == TAVLO_ATTR_ENUM) {
                    CheckEnumIndex(number, def->minimum.text, At(at, "value"));
                }
            }
        } catch (...) {
            // The list is not linked to its owner yet.
            TAVLO_FREE(nullptr, nullptr, nullptr, nullptr, nullptr, head, nullptr, filter_t{},
                       nullptr, nullptr, nullptr, nullptr);
            throw;
        }
        return head;
    }

    // An ENUM value is the index of one of the definition's texts, which
    // the record joins by line feeds.
    static void CheckEnumIndex(double index, const char* joined, const std::string& where) {
        const std::string texts = joined != nullptr ? joined : "";
        const auto count = static_cast<double>(std::count(texts.begin(), texts.end(), '\n') + 1);
        if (!(index >= 0 && index < count && index == std::floor(index))) {
            throw DocumentError(where + ": not the index of one of the " +
                                std::to_string(static_cast<long>(count)) +
                                " enumeration texts");
        }
    }

    static val* Values(const Json& object, const char* key, const std::string& where) {
        const Json& list = ArrayField(object, key, where);
        const std::string place = At(where, key);
        val* head = nullptr;
        try {
            Appender<val> values(head);
            for (std::size_t i = 0; i < list.size(); ++i) {
                const std::string at = At(place, i);
                const int number = IntField(list[i], "value", at);
                char text[TAVLO_NAME_SIZE];
                NameField(text, list[i], "text", at, Form::kQuoted);
                val* value = Allocated<val>();
                values.Append(value);
                value->value = number;
                std::memcpy(value->text, text, sizeof text);
            }
        } catch (...) {
            while (head != nullptr) {
                val* next = head->next;
                TAVLO_MFREE(head);
                head = next;
            }
            throw;
        }
        return head;
    }

    symblk* Node(const Json& value, const std::string& where) {
        const std::string name = StringValue(value, where);
        const auto found = nodes_.find(name);
        if (found == nodes_.end()) {
            throw DocumentError(where + ": no node " + Shown(name));
        }
        return found->second;
    }

    // A transmitter or a variable's node, null where there is none.
    symblk* NodeOrNone(const Json& value, const std::string& where) {
        return value.is_null() ? nullptr : Node(value, where);
    }

    // Receivers, further transmitters or access nodes, made by `create`;
    // returns their count.
    unsigned int Relations(rxblk*& head, const Json& object, const char* key,
                           const std::string& where, rxblk* (*create)(symblk*)) {
        const Json& list = ArrayField(object, key, where);
        if (list.size() > std::numeric_limits<unsigned short>::max()) {
            throw DocumentError(At(where, key) + ": more than 65535 entries");
        }
        Appender<rxblk> relations(head);
        for (std::size_t i = 0; i < list.size(); ++i) {
            symblk* node = Node(list[i], At(At(where, key), i));
            relations.Append(Made(create(node)));
        }
        return static_cast<unsigned int>(list.size());
    }

    void Nodes(const Json& list) {
        Appender<symblk> nodes(root_.nodes);
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string where = At("nodes", i);
            symblk* node = Made(TAVLO_CREATE_SYMBOL());
            nodes.Append(node);
            NameField(node->name, list[i], "name", where, Form::kSymbol);
            if (std::strcmp(node->name, tavlo::dbfile::kNoNode) == 0) {
                throw DocumentError(At(where, "name") + ": " + Shown(node->name) +
                                    " stands for no node in the database file");
            }
            if (!nodes_.emplace(node->name, node).second) {
                throw DocumentError(At(where, "name") + ": a second node " + Shown(node->name));
            }
            node->comment = TextField(list[i], "comment", where, Form::kComment);
            node->attributes = Attrs(list[i], "attributes", where, TAVLO_OBJ_NODE);
        }
    }

    void Messages(const Json& list) {
        Appender<msgblk> messages(root_.messages);
        std::set<unsigned int> ids;
        std::set<std::string> names;
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string where = At("messages", i);
            const Json& item = list[i];
            msgblk* message = Made(TAVLO_CREATE_MSGBLK());
            messages.Append(message);
            NameField(message->name, item, "name", where, Form::kSymbol);
            Once(names, std::string(message->name), At(where, "name"),
                 "message " + Shown(message->name));
            const unsigned int id = UIntField(item, "id", where);
            Once(ids, id, At(where, "id"), "message " + std::to_string(id));
            message->id = id;
            message->dlc = UShortField(item, "dlc", where);
            message->signal_count = UShortField(item, "signal_count", where);
            message->transmitter =
                NodeOrNone(Field(item, "transmitter", where), At(where, "transmitter"));
            message->comment = TextField(item, "comment", where, Form::kComment);
            message->attributes = Attrs(item, "attributes", where, TAVLO_OBJ_MESSAGE);
            const Json& signals = ArrayField(item, "signals", where);
            sigblk* first = nullptr;
            Appender<sigblk> appender(first);
            std::set<std::string> signalNames;
            for (std::size_t k = 0; k < signals.size(); ++k) {
                sigblk* signal = Made(TAVLO_CREATE_SIGBLK());
                appender.Append(signal);
                message->signals = first;
                Signal(*signal, signals[k], At(At(where, "signals"), k), signalNames);
            }
            rxblk* transmitters = nullptr;
            try {
                Relations(transmitters, item, "transmitters", where, TAVLO_CREATE_TX);
            } catch (...) {
                message->transmitters = transmitters;
                throw;
            }
            message->transmitters = transmitters;
        }
    }

    void Signal(sigblk& signal, const Json& item, const std::string& where,
                std::set<std::string>& names) {
        NameField(signal.name, item, "name", where, Form::kSymbol);
        Once(names, std::string(signal.name), At(where, "name"),
             "signal " + Shown(signal.name) + " in the message");
        signal.start_bit = UShortField(item, "start_bit", where);
        signal.length = UShortField(item, "length", where);
        signal.flags =
            static_cast<unsigned char>(UnsignedField(item, "flags", where, kSignalFlags));
        signal.mode_value = UIntField(item, "mode_value", where);
        signal.offset = NumberField(item, "offset", where);
        signal.factor = NumberField(item, "factor", where);
        NameField(signal.unit, item, "unit", where, Form::kQuoted);
        signal.minimum = NumberField(item, "minimum", where);
        signal.maximum = NumberField(item, "maximum", where);
        rxblk* receivers = nullptr;
        try {
            signal.receiver_count = static_cast<unsigned short>(
                Relations(receivers, item, "receivers", where, TAVLO_CREATE_RX));
        } catch (...) {
            signal.receivers = receivers;
            throw;
        }
        signal.receivers = receivers;
        signal.comment = TextField(item, "comment", where, Form::kComment);
        signal.attributes = Attrs(item, "attributes", where, TAVLO_OBJ_SIGNAL);
        signal.value_descriptions = Values(item, "value_descriptions", where);
        signal.value_type = UIntField(item, "value_type", where, TAVLO_VALUE_DOUBLE);
    }

    void Envvars(const Json& list) {
        Appender<env_var_blk> envvars(root_.envvars);
        std::set<std::string> names;
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string where = At("environment_variables", i);
            const Json& item = list[i];
            env_var_blk* envvar = Made(TAVLO_CREATE_EVBLK());
            envvars.Append(envvar);
            NameField(envvar->name, item, "name", where, Form::kSymbol);
            Once(names, std::string(envvar->name), At(where, "name"),
                 "environment variable " + Shown(envvar->name));
            // String (2) and data (3) variables are written as integer ones with
            // an access bit or a data line, which the reader takes back.
            envvar->type = UIntField(item, "type", where, TAVLO_ENV_DATA);
            NameField(envvar->unit, item, "unit", where, Form::kQuoted);
            envvar->minimum = NumberField(item, "minimum", where);
            envvar->maximum = NumberField(item, "maximum", where);
            envvar->initial_value = NumberField(item, "initial_value", where);
            envvar->id = UIntField(item, "id", where);
            envvar->node = NodeOrNone(Field(item, "node", where), At(where, "node"));
            envvar->access_type = UIntField(item, "access_type", where);
            rxblk* accessNodes = nullptr;
            try {
                envvar->access_node_count = static_cast<unsigned short>(
                    Relations(accessNodes, item, "access_nodes", where, TAVLO_CREATE_RX));
            } catch (...) {
                envvar->access_nodes = accessNodes;
                throw;
            }
            envvar->access_nodes = accessNodes;
            envvar->data_length = UIntField(item, "data_length", where);
            envvar->comment = TextField(item, "comment", where, Form::kComment);
            envvar->attributes = Attrs(item, "attributes", where, TAVLO_OBJ_ENVVAR);
            envvar->value_descriptions = Values(item, "value_descriptions", where);
        }
    }

    tavlo_root_t& root_;
    std::map<std::string, attr_def*> definitions_;  // by AttributeKey
    std::map<std::string, symblk*> nodes_;
};

void Release(tavlo_root_t& root) {
    TAVLO_FREE_ROOT(&root);
}

}  // namespace

extern "C" {

TAVLO_JSON_ENTRY int Export(const char* targetPath, msgblk* messages, symblk* nodes,
                            env_var_blk* envvars, attr_def* attrDefs, attr* dbAttrs);
TAVLO_JSON_ENTRY int Import(const char* sourcePath, msgblk** messages, symblk** nodes,
                            env_var_blk** envvars, attr_def** attrDefs, attr** dbAttrs);

// Writes the five lists to targetPath; 1, or 0 when the file cannot be
// written.
int Export(const char* targetPath, msgblk* messages, symblk* nodes, env_var_blk* envvars,
           attr_def* attrDefs, attr* dbAttrs) {
    try {
        if (targetPath == nullptr) {
            Complain(targetPath, "no file named");
            return 0;
        }
        const std::string text =
            DatabaseToJson(messages, nodes, envvars, attrDefs, dbAttrs).dump(2) + "\n";
        std::ofstream out(targetPath, std::ios::binary | std::ios::trunc);
        if (!out) {
            Complain(targetPath, "cannot be opened for writing");
            return 0;
        }
        out << text;
        out.close();
        if (!out) {
            Complain(targetPath, "cannot be written");
            return 0;
        }
        return 1;
    } catch (const std::exception& e) {
        Complain(targetPath, e.what());
    } catch (...) {
        Complain(targetPath, "export failed");
    }
    return 0;
}

// Reads sourcePath into five new lists; 1, or 0 with every list as it was
// (the caller's heads are set only on success).
int Import(const char* sourcePath, msgblk** messages, symblk** nodes, env_var_blk** envvars,
           attr_def** attrDefs, attr** dbAttrs) {
    tavlo_root_t built{};
    try {
        if (sourcePath == nullptr || messages == nullptr || nodes == nullptr ||
            envvars == nullptr || attrDefs == nullptr || dbAttrs == nullptr) {
            Complain(sourcePath, "a null argument");
            return 0;
        }
        std::ifstream in(sourcePath, std::ios::binary);
        if (!in) {
            Complain(sourcePath, "cannot be opened for reading");
            return 0;
        }
        const std::string text{std::istreambuf_iterator<char>(in),
                               std::istreambuf_iterator<char>()};
        CheckNesting(text);
        Json doc;
        try {
            doc = Json::parse(text);
        } catch (const Json::parse_error& e) {
            Complain(sourcePath, e.what());
            return 0;
        }
        Builder(built).Build(doc);
        *messages = built.messages;
        *nodes = built.nodes;
        *envvars = built.envvars;
        *attrDefs = built.attr_defs;
        *dbAttrs = built.db_attrs;
        return 1;
    } catch (const DocumentError& e) {
        Complain(sourcePath, e.what());
    } catch (const std::bad_alloc&) {
        Complain(sourcePath, "out of memory");
    } catch (const TavloException&) {
        Complain(sourcePath, "out of memory");
    } catch (const std::exception& e) {
        Complain(sourcePath, e.what());
    } catch (...) {
        Complain(sourcePath, "import failed");
    }
    Release(built);
    return 0;
}

}  // extern "C"
