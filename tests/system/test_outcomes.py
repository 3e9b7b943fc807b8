"""Every outcome that a reply can have in the library, and the fault of simZR4410 that produces it.

A row is one call of a routine (see call.c) with one fault: the routine's result, and what is logged.
"""

import os
import re
import shlex
import subprocess
from pathlib import Path
from typing import NamedTuple

import pytest

from device import ERROR, SIMULATOR, Run, errors

CALL = [*shlex.split(os.environ.get("ZR4410_EMULATOR", "")), str(Path(os.environ["ZR4410_BUILD"]) / "bin" / "call")]


class Row(NamedTuple):
    outcome: str
    call: str
    fault: str
    result: str
    lines: list  # at error level; a text or a pattern


def inquiry(*lines):
    """Returns all lines of an inquiry that fails with these first lines."""
    return [*lines, "QM2150_ProcessVisca failed!", "QM2150_Inquiry fail!\n"]


def command(*lines):
    return [*lines, "QM2150_ProcessVisca failed!", "QM2150_Command fail!\n"]


def mcu(*lines):
    return [*lines, "MCU_ProcessUart1 failed!"]


RECEIVE = "ZR4410_MsgQ_Receive failed!"
TIMEOUT = "ZR4410_MsgQ_Receive timeout!"
TOO_LONG = "msgrcv len failed(-1)!7:Argument list too long"
TOO_SHORT = re.compile(r"msgrcv len failed\(20\)!\d+:.+")  # errno is left over from an earlier call
REMOVED = re.compile(r"msgrcv len failed\(-1\)!(22:Invalid argument|43:Identifier removed)")
PACKET = "QM2150_CheckZR4410Packet failed!"
FILL, CHECK = "QM2150_FillUart1Resp failed!", "QM2150_CheckUart1Resp failed!"
MCU_PACKET, MCU_FILL, MCU_CHECK = ("MCU_CheckZR4410Packet failed!", "MCU_FillUart1Resp failed!",
                                   "MCU_CheckUart1Resp failed!")
NR, PUSH, VERSION = "get NR", "one-push", "mcu-version"

