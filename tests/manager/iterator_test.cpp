// tests/manager/iterator_test.cpp: iterators over one database, across all
// of a manager's databases and over the lists of one object, predicates and
// view filters. The counts and owning databases built on them are asked in
// query_test.cpp.

#include <algorithm>

#include "manager/fixture.h"

namespace tavlo::test {
namespace {

using Seen = std::vector<std::pair<const char*, std::string>>;

// (database handle, name) of every element an iterator yields.
template <class Iterator>
Seen Walk(Iterator it) {
    Seen seen;
    for (; !it.AtEnd(); ++it) {
        seen.emplace_back(it.GetDatabaseName(), (*it)->name);
    }
    return seen;
}

// The names a range-based for loop meets.
template <class Iterator>
std::vector<std::string> Names(Iterator it) {
    std::vector<std::string> names;
    for (const auto* element : it) {
        names.emplace_back(element != nullptr ? element->name : "(null)");
    }
    return names;
}

// Accepts the names on its list and notes what it was asked.
template <class T>
class NamePredicate : public TavloPredicate<const T*> {
public:
    explicit NamePredicate(std::vector<std::string> accepted) : accepted_(std::move(accepted)) {}
    bool Accept(const T* element, const TavloManager& manager, const char* dbName) override {
        asked.emplace_back(&manager, dbName);
        return std::find(accepted_.begin(), accepted_.end(), element->name) != accepted_.end();
    }
    std::vector<std::pair<const TavloManager*, const char*>> asked;

private:
    std::vector<std::string> accepted_;
};

using IteratorTest = DataTest<TavloManager>;

TEST_F(IteratorTest, SpanningWalksSkipEmptyDatabasesAndNameTheHolder) {
    const Seen nodes = {{pt_, "Engine"},   {pt_, "Gateway"},      {pt_, "Gearbox"},
                        {body_, "Gateway"}, {body_, "Door"},       {body_, "Light"},
                        {extras_, "Gateway"}, {extras_, "Alpha"}, {extras_, "Door"}};
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(nullptr)), nodes);
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(body_)), Seen(nodes.begin() + 3, nodes.end() - 3));
    EXPECT_TRUE(mgr_.GetNodeIterator(diag_).AtEnd());
    auto unknown = mgr_.GetNodeIterator(unknown_.c_str());
    EXPECT_EQ(*unknown, nullptr);
    EXPECT_EQ(unknown.GetDatabaseName(), unknown_.c_str());  // as given
    ++unknown;  // at the end an iterator stays there
    EXPECT_TRUE(unknown.AtEnd());
    std::vector<const char*> names;
    for (const char* name : mgr_.GetDatabaseNameIterator()) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<const char*>{pt_, diag_, body_, extras_}));
    TavloManager empty(static_cast<void*>(nullptr));
    EXPECT_TRUE(empty.GetDatabaseNameIterator().AtEnd());
    EXPECT_TRUE(empty.GetNodeIterator(nullptr).AtEnd());
}

