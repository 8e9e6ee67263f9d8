// tests/manager/writelookup_test.cpp: the write manager's lookups and
// iterators with non-const results. They must find the very records, in the
// very order and with the same statuses, that the read manager's const forms
// find, hand them out for editing, and give way to the const forms wherever
// the manager, the object asked about or the predicate is const.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

// The type a call gives, checked when the test is compiled.
#define EXPECT_RESULT_TYPE(call, Type) \
    static_assert(std::is_same_v<decltype(call), Type>, #call " gives the wrong type")

using W = TavloWriteManager;

constexpr unsigned int kAnyMajor = 0xFFFFFFFFu;
constexpr unsigned short kAnyMinor = 0xFFFFu;

// Stands in for "left untouched" in out parameters.
const char* const kUntouched = "untouched";

// A fourth database for what the data files lack: signal types, attribute
// values of an environment variable, a signal type and transmitter and
// access node relations. It shares a node name and a value table name with
// the data files.
const char* const kExtrasText =
    "VERSION \"extras\"\n\nNS_ :\n\nBS_:\n\nBU_: Gateway Alpha\n\n"
    "VAL_TABLE_ GearTable 1 \"One\" 0 \"Zero\" ;\n\n"
    "BO_ 300 Frame: 8 Alpha\n"
    " SG_ Level : 0|8@1+ (1,0) [0|255] \"\" Gateway,Alpha\n"
    " SG_ Mode : 8|4@1+ (1,0) [0|15] \"\" Gateway\n\n"
    "BO_TX_BU_ 300 : Alpha,Gateway;\n\n"
    "EV_ Knob: 0 [0|10] \"\" 0 1 DUMMY_NODE_CORVAN0 Alpha,Gateway;\n\n"
    "SGTYPE_ Raw8 : 8@1+ (1,0) [0|255] \"\" 0;\n"
    "SGTYPE_ Raw16 : 16@1+ (1,0) [0|65535] \"\" 0;\n"
    "BA_DEF_ EV_  \"EnvLevel\" INT 0 10;\n"
    "BA_DEF_  \"TypeRank\" INT 0 100;\n"
    "BA_DEF_SGTYPE_ \"TypeRank\";\n"
    "BA_DEF_REL_ BU_BO_REL_  \"TxDelay\" INT 0 100;\n"
    "BA_DEF_REL_ BU_EV_REL_  \"AccessRank\" INT 0 100;\n"
    "BA_DEF_DEF_  \"EnvLevel\" 1;\n"
    "BA_DEF_DEF_  \"TypeRank\" 2;\n"
    "BA_DEF_DEF_REL_ \"TxDelay\" 3;\n"
    "BA_DEF_DEF_REL_ \"AccessRank\" 4;\n"
    "BA_ \"EnvLevel\" EV_ Knob 5;\n"
    "BA_SGTYPE_ \"TypeRank\" SGTYPE_ Raw8 6;\n"
    "BA_REL_ \"TxDelay\" BU_BO_REL_ Gateway 300 7;\n"
    "BA_REL_ \"AccessRank\" BU_EV_REL_ Gateway Knob 8;\n"
    "VAL_ Knob 0 \"Off\" 1 \"On\" ;\n"
    "SIG_GROUP_ 300 Pair 1 : Level Mode;\n";

// What an iterator yields, step by step: what `*` gives, the record under
// it, and the database it says the record comes from.
using Step = std::tuple<const void*, const void*, const char*>;

template <class Iterator>
std::vector<Step> Walk(Iterator it) {
    std::vector<Step> steps;
    for (; !it.AtEnd(); ++it) {
        steps.emplace_back(*it, it.mCurrent, it.GetDatabaseName());
    }
    return steps;
}

// Accepts the first element it is asked about and every second one after,
// noting each question: the element, the manager and the database named.
template <class Pointer>
class EverySecond : public TavloPredicate<Pointer> {
public:
    bool Accept(Pointer element, const TavloManager& manager, const char* dbName) override {
        asked.emplace_back(element, &manager, dbName);
        return asked.size() % 2 == 1;
    }
    std::vector<std::tuple<const void*, const TavloManager*, const char*>> asked;
};

// Powertrain (priority 2), diagnosis and body (1), the extras (0), in that
// order, all in one write manager.
class WriteLookupTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        ASSERT_EQ(wm_.OpenDatabase(DataFile("powertrain.dbc").c_str(), &powertrain_, 2), 0u);
        ASSERT_EQ(wm_.OpenDatabase(DataFile("diagnosis.dbc").c_str(), &diagnosis_, 1), 0u);
        ASSERT_EQ(wm_.OpenDatabase(DataFile("body.dbc").c_str(), &body_, 1), 0u);
        LinkPowertrainFilterNodes(*wm_.GetDatabase(powertrain_));
        const std::string extras = WriteFile("extras.dbc", kExtrasText);
        ASSERT_EQ(wm_.OpenDatabase(extras.c_str(), &extras_, 0), 0u);
        ASSERT_TRUE(shown_.messages().empty()) << shown_.messages().front().text;
        std::vector<const char*> order;
        for (const char* name : wm_.GetDatabaseNameIterator()) {
            order.push_back(name);
        }
        ASSERT_EQ(order, (std::vector<const char*>{powertrain_, diagnosis_, body_, extras_}));
    }

    // Sets the status through a call that reports one, so that a lookup is
    // seen to set it.
    void ForceStatus(unsigned int status) {
        const std::string unknown = "NoSuchDatabase";
        wm_.GetPriority(status == TAVLO_STATUS_OK ? powertrain_ : unknown.c_str());
        ASSERT_EQ(wm_.GetStatus(), status);
    }

    TavloDatabase& Db(const char* handle) { return *wm_.GetDatabase(handle); }

    // Every form of one per-object iterator, on the write manager and on the
    // same manager as const: with dbName and, where the kind has them,
    // without it and with a predicate. The forms without dbName must tell
    // the predicate owner. Returns how many elements the plain form yields.
    template <class Record, bool kOwnForms, bool kPredicateForms, class Object, class Get>
    std::size_t CompareForms(Object& object, const char* owner, Get get) {
        static_assert(!std::is_const_v<Object>);
        const char* const label = "any label";
        EXPECT_RESULT_TYPE(get(wm_, object, owner).mCurrent, Record*);
        EXPECT_RESULT_TYPE(get(cwm_, object, owner).mCurrent, const Record*);
        const std::vector<Step> plain = Walk(get(wm_, object, owner));
        EXPECT_EQ(plain, Walk(get(cwm_, object, owner)));
        EXPECT_EQ(Walk(get(wm_, object, label)), Walk(get(cwm_, object, label)));
        if constexpr (kOwnForms) {
            EXPECT_RESULT_TYPE(get(wm_, object).mCurrent, Record*);
            EXPECT_RESULT_TYPE(get(cwm_, object).mCurrent, const Record*);
            EXPECT_EQ(Walk(get(wm_, object)), plain);
            EXPECT_EQ(Walk(get(cwm_, object)), plain);
        }
        if constexpr (kPredicateForms) {
            EverySecond<Record*> predicate;
            EverySecond<const Record*> constPredicate;
            EXPECT_RESULT_TYPE(get(wm_, predicate, object, label).mCurrent, Record*);
            EXPECT_RESULT_TYPE(get(cwm_, constPredicate, object, label).mCurrent,
                               const Record*);
            const std::vector<Step> filtered = Walk(get(wm_, predicate, object, label));
            EXPECT_EQ(filtered, Walk(get(cwm_, constPredicate, object, label)));
            EXPECT_EQ(predicate.asked, constPredicate.asked);
            EXPECT_EQ(predicate.asked.size(), plain.size());
            EXPECT_EQ(filtered.size(), (plain.size() + 1) / 2);
            for (const auto& [element, manager, dbName] : predicate.asked) {
                EXPECT_EQ(manager, &wm_);
                EXPECT_EQ(dbName, label);
            }
            if constexpr (kOwnForms) {
                EverySecond<Record*> own;
                EverySecond<const Record*> constOwn;
                EXPECT_RESULT_TYPE(get(wm_, own, object).mCurrent, Record*);
                EXPECT_RESULT_TYPE(get(cwm_, constOwn, object).mCurrent, const Record*);
                EXPECT_EQ(Walk(get(wm_, own, object)), Walk(get(cwm_, constOwn, object)));
                EXPECT_EQ(own.asked, constOwn.asked);
                for (const auto& [element, manager, dbName] : own.asked) {
                    EXPECT_EQ(dbName, owner);
                }
            }
        }
        return plain.size();
    }

    TavloWriteManager wm_{static_cast<void*>(nullptr)};
    const TavloWriteManager& cwm_ = wm_;  // the same manager, const
    const char* powertrain_ = nullptr;
    const char* diagnosis_ = nullptr;
    const char* body_ = nullptr;
    const char* extras_ = nullptr;
};

