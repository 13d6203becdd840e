// Compares the mathematics, bit for bit, with the JDK's StrictMath, an independent build of FDLIBM
// that this program starts and that sends arguments and results through a pipe.
//
//     maths_strictmath JAVA CLASSPATH [COUNT [SEED]]
//
// COUNT is the number of random arguments per function (default 10,000; a million or more in a
// soak). All special values are tested in addition, as pairs if the function has two arguments.
// Prints a line per function; the exit status is 1 on any difference.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <string>

#include <vncommon/maths.h>

#include "platform/fdlibm/routines.h"

namespace {

using Function = std::function<double(double, double)>;

template <double (*function)(double)>
double unary(double x, double) {
    return function(x);
}

// vn_bankerRound returns an int64_t. Outside that range this returns FDLIBM's rint.
double bankerRound(double x, double) {
    const double limit = 9223372036854775808.0;
    if (!(x >= -limit && x < limit)) {
        return __fd_rint(x);
    }
    return std::copysign(static_cast<double>(vn_bankerRound(x)), x);
}

// StrictMath.getExponent differs for zeros, subnormals, infinities and NaN.
double exponent(double x, double) {
    const auto e = static_cast<double>(vn_ilogb(x));
    if (x == 0 || (e < -1022 && e >= -1074)) {
        return -1023;
    }
    return std::isfinite(x) ? e : 1024;
}

// For two zeros FDLIBM returns the first, StrictMath the second.
double next(double x, double y) {
    return x == y ? y : vn_nextafter(x, y);
}

// Converts y like StrictMath: truncated, saturated, NaN to 0.
double scale(double x, double y) {
    const double least = std::numeric_limits<int>::min();
    const double most = std::numeric_limits<int>::max();
    const double limited = std::isnan(y) ? 0 : std::fmin(std::fmax(y, least), most);
    return vn_scalbn(x, static_cast<int>(limited));
}

// log1p, expm1 and sqrt are not in the interface: the hyperbolic functions are made of them.
const std::map<std::string, Function> functions = {
    {"exp", unary<vn_exp>},
    {"expm1", unary<__fd_expm1>},
    {"log", unary<vn_log>},
    {"log10", unary<vn_log10>},
    {"log1p", unary<__fd_log1p>},
    {"cbrt", unary<vn_cbrt>},
    {"sin", unary<vn_sin>},
    {"cos", unary<vn_cos>},
    {"tan", unary<vn_tan>},
    {"asin", unary<vn_asin>},
    {"acos", unary<vn_acos>},
    {"atan", unary<vn_atan>},
    {"sinh", unary<vn_sinh>},
    {"cosh", unary<vn_cosh>},
    {"tanh", unary<vn_tanh>},
    {"floor", unary<__fd_floor>},
    {"rint", bankerRound},
    {"ilogb", exponent},
    {"pow", vn_pow},
    {"atan2", vn_atan2},
    {"fmod", vn_fmod},
    {"scalbn", scale},
    {"nextafter", next},
    {"sqrt", unary<__ieee754_sqrt>},
};

struct Record {
    double x;
    double y;
    double expected;
};

uint64_t bits(double x) {
    uint64_t result = 0;
    memcpy(&result, &x, sizeof result);
    return result;
}

// All NaNs are equal: the JVM and the processor choose the payload.
bool same(double a, double b) {
    return bits(a) == bits(b) || (std::isnan(a) && std::isnan(b));
}

bool readFully(FILE* pipe, void* target, size_t size) {
    return fread(target, 1, size, pipe) == size;
}

// Compares one block and prints the first few differences; returns their number.
uint64_t compareBlock(FILE* pipe, const char* name, uint64_t count) {
    const Function& function = functions.at(name);
    uint64_t differences = 0;
    for (uint64_t i = 0; i < count; ++i) {
        Record record{};
        if (!readFully(pipe, &record, sizeof record)) {
            fprintf(stderr, "%s: the oracle ended early\n", name);
            return differences + 1;
        }
        const double result = function(record.x, record.y);
        if (!same(result, record.expected) && ++differences <= 5) {
            printf("  %s(%a, %a) is %a, expected %a\n", name, record.x, record.y, result,
                   record.expected);
        }
    }
    printf("%-10s %9" PRIu64 " arguments, %" PRIu64 " differ\n", name, count, differences);
    return differences;
}

// Compares all blocks up to the end of the stream; also fails if a function has no block.
bool compareAll(FILE* pipe) {
    struct {
        char name[16];
        uint64_t count;
    } header{};
    size_t seen = 0;
    uint64_t differences = 0;
    while (readFully(pipe, &header, sizeof header)) {
        header.name[sizeof header.name - 1] = '\0';
        differences += compareBlock(pipe, header.name, header.count);
        ++seen;
    }
    if (seen != functions.size()) {
        fprintf(stderr, "%zu functions compared, not %zu\n", seen, functions.size());
    }
    return differences == 0 && seen == functions.size();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "Usage: %s JAVA CLASSPATH [COUNT [SEED]]\n", argv[0]);
        return 2;
    }
    const std::string count = argc > 3 ? argv[3] : "10000";
    const std::string seed = argc > 4 ? argv[4] : "1";
    const std::string command = std::string("'") + argv[1] + "' -Xshare:auto -cp '" + argv[2] +
                                "' StrictMathOracle " + count + " " + seed;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        perror(command.c_str());
        return 1;
    }
    const bool equal = compareAll(pipe);
    const int status = pclose(pipe);
    return equal && status == 0 ? 0 : 1;
}
