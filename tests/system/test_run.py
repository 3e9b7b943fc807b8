"""A run from start to finish: banners, settings, opening the queues; which action the arguments select."""

import pytest

from device import (ACK, BYTE_ORDER, CONF_IMG, CONF_PTZ, DEBUG, FINISH, START, WIDE_LONG, Daemon, LineOfMusl,
                    all_queues, at_most, body, camera, errors, ftok, mcu, open_queue)

UNSUPPORTED = errors("Command ID is not supported.\n")
NO_SETTINGS = errors("can not open sysconf file /sysconf/conf.img.\n", "sysconf_fget failed!\n")

SENSOR_MODES = """\
0x00 = unknown
0x01 = 1080i 60fps (Default)
0x02 = 1080i 59.94fps
0x03 = NTSC, Stop Digital Output
0x04 = 1080i 50fps
0x05 = PAL, Stop Digital Output
0x06 = 1080p 30fps
0x07 = 1080p 29.97fps
0x08 = 1080p 25fps
0x09 = 720p 60fps
0x0a = 720p 59.94fps
0x0b = NTSC, Stop Digital Output
0x0c = 720p 50fps
0x0d = PAL, Stop Digital Output
0x0e = 720p 30fps
0x0f = 720p 29.97fps
0x10 = NTSC, Stop Digital Output
0x11 = 720p 25fps
0x12 = PAL, Stop Digital Output
"""

GET_VERSION = body("AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55")
VERSION = camera("90 50 00 01 05 06 01 23 02 FF")
VERSION_TEXT = "[Model] 0x0506, [ROM Version] 0x0123\n"

GET_MODE = body("AA AA 01 0B AA 02 06 81 09 04 24 72 FF 2B 55")
MODE = camera("90 50 00 08 FF")

SET_MODE_0 = body("AA AA 01 0D AA 02 08 81 01 04 24 72 00 00 FF 31 55")
SET_MODE_3 = body("AA AA 01 0D AA 02 08 81 01 04 24 72 00 03 FF 2E 55")
SET_MODE_8 = body("AA AA 01 0D AA 02 08 81 01 04 24 72 00 08 FF 29 55")

MCU_VERSION = body("AA AA 01 06 AA 10 01 01 44 55")


def keys():
    return [(DEBUG, "MsgqClient keyTx = 0x%08x\n" % (ftok("b") & 0xFFFFFFFF)),
            (DEBUG, "MsgqClient keyRx = 0x%08x\n" % (ftok("a") & 0xFFFFFFFF))]


def test_without_a_mode_the_queues_are_only_opened(tool):
    run = tool("-g")
    assert run.action() == keys()
    assert run.output == ""
    assert run.milliseconds < at_most(0.5) * 1000
    assert sorted(queue.key for queue in all_queues()) == sorted([ftok("a"), ftok("b")])


def test_an_argument_that_is_not_an_option_selects_no_mode(tool):
    run = tool("1")
    assert run.action() == []
    assert run.output == ""


def test_queues_that_the_tool_creates_are_write_only_and_read_only(tool):
    tool("1")
    assert {queue.key: queue.permissions for queue in all_queues()} == {ftok("b"): "222", ftok("a"): "444"}


def test_queues_stay_and_are_used_again(tool):
    tool("1")
    first = all_queues()
    tool("1")
    assert all_queues() == first


def test_queues_of_the_daemon_are_used_as_they_are(tool):
    open_queue("b"), open_queue("a")
    first = all_queues()
    assert tool("1").action() == []
    assert all_queues() == first
    assert [queue.permissions for queue in first] == ["666", "666"]


def test_without_defconf_there_is_no_action_and_no_timing(tool):
    CONF_PTZ.unlink()
    CONF_PTZ.parent.rmdir()
    run = tool("-s", "1", "1")
    assert run.body() == errors("ftok keyTx failed!", "ZR4410_MsgQ_Open fail!\n")
    assert run.output == ""
    assert all_queues() == []


def test_without_settings_the_run_continues(tool):
    CONF_IMG.unlink()
    CONF_IMG.parent.rmdir()
    run = tool("-s", "1", "1")
    assert run.action() == NO_SETTINGS
    assert run.output == SENSOR_MODES


@pytest.mark.parametrize("settings", [
    "", "OTHER=1\n", "EXT_DEBUG\n", "EXT_DEBUG=" + "9" * 240 + "\n", "EXT_DEBUG=\"" + "7" * 63 + "\"",
    "EXT_DEBUG=" + "x" * 100000, "\0" * 5000, "EXT_DEBUG=-99999999999\n", "\xff" * 300,
])
def test_with_any_settings_the_run_continues(tool, settings):
    CONF_IMG.write_text(settings, encoding="latin-1")
    run = tool("-s", "1", "1")
    assert run.action() == []
    assert run.output == SENSOR_MODES


@pytest.mark.skipif(not WIDE_LONG, reason="a long of 32 bits saturates")
@pytest.mark.parametrize("level, lines", [
    ("32768", 1), ("4294967295", 1), ("2147483648", 0), ("4294934527", 0), ("4294967296", 0),
])
def test_the_debug_level_is_the_low_32_bits(tool, level, lines):
    CONF_IMG.write_text(f"EXT_DEBUG={level}\n")
    Daemon(camera("90 50" + " 00" * 13 + " FF"))
    assert tool("-y", "2").action().count((DEBUG, "VISCA RESP ACK!\n")) == lines


