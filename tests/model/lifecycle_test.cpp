// Creation defaults, positional insertion, what each deletion releases, the
// release of a whole database, and running out of memory while creating.
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "dbfile/input.h"
#include "dbfile/report.h"
#include "model/model.h"
#include "support/death.h"
#include "support/message_capture.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::model::LiveAllocations;
using tavlo::test::AppendNumberAttr;
using tavlo::test::AppendRelation;
using tavlo::test::AppendValue;
using tavlo::test::MessageCapture;
using tavlo::test::Text;

// How many library blocks an operation releases.
long Released(const std::function<void()>& operation) {
    const long before = LiveAllocations();
    operation();
    return before - LiveAllocations();
}

// A record as made must equal a zero record with only the defaults set.
template <class T>
void ExpectCreated(const char* what, T* made, const std::function<void(T&)>& setDefaults) {
    ASSERT_NE(made, nullptr) << what;
    T expected;
    std::memset(&expected, 0, sizeof expected);
    setDefaults(expected);
    EXPECT_EQ(std::memcmp(made, &expected, sizeof(T)), 0) << what;
    TAVLO_MFREE(made);
}

symblk* Node(const char* name) {
    symblk* node = TAVLO_CREATE_SYMBOL();
    std::strcpy(node->name, name);
    return node;
}

std::string Names(const symblk* list) {
    std::string names;
    for (; list != nullptr; list = list->next) {
        names += list->name;
    }
    return names;
}

TEST(Creation, RecordsAreZeroFilledWithTheirDefaults) {
    symblk node{};
    msgblk message{};
    sigblk signal{};
    ExpectCreated<msgblk>("msgblk", TAVLO_CREATE_MSGBLK(), [](msgblk& m) {
        m.dlc = 1;
        m.signal_count = 1;
    });
    ExpectCreated<sigblk>("sigblk", TAVLO_CREATE_SIGBLK(), [](sigblk& s) {
        s.length = 1;
        s.factor = 1.0;
    });
    ExpectCreated<btlblk>("btlblk", TAVLO_CREATE_BTLBLK(), [](btlblk&) {});
    ExpectCreated<symblk>("symblk", TAVLO_CREATE_SYMBOL(), [](symblk&) {});
    ExpectCreated<rxblk>("rx", TAVLO_CREATE_RX(&node), [&node](rxblk& r) { r.symbol = &node; });
    ExpectCreated<rxblk>("tx", TAVLO_CREATE_TX(&node), [&node](rxblk& r) { r.symbol = &node; });
    ExpectCreated<env_var_blk>("env_var_blk", TAVLO_CREATE_EVBLK(), [](env_var_blk&) {});
    ExpectCreated<attr_def>("attr_def", TAVLO_CREATE_ATTR_DEF(), [](attr_def&) {});
    ExpectCreated<cat>("cat", TAVLO_CREATE_CATEGORY(), [](cat&) {});
    ExpectCreated<valtable>("valtable", TAVLO_CREATE_VALTABLE(), [](valtable&) {});
    ExpectCreated<sigtype>("sigtype", TAVLO_CREATE_SIGTYPE(), [](sigtype&) {});
    ExpectCreated<siggroupblk>("siggroupblk", TAVLO_CREATE_SIGGROUP(&message),
                               [&message](siggroupblk& g) {
                                   g.repetitions = 1;
                                   g.message = &message;
                               });
    ExpectCreated<siglistblk>("siglistblk", TAVLO_CREATE_SIGLIST(&signal),
                              [&signal](siglistblk& l) { l.signal = &signal; });
}

TEST(Insertion, PositionSaysWhichRecordTheNewOneFollows) {
    struct Case {
        const char* list;  // one letter per node
        unsigned int position;
        const char* expected;
    };
    const Case cases[] = {
        {"", 0, "X"},        {"A", 0, "XA"},      {"A", 1, "AX"},
        {"ABC", 0, "XABC"},  {"ABC", 1, "AXBC"},  {"ABC", 2, "ABXC"},
        {"ABC", 3, "ABCX"},
    };
    for (const Case& c : cases) {
        symblk* head = nullptr;
        for (unsigned int i = 0; c.list[i] != '\0'; ++i) {
            const char name[2] = {c.list[i], '\0'};
            CAN_INSERT_SYMBOL(&head, Node(name), i);
        }
        CAN_INSERT_SYMBOL(&head, Node("X"), c.position);
        EXPECT_EQ(Names(head), c.expected) << c.list << " at " << c.position;
        tavlo::model::ReleaseNodes(head);
    }
}

