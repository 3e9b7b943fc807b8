"""The control interface of simZR4410, while the tool uses the device."""

import os
import signal
import subprocess

import pytest

from control import EVENTS, HALF, WAIT, Client
from device import SIMULATOR, TIME_LIMIT

CONTROL = "/run/control-of-the-test"
POSITION = "Pan = {}, Tilt = 450, Zoom = 0\n"


@pytest.fixture
def control(simulator):
    simulator("--fast", "--control", CONTROL)
    return Client(CONTROL)


@pytest.fixture
def send():
    """A function that sends text and reads nothing; the connection ends with the test."""
    clients = []

    def send_text(text):
        clients.append(Client(CONTROL))
        return clients[-1].send_text(text)

    yield send_text
    for client in clients:
        client.close()


def ctl(*arguments):
    run = subprocess.run([*SIMULATOR, "ctl", "--control", CONTROL, *arguments], capture_output=True, text=True,
                         timeout=TIME_LIMIT)
    return run.returncode, run.stdout + run.stderr


def test_a_change_takes_effect_at_once(control, tool):
    assert tool("-m", "17", "0").output == POSITION.format(32000)
    assert control("PATCH", "/state", '{"mcu": {"pan": 64000}}')[0] == 200
    assert tool("-m", "17", "0").output == POSITION.format(64000)
    assert control("POST", "/scenario", "[mcu]\npan = 7\n")[0] == 200
    assert tool("-m", "17", "0").output == POSITION.format(7)


def test_a_scenario_leaves_the_options_as_they_are(simulator, tool):
    simulator("--fast", "--fault", "bad-checksum:nth=1", "--control", CONTROL)
    assert tool("-m", "17", "0").output == ""
    assert tool("-m", "17", "0").output == POSITION.format(32000)
    assert Client(CONTROL)("POST", "/scenario", "")[0] == 200
    assert tool("-m", "17", "0").output == ""


def test_a_fault_strikes_and_is_counted(control, tool):
    assert control("POST", "/faults", '{"kind": "bad-checksum", "nth": [1]}')[0] == 201
    assert tool("-m", "17", "0").output == ""
    assert control("GET", "/faults")[1]["faults"] == [
        {"id": 1, "fault": "bad-checksum:nth=1", "counted": 1, "struck": 1}]
    assert control("DELETE", "/faults")[0] == 200
    assert tool("-m", "17", "0").output == POSITION.format(32000)


def test_the_messages_are_those_of_the_tool(control, tool):
    tool("-m", "17", "0")
    status, listed = control("GET", "/messages")
    assert (status, listed["dropped"]) == (200, 0)
    assert [(message["number"], message["direction"], message["exchange"]) for message in listed["messages"]] == [
        (1, "request", 1), (2, "reply", 1)]
    assert control("GET", "/wait?since=0&match=AA91")[1] == listed["messages"][1]


def test_curl_is_a_client(control):
    if subprocess.run(["which", "curl"], capture_output=True).returncode != 0:
        pytest.skip("curl is not installed")
    run = subprocess.run(["curl", "-sS", "--unix-socket", CONTROL, "http://device/faults", "-d", '{"kind": "late"}'],
                         capture_output=True, text=True, timeout=TIME_LIMIT)
    assert (run.stdout, run.stderr) == ('{"id":1,"fault":"late:ms=2500"}\n', "")


def test_ctl_is_a_client(control, tool):
    assert ctl("set", "pan=64000") == (0, "")
    assert tool("-m", "17", "0").output == POSITION.format(64000)
    assert ctl("get", "pan") == (0, "64000\n")
    assert ctl("set", "pan=x")[0] == 1
    assert ctl("wait", "--since", "0", "--match", "AA91")[0] == 0
    assert ctl("wait", "--timeout", "1") == (1, "simZR4410: no such message within 1 ms\n")


def test_ctl_without_a_simulator():
    assert ctl("get") == (2, f"simZR4410: {CONTROL}: there is no simulator\n")
    environment = {name: value for name, value in os.environ.items() if name != "ZR4410_CONTROL"}
    run = subprocess.run([*SIMULATOR, "ctl", "get"], capture_output=True, text=True, timeout=TIME_LIMIT,
                         env=environment)
    assert run.returncode not in (0, 1)
    assert "--control" in run.stderr


def test_clients_that_stall_disturb_nobody(control, tool, send):
    for text in [EVENTS, WAIT, HALF] * 3:
        send(text)
    for _ in range(20):
        assert tool("-m", "17", "0").output == POSITION.format(32000)
    assert control("GET", "/messages")[1]["last"] == 40


def test_the_simulator_ends_with_clients(simulator, send):
    running = simulator("--fast", "--control", CONTROL)
    send(HALF)
    send(WAIT)
    assert send(EVENTS).recv(12) == b"HTTP/1.1 200"
    assert "simZR4410: control on " + CONTROL in running.stop()
    assert not os.path.exists(CONTROL)


def test_the_socket_of_a_killed_simulator_is_taken_over(simulator, tool):
    killed = simulator("--fast", "--control", CONTROL)
    killed.process.send_signal(signal.SIGKILL)
    killed.process.communicate()
    assert os.path.exists(CONTROL)
    simulator("--fast", "--control", CONTROL)
    assert Client(CONTROL)("GET", "/")[0] == 200


def test_a_second_simulator_is_refused(control, tmp_path):
    (tmp_path / "key").touch()
    run = subprocess.run([*SIMULATOR, "--control", CONTROL, "--key-path", tmp_path / "key", "--remove-queues"],
                         capture_output=True, text=True, timeout=TIME_LIMIT)
    assert run.returncode == 1
    assert run.stderr == f"simZR4410: --control {CONTROL}: another process listens there\n"
    assert control("GET", "/")[0] == 200


def test_without_a_simulated_device_only_the_messages_are_there(simulator, tool, tmp_path):
    recorded = simulator("--fast", "--capture", str(tmp_path / "capture"))
    tool("-m", "17", "0")
    recorded.stop()
    simulator("--replay", str(tmp_path / "capture"), "--fast", "--control", CONTROL)
    assert tool("-m", "17", "0").output == POSITION.format(32000)
    assert Client(CONTROL)("GET", "/messages")[1]["last"] == 2
    status, answer = Client(CONTROL)("GET", "/state")
    assert (status, answer) == (409, {"error": "there is no simulated device, only a capture or hardware"})
