// Reading what the case files (cases/*.txt) cannot hold: bytes that are
// no text, files that are none, running out of memory and errors part way
// through a statement, numbers read to the last bit, and the two ways a
// signal line is read.
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "dbfile/keywords.h"
#include "model/model.h"
#include "support/describe.h"
#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::ReadOutcome;
using tavlo::test::ReadText;

// A database released at the end of the scope.
struct Database {
    tavlo_root_t root = {};
    ~Database() { TAVLO_FREE_ROOT(&root); }
};

TEST(Reader, BytesThatAreNoText) {
    const struct {
        std::string text;
        std::vector<std::string> messages;
        const char* comment;  // the file comment read, for a file that reads
    } cases[] = {
        {"VERSION \"\"\nCM_ \"a\rb\r\nc\";\n", {}, "a\rb\nc"},  // only \r before \n goes
        {"VERSION \"\"\nBU_: A\n Gr\xE4\xDF" "e;\n", {"database: invalid char in symbol, line 2, Gr\xE4\xDF" "e :\xE4"}, nullptr},
        {"\xE4x y", {"database: invalid char in symbol, \xE4x :\xE4"}, nullptr},
        {"VERSION", {"database: invalid char in symbol, VERSION :"}, nullptr},  // at the file end
        {"VERSION \"never closed", {", error: syntax"}, nullptr},
        {"VERSION \"\" // no line feed", {", error: syntax"}, nullptr},
        {"VERSION \"\"\nNS_ : X\nBS_:\nX never ended",
         {"new symbol not supported, line 3, X", ", line 3, error: syntax"}, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Database db;
        const ReadOutcome outcome = ReadText(c.text, &db.root);
        EXPECT_EQ(outcome.raised, c.comment == nullptr);
        EXPECT_EQ(outcome.messages, c.messages);
        if (c.comment != nullptr) {
            ASSERT_NE(db.root.comment, nullptr);
            EXPECT_EQ(std::string(db.root.comment), c.comment);
        }
    }
}

TEST(Reader, NullFileNameReadsNothingButGivesAVersion) {
    Database db;
    symblk* marker = reinterpret_cast<symblk*>(&db);
    db.root.nodes = marker;
    EXPECT_EQ(TAVLO_READ(nullptr, &db.root.nodes, &db.root.messages, &db.root.envvars,
                         &db.root.bit_timings, &db.root.attr_defs, &db.root.db_attrs,
                         &db.root.categories, &db.root.filter, &db.root.comment, &db.root.version,
                         &db.root.sig_types, &db.root.value_tables),
              0u);
    EXPECT_EQ(db.root.nodes, marker);
    ASSERT_NE(db.root.version, nullptr);
    EXPECT_STREQ(db.root.version, "");
    db.root.nodes = nullptr;
}

// A missing file and what cannot be read as a file (a directory) alike.
TEST(Reader, UnreadableFileIsReportedWithItsName) {
    const std::string directory = tavlo::test::TestFilePath(".dir");
    std::filesystem::create_directories(directory);
    for (const std::string& path : {tavlo::test::TestFilePath(".missing"), directory}) {
        Database db;
        const ReadOutcome outcome = tavlo::test::ReadDatabase(path, &db.root);
        EXPECT_TRUE(outcome.raised);
        EXPECT_EQ(outcome.messages, std::vector<std::string>{"database: not found, " + path});
    }
    std::filesystem::remove(directory);
}

// Every allocation of a read made to fail in turn: the read either succeeds
// or says exactly "not enough memory", and nothing leaks once the partial
// lists are released.
TEST(Reader, RunningOutOfMemoryIsReportedWithoutALine) {
    const std::string text =
        "VERSION \"1.0\"\nBS_:\nBU_: A B\nBO_ 100 Engine: 8 A\n"
        " SG_ Mode M : 0|4@1+ (1,0) [0|15] \"\" B\n SG_ Speed m3 : 7|16@0- (0.01,-40) [-40|615.35] \"km/h\"  A,B\n"
        "EV_ V: 0 [0|1] \"\" 0 1 DUMMY_NODE_CORVAN0 A;\nCM_ BO_ 100 \"text\";\n"
        "BA_DEF_ BO_ \"S\" STRING;\nBA_ \"S\" BO_ 100 \"x\";\n";
    for (long allowed = 0; allowed < 40; ++allowed) {
        SCOPED_TRACE(allowed);
        tavlo::dbfile::FreeNewSymbols();
        const long before = tavlo::model::LiveAllocations();
        Database db;
        tavlo::model::FailAllocationsAfter(allowed);
        const ReadOutcome outcome = ReadText(text, &db.root);
        tavlo::model::FailAllocationsAfter(-1);
        EXPECT_EQ(outcome.messages, outcome.raised ? std::vector<std::string>{"not enough memory"}
                                                   : std::vector<std::string>{});
        TAVLO_FREE_ROOT(&db.root);
        tavlo::dbfile::FreeNewSymbols();  // a failed read leaves them to the next
        EXPECT_EQ(tavlo::model::LiveAllocations(), before);
    }
}

// An error right after a text or an entry was read must not lose it: every
// block the read made is in the lists and goes with them.
TEST(Reader, ErrorAfterATextOrEntryLosesNothing) {
    const char* texts[] = {
        "VERSION \"\" \xff",
        "VERSION \"\"\nCM_ \"x\"\xff",
        "VERSION \"\"\nBO_ 1 M: 1 A\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" A\nCM_ SG_ 1 S \"x\"\xff",
        "VERSION \"\"\nBA_DEF_  \"S\" STRING ;\nBA_ \"S\" \"x\"\xff",
        "VERSION \"\"\nBA_DEF_  \"A\" ENUM  \"x\";\xff",
        "VERSION \"\"\nVAL_TABLE_ T 1 \"a\" \xff",
        "VERSION \"\"\nBO_ 1 M: 1 A\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" A\nVAL_ 1 S 1 \"a\" \xff",
        "VERSION \"\"\nBO_ 1 M: 1 A\n SG_ S : 0|1@1+ (1,0) [0|1] \"\" A,\n",
    };
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        tavlo::dbfile::FreeNewSymbols();
        const long before = tavlo::model::LiveAllocations();
        Database db;
        EXPECT_TRUE(ReadText(text, &db.root).raised);
        TAVLO_FREE_ROOT(&db.root);
        EXPECT_EQ(tavlo::model::LiveAllocations(), before);
    }
}

