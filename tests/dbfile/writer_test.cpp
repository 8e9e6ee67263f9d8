// Writing database files from records: the sample database, which holds
// every kind of record, as cases/sample.dbc gives it; what only records can
// hold (texts no file gives, unknown value types, output larger than the
// writer's block); and the failures.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/model.h"
#include "support/death.h"
#include "support/message_capture.h"
#include "support/read_database.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::FileContent;
using tavlo::test::Text;

// A database released at the end of the scope.
struct Database {
    tavlo_root_t root = {};
    ~Database() { TAVLO_FREE_ROOT(&root); }
};

std::string Write(const tavlo_root_t& db) {
    const std::string path = tavlo::test::TestFilePath(".dbc");
    EXPECT_EQ(tavlo::test::WriteDatabase(path, db), 0u);
    std::string text = FileContent(path);
    std::remove(path.c_str());
    return text;
}

// The lines of a text that begin with `prefix`.
std::vector<std::string> LinesStartingWith(const std::string& text, const std::string& prefix) {
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
        end = text.find('\n', at);
        if (text.compare(at, prefix.size(), prefix) == 0) {
            lines.push_back(text.substr(at, end - at));
        }
    }
    return lines;
}

TEST(Writer, WritesTheSampleDatabaseAsTheFileGivesIt) {
    Database db;
    db.root = tavlo::test::BuildSampleDatabase();
    EXPECT_EQ(Write(db.root), FileContent(std::string(TAVLOMS_CORPUS_DIR) + "/../cases/sample.dbc"));
}

// ENUM texts are written with the placeholder for an empty piece (an empty
// last piece only when none was written before it); quotes are not escaped.
TEST(Writer, WritesEnumTextsAndValuesOfEveryType) {
    const struct {
        unsigned int valueType;
        const char* texts;     // of an ENUM definition
        const char* value;     // a STRING value, or null for the number 2
        const char* defLine;   // the BA_DEF_ line, the BA_ line and the BA_DEF_DEF_ line
        const char* valueLine;
        const char* defaultLine;
    } cases[] = {
        {TAVLO_ATTR_ENUM, "a\n\nb", nullptr, "BA_DEF_  \"E\" ENUM  \"a\",\"corvan_leerstring\",\"b\";",
         "BA_ \"E\" 2;", "BA_DEF_DEF_  \"E\" \"d\";"},
        {TAVLO_ATTR_ENUM, "a\n\n", nullptr, "BA_DEF_  \"E\" ENUM  \"a\",\"corvan_leerstring\";",
         "BA_ \"E\" 2;", "BA_DEF_DEF_  \"E\" \"d\";"},
        {TAVLO_ATTR_ENUM, "", nullptr, "BA_DEF_  \"E\" ENUM  \"corvan_leerstring\";", "BA_ \"E\" 2;",
         "BA_DEF_DEF_  \"E\" \"d\";"},
        {TAVLO_ATTR_ENUM, nullptr, nullptr, "BA_DEF_  \"E\" ENUM  \"corvan_leerstring\";",
         "BA_ \"E\" 2;", "BA_DEF_DEF_  \"E\" \"d\";"},
        {TAVLO_ATTR_ENUM, "say \"x\"", nullptr, "BA_DEF_  \"E\" ENUM  \"say \"x\"\";", "BA_ \"E\" 2;",
         "BA_DEF_DEF_  \"E\" \"d\";"},
        {TAVLO_ATTR_STRING, nullptr, "a\"b", "BA_DEF_  \"E\" STRING ;", "BA_ \"E\" \"a\"b\";",
         "BA_DEF_DEF_  \"E\" \"d\";"},
        {7, nullptr, nullptr, "BA_DEF_  \"E\" ;", "BA_ \"E\" ;", "BA_DEF_DEF_  \"E\" ;"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.defLine);
        Database db;
        attr_def* def = TAVLO_CREATE_ATTR_DEF();
        tavlo::model::CopyName(def->name, "E");
        def->value_type = c.valueType;
        def->minimum.text = c.texts != nullptr ? Text(c.texts) : nullptr;
        if (c.valueType != 7) {
            def->default_value.text = Text("d");
        }
        db.root.attr_defs = def;
        db.root.db_attrs = c.value != nullptr ? tavlo::test::AppendTextAttr(nullptr, def, c.value)
                                              : tavlo::test::AppendNumberAttr(nullptr, def, 2);
        const std::string text = Write(db.root);
        EXPECT_EQ(LinesStartingWith(text, "BA_"),
                  (std::vector<std::string>{c.defLine, c.defaultLine, c.valueLine}));
        if (c.texts != nullptr) {
            EXPECT_STREQ(def->minimum.text, c.texts);  // the definition is left as it was
        }
    }
}

// Output larger than the writer's block, and many lines across block ends.
TEST(Writer, WritesOutputLargerThanItsBlock) {
    Database db;
    std::string comment;
    std::string escaped;
    for (int i = 0; i < 300000; ++i) {
        comment += "0123456789\"";
        escaped += "0123456789\\\"";
    }
    db.root.comment = Text(comment.c_str());
    std::string messages;
    msgblk* last = nullptr;
    for (unsigned int id = 0; id < 60000; ++id) {
        msgblk* message = TAVLO_CREATE_MSGBLK();
        message->id = id;
        message->dlc = 8;
        tavlo::model::CopyName(message->name, "Msg");
        (last != nullptr ? last->next : db.root.messages) = message;  // append in O(1)
        last = message;
        messages += "\nBO_ " + std::to_string(id) + " Msg: 8 Corvan__XXX\n";
    }
    EXPECT_NE(Write(db.root).find("\nBU_:\n\n" + messages + "\n\n\nCM_ \"" + escaped + "\";\n"),
              std::string::npos);
}

TEST(Writer, ReturnsCouldNotWriteWithoutAMessageWhenTheFileCannotBeOpened) {
    Database db;
    db.root = tavlo::test::BuildSampleDatabase();
    const std::string path = tavlo::test::TestFilePath(".missing") + "/net.dbc";
    tavlo::test::MessageCapture capture;
    EXPECT_EQ(tavlo::test::WriteDatabase(path, db.root), 13u);
    EXPECT_EQ(TAVLO_WRITE(nullptr, db.root.nodes, db.root.messages, db.root.envvars,
                          db.root.bit_timings, db.root.attr_defs, db.root.db_attrs,
                          db.root.categories, db.root.filter, db.root.comment, db.root.version,
                          db.root.sig_types, db.root.value_tables),
              13u);
    EXPECT_TRUE(capture.messages().empty());
    EXPECT_EQ(std::fopen(path.c_str(), "r"), nullptr);
}

TEST(WriterDeathTest, AValueWithoutADefinitionStopsTheProgram) {
    const std::string path = tavlo::test::TestFilePath(".dbc");
    tavlo_root_t db = {};
    db.db_attrs = tavlo::test::AppendAttr(nullptr, nullptr, tavlo_attr_value_t{});
    EXPECT_DEATH(tavlo::test::WriteDatabase(path, db),
                 "Assertion failed: attr, module canddbw, line " TAVLO_LINE_NUMBER);
    TAVLO_MFREE(db.db_attrs);
    std::remove(path.c_str());
}

}  // namespace
