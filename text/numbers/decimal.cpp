// Decimal values: the operations of the decimal library under our names.
#include <vncommon/numbers.h>

#include "text/numbers/decimal_text.h"

// Must match how the linked archive was built: operands by value, status flags by pointer.
#define DECIMAL_CALL_BY_REFERENCE 0
#define DECIMAL_GLOBAL_ROUNDING 0
#define DECIMAL_GLOBAL_EXCEPTION_FLAGS 0
extern "C" {
#include <bid_conf.h>

#include <bid_functions.h>
}

uint64_t vncommon::readDecimal(const char* text) {
    constexpr unsigned toNearestEven = 0;
    unsigned discarded = 0;
    return __bid64_from_string(const_cast<char*>(text), toNearestEven, &discarded);
}

void vn_dec_to_string(uint64_t d, char* out) {
    unsigned discarded = 0;
    __bid64_to_string(out, d, &discarded);
}

int vn_dec_isnan(uint64_t d) {
    return __bid64_isNaN(d);
}
int vn_dec_isfinite(uint64_t d) {
    return __bid64_isFinite(d);
}
int vn_dec_isinfinite(uint64_t d) {
    return __bid64_isInf(d);
}
uint64_t VN_DEC_INFINITY(void) {
    return __bid64_inf();
}
uint64_t VN_DEC_NAN(void) {
    return __bid64_nan("NaN");
}
