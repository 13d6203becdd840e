// Every function of maths.h.
#include <vncommon/maths.h>

#include <math.h>  // signgam

#include "values.h"

namespace {

template <auto function>
void record(Records& records, double x) {
    records.add(hex(toBits(x)), resultText(function(x)));
}

template <auto function>
void unary(Records& records, Random& random) {
    for (const double x : specialDoubles) {
        record<function>(records, x);
        record<function>(records, -x);
    }
    for (int i = 0; i < randomCalls; ++i) {
        record<function>(records, randomDouble(random));
    }
}

template <auto function>
void record(Records& records, double x, double y) {
    records.add(hex(toBits(x)) + " " + hex(toBits(y)), resultText(function(x, y)));
}

// Often a hard case of powers and remainders for x; otherwise an independent argument.
double second(double x, Random& random) {
    switch (random.below(6)) {
        case 0:
            return beside(x, random);
        case 1:
            return random.between(-100, 100);
        case 2:  // an odd integer up to 2^53
            return static_cast<double>(random.shorter(11) | 1U);
        case 3:
            return static_cast<double>(random.between(-4000, 4000)) * 0.25;
        default:
            return randomDouble(random);
    }
}

template <auto function>
void binary(Records& records, Random& random) {
    for (const double x : specialDoubles) {
        for (const double y : specialDoubles) {
            for (const double a : {x, -x}) {
                record<function>(records, a, y);
                record<function>(records, a, -y);
            }
        }
    }
    for (int i = 0; i < randomCalls; ++i) {
        const double x = random.below(4) == 0 ? beside(1, random) : randomDouble(random);
        record<function>(records, x, second(x, random));
    }
}

void recordScale(Records& records, double x, int n) {
    records.add(hex(toBits(x)) + " " + std::to_string(n), resultText(vn_scalbn(x, n)));
}

void scalbn(Records& records, Random& random) {
    for (const double x : specialDoubles) {
        for (const int n : {0, 1, -1, 54, -54, 1023, -1022, 2100, -2100, 50000, -50001, 2147483647,
                            -2147483647 - 1}) {
            recordScale(records, x, n);
            recordScale(records, -x, n);
        }
    }
    for (int i = 0; i < randomCalls; ++i) {
        const double x = randomDouble(random);
        const int bound = 1 << random.below(13);
        recordScale(records, x, random.between(-bound, bound));
    }
}

int64_t signOfGamma(double x) {
    vn_gammal(x);
    return signgam;
}

}  // namespace

std::vector<Group> mathematicsGroups() {
    return {{"pow", binary<vn_pow>},
            {"exp", unary<vn_exp>},
            {"log", unary<vn_log>},
            {"log10", unary<vn_log10>},
            {"cbrt", unary<vn_cbrt>},
            {"sin", unary<vn_sin>},
            {"cos", unary<vn_cos>},
            {"tan", unary<vn_tan>},
            {"asin", unary<vn_asin>},
            {"acos", unary<vn_acos>},
            {"atan", unary<vn_atan>},
            {"atan2", binary<vn_atan2>},
            {"sinh", unary<vn_sinh>},
            {"cosh", unary<vn_cosh>},
            {"tanh", unary<vn_tanh>},
            {"asinh", unary<vn_asinh>},
            {"acosh", unary<vn_acosh>},
            {"atanh", unary<vn_atanh>},
            {"erf", unary<vn_erf>},
            {"gammal", unary<vn_gammal>},
            {"signgam", unary<signOfGamma>},
            {"nextafter", binary<vn_nextafter>},
            {"scalbn", scalbn},
            {"fmod", binary<vn_fmod>},
            {"ilogb", unary<vn_ilogb>},
            {"int", unary<vn_int>},
            {"frac", unary<vn_frac>},
            {"exponent", unary<vn_exponent>},
            {"mantissa", unary<vn_mantissa>},
            {"bankerRound", unary<vn_bankerRound>}};
}
