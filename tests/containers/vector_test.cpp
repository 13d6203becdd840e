// Vector: every operation compared with a model, and each capacity of growth and shrinking.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vncommon/vector.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "support/child_process.h"

namespace {

using Elements = std::vector<uintptr_t>;

void* pointer(uintptr_t number) {
    return reinterpret_cast<void*>(number);
}

uintptr_t number(const void* element) {
    return reinterpret_cast<uintptr_t>(element);
}

struct Destroy {
    void operator()(Vector* vector) const { vn_Vector_dtor(vector); }
};
using VectorHandle = std::unique_ptr<Vector, Destroy>;

VectorHandle plain(uint32_t initialCapacity = 0, bool shrink = false) {
    return VectorHandle(vn_Vector_ctor(nullptr, nullptr, nullptr, initialCapacity, shrink));
}

void fill(Vector* vector, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        vn_Vector_add(vector, pointer(i + 1));
    }
}

Elements contents(const Vector* vector) {
    Elements elements;
    for (uint32_t i = 0; i < vn_Vector_size(vector); ++i) {
        elements.push_back(number(vn_Vector_get(vector, i)));
    }
    return elements;
}

bool unusedSlotsAreZero(const Vector* vector) {
    return std::all_of(vector->data + vector->size, vector->data + vector->capacity,
                       [](void* slot) { return slot == nullptr; });
}

Elements seen;    // arguments of the hooks and of compare, in order
Elements probes;  // the keys that compare was given

void forget() {
    seen.clear();
    probes.clear();
}

// Stores ten times the number.
void* timesTen(void* element) {
    seen.push_back(number(element));
    return pointer(number(element) * 10);
}

// Returns the number plus one.
void* plusOne(void* element) {
    seen.push_back(number(element));
    return pointer(number(element) + 1);
}

int32_t compareNumbers(const void* element, const void* key) {
    seen.push_back(number(element));
    probes.push_back(number(key));
    return static_cast<int32_t>(number(element)) - static_cast<int32_t>(number(key));
}

TEST(VectorRecord, HasTheFieldsThatCompiledProgramsRead) {
    EXPECT_EQ(offsetof(Vector, size), 0u);
    EXPECT_EQ(offsetof(Vector, capacity), 4u);
    EXPECT_EQ(offsetof(Vector, initialCapacity), 8u);
    EXPECT_EQ(offsetof(Vector, shrink), 12u);
    EXPECT_EQ(offsetof(Vector, data), 16u);
    EXPECT_EQ(offsetof(Vector, compare), 24u);
    EXPECT_EQ(offsetof(Vector, onAdd), 32u);
    EXPECT_EQ(offsetof(Vector, onRemove), 40u);
    EXPECT_EQ(sizeof(Vector), 48u);
}

TEST(VectorConstruction, StoresWhatItIsGiven) {
    Vector vector;
    memset(&vector, 0xAB, sizeof vector);
    vn_Vector_init(&vector, compareNumbers, timesTen, plusOne, 5, 256);
    EXPECT_EQ(vector.size, 0u);
    EXPECT_EQ(vector.capacity, 5u);
    EXPECT_EQ(vector.initialCapacity, 5u);
    EXPECT_TRUE(vector.shrink) << "any non-zero flag counts, also one whose low byte is zero";
    EXPECT_NE(vector.data, nullptr);
    EXPECT_EQ(vector.compare, compareNumbers);
    EXPECT_EQ(vector.onAdd, timesTen);
    EXPECT_EQ(vector.onRemove, plusOne);
    EXPECT_TRUE(vn_Vector_empty(&vector));
    vn_Vector_cleanup(&vector);
}

TEST(VectorConstruction, WithoutCapacityHasNoBlock) {
    const VectorHandle vector = plain();
    EXPECT_EQ(vector->data, nullptr);
    EXPECT_EQ(vector->capacity, 0u);
    EXPECT_FALSE(vector->shrink);
}

