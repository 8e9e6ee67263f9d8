// tests/manager/iterator_test.cpp: iterators over one database, across all
// of a manager's databases and over the lists of one object, predicates, and
// view filters.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

// powertrain (3 nodes), diagnosis (none), body (3 nodes), in that order.
class IteratorTest : public ManagerTest {
protected:
    void SetUp() override {
        ManagerTest::SetUp();
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("powertrain.dbc").c_str(), &powertrain_, 2), 0u);
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("diagnosis.dbc").c_str(), &diagnosis_, 1), 0u);
        ASSERT_EQ(mgr_.OpenDatabase(DataFile("body.dbc").c_str(), &body_, 1), 0u);
        LinkPowertrainFilterNodes(*mgr_.GetDatabase(powertrain_));
    }

    // (database handle, name) of every element an iterator yields.
    template <class Iterator>
    static std::vector<std::pair<const char*, std::string>> Walk(Iterator it) {
        std::vector<std::pair<const char*, std::string>> seen;
        for (; !it.AtEnd(); ++it) {
            seen.emplace_back(it.GetDatabaseName(), (*it)->name);
        }
        return seen;
    }

    template <class Iterator>
    static std::vector<std::string> Names(Iterator it) {
        std::vector<std::string> names;
        for (const auto* element : it) {
            names.emplace_back(element->name);
        }
        return names;
    }

    TavloDatabase& Db(const char* handle) { return *mgr_.GetDatabase(handle); }

    TavloManager mgr_{static_cast<void*>(nullptr)};
    const char* powertrain_ = nullptr;
    const char* diagnosis_ = nullptr;
    const char* body_ = nullptr;
};

// Accepts the names on its list and records what it was asked.
template <class T>
class NamePredicate : public TavloPredicate<const T*> {
public:
    explicit NamePredicate(std::vector<std::string> accepted) : accepted_(std::move(accepted)) {}
    bool Accept(const T* element, const TavloManager& manager, const char* dbName) override {
        asked.emplace_back(&manager, dbName);
        for (const std::string& name : accepted_) {
            if (name == element->name) {
                return true;
            }
        }
        return false;
    }
    std::vector<std::pair<const TavloManager*, const char*>> asked;

private:
    std::vector<std::string> accepted_;
};

TEST_F(IteratorTest, SpanningSkipsEmptyDatabasesAndNamesTheHolder) {
    using Seen = std::vector<std::pair<const char*, std::string>>;
    const Seen expected = {{powertrain_, "Engine"}, {powertrain_, "Gateway"},
                           {powertrain_, "Gearbox"}, {body_, "Gateway"},
                           {body_, "Door"},         {body_, "Light"}};
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(nullptr)), expected);
    const auto messages = Walk(mgr_.GetMessageIterator(nullptr));
    ASSERT_EQ(messages.size(), 6u);
    EXPECT_EQ(messages[3], std::make_pair(diagnosis_, std::string("Diag")));
    EXPECT_EQ(messages[4].first, body_);
    // The same through a range-based for loop.
    EXPECT_EQ(Names(mgr_.GetNodeIterator(nullptr)),
              (std::vector<std::string>{"Engine", "Gateway", "Gearbox", "Gateway", "Door",
                                        "Light"}));
}

TEST_F(IteratorTest, OneDatabaseByItsHandleOnly) {
    EXPECT_EQ(Names(mgr_.GetNodeIterator(body_)),
              (std::vector<std::string>{"Gateway", "Door", "Light"}));
    EXPECT_TRUE(mgr_.GetNodeIterator(diagnosis_).AtEnd());
    const std::string copy = body_;
    auto unknown = mgr_.GetNodeIterator(copy.c_str());
    EXPECT_TRUE(unknown.AtEnd());
    EXPECT_EQ(*unknown, nullptr);
    EXPECT_EQ(unknown.GetDatabaseName(), copy.c_str());  // as given
    EXPECT_EQ(mgr_.GetNodeIterator(body_).GetDatabaseName(), body_);
}

TEST_F(IteratorTest, EveryDatabaseWideKind) {
    struct Case {
        const char* kind;
        std::size_t all;
        std::size_t powertrain;
    };
    auto count = [](auto it) {
        std::size_t n = 0;
        for (; !it.AtEnd(); ++it) {
            ++n;
        }
        return n;
    };
    const Case cases[] = {
        {"envvars", count(mgr_.GetEnvvarIterator(nullptr)), count(mgr_.GetEnvvarIterator(powertrain_))},
        {"bit timings", count(mgr_.GetBitTimingIterator(nullptr)),
         count(mgr_.GetBitTimingIterator(powertrain_))},
        {"attribute definitions", count(mgr_.GetAttrDefIterator(nullptr)),
         count(mgr_.GetAttrDefIterator(powertrain_))},
        {"signal types", count(mgr_.GetSignalTypeIterator(nullptr)),
         count(mgr_.GetSignalTypeIterator(powertrain_))},
        {"value tables", count(mgr_.GetValueTableIterator(nullptr)),
         count(mgr_.GetValueTableIterator(powertrain_))},
        {"categories", count(mgr_.GetCategoryIterator(nullptr)),
         count(mgr_.GetCategoryIterator(powertrain_))},
        {"network attributes", count(mgr_.GetAttributeIterator(nullptr)),
         count(mgr_.GetAttributeIterator(powertrain_))},
    };
    const std::pair<std::size_t, std::size_t> expected[] = {{3, 2}, {1, 1}, {9, 7}, {0, 0},
                                                            {1, 1}, {2, 1}, {1, 1}};
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].all, expected[i].first) << cases[i].kind;
        EXPECT_EQ(cases[i].powertrain, expected[i].second) << cases[i].kind;
    }
}

