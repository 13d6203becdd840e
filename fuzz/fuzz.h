// Helpers of the fuzz targets: an input that is read as numbers and texts, heap copies of exact
// size for the sanitizers, and the check that ends a run.
#ifndef VN_FUZZ_FUZZ_H
#define VN_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Not assert(): this must end the process in every kind of build, and the input must be kept.
#define FUZZ_REQUIRE(condition) \
    ((condition) ? static_cast<void>(0) : fuzz::fail(__FILE__, __LINE__, #condition))

namespace fuzz {

[[noreturn]] inline void fail(const char* file, int line, const char* condition) {
    fprintf(stderr, "%s:%d: not so: %s\n", file, line, condition);
    abort();
}

// The bytes of an input, read from the front. After the end, numbers are 0 and texts empty.
class Input {
  public:
    Input(const uint8_t* data, size_t size)
        : bytes(size > 0 ? reinterpret_cast<const char*>(data) : "", size) {}

    bool isEmpty() const { return bytes.empty(); }

    uint8_t byte() { return number<uint8_t>(); }
    uint64_t word() { return number<uint64_t>(); }
    uint32_t below(uint32_t limit) { return number<uint16_t>() % limit; }

    // The next bytes, at most the given number.
    std::string bytesUpTo(size_t length) {
        const std::string taken(bytes.substr(0, length));
        bytes.remove_prefix(taken.size());
        return taken;
    }

    // One length byte, then that number of bytes.
    std::string text() { return bytesUpTo(byte()); }

    // The same without NUL bytes, for functions that take terminated text.
    std::string terminatedText() { return cutAtNul(text()); }

    std::string rest() { return bytesUpTo(bytes.size()); }
    std::string terminatedRest() { return cutAtNul(rest()); }

  private:
    static std::string cutAtNul(const std::string& text) { return text.c_str(); }

    template <typename Number>
    Number number() {
        const std::string taken = bytesUpTo(sizeof(Number));
        Number value = 0;
        memcpy(&value, taken.data(), taken.size());
        return value;
    }

    std::string_view bytes;
};

// A copy in a heap block that ends where the bytes end, so that AddressSanitizer reports every read
// past the end. shift moves the bytes off the block's alignment.
class ExactBytes {
  public:
    explicit ExactBytes(std::string_view bytes, size_t shift = 0)
        : block(new char[bytes.size() + shift]), start(block.get() + shift) {
        memcpy(start, bytes.data(), bytes.size());
    }

    char* get() const { return start; }

  private:
    std::unique_ptr<char[]> block;
    char* start;
};

// The same with a terminator.
class ExactText : public ExactBytes {
  public:
    explicit ExactText(const std::string& text, size_t shift = 0)
        : ExactBytes(std::string_view(text.c_str(), text.size() + 1), shift) {}
};

// Owns a text that the library returned; a null pointer becomes no value.
class Taken {
  public:
    explicit Taken(char* returned) : text(returned) {}
    ~Taken() { free(text); }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;

    bool isNull() const { return text == nullptr; }
    bool is(const std::string& expected) const { return text != nullptr && expected == text; }

  private:
    char* text;
};

// Runs the steps that the input selects. Run is constructed from the input; its state is checked
// before the first step and after each step.
template <typename Run>
int checkSteps(const uint8_t* data, size_t size, int most) {
    Input input(data, size);
    Run run(input);
    run.check();
    for (int steps = 0; steps < most && !input.isEmpty(); ++steps) {
        run.step();
        run.check();
    }
    return 0;
}

}  // namespace fuzz

#endif
