// vncommon.hpp: each class does what the C functions do and frees everything (the leak sanitizer
// checks this).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vncommon/vncommon.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace {

using testing::ElementsAre;

// ---- Texts and errors ----

TEST(CppString, OwnsItsText) {
    vn::string text(vn_strdup("text"));
    EXPECT_TRUE(text);
    EXPECT_STREQ(text.c_str(), "text");
    vn::string taken = std::move(text);
    EXPECT_EQ(std::string(taken), "text");
    char* released = taken.release();
    EXPECT_STREQ(released, "text");
    EXPECT_FALSE(taken);
    vn_free(released);
}

TEST(CppString, IsEmptyWithoutText) {
    const vn::string none(nullptr);
    EXPECT_FALSE(none);
    EXPECT_STREQ(none.c_str(), "");
    EXPECT_EQ(none.view(), "");
}

TEST(CppError, HoldsTheTextOfAFailedCall) {
    int fd = 0;
    const vn::error failed(vn_openFileUTF8(&fd, "/missing/file", O_RDONLY));
    EXPECT_TRUE(failed);
    EXPECT_STREQ(failed.c_str(), "No such file or directory");
    const vn::error none(vn_openFileUTF8(&fd, "/dev/null", O_RDONLY));
    EXPECT_FALSE(none);
    close(fd);
}

TEST(CppHandle, EndsEveryKindOfObject) {
    const vn::vector_handle vector(vn_Vector_ctor(nullptr, nullptr, nullptr, 4, 0));
    const vn::hash_map_handle map(vn_HashMap_ctor(nullptr, nullptr, nullptr, nullptr, 16, 0));
    int key = 0;
    const vn::hash_map_iterator_handle iterator(vn_HashMap_add(map.get(), &key, &key));
    EXPECT_EQ(vn_HashMapIterator_key(iterator.get()), &key);
    const vn::event_handle event(VN_EventWriter_ctor(VN_EventKind_Event, "E"));
    const vn::stamps_handle stamps(VN_TimestampSet_ctor());
    const vn::file_logger_handle logger(FileLogger_ctor());
    EXPECT_EQ(FileLogger_GetLogLevel(logger.get()), 7U);
    const vn::environment_handle environment(vn_getEnvironUTF8());
    EXPECT_NE(environment.get()[0], nullptr);
}

TEST(CppStringBuffer, AppendsEverything) {
    vn::string_buffer buffer(4);
    buffer.append("a").append(std::string("bc")).append('d').append(nullptr).append_escaped("\"");
    EXPECT_STREQ(buffer.c_str(), R"(abcdnull\")");
    EXPECT_EQ(buffer.size(), 10U);
    buffer.truncate(2);
    vn_strbufAppendFormat(buffer.get(), "%d", 5);
    EXPECT_EQ(buffer.view(), "ab5");
    buffer.append(std::string_view()).append(std::string_view("xyz", 2));
    EXPECT_EQ(std::string(buffer), "ab5xy");
}

TEST(CppStringBuffer, MovesAndGivesItsTextAway) {
    vn::string_buffer first;
    first.append("first");
    vn::string_buffer second(std::move(first));
    EXPECT_EQ(second.view(), "first");
    first.append("again");  // NOLINT(bugprone-use-after-move): allowed here
    second = std::move(first);
    EXPECT_EQ(second.view(), "again");
    EXPECT_EQ(first.size(), 0U);  // NOLINT(bugprone-use-after-move)
    const vn::string text = second.take();
    EXPECT_STREQ(text.c_str(), "again");
    EXPECT_STREQ(second.c_str(), "");
}

TEST(CppStringBuffer, ReadsFiles) {
    const TemporaryFolder folder;
    vn::string_buffer buffer;
    EXPECT_FALSE(buffer.append_file(folder.write("file", "contents").c_str()));
    EXPECT_EQ(buffer.view(), "contents");
    const vn::error failed = buffer.append_file((folder / "missing").c_str());
    EXPECT_EQ(failed.view(), "Can't open file due to error: No such file or directory");
}

