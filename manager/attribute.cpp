// manager/attribute.cpp: attribute definitions, defaults and values as a
// manager sees them across its databases, the texts of enumerations, value
// descriptions, and a database's comment and user data. An object without a
// value of its own falls back on the default of its own database only.
#include <cstring>

#include "manager/access.h"
#include "platform/platform.h"
#include "tavloms/lifecycle.h"
#include "tavloms/manager.h"
#include "tavloms/query.h"

namespace {

using tavlo::manager::SameName32;

constexpr const char* kModule = "dbmsread";

// What a description lookup that finds nothing answers.
constexpr long kNoValue = 0x7FFFFFFF;

tavlo_attr_value_t NoValue() {
    tavlo_attr_value_t value;
    std::memset(value.bytes, 0, sizeof value.bytes);
    return value;
}

// Moves an iterator of attribute values on to the first value whose
// definition bears attrName; at its end when there is none.
template <class Iterator>
Iterator FirstValueNamed(Iterator it, const char* attrName) {
    for (; !it.AtEnd(); ++it) {
        const attr_def* def = (*it)->def;
        if (def != nullptr && SameName32(def->name, attrName)) {
            break;
        }
    }
    return it;
}

// The first definition of attrName (any object type) the iterator meets.
const attr_def* FirstDefinitionNamed(TavloIterator<const attr_def> it, const char* attrName) {
    for (; !it.AtEnd(); ++it) {
        if (SameName32((*it)->name, attrName)) {
            return *it;
        }
    }
    return nullptr;
}

// The value of attrName in a list, read by the flat query. That query
// compares whole names, while the manager compares the first 32 characters:
// a longer name would find nothing there after the manager had said a value
// exists. Stored names never exceed 32 characters, so the cut name finds
// exactly the value the 32-character comparison found.
tavlo_attr_value_t OwnValue(attr* values, const char* attrName) {
    char cut[TAVLO_NAME_SIZE];
    std::strncpy(cut, attrName, TAVLO_NAME_SIZE - 1);
    cut[TAVLO_NAME_SIZE - 1] = '\0';
    tavlo_attr_value_t value;
    TAVLO_GET_ATTRVAL(value.bytes, values, cut);
    return value;
}

// The joined texts of an ENUM definition; null for the other types, whose
// minimum is a number and not a text.
const char* EnumTexts(const attr_def& definition) {
    if (definition.value_type != TAVLO_ATTR_ENUM) {
        return nullptr;
    }
    const tavlo_attr_value_t minimum = definition.minimum;
    return minimum.text;
}

// The length of the enumeration entry at entry: up to the next line feed or
// the end of the texts.
std::size_t EntryLength(const char* entry) {
    const char* end = std::strchr(entry, '\n');
    return end != nullptr ? static_cast<std::size_t>(end - entry) : std::strlen(entry);
}

// Whether an object's own attribute list holds a value of attrName.
template <class Record>
bool HasOwnValue(const TavloManager& manager, const Record& object, const char* attrName) {
    TAVLO_ASSERT(attrName != NULL, kModule);
    return !FirstValueNamed(manager.GetAttributeIterator(object, nullptr), attrName).AtEnd();
}

// The network value of attrName into value: from dbName, or with null from
// the first database in list order that has one. False when there is none.
bool NetworkValue(const TavloManager& manager, const char* attrName, const char* dbName,
                  tavlo_attr_value_t& value) {
    TAVLO_ASSERT(attrName != NULL, kModule);
    const auto found = FirstValueNamed(manager.GetAttributeIterator(dbName), attrName);
    if (found.AtEnd()) {
        return false;
    }
    value = OwnValue(manager.ListFindDatabase(found.GetDatabaseName())->mDbAttrs, attrName);
    return true;
}

// An object's own value, else the default of its own database: owner() names
// that database; an object that none of the manager's databases holds has no
// default to fall back on.
template <class Record, class Owner>
tavlo_attr_value_t ValueOrDefault(const TavloManager& manager, const Record& object,
                                  const char* attrName, Owner owner) {
    if (manager.IsAttrValueDefined(object, attrName)) {
        return OwnValue(object.attributes, attrName);
    }
    const char* dbName = owner();
    return dbName != nullptr ? manager.GetAttrDefault(attrName, dbName) : NoValue();
}

// The same into value; the default comes from dbName when given, else from
// the object's own database.
template <class Record, class Owner>
unsigned int ValueOrDefaultEx(const TavloManager& manager, const Record& object,
                              tavlo_attr_value_t& value, const char* attrName,
                              const char* dbName, Owner owner) {
    if (manager.IsAttrValueDefined(object, attrName)) {
        value = OwnValue(object.attributes, attrName);
        return TAVLO_STATUS_OK;
    }
    const char* from = dbName != nullptr ? dbName : owner();
    return from != nullptr ? manager.GetAttrDefaultEx(attrName, value, from) : TAVLO_STATUS_NOT_DEFINED;
}

const char* DescriptionText(const TavloManager& manager, TavloIterator<const val> it,
                            long value) {
    TavloManagerAccess::SetStatus(manager, TAVLO_STATUS_OK);
    for (; !it.AtEnd(); ++it) {
        if (tavlo::manager::SameValue32((*it)->value, value)) {
            return (*it)->text;
        }
    }
    TavloManagerAccess::SetStatus(manager, TAVLO_STATUS_NO_DESCRIPTION_TEXT);
    return nullptr;
}

long DescriptionValue(const TavloManager& manager, TavloIterator<const val> it,
                      const char* description) {
    TAVLO_ASSERT(description != NULL, kModule);
    TavloManagerAccess::SetStatus(manager, TAVLO_STATUS_OK);
    for (; !it.AtEnd(); ++it) {
        if (SameName32((*it)->text, description)) {
            return (*it)->value;
        }
    }
    TavloManagerAccess::SetStatus(manager, TAVLO_STATUS_NO_DESCRIPTION_VALUE);
    return kNoValue;
}

}  // namespace

