// A host may use another rounding mode, flush subnormal numbers to zero, or trap exceptions. The
// library returns the bits of the default mode and restores the host's mode.
#include <fenv.h>
#include <gtest/gtest.h>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include <fstream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <vncommon/discovery.h>
#include <vncommon/hashmap.h>

#include "seams/floating_point_calls.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace {

using namespace floatingPoint;

#ifndef VN_CALLS_PER_FUNCTION
#define VN_CALLS_PER_FUNCTION 100'000
#endif

#if defined(__x86_64__)

constexpr uint64_t flushResults = 1U << 15;
constexpr uint64_t flushArguments = 1U << 6;
constexpr uint64_t stickyFlags = 0x3f;

uint64_t controlWord() {
    return _mm_getcsr();
}
void setControlWord(uint64_t word) {
    _mm_setcsr(static_cast<unsigned>(word));
}

#elif defined(__aarch64__)

constexpr uint64_t flushResults = 1U << 24;  // one bit for arguments and results
constexpr uint64_t flushArguments = flushResults;
constexpr uint64_t stickyFlags = 0;

uint64_t controlWord() {
    uint64_t word;
    asm volatile("mrs %0, fpcr" : "=r"(word));
    return word;
}
void setControlWord(uint64_t word) {
    asm volatile("msr fpcr, %0" : : "r"(word));
}

#else

constexpr uint64_t flushResults = 0;
constexpr uint64_t flushArguments = 0;
constexpr uint64_t stickyFlags = 0;

uint64_t controlWord() {
    return static_cast<uint64_t>(fegetround());
}
void setControlWord(uint64_t word) {
    fesetround(static_cast<int>(word));
}

#endif

struct Mode {
    int rounding;
    uint64_t flushing;
};

std::ostream& operator<<(std::ostream& out, const Mode& mode) {
    return out << "rounding " << mode.rounding << ", flushing " << std::hex << mode.flushing;
}

std::vector<Mode> everyMode() {
    std::vector<Mode> modes;
    for (const int rounding : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        for (const uint64_t results : {uint64_t{0}, flushResults}) {
            for (const uint64_t arguments : {uint64_t{0}, flushArguments}) {
                modes.push_back({rounding, results | arguments});
            }
        }
    }
    return modes;
}

// The result of a call in a mode, and the control word before and after it. The assertions come
// later, because the test framework must not run in that mode.
struct Outcome {
    uint64_t result;
    uint64_t before;
    uint64_t after;
};

template <typename Call>
Outcome inMode(const Mode& mode, Call call) {
    const uint64_t usual = controlWord();
    const int usualRounding = fegetround();
    fesetround(mode.rounding);
    setControlWord(controlWord() | mode.flushing);
    Outcome outcome{};
    outcome.before = controlWord();
    outcome.result = call();
    outcome.after = controlWord();
    fesetround(usualRounding);
    setControlWord(usual);
    return outcome;
}

void expectModeKept(const Outcome& outcome) {
    EXPECT_EQ(outcome.before & ~stickyFlags, outcome.after & ~stickyFlags);
}

class FloatingPointModes : public testing::TestWithParam<Function> {};

std::string nameOf(const testing::TestParamInfo<Function>& info) {
    return info.param.name;
}

TEST_P(FloatingPointModes, SameBitsAndModeKept) {
    const std::vector<Mode> modes = everyMode();
    const Function& function = GetParam();
    Random random(1);
    int different = 0;
    int changed = 0;
    for (int i = 0; i < VN_CALLS_PER_FUNCTION; ++i) {
        const Arguments with = anyArguments(random);
        const Mode& mode = modes[static_cast<size_t>(i) % modes.size()];
        const uint64_t expected = function.result(with);
        const Outcome outcome = inMode(mode, [&] { return function.result(with); });
        changed += (outcome.before ^ outcome.after) & ~stickyFlags ? 1 : 0;
        if (outcome.result != expected && ++different <= 3) {
            ADD_FAILURE() << std::hexfloat << function << "(" << with.x << ", " << with.y << ", "
                          << with.n << ", " << with.text << ") differs, " << mode;
        }
    }
    EXPECT_EQ(different, 0) << "of " << VN_CALLS_PER_FUNCTION;
    EXPECT_EQ(changed, 0) << "of " << VN_CALLS_PER_FUNCTION;
}

INSTANTIATE_TEST_SUITE_P(All, FloatingPointModes, testing::ValuesIn(functions), nameOf);

