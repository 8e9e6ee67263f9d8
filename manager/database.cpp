// manager/database.cpp: TavloDatabase, one database file in memory, and the
// process-wide list through which managers share one object per file.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "dbfile/session.h"
#include "manager/frame.h"
#include "manager/kept.h"
#include "manager/lists.h"
#include "manager/names.h"
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/copy.h"
#include "tavloms/dbfile.h"
#include "tavloms/exception.h"
#include "tavloms/manager.h"
#include "tavloms/query.h"

namespace {

constexpr const char* kModule = "tavlodb";

using tavlo::manager::GetFileStatus;
using tavlo::manager::kFileMissing;
using tavlo::manager::kFileWritable;

// An entry of the process-wide list of shared database objects.
struct DbEntry {
    TavloDatabase* db;
    DbEntry* next;
};

DbEntry* gDatabases = nullptr;

// Characters compared without regard to ASCII case.
bool EqualIgnoringCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (tavlo::manager::LowerAscii(a[i]) != tavlo::manager::LowerAscii(b[i])) {
            return false;
        }
    }
    return true;
}

// Deletes a listed object that nothing holds any more. A manager's cache can
// still point at it (another manager took its cache count when it opened
// the file, then closed it); such entries are dropped, not left dangling.
void DeleteUnheld(TavloDatabase* db) {
    for (const MngrListNode* m = TavloManager::GetManagersList(); m != nullptr; m = m->mNext) {
        m->mManager->CacheRemoveDatabase(*db);
    }
    delete db;
}

// A file status that still allows writing: the file is writable or not there.
bool MayWrite(unsigned int status) {
    return status == kFileWritable || status == kFileMissing;
}

}  // namespace

// ---- Construction ----------------------------------------------------------

TavloDatabase::TavloDatabase()
    : mRefCount(1),
      mCacheCount(0),
      mDbPath(nullptr),
      mNodes(nullptr),
      mMessages(nullptr),
      mEnvvars(nullptr),
      mBitTimings(nullptr),
      mAttrDefs(nullptr),
      mDbAttrs(nullptr),
      mCategories(nullptr),
      mFilter(),
      mComment(nullptr),
      mUserData(tavlo::model::DuplicateText("")),
      mSigTypes(nullptr),
      mValueTables(nullptr) {}

TavloDatabase::TavloDatabase(const char* path) : TavloDatabase() {
    if (path == nullptr) {
        return;
    }
    mDbPath = tavlo::model::DuplicateText(path);
    ReadFile();
}

TavloDatabase::TavloDatabase(const TavloDatabase& other) : TavloDatabase() {
    const tavlo_root_t source = other.Root();
    tavlo_root_t copy{};
    if (TAVLO_COPY_DATABASE(&source, &copy) == 0) {
        throw std::bad_alloc();
    }
    TAVLO_MFREE(mUserData);
    Adopt(copy);
    mDbPath = tavlo::model::DuplicateText(other.mDbPath);
}

TavloDatabase& TavloDatabase::operator=(const TavloDatabase& other) {
    if (this == &other) {
        return *this;
    }
    // Copy first, so that running out of memory leaves this object as it was.
    const tavlo_root_t source = other.Root();
    tavlo_root_t copy{};
    if (TAVLO_COPY_DATABASE(&source, &copy) == 0) {
        throw std::bad_alloc();
    }
    Clear();
    Adopt(copy);
    char* path = tavlo::model::DuplicateText(other.mDbPath);
    TAVLO_MFREE(mDbPath);
    mDbPath = path;
    return *this;
}

TavloDatabase::~TavloDatabase() {
    Clear();
    TAVLO_MFREE(mDbPath);
}

bool TavloDatabase::operator==(const TavloDatabase& other) const {
    return IsPathEqual(other.mDbPath);
}

tavlo_root_t TavloDatabase::Root() const {
    tavlo_root_t root{};
    root.nodes = mNodes;
    root.messages = mMessages;
    root.envvars = mEnvvars;
    root.bit_timings = mBitTimings;
    root.attr_defs = mAttrDefs;
    root.db_attrs = mDbAttrs;
    root.categories = mCategories;
    root.filter = mFilter;
    root.comment = mComment;
    root.version = mUserData;
    root.sig_types = mSigTypes;
    root.value_tables = mValueTables;
    return root;
}

