// Sequences of Vector operations, compared with std::vector and the capacity that the header
// states.
#include <vncommon/vector.h>

#include <vector>

#include "fuzz/fuzz.h"

namespace {

std::vector<uintptr_t> removed;  // the arguments of onRemove

void* asPointer(uintptr_t number) {
    return reinterpret_cast<void*>(number);
}

uintptr_t asNumber(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

int32_t compareElements(const void* element, const void* key) {
    return element == key ? 0 : -1;
}

void* onAdd(void* element) {
    return asPointer(asNumber(element) + 1000000);
}

void* onRemove(void* element) {
    removed.push_back(asNumber(element));
    return asPointer(asNumber(element) ^ 1);
}

class Run {
  public:
    explicit Run(fuzz::Input& bytes) : input(bytes) {
        const uint8_t makeUp = input.byte();
        adds = makeUp & 1;
        removes = makeUp & 2;
        shrinks = makeUp & 4;
        initial = makeUp >> 3;
        capacity = initial;
        vector = vn_Vector_ctor(compareElements, adds ? onAdd : nullptr,
                                removes ? onRemove : nullptr, initial, shrinks);
    }
    ~Run() {
        removed.clear();
        vn_Vector_dtor(vector);
        FUZZ_REQUIRE(removed == (removes ? model : std::vector<uintptr_t>()));
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void step() {
        const uint8_t operation = input.byte();
        const uint32_t argument = input.below(300);
        removed.clear();
        switch (operation % 8) {
            case 0:
            case 1:
                return add(argument);
            case 2:
                for (uint32_t i = 0; i < argument; ++i) {
                    add(i);
                }
                return;
            case 3:
                return remove(argument);
            case 4:
                for (uint32_t i = 0; i < argument; ++i) {
                    remove(i);
                }
                return;
            case 5:
                return set(argument);
            case 6:
                return find(argument);
            default:
                return empty(argument % 2 == 0);
        }
    }

    void check() {
        FUZZ_REQUIRE(vn_Vector_size(vector) == model.size());
        FUZZ_REQUIRE(vn_Vector_empty(vector) == model.empty());
        FUZZ_REQUIRE(vector->capacity == capacity);
        FUZZ_REQUIRE((vector->data == nullptr) == (capacity == 0));
        for (uint32_t i = 0; i < model.size(); ++i) {
            FUZZ_REQUIRE(asNumber(vn_Vector_get(vector, i)) == model[i]);
        }
        FUZZ_REQUIRE(vn_Vector_get(vector, static_cast<uint32_t>(model.size())) == nullptr);
    }

  private:
    uintptr_t returned(uintptr_t element) const { return removes ? element ^ 1 : element; }

    void add(uintptr_t element) {
        FUZZ_REQUIRE(vn_Vector_add(vector, asPointer(element)) == model.size());
        if (model.size() == capacity) {
            capacity = capacity == 0 ? 1 : capacity * 2;
        }
        model.push_back(adds ? element + 1000000 : element);
    }

    void remove(uint32_t index) {
        const uintptr_t result = asNumber(vn_Vector_remove(vector, index));
        if (index >= model.size()) {
            FUZZ_REQUIRE(result == 0);
            return;
        }
        FUZZ_REQUIRE(result == returned(model[index]));
        model[index] = model.back();
        model.pop_back();
        if (shrinks && model.size() <= capacity / 4 && capacity > initial) {
            capacity = model.empty() ? initial : shrunken();
        }
    }

    uint32_t shrunken() const {
        uint32_t c = capacity;
        while (c >= initial) {
            c /= 2;
            if (model.size() >= c) {
                break;
            }
        }
        return c * 2;
    }

    void set(uint32_t index) {
        const uintptr_t element = input.byte();
        const uintptr_t result = asNumber(vn_Vector_set(vector, index, asPointer(element)));
        if (index >= model.size()) {
            FUZZ_REQUIRE(result == 0);
            return;
        }
        FUZZ_REQUIRE(result == returned(model[index]));
        model[index] = element;
    }

    void find(uintptr_t key) {
        key += adds ? 1000000 : 0;
        uint32_t index = 12345;
        const bool found = vn_Vector_find(vector, asPointer(key), &index);
        uint32_t expected = 0;
        while (expected < model.size() && model[expected] != key) {
            ++expected;
        }
        FUZZ_REQUIRE(found == (expected < model.size()));
        FUZZ_REQUIRE(index == (found ? expected : 12345));
    }

    void empty(bool callBack) {
        (callBack ? vn_Vector_removeAll : vn_Vector_clear)(vector);
        FUZZ_REQUIRE(removed == (callBack && removes ? model : std::vector<uintptr_t>()));
        model.clear();
        if (shrinks && capacity > initial) {
            capacity = initial;
        }
    }

    fuzz::Input& input;
    Vector* vector;
    std::vector<uintptr_t> model;
    bool adds;
    bool removes;
    bool shrinks;
    uint32_t initial;
    uint32_t capacity;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzz::checkSteps<Run>(data, size, 100);
}
