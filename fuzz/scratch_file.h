// Files for the readers that take a name.
#ifndef VN_FUZZ_SCRATCH_FILE_H
#define VN_FUZZ_SCRATCH_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "fuzz/fuzz.h"

namespace fuzz {

// A file in memory, opened by name and rewritten for each input.
class MemoryFile {
  public:
    MemoryFile() : descriptor(memfd_create("fuzz", 0)) {
        FUZZ_REQUIRE(descriptor >= 0);
        path = "/proc/self/fd/" + std::to_string(descriptor);
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const char* name() const { return path.c_str(); }
    void fill(std::string_view contents) {
        FUZZ_REQUIRE(ftruncate(descriptor, 0) == 0);
        FUZZ_REQUIRE(pwrite(descriptor, contents.data(), contents.size(), 0) ==
                     static_cast<ssize_t>(contents.size()));
    }

  private:
    int descriptor;
    std::string path;
};

// A folder that is removed when the process exits.
class ScratchFolder {
  public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vn-fuzz-XXXXXX").string();
        FUZZ_REQUIRE(mkdtemp(pattern.data()) != nullptr);
        path = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& name() const { return path; }
    // Makes the file available in the folder without writing its contents to a disk.
    void show(const MemoryFile& file, const std::string& name) {
        const std::filesystem::path place = path + name;
        std::filesystem::create_directories(place.parent_path());
        std::filesystem::create_symlink(file.name(), place);
    }

  private:
    std::string path;
};

}  // namespace fuzz

#endif
