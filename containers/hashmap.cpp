// HashMap: buckets of pointers into one compacting entry array, and its iterators.
//
// Invariants: for every live entry e, slot e.bucketIndex of bucket e.hash & mask points to e;
// count is the sum of the bucket sizes; entryFill <= entryCapacity.
//
// In a map with this library's string callbacks, or without callbacks, equal keys have equal
// hashes. So a lookup visits only entries with a matching tag (hashmap_storage.h). A caller's
// compare runs on the entries of the bucket in order, until one is equal.
#include <vncommon/hashmap.h>

#include <algorithm>
#include <cstdlib>

#include "containers/hashmap_storage.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr uint32_t smallestSize = 16;
constexpr uint32_t entriesPerBucket = 4;
constexpr uint32_t smallestMask = smallestSize / entriesPerBucket - 1;
constexpr uint32_t entryStep = 1024;  // the entry array doubles up to this size, then grows by it

// ---- Plain keys, the defaults for null callbacks: integers or pointers, compared by value

// Every bit of the key affects the low bits of the hash, which choose the bucket. Without the mask
// before the multiplication, the multiples of some numbers would fill only a few buckets.
uint32_t hashPlainKey(const void* key) {
    __extension__ using Product = unsigned __int128;
    constexpr uint64_t mask = 0x243F6A8885A308D3;
    const Product product = Product{reinterpret_cast<uintptr_t>(key) ^ mask} * 0x9E3779B97F4A7C15U;
    const auto folded = static_cast<uint64_t>(product >> 64 ^ product);
    return static_cast<uint32_t>(folded >> 32 ^ folded);
}

int32_t comparePlainKeys(const void* a, const void* b) {
    return a == b ? 0 : 1;
}

// What lookups may assume about the keys.
enum KeyKind : uint8_t {
    unknownKeys,
    stringKeys,  // equal keys have equal hashes
    plainKeys,   // the same, and keys are stored as given and compared by value
    endedKeys    // after cleanup, in builds with assertions
};

KeyKind kindOfKeys(vn_HashMapHash hash, vn_HashMapCompare compare, vn_HashMapFill fill) {
    if (hash == nullptr && compare == nullptr && fill == nullptr) {
        return plainKeys;
    }
    return hash == vn_String_hash && compare == vn_String_compare ? stringKeys : unknownKeys;
}

uint32_t hashOf(const HashMap* map, const void* key) {
    return map->keyKind == plainKeys ? hashPlainKey(key) : map->hash(key);
}

// Also while a callback runs.
[[maybe_unused]] bool isInUse(const HashMap* map) {
    return map->keyKind < endedKeys && map->buckets != nullptr && map->entries != nullptr;
}

// Between operations.
[[maybe_unused]] bool isValid(const HashMap* map) {
    return isInUse(map) && map->mask >= smallestMask && map->initialSize >= smallestSize &&
           map->count <= map->entryFill && map->entryFill <= map->entryCapacity &&
           map->count / entriesPerBucket <= map->mask;
}

void markEnded([[maybe_unused]] HashMap* map) {
#if defined(VN_ASSERTIONS)
    map->keyKind = endedKeys;
#endif
}

// ---- The number of buckets

void changeBucketCount(HashMap* map, uint32_t newMask) {
    const Buckets old = bucketsOf(map);
    const Buckets fresh = makeBuckets(newMask, map->compare);
    for (uint32_t i = 0; i <= old.mask; ++i) {
        const Vector& bucket = old.records[i];
        for (uint32_t k = 0; k < bucket.size; ++k) {
            auto* entry = static_cast<HashMapEntry*>(bucket.data[k]);
            append(fresh, entry->hash & newMask, entry);
        }
    }
    freeBuckets(old);
    map->buckets = fresh.records;
    map->mask = fresh.mask;
}

// Halves the number of buckets once. A mask with gaps can be 4 to 6; half of that would be fewer
// than the four buckets that every map has, so nothing changes.
void shrinkBuckets(HashMap* map) {
    const uint32_t newMask = (map->mask + 1) / 2 - 1;
    if (map->shrink && newMask >= smallestMask) {
        changeBucketCount(map, newMask);
    }
}

// ---- The entry array

HashMapEntry* makeEntries(uint32_t capacity) {
    return static_cast<HashMapEntry*>(malloc(capacity * sizeof(HashMapEntry)));
}

// Copies the live entries into an array of the given size, in bucket order and without holes.
void rebuildEntries(HashMap* map, uint32_t capacity) {
    HashMapEntry* fresh = makeEntries(capacity);
    uint32_t fill = 0;
    const Buckets buckets = bucketsOf(map);
    for (uint32_t i = 0; i <= buckets.mask; ++i) {
        void** slots = buckets.records[i].data;
        const uint32_t size = buckets.records[i].size;
        for (uint32_t k = 0; k < size; ++k) {
            fresh[fill] = *static_cast<HashMapEntry*>(slots[k]);
            slots[k] = &fresh[fill++];
        }
    }
    VN_ASSERT(fill <= capacity && fill <= map->count);
    free(map->entries);
    map->entries = fresh;
    map->entryCapacity = capacity;
    map->entryFill = fill;
}

