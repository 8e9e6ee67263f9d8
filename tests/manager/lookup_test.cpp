// tests/manager/lookup_test.cpp: finding records across a manager's
// databases (by handle, in list order, by selection pattern), the entries'
// patterns and priorities, lookups inside one message or signal group, and
// the manager-wide handles of environment variables.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "manager/fixture.h"
#include "support/death.h"

namespace tavlo::test {
namespace {

constexpr unsigned int kAnyMajor = 0xFFFFFFFFu;
constexpr unsigned short kAnyMinor = 0xFFFFu;

// Stands in for "left untouched" in out parameters.
const char* const kUntouched = "untouched";

// One key of one lookup kind, in every form the kind has. The results are
// type-erased so that kinds can share a table.
struct Probe {
    std::string what;
    std::function<const void*(const TavloDatabase&)> in;  // the record in one database
    std::function<const void*(const TavloManager&, const char*)> within;
    std::function<const void*(const TavloManager&, const char**)> anywhere;
    // Empty for kinds without selection forms.
    std::function<const void*(const TavloManager&, const TavloSelection&, const char**)> selected;
    std::function<const void*(const TavloManager&, const TavloSelection&)> selectedNoOut;
};

// get(manager, key, where...) calls the kind's overload for every form.
template <bool kSelectable, class Key, class In, class Get>
Probe MakeProbe(std::string what, Key key, In in, Get get) {
    Probe p;
    p.what = std::move(what);
    p.in = [key, in](const TavloDatabase& db) -> const void* { return in(db, key); };
    p.within = [key, get](const TavloManager& m, const char* dbName) -> const void* {
        return get(m, key, dbName);
    };
    p.anywhere = [key, get](const TavloManager& m, const char** out) -> const void* {
        return get(m, key, out);
    };
    if constexpr (kSelectable) {
        p.selected = [key, get](const TavloManager& m, const TavloSelection& s,
                                const char** out) -> const void* { return get(m, key, s, out); };
        p.selectedNoOut = [key, get](const TavloManager& m,
                                     const TavloSelection& s) -> const void* {
            return get(m, key, s);
        };
    }
    return p;
}

Probe Node(const char* name) {
    return MakeProbe<true>(
        std::string("node ") + name, name,
        [](const TavloDatabase& db, const char* k) { return db.GetNode(k); },
        [](const TavloManager& m, const char* k, auto... where) { return m.GetNode(k, where...); });
}

Probe MessageNamed(const char* name) {
    return MakeProbe<true>(
        std::string("message ") + name, name,
        [](const TavloDatabase& db, const char* k) { return db.GetMessage(k); },
        [](const TavloManager& m, const char* k, auto... where) {
            return m.GetMessage(k, where...);
        });
}

Probe MessageId(unsigned long id) {
    return MakeProbe<true>(
        "message id " + std::to_string(id), id,
        [](const TavloDatabase& db, unsigned long k) { return db.GetMessage(k); },
        [](const TavloManager& m, unsigned long k, auto... where) {
            return m.GetMessage(k, where...);
        });
}

Probe Envvar(const char* name) {
    return MakeProbe<true>(
        std::string("environment variable ") + name, name,
        [](const TavloDatabase& db, const char* k) { return db.GetEnvvar(k); },
        [](const TavloManager& m, const char* k, auto... where) {
            return m.GetEnvvar(k, where...);
        });
}

Probe BitTiming(unsigned short number) {
    return MakeProbe<true>(
        "bit timing " + std::to_string(number), number,
        [](const TavloDatabase& db, unsigned short k) { return db.GetBitTiming(k); },
        [](const TavloManager& m, unsigned short k, auto... where) {
            return m.GetBitTiming(k, where...);
        });
}

Probe AttrDefinition(const char* name) {
    return MakeProbe<false>(
        std::string("attribute definition ") + name, name,
        [](const TavloDatabase& db, const char* k) { return db.GetAttrDef(k); },
        [](const TavloManager& m, const char* k, auto... where) {
            return m.GetAttrDefinition(k, where...);
        });
}

Probe Category(const char* name) {
    return MakeProbe<false>(
        std::string("category ") + name, name,
        [](const TavloDatabase& db, const char* k) -> const cat* {
            for (const cat* c = db.mCategories; c != nullptr; c = c->next) {
                if (std::string(c->name) == k) {
                    return c;
                }
            }
            return nullptr;
        },
        [](const TavloManager& m, const char* k, auto... where) {
            return m.GetCategory(k, where...);
        });
}

Probe SignalType(const char* name) {
    return MakeProbe<true>(
        std::string("signal type ") + name, name,
        [](const TavloDatabase& db, const char* k) { return db.GetSignalType(k); },
        [](const TavloManager& m, const char* k, auto... where) {
            return m.GetSignalType(k, where...);
        });
}

Probe ValueTable(const char* name) {
    return MakeProbe<true>(
        std::string("value table ") + name, name,
        [](const TavloDatabase& db, const char* k) { return db.GetValueTable(k); },
        [](const TavloManager& m, const char* k, auto... where) {
            return m.GetValueTable(k, where...);
        });
}

// Databases come from tests/manager/data, opened in place (the tests only
// read them), or from files written to the test's own directory.
class LookupTest : public ManagerTest {
protected:
    // Opens and returns the handle; null (and a failure) when opening failed
    // or the file was not read cleanly.
    const char* Open(TavloManager& mgr, const std::string& path, unsigned int priority = 0,
                     const char* name = nullptr) {
        const char* handle = nullptr;
        const unsigned int status = mgr.OpenDatabase(path.c_str(), &handle, name, priority);
        EXPECT_EQ(status, TAVLO_STATUS_OK) << path;
        EXPECT_TRUE(shown_.messages().empty()) << path << ": " << shown_.messages().front().text;
        return status == TAVLO_STATUS_OK && shown_.messages().empty() ? handle : nullptr;
    }
    // Status 0 or 2 set through calls that report one, so that a lookup that
    // should set the status is seen to do it.
    static void ForceStatus(const TavloManager& mgr, const char* knownHandle, unsigned int status) {
        const std::string unknown = "NoSuchDatabase";
        mgr.GetPriority(status == TAVLO_STATUS_OK ? knownHandle : unknown.c_str());
        ASSERT_EQ(mgr.GetStatus(), status);
    }
};

// ---- No databases -------------------------------------------------------------

TEST_F(LookupTest, AManagerWithoutDatabasesFindsNothing) {
    const Probe probes[] = {Node("Gateway"),   MessageNamed("GearData"), MessageId(512),
                            Envvar("PtEnvA"),   BitTiming(500),           AttrDefinition("DBName"),
                            Category("Drive"),  SignalType("Level"),      ValueTable("GearTable")};
    const TavloSelection selections[] = {{5, 7}, {kAnyMajor, kAnyMinor}};
    for (const Probe& p : probes) {
        SCOPED_TRACE(p.what);
        TavloManager mgr(static_cast<void*>(nullptr));
        const char* out = kUntouched;
        EXPECT_EQ(p.within(mgr, nullptr), nullptr);
        EXPECT_EQ(p.anywhere(mgr, &out), nullptr);
        EXPECT_EQ(out, kUntouched);
        if (!p.selected) {
            continue;
        }
        for (const TavloSelection& s : selections) {
            TavloManager fresh(static_cast<void*>(nullptr));
            ASSERT_EQ(fresh.GetStatus(), TAVLO_STATUS_OK);
            EXPECT_EQ(p.selected(fresh, s, &out), nullptr);
            EXPECT_EQ(fresh.GetStatus(), TAVLO_STATUS_NO_FILE);
            EXPECT_EQ(out, kUntouched);
            TavloManager other(static_cast<void*>(nullptr));
            EXPECT_EQ(p.selectedNoOut(other, s), nullptr);
            EXPECT_EQ(other.GetStatus(), TAVLO_STATUS_NO_FILE);
        }
    }
}

// ---- Order across databases -------------------------------------------------

TEST_F(LookupTest, AllDatabasesAreSearchedInPriorityThenOpeningOrder) {
    struct Opening {
        const char* file;
        unsigned int priority;
    };
    struct Case {
        const char* what;
        std::vector<Opening> openings;  // higher priorities first, or they drop the others
        const char* winner;
    };
    const Case cases[] = {
        {"higher priority opened first", {{"powertrain.dbc", 5}, {"body.dbc", 3}},
         "powertrain.dbc"},
        {"higher priority opened first, other way", {{"body.dbc", 5}, {"powertrain.dbc", 3}},
         "body.dbc"},
        {"equal priorities: first opened", {{"powertrain.dbc", 0}, {"body.dbc", 0}},
         "powertrain.dbc"},
        {"equal priorities, other way", {{"body.dbc", 2}, {"powertrain.dbc", 2}}, "body.dbc"},
        {"a later, higher one goes ahead of an earlier, lower one",
         {{"diagnosis.dbc", 5}, {"body.dbc", 3}, {"powertrain.dbc", 4}},
         "powertrain.dbc"},
    };
    const Probe shared[] = {Node("Gateway"), MessageNamed("GearData"), MessageId(512)};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TavloManager mgr(static_cast<void*>(nullptr));
        std::map<std::string, const char*> handles;
        for (const Opening& o : c.openings) {
            handles[o.file] = Open(mgr, DataFile(o.file), o.priority);
        }
        const char* winner = handles.at(c.winner);
        ASSERT_NE(winner, nullptr);
        for (const Probe& p : shared) {
            SCOPED_TRACE(p.what);
            const void* expected = p.in(*mgr.GetDatabase(winner));
            ASSERT_NE(expected, nullptr);
            EXPECT_EQ(p.within(mgr, nullptr), expected);
            const char* out = kUntouched;
            EXPECT_EQ(p.anywhere(mgr, &out), expected);
            EXPECT_EQ(out, winner);
        }
        // The literal null goes through its own overload.
        EXPECT_EQ(mgr.GetNode("Gateway", nullptr), mgr.GetDatabase(winner)->GetNode("Gateway"));
        EXPECT_EQ(mgr.GetMessage(512ul, nullptr), mgr.GetDatabase(winner)->GetMessage(512ul));
    }
}


TEST_F(LookupTest, AHandleLimitsTheSearchToItsOwnDatabase) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* powertrain = Open(mgr, DataFile("powertrain.dbc"));
    const char* body = Open(mgr, DataFile("body.dbc"));
    ASSERT_NE(powertrain, nullptr);
    ASSERT_NE(body, nullptr);
    const TavloDatabase& bodyDb = *mgr.GetDatabase(body);
    // Gateway is in both; the first in list order does not win here.
    EXPECT_EQ(mgr.GetNode("Gateway", body), bodyDb.GetNode("Gateway"));
    EXPECT_EQ(mgr.GetMessage(512ul, body), bodyDb.GetMessage(512ul));
    EXPECT_EQ(mgr.GetNode("Door", body), bodyDb.GetNode("Door"));
    EXPECT_EQ(mgr.GetNode("Door", powertrain), nullptr);

