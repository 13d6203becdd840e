// Real connections over loopback: lines, buffers, peers that misbehave, time-outs, exact texts.
#include <vncommon/sockets.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include <vncommon/failure.h>
#include <vncommon/log.h>

#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The message as a string, freed; "" for success.
std::string taken(char* message) {
    std::string text = message != nullptr ? message : "";
    vn_free(message);
    return text;
}

int portOf(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        count += isOpen(fd) ? 1 : 0;
    }
    return count;
}

struct Listener {
    Listener() { EXPECT_EQ(taken(vn_createListeningSocket(0, &fd)), ""); }
    ~Listener() { vn_socketClose(fd); }
    int fd = -1;
};

// A port that nobody listens on. It stays bound, so that no other program takes it meanwhile.
struct QuietPort {
    QuietPort() {
        sockaddr_in any{};
        any.sin_family = AF_INET;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
    }
    ~QuietPort() { close(fd); }
    int fd = socket(AF_INET, SOCK_STREAM, 0);
};

// A connection over loopback: ours is the accepted end, peer the connecting one.
struct Connection {
    Connection() {
        EXPECT_EQ(taken(vn_socketConnect(nullptr, portOf(listener.fd), &peer)), "");
        EXPECT_EQ(taken(vn_socketAccept(listener.fd, &ours)), "");
    }
    ~Connection() {
        if (ours >= 0) {
            vn_socketClose(ours);
        }
        if (peer >= 0) {
            vn_socketClose(peer);
        }
    }
    void closePeer() {
        vn_socketClose(peer);
        peer = -1;
    }
    Listener listener;
    int ours = -1;
    int peer = -1;
};

struct Line : CStringBuffer {
    Line() { vn_strbufInit(this, 0); }
    ~Line() { vn_strbufDestroy(this, 1); }
    std::string text() const { return std::string(data, size); }
};

