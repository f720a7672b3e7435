# SPDX-License-Identifier: Apache-2.0
"""Arrays of NumPy become fields."""

import numpy as np
import pytest

import tidewatch as tw

NUMBERS = ["i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8", "f4", "f8", "g"]


@pytest.fixture
def grid():
    grid = tw.Bundle().slice(0).grid("g")
    grid["Positions"] = np.arange(12.0).reshape(4, 3)
    return grid


@pytest.mark.parametrize("dtype", NUMBERS)
def test_numbers_of_other_fields_keep_their_type(grid, dtype):
    values = np.array([0, 1, 100, 127], dtype)
    grid["Depth"] = values
    assert grid["Depth"].dtype == values.dtype
    np.testing.assert_array_equal(grid["Depth"], values)


@pytest.mark.parametrize("dtype", [np.dtype(number) for number in NUMBERS] + [np.dtype(">" + n) for n in NUMBERS[:-1]])
def test_known_fields_take_any_type_whose_values_fit(grid, dtype):
    grid["Intensity"] = np.array([0, 1, 100, 127], dtype)
    assert grid["Intensity"].dtype == np.uint16
    np.testing.assert_array_equal(grid["Intensity"], [0, 1, 100, 127])


def test_known_fields_have_the_types_of_las(grid):
    ones = np.ones(4)
    expected = {"Classification": "u1", "ReturnNumber": "u1", "PointSourceID": "u2", "GPSTime": "f8", "Reflectance": "f4",
                "ScanAngleRank": "i1", "NearInfrared": "u2", "Red": "u2", "CellType": "u1", "Withheld": "u1"}
    for name, dtype in expected.items():
        grid[name] = ones
        assert grid[name].dtype == np.dtype(dtype), name
    grid["RGB"] = np.ones((4, 3), "i8")
    assert grid["RGB"].dtype == np.uint8 and grid.element_type("RGB") == "rgb8"
    assert grid.element_type("Positions") == "point"


def test_of_two_types_that_of_the_values_is_taken_or_that_of_their_kind(grid):
    grid["ScanAngleRank"] = np.array([3000, -3000, 0, 1], "i2")
    assert grid["ScanAngleRank"].dtype == np.int16
    grid["ScanAngleRank"] = [30, -30, 0, 1]
    assert grid["ScanAngleRank"].dtype == np.int8
    grid["Amplitude"] = [0.5, 1, 2, 3]
    assert grid["Amplitude"].dtype == np.float32
    grid["Amplitude"] = [5, 1, 2, 3]
    assert grid["Amplitude"].dtype == np.uint16


@pytest.mark.parametrize("layout", ["C", "F", "reversed", "strided", "big-endian", "unaligned", "float32", "int32"])
def test_positions_of_any_layout_are_copied_as_they_are(layout):
    wanted = np.arange(30.0).reshape(10, 3)
    values = {
        "C": wanted,
        "F": np.asfortranarray(wanted),
        "reversed": wanted[::-1, ::-1].copy()[::-1, ::-1],
        "strided": np.repeat(np.repeat(wanted, 2, 0), 2, 1)[::2, ::2],
        "big-endian": wanted.astype(">f8"),
        "unaligned": np.frombuffer(b"x" + wanted.tobytes(), dtype=np.uint8)[1:].view("f8").reshape(10, 3),
        "float32": wanted.astype("f4"),
        "int32": wanted.astype("i4"),
    }[layout]
    grid = tw.Bundle().slice(0).grid("g")
    grid["Positions"] = values
    np.testing.assert_array_equal(grid["Positions"], wanted)


def test_random_layouts_of_lattices_are_copied_in_their_own_order():
    random = np.random.default_rng(7)
    for number in range(30):
        shape = tuple(random.integers(1, 6, 3))
        whole = random.integers(-100, 100, tuple(2 * n for n in shape)).astype(random.choice(["i2", ">i4", "f4", "<f8"]))
        view = whole[tuple(slice(int(random.integers(0, 2)), None, 2) for _ in range(3))]
        axes = random.permutation(3)
        view = view.transpose(axes)
        lattice = tw.Bundle().slice(0).lattice("g", (0, 0, 0), 1, Height=view)
        np.testing.assert_array_equal(lattice["Height"], view if view.shape[0] != 1 else view[0])


@pytest.mark.parametrize("values, text", [
    (np.zeros(4, bool), "dtype bool are not taken"),
    (np.zeros(4, "f2"), "dtype float16 are not taken"),
    (np.zeros(4, "c16"), "dtype complex128 are not taken"),
    (np.array([1, None, 2, 3], object), "dtype object are not taken"),
    (np.array(["a"] * 4), "are not taken"),
    (np.zeros(4, "M8[s]"), "are not taken"),
    (np.zeros(4, [("a", "i4")]), "are not taken"),
])
def test_other_types_are_type_errors(grid, values, text):
    with pytest.raises(TypeError, match=text):
        grid["Depth"] = values
    assert "Depth" not in grid


