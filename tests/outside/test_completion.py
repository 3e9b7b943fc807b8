"""Bash completion of testZR4410 and simZR4410: compares what it offers with what the programs accept."""

import os
import pty
import re
import select
import subprocess
import time
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
BIN = Path(os.environ["ZR4410_BUILD"]) / "bin"
COMPLETION = ROOT / "completion/zr4410.bash"
ENVIRONMENT = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}"}
# Calls the function that is registered for the program, as bash does when the line ends here.
ASK = """
. "$1"; COMP_LINE=$2 COMP_POINT=${#2} COMP_TYPE=${3:-9} COMPREPLY=() command=${2%% *}
function=$(complete -p "$command"); function=${function##*-F }
"${function%% *}" "$command"
[ ${#COMPREPLY[@]} = 0 ] || printf '%s\\n' "${COMPREPLY[@]}"
"""
SOURCES = {name: (ROOT / name).read_text()
           for name in ("frontend/Options.cpp", "frontend/DeviceActions.cpp", "frontend/Reports.cpp", "mcu/McuComm.h",
                        "camera/SnrQM2150Names.cpp", "docs/testZR4410.1")}


def offered(line, kind=9):
    """What is inserted or listed at the end of the line."""
    run = subprocess.run(["bash", "-uc", ASK, "bash", COMPLETION, line, str(kind)], env=ENVIRONMENT, timeout=60,
                         capture_output=True, text=True, stdin=subprocess.DEVNULL, cwd=ROOT)
    assert run.stderr == "" and run.returncode == 0
    return run.stdout.splitlines()


def choices(line):
    """The choices without their meaning."""
    return [text.partition("  ")[0] for text in offered(line)]


def printed(*command):
    return subprocess.run(command, env=ENVIRONMENT, capture_output=True, text=True, timeout=60, check=True).stdout


# --- testZR4410 ---


def options():
    table = re.search(r"kLongOptions\[\] = \{(.*?)\n\};", SOURCES["frontend/Options.cpp"], re.DOTALL)[1]
    return re.findall(r"\{\"(\w+)\", \w+, nullptr, '(\w)'\}", table)


def test_the_options_are_those_of_the_tool():
    assert len(options()) == 8
    first = [(name, letter) for name, letter in options() if name != "debug"]  # the mode option must be the first word
    assert sorted(choices("testZR4410 ")) == sorted("-" + letter for _, letter in first)
    assert sorted(choices("testZR4410 --")) == sorted("--" + name for name, _ in first)


def test_the_manual_page_has_the_options_of_the_tool():
    page = re.findall(r"^\.TP\n\\fB\\-(\w)\\fR, \\fB\\-\\-(\w+)\\fR", SOURCES["docs/testZR4410.1"], re.MULTILINE)
    assert sorted(page) == sorted((letter, name) for name, letter in options())


def cases(file, routine):
    """The numbers or names of the cases in a routine."""
    body = re.search(rf"^int {routine}\(void\) \{{\n(.*?)^\}}", SOURCES[file], re.MULTILINE | re.DOTALL)[1]
    return re.findall(r"case (\w+):", body)


def value(name):
    text = SOURCES["mcu/McuComm.h"] + SOURCES["frontend/DeviceActions.cpp"]
    return str(int(re.search(rf"\b{name} = (\w+)", text)[1], 0))


@pytest.mark.parametrize("option, file, routine", [("-s", "frontend/DeviceActions.cpp", "QM2150Process"),
                                                   ("-m", "frontend/DeviceActions.cpp", "McuComm")])
def test_the_numbers_are_those_of_the_actions(option, file, routine):
    numbers = sorted(map(value, cases(file, routine)))
    assert len(numbers) == 3
    assert sorted(choices(f"testZR4410 {option} ")) == numbers
    for number in numbers:
        assert len(choices(f"testZR4410 {option} {number} ")) >= 1
        assert choices(f"testZR4410 {option} {number} 0 ") == ["-g"]


