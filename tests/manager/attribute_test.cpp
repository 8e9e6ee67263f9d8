// tests/manager/attribute_test.cpp: attribute definitions, defaults and
// values as a manager answers them over two databases that define the same
// attributes differently, enumeration texts, 32-character names, value
// descriptions, and a database's comment and user data.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "manager/access.h"
#include "manager/fixture.h"

namespace tavlo::test {
namespace {

std::string DataFile(const char* name) {
    return std::string(TAVLOMS_MANAGER_DATA_DIR) + "/" + name;
}

struct FreeText {
    void operator()(char* text) const { TAVLO_MFREE(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

bool IsZero(const tavlo_attr_value_t& value) {
    static const unsigned char zeros[sizeof value.bytes] = {};
    return std::memcmp(value.bytes, zeros, sizeof zeros) == 0;
}

tavlo_attr_value_t Number(double number) {
    tavlo_attr_value_t value;
    value.number = number;
    return value;
}

// A record the test data must hold; a missing one fails the test.
template <class T>
const T& Found(const T* record, const char* what) {
    if (record == nullptr) {
        throw std::runtime_error(std::string("not in the test data: ") + what);
    }
    return *record;
}

const sigblk* SignalOf(const msgblk* message, const char* name) {
    for (const sigblk* signal = message->signals; signal != nullptr; signal = signal->next) {
        if (std::strcmp(signal->name, name) == 0) {
            return signal;
        }
    }
    return nullptr;
}

const rxblk* ReceiverOf(const sigblk* signal, const char* node) {
    for (const rxblk* relation = signal->receivers; relation != nullptr;
         relation = relation->next) {
        const symblk* symbol = relation->symbol;
        if (symbol != nullptr && std::strcmp(symbol->name, node) == 0) {
            return relation;
        }
    }
    return nullptr;
}

class AttributeTest : public PowertrainAndBodyTest<TavloManager> {
protected:
    const TavloDatabase& Db(const char* dbName) const { return *mgr_.GetDatabase(dbName); }
    const msgblk& Message(const char* dbName, const char* name) const {
        return Found(Db(dbName).GetMessage(name), name);
    }
    const sigblk& Signal(const char* dbName, const char* message, const char* name) const {
        return Found(SignalOf(&Message(dbName, message), name), name);
    }
    const symblk& Node(const char* dbName, const char* name) const {
        return Found(Db(dbName).GetNode(name), name);
    }
    const env_var_blk& Envvar(const char* dbName, const char* name) const {
        return Found(Db(dbName).GetEnvvar(name), name);
    }
    const attr_def& Definition(const char* dbName, const char* name) const {
        return Found(Db(dbName).GetAttrDef(name), name);
    }

};

TEST_F(AttributeTest, ObjectsWithoutAValueGetTheDefaultOfTheirOwnDatabase) {
    // The premise: asked without a database, powertrain's default wins.
    ASSERT_EQ(+mgr_.GetAttrDefault("GenMsgCycleTime", nullptr).number, 100.0);

    struct Case {
        const char* what;
        std::function<tavlo_attr_value_t()> get;
        double expected;
    };
    const Case cases[] = {
        {"body message without a value",
         [&] { return mgr_.GetAttrValue(Message(body_, "GearData"), "GenMsgCycleTime"); }, 50},
        {"body message with its own value",
         [&] { return mgr_.GetAttrValue(Message(body_, "DoorStatus"), "GenMsgCycleTime"); }, 20},
        {"powertrain message with its own value",
         [&] { return mgr_.GetAttrValue(Message(pt_, "EngineData"), "GenMsgCycleTime"); }, 10},
        {"powertrain message without a value",
         [&] { return mgr_.GetAttrValue(Message(pt_, "GearData"), "GenMsgCycleTime"); }, 100},
        {"body node: an INT where powertrain has a STRING",
         [&] { return mgr_.GetAttrValue(Node(body_, "Gateway"), "NodeLayer"); }, 3},
        {"powertrain variable without a value",
         [&] { return mgr_.GetAttrValue(Envvar(pt_, "PtEnvA"), "EnvLevel"); }, 1.5},
        {"body variable: only powertrain defines the attribute",
         [&] { return mgr_.GetAttrValue(Envvar(body_, "BodyEnv"), "EnvLevel"); }, 0},
        {"own ENUM value is its index",
         [&] { return mgr_.GetAttrValue(Signal(pt_, "EngineData", "EngineTemp"), "SigMode"); },
         2},
        {"signal of body: only powertrain defines the attribute",
         [&] { return mgr_.GetAttrValue(Signal(body_, "DoorStatus", "DoorOpen"), "SigMode"); },
         0},
    };
    for (const Case& c : cases) {
        const tavlo_attr_value_t value = c.get();
        EXPECT_EQ(+value.number, c.expected) << c.what;
        if (c.expected == 0) {
            EXPECT_TRUE(IsZero(value)) << c.what;
        }
    }

    // STRING values are the texts themselves; a default is the definition's.
    const tavlo_attr_value_t own = mgr_.GetAttrValue(Node(pt_, "Engine"), "NodeLayer");
    EXPECT_STREQ(+own.text, "hw");
    const tavlo_attr_value_t fallback = mgr_.GetAttrValue(Node(pt_, "Gateway"), "NodeLayer");
    const tavlo_attr_value_t defined = Definition(pt_, "NodeLayer").default_value;
    EXPECT_EQ(+fallback.text, +defined.text);
    EXPECT_STREQ(+fallback.text, "app");

    EXPECT_TRUE(mgr_.IsAttrValueDefined(Message(body_, "DoorStatus"), "GenMsgCycleTime"));
    EXPECT_FALSE(mgr_.IsAttrValueDefined(Message(body_, "GearData"), "GenMsgCycleTime"));
    EXPECT_FALSE(mgr_.IsAttrValueDefined(Node(pt_, "Engine"), "nodelayer"));
}

TEST_F(AttributeTest, ObjectsOfNoDatabaseOfTheManagerHaveNoDefault) {
    // The same file, shared: body's records belong to both managers.
    TavloManager bodyOnly(static_cast<void*>(nullptr));
    ASSERT_EQ(bodyOnly.OpenDatabase(DataFile("body.dbc").c_str(), nullptr, "Body", 0),
              TAVLO_STATUS_OK);
    const msgblk& ptGear = Message(pt_, "GearData");
    const msgblk& bodyGear = Message(body_, "GearData");
    ASSERT_EQ(+bodyOnly.GetAttrDefault("GenMsgCycleTime", nullptr).number, 50.0);

    EXPECT_EQ(+bodyOnly.GetAttrValue(bodyGear, "GenMsgCycleTime").number, 50.0);
    EXPECT_TRUE(IsZero(bodyOnly.GetAttrValue(ptGear, "GenMsgCycleTime")));
    tavlo_attr_value_t value = Number(-1);
    EXPECT_EQ(bodyOnly.GetAttrValueEx(ptGear, value, "GenMsgCycleTime", nullptr), 5u);
    EXPECT_EQ(+value.number, -1.0);
    // Named, a database of the manager lends its default.
    const char* body = bodyOnly.ListFirstNode()->mName;
    EXPECT_EQ(bodyOnly.GetAttrValueEx(ptGear, value, "GenMsgCycleTime", body), 0u);
    EXPECT_EQ(+value.number, 50.0);
}

TEST_F(AttributeTest, ValueExGivesOwnValuesAndDefaultsWithZeroAndUndefinedWithFive) {
    struct Case {
        const char* what;
        std::function<unsigned int(tavlo_attr_value_t&)> get;
        unsigned int status;
        double expected;  // for status 5: the value as it was handed in
    };
    const double untouched = -7.25;
    const Case cases[] = {
        {"own value",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Message(pt_, "EngineData"), v, "GenMsgCycleTime",
                                        nullptr);
         },
         0, 10},
        {"own value wins over the database asked for",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Message(pt_, "EngineData"), v, "GenMsgCycleTime", body_);
         },
         0, 10},
        {"default of the own database",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Message(body_, "GearData"), v, "GenMsgCycleTime",
                                        nullptr);
         },
         0, 50},
        {"default of the database asked for",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Message(body_, "GearData"), v, "GenMsgCycleTime", pt_);
         },
         0, 100},
        {"ENUM default as its index",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Signal(pt_, "EngineData", "EngineSpeed"), v, "SigMode",
                                        nullptr);
         },
         0, 1},
        {"own ENUM value",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Signal(pt_, "EngineData", "EngineTemp"), v, "SigMode",
                                        nullptr);
         },
         0, 2},
        {"variable default",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Envvar(pt_, "PtEnvA"), v, "EnvLevel", nullptr);
         },
         0, 1.5},
        {"defined nowhere",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Message(pt_, "EngineData"), v, "NoSuchAttribute",
                                        nullptr);
         },
         5, untouched},
        {"defined only in another database",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Signal(body_, "DoorStatus", "DoorOpen"), v, "SigMode",
                                        nullptr);
         },
         5, untouched},
        {"a database handle the manager did not hand out",
         [&](tavlo_attr_value_t& v) {
             return mgr_.GetAttrValueEx(Message(body_, "GearData"), v, "GenMsgCycleTime",
                                        unknown_.c_str());
         },
         5, untouched},
    };
    for (const Case& c : cases) {
        tavlo_attr_value_t value = Number(untouched);
        EXPECT_EQ(c.get(value), c.status) << c.what;
        EXPECT_EQ(+value.number, c.expected) << c.what;
    }

    tavlo_attr_value_t text = Number(untouched);
    EXPECT_EQ(mgr_.GetAttrValueEx(Node(pt_, "Engine"), text, "NodeLayer", nullptr), 0u);
    EXPECT_STREQ(+text.text, "hw");
}

