// Prints a checksum per function over a fixed set of arguments. The same text must come out of
// every build of the library, whatever the compiler and its flags.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include <math.h>  // signgam

#include <vncommon/maths.h>

namespace {

constexpr int randomArguments = 20000;

uint64_t bits(double x) {
    uint64_t result = 0;
    memcpy(&result, &x, sizeof result);
    return result;
}

double fromBits(uint64_t pattern) {
    double result = 0;
    memcpy(&result, &pattern, sizeof result);
    return result;
}

// SplitMix64: integers only, so that the arguments are the same everywhere.
class Random {
  public:
    uint64_t next() {
        uint64_t z = state_ += 0x9e3779b97f4a7c15U;
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }

  private:
    uint64_t state_ = 1;
};

constexpr double special[] = {0,      0x1p-1074, 0x1p-1022, 0x1p-60,  0x1p-28,  0.25,       0.5,
                              0.75,   1,         0x1.8p0,   2,        2.5,      3,          10,
                              22,     709.5,     745.5,     1e10,     0x1p31,   0x1p32,     0x1p53,
                              0x1p63, 1e22,      1e300,     0x1p1023, HUGE_VAL, (double)NAN};
constexpr int specialCount = sizeof special / sizeof *special;

// Random bits; bits with an exponent near that of 1; quarters; doubles around multiples of pi/2;
// special values of either sign.
double argument(Random& random) {
    const uint64_t pattern = random.next();
    const uint64_t choice = random.next();
    const uint64_t sign = pattern & 0x8000000000000000U;
    switch (choice % 5) {
        case 0:
            return fromBits(pattern);
        case 1:
            return fromBits((pattern & 0x800fffffffffffffU) |
                            ((1000 + (choice >> 8U) % 40) << 52U));
        case 2:
            return static_cast<double>(static_cast<int64_t>(pattern) >> 44) * 0.25;
        case 3: {
            const double multiple = static_cast<double>(pattern >> 44U) * 0x1.921fb54442d18p0;
            return fromBits((bits(multiple) + choice % 16) | sign);
        }
        default:
            return fromBits(bits(special[(choice >> 8U) % specialCount]) | sign);
    }
}

// FNV-1a over the result's bits; all NaNs count as equal.
uint64_t mix(uint64_t hash, uint64_t value) {
    return (hash ^ value ^ (value >> 32U)) * 0x100000001b3U;
}

uint64_t mix(uint64_t hash, double value) {
    return mix(hash, value != value ? 0x7ff8000000000000U : bits(value));
}

uint64_t mix(uint64_t hash, int64_t value) {
    return mix(hash, static_cast<uint64_t>(value));
}

template <typename Call>
void print(const char* name, Call call) {
    Random random;
    uint64_t hash = 0xcbf29ce484222325U;
    for (int i = 0; i < randomArguments; ++i) {
        const double x = argument(random);
        const double y = argument(random);
        hash = mix(hash, call(x, y));
    }
    printf("%s %016" PRIx64 "\n", name, hash);
}

template <typename Result>
void print(const char* name, Result (*function)(double)) {
    print(name, [function](double x, double) { return function(x); });
}

}  // namespace

int main() {
    print("pow", vn_pow);
    print("exp", vn_exp);
    print("log", vn_log);
    print("log10", vn_log10);
    print("cbrt", vn_cbrt);
    print("sin", vn_sin);
    print("cos", vn_cos);
    print("tan", vn_tan);
    print("asin", vn_asin);
    print("acos", vn_acos);
    print("atan", vn_atan);
    print("atan2", vn_atan2);
    print("sinh", vn_sinh);
    print("cosh", vn_cosh);
    print("tanh", vn_tanh);
    print("asinh", vn_asinh);
    print("acosh", vn_acosh);
    print("atanh", vn_atanh);
    print("erf", vn_erf);
    print("gammal", vn_gammal);
    print("signgam", [](double x, double) {
        vn_gammal(x);
        return static_cast<int64_t>(signgam);
    });
    print("nextafter", vn_nextafter);
    print("scalbn", [](double x, double y) {
        return vn_scalbn(x, static_cast<int>(bits(y) >> (16U + (bits(y) & 31U))));
    });
    print("fmod", vn_fmod);
    print("ilogb", vn_ilogb);
    print("int", vn_int);
    print("frac", vn_frac);
    print("exponent", vn_exponent);
    print("mantissa", vn_mantissa);
    print("bankerRound", vn_bankerRound);
    return 0;
}
