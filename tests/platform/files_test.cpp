// Files and the console under UTF-8 names, in locales of several code pages.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vncommon/failure.h>
#include <vncommon/process.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/child_process.h"

namespace {

struct Directory {
    Directory() { path = mkdtemp(name); }
    ~Directory() { std::filesystem::remove_all(path); }
    std::string operator/(const std::string& file) const { return path + "/" + file; }

    char name[32] = "/tmp/vnfilesXXXXXX";
    std::string path;
};

const std::string utf8Name = "caf\xc3\xa9";  // as callers write it
const std::string latin1Name = "caf\xe9";    // as the file system stores it in ISO-8859-1

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::string takeText(char* text) {
    const std::string copy = text != nullptr ? text : "(null)";
    vn_free(text);
    return copy;
}

ChildOptions inLocale(const char* locale, std::vector<std::string> arguments = {}) {
    return {.environment = {{"LC_ALL", locale}}, .arguments = std::move(arguments)};
}

}  // namespace

// ---- Opening ----

TEST(Files, OpenStoresTheDescriptor) {
    const Directory directory;
    const std::string path = directory / "file";
    int fd = -7;
    EXPECT_EQ(vn_openFileUTF8(&fd, path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0640), nullptr);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "text", 4), 4);
    close(fd);
    struct stat status;
    EXPECT_EQ(vn_statUTF8(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 4);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(status.st_mode & 0777u, 0640u & ~mask);
}

TEST(Files, OpenWithoutCreatingIgnoresTheMode) {
    const Directory directory;
    int fd = -7;
    EXPECT_EQ(takeText(vn_openFileUTF8(&fd, (directory / "none").c_str(), O_WRONLY, 0777)),
              strerror(ENOENT));
    EXPECT_EQ(fd, -1);
    EXPECT_FALSE(exists(directory / "none"));
    EXPECT_EQ(vn_openFileUTF8(&fd, directory.path.c_str(), O_RDONLY), nullptr);
    close(fd);
}

// The kernel reads the mode of a file without a name, but the library passes 0 without O_CREAT.
TEST(Files, OpenWithoutCreatingPassesTheModeZero) {
    const Directory directory;
    int fd = -1;
    const std::string error =
        takeText(vn_openFileUTF8(&fd, directory.path.c_str(), O_TMPFILE | O_WRONLY, 0777));
    if (fd == -1) {
        GTEST_SKIP() << "this file system has no files without a name: " << error;
    }
    struct stat status;
    EXPECT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0U);
    close(fd);
}

TEST(Files, StatFollowsLinks) {
    const Directory directory;
    ASSERT_EQ(symlink(directory.path.c_str(), (directory / "link").c_str()), 0);
    struct stat status;
    EXPECT_EQ(vn_statUTF8((directory / "link").c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
}

TEST(Files, OpenGivesTheSystemsWordsForAFailure) {
    const Directory directory;
    int fd = 0;
    EXPECT_EQ(takeText(vn_openFileUTF8(&fd, directory.path.c_str(), O_WRONLY)), strerror(EISDIR));
    EXPECT_EQ(takeText(vn_openFileUTF8(&fd, "", O_RDONLY)), strerror(ENOENT));
    EXPECT_EQ(takeText(vn_openFileUTF8(&fd, nullptr, O_RDONLY)), strerror(EFAULT));
    EXPECT_EQ(takeText(vn_openFileUTF8(&fd, std::string(5000, 'x').c_str(), O_RDONLY)),
              strerror(ENAMETOOLONG));
    EXPECT_EQ(fd, -1);
}

TEST(Files, OpensStreams) {
    const Directory directory;
    const std::string path = directory / "file";
    FILE* out = vn_openStreamUTF8(path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    fputs("text", out);
    fclose(out);
    FILE* in = vn_openStreamUTF8(path.c_str(), "r");
    ASSERT_NE(in, nullptr);
    char text[8] = {};
    EXPECT_EQ(fread(text, 1, sizeof text, in), 4u);
    EXPECT_STREQ(text, "text");
    fclose(in);
}

TEST(Files, StreamsAndStatKeepErrno) {
    struct stat status;
    errno = 0;
    EXPECT_EQ(vn_openStreamUTF8("/nonexistent/file", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(vn_openStreamUTF8("/tmp", "nonsense"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(vn_statUTF8("/nonexistent/file", &status), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(vn_statUTF8(nullptr, &status), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(vn_openStreamUTF8(nullptr, "r"), nullptr);
    EXPECT_EQ(errno, EFAULT);
}

// ---- Names ----

VN_CHILD(createsFiles) {
    const std::string path = arguments.at(0) + "/";
    int fd = -1;
    char* error = vn_openFileUTF8(&fd, (path + utf8Name).c_str(), O_WRONLY | O_CREAT, 0600);
    if (error != nullptr || write(fd, "12345", 5) != 5) {
        return 1;
    }
    close(fd);
    FILE* stream = vn_openStreamUTF8((path + utf8Name + "2").c_str(), "w");
    if (stream == nullptr || fclose(stream) != 0) {
        return 2;
    }
    struct stat status;
    return vn_statUTF8((path + utf8Name).c_str(), &status) == 0 && status.st_size == 5 ? 0 : 3;
}

TEST(Files, NamesPassThroughTheCodePage) {
    const Directory latin1, utf8;
    EXPECT_EQ(runChild("createsFiles", inLocale("de_DE.ISO-8859-1", {latin1.path})).exitStatus, 0);
    EXPECT_TRUE(exists(latin1 / latin1Name));
    EXPECT_TRUE(exists(latin1 / (latin1Name + "2")));
    EXPECT_FALSE(exists(latin1 / utf8Name));

    EXPECT_EQ(runChild("createsFiles", inLocale("en_US.UTF-8", {utf8.path})).exitStatus, 0);
    EXPECT_TRUE(exists(utf8 / utf8Name));
    EXPECT_TRUE(exists(utf8 / (utf8Name + "2")));
}

TEST(Files, NamesThatTheCodePageLacksStayAsTheyAre) {
    const Directory directory;
    EXPECT_EQ(runChild("createsFiles", inLocale("ru_RU.KOI8-R", {directory.path})).exitStatus, 0);
    EXPECT_TRUE(exists(directory / utf8Name));
}

// ---- The console ----

VN_CHILD(writesToStandardOutput) {
    vn_writeToConsoleUTF8(STDOUT_FILENO, arguments.at(0).c_str());
    vn_writeToConsoleUTF8(STDOUT_FILENO, "");
    vn_writeToConsoleUTF8(STDOUT_FILENO, nullptr);
    vn_writeToConsoleUTF8(-1, "lost");
    return 0;
}

TEST(Console, TextPassesThroughTheCodePage) {
    const std::string text = utf8Name + "\n";
    EXPECT_EQ(runChild("writesToStandardOutput", inLocale("C.UTF-8", {text})).out, text);
    EXPECT_EQ(runChild("writesToStandardOutput", inLocale("fr_FR.ISO-8859-1", {text})).out,
              latin1Name + "\n");
    const std::string japanese = "\xe6\x97\xa5";
    EXPECT_EQ(runChild("writesToStandardOutput", inLocale("ja_JP.Shift_JIS", {japanese})).out,
              "\x93\xfa");
}
