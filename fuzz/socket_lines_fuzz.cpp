// Lines from a socket, compared with a simple splitter. An input is the data that the peer sends
// before it closes the connection.
#include <sys/socket.h>
#include <vncommon/failure.h>
#include <vncommon/sockets.h>

#include <algorithm>
#include <vector>

#include "fuzz/fuzz.h"

namespace {

constexpr size_t mostSent = 1024;  // bounded because every byte costs a system call
constexpr const char* lost = "Network connection lost.";

// The lines without their line ends; the last one is the text after the last line feed.
std::vector<std::string> split(const std::string& sent) {
    std::vector<std::string> lines(1);
    for (const char c : sent) {
        if (c == '\n') {
            lines.emplace_back();
        } else if (c != '\r') {
            lines.back() += c;
        }
    }
    return lines;
}

void readLines(int fd, const std::vector<std::string>& expected) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    for (size_t i = 0; i < expected.size(); ++i) {
        const fuzz::Taken message(vn_socketReadLine(fd, &buffer));
        const bool isLast = i + 1 == expected.size();
        FUZZ_REQUIRE(isLast ? message.is(lost) : message.isNull());
        FUZZ_REQUIRE(buffer.size == expected[i].size());
        FUZZ_REQUIRE(strcmp(buffer.data, expected[i].c_str()) == 0);  // growth cuts at a NUL
        vn_strbufTruncate(&buffer, 0);
    }
    vn_strbufDestroy(&buffer, 1);
}

void readPieces(int fd, const std::string& expected, unsigned pieceSize) {
    std::string all;
    while (true) {
        const std::unique_ptr<uint8_t[]> piece(new uint8_t[pieceSize]);
        unsigned length = pieceSize;
        const fuzz::Taken message(vn_socketReadBuffer(fd, &length, piece.get()));
        if (!message.isNull()) {
            FUZZ_REQUIRE(message.is(lost));
            break;
        }
        FUZZ_REQUIRE(length >= 1 && length <= pieceSize);
        all.append(reinterpret_cast<const char*>(piece.get()), length);
    }
    FUZZ_REQUIRE(all == expected);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, std::min(size, mostSent));
    const unsigned pieceSize = input.byte();
    const std::string sent = input.rest();
    int ends[2];
    FUZZ_REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    const auto* bytes = reinterpret_cast<const uint8_t*>(sent.data());
    FUZZ_REQUIRE(vn_socketWriteBuffer(ends[0], static_cast<unsigned>(sent.size()), bytes) ==
                 nullptr);
    FUZZ_REQUIRE(vn_socketClose(ends[0]) == 0);
    if (pieceSize % 2 == 0) {
        readLines(ends[1], split(sent));
    } else {
        readPieces(ends[1], sent, pieceSize);
    }
    FUZZ_REQUIRE(vn_socketClose(ends[1]) == 0);
    return 0;
}
