// manager/edit.cpp: the write manager's edits of attribute values, value
// descriptions, comments, user data and view filters. List heads that live in
// packed records are read into locals, changed and written back; new entries
// always go to the head of their list.
#include <cstddef>

#include "manager/access.h"
#include "manager/removal.h"
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/writemanager.h"

namespace {

using tavlo::manager::SameName32;

constexpr const char* kModule = "dbmswrte";

// ---- Attribute values ---------------------------------------------------------------

bool NamedAs(const attr& value, const char* attrName) {
    const attr_def* def = value.def;
    return def != nullptr && SameName32(def->name, attrName);
}

attr* FirstValueNamed(attr* list, const char* attrName) {
    for (attr* value = list; value != nullptr; value = value->next) {
        if (NamedAs(*value, attrName)) {
            return value;
        }
    }
    return nullptr;
}

// What a record of this definition stores for value: a copy of a STRING's
// text, the eight bytes otherwise. False when the copy could not be made.
bool StoredForm(const attr_def& def, const tavlo_attr_value_t& value,
                tavlo_attr_value_t& stored) {
    stored = value;
    if (def.value_type != TAVLO_ATTR_STRING || value.text == nullptr) {
        return true;
    }
    stored.text = tavlo::model::DuplicateText(value.text);
    return stored.text != nullptr;
}

// Sets attrName in the list at head (written back by the caller). owner()
// names the database whose definition a new value is made of; null when the
// object lies in none of the manager's databases.
template <class Owner>
bool SetValueIn(const TavloManager& manager, attr*& head, const char* attrName,
                const tavlo_attr_value_t& value, Owner owner) {
    if (attr* target = FirstValueNamed(head, attrName)) {
        tavlo_attr_value_t stored;
        if (!StoredForm(*target->def, value, stored)) {
            return false;
        }
        // A replaced text is not released, deliberately: callers may still
        // hold the pointer they read from the record.
        target->value = stored;
        return true;
    }
    // Null would mean every database: an object of none gets no value.
    const char* dbName = owner();
    if (dbName == nullptr) {
        return false;
    }
    // The definitions belong to the databases this manager edits.
    attr_def* def = const_cast<attr_def*>(manager.GetAttrDefinition(attrName, dbName));
    if (def == nullptr) {
        return false;
    }
    attr* record = tavlo::model::Allocate<attr>();
    if (record == nullptr) {
        return false;
    }
    tavlo_attr_value_t stored;
    if (!StoredForm(*def, value, stored)) {
        TAVLO_MFREE(record);
        return false;
    }
    record->def = def;
    record->value = stored;
    record->next = head;
    head = record;
    return true;
}

template <class Record>
bool SetOwnValue(const TavloManager& manager, Record& object, const char* attrName,
                 const tavlo_attr_value_t& value) {
    TAVLO_ASSERT(attrName != NULL, kModule);
    attr* head = object.attributes;
    const bool changed = SetValueIn(manager, head, attrName, value,
                                    [&] { return manager.GetDatabaseName(object); });
    object.attributes = head;
    return changed;
}

// Unlinks and releases the first value of attrName in the list at head.
// A STRING value's text stays allocated, as it does when it is replaced.
bool ResetValueIn(attr*& head, const char* attrName) {
    attr* previous = nullptr;
    for (attr* value = head; value != nullptr; previous = value, value = value->next) {
        if (!NamedAs(*value, attrName)) {
            continue;
        }
        if (previous != nullptr) {
            previous->next = value->next;
        } else {
            head = value->next;
        }
        TAVLO_MFREE(value);
        return true;
    }
    return false;
}

template <class Record>
bool ResetOwnValue(Record& object, const char* attrName) {
    TAVLO_ASSERT(attrName != NULL, kModule);
    attr* head = object.attributes;
    const bool changed = ResetValueIn(head, attrName);
    object.attributes = head;
    return changed;
}

// ---- Value descriptions, comments -------------------------------------------------------

// Record by record, the text decides before the value does, so a walk can
// stop at an earlier record with the value although a later one bears the
// text.
template <class Record>
void SetDescription(Record& object, const char* description, long value) {
    TAVLO_ASSERT(description != NULL, kModule);
    val* const head = object.value_descriptions;
    for (val* entry = head; entry != nullptr; entry = entry->next) {
        if (SameName32(entry->text, description)) {
            entry->value = static_cast<int>(value);
            return;
        }
        if (tavlo::manager::SameValue32(entry->value, value)) {
            tavlo::model::CopyName(entry->text, description);
            return;
        }
    }
    val* entry = tavlo::model::Allocate<val>();
    if (entry == nullptr) {
        return;
    }
    entry->value = static_cast<int>(value);
    tavlo::model::CopyName(entry->text, description);
    entry->next = head;
    object.value_descriptions = entry;
}

// The copy is made before the old comment goes, so that an object's own
// comment can be passed in.
template <class Record>
const char* ReplaceComment(Record& object, const char* comment) {
    char* copy = tavlo::model::DuplicateText(comment);
    TAVLO_MFREE(object.comment);
    object.comment = copy;
    return copy;
}

// ---- View filters -----------------------------------------------------------------------

// The None record stands for "no node" or "no category": its entry holds null.
template <class Record>
Record* StoredFilterTarget(Record& object, Record* none) {
    return &object == none ? nullptr : &object;
}

void ReleaseFilterEntry(void* entry) {
    TAVLO_MFREE(entry);
}

}  // namespace

// ---- Attribute values -----------------------------------------------------------------

