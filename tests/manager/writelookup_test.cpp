// tests/manager/writelookup_test.cpp: the write manager's lookups and
// iterators hand out for editing the very records, in the very order, with
// the same statuses, out parameters and predicate questions, that the read
// manager's const forms give; a const manager, object or predicate still
// chooses the const forms.

#include <tuple>
#include <type_traits>

#include "manager/access.h"
#include "manager/fixture.h"

namespace tavlo::test {
namespace {

using W = TavloWriteManager;

// One member function of the managers called with whatever arguments are
// given; unusable (rather than a compile error) where no overload takes them.
#define CALL(member) \
    [](auto& m, auto&&... a) -> decltype(m.member(a...)) { return m.member(a...); }

template <class Pointer>
constexpr bool kEditable = !std::is_const_v<std::remove_pointer_t<Pointer>>;

template <class It, class = void>
struct HasNode : std::false_type {};
template <class It>
struct HasNode<It, std::void_t<decltype(std::declval<It>().GetNode())>> : std::true_type {};

// What an iterator yields, step by step: `*`, the node of a relation, and
// the database it names.
template <class It>
std::vector<std::tuple<const void*, const void*, const char*>> Walk(It it) {
    static_assert(kEditable<decltype(it.mCurrent)> == kEditable<decltype(*it)>);
    std::vector<std::tuple<const void*, const void*, const char*>> steps;
    for (; !it.AtEnd(); ++it) {
        const void* node = nullptr;
        if constexpr (HasNode<It>::value) {
            node = it.GetNode();
        }
        steps.emplace_back(*it, node, it.GetDatabaseName());
    }
    return steps;
}

// Accepts the first element it is asked about and every second one after,
// noting each question.
template <class Pointer>
class EverySecond : public TavloPredicate<Pointer> {
public:
    bool Accept(Pointer element, const TavloManager& manager, const char* dbName) override {
        asked.emplace_back(element, &manager, dbName);
        return asked.size() % 2 == 1;
    }
    std::vector<std::tuple<const void*, const TavloManager*, const char*>> asked;
};

class WriteLookupTest : public DataTest<TavloWriteManager> {
protected:
    // The call on the write manager and on it as const, each from the same
    // status with an out parameter of its own: the same record, status and
    // out parameter, the first one editable.
    template <class Call>
    void ExpectSame(Call call) {
        const char* out[2] = {"untouched", "untouched"};
        TavloManagerAccess::SetStatus(mgr_, 99);
        auto* editable = call(mgr_, &out[0]);
        static_assert(kEditable<decltype(editable)>);
        const unsigned int status = mgr_.GetStatus();
        TavloManagerAccess::SetStatus(mgr_, 99);
        EXPECT_EQ(editable, call(std::as_const(mgr_), &out[1]));
        EXPECT_EQ(status, mgr_.GetStatus());
        EXPECT_EQ(out[0], out[1]);
    }

    // Every form of one lookup kind with key: in each database, an unknown
    // one, all of them, and by selection where the kind has that.
    template <class Lookup, class Key>
    void ExpectSameLookups(Lookup lookup, Key key) {
        ASSERT_NE(lookup(mgr_, key, nullptr), nullptr) << "found nowhere";
        for (const char* dbName : {pt_, diag_, body_, extras_, unknown_.c_str()}) {
            ExpectSame([&](auto& m, const char**) { return lookup(m, key, dbName); });
        }
        ExpectSame([&](auto& m, const char**) { return lookup(m, key, nullptr); });
        ExpectSame([&](auto& m, const char** out) { return lookup(m, key, out); });
        if constexpr (std::is_invocable_v<Lookup, W&, Key, TavloSelection>) {
            for (const TavloSelection s : {TavloSelection{1, 1}, {1, 2}, {9, 9}}) {
                ExpectSame([&](auto& m, const char**) { return lookup(m, key, s); });
                ExpectSame([&](auto& m, const char** out) { return lookup(m, key, s, out); });
            }
        }
    }

    // An iterator factory with the arguments given, without and with a
    // predicate (where it takes one): the same walk and the same questions.
    template <class Factory, class... Args>
    void ExpectSameWalks(Factory factory, Args&&... args) {
        const auto editable = factory(mgr_, args...);
        static_assert(kEditable<decltype(editable.mCurrent)>);
        EXPECT_EQ(Walk(editable), Walk(factory(std::as_const(mgr_), args...)));
        using Editable = EverySecond<decltype(factory(mgr_, args...).mCurrent)>;
        using ReadOnly = EverySecond<decltype(factory(std::as_const(mgr_), args...).mCurrent)>;
        if constexpr (std::is_invocable_v<Factory, W&, Editable&, Args&...>) {
            Editable predicate;
            ReadOnly constPredicate;
            EXPECT_EQ(Walk(factory(mgr_, predicate, args...)),
                      Walk(factory(std::as_const(mgr_), constPredicate, args...)));
            EXPECT_EQ(predicate.asked, constPredicate.asked);
        }
    }