# Failures of the queue and the relay message. The three kinds of exchange check the same.
LINK = [
    Row(outcome, call, fault, result, wrap(*lines))
    for outcome, fault, result, by_kind in [
        ("no reply", "no-reply", "-56", ([TIMEOUT], [TIMEOUT], [RECEIVE])),
        ("a late reply", "late:ms=2500", "-56", ([TIMEOUT], [TIMEOUT], [RECEIVE])),
        ("no camera", "power-loss", "-56", ([TIMEOUT], [TIMEOUT], [RECEIVE])),
        ("no daemon", "daemon-away:ms=2500", "-56", ([TIMEOUT], [TIMEOUT], [RECEIVE])),
        ("a longer message", "wrong-size:value=40", "-55", ([TOO_LONG, RECEIVE],) * 3),
        ("a shorter message", "wrong-size:value=20", "-55", ([TOO_SHORT, RECEIVE],) * 3),
        ("a queue that is removed", "daemon-restart", "-55", ([REMOVED, RECEIVE],) * 3),
        ("another first byte of the header", "wrong-header", "-1",
         ([PACKET], [PACKET], ["ZR4410_PACKET_HEADER failed!", MCU_PACKET])),
        ("another second byte of the header", "patch:at=1,xor=1", "-1",
         ([PACKET], [PACKET], ["ZR4410_PACKET_HEADER failed!", MCU_PACKET])),
        ("another sequence id", "wrong-sequence", "-1",
         (["SeqID failed!", PACKET], ["SeqID failed!", PACKET], ["SeqID failed!", MCU_PACKET])),
        ("an old reply first", "stale-first", "-1",
         (["SeqID failed!", PACKET], ["SeqID failed!", PACKET], ["SeqID failed!", MCU_PACKET])),
        ("more than 16 data bytes", "over-long:value=20", ("-57", "-1", "-1"),
         (["Len > VISCA_PACKET_MAX_LEN", FILL], ["Len > DATA_MAX_LEN", FILL], ["Len > DATA_MAX_LEN", MCU_FILL])),
        ("another start byte", "bad-start", ("-58", "-1", "-1"),
         (["VISCA_UART1_CMD_START failed!", CHECK], ["UART1_CMD_START failed!", MCU_CHECK],
          ["UART1_CMD_START failed!", MCU_CHECK])),
        ("the request's command code", "wrong-code", "-1",
         (["UART1 RESP CMD Code failed!", CHECK], ["UART1 RESP CMD Code failed!", MCU_CHECK],
          ["UART1 RESP CMD Code failed!", MCU_CHECK])),
        ("another command code", "patch:at=5,xor=1", "-1",
         (["UART1 RESP CMD Code failed!", CHECK], ["UART1 RESP CMD Code failed!", MCU_CHECK],
          ["UART1 RESP CMD Code failed!", MCU_CHECK])),
        ("a wrong checksum", "bad-checksum", ("-58", "-1", "-1"),
         (["Checksum failed!", CHECK], ["Checksum failed!", MCU_CHECK], ["Checksum failed!", MCU_CHECK])),
        ("half a frame", "truncated", ("-58", "-1", "-1"),
         (["Checksum failed!", CHECK], ["Checksum failed!", MCU_CHECK], ["Checksum failed!", MCU_CHECK])),
        ("another stop byte", "bad-stop", ("-58", "-1", "-1"),
         (["VISCA_UART1_CMD_STOP failed!", CHECK], ["_UART1_CMD_STOP failed!", MCU_CHECK],
          ["_UART1_CMD_STOP failed!", MCU_CHECK])),
    ]
    for call, wrap, lines, result in zip((NR, PUSH, VERSION), (inquiry, command, mcu), by_kind,
                                         result if isinstance(result, tuple) else (result,) * 3)
]
# The library checks none of these.
LINK += [Row(outcome, call, fault, result, [])
         for outcome, fault in [("another frame length", "patch:at=3,value=0xFF"), ("bytes behind the frame", "tail"),
                                ("the reply twice", "duplicate")]
         for call, result in [(NR, "0 0x03"), (PUSH, "0 0x00"), (VERSION, "0 0x21")]]