// ---- Containers ----

template <class T>
std::vector<T> contents(const vn::vector<T>& vector) {
    return std::vector<T>(vector.begin(), vector.end());
}

TEST(CppVector, HoldsWordsOfEveryKind) {
    vn::vector<double> prices;
    EXPECT_TRUE(prices.empty());
    EXPECT_EQ(prices.begin(), prices.end());
    prices.push_back(1.5);
    prices.push_back(-0.25);
    EXPECT_THAT(contents(prices), ElementsAre(1.5, -0.25));
    vn::vector<int8_t> bytes;
    bytes.push_back(-1);
    EXPECT_EQ(bytes[0], -1);
    struct Pair {
        int32_t a;
        int32_t b;
    };
    vn::vector<Pair> pairs;
    pairs.push_back({1, -2});
    EXPECT_EQ(pairs[0].b, -2);
}

TEST(CppVector, ChangesLikeTheCVector) {
    vn::vector<int> vector(2);
    for (int i = 0; i < 100; ++i) {
        vector.push_back(i);
    }
    EXPECT_EQ(vector.size(), 100U);
    EXPECT_EQ(vector.remove(0), 0);
    EXPECT_EQ(vector[0], 99);
    vector.set(1, -1);
    EXPECT_EQ(vector[1], -1);
    vn::vector<int> moved(std::move(vector));
    EXPECT_EQ(moved.size(), 99U);
    moved.clear();
    EXPECT_TRUE(moved.empty());
}

template <class K, class V>
std::map<std::string, V> entriesOf(const vn::hash_map<K, V>& map) {
    std::map<std::string, V> entries;
    for (auto [key, value] : map) {
        EXPECT_TRUE(entries.emplace(key, value).second);
    }
    return entries;
}

TEST(CppHashMap, OfWords) {
    vn::hash_map<int64_t, double> map(64);
    EXPECT_TRUE(map.add(-5, 0.5));
    EXPECT_FALSE(map.add(-5, 9.0));
    EXPECT_TRUE(map.add(0, 0.0));
    EXPECT_EQ(map.size(), 2U);
    EXPECT_EQ(map.value(-5), 0.5);
    EXPECT_EQ(map.value(7), 0.0);
    EXPECT_EQ(map.find(-5), 0.5);
    EXPECT_EQ(map.find(0), 0.0);  // present, with a value of zero bytes
    EXPECT_EQ(map.find(7), std::nullopt);
    map.set(-5, 2.5);
    EXPECT_EQ(map.value(-5), 2.5);
    EXPECT_EQ(map.remove(-5), 2.5);
    EXPECT_EQ(map.remove(-5), std::nullopt);
    EXPECT_FALSE(map.contains(-5));
    map.clear();
    EXPECT_TRUE(map.empty());
    for (auto entry : map) {
        FAIL() << entry.first;
    }
}

TEST(CppHashMap, OfTextsThatLiveElsewhere) {
    vn::hash_map<const char*, int> map;
    const std::string name = "a";
    EXPECT_TRUE(map.add(name.c_str(), 1));
    EXPECT_FALSE(map.add("a", 2));  // equal, not identical
    EXPECT_TRUE(map.add("b", 3));
    EXPECT_EQ(map.value(std::string("b").c_str()), 3);
    EXPECT_EQ(entriesOf(map), (std::map<std::string, int>{{"a", 1}, {"b", 3}}));
}

TEST(CppHashMap, OfItsOwnTexts) {
    vn::hash_map<std::string, int> map;
    std::string name = "first";
    EXPECT_TRUE(map.add(name.c_str(), 1));
    name = "other";
    EXPECT_TRUE(map.contains("first"));
    map.set("first", 2);
    EXPECT_FALSE(map.add("first", 3));
    EXPECT_TRUE(map.add("second", 4));
    EXPECT_TRUE(map.add("third", 5));
    EXPECT_EQ(map.remove("first"), 2);
    EXPECT_EQ(entriesOf(map), (std::map<std::string, int>{{"second", 4}, {"third", 5}}));
    vn::hash_map<std::string, int> moved = std::move(map);
    EXPECT_EQ(moved.size(), 2U);
    moved.clear();
    EXPECT_TRUE(moved.add("second", 6));
}

