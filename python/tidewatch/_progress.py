# SPDX-License-Identifier: Apache-2.0
"""Progress that is shown without a function of the user's own."""

from __future__ import annotations

import sys
from typing import Any, Callable, Optional, Tuple, Union

#: Gets what is being done, how much of it is done, how much there is (0 if it is not known), and the unit of both.
ProgressFunction = Callable[[str, float, float, str], Any]
Progress = Union[None, bool, ProgressFunction]


class _Bars:
    """A bar of tqdm for each piece of work."""

    def __init__(self, tqdm: Any) -> None:
        self._tqdm = tqdm
        self._bar: Any = None
        self._work: Optional[Tuple[float, str]] = None

    def __call__(self, text: str, done: float, total: float, unit: str) -> None:
        if (total, unit) != self._work:
            self.close()
            self._work = (total, unit)
            self._bar = self._tqdm(total=total or None, desc=text, unit=f" {unit}" if unit else "", unit_scale=bool(unit))
        self._bar.set_description(text)
        self._bar.update(max(0, done - self._bar.n))

    def close(self) -> None:
        if self._bar is not None:
            self._bar.close()
            self._bar = None


class _Lines:
    """A line of text on standard error, where tqdm is not installed."""

    def __init__(self) -> None:
        self._length = 0

    def __call__(self, text: str, done: float, total: float, unit: str) -> None:
        line = f"{text} {100 * done / total:.0f} %" if total else text
        sys.stderr.write("\r" + line.ljust(self._length))
        sys.stderr.flush()
        self._length = len(line)

    def close(self) -> None:
        if self._length:
            sys.stderr.write("\n")


class Shown:
    """The function that gets the progress of a call, closed at its end: `with Shown(progress) as function`."""

    def __init__(self, progress: Progress) -> None:
        self._own: Any = None
        self._function: Optional[ProgressFunction] = None
        if progress is True:
            try:
                from tqdm.auto import tqdm
            except ImportError:
                self._own = _Lines()
            else:
                self._own = _Bars(tqdm)
            self._function = self._own
        elif progress:
            if not callable(progress):
                raise TypeError(f"progress takes True or a function, not {progress!r}")
            self._function = progress

    def __enter__(self) -> Optional[ProgressFunction]:
        return self._function

    def __exit__(self, *exception: object) -> None:
        if self._own is not None:
            self._own.close()
