"""script/bootstrap on systems where something is missing or broken. apt-get is replaced, so nothing is installed."""

import os
import re
import subprocess
from pathlib import Path

import pytest

BOOTSTRAP = Path(__file__).parents[2] / "script" / "bootstrap"


@pytest.fixture
def programs(tmp_path):
    """A PATH with this machine's programs, except the package manager's; tests add and remove programs."""
    folder = tmp_path / "bin"
    folder.mkdir()
    for program in [*Path("/usr/sbin").iterdir(), *Path("/usr/bin").iterdir()]:
        if not program.name.startswith(("apt", "dpkg", "sudo")):
            (folder / program.name).unlink(missing_ok=True)
            (folder / program.name).symlink_to(program)
    return folder


def replace(file, text):
    file.unlink(missing_ok=True)
    file.write_text("#!/bin/sh\n" + text)
    file.chmod(0o755)


def bootstrap(programs, *groups):
    return subprocess.run([BOOTSTRAP, *groups], capture_output=True, text=True, timeout=60,
                          env={**os.environ, "PATH": str(programs)})


def test_without_a_package_manager_it_continues_with_what_is_installed(programs):
    run = bootstrap(programs, "test")
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")


def test_without_a_package_manager_it_names_what_is_missing_by_purpose(programs):
    (programs / "socat").unlink()
    (programs / "bwrap").unlink()
    run = bootstrap(programs, "test")
    assert run.returncode == 1
    assert run.stderr == ("script/bootstrap: this system has no apt-get; please install:\n"
                          "  bubblewrap (bwrap)\n  socat\n")


def test_each_package_has_a_purpose_and_a_check(programs):
    (programs / "c++").unlink()
    replace(programs / "c++", "exit 1\n")  # so that it finds no header
    names = re.findall(r"^group\[(\w+)\]", BOOTSTRAP.read_text(), re.MULTILINE)
    run = bootstrap(programs, *names)
    assert run.returncode == 1
    assert "unbound" not in run.stderr
    assert "  CLI11, C++ headers\n" in run.stderr
    assert "\n  \n" not in run.stderr


def test_without_namespaces_and_proot_it_fails(programs):
    replace(programs / "bwrap", "echo 'bwrap: No permissions to create new namespace' >&2; exit 1\n")
    (programs / "proot").unlink(missing_ok=True)
    run = bootstrap(programs, "demo")
    *first, sentence = run.stderr.splitlines()
    assert (run.returncode, run.stdout) == (1, "")
    assert first == ["script/bootstrap: this system has no apt-get; please install:", "  proot"]
    assert sentence.startswith("script/sandbox: no sandbox can be created here: bubblewrap fails (bwrap: No permissions"
                               " to create new namespace) and proot fails (proot is not installed); ")
    assert sentence.endswith(("; install proot", "=1", "=0", "=10000"))  # or a setting of the kernel


def test_a_broken_package_source_is_a_warning(programs, tmp_path):
    (programs / "socat").unlink()
    replace(programs / "id", "echo 0\n")
    replace(programs / "apt-get", f"""
        case "$*" in
          *update) echo 'Hit:1 good'; echo 'E: The repository has no Release file.' >&2; exit 100 ;;
          *) echo "$*" >{tmp_path}/installed ;;
        esac""")
    run = bootstrap(programs, "test")
    assert run.returncode == 0
    assert run.stderr.splitlines() == [
        "script/bootstrap: installing socat: a minute or two",
        "script/bootstrap: warning: apt-get update failed, continuing with the existing package lists:",
        "E: The repository has no Release file."]
    assert (tmp_path / "installed").read_text().endswith("install --no-install-recommends socat\n")


def test_a_package_that_cannot_be_installed_is_an_error(programs):
    (programs / "socat").unlink()
    replace(programs / "id", "echo 0\n")
    replace(programs / "apt-get", "echo E: Unable to locate package socat; exit 100\n")
    run = bootstrap(programs, "test")
    assert run.returncode == 100
    assert run.stderr.endswith("E: Unable to locate package socat\n")


def test_without_sudo_an_ordinary_user_is_told_the_command(programs):
    (programs / "socat").unlink()
    replace(programs / "id", "echo 1000\n")
    replace(programs / "apt-get", "exit 1\n")
    run = bootstrap(programs, "test")
    assert (run.returncode, run.stderr) == (1, "script/bootstrap: please run as root: apt-get install socat\n")
