// tests/manager/query_test.cpp: what a read manager answers about the records
// of databases that define the same attributes differently: lookups, owners,
// counts, attribute values and defaults, enumeration texts and value
// descriptions (the questions and answers are in data/lookups.txt and
// data/queries.txt), and the iterators these stand on.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <functional>
#include <map>
#include <sstream>
#include <type_traits>
#include <variant>

#include "manager/access.h"
#include "manager/fixture.h"

namespace tavlo::test {
namespace {

bool IsZero(const tavlo_attr_value_t& value) {
    static const unsigned char zeros[sizeof value.bytes] = {};
    return std::memcmp(value.bytes, zeros, sizeof zeros) == 0;
}

// A number as queries.txt writes it: 0 means every byte zero.
std::string Number(const tavlo_attr_value_t& value) {
    std::ostringstream text;
    text << (value.number == 0 && !IsZero(value) ? -0.5 : value.number);
    return text.str();
}

// A text as queries.txt writes it; an allocated one is released.
std::string Text(const char* text, bool owned = false) {
    const std::string written = text == nullptr ? "(null)" : *text == '\0' ? "\"\"" : text;
    if (owned) {
        TAVLO_MFREE(const_cast<char*>(text));
    }
    return written;
}

template <class Record>
std::string NameOf(const Record* record) {
    return record != nullptr ? record->name : "(null)";
}
std::string NameOf(const btlblk* timing) {
    return std::to_string(timing->baudrate);
}
std::string NameOf(const rxblk* relation) {
    return relation != nullptr ? relation->symbol->name : "(null)";
}

// The status of an Ex call and the number it left in a value that was -1.
template <class Call>
std::string Ex(Call call) {
    tavlo_attr_value_t value = AttrNumber(-1);
    const unsigned int status = call(value);
    return std::to_string(status) + " " + Number(value);
}

// A record, or a database for a path that names only one.
struct Named {
    std::variant<const char*, const symblk*, const msgblk*, const env_var_blk*, const sigtype*,
                 const sigblk*, const rxblk*, const attr_def*, const valtable*, const siggroupblk*>
        record;
    tavlo_obj_t relation = TAVLO_OBJ_NETWORK;
};

template <class Entry>
const Entry* Exactly(const Entry* list, const std::string& name) {
    while (list != nullptr && name != NameOf(list)) {
        list = list->next;
    }
    return list;
}

template <class Record, class... Kinds>
constexpr bool kOneOf = (std::is_same_v<Record, Kinds> || ...);

// One member function of the manager called with whatever arguments are
// given; unusable (rather than a compile error) where no overload takes them.
#define CALL(member) \
    [](const TavloManager& m, auto&&... a) -> decltype(m.member(a...)) { return m.member(a...); }

// The form of a lookup: (key, dbName), (key, nullptr), (key, &dbNameOut),
// (key, selection) or (key, selection, &dbNameOut).
struct Form {
    enum { kHandle, kAll, kOut, kSelected, kSelectedOut } kind;
    const char* dbName;
    TavloSelection selection;
};

using Seen = std::vector<std::pair<const char*, std::string>>;

// (database handle, name) of every element an iterator yields.
template <class Iterator>
Seen Walk(Iterator it) {
    Seen seen;
    for (; !it.AtEnd(); ++it) {
        seen.emplace_back(it.GetDatabaseName(), (*it)->name);
    }
    return seen;
}

// The names a range-based for loop meets.
template <class Iterator>
std::vector<std::string> Names(Iterator it) {
    std::vector<std::string> names;
    for (const auto* element : it) {
        names.emplace_back(element != nullptr ? element->name : "(null)");
    }
    return names;
}

// Accepts the names on its list and notes what it was asked.
template <class T>
class NamePredicate : public TavloPredicate<const T*> {
public:
    explicit NamePredicate(std::vector<std::string> accepted) : accepted_(std::move(accepted)) {}
    bool Accept(const T* element, const TavloManager& manager, const char* dbName) override {
        asked.emplace_back(&manager, dbName);
        return std::find(accepted_.begin(), accepted_.end(), element->name) != accepted_.end();
    }
    std::vector<std::pair<const TavloManager*, const char*>> asked;

private:
    std::vector<std::string> accepted_;
};

// Besides the four databases, names32.dbc ("Names"), and body.dbc read
// outside the manager.
class QueryTest : public DataTest<TavloManager> {
protected:
    void SetUp() override {
        DataTest::SetUp();
        names_ = Open(mgr_, DataFile("names32.dbc"), "Names");
        // Selection patterns for the lookups: Pt and Names keep the wildcard.
        ASSERT_TRUE(mgr_.AssignSelectionPattern({6, 0xFFFF}, diag_));
        ASSERT_TRUE(mgr_.AssignSelectionPattern({5, 0xFFFF}, body_));
        ASSERT_TRUE(mgr_.AssignSelectionPattern({5, 7}, extras_));
    }