// ---- Definitions and defaults -------------------------------------------------

bool TavloManager::IsAttributeDefined(const char* attrName, tavlo_obj_t objectType,
                                      const char* dbName) const {
    TAVLO_ASSERT(attrName != NULL, kModule);
    for (const attr_def* def : GetAttrDefIterator(dbName)) {
        if (def->object_type == static_cast<unsigned int>(objectType) &&
            SameName32(def->name, attrName)) {
            return true;
        }
    }
    return false;
}

tavlo_attr_value_t TavloManager::GetAttrDefault(const char* attrName, const char* dbName) const {
    TAVLO_ASSERT(attrName != NULL, kModule);
    const attr_def* def = FirstDefinitionNamed(GetAttrDefIterator(dbName), attrName);
    return def != nullptr ? def->default_value : NoValue();
}

unsigned int TavloManager::GetAttrDefaultEx(const char* attrName, tavlo_attr_value_t& value,
                                            const char* dbName) const {
    TAVLO_ASSERT(attrName != NULL, kModule);
    const attr_def* def = FirstDefinitionNamed(GetAttrDefIterator(dbName), attrName);
    if (def == nullptr) {
        return TAVLO_STATUS_NOT_DEFINED;
    }
    const tavlo_attr_value_t byDefault = def->default_value;
    if (def->value_type == TAVLO_ATTR_ENUM) {
        // Own ENUM values are indexes; a default reads the same way here.
        value.number = static_cast<double>(GetAttrValueIndex(*def, byDefault.text));
    } else {
        value = byDefault;
    }
    return TAVLO_STATUS_OK;
}

// ---- Own values -------------------------------------------------------------------

bool TavloManager::IsAttrValueDefined(const char* attrName, const char* dbName) const {
    TAVLO_ASSERT(attrName != NULL, kModule);
    return !FirstValueNamed(GetAttributeIterator(dbName), attrName).AtEnd();
}

bool TavloManager::IsAttrValueDefined(const symblk& node, const char* attrName) const {
    return HasOwnValue(*this, node, attrName);
}

