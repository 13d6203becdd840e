// Maps with string keys, the callbacks of such keys, and the prime function.
#include <gtest/gtest.h>
#include <unistd.h>
#include <vncommon/hashmap.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "containers/hashmap_handles.h"
#include "support/child_process.h"
#include "support/copied_keys.h"
#include "support/guarded_memory.h"

namespace {

std::string keyText(const HashMapEntry* entry) {
    return static_cast<const char*>(entry->key);
}

// Does not set the key; the caller stores it in the entry that add returns.
void fillValueOnly(HashMapEntry* entry, void*, void* value) {
    entry->key = nullptr;
    entry->value = value;
}

// Copies the text and empties the caller's, so that hashing the caller's key again gives another
// hash.
void fillByMoving(HashMapEntry* entry, void* key, void* value) {
    entry->key = strdup(static_cast<char*>(key));
    entry->value = value;
    *static_cast<char*>(key) = '\0';
}

uint32_t plainStringHash(const std::string& string) {
    uint32_t hash = 0;
    for (const char c : string) {
        hash = (hash + static_cast<uint32_t>(static_cast<signed char>(c))) * 0x9E3779B9U;
    }
    return hash;
}

// Two different strings of ten digits with the same hash, found by search.
std::pair<std::string, std::string> twoWithOneHash() {
    std::unordered_map<uint32_t, std::string> seen;
    for (uint32_t i = 0;; ++i) {
        std::string candidate = std::to_string(i * 2654435761U);
        if (candidate.size() < 10) {
            continue;
        }
        const auto [place, fresh] = seen.emplace(plainStringHash(candidate), candidate);
        if (!fresh && place->second != candidate) {
            return {place->second, candidate};
        }
    }
}

// A string with this prefix, and a longer string with the same prefix and the same hash.
std::pair<std::string, std::string> oneAndLongerWithOneHash(const std::string& start) {
    const auto number = [](uint32_t i) { return std::to_string(100000 + i); };
    constexpr uint32_t tries = 65536;  // for each of the two strings: 2^32 pairs
    uint32_t power = 1;                // the factor that six more bytes apply to a hash
    for (int i = 0; i < 6; ++i) {
        power *= 0x9E3779B9;
    }
    std::unordered_map<uint32_t, uint32_t> added;
    added.reserve(tries);
    for (uint32_t i = 0; i < tries; ++i) {
        added.emplace(plainStringHash(number(i)), i);
    }
    for (uint32_t i = 0;; ++i) {
        std::string string = start + number(i);
        const uint32_t hash = plainStringHash(string);
        if (const auto found = added.find(hash - hash * power); found != added.end()) {
            return {string, string + number(found->second)};
        }
    }
}

// Places the string the given number of bytes before the end of the page.
char* placed(GuardedMemory& memory, const std::string& string, size_t behind) {
    char* place = memory.end() - behind - string.size() - 1;
    memcpy(place, string.c_str(), string.size() + 1);
    return place;
}

// Looks up both strings in a map that has one of them, at several places in the page.
void expectToldApart(const std::string& held, const std::string& other) {
    GuardedMemory ofMap, ofAsked;
    for (const size_t behindHeld : {0U, 5U, 40U}) {
        const Map map(vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 0, 0));
        vn_HashMap_addQuick(map.get(), placed(ofMap, held, behindHeld), word(1));
        for (const size_t behind : {0U, 1U, 5U, 15U, 16U, 40U}) {
            ASSERT_EQ(vn_HashMap_findValue(map.get(), placed(ofAsked, held, behind)), word(1));
            ASSERT_EQ(vn_HashMap_findValue(map.get(), placed(ofAsked, other, behind)), nullptr);
        }
    }
}

}  // namespace

TEST(HashMapOfStrings, HoldsWhatStdMapHolds) {
    const Map map(vn_HashMap_ctor(vn_String_hash, vn_String_compare, fillWithCopy, freeCopy, 0, 1));
    std::map<std::string, uintptr_t> expected;
    std::mt19937 random(7);
    for (int i = 0; i < 50000; ++i) {
        const std::string key = "key " + std::to_string(random() % 3000);
        void* name = const_cast<char*>(key.c_str());
        if (random() % 2 == 0) {
            const uintptr_t value = random();
            const bool added = expected.emplace(key, value).second;
            ASSERT_EQ(vn_HashMap_addQuick(map.get(), name, word(value)) != nullptr, added);
        } else {
            const auto found = expected.find(key);
            ASSERT_EQ(number(vn_HashMap_findValue(map.get(), name)),
                      found != expected.end() ? found->second : 0);
            vn_HashMap_remove(map.get(), name);
            expected.erase(key);
        }
        ASSERT_EQ(map->count, expected.size());
    }
    for (const auto& [key, value] : expected) {
        ASSERT_EQ(number(vn_HashMap_findValue(map.get(), key.c_str())), value);
    }
    for (uint32_t i = 0; i <= map->mask; ++i) {
        for (uint32_t k = 0; k < map->buckets[i].size; ++k) {
            const auto* entry = static_cast<HashMapEntry*>(map->buckets[i].data[k]);
            ASSERT_EQ(entry->hash, plainStringHash(keyText(entry)));
        }
    }
}