    const char* Handle(const std::string& name) const {
        const std::map<std::string, const char*> handles = {
            {"Pt", pt_},       {"Diag", diag_}, {"Body", body_},           {"Extras", extras_},
            {"Names", names_}, {"*", nullptr},  {"?", unknown_.c_str()}};
        return handles.at(name);
    }

    Named Find(const std::string& path) {
        std::vector<std::string> part;
        std::istringstream in(path);
        for (std::string piece; std::getline(in, piece, '/');) {
            part.push_back(piece);
        }
        if (part.size() == 1) {
            return {Handle(part[0])};
        }
        const TavloDatabase& db = part[0] == "Outside" ? outside_ : Db(Handle(part[0]));
        const char* name = part[2].c_str();
        msgblk* message = db.GetMessage(name);
        const auto at = [&part](std::size_t i) { return i < part.size() ? part[i] : ""; };
        const auto signal = [&] { return TAVLO_GET_SIGNAL_OF_MSG_NAME(message, at(3).c_str()); };
        const std::map<std::string, std::function<Named()>> kinds = {
            {"node", [&] { return Named{db.GetNode(name)}; }},
            {"envvar", [&] { return Named{db.GetEnvvar(name)}; }},
            {"type", [&] { return Named{db.GetSignalType(name)}; }},
            {"definition", [&] { return Named{db.GetAttrDef(name)}; }},
            {"table", [&] { return Named{db.GetValueTable(name)}; }},
            {"message", [&] { return Named{message}; }},
            {"group", [&] { return Named{Exactly(+message->signal_groups, at(3))}; }},
            {"signal", [&] { return Named{signal()}; }},
            {"receiver",
             [&] { return Named{Exactly(signal()->receivers, at(4)), TAVLO_OBJ_NODE_SIGNAL}; }},
            {"transmitter",
             [&] { return Named{Exactly(message->transmitters, at(3)), TAVLO_OBJ_NODE_MESSAGE}; }},
            {"access", [&] {
                 const rxblk* nodes = db.GetEnvvar(name)->access_nodes;
                 return Named{Exactly(nodes, at(3)), TAVLO_OBJ_NODE_ENVVAR};
             }}};
        return kinds.at(part[1])();
    }

