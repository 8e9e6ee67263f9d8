// Creation defaults, positional insertion, what deletions release and the
// release of a whole database. (Running out of memory while records are
// made is tested through reading, in tests/dbfile.)
#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/model.h"
#include "support/death.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::model::LiveAllocations;
using tavlo::test::Text;

// How many library blocks an operation releases.
long Released(const std::function<void()>& operation) {
    const long before = LiveAllocations();
    operation();
    return before - LiveAllocations();
}

// A record as made equals a zero record with only its defaults set.
template <class T>
void ExpectCreated(T* made, const std::function<void(T&)>& setDefaults = [](T&) {}) {
    T expected;
    std::memset(&expected, 0, sizeof expected);
    setDefaults(expected);
    EXPECT_EQ(std::memcmp(made, &expected, sizeof(T)), 0) << typeid(T).name();
    TAVLO_MFREE(made);
}

TEST(Creation, RecordsAreZeroFilledWithTheirDefaults) {
    symblk node{};
    msgblk message{};
    sigblk signal{};
    ExpectCreated<msgblk>(TAVLO_CREATE_MSGBLK(), [](msgblk& m) { m.dlc = m.signal_count = 1; });
    ExpectCreated<sigblk>(TAVLO_CREATE_SIGBLK(), [](sigblk& s) { s.length = 1, s.factor = 1.0; });
    ExpectCreated<rxblk>(TAVLO_CREATE_RX(&node), [&node](rxblk& r) { r.symbol = &node; });
    ExpectCreated<rxblk>(TAVLO_CREATE_TX(&node), [&node](rxblk& r) { r.symbol = &node; });
    ExpectCreated<siggroupblk>(TAVLO_CREATE_SIGGROUP(&message), [&message](siggroupblk& g) { g.repetitions = 1, g.message = &message; });
    ExpectCreated<siglistblk>(TAVLO_CREATE_SIGLIST(&signal), [&signal](siglistblk& l) { l.signal = &signal; });
    ExpectCreated(TAVLO_CREATE_BTLBLK()), ExpectCreated(TAVLO_CREATE_SYMBOL()), ExpectCreated(TAVLO_CREATE_EVBLK());
    ExpectCreated(TAVLO_CREATE_ATTR_DEF()), ExpectCreated(TAVLO_CREATE_CATEGORY());
    ExpectCreated(TAVLO_CREATE_VALTABLE()), ExpectCreated(TAVLO_CREATE_SIGTYPE());
}

symblk* Node(char name) {
    symblk* node = TAVLO_CREATE_SYMBOL();
    node->name[0] = name;
    return node;
}

std::string Names(const symblk* list) {
    std::string names;
    for (; list != nullptr; list = list->next) {
        names += list->name;
    }
    return names;
}

// The position says which record the new one follows; deletion unlinks from
// any place, and releases a record that is not in the list.
TEST(Insertion, PositionSaysWhichRecordTheNewOneFollows) {
    const struct { const char* list; unsigned int position; const char* expected; } cases[] = {
        {"", 0, "X"}, {"A", 0, "XA"}, {"A", 1, "AX"}, {"ABC", 0, "XABC"}, {"ABC", 2, "ABXC"}, {"ABC", 3, "ABCX"}};
    for (const auto& c : cases) {
        symblk* head = nullptr;
        for (unsigned int i = 0; c.list[i] != '\0'; ++i) {
            CAN_INSERT_SYMBOL(&head, Node(c.list[i]), i);
        }
        symblk* x = Node('X');
        CAN_INSERT_SYMBOL(&head, x, c.position);
        EXPECT_EQ(Names(head), c.expected) << c.list << " at " << c.position;
        CAN_DELETE_SYMBOL(&head, x);
        EXPECT_EQ(Names(head), c.list);
        symblk* stranger = Node('S');
        EXPECT_EQ(Released([&] { CAN_DELETE_SYMBOL(&head, stranger); }), 1);
        tavlo::model::ReleaseNodes(head);
    }
    msgblk* message = TAVLO_CREATE_MSGBLK();  // signals: the count is left alone
    sigblk* a = TAVLO_CREATE_SIGBLK();
    sigblk* b = TAVLO_CREATE_SIGBLK();
    CAN_INSERT_SIG(message, a, 0);
    CAN_INSERT_SIG(message, b, 0);
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_N(message, 1), b);
    EXPECT_EQ(TAVLO_GET_SIGNAL_OF_MSG_N(message, 2), a);
    EXPECT_EQ(+message->signal_count, 1);
    msgblk* messages = message;
    EXPECT_EQ(Released([&] { CAN_DELETE_MSG(&messages, message); }), 3);
}

