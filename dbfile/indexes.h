// dbfile/indexes.h: the reader's indexes of what it has read, so that
// later statements find messages and signals by identifier and name in
// constant time. Private to the reader.
#ifndef TAVLOMS_DBFILE_INDEXES_H
#define TAVLOMS_DBFILE_INDEXES_H

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "tavloms/records.h"

namespace tavlo::dbfile {

// Whether a name field of a record the reader made (always terminated)
// holds a name as the reader cuts it.
inline bool SameName(const char* field, const char* name) {
    return field[0] == name[0] && std::strcmp(field, name) == 0;
}

// The signals of a message are kept in the reader's signal table as one
// run: [first, first + count).
struct SignalRun {
    std::uint32_t first = 0;
    std::uint32_t count = 0;
};

// Messages by identifier, each with its run of signals: an open-addressing
// table, one probe and one cache line in the common case (files name
// messages by identifier all the time).
class MessageIndex {
public:
    struct Entry {
        msgblk* message;
        SignalRun signals;
    };

    Entry* Find(std::uint32_t id) {
        if (slots_.empty()) {
            return nullptr;
        }
        for (std::size_t i = Hash(id);; i = (i + 1) & mask_) {
            Slot& slot = slots_[i];
            if (slot.entry.message == nullptr) {
                return nullptr;
            }
            if (slot.id == id) {
                return &slot.entry;
            }
        }
    }
    // The new entry; valid until the next Add.
    Entry* Add(msgblk* message, std::uint32_t firstSignal) {
        if ((count_ + 1) * 2 > slots_.size()) {
            Grow();
        }
        ++count_;
        return Place(Slot{message->id, Entry{message, SignalRun{firstSignal, 0}}});
    }

private:
    struct Slot {
        std::uint32_t id;
        Entry entry;
    };
    std::size_t Hash(std::uint32_t id) const {
        return static_cast<std::size_t>((id * 0x9E3779B1u) ^ (id >> 16)) & mask_;
    }
    Entry* Place(const Slot& slot) {
        std::size_t i = Hash(slot.id);
        while (slots_[i].entry.message != nullptr) {
            i = (i + 1) & mask_;
        }
        slots_[i] = slot;
        return &slots_[i].entry;
    }
    void Grow() {
        std::vector<Slot> old(slots_.empty() ? 64 : slots_.size() * 2, Slot{0, Entry{nullptr, {}}});
        old.swap(slots_);
        mask_ = slots_.size() - 1;
        for (const Slot& slot : old) {
            if (slot.entry.message != nullptr) {
                Place(slot);
            }
        }
    }

    std::vector<Slot> slots_;
    std::size_t mask_ = 0;
    std::size_t count_ = 0;
};

// Every signal read, message by message in the order they came, with a hash
// of its name. Statements that name a signal (comments, values, value
// descriptions) come long after its message, when the signal records have
// left the cache; comparing hashes in this compact table touches no record
// but the one found, and the statements' usual message order lets the
// processor stream the table. Hashes and signals are kept apart, in chunks
// that are never moved: the table lives through the whole read, while the
// records grow, so it takes no more than it holds and leaves no freed copies
// behind.
class SignalTable {
public:
    // A name's hash, a word at a time; no byte after the name is read (the
    // last word overlaps the one before it).
    static std::uint32_t Hash(const char* name, std::size_t length) {
        std::uint64_t hash = (length + 1) * kMix;
        if (length >= 8) {
            std::size_t at = 0;
            for (; at + 8 < length; at += 8) {
                hash = Mix(hash, Word<std::uint64_t>(name + at));
            }
            hash = Mix(hash, Word<std::uint64_t>(name + length - 8));
        } else if (length >= 4) {
            hash = Mix(hash, Word<std::uint32_t>(name) |
                                 std::uint64_t{Word<std::uint32_t>(name + length - 4)} << 32);
        } else if (length > 0) {
            const auto byte = [name](std::size_t at) {
                return std::uint64_t{static_cast<unsigned char>(name[at])};
            };
            hash = Mix(hash, byte(0) | byte(length / 2) << 8 | byte(length - 1) << 16);
        }
        return static_cast<std::uint32_t>(hash >> 32);
    }
    static std::uint32_t Hash(const char* name) { return Hash(name, std::strlen(name)); }

    std::uint32_t size() const { return size_; }

    void Add(sigblk* signal) { Add(signal, Hash(signal->name)); }
    // With its name's hash known.
    void Add(sigblk* signal, std::uint32_t hash) {
        if (size_ % kChunk == 0 && size_ / kChunk == chunks_.size()) {
            std::unique_ptr<Chunk> chunk(new Chunk);  // left unfilled
            chunks_.push_back(std::move(chunk));
        }
        Chunk& chunk = *chunks_[size_ / kChunk];
        chunk.hashes[size_ % kChunk] = hash;
        chunk.signals[size_ % kChunk] = signal;
        ++size_;
    }
    void DropLast() { --size_; }  // a signal a tolerant read gave up

    sigblk* Find(const SignalRun& run, const char* name) const {
        return Find(run, name, Hash(name));
    }
    sigblk* Find(const SignalRun& run, const char* name, std::uint32_t hash) const {
        std::uint32_t at = run.first;
        const std::uint32_t end = run.first + run.count;
        while (at < end) {
            const Chunk& chunk = *chunks_[at / kChunk];
            const std::uint32_t from = at % kChunk;
            const std::uint32_t to = std::min<std::uint32_t>(kChunk, from + (end - at));
            for (std::uint32_t i = from; i < to; ++i) {
                if (chunk.hashes[i] == hash && SameName(chunk.signals[i]->name, name)) {
                    return chunk.signals[i];
                }
            }
            at += to - from;
        }
        return nullptr;
    }

private:
    static constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15u;
    static std::uint64_t Mix(std::uint64_t hash, std::uint64_t word) {
        hash = (hash ^ word) * kMix;
        return hash ^ (hash >> 29);
    }
    template <class T>
    static T Word(const char* at) {
        T word;
        std::memcpy(&word, at, sizeof word);
        return word;
    }

    static constexpr std::uint32_t kChunk = 1u << 14;
    struct Chunk {
        std::uint32_t hashes[kChunk];
        sigblk* signals[kChunk];
    };
    std::vector<std::unique_ptr<Chunk>> chunks_;
    std::uint32_t size_ = 0;
};

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_INDEXES_H
