// manager/lookup.cpp: finding one record by name or key across a manager's
// databases (one of them, all in list order, or by selection pattern), the
// selection patterns and priorities of the entries, and lookups inside one
// message or signal group.
#include <type_traits>
#include <utility>

#include "manager/access.h"
#include "platform/platform.h"
#include "tavloms/manager.h"

namespace {

constexpr const char* kModule = "dbmsread";

constexpr unsigned int kAnyMajor = 0xFFFFFFFFu;
constexpr unsigned short kAnyMinor = 0xFFFFu;

// What an unknown handle's pattern reads as, in every manager.
const TavloSelectionPattern gWildcardPattern = {kAnyMajor, kAnyMinor};

void SetStatus(const TavloManager& manager, unsigned int status) {
    TavloManagerAccess::SetStatus(manager, status);
}

// A record found, and the entry whose database holds it (both null for none).
template <class Record>
struct Hit {
    Record* record;
    const DbListNode* entry;
};

// The record type a search over one database gives (already const).
template <class Search>
using Found = std::remove_pointer_t<decltype(std::declval<const Search&>()(
    std::declval<const TavloDatabase&>()))>;

// The first hit, in list order, among the entries accept lets through.
template <class Search, class Accept>
Hit<Found<Search>> FirstHit(const TavloManager& manager, const Search& search, Accept accept) {
    for (const DbListNode* entry = manager.ListFirstNode(); entry != nullptr;
         entry = TavloManager::ListNextNode(entry)) {
        if (!accept(*entry)) {
            continue;
        }
        if (Found<Search>* record = search(*entry->mDatabase)) {
            return {record, entry};
        }
    }
    return {nullptr, nullptr};
}

// One database by handle, or every one in list order for null.
template <class Search>
Hit<Found<Search>> HitIn(const TavloManager& manager, const char* dbName, const Search& search) {
    if (dbName == nullptr) {
        return FirstHit(manager, search, [](const DbListNode&) { return true; });
    }
    const DbListNode* entry = manager.ListFindNode(dbName);
    if (entry == nullptr) {
        SetStatus(manager, TAVLO_STATUS_NO_FILE);
        return {nullptr, nullptr};
    }
    return {search(*entry->mDatabase), entry};
}

template <class Search>
Found<Search>* Within(const TavloManager& manager, const char* dbName, const Search& search) {
    return HitIn(manager, dbName, search).record;
}

template <class Search>
Found<Search>* Anywhere(const TavloManager& manager, const char** dbNameOut,
                        const Search& search) {
    const Hit<Found<Search>> hit = HitIn(manager, nullptr, search);
    if (hit.record != nullptr && dbNameOut != nullptr) {
        *dbNameOut = hit.entry->mName;
    }
    return hit.record;
}

// The selection passes, in order. Each entry belongs to one pass at most, so
// no database is searched twice when the selection itself holds wildcards.
enum class Pass { kExact, kMajor, kWildcard, kNever };

Pass PassOf(const TavloSelectionPattern& pattern, const TavloSelection& selection) {
    if (pattern.major == selection.major && pattern.minor == selection.minor) {
        return Pass::kExact;
    }
    if (pattern.major == selection.major && pattern.minor == kAnyMinor) {
        return Pass::kMajor;
    }
    if (pattern.major == kAnyMajor && pattern.minor == kAnyMinor) {
        return Pass::kWildcard;
    }
    return Pass::kNever;
}

template <class Search>
Found<Search>* Selected(const TavloManager& manager, const TavloSelection& selection,
                        const char** dbNameOut, const Search& search) {
    SetStatus(manager, TAVLO_STATUS_OK);
    for (const Pass pass : {Pass::kExact, Pass::kMajor, Pass::kWildcard}) {
        const Hit<Found<Search>> hit = FirstHit(manager, search, [&](const DbListNode& entry) {
            return PassOf(entry.mPattern, selection) == pass;
        });
        if (hit.record != nullptr) {
            if (dbNameOut != nullptr) {
                *dbNameOut = hit.entry->mName;
            }
            return hit.record;
        }
        // Anything found from here on was not an exact choice.
        SetStatus(manager, TAVLO_STATUS_NO_FILE);
    }
    return nullptr;
}

// The first record of a list whose name agrees with name in its first 32
// characters.
template <class Record>
const Record* FirstNamed(const Record* head, const char* name) {
    for (const Record* record = head; record != nullptr; record = record->next) {
        if (tavlo::manager::SameName32(record->name, name)) {
            return record;
        }
    }
    return nullptr;
}

// ---- The searches over one database ----

auto NodeNamed(const char* name) {
    return [name](const TavloDatabase& db) -> const symblk* { return db.GetNode(name); };
}
auto MessageNamed(const char* name) {
    return [name](const TavloDatabase& db) -> const msgblk* { return db.GetMessage(name); };
}
auto MessageWithId(unsigned long id) {
    return [id](const TavloDatabase& db) -> const msgblk* { return db.GetMessage(id); };
}
auto EnvvarNamed(const char* name) {
    return [name](const TavloDatabase& db) -> const env_var_blk* { return db.GetEnvvar(name); };
}
auto BitTimingNumbered(unsigned short number) {
    return [number](const TavloDatabase& db) -> const btlblk* { return db.GetBitTiming(number); };
}
auto AttrDefNamed(const char* name) {
    return [name](const TavloDatabase& db) -> const attr_def* { return db.GetAttrDef(name); };
}
// Deliberate: these selection forms compare whole names, the others only 32 characters.
auto SignalTypeNamed(const char* name) {
    return [name](const TavloDatabase& db) -> const sigtype* { return db.GetSignalType(name); };
}
auto ValueTableNamed(const char* name) {
    return [name](const TavloDatabase& db) -> const valtable* { return db.GetValueTable(name); };
}
template <class Record>
auto Named32(Record* TavloDatabase::*list, const char* name) {
    return [list, name](const TavloDatabase& db) { return FirstNamed<Record>(db.*list, name); };
}

}  // namespace

