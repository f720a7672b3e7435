# SPDX-License-Identifier: Apache-2.0
"""A decoder that is not ours reads the LAZ files that were made of arrays."""

import json
import os
import shutil
import subprocess

import numpy as np
import pytest

import tidewatch as tw
from conftest import SOURCE

DECODER = os.path.join(SOURCE, "tests", "js")
pytestmark = pytest.mark.skipif(
    shutil.which("node") is None or not os.path.isdir(os.path.join(DECODER, "node_modules")),
    reason="no npm packages of tests/js: scripts/setup.sh installs them")

# Point data record format 7 (LAS 1.4 R15), without extra bytes.
RECORD = np.dtype([("x", "<i4"), ("y", "<i4"), ("z", "<i4"), ("Intensity", "<u2"), ("returns", "u1"), ("flags", "u1"),
                   ("Classification", "u1"), ("UserData", "u1"), ("angle", "<i2"), ("PointSourceID", "<u2"),
                   ("GPSTime", "<f8"), ("Red", "<u2"), ("Green", "<u2"), ("Blue", "<u2")])


def test_laz_perf_decodes_the_arrays(quiet):
    random = np.random.default_rng(11)
    bundle = tw.Bundle()
    grid = bundle.slice(0).grid("g")
    raw = random.integers(-10**6, 10**6, (3000, 3))
    grid["Positions"] = raw * 0.001
    for name in ("Intensity", "PointSourceID", "Red", "Green", "Blue"):
        grid[name] = random.integers(0, 65536, 3000)
    for name in ("Classification", "UserData"):
        grid[name] = random.integers(0, 256, 3000)
    grid["ReturnNumber"] = random.integers(1, 16, 3000)
    grid["NumberOfReturns"] = random.integers(1, 16, 3000)
    grid["GPSTime"] = random.uniform(0, 1e5, 3000)
    tw.las(bundle, "a.laz", scale=0.001, offset=0)
    done = subprocess.run(["node", "decode.mjs", os.path.abspath("a.laz"), os.path.abspath("a.bin")], cwd=DECODER,
                          capture_output=True, text=True, check=True)
    told = json.loads(done.stdout)
    assert told["count"] == 3000 and told["pointFormat"] == 7 and told["recordLength"] == RECORD.itemsize
    records = np.fromfile("a.bin", RECORD)
    np.testing.assert_array_equal(np.stack([records["x"], records["y"], records["z"]], -1), raw)
    for name in set(RECORD.names) & set(grid):
        np.testing.assert_array_equal(records[name], grid[name], err_msg=name)
    np.testing.assert_array_equal(records["returns"] & 15, grid["ReturnNumber"])
    np.testing.assert_array_equal(records["returns"] >> 4, grid["NumberOfReturns"])
