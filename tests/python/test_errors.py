# SPDX-License-Identifier: Apache-2.0
"""Errors are exceptions by kind, with file, object and cause."""

import pickle

import numpy as np
import pytest

import tidewatch as tw


def test_kinds_are_those_that_users_of_python_expect():
    assert issubclass(tw.FileError, (tw.Error, OSError)) and issubclass(tw.FileError, OSError)
    for kind in (tw.FormatError, tw.ModelError, tw.UsageError):
        assert issubclass(kind, tw.Error) and issubclass(kind, ValueError)
    assert issubclass(tw.LimitError, MemoryError) and issubclass(tw.LossError, tw.ExportError)
    assert issubclass(tw.LossWarning, UserWarning) and issubclass(tw.RemarkWarning, UserWarning)
    assert tw.Error.__module__ == "tidewatch"


def test_a_missing_file_is_a_file_error():
    with pytest.raises(tw.FileError) as failure:
        tw.open("nobody.laz")
    error = failure.value
    assert (error.file, error.object) == ("nobody.laz", "") and "No such file" in error.cause
    assert str(error) == f"{error.file}: {error.cause}"


def test_a_damaged_file_is_a_format_error_with_its_object(survey_file):
    content = bytearray(open(survey_file, "rb").read())
    content[104] = 42 | 128  # the point format
    open("damaged.laz", "wb").write(content)
    with pytest.raises(tw.FormatError) as failure:
        tw.open("damaged.laz")
    assert failure.value.file == "damaged.laz" and failure.value.cause and failure.value.file in str(failure.value)


def test_a_file_that_nobody_reads_says_what_is_known():
    open("a.txt", "w").write("hello")
    with pytest.raises(tw.FormatError, match="not recognised") as failure:
        tw.open("a.txt")
    assert failure.value.object == "" and "LAS/LAZ" in failure.value.cause


def test_a_truncated_file_fails_when_its_points_are_read(survey_file, quiet):
    tw.las(survey_file, "whole.las")
    content = open("whole.las", "rb").read()
    open("whole.las", "r+b").truncate(len(content) - 40 * 2000)
    with pytest.raises(tw.FormatError) as failure:
        tw.open("whole.las")[0]["whole"]["Positions"]
    assert failure.value.file == "whole.las"


def test_a_limit_is_a_limit_error(quiet):
    tw.bundle(tw.sample(50_000), "a.h5")
    try:
        with pytest.raises(tw.LimitError) as failure:
            tw.open("a.h5", memory_limit="10K")[0]["coast"]["Positions"]
        assert isinstance(failure.value, MemoryError)
    finally:
        tw.cache.limit = 512 << 20


def test_unreadable_files_are_left_out_on_request(survey_file):
    open("a.txt", "w").write("hello")
    with pytest.raises(tw.Error, match="a.txt"):
        tw.open(survey_file, "a.txt")
    survey = tw.open(survey_file, "a.txt", skip_unreadable=True)
    assert list(survey[0]) == ["survey"] and len(survey.failures) == 1 and "a.txt" in survey.failures[0]
    assert "a.txt" in tw.info([survey_file, "a.txt"]).failures[0]
    with pytest.raises(tw.FormatError):
        tw.open("a.txt", skip_unreadable=True)


def test_two_grids_of_one_name_are_a_model_error(survey_file):
    with pytest.raises(tw.Error, match="survey"):
        tw.open(survey_file, survey_file)


@pytest.mark.parametrize("kind", [tw.Error, tw.FileError, tw.FormatError, tw.LimitError, tw.ModelError, tw.UsageError,
                                  tw.ExportError, tw.LossError])
def test_errors_survive_other_processes(kind):
    error = pickle.loads(pickle.dumps(kind("a.laz: header: bad", "a.laz", "header", "bad")))
    assert type(error) is kind and str(error) == "a.laz: header: bad"
    assert (error.file, error.object, error.cause) == ("a.laz", "header", "bad")
    warning = pickle.loads(pickle.dumps(tw.LossWarning("gone", "fields")))
    assert str(warning) == "gone" and warning.kind == "fields"


def test_remarks_are_warnings(survey_file, quiet):
    tw.las(survey_file, "a.laz", crs="EPSG:25832")
    with pytest.warns(tw.RemarkWarning, match="crs EPSG:25833 replaces|replaces"):
        tw.open("a.laz", crs="EPSG:25833")


def test_options_of_the_program_are_arguments_in_messages():
    from tidewatch._words import in_python
    assert in_python("--cell-size takes other cells, and --no-thinning keeps all") == (
        "cell_size takes other cells, and thinning=False keeps all")
    assert in_python("a--merge.laz --unknown --mergers") == "a--merge.laz --unknown --mergers"