    // Handles are compared by pointer: the same text elsewhere names nothing.
    const std::string copy = body;
    EXPECT_EQ(mgr.GetNode("Door", copy.c_str()), nullptr);
    EXPECT_EQ(mgr.GetMessage("DoorStatus", copy.c_str()), nullptr);
    TavloManager other(static_cast<void*>(nullptr));
    const char* othersBody = nullptr;
    ASSERT_EQ(other.OpenDatabase(DataFile("body.dbc").c_str(), &othersBody, 0), TAVLO_STATUS_OK);
    EXPECT_NE(othersBody, body);
    EXPECT_EQ(mgr.GetNode("Door", othersBody), nullptr);
    EXPECT_EQ(other.GetNode("Door", othersBody), bodyDb.GetNode("Door"));  // one shared object
}

// Every kind searches its own list; the forms with a selection report a
// status, and so does an unknown handle.
TEST_F(LookupTest, EveryKindFindsItsRecordInEveryForm) {
    const std::string typesText =
        "VERSION \"types\"\n\nNS_ :\n\nBS_:\n\nBU_: Gateway\n\n"
        "SGTYPE_ Level : 8@1+ (1,0) [0|255] \"\"  0;\n";
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* body = Open(mgr, DataFile("body.dbc"));
    const char* powertrain = Open(mgr, DataFile("powertrain.dbc"));
    const char* types = Open(mgr, WriteFile("types.dbc", typesText));
    ASSERT_TRUE(body != nullptr && powertrain != nullptr && types != nullptr);
    const char* const handles[] = {body, powertrain, types};

    struct Case {
        Probe hit;  // held by owner alone
        const char* owner;
        Probe miss;  // held by none
    };
    const Case cases[] = {
        {Node("Engine"), powertrain, Node("Nobody")},
        {MessageNamed("EngineData"), powertrain, MessageNamed("NoMessage")},
        {MessageId(256), powertrain, MessageId(257)},
        {Envvar("PtEnvA"), powertrain, Envvar("NoEnv")},
        {BitTiming(500), powertrain, BitTiming(501)},
        {AttrDefinition("SigMode"), powertrain, AttrDefinition("NoAttr")},
        {Category("Drive"), powertrain, Category("NoCategory")},
        {SignalType("Level"), types, SignalType("NoType")},
        {ValueTable("GearTable"), powertrain, ValueTable("NoTable")},
    };
    const TavloSelection wildcard = {kAnyMajor, kAnyMinor};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.hit.what);
        const void* expected = c.hit.in(*mgr.GetDatabase(c.owner));
        ASSERT_NE(expected, nullptr);

        ForceStatus(mgr, body, TAVLO_STATUS_NO_FILE);
        EXPECT_EQ(c.hit.within(mgr, nullptr), expected);
        for (const char* handle : handles) {
            EXPECT_EQ(c.hit.within(mgr, handle), handle == c.owner ? expected : nullptr) << handle;
        }
        const char* out = kUntouched;
        EXPECT_EQ(c.hit.anywhere(mgr, &out), expected);
        EXPECT_EQ(out, c.owner);
        EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);

        ForceStatus(mgr, body, TAVLO_STATUS_OK);
        const std::string stranger = c.owner;  // its text, not its handle
        EXPECT_EQ(c.hit.within(mgr, stranger.c_str()), nullptr);
        EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);

        ForceStatus(mgr, body, TAVLO_STATUS_OK);
        EXPECT_EQ(c.miss.within(mgr, nullptr), nullptr);
        EXPECT_EQ(c.miss.within(mgr, c.owner), nullptr);
        out = kUntouched;
        EXPECT_EQ(c.miss.anywhere(mgr, &out), nullptr);
        EXPECT_EQ(out, kUntouched);
        EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);

        if (!c.hit.selected) {
            continue;
        }
        ForceStatus(mgr, body, TAVLO_STATUS_NO_FILE);
        out = kUntouched;
        EXPECT_EQ(c.hit.selected(mgr, wildcard, &out), expected);
        EXPECT_EQ(out, c.owner);
        EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
        ForceStatus(mgr, body, TAVLO_STATUS_NO_FILE);
        EXPECT_EQ(c.hit.selectedNoOut(mgr, wildcard), expected);
        EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);

        out = kUntouched;
        EXPECT_EQ(c.miss.selected(mgr, wildcard, &out), nullptr);
        EXPECT_EQ(out, kUntouched);
        EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    }
}