JUDGED = "QM2150_ChecRespVisca fail!\n"
CAMERA = [
    Row("fewer than 3 bytes", NR, "patch:at=6,value=2", "-57", inquiry("Len > VISCA_PACKET_MAX_LEN", FILL)),
    Row("a plain frame", NR, "nak", "-57", inquiry("Len > VISCA_PACKET_MAX_LEN", FILL)),
    Row("another VISCA header", NR, "patch:at=7,value=0xA0", "-59", ["VISCA RESP Header fail!\n", JUDGED]),
    Row("another VISCA terminator", NR, "patch:at=-3,value=0xFE", "-59", ["VISCA RESP Terminator fail!\n", JUDGED]),
    Row("another reply type", NR, "patch:at=8,value=0x61", "0 0x03", []),
    Row("an acknowledgement", NR, "patch:at=6,cut=7,insert=03 90 41 FF 01 55", "-59", ["QM2150_GetNR len fail!\n"]),
    *(Row(f"VISCA error {fault}", NR, fault, "-59", [line, JUDGED]) for fault, line in [
        ("visca-length", "VISCA RESP: Message length error.\n"),
        ("visca-syntax", "VISCA RESP: Syntax error.\n"),
        ("visca-buffer-full", "VISCA RESP: Command buffer full.\n"),
        ("visca-cancelled", "VISCA RESP: Command cancelled.\n"),
        ("visca-no-socket", "VISCA RESP: No Socket.\n"),
        ("visca-not-executable", "VISCA RESP: Command not executable.\n"),
        ("visca-error:value=127", "VISCA RESP: Others code.\n")]),
    Row("no acknowledgement", PUSH, "nak", "-1", ["QM2150_Command fail!\n"]),
    Row("an acknowledgement and more", PUSH, "long-reply", "0 0x00", []),
    # The replies with a register or the version are not checked.
    Row("a sensor mode in one nibble", "get SnrMode", "short-reply", "0 0x00", []),
    Row("a nibble with more bits", "get SnrMode", "patch:at=10,value=0x18", "0 0x18", []),
    Row("an error in place of a sensor mode", "get SnrMode", "visca-syntax", "0 0x20", []),
    Row("an error in place of the version", "version", "visca-syntax", "0 0x00", []),
    Row("another sensor mode is read back", "set SnrMode 6", "patch:only=inquiries,at=-4,xor=1", "0 0x06",
        ["QM2150_SetSnrMode bRegValue != bReadRegValue failed!"]),
    Row("the second read-back is right", "set SnrMode 6", "patch:only=inquiries,nth=1,at=-4,xor=1", "0 0x06", []),
    Row("a sensor mode that cannot be read back", "set SnrMode 6", "bad-checksum:only=inquiries", "-58",
        ["Checksum failed!", CHECK, "QM2150_ProcessVisca failed!", "QM2150_GetSnrMode failed!"]),
    *(Row(f"block {number} of {words} length", f"block {number}", fault, "-59", [f"{name} len fail!\n"])
      for number, name in enumerate(["QM2150_GetLensControl", "QM2150_GetCameraControl", "QM2150_GetOtherControl",
                                     "QM2150_GetEnlargeFunction1", "QM2150_GetEnlargeFunction2"])
      for words, fault in [("a shorter", "short-reply"), ("a longer", "long-reply")]),
]


class Member(NamedTuple):
    """A setting: its starting value, and what is logged for a wrong reply."""
    name: str
    value: int
    length: str
    mismatch: str
    read: str  # logged if reading the value back fails
    zeros: tuple = ()  # the data bytes that must be 0
    zero: str = ""
    data: int = -4  # the position of a byte of the value in the reply; -4 is the last byte
    length_result: str = "-59"


Z1 = "tVisca.bData[6] != 0x00 || tVisca.bData[7] != 0x00\n"
Z2 = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00\n"
Z3 = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00!\n"
Z4 = "tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n"


def values(name, value):
    return f"QM2150_Set{name} bValue(0x{value:02x}) != bReadValue(0x{value ^ 1:02x})\n"


