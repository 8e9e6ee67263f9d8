// tests/manager/lookup_test.cpp: finding records across a manager's
// databases (by handle, in list order, by selection pattern) with the
// statuses and out parameters of every form, the entries' patterns and
// priorities, lookups inside one message or signal group, and the
// manager-wide handles of environment variables.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "manager/access.h"
#include "manager/fixture.h"

namespace tavlo::test {
namespace {

constexpr unsigned int kAny = 0xFFFFFFFFu;
constexpr unsigned short kAnyMinor = 0xFFFFu;
constexpr unsigned int kUnchanged = 99;  // a status no call sets
const char* const kUntouched = "untouched";

// The form of a lookup: (key, dbName), (key, nullptr), (key, &dbNameOut),
// (key, selection) or (key, selection, &dbNameOut).
struct Where {
    enum Form { kHandle, kAll, kOut, kSelected, kSelectedOut } form;
    const char* dbName;
    TavloSelection selection;
};

// A form as lookups.txt writes it.
Where WhereOf(const std::string& text, const std::map<std::string, const char*>& handles) {
    if (text == "*" || text == "out") {
        return {text == "*" ? Where::kAll : Where::kOut, nullptr, {}};
    }
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return {Where::kHandle, handles.at(text), {}};
    }
    const auto number = [](const std::string& part) {
        return part.rfind("any", 0) == 0 ? kAny : static_cast<unsigned int>(std::stoul(part));
    };
    return {text.back() == '>' ? Where::kSelectedOut : Where::kSelected, nullptr,
            {number(text.substr(0, slash)),
             static_cast<unsigned short>(number(text.substr(slash + 1)))}};
}

// One kind of lookup: the record one database holds under its exact name or
// key, and the manager's lookup in any form the kind has.
struct Kind {
    std::function<const void*(const TavloDatabase&, const char*)> in;
    std::function<const void*(const TavloManager&, const char*, const Where&, const char**)> find;
};

template <class Key>
Key KeyOf(const char* text) {
    if constexpr (std::is_same_v<Key, const char*>) {
        return text;
    } else {
        return static_cast<Key>(std::strtoul(text, nullptr, 10));
    }
}

template <bool kSelectable, class Key, class In, class Get>
Kind MakeKind(In in, Get get) {
    return {[in](const TavloDatabase& db, const char* key) -> const void* {
                return in(db, KeyOf<Key>(key));
            },
            [get](const TavloManager& m, const char* text, const Where& w,
                  const char** out) -> const void* {
                const Key key = KeyOf<Key>(text);
                switch (w.form) {
                    case Where::kHandle: return get(m, key, w.dbName);
                    case Where::kAll: return get(m, key, nullptr);
                    case Where::kOut: return get(m, key, out);
                    default: break;
                }
                if constexpr (kSelectable) {
                    return w.form == Where::kSelected ? get(m, key, w.selection)
                                                      : get(m, key, w.selection, out);
                }
                ADD_FAILURE() << "no selection forms";
                return nullptr;
            }};
}

template <class Record>
const Record* Exactly(const Record* list, const char* name) {
    while (list != nullptr && std::strcmp(list->name, name) != 0) {
        list = list->next;
    }
    return list;
}

using D = const TavloDatabase&;
const Kind kNode = MakeKind<true, const char*>([](D db, const char* k) { return db.GetNode(k); },
    [](auto& m, auto... a) { return m.GetNode(a...); });
const Kind kMessage = MakeKind<true, const char*>([](D db, const char* k) { return db.GetMessage(k); },
    [](auto& m, auto... a) { return m.GetMessage(a...); });
const Kind kMessageId = MakeKind<true, unsigned long>([](D db, unsigned long k) { return db.GetMessage(k); },
    [](auto& m, auto... a) { return m.GetMessage(a...); });
const Kind kEnvvar = MakeKind<true, const char*>([](D db, const char* k) { return db.GetEnvvar(k); },
    [](auto& m, auto... a) { return m.GetEnvvar(a...); });
const Kind kTiming = MakeKind<true, unsigned short>([](D db, unsigned short k) { return db.GetBitTiming(k); },
    [](auto& m, auto... a) { return m.GetBitTiming(a...); });
const Kind kDefinition = MakeKind<false, const char*>([](D db, const char* k) { return db.GetAttrDef(k); },
    [](auto& m, auto... a) { return m.GetAttrDefinition(a...); });
const Kind kCategory = MakeKind<false, const char*>([](D db, const char* k) { return Exactly(+db.mCategories, k); },
    [](auto& m, auto... a) { return m.GetCategory(a...); });
const Kind kType = MakeKind<true, const char*>([](D db, const char* k) { return db.GetSignalType(k); },
    [](auto& m, auto... a) { return m.GetSignalType(a...); });
const Kind kTable = MakeKind<true, const char*>([](D db, const char* k) { return db.GetValueTable(k); },
    [](auto& m, auto... a) { return m.GetValueTable(a...); });

// Besides the four databases, names32.dbc ("Names"), whose signal types,
// value tables and categories come in pairs that differ in their 32nd
// character only, the one looked for second; longer names in the file are
// cut to 32.
class LookupTest : public DataTest<TavloManager> {
protected:
    void SetUp() override {
        DataTest::SetUp();
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("names32.dbc").c_str(), &names_, "Names", 0), 0u);
    }
    const char* names_ = nullptr;
};