// ---- Lookups --------------------------------------------------------------------

// One key of one lookup kind in every form the kind has, on the write
// manager and on it as const. The non-const forms are held as giving void*,
// which a const record does not convert to: a call that fell back to a const
// form would not compile.
struct Probe {
    std::string what;
    std::function<void*(TavloDatabase&)> in;  // the record in one database
    std::function<void*(W&, const char*)> within;
    std::function<const void*(const W&, const char*)> withinConst;
    std::function<void*(W&)> all;  // the nullptr form
    std::function<const void*(const W&)> allConst;
    std::function<void*(W&, const char**)> anywhere;
    std::function<const void*(const W&, const char**)> anywhereConst;
    // Empty for kinds without selection forms.
    std::function<void*(W&, const TavloSelection&, const char**)> selected;
    std::function<const void*(const W&, const TavloSelection&, const char**)> selectedConst;
    std::function<void*(W&, const TavloSelection&)> selectedNoOut;
    std::function<const void*(const W&, const TavloSelection&)> selectedNoOutConst;
};

// get(manager, key, where...) calls the kind's overload for every form.
template <bool kSelectable, class Key, class In, class Get>
Probe MakeProbe(std::string what, Key key, In in, Get get) {
    Probe p;
    p.what = std::move(what);
    p.in = [key, in](TavloDatabase& db) -> void* { return in(db, key); };
    p.within = [key, get](W& m, const char* dbName) -> void* { return get(m, key, dbName); };
    p.withinConst = [key, get](const W& m, const char* dbName) -> const void* {
        return get(m, key, dbName);
    };
    p.all = [key, get](W& m) -> void* { return get(m, key, nullptr); };
    p.allConst = [key, get](const W& m) -> const void* { return get(m, key, nullptr); };
    p.anywhere = [key, get](W& m, const char** out) -> void* { return get(m, key, out); };
    p.anywhereConst = [key, get](const W& m, const char** out) -> const void* {
        return get(m, key, out);
    };
    if constexpr (kSelectable) {
        p.selected = [key, get](W& m, const TavloSelection& s, const char** out) -> void* {
            return get(m, key, s, out);
        };
        p.selectedConst = [key, get](const W& m, const TavloSelection& s,
                                     const char** out) -> const void* {
            return get(m, key, s, out);
        };
        p.selectedNoOut = [key, get](W& m, const TavloSelection& s) -> void* {
            return get(m, key, s);
        };
        p.selectedNoOutConst = [key, get](const W& m, const TavloSelection& s) -> const void* {
            return get(m, key, s);
        };
    }
    return p;
}