// ---- Selection ----------------------------------------------------------------

// Four databases in list order: body (6,7), diagnosis (5,any),
// extra (fresh: any,any), powertrain (5,7).
class SelectionTest : public LookupTest {
protected:
    void SetUp() override {
        LookupTest::SetUp();
        const std::string extraText =
            "VERSION \"extra\"\n\nNS_ :\n\nBS_:\n\nBU_: Door Helper\n\n"
            "BO_ 512 GearData: 3 Helper\n SG_ Extra : 0|8@1+ (1,0) [0|255] \"\" Door\n\n"
            "BO_ 1024 Diag: 8 Helper\n SG_ Echo : 0|8@1+ (1,0) [0|255] \"\" Door\n\n"
            "BO_ 100 Msg1: 8 Helper\n SG_ Sig1 : 0|8@1+ (1,0) [0|255] \"\" Door\n\n";
        body_ = Open(mgr_, DataFile("body.dbc"));
        diagnosis_ = Open(mgr_, DataFile("diagnosis.dbc"));
        extra_ = Open(mgr_, WriteFile("extra.dbc", extraText));
        powertrain_ = Open(mgr_, DataFile("powertrain.dbc"));
        ASSERT_TRUE(body_ && diagnosis_ && extra_ && powertrain_);
        ASSERT_TRUE(mgr_.AssignSelectionPattern({6, 7}, body_));
        ASSERT_TRUE(mgr_.AssignSelectionPattern({5, kAnyMinor}, diagnosis_));
        ASSERT_TRUE(mgr_.AssignSelectionPattern({5, 7}, powertrain_));
    }

