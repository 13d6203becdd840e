// The buckets of a HashMap, in one block:
//
//  - the records, each the Vector of a bucket;
//  - eight slots for each bucket, where its Vector starts out. A bucket that outgrows them gets a
//    block of its own;
//  - a word of tags for each bucket.
//
// So a lookup knows where tags and slots are before it has read the record, and making the buckets
// takes one allocation.
#ifndef VN_CONTAINERS_HASHMAP_STORAGE_H
#define VN_CONTAINERS_HASHMAP_STORAGE_H

#include <vncommon/hashmap.h>

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace vncommon {

constexpr uint32_t bucketSlots = 8;

// ---- Tags: a byte of the hash of each slot's entry

// The tag of slot i in byte i. 0 where the slot is empty; entries fill the slots from the first up.
using Tags = uint64_t;
static_assert(sizeof(Tags) == bucketSlots);

// Slots of a bucket, slot i as the top bit of byte i.
using SlotBits = uint64_t;

constexpr Tags everyByte = 0x0101010101010101;
constexpr Tags everyTopBit = everyByte * 0x80;
constexpr Tags outgrown = everyByte;  // no tag: the entries are in a block of the bucket's own

// From 0x80 up. The multiplication makes every bit of the hash count, for hashes are often small.
inline Tags tagOf(uint32_t hash) {
    return (hash * 0x9E3779B9) >> 25 | 0x80;
}

inline void setTag(Tags& tags, uint32_t slot, Tags tag) {
    const uint32_t shift = slot % bucketSlots * 8;
    tags = (tags & ~(Tags{0xFF} << shift)) | tag << shift;
}

// The slots whose tag is this one.
inline SlotBits matches(Tags tags, Tags tag) {
    const Tags difference = tags ^ (tag * everyByte);
    return ~((difference & ~everyTopBit) + ~everyTopBit) & ~difference & everyTopBit;
}

// The lowest of these slots, and the others.
inline uint32_t firstOf(SlotBits slots) {
    return static_cast<uint32_t>(std::countr_zero(slots)) / 8;
}
inline SlotBits withoutFirst(SlotBits slots) {
    return slots & (slots - 1);
}

// How many slots are used, unless the bucket has outgrown them.
inline uint32_t usedSlots(Tags tags) {
    return bucketSlots - static_cast<uint32_t>(std::countl_zero(tags)) / 8;
}

// ---- Buckets

struct Buckets {
    Vector* records;  // and the start of the block
    uint32_t mask;    // number of buckets - 1
};

inline Buckets bucketsOf(const HashMap* map) {
    return {map->buckets, map->mask};
}

inline size_t countOf(const Buckets& buckets) {
    return size_t{buckets.mask} + 1;
}

inline HashMapEntry** firstSlotsOf(const Buckets& buckets, size_t index) {
    auto** slots = reinterpret_cast<HashMapEntry**>(buckets.records + countOf(buckets));
    return slots + index * bucketSlots;
}

inline Tags& tagsOf(const Buckets& buckets, size_t index) {
    return reinterpret_cast<Tags*>(firstSlotsOf(buckets, countOf(buckets)))[index];
}

inline bool hasFirstSlots(const Vector& bucket) {
    return bucket.capacity == bucketSlots;
}

struct Slots {
    HashMapEntry** first;
    uint32_t size;
};

// The entries of a bucket. Its record is read only where it has outgrown its first slots.
inline Slots slotsOf(const Buckets& buckets, uint32_t index) {
    const Tags tags = tagsOf(buckets, index);
    if (tags == outgrown) [[unlikely]] {
        const Vector& bucket = buckets.records[index];
        return {reinterpret_cast<HashMapEntry**>(bucket.data), bucket.size};
    }
    return {firstSlotsOf(buckets, index), usedSlots(tags)};
}

inline Buckets makeBuckets(uint32_t mask, vn_HashMapCompare compare) {
    constexpr size_t bucketSize = sizeof(Vector) + bucketSlots * sizeof(void*) + sizeof(Tags);
    const size_t count = size_t{mask} + 1;
    const Buckets buckets{static_cast<Vector*>(calloc(count, bucketSize)), mask};
    for (size_t i = 0; i < count; ++i) {
        Vector& bucket = buckets.records[i];
        bucket.capacity = bucketSlots;
        bucket.initialCapacity = bucketSlots;
        bucket.data = reinterpret_cast<void**>(firstSlotsOf(buckets, i));
        bucket.compare = compare;
    }
    return buckets;
}

inline void freeBuckets(const Buckets& buckets) {
    for (size_t i = 0; i < countOf(buckets); ++i) {
        if (!hasFirstSlots(buckets.records[i])) {
            free(buckets.records[i].data);
        }
    }
    free(buckets.records);
}

// From the shared block into one of its own, which Vector can then grow by itself.
inline void leaveFirstSlots(const Buckets& buckets, uint32_t index) {
    Vector& bucket = buckets.records[index];
    auto** block = static_cast<void**>(calloc(size_t{2} * bucketSlots, sizeof(void*)));
    std::copy_n(bucket.data, bucketSlots, block);
    bucket.data = block;
    bucket.capacity = 2 * bucketSlots;
    tagsOf(buckets, index) = outgrown;
}

inline void append(const Buckets& buckets, uint32_t index, HashMapEntry* entry) {
    Vector& bucket = buckets.records[index];
    if (bucket.size == bucketSlots && hasFirstSlots(bucket)) [[unlikely]] {
        leaveFirstSlots(buckets, index);
    }
    entry->bucketIndex = vn_Vector_add(&bucket, entry);
    if (hasFirstSlots(bucket)) {
        setTag(tagsOf(buckets, index), entry->bucketIndex, tagOf(entry->hash));
    }
}

// Takes the entry out of its bucket; the bucket's last entry moves into its place. Branch-free:
// also correct when the entry is the last one.
inline void unlink(const Buckets& buckets, uint32_t index, const HashMapEntry* entry) {
    Vector& bucket = buckets.records[index];
    auto* last = static_cast<HashMapEntry*>(bucket.data[--bucket.size]);
    bucket.data[entry->bucketIndex] = last;
    if (hasFirstSlots(bucket)) {
        Tags& tags = tagsOf(buckets, index);
        setTag(tags, entry->bucketIndex, tags >> (8 * bucket.size) & 0xFF);
        setTag(tags, bucket.size, 0);
    }
    last->bucketIndex = entry->bucketIndex;
}

}  // namespace vncommon

#endif
