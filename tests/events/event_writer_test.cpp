// Event writer: single cases for every kind of value, every text and every rule about ownership.
// event_writer_model_test.cpp compares random trees with a model.
#include <gtest/gtest.h>
#include <malloc.h>
#include <vncommon/event_writer.h>

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>

namespace {

struct Destroy {
    void operator()(VN_EventWriter* writer) const { VN_EventWriter_dtor(writer); }
};
using Writer = std::unique_ptr<VN_EventWriter, Destroy>;

Writer event(const char* name = "E") {
    return Writer(VN_EventWriter_ctor(VN_EventKind_Event, name));
}

Writer sequence() {
    return Writer(VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr));
}

Writer dictionary() {
    return Writer(VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr));
}

std::string taken(char* text) {
    const std::string copy = text;
    free(text);
    return copy;
}

std::string rendered(const Writer& writer) {
    return taken(VN_EventWriter_toString(writer.get()));
}

void* word(uint64_t value) {
    return reinterpret_cast<void*>(value);
}

void* text(const char* value) {
    return const_cast<char*>(value);
}

// The text of a sequence of one value without its brackets.
std::string alone(const std::function<void(VN_EventWriter*)>& add) {
    const Writer writer = sequence();
    add(writer.get());
    const std::string whole = rendered(writer);
    EXPECT_EQ(whole.front(), '[');
    EXPECT_EQ(whole.back(), ']');
    return whole.substr(1, whole.size() - 2);
}

std::string stringText(const char* content) {
    return alone([&](VN_EventWriter* w) { VN_EventWriter_addString(w, content); });
}

// decimal64 with exactly this coefficient and exponent.
uint64_t decimal(uint64_t coefficient, int exponent) {
    return (static_cast<uint64_t>(exponent + 398) << 53) | coefficient;
}

TEST(EventWriterRecord, HasTheFieldsThatCompiledProgramsUse) {
    EXPECT_EQ(offsetof(VN_EventWriter, kind), 0u);
    EXPECT_EQ(offsetof(VN_EventWriter, name), 8u);
    EXPECT_EQ(offsetof(VN_EventWriter, keys), 16u);
    EXPECT_EQ(offsetof(VN_EventWriter, values), 24u);
    EXPECT_EQ(offsetof(VN_EventWriter, addInt), 32u);
    EXPECT_EQ(offsetof(VN_EventWriter, addAnyType), 32u + 13 * 8);
    EXPECT_EQ(sizeof(VN_EventWriter), 32u + 14 * 8);
    EXPECT_EQ(offsetof(VN_EventValue, payload), 0u);
    EXPECT_EQ(offsetof(VN_EventValue, kind), 8u);
    EXPECT_EQ(sizeof(VN_EventValue), 16u);
}

void expectOperations(const VN_EventWriter* writer) {
    const auto slot = [&](int index) {
        void* function;
        memcpy(&function, reinterpret_cast<const char*>(writer) + 32 + 8 * index, sizeof function);
        return function;
    };
    void* const operations[] = {
        reinterpret_cast<void*>(VN_EventWriter_addInt),
        reinterpret_cast<void*>(VN_EventWriter_addString),
        reinterpret_cast<void*>(VN_EventWriter_addChar),
        reinterpret_cast<void*>(VN_EventWriter_addFloat),
        reinterpret_cast<void*>(VN_EventWriter_addDecimal),
        reinterpret_cast<void*>(VN_EventWriter_addBoolean),
        reinterpret_cast<void*>(VN_EventWriter_addRefValue),
        reinterpret_cast<void*>(VN_EventWriter_addValue),
        reinterpret_cast<void*>(VN_EventWriter_addDictValue),
        reinterpret_cast<void*>(VN_EventWriter_addAny),
        reinterpret_cast<void*>(VN_EventWriter_addOptional),
        reinterpret_cast<void*>(VN_EventWriter_toString),
        reinterpret_cast<void*>(VN_EventWriter_addUnformatted),
        reinterpret_cast<void*>(VN_EventWriter_addAnyType),
    };
    for (int i = 0; i < 14; ++i) {
        EXPECT_EQ(slot(i), operations[i]) << "slot " << i;
    }
}

