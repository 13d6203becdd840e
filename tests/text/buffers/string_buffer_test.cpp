// The string buffer: contents compared with std::string, block sizes with the growth rule.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vncommon/buffers.h>
#include <vncommon/failure.h>

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "support/child_process.h"

namespace {

const char* const outOfMemoryText =
    "Fatal error: malloc or similar returned null - this suggests the process has run out of "
    "memory\n";

// Calls the exported function; the compiler would inline the header's.
void (*volatile exportedAppendChar)(CStringBuffer*, int) = vn_strbufAppendChar;

const char* volatile nothing = nullptr;  // hides null and empty formats from the compiler
const char* volatile emptyFormat = "";

struct Buffer : CStringBuffer {
    explicit Buffer(uint64_t initialCapacity = 0) { vn_strbufInit(this, initialCapacity); }
    ~Buffer() { vn_strbufDestroy(this, 1); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    std::string text() const { return std::string(data, size); }
    void append(const std::string& more) { vn_strbufAppendString(this, more.c_str()); }
};

__attribute__((format(printf, 2, 3))) void appendVA(CStringBuffer* buffer, const char* format,
                                                    ...) {
    va_list arguments;
    va_start(arguments, format);
    vn_strbufAppendVA(buffer, format, arguments);
    va_end(arguments);
}

uint64_t capacityFor(uint64_t need) {
    return need < 5000 ? need + need : need + need / 2;
}

std::string escaped(const std::string& text, bool semiColon) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '\n':
                result += "\\n";
                break;
            case '\r':
                result += "\\r";
                break;
            case '"':
                result += "\\\"";
                break;
            case '\\':
                result += semiColon ? R"(\\\\)" : R"(\\)";
                break;
            case ';':
                result += semiColon ? R"(\\;)" : ";";
                break;
            default:
                result += c;
        }
    }
    return result;
}

struct TemporaryFile {
    explicit TemporaryFile(const std::string& contents) {
        close(mkstemp(path));
        std::ofstream(path) << contents;
    }
    ~TemporaryFile() { unlink(path); }

    char path[32] = "/tmp/vnbufferXXXXXX";
};

}  // namespace

// ---- Construction and destruction ----

TEST(StringBuffer, InitMakesAnEmptyString) {
    CStringBuffer buffer;
    char* block = vn_strbufInit(&buffer, 0);
    EXPECT_EQ(block, buffer.data);
    EXPECT_EQ(buffer.size, 0u);
    EXPECT_EQ(buffer.capacity, 20u);
    EXPECT_STREQ(block, "");
    vn_strbufDestroy(&buffer, 1);

    vn_strbufInit(&buffer, 1);
    EXPECT_EQ(buffer.capacity, 1u);
    EXPECT_STREQ(buffer.data, "");
    vn_strbufDestroy(&buffer, 1);
}

TEST(StringBuffer, DestroyWithZeroLeavesTheStringToTheCaller) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    vn_strbufAppendString(&buffer, "kept");
    char* text = vn_strbufGetString(&buffer);
    vn_strbufDestroy(&buffer, 0);
    EXPECT_STREQ(text, "kept");
    vn_free(text);
}

TEST(StringBuffer, FieldsLieInOrder) {
    EXPECT_EQ(sizeof(CStringBuffer), 24u);
    EXPECT_EQ(offsetof(CStringBuffer, size), 0u);
    EXPECT_EQ(offsetof(CStringBuffer, capacity), 8u);
    EXPECT_EQ(offsetof(CStringBuffer, data), 16u);
}

// ---- Growth ----

TEST(StringBuffer, TwentiethCharacterGrows) {
    Buffer buffer;
    for (int i = 0; i < 19; ++i) {
        vn_strbufAppendChar(&buffer, 'a');
        EXPECT_EQ(buffer.capacity, 20u);
    }
    vn_strbufAppendChar(&buffer, 'b');
    EXPECT_EQ(buffer.capacity, 40u);
    EXPECT_EQ(buffer.text(), std::string(19, 'a') + 'b');
}

