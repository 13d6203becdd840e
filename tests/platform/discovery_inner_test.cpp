// The readers that discovery uses, on files that the tests write.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "platform/discovery_sources.h"
#include "platform/line_reader.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace {

class DiscoveryFiles : public testing::Test {
  protected:
    void SetUp() override { unsetenv("VN_ASSUME_CPUS"); }

    int count(const std::string& cpuinfo) {
        std::atomic<int> cache{vncommon::unknownCpus};
        const int cpus = vncommon::physicalCpus(cache, folder.write("cpuinfo", cpuinfo).c_str());
        EXPECT_EQ(cache, cpus);  // kept, even if it is 0
        return cpus;
    }

    double vmSize(const std::string& status) {
        return vncommon::vmSize(folder.write("status", status).c_str());
    }

    double pages(const std::string& statm) {
        return vncommon::residentSetSize(folder.write("statm", statm).c_str()) /
               static_cast<double>(sysconf(_SC_PAGESIZE));
    }

    TemporaryFolder folder;
};

// ---- Processors ------------------------------------------------------------------------------

TEST_F(DiscoveryFiles, ProcessorLinesAreCounted) {
    EXPECT_EQ(count("processor\t: 0\nmodel name\t: x\n\nprocessor\t: 1\nmodel name\t: x\n"), 2);
    EXPECT_EQ(count("processor"), 1);
    EXPECT_EQ(count("processors\n"), 1);
    EXPECT_EQ(count("Processor\t: ARMv7\n processor\nprocesso\nx processor\n"), 0);
    EXPECT_EQ(count(""), 0);
}

TEST_F(DiscoveryFiles, PiecesOfLongLinesCountAsLines) {
    EXPECT_EQ(count(std::string(1023, 'x') + "processor\n"), 1);
    EXPECT_EQ(count(std::string(1022, 'x') + "processor\n"), 0);
    EXPECT_EQ(count(std::string(1024, 'x') + "processor\n"), 0);
    EXPECT_EQ(count(std::string(2 * 1023, 'x') + "processor\nprocessor\n"), 2);
}

TEST_F(DiscoveryFiles, AMissingFileIsTriedAgain) {
    std::atomic<int> cache{vncommon::unknownCpus};
    EXPECT_EQ(vncommon::physicalCpus(cache, (folder / "missing").c_str()), 0);
    EXPECT_EQ(cache, vncommon::unknownCpus);
    const std::string appeared = folder.write("missing", "processor\n");
    EXPECT_EQ(vncommon::physicalCpus(cache, appeared.c_str()), 1);
    folder.write("missing", "processor\nprocessor\n");
    EXPECT_EQ(vncommon::physicalCpus(cache, appeared.c_str()), 1);
}

TEST_F(DiscoveryFiles, AssumedProcessorsNeedNoFile) {
    setenv("VN_ASSUME_CPUS", "3", 1);
    std::atomic<int> cache{vncommon::unknownCpus};
    EXPECT_EQ(vncommon::physicalCpus(cache, (folder / "missing").c_str()), 3);
    EXPECT_EQ(cache, 3);
    // Only here can the largest count be tried: elsewhere the library makes a pool per processor.
    setenv("VN_ASSUME_CPUS", "2147483647", 1);
    EXPECT_EQ(count(""), 2147483647);
    for (const char* ignored : {"0", "-2", "word", "2147483648", "4294967296"}) {
        setenv("VN_ASSUME_CPUS", ignored, 1);
        EXPECT_EQ(count("processor\nprocessor\n"), 2);
    }
}

// ---- Process size ----------------------------------------------------------------------------

TEST_F(DiscoveryFiles, VmSizeIsInBytes) {
    EXPECT_EQ(vmSize("Name:\tx\nVmPeak:\t    9 kB\nVmSize:\t    5 kB\nVmSize:\t7 kB\n"), 5120.0);
    EXPECT_EQ(vmSize("VmSize:3"), 3072.0);
    EXPECT_EQ(vmSize("VmSize: about 3 kB\n"), 3072.0);
    EXPECT_EQ(vmSize("VmSize: 4294967296 kB\n"), 4398046511104.0);
}

TEST_F(DiscoveryFiles, VmSizeIsNothingWhenUnknown) {
    EXPECT_EQ(vmSize(""), 0.0);
    EXPECT_EQ(vmSize("VmPeak:\t9 kB\n VmSize: 5 kB\nvmsize: 5 kB\n"), 0.0);
    EXPECT_EQ(vmSize("VmSize:\n"), 0.0);
    EXPECT_EQ(vmSize("VmSize: kB\n5\n"), 0.0);
    EXPECT_EQ(vncommon::vmSize((folder / "missing").c_str()), 0.0);
}

TEST_F(DiscoveryFiles, VmSizeReadsPiecesOf255Bytes) {
    EXPECT_EQ(vmSize(std::string(255, 'x') + "VmSize: 5 kB\n"), 5120.0);
    EXPECT_EQ(vmSize(std::string(254, 'x') + "VmSize: 5 kB\n"), 0.0);
    EXPECT_EQ(vmSize("VmSize:" + std::string(246, ' ') + "123 kB\n"), 12 * 1024.0);
}

TEST_F(DiscoveryFiles, ResidentSetIsTheSecondField) {
    EXPECT_EQ(pages("100 25 10 1 0 9 0\n"), 25);
    EXPECT_EQ(pages("first 25"), 25);
    EXPECT_EQ(pages("  1\t7\n"), 7);
}

