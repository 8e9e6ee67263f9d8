/* tavloms/manager.h: the class interface: shared database objects, managers,
 * locks and change notification.
 *
 * A client makes one TavloManager per window or thread, opens database files
 * in it under short names and reads them. Managers of one process share one
 * TavloDatabase per file, keep closed databases in a cache of their own,
 * lock databases against each other and are told of changes through the
 * registered message TAVLONOTIFICATIONMESSAGESTRING. Nothing here is guarded
 * against threads: all managers of a process are used from one thread at a
 * time. C++ only; in C this header declares nothing. */
#ifndef TAVLOMS_MANAGER_H
#define TAVLOMS_MANAGER_H

#include "codec.h"
#include "database.h"
#include "iterators.h"
#include "lock.h"
#include "module.h"
#include "platform.h"
#include "records.h"

#ifdef __cplusplus

#include <cstddef>

#if defined(TAVLO_GETMESSAGE_IS_A_MACRO)
#  pragma push_macro("GetMessage")
#  undef GetMessage
#endif

TAVLO_BEGIN_VISIBLE

/* Chooses among databases; see the lookups. */
struct TavloSelection {
    unsigned int major;
    unsigned short minor;
};

/* A database entry's side of a selection; all ones are wildcards. */
struct TavloSelectionPattern {
    unsigned int major;
    unsigned short minor;
};

/* One open database of a manager. mName is the database's handle: managers
 * compare name arguments with it by pointer, not by text. */
struct DbListNode {
    char* mName;
    TavloDatabase* mDatabase;
    unsigned int mPriority;          /* larger first */
    TavloSelectionPattern mPattern;  /* (0xFFFFFFFF, 0xFFFF) when opened */
    unsigned int mHandleBase;        /* environment variable handles of this
                                        database start above it */
    void* mDatabaseInfo;             /* the client's data */
    DbListNode* mNext;
};

/* A database a manager closed but keeps cached. */
struct DbCacheNode {
    TavloDatabase* mDatabase;
    DbCacheNode* mNext;
};

/* An entry of the process-wide managers list. */
struct MngrListNode {
    TavloManager* mManager;
    MngrListNode* mNext;
};

/* A client's handle on the class interface. Databases are named by the
 * handles this manager hands out (OpenDatabase, GetDatabaseName,
 * GetUniqueDatabaseName): most operations compare a name argument with the
 * stored name by pointer. Status values are the TAVLO_STATUS_* above. */
class TAVLO_API TavloManager {
public:
    /* Notifications go to the thread (its id's low 32 bits) or the window. */
    explicit TavloManager(void* threadId);
    explicit TavloManager(HWND window);
    virtual ~TavloManager();

    TavloManager(const TavloManager&) = delete;
    TavloManager& operator=(const TavloManager&) = delete;

    /* Read lock on one database (dbName must not be null); false when another
     * manager's write lock is in the way (its holder's text has been shown)
     * or the name is unknown. */
    virtual bool LockDatabase(const char* dbName, const char* user);
    /* Locks every database in list order, stopping at the first refusal,
     * which frees all of this manager's locks and gives false. */
    virtual bool LockAllDatabases(const char* user);
    /* Frees this manager's locks on one database, or all with null. */
    virtual void UnlockDatabase(const char* dbName);
    /* The file status of path, a read-only file accepted (0). */
    virtual unsigned int GetDatabaseFileInfo(const char* path) const;
    virtual unsigned int CheckForWriteOpen(const char* path) const;
    virtual bool OwnsDatabaseForWrite(const char* path) const;
    /* The shared object for path, taken out of this manager's cache. */
    virtual TavloDatabase& AssignDatabase(const char* path);
    /* Gives up this manager's reference, into its cache with keepInCache,
     * and frees its locks on the database. */
    virtual void ReleaseDatabase(TavloDatabase& db, bool keepInCache);

    void SetHandle(void* threadId);
    void SetHandle(HWND window);

