// tools/tavlo/diff.cpp: the diff subcommand, what changed from one database
// file to another: a line for every object added or removed, and one for
// every property that differs of an object in both. Attribute values and
// value descriptions count as properties of the object they belong to.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"

namespace tavlo::tool {
namespace {

const char kDiffHelp[] =
    "usage: tavlo diff [OPTIONS] A B\n"
    "Prints what changed from database file A to database file B, a line for\n"
    "each difference:\n"
    "  + OBJECT                        only in B\n"
    "  - OBJECT                        only in A\n"
    "  ~ OBJECT: PROPERTY OLD -> NEW   in both, the property differs\n"
    "Compared are the database (version, comment), nodes, value tables,\n"
    "messages (matched by identifier) and their signals, environment variables\n"
    "and attribute definitions (matched by name), with their attribute values,\n"
    "value descriptions and comments; 'none' is a property that is not set.\n"
    "Objects are named as in B, texts quoted as JSON strings; receiver and\n"
    "transmitter lists are compared as sets. Nothing is printed when the\n"
    "databases are the same.\n"
    "Exit status 0 whether or not they differ; with --exit-code 1 when they\n"
    "differ. 1 also when a file cannot be read.\n";

const char kNone[] = "none";

// A property's value as shown and as compared: numbers show with 10
// significant digits, but two that differ only further along are shown as
// exactly as they compare, so that no change goes unseen.
struct Value {
    Value(std::string text) : shown(text), exact(std::move(text)) {}
    Value(const char* text) : Value(std::string(text)) {}
    Value(std::string shownText, std::string exactText)
        : shown(std::move(shownText)), exact(std::move(exactText)) {}
    std::string shown;
    std::string exact;
};

Value Numeric(double value) {
    char text[40];
    const std::to_chars_result written = std::to_chars(text, text + sizeof text, value);
    return {Number(value), std::string(text, written.ptr)};
}

// The properties of a record, the same ones in the same order for every
// record of a kind.
using Properties = std::vector<std::pair<const char*, Value>>;

class Differences {
public:
    void Added(const std::string& object) { lines_.push_back("+ " + object + "\n"); }
    void Removed(const std::string& object) { lines_.push_back("- " + object + "\n"); }

    void Changed(const std::string& object, const std::string& property, const Value& before,
                 const Value& after) {
        if (before.exact == after.exact) {
            return;
        }
        const bool alike = before.shown == after.shown;
        lines_.push_back("~ " + object + ": " + property + " " +
                         (alike ? before.exact : before.shown) + " -> " +
                         (alike ? after.exact : after.shown) + "\n");
    }

    void Changed(const std::string& object, const Properties& before, const Properties& after) {
        for (std::size_t i = 0; i < before.size() && i < after.size(); ++i) {
            Changed(object, before[i].first, before[i].second, after[i].second);
        }
    }

