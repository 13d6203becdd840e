/** @file
 * The library for C++17 programs: owning handles and typed containers over the C interface.
 *
 * Everything here is inline and only calls the C functions, so it costs what they cost, and the
 * library's binary interface stays C. Each class has get(), which returns the C object for every
 * operation that has no member here; release(), where it exists, also transfers ownership.
 *
 * Failures. Nothing here throws, and the header compiles with -fno-exceptions. Functions that fail
 * with a message return a vn::error, which holds the message, or nothing on success; it can also
 * hold the results of C functions (sockets, files, dynamic libraries). A value that may only be
 * missing is a std::optional. Exhausted memory and broken preconditions end the process (api.h,
 * convention 5).
 *
 * Cancellation. A thread may be cancelled (pthread_cancel) while it waits in queue::pop,
 * semaphore::wait or condition::wait. In functions that are noexcept, and in the function of a
 * vn::thread, cancellation ends the process.
 *
 * Objects can be moved unless their comment says otherwise. One that was moved from can only be
 * assigned to and destroyed. Strings that are passed in are UTF-8, terminated and not null unless a
 * comment says otherwise. Thread safety is that of the C family, by default one thread at a time.
 *
 * Since 1.1.
 */
#ifndef VNCOMMON_VNCOMMON_HPP
#define VNCOMMON_VNCOMMON_HPP

#include <vncommon/vncommon.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace vn {

/** @name Handles
 * Owners of what the C functions allocate, for code that works with the C objects directly. */
/** @{ */

/** Destroys an object with its function of the C interface. */
template <auto Function>
struct ender {
    template <class T>
    void operator()(T* object) const noexcept {
        Function(object);
    }
};

/** Destroys a logger and its line buffer, which FileLogger_dtor does not free. */
struct file_logger_ender {
    void operator()(FileLogger* logger) const noexcept {
        char* buffer = logger->buffer;
        FileLogger_dtor(logger);
        vn_free(buffer);
    }
};

/** Destroys a private configuration and its categories, which VN_ConfigFile_Release does not
 *  free. */
struct config_ender {
    void operator()(VN_ConfigFile* config) const noexcept {
        HashMap* categories = config->categories;
        VN_ConfigFile_Release(config);
        vn_HashMap_dtor(categories);
    }
};

using vector_handle = std::unique_ptr<Vector, ender<vn_Vector_dtor>>;
using hash_map_handle = std::unique_ptr<HashMap, ender<vn_HashMap_dtor>>;
using hash_map_iterator_handle = std::unique_ptr<HashMapIterator, ender<vn_HashMapIterator_dtor>>;
using event_handle = std::unique_ptr<VN_EventWriter, ender<VN_EventWriter_dtor>>;
using stamps_handle = std::unique_ptr<VN_TimestampSet, ender<VN_TimestampSet_dtor>>;
using config_handle = std::unique_ptr<VN_ConfigFile, config_ender>;
using category_handle =
    std::unique_ptr<VN_ConfigFileCategory, ender<VN_ConfigFileCategory_Release>>;
using environment_handle = std::unique_ptr<char*, ender<vn_freeEnvironUTF8>>;
using file_logger_handle = std::unique_ptr<FileLogger, file_logger_ender>;
/** @} */

/** @name Strings and errors */
/** @{ */

/** A string that the library has allocated; freed with the object:
 *  `vn::string user(vn_getUTF8UserName());` */
class string {
  public:
    string() = default;
    explicit string(char* owned) noexcept : text_(owned) {}

    /** Whether there is a string. */
    explicit operator bool() const noexcept { return text_ != nullptr; }
    /** The string; "" if there is none. */
    const char* c_str() const noexcept { return text_ ? text_.get() : ""; }
    std::string_view view() const noexcept { return c_str(); }
    operator std::string_view() const noexcept { return view(); }
    /** Transfers the string to the caller, who frees it with vn_free; null if there is none. */
    [[nodiscard]] char* release() noexcept { return text_.release(); }

  private:
    std::unique_ptr<char, ender<vn_free>> text_;
};

/** The result of a call that reports failures as a message: true if it failed.
 *  `vn::error failed(vn_socketConnect(host, port, &fd));` */
class [[nodiscard]] error : public string {
  public:
    using string::string;
};

/** A growable string (buffers.h). A moved-from buffer is empty and can be used. For formats:
 *  `vn_strbufAppendFormat(buffer.get(), "%d", 5)`, which the compiler checks. */