// Each deletion releases exactly what it names; what it keeps is released
// here by hand afterwards (were it released twice, the sanitizer build fails).
TEST(Deletion, EachReleasesExactlyWhatItNames) {
    attr_def level{};
    attr* kept = tavlo::test::AppendNumberAttr(nullptr, &level, 1);
    {  // a message: its signals (receivers, comment, signal), comment, message; not its values
        msgblk* message = TAVLO_CREATE_MSGBLK();
        message->comment = Text("c");
        sigblk* signal = TAVLO_CREATE_SIGBLK();
        signal->comment = Text("s");
        signal->receivers = tavlo::test::AppendRelation(nullptr, nullptr);
        CAN_INSERT_SIG(message, signal, 0);
        message->attributes = kept;
        msgblk* head = message;
        EXPECT_EQ(Released([&] { CAN_DELETE_MSG(&head, message); }), 5);
    }
    {  // ENUM definition: texts and record, not the default
        attr_def* def = TAVLO_CREATE_ATTR_DEF();
        def->value_type = TAVLO_ATTR_ENUM;
        def->minimum.text = Text("a\nb");
        char* keptText = Text("a");
        def->default_value.text = keptText;
        EXPECT_EQ(Released([&] { CAN_DELETE_ATTR_DEF(&def, def); }), 2);
        TAVLO_MFREE(keptText);
    }
    TAVLO_MFREE(kept);
}

TEST(WholeDatabase, ReleasesEveryBlock) {
    const long before = LiveAllocations();
    tavlo_root_t db = tavlo::test::BuildSampleDatabase();
    EXPECT_GT(LiveAllocations(), before + 50);
    TAVLO_FREE_ROOT(&db);
    EXPECT_EQ(LiveAllocations(), before);
    EXPECT_TRUE(db.nodes == nullptr && db.version == nullptr);
    EXPECT_EQ(Released([] { TAVLO_FREE_ROOT(nullptr); }), 0);
}

// Blocks carved for a read: zeroed, apart from each other, each released on
// its own in any order (the large blocks going back once all of theirs
// are), counted, and failing when told to; outside the scope nothing is
// carved.
TEST(CarvedBlocks, EachIsReleasedOnItsOwn) {
    using tavlo::model::LargeBlocksInUse;
    if (LargeBlocksInUse() < 0) {
        GTEST_SKIP() << "this build carves nothing";
    }
    const long large = LargeBlocksInUse();
    const long live = LiveAllocations();
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
    {
        const tavlo::model::CarvedBlocks carving;
        for (std::size_t i = 0; i < 100000; ++i) {
            const std::size_t size = i % 1000 == 999 ? 5000 : i % 197;
            auto* block = static_cast<unsigned char*>(TAVLO_MALLOC(size));
            ASSERT_NE(block, nullptr);
            ASSERT_EQ(std::count(block, block + size, 0), static_cast<long>(size));
            std::memset(block, static_cast<int>(i % 251), size);
            blocks.emplace_back(block, size);
        }
        tavlo::model::FailAllocationsAfter(0);
        EXPECT_EQ(TAVLO_MALLOC(8), nullptr);
        tavlo::model::FailAllocationsAfter(-1);
    }
    EXPECT_GT(LargeBlocksInUse(), large + 3);
    void* plain = TAVLO_MALLOC(8);
    EXPECT_EQ(LiveAllocations(), live + 100001);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto& [block, size] = blocks[i];
        ASSERT_EQ(std::count(block, block + size, i % 251), static_cast<long>(size)) << i;
    }
    for (std::size_t odd = 1; odd < blocks.size(); odd += 2) {
        TAVLO_MFREE(blocks[odd].first);
    }
    for (std::size_t even = blocks.size(); even >= 2; even -= 2) {
        TAVLO_MFREE(blocks[even - 2].first);
    }
    EXPECT_EQ(LargeBlocksInUse(), large);
    TAVLO_MFREE(plain);
    EXPECT_EQ(LiveAllocations(), live);
}

TEST(LifecycleDeathTest, PositionsPastTheEndAndStrangeMembersStopTheProgram) {
    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
        {"s != NULL, module canddbm", [] { CAN_INSERT_SIG(TAVLO_CREATE_MSGBLK(), TAVLO_CREATE_SIGBLK(), 1); }},
        {"inMessage, module canddbm", [] { CAN_DELETE_SIG(TAVLO_CREATE_MSGBLK(), TAVLO_CREATE_SIGBLK()); }},
    };
    for (const auto& [assertion, call] : cases) {
        EXPECT_DEATH(call(), "Assertion failed: " + assertion + ", line " TAVLO_LINE_NUMBER);
    }
}

}  // namespace
