// The scanner: token classes, keywords, numbers, strings, comments, line
// counting and the invalid-symbol reports.
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
#include "tavloms/tavloms.h"

namespace {

using namespace tavlo::dbfile;
using tavlo::test::MessageCapture;
using tavlo::test::TestFilePath;

struct Scanned {
    int token;
    std::string text;  // SYMBOL and STRING
    double number;     // numbers
    int line;
};

// Scans a whole text; stops after the end token or an error token.
std::vector<Scanned> Scan(const std::string& text) {
    const std::string path = TestFilePath(".txt");
    {
        std::ofstream out(path, std::ios::binary);
        out << text;
    }
    EXPECT_TRUE(OpenInput(path.c_str()));
    std::remove(path.c_str());
    ClearErrorReported();
    StartScanner();
    std::vector<Scanned> tokens;
    for (;;) {
        const int token = NextToken();
        const TokenValue& value = CurrentToken();
        Scanned scanned{token, "", 0.0, value.line};
        if (token == kTokSymbol || token == kTokString) {
            scanned.text.assign(value.text, value.length);
        } else if (token == kTokInteger || token == kTokLong || token == kTokFloat) {
            scanned.number = value.number;
        }
        tokens.push_back(scanned);
        if (token == kTokEnd || token == kTokError) {
            break;
        }
    }
    CloseInput();
    return tokens;
}

std::vector<int> TokenNumbers(const std::vector<Scanned>& tokens) {
    std::vector<int> numbers;
    for (const Scanned& scanned : tokens) {
        numbers.push_back(scanned.token);
    }
    return numbers;
}

TEST(Keywords, TableRowsKeepTheirTokensAndTheNamedTokensTheirNumbers) {
    EXPECT_EQ(kTokBotschaft, 263);
    EXPECT_EQ(kTokNodeTxMsgRel, 307);
    EXPECT_EQ(kTokUminus, 308);
    EXPECT_STREQ(kKeywords[kNewSymbolRow].text, "NS_");
    EXPECT_STREQ(kKeywords[kKeywordCount - 1].text, "BU_BO_REL_");
    int token = -1;
    EXPECT_EQ(LookupKeyword("EV_DATA_", &token), 1);
    EXPECT_EQ(token, kTokEnvvarData);
    EXPECT_EQ(LookupKeyword("ENVVAR_DATA_", &token), 1);
    EXPECT_EQ(token, kTokEnvvarData);
    EXPECT_EQ(LookupKeyword("bo_", &token), 0);
    EXPECT_EQ(token, 0);
}

TEST(Keywords, NewSymbolsIgnoreKeywordsAndStackUpMostRecentFirst) {
    FreeNewSymbols();
    EXPECT_EQ(DeclareNewSymbol("CM_"), 1);
    EXPECT_EQ(NewSymbols(), nullptr);
    EXPECT_EQ(DeclareNewSymbol("SG_MUL_VAL_"), 1);
    EXPECT_EQ(DeclareNewSymbol("BU_SG_REL_X_NAME_LONGER_THAN_THIRTY_TWO"), 1);
    ASSERT_NE(NewSymbols(), nullptr);
    EXPECT_STREQ(NewSymbols()->name, "BU_SG_REL_X_NAME_LONGER_THAN_THI");
    EXPECT_EQ(+NewSymbols()->self, NewSymbols()->name);
    EXPECT_STREQ(NewSymbols()->next->name, "SG_MUL_VAL_");
    EXPECT_NE(FindNewSymbol("SG_MUL_VAL_"), nullptr);
    EXPECT_EQ(FindNewSymbol("SG_MUL_VAL"), nullptr);
    FreeNewSymbols();
    EXPECT_EQ(NewSymbols(), nullptr);
}

TEST(Scanner, SplitsTokensByClass) {
    struct Case {
        const char* text;
        std::vector<int> tokens;
    };
    const Case cases[] = {
        {"BO_ bo_ BO_X ", {kTokBotschaft, kTokSymbol, kTokSymbol, kTokEnd}},
        {"Motor_2 2Motor ", {kTokSymbol, kTokInteger, kTokSymbol, kTokEnd}},
        {"32767 32768 4294967295", {kTokInteger, kTokLong, kTokLong, kTokEnd}},
        {"-5 +5", {'-', kTokInteger, '+', kTokInteger, kTokEnd}},
        {"1. 1.5 1e3 1.5E-3 2E+2", {kTokFloat, kTokFloat, kTokFloat, kTokFloat, kTokFloat, kTokEnd}},
        {".5", {'.', kTokInteger, kTokEnd}},
        {"1e ", {kTokError}},
        {"2E+x", {kTokError}},
        {": ; , | @ ( ) [ ] * / #", {':', ';', ',', '|', '@', '(', ')', '[', ']', '*', '/', '#', kTokEnd}},
        {"a // comment BO_\nb ", {kTokSymbol, kTokSymbol, kTokEnd}},
        {"a/b ", {kTokSymbol, '/', kTokSymbol, kTokEnd}},
        {"\t\r\x01x ", {kTokSymbol, kTokEnd}},
        {"SIGTYPE_VALTYPE_ EV_DATA_ NS_DESC_ ", {kTokSignalTypeValtype, kTokEnvvarData,
                                                   kTokNewSymbolDesc, kTokEnd}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        MessageCapture capture;
        EXPECT_EQ(TokenNumbers(Scan(c.text)), c.tokens);
        EXPECT_TRUE(capture.messages().empty());
    }
}

TEST(Scanner, GivesNumbersAndTextsTheirValues) {
    const auto tokens = Scan("18446744073709551615 99999999999999999999 1.5E-3 \"a\\\"b\\c\" x ");
    ASSERT_EQ(tokens.size(), 6u);
    EXPECT_EQ(tokens[0].token, kTokLong);
    EXPECT_DOUBLE_EQ(tokens[0].number, 18446744073709551615.0);
    EXPECT_EQ(tokens[1].token, kTokLong);
    EXPECT_DOUBLE_EQ(tokens[1].number, 1e20);
    EXPECT_DOUBLE_EQ(tokens[2].number, 1.5e-3);
    EXPECT_EQ(tokens[3].token, kTokString);
    EXPECT_EQ(tokens[3].text, "a\"b\\c");
    EXPECT_EQ(tokens[4].text, "x");
}

TEST(Scanner, CountsLineFeedsReadFromTheFileOnly) {
    // Line counts start at 0; a string's own line feeds count too.
    const auto tokens = Scan("a\nb \"x\ny\" c\r\n\nd ");
    ASSERT_EQ(tokens.size(), 6u);
    EXPECT_EQ(tokens[0].line, 0);
    EXPECT_EQ(tokens[1].line, 1);
    EXPECT_EQ(tokens[2].line, 1);
    EXPECT_EQ(tokens[2].text, "x\ny");
    EXPECT_EQ(tokens[3].line, 2);
    EXPECT_EQ(tokens[4].line, 4);
}

TEST(Scanner, ReadsBackPushedCharactersFirstAndWithoutCountingLines) {
    const auto tokens = Scan("ab\ncd ");
    ASSERT_EQ(tokens.size(), 3u);
    // After "ab" the line feed that ended it was read (and counted) and
    // pushed back; reading it again does not count it twice.
    EXPECT_EQ(tokens[1].line, 1);
    EXPECT_EQ(CurrentLine(), 1);
}

TEST(Scanner, ReportsInvalidCharactersWithTheirWord) {
    struct Case {
        std::string text;
        std::string message;
    };
    const Case cases[] = {
        {"x\nGr\xE4\xDF" "e; y", "database: invalid char in symbol, line 1, Gr\xE4\xDF" "e :\xE4"},
        {"\xE4x y", "database: invalid char in symbol, \xE4x :\xE4"},
        {"VERSION", "database: invalid char in symbol, VERSION :"},
        {std::string(81, 'a'), "database: invalid char in symbol, " + std::string(80, 'a')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        MessageCapture capture;
        EXPECT_THROW(Scan(c.text), TavloException);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].text, c.message);
        EXPECT_FALSE(IsInputOpen());
    }
}

TEST(Scanner, EndsAtTheFileEndInsideStringsCommentsAndSkippedStatements) {
    const char* texts[] = {"\"never closed", "a // no line feed", "NS_ : X\nBS_:\nX never ended"};
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        MessageCapture capture;
        tavlo_root_t root = {};
        const auto outcome = tavlo::test::ReadText(text, &root);
        EXPECT_TRUE(outcome.raised);
        ASSERT_FALSE(outcome.messages.empty());
        EXPECT_NE(outcome.messages.back().find("error: syntax"), std::string::npos);
        TAVLO_FREE_ROOT(&root);
    }
}

}  // namespace
