// The ring's sizes, read from the record's fields; its order, compared with std::deque; threads.
#include <vncommon/queue.h>

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <deque>
#include <random>
#include <thread>
#include <vector>

namespace {

vn_qtsElement element(uintptr_t a, uintptr_t b = 0, uintptr_t c = 0) {
    return {{reinterpret_cast<void*>(a), reinterpret_cast<void*>(b), reinterpret_cast<void*>(c)}};
}

uintptr_t word(const vn_qtsElement& e, int i) {
    return reinterpret_cast<uintptr_t>(e.words[i]);
}

struct Queue : vn_qtsQueue {
    explicit Queue(uint32_t maximum = 0) {
        vn_threadInit();
        vn_qtsInit(this, maximum);
    }
    ~Queue() { vn_qtsDestroy(this); }

    int add(uintptr_t value) {
        const vn_qtsElement e = element(value, value * 3, ~value);
        return vn_qtsAdd(this, &e);
    }

    uintptr_t remove() {
        vn_qtsElement e;
        vn_qtsRemove(this, &e);
        EXPECT_EQ(word(e, 1), word(e, 0) * 3);
        EXPECT_EQ(word(e, 2), ~word(e, 0));
        return word(e, 0);
    }
};

int semaphoreValue(Queue& queue) {
    int value = -1;
    sem_getvalue(&queue.available, &value);
    return value;
}

TEST(Queue, StartsWithOneSlot) {
    Queue queue;
    EXPECT_EQ(queue.capacity, 1u);
    EXPECT_EQ(queue.head, 0u);
    EXPECT_EQ(queue.tail, 0u);
    EXPECT_EQ(queue.count, 0u);
    EXPECT_EQ(queue.maxSize, 0u);
    EXPECT_EQ(vn_qtsSize(&queue), 0u);
    EXPECT_EQ(sizeof(vn_qtsElement), 24u);
}

// A queue allocates only its ring, not a slot more.
TEST(Queue, TakesARingOfExactlyItsCapacity) {
    Queue queue;
    for (uintptr_t i = 0; i < 100; ++i) {
        queue.add(i);
        const size_t room = malloc_usable_size(queue.slots) / sizeof(vn_qtsElement);
        ASSERT_GE(room, queue.capacity);
        ASSERT_LE(room, queue.capacity + 1) << "malloc rounds up";
    }
}

TEST(Queue, DoublesOnDemand) {
    Queue queue;
    const std::vector<uint32_t> capacities = {1, 2, 4, 4, 8, 8, 8, 8, 16};
    for (size_t i = 0; i < capacities.size(); ++i) {
        EXPECT_EQ(queue.add(i), 0);
        EXPECT_EQ(queue.capacity, capacities[i]);
        EXPECT_EQ(vn_qtsSize(&queue), i + 1);
        EXPECT_EQ(semaphoreValue(queue), static_cast<int>(i) + 1);
    }
}

TEST(Queue, ReachesAMaximumThatIsNoPowerOfTwo) {
    Queue queue(3);
    EXPECT_EQ(queue.add(1), 0);
    EXPECT_EQ(queue.add(2), 0);
    EXPECT_EQ(queue.add(3), 0);
    EXPECT_EQ(queue.capacity, 3u);
    EXPECT_EQ(queue.add(4), 1);
    EXPECT_EQ(semaphoreValue(queue), 3);
    EXPECT_EQ(queue.remove(), 1u);
    EXPECT_EQ(queue.add(5), 0) << "a queue that was full goes on";
    EXPECT_EQ(queue.add(6), 1);
    EXPECT_EQ(queue.remove(), 2u);
    EXPECT_EQ(queue.remove(), 3u);
    EXPECT_EQ(queue.remove(), 5u);
    EXPECT_EQ(queue.capacity, 1u);
    EXPECT_EQ(queue.add(7), 0);
    EXPECT_EQ(queue.remove(), 7u);
}

TEST(Queue, MaximumOfOne) {
    Queue queue(1);
    EXPECT_EQ(queue.add(1), 0);
    EXPECT_EQ(queue.add(2), 1);
    EXPECT_EQ(queue.remove(), 1u);
    EXPECT_EQ(queue.add(3), 0);
    EXPECT_EQ(queue.remove(), 3u);
}

TEST(Queue, BatchReturnsHowManyDidNotFit) {
    Queue queue(8);
    queue.add(1);
    queue.add(2);
    std::vector<vn_qtsElement> batch;
    for (uintptr_t i = 3; i < 13; ++i) {
        batch.push_back(element(i, i * 3, ~i));
    }
    EXPECT_EQ(vn_qtsAddBatch(&queue, batch.data(), 10), 4u);
    EXPECT_EQ(vn_qtsSize(&queue), 8u);
    EXPECT_EQ(semaphoreValue(queue), 8);
    EXPECT_EQ(vn_qtsAddBatch(&queue, batch.data(), 10), 10u);
    for (uintptr_t i = 1; i <= 8; ++i) {
        EXPECT_EQ(queue.remove(), i);
    }
}

TEST(Queue, EmptyBatchChangesNothing) {
    Queue queue;
    EXPECT_EQ(vn_qtsAddBatch(&queue, nullptr, 0), 0u);
    EXPECT_EQ(vn_qtsSize(&queue), 0u);
    EXPECT_EQ(queue.capacity, 1u);
}

TEST(Queue, BatchGrowsAtOnce) {
    Queue queue;
    std::vector<vn_qtsElement> batch(9, element(1, 3, ~uintptr_t{1}));
    EXPECT_EQ(vn_qtsAddBatch(&queue, batch.data(), 9), 0u);
    EXPECT_EQ(queue.capacity, 16u);
}

// count + n exceeds 32 bits. The queue takes the elements that fit, and nothing wraps around.
TEST(Queue, HugeBatchDoesNotOverflow) {
    Queue queue(4);
    queue.add(1);
    queue.add(2);
    std::vector<vn_qtsElement> batch(2, element(9, 27, ~uintptr_t{9}));
    const uint32_t n = 0xFFFFFFFF;
    EXPECT_EQ(vn_qtsAddBatch(&queue, batch.data(), n), n - 2);
    EXPECT_EQ(vn_qtsSize(&queue), 4u);
}

// One more element could be added but never removed: the semaphore counts no further. Only the
// counts are large; neither call may touch the ring.
TEST(Queue, FullAtTheLargestCountRefuses) {
    for (const uint32_t count : {uint32_t{SEM_VALUE_MAX}, UINT32_MAX}) {
        Queue queue;
        vn_qtsElement* const ring = queue.slots;
        queue.count = queue.capacity = count;
        EXPECT_EQ(queue.add(1), 1);
        const vn_qtsElement batch[3] = {};
        EXPECT_EQ(vn_qtsAddBatch(&queue, batch, 3), 3u);
        EXPECT_EQ(queue.slots, ring);
        EXPECT_EQ(queue.count, count);
        EXPECT_EQ(queue.capacity, count);
        EXPECT_EQ(queue.tail, 0u);
        EXPECT_EQ(semaphoreValue(queue), 0);
    }
}

TEST(Queue, RemoveWithoutBlocking) {
    Queue queue;
    vn_qtsElement out = element(11, 22, 33);
    EXPECT_EQ(vn_qtsRemoveNB(&queue, &out), 1);
    EXPECT_EQ(word(out, 0), 11u);
    EXPECT_EQ(word(out, 1), 22u);
    EXPECT_EQ(word(out, 2), 33u);
    queue.add(5);
    EXPECT_EQ(vn_qtsRemoveNB(&queue, &out), 0);
    EXPECT_EQ(word(out, 0), 5u);
    EXPECT_EQ(vn_qtsRemoveNB(&queue, &out), 1);
}

// Tests only the shrink rule: removes elements from a ring of the given capacity until the given
// count is left.
uint32_t capacityAfterRemovingTo(uint32_t capacity, uint32_t count) {
    Queue queue;
    for (uint32_t i = 0; i < capacity; ++i) {
        queue.add(i);
    }
    EXPECT_EQ(queue.capacity, capacity);
    while (queue.count > count) {
        queue.remove();
    }
    return queue.capacity;
}

TEST(Queue, ShrinksWhenAQuarterIsLeft) {
    EXPECT_EQ(capacityAfterRemovingTo(64, 17), 64u);
    EXPECT_EQ(capacityAfterRemovingTo(64, 16), 32u);
    EXPECT_EQ(capacityAfterRemovingTo(4, 0), 1u);
    EXPECT_EQ(capacityAfterRemovingTo(2, 1), 2u);
    EXPECT_EQ(capacityAfterRemovingTo(2, 0), 1u);
}

// A large ring has few elements, so one removal halves it several times.
TEST(Queue, ShrinksInOneStepByMoreThanHalf) {
    Queue queue;
    for (uint32_t i = 0; i < 4; ++i) {
        queue.add(i);
    }
    auto* ring = static_cast<vn_qtsElement*>(malloc(64 * sizeof(vn_qtsElement)));
    std::copy_n(queue.slots, 4, ring);
    free(queue.slots);
    queue.slots = ring;
    queue.capacity = 64;
    queue.head = 0;
    queue.tail = 4;
    EXPECT_EQ(queue.remove(), 0u);
    EXPECT_EQ(queue.capacity, 4u) << "3 of 64 slots in use leave 4";
    EXPECT_EQ(queue.head, 0u);
    EXPECT_EQ(queue.tail, 3u);
}

TEST(Queue, KeepsOrderAcrossGrowthAndShrinkWhileWrapped) {
    for (const uint32_t maximum : {0u, 1u, 2u, 3u, 5u, 7u, 8u, 33u, 100u}) {
        Queue queue(maximum);
        std::deque<uintptr_t> model;
        std::mt19937 random(maximum + 1);
        uintptr_t value = 0;
        for (int step = 0; step < 20000; ++step) {
            const bool growing = (step / 500) % 2 == 0;
            const auto dice = static_cast<uint32_t>(random() % 10);
            if (dice < (growing ? 6u : 3u)) {
                const bool full = maximum != 0 && model.size() == maximum;
                ASSERT_EQ(queue.add(value), full ? 1 : 0);
                if (!full) {
                    model.push_back(value);
                }
                ++value;
            } else if (dice == 9) {
                std::vector<vn_qtsElement> batch;
                const auto n = static_cast<uint32_t>(random() % 9);
                for (uint32_t i = 0; i < n; ++i, ++value) {
                    batch.push_back(element(value, value * 3, ~value));
                }
                const size_t room = maximum == 0 ? n : maximum - model.size();
                const size_t fits = std::min<size_t>(n, room);
                ASSERT_EQ(vn_qtsAddBatch(&queue, batch.data(), n), n - fits);
                for (size_t i = 0; i < fits; ++i) {
                    model.push_back(word(batch[i], 0));
                }
            } else if (!model.empty()) {
                ASSERT_EQ(queue.remove(), model.front());
                model.pop_front();
            } else {
                vn_qtsElement out;
                ASSERT_EQ(vn_qtsRemoveNB(&queue, &out), 1);
            }
            ASSERT_EQ(queue.count, model.size());
            ASSERT_EQ(queue.tail, (queue.head + queue.count) % queue.capacity);
            ASSERT_LE(queue.count, queue.capacity);
            if (maximum != 0) {
                ASSERT_LE(queue.capacity, maximum);
            }
        }
    }
}

// An element is present, or arrives while the thread waits or sleeps.
TEST(Queue, RemoveLeavesErrnoAlone) {
    Queue queue;
    queue.add(1);
    errno = ERANGE;
    EXPECT_EQ(queue.remove(), 1u);
    EXPECT_EQ(errno, ERANGE);
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        queue.add(2);
    });
    errno = ERANGE;
    EXPECT_EQ(queue.remove(), 2u);
    EXPECT_EQ(errno, ERANGE);
    late.join();
}

