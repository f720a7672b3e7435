# SPDX-License-Identifier: Apache-2.0
"""The exporters themselves."""

import numpy as np
import pytest

import tidewatch as tw

EXPORTERS = [tw.ExportPointCloudToLas, tw.ExportPointCloudToPCD, tw.ExportPointCloudToASCII]


def test_las_has_its_settings(cloud, quiet):
    exporter = tw.ExportPointCloudToLas()
    assert (exporter.version, exporter.tiles, exporter.carry, exporter.step, exporter.ref_level) == (4, False, False, None, -1)
    exporter.bundle = cloud
    exporter.output_path = "a.las"
    exporter.version = 2
    exporter.uncompressed = True
    exporter.point_source_id = 7
    exporter.rename_map = {"Positions": "Positions", "Classification": "UserData"}
    exporter.carry = exporter.conforming = True
    exporter.step = (0.01, 0.01, 0.01)
    exporter.offset = (0, 0, 0)
    assert exporter.run() and exporter.errors == [] and exporter.fragment_count == 1
    written, = exporter.written_files
    assert written.items == 1000 and not written.failed and written.grid == "coast"
    back = tw.open("a.las")[0]["a"]
    np.testing.assert_array_equal(back["UserData"], cloud[0]["coast"]["Classification"])
    assert set(back["PointSourceID"]) == {7} and back.statement["step"] == (0.01, 0.01, 0.01)
    with pytest.raises(tw.ModelError):
        exporter.step = (0, 1, 1)
    assert "Version" in exporter.print_secondary() and "a.las" in exporter.print_parameters()


def test_pcd_and_ascii_have_theirs(cloud, tmp_path):
    pcd = tw.ExportPointCloudToPCD()
    pcd.bundle, pcd.output_path = cloud, tmp_path / "a.pcd"
    pcd.precision, pcd.cell_size, pcd.exact_counts, pcd.thinning = 12, 0.5, True, False
    assert pcd.run() and pcd.written_files[0].items == 1000
    assert (pcd.precision, pcd.cell_size, pcd.exact_counts, pcd.thinning) == (12, 0.5, True, False)
    ascii = tw.ExportPointCloudToASCII()
    ascii.bundle, ascii.output_path = cloud, str(tmp_path)
    ascii.append, ascii.filter_field, ascii.cell_type_filter = True, "Kind", [(1, 2), (5, 5)]
    ascii.field_filter = ["Pos*"]
    ascii.time_filter = [(0, 1)]
    ascii.grid_filter = ["c*"]
    ascii.flush_lines = False
    assert ascii.run() and [file.items for file in ascii.written_files] == [1000]
    assert ascii.cell_type_filter == [(1, 2), (5, 5)] and ascii.time_filter == [(0, 1)]


@pytest.mark.parametrize("exporter", EXPORTERS)
def test_without_a_bundle_nothing_happens(exporter):
    one = exporter()
    one.output_path = "a"
    assert one.bundle is None
    one.run()
    assert one.written_files == []


def test_a_progress_reporter_is_asked_and_may_refuse(cloud, quiet):
    exporter = tw.ExportPointCloudToLas()
    exporter.bundle, exporter.output_path = cloud, "a.laz"
    calls = []
    exporter.progress = lambda text, current, total: calls.append((text, current, total))
    assert exporter.run() and [call[1:] for call in calls] == [(1, 1)] and "Write" in calls[0][0]
    exporter = tw.ExportPointCloudToLas()
    exporter.bundle, exporter.output_path = cloud, "b.laz"
    exporter.progress = lambda *arguments: False
    exporter.run()
    assert "Interrupted" in exporter.errors


def test_an_exception_of_a_reporter_ends_the_run(cloud):
    exporter = tw.ExportPointCloudToLas()
    exporter.bundle, exporter.output_path = cloud, "a.laz"

    def fail(*arguments):
        raise LookupError("enough")

    exporter.progress = fail
    with pytest.raises(LookupError, match="enough"):
        exporter.run()


def test_settings_do_not_change_during_a_run(cloud):
    exporter = tw.ExportPointCloudToLas()
    exporter.bundle, exporter.output_path = cloud, "a.laz"
    failures = []

    def change(*arguments):
        for name, value in (("version", 2), ("output_path", "b.laz"), ("bundle", None), ("grid_filter", [])):
            with pytest.raises(RuntimeError, match="running"):
                setattr(exporter, name, value)
            failures.append(name)

    exporter.progress = change
    assert exporter.run() and len(failures) == 4


def test_an_exporter_keeps_its_bundle(quiet):
    exporter = tw.ExportPointCloudToLas()
    exporter.bundle = tw.Bundle()
    exporter.bundle.slice(0).grid("g")["Positions"] = np.zeros((2, 3))
    exporter.output_path = "a.laz"
    assert exporter.run() and exporter.written_files[0].items == 2
