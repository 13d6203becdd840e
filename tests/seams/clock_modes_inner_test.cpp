// Before 2004 and after 2038 the library computes a stamp's seconds by a division of doubles. These
// stamps, too, must be the same in every rounding mode of the host.
#include <fenv.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <vncommon/timestamp_set.h>

namespace {

timeval shownTime;

}  // namespace

extern "C" int __wrap_gettimeofday(timeval* time, void*) {
    *time = shownTime;
    return 0;
}

TEST(ClockModes, FarTimesInEveryRoundingMode) {
    for (const time_t second : {time_t{1}, time_t{1} << 29, time_t{1} << 32}) {
        for (const suseconds_t microsecond : {0, 1, 100'001, 333'333, 999'999}) {
            shownTime = {second, microsecond};
            const double expected = VN_TimestampSet_getRelativeTime();
            for (const int rounding : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
                fesetround(rounding);
                const double time = VN_TimestampSet_getRelativeTime();
                const int after = fegetround();
                fesetround(FE_TONEAREST);
                EXPECT_EQ(time, expected) << second << '.' << microsecond << ", " << rounding;
                EXPECT_EQ(after, rounding);
            }
        }
    }
}