MEMBERS = [
    Member("NR", 3, "QM2150_GetNR len fail!\n", values("NR", 3), "QM2150_GetNR bReadValue fail\n"),
    Member("WdrParams", 7, "QM2150_GetWdrParams len fail!\n", "QM2150_SetWdrParams tWdrParam != tReadWdrParams\n",
           "QM2150_GetWdrParams tReadWdrParams fail\n", (6, 7), Z1, data=9),
    Member("WdrMode", 3, "QM2150_GetWdrMode len fail!\n",
           "QM2150_SetWdrMode bWdrMode(0x03) != bReadWdrMode(0x02)\n", "QM2150_GetWdrMode bReadWdrMode fail!\n"),
    Member("Bgain", 0xB4, "QM2150_GetBgain len fail!\n", values("Bgain", 0xB4), "QM2150_GetBgain bReadValue fail\n",
           (0, 1), Z2),
    Member("Rgain", 0xC8, "QM2150_GetRgain len fail!\n", values("Rgain", 0xC8), "QM2150_GetRgain bReadValue fail\n",
           (0, 1), Z2),
    Member("IrisPos", 14, "QM2150_GetIrisPos len fail!\n", values("IrisPos", 14),
           "QM2150_GetIrisPos bReadValue fail\n", (0, 1), Z3),
    Member("GainPos", 1, "QM2150_GetGainPos len fail!\n", "QM2150_SetGainPos bGainPos(0x01) != bReadGainPos(0x00)\n",
           "QM2150_GetGainPos bReadGainPos fail!\n", (0, 1), Z2),
    Member("GainLimit", 11, "QM2150_GetGainLimit len fail!\n",
           "QM2150_SetGainLimit bGainLimit(0x0b) != bReadGainLimit(0x0a)\n",
           "QM2150_GetGainLimit bReadGainLimit fail!\n"),
    Member("HighSensitivity", 3, "QM2150_GetHighSensitivity len fail!\n",
           "QM2150_SetHighSensitivity bOnOrOff != bReadOnOrOff.\n", "QM2150_GetHighSensitivity bReadOnOrOff fail!\n"),
    Member("ExpCompStep", 7, "QM2150_GetExpCompStep len fail!\n",
           "QM2150_SetExpCompStep bExpCompStep != bReadExpCompStep!\n",
           "QM2150_GetExpCompStep bReadExpCompStep fail!\n", (0, 1, 2), Z4),
    Member("ExpComp", 3, "QM2150_GetExpComp len fail!\n", "QM2150_SetExpComp bExpComp != bReadExpComp.\n",
           "QM2150_GetExpComp bReadExpComp fail!\n"),
    Member("PictureFlip", 3, "QM2150_GetPictureFlip len fail!\n",
           "QM2150_SetPictureFlip bPictureFlip != bReadPictureFlip.\n",
           "QM2150_GetPictureFlip bReadPictureFlip fail!\n"),
    Member("LrReverse", 3, "QM2150_GetMirror len fail!\n", "QM2150_GetMirror bLrReverse != bReadLrReverse.\n",
           "QM2150_GetLrReverse bReadLrReverse fail!\n"),
    Member("Icr", 3, "QM2150_GetIcr len fail!\n", "QM2150_SetIcr bIcr != bReadIcr.\n",
           "QM2150_GetIcr bReadIcr fail!\n"),
    Member("AutoIcr", 3, "QM2150_GetAutoIcr len fail!\n", "QM2150_SetAutoIcr bAutoIcr != bReadAutoIcr.\n",
           "QM2150_GetAutoIcr bReadAutoIcr fail!\n"),
    Member("ColorGain", 4, "QM2150_GetColorGain len fail!\n", "QM2150_SetShutter bColorGain != bReadColorGain.\n",
           "QM2150_GetColorGain sReadShutter fail!\n", (0, 1, 2), Z4),
    Member("Shutter", 6, "QM2150_GetShtter len fail!\n", "QM2150_SetShutter sShutter != sReadShutter!\n",
           "QM2150_GetShutter sReadShutter fail!\n", (0, 1), Z4),
    Member("AfMode", 0, "GetWbMode len fail!\n", "QM2150_SetAfMode bAfMode != bReadAfMode!\n",
           "QM2150_GetAfMode bReadAfMode fail!\n"),
    Member("FocusMode", 2, "QM2150_GetFocusMode len fail!\n", "QM2150_SetFocusMode bFocusMode != bReadFocusMode!\n",
           "QM2150_GetFocusMode bReadFocusMode fail!\n"),
    Member("AeMode", 0, "GetWbMode len fail!\n", "QM2150_SetAeMode bAeMode != bReadAeMode!\n",
           "QM2150_GetAeMode bReadAeMode fail!\n"),
    Member("WbMode", 0, "GetWbMode len fail!\n", "QM2150_SetWbMode bWbMode != bReadWbMode!\n",
           "QM2150_GetWbMode bReadWbMode fail!\n", length_result="-60"),
]
SETTINGS = [row for member in MEMBERS for get, set in [(f"get {member.name}", f"set {member.name} {member.value}")]
            for row in [
    Row("a shorter reply", get, "short-reply", member.length_result, [member.length]),
    Row("a longer reply", get, "long-reply", member.length_result, [member.length]),
    *(Row(f"data byte {zero} is not zero", get, f"patch:at={9 + zero},value=1", "-59", [member.zero])
      for zero in member.zeros),
    Row("the command is refused", set, "nak:only=commands", "-1", ["QM2150_Command fail!\n"]),
    Row("it cannot be read back", set, "bad-checksum:only=inquiries", "-58",
        [*inquiry("Checksum failed!", CHECK), member.read]),
    Row("another value is read back", set, f"patch:only=inquiries,at={member.data},xor=1", "-60", [member.mismatch]),
    Row("the second read-back is right", set, f"patch:only=inquiries,at={member.data},xor=1,count=1",
        f"0 0x{member.value:02x}", []),
]]

