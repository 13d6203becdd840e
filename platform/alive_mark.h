// A magic word in an inner record, for builds with assertions: it catches a record that is used
// before its initialisation or after its cleanup. In other builds it has no state; declare it
// [[no_unique_address]], and the record does not grow. Not for records of public headers, whose
// layout is the same in every build.
#ifndef VN_PLATFORM_ALIVE_MARK_H
#define VN_PLATFORM_ALIVE_MARK_H

#include <cstdint>

namespace vncommon {

#if defined(VN_ASSERTIONS)

class AliveMark {
  public:
    bool isSet() const { return word_ == alive; }

    // Volatile, because compilers remove a store to a record that is about to be freed.
    void clear() { *static_cast<volatile uint32_t*>(&word_) = cleaned; }

  private:
    static constexpr uint32_t alive = 0x414C4956;
    static constexpr uint32_t cleaned = 0x44454144;

    uint32_t word_ = alive;
};

#else

class AliveMark {
  public:
    static bool isSet() { return true; }
    void clear() {}
};

#endif

}  // namespace vncommon

#endif
