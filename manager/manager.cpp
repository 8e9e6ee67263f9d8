// manager/manager.cpp: TavloManager, a client's list of open databases under
// its own names, its cache of closed ones, and the process-wide managers
// list. Locks live in lock.cpp, notification in notify.cpp.
#include <cstdint>
#include <cstring>
#include <new>

#include "manager/frame.h"
#include "manager/lists.h"
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/manager.h"

namespace {

constexpr const char* kModule = "tavlomng";

MngrListNode* gManagers = nullptr;

// The entry ListFindNode found last, for the whole process; every removal of
// an entry clears it.
DbListNode* gFoundLast = nullptr;

// Entries that dropped out of a list when a higher priority started a new one
// (see ListInsertDatabase). Nothing finds them again; they are only kept
// reachable here.
DbListNode* gDropped = nullptr;

void ReleaseName(DbListNode& node) {
    TAVLO_MFREE(node.mName);
}

}  // namespace

// ---- Construction ------------------------------------------------------------

TavloManager::TavloManager(void* threadId)
    : mThreadId(static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(threadId))),
      mWindow(nullptr),
      mStatus(TAVLO_STATUS_OK),
      mHandleTotal(0),
      mDatabases(nullptr),
      mCache(nullptr) {
    ListInsertMngr(this);
}

TavloManager::TavloManager(HWND window)
    : mThreadId(0),
      mWindow(window),
      mStatus(TAVLO_STATUS_OK),
      mHandleTotal(0),
      mDatabases(nullptr),
      mCache(nullptr) {
    ListInsertMngr(this);
}

TavloManager::~TavloManager() {
    FlushDatabaseCache();
    CloseDatabase(nullptr, false);
    ListRemoveMngr(this);
}

void TavloManager::SetHandle(void* threadId) {
    mThreadId = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(threadId));
    mWindow = nullptr;
}

void TavloManager::SetHandle(HWND window) {
    mWindow = window;
    mThreadId = 0;
}

// ---- Slots -----------------------------------------------------------------

unsigned int TavloManager::GetDatabaseFileInfo(const char* path) const {
    const unsigned int status = tavlo::manager::GetFileStatus(path);
    // Reading a read-only file is fine.
    return status == tavlo::manager::kFileReadOnly ? TAVLO_STATUS_OK : status;
}

unsigned int TavloManager::CheckForWriteOpen(const char* /*path*/) const {
    return TAVLO_STATUS_OK;
}

bool TavloManager::OwnsDatabaseForWrite(const char* /*path*/) const {
    return false;
}

TavloDatabase& TavloManager::AssignDatabase(const char* path) {
    TavloDatabase* db = TavloDatabase::CreateDatabase(path);
    CacheRemoveDatabase(*db);
    return *db;
}

void TavloManager::ReleaseDatabase(TavloDatabase& database, bool keepInCache) {
    if (keepInCache) {
        TAVLO_ASSERT(CacheFindDatabase(database.mDbPath) == NULL, kModule);
        CacheInsertDatabase(database);
    }
    TavloLock::FreeLock(*this, database);
    TavloDatabase::DestroyDatabase(database, keepInCache);
}

// ---- Opening and closing -------------------------------------------------------

unsigned int TavloManager::OpenDatabase(const char* path, const char** dbName,
                                        unsigned int priority) {
    return OpenDatabase(path, dbName, nullptr, priority);
}

unsigned int TavloManager::OpenDatabase(const char* path, const char** dbName, const char* name,
                                        unsigned int priority) {
    TAVLO_ASSERT(path != NULL, kModule);
    if (name != nullptr) {
        if (!TAVLOVERIFYDATABASENAME(name)) {
            return TAVLO_STATUS_INVALID_NAME;
        }
        if (GetUniqueDatabaseName(name) != nullptr) {
            return TAVLO_STATUS_NAME_USED;
        }
    }
    unsigned int status = GetDatabaseFileInfo(path);
    if (status != TAVLO_STATUS_OK) {
        return status;
    }
    if (const char* openName = ListFindDatabaseName(path)) {
        if (dbName != nullptr) {
            *dbName = openName;
        }
        return TAVLO_STATUS_ALREADY_OPEN;
    }
    status = CheckForWriteOpen(path);
    if (status != TAVLO_STATUS_OK) {
        return status;
    }
    TavloDatabase& db = AssignDatabase(path);
    if (name == nullptr) {
        char* defaultName = db.GetDefaultName();
        if (defaultName == nullptr) {
            ReleaseDatabase(db, false);
            throw std::bad_alloc();
        }
        if (GetUniqueDatabaseName(defaultName) != nullptr) {
            ReleaseDatabase(db, false);
            TAVLO_MFREE(defaultName);
            return TAVLO_STATUS_NAME_USED;
        }
        ListInsertDatabase(db, defaultName, priority);
        TAVLO_MFREE(defaultName);
    } else {
        // An explicitly named database always gets priority 0, whatever was
        // asked for. Deliberate.
        ListInsertDatabase(db, name, 0);
    }
    if (dbName != nullptr) {
        *dbName = GetDatabaseName(path);
    }
    return TAVLO_STATUS_OK;
}