class string_buffer {
  public:
    explicit string_buffer(std::uint64_t capacity = 0) noexcept {
        vn_strbufInit(&buffer_, capacity);
    }
    string_buffer(string_buffer&& other) noexcept : string_buffer() { swap(other); }
    string_buffer& operator=(string_buffer&& other) noexcept {
        string_buffer taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~string_buffer() { vn_strbufDestroy(&buffer_, 1); }

    /** Null appends "null". */
    string_buffer& append(const char* text) noexcept {
        vn_strbufAppendString(&buffer_, text);
        return *this;
    }
    /** Appends as many characters as the view has; those after its first NUL become NULs. */
    string_buffer& append(std::string_view text) noexcept {
        if (!text.empty()) {
            vn_strbufAppendStringN(&buffer_, text.data(), text.size());
        }
        return *this;
    }
    string_buffer& append(char character) noexcept {
        vn_strbufAppendChar(&buffer_, character);
        return *this;
    }
    string_buffer& append_escaped(const char* text) noexcept {
        vn_strbufAppendStringEscape(&buffer_, text);
        return *this;
    }
    error append_file(const char* path) noexcept {
        return error(vn_strbufAppendFile(&buffer_, path));
    }

    const char* c_str() const noexcept { return buffer_.data; }
    std::uint64_t size() const noexcept { return buffer_.size; }
    std::string_view view() const noexcept { return {buffer_.data, buffer_.size}; }
    operator std::string_view() const noexcept { return view(); }
    void truncate(std::uint64_t size) noexcept { vn_strbufTruncate(&buffer_, size); }
    CStringBuffer* get() noexcept { return &buffer_; }

    /** Returns the string; the buffer is empty afterwards. */
    string take() noexcept {
        string text(buffer_.data);
        vn_strbufDestroy(&buffer_, 0);
        vn_strbufInit(&buffer_, 0);
        return text;
    }
    void swap(string_buffer& other) noexcept { std::swap(buffer_, other.buffer_); }

  private:
    CStringBuffer buffer_;
};
/** @} */

/** @cond */
namespace detail {

/* Whether T fits into one element of a Vector or one key or value of a HashMap. */
template <class T>
inline constexpr bool is_word =
    std::conjunction_v<std::is_trivially_copyable<T>, std::is_default_constructible<T>> &&
    sizeof(T) <= sizeof(void*);

/* Where a T is in a word: in its low bytes, where the C functions read a character or a boolean. */
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
template <class T>
inline constexpr std::size_t low_bytes = sizeof(void*) - sizeof(T);
#else
template <class T>
inline constexpr std::size_t low_bytes = 0;
#endif

template <class T>
void* to_word(T value) noexcept {
    void* word = nullptr;
    std::memcpy(reinterpret_cast<char*>(&word) + low_bytes<T>, &value, sizeof value);
    return word;
}

template <class T>
T from_word(const void* word) noexcept {
    T value;
    std::memcpy(&value, reinterpret_cast<const char*>(&word) + low_bytes<T>, sizeof value);
    return value;
}

/* The next power of two, at most 2^31. A map of another size leaves most of its buckets unused. */
constexpr std::uint32_t power_of_two(std::uint32_t size) noexcept {
    std::uint32_t power = 1;
    while (power < size && power < std::uint32_t{1} << 31) {
        power *= 2;
    }
    return power;
}

/* How a map treats its keys: as words, unless specialised. */
template <class K>
struct key {
    static_assert(is_word<K> && std::has_unique_object_representations_v<K>,
                  "a key is an integer, a pointer, an enumeration, const char* or std::string");
    using argument = K;
    static constexpr bool owned = false;
    static constexpr vn_HashMapHash hash = nullptr;
    static constexpr vn_HashMapCompare compare = nullptr;
    static constexpr vn_HashMapFill fill = nullptr;
    static constexpr vn_HashMapRelease release = nullptr;
};

template <>
struct key<const char*> {
    using argument = const char*;
    static constexpr bool owned = false;
    static constexpr vn_HashMapHash hash = vn_String_hash;
    static constexpr vn_HashMapCompare compare = vn_String_compare;
    static constexpr vn_HashMapFill fill = nullptr;
    static constexpr vn_HashMapRelease release = nullptr;
};

template <>
struct key<std::string> : key<const char*> {
    static constexpr bool owned = true;
    static void copy(HashMapEntry* entry, void* text, void* value) noexcept {
        entry->key = vn_strdup(static_cast<const char*>(text));
        entry->value = value;
    }
    static void* forget(HashMapEntry* entry) noexcept {
        vn_free(entry->key);
        return nullptr;
    }
    static constexpr vn_HashMapFill fill = copy;
    static constexpr vn_HashMapRelease release = forget;
};

/* Calls vn_threadInit, which must precede conditions, semaphores, queues and threads. */
inline void init_threads() noexcept {
    [[maybe_unused]] static const bool done = (vn_threadInit(), true);
}

/* A base for classes that cannot be copied or moved. */
struct pinned {
    pinned() = default;
    pinned(const pinned&) = delete;
    pinned& operator=(const pinned&) = delete;
};

}  // namespace detail
/** @endcond */

/** @name Containers */
/** @{ */

/** A growable array of words (vector.h): T is trivially copyable and at most eight bytes, such as
 *  an integer, a double or a pointer, which the vector does not own. Elements are read by value. */
template <class T>
class vector {
    static_assert(detail::is_word<T>, "an element is trivially copyable and of at most 8 bytes");

