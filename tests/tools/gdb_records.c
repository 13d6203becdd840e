/* Records of every kind for gdb to show; gdb_printers_test.py stops in lookAtThem. */
#include <string.h>
#include <vncommon/vncommon.h>

/* Called for gdb alone. */
__attribute__((noinline)) void lookAtThem(void) {
    __asm__ volatile("");
}

static VN_EventWriter* makeEvent(void) {
    VN_EventWriter* list = VN_EventWriter_ctor(VN_EventKind_Sequence, NULL);
    VN_EventWriter_addInt(list, -7);
    VN_EventWriter_addChar(list, 'c');
    VN_EventWriter_addBoolean(list, 1);
    VN_EventWriter* map = VN_EventWriter_ctor(VN_EventKind_Dictionary, NULL);
    VN_EventWriter_addDictValue(map, VN_EventKind_String, "key", VN_EventKind_Decimal,
                                (void*)0x31A000000000000FuL); /* +15E-1 */
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
    VN_EventWriter_addString(event, "AC\"ME");
    VN_EventWriter_addFloat(event, 12.5);
    VN_EventWriter_addFloat(event, -0.25);
    VN_EventWriter_addFloat(event, 100.0);
    VN_EventWriter_addRefValue(event, list);
    VN_EventWriter_addRefValue(event, map);
    VN_EventWriter_addUnformatted(event, "as it stands");
    VN_EventWriter_addAny(event, VN_EventKind_Integer, VN_EventPayload_ofInt(5), NULL);
    VN_EventWriter_addOptional(event, VN_EventKind_Wrapper, NULL);
    return event;
}

static VN_EventWriter* makeDeepEvent(void) {
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Sequence, NULL);
    for (int i = 0; i < 1000; ++i) {
        VN_EventWriter* outer = VN_EventWriter_ctor(VN_EventKind_Sequence, NULL);
        VN_EventWriter_addRefValue(outer, event);
        event = outer;
    }
    return event;
}

static void fillQueue(vn_qtsQueue* queue) {
    vn_qtsInit(queue, 8);
    for (long i = 0; i < 5; ++i) {
        const vn_qtsElement element = {{(void*)(i * 16), (void*)1, NULL}};
        vn_qtsElement taken;
        vn_qtsAdd(queue, &element);
        if (i < 2) {
            vn_qtsRemove(queue, &taken);
        }
    }
}

static VN_TimestampSet* makeStamps(void) {
    VN_TimestampSet* stamps = VN_TimestampSet_ctor();
    VN_TimestampSet_addTime(stamps, 1, 1700000000.25);
    VN_TimestampSet_addTime(stamps, 2, 1700000000.5);
    VN_TimestampSet_addTime(stamps, 1, 1700000001.0);
    return stamps;
}

/* What a record holds that nobody has initialised: zeroes, or anything. */
struct Records {
    Vector vector;
    HashMap map;
    CStringBuffer text;
    CByteBuffer bytes;
    vn_qtsQueue queue;
    VN_TimestampSet stamps;
    VN_EventWriter event;
} zeroed, garbage, lengthOnly;

/* Not ours: another record of a name that we use. */
struct Another {
    struct {
        int size;
    } Vector;
};

int main(void) {
    vn_threadInit();
    struct Another another = {{3}};
    Vector vector;
    vn_Vector_init(&vector, NULL, NULL, NULL, 4, 0);
    Vector* empty = vn_Vector_ctor(NULL, NULL, NULL, 0, 0);
    vn_Vector_add(&vector, (void*)16);
    vn_Vector_add(&vector, (void*)32);
    HashMap* words = vn_HashMap_ctor(vn_String_hash, vn_String_compare, NULL, NULL, 16, 0);
    vn_HashMap_addQuick(words, "one", (void*)1);
    vn_HashMap_addQuick(words, "two", (void*)2);
    HashMap* numbers = vn_HashMap_ctor(NULL, NULL, NULL, NULL, 16, 0);
    vn_HashMap_addQuick(numbers, (void*)0x77, (void*)0x78);
    CStringBuffer text;
    vn_strbufInit(&text, 0);
    vn_strbufAppendString(&text, "some \"text\"");
    CStringBuffer beyond; /* the size is beyond the text */
    vn_strbufInit(&beyond, 0);
    vn_strbufAppendString(&beyond, "abc");
    beyond.size = 1000000;
    CByteBuffer bytes;
    vn_bytebufInit(&bytes, 0);
    vn_bytebufAppendBytes(&bytes, (const uint8_t*)"\0\xff\x10", 3);
    vn_qtsQueue queue;
    fillQueue(&queue);
    VN_TimestampSet* stamps = makeStamps();
    VN_EventWriter* event = makeEvent();
    VN_EventWriter* deep = makeDeepEvent();
    memset(&garbage, 0x5a, sizeof garbage);
    lengthOnly.vector.size = lengthOnly.vector.capacity = 3;
    lengthOnly.vector.data = (void**)8;
    lengthOnly.text.size = 5;
    lengthOnly.text.capacity = 20;
    lengthOnly.text.data = (char*)8;
    lengthOnly.bytes.size = lengthOnly.bytes.capacity = 5;
    lengthOnly.bytes.data = (uint8_t*)8;
    lengthOnly.stamps.entries = &lengthOnly.vector;
    lengthOnly.event.kind = VN_EventKind_Event;
    lengthOnly.event.values = &lengthOnly.vector;
    lookAtThem();
    return another.Vector.size == 3 && empty && stamps && event && deep && words && numbers ? 0 : 1;
}