    // A per-object factory, without a handle (where it has that form) and
    // with one that is only a label.
    template <class Factory, class Object>
    void ExpectSameWalksOf(Factory factory, Object& object) {
        if constexpr (std::is_invocable_v<Factory, W&, Object&>) {
            ExpectSameWalks(factory, object);
        }
        ExpectSameWalks(factory, object, "any label");
    }
};

TEST_F(WriteLookupTest, EveryLookupAndIteratorGivesWhatItsConstFormGives) {
    ASSERT_TRUE(mgr_.AssignSelectionPattern({1, 1}, body_));
    ASSERT_TRUE(mgr_.AssignSelectionPattern({1, 0xFFFF}, diag_));
    ExpectSameLookups(CALL(GetNode), "Gateway");
    ExpectSameLookups(CALL(GetMessage), "GearData");
    ExpectSameLookups(CALL(GetMessage), "Diag");
    ExpectSameLookups(CALL(GetMessage), 512ul);
    ExpectSameLookups(CALL(GetEnvvar), "Knob");
    ExpectSameLookups(CALL(GetBitTiming), static_cast<unsigned short>(500));
    ExpectSameLookups(CALL(GetAttrDefinition), "GenMsgCycleTime");
    ExpectSameLookups(CALL(GetCategory), "Comfort");
    ExpectSameLookups(CALL(GetSignalType), "Raw16");
    ExpectSameLookups(CALL(GetValueTable), "GearTable");

    for (const char* dbName : {pt_, diag_, body_, extras_, unknown_.c_str(),
                               static_cast<const char*>(nullptr)}) {
        ExpectSameWalks(CALL(GetNodeIterator), dbName);
        ExpectSameWalks(CALL(GetMessageIterator), dbName);
        ExpectSameWalks(CALL(GetEnvvarIterator), dbName);
        ExpectSameWalks(CALL(GetBitTimingIterator), dbName);
        ExpectSameWalks(CALL(GetAttrDefIterator), dbName);
        ExpectSameWalks(CALL(GetSignalTypeIterator), dbName);
        ExpectSameWalks(CALL(GetValueTableIterator), dbName);
        ExpectSameWalks(CALL(GetCategoryIterator), dbName);
        ExpectSameWalks(CALL(GetAttributeIterator), dbName);
        ExpectSameWalks(CALL(GetFilterNodeIterator), dbName);  // Pt's: Engine, None
        ExpectSameWalks(CALL(GetFilterCategoryIterator), dbName);
    }

    for (msgblk* message : mgr_.GetMessageIterator(nullptr)) {
        ExpectSameWalksOf(CALL(GetSignalIterator), *message);
        ExpectSameWalksOf(CALL(GetSignalGroupIterator), *message);
        ExpectSameWalksOf(CALL(GetTransmitterIterator), *message);
        ExpectSameWalksOf(CALL(GetAttributeIterator), *message);
        ExpectSame([&](auto& m, const char**) { return m.GetModeSignal(*message); });
        for (sigblk* signal : mgr_.GetSignalIterator(*message)) {
            ExpectSame([&](auto& m, const char**) { return m.GetSignal(*message, signal->name); });
            ExpectSameWalksOf(CALL(GetReceiverIterator), *signal);
            ExpectSameWalksOf(CALL(GetValueDescriptionIterator), *signal);
            ExpectSameWalksOf(CALL(GetAttributeIterator), *signal);
            for (rxblk* receiver : mgr_.GetReceiverIterator(*signal)) {
                ExpectSameWalksOf(CALL(GetAttributeIterator), *receiver);
            }
        }
        for (siggroupblk* group : mgr_.GetSignalGroupIterator(*message)) {
            ExpectSame([&](auto& m, const char**) { return m.GetSignalGroup(*message, group->name); });
            ExpectSame([&](auto& m, const char**) { return m.GetSignal(*group, "Mode"); });
            ExpectSameWalksOf(CALL(GetSubsignalIterator), *group);
        }
        for (rxblk* transmitter : mgr_.GetTransmitterIterator(*message)) {
            ExpectSameWalksOf(CALL(GetAttributeIterator), *transmitter);
        }
    }
    for (env_var_blk* envvar : mgr_.GetEnvvarIterator(nullptr)) {
        ExpectSameWalksOf(CALL(GetReceiverIterator), *envvar);
        ExpectSameWalksOf(CALL(GetValueDescriptionIterator), *envvar);
        ExpectSameWalksOf(CALL(GetAttributeIterator), *envvar);
        for (rxblk* access : mgr_.GetReceiverIterator(*envvar)) {
            ExpectSameWalksOf(CALL(GetAttributeIterator), *access);
        }
    }
    for (symblk* node : mgr_.GetNodeIterator(nullptr)) {
        ExpectSameWalksOf(CALL(GetAttributeIterator), *node);
    }
    for (sigtype* type : mgr_.GetSignalTypeIterator(nullptr)) {
        ExpectSameWalksOf(CALL(GetAttributeIterator), *type);
    }

    // A const object or predicate chooses the const form.
    const msgblk& message = *Db(pt_).mMessages;
    TavloPredicate<const sigblk*>* predicate = nullptr;
    static_assert(std::is_same_v<decltype(mgr_.GetSignal(message, "")), const sigblk*>);
    static_assert(std::is_same_v<decltype(mgr_.GetReceiverIterator(std::as_const(*message.signals))),
                                 TavloConstReceiverIterator>);
    static_assert(std::is_same_v<decltype(mgr_.GetSignalIterator(*predicate, *Db(pt_).mMessages)),
                                 TavloIterator<const sigblk>>);
}

}  // namespace
}  // namespace tavlo::test
