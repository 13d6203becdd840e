// HashMap: buckets of pointers into one compacting entry array.
//
// Invariants: for every live entry e, slot e.bucketIndex of bucket e.hash & mask points to e;
// count is the sum of the bucket sizes; entryFill <= entryCapacity.
//
// How they are stored: hashmap_storage.h. Iterating: hashmap_iterator.cpp.
//
// In a map with the string callbacks of this library, or with none, equal keys are known to have
// equal hashes, and a lookup visits only entries whose tag agrees. Callbacks of the caller's own
// are called for every entry in its way, and the tags only tell where that way is likely to end.
#include <vncommon/hashmap.h>

#include <algorithm>
#include <cstdlib>

#include "containers/hashmap_iterator.h"
#include "containers/hashmap_storage.h"
#include "containers/same_string.h"

using namespace vncommon;

namespace {

constexpr uint32_t smallestSize = 16;
constexpr uint32_t entriesPerBucket = 4;
constexpr uint32_t smallestMask = smallestSize / entriesPerBucket - 1;
constexpr uint32_t entryStep = 1024;  // the entry array doubles up to here, then grows by it

// ---- Keys that are words: what takes the place of callbacks that are null

// Every bit of the word changes the low bits of the hash, which choose the bucket. The mask before
// the multiplication lets multiples of any number spread like random ones; without it, those of
// some fill only a few buckets.
uint32_t hashWord(const void* key) {
    __extension__ using Product = unsigned __int128;
    constexpr uint64_t mask = 0x243F6A8885A308D3;
    const Product product = Product{reinterpret_cast<uintptr_t>(key) ^ mask} * 0x9E3779B97F4A7C15U;
    const auto folded = static_cast<uint64_t>(product >> 64 ^ product);
    return static_cast<uint32_t>(folded >> 32 ^ folded);
}

int32_t compareWords(const void* a, const void* b) {
    return a == b ? 0 : 1;
}

// What a map's callbacks tell of its keys.
enum KeyKind : uint8_t { unknownKeys, stringKeys, wordKeys };

KeyKind kindOfKeys(vn_HashMapHash hash, vn_HashMapCompare compare) {
    if (hash == nullptr && compare == nullptr) {
        return wordKeys;
    }
    return hash == vn_String_hash && compare == vn_String_compare ? stringKeys : unknownKeys;
}

// Whether equal keys are known to have equal stored hashes.
bool hashDecides(const HashMap* map) {
    return map->keyKind != unknownKeys;
}

bool holdsWords(const HashMap* map) {
    return map->keyKind == wordKeys;
}

uint32_t hashOf(const HashMap* map, const void* key) {
    return holdsWords(map) ? hashWord(key) : map->hash(key);
}

// ---- The number of buckets

void changeBucketCount(HashMap* map, uint32_t newMask) {
    const Buckets old = bucketsOf(map);
    const Buckets fresh = makeBuckets(newMask, map->compare);
    for (uint32_t i = 0; i <= old.mask; ++i) {
        HashMapEntry** slots = slotsOf(old, i);
        for (uint32_t k = 0; k < old.records[i].size; ++k) {
            append(fresh, slots[k]->hash & newMask, slots[k]);
        }
    }
    freeBuckets(old);
    map->buckets = fresh.records;
    map->mask = fresh.mask;
}

// Halves the buckets, once. A mask with gaps can lie between 4 and 6, where half would be less
// than the four buckets that every map has.
void shrinkBuckets(HashMap* map) {
    const uint32_t newMask = (map->mask + 1) / 2 - 1;
    if (map->shrink && newMask >= smallestMask) {
        changeBucketCount(map, newMask);
    }
}

// ---- The entry array

HashMapEntry* makeEntries(uint32_t capacity) {
    const size_t size = size_t{capacity} * sizeof(HashMapEntry);
    void* large = allocateLarge(size);
    return static_cast<HashMapEntry*>(large != nullptr ? large : malloc(size));
}

// Copies the live entries into an array of the given size, without the holes and in the order of
// the buckets.
void rebuildEntries(HashMap* map, uint32_t capacity) {
    HashMapEntry* fresh = makeEntries(capacity);
    uint32_t fill = 0;
    const Buckets buckets = bucketsOf(map);
    for (uint32_t i = 0; i <= buckets.mask; ++i) {
        HashMapEntry** slots = slotsOf(buckets, i);
        for (uint32_t k = 0; k < buckets.records[i].size; ++k) {
            fresh[fill] = *slots[k];
            slots[k] = &fresh[fill++];
        }
    }
    free(map->entries);
    map->entries = fresh;
    map->entryCapacity = capacity;
    map->entryFill = fill;
}

void growEntries(HashMap* map) {
    const uint32_t capacity = map->entryCapacity;
    rebuildEntries(map, capacity < entryStep ? 2 * capacity : capacity + entryStep);
}

// Just above the step, one step less can be less than a quarter of the array: then it stays.
void shrinkEntries(HashMap* map) {
    const uint32_t capacity = map->entryCapacity;
    if (!map->shrink || capacity <= smallestSize || map->count >= capacity / 4) {
        return;
    }
    const uint32_t shrunk = capacity <= entryStep ? capacity / 2 : capacity - entryStep;
    if (shrunk >= map->count) {
        rebuildEntries(map, shrunk);
    }
}

// ---- Lookup

// The first of these entries that equals the key, or null; most likely that at `likely`. With the
// end of the loop known beforehand the processor waits less: at 1e5 entries a lookup takes 41
// instead of 77 ns.
HashMapEntry* findAmong(HashMapEntry** slots, uint32_t size, uint32_t likely, const HashMap* map,
                        const void* key) {
    uint32_t i = 0;
    for (; i < std::min(likely, size); ++i) {
        if (map->compare(slots[i]->key, key) == 0) [[unlikely]] {
            return slots[i];
        }
    }
    for (; i < size; ++i) {
        if (map->compare(slots[i]->key, key) == 0) [[likely]] {
            return slots[i];
        }
    }
    return nullptr;
}

template <KeyKind kind>
[[gnu::always_inline]] inline bool isEntryOf(const HashMapEntry* entry, const HashMap* map,
                                             const void* key, uint32_t hash) {
    if constexpr (kind == wordKeys) {
        return entry->key == key;
    } else if constexpr (kind == stringKeys) {
        return entry->hash == hash && sameString(entry->key, key);
    } else {
        return map->compare(entry->key, key) == 0;
    }
}

// The first of the matching ones that equals the key, or null. All slots of a bucket lie in one
// cache line, which is fetched while the tags are.
template <KeyKind kind>
[[gnu::always_inline]] inline HashMapEntry* findMatching(HashMapEntry** slots, SlotBits matching,
                                                         const HashMap* map, const void* key,
                                                         uint32_t hash) {
    for (; matching != 0; matching &= matching - 1) {
        HashMapEntry* entry = slots[firstOf(matching)];
        if (isEntryOf<kind>(entry, map, key, hash)) [[likely]] {
            return entry;
        }
    }
    return nullptr;
}

template <KeyKind kind>
[[gnu::noinline]] HashMapEntry* findOutgrown(const HashMap* map, uint32_t index, const void* key,
                                             uint32_t hash) {
    HashMapEntry** slots = slotsOf(bucketsOf(map), index);
    HashMapEntry** end = slots + map->buckets[index].size;
    HashMapEntry** found = std::find_if(slots, end, [=](const HashMapEntry* entry) {
        return isEntryOf<kind>(entry, map, key, hash);
    });
    return found != end ? *found : nullptr;
}

// The entry of the key with this hash, or null. Each kind of keys has its own, so that words and
// strings pay for no registers that only calls of the caller's functions need.
template <KeyKind kind>
[[gnu::always_inline]] inline HashMapEntry* findIn(const HashMap* map, uint32_t hash,
                                                   const void* key) {
    const Buckets buckets = bucketsOf(map);
    const uint32_t index = hash & buckets.mask;
    HashMapEntry** slots = firstSlotsOf(buckets, index);
    __builtin_prefetch(slots);
    const Tags tags = tagsOf(buckets, index);
    const SlotBits matching = matches(tags, tagOf(hash));
    if constexpr (kind == unknownKeys) {
        return tags == outgrown ? findOutgrown<kind>(map, index, key, hash)
                                : findAmong(slots, usedSlots(tags), firstOf(matching), map, key);
    } else {
        // No tag matches those of an outgrown bucket.
        HashMapEntry* found = findMatching<kind>(slots, matching, map, key, hash);
        return found == nullptr && tags == outgrown ? findOutgrown<kind>(map, index, key, hash)
                                                    : found;
    }
}

template <KeyKind kind>
[[gnu::noinline]] HashMapEntry* callFindIn(const HashMap* map, uint32_t hash, const void* key) {
    return findIn<kind>(map, hash, key);
}

[[gnu::always_inline]] inline HashMapEntry* findHashed(const HashMap* map, uint32_t hash,
                                                       const void* key) {
    switch (map->keyKind) {
        case wordKeys:
            return findIn<wordKeys>(map, hash, key);
        case stringKeys:
            return callFindIn<stringKeys>(map, hash, key);
        default:
            return callFindIn<unknownKeys>(map, hash, key);
    }
}

// An empty map is never asked for a hash: programs count the calls.
template <KeyKind kind>
[[gnu::noinline]] HashMapEntry* hashAndFindIn(const HashMap* map, const void* key) {
    return map->count > 0 ? findIn<kind>(map, map->hash(key), key) : nullptr;
}

[[gnu::always_inline]] inline HashMapEntry* findEntry(const HashMap* map, const void* key) {
    switch (map->keyKind) {
        case wordKeys:
            return findIn<wordKeys>(map, hashWord(key), key);
        case stringKeys:
            return hashAndFindIn<stringKeys>(map, key);
        default:
            return hashAndFindIn<unknownKeys>(map, key);
    }
}

// ---- Adding and removing

// Hashing a string or a word again gives the same as long as no callback had the key in between.
uint32_t hashAgain(const HashMap* map, const void* key, uint32_t hash) {
    return hashDecides(map) && map->fill == nullptr ? hash : hashOf(map, key);
}

void fillEntry(HashMap* map, HashMapEntry* entry, void* key, void* value) {
    if (map->fill == nullptr) {
        entry->key = key;
        entry->value = value;
    } else {
        map->fill(entry, key, value);
    }
}

bool isSameKey(const HashMap* map, const void* a, const void* b) {
    return holdsWords(map) ? a == b : sameString(a, b);
}

// A fill callback that stores a key with another hash is answered as if hashes were never
// compared, from then on.
void distrustChangedKey(HashMap* map, const HashMapEntry* entry, const void* key) {
    if (hashDecides(map) && map->fill != nullptr && !isSameKey(map, entry->key, key) &&
        hashOf(map, entry->key) != entry->hash) {
        map->keyKind = unknownKeys;
    }
}

// What an add or a remove changes beside the entry that it looks for: the bucket's record and, when
// an entry moves, the last one. Asked for early, they come while the lookup waits for its own:
// at 1e5 entries adding and removing take a third less.
[[gnu::always_inline]] inline void prefetchForChange(const HashMap* map, uint32_t hash,
                                                     bool moves) {
    const Buckets buckets = bucketsOf(map);
    const uint32_t index = hash & buckets.mask;
    __builtin_prefetch(&buckets.records[index]);
    const Tags tags = tagsOf(buckets, index);
    if (moves && tags != outgrown && tags != 0) {
        __builtin_prefetch(&firstSlotsOf(buckets, index)[usedSlots(tags) - 1]->bucketIndex);
    }
}

// Unlinks the key's entry; null when the key is absent.
HashMapEntry* takeOut(HashMap* map, const void* key) {
    if (map->count == 0) {
        return nullptr;
    }
    const uint32_t hash = hashOf(map, key);
    prefetchForChange(map, hash, true);
    const uint32_t index = hash & map->mask;
    HashMapEntry* entry = findHashed(map, hash, key);
    if (entry != nullptr) {
        unlink(bucketsOf(map), index, entry);
    }
    return entry;
}

void countRemoval(HashMap* map) {
    --map->count;
    if (map->count <= map->mask) {
        shrinkBuckets(map);
    }
}

}  // namespace

