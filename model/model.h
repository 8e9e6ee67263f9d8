// model/model.h: helpers shared by the model's own files (creation, linking,
// release, queries, copies). Not part of the public interface.
//
// Records are byte-packed, so nothing here takes the address of a record
// field: list heads that live in records are read into locals, changed and
// written back.
#ifndef TAVLOMS_MODEL_MODEL_H
#define TAVLOMS_MODEL_MODEL_H

#include <cstddef>

#include "tavloms/lifecycle.h"
#include "tavloms/records.h"

namespace tavlo::model {

// Makes TAVLO_MALLOC fail: after `count` more successful allocations every
// allocation returns null, until this is called again with a negative count
// (the default state). Lets tests drive every out-of-memory path.
void FailAllocationsAfter(long count);

// Blocks from TAVLO_MALLOC not yet released with TAVLO_MFREE, counted from
// the first call of this function on (before it, nothing is counted, so
// production code pays nothing). Lets tests see exactly how many blocks an
// operation makes or releases: compare two calls.
long LiveAllocations();

// While an object of this class lives, the blocks TAVLO_MALLOC gives the
// thread that made it are carved from large blocks of the library's own,
// taken from the system: a read makes hundreds of thousands of small records
// and texts, and the C heap's time and per-block overhead for them were a
// sixth of a read's time and memory. Each carved block is still released on
// its own with TAVLO_MFREE; a large block goes back to the system when the
// last block carved from it is released (its unused rest is not reused).
// Counting and FailAllocationsAfter treat carved blocks as any other. Under
// the address sanitizer nothing is carved, so that it sees every block.
class CarvedBlocks {
public:
    CarvedBlocks();
    ~CarvedBlocks();
    CarvedBlocks(const CarvedBlocks&) = delete;
    CarvedBlocks& operator=(const CarvedBlocks&) = delete;

    // TAVLO_MALLOC's: a zeroed block of `size` bytes carved for this thread,
    // or null when nothing is carved now (or the block is too large for it).
    static void* Carve(std::size_t size);

private:
    void Retire();

    CarvedBlocks* outer_;    // the thread's scope this one is inside, or null
    char* block_ = nullptr;  // the large block carved from, or null
    std::size_t used_ = 0;   // its bytes handed out, its header included
    long carved_ = 0;        // blocks carved from it
    long taken_ = 0;         // large blocks this scope has taken
};

// Large blocks that blocks were carved from and that are not given back yet
// (for tests); -1 when this build carves nothing.
long LargeBlocksInUse();

// What record creation does when memory runs out, beyond returning null.
// The records layer reports nothing itself; the database file reader
// installs its reporting here (closing its input, showing "not enough
// memory" and ending the read with TavloException): inRead for the records
// a read makes for every line, which stay quiet once the read has reported
// an error, always for the others.
struct CreationFailure {
    void (*inRead)();
    void (*always)();
};
void SetCreationFailure(const CreationFailure& handlers);

// A zero-filled record from TAVLO_MALLOC, or null.
template <class T>
T* Allocate() {
    return static_cast<T*>(TAVLO_MALLOC(sizeof(T)));
}

// Copies at most 32 characters of a name into a 33-byte name field and
// terminates it; a null source gives the empty name.
void CopyName(char* field, const char* source);

// Whether a name field holds exactly the given name (exact, case-sensitive).
// A null name matches nothing.
bool NameEquals(const char* field, const char* name);

// A copy of a text in TAVLO_MALLOC memory; null for a null text, and null
// when memory is exhausted.
char* DuplicateText(const char* text);

// Links a record at the end of a list, keeping the order records came in.
template <class T>
void AppendTail(T** head, T* record) {
    if (*head == nullptr) {
        *head = record;
        return;
    }
    T* tail = *head;
    while (tail->next != nullptr) {
        tail = tail->next;
    }
    tail->next = record;
}

// Releases every record of a list, each with `releaseOne`.
template <class T, class Release>
void ReleaseEach(T* list, Release releaseOne) {
    while (list != nullptr) {
        T* next = list->next;
        releaseOne(list);
        list = next;
    }
}

// Releases the entries of a list and nothing they point to.
template <class T>
void ReleaseEntries(T* list) {
    ReleaseEach(list, [](T* entry) { TAVLO_MFREE(entry); });
}

// Whether an attribute value holds a text, as its definition says.
inline bool HoldsText(const attr_def* def) {
    return def != nullptr && def->value_type == TAVLO_ATTR_STRING;
}

// Full-depth release of whole lists: each record with everything it owns,
// as TAVLO_FREE releases a database. Attribute values read their definitions,
// so they must go before the definitions do. Null lists are ignored.
void ReleaseAttrs(attr* list);
void ReleaseValueDescriptions(val* list);
void ReleaseRelations(rxblk* list);  // entries with their relation values
void ReleaseAttrDefs(attr_def* list);
void ReleaseCategories(cat* list);
void ReleaseFilterCategories(filtercatblk* list);
void ReleaseFilterNodes(rxblk* list);  // entries only: their third field is unset
void ReleaseValueTables(valtable* list);
void ReleaseSigTypes(sigtype* list);
void ReleaseNodes(symblk* list);
void ReleaseSignals(sigblk* list);
void ReleaseMessages(msgblk* list);
void ReleaseEnvvars(env_var_blk* list);
void ReleaseBitTimings(btlblk* list);

}  // namespace tavlo::model

#endif  // TAVLOMS_MODEL_MODEL_H
