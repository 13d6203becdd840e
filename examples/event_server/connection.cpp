#include "connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>

#include <vncommon/failure.h>
#include <vncommon/log.h>
#include <vncommon/sockets.h>

#include "lock.h"
#include "stages.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t longestLine = size_t{1} << 20;  // lines of this length are rejected
constexpr size_t ringSize = 256;
constexpr size_t largestShare = size_t{4} << 20;
constexpr size_t largestBatch = size_t{64} << 10;
constexpr size_t keptCapacity = size_t{16} << 10;  // of a request's strings when it is reused
constexpr size_t chunkSize = size_t{64} << 10;
constexpr int closeSeconds = 2;

void giveBack(std::string& text) {
    text.clear();
    if (text.capacity() > keptCapacity) {
        std::string().swap(text);
    }
}

}  // namespace

Connection::Connection(int fd, uint64_t id, uint32_t idleLimit, TaskQueue& queue,
                       const StopEvent& stop)
    : fd_(fd),
      id_(id),
      idleLimit_(idleLimit),
      queue_(queue),
      stop_(stop),
      splitter_(longestLine),
      ring_(ringSize) {
    vn_Mutex_init(&mutex_);
    vn_Condition_init(&room_);
    vn_Condition_init(&ready_);
}

Connection::~Connection() {
    vn_socketClose(fd_);
    vn_Condition_destroy(&ready_);
    vn_Condition_destroy(&room_);
    vn_Mutex_destroy(&mutex_);
}

void Connection::start() {
    writer_ = vn_createThread(runWriter, this, false);
    reader_ = vn_createThread(runReader, this, false);
}

void Connection::join() {
    vn_joinThread(reader_);
    vn_joinThread(writer_);
}

void Connection::abandon() {
    lost_ = true;
    shutdown(fd_, SHUT_RDWR);
    const Lock lock(mutex_);
    vn_Condition_signal(&room_);
}

void* Connection::runReader(void* self) {
    static_cast<Connection*>(self)->read();
    return nullptr;
}

void* Connection::runWriter(void* self) {
    static_cast<Connection*>(self)->write();
    return nullptr;
}

// ---- Reading ------------------------------------------------------------------------------------

void Connection::read() {
    VN_LogInfo("Connection %lu: opened", id_);
    std::vector<uint8_t> chunk(chunkSize);
    lastLine_ = Clock::now();
    while (waitForBytes() && receive(chunk) && submitLines()) {
    }
    if (closedByPeer_ && splitter_.insideLine()) {
        submitHalfLine();
    }
    finishReading();
}

// False when the server stops, or the client has been idle for too long.
bool Connection::waitForBytes() {
    while (millisecondsLeft() != 0) {
        const StopEvent::Wake wake = stop_.wait(fd_, millisecondsLeft());
        if (wake != StopEvent::Wake::Timeout) {
            return wake == StopEvent::Wake::Readable;
        }
        if (waitsForAnswers()) {
            lastLine_ = Clock::now();
        }
    }
    VN_LogInfo("Connection %lu: idle for %ld s", id_, idleLimit_.count());
    return false;
}

bool Connection::waitsForAnswers() {
    const Lock lock(mutex_);
    return sent_ < taken_;
}

