"""The installed files: the libraries they need, the system interfaces they call, what the library exports, and how they
are hardened."""

import json
import os
import platform
import re
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ["ZR4410_BUILD"])
ON_X86_64 = platform.machine() == "x86_64" and "ZR4410_EMULATOR" not in os.environ
ARCHIVE, EXPORTS = BUILD / "libzr4410.a", Path(__file__).parents[2] / "cmake/libzr4410.map"
TOOL, LIBRARY, SIMULATOR = BUILD / "bin/testZR4410", BUILD / "libzr4410.so", BUILD / "bin/simZR4410"

# The system interfaces that the tool and the library use, by purpose. All input and output goes through them, so a
# program that replaces these calls sees everything.
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


UNPROBED = re.search(r"clang version 1[0-5]\.", readelf("-p", ".comment", LIBRARY)) is not None


def undefined(file):
    # Newer C libraries have a second strtol, for newer C standards. Where _FORTIFY_SOURCE is the compiler's default, as
    # on Ubuntu, __syslog_chk replaces syslog.
    names = {match[1].removeprefix("__isoc23_") for match in re.finditer(r" UND (\w+)", readelf("--dyn-syms", file))}
    return {re.sub(r"^__(\w+)_chk$", r"\1", name) for name in names}


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
    # Which of the memory routines and whether strlen is called is the compiler's choice.
    assert set(" ".join(SYSTEM.values()).split()) - calls <= {"strlen", *SYSTEM["memory"].split()}


@pytest.mark.skipif(not ON_X86_64, reason="the limit is for x86-64")
def test_the_stripped_tool_is_small(tmp_path):
    subprocess.run(["strip", "-o", tmp_path / "tool", TOOL], check=True)
    assert (tmp_path / "tool").stat().st_size < 48 * 1024


# --- The binary interface ---

def defined(file):
    """The type and size of each symbol of the file that others can link to."""
    lines = re.findall(r"^ *\d+: \w+ +(\w+) (\w+) +(?:GLOBAL|WEAK|UNIQUE) +DEFAULT +(?!UND|ABS)\w+ (\S+)$",
                       readelf("--dyn-syms" if file == LIBRARY else "-s", file), re.MULTILINE)
    return {name: (kind, int(size, 0)) for size, kind, name in lines}


def listed():
    """The size of each symbol in cmake/libzr4410.map, 0 for a routine, by name and version."""
    return {f"{name}@@{version}": int(size or 0)
            for version, names in re.findall(r"^(LIB\w+) {$(.*?)^}", EXPORTS.read_text(), re.MULTILINE | re.DOTALL)
            for name, size in re.findall(r"^ +(\w+);(?: /\* (\d+) \*/)?$", names, re.MULTILINE)}


def test_the_library_exports_the_listed_names_and_sizes():
    exported = {name: size if kind == "OBJECT" else 0 for name, (kind, size) in defined(LIBRARY).items()}
    assert exported == listed()
    assert len(exported) > 100


def test_every_public_name_is_listed():
    assert set(defined(ARCHIVE)) == {name.split("@")[0] for name in listed()}


def test_programs_are_linked_to_the_first_version_of_the_interface():
    assert "Library soname: [libzr4410.so.0]" in readelf("-d", LIBRARY)


def test_the_library_calls_its_own_routines_even_if_the_program_defines_the_same_names():
    relocations = readelf("-r", LIBRARY)
    assert "syslog" in relocations
    assert re.findall(r"_JUMP_SL.* (\w+)@@LIBZR4410_0", relocations) == []


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


def test_each_source_file_is_compiled_with_strong_stack_protection_and_probes():
    # The binaries do not show how much of the stack is protected, and small frames need no probes.
    units = [unit["command"] for unit in json.loads((BUILD / "compile_commands.json").read_text())
             if re.search(r"/(support|link|mcu|camera|frontend|simulator)/\w[\w/]*\.cpp$", unit["file"])
             and "/tests/" not in unit["file"]]
    assert len(units) > 20
    flags = ["-fstack-protector-strong"] + ["-fstack-clash-protection"] * (not UNPROBED)
    assert [unit for unit in units for flag in flags if flag not in unit] == []


def code(file):
    return subprocess.run(["objdump", "-d", "--no-show-raw-insn", file], capture_output=True, text=True,
                          check=True).stdout


@pytest.mark.skipif(not ON_X86_64, reason="reads instructions of x86-64")
@pytest.mark.parametrize("file", PRODUCTS)
def test_every_global_function_starts_with_endbr64(file):
    functions = {match[1] for match in re.finditer(r" FUNC +GLOBAL +\w+ +\d+ (\w+)", readelf("-s", file))}
    entries = dict(re.findall(r"^[0-9a-f]+ <(\w+)>:\n *[0-9a-f]+:\t(\w+)", code(file), re.MULTILINE))
    first = {name: entries[name] for name in functions & entries.keys() - {"_start", "_init", "_fini"}}  # libc's own
    assert len(first) >= (100 if file == LIBRARY else 1)
    assert {name for name, instruction in first.items() if instruction != "endbr64"} == set()


@pytest.mark.skipif(UNPROBED, reason="compiled without probes, because this clang generates wrong code with them")
@pytest.mark.skipif(not ON_X86_64, reason="reads instructions of x86-64")
def test_large_stack_frames_are_probed():
    # Only the simulator has frames of more than a page. Each page must be touched when it is allocated.
    instructions = re.findall(r"\t(.+)$", code(SIMULATOR), re.MULTILINE)
    taken = [number for number, text in enumerate(instructions) if re.fullmatch(r"sub +\$0x1000,%rsp *", text)]
    assert taken
    for number in taken:
        assert re.fullmatch(r"(or|mov)[bwlq] +\$0x0,(0x\w+)?\(%rsp\) *", instructions[number + 1])
    larger = [text for text in instructions if (match := re.fullmatch(r"sub +\$0x(\w+),%rsp *", text))
              and 0x1000 < int(match[1], 16) < 1 << 31]  # a larger number is negative: it adds
    assert larger == []
