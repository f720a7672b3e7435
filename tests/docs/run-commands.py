#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands that a page of documentation, or the program's help, shows (commands.py says which those are), one after
the other, in temporary folders with the files that they name. Fails where one ends with another status than the page says,
and where there is none.

Usage: run-commands.py --program PROGRAM [--without-rasters] (PAGE | --help-examples)
"""

import argparse
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import commands

# What a build without the page of "tidewatch view" says.
NO_PAGES = "this build cannot write pages"
FEW = 4


class Failure(Exception):
    pass


class Workplace:
    """A temporary folder in which the program is called by its name, and opens no browser. Each section of a page has a folder
    of its own there, with the same files."""

    def __init__(self, program, path):
        tools = path / "tools"
        home = path / "home"
        self.prepared = path / "prepared"
        self.sections = path / "sections"
        for folder in (tools, home, self.prepared, self.sections):
            folder.mkdir()
        (tools / commands.PROGRAM).symlink_to(program)
        browser = tools / "xdg-open"
        browser.write_text("#!/bin/sh\n")
        browser.chmod(0o755)
        self.environment = dict(os.environ, HOME=str(home), PATH=f"{tools}{os.pathsep}{os.environ['PATH']}")
        self.environment.pop("XDG_CACHE_HOME", None)

    def of_section(self, section):
        folder = self.sections / str(section)
        if not folder.exists():
            shutil.copytree(self.prepared, folder)
        return folder

    def run(self, command, folder):
        return subprocess.run(
            ["bash", "-o", "pipefail", "-c", command],
            cwd=folder, env=self.environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", check=False)

    def prepare(self, command):
        done = self.run(command, self.prepared)
        if done.returncode != 0:
            raise Failure(f"a file for the test cannot be made: {command}\n{done.stdout}")


def prepare_files(place, with_rasters):
    """The files that the pages use."""
    (place.prepared / "list.txt").write_text("morning.laz\nevening.laz\n")
    for command in (
            "tidewatch sample --points 4000 -o tides.h5",
            "tidewatch las tides.h5 --grid coast --time 0 -o survey.laz --crs EPSG:25832",
            "tidewatch las tides.h5 --grid coast --time 0 -o morning.laz",
            "tidewatch las tides.h5 --grid coast --time 6 -o evening.laz",
            "tidewatch las survey.laz --fragment-points 2000 --tiles -o tiles/survey.laz"):
        place.prepare(command)
    if with_rasters:
        place.prepare("tidewatch ascii tides.h5 --grid elevation --time 0 --field Height --cell-types 1:3 -o dem")
        place.prepare("gdal_translate -q -a_srs EPSG:25832 dem/Height/west.grd dem.tif && rm -r dem")


def why_not_run(command, with_rasters):
    """Why a command cannot run here; nothing where it can."""
    if ".tif" in command.text and not with_rasters:
        return "no rasters: GDAL or its programs are missing"
    lexer = shlex.shlex(command.text, posix=True, punctuation_chars="|")
    lexer.whitespace_split = True
    words = list(lexer)
    for bar, word in zip(words, words[1:]):
        if bar == "|" and shutil.which(word) is None:
            return f"no {word}: scripts/setup.sh installs it"
    return ""


def run_all(place, found, with_rasters):
    """Runs commands, and says of each how it ended. Returns how many ran, and how many failed."""
    ran = failed = 0
    for command in found:
        why = why_not_run(command, with_rasters)
        done = None if why else place.run(command.text, place.of_section(command.section))
        if done and NO_PAGES in done.stdout:
            why = NO_PAGES
        if why:
            print(f"not run, {why}: {command.text}")
            continue
        ran += 1
        if done.returncode == command.status:
            print(f"ok: {command.text}")
            continue
        failed += 1
        print(f"FAILED, line {command.line}: {command.text}\n"
              f"ended with status {done.returncode} instead of {command.status}:\n{done.stdout}")
    return ran, failed


def examples_of_help(program):
    found = []
    for section, name in enumerate(commands.COMMANDS):
        done = subprocess.run([program, name, "--help"], capture_output=True, text=True, check=True)
        found += commands.help_examples(done.stdout, section)
    return found


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", type=Path, required=True)
    parser.add_argument("--without-rasters", action="store_true")
    parser.add_argument("--help-examples", action="store_true")
    parser.add_argument("page", type=Path, nargs="?")
    given = parser.parse_args()
    program = given.program.resolve()
    with_rasters = not given.without_rasters and shutil.which("gdal_translate") is not None
    try:
        if given.help_examples:
            page = commands.Page(examples_of_help(program), [])
        else:
            page = commands.read(given.page.read_text(encoding="utf-8"))
        if not page.commands:
            raise Failure("there is no command")
        for command, reason in page.left_out:
            print(f"not run, {reason}: {command.text}")
        if len(page.left_out) > FEW:
            raise Failure(f"{len(page.left_out)} commands are left out; more than {FEW} are too many")
        with tempfile.TemporaryDirectory(prefix="documented-") as name:
            place = Workplace(program, Path(name))
            prepare_files(place, with_rasters)
            ran, failed = run_all(place, page.commands, with_rasters)
        if ran == 0:
            raise Failure("no command could be run")
        if failed:
            raise Failure(f"{failed} of {ran} commands failed")
    except (Failure, commands.PageError) as error:
        print(f"{given.page or 'help'}: {error}", file=sys.stderr)
        return 1
    print(f"{ran} commands ended as they should")
    return 0


sys.exit(main())
