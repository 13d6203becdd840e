#include <vncommon/vncommon.h>
#include <cstdio>

int main() {
    char text[32];
    std::puts(vn_g_fmt(text, 0.5));
    return 0;
}
