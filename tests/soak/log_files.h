// The log of all the threads: rotated as logrotate does it, and read line by line.
#ifndef VN_TESTS_SOAK_LOG_FILES_H
#define VN_TESTS_SOAK_LOG_FILES_H

#include <cstdint>
#include <string>
#include <vector>

class LogFiles {
  public:
    // Sets the process's logger up to write into the folder.
    LogFiles(const std::string& folder, size_t threads);

    // Moves the file away and sends SIGHUP. What was moved away the time before is read and
    // removed now: a line that was being written at that moment had the time to arrive.
    void rotate();

    // With everything written: reads the rest. written is the number of lines of each thread.
    void finish(const std::vector<uint64_t>& written);

    uint64_t linesFound() const;
    int rotations() const { return moved; }

  private:
    std::string movedName(int number) const { return name + "." + std::to_string(number); }
    void check(const std::string& file);
    void checkLine(const char* line);

    std::string name;
    std::vector<uint64_t> next;  // the line expected of each thread
    int moved = 0;
};

// For the threads: writes line number of the thread.
void writeLogLine(size_t thread, uint64_t number);

#endif
