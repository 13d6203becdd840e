// std::vector<void*> behind exported functions of a separate shared library: its cost when the
// caller cannot inline it. The functions mirror those of vncommon/vector.h.
#ifndef VN_BENCHMARKS_PEER_VECTOR_H
#define VN_BENCHMARKS_PEER_VECTOR_H

#include <cstdint>

struct PeerVector;

extern "C" {
PeerVector* peer_vector_new();
void peer_vector_delete(PeerVector* vector);
uint32_t peer_vector_add(PeerVector* vector, void* element);
void* peer_vector_get(const PeerVector* vector, uint32_t index);
void* peer_vector_remove(PeerVector* vector, uint32_t index);
}

#endif
