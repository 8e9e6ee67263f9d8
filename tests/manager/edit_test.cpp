// tests/manager/edit_test.cpp: the write manager's edits of attribute values,
// value descriptions, comments, user data and view filters, over powertrain
// and body opened side by side in one write manager, and the shared removal
// walk with the entries it drops.
#include <gtest/gtest.h>

#include <cstring>
#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "manager/fixture.h"
#include "manager/removal.h"
#include "model/model.h"
#include "support/death.h"

namespace tavlo::test {
namespace {

using tavlo::model::LiveAllocations;

tavlo_attr_value_t Number(double number) {
    tavlo_attr_value_t value;
    std::memset(value.bytes, 0, sizeof value.bytes);
    value.number = number;
    return value;
}

tavlo_attr_value_t Text(const char* text) {
    tavlo_attr_value_t value;
    std::memset(value.bytes, 0, sizeof value.bytes);
    value.text = const_cast<char*>(text);
    return value;
}

// Every allocation after the next `count` fails until the guard goes, even
// when an assertion ends the test early.
class AllocationLimit {
public:
    explicit AllocationLimit(long count) { tavlo::model::FailAllocationsAfter(count); }
    ~AllocationLimit() { tavlo::model::FailAllocationsAfter(-1); }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};

// A record the test data must hold; a missing one fails the test.
template <class T>
T& Found(T* record, const std::string& what) {
    if (record == nullptr) {
        throw std::runtime_error("not in the test data: " + what);
    }
    return *record;
}

// "name=value" for each attribute value of a list, in list order.
std::vector<std::string> Values(const attr* list) {
    std::vector<std::string> seen;
    for (; list != nullptr; list = list->next) {
        const attr_def* def = list->def;
        const tavlo_attr_value_t value = list->value;
        seen.push_back(std::string(def->name) + "=" +
                       (def->value_type == TAVLO_ATTR_STRING
                            ? std::string(value.text)
                            : std::to_string(static_cast<long>(value.number))));
    }
    return seen;
}

const attr* ValueNamed(const attr* list, const char* name) {
    for (; list != nullptr; list = list->next) {
        const attr_def* def = list->def;
        if (std::strcmp(def->name, name) == 0) {
            return list;
        }
    }
    return nullptr;
}

// Every edit stays in memory: nothing is written to the data files.
class EditTest : public PowertrainAndBodyTest<TavloWriteManager> {
protected:
    TavloDatabase& Db(const char* dbName) { return *mgr_.GetDatabase(dbName); }
    symblk& Node(const char* dbName, const char* name) {
        return Found(Db(dbName).GetNode(name), name);
    }
    msgblk& Message(const char* dbName, const char* name) {
        return Found(Db(dbName).GetMessage(name), name);
    }
    sigblk& Signal(const char* dbName, const char* message, const char* name) {
        sigblk* signal = Message(dbName, message).signals;
        while (signal != nullptr && std::strcmp(signal->name, name) != 0) {
            signal = signal->next;
        }
        return Found(signal, name);
    }
    env_var_blk& Envvar(const char* dbName, const char* name) {
        return Found(Db(dbName).GetEnvvar(name), name);
    }
    attr_def& Definition(const char* dbName, const char* name) {
        return Found(Db(dbName).GetAttrDef(name), name);
    }

};

// ---- Attribute values -------------------------------------------------------------

TEST_F(EditTest, StringValueSetTwiceKeepsOneRecordHoldingACopyOfTheSecondText) {
    symblk& gateway = Node(pt_, "Gateway");
    ASSERT_EQ(+gateway.attributes, nullptr);

    std::string first = "first";
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "NodeLayer", Text(first.c_str())));
    const attr* record = gateway.attributes;
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(+record->def, &Definition(pt_, "NodeLayer"));
    char* const firstCopy = record->value.text;
    EXPECT_NE(firstCopy, first.c_str());
    first[0] = 'F';
    EXPECT_STREQ(firstCopy, "first");

    const long blocks = LiveAllocations();
    std::string second = "second";
    EXPECT_TRUE(mgr_.SetAttrValue(gateway, "NodeLayer", Text(second.c_str())));
    // One block more: the new copy. The old text is not released.
    EXPECT_EQ(LiveAllocations(), blocks + 1);
    EXPECT_EQ(mgr_.AttributeCount(gateway), 1u);
    EXPECT_EQ(+gateway.attributes, record);
    EXPECT_NE(+record->value.text, second.c_str());
    EXPECT_STREQ(+record->value.text, "second");
    EXPECT_STREQ(+mgr_.GetAttrValue(gateway, "NodeLayer").text, "second");

    // The old text is its reader's affair; this test read it, so it frees it.
    TAVLO_MFREE(firstCopy);
}

