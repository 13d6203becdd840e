/* Vector: growable array of pointer-sized elements with optional callbacks.
 *
 * Growth doubles, so adding is amortised constant time. Removing does not keep the order: the
 * last element moves into the hole, so it costs constant time too. Memory comes from the
 * platform's malloc and calloc and is not checked: without memory the behaviour is undefined.
 * Indices and sizes are 32-bit; the most elements a Vector can hold is 2^32 - 1.
 *
 * Thread-safety: none; one thread at a time, or under the owner's lock.
 */
#ifndef VNCOMMON_VECTOR_H
#define VNCOMMON_VECTOR_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/* 0 when element equals key (find only). */
typedef int32_t (*vn_VectorCompare)(const void* element, const void* key);
/* What vn_Vector_add stores instead of element (a copy of it, as a rule). */
typedef void* (*vn_VectorOnAdd)(void* element);
/* Called with an element that leaves the Vector. Its result is what remove and set return, so
 * one that frees the element should return null. */
typedef void* (*vn_VectorOnRemove)(void* element);

typedef struct Vector {
    uint32_t size;            /* elements in use */
    uint32_t capacity;        /* element slots in data */
    uint32_t initialCapacity; /* as given at construction; the floor for shrinking */
    bool shrink;              /* whether removals may shrink the storage */
    void** data;              /* null when capacity is 0 */
    vn_VectorCompare compare; /* may be null if find is never used */
    vn_VectorOnAdd onAdd;     /* may be null */
    vn_VectorOnRemove onRemove; /* may be null */
} Vector;

/* A new Vector on the heap, ended by vn_Vector_dtor; shrink is a flag. */
VN_API Vector* vn_Vector_ctor(vn_VectorCompare compare, vn_VectorOnAdd onAdd,
                              vn_VectorOnRemove onRemove, uint32_t initialCapacity, int shrink);

/* The same for the caller's record, ended by vn_Vector_cleanup. */
VN_API void vn_Vector_init(Vector* vector, vn_VectorCompare compare, vn_VectorOnAdd onAdd,
                           vn_VectorOnRemove onRemove, uint32_t initialCapacity, int shrink);

/* vn_Vector_removeAll, then frees the storage. The record must not be used without a new init. */
VN_API void vn_Vector_cleanup(Vector* vector);

/* vn_Vector_cleanup, then frees the record. */
VN_API void vn_Vector_dtor(Vector* vector);

VN_API uint32_t vn_Vector_size(const Vector* vector);
VN_API bool vn_Vector_empty(const Vector* vector);

/* Stores onAdd(element), or element itself without onAdd, at the end; returns its index, always
 * the old size. A full Vector doubles its capacity (from 0 to 1). */
VN_API uint32_t vn_Vector_add(Vector* vector, void* element);

/* The element, or null when index >= size. */
VN_API void* vn_Vector_get(const Vector* vector, uint32_t index);

/* Replaces the element at index; onAdd is deliberately not applied. Returns onRemove(old), or
 * old itself without onRemove; null, and nothing changes, when index >= size. */
VN_API void* vn_Vector_set(Vector* vector, uint32_t index, void* element);

/* Takes the element at index out and moves the last one into its place: removing index 0 from
 * [a, b, c] leaves [c, b]. Returns onRemove(element), or element itself without onRemove; null,
 * and nothing changes, when index >= size. With shrink set the storage shrinks when at most a
 * quarter of it is used. */
VN_API void* vn_Vector_remove(Vector* vector, uint32_t index);

/* True and the index of the first element for which compare(element, key) is 0; otherwise false
 * with *index untouched. compare must be set. Linear. */
VN_API bool vn_Vector_find(const Vector* vector, const void* key, uint32_t* index);

/* Empties the Vector, calling onRemove (if set) on each element from index 0 up and ignoring its
 * results. With shrink set the storage goes back to the initial capacity. */
VN_API void vn_Vector_removeAll(Vector* vector);

/* The same without calling onRemove. */
VN_API void vn_Vector_clear(Vector* vector);

VN_END_DECLS

#endif
