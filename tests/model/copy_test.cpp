// Deep copies: everything but the documented omissions is taken over, nothing
// is shared with the source, every reference points into the copy, a
// reference that cannot be re-pointed stops the program, and running out of
// memory leaves nothing behind.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/model.h"
#include "support/death.h"
#include "support/describe.h"
#include "support/sample_database.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::model::LiveAllocations;
using tavlo::model::ReleaseAttrs;
using tavlo::model::ReleaseMessages;
using tavlo::test::BuildSampleDatabase;
using tavlo::test::DescribeDatabase;

// The sample as its copy must look: what a copy leaves out removed.
tavlo_root_t ExpectedCopyOfSample() {
    tavlo_root_t db = BuildSampleDatabase();
    for (msgblk* m = db.messages; m != nullptr; m = m->next) {
        // Groups and transmitters go with a stand-in message that owns them.
        msgblk* owner = TAVLO_CREATE_MSGBLK();
        owner->signal_groups = m->signal_groups;
        owner->transmitters = m->transmitters;
        m->signal_groups = nullptr;
        m->transmitters = nullptr;
        ReleaseMessages(owner);
        for (sigblk* s = m->signals; s != nullptr; s = s->next) {
            s->value_type = 0;
            for (rxblk* r = s->receivers; r != nullptr; r = r->next) {
                ReleaseAttrs(r->attributes);
                r->attributes = nullptr;
            }
        }
    }
    for (sigtype* t = db.sig_types; t != nullptr; t = t->next) {
        t->value_type = 0;
    }
    for (env_var_blk* e = db.envvars; e != nullptr; e = e->next) {
        e->data_length = 0;
        for (rxblk* r = e->access_nodes; r != nullptr; r = r->next) {
            ReleaseAttrs(r->attributes);
            r->attributes = nullptr;
        }
    }
    return db;
}

TEST(DatabaseCopy, TakesOverEverythingButTheDocumentedOmissions) {
    tavlo_root_t source = BuildSampleDatabase();
    tavlo_root_t expected = ExpectedCopyOfSample();
    ASSERT_NE(DescribeDatabase(source), DescribeDatabase(expected));  // the omissions matter

    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&source, &copy), 1);
    TAVLO_FREE_ROOT(&source);  // the copy must not need anything of its source
    EXPECT_EQ(DescribeDatabase(copy), DescribeDatabase(expected));
    TAVLO_FREE_ROOT(&copy);
    TAVLO_FREE_ROOT(&expected);
}

// Sharing with the source is caught by the test above: it frees the source
// before reading the copy. Here: every kind of reference points to the
// copy's own record of the same key.
TEST(DatabaseCopy, EveryKindOfReferenceIsRepointedIntoTheCopy) {
    tavlo_root_t source = BuildSampleDatabase();
    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&source, &copy), 1);
    symblk* engine = TAVLO_GET_SYMBOL_NAME(copy.nodes, "Engine");
    symblk* dash = TAVLO_GET_SYMBOL_NAME(copy.nodes, "Dash");
    cat* chassis = TAVLO_GET_CATEGORY(copy.categories, 1);
    const msgblk* message = copy.messages;
    const sigblk* mode = message->signals;
    const env_var_blk* speed = copy.envvars;
    ASSERT_NE(engine, source.nodes);
    EXPECT_EQ(+message->transmitter, engine);
    EXPECT_EQ(+message->category, chassis);
    EXPECT_EQ(+copy.nodes->category, chassis);
    EXPECT_EQ(+mode->receivers->symbol, dash);
    EXPECT_EQ(+mode->next->next->sig_type, copy.sig_types);
    EXPECT_EQ(+copy.sig_types->value_list, TAVLO_GET_VALTABLE_NAME(copy.value_tables, "Gears"));
    EXPECT_EQ(+speed->node, dash);
    EXPECT_EQ(+speed->category, chassis);
    EXPECT_EQ(+speed->access_nodes->symbol, engine);
    EXPECT_EQ(+copy.filter.categories->act, chassis);
    EXPECT_EQ(+copy.filter.nodes->symbol, engine);
    EXPECT_EQ(+copy.db_attrs->def, TAVLO_GET_ATTR_DEF_NAME(copy.attr_defs, "BusType"));
    EXPECT_EQ(+engine->attributes->def, TAVLO_GET_ATTR_DEF_NAME(copy.attr_defs, "NodeLevel"));
    TAVLO_FREE_ROOT(&source);
    TAVLO_FREE_ROOT(&copy);
}

