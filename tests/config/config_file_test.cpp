#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vncommon/config_file.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Entries = std::vector<std::string>;
using Categories = std::map<std::string, Entries>;

// A temporary folder, removed with its contents.
class Folder {
  public:
    Folder() {
        char name[] = "/tmp/vn_config_XXXXXX";
        path = mkdtemp(name);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string write(const std::string& name, const std::string& content) const {
        const std::string file = path + "/" + name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }
    std::string subfolder(const std::string& name) const {
        std::filesystem::create_directory(path + "/" + name);
        return path + "/" + name;
    }

    std::string path;
};

// Destroys the category cursor, which the configuration does not free.
void endCursor(VN_ConfigFile* config) {
    vn_HashMapIterator_dtor(config->iterator);
    config->iterator = nullptr;
}

// Also frees what VN_ConfigFile_Release leaves allocated.
void destroy(VN_ConfigFile* config) {
    vn_HashMap_dtor(config->categories);
    VN_ConfigFile_Release(config);
}

Entries entriesOf(VN_ConfigFileCategory* category) {
    Entries entries;
    for (const char* entry = VN_ConfigFileCategory_GetFirstEntry(category); entry != nullptr;
         entry = VN_ConfigFileCategory_GetNextEntry(category)) {
        entries.push_back(entry);
    }
    EXPECT_EQ(VN_ConfigFileCategory_GetEntryCount(category), entries.size());
    return entries;
}

// Reads the entries through the interface, and the names from the map: no function returns them.
Categories categoriesOf(VN_ConfigFile* config) {
    Categories categories;
    HashMapIterator* iterator = vn_HashMap_first(config->categories);
    do {
        const char* name = static_cast<const char*>(vn_HashMapIterator_key(iterator));
        VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(config, name);
        categories[name] = entriesOf(category);
        VN_ConfigFileCategory_Release(category);
    } while (vn_HashMapIterator_next(iterator));
    vn_HashMapIterator_dtor(iterator);
    EXPECT_EQ(VN_ConfigFile_GetCategoryCount(config), categories.size());
    return categories;
}

// A file in memory, because thousands of small files on a disk are slow.
class MemoryFile {
  public:
    explicit MemoryFile(const std::string& content) : descriptor(memfd_create("config", 0)) {
        EXPECT_EQ(pwrite(descriptor, content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor); }

  private:
    int descriptor;
};

Categories load(const std::string& content) {
    const MemoryFile file(content);
    VN_ConfigFile* config = nullptr;
    EXPECT_STREQ(VN_ConfigFile_Load(file.name().c_str(), &config), file.name().c_str());
    const Categories categories = categoriesOf(config);
    destroy(config);
    return categories;
}

Entries unnamed(const std::string& content) {
    return load(content).at("");
}

// ---- The model: one state machine over the characters of one line at a time

class Model {
  public:
    static Categories parse(const std::string& content) {
        Model model;
        for (size_t begin = 0; begin < content.size();) {
            const size_t feed = content.find('\n', begin);
            const size_t end = feed == std::string::npos ? content.size() : feed + 1;
            model.line(content.substr(begin, end - begin).c_str());  // up to a NUL
            begin = end;
        }
        return model.categories;
    }

  private:
    void line(const std::string& text) {
        if (text.starts_with('[')) {
            header(text);
        } else if (!text.starts_with('#')) {
            entry(text);
        }
    }

    void header(const std::string& text) {
        std::string name = text.substr(0, text.find(']'));
        while (std::string(" \t\n\v\f\r").find(name.back()) != std::string::npos) {
            name.pop_back();
        }
        current = name.substr(1);
        categories[current];
    }

    void entry(const std::string& text) {
        std::string result;
        char quote = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\\') {
                if (++i < text.size()) {
                    result += text[i];
                }
            } else if (quote != 0 ? text[i] == quote : text[i] == '"' || text[i] == '\'') {
                quote = quote != 0 ? 0 : text[i];
            } else if (text[i] != '\n' || quote != 0) {
                result += text[i];
            }
        }
        if (!result.empty()) {
            categories[current].push_back(result);
        }
    }

