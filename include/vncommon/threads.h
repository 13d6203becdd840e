/** @file
 * Threads, mutexes, condition variables, counting semaphores, thread-local slots.
 *
 * Thin wrappers over POSIX threads and semaphores. When a POSIX call fails, three lines go to
 * standard error, the first `"Fatal error: System call %s failed\n"` with the call's name, and the
 * wrapper returns as if it had succeeded. Only a pthread_create that fails for lack of resources
 * ends the process (vn_outOfMemory, failure.h). The calls named below are the names in those
 * reports.
 * Compat: the program continues after a failed lock, unlock or signal; callers rely on it.
 *
 * The objects are the platform's own, embedded by value in the caller's records; every _init
 * needs its _destroy. They must not be copied or moved. Destroy a mutex unlocked, a condition or
 * semaphore without waiters.
 *
 * Thread safety: every operation may be called from any thread.
 */
#ifndef VNCOMMON_THREADS_H
#define VNCOMMON_THREADS_H

#include <pthread.h>
#include <semaphore.h>

#include <vncommon/api.h>

VN_BEGIN_DECLS

typedef pthread_mutex_t vn_Mutex;     /**< neither recursive nor error-checking */
typedef pthread_cond_t vn_Condition;  /**< deadlines on the wall clock */
typedef sem_t vn_Semaphore;           /**< shared by the threads of one process */
typedef pthread_key_t vn_ThreadLocal; /**< one value for each thread */
typedef pthread_t vn_ThreadId;        /**< a thread of the process */

/** A thread's function; its result is ignored. */
typedef void* (*vn_ThreadFunction)(void* argument);

/** The application must call it before the functions below need it, usually first in main. Further
 * calls, also from other threads, do nothing. Without it, vn_Condition_init, vn_Semaphore_init and
 * vn_createThread write `"C threading library used without first being initialised\n"` to standard
 * error and abort(). Mutexes and thread-local slots do not need it. */
VN_API void vn_threadInit(void);

/** @name Mutexes
 * The calls: pthread_mutex_init, _destroy, _lock, _unlock.
 * @{ */

/** Initialises an unlocked mutex. */
VN_API void vn_Mutex_init(vn_Mutex* mutex);

/** Destroys an unlocked mutex. */
VN_API void vn_Mutex_destroy(vn_Mutex* mutex);

/** Waits until the mutex is free and locks it. */
VN_API void vn_Mutex_lock(vn_Mutex* mutex);

/** Unlocks the mutex, which the calling thread holds. */
VN_API void vn_Mutex_unlock(vn_Mutex* mutex);
/** @} */

/** @name Condition variables
 * The calls: pthread_cond_init, _destroy, _wait, _signal, _broadcast.
 * @{ */

/** Initialises a condition. Needs vn_threadInit. */
VN_API void vn_Condition_init(vn_Condition* condition);

/** Destroys a condition without waiters. */
VN_API void vn_Condition_destroy(vn_Condition* condition);

/** Releases the mutex, which the caller holds, while it waits, and holds it again on return. It may
 * wake up spuriously: test the predicate in a loop. */
VN_API void vn_Condition_wait(vn_Condition* condition, vn_Mutex* mutex);

/** vn_Condition_wait until deadline at the latest: an absolute time in milliseconds since
 * 1970-01-01 on the wall clock, the scale of vn_systime (not a duration). True when woken (also
 * spuriously), false when the deadline has passed or on any error; nothing is reported.
 *
 * The wall clock may be stepped. If that matters, wait in a loop with short deadlines and test the
 * predicate each time:
 *
 *     while (!ready && monotonicNow() < end)
 *         vn_Condition_timedwait(&condition, &mutex, vn_systime() + 100);
 */
VN_API bool vn_Condition_timedwait(vn_Condition* condition, vn_Mutex* mutex, uint64_t deadline);

/** Wakes at least one waiter, if there are any. */
VN_API void vn_Condition_signal(vn_Condition* condition);

/** Wakes all waiters. */
VN_API void vn_Condition_broadcast(vn_Condition* condition);
/** @} */

