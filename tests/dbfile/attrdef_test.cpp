// Attribute definitions and defaults as the reader makes them.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "dbfile/report.h"
#include "dbfile/attrdef.h"
#include "model/model.h"
#include "support/message_capture.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::dbfile::AttrRange;
using tavlo::dbfile::DefineAttribute;
using tavlo::dbfile::SetAttributeDefault;
using tavlo::test::MessageCapture;
using tavlo::test::Text;

class AttrDefinition : public ::testing::Test {
protected:
    void SetUp() override { tavlo::dbfile::ClearErrorReported(); }
    void TearDown() override {
        tavlo::model::ReleaseAttrDefs(defs_);
        tavlo::dbfile::ClearErrorReported();
    }

    static AttrRange Numbers(double minimum, double maximum) {
        AttrRange range{};
        range.minimum.number = minimum;
        range.maximum = maximum;
        return range;
    }

    attr_def* defs_ = nullptr;
};

TEST_F(AttrDefinition, EachValueTypeTakesWhatItNeedsFromTheRange) {
    ASSERT_EQ(DefineAttribute(&defs_, "Level", TAVLO_OBJ_NODE, TAVLO_ATTR_INT, Numbers(2, 9), 1), 1);
    ASSERT_EQ(DefineAttribute(&defs_, "Ratio", TAVLO_OBJ_SIGNAL, TAVLO_ATTR_FLOAT,
                              Numbers(-1.5, 1.5), 2), 1);
    ASSERT_EQ(DefineAttribute(&defs_, "Mask", TAVLO_OBJ_ENVVAR, TAVLO_ATTR_HEX,
                              Numbers(0, 255), 3), 1);
    ASSERT_EQ(DefineAttribute(&defs_, "Note", TAVLO_OBJ_MESSAGE, TAVLO_ATTR_STRING,
                              Numbers(4, 5), 4), 1);
    AttrRange texts{};
    texts.minimum.text = Text("a\nb\nc");
    ASSERT_EQ(DefineAttribute(&defs_, "Bus", TAVLO_OBJ_NETWORK, TAVLO_ATTR_ENUM, texts, 5), 1);

    const attr_def* level = defs_;
    ASSERT_NE(level, nullptr);
    EXPECT_STREQ(level->name, "Level");
    EXPECT_EQ(+level->object_type, static_cast<unsigned int>(TAVLO_OBJ_NODE));
    EXPECT_EQ(+level->minimum.number, 2.0);
    EXPECT_EQ(+level->maximum, 9.0);
    EXPECT_EQ(+level->default_value.number, 2.0);  // the minimum is the default
    const attr_def* ratio = level->next;
    EXPECT_EQ(+ratio->default_value.number, -1.5);
    const attr_def* note = TAVLO_GET_ATTR_DEF_NAME(defs_, "Note");
    EXPECT_STREQ(note->default_value.text, "");
    EXPECT_EQ(+note->minimum.text, nullptr);
    EXPECT_EQ(+note->maximum, 0.0);
    const attr_def* bus = TAVLO_GET_ATTR_DEF_NAME(defs_, "Bus");
    EXPECT_EQ(+bus->minimum.text, texts.minimum.text);  // taken over, not copied
    EXPECT_STREQ(bus->default_value.text, "");
    EXPECT_EQ(+bus->next, nullptr);  // appended in order
}

TEST_F(AttrDefinition, TabsBecomeBlanksAndLongNamesAreCut) {
    ASSERT_EQ(DefineAttribute(&defs_, "Bus\tLoad", TAVLO_OBJ_NETWORK, TAVLO_ATTR_INT,
                              Numbers(0, 1), 1), 1);
    EXPECT_NE(TAVLO_GET_ATTR_DEF_NAME(defs_, "Bus Load"), nullptr);
    const std::string longName(40, 'x');
    ASSERT_EQ(DefineAttribute(&defs_, longName.c_str(), TAVLO_OBJ_NETWORK, TAVLO_ATTR_INT,
                              Numbers(0, 1), 2), 1);
    EXPECT_NE(TAVLO_GET_ATTR_DEF_NAME(defs_, std::string(32, 'x').c_str()), nullptr);
}