    Categories categories{{"", {}}};
    std::string current;
};

std::string randomContent(std::mt19937& random) {
    static constexpr char bytes[] = "[]#\"\"''\\\\\\ \t\r\n\n\n\nab=\x80\xC3\xFF\0\v\f";
    std::string content(random() % 400, '\0');
    for (char& c : content) {
        c = bytes[random() % (sizeof bytes - 1)];
    }
    return content;
}

// Longer lines of the usual form, with lengths near the sizes of the reader's buffers.
std::string longContent(std::mt19937& random) {
    std::string content;
    const auto lines = random() % 30;
    for (size_t i = 0; i < lines; ++i) {
        const auto kind = random() % 10;
        const size_t length = kind == 0 ? 65000 + random() % 1100 : random() % 20000;
        std::string text(length, static_cast<char>('a' + random() % 26));
        if (!text.empty() && random() % 2 == 0) {
            text[random() % text.size()] = "\\\"'\r\0"[random() % 5];
        }
        content += (random() % 8 == 0 ? "[c" + std::to_string(random() % 20) + "]" : text) +
                   (random() % 20 == 0 ? "" : "\n");
    }
    return content;
}

}  // namespace

// ---- The format

TEST(ConfigFileFormat, EmptyFileHasTheUnnamedCategory) {
    EXPECT_EQ(load(""), (Categories{{"", {}}}));
    EXPECT_EQ(load("#\n# only\n#comments"), (Categories{{"", {}}}));
    EXPECT_EQ(load("\n\n\n"), (Categories{{"", {}}}));
}

TEST(ConfigFileFormat, ResolvesQuotesAndEscapes) {
    EXPECT_THAT(unnamed("path = \"/opt/my dir\"\n"), ElementsAre("path = /opt/my dir"));
    EXPECT_THAT(unnamed("say \\\"hi\\\"\n"), ElementsAre("say \"hi\""));
    EXPECT_THAT(unnamed("it\"'\"s\n"), ElementsAre("it's"));
    EXPECT_THAT(unnamed("'a\"b'\n"), ElementsAre("a\"b"));
    EXPECT_THAT(unnamed("a\\\\b\\x\n"), ElementsAre("a\\bx"));
    EXPECT_THAT(unnamed("'a\\'b'\n"), ElementsAre("a'b")) << "escapes hold inside quotes";
    EXPECT_THAT(unnamed("\"\"\n''\n"), IsEmpty());
}

TEST(ConfigFileFormat, LineFeedStaysWhenQuotedOrEscaped) {
    EXPECT_THAT(unnamed("end\\\nnext\n"), ElementsAre("end\n", "next"));
    EXPECT_THAT(unnamed("open \"quote\nnext\"\n"), ElementsAre("open quote\n", "next\n"));
    EXPECT_THAT(unnamed("\\\n"), ElementsAre("\n"));
    EXPECT_THAT(unnamed("'\n"), ElementsAre("\n"));
    EXPECT_THAT(unnamed("end\\"), ElementsAre("end"));
}

TEST(ConfigFileFormat, TrimsNothing) {
    EXPECT_THAT(unnamed("  # x\n"), ElementsAre("  # x"));
    EXPECT_THAT(unnamed("  \n\t\n"), ElementsAre("  ", "\t"));
    EXPECT_THAT(unnamed("a\r\n\r\nb"), ElementsAre("a\r", "\r", "b"));
    EXPECT_THAT(unnamed("a # b\n [x]\na # b\n"), ElementsAre("a # b", " [x]", "a # b"));
}

