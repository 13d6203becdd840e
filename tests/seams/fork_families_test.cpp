// Threads work in one family of functions while the main thread forks; each child calls the same
// family once. Locks held or data half changed at the fork must not block the child: it would wait
// for a thread that it does not have.
//
// Every family runs in a fresh process whose main thread has not used the family before, so that
// first calls are covered too. A child that hangs is ended by its alarm.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vncommon/vncommon.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/pause_at_fork.h"
#include "support/temporary_folder.h"

namespace {

constexpr int forks = childrenMayAllocate ? 200 : 30;
constexpr int hammers = 3;
constexpr unsigned hangSeconds = 300;  // far longer than a child's call takes

std::atomic<bool> slotsAreSlow{false};

}  // namespace

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
// Replaces the C library's, for the shared library too. The library calls it with the lock of the
// thread ids held; a slow call makes it likely that a fork happens at that moment.
extern "C" __attribute__((visibility("default"))) int pthread_setspecific(
    pthread_key_t key, const void* value) noexcept {
    static const auto real =
        reinterpret_cast<decltype(&pthread_setspecific)>(dlsym(RTLD_NEXT, "pthread_setspecific"));
    if (slotsAreSlow) {
        usleep(200);
    }
    return real(key, value);
}
#endif

namespace {

bool same(const char* text, const char* expected) {
    return text != nullptr && strcmp(text, expected) == 0;
}

// Like same(), and frees the text.
bool gives(char* text, const char* expected) {
    const bool equal = same(text, expected);
    vn_free(text);
    return equal;
}

bool allocate() {
    char* copy = vn_strdup("text");
    copy = static_cast<char*>(vn_realloc(copy, 100'000));
    countMemoryAllocated(5);
    countMemoryFreed(5);
    char message[1024];
    vn_strerror(message, sizeof message, 2);
    return gives(copy, "text") && message[0] != '\0' && vn_systime() > 1'600'000'000'000;
}

bool lockAndNumber() {
    vn_Mutex mutex;
    vn_Mutex_init(&mutex);
    vn_Mutex_lock(&mutex);
    vn_Condition condition;
    vn_Condition_init(&condition);
    const bool woken = vn_Condition_timedwait(&condition, &mutex, 1);
    vn_Condition_destroy(&condition);
    vn_Mutex_unlock(&mutex);
    vn_Mutex_destroy(&mutex);
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 1);
    const bool refused = vn_Semaphore_trywait(&semaphore);
    vn_Semaphore_destroy(&semaphore);
    return !woken && !refused && vn_getCountedThreadId() > 0;
}

void startThreads() {
    vn_threadInit();
    slotsAreSlow = true;
}

// Only a thread's first request for its id takes the lock.
void numberNewThreads() {
    vn_joinThread(vn_createThread(
        [](void*) -> void* {
            lockAndNumber();
            return nullptr;
        },
        nullptr, false));
}

bool useVector() {
    Vector* vector = vn_Vector_ctor(nullptr, nullptr, nullptr, 1, 1);
    for (uintptr_t i = 0; i < 300; ++i) {
        vn_Vector_add(vector, reinterpret_cast<void*>(i));
    }
    const bool right = vn_Vector_get(vector, 299) == reinterpret_cast<void*>(uintptr_t{299});
    vn_Vector_dtor(vector);
    return right;
}

bool useHashMap() {
    static char keys[4][2] = {"a", "b", "c", "d"};
    HashMap* map = vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 1, 1);
    for (char* key : keys) {
        vn_HashMap_addQuick(map, key, key);
    }
    const bool right = vn_HashMap_findValue(map, "c") == keys[2] && vn_HashMap_size(map) == 4;
    vn_HashMap_dtor(map);
    return right;
}

bool useQueue() {
    vn_qtsQueue queue;
    vn_qtsInit(&queue, 0);
    vn_qtsElement element = {{&queue, nullptr, nullptr}};
    for (int i = 0; i < 20; ++i) {
        vn_qtsAdd(&queue, &element);
    }
    vn_qtsElement taken = {};
    vn_qtsRemove(&queue, &taken);
    const bool right = taken.words[0] == &queue && vn_qtsSize(&queue) == 19;
    vn_qtsDestroy(&queue);
    return right;
}

bool useContainers() {
    return useVector() && useHashMap() && useQueue();
}

bool buildText() {
    CStringBuffer text;
    vn_strbufInit(&text, 1);
    vn_strbufAppendFormat(&text, "%d %s %.3f", 7, "seven", 7.125);
    CByteBuffer bytes;
    vn_bytebufInit(&bytes, 1);
    vn_bytebufAppendBytes(&bytes, text.data, text.size);
    const bool right = vn_bytebufGetSize(&bytes) == 13 && same(text.data, "7 seven 7.125");
    vn_bytebufDestroy(&bytes, 1);
    vn_strbufDestroy(&text, 1);
    return right;
}

bool useStrings() {
    int32_t error = 0;
    const bool number = vn_char8ToInt64("-12", nullptr, &error) == -12 && error == 0;
    return number && gives(vn_xmlEscapeString("<a&b>"), "&lt;a&amp;b&gt;");
}

bool useUTF8() {
    return vn_isUTF8("z\xC3\xBCrich") == 1 && vn_UTF8Length("z\xC3\xBCrich") == 6 &&
           vn_UTF8CaseCmp("Z\xC3\x9CRICH", "z\xC3\xBCrich") == 0;
}

bool useCodePage() {
    return gives(vn_UTF8ToCstr("z\xC3\xBCrich \xE2\x82\xAC"), "z\xFCrich \xA4") &&
           gives(vn_CstrToUTF8("\xFC\xA4"), "\xC3\xBC\xE2\x82\xAC");
}

// Too many digits for the scratch area of the conversion, so the conversion takes its locks.
const std::string longNumber = "0." + std::string(17'000, '3');

bool convertNumbers() {
    char text[512];
    return vn_strtod(longNumber.c_str(), nullptr) == 1.0 / 3 &&
           same(vn_g_fmt_fixed(text, sizeof text, -1, 1e25), "10000000000000000905969660") &&
           same(vn_g_fmt(text, 1e-300), "1e-300");
}

bool lockConversion() {
    bool right = acquireBallocLock() == 0;
    right &= freeBallocLock() == 0;
    right &= acquirep5Lock() == 0;
    return freep5Lock() == 0 && right;
}

bool writeDecimals() {
    char text[64];
    vn_dec_to_string(VN_DEC_INFINITY(), text);
    return same(text, "+Inf") && vn_dec_isnan(VN_DEC_NAN()) != 0;
}

bool discover() {
    return vn_numberOfCPUs() > 0 && vn_physicalMemory() > 0 && vn_vmSize() > 0 &&
           vn_residentSetSize() > 0;
}

bool namePlatform() {
    return vn_getFullPlatformName() != nullptr && vn_getCPUDetails() != nullptr;
}

bool openFiles() {
    int fd = -1;
    char* error = vn_openFileUTF8(&fd, "/dev/null", 0);
    close(fd);
    FILE* stream = vn_openStreamUTF8("/proc/self/stat", "r");
    const bool opened = stream != nullptr && fgetc(stream) != EOF;
    if (stream != nullptr) {
        fclose(stream);
    }
    char* directory = vn_getUTF8CurrentDirectory();
    const bool absolute = directory != nullptr && directory[0] == '/';
    vn_free(directory);
    return error == nullptr && opened && absolute;
}

bool readTheClock() {
    vn_TimeStampCache cache;
    vn_timeStampInit(&cache);
    const bool right = strlen(vn_timeStampGet(&cache)) == 23;
    vn_timeStampDestroy(&cache);
    return right && vn_sys_time() > 0;
}

// The first reading allocates. Only a sanitizer's heap does not allow that beside a fork.
void readTheTimeZone() {
    if (!childrenMayAllocate) {
        readTheClock();
    }
}

// Does not check the values: concurrent readings may mix them.
bool askForSwapRates() {
    double in;
    double out;
    return vn_get_os_statistics(&in, &out) == 0;
}

bool calculate() {
    return vn_exp(0) == 1 && vn_pow(2, 10) == 1024 && std::fabs(vn_sin(1) - std::sin(1)) < 1e-15 &&
           vn_cbrt(27) == 3;
}

bool readConfiguration() {
    VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(VN_ConfigFile_Get(), "fork");
    const bool right = category != nullptr &&
                       same(VN_ConfigFileCategory_GetFirstEntry(category), "first") &&
                       same(VN_ConfigFileCategory_GetNextEntry(category), "second");
    VN_ConfigFileCategory_Release(category);
    return right;
}

// Loads by file name, relative to the folder that the test starts in.
void loadConfiguration() {
    (void)VN_ConfigFile_Load("fork.conf", nullptr);
}

bool writeLogLines() {
    VN_LogInfo("line %d of %s", 1, "many");
    return true;
}

void logToNowhere() {
    VN_LogSetup(VN_StringToLogLevel("INFO"), "/dev/null", 0, 1);
}

bool useLogger() {
    FileLogger* logger = FileLogger_ctor();
    const bool right = FileLogger_SetFilename(logger, "/dev/null", 0, 1) == 0;
    FileLogger_LogInfo(logger, "line %d", 1);
    FileLogger_ReOpen(logger);
    char* buffer = logger->buffer;  // FileLogger_dtor does not free it
    FileLogger_dtor(logger);
    vn_free(buffer);
    return right;
}

bool writeEvent() {
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
    VN_EventWriter_addString(event, "a");
    VN_EventWriter_addFloat(event, 12.5);
    char* text = VN_EventWriter_toString(event);
    VN_EventWriter_dtor(event);
    return gives(text, "Tick(\"a\",12.5)");
}

bool stampAndRead() {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    for (uint64_t stage = 1; stage <= 6; ++stage) {
        VN_TimestampSet_addTime(set, stage, static_cast<double>(stage));
    }
    bool right = VN_TimestampSet_findTimeAndRemove(set, 3) == 3 &&
                 VN_TimestampSet_findTime(set, 6) == 6 && VN_TimestampSet_getSize(set) == 5;
    VN_TimestampSet_dtor(set);
    return right;
}

// With enough sets for the threads and a child, nobody allocates any more.
void fillThePool() {
    if (childrenMayAllocate) {
        return;
    }
    VN_TimestampSet* sets[hammers + 2];
    for (VN_TimestampSet*& set : sets) {
        set = VN_TimestampSet_ctor();
        for (uint64_t stage = 1; stage <= 6; ++stage) {
            VN_TimestampSet_addTime(set, stage, 0.5);
        }
    }
    for (VN_TimestampSet* set : sets) {
        VN_TimestampSet_dtor(set);
    }
}

bool talk() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        return false;
    }
    CStringBuffer line;
    vn_strbufInit(&line, 16);
    const bool right = vn_socketWrite(ends[0], "hello\n") == nullptr &&
                       vn_socketReadLine(ends[1], &line) == nullptr && same(line.data, "hello");
    vn_strbufDestroy(&line, 1);
    vn_socketClose(ends[0]);
    vn_socketClose(ends[1]);
    return right;
}