def test_the_reports_are_those_of_the_tool():
    assert choices("testZR4410 -y ") == cases("frontend/Reports.cpp", "SystemInquiry")
    # The manual page describes each in the same words: "0 lens, 1 exposure and white balance, ...".
    entry = re.search(r"Logs a report: (.*?)\.\n", SOURCES["docs/testZR4410.1"], re.DOTALL)[1].replace("\n", " ")
    reports = [text.partition("  ") for text in offered("testZR4410 -y ")]
    assert entry == ", ".join(f"{number} {meaning}" for number, _, meaning in reports)


def test_the_sensor_modes_are_those_of_the_library():
    table = re.search(r"kSnrModes\[\] = \{(.*?)\n\};", SOURCES["camera/SnrQM2150Names.cpp"], re.DOTALL)[1]
    modes = [f"{int(code, 16)}  {name}" for code, name in re.findall(r'\{(0x\w+), "(.*?)"\}', table)]
    assert len(modes) == 19
    assert offered("testZR4410 -s 2 ") == modes


@pytest.mark.parametrize("line, expected", [
    ("testZR4410 -y 3", ["3"]),  # only one is left: without its meaning
    ("testZR4410 --sys ", ["0", "1", "2", "3", "4"]),
    ("testZR4410 -c 0002 ", ["-g"]), ("testZR4410 -i 04 2", ["2472"]), ("testZR4410 -r ", ["-g"]),
    ("testZR4410 -y 3 -g ", []), ("testZR4410 -y 3 x", []), ("testZR4410 -h ", []), ("testZR4410 x ", []),
])
def test_what_is_offered_for_the_tool(line, expected):
    assert choices(line) == expected


def test_a_key_that_inserts_each_choice_gets_no_meanings():
    assert offered("testZR4410 -m 12 ", ord("%")) == ["0", "1"]


# --- simZR4410 ---


def test_the_faults_and_keys_are_those_of_the_simulator():
    faults, _, keys = printed(BIN / "simZR4410", "--faults").partition("Keys:")
    names = re.findall(r"^  (\S+)", faults, re.MULTILINE)
    assert len(names) > 20
    for before in ("simZR4410 --fault ", "simZR4410 --fast --fault=", "simZR4410 ctl fault late "):
        assert choices(before) == names
        assert choices(before + "late:") == [key + "=" for key in re.findall(r"^  (\S+)", keys, re.MULTILINE)]


def test_the_options_are_those_of_the_simulator():
    # Another test compares the options in docs/simZR4410.1 with the help text.
    page = (ROOT / "docs/simZR4410.1").read_text().replace("\\-", "-")
    options = re.findall(r"^\.B (--[a-z-]+)", page[page.index(".SH OPTIONS"):page.index(".SH FAULTS")], re.MULTILINE)
    assert len(options) > 20
    assert sorted(choices("simZR4410 --")) == sorted(options)


def test_a_wrapped_line_that_begins_with_an_option_is_text():
    text = f"  --fast    Answer at once, except for what\n{' ' * 12}  --wake-up sets\n  --baud INT\n{' ' * 14}Speed\n"
    listed = subprocess.run(["bash", "-c", '. "$1"; _simZR4410_listed options', "bash", COMPLETION], input=text,
                            capture_output=True, text=True, timeout=20).stdout
    assert listed == "--fast\tAnswer at once, except for what\n--baud\tSpeed\n"


def test_the_commands_are_those_of_the_simulator():
    page = (ROOT / "docs/simZR4410.1").read_text()
    assert sorted(choices("simZR4410 ")) == ["ctl", "decode", "protocol"]
    commands = choices("simZR4410 ctl ")
    assert sorted(commands) == sorted(re.findall(r"^\.B ctl (\w+)", page, re.MULTILINE))
    assert choices("simZR4410 ctl --control localhost:1 cl") == ["clear"]


