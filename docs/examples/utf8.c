#include <stdio.h>
#include <stdlib.h>
#include <vncommon/utf8.h>

int main(void) {
    const char* city = "Gyo\xCC\x8Br"; /* o and a combining accent */
    printf("valid %d, %d characters\n", vn_isUTF8(city), vn_UTF8Length(city));
    printf("cut inside a character: valid %d\n", vn_isUTF8("Gy\xC5"));

    /* the same letters, composed and in capitals */
    printf("compares as %d\n", vn_UTF8CaseCmp(city, "GY\xC5\x90R"));

    uint16_t* units = vn_getUTF16(city);
    printf("%u units of UTF-16\n", vn_codeUnitsUTF16(units));
    char* back = vn_getUTF8(units);
    printf("%s\n", back);
    free(back);
    free(units);

    const char* text = "\xC2\xA0 ACME \xE3\x80\x80"; /* with a no-break and an ideographic space */
    const char* start = vn_skipSpacesUTF8(text);
    printf("[%.*s]\n", (int)(vn_rTrimUTF8(start) - start), start);
    return 0;
}