    TavloManager mgr_{static_cast<void*>(nullptr)};
    const char* body_ = nullptr;
    const char* diagnosis_ = nullptr;
    const char* extra_ = nullptr;
    const char* powertrain_ = nullptr;
};

TEST_F(SelectionTest, ExactThenMajorThenWildcardPatternsAreSearched) {
    struct Case {
        const char* what;
        TavloSelection selection;
        Probe probe;
        const char* const* winner;  // null: not found
        unsigned int status;
    };
    const Case cases[] = {
        {"exact beats earlier entries", {5, 7}, MessageId(512), &powertrain_, TAVLO_STATUS_OK},
        {"exact, by name", {5, 7}, MessageNamed("GearData"), &powertrain_, TAVLO_STATUS_OK},
        {"major before an earlier wildcard", {5, 7}, MessageId(1024), &diagnosis_,
         TAVLO_STATUS_NO_FILE},
        {"only a fresh database holds it", {5, 7}, MessageId(100), &extra_, TAVLO_STATUS_NO_FILE},
        {"another major is never searched", {5, 7}, Node("Door"), &extra_, TAVLO_STATUS_NO_FILE},
        {"held by another major only", {5, 7}, Node("Light"), nullptr, TAVLO_STATUS_NO_FILE},
        {"held by another major only, by id", {5, 7}, MessageId(768), nullptr,
         TAVLO_STATUS_NO_FILE},
        {"major with minor wildcard as the exact pattern", {5, kAnyMinor}, MessageId(1024),
         &diagnosis_, TAVLO_STATUS_OK},
        {"a fixed minor of the same major is not a match", {5, kAnyMinor}, MessageId(256),
         nullptr, TAVLO_STATUS_NO_FILE},
        {"then the wildcard", {5, kAnyMinor}, MessageId(512), &extra_, TAVLO_STATUS_NO_FILE},
        {"another minor reaches the major pass", {5, 0}, MessageId(1024), &diagnosis_,
         TAVLO_STATUS_NO_FILE},
        {"another minor skips the fixed one", {5, 0}, MessageId(256), nullptr,
         TAVLO_STATUS_NO_FILE},
        {"the other major, exact", {6, 7}, MessageId(768), &body_, TAVLO_STATUS_OK},
        {"the other major, first exact", {6, 7}, MessageId(512), &body_, TAVLO_STATUS_OK},
        {"the other major, then the wildcard", {6, 7}, MessageId(1024), &extra_,
         TAVLO_STATUS_NO_FILE},
        {"wildcard selection matches the wildcard exactly", {kAnyMajor, kAnyMinor},
         MessageId(512), &extra_, TAVLO_STATUS_OK},
        {"wildcard selection skips fixed majors", {kAnyMajor, kAnyMinor}, MessageId(1024),
         &extra_, TAVLO_STATUS_OK},
        {"wildcard selection, held by fixed majors only", {kAnyMajor, kAnyMinor}, Node("Light"),
         nullptr, TAVLO_STATUS_NO_FILE},
        {"unknown major: wildcard only", {7, 1}, MessageId(100), &extra_, TAVLO_STATUS_NO_FILE},
        {"unknown major: nothing else", {7, 1}, MessageId(256), nullptr, TAVLO_STATUS_NO_FILE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SCOPED_TRACE(c.probe.what);
        const char* winner = c.winner != nullptr ? *c.winner : nullptr;
        const void* expected = winner != nullptr ? c.probe.in(*mgr_.GetDatabase(winner)) : nullptr;
        ASSERT_TRUE(winner == nullptr || expected != nullptr);
        const unsigned int other =
            c.status == TAVLO_STATUS_OK ? TAVLO_STATUS_NO_FILE : TAVLO_STATUS_OK;

        ForceStatus(mgr_, body_, other);
        const char* out = kUntouched;
        EXPECT_EQ(c.probe.selected(mgr_, c.selection, &out), expected);
        EXPECT_EQ(out, winner != nullptr ? winner : kUntouched);
        EXPECT_EQ(mgr_.GetStatus(), c.status);

        ForceStatus(mgr_, body_, other);
        EXPECT_EQ(c.probe.selectedNoOut(mgr_, c.selection), expected);
        EXPECT_EQ(mgr_.GetStatus(), c.status);
    }
}

TEST_F(SelectionTest, FormsWithoutSelectionIgnorePatterns) {
    const TavloDatabase& bodyDb = *mgr_.GetDatabase(body_);
    EXPECT_EQ(mgr_.GetMessage(512ul, nullptr), bodyDb.GetMessage(512ul));
    EXPECT_EQ(mgr_.GetNode("Light", nullptr), bodyDb.GetNode("Light"));
    const char* out = kUntouched;
    EXPECT_EQ(mgr_.GetMessage(1024ul, &out), mgr_.GetDatabase(diagnosis_)->GetMessage(1024ul));
    EXPECT_EQ(out, diagnosis_);
}

TEST_F(LookupTest, PatternsAndPrioritiesOfEntries) {
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* powertrain = Open(mgr, DataFile("powertrain.dbc"), 7);
    const char* body = Open(mgr, DataFile("body.dbc"), 9, "Body");  // a given name forces 0
    ASSERT_TRUE(powertrain != nullptr && body != nullptr);
    const std::string copy = powertrain;

    struct PriorityCase {
        const char* dbName;
        unsigned int priority;
        unsigned int status;
    };
    const PriorityCase priorities[] = {
        {powertrain, 7, TAVLO_STATUS_OK},
        {copy.c_str(), 0, TAVLO_STATUS_NO_FILE},
        {body, 0, TAVLO_STATUS_OK},
        {nullptr, 0, TAVLO_STATUS_NO_FILE},
        {powertrain, 7, TAVLO_STATUS_OK},
    };
    for (const PriorityCase& c : priorities) {
        EXPECT_EQ(mgr.GetPriority(c.dbName), c.priority) << (c.dbName ? c.dbName : "null");
        EXPECT_EQ(mgr.GetStatus(), c.status) << (c.dbName ? c.dbName : "null");
    }

    // Entries start with the wildcard pattern.
    const TavloSelectionPattern& bodyPattern = mgr.GetSelectionPattern(body);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(bodyPattern.major, kAnyMajor);
    EXPECT_EQ(bodyPattern.minor, kAnyMinor);

    EXPECT_TRUE(mgr.AssignSelectionPattern({5, 7}, powertrain));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    EXPECT_EQ(mgr.GetSelectionPattern(powertrain).major, 5u);
    EXPECT_EQ(mgr.GetSelectionPattern(powertrain).minor, 7u);
    EXPECT_EQ(bodyPattern.major, kAnyMajor);  // only that entry changed

    // The reference is the entry's own pattern.
    EXPECT_TRUE(mgr.AssignSelectionPattern({6, kAnyMinor}, body));
    EXPECT_EQ(bodyPattern.major, 6u);
    EXPECT_EQ(bodyPattern.minor, kAnyMinor);

    // Unknown handles: nothing assigned, the process-wide wildcard read.
    EXPECT_FALSE(mgr.AssignSelectionPattern({1, 1}, copy.c_str()));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(mgr.GetSelectionPattern(powertrain).major, 5u);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    const TavloSelectionPattern& unknown = mgr.GetSelectionPattern(copy.c_str());
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(unknown.major, kAnyMajor);
    EXPECT_EQ(unknown.minor, kAnyMinor);
    TavloManager empty(static_cast<void*>(nullptr));
    EXPECT_EQ(&empty.GetSelectionPattern(nullptr), &unknown);
    EXPECT_EQ(empty.GetStatus(), TAVLO_STATUS_NO_FILE);
}

// ---- Inside one object ----------------------------------------------------------

TEST_F(LookupTest, SignalNamesAgreeInTheirFirst32Characters) {
    TavloManager mgr(static_cast<void*>(nullptr));
    ASSERT_NE(Open(mgr, DataFile("powertrain.dbc")), nullptr);
    const msgblk* engine = mgr.GetMessage(256ul, nullptr);
    ASSERT_NE(engine, nullptr);
    const auto signalNamed = [engine](const char* name) -> const sigblk* {
        for (const sigblk* s = engine->signals; s != nullptr; s = s->next) {
            if (std::string(s->name) == name) {
                return s;
            }
        }
        return nullptr;
    };
    const std::string ab1 = "StatusWithAVeryLongSignalNameAb1";
    const std::string ab2 = "StatusWithAVeryLongSignalNameAb2";
    ASSERT_EQ(ab1.size(), 32u);
    ASSERT_NE(signalNamed(ab1.c_str()), nullptr);
    ASSERT_NE(signalNamed(ab2.c_str()), nullptr);

    struct Case {
        std::string argument;
        const char* expected;  // the signal's name, or null
    };
    const Case cases[] = {
        {ab1, ab1.c_str()},
        {ab1 + "TrailingA", ab1.c_str()},
        {ab2 + "TrailingB", ab2.c_str()},
        {ab1.substr(0, 31), nullptr},
        {"EngineSpeed", "EngineSpeed"},
        {"EngineSpeedX", nullptr},
        {"enginespeed", nullptr},
        {"", nullptr},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(mgr.GetSignal(*engine, c.argument.c_str()),
                  c.expected != nullptr ? signalNamed(c.expected) : nullptr)
            << c.argument;
    }
}

TEST_F(LookupTest, TypeTableAndCategoryNamesAgreeInTheirFirst32CharactersOutsideSelections) {
    // Two of each kind that differ in their 32nd character only, the one
    // looked for second. Longer names in the file are cut to 32.
    const std::string type = "LevelTypeWithAVeryLongNameAbcde";
    const std::string table = "LevelTableWithAVeryLongNameAbcd";
    const std::string category = "CategoryWithAVeryLongNameAbcdef";
    ASSERT_EQ(type.size(), 31u);
    ASSERT_EQ(table.size(), 31u);
    ASSERT_EQ(category.size(), 31u);
    const std::string text =
        "VERSION \"types\"\n\nNS_ :\n\nBS_:\n\nBU_: Gateway\n\n"
        "VAL_TABLE_ " + table + "2Tail 1 \"High\" 0 \"Low\" ;\n"
        "VAL_TABLE_ " + table + "1Tail 1 \"On\" 0 \"Off\" ;\n\n"
        "SGTYPE_ " + type + "2Tail : 8@1+ (1,0) [0|255] \"\"  0;\n"
        "SGTYPE_ " + type + "1Tail : 8@1+ (1,0) [0|255] \"\"  0;\n"
        "CAT_DEF_ 1 " + category + "2Tail 0;\n"
        "CAT_DEF_ 2 " + category + "1Tail 0;\n";
    TavloManager mgr(static_cast<void*>(nullptr));
    ASSERT_NE(Open(mgr, DataFile("powertrain.dbc")), nullptr);
    const char* types = Open(mgr, WriteFile("types.dbc", text));
    ASSERT_NE(types, nullptr);
    const TavloDatabase& db = *mgr.GetDatabase(types);

    const sigtype* type1 = db.mSigTypes != nullptr ? db.mSigTypes->next : nullptr;
    const valtable* table1 = db.mValueTables != nullptr ? db.mValueTables->next : nullptr;
    const cat* category1 = db.mCategories != nullptr ? db.mCategories->next : nullptr;
    ASSERT_TRUE(type1 != nullptr && table1 != nullptr && category1 != nullptr);
    ASSERT_EQ(type + "1", type1->name);
    ASSERT_EQ(table + "1", table1->name);
    ASSERT_EQ(category + "1", category1->name);

    // The selection forms compare whole names: only the stored name itself
    // is found there.
    enum SelectionForms { kNone, kMiss, kFind };
    struct Case {
        Probe probe;
        const void* expected;  // by the other forms
        SelectionForms selection;
    };
    const std::string typeLong = type + "1LongerTail";
    const std::string tableLong = table + "1LongerTail";
    const std::string categoryLong = category + "1LongerTail";
    const std::string type32 = type + "1";
    const std::string table32 = table + "1";
    const Case cases[] = {
        {SignalType(typeLong.c_str()), type1, kMiss},
        {SignalType(type32.c_str()), type1, kFind},
        {SignalType(type.c_str()), nullptr, kMiss},
        {ValueTable(tableLong.c_str()), table1, kMiss},
        {ValueTable(table32.c_str()), table1, kFind},
        {ValueTable(table.c_str()), nullptr, kMiss},
        {Category(categoryLong.c_str()), category1, kNone},
        {Category(category.c_str()), nullptr, kNone},
    };
    const TavloSelection wildcard = {kAnyMajor, kAnyMinor};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.probe.what);
        EXPECT_EQ(c.probe.within(mgr, nullptr), c.expected);
        EXPECT_EQ(c.probe.within(mgr, types), c.expected);
        const char* out = kUntouched;
        EXPECT_EQ(c.probe.anywhere(mgr, &out), c.expected);
        EXPECT_EQ(out, c.expected != nullptr ? types : kUntouched);
        if (c.selection != kNone) {
            const void* selected = c.selection == kFind ? c.expected : nullptr;
            EXPECT_EQ(c.probe.selectedNoOut(mgr, wildcard), selected);
            EXPECT_EQ(mgr.GetStatus(),
                      selected != nullptr ? TAVLO_STATUS_OK : TAVLO_STATUS_NO_FILE);
        }
    }
}

