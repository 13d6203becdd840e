// Event reader: the grammar case by case, every error with its position, the limits.
// event_reader_model_test.cpp reads random trees and damaged texts.
#include <gtest/gtest.h>
#include <vncommon/event_reader.h>

#include <bit>
#include <cerrno>
#include <cfenv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "events/event_shapes.h"

using namespace events;

namespace {

// The shape of one value in a sequence.
std::string alone(const std::string& text) {
    const std::string whole = shapeOf("[" + text + "]");
    EXPECT_EQ(whole.substr(0, 2), "6(") << whole;
    return whole.substr(2, whole.size() - 3);
}

std::string bitsOf(double value) {
    return hexadecimal('f', std::bit_cast<uint64_t>(value));
}

// --- The record ----------------------------------------------------------------------------------

TEST(EventReaderRecord, HasTheFieldsThatCompiledProgramsUse) {
    EXPECT_EQ(offsetof(VN_EventReader, maxDepth), 0u);
    EXPECT_EQ(offsetof(VN_EventReader, maxSize), 8u);
    EXPECT_EQ(offsetof(VN_EventReader, error), 16u);
    EXPECT_EQ(offsetof(VN_EventReader, position), 24u);
    EXPECT_EQ(sizeof(VN_EventReader), 32u);
}

TEST(EventReaderRecord, BeginsWithTheDefaultLimits) {
    VN_EventReader reader;
    memset(&reader, 0xFF, sizeof reader);
    VN_EventReader_init(&reader);
    EXPECT_EQ(reader.maxDepth, 100u);
    EXPECT_EQ(reader.maxDepth, uint32_t{VN_EventReader_defaultDepth});
    EXPECT_EQ(reader.maxSize, 1024u * 1024);
    EXPECT_EQ(reader.maxSize, size_t{VN_EventReader_defaultSize});
    EXPECT_EQ(reader.error, nullptr);
    EXPECT_EQ(reader.position, 0u);
}

TEST(EventReaderRecord, CanBeUsedAgain) {
    VN_EventReader reader = newReader();
    EXPECT_EQ(read("[1", reader), nullptr);
    EXPECT_STREQ(reader.error, "unexpected end");
    EXPECT_EQ(reader.position, 2u);
    const Writer writer = read("[1]", reader);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(reader.error, nullptr);
    EXPECT_EQ(reader.position, 3u);
    EXPECT_EQ(reader.maxDepth, 100u);
}

TEST(EventReaderRecord, ReadsNoTextAtNull) {
    VN_EventReader reader = newReader();
    EXPECT_EQ(VN_EventReader_read(&reader, nullptr, 0), nullptr);
    EXPECT_STREQ(reader.error, "unexpected end");
    EXPECT_EQ(reader.position, 0u);
}

TEST(EventReaderRecord, GivesAWriterToAddTo) {
    const Writer tick = read("Tick(1)");
    tick->addRefValue(tick.get(), read("[2]").release());
    tick->addString(tick.get(), "x");
    EXPECT_EQ(rendered(tick), "Tick(1,[2],\"x\")");
}

// --- Values --------------------------------------------------------------------------------------

TEST(EventReaderValues, Containers) {
    EXPECT_EQ(shapeOf("[]"), "6()");
    EXPECT_EQ(shapeOf("{}"), "7()");
    EXPECT_EQ(shapeOf("Tick()"), "8Tick()");
    EXPECT_EQ(shapeOf("()"), "8()");
    EXPECT_EQ(shapeOf("[1,[],{},E()]"), "6(i1 6() 7() 8E())");
    EXPECT_EQ(shapeOf("{1:2,\"k\":[3]}"), "7(i1=i2 s<k>=6(i3))");
    EXPECT_EQ(shapeOf("{[1]:2,{}:3,K(4):5}"), "7(6(i1)=i2 7()=i3 8K(i4)=i5)");
    EXPECT_EQ(shapeOf("Outer(1,Inner({\"k\":[\"x\",2],3:.5},9),false)"),
              "8Outer(i1 8Inner(7(s<k>=6(s<x> i2) i3=" + bitsOf(.5) + ") i9) no)");
}

TEST(EventReaderValues, WrappersAreEvents) {
    EXPECT_EQ(shapeOf("E(any(integer,7))"), "8E(8any(u<integer> i7))");
    EXPECT_EQ(shapeOf("E(any(),optional())"), "8E(8any() 8optional())");
    EXPECT_EQ(shapeOf("E(optional(\"x\"))"), "8E(8optional(s<x>))");
    EXPECT_EQ(shapeOf("E(any(dictionary<string,integer>,{}))"),
              "8E(8any(u<dictionary<string> u<integer>> 7()))");
}

TEST(EventReaderValues, Names) {
    for (const char* name : {"a::b", "com.x", "a b", "1", "true", "a\"b", "\\", "sequence<x>",
                             "caf\xC3\xA9", "\xFF", " \t\n", "-5"}) {
        EXPECT_EQ(shapeOf(std::string(name) + "(1)"), std::string("8") + name + "(i1)");
    }
}

TEST(EventReaderValues, Integers) {
    for (const char* text :
         {"0", "-1", "7", "100", "9223372036854775807", "-9223372036854775808"}) {
        EXPECT_EQ(alone(text), std::string("i") + text);
    }
}

TEST(EventReaderValues, Floats) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::pair<const char*, double> samples[] = {
        {"-0", -0.0},
        {".25", .25},
        {"-1.5", -1.5},
        {"12.5", 12.5},
        {"1e+06", 1e6},
        {"1e-05", 1e-5},
        {"5e-324", 5e-324},
        {".30000000000000004", 0.1 + 0.2},
        {"-2.2250738585072014e-308", -2.2250738585072014e-308},
        {"-1.7976931348623157e+308", -1.7976931348623157e308},
        {"9223372036854776000", 9223372036854775808.0},
        {"NaN", std::numeric_limits<double>::quiet_NaN()},
        {"Infinity", infinity},
        {"-Infinity", -infinity}};
    for (const auto& [text, value] : samples) {
        EXPECT_EQ(alone(text), bitsOf(value)) << text;
    }
}