TEST(EventWriterRecord, CarriesItsOperationsInOrder) {
    const Writer writer = event();
    expectOperations(writer.get());
    VN_EventWriter_addOptional(writer.get(), VN_EventKind_Integer, word(1));
    const auto* value = static_cast<const VN_EventValue*>(vn_Vector_get(writer->values, 0));
    EXPECT_EQ(value->kind, static_cast<uint32_t>(VN_EventKind_Event));
    const auto* wrapper = static_cast<const VN_EventWriter*>(value->payload);
    EXPECT_EQ(wrapper->kind, static_cast<uint32_t>(VN_EventKind_Wrapper));
    EXPECT_STREQ(wrapper->name, "optional");
    expectOperations(wrapper);
}

TEST(EventWriterRecord, BeginsEmpty) {
    char name[] = "Tick";
    const Writer writer = event(name);
    name[0] = 'X';
    EXPECT_EQ(writer->kind, 8u);
    EXPECT_STREQ(writer->name, "Tick");
    for (const Vector* values : {writer->keys, writer->values}) {
        EXPECT_EQ(values->size, 0u);
        EXPECT_EQ(values->initialCapacity, 0u);
        EXPECT_TRUE(values->shrink);
        EXPECT_EQ(values->compare, nullptr);
        EXPECT_EQ(values->onAdd, nullptr);
        EXPECT_EQ(values->onRemove, nullptr);
    }
    EXPECT_EQ(sequence()->name, nullptr);
}

TEST(EventWriterValues, KeepKindAndPayload) {
    const Writer writer = sequence();
    VN_EventWriter_addInt(writer.get(), -7);
    VN_EventWriter_addBoolean(writer.get(), 0x1FF);
    VN_EventWriter_addChar(writer.get(), 0x141);
    VN_EventWriter_addString(writer.get(), "text");
    const auto value = [&](uint32_t i) {
        return static_cast<const VN_EventValue*>(vn_Vector_get(writer->values, i));
    };
    EXPECT_EQ(value(0)->kind, 0u);
    EXPECT_EQ(value(0)->payload, word(static_cast<uint64_t>(-7)));
    EXPECT_EQ(value(1)->kind, 5u);
    EXPECT_EQ(value(1)->payload, word(0xFF));
    EXPECT_EQ(value(2)->kind, 2u);
    EXPECT_EQ(value(3)->kind, 1u);
    EXPECT_STREQ(static_cast<char*>(value(3)->payload), "text");
    EXPECT_EQ(rendered(writer), "[-7,true,\"A\",\"text\"]");
}

TEST(EventWriterText, OfAnEvent) {
    const Writer tick = event("Tick");
    EXPECT_EQ(rendered(tick), "Tick()");
    tick->addInt(tick.get(), 5);
    tick->addString(tick.get(), "a\"b");
    tick->addFloat(tick.get(), 1.5);
    EXPECT_EQ(rendered(tick), "Tick(5,\"a\\\"b\",1.5)");
    EXPECT_EQ(rendered(tick).size(), 18u);
}

TEST(EventWriterText, OfEmptyValues) {
    EXPECT_EQ(rendered(sequence()), "[]");
    EXPECT_EQ(rendered(dictionary()), "{}");
    EXPECT_EQ(rendered(event("E")), "E()");
    EXPECT_EQ(rendered(event("")), "()");
}

TEST(EventWriterText, OfIntegers) {
    const auto integer = [](int64_t value) {
        return alone([&](VN_EventWriter* w) { VN_EventWriter_addInt(w, value); });
    };
    EXPECT_EQ(integer(0), "0");
    EXPECT_EQ(integer(-1), "-1");
    EXPECT_EQ(integer(INT64_MAX), "9223372036854775807");
    EXPECT_EQ(integer(INT64_MIN), "-9223372036854775808");
}

