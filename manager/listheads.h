// manager/listheads.h: the list heads of one database as functions, for the
// database-wide iterators of the read and the write manager. T is the
// element type with or without const.
#ifndef TAVLOMS_MANAGER_LISTHEADS_H
#define TAVLOMS_MANAGER_LISTHEADS_H

#include "tavloms/manager.h"

namespace tavlo::manager {

template <class T> T* Nodes(const TavloDatabase& db) { return db.mNodes; }
template <class T> T* Messages(const TavloDatabase& db) { return db.mMessages; }
template <class T> T* Envvars(const TavloDatabase& db) { return db.mEnvvars; }
template <class T> T* BitTimings(const TavloDatabase& db) { return db.mBitTimings; }
template <class T> T* AttrDefs(const TavloDatabase& db) { return db.mAttrDefs; }
template <class T> T* SignalTypes(const TavloDatabase& db) { return db.mSigTypes; }
template <class T> T* ValueTables(const TavloDatabase& db) { return db.mValueTables; }
template <class T> T* Categories(const TavloDatabase& db) { return db.mCategories; }
template <class T> T* DbAttributes(const TavloDatabase& db) { return db.mDbAttrs; }
template <class T> T* FilterNodes(const TavloDatabase& db) { return db.mFilter.nodes; }
template <class T> T* FilterCategories(const TavloDatabase& db) { return db.mFilter.categories; }

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_LISTHEADS_H
