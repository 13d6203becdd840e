#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vncommon/hashmap.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "containers/hashmap_handles.h"
#include "containers/hashmap_model.h"

using testing::ElementsAre;

namespace {

// ---- Callbacks that count

uint64_t hashCalls;
uint64_t compareCalls;
std::vector<uintptr_t> released;

uint32_t goodHash(uintptr_t key) {
    return static_cast<uint32_t>((key * 0x9E3779B97F4A7C15U) >> 32);
}
// Has few values, so that buckets need more than eight slots, and sets bits that only larger masks
// select.
uint32_t poorHash(uintptr_t key) {
    return static_cast<uint32_t>((key % 5) << (key % 3 * 4));
}

uint32_t countingGoodHash(const void* key) {
    ++hashCalls;
    return goodHash(number(key));
}

uint32_t countingPoorHash(const void* key) {
    ++hashCalls;
    return poorHash(number(key));
}

int32_t countingCompare(const void* stored, const void* key) {
    ++compareCalls;
    return stored == key ? 0 : -7;
}

void fillPlusOne(HashMapEntry* entry, void* key, void* value) {
    entry->key = key;
    entry->value = word(number(value) + 1);
}

void* logRelease(HashMapEntry* entry) {
    released.push_back(number(entry->key));
    return entry->value;
}

void resetCounters() {
    hashCalls = 0;
    compareCalls = 0;
    released.clear();
}

HashMap* makePlain(uint32_t initialSize = 0, int shrink = 0) {
    return vn_HashMap_ctor(countingGoodHash, countingCompare, nullptr, nullptr, initialSize,
                           shrink);
}

std::vector<uintptr_t> keysForward(HashMap* map) {
    std::vector<uintptr_t> keys;
    const Iterator iterator(vn_HashMap_first(map));
    for (bool on = iterator != nullptr; on; on = vn_HashMapIterator_next(iterator.get())) {
        keys.push_back(number(vn_HashMapIterator_key(iterator.get())));
    }
    return keys;
}

std::vector<uintptr_t> keysBackward(HashMap* map) {
    std::vector<uintptr_t> keys;
    const Iterator iterator(vn_HashMap_last(map));
    for (bool on = iterator != nullptr; on; on = vn_HashMapIterator_back(iterator.get())) {
        keys.push_back(number(vn_HashMapIterator_key(iterator.get())));
    }
    return keys;
}

// ---- The map and its model

bool sameEntry(const HashMap& map, const HashMapModel& model, uint32_t slot, uint32_t position) {
    const HashMapEntry& entry = map.entries[slot];
    const HashMapModel::Entry& expected = model.entries[slot];
    return number(entry.key) == expected.key && number(entry.value) == expected.value &&
           entry.hash == expected.hash && entry.bucketIndex == position;
}

bool sameBucket(const HashMap& map, const HashMapModel& model, uint32_t index) {
    const Vector& bucket = map.buckets[index];
    const HashMapModel::Bucket& expected = model.buckets[index];
    if (bucket.size != expected.slots.size() || bucket.capacity != expected.capacity ||
        bucket.initialCapacity != 8 || bucket.shrink || bucket.compare != map.compare ||
        bucket.onAdd != nullptr || bucket.onRemove != nullptr) {
        return false;
    }
    for (uint32_t i = 0; i < bucket.size; ++i) {
        const uint32_t slot = expected.slots[i];
        if (vn_Vector_get(&bucket, i) != &map.entries[slot] || !sameEntry(map, model, slot, i)) {
            return false;
        }
    }
    return true;
}

void expectSame(const HashMap& map, const HashMapModel& model) {
    ASSERT_EQ(map.count, model.count);
    ASSERT_EQ(map.mask, model.mask());
    ASSERT_EQ(map.entryCapacity, model.entries.size());
    ASSERT_EQ(map.entryFill, model.entryFill);
    ASSERT_EQ(hashCalls, model.hashCalls);
    ASSERT_EQ(compareCalls, model.compareCalls);
    ASSERT_EQ(released, model.released);
    for (uint32_t i = 0; i <= map.mask; ++i) {
        ASSERT_TRUE(sameBucket(map, model, i)) << "bucket " << i;
    }
}

// Applies one operation to both and compares the results.
void step(HashMap& map, HashMapModel& model, uint32_t choice, uintptr_t key, uintptr_t value) {
    const auto slotOf = [&](const HashMapEntry* entry) -> std::optional<uint32_t> {
        if (entry == nullptr) {
            return std::nullopt;
        }
        return static_cast<uint32_t>(entry - map.entries);
    };
    if (choice < 40) {
        const HashMapEntry* entry = vn_HashMap_addQuick(&map, word(key), word(value));
        ASSERT_EQ(entry != nullptr, model.add(key, value));
        ASSERT_TRUE(entry == nullptr || slotOf(entry) == map.entryFill - 1);
    } else if (choice < 45) {
        const Iterator iterator(vn_HashMap_add(&map, word(key), word(value)));
        ASSERT_EQ(vn_HashMapIterator_valid(iterator.get()), model.add(key, value));
    } else if (choice < 75) {
        ASSERT_EQ(number(vn_HashMap_remove(&map, word(key))), model.remove(key));
    } else if (choice < 80) {
        const HashMapEntry* entries = map.entries;
        const HashMapEntry* entry = vn_HashMap_findValueAndRemove(&map, word(key));
        ASSERT_EQ(map.entries, entries);
        ASSERT_EQ(slotOf(entry), model.findAndRemove(key));
        ASSERT_TRUE(entry == nullptr || number(entry->key) == key);
    } else if (choice < 85) {
        ASSERT_EQ(number(vn_HashMap_replace(&map, word(key), word(value))),
                  model.replace(key, value));
    } else if (choice < 90) {
        ASSERT_EQ(vn_HashMap_exists(&map, word(key)), model.find(key).has_value());
    } else if (choice < 95) {
        const std::optional<uint32_t> slot = model.find(key);
        ASSERT_EQ(number(vn_HashMap_findValue(&map, word(key))),
                  slot ? model.entries[*slot].value : 0);
    } else {
        const Iterator iterator(vn_HashMap_find(&map, word(key)));
        ASSERT_EQ(slotOf(iterator ? iterator->entry : nullptr), model.find(key));
    }
}

void expectSameOrder(HashMap& map, const HashMapModel& model) {
    std::vector<uintptr_t> keys = model.keysInOrder();
    ASSERT_EQ(keysForward(&map), keys);
    std::reverse(keys.begin(), keys.end());
    ASSERT_EQ(keysBackward(&map), keys);
}

struct RandomRun {
    uint32_t seed, initialSize, operations, keys;
    bool shrink, poor, fill, release;
    uint32_t checkEvery = 1;
    bool callbacks = true;
};

// If poor is set, only keys whose hashes have few values in the low bits.
std::vector<uintptr_t> someKeys(const HashMap& map, uint32_t count, bool poor) {
    std::vector<uintptr_t> keys;
    for (uintptr_t key = 1; keys.size() < count; ++key) {
        if (!poor || map.hash(word(key)) % 64 < 3) {
            keys.push_back(key);
        }
    }
    return keys;
}

// Grows and shrinks the map in turns, and sometimes clears it.
void compareWithModel(const RandomRun& run) {
    resetCounters();
    HashMap map;
    const vn_HashMapHash hash = run.poor ? countingPoorHash : countingGoodHash;
    vn_HashMap_init(&map, run.callbacks ? hash : nullptr, run.callbacks ? countingCompare : nullptr,
                    run.fill ? fillPlusOne : nullptr, run.release ? logRelease : nullptr,
                    run.initialSize, run.shrink);
    const auto ownHash = [&](uintptr_t key) { return map.hash(word(key)); };
    HashMapModel model(!run.callbacks ? HashMapModel::Hash(ownHash)
                       : run.poor     ? poorHash
                                      : goodHash,
                       run.initialSize, run.shrink, run.fill, run.release);
    ASSERT_EQ(map.initialSize, std::max(run.initialSize, 16U));
    const std::vector<uintptr_t> keys = someKeys(map, run.keys, run.poor && !run.callbacks);
    resetCounters();
    std::mt19937 random(run.seed);
    const uint32_t phase = 2 * run.keys;
    for (uint32_t i = 0; i < run.operations; ++i) {
        const bool growing = i / phase % 2 == 0;
        uint32_t choice = static_cast<uint32_t>(random() % 100);
        if (random() % 4 == 0) {
            choice = growing ? 0 : 45;
        }
        const uintptr_t key = keys[random() % run.keys];
        ASSERT_NO_FATAL_FAILURE(step(map, model, choice, key, random() % 1000))
            << "operation " << i;
        if (random() % (2 * phase) == 0) {
            random() % 2 == 0 ? (vn_HashMap_removeAll(&map), model.removeAll())
                              : (vn_HashMap_clear(&map), model.clear());
        }
        if (!run.callbacks) {  // without callbacks there are no calls to compare
            hashCalls = model.hashCalls;
            compareCalls = model.compareCalls;
        }
        if (i % run.checkEvery == 0) {
            ASSERT_NO_FATAL_FAILURE(expectSame(map, model)) << "operation " << i;
        }
        if (i % 100 == 0) {
            ASSERT_NO_FATAL_FAILURE(expectSameOrder(map, model));
        }
    }
    model.removeAll();
    vn_HashMap_cleanup(&map);
    EXPECT_EQ(released, model.released);
    EXPECT_EQ(hashCalls, model.hashCalls);
}

// Tests every combination of the options, with every initial size.
void followTheModel(uint32_t seed, const std::vector<uint32_t>& initialSizes, bool callbacks) {
    for (const uint32_t initialSize : initialSizes) {
        for (uint32_t options = 0; options < 16; ++options) {
            const RandomRun run{.seed = seed++,
                                .initialSize = initialSize,
                                .operations = 1500,
                                .keys = 120 + 60 * (options % 3),
                                .shrink = (options & 1) != 0,
                                .poor = (options & 2) != 0,
                                .fill = (options & 4) != 0,
                                .release = (options & 8) != 0,
                                .callbacks = callbacks};
            SCOPED_TRACE(testing::Message() << "initial size " << initialSize << ", options "
                                            << options << ", seed " << run.seed);
            ASSERT_NO_FATAL_FAILURE(compareWithModel(run));
        }
    }
}

}  // namespace