TEST_F(EditTest, NumbersAndEnumIndexesAreOverwrittenInTheirRecord) {
    struct Case {
        const char* what;
        std::function<bool(tavlo_attr_value_t)> set;
        std::function<const attr*()> list;
        const char* name;
        long was;
    };
    msgblk& engineData = Message(pt_, "EngineData");
    sigblk& engineTemp = Signal(pt_, "EngineData", "EngineTemp");
    const Case cases[] = {
        {"message INT", [&](tavlo_attr_value_t v) {
             return mgr_.SetAttrValue(engineData, "GenMsgCycleTime", v);
         },
         [&] { return +engineData.attributes; }, "GenMsgCycleTime", 10},
        {"signal ENUM index", [&](tavlo_attr_value_t v) {
             return mgr_.SetAttrValue(engineTemp, "SigMode", v);
         },
         [&] { return +engineTemp.attributes; }, "SigMode", 2},
    };
    for (const Case& c : cases) {
        const attr* before = ValueNamed(c.list(), c.name);
        ASSERT_NE(before, nullptr) << c.what;
        ASSERT_EQ(static_cast<long>(+before->value.number), c.was) << c.what;
        const std::vector<std::string> others = Values(c.list());
        const long blocks = LiveAllocations();

        EXPECT_TRUE(c.set(Number(0))) << c.what;
        EXPECT_EQ(ValueNamed(c.list(), c.name), before) << c.what;
        EXPECT_EQ(+before->value.number, 0.0) << c.what;
        EXPECT_EQ(Values(c.list()).size(), others.size()) << c.what;
        EXPECT_EQ(LiveAllocations(), blocks) << c.what;
    }
}

TEST_F(EditTest, NewValuesGoToTheHeadWhateverObjectKindTheirDefinitionIsFor) {
    symblk& engine = Node(pt_, "Engine");
    ASSERT_EQ(Values(engine.attributes), std::vector<std::string>{"NodeLayer=hw"});

    // No range, type or object kind check: a network INT and an out-of-range
    // FLOAT are taken on a node.
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "BusSpeed", Number(250000)));
    EXPECT_TRUE(mgr_.SetAttrValue(engine, "EnvLevel", Number(12)));
    EXPECT_EQ(Values(engine.attributes),
              (std::vector<std::string>{"EnvLevel=12", "BusSpeed=250000", "NodeLayer=hw"}));
    const attr* head = engine.attributes;
    EXPECT_EQ(+head->def, &Definition(pt_, "EnvLevel"));
    EXPECT_TRUE(mgr_.IsAttrValueDefined(engine, "BusSpeed"));

    // A signal type is found in its database like every other object.
    sigtype* type = Db(body_).CreateSignalType(0);
    ASSERT_NE(type, nullptr);
    EXPECT_TRUE(mgr_.SetAttrValue(*type, "NodeLayer", Number(4)));
    EXPECT_EQ(Values(type->attributes), std::vector<std::string>{"NodeLayer=4"});
    EXPECT_EQ(+type->attributes->def, &Definition(body_, "NodeLayer"));
}

TEST_F(EditTest, ValuesTheObjectsOwnDatabaseDoesNotDefineAreNotAdded) {
    // A database of another manager: none of mgr_'s holds its node A.
    TavloManager reader(static_cast<void*>(nullptr));
    const char* small = nullptr;
    ASSERT_EQ(reader.OpenDatabase(WriteDatabase("small.dbc").c_str(), &small, "Small", 0),
              TAVLO_STATUS_OK);
    symblk& strangerNode = Found(reader.GetDatabase(small)->GetNode("A"), "A");

    sigblk& doorOpen = Signal(body_, "DoorStatus", "DoorOpen");
    env_var_blk& bodyEnv = Envvar(body_, "BodyEnv");
    msgblk& doorStatus = Message(body_, "DoorStatus");
    symblk& door = Node(body_, "Door");
    symblk& gateway = Node(pt_, "Gateway");
    struct Case {
        const char* what;
        std::function<bool()> set;
        std::function<bool()> defined;
        std::function<const attr*()> list;
    };
    const Case cases[] = {
        {"body signal: only powertrain defines SigMode",
         [&] { return mgr_.SetAttrValue(doorOpen, "SigMode", Number(1)); },
         [&] { return mgr_.IsAttrValueDefined(doorOpen, "SigMode"); },
         [&] { return +doorOpen.attributes; }},
        {"body variable: only powertrain defines EnvLevel",
         [&] { return mgr_.SetAttrValue(bodyEnv, "EnvLevel", Number(1)); },
         [&] { return mgr_.IsAttrValueDefined(bodyEnv, "EnvLevel"); },
         [&] { return +bodyEnv.attributes; }},
        {"body message: only powertrain defines BusSpeed",
         [&] { return mgr_.SetAttrValue(doorStatus, "BusSpeed", Number(1)); },
         [&] { return mgr_.IsAttrValueDefined(doorStatus, "BusSpeed"); },
         [&] { return +doorStatus.attributes; }},
        {"body node: defined nowhere",
         [&] { return mgr_.SetAttrValue(door, "NoSuchAttribute", Number(1)); },
         [&] { return mgr_.IsAttrValueDefined(door, "NoSuchAttribute"); },
         [&] { return +door.attributes; }},
        {"powertrain node: names differ in case",
         [&] { return mgr_.SetAttrValue(gateway, "nodelayer", Text("x")); },
         [&] { return mgr_.IsAttrValueDefined(gateway, "nodelayer"); },
         [&] { return +gateway.attributes; }},
        {"body network: only powertrain defines BusSpeed",
         [&] { return mgr_.SetAttrValue("BusSpeed", body_, Number(1)); },
         [&] { return mgr_.IsAttrValueDefined("BusSpeed", body_); },
         [&] { return Db(body_).mDbAttrs; }},
        {"a handle the manager did not hand out",
         [&] { return mgr_.SetAttrValue("BusSpeed", unknown_.c_str(), Number(1)); },
         [&] { return mgr_.IsAttrValueDefined("BusSpeed", pt_); },
         [&] { return Db(pt_).mDbAttrs; }},
        {"a node of no database of the manager, though powertrain defines NodeLayer",
         [&] { return mgr_.SetAttrValue(strangerNode, "NodeLayer", Text("x")); },
         [&] { return reader.IsAttrValueDefined(strangerNode, "NodeLayer"); },
         [&] { return +strangerNode.attributes; }},
    };
    for (const Case& c : cases) {
        const attr* before = c.list();
        const long blocks = LiveAllocations();
        EXPECT_FALSE(c.set()) << c.what;
        EXPECT_FALSE(c.defined()) << c.what;
        EXPECT_EQ(c.list(), before) << c.what;
        EXPECT_EQ(LiveAllocations(), blocks) << c.what;
    }
    EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);  // left by the unknown handle's case
}

