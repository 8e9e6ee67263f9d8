// Deep copies: everything but the documented omissions is taken over, nothing
// is shared with the source, every reference points into the copy, a
// reference that cannot be re-pointed stops the program, and running out of
// memory leaves nothing behind.
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/model.h"
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

// Every block a database owns, and every reference it holds.
struct Graph {
    std::set<const void*> owned;
    std::vector<std::pair<std::string, const void*>> references;

    void Own(const void* block) {
        if (block != nullptr) {
            owned.insert(block);
        }
    }
    void Refer(const char* what, const void* target) {
        if (target != nullptr) {
            references.emplace_back(what, target);
        }
    }
    void Attrs(const attr* list) {
        for (; list != nullptr; list = list->next) {
            Own(list);
            Refer("attr.def", list->def);
            if (tavlo::model::HoldsText(list->def)) {
                Own(list->value.text);
            }
        }
    }
    void Values(const val* list) {
        for (; list != nullptr; list = list->next) {
            Own(list);
        }
    }
    void Relations(const rxblk* list) {
        for (; list != nullptr; list = list->next) {
            Own(list);
            Refer("rxblk.symbol", list->symbol);
            Attrs(list->attributes);
        }
    }
};

Graph Walk(const tavlo_root_t& db) {
    Graph g;
    g.Own(db.comment);
    g.Own(db.version);
    for (const attr_def* d = db.attr_defs; d != nullptr; d = d->next) {
        g.Own(d);
        if (d->value_type == TAVLO_ATTR_ENUM) {
            g.Own(d->minimum.text);
        }
        if (d->value_type == TAVLO_ATTR_ENUM || d->value_type == TAVLO_ATTR_STRING) {
            g.Own(d->default_value.text);
        }
    }
    g.Attrs(db.db_attrs);
    for (const cat* c = db.categories; c != nullptr; c = c->next) {
        g.Own(c);
    }
    for (const valtable* t = db.value_tables; t != nullptr; t = t->next) {
        g.Own(t);
        g.Values(t->value_descriptions);
    }
    for (const sigtype* t = db.sig_types; t != nullptr; t = t->next) {
        g.Own(t);
        g.Own(t->comment);
        g.Attrs(t->attributes);
        g.Refer("sigtype.value_list", t->value_list);
    }
    for (const symblk* n = db.nodes; n != nullptr; n = n->next) {
        g.Own(n);
        g.Own(n->comment);
        g.Attrs(n->attributes);
        g.Refer("symblk.category", n->category);
    }
    for (const msgblk* m = db.messages; m != nullptr; m = m->next) {
        g.Own(m);
        g.Own(m->comment);
        g.Attrs(m->attributes);
        g.Refer("msgblk.transmitter", m->transmitter);
        g.Refer("msgblk.category", m->category);
        g.Relations(m->transmitters);
        for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
            g.Own(s);
            g.Own(s->comment);
            g.Attrs(s->attributes);
            g.Values(s->value_descriptions);
            g.Relations(s->receivers);
            g.Refer("sigblk.sig_type", s->sig_type);
        }
    }
    for (const env_var_blk* e = db.envvars; e != nullptr; e = e->next) {
        g.Own(e);
        g.Own(e->comment);
        g.Attrs(e->attributes);
        g.Values(e->value_descriptions);
        g.Relations(e->access_nodes);
        g.Refer("env_var_blk.node", e->node);
        g.Refer("env_var_blk.category", e->category);
    }
    for (const btlblk* b = db.bit_timings; b != nullptr; b = b->next) {
        g.Own(b);
    }
    for (const filtercatblk* f = db.filter.categories; f != nullptr; f = f->next) {
        g.Own(f);
        g.Refer("filtercatblk.act", f->act);
    }
    g.Relations(db.filter.nodes);
    return g;
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

TEST(DatabaseCopy, SharesNothingAndRefersOnlyIntoItself) {
    tavlo_root_t source = BuildSampleDatabase();
    tavlo_root_t copy{};
    ASSERT_EQ(TAVLO_COPY_DATABASE(&source, &copy), 1);
    const Graph from = Walk(source);
    const Graph made = Walk(copy);
    EXPECT_GT(made.owned.size(), 60u);
    for (const void* block : made.owned) {
        EXPECT_EQ(from.owned.count(block), 0u) << "block shared with the source";
    }
    for (const auto& [what, target] : made.references) {
        EXPECT_EQ(made.owned.count(target), 1u) << what << " points out of the copy";
    }
    // Spot checks of the re-pointing by key.
    EXPECT_EQ(+copy.messages->transmitter, TAVLO_GET_SYMBOL_NAME(copy.nodes, "Engine"));
    EXPECT_EQ(+copy.envvars->node, TAVLO_GET_SYMBOL_NAME(copy.nodes, "Dash"));
    EXPECT_EQ(+copy.nodes->category, TAVLO_GET_CATEGORY(copy.categories, 1));
    EXPECT_EQ(+copy.sig_types->value_list, TAVLO_GET_VALTABLE_NAME(copy.value_tables, "Gears"));
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
        EXPECT_DEATH(copy(), "Assertion failed: " + assertion + ", module c_lists, line [0-9]+")
            << assertion;
    }
}

}  // namespace
