// One connection of a client: one thread sends records, another counts the answers and measures
// round-trip times. A window limits the number of unanswered records.
#ifndef VN_EXAMPLES_CLIENT_SESSION_H
#define VN_EXAMPLES_CLIENT_SESSION_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include <vncommon/threads.h>

#include "latency.h"
#include "line_splitter.h"

struct ClientPlan {
    std::string host;
    int port = 0;
    std::vector<std::string> lines;  // the records
    double seconds = 0.0;            // 0: every record once; else repeat for this time
    uint64_t most = 0;               // records per connection, when there are seconds
    unsigned shown = 0;              // answers to print
};

class ClientSession {
  public:
    // The plan must outlive the session.
    ClientSession(const ClientPlan& plan, size_t firstLine);
    ~ClientSession();
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    // False when the server cannot be reached; failure() has the reason. Call connect, start, join
    // in this order.
    bool connect();
    void start();
    void join();

    uint64_t sent() const { return sent_; }
    uint64_t answered() const { return answered_; }
    uint64_t errors() const { return errors_; }  // answers that report an error
    const Histogram& latency() const { return latency_; }
    const std::string& failure() const { return failure_; }

  private:
    static void* runReceiver(void* self);
    static void* runSender(void* self);

    bool askForStats();
    void receive();
    void takeAnswer(const std::string& answer);
    void send();
    bool collect(std::string& batch);
    bool goesOn() const;
    void fail(char* message);

    static constexpr size_t window = 64;

    const ClientPlan& plan_;
    const size_t firstLine_;
    int fd_ = -1;
    vn_ThreadId receiver_{};
    vn_ThreadId sender_{};
    vn_Semaphore room_;
    double start_ = 0.0;
    std::vector<std::atomic<double>>
        sentAt_;         // of record n at n modulo the window; room_ hands slots over
    uint64_t sent_ = 0;  // used by the sender only
    std::atomic<bool> broken_ = false;

    LineSplitter splitter_;  // from here on used by the receiver only
    uint64_t answered_ = 0;
    uint64_t errors_ = 0;
    Histogram latency_;
    std::string failure_;
};

#endif
