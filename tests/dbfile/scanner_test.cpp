// What the reader's messages cannot show: the scanner's token classes (the
// reader takes short and long integers alike), and that a read reports its
// first error only (a read stops at it).
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dbfile/input.h"
#include "dbfile/keywords.h"
#include "dbfile/report.h"
#include "dbfile/scanner.h"
#include "support/message_capture.h"
#include "support/read_database.h"
#include "tavloms/exception.h"

namespace {

using namespace tavlo::dbfile;

TEST(Scanner, SplitsTokensByClassAndCountsLines) {
    const struct {
        const char* text;
        std::vector<int> tokens;
        std::vector<int> lines;
    } cases[] = {
        {"BO_ bo_ BO_X ", {kTokBotschaft, kTokSymbol, kTokSymbol, kTokEnd}, {0, 0, 0, 0}},
        {"Motor_2 2Motor ", {kTokSymbol, kTokInteger, kTokSymbol, kTokEnd}, {0, 0, 0, 0}},
        {"32767 32768 4294967295", {kTokInteger, kTokLong, kTokLong, kTokEnd}, {0, 0, 0, 0}},
        {"-5 +5 .5", {'-', kTokInteger, '+', kTokInteger, '.', kTokInteger, kTokEnd}, {0, 0, 0, 0, 0, 0, 0}},
        {"1. 1e3 1.5E-3 2E+2", {kTokFloat, kTokFloat, kTokFloat, kTokFloat, kTokEnd}, {0, 0, 0, 0, 0}},
        {"1e ", {kTokError}, {0}},
        {": ; , | @ ( ) [ ] * / #", {':', ';', ',', '|', '@', '(', ')', '[', ']', '*', '/', '#', kTokEnd},
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"a // BO_\nb/c\t\r\x01 ", {kTokSymbol, kTokSymbol, '/', kTokSymbol, kTokEnd}, {0, 1, 1, 1, 1}},
        // A string's own line feeds count; the line feed that ends a word is
        // read, counted and pushed back, and not counted again.
        {"a\nb \"x\ny\" c\r\n\nd\ne ", {kTokSymbol, kTokSymbol, kTokString, kTokSymbol, kTokSymbol,
                                       kTokSymbol, kTokEnd}, {0, 1, 1, 2, 4, 5, 5}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string path = tavlo::test::TestFilePath(".txt");
        std::ofstream(path, std::ios::binary) << c.text;
        ASSERT_TRUE(OpenInput(path.c_str()));
        std::remove(path.c_str());
        ClearErrorReported();
        StartScanner();
        std::vector<int> tokens;
        std::vector<int> lines;
        while (tokens.empty() || (tokens.back() != kTokEnd && tokens.back() != kTokError)) {
            tokens.push_back(NextToken());
            lines.push_back(CurrentToken().line);
        }
        CloseInput();
        EXPECT_EQ(tokens, c.tokens);
        EXPECT_EQ(lines, c.lines);
    }
}

TEST(Report, OnlyTheFirstErrorOfAReadIsShown) {
    tavlo::test::MessageCapture capture;
    ClearErrorReported();
    EXPECT_THROW(ReportReadError(kMsgSyntax, 2, "error: syntax"), TavloException);
    ReportReadError(kMsgNotEnoughMemory, -1, nullptr);  // returns quietly
    ClearErrorReported();  // the next read
    EXPECT_THROW(ReportReadError(kMsgNotEnoughMemory, -1, nullptr), TavloException);
    ClearErrorReported();
    ASSERT_EQ(capture.messages().size(), 2u);
    EXPECT_EQ(capture.messages()[1].text, "not enough memory");
}

}  // namespace
