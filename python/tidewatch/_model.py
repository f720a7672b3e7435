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

def _inventory(bundle: Bundle) -> Tuple[str, Dict[str, Any]]:
    text, members, _, _ = _core.info(bundle, {"fields": True}, None)
    return text, json.loads(members)


def _grouped(number: int) -> str:
    return f"{number:,}".replace(",", " ")


def _members(grid: Grid) -> Dict[str, Any]:
    for one in _inventory(grid._bundle)[1]["slices"]:
        if one["time"] == grid.time:
            for found in one["grids"]:
                if found["name"] == grid.name:
                    return found
    return {"name": grid.name, "points": 0, "fragments": 0, "skeletons": []}


def _fields_of(grid: Dict[str, Any]) -> List[Dict[str, Any]]:
    return [dict(field, skeleton=skeleton) for skeleton in grid["skeletons"]
            for representation in skeleton["representations"] for field in representation["fields"]]


def _shape(field: Dict[str, Any]) -> str:
    return " × ".join(_grouped(extent) for extent in field.get("extents", ())) or _grouped(field["elements"])


def _grid_text(grid: Dict[str, Any], time: float) -> str:
    lines = [f'<tidewatch.Grid "{grid["name"]}" at time {time:g}: {_grouped(grid["points"])} points'
             + (f', {grid["fragments"]} fragments' if grid["fragments"] > 1 else "")
             + (f', {grid["reference_system"]["name"]}' if grid.get("reference_system") else "") + ">"]
    fields = _fields_of(grid)
    width = max((len(field["name"]) for field in fields), default=0)
    lines += [f'  {field["name"]:<{width}}  {field["type"]:<8} {_shape(field)}' for field in fields]
    return "\n".join(lines)


def _grid_html(grid: Dict[str, Any]) -> str:
    system_name = (grid.get("reference_system") or {}).get("name", "")
    rows = "".join(
        "<tr>" + "".join(f'<td style="text-align: left">{html.escape(str(cell))}</td>' for cell in (
            field["name"], field["type"], _shape(field), field["fragments"])) + "</tr>"
        for field in _fields_of(grid))
    return (f'<details open><summary><b>{html.escape(grid["name"])}</b>: {_grouped(grid["points"])} points'
            f'{", " + html.escape(system_name) if system_name else ""}</summary>'
            '<table><thead><tr><th style="text-align: left">field</th><th style="text-align: left">type</th>'
            '<th style="text-align: left">values</th><th style="text-align: left">fragments</th></tr></thead>'
            f"<tbody>{rows}</tbody></table></details>")


def _slice_html(members: Dict[str, Any]) -> str:
    return (f'<div>time {members["time"]:g}</div><div style="margin-left: 1em">'
            + "".join(_grid_html(grid) for grid in members["grids"]) + "</div>")


def _bundle_repr(self: Bundle) -> str:
    if self.closed:
        return "<tidewatch.Bundle, closed>"
    text = _inventory(self)[0].rstrip("\n")
    return "<tidewatch.Bundle>\n" + text


def _bundle_html(self: Bundle) -> str:
    if self.closed:
        return "<div>tidewatch.Bundle, closed</div>"
    return "<div>tidewatch.Bundle</div>" + "".join(_slice_html(one) for one in _inventory(self)[1]["slices"])


def _slice_members(self: Slice) -> Dict[str, Any]:
    for one in _inventory(self._bundle)[1]["slices"]:
        if one["time"] == self.time:
            return one
    return {"time": self.time, "grids": []}


def _slice_repr(self: Slice) -> str:
    members = _slice_members(self)
    return "\n".join([f"<tidewatch.Slice at time {self.time:g}: {len(members['grids'])} grids>"]
                     + [f'  {grid["name"]}: {_grouped(grid["points"])} points' for grid in members["grids"]])


Bundle.__repr__ = _bundle_repr
Bundle._repr_html_ = _bundle_html
Slice.__repr__ = _slice_repr
Slice._repr_html_ = lambda self: _slice_html(_slice_members(self))
Grid.__repr__ = lambda self: _grid_text(_members(self), self.time)
Grid._repr_html_ = lambda self: _grid_html(_members(self))
Skeleton.__repr__ = lambda self: (f"<tidewatch.Skeleton of dimension {self.dimension}, refinement "
                                  f"{self.refinement}: {', '.join(self)}>")
Fragment.__repr__ = lambda self: (f"<tidewatch.Fragment {json.dumps(self.name)}: {', '.join(self)}>"
                                  if self.name is not None else f"<tidewatch.Fragment: {', '.join(self)}>")