TEST(HashMap, FollowsTheModel) {
    followTheModel(1, {0, 16, 17, 20, 27, 37, 64, 100}, true);
}

TEST(HashMap, FollowsTheModelWithThousandsOfEntries) {
    uint32_t seed = 1000;
    for (const uint32_t initialSize : {0U, 1000U, 1023U, 1030U, 4096U}) {
        for (const bool shrink : {false, true}) {
            const RandomRun run{.seed = seed++,
                                .initialSize = initialSize,
                                .operations = 60000,
                                .keys = 6000,
                                .shrink = shrink,
                                .poor = false,
                                .fill = false,
                                .release = false,
                                .checkEvery = 97};
            SCOPED_TRACE(testing::Message()
                         << "initial size " << initialSize << ", seed " << run.seed);
            ASSERT_NO_FATAL_FAILURE(compareWithModel(run));
        }
    }
}

TEST(HashMapOfWords, FollowsTheModel) {
    followTheModel(2000, {0, 20, 64}, false);
}

TEST(HashMapOfWords, TakesEveryWordAndComparesOnlyTheWord) {
    const Map map(vn_HashMap_ctor(nullptr, nullptr, nullptr, nullptr, 0, 0));
    const char text[] = "text";
    const char same[] = "text";
    const std::array<uintptr_t, 5> keys = {0, 1, UINTPTR_MAX, uintptr_t{1} << 63, number(text)};
    for (const uintptr_t key : keys) {
        EXPECT_FALSE(vn_HashMap_exists(map.get(), word(key)));
        EXPECT_NE(vn_HashMap_addQuick(map.get(), word(key), word(key + 7)), nullptr);
        EXPECT_EQ(vn_HashMap_addQuick(map.get(), word(key), nullptr), nullptr);
    }
    EXPECT_EQ(vn_HashMap_size(map.get()), keys.size());
    for (const uintptr_t key : keys) {
        EXPECT_EQ(number(vn_HashMap_findValue(map.get(), word(key))), key + 7);
    }
    EXPECT_FALSE(vn_HashMap_exists(map.get(), same));
    EXPECT_NE(vn_HashMap_findValueAndRemove(map.get(), word(0)), nullptr);
    EXPECT_FALSE(vn_HashMap_exists(map.get(), word(0)));
}

