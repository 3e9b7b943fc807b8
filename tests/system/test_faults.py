"""Every fault of the device in every exchange of every run mode: what is logged, how long it takes, and that the next
run on the same queues works again.

A row of MODES is one exchange of a mode, a row of LINK or VISCA is one fault; outcome() combines them.
"""

import re
import signal
from typing import NamedTuple

import pytest

from device import (CAMERA_FAILED, DEBUG, ERROR, INFO, LOOP_FAILED, MCU_FAILED, MODE_FAILED, READ_BACK_FAILED,
                    all_queues, at_most, body, errors, ftok, open_queue, until)

TIMEOUT_MS = 2000
SLACK_MS = at_most(1.9) * 1000  # for everything but the waiting: less than another time-out


class Mode(NamedTuple):
    arguments: str
    exchange: int  # the one with the fault, from 1
    kind: str  # of the exchange: "inquiry" or "command" (camera), or "mcu"
    tail: list  # the mode's own lines after a failure
    checked: bool = False  # a camera inquiry whose VISCA reply is checked, which logs one line more
    length: str = ""  # the line for a reply of the wrong length
    before: int = 0  # the number of lines of a good run that come before those of the failure

    def failed(self, *lines):
        """Returns all lines of an exchange for which the link logs these lines."""
        wrapped = MCU_FAILED if self.kind == "mcu" else CAMERA_FAILED
        return errors(*lines) + wrapped + (errors("QM2150_Inquiry fail!\n") if self.checked else []) + self.tail


MODES = [
    Mode("-s 0 0", 1, "inquiry", MODE_FAILED["-s 0 0"]),
    Mode("-s 1 0", 1, "inquiry", MODE_FAILED["-s 1 0"]),
    Mode("-s 2 8", 1, "command", MODE_FAILED["-s 2 8"]),
    Mode("-s 2 8", 2, "inquiry", READ_BACK_FAILED),
    Mode("-m 16 0", 1, "mcu", MODE_FAILED["-m 16 0"]),
    Mode("-m 17 0", 1, "mcu", MODE_FAILED["-m 17 0"]),
    Mode("-m 12 1", 1, "mcu", MODE_FAILED["-m 12 1"]),
    Mode("-c 0002", 1, "command", MODE_FAILED["-c 0002"]),
    Mode("-i 04 00", 1, "inquiry", MODE_FAILED["-i 04 00"], True),
    Mode("-y 0", 1, "inquiry", MODE_FAILED["-y 0"], True, "QM2150_GetLensControl len fail!\n"),
    Mode("-y 1", 1, "inquiry", MODE_FAILED["-y 1"], True, "QM2150_GetCameraControl len fail!\n"),
    Mode("-y 1", 2, "inquiry", MODE_FAILED["-y 1"], before=16),
    Mode("-y 1", 3, "inquiry", MODE_FAILED["-y 1"], True, "QM2150_GetHighSensitivity len fail!\n", before=16),
    Mode("-y 2", 1, "inquiry", MODE_FAILED["-y 2"], True, "QM2150_GetOtherControl len fail!\n"),
    Mode("-y 3", 1, "inquiry", MODE_FAILED["-y 3"], True, "QM2150_GetEnlargeFunction1 len fail!\n"),
    Mode("-y 4", 1, "inquiry", MODE_FAILED["-y 4"], True, "QM2150_GetEnlargeFunction2 len fail!\n"),
]
# These runs send no request, so no fault affects them.
NO_REQUEST = ["-s 1 1", "-m 16 1", "-y 5", "-g", "-m 1 0"]

OVERLONG_FAILED = "msgrcv len failed(-1)!7:Argument list too long"
BLOCKED = (DEBUG, "Reflush Receive Msqg (7): Argument list too long")
REMOVED = re.compile(r"msgrcv len failed\(-1\)!(22:Invalid argument|43:Identifier removed)")
SHORT = re.compile(r"msgrcv len failed\(20\)!\d+:.+")  # errno is left over from an earlier call

