// manager/iterator.cpp: the iterator template, its steps over one list or
// across all databases of a manager, the predicate filter, and the
// specialised iterators whose `*` is not the record itself. Instantiated here
// for every record kind, const and not.
#include "platform/platform.h"
#include "tavloms/iterators.h"
#include "tavloms/manager.h"

namespace {

constexpr const char* kModule = "dbmsiter";

// The record that follows e in its list.
template <class T>
T* NextOf(T* element) {
    return element->next;
}

const DbListNode* NextOf(const DbListNode* node) {
    return node->mNext;
}

}  // namespace

template <class T>
TavloIterator<T>::TavloIterator()
    : mType(0),
      mManager(nullptr),
      mCurrent(nullptr),
      mDbName(nullptr),
      mListFunction(nullptr),
      mPredicate(nullptr),
      mPosition(nullptr) {}

template <class T>
TavloIterator<T>::TavloIterator(const TavloManager& manager, ListFunction listFunction,
                                TavloPredicate<T*>* predicate, const char* dbName)
    : mType(predicate != nullptr ? FilterIterator : 0u),
      mManager(&manager),
      mCurrent(nullptr),
      mDbName(nullptr),
      mListFunction(listFunction),
      mPredicate(predicate),
      mPosition(nullptr) {
    TAVLO_ASSERT(listFunction != NULL, kModule);
    if (dbName == nullptr) {
        mType |= SpanningIterator;
        mPosition = manager.ListFirstNode();
        if (mPosition != nullptr) {
            mCurrent = listFunction(*mPosition->mDatabase);
            if (mCurrent != nullptr) {
                mDbName = mPosition->mName;
            } else {
                Step();  // on to the first database with a non-empty list
            }
        }
    } else {
        mDbName = dbName;
        if (const TavloDatabase* db = manager.ListFindDatabase(dbName)) {
            mCurrent = listFunction(*db);
        }
    }
    if ((mType & FilterIterator) != 0) {
        ApplyFilter();
    }
}

template <class T>
TavloIterator<T>::TavloIterator(const TavloManager& manager, T* first,
                                TavloPredicate<T*>* predicate, const char* dbName)
    : mType(predicate != nullptr ? FilterIterator : 0u),
      mManager(&manager),
      mCurrent(first),
      mDbName(dbName),
      mListFunction(nullptr),
      mPredicate(predicate),
      mPosition(nullptr) {
    if ((mType & FilterIterator) != 0) {
        ApplyFilter();
    }
}

template <class T>
void TavloIterator<T>::Step() {
    if (mCurrent != nullptr) {
        mCurrent = NextOf(mCurrent);
    }
    if ((mType & SpanningIterator) == 0) {
        return;
    }
    while (mCurrent == nullptr && mPosition != nullptr && mPosition->mNext != nullptr) {
        mPosition = mPosition->mNext;
        mCurrent = mListFunction(*mPosition->mDatabase);
        if (mCurrent != nullptr) {
            mDbName = mPosition->mName;
        }
    }
}

template <class T>
TavloIterator<T>& TavloIterator<T>::operator++() {
    Step();
    if ((mType & FilterIterator) != 0) {
        ApplyFilter();
    }
    return *this;
}

template <class T>
void TavloIterator<T>::ApplyFilter() {
    TAVLO_ASSERT(mType & FilterIterator, kModule);
    while (mCurrent != nullptr && !mPredicate->Accept(mCurrent, *mManager, mDbName)) {
        Step();
    }
}

// Every record kind an iterator walks, const for the read manager and not for
// the write manager.
template class TavloIterator<const symblk>;
template class TavloIterator<symblk>;
template class TavloIterator<const msgblk>;
template class TavloIterator<msgblk>;
template class TavloIterator<const sigblk>;
template class TavloIterator<sigblk>;
template class TavloIterator<const env_var_blk>;
template class TavloIterator<env_var_blk>;
template class TavloIterator<const btlblk>;
template class TavloIterator<btlblk>;
template class TavloIterator<const attr_def>;
template class TavloIterator<attr_def>;
template class TavloIterator<const attr>;
template class TavloIterator<attr>;
template class TavloIterator<const cat>;
template class TavloIterator<cat>;
template class TavloIterator<const sigtype>;
template class TavloIterator<sigtype>;
template class TavloIterator<const valtable>;
template class TavloIterator<valtable>;
template class TavloIterator<const val>;
template class TavloIterator<val>;
template class TavloIterator<const siggroupblk>;
template class TavloIterator<siggroupblk>;
template class TavloIterator<const siglistblk>;
template class TavloIterator<siglistblk>;
template class TavloIterator<const rxblk>;
template class TavloIterator<rxblk>;
template class TavloIterator<const filtercatblk>;
template class TavloIterator<filtercatblk>;
template class TavloIterator<const DbListNode>;

// ---- The specialised iterators ------------------------------------------------

symblk* TavloReceiverIterator::GetNode() const {
    if (mCurrent == nullptr) {
        return nullptr;
    }
    symblk* node = mCurrent->symbol;
    return node != nullptr ? node : TAVLONONEFILTERNODE();
}

const symblk* TavloConstReceiverIterator::GetNode() const {
    if (mCurrent == nullptr) {
        return nullptr;
    }
    const symblk* node = mCurrent->symbol;
    return node != nullptr ? node : TAVLONONEFILTERNODE();
}

cat* TavloFilterCategoryIterator::operator*() const {
    if (mCurrent == nullptr) {
        return nullptr;
    }
    cat* category = mCurrent->act;
    return category != nullptr ? category : TAVLONONEFILTERCATEGORY();
}

const cat* TavloConstFilterCategoryIterator::operator*() const {
    if (mCurrent == nullptr) {
        return nullptr;
    }
    const cat* category = mCurrent->act;
    return category != nullptr ? category : TAVLONONEFILTERCATEGORY();
}

sigblk* TavloSubsignalIterator::operator*() const {
    if (mCurrent == nullptr) {
        return nullptr;
    }
    sigblk* signal = mCurrent->signal;
    return signal != nullptr ? signal : TAVLONONESUBSIGNAL();
}

const sigblk* TavloConstSubsignalIterator::operator*() const {
    if (mCurrent == nullptr) {
        return nullptr;
    }
    const sigblk* signal = mCurrent->signal;
    return signal != nullptr ? signal : TAVLONONESUBSIGNAL();
}

const char* TavloDatabaseNameIterator::operator*() const {
    return mCurrent != nullptr ? mCurrent->mName : nullptr;
}
