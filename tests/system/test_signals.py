"""Signals to the real program: SIGINT and SIGTERM stop it wherever it waits, SIGUSR1 and SIGUSR2 are only logged."""

import os
import random
import re
import signal
import statistics
import time
from pathlib import Path

import pytest

from device import CONF_IMG, DEBUG, INFO, LOOP_FAILED, MODE_FAILED, TIME_LIMIT, at_most, errors, open_queue

CATCH_LINES = {signal.SIGINT: (DEBUG, "Catch SIGINT!"), signal.SIGTERM: (DEBUG, "Catch SIGTERM!")}


def waiting_for_a_reply(start, *arguments):
    """Starts a run and returns it once it has sent its request, to which there is no reply."""
    open_queue("a")
    requests = open_queue("b")
    waiting = requests.current_messages
    run = start(*arguments)
    while requests.current_messages == waiting:
        assert run.process.poll() is None
        time.sleep(0.002)
    return run


def in_the_read_loop(start, *arguments):
    run = start("-r", *arguments)
    run.wait_for(INFO, "Start main loop.")
    return run


@pytest.mark.parametrize("number", CATCH_LINES)
@pytest.mark.parametrize("arguments, lines", MODE_FAILED.items(), ids=MODE_FAILED)
def test_a_stop_signal_ends_the_wait_for_a_reply(start, number, arguments, lines):
    run = waiting_for_a_reply(start, *arguments.split())
    run.signal(number)
    assert run.finish().action() == [CATCH_LINES[number]] + lines
    assert run.output == ""


@pytest.mark.parametrize("number", CATCH_LINES)
def test_a_stop_signal_ends_the_read_loop(start, number):
    run = in_the_read_loop(start)
    run.signal(number)
    assert run.finish().action() == [(INFO, "Start main loop."), CATCH_LINES[number], (INFO, "Finish main loop.")]


@pytest.mark.parametrize("wait, arguments", [(waiting_for_a_reply, ["-s", "0", "0"]), (in_the_read_loop, [])])
def test_a_stop_signal_ends_a_run_within_100_ms(start, wait, arguments):
    # The median, because other processes on this machine may delay a run.
    seconds = []
    for number in [signal.SIGINT, signal.SIGTERM] * 4 + [signal.SIGINT]:
        run = wait(start, *arguments)
        run.signal(number)
        seconds.append(run.seconds_to_end())
        assert run.finish().body()
    assert statistics.median(seconds) < at_most(0.100), seconds


def test_sigusr1_and_sigusr2_are_logged_and_stop_nothing(start):
    run = in_the_read_loop(start)
    for count in (1, 2):
        for number, line in [(signal.SIGUSR1, "Catch SIGUSR1!"), (signal.SIGUSR2, "Catch SIGUSR2!")]:
            run.signal(number)
            run.wait_for(DEBUG, line, count=count)
    # It is still polling: after two seconds without a message it logs an error.
    run.wait_for(*LOOP_FAILED)
    run.signal(signal.SIGTERM)
    assert run.finish().action() == [
        (INFO, "Start main loop."), (DEBUG, "Catch SIGUSR1!"), (DEBUG, "Catch SIGUSR2!"), (DEBUG, "Catch SIGUSR1!"),
        (DEBUG, "Catch SIGUSR2!"), LOOP_FAILED, (DEBUG, "Catch SIGTERM!"),
        (INFO, "Finish main loop.")]


def test_a_signal_that_is_not_caught_ends_the_run(start):
    run = in_the_read_loop(start)
    run.signal(signal.SIGHUP)
    assert run.finish().status == -signal.SIGHUP


def interrupted_in_the_settings(run, number):
    """Sends the signal repeatedly until the run, which waits for its settings, ends.

    Returns the log lines of its action, without those of the signal.
    """
    end = time.monotonic() + TIME_LIMIT
    while run.process.poll() is None and time.monotonic() < end:
        # One signal is enough if the run is already waiting. If it has only just installed its handlers, it needs
        # another.
        if has_its_handlers(run.pid):
            run.signal(number)
        time.sleep(0.02)
    lines = run.finish().body()
    caught = CATCH_LINES[number]
    assert lines[0] == caught
    *lines, delta = [line for line in lines if line != caught]  # in a slow run, later signals are caught too
    assert delta[1].startswith("Delta Time (ms) : ")
    return lines


def has_its_handlers(pid):
    """Returns whether the tool already ignores SIGPIPE, which it does after installing its handlers."""
    try:
        ignored = re.search(r"^SigIgn:\t(\w+)$", Path(f"/proc/{pid}/status").read_text(), re.MULTILINE)[1]
    except (FileNotFoundError, ProcessLookupError, TypeError):
        return False  # the tool has ended
    return int(ignored, 16) >> signal.SIGPIPE - 1 & 1 == 1


@pytest.fixture
def settings_pipe():
    """A named pipe in place of the settings file."""
    CONF_IMG.unlink()
    os.mkfifo(CONF_IMG)
    yield CONF_IMG
    CONF_IMG.unlink()


@pytest.mark.parametrize("number", CATCH_LINES)
def test_a_stop_signal_ends_the_wait_for_settings_that_nobody_writes(start, settings_pipe, number):
    run = start("-s", "1", "1")
    assert interrupted_in_the_settings(run, number) == errors(
        "can not open sysconf file /sysconf/conf.img.\n", "sysconf_fget failed!\n")
    assert run.output.startswith("0x00 = unknown\n")


@pytest.mark.parametrize("number", CATCH_LINES)
def test_a_stop_signal_ends_the_wait_for_the_rest_of_the_settings(start, settings_pipe, number):
    writer = os.open(settings_pipe, os.O_RDWR)  # so that the tool can open the pipe and waits for the end of the line
    os.write(writer, b"EXT_DEBUG=")
    run = start("-s", "1", "1")
    assert interrupted_in_the_settings(run, number) == []
    os.close(writer)


@pytest.mark.parametrize("arguments", [["-g"], []])
def test_ten_thousand_signals_do_not_block_the_read_loop(start, arguments):
    # A handler that logs while it interrupts syslog would wait for syslog's lock forever.
    run = in_the_read_loop(start, *arguments)
    for burst in range(1, 51):
        for _ in range(100):
            run.signal(signal.SIGUSR1)
            run.signal(signal.SIGUSR2)
            time.sleep(random.uniform(0, 0.0001))  # signals that arrive while the same one is pending merge
        # At least one signal of each burst is caught, no matter how many merge.
        run.wait_for(DEBUG, "Catch SIGUSR1!", count=burst)
        run.wait_for(DEBUG, "Catch SIGUSR2!", count=burst)
    run.signal(signal.SIGTERM)
    run.seconds_to_end()
    lines = run.finish().action()
    assert lines.count((DEBUG, "Catch SIGUSR1!")) <= 5000
    assert lines.count((DEBUG, "Catch SIGUSR2!")) <= 5000
    assert lines.count((DEBUG, "Catch SIGTERM!")) == 1
    assert lines[-1] == (INFO, "Finish main loop.")
