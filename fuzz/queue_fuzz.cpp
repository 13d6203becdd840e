// Sequences of queue operations in one thread, compared with std::deque and a computed capacity.
#include <vncommon/queue.h>

#include <algorithm>
#include <deque>
#include <vector>

#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

class Run {
  public:
    explicit Run(fuzz::Input& bytes) : input(bytes), maxSize(input.byte()) {
        vn_qtsInit(&queue, maxSize);
    }
    ~Run() { vn_qtsDestroy(&queue); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void step() {
        const uint8_t operation = input.byte();
        switch (operation % 6) {
            case 0:
            case 1:
                return add();
            case 2:
                return addBatch(input.byte());
            case 3:
                return remove();
            case 4:
                return removeAtOnce();
            default:
                for (uint32_t count = input.byte(); count > 0; --count) {
                    removeAtOnce();
                }
                return;
        }
    }

    void check() {
        FUZZ_REQUIRE(vn_qtsSize(&queue) == model.size());
        FUZZ_REQUIRE(queue.capacity == capacity);
        FUZZ_REQUIRE((queue.head + queue.count) % queue.capacity == queue.tail);
    }

  private:
    vn_qtsElement next() {
        ++last;
        return {{word(last), word(last * 3), word(~last)}};
    }

    static void* word(uintptr_t number) { return reinterpret_cast<void*>(number); }

    void grow(size_t needed) {
        if (needed <= capacity || capacity == maxSize) {
            return;
        }
        while (capacity < needed) {
            capacity *= 2;
        }
        capacity = maxSize == 0 ? capacity : std::min(capacity, maxSize);
    }

    void add() {
        const vn_qtsElement element = next();
        grow(model.size() + 1);
        const bool fits = model.size() < capacity;
        FUZZ_REQUIRE(vn_qtsAdd(&queue, &element) == (fits ? 0 : 1));
        if (fits) {
            model.push_back(element);
        }
    }

    void addBatch(uint32_t count) {
        std::vector<vn_qtsElement> batch;
        for (uint32_t i = 0; i < count; ++i) {
            batch.push_back(next());
        }
        grow(model.size() + count);
        const auto taken = std::min<uint32_t>(count, capacity - queue.count);
        FUZZ_REQUIRE(vn_qtsAddBatch(&queue, batch.data(), count) == count - taken);
        model.insert(model.end(), batch.begin(), batch.begin() + taken);
    }

    void remove() {
        if (model.empty()) {
            return;  // a blocking call would wait forever
        }
        vn_qtsElement element;
        vn_qtsRemove(&queue, &element);
        took(element);
    }

    void removeAtOnce() {
        vn_qtsElement element = {{word(1), word(2), word(3)}};
        const int result = vn_qtsRemoveNB(&queue, &element);
        FUZZ_REQUIRE(result == (model.empty() ? 1 : 0));
        if (result == 0) {
            took(element);
        } else {
            FUZZ_REQUIRE(element.words[0] == word(1) && element.words[2] == word(3));
        }
    }

    void took(const vn_qtsElement& element) {
        FUZZ_REQUIRE(memcmp(&element, &model.front(), sizeof element) == 0);
        model.pop_front();
        if (model.size() <= capacity / 4 && capacity > 1) {
            capacity /= 2;
            while (model.size() < capacity / 2) {
                capacity /= 2;
            }
        }
    }

    fuzz::Input& input;
    uint32_t maxSize;
    vn_qtsQueue queue;
    std::deque<vn_qtsElement> model;
    uint32_t capacity = 1;
    uintptr_t last = 0;
};

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    vn_threadInit();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzz::checkSteps<Run>(data, size, 200);
}
