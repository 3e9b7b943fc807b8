"""The demonstration shows, to the letter, what demo.txt holds."""

import os
import subprocess
from pathlib import Path

HERE = Path(__file__).parent


def test_the_demo_shows_what_is_written_down():
    run = subprocess.run([HERE.parents[1] / "script" / "demo", "--stable", "--build", os.environ["ZR4410_BUILD"]],
                         stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=200)
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.splitlines() == (HERE / "demo.txt").read_text().splitlines()