TEST(HashMapOfWords, SpreadsNumbersInARowAndMultiples) {
    std::vector<uintptr_t> steps = {24, 10'000'000};
    for (uintptr_t odd = 1; odd < 256; odd += 2) {
        for (const int zeros : {0, 4, 13, 20, 28, 32, 40}) {
            steps.push_back(odd << zeros);
        }
    }
    for (const uintptr_t step : steps) {
        constexpr uint32_t size = 4096;
        const Map map(vn_HashMap_ctor(nullptr, nullptr, nullptr, nullptr, size, 0));
        for (uintptr_t i = 0; i < size - 1; ++i) {
            vn_HashMap_addQuick(map.get(), word(i * step), nullptr);
        }
        uint32_t longest = 0;
        for (uint32_t i = 0; i <= map->mask; ++i) {
            longest = std::max(longest, map->buckets[i].size);
        }
        EXPECT_LE(longest, 20U) << "step " << step;
    }
}

TEST(HashMapOfWords, OneCallbackAloneIsCalled) {
    const Map hashed(vn_HashMap_ctor(countingGoodHash, nullptr, nullptr, nullptr, 0, 0));
    const Map compared(vn_HashMap_ctor(nullptr, countingCompare, nullptr, nullptr, 0, 0));
    resetCounters();
    for (uintptr_t key = 0; key < 100; ++key) {
        vn_HashMap_addQuick(hashed.get(), word(key), word(key + 1));
        vn_HashMap_addQuick(compared.get(), word(key), word(key + 1));
    }
    EXPECT_EQ(hashCalls, 200U + 3U);  // the buckets double three times
    resetCounters();
    for (uintptr_t key = 0; key < 100; ++key) {
        EXPECT_EQ(number(vn_HashMap_findValue(hashed.get(), word(key))), key + 1);
    }
    EXPECT_EQ(hashCalls, 100U);
    uint64_t expected = 0;
    for (uintptr_t key = 0; key < 100; ++key) {
        EXPECT_EQ(number(vn_HashMap_findValue(compared.get(), word(key))), key + 1);
        const Iterator iterator(vn_HashMap_find(compared.get(), word(key)));
        expected += 2 * (iterator->entry->bucketIndex + 1);
    }
    EXPECT_EQ(compareCalls, expected);
}

