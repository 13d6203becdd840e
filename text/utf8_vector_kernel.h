// Work on UTF-8 with vectors of bytes, for any width. Each file that includes this header
// brings its instructions as a type (see utf8_kernel_ssse3.cpp) and is compiled for a processor
// that has them. So that no such code ends up in a function that other files share, everything
// here has internal linkage and no inline function of the standard library is called.
//
// Validation: most faults show in two neighbouring bytes. A fault of that sort is told by three
// half bytes: both halves of the first byte and the upper half of the second. Each half byte
// selects a mask of the faults that it allows; the pair has the faults that all three masks share.
// What remains is whether continuation bytes stand exactly where a lead two or three bytes before
// asks for them. That is the top bit: "two continuation bytes in a row" is a fault where no such
// lead stands before, and its absence is one where it does.
#ifndef VN_TEXT_UTF8_VECTOR_KERNEL_H
#define VN_TEXT_UTF8_VECTOR_KERNEL_H

#include <cstddef>
#include <cstdint>

#include "platform/over_reading.h"
#include "text/utf8_kernel.h"

namespace {

struct PairFault {
    uint8_t bit;
    uint8_t firstLow, firstHigh;    // the first byte, from and to
    uint8_t secondLow, secondHigh;  // the second byte, in whole sixteens
};

constexpr uint8_t twoContinuations = 0x80;

// Every range of first bytes is a rectangle of upper and lower half bytes, so that the halves
// can be looked up apart. Encoded surrogates (ED before A0-BF) are no fault, on purpose.
constexpr PairFault pairFaults[] = {
    {0x01, 0x00, 0x7F, 0x80, 0xBF},              // continuation without a lead
    {0x02, 0xC0, 0xFF, 0x00, 0x7F},              // lead without a continuation,
    {0x02, 0xC0, 0xFF, 0xC0, 0xFF},              //   before either kind of other byte
    {0x04, 0xC0, 0xC1, 0x80, 0xBF},              // two bytes for what fits in one
    {0x08, 0xE0, 0xE0, 0x80, 0x9F},              // three bytes for what fits in two
    {0x10, 0xF0, 0xF0, 0x80, 0x8F},              // four bytes for what fits in three
    {0x20, 0xF4, 0xF4, 0x90, 0xBF},              // above U+10FFFF
    {0x40, 0xF5, 0xFF, 0x80, 0xBF},              // far above
    {twoContinuations, 0x80, 0xBF, 0x80, 0xBF},  // to be settled by the bytes before
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
    // Below this the byte tables serve.
    static constexpr size_t minimum = sizeof(Vector) + 3;

    static bool run(const uint8_t* bytes, size_t size) {
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
        return Isa::isZero(validator._faults) && !endsInsideCharacter(end);
    }

  private:
    static constexpr ptrdiff_t width = sizeof(Vector);

    // ASCII needs nothing but that no character is left open before it.
    void takeFour(const uint8_t* bytes) {
        const Vector a = Isa::load(bytes);
        const Vector b = Isa::load(bytes + width);
        const Vector c = Isa::load(bytes + 2 * width);
        const Vector d = Isa::load(bytes + 3 * width);
        if (Isa::isAscii(Isa::either(Isa::either(a, b), Isa::either(c, d))) &&
            Isa::isAscii(_previous)) {
            _previous = d;
            return;
        }
        take(a);
        take(b);
        take(c);
        take(d);
    }

    void take(Vector input) {
        addFaults(Isa::template shiftedBy<3>(_previous, input),
                  Isa::template shiftedBy<2>(_previous, input),
                  Isa::template shiftedBy<1>(_previous, input), input);
        _previous = input;
    }

    // The last full vector of the text, most of it for the second time.
    void takeLast(const uint8_t* end) {
        const uint8_t* const bytes = end - width;
        addFaults(Isa::load(bytes - 3), Isa::load(bytes - 2), Isa::load(bytes - 1),
                  Isa::load(bytes));
    }

    static bool endsInsideCharacter(const uint8_t* end) {
        return end[-1] >= 0xC0 || end[-2] >= 0xE0 || end[-3] >= 0xF0;
    }

    // input, and what stands one to three bytes before each of its bytes.
    void addFaults(Vector before3, Vector before2, Vector before1, Vector input) {
        const Vector pair =
            Isa::both(Isa::both(Isa::lookUp(faultMasks.firstUpper, Isa::upperHalves(before1)),
                                Isa::lookUp(faultMasks.firstLower, Isa::lowerHalves(before1))),
                      Isa::lookUp(faultMasks.secondUpper, Isa::upperHalves(input)));
        // The top bit is set where a lead of three bytes (E0 and up) stands two before, or one
        // of four (F0 and up) three before.
        const Vector awaited = Isa::either(Isa::subtractToZero(before2, 0xE0 - 0x80),
                                           Isa::subtractToZero(before3, 0xF0 - 0x80));
        _faults = Isa::either(_faults, Isa::differ(Isa::topBits(awaited), pair));
    }

    Vector _previous = Isa::zero();
    Vector _faults = Isa::zero();
};

// size is at least that of a vector.
template <class Isa>
bool hasNoTopBit(const uint8_t* bytes, size_t size) {
    constexpr ptrdiff_t width = sizeof(typename Isa::Vector);
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

// How many bytes of both texts can be read without touching the next page of either.
size_t bytesInPages(const void* a, const void* b) {
    const size_t ofA = vncommon::bytesInPage(a);
    const size_t ofB = vncommon::bytesInPage(b);
    return ofA < ofB ? ofA : ofB;
}

template <class Isa>
size_t vectorsInPages(const uint8_t* a, const uint8_t* b) {
    return bytesInPages(a, b) / sizeof(typename Isa::Vector);
}

// The comparison reads behind terminators, but never in the next page: checking both texts and
// calling strcasecmp after that took more than twice as long, on short text and on long.
bool isCommonAscii(uint8_t a, uint8_t b) {
    const bool isLetter = static_cast<uint8_t>((a | 0x20) - 'a') < 26;
    return a != 0 && a < 0x80 && (a == b || (isLetter && (a ^ b) == 0x20));
}

// All bits of each byte that isCommonAscii.
template <class Isa>
typename Isa::Vector commonAsciiAt(const uint8_t* a, const uint8_t* b) {
    const auto caseBit = Isa::load(vncommon::letterMasks.caseBit);
    const auto first = Isa::load(a);
    const auto difference = Isa::differ(first, Isa::load(b));
    // 'z' becomes the greatest signed byte; whatever lies above, the smallest ones.
    const auto moved = Isa::add(Isa::either(first, caseBit), Isa::load(vncommon::letterMasks.move));
    const auto isLetter = Isa::greater(moved, Isa::load(vncommon::letterMasks.belowMovedA));
    return Isa::both(
        Isa::greater(first, Isa::zero()),  // neither the terminator nor above ASCII
        Isa::equal(Isa::without(difference, Isa::both(isLetter, caseBit)), Isa::zero()));
}

template <class Isa>
bool areFourCommonAscii(const uint8_t* a, const uint8_t* b) {
    constexpr size_t width = sizeof(typename Isa::Vector);
    const auto front =
        Isa::both(commonAsciiAt<Isa>(a, b), commonAsciiAt<Isa>(a + width, b + width));
    const auto back = Isa::both(commonAsciiAt<Isa>(a + 2 * width, b + 2 * width),
                                commonAsciiAt<Isa>(a + 3 * width, b + 3 * width));
    return Isa::notSet(Isa::both(front, back)) == 0;
}

template <class Isa>
size_t commonAsciiBetween(const uint8_t* a, const uint8_t* b, size_t at, size_t end) {
    for (; at < end; at += sizeof(typename Isa::Vector)) {
        const uint32_t notCommon = Isa::notSet(commonAsciiAt<Isa>(a + at, b + at));
        if (notCommon != 0) {
            return at + static_cast<size_t>(__builtin_ctz(notCommon));
        }
    }
    return end;
}

// Whether the bytes before text[at] can be read: they are the text's, or in the same page.
bool canStepBack(const uint8_t* text, size_t at, size_t bytes) {
    return at >= bytes || vncommon::offsetInPage(text + at) >= bytes;
}

struct Step {
    size_t size;         // bytes that were compared, 0 when it is not known what may be read
    uint32_t notCommon;  // a bit for each byte from `at` on
};

// The next vector, or what is left of a page: then the vector starts earlier, with bytes that do
// not count.
template <class Isa>
Step stepInPages(const uint8_t* a, const uint8_t* b, size_t at) {
    constexpr size_t width = sizeof(typename Isa::Vector);
    const size_t left = bytesInPages(a + at, b + at);
    const size_t size = left < width ? left : width;
    const size_t back = width - size;
    if (!canStepBack(a, at, back) || !canStepBack(b, at, back)) {
        return {0, 0};
    }
    return {size, Isa::notSet(commonAsciiAt<Isa>(a + at - back, b + at - back)) >> back};
}

// Page by page. Where less than four vectors are left of one, those that end with it are compared:
// most of the time the texts go on behind it.
template <class Isa>
[[gnu::noinline]] size_t commonAsciiOfLong(const uint8_t* a, const uint8_t* b, size_t at) {
    constexpr size_t four = 4 * sizeof(typename Isa::Vector);
    for (;;) {
        const size_t end = at + bytesInPages(a + at, b + at);
        for (; end - at >= four; at += four) {
            if (!areFourCommonAscii<Isa>(a + at, b + at)) {
                return commonAsciiBetween<Isa>(a, b, at, at + four);
            }
        }
        if (end >= four && areFourCommonAscii<Isa>(a + end - four, b + end - four)) {
            at = end;
        }
        while (at < end) {
            const Step step = stepInPages<Isa>(a, b, at);
            if (step.notCommon != 0) {
                return at + static_cast<size_t>(__builtin_ctz(step.notCommon));
            }
            if (step.size == 0 && !isCommonAscii(a[at], b[at])) {
                return at;
            }
            at += step.size > 0 ? step.size : 1;
        }
    }
}

// What ends or differs within four vectors needs no stack frame: texts of 130 to 250 bytes, of
// which caseCompare has seen the front, take a third less.
template <class Isa>
size_t commonAscii(const uint8_t* a, const uint8_t* b) {
    size_t at = 0;
    for (size_t left = vectorsInPages<Isa>(a, b); left > 0 && at < 4 * sizeof(typename Isa::Vector);
         --left) {
        const uint32_t notCommon = Isa::notSet(commonAsciiAt<Isa>(a + at, b + at));
        if (notCommon != 0) {
            return at + static_cast<size_t>(__builtin_ctz(notCommon));
        }
        at += sizeof(typename Isa::Vector);
    }
    return commonAsciiOfLong<Isa>(a, b, at);
}

// Whether so many bytes of both texts can be read. Mostly one look at the bits of both addresses
// says so.
bool areWithinPages(const char* a, const char* b, size_t size) {
    const uintptr_t either = reinterpret_cast<uintptr_t>(a) | reinterpret_cast<uintptr_t>(b);
    return vncommon::isWithinPage(reinterpret_cast<const void*>(either), size) ||
           (vncommon::isWithinPage(a, size) && vncommon::isWithinPage(b, size));
}

const uint8_t* bytesOf(const char* text) {
    return reinterpret_cast<const uint8_t*>(text);
}

// The result when the vectors at `at` are the first that are not common.
int compareWhereCommonEnds(size_t at, uint32_t notCommon, const char* a, const char* b) {
    const size_t common = at + static_cast<unsigned>(__builtin_ctz(notCommon));
    if ((a[common] | b[common]) != 0) {
        return vncommon::compareFrom(common, a, b);
    }
    return vncommon::compareEqual(a, b);
}

// The first vectors of texts that are near the end of a page: the last one in a page starts earlier
// there, with bytes that are left out of the comparison.
template <class Isa>
[[gnu::noinline]] int caseCompareInPages(const char* a, const char* b) {
    size_t at = 0;
    while (at < 4 * sizeof(typename Isa::Vector)) {
        const Step step = stepInPages<Isa>(bytesOf(a), bytesOf(b), at);
        if (step.notCommon != 0) {
            return compareWhereCommonEnds(at, step.notCommon, a, b);
        }
        if (step.size == 0) {
            break;
        }
        at += step.size;
    }
    return vncommon::compareAfter(at, a, b);
}

// vn_UTF8CaseCmp. Most texts are short, ASCII and not at the end of a page: comparing equal ones of
// these calls nothing and takes as long as strcasecmp alone, of 64 bytes 5 ns instead of 10.
template <class Isa>
int caseCompare(const char* a, const char* b) {
    constexpr size_t width = sizeof(typename Isa::Vector);
    if (!areWithinPages(a, b, 4 * width)) [[unlikely]] {
        return caseCompareInPages<Isa>(a, b);
    }
    for (size_t at = 0; at < 4 * width; at += width) {
        const uint32_t notCommon =
            Isa::notSet(commonAsciiAt<Isa>(bytesOf(a) + at, bytesOf(b) + at));
        if (notCommon != 0) [[likely]] {
            return compareWhereCommonEnds(at, notCommon, a, b);
        }
    }
    return vncommon::compareAfter(4 * width, a, b);
}

template <class Isa>
constexpr vncommon::Utf8Kernel makeKernel() {
    return {hasNoTopBit<Isa>,    sizeof(typename Isa::Vector),
            Validator<Isa>::run, Validator<Isa>::minimum,
            commonAscii<Isa>,    caseCompare<Isa>};
}

}  // namespace

#endif
