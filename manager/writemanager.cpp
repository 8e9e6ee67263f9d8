// manager/writemanager.cpp: the write manager's own rules (one write manager
// per file, write locks), creating, writing, committing and clearing
// databases, and creating and deleting objects in databases and inside
// messages, signal groups, signals and environment variables.
#include "manager/frame.h"
#include "manager/lists.h"
#include "manager/references.h"
#include "manager/removal.h"
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

// ---- Databases ---------------------------------------------------------------

unsigned int TavloWriteManager::CreateDatabase(const char* dbName, const char** dbNameOut,
                                               const char* path) {
    TAVLO_ASSERT(dbName != NULL, kModule);
    if (!TAVLOVERIFYDATABASENAME(dbName)) {
        return TAVLO_STATUS_INVALID_NAME;
    }
    if (GetUniqueDatabaseName(dbName) != nullptr) {
        return TAVLO_STATUS_NAME_USED;
    }
    // Something there already (or a read-only path): a new database would
    // overwrite it when written.
    if (path != nullptr && tavlo::manager::GetFileStatus(path) != tavlo::manager::kFileMissing) {
        return TAVLO_STATUS_PATH_TAKEN;
    }
    TavloDatabase& db = AssignDatabase(nullptr);
    if (path != nullptr) {
        db.mDbPath = tavlo::model::DuplicateText(path);
    }
    ListInsertDatabase(db, dbName, 0);
    if (dbNameOut != nullptr) {
        *dbNameOut = GetUniqueDatabaseName(dbName);
    }
    return TAVLO_STATUS_OK;
}

unsigned int TavloWriteManager::WriteDatabase(const char* dbName, const char* path) {
    if (dbName != nullptr) {
        TavloDatabase* db = GetDatabase(dbName);
        if (db == nullptr) {
            return TAVLO_STATUS_WRITE_FAILED;  // not 1: deliberate
        }
        if (const TavloLock* lock = TavloWriteLock::GetLock(*this, *db)) {
            lock->ShowMessage();
            return TAVLO_STATUS_LOCKED;
        }
        const unsigned int status = db->Write(path);
        if (status != TAVLO_STATUS_OK) {
            return status;
        }
        NotifyChanges(*this, *db);
        return TAVLO_STATUS_OK;
    }
    // Nothing is written while any database is locked by another manager.
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        if (const TavloLock* lock = TavloWriteLock::GetLock(*this, *node->mDatabase)) {
            lock->ShowMessage();
            return TAVLO_STATUS_LOCKED;
        }
    }
    unsigned int firstFailure = TAVLO_STATUS_OK;
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        const unsigned int status = node->mDatabase->Write(nullptr);
        if (status == TAVLO_STATUS_OK) {
            NotifyChanges(*this, *node->mDatabase);
        } else if (firstFailure == TAVLO_STATUS_OK) {
            firstFailure = status;
        }
    }
    return firstFailure;
}

void TavloWriteManager::CommitDatabase(const char* dbName) {
    const auto commit = [this](TavloDatabase& db) {
        db.Commit();
        NotifyChanges(*this, db);
    };
    if (dbName != nullptr) {
        if (TavloDatabase* db = GetDatabase(dbName)) {
            commit(*db);
        }
        return;
    }
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        commit(*node->mDatabase);
    }
}

void TavloWriteManager::ClearDatabase(const char* dbName) {
    if (dbName != nullptr) {
        if (TavloDatabase* db = GetDatabase(dbName)) {
            db->Clear();
        }
        return;
    }
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        node->mDatabase->Clear();
    }
}

// ---- Objects of a database -------------------------------------------------------

