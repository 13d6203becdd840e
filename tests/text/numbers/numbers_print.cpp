// Prints samples and their texts for numbers_oracle.py. One line per sample: the bits, the shortest
// text, the fixed texts with 0, 2 and 17 places, the scientific ones with 1, 6 and 17 digits.
#include <vncommon/numbers.h>

#include <cinttypes>
#include <cstdio>

#include "numbers_samples.h"

namespace {

void print(double x) {
    char text[512];
    printf("%016" PRIx64 " %s", toBits(x), vn_g_fmt(text, x));
    for (const int precision : {0, 2, 17}) {
        printf(" %s", vn_g_fmt_fixed(text, sizeof text, precision, x));
    }
    for (const int precision : {1, 6, 17}) {
        printf(" %s", vn_g_fmt_scientific(text, sizeof text, precision, x));
    }
    putchar('\n');
}

}  // namespace

int main() {
    for (const double x : hardSamples()) {
        print(x);
    }
    Random random(12);
    for (uint64_t left = sampleCount(20'000); left > 0; --left) {
        print(randomSample(random));
    }
}
