#include "peer_vector.h"

#include <vector>

struct PeerVector {
    std::vector<void*> elements;
};

PeerVector* peer_vector_new() {
    return new PeerVector;
}

void peer_vector_delete(PeerVector* vector) {
    delete vector;
}

uint32_t peer_vector_add(PeerVector* vector, void* element) {
    vector->elements.push_back(element);
    return static_cast<uint32_t>(vector->elements.size() - 1);
}

void* peer_vector_get(const PeerVector* vector, uint32_t index) {
    return index < vector->elements.size() ? vector->elements[index] : nullptr;
}

void* peer_vector_remove(PeerVector* vector, uint32_t index) {
    if (index >= vector->elements.size()) {
        return nullptr;
    }
    void* element = vector->elements[index];
    vector->elements[index] = vector->elements.back();
    vector->elements.pop_back();
    return element;
}