void growEntries(HashMap* map) {
    const uint32_t capacity = map->entryCapacity;
    rebuildEntries(map, capacity < entryStep ? 2 * capacity : capacity + entryStep);
}

// Just above entryStep slots, the smaller array could be too small for the entries. Then the array
// keeps its size.
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

template <KeyKind kind>
bool isEntryOf(const HashMapEntry* entry, const HashMap* map, const void* key, uint32_t hash) {
    if constexpr (kind == plainKeys) {
        return entry->key == key;
    } else if constexpr (kind == stringKeys) {
        return entry->hash == hash && vn_String_compare(entry->key, key) == 0;
    } else {
        return map->compare(entry->key, key) == 0;
    }
}

template <KeyKind kind>
HashMapEntry* findInWholeBucket(const HashMap* map, uint32_t hash, const void* key) {
    const Slots slots = slotsOf(bucketsOf(map), hash & map->mask);
    for (uint32_t i = 0; i < slots.size; ++i) {
        if (isEntryOf<kind>(slots.first[i], map, key, hash)) {
            return slots.first[i];
        }
    }
    return nullptr;
}

template <KeyKind kind>
[[gnu::always_inline]] inline HashMapEntry* findByTag(const HashMap* map, uint32_t hash,
                                                      const void* key) {
    const Buckets buckets = bucketsOf(map);
    const uint32_t index = hash & buckets.mask;
    HashMapEntry** slots = firstSlotsOf(buckets, index);
    __builtin_prefetch(slots);  // in parallel with the read of the tags
    const Tags tags = tagsOf(buckets, index);
    if (tags == outgrown) [[unlikely]] {
        return findInWholeBucket<kind>(map, hash, key);
    }
    for (SlotBits left = matches(tags, tagOf(hash)); left != 0; left = withoutFirst(left)) {
        HashMapEntry* entry = slots[firstOf(left)];
        if (isEntryOf<kind>(entry, map, key, hash)) [[likely]] {
            return entry;
        }
    }
    return nullptr;
}

// Not inlined, like hashAndFind, so that lookups of plain keys need not save registers for calls.
[[gnu::noinline]] HashMapEntry* findWithCalls(const HashMap* map, uint32_t hash, const void* key) {
    return map->keyKind == stringKeys ? findByTag<stringKeys>(map, hash, key)
                                      : findInWholeBucket<unknownKeys>(map, hash, key);
}

// The entry of the key with this hash, or null.
HashMapEntry* findHashed(const HashMap* map, uint32_t hash, const void* key) {
    return map->keyKind == plainKeys ? findByTag<plainKeys>(map, hash, key)
                                     : findWithCalls(map, hash, key);
}

// Compat: an empty map does not call the hash callback; programs count the calls.
[[gnu::noinline]] HashMapEntry* hashAndFind(const HashMap* map, const void* key) {
    return map->count > 0 ? findWithCalls(map, map->hash(key), key) : nullptr;
}

HashMapEntry* findEntry(const HashMap* map, const void* key) {
    VN_ASSERT(isInUse(map));
    return map->keyKind == plainKeys ? findByTag<plainKeys>(map, hashPlainKey(key), key)
                                     : hashAndFind(map, key);
}

// ---- Adding and removing

// The hash of a key that was hashed before. Calls the callback again if fill may have changed the
// key. Compat: also for a caller's own callbacks; programs count the calls.
uint32_t hashAgain(const HashMap* map, const void* key, uint32_t hash) {
    return map->keyKind != unknownKeys && map->fill == nullptr ? hash : hashOf(map, key);
}

void fillEntry(const HashMap* map, HashMapEntry* entry, void* key, void* value) {
    if (map->fill == nullptr) {
        entry->key = key;
        entry->value = value;
    } else {
        map->fill(entry, key, value);
    }
}

// An add or a remove changes the bucket's record and, when an entry moves, the bucket's last entry.
// They are prefetched in parallel with the memory reads of the lookup.
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
    VN_ASSERT(isValid(map));
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
    VN_ASSERT(map->count > 0);
    --map->count;
    if (map->count <= map->mask) {
        shrinkBuckets(map);
    }
    VN_ASSERT(isValid(map));
}

// ---- Iterating

HashMapIterator* makeIterator(HashMap* map, HashMapEntry* entry) {
    auto* iterator = static_cast<HashMapIterator*>(malloc(sizeof(HashMapIterator)));
    iterator->map = map;
    iterator->entry = entry;
    return iterator;
}

// The entries of a large map are scattered in memory, so iteration prefetches the entries of the
// bucket that is eight ahead. Maps that fit the caches are faster without.
constexpr uint32_t prefetchCount = 8192;  // entries
constexpr uint32_t prefetchDistance = 8;  // buckets