TEST_F(EditTest, NetworkValuesOfADatabase) {
    ASSERT_FALSE(mgr_.IsAttrValueDefined("BusSpeed", pt_));
    ASSERT_EQ(+mgr_.GetAttrValue("BusSpeed", pt_).number, 500000.0);

    EXPECT_TRUE(mgr_.SetAttrValue("BusSpeed", pt_, Number(250000)));
    EXPECT_EQ(+Db(pt_).mDbAttrs->def, &Definition(pt_, "BusSpeed"));
    EXPECT_EQ(+mgr_.GetAttrValue("BusSpeed", pt_).number, 250000.0);
    EXPECT_TRUE(mgr_.SetAttrValue("BusSpeed", pt_, Number(125000)));
    EXPECT_EQ(Values(Db(pt_).mDbAttrs),
              (std::vector<std::string>{"BusSpeed=125000", "DBName=Powertrain"}));
    EXPECT_FALSE(mgr_.IsAttrValueDefined("BusSpeed", body_));

    // The database's name text is replaced by a copy; the old one is left
    // to whoever read it, here this test.
    char* const oldName = ValueNamed(Db(pt_).mDbAttrs, "DBName")->value.text;
    EXPECT_TRUE(mgr_.SetAttrValue("DBName", pt_, Text("Renamed")));
    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", pt_).text, "Renamed");
    TAVLO_MFREE(oldName);

    EXPECT_TRUE(mgr_.ResetAttrValue("BusSpeed", pt_));
    EXPECT_FALSE(mgr_.IsAttrValueDefined("BusSpeed", pt_));
    EXPECT_EQ(+mgr_.GetAttrValue("BusSpeed", pt_).number, 500000.0);
    EXPECT_FALSE(mgr_.ResetAttrValue("BusSpeed", pt_));
    EXPECT_FALSE(mgr_.ResetAttrValue("DBName", unknown_.c_str()));
    EXPECT_EQ(Values(Db(pt_).mDbAttrs), std::vector<std::string>{"DBName=Renamed"});
}

TEST_F(EditTest, ResetRemovesOnlyTheFirstValueOfTheName) {
    symblk& gateway = Node(pt_, "Gateway");
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "BusSpeed", Number(1)));
    // A second value of the same name, as a file naming it twice leaves it.
    attr* twice = tavlo::model::Allocate<attr>();
    ASSERT_NE(twice, nullptr);
    twice->def = &Definition(pt_, "BusSpeed");
    twice->value = Number(2);
    attr* first = gateway.attributes;
    first->next = twice;
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, "EnvLevel", Number(7)));
    ASSERT_EQ(Values(gateway.attributes),
              (std::vector<std::string>{"EnvLevel=7", "BusSpeed=1", "BusSpeed=2"}));

    const long blocks = LiveAllocations();
    EXPECT_TRUE(mgr_.ResetAttrValue(gateway, "BusSpeed"));
    EXPECT_EQ(LiveAllocations(), blocks - 1);
    EXPECT_EQ(Values(gateway.attributes),
              (std::vector<std::string>{"EnvLevel=7", "BusSpeed=2"}));
    EXPECT_EQ(+mgr_.GetAttrValue(gateway, "BusSpeed").number, 2.0);
    EXPECT_TRUE(mgr_.ResetAttrValue(gateway, "BusSpeed"));
    EXPECT_FALSE(mgr_.ResetAttrValue(gateway, "BusSpeed"));
    EXPECT_TRUE(mgr_.ResetAttrValue(gateway, "EnvLevel"));
    EXPECT_EQ(+gateway.attributes, nullptr);
    EXPECT_FALSE(mgr_.ResetAttrValue(gateway, "EnvLevel"));

    // A STRING value goes as a record only; its text stays for its readers.
    symblk& engine = Node(pt_, "Engine");
    char* const hw = ValueNamed(engine.attributes, "NodeLayer")->value.text;
    const long before = LiveAllocations();
    EXPECT_TRUE(mgr_.ResetAttrValue(engine, "NodeLayer"));
    EXPECT_EQ(LiveAllocations(), before - 1);
    EXPECT_STREQ(hw, "hw");
    TAVLO_MFREE(hw);
}