TEST_F(IteratorTest, PredicatesSeeTheManagerAndTheHoldingDatabase) {
    NamePredicate<symblk> gateways({"Gateway"});
    auto it = mgr_.GetNodeIterator(gateways, nullptr);
    EXPECT_EQ(it.mType, unsigned{TavloIterator<const symblk>::SpanningIterator |
                                 TavloIterator<const symblk>::FilterIterator});
    using Seen = std::vector<std::pair<const char*, std::string>>;
    EXPECT_EQ(Walk(it), (Seen{{powertrain_, "Gateway"}, {body_, "Gateway"}}));
    ASSERT_EQ(gateways.asked.size(), 6u);
    for (const auto& [manager, dbName] : gateways.asked) {
        EXPECT_EQ(manager, &mgr_);
        EXPECT_TRUE(dbName == powertrain_ || dbName == body_);
    }

    NamePredicate<symblk> none({});
    auto empty = mgr_.GetNodeIterator(none, nullptr);
    EXPECT_TRUE(empty.AtEnd());
    ++empty;  // at the end it stays there
    EXPECT_TRUE(empty.AtEnd());
    NamePredicate<symblk> door({"Door"});
    EXPECT_EQ(Names(mgr_.GetNodeIterator(door, body_)), std::vector<std::string>{"Door"});
}

TEST_F(IteratorTest, PerObjectIteratorsTellThePredicateTheOwner) {
    const msgblk* engineData = Db(powertrain_).GetMessage("EngineData");
    ASSERT_NE(engineData, nullptr);
    EXPECT_EQ(Names(mgr_.GetSignalIterator(*engineData)),
              (std::vector<std::string>{"EngineSpeed", "EngineTemp", "Mux", "OilPressure",
                                        "OilLevel", "StatusWithAVeryLongSignalNameAb1",
                                        "StatusWithAVeryLongSignalNameAb2"}));
    NamePredicate<sigblk> oil({"OilPressure", "OilLevel"});
    auto it = mgr_.GetSignalIterator(oil, *engineData);
    EXPECT_EQ(it.mType, unsigned{TavloIterator<const sigblk>::FilterIterator});
    EXPECT_EQ(Names(it), (std::vector<std::string>{"OilPressure", "OilLevel"}));
    ASSERT_FALSE(oil.asked.empty());
    EXPECT_EQ(oil.asked.front().second, powertrain_);

    NamePredicate<sigblk> given({"Mux"});
    const char* label = "any text";
    auto labelled = mgr_.GetSignalIterator(given, *engineData, label);
    EXPECT_EQ(labelled.GetDatabaseName(), label);
    EXPECT_EQ(given.asked.front().second, label);
    EXPECT_STREQ((*labelled)->name, "Mux");

    const msgblk* stranger = nullptr;
    TavloDatabase outside(DataFile("body.dbc").c_str());
    stranger = outside.GetMessage("DoorStatus");
    NamePredicate<sigblk> all({"DoorOpen", "Window"});
    EXPECT_EQ(Names(mgr_.GetSignalIterator(all, *stranger)).size(), 2u);
    EXPECT_EQ(all.asked.front().second, nullptr);  // no database of the manager holds it
}

TEST_F(IteratorTest, RelationIteratorsYieldTheNoneNodeForMissingNodes) {
    const TavloDatabase& pt = Db(powertrain_);
    const msgblk* engineData = pt.GetMessage("EngineData");
    const sigblk* speed = mgr_.GetSignalIterator(*engineData, powertrain_).mCurrent;
    std::vector<std::string> receivers;
    for (auto it = mgr_.GetReceiverIterator(*speed); !it.AtEnd(); ++it) {
        receivers.emplace_back(it.GetNode()->name);
        EXPECT_EQ(*it, it.mCurrent);
    }
    EXPECT_EQ(receivers, (std::vector<std::string>{"Gateway", "Gearbox"}));

    std::vector<std::string> transmitters;
    for (auto it = mgr_.GetTransmitterIterator(*engineData); !it.AtEnd(); ++it) {
        transmitters.emplace_back(it.GetNode()->name);
    }
    EXPECT_EQ(transmitters, (std::vector<std::string>{"Engine", "Gateway"}));

    const env_var_blk* envA = pt.GetEnvvar("PtEnvA");
    std::vector<std::string> access;
    for (auto it = mgr_.GetReceiverIterator(*envA); !it.AtEnd(); ++it) {
        access.emplace_back(it.GetNode()->name);
    }
    EXPECT_EQ(access, (std::vector<std::string>{"Engine", "Gateway"}));

    // The view filter: Engine, then an entry for no node.
    auto filter = mgr_.GetFilterNodeIterator(powertrain_);
    ASSERT_FALSE(filter.AtEnd());
    EXPECT_EQ(filter.GetNode(), pt.GetNode("Engine"));
    ++filter;
    ASSERT_FALSE(filter.AtEnd());
    EXPECT_EQ(+filter.mCurrent->symbol, nullptr);
    EXPECT_EQ(filter.GetNode(), TAVLONONEFILTERNODE());
    ++filter;
    EXPECT_TRUE(filter.AtEnd());
    EXPECT_EQ(filter.GetNode(), nullptr);
}

