// HashMap compared with GHashTable and std::unordered_map, with string keys and integer keys. Each
// pass visits all keys in a different order. The figure to compare is ns_per_op. Maps that support
// it are created with their final size.
//
// Integers are measured twice: with each map's own functions (HashMap without callbacks,
// g_direct_hash, std::hash), and with the same two caller-provided callbacks in every map.
//
// std::unordered_map is measured twice: inlined into its caller, and called in another library, as
// ours is.
#include <benchmark/benchmark.h>
#include <vncommon/hashmap.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "peer_map.h"

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

using Words = std::vector<void*>;

// Twice as many keys as entries: the second half is not in the map. Lookups use copies of the
// texts, stored in lookup order: programs look up a text that they have just read.
struct Strings {
    explicit Strings(size_t count) : texts(2 * count) {
        std::mt19937_64 random(11);
        for (std::string& text : texts) {
            char buffer[40];
            snprintf(buffer, sizeof buffer, "key-%016llx",
                     static_cast<unsigned long long>(random()));
            text = buffer;
        }
    }
    Words keys() {
        Words words;
        for (std::string& text : texts) {
            words.push_back(text.data());
        }
        return words;
    }
    Words askedWith(const Words& keys) {
        Words words;
        for (const void* key : keys) {
            words.push_back(copies.emplace_back(static_cast<const char*>(key)).data());
        }
        return words;
    }
    std::vector<std::string> texts;
    std::deque<std::string> copies;
};

struct Integers {
    explicit Integers(size_t count) : numbers(2 * count) {
        std::mt19937_64 random(12);
        for (uintptr_t& number : numbers) {
            number = random();
        }
    }
    Words keys() {
        Words words;
        for (const uintptr_t number : numbers) {
            words.push_back(reinterpret_cast<void*>(number));
        }
        return words;
    }
    static const Words& askedWith(const Words& keys) { return keys; }
    std::vector<uintptr_t> numbers;
};

// The same keys, for maps that hash and compare through callbacks.
struct CalledIntegers : Integers {
    using Integers::Integers;
};

template <typename Keys>
constexpr bool isText = std::is_same_v<Keys, Strings>;
template <typename Keys>
constexpr bool isWord = std::is_same_v<Keys, Integers>;

// ---- The maps, one interface

// The value differs from the key, because GHashTable stores no values if every key maps to itself.
void* valueOf(void* key) {
    return static_cast<char*>(key) + 1;
}

uint32_t hashInteger(const void* key) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
}
int32_t compareIntegers(const void* a, const void* b) {
    return a == b ? 0 : 1;
}
int equalIntegers(const void* a, const void* b) {
    return a == b ? 1 : 0;
}

template <typename Keys>
struct Ours {
    explicit Ours(size_t count)
        : map(vn_HashMap_ctor(isWord<Keys>   ? nullptr
                              : isText<Keys> ? vn_String_hash
                                             : hashInteger,
                              isWord<Keys>   ? nullptr
                              : isText<Keys> ? vn_String_compare
                                             : compareIntegers,
                              nullptr, nullptr, powerOfTwo(count), 0)) {}
    ~Ours() { vn_HashMap_dtor(map); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    static uint32_t powerOfTwo(size_t count) {
        uint32_t size = 16;
        while (size < count) {
            size *= 2;
        }
        return size;
    }
    void add(void* key) { vn_HashMap_addQuick(map, key, valueOf(key)); }
    void* find(void* key) { return vn_HashMap_findValue(map, key); }
    void remove(void* key) { vn_HashMap_remove(map, key); }
    size_t iterate() {
        size_t sum = 0;
        HashMapIterator* iterator = vn_HashMap_first(map);
        do {
            sum += reinterpret_cast<size_t>(vn_HashMapIterator_value(iterator));
        } while (vn_HashMapIterator_next(iterator));
        vn_HashMapIterator_dtor(iterator);
        return sum;
    }
    HashMap* map;
};

template <typename Keys>
struct StdOf {
    using Map = MapOfIntegers;
    static Map make() { return Map(); }
};
template <>
struct StdOf<Strings> {
    using Map = MapOfStrings;
    static Map make() { return Map(); }
};
template <>
struct StdOf<CalledIntegers> {
    using Map = MapWithCallbacks;
    static Map make() { return Map(0, hashInteger, equalIntegers); }
};

template <typename Keys>
auto keyOf(void* key) {
    if constexpr (isText<Keys>) {
        return std::string_view(static_cast<const char*>(key));
    } else {
        return reinterpret_cast<typename StdOf<Keys>::Map::key_type>(key);
    }
}

template <typename Keys>
struct Std {
    explicit Std(size_t count) { map.reserve(count); }
    void add(void* key) { map.emplace(keyOf<Keys>(key), valueOf(key)); }
    void* find(void* key) {
        const auto found = map.find(keyOf<Keys>(key));
        return found != map.end() ? found->second : nullptr;
    }
    void remove(void* key) { map.erase(keyOf<Keys>(key)); }
    size_t iterate() {
        size_t sum = 0;
        for (const auto& [key, value] : map) {
            sum += reinterpret_cast<size_t>(value);
        }
        return sum;
    }
    typename StdOf<Keys>::Map map = StdOf<Keys>::make();
};

template <typename Keys>
struct CalledStd {
    explicit CalledStd(size_t count) : map(StdOf<Keys>::make(), count) {}
    void add(void* key) { map.add(keyOf<Keys>(key), valueOf(key)); }
    void* find(void* key) { return map.find(keyOf<Keys>(key)); }
    void remove(void* key) { map.remove(keyOf<Keys>(key)); }
    size_t iterate() {
        size_t sum = 0;
        for (void* value = map.first(); value != nullptr; value = map.next()) {
            sum += reinterpret_cast<size_t>(value);
        }
        return sum;
    }
    PeerMap<typename StdOf<Keys>::Map> map;
};

#ifdef VN_HAVE_GLIB_2_0
template <typename Keys>
struct GLib {
    explicit GLib(size_t)
        : map(g_hash_table_new(isWord<Keys>   ? g_direct_hash
                               : isText<Keys> ? g_str_hash
                                              : hashInteger,
                               isWord<Keys>   ? nullptr
                               : isText<Keys> ? g_str_equal
                                              : equalIntegers)) {}
    ~GLib() { g_hash_table_destroy(map); }
    GLib(const GLib&) = delete;
    GLib& operator=(const GLib&) = delete;
    void add(void* key) { g_hash_table_insert(map, key, valueOf(key)); }
    void* find(void* key) { return g_hash_table_lookup(map, key); }
    void remove(void* key) { g_hash_table_remove(map, key); }
    size_t iterate() {
        size_t sum = 0;
        GHashTableIter iterator;
        g_hash_table_iter_init(&iterator, map);
        gpointer value;
        while (g_hash_table_iter_next(&iterator, nullptr, &value)) {
            sum += reinterpret_cast<size_t>(value);
        }
        return sum;
    }
    GHashTable* map;
};
#endif

// ---- The measurements

enum class Operation { add, find, miss, remove, iterate };

// Measures the thread's processor time; the wall clock would include other work of the machine.
class Stopwatch {
  public:
    double seconds() const { return now() - start; }

