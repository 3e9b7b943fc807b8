"""The fixtures of the system tests: an empty device, syslog, and programs that end with the test."""

import os

import pytest

import device


def pytest_configure():
    # The tests write settings, take over /dev/log and remove message queues, so they must own all of these.
    if "ZR4410_SANDBOX" not in os.environ:
        pytest.exit("these tests run only inside script/sandbox; start them with ctest", returncode=2)


@pytest.fixture(scope="session")
def syslog():
    return device.Syslog()


@pytest.fixture(autouse=True)
def fresh_device(syslog):
    """Gives every test default settings, no queues and no log lines."""
    device.write_settings()
    syslog.datagrams.clear()
    yield
    device.remove_all_queues()


@pytest.fixture
def start(syslog):
    """A function that starts the tool; runs that have not ended are killed at the end of the test."""
    runs = []

    def start_tool(*arguments, prefix=()):
        runs.append(device.Run(syslog, arguments, prefix))
        return runs[-1]

    yield start_tool
    for run in runs:
        if run.process.poll() is None:
            run.process.kill()
            run.process.wait()
        run.process.stdout.close()
        run.process.stderr.close()


@pytest.fixture
def tool(start):
    """A function that runs the tool to its end."""
    return lambda *arguments, **options: start(*arguments, **options).finish()


@pytest.fixture
def simulator():
    """A function that starts simZR4410; it is stopped at the end of the test."""
    running = []

    def start_simulator(*arguments):
        running.append(device.Simulator(*arguments))
        return running[-1]

    yield start_simulator
    for simulator in running:
        if simulator.process.poll() is None:
            simulator.stop()
