# SPDX-License-Identifier: Apache-2.0
"""Options of the program in messages of the library, as arguments in Python."""

from __future__ import annotations

import re

#: Options whose arguments have other names: the program's name, and what to write in Python.
RENAMED = {"class": "classes", "no-thinning": "thinning=False", "crs": "crs"}
_OPTIONS = (
    "accept append box cell-size cell-types cells-as-points class color crs day exact-counts field filter-field "
    "fragment-points grid grid-name last-wins las-version memory-limit merge no-thinning offset overwrite plain points "
    "precision ref-level rename returns sandbox scale size slice-time strict tile-suffix tiles time uncompressed verify "
    "year z-band").split()
_FLAGS = set("append cells-as-points exact-counts last-wins merge overwrite plain strict tile-suffix tiles uncompressed "
             "verify".split())
_OPTION = re.compile(r"(?<![\w-])--(" + "|".join(sorted(_OPTIONS, key=len, reverse=True)) + r")(?![\w-])")


def _argument(match: re.Match[str]) -> str:
    name = match.group(1)
    if name in RENAMED:
        return RENAMED[name]
    return name.replace("-", "_") + ("=True" if name in _FLAGS else "")


def in_python(text: str) -> str:
    """The text with the program's options as arguments: "--cell-size" becomes "cell_size"."""
    return _OPTION.sub(_argument, text)