  public:
    /** Walks the elements; invalidated by every change of the vector. */
    class iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = T;

        explicit iterator(void* const* at) noexcept : at_(at) {}
        T operator*() const noexcept { return detail::from_word<T>(*at_); }
        iterator& operator++() noexcept {
            ++at_;
            return *this;
        }
        iterator operator++(int) noexcept { return iterator(at_++); }
        bool operator==(iterator other) const noexcept { return at_ == other.at_; }
        bool operator!=(iterator other) const noexcept { return at_ != other.at_; }

      private:
        void* const* at_;
    };

    explicit vector(std::uint32_t capacity = 0, bool shrink = false) noexcept
        : vector_(vn_Vector_ctor(nullptr, nullptr, nullptr, capacity, shrink)) {}

    std::uint32_t size() const noexcept { return vector_->size; }
    bool empty() const noexcept { return vector_->size == 0; }
    void push_back(T value) noexcept { vn_Vector_add(get(), detail::to_word(value)); }
    /** The element; index is below size(). */
    T operator[](std::uint32_t index) const noexcept {
        return detail::from_word<T>(vector_->data[index]);
    }
    /** Replaces an element; does nothing when index is not below size(). */
    void set(std::uint32_t index, T value) noexcept {
        vn_Vector_set(get(), index, detail::to_word(value));
    }
    /** Removes the element; the last one moves into its place. index is below size(). */
    T remove(std::uint32_t index) noexcept {
        return detail::from_word<T>(vn_Vector_remove(get(), index));
    }
    void clear() noexcept { vn_Vector_clear(get()); }
    iterator begin() const noexcept { return iterator(vector_->data); }
    iterator end() const noexcept { return iterator(vector_->data + vector_->size); }
    Vector* get() const noexcept { return vector_.get(); }

  private:
    vector_handle vector_;
};

/** A map (hashmap.h). V is a word, as in vn::vector. K is one of
 *   - an integer, an enumeration or a pointer, compared by value: the fastest;
 *   - const char*: a string, compared by content, that must live as long as it is in the map;
 *   - std::string: the same, but the map keeps its own copy. Operations take a const char*.
 *
 *  Pass the expected size, of which the next power of two is used: a map that outgrows its size
 *  copies its entries repeatedly. */
template <class K, class V>
class hash_map {
    static_assert(detail::is_word<V>, "a value is trivially copyable and of at most 8 bytes");
    using keys = detail::key<K>;

  public:
    using key_type = typename keys::argument;

    /** Walks the entries; invalidated by every change of the map. */
    class iterator {
      public:
        explicit iterator(HashMapIterator* owned) noexcept : at_(owned) {}
        std::pair<key_type, V> operator*() const noexcept {
            return {detail::from_word<key_type>(vn_HashMapIterator_key(at_.get())),
                    detail::from_word<V>(vn_HashMapIterator_value(at_.get()))};
        }
        iterator& operator++() noexcept {
            vn_HashMapIterator_next(at_.get());
            return *this;
        }
        /** Whether there is an entry here; the comparison with end() exists for range-for only. */
        bool operator!=(std::nullptr_t) const noexcept {
            return vn_HashMapIterator_valid(at_.get());
        }