    // Whether the record has a value of its own, its value, and what Ex says;
    // a relation is asked with its kind.
    template <class Record, class... Kind>
    std::string Ask(const Record& record, const char* name, const char* dbName, Kind... kind) {
        return Own(mgr_.IsAttrValueDefined(record, name)) +
               Number(mgr_.GetAttrValue(record, kind..., name)) + " " +
               Ex([&](auto& v) { return mgr_.GetAttrValueEx(record, kind..., v, name, dbName); });
    }
    std::string Ask(const char* db, const char* name, const char* dbName) {
        return Own(mgr_.IsAttrValueDefined(name, db)) + Number(mgr_.GetAttrValue(name, db)) +
               " " + Ex([&](auto& v) { return mgr_.GetAttrValueEx(name, v, dbName); });
    }
    static std::string Own(bool own) { return own ? "yes " : "no "; }
    // A lookup in one form: where the record found lies (as a spanning walk
    // meets it) and its name, the status afterwards and the handle out.
    template <class Lookup, class Walk, class Key>
    std::string Look(Lookup lookup, Walk walk, Key key, const Form& form) {
        const char* out = nullptr;
        TavloManagerAccess::SetStatus(mgr_, 99);
        const auto* found = [&] {
            if constexpr (std::is_invocable_v<Lookup, TavloManager&, Key, TavloSelection>) {
                if (form.kind == Form::kSelected) {
                    return lookup(mgr_, key, form.selection);
                }
                if (form.kind == Form::kSelectedOut) {
                    return lookup(mgr_, key, form.selection, &out);
                }
            }
            if (form.kind == Form::kAll) {
                return lookup(mgr_, key, nullptr);
            }
            return form.kind == Form::kOut ? lookup(mgr_, key, &out)
                                           : lookup(mgr_, key, form.dbName);
        }();
        std::string where = "(null)";
        for (auto it = walk(mgr_, static_cast<const char*>(nullptr)); !it.AtEnd(); ++it) {
            if (*it == found) {
                where = HandleName(it.GetDatabaseName()) + "/" + NameOf(found);
            }
        }
        return where + " " + Status() + " " + (out != nullptr ? HandleName(out) : "untouched");
    }
    // A handle's name in the questions; only the very handles have one.
    std::string HandleName(const char* handle) const {
        for (const char* name : {"Pt", "Diag", "Body", "Extras", "Names"}) {
            if (Handle(name) == handle) {
                return name;
            }
        }
        return "(no handle)";
    }
    Form FormOf(const std::string& text) const {
        if (text == "*" || text == "out") {
            return {text == "*" ? Form::kAll : Form::kOut, nullptr, {}};
        }
        const std::size_t slash = text.find('/');
        if (slash == std::string::npos) {
            return {Form::kHandle, Handle(text), {}};
        }
        const auto number = [](const std::string& part) {
            return part.rfind("any", 0) == 0 ? 0xFFFFFFFFu : unsigned(std::stoul(part));
        };
        const unsigned int major = number(text.substr(0, slash));
        const auto minor = static_cast<unsigned short>(number(text.substr(slash + 1)));
        return {text.back() == '>' ? Form::kSelectedOut : Form::kSelected, nullptr, {major, minor}};
    }

    // The status after a call that began at 99; - for unchanged.
    std::string Status() const {
        return mgr_.GetStatus() == 99 ? "-" : std::to_string(mgr_.GetStatus());
    }

