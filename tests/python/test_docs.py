# SPDX-License-Identifier: Apache-2.0
"""The examples of docs/python.md and README.md run."""

import os
import re
import shutil
import subprocess
import sys

import pytest

import tidewatch as tw
from conftest import SOURCE

PAGE = open(os.path.join(SOURCE, "docs", "python.md"), encoding="utf-8").read()


def blocks(text):
    return re.findall(r"^```python\n(.*?)^```", text, re.MULTILINE | re.DOTALL)


@pytest.fixture(scope="module")
def files(tmp_path_factory):
    """The files that the page names."""
    folder = tmp_path_factory.mktemp("files")
    sample = tw.sample(4000)
    tw.bundle(sample, folder / "tides.h5")
    everything = tw.LOSS_KINDS
    tw.las(sample, folder / "survey.laz", grid="coast", time=0, accept=everything)
    tw.las(sample, folder / "morning.laz", grid="coast", time=0, accept=everything)
    tw.las(sample, folder / "evening.laz", grid="coast", time=6, accept=everything)
    return folder


EXAMPLES = blocks(PAGE) + blocks(open(os.path.join(SOURCE, "README.md"), encoding="utf-8").read())


@pytest.mark.parametrize("number", range(len(EXAMPLES)))
def test_examples_run(number, files, tmp_path):
    for file in files.iterdir():
        shutil.copy(file, tmp_path)
    program = "import numpy as np, tidewatch as tw\n" + EXAMPLES[number]
    done = subprocess.run([sys.executable, "-W", "ignore", "-c", program], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr


def test_there_are_examples():
    assert len(blocks(PAGE)) >= 6 and len(EXAMPLES) > len(blocks(PAGE))


def test_the_page_names_everything_public():
    for name in tw.__all__:
        if name in ("Finding", "Info", "Loss", "Lattice", "View", "WrittenFile", "LOSS_KINDS", "Skeleton", "Fragment"):
            continue  # what the things on the page are made of
        assert re.search(rf"\b{name}\b", PAGE), name


def test_the_page_names_every_setting_of_the_exporters():
    for exporter in (tw.ExportPointCloudToLas, tw.ExportPointCloudToPCD, tw.ExportPointCloudToASCII):
        for name in vars(exporter):
            if not name.startswith("_") and name != "run":
                assert f"`{name}" in PAGE, name


def test_the_package_shows_its_own_example(files, tmp_path):
    shutil.copy(files / "survey.laz", tmp_path)
    lines = [line[4:] for line in tw.__doc__.splitlines() if line.startswith("    ")]
    done = subprocess.run([sys.executable, "-W", "ignore", "-c", "\n".join(lines)], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