TEST(EventWriterText, OfFloats) {
    const auto number = [](double value) {
        return alone([&](VN_EventWriter* w) { VN_EventWriter_addFloat(w, value); });
    };
    EXPECT_EQ(number(0.25), ".25");
    EXPECT_EQ(number(.5), ".5");
    EXPECT_EQ(number(100), "100");
    EXPECT_EQ(number(1e6), "1e+06");
    EXPECT_EQ(number(-0.0), "-0");
    EXPECT_EQ(number(0.1 + 0.2), ".30000000000000004");
    EXPECT_EQ(number(-std::numeric_limits<double>::max()), "-1.7976931348623157e+308");
    EXPECT_EQ(number(std::numeric_limits<double>::quiet_NaN()), "NaN");
    EXPECT_EQ(number(-std::numeric_limits<double>::infinity()), "-Infinity");
}

TEST(EventWriterText, OfDecimals) {
    const auto number = [](uint64_t value) {
        return alone([&](VN_EventWriter* w) { VN_EventWriter_addDecimal(w, value); });
    };
    EXPECT_EQ(number(decimal(15, -1)), "+15E-1");
    EXPECT_EQ(number(decimal(150, -2)), "+150E-2");
    EXPECT_EQ(number(decimal(9007199254740991, 369) | uint64_t{1} << 63), "-9007199254740991E+369");
}

TEST(EventWriterText, OfBooleans) {
    const auto boolean = [](int value) {
        return alone([&](VN_EventWriter* w) { VN_EventWriter_addBoolean(w, value); });
    };
    EXPECT_EQ(boolean(0), "false");
    EXPECT_EQ(boolean(1), "true");
    EXPECT_EQ(boolean(-1), "true");
    EXPECT_EQ(boolean(256), "false");
    EXPECT_EQ(boolean(INT_MIN), "false");
    EXPECT_EQ(alone([](VN_EventWriter* w) {
                  VN_EventWriter_addValue(w, VN_EventKind_Boolean, word(0x1200));
              }),
              "false");
}

TEST(EventWriterText, OfCharactersIsNeverEscaped) {
    const auto character = [](int value) {
        return alone([&](VN_EventWriter* w) { VN_EventWriter_addChar(w, value); });
    };
    EXPECT_EQ(character('x'), "\"x\"");
    EXPECT_EQ(character('"'), "\"\"\"");
    EXPECT_EQ(character('\\'), "\"\\\"");
    EXPECT_EQ(character('\n'), "\"\n\"");
    EXPECT_EQ(character(-1), "\"\xFF\"");
}

TEST(EventWriterText, HoldsANulCharacterAsItIs) {
    const Writer writer = sequence();
    VN_EventWriter_addChar(writer.get(), 0);
    char* whole = VN_EventWriter_toString(writer.get());
    EXPECT_EQ(std::string(whole, 6), std::string("[\"\0\"]\0", 6));
    free(whole);
}

TEST(EventWriterEscaping, EscapesEverythingOrNothing) {
    EXPECT_EQ(stringText(""), "\"\"");
    EXPECT_EQ(stringText("plain"), "\"plain\"");
    EXPECT_EQ(stringText("tab\there\nand there\r"), "\"tab\there\nand there\r\"");
    EXPECT_EQ(stringText("a\"b\n"), "\"a\\\"b\\n\"");
    EXPECT_EQ(stringText("a\\b\t\r\x01"), "\"a\\\\b\\t\r\x01\"");
    EXPECT_EQ(stringText("\""), "\"\\\"\"");
    EXPECT_EQ(stringText("caf\xC3\xA9"), "\"caf\xC3\xA9\"");
}

// The search for the two special characters reads whole words, so tests each position in a word.
TEST(EventWriterEscaping, SeesEveryPlaceOfAString) {
    for (size_t length = 1; length <= 40; ++length) {
        for (size_t place = 0; place < length; ++place) {
            for (const char special : {'"', '\\', '\t', '\n', '!', '#', '[', ']', '\xDC', '\xA2'}) {
                std::string content(length, 'x');
                content[place] = special;
                const bool escaped = special == '"' || special == '\\';
                const std::string expected = '"' + content.substr(0, place) +
                                             (escaped ? "\\" : "") + content.substr(place) + '"';
                ASSERT_EQ(stringText(content.c_str()), expected);
            }
        }
    }
}