def test_the_scenarios_are_those_that_are_installed():
    names = {file.stem for file in (ROOT / "simulator/scenarios").glob("*.toml")}
    assert len(names) > 5
    assert set(choices("simZR4410 --scenario ")) >= names
    assert choices("simZR4410 --scenario READ") == ["README.md"]  # a file is possible too


@pytest.mark.parametrize("typed", ['"{}/a n', "'{}/a n", '"{}"/"a "n', "{}/a\\ n", "--seed '1 ' --scenario={}/a\\ n"])
def test_a_path_may_have_a_blank(tmp_path, typed):
    (tmp_path / "a night.toml").touch()
    assert choices("simZR4410 --scenario " + typed.format(tmp_path)) == [f"{tmp_path}/a night.toml"]


@pytest.mark.parametrize("line, expected", [
    ("simZR4410 --fault lat", ["late"]), ("simZR4410 --fault late:m", ["match=", "ms="]),
    # After : and = readline replaces only the last part.
    ("simZR4410 --fault late:nth=1,m", ["1,match=", "1,ms="]), ("simZR4410 --fault late:nth=1,ms", ["1,ms="]),
    ("simZR4410 --colour ", ["auto", "always", "never"]), ("simZR4410 --colour=al", ["always"]),
    ("simZR4410 --serial-protocol u", ["uart1"]), ("simZR4410 ctl supply o", ["on", "off"]),
    ("simZR4410 ctl wait --t", ["--timeout"]),
    ("simZR4410 --capture ", []), ("simZR4410 --seed ", []), ("simZR4410 ctl scenario ", []),  # bash offers files
])
def test_what_is_offered_for_the_simulator(line, expected):
    assert choices(line) == expected


def test_the_variables_are_those_of_the_running_simulator():
    ask = f"bash -uc '{ASK}' bash \"{COMPLETION}\"".replace("'%s", "'\\''%s").replace("\\n'", "\\n'\\''")
    listed = printed(ROOT / "script/sandbox", "--build", BIN.parent, "sh", "-c",
                     f"{ask} 'simZR4410 ctl get camera.ae_m'; {ask} 'simZR4410 ctl set camera.iris'; "
                     f"{ask} \"simZR4410 ctl --control=$ZR4410_CONTROL get ae_m\"; "
                     f"simZR4410 ctl fault late >/dev/null; {ask} 'simZR4410 ctl clear '")
    assert listed.splitlines() == ["camera.ae_mode", "camera.iris_pos=", "ae_mode", "1"]


# --- In a terminal ---


class Terminal:
    """An interactive bash in a pseudo-terminal."""

    def __init__(self, directory):
        self.shell, terminal = pty.openpty()
        self.process = subprocess.Popen(
            ["bash", "--norc", "--noprofile", "-i"], stdin=terminal, stdout=terminal, stderr=terminal, cwd=directory,
            env={**ENVIRONMENT, "HOME": str(directory), "TERM": "dumb", "INPUTRC": "/dev/null"}, start_new_session=True)
        os.close(terminal)
        self.type_and_await(f". '{COMPLETION}'; echo so''urced\n", "sourced")
        self.type_and_await("""bind -x '"\\C-x": printf "<%s>" "$READLINE_LINE"'; echo bo''und\n""", "bound")

    def type_and_await(self, text, pattern):
        os.write(self.shell, text.encode())
        seen, deadline = "", time.monotonic() + 60
        while not (found := re.search(pattern, seen, re.DOTALL)):
            assert time.monotonic() < deadline, seen
            if select.select([self.shell], [], [], 0.1)[0]:
                seen += os.read(self.shell, 4096).decode()
        return found[0]

    def line_after(self, text):
        """The command line once the text has been typed in an empty line."""
        return self.type_and_await(f"\x05\x15{text}\x18", "<[^<>]*>")[1:-1]

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.shell)