void fillNextWord(HashMapEntry* entry, void* key, void* value) {
    entry->key = word(number(key) + 1);
    entry->value = value;
}

// A lookup compares the stored words in the bucket of the word that is looked up.
TEST(HashMapOfWords, FindsKeysThatFillChanged) {
    const Map map(vn_HashMap_ctor(nullptr, nullptr, fillNextWord, nullptr, 0, 0));
    uintptr_t key = 100;
    while (((map->hash(word(key)) ^ map->hash(word(key + 1))) & 3) != 0) {
        ++key;
    }
    vn_HashMap_addQuick(map.get(), word(key), word(9));
    EXPECT_EQ(vn_HashMap_findValue(map.get(), word(key + 1)), word(9));
    EXPECT_EQ(vn_HashMap_findValue(map.get(), word(key)), nullptr);
}

TEST(HashMap, HasTheLayoutThatCallersRead) {
    EXPECT_EQ(sizeof(HashMapEntry), 24U);
    EXPECT_EQ(offsetof(HashMapEntry, hash), 16U);
    EXPECT_EQ(offsetof(HashMapEntry, bucketIndex), 20U);
    EXPECT_EQ(offsetof(HashMap, count), 0U);
    EXPECT_EQ(offsetof(HashMap, mask), 4U);
    EXPECT_EQ(offsetof(HashMap, initialSize), 8U);
    EXPECT_EQ(offsetof(HashMap, buckets), 16U);
    EXPECT_EQ(offsetof(HashMap, entries), 24U);
    EXPECT_EQ(offsetof(HashMap, entryCapacity), 32U);
    EXPECT_EQ(offsetof(HashMap, entryFill), 36U);
    EXPECT_EQ(offsetof(HashMap, shrink), 40U);
    EXPECT_EQ(offsetof(HashMap, hash), 48U);
    EXPECT_EQ(offsetof(HashMap, compare), 56U);
    EXPECT_EQ(offsetof(HashMap, fill), 64U);
    EXPECT_EQ(offsetof(HashMap, release), 72U);
    EXPECT_EQ(sizeof(HashMapIterator), 16U);
}

TEST(HashMap, GrowsBucketsAtSixteenAndEntriesAtSeventeen) {
    const Map map(makePlain());
    EXPECT_EQ(map->initialSize, 16U);
    for (uintptr_t key = 1; key <= 15; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), nullptr);
    }
    EXPECT_EQ(map->mask, 3U);
    EXPECT_EQ(map->entryCapacity, 16U);
    vn_HashMap_addQuick(map.get(), word(16), nullptr);
    EXPECT_EQ(map->mask, 7U);
    EXPECT_EQ(map->entryCapacity, 16U);
    vn_HashMap_addQuick(map.get(), word(17), nullptr);
    EXPECT_EQ(map->mask, 7U);
    EXPECT_EQ(map->entryCapacity, 32U);
    EXPECT_EQ(vn_HashMap_size(map.get()), 17U);
}

TEST(HashMap, HashesTwicePerAddAndThreeTimesWhenBucketsDouble) {
    const Map map(makePlain());
    resetCounters();
    EXPECT_FALSE(vn_HashMap_exists(map.get(), word(1)));
    EXPECT_EQ(hashCalls, 0U) << "an empty map needs no hash";
    for (uintptr_t key = 1; key <= 15; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), nullptr);
        EXPECT_EQ(hashCalls, 2 * key);
    }
    vn_HashMap_addQuick(map.get(), word(16), nullptr);
    EXPECT_EQ(hashCalls, 33U);
    vn_HashMap_addQuick(map.get(), word(16), nullptr);
    EXPECT_EQ(hashCalls, 34U) << "a key that is present is hashed once";
}

