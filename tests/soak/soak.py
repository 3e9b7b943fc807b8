"""A long run of the simulated device while everything around it misbehaves. script/soak runs it inside the sandbox.

    soak.py REQUESTS

Sends the given number of requests over the queues. Faults strike at random, two clients keep the control interface
busy, and nobody reads the trace or one of the event streams. Fails if a reply is missing, wrong or duplicated without a
fault, or if the simulator's memory grows.
"""

import collections
import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

sys.path.append(str(Path(__file__).parents[1] / "system"))
from control import Client  # noqa: E402
from device import SIMULATOR, camera, frame, open_queue, relay, write_settings  # noqa: E402

BATCH = 64
GROWTH = 4096  # KiB by which memory may grow in the second half of the run
TIME_LIMIT = 60  # seconds; reached only if something hangs
CONTROL = "/run/control-of-the-soak"
READY = "/run/ready-for-the-soak"
VERSION = frame(0x10, b"\x01")  # the faults strike these requests
VERSION_REPLY = frame(0x90, b"\x21")
BARRIER = frame(0x02, bytes.fromhex("81 09 04 00 FF"))  # but not these
BARRIER_REPLY = camera("90 50 02 FF")
FAULTS = [{"kind": "no-reply", "chance": 0.01}, {"kind": "duplicate", "chance": 0.01},
          {"kind": "bad-checksum", "chance": 0.01}, {"kind": "late", "chance": 0.01, "ms": 3}]


class Checked(Client):
    """Takes and returns JSON, and fails if a request is refused."""

    def __call__(self, method, path, body=None):
        status, answer = super().__call__(method, path, body and json.dumps(body))
        assert status < 400, answer
        return answer


def be_busy():
    """A client that queries and changes the device, and adds and removes faults, until it is killed."""
    client = Checked(CONTROL)
    print("busy", flush=True)
    last = 0
    while True:
        client("GET", "/state")
        client("PATCH", "/state", {"camera": {"nr": last % 6}, "mcu": {"pan": last % 64000}})
        answer = client("GET", f"/messages?since={last}&match=FFFFFF")
        assert answer["last"] >= last
        last = answer["last"]
        fault = client("POST", "/faults", {"kind": "no-reply", "match": "EEEEEEEE"})["id"]
        client("GET", "/faults")
        client("DELETE", f"/faults/{fault}")


class Soak:
    def __init__(self, requests):
        self.requests = requests
        self.queue, self.replies = open_queue("b"), open_queue("a")
        self.got = collections.Counter()  # replies, by kind

    def receive(self):
        body, _ = self.replies.receive()
        content = body[4:4 + body[3]]
        assert body == relay(body[2], content), body.hex(" ")
        if content == VERSION_REPLY:
            self.got["good"] += 1
        elif content[:4] == VERSION_REPLY[:4] and content[5:] == VERSION_REPLY[5:]:
            self.got["bad-checksum"] += 1
        else:
            assert content == BARRIER_REPLY, body.hex(" ")
            self.got["barrier"] += 1

    def run(self, halfway):
        """Sends the requests in batches. A batch ends with the answer to a request that no fault strikes."""
        sent = barriers = 0
        while sent < self.requests:
            for number in range(min(BATCH, self.requests - sent)):
                self.queue.send(relay(number, VERSION), type=1)
                sent += 1
            barriers += 1
            self.queue.send(relay(BATCH, BARRIER), type=1)
            while self.got["barrier"] < barriers:
                self.receive()
            if sent >= self.requests // 2:
                halfway()
        return sent

    def finish(self, struck, sent):
        """Receives the late replies and compares the numbers."""
        expected = sent - struck["no-reply"] + struck["duplicate"]
        deadline = time.monotonic() + TIME_LIMIT
        while self.got["good"] + self.got["bad-checksum"] < expected and time.monotonic() < deadline:
            if self.replies.current_messages:
                self.receive()
            else:
                time.sleep(0.01)
        assert self.got["good"] == expected - struck["bad-checksum"], (self.got, struck, sent)
        assert self.got["bad-checksum"] == struck["bad-checksum"], (self.got, struck, sent)
        assert self.replies.current_messages == 0


def memory(process):
    """The resident memory of the process, in KiB."""
    return int(re.search(r"VmRSS:\s+(\d+)", Path(f"/proc/{process.pid}/status").read_text())[1])


def main(requests):
    write_settings()
    simulator = subprocess.Popen([*SIMULATOR, "--fast", "--control", CONTROL, "--ready-file", READY],
                                 stdout=subprocess.PIPE)  # never read
    while not os.path.exists(READY):
        assert simulator.poll() is None
        time.sleep(0.01)
    control = Checked(CONTROL)
    for fault in FAULTS:
        control("POST", "/faults", {**fault, "only": "mcu"})
    stalled = Checked(CONTROL)
    stalled.request("GET", "/events")  # its answer is never read
    busy = []
    for _ in range(2):  # one after the other: proot 5.4 can crash programs that start at the same moment
        busy.append(subprocess.Popen([sys.executable, __file__, "--busy"], stdout=subprocess.PIPE))
        assert busy[-1].stdout.readline() == b"busy\n"

    soak = Soak(requests)
    halfway = []
    start = time.monotonic()
    sent = soak.run(lambda: halfway or halfway.append(memory(simulator)))
    seconds = time.monotonic() - start
    growth = memory(simulator) - halfway[0]

    ended = [client.poll() for client in busy]
    assert ended == [None, None], f"a client of the control interface has failed: {ended}"
    struck = {fault["fault"].split(":")[0]: fault["struck"] for fault in control("GET", "/faults")["faults"]
              if "chance" in fault["fault"]}
    rounds = control("POST", "/faults", {"kind": "no-reply", "match": "EEEEEEEE"})["id"] - len(FAULTS) - 1
    assert rounds > 0  # of the busy clients
    counted = control("GET", "/faults")["faults"][0]["counted"]
    assert counted == sent, (counted, sent)
    soak.finish(struck, sent)
    print(f"{sent} requests in {seconds:.0f} s, {rounds} rounds of the control interface; faults: {struck}; "
          f"memory {halfway[0]} KiB, grown by {growth} KiB in the second half")
    assert growth < GROWTH
    for client in busy:
        client.kill()
        client.wait()
    simulator.terminate()
    assert simulator.wait(timeout=TIME_LIMIT) == 0


if __name__ == "__main__":
    if sys.argv[1] == "--busy":
        be_busy()
    else:
        main(int(sys.argv[1]))
