# SPDX-License-Identifier: Apache-2.0
"""The stubs of the module in C++ name everything that it has, and nothing else."""

import ast
import inspect
import os

import tidewatch as tw
from tidewatch import _core

PACKAGE = os.path.dirname(tw.__file__)


def stubs():
    tree = ast.parse(open(os.path.join(PACKAGE, "_core.pyi")).read())
    members = {}
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            members[node.name] = set()
            for item in node.body:
                if isinstance(item, ast.FunctionDef):
                    members[node.name].add(item.name)
                elif isinstance(item, ast.AnnAssign):
                    members[node.name].add(item.target.id)
        elif isinstance(node, ast.FunctionDef):
            members[node.name] = None
        elif isinstance(node, ast.AnnAssign):
            members[node.target.id] = None
    return members


USUAL = {"__init__", "__doc__", "__module__", "__dict__", "__weakref__", "__repr__", "__new__", "_repr_html_"}


def test_every_name_of_the_module_has_a_stub():
    public = {name for name in vars(_core) if not name.startswith("__")} | {"__version__"}
    assert set(stubs()) - {"_Exporter"} == public


def test_every_member_of_a_class_has_a_stub():
    known = stubs()
    for name, cls in inspect.getmembers(_core, inspect.isclass):
        expected = set(known[name])
        if name.startswith("Export"):
            expected |= known["_Exporter"]
        present = {member for member in vars(cls) if member not in USUAL and not member.startswith("_pybind")}
        assert {member for member in expected if member not in USUAL} == present, name


def test_everything_public_is_there_and_has_a_docstring():
    for name in tw.__all__:
        value = getattr(tw, name)
        if inspect.isclass(value) or inspect.isfunction(value):
            assert inspect.getdoc(value), name
    for cls in (tw.Bundle, tw.Slice, tw.Grid, tw.Skeleton, tw.Fragment):
        for name, member in vars(cls).items():
            if not name.startswith("_") and name not in ("keys", "items", "values", "get"):
                assert inspect.getdoc(member), f"{cls.__name__}.{name}"


def test_the_package_says_that_it_is_typed():
    assert os.path.exists(os.path.join(PACKAGE, "py.typed"))
