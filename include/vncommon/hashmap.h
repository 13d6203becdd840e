/** @file
 * HashMap: map from pointer-sized keys to pointer-sized values, with caller-supplied callbacks.
 *
 *     HashMap* prices = vn_HashMap_ctor(vn_String_hash, vn_String_compare, NULL, NULL, 1024, 0);
 *     HashMap* orders = vn_HashMap_ctor(NULL, NULL, NULL, NULL, 65536, 0);
 *
 * Keys of the first are strings. Keys of the second are integers or pointers, compared by value. A
 * map without callbacks is the fastest.
 *
 * The map has an array of buckets, each a Vector of pointers into one array of entries. The buckets
 * double when they hold four entries on average. Removing leaves a hole in the entry array, which
 * is closed the next time the array is rebuilt.
 *
 * Cost: adding, finding and removing take constant time on average, with three exceptions:
 *  - Doubling the buckets visits every entry. It happens when the map reaches 16, 32, 64 ...
 *    entries (initial size 16; otherwise at initial size times powers of two).
 *  - A full entry array is rebuilt twice as large below 1024 slots and only 1024 slots larger
 *    above, copying every live entry. Filling a map of n entries from a small initial size
 *    therefore copies about n * n / 2048 entries: give a size above the final one at
 *    construction, and nothing is ever copied.
 *  - With the shrink flag, removals give memory back by the same kind of rebuilding.
 * A map made with size n takes about 54 bytes per entry of n, before the first add.
 *
 * Iteration follows the buckets, not the order of adding, and the order changes when the map
 * grows or shrinks. Any change to the map (add, remove, clear) invalidates all iterators and
 * entry pointers.
 *
 * Memory comes from the platform's allocator and is not checked: if it runs out, the behaviour
 * is undefined. Counts are 32-bit.
 *
 * Thread safety: none inside; the owner serialises access. Lookups that allocate no iterator
 * (exists, findValue, size) do not change the map and may run side by side.
 */
#ifndef VNCOMMON_HASHMAP_H
#define VNCOMMON_HASHMAP_H

#include <vncommon/api.h>
#include <vncommon/vector.h>

VN_BEGIN_DECLS

/** A key and its value. */
typedef struct HashMapEntry {
    void* key;
    void* value;
    uint32_t hash;        /**< of the key as it was added; rehashing uses it */
    uint32_t bucketIndex; /**< the entry's position inside its bucket */
} HashMapEntry;

/** The hash of a key; the key's bucket is chosen by its low bits. Called at most three times per
 * add (twice when the buckets do not grow, once when the key is present already) and once per
 * lookup in a map that is not empty. Null: a hash of the word itself, in which every bit counts;
 * the record then holds a function of the library. */
typedef uint32_t (*vn_HashMapHash)(const void* key);

/** 0 when the stored key equals key. The entries of a bucket are compared in order. Null: a key
 * equals only the same word; the record then holds a function of the library. */
typedef int32_t (*vn_HashMapCompare)(const void* storedKey, const void* key);

/** Fills key and value of a new entry, for example with copies. The stored key must equal the given
 * one while it is in the map; the caller may also store it right after the add. Adding uses only
 * the given key, never the stored one. */
typedef void (*vn_HashMapFill)(HashMapEntry* entry, void* key, void* value);

/** Called with an entry that leaves the map; frees what fill made. Its result is what remove and
 * replace return, so one that frees should return null. */
typedef void* (*vn_HashMapRelease)(HashMapEntry* entry);

/** The fields may be read; only the functions below change them. The storage of a bucket belongs
 * to the map: no function that adds to or destroys a Vector may be called on one. */
