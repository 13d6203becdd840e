// Vector: growable array of pointer-sized elements.
// Invariants: size <= capacity; slots 0 .. size-1 hold the elements; data is null without slots.
#include <vncommon/vector.h>

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

// Moves the elements into a zero-filled block of the given capacity.
void changeCapacity(Vector* vector, uint32_t capacity) {
    void** block =
        capacity == 0 ? nullptr : static_cast<void**>(calloc(capacity, sizeof(void*)));
    if (vector->size > 0) {
        memcpy(block, vector->data, vector->size * sizeof(void*));
    }
    free(vector->data);
    vector->data = block;
    vector->capacity = capacity;
}

// Doubling stops at the largest count that 32 bits can hold, so that the block never ends up
// smaller than its contents.
uint32_t grownCapacity(uint32_t size) {
    constexpr uint32_t largest = std::numeric_limits<uint32_t>::max();
    if (size == 0) {
        return 1;
    }
    return size > largest / 2 ? largest : size * 2;
}

// Halves from the current capacity until the elements nearly fill the rest, then leaves twice
// that. The result may lie below initialCapacity; callers see the figures, so they stay.
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

void* leave(const Vector* vector, void* element) {
    return vector->onRemove != nullptr ? vector->onRemove(element) : element;
}

}  // namespace

Vector* vn_Vector_ctor(vn_VectorCompare compare, vn_VectorOnAdd onAdd, vn_VectorOnRemove onRemove,
                       uint32_t initialCapacity, int shrink) {
    Vector* vector = static_cast<Vector*>(malloc(sizeof(Vector)));
    vn_Vector_init(vector, compare, onAdd, onRemove, initialCapacity, shrink);
    return vector;
}

void vn_Vector_init(Vector* vector, vn_VectorCompare compare, vn_VectorOnAdd onAdd,
                    vn_VectorOnRemove onRemove, uint32_t initialCapacity, int shrink) {
    vector->size = 0;
    vector->capacity = initialCapacity;
    vector->initialCapacity = initialCapacity;
    vector->shrink = shrink != 0;
    vector->data = initialCapacity == 0
                       ? nullptr
                       : static_cast<void**>(malloc(size_t{initialCapacity} * sizeof(void*)));
    vector->compare = compare;
    vector->onAdd = onAdd;
    vector->onRemove = onRemove;
}

void vn_Vector_cleanup(Vector* vector) {
    vn_Vector_removeAll(vector);
    free(vector->data);
}

void vn_Vector_dtor(Vector* vector) {
    vn_Vector_cleanup(vector);
    free(vector);
}

uint32_t vn_Vector_size(const Vector* vector) { return vector->size; }

bool vn_Vector_empty(const Vector* vector) { return vector->size == 0; }

uint32_t vn_Vector_add(Vector* vector, void* element) {
    if (vector->size == vector->capacity) [[unlikely]] {
        changeCapacity(vector, grownCapacity(vector->size));
    }
    if (vector->onAdd != nullptr) {
        element = vector->onAdd(element);
    }
    vector->data[vector->size] = element;
    return vector->size++;
}

void* vn_Vector_get(const Vector* vector, uint32_t index) {
    return index < vector->size ? vector->data[index] : nullptr;
}

void* vn_Vector_set(Vector* vector, uint32_t index, void* element) {
    if (index >= vector->size) {
        return nullptr;
    }
    void* old = vector->data[index];
    vector->data[index] = element;
    return leave(vector, old);
}

void* vn_Vector_remove(Vector* vector, uint32_t index) {
    if (index >= vector->size) {
        return nullptr;
    }
    void* element = vector->data[index];
    vector->data[index] = vector->data[--vector->size];
    shrinkAfterRemove(vector);
    return leave(vector, element);
}

bool vn_Vector_find(const Vector* vector, const void* key, uint32_t* index) {
    for (uint32_t i = 0; i < vector->size; ++i) {
        if (vector->compare(vector->data[i], key) == 0) {
            *index = i;
            return true;
        }
    }
    return false;
}

void vn_Vector_removeAll(Vector* vector) {
    if (vector->onRemove != nullptr) {
        for (uint32_t i = 0; i < vector->size; ++i) {
            vector->onRemove(vector->data[i]);
        }
    }
    vn_Vector_clear(vector);
}

void vn_Vector_clear(Vector* vector) {
    vector->size = 0;
    if (vector->shrink && vector->capacity > vector->initialCapacity) {
        changeCapacity(vector, vector->initialCapacity);
    }
}
