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
#include <string_view>
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

// Asks the processor to fetch the cache line at `address`.
inline void Touch(const void* address) {
#if defined(__GNUC__)
    __builtin_prefetch(address, 1);
#else
    (void)address;
#endif
}

// Messages by identifier, each with its run of signals. The entries are kept
// in the order the messages were read, and a table of identifiers finds
// them; later statements mostly name messages in that same order, so the
// entries just after the one found last are tried first: a look-up then
// walks memory the processor has fetched ahead, instead of a probe at a
// random place of the table.
class MessageIndex {
public:
    struct Entry {
        msgblk* message;
        SignalRun signals;
        std::uint32_t id;
    };

    Entry* Find(std::uint32_t id) {
        if (slots_.empty()) {
            return nullptr;
        }
        for (std::size_t i = Hash(id);; i = (i + 1) & mask_) {
            const Slot& slot = slots_[i];
            if (slot.entry == 0) {
                return nullptr;
            }
            if (slot.id == id) {
                return &entries_[slot.entry - 1];
            }
        }
    }
    // Find, trying first the few entries after *at (an entry's place, or
    // any number); *at is then the place of the entry found.
    Entry* FindAfter(std::uint32_t id, std::size_t* at) {
        const std::size_t end = std::min(entries_.size(), *at + 1 + kAhead);
        Entry* entry = nullptr;
        for (std::size_t i = *at + 1; i < end && entry == nullptr; ++i) {
            if (entries_[i].id == id) {
                entry = &entries_[i];
            }
        }
        if (entry == nullptr && (entry = Find(id)) == nullptr) {
            return nullptr;
        }
        *at = static_cast<std::size_t>(entry - entries_.data());
        // What a statement changes of a message lies after its name, on a
        // line of its own: asked for at once.
        Touch(&entry->message->comment);
        return entry;
    }
    // The entry at the place `at`, or null when there is none.
    const Entry* At(std::size_t at) const {
        return at < entries_.size() ? &entries_[at] : nullptr;
    }
    // The new entry; valid until the next Add.
    Entry* Add(msgblk* message, std::uint32_t firstSignal) {
        if ((entries_.size() + 1) * 2 > slots_.size()) {
            Grow();
        }
        entries_.push_back(Entry{message, SignalRun{firstSignal, 0}, message->id});
        Place(Slot{message->id, static_cast<std::uint32_t>(entries_.size())});
        return &entries_.back();
    }
    std::size_t size() const { return entries_.size(); }
    Entry& Last() { return entries_.back(); }

private:
    static constexpr std::size_t kAhead = 8;
    struct Slot {
        std::uint32_t id;
        std::uint32_t entry;  // its place + 1; 0: free
    };
    std::size_t Hash(std::uint32_t id) const {
        return static_cast<std::size_t>((id * 0x9E3779B1u) ^ (id >> 16)) & mask_;
    }
    void Place(const Slot& slot) {
        std::size_t i = Hash(slot.id);
        while (slots_[i].entry != 0) {
            i = (i + 1) & mask_;
        }
        slots_[i] = slot;
    }
    void Grow() {
        std::vector<Slot> old(slots_.empty() ? 64 : slots_.size() * 2, Slot{0, 0});
        old.swap(slots_);
        mask_ = slots_.size() - 1;
        for (const Slot& slot : old) {
            if (slot.entry != 0) {
                Place(slot);
            }
        }
    }

    std::vector<Entry> entries_;
    std::vector<Slot> slots_;
    std::size_t mask_ = 0;
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
                if (chunk.hashes[i] == hash) {
                    // The fields statements set lie a few cache lines after
                    // the name: fetched while the name is compared.
                    sigblk* signal = chunk.signals[i];
                    Touch(&signal->comment);
                    Touch(&signal->value_descriptions);
                    if (SameName(signal->name, name)) {
                        return signal;
                    }
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

// Names as keys of the reader's hash maps, hashed as the signal table does.
struct NameHash {
    std::size_t operator()(std::string_view name) const {
        return SignalTable::Hash(name.data(), name.size());
    }
};

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_INDEXES_H
