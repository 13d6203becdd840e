// A folder for one test, removed with its contents at the end.
#ifndef VN_TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define VN_TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vn-test-XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(folder); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return folder; }
    std::string operator/(const std::string& name) const { return folder + "/" + name; }

    // Creates the folders of the file, writes the file and returns its full name.
    std::string write(const std::string& name, const std::string& text) const {
        const std::filesystem::path file = folder + "/" + name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }

  private:
    std::string folder;
};

#endif
