import os

import pytest

import device


def pytest_configure():
    # They write settings, take /dev/log and remove message queues: only in a sandbox are these the tests' own.
    if "ZR4410_SANDBOX" not in os.environ:
        pytest.exit("these tests run inside script/sandbox only", returncode=2)


@pytest.fixture(scope="session")
def syslog():
    return device.Syslog()


@pytest.fixture(autouse=True)
def fresh_device(syslog):
    """Every test finds empty settings, no queues and no log lines."""
    device.lay_settings()
    syslog.datagrams.clear()
    yield
    device.remove_all_queues()


@pytest.fixture
def start(syslog):
    """Starts the tool; whatever still runs at the end of the test is killed."""
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
    """Runs the tool to its end."""
    return lambda *arguments, **options: start(*arguments, **options).finish()


@pytest.fixture
def simulator():
    """Starts simZR4410, and ends it with the test."""
    running = []

    def start_simulator(*arguments):
        running.append(device.Simulator(*arguments))
        return running[-1]

    yield start_simulator
    for simulator in running:
        if simulator.process.poll() is None:
            simulator.stop()
