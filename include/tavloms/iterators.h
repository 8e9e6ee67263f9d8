/* tavloms/iterators.h: iterators over the records of a manager's databases,
 * and the predicates that filter them.
 *
 * Managers hand iterators out by value: over one database, over all of a
 * manager's databases in its list order, or over a list that hangs off one
 * object (the signals of a message, the receivers of a signal...). An
 * iterator is at its end when its current element is null. Both loop forms
 * work:
 *
 *     for (auto it = mgr.GetMessageIterator(nullptr); *it != nullptr; ++it) ...
 *     for (const msgblk* message : mgr.GetMessageIterator(nullptr)) ...
 *
 * Iterators hold raw positions in the record lists: keep the databases open
 * (and, when others may write, read-locked) while iterating. A predicate is
 * not owned; keep it alive while its iterator is used. C++ only. */
#ifndef TAVLOMS_ITERATORS_H
#define TAVLOMS_ITERATORS_H

#include "records.h"

#ifdef __cplusplus

TAVLO_BEGIN_VISIBLE

class TavloManager;
class TavloDatabase;
struct DbListNode;

/* Decides which elements an iterator yields. Derive from it and keep
 * element for which Accept returns true; dbName is the manager's handle of
 * the database that holds the element (null for a per-object iterator made
 * without one). */
template <class T>
class TavloPredicate {
public:
    virtual bool Accept(T element, const TavloManager& manager, const char* dbName) = 0;
    virtual ~TavloPredicate() {}
};

/* What end() of an iterator returns, for range-based for loops. */
struct TavloIteratorEnd {};

/* Walks a copy of an iterator for range-based for loops: `*` is the
 * iterator's own `*`, the end is reached when its current element is null. */
template <class Iterator>
class TavloForwardIterator {
public:
    explicit TavloForwardIterator(const Iterator& iterator) : mIterator(iterator) {}
    auto operator*() const { return *mIterator; }
    TavloForwardIterator& operator++() {
        ++mIterator;
        return *this;
    }
    bool operator!=(TavloIteratorEnd) const { return !mIterator.AtEnd(); }
    bool operator==(TavloIteratorEnd) const { return mIterator.AtEnd(); }

private:
    Iterator mIterator;
};

/* An iterator over records of type T (const for the read manager). */
template <class T>
class TAVLO_API TavloIterator {
public:
    /* mType bits. */
    enum : unsigned int {
        SpanningIterator = 1u, /* walks all databases of the manager */
        FilterIterator = 2u    /* a predicate is attached */
    };

    /* The first element of the iterated kind in one database. */
    typedef T* (*ListFunction)(const TavloDatabase& db);

    /* An iterator at its end. */
    TavloIterator();
    /* Over the lists listFunction gives: of the database dbName, or of every
     * database of the manager when dbName is null. An unknown dbName gives an
     * iterator at its end. With a predicate, the first element already
     * satisfies it. listFunction must not be null. */
    TavloIterator(const TavloManager& manager, ListFunction listFunction,
                  TavloPredicate<T*>* predicate, const char* dbName);
    /* Over one list starting at first; dbName is what the predicate is
     * told. */
    TavloIterator(const TavloManager& manager, T* first, TavloPredicate<T*>* predicate,
                  const char* dbName);
    virtual ~TavloIterator() {}

    /* The current element; null at the end. */
    T* operator*() const { return mCurrent; }
    /* Steps to the next element (that the predicate accepts). At the end it
     * stays at the end. */
    TavloIterator& operator++();
    bool AtEnd() const { return mCurrent == 0; }
    /* The handle of the database that holds the current element (spanning
     * iterators), else the name the iterator was made with. */
    const char* GetDatabaseName() const { return mDbName; }

    TavloForwardIterator<TavloIterator> begin() const {
        return TavloForwardIterator<TavloIterator>(*this);
    }
    TavloIteratorEnd end() const { return TavloIteratorEnd(); }

    /* Skips elements the predicate rejects. Only for iterators with a
     * predicate (assertion). */
    virtual void ApplyFilter();

    unsigned int mType;
    const TavloManager* mManager;
    T* mCurrent;
    const char* mDbName;
    ListFunction mListFunction;
    TavloPredicate<T*>* mPredicate;
    const DbListNode* mPosition; /* spanning: the entry of the current database */

protected:
    /* One step without the predicate. */
    void Step();
};

/* Every instantiation lives in the library. */
extern template class TavloIterator<const symblk>;
extern template class TavloIterator<symblk>;
extern template class TavloIterator<const msgblk>;
extern template class TavloIterator<msgblk>;
extern template class TavloIterator<const sigblk>;
extern template class TavloIterator<sigblk>;
extern template class TavloIterator<const env_var_blk>;
extern template class TavloIterator<env_var_blk>;
extern template class TavloIterator<const btlblk>;
extern template class TavloIterator<btlblk>;
extern template class TavloIterator<const attr_def>;
extern template class TavloIterator<attr_def>;
extern template class TavloIterator<const attr>;
extern template class TavloIterator<attr>;
extern template class TavloIterator<const cat>;
extern template class TavloIterator<cat>;
extern template class TavloIterator<const sigtype>;
extern template class TavloIterator<sigtype>;
extern template class TavloIterator<const valtable>;
extern template class TavloIterator<valtable>;
extern template class TavloIterator<const val>;
extern template class TavloIterator<val>;
extern template class TavloIterator<const siggroupblk>;
extern template class TavloIterator<siggroupblk>;
extern template class TavloIterator<const siglistblk>;
extern template class TavloIterator<siglistblk>;
extern template class TavloIterator<const rxblk>;
extern template class TavloIterator<rxblk>;
extern template class TavloIterator<const filtercatblk>;
extern template class TavloIterator<filtercatblk>;
extern template class TavloIterator<const DbListNode>;