TEST(EventWriterText, OfUnformattedTextIsNotChanged) {
    const Writer writer = event();
    VN_EventWriter_addUnformatted(writer.get(), "a\"b\\c\n");
    VN_EventWriter_addAnyType(writer.get(), "sequence<string>");
    VN_EventWriter_addUnformatted(writer.get(), "");
    EXPECT_EQ(rendered(writer), "E(a\"b\\c\n,sequence<string>,)");
}

TEST(EventWriterText, OfNestedValues) {
    const Writer outer = event("Outer");
    VN_EventWriter* inner = event("Inner").release();
    VN_EventWriter* list = sequence().release();
    VN_EventWriter* map = dictionary().release();
    VN_EventWriter_addString(list, "x");
    VN_EventWriter_addInt(list, 2);
    VN_EventWriter_addDictValue(map, VN_EventKind_String, text("k"), VN_EventKind_Sequence, list);
    VN_EventWriter_addDictValue(map, VN_EventKind_Integer, word(3), VN_EventKind_Float,
                                VN_EventPayload_ofFloat(.5));
    VN_EventWriter_addRefValue(inner, map);
    VN_EventWriter_addInt(inner, 9);
    VN_EventWriter_addInt(outer.get(), 1);
    VN_EventWriter_addRefValue(outer.get(), inner);
    VN_EventWriter_addBoolean(outer.get(), 0);
    EXPECT_EQ(rendered(outer), "Outer(1,Inner({\"k\":[\"x\",2],3:.5},9),false)");
}

TEST(EventWriterText, OfContainersAsKeys) {
    const Writer map = dictionary();
    VN_EventWriter_addDictValue(map.get(), VN_EventKind_Dictionary, dictionary().release(),
                                VN_EventKind_Sequence, sequence().release());
    VN_EventWriter_addDictValue(map.get(), VN_EventKind_Event, event("K").release(),
                                VN_EventKind_Integer, VN_EventPayload_ofInt(-4));
    EXPECT_EQ(rendered(map), "{{}:[],K():-4}");
}

TEST(EventWriterText, OfMissingKeysIsEmpty) {
    const Writer map = dictionary();
    VN_EventWriter_addInt(map.get(), 1);
    VN_EventWriter_addInt(map.get(), 2);
    EXPECT_EQ(rendered(map), "{:1,:2}");
    VN_EventWriter_addDictValue(map.get(), VN_EventKind_String, text("k"), VN_EventKind_Integer,
                                word(3));
    EXPECT_EQ(rendered(map), "{\"k\":1,:2,:3}") << "keys are counted on their own";
}

TEST(EventWriterText, OfANamelessEventIsNothing) {
    const Writer writer = event(nullptr);
    VN_EventWriter_addInt(writer.get(), 1);
    EXPECT_EQ(rendered(writer), "");
    const Writer outer = sequence();
    VN_EventWriter_addInt(outer.get(), 1);
    VN_EventWriter_addRefValue(outer.get(), event(nullptr).release());
    VN_EventWriter_addInt(outer.get(), 2);
    EXPECT_EQ(rendered(outer), "[1,,2]");
}

TEST(EventWriterText, OfUnknownKindsIsNothing) {
    const Writer writer = sequence();
    VN_EventWriter_addValue(writer.get(), 10, nullptr);
    VN_EventWriter_addValue(writer.get(), 11, word(5));
    VN_EventWriter_addValue(writer.get(), UINT32_MAX, nullptr);
    EXPECT_EQ(rendered(writer), "[,,]");
    const VN_EventValue value = {word(7), 12};
    EXPECT_EQ(taken(valueToString(&value)), "");
    EXPECT_EQ(VN_EventWriter_strlen(&value, 12), 0u);
}

TEST(EventWriterText, OfWritersOfOtherKindsIsEmpty) {
    for (const uint32_t kind : {0u, 1u, 2u, 3u, 4u, 5u, 9u, 10u, 11u}) {
        const Writer writer(VN_EventWriter_ctor(kind, "name"));
        VN_EventWriter_addInt(writer.get(), 5);
        EXPECT_EQ(rendered(writer), "") << kind;
    }
}

