// The descriptions of processor and distribution, from files that the tests write.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/machine_description.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace {

struct Free {
    void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, Free>;

// ---- Processor -------------------------------------------------------------------------------

std::string cpu(const std::string& cpuinfo) {
    const TemporaryFolder folder;
    const Text text(vncommon::describeCpu(folder.write("cpuinfo", cpuinfo).c_str()));
    return text.get();
}

const std::string x86 =
    "processor\t: 0\n"
    "vendor_id\t: GenuineIntel\n"
    "cpu family\t: 6\n"
    "model\t\t: 85\n"
    "model name\t: Intel(R) Xeon(R) Platinum 8124M CPU @ 3.00GHz\n"
    "stepping\t: 4\n"
    "microcode\t: 0x2000065\n"
    "\n";

const std::string arm =
    "processor\t: 0\n"
    "BogoMIPS\t: 243.75\n"
    "Features\t: fp asimd evtstrm aes pmull sha1 sha2 crc32 atomics\n"
    "CPU implementer\t: 0x41\n"
    "CPU architecture: 8\n"
    "CPU variant\t: 0x3\n"
    "CPU part\t: 0xd0c\n"
    "CPU revision\t: 1\n"
    "\n";

TEST(CpuDetails, OfX86) {
    EXPECT_EQ(cpu(x86),
              "vendor GenuineIntel family 6 model 85 stepping 4: "
              "Intel(R) Xeon(R) Platinum 8124M CPU @ 3.00GHz");
}

TEST(CpuDetails, OfArm) {
    EXPECT_EQ(cpu(arm), "implementer code 0x41 achitecture 8 part code 0xd0c: (null)");
}

TEST(CpuDetails, OfOldArm) {
    EXPECT_EQ(cpu("Processor\t: ARMv7 Processor rev 4 (v7l)\nmodel name\t: ARMv7\n"
                  "revision\t: 0010\nCPU part\t: 0xc07\n"),
              "  revision 0010 part code 0xc07: ARMv7");
}

TEST(CpuDetails, OnlyTheFirstProcessorCounts) {
    std::string second = x86;
    second.replace(second.find("GenuineIntel"), strlen("GenuineIntel"), "Other");
    EXPECT_EQ(cpu(x86 + second), cpu(x86));
    EXPECT_EQ(cpu("stepping\t: 4\nvendor_id\t: late\nmodel name\t: late\n"),
              "  stepping 4: (null)");
    EXPECT_EQ(cpu("CPU part\t: 7\nrevision\t: late\n"), "  part code 7: (null)");
}

TEST(CpuDetails, OfNothing) {
    EXPECT_EQ(cpu(""), " : (null)");
    EXPECT_EQ(cpu("processor\t: 0\nflags\t: fpu\n\n"), " : (null)");
    EXPECT_EQ(cpu(" vendor_id\t: indented\nVENDOR_ID\t: capital\n"), " : (null)");
}

TEST(CpuDetails, LaterLinesReplaceEarlierOnes) {
    EXPECT_EQ(cpu("vendor_id\t: a\nCPU implementer\t: b\n"), "implementer code b: (null)");
    EXPECT_EQ(cpu("CPU implementer\t: b\nvendor_id\t: a\n"), "vendor a: (null)");
    EXPECT_EQ(cpu("model\t: 1\nrevision\t: 2\nmodel name\t: x\nmodel name\t: y\n"),
              "  revision 2: y");
    EXPECT_EQ(cpu("cpu family\t: 1\nCPU architecture\t: 2\n"), "  achitecture 2: (null)");
}

TEST(CpuDetails, BeginningsOfLinesDecide) {
    EXPECT_EQ(cpu("model name\t: n\n"), " : n");
    EXPECT_EQ(cpu("model namesake: n\n"), " : n");
    EXPECT_EQ(cpu("modelled: n\n"), "  model n: (null)");
    EXPECT_EQ(cpu("vendor_identity: n\n"), "vendor n: (null)");
}

TEST(CpuDetails, ValuesMayBeMissing) {
    EXPECT_EQ(cpu("vendor_id\nmodel name\t:\nmodel\t: \nstepping"), "vendor  model  stepping : ");
}

TEST(CpuDetails, PiecesOfLongLinesCountAsLines) {
    const std::string long1023(1023, 'x');
    EXPECT_EQ(cpu(long1023 + "vendor_id\t: piece\n"), "vendor piece: (null)");
    EXPECT_EQ(cpu("x" + long1023 + "vendor_id\t: piece\n"), " : (null)");
    // A value is cut at the end of its piece of the line, and the description at its buffer's size.
    const std::string name(2000, 'n');
    EXPECT_EQ(cpu("model name\t: " + name + "\n"), " : " + name.substr(0, 1023 - 13));
    EXPECT_EQ(cpu("vendor_id\t: " + std::string(1000, 'v') + "\nmodel name\t: " + name + "\n"),
              "vendor " + std::string(1000, 'v') + ": " + name.substr(0, 1023 - 1009));
}

VN_CHILD(noCpuinfo) {
    return vncommon::describeCpu("/nonexistent/cpuinfo") == nullptr ? 9 : 0;
}

TEST(CpuDetails, WithoutAFileReportTheSystemsError) {
    const ChildResult child = runChild("noCpuinfo", {.environment = {{"LC_ALL", "C"}}});
    EXPECT_EQ(child.exitStatus, 9);
    EXPECT_EQ(child.err, "FAIL: No such file or directory\n");
}

// ---- Distribution ----------------------------------------------------------------------------

class Root {
  public:
    Root& with(const std::string& name, const std::string& text) {
        folder.write(name, text);
        return *this;
    }

