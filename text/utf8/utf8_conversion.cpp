// The locale's code page, and the conversions and the comparison, which use ICU.
#include <vncommon/utf8.h>

#include <strings.h>
#include <unicode/ucnv.h>
#include <unicode/unorm.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/assertion.h"
#include "text/utf8/icu_call.h"

namespace vncommon {
namespace {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};
template <class T>
using MallocBlock = std::unique_ptr<T[], FreeDeleter>;

template <class T>
MallocBlock<T> allocate(size_t count) {
    return MallocBlock<T>(static_cast<T*>(std::malloc(count * sizeof(T))));
}

// First calls may race. Each finds the same value, and the flag is set after the pointer.
std::atomic<const char*> codepage{nullptr};
std::atomic<bool> checkedCodepage{false};

const char* codepageOfEnvironment() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        if (const char* value = std::getenv(name)) {
            const char* point = std::strchr(value, '.');
            return point ? point + 1 : nullptr;
        }
    }
    return nullptr;
}

// These keep the error, so the conversion stops. ICU's own stop callback drops invisible
// characters and continues, which would change a file name.
void stopFromUnicode(const void*, UConverterFromUnicodeArgs*, const UChar*, int32_t, UChar32,
                     UConverterCallbackReason, UErrorCode*) {}
void stopToUnicode(const void*, UConverterToUnicodeArgs*, const char*, int32_t,
                   UConverterCallbackReason, UErrorCode*) {}

void stopAtErrors(UConverter* converter, UErrorCode& status) {
    ucnv_setToUCallBack(converter, stopToUnicode, nullptr, nullptr, nullptr, &status);
    ucnv_setFromUCallBack(converter, stopFromUnicode, nullptr, nullptr, nullptr, &status);
}

// From one code page to another; null is ICU's default.
class CodePageConverter {
  public:
    CodePageConverter(const char* to, const char* from) {
        const IcuCall call;
        source_ = ucnv_open(from, &status_);
        target_ = ucnv_open(to, &status_);
    }
    ~CodePageConverter() {
        const IcuCall call;
        ucnv_close(source_);
        ucnv_close(target_);
    }
    CodePageConverter(const CodePageConverter&) = delete;
    CodePageConverter& operator=(const CodePageConverter&) = delete;

    // Makes the conversion fail at a character that the target lacks, instead of replacing it.
    void makeStrict() {
        stopAtErrors(source_, status_);
        stopAtErrors(target_, status_);
    }

    // The text, terminated, in at most capacity bytes (the terminator not counted); null on
    // failure.
    MallocBlock<char> convert(const char* text, size_t length, size_t capacity) {
        MallocBlock<char> result = allocate<char>(capacity + 1);
        if (U_FAILURE(status_) || !result) {
            return nullptr;
        }
        result[0] = '\0';  // g++ 12 warns about a pointer into an uninitialised block
        UChar pivot[1024];
        UChar* pivotSource = pivot;
        UChar* pivotTarget = pivot;
        char* end = result.get();
        ucnv_convertEx(target_, source_, &end, end + capacity, &text, text + length, pivot,
                       &pivotSource, &pivotTarget, pivot + std::size(pivot), true, true, &status_);
        VN_ASSERT(end >= result.get() && end <= result.get() + capacity);
        *end = '\0';
        return U_FAILURE(status_) ? nullptr : std::move(result);
    }

  private:
    UErrorCode status_ = U_ZERO_ERROR;
    UConverter* source_ = nullptr;
    UConverter* target_ = nullptr;
};

MallocBlock<char> toUTF8(const char* text, size_t length) {
    CodePageConverter converter("UTF-8", vn_getCodepage());
    return converter.convert(text, length, 4 * length + 8);
}

MallocBlock<char> toCodepage(const char* text, size_t length) {
    CodePageConverter converter(vn_getCodepage(), "UTF-8");
    converter.makeStrict();
    return converter.convert(text, length, length + 2);
}

// ICU initialises its tables at the first comparison.
std::atomic<bool> tablesAreSetUp{false};