/** @name Semaphores
 * The calls: sem_init, sem_destroy, sem_post, sem_wait. They report through errno: in a failure
 * report the line `"(strerror(errno)=%s)\n"` holds the cause, and the line
 * `"(strerror(errcode)=%s)\n"` describes -1.
 * @{ */

/** Initialises a semaphore with initialCount units. Needs vn_threadInit. */
VN_API void vn_Semaphore_init(vn_Semaphore* semaphore, uint32_t initialCount);

/** Destroys a semaphore without waiters. */
VN_API void vn_Semaphore_destroy(vn_Semaphore* semaphore);

/** Adds one unit, which wakes a waiter if there are any. */
VN_API void vn_Semaphore_post(vn_Semaphore* semaphore);

/** Takes one unit; returns only with the semaphore taken. Interruptions are retried silently.
 * Compat: a persistent failure is reported on every attempt and never returned; callers expect the
 * semaphore to be taken. */
VN_API void vn_Semaphore_wait(vn_Semaphore* semaphore);

/** Takes one unit if there is one. Never waits. Reports nothing.
 * Compat: TRUE WHEN THE SEMAPHORE COULD NOT BE TAKEN, false when it was taken; callers rely on it.
 * So the body of `if (vn_Semaphore_trywait(&s))` runs WITHOUT the semaphore. Name the result:
 *
 *     const bool busy = vn_Semaphore_trywait(&semaphore);
 *     if (!busy) { ... vn_Semaphore_post(&semaphore); }
 */
VN_NODISCARD VN_API bool vn_Semaphore_trywait(vn_Semaphore* semaphore);
/** @} */

/** @name Threads
 * The calls: pthread_attr_init, pthread_attr_setdetachstate, pthread_create, pthread_join.
 * @{ */

/** Starts function(argument) in a new thread with the platform's default stack and scheduling.
 * A detached thread releases its resources itself and cannot be joined. SIGINT and SIGHUP are
 * blocked in the new thread. So they reach threads that the library did not create, usually the
 * main thread; the log-reopening handler (file_logger.h) relies on that.
 * A pthread_create that fails with EAGAIN or ENOMEM ends the process through vn_outOfMemory, and a
 * failed allocation ends it through vn_checkMemory. After any other failure the result is not a
 * valid thread. */
VN_API vn_ThreadId vn_createThread(vn_ThreadFunction function, void* argument, bool detached);

/** Waits for the thread's end. Returns null for a thread made by vn_createThread,
 * unless it ended itself through pthread_exit with a value. */
VN_API void* vn_joinThread(vn_ThreadId thread);

/** The calling thread. */
VN_API vn_ThreadId vn_getThreadID(void);

/** Sleeps at least this long; an interrupted sleep continues with the remaining time. */
VN_API void vn_sleep(uint32_t milliseconds);
/** @} */

/** @name Thread-local slots
 * The calls: pthread_key_create, pthread_key_delete, pthread_setspecific.
 * @{ */

/** Makes a slot that is null in every thread. destructor (may be null) is called at a thread's end
 * with the thread's value, unless that is null. */
VN_API void vn_ThreadLocal_init(vn_ThreadLocal* slot, void (*destructor)(void* value));

/** Destroys the slot; no destructor is called. */
VN_API void vn_ThreadLocal_destroy(vn_ThreadLocal* slot);

/** The calling thread's value; null if never set in this thread. */
VN_API void* vn_ThreadLocal_get(vn_ThreadLocal* slot);

/** Sets the calling thread's value. */
VN_API void vn_ThreadLocal_set(vn_ThreadLocal* slot, void* value);

/** A small number for the calling thread: 1 for the first thread that calls this, 2 for the next,
 * and so on; never 0, the same on every call, never reused for another thread. The first call of a
 * thread takes a lock, the others read a slot. In a child of fork() the thread keeps its number,
 * and the count goes on from the parent's.
 *
 * Exception: destructors of thread-local slots may get a new number, because glibc clears the slots
 * at a thread's end while it runs them. Keep the number in the value that the destructor receives.
 * C++ thread_local objects are destroyed earlier and still get the old number. */
VN_API uint64_t vn_getCountedThreadId(void);

/** Does nothing on this platform; kept because compiled programs call it. */
VN_API void vn_reportLoggerFD(void);
/** @} */

VN_END_DECLS

#endif
