// The version of the library that is loaded.
#include <vncommon/version.h>

const char* vn_version(void) {
    return VN_VERSION_STRING;
}