TEST_F(AttributeTest, DefaultsComeFromTheFirstDefinitionOfTheDatabasesAsked) {
    struct Case {
        const char* name;
        const char* dbName;
        double expected;
    };
    const Case cases[] = {
        {"GenMsgCycleTime", nullptr, 100}, {"GenMsgCycleTime", pt_, 100},
        {"GenMsgCycleTime", body_, 50},    {"NodeLayer", body_, 3},
        {"BusSpeed", nullptr, 500000},     {"EnvLevel", pt_, 1.5},
        {"RxTimeout", pt_, 1000},          {"BusSpeed", body_, 0},
        {"NoSuchAttribute", nullptr, 0},   {"GenMsgCycleTime", unknown_.c_str(), 0},
    };
    for (const Case& c : cases) {
        const char* dbName = c.dbName;
        const std::string what =
            std::string(c.name) + " in " + (dbName != nullptr ? dbName : "all");
        const tavlo_attr_value_t byDefault = mgr_.GetAttrDefault(c.name, dbName);
        EXPECT_EQ(+byDefault.number, c.expected) << what;

        tavlo_attr_value_t value = Number(-1);
        const unsigned int status = mgr_.GetAttrDefaultEx(c.name, value, dbName);
        if (c.expected == 0) {
            EXPECT_TRUE(IsZero(byDefault)) << what;
            EXPECT_EQ(status, 5u) << what;
            EXPECT_EQ(+value.number, -1.0) << what;
        } else {
            EXPECT_EQ(status, 0u) << what;
            EXPECT_EQ(+value.number, c.expected) << what;
        }
    }
    // Unnamed, the first database decides, though body defines another type.
    EXPECT_STREQ(+mgr_.GetAttrDefault("NodeLayer", nullptr).text, "app");
}

