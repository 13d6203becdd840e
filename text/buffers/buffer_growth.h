// Shared by both buffers: the growth rule, and the ownership of a block that growth replaced.
#ifndef VN_TEXT_BUFFERS_BUFFER_GROWTH_H
#define VN_TEXT_BUFFERS_BUFFER_GROWTH_H

#include <vncommon/buffers.h>
#include <vncommon/failure.h>

#include "platform/assertion.h"

namespace vncommon {

constexpr uint64_t defaultCapacity = 20;

// a + b. A sum beyond 64 bits ends the process, like exhausted memory.
inline uint64_t addSizes(uint64_t a, uint64_t b) {
    uint64_t sum;
    if (__builtin_add_overflow(a, b, &sum)) [[unlikely]] {
        vn_checkMemory(nullptr);
    }
    return sum;
}

// The record between operations. The size may exceed the capacity: see vn_strbufAppendVA.
[[maybe_unused]] inline bool isValid(const CStringBuffer* buffer) {
    return buffer->data != nullptr && buffer->capacity > 0;
}
[[maybe_unused]] inline bool isValid(const CByteBuffer* buffer) {
    return buffer->data != nullptr && buffer->size <= buffer->capacity;
}

// After an append.
[[maybe_unused]] inline bool isTerminated(const CStringBuffer* buffer) {
    return buffer->size < buffer->capacity && buffer->data[buffer->size] == '\0';
}

// After the block is freed. In builds with assertions, a later use of the record is recognised.
template <typename Buffer>
void markEnded([[maybe_unused]] Buffer* buffer) {
#if defined(VN_ASSERTIONS)
    buffer->data = nullptr;
#endif
}

inline uint64_t grownCapacity(uint64_t need) {
    return need < 5000 ? need * 2 : addSizes(need, need / 2);
}

// Whether a block is much larger than its contents.
inline bool isWasteful(uint64_t capacity, uint64_t size) {
    return size < capacity && capacity - size > 20000 && size < capacity - size;
}

// The block that an append outgrew, or null. It is released only after the append, because the
// source may be inside it.
class ReplacedBlock {
  public:
    explicit ReplacedBlock(void* replaced) : block_(replaced) {}
    ~ReplacedBlock() {
        if (block_ != nullptr) [[unlikely]] {
            vn_free(block_);
        }
    }
    ReplacedBlock(const ReplacedBlock&) = delete;
    ReplacedBlock& operator=(const ReplacedBlock&) = delete;

  private:
    void* block_;
};

// Moves the buffer to a block with room for need characters and returns the previous block. Not
// inlined, so that the usual path of its callers saves no registers.
[[gnu::cold, gnu::noinline]] char* growString(CStringBuffer* buffer, uint64_t need);

// Makes room for length more characters and the terminator.
inline ReplacedBlock reserve(CStringBuffer* buffer, uint64_t length) {
    const uint64_t need = addSizes(buffer->size, length);
    return ReplacedBlock(need < buffer->capacity ? nullptr : growString(buffer, need));
}

}  // namespace vncommon

#endif
