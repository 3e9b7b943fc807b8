"""Another program starts up the simulated camera through the library, in real time."""

import os
import re
import shlex
from pathlib import Path

import pytest

from device import ERROR, INFO, Run

STARTUP = [*shlex.split(os.environ.get("ZR4410_EMULATOR", "")),
           str(Path(os.environ["ZR4410_BUILD"]) / "bin" / "startup")]

PARAMS = [
    "MCU Ver           \t=\t0x21\n",
    "[QM2150] Model    \t=\t0x0720\n",
    "[QM2150] ROM Ver  \t=\t0x0103\n",
    "[QM2150] Snr Mode \t=\t0x%02x\n",
    "[QM2150] AE Mode  \t=\t0x00\n",
    "[QM2150] Shutter  \t=\t0x0006\n",
    "[QM2150] WB Mode  \t=\t0x00\n",
    "[QM2150] AF Mode  \t=\t0x00\n",
]


def params(mode):
    return [(INFO, text % mode if "%" in text else text) for text in PARAMS]


@pytest.fixture
def start_up(syslog):
    return lambda hz: Run(syslog, [hz], program=STARTUP).finish()


def test_the_current_mode_needs_no_power_cycle(simulator, start_up):
    simulator()
    run = start_up("60")
    assert run.output == ("init 0: mcu 0x21 model 0x0720 rom 0x0103 snr 0x06 ae 0x00 shutter 0x0006 wb 0x00 af 0x00\n"
                          "noise reduction 0 0 5\n")
    assert run.log == [(INFO, "[init] 60 Hz SnrMode = 0x06\n"), (ERROR, "[init] QM2150_GetVersion OK.\n"),
                       *params(0x06)]


def test_another_mode_needs_a_power_cycle(simulator, start_up):
    simulator()
    run = start_up("50")
    assert run.output == ("init 0: mcu 0x21 model 0x0720 rom 0x0103 snr 0x08 ae 0x00 shutter 0x0006 wb 0x00 af 0x00\n"
                          "noise reduction 0 0 5\n")
    texts = [text for _, text in run.log]
    off, on = texts.index("[init] QM2150 Power Off.\n"), texts.index("[init] QM2150 Power On.\n")
    up = texts.index("[init] 50 Hz SnrQM2150_SetSnrMode = 0x08\n")
    assert off < on < up
    # The camera does not answer while it wakes up, and each failed attempt is logged.
    attempts = texts[on + 1:up].count("[init] Waiting for QM2150 wake up: QM2150_GetSnrMode fail!\n")
    assert 1 <= attempts <= 9
    elapsed = re.fullmatch(r"\[init\] Set SnrMode Time = (\d+) \(ms\)\n", texts[up + 1])
    assert elapsed and int(elapsed[1]) >= 9000
    assert run.log[up + 2:] == [(ERROR, "[init] QM2150_GetVersion OK.\n"), *params(0x08)]
