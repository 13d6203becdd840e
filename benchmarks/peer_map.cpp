#include "peer_map.h"

#include <utility>

template <typename Map>
PeerMap<Map>::PeerMap(Map empty, size_t count) : map(std::move(empty)) {
    map.reserve(count);
}

template <typename Map>
void PeerMap<Map>::add(Key key, void* value) {
    map.emplace(key, value);
}

template <typename Map>
void* PeerMap<Map>::find(Key key) const {
    const auto found = map.find(key);
    return found != map.end() ? found->second : nullptr;
}

template <typename Map>
void PeerMap<Map>::remove(Key key) {
    map.erase(key);
}

template <typename Map>
void* PeerMap<Map>::first() {
    place = map.begin();
    return current();
}

template <typename Map>
void* PeerMap<Map>::next() {
    ++place;
    return current();
}

template <typename Map>
void* PeerMap<Map>::current() const {
    return place != map.end() ? place->second : nullptr;
}

template class PeerMap<MapOfIntegers>;
template class PeerMap<MapOfStrings>;
template class PeerMap<MapWithCallbacks>;
