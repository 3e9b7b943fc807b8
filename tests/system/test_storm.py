"""Signals as fast as they go, in every run mode, and a stop signal somewhere among them.

A handler that logs while the interrupted flow is inside syslog waits for itself for ever, unless care is taken. So the
storms hit the tool wherever it is, and some hit it where it is held: inside syslog, by a log daemon that reads nothing.

ZR4410_STORM_RUNS     how many runs, over all modes (default: one for each mode and stop signal)
ZR4410_STORM_SECONDS  how long a storm may last (default: a quarter of a second)
"""

import os
import random
import select
import signal
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import NamedTuple

import pytest

from device import ACK, CONF_IMG, DEBUG, ERROR, INFO, Daemon, Syslog, camera, mcu

SECONDS = float(os.environ.get("ZR4410_STORM_SECONDS", "0.25"))
STORM = [sys.executable, "-I", "-S", str(Path(__file__).with_name("storm.py"))]
SEED = 4410
HANGS = 20  # seconds after which nobody need wait for the end
STOPS = {signal.SIGINT: "Catch SIGINT!", signal.SIGTERM: "Catch SIGTERM!"}
STORMED = ["Catch SIGUSR1!", "Catch SIGUSR2!"]

VERSION = camera("90 50 00 01 05 06 01 23 02 FF")
BLOCK = camera("90 50" + " 00" * 13 + " FF")
MODE_8 = camera("90 50 00 08 FF")


class Waiting(NamedTuple):
    """A mode that waits on a queue when the storm breaks loose, and what it says when it is stopped."""
    arguments: str
    answers: tuple  # of the device, before it falls silent
    lines: tuple


class Anywhere(NamedTuple):
    """A mode on its way: the storm begins when the handlers are there, and the stop may come after the end."""
    arguments: str
    answers: tuple
    lines: int  # of its output


def failed(*texts):
    return tuple((ERROR, text) for text in texts)


CAMERA_FAILED = failed("QM2150_GetCameraControl failed!\n", "GetCameraControlInquiry failed!\n")
LOOP_FINISHED = ((INFO, "Finish main loop."),)

WAITING = [
    Waiting("-s 0 0", (), failed("QM2150_VersionInq fail!\n")),
    Waiting("-s 1 0 -g", (), failed("QM2150_GetSnrMode fail!\n")),
    Waiting("-s 2 8", (), failed("QM2150_SetRegisterValue failed!", "QM2150_SetSnrMode fail!\n")),
    Waiting("-s 2 8", (ACK,), failed("QM2150_GetSnrMode failed!", "QM2150_SetSnrMode fail!\n")),
    Waiting("-m 16 0", (), failed("MCU_GetVersion fail!\n", "MCU_GetVersion fail!\n")),
    Waiting("-m 17 0", (), failed("MCU_GetPTZ fail!\n")),
    Waiting("-m 12 1 -g", (), failed("MCU_LensPowerControl fail!\n")),
    Waiting("-c 0002", (), failed("SnrQM2150_Command failed!\n")),
    Waiting("-i 04 00", (), failed("SnrQM2150_Inquiry failed!\n")),
    Waiting("-y 0 -g", (), failed("QM2150_GetLensControl failed!\n", "GetLensControlInquiry failed!\n")),
    Waiting("-y 1", (), CAMERA_FAILED),
    Waiting("-y 1", (BLOCK,), CAMERA_FAILED),
    Waiting("-y 1", (BLOCK, MODE_8), CAMERA_FAILED),
    Waiting("-y 2", (), failed("QM2150_GetOtherControl failed!\n", "GetOthersControlInquiry failed!\n")),
    Waiting("-y 3", (), failed("QM2150_GetEnlargeFunction1 failed!\n", "GetEnlargeFun1Inquiry failed!\n")),
    Waiting("-y 4", (), failed("QM2150_GetEnlargeFunction2 failed!\n", "GetEnlargeFun1Inquiry failed!\n")),
    Waiting("-r", (), LOOP_FINISHED),
    Waiting("-r -g", (), LOOP_FINISHED),
]
ANYWHERE = [
    Anywhere("-s 0 0", (VERSION,), 1),
    Anywhere("-s 1 0", (MODE_8,), 1),
    Anywhere("-s 1 1", (), 19),
    Anywhere("-s 2 8", (ACK, MODE_8), 1),
    Anywhere("-m 16 0", (mcu(0x10, "1F"),), 1),
    Anywhere("-m 16 1", (), 24),
    Anywhere("-m 17 0", (mcu(0x11, "00 00 FA 00 01 2C 00 10"),), 1),
    Anywhere("-m 12 1", (mcu(0x0C, "10"),), 0),
    Anywhere("-c 0002", (ACK,), 0),
    Anywhere("-i 04 00", (camera("90 50 02 FF"),), 1),
    Anywhere("-y 0", (BLOCK,), 2),
    Anywhere("-y 1", (BLOCK, MODE_8, camera("90 50 03 FF")), 2),
    Anywhere("-y 2", (BLOCK,), 2),
    Anywhere("-y 3", (BLOCK,), 2),
    Anywhere("-y 4", (BLOCK,), 2),
    Anywhere("-g", (), 0),
]
MODES = WAITING + ANYWHERE
RUNS = int(os.environ.get("ZR4410_STORM_RUNS", 2 * len(MODES)))

# What comes and goes with -g, the settings and the time that passes.
BY_THE_WAY = ["msgrcv len = 0\n", "can not open sysconf file /sysconf/conf.img.\n", "sysconf_fget failed!\n",
              "msgrcv timeout!", "ZR4410_MsgQ_Receive fail!\n", "Start main loop."]


