// Sequences of map operations, compared with std::map. Also counts the callbacks and checks the
// record's invariants. An input is the map's options, the quality of its hash (none for a map
// without callbacks), and the operations.
#include <vncommon/hashmap.h>

#include <map>
#include <vector>

#include "fuzz/fuzz.h"

namespace {

uint32_t hashMask;  // few bits cause collisions
int64_t filled;     // entries made by fill and not yet released
bool ownsEntries;   // whether fill and release are set
uint32_t lastReleased;

void* asPointer(uint64_t number) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(number));
}

uint32_t asNumber(const void* pointer) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

uint32_t hashOf(const void* key) {
    return asNumber(key) * 2654435761U & hashMask;
}

int32_t compareKeys(const void* stored, const void* key) {
    return stored == key ? 0 : 1;
}

void fillEntry(HashMapEntry* entry, void* key, void* value) {
    entry->key = key;
    entry->value = value;
    ++filled;
}

void* releaseEntry(HashMapEntry* entry) {
    --filled;
    lastReleased = asNumber(entry->key);
    return entry->value;
}

class Run {
  public:
    explicit Run(fuzz::Input& bytes) : input(bytes) {
        static constexpr uint32_t masks[] = {0, 1, 7, 0xFF, 0xFFFF0000, 0xFFFFFFFF};
        const uint8_t makeUp = input.byte();
        const size_t quality = input.byte() % (std::size(masks) + 1);
        const bool callbacks = quality < std::size(masks);
        hashMask = callbacks ? masks[quality] : 0;
        ownsEntries = makeUp & 1;
        filled = 0;
        vn_HashMap_init(&map, callbacks ? hashOf : nullptr, callbacks ? compareKeys : nullptr,
                        ownsEntries ? fillEntry : nullptr, ownsEntries ? releaseEntry : nullptr,
                        makeUp >> 2, makeUp >> 1 & 1);
    }
    ~Run() {
        vn_HashMap_cleanup(&map);
        FUZZ_REQUIRE(filled == 0);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void step() {
        const uint8_t operation = input.byte();
        const uint32_t key = input.below(512);
        switch (operation % 12) {
            case 0:
            case 1:
            case 2:
                return add(key);
            case 3:
                return addMany(key);
            case 4:
            case 5:
                return remove(key);
            case 6:
                return removeMany(key);
            case 7:
                return replace(key);
            case 8:
                return findAndRemove(key);
            case 9:
                return look(key);
            case 10:
                return walk();
            default:
                return empty(key);
        }
    }

    void check() {
        FUZZ_REQUIRE(vn_HashMap_size(&map) == model.size());
        FUZZ_REQUIRE(map.entryFill <= map.entryCapacity);
        FUZZ_REQUIRE(!ownsEntries || filled == static_cast<int64_t>(model.size()));
        uint32_t total = 0;
        for (uint32_t bucket = 0; bucket <= map.mask; ++bucket) {
            const Vector& entries = map.buckets[bucket];
            total += entries.size;
            for (uint32_t i = 0; i < entries.size; ++i) {
                const auto* entry = static_cast<const HashMapEntry*>(entries.data[i]);
                FUZZ_REQUIRE((entry->hash & map.mask) == bucket && entry->bucketIndex == i);
                FUZZ_REQUIRE(entry >= map.entries && entry < map.entries + map.entryFill);
            }
        }
        FUZZ_REQUIRE(total == map.count);
    }

  private:
    void add(uint32_t key) {
        const uint64_t value = ++lastValue;
        const bool isNew = model.emplace(key, value).second;
        if (value % 2 == 0) {
            const HashMapEntry* entry = vn_HashMap_addQuick(&map, asPointer(key), asPointer(value));
            FUZZ_REQUIRE((entry != nullptr) == isNew);
            FUZZ_REQUIRE(!isNew ||
                         (asNumber(entry->key) == key && asNumber(entry->value) == value));
        } else {
            HashMapIterator* iterator = vn_HashMap_add(&map, asPointer(key), asPointer(value));
            FUZZ_REQUIRE(vn_HashMapIterator_valid(iterator) == isNew);
            FUZZ_REQUIRE(!isNew || asNumber(vn_HashMapIterator_key(iterator)) == key);
            vn_HashMapIterator_dtor(iterator);
        }
    }

    void addMany(uint32_t first) {
        for (uint32_t count = input.byte(); count > 0; --count) {
            add(first++);
        }
    }

    // The expected result of release: the value, or null without a callback.
    uint32_t takeFromModel(uint32_t key) {
        const auto found = model.find(key);
        if (found == model.end()) {
            return 0;
        }
        const auto value = static_cast<uint32_t>(found->second);
        model.erase(found);
        return ownsEntries ? value : 0;
    }

    void remove(uint32_t key) {
        const uint32_t expected = takeFromModel(key);
        FUZZ_REQUIRE(asNumber(vn_HashMap_remove(&map, asPointer(key))) == expected);
        FUZZ_REQUIRE(expected == 0 || lastReleased == key);
    }

    void removeMany(uint32_t first) {
        for (uint32_t count = input.byte(); count > 0; --count) {
            remove(first++);
        }
    }

    void replace(uint32_t key) {
        const uint32_t expected = takeFromModel(key);
        const uint64_t value = ++lastValue;
        FUZZ_REQUIRE(asNumber(vn_HashMap_replace(&map, asPointer(key), asPointer(value))) ==
                     expected);
        model[key] = value;
    }

    void findAndRemove(uint32_t key) {
        const auto found = model.find(key);
        const HashMapEntry* entry = vn_HashMap_findValueAndRemove(&map, asPointer(key));
        FUZZ_REQUIRE((entry != nullptr) == (found != model.end()));
        if (entry != nullptr) {
            FUZZ_REQUIRE(asNumber(entry->key) == key && asNumber(entry->value) == found->second);
            model.erase(found);
            filled -= ownsEntries;  // release is not called
        }
    }

    void look(uint32_t key) {
        const auto found = model.find(key);
        const bool exists = found != model.end();
        FUZZ_REQUIRE(vn_HashMap_exists(&map, asPointer(key)) == exists);
        FUZZ_REQUIRE(asNumber(vn_HashMap_findValue(&map, asPointer(key))) ==
                     (exists ? found->second : 0));
        HashMapIterator* iterator = vn_HashMap_find(&map, asPointer(key));
        FUZZ_REQUIRE((iterator != nullptr) == exists);
        FUZZ_REQUIRE(asNumber(vn_HashMapIterator_value(iterator)) == (exists ? found->second : 0));
        vn_HashMapIterator_dtor(iterator);
    }

    // Forwards the iterator visits every entry once, and backwards in the reverse order.
    void walk() {
        std::map<uint32_t, uint64_t> met;
        std::vector<uint32_t> order;
        HashMapIterator* iterator = vn_HashMap_first(&map);
        FUZZ_REQUIRE((iterator != nullptr) == !model.empty());
        while (vn_HashMapIterator_valid(iterator)) {
            order.push_back(asNumber(vn_HashMapIterator_key(iterator)));
            met[order.back()] = asNumber(vn_HashMapIterator_value(iterator));
            FUZZ_REQUIRE(vn_HashMapIterator_next(iterator) == vn_HashMapIterator_valid(iterator));
        }
        vn_HashMapIterator_dtor(iterator);
        FUZZ_REQUIRE(met == model && order.size() == model.size());
        iterator = vn_HashMap_last(&map);
        while (vn_HashMapIterator_valid(iterator)) {
            FUZZ_REQUIRE(!order.empty());
            FUZZ_REQUIRE(asNumber(vn_HashMapIterator_key(iterator)) == order.back());
            order.pop_back();
            FUZZ_REQUIRE(vn_HashMapIterator_back(iterator) == vn_HashMapIterator_valid(iterator));
        }
        vn_HashMapIterator_dtor(iterator);
        FUZZ_REQUIRE(order.empty());
    }

    void empty(uint32_t choice) {
        if (choice % 2 == 0) {
            vn_HashMap_removeAll(&map);
        } else {
            vn_HashMap_clear(&map);
            filled = 0;  // release is not called
        }
        model.clear();
    }

    fuzz::Input& input;
    HashMap map;
    std::map<uint32_t, uint64_t> model;
    uint64_t lastValue = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzz::checkSteps<Run>(data, size, 200);
}
