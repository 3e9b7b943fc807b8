"""script/sandbox from outside, in each way that works on this machine."""

import fcntl
import os
import select
import signal
import subprocess
import time
import uuid
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SANDBOX = ROOT / "script" / "sandbox"
AS_ROOT = os.geteuid() == 0
NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
TIME_LIMIT = 60  # seconds; reached only if something hangs


def sandbox(*arguments, prefix=(), text="", **variables):
    return subprocess.run([*prefix, SANDBOX, "--build", os.environ["ZR4410_BUILD"], *arguments], input=text,
                          capture_output=True, text=True, timeout=TIME_LIMIT, env={**os.environ, **variables})


@pytest.fixture(params=["1", "2", "3", "proot"])
def way(request, monkeypatch):
    """Creates every sandbox of the test in this way."""
    monkeypatch.setenv("ZR4410_SANDBOX_WAY", request.param)
    run = sandbox("--way")
    if run.returncode != 0:
        pytest.skip(run.stderr.strip())
    assert run.stdout == request.param + "\n"
    return request.param


def until(condition, pause=0.01):
    deadline = time.monotonic() + TIME_LIMIT
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(pause)


@pytest.fixture
def leftovers(monkeypatch):
    """A function that lists the processes of all sandboxes of this test."""
    mark = uuid.uuid4().hex
    monkeypatch.setenv("ZR4410_TEST", mark)

    def processes():
        found = []
        for process in map(Path("/proc").joinpath, filter(str.isdigit, os.listdir("/proc"))):
            try:
                if f"ZR4410_TEST={mark}".encode() in (process / "environ").read_bytes():
                    found.append((process / "cmdline").read_bytes())
            except OSError:
                pass  # the process has ended, or is another user's
        return found

    return processes


def keys_of_host_queues():
    return {int(line.split()[0]) for line in Path("/proc/sysvipc/msg").read_text().splitlines()[1:]}


@pytest.fixture
def start():
    """A function that starts a sandbox; it is killed at the end of the test if it still runs."""
    runs = []

    def start_sandbox(*arguments):
        runs.append(subprocess.Popen([SANDBOX, "--build", os.environ["ZR4410_BUILD"], *arguments], text=True,
                                     stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True))
        return runs[-1]

    yield start_sandbox
    for run in runs:
        run.kill()
        run.communicate(timeout=TIME_LIMIT)  # returns once every process in the sandbox has ended


def test_the_tool_works_without_options(way):
    run = sandbox("testZR4410", "-m", "16", "0")
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.startswith("Version = 0x")


def test_a_shell_by_default(way):
    run = sandbox(text="echo $((6 * 7))\nexit 3\n")
    assert (run.returncode, run.stdout, run.stderr) == (3, "42\n", "")


@pytest.mark.parametrize("command, status", [
    ("true", 0), ("exit 7", 7), ("exit 255", 255), ("kill -TERM $$", 143), ("kill -KILL $$", 137),
    ("sleep 1000 & exit 4", 4),  # a background process ends with the command
    ("kill -KILL $PPID", 137),  # the first process of the sandbox
])
def test_the_exit_status_is_passed_on_and_nothing_is_left(way, leftovers, command, status):
    assert sandbox("sh", "-c", command).returncode == status
    until(lambda: leftovers() == [])


def test_each_sandbox_has_its_own_folders(way):
    run = sandbox("--no-simulator", "sh", "-c", """
        cat /defconf/conf.ptz /sysconf/conf.img
        for folder in /defconf /sysconf /var/log /run /dev; do
            echo mine >$folder/zr4410-test
            cat $folder/zr4410-test
        done
        echo lost >/dev/null
        head -c 3 /dev/zero | wc -c
        head -c 3 /dev/urandom | wc -c
        echo from fd | cat /dev/fd/0""")
    assert (run.stdout, run.stderr) == ("EXT_DEBUG=0\n" + "mine\n" * 5 + "3\n3\nfrom fd\n", "")
    for folder in ["/defconf", "/sysconf", "/var/log", "/run", "/dev"]:
        assert not os.path.exists(f"{folder}/zr4410-test")


def test_each_sandbox_has_its_own_queues(way, start, tmp_path):
    """Runs two devices side by side, each with its own state."""
    running = []
    for number in (8, 12):
        scenario = tmp_path / f"{number}.toml"
        scenario.write_text(f"[camera]\nsensor_mode = {number}\n")
        running.append(start("--sim-args", f"--fast --scenario {scenario}",
                             "sh", "-c", "echo up; read go; testZR4410 -s 1 0"))
    assert [run.stdout.readline() for run in running] == ["up\n", "up\n"]
    for run in running:
        print("go", file=run.stdin, flush=True)
    assert [run.stdout.readline() for run in running] == ["[GetSnrMode] 1080p 25fps\n", "[GetSnrMode] 720p 50fps\n"]