TEST(VectorAdd, DoublesFromNothing) {
    const VectorHandle vector = plain();
    const uint32_t capacities[] = {1, 2, 4, 4, 8, 8, 8, 8, 16};
    for (uint32_t i = 0; i < std::size(capacities); ++i) {
        EXPECT_EQ(vn_Vector_add(vector.get(), pointer(i + 1)), i);
        EXPECT_EQ(vector->capacity, capacities[i]);
        EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
    }
    EXPECT_EQ(contents(vector.get()), (Elements{1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(VectorAdd, DoublesTheInitialCapacity) {
    const VectorHandle vector = plain(3);
    fill(vector.get(), 7);
    EXPECT_EQ(vector->capacity, 12u);
    EXPECT_EQ(contents(vector.get()), (Elements{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
}

TEST(VectorAdd, StoresWhatTheHookReturns) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(nullptr, timesTen, nullptr, 1, 0));
    EXPECT_EQ(vn_Vector_add(vector.get(), pointer(7)), 0u);
    EXPECT_EQ(vn_Vector_add(vector.get(), pointer(8)), 1u);
    EXPECT_EQ(contents(vector.get()), (Elements{70, 80}));
    EXPECT_EQ(seen, (Elements{7, 8}));
}

// Large enough for blocks that glibc allocates with mmap.
TEST(VectorAdd, KeepsItsPromisesInLargeBlocks) {
    const VectorHandle vector = plain(0, true);
    constexpr uint32_t count = (1u << 22) + 1;
    fill(vector.get(), count);
    ASSERT_EQ(vector->capacity, 1u << 23);
    EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(number(vn_Vector_get(vector.get(), i)), i + 1);
    }
    while (vector->capacity == 1u << 23) {
        vn_Vector_remove(vector.get(), vector->size - 1);
    }
    EXPECT_EQ(vector->size, 1u << 21);
    EXPECT_EQ(vector->capacity, 1u << 22);
    EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
    EXPECT_EQ(number(vn_Vector_get(vector.get(), (1u << 21) - 1)), 1u << 21);
}

// realloc may change the size of a small block in place. Slots that are reused then must be null.
TEST(VectorAdd, ClearsReusedSlots) {
    const VectorHandle vector = plain(2, true);
    for (int round = 0; round < 3; ++round) {
        fill(vector.get(), 8);
        vn_Vector_clear(vector.get());
        EXPECT_EQ(vector->capacity, 2u);
        EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
        fill(vector.get(), 3);
        EXPECT_EQ(vector->capacity, 4u);
        EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
        vn_Vector_clear(vector.get());
    }
}

TEST(VectorIndices, OutOfRangeIsNoError) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(nullptr, timesTen, plusOne, 8, 1));
    EXPECT_EQ(vn_Vector_get(vector.get(), 0), nullptr);
    EXPECT_EQ(vn_Vector_remove(vector.get(), 0), nullptr);
    vn_Vector_add(vector.get(), pointer(1));
    forget();
    for (const uint32_t index : {1u, 7u, 8u, UINT32_MAX}) {
        EXPECT_EQ(vn_Vector_get(vector.get(), index), nullptr);
        EXPECT_EQ(vn_Vector_set(vector.get(), index, pointer(2)), nullptr);
        EXPECT_EQ(vn_Vector_remove(vector.get(), index), nullptr);
    }
    EXPECT_EQ(contents(vector.get()), (Elements{10}));
    EXPECT_EQ(seen, Elements{});
}

TEST(VectorSet, SkipsOnAddAndAnswersForTheOldElement) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(nullptr, timesTen, plusOne, 0, 0));
    vn_Vector_add(vector.get(), pointer(1));
    forget();
    EXPECT_EQ(number(vn_Vector_set(vector.get(), 0, pointer(3))), 11u);
    EXPECT_EQ(contents(vector.get()), (Elements{3}));
    EXPECT_EQ(seen, (Elements{10}));

    const VectorHandle bare = plain();
    fill(bare.get(), 2);
    EXPECT_EQ(number(vn_Vector_set(bare.get(), 1, pointer(9))), 2u);
    EXPECT_EQ(contents(bare.get()), (Elements{1, 9}));
}

