#include <stdio.h>
#include <vncommon/failure.h>
#include <vncommon/hashmap.h>

static void copyKey(HashMapEntry* entry, void* key, void* value) {
    entry->key = vn_strdup(key);
    entry->value = value;
}

static void* freeKey(HashMapEntry* entry) {
    vn_free(entry->key);
    return entry->value; /* what vn_HashMap_remove returns */
}

int main(void) {
    static int price = 125, volume = 300;
    HashMap* map = vn_HashMap_ctor(vn_String_hash, vn_String_compare, copyKey, freeKey, 1024, 0);
    vn_HashMap_addQuick(map, "price", &price);
    vn_HashMap_addQuick(map, "volume", &volume);

    const int* found = vn_HashMap_findValue(map, "price");
    printf("price %d\n", *found);

    int sum = 0;
    HashMapIterator* each = vn_HashMap_first(map);
    for (bool more = each != NULL; more; more = vn_HashMapIterator_next(each)) {
        sum += *(const int*)vn_HashMapIterator_value(each);
    }
    vn_HashMapIterator_dtor(each);
    printf("%u entries, sum %d\n", vn_HashMap_size(map), sum);

    const int* removed = vn_HashMap_remove(map, "volume");
    printf("removed %d, now %s\n", *removed,
           vn_HashMap_exists(map, "volume") ? "still there" : "gone");
    vn_HashMap_dtor(map);
    return 0;
}
