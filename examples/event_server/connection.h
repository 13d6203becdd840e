// One client: a thread that reads its lines, and a thread that writes the answers.
//
// Every line gets exactly one line as an answer, in the order of the lines. The queue and the
// workers process requests in any order; a ring of requests per connection restores the order of
// the answers. The server stops reading a client whose ring is full, so each client's share of the
// server is bounded. Workers never wait for a client: one that does not read its answers blocks
// only its own threads, until the send time-out closes it.
#ifndef VN_EXAMPLES_CONNECTION_H
#define VN_EXAMPLES_CONNECTION_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <vncommon/buffers.h>
#include <vncommon/threads.h>

#include "line_splitter.h"
#include "stop_event.h"
#include "task_queue.h"

struct Request {
    uint64_t number = 0;  // line number in the connection, from 1
    std::string line;
    const char* problem = nullptr;  // error of the line as a whole, or null
    std::string answer;             // without its line feed
    size_t cost = 0;                // bytes counted against the connection's share
    bool answered = false;          // guarded by the connection's lock
};

class Connection {
  public:
    // The descriptor passes to the connection. A client that completes no line for idleLimit
    // seconds and waits for no answer is disconnected; 0: never.
    Connection(int fd, uint64_t id, uint32_t idleLimit, TaskQueue& queue, const StopEvent& stop);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void start();

    // For workers: request.answer is complete. The connection may be destroyed right after the
    // call.
    void answer(Request& request);

    // Makes both threads stop serving the client.
    void abandon();

    // Whether both threads have finished. Join, then destroy.
    bool ended() const { return ended_; }
    void join();

    uint64_t id() const { return id_; }

  private:
    static void* runReader(void* self);
    static void* runWriter(void* self);

    void read();
    bool waitForBytes();
    bool waitsForAnswers();
    int millisecondsLeft() const;
    bool receive(std::vector<uint8_t>& chunk);
    bool submitLines();
    void submitHalfLine();
    Request* nextRequest();
    void submit(Request& request, const char* problem);
    void finishReading();

    void write();
    size_t collect(CByteBuffer& batch);
    void send(const CByteBuffer& batch);
    void release(size_t requests);
    void waitForClose();

    const int fd_;
    const uint64_t id_;
    const std::chrono::seconds idleLimit_;
    TaskQueue& queue_;
    const StopEvent& stop_;
    vn_ThreadId reader_{};
    vn_ThreadId writer_{};
    LineSplitter splitter_;
    std::chrono::steady_clock::time_point lastLine_;  // when the client last completed one
    bool closedByPeer_ = false;                       // used by the reader only until readingDone_

    vn_Mutex mutex_;  // guards what follows
    vn_Condition room_;
    vn_Condition ready_;
    std::vector<Request> ring_;  // request n is at n modulo its size
    uint64_t taken_ = 0;         // requests submitted
    uint64_t sent_ = 0;          // requests whose answers were sent or dropped
    size_t share_ = 0;           // cost of the requests taken and not yet sent
    bool readingDone_ = false;

    std::atomic<bool> lost_ = false;  // answers can no longer be sent
    std::atomic<bool> ended_ = false;
};

#endif