// ---- Construction

HashMap* vn_HashMap_ctor(vn_HashMapHash hash, vn_HashMapCompare compare, vn_HashMapFill fill,
                         vn_HashMapRelease release, uint32_t initialSize, int shrink) {
    auto* map = static_cast<HashMap*>(malloc(sizeof(HashMap)));
    vn_HashMap_init(map, hash, compare, fill, release, initialSize, shrink);
    return map;
}

void vn_HashMap_init(HashMap* map, vn_HashMapHash hash, vn_HashMapCompare compare,
                     vn_HashMapFill fill, vn_HashMapRelease release, uint32_t initialSize,
                     int shrink) {
    const uint32_t size = std::max(initialSize, smallestSize);
    map->keyKind = kindOfKeys(hash, compare);
    map->hash = hash != nullptr ? hash : hashWord;
    map->compare = compare != nullptr ? compare : compareWords;
    map->fill = fill;
    map->release = release;
    map->shrink = shrink != 0;
    map->initialSize = size;
    const Buckets buckets = makeBuckets(size / entriesPerBucket - 1, map->compare);
    map->buckets = buckets.records;
    map->mask = buckets.mask;
    map->entries = makeEntries(size);
    map->entryCapacity = size;
    map->entryFill = 0;
    map->count = 0;
}