    // The answer to one question of queries.txt, written as the file writes it.
    std::string Answer(const std::vector<std::string>& f) {
        const std::string& query = f[0];
        const auto text = [&f](std::size_t i) {
            return f[i] == "(null)" ? nullptr : f[i] == "\"\"" ? "" : f[i].c_str();
        };
        const auto number = [](long long n) { return std::to_string(n); };
        if (query == "find") {
            const Form form = FormOf(f[3]);
            const char* key = f[2].c_str();
            const unsigned long id = std::strtoul(key, nullptr, 10);
            const auto timing = static_cast<unsigned short>(id);
#define LOOK(lookup, walk, key) [&] { return Look(CALL(lookup), CALL(walk), key, form); }
            const std::map<std::string, std::function<std::string()>> kinds = {
                {"node", LOOK(GetNode, GetNodeIterator, key)},
                {"message", LOOK(GetMessage, GetMessageIterator, key)},
                {"id", LOOK(GetMessage, GetMessageIterator, id)},
                {"envvar", LOOK(GetEnvvar, GetEnvvarIterator, key)},
                {"timing", LOOK(GetBitTiming, GetBitTimingIterator, timing)},
                {"definition", LOOK(GetAttrDefinition, GetAttrDefIterator, key)},
                {"category", LOOK(GetCategory, GetCategoryIterator, key)},
                {"type", LOOK(GetSignalType, GetSignalTypeIterator, key)},
                {"table", LOOK(GetValueTable, GetValueTableIterator, key)}};
#undef LOOK
            return kinds.at(f[1])();
        }
        if (query == "default") {  // a text, not a number, for a STRING or an ENUM
            const tavlo_attr_value_t value = mgr_.GetAttrDefault(f[1].c_str(), Handle(f[2]));
            const attr_def* def = mgr_.GetAttrDefinition(f[1].c_str(), Handle(f[2]));
            const bool text = def != nullptr && def->value_type != TAVLO_ATTR_INT &&
                              def->value_type != TAVLO_ATTR_FLOAT;
            return (text ? "text " : Number(value) + " ") + Ex([&](auto& v) {
                       return mgr_.GetAttrDefaultEx(f[1].c_str(), v, Handle(f[2]));
                   });
        }
        if (query == "defined") {
            const std::string types[] = {"-",       "BU_",        "BO_",        "SG_",       "EV_",
                                         "SGTYPE_", "BU_SG_REL_", "BU_BO_REL_", "BU_EV_REL_"};
            const auto type = std::find(std::begin(types), std::end(types), f[2]) - types;
            const bool defined =
                mgr_.IsAttributeDefined(f[1].c_str(), static_cast<tavlo_obj_t>(type), Handle(f[3]));
            return defined ? "yes" : "no";
        }
        if (query == "textof") {
            return Text(mgr_.GetAttrValueString(f[1].c_str(), std::stol(f[2]), Handle(f[3])), true);
        }
        if (query == "indexof") {
            return number(mgr_.GetAttrValueIndex(f[1].c_str(), text(2), Handle(f[3])));
        }
        if (query == "count" && f[2].find('/') == std::string::npos) {
            using Count = unsigned int (TavloManager::*)(const char*) const;
            const std::map<std::string, Count> counts = {
                {"nodes", &TavloManager::NodeCount},
                {"messages", &TavloManager::MessageCount},
                {"envvars", &TavloManager::EnvvarCount},
                {"timings", &TavloManager::BitTimingCount},
                {"definitions", &TavloManager::AttrDefinitionCount},
                {"categories", &TavloManager::CategoryCount},
                {"types", &TavloManager::SignalTypeCount},
                {"tables", &TavloManager::ValueTableCount},
                {"values", &TavloManager::AttributeCount}};
            return number(f[1] == "databases" ? mgr_.DatabaseCount()
                                              : (mgr_.*counts.at(f[1]))(Handle(f[2])));
        }
        Named named = Find(f[query == "count" ? 2 : 1]);
        if (query == "owneras") {  // a receiver asked for as a transmitter
            named.relation = TAVLO_OBJ_NODE_MESSAGE;
        }
        TavloManagerAccess::SetStatus(mgr_, 99);
        return std::visit([&](auto* record) -> std::string {
            using Record = std::remove_const_t<std::remove_pointer_t<decltype(record)>>;
            if constexpr (std::is_same_v<Record, char>) {
                return Ask(record, f[2].c_str(), Handle(f[3]));
            } else {
                const bool relation = std::is_same_v<Record, rxblk>;
                if (query == "owner" || query == "owneras") {
                    if constexpr (relation) return Text(mgr_.GetDatabaseName(*record, named.relation));
                    else return Text(mgr_.GetDatabaseName(*record));
                }
                if constexpr (std::is_same_v<Record, attr_def>) {
                    return query == "text"
                               ? Text(mgr_.GetAttrValueString(*record, std::stol(f[2])), true)
                               : number(mgr_.GetAttrValueIndex(*record, text(2)));
                }
                if constexpr (std::is_same_v<Record, siggroupblk>) {
                    return query == "count" ? number(mgr_.SignalCount(*record))
                                            : NameOf(mgr_.GetSignal(*record, f[2].c_str()));
                }
                if constexpr (std::is_same_v<Record, msgblk>) {
                    if (query == "signal") return NameOf(mgr_.GetSignal(*record, f[2].c_str()));
                    if (query == "group") return NameOf(mgr_.GetSignalGroup(*record, f[2].c_str()));
                    if (query == "mode") return NameOf(mgr_.GetModeSignal(*record));
                    if (f[1] == "signals") return number(mgr_.SignalCount(*record));
                    if (f[1] == "groups") return number(mgr_.SignalGroupCount(*record));
                }
                if constexpr (std::is_same_v<Record, env_var_blk>) {
                    if (query == "handle") {
                        const unsigned long handle = mgr_.GetEnvvarHandle(record, Handle(f[2]));
                        return number(handle) + " " + Status();
                    }
                }
                if constexpr (kOneOf<Record, sigblk, env_var_blk>) {
                    if (query == "description") {
                        const char* found = mgr_.GetValueDescription(*record, std::stol(f[2]));
                        return Text(found) + " " + Status();
                    }
                    if (query == "value") {
                        const long value = mgr_.GetDescriptionValue(*record, f[2].c_str());
                        return std::to_string(value) + " " + Status();
                    }
                }
                if constexpr (kOneOf<Record, symblk, msgblk, env_var_blk, sigblk>) {
                    if (query == "count") return number(mgr_.AttributeCount(*record));
                }
                if constexpr (relation) return Ask(*record, f[2].c_str(), Handle(f[3]), named.relation);
                if constexpr (kOneOf<Record, symblk, msgblk, env_var_blk, sigtype, sigblk>) {
                    return Ask(*record, f[2].c_str(), Handle(f[3]));
                }
                return "no such question";
            }
        }, named.record);
    }

