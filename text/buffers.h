// What both buffers share: the growth figures, and the life of a block that growth replaced.
#ifndef VN_TEXT_BUFFERS_H
#define VN_TEXT_BUFFERS_H

#include <vncommon/buffers.h>
#include <vncommon/failure.h>

namespace vncommon {

constexpr uint64_t defaultCapacity = 20;

// a + b; a sum beyond 64 bits is a block that nobody can have.
inline uint64_t addSizes(uint64_t a, uint64_t b) {
    uint64_t sum;
    if (__builtin_add_overflow(a, b, &sum)) [[unlikely]] {
        vn_checkMemory(nullptr);
    }
    return sum;
}

inline uint64_t grownCapacity(uint64_t need) {
    return need < 5000 ? need * 2 : addSizes(need, need / 2);
}

// Whether a block is much too large for what is left in it.
inline bool isWasteful(uint64_t capacity, uint64_t size) {
    return size < capacity && capacity - size > 20000 && size < capacity - size;
}

// The block that an append outgrew, or null. It is released only when the append is over: the
// source may lie in it.
class ReplacedBlock {
  public:
    explicit ReplacedBlock(void* replaced) : block(replaced) {}
    ~ReplacedBlock() {
        if (block != nullptr) [[unlikely]] {
            vn_free(block);
        }
    }
    ReplacedBlock(const ReplacedBlock&) = delete;
    ReplacedBlock& operator=(const ReplacedBlock&) = delete;

  private:
    void* block;
};

// Moves the buffer to a block with room for need characters and gives back the one before. Kept
// out of its callers, whose usual path then needs no registers of its own.
[[gnu::cold, gnu::noinline]] char* growString(CStringBuffer* buffer, uint64_t need);

// Makes room for length more characters and the terminator.
inline ReplacedBlock reserve(CStringBuffer* buffer, uint64_t length) {
    const uint64_t need = addSizes(buffer->size, length);
    return ReplacedBlock(need < buffer->capacity ? nullptr : growString(buffer, need));
}

}  // namespace vncommon

#endif
