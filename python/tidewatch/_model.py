# SPDX-License-Identifier: Apache-2.0
"""What the classes of the model have in Python: the methods of mappings, and how they are shown."""

from __future__ import annotations

import html
import json
from collections.abc import Mapping
from typing import Any, Dict, List, Optional, Sequence, Tuple

from . import _core
from ._calls import open_again
from ._core import Bundle, Fragment, Grid, Skeleton, Slice
from ._options import system


class Cache:
    """The memory cache of the process, which holds arrays that can be read again from files. What NumPy has of them is out
    of its reach: it stays, whatever the limit."""

    @property
    def limit(self) -> int:
        """Bytes; 512 MiB unless it is set, here or by `memory_limit`."""
        return _core.cache_limit()

    @limit.setter
    def limit(self, bytes: int) -> None:
        _core.set_cache_limit(bytes)

    @property
    def bytes(self) -> int:
        """Bytes in use."""
        return _core.cache_bytes()

    def __repr__(self) -> str:
        return f"<tidewatch.cache: {self.bytes} of {self.limit} bytes>"


# Mappings

for _type in (Bundle, Slice, Grid, Skeleton, Fragment):
    for _name in ("keys", "items", "values", "get"):
        setattr(_type, _name, getattr(Mapping, _name))
    Mapping.register(_type)
    _type.__module__ = "tidewatch"
for _type in (_core.ExportPointCloudToLas, _core.ExportPointCloudToPCD, _core.ExportPointCloudToASCII):
    _type.__module__ = "tidewatch"


def _update(self: Any, values: Any = (), **more: Any) -> None:
    """Sets fields: from a mapping, a structured array (a field for each of its own), or keywords."""
    names = getattr(getattr(values, "dtype", None), "names", None)
    if names:
        values = {name: values[name] for name in names}
    for name, array in dict(values, **more).items():
        self[name] = array


Grid.update = _update
Skeleton.update = _update
Fragment.update = _update


# Bundles

def _enter(self: Bundle) -> Bundle:
    return self


def _exit(self: Bundle, *exception: object) -> None:
    self.close()


Bundle.__enter__ = _enter
Bundle.__exit__ = _exit
Bundle.choose = open_again


# Slices and grids

_made_grid = Slice.grid
_crs = Grid.crs


def _grid(self: Slice, name: str, *, crs: Any = None, like: Optional[Grid] = None) -> Grid:
    """The grid of that name, made if there is none.

    Args:
        crs: the coordinate reference system of a new grid: "EPSG:25832+5783", well-known text, a file of it, or an object
            with to_wkt().
        like: another grid, whose reference system and `statement` (steps and offset of coordinates, GPS time, records) a
            new one gets, and its fields how files store them.
    """
    return _made_grid(self, name, crs=system(crs), like=like)


def _lattice(self: Slice, name: str, origin: Sequence[float], spacing: Any, *, shape: Optional[Tuple[int, ...]] = None,
             crs: Any = None, like: Optional[Grid] = None, **fields: Any) -> Grid:
    """Makes a uniform grid, such as an elevation model.

    Args:
        origin: where the first place is, the centre of the south-western cell: (x, y) or (x, y, z).
        spacing: from place to place: one number, (dx, dy) or (dx, dy, dz).
        shape: (rows, columns) or (layers, rows, columns); that of the first field by default.
        crs, like: as for `grid`.
        fields: arrays of that shape, the first row the southernmost: Height, CellType (0: no data), ...
    """
    return self._lattice(name, origin, spacing, shape, system(crs), like, fields)


def _get_crs(self: Grid) -> Optional[str]:
    """The coordinate reference system: its code, "EPSG:25832+5783", else well-known text; None if there is none.

    May be set to these, a file of well-known text, or an object with to_wkt(). Nothing is transformed.
    """
    return _crs.__get__(self)


def _set_crs(self: Grid, value: Any) -> None:
    _crs.__set__(self, system(value))


Slice.grid = _grid
Slice.lattice = _lattice
Grid.crs = property(_get_crs, _set_crs)


# How they are shown

def _grouped(number: int) -> str:
    return f"{number:,}".replace(",", " ")


def _counted(number: int, what: str) -> str:
    return f"{_grouped(number)} {what}{'' if number == 1 else 's'}"


def _inventory(bundle: Bundle) -> Dict[str, Any]:
    return json.loads(_core.info(bundle, {}, None)[1])


def _slice_of(bundle: Bundle, time: float) -> Dict[str, Any]:
    for one in _inventory(bundle)["slices"]:
        if one["time"] == time:
            return one
    return {"time": time, "grids": []}


def _grid_of(grid: Grid) -> Dict[str, Any]:
    for one in _slice_of(grid._bundle, grid.time)["grids"]:
        if one["name"] == grid.name:
            return one
    return {"name": grid.name, "points": 0, "fragments": 0, "skeletons": []}