TEST_F(AttributeTest, EnumDefaultIsItsTextOrAsExItsIndex) {
    const attr_def& sigMode = Definition(pt_, "SigMode");
    const tavlo_attr_value_t defined = sigMode.default_value;
    ASSERT_STREQ(+defined.text, "On");

    EXPECT_EQ(+mgr_.GetAttrDefault("SigMode", pt_).text, +defined.text);
    EXPECT_EQ(+mgr_.GetAttrDefault("SigMode", nullptr).text, +defined.text);
    // A signal without a value of its own gets the default as it stands.
    EXPECT_EQ(+mgr_.GetAttrValue(Signal(pt_, "EngineData", "EngineSpeed"), "SigMode").text,
              +defined.text);

    tavlo_attr_value_t value = Number(-1);
    EXPECT_EQ(mgr_.GetAttrDefaultEx("SigMode", value, pt_), 0u);
    EXPECT_EQ(+value.number, 1.0);
    value = Number(-1);
    EXPECT_EQ(mgr_.GetAttrDefaultEx("SigMode", value, body_), 5u);
    EXPECT_EQ(+value.number, -1.0);
}

TEST_F(AttributeTest, IsAttributeDefinedWantsTheNameAndTheObjectType) {
    struct Case {
        const char* name;
        tavlo_obj_t type;
        const char* dbName;
        bool expected;
    };
    const Case cases[] = {
        {"GenMsgCycleTime", TAVLO_OBJ_MESSAGE, pt_, true},
        {"GenMsgCycleTime", TAVLO_OBJ_NODE, pt_, false},
        {"GenMsgCycleTime", TAVLO_OBJ_MESSAGE, body_, true},
        {"genmsgcycletime", TAVLO_OBJ_MESSAGE, pt_, false},
        {"SigMode", TAVLO_OBJ_SIGNAL, body_, false},
        {"SigMode", TAVLO_OBJ_SIGNAL, nullptr, true},
        {"SigMode", TAVLO_OBJ_SIGTYPE, nullptr, false},
        {"NodeLayer", TAVLO_OBJ_NODE, body_, true},
        {"BusSpeed", TAVLO_OBJ_NETWORK, pt_, true},
        {"BusSpeed", TAVLO_OBJ_NETWORK, body_, false},
        {"RxTimeout", TAVLO_OBJ_NODE_SIGNAL, pt_, true},
        {"RxTimeout", TAVLO_OBJ_NODE_MESSAGE, pt_, false},
        {"EnvLevel", TAVLO_OBJ_ENVVAR, nullptr, true},
        {"EnvLevel", TAVLO_OBJ_ENVVAR, unknown_.c_str(), false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(mgr_.IsAttributeDefined(c.name, c.type, c.dbName), c.expected)
            << c.name << " type " << c.type << " in " << (c.dbName ? c.dbName : "all");
    }
}

TEST_F(AttributeTest, EnumTextsByIndex) {
    const attr_def& sigMode = Definition(pt_, "SigMode");
    struct Case {
        long index;
        const char* expected;
    };
    const Case cases[] = {{0, "Off"}, {1, "On"}, {2, "Error"}, {3, nullptr},
                          {-1, "Off"}, {-100, "Off"}, {100, nullptr}};
    for (const Case& c : cases) {
        const OwnedText text(mgr_.GetAttrValueString(sigMode, c.index));
        if (c.expected == nullptr) {
            EXPECT_EQ(text.get(), nullptr) << c.index;
        } else {
            ASSERT_NE(text.get(), nullptr) << c.index;
            EXPECT_STREQ(text.get(), c.expected) << c.index;
        }
    }
    // Every call hands out a copy of its own.
    const OwnedText first(mgr_.GetAttrValueString(sigMode, 0));
    const OwnedText again(mgr_.GetAttrValueString(sigMode, 0));
    EXPECT_NE(first.get(), again.get());

    // Only an ENUM has texts: another type's minimum is a number.
    const auto textOf = [&](auto... arguments) {
        return OwnedText(mgr_.GetAttrValueString(arguments...));
    };
    EXPECT_EQ(textOf(Definition(pt_, "GenMsgCycleTime"), 0L).get(), nullptr);
    EXPECT_EQ(textOf(Definition(pt_, "NodeLayer"), 0L).get(), nullptr);

    // By name: the definition of that database, or of the first that has one.
    EXPECT_STREQ(textOf("SigMode", 2L, nullptr).get(), "Error");
    EXPECT_STREQ(textOf("SigMode", 1L, pt_).get(), "On");
    EXPECT_EQ(textOf("SigMode", 1L, body_).get(), nullptr);
    EXPECT_EQ(textOf("NoSuchAttribute", 0L, nullptr).get(), nullptr);
}

TEST_F(AttributeTest, EnumIndexOfText) {
    const attr_def& sigMode = Definition(pt_, "SigMode");
    struct Case {
        const char* text;
        long expected;
    };
    const Case cases[] = {{"Off", 0},   {"On", 1},       {"Error", 2}, {"on", -1},
                          {"Err", -1},  {"Errors", -1},  {"", -1},     {"On\nError", -1},
                          {nullptr, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(mgr_.GetAttrValueIndex(sigMode, c.text), c.expected)
            << (c.text ? c.text : "(null)");
    }
    EXPECT_EQ(mgr_.GetAttrValueIndex(Definition(pt_, "GenMsgCycleTime"), "100"), -1);

    EXPECT_EQ(mgr_.GetAttrValueIndex("SigMode", "Error", nullptr), 2);
    EXPECT_EQ(mgr_.GetAttrValueIndex("SigMode", "Error", pt_), 2);
    EXPECT_EQ(mgr_.GetAttrValueIndex("SigMode", "error", pt_), -1);
    // A missing definition gives 0, not -1.
    EXPECT_EQ(mgr_.GetAttrValueIndex("SigMode", "Error", body_), 0);
    EXPECT_EQ(mgr_.GetAttrValueIndex("NoSuchAttribute", "Error", nullptr), 0);
}

TEST_F(AttributeTest, ValueDescriptionsBothWays) {
    const sigblk& engineTemp = Signal(pt_, "EngineData", "EngineTemp");
    const sigblk& engineSpeed = Signal(pt_, "EngineData", "EngineSpeed");
    const env_var_blk& ptEnvA = Envvar(pt_, "PtEnvA");

    struct TextCase {
        const char* what;
        std::function<const char*()> get;
        const char* expected;
    };
    const TextCase texts[] = {
        {"signal 0", [&] { return mgr_.GetValueDescription(engineTemp, 0); }, "Cold"},
        {"signal 2", [&] { return mgr_.GetValueDescription(engineTemp, 2); }, "Hot"},
        {"signal 3", [&] { return mgr_.GetValueDescription(engineTemp, 3); }, nullptr},
        {"signal -1", [&] { return mgr_.GetValueDescription(engineTemp, -1); }, nullptr},
        {"signal without descriptions",
         [&] { return mgr_.GetValueDescription(engineSpeed, 0); }, nullptr},
        {"variable 1", [&] { return mgr_.GetValueDescription(ptEnvA, 1); }, "High"},
        {"variable 2", [&] { return mgr_.GetValueDescription(ptEnvA, 2); }, nullptr},
    };
    // Descriptions hold 32-bit values: a wider one is matched on its low
    // 32 bits, as a raw word 0xFFFFFFFF is the description of -1.
    if (sizeof(long) > sizeof(int)) {
        const long beyond = static_cast<long>(0x100000000LL + 2);
        EXPECT_STREQ(mgr_.GetValueDescription(engineTemp, beyond), "Hot");
    }
    for (const TextCase& c : texts) {
        TavloManagerAccess::SetStatus(mgr_, 99);
        const char* text = c.get();
        if (c.expected == nullptr) {
            EXPECT_EQ(text, nullptr) << c.what;
            EXPECT_EQ(mgr_.GetStatus(), 4u) << c.what;
        } else {
            EXPECT_STREQ(text, c.expected) << c.what;
            EXPECT_EQ(mgr_.GetStatus(), 0u) << c.what;
        }
    }
    // The text belongs to the record, not to the caller.
    const val* hot = engineTemp.value_descriptions;
    while (hot != nullptr && hot->value != 2) {
        hot = hot->next;
    }
    ASSERT_NE(hot, nullptr);
    EXPECT_EQ(mgr_.GetValueDescription(engineTemp, 2), hot->text);

    struct ValueCase {
        const char* what;
        std::function<long()> get;
        long expected;
        unsigned int status;
    };
    const ValueCase values[] = {
        {"signal Warm", [&] { return mgr_.GetDescriptionValue(engineTemp, "Warm"); }, 1, 0},
        {"signal Cold", [&] { return mgr_.GetDescriptionValue(engineTemp, "Cold"); }, 0, 0},
        {"signal warm", [&] { return mgr_.GetDescriptionValue(engineTemp, "warm"); },
         0x7FFFFFFF, 3},
        {"signal Hotter", [&] { return mgr_.GetDescriptionValue(engineTemp, "Hotter"); },
         0x7FFFFFFF, 3},
        {"variable Low", [&] { return mgr_.GetDescriptionValue(ptEnvA, "Low"); }, 0, 0},
        {"variable Lo", [&] { return mgr_.GetDescriptionValue(ptEnvA, "Lo"); }, 0x7FFFFFFF, 3},
    };
    for (const ValueCase& c : values) {
        TavloManagerAccess::SetStatus(mgr_, 99);
        EXPECT_EQ(c.get(), c.expected) << c.what;
        EXPECT_EQ(mgr_.GetStatus(), c.status) << c.what;
    }
}

TEST_F(AttributeTest, RelationsGetTheirOwnValueOrTheirDatabasesDefault) {
    const sigblk& engineSpeed = Signal(pt_, "EngineData", "EngineSpeed");
    const rxblk* gateway = ReceiverOf(&engineSpeed, "Gateway");
    const rxblk* gearbox = ReceiverOf(&engineSpeed, "Gearbox");
    const rxblk* bodyGateway = ReceiverOf(&Signal(body_, "DoorStatus", "DoorOpen"), "Gateway");
    ASSERT_NE(gateway, nullptr);
    ASSERT_NE(gearbox, nullptr);
    ASSERT_NE(bodyGateway, nullptr);

    struct Case {
        const char* what;
        const rxblk* relation;
        bool own;
        double value;
        unsigned int status;
    };
    const Case cases[] = {
        {"receiver with a value", gateway, true, 200, 0},
        {"receiver without", gearbox, false, 1000, 0},
        {"receiver in body, which does not define the attribute", bodyGateway, false, 0, 5},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(mgr_.IsAttrValueDefined(*c.relation, "RxTimeout"), c.own) << c.what;
        const tavlo_attr_value_t value =
            mgr_.GetAttrValue(*c.relation, TAVLO_OBJ_NODE_SIGNAL, "RxTimeout");
        EXPECT_EQ(+value.number, c.value) << c.what;
        tavlo_attr_value_t ex = Number(-1);
        EXPECT_EQ(mgr_.GetAttrValueEx(*c.relation, TAVLO_OBJ_NODE_SIGNAL, ex, "RxTimeout",
                                      nullptr),
                  c.status)
            << c.what;
        EXPECT_EQ(+ex.number, c.status == 0 ? c.value : -1.0) << c.what;
    }
    // Asked for powertrain's default, the body receiver gets it.
    tavlo_attr_value_t ex = Number(-1);
    EXPECT_EQ(mgr_.GetAttrValueEx(*bodyGateway, TAVLO_OBJ_NODE_SIGNAL, ex, "RxTimeout", pt_),
              0u);
    EXPECT_EQ(+ex.number, 1000.0);
}

TEST_F(AttributeTest, NetworkValuesOfADatabase) {
    EXPECT_TRUE(mgr_.IsAttrValueDefined("DBName", pt_));
    EXPECT_TRUE(mgr_.IsAttrValueDefined("DBName", nullptr));
    EXPECT_FALSE(mgr_.IsAttrValueDefined("DBName", body_));
    EXPECT_FALSE(mgr_.IsAttrValueDefined("DBName", unknown_.c_str()));
    EXPECT_FALSE(mgr_.IsAttrValueDefined("BusSpeed", pt_));

    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", pt_).text, "Powertrain");
    EXPECT_STREQ(+mgr_.GetAttrValue("DBName", nullptr).text, "Powertrain");
    EXPECT_EQ(+mgr_.GetAttrValue("BusSpeed", pt_).number, 500000.0);
    EXPECT_TRUE(IsZero(mgr_.GetAttrValue("BusSpeed", body_)));
    EXPECT_TRUE(IsZero(mgr_.GetAttrValue("DBName", unknown_.c_str())));

    struct Case {
        const char* name;
        const char* dbName;
        unsigned int status;
        double number;
    };
    const Case cases[] = {
        {"BusSpeed", pt_, 0, 500000},
        {"BusSpeed", nullptr, 0, 500000},
        {"BusSpeed", body_, 5, -1},
        {"NoSuchAttribute", nullptr, 5, -1},
    };
    for (const Case& c : cases) {
        tavlo_attr_value_t value = Number(-1);
        EXPECT_EQ(mgr_.GetAttrValueEx(c.name, value, c.dbName), c.status) << c.name;
        EXPECT_EQ(+value.number, c.number) << c.name;
    }
    tavlo_attr_value_t value = Number(-1);
    EXPECT_EQ(mgr_.GetAttrValueEx("DBName", value, pt_), 0u);
    EXPECT_STREQ(+value.text, "Powertrain");
}

TEST_F(AttributeTest, CommentAndUserDataOfADatabase) {
    EXPECT_STREQ(mgr_.GetDatabaseComment(pt_), "Powertrain network");
    EXPECT_STREQ(mgr_.GetUserData(pt_), "PT 1.2");
    EXPECT_EQ(mgr_.GetDatabaseComment(body_), nullptr);
    EXPECT_STREQ(mgr_.GetUserData(body_), "Body 3");
    for (const char* unknown : {unknown_.c_str(), static_cast<const char*>(nullptr)}) {
        TavloManagerAccess::SetStatus(mgr_, TAVLO_STATUS_OK);
        EXPECT_EQ(mgr_.GetDatabaseComment(unknown), nullptr);
        EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
        TavloManagerAccess::SetStatus(mgr_, TAVLO_STATUS_OK);
        EXPECT_EQ(mgr_.GetUserData(unknown), nullptr);
        EXPECT_EQ(mgr_.GetStatus(), TAVLO_STATUS_NO_FILE);
    }
}

using AttributeDeathTest = AttributeTest;

TEST_F(AttributeDeathTest, NullNamesAreProgrammingErrors) {
    const msgblk& message = Message(pt_, "EngineData");
    const sigblk& signal = Signal(pt_, "EngineData", "EngineTemp");
    const std::string nameMissing = "Assertion failed: attrName != NULL, module dbmsread, line ";
    tavlo_attr_value_t value;
    EXPECT_DEATH(mgr_.IsAttributeDefined(nullptr, TAVLO_OBJ_MESSAGE, pt_), nameMissing);
    EXPECT_DEATH(mgr_.IsAttrValueDefined(nullptr, pt_), nameMissing);
    EXPECT_DEATH(mgr_.IsAttrValueDefined(message, nullptr), nameMissing);
    EXPECT_DEATH(mgr_.GetAttrValue(message, nullptr), nameMissing);
    EXPECT_DEATH(mgr_.GetAttrValue(nullptr, pt_), nameMissing);
    EXPECT_DEATH(mgr_.GetAttrValueEx(message, value, nullptr, nullptr), nameMissing);
    EXPECT_DEATH(mgr_.GetAttrDefault(nullptr, nullptr), nameMissing);
    EXPECT_DEATH(mgr_.GetDescriptionValue(signal, nullptr),
                 "Assertion failed: description != NULL, module dbmsread, line ");
}

class NetworkValueTest : public ManagerTest {};

TEST_F(NetworkValueTest, WithoutAHandleTheFirstDatabaseInListOrderAnswers) {
    const std::string first = WriteDatabase("first.dbc", {"v", 0, "First"});
    const std::string second = WriteDatabase("second.dbc", {"v", 0, "Second"});
    for (const bool firstAhead : {true, false}) {
        TavloManager mgr(static_cast<void*>(nullptr));
        const char* ahead = nullptr;
        const char* behind = nullptr;
        ASSERT_EQ(mgr.OpenDatabase((firstAhead ? first : second).c_str(), &ahead, "Ahead", 0),
                  TAVLO_STATUS_OK);
        ASSERT_EQ(mgr.OpenDatabase((firstAhead ? second : first).c_str(), &behind, "Behind", 0),
                  TAVLO_STATUS_OK);
        const char* aheadText = firstAhead ? "First" : "Second";
        const char* behindText = firstAhead ? "Second" : "First";
        EXPECT_STREQ(+mgr.GetAttrValue("DBName", nullptr).text, aheadText);
        EXPECT_STREQ(+mgr.GetAttrValue("DBName", ahead).text, aheadText);
        EXPECT_STREQ(+mgr.GetAttrValue("DBName", behind).text, behindText);
        tavlo_attr_value_t value = Number(-1);
        EXPECT_EQ(mgr.GetAttrValueEx("DBName", value, nullptr), 0u);
        EXPECT_STREQ(+value.text, aheadText);
    }
}

// ---- Names of 32 characters and more ----------------------------------------------

class LongNameTest : public ManagerTest {};

TEST_F(LongNameTest, NamesThatAgreeInTheirFirst32CharactersAreTheSameAttribute) {
    const std::string messageAttr = "CycleTime" + std::string(23, 'M');
    const std::string networkAttr = "NetworkWide" + std::string(21, 'N');
    const std::string typeAttr = "TypeLevel" + std::string(23, 'T');
    const std::string description = "Description" + std::string(21, 'd');
    ASSERT_EQ(messageAttr.size(), 32u);
    ASSERT_EQ(networkAttr.size(), 32u);
    ASSERT_EQ(typeAttr.size(), 32u);
    ASSERT_EQ(description.size(), 32u);
    const std::string path = WriteFile(
        "long.dbc",
        "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_: A\n\n"
        "BO_ 100 Msg1: 8 A\n SG_ Sig1 : 0|8@1+ (1,0) [0|255] \"\" A\n\n"
        "BO_ 200 Msg2: 8 A\n SG_ Sig2 : 0|8@1+ (1,0) [0|255] \"\" A\n\n"
        "SGTYPE_ Type1 : 8@1+ (1,0) [0|255] \"\"  0;\n"
        "SGTYPE_ Type2 : 8@1+ (1,0) [0|255] \"\"  0;\n"
        "BA_DEF_ BO_  \"" + messageAttr + "\" INT 0 1000;\n"
        "BA_DEF_  \"" + networkAttr + "\" INT 0 1000;\n"
        "BA_DEF_  \"" + typeAttr + "\" INT 0 100;\n"
        "BA_DEF_SGTYPE_ \"" + typeAttr + "\";\n"
        "BA_DEF_DEF_  \"" + messageAttr + "\" 7;\n"
        "BA_DEF_DEF_  \"" + networkAttr + "\" 8;\n"
        "BA_DEF_DEF_  \"" + typeAttr + "\" 9;\n"
        "BA_ \"" + messageAttr + "\" BO_ 100 42;\n"
        "BA_ \"" + networkAttr + "\" 43;\n"
        "BA_SGTYPE_ \"" + typeAttr + "\" SGTYPE_ Type1 44;\n"
        "VAL_ 100 Sig1 1 \"" + description + "\" ;\n");
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* db = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &db, "Long", 0), TAVLO_STATUS_OK);
    ASSERT_TRUE(shown_.messages().empty());
    const TavloDatabase& database = *mgr.GetDatabase(db);
    const msgblk& msg1 = *database.GetMessage("Msg1");
    const msgblk& msg2 = *database.GetMessage("Msg2");
    const sigtype& type1 = *database.GetSignalType("Type1");
    const sigtype& type2 = *database.GetSignalType("Type2");

    const std::string tail = "IgnoredX";
    const std::string messageLong = messageAttr + tail;
    const std::string networkLong = networkAttr + tail;
    const std::string typeLong = typeAttr + tail;
    ASSERT_EQ(messageLong.size(), 40u);
    // Differs in the 32nd character: another name.
    const std::string other = messageAttr.substr(0, 31) + "Z" + tail;

    EXPECT_TRUE(mgr.IsAttributeDefined(messageLong.c_str(), TAVLO_OBJ_MESSAGE, db));
    EXPECT_TRUE(mgr.IsAttributeDefined(typeLong.c_str(), TAVLO_OBJ_SIGTYPE, db));
    EXPECT_FALSE(mgr.IsAttributeDefined(other.c_str(), TAVLO_OBJ_MESSAGE, db));
    EXPECT_TRUE(mgr.IsAttrValueDefined(msg1, messageLong.c_str()));
    EXPECT_FALSE(mgr.IsAttrValueDefined(msg2, messageLong.c_str()));
    EXPECT_FALSE(mgr.IsAttrValueDefined(msg1, other.c_str()));
    EXPECT_TRUE(mgr.IsAttrValueDefined(networkLong.c_str(), db));

    struct Case {
        const char* what;
        std::function<tavlo_attr_value_t()> get;
        double expected;
    };
    const Case cases[] = {
        {"own message value", [&] { return mgr.GetAttrValue(msg1, messageLong.c_str()); }, 42},
        {"message default", [&] { return mgr.GetAttrValue(msg2, messageLong.c_str()); }, 7},
        {"another name", [&] { return mgr.GetAttrValue(msg1, other.c_str()); }, 0},
        {"definition default", [&] { return mgr.GetAttrDefault(messageLong.c_str(), db); }, 7},
        {"own network value", [&] { return mgr.GetAttrValue(networkLong.c_str(), db); }, 43},
        {"own type value", [&] { return mgr.GetAttrValue(type1, typeLong.c_str()); }, 44},
        {"type default", [&] { return mgr.GetAttrValue(type2, typeLong.c_str()); }, 9},
        {"own message value, Ex",
         [&] {
             tavlo_attr_value_t v = Number(-1);
             EXPECT_EQ(mgr.GetAttrValueEx(msg1, v, messageLong.c_str(), nullptr), 0u);
             return v;
         },
         42},
        {"own network value, Ex",
         [&] {
             tavlo_attr_value_t v = Number(-1);
             EXPECT_EQ(mgr.GetAttrValueEx(networkLong.c_str(), v, db), 0u);
             return v;
         },
         43},
        {"own type value, Ex",
         [&] {
             tavlo_attr_value_t v = Number(-1);
             EXPECT_EQ(mgr.GetAttrValueEx(type1, v, typeLong.c_str(), nullptr), 0u);
             return v;
         },
         44},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(+c.get().number, c.expected) << c.what;
    }

    // Value description texts compare the same way.
    const sigblk& sig1 = *SignalOf(&msg1, "Sig1");
    EXPECT_EQ(mgr.GetDescriptionValue(sig1, (description + tail).c_str()), 1);
    EXPECT_EQ(mgr.GetStatus(), 0u);
    EXPECT_EQ(mgr.GetDescriptionValue(sig1, description.substr(0, 31).c_str()), 0x7FFFFFFF);
    EXPECT_EQ(mgr.GetStatus(), 3u);
}

