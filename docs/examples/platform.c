#include <stdio.h>
#include <vncommon/platform.h>

int main(void) {
    /* both texts belong to the library */
    printf("processor: %s\n", vn_getCPUDetails());
    printf("system: %s\n", vn_getFullPlatformName());
    return 0;
}
