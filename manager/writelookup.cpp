// manager/writelookup.cpp: the write manager's lookups and iterators, those of
// the read manager with non-const results. Lookups ask the read manager and
// give up the const: the records belong to the databases, which this manager
// may edit. Iterators are built by the same templates as the read manager's.
#include "manager/iterate.h"
#include "tavloms/writemanager.h"

namespace {

using namespace tavlo::manager;

// The read manager hands records out as const only to keep its clients from
// editing them; the write manager is the client that may.
template <class Record>
Record* Editable(const Record* record) {
    return const_cast<Record*>(record);
}

}  // namespace

// ---- Lookups across databases ---------------------------------------------------

symblk* TavloWriteManager::GetNode(const char* name, const char* dbName) {
    return Editable(TavloManager::GetNode(name, dbName));
}
symblk* TavloWriteManager::GetNode(const char* name, const char** dbNameOut) {
    return Editable(TavloManager::GetNode(name, dbNameOut));
}
symblk* TavloWriteManager::GetNode(const char* name, const TavloSelection& selection) {
    return Editable(TavloManager::GetNode(name, selection));
}
symblk* TavloWriteManager::GetNode(const char* name, const TavloSelection& selection,
                                   const char** dbNameOut) {
    return Editable(TavloManager::GetNode(name, selection, dbNameOut));
}

msgblk* TavloWriteManager::GetMessage(const char* name, const char* dbName) {
    return Editable(TavloManager::GetMessage(name, dbName));
}
msgblk* TavloWriteManager::GetMessage(const char* name, const char** dbNameOut) {
    return Editable(TavloManager::GetMessage(name, dbNameOut));
}
msgblk* TavloWriteManager::GetMessage(const char* name, const TavloSelection& selection) {
    return Editable(TavloManager::GetMessage(name, selection));
}
msgblk* TavloWriteManager::GetMessage(const char* name, const TavloSelection& selection,
                                      const char** dbNameOut) {
    return Editable(TavloManager::GetMessage(name, selection, dbNameOut));
}

msgblk* TavloWriteManager::GetMessage(unsigned long id, const char* dbName) {
    return Editable(TavloManager::GetMessage(id, dbName));
}
msgblk* TavloWriteManager::GetMessage(unsigned long id, const char** dbNameOut) {
    return Editable(TavloManager::GetMessage(id, dbNameOut));
}
msgblk* TavloWriteManager::GetMessage(unsigned long id, const TavloSelection& selection) {
    return Editable(TavloManager::GetMessage(id, selection));
}
msgblk* TavloWriteManager::GetMessage(unsigned long id, const TavloSelection& selection,
                                      const char** dbNameOut) {
    return Editable(TavloManager::GetMessage(id, selection, dbNameOut));
}

env_var_blk* TavloWriteManager::GetEnvvar(const char* name, const char* dbName) {
    return Editable(TavloManager::GetEnvvar(name, dbName));
}
env_var_blk* TavloWriteManager::GetEnvvar(const char* name, const char** dbNameOut) {
    return Editable(TavloManager::GetEnvvar(name, dbNameOut));
}
env_var_blk* TavloWriteManager::GetEnvvar(const char* name, const TavloSelection& selection) {
    return Editable(TavloManager::GetEnvvar(name, selection));
}
env_var_blk* TavloWriteManager::GetEnvvar(const char* name, const TavloSelection& selection,
                                          const char** dbNameOut) {
    return Editable(TavloManager::GetEnvvar(name, selection, dbNameOut));
}

btlblk* TavloWriteManager::GetBitTiming(const unsigned short number, const char* dbName) {
    return Editable(TavloManager::GetBitTiming(number, dbName));
}
btlblk* TavloWriteManager::GetBitTiming(const unsigned short number, const char** dbNameOut) {
    return Editable(TavloManager::GetBitTiming(number, dbNameOut));
}
btlblk* TavloWriteManager::GetBitTiming(const unsigned short number,
                                        const TavloSelection& selection) {
    return Editable(TavloManager::GetBitTiming(number, selection));
}
btlblk* TavloWriteManager::GetBitTiming(const unsigned short number,
                                        const TavloSelection& selection,
                                        const char** dbNameOut) {
    return Editable(TavloManager::GetBitTiming(number, selection, dbNameOut));
}

attr_def* TavloWriteManager::GetAttrDefinition(const char* attrName, const char* dbName) {
    return Editable(TavloManager::GetAttrDefinition(attrName, dbName));
}
attr_def* TavloWriteManager::GetAttrDefinition(const char* attrName, const char** dbNameOut) {
    return Editable(TavloManager::GetAttrDefinition(attrName, dbNameOut));
}

