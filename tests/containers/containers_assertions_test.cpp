// Broken invariants and uses after cleanup: builds with assertions report them, release builds
// contain no assertion.
#include <vncommon/hashmap.h>
#include <vncommon/queue.h>
#include <vncommon/vector.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "support/child_process.h"

namespace {

VN_CHILD(vectorWithTooManyElements) {
    Vector vector;
    vn_Vector_init(&vector, nullptr, nullptr, nullptr, 4, 0);
    vector.size = 5;
    const uint32_t size = vn_Vector_size(&vector);
    vector.size = 0;
    vn_Vector_cleanup(&vector);
    return size == 5 ? 0 : 1;
}

#if defined(VN_ASSERTIONS)

VN_CHILD(vectorAfterCleanup) {
    Vector vector;
    vn_Vector_init(&vector, nullptr, nullptr, nullptr, 4, 0);
    vn_Vector_cleanup(&vector);
    return static_cast<int>(vn_Vector_add(&vector, nullptr));
}

VN_CHILD(emptyVectorAfterCleanup) {
    Vector vector;
    vn_Vector_init(&vector, nullptr, nullptr, nullptr, 0, 0);
    vn_Vector_cleanup(&vector);
    return vn_Vector_empty(&vector) ? 1 : 2;
}

VN_CHILD(mapWithTooManyEntries) {
    HashMap map;
    vn_HashMap_init(&map, nullptr, nullptr, nullptr, nullptr, 16, 0);
    map.entryFill = map.entryCapacity + 1;
    return vn_HashMap_addQuick(&map, &map, nullptr) != nullptr ? 1 : 2;
}

VN_CHILD(mapAfterCleanup) {
    HashMap map;
    vn_HashMap_init(&map, nullptr, nullptr, nullptr, nullptr, 16, 0);
    vn_HashMap_cleanup(&map);
    return vn_HashMap_exists(&map, &map) ? 1 : 2;
}

VN_CHILD(iteratorAfterRemoval) {
    HashMap* map = vn_HashMap_ctor(nullptr, nullptr, nullptr, nullptr, 16, 0);
    vn_HashMap_addQuick(map, map, nullptr);
    vn_HashMap_addQuick(map, nullptr, nullptr);
    HashMapIterator* iterator = vn_HashMap_first(map);
    vn_HashMap_remove(map, vn_HashMapIterator_key(iterator));
    const bool moved = vn_HashMapIterator_next(iterator);
    vn_HashMapIterator_dtor(iterator);
    vn_HashMap_dtor(map);
    return moved ? 1 : 2;
}

VN_CHILD(queueWithTooManyElements) {
    vn_threadInit();
    vn_qtsQueue queue;
    vn_qtsInit(&queue, 0);
    queue.count = 2;
    return static_cast<int>(vn_qtsSize(&queue));
}

VN_CHILD(queueDestroyedTwice) {
    vn_threadInit();
    vn_qtsQueue queue;
    vn_qtsInit(&queue, 0);
    vn_qtsDestroy(&queue);
    vn_qtsDestroy(&queue);
    return 1;
}

TEST(ContainerAssertions, ReportBrokenRecordsAndUsesAfterCleanup) {
    for (const char* name :
         {"vectorWithTooManyElements", "vectorAfterCleanup", "emptyVectorAfterCleanup",
          "mapWithTooManyEntries", "mapAfterCleanup", "iteratorAfterRemoval",
          "queueWithTooManyElements", "queueDestroyedTwice"}) {
        SCOPED_TRACE(name);
        const ChildResult child = runChild(name);
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_THAT(child.err, testing::HasSubstr("assertion failed"));
    }
}

#else

TEST(ContainerAssertions, AreNotInRelease) {
    const ChildResult child = runChild("vectorWithTooManyElements");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

#endif

}  // namespace
