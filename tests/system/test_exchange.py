"""Requests and replies over the real queues, against a scripted daemon."""

import re

import pytest
import sysv_ipc

from device import (ACK, CAMERA_FAILED, DEBUG, ERROR, INFO, LOOP_FAILED, MCU_FAILED, MODE_FAILED, RECEIVE_FAILED,
                    Daemon, Raw, all_queues, at_most, body, camera, errors, frame, ftok, mcu, open_queue, relay)

VERSION = camera("90 50 00 01 05 06 01 23 02 FF")
VERSION_TEXT = "[Model] 0x0506, [ROM Version] 0x0123\n"
GET_VERSION = body("AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55")
MCU_VERSION = body("AA AA 01 06 AA 10 01 01 44 55")
OVERLONG = b"\xaa\xaa\x01\x0a" + bytes(36)  # 40 bytes

VERSION_FAILED = CAMERA_FAILED + MODE_FAILED["-s 0 0"]
MCU_VERSION_FAILED = MCU_FAILED + MODE_FAILED["-m 16 0"]
OVERLONG_FAILED = errors("msgrcv len failed(-1)!7:Argument list too long")
UNFLUSHED = [(DEBUG, "Reflush Receive Msqg (7): Argument list too long")]


@pytest.mark.parametrize("arguments, answers, requests, output", [
    ("-s 0 0", [VERSION], ["AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55"], VERSION_TEXT),
    ("-s 0 9", [VERSION], ["AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55"], VERSION_TEXT),
    ("-s 1 0", [camera("90 50 01 02 FF")], ["AA AA 01 0B AA 02 06 81 09 04 24 72 FF 2B 55"],
     "[GetSnrMode] PAL, Stop Digital Output\n"),
    # The stop byte of the second request is followed by the tail of the longer first request.
    ("-s 2 8", [ACK, camera("90 50 00 08 FF")],
     ["AA AA 01 0D AA 02 08 81 01 04 24 72 00 08 FF 29 55",
      "AA AA 02 0B AA 02 06 81 09 04 24 72 FF 2B 55 29 55"], "[SetSnrMode] 1080p 25fps\n"),
    # The mode is read back a second time if it differs.
    ("-s 2 18", [ACK, camera("90 50 00 08 FF"), camera("90 50 01 02 FF")],
     ["AA AA 01 0D AA 02 08 81 01 04 24 72 01 02 FF 2E 55",
      "AA AA 02 0B AA 02 06 81 09 04 24 72 FF 2B 55 2E 55",
      "AA AA 03 0B AA 02 06 81 09 04 24 72 FF 2B 55 2E 55"], "[SetSnrMode] PAL, Stop Digital Output\n"),
    ("-m 16 0", [mcu(0x10, "1F")], ["AA AA 01 06 AA 10 01 01 44 55"], "Version = 0x1f\n"),
    ("-m 17 0", [mcu(0x11, "00 00 FA 00 01 2C 00 10")], ["AA AA 01 06 AA 11 01 00 44 55"],
     "Pan = 64000, Tilt = 300, Zoom = 16\n"),
    ("-m 17 257", [mcu(0x11, "FF FF FF FE FF FF FF FE")], ["AA AA 01 06 AA 11 01 01 43 55"],
     "Pan = -2, Tilt = 65535, Zoom = 65534\n"),
    ("-m 12 0", [mcu(0x0C, "10")], ["AA AA 01 06 AA 0C 01 00 49 55"], ""),
    ("-m 12 1", [mcu(0x0C, "10")], ["AA AA 01 06 AA 0C 01 01 48 55"], ""),
    ("-m 12 258", [mcu(0x0C, "10")], ["AA AA 01 06 AA 0C 01 02 47 55"], ""),
])
def test_each_action_on_the_wire(tool, arguments, answers, requests, output):
    daemon = Daemon(*answers)
    run = tool(*arguments.split())
    assert run.action() == []
    assert run.output == output
    assert daemon.requests == [body(request) for request in requests]