TEST(EventReaderValues, Decimals) {
    const std::pair<const char*, uint64_t> samples[] = {
        {"+15E-1", 0x31A000000000000F},
        {"+150E-2", 0x3180000000000096},
        {"-15E-1", 0xB1A000000000000F},
        {"+0E+0", 0x31C0000000000000},
        {"-0E+0", 0xB1C0000000000000},
        {"+0E-398", 0},
        {"+9007199254740991E+369", 0x5FFFFFFFFFFFFFFF},
        {"+9007199254740992E+369", 0x77F8000000000000},
        {"-9999999999999999E-398", 0xE00386F26FC0FFFF},
        {"+Inf", 0x7800000000000000},
        {"-Inf", 0xF800000000000000},
        {"+NaN", 0x7C00000000000000},
        {"-NaN", 0xFC00000000000000},
        {"+SNaN", 0x7E00000000000000},
        {"-SNaN", 0xFE00000000000000}};
    for (const auto& [text, bits] : samples) {
        EXPECT_EQ(alone(text), hexadecimal('d', bits)) << text;
    }
}

TEST(EventReaderValues, Booleans) {
    EXPECT_EQ(shapeOf("{true:false}"), "7(yes=no)");
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, '|');) {
        parts.push_back(part);
    }
    return parts;
}

TEST(EventReaderValues, WordsKeepTheirBytes) {
    for (
        const std::string& text : split(
            "1.50|+5|007|-|+|-00|00|0.5|1.|5e2|1E+06|1e6|1e+6|0x10|nan|inf|infinity|Inf|INF|NaN1|"
            "+Infinity|1e+999|4e-400|9223372036854775808|-9223372036854775809|18446744073709551616|"
            "1.7976931348623159e+308|-1.23456789012345678e-308|99999999999999999999999999999999999|"
            "+15|15E-1|+15e-1|+15E1|+15E-01|+015E-1|+1.5E+0|+10000000000000000E+0|+1E+370|+1E-399|"
            "+12345678901234567E+0|+inf|+INF|+snan|+Nan|True|TRUE|tru|truee|t|f|0true|falsE|x|"
            "2 < 3| 5|5 |\t|a\"b\\c\n|a:b|12:30|sequence<x>|caf\xC3\xA9|\xFF\xFE")) {
        EXPECT_EQ(alone(text), "u<" + text + ">");
    }
}

