"""Other processes on the same queues: a second client, a daemon that restarts, and queues that are removed or belong to
another user."""

import os
import re
import signal
import subprocess

import pytest
import sysv_ipc

from device import (ACK, CAMERA_FAILED, DEBUG, ERROR, FINISH, INFO, LOOP_FAILED, MCU_FAILED, MODE_FAILED,
                    READ_BACK_FAILED, RECEIVE_FAILED, START, TOOL, UNDER_PROOT, Daemon, all_queues, at_most, body,
                    camera, errors, ftok, mcu, open_queue, relay, until)

VERSION = camera("90 50 00 01 05 06 01 23 02 FF")
VERSION_TEXT = "[Model] 0x0506, [ROM Version] 0x0123\n"
OTHER_VERSION = camera("90 50 00 01 07 08 04 56 02 FF")
OTHER_VERSION_TEXT = "[Model] 0x0708, [ROM Version] 0x0456\n"

VERSION_FAILED = CAMERA_FAILED + MODE_FAILED["-s 0 0"]
MCU_VERSION_FAILED = MCU_FAILED + MODE_FAILED["-m 16 0"]
TIMED_OUT = errors("ZR4410_MsgQ_Receive timeout!")
SEND_FAILED = errors("msgsnd failed!", "ZR4410_MsgQ_Send failed!")

# The line when the queue has been removed: the second text if it is removed during the call.
RECEIVE_GONE = r"msgrcv len failed\(-1\)!(22:Invalid argument|43:Identifier removed)"


@pytest.fixture
def queues():
    """Opens both queues without a daemon: the test acts as the daemon."""
    return open_queue("b"), open_queue("a")


@pytest.fixture
def waiting(start, queues):
    """A function that starts the tool and stops it with SIGSTOP after its request, so that the test decides which
    client reads when."""
    if UNDER_PROOT:
        pytest.skip("under proot SIGSTOP does not stop a process")
    requests, _ = queues

    def start_and_hold(*arguments):
        run = start(*arguments)
        content, sender = requests.receive()
        assert sender == run.pid
        run.signal(signal.SIGSTOP)
        run.request = content
        return run

    return start_and_hold


def resume(run):
    run.signal(signal.SIGCONT)
    return run.finish()


# --- Two clients at once: only the sequence id distinguishes their replies, and both begin with 1 ---


def test_two_clients_can_mistake_each_others_reply_for_their_own(waiting, queues):
    _, replies = queues
    one, two = waiting("-s", "0", "0"), waiting("-s", "0", "0")
    assert one.request == two.request == body("AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55")
    replies.send(relay(1, VERSION), type=one.pid)
    replies.send(relay(1, OTHER_VERSION), type=two.pid)
    two = resume(two)  # takes the first reply, which is for the other client
    one = resume(one)
    assert (two.action(), two.output) == ([], VERSION_TEXT)
    assert (one.action(), one.output) == ([], OTHER_VERSION_TEXT)


def test_two_clients_with_different_requests_reject_each_others_reply(waiting, queues):
    _, replies = queues
    one, two = waiting("-s", "0", "0"), waiting("-m", "16", "0")
    replies.send(relay(1, VERSION), type=one.pid)
    replies.send(relay(1, mcu(0x10, "1F")), type=two.pid)
    two = resume(two)
    one = resume(one)
    assert two.action() == errors("UART1 RESP CMD Code failed!", "MCU_CheckUart1Resp failed!") + MCU_VERSION_FAILED
    assert one.action() == errors("Len > VISCA_PACKET_MAX_LEN", "QM2150_FillUart1Resp failed!") + VERSION_FAILED
    assert (one.output, two.output) == ("", "")


def test_a_client_with_a_later_sequence_id_rejects_anothers_reply(start, queues):
    requests, replies = queues
    one = start("-s", "2", "8")
    requests.receive()
    replies.send(relay(1, ACK), type=one.pid)
    second, _ = requests.receive()
    assert second[:4] == bytes([0xAA, 0xAA, 2, 11])
    replies.send(relay(1, VERSION), type=4711)  # a reply for another client
    one.finish()
    assert one.action() == (errors("SeqID failed!", "QM2150_CheckZR4410Packet failed!") + CAMERA_FAILED +
                            READ_BACK_FAILED)


def test_a_client_that_starts_discards_the_others_reply(waiting, start, queues):
    requests, replies = queues
    one = waiting("-s", "0", "0")
    replies.send(relay(1, VERSION), type=one.pid)
    two = start("-m", "16", "0")
    requests.receive()
    assert replies.current_messages == 0
    replies.send(relay(1, mcu(0x10, "1F")), type=two.pid)
    two.finish()
    assert (two.action(), two.output) == ([], "Version = 0x1f\n")
    one = resume(one)
    assert one.action() == TIMED_OUT + VERSION_FAILED
    assert one.milliseconds > 2000