@pytest.mark.parametrize("arguments, answers, lines", [
    ("-s 1 0", [camera("90 50 01 03 FF")], ["SnrQM2150_SnrMode2Str fail!\n"]),
    ("-s 2 19", [ACK, camera("90 50 01 03 FF")], ["SnrQM2150_SnrMode2Str fail!\n"]),
    ("-s 2 8", [frame(0x82, b"\x40")], ["QM2150_SetRegisterValue failed!", "QM2150_SetSnrMode fail!\n"]),
    ("-m 12 1", [mcu(0x0C, "50")], ["MCU_LensPowerControl fail!\n"]),
    ("-m 17 0", [mcu(0x11, "00 00 FA 00 01 2C 00")], ["MCU_GetPTZ fail!\n"]),
])
def test_replies_that_an_action_rejects(tool, arguments, answers, lines):
    Daemon(*answers)
    run = tool(*arguments.split())
    assert run.action() == errors(*lines)
    assert run.output == ""


def test_a_rejected_mode_is_logged_and_still_printed(tool):
    daemon = Daemon(ACK, camera("90 50 00 06 FF"), camera("90 50 00 06 FF"))
    run = tool("-s", "2", "8")
    assert run.action() == errors("QM2150_SetSnrMode bRegValue != bReadRegValue failed!")
    assert run.output == "[SetSnrMode] 1080p 25fps\n"
    assert len(daemon.requests) == 3


@pytest.mark.parametrize("content", [b"\x00", b"\xff"])
@pytest.mark.parametrize("arguments, lines", [
    ("-s 0 0", ["QM2150_CheckZR4410Packet failed!"]),
    ("-m 16 0", ["ZR4410_PACKET_HEADER failed!", "MCU_CheckZR4410Packet failed!"]),
])
def test_a_message_that_is_not_a_relay_message(tool, arguments, lines, content):
    Daemon(Raw(content * 36))
    run = tool(*arguments.split())
    assert run.action() == errors(*lines) + (VERSION_FAILED if arguments == "-s 0 0" else MCU_VERSION_FAILED)
    assert run.output == ""


def test_a_reply_of_any_message_type_is_accepted(tool):
    Daemon(Raw(relay(1, VERSION), type=0x7FFFFFFF))
    run = tool("-s", "0", "0")
    assert run.action() == []
    assert run.output == VERSION_TEXT


def test_stale_replies_are_discarded_before_the_request(tool):
    daemon = Daemon(VERSION)
    for kind in range(1, 6):
        daemon.send(relay(1, mcu(0x10, "FF")), kind)
    daemon.send(b"", 7)
    daemon.send(b"short", 8)
    run = tool("-s", "0", "0")
    assert run.action() == []
    assert run.output == VERSION_TEXT


def test_after_a_wrong_reply_no_other_is_read(tool):
    daemon = Daemon([Raw(relay(9, VERSION)), VERSION])
    run = tool("-s", "0", "0")
    assert run.action() == errors("SeqID failed!", "QM2150_CheckZR4410Packet failed!") + VERSION_FAILED
    assert daemon.replies_queue.current_messages == 1


@pytest.mark.parametrize("length", [0, 1, 35])
def test_a_short_reply(tool, length):
    Daemon(Raw(relay(1, VERSION)[:length]))
    first, *rest = tool("-s", "0", "0").action()
    # errno is left over from an earlier call.
    assert first[0] == ERROR and re.fullmatch(rf"msgrcv len failed\({length}\)!\d+:.+", first[1])
    assert rest == RECEIVE_FAILED + VERSION_FAILED


@pytest.mark.parametrize("length", [37, 40, 8000])
def test_a_long_reply_stays_in_the_queue(tool, length):
    daemon = Daemon(Raw(bytes(length)))
    run = tool("-s", "0", "0")
    assert run.action() == OVERLONG_FAILED + RECEIVE_FAILED + VERSION_FAILED
    assert daemon.replies_queue.current_messages == 1


def test_a_long_message_blocks_every_reply_until_it_is_removed(tool):
    daemon = Daemon(VERSION, mcu(0x10, "1F"), mcu(0x10, "1F"))
    daemon.send(relay(1, VERSION))  # discarded
    daemon.send(OVERLONG)
    run = tool("-s", "0", "0")
    assert run.action() == UNFLUSHED + OVERLONG_FAILED + RECEIVE_FAILED + VERSION_FAILED
    run = tool("-m", "16", "0")
    assert run.action() == UNFLUSHED + OVERLONG_FAILED + RECEIVE_FAILED + MCU_VERSION_FAILED
    # Both requests were sent, and both answers are in the queue behind the long message.
    assert daemon.requests == [GET_VERSION, MCU_VERSION]
    assert daemon.replies_queue.current_messages == 3
    assert daemon.replies_queue.receive(block=False)[0] == OVERLONG

    run = tool("-m", "16", "0")
    assert run.action() == []
    assert run.output == "Version = 0x1f\n"


