// Which lock guards what, for the compiler: under clang -Wthread-safety finds the accesses that
// are made without it. Elsewhere these say it to the reader alone.
//
// The locks are pthread's, and most stand in records that C programs see, so they carry no
// annotation. A LockRole stands for all the locks of one kind instead ("the lock of a pool"):
// what is found is work done without a lock, not work done under another object's lock.
//
// Not annotated: what is initialised before any other thread can see it and destroyed after; fields
// read as atomics without the lock (logging/shared_field.h); powers of five, which the lock guards
// only until they are published (text/numbers/dtoamemory.cpp); and fields of public records
// themselves, where the functions that touch them say VN_REQUIRES.
#ifndef VN_PLATFORM_THREAD_ANNOTATIONS_H
#define VN_PLATFORM_THREAD_ANNOTATIONS_H

#if defined(__clang__)
#define VN_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define VN_THREAD_ATTRIBUTE(attribute)
#endif

#define VN_CAPABILITY(kind) VN_THREAD_ATTRIBUTE(capability(kind))
#define VN_SCOPED_CAPABILITY VN_THREAD_ATTRIBUTE(scoped_lockable)
#define VN_GUARDED_BY(lock) VN_THREAD_ATTRIBUTE(guarded_by(lock))
#define VN_REQUIRES(lock) VN_THREAD_ATTRIBUTE(requires_capability(lock))
#define VN_ACQUIRE(...) VN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VN_TRY_ACQUIRE(...) VN_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VN_RELEASE(...) VN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VN_NO_THREAD_SAFETY_ANALYSIS VN_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace vncommon {

struct VN_CAPABILITY("mutex") LockRole {};

}  // namespace vncommon

#endif
