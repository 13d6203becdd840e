#!/usr/bin/env python3
"""Builds the Debian packages twice and checks them: names, relations, files, notices, lintian's
reports, and an upgrade."""
import argparse
import gzip
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import tempfile
import unittest

import support

OPTIONS = None
EPOCH = "1700000000"

# Without VN_PACKAGE_MAINTAINER the maintainer's address contains this machine's name.
WITHOUT_MAINTAINER = {"bogus-mail-host", "bogus-mail-host-in-debian-changelog"}
# With a prefix other than /usr, the library folder has no architecture in its name.
ANOTHER_PREFIX = {"pkg-config-unavailable-for-cross-compilation"}


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.make(OPTIONS.packages)
        cls.files = {path.name.split("_")[0]: path for path in OPTIONS.packages.glob("*.deb")}

    @staticmethod
    def make(folder):
        shutil.rmtree(folder, ignore_errors=True)
        support.run([OPTIONS.cpack, "-G", "DEB", "--config", OPTIONS.build / "CPackConfig.cmake",
                     "-B", folder], env={**os.environ, "SOURCE_DATE_EPOCH": EPOCH})

    def field(self, package, name):
        return support.run(["dpkg-deb", "--field", self.files[package], name]).strip()

    def contents(self, package):
        listing = support.run(["dpkg-deb", "--contents", self.files[package]])
        names = (re.split(" -> | link to ", line.split(maxsplit=5)[5])[0]
                 for line in listing.splitlines())
        return {name.lstrip(".") for name in names if not name.endswith("/")}

    @staticmethod
    def document(package, path, name):
        with tempfile.TemporaryDirectory() as folder:
            support.run(["dpkg-deb", "--extract", path, folder])
            return pathlib.Path(folder, "usr/share/doc", package, name).read_bytes()

    def ends_with(self, package, *endings):
        contents = self.contents(package)
        for ending in endings:
            self.assertTrue(any(name.endswith(ending) for name in contents), (ending, contents))

    def test_the_packages(self):
        self.assertEqual(set(self.files), {"libvncommon1", "libvncommon-dev", "libvncommon-java",
                                           "vninfo"})
        for package in self.files:
            self.assertTrue(all(name.startswith("/usr/") for name in self.contents(package)))

    def test_the_library(self):
        version = self.field("libvncommon1", "Version")
        self.ends_with("libvncommon1", "/libvncommon.so.1", f"/libvncommon.so.{version}")
        library = next(name for name in self.contents("libvncommon1")
                       if name.endswith(f"/libvncommon.so.{version}"))
        self.assertIn(f"/usr/share/gdb/auto-load{library}-gdb.py", self.contents("libvncommon1"))
        self.assertNotIn(".h\n", "\n".join(self.contents("libvncommon1")) + "\n")
        depends = self.field("libvncommon1", "Depends")
        for library in ["libc6", "libicu", "libstdc++6"]:
            self.assertIn(library, depends)
        shlibs = support.run(["dpkg-deb", "--info", self.files["libvncommon1"], "shlibs"])
        self.assertEqual(shlibs.strip(), f"libvncommon 1 libvncommon1 (>= {version})")
        triggers = support.run(["dpkg-deb", "--info", self.files["libvncommon1"], "triggers"])
        self.assertEqual(triggers.strip(), "activate-noawait ldconfig")

    def test_the_development_files(self):
        version = self.field("libvncommon1", "Version")
        self.assertEqual(self.field("libvncommon-dev", "Depends"), f"libvncommon1 (= {version})")
        headers = sorted((OPTIONS.include / "vncommon").glob("*.h*"))
        self.assertTrue(headers)
        self.ends_with("libvncommon-dev", "/libvncommon.so", "/pkgconfig/vncommon.pc",
                       "/cmake/vncommon/vncommon-config.cmake", "/examples/event_server/server.cpp",
                       "/examples/families/vector.c", "/usr/share/man/man3/vncommon_vector.3.gz",
                       "/usr/share/man/man3/vn_Vector_add.3.gz",
                       *(f"/usr/include/vncommon/{path.name}" for path in headers))

    def test_the_tool(self):
        self.ends_with("vninfo", "/usr/bin/vninfo", "/usr/share/man/man1/vninfo.1.gz")
        depends = self.field("vninfo", "Depends")
        for library in ["libc6", "libstdc++6", f"libvncommon1 (>= {self.field('vninfo', 'Version')})"]:
            self.assertIn(library, depends)

    def test_the_jar(self):
        version = self.field("libvncommon-java", "Version")
        self.ends_with("libvncommon-java", "/java/vncommon.jar", f"/java/vncommon-{version}.jar")
        self.assertEqual(self.field("libvncommon-java", "Architecture"), "all")
        for relation in ["Breaks", "Replaces"]:
            self.assertEqual(self.field("libvncommon-java", relation),
                             f"libvncommon-dev (<< {version})")
        with tempfile.TemporaryDirectory() as folder:
            support.run(["dpkg-deb", "--extract", self.files["libvncommon-java"], folder])
            jar = next(pathlib.Path(folder).rglob("vncommon.jar"))
            self.assertIn("Automatic-Module-Name: com.vantrel.util",
                          support.run([sys.executable, "-c", "import sys, zipfile; print(zipfile."
                                       "ZipFile(sys.argv[1]).read('META-INF/MANIFEST.MF').decode())",
                                       jar]))

    def test_every_exported_name_is_among_the_symbols(self):
        """Each has its first version: "# since X.Y" in the list, else the first release."""
        text = support.run(["dpkg-deb", "--info", self.files["libvncommon1"], "symbols"])
        first, *lines = text.splitlines()
        self.assertEqual(first, "libvncommon.so.1 libvncommon1 #MINVER#")
        found = dict(line.strip().rsplit(" ", 1) for line in lines)
        names = subprocess.run(["c++filt"], input="\n".join(found), check=True, text=True,
                               capture_output=True).stdout.splitlines()
        versions = {name.split("@")[0]: version for name, version in zip(names, found.values())}
        listed = {}
        for path in OPTIONS.exports.glob("*.txt"):
            for line in path.read_text().splitlines():
                name, _, remark = line.partition("#")
                since = re.search(r"since (\d+\.\d+)", remark)
                if name.strip():
                    listed[name.strip()] = since[1] if since else "1.0"
        self.assertEqual({name: version for name, version in versions.items()
                          if not name.startswith("VNCOMMON_")}, listed)

    def test_the_manual_pages(self):
        """Each page has its own name, and the formatter prints no warning."""
        with tempfile.TemporaryDirectory() as folder:
            support.run(["dpkg-deb", "--extract", self.files["libvncommon-dev"], folder])
            pages = sorted(pathlib.Path(folder).rglob("*.3.gz"))
            names = {path.name.removesuffix(".3.gz") for path in pages}
            exported = {name for path in OPTIONS.exports.glob("*.txt")
                        for name in re.findall(r"^vn_\w+", path.read_text(), re.MULTILINE)}
            self.assertGreater(len(exported & names), 0.95 * len(exported), exported - names)
            for path in pages:
                self.assertTrue(path.exists(), path)
                if path.is_symlink():
                    continue
                text = gzip.decompress(path.read_bytes()).decode()
                self.assertIn(f".SH NAME\n{path.name.removesuffix('.3.gz')} \\- ", text)
                if shutil.which("man"):
                    said = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z",
                                           path], stdout=subprocess.DEVNULL, text=True, check=True,
                                          stderr=subprocess.PIPE).stderr
                    self.assertEqual(said, "", path)

    def test_a_second_run_gives_the_same_files(self):
        """scripts/package --twice compares two builds in two folders, too."""
        time.sleep(1.1)   # so that a time stamp in a file would differ
        with tempfile.TemporaryDirectory() as folder:
            self.make(folder)
            for path in self.files.values():
                again = pathlib.Path(folder, path.name).read_bytes()
                self.assertEqual(hashlib.sha256(again).hexdigest(),
                                 hashlib.sha256(path.read_bytes()).hexdigest(), path.name)

    def test_an_upgrade_of_the_library_keeps_the_tool(self):
        """Simulates the upgrade on a machine that has an older version of the packages."""
        if shutil.which("apt-get") is None:
            self.skipTest("no apt-get")
        with tempfile.TemporaryDirectory() as folder:
            status = pathlib.Path(folder, "status")
            text = re.sub(r"(?ms)^Package: (libvncommon|vninfo).*?\n\n", "",
                          pathlib.Path("/var/lib/dpkg/status").read_text())
            for package, path in self.files.items():
                version = self.field(package, "Version")
                old = support.run(["dpkg-deb", "--field", path]).replace(version, "0.9")
                old = re.sub(r"^(Breaks|Replaces):.*\n", "", old, flags=re.MULTILINE)
                text += old.rstrip().replace("\nVersion:", "\nStatus: install ok installed\nVersion:")
                text += "\n\n"
            status.write_text(text)
            plan = support.run(["apt-get", "--simulate", "--no-download",
                                "-o", f"Dir::State::status={status}", "-o", f"Dir::Cache={folder}",
                                "install", self.files["libvncommon1"]])
            self.assertIn("Inst libvncommon1", plan)
            self.assertNotIn("Remv vninfo", plan)

    def test_what_lintian_says(self):
        if shutil.which("lintian") is None:
            self.skipTest("no lintian; scripts/setup installs it")
        said = subprocess.run(["lintian", "--allow-root", "--tag-display-limit", "0",
                               *self.files.values()], text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False).stdout
        tags = re.findall(r"^[EW]: (\S+): (\S+)(.*)$", said, re.MULTILINE)
        known = set(WITHOUT_MAINTAINER)
        if not any("-linux-gnu/" in name for name in self.contents("libvncommon1")):
            known |= ANOTHER_PREFIX
        self.assertEqual([tag for tag in tags if tag[1] not in known], [])

    def test_no_line_of_a_description_is_too_long(self):
        for package in self.files:
            lines = self.field(package, "Description").splitlines()
            self.assertGreater(len(lines), 1)
            self.assertLessEqual(max(map(len, lines)), 80)

    def test_the_copyright_file_is_for_tools(self):
        """Parses the stanzas and fields of DEP-5; continuation lines begin with a blank."""
        text = self.document("vninfo", self.files["vninfo"], "copyright").decode()
        stanzas = text.strip().split("\n\n")
        self.assertIn("/copyright-format/1.0/", stanzas[0].splitlines()[0])
        self.assertEqual(len(stanzas), 7)
        for stanza in stanzas[1:]:
            fields = [line.split(":")[0] for line in stanza.splitlines() if not line.startswith(" ")]
            self.assertEqual(fields, ["Files", "Copyright", "License"])

    def test_the_notices_of_what_is_linked_in(self):
        for package, path in self.files.items():
            text = self.document(package, path, "copyright").decode()
            for owner in ["Sun Microsystems, Inc. All rights reserved",
                          "Copyright (c) 1991 by AT&T", "Lucent Technologies\n All Rights Reserved",
                          "Intel Corp", "Niels Lohmann"]:
                self.assertIn(owner, text)

    def test_the_changelog(self):
        for package, path in self.files.items():
            compressed = self.document(package, path, "changelog.gz")
            self.assertEqual(compressed[4:8], bytes(4), "the time of day")
            lines = gzip.decompress(compressed).decode().splitlines()
            self.assertEqual(lines[0], f"vncommon ({self.field(package, 'Version')}) unstable; "
                                       "urgency=medium")
            self.assertRegex(lines[-1], r"^ -- .+ <.+@.+>  \w{3}, \d\d \w{3} \d{4} [\d:]{8} \+0000$")
            self.assertIn(b"\n## ", gzip.decompress(self.document(package, path, "CHANGELOG.md.gz")))


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--build", type=pathlib.Path, required=True)
    arguments.add_argument("--cpack", default="cpack")
    arguments.add_argument("--packages", type=pathlib.Path, required=True)
    arguments.add_argument("--include", type=pathlib.Path, required=True)
    arguments.add_argument("--exports", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
