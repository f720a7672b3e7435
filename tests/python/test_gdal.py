# SPDX-License-Identifier: Apache-2.0
"""GDAL's Python reads what was written, and its rasters become arrays as GDAL has them."""

import numpy as np
import pytest

gdal = pytest.importorskip("osgeo.gdal", reason="no GDAL for Python: scripts/setup.sh installs it")
gdal.UseExceptions()

import tidewatch as tw  # noqa: E402


@pytest.fixture
def heights():
    return np.round(np.random.default_rng(2).uniform(-20, 20, (13, 21)), 2).astype("f4")


def test_gdal_reads_grids_of_text_as_the_arrays_that_they_were(heights, quiet):
    bundle = tw.Bundle()
    grid = bundle.slice(0).lattice("dem", (431001, 5921001), 2, crs="EPSG:25832", Height=heights,
                                   CellType=(heights > 0) * 1)
    report = tw.ascii(bundle, "out", field="Height", cell_types=[1], precision=3)
    file = next(file for file in report if str(file).endswith(".grd"))
    raster = gdal.Open(str(file))
    values = raster.ReadAsArray()[::-1]  # from the north
    no_data = raster.GetRasterBand(1).GetNoDataValue()
    np.testing.assert_allclose(values[heights > 0], heights[heights > 0], atol=1e-3)
    assert (values[heights <= 0] == no_data).all()
    x, step, _, y, _, down = raster.GetGeoTransform()
    assert (step, down) == (2, -2) and grid.points == heights.size
    assert "UTM zone 32N" in raster.GetProjection()


def test_rasters_of_gdal_become_lattices_with_the_south_first(heights):
    driver = gdal.GetDriverByName("GTiff")
    raster = driver.Create("dem.tif", 21, 13, 2, gdal.GDT_Float32)
    raster.SetGeoTransform((431000, 2, 0, 5921026, 0, -2))
    raster.GetRasterBand(1).WriteArray(heights[::-1])
    raster.GetRasterBand(2).WriteArray(2 * heights[::-1])
    raster = None
    grid = tw.open("dem.tif")[0]["dem"]
    np.testing.assert_array_equal(grid["Band1"], heights)
    np.testing.assert_array_equal(grid["Band2"], 2 * heights)
    assert not grid["Band1"].flags.writeable
    assert grid.lattice == tw.Lattice((431001, 5921001, 0), (2, 2, 1), (13, 21))
    points = tw.open("dem.tif", cells_as_points=True)[0]["dem"]["Positions"]
    np.testing.assert_array_equal(points[:, 2], heights.ravel())
