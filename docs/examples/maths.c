#include <inttypes.h>
#include <stdio.h>
#include <vncommon/maths.h>

int main(void) {
    /* to the last bit the same on every machine */
    printf("%a\n", vn_pow(2.0, 0.5));
    printf("%a\n", vn_sin(1e22));
    printf("%a\n", vn_erf(0.5));

    printf("%" PRId64 " and %.2f\n", vn_int(-2.75), vn_frac(-2.75));
    printf("%" PRId64 " %" PRId64 "\n", vn_bankerRound(2.5), vn_bankerRound(3.5));
    printf("%.3f * 2^%" PRId64 "\n", vn_mantissa(10.0), vn_exponent(10.0));
    return 0;
}
