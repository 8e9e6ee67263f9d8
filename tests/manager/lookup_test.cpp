// tests/manager/lookup_test.cpp: finding records across a manager's
// databases (by handle, in list order, by selection pattern) with the
// statuses and out parameters of every form, and the entries' patterns and
// priorities. The lookups and what they find are in data/lookups.txt.

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <tuple>
#include <type_traits>

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

// A kind: what the database's own search finds under key k, and the
// manager's lookup of that kind.
#define KIND(selectable, Key, search, lookup)                                      \
    MakeKind<selectable, Key>([](const TavloDatabase& db, Key k) { return search; }, \
                              [](auto& m, auto... a) { return m.lookup(a...); })
const Kind kNode = KIND(true, const char*, db.GetNode(k), GetNode);
const Kind kMessage = KIND(true, const char*, db.GetMessage(k), GetMessage);
const Kind kMessageId = KIND(true, unsigned long, db.GetMessage(k), GetMessage);
const Kind kEnvvar = KIND(true, const char*, db.GetEnvvar(k), GetEnvvar);
const Kind kTiming = KIND(true, unsigned short, db.GetBitTiming(k), GetBitTiming);
const Kind kDefinition = KIND(false, const char*, db.GetAttrDef(k), GetAttrDefinition);
const Kind kCategory = KIND(false, const char*, Exactly(+db.mCategories, k), GetCategory);
const Kind kType = KIND(true, const char*, db.GetSignalType(k), GetSignalType);
const Kind kTable = KIND(true, const char*, db.GetValueTable(k), GetValueTable);

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
    const char* pt = Open(mgr, DataFile("powertrain.dbc"), nullptr, 7);
    EXPECT_EQ(mgr.GetPriority(pt), 7u);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_OK);
    const TavloSelectionPattern& pattern = mgr.GetSelectionPattern(pt);
    EXPECT_EQ(pattern.major, kAny);  // entries start with the wildcard
    EXPECT_EQ(pattern.minor, kAnyMinor);
    EXPECT_TRUE(mgr.AssignSelectionPattern({1, 2}, pt));
    EXPECT_EQ(pattern.major, 1u);  // the reference is the entry's own pattern
    EXPECT_EQ(pattern.minor, 2u);
    // Unknown handles: status 2, nothing assigned, the process-wide wildcard.
    const std::string unknown = pt;
    EXPECT_EQ(mgr.GetPriority(unknown.c_str()), 0u);
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_TRUE(mgr.AssignSelectionPattern({1, 2}, pt));
    EXPECT_FALSE(mgr.AssignSelectionPattern({3, 3}, unknown.c_str()));
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(mgr.GetPriority(pt), 7u);
    const TavloSelectionPattern& wildcard = mgr.GetSelectionPattern(unknown.c_str());
    EXPECT_EQ(mgr.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(wildcard.major + wildcard.minor, kAny + kAnyMinor);
    EXPECT_EQ(&mgr_.GetSelectionPattern(nullptr), &wildcard);
    EXPECT_EQ(pattern.major, 1u);
}

}  // namespace
}  // namespace tavlo::test