TEST(Insertion, SignalsGoIntoTheMessageWithoutTouchingItsCount) {
    msgblk* message = TAVLO_CREATE_MSGBLK();
    sigblk* a = TAVLO_CREATE_SIGBLK();
    sigblk* b = TAVLO_CREATE_SIGBLK();
    sigblk* c = TAVLO_CREATE_SIGBLK();
    CAN_INSERT_SIG(message, a, 0);
    CAN_INSERT_SIG(message, b, 1);
    CAN_INSERT_SIG(message, c, 1);
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_N(message, 1), a);
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_N(message, 2), c);
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_N(message, 3), b);
    EXPECT_EQ(+message->signal_count, 1);
    msgblk* messages = message;
    EXPECT_EQ(Released([&] { CAN_DELETE_MSG(&messages, message); }), 4);
    EXPECT_EQ(messages, nullptr);
}

TEST(InsertionDeathTest, APositionPastTheEndNamesTheMissingRecord) {
    struct Case {
        const char* assertion;
        std::function<void()> insert;
    };
    const std::vector<Case> cases = {
        {"s != NULL", [] {
             symblk* head = nullptr;
             CAN_INSERT_SYMBOL(&head, Node("A"), 0);
             CAN_INSERT_SYMBOL(&head, Node("B"), 1);
             CAN_INSERT_SYMBOL(&head, Node("C"), 3);
         }},
        {"m != NULL", [] {
             msgblk* head = nullptr;
             CAN_INSERT_MSG(&head, TAVLO_CREATE_MSGBLK(), 1);
         }},
        {"e != NULL", [] {
             env_var_blk* head = nullptr;
             CAN_INSERT_EVBLK(&head, TAVLO_CREATE_EVBLK(), 2);
         }},
        {"s != NULL", [] {
             sigtype* head = nullptr;
             CAN_INSERT_SIGTYPE(&head, TAVLO_CREATE_SIGTYPE(), 1);
         }},
        {"vt != NULL", [] {
             valtable* head = nullptr;
             CAN_INSERT_VALTABLE(&head, TAVLO_CREATE_VALTABLE(), 1);
         }},
        {"s != NULL", [] { CAN_INSERT_SIG(TAVLO_CREATE_MSGBLK(), TAVLO_CREATE_SIGBLK(), 1); }},
    };
    for (const Case& c : cases) {
        EXPECT_DEATH(c.insert(), std::string("Assertion failed: ") + c.assertion +
                                     ", module canddbm, line " TAVLO_LINE_NUMBER)
            << c.assertion;
    }
}

TEST(Deletion, UnlinksFromAnyPlaceAndReleasesRecordsNotInTheList) {
    symblk* a = Node("A");
    symblk* b = Node("B");
    symblk* c = Node("C");
    symblk* head = nullptr;
    CAN_INSERT_SYMBOL(&head, a, 0);
    CAN_INSERT_SYMBOL(&head, b, 1);
    CAN_INSERT_SYMBOL(&head, c, 2);
    CAN_DELETE_SYMBOL(&head, b);
    EXPECT_EQ(Names(head), "AC");
    CAN_DELETE_SYMBOL(&head, a);
    EXPECT_EQ(Names(head), "C");
    symblk* stranger = Node("S");
    EXPECT_EQ(Released([&] { CAN_DELETE_SYMBOL(&head, stranger); }), 1);
    EXPECT_EQ(Names(head), "C");
    CAN_DELETE_SYMBOL(&head, c);
    EXPECT_EQ(head, nullptr);
}

