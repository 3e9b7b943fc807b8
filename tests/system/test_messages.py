"""docs/messages.md has every failure text of the sources and no other, and its commands show what they say.
"""

import os
import re
import shlex
import shutil
import subprocess
from pathlib import Path
from typing import NamedTuple

import pytest

from device import SIMULATOR, TIME_LIMIT, TOOL

ROOT = Path(__file__).parents[2]
CONTROL = "/run/control-of-the-test"
PROGRAMS = {"testZR4410": TOOL, "simZR4410": SIMULATOR,
            "call": [*shlex.split(os.environ.get("ZR4410_EMULATOR", "")),
                     str(Path(os.environ["ZR4410_BUILD"]) / "bin" / "call")]}
PAGE = (ROOT / "docs/messages.md").read_text()
MODULES = ["support", "link", "mcu", "camera", "frontend"]
SETTINGS = "camera: settings"
NO_FAILURES = "Lines at error level that are no failures"
CODE = re.compile(r"`([^`]+)`")

# --- The page ---


def cells(line):
    return [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]]


def tables(section):
    """The rows of each table of a section, without the heading."""
    return [[cells(line) for line in table.splitlines()] for table in
            re.findall(r"^\|(?: --- \|)+\n((?:\|.*\n)+)", SECTIONS[section], re.MULTILINE)]


class Row(NamedTuple):
    module: str
    text: str
    modes: str
    shown: str


def settings():
    """The rows of the table of settings, one for each text. The table before it has the commands."""
    commands, texts = tables(SETTINGS)
    shown, failure = {}, ""
    for name, _, _, of, command in commands:
        failure = name or failure
        shown[failure, of] = command
    columns = [failure for failure, of in shown if of == "each"]
    for name, *row in texts:
        for column, text in zip(columns, row):
            if text != "–":
                command = shown.get((column, name), shown[column, "each"]).replace("NAME", name)
                modes = "library, `-y`" if name == "HighSensitivity" else "library"
                yield Row("camera", CODE.fullmatch(text)[1], modes, command)


SECTIONS = dict(re.findall(r"^## (.*)\n((?:(?!## ).*\n)*)", PAGE, re.MULTILINE))
ROWS = [*settings(), *(Row(section.partition(":")[0], CODE.match(row[0])[1], row[3], row[4])
                       for section in SECTIONS if section.partition(":")[0] in MODULES and section != SETTINGS
                       for table in tables(section) for row in table)]

# --- The sources ---

TOKEN = re.compile(r"""//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*|'(?:\\.|[^'\\\n])+'
                       |(?P<text>"(?:\\.|[^"\\\n])*")|(?P<name>[A-Za-z_]\w*)|(?P<bracket>[(){}=;])|\s+|.""",
                   re.DOTALL | re.MULTILINE | re.VERBOSE)


def literals(source):
    """Each string literal, and the call or the value that it belongs to; a call of LOG has the level in place of it."""
    outside, name, owner = [], "", ""
    for token in TOKEN.finditer(source):
        text = token.group()
        if token.lastgroup == "name":
            name = text
            owner = text if text in ("LOG_ERR", "LOG_INFO", "LOG_DEBUG") else owner
        elif token.lastgroup == "text":
            yield text[1:-1].removesuffix("\\n"), owner
        elif text in ("(", "{"):
            outside.append(owner)
            owner = name if text == "(" else owner
        elif text in (")", "}"):
            owner = outside.pop()
        elif text in ("=", ";"):
            owner = name if text == "=" else ""


# What is no failure text, unless it says that something failed: everything printed, and these lists.
HARMLESS = re.compile(r"""
    LOG_INFO|LOG_DEBUG|printf|puts|fputs|snprintf|sprintf|Dump|LogBanner|SwitchLensPower|static_assert
    |openlog|strspn|strncmp|sysconf_fget|file|to|from           # names and modes of files, characters
    |kPath|kKeyPath|kSettingsPath|kProgram|kShortOptions|kLongOptions
    |cAck|cChecksumErr|cCmdNotDefine|cValueOutRange|cBausy|cNull  # of MCU_StrError, which logs nothing
    |kDescriptions|kSnrModes|kAeModes|kWbModes                    # names
    |kOffOn|kFocusModes|kAfModes|kSensitivities|kAutoIcr|kIcr|kModes|kShadowLevels|kHighlightLevels  # words in reports
    |kLensControl|kCameraControl|kOtherControl|kEnlargeFunction[12]  # labels of fields""", re.VERBOSE)
FAILED = re.compile("[Ff]ail|Reflush")
NO_TEXT = {"", "%s", "C"}  # a word of a report, the format of a line that is passed on, the linkage of declarations


def texts_of_failures(module):
    return {text for file in (ROOT / module).glob("*.cpp") for text, owner in literals(file.read_text())
            if text not in NO_TEXT and (not HARMLESS.fullmatch(owner) or FAILED.search(text))}