void vn_HashMap_cleanup(HashMap* map) {
    vn_HashMap_removeAll(map);
    freeBuckets(bucketsOf(map));
    free(map->entries);
}

void vn_HashMap_dtor(HashMap* map) {
    vn_HashMap_cleanup(map);
    free(map);
}

uint32_t vn_HashMap_size(const HashMap* map) {
    return map->count;
}

// ---- Adding

HashMapIterator* vn_HashMap_add(HashMap* map, void* key, void* value) {
    return makeIterator(map, vn_HashMap_addQuick(map, key, value));
}

HashMapEntry* vn_HashMap_addQuick(HashMap* map, void* key, void* value) {
    const uint32_t hash = hashOf(map, key);
    prefetchForChange(map, hash, false);
    uint32_t index = hash & map->mask;
    if (findHashed(map, hash, key) != nullptr) {
        return nullptr;
    }
    const bool full = map->count == entriesPerBucket * map->mask + (entriesPerBucket - 1);
    ++map->count;
    if (full) {
        changeBucketCount(map, 2 * map->mask + 1);
        index = hashAgain(map, key, hash) & map->mask;
    }
    if (map->entryFill == map->entryCapacity) {
        growEntries(map);
    }
    HashMapEntry* entry = &map->entries[map->entryFill++];
    fillEntry(map, entry, key, value);
    entry->hash = hashAgain(map, key, hash);
    distrustChangedKey(map, entry, key);
    append(bucketsOf(map), index, entry);
    return entry;
}

