# SPDX-License-Identifier: Apache-2.0
"""Point clouds, elevation grids and their attributes, between NumPy and LAS, LAZ, HDF5 bundle files, rasters, PCD and text.

    import tidewatch as tw

    survey = tw.open("survey.laz")              # structure now, arrays on demand
    grid = survey[0]["survey"]                  # slice by time, grid by name
    xyz = grid["Positions"]                     # (n, 3) float64
    tw.las(survey, "ground.laz", classes=2)     # LAZ of some of the points

docs/python.md describes everything.
"""

from ._core import (LOSS_KINDS, Bundle, ExportPointCloudToASCII, ExportPointCloudToLas, ExportPointCloudToPCD, Fragment,
                    Grid, Skeleton, Slice, __version__)
from ._calls import ascii, bundle, check, info, las, open, pcd, sample, sandbox, view
from ._errors import (Error, ExportError, FileError, FormatError, LimitError, LossError, LossWarning, ModelError,
                      RemarkWarning, UsageError)
from ._types import CheckReport, File, Finding, Info, Lattice, Loss, Report, View, WrittenFile
from . import _model

__all__ = [
    "Bundle", "CheckReport", "Error", "ExportError", "ExportPointCloudToASCII", "ExportPointCloudToLas",
    "ExportPointCloudToPCD", "File", "FileError", "Finding", "FormatError", "Fragment", "Grid", "Info", "LOSS_KINDS",
    "Lattice", "LimitError", "Loss", "LossError", "LossWarning", "ModelError", "RemarkWarning", "Report", "Skeleton",
    "Slice", "UsageError", "View", "WrittenFile", "__version__", "ascii", "bundle", "cache", "check", "info", "las",
    "open", "pcd", "sample", "sandbox", "view",
]

cache = _model.Cache()
del _model
