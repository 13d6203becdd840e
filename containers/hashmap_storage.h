// The buckets of a HashMap, in one memory block:
//
//  - the records: one Vector for each bucket;
//  - the first eight slots of each bucket, initially the data of its Vector. A bucket that outgrows
//    them gets its own block;
//  - a word of tags for each bucket.
//
// So a lookup can compute the addresses of tags and slots without reading the record, and all
// buckets need one allocation.
#ifndef VN_CONTAINERS_HASHMAP_STORAGE_H
#define VN_CONTAINERS_HASHMAP_STORAGE_H

#include <vncommon/hashmap.h>

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "platform/assertion.h"

namespace vncommon {

constexpr uint32_t bucketSlots = 8;

// ---- Tags: a byte of the hash of each slot's entry

// Byte i is the tag of slot i, 0 when the slot is empty. Used slots come first, without gaps.
using Tags = uint64_t;
static_assert(sizeof(Tags) == bucketSlots);

// A set of slots of a bucket: the top bit of byte i represents slot i.
using SlotBits = uint64_t;

constexpr Tags everyByte = 0x0101010101010101;
constexpr Tags everyTopBit = everyByte * 0x80;
constexpr Tags outgrown = everyByte;  // no tags: the bucket's entries are in its own block

// 0x80 to 0xFF. Hashes are often small numbers; the multiplication makes every bit of them count.
inline Tags tagOf(uint32_t hash) {
    return (hash * 0x9E3779B9) >> 25 | 0x80;
}

inline void setTag(Tags& tags, uint32_t slot, Tags tag) {
    const uint32_t shift = slot % bucketSlots * 8;
    tags = (tags & ~(Tags{0xFF} << shift)) | tag << shift;
}

// The slots with this tag.
inline SlotBits matches(Tags tags, Tags tag) {
    const Tags difference = tags ^ (tag * everyByte);
    return ~((difference & ~everyTopBit) + ~everyTopBit) & ~difference & everyTopBit;
}

// The lowest of these slots, and the slots without it.
inline uint32_t firstOf(SlotBits slots) {
    VN_ASSERT(slots != 0 && (slots & ~everyTopBit) == 0);
    return static_cast<uint32_t>(std::countr_zero(slots)) / 8;
}
inline SlotBits withoutFirst(SlotBits slots) {
    return slots & (slots - 1);
}

// How many slots are used. Not for outgrown buckets.
inline uint32_t usedSlots(Tags tags) {
    VN_ASSERT(tags != outgrown);
    return bucketSlots - static_cast<uint32_t>(std::countl_zero(tags)) / 8;
}

// ---- Buckets

struct Buckets {
    Vector* records;  // also the start of the block
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

// Whether the tags of a bucket fit its record.
inline bool hasFittingTags(const Buckets& buckets, size_t index) {
    const Vector& bucket = buckets.records[index];
    const Tags tags = tagsOf(buckets, index);
    return hasFirstSlots(bucket) ? tags != outgrown && usedSlots(tags) == bucket.size
                                 : tags == outgrown;
}

struct Slots {
    HashMapEntry** first;
    uint32_t size;
};

// The entries of a bucket. Reads the record only when the bucket has outgrown its first slots.
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

// Moves a bucket's entries from the shared block to its own block, which Vector can then grow.
inline void moveToOwnBlock(const Buckets& buckets, uint32_t index) {
    Vector& bucket = buckets.records[index];
    VN_ASSERT(hasFirstSlots(bucket) && bucket.size == bucketSlots);
    auto** block = static_cast<void**>(calloc(size_t{2} * bucketSlots, sizeof(void*)));
    std::copy_n(bucket.data, bucketSlots, block);
    bucket.data = block;
    bucket.capacity = 2 * bucketSlots;
    tagsOf(buckets, index) = outgrown;
}

inline void append(const Buckets& buckets, uint32_t index, HashMapEntry* entry) {
    Vector& bucket = buckets.records[index];
    if (bucket.size == bucketSlots && hasFirstSlots(bucket)) [[unlikely]] {
        moveToOwnBlock(buckets, index);
    }
    entry->bucketIndex = vn_Vector_add(&bucket, entry);
    if (hasFirstSlots(bucket)) {
        setTag(tagsOf(buckets, index), entry->bucketIndex, tagOf(entry->hash));
    }
    VN_ASSERT(hasFittingTags(buckets, index));
}

// Takes the entry out of its bucket; the bucket's last entry moves into its place. Branch-free:
// also correct when the entry is the last one.
inline void unlink(const Buckets& buckets, uint32_t index, const HashMapEntry* entry) {
    Vector& bucket = buckets.records[index];
    VN_ASSERT(entry->bucketIndex < bucket.size && bucket.data[entry->bucketIndex] == entry);
    auto* last = static_cast<HashMapEntry*>(bucket.data[--bucket.size]);
    bucket.data[entry->bucketIndex] = last;
    if (hasFirstSlots(bucket)) {
        Tags& tags = tagsOf(buckets, index);
        setTag(tags, entry->bucketIndex, tags >> (8 * bucket.size) & 0xFF);
        setTag(tags, bucket.size, 0);
    }
    last->bucketIndex = entry->bucketIndex;
    VN_ASSERT(hasFittingTags(buckets, index));
}

}  // namespace vncommon

#endif
