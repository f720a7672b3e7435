#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The Python package beside the library in C++, and beside NumPy. README.md says how to run it.

Usage: python.py PEER [FOLDER] [POINTS]
"""

import os
import subprocess
import sys
import tempfile
import threading
import time
import warnings

import numpy as np

import tidewatch as tw

ROUNDS = 5
FIELDS = ("Positions", "Intensity", "Classification", "ReturnNumber", "NumberOfReturns", "GPSTime")


class Peer:
    """The program in C++ that does one job after another."""

    def __init__(self, path):
        self.process = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def seconds(self, job):
        self.process.stdin.write(job + "\n")
        self.process.stdin.flush()
        return float(self.process.stdout.readline())


def timed(work):
    begin = time.perf_counter()
    kept = work()
    taken = time.perf_counter() - begin
    del kept
    return taken


def race(candidates, rounds=ROUNDS):
    """The times of candidates, which run in turn; each runs once beforehand."""
    times = {name: [] for name in candidates}
    for number in range(-1, rounds):
        for name, run in candidates.items():
            seconds = run()
            if number >= 0:
                times[name].append(seconds)
    for name, taken in times.items():
        print(f"  {name:<44} {1e3 * np.median(taken):8.1f} ms  ({1e3 * min(taken):.1f} to {1e3 * max(taken):.1f})")
    return times


def ratio(times, one, other):
    return float(np.median(np.array(times[one]) / np.array(times[other])))


def tell(what, value, goal, at_most):
    met = value <= goal if at_most else value >= goal
    print(f"  {what:<60} {value:6.2f}  goal at {'most' if at_most else 'least'} {goal:.2f}: {'met' if met else 'MISSED'}",
          flush=True)


def main():
    peer = Peer(sys.argv[1])
    folder = tempfile.TemporaryDirectory(prefix="bench-python-", dir=sys.argv[2] if len(sys.argv) > 2 else ".")
    points = int(sys.argv[3]) if len(sys.argv) > 3 else 5_000_000
    warnings.simplefilter("ignore")
    os.chdir(folder.name)
    for time_of, name in ((0, "a.laz"), (3, "b.laz")):
        tw.las(tw.sample(points), name, grid="coast", time=time_of)
    tw.cache.limit = 0  # every round reads

    print(f"reading the positions of {points:,} LAZ points", flush=True)

    def read():
        return tw.open("a.laz")[0]["a"]["Positions"]

    times = race({"C++: readFile, create": lambda: peer.seconds("read " + os.path.abspath("a.laz")),
                  "Python: tw.open, Positions": lambda: timed(read)})
    tell("Python to C++", ratio(times, "Python: tw.open, Positions", "C++: readFile, create"), 1.05, True)

    print(f"writing {points:,} points with {len(FIELDS) - 1} attributes as LAZ", flush=True)
    grid = tw.open("a.laz")[0]["a"]
    arrays = {name: grid[name].copy() for name in FIELDS}
    peer.seconds("load " + os.path.abspath("a.laz"))

    def write():
        bundle = tw.Bundle()
        bundle.slice(0).grid("survey").update(arrays)
        return tw.las(bundle, "python.laz", overwrite=True)

    times = race({"C++: exportLas": lambda: peer.seconds("write " + os.path.abspath("peer.laz")),
                  "Python: arrays to a bundle, tw.las": lambda: timed(write)})
    tell("Python to C++", ratio(times, "Python: arrays to a bundle, tw.las", "C++: exportLas"), 1.05, True)

    few = arrays["Positions"][: points // 10]
    print(f"{len(few):,} points as XYZ text", flush=True)
    bundle = tw.Bundle()
    bundle.slice(0).grid("survey")["Positions"] = few

    # New files: one that replaces another is flushed to the disk, which numpy.savetxt does not do.
    numbers = iter(range(1000))
    times = race({"numpy.savetxt": lambda: timed(lambda: np.savetxt(f"numpy-{next(numbers)}.asc", few, fmt="%f")),
                  "tw.ascii": lambda: timed(lambda: tw.ascii(bundle, f"text-{next(numbers)}"))}, 3)
    tell("numpy.savetxt to tw.ascii", ratio(times, "numpy.savetxt", "tw.ascii"), 10, False)

    print("two LAZ files, read by one thread and by two", flush=True)

    def one(name):
        tw.open(name, jobs=1)[0][name[0]]["Positions"]

    def two():
        threads = [threading.Thread(target=one, args=(name,)) for name in ("a.laz", "b.laz")]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    times = race({"one thread": lambda: timed(lambda: [one(name) for name in ("a.laz", "b.laz")]),
                  "two threads": lambda: timed(two)})
    tell("one thread to two", ratio(times, "one thread", "two threads"), 1.7, False)


main()
