// manager/iterate.cpp: the manager's iterator factories (database-wide and
// per object) and the view filter membership tests built on them.
#include "manager/iterate.h"
#include "tavloms/manager.h"

namespace {

using namespace tavlo::manager;

template <class T>
using Predicate = TavloPredicate<const T*>;

}  // namespace

// ---- Database-wide ------------------------------------------------------------

TavloIterator<const symblk> TavloManager::GetNodeIterator(const char* dbName) const {
    return Across(*this, &Nodes<const symblk>, nullptr, dbName);
}

TavloIterator<const symblk> TavloManager::GetNodeIterator(Predicate<symblk>& predicate,
                                                          const char* dbName) const {
    return Across(*this, &Nodes<const symblk>, &predicate, dbName);
}

TavloIterator<const msgblk> TavloManager::GetMessageIterator(const char* dbName) const {
    return Across(*this, &Messages<const msgblk>, nullptr, dbName);
}

TavloIterator<const msgblk> TavloManager::GetMessageIterator(Predicate<msgblk>& predicate,
                                                             const char* dbName) const {
    return Across(*this, &Messages<const msgblk>, &predicate, dbName);
}

TavloIterator<const env_var_blk> TavloManager::GetEnvvarIterator(const char* dbName) const {
    return Across(*this, &Envvars<const env_var_blk>, nullptr, dbName);
}

TavloIterator<const env_var_blk> TavloManager::GetEnvvarIterator(
    Predicate<env_var_blk>& predicate, const char* dbName) const {
    return Across(*this, &Envvars<const env_var_blk>, &predicate, dbName);
}

TavloIterator<const btlblk> TavloManager::GetBitTimingIterator(const char* dbName) const {
    return Across(*this, &BitTimings<const btlblk>, nullptr, dbName);
}

TavloIterator<const btlblk> TavloManager::GetBitTimingIterator(Predicate<btlblk>& predicate,
                                                               const char* dbName) const {
    return Across(*this, &BitTimings<const btlblk>, &predicate, dbName);
}

TavloIterator<const attr_def> TavloManager::GetAttrDefIterator(const char* dbName) const {
    return Across(*this, &AttrDefs<const attr_def>, nullptr, dbName);
}

TavloIterator<const attr_def> TavloManager::GetAttrDefIterator(Predicate<attr_def>& predicate,
                                                               const char* dbName) const {
    return Across(*this, &AttrDefs<const attr_def>, &predicate, dbName);
}

TavloIterator<const sigtype> TavloManager::GetSignalTypeIterator(const char* dbName) const {
    return Across(*this, &SignalTypes<const sigtype>, nullptr, dbName);
}

TavloIterator<const sigtype> TavloManager::GetSignalTypeIterator(Predicate<sigtype>& predicate,
                                                                 const char* dbName) const {
    return Across(*this, &SignalTypes<const sigtype>, &predicate, dbName);
}

TavloIterator<const valtable> TavloManager::GetValueTableIterator(const char* dbName) const {
    return Across(*this, &ValueTables<const valtable>, nullptr, dbName);
}

TavloIterator<const valtable> TavloManager::GetValueTableIterator(
    Predicate<valtable>& predicate, const char* dbName) const {
    return Across(*this, &ValueTables<const valtable>, &predicate, dbName);
}

TavloIterator<const cat> TavloManager::GetCategoryIterator(const char* dbName) const {
    return Across(*this, &Categories<const cat>, nullptr, dbName);
}