TEST_F(LookupTest, SignalGroupsAndTheirMembers) {
    TavloManager mgr(static_cast<void*>(nullptr));
    ASSERT_NE(Open(mgr, DataFile("powertrain.dbc")), nullptr);
    const msgblk* engine = mgr.GetMessage("EngineData", nullptr);
    const msgblk* gear = mgr.GetMessage("GearData", nullptr);
    ASSERT_TRUE(engine != nullptr && gear != nullptr);

    const siggroupblk* group = mgr.GetSignalGroup(*engine, "EngineGroup");
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(+engine->signal_groups, group);
    EXPECT_EQ(mgr.GetSignalGroup(*engine, "EngineGroupLongerThanThirtyTwoCharacters"), nullptr);
    EXPECT_EQ(mgr.GetSignalGroup(*engine, "enginegroup"), nullptr);
    EXPECT_EQ(mgr.GetSignalGroup(*gear, "EngineGroup"), nullptr);

    // Members are the message's own signals; signals outside the group are
    // not found through it.
    const std::pair<const char*, bool> members[] = {
        {"EngineSpeed", true}, {"EngineTemp", true}, {"Mux", false}, {"Gear", false}};
    for (const auto& [name, member] : members) {
        EXPECT_EQ(mgr.GetSignal(*group, name), member ? mgr.GetSignal(*engine, name) : nullptr)
            << name;
    }
}

