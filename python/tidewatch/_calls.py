# SPDX-License-Identifier: Apache-2.0
"""What the commands of the program do."""

from __future__ import annotations

import json
import os
import sys
import warnings
from typing import Any, Dict, Iterable, List, Optional, Sequence, Tuple, Union

from . import _core
from ._core import Bundle
from ._errors import ExportError, LossError, LossWarning, RemarkWarning, UsageError
from ._options import given
from ._progress import Progress, Shown
from ._types import CheckReport, Info, Report, View
from ._words import in_python

PathLike = Union[str, bytes, "os.PathLike[Any]"]
#: A bundle, or one file or several.
Source = Union[Bundle, PathLike, Iterable[PathLike]]
Number = Union[int, float]
Range = Union[Number, Tuple[Number, Number], str]
Text = Union[str, Sequence[str]]

_PACKAGE = os.path.dirname(os.path.abspath(__file__)) + os.sep


def _warn(warning: Warning) -> None:
    """Warns of what the caller of this package did."""
    level = 1
    frame = sys._getframe()
    while frame is not None and frame.f_code.co_filename.startswith(_PACKAGE):
        frame = frame.f_back
        level += 1
    warnings.warn(warning, stacklevel=level)


def _is_path(value: object) -> bool:
    return isinstance(value, (str, bytes, os.PathLike))


def _source(source: Source) -> Union[Bundle, List[bytes]]:
    if isinstance(source, Bundle):
        return source
    files: Iterable[Any] = [source] if _is_path(source) else source
    return [os.fsencode(file) for file in files]


def _reported(done: Dict[str, Any], keep_going: bool = False, dry_run: bool = False) -> Report:
    """Raises what an export failed with, and warns of the rest."""
    report = Report(done)
    if dry_run:
        return report

    def fail(kind: type, message: str) -> None:
        error = kind("; ".join(report.errors + [message]))
        error.report = report
        raise error

    if report.failures and not keep_going:
        fail(ExportError, report.failures[0])
    for failure in report.failures:
        _warn(RemarkWarning(failure))
    if not done["completed"]:
        fail(ExportError, "the export failed; nothing was put in place")
    if done["why_nothing"]:
        fail(ExportError, "nothing was written: " + done["why_nothing"])
    if done["refused"] and not report.placed:
        texts = "\n".join(message for _, message in done["shown"])
        fail(LossError, f"nothing was put in place, because strict=True refuses losses; accept says which are fine:\n{texts}")
    for kind, message in done["shown"]:
        _warn(LossWarning(in_python(message), kind))
    for note in report.notes:
        _warn(RemarkWarning(note))
    if report.errors:
        fail(ExportError, "the files are in place anyway")
    return report


def open(*files: PathLike, slice_time: Union[None, Number, Sequence[Number]] = None,
         fragment_points: Optional[int] = None, memory_limit: Union[None, int, str] = None,
         sandbox: Optional[str] = None, crs: Any = None, classes: Union[None, int, Sequence[int], str] = None,
         returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
         box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
         z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
         time: Union[None, Range, Sequence[Range]] = None, grid: Optional[Text] = None, skip_unreadable: bool = False,
         jobs: Optional[int] = None, progress: Progress = None) -> Bundle:
    """Opens LAS, LAZ and bundle files and rasters as one bundle.

    The structure is read now, arrays when they are asked for; the files have to stay as they are.

    Args:
        files: recognised by their content.
        slice_time: the time of files that state none: one for all, or one for each. 0 by default.
        fragment_points: LAS and LAZ points are cut, in file order, into fragments of so many; 1 000 000 by default.
        memory_limit: the most memory for arrays, in bytes or as "512M". It holds for the whole process.
        sandbox: "require" refuses bundle files and rasters where what reads them cannot be locked.
        crs: the coordinate reference system of all grids: "EPSG:25832+5783", a file of well-known text, or "none".
            Nothing is transformed.
        classes: only points of these classes, 0 to 255.
        returns: only "first", "last" or "only" returns, or those of these numbers, 1 to 15.
        box: only points inside (xmin, ymin, xmax, ymax[, zmin, zmax]), without those on an upper face. Of lattices, rows
            and columns.
        cells_as_points: cells of rasters that have a value become points, and bands their fields.
        z_band: with cells_as_points, the band or field of their heights; 1 by default.
        merge: the files become one grid for each time.
        grid_name: with merge, its name; "merged" by default.
        time, grid: the times and the patterns of names of the grids that are chosen from and merged; others stay as they
            are, or with merge are left out.
        jobs: how many processors to read with; by default all that the process may use.
        skip_unreadable: leave out files that cannot be read, unless none can; `Bundle.failures` says why.
        progress: True, or a function of (text, done, total, unit).

    Raises:
        FileError, FormatError, LimitError, ModelError: a file cannot be read, or does not fit the others.
        UsageError: wrong arguments.
    """
    arguments = given(locals(), but=("files", "progress"))
    if not files:
        raise TypeError("open takes at least one file")
    with Shown(progress) as shown:
        bundle = _core.open([os.fsencode(file) for file in files], arguments, shown)
    for note in bundle.notes:
        _warn(RemarkWarning(in_python(note)))
    return bundle