template <class Record>
Record* FirstNamed(Record* head, const char* name) {
    for (Record* record = head; record != nullptr; record = record->next) {
        if (std::string(record->name) == name) {
            return record;
        }
    }
    return nullptr;
}

Probe Node(const char* name) {
    return MakeProbe<true>(
        std::string("node ") + name, name,
        [](TavloDatabase& db, const char* k) { return db.GetNode(k); },
        [](auto& m, const char* k, auto... where) { return m.GetNode(k, where...); });
}

Probe MessageNamed(const char* name) {
    return MakeProbe<true>(
        std::string("message ") + name, name,
        [](TavloDatabase& db, const char* k) { return db.GetMessage(k); },
        [](auto& m, const char* k, auto... where) { return m.GetMessage(k, where...); });
}

Probe MessageId(unsigned long id) {
    return MakeProbe<true>(
        "message id " + std::to_string(id), id,
        [](TavloDatabase& db, unsigned long k) { return db.GetMessage(k); },
        [](auto& m, unsigned long k, auto... where) { return m.GetMessage(k, where...); });
}

Probe Envvar(const char* name) {
    return MakeProbe<true>(
        std::string("environment variable ") + name, name,
        [](TavloDatabase& db, const char* k) { return db.GetEnvvar(k); },
        [](auto& m, const char* k, auto... where) { return m.GetEnvvar(k, where...); });
}

Probe BitTiming(unsigned short number) {
    return MakeProbe<true>(
        "bit timing " + std::to_string(number), number,
        [](TavloDatabase& db, unsigned short k) { return db.GetBitTiming(k); },
        [](auto& m, unsigned short k, auto... where) { return m.GetBitTiming(k, where...); });
}

Probe AttrDefinition(const char* name) {
    return MakeProbe<false>(
        std::string("attribute definition ") + name, name,
        [](TavloDatabase& db, const char* k) { return db.GetAttrDef(k); },
        [](auto& m, const char* k, auto... where) { return m.GetAttrDefinition(k, where...); });
}

Probe Category(const char* name) {
    return MakeProbe<false>(
        std::string("category ") + name, name,
        [](TavloDatabase& db, const char* k) { return FirstNamed(db.mCategories, k); },
        [](auto& m, const char* k, auto... where) { return m.GetCategory(k, where...); });
}

Probe SignalType(const char* name) {
    return MakeProbe<true>(
        std::string("signal type ") + name, name,
        [](TavloDatabase& db, const char* k) { return db.GetSignalType(k); },
        [](auto& m, const char* k, auto... where) { return m.GetSignalType(k, where...); });
}

Probe ValueTable(const char* name) {
    return MakeProbe<true>(
        std::string("value table ") + name, name,
        [](TavloDatabase& db, const char* k) { return db.GetValueTable(k); },
        [](auto& m, const char* k, auto... where) { return m.GetValueTable(k, where...); });
}

std::vector<Probe> AllProbes() {
    return {Node("Gateway"),         Node("Door"),
            Node("Nobody"),          MessageNamed("GearData"),
            MessageNamed("Diag"),    MessageNamed("Frame"),
            MessageNamed("Nothing"), MessageId(512),
            MessageId(1024),         MessageId(2147484416ul),
            MessageId(7),            Envvar("PtEnvA"),
            Envvar("Knob"),          Envvar("Nothing"),
            BitTiming(500),          BitTiming(250),
            AttrDefinition("GenMsgCycleTime"), AttrDefinition("TypeRank"),
            AttrDefinition("Nothing"),         Category("Drive"),
            Category("Comfort"),     Category("Nothing"),
            SignalType("Raw8"),      SignalType("Raw16"),
            SignalType("Nothing"),   ValueTable("GearTable"),
            ValueTable("Nothing")};
}

TEST_F(WriteLookupTest, LookupsFindWhatTheConstFormsFind) {
    const std::string unknown = body_;  // the same text, not a handle
    const char* const handles[] = {powertrain_, diagnosis_, body_, extras_};
    std::size_t hits = 0;
    std::size_t keysInSeveralDatabases = 0;
    for (const Probe& p : AllProbes()) {
        SCOPED_TRACE(p.what);
        std::vector<void*> found;
        for (const char* handle : handles) {
            void* record = p.within(wm_, handle);
            EXPECT_EQ(record, p.in(Db(handle))) << handle;
            EXPECT_EQ(record, p.withinConst(cwm_, handle)) << handle;
            if (record != nullptr) {
                found.push_back(record);
            }
        }
        hits += found.size();
        keysInSeveralDatabases += found.size() > 1 ? 1 : 0;
        EXPECT_EQ(p.within(wm_, unknown.c_str()), nullptr);
        EXPECT_EQ(p.withinConst(cwm_, unknown.c_str()), nullptr);

        // All databases in list order: the first hit.
        void* first = found.empty() ? nullptr : found.front();
        EXPECT_EQ(p.within(wm_, static_cast<const char*>(nullptr)), first);
        EXPECT_EQ(p.all(wm_), first);
        EXPECT_EQ(p.allConst(cwm_), first);
        const char* out = kUntouched;
        const char* constOut = kUntouched;
        EXPECT_EQ(p.anywhere(wm_, &out), first);
        EXPECT_EQ(p.anywhereConst(cwm_, &constOut), first);
        EXPECT_EQ(out, constOut);
        if (first == nullptr) {
            EXPECT_EQ(out, kUntouched);
        } else {
            EXPECT_EQ(p.in(Db(out)), first);
        }
        EXPECT_EQ(p.anywhere(wm_, nullptr), first);
    }
    // Not a table of misses: most keys are found, several in more than one
    // database, where list order and handles decide.
    EXPECT_EQ(hits, 24u);
    EXPECT_EQ(keysInSeveralDatabases, 5u);
}

