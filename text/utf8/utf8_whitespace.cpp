// White space, recognised by two state machines over single bytes: one reads forwards, one
// backwards. Both are tables that are built from the list of code points at compile time.
#include <vncommon/utf8.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/assertion.h"

namespace vncommon {
namespace {

// Compat: U+0085 is not white space; callers rely on it.
constexpr char32_t whiteSpace[] = {
    0x0009, 0x000A, 0x000B, 0x000C, 0x000D, 0x001C, 0x001D, 0x001E, 0x001F, 0x0020,
    0x00A0, 0x1680, 0x180E, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005, 0x2006,
    0x2007, 0x2008, 0x2009, 0x200A, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000,
};

// A state is the number of the table for the next byte.
using State = uint8_t;
constexpr State start = 0;     // also the result "not white space"
constexpr State complete = 1;  // a white-space character has been read; its table stays empty
constexpr State firstPrefix = 2;

template <size_t states>
using Machine = std::array<std::array<State, 256>, states>;

struct Encoding {
    uint8_t bytes[3];
    size_t length;
};

constexpr Encoding encode(char32_t c) {
    if (c < 0x80) {
        return {{static_cast<uint8_t>(c)}, 1};
    }
    if (c < 0x800) {
        return {{static_cast<uint8_t>(0xC0 | c >> 6), static_cast<uint8_t>(0x80 | (c & 0x3F))}, 2};
    }
    return {{static_cast<uint8_t>(0xE0 | c >> 12), static_cast<uint8_t>(0x80 | (c >> 6 & 0x3F)),
             static_cast<uint8_t>(0x80 | (c & 0x3F))},
            3};
}

enum class Reading { forwards, backwards };

// Adds one table for each proper prefix of the encodings, in reading order. `states` must be exact:
// too few do not compile, too many fail the check below.
template <size_t states>
constexpr Machine<states> makeMachine(Reading reading) {
    Machine<states> machine{};
    State next = firstPrefix;
    for (const char32_t c : whiteSpace) {
        const Encoding encoding = encode(c);
        State state = start;
        for (size_t i = 0; i < encoding.length; ++i) {
            const bool last = i + 1 == encoding.length;
            const size_t at = reading == Reading::forwards ? i : encoding.length - 1 - i;
            State& follower = machine[state][encoding.bytes[at]];
            if (follower == start) {
                follower = last ? complete : next++;
            }
            state = follower;
        }
    }
    return machine;
}

template <size_t states>
constexpr bool leadsToEveryState(const Machine<states>& machine) {
    std::array<bool, states> seen{};
    for (const auto& table : machine) {
        for (const State state : table) {
            seen[state] = true;
        }
    }
    return std::ranges::all_of(seen, [](bool reached) { return reached; });
}

constexpr auto forwardWSTables = makeMachine<11>(Reading::forwards);
constexpr auto reverseWSTables = makeMachine<36>(Reading::backwards);
static_assert(leadsToEveryState(forwardWSTables) && leadsToEveryState(reverseWSTables));

}  // namespace
}  // namespace vncommon

using namespace vncommon;

const char* vn_skipSpacesUTF8(const char* text) {
    const char* character = text;
    State state = start;
    for (;;) {
        VN_ASSERT(state != complete && state < forwardWSTables.size());
        state = forwardWSTables[state][static_cast<uint8_t>(*text)];
        if (state == start) {
            return character;
        }
        ++text;
        if (state == complete) {
            character = text;
            state = start;
        }
    }
}

const char* vn_rTrimUTF8(const char* text) {
    const char* end = text + std::strlen(text);
    const char* at = end;
    State state = start;
    while (at != text) {
        VN_ASSERT(state != complete && state < reverseWSTables.size());
        state = reverseWSTables[state][static_cast<uint8_t>(*--at)];
        if (state == start) {
            return end;
        }
        if (state == complete) {
            end = at;
            state = start;
        }
    }
    return end;
}
