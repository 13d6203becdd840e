#include "soak/worker.h"

#include <vncommon/vncommon.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "soak/log_files.h"
#include "soak/text_and_containers.h"

namespace {

constexpr char configText[] =
    "# soak\n"
    "loose = 1\n"
    "[first]\n"
    "a = 1\n"
    "name = \"two words\"\n"
    "[second]\n"
    "b = 2\n";

// Checks that a call returned no message, and frees it.
void expectNone(char* message, const char* call) {
    if (message != nullptr) {
        fprintf(stderr, "soak: %s: %s\n", call, message);
        SOAK_CHECK(message == nullptr);
        vn_free(message);
    }
}

// A connection that a thread has with itself.
class Loopback {
  public:
    Loopback() {
        expectNone(vn_createListeningSocket(0, &listener), "vn_createListeningSocket");
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
        connect();
    }
    ~Loopback() {
        disconnect();
        vn_socketClose(listener);
    }
    Loopback(const Loopback&) = delete;
    Loopback& operator=(const Loopback&) = delete;

    void connect() {
        expectNone(vn_socketConnect(nullptr, port, &client), "vn_socketConnect");
        expectNone(vn_socketAccept(listener, &server), "vn_socketAccept");
    }
    void disconnect() const {
        vn_socketClose(client);
        vn_socketClose(server);
    }
    void reconnect() {
        disconnect();
        connect();
    }

    void exchange(uint64_t number) const {
        const std::string line = "line " + std::to_string(number);
        CStringBuffer received;
        vn_strbufInit(&received, 0);
        expectNone(vn_socketWrite(client, (line + "\r\n").c_str()), "vn_socketWrite");
        expectNone(vn_socketReadLine(server, &received), "vn_socketReadLine");
        SOAK_CHECK(line == vn_strbufGetString(&received));
        vn_strbufDestroy(&received, 1);

        uint8_t bytes[4] = {1, 2, 3, 4};
        uint8_t back[4] = {};
        unsigned length = sizeof back;
        expectNone(vn_socketWriteBuffer(server, sizeof bytes, bytes), "vn_socketWriteBuffer");
        expectNone(vn_socketReadBuffer(client, &length, back), "vn_socketReadBuffer");
        SOAK_CHECK(length == sizeof back && memcmp(bytes, back, sizeof back) == 0);
    }

