"""Raw commands, raw inquiries and reports over the real queues, against a scripted daemon."""

import pytest

from device import (ACK, BANNER, CAMERA_FAILED, CONF_IMG, DEBUG, INFO, MODE_FAILED, Daemon, body, camera, errors,
                    frame)

COMMAND_OK = [(INFO, "Send Command OK!\n")]
COMMAND_FAILED = MODE_FAILED["-c 0002"]
INQUIRY_FAILED = errors("QM2150_ChecRespVisca fail!\n") + MODE_FAILED["-i 04 00"]


@pytest.mark.parametrize("arguments, request_body", [
    (["-c", "0002"], "AA AA 01 0B AA 02 06 81 01 04 00 02 FF C7 55"),
    (["-c", "0003", "-g"], "AA AA 01 0B AA 02 06 81 01 04 00 03 FF C6 55"),
    (["-c", "123"], "AA AA 01 0A AA 02 05 81 01 04 12 FF B8 55"),
    (["-c", "1"], "AA AA 01 09 AA 02 04 81 01 04 FF CB 55"),
    (["-c", ""], "AA AA 01 09 AA 02 04 81 01 04 FF CB 55"),
    (["-c", "aB"], "AA AA 01 0A AA 02 05 81 01 04 AB FF 1F 55"),
    (["--cmd", "000102030405060708090a0b"],
     "AA AA 01 15 AA 02 10 81 01 04 00 01 02 03 04 05 06 07 08 09 0A 0B FF 7D 55"),
])
def test_a_raw_command(tool, arguments, request_body):
    daemon = Daemon(ACK)
    run = tool(*arguments)
    assert [line for line in run.action() if line[0] != DEBUG] == COMMAND_OK
    assert daemon.requests == [body(request_body)]


@pytest.mark.parametrize("digits", [26, 32, 33])
def test_a_raw_command_that_is_too_long_for_a_packet(tool, digits):
    daemon = Daemon(ACK)
    run = tool("-c", "0" * digits)
    assert run.action() == (errors("Len > VISCA_PACKET_MAX_LEN", "QM2150_FillZR4410 failed!") + CAMERA_FAILED +
                            COMMAND_FAILED)
    assert daemon.requests == []


def test_a_raw_command_that_is_not_acknowledged(tool):
    Daemon(frame(0x82, b"\x40"))
    assert tool("-c", "0002").action() == COMMAND_FAILED


@pytest.mark.parametrize("arguments, request_body", [
    (["-i", "04", "00"], "AA AA 01 0A AA 02 05 81 09 04 00 FF C2 55"),
    (["-i", "4", "00"], "AA AA 01 0A AA 02 05 81 09 04 00 FF C2 55"),
    (["-i", "", "00"], "AA AA 01 0A AA 02 05 81 09 00 00 FF C6 55"),
    (["-i", "123", "00"], "AA AA 01 0A AA 02 05 81 09 12 00 FF B4 55"),
    (["-i", "7e", ""], "AA AA 01 09 AA 02 04 81 09 7E FF 49 55"),
    (["--inq", "04", "2472"], "AA AA 01 0B AA 02 06 81 09 04 24 72 FF 2B 55"),
])
def test_a_raw_inquiry(tool, arguments, request_body):
    daemon = Daemon(camera("90 50 02 FF"))
    run = tool(*arguments)
    assert run.action() == []
    assert run.output == "Inquiry Packet: 90 50 02 ff\n"
    assert daemon.requests == [body(request_body)]


@pytest.mark.parametrize("reply, output", [
    ("90 50 FF", "90 50 ff"),
    ("90 50 01 23 FF", "90 50 01 23 ff"),
    ("90 41 FF", "90 41 ff"),
    ("90 61 41 FF", "90 61 41 ff"),
    ("90 50 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF FF",
     "90 50 a0 a1 a2 a3 a4 a5 a6 a7 a8 a9 aa ab ac ad ae af ff"),
])
def test_the_replys_bytes_are_printed(tool, reply, output):
    Daemon(frame(0x82, bytes.fromhex(reply)))
    run = tool("-i", "04", "00")
    assert run.action() == []
    assert run.output == f"Inquiry Packet: {output}\n"


