// tests/manager/endtoend_test.cpp: a write manager makes a database from
// nothing and writes it; read managers open the file, find every object with
// its values, and are told when the writer changes it again.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "manager/fixture.h"
#include "support/describe.h"
#include "support/post_capture.h"

namespace tavlo::test {
namespace {

char* Text(const char* text) {
    auto* copy = static_cast<char*>(TAVLO_MALLOC(std::strlen(text) + 1));
    std::strcpy(copy, text);
    return copy;
}

void Name(char* field, const char* name) {
    std::strncpy(field, name, TAVLO_NAME_SIZE - 1);
}

tavlo_attr_value_t Number(double number) {
    tavlo_attr_value_t value{};
    value.number = number;
    return value;
}

tavlo_attr_value_t String(const char* text) {
    tavlo_attr_value_t value{};
    value.text = const_cast<char*>(text);
    return value;
}

class EndToEndTest : public ManagerTest {
protected:
    // Builds the database "Vehicle" in the writer, with everything a file
    // can hold that the managers edit.
    void Build() {
        ASSERT_EQ(writer_.CreateDatabase("Vehicle", &vehicle_, path_.c_str()), 0u);
        writer_.SetUserData("vehicle 1.0", vehicle_);
        writer_.SetDatabaseComment("The vehicle bus", vehicle_);

        symblk* dashboard = writer_.CreateNode(vehicle_, 0);
        symblk* engine = writer_.CreateNode(vehicle_, 0);
        Name(engine->name, "Engine");
        Name(dashboard->name, "Dashboard");
        writer_.SetComment(*engine, "engine controller");

        cat* drive = writer_.CreateCategory(vehicle_, 0);
        Name(drive->name, "Drive");
        drive->number = 1;

        attr_def* cycle = writer_.CreateAttrDefinition(vehicle_, 0);
        Name(cycle->name, "GenMsgCycleTime");
        cycle->object_type = TAVLO_OBJ_MESSAGE;
        cycle->value_type = TAVLO_ATTR_INT;
        cycle->minimum.number = 0;
        cycle->maximum = 1000;
        cycle->default_value.number = 100;
        attr_def* layer = writer_.CreateAttrDefinition(vehicle_, 1);
        Name(layer->name, "NodeLayer");
        layer->object_type = TAVLO_OBJ_NODE;
        layer->value_type = TAVLO_ATTR_STRING;
        layer->default_value.text = Text("app");
        attr_def* bus = writer_.CreateAttrDefinition(vehicle_, 2);
        Name(bus->name, "BusType");
        bus->object_type = TAVLO_OBJ_NETWORK;
        bus->value_type = TAVLO_ATTR_STRING;
        bus->default_value.text = Text("");

        msgblk* message = writer_.CreateMessage(vehicle_, 0);
        Name(message->name, "EngineData");
        message->id = 0x123;
        message->dlc = 8;
        message->transmitter = engine;
        sigblk* speed = writer_.CreateSignal(*message, 0);
        sigblk* gear = writer_.CreateSignal(*message, 1);
        message->signal_count = 2;
        Name(speed->name, "Speed");
        speed->length = 16;
        speed->factor = 0.1;
        speed->maximum = 6553.5;
        Name(speed->unit, "km/h");
        Name(gear->name, "Gear");
        gear->start_bit = 16;
        gear->length = 4;
        gear->maximum = 15;
        writer_.AddReceiver(*speed, *dashboard);
        writer_.AddReceiver(*gear, *dashboard);
        writer_.AddReceiver(*gear, *engine);
        writer_.SetValueDescription(*gear, "Neutral", 0);
        writer_.SetValueDescription(*gear, "First", 1);
        writer_.SetComment(*message, "engine state");

        EXPECT_TRUE(writer_.SetAttrValue(*message, "GenMsgCycleTime", Number(20)));
        EXPECT_TRUE(writer_.SetAttrValue(*engine, "NodeLayer", String("hw")));
        EXPECT_TRUE(writer_.SetAttrValue("BusType", vehicle_, String("CAN")));
        // Not defined for this database: nothing is stored.
        EXPECT_FALSE(writer_.SetAttrValue(*dashboard, "Undefined", Number(1)));

        writer_.AddFilterNode(*engine, vehicle_);
        writer_.AddFilterCategory(*drive, vehicle_);
    }

