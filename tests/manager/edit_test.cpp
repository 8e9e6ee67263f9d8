// tests/manager/edit_test.cpp: the write manager's edits of attribute values,
// value descriptions, comments, user data and view filters, and the removal
// walk shared by every list of references, with the entries it drops.

#include <algorithm>
#include <functional>
#include <map>

#include "manager/fixture.h"
#include "model/model.h"

namespace tavlo::test {
namespace {

using model::LiveAllocations;

// "name=value " for each attribute value of a list, in list order.
std::string Values(const attr* list) {
    std::string seen;
    for (; list != nullptr; list = list->next) {
        const attr_def* def = list->def;
        const tavlo_attr_value_t value = list->value;
        seen += std::string(def->name) + "=" +
                (def->value_type == TAVLO_ATTR_STRING ? value.text
                                                      : std::to_string(long(value.number))) + " ";
    }
    return seen;
}

// Every edit stays in memory: nothing is written to the data files.
class EditTest : public DataTest<TavloWriteManager> {
protected:
    symblk& Node(const char* dbName, const char* name) { return *Db(dbName).GetNode(name); }
    sigblk& Signal(const char* dbName, const char* message, const char* name) {
        return *TAVLO_GET_SIGNAL_OF_MSG_NAME(Db(dbName).GetMessage(message), name);
    }
};

TEST_F(EditTest, ANewValueGoesToTheHeadAnOldOneIsOverwrittenInItsRecord) {
    symblk& engine = Node(pt_, "Engine");
    msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    // No range, type or object kind check: a network INT and an
    // out-of-range FLOAT are taken on a node.
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "BusSpeed", AttrNumber(250000)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "EnvLevel", AttrNumber(12)));
    EXPECT_EQ(Values(engine.attributes), "EnvLevel=12 BusSpeed=250000 NodeLayer=hw ");
    EXPECT_EQ(+engine.attributes->def, Db(pt_).GetAttrDef("EnvLevel"));
    // A signal type's value is made of its own database's definition.
    sigtype* type = Db(body_).CreateSignalType(0);
    EXPECT_TRUE(mgr_.SetAttrValue(*type, "NodeLayer", AttrNumber(4)));
    EXPECT_EQ(+type->attributes->def, Db(body_).GetAttrDef("NodeLayer"));

    const long blocks = LiveAllocations();
    const attr* cycle = engineData.attributes;
    EXPECT_TRUE(mgr_.SetAttrValue(engineData, "GenMsgCycleTime", AttrNumber(0)));
    sigblk& temp = Signal(pt_, "EngineData", "EngineTemp");
    EXPECT_TRUE(mgr_.SetAttrValue(temp, "SigMode", AttrNumber(0)));  // an ENUM index
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "EnvLevel", AttrNumber(3)));
    EXPECT_EQ(LiveAllocations(), blocks);
    EXPECT_EQ(+engineData.attributes, cycle);
    EXPECT_EQ(Values(engineData.attributes) + Values(temp.attributes) + Values(engine.attributes),
              "GenMsgCycleTime=0 SigMode=0 EnvLevel=3 BusSpeed=250000 NodeLayer=hw ");

    // A name agrees with a value's in its first 32 characters; a new value
    // needs the definition's name itself.
    attr_def* def = Db(pt_).CreateAttrDef(0);
    const std::string name32 = "Attribute_name_of_32_characters_";
    model::CopyName(def->name, name32.c_str());
    def->object_type = TAVLO_OBJ_NODE;
    def->value_type = TAVLO_ATTR_INT;
    EXPECT_FALSE(mgr_.SetAttrValue(engine, (name32 + "x").c_str(), AttrNumber(1)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, name32.c_str(), AttrNumber(1)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, (name32 + "and_more").c_str(), AttrNumber(2)));
    EXPECT_EQ(Values(engine.attributes), name32 + "=2 EnvLevel=3 BusSpeed=250000 NodeLayer=hw ");
    EXPECT_TRUE(mgr_.ResetAttrValue(engine, (name32 + "y").c_str()));
    EXPECT_EQ(Values(engine.attributes), "EnvLevel=3 BusSpeed=250000 NodeLayer=hw ");
}