TEST_F(LookupTest, ModeSignals) {
    TavloManager mgr(static_cast<void*>(nullptr));
    ASSERT_NE(Open(mgr, DataFile("powertrain.dbc")), nullptr);
    const msgblk* engine = mgr.GetMessage(256ul, nullptr);
    const msgblk* gear = mgr.GetMessage(512ul, nullptr);
    ASSERT_TRUE(engine != nullptr && gear != nullptr);
    // Not the first signal, and not the multiplexed ones behind it.
    EXPECT_EQ(mgr.GetModeSignal(*engine), mgr.GetSignal(*engine, "Mux"));
    EXPECT_EQ(mgr.GetModeSignal(*gear), nullptr);
}

// Records made in memory: names alike in their first 32 characters, two mode
// signals, two groups of one name and a member without a signal.
TEST_F(LookupTest, TheFirstOfRecordsAlikeInOneObjectWins) {
    TavloManager mgr(static_cast<void*>(nullptr));
    TavloDatabase scratch;
    msgblk* message = scratch.CreateMessage(0);
    ASSERT_NE(message, nullptr);
    const std::string twin = "TwinSignalNameThirtyTwoCharsLong";
    ASSERT_EQ(twin.size(), 32u);
    const struct {
        std::string name;
        unsigned char flags;
    } made[] = {{"Plain", 0},
                {twin + "First", 0},
                {twin + "Second", TAVLO_SIG_MODE},
                {"OtherMode", TAVLO_SIG_MODE}};
    sigblk* signals[4] = {};
    for (unsigned int i = 0; i < 4; ++i) {
        signals[i] = TAVLO_CREATE_SIGBLK();
        std::snprintf(signals[i]->name, TAVLO_NAME_SIZE, "%s", made[i].name.c_str());
        signals[i]->flags = made[i].flags;
        CAN_INSERT_SIG(message, signals[i], i);
    }
    siggroupblk* groups[2] = {TAVLO_CREATE_SIGGROUP(message), TAVLO_CREATE_SIGGROUP(message)};
    for (siggroupblk* g : groups) {
        std::snprintf(g->name, TAVLO_NAME_SIZE, "%s", "Group");
    }
    groups[0]->next = groups[1];
    message->signal_groups = groups[0];
    // First group: a member without a signal, then OtherMode, then the
    // second twin; the second group holds the first twin.
    siglistblk* empty = TAVLO_CREATE_SIGLIST(nullptr);
    siglistblk* other = TAVLO_CREATE_SIGLIST(signals[3]);
    empty->next = other;
    other->next = TAVLO_CREATE_SIGLIST(signals[2]);
    groups[0]->signals = empty;
    groups[1]->signals = TAVLO_CREATE_SIGLIST(signals[1]);

    const std::string longTwin = twin + "AnyTail";
    EXPECT_EQ(mgr.GetSignal(*message, longTwin.c_str()), signals[1]);
    EXPECT_EQ(mgr.GetModeSignal(*message), signals[2]);
    EXPECT_EQ(mgr.GetSignalGroup(*message, "Group"), groups[0]);
    EXPECT_EQ(mgr.GetSignal(*groups[0], longTwin.c_str()), signals[2]);
    EXPECT_EQ(mgr.GetSignal(*groups[0], "OtherMode"), signals[3]);
    EXPECT_EQ(mgr.GetSignal(*groups[0], "Plain"), nullptr);
    EXPECT_EQ(mgr.GetSignal(*groups[1], longTwin.c_str()), signals[1]);
}

