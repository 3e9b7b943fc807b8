"""The device around the tool, controlled by the tests: syslog, the two queues, the settings and a scripted daemon.

The tests run inside script/sandbox, so /dev/log, /defconf and /sysconf belong to them alone. So do the message queues,
except under proot: there the host's queues are visible too, and only the two with keys from the sandbox's own key file
belong to the tests.
No code is shared with the tool or with simZR4410: messages are built and read independently of both.
"""

import os
import re
import select
import shlex
import shutil
import socket
import subprocess
import threading
import time
from pathlib import Path
from typing import NamedTuple

import sysv_ipc

TOOL = shlex.split(os.environ.get("ZR4410_TOOL", "testZR4410"))
SIMULATOR = shlex.split(os.environ.get("ZR4410_SIM", "simZR4410"))
BYTE_ORDER = os.environ.get("ZR4410_BYTE_ORDER", "little")  # of the machine that the tool is built for
ELF = Path(shutil.which(TOOL[-1])).read_bytes()
WIDE_LONG = ELF[4] == 2  # the class in the ELF header: whether the tool's long has 64 bits
MUSL = b"/ld-musl-" in ELF  # the interpreter's name: whether the tool's libc is musl
VERSION = re.search(r"^project\(testZR4410 VERSION (\S+)", (Path(__file__).parents[2] / "CMakeLists.txt").read_text(),
                    re.MULTILINE)[1]
TIME_LIMIT = 60  # seconds; reached only if something hangs
# Whether the tool takes many times as long as the one that ships.
SLOW = "ZR4410_EMULATOR" in os.environ or b"__asan_init" in ELF

CONF_PTZ = Path("/defconf/conf.ptz")
CONF_IMG = Path("/sysconf/conf.img")
READY = Path("/run/simulator-of-the-test")

UNDER_PROOT = os.environ.get("ZR4410_SANDBOX") == "proot"

ERROR, INFO, DEBUG = 3, 6, 7
BANNER = (INFO, "===================================================")
START = [BANNER, (INFO, f"Start testZR4410 (v{VERSION})."), BANNER]
FINISH = [BANNER, (INFO, f"Finish testZR4410 (v{VERSION})."), BANNER]
CAUGHT = [(DEBUG, f"Catch {name}!") for name in ("SIGINT", "SIGTERM", "SIGUSR1", "SIGUSR2")]


def errors(*texts):
    """Log lines at error level."""
    return [(ERROR, text) for text in texts]


# What each command line logs after its exchange has failed. An exchange stopped by a signal logs nothing itself, so
# these are then the only lines.
MODE_FAILED = {
    "-s 0 0": errors("QM2150_VersionInq fail!\n"),
    "-s 1 0": errors("QM2150_GetSnrMode fail!\n"),
    "-s 2 8": errors("QM2150_SetRegisterValue failed!", "QM2150_SetSnrMode fail!\n"),
    "-m 16 0": errors("MCU_GetVersion fail!\n", "MCU_GetVersion fail!\n"),
    "-m 17 0": errors("MCU_GetPTZ fail!\n"),
    "-m 12 1": errors("MCU_LensPowerControl fail!\n"),
    "-c 0002": errors("SnrQM2150_Command failed!\n"),
    "-i 04 00": errors("SnrQM2150_Inquiry failed!\n"),
    "-y 0": errors("QM2150_GetLensControl failed!\n", "GetLensControlInquiry failed!\n"),
    "-y 1": errors("QM2150_GetCameraControl failed!\n", "GetCameraControlInquiry failed!\n"),
    "-y 2": errors("QM2150_GetOtherControl failed!\n", "GetOthersControlInquiry failed!\n"),
    "-y 3": errors("QM2150_GetEnlargeFunction1 failed!\n", "GetEnlargeFun1Inquiry failed!\n"),
    "-y 4": errors("QM2150_GetEnlargeFunction2 failed!\n", "GetEnlargeFun1Inquiry failed!\n"),
}
READ_BACK_FAILED = errors("QM2150_GetSnrMode failed!", "QM2150_SetSnrMode fail!\n")  # by "-s 2 8", after the write
RECEIVE_FAILED = errors("ZR4410_MsgQ_Receive failed!")
CAMERA_FAILED = errors("QM2150_ProcessVisca failed!")
MCU_FAILED = errors("MCU_ProcessUart1 failed!")
LOOP_FAILED = (ERROR, "ZR4410_MsgQ_Receive fail!\n")  # of the read loop


