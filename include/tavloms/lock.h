/* tavloms/lock.h: read and write locks that managers hold on shared
 * databases. C++ only; in C this header declares nothing. Included by
 * manager.h. */
#ifndef TAVLOMS_LOCK_H
#define TAVLOMS_LOCK_H

#include "database.h"

#ifdef __cplusplus

TAVLO_BEGIN_VISIBLE

class TavloManager;

/* A lock a manager holds on a database. Locks are advisory: only the lock
 * operations consult them. The process-wide lock list owns them. */
class TAVLO_API TavloLock {
public:
    virtual bool IsWriteLock() const = 0;
    /* Takes the lock out of the lock list (if still there). */
    virtual ~TavloLock();

    TavloLock(const TavloLock&) = delete;
    TavloLock& operator=(const TavloLock&) = delete;

    /* Tells the user that access was refused, naming this lock's holder:
     * "Database access refused!", a line break and the holder's text, in a
     * task-modal message box with a stop icon, caption "TAVLOMS.DLL". */
    void ShowMessage() const;

    /* Frees every lock of mgr, or every lock of mgr on that very object. */
    static void FreeLock(TavloManager& mgr);
    static void FreeLock(TavloManager& mgr, TavloDatabase& db);

    static void ListInsertLock(TavloLock* lock);
    /* Unlinks and deletes the lock; nothing when it is not listed. */
    static void ListRemoveLock(TavloLock* lock);
    static void ListRemoveLocks(TavloManager& mgr);
    static void ListRemoveLocks(TavloManager& mgr, TavloDatabase& db);

    TavloManager* mManager;
    TavloDatabase* mDatabase;
    char* mUser;  /* the holder's text, or null */

protected:
    TavloLock(TavloManager& mgr, TavloDatabase& db, const char* user);
};

/* Reading: refused only by another manager's write lock on the same file. */
class TAVLO_API TavloReadLock : public TavloLock {
public:
    bool IsWriteLock() const override { return false; }
    /* The first lock that refuses mgr a read lock on db, or null. */
    static TavloLock* GetLock(TavloManager& mgr, TavloDatabase& db);
    /* A new listed lock on the database of dbName; null for an unknown name
     * (silently) or when refused (the refusal has been shown). */
    static TavloLock* Create(TavloManager& mgr, const char* dbName, const char* user);

private:
    using TavloLock::TavloLock;
};

/* Writing: refused by any lock of another manager on the same file. */
class TAVLO_API TavloWriteLock : public TavloLock {
public:
    bool IsWriteLock() const override { return true; }
    static TavloLock* GetLock(TavloManager& mgr, TavloDatabase& db);
    static TavloLock* Create(TavloManager& mgr, const char* dbName, const char* user);

private:
    using TavloLock::TavloLock;
};

TAVLO_END_VISIBLE

#endif /* __cplusplus */

#endif /* TAVLOMS_LOCK_H */
