// Event writer compared with RapidJSON (Document and Writer) and nlohmann::json on the same
// content: a flat event of 8 mixed fields, and a nested one with a sequence of floats and a
// dictionary of half as many string pairs. In JSON an event is an array that begins with its name.
// Every library copies its strings. The rows are the whole life from construction to destruction,
// and rendering alone.
//
// The least cost of a nested event is the allocation of its blocks: one per value, and the storage
// of the Vectors.
#include <benchmark/benchmark.h>
#include <vncommon/event_writer.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

#ifdef VN_HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#ifdef VN_HAVE_NLOHMANN_JSON
#include <nlohmann/json.hpp>
#endif

namespace {

struct Content {
    Content() {
        std::mt19937 random(7);
        for (double& price : prices) {
            price = static_cast<double>(random() % 10'000'000) / 100;
        }
        for (size_t i = 0; i < keys.size(); ++i) {
            keys[i] = "attribute-" + std::to_string(i);
            values[i] = "value number " + std::to_string(random() % 100'000);
        }
    }
    static constexpr size_t floats = 10'000;
    static constexpr size_t pairs = floats / 2;
    std::array<double, floats> prices;
    std::array<std::string, pairs> keys;
    std::array<std::string, pairs> values;
};

const Content content;

constexpr int64_t sequenceNumber = 1234567890123;
constexpr char symbol[] = "VNT.L";
constexpr char note[] = "a \"late\" trade";
constexpr double price = 101.25;
constexpr double weight = 0.375;

// --- Ours --------------------------------------------------------------------------------------

struct Ours {
    struct Flat {
        static VN_EventWriter* build() {
            VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Trade");
            VN_EventWriter_addString(event, symbol);
            VN_EventWriter_addInt(event, sequenceNumber);
            VN_EventWriter_addFloat(event, price);
            VN_EventWriter_addBoolean(event, 1);
            VN_EventWriter_addChar(event, 'B');
            VN_EventWriter_addInt(event, -42);
            VN_EventWriter_addString(event, note);
            VN_EventWriter_addFloat(event, weight);
            return event;
        }
    };
    template <size_t floatCount>
    struct Nested {
        static VN_EventWriter* build() {
            VN_EventWriter* floats = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
            for (size_t i = 0; i < floatCount; ++i) {
                VN_EventWriter_addFloat(floats, content.prices[i]);
            }
            VN_EventWriter* pairs = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
            for (size_t i = 0; i < floatCount / 2; ++i) {
                VN_EventWriter_addDictValue(
                    pairs, VN_EventKind_String, const_cast<char*>(content.keys[i].c_str()),
                    VN_EventKind_String, const_cast<char*>(content.values[i].c_str()));
            }
            VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Book");
            VN_EventWriter_addRefValue(event, floats);
            VN_EventWriter_addRefValue(event, pairs);
            return event;
        }
    };

    explicit Ours(VN_EventWriter* writer) : event(writer) {}
    ~Ours() { VN_EventWriter_dtor(event); }
    void render() const {
        char* text = VN_EventWriter_toString(event);
        benchmark::DoNotOptimize(text[0]);
        free(text);
    }
    VN_EventWriter* event;
};

// --- RapidJSON ---------------------------------------------------------------------------------

#ifdef VN_HAVE_RAPIDJSON
struct RapidJson {
    struct Flat {
        static void build(rapidjson::Document& event) {
            auto& memory = event.GetAllocator();
            event.SetArray();
            event.PushBack("Trade", memory);
            event.PushBack(rapidjson::Value(symbol, memory), memory);
            event.PushBack(sequenceNumber, memory);
            event.PushBack(price, memory);
            event.PushBack(true, memory);
            event.PushBack(rapidjson::Value("B", 1, memory), memory);
            event.PushBack(-42, memory);
            event.PushBack(rapidjson::Value(note, memory), memory);
            event.PushBack(weight, memory);
        }
    };
    template <size_t floatCount>
    struct Nested {
        static void build(rapidjson::Document& event) {
            auto& memory = event.GetAllocator();
            rapidjson::Value floats(rapidjson::kArrayType);
            for (size_t i = 0; i < floatCount; ++i) {
                floats.PushBack(content.prices[i], memory);
            }
            rapidjson::Value pairs(rapidjson::kObjectType);
            for (size_t i = 0; i < floatCount / 2; ++i) {
                pairs.AddMember(rapidjson::Value(content.keys[i].c_str(), memory),
                                rapidjson::Value(content.values[i].c_str(), memory), memory);
            }
            event.SetArray();
            event.PushBack("Book", memory);
            event.PushBack(floats, memory);
            event.PushBack(pairs, memory);
        }
    };