def test_the_read_loop_takes_the_reply_that_another_waits_for(waiting, start, queues):
    _, replies = queues
    one = waiting("-s", "0", "0")
    loop = start("-r")
    loop.wait_for(INFO, "Start main loop.")
    replies.send(relay(1, VERSION), type=one.pid)
    until(lambda: replies.current_messages == 0)
    loop.signal(signal.SIGTERM)
    loop.finish()
    assert loop.action() == [(INFO, "Start main loop."), (DEBUG, "Catch SIGTERM!"), (INFO, "Finish main loop.")]
    one = resume(one)
    assert one.action() == TIMED_OUT + VERSION_FAILED


def test_many_clients_at_once_all_end(start, tool, simulator):
    """The clients take each other's replies. Each ends in time with its banner, and prints an answer or logs an error.
    """
    simulator("--fast", "--quiet")
    commands = ["-s 0 0", "-m 16 0", "-s 1 0", "-m 17 0", "-y 3", "-i 04 00", "-s 2 6", "-m 12 1"]
    runs = [start(*arguments.split()) for arguments in commands * 5]
    for run in runs:
        run.finish()
        action = run.action()
        # At most three time-outs, and time for a busy machine.
        assert run.milliseconds < at_most(3 * 2 + 4) * 1000
        answered = run.output or (INFO, "[NR] OFF\n") in action or run.process.args[-2:] == ["12", "1"]
        assert answered or any(level == ERROR for level, _ in action), run.process.args
    run = tool("-m", "16", "0")
    assert (run.action(), run.output) == ([], "Version = 0x21\n")


# --- The daemon restarts ---


def test_a_request_waits_for_the_daemon_to_come_back(start, simulator):
    simulator("--fast").stop()
    run = start("-s", "0", "0")
    until(lambda: any(queue.messages for queue in all_queues() if queue.key == ftok("b")))
    simulator("--fast")
    run.finish()
    assert (run.action(), run.output) == ([], "[Model] 0x0720, [ROM Version] 0x0103\n")


def test_a_daemon_that_dies_with_the_request_fails_only_that_run(start, tool, queues, simulator):
    requests, _ = queues
    run = start("-m", "16", "0")
    requests.receive()
    simulator("--fast")
    run.finish()
    assert run.action() == RECEIVE_FAILED + MCU_VERSION_FAILED
    assert 2000 < run.milliseconds < at_most(3.5) * 1000
    run = tool("-m", "16", "0")
    assert (run.action(), run.output) == ([], "Version = 0x21\n")


def test_a_daemon_that_recreates_the_queues_fails_only_that_run(waiting, tool, queues, simulator):
    run = waiting("-s", "0", "0")
    for queue in queues:
        queue.remove()
    simulator("--fast")
    run = resume(run)
    first, *rest = run.action()
    assert first[0] == ERROR and re.fullmatch(RECEIVE_GONE, first[1])
    assert rest == RECEIVE_FAILED + VERSION_FAILED
    run = tool("-s", "0", "0")
    assert (run.action(), run.output) == ([], "[Model] 0x0720, [ROM Version] 0x0103\n")


# --- Queues that are removed during a run ---


@pytest.mark.parametrize("arguments, failed", [
    (["-s", "0", "0"], VERSION_FAILED), (["-m", "16", "0"], MCU_VERSION_FAILED),
])
def test_queues_removed_while_a_reply_is_awaited(waiting, queues, arguments, failed):
    run = waiting(*arguments)
    for queue in queues:
        queue.remove()
    run = resume(run)
    first, *rest = run.action()
    assert first[0] == ERROR and re.fullmatch(RECEIVE_GONE, first[1])
    assert rest == RECEIVE_FAILED + failed
    assert run.milliseconds < at_most(1.5) * 1000
    assert all_queues() == []


def test_queues_removed_between_two_exchanges(start):
    """The second request finds no queue: the flush logs this and continues, and the send fails."""
    for _ in range(50):  # until a run loses its queues in the 50 ms before the mode is read back, and not later
        requests, replies = open_queue("b"), open_queue("a")
        run = start("-s", "2", "8")
        requests.receive()
        replies.send(relay(1, ACK), type=run.pid)
        until(lambda: replies.current_messages == 0)
        requests.remove()
        replies.remove()
        run.finish()
        (level, text), *rest = run.action()
        if level == DEBUG:
            break
        assert re.fullmatch(RECEIVE_GONE, text) or text == "msgsnd failed!"
    assert re.fullmatch(r"Reflush Receive Msqg \((22\): Invalid argument|43\): Identifier removed)", text)
    assert rest == SEND_FAILED + CAMERA_FAILED + READ_BACK_FAILED