    TavloDatabase outside_{DataFile("body.dbc").c_str()};
    const char* names_ = nullptr;
};

TEST_F(QueryTest, EveryQuestionOfTheDataFilesGetsItsAnswer) {
    std::vector<std::pair<std::string, CaseLine>> cases;
    for (const char* file : {"lookups.txt", "queries.txt"}) {
        for (const CaseLine& c : ReadCases(file)) {
            cases.emplace_back(file, c);
        }
    }
    ASSERT_GT(cases.size(), 230u);
    for (const auto& [file, c] : cases) {
        SCOPED_TRACE(file + ":" + std::to_string(c.number));
        const auto equals = std::find(c.fields.begin(), c.fields.end(), "=");
        ASSERT_NE(equals, c.fields.end());
        std::string expected;
        for (auto word = equals + 1; word != c.fields.end(); ++word) {
            expected += (word == equals + 1 ? "" : " ") + *word;
        }
        EXPECT_EQ(Answer({c.fields.begin(), equals}), expected);
    }
}

TEST_F(QueryTest, TextValuesAndDefaultsAreTheRecordsOwnTexts) {
    const symblk& engine = *Db(pt_).GetNode("Engine");
    EXPECT_STREQ(+mgr_.GetAttrValue(engine, "NodeLayer").text, "hw");
    tavlo_attr_value_t text = AttrNumber(-1);
    EXPECT_EQ(mgr_.GetAttrValueEx(engine, text, "NodeLayer", nullptr), 0u);
    EXPECT_EQ(+text.text, +engine.attributes->value.text);
    const tavlo_attr_value_t layer = Db(pt_).GetAttrDef("NodeLayer")->default_value;
    EXPECT_EQ(+mgr_.GetAttrValue(*Db(pt_).GetNode("Gateway"), "NodeLayer").text, +layer.text);
    // Though Body's is an INT, Pt comes first.
    EXPECT_EQ(+mgr_.GetAttrDefault("NodeLayer", nullptr).text, +layer.text);
    const msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    const sigblk& speed = *engineData.signals;
    const tavlo_attr_value_t mode = Db(pt_).GetAttrDef("SigMode")->default_value;
    EXPECT_EQ(+mgr_.GetAttrValue(speed, "SigMode").text, +mode.text);
    EXPECT_EQ(Ex([&](auto& v) { return mgr_.GetAttrValueEx(speed, v, "SigMode", nullptr); }),
              "0 1");  // an own ENUM value is an index, and so is the default here
    // Without a handle the first database in list order that has a value answers.
    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", nullptr).text, "Powertrain");
    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", extras_).text, "Extras");
    EXPECT_EQ(mgr_.GetAttrValueEx("DBName", text, nullptr), 0u);
    EXPECT_STREQ(+text.text, "Powertrain");
    // Descriptions hold 32-bit values: a wider one is matched on its low
    // 32 bits, as a raw word 0xFFFFFFFF is the description of -1. The text
    // is the record's own.
    const sigblk& temp = *speed.next;
    if (sizeof(long) > sizeof(int)) {
        EXPECT_STREQ(mgr_.GetValueDescription(temp, static_cast<long>(0x100000000LL + 2)), "Hot");
    }
    EXPECT_EQ(mgr_.GetValueDescription(temp, 0), temp.value_descriptions->text);
}

TEST_F(QueryTest, PatternsAndPrioritiesOfEntries) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* pt = Open(mgr, DataFile("powertrain.dbc"), nullptr, 7);
    EXPECT_EQ(mgr.GetPriority(pt), 7u);
    const TavloSelectionPattern& pattern = mgr.GetSelectionPattern(pt);
    EXPECT_EQ(pattern.major, 0xFFFFFFFFu);  // entries start with the wildcard
    EXPECT_EQ(pattern.minor, 0xFFFFu);
    EXPECT_TRUE(mgr.AssignSelectionPattern({1, 2}, pt));
    EXPECT_EQ(pattern.major, 1u);  // the reference is the entry's own pattern
    EXPECT_EQ(pattern.minor, 2u);
    // Unknown handles: status 2, nothing assigned, the process-wide wildcard.
    const std::string unknown = pt;
    EXPECT_EQ(mgr.GetPriority(unknown.c_str()), 0u);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_TRUE(mgr.AssignSelectionPattern({1, 2}, pt));  // status 0 again
    EXPECT_FALSE(mgr.AssignSelectionPattern({3, 3}, unknown.c_str()));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(mgr.GetPriority(pt), 7u);
    const TavloSelectionPattern& wildcard = mgr.GetSelectionPattern(unknown.c_str());
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(wildcard.major + wildcard.minor, 0xFFFFFFFFu + 0xFFFFu);
    EXPECT_EQ(&mgr_.GetSelectionPattern(nullptr), &wildcard);
    EXPECT_EQ(pattern.major, 1u);
}

// ---- Iterators ------------------------------------------------------------------

TEST_F(QueryTest, SpanningWalksSkipEmptyDatabasesAndNameTheHolder) {
    const Seen nodes = {{pt_, "Engine"},   {pt_, "Gateway"},      {pt_, "Gearbox"},
                        {body_, "Gateway"}, {body_, "Door"},       {body_, "Light"},
                        {extras_, "Gateway"}, {extras_, "Alpha"}, {extras_, "Door"},
                        {names_, "A"}};
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(nullptr)), nodes);
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(body_)), Seen(nodes.begin() + 3, nodes.end() - 4));
    EXPECT_TRUE(mgr_.GetNodeIterator(diag_).AtEnd());
    auto unknown = mgr_.GetNodeIterator(unknown_.c_str());
    EXPECT_EQ(*unknown, nullptr);
    EXPECT_EQ(unknown.GetDatabaseName(), unknown_.c_str());  // as given
    ++unknown;  // at the end an iterator stays there
    EXPECT_TRUE(unknown.AtEnd());
    std::vector<const char*> names;
    for (const char* name : mgr_.GetDatabaseNameIterator()) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<const char*>{pt_, diag_, body_, extras_, names_}));
    TavloManager empty(static_cast<void*>(nullptr));
    EXPECT_TRUE(empty.GetDatabaseNameIterator().AtEnd());
    EXPECT_TRUE(empty.GetNodeIterator(nullptr).AtEnd());
}