def _fields(grid: Dict[str, Any]) -> List[Dict[str, Any]]:
    """Those that the grid itself has: of the finest of its vertices."""
    vertices = [skeleton for skeleton in grid["skeletons"]
                if skeleton["dimension"] == 0 and len(set(skeleton["refinement"])) <= 1]
    finest = max(vertices, key=lambda skeleton: skeleton["refinement"][:1] or [0], default={"representations": []})
    return [field for representation in finest["representations"][:1] for field in representation["fields"]]


def _shape(field: Dict[str, Any]) -> str:
    extents = field.get("extents", [])
    if len(extents) == 3 and extents[2] == 1:
        extents = extents[:2]
    return " × ".join(_grouped(extent) for extent in reversed(extents)) or _grouped(field["elements"])


def _about(grid: Dict[str, Any]) -> str:
    """Points, fragments and reference system."""
    texts = [_counted(grid["points"], "point")]
    if grid["fragments"] > 1:
        texts.append(_counted(grid["fragments"], "fragment"))
    system_of = grid.get("reference_system") or {}
    if system_of:
        texts.append(system_of.get("code") or system_of["name"])
    return ", ".join(texts)


def _table(grid: Dict[str, Any], indent: str) -> List[str]:
    fields = _fields(grid)
    rows = [(field["name"], field["type"], _shape(field)) for field in fields]
    widths = [max((len(row[column]) for row in rows), default=0) for column in range(3)]
    return [f"{indent}{row[0]:<{widths[0]}}  {row[1]:<{widths[1]}}  {row[2]:>{widths[2]}}" for row in rows]


def _slice_lines(members: Dict[str, Any]) -> List[str]:
    lines = []
    for grid in members["grids"]:
        lines.append(f'    {grid["name"]}: {_about(grid)}')
        lines.append("      " + ", ".join(field["name"] for field in _fields(grid)))
    return lines


def _bundle_repr(self: Bundle) -> str:
    if self.closed:
        return "<tidewatch.Bundle, closed>"
    slices = _inventory(self)["slices"]
    grids = sum(len(one["grids"]) for one in slices)
    lines = [f"<tidewatch.Bundle: {_counted(len(slices), 'time slice')}, {_counted(grids, 'grid')}>"]
    for one in slices:
        lines += [f'  time {one["time"]:g}'] + _slice_lines(one)
    return "\n".join(lines)


def _slice_repr(self: Slice) -> str:
    members = _slice_of(self._bundle, self.time)
    return "\n".join([f"<tidewatch.Slice: time {self.time:g}, {_counted(len(members['grids']), 'grid')}>"]
                     + _slice_lines(members))


def _grid_repr(self: Grid) -> str:
    members = _grid_of(self)
    return "\n".join([f'<tidewatch.Grid "{self.name}": time {self.time:g}, {_about(members)}>'] + _table(members, "  "))


_LEFT = ' style="text-align: left"'


def _grid_html(grid: Dict[str, Any]) -> str:
    head = "".join(f"<th{_LEFT}>{title}</th>" for title in ("field", "type", "values"))
    rows = "".join(
        "<tr>" + "".join(f"<td{_LEFT}>{html.escape(cell)}</td>" for cell in (field["name"], field["type"], _shape(field)))
        + "</tr>" for field in _fields(grid))
    return (f'<details><summary><b>{html.escape(grid["name"])}</b>: {html.escape(_about(grid))}</summary>'
            f"<table><thead><tr>{head}</tr></thead><tbody>{rows}</tbody></table></details>")


def _slice_html(members: Dict[str, Any]) -> str:
    return (f'<div>time {members["time"]:g}</div><div style="margin-left: 1em">'
            + "".join(_grid_html(grid) for grid in members["grids"]) + "</div>")


def _bundle_html(self: Bundle) -> str:
    if self.closed:
        return "<div>tidewatch.Bundle, closed</div>"
    return "<div><b>tidewatch.Bundle</b></div>" + "".join(_slice_html(one) for one in _inventory(self)["slices"])


Bundle.__repr__ = _bundle_repr
Bundle._repr_html_ = _bundle_html
Slice.__repr__ = _slice_repr
Slice._repr_html_ = lambda self: _slice_html(_slice_of(self._bundle, self.time))
Grid.__repr__ = _grid_repr
Grid._repr_html_ = lambda self: _grid_html(_grid_of(self))
Skeleton.__repr__ = lambda self: (f"<tidewatch.Skeleton of dimension {self.dimension}, refinement "
                                  f"{self.refinement}: {', '.join(self)}>")
Fragment.__repr__ = lambda self: (f"<tidewatch.Fragment {json.dumps(self.name)}: {', '.join(self)}>"
                                  if self.name is not None else f"<tidewatch.Fragment: {', '.join(self)}>")
