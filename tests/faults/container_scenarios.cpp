// The queue. Vector and HashMap make no call whose failure they check.
#include <vncommon/vncommon.h>

#include <thread>

#include "faults/scenarios.h"

namespace faults {

namespace {

vn_qtsElement element(uintptr_t number) {
    return {{reinterpret_cast<void*>(number), nullptr, nullptr}};
}

// The element is present, but its semaphore unit comes only when the remover waits for it.
void removeAsleep(vn_qtsQueue* queue, vn_qtsElement* out) {
    CHECK(!vn_Semaphore_trywait(&queue->available));
    std::thread late([&] {
        while (!hasWaited()) {
            std::this_thread::yield();
        }
        vn_Semaphore_post(&queue->available);
    });
    inject([&] { vn_qtsRemove(queue, out); });
    late.join();
}

// The count is right after any failure; only posted elements can be removed.
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
        {"queue",
         useQueue,
         Memory::all,
         {"malloc", "pthread_mutex_init", "sem_init", "pthread_mutex_trylock", "sem_post",
          "sem_trywait", "sem_wait", "sem_destroy"}},
    };
}

}  // namespace faults
