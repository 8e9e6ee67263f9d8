/* tavloms/convert.h: bringing files of other formats in and out through
 * converter modules.
 *
 * A converter module is a shared library that exports entry points (by
 * default "Import" and "Export") with the signatures below. An importer
 * loads the module, creates a new database in a write manager (its path is
 * the source's with the extension ".DBC") and lets the module fill five of
 * its lists; an exporter hands five lists of an open database to the module.
 * Records a module makes must come from the flat creation functions, so that
 * TAVLO_FREE can release them. C++ only, except the entry point types. */
#ifndef TAVLOMS_CONVERT_H
#define TAVLOMS_CONVERT_H

#include "records.h"

TAVLO_BEGIN_C

/* The entries a converter module exports; non-zero means success. Note the
 * order: messages before nodes. Other lists are not passed. */
typedef int (*TavloImportEntry)(const char* sourcePath, msgblk** messages, symblk** nodes,
                                env_var_blk** envvars, attr_def** attrDefs, attr** dbAttrs);
typedef int (*TavloExportEntry)(const char* targetPath, msgblk* messages, symblk* nodes,
                                env_var_blk* envvars, attr_def* attrDefs, attr* dbAttrs);

TAVLO_END_C

#ifdef __cplusplus

class TavloDatabase;
class TavloManager;
class TavloWriteManager;

/* A loaded converter module and the manager it works with. */
class TAVLO_API TavloConverter {
public:
    /* Loads moduleFile; when it cannot be loaded, mFailed is 1 and every
     * entry point is null. */
    TavloConverter(TavloManager& mgr, const char* moduleFile);
    /* Unloads the module. */
    virtual ~TavloConverter();

    TavloConverter(const TavloConverter&) = delete;
    TavloConverter& operator=(const TavloConverter&) = delete;

    /* Called with the lists a module made after they were copied into the
     * database; the base does nothing with them. */
    virtual bool PostProcess(symblk* nodes, msgblk* messages, env_var_blk* envvars,
                             btlblk* bitTimings, attr_def* attrDefs, attr* dbAttrs,
                             cat* categories, filter_t filter, char* comment, char* userData,
                             sigtype* sigTypes, valtable* valueTables);
    /* Runs the module's entry on one file. */
    virtual bool ProcessFile(const char* filePath) = 0;

    /* The module's exported function of that name, or null. */
    void* GetFunction(const char* name) const;
    /* The manager's database of a handle, or null. */
    TavloDatabase* GetDatabase(const char* dbName) const;
    /* Replaces every list of mDatabase by a copy made by the library, then
     * hands the lists as they were to PostProcess; its result. */
    bool CopyDatabaseLists();

    unsigned int mFailed;     /* 1 while an operation runs or after it failed */
    TavloManager* mManager;
    TavloDatabase* mDatabase; /* imported into or exported; null at first */
    void* mModule;            /* null when the module could not be loaded */
};

/* Imports a file into a new database of a write manager. */
class TAVLO_API TavloImporter : public TavloConverter {
public:
    /* entryName: the module's import entry ("Import"), or null for none. */
    TavloImporter(TavloWriteManager& mgr, const char* moduleFile, const char* entryName);

    /* Releases the module's lists (TAVLO_FREE); true. */
    bool PostProcess(symblk* nodes, msgblk* messages, env_var_blk* envvars, btlblk* bitTimings,
                     attr_def* attrDefs, attr* dbAttrs, cat* categories, filter_t filter,
                     char* comment, char* userData, sigtype* sigTypes,
                     valtable* valueTables) override;
    /* Creates the database dbName (path: filePath with ".DBC") and lets the
     * module fill it from filePath. Returns TAVLO_STATUS_OK; _NO_FILE or
     * _READ_ONLY for a source that is missing or read-only; _NAME_USED,
     * _INVALID_NAME or _PATH_TAKEN from creating the database;
     * _CONVERSION_FAILED when the module has no entry or its entry failed
     * (the database created stays open). *dbNameOut (if not null) receives
     * the new handle. */
    virtual unsigned int Import(const char* dbName, const char** dbNameOut, const char* filePath);
    /* Calls the import entry with the new database's five lists; false
     * without an entry. */
    bool ProcessFile(const char* filePath) override;
    /* The new database in the manager; TAVLO_STATUS_NAME_USED when the handle
     * is known already, else as TavloWriteManager::CreateDatabase;
     * TAVLO_STATUS_CONVERSION_FAILED when it cannot be found afterwards. */
    unsigned int CreateDatabase(const char* dbName, const char** dbNameOut,
                                const char* filePath);

    TavloImportEntry mEntry;
};

/* Exports an open database to a file. */
class TAVLO_API TavloExporter : public TavloConverter {
public:
    /* entryName: the module's export entry ("Export"), or null for none. */
    TavloExporter(TavloManager& mgr, const char* moduleFile, const char* entryName);

    /* Hands the database dbName to the module to write filePath. Returns
     * TAVLO_STATUS_OK; _PATH_TAKEN when filePath exists; _WRITE_FAILED for an
     * unknown handle or a failed entry. Without an entry nothing is written
     * and the result is TAVLO_STATUS_OK. */
    virtual unsigned int Export(const char* dbName, const char* filePath);
    /* Calls the export entry; true without an entry (deliberate). */
    bool ProcessFile(const char* filePath) override;
    /* mDatabase becomes the manager's database of the handle. */
    void FetchDatabase(const char* dbName);

    TavloExportEntry mEntry;
};

#endif /* __cplusplus */

#endif /* TAVLOMS_CONVERT_H */