NO_REPLY = {"inquiry": ["ZR4410_MsgQ_Receive timeout!"], "command": ["ZR4410_MsgQ_Receive timeout!"],
            "mcu": ["ZR4410_MsgQ_Receive failed!"]}
SEQUENCE = {"inquiry": ["SeqID failed!", "QM2150_CheckZR4410Packet failed!"],
            "command": ["SeqID failed!", "QM2150_CheckZR4410Packet failed!"],
            "mcu": ["SeqID failed!", "MCU_CheckZR4410Packet failed!"]}


def frame_lines(inquiry, plain):
    return {"inquiry": [inquiry, "QM2150_CheckUart1Resp failed!"], "command": [plain, "MCU_CheckUart1Resp failed!"],
            "mcu": [plain, "MCU_CheckUart1Resp failed!"]}


def queue_lines(line):
    return dict.fromkeys(("inquiry", "command", "mcu"), [line, "ZR4410_MsgQ_Receive failed!"])


CHECKSUM = frame_lines("Checksum failed!", "Checksum failed!")

# The faults that the link itself detects, with its lines for each kind of exchange.
LINK = {
    "no-reply": NO_REPLY,
    "late:ms=3000": NO_REPLY,
    "power-loss": NO_REPLY,
    "daemon-away:ms=2200": NO_REPLY,
    "daemon-restart": queue_lines(REMOVED),
    "wrong-size:value=40": queue_lines(OVERLONG_FAILED),
    "wrong-size:value=20": queue_lines(SHORT),
    "stale-first": SEQUENCE,
    "wrong-sequence": SEQUENCE,
    "wrong-header": {"inquiry": ["QM2150_CheckZR4410Packet failed!"], "command": ["QM2150_CheckZR4410Packet failed!"],
                     "mcu": ["ZR4410_PACKET_HEADER failed!", "MCU_CheckZR4410Packet failed!"]},
    "over-long": {"inquiry": ["Len > VISCA_PACKET_MAX_LEN", "QM2150_FillUart1Resp failed!"],
                  "command": ["Len > DATA_MAX_LEN", "QM2150_FillUart1Resp failed!"],
                  "mcu": ["Len > DATA_MAX_LEN", "MCU_FillUart1Resp failed!"]},
    "bad-start": frame_lines("VISCA_UART1_CMD_START failed!", "UART1_CMD_START failed!"),
    "wrong-code": frame_lines("UART1 RESP CMD Code failed!", "UART1 RESP CMD Code failed!"),
    "bad-checksum": CHECKSUM,
    "truncated": CHECKSUM,
    "bad-stop": frame_lines("VISCA_UART1_CMD_STOP failed!", "_UART1_CMD_STOP failed!"),
}
TIMED_OUT = [fault for fault, lines in LINK.items() if lines is NO_REPLY]

# The camera's error replies: the line logged where they are checked, and the sensor mode read where they are not.
VISCA = {
    "visca-length": ("VISCA RESP: Message length error.\n", 0x10),
    "visca-syntax": ("VISCA RESP: Syntax error.\n", 0x20),
    "visca-buffer-full": ("VISCA RESP: Command buffer full.\n", 0x30),
    "visca-cancelled": ("VISCA RESP: Command cancelled.\n", 0x40),
    "visca-no-socket": ("VISCA RESP: No Socket.\n", 0x50),
    "visca-not-executable": ("VISCA RESP: Command not executable.\n", 0x10),
    "visca-error:value=127": ("VISCA RESP: Others code.\n", 0xF0),
}
FAULTS = [*LINK, *VISCA, "nak", "short-reply", "long-reply", "duplicate", "socket-number"]

NO_NAME = errors("SnrQM2150_SnrMode2Str fail!\n")
NTSC = "[GetSnrMode] NTSC, Stop Digital Output\n"


class Undisturbed(NamedTuple):
    lines: list
    output: str