TEST(EventWriterNull, ChildrenNeverCrash) {
    const Writer writer = event();
    VN_EventWriter_addValue(writer.get(), VN_EventKind_Sequence, nullptr);
    VN_EventWriter_addValue(writer.get(), VN_EventKind_Dictionary, nullptr);
    VN_EventWriter_addValue(writer.get(), VN_EventKind_Event, nullptr);
    VN_EventWriter_addRefValue(writer.get(), nullptr);
    EXPECT_EQ(rendered(writer), "E([,{,)");
    const VN_EventValue list = {nullptr, VN_EventKind_Sequence};
    EXPECT_EQ(VN_EventWriter_strlen(&list, list.kind), 2u);
    EXPECT_EQ(taken(valueToString(&list)), "[");
    const VN_EventValue fields = {nullptr, VN_EventKind_Event};
    EXPECT_EQ(VN_EventWriter_strlen(&fields, fields.kind), 0u);
    EXPECT_EQ(taken(valueToString(&fields)), "");
}

TEST(EventWriterNull, TextsCountAsEmpty) {
    const Writer writer = event();
    VN_EventWriter_addString(writer.get(), nullptr);
    VN_EventWriter_addUnformatted(writer.get(), nullptr);
    VN_EventWriter_addAnyType(writer.get(), nullptr);
    VN_EventWriter_addValue(writer.get(), VN_EventKind_String, nullptr);
    VN_EventWriter_addAny(writer.get(), VN_EventKind_Sequence, nullptr, nullptr);
    EXPECT_EQ(rendered(writer), "E(\"\",,,\"\",any(,[))");
    VN_EventWriter_dtor(nullptr);
}

TEST(EventWriterNull, ValuesAreNothing) {
    int position = 3;
    char buffer[] = "unchanged";
    EXPECT_EQ(VN_EventWriter_strlen(nullptr, VN_EventKind_Integer), 0u);
    VN_EventWriter_buildString(nullptr, VN_EventKind_Integer, buffer, &position, 9);
    EXPECT_EQ(position, 3);
    EXPECT_STREQ(buffer, "unchanged");
    const Writer writer = sequence();
    vn_Vector_add(writer->values, nullptr);
    EXPECT_EQ(rendered(writer), "[]");
}

TEST(EventWriterOptional, HoldsOneValueOrNone) {
    const Writer writer = event();
    VN_EventWriter_addOptional(writer.get(), VN_EventKind_Wrapper, nullptr);
    VN_EventWriter_addOptional(writer.get(), VN_EventKind_String, text("x"));
    VN_EventWriter_addOptional(writer.get(), VN_EventKind_Dictionary, dictionary().release());
    EXPECT_EQ(rendered(writer), "E(optional(),optional(\"x\"),optional({}))");
}

std::string anyText(uint32_t kind, void* payload, const char* typeName = "callers") {
    return alone([&](VN_EventWriter* w) { VN_EventWriter_addAny(w, kind, payload, typeName); });
}

TEST(EventWriterAny, NamesTheTypeOfItsValue) {
    EXPECT_EQ(anyText(0, word(7)), "any(integer,7)");
    EXPECT_EQ(anyText(1, text("x")), "any(string,\"x\")");
    EXPECT_EQ(anyText(2, word('c')), "any(string,\"c\")");
    EXPECT_EQ(anyText(3, VN_EventPayload_ofFloat(.5)), "any(float,.5)");
    EXPECT_EQ(anyText(4, word(decimal(15, -1))), "any(decimal,+15E-1)");
    EXPECT_EQ(anyText(5, word(1)), "any(boolean,true)");
    EXPECT_EQ(anyText(6, sequence().release(), "sequence<float>"), "any(sequence<float>,[])");
    EXPECT_EQ(anyText(7, dictionary().release()), "any(callers,{})");
    EXPECT_EQ(anyText(9, text("raw")), "any(string,raw)");
    EXPECT_EQ(anyText(10, nullptr), "any()");
    EXPECT_EQ(anyText(11, nullptr), "any(invalid,)");
}

