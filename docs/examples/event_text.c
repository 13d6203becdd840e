/* Builds the examples of docs/event-text.md, and prints each with the calls that make it. Then
 * reads texts. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vncommon/event_reader.h>
#include <vncommon/event_writer.h>
#include <vncommon/numbers.h>

static void print(const char* calls, VN_EventWriter* writer) {
    char* text = writer->toString(writer);
    printf("%-54s %s\n", calls, text);
    free(text);
    VN_EventWriter_dtor(writer);
}

#define SHOW(variable, kind, name, shown, calls)                    \
    do {                                                            \
        VN_EventWriter* variable = VN_EventWriter_ctor(kind, name); \
        calls;                                                      \
        print(shown, variable);                                     \
    } while (0)

#define EVENT(calls) SHOW(e, VN_EventKind_Event, "Tick", #calls, calls)
#define SEQUENCE(calls) SHOW(s, VN_EventKind_Sequence, NULL, #calls, calls)
#define DICTIONARY(calls) SHOW(d, VN_EventKind_Dictionary, NULL, #calls, calls)
#define NOTHING(kind, name) SHOW(w, kind, name, "(nothing)", (void)0)

static void* ofText(const char* text) {
    return (void*)(size_t)text; /* the writer copies it */
}

static void* ofInt(int64_t value) {
    return VN_EventPayload_ofInt(value);
}

static VN_EventWriter* sequence(int64_t first, int64_t second) {
    VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Sequence, NULL);
    writer->addInt(writer, first);
    writer->addInt(writer, second);
    return writer;
}

static VN_EventWriter* event(const char* name) {
    return VN_EventWriter_ctor(VN_EventKind_Event, name);
}

static void scalars(void) {
    NOTHING(VN_EventKind_Event, "Tick");
    EVENT(e->addInt(e, -5));
    EVENT(e->addFloat(e, 0.25));
    EVENT(e->addFloat(e, 100));
    EVENT(e->addFloat(e, 1e6));
    EVENT(e->addFloat(e, -1.0 / 0.0));
    EVENT(e->addDecimal(e, VN_DEC_INFINITY()));
    EVENT(e->addDecimal(e, 0x31A000000000000F));
    EVENT(e->addBoolean(e, 1); e->addBoolean(e, 256));
    EVENT(e->addChar(e, 'x'); e->addChar(e, '"'));
    EVENT(e->addUnformatted(e, "2 < 3"));
}

static void strings(void) {
    EVENT(e->addString(e, "plain"));
    EVENT(e->addString(e, ""));
    EVENT(e->addString(e, "two\nlines"));
    EVENT(e->addString(e, "a\"b"));
    EVENT(e->addString(e, "C:\\logs"));
    EVENT(e->addString(e, "\"\t\n"));
}

static void nested(void) {
    NOTHING(VN_EventKind_Sequence, NULL);
    SEQUENCE(s->addInt(s, 1); s->addString(s, "two"));
    SEQUENCE(s->addRefValue(s, sequence(1, 2)));
    NOTHING(VN_EventKind_Dictionary, NULL);
    DICTIONARY(d->addDictValue(d, 1, ofText("a"), 0, ofInt(1)));
    DICTIONARY(d->addDictValue(d, 0, ofInt(7), 6, sequence(1, 2)));
    DICTIONARY(d->addInt(d, 5));
    EVENT(e->addRefValue(e, event("Empty")));
    EVENT(e->addRefValue(e, event(NULL)); e->addInt(e, 1));
}

static void wrappers(void) {
    EVENT(e->addAny(e, 0, ofInt(7), NULL));
    EVENT(e->addAny(e, 1, ofText("x"), NULL));
    EVENT(e->addAny(e, 6, sequence(1, 2), "sequence<integer>"));
    EVENT(e->addAny(e, 8, event("Empty"), NULL));
    EVENT(e->addAny(e, 10, NULL, NULL));
    EVENT(e->addOptional(e, 1, ofText("x")));
    EVENT(e->addOptional(e, 10, NULL));
}

static void reads(const char* text) {
    static const char* const kinds[] = {"integer", "string",     "character", "float",
                                        "decimal", "boolean",    "sequence",  "dictionary",
                                        "event",   "unformatted"};
    VN_EventReader reader;
    VN_EventReader_init(&reader);
    VN_EventWriter* writer = VN_EventReader_read(&reader, text, strlen(text));
    printf("%-54s", text);
    if (writer == NULL) {
        printf(" %s at %zu", reader.error, reader.position);
    }
    for (uint32_t i = 0; writer != NULL && i < writer->values->size; ++i) {
        const VN_EventValue* value = vn_Vector_get(writer->values, i);
        printf(" %s", kinds[value->kind]);
    }
    puts("");
    VN_EventWriter_dtor(writer);
}

static void reading(void) {
    reads("[-5,2.5,+25E-1,true]");
    reads("[100,1e+06,NaN,Infinity]");
    reads("[1.50,007,text,2 < 3]");
    reads("[\"x\",\"\"\",\"\\\",5]");
    reads("[\"\\\",5\"]");
    reads("[[1],{1:2},E(),any(integer,7)]");
    reads("[,1]");
    reads("[1,2");
    reads("[\"a\\tb\"]");
    reads("{1}");
}

int main(void) {
    scalars();
    strings();
    nested();
    wrappers();
    reading();
    return 0;
}
