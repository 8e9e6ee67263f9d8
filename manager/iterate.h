// manager/iterate.h: what the iterator factories of the read and the write
// manager share. The lists hanging off an object come out with the object's
// own constness, so one accessor serves both managers, and the two builders
// make either iterator form from whatever list they are given.
#ifndef TAVLOMS_MANAGER_ITERATE_H
#define TAVLOMS_MANAGER_ITERATE_H

#include <type_traits>

#include "manager/listheads.h"
#include "tavloms/manager.h"

namespace tavlo::manager {

// Record, const when Object is.
template <class Record, class Object>
using Like = std::conditional_t<std::is_const_v<Object>, const Record, Record>;

// Keeps a parameter out of template argument deduction, so that a null
// predicate does not stop the element type being taken from the list.
template <class T>
struct NotDeduced {
    using type = T;
};

template <class T>
using PredicateOf = typename NotDeduced<TavloPredicate<T*>>::type;

// Over the lists heads gives: of the database dbName, or of every database.
template <class T>
TavloIterator<T> Across(const TavloManager& manager, T* (*heads)(const TavloDatabase&),
                        PredicateOf<T>* predicate, const char* dbName) {
    return {manager, heads, predicate, dbName};
}

// Over one list from first; dbName is what the predicate is told.
template <class T>
TavloIterator<T> Along(const TavloManager& manager, T* first, PredicateOf<T>* predicate,
                       const char* dbName) {
    return {manager, first, predicate, dbName};
}

// ---- The lists that hang off one object ----
// Fields are read by value: the records are packed.

template <class Message>
Like<sigblk, Message>* SignalsOf(Message& message) {
    return message.signals;
}

template <class Message>
Like<siggroupblk, Message>* GroupsOf(Message& message) {
    return message.signal_groups;
}

template <class Message>
Like<rxblk, Message>* TransmittersOf(Message& message) {
    return message.transmitters;
}

template <class Group>
Like<siglistblk, Group>* MembersOf(Group& group) {
    return group.signals;
}

template <class Signal>
Like<rxblk, Signal>* ReceiversOf(Signal& signal) {
    return signal.receivers;
}

template <class Envvar>
Like<rxblk, Envvar>* AccessNodesOf(Envvar& envvar) {
    return envvar.access_nodes;
}

template <class Object>
Like<attr, Object>* AttributesOf(Object& object) {
    return object.attributes;
}

template <class Object>
Like<val, Object>* DescriptionsOf(Object& object) {
    return object.value_descriptions;
}

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_ITERATE_H