def open_again(self: Bundle, *, classes: Union[None, int, Sequence[int], str] = None,
               returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
               box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
               z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
               time: Union[None, Range, Sequence[Range]] = None, grid: Optional[Text] = None,
               progress: Progress = None) -> Bundle:
    """Another bundle with some of the points, made of this one's arrays when they are asked for.

    Args:
        classes, returns, box, cells_as_points, z_band, merge, grid_name, time, grid, progress: see `tidewatch.open`.
    """
    arguments = given(locals(), but=("self", "progress"))
    with Shown(progress) as shown:
        chosen = _core.open(self, arguments, shown)
    for note in chosen.notes:
        _warn(RemarkWarning(in_python(note)))
    return chosen


def las(source: Source, output: PathLike, *, las_version: Union[None, str, float] = None, uncompressed: bool = False,
        tiles: bool = False, day: Optional[int] = None, year: Optional[int] = None, point_source_id: Optional[int] = None,
        rename: Optional[Dict[str, str]] = None, plain: bool = False, scale: Union[None, Number, Sequence[Number]] = None,
        offset: Union[None, Number, Sequence[Number]] = None, verify: bool = False,
        time: Union[None, Range, Sequence[Range]] = None, grid: Optional[Text] = None, field: Optional[Text] = None,
        overwrite: bool = False, last_wins: bool = False, each: bool = False, keep_going: bool = False,
        skip_existing: bool = False, part: Union[None, Sequence[int], str] = None, dry_run: bool = False,
        strict: bool = False, accept: Optional[Text] = None,
        slice_time: Union[None, Number, Sequence[Number]] = None, fragment_points: Optional[int] = None,
        memory_limit: Union[None, int, str] = None, sandbox: Optional[str] = None, crs: Any = None,
        classes: Union[None, int, Sequence[int], str] = None,
        returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
        box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
        z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
        tile_size: Optional[Number] = None, tile_origin: Union[None, Sequence[Number], str] = None,
        jobs: Optional[int] = None, progress: Progress = None) -> Report:
    """Writes points as LAS or LAZ files: aside, checked, and put in place together.

    Args:
        source: a bundle, or files as `open` takes them.
        output: the file; {grid}, {time} and {tile} in it give each grid, time or square its own. It ends in .laz or .las, or .laz is
            appended.
        las_version: "1.2", "1.3" or "1.4" (the default).
        uncompressed: LAS; also where output ends in .las.
        tiles: a file for each fragment.
        day, year: of the header; today by default.
        point_source_id: 1 to 65535, given to every point.
        rename: from fields to the LAS attributes that they are stored as.
        plain: what the exporter writes by itself, byte for byte as earlier exports.
        scale, offset: of coordinates, one number or (x, y, z); by default those of the input, else 0.00025 and the centre.
        verify: decode every file and compare it before it is put in place.
        time, grid, field: the times (6, (0, 6) or a list of these) and the patterns of names to write.
        overwrite: replace existing files.
        last_wins: grids of one file overwrite each other, and the last one remains.
        each: put each output in place as soon as it is written, whatever becomes of the others.
        keep_going: go on with the others where an output fails; the report has the failures. Implies each.
        skip_existing: leave outputs that are there already, so that an interrupted job goes on. Implies each.
        part: (k, n), write only every nth output from the kth: for n processes. Implies each.
        dry_run: write nothing; the report says what would be written (at most so many items, about so many bytes), lost,
            and in the way.
        strict: a loss is a `LossError`, and nothing is put in place.
        accept: kinds of losses that are fine: neither warned of nor refused.
        slice_time, fragment_points, memory_limit, sandbox, crs, classes, returns, box, cells_as_points, z_band, merge,
            grid_name: see `open`.
        tile_size: cut points into squares of this size; with {tile} in output each is a file, else a fragment.
        tile_origin: (x, y), a corner of a square; (0, 0) by default.
        jobs: how many processors to use; by default all that the process may use.
        progress: True, or a function of (text, done, total, unit).

    Returns:
        The files, what was lost, and notes. Losses are warned of (`LossWarning`), too.

    Raises:
        ExportError: nothing was written. LossError: a loss with strict. UsageError: wrong arguments, or grids that would
        overwrite each other. FileError and others: files cannot be read or written; then nothing is in place.
    """
    arguments = given(locals(), but=("source", "output", "progress"))
    with Shown(progress) as shown:
        return _reported(_core.las(_source(source), os.fsencode(output), arguments, shown), keep_going, dry_run)