      private:
        hash_map_iterator_handle at_;
    };

    explicit hash_map(std::uint32_t size = 16, bool shrink = false) noexcept
        : map_(vn_HashMap_ctor(keys::hash, keys::compare, keys::fill, keys::release,
                               detail::power_of_two(size), shrink)) {}

    std::uint32_t size() const noexcept { return map_->count; }
    bool empty() const noexcept { return map_->count == 0; }
    /** Adds an entry. False, and nothing changes, when the key is present. */
    bool add(key_type key, V value) noexcept {
        return vn_HashMap_addQuick(get(), detail::to_word(key), detail::to_word(value)) != nullptr;
    }
    /** Adds an entry, or replaces the one with this key, which may be the map's own text. */
    void set(key_type key, V value) noexcept {
        if constexpr (keys::owned) {
            const string copy(vn_strdup(key));  // the map frees its own before it copies ours
            vn_HashMap_replace(get(), detail::to_word(copy.c_str()), detail::to_word(value));
        } else {
            vn_HashMap_replace(get(), detail::to_word(key), detail::to_word(value));
        }
    }
    bool contains(key_type key) const noexcept {
        return vn_HashMap_exists(get(), detail::to_word(key));
    }
    /** The value; all bytes zero (0, null, false) when the key is absent. */
    V value(key_type key) const noexcept {
        return detail::from_word<V>(vn_HashMap_findValue(get(), detail::to_word(key)));
    }
    /** The value, or nothing. Searches a second time if the value's bytes are all zero. */
    std::optional<V> find(key_type key) const noexcept {
        const void* word = vn_HashMap_findValue(get(), detail::to_word(key));
        if (word == nullptr && !contains(key)) {
            return std::nullopt;
        }
        return detail::from_word<V>(word);
    }
    /** Removes an entry and returns its value, or nothing when the key is absent. */
    std::optional<V> remove(key_type key) noexcept {
        if (map_->shrink) {  // vn_HashMap_findValueAndRemove keeps the size of the entry array
            const std::optional<V> value = find(key);
            vn_HashMap_remove(get(), detail::to_word(key));
            return value;
        }
        HashMapEntry* entry = vn_HashMap_findValueAndRemove(get(), detail::to_word(key));
        if (entry == nullptr) {
            return std::nullopt;
        }
        if constexpr (keys::owned) {
            keys::release(entry);
        }
        return detail::from_word<V>(entry->value);
    }
    void clear() noexcept {
        if constexpr (keys::owned) {
            vn_HashMap_removeAll(get());
        } else {
            vn_HashMap_clear(get());
        }
    }

    /** Entries in the order of the buckets: `for (auto [key, value] : map)`. */
    iterator begin() const noexcept { return iterator(vn_HashMap_first(get())); }
    std::nullptr_t end() const noexcept { return nullptr; }
    HashMap* get() const noexcept { return map_.get(); }

  private:
    hash_map_handle map_;
};

/** A FIFO queue between threads (queue.h). T is trivially copyable and of at most 24 bytes.
 *  Any number of threads; cannot be moved. */
template <class T>
class queue : detail::pinned {
    static_assert(std::is_trivially_copyable_v<T> && std::is_default_constructible_v<T> &&
                      sizeof(T) <= sizeof(vn_qtsElement),
                  "an element is trivially copyable and of at most 24 bytes");

  public:
    /** 0 for no limit. */
    explicit queue(std::uint32_t limit = 0) noexcept {
        detail::init_threads();
        vn_qtsInit(&queue_, limit);
    }
    ~queue() { vn_qtsDestroy(&queue_); }

    /** False when the queue is full; always true without a limit. */
    bool push(const T& value) noexcept {
        vn_qtsElement element = {};
        std::memcpy(&element, &value, sizeof value);
        return vn_qtsAdd(&queue_, &element) == 0;
    }
    /** The oldest element; waits for one. */
    T pop() {
        vn_qtsElement element;
        vn_qtsRemove(&queue_, &element);
        return value_of(element);
    }
    /** The oldest element, or nothing when there is none now. */
    std::optional<T> try_pop() noexcept {
        vn_qtsElement element;
        if (vn_qtsRemoveNB(&queue_, &element) != 0) {
            return std::nullopt;
        }
        return value_of(element);
    }
    std::uint32_t size() noexcept { return vn_qtsSize(&queue_); }
    vn_qtsQueue* get() noexcept { return &queue_; }