@pytest.mark.skipif(not WIDE_LONG, reason="a long of 32 bits saturates")
def test_only_the_low_32_bits_of_a_number_are_used(tool):
    daemon = Daemon(ACK, camera("90 50 00 06 FF"))
    run = tool("-s", "4294967297", "1")
    assert run.action() == []
    assert run.output == SENSOR_MODES
    tool("-s", "2", "4294967302").action()
    assert daemon.requests[0] == body("AA AA 01 0D AA 02 08 81 01 04 24 72 00 06 FF 2B 55")


def test_settings_that_are_a_directory(tool):
    CONF_IMG.unlink()
    CONF_IMG.mkdir()
    try:
        # A directory can be opened for reading, and has no lines.
        assert tool("-s", "1", "1").action() == []
    finally:
        CONF_IMG.rmdir()


@pytest.mark.parametrize("arguments", [
    ["-s", "1", "1"], ["-s", "1", "1", "x"], ["--sony", "1", "1"], ["--so", "1", "1"], ["-s", " +1", "1 1"],
    ["-s", "1x", "01"], ["--", "1", "1"], ["-m", "1", "1", "-s"],
])
def test_listing_the_sensor_modes_sends_nothing(tool, arguments):
    daemon = Daemon()
    run = tool(*arguments)
    assert run.action() == []
    assert run.output == ("" if arguments[0] == "--" else SENSOR_MODES)
    assert daemon.requests == []


@pytest.mark.parametrize("arguments", [
    ["-s", "3", "0"], ["--sony", "-1", "0"], ["-s", "2147483647", "1"],
    ["--sony", "-2147483648", "1"], ["-m", "0x10", "0"], ["-m", "0", "0"], ["-m", "272", "0"], ["-m", "", "0"],
    ["-m", "11", "0"], ["--mcu", "-240", "0"], ["-s", "1", "1", "-m"],
])
def test_numbers_that_select_no_action(tool, arguments):
    daemon = Daemon()
    run = tool(*arguments)
    assert run.action() == UNSUPPORTED
    assert run.output == ""
    assert daemon.requests == []


@pytest.mark.parametrize("arguments, answers, requests, output", [
    # The values are what argv[2] and argv[3] hold when the parser meets the option.
    ("-g -s 1 2", [VERSION], [GET_VERSION], VERSION_TEXT),
    ("-sg 1 2", [MODE], [GET_MODE], "[GetSnrMode] 1080p 25fps\n"),
    ("-s 1 2 -g", [MODE], [GET_MODE], "[GetSnrMode] 1080p 25fps\n"),
    ("--sony=1 2 8", [ACK, MODE], [SET_MODE_8], "[SetSnrMode] 1080p 25fps\n"),
    ("--sony=1 2 3", [ACK, camera("90 50 00 03 FF")], [SET_MODE_3], "[SetSnrMode] NTSC, Stop Digital Output\n"),
    ("1 2 -s", [ACK, camera("90 50 00 00 FF")], [SET_MODE_0], "[SetSnrMode] unknown\n"),
    ("-s 2 264", [ACK, MODE], [SET_MODE_8], "[SetSnrMode] 1080p 25fps\n"),
    ("-g 16 0 -m", [mcu(0x10, "07")], [MCU_VERSION], "Version = 0x07\n"),
    ("--mcu 16 0", [mcu(0x10, "07")], [MCU_VERSION], "Version = 0x07\n"),
])
def test_which_action_the_arguments_select(tool, arguments, answers, requests, output):
    daemon = Daemon(*answers)
    run = tool(*arguments.split())
    assert run.status == 0
    assert daemon.requests[:1] == requests
    assert "".join(line for line in run.output.splitlines(True) if line[0] in "[V" and "client" not in line) == output


def test_the_message_type_is_the_process_id(tool):
    daemon = Daemon(VERSION)
    run = tool("-s", "0", "0")
    assert run.action() == []
    assert (daemon.types, daemon.requests) == ([run.pid], [GET_VERSION])


def test_dumps_of_36_bytes_sent_and_40_bytes_received(tool):
    daemon = Daemon(VERSION)
    run = tool("-s", "0", "0", "-g")
    sender = " ".join(f"{byte:02X}" for byte in run.pid.to_bytes(4, BYTE_ORDER))
    assert run.output == f"""\
[testZR4410] client msgsnd:
(36): 
{sender} AA AA 01 0A AA 02 05 81 09 00 02 FF 
C4 55 00 00 00 00 00 00 00 00 00 00 00 00 00 00 
00 00 00 00 
[testZR4410] client msgrcv:
(40): 
{sender} AA AA 01 0F AA 82 0A 90 50 00 01 05 
06 01 23 02 FF B9 55 00 00 00 00 00 00 00 00 00 
00 00 00 00 00 00 00 00 
[Model] 0x0506, [ROM Version] 0x0123
"""
    assert run.log[3:5] == keys()
    assert daemon.types == [run.pid]


def test_each_run_is_logged_from_banner_to_banner(tool):
    for _ in range(2):
        run = tool("-s", "9", "9")
        assert run.action() == UNSUPPORTED
        assert (run.log[:3], run.log[-3:]) == (START, FINISH)


def test_a_line_of_musl_equals_the_text_with_and_without_its_line_feed():
    line = LineOfMusl("fail!")
    for text in ("fail!", "fail!\n"):
        assert line == text and text == line and (3, line) in [(3, text)]
        assert not line != text and not text != line
    for text in ("fail", "fail!!", "fail!\n\n"):
        assert line != text and not line == text