typedef struct HashMap {
    uint32_t count;        /**< live entries */
    uint32_t mask;         /**< bucket count - 1; a key's bucket is hash & mask */
    uint32_t initialSize;  /**< as given at construction, at least 16 */
    Vector* buckets;       /**< mask + 1 Vectors of HashMapEntry* (initial capacity 8, no shrink) */
    HashMapEntry* entries; /**< storage of all entries */
    uint32_t entryCapacity; /**< slots in entries */
    uint32_t entryFill;     /**< slots handed out, the holes of removed entries included */
    bool shrink;            /**< whether removals may shrink the buckets and the entry array */
    uint8_t keyKind;        /**< private: what is known of the keys */
    vn_HashMapHash hash;
    vn_HashMapCompare compare;
    vn_HashMapFill fill;       /**< null: key and value are stored as given */
    vn_HashMapRelease release; /**< may be null */
} HashMap;

/** A position in a map. */
typedef struct HashMapIterator {
    HashMap* map;
    HashMapEntry* entry; /**< null: past the end */
} HashMapIterator;

/** A new map on the heap, destroyed with vn_HashMap_dtor. Each callback may be null. initialSize is
 * the number of entries that fit, at least 16; the buckets double when the map reaches it. It
 * should be a power of two. Another size is accepted, but its mask has gaps: 20 gives 5 buckets
 * with mask 4, of which only 0 and 4 are ever used. shrink is a flag;
 * the number of buckets never falls below four. */
VN_NODISCARD VN_API HashMap* vn_HashMap_ctor(vn_HashMapHash hash, vn_HashMapCompare compare,
                                             vn_HashMapFill fill, vn_HashMapRelease release,
                                             uint32_t initialSize, int shrink);

/** vn_HashMap_ctor for the caller's record, released with vn_HashMap_cleanup. */
VN_API void vn_HashMap_init(HashMap* map, vn_HashMapHash hash, vn_HashMapCompare compare,
                            vn_HashMapFill fill, vn_HashMapRelease release, uint32_t initialSize,
                            int shrink);

/** vn_HashMap_removeAll, then frees the storage. The record must not be used without a new init.
 */
VN_API void vn_HashMap_cleanup(HashMap* map);

/** vn_HashMap_cleanup, then frees the record. */
VN_API void vn_HashMap_dtor(HashMap* map);

/** The number of entries. */
VN_API uint32_t vn_HashMap_size(const HashMap* map) VN_PURE;

/** Adds key with value, unless the key is present: then nothing changes, and the value stays the
 * old one. This is no "put": vn_HashMap_replace is. Returns a new iterator on the new entry (on no
 * entry when the key was present). A caller that does not free it with vn_HashMapIterator_dtor
 * leaks it; vn_HashMap_addQuick allocates none. */
VN_NODISCARD VN_API HashMapIterator* vn_HashMap_add(HashMap* map, void* key, void* value);

/** Adds key with value, unless the key is present: then nothing changes, and the value stays the
 * old one. Returns the new entry, or null when the key was present. Allocates no iterator. */
VN_API HashMapEntry* vn_HashMap_addQuick(HashMap* map, void* key, void* value);

/** vn_HashMap_remove, then adds key with value. Returns what remove returned. key must survive
 * the release of the entry that it replaces. */
VN_API void* vn_HashMap_replace(HashMap* map, void* key, void* value);

/** Removes the key. Returns release(entry) when the key was present and release is set, otherwise
 * null: without a release callback the result does not show whether the key was present. */
VN_API void* vn_HashMap_remove(HashMap* map, const void* key);

/** Removes the key without calling release, and returns the entry that was removed, or null when
 * the key is absent. The entry stays readable until the next add or remove. */
VN_API HashMapEntry* vn_HashMap_findValueAndRemove(HashMap* map, const void* key);

/** Whether the key is present. */
VN_API bool vn_HashMap_exists(const HashMap* map, const void* key);

/** A new iterator on the key's entry, freed with vn_HashMapIterator_dtor; null when absent. */
VN_NODISCARD VN_API HashMapIterator* vn_HashMap_find(HashMap* map, const void* key);

/** The key's value; null when the key is absent, or its value is null (see vn_HashMap_exists). */
VN_API void* vn_HashMap_findValue(const HashMap* map, const void* key);

