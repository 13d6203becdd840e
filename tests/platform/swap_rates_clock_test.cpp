// Swap rates by a clock that the test sets: the linker redirects the library's gettimeofday() to
// the wrapper here. Each test reads in a fresh process, because a process keeps its last reading.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/process_sources.h"
#include "support/child_checks.h"
#include "support/temporary_folder.h"

namespace {

constexpr int64_t start = 1'700'000'000'000;  // milliseconds since 1970

int64_t shownTime = 0;
int64_t timePerLook = 0;  // how far the clock moves after each look at it

struct Rates {
    int result = -1;
    double in = -1.0;  // the values before the call
    double out = -2.0;

    bool operator==(const Rates&) const = default;
};

// The rates of a call at the given time, which lasts the given time.
Rates ratesAt(int64_t time, const std::string& path, int64_t duration = 0) {
    shownTime = time;
    timePerLook = duration;
    Rates read;
    read.result = vncommon::swapRates(path.c_str(), &read.in, &read.out);
    return read;
}

}  // namespace

extern "C" int __wrap_gettimeofday(timeval* time, void*);
extern "C" int __wrap_gettimeofday(timeval* time, void*) {
    *time = {shownTime / 1000, shownTime % 1000 * 1000 + 999};
    shownTime += timePerLook;
    return 0;
}

VN_CHILD(holdsForATenthOfASecond) {
    const TemporaryFolder folder;
    const std::string none = folder / "none";
    const std::string file = folder.write("first", "pswpin 1000\npswpout 3000\n");
    constexpr double since1970 = static_cast<double>(start) / 1000.0;
    const Rates first = ratesAt(start, file, 700);
    CHECK((first == Rates{0, 1000 / since1970, 3000 / since1970}));

    const int64_t ended = start + 700;
    for (const int64_t time : {ended, ended + 100, ended - 1, start - 1'000'000}) {
        CHECK(ratesAt(time, none) == first);
    }
    CHECK(ratesAt(ended + 101, none).result == ENOENT);
    const std::string later = folder.write("later", "pswpin 1010\npswpout 3101\n");
    CHECK((ratesAt(ended + 101, later) == Rates{0, 10 / 0.101, 101 / 0.101}));
    return 0;
}

VN_CHILD(countsAMalformedFileAsAReading) {
    const TemporaryFolder folder;
    const std::string none = folder / "none";
    const Rates zero = {0, 0.0, 0.0};
    CHECK(ratesAt(start, folder.write("zero", "pswpin 0\npswpout 0\n")) == zero);
    CHECK((ratesAt(start + 500, folder.write("broken", "no_blank\n"), 60) == Rates{.result = 9}));
    const int64_t ended = start + 560;
    CHECK(ratesAt(ended + 100, none) == zero);
    const std::string file = folder.write("later", "pswpin 50\npswpout 100\n");
    CHECK((ratesAt(ended + 200, file) == Rates{0, 50 / 0.2, 100 / 0.2}));
    return 0;
}

TEST(SwapRatesByTheClock, HoldForATenthOfASecondAfterTheReading) {
    expectSuccess("holdsForATenthOfASecond");
}

TEST(SwapRatesByTheClock, CountAMalformedFileAsAReading) {
    expectSuccess("countsAMalformedFileAsAReading");
}