TEST(EventWriterAny, NamesEventsByTheirNameExceptOptionals) {
    EXPECT_EQ(anyText(8, event("Tick").release()), "any(Tick,Tick())");
    EXPECT_EQ(anyText(8, event("optional<integer>").release()), "any(callers,optional<integer>())");
    EXPECT_EQ(anyText(8, event("optional").release()), "any(callers,optional())");
    EXPECT_EQ(anyText(8, event("optiona").release()), "any(optiona,optiona())");
    EXPECT_EQ(anyText(8, event("Optional").release()), "any(Optional,Optional())");
    EXPECT_EQ(anyText(8, event(nullptr).release()), "any(callers,)");
    EXPECT_EQ(anyText(8, nullptr), "any(callers,)");
}

TEST(EventWriterOwnership, CopiesTheTextsItIsGiven) {
    const Writer writer = event();
    char content[] = "before";
    VN_EventWriter_addString(writer.get(), content);
    VN_EventWriter_addUnformatted(writer.get(), content);
    VN_EventWriter_addAnyType(writer.get(), content);
    VN_EventWriter_addValue(writer.get(), VN_EventKind_String, content);
    VN_EventWriter_addAny(writer.get(), VN_EventKind_Unformatted, content, content);
    VN_EventWriter_addOptional(writer.get(), VN_EventKind_String, content);
    strcpy(content, "after");
    EXPECT_EQ(rendered(writer),
              "E(\"before\",before,before,\"before\",any(string,before),optional(\"before\"))");
}

TEST(EventWriterOwnership, LeavesAChildOfKind10Alone) {
    Writer wrapper(VN_EventWriter_ctor(VN_EventKind_Wrapper, "any"));
    VN_EventWriter_addInt(wrapper.get(), 1);
    {
        const Writer writer = sequence();
        VN_EventWriter_addRefValue(writer.get(), wrapper.get());
        EXPECT_EQ(rendered(writer), "[]");
    }
    EXPECT_EQ(wrapper->values->size, 1u) << "it outlives the parent";
}

TEST(EventWriterOwnership, FreesATextThatTheOwnerExchanged) {
    const Writer writer = sequence();
    VN_EventWriter_addString(writer.get(), "ours");
    auto* value = static_cast<VN_EventValue*>(vn_Vector_get(writer->values, 0));
    value->payload = strdup("theirs");
    EXPECT_EQ(rendered(writer), "[\"theirs\"]");
}

// An event that owns its values in every possible way.
Writer everything() {
    Writer writer = event("Everything");
    for (int i = 0; i < 20; ++i) {
        VN_EventWriter* map = dictionary().release();
        VN_EventWriter_addDictValue(map, VN_EventKind_String, text("key"), VN_EventKind_Event,
                                    event("Value").release());
        VN_EventWriter_addString(writer.get(), "text");
        VN_EventWriter_addRefValue(writer.get(), map);
        VN_EventWriter_addAny(writer.get(), VN_EventKind_Sequence, sequence().release(), "list");
        VN_EventWriter_addOptional(writer.get(), VN_EventKind_String, text("optional text"));
    }
    return writer;
}

// Sanitizers detect double frees and leaks; this detects leaks without them.
TEST(EventWriterOwnership, FreesAllOfIt) {
    everything().reset();
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) {
        const Writer writer = everything();
        EXPECT_EQ(rendered(writer).size(), 1251u);
    }
    EXPECT_LE(mallinfo2().uordblks, before + 4096);
}

TEST(EventWriterOwnership, ReferenceTypesAreTheContainers) {
    for (uint32_t kind = 0; kind < 20; ++kind) {
        const VN_EventValue value = {nullptr, kind};
        EXPECT_EQ(VN_EventWriterIsReferenceType(&value), kind >= 6 && kind <= 8) << kind;
    }
}