  private:
    static T value_of(const vn_qtsElement& element) noexcept {
        T value;
        std::memcpy(&value, &element, sizeof value);
        return value;
    }
    vn_qtsQueue queue_;
};
/** @} */

/** @name Events and timestamps */
/** @{ */

/** A decimal value (numbers.h), for vn::event. */
struct decimal {
    std::uint64_t bits;
};

/** A string that an event shows unchanged, without quotes. */
struct unformatted {
    const char* text;
};

class event;

/** @cond */
namespace detail {

struct event_value {
    std::uint32_t kind;
    void* payload;
};
inline event_value to_event_value(event&& child) noexcept;

template <class T>
event_value to_event_value(const T& value) noexcept {
    if constexpr (std::is_same_v<T, bool>) {
        return {VN_EventKind_Boolean, to_word(value)};
    } else if constexpr (std::is_same_v<T, char>) {
        return {VN_EventKind_Character, to_word(value)};
    } else if constexpr (std::is_integral_v<T>) {
        return {VN_EventKind_Integer, VN_EventPayload_ofInt(static_cast<std::int64_t>(value))};
    } else if constexpr (std::is_floating_point_v<T>) {
        return {VN_EventKind_Float, VN_EventPayload_ofFloat(static_cast<double>(value))};
    } else if constexpr (std::is_same_v<T, decimal>) {
        return {VN_EventKind_Decimal, to_word(value.bits)};
    } else if constexpr (std::is_same_v<T, unformatted>) {
        return {VN_EventKind_Unformatted, to_word(value.text)};
    } else if constexpr (std::is_convertible_v<const T&, const char*>) {
        return {VN_EventKind_String, to_word(static_cast<const char*>(value))};
    } else {
        static_assert(!std::is_same_v<T, event>, "a child passes to its parent: use std::move");
        return {VN_EventKind_String, to_word(value.c_str())};
    }
}

}  // namespace detail
/** @endcond */

/** Builds an event, a sequence or a dictionary and writes it as text (event_writer.h):
 *
 *      vn::event("Tick").add("ACME").add(12.5).text()       Tick("ACME",12.5)
 *      vn::event("Book").add(vn::sequence().add(1).add(2)).text()       Book([1,2])
 *
 *  Values are bool, char, integers (stored as signed 64 bits), floating-point numbers, vn::decimal,
 *  vn::unformatted, strings (const char*, where null counts as "", or anything with c_str(), up to
 *  the first NUL) and other events, which are moved in. Strings are copied.
 *  To add an `any` or an `optional`, pass get() to the C functions. */
class event {
  public:
    explicit event(const char* name) noexcept : event(VN_EventKind_Event, name) {}

    /** Adds a field or an element. */
    template <class T>
    event& add(T&& value) & noexcept {
        const detail::event_value word = detail::to_event_value(std::forward<T>(value));
        VN_EventWriter_addValue(get(), word.kind, word.payload);
        return *this;
    }
    /** Adds an entry of a dictionary. */
    template <class K, class V>
    event& add(K&& key, V&& value) & noexcept {
        const detail::event_value name = detail::to_event_value(std::forward<K>(key));
        const detail::event_value word = detail::to_event_value(std::forward<V>(value));
        VN_EventWriter_addDictValue(get(), name.kind, name.payload, word.kind, word.payload);
        return *this;
    }
    /** The same, for chains that begin with a temporary. */
    template <class... T>
    event&& add(T&&... values) && noexcept {
        return std::move(add(std::forward<T>(values)...));
    }
    string text() const noexcept { return string(VN_EventWriter_toString(get())); }
    VN_EventWriter* get() const noexcept { return writer_.get(); }
    [[nodiscard]] VN_EventWriter* release() noexcept { return writer_.release(); }

  private:
    friend event sequence() noexcept;
    friend event dictionary() noexcept;
    event(std::uint32_t kind, const char* name) noexcept
        : writer_(VN_EventWriter_ctor(kind, name)) {}

    event_handle writer_;
};

/** An empty sequence: [element,element]. */
inline event sequence() noexcept {
    return event(VN_EventKind_Sequence, nullptr);
}

/** An empty dictionary: {key:value,key:value}. */
inline event dictionary() noexcept {
    return event(VN_EventKind_Dictionary, nullptr);
}

