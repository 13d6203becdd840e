#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vncommon/event_reader.h>

static void print_total(const VN_EventWriter* order) {
    int64_t total = 0;
    for (uint32_t i = 0; i < order->values->size; ++i) {
        const VN_EventValue* field = vn_Vector_get(order->values, i);
        if (field->kind == VN_EventKind_Integer) {
            total += (int64_t)(intptr_t)field->payload;
        }
    }
    printf("%s: total %lld\n", order->name, (long long)total);
}

static void print(const char* text) {
    VN_EventReader reader;
    VN_EventReader_init(&reader);
    reader.maxDepth = 4; /* our orders are not nested deeper */
    VN_EventWriter* order = VN_EventReader_read(&reader, text, strlen(text));
    if (order == NULL) {
        printf("%s: %s at byte %zu\n", text, reader.error, reader.position);
        return;
    }
    print_total(order);
    VN_EventWriter_addBoolean(order, 1); /* what was read can be extended and written */
    char* extended = VN_EventWriter_toString(order);
    puts(extended);
    free(extended);
    VN_EventWriter_dtor(order);
}

int main(void) {
    print("Order(\"ACME\",100,200,12.5)");
    print("Order(\"ACME\",100");
    print("Order(\"ACME\" 100)");
    return 0;
}