    std::string path_ = "";
    TavloWriteManager writer_{reinterpret_cast<HWND>(std::uintptr_t{0x100})};
    const char* vehicle_ = nullptr;
    PostCapture posts_;
};

TEST_F(EndToEndTest, WrittenDatabaseReadsBackEverywhere) {
    path_ = dir_ + "/vehicle.dbc";
    Build();
    // An object read from a file takes no node list of the view filter, so
    // that is left out of what the readers must see.
    tavlo_root_t made = writer_.GetDatabase(vehicle_)->Root();
    ASSERT_NE(made.filter.nodes, nullptr);
    made.filter.nodes = nullptr;
    const std::string described = DescribeDatabase(made, 11);
    ASSERT_EQ(writer_.WriteDatabase(vehicle_, nullptr), TAVLO_STATUS_OK);

    // A database read straight from the file holds the same.
    {
        TavloDatabase fromFile(path_.c_str());
        EXPECT_TRUE(shown_.messages().empty());
        EXPECT_EQ(DescribeDatabase(fromFile.Root(), 11), described);
    }

    TavloManager windowReader(reinterpret_cast<HWND>(std::uintptr_t{0x200}));
    TavloManager threadReader(reinterpret_cast<void*>(std::uintptr_t{77}));
    const char* inWindow = nullptr;
    const char* inThread = nullptr;
    ASSERT_EQ(windowReader.OpenDatabase(path_.c_str(), &inWindow, 0), TAVLO_STATUS_OK);
    ASSERT_EQ(threadReader.OpenDatabase(path_.c_str(), &inThread, "Car", 0), TAVLO_STATUS_OK);
    EXPECT_STREQ(inWindow, "vehicle");
    // Read the file again into the shared object: what the readers see now
    // came from the file.
    ASSERT_EQ(windowReader.ReopenDatabase(inWindow), TAVLO_STATUS_OK);
    EXPECT_EQ(DescribeDatabase(windowReader.GetDatabase(inWindow)->Root(), 11), described);

    const TavloManager& reader = windowReader;
    const msgblk* message = reader.GetMessage(0x123ul, inWindow);
    ASSERT_NE(message, nullptr);
    EXPECT_STREQ(message->name, "EngineData");
    EXPECT_STREQ(+message->comment, "engine state");
    EXPECT_STREQ(+message->transmitter->name, "Engine");
    const sigblk* gear = reader.GetSignal(*message, "Gear");
    ASSERT_NE(gear, nullptr);
    EXPECT_EQ(+gear->start_bit, 16);
    std::vector<std::string> receivers;
    for (auto it = reader.GetReceiverIterator(*gear); !it.AtEnd(); ++it) {
        receivers.emplace_back(it.GetNode()->name);
    }
    EXPECT_EQ(receivers, (std::vector<std::string>{"Engine", "Dashboard"}));
    EXPECT_STREQ(reader.GetValueDescription(*gear, 1), "First");
    EXPECT_EQ(reader.GetDescriptionValue(*gear, "Neutral"), 0);
    const sigblk* speed = reader.GetSignal(*message, "Speed");
    ASSERT_NE(speed, nullptr);
    EXPECT_EQ(+speed->factor, 0.1);
    EXPECT_STREQ(speed->unit, "km/h");

    EXPECT_EQ(reader.GetAttrValue(*message, "GenMsgCycleTime").number, 20.0);
    const symblk* engine = reader.GetNode("Engine", inWindow);
    const symblk* dashboard = reader.GetNode("Dashboard", inWindow);
    ASSERT_TRUE(engine != nullptr && dashboard != nullptr);
    EXPECT_STREQ(reader.GetAttrValue(*engine, "NodeLayer").text, "hw");
    EXPECT_STREQ(reader.GetAttrValue(*dashboard, "NodeLayer").text, "app");  // the default
    EXPECT_STREQ(reader.GetAttrValue("BusType", inWindow).text, "CAN");
    EXPECT_STREQ(+engine->comment, "engine controller");
    EXPECT_STREQ(reader.GetDatabaseComment(inWindow), "The vehicle bus");
    EXPECT_STREQ(reader.GetUserData(inWindow), "vehicle 1.0");
    EXPECT_FALSE(reader.IsNodeInFilter(*engine, inWindow));
    ASSERT_NE(reader.GetCategory("Drive", inWindow), nullptr);
    EXPECT_TRUE(reader.IsCategoryInFilter(*reader.GetCategory("Drive", inWindow), inWindow));

    // The writer changes the database and writes it: every manager that has
    // it open is told, each with its own handle.
    posts_.clear();
    writer_.SetDatabaseComment("changed", vehicle_);
    ASSERT_EQ(writer_.WriteDatabase(vehicle_, nullptr), TAVLO_STATUS_OK);
    const unsigned int notification =
        TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);
    const std::vector<PostedMessage> expected = {
        {HWND_BROADCAST, 0, notification, 0, 0},
        {reinterpret_cast<HWND>(std::uintptr_t{0x100}), 0, notification, 0x100,
         reinterpret_cast<std::intptr_t>(vehicle_)},
        {nullptr, 77, notification, 0, reinterpret_cast<std::intptr_t>(inThread)},
        {reinterpret_cast<HWND>(std::uintptr_t{0x200}), 0, notification, 0x100,
         reinterpret_cast<std::intptr_t>(inWindow)},
    };
    EXPECT_EQ(posts_.posts(), expected);
    EXPECT_STREQ(threadReader.GetDatabaseComment(inThread), "changed");
}

}  // namespace
}  // namespace tavlo::test
