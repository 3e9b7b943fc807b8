"""Runs a test file in several sandboxes at once. The tests mostly wait, and each sandbox has its own queues.

    shards.py COUNT SANDBOX-COMMAND... TEST-FILE

As a pytest plugin it runs only every Nth test: ZR4410_SHARD="2/6" selects every sixth one, after skipping two.
"""

import os
import subprocess
import sys
from pathlib import Path


def pytest_collection_modifyitems(items):
    number, count = map(int, os.environ.get("ZR4410_SHARD", "0/1").split("/"))
    items[:] = items[number::count]


def main(count, *command):
    path = f"{Path(__file__).parent}:{os.environ.get('PYTHONPATH', '')}"
    shards = [subprocess.Popen([*command[:-1], "-p", "shards", command[-1]], stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True,
                               env={**os.environ, "ZR4410_SHARD": f"{number}/{count}", "PYTHONPATH": path})
              for number in range(int(count))]
    failed = 0
    for number, shard in enumerate(shards):
        output, _ = shard.communicate()
        print(f"--- shard {number}, exit status {shard.returncode}\n{output}")
        failed += shard.returncode != 0
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