TEST(CppHashMap, ReplacesUnderItsOwnText) {
    constexpr char name[] = "a text of its own";
    vn::hash_map<std::string, int> map;
    EXPECT_TRUE(map.add(name, 1));
    const char* own = (*map.begin()).first;
    map.set(own, 2);
    EXPECT_EQ(entriesOf(map), (std::map<std::string, int>{{name, 2}}));
}

// With another number of buckets, the mask would select few of them: 2 of 16,385.
TEST(CppHashMap, UsesAllBucketsWhateverTheExpectedSize) {
    const vn::hash_map<int, int> uneven(65540);
    EXPECT_EQ(uneven.get()->mask, 32767U);
    const vn::hash_map<int, int> even(65536);
    EXPECT_EQ(even.get()->mask, 16383U);
    const vn::hash_map<int, int> none(0);
    EXPECT_EQ(none.get()->mask, 3U);
}

TEST(CppHashMap, RemovesUnderItsOwnText) {
    for (const bool shrink : {false, true}) {
        vn::hash_map<std::string, int> map(0, shrink);
        EXPECT_TRUE(map.add("a text of its own", 1));
        EXPECT_EQ(map.remove((*map.begin()).first), 1);
        EXPECT_TRUE(map.empty());
    }
}

template <class K, class V>
void addAndRemove(vn::hash_map<K, V>& map, K key) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(map.add(key, i));
        ASSERT_EQ(map.remove(key), i);
    }
    EXPECT_EQ(map.remove(key), std::nullopt);
    EXPECT_TRUE(map.empty());
}

TEST(CppHashMap, ShrinksOnlyIfAsked) {
    vn::hash_map<int, int> shrinking(0, true);
    addAndRemove(shrinking, 5);
    EXPECT_EQ(shrinking.get()->entryCapacity, 16U);
    vn::hash_map<const char*, int> ofTexts(0, true);
    addAndRemove(ofTexts, "key");
    EXPECT_EQ(ofTexts.get()->entryCapacity, 16U);
    vn::hash_map<int, int> growing(0, false);
    addAndRemove(growing, 5);
    EXPECT_GT(growing.get()->entryCapacity, 16U);
}

// On every processor, big-endian ones too.
TEST(CppWords, AreWhatACastOfCGives) {
    const auto word = [](uintptr_t number) { return reinterpret_cast<void*>(number); };
    vn::vector<char> letters;
    letters.push_back('x');
    EXPECT_EQ(vn_Vector_get(letters.get(), 0), word('x'));
    vn::hash_map<uint16_t, bool> flags;
    flags.add(5, true);
    EXPECT_EQ(vn_HashMap_findValue(flags.get(), word(5)), word(1));
    vn_HashMap_addQuick(flags.get(), word(7), word(1));
    EXPECT_TRUE(flags.value(7));
}

TEST(CppQueue, CarriesSmallRecords) {
    struct Order {
        int64_t id;
        double price;
        char side;
    };
    vn::queue<Order> queue(2);
    EXPECT_EQ(queue.try_pop().has_value(), false);
    EXPECT_TRUE(queue.push({1, 0.5, 'b'}));
    EXPECT_TRUE(queue.push({2, 1.5, 's'}));
    EXPECT_FALSE(queue.push({3, 2.5, 'b'}));
    EXPECT_EQ(queue.size(), 2U);
    const Order first = queue.pop();
    EXPECT_EQ(first.id, 1);
    EXPECT_EQ(first.side, 'b');
    const std::optional<Order> second = queue.try_pop();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->price, 1.5);
}

