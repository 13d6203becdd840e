#include <stdio.h>
#include <vncommon/buffers.h>
#include <vncommon/failure.h>

int main(void) {
    CStringBuffer text;
    vn_strbufInit(&text, 0);
    vn_strbufAppendString(&text, "name=\"");
    vn_strbufAppendStringEscape(&text, "say \"hi\"\n");
    vn_strbufAppendChar(&text, '"');
    vn_strbufAppendFormat(&text, " id=%04d", 42);
    printf("%s (%u)\n", vn_strbufGetString(&text), (unsigned)vn_strbufGetSize(&text));

    vn_strbufTruncate(&text, 4);
    vn_strbufDestroy(&text, 0); /* keeps the block, which is ours now */
    printf("%s\n", text.data);
    vn_free(text.data);

    CByteBuffer bytes;
    vn_bytebufInit(&bytes, 0);
    vn_bytebufAppendString(&bytes, "body");
    vn_bytebufInsertBytesAtStart(&bytes, "\0\4", 2); /* the length in front */
    printf("%u bytes\n", (unsigned)vn_bytebufGetSize(&bytes));
    vn_bytebufDestroy(&bytes, 1);
    return 0;
}