    /* Opens the file at path under name (a valid, unused name; the entry
     * gets priority 0 whatever priority says) or, without name, under the
     * database's default name with the given priority. *dbName (if dbName is
     * not null) receives the handle. Returns TAVLO_STATUS_OK, _NO_FILE,
     * _NAME_USED, _ALREADY_OPEN (*dbName receives the name it is open under),
     * _OPEN_FOR_WRITE or _INVALID_NAME. */
    unsigned int OpenDatabase(const char* path, const char** dbName, const char* name,
                              unsigned int priority);
    unsigned int OpenDatabase(const char* path, const char** dbName, unsigned int priority);
    /* Empties the cache, then reads one database (or all, with null) again
     * from its file. Returns TAVLO_STATUS_OK, _UNKNOWN_NAME or a file status
     * (_NO_FILE); with null the status of the last one that failed. */
    unsigned int ReopenDatabase(const char* dbName);
    /* Closes one database (or all, with null), keeping it cached when asked. */
    void CloseDatabase(const char* dbName, bool keepInCache);
    void CloseDatabase(bool keepInCache);
    /* Gives up every cached database. */
    void FlushDatabaseCache();
    /* Whether any manager of the process has the file open for writing. */
    static bool IsDatabaseOpenedForWrite(const char* path);

    /* The database of a handle; null (status TAVLO_STATUS_NO_FILE) when
     * unknown. */
    TavloDatabase* GetDatabase(const char* dbName) const;
    bool IsDatabaseName(const char* dbName) const;
    /* The handle of the database open from path; for a file that is not open,
     * its default name, allocated (release with TAVLO_MFREE); null (status
     * TAVLO_STATUS_NO_FILE) when the file does not exist. */
    const char* GetDatabaseName(const char* path);
    /* The handle whose name equals text, or null. */
    const char* GetUniqueDatabaseName(const char* text) const;
    /* Renames a database; *dbName receives the new handle, the old one is
     * invalid. Returns TAVLO_STATUS_OK, _UNKNOWN_NAME, _NAME_USED or
     * _INVALID_NAME. */
    unsigned int SetDatabaseName(const char* oldDbName, const char** dbName,
                                 const char* newName);
    /* Copies the database's default name into nameBuf (size bytes); false for
     * an unknown handle or a name that did not fit (then cut). */
    bool GetDefaultDatabaseName(const char* dbName, char* nameBuf, unsigned int size) const;
    /* The path of the database whose name equals dbName as text, or null. */
    const char* GetDatabasePath(const char* dbName) const;
    /* Client data attached to an open database. */
    bool AssignDatabaseInfo(void* info, const char* dbName);
    void* GetDatabaseInfo(const char* dbName) const;

    /* Result of the last lookup that reports one: TAVLO_STATUS_OK found,
     * TAVLO_STATUS_NO_FILE not found (or found only through a wildcard). */
    unsigned int GetStatus() const { return mStatus; }
    unsigned int GetThreadId() const { return mThreadId; }
    HWND GetWindow() const { return mWindow; }
    /* Sum of the largest environment variable handles of the databases
     * inserted so far. */
    unsigned int GetHandleTotal() const { return mHandleTotal; }

    /* ---- Selection and priorities ----
     * Unknown handles set status TAVLO_STATUS_NO_FILE (false, 0, or the
     * process-wide wildcard pattern (0xFFFFFFFF, 0xFFFF)); known ones
     * TAVLO_STATUS_OK. */
    bool AssignSelectionPattern(const TavloSelectionPattern& pattern, const char* dbName);
    const TavloSelectionPattern& GetSelectionPattern(const char* dbName) const;
    unsigned int GetPriority(const char* dbName) const;

    /* ---- Lookups ----
     * Each kind has up to four forms:
     *   (key, dbName)            one database, or with null all in list order;
     *   (key, &dbNameOut)        all in list order, the winner's handle out;
     *   (key, selection)         three passes: databases whose pattern equals
     *                            the selection (TAVLO_STATUS_OK), then those
     *                            with its major and the minor wildcard, then
     *                            the full wildcards (TAVLO_STATUS_NO_FILE for a
     *                            hit in either);
     *   (key, selection, &dbNameOut).
     * A miss returns null and leaves dbNameOut as it was; an unknown handle
     * also sets TAVLO_STATUS_NO_FILE. Pass nullptr as dbName to search all
     * databases. */
    const symblk* GetNode(const char* name, const char* dbName) const;
    const symblk* GetNode(const char* name, std::nullptr_t) const {
        return GetNode(name, static_cast<const char*>(nullptr));
    }
    const symblk* GetNode(const char* name, const char** dbNameOut) const;
    const symblk* GetNode(const char* name, const TavloSelection& selection) const;
    const symblk* GetNode(const char* name, const TavloSelection& selection,
                          const char** dbNameOut) const;