TEST(StringBuffer, GrowsByHalfFromFiveThousandOn) {
    for (const uint64_t need : {20u, 21u, 4999u, 5000u, 5001u, 100001u}) {
        Buffer buffer;
        buffer.append(std::string(need, 'x'));
        EXPECT_EQ(buffer.size, need);
        EXPECT_EQ(buffer.capacity, capacityFor(need));
        EXPECT_EQ(buffer.text(), std::string(need, 'x'));
    }
    Buffer odd;
    odd.append(std::string(5001, 'x'));
    EXPECT_EQ(odd.capacity, 7501u);
}

TEST(StringBuffer, TakesANewBlockWhenItGrows) {
    Buffer buffer;
    const char* before = buffer.data;
    buffer.append(std::string(19, 'x'));
    EXPECT_EQ(buffer.data, before);
    buffer.append("");  // an empty append to a full block does not grow it
    EXPECT_EQ(buffer.capacity, 20u);
    buffer.append("y");
    EXPECT_NE(buffer.data, before);
}

TEST(StringBuffer, GrowthKeepsOnlyTheString) {
    Buffer buffer;
    buffer.append("ab");
    vn_strbufAppendChar(&buffer, 0);
    buffer.append("cd");
    EXPECT_EQ(buffer.text(), std::string("ab\0cd", 5));
    buffer.append(std::string(15, 'x'));
    EXPECT_EQ(buffer.capacity, 40u);
    EXPECT_EQ(buffer.text(), std::string("ab\0\0\0", 5) + std::string(15, 'x'));
}

VN_CHILD(appendBeyond64Bits) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    vn_strbufAppendString(&buffer, "12345");
    vn_strbufAppendStringN(&buffer, "x", std::stoull(arguments.at(0)));
    return 0;
}

TEST(StringBuffer, ImpossibleSizesEndTheProcess) {
    // size + n overflows; need + need / 2 overflows; more memory than any machine has.
    for (const char* length :
         {"18446744073709551615", "18446744073709551611", "13000000000000000000",
          "12297829382473034406", "6000000000000000000"}) {
        const ChildResult child = runChild(
            "appendBeyond64Bits",
            {.environment = {{"ASAN_OPTIONS", "allocator_may_return_null=1:handle_abort=0"}},
             .arguments = {length}});
        EXPECT_EQ(child.signal, SIGABRT) << length;
        EXPECT_NE(child.err.find(outOfMemoryText), std::string::npos) << child.err;
    }
}

// ---- Plain appends ----

TEST(StringBuffer, AppendStringGivesTheBeginning) {
    Buffer buffer;
    EXPECT_EQ(vn_strbufAppendString(&buffer, "one"), buffer.data);
    EXPECT_EQ(vn_strbufAppendString(&buffer, "two"), buffer.data + 3);
    char* grown = vn_strbufAppendString(&buffer, std::string(50, 'x').c_str());
    EXPECT_EQ(grown, buffer.data + 6);
    EXPECT_EQ(vn_strbufGetString(&buffer), buffer.data);
    EXPECT_EQ(vn_strbufGetSize(&buffer), 56u);
    EXPECT_STREQ(buffer.data, ("onetwo" + std::string(50, 'x')).c_str());
}

TEST(StringBuffer, NullReadsNull) {
    Buffer buffer;
    EXPECT_EQ(vn_strbufAppendString(&buffer, nullptr), buffer.data);
    EXPECT_EQ(vn_strbufAppendStringN(&buffer, nullptr, 9), buffer.data);
    EXPECT_EQ(buffer.size, 8u);
    vn_strbufAppendStringEscape(&buffer, nullptr);
    vn_strbufAppendStringEscapeSemiColon(&buffer, nullptr);
    vn_strbufAppendFormat(&buffer, nothing, 0);
    appendVA(&buffer, nothing, 0);
    EXPECT_EQ(vn_strbufAppendBuf(&buffer, nullptr), buffer.data + 24);
    EXPECT_STREQ(buffer.data, "nullnullnullnullnullnullnull");
    EXPECT_EQ(buffer.size, 28u);
}