// Each deletion releases exactly what it names. What it keeps is released
// here by hand afterwards: were it released twice, the sanitizer build fails.
TEST(Deletion, EachReleasesExactlyWhatItNames) {
    attr_def level{};
    level.value_type = TAVLO_ATTR_INT;

    {  // node: comment and node; its attribute values stay
        symblk* node = Node("N");
        node->comment = Text("c");
        attr* kept = AppendNumberAttr(nullptr, &level, 1);
        node->attributes = kept;
        symblk* head = node;
        EXPECT_EQ(Released([&] { CAN_DELETE_SYMBOL(&head, node); }), 2);
        TAVLO_MFREE(kept);
    }
    {  // message: its signals (receivers, comment, signal each), comment, message
        msgblk* message = TAVLO_CREATE_MSGBLK();
        message->comment = Text("c");
        for (int i = 0; i < 2; ++i) {
            sigblk* signal = TAVLO_CREATE_SIGBLK();
            signal->comment = Text("s");
            signal->receivers = AppendRelation(nullptr, nullptr);
            CAN_INSERT_SIG(message, signal, 0);
        }
        sigblk* first = message->signals;
        val* keptDescription = AppendValue(nullptr, 1, "one");
        first->value_descriptions = keptDescription;
        attr* keptAttr = AppendNumberAttr(nullptr, &level, 1);
        message->attributes = keptAttr;
        siggroupblk* keptGroup = TAVLO_CREATE_SIGGROUP(message);
        message->signal_groups = keptGroup;
        rxblk* keptTransmitter = TAVLO_CREATE_TX(nullptr);
        message->transmitters = keptTransmitter;
        msgblk* head = message;
        EXPECT_EQ(Released([&] { CAN_DELETE_MSG(&head, message); }), 8);
        EXPECT_EQ(head, nullptr);
        TAVLO_MFREE(keptDescription);
        TAVLO_MFREE(keptAttr);
        TAVLO_MFREE(keptGroup);
        TAVLO_MFREE(keptTransmitter);
    }
    {  // environment variable: comment and record
        env_var_blk* envvar = TAVLO_CREATE_EVBLK();
        envvar->comment = Text("c");
        rxblk* kept = AppendRelation(nullptr, nullptr);
        envvar->access_nodes = kept;
        env_var_blk* head = envvar;
        EXPECT_EQ(Released([&] { CAN_DELETE_EVBLK(&head, envvar); }), 2);
        TAVLO_MFREE(kept);
    }
    {  // bit timing and category: the record
        btlblk* timing = TAVLO_CREATE_BTLBLK();
        btlblk* timings = timing;
        EXPECT_EQ(Released([&] { CAN_DELETE_BTL(&timings, timing); }), 1);
        cat* category = TAVLO_CREATE_CATEGORY();
        cat* categories = category;
        EXPECT_EQ(Released([&] { CAN_DELETE_CATEGORY(&categories, category); }), 1);
        EXPECT_EQ(timings, nullptr);
        EXPECT_EQ(categories, nullptr);
    }
    {  // ENUM definition: the enumeration texts and the record; its default stays
        attr_def* def = TAVLO_CREATE_ATTR_DEF();
        def->value_type = TAVLO_ATTR_ENUM;
        def->minimum.text = Text("a\nb");
        char* kept = Text("a");
        def->default_value.text = kept;
        attr_def* head = def;
        EXPECT_EQ(Released([&] { CAN_DELETE_ATTR_DEF(&head, def); }), 2);
        TAVLO_MFREE(kept);
    }
    {  // STRING definition: the default and the record
        attr_def* def = TAVLO_CREATE_ATTR_DEF();
        def->value_type = TAVLO_ATTR_STRING;
        def->default_value.text = Text("x");
        attr_def* head = def;
        EXPECT_EQ(Released([&] { CAN_DELETE_ATTR_DEF(&head, def); }), 2);
    }
    {  // signal type: the record only
        sigtype* type = TAVLO_CREATE_SIGTYPE();
        char* keptComment = Text("c");
        attr* keptAttr = AppendNumberAttr(nullptr, &level, 1);
        type->comment = keptComment;
        type->attributes = keptAttr;
        sigtype* head = type;
        EXPECT_EQ(Released([&] { CAN_DELETE_SIGTYPE(&head, type); }), 1);
        TAVLO_MFREE(keptComment);
        TAVLO_MFREE(keptAttr);
    }
    {  // value table: the record only
        valtable* table = TAVLO_CREATE_VALTABLE();
        val* kept = AppendValue(nullptr, 0, "zero");
        table->value_descriptions = kept;
        valtable* head = table;
        EXPECT_EQ(Released([&] { CAN_DELETE_VALTABLE(&head, table); }), 1);
        TAVLO_MFREE(kept);
    }
    {  // signal: receivers (not their relation values), comment, signal
        msgblk* message = TAVLO_CREATE_MSGBLK();
        sigblk* signal = TAVLO_CREATE_SIGBLK();
        signal->comment = Text("c");
        signal->receivers = AppendRelation(AppendRelation(nullptr, nullptr), nullptr);
        attr* kept = AppendNumberAttr(nullptr, &level, 1);
        signal->receivers->attributes = kept;
        CAN_INSERT_SIG(message, signal, 0);
        EXPECT_EQ(Released([&] { CAN_DELETE_SIG(message, signal); }), 4);
        EXPECT_EQ(+message->signals, nullptr);
        TAVLO_MFREE(kept);
        TAVLO_MFREE(message);
    }
    {  // signal group: members, comment, group; its second list stays
        msgblk* message = TAVLO_CREATE_MSGBLK();
        siggroupblk* group = TAVLO_CREATE_SIGGROUP(message);
        group->comment = Text("c");
        group->signals = TAVLO_CREATE_SIGLIST(nullptr);
        group->signals->next = TAVLO_CREATE_SIGLIST(nullptr);
        secondlistblk* kept = static_cast<secondlistblk*>(TAVLO_MALLOC(sizeof(secondlistblk)));
        group->second_list = kept;
        message->signal_groups = group;
        EXPECT_EQ(Released([&] { CAN_DELETE_SIGGROUP(message, group); }), 4);
        EXPECT_EQ(+message->signal_groups, nullptr);
        TAVLO_MFREE(kept);
        TAVLO_MFREE(message);
    }
}

