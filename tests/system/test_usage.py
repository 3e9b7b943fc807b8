"""The command line: what prints the usage, what is rejected, and the exit status of each."""

import pytest

from device import START, all_queues, errors

USAGE = """\
Usage: testZR4410 [OPTION]

 -s 0 0 QM2150 Get Version
 -s 1 0 QM2150 Get Sensor Mode
 -s 1 1 QM2150 List Sensor Mode
 -s 2 6 QM2150 Set Sensor Mode 1080p 30fps

 --mcu MCU Command.
 -m [Cmd ID] [Value]
 -m 16 0 MCU Get Version
 -m 12 0 MCU Power Off QM2150
 -m 12 1 MCU Power ON QM2150

 --cmd SONY Visca Command.
 -c [Cmd Hex ID + Value]
 -c 0002 CAM_Power On
 -c 0003 CAM_Power Off

 --inq SONY Visca Inquiry.
 -i [Inquiry Hex Category Code] [Inquiry Hex Data]
 -i 04 00 CAM_PowerInq
 -i 04 2472 Get Sensor Mode

 --sys system inquiry
 -y [Inquiry Data]
 -y 0

 system inquiry for debug mode.
 -y 0 -g
"""


@pytest.mark.parametrize("arguments", [
    "", "-h", "--help", "--he", "-g -h", "-h -s 0 0", "-r -h",
    "-s", "-s 1", "-s 1 2 3 4", "--sony=1 2", "--sony 1", "--sony 1 2 3 4",
    "-m", "-m 16", "-m 16 0 0 0", "--mcu=16 0",
    "-r 1 2", "-r -g 1", "--read 1 2",
    "-c", "-c 00 01 02", "--cmd=0002",
    "-i", "-i 04", "-i 04 00 1 2", "--inq=04 00",
    "--sys=0", "-y0", "-y 0 1 2", "--sys 0 1 2",
    "-r -s",
])
def test_usage_without_an_error_message(tool, arguments):
    run = tool(*arguments.split())
    assert (run.status, run.output, run.errors) == (0, USAGE, "")
    assert run.log == START
    assert all_queues() == []


@pytest.mark.parametrize("arguments, message", [
    ("-x", "invalid option -- 'x'"),
    ("-s 1 2 -x", "invalid option -- 'x'"),
    ("-m 12 -1", "invalid option -- '1'"),
    ("-y", "option requires an argument -- 'y'"),
    ("--sys", "option '--sys' requires an argument"),
    ("--sony", "option '--sony' requires an argument"),
    ("--s 1 1", "option '--s' is ambiguous"),
    ("--help=1", "option '--help' doesn't allow an argument"),
    ("--nonsense", "unrecognized option '--nonsense'"),
])
def test_usage_after_an_error_message_of_the_parser(tool, arguments, message):
    run = tool(*arguments.split())
    assert (run.status, run.output) == (0, USAGE)
    assert message in run.errors
    assert run.log == START
    assert all_queues() == []


@pytest.mark.parametrize("arguments, line", [
    (["-c", "0x12"], "IsHexString failed!\n"),
    (["-c", "00 2"], "IsHexString failed!\n"),
    (["-c", "12G4", "-g"], "IsHexString failed!\n"),
    (["-c", "0" * 34], "HexStr2Bytes failed!\n"),
    (["--cmd", "0" * 200], "HexStr2Bytes failed!\n"),
    (["-i", "4G", "00"], "IsHexString failed!\n"),
    (["-i", "04", "0G"], "IsHexString failed!\n"),
    (["-i", "G4", "0" * 34], "IsHexString failed!\n"),
    (["-i", "04", "0" * 34], "HexStr2Bytes failed!\n"),
    (["-i", "-g", "00"], "IsHexString failed!\n"),
])
def test_bad_hex_is_rejected_before_anything_is_opened(tool, arguments, line):
    run = tool(*arguments)
    assert (run.status, run.output, run.errors) == (255, "", "")
    assert run.log == START + errors(line)
    assert all_queues() == []
