// model/alloc.cpp: the library's memory, names and texts. Every record and
// every text handed across the module boundary comes from TAVLO_MALLOC, so a
// client never frees with another allocator.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "model/model.h"

namespace {

std::atomic<long> gAllocationsBeforeFailure{-1};  // negative: never fail
std::atomic<long> gLiveAllocations{0};
// Counting costs an atomic operation per block, which big reads feel, so it
// starts only when someone first asks for the count (tests do).
std::atomic<bool> gCounting{false};

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
    void* block = std::calloc(1, size != 0 ? size : 1);
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
        std::free(block);
    }
}

extern "C" void TAVLO_FREE_MODE_CACHE(void) {}