TEST(StringBuffer, AppendStringNCopiesAtMostN) {
    Buffer buffer;
    buffer.append("-");
    EXPECT_EQ(vn_strbufAppendStringN(&buffer, "abcdef", 3), buffer.data);
    EXPECT_EQ(buffer.text(), "-abc");
    EXPECT_STREQ(buffer.data, "-abc");
    const char unterminated[2] = {'y', 'z'};
    vn_strbufAppendStringN(&buffer, unterminated, 2);
    EXPECT_EQ(buffer.text(), "-abcyz");
    vn_strbufAppendStringN(&buffer, "ignored", 0);
    EXPECT_EQ(buffer.text(), "-abcyz");
}

TEST(StringBuffer, AppendStringNPadsAShorterSource) {
    Buffer buffer;
    memset(buffer.data, '#', buffer.capacity);
    buffer.data[0] = '\0';
    vn_strbufAppendStringN(&buffer, "ab", 6);
    EXPECT_EQ(buffer.size, 6u);
    EXPECT_EQ(std::string(buffer.data, 7), std::string("ab\0\0\0\0\0", 7));
    vn_strbufAppendStringN(&buffer, "cd", 30);
    EXPECT_EQ(buffer.size, 36u);
    EXPECT_EQ(buffer.capacity, 72u);
    EXPECT_EQ(buffer.text(), std::string("ab\0\0\0\0cd", 8) + std::string(28, '\0'));
}

TEST(StringBuffer, AppendCharStoresOneByte) {
    Buffer buffer;
    for (const int character : {0x61, 0xe4, 0x163, -1}) {
        vn_strbufAppendChar(&buffer, character);
    }
    EXPECT_STREQ(buffer.data, "a\xe4\x63\xff");
}

TEST(StringBuffer, AppendCharInPlaceOfTheCallDoesTheSame) {
    Buffer inPlace, called;
    for (int character = 0; character < 20000; ++character) {
        vn_strbufAppendChar(&inPlace, character);
        exportedAppendChar(&called, character);
        ASSERT_EQ(inPlace.size, called.size);
        ASSERT_EQ(inPlace.capacity, called.capacity);
        ASSERT_EQ(inPlace.data[inPlace.size], '\0');
        ASSERT_EQ(called.data[called.size], '\0');
    }
    EXPECT_EQ(inPlace.text(), called.text());
}

TEST(StringBuffer, AppendBufTakesTheString) {
    Buffer buffer, other;
    buffer.append("ab");
    other.append("cd");
    vn_strbufAppendStringN(&other, "", 2);
    EXPECT_EQ(vn_strbufAppendBuf(&buffer, &other), buffer.data + 2);
    EXPECT_EQ(buffer.text(), "abcd");
}

// ---- Sources inside the buffer ----

TEST(StringBuffer, AppendsItself) {
    for (const uint64_t capacity : {0u, 3u, 4u, 1000u}) {  // with and without growth
        Buffer buffer(capacity);
        buffer.append("ab");
        for (int i = 0; i < 8; ++i) {
            vn_strbufAppendBuf(&buffer, &buffer);
        }
        std::string expected;
        for (int i = 0; i < 256; ++i) {
            expected += "ab";
        }
        EXPECT_EQ(buffer.text(), expected);
        EXPECT_EQ(strlen(buffer.data), 512u);
    }
}

TEST(StringBuffer, SourceMayLieInTheBlock) {
    for (const uint64_t capacity : {14u, 40000u}) {  // with and without growth
        const std::string start = "0;\"2\n45\\789";
        const auto check = [&](const char* name, const std::string& added, auto append) {
            Buffer buffer(capacity);
            buffer.append(start);
            append(&buffer, buffer.data);
            EXPECT_EQ(buffer.text(), start + added) << name << " " << capacity;
            EXPECT_EQ(buffer.data[buffer.size], '\0');
        };
        check("string", start.substr(3),
              [](CStringBuffer* b, const char* data) { vn_strbufAppendString(b, data + 3); });
        check("characters", start.substr(2, 5),
              [](CStringBuffer* b, const char* data) { vn_strbufAppendStringN(b, data + 2, 5); });
        check("padded", start.substr(9) + std::string(28, '\0'),
              [](CStringBuffer* b, const char* data) { vn_strbufAppendStringN(b, data + 9, 30); });
        check("escaped", escaped(start, false),
              [](CStringBuffer* b, const char* data) { vn_strbufAppendStringEscape(b, data); });
        check("escaped twice", escaped(start, true), [](CStringBuffer* b, const char* data) {
            vn_strbufAppendStringEscapeSemiColon(b, data);
        });
        check("formatted", "<" + start + ">",
              [](CStringBuffer* b, const char* data) { vn_strbufAppendFormat(b, "<%s>", data); });
        check("formatted long", std::string(2000, ' ') + start,
              [](CStringBuffer* b, const char* data) {
                  vn_strbufAppendFormat(b, "%2000s%s", "", data);
              });
        check("argument list", "<" + start + ">",
              [](CStringBuffer* b, const char* data) { appendVA(b, "<%s>", data); });
    }
}

