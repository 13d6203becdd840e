// Failure and allocation, threads, sockets, and the load of the library.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstring>

#include <vncommon/vncommon.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

void allocate() {
    char* text = inject([] {
        char* block = static_cast<char*>(vn_malloc(10));
        block = static_cast<char*>(vn_realloc(block, 1000));
        vn_free(block);
        char* copy = vn_strdup("text");
        char* start = vn_strndup(copy, 2);
        vn_free(copy);
        return start;
    });
    CHECK(equal(text, "te"));
    vn_free(text);
    const uint64_t time = inject(vn_systime);
    CHECK(failed("gettimeofday") ? time == 0 : time > 1'600'000'000'000);
}

void runOutOfMemory() {
    inject([] { vn_outOfMemory(); });
}

void failCall() {
    inject([] {
        errno = ENOENT;
        vn_checkError(0, "nothing");
        char text[100];
        vn_strerror(text, sizeof text, 123456);
        CHECK(equal(text, failed("vsnprintf") ? "" : "An unknown error (123456) occurred"));
    });
}

void* countRun(void* counter) {
    ++*static_cast<int*>(counter);
    return nullptr;
}

// No call may wait forever, whatever failed before it.
void useLocks() {
    vn_Mutex mutex = PTHREAD_MUTEX_INITIALIZER;
    vn_Condition condition = PTHREAD_COND_INITIALIZER;
    vn_Semaphore semaphore = {};
    inject([&] {
        vn_threadInit();
        vn_Mutex_init(&mutex);
        vn_Mutex_lock(&mutex);
        vn_Mutex_unlock(&mutex);
        vn_Condition_init(&condition);
        vn_Condition_signal(&condition);
        vn_Condition_broadcast(&condition);
    });
    const bool woken = inject([&] { return vn_Condition_timedwait(&condition, &mutex, 1); });
    CHECK(!woken);
    inject([&] { vn_Semaphore_init(&semaphore, 1); });
    const bool refused = inject([&] { return vn_Semaphore_trywait(&semaphore); });
    CHECK(refused == everFailed() || !failed());
    inject([&] {
        vn_Semaphore_post(&semaphore);
        vn_Semaphore_post(&semaphore);
    });
    if (!everFailed()) {
        inject([&] { vn_Semaphore_wait(&semaphore); });
    }
    inject([&] {
        vn_Semaphore_destroy(&semaphore);
        vn_Condition_destroy(&condition);
        vn_Mutex_destroy(&mutex);
    });
}

void startThreads() {
    vn_threadInit();
    int runs = 0;
    vn_ThreadId thread = inject([&] { return vn_createThread(countRun, &runs, false); });
    if (failed("pthread_create")) {
        CHECK(runs == 0);
    } else {
        CHECK(inject([&] { return vn_joinThread(thread); }) == nullptr);
        CHECK(runs == 1);
    }
    static int detachedRuns = 0;
    thread = inject([] { return vn_createThread(countRun, &detachedRuns, true); });
    if (failed("pthread_attr_setdetachstate")) {
        pthread_join(thread, nullptr);
    } else if (!failed("pthread_create")) {
        while (__atomic_load_n(&detachedRuns, __ATOMIC_RELAXED) == 0) {
            usleep(100);
        }
    }
}

void useThreadsOwn() {
    vn_ThreadLocal slot = PTHREAD_KEYS_MAX;
    inject([&] { vn_ThreadLocal_init(&slot, nullptr); });
    const bool exists = !failed();
    int value = 0;
    if (exists) {
        inject([&] { vn_ThreadLocal_set(&slot, &value); });
        CHECK(vn_ThreadLocal_get(&slot) == (failed() ? nullptr : &value));
        inject([&] { vn_ThreadLocal_destroy(&slot); });
    }
    const uint64_t number = inject(vn_getCountedThreadId);
    CHECK(number > 0);
    const bool kept = !failed("pthread_setspecific");
    CHECK(!kept || vn_getCountedThreadId() == number);
    const uint64_t before = vn_systime();
    inject([] { vn_sleep(2); });
    CHECK(vn_systime() - before >= 1);
}

int portOf(int listener) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// The other end, which never fails.
int connectUntouched(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    CHECK(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
    return fd;
}

int listenUntouched() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    CHECK(listen(fd, 5) == 0);
    return fd;
}

void openConnections() {
    makeProcessLogger();
    int listener = -1;
    char* message = inject([&] { return vn_createListeningSocket(0, &listener); });
    CHECK_MESSAGE(message, {{"socket", "Failed to create listening socket."},
                            {"setsockopt", "Failed to set SO_REUSEADDR option."},
                            {"bind", "Failed to bind listening socket."},
                            {"listen", "Failed to listen on listening socket."}});
    CHECK((listener == -1) == failed());
    if (listener == -1) {
        listener = listenUntouched();
    }
    const int port = portOf(listener);
    int client = -1;
    message = inject([&] { return vn_socketConnect("127.0.0.1", port, &client); });
    CHECK_MESSAGE(message, {{"socket", "Failed to create network socket."},
                            {"connect", "Failed to connect to host."}});
    if (client == -1) {
        client = connectUntouched(port);
    }
    int server = -1;
    message = inject([&] { return vn_socketAccept(listener, &server); });
    const bool listenerGone = failed("listen");
    CHECK_MESSAGE(message, {{"listen", "Failed to listen on listening socket."},
                            {"accept", "The accept() call failed"}});
    CHECK((server == -1) == (failed("listen") || failed("accept")));
    for (const int fd : {client, server, listenerGone ? -1 : listener}) {
        if (fd >= 0) {
            const int result = inject([fd] { return vn_socketClose(fd); });
            CHECK(result == (failed("close") ? -1 : 0));
        }
    }
}

