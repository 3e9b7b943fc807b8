"""Sends SIGUSR1 and SIGUSR2 in turn, then SIGNAL. Reads "PID SECONDS PAUSE LEAST SIGNAL" from its input.

A pause takes at most PAUSE seconds; 0 means none. The storm lasts SECONDS, or longer until LEAST signals are sent.
Prints the number of signals sent and the monotonic time of the last one.
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
