# SPDX-License-Identifier: Apache-2.0
"""Bundles, slices and grids."""

import struct
from collections.abc import Mapping

import numpy as np
import pytest

import tidewatch as tw


def test_a_bundle_is_a_mapping_of_times_to_mappings_of_names():
    bundle = tw.Bundle()
    for time in (3, 0, 1.5):
        bundle.slice(time).grid("g")
    assert isinstance(bundle, Mapping) and list(bundle) == [0, 1.5, 3] and len(bundle) == 3
    assert 3 in bundle and 4 not in bundle and "x" not in bundle
    assert [part.time for part in bundle.values()] == [0, 1.5, 3]
    assert list(bundle[0].keys()) == ["g"] and bundle[0].get("h") is None and "g" in bundle[0]
    assert bundle[0]["g"].name == "g" and bundle[0]["g"].time == 0 and bundle[0]["g"].origin == ""
    del bundle[1.5]
    assert list(bundle) == [0, 3]
    del bundle[0]["g"]
    assert len(bundle[0]) == 0


def test_what_is_not_there_is_a_key_error_that_says_what_is(cloud):
    with pytest.raises(KeyError, match="there is no slice at time 5; there are 0"):
        cloud[5]
    with pytest.raises(KeyError, match='there is no grid "x" at time 0; there are coast'):
        cloud[0]["x"]
    with pytest.raises(KeyError, match='has no field "x"; there are Classification, Intensity, Positions'):
        cloud[0]["coast"]["x"]
    for missing in (lambda: cloud.__delitem__(5), lambda: cloud[0].__delitem__("x")):
        with pytest.raises(KeyError):
            missing()


def test_slices_and_grids_are_made_once(cloud):
    assert cloud.slice(0)["coast"].points == 1000
    assert cloud.slice(0).grid("coast").points == 1000
    with pytest.raises(tw.ModelError, match="is there already"):
        cloud.slice(0).grid("coast", crs="EPSG:25832")
    assert float("nan") not in cloud
    with pytest.raises(tw.ModelError, match="finite"):
        cloud.slice(float("nan"))


def test_a_reference_system_is_a_code_or_a_text(tmp_path):
    part = tw.Bundle().slice(0)
    grid = part.grid("g", crs="EPSG:25832+5783")
    assert grid.crs == "EPSG:25832+5783" and "UTM" in grid.crs_wkt
    text = part.grid("h", crs=grid.crs_wkt)
    assert text.crs == "EPSG:25832+5783"
    grid.crs = None
    assert grid.crs is None and grid.crs_wkt is None

    class LikePyproj:
        def to_wkt(self):
            return text.crs_wkt

    grid.crs = LikePyproj()
    assert grid.crs == "EPSG:25832+5783"
    (tmp_path / "a.prj").write_text(text.crs_wkt)
    grid.crs = "a.prj"
    assert grid.crs == "EPSG:25832+5783"
    with pytest.raises(tw.UsageError, match="EPSG:0"):
        grid.crs = "EPSG:0"
    with pytest.raises(tw.FormatError):
        grid.crs = "PROJCRS[nonsense]"
    with pytest.raises(TypeError, match="to_wkt"):
        grid.crs = 25832
    with pytest.raises(tw.UsageError):
        part.grid("new", crs="nowhere")
    assert "new" not in part


def test_a_grid_like_another_is_written_like_it(quiet):
    source = tw.sample(500)[0]["coast"]
    source.crs = "EPSG:25832"
    source.statement = {"step": (0.01, 0.01, 0.01), "offset": (430000, 5920000, 0), "gps_time": "adjusted",
                        "file_source_id": 17, "system_identifier": "scanner",
                        "records": [("me", 7, "a note", b"\0\1text")]}
    new = tw.Bundle()
    grid = new.slice(0).grid("copy", like=source)
    assert grid.crs == "EPSG:25832" and grid.statement == source.statement
    grid["Positions"] = source["Positions"]
    grid["GPSTime"] = source["GPSTime"]
    tw.las(new, "copy.laz", verify=True)
    back = tw.open("copy.laz")[0]["copy"]
    assert back.crs == "EPSG:25832" and back.statement["gps_time"] == "adjusted"
    assert back.statement["step"] == (0.01, 0.01, 0.01) and back.statement["file_source_id"] == 17
    assert ("me", 7, "a note", b"\0\1text") in back.statement["records"]