bool TavloManager::IsAttrValueDefined(const msgblk& message, const char* attrName) const {
    return HasOwnValue(*this, message, attrName);
}

bool TavloManager::IsAttrValueDefined(const env_var_blk& envvar, const char* attrName) const {
    return HasOwnValue(*this, envvar, attrName);
}

bool TavloManager::IsAttrValueDefined(const sigtype& type, const char* attrName) const {
    return HasOwnValue(*this, type, attrName);
}

bool TavloManager::IsAttrValueDefined(const sigblk& signal, const char* attrName) const {
    return HasOwnValue(*this, signal, attrName);
}

bool TavloManager::IsAttrValueDefined(const rxblk& relation, const char* attrName) const {
    return HasOwnValue(*this, relation, attrName);
}

// ---- Values, own or default --------------------------------------------------------

// With a null dbName the network value comes from the first database in list
// order that has one, and the default from the first that defines the name.
tavlo_attr_value_t TavloManager::GetAttrValue(const char* attrName, const char* dbName) const {
    tavlo_attr_value_t value;
    return NetworkValue(*this, attrName, dbName, value) ? value : GetAttrDefault(attrName, dbName);
}

tavlo_attr_value_t TavloManager::GetAttrValue(const symblk& node, const char* attrName) const {
    return ValueOrDefault(*this, node, attrName, [&] { return GetDatabaseName(node); });
}

tavlo_attr_value_t TavloManager::GetAttrValue(const msgblk& message, const char* attrName) const {
    return ValueOrDefault(*this, message, attrName, [&] { return GetDatabaseName(message); });
}

tavlo_attr_value_t TavloManager::GetAttrValue(const env_var_blk& envvar,
                                              const char* attrName) const {
    return ValueOrDefault(*this, envvar, attrName, [&] { return GetDatabaseName(envvar); });
}

tavlo_attr_value_t TavloManager::GetAttrValue(const sigtype& type, const char* attrName) const {
    return ValueOrDefault(*this, type, attrName, [&] { return GetDatabaseName(type); });
}

tavlo_attr_value_t TavloManager::GetAttrValue(const sigblk& signal, const char* attrName) const {
    return ValueOrDefault(*this, signal, attrName, [&] { return GetDatabaseName(signal); });
}

tavlo_attr_value_t TavloManager::GetAttrValue(const rxblk& relation,
                                              const tavlo_obj_t& relationType,
                                              const char* attrName) const {
    return ValueOrDefault(*this, relation, attrName,
                          [&] { return GetDatabaseName(relation, relationType); });
}

unsigned int TavloManager::GetAttrValueEx(const char* attrName, tavlo_attr_value_t& value,
                                          const char* dbName) const {
    return NetworkValue(*this, attrName, dbName, value) ? TAVLO_STATUS_OK
                                                        : GetAttrDefaultEx(attrName, value, dbName);
}

unsigned int TavloManager::GetAttrValueEx(const symblk& node, tavlo_attr_value_t& value,
                                          const char* attrName, const char* dbName) const {
    return ValueOrDefaultEx(*this, node, value, attrName, dbName,
                            [&] { return GetDatabaseName(node); });
}

unsigned int TavloManager::GetAttrValueEx(const msgblk& message, tavlo_attr_value_t& value,
                                          const char* attrName, const char* dbName) const {
    return ValueOrDefaultEx(*this, message, value, attrName, dbName,
                            [&] { return GetDatabaseName(message); });
}

unsigned int TavloManager::GetAttrValueEx(const env_var_blk& envvar, tavlo_attr_value_t& value,
                                          const char* attrName, const char* dbName) const {
    return ValueOrDefaultEx(*this, envvar, value, attrName, dbName,
                            [&] { return GetDatabaseName(envvar); });
}

unsigned int TavloManager::GetAttrValueEx(const sigtype& type, tavlo_attr_value_t& value,
                                          const char* attrName, const char* dbName) const {
    return ValueOrDefaultEx(*this, type, value, attrName, dbName,
                            [&] { return GetDatabaseName(type); });
}