TEST(EventWriterDepth, IsBoundedByMemoryOnly) {
    constexpr size_t depth = 200'000;
    Writer writer = sequence();
    for (size_t i = 1; i < depth; ++i) {
        Writer outer = sequence();
        VN_EventWriter_addRefValue(outer.get(), writer.release());
        writer = std::move(outer);
    }
    EXPECT_EQ(rendered(writer), std::string(depth, '[') + std::string(depth, ']'));
    const VN_EventValue value = {writer.get(), VN_EventKind_Sequence};
    EXPECT_EQ(VN_EventWriter_strlen(&value, value.kind), 2 * depth);
}

TEST(EventWriterSize, MayBeAnything) {
    for (const size_t size : {100u, 4090u, 4091u, 4092u, 4093u, 4094u, 4095u, 4096u, 100'000u}) {
        const Writer writer = sequence();
        const std::string content(size, 'x');
        VN_EventWriter_addString(writer.get(), content.c_str());
        EXPECT_EQ(rendered(writer), "[\"" + content + "\"]");
        const std::string quotes(size, '"');
        std::string escaped;
        for (size_t i = 0; i < size; ++i) {
            escaped += "\\\"";
        }
        VN_EventWriter_addString(writer.get(), quotes.c_str());
        EXPECT_EQ(rendered(writer), "[\"" + content + "\",\"" + escaped + "\"]");
    }
}

TEST(EventWriterBytes, OfSingleValues) {
    const VN_EventValue unformatted = {text("whole text"), VN_EventKind_Unformatted};
    EXPECT_EQ(taken(valueToString(&unformatted)), "whole text");
    const VN_EventValue string = {text("a\"b"), VN_EventKind_String};
    EXPECT_EQ(taken(valueToString(&string)), "\"a\\\"b\"");
    const VN_EventValue integer = {VN_EventPayload_ofInt(-12), VN_EventKind_Integer};
    EXPECT_EQ(taken(valueToString(&integer)), "-12");
}

TEST(EventWriterBytes, ReadThePayloadByTheKindThatIsAsked) {
    const VN_EventValue value = {word(1), VN_EventKind_Wrapper};
    EXPECT_EQ(VN_EventWriter_strlen(&value, VN_EventKind_Integer), 1u);
    EXPECT_EQ(VN_EventWriter_strlen(&value, VN_EventKind_Boolean), 4u);
    char buffer[16] = "";
    int position = 0;
    VN_EventWriter_buildString(&value, VN_EventKind_Boolean, buffer, &position, 4);
    EXPECT_EQ(position, 4);
    EXPECT_STREQ(buffer, "true");
}

// 65 times the same 64 MiB of text: the length exceeds a 32-bit position.
TEST(EventWriterBytes, StopAtTheEndOfTheirCounters) {
    const std::string content(size_t{64} << 20, 'x');
    VN_EventValue large = {const_cast<char*>(content.c_str()), VN_EventKind_Unformatted};
    const Writer writer = sequence();
    for (int i = 0; i < 65; ++i) {
        vn_Vector_add(writer->values, &large);
    }
    const VN_EventValue value = {writer.get(), VN_EventKind_Sequence};
    EXPECT_EQ(VN_EventWriter_strlen(&value, value.kind), UINT32_MAX);
    vn_Vector_clear(writer->values);
    VN_EventValue integer = {word(1), VN_EventKind_Integer};
    vn_Vector_add(writer->values, &large);
    vn_Vector_add(writer->values, &integer);
    char buffer[16] = "0123456789ABCDE";
    int position = 2;
    VN_EventWriter_buildString(&value, value.kind, buffer, &position, 10);
    EXPECT_EQ(position, 3 + (64 << 20) + 1);
    EXPECT_EQ(std::string(buffer, 16), std::string("01[xxxxxx\0ABCDE\0", 16));
    position = INT_MAX - 3;
    VN_EventValue wide = {word(123456), VN_EventKind_Integer};
    VN_EventWriter_buildString(&wide, wide.kind, buffer, &position, 10);
    EXPECT_EQ(position, INT_MAX);
    vn_Vector_clear(writer->values);
}

}  // namespace