@pytest.mark.parametrize("reply, line", [
    ("90 60 01 FF", "VISCA RESP: Message length error.\n"),
    ("90 60 02 FF", "VISCA RESP: Syntax error.\n"),
    ("90 60 03 FF", "VISCA RESP: Command buffer full.\n"),
    ("90 60 04 FF", "VISCA RESP: Command cancelled.\n"),
    ("90 60 05 FF", "VISCA RESP: No Socket.\n"),
    ("90 60 41 FF", "VISCA RESP: Command not executable.\n"),
    ("90 60 42 FF", "VISCA RESP: Others code.\n"),
    ("A0 50 02 FF", "VISCA RESP Header fail!\n"),
    ("90 50 02 FE", "VISCA RESP Terminator fail!\n"),
])
def test_replies_that_are_errors(tool, reply, line):
    Daemon(camera(reply))
    run = tool("-i", "04", "00")
    assert run.action() == errors(line) + INQUIRY_FAILED
    assert run.output == ""


@pytest.mark.parametrize("setting, lines", [
    ("32768", [(DEBUG, "VISCA RESP ACK!\n")]),
    ('  "32768"', [(DEBUG, "VISCA RESP ACK!\n")]),
    ("-1", [(DEBUG, "VISCA RESP ACK!\n")]),
    ("9" * 200, [(DEBUG, "VISCA RESP ACK!\n")]),  # the largest long: bit 15 is set in 32 and 64 bits
    ("-" + "9" * 200, []),  # the smallest long: it is not
    ("32767", []),
    ("65536", []),
    ("0x8000", []),
])
def test_bit_15_of_the_setting_logs_completions(tool, setting, lines):
    CONF_IMG.write_text(f"OTHER=32768\nEXT_DEBUG={setting}\n")
    Daemon(camera("90 50 02 FF"))
    run = tool("-i", "04", "00")
    assert run.action() == lines
    assert run.output == "Inquiry Packet: 90 50 02 ff\n"


FIELDS = [
    "Rgain\t\t=\t0xc8\n",
    "Bgain\t\t=\t0xb4\n",
    "WB Mode\t=\t0x05\n",
    "Apture Gain\t=\t0x08\n",
    "Exposure Mode\t=\t0x03\n",
    "High Res\t=\t0x01\n",
    "Wide D\t=\t0x00\n",
    "Spot AE\t=\t0x00\n",
    "BackLight\t=\t0x00\n",
    "ExpComp\t=\t0x01\n",
    "Slow Shutter\t=\t0x01\n",
    "Shutter Pos\t=\t0x10\n",
    "Iris Pos\t=\t0x0e\n",
    "Gain Pos\t=\t0x0b\n",
    "Bright Pos\t=\t0x11\n",
    "ExpComp Pos\t=\t0x09\n",
]
REPORT = [
    BANNER,
    (INFO, "[High Sensitivity] ON\n"),
    (INFO, "[AE] Manual, 1/1500s, x19.95(26.0dB), F2.80\n"),
    (INFO, "[ExpComp] ON, x1.41(3.0dB)\n"),
    (INFO, "[AWB] Manual, (Rgain, Bgain) = (0xc8, 0xb4)\n"),
]


def test_a_report_of_three_inquiries(tool):
    """The demo's transcript covers the other reports."""
    daemon = Daemon(camera("90 50 0C 08 0B 04 05 08 03 23 10 0E 0B 11 09 FF"), camera("90 50 00 06 FF"),
                    camera("90 50 02 FF"))
    run = tool("-y", "1")
    assert run.action() == [(INFO, field) for field in FIELDS] + REPORT
    assert run.output == "(13): \n0C 08 0B 04 05 08 03 23 10 0E 0B 11 09 \n"
    assert daemon.requests == [body(request) for request in [
        "AA AA 01 0B AA 02 06 81 09 7E 7E 01 FF C8 55", "AA AA 02 0B AA 02 06 81 09 04 24 72 FF 2B 55",
        "AA AA 03 0A AA 02 05 81 09 04 5E FF 64 55 55"]]


@pytest.mark.parametrize("number", ["5", "-1", "99999999999999999999"])
def test_a_report_that_does_not_exist(tool, number):
    daemon = Daemon()
    run = tool("-y", number)
    assert run.action() == []
    assert run.output == ""
    assert daemon.requests == []


@pytest.mark.parametrize("number, block", [
    ("0", "LensControl"), ("1", "CameraControl"), ("2", "OtherControl"), ("3", "EnlargeFunction1"),
    ("4", "EnlargeFunction2"),
])
@pytest.mark.parametrize("count", [12, 14])
def test_a_report_whose_block_has_the_wrong_length(tool, number, block, count):
    Daemon(frame(0x82, b"\x90\x50" + bytes(count) + b"\xff"))
    run = tool("-y", number)
    assert run.action() == errors(f"QM2150_Get{block} len fail!\n") + MODE_FAILED[f"-y {number}"]
    assert run.output == ""