TEST(VectorRemove, MovesTheLastElementIntoTheHole) {
    const VectorHandle vector = plain();
    fill(vector.get(), 3);
    EXPECT_EQ(number(vn_Vector_remove(vector.get(), 0)), 1u);
    EXPECT_EQ(contents(vector.get()), (Elements{3, 2}));
    EXPECT_EQ(number(vn_Vector_remove(vector.get(), 1)), 2u);
    EXPECT_EQ(contents(vector.get()), (Elements{3}));
    EXPECT_EQ(number(vn_Vector_remove(vector.get(), 0)), 3u);
    EXPECT_TRUE(vn_Vector_empty(vector.get()));
    EXPECT_EQ(vector->capacity, 4u);
}

TEST(VectorRemove, AnswersWhatTheHookReturns) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(nullptr, nullptr, plusOne, 0, 0));
    fill(vector.get(), 2);
    EXPECT_EQ(number(vn_Vector_remove(vector.get(), 0)), 2u);
    EXPECT_EQ(seen, (Elements{1}));
    EXPECT_EQ(contents(vector.get()), (Elements{2}));
    vector->onRemove = nullptr;
}

void removeDownTo(Vector* vector, uint32_t size) {
    while (vector->size > size) {
        vn_Vector_remove(vector, vector->size - 1);
    }
}

TEST(VectorShrink, HalvesAtAQuarter) {
    const VectorHandle vector = plain(4, true);
    fill(vector.get(), 64);
    ASSERT_EQ(vector->capacity, 64u);
    removeDownTo(vector.get(), 17);
    EXPECT_EQ(vector->capacity, 64u);
    removeDownTo(vector.get(), 16);
    EXPECT_EQ(vector->capacity, 32u);
    EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
    EXPECT_EQ(vn_Vector_size(vector.get()), 16u);
    removeDownTo(vector.get(), 1);
    EXPECT_EQ(vector->capacity, 4u) << "16, 8, and at two elements 4";
    removeDownTo(vector.get(), 0);
    EXPECT_EQ(vector->capacity, 4u);
}

TEST(VectorShrink, GoesFurtherWhenThereIsMoreRoom) {
    Vector vector;
    vn_Vector_init(&vector, nullptr, nullptr, nullptr, 64, 1);
    fill(&vector, 11);
    vector.initialCapacity = 4;
    vn_Vector_remove(&vector, 0);
    EXPECT_EQ(vector.size, 10u);
    EXPECT_EQ(vector.capacity, 16u);
    vn_Vector_cleanup(&vector);
}

TEST(VectorShrink, MayEndBelowTheInitialCapacity) {
    const VectorHandle vector = plain(3, true);
    fill(vector.get(), 4);
    ASSERT_EQ(vector->capacity, 6u);
    removeDownTo(vector.get(), 1);
    EXPECT_EQ(vector->capacity, 2u);
    EXPECT_EQ(contents(vector.get()), (Elements{1}));
}

TEST(VectorShrink, FreesTheBlockOfAVectorWithoutInitialCapacity) {
    const VectorHandle vector = plain(0, true);
    fill(vector.get(), 2);
    removeDownTo(vector.get(), 0);
    EXPECT_EQ(vector->data, nullptr);
    EXPECT_EQ(vector->capacity, 0u);
    EXPECT_EQ(vn_Vector_add(vector.get(), pointer(5)), 0u);
    EXPECT_EQ(vector->capacity, 1u);
}

TEST(VectorShrink, NeedsTheFlag) {
    const VectorHandle vector = plain(4, false);
    fill(vector.get(), 64);
    removeDownTo(vector.get(), 0);
    EXPECT_EQ(vector->capacity, 64u);
    vn_Vector_clear(vector.get());
    vn_Vector_removeAll(vector.get());
    EXPECT_EQ(vector->capacity, 64u);
}

