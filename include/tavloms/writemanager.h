/* tavloms/writemanager.h: TavloWriteManager, the manager through which a
 * client edits databases.
 *
 * It opens files as a read manager does (other managers share the same
 * objects and see edits in memory at once), but only one write manager of the
 * process may have a given file open. It creates databases, creates and
 * deletes objects, links signals, receivers, transmitters and access nodes,
 * sets attribute values, value descriptions, comments and view filters, and
 * writes and commits databases, telling every manager that has the file open.
 * Its lookups and iterators are those of TavloManager with non-const
 * results. Status values are the TAVLO_STATUS_* of manager.h. C++ only. */
#ifndef TAVLOMS_WRITEMANAGER_H
#define TAVLOMS_WRITEMANAGER_H

#include "manager.h"

#ifdef __cplusplus

#include <cstddef>

#if defined(TAVLO_GETMESSAGE_IS_A_MACRO)
#  pragma push_macro("GetMessage")
#  undef GetMessage
#endif

class TAVLO_API TavloWriteManager : public TavloManager {
public:
    explicit TavloWriteManager(void* threadId);
    explicit TavloWriteManager(HWND window);
    /* Empties the cache and releases every database without caching. */
    ~TavloWriteManager() override;

    /* Write lock on one database (dbName must not be null); false when any
     * lock of another manager is in the way (its holder's text has been
     * shown) or the name is unknown. */
    bool LockDatabase(const char* dbName, const char* user) override;
    /* Write-locks every database in list order, stopping at the first
     * refusal, which frees all of this manager's locks and gives false. */
    bool LockAllDatabases(const char* user) override;
    /* TAVLO_STATUS_OPEN_FOR_WRITE when another write manager has the file
     * open, else TAVLO_STATUS_OK. */
    unsigned int CheckForWriteOpen(const char* path) const override;
    /* Whether one of this manager's databases is the file at path. */
    bool OwnsDatabaseForWrite(const char* path) const override;

    /* ---- Databases ---- */

    /* A new empty database under dbName (a valid, unused name; priority 0),
     * to be written to path later (path may be null). *dbNameOut (if not
     * null) receives the handle. Returns TAVLO_STATUS_OK, _NAME_USED,
     * _INVALID_NAME, or _PATH_TAKEN when something exists at path. */
    unsigned int CreateDatabase(const char* dbName, const char** dbNameOut, const char* path);
    /* Writes one database (to path, which becomes its path, or with a null
     * path to its own), or every database to its own path with a null
     * handle, then tells every manager that has it open. Returns
     * TAVLO_STATUS_OK, _NO_FILE, _READ_ONLY, _WRITE_FAILED (also for an
     * unknown handle), _PATH_TAKEN, or _LOCKED when another manager holds a
     * lock on a database (its holder's text has been shown; nothing is
     * written). With a null handle the first failure is returned and the
     * others are still written. */
    unsigned int WriteDatabase(const char* dbName, const char* path);
    /* Copies one database (or all, with null) into other objects of the same
     * file and tells every manager that has it open. */
    void CommitDatabase(const char* dbName);
    /* Releases every record of one database (or all, with null); the path
     * stays. Nobody is told. */
    void ClearDatabase(const char* dbName);

    /* ---- Objects of a database ----
     * Create makes an empty record at position index of the kind's list (0:
     * the head; past the end: appended); null for an unknown handle or when
     * memory runs out. Delete unlinks and releases a record of the database
     * dbName; with a null handle the database that holds the record is
     * searched, except for nodes, which need a handle (deliberate). */
    symblk* CreateNode(const char* dbName, unsigned int index);
    msgblk* CreateMessage(const char* dbName, unsigned int index);
    env_var_blk* CreateEnvvar(const char* dbName, unsigned int index);
    btlblk* CreateBitTiming(const char* dbName, unsigned int index);
    cat* CreateCategory(const char* dbName, unsigned int index);
    sigtype* CreateSignalType(const char* dbName, unsigned int index);
    valtable* CreateValueTable(const char* dbName, unsigned int index);
    attr_def* CreateAttrDefinition(const char* dbName, unsigned int index);