TEST(EventReaderValues, NothingIsEmptyUnformattedText) {
    EXPECT_EQ(shapeOf("[,]"), "6(u<> u<>)");
    EXPECT_EQ(shapeOf("Tick(,1)"), "8Tick(u<> i1)");
    EXPECT_EQ(shapeOf("Tick(1,)"), "8Tick(i1 u<>)");
    EXPECT_EQ(shapeOf("{:5}"), "7(u<>=i5)");
    EXPECT_EQ(shapeOf("{\"k\":1,:2}"), "7(s<k>=i1 u<>=i2)");
    EXPECT_EQ(shapeOf("{:}"), "7(u<>=u<>)");
}

TEST(EventReaderValues, AColonEndsOnlyKeys) {
    EXPECT_EQ(shapeOf("{12:30:00}"), "7(i12=u<30:00>)");
    EXPECT_EQ(shapeOf("{1:a::b(c:d)}"), "7(i1=8a::b(u<c:d>))");
    EXPECT_EQ(shapeOf("{[a:b]:1}"), "7(6(u<a:b>)=i1)");
    EXPECT_EQ(shapeOf("{a::b(1):2}"), "comma or closing bracket expected at 8");
}

TEST(EventReaderStrings, WithoutEscapes) {
    EXPECT_EQ(alone("\"\""), "s<>");
    EXPECT_EQ(alone("\"x\""), "s<x>");
    EXPECT_EQ(alone("\"plain, [text] {like}: this()\""), "s<plain, [text] {like}: this()>");
    EXPECT_EQ(alone("\"tab\there\nand there\r\""), "s<tab\there\nand there\r>");
    EXPECT_EQ(alone("\"caf\xC3\xA9\xFF\""), "s<caf\xC3\xA9\xFF>");
}

TEST(EventReaderStrings, WithEscapes) {
    EXPECT_EQ(alone(R"("a\"b")"), "s<a\"b>");
    EXPECT_EQ(alone(R"("\"")"), "s<\">");
    EXPECT_EQ(alone(R"("\\")"), "s<\\>");
    EXPECT_EQ(alone(R"("C:\\logs\\new")"), "s<C:\\logs\\new>");
    EXPECT_EQ(alone(R"("\"\t\n")"), "s<\"\t\n>");
    EXPECT_EQ(alone(R"("\t\n\"")"), "s<\t\n\">");
    EXPECT_EQ(alone("\"\\\\\r\x01\""), "s<\\\r\x01>");
}

TEST(EventReaderStrings, OnlyAsTheWriterEscapes) {
    EXPECT_EQ(shapeOf(R"(["a\tb"])"), "needless escape at 3");
    EXPECT_EQ(shapeOf(R"(["a\nb\t"])"), "needless escape at 3");
    EXPECT_EQ(shapeOf("[\"a\nb\\\"\"]"), "tab or line feed not escaped at 3");
    EXPECT_EQ(shapeOf("[\"\\\\a\t\n\"]"), "tab or line feed not escaped at 5");
    EXPECT_EQ(shapeOf(R"(["a\rb"])"), "unknown escape at 3");
    EXPECT_EQ(shapeOf(R"(["\"\u0041"])"), "unknown escape at 4");
    EXPECT_EQ(shapeOf(std::string("[\"a\\\0\"]", 7)), "unknown escape at 3");
}

TEST(EventReaderStrings, CharactersThatNoStringIsWrittenLike) {
    EXPECT_EQ(alone("\"\"\""), "c22");
    EXPECT_EQ(alone("\"\\\""), "c5c");
    EXPECT_EQ(alone(std::string("\"\0\"", 3)), "c0");
    EXPECT_EQ(shapeOf(R"(["x",""","\",5])"), "6(s<x> c22 c5c i5)");
    EXPECT_EQ(shapeOf(R"({""":"\","\":"""})"), "7(c22=c5c c5c=c22)");
    EXPECT_EQ(shapeOf(R"(["\","x"])"), "6(c5c s<x>)");
    EXPECT_EQ(shapeOf(R"(["\","",1])"), "6(c5c s<> i1)");
    EXPECT_EQ(shapeOf(R"(["\","\","\"])"), "6(c5c c5c c5c)");
    EXPECT_EQ(shapeOf(R"([["\"],"x"])"), "6(6(c5c) s<x>)");
    EXPECT_EQ(shapeOf(R"(["\",a\q"])"), "6(c5c u<a\\q\">)");
    EXPECT_EQ(shapeOf(R"(["""x])"), "comma or closing bracket expected at 4");
}