    const msgblk* GetMessage(const char* name, const char* dbName) const;
    const msgblk* GetMessage(const char* name, std::nullptr_t) const {
        return GetMessage(name, static_cast<const char*>(nullptr));
    }
    const msgblk* GetMessage(const char* name, const char** dbNameOut) const;
    const msgblk* GetMessage(const char* name, const TavloSelection& selection) const;
    const msgblk* GetMessage(const char* name, const TavloSelection& selection,
                             const char** dbNameOut) const;

    const msgblk* GetMessage(unsigned long id, const char* dbName) const;
    const msgblk* GetMessage(unsigned long id, std::nullptr_t) const {
        return GetMessage(id, static_cast<const char*>(nullptr));
    }
    const msgblk* GetMessage(unsigned long id, const char** dbNameOut) const;
    const msgblk* GetMessage(unsigned long id, const TavloSelection& selection) const;
    const msgblk* GetMessage(unsigned long id, const TavloSelection& selection,
                             const char** dbNameOut) const;
    TAVLO_GETMESSAGE_FORWARDERS(const)

    const env_var_blk* GetEnvvar(const char* name, const char* dbName) const;
    const env_var_blk* GetEnvvar(const char* name, std::nullptr_t) const {
        return GetEnvvar(name, static_cast<const char*>(nullptr));
    }
    const env_var_blk* GetEnvvar(const char* name, const char** dbNameOut) const;
    const env_var_blk* GetEnvvar(const char* name, const TavloSelection& selection) const;
    const env_var_blk* GetEnvvar(const char* name, const TavloSelection& selection,
                                 const char** dbNameOut) const;

    const btlblk* GetBitTiming(const unsigned short number, const char* dbName) const;
    const btlblk* GetBitTiming(const unsigned short number, std::nullptr_t) const {
        return GetBitTiming(number, static_cast<const char*>(nullptr));
    }
    const btlblk* GetBitTiming(const unsigned short number, const char** dbNameOut) const;
    const btlblk* GetBitTiming(const unsigned short number,
                               const TavloSelection& selection) const;
    const btlblk* GetBitTiming(const unsigned short number, const TavloSelection& selection,
                               const char** dbNameOut) const;

    const attr_def* GetAttrDefinition(const char* attrName, const char* dbName) const;
    const attr_def* GetAttrDefinition(const char* attrName, std::nullptr_t) const {
        return GetAttrDefinition(attrName, static_cast<const char*>(nullptr));
    }
    const attr_def* GetAttrDefinition(const char* attrName, const char** dbNameOut) const;

    /* Names compared in their first 32 characters. */
    const cat* GetCategory(const char* categoryName, const char* dbName) const;
    const cat* GetCategory(const char* categoryName, std::nullptr_t) const {
        return GetCategory(categoryName, static_cast<const char*>(nullptr));
    }
    const cat* GetCategory(const char* categoryName, const char** dbNameOut) const;

    /* The first two forms compare names in their first 32 characters. */
    const sigtype* GetSignalType(const char* signalTypeName, const char* dbName) const;
    const sigtype* GetSignalType(const char* signalTypeName, std::nullptr_t) const {
        return GetSignalType(signalTypeName, static_cast<const char*>(nullptr));
    }
    const sigtype* GetSignalType(const char* signalTypeName, const char** dbNameOut) const;
    const sigtype* GetSignalType(const char* signalTypeName,
                                 const TavloSelection& selection) const;
    const sigtype* GetSignalType(const char* signalTypeName, const TavloSelection& selection,
                                 const char** dbNameOut) const;

    const valtable* GetValueTable(const char* valueTableName, const char* dbName) const;
    const valtable* GetValueTable(const char* valueTableName, std::nullptr_t) const {
        return GetValueTable(valueTableName, static_cast<const char*>(nullptr));
    }
    const valtable* GetValueTable(const char* valueTableName, const char** dbNameOut) const;
    const valtable* GetValueTable(const char* valueTableName,
                                  const TavloSelection& selection) const;
    const valtable* GetValueTable(const char* valueTableName, const TavloSelection& selection,
                                  const char** dbNameOut) const;

    /* Inside one object; names compared in their first 32 characters. */
    const sigblk* GetSignal(const msgblk& message, const char* signalName) const;
    /* The message's first signal with the mode (multiplexor) flag. */
    const sigblk* GetModeSignal(const msgblk& message) const;
    const siggroupblk* GetSignalGroup(const msgblk& message, const char* signalGroupName) const;
    const sigblk* GetSignal(const siggroupblk& group, const char* signalName) const;
    /* The manager-wide handle of an environment variable (the database's
     * handle base plus its own handle); 0 when none of the databases searched
     * (dbName, or all with null) holds this very record. */
    unsigned long GetEnvvarHandle(const env_var_blk* envvar, const char* dbName) const;

