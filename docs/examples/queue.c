#include <stdio.h>
#include <vncommon/queue.h>

static void* produce(void* argument) {
    static int orders[3] = {10, 20, 30};
    for (int i = 0; i < 3; ++i) {
        const vn_qtsElement order = {{&orders[i], NULL, NULL}};
        if (vn_qtsAdd(argument, &order) != 0) {
            puts("the queue is full");
        }
    }
    return NULL;
}

int main(void) {
    vn_threadInit();
    vn_qtsQueue queue;
    vn_qtsInit(&queue, 1000); /* never more than 1000 elements */
    vn_ThreadId producer = vn_createThread(produce, &queue, false);

    vn_qtsElement order;
    for (int i = 0; i < 3; ++i) {
        vn_qtsRemove(&queue, &order); /* waits for one */
        printf("order %d\n", *(const int*)order.words[0]);
    }
    if (vn_qtsRemoveNB(&queue, &order) == 1) { /* does not wait */
        puts("nothing left");
    }
    vn_joinThread(producer);
    vn_qtsDestroy(&queue);
    return 0;
}