TEST_F(EditTest, ResetWorksOnEveryKindOfObject) {
    msgblk& engineData = Message(pt_, "EngineData");
    sigblk& engineTemp = Signal(pt_, "EngineData", "EngineTemp");
    env_var_blk& ptEnvA = Envvar(pt_, "PtEnvA");
    sigtype* type = Db(pt_).CreateSignalType(0);
    ASSERT_NE(type, nullptr);
    ASSERT_TRUE(mgr_.SetAttrValue(ptEnvA, "EnvLevel", Number(3)));
    ASSERT_TRUE(mgr_.SetAttrValue(*type, "EnvLevel", Number(3)));
    struct Case {
        const char* what;
        std::function<bool()> reset;
        std::function<bool()> defined;
    };
    const Case cases[] = {
        {"message", [&] { return mgr_.ResetAttrValue(engineData, "GenMsgCycleTime"); },
         [&] { return mgr_.IsAttrValueDefined(engineData, "GenMsgCycleTime"); }},
        {"signal", [&] { return mgr_.ResetAttrValue(engineTemp, "SigMode"); },
         [&] { return mgr_.IsAttrValueDefined(engineTemp, "SigMode"); }},
        {"variable", [&] { return mgr_.ResetAttrValue(ptEnvA, "EnvLevel"); },
         [&] { return mgr_.IsAttrValueDefined(ptEnvA, "EnvLevel"); }},
        {"signal type", [&] { return mgr_.ResetAttrValue(*type, "EnvLevel"); },
         [&] { return mgr_.IsAttrValueDefined(*type, "EnvLevel"); }},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(c.defined()) << c.what;
        EXPECT_TRUE(c.reset()) << c.what;
        EXPECT_FALSE(c.defined()) << c.what;
        EXPECT_FALSE(c.reset()) << c.what;
    }
}

TEST_F(EditTest, AttributeNamesAgreeInTheirFirst32Characters) {
    const std::string name32 = "Attribute_name_of_32_characters_";
    ASSERT_EQ(name32.size(), 32u);
    const std::string longer = name32 + "and_more";
    attr_def* def = Db(pt_).CreateAttrDef(0);
    ASSERT_NE(def, nullptr);
    tavlo::model::CopyName(def->name, name32.c_str());
    def->object_type = TAVLO_OBJ_NODE;
    def->value_type = TAVLO_ATTR_INT;

    symblk& gateway = Node(pt_, "Gateway");
    ASSERT_TRUE(mgr_.SetAttrValue(gateway, name32.c_str(), Number(1)));
    EXPECT_TRUE(mgr_.SetAttrValue(gateway, longer.c_str(), Number(2)));
    EXPECT_EQ(Values(gateway.attributes), std::vector<std::string>{name32 + "=2"});
    EXPECT_TRUE(mgr_.ResetAttrValue(gateway, longer.c_str()));
    EXPECT_EQ(+gateway.attributes, nullptr);
}

TEST_F(EditTest, FailedAllocationsLeaveAttributeValuesAsTheyWere) {
    symblk& gateway = Node(pt_, "Gateway");
    symblk& engine = Node(pt_, "Engine");
    const attr* engineLayer = ValueNamed(engine.attributes, "NodeLayer");
    struct Case {
        const char* what;
        long allowed;  // allocations that still succeed
        std::function<bool()> set;
    };
    const Case cases[] = {
        {"new record", 0, [&] { return mgr_.SetAttrValue(gateway, "BusSpeed", Number(1)); }},
        {"new record, its text", 0,
         [&] { return mgr_.SetAttrValue(gateway, "NodeLayer", Text("x")); }},
        {"new record made, its text not", 1,
         [&] { return mgr_.SetAttrValue(gateway, "NodeLayer", Text("x")); }},
        {"the text of a value that exists", 0,
         [&] { return mgr_.SetAttrValue(engine, "NodeLayer", Text("x")); }},
    };
    for (const Case& c : cases) {
        const long blocks = LiveAllocations();
        {
            AllocationLimit limit(c.allowed);
            EXPECT_FALSE(c.set()) << c.what;
        }
        EXPECT_EQ(LiveAllocations(), blocks) << c.what;
        EXPECT_EQ(+gateway.attributes, nullptr) << c.what;
        EXPECT_EQ(+engine.attributes, engineLayer) << c.what;
        EXPECT_STREQ(+engineLayer->value.text, "hw") << c.what;
    }
}

