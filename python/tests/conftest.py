"""Shared fixtures: the pximg tool (when built), its demo files, and a sample 16-bit frame."""

import json
import os
import subprocess

import numpy as np
import pytest


@pytest.fixture(scope="session")
def pximg():
    """Runs the pximg tool with arguments; returns its stdout. Skips when the tool was not built."""
    tool = os.environ.get("PXIMG")
    if not tool:
        pytest.skip("pximg is not built")

    def run(*args):
        done = subprocess.run([tool, *map(str, args)], capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        return done.stdout

    run.info = lambda path: json.loads(run("info", "--json", path))
    return run


@pytest.fixture(scope="session")
def demo(pximg, tmp_path_factory):
    """Directory of the files `pximg demo` writes (a 1024 x 768 frame in every encoding)."""
    directory = tmp_path_factory.mktemp("demo")
    pximg("demo", directory)
    return directory


@pytest.fixture
def frame():
    """A 16-bit frame of flat steps and a bright disc (values in the 12 high bits), 61 x 83: it compresses."""
    y, x = np.mgrid[0:61, 0:83]
    values = 800 + 16 * (x // 20) + np.where((x - 40) ** 2 + (y - 30) ** 2 < 300, 20000, 0)
    return (values.astype(np.uint16) & 0xFFF0).astype(np.uint16)