TEST_F(QueryTest, PredicatesSeeTheManagerAndTheHoldingDatabase) {
    NamePredicate<symblk> gateways({"Gateway"});
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(gateways, nullptr)),
              (Seen{{pt_, "Gateway"}, {body_, "Gateway"}, {extras_, "Gateway"}}));
    ASSERT_EQ(gateways.asked.size(), 10u);
    EXPECT_EQ(gateways.asked.front(), std::make_pair<const TavloManager*>(&mgr_, pt_));
    EXPECT_EQ(gateways.asked.back(), std::make_pair<const TavloManager*>(&mgr_, names_));
    NamePredicate<symblk> none({});
    EXPECT_TRUE(mgr_.GetNodeIterator(none, nullptr).AtEnd());
    NamePredicate<symblk> door({"Door"});
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(door, body_)), (Seen{{body_, "Door"}}));

    // Per object: the owner's handle, the one given, or none for a record
    // of no database of the manager.
    const msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    NamePredicate<sigblk> oil({"OilPressure", "OilLevel"});
    EXPECT_EQ(Names(mgr_.GetSignalIterator(oil, engineData)),
              (std::vector<std::string>{"OilPressure", "OilLevel"}));
    EXPECT_EQ(oil.asked.front().second, pt_);
    NamePredicate<sigblk> mux({"Mux"});
    EXPECT_EQ(Walk(mgr_.GetSignalIterator(mux, engineData, "label")), (Seen{{"label", "Mux"}}));
    NamePredicate<sigblk> all({"DoorOpen", "Window"});
    EXPECT_EQ(Names(mgr_.GetSignalIterator(all, *outside_.mMessages)).size(), 2u);
    EXPECT_EQ(all.asked.front().second, nullptr);
}

