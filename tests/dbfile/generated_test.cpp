// The generated benchmark database (bench/generated_database.h) read back:
// every kind of line it makes arrives in the records, so that the benchmarks
// and the fuzz seeds exercise what they claim to.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "generated_database.h"
#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::ReadOutcome;
using tavlo::test::ReadText;

constexpr unsigned int kMessages = 300;

class GeneratedDatabase : public ::testing::Test {
protected:
    void SetUp() override {
        std::memset(&root_, 0, sizeof root_);
        outcome_ = ReadText(tavloms_bench::GenerateDatabaseText(kMessages), &root_);
    }
    void TearDown() override { TAVLO_FREE_ROOT(&root_); }

    const msgblk* Message(unsigned int index) const {
        const msgblk* message = root_.messages;
        for (unsigned int i = 0; message && i < index; ++i) message = message->next;
        return message;
    }

    static const sigblk* Signal(const msgblk* message, unsigned int index) {
        const sigblk* signal = message ? message->signals : nullptr;
        for (unsigned int i = 0; signal && i < index; ++i) signal = signal->next;
        return signal;
    }

    static unsigned int CountReceivers(const sigblk* signal) {
        unsigned int count = 0;
        for (const rxblk* rx = signal->receivers; rx; rx = rx->next) ++count;
        return count;
    }

    tavlo_root_t root_;
    ReadOutcome outcome_;
};

TEST_F(GeneratedDatabase, ReadsWithoutMessages) {
    EXPECT_FALSE(outcome_.raised);
    EXPECT_EQ(outcome_.result, 0u);
    EXPECT_TRUE(outcome_.messages.empty()) << outcome_.messages.front();
    ASSERT_NE(root_.version, nullptr);
    EXPECT_STREQ(root_.version, "13.2.0 generated");
}

TEST_F(GeneratedDatabase, HasEveryMessageWithEightSignals) {
    unsigned int messages = 0, extended = 0;
    for (const msgblk* message = root_.messages; message; message = message->next) {
        ++messages;
        unsigned int signals = 0;
        for (const sigblk* signal = message->signals; signal; signal = signal->next) ++signals;
        EXPECT_EQ(signals, tavloms_bench::kGeneratedSignalsPerMessage) << message->name;
        unsigned int id = message->id;
        if (id & 0x80000000u) ++extended;
    }
    EXPECT_EQ(messages, kMessages);
    EXPECT_EQ(extended, kMessages / 5);
}

TEST_F(GeneratedDatabase, HasNodesAndValueTables) {
    unsigned int nodes = 0;
    for (const symblk* node = root_.nodes; node; node = node->next) ++nodes;
    EXPECT_EQ(nodes, 6u);
    EXPECT_STREQ(root_.nodes->name, "Engine");
    unsigned int tables = 0;
    for (const valtable* table = root_.value_tables; table; table = table->next) ++tables;
    EXPECT_EQ(tables, 4u);
}

TEST_F(GeneratedDatabase, KeepsLayoutScalingAndReceivers) {
    const msgblk* first = Message(0);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first->name, "EngineStatus_00000");
    EXPECT_EQ(+static_cast<unsigned int>(first->id), 0x100u);
    EXPECT_EQ(+static_cast<unsigned int>(first->dlc), 8u);
    ASSERT_NE(+static_cast<const void*>(first->transmitter), nullptr);
    EXPECT_STREQ(first->transmitter->name, "Engine");

    const sigblk* speed = Signal(first, 0);  // "@0+", no receivers
    ASSERT_NE(speed, nullptr);
    EXPECT_STREQ(speed->name, "Speed_0");
    EXPECT_EQ(+static_cast<unsigned int>(speed->start_bit), 7u);
    EXPECT_EQ(+static_cast<unsigned int>(speed->length), 16u);
    EXPECT_EQ(speed->flags & (TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED), TAVLO_SIG_MOTOROLA);
    EXPECT_DOUBLE_EQ(static_cast<double>(speed->factor), 0.01);
    EXPECT_DOUBLE_EQ(static_cast<double>(speed->maximum), 655.35);
    EXPECT_STREQ(speed->unit, "km/h");
    EXPECT_EQ(CountReceivers(speed), 0u);

    const sigblk* temp = Signal(first, 1);  // "@1-", one receiver
    ASSERT_NE(temp, nullptr);
    EXPECT_EQ(temp->flags & (TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED), TAVLO_SIG_SIGNED);
    EXPECT_DOUBLE_EQ(static_cast<double>(temp->factor), 0.5);
    EXPECT_DOUBLE_EQ(static_cast<double>(temp->offset), -40);
    EXPECT_DOUBLE_EQ(static_cast<double>(temp->minimum), -104);
    EXPECT_EQ(CountReceivers(temp), 1u);
    EXPECT_EQ(CountReceivers(Signal(first, 2)), 2u);
}