TEST(ConfigFileFormat, HeadersNameCategories) {
    EXPECT_EQ(load("[net]\nport 1\n"), (Categories{{"", {}}, {"net", {"port 1"}}}));
    EXPECT_EQ(load("[ net ]\nhost x\n[net]\n"),
              (Categories{{"", {}}, {" net", {"host x"}}, {"net", {}}}));
    EXPECT_EQ(load("[net\na"), (Categories{{"", {}}, {"net", {"a"}}}));
    EXPECT_EQ(load("[net \t\r\v\f\na"), (Categories{{"", {}}, {"net", {"a"}}}));
    EXPECT_EQ(load("[a]b]c\nd"), (Categories{{"", {}}, {"a", {"d"}}}));
    EXPECT_EQ(load("[a[b\nd"), (Categories{{"", {}}, {"a[b", {"d"}}}));
    EXPECT_EQ(load("[Net]\na\n[net]\nb"), (Categories{{"", {}}, {"Net", {"a"}}, {"net", {"b"}}}));
    EXPECT_EQ(load("[\"q\"]\na"), (Categories{{"", {}}, {"\"q\"", {"a"}}}));
}

TEST(ConfigFileFormat, RepeatedHeadersMerge) {
    EXPECT_EQ(load("0\n[a]\n1\n[b]\n2\n[a] again\n3\n[]\n4\n[  ]\n5\n"),
              (Categories{{"", {"0", "4", "5"}}, {"a", {"1", "3"}}, {"b", {"2"}}}));
    EXPECT_THAT(unnamed("x\nx\nx\n"), ElementsAre("x", "x", "x"));
}

TEST(ConfigFileFormat, NulHidesTheRestOfItsLine) {
    EXPECT_THAT(unnamed(std::string("ab\0cd\nef\n\0gh\nij", 15)), ElementsAre("ab", "ef", "ij"));
    EXPECT_THAT(unnamed(std::string("\"ab\0\n", 5)), ElementsAre("ab"));
    EXPECT_EQ(load(std::string("[ab \0c]\nx", 9)), (Categories{{"", {}}, {"ab", {"x"}}}));
}

TEST(ConfigFileFormat, AgreesWithTheModel) {
    std::mt19937 random(20);
    for (int i = 0; i < 3000; ++i) {
        const std::string content = randomContent(random);
        ASSERT_EQ(load(content), Model::parse(content)) << "file " << i;
    }
    for (int i = 0; i < 60; ++i) {
        const std::string content = longContent(random);
        ASSERT_EQ(load(content), Model::parse(content)) << "long file " << i;
    }
}

TEST(ConfigFileFormat, TakesLinesOfMegabytes) {
    std::string content = "[big]\n";
    content += std::string(3000000, 'x') + "\n'" + std::string(5000000, 'y') + "\nz\n";
    content += std::string(2000000, 'q');
    EXPECT_EQ(load(content), Model::parse(content));
}

TEST(ConfigFileFormat, ReadsWhatCannotBeMeasured) {
    const Folder folder;
    const std::string pipe = folder.path + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(pipe) << "a\n[b]\nc\n"; });
    VN_ConfigFile* config = nullptr;
    EXPECT_STREQ(VN_ConfigFile_Load(pipe.c_str(), &config), pipe.c_str());
    writer.join();
    EXPECT_EQ(categoriesOf(config), (Categories{{"", {"a"}}, {"b", {"c"}}}));
    destroy(config);
}

// The peak of the process's memory grows by at most four times the file.
VN_CHILD(tellsItsMemory) {
    std::string content;
    for (int line = 0; content.size() < 20'000'000; ++line) {
        content += line % 100 == 0 ? "[section]\n" : "name = a value of ordinary length\n";
    }
    const MemoryFile file(content);
    const double size = static_cast<double>(content.size());
    content = std::string();
    const auto peak = [] {
        rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        return static_cast<double>(usage.ru_maxrss) * 1024;
    };
    const double before = peak();  // includes the freed content, whose memory may be reused
    static VN_ConfigFile* config = nullptr;
    (void)VN_ConfigFile_Load(file.name().c_str(), &config);
    printf("%.2f", (peak() - before + size) / size);
    return 0;
}