def pcd(source: Source, output: PathLike, *, ref_level: Optional[int] = None, precision: Optional[int] = None,
        cell_size: Optional[Number] = None, thinning: bool = True, exact_counts: bool = False,
        time: Union[None, Range, Sequence[Range]] = None, grid: Optional[Text] = None, field: Optional[Text] = None,
        overwrite: bool = False, last_wins: bool = False, each: bool = False, keep_going: bool = False,
        skip_existing: bool = False, part: Union[None, Sequence[int], str] = None, dry_run: bool = False,
        strict: bool = False, accept: Optional[Text] = None,
        slice_time: Union[None, Number, Sequence[Number]] = None, fragment_points: Optional[int] = None,
        memory_limit: Union[None, int, str] = None, sandbox: Optional[str] = None, crs: Any = None,
        classes: Union[None, int, Sequence[int], str] = None,
        returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
        box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
        z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
        tile_size: Optional[Number] = None, tile_origin: Union[None, Sequence[Number], str] = None,
        jobs: Optional[int] = None, progress: Progress = None) -> Report:
    """Writes points as PCD files, one point for each cubic cell.

    Args:
        source: a bundle, or files as `open` takes them.
        output: the file; {grid} and {time} in it give each grid or time its own.
        ref_level: the refinement level; the highest by default.
        precision: significant digits, 8 by default.
        cell_size: the edge of a cell in units of the coordinates, 0.1 by default.
        thinning: False keeps all points, in their order.
        exact_counts: WIDTH and POINTS count the lines that follow.

    All other arguments, results and exceptions are those of `las`.
    """
    arguments = given(locals(), but=("source", "output", "progress", "thinning"))
    if not thinning:
        arguments["no_thinning"] = True
    with Shown(progress) as shown:
        return _reported(_core.pcd(_source(source), os.fsencode(output), arguments, shown), keep_going, dry_run)


