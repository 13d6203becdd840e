// HashMapIterator: walks a map in the order of its buckets.
//
// The plain step goes from the entry to its bucket, from there to the next slot and from the slot
// to the next entry. The entries lie at random in memory, each of these loads waits for the one
// before, and the processor guesses the end of most buckets wrong. So a thread remembers what it is
// going to visit: the used slots of the next buckets, as a set of bits. The next slot follows from
// that alone; the processor runs ahead, and the loads overlap. At 1e5 entries a step takes 8
// instead of 12 ns.
//
// What is remembered is a guess: each step compares it with the entry and with the tags before it
// believes it. It is wrong when a thread walks two maps in turn or has changed the map; then the
// plain step is taken. No address is remembered: a map may end at any time.
#include "containers/hashmap_iterator.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>

#include "containers/hashmap_storage.h"

using namespace vncommon;

namespace {

// ---- Windows of eight buckets

// Slots of a window, slot k of its bucket i in bit 8 * i + k.
using Slots = uint64_t;

constexpr uint32_t windowBuckets = 64 / bucketSlots;

uint32_t windowOf(uint32_t bucket) {
    return bucket / windowBuckets * windowBuckets;
}

uint32_t lowest(Slots slots) {
    return static_cast<uint32_t>(std::countr_zero(slots));
}

Slots withoutLowest(Slots slots) {
    return slots & (slots - 1);
}

// The used slots of the window's buckets; of outgrown ones, none.
Slots usedSlotsOf(const Buckets& buckets, uint32_t window) {
    Slots used = 0;
    const uint32_t end = std::min(buckets.mask - window, windowBuckets - 1);
    for (uint32_t i = 0; i <= end; ++i) {
        used |= Slots{usedSlotBits(tagsOf(buckets, window + i))} << (bucketSlots * i);
    }
    return used;
}

// ---- Fetching entries ahead of the iterator

// At 1e6 entries a step takes 17 ns, without this 70; maps that fit the caches do better without.
// Both ends of an entry: a quarter of them lie across two cache lines. To be inlined: the compiler
// drops a call whose only effect is to prefetch.
constexpr uint32_t prefetchCount = 8192;  // entries

// The pointer may be any word, since the slot that a wrong guess names may never have been filled:
// addresses are computed from it, and nothing is read.
[[gnu::always_inline]] inline void prefetchEntry(const HashMapEntry* entry) {
    const auto address = reinterpret_cast<uintptr_t>(entry);
    __builtin_prefetch(entry);
    __builtin_prefetch(
        reinterpret_cast<const void*>(address + offsetof(HashMapEntry, bucketIndex)));
}

[[gnu::always_inline]] inline void prefetchBucket(const HashMap* map, uint32_t index) {
    if (map->count < prefetchCount || index > map->mask) {
        return;
    }
    HashMapEntry** slots = slotsOf(bucketsOf(map), index);
    for (uint32_t i = 0; i < map->buckets[index].size; ++i) {
        prefetchEntry(slots[i]);
    }
}

// ---- Where a thread is

struct Place {
    uint32_t window;  // the first bucket
    Slots ahead;      // used slots of this window: that of the current entry, and those behind it
    Slots toFetch;    // used slots of the next window whose entries were not fetched yet
};

// Static TLS, because a step must not call for the address of its guess.
__attribute__((tls_model("initial-exec"))) constinit thread_local Place guess = {0, 0, 0};

// Whether the entry stands in the lowest of these slots, and the tags agree with them up to the
// second lowest.
bool agrees(const Buckets& buckets, uint32_t window, Slots ahead, const HashMapEntry* entry) {
    const uint32_t slot = lowest(ahead);
    const uint32_t index = window + slot / bucketSlots;
    const uint32_t position = slot % bucketSlots;
    if ((entry->hash & buckets.mask) != index || entry->bucketIndex != position) {
        return false;
    }
    const uint32_t used = usedSlotBitsOfTwo(&tagsOf(buckets, index)) >> position;
    const Slots upToSecond = withoutLowest(ahead) ^ (withoutLowest(ahead) - 1);
    return (((ahead >> slot) ^ used) & (upToSecond >> slot)) == 0;
}

// The guess may be of a map with more buckets.
[[gnu::always_inline]] inline void fetchAnother(const Buckets& buckets) {
    const uint32_t slot = lowest(guess.toFetch);
    const uint32_t bucket = guess.window + windowBuckets + slot / bucketSlots;
    if (bucket <= buckets.mask) {
        prefetchEntry(firstSlotsOf(buckets, bucket)[slot % bucketSlots]);
    }
    guess.toFetch = withoutLowest(guess.toFetch);
}

// The entry behind this one, or null when the guess does not tell.
HashMapEntry* guessedBehind(const HashMap* map, const HashMapEntry* entry) {
    const Buckets buckets = bucketsOf(map);
    const Slots ahead = guess.ahead;
    const Slots behind = withoutLowest(ahead);
    if (behind == 0 || !agrees(buckets, guess.window, ahead, entry)) [[unlikely]] {
        return nullptr;
    }
    guess.ahead = behind;
    if (guess.toFetch != 0) {
        fetchAnother(buckets);
    }
    const uint32_t slot = lowest(behind);
    return firstSlotsOf(buckets, guess.window + slot / bucketSlots)[slot % bucketSlots];
}

// ---- Plain steps

uint32_t bucketOf(const HashMap* map, const HashMapEntry* entry) {
    return entry->hash & map->mask;
}

// The first entry in the buckets from index up, or null.
HashMapEntry* firstEntryFrom(const HashMap* map, uint32_t index) {
    const Buckets buckets = bucketsOf(map);
    for (uint32_t i = index; i <= buckets.mask; ++i) {
        if (tagsOf(buckets, i) != 0 && buckets.records[i].size > 0) {
            return slotsOf(buckets, i)[0];
        }
    }
    return nullptr;
}

// The last entry in the buckets below index, or null.
HashMapEntry* lastEntryBelow(const HashMap* map, uint32_t index) {
    constexpr uint32_t distance = 8;  // buckets
    const Buckets buckets = bucketsOf(map);
    for (uint32_t i = index; i-- > 0;) {
        prefetchBucket(map, i - distance);
        if (const uint32_t size = buckets.records[i].size; size > 0) {
            return slotsOf(buckets, i)[size - 1];
        }
    }
    return nullptr;
}

// What is to be fetched of this window; its outgrown buckets are fetched at once.
Slots startFetching(const HashMap* map, uint32_t window) {
    if (map->count < prefetchCount || window > map->mask) {
        return 0;
    }
    const Buckets buckets = bucketsOf(map);
    for (uint32_t i = window; i <= std::min(buckets.mask, window + windowBuckets - 1); ++i) {
        if (tagsOf(buckets, i) == outgrown) [[unlikely]] {
            prefetchBucket(map, i);
        }
    }
    return usedSlotsOf(buckets, window);
}

void enterWindow(const HashMap* map, uint32_t window) {
    const Buckets buckets = bucketsOf(map);
    while (guess.toFetch != 0) {
        fetchAnother(buckets);
    }
    guess.window = window;
    guess.ahead = usedSlotsOf(buckets, window);
    guess.toFetch = startFetching(map, window + windowBuckets);
}

// After a step from one bucket to this entry. The window is looked at when it is entered only: two
// walks that take turns would otherwise look at one with every step.
void follow(const HashMap* map, uint32_t bucketLeft, const HashMapEntry* entry) {
    const uint32_t bucket = bucketOf(map, entry);
    if (windowOf(bucket) != windowOf(bucketLeft)) {
        enterWindow(map, windowOf(bucket));
    }
    if (windowOf(bucket) == guess.window) {
        const uint32_t slot =
            bucket % windowBuckets * bucketSlots + entry->bucketIndex % bucketSlots;
        guess.ahead &= ~Slots{0} << slot;
    }
}

HashMapEntry* entryBehind(const HashMap* map, const HashMapEntry* entry) {
    const uint32_t bucket = bucketOf(map, entry);
    const uint32_t following = entry->bucketIndex + 1;
    HashMapEntry* found = following < map->buckets[bucket].size
                              ? slotsOf(bucketsOf(map), bucket)[following]
                              : firstEntryFrom(map, bucket + 1);
    if (found != nullptr) {
        follow(map, bucket, found);
    }
    return found;
}

HashMapEntry* entryBefore(const HashMap* map, const HashMapEntry* entry) {
    const uint32_t bucket = bucketOf(map, entry);
    const uint32_t position = entry->bucketIndex;
    return position > 0 ? slotsOf(bucketsOf(map), bucket)[position - 1]
                        : lastEntryBelow(map, bucket);
}

bool canMove(const HashMapIterator* iterator) {
    return iterator != nullptr && iterator->entry != nullptr && iterator->map->count > 0;
}

bool moveTo(HashMapIterator* iterator, HashMapEntry* entry) {
    iterator->entry = entry;
    return entry != nullptr;
}

// Not inlined: the usual step then has no registers to save.
[[gnu::noinline]] bool moveBehind(HashMapIterator* iterator) {
    return moveTo(iterator, entryBehind(iterator->map, iterator->entry));
}

}  // namespace