TEST(HashMap, RefusesAKeyTwice) {
    const Map map(makePlain());
    EXPECT_NE(vn_HashMap_addQuick(map.get(), word(5), word(50)), nullptr);
    EXPECT_EQ(vn_HashMap_addQuick(map.get(), word(5), word(51)), nullptr);
    const Iterator iterator(vn_HashMap_add(map.get(), word(5), word(52)));
    ASSERT_NE(iterator, nullptr);
    EXPECT_EQ(iterator->map, map.get());
    EXPECT_FALSE(vn_HashMapIterator_valid(iterator.get()));
    EXPECT_EQ(vn_HashMapIterator_key(iterator.get()), nullptr);
    EXPECT_EQ(vn_HashMapIterator_value(iterator.get()), nullptr);
    EXPECT_EQ(vn_HashMap_size(map.get()), 1U);
    EXPECT_EQ(vn_HashMap_findValue(map.get(), word(5)), word(50));
}

TEST(HashMap, RemoveWithoutReleaseReturnsNull) {
    const Map map(makePlain());
    vn_HashMap_addQuick(map.get(), word(5), word(50));
    EXPECT_EQ(vn_HashMap_remove(map.get(), word(5)), nullptr);
    EXPECT_EQ(vn_HashMap_size(map.get()), 0U);
}

TEST(HashMap, ReplaceReturnsWhatReleaseReturned) {
    const Map map(vn_HashMap_ctor(countingGoodHash, countingCompare, nullptr, logRelease, 0, 0));
    EXPECT_EQ(vn_HashMap_replace(map.get(), word(5), word(50)), nullptr);
    EXPECT_EQ(vn_HashMap_replace(map.get(), word(5), word(51)), word(50));
    EXPECT_EQ(vn_HashMap_findValue(map.get(), word(5)), word(51));
    EXPECT_EQ(vn_HashMap_size(map.get()), 1U);
}

TEST(HashMap, FindValueAndRemoveLeavesTheEntryReadable) {
    resetCounters();
    const Map map(vn_HashMap_ctor(countingGoodHash, countingCompare, nullptr, logRelease, 0, 1));
    vn_HashMap_addQuick(map.get(), word(5), word(50));
    const HashMapEntry* entry = vn_HashMap_findValueAndRemove(map.get(), word(5));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->value, word(50));
    EXPECT_TRUE(released.empty());
    EXPECT_EQ(vn_HashMap_findValueAndRemove(map.get(), word(5)), nullptr);
}

TEST(HashMap, KeepsItsSizeWithoutShrink) {
    const Map map(makePlain());
    for (uintptr_t key = 1; key <= 100; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), nullptr);
    }
    EXPECT_EQ(map->mask, 31U);
    EXPECT_EQ(map->entryCapacity, 128U);
    for (uintptr_t key = 1; key <= 100; ++key) {
        vn_HashMap_remove(map.get(), word(key));
    }
    vn_HashMap_removeAll(map.get());
    vn_HashMap_clear(map.get());
    EXPECT_EQ(map->mask, 31U);
    EXPECT_EQ(map->entryCapacity, 128U);
}

TEST(HashMap, ShrinksToFourBucketsAndNoFurther) {
    const Map map(makePlain(0, 1));
    for (uintptr_t key = 1; key <= 16; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), nullptr);
    }
    for (uintptr_t key = 1; key <= 8; ++key) {
        vn_HashMap_remove(map.get(), word(key));
    }
    EXPECT_EQ(map->mask, 7U) << "eight entries in eight buckets";
    vn_HashMap_remove(map.get(), word(9));
    EXPECT_EQ(map->mask, 3U);
    vn_HashMap_removeAll(map.get());
    vn_HashMap_removeAll(map.get());
    vn_HashMap_clear(map.get());
    EXPECT_EQ(map->mask, 3U);
}

TEST(HashMap, EmptyingHalvesTheBucketsOnce) {
    const Map map(makePlain(256, 1));
    EXPECT_EQ(map->mask, 63U);
    vn_HashMap_removeAll(map.get());
    EXPECT_EQ(map->mask, 31U) << "also when there was nothing to remove";
    vn_HashMap_clear(map.get());
    EXPECT_EQ(map->mask, 15U);
    EXPECT_EQ(map->entryCapacity, 256U);
}

