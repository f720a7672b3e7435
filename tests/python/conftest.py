# SPDX-License-Identifier: Apache-2.0
"""What the tests of the Python package share. Each runs in a folder of its own."""

import os
import warnings

import numpy as np
import pytest

import tidewatch as tw

PROGRAM = os.environ.get("TIDEWATCH_PROGRAM_PATH", "")
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@pytest.fixture(autouse=True)
def own_folder(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    return tmp_path


@pytest.fixture
def cloud():
    """A bundle of one grid, "coast", at time 0: 1000 points with three fields."""
    random = np.random.default_rng(1)
    bundle = tw.Bundle()
    grid = bundle.slice(0).grid("coast")
    grid["Positions"] = np.round(random.uniform(0, 100, (1000, 3)), 3)
    grid["Intensity"] = random.integers(0, 65536, 1000)
    grid["Classification"] = random.integers(1, 6, 1000)
    return bundle


@pytest.fixture
def quiet():
    """No warnings of losses."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", tw.LossWarning)
        warnings.simplefilter("ignore", tw.RemarkWarning)
        yield


@pytest.fixture(scope="session")
def survey_file(tmp_path_factory):
    """A LAZ file of 5000 points with all attributes."""
    path = tmp_path_factory.mktemp("survey") / "survey.laz"
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        tw.las(tw.sample(5000), path, time=0, grid="coast", crs=None)
    return path


def pytest_sessionfinish(session, exitstatus):
    """If no test could run, CTest shall know why."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    if reporter is None:
        return
    skipped = reporter.stats.get("skipped", [])
    others = [name for name in ("passed", "failed", "error") if reporter.stats.get(name)]
    if skipped and not others:
        print(f"\nSKIPPED: {skipped[0].longrepr[2].replace('Skipped: ', '')}")
