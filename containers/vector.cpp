// Vector: growable array of pointer-sized elements.
// Invariants: size <= capacity; slots 0 .. size-1 hold the elements; data is null without slots.
#include <sys/mman.h>
#include <unistd.h>
#include <vncommon/failure.h>
#include <vncommon/vector.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

// From here on the C library maps every block on its own, so that the unused part of a grown
// block is fresh memory; below, blocks are reused and are quicker cleared than faulted in again.
constexpr size_t largeTail = size_t{16} << 20;

// Gives the whole pages of [first, last) back to the system, which reads as zeroes: clearing them
// would make pages resident that may never be used. 1e7 adds take 86 ms this way, 141 ms with
// memset. False when the system refuses (locked memory).
bool clearPages(char* first, char* last) {
    const auto page = static_cast<uintptr_t>(getpagesize());
    char* firstPage = first + (-reinterpret_cast<uintptr_t>(first) & (page - 1));
    char* lastPage = last - (reinterpret_cast<uintptr_t>(last) & (page - 1));
    if (madvise(firstPage, static_cast<size_t>(lastPage - firstPage), MADV_DONTNEED) != 0) {
        return false;
    }
    memset(first, 0, static_cast<size_t>(firstPage - first));
    memset(lastPage, 0, static_cast<size_t>(last - lastPage));
    return true;
}

void clearTail(void** first, void** last) {
    auto* from = reinterpret_cast<char*>(first);
    auto* to = reinterpret_cast<char*>(last);
    const auto length = static_cast<size_t>(to - from);
    if (length < largeTail || !clearPages(from, to)) {
        memset(from, 0, length);
    }
}

// No block has fewer slots, whatever the capacity says, so that the first steps of doubling stay in
// place; what lies behind the capacity of such a block is zero. An event of eight fields is built
// and destroyed in four fifths of the time.
constexpr uint32_t smallestBlock = 8;

// Blocks up to here come from the C library's cache of small blocks, which realloc goes past.
constexpr uint32_t cachedBlock = 128;

void** allocateSlots(uint32_t capacity) {
    if (capacity <= smallestBlock) {
        constexpr size_t size = smallestBlock * sizeof(void*);
        void* block = malloc(size);
        asm("" : "+r"(block));  // or the compiler makes one calloc of the two, which takes longer
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): it cannot look through the asm
        return static_cast<void**>(memset(block, 0, size));
    }
    return static_cast<void**>(malloc(size_t{capacity} * sizeof(void*)));
}

// The elements in a block for another capacity. realloc saves the copy wherever a larger block can
// grow in place: 1e5 adds take 0.38 ms, 1.48 ms with a calloc and a copy.
void** resizedBlock(const Vector* vector, uint32_t capacity) {
    if (capacity > cachedBlock) {
        return static_cast<void**>(realloc(vector->data, size_t{capacity} * sizeof(void*)));
    }
    void** block = allocateSlots(capacity);
    std::copy_n(vector->data, vector->size, block);
    free(vector->data);
    return block;
}

void releaseSlots(Vector* vector) {
    free(vector->data);
    vector->data = nullptr;
    vector->capacity = 0;
}

// Moves the elements into a block of the given capacity whose other slots are zero.
void changeCapacity(Vector* vector, uint32_t capacity) {
    if (capacity == 0) {
        return releaseSlots(vector);
    }
    const uint32_t old = vector->capacity;
    if (std::max(old, capacity) <= smallestBlock && old > 0) {
        std::fill(vector->data + vector->size, vector->data + old, nullptr);
    } else {
        vector->data = resizedBlock(vector, capacity);
        clearTail(vector->data + vector->size, vector->data + capacity);
    }
    vector->capacity = capacity;
}

// Doubling stops at the largest count that 32 bits can hold, so that the block never ends up
// smaller than its contents; after that there is no room for another element.
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

void removeEach(const Vector* vector) {
    if (vector->onRemove != nullptr) {
        for (uint32_t i = 0; i < vector->size; ++i) {
            vector->onRemove(vector->data[i]);
        }
    }
}

// The rare cases of add and remove stay out of line and are reached by a jump: the usual ones then
// save no registers, which makes them 1.4 times as fast.
[[gnu::noinline]] uint32_t addWithGrowthOrHook(Vector* vector, void* element) {
    if (vector->size == vector->capacity) {
        changeCapacity(vector, grownCapacity(vector->size));
    }
    if (vector->onAdd != nullptr) {
        element = vector->onAdd(element);
    }
    vector->data[vector->size] = element;  // NOLINT(clang-analyzer-core.NullDereference): has grown
    return vector->size++;
}

[[gnu::noinline]] void* leaveWithShrinkOrHook(Vector* vector, void* element) {
    shrinkAfterRemove(vector);
    return leave(vector, element);
}

}  // namespace

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
}

void vn_Vector_cleanup(Vector* vector) {
    removeEach(vector);
    vector->size = 0;
    free(vector->data);
}

void vn_Vector_dtor(Vector* vector) {
    vn_Vector_cleanup(vector);
    free(vector);
}

uint32_t vn_Vector_size(const Vector* vector) {
    return vector->size;
}

bool vn_Vector_empty(const Vector* vector) {
    return vector->size == 0;
}

uint32_t vn_Vector_add(Vector* vector, void* element) {
    if (vector->size == vector->capacity || vector->onAdd != nullptr) [[unlikely]] {
        return addWithGrowthOrHook(vector, element);
    }
    vector->data[vector->size] = element;
    return vector->size++;
}

void* vn_Vector_get(const Vector* vector, uint32_t index) {
    return index < vector->size ? vector->data[index] : nullptr;
}

void* vn_Vector_set(Vector* vector, uint32_t index, void* element) {
    if (index >= vector->size) [[unlikely]] {
        return nullptr;
    }
    void* old = vector->data[index];
    vector->data[index] = element;
    return leave(vector, old);
}

void* vn_Vector_remove(Vector* vector, uint32_t index) {
    if (index >= vector->size) [[unlikely]] {
        return nullptr;
    }
    void* element = vector->data[index];
    vector->data[index] = vector->data[--vector->size];
    if (vector->shrink || vector->onRemove != nullptr) [[unlikely]] {
        return leaveWithShrinkOrHook(vector, element);
    }
    return element;
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
    removeEach(vector);
    vn_Vector_clear(vector);
}

void vn_Vector_clear(Vector* vector) {
    vector->size = 0;
    if (vector->shrink && vector->capacity > vector->initialCapacity) {
        changeCapacity(vector, vector->initialCapacity);
    }
}