void sendRaw(int fd, const std::string& bytes) {
    ASSERT_EQ(send(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
}

TEST(Sockets, InitGivesZero) {
    EXPECT_EQ(vn_socketInit(), 0);
    vn_socketCleanup();
}

TEST(Sockets, ListenerIsOnAllAddressesAndReusable) {
    Listener listener;
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(getsockname(listener.fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
    int reuse = 0;
    size = sizeof reuse;
    ASSERT_EQ(getsockopt(listener.fd, SOL_SOCKET, SO_REUSEADDR, &reuse, &size), 0);
    EXPECT_EQ(reuse, 1);
}

// Linux: for a listener, tcpi_sacked is its backlog.
TEST(Sockets, ListenerHasABacklogOfTwenty) {
    Listener listener;
    tcp_info info{};
    socklen_t size = sizeof info;
    ASSERT_EQ(getsockopt(listener.fd, IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    EXPECT_EQ(info.tcpi_sacked, 20U);
}

TEST(Sockets, ConnectsByNullDottedAddressAndName) {
    Listener listener;
    for (const char* host : {static_cast<const char*>(nullptr), "127.0.0.1", "localhost"}) {
        int peer = -1;
        int ours = -1;
        ASSERT_EQ(taken(vn_socketConnect(host, portOf(listener.fd), &peer)), "");
        ASSERT_EQ(taken(vn_socketAccept(listener.fd, &ours)), "");
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ASSERT_EQ(getpeername(peer, reinterpret_cast<sockaddr*>(&address), &size), 0);
        EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
        EXPECT_EQ(vn_socketClose(peer), 0);
        EXPECT_EQ(vn_socketClose(ours), 0);
    }
}

TEST(Sockets, CloseGivesTheSystemsResult) {
    EXPECT_EQ(vn_socketClose(-1), -1);
}

TEST(Sockets, UnknownNameIsNotResolved) {
    int fd = -7;
    EXPECT_EQ(taken(vn_socketConnect("no such host name", 80, &fd)), "Failed to resolve hostname.");
    EXPECT_EQ(fd, -7);
}

// Replaces the hosts file for this process only; returns false if the system does not allow it.
bool replaceHostsFile(const std::string& path) {
    const bool apart = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    return apart && mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount(path.c_str(), "/etc/hosts", "", MS_BIND, nullptr) == 0;
}

VN_CHILD(connectAfterLongLine) {
    if (!replaceHostsFile(arguments[0])) {
        return 77;
    }
    Listener listener;
    int peer = -1;
    const std::string failure =
        taken(vn_socketConnect("host-after-long-line", portOf(listener.fd), &peer));
    puts(failure.c_str());
    return peer >= 0 ? 9 : 1;
}

TEST(Sockets, NameAfterALongLineOfTheHostsFileIsResolved) {
    std::string aliases;
    while (aliases.size() < 200000) {
        aliases += " alias" + std::to_string(aliases.size());
    }
    const TemporaryFolder folder;
    const std::string hosts =
        folder.write("hosts", "192.0.2.1 long" + aliases + "\n127.0.0.1 host-after-long-line\n");
    const ChildResult child = runChild("connectAfterLongLine", {.arguments = {hosts}});
    if (child.exitStatus == 77) {
        GTEST_SKIP() << "the system does not allow a mount namespace";
    }
    EXPECT_EQ(child.exitStatus, 9) << child.out << child.err;
}

TEST(Sockets, RefusedConnectionClosesItsSocket) {
    const QuietPort quiet;
    const int before = openDescriptors();
    int fd = -7;
    EXPECT_EQ(taken(vn_socketConnect("127.0.0.1", portOf(quiet.fd), &fd)),
              "Failed to connect to host.");
    EXPECT_EQ(fd, -7);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Sockets, TakenPortCannotBeBound) {
    Listener listener;
    const int before = openDescriptors();
    int fd = -7;
    EXPECT_EQ(taken(vn_createListeningSocket(portOf(listener.fd), &fd)),
              "Failed to bind listening socket.");
    EXPECT_EQ(fd, -7);
    EXPECT_EQ(openDescriptors(), before);
}

VN_CHILD(refusedIsLoggedAtDebug) {
    VN_LogSetLevel(8);
    int fd = -1;
    return taken(vn_socketConnect("127.0.0.1", atoi(arguments[0].c_str()), &fd)) ==
                   "Failed to connect to host."
               ? 0
               : 1;
}

TEST(Sockets, SystemsReasonOfARefusedConnectionIsLogged) {
    const QuietPort quiet;
    const ChildResult child =
        runChild("refusedIsLoggedAtDebug", {.arguments = {std::to_string(portOf(quiet.fd))}});
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_NE(child.err.find("DEBUG ["), std::string::npos) << child.err;
    EXPECT_NE(child.err.find("] - connect: Connection refused\n"), std::string::npos) << child.err;
}

VN_CHILD(noDescriptors) {
    int fd = -1;
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string resolving = taken(vn_socketConnect("no such host name", 80, &fd));
    const std::string connecting = taken(vn_socketConnect("127.0.0.1", 80, &fd));
    const std::string listening = taken(vn_createListeningSocket(0, &fd));
    setrlimit(RLIMIT_NOFILE, &before);  // the leak checker opens files at exit
    puts(resolving.c_str());
    puts(connecting.c_str());
    puts(listening.c_str());
    return 0;
}

// The host is resolved first.
TEST(Sockets, FailureToCreateASocketIsReported) {
    EXPECT_EQ(runChild("noDescriptors").out,
              "Failed to resolve hostname.\nFailed to create network socket.\n"
              "Failed to create listening socket.\n");
}

TEST(Sockets, AcceptClosesWhatCannotListen) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    int fd = -7;
    EXPECT_EQ(taken(vn_socketAccept(ends[0], &fd)), "Failed to listen on listening socket.");
    EXPECT_EQ(fd, -7);
    EXPECT_FALSE(isOpen(ends[0]));
    close(ends[1]);
}

TEST(Sockets, FailedAcceptKeepsTheListener) {
    Listener listener;
    fcntl(listener.fd, F_SETFL, O_NONBLOCK);
    int fd = -7;
    EXPECT_EQ(taken(vn_socketAccept(listener.fd, &fd)), "The accept() call failed");
    EXPECT_EQ(fd, -7);
    EXPECT_TRUE(isOpen(listener.fd));
}

TEST(Sockets, AcceptedConnectionsTimeOutAfterTenSeconds) {
    Connection connection;
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        timeval time{};
        socklen_t size = sizeof time;
        ASSERT_EQ(getsockopt(connection.ours, SOL_SOCKET, option, &time, &size), 0);
        EXPECT_EQ(time.tv_sec, 10);
        EXPECT_EQ(time.tv_usec, 0);
        ASSERT_EQ(getsockopt(connection.peer, SOL_SOCKET, option, &time, &size), 0);
        EXPECT_EQ(time.tv_sec, 0) << "a connecting socket keeps the system's default";
    }
}

TEST(Sockets, SilentPeerEndsARead) {
    Connection connection;
    const auto start = Clock::now();
    uint8_t byte;
    unsigned length = 1;
    EXPECT_EQ(taken(vn_socketReadBuffer(connection.ours, &length, &byte)), strerror(EAGAIN));
    EXPECT_GT(secondsSince(start), 9);  // the option itself is compared above
}

// The test shortens the time-out. It elapses twice: the first send() has moved some bytes and
// returns their number, the second one fails.
TEST(Sockets, PeerThatStopsReadingEndsAWrite) {
    Connection connection;
    const timeval shorter = {0, 100000};
    setsockopt(connection.ours, SOL_SOCKET, SO_SNDTIMEO, &shorter, sizeof shorter);
    const std::string megabytes(64 << 20, 'x');
    EXPECT_EQ(taken(vn_socketWrite(connection.ours, megabytes.c_str())), strerror(EAGAIN));
}

TEST(Sockets, ReadsLinesAndDropsCarriageReturns) {
    Connection connection;
    sendRaw(connection.peer, "ab\r\ncd\n\r\r\n\nx\ry\n");
    Line line;
    vn_strbufAppendString(&line, ">");
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(line.text(), ">ab");
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(line.text(), ">abcd");
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(line.text(), ">abcd");
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(line.text(), ">abcdxy");
}

TEST(Sockets, LineKeepsEveryOtherByte) {
    Connection connection;
    std::string bytes;
    for (int i = 1; i < 256; ++i) {
        if (i != '\r' && i != '\n') {
            bytes += static_cast<char>(i);
        }
    }
    sendRaw(connection.peer, bytes + "\n");
    Line line;
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(line.text(), bytes);
}

TEST(Sockets, LineThatComesByteByByte) {
    Connection connection;
    std::thread peer([&] {
        for (const char c : std::string("slow line\n")) {
            sendRaw(connection.peer, std::string(1, c));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    Line line;
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "");
    EXPECT_EQ(line.text(), "slow line");
    peer.join();
}

TEST(Sockets, PeerThatClosesInMidLine) {
    Connection connection;
    sendRaw(connection.peer, "half a li");
    connection.closePeer();
    Line line;
    EXPECT_EQ(taken(vn_socketReadLine(connection.ours, &line)), "Network connection lost.");
    EXPECT_EQ(line.text(), "half a li");
    uint8_t buffer[10];
    unsigned length = sizeof buffer;
    EXPECT_EQ(taken(vn_socketReadBuffer(connection.ours, &length, buffer)),
              "Network connection lost.");
    EXPECT_EQ(length, sizeof buffer) << "the length is written on success only";
}

TEST(Sockets, PeerThatResets) {
    Connection connection;
    const linger abort = {1, 0};
    setsockopt(connection.peer, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    connection.closePeer();
    uint8_t buffer[10];
    unsigned length = sizeof buffer;
    EXPECT_EQ(taken(vn_socketReadBuffer(connection.ours, &length, buffer)), strerror(ECONNRESET));
}

TEST(Sockets, ReadBufferReceivesOnce) {
    Connection connection;
    sendRaw(connection.peer, "hello");
    uint8_t buffer[100];
    unsigned length = sizeof buffer;
    EXPECT_EQ(taken(vn_socketReadBuffer(connection.ours, &length, buffer)), "");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), length), "hello");
    sendRaw(connection.peer, "hello");
    length = 2;
    EXPECT_EQ(taken(vn_socketReadBuffer(connection.ours, &length, buffer)), "");
    EXPECT_EQ(length, 2u);
}

TEST(Sockets, BadDescriptorGivesTheSystemsMessage) {
    uint8_t byte;
    unsigned length = 1;
    EXPECT_EQ(taken(vn_socketReadBuffer(-1, &length, &byte)), strerror(EBADF));
    EXPECT_EQ(taken(vn_socketWrite(-1, "x")), strerror(EBADF));
    Line line;
    EXPECT_EQ(taken(vn_socketReadLine(-1, &line)), strerror(EBADF));
}

void interrupt(int) {}

// A signal without SA_RESTART ends a blocked receive: reported, not retried.
TEST(Sockets, InterruptedReadIsReported) {
    struct sigaction action {};
    action.sa_handler = interrupt;
    struct sigaction previous;
    sigaction(SIGUSR1, &action, &previous);
    Connection connection;
    const pthread_t reader = pthread_self();
    std::atomic<bool> done{false};
    std::thread interrupter([&] {
        while (!done) {  // the first signals may come before the read
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            pthread_kill(reader, SIGUSR1);
        }
    });
    uint8_t byte;
    unsigned length = 1;
    EXPECT_EQ(taken(vn_socketReadBuffer(connection.ours, &length, &byte)), strerror(EINTR));
    done = true;
    interrupter.join();
    sigaction(SIGUSR1, &previous, nullptr);
}

TEST(Sockets, WritesEverythingInPieces) {
    Connection connection;
    const std::string sent(20 << 20, 'z');
    std::string received;
    std::thread peer([&] {
        std::vector<char> buffer(100000);
        while (received.size() < sent.size() + 3) {
            const ssize_t count = recv(connection.peer, buffer.data(), buffer.size(), 0);
            ASSERT_GT(count, 0);
            received.append(buffer.data(), static_cast<size_t>(count));
        }
    });
    EXPECT_EQ(taken(vn_socketWrite(connection.ours, sent.c_str())), "");
    EXPECT_EQ(taken(vn_socketWrite(connection.ours, "")), "");
    const uint8_t bytes[] = {0, 1, 255};
    EXPECT_EQ(taken(vn_socketWriteBuffer(connection.ours, sizeof bytes, bytes)), "");
    peer.join();
    EXPECT_EQ(received, sent + std::string("\0\1\377", 3));
}

VN_CHILD(writesAfterPeerClosed) {
    if (arguments[0] == "ignored") {
        signal(SIGPIPE, SIG_IGN);
    }
    Connection connection;
    connection.closePeer();
    std::string failure;
    while (failure.empty()) {  // until the answer to the first byte has come
        failure = taken(vn_socketWrite(connection.ours, "x"));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    puts(failure.c_str());
    return 0;
}

TEST(Sockets, BrokenPipeIsASignalUnlessIgnored) {
    EXPECT_EQ(runChild("writesAfterPeerClosed", {.arguments = {"default"}}).signal, SIGPIPE);
    const std::string text = runChild("writesAfterPeerClosed", {.arguments = {"ignored"}}).out;
    EXPECT_TRUE(text == "Broken pipe\n" || text == "Connection reset by peer\n") << text;
}

}  // namespace
