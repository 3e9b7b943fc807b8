"""What the shipped files need at run time."""

import os
import re
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ["ZR4410_BUILD"])


@pytest.mark.parametrize("file", [BUILD / "bin/testZR4410", BUILD / "libzr4410.so"], ids=lambda file: file.name)
def test_nothing_but_libc_and_libm_is_needed(file):
    listing = subprocess.run(["readelf", "-d", file], capture_output=True, text=True, check=True).stdout
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", listing))
    assert "libc.so.6" in needed
    assert needed <= {"libc.so.6", "libm.so.6"}
