// Files and lines for the tests of the loggers.
#ifndef VN_TESTS_LOGGING_LOG_SUPPORT_H
#define VN_TESTS_LOGGING_LOG_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include <vncommon/file_logger.h>

// A directory of the test's own, in memory where the system has that; removed at the end.
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

// A line taken apart; empty fields when it does not have the format of a line.
struct Line {
    explicit Line(const std::string& line) {
        static const std::regex head(
            R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\.(\d{3}) (.{5}) \[(\d+)\] - )");
        const std::string start = line.substr(0, 64);
        std::smatch match;
        if (std::regex_search(start, match, head, std::regex_constants::match_continuous)) {
            second = match[1];
            milliseconds = match[2];
            level = match[3];
            thread = match[4];
            message = line.substr(static_cast<size_t>(match.length()));
        }
    }
    std::string second, milliseconds, level, thread, message;
};

// A logger of the test's own. The line buffer is left over by FileLogger_cleanup, so the test
// releases it; if the library did so too, the sanitizer would see it.
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
