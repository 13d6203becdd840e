// Unit tests of the event server's parts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "control_characters.h"
#include "latency.h"
#include "line_splitter.h"
#include "listener.h"
#include "package_reader.h"
#include "record_line.h"
#include "record_parser.h"
#include "support/temporary_folder.h"
#include "task_queue.h"

namespace {

constexpr size_t limit = 10;

// Returns the splitter's results for a stream that arrives in pieces of the given size.
std::vector<std::string> split(const std::string& stream, size_t piece) {
    LineSplitter splitter(limit);
    std::vector<std::string> told;
    std::string line;
    for (size_t at = 0; at < stream.size(); at += piece) {
        const std::string part = stream.substr(at, piece);
        splitter.add(reinterpret_cast<const uint8_t*>(part.data()), part.size());
        for (auto result = splitter.next(line); result != LineSplitter::Result::More;
             result = splitter.next(line)) {
            told.push_back(result == LineSplitter::Result::Line ? line : "TOO LONG");
        }
    }
    if (splitter.insideLine()) {
        told.push_back("HALF");
    }
    return told;
}

std::vector<std::string> expectedSplit(const std::string& stream) {
    std::vector<std::string> told;
    size_t begin = 0;
    while (begin < stream.size()) {
        const size_t end = std::min(stream.find('\n', begin), stream.size());
        std::string line = stream.substr(begin, end - begin);
        if (line.size() >= limit) {
            told.push_back("TOO LONG");
        } else if (end == stream.size()) {
            told.push_back("HALF");
        } else {
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            told.push_back(line);
        }
        begin = end + 1;
    }
    return told;
}

TEST(LineSplitter, ResultsDoNotDependOnThePieces) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; ++round) {
        std::string stream;
        for (size_t i = random() % 60; i > 0; --i) {
            stream += "aab\n\r"[random() % (round % 2 == 0 ? 4 : 5)];
            stream += random() % 20 == 0 ? std::string(random() % 30, 'x') : "";
        }
        for (const size_t piece : {size_t{1}, size_t{3}, size_t{11}, size_t{1000}}) {
            EXPECT_EQ(split(stream, piece), expectedSplit(stream)) << stream << piece;
        }
    }
}

TEST(Histogram, PercentilesAreThoseOfTheSortedDurations) {
    std::mt19937_64 random(2);
    std::lognormal_distribution<double> durations(6.0, 2.0);
    Histogram histogram;
    Histogram firstHalf;
    std::vector<uint64_t> sorted;
    for (int i = 0; i < 20001; ++i) {
        const auto microseconds = static_cast<uint64_t>(durations(random));
        sorted.push_back(microseconds);
        (i < 10000 ? firstHalf : histogram).add(static_cast<double>(microseconds) * 1e-6);
    }
    histogram.add(firstHalf);
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(histogram.count(), sorted.size());
    EXPECT_EQ(histogram.maximum(), sorted.back());
    for (const double fraction : {0.0, 0.01, 0.5, 0.9, 0.99, 0.999, 1.0}) {
        const double rank = std::ceil(fraction * static_cast<double>(sorted.size()));
        const uint64_t exact = sorted[static_cast<size_t>(std::max(1.0, rank)) - 1];
        EXPECT_GE(histogram.percentile(fraction), exact);
        EXPECT_LE(histogram.percentile(fraction), exact + exact / 32) << fraction;
    }
}

TEST(Histogram, TakesAnything) {
    Histogram histogram;
    EXPECT_EQ(histogram.percentile(0.5), 0u);
    EXPECT_TRUE(histogram.bars().empty());
    histogram.add(-1.0);
    EXPECT_EQ(histogram.percentile(1.0), 0u);
    histogram.add(1e9);
    EXPECT_EQ(histogram.count(), 2u);
    EXPECT_EQ(histogram.maximum(), 1000000000000000u);
}

TEST(Histogram, EveryDurationIsInTheBarOfItsPowerOfTwo) {
    Histogram histogram;
    for (const double microseconds : {0.0, 1.0, 63.0, 64.0, 127.0, 128.0, 1023.0, 1024.0}) {
        histogram.add(microseconds * 1e-6);
    }
    const std::vector<std::string> bars = histogram.bars();
    ASSERT_EQ(bars.size(), 12u);
    const std::vector<uint64_t> counts = {1, 1, 0, 0, 0, 0, 1, 2, 1, 0, 1, 1};
    for (size_t i = 0; i < bars.size(); ++i) {
        EXPECT_EQ(std::stoul(bars[i]), i == 0 ? 0 : 1ul << (i - 1));
        EXPECT_EQ(std::stoul(bars[i].substr(bars[i].rfind('|') + 1)), counts[i]) << bars[i];
    }
}

TEST(StageLatencies, AreTheTimesBetweenTheStamps) {
    VN_TimestampSet* stamps = VN_TimestampSet_ctor();
    for (uint64_t stage = Received; stage <= Answered; ++stage) {
        const auto order = static_cast<double>(stage);
        stamps->functions->addTime(stamps, stage, 1000.0 + order * (order + 1.0) * 5e-6);
    }
    StageLatencies latencies;
    latencies.add(stamps);
    EXPECT_EQ(stamps->functions->getSize(stamps), 0u);
    VN_TimestampSet_dtor(stamps);
    for (uint64_t stage = Admitted; stage <= Answered; ++stage) {
        EXPECT_EQ(latencies.of(stage).maximum(), stage * 10) << stageNames[stage];
    }
    EXPECT_EQ(latencies.of(Received).maximum(), 280u);
}

