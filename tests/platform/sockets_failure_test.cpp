// Failures that no real connection causes, and the system calls that the library makes then. The
// linker redirects the library's calls to the wrappers here, which return the given results.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <vncommon/failure.h>
#include <vncommon/sockets.h>

#include "support/child_process.h"

namespace {

// Not a valid descriptor: the real calls would fail.
constexpr int pretended = 1 << 20;

struct Answer {
    ssize_t result;
    int error;
    char byte = 0;  // what a receive puts into the buffer
};

std::deque<Answer> answers;      // results of recv and send, in order
std::vector<size_t> asked;       // the lengths that recv and send were called with
std::vector<std::string> calls;  // the other calls, in order
bool setsockoptFails = false;    // with the error below
int setsockoptError = 0;
constexpr Answer success = {1, 0};

// The resolver, which needs a buffer of neededRoom bytes. Every connect() succeeds.
std::vector<size_t> rooms;  // the sizes of the buffers that it was given
size_t neededRoom = 0;
int resolverResult = 0;
sockaddr_in connectedTo;
size_t largestBlock = SIZE_MAX;  // that malloc allocates

ssize_t nextAnswer(size_t length, void* buffer) {
    asked.push_back(length);
    const Answer answer = answers.front();
    answers.pop_front();
    if (answer.error != 0) {
        errno = answer.error;
    }
    if (buffer != nullptr && answer.result > 0) {
        *static_cast<char*>(buffer) = answer.byte;
    }
    return answer.result;
}

}  // namespace

extern "C" {

ssize_t __wrap_recv(int fd, void* buffer, size_t length, int flags);
ssize_t __wrap_send(int fd, const void* data, size_t length, int flags);
int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size);
int __wrap_listen(int fd, int backlog);
int __wrap_accept(int fd, sockaddr* address, socklen_t* size);
int __wrap_connect(int fd, const sockaddr* address, socklen_t size);
int __wrap_gethostbyname_r(const char* name, hostent* entry, char* room, size_t size,
                           hostent** result, int* reason);
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);

int __wrap_connect(int, const sockaddr* address, socklen_t size) {
    EXPECT_EQ(size, sizeof connectedTo);
    memcpy(&connectedTo, address, sizeof connectedTo);
    return 0;
}

int __wrap_gethostbyname_r(const char*, hostent* entry, char* room, size_t size, hostent** result,
                           int* reason) {
    rooms.push_back(size);
    memset(room, 0, size);
    *result = nullptr;
    *reason = NETDB_INTERNAL;
    if (size < neededRoom) {
        return errno = ERANGE;
    }
    if (resolverResult != 0) {
        return resolverResult;
    }
    // The end of the buffer holds two addresses, then the list of them.
    auto** list = reinterpret_cast<char**>(room + size) - 3;
    auto* addresses = reinterpret_cast<in_addr*>(list) - 2;
    addresses[0].s_addr = inet_addr("192.0.2.7");
    addresses[1].s_addr = inet_addr("192.0.2.8");
    list[0] = reinterpret_cast<char*>(&addresses[0]);
    list[1] = reinterpret_cast<char*>(&addresses[1]);
    *entry = {.h_name = room,
              .h_aliases = list + 2,
              .h_addrtype = AF_INET,
              .h_length = sizeof(in_addr),
              .h_addr_list = list};
    *result = entry;
    return 0;
}

void* __wrap_malloc(size_t size) {
    return size > largestBlock ? nullptr : __real_malloc(size);
}

ssize_t __wrap_recv(int, void* buffer, size_t length, int flags) {
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(errno, 0) << "cleared before each receive";
    return nextAnswer(length, buffer);
}

ssize_t __wrap_send(int, const void*, size_t length, int flags) {
    EXPECT_EQ(flags, 0);
    return nextAnswer(length, nullptr);
}

int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
    timeval time{};
    EXPECT_EQ(size, sizeof time);
    memcpy(&time, value, sizeof time);
    EXPECT_EQ(level, SOL_SOCKET);
    EXPECT_EQ(time.tv_sec, 10);
    EXPECT_EQ(time.tv_usec, 0);
    calls.push_back("setsockopt " + std::to_string(fd) + " " + std::to_string(option));
    errno = setsockoptError;
    return setsockoptFails ? -1 : 0;
}

