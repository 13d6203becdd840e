// std::unordered_map behind exported functions of a separate shared library: its cost when the
// caller cannot inline it.
#ifndef VN_BENCHMARKS_PEER_MAP_H
#define VN_BENCHMARKS_PEER_MAP_H

#include <cstdint>
#include <string_view>
#include <unordered_map>

template <typename Map>
class PeerMap {
  public:
    using Key = typename Map::key_type;

    PeerMap(Map empty, size_t count);
    void add(Key key, void* value);
    void* find(Key key) const;
    void remove(Key key);
    // The values, one per call; null after the last.
    void* first();
    void* next();

  private:
    void* current() const;

    Map map;
    typename Map::const_iterator place;
};

using MapOfIntegers = std::unordered_map<uintptr_t, void*>;
using MapOfStrings = std::unordered_map<std::string_view, void*>;
using MapWithCallbacks =
    std::unordered_map<void*, void*, uint32_t (*)(const void*), int (*)(const void*, const void*)>;

extern template class PeerMap<MapOfIntegers>;
extern template class PeerMap<MapOfStrings>;
extern template class PeerMap<MapWithCallbacks>;

#endif