// Numbers of up to 17 significant digits read as the C library reads them,
// to the last bit.
TEST(Reader, LongDecimalNumbersAreReadExactly) {
    const char* numbers[] = {"0.9999999999999999", "9999999999999999.5", "0.12345678901234567",
                             "12345678901234567", "1.0000000000000002", "4503599627370496.5",
                             "0.30000000000000004", "123456789012345.67", "9007199254740993"};
    for (const char* number : numbers) {
        SCOPED_TRACE(number);
        Database db;
        const ReadOutcome outcome = ReadText(
            std::string("VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n SG_ S : 0|8@1+ (") + number +
                ",-" + number + ") [0|1] \"\" A\n",
            &db.root);
        ASSERT_FALSE(outcome.raised);
        EXPECT_EQ(+db.root.messages->signals->factor, std::strtod(number, nullptr));
        EXPECT_EQ(+db.root.messages->signals->offset, -std::strtod(number, nullptr));
    }
}

// Signal lines written plainly are read in one go, every other form token by
// token; both give the same records. Each line is read as it is and again
// with line feeds after its "SG_" and its ":", which always take the token
// path.
TEST(Reader, PlainAndTokenPathsAgree) {
    // Heads, and whether they read (an illegal mode, a keyword for a name).
    const std::pair<const char*, bool> heads[] = {
        {" SG_ S :", true},      {" SG_ S:", true},          {"\tSG_\tS\tM\t:", true},
        {" SG_ S m3 :", true},   {" SG_ S m12M:", true},     {" SG_ S mode :", false},
        {" SG_ BO_ :", false},   {" SG_ S VERSION :", false}};
    const char* layouts[] = {
        "7|16@0+ (0.01,-40) [-40|615.35] \"km/h\"",
        "0|1@1- (1,0) [0|1] \"\"",
        " 63 | 64 @ 1 + ( 1 , 0 ) [ 0 | 18446744073709551615 ] \"\"",
        "\t8|8@0-\t(+0.5,+1)\t[-1.5|+2.5]\t\"x\"",
        "8|8@1+ (1e3,2.5E-3) [1.|2.] \"u\"",
        "8|8@1+ (0.1234567890123456789,123456789012345678) [0|1] \"u\"",
        "8|8@1+ (1,0) [0|1] \"a\\\"b\\c longer than thirty-two characters \xb0" "C\"",
        "008|0016@01+ (0.000001,-0.0) [-0|1] \"\"",
    };
    const char* receivers[] = {" A",          " A,B",     " A , B", "\tA,\tB",
                               " A,\n B",     " A\n, B",  "",       " Corvan__XXX",
                               " A,Corvan__XXX,B"};
    const std::string start = "VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n";
    const std::string end = "\nCM_ SG_ 1 S \"c\";\n";
    for (const auto& [head, reads] : heads) {
        std::string broken = head;
        broken.insert(broken.find("SG_") + 3, "\n");
        broken += "\n";
        for (std::size_t i = 0; i < std::size(layouts) * std::size(receivers); ++i) {
            const std::string layout = layouts[i % std::size(layouts)];
            const std::string tail = layout + receivers[i / std::size(layouts)] + end;
            SCOPED_TRACE(head + tail);
            Database plain;
            Database tokens;
            const ReadOutcome read = ReadText(start + head + " " + tail, &plain.root);
            EXPECT_EQ(ReadText(start + broken + tail, &tokens.root).raised, read.raised);
            EXPECT_EQ(tavlo::test::DescribeDatabase(plain.root),
                      tavlo::test::DescribeDatabase(tokens.root));
            EXPECT_EQ(read.raised, !reads);
            if (reads) {
                ASSERT_NE(plain.root.messages, nullptr);
                EXPECT_NE(+plain.root.messages->signals, nullptr);
            }
        }
    }
}

