"""The Python example of README.md runs as it stands."""

import os
import re

import pytest

README = os.environ.get("PXIMAGE_README", os.path.join(os.path.dirname(__file__), "..", "..", "README.md"))


def python_example():
    with open(README, encoding="utf-8") as f:
        text = f.read()
    section = text[text.index("## Python"):]
    return re.search(r"```python\n(.*?)```", section, re.S).group(1)


def test_the_example_has_five_lines_and_runs(tmp_path, monkeypatch):
    code = python_example()
    assert len(code.strip().splitlines()) == 5
    monkeypatch.chdir(tmp_path)
    namespace = {}
    exec(compile(code, "README.md", "exec"), namespace)
    assert os.path.exists("frame.pxi") and namespace["smooth"].shape == (480, 640)


def test_every_public_name_is_documented():
    import pximage

    assert len(pximage.__doc__) > 200
    for name in pximage.__all__:
        item = getattr(pximage, name)
        if callable(item):
            assert item.__doc__ and len(item.__doc__) > 30, name
    assert repr(pximage.FileError("x")).startswith("FileError") and pximage.Error.__module__ == "pximage"
