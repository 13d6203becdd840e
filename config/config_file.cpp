// Reader of the per-user configuration file: finds it, reads it line by line and keeps the
// entries in a HashMap from category name to Vector of text.
#include <vncommon/config_file.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vncommon/failure.h>
#include <vncommon/process.h>
#include <vncommon/strings.h>

#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr char defaultName[] = ".vantrel.conf";
constexpr char unnamedCategory[] = "";

// Not synchronised: one thread at a time loads and unloads.
VN_ConfigFile* Static_ConfigFile = nullptr;  // the process-wide configuration
char* ConfigFileName = nullptr;              // of the last load; empty after a failed search

// ---- Finding the file

struct OpenFile {
    FILE* stream = nullptr;
    char* name = nullptr;  // as it was opened, from the checked allocator
};

// Takes over the name.
OpenFile openNamed(char* name) {
    const OpenFile file{vn_openStreamUTF8(name, "r"), name};
    if (file.stream == nullptr) {
        vn_free(name);
        return {};
    }
    return file;
}

OpenFile openInDirectory(const char* directory) {
    VN_ASSERT(directory != nullptr);
    auto* path = static_cast<char*>(vn_malloc(strlen(directory) + 1 + sizeof defaultName));
    stpcpy(stpcpy(stpcpy(path, directory), "/"), defaultName);
    return openNamed(path);
}

OpenFile openFirst(const char* fileName) {
    OpenFile file;
    if (fileName != nullptr) {
        file = openNamed(vn_strdup(fileName));
    }
    if (file.stream == nullptr) {
        file = openNamed(vn_strdup(defaultName));
    }
    if (file.stream == nullptr) {
        const char* home = getenv("HOME");
        const char* directory = home != nullptr ? home : getenv("VANTREL_HOME");
        file = directory != nullptr ? openInDirectory(directory) : OpenFile{};
    }
    return file;
}

// ---- Reading lines

// Returns the lines of a stream, each with its line feed, in a buffer that the caller may change.
// There is always one more writable byte after a line.
class WritableLines {
  public:
    explicit WritableLines(FILE* source)
        : stream_(source), buffer_(static_cast<char*>(vn_malloc(initialCapacity + 1))) {}
    ~WritableLines() { vn_free(buffer_); }
    WritableLines(const WritableLines&) = delete;
    WritableLines& operator=(const WritableLines&) = delete;

    // The next line, up to *end, or null after the last. The caller may change the byte at *end
    // but must restore it. If reading fails, the part of the last line that was read is dropped,
    // and nothing more is read.
    char* next(char** end) {
        VN_ASSERT(isValid());
        size_t searched = begin_;
        for (;;) {
            void* feed = memchr(buffer_ + searched, '\n', filled_ - searched);
            if (feed != nullptr) {
                *end = static_cast<char*>(feed) + 1;
                return takeLine(*end);
            }
            const size_t seen = filled_ - begin_;
            if (ferror(stream_) != 0 || !refill()) {
                break;
            }
            searched = begin_ + seen;
        }
        if (begin_ == filled_ || ferror(stream_) != 0) {
            return nullptr;
        }
        *end = buffer_ + filled_;
        return takeLine(*end);
    }

  private:
    bool isValid() const {
        return stream_ != nullptr && buffer_ != nullptr && begin_ <= filled_ &&
               filled_ <= capacity_;
    }

    char* takeLine(const char* end) {
        char* line = buffer_ + begin_;
        begin_ = static_cast<size_t>(end - buffer_);
        VN_ASSERT(isValid() && line < end);
        return line;
    }

    // Moves the unfinished line to the front, makes room if it fills the buffer, and reads on.
    bool refill() {
        memmove(buffer_, buffer_ + begin_, filled_ - begin_);
        filled_ -= begin_;
        begin_ = 0;
        if (filled_ == capacity_) {
            capacity_ *= 2;
            buffer_ = static_cast<char*>(vn_realloc(buffer_, capacity_ + 1));
        }
        const size_t count = fread(buffer_ + filled_, 1, capacity_ - filled_, stream_);
        filled_ += count;
        VN_ASSERT(isValid());
        buffer_[filled_] = '\0';
        return count > 0;
    }

    static constexpr size_t initialCapacity = size_t{64} * 1024;
    FILE* stream_;
    char* buffer_;
    size_t capacity_ = initialCapacity;
    size_t begin_ = 0;   // start of the bytes that were not returned yet
    size_t filled_ = 0;  // end of the bytes that were read
};

