#include "task_queue.h"

#include <vncommon/failure.h>

#include "stages.h"

TaskQueue::TaskQueue(uint32_t capacity) {
    vn_qtsInit(&queue_, capacity);
    vn_Semaphore_init(&room_, capacity);
}

TaskQueue::~TaskQueue() {
    vn_Semaphore_destroy(&room_);
    vn_qtsDestroy(&queue_);
}

void TaskQueue::put(const Task& task) {
    vn_Semaphore_wait(&room_);
    if (task.stamps != nullptr) {
        task.stamps->functions->addNow(task.stamps, Admitted);
    }
    const vn_qtsElement element = {{task.connection, task.request, task.stamps}};
    vn_checkError(vn_qtsAdd(&queue_, &element), "the semaphore and the queue count differently");
}

Task TaskQueue::take() {
    vn_qtsElement element;
    vn_qtsRemove(&queue_, &element);
    vn_Semaphore_post(&room_);
    return {static_cast<Connection*>(element.words[0]), static_cast<Request*>(element.words[1]),
            static_cast<VN_TimestampSet*>(element.words[2])};
}