// Always inlined: gcc removes calls whose only effect is a prefetch. Visits all slots, also the
// unused ones: the processor cannot predict well how many are in use.
[[gnu::always_inline]] inline void prefetchBucket(const HashMap* map, uint32_t index) {
    if (map->count < prefetchCount || index > map->mask) {
        return;
    }
    HashMapEntry** slots = slotsOf(bucketsOf(map), index).first;
    for (uint32_t i = 0; i < bucketSlots; ++i) {
        const auto address = reinterpret_cast<uintptr_t>(slots[i]);
        __builtin_prefetch(reinterpret_cast<const void*>(address));
        __builtin_prefetch(reinterpret_cast<const void*>(address + sizeof(HashMapEntry) - 1));
    }
}

// The first entry in the buckets from index up, or null.
HashMapEntry* firstEntryFrom(const HashMap* map, uint32_t index) {
    for (uint32_t i = index; i <= map->mask; ++i) {
        prefetchBucket(map, i + prefetchDistance);
        if (const Slots slots = slotsOf(bucketsOf(map), i); slots.size > 0) {
            return slots.first[0];
        }
    }
    return nullptr;
}

// The last entry in the buckets below index, or null.
HashMapEntry* lastEntryBelow(const HashMap* map, uint32_t index) {
    for (uint32_t i = index; i-- > 0;) {
        prefetchBucket(map, i - prefetchDistance);
        if (const Slots slots = slotsOf(bucketsOf(map), i); slots.size > 0) {
            return slots.first[slots.size - 1];
        }
    }
    return nullptr;
}

// Whether the entry is in the slot that it names: false if the map has changed since.
[[maybe_unused]] bool isInSlot(const HashMap* map, uint32_t bucket, const HashMapEntry* entry) {
    const Slots slots = slotsOf(bucketsOf(map), bucket);
    return entry->bucketIndex < slots.size && slots.first[entry->bucketIndex] == entry;
}

HashMapEntry* entryAfter(const HashMap* map, const HashMapEntry* entry) {
    const uint32_t bucket = entry->hash & map->mask;
    VN_ASSERT(isInSlot(map, bucket, entry));
    const uint32_t next = entry->bucketIndex + 1;
    const Slots slots = slotsOf(bucketsOf(map), bucket);
    return next < slots.size ? slots.first[next] : firstEntryFrom(map, bucket + 1);
}

HashMapEntry* entryBefore(const HashMap* map, const HashMapEntry* entry) {
    const uint32_t bucket = entry->hash & map->mask;
    VN_ASSERT(isInSlot(map, bucket, entry));
    const uint32_t position = entry->bucketIndex;
    return position > 0 ? slotsOf(bucketsOf(map), bucket).first[position - 1]
                        : lastEntryBelow(map, bucket);
}

bool canMove(const HashMapIterator* iterator) {
    return iterator != nullptr && iterator->entry != nullptr && iterator->map->count > 0;
}

bool moveTo(HashMapIterator* iterator, HashMapEntry* entry) {
    iterator->entry = entry;
    return entry != nullptr;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

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
    map->keyKind = kindOfKeys(hash, compare, fill);
    map->hash = hash != nullptr ? hash : hashPlainKey;
    map->compare = compare != nullptr ? compare : comparePlainKeys;
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
    VN_ASSERT(isValid(map));
}

void vn_HashMap_cleanup(HashMap* map) {
    vn_HashMap_removeAll(map);
    freeBuckets(bucketsOf(map));
    free(map->entries);
    markEnded(map);
}

void vn_HashMap_dtor(HashMap* map) {
    vn_HashMap_cleanup(map);
    free(map);
}

uint32_t vn_HashMap_size(const HashMap* map) {
    VN_ASSERT(isInUse(map));
    return map->count;
}

// ---- Adding

HashMapIterator* vn_HashMap_add(HashMap* map, void* key, void* value) {
    return makeIterator(map, vn_HashMap_addQuick(map, key, value));
}

HashMapEntry* vn_HashMap_addQuick(HashMap* map, void* key, void* value) {
    VN_ASSERT(isValid(map));
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
    if (entry->hash != hash) {  // fill changed the key, so its hash may mean another bucket
        map->keyKind = unknownKeys;
    }
    append(bucketsOf(map), index, entry);
    VN_ASSERT(isValid(map));
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
    VN_ASSERT(isValid(map));
    for (uint32_t i = 0; map->count > 0 && i <= map->mask; ++i) {
        Vector& bucket = map->buckets[i];
        while (bucket.size > 0) {
            auto* entry = static_cast<HashMapEntry*>(bucket.data[0]);
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
    VN_ASSERT(isValid(map));
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

// ---- Iterating

HashMapIterator* vn_HashMap_first(HashMap* map) {
    VN_ASSERT(isInUse(map));
    HashMapEntry* entry = firstEntryFrom(map, 0);
    return entry != nullptr ? makeIterator(map, entry) : nullptr;
}

HashMapIterator* vn_HashMap_last(HashMap* map) {
    VN_ASSERT(isInUse(map));
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
    return canMove(iterator) && moveTo(iterator, entryAfter(iterator->map, iterator->entry));
}

bool vn_HashMapIterator_back(HashMapIterator* iterator) {
    return canMove(iterator) && moveTo(iterator, entryBefore(iterator->map, iterator->entry));
}

void vn_HashMapIterator_dtor(HashMapIterator* iterator) {
    free(iterator);
}