def at_most(seconds):
    """The longest that something may take: for a slow tool, anything but hanging."""
    return TIME_LIMIT if SLOW else seconds


def until(condition):
    deadline = time.monotonic() + TIME_LIMIT
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.002)


class LineOfMusl(str):
    """A text without its line feed: musl's syslog adds one if it is missing, so the two cannot be told apart."""

    def __eq__(self, other):
        return str(self) == other.removesuffix("\n")

    def __ne__(self, other):
        return not self == other

    __hash__ = str.__hash__


class Syslog:
    """Receives and stores what arrives at /dev/log, byte for byte."""

    LINE = re.compile(rb"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d testZR4410\[(\d+)\]: (.*)", re.DOTALL)
    USER = 1 << 3  # the facility's part of the priority

    def __init__(self):
        Path("/dev/log").unlink(missing_ok=True)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind("/dev/log")
        self.datagrams = []
        self.arrival = threading.Condition()
        threading.Thread(target=self._listen, daemon=True).start()

    def _listen(self):
        while datagram := self.socket.recv(65536):
            with self.arrival:
                self.datagrams.append(datagram)
                self.arrival.notify_all()

    def lines(self, pid):
        """(level, text) of each message of that process so far."""
        found = []
        for datagram in self.datagrams:
            match = self.LINE.fullmatch(datagram)
            if match and int(match[2]) == pid:
                priority = int(match[1])
                assert priority & ~7 in (0, self.USER), datagram
                text = match[3].decode("latin-1")
                found.append((priority & 7, LineOfMusl(text.removesuffix("\n")) if MUSL else text))
        return found

    def wait_for(self, pid, line, count=1):
        with self.arrival:
            arrived = self.arrival.wait_for(lambda: self.lines(pid).count(line) >= count, TIME_LIMIT)
        assert arrived, f"{line} is not among {self.lines(pid)}"

    def settle(self):
        """Waits until everything that was sent before this call is in `datagrams`."""
        marker = f"marker {time.monotonic_ns()}".encode()
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.connect("/dev/log")  # not sendto: proot does not translate its address
            sender.send(marker)
        with self.arrival:
            assert self.arrival.wait_for(lambda: marker in self.datagrams, TIME_LIMIT)
            self.datagrams.remove(marker)