// Attribute values, comments, value descriptions and message lines written
// plainly are read in one go, others token by token; each statement is read
// as it is and again with line feeds after its keyword and before its ";",
// which take the token path. Both give the same records, or fail alike.
TEST(Reader, PlainAndTokenStatementsAgree) {
    const std::string start =
        "VERSION \"\"\nBS_:\nBU_: A\nBO_ 1 M: 8 A\n SG_ S : 0|8@1+ (1,0) [0|1] \"\" A\n"
        "EV_ V: 0 [0|1] \"\" 0 1 DUMMY_NODE_CORVAN0 A;\n"
        "CM_ BO_ 1 \"old\";\nVAL_ 1 S 1 \"one\" ;\n"
        "BA_DEF_ BO_ \"I\" INT 0 100;\nBA_DEF_ BO_ \"F\" FLOAT -10 10;\n"
        "BA_DEF_ BU_ \"N\" INT 0 9;\nBA_DEF_ SG_ \"G\" HEX 0 255;\nBA_DEF_ EV_ \"V\" INT 0 9;\n"
        "BA_DEF_ \"W\" ENUM \"a\",\"b\";\nBA_DEF_ BO_ \"T\" STRING ;\nBA_DEF_ BO_ \"X Y\" INT 0 9;\n";
    // Value descriptions, more than are read in one go.
    const auto entries = [](int count) {
        std::string text;
        for (int value = 0; value < count; ++value) {
            text += " " + std::to_string(value) + " \"v" + std::to_string(value) + "\"";
        }
        return text;
    };
    // Keywords with what follows them, and whether they read.
    const struct {
        const char* keyword;
        std::string rest;
        bool reads;
    } statements[] = {
        {"BA_", " \"I\" BO_ 1 42;", true},        {"BA_", " \"F\" BO_ 1 -2.5 ;", true},
        {"BA_", "\t\"F\"\tBO_\t1\t+0.125;", true}, {"BA_", " \"N\" BU_ A 3;", true},
        {"BA_", " \"G\" SG_ 1 S 17;", true},      {"BA_", " \"V\" EV_ V 1;", true},
        {"BA_", " \"W\" 1;", true},               {"BA_", " \"X\tY\" BO_ 1 2;", true},
        {"BA_", " \"I\" BO_ 1 1e1;", true},       {"BA_", " \"U\" BO_ 1 5;", false},
        {"BA_", " \"I\" BO_ 9 5;", false},        {"BA_", " \"G\" SG_ 1 R 5;", false},
        {"BA_", " \"T\" BO_ 1 5;", false},        {"BA_", " \"I\" SG_ 1 S 5;", false},
        {"BA_", " \"N\" BU_ Corvan__XXX 5;", false}, {"BA_", " \"I\" BO_ 1 5", false},
        {"CM_", " \"net\";", true},               {"CM_", " BU_ A \"a\";", true},
        {"CM_", " BU_ B \"new node\" ;", true},   {"CM_", " BO_ 1 \"new\";", true},
        {"CM_", "\tSG_\t1\tS\t\"a\tb\";", true}, {"CM_", " EV_ V \"v\";", true},
        {"CM_", " BO_ 1 \"a \\\"b\\\" c\";", true}, {"CM_", " SGTYPE_ T \"t\";", false},
        {"CM_", " BO_ 9 \"x\";", false},          {"CM_", " SG_ 1 R \"x\";", false},
        {"CM_", " BU_ Corvan__XXX \"x\";", false}, {"CM_", " EV_ W \"x\";", false},
        {"CM_", " BO_ 1 \"x\"", false},           {"CM_", " BO_ 1 x;", false},
        {"VAL_ 1 S", " 3 \"c\" 2 \"b\" -1 \"minus one\" ;", true},
        {"VAL_ 1 S", " ;", true},                   {"VAL_ 1 S", "\t0\t\"z\";", true},
        {"VAL_ 1 S", " 4294967297 \"wraps\" 7 \"longer than thirty-two characters\";", true},
        {"VAL_ 1 S", " - 5 \"x\" + 6 \"y\";", true}, {"VAL_ 1 S", " 5\"x\";", true},
        {"VAL_ 1 S", entries(64) + ";", true},   {"VAL_ 1 S", entries(65) + ";", true},
        {"VAL_ 1 S", " 123456789012345678901 \"huge\";", false},
        {"VAL_ 1 S", " 1.5 \"x\";", false},        {"VAL_ 1 S", " 5 \"x\"", false},
        {"VAL_ 1 S", " 5 x;", false},                {"VAL_ 1 R", " 5 \"x\";", false},
        {"BO_", " 2 N: 8 A", true},                  {"BO_", "\t4294967295\tN\t:\t0\tCorvan__XXX", true},
        {"BO_", " 2 N : 8 B // x", true},          {"BO_", " 2 N: 8 A\n SG_ T : 0|8@1+ (1,0) [0|1] \"\" A", true},
        {"BO_", " 1 N: 8 A", false},                 {"BO_", " 4294967296 N: 8 A", false},
        {"BO_", " 2 BO_: 8 A", false},               {"BO_", " 2 N: 65536 A", false},
        {"BO_", " 2 N 8 A", false},                  {"BO_", " 2 N: 8", false}};
    for (const auto& [keyword, rest, reads] : statements) {
        SCOPED_TRACE(keyword + rest);
        std::string broken = rest;
        if (broken.back() == ';') {
            broken.insert(broken.size() - 1, "\n");
        }
        Database plain;
        Database tokens;
        const ReadOutcome read = ReadText(start + keyword + rest + "\n", &plain.root);
        EXPECT_EQ(read.raised, !reads);
        EXPECT_EQ(ReadText(start + keyword + "\n" + broken + "\n", &tokens.root).raised,
                  read.raised);
        EXPECT_EQ(tavlo::test::DescribeDatabase(plain.root),
                  tavlo::test::DescribeDatabase(tokens.root));
    }
}

