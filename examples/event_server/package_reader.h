// Reads the package database of a Debian system: stanzas of "Key: value" lines with
// continuation lines, separated by empty lines.
#ifndef VN_EXAMPLES_PACKAGE_READER_H
#define VN_EXAMPLES_PACKAGE_READER_H

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

// One stanza: its fields in the order of the file. A continuation line belongs to the field
// above it, joined by a line feed and without its leading blank.
struct PackageRecord {
    std::vector<std::pair<std::string, std::string>> fields;

    const std::string* find(const std::string& key) const;
};

class PackageReader {
  public:
    PackageReader() = default;
    ~PackageReader();
    PackageReader(const PackageReader&) = delete;
    PackageReader& operator=(const PackageReader&) = delete;

    // False with a message in error() when the file cannot be opened.
    bool open(const std::string& path);

    // False at the end of the file, and at a broken line, which leaves a message in error().
    bool next(PackageRecord& record);

    const std::string& error() const { return error_; }

  private:
    bool readLine(std::string& line);
    bool addLine(const std::string& line, PackageRecord& record);
    bool fail(const std::string& what);

    std::FILE* stream_ = nullptr;
    char* buffer_ = nullptr;  // of getline
    size_t bufferSize_ = 0;
    std::string path_;
    unsigned long lineNumber_ = 0;
    std::string error_;
};

#endif
