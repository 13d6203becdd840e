#include <stdio.h>
#include <string.h>
#include <vncommon/version.h>

#if !VN_VERSION_AT_LEAST(1, 1, 0)
#error "this program needs libvncommon 1.1 or later"
#endif

int main(void) {
    if (strcmp(vn_version(), VN_VERSION_STRING) == 0) {
        puts("the library is the one that we were compiled with");
    } else {
        printf("compiled with %s, running with %s\n", VN_VERSION_STRING, vn_version());
    }
    return 0;
}