    void DeleteNode(symblk& node, const char* dbName);
    void DeleteMessage(msgblk& message, const char* dbName);
    void DeleteEnvvar(env_var_blk& envvar, const char* dbName);
    void DeleteBitTiming(btlblk& timing, const char* dbName);
    void DeleteCategory(cat& category, const char* dbName);
    void DeleteSignalType(sigtype& type, const char* dbName);
    void DeleteValueTable(valtable& table, const char* dbName);
    void DeleteAttrDefinition(attr_def& definition, const char* dbName);

    /* ---- Objects inside a message, signal group, signal or variable ---- */

    /* A new signal at position index of the message's signals; the
     * message's signal count goes up by one. Null when memory runs out. */
    sigblk* CreateSignal(msgblk& message, unsigned int index);
    /* Unlinks and releases a signal of the message. */
    void DeleteSignal(sigblk& signal, msgblk& message);
    /* A new signal group at position index of the message's groups. */
    siggroupblk* CreateSignalGroup(msgblk& message, unsigned int index);
    void DeleteSignalGroup(siggroupblk& group, msgblk& message);
    /* Adds a member at the head of the group (no duplicate check); removes
     * every member naming the signal. */
    void AddSignal(siggroupblk& group, const sigblk& signal);
    void RemoveSignal(siggroupblk& group, const sigblk& signal);
    /* Adds a receiver at the head (count + 1, no duplicate check); removes
     * every receiver naming the node (count - 1 each). */
    void AddReceiver(sigblk& signal, const symblk& node);
    void RemoveReceiver(sigblk& signal, const symblk& node);
    /* Further transmitters of a message; no count. */
    void AddTransmitter(msgblk& message, const symblk& node);
    void RemoveTransmitter(msgblk& message, const symblk& node);
    /* Adds an access node at the head (count + 1). */
    void AddAccessNode(env_var_blk& envvar, const symblk& node);

    /* ---- Attribute values ----
     * Set: the first own value of attrName (first 32 characters) is replaced
     * (a STRING value by a copy of the given text); otherwise a value is
     * added when the object's own database defines attrName. No range or
     * type check. Reset: the first own value of attrName is removed. Both
     * say whether they changed anything. */
    bool SetAttrValue(const char* attrName, const char* dbName, const tavlo_attr_value_t value);
    bool SetAttrValue(symblk& node, const char* attrName, const tavlo_attr_value_t value);
    bool SetAttrValue(msgblk& message, const char* attrName, const tavlo_attr_value_t value);
    bool SetAttrValue(env_var_blk& envvar, const char* attrName, const tavlo_attr_value_t value);
    bool SetAttrValue(sigtype& type, const char* attrName, const tavlo_attr_value_t value);
    bool SetAttrValue(sigblk& signal, const char* attrName, const tavlo_attr_value_t value);
    bool ResetAttrValue(const char* attrName, const char* dbName);
    bool ResetAttrValue(symblk& node, const char* attrName);
    bool ResetAttrValue(msgblk& message, const char* attrName);
    bool ResetAttrValue(env_var_blk& envvar, const char* attrName);
    bool ResetAttrValue(sigtype& type, const char* attrName);
    bool ResetAttrValue(sigblk& signal, const char* attrName);

    /* ---- Value descriptions, comments, user data ---- */

    /* Record by record from the head: a record with this text gets the
     * value, else a record with this value gets the text; none: a new record
     * at the head. */
    void SetValueDescription(sigblk& signal, const char* description, long value);
    void SetValueDescription(env_var_blk& envvar, const char* description, long value);
    /* The database's comment (a copy; null removes it). */
    void SetDatabaseComment(const char* comment, const char* dbName);
    /* An object's comment (a copy; null removes it); returns the stored copy. */
    const char* SetComment(symblk& node, const char* comment);
    const char* SetComment(msgblk& message, const char* comment);
    const char* SetComment(env_var_blk& envvar, const char* comment);
    const char* SetComment(sigtype& type, const char* comment);
    const char* SetComment(sigblk& signal, const char* comment);
    /* The database's user data (its version text); returns the stored copy,
     * null for an unknown handle. */
    const char* SetUserData(const char* data, const char* dbName);

