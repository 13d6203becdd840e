// Vector compared with GPtrArray, apr_array and a std::vector<void*> in another shared library:
// filling, reading in scattered order, and emptying by swap-remove, with 1e3 to 1e7 elements. Times
// are per element (items_per_second): equal times mean that the cost does not grow with the size.
//
// GLib and APR read elements through macros on the public record. "Fields" is our counterpart,
// data[index]; "Get" is the exported, bounds-checked call.
#include <benchmark/benchmark.h>
#include <vncommon/vector.h>

#include <ctime>

#include "peer_vector.h"

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif
#ifdef VN_HAVE_APR_1
#include <apr_general.h>
#include <apr_tables.h>
#endif

namespace {

void* element(uint32_t i) {
    return reinterpret_cast<void*>(uintptr_t{i} + 1);
}

// Visits indices in a scattered order that is cheap to compute.
struct Scattered {
    uint32_t below(uint32_t limit) {
        state = state * 1664525u + 1013904223u;
        return static_cast<uint32_t>((uint64_t{state} * limit) >> 32);
    }
    uint32_t state = 1;
};

struct Ours {
    Vector* vector = vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 0);
    ~Ours() { vn_Vector_dtor(vector); }
    void add(void* item) { vn_Vector_add(vector, item); }
    void* get(uint32_t index) const { return vn_Vector_get(vector, index); }
    void* remove(uint32_t index) { return vn_Vector_remove(vector, index); }
};

// Reads the record's fields, like the peers' macros.
struct Fields : Ours {
    void* get(uint32_t index) const { return vector->data[index]; }
};

struct Shrinking {
    Vector* vector = vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 1);
    ~Shrinking() { vn_Vector_dtor(vector); }
    void add(void* item) { vn_Vector_add(vector, item); }
    void* remove(uint32_t index) { return vn_Vector_remove(vector, index); }
};

struct StdBehindCall {
    PeerVector* vector = peer_vector_new();
    ~StdBehindCall() { peer_vector_delete(vector); }
    void add(void* item) { peer_vector_add(vector, item); }
    void* get(uint32_t index) const { return peer_vector_get(vector, index); }
    void* remove(uint32_t index) { return peer_vector_remove(vector, index); }
};

#ifdef VN_HAVE_GLIB_2_0
struct Glib {
    GPtrArray* array = g_ptr_array_new();
    ~Glib() { g_ptr_array_free(array, TRUE); }
    void add(void* item) { g_ptr_array_add(array, item); }
    void* get(uint32_t index) const { return g_ptr_array_index(array, index); }
    void* remove(uint32_t index) { return g_ptr_array_remove_index_fast(array, index); }
};
#endif

#ifdef VN_HAVE_APR_1
struct Apr {
    Apr() {
        static apr_status_t started = apr_initialize();
        benchmark::DoNotOptimize(started);
        // Uses a separate allocator, which frees its memory as the other containers do. The global
        // one would keep it for the next round.
        apr_pool_create_unmanaged_ex(&pool, nullptr, nullptr);
        array = apr_array_make(pool, 1, sizeof(void*));
    }
    ~Apr() { apr_pool_destroy(pool); }
    void add(void* item) { *static_cast<void**>(apr_array_push(array)) = item; }
    void* get(uint32_t index) const { return reinterpret_cast<void**>(array->elts)[index]; }
    void* remove(uint32_t index) {
        void* item = get(index);
        void** last = static_cast<void**>(apr_array_pop(array));
        reinterpret_cast<void**>(array->elts)[index] = *last;
        return item;
    }
    apr_pool_t* pool = nullptr;
    apr_array_header_t* array = nullptr;
};
#endif

template <typename Container>
void fill(Container& container, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        container.add(element(i));
    }
}

template <typename Container>
void add(benchmark::State& state) {
    const auto count = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        Container container;
        fill(container, count);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <typename Container>
void get(benchmark::State& state) {
    const auto count = static_cast<uint32_t>(state.range(0));
    Container container;
    fill(container, count);
    for (auto _ : state) {
        Scattered index;
        uintptr_t sum = 0;
        for (uint32_t i = 0; i < count; ++i) {
            sum += reinterpret_cast<uintptr_t>(container.get(index.below(count)));
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

// This thread's processor time in seconds; the wall clock would include other work of the machine.
double processorTime() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Only the removals are timed.
template <typename Container>
void swapRemove(benchmark::State& state) {
    const auto count = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        Container container;
        fill(container, count);
        Scattered index;
        const double start = processorTime();
        for (uint32_t left = count; left > 0; --left) {
            benchmark::DoNotOptimize(container.remove(index.below(left)));
        }
        state.SetIterationTime(processorTime() - start);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void sizes(benchmark::internal::Benchmark* b) {
    b->RangeMultiplier(10)->Range(1000, 10'000'000);
}

void timedSizes(benchmark::internal::Benchmark* b) {
    b->RangeMultiplier(10)->Range(1000, 10'000'000)->UseManualTime();
}

#define VN_VECTOR_BENCHMARKS(container)               \
    BENCHMARK_TEMPLATE(add, container)->Apply(sizes); \
    BENCHMARK_TEMPLATE(get, container)->Apply(sizes); \
    BENCHMARK_TEMPLATE(swapRemove, container)->Apply(timedSizes)

VN_VECTOR_BENCHMARKS(Ours);
BENCHMARK_TEMPLATE(get, Fields)->Apply(sizes);
BENCHMARK_TEMPLATE(swapRemove, Shrinking)->Apply(timedSizes);
VN_VECTOR_BENCHMARKS(StdBehindCall);
#ifdef VN_HAVE_GLIB_2_0
VN_VECTOR_BENCHMARKS(Glib);
#endif
#ifdef VN_HAVE_APR_1
VN_VECTOR_BENCHMARKS(Apr);
#endif

}  // namespace
