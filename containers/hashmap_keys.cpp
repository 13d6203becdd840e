// What maps are keyed with: the callbacks for string keys, and the prime function for hash sizes.
#include <vncommon/hashmap.h>

#include <cmath>
#include <cstring>

namespace {

constexpr uint32_t multiplier = 0x9E3779B9;
constexpr uint32_t multiplier2 = multiplier * multiplier;
constexpr uint32_t multiplier3 = multiplier2 * multiplier;
constexpr uint32_t multiplier4 = multiplier3 * multiplier;

constexpr uint64_t largestPrime = 18446744073709551557U;  // of those below 2^64

// For candidates of the form 6k - 1 and 6k + 1: 2 and 3 need no trial.
bool isPrime(uint64_t candidate) {
    const auto root = static_cast<uint64_t>(std::sqrt(static_cast<double>(candidate)));
    for (uint64_t divisor = 5; divisor <= root; divisor += 6) {
        if (candidate % divisor == 0 || candidate % (divisor + 2) == 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

// h = (h + c) * multiplier for every byte, four at a time: the chain of dependent
// multiplications, which is what the hash costs, becomes a quarter as long. 20 bytes take 11.7
// instead of 14.8 ns, 64 bytes 40 instead of 62.
uint32_t vn_String_hash(const void* string) {
    const auto* bytes = static_cast<const signed char*>(string);
    const auto widened = [](signed char byte) { return static_cast<uint32_t>(int32_t{byte}); };
    uint32_t hash = 0;
    for (;; bytes += 4) {
        if (bytes[0] == 0) {
            return hash;
        }
        const uint32_t first = hash + widened(bytes[0]);
        if (bytes[1] == 0) {
            return first * multiplier;
        }
        const uint32_t second = widened(bytes[1]);
        if (bytes[2] == 0) {
            return first * multiplier2 + second * multiplier;
        }
        const uint32_t third = widened(bytes[2]);
        if (bytes[3] == 0) {
            return first * multiplier3 + second * multiplier2 + third * multiplier;
        }
        const uint32_t fourth = widened(bytes[3]);
        hash = first * multiplier4 +
               (second * multiplier3 + third * multiplier2 + fourth * multiplier);
    }
}

int32_t vn_String_compare(const void* a, const void* b) {
    return strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}

uint64_t vn_nextPrime(uint64_t n) {
    if (n <= 3) {
        return n < 3 ? 2 : 3;
    }
    if (n > largestPrime) {
        return 0;
    }
    for (uint64_t multiple = n / 6 * 6;; multiple += 6) {
        if (multiple > n && isPrime(multiple - 1)) {
            return multiple - 1;
        }
        if (multiple + 1 >= n && isPrime(multiple + 1)) {
            return multiple + 1;
        }
    }
}