struct Family {
    const char* name;
    bool (*call)();               // what a child calls; returns whether its results were right
    void (*hammer)() = nullptr;   // what the threads call; null: the same function
    void (*prepare)() = nullptr;  // called first, in the main thread
    int share = 1;                // divides the number of forks, for slow calls
    bool usesHeap = true;         // or streams; then the threads pause under a sanitizer
};

void PrintTo(const Family& family, std::ostream* out) {
    *out << family.name;
}

const Family families[] = {
    {.name = "failure", .call = allocate},
    {.name = "threads", .call = lockAndNumber, .hammer = numberNewThreads, .prepare = startThreads},
    {.name = "containers", .call = useContainers, .prepare = vn_threadInit},
    {.name = "buffers", .call = buildText},
    {.name = "strings", .call = useStrings},
    {.name = "utf8", .call = useUTF8},
    {.name = "codepage", .call = useCodePage},
    {.name = "numbers", .call = convertNumbers, .share = 20},
    {.name = "conversion_locks", .call = lockConversion, .usesHeap = false},
    {.name = "decimals", .call = writeDecimals, .usesHeap = false},
    {.name = "discovery", .call = discover},
    {.name = "platform", .call = namePlatform},
    {.name = "files", .call = openFiles},
    {.name = "clock", .call = readTheClock, .prepare = readTheTimeZone, .usesHeap = false},
    {.name = "swap_rates", .call = askForSwapRates},
    {.name = "maths", .call = calculate, .usesHeap = false},
    {.name = "configuration", .call = readConfiguration, .prepare = loadConfiguration},
    {.name = "log", .call = writeLogLines, .prepare = logToNowhere},
    {.name = "loggers", .call = useLogger},
    {.name = "events", .call = writeEvent},
    {.name = "timestamp_sets", .call = stampAndRead, .prepare = fillThePool, .usesHeap = false},
    {.name = "sockets", .call = talk},
};