def test_each_sandbox_has_its_own_control_interface(way, start):
    """Runs two devices side by side: a change in one does not affect the other, and each ends by itself."""
    running = [start("--sim-args", "--fast", "sh", "-c", f"""
        simZR4410 ctl set pan={number}
        simZR4410 ctl fault no-reply:nth={number}
        echo up; read go
        simZR4410 ctl get pan; simZR4410 ctl faults; testZR4410 -m 17 0""") for number in (8, 12)]
    assert [[run.stdout.readline() for _ in range(2)] for run in running] == [["1\n", "up\n"]] * 2
    for run, number in zip(running, (8, 12)):
        print("go", file=run.stdin, flush=True)
        assert [run.stdout.readline() for _ in range(3)] == [
            f"{number}\n", f"1 no-reply:nth={number} counted 0 struck 0\n", f"Pan = {number}, Tilt = 450, Zoom = 0\n"]
        assert run.wait(timeout=TIME_LIMIT) == 0


def test_the_control_interface_may_be_elsewhere(way, tmp_path):
    place = tmp_path / "control"
    run = sandbox("--sim-args", f"--fast --control {place}", "simZR4410", "ctl", "get", "pan")
    assert (run.returncode, run.stdout, run.stderr) == (0, "32000\n", "")
    assert not place.exists()


def test_a_simulator_started_by_hand_may_have_its_control_interface_at_the_usual_place(way):
    run = sandbox("--no-simulator", "sh", "-c", """
        simZR4410 ctl get pan
        simZR4410 --fast --control "$ZR4410_CONTROL" --ready-file /run/ready >/dev/null &
        until [ -e /run/ready ]; do sleep 0.01; done
        simZR4410 ctl get pan""")
    assert (run.returncode, run.stdout) == (0, "32000\n")
    assert run.stderr == "simZR4410: /run/simZR4410.control: there is no simulator\n"


def test_the_queues_are_in_their_own_namespace(way):
    if way == "proot":
        pytest.skip("proot creates no namespaces: all programs share the kernel's queues")
    run = sandbox("--no-simulator", "sh", "-c", """
        wc -l </proc/sysvipc/msg
        readlink /proc/self/ns/ipc
        testZR4410 1
        wc -l </proc/sysvipc/msg""")
    before, namespace, after = run.stdout.splitlines()
    assert (before, after) == ("1", "3")
    assert namespace != os.readlink("/proc/self/ns/ipc")


def test_syslog_is_written_to_a_file(way):
    # The log daemon receives the lines in order, so the marker is the last line.
    run = sandbox("--no-simulator", "sh", "-c", """
        testZR4410
        busybox logger -t marker the end
        until grep -q marker /var/log/messages; do sleep 0.01; done
        cat /var/log/messages""")
    lines = [line.split(maxsplit=4)[4] for line in run.stdout.splitlines() if " user." in line]
    texts = [line.split(": ", 1)[1] for line in lines]
    assert [line.split()[0] for line in lines] == ["user.info"] * 3 + ["user.notice"]
    assert texts.pop(1).startswith("Start testZR4410 (v")
    assert texts == ["=" * 51, "=" * 51, "the end"]


def test_the_simulator_ends_with_the_command(way, tmp_path):
    lock = tmp_path / "lock"
    assert sandbox("true", ZR4410_SIM=f"flock --no-fork {lock} simZR4410", TMPDIR="/tmp").returncode == 0
    with open(lock) as file:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)


SHOW_KEYS = """
testZR4410 -g 1
until [ "$(grep -c 'MsgqClient key' /var/log/messages)" = 2 ]; do sleep 0.01; done
sed -n 's/.*MsgqClient key.x = //p' /var/log/messages
echo "$ZR4410_WORLD"
echo up
exec sleep 1000"""


@pytest.mark.parametrize("simulator", [[], ["--no-simulator"]], ids=["simulator", "no simulator"])
@pytest.mark.parametrize("number, whom", [
    (signal.SIGTERM, os.kill), (signal.SIGHUP, os.kill), (signal.SIGKILL, os.kill), (signal.SIGTERM, os.killpg),
    (signal.SIGKILL, os.killpg)], ids=["TERM", "HUP", "KILL", "TERM to all", "KILL to all"])
def test_a_killed_sandbox_leaves_no_process_and_no_queue_behind(way, leftovers, start, number, whom, simulator):
    run = start(*simulator, "sh", "-c", SHOW_KEYS)
    keys = [int(run.stdout.readline(), 16) for _ in range(2)]
    world = run.stdout.readline().strip()
    assert run.stdout.readline() == "up\n"
    assert any(b"syslogd" in process for process in leftovers())
    assert any(b"simZR4410" in process for process in leftovers()) == (simulator == [])
    if way == "proot":
        assert keys_of_host_queues().issuperset(keys) and os.path.isdir(world)

    whom(run.pid, number)
    assert run.wait(timeout=TIME_LIMIT) == -number
    until(lambda: leftovers() == [])
    assert keys_of_host_queues().isdisjoint(keys)
    assert world == "" or not os.path.exists(world)


