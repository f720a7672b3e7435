# SPDX-License-Identifier: Apache-2.0
"""Whatever the program can do, Python can."""

import inspect
import json
import os
import re
import subprocess

import numpy as np
import pytest

import tidewatch as tw
from conftest import PROGRAM
from tidewatch._words import in_python

# What Python has in another way than by an argument of the same name.
OTHER_NAMES = {"class": "classes", "no-thinning": "thinning", "rename": "rename"}
OTHER_WAYS = {
    "help": "docstrings",
    "json": "what the functions return",
    "quiet": "warnings.filterwarnings",
    "verbose": "logging, logger tidewatch",
    "print-parameters": "Report.settings",
    "together": "each=False",
}
# The output is the second argument; a sample survey is a bundle in memory, which tw.bundle writes.
ARGUMENTS_OF = {"las": (tw.las, {"output"}), "pcd": (tw.pcd, {"output"}), "ascii": (tw.ascii, {"output"}),
                "bundle": (tw.bundle, {"output"}), "info": (tw.info, set()), "check": (tw.check, set()),
                "view": (tw.view, {"output"}), "sample": (tw.sample, set())}
NOT_OF_SAMPLE = {"output", "overwrite", "progress"}

pytestmark = pytest.mark.skipif(not PROGRAM, reason="no program: CTest names it")


def options_of(command):
    text = subprocess.run([PROGRAM, command, "--help"], capture_output=True, text=True, check=True).stdout
    return set(re.findall(r"^  (?:-\w,)?--([a-z-]+)", text, re.MULTILINE))


@pytest.mark.parametrize("command", ARGUMENTS_OF)
def test_every_option_of_the_program_is_an_argument_and_the_other_way_round(command):
    function, positional = ARGUMENTS_OF[command]
    options = options_of(command)
    assert len(options) > 3
    if command == "sample":
        assert NOT_OF_SAMPLE <= options
        options -= NOT_OF_SAMPLE
    expected = {OTHER_NAMES.get(option, option.replace("-", "_")) for option in options if option not in OTHER_WAYS}
    arguments = {name for name in inspect.signature(function).parameters} - {"source", "file", "files"}
    assert arguments == expected
    documented = inspect.getdoc(function) + inspect.getdoc(tw.las) + inspect.getdoc(tw.open)
    for name in arguments:
        assert re.search(rf"\b{name}\b", documented), name


@pytest.mark.parametrize("command", ARGUMENTS_OF)
def test_messages_name_arguments_and_not_options(command):
    function, _ = ARGUMENTS_OF[command]
    arguments = inspect.signature(function).parameters
    for option in options_of(command) - OTHER_WAYS.keys() - OTHER_NAMES.keys():
        name = option.replace("-", "_")
        if name in arguments:
            value = "=True" if isinstance(arguments[name].default, bool) else ""
            assert in_python(f"--{option} takes a number") == f"{name}{value} takes a number"


def test_every_command_is_a_function():
    text = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True, check=True).stdout
    commands = set(re.findall(r"^  ([a-z]+)  ", text, re.MULTILINE)) - {"help"}
    assert commands == set(ARGUMENTS_OF)
    assert all(callable(getattr(tw, command)) for command in commands)


def run(*arguments):
    return subprocess.run([PROGRAM, *map(str, arguments)], capture_output=True, text=True, check=True).stdout


