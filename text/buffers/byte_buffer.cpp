// The byte buffer. As in the string buffer, an outgrown block lives until its source is copied.
#include <vncommon/buffers.h>

#include <cstring>

#include "text/buffers/buffer_growth.h"

namespace vncommon {
namespace {

// Moves the buffer to a new block of the given capacity, with the contents at offset. Returns the
// previous block.
[[gnu::cold, gnu::noinline]] uint8_t* moveToBlock(CByteBuffer* buffer, uint64_t capacity,
                                                  uint64_t offset) {
    VN_ASSERT(buffer->size <= capacity && offset <= capacity - buffer->size);
    auto* block = static_cast<uint8_t*>(vn_malloc(capacity));
    memcpy(block + offset, buffer->data, buffer->size);
    uint8_t* replaced = buffer->data;
    buffer->data = block;
    buffer->capacity = capacity;
    return replaced;
}

// Makes room for length more bytes; the contents of a new block begin at offset.
ReplacedBlock reserve(CByteBuffer* buffer, uint64_t length, uint64_t offset = 0) {
    VN_ASSERT(isValid(buffer));
    const uint64_t need = addSizes(buffer->size, length);
    if (need <= buffer->capacity) [[likely]] {
        return ReplacedBlock(nullptr);
    }
    return ReplacedBlock(moveToBlock(buffer, grownCapacity(need), offset));
}

bool isInside(const CByteBuffer* buffer, const uint8_t* pointer) {
    const auto block = reinterpret_cast<uintptr_t>(buffer->data);
    return reinterpret_cast<uintptr_t>(pointer) - block < buffer->size;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

uint8_t* vn_bytebufInit(CByteBuffer* buffer, uint64_t initialCapacity) {
    buffer->size = 0;
    buffer->capacity = initialCapacity != 0 ? initialCapacity : defaultCapacity;
    buffer->data = static_cast<uint8_t*>(vn_malloc(buffer->capacity));
    return buffer->data;
}

void vn_bytebufDestroy(CByteBuffer* buffer, int freeData) {
    VN_ASSERT(isValid(buffer));
    if (freeData != 0) {
        vn_free(buffer->data);
        markEnded(buffer);
    }
}

uint8_t* vn_bytebufAppendString(CByteBuffer* buffer, const char* text) {
    if (text == nullptr) {
        text = "null";
    }
    return vn_bytebufAppendBytes(buffer, text, strlen(text));
}

uint8_t* vn_bytebufAppendBytes(CByteBuffer* buffer, const void* bytes, uint64_t length) {
    if (bytes == nullptr) {
        length = 0;
    }
    const ReplacedBlock replaced = reserve(buffer, length);
    uint8_t* start = buffer->data + buffer->size;
    if (length != 0) {
        memcpy(start, bytes, length);
    }
    buffer->size += length;
    VN_ASSERT(isValid(buffer));
    return start;
}

uint64_t vn_bytebufAppendByte(CByteBuffer* buffer, int byte) {
    VN_ASSERT(isValid(buffer));
    const uint64_t index = buffer->size;
    if (index >= buffer->capacity) [[unlikely]] {
        const uint64_t need = addSizes(index, 1);
        vn_free(moveToBlock(buffer, grownCapacity(need), 0));
    }
    buffer->data[index] = static_cast<uint8_t>(byte);
    buffer->size = index + 1;
    return index;
}

void vn_bytebufInsertBytesAtStart(CByteBuffer* buffer, const void* bytes, uint64_t length) {
    if (bytes == nullptr || length == 0) {
        return;
    }
    const auto* source = static_cast<const uint8_t*>(bytes);
    const uint8_t* block = buffer->data;
    const ReplacedBlock replaced = reserve(buffer, length, length);
    if (buffer->data == block) {  // did not grow: the contents must still be moved
        if (isInside(buffer, source)) {
            source += length;
        }
        memmove(buffer->data + length, buffer->data, buffer->size);
    }
    memcpy(buffer->data, source, length);
    buffer->size += length;
    VN_ASSERT(isValid(buffer));
}

void vn_bytebufTruncate(CByteBuffer* buffer, uint64_t newSize) {
    VN_ASSERT(isValid(buffer));
    if (buffer->size <= newSize) {
        return;
    }
    buffer->size = newSize;
    if (isWasteful(buffer->capacity, newSize)) {
        vn_free(moveToBlock(buffer, newSize * 2, 0));
    }
}

uint64_t vn_bytebufGetSize(const CByteBuffer* buffer) {
    VN_ASSERT(isValid(buffer));
    return buffer->size;
}

uint8_t* vn_bytebufGetBytes(const CByteBuffer* buffer) {
    VN_ASSERT(isValid(buffer));
    return buffer->data;
}
