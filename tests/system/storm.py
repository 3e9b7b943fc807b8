"""Sends SIGUSR1 and SIGUSR2 in turn, then another signal: storm.py, then "PID SECONDS PAUSE LEAST SIGNAL" on its input.

The pauses are of PAUSE seconds at most; without them the signals come as fast as they go. It goes on until LEAST are
sent, even if that takes longer than SECONDS. Prints how many it sent, and when (of the monotonic clock) the last one.
"""

import os
import random
import signal
import time

process, seconds, pause, least, last = input().split()
process, pause, least, sent, end = int(process), float(pause), int(least), 0, time.monotonic() + float(seconds)
while time.monotonic() < end or sent < least:
    os.kill(process, signal.SIGUSR1)
    os.kill(process, signal.SIGUSR2)
    sent += 2
    if pause:
        time.sleep(random.uniform(0, pause))
stopped = time.monotonic()
os.kill(process, int(last))
print(sent, stopped)
