/* Builds the examples of docs/timestamp-text.md, and prints each with the calls that make it. */
#include <stdio.h>
#include <vncommon/failure.h>
#include <vncommon/timestamp_set.h>

static void print(const char* calls, VN_TimestampSet* set) {
    char* text = VN_TimestampSet_toString(set);
    printf("%-56s %s\n", calls, text);
    vn_free(text);
    VN_TimestampSet_dtor(set);
}

#define add(set, stage, time) VN_TimestampSet_addTime(set, stage, time)
#define SHOW(shown, calls)                             \
    do {                                               \
        VN_TimestampSet* set = VN_TimestampSet_ctor(); \
        calls;                                         \
        print(shown, set);                             \
    } while (0)

#define ADD(calls) SHOW(#calls, calls)

int main(void) {
    SHOW("(nothing)", (void)0);
    ADD(add(set, 1, 1700000000.25));
    ADD(add(set, 2, 1700000000.5); add(set, 1, 0.0));
    ADD(add(set, 1, 1.0); add(set, 1, 2.0); add(set, 3, 3.0));
    ADD(add(set, 1, 1.0); add(set, 0x100000001, 2.0));
    print("(a null set)", NULL);
    return 0;
}
