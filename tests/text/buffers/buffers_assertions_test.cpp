// Broken invariants and uses after destruction: builds with assertions report them, release builds
// contain no assertion.
#include <vncommon/buffers.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "support/child_process.h"

namespace {

VN_CHILD(bytesBeyondTheCapacity) {
    CByteBuffer buffer;
    vn_bytebufInit(&buffer, 4);
    buffer.size = 5;
    const uint64_t size = vn_bytebufGetSize(&buffer);
    buffer.size = 0;
    vn_bytebufDestroy(&buffer, 1);
    return size == 5 ? 0 : 1;
}

#if defined(VN_ASSERTIONS)

VN_CHILD(bytesAfterDestruction) {
    CByteBuffer buffer;
    vn_bytebufInit(&buffer, 4);
    vn_bytebufDestroy(&buffer, 1);
    return static_cast<int>(vn_bytebufAppendByte(&buffer, 'a'));
}

VN_CHILD(stringWithoutCapacity) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 4);
    buffer.capacity = 0;
    return vn_strbufAppendString(&buffer, "a") != nullptr ? 1 : 2;
}

VN_CHILD(stringAfterDestruction) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 4);
    vn_strbufDestroy(&buffer, 1);
    return vn_strbufAppendString(&buffer, "a") != nullptr ? 1 : 2;
}

TEST(BufferAssertions, ReportBrokenRecordsAndUsesAfterDestruction) {
    for (const char* name : {"bytesBeyondTheCapacity", "bytesAfterDestruction",
                             "stringWithoutCapacity", "stringAfterDestruction"}) {
        SCOPED_TRACE(name);
        const ChildResult child = runChild(name);
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_THAT(child.err, testing::HasSubstr("assertion failed"));
    }
}

#else

TEST(BufferAssertions, AreNotInRelease) {
    const ChildResult child = runChild("bytesBeyondTheCapacity");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

#endif

// A buffer that keeps its block for the caller stays as it is.
TEST(BufferAssertions, DestructionThatKeepsTheBlockKeepsTheRecord) {
    CStringBuffer text;
    vn_strbufInit(&text, 0);
    vn_strbufAppendString(&text, "kept");
    vn_strbufDestroy(&text, 0);
    EXPECT_STREQ(vn_strbufGetString(&text), "kept");
    EXPECT_EQ(vn_strbufGetSize(&text), 4u);
    vn_strbufDestroy(&text, 1);
}

}  // namespace