@pytest.mark.parametrize("name, values, text", [
    ("Intensity", [0, 1, 2, 65536], "65536, value 3, does not fit uint16"),
    ("Intensity", [0, -1, 2, 3], "-1, value 1, does not fit uint16"),
    ("Intensity", [0.5, 1, 2, 3], "0.5, value 0, does not fit uint16, which holds whole numbers"),
    ("Intensity", [0, np.nan, 2, 3], "nan, value 1, does not fit"),
    ("Intensity", [0, np.inf, 2, 3], "inf, value 1, does not fit"),
    ("Classification", [0, 1, 2, 256], "does not fit uint8"),
    ("ScanAngleRank", np.array([0, 1, 2, 128]), "does not fit int8"),
    ("Reflectance", [0, 1, 2, 1e39], "does not fit float32"),
    ("GPSTime", np.array([0, 1, 2, 2**53 + 1]), "does not fit float64"),
])
def test_values_that_do_not_fit_are_value_errors(grid, name, values, text):
    with pytest.raises(ValueError, match=text):
        grid[name] = values
    assert name not in grid


def test_floats_are_rounded_to_floats_and_keep_what_is_not_finite(grid):
    grid["Reflectance"] = np.array([0.1, np.nan, -np.inf, 1])
    np.testing.assert_array_equal(grid["Reflectance"], np.array([0.1, np.nan, -np.inf, 1], "f4"))


@pytest.mark.parametrize("name, shape, text", [
    ("Intensity", (3,), r"shape \(3,\) does not fit grid \"g\" at time 0, whose fields have the shape \(4,\)"),
    ("Intensity", (4, 1), r"shape \(4, 1\) does not fit"),
    ("Intensity", (4, 3), r"shape \(4, 3\) has three numbers for each place, and the field one"),
    ("RGB", (4,), r"shape \(4,\) has one number for each place, and the field three"),
    ("Intensity", (), r"shape \(\) does not fit"),
    ("Positions", (5, 2), r"shape \(5, 2\) is not a list of values"),
])
def test_wrong_shapes_are_value_errors(grid, name, shape, text):
    with pytest.raises(ValueError, match=text):
        grid[name] = np.zeros(shape)


def test_a_layer_of_a_lattice_may_have_an_axis_of_its_own():
    lattice = tw.Bundle().slice(0).lattice("dem", (0, 0), 1, Height=np.zeros((1, 3, 4)))
    assert lattice["Height"].shape == (3, 4)
    lattice["RGB"] = np.zeros((1, 3, 4, 3), "u1")
    assert lattice["RGB"].shape == (3, 4, 3)


def test_the_first_field_decides_about_the_length():
    grid = tw.Bundle().slice(0).grid("g")
    with pytest.raises(ValueError, match=r"takes an array of shape \(n, 3\)"):
        grid["Positions"] = np.zeros(3)
    grid["Intensity"] = np.zeros(5)
    with pytest.raises(ValueError, match=r"\(4, 3\) does not fit"):
        grid["Positions"] = np.zeros((4, 3))
    grid["Positions"] = np.zeros((5, 3))
    assert grid.points == 5


def test_a_field_may_be_replaced_and_removed(grid):
    grid["Depth"] = np.zeros(4, "f4")
    grid["Depth"] = np.ones(4, "i2")
    assert grid["Depth"].dtype == np.int16
    del grid["Depth"]
    assert "Depth" not in grid
    with pytest.raises(KeyError, match="Depth"):
        del grid["Depth"]
    grid["Positions"] = np.zeros((5, 3))  # alone, it may have any length
    grid["Depth"] = np.zeros(5)
    with pytest.raises(ValueError, match="does not fit"):
        grid["Positions"] = np.zeros((4, 3))


def test_triples_of_other_fields_are_vectors_or_colours(grid):
    grid["Normal"] = np.ones((4, 3), "f4")
    assert grid.element_type("Normal") == "vector" and grid["Normal"].dtype == np.float64
    grid["Tint"] = np.ones((4, 3), "u1")
    assert grid.element_type("Tint") == "rgb8"
    with pytest.raises(TypeError, match="triples are of float32, float64 .vectors. or uint8 .colours."):
        grid["Tint"] = np.ones((4, 3), "u2")
    grid.set("Normal", np.ones((4, 3)), type="fixed3d")
    assert grid.element_type("Normal") == "fixed3d"
    with pytest.raises(ValueError, match='there is no element type "normal"'):
        grid.set("Normal", np.ones((4, 3)), type="normal")


def test_a_type_may_be_stated(grid):
    grid.set("Depth", [1, 2, 3, 4], type="uint8")
    assert grid["Depth"].dtype == np.uint8
    with pytest.raises(ValueError, match="does not fit uint8"):
        grid.set("Depth", [1, 2, 3, 400], type="uint8")