def outcome(mode, fault, good):
    """Returns the lines and the output of this mode with this fault. `good` is the run without the fault."""
    before, code = good.lines[:mode.before], (mode.arguments, mode.exchange)

    def failed(lines):
        # A mode with lines before the fault has already printed its block.
        return before + lines, good.output if mode.before else ""

    if fault in LINK:
        return failed(mode.failed(*LINK[fault][mode.kind]))

    if fault in ("duplicate", "socket-number"):  # only the raw inquiry prints the socket's number
        return good.lines, good.output.replace("90 50", "90 51") if fault == "socket-number" else good.output

    if mode.kind == "command":  # the first byte must be 0x10; of these replies only a long one begins with it
        return (good.lines, good.output) if fault == "long-reply" else failed(mode.tail)

    if mode.kind == "mcu":
        answers = {"nak": 0x40, "short-reply": 0x00, "long-reply": 0x21}
        if mode.arguments == "-m 16 0":  # prints the first byte without a check
            return good.lines, "Version = 0x%02x\n" % answers.get(fault, 0x90)
        if mode.arguments == "-m 12 1" and fault == "long-reply":
            return good.lines, good.output
        return failed(mode.tail)  # there is no acknowledgement, or there are not eight bytes

    if fault == "nak":  # too short for a VISCA packet
        return failed(mode.failed("Len > VISCA_PACKET_MAX_LEN", "QM2150_FillUart1Resp failed!"))

    if fault in VISCA:
        line, sensor_mode = VISCA[fault]
        if mode.checked:
            return failed(errors(line, "QM2150_ChecRespVisca fail!\n") + mode.tail)
        if code == ("-s 0 0", 1):
            return good.lines, "[Model] 0x0000, [ROM Version] 0x0000\n"
        if code == ("-s 1 0", 1):
            return ([], NTSC) if sensor_mode == 0x10 else failed(NO_NAME)
        if code == ("-s 2 8", 2):  # the first read-back gives another mode, the second the right one
            return good.lines, good.output
        return failed(mode.tail)  # -y 1: no shutter times for such a sensor mode

    # One data byte too few or too many.
    if mode.length:
        return failed(errors(mode.length) + mode.tail)
    if mode.arguments == "-i 04 00":
        return good.lines, {"short-reply": "Inquiry Packet: 90 50 ff\n",
                            "long-reply": "Inquiry Packet: 90 50 02 00 ff\n"}[fault]
    if fault == "short-reply" and code == ("-s 1 0", 1):  # 0x00 in place of 0x06
        return [], "[GetSnrMode] unknown\n"
    if fault == "short-reply" and code == ("-y 1", 2):
        return failed(mode.tail)
    return good.lines, good.output  # the bytes that are used are right, or the mode is read back a second time


def matches(lines, expected):
    """Like ==, but an expected text may be a pattern."""
    return len(lines) == len(expected) and all(
        level == expected_level and (text == expected_text if isinstance(expected_text, str)
                                     else expected_text.fullmatch(text))
        for (level, text), (expected_level, expected_text) in zip(lines, expected))


def waiting_replies():
    return sum(queue.messages for queue in all_queues() if queue.key == ftok("a"))


@pytest.fixture(scope="module")
def undisturbed():
    return {}


@pytest.fixture
def good(undisturbed, tool, simulator):
    """A function that runs the mode without a fault."""
    def find(arguments):
        if arguments not in undisturbed:
            device = simulator("--fast", "--quiet")
            run = tool(*arguments.split())
            undisturbed[arguments] = Undisturbed(run.action(), run.output)
            device.stop()
        return undisturbed[arguments]

    return find


def fault_option(fault, exchange):
    name, _, keys = fault.partition(":")
    return f"{name}:{keys + ',' if keys else ''}nth={exchange}"


def names(mode):
    return f"{mode.arguments} #{mode.exchange}"