// A string is preferred, because texts with quotes are more frequent than a lone backslash.
TEST(EventReaderStrings, ABackslashThatCanBeginAStringDoes) {
    EXPECT_EQ(shapeOf(R"(["\","])"), "6(s<\",>)");
    EXPECT_EQ(shapeOf(R"~(["\",5)","x"])~"), "6(s<\",5)> s<x>)");
    EXPECT_EQ(shapeOf(R"({"\":":1})"), "7(s<\":>=i1)");
    EXPECT_EQ(shapeOf(R"(["\",",x"])"), "6(s<\",> u<x\">)");
    EXPECT_EQ(shapeOf(R"(["\","]"])"), "text after the end at 7");
    EXPECT_EQ(shapeOf(R"({"\":":":1})"), "unexpected end at 11");
}

// --- Errors --------------------------------------------------------------------------------------

TEST(EventReaderErrors, OutsideOfContainers) {
    EXPECT_EQ(shapeOf(""), "unexpected end at 0");
    EXPECT_EQ(shapeOf("Tick"), "unexpected end at 4");
    EXPECT_EQ(shapeOf("5,"), "event, sequence or dictionary expected at 1");
    EXPECT_EQ(shapeOf("Tick]"), "event, sequence or dictionary expected at 4");
    EXPECT_EQ(shapeOf("\"x\""), "event, sequence or dictionary expected at 0");
    EXPECT_EQ(shapeOf("]"), "event, sequence or dictionary expected at 0");
    EXPECT_EQ(shapeOf("[]]"), "text after the end at 2");
    EXPECT_EQ(shapeOf("Tick(1)\n"), "text after the end at 7");
    EXPECT_EQ(shapeOf("[][]"), "text after the end at 2");
    EXPECT_EQ(shapeOf("E[1](2)"), "event, sequence or dictionary expected at 1");
    EXPECT_EQ(shapeOf("E,(1)"), "event, sequence or dictionary expected at 1");
}

TEST(EventReaderErrors, AfterValues) {
    EXPECT_EQ(shapeOf("[1)"), "comma or closing bracket expected at 2");
    EXPECT_EQ(shapeOf("[1}"), "comma or closing bracket expected at 2");
    EXPECT_EQ(shapeOf("E(1]"), "comma or closing bracket expected at 3");
    EXPECT_EQ(shapeOf("E(])"), "comma or closing bracket expected at 2");
    EXPECT_EQ(shapeOf("{1:2]"), "comma or closing bracket expected at 4");
    EXPECT_EQ(shapeOf("[[]1]"), "comma or closing bracket expected at 3");
    EXPECT_EQ(shapeOf("[a[1]]"), "comma or closing bracket expected at 2");
    EXPECT_EQ(shapeOf("[\"a\"b]"), "comma or closing bracket expected at 4");
    EXPECT_EQ(shapeOf("[\"a\":1]"), "comma or closing bracket expected at 4");
    EXPECT_EQ(shapeOf("[E(1)2]"), "comma or closing bracket expected at 5");
}

TEST(EventReaderErrors, AfterKeys) {
    EXPECT_EQ(shapeOf("{1}"), "colon expected at 2");
    EXPECT_EQ(shapeOf("{1,2}"), "colon expected at 2");
    EXPECT_EQ(shapeOf("{,}"), "colon expected at 1");
    EXPECT_EQ(shapeOf("{1:2,}"), "colon expected at 5");
    EXPECT_EQ(shapeOf("{\"a\"}"), "colon expected at 4");
    EXPECT_EQ(shapeOf("{[]}"), "colon expected at 3");
}

// A sequence without a writer is written as an opening bracket alone.
TEST(EventReaderErrors, TheTextOfANullChild) {
    const Writer writer(VN_EventWriter_ctor(VN_EventKind_Event, "E"));
    writer->addValue(writer.get(), VN_EventKind_Sequence, nullptr);
    EXPECT_EQ(rendered(writer), "E([)");
    EXPECT_EQ(shapeOf("E([)"), "comma or closing bracket expected at 3");
}