namespace {

// The database a record is deleted from: the handle's, or with null the one
// whose list (walked by the given iterator) holds this very record.
template <class Iterator, class T>
TavloDatabase* DeletionTarget(const TavloManager& manager, const char* dbName,
                              Iterator everyDatabase, const T& record) {
    if (dbName == nullptr) {
        dbName = tavlo::manager::HolderOf(everyDatabase, &record);
        if (dbName == nullptr) {
            return nullptr;
        }
    }
    return manager.GetDatabase(dbName);
}

// A new record of the database dbName at position index; null for an
// unknown handle.
template <class T>
T* CreateIn(const TavloManager& manager, const char* dbName,
            T* (TavloDatabase::*create)(unsigned int), unsigned int index) {
    TavloDatabase* db = manager.GetDatabase(dbName);
    return db != nullptr ? (db->*create)(index) : nullptr;
}

}  // namespace

symblk* TavloWriteManager::CreateNode(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateNode, index);
}

msgblk* TavloWriteManager::CreateMessage(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateMessage, index);
}

env_var_blk* TavloWriteManager::CreateEnvvar(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateEnvvar, index);
}

btlblk* TavloWriteManager::CreateBitTiming(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateBitTiming, index);
}

cat* TavloWriteManager::CreateCategory(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateCategory, index);
}

sigtype* TavloWriteManager::CreateSignalType(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateSignalType, index);
}

valtable* TavloWriteManager::CreateValueTable(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateValueTable, index);
}

attr_def* TavloWriteManager::CreateAttrDefinition(const char* dbName, unsigned int index) {
    return CreateIn(*this, dbName, &TavloDatabase::CreateAttrDef, index);
}

namespace {

// Deletes record from db when db's own list holds it (a record of another
// database, or of none, is left alone): every reference to it in db goes
// first, so nothing is left pointing at released memory.
template <class T>
void Erase(TavloDatabase* db, T& record, T* TavloDatabase::*list,
           void (TavloDatabase::*erase)(T&)) {
    if (db == nullptr || !tavlo::manager::Holds(db->*list, &record)) {
        return;
    }
    tavlo::manager::Unreference(*db, record);
    (db->*erase)(record);
}

}  // namespace

void TavloWriteManager::DeleteNode(symblk& node, const char* dbName) {
    // Nodes are deleted only from a named database. Deliberate.
    if (dbName == nullptr) {
        return;
    }
    Erase(GetDatabase(dbName), node, &TavloDatabase::mNodes, &TavloDatabase::DeleteNode);
}

void TavloWriteManager::DeleteMessage(msgblk& message, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetMessageIterator(nullptr), message), message,
          &TavloDatabase::mMessages, &TavloDatabase::DeleteMessage);
}

void TavloWriteManager::DeleteEnvvar(env_var_blk& envvar, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetEnvvarIterator(nullptr), envvar), envvar,
          &TavloDatabase::mEnvvars, &TavloDatabase::DeleteEnvvar);
}

void TavloWriteManager::DeleteBitTiming(btlblk& timing, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetBitTimingIterator(nullptr), timing), timing,
          &TavloDatabase::mBitTimings, &TavloDatabase::DeleteBitTiming);
}

void TavloWriteManager::DeleteCategory(cat& category, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetCategoryIterator(nullptr), category), category,
          &TavloDatabase::mCategories, &TavloDatabase::DeleteCategory);
}

void TavloWriteManager::DeleteSignalType(sigtype& type, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetSignalTypeIterator(nullptr), type), type,
          &TavloDatabase::mSigTypes, &TavloDatabase::DeleteSignalType);
}

void TavloWriteManager::DeleteValueTable(valtable& table, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetValueTableIterator(nullptr), table), table,
          &TavloDatabase::mValueTables, &TavloDatabase::DeleteValueTable);
}

void TavloWriteManager::DeleteAttrDefinition(attr_def& definition, const char* dbName) {
    Erase(DeletionTarget(*this, dbName, GetAttrDefIterator(nullptr), definition), definition,
          &TavloDatabase::mAttrDefs, &TavloDatabase::DeleteAttrDef);
}

// ---- Objects inside a message, signal group, signal or variable ----------------