    /* ---- View filters ----
     * Add puts an entry at the head (the None node or category is stored as
     * an entry naming none); Remove takes out every entry holding exactly the
     * argument (passing None does not remove the entries naming none). */
    void AddFilterNode(symblk& node, const char* dbName);
    void AddFilterCategory(cat& category, const char* dbName);
    void RemoveFilterNode(symblk& node, const char* dbName);
    void RemoveFilterCategory(cat& category, const char* dbName);

    /* ---- Lookups and iterators with non-const results ----
     * As TavloManager's, with the same arguments and statuses, but the
     * records they give may be edited. The using-declarations keep the read
     * manager's const forms: a const write manager, a const object or a
     * predicate over const records chooses those. */
    using TavloManager::GetNode;
    using TavloManager::GetMessage;
    using TavloManager::GetEnvvar;
    using TavloManager::GetBitTiming;
    using TavloManager::GetAttrDefinition;
    using TavloManager::GetCategory;
    using TavloManager::GetSignalType;
    using TavloManager::GetValueTable;
    using TavloManager::GetSignal;
    using TavloManager::GetModeSignal;
    using TavloManager::GetSignalGroup;
    using TavloManager::GetNodeIterator;
    using TavloManager::GetMessageIterator;
    using TavloManager::GetEnvvarIterator;
    using TavloManager::GetBitTimingIterator;
    using TavloManager::GetAttrDefIterator;
    using TavloManager::GetSignalTypeIterator;
    using TavloManager::GetValueTableIterator;
    using TavloManager::GetCategoryIterator;
    using TavloManager::GetAttributeIterator;
    using TavloManager::GetSignalIterator;
    using TavloManager::GetSignalGroupIterator;
    using TavloManager::GetSubsignalIterator;
    using TavloManager::GetReceiverIterator;
    using TavloManager::GetTransmitterIterator;
    using TavloManager::GetValueDescriptionIterator;
    using TavloManager::GetFilterNodeIterator;
    using TavloManager::GetFilterCategoryIterator;

    /* Lookups across databases: (key, dbName), (key, &dbNameOut),
     * (key, selection) and (key, selection, &dbNameOut) where the read
     * manager has them. */
    symblk* GetNode(const char* name, const char* dbName);
    symblk* GetNode(const char* name, std::nullptr_t) {
        return GetNode(name, static_cast<const char*>(nullptr));
    }
    symblk* GetNode(const char* name, const char** dbNameOut);
    symblk* GetNode(const char* name, const TavloSelection& selection);
    symblk* GetNode(const char* name, const TavloSelection& selection, const char** dbNameOut);

    msgblk* GetMessage(const char* name, const char* dbName);
    msgblk* GetMessage(const char* name, std::nullptr_t) {
        return GetMessage(name, static_cast<const char*>(nullptr));
    }
    msgblk* GetMessage(const char* name, const char** dbNameOut);
    msgblk* GetMessage(const char* name, const TavloSelection& selection);
    msgblk* GetMessage(const char* name, const TavloSelection& selection,
                       const char** dbNameOut);

    msgblk* GetMessage(unsigned long id, const char* dbName);
    msgblk* GetMessage(unsigned long id, std::nullptr_t) {
        return GetMessage(id, static_cast<const char*>(nullptr));
    }
    msgblk* GetMessage(unsigned long id, const char** dbNameOut);
    msgblk* GetMessage(unsigned long id, const TavloSelection& selection);
    msgblk* GetMessage(unsigned long id, const TavloSelection& selection,
                       const char** dbNameOut);
    TAVLO_GETMESSAGE_FORWARDERS()
    TAVLO_GETMESSAGE_FORWARDERS(const)

    env_var_blk* GetEnvvar(const char* name, const char* dbName);
    env_var_blk* GetEnvvar(const char* name, std::nullptr_t) {
        return GetEnvvar(name, static_cast<const char*>(nullptr));
    }
    env_var_blk* GetEnvvar(const char* name, const char** dbNameOut);
    env_var_blk* GetEnvvar(const char* name, const TavloSelection& selection);
    env_var_blk* GetEnvvar(const char* name, const TavloSelection& selection,
                           const char** dbNameOut);

