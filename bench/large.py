#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Rates and peak memory of the program on many points: LAZ files of the synthetic survey as LAZ, as a bundle, as text and as
squares, with one processor and with more. Whole processes; the memory is that of the largest process of each.

Usage: bench/large.py BUILD FOLDER [--points MILLIONS] [--jobs N ...]
BUILD is a build folder that has the program. Needs some 60 bytes a point in FOLDER, and says so first.
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

MEBI = 1 << 20
POINTS_OF_SAMPLE = 10_000_000
# The memory limit of all commands, which the peaks are set beside.
LIMIT = 512


def measured(command):
    """Seconds, and the largest resident memory in MiB."""
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    errors = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{' '.join(command)}: status {status}\n{errors}")
    return time.monotonic() - begin, usage.ru_maxrss / 1024


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("folder")
    parser.add_argument("--points", type=int, default=200, help="millions (default 200)")
    parser.add_argument("--jobs", type=int, nargs="+", default=[1, 2])
    parser.add_argument("--only", nargs="+", help="of las, bundle, ascii, squares")
    given = parser.parse_args()
    program = os.path.realpath(os.path.join(given.build, "host/tidewatch"))
    copies = max(1, given.points * 1_000_000 // POINTS_OF_SAMPLE)
    points = copies * POINTS_OF_SAMPLE
    needed = points * 60
    free = shutil.disk_usage(given.folder).free
    print(f"{points:,} points in {copies} files; needs {needed / 1e9:.0f} GB of disk, and {free / 1e9:.0f} GB are free")
    if free < needed:
        sys.exit("that is not enough")

    with tempfile.TemporaryDirectory(dir=given.folder, prefix="large.") as place:
        os.chdir(place)
        # One slice of the synthetic survey; its points lie where those of the other files do, so squares get all of them.
        subprocess.run([program, "sample", "--points", str(POINTS_OF_SAMPLE), "-o", "survey.h5", "-q"], check=True)
        subprocess.run([program, "las", "survey.h5", "--grid", "coast", "--time", "0", "-o", "0.laz", "-q"], check=True)
        os.remove("survey.h5")
        inputs = ["0.laz"]
        for number in range(1, copies):
            inputs.append(f"{number}.laz")
            os.link("0.laz", inputs[-1])
        commands = {
            "las": ["las", *inputs, "-o", "out/{grid}.laz"],
            "bundle": ["bundle", *inputs, "-o", "out/all.h5"],
            "ascii": ["ascii", *inputs, "-o", "out/{grid}", "--field", "Positions"],
            "squares": ["las", *inputs, "--merge", "-o", "out/{tile}.laz", "--tile-size", "100"],
        }
        plain = {}
        for name, command in commands.items():
            if given.only and name not in given.only:
                continue
            for jobs in given.jobs:
                shutil.rmtree("out", ignore_errors=True)
                os.mkdir("out")
                seconds, peak = measured([program, *command, "-q", "-j", str(jobs), "--memory-limit", f"{LIMIT}M"])
                plain.setdefault(jobs, seconds)
                note = f", {seconds / plain[jobs]:.2f} times las" if name == "squares" and "las" in (given.only or commands) else ""
                print(f"{name:8} -j {jobs}: {seconds:7.1f} s, {points / seconds / 1e6:5.2f} M points/s, "
                      f"peak {peak:6.0f} MiB ({peak - LIMIT:+.0f} beside the limit){note}", flush=True)


if __name__ == "__main__":
    main()
