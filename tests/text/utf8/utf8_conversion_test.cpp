// The locale's code page (in fresh processes, because a process reads it once), UTF-16, comparison.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <strings.h>
#include <unistd.h>
#include <vncommon/utf8.h>

#include <clocale>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/child_process.h"
#include "support/guarded_memory.h"

namespace {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};
template <class T>
using Block = std::unique_ptr<T[], FreeDeleter>;

using Value = std::optional<std::string>;

struct Locale {
    Value lcAll = {};
    Value lcCtype = {};
    Value lang = {};
};

std::string inLocale(const Locale& locale, const std::string& child,
                     const std::vector<std::string>& arguments = {}) {
    const ChildResult result = runChild(child, {.environment = {{"LC_ALL", locale.lcAll},
                                                                {"LC_CTYPE", locale.lcCtype},
                                                                {"LANG", locale.lang}},
                                                .arguments = arguments});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    return result.out;
}

std::string toCodepage(const std::string& locale, const std::string& text) {
    return inLocale({.lang = locale}, "printToCodepage", {text});
}
std::string fromCodepage(const std::string& locale, const std::string& text) {
    return inLocale({.lang = locale}, "printFromCodepage", {text});
}

VN_CHILD(printCodepage) {
    const char* name = vn_getCodepage();
    fputs(name ? name : "(null)", stdout);
    return name == vn_getCodepage() ? 0 : 1;
}

VN_CHILD(printToCodepage) {
    const Block<char> text(vn_UTF8ToCstr(arguments[0].c_str()));
    fputs(text.get(), stdout);
    return 0;
}

VN_CHILD(printFromCodepage) {
    const Block<char> text(vn_CstrToUTF8(arguments[0].c_str()));
    const Block<char> same(vn_cmdlineToUTF8(arguments[0].c_str()));
    fputs(text.get(), stdout);
    return std::string(text.get()) == same.get() ? 0 : 1;
}

VN_CHILD(changeEnvironmentAfterFirstCall) {
    fputs(vn_getCodepage() ? "name" : "(null)", stdout);
    setenv("LC_ALL", "en_US.ISO-8859-15", 1);
    fputs(vn_getCodepage() ? "name" : "(null)", stdout);
    return 0;
}

TEST(Codepage, IsWhatFollowsTheFirstPoint) {
    EXPECT_EQ(inLocale({.lang = "en_US.UTF-8"}, "printCodepage"), "UTF-8");
    EXPECT_EQ(inLocale({.lang = "de_DE.UTF-8@euro"}, "printCodepage"), "UTF-8@euro");
    EXPECT_EQ(inLocale({.lang = "a.b.c"}, "printCodepage"), "b.c");
    EXPECT_EQ(inLocale({.lang = "en_US."}, "printCodepage"), "");
    EXPECT_EQ(inLocale({.lang = "C"}, "printCodepage"), "(null)");
    EXPECT_EQ(inLocale({.lang = ""}, "printCodepage"), "(null)");
    EXPECT_EQ(inLocale({}, "printCodepage"), "(null)");
}

TEST(Codepage, FirstDefinedVariableDecides) {
    EXPECT_EQ(inLocale({.lcAll = "x.A", .lcCtype = "x.B", .lang = "x.C"}, "printCodepage"), "A");
    EXPECT_EQ(inLocale({.lcCtype = "x.B", .lang = "x.C"}, "printCodepage"), "B");
    EXPECT_EQ(inLocale({.lcAll = "", .lang = "en_US.UTF-8"}, "printCodepage"), "(null)");
    EXPECT_EQ(inLocale({.lcAll = "C", .lcCtype = "x.B"}, "printCodepage"), "(null)");
    EXPECT_EQ(inLocale({.lcCtype = "", .lang = "x.C"}, "printCodepage"), "(null)");
}

TEST(Codepage, IsReadOnce) {
    EXPECT_EQ(inLocale({}, "changeEnvironmentAfterFirstCall"), "(null)(null)");
}

constexpr const char* eAcute = "\xC3\xA9";                 // U+00E9
constexpr const char* euro = "\xE2\x82\xAC";               // U+20AC
constexpr const char* nihon = "\xE6\x97\xA5\xE6\x9C\xAC";  // U+65E5 U+672C

TEST(ToCodepage, Latin1) {
    EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", ""), "");
    EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", "plain"), "plain");
    EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", eAcute), "\xE9");
}

