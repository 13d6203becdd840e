// Threads that use the heap in a process that forks. With g++ 12 the sanitizers' heaps have locks
// that are not made free in the child: a child that allocates would wait for ever for a thread that
// it does not have. There the threads pause while the process forks, elsewhere they go on.
//
//     PauseAtFork pause(2);
//     ... each of the two threads: while (!done) { pause.here(); work(); }
//     const pid_t child = pause.fork();
#ifndef VN_TESTS_SUPPORT_PAUSE_AT_FORK_H
#define VN_TESTS_SUPPORT_PAUSE_AT_FORK_H

#include <unistd.h>

#include <atomic>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool childrenMayAllocate = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool childrenMayAllocate = false;
#else
constexpr bool childrenMayAllocate = true;
#endif
#else
constexpr bool childrenMayAllocate = true;
#endif

class PauseAtFork {
  public:
    explicit PauseAtFork(int threads) : threads_(threads) {}

    // A thread calls this between two pieces of work. It waits while the process forks.
    void here() {
        if (wanted_) {
            ++pausing_;
            while (wanted_) {
                usleep(50);
            }
            --pausing_;
        }
    }

    // Waits until all threads pause, so until they have started, too.
    void begin() {
        wanted_ = true;
        while (pausing_ < threads_) {
            usleep(20);
        }
    }

    void end() {
        wanted_ = false;
        while (pausing_ > 0) {
            usleep(20);
        }
    }

    pid_t fork() {
        if (childrenMayAllocate) {
            return ::fork();
        }
        begin();
        const pid_t child = ::fork();
        if (child != 0) {
            end();
        }
        return child;
    }

  private:
    const int threads_;
    std::atomic<bool> wanted_{false};
    std::atomic<int> pausing_{0};
};

#endif
