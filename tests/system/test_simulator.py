"""The tool and simZR4410 together, over the real queues."""

import signal

import pytest

from device import CAMERA_FAILED, ERROR, INFO, MODE_FAILED, all_queues, errors, ftok


@pytest.mark.parametrize("arguments, output", [
    ("-s 0 0", "[Model] 0x0720, [ROM Version] 0x0103\n"),
    ("-s 1 0", "[GetSnrMode] 1080p 30fps\n"),
    ("-s 2 8", "[SetSnrMode] 1080p 25fps\n"),
    ("-m 16 0", "Version = 0x21\n"),
    ("-m 17 0", "Pan = 32000, Tilt = 450, Zoom = 0\n"),
    ("-m 12 1", ""),
    ("-i 04 00", "Inquiry Packet: 90 50 02 ff\n"),
    ("-i 04 2472", "Inquiry Packet: 90 50 00 06 ff\n"),
    ("-i 7E 7E00", "Inquiry Packet: 90 50 00 00 00 00 0d 00 08 00 00 00 00 05 00 ff\n"),
    ("-y 0", "(13): \n00 00 00 00 0D 00 08 00 00 00 00 05 00 \n"),
    ("-y 1", "(13): \n0C 08 0B 04 00 08 00 00 06 0E 01 11 07 \n"),
    ("-y 2", "(13): \n01 00 00 00 00 00 01 02 03 04 00 00 00 \n"),
    ("-y 3", "(13): \n00 00 00 05 00 05 00 00 00 20 01 03 1B \n"),
    ("-y 4", "(13): \n00 01 05 00 07 00 00 00 00 00 00 00 00 \n"),
])
def test_each_action_succeeds(simulator, tool, arguments, output):
    simulator()
    run = tool(*arguments.split())
    assert [text for level, text in run.action() if "fail" in text] == []
    assert run.output == output


def test_a_sensor_mode_that_is_set_is_read_back(simulator, tool):
    simulator("--fast")
    for mode, name in [("12", "720p 50fps"), ("18", "PAL, Stop Digital Output"), ("0", "unknown")]:
        assert tool("-s", "2", mode).output == f"[SetSnrMode] {name}\n"
        run = tool("-s", "1", "0")
        assert run.action() == []
        assert run.output == f"[GetSnrMode] {name}\n"


def test_a_camera_without_power_does_not_answer_until_it_has_power(simulator, tool):
    simulator("--wake-up", "0")
    assert tool("-m", "12", "0").action() == []
    run = tool("-s", "0", "0")
    assert run.action() == errors("ZR4410_MsgQ_Receive timeout!") + CAMERA_FAILED + MODE_FAILED["-s 0 0"]
    # The MCU always has power.
    assert tool("-m", "16", "0").output == "Version = 0x21\n"
    assert tool("-m", "12", "1").action() == []
    assert tool("-s", "0", "0").output == "[Model] 0x0720, [ROM Version] 0x0103\n"


def test_a_setting_shows_in_the_report(simulator, tool):
    simulator("--fast")
    before, after = "[AE] Fully Auto, 1/60s, x1.00(0.0dB), F2.80\n", "[AE] Manual, 1/60s, x1.00(0.0dB), F2.80\n"
    assert (INFO, before) in tool("-y", "1").action()
    assert tool("-c", "3903").action() == [(INFO, "Send Command OK!\n")]
    assert (INFO, after) in tool("-y", "1").action()


def test_a_raw_command_switches_the_power(simulator, tool):
    simulator("--fast", "--wake-up", "0")
    for data, state in [("0003", "03"), ("0002", "02")]:
        assert tool("-c", data).action() == [(INFO, "Send Command OK!\n")]
        assert tool("-i", "04", "00").output == f"Inquiry Packet: 90 50 {state} ff\n"


def test_an_unknown_inquiry_is_a_syntax_error(simulator, tool):
    simulator("--fast")
    run = tool("-i", "", "00")
    assert run.action() == (errors("VISCA RESP: Syntax error.\n", "QM2150_ChecRespVisca fail!\n") +
                            MODE_FAILED["-i 04 00"])


def test_unsolicited_reports_reach_the_read_loop(simulator, tool, start):
    simulator("--report", "100")
    assert tool("-m", "17", "1").action() == []
    run = start("-r", "-g")
    run.wait_for(INFO, "Start main loop.")
    dump = ""
    while dump.count("client msgrcv") < 3:
        line = run.process.stdout.readline().decode()
        assert line
        dump += line
    run.signal(signal.SIGTERM)
    assert [line for line in run.finish().action() if line[0] == ERROR] == []
    # The frame of a reply to Get PTZ.
    assert dump.count("AA 91 08 00 00 7D 00") >= 2


def test_a_simulator_that_starts_first_opens_the_queues_to_all(simulator, tool):
    simulator()
    assert {queue.key: queue.permissions for queue in all_queues()} == {ftok("b"): "666", ftok("a"): "666"}
    tool("-m", "16", "0")
    assert {queue.key: (queue.permissions, queue.messages) for queue in all_queues()} == {
        ftok("b"): ("666", 0), ftok("a"): ("666", 0)}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_the_simulator_ends_cleanly(simulator, tool, number):
    device = simulator()
    assert tool("-m", "16", "0").output == "Version = 0x21\n"
    device.process.send_signal(number)
    output, _ = device.process.communicate(timeout=20)
    assert device.process.returncode == 0
    lines = [line for line in output.decode().splitlines() if "#1" in line]
    assert ["AA 10 01 01 44 55" in line for line in lines] == [True, False]
    assert ["AA 90 01 21 A4 55" in line for line in lines] == [False, True]
