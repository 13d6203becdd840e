// Records of every kind for gdb to show; gdb_printers_test.py stops in lookAtThem.
#include <vncommon/vncommon.h>

#include <cstring>

// Empty: gdb sets a breakpoint here.
extern "C" [[gnu::noinline]] void lookAtThem() {
    asm volatile("");
}

namespace {

void* word(uint64_t value) {
    return reinterpret_cast<void*>(value);
}

void* text(const char* literal) {
    return const_cast<char*>(literal);
}

VN_EventWriter* makeEvent() {
    VN_EventWriter* list = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    VN_EventWriter_addInt(list, -7);
    VN_EventWriter_addChar(list, 'c');
    VN_EventWriter_addBoolean(list, 1);
    VN_EventWriter* map = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
    VN_EventWriter_addDictValue(map, VN_EventKind_String, text("key"), VN_EventKind_Decimal,
                                word(0x31A000000000000F));  // +15E-1
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
    VN_EventWriter_addString(event, "AC\"ME");
    VN_EventWriter_addFloat(event, 12.5);
    VN_EventWriter_addFloat(event, -0.25);
    VN_EventWriter_addFloat(event, 100.0);
    VN_EventWriter_addRefValue(event, list);
    VN_EventWriter_addRefValue(event, map);
    VN_EventWriter_addUnformatted(event, "as it stands");
    VN_EventWriter_addAny(event, VN_EventKind_Integer, VN_EventPayload_ofInt(5), nullptr);
    VN_EventWriter_addOptional(event, VN_EventKind_Wrapper, nullptr);
    return event;
}

VN_EventWriter* makeDeepEvent() {
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    for (int i = 0; i < 1000; ++i) {
        VN_EventWriter* outer = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
        VN_EventWriter_addRefValue(outer, event);
        event = outer;
    }
    return event;
}

void fillQueue(vn_qtsQueue* queue) {
    vn_qtsInit(queue, 8);
    for (uint64_t i = 0; i < 5; ++i) {
        const vn_qtsElement element = {{word(i * 16), word(1), nullptr}};
        vn_qtsElement taken;
        vn_qtsAdd(queue, &element);
        if (i < 2) {
            vn_qtsRemove(queue, &taken);
        }
    }
}

VN_TimestampSet* makeStamps() {
    VN_TimestampSet* stamps = VN_TimestampSet_ctor();
    VN_TimestampSet_addTime(stamps, 1, 1700000000.25);
    VN_TimestampSet_addTime(stamps, 2, 1700000000.5);
    VN_TimestampSet_addTime(stamps, 1, 1700000001.0);
    return stamps;
}

}  // namespace

// Records that were not initialised: zeroes, garbage, or a size with an invalid pointer.
struct Records {
    Vector vector;
    HashMap map;
    CStringBuffer text;
    CByteBuffer bytes;
    vn_qtsQueue queue;
    VN_TimestampSet stamps;
    VN_EventWriter event;
} zeroed, garbage, lengthOnly;

int main() {
    vn_threadInit();
    Vector vector;
    vn_Vector_init(&vector, nullptr, nullptr, nullptr, 4, 0);
    Vector* empty = vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 0);
    vn_Vector_add(&vector, word(16));
    vn_Vector_add(&vector, word(32));
    HashMap* words = vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 16, 0);
    vn_HashMap_addQuick(words, text("one"), word(1));
    vn_HashMap_addQuick(words, text("two"), word(2));
    HashMap* numbers = vn_HashMap_ctor(nullptr, nullptr, nullptr, nullptr, 16, 0);
    vn_HashMap_addQuick(numbers, word(0x77), word(0x78));
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    vn_strbufAppendString(&buffer, "some \"text\"");
    CStringBuffer beyond;  // the size exceeds the text
    vn_strbufInit(&beyond, 0);
    vn_strbufAppendString(&beyond, "abc");
    beyond.size = 1000000;
    CByteBuffer bytes;
    vn_bytebufInit(&bytes, 0);
    vn_bytebufAppendBytes(&bytes, reinterpret_cast<const uint8_t*>("\0\xff\x10"), 3);
    vn_qtsQueue queue;
    fillQueue(&queue);
    VN_TimestampSet* stamps = makeStamps();
    VN_EventWriter* event = makeEvent();
    VN_EventWriter* deep = makeDeepEvent();
    memset(&garbage, 0x5a, sizeof garbage);
    lengthOnly.vector.size = lengthOnly.vector.capacity = 3;
    lengthOnly.vector.data = reinterpret_cast<void**>(8);
    lengthOnly.text.size = 5;
    lengthOnly.text.capacity = 20;
    lengthOnly.text.data = reinterpret_cast<char*>(8);
    lengthOnly.bytes.size = lengthOnly.bytes.capacity = 5;
    lengthOnly.bytes.data = reinterpret_cast<uint8_t*>(8);
    lengthOnly.stamps.entries = &lengthOnly.vector;
    lengthOnly.event.kind = VN_EventKind_Event;
    lengthOnly.event.values = &lengthOnly.vector;
    const Vector& vectorReference = vector;
    HashMap& wordsReference = *words;
    const CStringBuffer& bufferReference = buffer;
    const VN_EventWriter& eventReference = *event;
    lookAtThem();
    const bool used = empty && stamps && deep && numbers && vectorReference.size == 2 &&
                      wordsReference.count == 2 && bufferReference.size > 0 &&
                      eventReference.kind == VN_EventKind_Event;
    return used ? 0 : 1;
}
