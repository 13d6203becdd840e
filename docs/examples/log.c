#include <vncommon/log.h>

int main(void) {
    VN_LogSetup(VN_StringToLogLevel("INFO"), "stdout", 0, 1);
    VN_LogInfo("%s is up", "order book");
    VN_LogDebug("not written at this threshold");
    VN_LogSetLevel(VN_StringToLogLevel("DEBUG"));
    VN_LogDebug("now it is");
    return 0;
}
