#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that pages of documentation are complete: every option of the program's help and every kind of loss has its place
in a table of docs/program.md, and every page with commands is among those whose commands are run.

Usage: check-pages.py --program PROGRAM ROOT PAGE...
"""

import argparse
import re
import subprocess
import sys
from pathlib import Path

import commands


def first_cells(page):
    """The first cells of the rows of tables in a page."""
    return "\n".join(re.findall(r"^\|([^|]*)\|", page.read_text(encoding="utf-8"), flags=re.MULTILINE))


def options_of_help(program):
    """The long names of options, by the commands that have them."""
    options = {}
    for name in commands.COMMANDS:
        text = subprocess.run([program, name, "--help"], capture_output=True, text=True, check=True).stdout
        found = re.findall(r"^  (?:-\w,)?(--[\w-]+)", text, flags=re.MULTILINE)
        if not found:
            raise commands.PageError(f"the help of {name} has no options")
        for option in found:
            options.setdefault(option, []).append(name)
    return options


def kinds_of_losses(program):
    """The kinds that --accept takes, which an unknown one makes it list."""
    done = subprocess.run([program, "las", "INPUT", "-o", "OUTPUT", "--accept", "?"],
                          capture_output=True, text=True, check=False)
    listed = re.search(r'kinds of losses: (.+), not "', done.stderr)
    if not listed:
        raise commands.PageError(f"--accept does not list the kinds of losses: {done.stderr}")
    return listed.group(1).split(", ")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", type=Path, required=True)
    parser.add_argument("root", type=Path)
    parser.add_argument("pages", nargs="+")
    given = parser.parse_args()
    cells = first_cells(given.root / "docs/program.md")
    faults = []
    for option, of in options_of_help(given.program).items():
        if not re.search(rf"`[^`]*{re.escape(option)}(?![\w-])", cells):
            faults.append(f"docs/program.md has no row for {option} of {', '.join(of)}")
    for kind in kinds_of_losses(given.program):
        if not re.search(rf"`{re.escape(kind)}`", cells):
            faults.append(f"docs/program.md has no row for losses of kind {kind}")
    for path in [given.root / "README.md", *sorted(given.root.glob("docs/*.md"))]:
        name = path.relative_to(given.root).as_posix()
        try:
            page = commands.read(path.read_text(encoding="utf-8"))
        except commands.PageError as error:
            faults.append(f"{name}: {error}")
            continue
        if (page.commands or page.left_out) and name not in given.pages:
            faults.append(f"{name} has commands, and tests/CMakeLists.txt does not have them run")
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


sys.exit(main())
