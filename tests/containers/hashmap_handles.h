// Maps and iterators that destroy themselves at the end of their scope, and conversions between
// numbers and keys.
#ifndef VN_TESTS_CONTAINERS_HASHMAP_HANDLES_H
#define VN_TESTS_CONTAINERS_HASHMAP_HANDLES_H

#include <vncommon/hashmap.h>

#include <cstdint>
#include <memory>

inline void* word(uintptr_t number) {
    return reinterpret_cast<void*>(number);
}
inline uintptr_t number(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

struct IteratorEnder {
    void operator()(HashMapIterator* iterator) const { vn_HashMapIterator_dtor(iterator); }
};
using Iterator = std::unique_ptr<HashMapIterator, IteratorEnder>;

struct MapEnder {
    void operator()(HashMap* map) const { vn_HashMap_dtor(map); }
};
using Map = std::unique_ptr<HashMap, MapEnder>;

#endif