TEST(HashMap, NeverHasFewerThanFourBuckets) {
    for (const uint32_t initialSize : {20U, 24U, 28U}) {
        const Map map(makePlain(initialSize, 1));
        vn_HashMap_addQuick(map.get(), word(1), word(10));
        vn_HashMap_addQuick(map.get(), word(2), word(20));
        vn_HashMap_remove(map.get(), word(2));
        EXPECT_EQ(map->mask, initialSize / 4 - 1);
        EXPECT_EQ(vn_HashMap_findValue(map.get(), word(1)), word(10));
    }
}

TEST(HashMap, NeverShrinksBelowItsEntries) {
    const Map map(makePlain(1025, 1));
    for (uintptr_t key = 1; key <= 300; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), word(key));
    }
    for (uintptr_t key = 1; key <= 298; ++key) {
        vn_HashMap_remove(map.get(), word(key));
        ASSERT_EQ(map->entryCapacity, 1025U) << "1025 - 1024 slots would not hold what is left";
    }
    vn_HashMap_remove(map.get(), word(299));
    EXPECT_EQ(map->entryCapacity, 1U);
    EXPECT_EQ(vn_HashMap_findValue(map.get(), word(300)), word(300));
    vn_HashMap_addQuick(map.get(), word(301), nullptr);
    EXPECT_EQ(map->entryCapacity, 2U);
}

TEST(HashMap, RemoveAllKeepsTheHighWaterMarkAndClearDoesNot) {
    const Map map(makePlain());
    for (uintptr_t key = 1; key <= 10; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), nullptr);
    }
    vn_HashMap_removeAll(map.get());
    EXPECT_EQ(map->entryFill, 10U);
    EXPECT_EQ(vn_HashMap_addQuick(map.get(), word(1), nullptr), &map->entries[10]);
    vn_HashMap_clear(map.get());
    EXPECT_EQ(map->entryFill, 0U);
    EXPECT_EQ(vn_HashMap_addQuick(map.get(), word(1), nullptr), &map->entries[0]);
}

TEST(HashMap, RemoveAllReleasesFirstThenLastOfABucket) {
    resetCounters();
    const auto sameHash = [](const void*) -> uint32_t { return 2; };
    const Map map(vn_HashMap_ctor(sameHash, countingCompare, nullptr, logRelease, 0, 0));
    for (uintptr_t key = 1; key <= 5; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), nullptr);
    }
    vn_HashMap_removeAll(map.get());
    EXPECT_THAT(released, ElementsAre(1, 5, 4, 3, 2));
}

TEST(HashMap, GapsInTheMaskLeaveBucketsUnused) {
    const Map map(makePlain(20));
    EXPECT_EQ(map->mask, 4U);
    for (uintptr_t key = 1; key <= 19; ++key) {
        vn_HashMap_addQuick(map.get(), word(key), word(key));
    }
    EXPECT_EQ(map->buckets[0].size + map->buckets[4].size, 19U);
    vn_HashMap_addQuick(map.get(), word(20), word(20));
    EXPECT_EQ(map->mask, 9U);
    EXPECT_EQ(keysForward(map.get()).size(), 20U);
}

TEST(HashMap, ReadingFunctionsOfVectorWorkOnBuckets) {
    const auto sameHash = [](const void*) -> uint32_t { return 3; };
    const Map map(vn_HashMap_ctor(sameHash, countingCompare, nullptr, nullptr, 0, 0));
    for (uintptr_t key = 1; key <= 15; ++key) {
        const HashMapEntry* entry = vn_HashMap_addQuick(map.get(), word(key), nullptr);
        const Vector* bucket = &map->buckets[3];
        EXPECT_EQ(vn_Vector_size(bucket), key);
        EXPECT_EQ(vn_Vector_get(bucket, static_cast<uint32_t>(key - 1)), entry);
        EXPECT_EQ(bucket->data[key - 1], entry);
        EXPECT_EQ(bucket->capacity, key <= 8 ? 8U : 16U);
    }
}

TEST(HashMap, EmptyMapAnswersNothing) {
    const Map map(makePlain());
    EXPECT_EQ(vn_HashMap_first(map.get()), nullptr);
    EXPECT_EQ(vn_HashMap_last(map.get()), nullptr);
    EXPECT_EQ(vn_HashMap_find(map.get(), word(1)), nullptr);
    EXPECT_EQ(vn_HashMap_findValue(map.get(), word(1)), nullptr);
    EXPECT_EQ(vn_HashMap_remove(map.get(), word(1)), nullptr);
    EXPECT_EQ(vn_HashMap_size(map.get()), 0U);
}