const char* transferError(const char* call) {
    static char text[1024];
    if (!failed(call) || errno == 0) {
        return nullptr;
    }
    vn_strerror(text, sizeof text, errno);
    return text;
}

// Uses a socket pair. After a failure the other side may have sent less, so reads only what arrives
// in every case.
void talk() {
    int ends[2];
    CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    errno = 0;
    char* message = inject([&] { return vn_socketWrite(ends[0], "line one\r\nline two\n"); });
    const bool written = message == nullptr;
    CHECK(equal(message, written ? nullptr : transferError("send")));
    vn_free(message);
    const uint8_t bytes[] = {1, 2, 3};
    message = inject([&] { return vn_socketWriteBuffer(ends[0], sizeof bytes, bytes); });
    CHECK(equal(message, message == nullptr ? nullptr : transferError("send")));
    const bool bytesWritten = message == nullptr;
    vn_free(message);
    shutdown(ends[0], SHUT_WR);

    CStringBuffer line;
    inject([&] { vn_strbufInit(&line, 4); });
    message = inject([&] { return vn_socketReadLine(ends[1], &line); });
    if (written) {
        CHECK(equal(message, message == nullptr ? nullptr : transferError("recv")));
        CHECK(message != nullptr || equal(line.data, "line one"));
    }
    vn_free(message);
    uint8_t buffer[64];
    unsigned length = sizeof buffer;
    message = inject([&] { return vn_socketReadBuffer(ends[1], &length, buffer); });
    if (written && bytesWritten) {
        CHECK(message != nullptr ? failed("recv") && length == sizeof buffer : length > 0);
    }
    vn_free(message);
    vn_strbufDestroy(&line, 1);
    close(ends[0]);
    close(ends[1]);
}

void resolveByName() {
    makeProcessLogger();
    const int listener = listenUntouched();
    int fd = -1;
    const int port = portOf(listener);
    char* message = inject([&] { return vn_socketConnect("localhost", port, &fd); });
    CHECK_MESSAGE(message, {{"malloc", "Failed to resolve hostname."},
                            {"gethostbyname_r", "Failed to resolve hostname."},
                            {"socket", "Failed to create network socket."},
                            {"connect", "Failed to connect to host."}});
    CHECK((fd == -1) ==
          (failed("malloc") || failed("gethostbyname_r") || failed("socket") || failed("connect")));
    if (fd >= 0) {
        close(fd);
    }
    close(listener);
}

// Every family works even if calls of the static initialisers failed.
void useAfterLoad() {
    const uint64_t number = vn_getCountedThreadId();
    CHECK(number > 0);
    char text[32];
    CHECK(equal(vn_g_fmt(text, 2.5e-300), "2.5e-300"));
    CHECK(equal(vn_g_fmt_fixed(text, sizeof text, 3, 0.0625), "0.062"));
    CHECK(vn_strtod("0x1.8p3", nullptr) == 12.0);
    CHECK(std::isinf(vn_strtod("1e400", nullptr)));
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    VN_TimestampSet_addTime(set, 1, 0.5);
    char* written = VN_TimestampSet_toString(set);
    CHECK(equal(written, "{1:0.500000}"));
    vn_free(written);
    VN_TimestampSet_dtor(set);
}

}  // namespace

std::vector<Scenario> runtimeScenarios() {
    const std::vector<std::string> connectLog = {"Failed to set SO_RCVTIMEO option: ",
                                                 "Failed to set SO_SNDTIMEO option: "};
    return {
        {"allocation", allocate, Memory::all, {"malloc", "realloc", "strdup", "gettimeofday"}},
        {.name = "outOfMemory",
         .run = runOutOfMemory,
         .memory = Memory::all,
         .mustFail = {"write", "open", "read"},
         .onStandardError = {"This process is out of memory... exiting",
                             "memory used: vm=", "This process is out"},
         .exitStatus = 1},
        {"failedCalls", failCall, Memory::all},
        {"locks",
         useLocks,
         Memory::all,
         {"pthread_mutex_init", "pthread_mutex_lock", "pthread_mutex_unlock", "sem_init",
          "pthread_mutex_destroy", "pthread_cond_init", "pthread_cond_signal", "sem_post",
          "pthread_cond_broadcast", "pthread_cond_destroy", "sem_trywait", "sem_wait",
          "sem_destroy"}},
        {"threads",
         startThreads,
         Memory::all,
         {"malloc", "pthread_attr_init", "pthread_attr_setdetachstate", "pthread_create",
          "pthread_join"},
         {},
         {},
         {},
         0,
         1},
        {"threadsOwn",
         useThreadsOwn,
         Memory::all,
         {"pthread_key_create", "pthread_setspecific", "pthread_key_delete", "nanosleep",
          "pthread_mutex_lock"}},
        {.name = "connections",
         .run = openConnections,
         .memory = Memory::all,
         .mustFail = {"socket", "setsockopt", "bind", "listen", "connect", "accept", "close"},
         .onStandardError = connectLog},
        {"talk", talk, Memory::all, {"send", "recv", "malloc"}},
        {"nameLookUp",
         resolveByName,
         Memory::own,
         {"malloc", "gethostbyname_r", "socket", "connect"}},
        {.name = "load",
         .run = useAfterLoad,
         .memory = Memory::all,
         .mustFail = {"pthread_key_create", "pthread_mutex_init", "malloc", "open",
                      "__register_atfork"},
         .onStandardError = {"System call pthread_key_delete failed",  // at unload
                             "System call pthread_mutex_init failed",
                             "System call pthread_setspecific failed",
                             "System call pthread_atfork failed"},
         .silent = {"pthread_mutex_init"},
         .mayKeep = 100,  // without its scratch area the number conversion keeps free lists
         .fromLoad = true},
    };
}

}  // namespace faults