def test_only_the_request_queue_removed(start, queues):
    requests, replies = queues
    run = start("-s", "2", "8")
    requests.receive()
    requests.remove()
    replies.send(relay(1, ACK), type=run.pid)
    run.finish()
    assert run.action() == SEND_FAILED + CAMERA_FAILED + READ_BACK_FAILED


def test_queues_removed_during_the_read_loop(start, tool, queues):
    """The read loop keeps polling the removed queue, and logs each failure, until it is stopped."""
    run = start("-r")
    run.wait_for(INFO, "Start main loop.")
    for queue in queues:
        queue.remove()
    run.wait_for(*LOOP_FAILED, count=3)
    Daemon()  # the read loop does not open the new queues
    run.wait_for(*LOOP_FAILED, count=6)
    run.signal(signal.SIGINT)
    assert run.seconds_to_end() < at_most(1)
    lines = [line for line in run.finish().action() if line[0] == ERROR]
    assert len(lines) >= 12 and lines[1::2] == [LOOP_FAILED] * (len(lines) // 2)
    assert all(re.fullmatch(RECEIVE_GONE, text) for _, text in lines[::2])
    assert run.log[-5] == (INFO, "Finish main loop.")
    assert tool("1").action() == []
    assert len(all_queues()) == 2


# --- Queues of another user ---

# Root may open any queue. Without its capabilities the queue's permissions apply to root as well.
WITHOUT_CAPABILITIES = ["setpriv", "--inh-caps=-all", "--bounding-set=-all"] if os.geteuid() == 0 else []


@pytest.mark.parametrize("closed, permissions, line", [
    ("b", 0o000, "msgget giMsgIdTx failed!"),
    ("b", 0o444, "msgget giMsgIdTx failed!"),
    ("b", 0o022, "msgget giMsgIdTx failed!"),
    ("a", 0o000, "msgget giMsgIdRx failed!"),
    ("a", 0o222, "msgget giMsgIdRx failed!"),
])
def test_a_queue_that_may_not_be_opened(tool, closed, permissions, line):
    other = "a" if closed == "b" else "b"
    open_queue(other)
    sysv_ipc.MessageQueue(ftok(closed), sysv_ipc.IPC_CREX, mode=permissions)
    for arguments in ["-s 0 0", "-m 16 0", "-r", "1"]:
        run = tool(*arguments.split(), prefix=WITHOUT_CAPABILITIES)
        assert run.body() == errors(line, "ZR4410_MsgQ_Open fail!\n")  # no action, no delta time
        assert run.output == ""


@pytest.mark.parametrize("permissions", [0o222, 0o666])
def test_queues_with_the_permission_that_is_needed_are_opened(tool, permissions):
    sysv_ipc.MessageQueue(ftok("b"), sysv_ipc.IPC_CREX, mode=permissions)
    sysv_ipc.MessageQueue(ftok("a"), sysv_ipc.IPC_CREX, mode=permissions ^ 0o666 or 0o444)
    assert tool("1", prefix=WITHOUT_CAPABILITIES).action() == []


NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]


def nobody_runs_the_tool():
    return os.geteuid() == 0 and subprocess.run([*NOBODY, *TOOL, "-h"], capture_output=True).returncode == 0


@pytest.mark.skipif(not nobody_runs_the_tool(), reason="needs root, and a tool that another user may read")
def test_a_queue_of_another_user(tool):
    os.chmod("/dev/log", 0o666)  # the permissions that a log daemon sets
    sysv_ipc.MessageQueue(ftok("b"), sysv_ipc.IPC_CREX, mode=0o600)  # belongs to root
    run = tool("-s", "0", "0", prefix=NOBODY)
    assert run.body() == errors("msgget giMsgIdTx failed!", "ZR4410_MsgQ_Open fail!\n")

    # The queues that the tool creates are open to every user, for sending and receiving as the tool does.
    sysv_ipc.MessageQueue(ftok("b")).remove()
    assert tool("1").action() == []
    assert {queue.key: queue.permissions for queue in all_queues()} == {ftok("b"): "222", ftok("a"): "444"}
    run = tool("-m", "12", "1", prefix=NOBODY)
    assert run.action() == RECEIVE_FAILED + MCU_FAILED + MODE_FAILED["-m 12 1"]
    assert run.log[:3] == START and run.log[-3:] == FINISH