    const std::vector<std::string>& Lines() const { return lines_; }

private:
    std::vector<std::string> lines_;
};

// The records of a list, in list order, with the keys they are matched by.
template <class T>
using Keyed = std::vector<std::pair<std::string, const T*>>;

template <class T, class KeyOf>
Keyed<T> KeyedList(const T* list, KeyOf keyOf) {
    Keyed<T> keyed;
    for (; list != nullptr; list = list->next) {
        keyed.emplace_back(keyOf(*list), list);
    }
    return keyed;
}

// Pairs the records of a and b by key (the n-th of a key in a with the n-th
// in b) and visits them as (a, b), as (null, b) for a record only in b and
// as (a, null) for one only in a: in b's order, and between two records in
// both, those only in a before those only in b.
template <class T, class Visit>
void Pair(const Keyed<T>& a, const Keyed<T>& b, Visit visit) {
    std::map<std::string, std::vector<std::size_t>> waiting;  // positions in a, last first
    for (std::size_t i = a.size(); i-- > 0;) {
        waiting[a[i].first].push_back(i);
    }
    const std::size_t alone = a.size();
    std::vector<std::size_t> partner(b.size(), alone);
    std::vector<bool> paired(a.size(), false);
    for (std::size_t j = 0; j < b.size(); ++j) {
        const auto found = waiting.find(b[j].first);
        if (found != waiting.end() && !found->second.empty()) {
            partner[j] = found->second.back();
            found->second.pop_back();
            paired[partner[j]] = true;
        }
    }
    // For each record of b, the position in a of the next record in both.
    std::vector<std::size_t> anchor(b.size() + 1, a.size());
    for (std::size_t j = b.size(); j-- > 0;) {
        anchor[j] = partner[j] != alone ? partner[j] : anchor[j + 1];
    }
    std::size_t next = 0;  // the first record of a not passed yet
    for (std::size_t j = 0; j <= b.size(); ++j) {
        for (; next < anchor[j]; ++next) {
            if (!paired[next]) {
                visit(a[next].second, nullptr);
            }
        }
        if (j == b.size()) {
            break;
        }
        const std::size_t i = partner[j];
        if (i == alone) {
            visit(nullptr, b[j].second);
        } else {
            next = std::max(next, i + 1);
            visit(a[i].second, b[j].second);
        }
    }
}

// Reports the records only in a or only in b by the name objectOf gives
// them, and has compare(a, b, name) report the differences of each record
// in both.
template <class T, class KeyOf, class ObjectOf, class Compare>
void CompareLists(Differences& out, const T* a, const T* b, KeyOf keyOf, ObjectOf objectOf,
                  Compare compare) {
    Pair(KeyedList(a, keyOf), KeyedList(b, keyOf), [&](const T* inA, const T* inB) {
        if (inA == nullptr) {
            out.Added(objectOf(*inB));
        } else if (inB == nullptr) {
            out.Removed(objectOf(*inA));
        } else {
            compare(*inA, *inB, objectOf(*inB));
        }
    });
}

template <class T>
std::string NameOf(const T& record) {
    return record.name;
}

std::string Quoted(const char* text) { return JsonText(text != nullptr ? text : ""); }

std::string Comment(const char* text) {
    return text != nullptr && text[0] != '\0' ? JsonText(text) : kNone;
}

std::string NodeName(const symblk* node) { return node != nullptr ? node->name : kNone; }

// Receivers, transmitters and access nodes as a set: sorted.
std::string NodeNames(const rxblk* list) {
    std::vector<std::string> names;
    for (; list != nullptr; list = list->next) {
        const symblk* node = list->symbol;
        if (node != nullptr) {
            names.emplace_back(node->name);
        }
    }
    if (names.empty()) {
        return kNone;
    }
    std::sort(names.begin(), names.end());
    std::string joined;
    for (const std::string& name : names) {
        joined += joined.empty() ? "" : ", ";
        joined += name;
    }
    return joined;
}

std::string Word(unsigned int index, const std::vector<const char*>& words) {
    return index < words.size() ? words[index] : std::to_string(index);
}

std::string ObjectKind(unsigned int objectType) {
    return Word(objectType, {"database", "node", "message", "signal", "environment variable",
                             "signal type", "receiver relation", "transmitter relation",
                             "access node relation"});
}

bool IsNumeric(unsigned int valueType) {
    return valueType == TAVLO_ATTR_INT || valueType == TAVLO_ATTR_FLOAT ||
           valueType == TAVLO_ATTR_HEX;
}

// The texts of an enumeration definition, kept joined by line feeds.
std::vector<std::string> EnumTexts(const attr_def& def) {
    std::vector<std::string> texts;
    const unsigned int type = def.value_type;
    const char* joined = def.minimum.text;
    if (type != TAVLO_ATTR_ENUM || joined == nullptr || joined[0] == '\0') {
        return texts;
    }
    const std::string all = joined;
    std::size_t from = 0;
    for (std::size_t end = all.find('\n'); end != std::string::npos; end = all.find('\n', from)) {
        texts.push_back(all.substr(from, end - from));
        from = end + 1;
    }
    texts.push_back(all.substr(from));
    return texts;
}

// A value as its definition reads it; an enumeration value as its text, so
// that values compare equal when only the definition's order changed.
Value AttributeValue(const attr& value) {
    const attr_def& def = *value.def;
    const unsigned int type = def.value_type;
    const tavlo_attr_value_t held = value.value;
    if (type == TAVLO_ATTR_STRING) {
        return Quoted(held.text);
    }
    if (type == TAVLO_ATTR_ENUM) {
        const std::vector<std::string> texts = EnumTexts(def);
        const double index = held.number;
        if (index >= 0 && index < static_cast<double>(texts.size())) {
            return JsonText(texts[static_cast<std::size_t>(index)]);
        }
    }
    return Numeric(held.number);
}

void CompareAttributes(Differences& out, const std::string& object, const attr* a, const attr* b,
                       const std::string& of = "") {
    const auto byDefinition = [](const attr* list) {
        Keyed<attr> keyed;
        for (; list != nullptr; list = list->next) {
            const attr_def* def = list->def;
            if (def != nullptr) {
                keyed.emplace_back(def->name, list);
            }
        }
        return keyed;
    };
    Pair(byDefinition(a), byDefinition(b), [&](const attr* inA, const attr* inB) {
        const attr_def* def = (inA != nullptr ? inA : inB)->def;
        out.Changed(object, "attribute " + JsonText(def->name) + of,
                    inA != nullptr ? AttributeValue(*inA) : kNone,
                    inB != nullptr ? AttributeValue(*inB) : kNone);
    });
}

// The relation values (BA_REL_) of the nodes in both lists.
void CompareRelations(Differences& out, const std::string& object, const rxblk* a, const rxblk* b,
                      const char* role) {
    const auto byNode = [](const rxblk& relation) { return NodeName(relation.symbol); };
    Pair(KeyedList(a, byNode), KeyedList(b, byNode), [&](const rxblk* inA, const rxblk* inB) {
        if (inA != nullptr && inB != nullptr) {
            CompareAttributes(out, object, inA->attributes, inB->attributes,
                              std::string(" of ") + role + " " + NodeName(inB->symbol));
        }
    });
}

void CompareDescriptions(Differences& out, const std::string& object, const val* a,
                         const val* b) {
    const auto byValue = [](const val& description) {
        const int value = description.value;
        return std::to_string(value);
    };
    Pair(KeyedList(a, byValue), KeyedList(b, byValue), [&](const val* inA, const val* inB) {
        out.Changed(object, "value description " + byValue(inA != nullptr ? *inA : *inB),
                    inA != nullptr ? Quoted(inA->text) : kNone,
                    inB != nullptr ? Quoted(inB->text) : kNone);
    });
}

Properties DatabaseProperties(const tavlo_root_t& root) {
    return {{"version", Quoted(root.version)}, {"comment", Comment(root.comment)}};
}

Properties NodeProperties(const symblk& node) { return {{"comment", Comment(node.comment)}}; }

Properties MessageProperties(const msgblk& message) {
    const unsigned int dlc = message.dlc;
    return {{"name", MessageName(message)},
            {"dlc", std::to_string(dlc)},
            {"transmitter", NodeName(message.transmitter)},
            {"transmitters", NodeNames(message.transmitters)},
            {"comment", Comment(message.comment)}};
}

std::string Multiplexing(const sigblk& signal) {
    const unsigned int flags = signal.flags;
    const unsigned int mode = signal.mode_value;
    std::string text = (flags & TAVLO_SIG_MODE) != 0 ? "multiplexer" : "";
    if ((flags & TAVLO_SIG_MULTIPLEXED) != 0) {
        text += text.empty() ? "" : ", ";
        text += "multiplexed " + std::to_string(mode);
    }
    return text.empty() ? kNone : text;
}

Properties SignalProperties(const sigblk& signal) {
    const unsigned int start = signal.start_bit;
    const unsigned int length = signal.length;
    const unsigned int flags = signal.flags;
    const unsigned int valueType = signal.value_type;
    const sigtype* type = signal.sig_type;
    return {{"start bit", std::to_string(start)},
            {"length", std::to_string(length)},
            {"byte order", (flags & TAVLO_SIG_MOTOROLA) != 0 ? "Motorola" : "Intel"},
            {"sign", (flags & TAVLO_SIG_SIGNED) != 0 ? "signed" : "unsigned"},
            {"value type", Word(valueType, {"integer", "float", "double"})},
            {"factor", Numeric(signal.factor)},
            {"offset", Numeric(signal.offset)},
            {"minimum", Numeric(signal.minimum)},
            {"maximum", Numeric(signal.maximum)},
            {"unit", Quoted(signal.unit)},
            {"receivers", NodeNames(signal.receivers)},
            {"multiplexing", Multiplexing(signal)},
            {"signal type", type != nullptr ? type->name : kNone},
            {"comment", Comment(signal.comment)}};
}

Properties EnvvarProperties(const env_var_blk& envvar) {
    const unsigned int type = envvar.type;
    const unsigned int id = envvar.id;
    const unsigned int access = envvar.access_type;
    const unsigned int dataLength = envvar.data_length;
    char accessCode[16];
    std::snprintf(accessCode, sizeof accessCode, "0x%X", access);
    return {{"type", Word(type, {"integer", "float", "string", "data"})},
            {"minimum", Numeric(envvar.minimum)},
            {"maximum", Numeric(envvar.maximum)},
            {"unit", Quoted(envvar.unit)},
            {"initial value", Numeric(envvar.initial_value)},
            {"identifier", std::to_string(id)},
            {"access", accessCode},
            {"access nodes", NodeNames(envvar.access_nodes)},
            {"data length", std::to_string(dataLength)},
            {"comment", Comment(envvar.comment)}};
}

// A range or enumeration texts where the type has them, else none.
Properties DefinitionProperties(const attr_def& def) {
    const unsigned int objectType = def.object_type;
    const unsigned int type = def.value_type;
    const bool numeric = IsNumeric(type);
    const tavlo_attr_value_t minimum = def.minimum;
    const tavlo_attr_value_t fallback = def.default_value;
    std::string values;
    for (const std::string& text : EnumTexts(def)) {
        values += values.empty() ? "" : ",";
        values += JsonText(text);
    }
    return {{"object", ObjectKind(objectType)},
            {"type", Word(type, {"INT", "FLOAT", "STRING", "ENUM", "HEX"})},
            {"minimum", numeric ? Numeric(minimum.number) : kNone},
            {"maximum", numeric ? Numeric(def.maximum) : kNone},
            {"values", values.empty() ? kNone : values},
            {"default", numeric ? Numeric(fallback.number) : Quoted(fallback.text)}};
}

void CompareSignals(Differences& out, const msgblk& a, const msgblk& b) {
    const std::string message = MessageName(b);
    CompareLists(
        out, a.signals, b.signals, [](const sigblk& s) { return SignalName(s); },
        [&](const sigblk& s) { return "signal " + message + "." + SignalName(s); },
        [&](const sigblk& inA, const sigblk& inB, const std::string& object) {
            out.Changed(object, SignalProperties(inA), SignalProperties(inB));
            CompareDescriptions(out, object, inA.value_descriptions, inB.value_descriptions);
            CompareAttributes(out, object, inA.attributes, inB.attributes);
            CompareRelations(out, object, inA.receivers, inB.receivers, "receiver");
        });
}

void CompareDatabases(Differences& out, const tavlo_root_t& a, const tavlo_root_t& b) {
    out.Changed("database", DatabaseProperties(a), DatabaseProperties(b));
    CompareAttributes(out, "database", a.db_attrs, b.db_attrs);

    CompareLists(out, a.nodes, b.nodes, NameOf<symblk>,
                 [](const symblk& n) { return "node " + NameOf(n); },
                 [&](const symblk& inA, const symblk& inB, const std::string& object) {
                     out.Changed(object, NodeProperties(inA), NodeProperties(inB));
                     CompareAttributes(out, object, inA.attributes, inB.attributes);
                 });

    CompareLists(out, a.value_tables, b.value_tables, NameOf<valtable>,
                 [](const valtable& t) { return "value table " + NameOf(t); },
                 [&](const valtable& inA, const valtable& inB, const std::string& object) {
                     CompareDescriptions(out, object, inA.value_descriptions,
                                         inB.value_descriptions);
                 });

    CompareLists(
        out, a.messages, b.messages,
        [](const msgblk& m) {
            const unsigned int id = m.id;
            return std::to_string(id);
        },
        [](const msgblk& m) {
            const unsigned int id = m.id;
            return "message " + Identifier(id) + " " + MessageName(m);
        },
        [&](const msgblk& inA, const msgblk& inB, const std::string& object) {
            out.Changed(object, MessageProperties(inA), MessageProperties(inB));
            CompareAttributes(out, object, inA.attributes, inB.attributes);
            CompareRelations(out, object, inA.transmitters, inB.transmitters, "transmitter");
            CompareSignals(out, inA, inB);
        });

    CompareLists(out, a.envvars, b.envvars, NameOf<env_var_blk>,
                 [](const env_var_blk& e) { return "environment variable " + NameOf(e); },
                 [&](const env_var_blk& inA, const env_var_blk& inB, const std::string& object) {
                     out.Changed(object, EnvvarProperties(inA), EnvvarProperties(inB));
                     CompareDescriptions(out, object, inA.value_descriptions,
                                         inB.value_descriptions);
                     CompareAttributes(out, object, inA.attributes, inB.attributes);
                     CompareRelations(out, object, inA.access_nodes, inB.access_nodes,
                                      "access node");
                 });

    CompareLists(out, a.attr_defs, b.attr_defs, NameOf<attr_def>,
                 [](const attr_def& d) { return "attribute definition " + JsonText(d.name); },
                 [&](const attr_def& inA, const attr_def& inB, const std::string& object) {
                     out.Changed(object, DefinitionProperties(inA), DefinitionProperties(inB));
                 });
}

int Diff(const Invocation& line) {
    const bool exitCode = line.Given("--exit-code");
    const Arguments& files = line.operands;
    if (files.size() != 2) {
        return line.Misused();
    }
    // Both are read, so that the errors of both are shown.
    tavlo_root_t a{};
    tavlo_root_t b{};
    const bool readA = Read(files[0], a);
    const bool readB = Read(files[1], b);
    int status = kFailed;
    if (readA && readB) {
        Differences differences;
        CompareDatabases(differences, a, b);
        for (const std::string& line : differences.Lines()) {
            std::fputs(line.c_str(), stdout);
        }
        const bool differ = !differences.Lines().empty();
        status = std::fflush(stdout) != 0 ? kFailed : exitCode && differ ? kFailed : kOk;
    }
    TAVLO_FREE_ROOT(&a);
    TAVLO_FREE_ROOT(&b);
    return status;
}

}  // namespace

const Subcommand kDiff{"diff", "[--exit-code] A B", "what changed from one database to another",
                       &Diff, kDiffHelp,
                       {{"--exit-code", nullptr, "exit status 1 when they differ", {}}}};

}  // namespace tavlo::tool