void* vn_HashMap_replace(HashMap* map, void* key, void* value) {
    void* result = vn_HashMap_remove(map, key);
    vn_HashMap_addQuick(map, key, value);
    return result;
}

// ---- Removing

void* vn_HashMap_remove(HashMap* map, const void* key) {
    HashMapEntry* entry = takeOut(map, key);
    if (entry == nullptr) {
        return nullptr;
    }
    void* result = map->release != nullptr ? map->release(entry) : nullptr;
    countRemoval(map);
    shrinkEntries(map);
    return result;
}

HashMapEntry* vn_HashMap_findValueAndRemove(HashMap* map, const void* key) {
    HashMapEntry* entry = takeOut(map, key);
    if (entry != nullptr) {
        countRemoval(map);
    }
    return entry;
}

void vn_HashMap_removeAll(HashMap* map) {
    for (uint32_t i = 0; map->count > 0 && i <= map->mask; ++i) {
        Vector& bucket = map->buckets[i];
        while (bucket.size > 0) {
            HashMapEntry* entry = slotsOf(bucketsOf(map), i)[0];
            unlink(bucketsOf(map), i, entry);
            if (map->release != nullptr) {
                map->release(entry);
            }
        }
    }
    map->count = 0;
    shrinkBuckets(map);
}

void vn_HashMap_clear(HashMap* map) {
    for (uint32_t i = 0; i <= map->mask; ++i) {
        vn_Vector_clear(&map->buckets[i]);
        if (hasFirstSlots(map->buckets[i])) {
            tagsOf(bucketsOf(map), i) = 0;
        }
    }
    map->count = 0;
    map->entryFill = 0;
    shrinkBuckets(map);
}

// ---- Finding

bool vn_HashMap_exists(const HashMap* map, const void* key) {
    return findEntry(map, key) != nullptr;
}

HashMapIterator* vn_HashMap_find(HashMap* map, const void* key) {
    HashMapEntry* entry = findEntry(map, key);
    return entry != nullptr ? makeIterator(map, entry) : nullptr;
}

void* vn_HashMap_findValue(const HashMap* map, const void* key) {
    const HashMapEntry* entry = findEntry(map, key);
    return entry != nullptr ? entry->value : nullptr;
}
