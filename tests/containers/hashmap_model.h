// A model of the map with the same sizes and capacities. It is simpler and slower: it has slots and
// std::vectors instead of pointers and blocks. It also predicts the calls of the callbacks.
#ifndef VN_TESTS_CONTAINERS_HASHMAP_MODEL_H
#define VN_TESTS_CONTAINERS_HASHMAP_MODEL_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

class HashMapModel {
  public:
    struct Entry {
        uintptr_t key, value;
        uint32_t hash;
    };
    struct Bucket {
        std::vector<uint32_t> slots;
        uint32_t capacity = 8;
    };

    using Hash = std::function<uint32_t(uintptr_t)>;

    HashMapModel(Hash hashFunction, uint32_t initialSize, bool shrinks, bool hasFill,
                 bool hasRelease)
        : hashOf(std::move(hashFunction)), shrink(shrinks), fills(hasFill), releases(hasRelease) {
        const uint32_t size = std::max(initialSize, 16U);
        buckets.resize(size / 4);
        entries.resize(size);
    }

    uint32_t mask() const { return static_cast<uint32_t>(buckets.size()) - 1; }

    // Returns whether the key was added.
    bool add(uintptr_t key, uintptr_t value) {
        ++hashCalls;
        if (lookUp(key)) {
            return false;
        }
        if (count++ == 4 * mask() + 3) {
            spread(2 * buckets.size());
            ++hashCalls;
        }
        if (entryFill == entries.size()) {
            compact(entries.size() < 1024 ? 2 * entries.size() : entries.size() + 1024);
        }
        ++hashCalls;
        entries[entryFill] = {key, fills ? value + 1 : value, hashOf(key)};
        append(hashOf(key) & mask(), entryFill++);
        return true;
    }

    // The expected result of vn_HashMap_remove.
    uintptr_t remove(uintptr_t key) {
        const std::optional<uint32_t> slot = takeOut(key);
        if (!slot) {
            return 0;
        }
        const uintptr_t result = releases ? release(*slot) : 0;
        countDown();
        const size_t capacity = entries.size();
        if (shrink && capacity >= 17 && count < capacity / 4) {
            const size_t smaller = capacity < 1025 ? capacity / 2 : capacity - 1024;
            if (smaller >= count) {
                compact(smaller);
            }
        }
        return result;
    }

    std::optional<uint32_t> findAndRemove(uintptr_t key) {
        const std::optional<uint32_t> slot = takeOut(key);
        if (slot) {
            countDown();
        }
        return slot;
    }

    uintptr_t replace(uintptr_t key, uintptr_t value) {
        const uintptr_t result = remove(key);
        add(key, value);
        return result;
    }

    std::optional<uint32_t> find(uintptr_t key) {
        if (count == 0) {
            return std::nullopt;
        }
        ++hashCalls;
        return lookUp(key);
    }

    void removeAll() {
        for (Bucket& bucket : buckets) {
            while (!bucket.slots.empty()) {
                const uint32_t first = bucket.slots.front();
                bucket.slots.front() = bucket.slots.back();
                bucket.slots.pop_back();
                if (releases) {
                    release(first);
                }
            }
        }
        count = 0;
        halve();
    }

    void clear() {
        for (Bucket& bucket : buckets) {
            bucket.slots.clear();
        }
        count = 0;
        entryFill = 0;
        halve();
    }

    std::vector<uintptr_t> keysInOrder() const {
        std::vector<uintptr_t> keys;
        for (const Bucket& bucket : buckets) {
            for (const uint32_t slot : bucket.slots) {
                keys.push_back(entries[slot].key);
            }
        }
        return keys;
    }

    uint32_t count = 0;
    uint32_t entryFill = 0;
    uint64_t hashCalls = 0;
    uint64_t compareCalls = 0;
    std::vector<Bucket> buckets;
    std::vector<Entry> entries;
    std::vector<uintptr_t> released;

  private:
    std::optional<uint32_t> lookUp(uintptr_t key) {
        for (const uint32_t slot : buckets[hashOf(key) & mask()].slots) {
            ++compareCalls;
            if (entries[slot].key == key) {
                return slot;
            }
        }
        return std::nullopt;
    }

    std::optional<uint32_t> takeOut(uintptr_t key) {
        const std::optional<uint32_t> slot = find(key);
        if (slot) {
            std::vector<uint32_t>& slots = buckets[hashOf(key) & mask()].slots;
            *std::find(slots.begin(), slots.end(), *slot) = slots.back();
            slots.pop_back();
        }
        return slot;
    }

    uintptr_t release(uint32_t slot) {
        released.push_back(entries[slot].key);
        return entries[slot].value;
    }

    void append(uint32_t index, uint32_t slot) {
        Bucket& bucket = buckets[index];
        if (bucket.slots.size() == bucket.capacity) {
            bucket.capacity *= 2;
        }
        bucket.slots.push_back(slot);
    }

    void spread(size_t bucketCount) {
        const std::vector<Bucket> old = std::exchange(buckets, std::vector<Bucket>(bucketCount));
        for (const Bucket& bucket : old) {
            for (const uint32_t slot : bucket.slots) {
                append(entries[slot].hash & mask(), slot);
            }
        }
    }

    void compact(size_t capacity) {
        std::vector<Entry> compacted(capacity);
        entryFill = 0;
        for (Bucket& bucket : buckets) {
            for (uint32_t& slot : bucket.slots) {
                compacted[entryFill] = entries[slot];
                slot = entryFill++;
            }
        }
        entries = std::move(compacted);
    }

    void countDown() {
        if (--count <= mask()) {
            halve();
        }
    }

    void halve() {
        if (shrink && buckets.size() / 2 >= 4) {
            spread(buckets.size() / 2);
        }
    }

    Hash hashOf;
    bool shrink, fills, releases;
};

#endif
