#include <vncommon/log.h>

int main(void) {
    const uint32_t level = VN_StringToLogLevel("INFO");
    VN_LogSetup(level != 0 ? level : 7, "stdout", 0, 1); /* 0, an unknown word, silences all */
    VN_LogInfo("%s is up", "order book");
    VN_LogDebug("not written at this threshold");
    VN_LogSetLevel(VN_StringToLogLevel("DEBUG"));
    VN_LogDebug("now it is");
    return 0;
}
