// model/alloc.cpp: the library's memory, names and texts. Every record and
// every text handed across the module boundary comes from TAVLO_MALLOC, so a
// client never frees with another allocator.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "model/model.h"
#include "platform/platform.h"

#if defined(__SANITIZE_ADDRESS__)
#define TAVLO_CARVING 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TAVLO_CARVING 0
#endif
#endif
#ifndef TAVLO_CARVING
#define TAVLO_CARVING 1
#endif

namespace {

std::atomic<long> gAllocationsBeforeFailure{-1};  // negative: never fail
std::atomic<long> gLiveAllocations{0};
// Counting costs an atomic operation per block, which big reads feel, so it
// starts only when someone first asks for the count (tests do).
std::atomic<bool> gCounting{false};

// Carving. A large block is kLargeSize bytes at a multiple of its size, so
// that the large block of any address in it is found by masking; its first
// kLargeHeader bytes hold the count of its blocks not yet released, plus
// kHeld while a scope carves from it. Blocks are carved at multiples of 8
// bytes (records are byte-packed; texts need none). On Linux the size is that
// of a large page, so that a block taken at once can be one; elsewhere a
// block is written with zeros when made, and a smaller one costs a small
// file's read less.
#if defined(__linux__)
constexpr unsigned int kLargeShift = 21;
#else
constexpr unsigned int kLargeShift = 20;
#endif
constexpr std::size_t kLargeSize = std::size_t{1} << kLargeShift;
constexpr std::size_t kLargeHeader = 64;
constexpr std::size_t kMostCarved = 4096;  // larger blocks come from the C heap
constexpr long kHeld = 1L << 30;  // more than the blocks a large block can hold

struct LargeHeader {
    std::atomic<long> live;
};

// Which ranges of the address space are large blocks: a bit per kLargeSize
// bytes, in leaves of 2^kLeafShift bits made when first needed (and kept),
// so that TAVLO_MFREE tells a carved block from a C heap block by its
// address alone, without taking a lock.
constexpr unsigned int kLeafShift = 15;
constexpr unsigned int kWordBits = sizeof(std::uintptr_t) * 8;
constexpr std::size_t kLeafWords = (std::size_t{1} << kLeafShift) / kWordBits;
constexpr unsigned int kAddressBits = sizeof(void*) == 8 ? 48 : 32;
constexpr int kLeafIndexBits =
    static_cast<int>(kAddressBits) - static_cast<int>(kLargeShift + kLeafShift);
constexpr std::size_t kLeaves = std::size_t{1} << (kLeafIndexBits > 0 ? kLeafIndexBits : 0);
using LeafWord = std::atomic<std::uintptr_t>;
std::atomic<LeafWord*> gLeaves[kLeaves];
std::mutex gLeafMutex;
std::atomic<long> gLargeBlocks{0};

// Every record of a read asks for the scope: on ELF systems it is kept in
// the thread's static block, one load away, rather than found through the
// loader's look-up call for a library's own thread variables.
#if defined(__ELF__) && defined(__GNUC__)
#define TAVLO_LOCAL_TLS __attribute__((tls_model("initial-exec")))
#else
#define TAVLO_LOCAL_TLS
#endif
thread_local tavlo::model::CarvedBlocks* gScope TAVLO_LOCAL_TLS = nullptr;

// The word and bit of a large block's address in its leaf (made if `make`),
// or null when it has none.
LeafWord* LeafWordOf(std::uintptr_t address, bool make, std::uintptr_t& bit) {
    const std::uintptr_t index = address >> kLargeShift;
    const std::uintptr_t leaf = index >> kLeafShift;
    if (leaf >= kLeaves) {
        return nullptr;
    }
    LeafWord* words = gLeaves[leaf].load(std::memory_order_acquire);
    if (words == nullptr && make) {
        std::lock_guard<std::mutex> lock(gLeafMutex);
        words = gLeaves[leaf].load(std::memory_order_acquire);
        if (words == nullptr) {
            words = new (std::nothrow) LeafWord[kLeafWords]();
            gLeaves[leaf].store(words, std::memory_order_release);
        }
    }
    if (words == nullptr) {
        return nullptr;
    }
    const std::uintptr_t inLeaf = index & ((std::uintptr_t{1} << kLeafShift) - 1);
    bit = std::uintptr_t{1} << (inLeaf % kWordBits);
    return &words[inLeaf / kWordBits];
}

bool IsLargeBlock(std::uintptr_t address) {
    std::uintptr_t bit = 0;
    const LeafWord* word = LeafWordOf(address, false, bit);
    return word != nullptr && (word->load(std::memory_order_acquire) & bit) != 0;
}

// A new large block, marked and held; null when there is no memory. Its
// pages are taken at once when `populate`: a read that has filled one block
// will likely fill the next, and taking them one fault at a time costs more
// than the zeroing; the first is left to fill page by page, so that reading
// a small file costs no more than it uses.
char* NewLargeBlock(bool populate) {
    void* block = tavlo::platform::AllocateAligned(kLargeSize, kLargeSize);
    if (block == nullptr) {
        return nullptr;
    }
    if (populate) {
        char* const end = static_cast<char*>(block) + kLargeSize;
        tavlo::platform::PreferLargePages(block, end);
        tavlo::platform::PopulatePages(block, end);
    }
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    std::uintptr_t bit = 0;
    LeafWord* word = LeafWordOf(address, true, bit);
    if (word == nullptr) {
        tavlo::platform::FreeAligned(block, kLargeSize);
        return nullptr;
    }
    new (block) LargeHeader{};
    static_cast<LargeHeader*>(block)->live.store(kHeld, std::memory_order_relaxed);
    word->fetch_or(bit, std::memory_order_release);
    gLargeBlocks.fetch_add(1, std::memory_order_relaxed);
    return static_cast<char*>(block);
}

// Changes a large block's count; the last release gives it back (its mark
// is cleared first, so that no address of it reads as carved once the
// system may hand it out again).
void ReleaseLarge(char* block, long change) {
    auto* header = reinterpret_cast<LargeHeader*>(block);
    if (header->live.fetch_add(change, std::memory_order_acq_rel) + change != 0) {
        return;
    }
    std::uintptr_t bit = 0;
    LeafWord* word = LeafWordOf(reinterpret_cast<std::uintptr_t>(block), false, bit);
    word->fetch_and(~bit, std::memory_order_release);
    header->~LargeHeader();
    tavlo::platform::FreeAligned(block, kLargeSize);
    gLargeBlocks.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace

namespace tavlo::model {

void FailAllocationsAfter(long count) {
    gAllocationsBeforeFailure.store(count < 0 ? -1 : count, std::memory_order_relaxed);
}

long LiveAllocations() {
    gCounting.store(true, std::memory_order_relaxed);
    return gLiveAllocations.load(std::memory_order_relaxed);
}

void CopyName(char* field, const char* source) {
    std::size_t length = 0;
    if (source != nullptr) {
        const void* end = std::memchr(source, '\0', TAVLO_NAME_SIZE - 1);
        length = end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - source)
                                : TAVLO_NAME_SIZE - 1;
        std::memcpy(field, source, length);
    }
    field[length] = '\0';
}

bool NameEquals(const char* field, const char* name) {
    if (name == nullptr) {
        return false;
    }
    for (int i = 0; i < TAVLO_NAME_SIZE; ++i) {
        if (field[i] != name[i]) {
            return false;
        }
        if (field[i] == '\0') {
            return true;
        }
    }
    // A field without a terminating zero: its 33 characters matched.
    return name[TAVLO_NAME_SIZE] == '\0';
}

CarvedBlocks::CarvedBlocks() : outer_(gScope) {
    if (TAVLO_CARVING) {
        gScope = this;
    }
}

CarvedBlocks::~CarvedBlocks() {
    if (gScope == this) {
        gScope = outer_;
    }
    Retire();
}

void CarvedBlocks::Retire() {
    if (block_ != nullptr) {
        ReleaseLarge(block_, carved_ - kHeld);
        block_ = nullptr;
    }
}

void* CarvedBlocks::Carve(std::size_t size) {
    CarvedBlocks* scope = gScope;
    if (scope == nullptr || size > kMostCarved) {
        return nullptr;
    }
    const std::size_t rounded = size == 0 ? 8 : (size + 7) & ~std::size_t{7};
    if (scope->block_ == nullptr || kLargeSize - scope->used_ < rounded) {
        scope->Retire();
        scope->block_ = NewLargeBlock(scope->taken_++ > 0);
        if (scope->block_ == nullptr) {
            return nullptr;
        }
        scope->used_ = kLargeHeader;
        scope->carved_ = 0;
    }
    void* block = scope->block_ + scope->used_;
    scope->used_ += rounded;
    ++scope->carved_;
    return block;
}

long LargeBlocksInUse() {
    return TAVLO_CARVING ? gLargeBlocks.load(std::memory_order_relaxed) : -1;
}

char* DuplicateText(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(TAVLO_MALLOC(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return copy;
}

}  // namespace tavlo::model

extern "C" void* TAVLO_MALLOC(size_t size) {
    if (gAllocationsBeforeFailure.load(std::memory_order_relaxed) >= 0 &&
        gAllocationsBeforeFailure.fetch_sub(1, std::memory_order_relaxed) <= 0) {
        gAllocationsBeforeFailure.store(0, std::memory_order_relaxed);
        return nullptr;
    }
    void* block = tavlo::model::CarvedBlocks::Carve(size);
    if (block == nullptr) {
        block = std::calloc(1, size != 0 ? size : 1);
    }
    if (block != nullptr && gCounting.load(std::memory_order_relaxed)) {
        gLiveAllocations.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

extern "C" void TAVLO_MFREE(void* block) {
    if (block != nullptr) {
        if (gCounting.load(std::memory_order_relaxed)) {
            gLiveAllocations.fetch_sub(1, std::memory_order_relaxed);
        }
        const auto address = reinterpret_cast<std::uintptr_t>(block);
        if (IsLargeBlock(address)) {
            ReleaseLarge(reinterpret_cast<char*>(address & ~std::uintptr_t{kLargeSize - 1}), -1);
            return;
        }
        std::free(block);
    }
}

extern "C" void TAVLO_FREE_MODE_CACHE(void) {}
