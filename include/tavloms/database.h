/* tavloms/database.h: the shared database object and the status values of
 * the class interface.
 *
 * One TavloDatabase holds one opened database file in memory; every manager
 * of the process that opens the same file shares it. Nothing here is guarded
 * against threads. C++ only; in C this header declares nothing. Included by
 * manager.h. */
#ifndef TAVLOMS_DATABASE_H
#define TAVLOMS_DATABASE_H

#include "platform.h"
#include "records.h"

#ifdef __cplusplus

#if defined(TAVLO_GETMESSAGE_IS_A_MACRO)
#  pragma push_macro("GetMessage")
#  undef GetMessage
#endif

TAVLO_BEGIN_VISIBLE

/* Status values of the class interface. */
enum : unsigned int {
    TAVLO_STATUS_OK = 0,
    TAVLO_STATUS_UNKNOWN_NAME = 1,   /* database name not known to this manager */
    TAVLO_STATUS_NO_FILE = 2,        /* file does not exist, or database without a path;
                                        also: lookup found nothing */
    TAVLO_STATUS_NAME_USED = 3,      /* database name already used in this manager */
    TAVLO_STATUS_ALREADY_OPEN = 4,   /* file already open in this manager */
    TAVLO_STATUS_OPEN_FOR_WRITE = 5, /* file open in another write manager */
    TAVLO_STATUS_INVALID_NAME = 7,   /* not a valid database name */
    TAVLO_STATUS_READ_ONLY = 8,      /* file is read-only */
    TAVLO_STATUS_WRITE_FAILED = 9,   /* writing the file failed */
    TAVLO_STATUS_PATH_TAKEN = 10,    /* path belongs to another shared database object */
    TAVLO_STATUS_LOCKED = 11,        /* another manager holds a lock */

    /* The same numbers where other operations give them another meaning. */
    TAVLO_STATUS_CONVERSION_FAILED = 1,    /* a converter module failed */
    TAVLO_STATUS_NO_DESCRIPTION_VALUE = 3, /* no value description bears the text */
    TAVLO_STATUS_NO_DESCRIPTION_TEXT = 4,  /* no value description for the value */
    TAVLO_STATUS_NOT_DEFINED = 5           /* no such attribute definition */
};

class TavloManager;

/* One opened database file in memory, shared by every manager of the process
 * that opens the same file (same full path, compared without regard to case).
 * Records and texts are owned by the object and released with TAVLO_FREE. */
class TAVLO_API TavloDatabase {
public:
    /* Empty: counters 1 and 0, user data "", no path. */
    TavloDatabase();
    /* Reads the file at path (when not null). A failed read has shown its
     * message; the object keeps what was read up to the error. */
    explicit TavloDatabase(const char* path);
    /* Deep copies (counters 1 and 0). Throw std::bad_alloc when memory runs
     * out; an assignment then leaves the target as it was. */
    TavloDatabase(const TavloDatabase& other);
    TavloDatabase& operator=(const TavloDatabase& other);
    virtual ~TavloDatabase();

    /* Same file: IsPathEqual(other.mDbPath). */
    bool operator==(const TavloDatabase& other) const;

    /* ---- The process-wide list of shared objects ---- */

    /* The listed object for path, with one more reference (and one cache
     * count less if it had any); else a new object read from path and listed.
     * A null path gives a new empty listed object. */
    static TavloDatabase* CreateDatabase(const char* path);
    /* Gives up one reference. keepInCache turns it into a cache count;
     * otherwise the object is unlisted and deleted when that was its last
     * reference and no cache count is left. Counts are the object's, not a
     * manager's: a manager whose cached object is deleted that way (another
     * manager opened the file, taking the cache count, and closed it) loses
     * the cache entry. */
    static void DestroyDatabase(TavloDatabase& db, bool keepInCache);
    /* Deletes every listed object without references, cached or not; the
     * managers' cache entries for them are dropped. */
    static void ReleaseCache();
    static void ListInsertDb(TavloDatabase* db);
    static void ListRemoveDb(TavloDatabase* db);
    /* The first listed object for the file (path must not be null). */
    static TavloDatabase* ListFindDb(const char* path);

