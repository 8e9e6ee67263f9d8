// manager/lock.cpp: read and write locks that managers take on databases,
// the process-wide list that owns them, and the refusal message.
#include <string>

#include "manager/lists.h"
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/manager.h"

namespace {

struct LockEntry {
    TavloLock* lock;
    LockEntry* next;
};

LockEntry* gLocks = nullptr;

// Unlinks and deletes every listed lock the predicate picks.
template <class Pick>
void RemoveLocksWhere(Pick pick) {
    tavlo::manager::DeleteEntries(
        gLocks, &LockEntry::next, [&pick](const LockEntry& entry) { return pick(*entry.lock); },
        // Deleted once unlisted, so its destructor finds nothing to unlink.
        [](LockEntry& entry) { delete entry.lock; }, false);
}

// The first listed lock of another manager on the same file (database
// objects compare by path) that refuses what is asked.
template <class Refuses>
TavloLock* FindConflict(const TavloManager& mgr, const TavloDatabase& db, Refuses refuses) {
    for (const LockEntry* entry = gLocks; entry != nullptr; entry = entry->next) {
        const TavloLock& held = *entry->lock;
        if (held.mManager != &mgr && *held.mDatabase == db && refuses(held)) {
            return entry->lock;
        }
    }
    return nullptr;
}

// Makes a lock of the kind Lock on the database of dbName, unless a lock of
// another manager refuses it (then the refusal is shown).
template <class Lock>
TavloLock* CreateLock(TavloManager& mgr, const char* dbName, const char* user,
                      TavloLock* (*findConflict)(TavloManager&, TavloDatabase&),
                      Lock* (*make)(TavloManager&, TavloDatabase&, const char*)) {
    TavloDatabase* db = mgr.GetDatabase(dbName);
    if (db == nullptr) {
        return nullptr;
    }
    if (const TavloLock* conflict = findConflict(mgr, *db)) {
        conflict->ShowMessage();
        return nullptr;
    }
    Lock* lock = make(mgr, *db, user);
    TavloLock::ListInsertLock(lock);
    return lock;
}

}  // namespace

TavloLock::TavloLock(TavloManager& mgr, TavloDatabase& db, const char* user)
    : mManager(&mgr), mDatabase(&db), mUser(tavlo::model::DuplicateText(user)) {}

TavloLock::~TavloLock() {
    tavlo::manager::DeleteFirstEntry(gLocks, &LockEntry::next,
                                     [this](const LockEntry& entry) { return entry.lock == this; });
    TAVLO_MFREE(mUser);
}

void TavloLock::ShowMessage() const {
    std::string text = "Database access refused!\n";
    if (mUser != nullptr) {
        text += mUser;
    }
    tavlo::platform::ShowMessageBox(text.c_str(), "TAVLOMS.DLL", MB_ICONHAND | MB_TASKMODAL);
}

void TavloLock::FreeLock(TavloManager& mgr) {
    ListRemoveLocks(mgr);
}

void TavloLock::FreeLock(TavloManager& mgr, TavloDatabase& db) {
    ListRemoveLocks(mgr, db);
}

void TavloLock::ListInsertLock(TavloLock* lock) {
    gLocks = new LockEntry{lock, gLocks};
}

void TavloLock::ListRemoveLock(TavloLock* lock) {
    RemoveLocksWhere([lock](const TavloLock& listed) { return &listed == lock; });
}

void TavloLock::ListRemoveLocks(TavloManager& mgr) {
    RemoveLocksWhere([&mgr](const TavloLock& listed) { return listed.mManager == &mgr; });
}

void TavloLock::ListRemoveLocks(TavloManager& mgr, TavloDatabase& db) {
    // The very object, not the file: a manager's locks go with its database.
    RemoveLocksWhere([&mgr, &db](const TavloLock& listed) {
        return listed.mManager == &mgr && listed.mDatabase == &db;
    });
}

TavloLock* TavloReadLock::GetLock(TavloManager& mgr, TavloDatabase& db) {
    return FindConflict(mgr, db, [](const TavloLock& held) { return held.IsWriteLock(); });
}

TavloLock* TavloReadLock::Create(TavloManager& mgr, const char* dbName, const char* user) {
    return CreateLock<TavloReadLock>(
        mgr, dbName, user, &TavloReadLock::GetLock,
        [](TavloManager& m, TavloDatabase& d, const char* u) { return new TavloReadLock(m, d, u); });
}

TavloLock* TavloWriteLock::GetLock(TavloManager& mgr, TavloDatabase& db) {
    return FindConflict(mgr, db, [](const TavloLock&) { return true; });
}

TavloLock* TavloWriteLock::Create(TavloManager& mgr, const char* dbName, const char* user) {
    return CreateLock<TavloWriteLock>(
        mgr, dbName, user, &TavloWriteLock::GetLock,
        [](TavloManager& m, TavloDatabase& d, const char* u) { return new TavloWriteLock(m, d, u); });
}

// ---- The manager's lock operations ------------------------------------------------

bool TavloManager::LockDatabase(const char* dbName, const char* user) {
    TAVLO_ASSERT(dbName != NULL, "tavlomng");
    return TavloReadLock::Create(*this, dbName, user) != nullptr;
}

bool TavloManager::LockAllDatabases(const char* user) {
    return LockEach(user, &TavloReadLock::Create);
}

bool TavloManager::LockEach(const char* user,
                            TavloLock* (*lock)(TavloManager&, const char*, const char*)) {
    // After the first refusal no further lock is tried, so the user sees one
    // message at most.
    bool granted = true;
    for (const DbListNode* node = mDatabases; node != nullptr && granted; node = node->mNext) {
        granted = lock(*this, node->mName, user) != nullptr;
    }
    if (!granted) {
        UnlockDatabase(nullptr);
    }
    return granted;
}

void TavloManager::UnlockDatabase(const char* dbName) {
    if (dbName == nullptr) {
        TavloLock::FreeLock(*this);
        return;
    }
    if (TavloDatabase* db = GetDatabase(dbName)) {
        TavloLock::FreeLock(*this, *db);
    }
}