/** @cond */
inline detail::event_value detail::to_event_value(event&& child) noexcept {
    const std::uint32_t kind = child.get()->kind;
    return {kind, child.release()};
}
/** @endcond */

/** Times at which an event passed each numbered stage (timestamp_set.h), in seconds since 1970. */
class stamps {
  public:
    stamps() noexcept : set_(VN_TimestampSet_ctor()) {}

    /** Appends an entry with the current, or the given, time. */
    void add(std::uint64_t stage) noexcept { VN_TimestampSet_addNow(get(), stage); }
    void add(std::uint64_t stage, double time) noexcept {
        VN_TimestampSet_addTime(get(), stage, time);
    }
    /** Sets the time of the stage's first entry; false when there is none. */
    bool replace(std::uint64_t stage) noexcept {
        return VN_TimestampSet_replaceWithNow(get(), stage) != nullptr;
    }
    bool replace(std::uint64_t stage, double time) noexcept {
        return VN_TimestampSet_replace(get(), stage, time) != nullptr;
    }
    /** The time of the stage's first entry, 0.0 when there is none; take() also removes it. */
    double find(std::uint64_t stage) const noexcept {
        return VN_TimestampSet_findTime(get(), stage);
    }
    double take(std::uint64_t stage) noexcept {
        return VN_TimestampSet_findTimeAndRemove(get(), stage);
    }
    /** Removes the entry that was added first. */
    std::optional<TimeStamp> take_first() noexcept {
        TimeStamp stamp;
        if (!VN_TimestampSet_getNextStampAndRemove(get(), &stamp.stage, &stamp.time)) {
            return std::nullopt;
        }
        return stamp;
    }
    std::uint32_t size() const noexcept { return VN_TimestampSet_getSize(get()); }
    /** {1:1700000000.250000, 2:1700000000.500000} */
    string text() const noexcept { return string(VN_TimestampSet_toString(get())); }
    stamps copy() const noexcept { return stamps(VN_TimestampSet_copy(get())); }
    VN_TimestampSet* get() const noexcept { return set_.get(); }

  private:
    explicit stamps(VN_TimestampSet* owned) noexcept : set_(owned) {}
    stamps_handle set_;
};
/** @} */

/** @name Threads
 * vn_threadInit is called where it is needed. */
/** @{ */

/** A mutex (threads.h), for std::lock_guard and std::unique_lock. Cannot be moved. */
class mutex : detail::pinned {
  public:
    mutex() noexcept { vn_Mutex_init(&mutex_); }
    ~mutex() { vn_Mutex_destroy(&mutex_); }
    void lock() noexcept { vn_Mutex_lock(&mutex_); }
    void unlock() noexcept { vn_Mutex_unlock(&mutex_); }
    vn_Mutex* get() noexcept { return &mutex_; }

  private:
    vn_Mutex mutex_;
};

/** A condition variable (threads.h). Cannot be moved. */
class condition : detail::pinned {
  public:
    condition() noexcept {
        detail::init_threads();
        vn_Condition_init(&condition_);
    }
    ~condition() { vn_Condition_destroy(&condition_); }

    /** Waits until ready() is true. The caller holds the mutex, and ready runs under it. */
    template <class Ready>
    void wait(mutex& held, Ready ready) {
        while (!ready()) {
            vn_Condition_wait(&condition_, held.get());
        }
    }
    void notify_one() noexcept { vn_Condition_signal(&condition_); }
    void notify_all() noexcept { vn_Condition_broadcast(&condition_); }
    vn_Condition* get() noexcept { return &condition_; }

  private:
    vn_Condition condition_;
};

/** A counting semaphore (threads.h). Cannot be moved. */
class semaphore : detail::pinned {
  public:
    explicit semaphore(std::uint32_t count = 0) noexcept {
        detail::init_threads();
        vn_Semaphore_init(&semaphore_, count);
    }
    ~semaphore() { vn_Semaphore_destroy(&semaphore_); }
    void post() noexcept { vn_Semaphore_post(&semaphore_); }
    void wait() { vn_Semaphore_wait(&semaphore_); }
    /** True when the semaphore was taken: the opposite of vn_Semaphore_trywait. */
    [[nodiscard]] bool try_wait() noexcept { return !vn_Semaphore_trywait(&semaphore_); }
    vn_Semaphore* get() noexcept { return &semaphore_; }

  private:
    vn_Semaphore semaphore_;
};

