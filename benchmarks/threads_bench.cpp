// The thread functions compared with the calls that they wrap, the C++ library and GLib.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>
#include <vncommon/threads.h>

#include <mutex>
#include <thread>

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

// ---- Lock and unlock without contention -------------------------------------------------------

void lockVn(benchmark::State& state) {
    vn_Mutex mutex;
    vn_Mutex_init(&mutex);
    for (auto _ : state) {
        vn_Mutex_lock(&mutex);
        vn_Mutex_unlock(&mutex);
    }
    vn_Mutex_destroy(&mutex);
}
BENCHMARK(lockVn);

void lockPthread(benchmark::State& state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
}
BENCHMARK(lockPthread);

void lockStd(benchmark::State& state) {
    std::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(lockStd);

#ifdef VN_HAVE_GLIB_2_0
void lockGlib(benchmark::State& state) {
    GMutex mutex;
    g_mutex_init(&mutex);
    for (auto _ : state) {
        g_mutex_lock(&mutex);
        g_mutex_unlock(&mutex);
    }
    g_mutex_clear(&mutex);
}
BENCHMARK(lockGlib);
#endif

// ---- Semaphores ------------------------------------------------------------------------------

void semaphoreVn(benchmark::State& state) {
    vn_threadInit();
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 0);
    for (auto _ : state) {
        vn_Semaphore_post(&semaphore);
        vn_Semaphore_wait(&semaphore);
    }
    vn_Semaphore_destroy(&semaphore);
}
BENCHMARK(semaphoreVn);

void semaphorePosix(benchmark::State& state) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    for (auto _ : state) {
        sem_post(&semaphore);
        sem_wait(&semaphore);
    }
    sem_destroy(&semaphore);
}
BENCHMARK(semaphorePosix);

// ---- A number for the calling thread ----------------------------------------------------------

void numberVnCounted(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(vn_getCountedThreadId());
    }
}
BENCHMARK(numberVnCounted);

void numberGetspecific(benchmark::State& state) {
    pthread_key_t key;
    pthread_key_create(&key, nullptr);
    pthread_setspecific(key, &key);
    for (auto _ : state) {
        benchmark::DoNotOptimize(pthread_getspecific(key));
    }
    pthread_key_delete(key);
}
BENCHMARK(numberGetspecific);

void numberGettid(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(gettid());
    }
}
BENCHMARK(numberGettid);

// ---- Start and join --------------------------------------------------------------------------

void* doNothing(void*) {
    return nullptr;
}

void startVn(benchmark::State& state) {
    vn_threadInit();
    for (auto _ : state) {
        vn_joinThread(vn_createThread(doNothing, nullptr, false));
    }
}
BENCHMARK(startVn)->UseRealTime();

void startPthread(benchmark::State& state) {
    for (auto _ : state) {
        pthread_t thread;
        pthread_create(&thread, nullptr, doNothing, nullptr);
        pthread_join(thread, nullptr);
    }
}
BENCHMARK(startPthread)->UseRealTime();

void startStd(benchmark::State& state) {
    for (auto _ : state) {
        std::thread(doNothing, nullptr).join();
    }
}
BENCHMARK(startStd)->UseRealTime();

}  // namespace