    void render() const {
        rapidjson::StringBuffer text;
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        event.Accept(writer);
        char first = text.GetString()[0];
        benchmark::DoNotOptimize(first);
    }
    rapidjson::Document event;
};
#endif

// --- nlohmann::json ----------------------------------------------------------------------------

#ifdef VN_HAVE_NLOHMANN_JSON
struct Nlohmann {
    struct Flat {
        static void build(nlohmann::json& event) {
            event = nlohmann::json::array();
            event.push_back("Trade");
            event.push_back(symbol);
            event.push_back(sequenceNumber);
            event.push_back(price);
            event.push_back(true);
            event.push_back("B");
            event.push_back(-42);
            event.push_back(note);
            event.push_back(weight);
        }
    };
    template <size_t floatCount>
    struct Nested {
        static void build(nlohmann::json& event) {
            nlohmann::json floats = nlohmann::json::array();
            for (size_t i = 0; i < floatCount; ++i) {
                floats.push_back(content.prices[i]);
            }
            nlohmann::json pairs = nlohmann::json::object();
            for (size_t i = 0; i < floatCount / 2; ++i) {
                pairs.emplace(content.keys[i], content.values[i]);
            }
            event = nlohmann::json::array();
            event.push_back("Book");
            event.push_back(std::move(floats));
            event.push_back(std::move(pairs));
        }
    };

    void render() const {
        std::string text = event.dump();
        benchmark::DoNotOptimize(text[0]);
    }
    nlohmann::json event;
};
#endif

// --- Benchmarks --------------------------------------------------------------------------------

template <typename Library, typename Shape>
Library built() {
    if constexpr (requires { Shape::build(); }) {
        return Library(Shape::build());
    } else {
        Library library;
        Shape::build(library.event);
        return library;
    }
}

template <typename Library, typename Shape>
void buildRenderDestroy(benchmark::State& state) {
    for (auto _ : state) {
        const Library event = built<Library, Shape>();
        event.render();
    }
}

template <typename Library, typename Shape>
void render(benchmark::State& state) {
    const Library event = built<Library, Shape>();
    for (auto _ : state) {
        event.render();
    }
}

Vector* newBlocks() {
    return vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 1);
}

void* newBlock(const std::string& text) {
    return malloc(sizeof(VN_EventValue) + text.size() + 1);
}

void freeBlocks(Vector* blocks) {
    for (uint32_t i = 0; i < blocks->size; ++i) {
        free(blocks->data[i]);
    }
    vn_Vector_dtor(blocks);
}

template <size_t floatCount>
void blocksAlone(benchmark::State& state) {
    for (auto _ : state) {
        Vector* floats = newBlocks();
        for (size_t i = 0; i < floatCount; ++i) {
            vn_Vector_add(floats, malloc(sizeof(VN_EventValue)));
        }
        Vector* keys = newBlocks();
        Vector* values = newBlocks();
        for (size_t i = 0; i < floatCount / 2; ++i) {
            vn_Vector_add(keys, newBlock(content.keys[i]));
            vn_Vector_add(values, newBlock(content.values[i]));
        }
        freeBlocks(keys);
        freeBlocks(values);
        freeBlocks(floats);
    }
}

BENCHMARK_TEMPLATE(blocksAlone, 100);
BENCHMARK_TEMPLATE(blocksAlone, 300);
BENCHMARK_TEMPLATE(blocksAlone, 1000);
BENCHMARK_TEMPLATE(blocksAlone, 10000);

#define VN_EVENT_BENCHMARKS(library)                                        \
    BENCHMARK_TEMPLATE(buildRenderDestroy, library, library::Flat);         \
    BENCHMARK_TEMPLATE(render, library, library::Flat);                     \
    BENCHMARK_TEMPLATE(buildRenderDestroy, library, library::Nested<100>);  \
    BENCHMARK_TEMPLATE(render, library, library::Nested<100>);              \
    BENCHMARK_TEMPLATE(buildRenderDestroy, library, library::Nested<300>);  \
    BENCHMARK_TEMPLATE(buildRenderDestroy, library, library::Nested<1000>); \
    BENCHMARK_TEMPLATE(buildRenderDestroy, library, library::Nested<10000>)

VN_EVENT_BENCHMARKS(Ours);
#ifdef VN_HAVE_RAPIDJSON
VN_EVENT_BENCHMARKS(RapidJson);
#endif
#ifdef VN_HAVE_NLOHMANN_JSON
VN_EVENT_BENCHMARKS(Nlohmann);
#endif

}  // namespace
