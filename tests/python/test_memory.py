# SPDX-License-Identifier: Apache-2.0
"""Nothing is lost from memory."""

import gc
import os
import resource

import numpy as np
import pytest

import tidewatch as tw


def resident():
    """Bytes in memory now."""
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * resource.getpagesize()


def grown_by(work, times, warm_up=100):
    for _ in range(warm_up):
        work()
    gc.collect()
    before = resident()
    for _ in range(times):
        work()
    gc.collect()
    return resident() - before


needs_plain_memory = pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""),
                                        reason="sanitizers keep freed memory: run without them")


@needs_plain_memory
def test_a_thousand_files_opened_read_and_closed_leave_less_than_a_mebibyte(cloud, quiet):
    tw.las(cloud, "a.laz")

    def cycle():
        with tw.open("a.laz", fragment_points=600) as survey:
            grid = survey[0]["a"]
            assert grid["Positions"].shape == (1000, 3)
            assert grid.fragments()[0]["Intensity"].shape == (600,)

    assert grown_by(cycle, 1000) < 1 << 20


@needs_plain_memory
def test_arrays_set_and_replaced_leave_nothing():
    values = np.random.default_rng(0).random((20000, 3))

    def cycle():
        grid = tw.Bundle().slice(0).grid("g")
        for _ in range(3):
            grid["Positions"] = values
        grid["Depth"] = values[:, 2]
        view = grid["Depth"]
        del grid
        assert view[0] == values[0, 2]

    assert grown_by(cycle, 300) < 1 << 20


@needs_plain_memory
def test_failures_leave_nothing(cloud, quiet):
    (open("not-a-cloud.txt", "w")).close()

    def cycle():
        for fail in (lambda: tw.open("not-a-cloud.txt"), lambda: tw.las(cloud, "a.laz", classes=400),
                     lambda: cloud[0]["coast"].__setitem__("Intensity", [1]),
                     lambda: tw.las(cloud, "a.laz", progress=lambda *call: 1 / 0)):
            with pytest.raises((tw.Error, ValueError, ZeroDivisionError)):
                fail()

    assert grown_by(cycle, 100, warm_up=30) < 1 << 20


def test_open_files_are_closed(survey_file):
    def descriptors():
        return len(os.listdir("/proc/self/fd"))

    with tw.open(survey_file) as survey:
        survey[0]["survey"]["Positions"]
    gc.collect()
    before = descriptors()
    for _ in range(50):
        with tw.open(survey_file) as survey:
            kept = survey[0]["survey"]["Intensity"]
        del survey
    gc.collect()
    assert descriptors() == before and len(kept) == 5000