TEST(CppQueue, OfThreeWordsAndOfOneByte) {
    using Words = std::array<uint64_t, 3>;
    vn::queue<Words> words;
    words.push({1, 2, 3});
    EXPECT_EQ(words.pop(), (Words{1, 2, 3}));
    vn::queue<char> bytes;
    bytes.push('x');
    EXPECT_EQ(bytes.pop(), 'x');
}

// ---- Events and timestamps ----

TEST(CppEvent, IsBuiltInOneExpression) {
    EXPECT_EQ(vn::event("Tick").add("ACME").add(12.5).text().view(), R"(Tick("ACME",12.5))");
    EXPECT_EQ(vn::event("Empty").text().view(), "Empty()");
}

TEST(CppEvent, TakesEveryKindOfValue) {
    vn::event event("All");
    const std::string text = "a\"b";
    const char* null = nullptr;
    const vn::string owned(vn_strdup("own"));
    event.add(true).add(false).add('c').add(-5).add(uint8_t{200}).add(int64_t{INT64_MIN});
    event.add(0.5F).add(text).add(null).add(owned).add(vn::unformatted{"now()"});
    event.add(vn::decimal{VN_DEC_INFINITY()});
    EXPECT_EQ(event.text().view(), R"(All(true,false,"c",-5,200,-9223372036854775808,)"
                                   R"(.5,"a\"b","","own",now(),+Inf))");
}

TEST(CppEvent, NestsSequencesDictionariesAndEvents) {
    vn::event inner("Inner");
    inner.add(1);
    const vn::string text = vn::event("Outer")
                                .add(vn::sequence().add(1).add(vn::sequence()))
                                .add(vn::dictionary().add("key", 2).add(3, vn::sequence().add('x')))
                                .add(std::move(inner))
                                .text();
    EXPECT_EQ(text.view(), R"(Outer([1,[]],{"key":2,3:["x"]},Inner(1)))");
}

TEST(CppEvent, LeavesTheRestToTheCFunctions) {
    vn::event event("E");
    VN_EventWriter_addOptional(event.get(), VN_EventKind_Wrapper, nullptr);
    EXPECT_EQ(event.text().view(), "E(optional())");
    VN_EventWriter_dtor(event.release());
}

TEST(CppStamps, DoesWhatTheSetDoes) {
    vn::stamps stamps;
    EXPECT_EQ(stamps.text().view(), "{}");
    stamps.add(1, 0.25);
    stamps.add(2, 0.5);
    EXPECT_EQ(stamps.text().view(), "{1:0.250000, 2:0.500000}");
    EXPECT_TRUE(stamps.replace(2, 0.75));
    EXPECT_FALSE(stamps.replace(3));
    EXPECT_EQ(stamps.find(2), 0.75);
    vn::stamps copy = stamps.copy();
    EXPECT_EQ(stamps.take(2), 0.75);
    EXPECT_EQ(stamps.size(), 1U);
    const std::optional<TimeStamp> first = stamps.take_first();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->stage, 1U);
    EXPECT_EQ(first->time, 0.25);
    EXPECT_FALSE(stamps.take_first());
    EXPECT_EQ(copy.size(), 2U);
    stamps = std::move(copy);
    EXPECT_TRUE(stamps.replace(1));
    EXPECT_GT(stamps.find(1), 1e9);
    stamps.add(3);
    EXPECT_EQ(stamps.size(), 3U);
}

// ---- Threads ----

TEST(CppThread, RunsAndJoins) {
    int sum = 0;
    vn::mutex mutex;
    {
        auto owned = std::make_unique<int>(20);
        const vn::thread first([&sum, &mutex, owned = std::move(owned)] {
            const std::lock_guard<vn::mutex> lock(mutex);
            sum += *owned;
        });
        const vn::thread second([&] {
            const std::lock_guard<vn::mutex> lock(mutex);
            sum += 22;
        });
    }
    EXPECT_EQ(sum, 42);
}