TEST_F(EditTest, AStringValueIsACopyAndTheTextItReplacesStaysForItsReaders) {
    symblk& gateway = Node(pt_, "Gateway");
    std::string first = "first";
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "NodeLayer", AttrText(first.c_str())));
    const attr* record = gateway.attributes;
    char* const firstCopy = record->value.text;
    first[0] = 'F';
    EXPECT_STREQ(firstCopy, "first");
    const long blocks = LiveAllocations();
    EXPECT_TRUE(mgr_.SetAttrValue(gateway, "NodeLayer", AttrText("second")));
    EXPECT_EQ(LiveAllocations(), blocks + 1);  // the new copy; the old text stays
    EXPECT_EQ(+gateway.attributes, record);
    EXPECT_EQ(Values(gateway.attributes), "NodeLayer=second ");
    TAVLO_MFREE(firstCopy);  // this test read it, so it frees it

    // The database's name text the same way.
    char* const oldName = Db(pt_).mDbAttrs->value.text;
    EXPECT_TRUE(mgr_.SetAttrValue("DBName", pt_, AttrText("Renamed")));
    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", pt_).text, "Renamed");
    TAVLO_MFREE(oldName);
}

TEST_F(EditTest, NoValueIsAddedThatTheObjectsOwnDatabaseDoesNotDefine) {
    // A node of another manager's database: none of mgr_'s holds it.
    TavloManager reader(static_cast<void*>(nullptr));
    symblk& stranger = *reader.GetDatabase(Open(reader, WriteDatabase("small.dbc")))->GetNode("A");
    const long blocks = LiveAllocations();
    EXPECT_FALSE(mgr_.SetAttrValue(Signal(body_, "DoorStatus", "DoorOpen"), "SigMode", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(*Db(body_).GetEnvvar("BodyEnv"), "EnvLevel", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(*Db(body_).GetMessage("DoorStatus"), "BusSpeed", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(Node(body_, "Door"), "NoSuchAttribute", AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(Node(pt_, "Gateway"), "nodelayer", AttrText("x")));
    EXPECT_FALSE(mgr_.SetAttrValue("BusSpeed", body_, AttrNumber(1)));
    EXPECT_FALSE(mgr_.SetAttrValue(stranger, "NodeLayer", AttrText("x")));  // Pt defines it
    EXPECT_FALSE(mgr_.SetAttrValue("BusSpeed", unknown_.c_str(), AttrNumber(1)));
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    EXPECT_EQ(LiveAllocations(), blocks);  // nothing was made
}

TEST_F(EditTest, ResetRemovesTheFirstValueOfTheNameOnEveryKindOfObject) {
    symblk& gateway = Node(pt_, "Gateway");
    // Two values of one name, as a file naming it twice leaves them.
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "BusSpeed", AttrNumber(1)));
    attr* twice = gateway.attributes->next = model::Allocate<attr>();
    twice->def = Db(pt_).GetAttrDef("BusSpeed");
    twice->value = AttrNumber(2);
    const long blocks = LiveAllocations();
    EXPECT_TRUE(mgr_.ResetAttrValue(gateway, "BusSpeed"));
    EXPECT_EQ(LiveAllocations(), blocks - 1);
    EXPECT_EQ(Values(gateway.attributes), "BusSpeed=2 ");
    // A STRING value goes as a record only: its text stays for its readers.
    symblk& engine = Node(pt_, "Engine");
    char* const hw = engine.attributes->value.text;
    EXPECT_TRUE(mgr_.ResetAttrValue(engine, "NodeLayer"));
    EXPECT_STREQ(hw, "hw");
    TAVLO_MFREE(hw);

    msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    sigblk& temp = Signal(pt_, "EngineData", "EngineTemp");
    env_var_blk& knob = *Db(extras_).GetEnvvar("Knob");
    sigtype& raw8 = *Db(extras_).mSigTypes;
    const std::function<bool()> resets[] = {
        [&] { return mgr_.ResetAttrValue(engineData, "GenMsgCycleTime"); },
        [&] { return mgr_.ResetAttrValue(temp, "SigMode"); },
        [&] { return mgr_.ResetAttrValue(knob, "EnvLevel"); },
        [&] { return mgr_.ResetAttrValue(raw8, "TypeRank"); },
        [&] { return mgr_.ResetAttrValue("DBName", pt_); },
    };
    for (const auto& reset : resets) {
        EXPECT_TRUE(reset()) << &reset - resets;
        EXPECT_FALSE(reset()) << &reset - resets;  // gone
    }
    EXPECT_FALSE(mgr_.ResetAttrValue("DBName", unknown_.c_str()));
}

TEST_F(EditTest, FailedAllocationsLeaveAttributeValuesAsTheyWere) {
    symblk& gateway = Node(pt_, "Gateway");
    symblk& engine = Node(pt_, "Engine");
    const attr* engineLayer = engine.attributes;
    // Allocations that still succeed, and a value set.
    const std::pair<long, std::function<bool()>> cases[] = {
        {0, [&] { return mgr_.SetAttrValue(gateway, "BusSpeed", AttrNumber(1)); }},
        {1, [&] { return mgr_.SetAttrValue(gateway, "NodeLayer", AttrText("x")); }},  // no text
        {0, [&] { return mgr_.SetAttrValue(engine, "NodeLayer", AttrText("x")); }},
    };
    for (const auto& [allowed, set] : cases) {
        const long blocks = LiveAllocations();
        model::FailAllocationsAfter(allowed);
        EXPECT_FALSE(set());
        model::FailAllocationsAfter(-1);
        EXPECT_EQ(LiveAllocations(), blocks);
        EXPECT_EQ(+gateway.attributes, nullptr);
        EXPECT_EQ(+engine.attributes, engineLayer);
        EXPECT_EQ(Values(engine.attributes), "NodeLayer=hw ");
    }
}

// ---- Value descriptions, comments, user data -------------------------------------

using Descriptions = std::vector<std::pair<long, std::string>>;

Descriptions DescriptionsOf(const val* list) {
    Descriptions seen;
    for (; list != nullptr; list = list->next) {
        seen.emplace_back(list->value, list->text);
    }
    return seen;
}

// Record by record, a record with the text gets the value, else one with
// the value gets the text; none: a new record at the head.
template <class Record>
void ExpectDescriptions(TavloWriteManager& mgr, Record& object) {
    const std::string t = "Temperature_sensor_reading_fault";  // 32 characters
    const std::string u = "Undervoltage";
    const std::string w(40, 'W');
    const std::string w32(32, 'W');
    const long wide = sizeof(long) > sizeof(int) ? static_cast<long>(0x100000005LL) : 5;
    const std::pair<std::pair<std::string, long>, Descriptions> cases[] = {
        {{t, 5}, {{5, t}, {5, u}}},  // the first record bears the text
        {{u, 3}, {{3, u}, {5, u}}},  // the first bears the value, a later one the text
        {{"Valve", 5}, {{3, t}, {5, "Valve"}}},
        {{u, 5}, {{3, t}, {5, u}}},
        {{t + "_extra", 9}, {{9, t}, {5, u}}},  // texts agree in their first 32 characters
        {{"Valve", 7}, {{7, "Valve"}, {3, t}, {5, u}}},
        {{w, 8}, {{8, w32}, {3, t}, {5, u}}},  // a new text is cut to 32 characters
        {{"Valve", wide}, {{3, t}, {5, "Valve"}}},  // values match on their low 32 bits
    };
    for (const auto& [set, expected] : cases) {
        model::ReleaseValueDescriptions(object.value_descriptions);
        object.value_descriptions = nullptr;
        mgr.SetValueDescription(object, u.c_str(), 5);
        mgr.SetValueDescription(object, t.c_str(), 3);
        mgr.SetValueDescription(object, set.first.c_str(), set.second);
        EXPECT_EQ(DescriptionsOf(object.value_descriptions), expected) << set.first;
    }
    const Descriptions before = DescriptionsOf(object.value_descriptions);
    const long blocks = LiveAllocations();
    model::FailAllocationsAfter(0);
    mgr.SetValueDescription(object, "Fresh", 42);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(DescriptionsOf(object.value_descriptions), before);
    EXPECT_EQ(LiveAllocations(), blocks);
}

TEST_F(EditTest, ValueDescriptionsTextFirstThenValueRecordByRecord) {
    ExpectDescriptions(mgr_, Signal(pt_, "EngineData", "EngineTemp"));
    ExpectDescriptions(mgr_, *Db(body_).GetEnvvar("BodyEnv"));
}

// Stored as a copy; its own comment handed back stays; null removes it.
template <class Record>
void ExpectComments(TavloWriteManager& mgr, Record& object) {
    const std::string text = "a comment";
    const char* stored = mgr.SetComment(object, text.c_str());
    EXPECT_EQ(stored, +object.comment);
    EXPECT_NE(stored, text.c_str());
    stored = mgr.SetComment(object, object.comment);
    EXPECT_EQ(stored, +object.comment);
    EXPECT_EQ(std::string(object.comment), text);
    const long blocks = LiveAllocations();
    EXPECT_EQ(mgr.SetComment(object, nullptr), nullptr);
    EXPECT_EQ(+object.comment, nullptr);
    EXPECT_EQ(LiveAllocations(), blocks - 1);
}

TEST_F(EditTest, CommentsAndUserDataAreCopies) {
    ExpectComments(mgr_, Node(pt_, "Engine"));
    ExpectComments(mgr_, *Db(pt_).GetMessage("GearData"));
    ExpectComments(mgr_, *Db(pt_).GetEnvvar("PtEnvB"));
    ExpectComments(mgr_, Signal(body_, "GearData", "GearEcho"));
    ExpectComments(mgr_, *Db(extras_).mSigTypes);

    mgr_.SetDatabaseComment("Changed", pt_);
    mgr_.SetDatabaseComment(mgr_.GetDatabaseComment(pt_), pt_);
    mgr_.SetDatabaseComment("Elsewhere", unknown_.c_str());
    EXPECT_STREQ(mgr_.GetDatabaseComment(pt_), "Changed");
    mgr_.SetDatabaseComment(nullptr, pt_);
    EXPECT_EQ(mgr_.GetDatabaseComment(pt_), nullptr);

    const std::string version = "PT 2.0";
    const char* stored = mgr_.SetUserData(version.c_str(), pt_);
    EXPECT_EQ(stored, +Db(pt_).mUserData);
    EXPECT_NE(stored, version.c_str());
    EXPECT_STREQ(stored, "PT 2.0");
    EXPECT_STREQ(mgr_.GetUserData(body_), "Body 3");
    EXPECT_EQ(mgr_.GetDatabaseComment(body_), nullptr);
    // An unknown handle (or none) has no texts, and says so with status 2.
    for (const char* unknown : {unknown_.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(mgr_.SetUserData("Body 9", unknown), nullptr);
        mgr_.GetPriority(pt_);
        EXPECT_EQ(mgr_.GetDatabaseComment(unknown), nullptr);
        EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
        mgr_.GetPriority(pt_);
        EXPECT_EQ(mgr_.GetUserData(unknown), nullptr);
        EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    }
}

// ---- View filters and the removal walk ------------------------------------------------

// The names of what the entries of a list name, each followed by a blank.
template <class Entry, class Target>
std::string Targets(const Entry* entry, Target* Entry::*field) {
    std::string names;
    for (; entry != nullptr; entry = entry->next) {
        const Target* target = entry->*field;
        names += std::string(target != nullptr ? target->name : "(none)") + " ";
    }
    return names;
}

TEST_F(EditTest, FilterEntriesGoToTheHeadAndNoneIsStoredAsAnEntryNamingNone) {
    TavloDatabase& body = Db(body_);
    symblk& door = Node(body_, "Door");
    for (symblk* node : {&door, TAVLONONEFILTERNODE(), &door}) {
        mgr_.AddFilterNode(*node, body_);
    }
    mgr_.AddFilterCategory(*TAVLONONEFILTERCATEGORY(), body_);
    mgr_.AddFilterCategory(*body.mCategories, body_);
    EXPECT_TRUE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), body_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*TAVLONONEFILTERCATEGORY(), body_));
    // Removing None looks for the None record itself, which no entry holds.
    mgr_.RemoveFilterNode(*TAVLONONEFILTERNODE(), body_);
    mgr_.RemoveFilterCategory(*TAVLONONEFILTERCATEGORY(), body_);
    // Unknown handles and failed allocations change nothing.
    mgr_.AddFilterNode(door, unknown_.c_str());
    mgr_.RemoveFilterNode(Node(pt_, "Engine"), unknown_.c_str());
    mgr_.AddFilterCategory(*body.mCategories, unknown_.c_str());
    mgr_.RemoveFilterCategory(*Db(pt_).mCategories, unknown_.c_str());
    model::FailAllocationsAfter(0);
    mgr_.AddFilterNode(door, body_);
    mgr_.AddFilterCategory(*body.mCategories, body_);
    model::FailAllocationsAfter(-1);
    EXPECT_EQ(Targets(+body.mFilter.nodes, &rxblk::symbol), "Door (none) Door ");
    EXPECT_EQ(+body.mFilter.nodes->next->attributes, nullptr);
    EXPECT_EQ(Targets(+body.mFilter.categories, &filtercatblk::act), "Comfort (none) ");
    EXPECT_EQ(Targets(+Db(pt_).mFilter.nodes, &rxblk::symbol), "Engine (none) ");
    EXPECT_EQ(Targets(+Db(pt_).mFilter.categories, &filtercatblk::act), "Drive (none) ");
}