/** A new iterator on the first entry in bucket order, freed with vn_HashMapIterator_dtor; null when
 * the map is empty. */
VN_NODISCARD VN_API HashMapIterator* vn_HashMap_first(HashMap* map);

/** A new iterator on the last entry in bucket order, freed with vn_HashMapIterator_dtor; null when
 * the map is empty. */
VN_NODISCARD VN_API HashMapIterator* vn_HashMap_last(HashMap* map);

/** Removes every entry, calling release (if set) on each: buckets in order, and in a bucket the
 * first entry, then the last, which moved into its place, and so on. With the shrink flag the
 * number of buckets halves.
 * Compat: slots of the entry array are not reused until it is rebuilt; callers rely on it. */
VN_API void vn_HashMap_removeAll(HashMap* map);

/** Forgets every entry without calling release; entry slots are handed out from the first again.
 * With the shrink flag the number of buckets halves. */
VN_API void vn_HashMap_clear(HashMap* map);

/** Whether the iterator is on an entry; false for null. */
VN_API bool vn_HashMapIterator_valid(const HashMapIterator* iterator) VN_PURE;

/** The key of the entry; null when the iterator is not valid. */
VN_API void* vn_HashMapIterator_key(const HashMapIterator* iterator) VN_PURE;

/** The value of the entry; null when the iterator is not valid. */
VN_API void* vn_HashMapIterator_value(const HashMapIterator* iterator) VN_PURE;

/* Inline bodies of these three functions, because a call costs more than the work. Their addresses
 * are those of the exported functions, which do the same. */
#if defined(__GNUC__) && !defined(VN_BUILDING_LIBRARY)
extern inline __attribute__((gnu_inline)) bool vn_HashMapIterator_valid(
    const HashMapIterator* iterator) {
    return iterator != VN_NULL && iterator->entry != VN_NULL;
}
extern inline __attribute__((gnu_inline)) void* vn_HashMapIterator_key(
    const HashMapIterator* iterator) {
    return vn_HashMapIterator_valid(iterator) ? iterator->entry->key : VN_NULL;
}
extern inline __attribute__((gnu_inline)) void* vn_HashMapIterator_value(
    const HashMapIterator* iterator) {
    return vn_HashMapIterator_valid(iterator) ? iterator->entry->value : VN_NULL;
}
#endif

/** Moves to the following entry and returns true. When there is none, the iterator is no longer
 * valid and the result is false. Past the end, and on an empty map, the result is false and nothing
 * changes. */
VN_API bool vn_HashMapIterator_next(HashMapIterator* iterator);

/** Moves to the preceding entry and returns true. When there is none, the iterator is no longer
 * valid and the result is false. Past the end, and on an empty map, the result is false and nothing
 * changes. */
VN_API bool vn_HashMapIterator_back(HashMapIterator* iterator);

/** Frees the iterator; null is accepted. */
VN_API void vn_HashMapIterator_dtor(HashMapIterator* iterator);

/** The hash callback for keys that are NUL-terminated strings (it takes a void pointer so that it
 * fits where a callback is expected): h = (h + c) * 0x9E3779B9 modulo 2^32 over the bytes c, from
 * h = 0. A map built with this and vn_String_compare compares the stored hashes first, and the
 * strings only when the hashes are equal.
 * Compat: bytes from 128 up count as negative, because callers store hashes. */
VN_API uint32_t vn_String_hash(const void* string) VN_PURE;

/** The compare callback for keys that are NUL-terminated strings (it takes void pointers so that it
 * fits where a callback is expected): strcmp. */
VN_API int32_t vn_String_compare(const void* a, const void* b) VN_PURE;

/** The smallest prime not below n; 0 when no prime of 64 bits is (n > 2^64 - 59). Takes time in
 * proportion to the square root of n; measured: see docs/benchmarks.md. */
VN_API uint64_t vn_nextPrime(uint64_t n) VN_CONST;

VN_END_DECLS

#endif