// ---- Formats ----

TEST(StringBuffer, AppendFormatGivesTheWholeResult) {
    for (const size_t length : {1u, 18u, 19u, 20u, 1022u, 1023u, 1024u, 1025u, 9999u, 70000u}) {
        Buffer buffer;
        vn_strbufAppendFormat(&buffer, "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(buffer.text(), std::string(length, 'x'));
        EXPECT_EQ(buffer.capacity, length < 20 ? 20 : capacityFor(length));
        EXPECT_EQ(buffer.data[length], '\0');
    }
    Buffer buffer;
    vn_strbufAppendFormat(&buffer, "%d %s %.3f|%c", -7, "text", 0.5, 'c');
    vn_strbufAppendFormat(&buffer, "%08lx%%", 0xbeefUL);
    EXPECT_EQ(buffer.text(), "-7 text 0.500|c0000beef%");
}

TEST(StringBuffer, EmptyFormatAppendsNothing) {
    Buffer buffer;
    vn_strbufAppendFormat(&buffer, emptyFormat, 0);
    appendVA(&buffer, emptyFormat, 0);
    EXPECT_EQ(buffer.size, 0u);
    EXPECT_EQ(buffer.capacity, 20u);
}

TEST(StringBuffer, ArgumentsThatCannotBeFormattedAppendNothing) {
    Buffer buffer;
    buffer.append("kept");
    const wchar_t unknown[] = {L'x', 0x20ac, 0};  // not in the C locale
    vn_strbufAppendFormat(&buffer, "a%ls", unknown);
    appendVA(&buffer, "a%ls", unknown);
    EXPECT_EQ(buffer.text(), "kept");
    EXPECT_STREQ(buffer.data, "kept");
}

VN_CHILD(formatGivesNothing) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    vn_strbufAppendFormat(&buffer, "%s", "");
    return 0;
}

TEST(StringBuffer, EmptyResultOfAppendFormatEndsTheProcess) {
    const ChildResult child =
        runChild("formatGivesNothing", {.environment = {{"ASAN_OPTIONS", "handle_abort=0"}}});
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.err.rfind("Fatal error: Call failed with code 1: "
                              "vn_strbufAppendFormat: vsnprintf\n",
                              0),
              0u)
        << child.err;
}

TEST(StringBuffer, AppendVAMakesRoomForItsLimit) {
    Buffer buffer;
    buffer.append("ab");
    appendVA(&buffer, "%d-%s", 42, "x");
    EXPECT_EQ(buffer.text(), "ab42-x");
    EXPECT_EQ(buffer.capacity, 15003u);
    appendVA(&buffer, "%s", "y");
    EXPECT_EQ(buffer.capacity, 15003u);
    EXPECT_STREQ(buffer.data, "ab42-xy");
}

TEST(StringBuffer, AppendVAUpToItsLimit) {
    Buffer buffer;
    appendVA(&buffer, "%s", std::string(9999, 'x').c_str());
    EXPECT_EQ(buffer.text(), std::string(9999, 'x'));
    EXPECT_EQ(buffer.capacity, 15000u);
    EXPECT_EQ(buffer.data[9999], '\0');
}

TEST(StringBuffer, AppendVABeyondItsLimitCountsWhatItDoesNotWrite) {
    Buffer buffer;
    appendVA(&buffer, "%s", std::string(12000, 'x').c_str());
    EXPECT_EQ(buffer.size, 12000u);
    EXPECT_EQ(buffer.capacity, 15000u);
    EXPECT_EQ(strlen(buffer.data), 9999u);
    EXPECT_EQ(buffer.data[12000], '\0');
    buffer.append("y");
    EXPECT_EQ(buffer.data[12000], 'y');
}

