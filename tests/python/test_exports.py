# SPDX-License-Identifier: Apache-2.0
"""NumPy, files, and NumPy again."""

import os
import warnings

import numpy as np
import pytest

import tidewatch as tw

FIELDS = {"Intensity": ("u2", 65535), "Classification": ("u1", 255), "ReturnNumber": ("u1", 15),
          "NumberOfReturns": ("u1", 15), "EdgeOfFlightLine": ("u1", 1), "ScanDirectionFlag": ("u1", 1),
          "UserData": ("u1", 255), "PointSourceID": ("u2", 65535), "Synthetic": ("u1", 1), "KeyPoint": ("u1", 1),
          "Withheld": ("u1", 1), "Overlap": ("u1", 1), "ScannerChannel": ("u1", 3), "Red": ("u2", 65535),
          "Green": ("u2", 65535), "Blue": ("u2", 65535), "NearInfrared": ("u2", 65535), "Depth": ("f4", 100),
          "Level": ("i4", 10**6)}


@pytest.fixture
def full():
    """A grid with everything that LAS 1.4 holds, at coordinates in millimetres."""
    random = np.random.default_rng(3)
    bundle = tw.Bundle()
    grid = bundle.slice(2.5).grid("full", crs="EPSG:25832")
    grid["Positions"] = random.integers(0, 10**6, (2000, 3)) / 1000 + [431000, 5921000, 0]
    for name, (dtype, most) in FIELDS.items():
        grid[name] = random.integers(0, most, 2000, endpoint=True).astype(dtype)
    grid["ScanAngleRank"] = random.integers(-30000, 30000, 2000).astype("i2")
    grid["GPSTime"] = random.uniform(0, 604800, 2000)
    return bundle


@pytest.mark.parametrize("suffix", ["laz", "las"])
def test_las_carries_every_field(full, suffix):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        report = tw.las(full, f"{{grid}}-{{time}}.{suffix}", scale=0.001, verify=True)
    assert [str(file) for file in report] == [f"full-2.5.{suffix}"] and not report.losses and report.placed
    assert (report[0].items, report[0].unit, report[0].grid, report[0].time) == (2000, "points", "full", 2.5)
    assert os.path.getsize(report[0]) == report[0].bytes
    source = full[2.5]["full"]
    back = tw.open(report[0], slice_time=2.5)[2.5]["full-2.5"]
    np.testing.assert_allclose(back["Positions"], source["Positions"], atol=1e-9, rtol=0)
    for name in source:
        if name != "Positions":
            np.testing.assert_array_equal(back[name], source[name], err_msg=name)
            assert back[name].dtype == source[name].dtype, name
    assert back.crs == "EPSG:25832"


def test_a_bundle_file_holds_everything(full):
    full.slice(0).lattice("dem", (1, 2), 0.5, Height=np.arange(12.0).reshape(3, 4))
    grid = full[0].grid("parts")
    for name in ("a", "b"):
        grid.fragment(name)["Positions"] = np.random.default_rng(0).random((3, 3))
    report = tw.bundle(full, "all.h5")
    assert not report.losses
    back = tw.open("all.h5")
    assert list(back) == [0, 2.5] and list(back[0]) == ["dem", "parts"]
    for time in full:
        for name, grid in full[time].items():
            assert list(back[time][name]) == list(grid)
            for field in grid:
                np.testing.assert_array_equal(back[time][name][field], grid[field])
                assert back[time][name].element_type(field) == grid.element_type(field)
    assert back[0]["dem"].lattice == full[0]["dem"].lattice


def test_pcd_keeps_points_and_intensities(cloud, quiet):
    tw.pcd(cloud, "a.pcd", thinning=False, precision=12)
    lines = open("a.pcd").read().splitlines()
    data = np.array([line.split() for line in lines[lines.index("DATA ascii") + 1:]], float)
    assert data.shape[0] == 1000
    positions = cloud[0]["coast"]["Positions"]
    # PCD states them from a corner of whole numbers, which is in the header.
    np.testing.assert_allclose(np.ptp(data[:, :3], axis=0), np.ptp(positions, axis=0), atol=1e-6)
    assert len(tw.pcd(cloud, "b.pcd", cell_size=50)) == 1
    assert tw.check("a.pcd").ok


def test_xyz_text_is_what_numpy_reads(cloud):
    report = tw.ascii(cloud, "text", field="Positions")
    assert [file.path for file in report] == ["text/Positions/Unfragmented.asc"]
    np.testing.assert_allclose(np.loadtxt(report[0]), cloud[0]["coast"]["Positions"], atol=1e-6)


def test_a_lattice_becomes_an_esri_grid(quiet):
    heights = np.round(np.random.default_rng(5).uniform(-5, 5, (6, 7)), 3)
    types = np.ones((6, 7))
    types[2, 3] = 0
    bundle = tw.Bundle()
    bundle.slice(0).lattice("dem", (100, 200), 2, Height=heights, CellType=types)
    report = tw.ascii(bundle, "grids", field="Height", cell_types=[1], precision=3)
    lines = open(report[0]).read().splitlines()
    header = dict(line.split() for line in lines[:6])
    values = np.array([line.split() for line in lines[6:]], float)[::-1]  # the first line is the northernmost
    assert header["NCOLS"] == "7" and header["NROWS"] == "6"
    no_data = float(header["NODATA_VALUE"])
    assert values[2, 3] == no_data and (values == no_data).sum() == 1
    values[2, 3] = heights[2, 3]
    np.testing.assert_allclose(values, heights, atol=1e-9)