@pytest.mark.parametrize("arguments, lines", [
    ("-s 0 0", errors("ZR4410_MsgQ_Receive timeout!") + VERSION_FAILED),
    ("-m 16 0", RECEIVE_FAILED + MCU_VERSION_FAILED),
])
def test_a_time_out_takes_a_little_over_two_seconds(tool, arguments, lines):
    run = tool(*arguments.split())
    assert run.action() == lines
    assert 2000 < run.milliseconds < at_most(3) * 1000


def test_a_time_out_with_debug(tool):
    run = tool("-s", "0", "0", "-g")
    *empty, timeout = run.action()[2:-3]
    assert timeout == (ERROR, "msgrcv timeout!")
    assert 10 < len(empty) <= 41
    assert empty == [(INFO, "msgrcv len = 0\n")] * len(empty)


def test_a_full_request_queue_fails_at_once(tool):
    requests = open_queue("b")
    with pytest.raises(sysv_ipc.BusyError):
        while True:
            requests.send(bytes(36), block=False)
    waiting = requests.current_messages
    run = tool("-s", "0", "0")
    assert run.action() == errors("msgsnd failed!", "ZR4410_MsgQ_Send failed!") + VERSION_FAILED
    assert run.milliseconds < at_most(1) * 1000
    assert requests.current_messages == waiting

    run = tool("-m", "16", "0", "-g")
    assert run.action()[2:] == errors("msgsnd failed!", "ZR4410_MsgQ_Send failed!") + MCU_VERSION_FAILED
    assert run.output == ""


def test_the_request_stays_in_the_queue_for_a_later_daemon(tool):
    run = tool("-m", "12", "1")
    assert run.action() == RECEIVE_FAILED + MCU_FAILED + MODE_FAILED["-m 12 1"]
    waiting = {queue.key: (queue.messages, queue.bytes) for queue in all_queues()}
    assert waiting == {ftok("b"): (1, 36), ftok("a"): (0, 0)}


def test_get_ptz_dumps_its_data_with_debug(tool):
    Daemon(mcu(0x11, "00 00 FA 00 01 2C 00 10"))
    run = tool("-m", "17", "0", "-g")
    assert run.output.endswith("""\
[testZR4410] MCU_GetPTZ:
(8): 
00 00 FA 00 01 2C 00 10 
Pan = 64000, Tilt = 300, Zoom = 16
""")


def test_the_read_loop_accepts_any_message(start):
    daemon = Daemon()
    run = start("-r", "-g")
    run.wait_for(INFO, "Start main loop.")
    daemon.send(bytes(range(36)), 0x11111111)
    daemon.send(b"\xff" * 36, 1)
    daemon.send(b"short", 1)
    run.wait_for(*LOOP_FAILED)
    run.process.terminate()
    run.finish()
    assert "".join(run.output.splitlines(True)[:5]) == """\
[testZR4410] client msgrcv:
(40): 
11 11 11 11 00 01 02 03 04 05 06 07 08 09 0A 0B 
0C 0D 0E 0F 10 11 12 13 14 15 16 17 18 19 1A 1B 
1C 1D 1E 1F 20 21 22 23 
"""
    lines = run.action()
    short = next(text for level, text in lines if text.startswith("msgrcv len failed"))
    assert re.fullmatch(r"msgrcv len failed\(5\)!\d+:.+", short)
    assert lines[2] == (INFO, "Start main loop.")
    assert lines[-1] == (INFO, "Finish main loop.")
    assert daemon.requests == []


def test_the_read_loop_without_messages_logs_an_error_every_two_seconds(start):
    run = start("-r")
    run.wait_for(*LOOP_FAILED, count=2)
    run.process.terminate()
    lines = run.finish().action()
    assert lines == [(INFO, "Start main loop."), LOOP_FAILED,
                     LOOP_FAILED, (DEBUG, "Catch SIGTERM!"), (INFO, "Finish main loop.")]
    assert run.milliseconds > 4000


def test_what_the_read_loop_has_printed_is_not_lost_if_it_is_killed(start):
    daemon = Daemon()
    run = start("-r", "-g")
    daemon.send(bytes(36))
    daemon.send(bytes(5))
    run.wait_for(*LOOP_FAILED)
    run.process.kill()
    output, _ = run.process.communicate()
    assert output.startswith(b"[testZR4410] client msgrcv:\n(40): \n") and output.count(b"\n") == 5