def test_masked_values_are_refused_and_an_empty_mask_is_none(grid):
    with pytest.raises(ValueError, match="masked"):
        grid["Depth"] = np.ma.masked_array([1, 2, 3, 4], [0, 1, 0, 0])
    grid["Depth"] = np.ma.masked_array([1, 2, 3, 4], False)
    np.testing.assert_array_equal(grid["Depth"], [1, 2, 3, 4])


def test_structured_arrays_and_dicts_are_several_fields(grid):
    grid.update(np.array([(1, 2.5)] * 4, [("Intensity", "u2"), ("Depth", "f4")]))
    assert set(grid) == {"Positions", "Intensity", "Depth"}
    grid.update({"GPSTime": np.arange(4)}, Withheld=np.zeros(4))
    assert len(grid) == 5
    np.testing.assert_array_equal(grid["Depth"], [2.5] * 4)


def test_an_array_is_copied_once_and_belongs_to_the_bundle(grid):
    values = np.arange(4, dtype="u2")
    grid["Intensity"] = values
    values[:] = 9
    np.testing.assert_array_equal(grid["Intensity"], [0, 1, 2, 3])
    grid["Intensity"][1] = 7  # a view, which may be edited
    np.testing.assert_array_equal(grid["Intensity"], [0, 7, 2, 3])


def test_no_points_at_all_are_fine():
    grid = tw.Bundle().slice(0).grid("g")
    grid["Positions"] = np.zeros((0, 3))
    grid["Intensity"] = []
    assert grid["Positions"].shape == (0, 3) and grid["Intensity"].shape == (0,) and grid.points == 0


def test_fragments_are_set_one_by_one_and_divide_what_is_set_for_all():
    grid = tw.Bundle().slice(0).grid("g")
    for number, name in enumerate("ab"):
        grid.fragment(name)["Positions"] = np.full((number + 2, 3), number)
    grid["Intensity"] = np.arange(5)
    assert [part.name for part in grid.fragments()] == ["a", "b"]
    np.testing.assert_array_equal(grid.fragment("b")["Intensity"], [2, 3, 4])
    grid.fragment("a")["Intensity"] = [8, 9]
    np.testing.assert_array_equal(grid["Intensity"], [8, 9, 2, 3, 4])
    with pytest.raises(ValueError, match=r'does not fit fragment "a", whose fields have the shape \(2,\)'):
        grid.fragment("a")["Intensity"] = [8, 9, 10]
    with pytest.raises(ValueError, match=r"shape \(5,\)"):
        grid["Depth"] = np.zeros(2)
    grid.fragment("a")["Depth"] = np.zeros(2, "f4")
    grid.fragment("b")["Depth"] = np.ones(3, "f8")  # as the other fragments
    assert grid["Depth"].dtype == np.float32
    assert "Depth" in grid.fragment("a") and len(grid.fragment("a")) == 3


def test_lattices_have_rows_and_columns_the_first_row_in_the_south():
    heights = np.arange(12, dtype="f4").reshape(3, 4)
    lattice = tw.Bundle().slice(0).lattice("dem", (100, 200), (2, 5), Height=heights, CellType=np.ones((3, 4)))
    assert lattice.lattice == tw.Lattice((100, 200, 0), (2, 5, 1), (3, 4))
    np.testing.assert_array_equal(lattice["Height"], heights)
    assert lattice["CellType"].dtype == np.uint8
    assert lattice["Positions"].shape == (3, 4, 3)
    np.testing.assert_array_equal(lattice["Positions"][1, 2], [104, 205, 0])
    np.testing.assert_array_equal(lattice.bounds, [[100, 200, 0], [106, 210, 0]])
    with pytest.raises(ValueError, match=r"whose fields have the shape \(3, 4\)"):
        lattice["Depth"] = heights.T
    with pytest.raises(ValueError, match="follow from its origin"):
        lattice["Positions"] = np.zeros((12, 3))
    lattice["RGB"] = np.zeros((3, 4, 3), "u1")
    assert lattice["RGB"].shape == (3, 4, 3)


@pytest.mark.parametrize("arguments, error, text", [
    (dict(origin=(0, 0), spacing=0, Height=[[1]]), ValueError, "greater than 0"),
    (dict(origin=(0, np.nan), spacing=1, Height=[[1]]), ValueError, "finite"),
    (dict(origin=(0, 0), spacing=(1, 1, 1, 1), Height=[[1]]), ValueError, "two or three numbers"),
    (dict(origin=(0, 0), spacing=1), TypeError, "needs a shape or a field"),
    (dict(origin=(0, 0), spacing=1, Height=[1, 2]), ValueError, r"\(rows, columns\)"),
    (dict(origin=(0, 0), spacing=1, Height=[[1]], Depth=[[1, 2]]), ValueError, "does not fit"),
])
def test_a_lattice_that_cannot_be_leaves_nothing_behind(arguments, error, text):
    part = tw.Bundle().slice(0)
    with pytest.raises(error, match=text):
        part.lattice("dem", **arguments)
    assert "dem" not in part