TEST_F(AttrDefinition, ADuplicateIsTheReadsErrorNineteen) {
    ASSERT_EQ(DefineAttribute(&defs_, "Level", TAVLO_OBJ_NODE, TAVLO_ATTR_INT, Numbers(0, 1), 1), 1);
    {
        MessageCapture capture;
        EXPECT_THROW(DefineAttribute(&defs_, "Level", TAVLO_OBJ_MESSAGE, TAVLO_ATTR_INT,
                                     Numbers(0, 1), 7),
                     TavloException);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].text,
                  "!=Datenbasis: doppelte Definition von Symbol ignoriert, line 7, Level");
    }
    {   // Later errors of the same read are not reported; the text stays the caller's.
        MessageCapture capture;
        AttrRange texts{};
        texts.minimum.text = Text("x");
        EXPECT_EQ(DefineAttribute(&defs_, "Level", TAVLO_OBJ_NODE, TAVLO_ATTR_ENUM, texts, 8), 0);
        EXPECT_TRUE(capture.messages().empty());
        TAVLO_MFREE(texts.minimum.text);
    }
    EXPECT_EQ(+defs_->next, nullptr);
}

TEST_F(AttrDefinition, RunningOutOfMemoryEndsTheReadAndKeepsNothing) {
    for (unsigned int type : {TAVLO_ATTR_STRING, TAVLO_ATTR_ENUM}) {
        const long before = tavlo::model::LiveAllocations();
        MessageCapture capture;
        tavlo::model::FailAllocationsAfter(1);  // the definition, not its default text
        EXPECT_THROW(DefineAttribute(&defs_, "Note", TAVLO_OBJ_NODE, type, Numbers(0, 0), 1),
                     TavloException);
        tavlo::model::FailAllocationsAfter(-1);
        tavlo::dbfile::ClearErrorReported();
        EXPECT_EQ(tavlo::model::LiveAllocations(), before) << type;
        EXPECT_EQ(defs_, nullptr);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].text, "not enough memory");
    }
}

TEST_F(AttrDefinition, DefaultsReplaceTextsAndNumbers) {
    AttrRange none{};
    DefineAttribute(&defs_, "Note", TAVLO_OBJ_NODE, TAVLO_ATTR_STRING, none, 1);
    DefineAttribute(&defs_, "Level", TAVLO_OBJ_NODE, TAVLO_ATTR_INT, Numbers(0, 9), 2);
    tavlo_attr_value_t text{};
    text.text = Text("hello");
    const long before = tavlo::model::LiveAllocations();
    EXPECT_EQ(SetAttributeDefault(defs_, "Note", text, 3), 1);
    EXPECT_EQ(tavlo::model::LiveAllocations(), before - 1);  // the old empty default
    EXPECT_EQ(+defs_->default_value.text, text.text);
    tavlo_attr_value_t number{};
    number.number = 4;
    EXPECT_EQ(SetAttributeDefault(defs_, "Level", number, 4), 1);
    EXPECT_EQ(+defs_->next->default_value.number, 4.0);
}

TEST_F(AttrDefinition, ADefaultForAnUnknownNameIsTheReadsErrorTwenty) {
    MessageCapture capture;
    tavlo_attr_value_t number{};
    EXPECT_THROW(SetAttributeDefault(defs_, "Nope\there", number, 3), TavloException);
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0].text,
              "!=Datenbasis: unbekanntes Symbol neu definiert, line 3, Nope here");
    EXPECT_EQ(SetAttributeDefault(defs_, "Nope", number, 4), 0);
    EXPECT_EQ(capture.messages().size(), 1u);
}

}  // namespace
