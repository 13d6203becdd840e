// Assertions of the platform family: what they report, and that a release build has none.
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <new>

#include <vncommon/threads.h>

#include "platform/alive_mark.h"
#include "platform/assertion.h"
#include "platform/fork_safe_mutex.h"
#include "platform/line_reader.h"
#include "platform/mutex_lock.h"
#include "platform/owned_lock.h"
#include "support/failed_assertion.h"

namespace {

std::string contentOf(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

#if defined(VN_ASSERTIONS)

constexpr bool assertionsAreOn = true;

VN_CHILD(failsAnAssertion) {
    const size_t count = arguments.size();
    VN_ASSERT(count == 0);
    VN_ASSERT(count + 1 == 3);
    return 9;
}

TEST(Assertion, ReportsFileLineFunctionAndCondition) {
    const ChildResult child = runChild("failsAnAssertion");
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.out, "");
    EXPECT_THAT(
        child.err,
        testing::MatchesRegex("[^\n]*platform_assertions_test.cpp:[0-9]+: vnChild_failsAnAssertion:"
                              " assertion failed: count [+] 1 == 3\n"));
}

VN_CHILD(failsWithALongCondition) {
    vncommon::failAssertion(std::string(5000, 'x').c_str(), "f.cpp", 7, "g");
}

TEST(Assertion, CutsALongReport) {
    const ChildResult child = runChild("failsWithALongCondition");
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.err,
              ("f.cpp:7: g: assertion failed: " + std::string(5000, 'x')).substr(0, 1023));
}

VN_CHILD(unlocksTwice) {
    vncommon::OwnedLock lock;
    lock.lock();
    lock.unlock();
    lock.unlock();
    return 9;
}

VN_CHILD(locksTwice) {
    vncommon::OwnedLock lock;
    lock.lock();
    lock.lock();
    return 9;
}

VN_CHILD(endsAForkThatIsNotPrepared) {
    vncommon::OwnedLock lock;
    return lock.endFork() ? 9 : 8;
}

TEST(OwnedLockAssertions, CatchCallsWithoutTheLock) {
    expectFailedAssertion("unlocksTwice", "isHeldByCaller()");
    expectFailedAssertion("locksTwice", "!isHeldByCaller()");
    expectFailedAssertion("endsAForkThatIsNotPrepared", "isHeldByCaller()");
}

VN_CHILD(unlocksAFreeMutex) {
    vncommon::ForkSafeMutex mutex{.mutex = PTHREAD_MUTEX_INITIALIZER};
    return mutex.unlock();
}

TEST(ForkSafeMutexAssertions, CatchAnUnlockWithoutALock) {
    expectFailedAssertion("unlocksAFreeMutex",
                          "holder.load(std::memory_order_relaxed) == pthread_self()");
}

VN_CHILD(locksNoMutex) {
    vn_Mutex* volatile none = nullptr;
    vn_Mutex_lock(none);
    return 9;
}

VN_CHILD(waitsForNoSemaphore) {
    vn_Semaphore* volatile none = nullptr;
    vn_Semaphore_wait(none);
    return 9;
}

TEST(ThreadAssertions, CatchNull) {
    expectFailedAssertion("locksNoMutex", "mutex != nullptr");
    expectFailedAssertion("waitsForNoSemaphore", "semaphore != nullptr");
}

VN_CHILD(readsAfterDestruction) {
    alignas(vncommon::LineReader) char storage[sizeof(vncommon::LineReader)];
    auto* reader = new (storage) vncommon::LineReader("/proc/self/status");
    char line[64];
    if (!reader->next(line)) {
        return 8;
    }
    reader->~LineReader();
    return reader->next(line) ? 9 : 8;
}

TEST(LineReaderAssertions, CatchUseAfterDestruction) {
    expectFailedAssertion("readsAfterDestruction", "isValid()");
}

TEST(AliveMark, IsSetUntilCleared) {
    vncommon::AliveMark mark;
    EXPECT_TRUE(mark.isSet());
    mark.clear();
    EXPECT_FALSE(mark.isSet());
    mark = {};
    EXPECT_TRUE(mark.isSet());
}

#else

constexpr bool assertionsAreOn = false;

int evaluations = 0;

[[maybe_unused]] bool countedFalse() {
    ++evaluations;
    return false;
}

TEST(Assertion, IsNotEvaluatedInARelease) {
    VN_ASSERT(countedFalse());
    EXPECT_EQ(evaluations, 0);
}

TEST(AliveMark, TakesNoRoomInARelease) {
    struct Marked {
        void* pointer;
        [[no_unique_address]] vncommon::AliveMark mark;
    };
    EXPECT_EQ(sizeof(Marked), sizeof(void*));
}

#endif

TEST(Assertion, TextsAreOnlyInALibraryWithAssertions) {
    const std::string library = contentOf(VN_LIBRARY);
    ASSERT_GT(library.size(), 100'000U);
    EXPECT_EQ(library.find("assertion failed") != std::string::npos, assertionsAreOn);
    EXPECT_EQ(library.find("isHeldByCaller()") != std::string::npos, assertionsAreOn);
}

}  // namespace
