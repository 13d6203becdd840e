#include "text/numbers/netlib_conversion.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include <vncommon/numbers.h>

#include "platform/assertion.h"
#include "text/numbers/netlib/include/reent.h"

namespace vncommon {

namespace {

// The state of one conversion: netlib's context and the scratch area that the thread's slots point
// to. The destructor restores the slots, so that they never point to a frame that has ended, and a
// conversion that a signal handler interrupted keeps its own area.
class Conversion {
  public:
    explicit Conversion(char* digits)
        : context_{digits, 0, nullptr, 0},
          outerNext_(pthread_getspecific(dtoa_threadLocalMemNext)),
          outerLeft_(pthread_getspecific(dtoa_threadLocalMemLeft)) {
        // A thread's first use of a slot may allocate. If that fails, the area stays unused.
        if (pthread_setspecific(dtoa_threadLocalMemNext, scratch_) == 0) {
            pthread_setspecific(dtoa_threadLocalMemLeft, reinterpret_cast<void*>(scratchUnits));
        }
    }
    ~Conversion() {
        pthread_setspecific(dtoa_threadLocalMemLeft, outerLeft_);
        pthread_setspecific(dtoa_threadLocalMemNext, outerNext_);
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;

    _reent* context() { return &context_; }

  private:
    static constexpr uintptr_t scratchUnits = 4000;

    _reent context_;
    void* outerNext_;
    void* outerLeft_;
    uint64_t scratch_[scratchUnits];
};

// The most digits before the point of a double. Fewer places than its negative leave no digit.
constexpr int mostIntegerDigits = 309;
static_assert(mostIntegerDigits + largestPrecision + sizeof "-." <= digitAreaSize);

}  // namespace

Digits convertToDigits(double x, DigitMode mode, int precision, char* room) {
    VN_ASSERT(mode == DigitMode::shortest || precision <= largestPrecision);
    Conversion conversion(room);
    // netlib adds to the precision without a check; this value is low enough and cannot overflow.
    const int asked = std::max(precision, -mostIntegerDigits - 2);
    int point = 0;
    int sign = 0;
    char* end = nullptr;
    const char* text =
        _dtoa_r(conversion.context(), x, static_cast<int>(mode), asked, &point, &sign, &end);
    const auto length = static_cast<int>(end - text);
    VN_ASSERT(length >= 0 && static_cast<size_t>(length) < digitAreaSize);
    if (length == 0) {
        point = -std::max(precision, -INT_MAX);
    }
    memmove(room, text, static_cast<size_t>(length));  // "0" is constant text, not in room
    VN_ASSERT(length <= 1 || room[0] != '0');
    return {room, length, length, point};
}

double readDouble(const char* text, char** end) {
    Conversion conversion(nullptr);
    const double value = _strtod_r(conversion.context(), text, end);
    if (conversion.context()->_errno != 0) {
        errno = conversion.context()->_errno;
    }
    return value;
}

}  // namespace vncommon