TEST_F(IteratorTest, PredicatesSeeTheManagerAndTheHoldingDatabase) {
    NamePredicate<symblk> gateways({"Gateway"});
    auto it = mgr_.GetNodeIterator(gateways, nullptr);
    EXPECT_EQ(it.mType, unsigned{TavloIterator<const symblk>::SpanningIterator |
                                 TavloIterator<const symblk>::FilterIterator});
    EXPECT_EQ(Walk(it), (Seen{{pt_, "Gateway"}, {body_, "Gateway"}, {extras_, "Gateway"}}));
    ASSERT_EQ(gateways.asked.size(), 9u);
    EXPECT_EQ(gateways.asked.front(), std::make_pair<const TavloManager*>(&mgr_, pt_));
    EXPECT_EQ(gateways.asked.back(), std::make_pair<const TavloManager*>(&mgr_, extras_));
    NamePredicate<symblk> none({});
    EXPECT_TRUE(mgr_.GetNodeIterator(none, nullptr).AtEnd());
    NamePredicate<symblk> door({"Door"});
    EXPECT_EQ(Walk(mgr_.GetNodeIterator(door, body_)), (Seen{{body_, "Door"}}));

    // Per object: the owner's handle, the one given, or none for a record
    // of no database of the manager.
    const msgblk& engineData = *Db(pt_).GetMessage("EngineData");
    NamePredicate<sigblk> oil({"OilPressure", "OilLevel"});
    auto signals = mgr_.GetSignalIterator(oil, engineData);
    EXPECT_EQ(signals.mType, unsigned{TavloIterator<const sigblk>::FilterIterator});
    EXPECT_EQ(Names(signals), (std::vector<std::string>{"OilPressure", "OilLevel"}));
    EXPECT_EQ(oil.asked.front().second, pt_);
    NamePredicate<sigblk> mux({"Mux"});
    EXPECT_EQ(Walk(mgr_.GetSignalIterator(mux, engineData, "label")), (Seen{{"label", "Mux"}}));
    TavloDatabase outside(DataFile("body.dbc").c_str());
    NamePredicate<sigblk> all({"DoorOpen", "Window"});
    EXPECT_EQ(Names(mgr_.GetSignalIterator(all, *outside.mMessages)).size(), 2u);
    EXPECT_EQ(all.asked.front().second, nullptr);
}

TEST_F(IteratorTest, RelationsFiltersAndMembersStandInTheNoneRecordsForWhatTheyNameNot) {
    const TavloDatabase& pt = Db(pt_);
    const msgblk& engineData = *pt.GetMessage("EngineData");
    const auto nodes = [](TavloConstReceiverIterator it) {
        std::vector<std::string> names;
        for (; !it.AtEnd(); ++it) {
            names.emplace_back(it.GetNode()->name);
        }
        EXPECT_EQ(it.GetNode(), nullptr);
        return names;
    };
    using Names2 = std::vector<std::string>;
    EXPECT_EQ(nodes(mgr_.GetReceiverIterator(*engineData.signals)), (Names2{"Gateway", "Gearbox"}));
    EXPECT_EQ(nodes(mgr_.GetTransmitterIterator(engineData)), (Names2{"Engine", "Gateway"}));
    EXPECT_EQ(nodes(mgr_.GetReceiverIterator(*pt.GetEnvvar("PtEnvA"))), (Names2{"Engine", "Gateway"}));
    EXPECT_EQ(nodes(mgr_.GetFilterNodeIterator(pt_)), (Names2{"Engine", "None"}));
    EXPECT_EQ(mgr_.GetFilterNodeIterator(pt_).mCurrent->next->symbol, nullptr);
    EXPECT_EQ(Names(mgr_.GetFilterCategoryIterator(pt_)), (Names2{"Drive", "None"}));
    EXPECT_TRUE(mgr_.GetFilterCategoryIterator(body_).AtEnd());

    // Membership is identity: body's Gateway is another record.
    EXPECT_TRUE(mgr_.IsNodeInFilter(*pt.GetNode("Engine"), pt_));
    EXPECT_TRUE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), pt_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*pt.GetNode("Gateway"), pt_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*Db(body_).GetNode("Gateway"), pt_));
    EXPECT_FALSE(mgr_.IsNodeInFilter(*TAVLONONEFILTERNODE(), body_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*pt.mCategories, pt_));
    EXPECT_TRUE(mgr_.IsCategoryInFilter(*TAVLONONEFILTERCATEGORY(), pt_));
    EXPECT_FALSE(mgr_.IsCategoryInFilter(*Db(body_).mCategories, pt_));

    const siggroupblk& group = *engineData.signal_groups;
    siglistblk* second = group.signals->next;
    sigblk* kept = second->signal;
    second->signal = nullptr;
    EXPECT_EQ(Names(mgr_.GetSubsignalIterator(group)), (Names2{"EngineSpeed", "None"}));
    second->signal = kept;

}

}  // namespace
}  // namespace tavlo::test