TEST(ConfigFileMemory, StaysWithinFourTimesTheFile) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers multiply memory";
#endif
    const ChildResult child = runChild("tellsItsMemory");
    const double factor = atof(child.out.c_str());
    EXPECT_GT(factor, 1);
    EXPECT_LE(factor, 4);
}

// ---- Handles

TEST(ConfigFileWalk, GivesEachCategoryOnce) {
    const Folder folder;
    std::string content = "first\n";
    for (int i = 0; i < 40; ++i) {
        content += "[category " + std::to_string(i) + "]\nentry " + std::to_string(i) + "\n";
    }
    VN_ConfigFile* config = nullptr;
    (void)VN_ConfigFile_Load(folder.write("file", content).c_str(), &config);
    EXPECT_EQ(config->iterator, nullptr);
    EXPECT_EQ(VN_ConfigFile_GetNextCategory(config), nullptr) << "no walk has begun";
    EXPECT_EQ(VN_ConfigFile_GetCategoryCount(config), 41U);
    for (int round = 0; round < 2; ++round) {
        std::vector<Vector*> walked;
        for (VN_ConfigFileCategory* category = VN_ConfigFile_GetFirstCategory(config);
             category != nullptr; category = VN_ConfigFile_GetNextCategory(config)) {
            EXPECT_EQ(category->cursor, 1U) << "past its one entry";
            walked.push_back(category->entries);
            VN_ConfigFileCategory_Release(category);
        }
        std::vector<Vector*> expected;
        HashMapIterator* iterator = vn_HashMap_first(config->categories);
        do {
            expected.push_back(static_cast<Vector*>(vn_HashMapIterator_value(iterator)));
        } while (vn_HashMapIterator_next(iterator));
        vn_HashMapIterator_dtor(iterator);
        EXPECT_EQ(walked, expected);
        EXPECT_EQ(VN_ConfigFile_GetNextCategory(config), nullptr);
        endCursor(config);
    }
    destroy(config);
}

TEST(ConfigFileWalk, KeepsItsCursors) {
    const Folder folder;
    VN_ConfigFile* config = nullptr;
    (void)VN_ConfigFile_Load(folder.write("file", "a\nb\nc\n[empty]\n").c_str(), &config);
    EXPECT_EQ(VN_ConfigFile_GetCategory(config, "none"), nullptr);

    VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(config, "");
    EXPECT_EQ(category->cursor, 2U) << "one less than in a walk";
    EXPECT_EQ(VN_ConfigFileCategory_GetNextEntry(category), nullptr);
    EXPECT_STREQ(VN_ConfigFileCategory_GetFirstEntry(category), "a");
    EXPECT_STREQ(VN_ConfigFileCategory_GetNextEntry(category), "b");
    EXPECT_STREQ(VN_ConfigFileCategory_GetNextEntry(category), "c");
    EXPECT_EQ(VN_ConfigFileCategory_GetNextEntry(category), nullptr);
    EXPECT_EQ(VN_ConfigFileCategory_GetNextEntry(category), nullptr);
    EXPECT_STREQ(VN_ConfigFileCategory_GetFirstEntry(category), "a");
    VN_ConfigFileCategory_Release(category);

    category = VN_ConfigFile_GetCategory(config, "empty");
    EXPECT_EQ(category->cursor, UINT32_MAX);
    EXPECT_EQ(VN_ConfigFileCategory_GetEntryCount(category), 0U);
    EXPECT_EQ(VN_ConfigFileCategory_GetFirstEntry(category), nullptr);
    EXPECT_EQ(VN_ConfigFileCategory_GetNextEntry(category), nullptr);
    VN_ConfigFileCategory_Release(category);
    destroy(config);
}

