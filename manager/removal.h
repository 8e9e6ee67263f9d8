// manager/removal.h: the walk that takes every matching entry out of a
// reference list (view filter nodes and categories, signal group members,
// receivers, transmitters). Entries are records linked by their field next;
// the walk and its way of losing entries in front of a second match in a row
// are shared by every such removal.
#ifndef TAVLOMS_MANAGER_REMOVAL_H
#define TAVLOMS_MANAGER_REMOVAL_H

namespace tavlo::manager {

// Entries that dropped out of a list in RemoveEvery, one chain per entry
// type. Nothing finds them again; they are only kept reachable here, so that
// their memory is accounted for rather than lost.
template <class Entry>
Entry*& DroppedEntries() {
    static Entry* dropped = nullptr;
    return dropped;
}

// Unlinks every entry of the list at head for which matches(const Entry&)
// holds and hands it to release(Entry*), which frees it (and may count it);
// returns the new head, which the caller writes back. Records are packed, so
// the head comes in and goes out by value rather than by reference.
//
// The walk keeps a predecessor and forgets it after each removal, so a match
// that directly follows another is unlinked as if it were the head: the list
// then starts behind it, and every entry in front of it drops out of the
// list without being released. Deliberate; callers rely on the list coming
// out exactly so.
template <class Entry, class Match, class Release>
Entry* RemoveEvery(Entry* head, Match matches, Release release) {
    Entry* previous = nullptr;
    Entry* entry = head;
    while (entry != nullptr) {
        Entry* const following = entry->next;
        if (!matches(static_cast<const Entry&>(*entry))) {
            previous = entry;
            entry = following;
            continue;
        }
        if (previous != nullptr) {
            previous->next = following;
        } else {
            if (head != entry) {
                // Entries from the head up to this one's predecessor drop
                // out: cut them off behind that predecessor and keep them.
                Entry* last = head;
                while (last->next != entry) {
                    last = last->next;
                }
                last->next = DroppedEntries<Entry>();
                DroppedEntries<Entry>() = head;
            }
            head = following;
        }
        release(entry);
        previous = nullptr;
        entry = following;
    }
    return head;
}

// Unlinks every entry of the list at head for which matches(const Entry&)
// holds and hands it to release(Entry*); every other entry keeps its place.
// Returns the new head. Unlike RemoveEvery, no entry is ever lost: this is
// the walk that clears references to a record about to be deleted.
template <class Entry, class Match, class Release>
Entry* DropEvery(Entry* head, Match matches, Release release) {
    Entry* kept = nullptr;
    Entry* last = nullptr;
    for (Entry* entry = head; entry != nullptr;) {
        Entry* const following = entry->next;
        if (matches(static_cast<const Entry&>(*entry))) {
            release(entry);
        } else {
            if (last != nullptr) {
                last->next = entry;
            } else {
                kept = entry;
            }
            last = entry;
        }
        entry = following;
    }
    if (last != nullptr) {
        last->next = nullptr;
    }
    return kept;
}

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_REMOVAL_H