// -1 when there is no limit.
int Connection::millisecondsLeft() const {
    if (idleLimit_.count() == 0) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(lastLine_ + idleLimit_ - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
}

// The receive time-out cannot expire: there is something to read.
bool Connection::receive(std::vector<uint8_t>& chunk) {
    auto length = static_cast<unsigned>(chunk.size());
    char* failure = vn_socketReadBuffer(fd_, &length, chunk.data());
    if (failure == nullptr) {
        splitter_.add(chunk.data(), length);
        return true;
    }
    VN_LogInfo("Connection %lu: %s", id_, failure);
    vn_free(failure);
    closedByPeer_ = true;
    return false;
}

bool Connection::submitLines() {
    bool completed = false;
    for (Request* request = nextRequest(); request != nullptr; request = nextRequest()) {
        switch (splitter_.next(request->line)) {
            case LineSplitter::Result::Line:
                submit(*request, nullptr);
                break;
            case LineSplitter::Result::TooLong:
                submit(*request, "line: 1 MiB or longer");
                break;
            case LineSplitter::Result::More:
                lastLine_ = completed ? Clock::now() : lastLine_;
                return true;
        }
        completed = true;
    }
    return false;
}

void Connection::submitHalfLine() {
    Request* request = nextRequest();
    if (request != nullptr) {
        submit(*request, "line: the connection ended inside it");
    }
}

// Waits until the client has few enough open requests; null when it is lost.
Request* Connection::nextRequest() {
    const Lock lock(mutex_);
    while (!lost_ && (taken_ - sent_ == ring_.size() || share_ > largestShare)) {
        vn_Condition_wait(&room_, &mutex_);
    }
    return lost_ ? nullptr : &ring_[taken_ % ring_.size()];
}

void Connection::submit(Request& request, const char* problem) {
    VN_TimestampSet* stamps = VN_TimestampSet_ctor();
    stamps->functions->addNow(stamps, Received);
    request.problem = problem;
    request.cost = request.line.size();
    {
        const Lock lock(mutex_);
        request.answered = false;
        request.number = ++taken_;
        share_ += request.cost;
    }
    queue_.put({this, &request, stamps});
}

void Connection::finishReading() {
    const Lock lock(mutex_);
    readingDone_ = true;
    vn_Condition_signal(&ready_);
}

// ---- Writing ------------------------------------------------------------------------------------

void Connection::answer(Request& request) {
    const Lock lock(mutex_);
    request.answered = true;
    if (&request == &ring_[sent_ % ring_.size()]) {
        vn_Condition_signal(&ready_);
    }
}

void Connection::write() {
    CByteBuffer batch;
    vn_bytebufInit(&batch, 0);
    for (size_t requests = collect(batch); requests > 0; requests = collect(batch)) {
        if (!lost_) {
            send(batch);
        }
        release(requests);
    }
    vn_bytebufDestroy(&batch, 1);
    shutdown(fd_, SHUT_WR);
    if (!closedByPeer_ && !lost_) {
        waitForClose();
    }
    VN_LogInfo("Connection %lu: closed after %lu lines", id_, sent_);
    ended_ = true;
}

// Waits for the next answer in order, and puts it and the ready ones after it into batch. Returns
// their number; 0 when all are sent and no more will come.
size_t Connection::collect(CByteBuffer& batch) {
    vn_bytebufTruncate(&batch, 0);
    const Lock lock(mutex_);
    while (!(readingDone_ && sent_ == taken_) &&
           !(sent_ < taken_ && ring_[sent_ % ring_.size()].answered)) {
        vn_Condition_wait(&ready_, &mutex_);
    }
    uint64_t next = sent_;
    while (next < taken_ && ring_[next % ring_.size()].answered && batch.size < largestBatch) {
        const std::string& answer = ring_[next % ring_.size()].answer;
        vn_bytebufAppendBytes(&batch, answer.data(), answer.size());
        vn_bytebufAppendByte(&batch, '\n');
        ++next;
    }
    return next - sent_;
}

void Connection::send(const CByteBuffer& batch) {
    const auto length = static_cast<unsigned>(vn_bytebufGetSize(&batch));
    char* failure = vn_socketWriteBuffer(fd_, length, vn_bytebufGetBytes(&batch));
    if (failure != nullptr) {
        VN_LogWarn("Connection %lu: answers cannot be sent: %s", id_, failure);
        vn_free(failure);
        abandon();
    }
}

void Connection::release(size_t requests) {
    const Lock lock(mutex_);
    for (; requests > 0; --requests) {
        Request& request = ring_[sent_ % ring_.size()];
        share_ -= request.cost;
        giveBack(request.line);
        giveBack(request.answer);
        ++sent_;
    }
    vn_Condition_signal(&room_);
}

// For a connection that the server ends. TCP: closing with unread input resets the connection, and
// the client would lose answers that it has not read yet.
void Connection::waitForClose() {
    uint8_t ignored[4096];
    const uint64_t deadline = vn_systime() + closeSeconds * 1000;
    pollfd watched = {fd_, POLLIN, 0};
    while (vn_systime() < deadline && poll(&watched, 1, 100) >= 0) {
        unsigned length = sizeof ignored;
        char* failure = watched.revents != 0 ? vn_socketReadBuffer(fd_, &length, ignored) : nullptr;
        if (failure != nullptr) {
            vn_free(failure);
            return;
        }
    }
}
