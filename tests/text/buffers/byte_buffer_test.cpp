// The byte buffer: contents compared with std::string, block sizes with the growth rule.
#include <gtest/gtest.h>
#include <vncommon/buffers.h>
#include <vncommon/failure.h>

#include <csignal>
#include <cstring>
#include <random>
#include <string>

#include "support/child_process.h"

namespace {

struct Buffer : CByteBuffer {
    explicit Buffer(uint64_t initialCapacity = 0) { vn_bytebufInit(this, initialCapacity); }
    ~Buffer() { vn_bytebufDestroy(this, 1); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    std::string bytes() const { return std::string(reinterpret_cast<const char*>(data), size); }
    void append(const std::string& more) { vn_bytebufAppendBytes(this, more.data(), more.size()); }
};

uint64_t capacityFor(uint64_t need) {
    return need < 5000 ? need + need : need + need / 2;
}

}  // namespace

TEST(ByteBuffer, InitAndDestroy) {
    CByteBuffer buffer;
    uint8_t* block = vn_bytebufInit(&buffer, 0);
    EXPECT_EQ(block, buffer.data);
    EXPECT_EQ(buffer.size, 0u);
    EXPECT_EQ(buffer.capacity, 20u);
    vn_bytebufAppendByte(&buffer, 7);
    vn_bytebufDestroy(&buffer, 0);
    EXPECT_EQ(block[0], 7);
    vn_free(block);

    vn_bytebufInit(&buffer, 3);
    EXPECT_EQ(buffer.capacity, 3u);
    vn_bytebufDestroy(&buffer, 1);
}

TEST(ByteBuffer, FieldsLieInOrder) {
    EXPECT_EQ(sizeof(CByteBuffer), 24u);
    EXPECT_EQ(offsetof(CByteBuffer, size), 0u);
    EXPECT_EQ(offsetof(CByteBuffer, capacity), 8u);
    EXPECT_EQ(offsetof(CByteBuffer, data), 16u);
}

TEST(ByteBuffer, GrowsOnlyWhenFull) {
    Buffer buffer;
    for (uint64_t i = 0; i < 20; ++i) {
        EXPECT_EQ(vn_bytebufAppendByte(&buffer, static_cast<int>(i)), i);
        EXPECT_EQ(buffer.capacity, 20u);
    }
    const uint8_t* before = buffer.data;
    EXPECT_EQ(vn_bytebufAppendByte(&buffer, 0x1ff), 20u);
    EXPECT_EQ(buffer.capacity, 42u);
    EXPECT_NE(buffer.data, before);
    EXPECT_EQ(buffer.data[0], 0);
    EXPECT_EQ(buffer.data[19], 19);
    EXPECT_EQ(buffer.data[20], 0xff);
}

TEST(ByteBuffer, GrowsByHalfFromFiveThousandOn) {
    for (const uint64_t need : {21u, 4999u, 5000u, 5001u, 100001u}) {
        Buffer buffer;
        buffer.append(std::string(need, 'x'));
        EXPECT_EQ(buffer.capacity, capacityFor(need));
        EXPECT_EQ(buffer.bytes(), std::string(need, 'x'));
    }
}

TEST(ByteBuffer, AppendsGiveWhereTheyBegin) {
    Buffer buffer;
    EXPECT_EQ(vn_bytebufAppendString(&buffer, "one"), buffer.data);
    EXPECT_EQ(vn_bytebufAppendBytes(&buffer, "t\0o", 3), buffer.data + 3);
    EXPECT_EQ(vn_bytebufAppendString(&buffer, nullptr), buffer.data + 6);
    EXPECT_EQ(vn_bytebufAppendString(&buffer, ""), buffer.data + 10);
    EXPECT_EQ(vn_bytebufAppendBytes(&buffer, nullptr, 0), buffer.data + 10);
    EXPECT_EQ(vn_bytebufAppendBytes(&buffer, nullptr, 1000), buffer.data + 10);
    EXPECT_EQ(vn_bytebufGetSize(&buffer), 10u);
    EXPECT_EQ(vn_bytebufGetBytes(&buffer), buffer.data);
    EXPECT_EQ(buffer.bytes(), std::string("onet\0onull", 10));
}

TEST(ByteBuffer, KeepsZeroBytesWhenItGrowsAndShrinks) {
    Buffer buffer;
    buffer.append(std::string("a\0b", 3));
    buffer.append(std::string(30000, '\0'));
    buffer.append("c");
    EXPECT_EQ(buffer.bytes(), std::string("a\0b", 3) + std::string(30000, '\0') + "c");
    vn_bytebufTruncate(&buffer, 4);
    EXPECT_EQ(buffer.capacity, 8u);
    EXPECT_EQ(buffer.bytes(), std::string("a\0b\0", 4));
}

TEST(ByteBuffer, InsertsAtTheStart) {
    Buffer buffer;
    vn_bytebufInsertBytesAtStart(&buffer, "world", 5);
    vn_bytebufInsertBytesAtStart(&buffer, "hello ", 6);
    vn_bytebufInsertBytesAtStart(&buffer, "ignored", 0);
    vn_bytebufInsertBytesAtStart(&buffer, nullptr, 0);
    vn_bytebufInsertBytesAtStart(&buffer, nullptr, 9);
    EXPECT_EQ(buffer.bytes(), "hello world");
    EXPECT_EQ(buffer.capacity, 20u);
    vn_bytebufInsertBytesAtStart(&buffer, "0123456789", 10);
    EXPECT_EQ(buffer.capacity, 42u);
    EXPECT_EQ(buffer.bytes(), "0123456789hello world");
}

TEST(ByteBuffer, SourceMayLieInTheBlock) {
    for (const uint64_t capacity : {10u, 20u, 21u, 1000u}) {  // with and without growth
        Buffer buffer(capacity);
        buffer.append("0123456789");
        vn_bytebufAppendBytes(&buffer, buffer.data, buffer.size);
        EXPECT_EQ(buffer.bytes(), "01234567890123456789");
        vn_bytebufAppendBytes(&buffer, buffer.data + 3, 4);
        EXPECT_EQ(buffer.bytes(), "012345678901234567893456");

        for (const uint64_t from : {0u, 3u, 6u, 9u}) {
            Buffer inserted(capacity);
            inserted.append("0123456789");
            vn_bytebufInsertBytesAtStart(&inserted, inserted.data + from, 10 - from);
            EXPECT_EQ(inserted.bytes(), std::string("0123456789").substr(from) + "0123456789");
        }
    }
}

TEST(ByteBuffer, TruncationShrinksAWastefulBlockWithoutAMinimum) {
    struct Case {
        uint64_t capacity, newSize, expected;
    };
    for (const auto& [capacity, newSize, expected] :
         {Case{40000, 100, 200}, Case{40000, 5, 10}, Case{40000, 1, 2}, Case{40000, 0, 0},
          Case{40000, 19999, 39998}, Case{40000, 20000, 40000}, Case{40001, 20000, 40000},
          Case{20000, 0, 20000}, Case{20001, 0, 0}, Case{20100, 100, 20100}}) {
        Buffer buffer(capacity);
        buffer.append(std::string(newSize + 1, 'x'));
        vn_bytebufTruncate(&buffer, newSize + 2);
        EXPECT_EQ(buffer.size, newSize + 1);
        vn_bytebufTruncate(&buffer, newSize);
        EXPECT_EQ(buffer.capacity, expected) << capacity << " to " << newSize;
        EXPECT_EQ(buffer.bytes(), std::string(newSize, 'x'));
        vn_bytebufAppendByte(&buffer, 'y');  // also grows an empty block
        EXPECT_EQ(buffer.bytes(), std::string(newSize, 'x') + 'y');
    }
}

VN_CHILD(appendBytesBeyond64Bits) {
    CByteBuffer buffer;
    vn_bytebufInit(&buffer, 0);
    vn_bytebufAppendString(&buffer, "12345");
    const uint64_t length = std::stoull(arguments.at(1));
    if (arguments.at(0) == "append") {
        vn_bytebufAppendBytes(&buffer, "x", length);
    } else {
        vn_bytebufInsertBytesAtStart(&buffer, "x", length);
    }
    return 0;
}

TEST(ByteBuffer, ImpossibleSizesEndTheProcess) {
    for (const char* operation : {"append", "insert"}) {
        for (const char* length :
             {"18446744073709551615", "18446744073709551611", "13000000000000000000",
              "12297829382473034406", "6000000000000000000"}) {
            const ChildResult child = runChild(
                "appendBytesBeyond64Bits",
                {.environment = {{"ASAN_OPTIONS", "allocator_may_return_null=1:handle_abort=0"}},
                 .arguments = {operation, length}});
            EXPECT_EQ(child.signal, SIGABRT) << operation << " " << length;
            EXPECT_NE(child.err.find("Fatal error: malloc or similar returned null"),
                      std::string::npos)
                << child.err;
        }
    }
}

TEST(ByteBuffer, BehavesLikeAStringWithACapacity) {
    std::mt19937 random(31);
    for (int round = 0; round < 200; ++round) {
        Buffer buffer;
        std::string model;
        uint64_t capacity = 20;
        const auto grow = [&](uint64_t added) {
            const uint64_t need = model.size() + added;
            capacity = need > capacity ? capacityFor(need) : capacity;
        };
        for (int step = 0; step < 60; ++step) {
            std::string bytes(random() % (step % 10 == 0 ? 20000 : 40), '\0');
            for (char& byte : bytes) {
                byte = static_cast<char>(random());
            }
            switch (random() % 4) {
                case 0:
                    grow(bytes.size());
                    buffer.append(bytes);
                    model += bytes;
                    break;
                case 1:
                    grow(bytes.size());
                    vn_bytebufInsertBytesAtStart(&buffer, bytes.data(), bytes.size());
                    model.insert(0, bytes);
                    break;
                case 2:
                    grow(1);
                    vn_bytebufAppendByte(&buffer, 'c');
                    model += 'c';
                    break;
                case 3: {
                    const uint64_t newSize = random() % (model.size() + 20);
                    vn_bytebufTruncate(&buffer, newSize);
                    if (newSize < model.size()) {
                        model.resize(newSize);
                        if (newSize + 20000 < capacity && newSize * 2 < capacity) {
                            capacity = newSize * 2;
                        }
                    }
                }
            }
            ASSERT_EQ(buffer.bytes(), model);
            ASSERT_EQ(buffer.capacity, capacity);
        }
    }
}
