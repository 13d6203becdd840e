// Swap rates from files that the tests write and from the machine's. Each test reads in a fresh
// process, because a process keeps its last reading.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/process_sources.h"
#include "support/child_checks.h"

namespace {

struct Rates {
    int result = -1;
    double in = -1.0;  // the values before the call
    double out = -2.0;
};

Rates rates(const std::string& path) {
    Rates read;
    read.result = vncommon::swapRates(path.c_str(), &read.in, &read.out);
    return read;
}

struct TemporaryFile {
    explicit TemporaryFile(const std::string& text) {
        close(mkstemp(path));
        write(text);
    }
    ~TemporaryFile() { unlink(path); }
    void write(const std::string& text) const { std::ofstream(path) << text; }

    char path[32] = "/tmp/vnswapXXXXXX";
};

void waitForNextReading() {
    usleep(130 * 1000);
}

// The status of a child that was interrupted for longer than a reading holds. It is run again.
constexpr int tookTooLong = 77;

// Measures whether a reading still holds, with the library's clock.
class Reading {
  public:
    bool holds() const { return vn_sys_time() - start_ < 100; }

  private:
    int64_t start_ = vn_sys_time();
};

void expectSuccessInTime(const char* child) {
    ChildResult result;
    do {
        result = runChild(child);
    } while (result.exitStatus == tookTooLong);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
}

}  // namespace

VN_CHILD(ratesOfTwoReadings) {
    const TemporaryFile file("nr_free_pages 1\npswpin 1000000\npswpout 3000000\npgfault 9\n");
    const int64_t firstBegan = vn_sys_time();
    const Rates first = rates(file.path);
    CHECK(first.result == 0);
    CHECK(first.in > 0 && first.in < 0.01);  // a million pages, divided by the seconds since 1970
    CHECK(first.out > 2.9 * first.in && first.out < 3.1 * first.in);

    file.write("pswpout 3000190\npswpin 1000100\n");
    waitForNextReading();
    const Rates second = rates(file.path);
    const double longest = static_cast<double>(vn_sys_time() - firstBegan) / 1000.0;
    CHECK(second.result == 0);
    CHECK(second.in >= 100 / longest && second.in <= 100 / 0.1);
    CHECK(second.out > 1.89 * second.in && second.out < 1.91 * second.in);
    return 0;
}

VN_CHILD(cachesForATenthOfASecond) {
    const TemporaryFile file("pswpin 10\npswpout 20\n");
    const Reading reading;
    const Rates first = rates(file.path);
    CHECK(first.result == 0);
    const Rates second = rates("/nonexistent/vmstat");  // not read at all
    if (!reading.holds()) {
        return tookTooLong;
    }
    CHECK(second.result == 0 && second.in == first.in && second.out == first.out);
    waitForNextReading();
    CHECK(rates("/nonexistent/vmstat").result == ENOENT);
    return 0;
}

VN_CHILD(missingFileLeavesEverything) {
    const Rates read = rates("/nonexistent/vmstat");
    CHECK(read.result == ENOENT && read.in == -1.0 && read.out == -2.0);
    CHECK(rates("/nonexistent/vmstat").result == ENOENT);  // no reading, so nothing is cached
    return 0;
}

VN_CHILD(lineWithoutBlank) {
    const TemporaryFile file("pswpin 10\nbroken\npswpout 20\n");
    const Reading reading;
    const Rates read = rates(file.path);
    CHECK(read.result == 9 && read.in == -1.0 && read.out == -2.0);
    // The failed reading is cached for 100 ms, with the values of the lines before the bad one.
    const Rates cached = rates(file.path);
    if (!reading.holds()) {
        return tookTooLong;
    }
    CHECK(cached.result == 0 && cached.in > 0 && cached.out == 0);
    return 0;
}

VN_CHILD(stopsAtTheSecondKey) {
    const TemporaryFile file("pswpout 20\nother 1\npswpin 10\nbroken\n");
    CHECK(rates(file.path).result == 0);
    return 0;
}

VN_CHILD(fileWithoutKeys) {
    const TemporaryFile file("pswpinx 10\npswpi 20\n pswpin 30\npswpou 7\n");
    const Rates read = rates(file.path);
    CHECK(read.result == 0 && read.in == 0 && read.out == 0);
    return 0;
}

VN_CHILD(emptyFile) {
    const TemporaryFile file("");
    const Rates read = rates(file.path);
    CHECK(read.result == 0 && read.in == 0 && read.out == 0);
    return 0;
}

VN_CHILD(longLineIsReadInPieces) {
    const TemporaryFile noBlankLater("key " + std::string(300, 'x') + "\npswpin 1\npswpout 1\n");
    CHECK(rates(noBlankLater.path).result == 9);
    waitForNextReading();
    // 255 bytes, then a piece that looks like a separate line.
    const TemporaryFile keyLater("key " + std::string(251, 'x') + "pswpin 1000000000\npswpout 0\n");
    const Rates read = rates(keyLater.path);
    CHECK(read.result == 0 && read.in > 1000 && read.out == 0);
    return 0;
}

VN_CHILD(counterThatFellIsUnsigned) {
    const TemporaryFile file("pswpin 100\npswpout 100\n");
    CHECK(rates(file.path).result == 0);
    waitForNextReading();
    file.write("pswpin 99\npswpout nonsense\n");
    const Rates read = rates(file.path);
    CHECK(read.result == 0 && read.in > 1e18 && read.out > 1e18);
    return 0;
}

VN_CHILD(realMachine) {
    const Reading reading;
    double in = -1, out = -1;
    CHECK(vn_get_os_statistics(&in, &out) == 0);
    CHECK(in >= 0 && in < 1e6 && out >= 0 && out < 1e6);
    double inAgain = -1, outAgain = -1;
    CHECK(vn_get_os_statistics(&inAgain, &outAgain) == 0);
    if (!reading.holds()) {
        return tookTooLong;
    }
    CHECK(in == inAgain && out == outAgain);
    return 0;
}

TEST(SwapRates, PagesOverSeconds) {
    expectSuccessInTime("ratesOfTwoReadings");
}
TEST(SwapRates, CachedForATenthOfASecond) {
    expectSuccessInTime("cachesForATenthOfASecond");
}
TEST(SwapRates, MissingFile) {
    expectSuccessInTime("missingFileLeavesEverything");
}
TEST(SwapRates, LineWithoutBlank) {
    expectSuccessInTime("lineWithoutBlank");
}
TEST(SwapRates, StopsAtTheSecondKey) {
    expectSuccessInTime("stopsAtTheSecondKey");
}
TEST(SwapRates, FileWithoutKeys) {
    expectSuccessInTime("fileWithoutKeys");
}
TEST(SwapRates, EmptyFile) {
    expectSuccessInTime("emptyFile");
}
TEST(SwapRates, LongLines) {
    expectSuccessInTime("longLineIsReadInPieces");
}
TEST(SwapRates, FallenCounter) {
    expectSuccessInTime("counterThatFellIsUnsigned");
}

TEST(SwapRates, RealMachine) {
    if (access("/proc/vmstat", R_OK) != 0) {
        GTEST_SKIP() << "this machine has no /proc/vmstat";
    }
    expectSuccessInTime("realMachine");
}