// One list of references the removal walk works on: add puts an entry
// naming the node (or signal or category) of a name at the head, remove
// takes every entry naming it, names lists them.
struct WalkedList {
    const char* what;
    std::function<void(char)> add;
    std::function<void(char)> remove;
    std::function<std::string()> names;
};

TEST_F(EditTest, RemovalTakesEveryEntryOfTheTargetAndDropsWhatPrecedesARepeat) {
    // The walk forgets its predecessor after each removal, so a match right
    // behind another is unlinked as if it were the head: the list then starts
    // behind it, and the entries in front of it drop out unreleased.
    // Deliberate. The entries put in front of a list, and those of them left
    // after X is removed.
    const std::pair<std::string, std::string> cases[] = {
        {"AXX", ""},  {"XAX", "A"}, {"AXBX", "AB"},  {"XXA", "A"},    {"AB", "AB"},
        {"X", ""},    {"XXX", ""},  {"AXBXX", ""},   {"ABXXC", "C"}, {"", ""}};
    TavloDatabase& db = Db(extras_);
    msgblk& frame = *db.mMessages;
    sigblk& signal = *frame.signals;
    siggroupblk& group = *frame.signal_groups;
    env_var_blk& knob = *db.mEnvvars;
    std::map<char, symblk*> nodes;
    std::map<char, cat*> categories;
    std::map<char, sigblk*> signals;
    const unsigned short signalCount = frame.signal_count;
    for (const char letter : {'A', 'B', 'C', 'X'}) {
        const char name[] = {letter, '\0'};
        model::CopyName((nodes[letter] = mgr_.CreateNode(extras_, 0))->name, name);
        model::CopyName((categories[letter] = mgr_.CreateCategory(extras_, 0))->name, name);
        model::CopyName((signals[letter] = mgr_.CreateSignal(frame, 0))->name, name);
        mgr_.AddAccessNode(knob, *nodes[letter]);  // counted, never removed
    }
    EXPECT_EQ(+frame.signal_count, signalCount + 4);
    EXPECT_EQ(Targets(+knob.access_nodes, &rxblk::symbol), "X C B A Alpha Gateway ");
    EXPECT_EQ(+knob.access_node_count, 6);
    const WalkedList lists[] = {
        {"filter nodes", [&](char n) { mgr_.AddFilterNode(*nodes[n], extras_); },
         [&](char n) { mgr_.RemoveFilterNode(*nodes[n], extras_); },
         [&] { return Targets(+db.mFilter.nodes, &rxblk::symbol); }},
        {"filter categories", [&](char n) { mgr_.AddFilterCategory(*categories[n], extras_); },
         [&](char n) { mgr_.RemoveFilterCategory(*categories[n], extras_); },
         [&] { return Targets(+db.mFilter.categories, &filtercatblk::act); }},
        {"receivers", [&](char n) { mgr_.AddReceiver(signal, *nodes[n]); },
         [&](char n) { mgr_.RemoveReceiver(signal, *nodes[n]); },
         [&] { return Targets(+signal.receivers, &rxblk::symbol); }},
        {"transmitters", [&](char n) { mgr_.AddTransmitter(frame, *nodes[n]); },
         [&](char n) { mgr_.RemoveTransmitter(frame, *nodes[n]); },
         [&] { return Targets(+frame.transmitters, &rxblk::symbol); }},
        {"group members", [&](char n) { mgr_.AddSignal(group, *signals[n]); },
         [&](char n) { mgr_.RemoveSignal(group, *signals[n]); },
         [&] { return Targets(+group.signals, &siglistblk::signal); }},
    };
    const auto spaced = [](const std::string& letters) {
        std::string names;
        for (const char letter : letters) {
            names += std::string(1, letter) + " ";
        }
        return names;
    };
    for (const WalkedList& list : lists) {
        for (const auto& [order, left] : cases) {
            SCOPED_TRACE(std::string(list.what) + " " + order);
            const std::string before = list.names();  // none of them X
            const int receivers = signal.receiver_count;
            for (auto letter = order.rbegin(); letter != order.rend(); ++letter) {
                list.add(*letter);
            }
            ASSERT_EQ(list.names(), spaced(order) + before);
            const long blocks = LiveAllocations();
            list.remove('X');
            EXPECT_EQ(list.names(), spaced(left) + before);
            const long removed = std::count(order.begin(), order.end(), 'X');
            EXPECT_EQ(LiveAllocations(), blocks - removed);  // the dropped ones are not released
            if (&list == &lists[2]) {
                EXPECT_EQ(+signal.receiver_count, receivers + static_cast<int>(order.size() - removed));
            }
        }
    }
}

}  // namespace
}  // namespace tavlo::test