def ascii(source: Source, output: PathLike, *, ref_level: Optional[int] = None, precision: Optional[int] = None,
          append: bool = False, tile_suffix: bool = False, filter_field: Optional[str] = None,
          cell_types: Union[None, Range, Sequence[Range]] = None,
          time: Union[None, Range, Sequence[Range]] = None, grid: Optional[Text] = None, field: Optional[Text] = None,
          overwrite: bool = False, last_wins: bool = False, each: bool = False, keep_going: bool = False,
          skip_existing: bool = False, part: Union[None, Sequence[int], str] = None, dry_run: bool = False,
          strict: bool = False, accept: Optional[Text] = None,
          slice_time: Union[None, Number, Sequence[Number]] = None, fragment_points: Optional[int] = None,
          memory_limit: Union[None, int, str] = None, sandbox: Optional[str] = None, crs: Any = None,
          classes: Union[None, int, Sequence[int], str] = None,
          returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
          box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
          z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
          tile_size: Optional[Number] = None, tile_origin: Union[None, Sequence[Number], str] = None,
          jobs: Optional[int] = None, progress: Progress = None) -> Report:
    """Writes fields as text: points as XYZ files, lattices as ESRI ASCII grids, other numbers as lists.

    Args:
        source: a bundle, or files as `open` takes them.
        output: the folder; {grid} and {time} in it give each grid or time its own.
        ref_level: the refinement level; the highest by default, -2 takes all.
        precision: decimals of the values of grids; 0, the default, means six.
        append: one file for each field; existing files are appended to.
        tile_suffix: names of grids end in the coordinates of their lower left corner.
        filter_field: the field with the type of each cell, "CellType" by default.
        cell_types: write the values of cells of these types, such as [1, (3, 5)]; all others become no-data cells.

    All other arguments, results and exceptions are those of `las`.
    """
    arguments = given(locals(), but=("source", "output", "progress"))
    with Shown(progress) as shown:
        return _reported(_core.ascii(_source(source), os.fsencode(output), arguments, shown), keep_going, dry_run)


def bundle(source: Source, output: PathLike, *, overwrite: bool = False, strict: bool = False,
           accept: Optional[Text] = None, slice_time: Union[None, Number, Sequence[Number]] = None,
           fragment_points: Optional[int] = None, memory_limit: Union[None, int, str] = None,
           sandbox: Optional[str] = None, crs: Any = None, classes: Union[None, int, Sequence[int], str] = None,
           returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
           box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
           z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
           tile_size: Optional[Number] = None, tile_origin: Union[None, Sequence[Number], str] = None,
           jobs: Optional[int] = None, progress: Progress = None) -> Report:
    """Writes a bundle file (HDF5), which holds everything that a bundle does.

    Arguments, results and exceptions are those of `las`.
    """
    arguments = given(locals(), but=("source", "output", "progress"))
    with Shown(progress) as shown:
        return _reported(_core.bundle(_source(source), os.fsencode(output), arguments, shown))


def info(source: Source, *, fields: bool = False, stats: bool = False, bounds: bool = False,
         slice_time: Union[None, Number, Sequence[Number]] = None, fragment_points: Optional[int] = None,
         memory_limit: Union[None, int, str] = None, sandbox: Optional[str] = None, crs: Any = None,
         jobs: Optional[int] = None, progress: Progress = None) -> Info:
    """What inputs are and hold, as a dict with the members of `tidewatch info --json`; its text is the program's.

    Args:
        source: a bundle, or files as `open` takes them.
        fields: the text shows grids, skeletons and fields. (The dict always has them.)
        stats: read everything, for ranges of fields, classes and returns.
        bounds: read positions, for the box of each grid.
        slice_time, fragment_points, memory_limit, sandbox, crs, jobs: see `open`.
        progress: True, or a function of (text, done, total, unit).

    Returns:
        The dict. `failures` says why files could not be read; if none could, that is raised.
    """
    arguments = given(locals(), but=("source", "progress"))
    with Shown(progress) as shown:
        text, members, failures, notes = _core.info(_source(source), arguments, shown)
    for note in notes:
        _warn(RemarkWarning(in_python(note)))
    return Info(json.loads(members), text, failures)


