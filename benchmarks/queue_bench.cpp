// The queue compared with GAsyncQueue, with std::queue under a mutex and a condition variable, and
// with the same ring using a bare pthread mutex and semaphore.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <queue>

#include <vncommon/queue.h>
#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

using Item = vn_qtsElement;

struct Ours {
    Ours() {
        vn_threadInit();
        vn_qtsInit(&queue, 0);
    }
    ~Ours() { vn_qtsDestroy(&queue); }
    void add(const Item& item) { vn_qtsAdd(&queue, &item); }
    void remove(Item& item) { vn_qtsRemove(&queue, &item); }
    vn_qtsQueue queue;
};

// The least cost: a fixed ring with the bare primitives.
struct RawRing {
    static constexpr uint32_t size = 1 << 16;
    RawRing() : slots(new Item[size]) { sem_init(&available, 0, 0); }
    ~RawRing() {
        sem_destroy(&available);
        delete[] slots;
    }
    void add(const Item& item) {
        pthread_mutex_lock(&lock);
        slots[tail] = item;
        tail = (tail + 1) % size;
        pthread_mutex_unlock(&lock);
        sem_post(&available);
    }
    void remove(Item& item) {
        sem_wait(&available);
        pthread_mutex_lock(&lock);
        item = slots[head];
        head = (head + 1) % size;
        pthread_mutex_unlock(&lock);
    }
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    sem_t available;
    uint32_t head = 0;
    uint32_t tail = 0;
    Item* slots;
};

struct StdQueue {
    void add(const Item& item) {
        {
            const std::lock_guard<std::mutex> guard(lock);
            items.push(item);
        }
        available.notify_one();
    }
    void remove(Item& item) {
        std::unique_lock<std::mutex> guard(lock);
        available.wait(guard, [&] { return !items.empty(); });
        item = items.front();
        items.pop();
    }
    std::mutex lock;
    std::condition_variable available;
    std::queue<Item> items;
};

#ifdef VN_HAVE_GLIB_2_0
// GAsyncQueue holds pointers, so each 24-byte item needs its own heap block.
struct GLibQueue {
    ~GLibQueue() { g_async_queue_unref(queue); }
    void add(const Item& item) {
        Item* copy = static_cast<Item*>(malloc(sizeof(Item)));
        *copy = item;
        g_async_queue_push(queue, copy);
    }
    void remove(Item& item) {
        Item* copy = static_cast<Item*>(g_async_queue_pop(queue));
        item = *copy;
        free(copy);
    }
    GAsyncQueue* queue = g_async_queue_new();
};
#endif

// One thread: a queue that holds 1000 items; each iteration adds one and removes one.
template <typename Queue>
void uncontended(benchmark::State& state) {
    Queue queue;
    Item item{};
    for (int i = 0; i < 1000; ++i) {
        queue.add(item);
    }
    for (auto _ : state) {
        queue.add(item);
        queue.remove(item);
        benchmark::DoNotOptimize(item);
    }
    state.SetItemsProcessed(state.iterations());
}

// Pins the calling thread to one processor during the object's life: the n-th that the process may
// use, modulo their number.
class OnProcessor {
  public:
    explicit OnProcessor(int n) {
        sched_getaffinity(0, sizeof allowed, &allowed);
        n %= CPU_COUNT(&allowed);
        int processor = 0;
        while (!CPU_ISSET(processor, &allowed) || n-- > 0) {
            ++processor;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OnProcessor() { sched_setaffinity(0, sizeof allowed, &allowed); }
    OnProcessor(const OnProcessor&) = delete;
    OnProcessor& operator=(const OnProcessor&) = delete;

  private:
    cpu_set_t allowed;
};

// Even threads add, odd ones remove the same number. With two processors the producers get one and
// the consumers the other. Without pinning the kernel puts both on one processor in some runs,
// which changes the times of every queue by a factor.
template <typename Queue>
void contended(benchmark::State& state) {
    static Queue queue;
    Item item{};
    const bool producer = state.thread_index() % 2 == 0;
    const OnProcessor pinned(state.thread_index());
    for (auto _ : state) {
        if (producer) {
            queue.add(item);
        } else {
            queue.remove(item);
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_TEMPLATE(uncontended, Ours);
BENCHMARK_TEMPLATE(uncontended, RawRing);
BENCHMARK_TEMPLATE(uncontended, StdQueue);
BENCHMARK_TEMPLATE(contended, Ours)->Threads(2)->Threads(4)->Iterations(1000000)->UseRealTime();
BENCHMARK_TEMPLATE(contended, StdQueue)->Threads(2)->Threads(4)->Iterations(1000000)->UseRealTime();
#ifdef VN_HAVE_GLIB_2_0
BENCHMARK_TEMPLATE(uncontended, GLibQueue);
BENCHMARK_TEMPLATE(contended, GLibQueue)
    ->Threads(2)
    ->Threads(4)
    ->Iterations(1000000)
    ->UseRealTime();
#endif

}  // namespace
