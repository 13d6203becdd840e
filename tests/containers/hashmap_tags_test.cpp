// The tags of a HashMap's buckets, and the layout of the buckets' block.
#include "containers/hashmap_storage.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

using namespace vncommon;

namespace {

// Tags of a bucket with the given number of entries. There are few values, so some tags are equal
// or differ in one bit.
Tags randomTags(std::mt19937_64& random, uint32_t used) {
    Tags tags = 0;
    for (uint32_t i = 0; i < used; ++i) {
        setTag(tags, i, 0x80 | (Tags{1} << random() % 8));
    }
    return tags;
}

std::vector<uint32_t> slotsWith(Tags tags, Tags tag) {
    std::vector<uint32_t> slots;
    for (uint32_t i = 0; i < bucketSlots; ++i) {
        if ((tags >> (8 * i) & 0xFF) == tag) {
            slots.push_back(i);
        }
    }
    return slots;
}

std::vector<uint32_t> matchingSlots(Tags tags, Tags tag) {
    std::vector<uint32_t> slots;
    for (SlotBits left = matches(tags, tag); left != 0; left = withoutFirst(left)) {
        slots.push_back(firstOf(left));
    }
    return slots;
}

TEST(Tags, MatchWhereTheyAreEqual) {
    std::mt19937_64 random(1);
    for (uint32_t round = 0; round < 100000; ++round) {
        const Tags tags = randomTags(random, round % (bucketSlots + 1));
        const Tags tag = 0x80 | (Tags{1} << random() % 8);
        ASSERT_EQ(matchingSlots(tags, tag), slotsWith(tags, tag));
    }
    EXPECT_EQ(matches(outgrown, tagOf(0)), 0U);
}

TEST(Tags, CountTheUsedSlots) {
    std::mt19937_64 random(2);
    for (uint32_t used = 0; used <= bucketSlots; ++used) {
        EXPECT_EQ(usedSlots(randomTags(random, used)), used);
    }
}

TEST(Tags, AreAbove127ForEveryHash) {
    for (uint32_t bit = 0; bit < 32; ++bit) {
        EXPECT_GE(tagOf(1U << bit), 0x80U);
        EXPECT_LE(tagOf(1U << bit), 0xFFU);
    }
}

TEST(Buckets, HaveSeparateParts) {
    for (const uint32_t mask : {3U, 4U, 7U, 1023U}) {
        const Buckets buckets = makeBuckets(mask, vn_String_compare);
        std::set<const void*> places;
        for (uint32_t i = 0; i <= mask; ++i) {
            const Vector& bucket = buckets.records[i];
            EXPECT_EQ(bucket.data, reinterpret_cast<void**>(firstSlotsOf(buckets, i)));
            EXPECT_EQ(bucket.capacity, bucketSlots);
            EXPECT_EQ(bucket.initialCapacity, bucketSlots);
            EXPECT_EQ(bucket.compare, vn_String_compare);
            EXPECT_EQ(slotsOf(buckets, i).size, 0U);
            places.insert({&bucket, firstSlotsOf(buckets, i), &tagsOf(buckets, i)});
            std::fill_n(firstSlotsOf(buckets, i), bucketSlots, nullptr);
        }
        EXPECT_EQ(places.size(), 3 * (size_t{mask} + 1));
        freeBuckets(buckets);
    }
}

}  // namespace