    /* ---- Iterators ----
     * Over one database (dbName) or all of them in list order (null); with a
     * predicate, only the elements it accepts. Per-object iterators made
     * without dbName look up the object's own database for the predicate. */
    TavloIterator<const symblk> GetNodeIterator(const char* dbName) const;
    TavloIterator<const symblk> GetNodeIterator(TavloPredicate<const symblk*>& predicate,
                                                const char* dbName) const;
    TavloIterator<const msgblk> GetMessageIterator(const char* dbName) const;
    TavloIterator<const msgblk> GetMessageIterator(TavloPredicate<const msgblk*>& predicate,
                                                   const char* dbName) const;
    TavloIterator<const env_var_blk> GetEnvvarIterator(const char* dbName) const;
    TavloIterator<const env_var_blk> GetEnvvarIterator(
        TavloPredicate<const env_var_blk*>& predicate, const char* dbName) const;
    TavloIterator<const btlblk> GetBitTimingIterator(const char* dbName) const;
    TavloIterator<const btlblk> GetBitTimingIterator(TavloPredicate<const btlblk*>& predicate,
                                                     const char* dbName) const;
    TavloIterator<const attr_def> GetAttrDefIterator(const char* dbName) const;
    TavloIterator<const attr_def> GetAttrDefIterator(
        TavloPredicate<const attr_def*>& predicate, const char* dbName) const;
    TavloIterator<const sigtype> GetSignalTypeIterator(const char* dbName) const;
    TavloIterator<const sigtype> GetSignalTypeIterator(
        TavloPredicate<const sigtype*>& predicate, const char* dbName) const;
    TavloIterator<const valtable> GetValueTableIterator(const char* dbName) const;
    TavloIterator<const valtable> GetValueTableIterator(
        TavloPredicate<const valtable*>& predicate, const char* dbName) const;
    TavloIterator<const cat> GetCategoryIterator(const char* dbName) const;
    TavloIterator<const cat> GetCategoryIterator(TavloPredicate<const cat*>& predicate,
                                                 const char* dbName) const;
    /* The attribute values of the database itself. */
    TavloIterator<const attr> GetAttributeIterator(const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const char* dbName) const;

    TavloIterator<const sigblk> GetSignalIterator(const msgblk& message) const;
    TavloIterator<const sigblk> GetSignalIterator(const msgblk& message,
                                                  const char* dbName) const;
    TavloIterator<const sigblk> GetSignalIterator(TavloPredicate<const sigblk*>& predicate,
                                                  const msgblk& message) const;
    TavloIterator<const sigblk> GetSignalIterator(TavloPredicate<const sigblk*>& predicate,
                                                  const msgblk& message,
                                                  const char* dbName) const;
    TavloIterator<const siggroupblk> GetSignalGroupIterator(const msgblk& message) const;
    TavloIterator<const siggroupblk> GetSignalGroupIterator(const msgblk& message,
                                                            const char* dbName) const;
    TavloIterator<const siggroupblk> GetSignalGroupIterator(
        TavloPredicate<const siggroupblk*>& predicate, const msgblk& message) const;
    TavloIterator<const siggroupblk> GetSignalGroupIterator(
        TavloPredicate<const siggroupblk*>& predicate, const msgblk& message,
        const char* dbName) const;
    TavloConstSubsignalIterator GetSubsignalIterator(const siggroupblk& group) const;
    TavloConstSubsignalIterator GetSubsignalIterator(const siggroupblk& group,
                                                     const char* dbName) const;
    TavloConstSubsignalIterator GetSubsignalIterator(TavloPredicate<const siglistblk*>& predicate,
                                                     const siggroupblk& group) const;
    TavloConstSubsignalIterator GetSubsignalIterator(TavloPredicate<const siglistblk*>& predicate,
                                                     const siggroupblk& group,
                                                     const char* dbName) const;