  private:
    static double now() {
        timespec time;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }
    double start = now();
};

template <typename Map>
double timeOf(Operation operation, Map& map, const Words& keys) {
    const Stopwatch watch;
    size_t sum = 0;
    if (operation == Operation::iterate) {
        sum = map.iterate();
    }
    for (void* key : keys) {
        if (operation == Operation::add) {
            map.add(key);
        } else if (operation == Operation::remove) {
            map.remove(key);
        } else if (operation != Operation::iterate) {
            sum += reinterpret_cast<size_t>(map.find(key));
        }
    }
    benchmark::DoNotOptimize(sum);
    return watch.seconds();
}

// The keys of a size, made once and shared by maps and operations.
template <typename Keys>
class Sample {
  public:
    static const Sample& of(size_t count) {
        static std::map<size_t, const Sample> samples;
        return samples.try_emplace(count, count).first->second;
    }

    explicit Sample(size_t count) : storage(count) {
        const Words all = storage.keys();
        const auto middle = all.begin() + static_cast<std::ptrdiff_t>(count);
        present = Words(all.begin(), middle);
        askedPresent = shuffled(present);
        askedMissing = shuffled(Words(middle, all.end()));
    }

    const Words& askedBy(Operation operation) const {
        return operation == Operation::add    ? present
               : operation == Operation::miss ? askedMissing
                                              : askedPresent;
    }

    Words present;

  private:
    Words shuffled(Words keys) {
        std::shuffle(keys.begin(), keys.end(), std::mt19937(5));
        return storage.askedWith(keys);
    }

    Keys storage;
    Words askedPresent, askedMissing;
};

template <typename Map>
void addAll(Map& map, const Words& keys) {
    for (void* key : keys) {
        map.add(key);
    }
}

template <template <typename> class Map, typename Keys, Operation operation>
void measure(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    const auto& sample = Sample<Keys>::of(count);
    const Words& asked = sample.askedBy(operation);
    constexpr bool changes = operation == Operation::add || operation == Operation::remove;
    Map<Keys> kept(count);
    if (!changes) {
        addAll(kept, sample.present);
    }
    for ([[maybe_unused]] auto _ : state) {
        if constexpr (changes) {
            Map<Keys> fresh(count);
            if (operation == Operation::remove) {
                addAll(fresh, sample.present);
            }
            state.SetIterationTime(timeOf(operation, fresh, asked));
        } else {
            state.SetIterationTime(timeOf(operation, kept, asked));
        }
    }
    state.counters["ns_per_op"] = benchmark::Counter(
        static_cast<double>(count) * 1e-9,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <template <typename> class Map, typename Keys>
void enlist(const std::string& name) {
    const auto add = [&](const char* operation, void (*body)(benchmark::State&)) {
        benchmark::RegisterBenchmark((name + "/" + operation).c_str(), body)
            ->Arg(1000)
            ->Arg(100000)
            ->Arg(1000000)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    };
    add("add", measure<Map, Keys, Operation::add>);
    add("find", measure<Map, Keys, Operation::find>);
    add("miss", measure<Map, Keys, Operation::miss>);
    add("remove", measure<Map, Keys, Operation::remove>);
    add("iterate", measure<Map, Keys, Operation::iterate>);
}

[[maybe_unused]] const bool enlisted = [] {
    enlist<Ours, Integers>("HashMap/integers");
    enlist<Std, Integers>("std::unordered_map/integers");
    enlist<CalledStd, Integers>("std::unordered_map, called/integers");
    enlist<Ours, CalledIntegers>("HashMap/integers with callbacks");
    enlist<Std, CalledIntegers>("std::unordered_map/integers with callbacks");
    enlist<CalledStd, CalledIntegers>("std::unordered_map, called/integers with callbacks");
    enlist<Ours, Strings>("HashMap/strings");
    enlist<Std, Strings>("std::unordered_map/strings");
    enlist<CalledStd, Strings>("std::unordered_map, called/strings");
#ifdef VN_HAVE_GLIB_2_0
    enlist<GLib, Integers>("GHashTable/integers");
    enlist<GLib, CalledIntegers>("GHashTable/integers with callbacks");
    enlist<GLib, Strings>("GHashTable/strings");
#endif
    return true;
}();

}  // namespace