TEST(DatabaseCopy, FlagBitsBeyondTheDocumentedOnesAreDropped) {
    tavlo_root_t source = BuildSampleDatabase();
    source.messages->signals->flags = 0xFF;
    source.sig_types->flags = 0xFF;
    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&source, &copy), 1);
    EXPECT_EQ(+copy.messages->signals->flags, 0x0F);
    EXPECT_EQ(+copy.sig_types->flags, 0x03);
    TAVLO_FREE_ROOT(&source);
    TAVLO_FREE_ROOT(&copy);
}

TEST(DatabaseCopy, EmptyDatabaseGetsAnEmptyVersion) {
    const tavlo_root_t empty{};
    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&empty, &copy), 1);
    ASSERT_NE(copy.version, nullptr);
    EXPECT_STREQ(copy.version, "");
    EXPECT_EQ(copy.comment, nullptr);
    EXPECT_EQ(copy.nodes, nullptr);
    TAVLO_FREE_ROOT(&copy);
}

TEST(ListCopy, EmptySourcesGiveEmptyLists) {
    EXPECT_EQ(TAVLO_COPY_ATTR_DEFS(nullptr), nullptr);
    EXPECT_EQ(TAVLO_COPY_ATTRS(nullptr, nullptr), nullptr);
    EXPECT_EQ(TAVLO_COPY_MESSAGES(nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(TAVLO_COPY_RELATIONS(nullptr, nullptr), nullptr);
    EXPECT_EQ(TAVLO_COPY_FILTER_CATEGORIES(nullptr, nullptr), nullptr);
}

// Every allocation of a whole-database copy, made to fail in turn: the copy
// reports failure, is left empty and leaves no block behind.
TEST(DatabaseCopy, RunningOutOfMemoryAnywhereLeavesNothingBehind) {
    tavlo_root_t source = BuildSampleDatabase();
    int failures = 0;
    for (long allowed = 0;; ++allowed) {
        const long before = LiveAllocations();
        tavlo_root_t copy;
        std::memset(&copy, 0x5A, sizeof copy);
        tavlo::model::FailAllocationsAfter(allowed);
        const int result = TAVLO_COPY_DATABASE(&source, &copy);
        tavlo::model::FailAllocationsAfter(-1);
        if (result == 1) {  // enough allocations for the whole copy
            TAVLO_FREE_ROOT(&copy);
            break;
        }
        ++failures;
        ASSERT_EQ(result, 0);
        EXPECT_EQ(LiveAllocations(), before) << "after " << allowed << " allocations";
        EXPECT_EQ(copy.nodes, nullptr);
        EXPECT_EQ(copy.version, nullptr);
        EXPECT_EQ(copy.filter.nodes, nullptr);
    }
    EXPECT_GT(failures, 60);
    TAVLO_FREE_ROOT(&source);
}

TEST(ListCopyDeathTest, ReferencesThatCannotBeRepointedStopTheProgram) {
    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
        {"self->symbol != NULL", [] {
             rxblk entry{};
             TAVLO_COPY_RELATIONS(&entry, nullptr);
         }},
        {"copy->symbol != NULL", [] {
             symblk node{};
             std::strcpy(node.name, "Elsewhere");
             rxblk entry{};
             entry.symbol = &node;
             TAVLO_COPY_RELATIONS(&entry, nullptr);
         }},
        {"self->act != NULL", [] {
             filtercatblk entry{};
             TAVLO_COPY_FILTER_CATEGORIES(&entry, nullptr);
         }},
        {"copy->act != NULL", [] {
             cat category{};
             category.number = 9;
             filtercatblk entry{};
             entry.act = &category;
             TAVLO_COPY_FILTER_CATEGORIES(&entry, nullptr);
         }},
        {"copy->def != NULL", [] {
             attr_def def{};
             std::strcpy(def.name, "Gone");
             attr value{};
             value.def = &def;
             TAVLO_COPY_ATTRS(&value, nullptr);
         }},
        {"copy->sig_type", [] {
             sigtype type{};
             std::strcpy(type.name, "Gone");
             sigblk signal{};
             signal.sig_type = &type;
             TAVLO_COPY_SIGNALS(&signal, nullptr, nullptr, nullptr);
         }},
        {"copy->value_list != NULL", [] {
             valtable table{};
             std::strcpy(table.name, "Gone");
             sigtype type{};
             type.value_list = &table;
             TAVLO_COPY_SIGTYPES(&type, nullptr, nullptr);
         }},
        {"self->symbol != NULL", [] {
             // A view filter whose node entry names no node cannot be copied.
             tavlo_root_t db = BuildSampleDatabase();
             db.filter.nodes->symbol = nullptr;
             tavlo_root_t copy{};
             TAVLO_COPY_DATABASE(&db, &copy);
         }},
    };
    for (const auto& [assertion, copy] : cases) {
        EXPECT_DEATH(copy(), "Assertion failed: " + assertion + ", module c_lists, line " TAVLO_LINE_NUMBER)
            << assertion;
    }
}

}  // namespace