TEST(EventReaderErrors, ZeroBytes) {
    EXPECT_EQ(shapeOf(std::string("\0", 1)), "zero byte at 0");
    EXPECT_EQ(shapeOf(std::string("Ti\0ck()", 7)), "zero byte at 2");
    EXPECT_EQ(shapeOf(std::string("[a\0]", 4)), "zero byte at 2");
    EXPECT_EQ(shapeOf(std::string("[\"a\0\"]", 6)), "zero byte at 3");
    EXPECT_EQ(shapeOf(std::string("[\"\0a\"]", 6)), "zero byte at 2");
    EXPECT_EQ(shapeOf(std::string("[1]\0", 4)), "text after the end at 3");
    EXPECT_EQ(shapeOf(std::string("[1\0]", 4)), "zero byte at 2");
}

// --- Limits --------------------------------------------------------------------------------------

TEST(EventReaderLimits, Depth) {
    VN_EventReader reader = newReader();
    reader.maxDepth = 3;
    EXPECT_NE(read("[{1:E()},[[]]]", reader), nullptr);
    EXPECT_EQ(read("[1,[2,E([])]]", reader), nullptr);
    EXPECT_STREQ(reader.error, "nested too deeply");
    EXPECT_EQ(reader.position, 8u);
    EXPECT_EQ(read("[1,[2,E(Name())]]", reader), nullptr);
    EXPECT_EQ(reader.position, 12u) << "the bracket, not the name";
    reader.maxDepth = 0;
    EXPECT_EQ(read("[]", reader), nullptr);
    EXPECT_STREQ(reader.error, "nested too deeply");
    EXPECT_EQ(reader.position, 0u);
}

std::string nested(size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(EventReaderLimits, DefaultDepth) {
    EXPECT_NE(read(nested(100)), nullptr);
    EXPECT_EQ(shapeOf(nested(101)), "nested too deeply at 100");
}

TEST(EventReaderLimits, AnyDepthNeedsNoStack) {
    VN_EventReader reader = newReader();
    reader.maxDepth = UINT32_MAX;
    const std::string text = nested(200000);
    const Writer writer = read(text, reader);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(rendered(writer), text);
    EXPECT_EQ(read(text.substr(0, text.size() - 1), reader), nullptr);
    EXPECT_EQ(reader.position, text.size() - 1);
}

TEST(EventReaderLimits, Size) {
    VN_EventReader reader = newReader();
    reader.maxSize = 5;
    EXPECT_NE(read("[123]", reader), nullptr);
    EXPECT_EQ(read("[1234]", reader), nullptr);
    EXPECT_STREQ(reader.error, "text too long");
    EXPECT_EQ(reader.position, 5u);
    EXPECT_EQ(VN_EventReader_read(&reader, nullptr, SIZE_MAX), nullptr) << "reads nothing";
    EXPECT_EQ(reader.position, 5u);
}

// Each of these would take minutes in quadratic time.
TEST(EventReaderLimits, TimeIsLinear) {
    VN_EventReader reader = newReader();
    reader.maxSize = SIZE_MAX;
    const auto repeated = [](const char* part) {
        std::string text = "[";
        for (int i = 0; i < 300000; ++i) {
            text += part;
        }
        return text + "]";
    };
    for (const char* part : {R"("\",)", R"("\",\",)", R"("""(,)", ",", "x", "\"\",", "9", "\\\"",
                             "\"", "{1:", "[],", "(", "\"\\\",\"\\\"x\","}) {
        const std::string text = repeated(part);
        const Writer writer = read(text, reader);
        if (writer != nullptr) {
            EXPECT_EQ(rendered(writer), text);
        }
    }
}

TEST(EventReaderLimits, ErrnoDoesNotChange) {
    errno = EDOM;
    EXPECT_EQ(alone("1e+999"), "u<1e+999>");
    EXPECT_EQ(alone("4e-400"), "u<4e-400>");
    EXPECT_EQ(alone("9223372036854775808"), "u<9223372036854775808>");
    EXPECT_EQ(errno, EDOM);
}

TEST(EventReaderLimits, RoundingModesDoNotMatter) {
    const std::string text = "[.1,.30000000000000004,5e-324,123456789.12345679,+15E-1,-5]";
    const std::string expected = shapeOf(text);
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(fesetround(mode), 0);
        const std::string found = shapeOf(text);
        fesetround(FE_TONEAREST);
        EXPECT_EQ(found, expected);
    }
}

}  // namespace