TEST(VectorFind, AnswersTheFirstMatch) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(compareNumbers, nullptr, nullptr, 0, 0));
    for (const uintptr_t element : {4u, 7u, 9u, 7u}) {
        vn_Vector_add(vector.get(), pointer(element));
    }
    uint32_t index = 99;
    EXPECT_TRUE(vn_Vector_find(vector.get(), pointer(7), &index));
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(seen, (Elements{4, 7})) << "the stored element comes first";
    EXPECT_EQ(probes, (Elements{7, 7}));
    index = 99;
    EXPECT_FALSE(vn_Vector_find(vector.get(), pointer(8), &index));
    EXPECT_EQ(index, 99u);
}

TEST(VectorFind, DoesNotCompareInAnEmptyVector) {
    const VectorHandle vector = plain();
    uint32_t index = 99;
    EXPECT_FALSE(vn_Vector_find(vector.get(), pointer(8), &index));
    EXPECT_EQ(index, 99u);
}

TEST(VectorEmptying, RemoveAllCallsTheHookInOrder) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(nullptr, nullptr, plusOne, 2, 1));
    fill(vector.get(), 5);
    vn_Vector_removeAll(vector.get());
    EXPECT_EQ(seen, (Elements{1, 2, 3, 4, 5}));
    EXPECT_EQ(vector->size, 0u);
    EXPECT_EQ(vector->capacity, 2u);
    EXPECT_TRUE(unusedSlotsAreZero(vector.get()));
    fill(vector.get(), 1);
    EXPECT_EQ(contents(vector.get()), (Elements{1})) << "it stays usable";
}

TEST(VectorEmptying, ClearDoesNotCallTheHook) {
    forget();
    const VectorHandle vector(vn_Vector_ctor(nullptr, nullptr, plusOne, 0, 1));
    fill(vector.get(), 5);
    vn_Vector_clear(vector.get());
    EXPECT_EQ(seen, Elements{});
    EXPECT_EQ(vector->size, 0u);
    EXPECT_EQ(vector->data, nullptr);
    EXPECT_EQ(vector->capacity, 0u);
}

TEST(VectorEmptying, RemoveAllWithoutAHookIsClear) {
    for (const uint32_t initialCapacity : {0u, 2u, 8u, 200u}) {
        for (const bool shrink : {false, true}) {
            const VectorHandle removed = plain(initialCapacity, shrink);
            const VectorHandle cleared = plain(initialCapacity, shrink);
            for (const uint32_t count : {0u, 5u, 300u}) {
                fill(removed.get(), count);
                fill(cleared.get(), count);
                const uint32_t grown = removed->capacity;
                vn_Vector_removeAll(removed.get());
                vn_Vector_clear(cleared.get());
                EXPECT_EQ(removed->size, 0u);
                EXPECT_EQ(removed->capacity, shrink ? initialCapacity : grown);
                EXPECT_EQ(cleared->size, 0u);
                EXPECT_EQ(cleared->capacity, removed->capacity);
                EXPECT_EQ(cleared->data == nullptr, removed->data == nullptr);
            }
        }
    }
}

TEST(VectorEmptying, CleanupLeavesNoElements) {
    forget();
    Vector vector;
    vn_Vector_init(&vector, nullptr, nullptr, plusOne, 2, 1);
    fill(&vector, 3);
    vn_Vector_cleanup(&vector);
    EXPECT_EQ(seen, (Elements{1, 2, 3}));
    EXPECT_EQ(vector.size, 0u);
}

TEST(VectorEmptying, DestructionPassesEveryElementToTheHook) {
    forget();
    Vector* vector = vn_Vector_ctor(nullptr, nullptr, plusOne, 0, 0);
    fill(vector, 3);
    vn_Vector_dtor(vector);
    EXPECT_EQ(seen, (Elements{1, 2, 3}));
}