void setTablesUp() {
    const IcuCall call;
    UErrorCode status = U_ZERO_ERROR;
    unorm_compare(u"\u00C4", -1, u"\u00E4", -1, U_COMPARE_IGNORE_CASE, &status);
    tablesAreSetUp.store(true, std::memory_order_release);
}

int compareFolded(const char* a, const char* b) {
    if (!tablesAreSetUp.load(std::memory_order_acquire)) [[unlikely]] {
        setTablesUp();
    }
    const MallocBlock<uint16_t> wideA(vn_getUTF16(a));
    const MallocBlock<uint16_t> wideB(vn_getUTF16(b));
    UErrorCode status = U_ZERO_ERROR;  // ICU returns 0 for a null argument
    return unorm_compare(reinterpret_cast<const UChar*>(wideA.get()), -1,
                         reinterpret_cast<const UChar*>(wideB.get()), -1, U_COMPARE_IGNORE_CASE,
                         &status);
}

// ICU counts in 32 bits; longer text is copied unchanged.
bool isConvertible(size_t length) {
    return length <= (INT32_MAX - 8) / 4;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

const char* vn_getCodepage() {
    if (!checkedCodepage.load(std::memory_order_acquire)) {
        codepage.store(codepageOfEnvironment(), std::memory_order_relaxed);
        checkedCodepage.store(true, std::memory_order_release);
    }
    return codepage.load(std::memory_order_relaxed);
}

int vn_isConsole(int descriptor) {
    return isatty(descriptor);
}

int vn_isConsoleFile(FILE* stream) {
    return isatty(fileno(stream));
}

char* vn_CstrToUTF8(const char* text) {
    const size_t length = std::strlen(text);
    MallocBlock<char> result = isConvertible(length) ? toUTF8(text, length) : nullptr;
    return result ? result.release() : strdup(text);
}

char* vn_cmdlineToUTF8(const char* argument) {
    return vn_CstrToUTF8(argument);
}

char* vn_UTF8ToCstr(const char* text) {
    const size_t length = std::strlen(text);
    const bool converts = length > 0 && isConvertible(length);
    MallocBlock<char> result = converts ? toCodepage(text, length) : nullptr;
    return result ? result.release() : strdup(text);
}

char* vn_getUTF8(const uint16_t* text) {
    if (*text == 0) {
        return strdup("");
    }
    const auto* source = reinterpret_cast<const UChar*>(text);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(nullptr, 0, &length, source, -1, &status);
    if (status != U_BUFFER_OVERFLOW_ERROR) {
        return nullptr;
    }
    VN_ASSERT(length > 0);
    MallocBlock<char> result = allocate<char>(static_cast<size_t>(length) + 1);
    status = U_ZERO_ERROR;
    u_strToUTF8(result.get(), length + 1, nullptr, source, -1, &status);
    return U_FAILURE(status) ? nullptr : result.release();
}

uint16_t* vn_getUTF16(const char* text) {
    if (*text == '\0') {
        return static_cast<uint16_t*>(std::calloc(1, sizeof(uint16_t)));
    }
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(nullptr, 0, &length, text, -1, &status);
    if (status != U_BUFFER_OVERFLOW_ERROR) {
        return nullptr;
    }
    VN_ASSERT(length > 0);
    MallocBlock<uint16_t> result = allocate<uint16_t>(static_cast<size_t>(length) + 1);
    status = U_ZERO_ERROR;
    u_strFromUTF8(reinterpret_cast<UChar*>(result.get()), length + 1, nullptr, text, -1, &status);
    return U_FAILURE(status) ? nullptr : result.release();
}

unsigned int vn_codeUnitsUTF16(const uint16_t* text) {
    unsigned int count = 0;
    while (text[count] != 0) {
        ++count;
    }
    return count;
}

int vn_UTF8CaseCmp(const char* a, const char* b) {
    return vn_isAscii(a) && vn_isAscii(b) ? strcasecmp(a, b) : compareFolded(a, b);
}
