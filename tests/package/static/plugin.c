/* The archive within a shared object. */
#include <vncommon/vncommon.h>

int plugin(void);

int plugin(void) {
    return vn_numberOfCPUs();
}