// ---- Lines

// Resolves quotes and escapes in place; returns the new end. `from` is the first byte that is not
// plain text. A NUL ends the line at any position.
char* resolveQuotes(char* from, const char* end) {
    bool escaped = false;
    bool inSingle = false;
    bool inDouble = false;
    char* to = from;
    for (; from != end && *from != '\0'; ++from) {
        const char c = *from;
        if (escaped) {
            escaped = false;
            *to++ = c;
        } else if (c == '\\') {
            escaped = true;
        } else if (c == '"' && !inSingle) {
            inDouble = !inDouble;
        } else if (c == '\'' && !inDouble) {
            inSingle = !inSingle;
        } else if (c != '\n' || inSingle || inDouble) {
            *to++ = c;
        }
    }
    VN_ASSERT(to <= from && from <= end);
    return to;
}

// Most lines are plain text up to their line feed; strcspn is a fast check for that.
void addEntry(Vector* category, char* line, char* end) {
    char* entryEnd = line + strcspn(line, "\n\\\"'");
    if (entryEnd != end && *entryEnd != '\n' && *entryEnd != '\0') {
        entryEnd = resolveQuotes(entryEnd, end);
    }
    if (entryEnd == line) {
        return;
    }
    VN_ASSERT(line < entryEnd && entryEnd <= end);
    const char savedByte = *entryEnd;
    *entryEnd = '\0';
    vn_Vector_add(category, line);
    *entryEnd = savedByte;
}

// Cuts the line down to the category's name.
char* categoryName(char* line, char* end) {
    *end = '\0';
    if (char* bracket = strchr(line, ']'); bracket != nullptr) {
        *bracket = '\0';
    }
    VN_ASSERT(*line == '[');
    vn_rtrim(line);
    return line + 1;
}

// ---- The table of categories

void* insertEntry(void* entry) {
    return vn_strdup(static_cast<const char*>(entry));
}

void* removeEntry(void* entry) {
    vn_free(entry);
    return nullptr;
}

void insertCategory(HashMapEntry* entry, void* key, void* value) {
    entry->key = vn_strdup(static_cast<const char*>(key));
    entry->value = value;
}

void* removeCategory(HashMapEntry* entry) {
    vn_free(entry->key);
    vn_Vector_dtor(static_cast<Vector*>(entry->value));
    entry->key = nullptr;
    entry->value = nullptr;
    return nullptr;
}

// The category with that name; created if there is none yet.
Vector* findOrCreateCategory(HashMap* categories, const char* name) {
    auto* category = static_cast<Vector*>(vn_HashMap_findValue(categories, name));
    if (category == nullptr) {
        category = vn_Vector_ctor(vn_String_compare, insertEntry, removeEntry, 0, 1);
        VN_ASSERT(category != nullptr);
        vn_HashMap_addQuick(categories, const_cast<char*>(name), category);
    }
    return category;
}

void readLines(FILE* stream, HashMap* categories) {
    Vector* current = findOrCreateCategory(categories, unnamedCategory);
    WritableLines lines(stream);
    char* end;
    while (char* line = lines.next(&end)) {
        if (*line == '[') {
            const char savedByte = *end;
            current = findOrCreateCategory(categories, categoryName(line, end));
            *end = savedByte;
        } else if (*line != '#') {
            addEntry(current, line, end);
        }
    }
}

// ---- Handles

// Replaces the name of the last load; takes over the new one.
void rememberName(char* name) {
    VN_ASSERT(name != nullptr);
    vn_free(ConfigFileName);
    ConfigFileName = name;
}

[[maybe_unused]] bool isValid(const VN_ConfigFile* config) {
    return config != nullptr && config->categories != nullptr;
}

[[maybe_unused]] bool isValid(const VN_ConfigFileCategory* category) {
    return category != nullptr && category->entries != nullptr;
}

VN_ConfigFileCategory* makeCategory(Vector* entries, uint32_t cursor) {
    auto* category = static_cast<VN_ConfigFileCategory*>(vn_malloc(sizeof(VN_ConfigFileCategory)));
    category->entries = entries;
    category->cursor = cursor;
    VN_ASSERT(isValid(category));
    return category;
}