TEST_F(EditTest, NullNamesAndDescriptionsAreAssertionFailures) {
    symblk& node = Node(pt_, "Engine");
    msgblk& message = Message(pt_, "EngineData");
    env_var_blk& envvar = Envvar(pt_, "PtEnvA");
    sigblk& signal = Signal(pt_, "EngineData", "EngineTemp");
    sigtype* type = Db(pt_).CreateSignalType(0);
    ASSERT_NE(type, nullptr);
    const tavlo_attr_value_t one = Number(1);
    struct Case {
        const char* what;
        std::function<void()> call;
        const char* condition;
    };
    const Case cases[] = {
        {"set network", [&] { mgr_.SetAttrValue(nullptr, pt_, one); }, "attrName != NULL"},
        {"set node", [&] { mgr_.SetAttrValue(node, nullptr, one); }, "attrName != NULL"},
        {"set message", [&] { mgr_.SetAttrValue(message, nullptr, one); }, "attrName != NULL"},
        {"set variable", [&] { mgr_.SetAttrValue(envvar, nullptr, one); }, "attrName != NULL"},
        {"set type", [&] { mgr_.SetAttrValue(*type, nullptr, one); }, "attrName != NULL"},
        {"set signal", [&] { mgr_.SetAttrValue(signal, nullptr, one); }, "attrName != NULL"},
        // Also where the handle is unknown: the name is checked first.
        {"reset network", [&] { mgr_.ResetAttrValue(nullptr, unknown_.c_str()); },
         "attrName != NULL"},
        {"reset node", [&] { mgr_.ResetAttrValue(node, nullptr); }, "attrName != NULL"},
        {"reset message", [&] { mgr_.ResetAttrValue(message, nullptr); }, "attrName != NULL"},
        {"reset variable", [&] { mgr_.ResetAttrValue(envvar, nullptr); }, "attrName != NULL"},
        {"reset type", [&] { mgr_.ResetAttrValue(*type, nullptr); }, "attrName != NULL"},
        {"reset signal", [&] { mgr_.ResetAttrValue(signal, nullptr); }, "attrName != NULL"},
        {"signal description", [&] { mgr_.SetValueDescription(signal, nullptr, 1); },
         "description != NULL"},
        {"variable description", [&] { mgr_.SetValueDescription(envvar, nullptr, 1); },
         "description != NULL"},
    };
    for (const Case& c : cases) {
        EXPECT_DEATH(c.call(), std::string("Assertion failed: ") + c.condition +
                                   ", module dbmswrte, line " TAVLO_LINE_NUMBER)
            << c.what;
    }
}

// ---- Value descriptions -----------------------------------------------------------------

using Descriptions = std::vector<std::pair<long, std::string>>;

Descriptions DescriptionsOf(const val* list) {
    Descriptions seen;
    for (; list != nullptr; list = list->next) {
        seen.emplace_back(list->value, list->text);
    }
    return seen;
}

// 32 characters, so that a longer text agrees with it where texts are compared.
const char kT[] = "Temperature_sensor_reading_fault";
const char kU[] = "Undervoltage";

// Runs every case on a list set up as (3, T), (5, U) for the record.
template <class Record>
void CheckDescriptions(TavloWriteManager& mgr, Record& object, const char* kind) {
    const std::string t32 = kT;
    ASSERT_EQ(t32.size(), 32u);
    const std::string w40(40, 'W');
    struct Case {
        const char* what;
        std::string description;
        long value;
        Descriptions expected;
    };
    const Case cases[] = {
        {"the first record bears the text", kT, 5, {{5, kT}, {5, kU}}},
        {"the first record bears the value, a later one the text", kU, 3, {{3, kU}, {5, kU}}},
        {"the second record bears the value", "Valve", 5, {{3, kT}, {5, "Valve"}}},
        {"the second record bears the text", kU, 5, {{3, kT}, {5, kU}}},
        {"a longer text agrees in its first 32 characters", t32 + "_extra", 9,
         {{9, kT}, {5, kU}}},
        {"neither: a new record at the head", "Valve", 7, {{7, "Valve"}, {3, kT}, {5, kU}}},
        {"a new text is cut to 32 characters", w40, 8,
         {{8, std::string(32, 'W')}, {3, kT}, {5, kU}}},
        {"a value is matched on its low 32 bits", "Valve",
         static_cast<long>(sizeof(long) > sizeof(int) ? 0x100000005LL : 5),
         {{3, kT}, {5, "Valve"}}},
        {"a value the text of the second replaces", w40, 5,
         {{3, kT}, {5, std::string(32, 'W')}}},
    };
    for (const Case& c : cases) {
        tavlo::model::ReleaseValueDescriptions(object.value_descriptions);
        object.value_descriptions = nullptr;
        mgr.SetValueDescription(object, kU, 5);
        mgr.SetValueDescription(object, kT, 3);
        ASSERT_EQ(DescriptionsOf(object.value_descriptions), (Descriptions{{3, kT}, {5, kU}}))
            << kind;

        mgr.SetValueDescription(object, c.description.c_str(), c.value);
        EXPECT_EQ(DescriptionsOf(object.value_descriptions), c.expected)
            << kind << ": " << c.what;
    }

    const Descriptions before = DescriptionsOf(object.value_descriptions);
    const long blocks = LiveAllocations();
    {
        AllocationLimit limit(0);
        mgr.SetValueDescription(object, "Fresh", 42);
    }
    EXPECT_EQ(DescriptionsOf(object.value_descriptions), before) << kind;
    EXPECT_EQ(LiveAllocations(), blocks) << kind;
}