// Adding reads only the given keys, not the stored ones.
TEST(HashMapOfStrings, TakesKeysThatAreStoredAfterTheAdds) {
    const Map map(
        vn_HashMap_ctor(vn_String_hash, vn_String_compare, fillValueOnly, freeCopy, 0, 1));
    constexpr uintptr_t count = 2000;
    const auto name = [](uintptr_t i) { return "key " + std::to_string(i); };
    for (uintptr_t i = 0; i < count; ++i) {
        const HashMapEntry* entry = vn_HashMap_addQuick(map.get(), name(i).data(), word(i));
        ASSERT_EQ(entry->key, nullptr);
        ASSERT_EQ(entry->hash, plainStringHash(name(i)));
    }
    for (uint32_t i = 0; i < map->entryFill; ++i) {
        map->entries[i].key = strdup(name(number(map->entries[i].value)).c_str());
    }
    for (uintptr_t i = 0; i < count; ++i) {
        ASSERT_EQ(vn_HashMap_addQuick(map.get(), name(i).data(), nullptr), nullptr);
        ASSERT_EQ(number(vn_HashMap_findValue(map.get(), name(i).c_str())), i);
    }
}

// Compat: the bucket is that of the key before fill, the stored hash that of the key after fill.
TEST(HashMapOfStrings, FindsKeysThatFillMovedOut) {
    const Map map(vn_HashMap_ctor(vn_String_hash, vn_String_compare, fillByMoving, freeCopy, 0, 0));
    std::string key = "moved";
    const HashMapEntry* entry = vn_HashMap_addQuick(map.get(), key.data(), word(9));
    EXPECT_EQ(entry->hash, 0U);
    EXPECT_EQ(vn_HashMap_findValue(map.get(), "moved"), word(9));
    EXPECT_EQ(map->buckets[plainStringHash("moved") & 3].size, 1U);
    vn_HashMap_remove(map.get(), "moved");
    EXPECT_EQ(vn_HashMap_size(map.get()), 0U);
}

double residentMegabytes() {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return static_cast<double>(pages) * static_cast<double>(getpagesize()) / 1e6;
}

// Grows and destroys maps one after another; returns the peak of resident memory.
double growAndEndMaps() {
    const double before = residentMegabytes();
    double most = 0;
    for (int round = 0; round < 4; ++round) {
        HashMap* map =
            vn_HashMap_ctor(vn_String_hash, vn_String_compare, fillWithCopy, freeCopy, 0, 0);
        for (int i = 0; i < 150'000; ++i) {
            std::string key = "key " + std::to_string(i);
            vn_HashMap_addQuick(map, key.data(), nullptr);
        }
        most = std::max(most, residentMegabytes() - before);
        vn_HashMap_dtor(map);
        most = std::max(most, residentMegabytes() - before);
    }
    return most;
}

// Runs in a thread, because a new thread has an unused heap.
VN_CHILD(growsAndEndsMaps) {
    double most = 0;
    std::thread([&] { most = growAndEndMaps(); }).join();
    printf("%.1f", most);
    return 0;
}

TEST(HashMapMemory, ConsecutiveMapsReuseMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers keep freed memory";
#endif
    const double most = atof(runChild("growsAndEndsMaps").out.c_str());
    EXPECT_GT(most, 10);
    EXPECT_LT(most, 60);  // megabytes
}

TEST(HashMapOfStrings, ComparesWhenHashesCollide) {
    const auto [a, b] = twoWithOneHash();
    const Map map(vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 0, 0));
    vn_HashMap_addQuick(map.get(), word(number(a.c_str())), word(1));
    EXPECT_EQ(vn_HashMap_findValue(map.get(), b.c_str()), nullptr);
    vn_HashMap_addQuick(map.get(), word(number(b.c_str())), word(2));
    EXPECT_EQ(vn_HashMap_findValue(map.get(), a.c_str()), word(1));
    EXPECT_EQ(vn_HashMap_findValue(map.get(), b.c_str()), word(2));
}