@pytest.fixture
def replaced(tmp_path, monkeypatch):
    """A function that puts a shell script on the PATH in front of the program of the same name."""
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")

    def replace(name, text):
        (tmp_path / name).write_text("#!/bin/sh\n" + text)
        (tmp_path / name).chmod(0o755)

    return replace


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=["TERM", "KILL"])
def test_a_sandbox_killed_while_it_starts_leaves_nothing_behind(way, leftovers, start, replaced, tmp_path, number):
    """Kills each sandbox as soon as it has a given number of processes, or as soon as its command runs."""
    folders = tmp_path / "folders"
    replaced("mktemp", f'/usr/bin/mktemp "$@" | tee -a {folders}\n')
    for count in range(1, 12, 2):
        run = start("sh", "-c", "echo up; exec sleep 1000")
        until(lambda: len(leftovers()) >= count or select.select([run.stdout], [], [], 0)[0], pause=0)
        run.send_signal(number)
        assert run.wait(timeout=TIME_LIMIT) == -number
        until(lambda: leftovers() == [])
    names = folders.read_text().split()
    assert names and not any(map(os.path.exists, names))


def test_a_sandbox_killed_before_bwrap_or_proot_is_executed_leaves_nothing_behind(way, leftovers, start, replaced,
                                                                                  tmp_path):
    program = "proot" if way == "proot" else "bwrap"
    os.mkfifo(tmp_path / "here")
    os.mkfifo(tmp_path / "go")
    here, go = (os.open(tmp_path / name, os.O_RDWR) for name in ("here", "go"))
    replaced(program, f"""
        case "$*" in */device*) echo >{tmp_path}/here; read line <{tmp_path}/go ;; esac
        exec /usr/bin/{program} "$@"
        """)
    run = start("sleep", "1000")
    assert select.select([here], [], [], TIME_LIMIT)[0]
    run.kill()
    run.wait(timeout=TIME_LIMIT)
    os.write(go, b"\n")  # the program, if it still exists, does not notice the script's end
    until(lambda: leftovers() == [])
    os.close(here)
    os.close(go)


def test_another_key_file_if_the_key_is_taken(start, monkeypatch, replaced, tmp_path):
    """Another sandbox has queues with the same keys: a fake stat reports its inode for the first two key files.

    The kernel's list of queues is longer than a pipe holds.
    """
    monkeypatch.setenv("ZR4410_SANDBOX_WAY", "proot")
    if sandbox("--way").returncode != 0:
        pytest.skip(sandbox("--way").stderr.strip())
    holder = start("sh", "-c", SHOW_KEYS)
    taken = {int(holder.stdout.readline(), 16) for _ in range(2)}
    world = holder.stdout.readline().strip()
    inode = os.stat(f"{world}/defconf/conf.ptz").st_ino
    calls = tmp_path / "calls"
    calls.touch()
    replaced("sed", """
case "$*" in */proc/sysvipc/msg) /usr/bin/sed "$@" && seq 100000 ;; *) exec /usr/bin/sed "$@" ;; esac
""")
    replaced("stat", f"""
echo call >>{calls}
set -- $(/usr/bin/stat "$@")
[ $(wc -l <{calls}) -gt 2 ] || set -- $1 {inode}
echo $1 $2
""")
    run = sandbox("sh", "-c", "testZR4410 -m 16 0")
    assert (run.returncode, run.stdout) == (0, "Version = 0x21\n")
    assert calls.read_text().count("call") == 4  # for two taken key files, for a free one, and at the end
    assert keys_of_host_queues().issuperset(taken)  # the other sandbox's queues still exist


def test_a_simulator_that_does_not_start_is_reported(way):
    run = sandbox("--sim-args", "--no-such-option", "echo", "not reached")
    assert run.returncode == 1
    assert run.stdout == ""
    assert run.stderr.startswith("sandbox: simZR4410 did not start\n")
    assert "--no-such-option" in run.stderr


def test_the_simulators_arguments_are_not_taken_for_file_patterns(way):
    run = sandbox("--sim-args", "--scenario /et[c]", "echo", "not reached")
    assert run.returncode == 1
    assert "/et[c]" in run.stderr


