/** @file
 * Vector: growable array of pointer-sized elements with optional callbacks.
 *
 * An element is a pointer or an integer of a pointer's width; the Vector never looks inside.
 * Growth doubles, so adding is amortised constant time. Removing does not keep the order: the
 * last element moves into the hole, so it costs constant time too.
 *
 *     Vector* names = vn_Vector_ctor(compareNames, copyName, freeName, 0, 1);
 *     vn_Vector_add(names, "first");            stores copyName("first")
 *     vn_Vector_dtor(names);                    calls freeName for each
 *
 * Memory comes from the platform's malloc, not from vn_malloc, and is not checked: if it runs out,
 * the behaviour is undefined. Indices, sizes and capacities are 32-bit and count elements; a
 * Vector holds at most 2^32 - 1, and one more ends the process through vn_outOfMemory (failure.h).
 *
 * Callbacks run inside the operation that calls them and must not use the same Vector. Those with
 * no purpose may be null; compare must be set wherever vn_Vector_find is used.
 *
 * The type's name has no prefix: a host with a global type named Vector cannot include this header
 * in the same source.
 *
 * Thread safety: none; one thread at a time, or under the owner's lock.
 */
#ifndef VNCOMMON_VECTOR_H
#define VNCOMMON_VECTOR_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** 0 when element equals key (convention 6). */
typedef int32_t (*vn_VectorCompare)(const void* element, const void* key);

/** Returns what vn_Vector_add stores instead of its argument, usually a copy. */
typedef void* (*vn_VectorOnAdd)(void* element);

/** Called with an element that leaves the Vector, usually to release it. vn_Vector_remove and
 * vn_Vector_set return its result, so one that frees the element should return null. */
typedef void* (*vn_VectorOnRemove)(void* element);

/** The fields may be read at any time: slots 0 to size - 1 of data are the elements, as
 * vn_Vector_get returns them. Only the operations below change them. */
typedef struct Vector {
    uint32_t size;              /**< elements in use */
    uint32_t capacity;          /**< element slots in data */
    uint32_t initialCapacity;   /**< as given at construction; the floor for shrinking */
    bool shrink;                /**< whether emptying and removing may shrink the storage */
    void** data;                /**< null when capacity is 0 */
    vn_VectorCompare compare;   /**< may be null if find is never used */
    vn_VectorOnAdd onAdd;       /**< may be null */
    vn_VectorOnRemove onRemove; /**< may be null */
} Vector;

/** A new, empty Vector on the heap, destroyed with vn_Vector_dtor. initialCapacity elements fit
 * before it has to grow; with 0 there is no storage until the first add. A non-zero shrink lets the
 * storage shrink again (see vn_Vector_remove and vn_Vector_clear). */
VN_NODISCARD VN_API Vector* vn_Vector_ctor(vn_VectorCompare compare, vn_VectorOnAdd onAdd,
                                           vn_VectorOnRemove onRemove, uint32_t initialCapacity,
                                           int shrink);

/** vn_Vector_ctor for the caller's record, released with vn_Vector_cleanup. */
VN_API void vn_Vector_init(Vector* vector, vn_VectorCompare compare, vn_VectorOnAdd onAdd,
                           vn_VectorOnRemove onRemove, uint32_t initialCapacity, int shrink);

/** vn_Vector_removeAll, then frees the storage but not the record, which must not be used again
 * without vn_Vector_init. */
VN_API void vn_Vector_cleanup(Vector* vector);

/** vn_Vector_cleanup, then frees the record. */
VN_API void vn_Vector_dtor(Vector* vector);

/** The number of elements. */
VN_API uint32_t vn_Vector_size(const Vector* vector) VN_PURE;

/** Whether the number of elements is 0. */
VN_API bool vn_Vector_empty(const Vector* vector) VN_PURE;

/** Stores onAdd(element), or element itself without onAdd, at the end; returns its index, always
 * the old size. A full Vector doubles its capacity first (from 0 to 1); the new slots are zero. */
VN_API uint32_t vn_Vector_add(Vector* vector, void* element);

/** The element; null when index >= size (and for an element that is null). */
VN_API void* vn_Vector_get(const Vector* vector, uint32_t index) VN_PURE;

/** Replaces the element at index. Returns onRemove(old), or old itself without onRemove; null, and
 * nothing changes, when index >= size.
 * Compat: onAdd is not called; callers rely on it. */
VN_API void* vn_Vector_set(Vector* vector, uint32_t index, void* element);

/** Takes the element at index out and moves the last one into its place: removing index 0 from
 * [a, b, c] leaves [c, b]. Returns onRemove(element), or element itself without onRemove; null,
 * and nothing changes, when index >= size.
 *
 * With shrink set, and at most capacity / 4 elements left of a capacity above the initial one, the
 * storage shrinks: to the initial capacity when nothing is left; otherwise c, starting at the
 * capacity, is halved until the elements fill it or it falls below the initial capacity, and the
 * new capacity is 2 * c. 64 slots thus become 32 at 16 elements.
 * Compat: the result may be below the initial capacity (6 slots of initially 3 become 2); callers
 * rely on these figures. */
VN_API void* vn_Vector_remove(Vector* vector, uint32_t index);

/** True and the index of the first element for which compare(element, key) is 0; otherwise false,
 * and *index keeps its value. Linear; an empty Vector calls nothing. */
VN_API bool vn_Vector_find(const Vector* vector, const void* key, uint32_t* index);

/** Empties the Vector after calling onRemove, if set, on each element from index 0 up; the results
 * are ignored. With shrink set, a capacity above the initial one goes back to it. */
VN_API void vn_Vector_removeAll(Vector* vector);

/** vn_Vector_removeAll without calling onRemove: the elements remain the caller's. */
VN_API void vn_Vector_clear(Vector* vector);

VN_END_DECLS

#endif