TEST_F(LookupTest, EveryFormFindsTheFirstHolderAndReportsAsItShould) {
    ASSERT_TRUE(mgr_.AssignSelectionPattern({6, kAnyMinor}, diag_));
    ASSERT_TRUE(mgr_.AssignSelectionPattern({5, kAnyMinor}, body_));
    ASSERT_TRUE(mgr_.AssignSelectionPattern({5, 7}, extras_));
    const std::map<std::string, const char*> handles = {
        {"Pt", pt_},         {"Diag", diag_},   {"Body", body_},           {"Extras", extras_},
        {"Names", names_},   {"-", nullptr},    {"?", unknown_.c_str()}};
    const std::map<std::string, const Kind*> kinds = {
        {"node", &kNode},     {"message", &kMessage},       {"id", &kMessageId},
        {"envvar", &kEnvvar}, {"timing", &kTiming},         {"definition", &kDefinition},
        {"category", &kCategory}, {"type", &kType},         {"table", &kTable}};
    const std::vector<CaseLine> cases = ReadCases("lookups.txt");
    ASSERT_GT(cases.size(), 50u);
    for (const CaseLine& c : cases) {
        SCOPED_TRACE("lookups.txt:" + std::to_string(c.number));
        ASSERT_GE(c.fields.size(), 4u);
        const Kind& kind = *kinds.at(c.fields[0]);
        const char* key = c.fields[1].c_str();
        const Where where = WhereOf(c.fields[2], handles);
        const char* holder = handles.at(c.fields[3]);
        const bool unchanged = c.fields.size() < 5 || c.fields[4] == "-";
        const char* stored = c.fields.size() > 5 ? c.fields[5].c_str() : key;
        const void* expected = holder != nullptr ? kind.in(*mgr_.GetDatabase(holder), stored) : nullptr;
        ASSERT_TRUE(holder == nullptr || expected != nullptr) << "not in the test data";

        TavloManagerAccess::SetStatus(mgr_, kUnchanged);
        const char* out = kUntouched;
        EXPECT_EQ(kind.find(mgr_, key, where, &out), expected);
        EXPECT_EQ(mgr_.GetStatus(), unchanged ? kUnchanged : std::stoul(c.fields[4]));
        const bool hasOut = where.form == Where::kOut || where.form == Where::kSelectedOut;
        EXPECT_EQ(out, hasOut && holder != nullptr ? holder : kUntouched);
    }
}

TEST_F(LookupTest, PatternsAndPrioritiesOfEntries) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* pt = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(DataFile("powertrain.dbc").c_str(), &pt, 7), 0u);
    const symblk* engine = mgr.GetNode("Engine", pt);
    EXPECT_EQ(mgr.GetNode("Engine", TavloSelection{1, 1}), engine);  // through the wildcard
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(mgr.GetPriority(pt), 7u);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    const TavloSelectionPattern& pattern = mgr.GetSelectionPattern(pt);
    EXPECT_EQ(pattern.major, kAny);  // entries start with the wildcard
    EXPECT_EQ(pattern.minor, kAnyMinor);
    EXPECT_TRUE(mgr.AssignSelectionPattern({1, 1}, pt));
    EXPECT_EQ(pattern.major, 1u);  // the reference is the entry's own pattern
    EXPECT_EQ(pattern.minor, 1u);
    EXPECT_EQ(mgr.GetNode("Engine", TavloSelection{1, 1}), engine);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);

    // Unknown handles: status 2, nothing assigned, the process-wide wildcard.
    const std::string unknown = pt;
    EXPECT_EQ(mgr.GetPriority(unknown.c_str()), 0u);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    mgr.GetPriority(pt);
    EXPECT_FALSE(mgr.AssignSelectionPattern({2, 2}, unknown.c_str()));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    mgr.GetPriority(pt);
    const TavloSelectionPattern& wildcard = mgr.GetSelectionPattern(unknown.c_str());
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(wildcard.major, kAny);
    EXPECT_EQ(wildcard.minor, kAnyMinor);
    EXPECT_EQ(pattern.major, 1u);
    EXPECT_EQ(&mgr_.GetSelectionPattern(nullptr), &wildcard);
}

