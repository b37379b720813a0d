#!/usr/bin/env python3
"""An installation is whole, works from where it lies, and its unit and package are what Debian takes.

    install_test.py BUILD_DIRECTORY [unittest arguments]
"""
import gzip
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if __name__ == "__main__" else None

TREE = """\
bin/tessarin-agent bin/tessarinctl lib/tessarin/libk8s_sclient.so lib/tessarin/libtessarin.so
share/doc/tessarin/changelog.gz share/doc/tessarin/copyright""".split()

# What a caller can do with an installed agent, in a mount namespace whose /var/cache is its own.
SESSION = """
mount -t tmpfs tmpfs /var/cache
"$1/bin/tessarin-agent" --state-dir "$1/state" 2>"$1/agent.log" &
for i in $(seq 300); do [ -S "$1/state/agent.sock" ] && break; sleep 0.1; done
TESSARIN_AGENT=unix://$1/state/agent.sock "$1/bin/tessarinctl" info --json
code=$?
kill $!
wait $!
exit $code
"""


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=False, **options)


def install(prefix, destdir=""):
    done = run("cmake", "--install", BUILD, "--prefix", prefix, env={**os.environ, "DESTDIR": str(destdir)})
    assert done.returncode == 0, done.stderr


def files_below(directory):
    return sorted(str(path.relative_to(directory)) for path in directory.rglob("*") if not path.is_dir())


class With_Place(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.place)


class Tree(With_Place):
    def test_of_any_prefix_keeps_all_below_it(self):
        install("/opt/tessarin", self.place)
        documents = ["share/doc/tessarin/" + page.name for page in sorted((ROOT / "doc").glob("*.md"))]
        self.assertEqual(files_below(self.place / "opt/tessarin"),
                         sorted(TREE + documents + ["etc/svc.conf", "lib/systemd/system/tessarin-agent.service"]))
        self.assertEqual([path.name for path in self.place.iterdir()], ["opt"])

    def test_below_usr_has_its_configuration_in_etc(self):
        install("/usr", self.place)
        outside = [name for name in files_below(self.place) if not name.startswith("usr/")]
        self.assertEqual(outside, ["etc/tessarin/svc.conf", "lib/systemd/system/tessarin-agent.service"])

    def test_names_only_files_that_it_has(self):
        for prefix in ("/opt/tessarin", "/usr"):
            install(prefix, self.place)
        for text in (self.place / "opt/tessarin/etc/svc.conf", self.place / "etc/tessarin/svc.conf",
                     self.place / "lib/systemd/system/tessarin-agent.service"):
            named = set(re.findall(r"(?<![\w=/])(/(?:opt/tessarin|usr|etc/tessarin)/[\w./-]+)(?=[: ])", text.read_text()))
            self.assertTrue(named)
            for name in named:
                self.assertTrue((self.place / name[1:]).is_file(), f"{text}: {name}")

    def test_can_be_changed_by_its_owner_alone(self):
        install("/opt/tessarin", self.place)
        for name in files_below(self.place):
            self.assertEqual((self.place / name).stat().st_mode & 0o022, 0, name)

    def test_knows_no_path_of_the_build(self):
        install("/opt/tessarin", self.place)
        for program in ("bin/tessarin-agent", "bin/tessarinctl", "lib/tessarin/libk8s_sclient.so"):
            paths = run("readelf", "-d", self.place / "opt/tessarin" / program).stdout
            self.assertNotIn(str(BUILD), paths)
            self.assertIn("$ORIGIN", paths)
        for text in ("etc/svc.conf", "lib/systemd/system/tessarin-agent.service"):
            self.assertNotIn(str(BUILD), (self.place / "opt/tessarin" / text).read_text())

    def test_works_where_it_lies(self):
        install(self.place)
        flags = "-m" if os.geteuid() == 0 else "-Urm"
        done = run("unshare", flags, "--propagation", "private", "sh", "-c", SESSION, "sh", str(self.place))
        log = (self.place / "agent.log").read_text() if (self.place / "agent.log").exists() else ""
        self.assertEqual(done.returncode, 0, done.stderr + log)
        self.assertIn(str(self.place / "lib/tessarin/libk8s_sclient.so"), done.stdout)
        self.assertIn("k8s.backup", done.stdout)


class Unit(With_Place):
    def unit(self):
        install(self.place)
        return self.place / "lib/systemd/system/tessarin-agent.service"

    @unittest.skipUnless(shutil.which("systemd-analyze"), "no systemd-analyze")
    def test_is_one_that_systemd_understands(self):
        done = run("systemd-analyze", "verify", "--man=no", self.unit())
        about_it = [line for line in done.stderr.splitlines() if "tessarin" in line]
        self.assertEqual((done.returncode, about_it), (0, []), done.stderr)

    def test_gives_the_same_rights_as_the_chart(self):
        sys.path.insert(0, str(ROOT / "deploy/test"))
        from chart_test import agent
        given = re.search(r"(?m)^CapabilityBoundingSet=(.*)$", self.unit().read_text())[1].split()
        self.assertEqual(sorted(given), sorted("CAP_" + name for name in agent()["securityContext"]["capabilities"]["add"]))


class Package(With_Place):
    def config(self, name):
        found = re.search(rf'(?m)^set\({name} "(.*)"\)$', (BUILD / "CPackConfig.cmake").read_text())
        self.assertIsNotNone(found, name)
        return found[1]

    def test_is_made_for_usr_by_the_tools_of_debian(self):
        self.assertEqual(self.config("CPACK_GENERATOR"), "DEB")
        self.assertEqual(self.config("CPACK_INSTALL_PREFIX"), "/usr")
        self.assertEqual(self.config("CPACK_DEBIAN_PACKAGE_SHLIBDEPS"), "ON")
        self.assertEqual(self.config("CPACK_DEBIAN_FILE_NAME"), "DEB-DEFAULT")

    def test_has_the_version_of_the_sources_everywhere(self):
        version = re.search(r"project\(tessarin VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
        self.assertEqual(self.config("CPACK_PACKAGE_VERSION"), version)
        chart = (ROOT / "deploy/chart/tessarin/Chart.yaml").read_text()
        self.assertIn(f"version: {version}\n", chart)
        self.assertIn(f'appVersion: "{version}"', chart)
        install("/usr", self.place)
        changelog = gzip.decompress((self.place / "usr/share/doc/tessarin/changelog.gz").read_bytes()).decode()
        self.assertTrue(changelog.startswith(f"tessarin ({version}) "))

    def test_keeps_what_an_operator_changed(self):
        install("/usr", self.place)
        conffiles = (ROOT / "deploy/deb/conffiles").read_text().split()
        in_etc = ["/" + name for name in files_below(self.place) if name.startswith("etc/")]
        self.assertEqual(conffiles, in_etc)

    def test_has_scripts_that_a_shell_understands(self):
        extra = [pathlib.Path(name) for name in self.config("CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA").split(";")]
        self.assertEqual(sorted(file.name for file in extra), ["conffiles", "postinst", "postrm", "prerm"])
        for script in (file for file in extra if file.name != "conffiles"):
            self.assertEqual(run("sh", "-n", script).stderr, "")
            self.assertEqual(script.read_text().splitlines()[:2], ["#!/bin/sh", "set -e"])
            self.assertEqual(script.stat().st_mode & 0o777, 0o755, script)


if __name__ == "__main__":
    unittest.main()
