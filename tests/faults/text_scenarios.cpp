// Buffers, string utilities, UTF-8 conversions, numbers.
#include <cerrno>
#include <cmath>
#include <cstring>

#include <vncommon/vncommon.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

void appendList(CStringBuffer* buffer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vn_strbufAppendVA(buffer, format, arguments);
    va_end(arguments);
}

void fillStringBuffer() {
    CStringBuffer buffer;
    inject([&] {
        vn_strbufInit(&buffer, 0);
        vn_strbufAppendString(&buffer, "a text that is longer than the first block ");
        vn_strbufAppendStringEscape(&buffer, "\"quoted\" ");
        vn_strbufAppendChar(&buffer, 'c');
    });
    const std::string before = buffer.data;
    inject([&] { vn_strbufAppendFormat(&buffer, "%1500d", 7); });
    CHECK(buffer.size == before.size() + (failed("vsnprintf") ? 0 : 1500));
    CHECK(strncmp(buffer.data, before.data(), before.size()) == 0);
    const uint64_t size = buffer.size;
    inject([&] { appendList(&buffer, "%s", "list"); });
    CHECK(buffer.size == size + (failed("vsnprintf") ? 0 : 4));
    inject([&] { vn_strbufAppendStringN(&buffer, "x", 60000); });
    inject([&] { vn_strbufTruncate(&buffer, 10); });
    CHECK(equal(buffer.data, before.substr(0, 10).c_str()));
    vn_strbufDestroy(&buffer, 1);
}

void fillByteBuffer() {
    CByteBuffer buffer;
    const std::string bytes(30000, 'y');
    inject([&] {
        vn_bytebufInit(&buffer, 2);
        vn_bytebufAppendString(&buffer, "text");
        vn_bytebufAppendByte(&buffer, 'x');
        vn_bytebufInsertBytesAtStart(&buffer, "0123456789", 10);
        vn_bytebufAppendBytes(&buffer, bytes.data(), bytes.size());
        vn_bytebufTruncate(&buffer, 15);
    });
    CHECK(buffer.size == 15 && memcmp(buffer.data, "0123456789textx", 15) == 0);
    vn_bytebufDestroy(&buffer, 1);
}

