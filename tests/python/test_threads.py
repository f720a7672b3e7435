# SPDX-License-Identifier: Apache-2.0
"""Several threads at once."""

import gc
import subprocess
import sys
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import tidewatch as tw

THREADS = 4


def in_threads(work, times=THREADS):
    with ThreadPoolExecutor(THREADS) as pool:
        return [future.result() for future in [pool.submit(work, number) for number in range(times)]]


def test_the_first_arrays_of_a_process_may_come_in_several_threads_at_once():
    program = """
import threading
import tidewatch as tw
survey = tw.sample(20_000)
barrier = threading.Barrier(4)
def read():
    barrier.wait()
    survey[0]["coast"]["Positions"]
threads = [threading.Thread(target=read) for _ in range(4)]
for thread in threads: thread.start()
for thread in threads: thread.join()
"""
    # A process of its own, which has no NumPy yet; it would wait forever.
    subprocess.run([sys.executable, "-c", program], check=True, timeout=120)


def test_python_goes_on_while_a_thread_works(quiet):
    counted = []
    done = threading.Event()

    def count():
        number = 0
        while not done.is_set():
            number += 1
        counted.append(number)

    thread = threading.Thread(target=count)
    thread.start()
    tw.las(tw.sample(60_000), "{time}.laz", grid="coast")
    done.set()
    thread.join()
    assert counted[0] > 1000


def test_one_bundle_is_exported_by_several_threads_at_once(quiet):
    survey = tw.sample(20_000)
    in_threads(lambda number: tw.las(survey, f"{number}-{{time}}.laz", grid="coast", year=2024, day=1))
    for time in "036":
        files = [open(f"{number}-{time}.laz", "rb").read() for number in range(THREADS)]
        assert len(set(files)) == 1


def test_one_file_is_read_by_several_threads_at_once(survey_file):
    survey = tw.open(survey_file, fragment_points=300)
    grid = survey[0]["survey"]
    names = list(grid)
    expected = {name: tw.open(survey_file)[0]["survey"][name] for name in names}
    tw.cache.limit = 100_000  # so that arrays come and go
    try:
        def read(number):
            for name in np.random.default_rng(number).permutation(names):
                np.testing.assert_array_equal(grid[name], expected[name])

        in_threads(read)
    finally:
        tw.cache.limit = 512 << 20


def test_progress_of_several_threads_comes_to_each(quiet):
    survey = tw.sample(30_000)

    def write(number):
        threads = set()
        tw.pcd(survey, f"{number}-{{time}}.pcd", grid="coast", progress=lambda *call: threads.add(threading.get_ident()))
        return threads, {threading.get_ident()}

    for threads, own in in_threads(write):
        assert threads == own


def test_arrays_are_freed_by_whichever_thread_is_last(survey_file):
    def hold(number):
        with tw.open(survey_file, fragment_points=500) as survey:
            return [part["Positions"] for part in survey[0]["survey"].fragments()]

    arrays = in_threads(hold, 8)
    total = arrays[0][0].sum()
    assert all(some[0].sum() == total for some in arrays)
    threads = [threading.Thread(target=some.clear) for some in arrays]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    gc.collect()


def test_a_bundle_that_a_thread_exports_does_not_change(quiet):
    survey = tw.sample(200_000)
    started = threading.Event()
    thread = threading.Thread(target=lambda: tw.las(
        survey, "{time}.laz", grid="coast", progress=lambda *call: started.set()))
    thread.start()
    started.wait()
    try:
        if thread.is_alive():
            with pytest.raises(RuntimeError, match="in use"):
                survey.slice(99)
    finally:
        thread.join()
    survey.slice(99)