const Family* findFamily(const std::string& name) {
    for (const Family& family : families) {
        if (name == family.name) {
            return &family;
        }
    }
    return nullptr;
}

// Threads that call the family in a loop.
class Hammers {
  public:
    explicit Hammers(const Family& family) : family_(family) {
        for (int i = 0; i < hammers; ++i) {
            threads_.emplace_back([this] {
                while (!over_) {
                    pause_.here();
                    call();
                }
            });
        }
        if (!childrenMayAllocate) {  // the start of a thread uses the heap, too
            pause_.begin();
            pause_.end();
        }
    }
    ~Hammers() {
        over_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    Hammers(const Hammers&) = delete;
    Hammers& operator=(const Hammers&) = delete;

    pid_t fork() { return family_.usesHeap ? pause_.fork() : ::fork(); }

  private:
    void call() const {
        if (family_.hammer != nullptr) {
            family_.hammer();
        } else {
            family_.call();
        }
    }

    const Family& family_;
    PauseAtFork pause_{hammers};
    std::atomic<bool> over_{false};
    std::vector<std::thread> threads_;
};

// Forks; returns whether the child's call gave the right results, and prints a line if not.
bool childManages(const Family& family, Hammers& threads, int round) {
    const pid_t child = threads.fork();
    if (child == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(hangSeconds);
        _exit(family.call() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
        printf("%s: child %d hangs\n", family.name, round);
    } else if (status != 0) {
        printf("%s: child %d ended with status %x\n", family.name, round,
               static_cast<unsigned>(status));
    }
    return status == 0;
}

VN_CHILD(forkBesideThreads) {
    const Family& family = *findFamily(arguments.at(0));
    if (family.prepare != nullptr) {
        family.prepare();
    }
    Hammers threads(family);
    for (int round = 1; round <= forks / family.share; ++round) {
        if (!childManages(family, threads, round)) {
            return 1;
        }
    }
    return 0;
}

class ForkBesideThreads : public testing::TestWithParam<Family> {};

TEST_P(ForkBesideThreads, ChildrenCanCallTheFamily) {
    const TemporaryFolder folder;
    folder.write("fork.conf", "[fork]\nfirst\nsecond\n");
    const ChildResult child = runChild(
        "forkBesideThreads", {.environment = {{"VN_ASSUME_CPUS", "1"},  // one pool for all threads
                                              {"VN_OBJECTPOOL_DISABLED", {}},
                                              {"LC_ALL", "de_DE.ISO-8859-15"}},
                              .arguments = {GetParam().name},
                              .workingDirectory = folder.path()});
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << '\n' << child.out << child.err;
}

INSTANTIATE_TEST_SUITE_P(Families, ForkBesideThreads, testing::ValuesIn(families),
                         [](const auto& family) { return std::string(family.param.name); });

}  // namespace
