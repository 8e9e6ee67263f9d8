// convert/converter.cpp: converter modules: loading them, importing a file
// into a new database of a write manager, exporting an open database, and
// taking over the lists a module made into records of the library's own.
#include "manager/frame.h"
#include "platform/platform.h"
#include "tavloms/convert.h"
#include "tavloms/copy.h"
#include "tavloms/lifecycle.h"
#include "tavloms/writemanager.h"

namespace {

constexpr const char* kModule = "dbmsconv";

}  // namespace

// ---- The converter ----------------------------------------------------------------

TavloConverter::TavloConverter(TavloManager& mgr, const char* moduleFile)
    : mFailed(0),
      mManager(&mgr),
      mDatabase(nullptr),
      mModule(tavlo::platform::LoadModule(moduleFile)) {
    if (mModule == nullptr) {
        mFailed = 1;
    }
}

TavloConverter::~TavloConverter() {
    tavlo::platform::UnloadModule(mModule);
}

bool TavloConverter::PostProcess(symblk*, msgblk*, env_var_blk*, btlblk*, attr_def*, attr*,
                                 cat*, filter_t, char*, char*, sigtype*, valtable*) {
    return true;
}

void* TavloConverter::GetFunction(const char* name) const {
    return tavlo::platform::ModuleFunction(mModule, name);
}

TavloDatabase* TavloConverter::GetDatabase(const char* dbName) const {
    return mManager->GetDatabase(dbName);
}

bool TavloConverter::CopyDatabaseLists() {
    TAVLO_ASSERT(mDatabase != NULL, kModule);
    TavloDatabase& db = *mDatabase;
    const tavlo_root_t made = db.Root();
    tavlo_root_t copy{};
    if (TAVLO_COPY_DATABASE(&made, &copy) == 0) {
        return false;  // out of memory: the module's lists stay in place
    }
    db.mNodes = copy.nodes;
    db.mMessages = copy.messages;
    db.mEnvvars = copy.envvars;
    db.mBitTimings = copy.bit_timings;
    db.mAttrDefs = copy.attr_defs;
    db.mDbAttrs = copy.db_attrs;
    db.mCategories = copy.categories;
    db.mFilter = copy.filter;
    db.mComment = copy.comment;
    db.mUserData = copy.version;
    db.mSigTypes = copy.sig_types;
    db.mValueTables = copy.value_tables;
    return PostProcess(made.nodes, made.messages, made.envvars, made.bit_timings, made.attr_defs,
                       made.db_attrs, made.categories, made.filter, made.comment, made.version,
                       made.sig_types, made.value_tables);
}

// ---- Import -----------------------------------------------------------------------

TavloImporter::TavloImporter(TavloWriteManager& mgr, const char* moduleFile,
                             const char* entryName)
    : TavloConverter(mgr, moduleFile), mEntry(nullptr) {
    if (entryName != nullptr) {
        mEntry = reinterpret_cast<TavloImportEntry>(GetFunction(entryName));
    }
}

bool TavloImporter::PostProcess(symblk* nodes, msgblk* messages, env_var_blk* envvars,
                                btlblk* bitTimings, attr_def* attrDefs, attr* dbAttrs,
                                cat* categories, filter_t filter, char* comment,
                                char* userData, sigtype* sigTypes, valtable* valueTables) {
    TAVLO_FREE(nodes, messages, envvars, bitTimings, attrDefs, dbAttrs, categories, filter,
               comment, userData, sigTypes, valueTables);
    return true;
}

unsigned int TavloImporter::Import(const char* dbName, const char** dbNameOut,
                                   const char* filePath) {
    TAVLO_ASSERT(filePath != NULL, kModule);
    mFailed = 1;
    // The source must be writable too: the check is the one for writing.
    // Deliberate.
    const unsigned int status = tavlo::manager::GetFileStatus(filePath);
    if (status != tavlo::manager::kFileWritable) {
        return status;
    }
    const unsigned int created = CreateDatabase(dbName, dbNameOut, filePath);
    if (created != TAVLO_STATUS_OK) {
        return created;
    }
    if (mDatabase == nullptr || !ProcessFile(filePath)) {
        return TAVLO_STATUS_CONVERSION_FAILED;
    }
    CopyDatabaseLists();
    mFailed = 0;
    return TAVLO_STATUS_OK;
}

bool TavloImporter::ProcessFile(const char* filePath) {
    if (mEntry == nullptr) {
        return false;
    }
    return mEntry(filePath, &mDatabase->mMessages, &mDatabase->mNodes, &mDatabase->mEnvvars,
                  &mDatabase->mAttrDefs, &mDatabase->mDbAttrs) != 0;
}

unsigned int TavloImporter::CreateDatabase(const char* dbName, const char** dbNameOut,
                                           const char* filePath) {
    TAVLO_ASSERT((dbName != NULL), kModule);
    if (mManager->GetDatabase(dbName) != nullptr) {
        return TAVLO_STATUS_NAME_USED;
    }
    const std::string target = tavlo::platform::WithExtension(filePath, ".DBC");
    // Importers are made only with write managers.
    auto& writer = static_cast<TavloWriteManager&>(*mManager);
    const char* handle = nullptr;
    const unsigned int status = writer.CreateDatabase(dbName, &handle, target.c_str());
    if (status != TAVLO_STATUS_OK) {
        return status;
    }
    if (dbNameOut != nullptr) {
        *dbNameOut = handle;
    }
    mDatabase = mManager->GetDatabase(handle);
    return mDatabase != nullptr ? TAVLO_STATUS_OK : TAVLO_STATUS_CONVERSION_FAILED;
}

// ---- Export -----------------------------------------------------------------------

TavloExporter::TavloExporter(TavloManager& mgr, const char* moduleFile, const char* entryName)
    : TavloConverter(mgr, moduleFile), mEntry(nullptr) {
    if (entryName != nullptr) {
        mEntry = reinterpret_cast<TavloExportEntry>(GetFunction(entryName));
    }
}

unsigned int TavloExporter::Export(const char* dbName, const char* filePath) {
    TAVLO_ASSERT((dbName != NULL) && (filePath != NULL), kModule);
    mFailed = 1;
    if (tavlo::manager::GetFileStatus(filePath) != tavlo::manager::kFileMissing) {
        return TAVLO_STATUS_PATH_TAKEN;
    }
    FetchDatabase(dbName);
    if (mDatabase == nullptr || !ProcessFile(filePath)) {
        return TAVLO_STATUS_WRITE_FAILED;
    }
    mFailed = 0;
    return TAVLO_STATUS_OK;
}

bool TavloExporter::ProcessFile(const char* filePath) {
    // Without an entry the export counts as done, though nothing is written.
    // Deliberate.
    if (mEntry == nullptr) {
        return true;
    }
    return mEntry(filePath, mDatabase->mMessages, mDatabase->mNodes, mDatabase->mEnvvars,
                  mDatabase->mAttrDefs, mDatabase->mDbAttrs) != 0;
}

void TavloExporter::FetchDatabase(const char* dbName) {
    mDatabase = mManager->GetDatabase(dbName);
}
