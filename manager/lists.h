// manager/lists.h: unlinking entries from the layer's process-wide and
// per-manager singly linked lists (database objects, managers, caches,
// locks), which differ only in what their entries hold.
#ifndef TAVLOMS_MANAGER_LISTS_H
#define TAVLOMS_MANAGER_LISTS_H

namespace tavlo::manager {

// Unlinks every entry that pick chooses, hands it to release (which must
// not change the list) and deletes it. With firstOnly, stops after the first.
// Returns whether any entry was chosen.
template <class Entry, class Pick, class Release>
bool DeleteEntries(Entry*& head, Entry* Entry::*next, Pick pick, Release release,
                   bool firstOnly) {
    bool found = false;
    Entry** link = &head;
    while (*link != nullptr) {
        Entry* entry = *link;
        if (!pick(*entry)) {
            link = &(entry->*next);
            continue;
        }
        *link = entry->*next;
        release(*entry);
        delete entry;
        found = true;
        if (firstOnly) {
            break;
        }
    }
    return found;
}

// Unlinks and deletes the first entry that pick chooses.
template <class Entry, class Pick>
bool DeleteFirstEntry(Entry*& head, Entry* Entry::*next, Pick pick) {
    return DeleteEntries(head, next, pick, [](Entry&) {}, true);
}

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_LISTS_H