// ---- Selection and priorities ---------------------------------------------------

bool TavloManager::AssignSelectionPattern(const TavloSelectionPattern& pattern,
                                          const char* dbName) {
    DbListNode* entry = ListFindNode(dbName);
    if (entry == nullptr) {
        mStatus = TAVLO_STATUS_NO_FILE;
        return false;
    }
    entry->mPattern.major = pattern.major;
    entry->mPattern.minor = pattern.minor;
    mStatus = TAVLO_STATUS_OK;
    return true;
}

const TavloSelectionPattern& TavloManager::GetSelectionPattern(const char* dbName) const {
    const DbListNode* entry = ListFindNode(dbName);
    if (entry == nullptr) {
        mStatus = TAVLO_STATUS_NO_FILE;
        return gWildcardPattern;
    }
    mStatus = TAVLO_STATUS_OK;
    return entry->mPattern;
}

unsigned int TavloManager::GetPriority(const char* dbName) const {
    const DbListNode* entry = ListFindNode(dbName);
    if (entry == nullptr) {
        mStatus = TAVLO_STATUS_NO_FILE;
        return 0;
    }
    mStatus = TAVLO_STATUS_OK;
    return entry->mPriority;
}

// ---- Lookups across databases ---------------------------------------------------

const symblk* TavloManager::GetNode(const char* name, const char* dbName) const {
    return Within(*this, dbName, NodeNamed(name));
}
const symblk* TavloManager::GetNode(const char* name, const char** dbNameOut) const {
    return Anywhere(*this, dbNameOut, NodeNamed(name));
}
const symblk* TavloManager::GetNode(const char* name, const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, NodeNamed(name));
}
const symblk* TavloManager::GetNode(const char* name, const TavloSelection& selection,
                                    const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, NodeNamed(name));
}

const msgblk* TavloManager::GetMessage(const char* name, const char* dbName) const {
    return Within(*this, dbName, MessageNamed(name));
}
const msgblk* TavloManager::GetMessage(const char* name, const char** dbNameOut) const {
    return Anywhere(*this, dbNameOut, MessageNamed(name));
}
const msgblk* TavloManager::GetMessage(const char* name, const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, MessageNamed(name));
}
const msgblk* TavloManager::GetMessage(const char* name, const TavloSelection& selection,
                                       const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, MessageNamed(name));
}

const msgblk* TavloManager::GetMessage(unsigned long id, const char* dbName) const {
    return Within(*this, dbName, MessageWithId(id));
}
const msgblk* TavloManager::GetMessage(unsigned long id, const char** dbNameOut) const {
    return Anywhere(*this, dbNameOut, MessageWithId(id));
}
const msgblk* TavloManager::GetMessage(unsigned long id, const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, MessageWithId(id));
}
const msgblk* TavloManager::GetMessage(unsigned long id, const TavloSelection& selection,
                                       const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, MessageWithId(id));
}

const env_var_blk* TavloManager::GetEnvvar(const char* name, const char* dbName) const {
    return Within(*this, dbName, EnvvarNamed(name));
}
const env_var_blk* TavloManager::GetEnvvar(const char* name, const char** dbNameOut) const {
    return Anywhere(*this, dbNameOut, EnvvarNamed(name));
}
const env_var_blk* TavloManager::GetEnvvar(const char* name,
                                           const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, EnvvarNamed(name));
}
const env_var_blk* TavloManager::GetEnvvar(const char* name, const TavloSelection& selection,
                                           const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, EnvvarNamed(name));
}

const btlblk* TavloManager::GetBitTiming(const unsigned short number, const char* dbName) const {
    return Within(*this, dbName, BitTimingNumbered(number));
}
const btlblk* TavloManager::GetBitTiming(const unsigned short number,
                                         const char** dbNameOut) const {
    return Anywhere(*this, dbNameOut, BitTimingNumbered(number));
}
const btlblk* TavloManager::GetBitTiming(const unsigned short number,
                                         const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, BitTimingNumbered(number));
}
const btlblk* TavloManager::GetBitTiming(const unsigned short number,
                                         const TavloSelection& selection,
                                         const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, BitTimingNumbered(number));
}