void TavloDatabase::Adopt(const tavlo_root_t& root) {
    mNodes = root.nodes;
    mMessages = root.messages;
    mEnvvars = root.envvars;
    mBitTimings = root.bit_timings;
    mAttrDefs = root.attr_defs;
    mDbAttrs = root.db_attrs;
    mCategories = root.categories;
    mFilter = root.filter;
    mComment = root.comment;
    mUserData = root.version;
    mSigTypes = root.sig_types;
    mValueTables = root.value_tables;
}

// Reads the own path into the lists. A failed read has shown its message and
// left what it read so far linked in; the object keeps that. Of the file's
// view filter the object takes the categories only: its node list and
// filter word stay empty and zero.
// The statements the read kept are kept beside the object.
void TavloDatabase::ReadFile() {
    filter_t filter{};
    tavlo::dbfile::ReadSession session(false, false);  // messages shown as TAVLO_READ shows them
    tavlo::dbfile::ReadWith(mDbPath,
                            tavlo::dbfile::Lists{&mNodes, &mMessages, &mEnvvars, &mBitTimings,
                                                 &mAttrDefs, &mDbAttrs, &mCategories, &filter,
                                                 &mComment, &mUserData, &mSigTypes,
                                                 &mValueTables},
                            &session);
    tavlo::manager::SetKeptStatements(this, session.kept());
    mFilter.categories = filter.categories;
    tavlo::model::ReleaseFilterNodes(filter.nodes);
}

// ---- The process-wide list -------------------------------------------------

TavloDatabase* TavloDatabase::CreateDatabase(const char* path) {
    if (path != nullptr) {
        if (TavloDatabase* shared = ListFindDb(path)) {
            ++shared->mRefCount;
            if (shared->mCacheCount != 0) {
                --shared->mCacheCount;
            }
            return shared;
        }
    }
    auto* db = new TavloDatabase(path);
    ListInsertDb(db);
    return db;
}

void TavloDatabase::DestroyDatabase(TavloDatabase& db, bool keepInCache) {
    if (keepInCache) {
        --db.mRefCount;
        ++db.mCacheCount;
        return;
    }
    const unsigned int references = db.mRefCount--;
    if (references == 1 && db.mCacheCount == 0) {
        ListRemoveDb(&db);
        DeleteUnheld(&db);
    }
}

void TavloDatabase::ReleaseCache() {
    tavlo::manager::DeleteEntries(
        gDatabases, &DbEntry::next, [](const DbEntry& entry) { return entry.db->mRefCount == 0; },
        [](DbEntry& entry) { DeleteUnheld(entry.db); }, false);
}

void TavloDatabase::ListInsertDb(TavloDatabase* db) {
    gDatabases = new DbEntry{db, gDatabases};
}

void TavloDatabase::ListRemoveDb(TavloDatabase* db) {
    tavlo::manager::DeleteFirstEntry(gDatabases, &DbEntry::next,
                                     [db](const DbEntry& entry) { return entry.db == db; });
}

TavloDatabase* TavloDatabase::ListFindDb(const char* path) {
    TAVLO_ASSERT(path != NULL, kModule);
    for (const DbEntry* entry = gDatabases; entry != nullptr; entry = entry->next) {
        if (entry->db->IsPathEqual(path)) {
            return entry->db;
        }
    }
    return nullptr;
}

// ---- The object --------------------------------------------------------------

bool TavloDatabase::IsPathEqual(const char* path) const {
    if (mDbPath == nullptr || path == nullptr) {
        return false;
    }
    return EqualIgnoringCase(tavlo::platform::FullPath(mDbPath),
                             tavlo::platform::FullPath(path));
}

unsigned int TavloDatabase::ReopenDatabaseFile() {
    if (mDbPath == nullptr) {
        return TAVLO_STATUS_NO_FILE;
    }
    Clear();
    mUserData = tavlo::model::DuplicateText("");
    ReadFile();
    return TAVLO_STATUS_OK;
}

