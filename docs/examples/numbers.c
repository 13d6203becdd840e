#include <stdio.h>
#include <vncommon/numbers.h>

int main(void) {
    char text[64];
    printf("%s\n", vn_g_fmt(text, 0.1));
    printf("%s\n", vn_g_fmt(text, 1234.5));
    printf("%s\n", vn_g_fmt(text, 1e6));
    printf("%s\n", vn_g_fmt_fixed(text, sizeof text, 2, 1234.567));
    printf("%s\n", vn_g_fmt_scientific(text, sizeof text, 3, 1234.567));
    if (vn_g_fmt_fixed(text, 4, 2, 1234.567) == NULL) {
        puts("no room in 4 bytes");
    }

    char* end;
    const double value = vn_strtod("12.5 EUR", &end);
    printf("%s, rest \"%s\"\n", vn_g_fmt(text, value), end);

    char decimal[24];
    vn_dec_to_string(VN_DEC_INFINITY(), decimal);
    printf("%s %d\n", decimal, vn_dec_isfinite(VN_DEC_INFINITY()));
    return 0;
}