int __wrap_listen(int fd, int backlog) {
    calls.push_back("listen " + std::to_string(fd) + " " + std::to_string(backlog));
    return 0;
}

int __wrap_accept(int fd, sockaddr* address, socklen_t* size) {
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(size, nullptr);
    calls.push_back("accept " + std::to_string(fd));
    return pretended;
}
}

namespace {

// The message as a string, freed; "" for success.
std::string taken(char* message) {
    std::string text = message != nullptr ? message : "";
    vn_free(message);
    return text;
}

std::string readBuffer(std::deque<Answer> told, unsigned length = 5) {
    answers = std::move(told);
    asked.clear();
    errno = ENOTTY;  // left by an earlier call
    uint8_t buffer[5];
    const unsigned before = length;
    const std::string text = taken(vn_socketReadBuffer(pretended, &length, buffer));
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(length, text.empty() ? 1 : before);
    return text;
}

TEST(SocketReads, TryAnInterruptedEndAgain) {
    EXPECT_EQ(readBuffer({{0, EINTR}, {0, EINTR}, success}), "");
    EXPECT_EQ(asked, (std::vector<size_t>{5, 5, 5}));
    EXPECT_EQ(readBuffer({{0, EINTR}, {0, 0}}), "Network connection lost.");
    EXPECT_EQ(readBuffer({{0, EAGAIN}}), "Network connection lost.");
    EXPECT_EQ(readBuffer({{0, 0}}, 0), "Network connection lost.");
}

TEST(SocketReads, ReportAFailureAtOnce) {
    EXPECT_EQ(readBuffer({{-1, EINTR}}), strerror(EINTR));
    EXPECT_EQ(readBuffer({{0, EINTR}, {-1, EINTR}}), strerror(EINTR));
    EXPECT_EQ(readBuffer({{-1, ECONNRESET}}), strerror(ECONNRESET));
    EXPECT_EQ(readBuffer({{-1, 0}}), "Unknown error");
}

TEST(SocketReads, LinesFollowTheSameRules) {
    CStringBuffer line;
    vn_strbufInit(&line, 0);
    answers = {{1, 0, 'a'}, {0, EINTR}, {1, 0, '\r'}, {1, 0, 'b'}, {0, EINTR}, {1, 0, '\n'}};
    EXPECT_EQ(taken(vn_socketReadLine(pretended, &line)), "");
    EXPECT_STREQ(line.data, "ab");
    answers = {{1, 0, 'c'}, {-1, EINTR}};
    EXPECT_EQ(taken(vn_socketReadLine(pretended, &line)), strerror(EINTR));
    EXPECT_STREQ(line.data, "abc") << "what was read stays";
    answers = {{-1, 0}};
    EXPECT_EQ(taken(vn_socketReadLine(pretended, &line)), "Unknown error");
    vn_strbufDestroy(&line, 1);
}

std::string write(const char* text, std::deque<Answer> told) {
    answers = std::move(told);
    asked.clear();
    errno = 0;
    const std::string failure = taken(vn_socketWrite(pretended, text));
    EXPECT_TRUE(answers.empty());
    return failure;
}

TEST(SocketWrites, SendTheRemainder) {
    EXPECT_EQ(write("hello", {{2, 0}, {0, 0}, {2, 0}, {1, 0}}), "");
    EXPECT_EQ(asked, (std::vector<size_t>{5, 3, 3, 1}));
}

TEST(SocketWrites, SendAnEmptyTextOnce) {
    EXPECT_EQ(write("", {{0, 0}}), "");
    EXPECT_EQ(asked, (std::vector<size_t>{0}));
    EXPECT_EQ(write("", {{-1, EPIPE}}), strerror(EPIPE));
}

TEST(SocketWrites, ReportAFailureAtOnce) {
    EXPECT_EQ(write("hello", {{2, 0}, {-1, EINTR}}), strerror(EINTR));
    EXPECT_EQ(write("hello", {{-1, 0}}), "Unknown error");
}

// ---- Names of hosts --------------------------------------------------------------------------

// The message of vn_socketConnect, and the address that it connected to.
std::string connectTo(const char* host, size_t needed = 1, int result = 0) {
    rooms.clear();
    neededRoom = needed;
    resolverResult = result;
    connectedTo = {};
    int fd = -1;
    const std::string failure = taken(vn_socketConnect(host, 80, &fd));
    EXPECT_EQ(fd >= 0, failure.empty());
    if (fd >= 0) {
        close(fd);
    }
    return failure + inet_ntoa(connectedTo.sin_addr);
}

TEST(SocketNames, OfDottedHostsAreNotLookedUp) {
    EXPECT_EQ(connectTo("192.0.2.9"), "192.0.2.9");
    EXPECT_EQ(connectTo(nullptr), "127.0.0.1");
    EXPECT_TRUE(rooms.empty());
}

TEST(SocketNames, TakeAsMuchRoomAsTheirAnswersNeed) {
    for (const size_t needed : {1U, 1025U, 65537U, 300000U}) {
        EXPECT_EQ(connectTo("name", needed), "192.0.2.7") << needed;
        ASSERT_FALSE(rooms.empty());
        EXPECT_GE(rooms.back(), needed);
        EXPECT_LT(rooms.back(), std::max<size_t>(2 * needed, 2048));
        for (size_t i = 1; i < rooms.size(); ++i) {
            EXPECT_EQ(rooms[i], 2 * rooms[i - 1]);
        }
    }
}

TEST(SocketNames, ThatCannotBeResolvedAreReported) {
    const std::string failure = "Failed to resolve hostname.0.0.0.0";
    EXPECT_EQ(connectTo("name", 1, EAGAIN), failure);
    EXPECT_EQ(rooms.size(), 1U) << "only missing room is a reason to try again";
    largestBlock = 1 << 20;
    EXPECT_EQ(connectTo("name", SIZE_MAX), failure);
    largestBlock = 100;
    EXPECT_EQ(connectTo("name"), failure);
    EXPECT_TRUE(rooms.empty());
    largestBlock = SIZE_MAX;
}

VN_CHILD(accepts) {
    setsockoptFails = !arguments.empty();
    setsockoptError = setsockoptFails ? atoi(arguments[0].c_str()) : 0;
    int fd = -1;
    const std::string message = taken(vn_socketAccept(77, &fd));
    for (const std::string& call : calls) {
        puts(call.c_str());
    }
    return message.empty() && fd == pretended ? 9 : 1;
}

ChildResult accept(ChildArguments setsockoptErrors = {}) {
    return runChild("accepts",
                    {.environment = {{"LC_ALL", "C"}}, .arguments = std::move(setsockoptErrors)});
}

TEST(SocketAccept, ListensAcceptsAndSetsBothTimeOuts) {
    const ChildResult child = accept();
    EXPECT_EQ(child.exitStatus, 9);
    const std::string timeOut = "setsockopt " + std::to_string(pretended) + " ";
    EXPECT_EQ(child.out, "listen 77 20\naccept 77\n" + timeOut + std::to_string(SO_RCVTIMEO) +
                             "\n" + timeOut + std::to_string(SO_SNDTIMEO) + "\n");
    EXPECT_EQ(child.err, "");
}

// The lines of the log without the times and thread numbers at their start.
std::string withoutBeginnings(const std::string& log) {
    std::istringstream lines(log);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string date, time, level, thread, dash, message;
        words >> date >> time >> level >> thread >> dash;
        std::getline(words.ignore(), message);
        result.append(level).append(": ").append(message).append("\n");
    }
    return result;
}

TEST(SocketAccept, OnlyWarnsOfATimeOutThatCannotBeSet) {
    for (const auto& [error, text] :
         {std::pair("22", "Invalid argument"), {"0", "Unknown error"}}) {
        const ChildResult child = accept({error});
        EXPECT_EQ(child.exitStatus, 9);
        EXPECT_EQ(withoutBeginnings(child.err),
                  std::string("WARN: Failed to set SO_RCVTIMEO option: ") + text +
                      "\nWARN: Failed to set SO_SNDTIMEO option: " + text + "\n");
    }
}

}  // namespace
