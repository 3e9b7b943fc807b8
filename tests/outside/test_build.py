"""The build as users, packagers and other projects configure it. Only the device preset is also built, not just
configured; test_library.py builds subprojects."""

import json
import os
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
NOTHING_ELSE = [f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON"
                for name in ("CLI11", "nlohmann_json", "tomlplusplus", "Threads", "GTest", "benchmark")]


def cmake(*arguments, **variables):
    environment = {name: value for name, value in os.environ.items() if name not in ("CXXFLAGS", "ZR4410_WERROR")}
    return subprocess.run(["cmake", *arguments], capture_output=True, text=True, timeout=200, cwd=ROOT, check=True,
                          env={**environment, **variables}).stdout


def flags(build, file):
    commands = json.loads((build / "compile_commands.json").read_text())
    return next(entry["command"].split() for entry in commands if entry["file"].endswith(file))


def cached(build, name):
    lines = (build / "CMakeCache.txt").read_text().splitlines()
    return next(line.split("=", 1)[1] for line in lines if line.startswith(name + ":"))


def test_a_plain_build_is_optimised_and_takes_the_users_flags(tmp_path):
    cmake("-B", tmp_path, "-S", ROOT, "-DZR4410_SIMULATOR=OFF", "-DZR4410_TESTS=OFF", CXXFLAGS="-DMINE")
    assert cached(tmp_path, "CMAKE_BUILD_TYPE") == "MinSizeRel"
    assert {"-Os", "-DMINE", "-Wall"} < set(flags(tmp_path, "/Reports.cpp"))
    assert "-Werror" not in flags(tmp_path, "/Reports.cpp")


@pytest.mark.parametrize("preset", ["device", "release", "debug", "asan+ubsan", "coverage"])
def test_a_preset_keeps_the_users_flags_and_no_warning_stops_it(tmp_path, preset):
    cmake("--preset", preset, "-B", tmp_path, CXXFLAGS="-DMINE")
    assert "-DMINE" in flags(tmp_path, "/Reports.cpp")
    assert "-Werror" not in (tmp_path / "compile_commands.json").read_text()


@pytest.mark.parametrize("preset, variables", [("developer", {}), ("release", {"ZR4410_WERROR": "ON"})])
def test_a_warning_is_an_error_to_developers(tmp_path, preset, variables):
    cmake("--preset", preset, "-B", tmp_path, **variables)
    for entry in json.loads((tmp_path / "compile_commands.json").read_text()):
        assert "-Werror" in entry["command"].split(), entry["file"]


def test_the_device_preset_builds_and_installs_with_a_compiler_alone(tmp_path):
    build, prefix = tmp_path / "build", tmp_path / "prefix"
    cmake("--preset", "device", "-B", build, *NOTHING_ELSE)
    cmake("--build", build, "--parallel", "2")
    cmake("--install", build, "--prefix", prefix)
    usage = subprocess.run([prefix / "bin/testZR4410", "-h"], capture_output=True, text=True).stdout
    assert usage.startswith("Usage: testZR4410")
    installed = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if path.is_file()}
    assert {"bin/testZR4410", "include/zr4410/QM2150.h", "share/man/man1/testZR4410.1"} < installed
    assert not any("simZR4410" in name for name in installed)
    for name in installed:
        assert [path for path in (ROOT, tmp_path) if str(path).encode() in (prefix / name).read_bytes()] == [], name


@pytest.mark.parametrize("asked", [False, True])
def test_a_subproject_gets_tests_simulator_and_installation_only_if_it_asks(tmp_path, asked):
    (tmp_path / "CMakeLists.txt").write_text(f"""
        cmake_minimum_required(VERSION 3.25)
        project(other C CXX)
        enable_testing()
        add_subdirectory("{ROOT}" zr4410)
        add_library(program program.c)
        target_link_libraries(program PRIVATE zr4410)""")  # the name without a namespace works too
    (tmp_path / "program.c").write_text("")
    build = tmp_path / "build"
    names = ("TESTS", "SIMULATOR", "INSTALL") if asked else ()
    cmake("-S", tmp_path, "-B", build, *[f"-DZR4410_{name}=ON" for name in names], *([] if asked else NOTHING_ELSE))
    targets = cmake("--build", build, "--target", "help")
    assert ("simZR4410" in targets, "unit_tests" in targets) == (asked, asked)
    scripts = "".join(path.read_text() for path in build.rglob("cmake_install.cmake"))
    assert ("bin/testZR4410" in scripts) == asked
    assert cached(build, "CMAKE_BUILD_TYPE") == ""  # left to the other project
