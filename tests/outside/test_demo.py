"""script/demo prints exactly demo.txt, and the README quotes lines of it."""

import os
import re
import subprocess
from pathlib import Path

import pytest

HERE = Path(__file__).parent
SANDBOX = HERE.parents[1] / "script" / "sandbox"


@pytest.mark.parametrize("way", ["the first", "proot"])
def test_the_demo_prints_the_stored_transcript(way, monkeypatch):
    if way == "proot":
        monkeypatch.setenv("ZR4410_SANDBOX_WAY", way)
        trial = subprocess.run([SANDBOX, "--way"], capture_output=True, text=True)
        if trial.returncode != 0:
            pytest.skip(trial.stderr.strip())
    run = subprocess.run([HERE.parents[1] / "script" / "demo", "--stable", "--build", os.environ["ZR4410_BUILD"]],
                         stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=200)
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.splitlines() == (HERE / "demo.txt").read_text().splitlines()


def test_the_readme_quotes_lines_of_the_demo_in_their_order():
    readme = (HERE.parents[1] / "README.md").read_text()
    transcript = readme.split("```\n")[3].splitlines()
    assert transcript[0].startswith("$ testZR4410 ")
    demo = iter([line.rstrip() for line in (HERE / "demo.txt").read_text().splitlines()])
    for line in transcript:
        if line.strip() not in ("", "…"):
            shown = re.sub(r"(Delta Time \(ms\) : )\d+", r"\1?", line)
            assert shown in demo  # continues after the previous line
