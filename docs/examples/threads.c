#include <stdio.h>
#include <vncommon/failure.h>
#include <vncommon/threads.h>

typedef struct Door {
    vn_Mutex mutex;
    vn_Condition opened;
    bool isOpen;
} Door;

static void* openDoor(void* argument) {
    Door* door = argument;
    vn_Mutex_lock(&door->mutex);
    door->isOpen = true;
    vn_Condition_signal(&door->opened);
    vn_Mutex_unlock(&door->mutex);
    return NULL;
}

int main(void) {
    vn_threadInit(); /* once, before conditions, semaphores and threads */

    Door door = {.isOpen = false};
    vn_Mutex_init(&door.mutex);
    vn_Condition_init(&door.opened);
    vn_ThreadId thread = vn_createThread(openDoor, &door, false);

    const uint64_t deadline = vn_systime() + 10000;
    vn_Mutex_lock(&door.mutex);
    while (!door.isOpen && vn_Condition_timedwait(&door.opened, &door.mutex, deadline)) {
    }
    printf("the door is %s\n", door.isOpen ? "open" : "stuck");
    vn_Mutex_unlock(&door.mutex);

    vn_joinThread(thread);
    vn_Condition_destroy(&door.opened);
    vn_Mutex_destroy(&door.mutex);
    printf("counted thread id %u\n", (unsigned)vn_getCountedThreadId());
    return 0;
}
