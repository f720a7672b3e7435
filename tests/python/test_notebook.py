# SPDX-License-Identifier: Apache-2.0
"""The notebook runs from top to bottom, with a real cloud where there is one."""

import os
import shutil
import subprocess
import sys

import pytest

from conftest import SOURCE

pytest.importorskip("nbconvert", reason="no nbconvert: scripts/setup.sh installs it")
pytest.importorskip("ipykernel", reason="no ipykernel: scripts/setup.sh installs it")
pytest.importorskip("matplotlib", reason="no matplotlib: scripts/setup.sh installs it")
nbformat = pytest.importorskip("nbformat", reason="no nbformat: scripts/setup.sh installs it")

NOTEBOOK = os.path.join(SOURCE, "examples", "tides.ipynb")
DATA = os.path.join(os.environ.get("TIDEWATCH_SHARED") or os.path.join(SOURCE, "..", "shared"), "data")


def test_the_notebook_runs_and_draws(tmp_path):
    shutil.copy(NOTEBOOK, tmp_path)
    cloud = os.path.join(DATA, "autzen_trim.laz")
    environment = dict(os.environ, HOME=str(tmp_path), JUPYTER_PATH="", MPLBACKEND="",
                       TIDEWATCH_CLOUD=cloud if os.path.exists(cloud) else "")
    del environment["MPLBACKEND"]
    done = subprocess.run([sys.executable, "-m", "nbconvert", "--to", "notebook", "--execute", "--output", "done.ipynb",
                           "tides.ipynb"], env=environment, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    outputs = [output for cell in nbformat.read(tmp_path / "done.ipynb", 4).cells if cell.cell_type == "code"
               for output in cell.outputs]
    assert sum("image/png" in output.get("data", {}) for output in outputs) == 3
    assert any("<table>" in output.get("data", {}).get("text/html", "") for output in outputs)
    assert not [output for output in outputs if output.get("name") == "stderr"]
    told = "".join(output.text for output in outputs if output.get("name") == "stdout")
    assert "57.2 ha under water at high tide; the surface there is 3.28 m higher" in told


def test_the_notebook_is_stored_without_its_outputs():
    for cell in nbformat.read(NOTEBOOK, 4).cells:
        if cell.cell_type == "code":
            assert not cell.outputs and cell.execution_count is None
