// Annotations that name the lock of each guarded field. clang with -Wthread-safety reports accesses
// without the lock. For other compilers the macros are empty. GNU form: in the C++ form an
// attribute after a declarator belongs to the type, where clang rejects these.
//
// The locks are pthread's, and most are fields of records that C programs see, so they cannot be
// annotated. Instead, one LockRole represents all locks of a kind ("the lock of a pool"). So clang
// finds work done without a lock, but not work done under another object's lock.
//
// Not annotated: initialisation and destruction, when no other thread has access; fields read as
// atomics without the lock (logging/shared_field.h); powers of five, which the lock guards only
// until they are published (text/numbers/dtoamemory.cpp); and fields of public records, where the
// functions that use them are marked VN_REQUIRES instead.
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