TEST(StringBuffer, NextAppendGrowsABlockThatTheSizeExceeds) {
    Buffer buffer;
    appendVA(&buffer, "%s", std::string(50000, 'x').c_str());
    EXPECT_EQ(buffer.size, 50000u);
    EXPECT_EQ(buffer.capacity, 15000u);
    EXPECT_EQ(strlen(buffer.data), 9999u);
    vn_strbufTruncate(&buffer, 49000);
    EXPECT_EQ(buffer.size, 49000u);
    EXPECT_EQ(buffer.capacity, 15000u);
    vn_strbufAppendChar(&buffer, 'y');
    EXPECT_EQ(buffer.size, 49001u);
    EXPECT_EQ(buffer.capacity, 73501u);
    EXPECT_EQ(strlen(buffer.data), 9999u);
    EXPECT_STREQ(buffer.data + 49000, "y");
    vn_strbufTruncate(&buffer, 5);
    EXPECT_EQ(buffer.text(), "xxxxx");
}

TEST(StringBuffer, EmptyResultOfAppendVAAddsItsLimit) {
    Buffer buffer;
    buffer.append("ab");
    appendVA(&buffer, "%s", "");
    EXPECT_EQ(buffer.size, 10002u);
    EXPECT_EQ(buffer.capacity, 15003u);
    EXPECT_EQ(buffer.text(), "ab" + std::string(10000, '\0'));

    // Compat: clears the byte at the limit, counted from the start of the block, not of the append.
    Buffer longer;
    longer.append(std::string(20000, 'x'));
    appendVA(&longer, "%s", "");
    EXPECT_EQ(longer.size, 30000u);
    EXPECT_EQ(strlen(longer.data), 10000u);
    EXPECT_EQ(longer.data[10001], 'x');
    EXPECT_EQ(longer.data[19999], 'x');
}

// ---- Escapes ----

TEST(StringBuffer, EscapesTheExamples) {
    Buffer buffer;
    vn_strbufAppendStringEscape(&buffer, "a\"b\\\n");
    EXPECT_STREQ(buffer.data, "a\\\"b\\\\\\n");
    Buffer twice;
    vn_strbufAppendStringEscapeSemiColon(&twice, "x;y\\z");
    EXPECT_STREQ(twice.data, "x\\\\;y\\\\\\\\z");
}

TEST(StringBuffer, EscapesEveryByte) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    Buffer buffer, twice;
    vn_strbufAppendStringEscape(&buffer, all.c_str());
    vn_strbufAppendStringEscapeSemiColon(&twice, all.c_str());
    EXPECT_EQ(buffer.text(), escaped(all, false));
    EXPECT_EQ(twice.text(), escaped(all, true));
    for (char c : all) {
        Buffer single, singleTwice;
        vn_strbufAppendStringEscape(&single, std::string(1, c).c_str());
        vn_strbufAppendStringEscapeSemiColon(&singleTwice, std::string(1, c).c_str());
        EXPECT_EQ(single.text(), escaped(std::string(1, c), false));
        EXPECT_EQ(singleTwice.text(), escaped(std::string(1, c), true));
    }
}

TEST(StringBuffer, EscapesReserveForTheWorstCase) {
    Buffer buffer;
    vn_strbufAppendStringEscape(&buffer, "123456789");
    EXPECT_EQ(buffer.capacity, 20u);  // twice 9 bytes fit into 20
    Buffer grown;
    vn_strbufAppendStringEscape(&grown, "1234567890");
    EXPECT_EQ(grown.capacity, 40u);
    EXPECT_EQ(grown.size, 10u);
    Buffer twice;
    vn_strbufAppendStringEscapeSemiColon(&twice, "1234");
    EXPECT_EQ(twice.capacity, 20u);
    vn_strbufAppendStringEscapeSemiColon(&twice, "5678");
    EXPECT_EQ(twice.capacity, 40u);
    vn_strbufAppendStringEscape(&twice, "");
    EXPECT_STREQ(twice.data, "12345678");
}