TEST(CppThread, MovesAndEndsEarly) {
    bool ran = false;
    vn::thread thread([&ran] { ran = true; });
    vn::thread moved(std::move(thread));
    EXPECT_FALSE(thread.joinable());  // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(moved.joinable());
    thread = std::move(moved);
    thread.join();
    EXPECT_TRUE(ran);
    EXPECT_FALSE(thread.joinable());
    thread.join();
}

TEST(CppCondition, WakesAThreadThatWaits) {
    vn::mutex mutex;
    vn::condition condition;
    bool ready = false;
    const vn::thread waker([&] {
        const std::lock_guard<vn::mutex> lock(mutex);
        ready = true;
        condition.notify_one();
        condition.notify_all();
    });
    const std::unique_lock<vn::mutex> lock(mutex);
    condition.wait(mutex, [&ready] { return ready; });
    EXPECT_TRUE(ready);
}

TEST(CppSemaphore, TryWaitIsTrueWhenItIsTaken) {
    vn::semaphore semaphore(1);
    EXPECT_TRUE(semaphore.try_wait());
    EXPECT_FALSE(semaphore.try_wait());
    const vn::thread poster([&semaphore] { semaphore.post(); });
    semaphore.wait();
}

TEST(CppQueue, PassesElementsBetweenThreads) {
    constexpr int count = 20000;
    vn::queue<int> queue;
    const vn::thread producer([&queue] {
        for (int i = 0; i < count; ++i) {
            queue.push(i);
        }
    });
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(queue.pop(), i);
    }
}

// ---- Configuration and log ----

TEST(CppConfig, ShowsCategoriesAndEntries) {
    const TemporaryFolder folder;
    const std::string file = folder.write("conf", "first\n[hosts]\na\nb\n[empty]\n");
    std::optional<vn::config> config = vn::config::load(file.c_str());
    ASSERT_TRUE(config);
    EXPECT_EQ(config->size(), 3U);
    const auto hosts = config->find("hosts");
    ASSERT_TRUE(hosts);
    std::vector<std::string> names(hosts->begin(), hosts->end());
    EXPECT_THAT(names, ElementsAre("a", "b"));
    EXPECT_STREQ((*hosts)[1], "b");
    EXPECT_STREQ((*config->find(""))[0], "first");
    EXPECT_EQ(config->find("empty")->size(), 0U);
    EXPECT_FALSE(config->find("missing"));
    vn::config moved = std::move(*config);
    EXPECT_EQ(moved.size(), 3U);
}

TEST(CppConfig, IsNothingWithoutAReadableFile) {
    const TemporaryFolder folder;
    const std::string file = folder / "missing";
    setenv("HOME", folder.path().c_str(), 1);
    EXPECT_EQ(chdir(folder.path().c_str()), 0);
    EXPECT_FALSE(vn::config::load(file.c_str()));
    EXPECT_FALSE(vn::config::load());
    EXPECT_EQ(chdir("/"), 0);
}

TEST(CppLog, WritesLinesOfEveryLevel) {
    const TemporaryFolder folder;
    const std::string file = folder / "log";
    VN_LogSetup(VN_StringToLogLevel("TRACE"), file.c_str(), 1, 1);
    vn::log_trace("%d", 1);
    vn::log_debug("%d", 2);
    vn::log_info("%s", "3");
    vn::log_warn("%d", 4);
    vn::log_error("%d", 5);
    vn::log_fatal("%d", 6);
    vn::log_crit("%d", 7);
    vn::log_force("%d", 8);
    VN_LogSetup(VN_StringToLogLevel("INFO"), "stderr", 0, 1);
    vn::string_buffer text;
    ASSERT_FALSE(text.append_file(file.c_str()));
    EXPECT_THAT(std::string(text),
                testing::MatchesRegex(".* TRACE .* - 1\n.* DEBUG .* - 2\n.* INFO .* - 3\n"
                                      ".* WARN .* - 4\n.* ERROR .* - 5\n.* FATAL .* - 6\n"
                                      ".* CRIT .* - 7\n.* ##### .* - 8\n"));
    EXPECT_EQ(vn::log_info, &VN_LogInfo);  // no call in between
}

}  // namespace