sigblk* TavloWriteManager::CreateSignal(msgblk& message, unsigned int index) {
    sigblk* signals = message.signals;
    sigblk* signal = tavlo::manager::CreateAtIndex(signals, &TAVLO_CREATE_SIGBLK, index);
    if (signal != nullptr) {
        message.signals = signals;
        message.signal_count = static_cast<unsigned short>(message.signal_count + 1);
    }
    return signal;
}

void TavloWriteManager::DeleteSignal(sigblk& signal, msgblk& message) {
    if (!tavlo::manager::Holds(+message.signals, &signal)) {
        return;  // not this message's: nothing of it is released
    }
    const char* owner = GetDatabaseName(message);
    tavlo::manager::Unreference(owner != nullptr ? GetDatabase(owner) : nullptr, message,
                                signal);
    CAN_DELETE_SIG(&message, &signal);
}

siggroupblk* TavloWriteManager::CreateSignalGroup(msgblk& message, unsigned int index) {
    siggroupblk* groups = message.signal_groups;
    siggroupblk* group = tavlo::manager::CreateAtIndex(
        groups, [&message] { return TAVLO_CREATE_SIGGROUP(&message); }, index);
    if (group != nullptr) {
        message.signal_groups = groups;
    }
    return group;
}

void TavloWriteManager::DeleteSignalGroup(siggroupblk& group, msgblk& message) {
    if (!tavlo::manager::Holds(+message.signal_groups, &group)) {
        return;
    }
    tavlo::manager::Unreference(group);
    CAN_DELETE_SIGGROUP(&message, &group);
}

void TavloWriteManager::AddSignal(siggroupblk& group, const sigblk& signal) {
    auto* member = tavlo::model::Allocate<siglistblk>();
    if (member == nullptr) {
        return;
    }
    member->signal = const_cast<sigblk*>(&signal);
    member->next = group.signals;
    group.signals = member;
}

namespace {

// A new relation entry naming node, at the head of a list; null when memory
// runs out.
rxblk* PrependRelation(rxblk* head, const symblk& node) {
    auto* entry = tavlo::model::Allocate<rxblk>();
    if (entry != nullptr) {
        entry->symbol = const_cast<symblk*>(&node);
        entry->next = head;
    }
    return entry;
}

}  // namespace

void TavloWriteManager::AddReceiver(sigblk& signal, const symblk& node) {
    if (rxblk* entry = PrependRelation(signal.receivers, node)) {
        signal.receivers = entry;
        signal.receiver_count = static_cast<unsigned short>(signal.receiver_count + 1);
    }
}

void TavloWriteManager::AddTransmitter(msgblk& message, const symblk& node) {
    if (rxblk* entry = PrependRelation(message.transmitters, node)) {
        message.transmitters = entry;
    }
}

void TavloWriteManager::AddAccessNode(env_var_blk& envvar, const symblk& node) {
    if (rxblk* entry = PrependRelation(envvar.access_nodes, node)) {
        envvar.access_nodes = entry;
        envvar.access_node_count = static_cast<unsigned short>(envvar.access_node_count + 1);
    }
}

void TavloWriteManager::RemoveSignal(siggroupblk& group, const sigblk& signal) {
    group.signals = tavlo::manager::RemoveEvery(
        group.signals,
        [&signal](const siglistblk& member) { return member.signal == &signal; },
        [](siglistblk* member) { TAVLO_MFREE(member); });
}

void TavloWriteManager::RemoveReceiver(sigblk& signal, const symblk& node) {
    signal.receivers = tavlo::manager::RemoveEvery(
        signal.receivers, [&node](const rxblk& entry) { return entry.symbol == &node; },
        [&signal](rxblk* entry) {
            TAVLO_MFREE(entry);
            signal.receiver_count = static_cast<unsigned short>(signal.receiver_count - 1);
        });
}

void TavloWriteManager::RemoveTransmitter(msgblk& message, const symblk& node) {
    message.transmitters = tavlo::manager::RemoveEvery(
        message.transmitters, [&node](const rxblk& entry) { return entry.symbol == &node; },
        [](rxblk* entry) { TAVLO_MFREE(entry); });
}