unsigned int TavloManager::ReopenDatabase(const char* dbName) {
    FlushDatabaseCache();
    const auto reopen = [this](TavloDatabase& db) -> unsigned int {
        if (db.mDbPath == nullptr) {
            return TAVLO_STATUS_NO_FILE;
        }
        const unsigned int status = GetDatabaseFileInfo(db.mDbPath);
        return status != TAVLO_STATUS_OK ? status : db.ReopenDatabaseFile();
    };
    if (dbName != nullptr) {
        TavloDatabase* db = ListFindDatabase(dbName);
        return db != nullptr ? reopen(*db) : TAVLO_STATUS_UNKNOWN_NAME;
    }
    unsigned int lastFailure = TAVLO_STATUS_OK;
    for (DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        const unsigned int status = reopen(*node->mDatabase);
        if (status != TAVLO_STATUS_OK) {
            lastFailure = status;
        }
    }
    return lastFailure;
}

void TavloManager::CloseDatabase(const char* dbName, bool keepInCache) {
    if (dbName != nullptr) {
        TavloDatabase* db = GetDatabase(dbName);
        if (db != nullptr) {
            ListRemoveDatabase(*db);
            ReleaseDatabase(*db, keepInCache);
        }
        return;
    }
    for (DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        ReleaseDatabase(*node->mDatabase, keepInCache);
    }
    ListRemoveDatabase();
}

void TavloManager::CloseDatabase(bool keepInCache) {
    CloseDatabase(nullptr, keepInCache);
}

void TavloManager::FlushDatabaseCache() {
    DbCacheNode* entry = mCache;
    mCache = nullptr;
    while (entry != nullptr) {
        DbCacheNode* next = entry->mNext;
        // The cache count becomes a reference again, which is then dropped.
        ++entry->mDatabase->mRefCount;
        --entry->mDatabase->mCacheCount;
        TavloDatabase::DestroyDatabase(*entry->mDatabase, false);
        delete entry;
        entry = next;
    }
}

bool TavloManager::IsDatabaseOpenedForWrite(const char* path) {
    for (const MngrListNode* entry = gManagers; entry != nullptr; entry = entry->mNext) {
        if (entry->mManager->OwnsDatabaseForWrite(path)) {
            return true;
        }
    }
    return false;
}

// ---- Names and information ---------------------------------------------------------

TavloDatabase* TavloManager::GetDatabase(const char* dbName) const {
    TavloDatabase* db = ListFindDatabase(dbName);
    if (db == nullptr) {
        mStatus = TAVLO_STATUS_NO_FILE;
    }
    return db;
}

bool TavloManager::IsDatabaseName(const char* dbName) const {
    return GetDatabase(dbName) != nullptr;
}

const char* TavloManager::GetDatabaseName(const char* path) {
    mStatus = TAVLO_STATUS_OK;
    if (const char* openName = ListFindDatabaseName(path)) {
        return openName;
    }
    if (tavlo::manager::GetFileStatus(path) == tavlo::manager::kFileMissing) {
        mStatus = TAVLO_STATUS_NO_FILE;
        return nullptr;
    }
    // Not open here: a fresh proposal the caller releases. The database stays
    // in this manager's cache, so opening it next costs no second read.
    TavloDatabase& db = AssignDatabase(path);
    char* proposal = db.GetDefaultName();
    ReleaseDatabase(db, true);
    return proposal;
}

const char* TavloManager::GetUniqueDatabaseName(const char* text) const {
    TAVLO_ASSERT(text != NULL, kModule);
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        if (std::strcmp(node->mName, text) == 0) {
            return node->mName;
        }
    }
    return nullptr;
}

unsigned int TavloManager::SetDatabaseName(const char* oldDbName, const char** dbName,
                                           const char* newName) {
    TAVLO_ASSERT(oldDbName != NULL, kModule);
    TAVLO_ASSERT(dbName != NULL, kModule);
    TAVLO_ASSERT(newName != NULL, kModule);
    DbListNode* node = ListFindNode(oldDbName);
    if (node == nullptr) {
        return TAVLO_STATUS_UNKNOWN_NAME;
    }
    if (!TAVLOVERIFYDATABASENAME(newName)) {
        return TAVLO_STATUS_INVALID_NAME;
    }
    if (std::strcmp(newName, oldDbName) == 0) {
        *dbName = oldDbName;
        return TAVLO_STATUS_OK;
    }
    if (GetUniqueDatabaseName(newName) != nullptr) {
        return TAVLO_STATUS_NAME_USED;
    }
    char* copy = tavlo::model::DuplicateText(newName);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    TAVLO_MFREE(node->mName);
    node->mName = copy;
    *dbName = copy;
    return TAVLO_STATUS_OK;
}

bool TavloManager::GetDefaultDatabaseName(const char* dbName, char* nameBuf,
                                          unsigned int size) const {
    TAVLO_ASSERT(nameBuf != NULL, kModule);
    const TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return false;
    }
    char* name = db->GetDefaultName();
    if (name == nullptr) {
        throw std::bad_alloc();
    }
    std::strncpy(nameBuf, name, size);
    const bool fits = size > std::strlen(name);
    if (!fits && size != 0) {
        nameBuf[size - 1] = '\0';
    }
    TAVLO_MFREE(name);
    return fits;
}

