# SPDX-License-Identifier: Apache-2.0
"""Fields become arrays of NumPy, which outlive everything."""

import gc

import numpy as np
import pytest

import tidewatch as tw


def address(array):
    return array.__array_interface__["data"][0]


def test_an_array_in_memory_is_a_view_that_may_be_edited(cloud):
    grid = cloud[0]["coast"]
    first, second = grid["Positions"], grid["Positions"]
    assert address(first) == address(second) and first.flags.writeable and first.flags.c_contiguous
    assert type(first) is np.ndarray and first.dtype == np.float64 and first.shape == (1000, 3)
    first[0] = 7
    assert second[0, 0] == 7


def test_an_array_of_a_file_is_a_view_that_must_not_be_edited(survey_file):
    grid = tw.open(survey_file)[0]["survey"]
    intensity = grid["Intensity"]
    assert not intensity.flags.writeable and address(intensity) == address(grid["Intensity"])
    with pytest.raises(ValueError):
        intensity[0] = 1
    with pytest.raises(ValueError):
        intensity.setflags(write=True)


def test_several_fragments_are_joined_by_one_copy_and_are_views_one_by_one(survey_file):
    whole = tw.open(survey_file)[0]["survey"]
    grid = tw.open(survey_file, fragment_points=1500)[0]["survey"]
    parts = grid.fragments()
    assert [len(part["Intensity"]) for part in parts] == [1500, 1500, 1500, 500]
    for name in grid:
        np.testing.assert_array_equal(grid[name], whole[name])
        np.testing.assert_array_equal(np.concatenate([part[name] for part in parts]), whole[name])
    assert not parts[0]["Positions"].flags.writeable
    assert grid["Positions"].flags.writeable  # a copy


def test_an_array_outlives_bundle_grid_and_file(tmp_path, cloud):
    tw.las(cloud, "a.laz", scale=0.001, accept=tw.LOSS_KINDS)
    expected = cloud[0]["coast"]["Positions"].copy()
    with tw.open("a.laz") as survey:
        grid = survey[0]["a"]
        xyz = grid["Positions"]
    (tmp_path / "a.laz").unlink()
    del grid, survey, cloud
    gc.collect()
    tw.cache.limit = 0  # nothing stays there that nobody holds
    try:
        np.testing.assert_allclose(xyz, expected, atol=0.0006)
        assert xyz.sum() == xyz.copy().sum()
    finally:
        tw.cache.limit = 512 << 20


def test_an_array_keeps_its_memory_out_of_the_reach_of_the_cache(survey_file):
    survey = tw.open(survey_file)
    grid = survey[0]["survey"]
    held = grid["Positions"]
    values = held.copy()
    tw.cache.limit = 0
    try:
        again = grid["Positions"]
        assert address(again) == address(held)
        del survey, grid, again
        gc.collect()
        np.testing.assert_array_equal(held, values)
    finally:
        tw.cache.limit = 512 << 20


def test_after_closing_what_is_held_still_works_and_the_bundle_does_not(survey_file):
    survey = tw.open(survey_file)
    grid = survey[0]["survey"]
    survey.close()
    assert survey.closed and "closed" in repr(survey)
    assert grid["Intensity"].shape == (5000,)
    for use in (lambda: survey[0], lambda: len(survey), lambda: tw.las(survey, "b.laz")):
        with pytest.raises(ValueError, match="closed"):
            use()
    survey.close()


def test_a_replaced_field_leaves_arrays_that_are_held_alone(cloud):
    grid = cloud[0]["coast"]
    before = grid["Intensity"]
    values = before.copy()
    grid["Intensity"] = np.zeros(1000)
    del grid, cloud
    gc.collect()
    np.testing.assert_array_equal(before, values)


def test_several_fragments_of_a_lattice_are_one_list_and_a_place_each():
    grid = tw.sample(1000)[0]["elevation"]
    assert grid["Height"].shape == (240400,) and grid["Positions"].shape == (240400, 3)
    west = grid.fragments()[1]
    assert west["Height"].shape == west.lattice.shape
    joined = np.concatenate([part["Positions"].reshape(-1, 3) for part in grid.fragments()])
    np.testing.assert_array_equal(grid["Positions"], joined)


def test_chosen_points_are_those_that_numpy_would_choose(survey_file):
    grid = tw.open(survey_file)[0]["survey"]
    keep = np.isin(grid["Classification"], [2, 9])
    chosen = tw.open(survey_file, classes=[2, 9], fragment_points=1000)[0]["survey"]
    np.testing.assert_array_equal(chosen["Positions"], grid["Positions"][keep])
    assert chosen.points == keep.sum()
    again = tw.open(survey_file).choose(classes=[2, 9])[0]["survey"]
    np.testing.assert_array_equal(again["GPSTime"], grid["GPSTime"][keep])
    again["Mine"] = np.arange(keep.sum())
    np.testing.assert_array_equal(again["Mine"], np.arange(keep.sum()))


def test_skeletons_are_the_levels_of_a_grid():
    grid = tw.sample(800)[3]["coast"]
    coarse, fine = grid.skeletons()
    assert coarse.refinement == (0, 0, 0) and fine.refinement == (1, 1, 1) and not fine.excluded
    assert coarse.points == 100 and fine.points == grid.points == 800
    np.testing.assert_array_equal(fine["Positions"], grid["Positions"])
    assert grid.skeleton((0, 0, 0))["Intensity"].shape == (100,)


def test_long_doubles_and_64_bit_integers_are_those_of_numpy(cloud):
    grid = cloud[0]["coast"]
    grid["Long"] = np.full(1000, np.iinfo("i8").min)
    grid["Fine"] = np.full(1000, np.longdouble(1) / 3)
    assert grid["Long"].dtype == np.dtype("int64") and grid["Long"].dtype.char == "l"
    assert grid["Fine"].dtype == np.longdouble and grid["Fine"][0] == np.longdouble(1) / 3