void TavloDatabase::Clear() {
    tavlo::manager::ForgetKeptStatements(this);
    tavlo_root_t root = Root();
    TAVLO_FREE_ROOT(&root);
    Adopt(tavlo_root_t{});
}

void TavloDatabase::Commit() {
    if (mDbPath == nullptr) {
        return;
    }
    TavloDatabase* listed = ListFindDb(mDbPath);
    if (listed != nullptr && listed != this) {
        *listed = *this;
    }
}

unsigned int TavloDatabase::Write(const char* path) {
    if (path == nullptr && mDbPath == nullptr) {
        return TAVLO_STATUS_NO_FILE;
    }
    if (path != nullptr) {
        const TavloDatabase* owner = ListFindDb(path);
        if (owner != nullptr && owner != this) {
            return TAVLO_STATUS_PATH_TAKEN;
        }
        // The own path is compared as plain text: another spelling of the
        // same file takes the branch for a new path.
        if (mDbPath != nullptr && std::strcmp(path, mDbPath) == 0) {
            const unsigned int status = GetFileStatus(mDbPath);
            if (!MayWrite(status)) {
                return status;
            }
        } else {
            const unsigned int status = GetFileStatus(path);
            if (!MayWrite(status)) {
                return status;
            }
            char* newPath = tavlo::model::DuplicateText(path);
            TAVLO_MFREE(mDbPath);
            mDbPath = newPath;
        }
    } else {
        const unsigned int status = GetFileStatus(mDbPath);
        if (!MayWrite(status)) {
            return status;
        }
    }
    if (TAVLO_WRITE(mDbPath, mNodes, mMessages, mEnvvars, mBitTimings, mAttrDefs, mDbAttrs,
                    mCategories, mFilter, mComment, mUserData, mSigTypes, mValueTables) != 0) {
        return TAVLO_STATUS_WRITE_FAILED;
    }
    Commit();
    return TAVLO_STATUS_OK;
}

void TavloDatabase::SetComment(const char* text) {
    // Copied first: text may be the comment itself.
    char* copy = tavlo::model::DuplicateText(text);
    TAVLO_MFREE(mComment);
    mComment = copy;
}

void TavloDatabase::SetUserData(const char* text) {
    TAVLO_ASSERT(text != NULL, kModule);
    char* copy = tavlo::model::DuplicateText(text);
    TAVLO_MFREE(mUserData);
    mUserData = copy;
}

unsigned int TavloDatabase::GetMaxEnvvarHandle() const {
    unsigned int largest = 0;
    for (const env_var_blk* e = mEnvvars; e != nullptr; e = e->next) {
        if (e->id > largest) {
            largest = e->id;
        }
    }
    return largest;
}

char* TavloDatabase::GetDefaultName() const {
    const attr_def* def = TAVLO_GET_ATTR_DEF_NAME(mAttrDefs, TAVLODATABASENAMEATTRIBUTE);
    if (def != nullptr && def->object_type == TAVLO_OBJ_NETWORK &&
        def->value_type == TAVLO_ATTR_STRING) {
        const char* text = nullptr;
        for (const attr* value = mDbAttrs; value != nullptr; value = value->next) {
            if (value->def == def) {
                text = value->value.text;
                break;
            }
        }
        if (text == nullptr) {
            text = def->default_value.text;
        }
        if (text == nullptr) {
            text = "";
        }
        const std::size_t size = std::min<std::size_t>(std::strlen(text) + 1, TAVLO_NAME_SIZE);
        auto* name = static_cast<char*>(TAVLO_MALLOC(size));
        if (name != nullptr) {
            tavlo::manager::MakeDatabaseName(name, text, static_cast<unsigned int>(size));
        }
        return name;
    }
    constexpr std::size_t kTitleSize = 256;
    auto* name = static_cast<char*>(TAVLO_MALLOC(kTitleSize));
    if (name == nullptr) {
        return nullptr;
    }
    if (mDbPath != nullptr) {
        const std::string title = tavlo::platform::FileTitle(mDbPath);
        std::strncpy(name, title.c_str(), kTitleSize - 1);
    }
    tavlo::manager::MakeDatabaseName(name, name, TAVLO_NAME_SIZE);
    return name;
}