@pytest.fixture(scope="module")
def terminal(tmp_path_factory):
    directory = tmp_path_factory.mktemp("terminal")
    for name in ("a folder", "x:y"):
        (directory / name).mkdir()
    for file in ("a folder/z.toml", "x:y/z.toml", "shot (1).toml", "me@host.toml"):
        (directory / file).touch()
    own = directory / "simZR4410"  # another program of that name, without scenarios
    own.write_text("#!/bin/sh\necho '  --own   Text'; echo '  --scenario TEXT   Text'\n")
    own.chmod(0o755)
    terminal = Terminal(directory)
    yield terminal
    terminal.close()


def test_bash_lists_the_choices(terminal):
    terminal.type_and_await("\x15testZR4410 -m 17 \t\t", "1  automatic response")


@pytest.mark.parametrize("typed, inserted", [
    ("testZR4410 -m 1\t7\t", "testZR4410 -m 17 "), ('testZR4410 "-m" 12 1\t', 'testZR4410 "-m" 12 1 '),
    ("simZR4410 --fault lat\t", "simZR4410 --fault late"),
    ("simZR4410 --fault late:ms\t", "simZR4410 --fault late:ms="),
    ("simZR4410 --fault late:ms=25,nt\t", "simZR4410 --fault late:ms=25,nth="),
    ("simZR4410 --fault=late:nt\t", "simZR4410 --fault=late:nth="),
    ('simZR4410 --fault "late:ms\t', 'simZR4410 --fault "late:ms="'),
    ("simZR4410 ctl fault 'late:ms=25,nt\t", "simZR4410 ctl fault 'late:ms=25,nth='"),
    ('simZR4410 --fault="late:nt\t', 'simZR4410 --fault="late:nth="'),
    ('simZR4410 "--colour=al\t', 'simZR4410 "--colour=always" '),
    ("simZR4410 --colour=al\t", "simZR4410 --colour=always "),
    ("simZR4410 --fault nope\t", "simZR4410 --fault nope"), ("simZR4410 --seed a\t", "simZR4410 --seed a"),
    ("simZR4410 decode a\t", "simZR4410 decode a"),
    ("simZR4410 --scenario a\t", "simZR4410 --scenario a\\ folder/"),
    ("simZR4410 --scenario=a\\ folder/\t", "simZR4410 --scenario=a\\ folder/z.toml "),
    ('simZR4410 --scenario "a folder/\t', 'simZR4410 --scenario "a folder/z.toml" '),
    ('simZR4410 --scenario "a folder"/\t', 'simZR4410 --scenario a\\ folder/z.toml '),
    ('simZR4410 --scenario "x:y/\t', 'simZR4410 --scenario "x:y/z.toml" '),
    ("simZR4410 --scenario x\\:y/\t", "simZR4410 --scenario x\\:y/z.toml "),
    ('simZR4410 --scenario "shot (\t', 'simZR4410 --scenario "shot (1).toml" '),
    ("simZR4410 --scenario shot\\ \\(\t", "simZR4410 --scenario shot\\ \\(1\\).toml "),
    ("simZR4410 --scenario me@\t", "simZR4410 --scenario me\\@host.toml "),
    ("simZR4410 --capture a\t", "simZR4410 --capture a\\ folder/"),
    ("simZR4410 ctl scenario x\t", "simZR4410 ctl scenario x\\:y/"),
    ("/no/simZR4410 --fas\t", "/no/simZR4410 --fast "), ("~/simZR4410 --ow\t", "~/simZR4410 --own "),
    ('~/simZR4410 --scenario "*\t', '~/simZR4410 --scenario "*'),
    ("simZR4410 --fas --quiet\x1bb" + 3 * "\x02" + "\t", "simZR4410 --fast --quiet"),  # the cursor is after --fas
])
def test_bash_inserts(terminal, typed, inserted):
    assert terminal.line_after(typed) == inserted