TEST_F(QueryTest, RelationsFiltersAndMembersStandInTheNoneRecordsForWhatTheyNameNot) {
    const TavloDatabase& pt = Db(pt_);
    const msgblk& engineData = *pt.GetMessage("EngineData");
    const auto nodes = [](TavloConstReceiverIterator it) {
        std::vector<std::string> names;
        for (; !it.AtEnd(); ++it) {
            names.emplace_back(it.GetNode()->name);
        }
        EXPECT_EQ(it.GetNode(), nullptr);
        return names;
    };
    using Names2 = std::vector<std::string>;
    EXPECT_EQ(nodes(mgr_.GetReceiverIterator(*engineData.signals)), (Names2{"Gateway", "Gearbox"}));
    EXPECT_EQ(nodes(mgr_.GetTransmitterIterator(engineData)), (Names2{"Engine", "Gateway"}));
    EXPECT_EQ(nodes(mgr_.GetReceiverIterator(*pt.GetEnvvar("PtEnvA"))), (Names2{"Engine", "Gateway"}));
    EXPECT_EQ(nodes(mgr_.GetFilterNodeIterator(pt_)), (Names2{"Engine", "None"}));
    EXPECT_EQ(mgr_.GetFilterNodeIterator(pt_).mCurrent->next->symbol, nullptr);
    EXPECT_EQ(Names(mgr_.GetFilterCategoryIterator(pt_)), (Names2{"Drive", "None"}));
    EXPECT_TRUE(mgr_.GetFilterCategoryIterator(body_).AtEnd());

    // Membership is identity: body's Gateway is another record.
    EXPECT_TRUE(mgr_.IsNodeInFilter(*pt.GetNode("Engine"), pt_));
    EXPECT_TRUE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), pt_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*pt.GetNode("Gateway"), pt_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*Db(body_).GetNode("Gateway"), pt_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), body_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*pt.mCategories, pt_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*TAVLONONEFILTERCATEGORY(), pt_));
    EXPECT_FALSE(mgr_.IsCategoryInFilter(*Db(body_).mCategories, pt_));

    // A group member that names no signal: None, and passed over by name.
    const siggroupblk& group = *engineData.signal_groups;
    sigblk* kept = group.signals->signal;
    group.signals->signal = nullptr;
    EXPECT_EQ(Names(mgr_.GetSubsignalIterator(group)), (Names2{"None", "EngineTemp"}));
    EXPECT_EQ(mgr_.GetSignal(group, "EngineTemp"), +kept->next);
    group.signals->signal = kept;
}

}  // namespace
}  // namespace tavlo::test