MCU = [
    Row("a result in place of the version", VERSION, "nak:value=0x50", "0 0x50", []),
    Row("the version and more", VERSION, "long-reply", "0 0x21", []),
    *(Row(f"the result {words}", "mcu-power", f"nak:value={result}", "-1", []) for words, result in [
        ("checksum error", 0x20), ("command not defined", 0x30), ("value out of range", 0x40), ("busy", 0x50)]),
    Row("positions in seven bytes", "mcu-ptz", "short-reply", "-1", []),
    Row("positions in nine bytes", "mcu-ptz", "long-reply", "-1", []),
    Row("a result in place of positions", "mcu-ptz", "nak", "-1", []),
]

UNREAD = ["Checksum failed!", CHECK, "QM2150_ProcessVisca failed!"]
WAITING = "[init] Waiting for QM2150 wake up: QM2150_GetSnrMode fail!\n"
START_UP = [
    Row("the first reading fails", "mains 60", "bad-checksum:nth=1", "0 0x06", UNREAD),
    Row("both readings fail", "mains 60", "bad-checksum", "-58", [*UNREAD * 2, "[init] QM2150_GetSnrMode failed!\n"]),
    Row("the camera does not wake up", "mains 50", "bad-checksum:match=09 04 24,nth=3+4+5+6+7+8+9+10+11+12", "-58",
        [*[*UNREAD, WAITING] * 10, "[init] 50 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n"]),
    Row("the camera wakes up in another mode", "mains 50", "patch:match=09 04 24,at=-4,xor=1", "-59",
        ["QM2150_SetSnrMode bRegValue != bReadRegValue failed!"]),
    Row("the version is read the third time", "start-up 60", "bad-checksum:match=09 00 02,count=2", "0 0x06",
        [*[*UNREAD, "[init] QM2150_GetVersion fail!\n"] * 2, "[init] QM2150_GetVersion OK.\n"]),
    Row("the version is never read", "start-up 60", "bad-checksum:match=09 00 02", "-58",
        [*UNREAD, "[init] QM2150_GetVersion fail!\n"] * 5),
]

ROWS = [*LINK, *CAMERA, *SETTINGS, *MCU, *START_UP]


@pytest.mark.parametrize("row", ROWS, ids=lambda row: f"{row.call}: {row.outcome}")
def test_an_outcome(simulator, syslog, row):
    simulator("--fast", "--quiet", "--fault", row.fault)
    run = Run(syslog, row.call.split(), program=CALL).finish()
    assert run.output.splitlines()[-1] == row.result
    seen = [text for level, text in run.log if level == ERROR]
    expected = [text for _, text in errors(*row.lines)]
    assert len(seen) == len(expected), seen
    for text, line in zip(seen, expected):
        assert text == line if isinstance(line, str) else line.fullmatch(text), seen


def test_every_fault_has_an_outcome():
    listed = subprocess.run([*SIMULATOR, "--faults"], stdout=subprocess.PIPE, check=True, text=True).stdout
    faults, _, _ = listed.partition("Keys:")
    names = {line.split()[0] for line in faults.splitlines() if line.startswith("  ")}
    assert len(names) > 20
    assert {row.fault.partition(":")[0] for row in ROWS} == names - {"socket-number"}  # the library ignores the number