TavloIterator<const cat> TavloManager::GetCategoryIterator(Predicate<cat>& predicate,
                                                           const char* dbName) const {
    return Across(*this, &Categories<const cat>, &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const char* dbName) const {
    return Across(*this, &DbAttributes<const attr>, nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const char* dbName) const {
    return Across(*this, &DbAttributes<const attr>, &predicate, dbName);
}

TavloDatabaseNameIterator TavloManager::GetDatabaseNameIterator() const {
    return TavloIterator<const DbListNode>(*this, ListFirstNode(), nullptr, nullptr);
}

// ---- Per object ---------------------------------------------------------------
// The forms without dbName tell the predicate the object's own database.

TavloIterator<const sigblk> TavloManager::GetSignalIterator(const msgblk& message) const {
    return GetSignalIterator(message, GetDatabaseName(message));
}

TavloIterator<const sigblk> TavloManager::GetSignalIterator(const msgblk& message,
                                                            const char* dbName) const {
    return Along(*this, SignalsOf(message), nullptr, dbName);
}

TavloIterator<const sigblk> TavloManager::GetSignalIterator(Predicate<sigblk>& predicate,
                                                            const msgblk& message) const {
    return GetSignalIterator(predicate, message, GetDatabaseName(message));
}

TavloIterator<const sigblk> TavloManager::GetSignalIterator(Predicate<sigblk>& predicate,
                                                            const msgblk& message,
                                                            const char* dbName) const {
    return Along(*this, SignalsOf(message), &predicate, dbName);
}

TavloIterator<const siggroupblk> TavloManager::GetSignalGroupIterator(
    const msgblk& message) const {
    return GetSignalGroupIterator(message, GetDatabaseName(message));
}

TavloIterator<const siggroupblk> TavloManager::GetSignalGroupIterator(
    const msgblk& message, const char* dbName) const {
    return Along(*this, GroupsOf(message), nullptr, dbName);
}

TavloIterator<const siggroupblk> TavloManager::GetSignalGroupIterator(
    Predicate<siggroupblk>& predicate, const msgblk& message) const {
    return GetSignalGroupIterator(predicate, message, GetDatabaseName(message));
}

TavloIterator<const siggroupblk> TavloManager::GetSignalGroupIterator(
    Predicate<siggroupblk>& predicate, const msgblk& message, const char* dbName) const {
    return Along(*this, GroupsOf(message), &predicate, dbName);
}

TavloConstSubsignalIterator TavloManager::GetSubsignalIterator(const siggroupblk& group) const {
    return GetSubsignalIterator(group, GetDatabaseName(group));
}

TavloConstSubsignalIterator TavloManager::GetSubsignalIterator(const siggroupblk& group,
                                                               const char* dbName) const {
    return Along(*this, MembersOf(group), nullptr, dbName);
}

TavloConstSubsignalIterator TavloManager::GetSubsignalIterator(Predicate<siglistblk>& predicate,
                                                               const siggroupblk& group) const {
    return GetSubsignalIterator(predicate, group, GetDatabaseName(group));
}

TavloConstSubsignalIterator TavloManager::GetSubsignalIterator(Predicate<siglistblk>& predicate,
                                                               const siggroupblk& group,
                                                               const char* dbName) const {
    return Along(*this, MembersOf(group), &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const symblk& node,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(node), nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const msgblk& message,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(message), nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const env_var_blk& envvar,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(envvar), nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const sigtype& type,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(type), nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const sigblk& signal,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(signal), nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(const rxblk& relation,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(relation), nullptr, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const symblk& node,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(node), &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const msgblk& message,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(message), &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const env_var_blk& envvar,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(envvar), &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const sigtype& type,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(type), &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const sigblk& signal,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(signal), &predicate, dbName);
}

TavloIterator<const attr> TavloManager::GetAttributeIterator(Predicate<attr>& predicate,
                                                             const rxblk& relation,
                                                             const char* dbName) const {
    return Along(*this, AttributesOf(relation), &predicate, dbName);
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(const sigblk& signal) const {
    return GetReceiverIterator(signal, GetDatabaseName(signal));
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(const sigblk& signal,
                                                             const char* dbName) const {
    return Along(*this, ReceiversOf(signal), nullptr, dbName);
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(Predicate<rxblk>& predicate,
                                                             const sigblk& signal) const {
    return GetReceiverIterator(predicate, signal, GetDatabaseName(signal));
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(Predicate<rxblk>& predicate,
                                                             const sigblk& signal,
                                                             const char* dbName) const {
    return Along(*this, ReceiversOf(signal), &predicate, dbName);
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(const env_var_blk& envvar) const {
    return GetReceiverIterator(envvar, GetDatabaseName(envvar));
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(const env_var_blk& envvar,
                                                             const char* dbName) const {
    return Along(*this, AccessNodesOf(envvar), nullptr, dbName);
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(Predicate<rxblk>& predicate,
                                                             const env_var_blk& envvar) const {
    return GetReceiverIterator(predicate, envvar, GetDatabaseName(envvar));
}

TavloConstReceiverIterator TavloManager::GetReceiverIterator(Predicate<rxblk>& predicate,
                                                             const env_var_blk& envvar,
                                                             const char* dbName) const {
    return Along(*this, AccessNodesOf(envvar), &predicate, dbName);
}

TavloConstReceiverIterator TavloManager::GetTransmitterIterator(const msgblk& message) const {
    return GetTransmitterIterator(message, GetDatabaseName(message));
}

TavloConstReceiverIterator TavloManager::GetTransmitterIterator(const msgblk& message,
                                                                const char* dbName) const {
    return Along(*this, TransmittersOf(message), nullptr, dbName);
}

TavloConstReceiverIterator TavloManager::GetTransmitterIterator(Predicate<rxblk>& predicate,
                                                                const msgblk& message) const {
    return GetTransmitterIterator(predicate, message, GetDatabaseName(message));
}

TavloConstReceiverIterator TavloManager::GetTransmitterIterator(Predicate<rxblk>& predicate,
                                                                const msgblk& message,
                                                                const char* dbName) const {
    return Along(*this, TransmittersOf(message), &predicate, dbName);
}

TavloIterator<const val> TavloManager::GetValueDescriptionIterator(const sigblk& signal) const {
    return GetValueDescriptionIterator(signal, GetDatabaseName(signal));
}

TavloIterator<const val> TavloManager::GetValueDescriptionIterator(const sigblk& signal,
                                                                   const char* dbName) const {
    return Along(*this, DescriptionsOf(signal), nullptr, dbName);
}

TavloIterator<const val> TavloManager::GetValueDescriptionIterator(
    const env_var_blk& envvar) const {
    return GetValueDescriptionIterator(envvar, GetDatabaseName(envvar));
}

TavloIterator<const val> TavloManager::GetValueDescriptionIterator(const env_var_blk& envvar,
                                                                   const char* dbName) const {
    return Along(*this, DescriptionsOf(envvar), nullptr, dbName);
}

// ---- View filters -------------------------------------------------------------

TavloConstReceiverIterator TavloManager::GetFilterNodeIterator(const char* dbName) const {
    return Across(*this, &FilterNodes<const rxblk>, nullptr, dbName);
}

TavloConstFilterCategoryIterator TavloManager::GetFilterCategoryIterator(
    const char* dbName) const {
    return Across(*this, &FilterCategories<const filtercatblk>, nullptr, dbName);
}

bool TavloManager::IsNodeInFilter(const symblk& node, const char* dbName) const {
    for (TavloConstReceiverIterator it = GetFilterNodeIterator(dbName); !it.AtEnd(); ++it) {
        if (it.GetNode() == &node) {
            return true;
        }
    }
    return false;
}

bool TavloManager::IsCategoryInFilter(const cat& category, const char* dbName) const {
    for (const cat* entry : GetFilterCategoryIterator(dbName)) {
        if (entry == &category) {
            return true;
        }
    }
    return false;
}