CASES = [
    ("las", {}, []),
    ("las", dict(las_version="1.2", uncompressed=True), ["--las-version", "1.2", "--uncompressed"]),
    ("las", dict(las_version=1.3, day=5, year=2020), ["--las-version", "1.3", "--day", "5", "--year", "2020"]),
    ("las", dict(rename={"UserData": "PointSourceID"}, point_source_id=3),
     ["--rename", "UserData=PointSourceID", "--point-source-id", "3"]),
    ("las", dict(scale=0.01, offset=(1, 2, 3)), ["--scale", "0.01", "--offset", "1,2,3"]),
    ("las", dict(scale=(0.01, 0.02, 0.5), plain=False), ["--scale", "0.01,0.02,0.5"]),
    ("las", dict(plain=True, field=["Pos*", "Intensity"]), ["--plain", "--field", "Pos*", "--field", "Intensity"]),
    ("las", dict(classes=[2, 9], returns=["first", 3]), ["--class", "2,9", "--returns", "first,3"]),
    ("las", dict(crs="EPSG:25832", box=(431000, 5921000, 431600, 5921400, -5, 100)),
     ["--crs", "EPSG:25832", "--box", "431000,5921000,431600,5921400,-5,100"]),
    ("las", dict(time=(0, 5), slice_time=3.5), ["--time", "0:5", "--slice-time", "3.5"]),
    ("las", dict(merge=True, grid_name="all"), ["--merge", "--grid-name", "all"]),
    ("pcd", dict(cell_size=2.5, precision=10, exact_counts=True),
     ["--cell-size", "2.5", "--precision", "10", "--exact-counts"]),
    ("pcd", dict(thinning=False), ["--no-thinning"]),
    ("las", dict(tiles=True, tile_size=500, tile_origin=(250, 250), jobs=2),
     ["--tiles", "--tile-size", "500", "--tile-origin", "250,250", "--jobs", "1"]),
    ("ascii", dict(field="Intensity", append=True), ["--field", "Intensity", "--append"]),
]


@pytest.mark.parametrize("command, arguments, options", CASES)
def test_files_are_those_of_the_program_byte_for_byte(command, arguments, options, survey_file, quiet):
    extension = {"las": ".las" if arguments.get("uncompressed") else ".laz", "pcd": ".pcd", "ascii": ""}[command]
    dated = {} if "day" in arguments or command != "las" else dict(day=1, year=2024)
    ways = ["--day", "1", "--year", "2024"] if dated else []
    report = getattr(tw, command)(survey_file, "python" + extension, **arguments, **dated)
    run(command, survey_file, "-o", "program" + extension, "-q", *options, *ways)
    for file in report:
        other = str(file).replace("python", "program", 1)
        assert open(file, "rb").read() == open(other, "rb").read()


def test_rasters_and_lattices_are_written_as_by_the_program(quiet):
    run("sample", "-o", "a.h5", "--points", "500", "-q")
    for name, arguments, options in (
            ("cells", dict(cell_types=[(1, 2), 3], field="Height", precision=2, tile_suffix=True),
             ["--cell-types", "1:2,3", "--field", "Height", "--precision", "2", "--tile-suffix"]),
            ("other", dict(filter_field="Kind", ref_level=-2, field="H*"),
             ["--filter-field", "Kind", "--ref-level", "-2", "--field", "H*"])):
        report = tw.ascii("a.h5", f"python-{name}", grid="elevation", time=0, **arguments)
        run("ascii", "a.h5", "-o", f"program-{name}", "--grid", "elevation", "--time", "0", "-q", *options)
        assert len(report) == 2
        for file in report:
            assert open(file).read() == open(str(file).replace("python", "program", 1)).read()
    tw.las("a.h5", "python.laz", grid="elevation", time=0, cells_as_points=True, z_band="Height", day=1, year=2024)
    run("las", "a.h5", "-o", "program.laz", "--grid", "elevation", "--time", "0", "--cells-as-points", "--z-band", "Height",
        "--day", "1", "--year", "2024", "-q")
    assert open("python.laz", "rb").read() == open("program.laz", "rb").read()


def test_a_sample_is_that_of_the_program(quiet):
    run("sample", "-o", "program.h5", "--points", "700", "--seed", "5", "-q")
    tw.bundle(tw.sample(700, seed=5), "python.h5")
    program, python = tw.open("program.h5"), tw.open("python.h5")
    for time in program:
        for name, grid in program[time].items():
            for field in grid:
                np.testing.assert_array_equal(python[time][name][field], grid[field])


