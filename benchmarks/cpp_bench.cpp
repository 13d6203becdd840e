// vncommon.hpp compared with the C calls that it makes. The same work must take the same time.
#include <benchmark/benchmark.h>
#include <vncommon/vncommon.hpp>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

constexpr uint32_t elements = 10000;
constexpr uint32_t mapSize = 32768;  // a power of two, which vn::hash_map would make of any size

void* word(uint64_t value) {
    void* result;
    memcpy(&result, &value, sizeof result);
    return result;
}

uint64_t value(const void* word) {
    uint64_t result;
    memcpy(&result, &word, sizeof result);
    return result;
}

// ---- Vector: fill and sum ----

void vectorC(benchmark::State& state) {
    for (auto _ : state) {
        Vector* vector = vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 0);
        for (uint64_t i = 0; i < elements; ++i) {
            vn_Vector_add(vector, word(i));
        }
        uint64_t sum = 0;
        for (uint32_t i = 0; i < vector->size; ++i) {
            sum += value(vector->data[i]);
        }
        benchmark::DoNotOptimize(sum);
        vn_Vector_dtor(vector);
    }
}
BENCHMARK(vectorC);

void vectorCpp(benchmark::State& state) {
    for (auto _ : state) {
        vn::vector<uint64_t> vector;
        for (uint64_t i = 0; i < elements; ++i) {
            vector.push_back(i);
        }
        uint64_t sum = 0;
        for (const uint64_t element : vector) {
            sum += element;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(vectorCpp);

// ---- HashMap: find every key ----

void mapC(benchmark::State& state) {
    HashMap* map = vn_HashMap_ctor(nullptr, nullptr, nullptr, nullptr, mapSize, 0);
    for (uint64_t i = 1; i <= elements; ++i) {
        vn_HashMap_addQuick(map, word(i), word(i));
    }
    for (auto _ : state) {
        uint64_t sum = 0;
        for (uint64_t i = 1; i <= elements; ++i) {
            sum += value(vn_HashMap_findValue(map, word(i)));
        }
        benchmark::DoNotOptimize(sum);
    }
    vn_HashMap_dtor(map);
}
BENCHMARK(mapC);

void mapCpp(benchmark::State& state) {
    vn::hash_map<uint64_t, uint64_t> map(mapSize);
    for (uint64_t i = 1; i <= elements; ++i) {
        map.add(i, i);
    }
    for (auto _ : state) {
        uint64_t sum = 0;
        for (uint64_t i = 1; i <= elements; ++i) {
            sum += map.value(i);
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(mapCpp);

void mapOptional(benchmark::State& state) {
    vn::hash_map<uint64_t, uint64_t> map(mapSize);
    for (uint64_t i = 1; i <= elements; ++i) {
        map.add(i, i);
    }
    for (auto _ : state) {
        uint64_t sum = 0;
        for (uint64_t i = 1; i <= elements; ++i) {
            sum += *map.find(i);
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(mapOptional);

// ---- Queue: one element in and out ----

struct Trade {
    uint64_t id;
    double price;
    uint64_t size;
};

void queueC(benchmark::State& state) {
    vn_threadInit();
    vn_qtsQueue queue;
    vn_qtsInit(&queue, 0);
    Trade trade = {1, 0.5, 2};
    for (auto _ : state) {
        vn_qtsElement element;
        memcpy(&element, &trade, sizeof element);
        vn_qtsAdd(&queue, &element);
        vn_qtsRemove(&queue, &element);
        memcpy(&trade, &element, sizeof element);
        benchmark::DoNotOptimize(trade);
    }
    vn_qtsDestroy(&queue);
}
BENCHMARK(queueC);

void queueCpp(benchmark::State& state) {
    vn::queue<Trade> queue;
    Trade trade = {1, 0.5, 2};
    for (auto _ : state) {
        queue.push(trade);
        trade = queue.pop();
        benchmark::DoNotOptimize(trade);
    }
}
BENCHMARK(queueCpp);

// ---- Events: build, write as text, end ----

void eventC(benchmark::State& state) {
    for (auto _ : state) {
        VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
        VN_EventWriter_addString(event, "ACME");
        VN_EventWriter_addInt(event, 100);
        VN_EventWriter_addFloat(event, 12.5);
        VN_EventWriter_addBoolean(event, 1);
        char* text = VN_EventWriter_toString(event);
        benchmark::DoNotOptimize(text);
        vn_free(text);
        VN_EventWriter_dtor(event);
    }
}
BENCHMARK(eventC);

void eventCpp(benchmark::State& state) {
    for (auto _ : state) {
        const vn::string text = vn::event("Tick").add("ACME").add(100).add(12.5).add(true).text();
        benchmark::DoNotOptimize(text.c_str());
    }
}
BENCHMARK(eventCpp);

// ---- Timestamp sets: make, two stamps, end ----

void stampsC(benchmark::State& state) {
    for (auto _ : state) {
        VN_TimestampSet* set = VN_TimestampSet_ctor();
        VN_TimestampSet_addTime(set, 1, 0.5);
        VN_TimestampSet_addTime(set, 2, 0.75);
        benchmark::DoNotOptimize(VN_TimestampSet_findTime(set, 2));
        VN_TimestampSet_dtor(set);
    }
}
BENCHMARK(stampsC);

void stampsCpp(benchmark::State& state) {
    for (auto _ : state) {
        vn::stamps stamps;
        stamps.add(1, 0.5);
        stamps.add(2, 0.75);
        benchmark::DoNotOptimize(stamps.find(2));
    }
}
BENCHMARK(stampsCpp);

// ---- String buffer: 1000 pieces ----

constexpr int pieces = 1000;

void bufferC(benchmark::State& state) {
    for (auto _ : state) {
        CStringBuffer buffer;
        vn_strbufInit(&buffer, 0);
        for (int i = 0; i < pieces; ++i) {
            vn_strbufAppendString(&buffer, "piece");
            vn_strbufAppendChar(&buffer, ',');
        }
        benchmark::DoNotOptimize(buffer.data);
        vn_strbufDestroy(&buffer, 1);
    }
}
BENCHMARK(bufferC);

void bufferCpp(benchmark::State& state) {
    for (auto _ : state) {
        vn::string_buffer buffer;
        for (int i = 0; i < pieces; ++i) {
            buffer.append("piece").append(',');
        }
        benchmark::DoNotOptimize(buffer.c_str());
    }
}
BENCHMARK(bufferCpp);

// ---- Mutex; a log line below the threshold ----

void mutexC(benchmark::State& state) {
    vn_Mutex mutex;
    vn_Mutex_init(&mutex);
    for (auto _ : state) {
        vn_Mutex_lock(&mutex);
        vn_Mutex_unlock(&mutex);
    }
    vn_Mutex_destroy(&mutex);
}
BENCHMARK(mutexC);

void mutexCpp(benchmark::State& state) {
    vn::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(mutexCpp);

void suppressedLineC(benchmark::State& state) {
    for (auto _ : state) {
        VN_LogTrace("%d", 1);
    }
}
BENCHMARK(suppressedLineC);

void suppressedLineCpp(benchmark::State& state) {
    for (auto _ : state) {
        vn::log_trace("%d", 1);
    }
}
BENCHMARK(suppressedLineCpp);

}  // namespace
