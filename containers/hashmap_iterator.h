// Making the iterators of a HashMap.
#ifndef VN_CONTAINERS_HASHMAP_ITERATOR_H
#define VN_CONTAINERS_HASHMAP_ITERATOR_H

#include <vncommon/hashmap.h>

namespace vncommon {

// On an entry of the map, or on none.
HashMapIterator* makeIterator(HashMap* map, HashMapEntry* entry);

}  // namespace vncommon

#endif