class BusySyslog(Syslog):
    """A log daemon that can be kept from reading."""

    def __init__(self):
        self.reads = threading.Event()
        self.reads.set()
        super().__init__()

    def _listen(self):
        while True:
            self.reads.wait()
            datagram = self.socket.recv(65536)
            with self.arrival:
                self.datagrams.append(datagram)
                self.arrival.notify_all()

    def clog(self):
        """From now on a line waits inside syslog."""
        self.reads.clear()
        while True:
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
                sender.setblocking(False)
                try:
                    sender.connect("/dev/log")
                    sender.send(b"clogged")
                except BlockingIOError:  # a fresh socket that cannot send: the receiver's queue is full
                    return

    def unclog(self):
        self.reads.set()


@pytest.fixture(scope="session")
def syslog():
    return BusySyslog()


@pytest.fixture
def storm():
    """A storm about to break loose."""
    process = subprocess.Popen(STORM, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def begin(pid, seconds, pause, stop, least=0):
        process.stdin.write(f"{pid} {seconds} {pause} {least} {int(stop)}\n")
        process.stdin.flush()

    begin.process = process
    yield begin
    process.communicate()


def result(storm):
    """How many signals were sent, and when the stop."""
    sent, stopped = storm.process.stdout.readline().split()
    return int(sent), float(stopped)


def end_of(run):
    """When the process was gone."""
    descriptor = os.pidfd_open(run.pid)
    watch = select.poll()
    watch.register(descriptor, select.POLLIN)
    gone = watch.poll(HANGS * 1000)
    end = time.monotonic()
    os.close(descriptor)
    assert gone, "the tool hangs"
    return end


def begin(start, mode):
    """A run that is where the storm is to hit it."""
    if isinstance(mode, Anywhere):
        CONF_IMG.unlink()  # its complaint shows that the handlers are there
    daemon = Daemon(*mode.answers)
    run = start(*mode.arguments.split())
    if isinstance(mode, Anywhere):
        run.wait_for(ERROR, "sysconf_fget failed!\n")
    elif mode.arguments.startswith("-r"):
        run.wait_for(INFO, "Start main loop.")
    else:
        while len(daemon.requests) <= len(mode.answers):
            assert run.process.poll() is None
            time.sleep(0.001)
    return run


def said(run):
    """What the run said of itself and of the stop."""
    lines = [line for line in run.body() if line[1] not in STORMED + BY_THE_WAY and
             not line[1].startswith("MsgqClient key") and "\t=\t" not in line[1]]
    assert [level for level, text in lines if text.startswith("Delta Time (ms) : ")] == [INFO]
    return tuple(line for line in lines if not line[1].startswith("Delta Time"))


def name(mode):
    return f"{mode.arguments} #{len(mode.answers)} {type(mode).__name__}"


@pytest.fixture(scope="module")
def ends():
    """The seconds from stop signal to end, of the modes that wait on a queue; and what else there is to tell."""
    ends, figures = [], []
    yield ends, figures
    print(f"\n{len(figures)} runs ended; {sum(sent for sent, _ in figures)} signals sent, "
          f"{sum(caught for _, caught in figures)} caught; {len(ends)} ends while waiting, the slowest "
          f"{max(ends, default=0) * 1000:.1f} ms after the stop")


@pytest.mark.parametrize("number", range(RUNS), ids=lambda number: f"{number} {name(MODES[number % len(MODES)])}")
def test_a_storm_and_a_stop(start, storm, ends, number):
    mode = MODES[number % len(MODES)]
    stop = list(STOPS)[number // len(MODES) % 2]
    run = begin(start, mode)
    chance = random.Random(SEED + number)
    # As fast as they go the flow itself stands still; with pauses it is hit at all its places.
    storm(run.pid, chance.uniform(0, SECONDS), chance.choice([0, 0.0002, 0.002]), stop)
    sent, stopped = result(storm)
    took = end_of(run) - stopped
    run.finish()

    lines = said(run)
    caught = (DEBUG, STOPS[stop])
    if isinstance(mode, Waiting):
        assert lines == (caught, *mode.lines)
        assert took < 1.5  # not the 2 s of a reply that does not come
        ends[0].append(took)
    else:
        assert lines.count(caught) <= 1
        assert run.output.count("\n") in (mode.lines, 0 if mode.answers else mode.lines, len(mode.answers) and 2)
    ends[1].append((sent, sum(run.log.count((DEBUG, text)) for text in STORMED)))


def test_the_end_comes_within_150_ms_of_the_stop(ends):
    # Nine in ten: now and then this machine has other things to do.
    slowest = sorted(ends[0])
    assert len(slowest) >= min(RUNS, len(WAITING))
    assert slowest[len(slowest) * 9 // 10] < 0.150, slowest[-10:]


@pytest.mark.parametrize("stop", STOPS, ids=STOPS.get)
@pytest.mark.parametrize("mode", WAITING, ids=name)
def test_a_storm_while_the_tool_is_held_inside_syslog(start, storm, syslog, mode, stop):
    run = begin(start, mode)
    syslog.clog()
    try:
        run.signal(stop)  # its line has to wait, and the storm comes down on that
        storm(run.pid, 0.05, 0, signal.SIGUSR1, least=100)
        result(storm)
        assert run.process.poll() is None
    finally:
        syslog.unclog()
    end_of(run)
    run.finish()
    assert said(run) == ((DEBUG, STOPS[stop]), *mode.lines)
    assert run.log.count((DEBUG, "Catch SIGUSR1!")) > 0 and run.log.count((DEBUG, "Catch SIGUSR2!")) > 0
