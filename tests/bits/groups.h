// Groups of calls whose results must be the same bits on every machine and in every build.
//
// A group generates its arguments from a seed, only with integer arithmetic and exact operations,
// so that they are the same everywhere, and records each call as two texts: the arguments and the
// result. Neither may depend on the signedness of char, the byte order or the locale.
#ifndef VN_TESTS_BITS_GROUPS_H
#define VN_TESTS_BITS_GROUPS_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

constexpr int randomCalls = 100'000;  // for each group, after its special arguments

constexpr uint64_t fnvOffset = 0xcbf29ce484222325U;
constexpr uint64_t fnvPrime = 0x100000001b3U;

// FNV-1a, continued from hash.
constexpr uint64_t fnv(std::string_view text, uint64_t hash = fnvOffset) {
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * fnvPrime;
    }
    return hash;
}

// SplitMix64. Never draw twice in one expression: compilers differ in the order of evaluation.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint64_t next() {
        uint64_t z = state_ += 0x9e3779b97f4a7c15U;
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }
    // With at least this number of the highest bits cleared.
    uint64_t shorter(uint64_t least = 0) {
        const uint64_t bits = next();
        return bits >> (least + below(64 - least));
    }
    uint64_t below(uint64_t bound) { return next() % bound; }
    int between(int least, int most) {
        return least + static_cast<int>(below(static_cast<uint64_t>(most - least) + 1));
    }

  private:
    uint64_t state_;
};

// Records the calls of a group.
class Records {
  public:
    explicit Records(FILE* dump = nullptr) : dump_(dump) {}

    void add(const std::string& arguments, const std::string& result) {
        hash_ = fnv("\n", fnv(result, fnv("\t", fnv(arguments, hash_))));
        ++count_;
        if (dump_ != nullptr) {
            fprintf(dump_, "%s\t%s\n", arguments.c_str(), result.c_str());
        }
    }
    uint64_t hash() const { return hash_; }
    int count() const { return count_; }

  private:
    FILE* dump_;
    uint64_t hash_ = fnvOffset;
    int count_ = 0;
};

struct Group {
    std::string name;
    void (*run)(Records& records, Random& random);
};

// Each is defined in the file of its name.
std::vector<Group> mathematicsGroups();
std::vector<Group> numberGroups();
std::vector<Group> stringGroups();
std::vector<Group> unicodeGroups();
std::vector<Group> eventGroups();

#endif