void appendFile() {
    const std::string name = writeFile("a file", std::string(100'000, 'f'));
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    vn_strbufAppendString(&buffer, "kept ");
    char* message = inject([&] { return vn_strbufAppendFile(&buffer, name.c_str()); });
    const bool complete = message == nullptr;
    CHECK(complete == !(failed("fopen") || failed("fread")) || failed("malloc"));
    const std::string opening = "Can't open file due to error: ";
    CHECK(complete || (failed("fread") && equal(message, "Problem while reading from file")) ||
          equal(message, (opening + strerrordesc_np(EACCES)).c_str()) ||
          equal(message, (opening + strerrordesc_np(EINTR)).c_str()) ||
          equal(message, (opening + strerrordesc_np(EMFILE)).c_str()) ||
          equal(message, (opening + strerrordesc_np(ENOMEM)).c_str()));
    vn_free(message);
    CHECK(strncmp(buffer.data, "kept ", 5) == 0 && buffer.data[buffer.size] == '\0');
    CHECK(!complete || buffer.size == 100'005);
    vn_strbufDestroy(&buffer, 1);
}

void useStrings() {
    char* text = inject([] { return vn_xmlEscapeString("a < b"); });
    CHECK(equal(text, failed() ? nullptr : "a &lt; b"));
    free(text);
}

// The locale's code page is ISO-8859-1. If a conversion fails, the text is copied.
void convertText() {
    char* text = inject([] { return vn_UTF8ToCstr("gr\xC3\xBC\xC3\x9F"); });
    CHECK(equal(text, "gr\xFC\xDF") || (failed() && equal(text, "gr\xC3\xBC\xC3\x9F")) ||
          (failed("strdup") && text == nullptr));
    free(text);
    text = inject([] { return vn_CstrToUTF8("gr\xFC\xDF"); });
    CHECK(equal(text, "gr\xC3\xBC\xC3\x9F") || (failed() && equal(text, "gr\xFC\xDF")) ||
          (failed("strdup") && text == nullptr));
    free(text);
    text = inject([] { return vn_cmdlineToUTF8("plain"); });
    CHECK(equal(text, "plain") || (failed("strdup") && text == nullptr));
    free(text);
    text = inject([] { return vn_UTF8ToCstr(""); });
    CHECK(equal(text, failed() ? nullptr : ""));
    free(text);
}

void convertUTF16() {
    uint16_t* wide = inject([] { return vn_getUTF16("\xC3\xBC"); });
    CHECK(wide == nullptr ? failed() : wide[0] == 0xFC && wide[1] == 0);
    free(wide);
    wide = inject([] { return vn_getUTF16(""); });
    CHECK(wide == nullptr ? failed() : wide[0] == 0);
    free(wide);
    const uint16_t text[] = {0xFC, 0};
    char* narrow = inject([&text] { return vn_getUTF8(text); });
    CHECK(equal(narrow, failed() ? nullptr : "\xC3\xBC"));
    free(narrow);
    const uint16_t empty[] = {0};
    narrow = inject([&empty] { return vn_getUTF8(empty); });
    CHECK(equal(narrow, failed() ? nullptr : ""));
    free(narrow);
}

void compareText() {
    const int result = inject([] { return vn_UTF8CaseCmp("gr\xC3\xBC", "GR\xC3\x9D"); });
    CHECK(failed() || result < 0);
}

// Thousands of digits exceed the scratch area of a conversion.
void convertLongNumber() {
    const std::string digits = "0." + std::string(16'400, '3') + "e5";
    const double value = inject([&] { return vn_strtod(digits.c_str(), nullptr); });
    CHECK(value == 33333.333333333336);
}

void convertNumbers() {
    char text[400];
    CHECK(equal(inject([&] { return vn_g_fmt(text, 1.5e300); }), "1.5e+300"));
    CHECK(inject([&] { return vn_g_fmt_fixed(text, sizeof text, 20, 1e-7 / 3); }) == text);
    CHECK(equal(text, "0.00000003333333333333"));
    CHECK(std::isinf(inject([] { return vn_strtod("1e400", nullptr); })));
    CHECK(inject([] { return vn_strtod("0x1.8p3", nullptr); }) == 12);
    const int locked = inject(acquireBallocLock);
    CHECK((locked == 0) == !failed());
    if (locked == 0) {
        CHECK((inject(freeBallocLock) == 0) == !failed());
    }
}

}  // namespace

std::vector<Scenario> textScenarios() {
    const std::map<std::string, std::optional<std::string>> latin1 = {
        {"LC_ALL", "de_DE.ISO-8859-1"}};
    return {
        {"stringBuffer", fillStringBuffer, Memory::all, {"malloc", "vsnprintf"}},
        {"byteBuffer", fillByteBuffer, Memory::all, {"malloc"}},
        {"appendFile", appendFile, Memory::all, {"malloc", "fopen", "fread", "fclose"}},
        {"strings", useStrings, Memory::all, {"malloc"}},
        {.name = "conversions",
         .run = convertText,
         .memory = Memory::all,
         .mustFail = {"malloc", "strdup"},
         .environment = latin1},
        {"utf16", convertUTF16, Memory::all, {"malloc", "calloc", "strdup"}},
        {"comparison", compareText, Memory::all, {"malloc"}},
        {.name = "numbers",
         .run = convertNumbers,
         .memory = Memory::all,
         .mustFail = {"pthread_mutex_lock", "pthread_mutex_unlock", "pthread_setspecific"},
         .silent = {"pthread_mutex_lock", "pthread_mutex_unlock", "pthread_setspecific"},
         .mayKeep = 100},  // free lists, used without the scratch area
        {.name = "longNumber",
         .run = convertLongNumber,
         .memory = Memory::all,
         .mustFail = {"malloc", "pthread_mutex_lock"},
         .silent = {"pthread_mutex_lock", "pthread_mutex_unlock", "pthread_setspecific"},
         .mayKeep = 100,
         .step = 5},
    };
}

}  // namespace faults