HashMapIterator* vncommon::makeIterator(HashMap* map, HashMapEntry* entry) {
    auto* iterator = static_cast<HashMapIterator*>(malloc(sizeof(HashMapIterator)));
    iterator->map = map;
    iterator->entry = entry;
    return iterator;
}

HashMapIterator* vn_HashMap_first(HashMap* map) {
    HashMapEntry* entry = firstEntryFrom(map, 0);
    if (entry == nullptr) {
        return nullptr;
    }
    guess.toFetch = 0;  // of a walk that was not finished
    enterWindow(map, windowOf(bucketOf(map, entry)));
    return makeIterator(map, entry);
}

HashMapIterator* vn_HashMap_last(HashMap* map) {
    HashMapEntry* entry = lastEntryBelow(map, map->mask + 1);
    return entry != nullptr ? makeIterator(map, entry) : nullptr;
}

bool vn_HashMapIterator_valid(const HashMapIterator* iterator) {
    return iterator != nullptr && iterator->entry != nullptr;
}

void* vn_HashMapIterator_key(const HashMapIterator* iterator) {
    return vn_HashMapIterator_valid(iterator) ? iterator->entry->key : nullptr;
}

void* vn_HashMapIterator_value(const HashMapIterator* iterator) {
    return vn_HashMapIterator_valid(iterator) ? iterator->entry->value : nullptr;
}

bool vn_HashMapIterator_next(HashMapIterator* iterator) {
    if (!canMove(iterator)) {
        return false;
    }
    HashMapEntry* behind = guessedBehind(iterator->map, iterator->entry);
    if (behind != nullptr) [[likely]] {
        iterator->entry = behind;
        return true;
    }
    return moveBehind(iterator);
}

bool vn_HashMapIterator_back(HashMapIterator* iterator) {
    return canMove(iterator) && moveTo(iterator, entryBefore(iterator->map, iterator->entry));
}

void vn_HashMapIterator_dtor(HashMapIterator* iterator) {
    free(iterator);
}