cat* TavloWriteManager::GetCategory(const char* categoryName, const char* dbName) {
    return Editable(TavloManager::GetCategory(categoryName, dbName));
}
cat* TavloWriteManager::GetCategory(const char* categoryName, const char** dbNameOut) {
    return Editable(TavloManager::GetCategory(categoryName, dbNameOut));
}

sigtype* TavloWriteManager::GetSignalType(const char* signalTypeName, const char* dbName) {
    return Editable(TavloManager::GetSignalType(signalTypeName, dbName));
}
sigtype* TavloWriteManager::GetSignalType(const char* signalTypeName, const char** dbNameOut) {
    return Editable(TavloManager::GetSignalType(signalTypeName, dbNameOut));
}
sigtype* TavloWriteManager::GetSignalType(const char* signalTypeName,
                                          const TavloSelection& selection) {
    return Editable(TavloManager::GetSignalType(signalTypeName, selection));
}
sigtype* TavloWriteManager::GetSignalType(const char* signalTypeName,
                                          const TavloSelection& selection,
                                          const char** dbNameOut) {
    return Editable(TavloManager::GetSignalType(signalTypeName, selection, dbNameOut));
}

valtable* TavloWriteManager::GetValueTable(const char* valueTableName, const char* dbName) {
    return Editable(TavloManager::GetValueTable(valueTableName, dbName));
}
valtable* TavloWriteManager::GetValueTable(const char* valueTableName,
                                           const char** dbNameOut) {
    return Editable(TavloManager::GetValueTable(valueTableName, dbNameOut));
}
valtable* TavloWriteManager::GetValueTable(const char* valueTableName,
                                           const TavloSelection& selection) {
    return Editable(TavloManager::GetValueTable(valueTableName, selection));
}
valtable* TavloWriteManager::GetValueTable(const char* valueTableName,
                                           const TavloSelection& selection,
                                           const char** dbNameOut) {
    return Editable(TavloManager::GetValueTable(valueTableName, selection, dbNameOut));
}

// ---- Inside one object ------------------------------------------------------------

sigblk* TavloWriteManager::GetSignal(msgblk& message, const char* signalName) {
    return Editable(TavloManager::GetSignal(message, signalName));
}

sigblk* TavloWriteManager::GetModeSignal(msgblk& message) {
    return Editable(TavloManager::GetModeSignal(message));
}

siggroupblk* TavloWriteManager::GetSignalGroup(msgblk& message, const char* signalGroupName) {
    return Editable(TavloManager::GetSignalGroup(message, signalGroupName));
}

sigblk* TavloWriteManager::GetSignal(siggroupblk& group, const char* signalName) {
    return Editable(TavloManager::GetSignal(group, signalName));
}

// ---- Database-wide iterators ------------------------------------------------------

TavloIterator<symblk> TavloWriteManager::GetNodeIterator(const char* dbName) {
    return Across(*this, &Nodes<symblk>, nullptr, dbName);
}

TavloIterator<symblk> TavloWriteManager::GetNodeIterator(TavloPredicate<symblk*>& predicate,
                                                         const char* dbName) {
    return Across(*this, &Nodes<symblk>, &predicate, dbName);
}

TavloIterator<msgblk> TavloWriteManager::GetMessageIterator(const char* dbName) {
    return Across(*this, &Messages<msgblk>, nullptr, dbName);
}

TavloIterator<msgblk> TavloWriteManager::GetMessageIterator(TavloPredicate<msgblk*>& predicate,
                                                            const char* dbName) {
    return Across(*this, &Messages<msgblk>, &predicate, dbName);
}

TavloIterator<env_var_blk> TavloWriteManager::GetEnvvarIterator(const char* dbName) {
    return Across(*this, &Envvars<env_var_blk>, nullptr, dbName);
}

TavloIterator<env_var_blk> TavloWriteManager::GetEnvvarIterator(
    TavloPredicate<env_var_blk*>& predicate, const char* dbName) {
    return Across(*this, &Envvars<env_var_blk>, &predicate, dbName);
}

TavloIterator<btlblk> TavloWriteManager::GetBitTimingIterator(const char* dbName) {
    return Across(*this, &BitTimings<btlblk>, nullptr, dbName);
}

TavloIterator<btlblk> TavloWriteManager::GetBitTimingIterator(
    TavloPredicate<btlblk*>& predicate, const char* dbName) {
    return Across(*this, &BitTimings<btlblk>, &predicate, dbName);
}