  private:
    int listener = -1;
    int client = -1;
    int server = -1;
    int port = 0;
};

// Most sets are destroyed by another thread and then join that thread's pool.
void putSet(Shared& shared, uint64_t token) {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    VN_TimestampSet_addNow(set, 1);
    set->functions->addTime(set, 2, static_cast<double>(token >> 11));
    VN_TimestampSet* copy = VN_TimestampSet_copy(set);
    VN_TimestampSet_dtor(set);
    vn_qtsElement element{};
    element.words[0] = copy;
    memcpy(&element.words[1], &token, sizeof token);
    const uint64_t check = ~token;
    memcpy(&element.words[2], &check, sizeof check);
    shared.put.add(token);
    SOAK_CHECK(vn_qtsAdd(&shared.queue, &element) == 0);
}

void takeSet(Shared& shared, bool blocking) {
    vn_qtsElement element{};
    if (blocking || vn_qtsRemoveNB(&shared.queue, &element) != 0) {
        vn_qtsRemove(&shared.queue, &element);
    }
    uint64_t token;
    uint64_t check;
    memcpy(&token, &element.words[1], sizeof token);
    memcpy(&check, &element.words[2], sizeof check);
    SOAK_CHECK(check == ~token);
    shared.taken.add(token);
    auto* set = static_cast<VN_TimestampSet*>(element.words[0]);
    SOAK_CHECK(VN_TimestampSet_getSize(set) == 2);
    SOAK_CHECK(VN_TimestampSet_findTime(set, 2) == static_cast<double>(token >> 11));
    char* text = VN_TimestampSet_toString(set);
    SOAK_CHECK(strncmp(text, "{1:", 3) == 0);
    vn_free(text);
    VN_TimestampSet_dtor(set);
}

// Each thread takes as many elements as it added before, so no thread waits forever.
void useQueue(Shared& shared, Random& random) {
    const uint32_t count = 1 + random.below(12);
    for (uint32_t i = 0; i < count; ++i) {
        putSet(shared, random.next());
    }
    for (uint32_t i = 0; i < count; ++i) {
        takeSet(shared, random.below(2) == 0);
    }
}

// Creates, reopens by SIGHUP and destroys a logger, while other threads do the same.
void useOwnLogger(const Worker& worker) {
    const std::string name = worker.shared->folder + "/own" + std::to_string(worker.number);
    FileLogger* logger = FileLogger_ctor();
    SOAK_CHECK(FileLogger_SetFilename(logger, name.c_str(), 1, 1) == 0);
    FileLogger_LogWarn(logger, "%s", "one");
    FileLogger_LogDebug(logger, "%s", "suppressed");
    FileLogger_LogForce(logger, "%s", "two");
    char* buffer = logger->buffer;
    FileLogger_dtor(logger);
    vn_free(buffer);

    CStringBuffer text;
    vn_strbufInit(&text, 0);
    expectNone(vn_strbufAppendFile(&text, name.c_str()), "vn_strbufAppendFile");
    const char* first = strstr(vn_strbufGetString(&text), "] - one\n");
    SOAK_CHECK(first != nullptr && strstr(first, "] - two\n") != nullptr);
    SOAK_CHECK(strstr(vn_strbufGetString(&text), "suppressed") == nullptr);
    vn_strbufDestroy(&text, 1);
}

void useConfig(Shared& shared) {
    const std::string name = shared.folder + "/soak.conf";
    vn_Mutex_lock(&shared.configLock);
    const char* loaded = VN_ConfigFile_Load(name.c_str(), nullptr);
    SOAK_CHECK(loaded != nullptr && name == loaded);
    VN_ConfigFile* config = VN_ConfigFile_Get();
    SOAK_CHECK(VN_ConfigFile_GetCategoryCount(config) == 3);
    VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(config, "first");
    SOAK_CHECK(VN_ConfigFileCategory_GetEntryCount(category) == 2);
    SOAK_CHECK(strcmp(VN_ConfigFileCategory_GetFirstEntry(category), "a = 1") == 0);
    SOAK_CHECK(VN_ConfigFileCategory_GetNextEntry(category) != nullptr);
    SOAK_CHECK(VN_ConfigFileCategory_GetNextEntry(category) == nullptr);
    VN_ConfigFileCategory_Release(category);
    VN_ConfigFile_Unload();
    SOAK_CHECK(!VN_ConfigFile_IsLoaded());
    vn_Mutex_unlock(&shared.configLock);
}

void useDiscovery(const Shared& shared) {
    SOAK_CHECK(vn_numberOfCPUs() >= 1 && vn_getPhysicalCPUs() >= 1);
    SOAK_CHECK(vn_availableCPUs() > 0);
    SOAK_CHECK(vn_physicalMemory() > 0 && vn_actualPhysicalMemoryBytes() > 0);
    SOAK_CHECK(vn_vmSize() >= vn_residentSetSize() && vn_residentSetSize() > 0);
    SOAK_CHECK(vn_getCPUDetails() != nullptr && vn_getFullPlatformName() != nullptr);
    SOAK_CHECK(vn_availableCPUsCGroupsV2(shared.folder.c_str()) == 1.5);
    double swappedIn;
    double swappedOut;
    (void)vn_get_os_statistics(&swappedIn, &swappedOut);
}

void useProcess() {
    vn_TimeStampCache cache;
    vn_timeStampInit(&cache);
    SOAK_CHECK(strlen(vn_timeStampGet(&cache)) == 23);
    vn_timeStampDestroy(&cache);
    char* folder = vn_getUTF8CurrentDirectory();
    SOAK_CHECK(folder != nullptr && folder[0] == '/');
    free(folder);
    char** environment = vn_getEnvironUTF8();
    SOAK_CHECK(environment != nullptr);
    vn_freeEnvironUTF8(environment);
    int fd = -1;
    expectNone(vn_openFileUTF8(&fd, "/dev/null", O_RDONLY), "vn_openFileUTF8");
    close(fd);
    void* library = nullptr;
    void* symbol = nullptr;
    expectNone(vn_loadLibraryUTF8(&library, "libm.so.6"), "vn_loadLibraryUTF8");
    expectNone(vn_findLibrarySymbol(&symbol, library, "cos"), "vn_findLibrarySymbol");
    SOAK_CHECK(symbol != nullptr);
    expectNone(vn_unloadLibrary(library), "vn_unloadLibrary");
}

struct Handover {
    vn_Mutex lock;
    vn_Condition changed;
    uint64_t otherThread = 0;
};

void* answer(void* argument) {
    auto* handover = static_cast<Handover*>(argument);
    vn_Mutex_lock(&handover->lock);
    handover->otherThread = vn_getCountedThreadId();
    vn_Condition_signal(&handover->changed);
    vn_Mutex_unlock(&handover->lock);
    return nullptr;
}

void useThreads() {
    Handover handover;
    vn_Mutex_init(&handover.lock);
    vn_Condition_init(&handover.changed);
    const vn_ThreadId thread = vn_createThread(answer, &handover, false);
    vn_Mutex_lock(&handover.lock);
    while (handover.otherThread == 0) {
        vn_Condition_wait(&handover.changed, &handover.lock);
    }
    vn_Mutex_unlock(&handover.lock);
    vn_joinThread(thread);
    SOAK_CHECK(handover.otherThread > vn_getCountedThreadId());
    vn_Condition_destroy(&handover.changed);
    vn_Mutex_destroy(&handover.lock);
}

void useAllocation(Random& random) {
    const size_t size = 1 + random.below(10000);
    auto* block = static_cast<char*>(vn_malloc(size));
    memset(block, 'x', size);
    block = static_cast<char*>(vn_realloc(block, 2 * size));
    SOAK_CHECK(block[0] == 'x' && block[size - 1] == 'x');
    block[size] = '\0';
    char* copy = vn_strdup(block);
    SOAK_CHECK(strcmp(block, copy) == 0);
    vn_free(copy);
    vn_free(block);
    char message[1024];
    vn_strerror(message, sizeof message, 2);
    SOAK_CHECK(strstr(message, "No such file") != nullptr);
}

void writeFile(const std::string& name, const char* text) {
    FILE* file = fopen(name.c_str(), "we");
    SOAK_CHECK(file != nullptr && fputs(text, file) >= 0 && fclose(file) == 0);
}

void useQuickFamilies(Random& random) {
    useStringBuffer(random);
    useByteBuffer(random);
    useStrings(random);
    useNumbers(random);
    useDecimals(random);
    useUtf8(random);
    useVector(random);
    useHashMap(random);
    useEventWriter(random);
    useMaths(random);
    useAllocation(random);
}

// Uses a family that makes system calls, but only in a few rounds, because such families are slow.
void useOneSlowFamily(const Worker& worker, Loopback& loopback, uint64_t round) {
    switch (round % 32) {
        case 0:
            useOwnLogger(worker);
            break;
        case 5:
            useConfig(*worker.shared);
            break;
        case 10:
            useDiscovery(*worker.shared);
            break;
        case 15:
            useProcess();
            break;
        case 20:
            useThreads();
            break;
        default:
            break;
    }
    if (round % 1024 == 25) {  // a closed connection keeps its port for a minute
        loopback.reconnect();
    }
}

}  // namespace

Shared::Shared(const std::string& workFolder) : folder(workFolder) {
    vn_qtsInit(&queue, 0);
    vn_Mutex_init(&configLock);
    writeFile(folder + "/soak.conf", configText);
    writeFile(folder + "/cpu.max", "150000 100000\n");
}

Shared::~Shared() {
    SOAK_CHECK(vn_qtsSize(&queue) == 0);
    SOAK_CHECK(put.count == taken.count && put.sum == taken.sum);
    vn_Mutex_destroy(&configLock);
    vn_qtsDestroy(&queue);
}

void* work(void* argument) {
    auto* worker = static_cast<Worker*>(argument);
    Random random(1000 + worker->number);
    Loopback loopback;
    for (uint64_t round = 0; !worker->shared->stop; ++round) {
        useQuickFamilies(random);
        useQueue(*worker->shared, random);
        writeLogLine(worker->number, worker->lines++);
        loopback.exchange(round);
        useOneSlowFamily(*worker, loopback, round);
        ++worker->rounds;
    }
    return nullptr;
}