TEST_F(DiscoveryFiles, ResidentSetIsNothingWhenUnknown) {
    EXPECT_EQ(pages(""), 0);
    EXPECT_EQ(pages("100\n"), 0);
    EXPECT_EQ(pages("100 many\n"), 0);
    EXPECT_EQ(vncommon::residentSetSize((folder / "missing").c_str()), 0.0);
}

// The result of fscanf on the same file, in pages.
double pagesByTheCLibrary(const std::string& path) {
    FILE* file = fopen(path.c_str(), "r");
    long pages = 0;
    const int count = fscanf(file, "%*s%ld", &pages);
    fclose(file);
    return count == 1 ? static_cast<double>(pages) : 0;
}

TEST_F(DiscoveryFiles, ResidentSetIsReadAsFscanfDoes) {
    const std::string blanks(3000, ' ');
    const std::string word(3000, 'w');
    const std::string texts[] = {"100\n25 10\n",
                                 "\n\n100 25\n",
                                 "100\n\n \t\v\f\r\n25\n",
                                 "\n100\n",
                                 "100\n\n",
                                 "100\nmany\n25\n",
                                 "100 +25\n",
                                 "100 -25\n",
                                 "100 - 25\n",
                                 "100 25pages\n",
                                 "100 0x19\n",
                                 "100 025\n",
                                 "100 ,25\n",
                                 "100 99999999999999999999\n",
                                 "100 -99999999999999999999\n",
                                 blanks + "1" + blanks + "25\n",
                                 word + " 25\n",
                                 word + "\n" + blanks + "25" + blanks,
                                 word,
                                 word + " " + word,
                                 std::string("1\0 25\n", 6),
                                 std::string("1 2\0005\n", 6),
                                 std::string("\0\n25", 4),
                                 std::string("1\n\0 25", 6),
                                 "1 \xA0"
                                 "25"};
    for (const std::string& text : texts) {
        const double expected = pagesByTheCLibrary(folder.write("statm", text));
        EXPECT_EQ(pages(text), expected) << text.substr(0, 20);
    }
    EXPECT_EQ(pages("100\n25 10\n"), 25);
}

TEST_F(DiscoveryFiles, ResidentSetOfRandomFilesIsReadAsFscanfDoes) {
    std::mt19937 random(20240713);
    const char* const pieces[] = {" ", "\n", "\t", "1", "25", "0", "-", "+", "x", "7 8"};
    int found = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (size_t count = random() % 8; count > 0; --count) {
            text += pieces[random() % std::size(pieces)];
        }
        const double expected = pagesByTheCLibrary(folder.write("statm", text));
        found += expected != 0;
        ASSERT_EQ(pages(text), expected) << "'" << text << "'";
    }
    EXPECT_GT(found, 300);
}

// ---- The reader, compared with fgets ---------------------------------------------------------

std::vector<std::string> withFgets(const std::string& path, size_t size) {
    std::vector<std::string> pieces;
    FILE* file = fopen(path.c_str(), "r");
    std::vector<char> piece(size);
    while (fgets(piece.data(), static_cast<int>(size), file) != nullptr) {
        pieces.emplace_back(piece.data());
    }
    fclose(file);
    return pieces;
}

std::vector<std::string> withLineReader(const std::string& path, size_t size) {
    std::vector<std::string> pieces;
    vncommon::LineReader reader(path.c_str());
    EXPECT_TRUE(reader.isOpen());
    std::vector<char> piece(size);
    while (reader.next(piece)) {
        pieces.emplace_back(piece.data());
    }
    EXPECT_FALSE(reader.next(piece));  // stays at the end
    return pieces;
}

TEST(LineReader, GivesThePiecesThatFgetsGives) {
    const TemporaryFolder folder;
    const std::string texts[] = {
        "",
        "\n",
        "\n\n",
        "a",
        "a\nb",
        "a\n\nb\n",
        std::string(1023, 'x') + "\n" + std::string(1024, 'y') + "\n",
        std::string(1024, 'x') + "\nz\n",
        std::string(5000, 'x'),
        std::string(2047, 'x') + "\n\n" + std::string(1022, 'y') + "\nend",
        std::string("nul\0inside\nnext", 15),
    };
    for (const std::string& text : texts) {
        const std::string path = folder.write("text", text);
        for (const size_t size : {2U, 3U, 16U, 256U, 1023U, 1024U, 1025U, 4096U}) {
            EXPECT_EQ(withLineReader(path, size), withFgets(path, size)) << size << text;
        }
    }
}

TEST(LineReader, GivesNothingWithoutAFile) {
    char piece[16];
    vncommon::LineReader missing("/nonexistent");
    EXPECT_FALSE(missing.isOpen());
    EXPECT_FALSE(missing.next(piece));
    vncommon::LineReader folder("/");
    EXPECT_FALSE(folder.next(piece));
}

VN_CHILD(readsThroughDescriptorZero) {
    const TemporaryFolder folder;
    const std::string path = folder.write("text", "line\n");
    close(STDIN_FILENO);
    vncommon::LineReader reader(path.c_str());
    char piece[16];
    return reader.isOpen() && reader.next(piece) && piece == std::string("line\n") ? 0 : 1;
}

TEST(LineReader, MayGetDescriptorZero) {
    EXPECT_EQ(runChild("readsThroughDescriptorZero").exitStatus, 0);
}

}  // namespace