def test_other_users_may_read_its_files_with_any_umask(way):
    files = "/defconf /sysconf /var/log /run /defconf/conf.ptz /sysconf/conf.img"
    run = sandbox("sh", "-c", fr"umask; find {files} -prune -printf '%m\n'",  # proot does not translate stat's calls
                  prefix=["sh", "-c", 'umask 077; exec "$@"', "sh"])
    assert run.stdout.split() == ["0077"] + ["755"] * 4 + ["644"] * 2


def test_the_current_directory_is_the_same_inside(way, tmp_path, monkeypatch):
    (tmp_path / "link").symlink_to(ROOT)
    monkeypatch.chdir(ROOT)
    monkeypatch.setattr(__name__ + ".SANDBOX", tmp_path / "link/script/sandbox")
    run = sandbox("--no-simulator", "pwd", "-P")
    assert (run.stdout, run.stderr) == (f"{ROOT.resolve()}\n", "")


@pytest.mark.parametrize("arguments, message", [
    (["--way", "3", "true"], "--way takes no argument; see script/sandbox --help"),
    (["--build", "/tmp", "true"], "no programs in /tmp/bin"),
    (["--nosuch"], "unknown option --nosuch; see script/sandbox --help"),
])
def test_wrong_arguments_are_named(arguments, message):
    run = subprocess.run([SANDBOX, *arguments], capture_output=True, text=True, timeout=TIME_LIMIT)
    assert (run.returncode, run.stdout, run.stderr) == (1, "", f"script/sandbox: {message}\n")


@pytest.mark.skipif(not AS_ROOT, reason="not root: every other test runs as an ordinary user")
def test_an_ordinary_user_may_use_it():
    if subprocess.run([*NOBODY, "test", "-x", SANDBOX]).returncode != 0:
        pytest.skip("other users cannot read this working copy")
    run = sandbox("sh", "-c", "id -u; testZR4410 -m 16 0", prefix=NOBODY)
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.startswith("65534\nVersion = 0x")


# --- If no way works, one sentence gives both reasons and the remedy ---

NONE = "script/sandbox: no sandbox can be created here: "


@pytest.fixture
def programs(tmp_path):
    """A PATH with this machine's programs, without bubblewrap and proot."""
    folder = tmp_path / "bin"
    folder.mkdir()
    for program in Path("/usr/bin").iterdir():
        if program.name not in ("bwrap", "proot"):
            (folder / program.name).symlink_to(program)
    return folder


def broken(programs, name, message):
    (programs / name).write_text(f"#!/bin/sh\necho '{message}' >&2\nexit 1\n")
    (programs / name).chmod(0o755)


def test_missing_programs_are_named(programs):
    run = sandbox("true", PATH=str(programs))
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr.count("\n") == 1
    assert run.stderr.startswith(NONE + "bubblewrap fails (bwrap is not installed) and proot fails (proot is not "
                                 "installed); run as root: ")


def test_the_errors_of_both_programs_are_quoted(programs):
    broken(programs, "bwrap", "bwrap: No permissions to create new namespace")
    broken(programs, "proot", "proot error: ptrace(TRACEME): Operation not permitted")
    run = sandbox("true", PATH=str(programs))
    assert (run.returncode, run.stdout) == (1, "")
    sentence, remedy = run.stderr.rstrip("\n").split("; ")
    assert sentence == (NONE + "bubblewrap fails (bwrap: No permissions to create new namespace) and proot fails "
                        "(proot error: ptrace(TRACEME): Operation not permitted)")
    assert remedy.startswith(("run as root: sysctl -w ", "start the container with more rights, such as docker run "))


def test_the_kernel_setting_that_forbids_namespaces_is_named(programs):
    # A user namespace in which no further one may be created, without the capabilities that would make one unnecessary.
    forbid = ["unshare", "--user", "--map-root-user", "sh", "-c",
              "echo 0 >/proc/sys/user/max_user_namespaces && "
              'exec setpriv --bounding-set=-all --inh-caps=-all "$@"', "sh"]
    if subprocess.run([*forbid, "true"], capture_output=True).returncode != 0:
        pytest.skip("this test needs a user namespace, which cannot be created here")
    broken(programs, "proot", "proot error: ptrace(TRACEME): Operation not permitted")
    (programs / "bwrap").symlink_to("/usr/bin/bwrap")
    run = sandbox("true", prefix=forbid, PATH=str(programs))
    assert run.returncode == 1
    assert run.stderr.startswith(NONE + "bubblewrap fails (bwrap: ")
    assert run.stderr.endswith(") and proot fails (proot error: ptrace(TRACEME): Operation not permitted); "
                               "run as root: sysctl -w user.max_user_namespaces=10000\n")


def test_a_way_that_does_not_exist_is_rejected():
    run = sandbox("true", ZR4410_SANDBOX_WAY="4")
    assert (run.returncode, run.stderr) == (1, "script/sandbox: ZR4410_SANDBOX_WAY is 4; it must be 1, 2, 3 or proot\n")