    std::string describe() const {
        const Text text(vncommon::describePlatform(folder.path().c_str()));
        return text != nullptr ? text.get() : "unknown";
    }

  private:
    TemporaryFolder folder;
};

std::string osRelease(const std::string& text) {
    return Root().with("etc/os-release", text).describe();
}

TEST(PlatformName, TrimsOneEndOfEachQuotedValue) {
    EXPECT_EQ(osRelease("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
                        "NAME=\"Debian GNU/Linux\"\n"
                        "VERSION_ID=\"12\"\n"
                        "VERSION=\"12 (bookworm)\"\n"
                        "ID=debian\n"),
              "\"Debian GNU/Linux 12 (bookworm)\"");
}

TEST(PlatformName, TrimsAByteOfUnquotedValues) {
    EXPECT_EQ(osRelease("NAME=Fedora\nVERSION=39\n"), "Fedor 9");
    EXPECT_EQ(osRelease("NAME=x\nVERSION=y\n"), " ");
    EXPECT_EQ(osRelease("NAME=\"a=b\"\nVERSION=\"c=d\""), "\"a=b c=d\"");
}

TEST(PlatformName, NeedsNameBeforeVersion) {
    EXPECT_EQ(osRelease("NAME=\"Only\"\n"), "unknown");
    EXPECT_EQ(osRelease("VERSION=\"1\"\nNAME=\"Late\"\n"), "unknown");
    EXPECT_EQ(osRelease("VERSION=\"1\"\nNAME=\"Late\"\nVERSION=\"2\"\n"), "unknown");
    EXPECT_EQ(osRelease("ID=x\n"), "unknown");
    EXPECT_EQ(osRelease(""), "unknown");
}

TEST(PlatformName, TakesTheLastNameBeforeTheFirstVersion) {
    EXPECT_EQ(osRelease("NAME=\"A\"\nNAME=\"B\"\nVERSION=\"1\"\nVERSION=\"2\"\nNAME=\"C\"\n"),
              "\"B 1\"");
}

TEST(PlatformName, SkipsLinesThatAreNoKeyAndValue) {
    EXPECT_EQ(osRelease("\n# comment\nNAME\nNAME=\n NAME=\"x\"\nNAME =\"x\"\nMYNAME=\"x\"\n=x\n"
                        "NAME=\"A\"\nVERSION\nVERSION=\nVERSIONS=\"x\"\nVERSION=\"1\"\n"),
              "\"A 1\"");
}

TEST(PlatformName, ReadsPiecesOfLongLinesAsLines) {
    const std::string long1023(1023, 'x');
    EXPECT_EQ(osRelease(long1023 + "NAME=\"A\"\n" + long1023 + "VERSION=\"1\"\n"), "\"A 1\"");
    EXPECT_EQ(osRelease("x" + long1023 + "NAME=\"A\"\nVERSION=\"1\"\n"), "unknown");
    // A value ends with its piece of the line, so the byte that is trimmed is the piece's last one.
    EXPECT_EQ(osRelease("NAME=\"" + std::string(2000, 'n') + "\"\nVERSION=\"1\"\n"),
              "\"" + std::string(1023 - 6 - 1, 'n') + " 1\"");
}

TEST(PlatformName, ReadsTheOtherReleaseFiles) {
    EXPECT_EQ(Root().with("usr/lib/os-release", "NAME=\"A\"\nVERSION=\"1\"\n").describe(),
              "\"A 1\"");
    EXPECT_EQ(Root()
                  .with("etc/lsb-release",
                        "DISTRIB_ID=Ubuntu\nDISTRIB_DESCRIPTION=\n"
                        "DISTRIB_DESCRIPTION=\"Ubuntu 8.04\"\n"
                        "DISTRIB_DESCRIPTION=\"late\"\n")
                  .describe(),
              "\"Ubuntu 8.04\"");
    EXPECT_EQ(Root().with("etc/redhat-release", "CentOS release 6.9 (Final)\nrest\n").describe(),
              "CentOS release 6.9 (Final)");
    EXPECT_EQ(Root().with("etc/SuSE-release", "SUSE Linux 11 (x86_64)\nVERSION = 11\n").describe(),
              "SUSE Linux 11 (x86_64)");
    EXPECT_EQ(Root().with("etc/debian_version", "9.13\n").describe(), "Debian 9.13");
    EXPECT_EQ(Root().with("etc/debian_version", "trixie/sid").describe(), "Debian trixie/sid");
    EXPECT_EQ(Root().describe(), "unknown");
}

TEST(PlatformName, IsUnknownWhenTheFileDoesNotSay) {
    EXPECT_EQ(Root().with("etc/lsb-release", "DISTRIB_ID=Ubuntu\n").describe(), "unknown");
    EXPECT_EQ(Root().with("etc/lsb-release", "").describe(), "unknown");
    for (const char* file : {"etc/redhat-release", "etc/SuSE-release", "etc/debian_version"}) {
        EXPECT_EQ(Root().with(file, "").describe(), "unknown") << file;
    }
    EXPECT_EQ(Root().with("etc/redhat-release", "\nsecond\n").describe(), "");
    EXPECT_EQ(Root().with("etc/debian_version", "\n").describe(), "Debian ");
}

TEST(PlatformName, ComesFromTheFirstFileThereIs) {
    const char* const files[][2] = {{"etc/os-release", "NAME=\"os\"\nVERSION=\"1\"\n"},
                                    {"usr/lib/os-release", "NAME=\"lib\"\nVERSION=\"1\"\n"},
                                    {"etc/lsb-release", "DISTRIB_DESCRIPTION=lsb\n"},
                                    {"etc/redhat-release", "redhat\n"},
                                    {"etc/SuSE-release", "suse\n"},
                                    {"etc/debian_version", "1\n"}};
    const char* const expected[] = {"\"os 1\"", "\"lib 1\"", "lsb", "redhat", "suse", "Debian 1"};
    Root root;
    for (size_t i = std::size(files); i-- > 0;) {
        EXPECT_EQ(root.with(files[i][0], files[i][1]).describe(), expected[i]);
    }
    // The first existing file decides, even if it has no value.
    EXPECT_EQ(root.with("etc/os-release", "").describe(), "unknown");
}

// ---- The caches ------------------------------------------------------------------------------

TEST(Remember, KeepsTheTextThatCameFirst) {
    std::atomic<const char*> cache{nullptr};
    const Text first(strdup("first"));
    EXPECT_EQ(vncommon::cacheText(cache, first.get(), "unknown"), first.get());
    // The second text is freed; a leak checker reports it otherwise.
    EXPECT_EQ(vncommon::cacheText(cache, strdup("late"), "unknown"), first.get());
    EXPECT_EQ(vncommon::cacheText(cache, nullptr, "unknown"), first.get());
}

TEST(Remember, KeepsTheUnknown) {
    std::atomic<const char*> cache{nullptr};
    EXPECT_STREQ(vncommon::cacheText(cache, nullptr, "unknown"), "unknown");
    EXPECT_STREQ(vncommon::cacheText(cache, strdup("late"), "other"), "unknown");
}

}  // namespace
