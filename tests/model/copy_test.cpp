// Deep copies: everything but the documented omissions is taken over,
// nothing is shared with the source, a reference that cannot be re-pointed
// stops the program, and running out of memory leaves nothing behind.
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

using tavlo::test::BuildSampleDatabase;
using tavlo::test::DescribeDatabase;

// A copy leaves out signal groups, transmitters, relation values, value
// types and data lengths; flag bits beyond the documented ones are dropped.
// The source goes before the copy is looked at: the copy needs nothing of
// it, and every reference points into the copy.
TEST(DatabaseCopy, TakesOverEverythingButTheDocumentedOmissions) {
    tavlo_root_t source = BuildSampleDatabase();
    source.messages->signals->flags = 0xFF;
    source.sig_types->flags = 0xFF;
    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&source, &copy), 1);
    TAVLO_FREE_ROOT(&source);
    tavlo_root_t expected = BuildSampleDatabase();
    expected.messages->signals->flags = 0x0F;
    expected.sig_types->flags = 0x03;
    for (msgblk* m = expected.messages; m != nullptr; m = m->next) {
        msgblk* owner = TAVLO_CREATE_MSGBLK();  // releases the groups and transmitters
        owner->signal_groups = m->signal_groups;  // (packed fields: no references to them)
        owner->transmitters = m->transmitters;
        m->signal_groups = nullptr;
        m->transmitters = nullptr;
        tavlo::model::ReleaseMessages(owner);
        for (sigblk* s = m->signals; s != nullptr; s = s->next) {
            s->value_type = 0;
            for (rxblk* r = s->receivers; r != nullptr; r = r->next) {
                tavlo::model::ReleaseAttrs(r->attributes);
                r->attributes = nullptr;
            }
        }
    }
    expected.sig_types->value_type = 0;
    for (env_var_blk* e = expected.envvars; e != nullptr; e = e->next) {
        e->data_length = 0;
        for (rxblk* r = e->access_nodes; r != nullptr; r = r->next) {
            tavlo::model::ReleaseAttrs(r->attributes);
            r->attributes = nullptr;
        }
    }
    EXPECT_EQ(DescribeDatabase(copy), DescribeDatabase(expected));
    TAVLO_FREE_ROOT(&copy);
    TAVLO_FREE_ROOT(&expected);
    const tavlo_root_t empty{};  // an empty database gets an empty version
    ASSERT_EQ(TAVLO_COPY_DATABASE(&empty, &copy), 1);
    EXPECT_STREQ(copy.version, "");
    TAVLO_FREE_ROOT(&copy);
}

// Every allocation of a whole-database copy, made to fail in turn: the copy
// reports failure, is left empty and leaves no block behind.
TEST(DatabaseCopy, RunningOutOfMemoryAnywhereLeavesNothingBehind) {
    tavlo_root_t source = BuildSampleDatabase();
    int failures = 0;
    for (long allowed = 0;; ++allowed) {
        const long before = tavlo::model::LiveAllocations();
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
        EXPECT_EQ(tavlo::model::LiveAllocations(), before) << "after " << allowed << " allocations";
        EXPECT_TRUE(copy.nodes == nullptr && copy.version == nullptr && copy.filter.nodes == nullptr);
    }
    EXPECT_GT(failures, 60);  // each allocation failed once
    TAVLO_FREE_ROOT(&source);
}

TEST(DatabaseCopyDeathTest, ReferencesThatCannotBeRepointedStopTheProgram) {
    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
        {"self->symbol != NULL", [] { rxblk entry{}; TAVLO_COPY_RELATIONS(&entry, nullptr); }},
        {"copy->act != NULL", [] {
             cat category{};
             filtercatblk entry{&category, nullptr};
             TAVLO_COPY_FILTER_CATEGORIES(&entry, nullptr);
         }},
    };
    for (const auto& [assertion, copy] : cases) {
        EXPECT_DEATH(copy(), "Assertion failed: " + assertion + ", module c_lists, line " TAVLO_LINE_NUMBER);
    }
}

}  // namespace