// Typical hooks, with which the Vector owns copies of the texts.
void* copyText(void* text) {
    return strdup(static_cast<const char*>(text));
}

void* freeText(void* text) {
    free(text);
    return nullptr;
}

TEST(VectorHooks, LetItOwnItsElements) {
    const VectorHandle vector(vn_Vector_ctor(nullptr, copyText, freeText, 0, 1));
    char text[] = "zero";
    for (int i = 0; i < 100; ++i) {
        vn_Vector_add(vector.get(), text);
    }
    text[0] = 'Z';
    EXPECT_STREQ(static_cast<char*>(vn_Vector_get(vector.get(), 99)), "zero");
    EXPECT_EQ(vn_Vector_remove(vector.get(), 3), nullptr);
    EXPECT_EQ(vn_Vector_set(vector.get(), 4, strdup("four")), nullptr);
    EXPECT_STREQ(static_cast<char*>(vn_Vector_get(vector.get(), 4)), "four");
}

// A second implementation of the rules of growth and shrinking.
struct Model {
    explicit Model(uint32_t initial, bool shrinks)
        : initialCapacity(initial), capacity(initial), shrink(shrinks) {}

    void add(uintptr_t element) {
        if (elements.size() == capacity) {
            capacity = std::max(1u, capacity * 2);
        }
        elements.push_back(element);
    }

    uintptr_t remove(size_t index) {
        const uintptr_t element = elements[index];
        elements[index] = elements.back();
        elements.pop_back();
        if (shrink && elements.size() <= capacity / 4 && capacity > initialCapacity) {
            capacity = elements.empty() ? initialCapacity : shrunk();
        }
        return element;
    }

    void clear() {
        elements.clear();
        if (shrink && capacity > initialCapacity) {
            capacity = initialCapacity;
        }
    }

    uint32_t shrunk() const {
        uint32_t c = capacity;
        while (c >= initialCapacity) {
            c /= 2;
            if (elements.size() >= c) {
                break;
            }
        }
        return 2 * c;
    }

    uint32_t initialCapacity;
    uint32_t capacity;
    bool shrink;
    Elements elements;
};

void runAgainstModel(uint32_t seed) {
    std::mt19937 random(seed);
    const auto below = [&](size_t limit) { return static_cast<uint32_t>(random() % limit); };
    const uint32_t initial = below(20);
    const bool shrink = below(4) != 0;
    const VectorHandle vector = plain(initial, shrink);
    Model model(initial, shrink);
    bool growing = true;
    for (int step = 0; step < 2000; ++step) {
        growing = below(50) == 0 ? !growing : growing;
        if (model.elements.empty() || below(10) < (growing ? 8u : 2u)) {
            const uintptr_t element = random();
            ASSERT_EQ(vn_Vector_add(vector.get(), pointer(element)), model.elements.size());
            model.add(element);
        } else if (below(300) == 0) {
            vn_Vector_clear(vector.get());
            model.clear();
        } else {
            const uint32_t index = below(model.elements.size());
            ASSERT_EQ(number(vn_Vector_remove(vector.get(), index)), model.remove(index));
        }
        ASSERT_EQ(vector->capacity, model.capacity) << "step " << step;
        ASSERT_EQ(contents(vector.get()), model.elements) << "step " << step;
    }
}

TEST(VectorModel, AgreesThroughRandomHistories) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        runAgainstModel(seed);
    }
}

// Only the counts are large: the process must end before it writes an element.
VN_CHILD(addToAFullVector) {
    void* slot = nullptr;
    Vector vector = {UINT32_MAX, UINT32_MAX, 0, false, &slot, nullptr, nullptr, nullptr};
    vn_Vector_add(&vector, nullptr);
    return 0;
}

TEST(VectorLimits, EndsTheProcessRatherThanWrapAround) {
    const ChildResult result = runChild("addToAFullVector");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.err, testing::StartsWith("This process is out of memory... exiting\n"));
}

}  // namespace