@pytest.mark.parametrize("fault", FAULTS)
@pytest.mark.parametrize("mode", MODES, ids=names)
def test_a_fault_in_an_exchange(tool, simulator, good, mode, fault):
    undisturbed = good(mode.arguments)
    lines, output = outcome(mode, fault, undisturbed)
    simulator("--fast", "--quiet", "--fault", fault_option(fault, mode.exchange))

    run = tool(*mode.arguments.split())
    assert matches(run.action(), lines), run.log
    assert run.output == output
    timeouts = fault in TIMED_OUT
    assert TIMEOUT_MS * timeouts <= run.milliseconds < TIMEOUT_MS * timeouts + SLACK_MS

    if fault.startswith("late"):
        until(lambda: waiting_replies() == 1)
    if fault == "wrong-size:value=40":
        first = next(each for each in MODES if each.arguments == mode.arguments)
        run = tool(*mode.arguments.split())
        failure = first.failed(OVERLONG_FAILED, "ZR4410_MsgQ_Receive failed!")
        assert run.action() == [BLOCKED] + failure
        assert run.output == ""
        overlong, _ = open_queue("a").receive(block=False)
        assert len(overlong) == 40
    run = tool(*mode.arguments.split())
    assert run.action() == undisturbed.lines
    assert run.output == undisturbed.output


@pytest.mark.parametrize("fault", FAULTS)
def test_modes_that_send_no_request(tool, simulator, fault):
    simulator("--fast", "--quiet", "--fault", fault)
    for arguments in NO_REQUEST:
        run = tool(*arguments.split())
        lines = [line for line in run.action() if line[0] != DEBUG]
        assert lines == (errors("Command ID is not supported.\n") if arguments == "-m 1 0" else [])
        assert run.output.count("\n") == {"-s 1 1": 19, "-m 16 1": 24}.get(arguments, 0)
        assert run.milliseconds < SLACK_MS


SILENCE = [(ERROR, "msgrcv timeout!"), LOOP_FAILED]
# The read loop accepts any complete message. For each fault: how many messages it dumps, and the lines that it logs at
# least once.
READ_LOOP = {
    "no-reply": (0, SILENCE), "late:ms=3000": (1, SILENCE), "power-loss": (0, SILENCE),
    "daemon-away:ms=2200": (0, SILENCE),
    "daemon-restart": (0, [(ERROR, REMOVED), LOOP_FAILED]),
    "wrong-size:value=40": (0, [(ERROR, OVERLONG_FAILED), LOOP_FAILED]),
    "wrong-size:value=20": (0, [(ERROR, SHORT), LOOP_FAILED]),
    "stale-first": (2, []), "duplicate": (2, []),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_a_fault_before_the_read_loop(start, tool, simulator, good, fault):
    undisturbed = good("-s 0 0")
    simulator("--fast", "--quiet", "--fault", fault_option(fault, 1))
    run = start("-r", "-g")
    run.wait_for(INFO, "Start main loop.")
    open_queue("b").send(body("AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55"), type=1)

    shown, lines = READ_LOOP.get(fault, (1, []))
    taken = b""
    while taken.count(b"\n") < 5 * shown:  # a dump is five lines
        taken += run.process.stdout.read1()
    assert taken.count(b"[testZR4410] client msgrcv:\n(40): \n") == shown
    for _, line in lines[1:]:
        run.wait_for(ERROR, line)
    run.signal(signal.SIGTERM)
    assert run.seconds_to_end() < at_most(1)
    seen = [line for line in run.finish().action() if line[0] == ERROR]
    assert len(seen) % 2 == 0 and seen == seen[:2] * (len(seen) // 2)
    assert matches(seen[:2], lines), run.log
    assert run.log[-5:-4] == [(INFO, "Finish main loop.")]
    assert run.output == ""

    if fault == "wrong-size:value=40":
        open_queue("a").receive(block=False)
    run = tool("-s", "0", "0")
    assert run.action() == undisturbed.lines
    assert run.output == undisturbed.output == "[Model] 0x0720, [ROM Version] 0x0103\n"