TEST(HashMapOfStrings, DistinguishesStringsWithTheSameHash) {
    const auto [a, b] = twoWithOneHash();
    for (size_t before = 0; before < 36; ++before) {
        for (size_t behind = 0; behind < 36; ++behind) {
            const std::string start(before, '<');
            const std::string end(behind, '>');
            ASSERT_EQ(plainStringHash(start + a + end), plainStringHash(start + b + end));
            expectToldApart(start + a + end, start + b + end);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST(HashMapOfStrings, DistinguishesALongerStringWithTheSameHash) {
    for (const size_t before : {0U, 9U, 10U, 26U}) {
        const auto [shorter, longer] = oneAndLongerWithOneHash(std::string(before, '<'));
        ASSERT_EQ(plainStringHash(shorter), plainStringHash(longer));
        expectToldApart(shorter, longer);
        expectToldApart(longer, shorter);
    }
}

TEST(StringKeys, HashIsTheSumOfSignedBytes) {
    EXPECT_EQ(vn_String_hash(""), 0U);
    EXPECT_EQ(vn_String_hash("a"), 0x61U * 0x9E3779B9U);
    EXPECT_EQ(vn_String_hash("\x80"), (0U - 128U) * 0x9E3779B9U);
    std::mt19937 random(3);
    for (size_t length = 0; length < 70; ++length) {
        for (int round = 0; round < 200; ++round) {
            std::string string(length, '\0');
            for (char& c : string) {
                c = static_cast<char>(1 + random() % 255);
            }
            ASSERT_EQ(vn_String_hash(string.c_str()), plainStringHash(string));
        }
    }
}

TEST(StringKeys, HashReadsNothingInTheNextPage) {
    GuardedMemory memory;
    memset(memory.begin(), 'x', static_cast<size_t>(memory.end() - memory.begin()));
    for (size_t length = 0; length < 70; ++length) {
        for (size_t behind = 1; behind < 20; ++behind) {
            char* string = memory.end() - behind - length;
            string[length] = '\0';
            ASSERT_EQ(vn_String_hash(string), plainStringHash(std::string(length, 'x')));
            string[length] = 'x';
        }
    }
}

TEST(StringKeys, ComparesBytes) {
    EXPECT_EQ(vn_String_compare("abc", "abc"), 0);
    EXPECT_LT(vn_String_compare("abc", "abd"), 0);
    EXPECT_GT(vn_String_compare("\xFF", "a"), 0);
    EXPECT_LT(vn_String_compare("", "a"), 0);
}

TEST(NextPrime, GivesTheSmallestPrimeNotBelow) {
    for (const auto& [n, prime] : {std::pair{0, 2},
                                   {1, 2},
                                   {2, 2},
                                   {3, 3},
                                   {4, 5},
                                   {5, 5},
                                   {6, 7},
                                   {8, 11},
                                   {24, 29},
                                   {25, 29},
                                   {48, 53},
                                   {98, 101}}) {
        EXPECT_EQ(vn_nextPrime(static_cast<uint64_t>(n)), static_cast<uint64_t>(prime)) << n;
    }
}

TEST(NextPrime, AgreesWithASieve) {
    constexpr size_t limit = 200000;
    std::vector<bool> composite(limit + 1);
    for (size_t i = 2; i * i <= limit; ++i) {
        for (size_t k = i * i; !composite[i] && k <= limit; k += i) {
            composite[k] = true;
        }
    }
    uint64_t prime = 199999;  // the largest below the limit
    for (uint64_t n = prime; n >= 2; --n) {
        prime = composite[n] ? prime : n;
        ASSERT_EQ(vn_nextPrime(n), prime) << n;
    }
}

TEST(NextPrime, ServesLargeNumbers) {
    EXPECT_EQ(vn_nextPrime(4294967290U), 4294967291U);
    EXPECT_EQ(vn_nextPrime(4294967292U), 4294967311U);
    EXPECT_EQ(vn_nextPrime(uint64_t{65537} * 65537), 4295098403U);
    EXPECT_EQ(vn_nextPrime(1000000000000U), 1000000000039U);
    EXPECT_EQ(vn_nextPrime(18446744073709551558U), 0U) << "no prime of 64 bits is left";
    EXPECT_EQ(vn_nextPrime(UINT64_MAX), 0U);
}
