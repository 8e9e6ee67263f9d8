// The message table, message composition, and how warnings and errors are
// shown and raised.
#include <string>

#include <gtest/gtest.h>

#include "dbfile/report.h"
#include "support/message_capture.h"
#include "tavloms/tavloms.h"

namespace {

using namespace tavlo::dbfile;
using tavlo::test::MessageCapture;

TEST(MessageTable, TextsStandAsTheModuleHasAlwaysShownThem) {
    struct Case {
        unsigned int code;
        const char* text;
    };
    const Case cases[] = {
        {0, ""},
        {1, ""},
        {2, "error "},
        {5, "mdf fatal error "},
        {10, "commandline: parameter for  missing\n"},
        {12, "database: illegal segmentation description"},
        {16, "database: not found"},
        {19, "!=Datenbasis: doppelte Definition von Symbol ignoriert"},
        {20, "!=Datenbasis: unbekanntes Symbol neu definiert"},
        {24, "not enough memory"},
        {27, "database: invalid char in symbol"},
        {28, "unknoen category"},
        {29, "Database: unknown environment variable of type data, type ignored"},
        {30, "Unknown error"},
        {0xFFFFFFFFu, "Unknown error"},
    };
    for (const Case& c : cases) {
        EXPECT_STREQ(MessageText(c.code), c.text) << c.code;
    }
}

TEST(ComposeMessage, AddsTheLineAndTheContextWhenGiven) {
    struct Case {
        unsigned int code;
        int line;
        const char* context;
        const char* message;
    };
    const Case cases[] = {
        {16, -1, "net.dbc", "database: not found, net.dbc"},
        {1, 12, "error: syntax", ", line 12, error: syntax"},
        {1, 0, "error: syntax", ", error: syntax"},  // line 0 is not printed
        {28, 4, nullptr, "unknoen category, line 4"},
        {28, 4, "", "unknoen category, line 4"},
        {24, -1, nullptr, "not enough memory"},
        {99, 2, "x", "Unknown error, line 2, x"},
    };
    for (const Case& c : cases) {
        EXPECT_STREQ(ComposeMessage(c.code, c.line, c.context), c.message);
    }
}

TEST(ComposeMessage, CutsWhatDoesNotFitTheBuffer) {
    const std::string context(5000, 'c');
    const std::string message = ComposeMessage(16, 3, context.c_str());
    EXPECT_EQ(message.size(), static_cast<std::size_t>(kMessageBufferSize - 1));
    EXPECT_EQ(message.rfind("database: not found, line 3, ccc", 0), 0u);
}

class Reporting : public ::testing::Test {
protected:
    void SetUp() override { ClearErrorReported(); }
    void TearDown() override { ClearErrorReported(); }
};

TEST_F(Reporting, AWarningIsShownWithoutCaptionAndDoesNotCountAsAnError) {
    MessageCapture capture;
    ShowWarning(kMsgNewSymbolNotSupported, 5, "CM_X");
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0].text, "new symbol not supported, line 5, CM_X");
    EXPECT_FALSE(capture.messages()[0].hasCaption);
    EXPECT_EQ(capture.messages()[0].style, MB_ICONHAND);
    EXPECT_FALSE(ErrorReported());
}

TEST_F(Reporting, AnErrorIsShownAndRaised) {
    MessageCapture capture;
    try {
        RaiseError(kMsgUnknownCategory, 9, nullptr);
        FAIL() << "RaiseError returned";
    } catch (const TavloException& e) {
        EXPECT_EQ(e.mCode, 1);
    }
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0].text, "unknoen category, line 9");
    EXPECT_TRUE(ErrorReported());
}

TEST_F(Reporting, OnlyTheFirstErrorOfAReadIsReported) {
    MessageCapture capture;
    EXPECT_THROW(ReportReadError(kMsgSyntax, 2, "error: syntax"), TavloException);
    ReportReadError(kMsgNotEnoughMemory, -1, nullptr);  // returns quietly
    EXPECT_EQ(capture.messages().size(), 1u);
    ClearErrorReported();  // the next read
    EXPECT_THROW(ReportReadError(kMsgNotEnoughMemory, -1, nullptr), TavloException);
    ASSERT_EQ(capture.messages().size(), 2u);
    EXPECT_EQ(capture.messages()[1].text, "not enough memory");
}

}  // namespace