def test_fields_of_a_grid_like_another_keep_how_files_store_them(quiet):
    first = tw.Bundle()
    grid = first.slice(0).grid("a")
    grid["Positions"] = np.zeros((3, 3))
    grid["Depth"] = np.array([0.5, 1.5, 2.5], "f4")
    tw.las(first, "a.las")
    again = tw.Bundle()
    copy = again.slice(0).grid("a", like=tw.open("a.las")[0]["a"])
    copy["Positions"] = np.zeros((3, 3))
    copy["Depth"] = np.array([0.25, 1.5, 2.5], "f4")
    tw.las(again, "b.las")
    a, b = open("a.las", "rb").read(), open("b.las", "rb").read()
    assert b.replace(struct.pack("<f", 0.25), struct.pack("<f", 0.5)) == a


@pytest.mark.parametrize("statement, error", [
    ({"step": (0, 1, 1)}, ValueError), ({"offset": (0, 1, np.inf)}, ValueError), ({"gps_time": "leap"}, ValueError),
    ({"colour": 1}, KeyError), ({"file_source_id": 70000}, Exception)])
def test_a_statement_that_cannot_be_changes_nothing(cloud, statement, error):
    grid = cloud[0]["coast"]
    with pytest.raises(error):
        grid.statement = statement
    assert grid.statement == {}


def test_a_bundle_in_use_must_not_change(cloud):
    seen = []

    def progress(text, done, total, unit):
        for change in (lambda: cloud[0]["coast"].__setitem__("Intensity", np.zeros(1000)),
                       lambda: cloud.slice(9), lambda: cloud[0].grid("new"), lambda: cloud[0].__delitem__("coast"),
                       lambda: cloud[0]["coast"].__delitem__("Intensity")):
            with pytest.raises(RuntimeError, match="in use"):
                change()
        seen.append(cloud[0]["coast"]["Positions"].sum())  # reading is fine

    tw.las(cloud, "a.laz", progress=progress, accept=tw.LOSS_KINDS)
    assert seen
    cloud.slice(9)


def test_names_may_have_bytes_that_are_not_text(cloud):
    grid = cloud[0]["coast"]
    name = b"\xe9l\xe9vation".decode("utf-8", "surrogateescape")
    grid[name] = np.zeros(1000)
    assert name in grid and name in list(grid) and grid[name].shape == (1000,)
    assert "vation" in repr(grid)


def test_texts_show_what_is_inside(cloud):
    grid = cloud[0]["coast"]
    grid.crs = "EPSG:25832"
    assert repr(cloud).splitlines()[0] == "<tidewatch.Bundle: 1 time slice, 1 grid>"
    assert "coast: 1 000 points, EPSG:25832" in repr(cloud)
    assert "Classification, Intensity, Positions" in repr(cloud[0])
    assert repr(grid).splitlines() == ['<tidewatch.Grid "coast": time 0, 1 000 points, EPSG:25832>',
                                       "  Classification  uint8   1 000", "  Intensity       uint16  1 000",
                                       "  Positions       point   1 000"]
    assert "<b>coast</b>" in cloud._repr_html_() and "uint16" in cloud[0]._repr_html_() and "<table>" in grid._repr_html_()
    part = tw.Bundle().slice(0)
    part.grid("<script>")["Positions"] = np.zeros((1, 3))
    assert "<script>" not in part._repr_html_()
    assert "Fragment" in repr(grid.fragments()[0]) and "Skeleton" in repr(grid.skeletons()[0])
    assert "3 × 4" in repr(part.lattice("dem", (0, 0), 1, Height=np.zeros((3, 4))))
