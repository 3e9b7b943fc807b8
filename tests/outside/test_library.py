"""Uses the installed library in each way that the README shows, with the README's own text, as C11 and as C++17. The
programs query the simulated device."""

import json
import os
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
# The blocks of the section, by the word after the language: the name of a file, or of a use.
SECTION = (ROOT / "README.md").read_text().split("\n## Use the library\n")[1].split("\n## ")[0]
BLOCKS = dict(re.findall(r"^```\w+ (\S+)\n(.*?)^```$", SECTION, re.MULTILINE | re.DOTALL))
*COMPILE, RUN = BLOCKS["commands"].splitlines()
PROJECT = BLOCKS["CMakeLists.txt"]
PACKAGE = "find_package(zr4410 0.0.1 REQUIRED)\n"
OUTPUT = "shutter position 6\n"  # the simulated camera's starting value
TOO_LONG = 200  # seconds; reached only if something hangs


def run(line, folder, **variables):
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("ZR4410_BUILD") and name not in ("CFLAGS", "CXXFLAGS", "LDFLAGS")}
    outcome = subprocess.run(["sh", "-ec", line], cwd=folder, env={**environment, **variables}, capture_output=True,
                             text=True, timeout=TOO_LONG, stdin=subprocess.DEVNULL)
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
    return outcome.stdout


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    run(f"cmake --install '{os.environ['ZR4410_BUILD']}' --prefix '{prefix}'", ROOT)
    return prefix


@pytest.fixture
def folder(tmp_path):
    for name in ("example.c", "example.cpp"):
        (tmp_path / name).write_text(BLOCKS["example.c"])
    return tmp_path


def output(prefix, *programs):
    """What the programs print in the sandbox, one after the other."""
    assert RUN.startswith("zr4410-sandbox ./example ") and RUN.endswith(f'# prints "{OUTPUT.strip()}"')
    each = " && ".join(str(program) for program in programs)
    return run(f"{prefix}/bin/zr4410-sandbox --sim-args --fast sh -c '{each}'", programs[0].parent)


def needed(program):
    return set(re.findall(r"\(NEEDED\).*\[(.+)\]", run(f"readelf -W -d '{program}'", program.parent)))


def test_every_header_compiles_from_the_installation(prefix, folder):
    headers = [path.name for path in (prefix / "include/zr4410").iterdir()]
    assert {"zr4410.h", "QM2150.h", "McuComm.h", "Results.h"} < set(headers)
    for name in headers:
        for suffix in ("c", "cpp"):
            (folder / f"{name}.{suffix}").write_text(f"#include <zr4410/{name}>\nextern int a_declaration;\n")
    warnings = f"-Wall -Wextra -Wpedantic -Werror -fsyntax-only -I '{prefix}/include'"
    run(f"cc -std=c11 {warnings} *.h.c && c++ -std=c++17 {warnings} *.h.cpp", folder)
    assert [path.name for path in (prefix / "include").iterdir()] == ["zr4410"]


@pytest.mark.parametrize("command", COMPILE)
def test_the_commands(prefix, folder, command):
    command = command.replace("/usr/local", str(prefix))
    path = str(prefix / "lib/pkgconfig")
    run(command.replace("cc example.c -o example ", "cc -std=c11 -Wall -Werror example.c -o in_c "), folder,
        PKG_CONFIG_PATH=path)
    run(command.replace("cc example.c -o example ", "c++ -std=c++17 -Wall -Werror example.cpp -o in_cxx "), folder,
        PKG_CONFIG_PATH=path)
    assert output(prefix, folder / "in_c", folder / "in_cxx") == 2 * OUTPUT
    assert ("libzr4410.so.0" in needed(folder / "in_c")) == ("-static" not in command)


def build(folder, project, *options, **variables):
    """Builds the project in C11, with a part in C++17 that has the same program. Returns both programs."""
    (folder / "CMakeLists.txt").write_text(project + "add_subdirectory(cxx)\n")
    (folder / "cxx").mkdir()
    (folder / "cxx/CMakeLists.txt").write_text("""
project(cxx CXX)
add_executable(in_cxx ../example.cpp)
target_link_libraries(in_cxx PRIVATE zr4410::zr4410)
""")
    # The library's own code compiles without these assertions, which some distributions turn on.
    asserted = "-D_GLIBCXX_ASSERTIONS"
    standards = "-DCMAKE_C_STANDARD=11 -DCMAKE_C_EXTENSIONS=OFF -DCMAKE_CXX_STANDARD=17 -DCMAKE_CXX_EXTENSIONS=OFF"
    run(f"cmake -G Ninja -B build -DCMAKE_EXPORT_COMPILE_COMMANDS=ON {standards} -DCMAKE_CXX_FLAGS={asserted} "
        f"{' '.join(options)} && "
        "cmake --build build --target example in_cxx --parallel 2", folder, **variables)
    commands = {Path(unit["file"]).name: unit["command"].split()
                for unit in json.loads((folder / "build/compile_commands.json").read_text())}
    for name, standard in (("example.c", "-std=c11"), ("example.cpp", "-std=c++17")):
        # Only the folder of the headers comes with the library.
        assert [word for word in commands[name] if re.match(r"-[fWDOm]", word) and word != asserted] == []
        assert standard in commands[name]
    assert [unit for unit in commands for word in commands[unit] if word.startswith("-W")] == []
    return folder / "build/example", folder / "build/cxx/in_cxx"


@pytest.mark.parametrize("way, shared", [("find_package", "OFF"), ("find_package", "ON"),
                                         ("add_subdirectory", "OFF"), ("FetchContent", "ON")])
def test_a_project(prefix, folder, way, shared):
    assert PACKAGE in PROJECT
    project = PROJECT if way == "find_package" else PROJECT.replace(PACKAGE, BLOCKS[way])
    (folder / "testZR4410").symlink_to(ROOT)
    programs = build(folder, project, f"-DBUILD_SHARED_LIBS={shared}", f"-DFETCHCONTENT_SOURCE_DIR_ZR4410='{ROOT}'",
                     CMAKE_PREFIX_PATH=str(prefix))
    assert output(prefix, *programs) == 2 * OUTPUT
    assert [("libzr4410.so.0" in needed(program)) for program in programs] == 2 * [shared == "ON"]
    assert needed(programs[0]) <= {"libzr4410.so.0", "libc.so.6", "libm.so.6"}
    assert list((folder / "build").rglob("*simZR4410*")) == []