    /* ---- The object ---- */

    /* Whether path names this object's file: both full paths, compared
     * without regard to case; false when either path is null. */
    bool IsPathEqual(const char* path) const;
    /* Reads the file again into this object (TAVLO_STATUS_NO_FILE without a
     * path, else TAVLO_STATUS_OK);
     * every manager sharing the object sees the new contents. */
    unsigned int ReopenDatabaseFile();
    /* Releases every record and text; path and counters stay. */
    void Clear();
    /* Copies this object into the first listed object of the same file,
     * when that is another object. */
    void Commit();
    /* Writes the file: to path (which becomes the object's path), or with a
     * null path to the own path. Returns TAVLO_STATUS_OK, _NO_FILE (no path),
     * _READ_ONLY, _WRITE_FAILED or _PATH_TAKEN (path belongs to another
     * listed object). */
    unsigned int Write(const char* path);
    /* Replaces the comment by a copy (null removes it). */
    void SetComment(const char* text);
    /* Replaces the user data (the file's version text) by a copy; text must
     * not be null. */
    void SetUserData(const char* text);
    /* The largest environment variable handle, 0 for none. */
    unsigned int GetMaxEnvvarHandle() const;
    /* The name the database proposes for itself: its string attribute
     * "DBName" (value, else default), else its file name without directory
     * and extension, made into a valid name. Allocated: release with
     * TAVLO_MFREE. Null when memory runs out. */
    char* GetDefaultName() const;
    /* The lists as a database root, for the flat functions; shared with this
     * object, not copied. */
    tavlo_root_t Root() const;

    /* ---- Records by kind ----
     * Get finds by name (names must not be null) or key; Create makes an empty
     * record at position index of the list (0: the head; past the end:
     * appended), null when memory runs out; Delete unlinks and releases. */
    symblk* GetNode(const char* name) const;
    msgblk* GetMessage(const char* name) const;
    msgblk* GetMessage(unsigned long id) const;
    TAVLO_GETMESSAGE_FORWARDERS(const)
    env_var_blk* GetEnvvar(const char* name) const;
    btlblk* GetBitTiming(unsigned short number) const;
    valtable* GetValueTable(const char* name) const;
    sigtype* GetSignalType(const char* name) const;
    attr_def* GetAttrDef(const char* name) const;

    symblk* CreateNode(unsigned int index);
    msgblk* CreateMessage(unsigned int index);
    env_var_blk* CreateEnvvar(unsigned int index);
    btlblk* CreateBitTiming(unsigned int index);
    valtable* CreateValueTable(unsigned int index);
    sigtype* CreateSignalType(unsigned int index);
    cat* CreateCategory(unsigned int index);
    attr_def* CreateAttrDef(unsigned int index);

    void DeleteNode(symblk& node);
    void DeleteMessage(msgblk& message);
    void DeleteEnvvar(env_var_blk& envvar);
    void DeleteBitTiming(btlblk& timing);
    void DeleteValueTable(valtable& table);
    void DeleteSignalType(sigtype& type);
    void DeleteCategory(cat& category);
    void DeleteAttrDef(attr_def& def);

    unsigned int mRefCount;   /* open references held by managers */
    unsigned int mCacheCount; /* manager caches keeping the object while not open */
    char* mDbPath;            /* the path as the opener gave it, or null */
    symblk* mNodes;
    msgblk* mMessages;
    env_var_blk* mEnvvars;
    btlblk* mBitTimings;
    attr_def* mAttrDefs;
    attr* mDbAttrs;           /* attribute values of the database itself */
    cat* mCategories;
    filter_t mFilter;         /* view filter: categories, nodes, filter word */
    char* mComment;           /* or null */
    char* mUserData;          /* the file's version text; "" when new */
    sigtype* mSigTypes;
    valtable* mValueTables;

private:
    void Adopt(const tavlo_root_t& root);
    void ReadFile();
};

TAVLO_END_VISIBLE

#if defined(TAVLO_GETMESSAGE_IS_A_MACRO)
#  pragma pop_macro("GetMessage")
#endif

#endif /* __cplusplus */

#endif /* TAVLOMS_DATABASE_H */