TEST_F(IteratorTest, ViewFilterMembership) {
    const TavloDatabase& pt = Db(powertrain_);
    EXPECT_TRUE(mgr_.IsNodeInFilter(*pt.GetNode("Engine"), powertrain_));
    EXPECT_TRUE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), powertrain_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*pt.GetNode("Gateway"), powertrain_));
    // Identity, not name: body's Gateway is another record.
    EXPECT_FALSE(mgr_.IsNodeInFilter(*Db(body_).GetNode("Gateway"), powertrain_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), body_));

    std::vector<const cat*> categories;
    for (const cat* category : mgr_.GetFilterCategoryIterator(powertrain_)) {
        categories.push_back(category);
    }
    ASSERT_EQ(categories.size(), 2u);
    EXPECT_STREQ(categories[0]->name, "Drive");
    EXPECT_EQ(categories[1], TAVLONONEFILTERCATEGORY());
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*pt.mCategories, powertrain_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*TAVLONONEFILTERCATEGORY(), powertrain_));
    EXPECT_FALSE(mgr_.IsCategoryInFilter(*Db(body_).mCategories, powertrain_));
    EXPECT_TRUE(mgr_.GetFilterCategoryIterator(body_).AtEnd());
}

TEST_F(IteratorTest, SubsignalsStandInForMembersWithoutASignal) {
    TavloDatabase& pt = Db(powertrain_);
    const msgblk* engineData = pt.GetMessage("EngineData");
    const siggroupblk* group = engineData->signal_groups;
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(Names(mgr_.GetSubsignalIterator(*group)),
              (std::vector<std::string>{"EngineSpeed", "EngineTemp"}));
    // A member that names no signal yields the None subsignal.
    siglistblk* second = group->signals->next;
    sigblk* kept = second->signal;
    second->signal = nullptr;
    auto it = mgr_.GetSubsignalIterator(*group);
    ++it;
    EXPECT_EQ(*it, TAVLONONESUBSIGNAL());
    ++it;
    EXPECT_EQ(*it, nullptr);
    second->signal = kept;
}

TEST_F(IteratorTest, ValueDescriptionsAndDatabaseNames) {
    const TavloDatabase& pt = Db(powertrain_);
    const sigblk* temp = pt.GetMessage("EngineData")->signals->next;
    std::vector<std::pair<int, std::string>> descriptions;
    for (const val* v : mgr_.GetValueDescriptionIterator(*temp)) {
        descriptions.emplace_back(v->value, v->text);
    }
    EXPECT_EQ(descriptions.size(), 3u);
    EXPECT_EQ(mgr_.GetValueDescriptionIterator(*pt.GetEnvvar("PtEnvA")).GetDatabaseName(),
              powertrain_);

    std::vector<const char*> names;
    for (const char* name : mgr_.GetDatabaseNameIterator()) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<const char*>{powertrain_, diagnosis_, body_}));
    TavloManager empty(static_cast<void*>(nullptr));
    EXPECT_TRUE(empty.GetDatabaseNameIterator().AtEnd());
    EXPECT_TRUE(empty.GetNodeIterator(nullptr).AtEnd());
}

TEST_F(IteratorTest, CopiesWalkOnTheirOwn) {
    auto first = mgr_.GetNodeIterator(nullptr);
    ++first;
    auto copy = first;
    ++copy;
    ++copy;
    EXPECT_STREQ((*first)->name, "Gateway");
    EXPECT_EQ(first.GetDatabaseName(), powertrain_);
    EXPECT_STREQ((*copy)->name, "Gateway");
    EXPECT_EQ(copy.GetDatabaseName(), body_);
    TavloIterator<const symblk> atEnd;
    EXPECT_TRUE(atEnd.AtEnd());
    ++atEnd;
    EXPECT_TRUE(atEnd.AtEnd());
}

TEST(IteratorDeathTest, AFilterStepNeedsAPredicate) {
    TavloManager mgr(static_cast<void*>(nullptr));
    auto it = mgr.GetNodeIterator(nullptr);
    EXPECT_DEATH(it.ApplyFilter(),
                 "Assertion failed: mType & FilterIterator, module dbmsiter");
    EXPECT_DEATH((TavloIterator<const symblk>(mgr, static_cast<TavloIterator<const symblk>::ListFunction>(nullptr), nullptr, nullptr)),
                 "Assertion failed: listFunction != NULL, module dbmsiter");
}

}  // namespace
}  // namespace tavlo::test