    btlblk* GetBitTiming(const unsigned short number, const char* dbName);
    btlblk* GetBitTiming(const unsigned short number, std::nullptr_t) {
        return GetBitTiming(number, static_cast<const char*>(nullptr));
    }
    btlblk* GetBitTiming(const unsigned short number, const char** dbNameOut);
    btlblk* GetBitTiming(const unsigned short number, const TavloSelection& selection);
    btlblk* GetBitTiming(const unsigned short number, const TavloSelection& selection,
                         const char** dbNameOut);

    attr_def* GetAttrDefinition(const char* attrName, const char* dbName);
    attr_def* GetAttrDefinition(const char* attrName, std::nullptr_t) {
        return GetAttrDefinition(attrName, static_cast<const char*>(nullptr));
    }
    attr_def* GetAttrDefinition(const char* attrName, const char** dbNameOut);

    cat* GetCategory(const char* categoryName, const char* dbName);
    cat* GetCategory(const char* categoryName, std::nullptr_t) {
        return GetCategory(categoryName, static_cast<const char*>(nullptr));
    }
    cat* GetCategory(const char* categoryName, const char** dbNameOut);

    sigtype* GetSignalType(const char* signalTypeName, const char* dbName);
    sigtype* GetSignalType(const char* signalTypeName, std::nullptr_t) {
        return GetSignalType(signalTypeName, static_cast<const char*>(nullptr));
    }
    sigtype* GetSignalType(const char* signalTypeName, const char** dbNameOut);
    sigtype* GetSignalType(const char* signalTypeName, const TavloSelection& selection);
    sigtype* GetSignalType(const char* signalTypeName, const TavloSelection& selection,
                           const char** dbNameOut);

    valtable* GetValueTable(const char* valueTableName, const char* dbName);
    valtable* GetValueTable(const char* valueTableName, std::nullptr_t) {
        return GetValueTable(valueTableName, static_cast<const char*>(nullptr));
    }
    valtable* GetValueTable(const char* valueTableName, const char** dbNameOut);
    valtable* GetValueTable(const char* valueTableName, const TavloSelection& selection);
    valtable* GetValueTable(const char* valueTableName, const TavloSelection& selection,
                            const char** dbNameOut);

    /* Lookups inside one object. */
    sigblk* GetSignal(msgblk& message, const char* signalName);
    sigblk* GetModeSignal(msgblk& message);
    siggroupblk* GetSignalGroup(msgblk& message, const char* signalGroupName);
    sigblk* GetSignal(siggroupblk& group, const char* signalName);

    /* Database-wide iterators: one database, or all in list order with null. */
    TavloIterator<symblk> GetNodeIterator(const char* dbName);
    TavloIterator<symblk> GetNodeIterator(TavloPredicate<symblk*>& predicate,
                                          const char* dbName);
    TavloIterator<msgblk> GetMessageIterator(const char* dbName);
    TavloIterator<msgblk> GetMessageIterator(TavloPredicate<msgblk*>& predicate,
                                             const char* dbName);
    TavloIterator<env_var_blk> GetEnvvarIterator(const char* dbName);
    TavloIterator<env_var_blk> GetEnvvarIterator(TavloPredicate<env_var_blk*>& predicate,
                                                 const char* dbName);
    TavloIterator<btlblk> GetBitTimingIterator(const char* dbName);
    TavloIterator<btlblk> GetBitTimingIterator(TavloPredicate<btlblk*>& predicate,
                                               const char* dbName);
    TavloIterator<attr_def> GetAttrDefIterator(const char* dbName);
    TavloIterator<attr_def> GetAttrDefIterator(TavloPredicate<attr_def*>& predicate,
                                               const char* dbName);
    TavloIterator<sigtype> GetSignalTypeIterator(const char* dbName);
    TavloIterator<sigtype> GetSignalTypeIterator(TavloPredicate<sigtype*>& predicate,
                                                 const char* dbName);
    TavloIterator<valtable> GetValueTableIterator(const char* dbName);
    TavloIterator<valtable> GetValueTableIterator(TavloPredicate<valtable*>& predicate,
                                                  const char* dbName);
    TavloIterator<cat> GetCategoryIterator(const char* dbName);
    TavloIterator<cat> GetCategoryIterator(TavloPredicate<cat*>& predicate, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                             const char* dbName);

