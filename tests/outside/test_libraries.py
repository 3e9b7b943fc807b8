"""The shipped files: the libraries they need, the system interfaces they call, and how they are hardened."""

import json
import os
import platform
import re
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ["ZR4410_BUILD"])
HERE = platform.machine() == "x86_64" and "ZR4410_EMULATOR" not in os.environ
TOOL, LIBRARY, SIMULATOR = BUILD / "bin/testZR4410", BUILD / "libzr4410.so", BUILD / "bin/simZR4410"

# The interfaces of the system that the tool and the library use, by purpose. All input and output goes through them, so
# a program that replaces these calls sees everything.
SYSTEM = {
    "queues": "ftok msgget msgsnd msgrcv getpid",
    "log": "openlog syslog closelog",
    "options": "getopt_long",
    "signals": "sigaction sigemptyset sigaddset pthread_sigmask",
    "time": "clock_gettime time localtime usleep sleep",
    "files": "open read close fdopen setvbuf fgets fputs fputc fwrite ferror fflush fileno fsync fclose "
             "rename",
    "standard output": "printf puts putchar",
    "texts": "snprintf sprintf strtol strerror strchr strlen strncmp strnlen strspn",
    "memory": "memchr memcpy memmove memset",
    "mathematics": "log pow",
}
# Names that the compiler and the C library add. On 32-bit machines the calls with 64-bit times have other names.
ADDED = re.compile(r"__errno_location|__stack_chk_(fail|guard)|__libc_start_main|__cxa_finalize|"
                   r"__gmon_start__|_ITM_\w+|__aeabi_\w+|abort|raise|stdout|__(clock_gettime|time|localtime)64")


def readelf(*arguments):
    return subprocess.run(["readelf", "-W", *arguments], capture_output=True, text=True, check=True).stdout


def undefined(file):
    # Newer C libraries have a second strtol, for newer standards of C.
    return {match[1].removeprefix("__isoc23_") for match in re.finditer(r" UND (\w+)", readelf("--dyn-syms", file))}


@pytest.mark.parametrize("file", [TOOL, LIBRARY], ids=lambda file: file.name)
def test_nothing_but_libc_and_libm_is_needed(file):
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", readelf("-d", file)))
    assert "libc.so.6" in needed
    assert {name for name in needed if not name.startswith("ld-linux")} <= {"libc.so.6", "libm.so.6"}


@pytest.mark.parametrize("file", [TOOL, LIBRARY], ids=lambda file: file.name)
def test_no_other_system_interface_is_called(file):
    calls = undefined(file)
    assert {"openlog", "syslog", "closelog"} <= calls
    known = set(" ".join(SYSTEM.values()).split())
    assert {name for name in calls - known if not ADDED.fullmatch(name)} == set()


def test_each_listed_interface_is_called():
    calls = undefined(TOOL) | undefined(LIBRARY)
    # The compiler chooses among the routines for memory.
    assert set(" ".join(SYSTEM.values()).split()) - calls <= set(SYSTEM["memory"].split())


@pytest.mark.skipif(not HERE, reason="about x86-64")
def test_the_stripped_tool_is_small(tmp_path):
    subprocess.run(["strip", "-o", tmp_path / "tool", TOOL], check=True)
    assert (tmp_path / "tool").stat().st_size < 48 * 1024


# --- Hardening. A cross build has no simulator. ---

PRODUCTS = [pytest.param(file, id=file.name) for file in (TOOL, LIBRARY, SIMULATOR)
            if file != SIMULATOR or "ZR4410_EMULATOR" not in os.environ]


@pytest.mark.parametrize("file", PRODUCTS)
def test_relocations_are_read_only_and_bound_at_start(file):
    assert re.search(r"^ *GNU_RELRO ", readelf("-l", file), re.MULTILINE)
    assert "BIND_NOW" in readelf("-d", file)


@pytest.mark.parametrize("file", PRODUCTS)
def test_the_stack_is_not_executable(file):
    assert re.search(r"^ *GNU_STACK .* RW +0x", readelf("-l", file), re.MULTILINE)


@pytest.mark.parametrize("file", PRODUCTS)
def test_the_code_is_position_independent(file):
    assert "DYN (" in readelf("-h", file)
    assert ("PIE" in readelf("-d", file)) == (file != LIBRARY)


@pytest.mark.parametrize("file", PRODUCTS)
def test_the_stack_is_protected(file):
    assert "__stack_chk_fail" in undefined(file)


def test_each_file_of_the_products_is_compiled_with_the_stronger_protection():
    # The binaries do not tell how much of the stack is protected, and small frames need no probes.
    units = [unit["command"] for unit in json.loads((BUILD / "compile_commands.json").read_text())
             if re.search(r"/(support|link|mcu|camera|frontend|simulator)/\w[\w/]*\.cpp$", unit["file"])
             and "/tests/" not in unit["file"]]
    assert len(units) > 20
    assert [unit for unit in units if "-fstack-protector-strong -fstack-clash-protection" not in unit] == []


def code(file):
    return subprocess.run(["objdump", "-d", "--no-show-raw-insn", file], capture_output=True, text=True,
                          check=True).stdout


@pytest.mark.skipif(not HERE, reason="reads instructions of x86-64")
@pytest.mark.parametrize("file", PRODUCTS)
def test_every_function_that_others_call_is_a_branch_target(file):
    functions = {match[1] for match in re.finditer(r" FUNC +GLOBAL +\w+ +\d+ (\w+)", readelf("-s", file))}
    entries = dict(re.findall(r"^[0-9a-f]+ <(\w+)>:\n *[0-9a-f]+:\t(\w+)", code(file), re.MULTILINE))
    first = {name: entries[name] for name in functions & entries.keys() - {"_start", "_init", "_fini"}}  # libc's own
    assert len(first) >= (100 if file == LIBRARY else 1)
    assert {name for name, instruction in first.items() if instruction != "endbr64"} == set()


@pytest.mark.skipif(not HERE, reason="reads instructions of x86-64")
def test_large_stack_frames_are_probed():
    # Only the simulator has frames of more than a page. Each page must be touched when it is allocated.
    instructions = re.findall(r"\t(.+)$", code(SIMULATOR), re.MULTILINE)
    taken = [number for number, text in enumerate(instructions) if re.fullmatch(r"sub +\$0x1000,%rsp *", text)]
    assert taken
    for number in taken:
        assert re.fullmatch(r"(or|mov)q +\$0x0,(0x\w+)?\(%rsp\) *", instructions[number + 1])
    larger = [text for text in instructions if (match := re.fullmatch(r"sub +\$0x(\w+),%rsp *", text))
              and 0x1000 < int(match[1], 16) < 1 << 31]  # above that it adds
    assert larger == []