def test_info_is_that_of_the_program(survey_file):
    for arguments, options in (({}, []), (dict(stats=True), ["--stats"]), (dict(fields=True), ["--fields"]),
                               (dict(bounds=True), ["--bounds"])):
        info = tw.info(survey_file, **arguments)
        assert info == json.loads(run("info", survey_file, "--json", *options))
        assert info.text == run("info", survey_file, *options)
        assert repr(info) == info.text.rstrip("\n") and "<pre>" in info._repr_html_()


def test_findings_are_those_of_the_program(survey_file, tmp_path):
    broken = tmp_path / "broken.laz"
    broken.write_bytes(open(survey_file, "rb").read()[:3000])
    for file in (survey_file, broken):
        found = subprocess.run([PROGRAM, "check", file, "--json"], capture_output=True, text=True).stdout
        program, = json.loads(found)["files"]
        report = tw.check(file)
        assert report.format == program["format"] and report.file == str(file)
        assert [(finding.kind, finding.severity, finding.message) for finding in report.findings] == [
            (finding["kind"], finding["severity"], finding["message"]) for finding in program["findings"]]
    assert not report.ok and report.faults and "fault" in repr(report)


def test_pictures_and_pages_are_those_of_the_program(survey_file, quiet):
    view = tw.view(survey_file, "python.png", size=(400, 300), color="height")
    run("view", survey_file, "-o", "program.png", "--size", "400x300", "--color", "height", "-q")
    assert open("python.png", "rb").read() == open("program.png", "rb").read() == view.content
    assert view.pixels.shape == (300, 400, 3) and view.pixels.dtype == np.uint8 and view._repr_png_() == view.content
    assert tw.view(survey_file, size="400x300", color="height").content == view.content
    try:
        page = tw.view(survey_file, "python.html", points=1000)
    except tw.LimitError:
        return  # built without npm's packages
    run("view", survey_file, "-o", "program.html", "--points", "1000", "-q")
    assert open("python.html", "rb").read() == open("program.html", "rb").read() == page.content
    assert "iframe" in page._repr_html_()
    with pytest.raises(tw.FileError, match="overwrite=True"):
        tw.view(survey_file, "python.html")


@pytest.mark.parametrize("call, error, text", [
    (lambda file: tw.las(file, "a.laz", las_version="1.5"), tw.UsageError, "las_version takes 1.2, 1.3 or 1.4"),
    (lambda file: tw.las(file, "a.laz", point_source_id=70000), tw.UsageError, "point_source_id takes"),
    (lambda file: tw.las(file, "a.laz", rename={"a": "b"}), tw.UsageError, "rename: there is no attribute"),
    (lambda file: tw.las(file, "a.laz", box=(1, 1, 0, 2)), tw.UsageError, "XMIN 1 is not below XMAX 0"),
    (lambda file: tw.las(file, "a.laz", box=(1, 1, 2)), tw.UsageError, "box takes"),
    (lambda file: tw.las(file, "a.laz", returns="middle"), tw.UsageError, "returns takes"),
    (lambda file: tw.las(file, "a.laz", time=(3, 1)), tw.UsageError, "3 is greater than 1"),
    (lambda file: tw.las(file, "a.laz", accept="nothing"), tw.UsageError, "accept takes kinds of losses"),
    (lambda file: tw.las(file, "{what}.laz"), tw.UsageError, "what"),
    (lambda file: tw.las(file, "a.laz", memory_limit="many"), tw.UsageError, "memory_limit takes bytes"),
    (lambda file: tw.las(file, "a.laz", jobs=0), tw.UsageError, "jobs takes a number from 1 to 1024"),
    (lambda file: tw.las(file, "a.laz", tile_size=-1), tw.UsageError, "tile_size takes a number greater than 0"),
    (lambda file: tw.las(file, "a.laz", tile_origin=(1, 2)), tw.UsageError, "tile_origin is for tile_size"),
    (lambda file: tw.las(file, "{tile}.laz"), tw.UsageError, "tile_size cuts points into squares"),
    (lambda file: tw.las(file, "a.laz", scale=0), tw.UsageError, "scale takes"),
    (lambda file: tw.las(file, "a.laz", z_band=2), tw.UsageError, "z_band is for cells_as_points=True"),
    (lambda file: tw.las(file, "a.laz", classes=[2.5]), tw.UsageError, "classes takes"),
    (lambda file: tw.las(file, "a.laz", classes=[None]), TypeError, "classes: a number is expected"),
    (lambda file: tw.las(file, "a.laz", nonsense=1), TypeError, "nonsense"),
    (lambda file: tw.las(file, 5), TypeError, "int"),
    (lambda file: tw.las(5, "a.laz"), TypeError, "int"),
    (lambda file: tw.las(tw.open(file), "a.laz", slice_time=3), TypeError, "las has no use for slice_time"),
    (lambda file: tw.pcd(file, "a.pcd", cell_size=0), tw.UsageError, "cell_size takes a number greater than 0"),
    (lambda file: tw.pcd(file, "a.pcd", thinning=False, cell_size=1), tw.UsageError, "exclude each other"),
    (lambda file: tw.view(file, "a.txt"), tw.UsageError, "neither in .html"),
    (lambda file: tw.view(file, "a.html", size=(300, 300)), tw.UsageError, "size and color are arguments of pictures"),
    (lambda file: tw.view(file, "a.png", points=3), tw.UsageError, "points is an argument of pages"),
    (lambda file: tw.view(file, "a.png", size=(3, 3)), tw.UsageError, "size takes"),
    (lambda file: tw.open(), TypeError, "at least one file"),
    (lambda file: tw.open(file, file, slice_time=[1, 2, 3]), tw.UsageError, "slice_time has 3 times for 2 inputs"),
    (lambda file: tw.sample(0), tw.UsageError, "from 1"),
])
def test_wrong_arguments_say_what_is_wrong_in_words_of_python(call, error, text, survey_file):
    with pytest.raises(error, match=re.escape(text)) as failure:
        call(survey_file)
    assert "--" not in str(failure.value)
    assert os.listdir() == []


