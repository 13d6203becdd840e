#include "client_session.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdio>

#include <vncommon/failure.h>
#include <vncommon/sockets.h>

namespace {

constexpr size_t longestAnswer = size_t{16} << 20;
constexpr size_t largestBatch = size_t{16} << 10;
constexpr time_t patienceSeconds = 30;  // without any answer

std::string firstField(const std::string& line) {
    return line.substr(0, line.find('\t'));
}

}  // namespace

ClientSession::ClientSession(const ClientPlan& plan, size_t firstLine)
    : plan_(plan), firstLine_(firstLine), sentAt_(window), splitter_(longestAnswer) {
    vn_Semaphore_init(&room_, window);
}

ClientSession::~ClientSession() {
    if (fd_ >= 0) {
        vn_socketClose(fd_);
    }
    vn_Semaphore_destroy(&room_);
}

void ClientSession::start() {
    start_ = VN_TimestampSet_getRelativeTime();
    receiver_ = vn_createThread(runReceiver, this, false);
    sender_ = vn_createThread(runSender, this, false);
}

void ClientSession::join() {
    vn_joinThread(receiver_);
    vn_joinThread(sender_);
}

void* ClientSession::runReceiver(void* self) {
    static_cast<ClientSession*>(self)->receive();
    return nullptr;
}

void* ClientSession::runSender(void* self) {
    static_cast<ClientSession*>(self)->send();
    return nullptr;
}

bool ClientSession::connect() {
    char* failure = vn_socketConnect(plan_.host.c_str(), plan_.port, &fd_);
    if (failure != nullptr) {
        fail(failure);
        return false;
    }
    const timeval patience = {patienceSeconds, 0};
    const int on = 1;
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return askForStats();
}

// An established connection may still wait in the server's backlog or be refused. This one is known
// to be served.
bool ClientSession::askForStats() {
    CStringBuffer stats;
    vn_strbufInit(&stats, 0);
    char* failure = vn_socketWrite(fd_, "stats\n");
    if (failure == nullptr) {
        failure = vn_socketReadLine(fd_, &stats);
    }
    const std::string answer = vn_strbufGetString(&stats);
    vn_strbufDestroy(&stats, 1);
    if (failure != nullptr) {
        fail(failure);
        return false;
    }
    const bool served = answer.compare(0, 6, "stats(") == 0;
    failure_ = served ? "" : answer;
    return served;
}

void ClientSession::fail(char* message) {
    failure_ = message;
    vn_free(message);
}

// The end of sending asks the server to answer everything and then close.
void ClientSession::receive() {
    std::vector<uint8_t> chunk(size_t{64} << 10);
    std::string answer;
    char* failure = nullptr;
    while (failure == nullptr) {
        auto length = static_cast<unsigned>(chunk.size());
        failure = vn_socketReadBuffer(fd_, &length, chunk.data());
        if (failure == nullptr) {
            splitter_.add(chunk.data(), length);
        }
        while (splitter_.next(answer) == LineSplitter::Result::Line) {
            takeAnswer(answer);
        }
    }
    fail(failure);
    broken_ = true;
    vn_Semaphore_post(&room_);
}

void ClientSession::takeAnswer(const std::string& answer) {
    latency_.add(VN_TimestampSet_getRelativeTime() - sentAt_[answered_ % window]);
    if (answer.compare(0, 6, "error:") == 0) {
        ++errors_;
        const std::string& line = plan_.lines[(firstLine_ + answered_) % plan_.lines.size()];
        fprintf(stderr, "%s: %s\n", firstField(line).c_str(), answer.c_str());
    } else if (answered_ < plan_.shown) {
        printf("%s\n", answer.c_str());
    }
    ++answered_;
    vn_Semaphore_post(&room_);
}

bool ClientSession::goesOn() const {
    if (broken_) {
        return false;
    }
    if (plan_.seconds <= 0.0) {
        return sent_ < plan_.lines.size();
    }
    return sent_ < plan_.most && VN_TimestampSet_getRelativeTime() - start_ < plan_.seconds;
}

void ClientSession::send() {
    std::string batch;
    char* failure = nullptr;
    while (failure == nullptr && collect(batch)) {
        failure = vn_socketWriteBuffer(fd_, static_cast<unsigned>(batch.size()),
                                       reinterpret_cast<const uint8_t*>(batch.data()));
    }
    vn_free(failure);  // the receiver also sees the end of the connection
    shutdown(fd_, SHUT_WR);
}

// Waits until a record may be sent, and takes all that may be sent now. False at the end.
bool ClientSession::collect(std::string& batch) {
    batch.clear();
    vn_Semaphore_wait(&room_);
    bool room = true;
    while (room && goesOn()) {
        batch += plan_.lines[(firstLine_ + sent_) % plan_.lines.size()];
        batch += '\n';
        sentAt_[sent_ % window] = VN_TimestampSet_getRelativeTime();
        ++sent_;
        room = batch.size() < largestBatch && !vn_Semaphore_trywait(&room_);
    }
    return !batch.empty();
}
