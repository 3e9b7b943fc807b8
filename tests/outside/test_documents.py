"""The documents that no other test covers: the version, all manual pages, libzr4410(3), the completion, NEWS.md and the
tests that CONTRIBUTING.md names."""

import os
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
BUILD = Path(os.environ["ZR4410_BUILD"])
VERSION = re.search(r"^project\(\w+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
PAGES = sorted((ROOT / "docs").glob("*.[1-9]"))


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True, timeout=100).stdout


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    run("cmake", "--install", BUILD, "--prefix", prefix)
    return prefix


def test_the_programs_have_the_projects_version(prefix):
    assert run(prefix / "bin/simZR4410", "--version") == f"simZR4410 {VERSION}\n"
    assert VERSION.encode() + b"\0" in (prefix / "bin/testZR4410").read_bytes()  # logged in the banners


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_an_installed_manual_page_has_the_projects_version(prefix, page):
    installed = prefix / "share/man" / f"man{page.suffix[1:]}" / page.name
    assert installed.read_text() == page.read_text().replace("@PROJECT_VERSION@", VERSION)
    assert installed.read_text().splitlines()[0].split('"')[1] == f"testZR4410 {VERSION}"


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_a_manual_page_has_no_lint_warnings(page):
    # Not every page is wrapped at 80 characters; the limit for all files is 120.
    lint = subprocess.run(["mandoc", "-T", "lint", page], capture_output=True, text=True, timeout=100)
    assert [line for line in lint.stdout.splitlines() if "input text line longer than 80 bytes" not in line] == []
    assert lint.stderr == ""


@pytest.mark.parametrize("program", ["testZR4410", "simZR4410"])
def test_the_completion_of_a_program_is_installed(prefix, program):
    installed = prefix / "share/bash-completion/completions" / program
    assert installed.read_text() == (ROOT / "completion/zr4410.bash").read_text()


# --- libzr4410(3) ---

LIBRARY_PAGE = (ROOT / "docs/libzr4410.3").read_text()


def section(title):
    return re.search(rf"^\.SH {title}\n(.*?)(?=^\.SH |\Z)", LIBRARY_PAGE, re.MULTILINE | re.DOTALL)[1]


def names(text):
    """The names of the entries of a list."""
    lines = re.findall(r"^\.TP\n\.BR? (.*)\n.+", text, re.MULTILINE)
    return [name for line in lines for name in re.findall(r'[A-Za-z]\w+', re.sub(r'"[^"]*"', "", line))]


def exported(kinds):
    symbols = run("nm", "-D", "--defined-only", BUILD / "libzr4410.so")
    return sorted(re.findall(rf"^\w+ [{kinds}] (\w+)", symbols, re.MULTILINE))


def test_the_librarys_page_lists_each_routine_under_its_header():
    modules = re.findall(r"^\.SS (\w+\.h): .*\n((?:(?!\.SS ).*\n)*)", section("ROUTINES"), re.MULTILINE)
    listed = [name for _, text in modules for name in names(text)]
    assert sorted(listed) == exported("T")
    for header, text in modules:
        [file] = [file for file in ROOT.glob(f"*/{header}") if file.parent.name in ("support", "link", "mcu", "camera")]
        for name in names(text):
            assert re.search(rf"\b{name}\(", file.read_text()), f"{header} does not declare {name}"


def test_the_librarys_page_lists_each_variable():
    assert sorted(names(section("VARIABLES"))) == exported("BDR")


def test_the_librarys_page_lists_each_result():
    enumeration = re.search(r"enum \{(.*?)\};", (ROOT / "support/Results.h").read_text(), re.DOTALL)[1]
    results = dict(re.findall(r"(RESULT_\w+) = ([-\w]+)", enumeration))
    assert results.pop("RESULT_OK") == "0"
    listed = {name: number for line, number in re.findall(r'^\.BR (.*) " \(\\(-\d+)\)"$', LIBRARY_PAGE, re.MULTILINE)
              for name in re.findall(r"RESULT_\w+", line)}
    assert listed == {name: results.get(number, number) for name, number in results.items()}


def test_the_librarys_page_has_the_example_of_the_readme():
    readme = re.search(r"^int main.*?^\}\n", (ROOT / "README.md").read_text(), re.MULTILINE | re.DOTALL)[0]
    assert readme.replace("\\n", "\\en") in LIBRARY_PAGE


def test_the_messages_page_defines_the_command_that_it_uses():
    # tests/system/test_messages.py runs all of the commands, but not with this definition of show.
    page = (ROOT / "docs/messages.md").read_text()
    [definition] = re.findall(r"^show\(\) .*$", page, re.MULTILINE)
    command = "show '--fault bad-checksum' 'testZR4410 -m 16 0'"
    assert f"`{command}`" in page
    shown = subprocess.run(["bash", "-ec", f"{definition}\n{command}"], cwd=ROOT, capture_output=True, text=True,
                           timeout=100, stdin=subprocess.DEVNULL, check=True).stdout
    assert re.findall(r"user\.err testZR4410\[\d+\]: (.*)", shown)[0] == "Checksum failed!"


def test_the_news_are_of_this_version():
    headings = re.findall(r"^## (.*)$", (ROOT / "NEWS.md").read_text(), re.MULTILINE)
    assert headings[0] == VERSION


# --- CONTRIBUTING.md ---


def test_the_tests_that_the_recipes_name_exist():
    named = set(re.findall(r"`(?:All/)?([A-Z]\w+\.[A-Z]\w+|test_\w+)`", (ROOT / "CONTRIBUTING.md").read_text()))
    tests = "\n".join(file.read_text() for file in (ROOT / "tests").rglob("*.*") if file.suffix in (".cpp", ".py"))
    exist = {".".join(names) for names in re.findall(r"^TEST\w*\((\w+), (\w+)\)", tests, re.MULTILINE)}
    exist.update(re.findall(r"^def (test_\w+)", tests, re.MULTILINE))
    assert len(named) > 20 and sorted(named - exist) == []