TEST_F(LookupTest, InsideOneMessageOrGroupTheFirstOfNamesAlikeIn32CharactersWins) {
    const msgblk& engine = *Db(pt_).GetMessage("EngineData");
    const auto named = [&engine](const char* name) { return Exactly(+engine.signals, name); };
    const std::string ab1 = "StatusWithAVeryLongSignalNameAb1";  // 32 characters
    const std::string ab2 = "StatusWithAVeryLongSignalNameAb2";
    const std::pair<std::string, const sigblk*> cases[] = {
        {ab1, named(ab1.c_str())},
        {ab1 + "TrailingA", named(ab1.c_str())},
        {ab2 + "TrailingB", named(ab2.c_str())},
        {ab1.substr(0, 31), nullptr},
        {"EngineSpeed", engine.signals},
        {"EngineSpeedX", nullptr},
        {"enginespeed", nullptr},
    };
    for (const auto& [name, signal] : cases) {
        ASSERT_TRUE(name.size() < 32 || signal != nullptr);
        EXPECT_EQ(mgr_.GetSignal(engine, name.c_str()), signal) << name;
    }
    EXPECT_EQ(mgr_.GetModeSignal(engine), named("Mux"));  // not the first signal
    EXPECT_EQ(mgr_.GetModeSignal(*Db(pt_).GetMessage("GearData")), nullptr);

    const siggroupblk* group = mgr_.GetSignalGroup(engine, "EngineGroup");
    EXPECT_EQ(group, +engine.signal_groups);
    EXPECT_EQ(mgr_.GetSignalGroup(engine, "EngineGroupLongerThanThirtyTwoCharacters"), nullptr);
    EXPECT_EQ(mgr_.GetSignalGroup(engine, "enginegroup"), nullptr);
    EXPECT_EQ(mgr_.GetSignalGroup(*Db(body_).GetMessage("GearData"), "EngineGroup"), nullptr);
    // Members are found through the group; a member naming no signal is passed over.
    EXPECT_EQ(mgr_.GetSignal(*group, "EngineTemp"), named("EngineTemp"));
    EXPECT_EQ(mgr_.GetSignal(*group, "Mux"), nullptr);
    siglistblk* first = group->signals;
    sigblk* kept = first->signal;
    first->signal = nullptr;
    EXPECT_EQ(mgr_.GetSignal(*group, "EngineTemp"), named("EngineTemp"));
    EXPECT_EQ(mgr_.GetSignal(*group, "EngineSpeed"), nullptr);
    first->signal = kept;
}

TEST_F(LookupTest, EnvvarHandlesAddTheHandleBaseOfTheHoldingEntry) {
    // Largest handles: Pt 9, Diag none, Body 4, so the bases are 0, 9, 9, 13.
    const env_var_blk* ptEnvA = Db(pt_).GetEnvvar("PtEnvA");  // 3
    const env_var_blk* bodyEnv = Db(body_).GetEnvvar("BodyEnv");  // 4
    const env_var_blk* knob = Db(extras_).GetEnvvar("Knob");  // 1
    TavloDatabase outside(DataFile("body.dbc").c_str());
    struct Case {
        const env_var_blk* envvar;
        const char* dbName;
        unsigned long handle;
    };
    const Case cases[] = {
        {ptEnvA, nullptr, 3}, {ptEnvA, pt_, 3},     {ptEnvA, body_, 0},
        {bodyEnv, nullptr, 13}, {bodyEnv, body_, 13}, {knob, nullptr, 14},
        {outside.mEnvvars, nullptr, 0}, {outside.mEnvvars, body_, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(mgr_.GetEnvvarHandle(c.envvar, c.dbName), c.handle) << c.envvar->name;
    }
    TavloManagerAccess::SetStatus(mgr_, kUnchanged);
    EXPECT_EQ(mgr_.GetEnvvarHandle(bodyEnv, unknown_.c_str()), 0ul);
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
}

}  // namespace
}  // namespace tavlo::test