TEST_F(EditTest, ValueDescriptionsTextFirstThenValueRecordByRecord) {
    CheckDescriptions(mgr_, Signal(pt_, "EngineData", "EngineTemp"), "signal");
    CheckDescriptions(mgr_, Envvar(body_, "BodyEnv"), "variable");
    // What the read side answers agrees with the list.
    const sigblk& temp = Signal(pt_, "EngineData", "EngineTemp");
    EXPECT_EQ(mgr_.GetDescriptionValue(temp, kT), 3);
    EXPECT_STREQ(mgr_.GetValueDescription(temp, 5), std::string(32, 'W').c_str());
}

// ---- Comments and user data ---------------------------------------------------------------

template <class Record>
void CheckComment(TavloWriteManager& mgr, Record& object, const char* kind) {
    const std::string text = std::string(kind) + " comment";
    const char* stored = mgr.SetComment(object, text.c_str());
    ASSERT_NE(stored, nullptr) << kind;
    EXPECT_EQ(stored, +object.comment) << kind;
    EXPECT_NE(stored, text.c_str()) << kind;
    EXPECT_EQ(stored, text) << kind;

    // Its own comment handed back in stays as it was.
    stored = mgr.SetComment(object, object.comment);
    EXPECT_EQ(stored, +object.comment) << kind;
    EXPECT_EQ(std::string(stored), text) << kind;

    const long blocks = LiveAllocations();
    EXPECT_EQ(mgr.SetComment(object, nullptr), nullptr) << kind;
    EXPECT_EQ(+object.comment, nullptr) << kind;
    EXPECT_EQ(LiveAllocations(), blocks - 1) << kind;
    EXPECT_EQ(mgr.SetComment(object, nullptr), nullptr) << kind;
}

TEST_F(EditTest, CommentsAreCopiesAndNullRemovesThem) {
    symblk& engine = Node(pt_, "Engine");
    ASSERT_STREQ(+engine.comment, "engine controller");
    CheckComment(mgr_, engine, "node");
    CheckComment(mgr_, Message(pt_, "GearData"), "message");
    CheckComment(mgr_, Envvar(pt_, "PtEnvB"), "variable");
    CheckComment(mgr_, Signal(body_, "GearData", "GearEcho"), "signal");
    sigtype* type = Db(body_).CreateSignalType(0);
    ASSERT_NE(type, nullptr);
    CheckComment(mgr_, *type, "signal type");
}

TEST_F(EditTest, DatabaseCommentAndUserDataByHandle) {
    ASSERT_STREQ(mgr_.GetDatabaseComment(pt_), "Powertrain network");
    ASSERT_STREQ(mgr_.GetUserData(pt_), "PT 1.2");

    mgr_.SetDatabaseComment("Changed", pt_);
    EXPECT_STREQ(mgr_.GetDatabaseComment(pt_), "Changed");
    mgr_.SetDatabaseComment(mgr_.GetDatabaseComment(pt_), pt_);
    EXPECT_STREQ(mgr_.GetDatabaseComment(pt_), "Changed");
    mgr_.SetDatabaseComment("Elsewhere", unknown_.c_str());
    EXPECT_STREQ(mgr_.GetDatabaseComment(pt_), "Changed");
    EXPECT_EQ(mgr_.GetDatabaseComment(body_), nullptr);
    mgr_.SetDatabaseComment(nullptr, pt_);
    EXPECT_EQ(mgr_.GetDatabaseComment(pt_), nullptr);

    const std::string version = "PT 2.0";
    const char* stored = mgr_.SetUserData(version.c_str(), pt_);
    EXPECT_EQ(stored, +Db(pt_).mUserData);
    EXPECT_NE(stored, version.c_str());
    EXPECT_STREQ(stored, "PT 2.0");
    EXPECT_EQ(mgr_.SetUserData("Body 9", unknown_.c_str()), nullptr);
    EXPECT_STREQ(mgr_.GetUserData(pt_), "PT 2.0");
    EXPECT_STREQ(mgr_.GetUserData(body_), "Body 3");
}

// ---- View filters -------------------------------------------------------------------------

std::vector<std::string> FilterNodeNames(const TavloDatabase& db) {
    std::vector<std::string> names;
    for (const rxblk* entry = db.mFilter.nodes; entry != nullptr; entry = entry->next) {
        const symblk* node = entry->symbol;
        names.emplace_back(node != nullptr ? node->name : "(none)");
    }
    return names;
}

