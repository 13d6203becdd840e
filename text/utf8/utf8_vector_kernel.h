// Checks of UTF-8 with vectors of bytes, for any width. Each file that includes this header
// supplies its instructions as a type (see utf8_kernel_ssse3.cpp) and is compiled for a processor
// that has them. Such code must not end up in a function that other files share: everything here
// has internal linkage, and no inline function of the standard library is called.
//
// Validation: most faults are visible in two adjacent bytes, from three half bytes: both halves of
// the first byte and the upper half of the second. Each half byte selects a mask of the faults
// that it allows; the pair has the faults that are in all three masks.
// The top bit covers the rest, "two continuation bytes in a row". That is required where a lead
// two or three bytes before needs more continuation bytes, and a fault everywhere else.
#ifndef VN_TEXT_UTF8_UTF8_VECTOR_KERNEL_H
#define VN_TEXT_UTF8_UTF8_VECTOR_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "platform/assertion.h"
#include "text/utf8/utf8_kernel.h"

namespace vncommon {
namespace {

struct PairFault {
    uint8_t bit;
    uint8_t firstLow, firstHigh;    // the first byte, from and to
    uint8_t secondLow, secondHigh;  // the second byte; ranges are multiples of sixteen
};

constexpr uint8_t twoContinuations = 0x80;

// Every range of first bytes is a range of upper halves combined with a range of lower halves, so
// that the halves can be looked up separately.
// Compat: encoded surrogates (ED before A0-BF) are not a fault; callers rely on it.
constexpr PairFault pairFaults[] = {
    {0x01, 0x00, 0x7F, 0x80, 0xBF},              // continuation without a lead
    {0x02, 0xC0, 0xFF, 0x00, 0x7F},              // lead without a continuation,
    {0x02, 0xC0, 0xFF, 0xC0, 0xFF},              //   before either kind of other byte
    {0x04, 0xC0, 0xC1, 0x80, 0xBF},              // two bytes for what fits in one
    {0x08, 0xE0, 0xE0, 0x80, 0x9F},              // three bytes for what fits in two
    {0x10, 0xF0, 0xF0, 0x80, 0x8F},              // four bytes for what fits in three
    {0x20, 0xF4, 0xF4, 0x90, 0xBF},              // above U+10FFFF
    {0x40, 0xF5, 0xFF, 0x80, 0xBF},              // far above
    {twoContinuations, 0x80, 0xBF, 0x80, 0xBF},  // the bytes before decide
};

struct FaultMasks {
    uint8_t firstUpper[16];   // by the upper half of the first byte
    uint8_t firstLower[16];   // by its lower half
    uint8_t secondUpper[16];  // by the upper half of the second byte
};

constexpr FaultMasks makeFaultMasks() {
    FaultMasks masks{};
    for (const PairFault& fault : pairFaults) {
        for (unsigned upper = fault.firstLow >> 4; upper <= fault.firstHigh >> 4U; ++upper) {
            masks.firstUpper[upper] |= fault.bit;
        }
        for (unsigned lower = fault.firstLow & 15U; lower <= (fault.firstHigh & 15U); ++lower) {
            masks.firstLower[lower] |= fault.bit;
        }
        for (unsigned upper = fault.secondLow >> 4; upper <= fault.secondHigh >> 4U; ++upper) {
            masks.secondUpper[upper] |= fault.bit;
        }
    }
    return masks;
}

constexpr FaultMasks faultMasks = makeFaultMasks();

template <class Isa>
class Validator {
    using Vector = typename Isa::Vector;

  public:
    // Smaller texts are checked with the byte tables.
    static constexpr size_t minimum = sizeof(Vector) + 3;

    static bool run(const uint8_t* bytes, size_t size) {
        VN_ASSERT(size >= minimum);
        Validator validator;
        const uint8_t* const end = bytes + size;
        while (end - bytes >= 4 * width) {
            validator.takeFour(bytes);
            bytes += 4 * width;
        }
        while (end - bytes >= width) {
            validator.take(Isa::load(bytes));
            bytes += width;
        }
        validator.takeLast(end);
        return Isa::isZero(validator.faults_) && !endsInsideCharacter(end);
    }

  private:
    static constexpr ptrdiff_t width = sizeof(Vector);

    // Four vectors of ASCII after a vector of ASCII need no further check.
    void takeFour(const uint8_t* bytes) {
        const Vector a = Isa::load(bytes);
        const Vector b = Isa::load(bytes + width);
        const Vector c = Isa::load(bytes + 2 * width);
        const Vector d = Isa::load(bytes + 3 * width);
        if (Isa::isAscii(Isa::either(Isa::either(a, b), Isa::either(c, d))) &&
            Isa::isAscii(previous_)) {
            previous_ = d;
            return;
        }
        take(a);
        take(b);
        take(c);
        take(d);
    }

    void take(Vector input) {
        addFaults(Isa::template shiftedBy<3>(previous_, input),
                  Isa::template shiftedBy<2>(previous_, input),
                  Isa::template shiftedBy<1>(previous_, input), input);
        previous_ = input;
    }

    // The last full vector of the text. It may overlap bytes that are checked already.
    void takeLast(const uint8_t* end) {
        const uint8_t* const bytes = end - width;
        addFaults(Isa::load(bytes - 3), Isa::load(bytes - 2), Isa::load(bytes - 1),
                  Isa::load(bytes));
    }

    static bool endsInsideCharacter(const uint8_t* end) {
        return end[-1] >= 0xC0 || end[-2] >= 0xE0 || end[-3] >= 0xF0;
    }

    // input, and the bytes one to three positions before each of its bytes.
    void addFaults(Vector before3, Vector before2, Vector before1, Vector input) {
        const Vector pair =
            Isa::both(Isa::both(Isa::lookUp(faultMasks.firstUpper, Isa::upperHalves(before1)),
                                Isa::lookUp(faultMasks.firstLower, Isa::lowerHalves(before1))),
                      Isa::lookUp(faultMasks.secondUpper, Isa::upperHalves(input)));
        // The top bit is set where a lead of three bytes (E0 and up) is two positions before, or
        // a lead of four (F0 and up) three positions before.
        const Vector awaited = Isa::either(Isa::subtractToZero(before2, 0xE0 - 0x80),
                                           Isa::subtractToZero(before3, 0xF0 - 0x80));
        faults_ = Isa::either(faults_, Isa::differ(Isa::topBits(awaited), pair));
    }

    Vector previous_ = Isa::zero();
    Vector faults_ = Isa::zero();
};

// size is at least that of a vector.
template <class Isa>
bool hasNoTopBit(const uint8_t* bytes, size_t size) {
    constexpr ptrdiff_t width = sizeof(typename Isa::Vector);
    VN_ASSERT(size >= sizeof(typename Isa::Vector));
    const uint8_t* const last = bytes + size - width;
    for (; last - bytes >= 4 * width; bytes += 4 * width) {
        if (!Isa::isAscii(Isa::either(
                Isa::either(Isa::load(bytes), Isa::load(bytes + width)),
                Isa::either(Isa::load(bytes + 2 * width), Isa::load(bytes + 3 * width))))) {
            return false;
        }
    }
    auto any = Isa::load(last);
    for (; bytes < last; bytes += width) {
        any = Isa::either(any, Isa::load(bytes));
    }
    return Isa::isAscii(any);
}

template <class Isa>
constexpr Utf8Kernel makeKernel() {
    return {hasNoTopBit<Isa>, sizeof(typename Isa::Vector), Validator<Isa>::run,
            Validator<Isa>::minimum};
}

}  // namespace
}  // namespace vncommon

#endif
