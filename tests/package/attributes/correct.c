/* Calls that must compile without a warning. Compiled as C and as C++, never run. */
#include <stdlib.h>
#include <string.h>
#include <vncommon/vncommon.h>

void blocks(void);
void texts(HashMap* map, VN_EventWriter* writer);
void events(HashMap* map);
void queues(vn_qtsQueue* queue);
int sockets(CStringBuffer* line);
int never(int known);

/* free and vn_free release either kind of block. */
void blocks(void) {
    char* own = (char*)malloc(8);
    char* ours = (char*)vn_malloc(8);
    vn_free(own);
    free(ours);
    own = strdup("x");
    ours = vn_strdup("x");
    vn_free(own);
    free(ours);
    own = (char*)calloc(1, 8);
    ours = (char*)vn_realloc(own, 16);
    ours = (char*)realloc(ours, 32);
    vn_free(ours);
    char* block;
    if ((block = (char*)vn_malloc(8)) == NULL) { /* unnecessary, but correct */
        return;
    }
    vn_free(block);
}

void texts(HashMap* map, VN_EventWriter* writer) {
    char* text = VN_EventWriter_toString(writer);
    free(text);
    text = VN_EventWriter_toString(writer);
    vn_free(text);
    text = vn_xmlEscapeString(vn_isUTF8("x") ? "x" : "y");
    vn_free(text);
    char** environment = vn_getEnvironUTF8();
    vn_freeEnvironUTF8(environment);
    HashMapIterator* found = vn_HashMap_find(map, "x");
    if (vn_HashMapIterator_valid(found)) {
        VN_LogInfo("%s", (const char*)vn_HashMapIterator_key(found));
    }
    vn_HashMapIterator_dtor(found);
    vn_HashMapIterator_dtor(vn_HashMap_add(map, map, map));
    vn_HashMapIterator_dtor(NULL);
}

void events(HashMap* map) {
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, NULL);
    VN_EventWriter_addString(event, NULL);
    VN_EventWriter_dtor(event);
    VN_EventWriter_dtor(NULL);
    VN_TimestampSet* stamps = VN_TimestampSet_ctor();
    VN_TimestampSet_replaceWithNow(stamps, 1);
    VN_TimestampSet_dtor(stamps);
    VN_TimestampSet_dtor(NULL);
    vn_free(VN_TimestampSet_toString(NULL));
    vn_HashMap_remove(map, "x");
    vn_HashMap_replace(map, map, map);
    vn_HashMap_addQuick(map, map, map);
    vn_free(vn_strdup(NULL));
}

/* Without a maximum an add cannot fail, and a drained queue needs no test of its size. */
void queues(vn_qtsQueue* queue) {
    const vn_qtsElement added = {{NULL, NULL, NULL}};
    vn_qtsElement taken;
    vn_qtsAdd(queue, &added);
    vn_qtsAddBatch(queue, &added, 1);
    while (vn_qtsRemoveNB(queue, &taken) == 0) {
    }
    vn_joinThread(vn_createThread(NULL, NULL, false));
    vn_createThread(NULL, NULL, true);
}

int sockets(CStringBuffer* line) {
    int fd;
    char* error = vn_socketConnect(NULL, 80, &fd);
    if (error != NULL) {
        VN_LogError("%s", error);
        vn_free(error);
        return 1;
    }
    error = vn_socketReadLine(fd, line);
    vn_socketClose(fd);
    vn_strbufAppendString(line, NULL);
    vn_strbufAppendFormat(line, "%s %lu\n", vn_strbufGetString(line), vn_strbufGetSize(line));
    const int failed = error != NULL;
    vn_free(error);
    return failed;
}

int never(int known) {
    if (known) {
        return vn_parseToBool(NULL) || vn_isEmptyString(NULL);
    }
    vn_immediateExit(1);
}

#ifdef __cplusplus
/* In C++ a cast to void marks a result as ignored. gcc warns in spite of it in C11. */
void ignored(HashMap* map);
void ignored(HashMap* map) {
    (void)VN_ConfigFile_Load(nullptr, nullptr);
    (void)vn_HashMap_find(map, map);
}
#endif
