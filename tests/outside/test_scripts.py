"""What all scripts in script/ have in common, and the commands in the README."""

import os
import pty
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SCRIPTS = sorted(path for path in (ROOT / "script").iterdir() if path.is_file())
README = (ROOT / "README.md").read_text()


@pytest.mark.parametrize("option", ["--help", "-h"])
@pytest.mark.parametrize("script", SCRIPTS, ids=lambda script: script.name)
def test_each_script_answers_help(script, option):
    run = subprocess.run([script, option], capture_output=True, text=True, timeout=20, cwd="/")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout[0].isupper()
    assert f"\n  script/{script.name}" in run.stdout
    assert "set -" not in run.stdout


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
    run.stderr = os.read(primary, 65536).decode()
    os.close(primary)
    os.close(terminal)
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