bool TavloWriteManager::SetAttrValue(const char* attrName, const char* dbName,
                                     const tavlo_attr_value_t value) {
    TAVLO_ASSERT(attrName != NULL, kModule);
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return false;
    }
    attr* head = db->mDbAttrs;
    const bool changed = SetValueIn(*this, head, attrName, value, [dbName] { return dbName; });
    db->mDbAttrs = head;
    return changed;
}

bool TavloWriteManager::SetAttrValue(symblk& node, const char* attrName,
                                     const tavlo_attr_value_t value) {
    return SetOwnValue(*this, node, attrName, value);
}

bool TavloWriteManager::SetAttrValue(msgblk& message, const char* attrName,
                                     const tavlo_attr_value_t value) {
    return SetOwnValue(*this, message, attrName, value);
}

bool TavloWriteManager::SetAttrValue(env_var_blk& envvar, const char* attrName,
                                     const tavlo_attr_value_t value) {
    return SetOwnValue(*this, envvar, attrName, value);
}

bool TavloWriteManager::SetAttrValue(sigtype& type, const char* attrName,
                                     const tavlo_attr_value_t value) {
    return SetOwnValue(*this, type, attrName, value);
}

bool TavloWriteManager::SetAttrValue(sigblk& signal, const char* attrName,
                                     const tavlo_attr_value_t value) {
    return SetOwnValue(*this, signal, attrName, value);
}

bool TavloWriteManager::ResetAttrValue(const char* attrName, const char* dbName) {
    TAVLO_ASSERT(attrName != NULL, kModule);
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return false;
    }
    attr* head = db->mDbAttrs;
    const bool changed = ResetValueIn(head, attrName);
    db->mDbAttrs = head;
    return changed;
}

bool TavloWriteManager::ResetAttrValue(symblk& node, const char* attrName) {
    return ResetOwnValue(node, attrName);
}

bool TavloWriteManager::ResetAttrValue(msgblk& message, const char* attrName) {
    return ResetOwnValue(message, attrName);
}

bool TavloWriteManager::ResetAttrValue(env_var_blk& envvar, const char* attrName) {
    return ResetOwnValue(envvar, attrName);
}

bool TavloWriteManager::ResetAttrValue(sigtype& type, const char* attrName) {
    return ResetOwnValue(type, attrName);
}

bool TavloWriteManager::ResetAttrValue(sigblk& signal, const char* attrName) {
    return ResetOwnValue(signal, attrName);
}

// ---- Value descriptions, comments, user data ---------------------------------------------

void TavloWriteManager::SetValueDescription(sigblk& signal, const char* description,
                                            long value) {
    SetDescription(signal, description, value);
}

void TavloWriteManager::SetValueDescription(env_var_blk& envvar, const char* description,
                                            long value) {
    SetDescription(envvar, description, value);
}

void TavloWriteManager::SetDatabaseComment(const char* comment, const char* dbName) {
    TavloDatabase* db = GetDatabase(dbName);
    // The database releases its old comment before copying: handing it its
    // own comment would copy released memory, and changes nothing anyway.
    if (db != nullptr && comment != db->mComment) {
        db->SetComment(comment);
    }
}

const char* TavloWriteManager::SetComment(symblk& node, const char* comment) {
    return ReplaceComment(node, comment);
}

const char* TavloWriteManager::SetComment(msgblk& message, const char* comment) {
    return ReplaceComment(message, comment);
}

const char* TavloWriteManager::SetComment(env_var_blk& envvar, const char* comment) {
    return ReplaceComment(envvar, comment);
}

const char* TavloWriteManager::SetComment(sigtype& type, const char* comment) {
    return ReplaceComment(type, comment);
}

const char* TavloWriteManager::SetComment(sigblk& signal, const char* comment) {
    return ReplaceComment(signal, comment);
}

const char* TavloWriteManager::SetUserData(const char* data, const char* dbName) {
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return nullptr;
    }
    db->SetUserData(data);
    return db->mUserData;
}

// ---- View filters -------------------------------------------------------------------------
// Entries are neither checked for duplicates on the way in nor translated
// back from None on the way out: RemoveFilterNode(None) leaves the entries
// that hold null, deliberately.

void TavloWriteManager::AddFilterNode(symblk& node, const char* dbName) {
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return;
    }
    rxblk* entry = tavlo::model::Allocate<rxblk>();
    if (entry == nullptr) {
        return;
    }
    entry->symbol = StoredFilterTarget(node, TAVLONONEFILTERNODE());
    entry->next = db->mFilter.nodes;
    db->mFilter.nodes = entry;
}

void TavloWriteManager::AddFilterCategory(cat& category, const char* dbName) {
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return;
    }
    filtercatblk* entry = tavlo::model::Allocate<filtercatblk>();
    if (entry == nullptr) {
        return;
    }
    entry->act = StoredFilterTarget(category, TAVLONONEFILTERCATEGORY());
    entry->next = db->mFilter.categories;
    db->mFilter.categories = entry;
}

void TavloWriteManager::RemoveFilterNode(symblk& node, const char* dbName) {
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return;
    }
    db->mFilter.nodes = tavlo::manager::RemoveEvery(
        db->mFilter.nodes, [&node](const rxblk& entry) { return entry.symbol == &node; },
        ReleaseFilterEntry);
}

void TavloWriteManager::RemoveFilterCategory(cat& category, const char* dbName) {
    TavloDatabase* db = GetDatabase(dbName);
    if (db == nullptr) {
        return;
    }
    db->mFilter.categories = tavlo::manager::RemoveEvery(
        db->mFilter.categories,
        [&category](const filtercatblk& entry) { return entry.act == &category; },
        ReleaseFilterEntry);
}
