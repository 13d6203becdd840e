// Vector: growable array of pointer-sized elements.
// Invariants: size <= capacity; slots 0 .. size-1 hold the elements; data is null if capacity is 0.
#include <vncommon/vector.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include <vncommon/failure.h>

#include "platform/assertion.h"

namespace vncommon {
namespace {

// The allocation is never smaller than 8 slots, so that the first doublings need no new block.
constexpr uint32_t smallestBlock = 8;

// In builds with assertions, the data of a Vector after its cleanup. The record's other fields keep
// their values, as callers may expect.
constexpr uintptr_t endedData = 0xE27DE27DE27DE27D;

[[maybe_unused]] bool isValid(const Vector* vector) {
    return vector->size <= vector->capacity &&
           (vector->data == nullptr) == (vector->capacity == 0) &&
           reinterpret_cast<uintptr_t>(vector->data) != endedData;
}

void markEnded([[maybe_unused]] Vector* vector) {
#if defined(VN_ASSERTIONS)
    vector->data = reinterpret_cast<void**>(endedData);
#endif
}

// In slots. glibc 2.36: malloc takes blocks up to this size from a per-thread cache; realloc does
// not use that cache.
constexpr uint32_t cachedBlock = 128;

void** allocateSlots(uint32_t capacity) {
    const size_t slots = std::max(capacity, smallestBlock);
    return static_cast<void**>(malloc(slots * sizeof(void*)));
}

// Moves the elements to a block of the given capacity and frees the old block. Large blocks use
// realloc, which may grow the block in place without a copy.
void** resizedBlock(const Vector* vector, uint32_t capacity) {
    VN_ASSERT(vector->size <= capacity && capacity > 0);
    if (vector->data != nullptr && std::max(vector->capacity, capacity) <= smallestBlock) {
        return vector->data;
    }
    if (capacity > cachedBlock) {
        return static_cast<void**>(realloc(vector->data, size_t{capacity} * sizeof(void*)));
    }
    void** block = allocateSlots(capacity);
    std::copy_n(vector->data, vector->size, block);
    free(vector->data);
    return block;
}

void changeCapacity(Vector* vector, uint32_t capacity) {
    if (capacity == 0) {
        free(vector->data);
        vector->data = nullptr;
    } else {
        vector->data = resizedBlock(vector, capacity);
        std::fill(vector->data + vector->size, vector->data + capacity, nullptr);
    }
    vector->capacity = capacity;
    VN_ASSERT(isValid(vector));
}

// Doubling stops at the largest 32-bit count, so that the capacity cannot overflow. A Vector of
// that size cannot take another element.
uint32_t grownCapacity(uint32_t size) {
    constexpr uint32_t largest = std::numeric_limits<uint32_t>::max();
    if (size == 0) {
        return 1;
    }
    if (size == largest) {
        vn_outOfMemory();
    }
    return size > largest / 2 ? largest : size * 2;
}

// Halves the capacity until the elements fill it or it is below initialCapacity; the result is
// twice that. Compat: the result may be below initialCapacity; callers rely on these figures.
uint32_t shrunkCapacity(const Vector* vector) {
    if (vector->size == 0) {
        return vector->initialCapacity;
    }
    uint32_t capacity = vector->capacity;
    do {
        if (capacity < vector->initialCapacity) {
            break;
        }
        capacity /= 2;
    } while (vector->size < capacity);
    return capacity * 2;
}

void shrinkAfterRemove(Vector* vector) {
    if (vector->shrink && vector->size <= vector->capacity / 4 &&
        vector->capacity > vector->initialCapacity) {
        changeCapacity(vector, shrunkCapacity(vector));
    }
}

void* released(const Vector* vector, void* element) {
    return vector->onRemove != nullptr ? vector->onRemove(element) : element;
}

void removeEach(const Vector* vector) {
    if (vector->onRemove != nullptr) {
        for (uint32_t i = 0; i < vector->size; ++i) {
            vector->onRemove(vector->data[i]);
        }
    }
}

// The rare cases of add and remove are not inlined and are reached by a tail call, so that the
// common cases need not save registers.
[[gnu::noinline]] uint32_t addWithGrowthOrHook(Vector* vector, void* element) {
    if (vector->size == vector->capacity) {
        changeCapacity(vector, grownCapacity(vector->size));
    }
    if (vector->onAdd != nullptr) {
        element = vector->onAdd(element);
    }
    VN_ASSERT(vector->size < vector->capacity);
    vector->data[vector->size] = element;  // NOLINT(clang-analyzer-core.NullDereference): has grown
    return vector->size++;
}

[[gnu::noinline]] void* releaseWithShrinkOrHook(Vector* vector, void* element) {
    shrinkAfterRemove(vector);
    return released(vector, element);
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

Vector* vn_Vector_ctor(vn_VectorCompare compare, vn_VectorOnAdd onAdd, vn_VectorOnRemove onRemove,
                       uint32_t initialCapacity, int shrink) {
    auto* vector = static_cast<Vector*>(malloc(sizeof(Vector)));
    vn_Vector_init(vector, compare, onAdd, onRemove, initialCapacity, shrink);
    return vector;
}

void vn_Vector_init(Vector* vector, vn_VectorCompare compare, vn_VectorOnAdd onAdd,
                    vn_VectorOnRemove onRemove, uint32_t initialCapacity, int shrink) {
    vector->size = 0;
    vector->capacity = initialCapacity;
    vector->initialCapacity = initialCapacity;
    vector->shrink = shrink != 0;
    vector->data = initialCapacity == 0 ? nullptr : allocateSlots(initialCapacity);
    vector->compare = compare;
    vector->onAdd = onAdd;
    vector->onRemove = onRemove;
    VN_ASSERT(isValid(vector));
}

void vn_Vector_cleanup(Vector* vector) {
    VN_ASSERT(isValid(vector));
    removeEach(vector);
    vector->size = 0;
    free(vector->data);
    markEnded(vector);
}

void vn_Vector_dtor(Vector* vector) {
    vn_Vector_cleanup(vector);
    free(vector);
}

uint32_t vn_Vector_size(const Vector* vector) {
    VN_ASSERT(isValid(vector));
    return vector->size;
}

bool vn_Vector_empty(const Vector* vector) {
    VN_ASSERT(isValid(vector));
    return vector->size == 0;
}

uint32_t vn_Vector_add(Vector* vector, void* element) {
    VN_ASSERT(isValid(vector));
    if (vector->size == vector->capacity || vector->onAdd != nullptr) [[unlikely]] {
        return addWithGrowthOrHook(vector, element);
    }
    vector->data[vector->size] = element;
    return vector->size++;
}

void* vn_Vector_get(const Vector* vector, uint32_t index) {
    VN_ASSERT(isValid(vector));
    return index < vector->size ? vector->data[index] : nullptr;
}

void* vn_Vector_set(Vector* vector, uint32_t index, void* element) {
    VN_ASSERT(isValid(vector));
    if (index >= vector->size) [[unlikely]] {
        return nullptr;
    }
    void* old = vector->data[index];
    vector->data[index] = element;
    return released(vector, old);
}

void* vn_Vector_remove(Vector* vector, uint32_t index) {
    VN_ASSERT(isValid(vector));
    if (index >= vector->size) [[unlikely]] {
        return nullptr;
    }
    void* element = vector->data[index];
    vector->data[index] = vector->data[--vector->size];
    if (vector->shrink || vector->onRemove != nullptr) [[unlikely]] {
        return releaseWithShrinkOrHook(vector, element);
    }
    return element;
}

bool vn_Vector_find(const Vector* vector, const void* key, uint32_t* index) {
    VN_ASSERT(isValid(vector));
    for (uint32_t i = 0; i < vector->size; ++i) {
        if (vector->compare(vector->data[i], key) == 0) {
            *index = i;
            return true;
        }
    }
    return false;
}

void vn_Vector_removeAll(Vector* vector) {
    VN_ASSERT(isValid(vector));
    removeEach(vector);
    vn_Vector_clear(vector);
}

void vn_Vector_clear(Vector* vector) {
    VN_ASSERT(isValid(vector));
    vector->size = 0;
    if (vector->shrink && vector->capacity > vector->initialCapacity) {
        changeCapacity(vector, vector->initialCapacity);
    }
}
