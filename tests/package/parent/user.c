#include <stdio.h>
#include <vncommon/vncommon.h>

int main(void) {
    char text[32];
    puts(vn_g_fmt(text, 0.5));
    return 0;
}