// ---- Environment variable handles ------------------------------------------------

TEST_F(LookupTest, EnvvarHandlesAddTheHandleBaseOfTheOwningEntry) {
    struct Order {
        const char* first;
        const char* second;
    };
    // powertrain's largest handle is 9, body's 4.
    const Order orders[] = {{"powertrain.dbc", "body.dbc"}, {"body.dbc", "powertrain.dbc"}};
    TavloDatabase scratch;
    env_var_blk* stranger = scratch.CreateEnvvar(0);
    ASSERT_NE(stranger, nullptr);
    std::snprintf(stranger->name, TAVLO_NAME_SIZE, "%s", "BodyEnv");
    stranger->id = 4;

    for (const Order& o : orders) {
        SCOPED_TRACE(o.first);
        TavloManager mgr(static_cast<void*>(nullptr));
        std::map<std::string, const char*> handles;
        handles[o.first] = Open(mgr, DataFile(o.first));
        handles[o.second] = Open(mgr, DataFile(o.second));
        const char* pt = handles.at("powertrain.dbc");
        const char* body = handles.at("body.dbc");
        ASSERT_TRUE(pt != nullptr && body != nullptr);
        const unsigned long ptBase = pt == handles.at(o.first) ? 0 : 4;
        const unsigned long bodyBase = body == handles.at(o.first) ? 0 : 9;
        const env_var_blk* ptEnvA = mgr.GetDatabase(pt)->GetEnvvar("PtEnvA");
        const env_var_blk* ptEnvB = mgr.GetDatabase(pt)->GetEnvvar("PtEnvB");
        const env_var_blk* bodyEnv = mgr.GetDatabase(body)->GetEnvvar("BodyEnv");
        ASSERT_TRUE(ptEnvA != nullptr && ptEnvB != nullptr && bodyEnv != nullptr);
        const std::string bodyCopy = body;

        struct Case {
            const char* what;
            const env_var_blk* envvar;
            const char* dbName;
            unsigned long expected;
        };
        const Case cases[] = {
            {"PtEnvA anywhere", ptEnvA, nullptr, ptBase + 3},
            {"PtEnvA in its own", ptEnvA, pt, ptBase + 3},
            {"PtEnvA in the other", ptEnvA, body, 0},
            {"PtEnvB anywhere", ptEnvB, nullptr, ptBase + 9},
            {"BodyEnv anywhere", bodyEnv, nullptr, bodyBase + 4},
            {"BodyEnv in its own", bodyEnv, body, bodyBase + 4},
            {"BodyEnv in the other", bodyEnv, pt, 0},
            {"BodyEnv under a copied handle", bodyEnv, bodyCopy.c_str(), 0},
            {"a record of no database", stranger, nullptr, 0},
            {"a record of no database, by handle", stranger, body, 0},
        };
        for (const Case& c : cases) {
            EXPECT_EQ(mgr.GetEnvvarHandle(c.envvar, c.dbName), c.expected) << c.what;
        }
    }
}

