/* A shared object that contains the static library. */
#include <vncommon/vncommon.h>

int plugin(void);

int plugin(void) {
    return vn_numberOfCPUs();
}