std::vector<std::string> FilterCategoryNames(const TavloDatabase& db) {
    std::vector<std::string> names;
    for (const filtercatblk* entry = db.mFilter.categories; entry != nullptr;
         entry = entry->next) {
        const cat* category = entry->act;
        names.emplace_back(category != nullptr ? category->name : "(none)");
    }
    return names;
}

TEST_F(EditTest, FilterNodesGoToTheHeadAndNoneIsStoredAsNoNode) {
    TavloDatabase& body = Db(body_);
    ASSERT_TRUE(FilterNodeNames(body).empty());
    symblk* none = TAVLONONEFILTERNODE();
    symblk& door = Node(body_, "Door");

    mgr_.AddFilterNode(door, body_);
    mgr_.AddFilterNode(*none, body_);
    mgr_.AddFilterNode(door, body_);
    EXPECT_EQ(FilterNodeNames(body), (std::vector<std::string>{"Door", "(none)", "Door"}));
    const rxblk* second = body.mFilter.nodes->next;
    EXPECT_EQ(+second->symbol, nullptr);
    EXPECT_EQ(+second->attributes, nullptr);
    EXPECT_TRUE(mgr_.IsNodeInFilter(*none, body_));
    EXPECT_TRUE(mgr_.IsNodeInFilter(door, body_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(door, pt_));

    // Removing None looks for the None record itself, which no entry holds.
    mgr_.RemoveFilterNode(*none, body_);
    EXPECT_EQ(FilterNodeNames(body), (std::vector<std::string>{"Door", "(none)", "Door"}));
    EXPECT_TRUE(mgr_.IsNodeInFilter(*none, body_));

    // Unknown handles and failed allocations change nothing.
    const std::vector<std::string> ptFilter = FilterNodeNames(Db(pt_));
    mgr_.AddFilterNode(door, unknown_.c_str());
    mgr_.RemoveFilterNode(door, unknown_.c_str());
    {
        AllocationLimit limit(0);
        mgr_.AddFilterNode(door, body_);
    }
    EXPECT_EQ(FilterNodeNames(body), (std::vector<std::string>{"Door", "(none)", "Door"}));
    EXPECT_EQ(FilterNodeNames(Db(pt_)), ptFilter);
}

TEST_F(EditTest, FilterCategoriesGoToTheHeadAndNoneIsStoredAsNoCategory) {
    TavloDatabase& body = Db(body_);
    ASSERT_TRUE(FilterCategoryNames(body).empty());
    cat* none = TAVLONONEFILTERCATEGORY();
    cat& comfort = Found(body.mCategories, "Comfort");

    mgr_.AddFilterCategory(*none, body_);
    mgr_.AddFilterCategory(comfort, body_);
    EXPECT_EQ(FilterCategoryNames(body), (std::vector<std::string>{"Comfort", "(none)"}));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*none, body_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(comfort, body_));

    mgr_.RemoveFilterCategory(*none, body_);
    EXPECT_EQ(FilterCategoryNames(body), (std::vector<std::string>{"Comfort", "(none)"}));
    mgr_.RemoveFilterCategory(comfort, body_);
    EXPECT_EQ(FilterCategoryNames(body), std::vector<std::string>{"(none)"});

    mgr_.AddFilterCategory(comfort, unknown_.c_str());
    {
        AllocationLimit limit(0);
        mgr_.AddFilterCategory(comfort, body_);
    }
    EXPECT_EQ(FilterCategoryNames(body), std::vector<std::string>{"(none)"});
}

// One case of the removal walk: the list head first, one letter per entry
// (X is the entry removed), the entries left, and those dropped: in front of
// a second match in a row, neither left nor released.
struct WalkCase {
    const char* list;
    const char* left;
    const char* dropped;
};

const WalkCase kWalks[] = {
    {"AXX", "", "A"},    {"XAX", "A", ""},   {"AXBX", "AB", ""}, {"XXA", "A", ""},
    {"AB", "AB", ""},    {"X", "", ""},      {"XXX", "", ""},    {"AXBXX", "", "AB"},
    {"ABXXC", "C", "AB"}, {"", "", ""},
};

// A filter list of one database as the walk sees it.
template <class Entry, class Target>
struct FilterList {
    std::function<void(Target&)> add;
    std::function<void(Target&)> remove;
    std::function<Entry*()> head;
    std::function<void(Entry*)> setHead;
    std::function<const Target*(const Entry&)> target;
};