TEST(HashMapIterator, EndsOnBothSides) {
    const Map map(makePlain());
    vn_HashMap_addQuick(map.get(), word(1), word(10));
    for (const auto move : {vn_HashMapIterator_next, vn_HashMapIterator_back}) {
        const Iterator iterator(vn_HashMap_first(map.get()));
        ASSERT_TRUE(vn_HashMapIterator_valid(iterator.get()));
        EXPECT_EQ(vn_HashMapIterator_value(iterator.get()), word(10));
        EXPECT_FALSE(move(iterator.get()));
        EXPECT_FALSE(vn_HashMapIterator_valid(iterator.get()));
        EXPECT_FALSE(vn_HashMapIterator_next(iterator.get())) << "past the end it stays there";
        EXPECT_FALSE(vn_HashMapIterator_back(iterator.get()));
    }
}

// Large maps prefetch entries ahead of the iterator, up to the last bucket and down to the first.
TEST(HashMapIterator, GoesThroughLargeMapsBothWays) {
    constexpr uintptr_t count = 20000;
    for (const uint32_t initialSize : {16U, 9000U, 40000U}) {
        const Map map(makePlain(initialSize));
        for (uintptr_t i = 1; i <= count; ++i) {
            vn_HashMap_addQuick(map.get(), word(i), word(i));
        }
        std::vector<uintptr_t> forward;
        const Iterator first(vn_HashMap_first(map.get()));
        do {
            forward.push_back(number(vn_HashMapIterator_key(first.get())));
        } while (vn_HashMapIterator_next(first.get()));
        std::vector<uintptr_t> backward;
        const Iterator last(vn_HashMap_last(map.get()));
        do {
            backward.push_back(number(vn_HashMapIterator_key(last.get())));
        } while (vn_HashMapIterator_back(last.get()));

        std::reverse(backward.begin(), backward.end());
        EXPECT_EQ(forward, backward);
        EXPECT_EQ(std::set<uintptr_t>(forward.begin(), forward.end()).size(), count);
        EXPECT_EQ(forward.size(), count);
    }
}

// The next entry, read from the records.
const HashMapEntry* entryBehind(const HashMap* map, const HashMapEntry* entry) {
    uint32_t bucket = entry->hash & map->mask;
    uint32_t position = entry->bucketIndex + 1;
    while (position >= map->buckets[bucket].size) {
        if (bucket == map->mask) {
            return nullptr;
        }
        ++bucket;
        position = 0;
    }
    return static_cast<const HashMapEntry*>(map->buckets[bucket].data[position]);
}

// A map that is iterated, changed, and iterated again from any entry.
struct Walked {
    Walked(vn_HashMapHash hash, uint32_t initialSize, uintptr_t count)
        : map(vn_HashMap_ctor(hash, countingCompare, nullptr, nullptr, initialSize, 1)),
          keys(count) {
        addAll();
    }

    void addAll() {
        for (uintptr_t key = 1; key <= keys; ++key) {
            vn_HashMap_addQuick(map.get(), word(key), word(key));
        }
    }

    void placeIterator(std::mt19937& random) {
        iterator.reset(random() % 2 == 0 ? vn_HashMap_first(map.get())
                                         : vn_HashMap_find(map.get(), word(1 + random() % keys)));
    }

    // Small changes keep most entries in place.
    void change(std::mt19937& random) {
        iterator.reset();
        for (auto i = random() % 3; i < 3; ++i) {
            void* key = word(1 + random() % keys);
            if (random() % 2 == 0) {
                vn_HashMap_remove(map.get(), key);
            } else {
                vn_HashMap_addQuick(map.get(), key, key);
            }
        }
        if (random() % 50 == 0) {
            vn_HashMap_clear(map.get());
            addAll();
        }
    }

    void walk(size_t steps) {
        for (size_t i = 0; i < steps && vn_HashMapIterator_valid(iterator.get()); ++i) {
            const HashMapEntry* behind = entryBehind(map.get(), iterator->entry);
            ASSERT_EQ(vn_HashMapIterator_next(iterator.get()), behind != nullptr);
            ASSERT_EQ(iterator->entry, behind);
        }
    }

    Map map;
    uintptr_t keys;
    Iterator iterator;
};