TEST(Deletion, SignalListReleaseReturnsNull) {
    EXPECT_EQ(CAN_DELETE_SIGLIST(nullptr), nullptr);
    sigblk* first = TAVLO_CREATE_SIGBLK();
    first->next = TAVLO_CREATE_SIGBLK();
    sigblk* rest = nullptr;
    EXPECT_EQ(Released([&] { rest = CAN_DELETE_SIGLIST(first); }), 2);
    EXPECT_EQ(rest, nullptr);
}

TEST(DeletionDeathTest, MessageMembersMustBeInTheMessage) {
    EXPECT_DEATH(CAN_DELETE_SIG(TAVLO_CREATE_MSGBLK(), TAVLO_CREATE_SIGBLK()),
                 "Assertion failed: inMessage, module canddbm");
    EXPECT_DEATH(CAN_DELETE_SIGGROUP(TAVLO_CREATE_MSGBLK(), TAVLO_CREATE_SIGGROUP(nullptr)),
                 "Assertion failed: inMessage, module canddbm");
}

TEST(WholeDatabase, ReleasingEmptyListsDoesNothing) {
    const filter_t noFilter{};
    EXPECT_EQ(Released([&] {
                  TAVLO_FREE(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             noFilter, nullptr, nullptr, nullptr, nullptr);
                  TAVLO_FREE_ROOT(nullptr);
              }),
              0);
}

TEST(WholeDatabase, ReleasesEveryBlockOfTheDatabase) {
    const long before = LiveAllocations();
    tavlo_root_t db = tavlo::test::BuildSampleDatabase();
    EXPECT_GT(LiveAllocations(), before + 50);
    TAVLO_FREE_ROOT(&db);
    EXPECT_EQ(LiveAllocations(), before);
    EXPECT_EQ(db.nodes, nullptr);
    EXPECT_EQ(db.version, nullptr);
}