TEST(ToCodepage, ShiftJis) {
    EXPECT_EQ(toCodepage("ja_JP.Shift_JIS", nihon), "\x93\xFA\x96\x7B");
    EXPECT_EQ(toCodepage("ja_JP.Shift_JIS", std::string("a") + nihon + "z"), "a\x93\xFA\x96\x7Bz");
}

TEST(ToCodepage, Utf8) {
    const std::string text = std::string(eAcute) + euro + nihon + "\xF0\x9F\x98\x80";
    EXPECT_EQ(toCodepage("en_US.UTF-8", text), text);
}

TEST(ToCodepage, WithoutNameTheDefaultConverterServes) {
    EXPECT_EQ(toCodepage("C", "abc"), "abc");
}

// A file name is converted exactly or not at all.
TEST(ToCodepage, CopiesWhatItCannotRepresent) {
    for (const std::string text : {euro, nihon, "\xF0\x9F\x98\x80"}) {
        EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", "x" + text + "y"), "x" + text + "y");
        EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", eAcute + text), eAcute + text);
    }
    EXPECT_EQ(toCodepage("ja_JP.Shift_JIS", "\xF0\x9F\x98\x80"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(toCodepage("en_US.US-ASCII", eAcute), eAcute);
}

TEST(ToCodepage, CopiesRatherThanDropInvisibleCharacters) {
    for (const char* invisible : {"\xE2\x80\x8B", "\xC2\xAD", "\xEF\xB8\x8F"}) {
        const std::string text = std::string("x") + invisible + "y";
        EXPECT_EQ(toCodepage("en_US.US-ASCII", text), text);
    }
}

TEST(ToCodepage, CopiesMalformedText) {
    for (const std::string text : {"\xFF", "a\xC3", "caf\xE9", "\xED\xA0\x80", "\xC0\x80"}) {
        EXPECT_EQ(toCodepage("en_US.UTF-8", text), text);
        EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", text), text);
    }
}

TEST(ToCodepage, CopiesWhenTheCodepageIsUnknown) {
    EXPECT_EQ(toCodepage("xx.no-such-code-page", eAcute), eAcute);
    EXPECT_EQ(toCodepage("xx.no-such-code-page", ""), "");
}

// ISO-2022-JP takes three bytes to switch to kanji and three to switch back: one kanji grows
// from 3 to 8 bytes, four from 12 to 14 (the bound), five from 15 to 16.
TEST(ToCodepage, CopiesWhatGrowsByMoreThanTwoBytes) {
    const std::string day = "\xE6\x97\xA5";
    const auto days = [](size_t count, const std::string& one) {
        std::string text;
        while (count-- > 0) {
            text += one;
        }
        return text;
    };
    EXPECT_EQ(toCodepage("ja_JP.ISO-2022-JP", day), day);
    EXPECT_EQ(toCodepage("ja_JP.ISO-2022-JP", days(3, day)), days(3, day));
    for (const size_t count : {4U, 5U, 8U, 2000U}) {
        EXPECT_EQ(toCodepage("ja_JP.ISO-2022-JP", days(count, day)),
                  "\x1B$B" + days(count, "F|") + "\x1B(B");
    }
}

TEST(FromCodepage, Latin1AndShiftJis) {
    EXPECT_EQ(fromCodepage("de_DE.ISO-8859-1", ""), "");
    EXPECT_EQ(fromCodepage("de_DE.ISO-8859-1", "caf\xE9"), "caf\xC3\xA9");
    EXPECT_EQ(fromCodepage("ja_JP.Shift_JIS", "\x93\xFA\x96\x7B"), nihon);
    std::string high;
    std::string expected;
    for (int byte = 0xA0; byte < 0x100; ++byte) {
        high += static_cast<char>(byte);
        expected += static_cast<char>(0xC0 | byte >> 6);
        expected += static_cast<char>(0x80 | (byte & 0x3F));
    }
    EXPECT_EQ(fromCodepage("de_DE.ISO-8859-1", high), expected);
    EXPECT_EQ(toCodepage("de_DE.ISO-8859-1", expected), high);
}

TEST(FromCodepage, MalformedInputBecomesReplacementCharacters) {
    EXPECT_EQ(fromCodepage("en_US.UTF-8", "a\xFFz"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(fromCodepage("en_US.UTF-8", "\xFF\xFF\xFF"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(FromCodepage, CopiesWhenTheCodepageIsUnknown) {
    EXPECT_EQ(fromCodepage("xx.no-such-code-page", "caf\xE9"), "caf\xE9");
}

TEST(Console, IsATerminal) {
    int controller = -1;
    int terminal = -1;
    ASSERT_EQ(openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(vn_isConsole(terminal), 1);
    FILE* stream = fdopen(terminal, "w");
    EXPECT_EQ(vn_isConsoleFile(stream), 1);
    fclose(stream);
    close(controller);

    FILE* file = std::tmpfile();
    EXPECT_EQ(vn_isConsole(fileno(file)), 0);
    EXPECT_EQ(vn_isConsoleFile(file), 0);
    fclose(file);
    EXPECT_EQ(vn_isConsole(-1), 0);
}

std::u16string utf16(const char* text) {
    const Block<uint16_t> wide(vn_getUTF16(text));
    std::u16string units;
    for (size_t i = 0; wide && wide[i] != 0; ++i) {
        units += static_cast<char16_t>(wide[i]);
    }
    EXPECT_EQ(wide ? vn_codeUnitsUTF16(wide.get()) : 0, units.size());
    return units;
}

TEST(Utf16, BothWays) {
    EXPECT_EQ(utf16("plain"), u"plain");
    EXPECT_EQ(utf16("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), u"\u00E9\u20AC\U0001F600");
    const uint16_t units[] = {0xE9, 0x20AC, 0xD83D, 0xDE00, 'x', 0};
    EXPECT_STREQ(Block<char>(vn_getUTF8(units)).get(), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80x");
    EXPECT_EQ(vn_codeUnitsUTF16(units), 5U);
}

TEST(Utf16, EveryCodePointThereAndBack) {
    for (uint32_t c = 1; c <= 0x10FFFF; c += c < 0x3100 ? 1 : 37) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            continue;
        }
        const uint32_t rest = c - 0x10000;
        const uint16_t units[] = {static_cast<uint16_t>(c < 0x10000 ? c : 0xD800 + (rest >> 10)),
                                  static_cast<uint16_t>(c < 0x10000 ? 0 : 0xDC00 + (rest & 0x3FF)),
                                  0};
        const Block<char> text(vn_getUTF8(units));
        ASSERT_NE(text, nullptr) << c;
        ASSERT_EQ(vn_UTF8Length(text.get()), 1) << c;
        const Block<uint16_t> back(vn_getUTF16(text.get()));
        ASSERT_EQ(vn_codeUnitsUTF16(back.get()), c < 0x10000 ? 1U : 2U);
        ASSERT_EQ(back[0], units[0]);
        ASSERT_EQ(back[1], units[1]);
    }
}

TEST(Utf16, EmptyTextIsANewEmptyText) {
    const uint16_t empty[] = {0};
    const Block<char> text(vn_getUTF8(empty));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text[0], '\0');
    const Block<uint16_t> wide(vn_getUTF16(""));
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(wide[0], 0);
    EXPECT_EQ(vn_codeUnitsUTF16(empty), 0U);
}

TEST(Utf16, MalformedInputGivesNull) {
    for (const char* text : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_EQ(vn_getUTF16(text), nullptr);
    }
    const uint16_t lonelyLead[] = {'a', 0xD83D, 'b', 0};
    const uint16_t lonelyTrail[] = {0xDE00, 0};
    EXPECT_EQ(vn_getUTF8(lonelyLead), nullptr);
    EXPECT_EQ(vn_getUTF8(lonelyTrail), nullptr);
}

TEST(CaseCmp, OfAsciiIsThatOfThePlatform) {
    const std::vector<std::string> texts = {"",
                                            "a",
                                            "A",
                                            "abc",
                                            "ABC",
                                            "abd",
                                            "ab",
                                            "[",
                                            "^",
                                            "z",
                                            "Z",
                                            "a long text, longer than a vector of bytes is",
                                            "A LONG TEXT, LONGER THAN A VECTOR OF BYTES IS",
                                            "a long text, longer than a vector of bytes ist",
                                            "a long text, longer than a vector of bytes @t"};
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            EXPECT_EQ(vn_UTF8CaseCmp(a.c_str(), b.c_str()), strcasecmp(a.c_str(), b.c_str()))
                << a << " / " << b;
        }
    }
    EXPECT_LT(vn_UTF8CaseCmp("ABC", "abd"), 0);
}

// Whether vn_UTF8CaseCmp and strcasecmp agree in this thread's locale, with I and i at any
// position.
bool comparesLikeThePlatform() {
    for (size_t size = 1; size < 140; ++size) {
        std::string a(size, 'x');
        std::string b(size, 'X');
        for (size_t at = 0; at < size; ++at) {
            a[at] = 'I';
            b[at] = 'i';
            if (vn_UTF8CaseCmp(a.c_str(), b.c_str()) != strcasecmp(a.c_str(), b.c_str()) ||
                vn_UTF8CaseCmp(b.c_str(), a.c_str()) != strcasecmp(b.c_str(), a.c_str())) {
                return false;
            }
            a[at] = 'x';
            b[at] = 'X';
        }
    }
    return true;
}

// strcasecmp folds by the locale, and so must we: in Turkish, I and i are different letters. (The
// sanitizers' strcasecmp ignores that.) The locale can change, and each thread can have its own.
VN_CHILD(compareInTurkish) {
    if (!comparesLikeThePlatform()) {
        return 1;
    }
    if (setlocale(LC_ALL, "tr_TR.ISO-8859-9") == nullptr) {
        return 77;
    }
    if (tolower('I') == 'i') {
        return 2;  // the locale does not fold as expected
    }
    bool same = comparesLikeThePlatform();
    std::thread([&] { same &= comparesLikeThePlatform(); }).join();
    const locale_t turkish = duplocale(LC_GLOBAL_LOCALE);
    setlocale(LC_ALL, "C");
    same &= comparesLikeThePlatform();
    uselocale(turkish);
    same &= comparesLikeThePlatform();
    std::thread([&] { same &= comparesLikeThePlatform(); }).join();
    uselocale(LC_GLOBAL_LOCALE);
    freelocale(turkish);
    return same ? 0 : 3;
}

TEST(CaseCmp, FollowsTheLocaleInAscii) {
    const std::string folder = testing::TempDir() + "vn_locale_" + std::to_string(getpid());
    const std::string make = "mkdir " + folder + " && localedef -i tr_TR -f ISO-8859-9 " + folder +
                             "/tr_TR.ISO-8859-9 >/dev/null 2>&1";
    const int made = std::system(make.c_str());
    const ChildResult child = runChild("compareInTurkish", {.environment = {{"LOCPATH", folder}}});
    EXPECT_EQ(std::system(("rm -r " + folder).c_str()), 0);
    if (made != 0 || child.exitStatus == 77) {
        GTEST_SKIP() << "the sources of the Turkish locale are not installed";
    }
    EXPECT_EQ(child.exitStatus, 0) << child.err;
}

TEST(CaseCmp, LongTexts) {
    const auto expectAsPlatform = [](const std::string& a, const std::string& b) {
        EXPECT_EQ(vn_UTF8CaseCmp(a.c_str(), b.c_str()), strcasecmp(a.c_str(), b.c_str()));
    };
    for (const size_t size : {31U, 32U, 127U, 128U, 4095U, 4096U, 20000U}) {
        std::string a(size, 'n');
        std::string b(size, 'N');
        EXPECT_EQ(vn_UTF8CaseCmp(a.c_str(), b.c_str()), 0);
        a += "!";
        expectAsPlatform(a, b);
        b += "?";
        expectAsPlatform(a, b);
        a[size / 2] = '_';
        expectAsPlatform(a, b);
    }
}

// Two texts of one size that differ only in case, each with a guarded page directly after its
// terminator.
class GuardedPair {
  public:
    explicit GuardedPair(size_t size)
        : a(_memoryOfA.end() - size - 1), b(_memoryOfB.end() - size - 1) {
        const char sample[] = "Quick ~ Title_09Iii{@`[";
        for (size_t i = 0; i < size; ++i) {
            a[i] = sample[i % (sizeof sample - 1)];
            b[i] = static_cast<char>(vn_UTF8isAsciiLetter(a[i]) && i % 3 != 0 ? a[i] ^ 0x20 : a[i]);
        }
        a[size] = b[size] = '\0';
    }

  private:
    static inline GuardedMemory _memoryOfA;
    static inline GuardedMemory _memoryOfB;

  public:
    char* const a;
    char* const b;
};

TEST(CaseCmp, EveryPairOfAsciiBytesAtTheEndOfAPage) {
    for (const size_t size : {1U, 15U, 16U, 31U, 32U, 33U, 70U}) {
        const GuardedPair pair(size);
        for (int first = 1; first < 128; ++first) {
            for (int second = 1; second < 128; ++second) {
                pair.a[size / 2] = static_cast<char>(first);
                pair.b[size / 2] = static_cast<char>(second);
                ASSERT_EQ(vn_UTF8CaseCmp(pair.a, pair.b), strcasecmp(pair.a, pair.b))
                    << first << ' ' << second;
            }
        }
    }
}

// Texts here that are not ASCII are malformed, and malformed texts compare as equal.
void expectAsDefined(const GuardedPair& pair) {
    const bool ascii = vn_isAscii(pair.a) != 0 && vn_isAscii(pair.b) != 0;
    ASSERT_EQ(vn_UTF8CaseCmp(pair.a, pair.b), ascii ? strcasecmp(pair.a, pair.b) : 0);
    ASSERT_EQ(vn_UTF8CaseCmp(pair.b, pair.a), ascii ? strcasecmp(pair.b, pair.a) : 0);
}

// Changes the texts at each position: I and i, other characters that differ, non-letters whose
// codes differ like letters of two cases, the end of one text, and bytes above 127.
TEST(CaseCmp, ReadsNothingAfterTheTerminators) {
    const std::string pairs[] = {
        "Ii", "iI", "ab", "Ab", "[{", "@`", "x\x7F", std::string("x\0", 2), "\xC3\xC3", "\xFFy"};
    for (size_t size = 0; size <= 130; ++size) {
        const GuardedPair pair(size);
        ASSERT_EQ(vn_UTF8CaseCmp(pair.a, pair.b), 0);
        for (size_t at = 0; at < size; ++at) {
            for (const std::string& bytes : pairs) {
                const char beforeA = std::exchange(pair.a[at], bytes[0]);
                const char beforeB = std::exchange(pair.b[at], bytes[1]);
                ASSERT_NO_FATAL_FAILURE(expectAsDefined(pair)) << size << ' ' << at;
                pair.a[at] = beforeA;
                pair.b[at] = beforeB;
            }
        }
    }
}

TEST(CaseCmp, FoldsBeyondAscii) {
    EXPECT_EQ(vn_UTF8CaseCmp("\xC3\x84\x42\x43", "\xC3\xA4\x62\x63"), 0);
    EXPECT_EQ(vn_UTF8CaseCmp("STRASSE", "stra\xC3\x9F\x65"), 0);  // sharp s folds to ss
    EXPECT_EQ(vn_UTF8CaseCmp("\xC3\xA9", "e\xCC\x81"), 0);        // canonical equivalence
    EXPECT_EQ(vn_UTF8CaseCmp("\xCE\xA3", "\xCF\x82"), 0);         // sigma and final sigma
    EXPECT_GT(vn_UTF8CaseCmp("z", "\xC3\xA4"), 0);                // a with diaeresis sorts as a
    EXPECT_LT(vn_UTF8CaseCmp("\xC3\xA4", "z"), 0);
    EXPECT_LT(vn_UTF8CaseCmp("z", "\xCE\xB1"), 0);
    // The order is that of UTF-16 code units: U+FFFD is above the surrogates of U+1F600.
    EXPECT_GT(vn_UTF8CaseCmp("\xEF\xBF\xBD", "\xF0\x9F\x98\x80"), 0);
}

TEST(CaseCmp, OneByteAnywhereLeavesTheAsciiPath) {
    for (size_t size = 0; size < 100; ++size) {
        const std::string a = std::string(size, 'x') + "\xC3\x84" + std::string(size % 7, 'y');
        const std::string b = std::string(size, 'X') + "\xC3\xA4" + std::string(size % 7, 'Y');
        ASSERT_EQ(vn_UTF8CaseCmp(a.c_str(), b.c_str()), 0) << size;
        ASSERT_NE(vn_UTF8CaseCmp(a.c_str(), std::string(a.size(), 'x').c_str()), 0) << size;
    }
}

TEST(CaseCmp, MalformedTextEqualsEverything) {
    EXPECT_EQ(vn_UTF8CaseCmp("\xFF", "abc"), 0);
    EXPECT_EQ(vn_UTF8CaseCmp("abc", "zzz\xFF"), 0);
    EXPECT_EQ(vn_UTF8CaseCmp("\xC3\xA4", "b\x80"), 0);
    EXPECT_NE(vn_UTF8CaseCmp("\xC3\xA4", ""), 0);
}

}  // namespace
