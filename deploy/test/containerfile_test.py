#!/usr/bin/env python3
"""The container is built of what it needs and of nothing else. There need be no container engine: the file is parsed, and
what its steps do is done here.

    containerfile_test.py BUILD_DIRECTORY [unittest arguments]
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FILE = ROOT / "deploy/Containerfile"
BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if __name__ == "__main__" else None
PRODUCTS = ["bin/tessarin-agent", "bin/tessarinctl", "lib/libk8s_sclient.so", "lib/libtessarin.so"]

# In the image though no product is linked with it: the authorities that vouch for a storage service.
BESIDE_LIBRARIES = {"ca-certificates"}
# Of scripts/setup, for tests and developers only.
NOT_FOR_A_BUILD = set("""libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev dpkg-dev""".split())
# Linked with where the compiler does not optimise, and in no release.
NOT_IN_A_RELEASE = {"libboost-container1.81.0"}
SANITIZERS = re.compile(r"lib(asan|ubsan|tsan|lsan)\d+$")


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=True, **options).stdout


def stages():
    """The instructions of each stage, as (word, rest) pairs, the first FROM."""
    text = re.sub(r"\\\n", " ", re.sub(r"(?m)^\s*#.*\n", "", FILE.read_text()))
    found = []
    for line in filter(None, (line.strip() for line in text.splitlines())):
        word, _, rest = line.partition(" ")
        if word == "FROM":
            found.append([])
        found[-1].append((word, " ".join(rest.split())))
    return found


def packages_of(stage):
    installs = [rest for word, rest in stage if word == "RUN" and "apt-get install" in rest]
    assert len(installs) == 1
    return [name for name in re.search(r"--no-install-recommends ([^&]*)", installs[0])[1].split()]


def owner_of(library):
    path = pathlib.Path(library)
    for name in (path, path.resolve(), pathlib.Path("/usr" + str(path))):
        done = subprocess.run(["dpkg", "-S", name], capture_output=True, text=True, check=False)
        if done.returncode == 0:
            return done.stdout.split(":")[0]
    raise AssertionError(f"{library} is in no package")


def linked_packages():
    """Of what the products themselves are linked with; what those libraries need comes with their packages."""
    packages = set()
    for product in PRODUCTS:
        needed = set(re.findall(r"NEEDED.*\[(.*)\]", run("readelf", "-d", BUILD / product)))
        resolved = dict(re.findall(r"(\S+) => (/\S+)", run("ldd", BUILD / product)))
        packages |= {owner_of(resolved[name]) for name in needed
                     if name in resolved and not resolved[name].startswith(str(BUILD))}
    return {name for name in packages - NOT_IN_A_RELEASE if not SANITIZERS.match(name)}


class Containerfile(unittest.TestCase):
    def test_has_two_stages_on_debian_12(self):
        self.assertEqual([stage[0] for stage in stages()], [("FROM", "debian:12-slim AS build"), ("FROM", "debian:12-slim")])

    def test_compiles_without_the_rights_of_root(self):
        words = [(word, rest) for word, rest in stages()[0]]
        user = next(i for i, (word, rest) in enumerate(words) if word == "USER")
        self.assertEqual(words[user][1], "build")
        self.assertTrue(all("apt-get" not in rest for _, rest in words[user:]))
        self.assertTrue(all("cmake --" not in rest for _, rest in words[:user]))

    def test_is_bound_to_no_architecture(self):
        self.assertNotRegex(re.sub(r"(?m)^#.*$", "", FILE.read_text()), r"amd64|x86|arm64|aarch64")
        self.assertIn(("ARG", "TARGETARCH"), stages()[1])

    def test_leaves_no_lists_of_packages_behind(self):
        for stage in stages():
            for word, rest in stage:
                if "apt-get install" in rest:
                    self.assertTrue(rest.endswith("&& rm -rf /var/lib/apt/lists/*"))

    def test_takes_from_the_build_what_was_installed_and_nothing_else(self):
        build = " ".join(rest for word, rest in stages()[0] if word == "RUN")
        destdir, prefix = re.search(r"DESTDIR=(\S+) cmake --install build/release --prefix (\S+)", build).groups()
        copies = [rest for word, rest in stages()[1] if word in ("COPY", "ADD")]
        self.assertEqual(copies, [f"--from=build --chown=root:root {destdir}{prefix} {prefix}"])
        self.assertIn(("ENTRYPOINT", f'["{prefix}/bin/tessarin-agent"]'), stages()[1])

    def test_has_exactly_the_libraries_that_the_products_are_linked_with(self):
        self.assertEqual(sorted(packages_of(stages()[1])), sorted(linked_packages() | BESIDE_LIBRARIES))

    def test_links_with_nothing_that_is_missing(self):
        for product in PRODUCTS:
            self.assertNotIn("not found", run("ldd", BUILD / product), product)

    def test_builds_with_the_libraries_that_a_build_needs(self):
        setup = re.search(r"(?s)packages=\((.*?)\n\)", (ROOT / "scripts/setup").read_text())[1].split()
        wanted = {name for name in setup if name.endswith("-dev")} - NOT_FOR_A_BUILD
        given = packages_of(stages()[0])
        self.assertEqual({name for name in given if name.endswith("-dev")}, wanted)
        self.assertLessEqual({name for name in given if not name.endswith("-dev")}, set(setup))

    # COPY, and the first half of RUN.
    def test_can_be_configured_from_what_is_copied(self):
        place = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, place)
        for name in run("git", "ls-files", cwd=ROOT).split("\n"):
            if name and self.is_copied(name) and (ROOT / name).is_file():
                (place / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, place / name)
        build = " ".join(rest for word, rest in stages()[0] if word == "RUN")
        configure = re.search(r"(cmake --preset .*?) &&", build)[1].split()
        absent = ["-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON"]
        run(*configure, *absent, cwd=place)
        targets = re.search(r"--target (.*?) &&", build)[1].split()
        known = run("cmake", "--build", "build/release", "--target", "help", cwd=place)
        for target in targets:
            self.assertRegex(known, rf"(?m)^{target}: phony")

    @staticmethod
    def is_copied(name):
        copied = True
        for pattern in (ROOT / ".dockerignore").read_text().split():
            kept = pattern.startswith("!")
            path = pattern.removeprefix("!")
            if path == "*" or name == path or name.startswith(path + "/"):
                copied = kept
        return copied


if __name__ == "__main__":
    unittest.main()
