// manager/lists.h: the layer's list work: unlinking entries from its
// process-wide and per-manager lists (database objects, managers, caches,
// locks), linking new records at a position, and finding which database
// holds a record.
#ifndef TAVLOMS_MANAGER_LISTS_H
#define TAVLOMS_MANAGER_LISTS_H

#include "tavloms/exception.h"

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

// Makes a record with create (a creation function of the model) and links it
// so that it becomes the element at position index of the list; an index at or past the end appends it. When
// memory runs out, the creation function has shown its message and thrown;
// the list stays as it was and the result is null.
template <class T, class Create>
T* CreateAtIndex(T*& head, Create create, unsigned int index) {
    T* record = nullptr;
    try {
        record = create();
    } catch (const TavloException&) {
        return nullptr;
    }
    if (record == nullptr) {
        return nullptr;
    }
    if (index == 0 || head == nullptr) {
        record->next = head;
        head = record;
        return record;
    }
    T* before = head;
    for (unsigned int i = 1; i < index && before->next != nullptr; ++i) {
        before = before->next;
    }
    record->next = before->next;
    before->next = record;
    return record;
}

// Whether a list (linked by next) holds this very record.
template <class T>
bool Holds(const T* list, const T* record) {
    for (; list != nullptr; list = list->next) {
        if (list == record) {
            return true;
        }
    }
    return false;
}

// The handle of the database in which a spanning iterator meets this very
// record; null when it never does.
template <class Iterator, class T>
const char* HolderOf(Iterator it, const T* record) {
    for (; !it.AtEnd(); ++it) {
        if (*it == record) {
            return it.GetDatabaseName();
        }
    }
    return nullptr;
}

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_LISTS_H