class Run:
    """One run of the tool, or of another program that logs in the same way."""

    def __init__(self, syslog, arguments, prefix=(), program=TOOL):
        self.syslog = syslog
        self.process = subprocess.Popen([*prefix, *program, *arguments], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.pid = self.process.pid

    def wait_for(self, *line, count=1):
        self.syslog.wait_for(self.pid, line, count)

    def signal(self, number):
        os.kill(self.pid, number)

    def end(self):
        """Waits until the process has ended and returns the monotonic time of that moment."""
        watch = select.poll()
        descriptor = os.pidfd_open(self.pid)
        watch.register(descriptor, select.POLLIN)
        gone = watch.poll(TIME_LIMIT * 1000)
        end = time.monotonic()
        os.close(descriptor)
        assert gone, "the tool hangs"
        return end

    def seconds_to_end(self):
        start = time.monotonic()
        return self.end() - start

    def finish(self):
        try:
            output, errors = self.process.communicate(timeout=TIME_LIMIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise
        self.syslog.settle()
        self.output, self.errors = output.decode("latin-1"), errors.decode("latin-1")
        self.status = self.process.returncode
        self.log = self.syslog.lines(self.pid)
        return self

    def body(self):
        """The log lines between the two banners of a run that ended normally.

        A signal may also be caught during the finish banner: then its line is between those of the banner.
        """
        assert self.status == 0
        assert self.errors == ""
        assert self.log[:3] == START
        end = len(self.log)
        for line in reversed(FINISH):
            end -= 1
            while self.log[end] in CAUGHT:
                end -= 1
            assert self.log[end] == line
        return self.log[3:end]

    def action(self):
        """The log lines of the action alone. Sets `milliseconds` to the time it took."""
        *lines, (level, text) = self.body()
        delta = re.fullmatch(r"Delta Time \(ms\) : (\d+)" + ("" if MUSL else r"\n"), text)
        assert level == INFO and delta, (level, text)
        self.milliseconds = int(delta[1])
        return lines


def ftok(project):
    """The queue's key, as ftok(3) computes it from project id, device number and inode number."""
    status = CONF_PTZ.stat()
    key = ord(project) << 24 | (status.st_dev & 0xFF) << 16 | status.st_ino & 0xFFFF
    return key - (1 << 32) if key >= 1 << 31 else key


class Queue(NamedTuple):
    """A row of the kernel's list of queues."""
    key: int
    id: int
    permissions: str
    bytes: int
    messages: int


def all_queues():
    """Returns the queues of this sandbox: all that the kernel lists, or under proot the two of the key file."""
    rows = Path("/proc/sysvipc/msg").read_text().splitlines()[1:]
    queues = [Queue(int(row[0]), int(row[1]), row[2], int(row[3]), int(row[4])) for row in map(str.split, rows)]
    if not UNDER_PROOT:
        return queues
    own = [ftok("a"), ftok("b")] if CONF_PTZ.exists() else []
    return [queue for queue in queues if queue.key in own]


def write_settings():
    """Writes the default settings, and a key file whose keys nobody else uses.

    A file whose keys are taken is renamed, not removed: it keeps its inode number, so the next file gets another.
    """
    CONF_PTZ.parent.mkdir(exist_ok=True)
    CONF_PTZ.write_text("")
    while UNDER_PROOT and all_queues():
        CONF_PTZ.rename(f"/run/taken-{CONF_PTZ.stat().st_ino}")
        CONF_PTZ.write_text("")
    CONF_IMG.parent.mkdir(exist_ok=True)
    CONF_IMG.write_text("EXT_DEBUG=0\n")


def remove_all_queues():
    for queue in all_queues():
        sysv_ipc.MessageQueue(queue.key, mode=0).remove()


def open_queue(project):
    """Opens the queue as a daemon does. The tool must not have created it: then only a process with CAP_IPC_OWNER could
    open it for reading and writing."""
    queue = sysv_ipc.MessageQueue(ftok(project), sysv_ipc.IPC_CREAT, mode=0o666, max_message_size=8192)
    assert queue.mode == 0o666
    return queue


def frame(code, data):
    start = bytes([0xAA, code, len(data), *data])
    return start + bytes([-sum(start) & 0xFF, 0x55])


def camera(text):
    """The frame of a camera reply, from the VISCA packet in hex."""
    return frame(0x82, bytes.fromhex(text))


def mcu(command, text):
    """The frame of an MCU reply to that command, from its data in hex."""
    return frame(command + 0x80, bytes.fromhex(text))


ACK = frame(0x82, b"\x10")


def relay(sequence, content, filler=b"\x00"):
    return (bytes([0xAA, 0xAA, sequence, len(content)]) + content).ljust(36, filler)


def body(text):
    """A relay body from hex, padded with zeros to 36 bytes."""
    return bytes.fromhex(text).ljust(36, b"\x00")


class Raw(NamedTuple):
    """A reply sent exactly as it is, of any length."""
    content: bytes
    type: int = 1


class Daemon:
    """Answers the requests in order as scripted; after the last answer it only records them.

    An answer is a frame (relayed with the sequence id of its request), a Raw message, None for silence, or a list
    of these.
    """

    def __init__(self, *answers):
        self.requests_queue, self.replies_queue = open_queue("b"), open_queue("a")
        self.answers = list(answers)
        self.types, self.requests = [], []
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _serve(self):
        while True:
            try:
                request, sender = self.requests_queue.receive()
            except sysv_ipc.ExistentialError:
                return
            self.types.append(sender)
            self.requests.append(request)
            answer = self.answers.pop(0) if self.answers else None
            for reply in answer if isinstance(answer, list) else [answer]:
                if isinstance(reply, Raw):
                    self.send(reply.content, reply.type)
                elif reply is not None:
                    self.send(relay(request[2], reply), sender)

    def send(self, content, kind=1):
        self.replies_queue.send(content, type=kind)


class Simulator:
    """A running simZR4410. It is ready when the constructor returns; stop() ends it and checks its exit status."""

    def __init__(self, *arguments):
        READY.unlink(missing_ok=True)
        self.process = subprocess.Popen([*SIMULATOR, "--ready-file", READY, *arguments], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        deadline = time.monotonic() + TIME_LIMIT
        while not READY.exists():
            assert self.process.poll() is None, self.process.stdout.read()
            assert time.monotonic() < deadline, "simZR4410 is not ready"
            time.sleep(0.005)

    def stop(self):
        self.process.terminate()
        output, _ = self.process.communicate(timeout=TIME_LIMIT)
        assert self.process.returncode == 0, output
        return output.decode()