// Later statements find every signal by name, however many the file has:
// 2,400 messages of 7 signals, each signal given a comment after them all.
TEST(Reader, CommentsFindEverySignalOfAManySignalFile) {
    std::string text = "VERSION \"\"\nBS_:\nBU_: A\n";
    std::string comments;
    for (int m = 1; m <= 2400; ++m) {
        text += "BO_ " + std::to_string(m) + " M" + std::to_string(m) + ": 8 A\n";
        for (int k = 0; k < 7; ++k) {
            const std::string name = "S" + std::to_string(k);
            text += " SG_ " + name + " : " + std::to_string(8 * k) + "|8@1+ (1,0) [0|0] \"\" A\n";
            comments += "CM_ SG_ " + std::to_string(m) + " " + name + " \"" +
                        std::to_string(m * 10 + k) + "\";\n";
        }
    }
    Database db;
    ASSERT_FALSE(ReadText(text + comments, &db.root).raised);
    int m = 1;
    for (const msgblk* message = db.root.messages; message != nullptr; message = message->next, ++m) {
        int k = 0;
        for (const sigblk* signal = message->signals; signal != nullptr; signal = signal->next, ++k) {
            ASSERT_NE(+signal->comment, nullptr) << m << " " << k;
            ASSERT_EQ(std::string(signal->comment), std::to_string(m * 10 + k));
        }
        ASSERT_EQ(k, 7);
    }
    EXPECT_EQ(m, 2401);
}

}  // namespace
