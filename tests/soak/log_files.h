// The log of all threads: rotates it like logrotate and checks every line.
#ifndef VN_TESTS_SOAK_LOG_FILES_H
#define VN_TESTS_SOAK_LOG_FILES_H

#include <cstdint>
#include <string>
#include <vector>

class LogFiles {
  public:
    // Makes the process's logger write to a file in the folder.
    LogFiles(const std::string& folder, size_t threads);

    // Renames the file and sends SIGHUP. Then reads and removes the file of the rotation before: by
    // now it has the lines that were being written at that moment.
    void rotate();

    // Called after the last line: reads the rest. written has the number of lines of each thread.
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
