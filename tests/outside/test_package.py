"""Compares debian/ with the installed files and the build's dependencies. script/package builds the packages."""

import os
import re
import subprocess
from fnmatch import fnmatchcase
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
DEBIAN = ROOT / "debian"
CONTROL = (DEBIAN / "control").read_text()
PACKAGES = re.findall(r"^Package: (.*)$", CONTROL, re.MULTILINE)
# The files of each package: patterns of files or whole folders.
PATTERNS = {package: (DEBIAN / f"{package}.install").read_text().split() for package in PACKAGES}


@pytest.fixture(scope="session")
def installed(tmp_path_factory):
    """The installed files, with the names that they have while the packages are built."""
    prefix = tmp_path_factory.mktemp("prefix")
    subprocess.run(["cmake", "--install", os.environ["ZR4410_BUILD"], "--prefix", prefix], check=True, timeout=100,
                   capture_output=True)
    names = [str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir()]
    return ["usr/" + re.sub("^lib/", "lib/ARCHITECTURE/", name) for name in names]


def holds(pattern, name):
    parts = pattern.split("/")  # a * matches within one name of a path
    return all(fnmatchcase(*pair) for pair in zip(name.split("/"), parts)) and name.count("/") + 1 >= len(parts)


def test_each_installed_file_is_in_one_package(installed):
    assert len(installed) > 30
    packages = {name: [package for package in PACKAGES for pattern in PATTERNS[package] if holds(pattern, name)]
                for name in installed}
    assert {name: found for name, found in packages.items() if len(found) != 1} == {}
    assert packages["usr/bin/testZR4410"] == ["testzr4410"]
    assert packages["usr/lib/ARCHITECTURE/libzr4410.so"] == ["libzr4410-dev"]


def test_each_package_finds_its_files(installed):
    assert len(PACKAGES) == 4
    assert [pattern for package in PACKAGES for pattern in PATTERNS[package]
            if not any(holds(pattern, name) for name in installed)] == []


def test_the_build_dependencies_are_those_of_bootstrap():
    needed = re.search(r"^Build-Depends: (.*?)^\w", CONTROL, re.MULTILINE | re.DOTALL)[1]
    names = set(re.findall(r"^\s*([\w.+-]+)", needed, re.MULTILINE)) - {"debhelper-compat"}
    assert len(names) > 5
    bootstrap = (ROOT / "script/bootstrap").read_text()
    group = set(re.search(r'^group\[build\]="(.*?)"', bootstrap, re.MULTILINE | re.DOTALL)[1].split())
    # debhelper brings a compiler and make; the packages leave out the tests and the benchmark, which need the others.
    assert group - names == {"g++", "make", "ninja-build", "libgtest-dev", "libgmock-dev", "libbenchmark-dev"}
    assert names < group


def test_the_version_is_not_repeated():
    version = re.search(r"^project\(testZR4410 VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
    files = [path for path in DEBIAN.rglob("*") if path.is_file()]
    assert len(files) > 8
    assert [path.name for path in files if version in path.read_text()] == []
    assert not (DEBIAN / "changelog").exists()  # script/package writes it


def test_the_librarys_package_is_named_after_its_interface():
    number = re.search(r" SOVERSION (\d+)", (ROOT / "cmake/Product.cmake").read_text())[1]
    assert f"libzr4410-{number}" in PACKAGES
    assert f"LIBZR4410_{number} {{" in (ROOT / "cmake/libzr4410.map").read_text()


def test_packages_of_another_architecture_cannot_be_run():
    run = subprocess.run([ROOT / "script/package", "armhf", "--test"], capture_output=True, text=True, timeout=20)
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr == "script/package: --test can only run packages of this machine's architecture\n"
