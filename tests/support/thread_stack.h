// Runs a function in a thread whose stack is allocated here. The stack has a given size and a guard
// page below it. It is filled with a pattern, so that its used part can be measured afterwards.
#ifndef VN_TESTS_SUPPORT_THREAD_STACK_H
#define VN_TESTS_SUPPORT_THREAD_STACK_H

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstring>

class ThreadStack {
  public:
    explicit ThreadStack(size_t size) : size_(size) {
        void* pages = mmap(nullptr, guard + size, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
        EXPECT_NE(pages, MAP_FAILED);
        mprotect(pages, guard, PROT_NONE);
        bottom_ = static_cast<unsigned char*>(pages) + guard;
        memset(bottom_, paint, size);
    }
    ~ThreadStack() { munmap(bottom_ - guard, guard + size_); }
    ThreadStack(const ThreadStack&) = delete;
    ThreadStack& operator=(const ThreadStack&) = delete;

    // Returns when the thread has ended. The used part includes the data that the C library puts at
    // the top of the stack: the thread's descriptor and thread-local variables.
    template <class Body>
    void run(Body body) {
        pthread_attr_t attributes;
        ASSERT_EQ(pthread_attr_init(&attributes), 0);
        ASSERT_EQ(pthread_attr_setstack(&attributes, bottom_, size_), 0);
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, enter<Body>, &body), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
        pthread_attr_destroy(&attributes);
    }

    size_t used() const {
        size_t untouched = 0;
        while (untouched < size_ && bottom_[untouched] == paint) {
            ++untouched;
        }
        return size_ - untouched;
    }

  private:
    static constexpr size_t guard = 65536;
    static constexpr unsigned char paint = 0xA5;

    template <class Body>
    static void* enter(void* body) {
        (*static_cast<Body*>(body))();
        return nullptr;
    }

    size_t size_;
    unsigned char* bottom_;
};

#endif
