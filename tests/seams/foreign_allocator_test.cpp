// A host with its own heap. It defines only malloc, calloc, realloc and free. Its free() ends the
// process when it is given a block that the library allocated in any other way. Its malloc()
// changes errno when it succeeds, as C and POSIX allow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vncommon/vncommon.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/child_process.h"

// ---- The heap: blocks are cut from one area and never reused

namespace {

struct alignas(16) Header {
    size_t size;
    uint64_t mark;  // inUse, until the block is freed
};

constexpr uint64_t inUse = 0x6865617062656C6F;
constexpr size_t areaSize = size_t{512} << 20;  // untouched pages take no memory
alignas(16) std::byte area[areaSize];
std::atomic<size_t> cut = 0;

Header* headerOf(void* block) {
    return static_cast<Header*>(block) - 1;
}

[[noreturn]] void endWith(const char* message) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message, strlen(message));
    abort();
}

void checkOwn(void* block) {
    const auto* place = static_cast<std::byte*>(block);
    if (place < area || place >= area + areaSize || headerOf(block)->mark != inUse) {
        endWith("a block that this heap did not give\n");
    }
}

}  // namespace

// Visible to the library; clang would hide them like the rest of this program.
#define VN_HOSTS extern "C" __attribute__((visibility("default")))

VN_HOSTS void* malloc(size_t size) {
    const size_t needed = sizeof(Header) + (size + 15) / 16 * 16;
    const size_t begin = cut.fetch_add(needed);
    if (begin + needed > areaSize) {
        endWith("the area is used up\n");
    }
    auto* header = reinterpret_cast<Header*>(area + begin);
    *header = {size, inUse};
    errno = ENOMEM;
    return header + 1;
}

VN_HOSTS void free(void* block) {
    if (block != nullptr) {
        checkOwn(block);
        headerOf(block)->mark = 0;
    }
}

// Needs no memset: the area is zero at first, and no part of it is reused.
VN_HOSTS void* calloc(size_t count, size_t size) {
    return malloc(count * size);
}

VN_HOSTS void* realloc(void* block, size_t size) {
    void* larger = malloc(size);
    if (block != nullptr) {
        checkOwn(block);
        memcpy(larger, block, std::min(size, headerOf(block)->size));
        free(block);
    }
    return larger;
}

// ---- What a host does with the library

namespace {

void fillWithStrdup(HashMapEntry* entry, void* key, void* value) {
    entry->key = vn_strdup(static_cast<char*>(key));
    entry->value = value;
}

void* freeKey(HashMapEntry* entry) {
    free(entry->key);
    return nullptr;
}

void useContainers() {
    for (const uint32_t initialSize : {0U, 1U << 18}) {
        HashMap* map = vn_HashMap_ctor(vn_String_hash, vn_String_compare, fillWithStrdup, freeKey,
                                       initialSize, 1);
        for (int i = 0; i < 3000; ++i) {
            std::string key = "key " + std::to_string(i);
            vn_HashMapIterator_dtor(vn_HashMap_add(map, key.data(), map));
        }
        vn_HashMap_dtor(map);
    }
    Vector* vector = vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 1);
    for (int i = 0; i < 100'000; ++i) {
        vn_Vector_add(vector, vector);
    }
    vn_Vector_dtor(vector);
    vn_threadInit();
    vn_qtsQueue queue;
    vn_qtsInit(&queue, 0);
    vn_qtsElement element = {};
    for (int i = 0; i < 100; ++i) {
        vn_qtsAdd(&queue, &element);
    }
    while (vn_qtsRemoveNB(&queue, &element) == 0) {
    }
    vn_qtsDestroy(&queue);
}

void* useStamps(void*) {
    for (int i = 0; i < 20; ++i) {
        VN_TimestampSet* stamps = VN_TimestampSet_ctor();
        for (uint32_t id = 0; id < 50; ++id) {
            stamps->functions->addNow(stamps, id);
        }
        free(stamps->functions->toString(stamps));
        VN_TimestampSet_dtor(stamps);
    }
    return nullptr;
}

void useTexts() {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    for (int i = 0; i < 100; ++i) {
        vn_strbufAppendFormat(&buffer, "%d of %s, ", i, vn_getFullPlatformName());
    }
    free(vn_UTF8ToCstr(vn_strbufGetString(&buffer)));
    vn_strbufDestroy(&buffer, 1);
    char text[64];
    vn_g_fmt(text, vn_strtod("1.7976931348623157e308", nullptr) / 3);
    VN_EventWriter* event = VN_EventWriter_ctor(8, "Tick");
    VN_EventWriter_addString(event, "ACME");
    VN_EventWriter_addFloat(event, 12.5);
    free(VN_EventWriter_toString(event));
    VN_EventWriter_dtor(event);
}

void useFiles() {
    VN_ConfigFile* config = nullptr;
    if (VN_ConfigFile_Load("/dev/null", &config) != nullptr) {
        VN_ConfigFileCategory_Release(VN_ConfigFile_GetFirstCategory(config));
        vn_HashMap_dtor(config->categories);
        VN_ConfigFile_Release(config);
    }
    VN_LogSetup(VN_StringToLogLevel("INFO"), "/dev/null", 0, 1);
    VN_LogInfo("%s", "a line");
}

VN_CHILD(usesTheLibrary) {
    useContainers();
    useStamps(nullptr);
    vn_joinThread(vn_createThread(useStamps, nullptr, false));
    useTexts();
    useFiles();
    return 0;
}

// Also tests what the library frees at exit.
VN_CHILD(onlyLinksTheLibrary) {
    return 0;
}

TEST(ForeignAllocator, FreesEverythingThatTheLibraryAllocates) {
    for (const char* name : {"onlyLinksTheLibrary", "usesTheLibrary"}) {
        const ChildResult child = runChild(name);
        EXPECT_EQ(child.signal, 0) << name << ": " << child.err;
        EXPECT_EQ(child.exitStatus, 0) << name << ": " << child.err;
    }
}

const std::string longText(5000, 'x');

// Hides a format from the compiler, which warns that ISO C++ has no %m.
[[gnu::noinline]] const char* hidden(const char* format) {
    return format;
}

VN_CHILD(logsTheCallersErrno) {
    errno = EACCES;
    VN_LogInfo(hidden("%s %m"), longText.c_str());  // the line buffer grows
    return errno == EACCES ? 0 : 1;
}

TEST(ForeignAllocator, DoesNotChangeTheErrnoOfALine) {
    const ChildResult child = runChild("logsTheCallersErrno");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_THAT(child.err, testing::EndsWith(longText + " Permission denied\n"));
}

VN_PRINTF(2, 3)
void appendWithList(CStringBuffer* buffer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vn_strbufAppendVA(buffer, format, arguments);
    va_end(arguments);
}

TEST(ForeignAllocator, DoesNotChangeTheErrnoOfAFormat) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    errno = EACCES;
    appendWithList(&buffer, hidden("%m%s"), ", ");  // both make the buffer grow
    errno = EACCES;
    vn_strbufAppendFormat(&buffer, hidden("%s %m"), longText.c_str());
    EXPECT_EQ(std::string(buffer.data, buffer.size),
              "Permission denied, " + longText + " Permission denied");
    vn_strbufDestroy(&buffer, 1);
}

}  // namespace