TEST(FloatingPointModesOfHosts, ProcessorsOfAGroup) {
    const TemporaryFolder folder;
    const std::string& dir = folder.path();
    for (const auto& [quota, period] :
         {std::pair{"150000", "70000"}, std::pair{"100000", "300000"}, std::pair{"0.3", "0.1"},
          std::pair{"123456.7", "99999.9"}}) {
        std::ofstream(dir + "/cpu.max") << quota << ' ' << period << '\n';
        std::ofstream(dir + "/cpu.cfs_quota_us") << quota << '\n';
        std::ofstream(dir + "/cpu.cfs_period_us") << period << '\n';
        for (const auto function : {vn_availableCPUsCGroupsV1, vn_availableCPUsCGroupsV2}) {
            const uint64_t expected = bitsOf(function(dir.c_str()));
            for (const Mode& mode : everyMode()) {
                const Outcome outcome = inMode(mode, [&] { return bitsOf(function(dir.c_str())); });
                EXPECT_EQ(outcome.result, expected) << quota << '/' << period << ", " << mode;
                expectModeKept(outcome);
            }
        }
    }
}

// The square of a prime, too large to be exact as a double. Its square root, if rounded down, is
// less than its only divisor.
TEST(FloatingPointModesOfHosts, PrimesBesideSquares) {
    constexpr uint64_t prime = 94906319;
    const uint64_t expected = vn_nextPrime(prime * prime);
    EXPECT_NE(expected, prime * prime);
    for (const int rounding : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        const Mode mode = {rounding, 0};
        const Outcome outcome = inMode(mode, [] { return vn_nextPrime(prime * prime); });
        EXPECT_EQ(outcome.result, expected) << mode;
    }
}

// The exceptions of a call and those that the host had raised before stay raised, in every mode.
TEST(FloatingPointModesOfHosts, StickyFlags) {
    for (const Mode& mode : everyMode()) {
        const Outcome outcome = inMode(mode, [] {
            feclearexcept(FE_ALL_EXCEPT);
            vn_exp(1e4);
            vn_log(-1);
            return static_cast<uint64_t>(fetestexcept(FE_ALL_EXCEPT));
        });
        EXPECT_EQ(outcome.result, static_cast<uint64_t>(FE_OVERFLOW | FE_INEXACT | FE_INVALID))
            << mode;
        const Outcome kept = inMode(mode, [] {
            feclearexcept(FE_ALL_EXCEPT);
            feraiseexcept(FE_DIVBYZERO);
            vn_exp(0);
            return static_cast<uint64_t>(fetestexcept(FE_ALL_EXCEPT));
        });
        EXPECT_EQ(kept.result, static_cast<uint64_t>(FE_DIVBYZERO)) << mode;
    }
    feclearexcept(FE_ALL_EXCEPT);
}

constexpr int cannotTrap = 2;

// Returns 1 if a result differs or the exceptions do not trap any more.
VN_CHILD(callsEverythingWhileExceptionsTrap) {
    Random random(2);
    for (int i = 0; i < 1000; ++i) {
        const Arguments with = anyArguments(random);
        for (const Function& function : functions) {
            const uint64_t expected = function.result(with);
            feclearexcept(FE_ALL_EXCEPT);
            if (feenableexcept(FE_ALL_EXCEPT) == -1) {
                return cannotTrap;
            }
            const uint64_t result = function.result(with);
            if (fedisableexcept(FE_ALL_EXCEPT) != FE_ALL_EXCEPT || result != expected) {
                fprintf(stderr, "%s\n", function.name);
                return 1;
            }
        }
    }
    return 0;
}

// 1 when the result is wrong or the exceptions do not trap any more.
VN_CHILD(countsProcessorsWhileExceptionsTrap) {
    if (feenableexcept(FE_ALL_EXCEPT) == -1) {
        return cannotTrap;
    }
    const int count = vn_numberOfCPUs();
    return fedisableexcept(FE_ALL_EXCEPT) == FE_ALL_EXCEPT && count == 2 ? 0 : 1;
}

TEST(FloatingPointModesOfHosts, PartsOfProcessorsDoNotTrap) {
    const TemporaryFolder folder;
    folder.write("group/cpu.max", "150000 100000\n");
    const ChildResult child =
        runChild("countsProcessorsWhileExceptionsTrap",
                 {.environment = {{"VN_ASSUME_CPUS", "7"},
                                  {"VN_CGROUPS_ROOT", folder.path()},
                                  {"VN_CGROUPS_SELF", folder.write("self", "0::/group\n")}}});
    if (child.exitStatus == cannotTrap) {
        GTEST_SKIP() << "this processor cannot trap";
    }
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << ", " << child.err;
}

// In a host that enables traps, a call raises no SIGFPE, and the traps are enabled again after it.
TEST(FloatingPointModesOfHosts, NoTraps) {
    const ChildResult child = runChild("callsEverythingWhileExceptionsTrap");
    if (child.exitStatus == cannotTrap) {
        GTEST_SKIP() << "this processor cannot trap";
    }
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << ", " << child.err;
}

}  // namespace