    /* Per-object iterators; made without dbName, they tell the predicate the
     * object's own database. */
    TavloIterator<sigblk> GetSignalIterator(msgblk& message);
    TavloIterator<sigblk> GetSignalIterator(msgblk& message, const char* dbName);
    TavloIterator<sigblk> GetSignalIterator(TavloPredicate<sigblk*>& predicate,
                                            msgblk& message);
    TavloIterator<sigblk> GetSignalIterator(TavloPredicate<sigblk*>& predicate,
                                            msgblk& message, const char* dbName);
    TavloIterator<siggroupblk> GetSignalGroupIterator(msgblk& message);
    TavloIterator<siggroupblk> GetSignalGroupIterator(msgblk& message, const char* dbName);
    TavloIterator<siggroupblk> GetSignalGroupIterator(
        TavloPredicate<siggroupblk*>& predicate, msgblk& message);
    TavloIterator<siggroupblk> GetSignalGroupIterator(
        TavloPredicate<siggroupblk*>& predicate, msgblk& message, const char* dbName);
    TavloSubsignalIterator GetSubsignalIterator(siggroupblk& group);
    TavloSubsignalIterator GetSubsignalIterator(siggroupblk& group, const char* dbName);
    TavloSubsignalIterator GetSubsignalIterator(TavloPredicate<siglistblk*>& predicate,
                                                siggroupblk& group);
    TavloSubsignalIterator GetSubsignalIterator(TavloPredicate<siglistblk*>& predicate,
                                                siggroupblk& group, const char* dbName);

    TavloIterator<attr> GetAttributeIterator(symblk& node, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(msgblk& message, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(env_var_blk& envvar, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(sigtype& type, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(sigblk& signal, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(rxblk& relation, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate, symblk& node,
                                             const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                             msgblk& message, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                             env_var_blk& envvar, const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate, sigtype& type,
                                             const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate, sigblk& signal,
                                             const char* dbName);
    TavloIterator<attr> GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                             rxblk& relation, const char* dbName);

    TavloReceiverIterator GetReceiverIterator(sigblk& signal);
    TavloReceiverIterator GetReceiverIterator(sigblk& signal, const char* dbName);
    TavloReceiverIterator GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                              sigblk& signal);
    TavloReceiverIterator GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                              sigblk& signal, const char* dbName);
    TavloReceiverIterator GetReceiverIterator(env_var_blk& envvar);
    TavloReceiverIterator GetReceiverIterator(env_var_blk& envvar, const char* dbName);
    TavloReceiverIterator GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                              env_var_blk& envvar);
    TavloReceiverIterator GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                              env_var_blk& envvar, const char* dbName);
    TavloReceiverIterator GetTransmitterIterator(msgblk& message);
    TavloReceiverIterator GetTransmitterIterator(msgblk& message, const char* dbName);
    TavloReceiverIterator GetTransmitterIterator(TavloPredicate<rxblk*>& predicate,
                                                 msgblk& message);
    TavloReceiverIterator GetTransmitterIterator(TavloPredicate<rxblk*>& predicate,
                                                 msgblk& message, const char* dbName);
    TavloIterator<val> GetValueDescriptionIterator(sigblk& signal);
    TavloIterator<val> GetValueDescriptionIterator(sigblk& signal, const char* dbName);
    TavloIterator<val> GetValueDescriptionIterator(env_var_blk& envvar);
    TavloIterator<val> GetValueDescriptionIterator(env_var_blk& envvar, const char* dbName);

    /* View filters; an unknown dbName gives an iterator at its end. */
    TavloReceiverIterator GetFilterNodeIterator(const char* dbName);
    TavloFilterCategoryIterator GetFilterCategoryIterator(const char* dbName);
};

#if defined(TAVLO_GETMESSAGE_IS_A_MACRO)
#  pragma pop_macro("GetMessage")
#endif

#endif /* __cplusplus */

#endif /* TAVLOMS_WRITEMANAGER_H */
