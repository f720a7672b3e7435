# SPDX-License-Identifier: Apache-2.0
"""Progress, messages, and Ctrl-C."""

import logging
import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import tidewatch as tw


def test_a_function_is_told_what_is_done(quiet):
    calls = []
    tw.las(tw.sample(20000), "{time}.laz", grid="coast", time=0, progress=lambda *call: calls.append(call))
    texts = [call[0] for call in calls]
    assert any(text.startswith("writing") for text in texts)
    assert {call[2:] for call in calls} == {(20000, "points"), (1, "files")}
    assert all(0 <= done <= total for _, done, total, _ in calls) and calls[-1][1] == calls[-1][2]


@pytest.mark.parametrize("call", [
    lambda **options: tw.las(tw.sample(3000), "{time}.laz", grid="coast", **options),
    lambda **options: tw.pcd(tw.sample(3000), "{time}.pcd", grid="coast", **options),
    lambda **options: tw.ascii(tw.sample(3000), "{time}", grid="coast", **options),
    lambda **options: tw.bundle(tw.sample(3000), "a.h5", **options),
    lambda **options: tw.info(tw.sample(3000), stats=True, **options),
    lambda **options: tw.view(tw.sample(3000), "a.png", **options),
])
def test_what_a_function_raises_ends_the_work(call, quiet):
    class Enough(Exception):
        pass

    def fail(*arguments):
        raise Enough("of it")

    with pytest.raises(Enough, match="of it"):
        call(progress=fail)
    assert os.listdir() == []


def test_progress_is_true_or_a_function(cloud):
    with pytest.raises(TypeError, match="True or a function"):
        tw.las(cloud, "a.laz", progress="yes")


def test_true_shows_bars_of_tqdm_or_lines(cloud, quiet, capsys, monkeypatch):
    monkeypatch.setitem(sys.modules, "tqdm.auto", None)  # not installed
    tw.las(cloud, "a.laz", progress=True)
    assert "writing coast" in capsys.readouterr().err
    bars = []

    class Bar:
        def __init__(self, **options):
            self.n, self.options, self.open = 0, options, True
            bars.append(self)

        def update(self, more):
            assert self.open and more >= 0
            self.n += more

        def set_description(self, text):
            self.texts = getattr(self, "texts", []) + [text]

        def close(self):
            self.open = False

    fake = type(sys)("tqdm.auto")
    fake.tqdm = Bar
    monkeypatch.setitem(sys.modules, "tqdm.auto", fake)
    tw.las(cloud, "b.laz", progress=True)
    assert bars and not any(bar.open for bar in bars)
    assert all(bar.n == bar.options["total"] for bar in bars)
    assert [bar.n for bar in bars] == [1000, 1]  # the points, and their file
    assert "writing coast" in bars[0].texts


def test_messages_of_exporters_go_to_logging(cloud, quiet, caplog, capfd):
    with caplog.at_level(logging.INFO, "tidewatch"):
        bundle = tw.Bundle()
        bundle.slice(0).lattice("dem", (0, 0), 1, Height=np.zeros((2, 2)))
        tw.ascii(bundle, "text", cell_types=[1])
    assert "Have no cell type field" in [record.getMessage() for record in caplog.records]
    assert all(record.name == "tidewatch" for record in caplog.records)
    assert capfd.readouterr().err == ""


LONG = """
import tidewatch as tw
survey = tw.sample(6_000_000)
print("started", flush=True)
try:
    {work}
except KeyboardInterrupt:
    print("interrupted", flush=True)
"""


@pytest.mark.parametrize("work", [
    'tw.las(survey, "{time}.laz", grid="coast")',
    'survey[0]["coast"]["Positions"]; tw.info(survey, stats=True)',
    'tw.ascii(survey, "{time}", grid="coast", field="Positions")',
])
def test_ctrl_c_ends_the_work_and_leaves_nothing(work, tmp_path):
    program = LONG.format(work=work)
    process = subprocess.Popen([sys.executable, "-W", "ignore", "-c", program], stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "started\n"
    time.sleep(0.5)
    process.send_signal(signal.SIGINT)
    rest = process.stdout.read()
    assert process.wait() == 0 and rest == "interrupted\n"
    assert os.listdir() == []


def test_handlers_of_other_signals_run_during_the_work_too(tmp_path, quiet):
    seen = []
    earlier = signal.signal(signal.SIGUSR1, lambda *arguments: seen.append(threading.current_thread()))
    try:
        threading.Timer(0.1, lambda: os.kill(os.getpid(), signal.SIGUSR1)).start()
        during = []

        def progress(*call):
            if seen and not during:
                during.append(True)

        tw.las(tw.sample(400_000), "{time}.laz", grid="coast", progress=progress)
        assert seen == [threading.main_thread()] and during
    finally:
        signal.signal(signal.SIGUSR1, earlier)