unsigned int TavloManager::GetAttrValueEx(const sigblk& signal, tavlo_attr_value_t& value,
                                          const char* attrName, const char* dbName) const {
    return ValueOrDefaultEx(*this, signal, value, attrName, dbName,
                            [&] { return GetDatabaseName(signal); });
}

unsigned int TavloManager::GetAttrValueEx(const rxblk& relation, const tavlo_obj_t& relationType,
                                          tavlo_attr_value_t& value, const char* attrName,
                                          const char* dbName) const {
    return ValueOrDefaultEx(*this, relation, value, attrName, dbName,
                            [&] { return GetDatabaseName(relation, relationType); });
}

// ---- Enumeration texts ------------------------------------------------------------

char* TavloManager::GetAttrValueString(const attr_def& definition, long index) const {
    const char* entry = EnumTexts(definition);
    for (long skipped = 0; entry != nullptr && skipped < index; ++skipped) {
        entry = std::strchr(entry, '\n');
        if (entry != nullptr) {
            ++entry;
        }
    }
    if (entry == nullptr) {
        return nullptr;
    }
    const std::size_t length = EntryLength(entry);
    char* copy = static_cast<char*>(TAVLO_MALLOC(length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, entry, length);
        copy[length] = '\0';
    }
    return copy;
}

char* TavloManager::GetAttrValueString(const char* attrName, long index,
                                       const char* dbName) const {
    TAVLO_ASSERT(attrName != NULL, kModule);
    const attr_def* def = GetAttrDefinition(attrName, dbName);
    return def != nullptr ? GetAttrValueString(*def, index) : nullptr;
}

// Entries are counted by position, empty ones included, so that an index
// found here gives the same text back through GetAttrValueString.
long TavloManager::GetAttrValueIndex(const attr_def& definition, const char* text) const {
    const char* entry = EnumTexts(definition);
    if (entry == nullptr || text == nullptr) {
        return -1;
    }
    const std::size_t wanted = std::strlen(text);
    for (long index = 0;; ++index) {
        const std::size_t length = EntryLength(entry);
        if (length == wanted && std::memcmp(entry, text, length) == 0) {
            return index;
        }
        if (entry[length] == '\0') {
            return -1;
        }
        entry += length + 1;
    }
}

long TavloManager::GetAttrValueIndex(const char* attrName, const char* text,
                                     const char* dbName) const {
    TAVLO_ASSERT(attrName != NULL, kModule);
    const attr_def* def = GetAttrDefinition(attrName, dbName);
    // 0 rather than -1 for a missing definition: deliberate, callers rely on it.
    return def != nullptr ? GetAttrValueIndex(*def, text) : 0;
}

// ---- Value descriptions -------------------------------------------------------------
// The per-object iterators made with a null dbName walk the list without
// looking up the owning database, which these questions do not need.

const char* TavloManager::GetValueDescription(const sigblk& signal, long value) const {
    return DescriptionText(*this, GetValueDescriptionIterator(signal, nullptr), value);
}

const char* TavloManager::GetValueDescription(const env_var_blk& envvar, long value) const {
    return DescriptionText(*this, GetValueDescriptionIterator(envvar, nullptr), value);
}

long TavloManager::GetDescriptionValue(const sigblk& signal, const char* description) const {
    return DescriptionValue(*this, GetValueDescriptionIterator(signal, nullptr), description);
}

long TavloManager::GetDescriptionValue(const env_var_blk& envvar,
                                       const char* description) const {
    return DescriptionValue(*this, GetValueDescriptionIterator(envvar, nullptr), description);
}

// ---- The database's own texts ---------------------------------------------------------

const char* TavloManager::GetDatabaseComment(const char* dbName) const {
    const TavloDatabase* db = GetDatabase(dbName);  // status 2 for an unknown handle
    return db != nullptr ? db->mComment : nullptr;
}

const char* TavloManager::GetUserData(const char* dbName) const {
    const TavloDatabase* db = GetDatabase(dbName);  // status 2 for an unknown handle
    return db != nullptr ? db->mUserData : nullptr;
}