const attr_def* TavloManager::GetAttrDefinition(const char* attrName, const char* dbName) const {
    return Within(*this, dbName, AttrDefNamed(attrName));
}
const attr_def* TavloManager::GetAttrDefinition(const char* attrName,
                                                const char** dbNameOut) const {
    return Anywhere(*this, dbNameOut, AttrDefNamed(attrName));
}

const cat* TavloManager::GetCategory(const char* categoryName, const char* dbName) const {
    TAVLO_ASSERT(categoryName != NULL, kModule);
    return Within(*this, dbName, Named32(&TavloDatabase::mCategories, categoryName));
}
const cat* TavloManager::GetCategory(const char* categoryName, const char** dbNameOut) const {
    TAVLO_ASSERT(categoryName != NULL, kModule);
    return Anywhere(*this, dbNameOut, Named32(&TavloDatabase::mCategories, categoryName));
}

const sigtype* TavloManager::GetSignalType(const char* signalTypeName, const char* dbName) const {
    TAVLO_ASSERT(signalTypeName != NULL, kModule);
    return Within(*this, dbName, Named32(&TavloDatabase::mSigTypes, signalTypeName));
}
const sigtype* TavloManager::GetSignalType(const char* signalTypeName,
                                           const char** dbNameOut) const {
    TAVLO_ASSERT(signalTypeName != NULL, kModule);
    return Anywhere(*this, dbNameOut, Named32(&TavloDatabase::mSigTypes, signalTypeName));
}
const sigtype* TavloManager::GetSignalType(const char* signalTypeName,
                                           const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, SignalTypeNamed(signalTypeName));
}
const sigtype* TavloManager::GetSignalType(const char* signalTypeName,
                                           const TavloSelection& selection,
                                           const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, SignalTypeNamed(signalTypeName));
}

const valtable* TavloManager::GetValueTable(const char* valueTableName, const char* dbName) const {
    TAVLO_ASSERT(valueTableName != NULL, kModule);
    return Within(*this, dbName, Named32(&TavloDatabase::mValueTables, valueTableName));
}
const valtable* TavloManager::GetValueTable(const char* valueTableName,
                                            const char** dbNameOut) const {
    TAVLO_ASSERT(valueTableName != NULL, kModule);
    return Anywhere(*this, dbNameOut, Named32(&TavloDatabase::mValueTables, valueTableName));
}
const valtable* TavloManager::GetValueTable(const char* valueTableName,
                                            const TavloSelection& selection) const {
    return Selected(*this, selection, nullptr, ValueTableNamed(valueTableName));
}
const valtable* TavloManager::GetValueTable(const char* valueTableName,
                                            const TavloSelection& selection,
                                            const char** dbNameOut) const {
    return Selected(*this, selection, dbNameOut, ValueTableNamed(valueTableName));
}

// ---- Inside one object ------------------------------------------------------------

const sigblk* TavloManager::GetSignal(const msgblk& message, const char* signalName) const {
    TAVLO_ASSERT(signalName != NULL, kModule);
    const sigblk* signals = message.signals;
    return FirstNamed(signals, signalName);
}

const sigblk* TavloManager::GetModeSignal(const msgblk& message) const {
    for (const sigblk* signal = message.signals; signal != nullptr; signal = signal->next) {
        if ((signal->flags & TAVLO_SIG_MODE) != 0) {
            return signal;
        }
    }
    return nullptr;
}

const siggroupblk* TavloManager::GetSignalGroup(const msgblk& message,
                                                const char* signalGroupName) const {
    TAVLO_ASSERT(signalGroupName != NULL, kModule);
    const siggroupblk* groups = message.signal_groups;
    return FirstNamed(groups, signalGroupName);
}

const sigblk* TavloManager::GetSignal(const siggroupblk& group, const char* signalName) const {
    TAVLO_ASSERT(signalName != NULL, kModule);
    for (const siglistblk* member = group.signals; member != nullptr; member = member->next) {
        const sigblk* signal = member->signal;
        if (signal != nullptr && tavlo::manager::SameName32(signal->name, signalName)) {
            return signal;
        }
    }
    return nullptr;
}

unsigned long TavloManager::GetEnvvarHandle(const env_var_blk* envvar, const char* dbName) const {
    TAVLO_ASSERT(envvar != NULL, kModule);
    // By identity: a variable of the same name in another database is another
    // variable with a handle of its own.
    const auto holder = [envvar](const TavloDatabase& db) -> const env_var_blk* {
        for (const env_var_blk* e = db.mEnvvars; e != nullptr; e = e->next) {
            if (e == envvar) {
                return e;
            }
        }
        return nullptr;
    };
    const Hit<const env_var_blk> hit = HitIn(*this, dbName, holder);
    if (hit.record == nullptr) {
        return 0;
    }
    const unsigned int id = envvar->id;
    return static_cast<unsigned long>(hit.entry->mHandleBase) + id;
}