TEST_F(GeneratedDatabase, KeepsMultiplexing) {
    const msgblk* multiplexed = Message(3);
    ASSERT_NE(multiplexed, nullptr);
    const sigblk* mode = Signal(multiplexed, 0);
    ASSERT_NE(mode, nullptr);
    EXPECT_NE(mode->flags & TAVLO_SIG_MODE, 0u);
    const sigblk* page3 = Signal(multiplexed, 6);  // " m3"
    ASSERT_NE(page3, nullptr);
    EXPECT_NE(page3->flags & TAVLO_SIG_MULTIPLEXED, 0u);
    EXPECT_EQ(+static_cast<unsigned int>(page3->mode_value), 3u);
    EXPECT_EQ(Signal(multiplexed, 1)->flags & (TAVLO_SIG_MODE | TAVLO_SIG_MULTIPLEXED), 0u);
}

TEST_F(GeneratedDatabase, KeepsCommentsAndFurtherTransmitters) {
    ASSERT_NE(root_.comment, nullptr);
    EXPECT_STREQ(root_.comment, "Generated network: powertrain, chassis and body messages.");
    const msgblk* first = Message(0);
    ASSERT_NE(+static_cast<const void*>(first->comment), nullptr);
    EXPECT_STREQ(first->comment, "EngineStatus_00000 every 10 ms");
    const sigblk* speed = Signal(first, 0);
    ASSERT_NE(+static_cast<const void*>(speed->comment), nullptr);
    EXPECT_STREQ(speed->comment, "Raw Speed value,\nsee the \"km/h\" chapter.");

    unsigned int transmitters = 0;
    for (const rxblk* tx = Message(17)->transmitters; tx; tx = tx->next) ++transmitters;
    EXPECT_EQ(transmitters, 2u);
}

TEST_F(GeneratedDatabase, KeepsAttributesAndValueDescriptions) {
    unsigned int byType[5] = {0, 0, 0, 0, 0}, byObject[4] = {0, 0, 0, 0};
    for (const attr_def* def = root_.attr_defs; def; def = def->next) {
        unsigned int type = def->value_type, object = def->object_type;
        if (type < 5) ++byType[type];
        if (object < 4) ++byObject[object];
    }
    EXPECT_EQ(byType[TAVLO_ATTR_INT], 4u);
    EXPECT_EQ(byType[TAVLO_ATTR_FLOAT], 4u);
    EXPECT_EQ(byType[TAVLO_ATTR_STRING], 4u);
    EXPECT_EQ(byType[TAVLO_ATTR_ENUM], 5u);
    EXPECT_EQ(byType[TAVLO_ATTR_HEX], 4u);
    EXPECT_EQ(byObject[TAVLO_OBJ_NETWORK], 5u);
    EXPECT_EQ(byObject[TAVLO_OBJ_NODE], 5u);
    EXPECT_EQ(byObject[TAVLO_OBJ_MESSAGE], 6u);
    EXPECT_EQ(byObject[TAVLO_OBJ_SIGNAL], 5u);

    unsigned int dbAttrs = 0;
    for (const attr* value = root_.db_attrs; value; value = value->next) ++dbAttrs;
    EXPECT_EQ(dbAttrs, 4u);
    EXPECT_NE(+static_cast<const void*>(Message(0)->attributes), nullptr);
    EXPECT_NE(+static_cast<const void*>(Signal(Message(0), 0)->attributes), nullptr);

    unsigned int entries = 0;
    for (const val* v = Signal(Message(0), 2)->value_descriptions; v; v = v->next) ++entries;
    EXPECT_EQ(entries, 4u);
}

// The generator writes the canonical forms, so the writer gives back the
// very same text.
TEST_F(GeneratedDatabase, WritesBackTheSameText) {
    const std::string path = tavlo::test::TestFilePath(".dbc");
    ASSERT_EQ(TAVLO_WRITE(path.c_str(), root_.nodes, root_.messages, root_.envvars,
                          root_.bit_timings, root_.attr_defs, root_.db_attrs, root_.categories,
                          root_.filter, root_.comment, root_.version, root_.sig_types,
                          root_.value_tables),
              0u);
    const std::string written = tavlo::test::FileContent(path);
    std::remove(path.c_str());
    const std::string expected = tavloms_bench::GenerateDatabaseText(kMessages);
    ASSERT_EQ(written.size(), expected.size());
    EXPECT_TRUE(written == expected) << "first difference at byte "
                                     << std::mismatch(written.begin(), written.end(),
                                                      expected.begin()).first - written.begin();
}

}  // namespace
