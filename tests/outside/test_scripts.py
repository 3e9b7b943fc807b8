"""Tests of what all scripts in script/ have in common, and of the commands in the README."""

import os
import pty
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SCRIPTS = sorted(path for path in (ROOT / "script").iterdir() if path.is_file())
README = (ROOT / "README.md").read_text()


@pytest.mark.parametrize("command", ["script/demo --stable --help", "script/sandbox --no-simulator -h",
                                     "script/elsewhere sid --help", ".ci/run --help"])
def test_help_may_be_the_last_argument(command):
    run = subprocess.run(command.split(), capture_output=True, text=True, timeout=20, cwd=ROOT)
    assert (run.returncode, run.stderr) == (0, "")
    assert f"\n  {command.split()[0]}" in run.stdout


@pytest.mark.parametrize("arguments", [[], ["x"]], ids=["none", "another"])
def test_rights_rejects_a_missing_or_unknown_argument(arguments):
    run = subprocess.run(["script/internal/rights", *arguments], capture_output=True, text=True, timeout=20, cwd=ROOT)
    assert run.returncode != 0
    assert (run.stdout, run.stderr) == ("", "rights: give container or machine\n")


@pytest.mark.parametrize("option", ["--help", "-h"])
@pytest.mark.parametrize("script", SCRIPTS, ids=lambda script: script.name)
def test_each_script_answers_help(script, option):
    run = subprocess.run([script, option], capture_output=True, text=True, timeout=20, cwd="/")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout[0].isupper()
    assert f"\n  script/{script.name}" in run.stdout
    assert "set -" not in run.stdout


@pytest.mark.parametrize("command, argument", [
    (["script/build", "--nosuch"], "--nosuch"), (["script/test", "-R", "x"], "-R"), (["script/lint", "x"], "x"),
    (["script/coverage", "--nosuch"], "--nosuch"), (["script/demo", "--stable", "x"], "x"),
    (["script/elsewhere", "sid", "--nosuch"], "--nosuch"), (["script/package", "--nosuch"], "--nosuch"),
    ([".ci/run", "x"], "x"),
], ids=" ".join)
def test_an_unknown_argument_is_named(command, argument):
    run = subprocess.run(command, capture_output=True, text=True, timeout=20, cwd=ROOT)
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr == f"{command[0]}: unknown argument {argument}; see {command[0]} --help\n"


def test_the_readme_names_each_script():
    assert [script.name for script in SCRIPTS if f"script/{script.name}" not in README] == []


BLOCKS = [block.replace("\\\n", "") for block in README.split("```")[1::2]]
COMMANDS = [line.split("#")[0].strip() for block in BLOCKS for line in block.splitlines()]
IN_SANDBOX = [line for line in COMMANDS if line.startswith("script/sandbox ")]


@pytest.mark.parametrize("command", IN_SANDBOX)
def test_the_readmes_sandbox_commands_work(command):
    assert len(IN_SANDBOX) >= 3
    run = subprocess.run(["sh", "-c", command], cwd=ROOT, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                         timeout=60, env={**os.environ})  # with ZR4410_BUILD, the build that is tested
    assert (run.returncode, run.stderr) == (0, "")
    assert " testZR4410[" in run.stdout  # each command shows the tool's log


def common(function, on_terminal=False):
    script = f'set -euo pipefail; set --; . "{ROOT}/script/internal/common.sh"; {function}'
    if not on_terminal:
        return subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=20)
    primary, terminal = pty.openpty()
    run = subprocess.run(["bash", "-c", script], stdout=subprocess.PIPE, stderr=terminal, text=True, timeout=20)
    os.close(terminal)
    run.stderr = ""
    try:
        while True:
            run.stderr += os.read(primary, 65536).decode()
    except OSError:  # everything has been read
        os.close(primary)
    return run


def test_a_command_that_succeeds_prints_nothing():
    run = common("quiet sh -c 'echo step 1; echo step 2 >&2'")
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")


def test_a_command_that_fails_shows_its_output_and_its_status():
    run = common("quiet sh -c 'echo step 1; echo step 2 >&2; exit 7'")
    assert (run.returncode, run.stdout, run.stderr) == (7, "", "step 1\nstep 2\n")


def test_progress_on_a_terminal_is_one_line_that_is_cleared():
    run = common(f"quiet sh -c 'echo step 1; echo {'2' * 100}'", on_terminal=True)
    assert (run.returncode, run.stdout) == (0, "")
    assert run.stderr == f"\r\033[Kstep 1\r\033[K{'2' * 79}\r\033[K"


def test_a_build_without_ninja_prints_nothing_either(tmp_path):
    (tmp_path / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.25)\nproject(other NONE)\n")
    subprocess.run(["cmake", "-G", "Unix Makefiles", "-S", tmp_path, "-B", tmp_path / "build"], check=True)
    run = common(f"build '{tmp_path}/build'")
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")


def test_tests_that_pass_show_a_summary_and_why_some_were_skipped(tmp_path):
    (tmp_path / "CTestTestfile.cmake").write_text("""
        add_test(one echo "SKIPPED [2] one.py:3: no such right")
        add_test(two echo "SKIPPED [2] one.py:3: no such right")
        add_test(three echo "a line of its own")""")
    run = common(f"run_tests '{tmp_path}'")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.startswith("100% tests passed")
    assert run.stdout.count("SKIPPED [2] one.py:3: no such right\n") == 1
    assert "a line of its own" not in run.stdout


def test_a_failed_test_shows_its_output(tmp_path):
    (tmp_path / "CTestTestfile.cmake").write_text("""
        add_test(one sh -c "echo what went wrong; exit 1")
        add_test(two echo "a line of its own")""")
    run = common(f"run_tests '{tmp_path}'")
    assert run.returncode != 0
    assert "what went wrong\n" in run.stdout
    assert "a line of its own" not in run.stdout
