// Swap rates while another thread reads them, too, and while exceptions trap. Each test reads in a
// fresh process, because the last reading is kept for the life of one.
#include <fcntl.h>
#include <fenv.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include "platform/process_sources.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace {

struct Rates {
    int result = -1;
    double in = -1;
    double out = -1;
};

Rates rates(const std::string& path) {
    Rates read;
    read.result = vncommon::swapRates(path.c_str(), &read.in, &read.out);
    return read;
}

constexpr int cannotTrap = 2;

}  // namespace

// One thread has decided to read and is delayed; meanwhile another thread completes a reading. The
// pipe keeps the first thread in open() until this thread opens the other end.
VN_CHILD(otherThreadReadsMeanwhile) {
    const TemporaryFolder folder;
    const std::string none = folder.write("none", "pswpin 0\npswpout 0\n");
    const std::string slow = folder / "slow";
    if (rates(none).result != 0 || mkfifo(slow.c_str(), 0600) != 0) {
        return 1;
    }
    usleep(130 * 1000);  // the first reading holds for 100 ms

    Rates delayed;
    std::thread thread([&] { delayed = rates(slow); });
    const int pipe = open(slow.c_str(), O_WRONLY);
    const Rates other = rates(none);
    constexpr char text[] = "pswpin 1000000\npswpout 2000000\n";
    const bool written = write(pipe, text, sizeof text - 1) == sizeof text - 1;
    close(pipe);
    thread.join();
    fprintf(stderr, "%g and %g pages per second\n", delayed.in, delayed.out);
    // The time between the first reading and the delayed one is positive and less than a day.
    const bool plausible = delayed.in > 10 && delayed.in < 1e8;
    return written && other.result == 0 && delayed.result == 0 && plausible &&
                   delayed.out > 1.99 * delayed.in && delayed.out < 2.01 * delayed.in
               ? 0
               : 1;
}

// 1 when the call fails or the exceptions do not trap any more.
VN_CHILD(readsWhileExceptionsTrap) {
    const TemporaryFolder folder;
    const std::string file = folder.write("vmstat", "pswpin 1\npswpout 7\n");
    if (feenableexcept(FE_ALL_EXCEPT) == -1) {
        return cannotTrap;
    }
    const int result = rates(file).result;
    return fedisableexcept(FE_ALL_EXCEPT) == FE_ALL_EXCEPT && result == 0 ? 0 : 1;
}

TEST(SwapRatesWithOthers, OtherThreadReadsMeanwhile) {
    const ChildResult child = runChild("otherThreadReadsMeanwhile");
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << ", " << child.err;
}

TEST(SwapRatesWithOthers, NoTraps) {
    const ChildResult child = runChild("readsWhileExceptionsTrap");
    if (child.exitStatus == cannotTrap) {
        GTEST_SKIP() << "this processor cannot trap";
    }
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << ", " << child.err;
}
