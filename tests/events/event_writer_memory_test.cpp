// Rendering a large event repeatedly must reuse the memory of the previous text. The test counts
// page faults.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vncommon/event_writer.h>

#include <cstdlib>
#include <string>

namespace {

void* text(std::string& characters) {
    return characters.data();
}

VN_EventWriter* eventOf(int floatCount) {
    VN_EventWriter* floats = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    for (int i = 0; i < floatCount; ++i) {
        VN_EventWriter_addFloat(floats, 10'000.25 + i);
    }
    VN_EventWriter* pairs = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
    for (int i = 0; i < floatCount / 2; ++i) {
        std::string key = "attribute-" + std::to_string(i);
        std::string value = "value number " + std::to_string(10'000 + i);
        VN_EventWriter_addDictValue(pairs, VN_EventKind_String, text(key), VN_EventKind_String,
                                    text(value));
    }
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Book");
    VN_EventWriter_addRefValue(event, floats);
    VN_EventWriter_addRefValue(event, pairs);
    return event;
}

void render(const VN_EventWriter* event, int times) {
    for (int i = 0; i < times; ++i) {
        free(VN_EventWriter_toString(event));
    }
}

long pageFaults() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// glibc keeps up to 128 KB free at the end of the heap. A text of 100 KB fits there, unless its
// block is much larger than the text.
TEST(EventWriterMemory, IsNotFaultedInForEveryText) {
#ifndef __GLIBC__
    GTEST_SKIP() << "another C library keeps its heap in another way";
#endif
    VN_EventWriter* event = eventOf(4000);
    constexpr int texts = 100;
    render(event, 20);
    const long before = pageFaults();
    render(event, texts);
    EXPECT_LT(pageFaults() - before, 4 * texts);
    VN_EventWriter_dtor(event);
}

}  // namespace