template <class Entry, class Target>
void CheckWalks(const FilterList<Entry, Target>& list, const std::map<char, Target*>& targets,
                const char* kind) {
    const auto letterOf = [&](const Entry& entry) {
        for (const auto& [letter, target] : targets) {
            if (target == list.target(entry)) {
                return letter;
            }
        }
        return '?';
    };
    for (const WalkCase& c : kWalks) {
        const std::string what = std::string(kind) + " [" + c.list + "]";
        const std::string letters = c.list;
        list.setHead(nullptr);
        for (auto letter = letters.rbegin(); letter != letters.rend(); ++letter) {
            list.add(*targets.at(*letter));
        }
        std::vector<const Entry*> entries;
        for (const Entry* entry = list.head(); entry != nullptr; entry = entry->next) {
            entries.push_back(entry);
        }
        ASSERT_EQ(entries.size(), letters.size()) << what;

        const long blocks = LiveAllocations();
        list.remove(*targets.at('X'));
        std::string left;
        for (const Entry* entry = list.head(); entry != nullptr; entry = entry->next) {
            left += letterOf(*entry);
        }
        EXPECT_EQ(left, c.left) << what;
        const auto removed = std::count(letters.begin(), letters.end(), 'X');
        EXPECT_EQ(LiveAllocations(), blocks - removed) << what;

        // The dropped entries lead the process-wide chain of dropped ones.
        const std::string dropped = c.dropped;
        if (!dropped.empty()) {
            const Entry* kept = tavlo::manager::DroppedEntries<Entry>();
            EXPECT_EQ(kept, entries[letters.find(dropped[0])]) << what;
            std::string keptLetters;
            for (std::size_t i = 0; i < dropped.size() && kept != nullptr; ++i) {
                keptLetters += letterOf(*kept);
                kept = kept->next;
            }
            EXPECT_EQ(keptLetters, dropped) << what;
        }
        tavlo::model::ReleaseEntries(list.head());
        list.setHead(nullptr);
    }
}

TEST_F(EditTest, RemovingAFilterNodeTakesEveryEntryOfItAndDropsWhatPrecedesARepeat) {
    TavloDatabase& body = Db(body_);
    ASSERT_EQ(+body.mFilter.nodes, nullptr);
    FilterList<rxblk, symblk> list{
        [&](symblk& node) { mgr_.AddFilterNode(node, body_); },
        [&](symblk& node) { mgr_.RemoveFilterNode(node, body_); },
        [&] { return +body.mFilter.nodes; },
        [&](rxblk* head) { body.mFilter.nodes = head; },
        [](const rxblk& entry) -> const symblk* { return entry.symbol; },
    };
    // The filter may name a node of another database.
    CheckWalks(list,
               {{'A', &Node(body_, "Gateway")},
                {'B', &Node(body_, "Door")},
                {'C', &Node(body_, "Light")},
                {'X', &Node(pt_, "Gearbox")}},
               "nodes");
}

TEST_F(EditTest, RemovingAFilterCategoryTakesEveryEntryOfItAndDropsWhatPrecedesARepeat) {
    TavloDatabase& body = Db(body_);
    ASSERT_EQ(+body.mFilter.categories, nullptr);
    std::map<char, cat*> targets{{'A', &Found(body.mCategories, "Comfort")}};
    for (const char letter : {'B', 'C', 'X'}) {
        cat* category = body.CreateCategory(0);
        ASSERT_NE(category, nullptr);
        const char name[] = {letter, '\0'};
        tavlo::model::CopyName(category->name, name);
        targets[letter] = category;
    }
    FilterList<filtercatblk, cat> list{
        [&](cat& category) { mgr_.AddFilterCategory(category, body_); },
        [&](cat& category) { mgr_.RemoveFilterCategory(category, body_); },
        [&] { return +body.mFilter.categories; },
        [&](filtercatblk* head) { body.mFilter.categories = head; },
        [](const filtercatblk& entry) -> const cat* { return entry.act; },
    };
    CheckWalks(list, targets, "categories");
}

// The walk on its own: every match goes to release once, in list order,
// and the dropped entries go to the chain of their own type.
TEST(RemoveEveryTest, ReleasesEachUnlinkedMatchInOrderAndKeepsDroppedEntries) {
    sigblk target{};
    sigblk other{};
    // X A X X B
    sigblk* const signals[] = {&target, &other, &target, &target, &other};
    siglistblk* head = nullptr;
    std::vector<siglistblk*> entries;
    for (auto signal = std::rbegin(signals); signal != std::rend(signals); ++signal) {
        siglistblk* entry = tavlo::model::Allocate<siglistblk>();
        ASSERT_NE(entry, nullptr);
        entry->signal = *signal;
        entry->next = head;
        head = entry;
        entries.insert(entries.begin(), entry);
    }
    siglistblk* const droppedBefore = tavlo::manager::DroppedEntries<siglistblk>();

    std::vector<siglistblk*> released;
    head = tavlo::manager::RemoveEvery(
        head, [&](const siglistblk& entry) { return entry.signal == &target; },
        [&](siglistblk* entry) {
            released.push_back(entry);
            TAVLO_MFREE(entry);
        });

    EXPECT_EQ(released, (std::vector<siglistblk*>{entries[0], entries[2], entries[3]}));
    EXPECT_EQ(head, entries[4]);
    EXPECT_EQ(+head->next, nullptr);
    // A was in front of the second X of a row: kept, not released.
    EXPECT_EQ(tavlo::manager::DroppedEntries<siglistblk>(), entries[1]);
    EXPECT_EQ(+entries[1]->next, droppedBefore);
    TAVLO_MFREE(head);
}

}  // namespace
}  // namespace tavlo::test
