# SPDX-License-Identifier: Apache-2.0
"""Plain values that tidewatch returns."""

from __future__ import annotations

import html
import os
from collections.abc import Sequence
from typing import Any, Dict, Iterator, List, NamedTuple, Optional, Tuple, Union, overload

from ._words import in_python


class Lattice(NamedTuple):
    """Where the places of a lattice are: place (row, column) of a lattice in two dimensions is at
    origin + (column * spacing[0], row * spacing[1], 0), so the first row is the southernmost."""

    #: Of the first place, (x, y, z), in coordinate units.
    origin: Tuple[float, float, float]
    #: From place to place along x, y, z, in coordinate units.
    spacing: Tuple[float, float, float]
    #: As arrays have it: (rows, columns), or (layers, rows, columns).
    shape: Tuple[int, ...]


class WrittenFile(NamedTuple):
    """A file that an exporter wrote, as it recorded it."""

    path: str
    #: Bytes handed to the file.
    bytes: int
    #: Points, cells or elements.
    items: int
    #: Whether opening, writing or closing failed.
    failed: bool
    #: The system's error number where it failed, or 0.
    error: int
    time: float
    grid: str


class File(os.PathLike):
    """A file that was put in place. It may be used wherever a path is asked for."""

    __slots__ = ("path", "items", "unit", "bytes", "bytes_before", "grid", "time")

    def __init__(self, path: str, items: int, unit: str, bytes: int, bytes_before: int = 0,
                 grid: Optional[str] = None, time: Optional[float] = None) -> None:
        self.path = path
        #: How many points, cells or elements it holds; which of them, `unit` says.
        self.items = items
        self.unit = unit
        self.bytes = bytes
        #: What the file held before it was added to.
        self.bytes_before = bytes_before
        #: The grid and the time that it holds, if it holds one.
        self.grid = grid
        self.time = time

    def __fspath__(self) -> str:
        return self.path

    def __str__(self) -> str:
        return self.path

    def __repr__(self) -> str:
        return f"<{self.path}: {self.items} {self.unit}, {self.bytes} bytes>"

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, File):
            return NotImplemented
        return all(getattr(self, name) == getattr(other, name) for name in self.__slots__)

    def __hash__(self) -> int:
        return hash(self.path)


class Loss(NamedTuple):
    """Something that an export drops or changes."""

    #: One of `tidewatch.LOSS_KINDS`.
    kind: str
    message: str


class Report(Sequence):
    """What a call wrote, or with dry_run would write: a sequence of `File`s, with losses, notes and errors."""

    def __init__(self, done: Dict[str, Any]) -> None:
        self.files: List[File] = [File(**file) for file in done["files"]]
        self.losses: List[Loss] = [Loss(kind, in_python(message)) for kind, message in done["losses"]]
        #: Remarks that are neither a loss nor an error.
        self.notes: List[str] = [in_python(note) for note in done["notes"]]
        #: Errors that the exporter recorded.
        self.errors: List[str] = list(done["errors"])
        #: Whether the files are in place.
        self.placed: bool = done["placed"]
        #: The settings of the exporter, a text for each of its runs.
        self.settings: List[str] = list(done["settings"])
        #: How many outputs were there already, with skip_existing.
        self.existing: int = done.get("existing", 0)
        #: What was wrong with outputs, or inputs, of which nothing is in place, with keep_going.
        self.failures: List[str] = [in_python(text) for text in done.get("failures", [])]
        #: With dry_run: what would end the call.
        self.obstacles: List[str] = [in_python(text) for text in done.get("obstacles", [])]

    @overload
    def __getitem__(self, index: int) -> File: ...
    @overload
    def __getitem__(self, index: slice) -> List[File]: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[File, List[File]]:
        return self.files[index]

    def __len__(self) -> int:
        return len(self.files)

    def __iter__(self) -> Iterator[File]:
        return iter(self.files)

    def __repr__(self) -> str:
        lines = [f"{file.path}: {file.items} {file.unit}, {file.bytes} bytes" for file in self.files]
        lines += [f"lost: {loss.message}" for loss in self.losses]
        return "\n".join(lines) or "nothing was written"


class Finding(NamedTuple):
    """Something that a check found, of which there may be several."""

    kind: str
    #: "fault": the file violates its format; "warning": readers may misinterpret it; "note": worth knowing.
    severity: str
    #: Where in the file: "header", "point 17", "line 12"; the first of several. "" for the whole file.
    place: str
    message: str
    count: int


class CheckReport:
    """Whether a file conforms to its format."""

    def __init__(self, found: Dict[str, Any]) -> None:
        self.file: str = found["file"]
        #: "LAS 1.4, point format 7, compressed"; "" if it is not known.
        self.format: str = found["format"]
        #: Faults first, then warnings, then notes.
        self.findings: List[Finding] = [Finding(*finding) for finding in found["findings"]]

    def _of(self, severity: str) -> List[Finding]:
        return [finding for finding in self.findings if finding.severity == severity]

    @property
    def faults(self) -> List[Finding]:
        return self._of("fault")

    @property
    def warnings(self) -> List[Finding]:
        return self._of("warning")

    @property
    def notes(self) -> List[Finding]:
        return self._of("note")

    @property
    def ok(self) -> bool:
        """Whether there is no fault."""
        return not self.faults

    def __repr__(self) -> str:
        lines = [f"{self.file}: {self.format or 'not recognised'}: {'no fault' if self.ok else 'faulty'}"]
        for finding in self.findings:
            place = f"{finding.place}: " if finding.place else ""
            times = f" ({finding.count} times)" if finding.count > 1 else ""
            lines.append(f"  {finding.severity}: {place}{finding.message}{times}")
        return "\n".join(lines)


class Info(Dict[str, Any]):
    """What inputs are and hold: a dict with the members that `tidewatch info --json` has, whose text is the program's."""

    def __init__(self, members: Dict[str, Any], text: str, failures: List[str]) -> None:
        super().__init__(members)
        #: As the program shows it.
        self.text = text
        #: What is wrong with inputs that could not be read.
        self.failures = failures

    def __repr__(self) -> str:
        return self.text.rstrip("\n")

    def _repr_html_(self) -> str:
        return f"<pre>{html.escape(self.text)}</pre>"


class View:
    """A page or a picture that shows inputs. Notebooks show it."""

    def __init__(self, content: bytes, kind: str, points: int, pixels: Any = None) -> None:
        #: The bytes of the HTML page or PNG picture.
        self.content = content
        #: "html" or "png".
        self.kind = kind
        #: How many points it shows.
        self.points = points
        #: Of a picture: (height, width, 3) uint8, from the top; None for a page.
        self.pixels = pixels

    def _repr_png_(self) -> Optional[bytes]:
        return self.content if self.kind == "png" else None

    def _repr_html_(self) -> Optional[str]:
        if self.kind != "html":
            return None
        page = html.escape(self.content.decode("utf-8", "replace"), quote=True)
        return f'<iframe srcdoc="{page}" style="width: 100%; height: 36em; border: 0"></iframe>'

    def __repr__(self) -> str:
        what = "page" if self.kind == "html" else "picture"
        return f"<tidewatch.View: a {what} of {self.points} points, {len(self.content)} bytes>"


for _class in (Lattice, WrittenFile, File, Loss, Report, Finding, CheckReport, Info, View):
    _class.__module__ = "tidewatch"