def check(file: PathLike, *, memory_limit: Union[None, int, str] = None, sandbox: Optional[str] = None,
          progress: Progress = None) -> CheckReport:
    """Checks whether a LAS, LAZ, PCD, ESRI ASCII grid, bundle or raster file conforms to its format, reading it once.

    What is wrong with the file is in the report; nothing is raised for it.
    """
    arguments = given(locals(), but=("file", "progress"))
    with Shown(progress) as shown:
        return CheckReport(_core.check(os.fsencode(file), arguments, shown))


def view(source: Source, output: Optional[PathLike] = None, *, points: Optional[int] = None,
         size: Union[None, Tuple[int, int], str] = None, color: Optional[str] = None, overwrite: bool = False,
         time: Union[None, Range, Sequence[Range]] = None, grid: Optional[Text] = None, field: Optional[Text] = None,
         slice_time: Union[None, Number, Sequence[Number]] = None, fragment_points: Optional[int] = None,
         memory_limit: Union[None, int, str] = None, sandbox: Optional[str] = None, crs: Any = None,
         classes: Union[None, int, Sequence[int], str] = None,
         returns: Union[None, int, str, Sequence[Union[int, str]]] = None,
         box: Union[None, Sequence[Number], str] = None, cells_as_points: bool = False,
         z_band: Union[None, int, str] = None, merge: bool = False, grid_name: Optional[str] = None,
         jobs: Optional[int] = None, progress: Progress = None) -> View:
    """Shows inputs: a page for any browser, or a picture from above.

    Args:
        source: a bundle, or files as `open` takes them.
        output: a page (.html) or a picture (.png) to write. Without it nothing is written, and a notebook shows the result:
            a picture where size or color is given or this build makes no pages, else a page.
        points: max points of a page; 1 000 000 by default, or fewer so that the page has no more than 25 MB.
        size: (width, height) of a picture in pixels, (1200, 900) by default.
        color: of a picture: "height", "class", "intensity", "return" or "rgb"; class where there are several, else height.
        overwrite: replace an existing file.
        time, grid, field: the times and the patterns of names to show.

    All other arguments are those of `open`.

    Returns:
        The page or picture; `pixels` of a picture are an array (height, width, 3) of uint8.
    """
    arguments = given(locals(), but=("source", "output", "overwrite", "progress"))
    name = os.fsdecode(output) if output is not None else ""
    kind = os.path.splitext(name)[1].lower()
    if output is not None and kind not in (".png", ".html", ".htm"):
        raise UsageError(f'output: "{name}" ends neither in .html (a page) nor in .png (a picture)')
    is_picture = kind == ".png" or (output is None and (size is not None or color is not None))
    if is_picture and points is not None:
        raise UsageError("points is an argument of pages")
    if not is_picture and (size is not None or color is not None):
        raise UsageError("size and color are arguments of pictures")
    if output is None and not is_picture and points is None and not _core.can_make_pages():
        is_picture = True
    inputs = _source(source)
    with Shown(progress) as shown:
        if is_picture:
            content, count, pixels = _core.view_picture(inputs, arguments, shown)
            made = View(content, "png", count, pixels)
        else:
            content, count, notes = _core.view_page(inputs, arguments, shown)
            made = View(content, "html", count)
            for note in notes:
                _warn(RemarkWarning(in_python(note)))
    if output is not None:
        _core.place_view(os.fsencode(output), overwrite, made.content, made.points,
                         inputs if isinstance(inputs, Bundle) else None,
                         [] if isinstance(inputs, Bundle) else inputs)
    return made


def sample(points: int = 200_000, seed: int = 1) -> Bundle:
    """A synthetic survey of a tidal coast for experiments: three times, each with a laser scan, "coast", and an elevation
    model, "elevation". Arrays are made when they are asked for.

    Args:
        points: of each time.
        seed: the same seed gives the same survey.
    """
    return _core.sample(points, seed)


def sandbox() -> Dict[str, Any]:
    """What of the sandbox of reading is in force: "seccomp", "landlock" (its version) and "limits"."""
    return dict(_core.sandbox())


for _function in (open, las, pcd, ascii, bundle, info, check, view, sample, sandbox):
    _function.__module__ = "tidewatch"