/** A thread (threads.h), joined at the latest by the destructor. SIGINT and SIGHUP are blocked in
 *  it. An exception that leaves its function ends the process. */
class thread {
  public:
    thread() = default;
    template <class Function,
              class = std::enable_if_t<!std::is_same_v<std::decay_t<Function>, thread>>>
    explicit thread(Function&& function) {
        using task = std::decay_t<Function>;
        detail::init_threads();
        auto* owned = new (std::nothrow) task(std::forward<Function>(function));
        vn_checkMemory(owned);
        id_ = vn_createThread(run<task>, owned, false);
    }
    thread(thread&& other) noexcept : id_(std::exchange(other.id_, std::nullopt)) {}
    thread& operator=(thread&& other) noexcept {
        join();
        id_ = std::exchange(other.id_, std::nullopt);
        return *this;
    }
    ~thread() { join(); }

    bool joinable() const noexcept { return id_.has_value(); }
    /** Waits for the thread's end; does nothing without a thread. */
    void join() noexcept {
        if (id_) {
            vn_joinThread(*std::exchange(id_, std::nullopt));
        }
    }

  private:
    template <class Task>
    static void* run(void* owned) noexcept {
        std::unique_ptr<Task> task(static_cast<Task*>(owned));
        (*task)();
        return nullptr;
    }
    std::optional<vn_ThreadId> id_;
};
/** @} */

/** @name Configuration */
/** @{ */

/** One category of a vn::config, which owns the entries and must outlive it:
 *
 *      if (auto hosts = config.find("hosts")) {
 *          for (const char* host : *hosts) { ... }
 *      }
 */
class config_category {
  public:
    explicit config_category(VN_ConfigFileCategory* owned) noexcept : category_(owned) {}

    std::uint32_t size() const noexcept { return category_->entries->size; }
    /** An entry, in the order of the file; index is below size(). */
    const char* operator[](std::uint32_t index) const noexcept {
        return static_cast<const char*>(category_->entries->data[index]);
    }
    auto begin() const noexcept { return entry(category_->entries->data); }
    auto end() const noexcept { return entry(category_->entries->data + size()); }
    VN_ConfigFileCategory* get() const noexcept { return category_.get(); }

  private:
    using entry = vector<const char*>::iterator;
    category_handle category_;
};

/** A private configuration (config_file.h). */
class config {
  public:
    /** Reads file_name, or the first file that exists in the usual places. Returns nothing when no
     *  file could be opened; the process-wide configuration is then dropped, as in C. Also returns
     *  nothing when reading failed (a directory, for instance); what was read before then stays
     *  allocated, because both are a null result in C. */
    static std::optional<config> load(const char* file_name = nullptr) noexcept {
        VN_ConfigFile* loaded = nullptr;
        if (VN_ConfigFile_Load(file_name, &loaded) == nullptr) {
            return std::nullopt;
        }
        return config(loaded);
    }
    std::uint32_t size() const noexcept { return VN_ConfigFile_GetCategoryCount(get()); }
    /** The category of that name; "" is the one before the first header. */
    std::optional<config_category> find(const char* name) const noexcept {
        VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(get(), name);
        return category ? std::optional<config_category>(category) : std::nullopt;
    }
    VN_ConfigFile* get() const noexcept { return config_.get(); }

  private:
    explicit config(VN_ConfigFile* owned) noexcept : config_(owned) {}
    config_handle config_;
};
/** @} */

/** @name The log of the process
 * The functions of log.h under the names of this namespace: `vn::log_info("%d clients", n)`. The
 * compiler checks the arguments against the format. */
/** @{ */
using log_function = void (*)(const char* format, ...);
inline constexpr log_function log_trace VN_PRINTF(1, 2) = VN_LogTrace;
inline constexpr log_function log_debug VN_PRINTF(1, 2) = VN_LogDebug;
inline constexpr log_function log_info VN_PRINTF(1, 2) = VN_LogInfo;
inline constexpr log_function log_warn VN_PRINTF(1, 2) = VN_LogWarn;
inline constexpr log_function log_error VN_PRINTF(1, 2) = VN_LogError;
inline constexpr log_function log_fatal VN_PRINTF(1, 2) = VN_LogFatal;
inline constexpr log_function log_crit VN_PRINTF(1, 2) = VN_LogCrit;
inline constexpr log_function log_force VN_PRINTF(1, 2) = VN_LogForce;
/** @} */

}  // namespace vn

#endif
