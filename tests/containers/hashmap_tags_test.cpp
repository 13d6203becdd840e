// The tags of a HashMap's buckets: that every way to look at them sees the same.
#include "containers/hashmap_tags.h"

#include <gtest/gtest.h>

#include <random>

using namespace vncommon;

namespace {

// Tags of a bucket with so many entries: few values, so that some are equal or differ in one bit.
Tags randomTags(std::mt19937_64& random, uint32_t used) {
    Tags tags = 0;
    for (uint32_t i = 0; i < used; ++i) {
        setTag(tags, i, 0x80 | (Tags{1} << random() % 8));
    }
    return tags;
}

SlotBits slotsWith(Tags tags, Tags tag) {
    SlotBits slots = 0;
    for (uint32_t i = 0; i < bucketSlots; ++i) {
        slots |= static_cast<SlotBits>((tags >> (8 * i) & 0xFF) == tag) << i;
    }
    return slots;
}

TEST(Tags, MatchWhereTheyAreEqual) {
    std::mt19937_64 random(1);
    for (uint32_t round = 0; round < 100000; ++round) {
        const Tags tags = randomTags(random, round % (bucketSlots + 1));
        const Tags tag = 0x80 | (Tags{1} << random() % 8);
        ASSERT_EQ(matches(tags, tag), slotsWith(tags, tag));
        ASSERT_EQ(plain::matches(tags, tag), slotsWith(tags, tag));
    }
    EXPECT_EQ(matches(outgrown, tagOf(0)), 0U);
    EXPECT_EQ(plain::matches(outgrown, tagOf(0)), 0U);
}

TEST(Tags, TellTheUsedSlots) {
    std::mt19937_64 random(2);
    for (uint32_t first = 0; first <= bucketSlots; ++first) {
        for (uint32_t second = 0; second <= bucketSlots; ++second) {
            const Tags both[] = {randomTags(random, first), randomTags(random, second)};
            const SlotBits expected = ((1U << first) - 1) | ((1U << second) - 1) << 8;
            EXPECT_EQ(usedSlots(both[0]), first);
            EXPECT_EQ(usedSlotBits(both[0]), expected & 0xFF);
            EXPECT_EQ(usedSlotBitsOfTwo(both), expected);
            EXPECT_EQ(plain::usedSlotBitsOfTwo(both), expected);
        }
    }
    EXPECT_EQ(usedSlotBits(outgrown), 0U);
}

TEST(Tags, AreAbove127ForEveryHash) {
    for (uint32_t bit = 0; bit < 32; ++bit) {
        EXPECT_GE(tagOf(1U << bit), 0x80U);
        EXPECT_LE(tagOf(1U << bit), 0xFFU);
    }
}

}  // namespace
