# SPDX-License-Identifier: Apache-2.0
"""h5py reads the arrays of bundle files."""

import numpy as np
import pytest

h5py = pytest.importorskip("h5py", reason="no h5py: scripts/setup.sh installs it")

import tidewatch as tw  # noqa: E402


def test_h5py_finds_the_arrays_of_a_bundle_file(cloud):
    cloud.slice(3).lattice("dem", (1, 2), 0.5, Height=np.arange(12, dtype="f4").reshape(3, 4))
    tw.bundle(cloud, "a.h5")
    arrays = []
    with h5py.File("a.h5") as file:
        file.visititems(lambda name, item: arrays.append(item[()]) if isinstance(item, h5py.Dataset) else None)
    for time in cloud:
        for grid in cloud[time].values():
            for name, values in grid.items():
                if name == "Positions" and grid.lattice:
                    continue  # stated by origin and spacing
                found = [array for array in arrays if same(array, values)]
                assert len(found) == 1, name


def same(stored, values):
    if stored.dtype.names:
        if values.shape[-1] != len(stored.dtype.names):
            return False
        stored = np.stack([stored[name] for name in stored.dtype.names], -1)
    return stored.size == values.size and np.array_equal(stored.reshape(values.shape), values)