TEST(TaskQueue, PutWaitsWhileItIsFull) {
    vn_threadInit();
    TaskQueue queue(2);
    static Request* const marks = reinterpret_cast<Request*>(4096);
    const auto produce = [](void* argument) -> void* {
        for (uintptr_t i = 0; i < 1000; ++i) {
            auto* mark = reinterpret_cast<Request*>(reinterpret_cast<uintptr_t>(marks) + i);
            static_cast<TaskQueue*>(argument)->put({nullptr, mark, nullptr});
        }
        return nullptr;
    };
    const vn_ThreadId producer = vn_createThread(produce, &queue, false);
    for (uintptr_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(reinterpret_cast<uintptr_t>(queue.take().request),
                  reinterpret_cast<uintptr_t>(marks) + i);
    }
    vn_joinThread(producer);
}

TEST(Records, ComeThroughTheLineAsTheyWere) {
    const TemporaryFolder folder;
    const std::string file = folder.write("status",
                                          "Package: a\nInstalled-Size: 512\nTab: x\ty\\z\n"
                                          "Description: one\n two\n .\n\nPackage: b\n");
    PackageReader reader;
    PackageRecord stanza;
    ASSERT_TRUE(reader.open(file));
    ASSERT_TRUE(reader.next(stanza));
    std::string line = recordLine(stanza);
    EXPECT_EQ(line, "name=a\tsize=512\tsize_mib=.5\tTab=x\\ty\\\\z\tdescription=one\\ntwo\\n.");
    RecordParser parser;
    Record record;
    std::string error;
    ASSERT_TRUE(parser.parse(line, record, error)) << error;
    EXPECT_STREQ(record.name, "a");
    EXPECT_EQ(record.size, 512);
    EXPECT_EQ(record.sizeMib, 0.5);
    ASSERT_EQ(record.others.size(), 1u);
    EXPECT_STREQ(record.others[0].second, "x\ty\\z");
    EXPECT_STREQ(record.description, "one\ntwo\n.");
    ASSERT_TRUE(reader.next(stanza));
    EXPECT_EQ(recordLine(stanza), "name=b");
    EXPECT_FALSE(reader.next(stanza));
    EXPECT_EQ(reader.error(), "");
}

TEST(ControlCharacters, AreEscapedAndNothingElseIs) {
    EXPECT_EQ(withoutControls(""), "");
    EXPECT_EQ(withoutControls("a\nb\rc\td"), "a\\nb\\rc\\td");
    EXPECT_EQ(withoutControls(std::string(1, '\0')), "\\u0000");
    for (unsigned code = 1; code < 0x100; ++code) {
        const std::string text = code < 0x80 ? std::string(1, static_cast<char>(code))
                                             : std::string{static_cast<char>(0xC0 | code >> 6),
                                                           static_cast<char>(0x80 | (code & 0x3F))};
        const bool control = code < 0x20 || (code >= 0x7F && code < 0xA0);
        const std::string escaped = withoutControls("<" + text + ">");
        EXPECT_EQ(escaped == "<" + text + ">", !control) << code;
        EXPECT_TRUE(!control || (escaped[0] == '<' && escaped[1] == '\\' && escaped.back() == '>'));
        EXPECT_EQ(withoutControls(escaped), escaped);
    }
    for (const char* plain : {"\u00a0", "\u20ac", "\U0001f600", "\u0400\u0480", "\xC2"}) {
        EXPECT_EQ(withoutControls(plain), plain);
    }
}

int intOption(int fd, int level, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, option, &value, &length), 0);
    return value;
}

TEST(Listener, GivesConnectionsThatNoticeWhenTheClientIsGone) {
    Listener listener;
    std::string error;
    ASSERT_TRUE(listener.open(0, error)) << error;
    EXPECT_EQ(listener.accept(error), -1);  // does not wait without a client
    EXPECT_EQ(error, "");
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(listener.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const int fd = listener.accept(error);
    ASSERT_GE(fd, 0) << error;
    EXPECT_EQ(intOption(fd, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(intOption(fd, IPPROTO_TCP, TCP_KEEPIDLE), 60);
    EXPECT_EQ(intOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT), 30000);
    EXPECT_EQ(intOption(fd, IPPROTO_TCP, TCP_NODELAY), 1);
    timeval timeOut = {};
    socklen_t length = sizeof timeOut;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeOut, &length), 0);
    EXPECT_EQ(timeOut.tv_sec, 10);
    close(fd);
    close(client);
}

// Random texts of the characters that are special to the parser: nothing may crash, and the
// sanitizers check every access.
TEST(RecordParser, SurvivesAnyLine) {
    const std::string alphabet =
        "name=size=depends=essential=,(\\nt\t\t= 019.e-x\xc3\xa9\xff" + std::string(1, '\0');
    std::mt19937 random(3);
    RecordParser parser;
    Record record;
    std::string error;
    for (int round = 0; round < 20000; ++round) {
        std::string line = round % 2 == 0 ? "name=x\t" : "";
        for (size_t i = random() % 40; i > 0; --i) {
            line += alphabet[random() % alphabet.size()];
        }
        error.clear();
        const bool good = parser.parse(line, record, error);
        EXPECT_EQ(good, error.empty());
        EXPECT_TRUE(!good || record.name != nullptr);
    }
}

}  // namespace
