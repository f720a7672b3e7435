# SPDX-License-Identifier: Apache-2.0
"""The commands of the program that a page of documentation shows.

A page is Markdown. What is run are the lines of its blocks of shell commands (```sh) that call the program, and where the
page holds the comment <!-- run: tables -->, the code in its tables that does. A command ends with status 0, unless the
comment behind it names another one: "# status 2: ...".

<!-- not run: REASON --> on the line before a block leaves that block out.

Each section, from one heading of the second level to the next, stands for itself: its commands find the same files.
"""

import re
from dataclasses import dataclass

PROGRAM = "tidewatch"
COMMANDS = ("las", "pcd", "ascii", "info", "check", "bundle", "view", "sample")


class PageError(Exception):
    """A page that does not keep to the rules above."""


@dataclass(frozen=True)
class Command:
    text: str
    line: int
    status: int = 0
    section: int = 0


@dataclass(frozen=True)
class Page:
    commands: list
    left_out: list


# Where a command of the shell begins.
_CALL = re.compile(rf"(?:^|[;&|]\s*){PROGRAM} [a-z-]")
_FENCE = re.compile(r"^(`{3,})(\w*)\s*$")
_NOT_RUN = re.compile(r"^<!-- not run: (.+) -->$")
_RUN_TABLES = "<!-- run: tables -->"
_CODE = re.compile(rf"`({PROGRAM} [^`]+)`")
# A comment of the shell: the sign begins a word. No command here has it inside quotes.
_COMMENT = re.compile(r"(?:^|\s)#\s*(.*)$")
_STATUS = re.compile(r"\bstatus (\d+)\b")


def _command(text, line, section):
    comment = _COMMENT.search(text)
    status = _STATUS.search(comment.group(1)) if comment else None
    bare = text[: comment.start()] if comment else text
    return Command(bare.strip(), line, int(status.group(1)) if status else 0, section)


def _is_call(text):
    comment = _COMMENT.search(text)
    return _CALL.search(text[: comment.start()] if comment else text) is not None


def _block(lines, first, language, section):
    """The commands of a block of code, whose first line has that number."""
    commands = []
    number = 0
    while number < len(lines):
        text, begin = lines[number], number
        while text.endswith("\\") and number + 1 < len(lines):
            number += 1
            text = text[:-1].rstrip() + " " + lines[number].strip()
        number += 1
        if not _is_call(text):
            continue
        if language == "sh":
            commands.append(_command(text, first + begin, section))
        elif "[OPTION]" not in text:
            raise PageError(f"line {first + begin}: a command in a block that is not marked as sh: {text}")
    return commands


def read(text):
    """The commands of a page. Raises PageError."""
    lines = text.splitlines()
    runs_tables = _RUN_TABLES in lines
    commands, left_out = [], []
    found_in_tables = 0
    number = section = 0
    while number < len(lines):
        line = lines[number]
        number += 1
        if line.startswith("## "):
            section += 1
        fence = _FENCE.match(line)
        if fence:
            begin = number
            while number < len(lines) and lines[number] != fence.group(1):
                number += 1
            if number == len(lines):
                raise PageError(f"line {begin}: the block does not end")
            found = _block(lines[begin:number], begin + 1, fence.group(2), section)
            mark = _NOT_RUN.match(lines[begin - 2]) if begin >= 2 else None
            if mark and not found:
                raise PageError(f"line {begin}: there is nothing to leave out")
            if mark:
                left_out += [(command, mark.group(1)) for command in found]
            else:
                commands += found
            number += 1
        elif runs_tables and line.startswith("|"):
            # A bar inside a cell is written with a backslash.
            found = [Command(code.replace("\\|", "|"), number, section=section) for code in _CODE.findall(line)]
            found_in_tables += len(found)
            commands += found
    if runs_tables and found_in_tables == 0:
        raise PageError("the page asks for its tables to be run, and they have no commands")
    return Page(commands, left_out)


def help_examples(text, section=0):
    """The commands below "Example:" or "Examples:" of a command's help."""
    parts = re.split(r"^Examples?:\n", text, maxsplit=1, flags=re.MULTILINE)
    if len(parts) != 2:
        raise PageError("the help has no examples")
    return [Command(line.strip(), 0, section=section) for line in parts[1].splitlines() if line.startswith(f"  {PROGRAM} ")]