TavloIterator<attr_def> TavloWriteManager::GetAttrDefIterator(const char* dbName) {
    return Across(*this, &AttrDefs<attr_def>, nullptr, dbName);
}

TavloIterator<attr_def> TavloWriteManager::GetAttrDefIterator(
    TavloPredicate<attr_def*>& predicate, const char* dbName) {
    return Across(*this, &AttrDefs<attr_def>, &predicate, dbName);
}

TavloIterator<sigtype> TavloWriteManager::GetSignalTypeIterator(const char* dbName) {
    return Across(*this, &SignalTypes<sigtype>, nullptr, dbName);
}

TavloIterator<sigtype> TavloWriteManager::GetSignalTypeIterator(
    TavloPredicate<sigtype*>& predicate, const char* dbName) {
    return Across(*this, &SignalTypes<sigtype>, &predicate, dbName);
}

TavloIterator<valtable> TavloWriteManager::GetValueTableIterator(const char* dbName) {
    return Across(*this, &ValueTables<valtable>, nullptr, dbName);
}

TavloIterator<valtable> TavloWriteManager::GetValueTableIterator(
    TavloPredicate<valtable*>& predicate, const char* dbName) {
    return Across(*this, &ValueTables<valtable>, &predicate, dbName);
}

TavloIterator<cat> TavloWriteManager::GetCategoryIterator(const char* dbName) {
    return Across(*this, &Categories<cat>, nullptr, dbName);
}

