"""Sends SIGUSR1 and SIGUSR2 in turn, then another signal: storm.py, then "PID SECONDS PAUSE SIGNAL" on its input.

The pauses are of PAUSE seconds at most; without them the signals come as fast as they go. Prints how many it sent, and
when (of the monotonic clock) the last one.
"""

import os
import random
import signal
import time

process, seconds, pause, last = input().split()
process, pause, sent, end = int(process), float(pause), 0, time.monotonic() + float(seconds)
while time.monotonic() < end:
    os.kill(process, signal.SIGUSR1)
    os.kill(process, signal.SIGUSR2)
    sent += 2
    if pause:
        time.sleep(random.uniform(0, pause))
stopped = time.monotonic()
os.kill(process, int(last))
print(sent, stopped)