# --- The tests ---


@pytest.mark.parametrize("module", MODULES)
def test_the_page_has_every_failure_text_of_a_module_and_no_other(module):
    listed = [row.text for row in ROWS if row.module == module]
    harmless = {text for [table] in [tables(NO_FAILURES)] for first, _ in table for text in CODE.findall(first)}
    in_sources = texts_of_failures(module)
    assert len(in_sources) > 8
    missing, unknown = in_sources - harmless - set(listed), set(listed) - in_sources
    assert not missing, f"add a row to docs/messages.md for {missing}"
    assert not unknown, f"no source has {unknown}"


def test_the_page_has_the_code_of_each_setting():
    source = (ROOT / "camera/QM2150Parameters.cpp").read_text()
    codes = re.findall(r"^constexpr \w+ k(\w+) = \{\n +\.code = 0x(\w\w)", source, re.MULTILINE)
    assert len(codes) > 20
    assert [(name, code) for name, *_, code in tables(SETTINGS)[1]] == codes


def test_the_lines_that_are_no_failures_are_in_the_sources():
    [table] = tables(NO_FAILURES)
    listed = {text for first, _ in table for text in CODE.findall(first)}
    assert listed <= {text for module in MODULES for text in texts_of_failures(module)}
    assert not listed & {row.text for row in ROWS}


def test_the_examples_are_quoted_from_the_demo():
    demo = [line.rstrip() for line in (ROOT / "tests/outside/demo.txt").read_text().splitlines()]
    examples = re.findall(r"^```\n(\$ testZR4410.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)
    assert len(examples) == 2
    for example in examples:
        first, *lines = example.splitlines()
        run = iter(demo[demo.index(first):])
        for line in lines:
            assert line.strip() == "…" or line in run  # continues after the previous line


SHOW = re.compile(r"show '([^']*)' '([^']*)'")
COMMANDS = {}  # the rows that a command shows
for each in ROWS:
    COMMANDS.setdefault(each.shown, []).append(each)
UNSHOWN = {shown: rows for shown, rows in COMMANDS.items() if not shown.startswith("`show")}


def test_a_line_without_a_command_says_how_it_comes_about():
    assert all(shown.startswith("no fault; ") for shown in UNSHOWN)
    assert sum(map(len, UNSHOWN.values())) < len(ROWS) / 6


# The options that the words for the modes stand for.
MODES = {"all": "smciry", "camera": "sciy", "MCU": "m", "library": ""}


@pytest.mark.parametrize("shown", sorted(COMMANDS.keys() - UNSHOWN.keys()))
def test_a_command_is_of_a_mode_that_its_row_names(shown):
    _, command = SHOW.search(shown).groups()
    options = set(re.findall(r"testZR4410 -(\w)", command)[-1:])  # earlier runs only prepare
    for row in COMMANDS[shown]:
        words = set(re.findall(r"\w+", re.sub(CODE, "", row.modes)))
        allowed = {letter for word in words for letter in MODES[word]} | set(re.findall(r"`-(\w)", row.modes))
        assert options <= allowed if options else "library" in words, row


def pattern(text):
    """A regular expression for the lines of a format."""
    conversions = {"s": ".*", "d": r"-?\d+", "x": "[0-9a-f]+"}
    return re.compile(re.sub(r"%(?:\\?[.\d])*([sdx])", lambda match: conversions[match[1]], re.escape(text)))


@pytest.fixture
def path(tmp_path):
    """A PATH with the programs under test, whatever they are called."""
    for name, program in PROGRAMS.items():
        words = shlex.join([shutil.which(program[0]), *program[1:]])
        (tmp_path / name).write_text(f'#!/bin/sh\nexec {words} "$@"\n')
        (tmp_path / name).chmod(0o755)
    return f"{tmp_path}:{os.environ['PATH']}"


@pytest.mark.parametrize("shown", sorted(COMMANDS.keys() - UNSHOWN.keys()))
def test_a_command_shows_its_lines(simulator, syslog, path, shown):
    options, command = SHOW.search(shown).groups()
    simulator("--fast", "--quiet", "--remove-queues", "--control", CONTROL, *options.split())
    # "timeout" sends its signal twice, and LeakSanitizer can hang if the second one comes while it looks for leaks.
    sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
    subprocess.run(["sh", "-c", command], timeout=TIME_LIMIT, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                   env={**os.environ, "PATH": path, "ZR4410_CONTROL": CONTROL, "ASAN_OPTIONS": sanitizer})
    syslog.settle()
    lines = [match[3].decode("latin-1").removesuffix("\n") for match in map(syslog.LINE.fullmatch, syslog.datagrams)
             if match]
    for row in COMMANDS[shown]:
        assert any(pattern(row.text).fullmatch(line) for line in lines), (row.text, lines)
