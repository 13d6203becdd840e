// Callbacks of a HashMap that keeps copies of its string keys.
#ifndef VN_TESTS_SUPPORT_COPIED_KEYS_H
#define VN_TESTS_SUPPORT_COPIED_KEYS_H

#include <vncommon/hashmap.h>

#include <cstdlib>
#include <cstring>

inline void fillWithCopy(HashMapEntry* entry, void* key, void* value) {
    entry->key = strdup(static_cast<const char*>(key));
    entry->value = value;
}

inline void* freeCopy(HashMapEntry* entry) {
    free(entry->key);
    return nullptr;
}

#endif