TEST_F(LongNameTest, EmptyEnumTextsKeepTheirPlace) {
    const std::string path = WriteFile(
        "gaps.dbc",
        "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_: A\n\n"
        "BO_ 100 Msg1: 8 A\n SG_ Sig1 : 0|8@1+ (1,0) [0|255] \"\" A\n\n"
        "BA_DEF_ SG_  \"Gaps\" ENUM  \"A\",\"corvan_leerstring\",\"C\";\n"
        "BA_DEF_DEF_  \"Gaps\" \"C\";\n");
    TavloManager mgr(static_cast<void*>(nullptr));
    const char* db = nullptr;
    ASSERT_EQ(mgr.OpenDatabase(path.c_str(), &db, "Gaps", 0), TAVLO_STATUS_OK);
    ASSERT_TRUE(shown_.messages().empty());
    const attr_def& gaps = *mgr.GetDatabase(db)->GetAttrDef("Gaps");

    const char* const texts[] = {"A", "", "C"};
    for (long index = 0; index < 3; ++index) {
        EXPECT_EQ(mgr.GetAttrValueIndex(gaps, texts[index]), index) << index;
        const OwnedText text(mgr.GetAttrValueString(gaps, index));
        ASSERT_NE(text.get(), nullptr) << index;
        EXPECT_STREQ(text.get(), texts[index]) << index;
    }
    tavlo_attr_value_t value = Number(-1);
    EXPECT_EQ(mgr.GetAttrDefaultEx("Gaps", value, db), 0u);
    EXPECT_EQ(+value.number, 2.0);
}

}  // namespace
}  // namespace tavlo::test
