// Files and lines for the tests of the loggers.
#ifndef VN_TESTS_LOGGING_LOG_SUPPORT_H
#define VN_TESTS_LOGGING_LOG_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <vncommon/file_logger.h>

// A temporary directory, in memory if possible; removed at the end.
class TestDirectory {
  public:
    TestDirectory() {
        std::string name = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
        name += "/vn_logging_XXXXXX";
        path = mkdtemp(name.data());
    }
    ~TestDirectory() { std::filesystem::remove_all(path); }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    std::string file(const std::string& name) const { return path + "/" + name; }

  private:
    std::string path;
};

inline std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

// Whether the text starts with the pattern: 0 matches a digit, ? any character.
inline bool startsLike(const std::string& text, const std::string& pattern) {
    for (size_t i = 0; i < pattern.size(); ++i) {
        const char c = i < text.size() ? text[i] : '\0';
        const bool digit = c >= '0' && c <= '9';
        if (pattern[i] == '0' ? !digit : pattern[i] != '?' && pattern[i] != c) {
            return false;
        }
    }
    return true;
}

// The fields of a line; empty if it does not have the format.
struct Line {
    explicit Line(const std::string& line) {
        const std::string head = "0000-00-00 00:00:00.000 ????? [0";
        const size_t threadStart = head.size() - 1;
        const size_t threadEnd = line.find_first_not_of("0123456789", threadStart);
        if (!startsLike(line, head) || threadEnd == std::string::npos ||
            line.compare(threadEnd, 4, "] - ") != 0) {
            return;
        }
        second = line.substr(0, 19);
        milliseconds = line.substr(20, 3);
        level = line.substr(24, 5);
        thread = line.substr(threadStart, threadEnd - threadStart);
        message = line.substr(threadEnd + 4);
    }
    std::string second, milliseconds, level, thread, message;
};

// A logger for one test. FileLogger_cleanup does not free the line buffer, so the test frees it;
// the sanitizer would report a double free.
class TestLogger {
  public:
    TestLogger() { FileLogger_init(&logger); }
    explicit TestLogger(const std::string& file) : TestLogger() {
        FileLogger_SetFilename(&logger, file.c_str(), 0, 1);
    }
    ~TestLogger() {
        FileLogger_cleanup(&logger);
        free(logger.buffer);
    }
    TestLogger(const TestLogger&) = delete;
    TestLogger& operator=(const TestLogger&) = delete;

    operator FileLogger*() { return &logger; }
    FileLogger* operator->() { return &logger; }

  private:
    FileLogger logger;
};

#endif