// ---- Assertions ------------------------------------------------------------------

TEST_F(LookupTest, NullNamesAreProgrammingErrors) {
    TavloManager mgr(static_cast<void*>(nullptr));  // no database: checked before any search
    TavloDatabase scratch;
    msgblk* message = scratch.CreateMessage(0);
    ASSERT_NE(message, nullptr);
    siggroupblk* group = TAVLO_CREATE_SIGGROUP(message);
    message->signal_groups = group;
    const char* out = kUntouched;

    struct Case {
        const char* assertion;
        std::function<void()> call;
    };
    const Case cases[] = {
        {"categoryName != NULL", [&] { mgr.GetCategory(nullptr, nullptr); }},
        {"categoryName != NULL", [&] { mgr.GetCategory(nullptr, &out); }},
        {"signalTypeName != NULL", [&] { mgr.GetSignalType(nullptr, nullptr); }},
        {"valueTableName != NULL", [&] { mgr.GetValueTable(nullptr, &out); }},
        {"signalName != NULL", [&] { mgr.GetSignal(*message, nullptr); }},
        {"signalGroupName != NULL", [&] { mgr.GetSignalGroup(*message, nullptr); }},
        {"signalName != NULL", [&] { mgr.GetSignal(*group, nullptr); }},
        {"envvar != NULL", [&] { mgr.GetEnvvarHandle(nullptr, nullptr); }},
    };
    for (const Case& c : cases) {
        EXPECT_DEATH(c.call(), std::string("Assertion failed: ") + c.assertion +
                                   ", module dbmsread, line " TAVLO_LINE_NUMBER)
            << c.assertion;
    }
}

}  // namespace
}  // namespace tavlo::test