TEST_F(WriteLookupTest, SelectionFormsFindAndSetTheStatusAsTheConstFormsDo) {
    // body exact (1, 1); diagnosis (1, any); powertrain and extras wildcards.
    ASSERT_TRUE(wm_.AssignSelectionPattern({1, 1}, body_));
    ASSERT_TRUE(wm_.AssignSelectionPattern({1, kAnyMinor}, diagnosis_));
    const TavloSelection selections[] = {{1, 1}, {1, 2}, {9, 9}, {kAnyMajor, kAnyMinor}};
    std::map<unsigned int, std::size_t> statuses;  // status of a hit -> how often
    for (const Probe& p : AllProbes()) {
        if (!p.selected) {
            continue;
        }
        SCOPED_TRACE(p.what);
        for (const TavloSelection& s : selections) {
            SCOPED_TRACE(std::to_string(s.major) + "/" + std::to_string(s.minor));
            // Each form starts from either status and must end with the
            // const form's, whatever it found.
            for (const unsigned int before : {TAVLO_STATUS_OK, TAVLO_STATUS_NO_FILE}) {
                const char* out = kUntouched;
                ForceStatus(before);
                void* record = p.selected(wm_, s, &out);
                const unsigned int status = wm_.GetStatus();
                const char* constOut = kUntouched;
                ForceStatus(before == TAVLO_STATUS_OK ? TAVLO_STATUS_NO_FILE : TAVLO_STATUS_OK);
                EXPECT_EQ(record, p.selectedConst(cwm_, s, &constOut));
                EXPECT_EQ(status, cwm_.GetStatus());
                EXPECT_EQ(out, constOut);

                ForceStatus(before);
                EXPECT_EQ(p.selectedNoOut(wm_, s), record);
                EXPECT_EQ(wm_.GetStatus(), status);
                ForceStatus(before);
                EXPECT_EQ(p.selectedNoOutConst(cwm_, s), record);
                EXPECT_EQ(cwm_.GetStatus(), status);
                if (record != nullptr && before == TAVLO_STATUS_OK) {
                    ++statuses[status];
                }
            }
        }
    }
    // Both outcomes of a hit occur: an exact choice and a fallback.
    EXPECT_GT(statuses[TAVLO_STATUS_OK], 0u);
    EXPECT_GT(statuses[TAVLO_STATUS_NO_FILE], 0u);

    // The exact pattern wins over list order; a fallback says so.
    const char* out = nullptr;
    EXPECT_EQ(wm_.GetNode("Gateway", TavloSelection{1, 1}, &out), Db(body_).GetNode("Gateway"));
    EXPECT_EQ(out, body_);
    EXPECT_EQ(wm_.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(wm_.GetNode("Gateway", TavloSelection{9, 9}, &out),
              Db(powertrain_).GetNode("Gateway"));
    EXPECT_EQ(out, powertrain_);
    EXPECT_EQ(wm_.GetStatus(), TAVLO_STATUS_NO_FILE);
}

TEST_F(WriteLookupTest, LookupsInsideOneObject) {
    msgblk* engineData = wm_.GetMessage("EngineData", powertrain_);
    ASSERT_NE(engineData, nullptr);
    const msgblk& constData = *engineData;
    for (const char* name : {"EngineTemp", "Mux", "StatusWithAVeryLongSignalNameAb1",
                             "StatusWithAVeryLongSignalNameAb2", "Gear", "Nothing"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(wm_.GetSignal(*engineData, name), cwm_.GetSignal(constData, name));
    }
    sigblk* temp = wm_.GetSignal(*engineData, "EngineTemp");
    ASSERT_NE(temp, nullptr);
    EXPECT_EQ(temp, +engineData->signals->next);

    sigblk* mode = wm_.GetModeSignal(*engineData);
    ASSERT_NE(mode, nullptr);
    EXPECT_STREQ(mode->name, "Mux");
    EXPECT_EQ(mode, cwm_.GetModeSignal(constData));
    EXPECT_EQ(wm_.GetModeSignal(*wm_.GetMessage("GearData", powertrain_)), nullptr);

    siggroupblk* group = wm_.GetSignalGroup(*engineData, "EngineGroup");
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group, +engineData->signal_groups);
    EXPECT_EQ(group, cwm_.GetSignalGroup(constData, "EngineGroup"));
    EXPECT_EQ(wm_.GetSignalGroup(*engineData, "Nothing"), nullptr);

    const siggroupblk& constGroup = *group;
    EXPECT_EQ(wm_.GetSignal(*group, "EngineTemp"), temp);
    EXPECT_EQ(wm_.GetSignal(*group, "EngineTemp"), cwm_.GetSignal(constGroup, "EngineTemp"));
    EXPECT_EQ(wm_.GetSignal(*group, "Mux"), nullptr);  // in the message, not the group
}

TEST_F(WriteLookupTest, RecordsFoundCanBeEdited) {
    // A read manager with the same file shares the database object.
    TavloManager reader(static_cast<void*>(nullptr));
    const char* readerPt = nullptr;
    ASSERT_EQ(reader.OpenDatabase(DataFile("powertrain.dbc").c_str(), &readerPt, 0), 0u);

    symblk* engine = wm_.GetNode("Engine", powertrain_);
    ASSERT_NE(engine, nullptr);
    const std::string text = "replaced through the write manager";
    char* comment = static_cast<char*>(TAVLO_MALLOC(text.size() + 1));
    std::memcpy(comment, text.c_str(), text.size() + 1);
    TAVLO_MFREE(engine->comment);
    engine->comment = comment;
    EXPECT_STREQ(+cwm_.GetNode("Engine", powertrain_)->comment, text.c_str());
    EXPECT_STREQ(+reader.GetNode("Engine", readerPt)->comment, text.c_str());

    const char* holder = nullptr;
    msgblk* gearData = wm_.GetMessage(512ul, &holder);
    ASSERT_NE(gearData, nullptr);
    EXPECT_EQ(holder, powertrain_);
    gearData->dlc = 6;
    EXPECT_EQ(+reader.GetMessage("GearData", readerPt)->dlc, 6);

    // Through an iterator: a value description gets another value.
    sigblk* temp = wm_.GetSignal(*wm_.GetMessage("EngineData", powertrain_), "EngineTemp");
    ASSERT_NE(temp, nullptr);
    for (val* description : wm_.GetValueDescriptionIterator(*temp)) {
        if (std::string(description->text) == "Hot") {
            description->value = 7;
        }
    }
    EXPECT_STREQ(cwm_.GetValueDescription(*temp, 7), "Hot");
    EXPECT_EQ(reader.GetValueDescription(*temp, 2), nullptr);

    // And through a database-wide one.
    for (btlblk* timing : wm_.GetBitTimingIterator(powertrain_)) {
        timing->btr1 = 9;
    }
    EXPECT_EQ(+cwm_.GetBitTiming(500, powertrain_)->btr1, 9);
}

// ---- Iterators ------------------------------------------------------------------

TEST_F(WriteLookupTest, DatabaseWideIteratorsWalkWhatTheConstFormsWalk) {
    const std::string unknown = body_;
    const char* const where[] = {nullptr, powertrain_, diagnosis_, body_, extras_,
                                 unknown.c_str()};
    std::map<std::string, std::size_t> total;
    // get(manager, dbName) calls one kind's factory.
    auto compare = [&](const char* kind, auto get) {
        SCOPED_TRACE(kind);
        static_assert(!std::is_same_v<decltype(get(wm_, nullptr)), decltype(get(cwm_, nullptr))>,
                      "the write manager fell back to a const form");
        for (const char* dbName : where) {
            EXPECT_EQ(Walk(get(wm_, dbName)), Walk(get(cwm_, dbName)));
        }
        EXPECT_TRUE(get(wm_, unknown.c_str()).AtEnd());
        total[kind] = Walk(get(wm_, nullptr)).size();
    };
    compare("nodes", [](auto& m, const char* db) { return m.GetNodeIterator(db); });
    compare("messages", [](auto& m, const char* db) { return m.GetMessageIterator(db); });
    compare("envvars", [](auto& m, const char* db) { return m.GetEnvvarIterator(db); });
    compare("bit timings", [](auto& m, const char* db) { return m.GetBitTimingIterator(db); });
    compare("definitions", [](auto& m, const char* db) { return m.GetAttrDefIterator(db); });
    compare("signal types", [](auto& m, const char* db) { return m.GetSignalTypeIterator(db); });
    compare("value tables", [](auto& m, const char* db) { return m.GetValueTableIterator(db); });
    compare("categories", [](auto& m, const char* db) { return m.GetCategoryIterator(db); });
    compare("network values", [](auto& m, const char* db) { return m.GetAttributeIterator(db); });
    compare("filter nodes", [](auto& m, const char* db) { return m.GetFilterNodeIterator(db); });
    compare("filter categories",
            [](auto& m, const char* db) { return m.GetFilterCategoryIterator(db); });
    const std::map<std::string, std::size_t> expected = {
        {"nodes", 8},         {"messages", 7},       {"envvars", 4},
        {"bit timings", 1},   {"definitions", 13},   {"signal types", 2},
        {"value tables", 2},  {"categories", 2},     {"network values", 1},
        {"filter nodes", 2},  {"filter categories", 2}};
    EXPECT_EQ(total, expected);

    // Spanning: the holder's handle follows the walk across databases.
    std::vector<const char*> holders;
    for (auto it = wm_.GetNodeIterator(nullptr); !it.AtEnd(); ++it) {
        holders.push_back(it.GetDatabaseName());
        EXPECT_EQ(*it, Db(it.GetDatabaseName()).GetNode((*it)->name));
    }
    EXPECT_EQ(holders, (std::vector<const char*>{powertrain_, powertrain_, powertrain_, body_,
                                                 body_, body_, extras_, extras_}));
}

// Every form of a database-wide kind with a predicate, over every database
// and each one: the same elements, and the same questions asked.
template <class Record, class Get>
void ExpectSameFiltered(W& wm, const std::vector<const char*>& where, Get get) {
    for (const char* dbName : where) {
        EverySecond<Record*> predicate;
        EverySecond<const Record*> constPredicate;
        EXPECT_RESULT_TYPE(get(wm, predicate, dbName).mCurrent, Record*);
        EXPECT_RESULT_TYPE(get(std::as_const(wm), constPredicate, dbName).mCurrent,
                           const Record*);
        auto it = get(wm, predicate, dbName);
        EXPECT_NE(it.mType & TavloIterator<Record>::FilterIterator, 0u);
        const std::vector<Step> filtered = Walk(it);
        EXPECT_EQ(filtered, Walk(get(std::as_const(wm), constPredicate, dbName)));
        EXPECT_EQ(predicate.asked, constPredicate.asked);
        EXPECT_EQ(filtered.size(), (predicate.asked.size() + 1) / 2);
        for (const auto& [element, manager, holder] : predicate.asked) {
            EXPECT_EQ(manager, &wm);
            EXPECT_TRUE(dbName == nullptr ? holder != nullptr : holder == dbName);
        }
    }
}

TEST_F(WriteLookupTest, DatabaseWideIteratorsWithNonConstPredicates) {
    const std::vector<const char*> where = {nullptr, powertrain_, body_, extras_};
    ExpectSameFiltered<symblk>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetNodeIterator(p, db);
    });
    ExpectSameFiltered<msgblk>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetMessageIterator(p, db);
    });
    ExpectSameFiltered<env_var_blk>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetEnvvarIterator(p, db);
    });
    ExpectSameFiltered<btlblk>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetBitTimingIterator(p, db);
    });
    ExpectSameFiltered<attr_def>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetAttrDefIterator(p, db);
    });
    ExpectSameFiltered<sigtype>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetSignalTypeIterator(p, db);
    });
    ExpectSameFiltered<valtable>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetValueTableIterator(p, db);
    });
    ExpectSameFiltered<cat>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetCategoryIterator(p, db);
    });
    ExpectSameFiltered<attr>(wm_, where, [](auto& m, auto& p, const char* db) {
        return m.GetAttributeIterator(p, db);
    });

    // Across databases the predicate is told each holder, and filters: of
    // the eight nodes it keeps the first, third, ...
    EverySecond<symblk*> predicate;
    std::vector<std::string> kept;
    for (symblk* node : wm_.GetNodeIterator(predicate, nullptr)) {
        kept.emplace_back(node->name);
    }
    EXPECT_EQ(kept, (std::vector<std::string>{"Engine", "Gearbox", "Door", "Gateway"}));
    std::vector<const char*> told;
    for (const auto& [element, manager, holder] : predicate.asked) {
        told.push_back(holder);
    }
    EXPECT_EQ(told, (std::vector<const char*>{powertrain_, powertrain_, powertrain_, body_,
                                              body_, body_, extras_, extras_}));
}

