// Event writer and timestamp sets.
#include <vncommon/vncommon.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

void writeEvent() {
    VN_EventWriter* event = inject([] {
        VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
        VN_EventWriter_addInt(writer, 5);
        VN_EventWriter_addString(writer, "a\"b");
        VN_EventWriter_addFloat(writer, 1.5e-300);
        VN_EventWriter_addDecimal(writer, VN_DEC_NAN());
        return writer;
    });
    char* text = inject([event] { return VN_EventWriter_toString(event); });
    CHECK(equal(text, "Tick(5,\"a\\\"b\",1.5e-300,+NaN)"));
    free(text);
    inject([event] { VN_EventWriter_dtor(event); });
}

void readEvent() {
    const std::string text = "Tick(5,\"a\\\"b\",1.5e-300,[{1:+15E-1}],other,5e-324)";
    VN_EventReader reader;
    VN_EventReader_init(&reader);
    const auto read = [&](size_t length) {
        return inject([&] { return VN_EventReader_read(&reader, text.data(), length); });
    };
    CHECK(read(text.size() - 1) == nullptr);
    CHECK(equal(reader.error, "unexpected end"));
    VN_EventWriter* event = read(text.size());
    CHECK(reader.error == nullptr);
    char* again = VN_EventWriter_toString(event);
    CHECK(again == text);
    free(again);
    VN_EventWriter_dtor(event);
}

// A failed lock does not stop the only thread.
void stamp() {
    makeProcessLogger();
    VN_TimestampSet* set = inject(VN_TimestampSet_ctor);
    inject([set] {
        for (uint64_t stage = 1; stage <= 12; ++stage) {
            VN_TimestampSet_addTime(set, stage, 0.5);
        }
    });
    CHECK(VN_TimestampSet_getSize(set) == 12);
    inject([set] { VN_TimestampSet_addNow(set, 13); });
    const double now = VN_TimestampSet_findTime(set, 13);
    CHECK(failed("gettimeofday") ? now == 0 : now > 1.6e9);
    VN_TimestampSet* copy = inject([set] { return VN_TimestampSet_copy(set); });
    CHECK(VN_TimestampSet_getSize(copy) == 13);
    inject([set] { VN_TimestampSet_dtor(set); });
    CHECK(inject([copy] { return VN_TimestampSet_findTimeAndRemove(copy, 1); }) == 0.5);
    char* text = inject([copy] { return VN_TimestampSet_toString(copy); });
    CHECK(std::string(text).rfind("{2:", 0) == 0 || failed("vsnprintf"));
    vn_free(text);
    inject([copy] { VN_TimestampSet_dtor(copy); });
}

}  // namespace

std::vector<Scenario> eventScenarios() {
    const std::vector<std::string> warning = {
        "VN_TimestampSet_getRelativeTime(): gettimeofday() failed, errno = "};
    return {
        {.name = "eventReader",
         .run = readEvent,
         .memory = Memory::none,
         .mustFail = {"pthread_mutex_lock", "pthread_setspecific"},
         .silent = {"pthread_mutex_lock", "pthread_mutex_unlock", "pthread_setspecific"},
         .mayKeep = 20},  // free lists, as in the scenario numbers
        {"eventWriter", writeEvent, Memory::none},
        {.name = "timestampSets",
         .run = stamp,
         .memory = Memory::checked,
         .mustFail = {"gettimeofday", "malloc", "pthread_mutex_lock", "pthread_mutex_unlock"},
         .onStandardError = warning},
        {.name = "timestampSetsUnpooled",
         .run = stamp,
         .memory = Memory::checked,
         .mustFail = {"gettimeofday", "malloc"},
         .onStandardError = warning,
         .environment = {{"VN_OBJECTPOOL_DISABLED", "1"}}},
    };
}

}  // namespace faults
