"""Standard output that nobody reads: the run ends normally, with its complete log."""

import fcntl
import signal
import time

import pytest

from device import ACK, INFO, TIME_LIMIT, Daemon, camera, open_queue, relay

MODE_8 = camera("90 50 00 08 FF")
ANY_MESSAGE = relay(1, ACK)
OUTPUTS = {
    "a reader that leaves after a line": ("bash", "-c", 'exec "$@" > >(head -n 1 >/dev/null)', "bash"),
    "closed": ("sh", "-c", 'exec "$@" >&-', "sh"),
    "a full disk": ("sh", "-c", 'exec "$@" >/dev/full', "sh"),
}


@pytest.fixture(params=OUTPUTS.values(), ids=OUTPUTS.keys())
def nowhere(request):
    return request.param


def test_a_report_is_logged_completely(tool, simulator, nowhere):
    simulator("--fast")
    lines = tool("-y", "1", "-g", prefix=nowhere).action()
    assert [text.split("]")[0] for level, text in lines if level == INFO and text.startswith("[")] == [
        "[High Sensitivity", "[AE", "[ExpComp", "[AWB"]


def test_a_setting_is_read_back(tool, nowhere):
    daemon = Daemon(ACK, MODE_8)
    tool("-s", "2", "8", "-g", prefix=nowhere).action()
    assert [request[2] for request in daemon.requests] == [1, 2]


def test_the_usage_ends_with_status_0(tool, nowhere):
    run = tool(prefix=nowhere)
    assert (run.status, run.errors) == (0, "")


def test_a_stop_signal_ends_a_run_whose_reader_stalls(start):
    replies = open_queue("a")
    run = start("-r", "-g")
    fcntl.fcntl(run.process.stdout, fcntl.F_SETPIPE_SZ, 4096)  # unread, it holds about 25 dumps
    for _ in range(60):
        replies.send(ANY_MESSAGE, type=1)
    deadline = time.monotonic() + TIME_LIMIT
    seen, since = 60, time.monotonic()
    # Wait until the tool has read no message for ten times its poll interval.
    while seen == 60 or time.monotonic() < since + 0.5:
        assert time.monotonic() < deadline
        if replies.current_messages != seen:
            seen, since = replies.current_messages, time.monotonic()
        time.sleep(0.01)
    assert seen > 0
    # Each signal interrupts one write, and a dump takes several.
    while run.process.poll() is None and time.monotonic() < deadline:
        run.signal(signal.SIGTERM)
        time.sleep(0.02)
    assert run.finish().body()