// The caller owns the iterators: neither a new walk nor the end of the configuration frees them.
TEST(ConfigFileWalk, ANewWalkLeavesTheEarlierCursorToTheCaller) {
    const Folder folder;
    VN_ConfigFile* config = nullptr;
    (void)VN_ConfigFile_Load(folder.write("file", "a\n[b]\nb\n").c_str(), &config);
    VN_ConfigFileCategory_Release(VN_ConfigFile_GetFirstCategory(config));
    HashMapIterator* earlier = config->iterator;
    VN_ConfigFileCategory_Release(VN_ConfigFile_GetFirstCategory(config));
    VN_ConfigFileCategory_Release(VN_ConfigFile_GetNextCategory(config));
    EXPECT_NE(config->iterator, earlier);
    EXPECT_EQ(earlier->map, config->categories);
    EXPECT_NE(vn_HashMapIterator_value(earlier), vn_HashMapIterator_value(config->iterator));
    EXPECT_TRUE(vn_HashMapIterator_next(earlier));
    EXPECT_EQ(vn_HashMapIterator_value(earlier), vn_HashMapIterator_value(config->iterator));
    vn_HashMapIterator_dtor(earlier);
    destroy(config);
}

TEST(ConfigFileWalk, ReleaseLeavesTheCategories) {
    const Folder folder;
    VN_ConfigFile* config = nullptr;
    (void)VN_ConfigFile_Load(folder.write("file", "a\n").c_str(), &config);
    HashMap* categories = config->categories;
    VN_ConfigFileCategory* category = VN_ConfigFile_GetFirstCategory(config);
    VN_ConfigFile_Release(config);
    EXPECT_STREQ(VN_ConfigFileCategory_GetFirstEntry(category), "a");
    VN_ConfigFileCategory_Release(category);
    vn_HashMap_dtor(categories);
}

// Destroying one configuration does not change another one.
TEST(ConfigFileWalk, ThousandsOfEntriesComeAndGo) {
    const Folder folder;
    std::string content;
    Entries expected;
    for (int i = 0; i < 10'000; ++i) {
        expected.push_back("entry " + std::to_string(i) +
                           std::string(static_cast<size_t>(i % 60), 'x'));
        content += expected.back() + "\n";
    }
    const std::string name = folder.write("file", content);
    VN_ConfigFile* kept = nullptr;
    (void)VN_ConfigFile_Load(name.c_str(), &kept);
    for (int round = 0; round < 3; ++round) {
        VN_ConfigFile* config = nullptr;
        (void)VN_ConfigFile_Load(name.c_str(), &config);
        EXPECT_EQ(categoriesOf(config).at(""), expected);
        destroy(config);
        EXPECT_EQ(categoriesOf(kept).at(""), expected);
    }
    destroy(kept);
}

TEST(ConfigFileWalk, MapsAndVectorsAreBuiltAsCallersExpect) {
    const Folder folder;
    VN_ConfigFile* config = nullptr;
    (void)VN_ConfigFile_Load(folder.write("file", "a\n").c_str(), &config);
    EXPECT_EQ(config->categories->initialSize, 16U);
    EXPECT_TRUE(config->categories->shrink);
    EXPECT_EQ(config->categories->hash, vn_String_hash);
    EXPECT_EQ(config->categories->compare, vn_String_compare);
    VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(config, "");
    EXPECT_EQ(category->entries->initialCapacity, 0U);
    EXPECT_TRUE(category->entries->shrink);
    uint32_t index = 7;
    EXPECT_TRUE(vn_Vector_find(category->entries, "a", &index));
    EXPECT_EQ(index, 0U);
    VN_ConfigFileCategory_Release(category);
    destroy(config);
}

// ---- The process-wide configuration and the search

