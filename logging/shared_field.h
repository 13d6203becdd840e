// Access to the fields of a FileLogger that one thread reads while another one, or the SIGHUP
// handler, writes them. The record is plain C, so the accesses are made atomic here.
#ifndef VN_LOGGING_SHARED_FIELD_H
#define VN_LOGGING_SHARED_FIELD_H

namespace vncommon {

// Numbers do not refer to other memory, so relaxed order is enough.
template <typename T>
T loadField(const T& field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <typename T>
void storeField(T& field, T value) {
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

// Acquire and release: a reader of a pointer must see the text that it points to.
template <typename T>
T* loadPointer(T* const& field) {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

template <typename T>
void storePointer(T*& field, T* value) {
    __atomic_store_n(&field, value, __ATOMIC_RELEASE);
}

}  // namespace vncommon

#endif
