# SPDX-License-Identifier: Apache-2.0
"""Options of the program in messages of the library, as arguments in Python."""

from __future__ import annotations

import functools
import inspect
import re

#: Options whose arguments have other names: the program's name, and what to write in Python.
RENAMED = {"class": "classes", "no-thinning": "thinning=False", "crs": "crs"}
_OPTION = re.compile(r"(?<![\w-])--([a-z]+(?:-[a-z]+)*)(?![\w-])")


@functools.lru_cache(maxsize=None)
def _arguments() -> dict[str, str]:
    """The arguments of all functions that share their options with the program, as messages write them."""
    from . import _calls  # which imports this module
    return {
        name: name + "=True" if isinstance(parameter.default, bool) else name
        for function in (_calls.las, _calls.pcd, _calls.ascii, _calls.bundle, _calls.info, _calls.check, _calls.view,
                         _calls.sample, _calls.open)
        for name, parameter in inspect.signature(function).parameters.items()
    }


def _argument(match: re.Match[str]) -> str:
    name = match.group(1)
    return RENAMED.get(name) or _arguments().get(name.replace("-", "_"), match.group())


def in_python(text: str) -> str:
    """The text with the program's options as arguments: "--cell-size" becomes "cell_size"."""
    return _OPTION.sub(_argument, text)