// ---- Records by kind ---------------------------------------------------------

symblk* TavloDatabase::GetNode(const char* name) const {
    TAVLO_ASSERT(name != NULL, kModule);
    return TAVLO_GET_SYMBOL_NAME(mNodes, name);
}

msgblk* TavloDatabase::GetMessage(const char* name) const {
    TAVLO_ASSERT(name != NULL, kModule);
    return TAVLO_GET_MESSAGE_NAME(mMessages, name);
}

msgblk* TavloDatabase::GetMessage(unsigned long id) const {
    // Identifiers are 32 bits: a wider key names no message (rather than the
    // one its low bits name).
    if (id != static_cast<unsigned int>(id)) {
        return nullptr;
    }
    return TAVLO_GET_MESSAGE(mMessages, static_cast<unsigned int>(id));
}

env_var_blk* TavloDatabase::GetEnvvar(const char* name) const {
    TAVLO_ASSERT(name != NULL, kModule);
    return TAVLO_GET_EVBLK_NAME(mEnvvars, name);
}

btlblk* TavloDatabase::GetBitTiming(unsigned short number) const {
    return TAVLO_GET_BTLBLK(mBitTimings, number);
}

valtable* TavloDatabase::GetValueTable(const char* name) const {
    return TAVLO_GET_VALTABLE_NAME(mValueTables, name);
}

sigtype* TavloDatabase::GetSignalType(const char* name) const {
    return TAVLO_GET_SIGTYPE_NAME(mSigTypes, name);
}

attr_def* TavloDatabase::GetAttrDef(const char* name) const {
    TAVLO_ASSERT(name != NULL, kModule);
    return TAVLO_GET_ATTR_DEF_NAME(mAttrDefs, name);
}

symblk* TavloDatabase::CreateNode(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mNodes, &TAVLO_CREATE_SYMBOL, index);
}

msgblk* TavloDatabase::CreateMessage(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mMessages, &TAVLO_CREATE_MSGBLK, index);
}

env_var_blk* TavloDatabase::CreateEnvvar(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mEnvvars, &TAVLO_CREATE_EVBLK, index);
}

btlblk* TavloDatabase::CreateBitTiming(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mBitTimings, &TAVLO_CREATE_BTLBLK, index);
}

valtable* TavloDatabase::CreateValueTable(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mValueTables, &TAVLO_CREATE_VALTABLE, index);
}

sigtype* TavloDatabase::CreateSignalType(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mSigTypes, &TAVLO_CREATE_SIGTYPE, index);
}

cat* TavloDatabase::CreateCategory(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mCategories, &TAVLO_CREATE_CATEGORY, index);
}

attr_def* TavloDatabase::CreateAttrDef(unsigned int index) {
    return tavlo::manager::CreateAtIndex(mAttrDefs, &TAVLO_CREATE_ATTR_DEF, index);
}

void TavloDatabase::DeleteNode(symblk& node) {
    CAN_DELETE_SYMBOL(&mNodes, &node);
}

void TavloDatabase::DeleteMessage(msgblk& message) {
    CAN_DELETE_MSG(&mMessages, &message);
}

void TavloDatabase::DeleteEnvvar(env_var_blk& envvar) {
    CAN_DELETE_EVBLK(&mEnvvars, &envvar);
}

void TavloDatabase::DeleteBitTiming(btlblk& timing) {
    CAN_DELETE_BTL(&mBitTimings, &timing);
}

void TavloDatabase::DeleteValueTable(valtable& table) {
    CAN_DELETE_VALTABLE(&mValueTables, &table);
}

void TavloDatabase::DeleteSignalType(sigtype& type) {
    CAN_DELETE_SIGTYPE(&mSigTypes, &type);
}

void TavloDatabase::DeleteCategory(cat& category) {
    CAN_DELETE_CATEGORY(&mCategories, &category);
}

void TavloDatabase::DeleteAttrDef(attr_def& def) {
    CAN_DELETE_ATTR_DEF(&mAttrDefs, &def);
}