def test_files_are_sources_too(survey_file, quiet):
    # merge and choose, as on the command line
    tw.las([survey_file, survey_file], "all.laz", merge=True, grid_name="both", classes="2")
    survey = tw.open(survey_file)[0]["survey"]
    ground = (survey["Classification"] == 2).sum()
    assert tw.open("all.laz")[0]["all"].points == 2 * ground
    tw.las(str(survey_file), "box.laz", box=(431000, 5921000, 431600, 5921400), returns=["first", 2])
    xyz = tw.open("box.laz")[0]["box"]["Positions"]
    assert 0 < len(xyz) < survey.points and xyz[:, 0].max() < 431600.001


def test_bundles_in_memory_are_chosen_from_and_merged_too(quiet):
    sample = tw.sample(900)
    merged = sample.choose(merge=True, grid="coast")
    assert [list(merged[time]) for time in merged] == [["merged"]] * 3 and merged[0]["merged"].points == 900
    cells = sample.choose(cells_as_points=True, z_band="Height", grid="elevation")
    points = cells[0]["elevation"]["Positions"]
    assert points.shape[1] == 3 and np.isin(points[:, 2], sample[0]["elevation"]["Height"]).all()
    report = tw.las(sample, "{time}.laz", merge=True, grid="coast", classes=[2, 9])
    assert len(report) == 3
    with pytest.raises(tw.UsageError, match="grid_name is for merge=True"):
        sample.choose(grid_name="x")


def test_fields_that_are_set_on_what_was_opened_are_exported(survey_file, quiet):
    survey = tw.open(survey_file)
    grid = survey[0]["survey"]
    grid["Height"] = grid["Positions"][:, 2] - grid["Positions"][:, 2].min()
    tw.las(survey, "more.laz", verify=True)
    back = tw.open("more.laz")[0]["more"]
    np.testing.assert_array_equal(back["Height"], grid["Height"])
    np.testing.assert_array_equal(back["Intensity"], grid["Intensity"])
    assert grid["UserData"].shape == (5000,)  # which no export asked for


def test_losses_are_warnings_with_kinds_and_errors_if_strict(cloud):
    with pytest.warns(tw.LossWarning) as caught:
        report = tw.pcd(cloud, "a.pcd")
    assert {loss.kind for loss in report.losses} >= {"fields"}
    warned = {warning.message.kind for warning in caught}
    assert warned <= set(tw.LOSS_KINDS) and "fields" in warned
    assert all(warning.filename == __file__ for warning in caught)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        tw.pcd(cloud, "b.pcd", accept=list({loss.kind for loss in report.losses}))
    with pytest.raises(tw.LossError, match="strict=True refuses losses") as failure:
        tw.pcd(cloud, "c.pcd", strict=True)
    assert not os.path.exists("c.pcd") and not failure.value.report.placed
    assert failure.value.report.losses == report.losses
    assert "--" not in str(failure.value)
    assert sorted(os.listdir()) == ["a.pcd", "b.pcd"]


def test_nothing_is_overwritten_unless_it_is_said(cloud, survey_file, quiet):
    tw.las(cloud, "a.laz")
    before = open("a.laz", "rb").read()
    with pytest.raises(tw.FileError, match="already exists; overwrite=True replaces it") as failure:
        tw.las(cloud, "a.laz")
    assert failure.value.file == "a.laz" and isinstance(failure.value, OSError)
    assert open("a.laz", "rb").read() == before
    tw.las(cloud, "a.laz", overwrite=True)
    with pytest.raises(tw.FileError, match="one of the inputs"):
        tw.las(survey_file, survey_file, overwrite=True)
    with pytest.raises(tw.FileError, match="one of the inputs"):
        tw.las(tw.open("a.laz"), "a.laz", overwrite=True)


def test_grids_that_would_overwrite_each_other_are_wrong_usage(quiet):
    sample = tw.sample(300)
    with pytest.raises(tw.UsageError, match="last_wins=True keeps the last"):
        tw.las(sample, "a.laz", grid="coast")
    assert len(tw.las(sample, "a.laz", grid="coast", last_wins=True)) == 1
    assert len(tw.las(sample, "{time}.laz", grid="coast", time=[0, (2, 4)])) == 2


def test_nothing_to_write_is_an_error(cloud):
    with pytest.raises(tw.ExportError, match="nothing was written") as failure:
        tw.las(cloud, "a.laz", grid="nobody")
    assert failure.value.report.files == [] and os.listdir() == []


def test_plain_files_are_those_of_the_exporter_itself(cloud, quiet):
    tw.las(cloud, "a.laz", plain=True, year=2024, day=172)
    exporter = tw.ExportPointCloudToLas()
    exporter.bundle = cloud
    exporter.output_path = "b.laz"
    exporter.year, exporter.day = 2024, 172
    assert exporter.run()
    assert open("a.laz", "rb").read() == open("b.laz", "rb").read()
    with pytest.raises(tw.UsageError, match="plain=True and scale exclude each other"):
        tw.las(cloud, "c.laz", plain=True, scale=1)


def test_appending_adds_to_text_files(cloud, quiet):
    first = tw.ascii(cloud, "text", field="Intensity", append=True)
    second = tw.ascii(cloud, "text", field="Intensity", append=True)
    assert second[0].bytes_before == first[0].bytes
    assert len(np.loadtxt(second[0])) == 2000


def test_settings_of_the_exporter_are_in_the_report(cloud, quiet):
    settings, = tw.pcd(cloud, "a.pcd", cell_size=0.5).settings
    assert "CellSize: 0.5" in settings