// Starts at an entry after another map, a larger map, or the same map before a change was iterated.
TEST(HashMapIterator, GoesOnFromEveryEntryWhateverWasWalkedBefore) {
    std::array<Walked, 6> maps{
        Walked(countingGoodHash, 0, 12),     Walked(countingGoodHash, 0, 300),
        Walked(countingPoorHash, 0, 200),    Walked(countingGoodHash, 20, 19),
        Walked(countingGoodHash, 4096, 500), Walked(countingGoodHash, 16384, 12000)};
    std::mt19937 random(21);
    for (int round = 0; round < 30000; ++round) {
        Walked& walked = maps.at(random() % maps.size());
        if (random() % 8 == 0) {
            walked.change(random);
        }
        if (!vn_HashMapIterator_valid(walked.iterator.get()) || random() % 8 == 0) {
            walked.placeIterator(random);
        }
        walked.walk(random() % 40);
        ASSERT_FALSE(HasFatalFailure());
    }
}

// The header has three of these inline; programs compiled with an older header call them.
TEST(HashMapIterator, ExportedFunctionsReadTheEntry) {
    bool (*volatile valid)(const HashMapIterator*) = vn_HashMapIterator_valid;
    void* (*volatile key)(const HashMapIterator*) = vn_HashMapIterator_key;
    void* (*volatile value)(const HashMapIterator*) = vn_HashMapIterator_value;
    const Map map(makePlain());
    const Iterator iterator(vn_HashMap_add(map.get(), word(1), word(10)));
    EXPECT_TRUE(valid(iterator.get()));
    EXPECT_EQ(key(iterator.get()), word(1));
    EXPECT_EQ(value(iterator.get()), word(10));
    EXPECT_FALSE(vn_HashMapIterator_next(iterator.get()));
    EXPECT_FALSE(valid(iterator.get()));
    EXPECT_EQ(key(iterator.get()), nullptr);
    EXPECT_EQ(value(iterator.get()), nullptr);
    EXPECT_FALSE(valid(nullptr));
    EXPECT_EQ(key(nullptr), nullptr);
    EXPECT_EQ(value(nullptr), nullptr);
}

TEST(HashMapIterator, StaysPutWhenTheMapWasEmptied) {
    const Map map(makePlain());
    const Iterator iterator(vn_HashMap_add(map.get(), word(1), word(10)));
    HashMapEntry* entry = iterator->entry;
    vn_HashMap_removeAll(map.get());
    EXPECT_FALSE(vn_HashMapIterator_next(iterator.get()));
    EXPECT_EQ(iterator->entry, entry);
    EXPECT_FALSE(vn_HashMapIterator_back(iterator.get()));
}

TEST(HashMapIterator, AcceptsNull) {
    EXPECT_FALSE(vn_HashMapIterator_valid(nullptr));
    EXPECT_EQ(vn_HashMapIterator_key(nullptr), nullptr);
    EXPECT_EQ(vn_HashMapIterator_value(nullptr), nullptr);
    EXPECT_FALSE(vn_HashMapIterator_next(nullptr));
    EXPECT_FALSE(vn_HashMapIterator_back(nullptr));
    vn_HashMapIterator_dtor(nullptr);
}

struct Owned {
    uintptr_t number;
};
uint32_t hashOwned(const void* key) {
    return static_cast<uint32_t>(static_cast<const Owned*>(key)->number);
}
int32_t compareOwned(const void* stored, const void* key) {
    return hashOwned(stored) == hashOwned(key) ? 0 : 1;
}
// Stores the number and sets the caller's to 0, so that hashing the caller's key again gives
// another hash.
void fillByMoving(HashMapEntry* entry, void* key, void* value) {
    auto* given = static_cast<Owned*>(key);
    entry->key = new Owned{given->number};
    entry->value = value;
    given->number = 0;
}
void* releaseOwned(HashMapEntry* entry) {
    delete static_cast<Owned*>(entry->key);
    return nullptr;
}

// Compat: the bucket is that of the key before fill, the stored hash that of the key after fill.
TEST(HashMap, AFillThatMovesTheKeyOutLeavesTheBucketAlone) {
    const Map map(vn_HashMap_ctor(hashOwned, compareOwned, fillByMoving, releaseOwned, 0, 0));
    Owned five = {5};
    const HashMapEntry* entry = vn_HashMap_addQuick(map.get(), &five, word(1));
    EXPECT_EQ(entry->hash, 0U);
    EXPECT_EQ(map->buckets[5 & map->mask].size, 1U);
    EXPECT_EQ(map->buckets[0].size, 0U);
    five.number = 5;
    EXPECT_EQ(vn_HashMap_findValue(map.get(), &five), word(1));
    EXPECT_EQ(vn_HashMap_addQuick(map.get(), &five, word(2)), nullptr);
    vn_HashMap_remove(map.get(), &five);
    EXPECT_EQ(map->buckets[5 & map->mask].size, 0U);
    EXPECT_FALSE(vn_HashMap_exists(map.get(), &five));
    EXPECT_EQ(vn_HashMap_size(map.get()), 0U);
}
