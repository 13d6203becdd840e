#include <stdio.h>
#include <vncommon/failure.h>

static void sayGoodbye(void) {
    puts("releasing the lock file");
}

int main(void) {
    vn_setOutOfMemoryCallBack(sayGoodbye); /* called once, should memory run out */

    char* name = vn_strdup("order book"); /* never null: without memory the process ends */
    printf("%s\n", name);
    vn_free(name);

    char message[1024];
    vn_strerror(message, sizeof message, 2);
    printf("error 2: %s\n", message);

    vn_checkError(0, "nothing has failed"); /* 0 does nothing, any other code aborts */
    return 0;
}