def test_a_sandbox_may_be_required_and_is_told_of():
    assert set(tw.sandbox()) == {"seccomp", "landlock", "limits"}
    with pytest.raises(tw.UsageError, match="sandbox takes auto or require"):
        tw.check("x", sandbox="maybe")


def test_outputs_that_stand_by_themselves(quiet):
    survey = tw.sample(3000)
    whole = tw.las(survey, "whole/{grid}-{time}.laz", grid="coast")
    for k in (1, 2):
        tw.las(survey, "parts/{grid}-{time}.laz", grid="coast", part=(k, 2))
    assert sorted(os.listdir("parts")) == sorted(os.listdir("whole"))
    again = tw.las(survey, "parts/{grid}-{time}.laz", grid="coast", skip_existing=True)
    assert len(again) == 0 and again.existing == len(whole)
    os.remove(os.path.join("parts", os.listdir("parts")[0]))
    assert len(tw.las(survey, "parts/{grid}-{time}.laz", grid="coast", skip_existing=True)) == 1


def test_a_failed_output_is_an_error_or_goes_on(quiet):
    survey = tw.sample(3000)
    os.mkdir("out")
    for time in survey:
        name = f"out/{time:g}.laz"
    with open(name, "w") as file:
        file.write("mine")
    with pytest.raises(tw.FileError, match="already exists"):
        tw.las(survey, "out/{time}.laz", grid="coast", each=True)
    report = tw.las(survey, "out/{time}.laz", grid="coast", keep_going=True)
    assert len(report) == len(survey) - 1
    assert len(report.failures) == 1 and "already exists; overwrite=True replaces it" in report.failures[0]


def test_a_dry_run_writes_nothing(survey_file):
    plan = tw.pcd(survey_file, "out/{grid}.pcd", dry_run=True)
    assert not plan.placed and os.listdir() == [] and plan.obstacles == []
    assert [(file.path, file.items, file.unit) for file in plan] == [("out/survey.pcd", 5000, "points")]
    assert any(loss.kind == "fields" for loss in plan.losses)
    with open("a.pcd", "w"):
        pass
    assert "a.pcd: already exists" in tw.pcd(survey_file, "a.pcd", dry_run=True).obstacles[0]
