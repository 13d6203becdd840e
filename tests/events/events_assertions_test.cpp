// Broken invariants and uses after destruction: builds with assertions report them, release builds
// contain no assertion.
#include <vncommon/event_writer.h>
#include <vncommon/timestamp_set.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "support/child_process.h"

namespace {

VN_CHILD(setWithoutFunctions) {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    set->functions = nullptr;
    const uint32_t size = VN_TimestampSet_getSize(set);
    set->functions = &VN_TimestampSetFunctions;
    VN_TimestampSet_dtor(set);
    return static_cast<int>(size);
}

#if defined(VN_ASSERTIONS)

VN_CHILD(setDestroyedTwice) {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    VN_TimestampSet_dtor(set);
    VN_TimestampSet_dtor(set);
    return 1;
}

VN_CHILD(setAfterDestruction) {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    VN_TimestampSet_dtor(set);
    VN_TimestampSet_addTime(set, 1, 2.0);
    return 1;
}

VN_CHILD(writerWithoutValues) {
    VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    writer->values = nullptr;
    VN_EventWriter_addInt(writer, 1);
    return 1;
}

VN_CHILD(childAddedTwice) {
    VN_EventWriter* child = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    VN_EventWriter_addRefValue(writer, child);
    VN_EventWriter_addRefValue(writer, child);
    VN_EventWriter_dtor(writer);
    return 1;
}

TEST(EventAssertions, ReportBrokenRecordsAndUsesAfterDestruction) {
    for (const char* name : {"setWithoutFunctions", "setDestroyedTwice", "setAfterDestruction",
                             "writerWithoutValues", "childAddedTwice"}) {
        SCOPED_TRACE(name);
        const ChildResult child = runChild(name, {.environment = {{"VN_OBJECTPOOL_DISABLED", {}}}});
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_THAT(child.err, testing::HasSubstr("assertion failed"));
    }
}

#else

TEST(EventAssertions, AreNotInRelease) {
    const ChildResult child = runChild("setWithoutFunctions");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

#endif

// A set that comes from the pool again works like a new one.
TEST(EventAssertions, SetFromThePoolIsInUse) {
    for (int i = 0; i < 3; ++i) {
        VN_TimestampSet* set = VN_TimestampSet_ctor();
        VN_TimestampSet_addTime(set, 1, 2.0);
        EXPECT_EQ(VN_TimestampSet_findTime(set, 1), 2.0);
        VN_TimestampSet_dtor(set);
    }
}

}  // namespace