TEST(Queue, RemoveBlocksUntilSomethingArrives) {
    Queue queue;
    std::atomic<bool> removed{false};
    std::thread consumer([&] {
        EXPECT_EQ(queue.remove(), 42u);
        removed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(removed);
    queue.add(42);
    consumer.join();
    EXPECT_TRUE(removed);
}

constexpr uintptr_t endOfStream = ~uintptr_t{0} / 4;

// Producers add (producer, sequence) pairs, alternately as single elements and batches. They retry
// while the queue is full.
void produce(Queue& queue, uintptr_t producer, uintptr_t total) {
    std::vector<vn_qtsElement> batch;
    uintptr_t sequence = 0;
    while (sequence < total) {
        const uintptr_t n = std::min<uintptr_t>(1 + sequence % 7, total - sequence);
        batch.clear();
        for (uintptr_t i = 0; i < n; ++i) {
            batch.push_back(element(producer, sequence + i));
        }
        sequence += n;
        if (n == 1) {
            while (vn_qtsAdd(&queue, batch.data()) != 0) {
                std::this_thread::yield();
            }
            continue;
        }
        const vn_qtsElement* from = batch.data();
        for (uint32_t left = static_cast<uint32_t>(n); left > 0;) {
            const uint32_t refused = vn_qtsAddBatch(&queue, from, left);
            from += left - refused;
            left = refused;
            if (left > 0) {
                std::this_thread::yield();
            }
        }
    }
}

struct Seen {
    uintptr_t producer;
    uintptr_t sequence;
};

void consume(Queue& queue, std::vector<Seen>& seen, bool blocking) {
    for (;;) {
        vn_qtsElement out;
        if (blocking) {
            vn_qtsRemove(&queue, &out);
        } else if (vn_qtsRemoveNB(&queue, &out) != 0) {
            std::this_thread::yield();
            continue;
        }
        if (word(out, 0) == endOfStream) {
            return;
        }
        seen.push_back({word(out, 0), word(out, 1)});
    }
}

void runThreads(uint32_t maximum, uintptr_t perProducer) {
    constexpr int threads = 4;
    Queue queue(maximum);
    std::vector<std::vector<Seen>> seen(threads);
    std::vector<std::thread> consumers;
    std::vector<std::thread> producers;
    for (int i = 0; i < threads; ++i) {
        consumers.emplace_back(consume, std::ref(queue), std::ref(seen[static_cast<size_t>(i)]),
                               i % 2 == 0);
        producers.emplace_back(produce, std::ref(queue), static_cast<uintptr_t>(i), perProducer);
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    for (int i = 0; i < threads; ++i) {
        const vn_qtsElement end = element(endOfStream);
        while (vn_qtsAdd(&queue, &end) != 0) {
            std::this_thread::yield();
        }
    }
    for (std::thread& consumer : consumers) {
        consumer.join();
    }

    // Each consumer sees each producer's elements in order; together they saw each exactly once.
    std::vector<std::vector<int>> times(threads, std::vector<int>(perProducer, 0));
    for (const std::vector<Seen>& one : seen) {
        std::vector<uintptr_t> expected(threads, 0);
        for (const Seen& s : one) {
            ASSERT_GE(s.sequence, expected[s.producer]);
            expected[s.producer] = s.sequence + 1;
            ++times[s.producer][s.sequence];
        }
    }
    for (const std::vector<int>& producer : times) {
        ASSERT_EQ(std::count(producer.begin(), producer.end(), 1),
                  static_cast<std::ptrdiff_t>(perProducer));
    }
    EXPECT_EQ(vn_qtsSize(&queue), 0u);
}

TEST(Queue, FourProducersAndFourConsumers) {
    for (const uint32_t maximum : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 16u, 100u}) {
        runThreads(maximum, 10000);
    }
}

}  // namespace