TEST_F(WriteLookupTest, PerObjectIteratorsWalkWhatTheConstFormsWalk) {
    auto signals = [](auto& m, auto&... args) { return m.GetSignalIterator(args...); };
    auto groups = [](auto& m, auto&... args) { return m.GetSignalGroupIterator(args...); };
    auto members = [](auto& m, auto&... args) { return m.GetSubsignalIterator(args...); };
    auto receivers = [](auto& m, auto&... args) { return m.GetReceiverIterator(args...); };
    auto transmitters = [](auto& m, auto&... args) {
        return m.GetTransmitterIterator(args...);
    };
    auto values = [](auto& m, auto&... args) { return m.GetValueDescriptionIterator(args...); };
    auto attributes = [](auto& m, auto&... args) { return m.GetAttributeIterator(args...); };

    std::map<std::string, std::size_t> total;
    for (auto it = wm_.GetMessageIterator(nullptr); !it.AtEnd(); ++it) {
        msgblk& message = **it;
        const char* owner = it.GetDatabaseName();
        SCOPED_TRACE(message.name);
        total["signals"] += CompareForms<sigblk, true, true>(message, owner, signals);
        total["groups"] += CompareForms<siggroupblk, true, true>(message, owner, groups);
        total["transmitters"] += CompareForms<rxblk, true, true>(message, owner, transmitters);
        total["message values"] += CompareForms<attr, false, true>(message, owner, attributes);
        for (sigblk* signal : wm_.GetSignalIterator(message)) {
            total["receivers"] += CompareForms<rxblk, true, true>(*signal, owner, receivers);
            total["descriptions"] += CompareForms<val, true, false>(*signal, owner, values);
            total["signal values"] += CompareForms<attr, false, true>(*signal, owner, attributes);
            for (rxblk* receiver : wm_.GetReceiverIterator(*signal)) {
                total["receiver values"] +=
                    CompareForms<attr, false, true>(*receiver, owner, attributes);
            }
        }
        for (siggroupblk* group : wm_.GetSignalGroupIterator(message)) {
            total["members"] += CompareForms<siglistblk, true, true>(*group, owner, members);
        }
        for (rxblk* transmitter : wm_.GetTransmitterIterator(message)) {
            total["transmitter values"] +=
                CompareForms<attr, false, true>(*transmitter, owner, attributes);
        }
    }
    for (auto it = wm_.GetEnvvarIterator(nullptr); !it.AtEnd(); ++it) {
        env_var_blk& envvar = **it;
        const char* owner = it.GetDatabaseName();
        SCOPED_TRACE(envvar.name);
        total["access nodes"] += CompareForms<rxblk, true, true>(envvar, owner, receivers);
        total["descriptions"] += CompareForms<val, true, false>(envvar, owner, values);
        total["envvar values"] += CompareForms<attr, false, true>(envvar, owner, attributes);
        for (rxblk* access : wm_.GetReceiverIterator(envvar)) {
            total["access node values"] +=
                CompareForms<attr, false, true>(*access, owner, attributes);
        }
    }
    for (auto it = wm_.GetNodeIterator(nullptr); !it.AtEnd(); ++it) {
        total["node values"] +=
            CompareForms<attr, false, true>(**it, it.GetDatabaseName(), attributes);
    }
    for (auto it = wm_.GetSignalTypeIterator(nullptr); !it.AtEnd(); ++it) {
        total["signal type values"] +=
            CompareForms<attr, false, true>(**it, it.GetDatabaseName(), attributes);
    }
    const std::map<std::string, std::size_t> expected = {
        {"signals", 15},           {"groups", 2},          {"transmitters", 4},
        {"message values", 2},     {"receivers", 18},      {"descriptions", 9},
        {"signal values", 1},      {"receiver values", 1}, {"members", 4},
        {"transmitter values", 1}, {"access nodes", 5},    {"envvar values", 1},
        {"access node values", 1}, {"node values", 1},     {"signal type values", 1}};
    EXPECT_EQ(total, expected);
}