/* The iterators whose `*` is not the record itself. Each is a TavloIterator
 * of the record it walks. */

/* Receivers, transmitters, access nodes and view filter nodes: `*` is the
 * relation record; GetNode() its node, or the None node when it names none. */
class TAVLO_API TavloReceiverIterator : public TavloIterator<rxblk> {
public:
    TavloReceiverIterator() {}
    TavloReceiverIterator(const TavloIterator<rxblk>& iterator) : TavloIterator<rxblk>(iterator) {}
    symblk* GetNode() const;
    TavloReceiverIterator& operator++() {
        TavloIterator<rxblk>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloReceiverIterator> begin() const {
        return TavloForwardIterator<TavloReceiverIterator>(*this);
    }
};

class TAVLO_API TavloConstReceiverIterator : public TavloIterator<const rxblk> {
public:
    TavloConstReceiverIterator() {}
    TavloConstReceiverIterator(const TavloIterator<const rxblk>& iterator)
        : TavloIterator<const rxblk>(iterator) {}
    const symblk* GetNode() const;
    TavloConstReceiverIterator& operator++() {
        TavloIterator<const rxblk>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloConstReceiverIterator> begin() const {
        return TavloForwardIterator<TavloConstReceiverIterator>(*this);
    }
};

/* View filter categories: `*` is the entry's category, or the None category
 * when it names none; null at the end. */
class TAVLO_API TavloFilterCategoryIterator : public TavloIterator<filtercatblk> {
public:
    TavloFilterCategoryIterator() {}
    TavloFilterCategoryIterator(const TavloIterator<filtercatblk>& iterator)
        : TavloIterator<filtercatblk>(iterator) {}
    cat* operator*() const;
    TavloFilterCategoryIterator& operator++() {
        TavloIterator<filtercatblk>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloFilterCategoryIterator> begin() const {
        return TavloForwardIterator<TavloFilterCategoryIterator>(*this);
    }
};

class TAVLO_API TavloConstFilterCategoryIterator : public TavloIterator<const filtercatblk> {
public:
    TavloConstFilterCategoryIterator() {}
    TavloConstFilterCategoryIterator(const TavloIterator<const filtercatblk>& iterator)
        : TavloIterator<const filtercatblk>(iterator) {}
    const cat* operator*() const;
    TavloConstFilterCategoryIterator& operator++() {
        TavloIterator<const filtercatblk>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloConstFilterCategoryIterator> begin() const {
        return TavloForwardIterator<TavloConstFilterCategoryIterator>(*this);
    }
};

/* Members of a signal group: `*` is the member's signal, or the None
 * subsignal when it names none; null at the end. */
class TAVLO_API TavloSubsignalIterator : public TavloIterator<siglistblk> {
public:
    TavloSubsignalIterator() {}
    TavloSubsignalIterator(const TavloIterator<siglistblk>& iterator)
        : TavloIterator<siglistblk>(iterator) {}
    sigblk* operator*() const;
    TavloSubsignalIterator& operator++() {
        TavloIterator<siglistblk>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloSubsignalIterator> begin() const {
        return TavloForwardIterator<TavloSubsignalIterator>(*this);
    }
};

class TAVLO_API TavloConstSubsignalIterator : public TavloIterator<const siglistblk> {
public:
    TavloConstSubsignalIterator() {}
    TavloConstSubsignalIterator(const TavloIterator<const siglistblk>& iterator)
        : TavloIterator<const siglistblk>(iterator) {}
    const sigblk* operator*() const;
    TavloConstSubsignalIterator& operator++() {
        TavloIterator<const siglistblk>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloConstSubsignalIterator> begin() const {
        return TavloForwardIterator<TavloConstSubsignalIterator>(*this);
    }
};

/* The manager's databases in list order: `*` is the database's handle;
 * null at the end. */
class TAVLO_API TavloDatabaseNameIterator : public TavloIterator<const DbListNode> {
public:
    TavloDatabaseNameIterator() {}
    TavloDatabaseNameIterator(const TavloIterator<const DbListNode>& iterator)
        : TavloIterator<const DbListNode>(iterator) {}
    const char* operator*() const;
    TavloDatabaseNameIterator& operator++() {
        TavloIterator<const DbListNode>::operator++();
        return *this;
    }
    TavloForwardIterator<TavloDatabaseNameIterator> begin() const {
        return TavloForwardIterator<TavloDatabaseNameIterator>(*this);
    }
};

TAVLO_END_VISIBLE

#endif /* __cplusplus */

#endif /* TAVLOMS_ITERATORS_H */
