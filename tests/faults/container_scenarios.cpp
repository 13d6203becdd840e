// Vector, HashMap, queue.
#include <vncommon/vncommon.h>

#include <chrono>
#include <thread>

#include "faults/scenarios.h"

namespace faults {

namespace {

// Grows past the size from where on the unused part of the storage is given back to the system.
void growVector() {
    constexpr uint32_t count = (2u << 20) + 1;
    Vector* vector = vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 1);
    bool inPlace = true;
    inject([&] {
        for (uint32_t i = 0; i < count; ++i) {
            vn_Vector_add(vector, vector + i);
        }
    });
    for (uint32_t i = 0; i < count; ++i) {
        inPlace = inPlace && vn_Vector_get(vector, i) == vector + i;
    }
    CHECK(inPlace);
    bool cleared = true;
    for (uint32_t i = count; i < vector->capacity; ++i) {
        cleared = cleared && vector->data[i] == nullptr;
    }
    CHECK(cleared);
    inject([&] { vn_Vector_clear(vector); });
    CHECK(vn_Vector_empty(vector));
    inject([&] { vn_Vector_dtor(vector); });
}

void useHashMap() {
    HashMap* map = vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 0, 1);
    char key[] = "key";
    inject([&] { vn_HashMap_addQuick(map, key, key); });
    CHECK(inject([&] { return vn_HashMap_findValue(map, "key"); }) == key);
    inject([&] { vn_HashMap_remove(map, "key"); });
    CHECK(vn_HashMap_size(map) == 0);
    inject([&] { vn_HashMap_dtor(map); });
    // Large enough to ask for huge pages, and well without.
    HashMap* large = inject([] {
        return vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 1 << 17, 0);
    });
    vn_HashMap_addQuick(large, key, key);
    CHECK(vn_HashMap_findValue(large, "key") == key);
    vn_HashMap_dtor(large);
}

vn_qtsElement element(uintptr_t number) {
    return {{reinterpret_cast<void*>(number), nullptr, nullptr}};
}

// The element is there all the time, but its unit comes late: the remover has to sleep.
void removeAsleep(vn_qtsQueue* queue, vn_qtsElement* out) {
    CHECK(!vn_Semaphore_trywait(&queue->available));
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        vn_Semaphore_post(&queue->available);
    });
    inject([&] { vn_qtsRemove(queue, out); });
    late.join();
}

// The count is right whatever failed; only elements that were posted can be taken.
void useQueue() {
    vn_threadInit();
    vn_qtsQueue queue;
    memset(&queue, 0xA5, sizeof queue);
    inject([&] { vn_qtsInit(&queue, 0); });
    uint32_t posted = failed("sem_init") ? 0 : 3;
    for (uintptr_t i = 0; i < 3; ++i) {
        const vn_qtsElement one = element(i);
        CHECK(inject([&] { return vn_qtsAdd(&queue, &one); }) == 0);
        posted -= failed("sem_post") && posted > 0;
    }
    const vn_qtsElement more[] = {element(3), element(4), element(5)};
    CHECK(inject([&] { return vn_qtsAddBatch(&queue, more, 3); }) == 0);
    CHECK(inject([&] { return vn_qtsSize(&queue); }) == 6);
    uintptr_t expected = 0;
    vn_qtsElement out;
    for (uint32_t i = 0; i < 6; ++i) {
        if (inject([&] { return vn_qtsRemoveNB(&queue, &out); }) != 0) {
            CHECK(everFailed());
            continue;
        }
        CHECK(out.words[0] == reinterpret_cast<void*>(expected++));
    }
    CHECK(expected == 6 || everFailed());
    const vn_qtsElement last = element(6);
    inject([&] { vn_qtsAdd(&queue, &last); });
    if (!everFailed()) {
        removeAsleep(&queue, &out);
        CHECK(out.words[0] == last.words[0]);
    }
    inject([&] { vn_qtsDestroy(&queue); });
}

}  // namespace

std::vector<Scenario> containerScenarios() {
    return {
        {"vector", growVector, Memory::none, {"madvise"}},
        {"hashMap", useHashMap, Memory::none, {"madvise"}},
        {"queue",
         useQueue,
         Memory::all,
         {"malloc", "pthread_mutex_init", "sem_init", "pthread_mutex_lock", "sem_post",
          "sem_trywait", "sem_wait", "sem_destroy"}},
    };
}

}  // namespace faults