TEST_F(WriteLookupTest, PerObjectIteratorsYieldEditableRecords) {
    msgblk& engineData = *wm_.GetMessage("EngineData", powertrain_);
    siggroupblk& group = *wm_.GetSignalGroup(engineData, "EngineGroup");

    // A member without a signal still yields the None subsignal.
    siglistblk* second = group.signals->next;
    sigblk* kept = second->signal;
    second->signal = nullptr;
    std::vector<sigblk*> members;
    for (sigblk* member : wm_.GetSubsignalIterator(group)) {
        members.push_back(member);
    }
    EXPECT_EQ(members, (std::vector<sigblk*>{engineData.signals, TAVLONONESUBSIGNAL()}));
    second->signal = kept;

    // Receivers give their nodes, which may be edited.
    sigblk& speed = *engineData.signals;
    std::vector<std::string> names;
    for (auto it = wm_.GetReceiverIterator(speed); !it.AtEnd(); ++it) {
        symblk* node = it.GetNode();
        EXPECT_EQ(node, Db(powertrain_).GetNode(node->name));
        names.emplace_back(node->name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Gateway", "Gearbox"}));

    // An attribute value found through the iterator, changed, is what the
    // const queries read.
    attr* cycle = *wm_.GetAttributeIterator(engineData, powertrain_);
    ASSERT_NE(cycle, nullptr);
    cycle->value.number = 25.0;
    EXPECT_EQ(cwm_.GetAttrValue(engineData, "GenMsgCycleTime").number, 25.0);
}

TEST_F(WriteLookupTest, ViewFiltersYieldTheNoneEntriesAsTheConstFormsDo) {
    auto nodes = wm_.GetFilterNodeIterator(powertrain_);
    auto constNodes = cwm_.GetFilterNodeIterator(powertrain_);
    EXPECT_RESULT_TYPE(nodes, TavloReceiverIterator);
    EXPECT_RESULT_TYPE(constNodes, TavloConstReceiverIterator);
    std::vector<symblk*> filterNodes;
    for (; !nodes.AtEnd(); ++nodes, ++constNodes) {
        ASSERT_FALSE(constNodes.AtEnd());
        EXPECT_EQ(nodes.mCurrent, constNodes.mCurrent);
        EXPECT_EQ(nodes.GetNode(), constNodes.GetNode());
        filterNodes.push_back(nodes.GetNode());
    }
    EXPECT_TRUE(constNodes.AtEnd());
    EXPECT_EQ(filterNodes,
              (std::vector<symblk*>{Db(powertrain_).GetNode("Engine"), TAVLONONEFILTERNODE()}));

    std::vector<cat*> categories;
    for (cat* category : wm_.GetFilterCategoryIterator(powertrain_)) {
        categories.push_back(category);
    }
    EXPECT_EQ(categories, (std::vector<cat*>{Db(powertrain_).mCategories,
                                             TAVLONONEFILTERCATEGORY()}));
    EXPECT_EQ(Walk(wm_.GetFilterCategoryIterator(powertrain_)),
              Walk(cwm_.GetFilterCategoryIterator(powertrain_)));

    EXPECT_TRUE(wm_.GetFilterNodeIterator(body_).AtEnd());
    const std::string unknown = powertrain_;
    EXPECT_TRUE(wm_.GetFilterNodeIterator(unknown.c_str()).AtEnd());
    EXPECT_TRUE(wm_.GetFilterCategoryIterator(unknown.c_str()).AtEnd());
}

// ---- Which form is chosen ---------------------------------------------------------

TEST_F(WriteLookupTest, ConstnessOfManagerObjectAndPredicateChoosesTheForm) {
    msgblk& message = *wm_.GetMessage("EngineData", powertrain_);
    const msgblk& constMessage = message;
    sigblk& signal = *message.signals;
    const sigblk& constSignal = signal;
    siggroupblk& group = *message.signal_groups;
    env_var_blk& envvar = *wm_.GetEnvvar("PtEnvA", powertrain_);
    const char* out = nullptr;
    const TavloSelection any = {kAnyMajor, kAnyMinor};

    // Lookups.
    EXPECT_RESULT_TYPE(wm_.GetNode("Engine", nullptr), symblk*);
    EXPECT_RESULT_TYPE(cwm_.GetNode("Engine", nullptr), const symblk*);
    EXPECT_RESULT_TYPE(wm_.GetNode("Engine", powertrain_), symblk*);
    EXPECT_RESULT_TYPE(wm_.GetNode("Engine", &out), symblk*);
    EXPECT_RESULT_TYPE(cwm_.GetNode("Engine", &out), const symblk*);
    EXPECT_RESULT_TYPE(wm_.GetNode("Engine", any), symblk*);
    EXPECT_RESULT_TYPE(cwm_.GetNode("Engine", any, &out), const symblk*);
    EXPECT_RESULT_TYPE(wm_.GetMessage(256ul, nullptr), msgblk*);
    EXPECT_RESULT_TYPE(cwm_.GetMessage(256ul, any), const msgblk*);
    EXPECT_RESULT_TYPE(wm_.GetMessage("EngineData", any, &out), msgblk*);
    EXPECT_RESULT_TYPE(wm_.GetEnvvar("PtEnvA", nullptr), env_var_blk*);
    EXPECT_RESULT_TYPE(cwm_.GetEnvvar("PtEnvA", nullptr), const env_var_blk*);
    EXPECT_RESULT_TYPE(wm_.GetBitTiming(500, nullptr), btlblk*);
    EXPECT_RESULT_TYPE(cwm_.GetBitTiming(500, &out), const btlblk*);
    EXPECT_RESULT_TYPE(wm_.GetAttrDefinition("DBName", nullptr), attr_def*);
    EXPECT_RESULT_TYPE(cwm_.GetAttrDefinition("DBName", nullptr), const attr_def*);
    EXPECT_RESULT_TYPE(wm_.GetCategory("Drive", &out), cat*);
    EXPECT_RESULT_TYPE(cwm_.GetCategory("Drive", nullptr), const cat*);
    EXPECT_RESULT_TYPE(wm_.GetSignalType("Raw8", any), sigtype*);
    EXPECT_RESULT_TYPE(cwm_.GetSignalType("Raw8", nullptr), const sigtype*);
    EXPECT_RESULT_TYPE(wm_.GetValueTable("GearTable", nullptr), valtable*);
    EXPECT_RESULT_TYPE(cwm_.GetValueTable("GearTable", any), const valtable*);
    EXPECT_RESULT_TYPE(wm_.GetSignal(message, "Mux"), sigblk*);
    EXPECT_RESULT_TYPE(wm_.GetSignal(constMessage, "Mux"), const sigblk*);
    EXPECT_RESULT_TYPE(cwm_.GetSignal(message, "Mux"), const sigblk*);
    EXPECT_RESULT_TYPE(wm_.GetSignal(group, "Mux"), sigblk*);
    EXPECT_RESULT_TYPE(wm_.GetModeSignal(message), sigblk*);
    EXPECT_RESULT_TYPE(cwm_.GetModeSignal(message), const sigblk*);
    EXPECT_RESULT_TYPE(wm_.GetSignalGroup(message, "EngineGroup"), siggroupblk*);
    EXPECT_RESULT_TYPE(wm_.GetSignalGroup(constMessage, "EngineGroup"), const siggroupblk*);

    // Iterators.
    EverySecond<sigblk*> predicate;
    EverySecond<const sigblk*> constPredicate;
    EXPECT_RESULT_TYPE(wm_.GetSignalIterator(message), TavloIterator<sigblk>);
    EXPECT_RESULT_TYPE(wm_.GetSignalIterator(constMessage), TavloIterator<const sigblk>);
    EXPECT_RESULT_TYPE(cwm_.GetSignalIterator(message), TavloIterator<const sigblk>);
    EXPECT_RESULT_TYPE(wm_.GetSignalIterator(predicate, message), TavloIterator<sigblk>);
    EXPECT_RESULT_TYPE(wm_.GetSignalIterator(constPredicate, message),
                       TavloIterator<const sigblk>);
    EXPECT_RESULT_TYPE(wm_.GetSubsignalIterator(group), TavloSubsignalIterator);
    EXPECT_RESULT_TYPE(cwm_.GetSubsignalIterator(group), TavloConstSubsignalIterator);
    EXPECT_RESULT_TYPE(wm_.GetReceiverIterator(signal), TavloReceiverIterator);
    EXPECT_RESULT_TYPE(wm_.GetReceiverIterator(constSignal), TavloConstReceiverIterator);
    EXPECT_RESULT_TYPE(wm_.GetReceiverIterator(envvar, powertrain_), TavloReceiverIterator);
    EXPECT_RESULT_TYPE(wm_.GetTransmitterIterator(message), TavloReceiverIterator);
    EXPECT_RESULT_TYPE(cwm_.GetTransmitterIterator(message), TavloConstReceiverIterator);
    EXPECT_RESULT_TYPE(wm_.GetValueDescriptionIterator(signal), TavloIterator<val>);
    EXPECT_RESULT_TYPE(wm_.GetValueDescriptionIterator(constSignal), TavloIterator<const val>);
    EXPECT_RESULT_TYPE(wm_.GetAttributeIterator(nullptr), TavloIterator<attr>);
    EXPECT_RESULT_TYPE(cwm_.GetAttributeIterator(nullptr), TavloIterator<const attr>);
    EXPECT_RESULT_TYPE(wm_.GetAttributeIterator(signal, nullptr), TavloIterator<attr>);
    EXPECT_RESULT_TYPE(wm_.GetAttributeIterator(constSignal, nullptr),
                       TavloIterator<const attr>);
    EXPECT_RESULT_TYPE(wm_.GetNodeIterator(nullptr), TavloIterator<symblk>);
    EXPECT_RESULT_TYPE(cwm_.GetNodeIterator(nullptr), TavloIterator<const symblk>);
    EXPECT_RESULT_TYPE(wm_.GetFilterCategoryIterator(nullptr), TavloFilterCategoryIterator);
    EXPECT_RESULT_TYPE(cwm_.GetFilterCategoryIterator(nullptr),
                       TavloConstFilterCategoryIterator);
    // What the base alone offers is still there.
    EXPECT_RESULT_TYPE(wm_.GetDatabaseNameIterator(), TavloDatabaseNameIterator);
    EXPECT_RESULT_TYPE(wm_.GetEnvvarHandle(&envvar, nullptr), unsigned long);

    // The forms chosen by a const object or predicate on the non-const
    // manager walk the same lists.
    EXPECT_EQ(Walk(wm_.GetSignalIterator(constMessage)), Walk(wm_.GetSignalIterator(message)));
    const auto constFiltered = Walk(wm_.GetSignalIterator(constPredicate, message));
    EXPECT_EQ(Walk(wm_.GetSignalIterator(predicate, message)), constFiltered);
    EXPECT_EQ(predicate.asked, constPredicate.asked);
    EXPECT_EQ(constFiltered.size(), 4u);
    EXPECT_EQ(wm_.GetSignal(constMessage, "Mux"), wm_.GetModeSignal(message));
    EXPECT_EQ(wm_.GetEnvvarHandle(&envvar, nullptr), 3ul);
}

}  // namespace
}  // namespace tavlo::test