TEST(StringBuffer, EscapesEverythingAtAnyLengthAndPlace) {
    // Every length around the sizes that are copied at once. The text has one special character, or
    // only special ones, which fill the block to its last byte.
    for (size_t length = 0; length < 70; ++length) {
        for (const char special : {'\n', '\r', '"', '\\', ';'}) {
            for (size_t at = 0; at <= length; ++at) {
                std::string text(length, at == length ? special : 'x');
                if (at < length) {
                    text[at] = special;
                }
                Buffer buffer(2 * length + 1), twice(4 * length + 1);
                vn_strbufAppendStringEscape(&buffer, text.c_str());
                vn_strbufAppendStringEscapeSemiColon(&twice, text.c_str());
                ASSERT_EQ(buffer.text(), escaped(text, false));
                ASSERT_EQ(twice.text(), escaped(text, true));
                ASSERT_EQ(buffer.capacity, 2 * length + 1);
                ASSERT_EQ(twice.capacity, 4 * length + 1);
            }
        }
    }
}

// ---- Files ----

TEST(StringBuffer, AppendsAFile) {
    for (const size_t length : {0u, 1u, 99u, 100u, 101u, 250u, 4999u, 5000u, 123456u}) {
        std::string contents;
        for (size_t i = 0; i < length; ++i) {
            contents += static_cast<char>('a' + i % 23);
        }
        const TemporaryFile file(contents);
        Buffer buffer;
        buffer.append("<");
        EXPECT_EQ(vn_strbufAppendFile(&buffer, file.path), nullptr);
        EXPECT_EQ(buffer.text(), "<" + contents);
        EXPECT_EQ(buffer.data[buffer.size], '\0');

        uint64_t size = 1, capacity = 20;  // read in steps of 100 bytes
        for (size_t left = length;; left -= 100, size += 100) {
            capacity = size + 100 >= capacity ? capacityFor(size + 100) : capacity;
            if (left < 100) {
                break;
            }
        }
        EXPECT_EQ(buffer.capacity, capacity) << length;
    }
}

TEST(StringBuffer, MissingFileLeavesTheBuffer) {
    Buffer buffer;
    buffer.append("kept");
    char* error = vn_strbufAppendFile(&buffer, "/nonexistent/file");
    EXPECT_STREQ(error, "Can't open file due to error: No such file or directory");
    vn_free(error);
    EXPECT_EQ(buffer.text(), "kept");
    EXPECT_EQ(buffer.capacity, 20u);
}

TEST(StringBuffer, FileThatCannotBeReadIsAnError) {
    Buffer buffer;
    buffer.append("kept");
    char* error = vn_strbufAppendFile(&buffer, "/tmp");
    EXPECT_STREQ(error, "Problem while reading from file");
    vn_free(error);
    EXPECT_STREQ(buffer.data, "kept");
}

TEST(StringBuffer, FileNameMayLieInTheBuffer) {
    const TemporaryFile file("contents");
    Buffer buffer;
    buffer.append(file.path);
    EXPECT_EQ(vn_strbufAppendFile(&buffer, buffer.data), nullptr);
    EXPECT_EQ(buffer.text(), std::string(file.path) + "contents");
}

// ---- Truncation ----

TEST(StringBuffer, TruncatesOnlyToLess) {
    Buffer buffer;
    buffer.append("abcdef");
    vn_strbufTruncate(&buffer, 7);
    vn_strbufTruncate(&buffer, 6);
    vn_strbufTruncate(&buffer, UINT64_MAX);
    EXPECT_EQ(buffer.text(), "abcdef");
    vn_strbufTruncate(&buffer, 2);
    EXPECT_EQ(buffer.size, 2u);
    EXPECT_STREQ(buffer.data, "ab");
    EXPECT_EQ(buffer.capacity, 20u);
    vn_strbufTruncate(&buffer, 0);
    EXPECT_STREQ(buffer.data, "");
}