const char* TavloManager::GetDatabasePath(const char* dbName) const {
    TAVLO_ASSERT(dbName != NULL, kModule);
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        if (std::strcmp(node->mName, dbName) == 0) {
            return node->mDatabase->mDbPath;
        }
    }
    return nullptr;
}

bool TavloManager::AssignDatabaseInfo(void* info, const char* dbName) {
    DbListNode* node = ListFindNode(dbName);
    if (node == nullptr) {
        mStatus = TAVLO_STATUS_NO_FILE;
        return false;
    }
    node->mDatabaseInfo = info;
    mStatus = TAVLO_STATUS_OK;
    return true;
}

void* TavloManager::GetDatabaseInfo(const char* dbName) const {
    const DbListNode* node = ListFindNode(dbName);
    if (node == nullptr) {
        mStatus = TAVLO_STATUS_NO_FILE;
        return nullptr;
    }
    mStatus = TAVLO_STATUS_OK;
    return node->mDatabaseInfo;
}

// ---- List primitives -------------------------------------------------------------

void TavloManager::ListInsertDatabase(TavloDatabase& db, const char* name,
                                      unsigned int priority) {
    TAVLO_ASSERT(name != NULL, kModule);
    char* copy = tavlo::model::DuplicateText(name);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    auto* node = new DbListNode{copy, &db, priority, {0xFFFFFFFFu, 0xFFFFu}, mHandleTotal,
                                nullptr, nullptr};
    if (mDatabases == nullptr || mDatabases->mPriority < priority) {
        // A strictly higher priority than the head's starts a new list: the
        // old entries drop out, their databases stay open. Deliberate.
        if (mDatabases != nullptr) {
            DbListNode* last = mDatabases;
            while (last->mNext != nullptr) {
                last = last->mNext;
            }
            last->mNext = gDropped;
            gDropped = mDatabases;
        }
        mDatabases = node;
    } else {
        DbListNode* before = mDatabases;
        while (before->mNext != nullptr && before->mNext->mPriority >= priority) {
            before = before->mNext;
        }
        node->mNext = before->mNext;
        before->mNext = node;
    }
    mHandleTotal += db.GetMaxEnvvarHandle();
}

void TavloManager::ListRemoveDatabase(TavloDatabase& db) {
    gFoundLast = nullptr;
    // Removing entries one by one never lowers the handle total, so the
    // handle bases of the others stay valid.
    const bool removed = tavlo::manager::DeleteEntries(
        mDatabases, &DbListNode::mNext,
        [&db](const DbListNode& node) { return node.mDatabase == &db; }, ReleaseName, true);
    if (!removed && mDatabases == nullptr) {
        mHandleTotal = 0;
    }
}

void TavloManager::ListRemoveDatabase() {
    gFoundLast = nullptr;
    tavlo::manager::DeleteEntries(
        mDatabases, &DbListNode::mNext, [](const DbListNode&) { return true; }, ReleaseName,
        false);
    mHandleTotal = 0;
}

DbListNode* TavloManager::ListFindNode(const char* dbName) const {
    if (dbName == nullptr) {
        return nullptr;
    }
    // The memo is one for the process, not one per manager. Deliberate.
    if (gFoundLast != nullptr && gFoundLast->mName == dbName) {
        return gFoundLast;
    }
    for (DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        if (node->mName == dbName) {
            gFoundLast = node;
            return node;
        }
    }
    return nullptr;
}

TavloDatabase* TavloManager::ListFindDatabase(const char* dbName) const {
    const DbListNode* node = ListFindNode(dbName);
    return node != nullptr ? node->mDatabase : nullptr;
}

const char* TavloManager::ListFindDatabaseName(const char* path) const {
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        if (node->mDatabase->IsPathEqual(path)) {
            return node->mName;
        }
    }
    return nullptr;
}

void TavloManager::CacheInsertDatabase(TavloDatabase& db) {
    mCache = new DbCacheNode{&db, mCache};
}

void TavloManager::CacheRemoveDatabase(TavloDatabase& db) {
    tavlo::manager::DeleteFirstEntry(
        mCache, &DbCacheNode::mNext,
        [&db](const DbCacheNode& entry) { return entry.mDatabase == &db; });
}

TavloDatabase* TavloManager::CacheFindDatabase(const char* path) const {
    for (const DbCacheNode* entry = mCache; entry != nullptr; entry = entry->mNext) {
        if (entry->mDatabase->IsPathEqual(path)) {
            return entry->mDatabase;
        }
    }
    return nullptr;
}

MngrListNode* TavloManager::GetManagersList() {
    return gManagers;
}

void TavloManager::ListInsertMngr(TavloManager* manager) {
    gManagers = new MngrListNode{manager, gManagers};
}

void TavloManager::ListRemoveMngr(TavloManager* manager) {
    tavlo::manager::DeleteFirstEntry(
        gManagers, &MngrListNode::mNext,
        [manager](const MngrListNode& entry) { return entry.mManager == manager; });
}
