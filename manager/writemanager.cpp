// manager/writemanager.cpp: the write manager's own rules (one write manager
// per file, write locks), creating, writing, committing and clearing
// databases, and creating and deleting objects in databases and inside
// messages, signal groups, signals and environment variables.
#include "manager/frame.h"
#include "manager/lists.h"
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/writemanager.h"

namespace {

constexpr const char* kModule = "dbmswrte";

}  // namespace

TavloWriteManager::TavloWriteManager(void* threadId) : TavloManager(threadId) {}

TavloWriteManager::TavloWriteManager(HWND window) : TavloManager(window) {}

TavloWriteManager::~TavloWriteManager() {
    FlushDatabaseCache();
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        ReleaseDatabase(*node->mDatabase, false);
    }
    ListRemoveDatabase();
}

bool TavloWriteManager::LockDatabase(const char* dbName, const char* user) {
    TAVLO_ASSERT(dbName != NULL, kModule);
    return TavloWriteLock::Create(*this, dbName, user) != nullptr;
}

bool TavloWriteManager::LockAllDatabases(const char* user) {
    return LockEach(user, &TavloWriteLock::Create);
}

unsigned int TavloWriteManager::CheckForWriteOpen(const char* path) const {
    return IsDatabaseOpenedForWrite(path) ? TAVLO_STATUS_OPEN_FOR_WRITE : TAVLO_STATUS_OK;
}

bool TavloWriteManager::OwnsDatabaseForWrite(const char* path) const {
    return ListFindDatabaseName(path) != nullptr;
}