    /* Attribute values of one object. */
    TavloIterator<const attr> GetAttributeIterator(const symblk& node, const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(const msgblk& message,
                                                   const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(const env_var_blk& envvar,
                                                   const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(const sigtype& type, const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(const sigblk& signal, const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(const rxblk& relation,
                                                   const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const symblk& node, const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const msgblk& message,
                                                   const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const env_var_blk& envvar,
                                                   const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const sigtype& type, const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const sigblk& signal,
                                                   const char* dbName) const;
    TavloIterator<const attr> GetAttributeIterator(TavloPredicate<const attr*>& predicate,
                                                   const rxblk& relation,
                                                   const char* dbName) const;

    /* Receivers of a signal, access nodes of an environment variable. */
    TavloConstReceiverIterator GetReceiverIterator(const sigblk& signal) const;
    TavloConstReceiverIterator GetReceiverIterator(const sigblk& signal, const char* dbName) const;
    TavloConstReceiverIterator GetReceiverIterator(TavloPredicate<const rxblk*>& predicate,
                                                   const sigblk& signal) const;
    TavloConstReceiverIterator GetReceiverIterator(TavloPredicate<const rxblk*>& predicate,
                                                   const sigblk& signal,
                                                   const char* dbName) const;
    TavloConstReceiverIterator GetReceiverIterator(const env_var_blk& envvar) const;
    TavloConstReceiverIterator GetReceiverIterator(const env_var_blk& envvar,
                                                   const char* dbName) const;
    TavloConstReceiverIterator GetReceiverIterator(TavloPredicate<const rxblk*>& predicate,
                                                   const env_var_blk& envvar) const;
    TavloConstReceiverIterator GetReceiverIterator(TavloPredicate<const rxblk*>& predicate,
                                                   const env_var_blk& envvar,
                                                   const char* dbName) const;
    /* The further transmitters of a message. */
    TavloConstReceiverIterator GetTransmitterIterator(const msgblk& message) const;
    TavloConstReceiverIterator GetTransmitterIterator(const msgblk& message,
                                                      const char* dbName) const;
    TavloConstReceiverIterator GetTransmitterIterator(TavloPredicate<const rxblk*>& predicate,
                                                      const msgblk& message) const;
    TavloConstReceiverIterator GetTransmitterIterator(TavloPredicate<const rxblk*>& predicate,
                                                      const msgblk& message,
                                                      const char* dbName) const;
    TavloIterator<const val> GetValueDescriptionIterator(const sigblk& signal) const;
    TavloIterator<const val> GetValueDescriptionIterator(const sigblk& signal,
                                                         const char* dbName) const;
    TavloIterator<const val> GetValueDescriptionIterator(const env_var_blk& envvar) const;
    TavloIterator<const val> GetValueDescriptionIterator(const env_var_blk& envvar,
                                                         const char* dbName) const;

    TavloDatabaseNameIterator GetDatabaseNameIterator() const;

    /* ---- View filters ----
     * Entries that name no node or category yield the None node or category;
     * an unknown dbName gives an iterator at its end. */
    TavloConstReceiverIterator GetFilterNodeIterator(const char* dbName) const;
    TavloConstFilterCategoryIterator GetFilterCategoryIterator(const char* dbName) const;
    /* Whether the filter holds this very node (the None node matches an
     * entry without node). */
    bool IsNodeInFilter(const symblk& node, const char* dbName) const;
    bool IsCategoryInFilter(const cat& category, const char* dbName) const;

    /* ---- Attributes ----
     * Attribute names are compared in their first 32 characters. dbName null
     * means all databases in list order where a form allows it. */
    /* Whether dbName defines attrName for objects of objectType. */
    bool IsAttributeDefined(const char* attrName, tavlo_obj_t objectType,
                            const char* dbName) const;
    /* The definition's default as it stands (ENUM: the default text); eight
     * zero bytes when not defined. */
    tavlo_attr_value_t GetAttrDefault(const char* attrName, const char* dbName) const;
    /* The default into value (ENUM: its index as a number); TAVLO_STATUS_OK,
     * or TAVLO_STATUS_NOT_DEFINED (value untouched). */
    unsigned int GetAttrDefaultEx(const char* attrName, tavlo_attr_value_t& value,
                                  const char* dbName) const;
    /* Whether the database itself, or an object, has its own value. */
    bool IsAttrValueDefined(const char* attrName, const char* dbName) const;
    bool IsAttrValueDefined(const symblk& node, const char* attrName) const;
    bool IsAttrValueDefined(const msgblk& message, const char* attrName) const;
    bool IsAttrValueDefined(const env_var_blk& envvar, const char* attrName) const;
    bool IsAttrValueDefined(const sigtype& type, const char* attrName) const;
    bool IsAttrValueDefined(const sigblk& signal, const char* attrName) const;
    bool IsAttrValueDefined(const rxblk& relation, const char* attrName) const;
    /* The own value, else the default of the object's own database. */
    tavlo_attr_value_t GetAttrValue(const char* attrName, const char* dbName) const;
    tavlo_attr_value_t GetAttrValue(const symblk& node, const char* attrName) const;
    tavlo_attr_value_t GetAttrValue(const msgblk& message, const char* attrName) const;
    tavlo_attr_value_t GetAttrValue(const env_var_blk& envvar, const char* attrName) const;
    tavlo_attr_value_t GetAttrValue(const sigtype& type, const char* attrName) const;
    tavlo_attr_value_t GetAttrValue(const sigblk& signal, const char* attrName) const;
    tavlo_attr_value_t GetAttrValue(const rxblk& relation, const tavlo_obj_t& relationType,
                                    const char* attrName) const;
    /* The same into value: 0 for an own value, else as GetAttrDefaultEx (the
     * default from dbName, or with null from the object's own database). */
    unsigned int GetAttrValueEx(const char* attrName, tavlo_attr_value_t& value,
                                const char* dbName) const;
    unsigned int GetAttrValueEx(const symblk& node, tavlo_attr_value_t& value,
                                const char* attrName, const char* dbName) const;
    unsigned int GetAttrValueEx(const msgblk& message, tavlo_attr_value_t& value,
                                const char* attrName, const char* dbName) const;
    unsigned int GetAttrValueEx(const env_var_blk& envvar, tavlo_attr_value_t& value,
                                const char* attrName, const char* dbName) const;
    unsigned int GetAttrValueEx(const sigtype& type, tavlo_attr_value_t& value,
                                const char* attrName, const char* dbName) const;
    unsigned int GetAttrValueEx(const sigblk& signal, tavlo_attr_value_t& value,
                                const char* attrName, const char* dbName) const;
    unsigned int GetAttrValueEx(const rxblk& relation, const tavlo_obj_t& relationType,
                                tavlo_attr_value_t& value, const char* attrName,
                                const char* dbName) const;
    /* The index-th text of an ENUM definition (a negative index: the first),
     * allocated: release with TAVLO_MFREE. Null past the last text. */
    char* GetAttrValueString(const attr_def& definition, long index) const;
    char* GetAttrValueString(const char* attrName, long index, const char* dbName) const;
    /* The index of an ENUM text, -1 when it is not one; the by-name form
     * gives 0 when the definition is not found. */
    long GetAttrValueIndex(const attr_def& definition, const char* text) const;
    long GetAttrValueIndex(const char* attrName, const char* text, const char* dbName) const;

    /* ---- Value descriptions ----
     * The text of a raw value, compared on its low 32 bits (status
     * TAVLO_STATUS_OK; none: TAVLO_STATUS_NO_DESCRIPTION_TEXT and null), and
     * the value of a text (TAVLO_STATUS_OK; none:
     * TAVLO_STATUS_NO_DESCRIPTION_VALUE and 0x7FFFFFFF). */
    const char* GetValueDescription(const sigblk& signal, long value) const;
    const char* GetValueDescription(const env_var_blk& envvar, long value) const;
    long GetDescriptionValue(const sigblk& signal, const char* description) const;
    long GetDescriptionValue(const env_var_blk& envvar, const char* description) const;

    /* The database's comment and user data; null (status TAVLO_STATUS_NO_FILE)
     * for an unknown handle. */
    const char* GetDatabaseComment(const char* dbName) const;
    const char* GetUserData(const char* dbName) const;

    /* ---- Counts ----
     * What the matching iterator yields; dbName null counts all databases, an
     * unknown one counts 0. */
    unsigned int DatabaseCount() const;
    unsigned int NodeCount(const char* dbName) const;
    unsigned int MessageCount(const char* dbName) const;
    unsigned int EnvvarCount(const char* dbName) const;
    unsigned int BitTimingCount(const char* dbName) const;
    unsigned int AttrDefinitionCount(const char* dbName) const;
    unsigned int CategoryCount(const char* dbName) const;
    unsigned int SignalTypeCount(const char* dbName) const;
    unsigned int ValueTableCount(const char* dbName) const;
    unsigned int AttributeCount(const char* dbName) const;
    unsigned int SignalCount(const msgblk& message) const;
    unsigned int SignalGroupCount(const msgblk& message) const;
    /* Every member, members without a signal included. */
    unsigned int SignalCount(const siggroupblk& group) const;
    unsigned int AttributeCount(const symblk& node) const;
    unsigned int AttributeCount(const msgblk& message) const;
    unsigned int AttributeCount(const env_var_blk& envvar) const;
    unsigned int AttributeCount(const sigblk& signal) const;

    /* ---- Owning databases ----
     * The handle of the database that holds this very record (found by
     * identity, not by name), or null when none of this manager's does. */
    const char* GetDatabaseName(const symblk& node) const;
    const char* GetDatabaseName(const msgblk& message) const;
    const char* GetDatabaseName(const env_var_blk& envvar) const;
    const char* GetDatabaseName(const attr_def& definition) const;
    const char* GetDatabaseName(const sigtype& type) const;
    const char* GetDatabaseName(const valtable& table) const;
    const char* GetDatabaseName(const sigblk& signal) const;
    const char* GetDatabaseName(const siggroupblk& group) const;
    /* relationType: TAVLO_OBJ_NODE_SIGNAL (receivers), TAVLO_OBJ_NODE_MESSAGE
     * (transmitters) or TAVLO_OBJ_NODE_ENVVAR (access nodes); any other type
     * is a programming error (assertion). */
    const char* GetDatabaseName(const rxblk& relation, const tavlo_obj_t& relationType) const;

    /* ---- Signal values in frame data ----
     * Bit b of a frame is bit b mod 8 of byte b div 8. An Intel signal
     * (flags without TAVLO_SIG_MOTOROLA) starts at its least significant bit
     * and runs upwards; a Motorola signal starts at its most significant bit
     * and runs down, from bit 0 of a byte on to bit 7 of the next. The
     * message's dlc is not consulted: hand in at least 8 bytes, and enough
     * for any field that lies further. Results are the TAVLO_SIGNAL_* codes of
     * codec.h. */

    /* The raw bit field, at most 32 bits of it. */
    static unsigned int ExtractLong(const unsigned char* data, unsigned short startBit,
                                    unsigned short length, bool motorola);
    /* The field as a little-endian byte image (5 bytes up to 32 bits, 9 up to
     * 64, 13 up to 89, the last byte zero), allocated: release with
     * TAVLO_MFREE. Null for 90 bits or more, or when memory runs out. */
    static unsigned char* ExtractString(const unsigned char* data, unsigned short startBit,
                                        unsigned short length, bool motorola);
    /* Writes the low length bits of the little-endian value image into the
     * field; every other bit of data stays as it was. */
    static void IncorporateValue(const unsigned char* value, unsigned short startBit,
                                 unsigned short length, bool motorola, unsigned char* data);

    /* The raw value, sign-extended to 32 bits for a signed signal. Returns
     * TAVLO_SIGNAL_OK, _TOO_LONG (signed and longer than 32 bits; raw holds
     * the field) or _NOT_PRESENT (absent multiplexed signal; raw holds the
     * value all the same). */
    unsigned int GetSignalRawValue(const unsigned char* data, const sigblk& signal,
                                   const msgblk& message, unsigned int& raw) const;
    /* The value of a float or double signal. Returns TAVLO_SIGNAL_OK,
     * _NOT_EXTRACTED, _WRONG_TYPE (integer signal) or _NOT_PRESENT. */
    unsigned int GetSignalRawValue(const unsigned char* data, const sigblk& signal,
                                   const msgblk& message, double& raw) const;
    /* Writes a raw value (negative values of a signed signal in two's
     * complement). The bits are written before TAVLO_SIGNAL_TOO_LONG (longer
     * than 32 bits) or _NOT_PRESENT (absent multiplexed signal) is returned. */
    unsigned int SetSignalRawValue(unsigned char* data, const sigblk& signal,
                                   const msgblk& message, unsigned int raw) const;
    /* Writes a float (32 bits) or double (64 bits) signal; TAVLO_SIGNAL_
     * WRONG_TYPE for an integer signal, whose field gets the low bits of the
     * double's image. */
    unsigned int SetSignalRawValue(unsigned char* data, const sigblk& signal,
                                   const msgblk& message, double raw) const;
    /* Writes the low length bits of a little-endian value image. */
    unsigned int SetSignalRawValue(unsigned char* data, const sigblk& signal,
                                   const msgblk& message, const unsigned char* rawBytes) const;
    /* Whether the signal is in this frame: not multiplexed, or the message's
     * mode signal holds its mode_value. */
    bool CheckSignalModeValue(const unsigned char* data, const sigblk& signal,
                              const msgblk& message) const;

    /* ---- Raw and physical values ----
     * physical = raw * factor + offset. A range of [0, 0] is no range;
     * otherwise a physical value outside [minimum, maximum] gives
     * TAVLO_SIGNAL_OUT_OF_RANGE, and the converted value is stored all the
     * same. */
    unsigned int RawToPhysicalValue(unsigned int raw, const sigblk& signal,
                                    double& physical) const;
    unsigned int RawToPhysicalValue(double raw, const sigblk& signal, double& physical) const;
    /* Rounded half away from zero; the low 32 bits of the result. */
    unsigned int PhysicalToRawValue(double physical, const sigblk& signal,
                                    unsigned int& raw) const;
    unsigned int PhysicalToRawValue(double physical, const sigblk& signal, double& raw) const;
    /* Reads the raw value and converts it: the read's code unless
     * TAVLO_SIGNAL_OK, else the conversion's. */
    unsigned int GetSignalValue(const unsigned char* data, const sigblk& signal,
                                const msgblk& message, unsigned int& raw,
                                double& physical) const;
    unsigned int GetSignalValue(const unsigned char* data, const sigblk& signal,
                                const msgblk& message, double& raw, double& physical) const;
    /* The physical value of any signal (integer, float or double). */
    unsigned int GetSignalPhysicalValue(const unsigned char* data, const sigblk& signal,
                                        const msgblk& message, double& physical) const;
    /* Converts and writes; a value out of range is written and gives
     * TAVLO_SIGNAL_OUT_OF_RANGE. */
    unsigned int SetSignalPhysicalValue(unsigned char* data, const sigblk& signal,
                                        const msgblk& message, double physical) const;
    /* The value as text in one of the TavloSigvalueFormat formats, allocated
     * into text (release with TAVLO_MFREE; null when nothing was made).
     * formatString, when not null, replaces the default format of
     * SigvalueRawDec, SigvalueRawHex, SigvaluePhys and SigvaluePhysUnit (it is
     * given an int, an unsigned int, a double, or a double and the unit). */
    unsigned int GetSignalValue(const unsigned char* data, const sigblk& signal,
                                const msgblk& message, char*& text, TavloSigvalueFormat format,
                                const char* formatString) const;

    /* Tells every manager that has db open that it changed: a broadcast to
     * all top-level windows, then the sender, then every other manager. */
    static void NotifyChanges(const TavloManager& sender, const TavloDatabase& db);
    /* Posts the notification to this manager's window or thread once for
     * each of its entries of the same file. */
    void NotifyChanges(const TavloDatabase& db, const TavloManager& sender) const;

    /* ---- The layer's own list primitives ---- */

    /* Inserts behind every entry of greater or equal priority. A priority
     * greater than the head's starts a new list: the entries that were
     * listed drop out (their databases stay open). Deliberate. */
    void ListInsertDatabase(TavloDatabase& db, const char* name, unsigned int priority);
    /* Removes the first entry of db; the handle total is reset only when
     * nothing matched and the list is empty. */
    void ListRemoveDatabase(TavloDatabase& db);
    /* Removes every entry; handle total 0. */
    void ListRemoveDatabase();
    /* The entry (database) of a handle. One process-wide memo remembers the
     * last entry found. */
    DbListNode* ListFindNode(const char* dbName) const;
    TavloDatabase* ListFindDatabase(const char* dbName) const;
    /* The handle of the first entry whose database is the file at path. */
    const char* ListFindDatabaseName(const char* path) const;
    const DbListNode* ListFirstNode() const { return mDatabases; }
    static const DbListNode* ListNextNode(const DbListNode* node) {
        return node != nullptr ? node->mNext : nullptr;
    }
    void CacheInsertDatabase(TavloDatabase& db);
    void CacheRemoveDatabase(TavloDatabase& db);
    TavloDatabase* CacheFindDatabase(const char* path) const;
    static MngrListNode* GetManagersList();
    static void ListInsertMngr(TavloManager* manager);
    static void ListRemoveMngr(TavloManager* manager);

protected:
    friend struct TavloManagerAccess;  /* the layer's own helpers */

    /* Locks every database with lock(), as LockAllDatabases describes. */
    bool LockEach(const char* user,
                  TavloLock* (*lock)(TavloManager&, const char*, const char*));

    unsigned int mThreadId;
    HWND mWindow;
    mutable unsigned int mStatus;
    unsigned int mHandleTotal;
    DbListNode* mDatabases;
    DbCacheNode* mCache;
};

TAVLO_END_VISIBLE

#if defined(TAVLO_GETMESSAGE_IS_A_MACRO)
#  pragma pop_macro("GetMessage")
#endif

#endif /* __cplusplus */

#endif /* TAVLOMS_MANAGER_H */
