"""The sandbox itself, seen from outside."""

import fcntl
import os
import subprocess
from pathlib import Path

import pytest

SANDBOX = Path(__file__).parents[2] / "script" / "sandbox"
AS_ROOT = os.geteuid() == 0
NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]


def sandbox(*arguments, prefix=(), text="", **variables):
    return subprocess.run([*prefix, SANDBOX, "--build", os.environ["ZR4410_BUILD"], *arguments], input=text,
                          capture_output=True, text=True, timeout=60, env={**os.environ, **variables})


def test_the_tool_just_works():
    run = sandbox("testZR4410", "-m", "16", "0")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.startswith("Version = 0x")


def test_a_shell_by_default():
    run = sandbox(text="echo $((6 * 7))\nexit 3\n")
    assert (run.returncode, run.stdout, run.stderr) == (3, "42\n", "")


@pytest.mark.parametrize("command, status", [("true", 0), ("exit 7", 7), ("exit 255", 255), ("kill -TERM $$", 143)])
def test_the_exit_status_is_passed_on(command, status):
    assert sandbox("--no-simulator", "sh", "-c", command).returncode == status


def test_settings_and_queues_are_its_own():
    run = sandbox("--no-simulator", "sh", "-c", """
        cat /defconf/conf.ptz /sysconf/conf.img
        wc -l </proc/sysvipc/msg
        readlink /proc/self/ns/ipc
        testZR4410 1
        wc -l </proc/sysvipc/msg""")
    *lines, namespace, queues = run.stdout.splitlines()
    assert lines == ["EXT_DEBUG=0", "1"]
    assert namespace != os.readlink("/proc/self/ns/ipc")
    assert queues == "3"


def test_syslog_is_written_down():
    # The log daemon takes the lines in order, so the marker is the last.
    run = sandbox("--no-simulator", "sh", "-c", """
        testZR4410
        busybox logger -t marker the end
        until grep -q marker /var/log/messages; do sleep 0.01; done
        cat /var/log/messages""")
    lines = [line.split(maxsplit=4)[4] for line in run.stdout.splitlines() if " user." in line]
    texts = [line.split(": ", 1)[1] for line in lines]
    assert [line.split()[0] for line in lines] == ["user.info"] * 3 + ["user.notice"]
    assert texts == ["=" * 51, "Start testZR4410 (v0.0.1).", "=" * 51, "the end"]


def test_the_simulator_ends_with_the_command(tmp_path):
    lock = tmp_path / "lock"
    assert sandbox("true", ZR4410_SIM=f"flock --no-fork {lock} simZR4410", TMPDIR="/tmp").returncode == 0
    with open(lock) as file:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)


def test_a_simulator_that_does_not_start_is_told():
    run = sandbox("--sim-args", "--no-such-option", "echo", "not reached")
    assert run.returncode == 1
    assert run.stdout == ""
    assert run.stderr.startswith("script/sandbox: simZR4410 did not start\n")
    assert "--no-such-option" in run.stderr


@pytest.mark.skipif(not AS_ROOT, reason="an ordinary user runs every other test anyway")
def test_an_ordinary_user_may_use_it():
    if subprocess.run([*NOBODY, "test", "-x", SANDBOX]).returncode != 0:
        pytest.skip("this working copy is closed to other users")
    run = sandbox("sh", "-c", "id -u; testZR4410 -m 16 0", prefix=NOBODY)
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.startswith("65534\nVersion = 0x")


def test_a_kernel_that_forbids_it_is_told_in_one_line():
    # A user namespace in which no further one may be made, and no capability to do without.
    forbid = ["unshare", "--user", "--map-root-user", "sh", "-c",
              'echo 0 >/proc/sys/user/max_user_namespaces && exec setpriv --bounding-set=-all --inh-caps=-all "$@"', "sh"]
    run = sandbox("true", prefix=forbid)
    assert run.returncode == 1
    assert run.stderr == ("script/sandbox: the kernel lets this user make no namespaces; switch them on as root: "
                          "sysctl -w user.max_user_namespaces=10000\n")