TEST(StringBuffer, TruncationShrinksAWastefulBlock) {
    struct Case {
        uint64_t capacity, newSize, expected;
    };
    for (const auto& [capacity, newSize, expected] :
         {Case{40000, 100, 200}, Case{40000, 5, 20}, Case{40000, 0, 20}, Case{40000, 10, 20},
          Case{40000, 11, 22}, Case{40000, 19999, 39998}, Case{40000, 20000, 40000},
          Case{40001, 20000, 40000}, Case{40002, 20001, 40002}, Case{40003, 20001, 40002},
          Case{20000, 0, 20000}, Case{20001, 0, 20}, Case{20100, 100, 20100},
          Case{20101, 100, 200}}) {
        Buffer buffer(capacity);
        buffer.append(std::string(newSize + 1, 'x'));
        vn_strbufTruncate(&buffer, newSize);
        EXPECT_EQ(buffer.capacity, expected) << capacity << " to " << newSize;
        EXPECT_EQ(buffer.text(), std::string(newSize, 'x'));
        EXPECT_EQ(buffer.data[newSize], '\0');
    }
}

TEST(StringBuffer, ShrinkingKeepsOnlyTheString) {
    Buffer buffer(40000);
    vn_strbufAppendStringN(&buffer, "ab", 30000);
    memset(buffer.data + 2, 0, 1);
    buffer.data[50] = 'z';
    vn_strbufTruncate(&buffer, 100);
    EXPECT_EQ(buffer.capacity, 200u);
    EXPECT_EQ(buffer.text(), "ab" + std::string(98, '\0'));
    EXPECT_EQ(buffer.data[100], '\0');
}

// ---- Random operations, compared with a model ----

namespace {

class CapacityModel {
  public:
    std::string text;
    uint64_t capacity = 20;

    void grow(uint64_t added) {
        const uint64_t need = text.size() + added;
        capacity = need >= capacity ? capacityFor(need) : capacity;
    }

    void append(const std::string& added, uint64_t room) {
        grow(room);
        text += added;
    }

    void truncate(uint64_t newSize) {
        if (newSize >= text.size()) {
            return;
        }
        text.resize(newSize);
        if (newSize + 20000 < capacity && newSize * 2 < capacity) {
            capacity = std::max<uint64_t>(newSize * 2, 20);
        }
    }
};

// Applies one operation to the buffer and to the model.
void change(uint64_t operation, const std::string& text, Buffer& buffer, CapacityModel& model) {
    switch (operation) {
        case 0:
            buffer.append(text);
            model.append(text, text.size());
            break;
        case 1:
            vn_strbufAppendChar(&buffer, 'c');
            model.append("c", 1);
            break;
        case 2:
            vn_strbufAppendStringEscape(&buffer, text.c_str());
            model.append(escaped(text, false), 2 * text.size());
            break;
        case 3:
            vn_strbufAppendStringEscapeSemiColon(&buffer, text.c_str());
            model.append(escaped(text, true), 4 * text.size());
            break;
        case 4:
            vn_strbufAppendFormat(&buffer, "%d,%s", 7, text.c_str());
            model.append("7," + text, text.size() + 2);
            break;
        default:
            appendVA(&buffer, "%s.", text.c_str());
            model.append(text + ".", 10000);
            break;
    }
}

}  // namespace

TEST(StringBuffer, BehavesLikeAStringWithACapacity) {
    std::mt19937 random(31);
    const std::string alphabet = "ab;c\"d\n\re\\f g\t\xc3\xa9";
    for (int round = 0; round < 200; ++round) {
        Buffer buffer;
        CapacityModel model;
        for (int step = 0; step < 60; ++step) {
            std::string text;
            for (uint64_t left = random() % (step % 10 == 0 ? 3000 : 40); left > 0; --left) {
                text += alphabet[random() % alphabet.size()];
            }
            const uint64_t operation = random() % 7;
            if (operation == 6) {
                const uint64_t newSize = random() % (model.text.size() + 20);
                vn_strbufTruncate(&buffer, newSize);
                model.truncate(newSize);
            } else {
                change(operation, text, buffer, model);
            }
            ASSERT_EQ(buffer.text(), model.text);
            ASSERT_EQ(buffer.data[buffer.size], '\0');
            ASSERT_EQ(buffer.capacity, model.capacity);
        }
    }
}
