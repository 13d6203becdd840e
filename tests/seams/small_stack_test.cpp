// Threads with the smallest stack that the system allows, and the stack use of the functions that
// need more.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <random>
#include <string>
#include <vector>

#include <vncommon/buffers.h>
#include <vncommon/event_reader.h>
#include <vncommon/failure.h>
#include <vncommon/numbers.h>
#include <vncommon/sockets.h>
#include <vncommon/threads.h>

#include "support/child_process.h"
#include "support/thread_stack.h"

namespace {

constexpr size_t smallest = 16384;  // the least that pthread_attr_setstacksize accepts

[[gnu::format(printf, 2, 3)]] void appendVA(CStringBuffer* buffer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vn_strbufAppendVA(buffer, format, arguments);
    va_end(arguments);
}

VN_CHILD(appendArgumentList) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    const std::string text(9990, 'x');
    ThreadStack(smallest).run([&] {
        appendVA(&buffer, "%d-", 42);
        appendVA(&buffer, "%s", text.c_str());
    });
    const bool right = buffer.data == "42-" + text;
    vn_strbufDestroy(&buffer, 1);
    return right ? 9 : 1;
}

TEST(SmallestStack, IsEnoughForAnArgumentList) {
    const ChildResult child = runChild("appendArgumentList");
    EXPECT_EQ(child.exitStatus, 9) << child.signal << child.err;
}

int listen() {
    int listener = -1;
    vn_free(vn_createListeningSocket(0, &listener));
    return listener;
}

// Bound, so that no other program listens on its port.
int onlyBind() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    return bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0 ? fd : -1;
}

int portOf(int listener) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// Connects to a listener, and to a port without one.
VN_CHILD(connectByDottedHost) {
    std::string messages;
    const auto connectTo = [&messages](int port) {
        int fd = -1;
        char* message = vn_socketConnect("127.0.0.1", port, &fd);
        messages += message != nullptr ? message : "connected\n";
        vn_free(message);
        vn_socketClose(fd);
    };
    for (const int other : {listen(), onlyBind()}) {
        ThreadStack(smallest).run([&connectTo, port = portOf(other)] { connectTo(port); });
        vn_socketClose(other);
    }
    return messages == "connected\nFailed to connect to host." ? 9 : 1;
}

TEST(SmallestStack, IsEnoughToConnect) {
    const ChildResult child = runChild("connectByDottedHost");
    EXPECT_EQ(child.exitStatus, 9) << child.signal << child.err;
}

VN_CHILD(reportFailures) {
    ThreadStack(smallest).run([survived = arguments[0] == "survived"] {
        errno = ENOENT;
        if (survived) {
            vn_ThreadLocal never = PTHREAD_KEYS_MAX;
            vn_ThreadLocal_destroy(&never);
        } else {
            vn_checkError(EINVAL, "reading");
        }
    });
    return 9;
}

TEST(SmallestStack, IsEnoughToReportFailures) {
    const std::string texts =
        "(strerror(errno)=No such file or directory)\n(strerror(errcode)=Invalid argument)\n";
    const ChildResult survived = runChild("reportFailures", {.arguments = {"survived"}});
    EXPECT_EQ(survived.exitStatus, 9) << survived.signal;
    EXPECT_EQ(survived.err, "Fatal error: System call pthread_key_delete failed\n" + texts);
    const ChildResult fatal = runChild("reportFailures", {.arguments = {"fatal"}});
    EXPECT_EQ(fatal.signal, SIGABRT);
    EXPECT_EQ(fatal.err, "Fatal error: Call failed with code 22: reading\n" + texts);
}

// ---- The stack use that the headers of the conversions and of the event reader document -------

constexpr size_t conversionStack = 40 * 1024;

template <class Body>
size_t stackOf(Body body) {
    ThreadStack stack(4 * conversionStack);
    stack.run(body);
    return stack.used();
}

// Texts for every path of the reader.
std::vector<std::string> numberTexts() {
    std::vector<std::string> texts = {"1",
                                      "1.5",
                                      "0x1.8p3",
                                      "0x1.fffffffffffff8p-1074",
                                      "nan(123)",
                                      "-inf",
                                      "1e400",
                                      "1e-400",
                                      "4.9e-324",
                                      "2.2250738585072011e-308",
                                      "x",
                                      "1." + std::string(20000, '3'),
                                      std::string(60000, '7'),
                                      "0." + std::string(40000, '0') + "1e40000",
                                      "0x" + std::string(50000, 'f') + ".8p-3",
                                      "1" + std::string(800, '0') + "e-800"};
    std::mt19937_64 random(20240801);
    for (int i = 0; i < 300; ++i) {
        std::string text;
        const auto digits = static_cast<int>(i % 100 == 0 ? 17000 : 1 + random() % 900);
        for (int count = 0; count < digits; ++count) {
            text += static_cast<char>('0' + random() % 10);
        }
        const auto exponent = static_cast<int>(random() % 800) - 400 - digits;
        texts.push_back(text + "e" + std::to_string(exponent));
    }
    return texts;
}

TEST(ConversionStack, IsEnoughForTheReader) {
    const size_t nothing = stackOf([] {});
    size_t most = 0;
    for (const std::string& text : numberTexts()) {
        const size_t used = stackOf([&text] { vn_strtod(text.c_str(), nullptr); });
        EXPECT_LE(used, nothing + conversionStack) << text.substr(0, 30);
        most = std::max(most, used);
    }
    EXPECT_GE(most, nothing + conversionStack / 2) << "no text took the general way";
}

TEST(ConversionStack, IsEnoughForTheFormatters) {
    const size_t nothing = stackOf([] {});
    std::mt19937_64 random(20240802);
    std::vector<double> values = {0, -0.0, 0.1, NAN, -NAN, INFINITY, -INFINITY, 5e-324, DBL_MAX};
    for (int i = 0; i < 300; ++i) {
        values.push_back(std::bit_cast<double>(random()));
    }
    size_t most = 0;
    for (const double value : values) {
        const size_t used = stackOf([value, precision = static_cast<int>(random() % 400) - 300] {
            char text[512];
            vn_g_fmt(text, value);
            (void)vn_g_fmt_fixed(text, sizeof text, precision, value);
            (void)vn_g_fmt_scientific(text, sizeof text, precision, value);
        });
        EXPECT_LE(used, nothing + conversionStack) << value;
        most = std::max(most, used);
    }
    EXPECT_GE(most, nothing + conversionStack / 2) << "no value took the general way";
}

// However deep the brackets: 200 levels are more than the reader keeps in its frame.
TEST(ConversionStack, IsEnoughForEventText) {
    const size_t nothing = stackOf([] {});
    std::string deep = "5e-324";
    for (int i = 0; i < 200; ++i) {
        deep = "[" + deep + "]";
    }
    size_t most = 0;
    for (const std::string text : {"[1,.5,word]", "E(text,-,-Infinity,NaN,4e-400,+15E-1,\"\\\"\")",
                                   "[\"\\\",5]", deep.c_str()}) {
        const size_t used = stackOf([&text] {
            VN_EventReader reader;
            VN_EventReader_init(&reader);
            reader.maxDepth = 1000;
            VN_EventWriter* writer = VN_EventReader_read(&reader, text.data(), text.size());
            EXPECT_EQ(reader.error, nullptr);
            VN_EventWriter_dtor(writer);
        });
        EXPECT_LE(used, nothing + conversionStack) << text.substr(0, 30);
        most = std::max(most, used);
    }
    EXPECT_GE(most, nothing + conversionStack / 2) << "no word took the general way";
}

}  // namespace