// Arguments: the file name, or "-" for null. Prints what was loaded, from where.
VN_CHILD(loadAndTell) {
    const char* name = arguments[0] == "-" ? nullptr : arguments[0].c_str();
    const char* loaded = VN_ConfigFile_Load(name, nullptr);
    printf("%s loaded=%d", loaded != nullptr ? loaded : "(null)", VN_ConfigFile_IsLoaded());
    if (VN_ConfigFile_IsLoaded()) {
        const Categories categories = categoriesOf(VN_ConfigFile_Get());
        for (const std::string& entry : categories.at("")) {
            printf(" %s", entry.c_str());
        }
    }
    return 0;
}

class ConfigFileSearch : public testing::Test {
  protected:
    std::string search(const std::string& argument, const std::optional<std::string>& homeValue,
                       const std::optional<std::string>& vantrelHomeValue) const {
        const ChildResult child =
            runChild("loadAndTell",
                     {.environment = {{"HOME", homeValue}, {"VANTREL_HOME", vantrelHomeValue}},
                      .arguments = {argument},
                      .workingDirectory = cwd});
        EXPECT_EQ(child.exitStatus, 0) << child.err;
        return child.out;
    }

    const Folder folder;
    const std::string cwd = folder.subfolder("cwd");
    const std::string home = folder.subfolder("home");
    const std::string other = folder.subfolder("other");
};

TEST_F(ConfigFileSearch, TakesTheFirstThatOpens) {
    const std::string named = folder.write("named.conf", "named\n");
    folder.write("cwd/.vantrel.conf", "cwd\n");
    folder.write("home/.vantrel.conf", "home\n");
    folder.write("other/.vantrel.conf", "other\n");
    EXPECT_EQ(search(named, home, other), named + " loaded=1 named");
    EXPECT_EQ(search(folder.path + "/missing", home, other), ".vantrel.conf loaded=1 cwd");
    EXPECT_EQ(search("", home, other), ".vantrel.conf loaded=1 cwd");
    std::filesystem::remove(cwd + "/.vantrel.conf");
    EXPECT_EQ(search("-", home, other), home + "/.vantrel.conf loaded=1 home");
    EXPECT_EQ(search("-", home + "/", other), home + "//.vantrel.conf loaded=1 home");
    EXPECT_EQ(search("-", std::nullopt, other), other + "/.vantrel.conf loaded=1 other");
    EXPECT_EQ(search(named, std::nullopt, std::nullopt), named + " loaded=1 named");
}

TEST_F(ConfigFileSearch, FailsWithoutAFile) {
    EXPECT_EQ(search("-", home, other), "(null) loaded=0");
    EXPECT_EQ(search("-", std::nullopt, std::nullopt), "(null) loaded=0");
    folder.write("other/.vantrel.conf", "other\n");
    EXPECT_EQ(search("-", home, other), "(null) loaded=0") << "HOME is set, so only HOME counts";
    EXPECT_EQ(search("-", "", other), "(null) loaded=0") << "set, though empty";
}

TEST_F(ConfigFileSearch, ReadErrorGivesNullAndKeepsTheConfiguration) {
    EXPECT_EQ(search(home, std::nullopt, std::nullopt), "(null) loaded=1");
    std::filesystem::create_directory(cwd + "/.vantrel.conf");
    folder.write("home/.vantrel.conf", "home\n");
    EXPECT_EQ(search("-", home, std::nullopt), "(null) loaded=1") << "a directory opens";
}

VN_CHILD(unloadsBesideACursor) {
    (void)VN_ConfigFile_Load(arguments[0].c_str(), nullptr);
    VN_ConfigFileCategory_Release(VN_ConfigFile_GetFirstCategory(VN_ConfigFile_Get()));
    HashMapIterator* cursor = VN_ConfigFile_Get()->iterator;
    const HashMapIterator before = *cursor;
    VN_ConfigFile_Unload();
    printf("%d %d", cursor->map == before.map, cursor->entry == before.entry);
    vn_HashMapIterator_dtor(cursor);
    return 0;
}