// A handle for the category at the cursor, or null past the last. It is positioned past its
// entries.
VN_ConfigFileCategory* categoryAtCursor(const VN_ConfigFile* config) {
    auto* entries = static_cast<Vector*>(vn_HashMapIterator_value(config->iterator));
    return entries != nullptr ? makeCategory(entries, vn_Vector_size(entries)) : nullptr;
}

const char* entryAtCursor(const VN_ConfigFileCategory* category) {
    return static_cast<const char*>(vn_Vector_get(category->entries, category->cursor));
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

const char* VN_ConfigFile_Load(const char* fileName, VN_ConfigFile** out) {
    VN_ASSERT(Static_ConfigFile == nullptr || ConfigFileName != nullptr);
    if (out == nullptr && Static_ConfigFile != nullptr) {
        return ConfigFileName;
    }
    auto* config = static_cast<VN_ConfigFile*>(vn_malloc(sizeof(VN_ConfigFile)));
    config->categories = nullptr;
    config->iterator = nullptr;
    (out != nullptr ? *out : Static_ConfigFile) = config;

    const OpenFile file = openFirst(fileName);
    if (file.stream == nullptr) {
        // Compat: *out keeps pointing to the freed handle, and a configuration loaded earlier is
        // dropped without being freed; callers hold pointers into it.
        rememberName(vn_strdup(""));
        vn_free(config);
        Static_ConfigFile = nullptr;
        return nullptr;
    }
    rememberName(file.name);
    config->categories =
        vn_HashMap_ctor(vn_String_hash, vn_String_compare, insertCategory, removeCategory, 0, 1);
    VN_ASSERT(isValid(config));
    readLines(file.stream, config->categories);
    const bool complete = feof(file.stream) != 0;
    fclose(file.stream);
    return complete ? ConfigFileName : nullptr;
}

void VN_ConfigFile_Unload(void) {
    if (Static_ConfigFile == nullptr) {
        return;
    }
    VN_ASSERT(isValid(Static_ConfigFile));
    vn_HashMap_dtor(Static_ConfigFile->categories);
    vn_free(Static_ConfigFile);  // Compat: the category cursor stays, callers may hold it
    Static_ConfigFile = nullptr;
}

bool VN_ConfigFile_IsLoaded(void) {
    return Static_ConfigFile != nullptr;
}

VN_ConfigFile* VN_ConfigFile_Get(void) {
    return Static_ConfigFile;
}

uint32_t VN_ConfigFile_GetCategoryCount(VN_ConfigFile* config) {
    VN_ASSERT(isValid(config));
    return vn_HashMap_size(config->categories);
}

VN_ConfigFileCategory* VN_ConfigFile_GetFirstCategory(VN_ConfigFile* config) {
    VN_ASSERT(isValid(config));
    // Compat: an earlier cursor is not destroyed, callers may hold it.
    config->iterator = vn_HashMap_first(config->categories);
    return categoryAtCursor(config);
}

VN_ConfigFileCategory* VN_ConfigFile_GetNextCategory(VN_ConfigFile* config) {
    VN_ASSERT(isValid(config));
    return vn_HashMapIterator_next(config->iterator) ? categoryAtCursor(config) : nullptr;
}

VN_ConfigFileCategory* VN_ConfigFile_GetCategory(VN_ConfigFile* config, const char* name) {
    VN_ASSERT(isValid(config));
    auto* entries = static_cast<Vector*>(vn_HashMap_findValue(config->categories, name));
    return entries != nullptr ? makeCategory(entries, vn_Vector_size(entries) - 1) : nullptr;
}

void VN_ConfigFile_Release(VN_ConfigFile* config) {
    vn_HashMapIterator_dtor(config->iterator);
    vn_free(config);
}

uint32_t VN_ConfigFileCategory_GetEntryCount(VN_ConfigFileCategory* category) {
    VN_ASSERT(isValid(category));
    return vn_Vector_size(category->entries);
}

const char* VN_ConfigFileCategory_GetFirstEntry(VN_ConfigFileCategory* category) {
    VN_ASSERT(isValid(category));
    category->cursor = 0;
    return entryAtCursor(category);
}

const char* VN_ConfigFileCategory_GetNextEntry(VN_ConfigFileCategory* category) {
    VN_ASSERT(isValid(category));
    ++category->cursor;
    return entryAtCursor(category);
}

void VN_ConfigFileCategory_Release(VN_ConfigFileCategory* category) {
    vn_free(category);
}
