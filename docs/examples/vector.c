#include <stdio.h>
#include <string.h>
#include <vncommon/failure.h>
#include <vncommon/vector.h>

static int32_t compareNames(const void* element, const void* key) {
    return strcmp(element, key);
}

static void* copyName(void* name) {
    return vn_strdup(name);
}

static void* freeName(void* name) {
    vn_free(name);
    return NULL;
}

int main(void) {
    Vector* names = vn_Vector_ctor(compareNames, copyName, freeName, 0, 1);
    vn_Vector_add(names, "first"); /* stores a copy */
    vn_Vector_add(names, "second");
    vn_Vector_add(names, "third");

    uint32_t index;
    if (vn_Vector_find(names, "first", &index)) {
        vn_Vector_remove(names, index); /* frees it, and moves the last one into its place */
    }
    for (uint32_t i = 0; i < vn_Vector_size(names); ++i) {
        printf("%u: %s\n", i, (const char*)vn_Vector_get(names, i));
    }
    vn_Vector_dtor(names);
    return 0;
}