TEST_F(ConfigFileSearch, UnloadLeavesTheCursorToTheCaller) {
    const ChildResult child =
        runChild("unloadsBesideACursor", {.arguments = {folder.write("file.conf", "a\n")}});
    EXPECT_EQ(child.out, "1 1") << child.err;
    EXPECT_EQ(child.exitStatus, 0) << child.err;
}

VN_CHILD(loadsOnce) {
    const char* first = VN_ConfigFile_Load(arguments[0].c_str(), nullptr);
    const VN_ConfigFile* config = VN_ConfigFile_Get();
    std::ofstream(arguments[0]) << "changed\n";
    const bool same = VN_ConfigFile_Load(nullptr, nullptr) == first &&
                      VN_ConfigFile_Load("/nowhere", nullptr) == first &&
                      VN_ConfigFile_Get() == config;
    const Entries before = categoriesOf(VN_ConfigFile_Get()).at("");
    VN_ConfigFileCategory_Release(VN_ConfigFile_GetFirstCategory(VN_ConfigFile_Get()));
    endCursor(VN_ConfigFile_Get());
    VN_ConfigFile_Unload();
    const bool gone = !VN_ConfigFile_IsLoaded() && VN_ConfigFile_Get() == nullptr;
    VN_ConfigFile_Unload();
    (void)VN_ConfigFile_Load(arguments[0].c_str(), nullptr);
    const Entries after = categoriesOf(VN_ConfigFile_Get()).at("");
    VN_ConfigFile_Unload();
    printf("%d %d %s %s", same, gone, before.at(0).c_str(), after.at(0).c_str());
    return 0;
}

TEST_F(ConfigFileSearch, LoadsTheProcessWideConfigurationOnce) {
    const ChildResult child =
        runChild("loadsOnce", {.arguments = {folder.write("file.conf", "original\n")}});
    EXPECT_EQ(child.out, "1 1 original changed") << child.err;
}

VN_CHILD(privateCopies) {
    static VN_ConfigFile* config = nullptr;
    const std::string before = VN_ConfigFile_Load(arguments[0].c_str(), nullptr);
    const VN_ConfigFile* shared = VN_ConfigFile_Get();
    const std::string name = VN_ConfigFile_Load(arguments[1].c_str(), &config);
    const bool apart = config != shared && VN_ConfigFile_Get() == shared;
    const std::string remembered = VN_ConfigFile_Load(nullptr, nullptr);
    // A name that the library returned may be passed to it again.
    static VN_ConfigFile* again = nullptr;
    const std::string repeated = VN_ConfigFile_Load(VN_ConfigFile_Load(nullptr, nullptr), &again);
    printf("%d %d %d %d", apart, name == arguments[1], remembered == arguments[1],
           repeated == arguments[1]);
    return 0;
}

TEST_F(ConfigFileSearch, PrivateCopiesDoNotReplaceTheSharedOne) {
    const ChildResult child =
        runChild("privateCopies", {.arguments = {folder.write("shared.conf", "shared\n"),
                                                 folder.write("private.conf", "private\n")}});
    EXPECT_EQ(child.out, "1 1 1 1") << child.err;
}

VN_CHILD(forgets) {
    static VN_ConfigFile* shared;  // static, so that it stays reachable
    (void)VN_ConfigFile_Load(arguments[0].c_str(), nullptr);
    shared = VN_ConfigFile_Get();
    VN_ConfigFile* config = nullptr;
    const char* result = VN_ConfigFile_Load("/nowhere/at/all", &config);
    printf("%d %d %d %u", result == nullptr, VN_ConfigFile_IsLoaded(), config != nullptr,
           VN_ConfigFile_GetCategoryCount(shared));
    return 0;
}

TEST_F(ConfigFileSearch, FailedSearchForgetsTheSharedConfiguration) {
    const ChildResult child =
        runChild("forgets", {.environment = {{"HOME", home}},
                             .arguments = {folder.write("shared.conf", "[a]\nshared\n")},
                             .workingDirectory = cwd});
    EXPECT_EQ(child.out, "1 0 1 2") << child.err;
}
