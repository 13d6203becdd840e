// Code that runs after the library's destructors: late exit handlers, threads that nobody has
// stopped.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include <vncommon/threads.h>

#include "support/child_process.h"

namespace {

bool isChild = false;
bool knewItsNumber = false;

// The library has given its slot back, and the next one made is the same.
void countThreadAfterDestructors() {
    if (!isChild) {
        return;
    }
    pthread_key_t other;
    pthread_key_create(&other, nullptr);
    int value = 0;
    pthread_setspecific(other, &value);
    const bool separate = vn_getCountedThreadId() != reinterpret_cast<uint64_t>(&value);
    pthread_setspecific(other, nullptr);
    vn_getCountedThreadId();
    const bool untouched = pthread_getspecific(other) == nullptr;
    _exit(knewItsNumber && separate && untouched ? 0 : 1);
}

// Registered before any constructor runs, so that it is called after every destructor.
void registerFirst() {
    atexit(countThreadAfterDestructors);
}
[[gnu::used, gnu::section(".preinit_array")]] void (*const atStart)() = registerFirst;

}  // namespace

VN_CHILD(endsWithAnotherSlot) {
    isChild = true;
    knewItsNumber = vn_getCountedThreadId() != 0;
    exit(2);
}

TEST(AfterDestructors, CountedThreadIdsUseNoSlotOfOthers) {
    const ChildResult child = runChild("endsWithAnotherSlot");
    EXPECT_EQ(child.exitStatus, 0) << child.err;
}
