#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <vncommon/strings.h>

static void parse(const char* text) {
    const char* end = text;
    int32_t error;
    const int64_t value = vn_char8ToInt64(text, &end, &error);
    printf("\"%s\": %" PRId64 ", error %d, rest \"%s\"\n", text, value, error, end);
}

int main(void) {
    parse(" -12 lots");
    parse("0xff");
    parse("lots");
    parse("9223372036854775808");

    char hex[9];
    printf("%s\n", vn_uint32ToFixedHexChar8(hex, 48879));

    char line[] = "ACME  \n";
    vn_rtrim(line);
    printf("\"%s\"\n", line);

    char* xml = vn_xmlEscapeString("a < b & \"c\"");
    printf("%s\n", xml);
    free(xml);

    printf("%d %d\n", vn_parseToBool("Yes"), vn_parseToBool("on"));
    return 0;
}