TavloIterator<cat> TavloWriteManager::GetCategoryIterator(TavloPredicate<cat*>& predicate,
                                                          const char* dbName) {
    return Across(*this, &Categories<cat>, &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(const char* dbName) {
    return Across(*this, &DbAttributes<attr>, nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            const char* dbName) {
    return Across(*this, &DbAttributes<attr>, &predicate, dbName);
}

// ---- Per object ---------------------------------------------------------------
// The forms without dbName tell the predicate the object's own database.

TavloIterator<sigblk> TavloWriteManager::GetSignalIterator(msgblk& message) {
    return GetSignalIterator(message, GetDatabaseName(message));
}

TavloIterator<sigblk> TavloWriteManager::GetSignalIterator(msgblk& message,
                                                           const char* dbName) {
    return Along(*this, SignalsOf(message), nullptr, dbName);
}

TavloIterator<sigblk> TavloWriteManager::GetSignalIterator(TavloPredicate<sigblk*>& predicate,
                                                           msgblk& message) {
    return GetSignalIterator(predicate, message, GetDatabaseName(message));
}

TavloIterator<sigblk> TavloWriteManager::GetSignalIterator(TavloPredicate<sigblk*>& predicate,
                                                           msgblk& message, const char* dbName) {
    return Along(*this, SignalsOf(message), &predicate, dbName);
}

TavloIterator<siggroupblk> TavloWriteManager::GetSignalGroupIterator(msgblk& message) {
    return GetSignalGroupIterator(message, GetDatabaseName(message));
}

TavloIterator<siggroupblk> TavloWriteManager::GetSignalGroupIterator(msgblk& message,
                                                                     const char* dbName) {
    return Along(*this, GroupsOf(message), nullptr, dbName);
}

TavloIterator<siggroupblk> TavloWriteManager::GetSignalGroupIterator(
    TavloPredicate<siggroupblk*>& predicate, msgblk& message) {
    return GetSignalGroupIterator(predicate, message, GetDatabaseName(message));
}

TavloIterator<siggroupblk> TavloWriteManager::GetSignalGroupIterator(
    TavloPredicate<siggroupblk*>& predicate, msgblk& message, const char* dbName) {
    return Along(*this, GroupsOf(message), &predicate, dbName);
}

TavloSubsignalIterator TavloWriteManager::GetSubsignalIterator(siggroupblk& group) {
    return GetSubsignalIterator(group, GetDatabaseName(group));
}

TavloSubsignalIterator TavloWriteManager::GetSubsignalIterator(siggroupblk& group,
                                                               const char* dbName) {
    return Along(*this, MembersOf(group), nullptr, dbName);
}

TavloSubsignalIterator TavloWriteManager::GetSubsignalIterator(
    TavloPredicate<siglistblk*>& predicate, siggroupblk& group) {
    return GetSubsignalIterator(predicate, group, GetDatabaseName(group));
}

TavloSubsignalIterator TavloWriteManager::GetSubsignalIterator(
    TavloPredicate<siglistblk*>& predicate, siggroupblk& group, const char* dbName) {
    return Along(*this, MembersOf(group), &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(symblk& node, const char* dbName) {
    return Along(*this, AttributesOf(node), nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(msgblk& message,
                                                            const char* dbName) {
    return Along(*this, AttributesOf(message), nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(env_var_blk& envvar,
                                                            const char* dbName) {
    return Along(*this, AttributesOf(envvar), nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(sigtype& type, const char* dbName) {
    return Along(*this, AttributesOf(type), nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(sigblk& signal, const char* dbName) {
    return Along(*this, AttributesOf(signal), nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(rxblk& relation,
                                                            const char* dbName) {
    return Along(*this, AttributesOf(relation), nullptr, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            symblk& node, const char* dbName) {
    return Along(*this, AttributesOf(node), &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            msgblk& message,
                                                            const char* dbName) {
    return Along(*this, AttributesOf(message), &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            env_var_blk& envvar,
                                                            const char* dbName) {
    return Along(*this, AttributesOf(envvar), &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            sigtype& type, const char* dbName) {
    return Along(*this, AttributesOf(type), &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            sigblk& signal, const char* dbName) {
    return Along(*this, AttributesOf(signal), &predicate, dbName);
}

TavloIterator<attr> TavloWriteManager::GetAttributeIterator(TavloPredicate<attr*>& predicate,
                                                            rxblk& relation,
                                                            const char* dbName) {
    return Along(*this, AttributesOf(relation), &predicate, dbName);
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(sigblk& signal) {
    return GetReceiverIterator(signal, GetDatabaseName(signal));
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(sigblk& signal,
                                                             const char* dbName) {
    return Along(*this, ReceiversOf(signal), nullptr, dbName);
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                                             sigblk& signal) {
    return GetReceiverIterator(predicate, signal, GetDatabaseName(signal));
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                                             sigblk& signal, const char* dbName) {
    return Along(*this, ReceiversOf(signal), &predicate, dbName);
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(env_var_blk& envvar) {
    return GetReceiverIterator(envvar, GetDatabaseName(envvar));
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(env_var_blk& envvar,
                                                             const char* dbName) {
    return Along(*this, AccessNodesOf(envvar), nullptr, dbName);
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                                             env_var_blk& envvar) {
    return GetReceiverIterator(predicate, envvar, GetDatabaseName(envvar));
}

TavloReceiverIterator TavloWriteManager::GetReceiverIterator(TavloPredicate<rxblk*>& predicate,
                                                             env_var_blk& envvar,
                                                             const char* dbName) {
    return Along(*this, AccessNodesOf(envvar), &predicate, dbName);
}

TavloReceiverIterator TavloWriteManager::GetTransmitterIterator(msgblk& message) {
    return GetTransmitterIterator(message, GetDatabaseName(message));
}

TavloReceiverIterator TavloWriteManager::GetTransmitterIterator(msgblk& message,
                                                                const char* dbName) {
    return Along(*this, TransmittersOf(message), nullptr, dbName);
}

TavloReceiverIterator TavloWriteManager::GetTransmitterIterator(
    TavloPredicate<rxblk*>& predicate, msgblk& message) {
    return GetTransmitterIterator(predicate, message, GetDatabaseName(message));
}

TavloReceiverIterator TavloWriteManager::GetTransmitterIterator(
    TavloPredicate<rxblk*>& predicate, msgblk& message, const char* dbName) {
    return Along(*this, TransmittersOf(message), &predicate, dbName);
}

TavloIterator<val> TavloWriteManager::GetValueDescriptionIterator(sigblk& signal) {
    return GetValueDescriptionIterator(signal, GetDatabaseName(signal));
}

TavloIterator<val> TavloWriteManager::GetValueDescriptionIterator(sigblk& signal,
                                                                  const char* dbName) {
    return Along(*this, DescriptionsOf(signal), nullptr, dbName);
}

TavloIterator<val> TavloWriteManager::GetValueDescriptionIterator(env_var_blk& envvar) {
    return GetValueDescriptionIterator(envvar, GetDatabaseName(envvar));
}

TavloIterator<val> TavloWriteManager::GetValueDescriptionIterator(env_var_blk& envvar,
                                                                  const char* dbName) {
    return Along(*this, DescriptionsOf(envvar), nullptr, dbName);
}

// ---- View filters -------------------------------------------------------------

TavloReceiverIterator TavloWriteManager::GetFilterNodeIterator(const char* dbName) {
    return Across(*this, &FilterNodes<rxblk>, nullptr, dbName);
}

TavloFilterCategoryIterator TavloWriteManager::GetFilterCategoryIterator(const char* dbName) {
    return Across(*this, &FilterCategories<filtercatblk>, nullptr, dbName);
}