// Running out of memory while a read is under way.
class CreationFailure : public ::testing::Test {
protected:
    void SetUp() override {
        tavlo::dbfile::ClearErrorReported();
        // Tests run in parallel processes: each reads a file of its own.
        path_ = ::testing::TempDir() + "tavloms_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
                std::to_string(getpid()) + ".dbc";
        std::FILE* file = std::fopen(path_.c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fputs("VERSION \"\"\n", file);
        std::fclose(file);
        ASSERT_TRUE(tavlo::dbfile::OpenInput(path_.c_str()));
        tavlo::model::FailAllocationsAfter(0);
    }
    void TearDown() override {
        tavlo::model::FailAllocationsAfter(-1);
        tavlo::dbfile::CloseInput();
        tavlo::dbfile::ClearErrorReported();
        std::remove(path_.c_str());
    }

    // Reports an error in the current read, as an earlier line would have.
    static void ReportAnError() {
        MessageCapture quiet;
        EXPECT_THROW(tavlo::dbfile::RaiseError(tavlo::dbfile::kMsgSyntax, 3, "error: syntax"),
                     TavloException);
    }

    std::string path_;
};

using Creator = std::function<void*()>;

// The records the grammar makes for each line: they close the input, and
// report only the first error of a read.
const std::vector<std::pair<const char*, Creator>>& ReadCreators() {
    static const std::vector<std::pair<const char*, Creator>> creators = {
        {"MSGBLK", [] { return static_cast<void*>(TAVLO_CREATE_MSGBLK()); }},
        {"SIGBLK", [] { return static_cast<void*>(TAVLO_CREATE_SIGBLK()); }},
        {"BTLBLK", [] { return static_cast<void*>(TAVLO_CREATE_BTLBLK()); }},
        {"SYMBOL", [] { return static_cast<void*>(TAVLO_CREATE_SYMBOL()); }},
        {"RX", [] { return static_cast<void*>(TAVLO_CREATE_RX(nullptr)); }},
        {"TX", [] { return static_cast<void*>(TAVLO_CREATE_TX(nullptr)); }},
        {"EVBLK", [] { return static_cast<void*>(TAVLO_CREATE_EVBLK()); }},
    };
    return creators;
}

// The others report always.
const std::vector<std::pair<const char*, Creator>>& ReportingCreators() {
    static const std::vector<std::pair<const char*, Creator>> creators = {
        {"ATTR_DEF", [] { return static_cast<void*>(TAVLO_CREATE_ATTR_DEF()); }},
        {"CATEGORY", [] { return static_cast<void*>(TAVLO_CREATE_CATEGORY()); }},
        {"VALTABLE", [] { return static_cast<void*>(TAVLO_CREATE_VALTABLE()); }},
        {"SIGTYPE", [] { return static_cast<void*>(TAVLO_CREATE_SIGTYPE()); }},
        {"SIGGROUP", [] { return static_cast<void*>(TAVLO_CREATE_SIGGROUP(nullptr)); }},
        {"SIGLIST", [] { return static_cast<void*>(TAVLO_CREATE_SIGLIST(nullptr)); }},
    };
    return creators;
}

TEST_F(CreationFailure, FirstErrorIsShownAndEndsTheRead) {
    std::vector<std::pair<const char*, Creator>> all = ReadCreators();
    all.insert(all.end(), ReportingCreators().begin(), ReportingCreators().end());
    for (const auto& [name, create] : all) {
        tavlo::dbfile::ClearErrorReported();
        MessageCapture capture;
        try {
            create();
            ADD_FAILURE() << name << " returned instead of raising";
        } catch (const TavloException& e) {
            EXPECT_EQ(e.mCode, 1) << name;
        }
        ASSERT_EQ(capture.messages().size(), 1u) << name;
        EXPECT_EQ(capture.messages()[0].text, "not enough memory") << name;
        EXPECT_FALSE(capture.messages()[0].hasCaption) << name;
        EXPECT_EQ(capture.messages()[0].style, MB_ICONHAND) << name;
        EXPECT_TRUE(tavlo::dbfile::ErrorReported()) << name;
    }
}

TEST_F(CreationFailure, LineRecordsCloseTheInputAndStayQuietAfterAnError) {
    ReportAnError();
    for (const auto& [name, create] : ReadCreators()) {
        ASSERT_TRUE(tavlo::dbfile::OpenInput(path_.c_str()));
        MessageCapture capture;
        EXPECT_EQ(create(), nullptr) << name;  // an error was already reported
        EXPECT_TRUE(capture.messages().empty()) << name;
        EXPECT_FALSE(tavlo::dbfile::IsInputOpen()) << name;
    }
}

TEST_F(CreationFailure, OtherRecordsReportEvenAfterAnErrorAndKeepTheInput) {
    ReportAnError();
    for (const auto& [name, create] : ReportingCreators()) {
        MessageCapture capture;
        EXPECT_THROW(create(), TavloException) << name;
        EXPECT_EQ(capture.messages().size(), 1u) << name;
        EXPECT_TRUE(tavlo::dbfile::IsInputOpen()) << name;
    }
}

}  // namespace
