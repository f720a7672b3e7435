# SPDX-License-Identifier: Apache-2.0
"""Arguments as the texts that the library's options take: it alone knows what they mean, and what is wrong with them."""

from __future__ import annotations

import numbers
import os
from typing import Any, Callable, Dict, Iterable, List, Tuple, Union

Text = Union[str, bytes]


def _number(value: Any) -> str:
    if isinstance(value, numbers.Integral) and not isinstance(value, bool):
        return str(int(value))
    if isinstance(value, numbers.Real) and not isinstance(value, bool):
        return repr(float(value))
    raise TypeError(f"a number is expected, not {value!r}")


def _is_list(value: Any) -> bool:
    return isinstance(value, Iterable) and not isinstance(value, (str, bytes))


def _text(value: Any) -> Text:
    return value if isinstance(value, (str, bytes)) else _number(value)


def _joined(value: Any) -> Text:
    """2, [2, 9] or "2,9"."""
    return ",".join(str(_text(part)) for part in value) if _is_list(value) else _text(value)


def _range(value: Any) -> Text:
    """6, (0, 6) or "0:6"."""
    if not _is_list(value):
        return _text(value)
    ends = tuple(value)
    if len(ends) != 2:
        raise TypeError(f"a range has two ends, not {value!r}")
    return ":".join(str(_text(end)) for end in ends)


def _part(value: Any) -> Text:
    """(2, 8) or "2/8"."""
    return "/".join(str(_text(number)) for number in value) if _is_list(value) else _text(value)


def _ranges(value: Any) -> List[Text]:
    """One range, or a list of them; two numbers in a tuple are the ends of one."""
    if isinstance(value, tuple) and len(value) == 2 and not any(_is_list(end) for end in value):
        return [_range(value)]
    return [_range(part) for part in value] if _is_list(value) else [_text(value)]


def _several(value: Any) -> List[Text]:
    return [_text(part) for part in value] if _is_list(value) else [_text(value)]


def _renames(value: Any) -> List[Text]:
    return [f"{field}={attribute}" for field, attribute in dict(value).items()]


def _file(value: Any) -> Text:
    return os.fsencode(value) if isinstance(value, os.PathLike) else _system(value)


def _system(value: Any) -> Text:
    """A reference system: a text, or an object that has well-known text, such as pyproj's."""
    if isinstance(value, (str, bytes)):
        return value
    if hasattr(value, "to_wkt"):
        return str(value.to_wkt())
    raise TypeError(f"a reference system is a text or has to_wkt(), not {value!r}")


_FORMS: Dict[str, Callable[[Any], Union[Text, List[Text]]]] = {
    "time": _ranges,
    "grid": _several,
    "field": _several,
    "accept": _several,
    "rename": _renames,
    "crs": _file,
    "slice_time": _joined,
    "classes": _joined,
    "returns": _joined,
    "box": _joined,
    "part": _part,
    "scale": _joined,
    "offset": _joined,
    "tile_origin": _joined,
    "cell_types": lambda value: ",".join(str(part) for part in _ranges(value)),
    "size": lambda value: "x".join(str(_text(part)) for part in value) if _is_list(value) else _text(value),
}


def given(arguments: Dict[str, Any], but: Tuple[str, ...] = ()) -> Dict[str, Any]:
    """The arguments that are not at their defaults, which are None and False, without those of the names `but`."""
    result: Dict[str, Any] = {}
    for name, value in arguments.items():
        if name in but or value is None or value is False:
            continue
        if value is True:
            result[name] = True
            continue
        try:
            result[name] = _FORMS.get(name, _text)(value)
        except TypeError as error:
            raise TypeError(f"{name}: {error}") from None
    return result


def system(value: Any) -> Any:
    """The value of a grid's `crs` as a text, or None."""
    return None if value is None else _system(value)
