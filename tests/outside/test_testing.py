"""Runs the examples of docs/testing.md unchanged, with the installed programs and without the source tree."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
# The code blocks of the document, by the word after the language: a file name, or what the block is used for.
DOCUMENT = (ROOT / "docs/testing.md").read_text()
BLOCKS = dict(re.findall(r"^```\w+ (\S+)\n(.*?)^```$", DOCUMENT, re.MULTILINE | re.DOTALL))
TOO_LONG = 100  # seconds; reached only if something hangs


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    subprocess.run(["cmake", "--install", os.environ["ZR4410_BUILD"], "--prefix", prefix], check=True, timeout=TOO_LONG,
                   capture_output=True)
    return prefix


@pytest.fixture
def run(prefix, tmp_path):
    """A function that runs a shell command in a new project."""
    python = tmp_path / "bin"
    python.mkdir()
    (python / "python3").symlink_to(sys.executable)  # this Python has pytest

    def run_shell(line):
        environment = {name: value for name, value in os.environ.items() if not name.startswith("ZR4410_BUILD")}
        environment["PATH"] = f"{python}:{prefix}/bin:{environment['PATH']}"
        project = tmp_path / "project"
        project.mkdir(exist_ok=True)
        return subprocess.run(["sh", "-ec", line], cwd=project, env=environment, capture_output=True, text=True,
                              timeout=TOO_LONG, stdin=subprocess.DEVNULL)

    (tmp_path / "project").mkdir()
    for name in ("conftest.py", "test_device.py", "pan.sh"):
        (tmp_path / "project" / name).write_text(BLOCKS[name])
    return run_shell


def commands(job):
    """The shell commands of a CI job."""
    if "script:" in job:
        job = job[job.index("script:"):job.index("  artifacts:")]
        return re.findall(r"^ +- (.*)$", job, re.MULTILINE)
    return re.findall(r"^ +- run: (.*)$", job, re.MULTILINE)


def test_the_fixture_and_its_tests(run):
    outcome = run(BLOCKS["run"])
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
    assert "3 passed" in outcome.stdout


def test_a_failing_test_fails(run):
    outcome = run("echo 'def test_wrong(device): assert device(\"GET\", \"/zoo\")' >test_wrong.py; " + BLOCKS["run"])
    assert outcome.returncode == 1
    assert "there is no such path" in outcome.stdout and "1 failed, 3 passed" in outcome.stdout


@pytest.mark.parametrize("job", ["gitlab", "github"])
def test_the_jobs(run, job):
    lines = commands(BLOCKS[job])
    assert len(lines) == 1
    outcome = run(lines[0])
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
    assert "3 passed" in outcome.stdout


def test_the_ctest_entry(run):
    head = "cmake_minimum_required(VERSION 3.25)\nproject(other NONE)\nenable_testing()\n"
    text = (head + BLOCKS["CMakeLists.txt"]).replace("'", "'\\''")
    outcome = run(f"printf '%s' '{text}' >CMakeLists.txt; cmake -G Ninja -B build; ctest --test-dir build")
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
    assert "100% tests passed, 0 tests failed out of 1" in outcome.stdout


def test_the_command_line(run, tmp_path):
    (tmp_path / "project" / "by-hand").write_text(BLOCKS["by-hand"])
    outcome = run("zr4410-sandbox --sim-args --fast sh -e by-hand")
    assert (outcome.returncode, outcome.stderr) == (0, "")
    assert "camera.ae_mode=fully auto\n" in outcome.stdout
    assert "\n1\n1 late:nth=1,ms=2500 counted 0 struck 0\n" in outcome.stdout
    outcome = run("zr4410-sandbox --sim-args --fast simZR4410 ctl wait --timeout 1")
    assert (outcome.returncode, outcome.stderr) == (1, "simZR4410: no such message within 1 ms\n")
    outcome = run("zr4410-sandbox --no-simulator simZR4410 ctl get")
    assert (outcome.returncode, outcome.stderr) == (2, "simZR4410: /run/simZR4410.control: there is no simulator\n")


def test_the_source_tree_is_not_there(run):
    outcome = run(f"if [ $(zr4410-sandbox --way) != proot ]; then zr4410-sandbox --no-simulator ls {ROOT}; fi")
    assert outcome.stdout == ""


def test_the_help_names_the_installed_program(run):
    outcome = run("zr4410-sandbox --help; zr4410-sandbox --zoo || true")
    assert "\n  zr4410-sandbox [OPTION]..." in outcome.stdout
    assert outcome.stderr == "zr4410-sandbox: unknown option --zoo; see zr4410-sandbox --help\n"


def test_the_scenarios_are_installed(run):
    outcome = run("zr4410-sandbox --sim-args '--scenario night' simZR4410 ctl get ae_mode")
    assert (outcome.returncode, outcome.stdout) == (0, "manual\n"), outcome.stderr
