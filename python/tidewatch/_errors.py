# SPDX-License-Identifier: Apache-2.0
"""The exceptions and warnings of tidewatch. Import them from tidewatch."""

from __future__ import annotations

from ._words import in_python


class Error(Exception):
    """Whatever goes wrong in tidewatch. The text names the file, the object in it and the cause.

    Attributes:
        file: the file, or "" where there is none.
        object: what in the file, such as a grid or "point 17", or "".
        cause: what is wrong.
    """

    def __init__(self, message: str = "", file: str = "", object: str = "", cause: str = "") -> None:
        message = in_python(message)
        super().__init__(message)
        self.file = file
        self.object = object
        self.cause = in_python(cause) or message

    def __str__(self) -> str:
        return str(self.args[0]) if self.args else ""


class FileError(Error, OSError):
    """A file cannot be opened, read, written or put in place."""


class FormatError(Error, ValueError):
    """The content of a file is damaged, or of a kind that is not read."""


class LimitError(Error, MemoryError):
    """A request exceeds a limit, mostly one for memory."""


class ModelError(Error, ValueError):
    """A bundle cannot hold what it was asked to."""


class UsageError(Error, ValueError):
    """A value that an argument does not take, or arguments that exclude each other."""


class ExportError(Error):
    """An export that wrote nothing, or whose exporter recorded an error.

    Attributes:
        report: the `Report`. Its files are in place if `report.placed` is true.
    """

    report = None


class LossError(ExportError):
    """A loss that `strict=True` does not allow; nothing was put in place. `report.losses` has all of them."""


class LossWarning(UserWarning):
    """Something that an export drops or changes.

    Attributes:
        kind: for programs, one of `tidewatch.LOSS_KINDS`.
    """

    def __init__(self, message: str = "", kind: str = "") -> None:
        super().__init__(message)
        self.kind = kind


class RemarkWarning(UserWarning):
    """A remark that is neither a loss nor an error."""


for _class in (Error, FileError, FormatError, LimitError, ModelError, UsageError, ExportError, LossError, LossWarning,
               RemarkWarning):
    _class.__module__ = "tidewatch"
