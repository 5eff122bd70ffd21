"""The package as a whole: names, stubs, what `python3 -m quillon` prints."""

import ast
import inspect
import os
import re
import subprocess
import sys
from pathlib import Path

import quillon
from quillon.__main__ import summary

SOURCE = Path(__file__).parents[2]


def run(*arguments, path=None):
    environment = dict(os.environ, **({"PYTHONPATH": str(path)} if path else {}))
    return subprocess.run([sys.executable, "-m", "quillon", *arguments], env=environment,
                          capture_output=True, text=True, check=True).stdout


def test_every_export_has_a_name():
    text = (SOURCE / "src" / "exports" / "quillon.def").read_text()
    exports = re.findall(r"^  ([A-Za-z]\w*)", text, re.MULTILINE)
    assert len(exports) == 117
    assert sorted(exports) == sorted(quillon.EXPORTS)


def test_every_name_leads_to_something_described():
    for export, name in quillon.EXPORTS.items():
        assert len(summary(name)) > 10, export


def names_in(tree, prefix=""):
    """What a stub file states: names, those of classes as Class.name."""
    for node in tree.body:
        if isinstance(node, ast.AnnAssign):
            yield prefix + node.target.id
        elif isinstance(node, ast.FunctionDef) and node.name[0] != "_":
            yield prefix + node.name
        elif isinstance(node, ast.ClassDef):
            yield node.name
            yield from names_in(node, node.name + ".")


def test_the_stubs_state_what_the_native_module_has():
    text = (SOURCE / "python" / "quillon" / "_quillon.pyi").read_text()
    native = quillon._quillon
    there = [name for name in vars(native) if name[0] != "_"]
    there += [f"{name}.{row}" for name in there if inspect.isclass(getattr(native, name))
              for row in vars(getattr(native, name)) if row[0] != "_"]
    assert sorted(names_in(ast.parse(text))) == sorted(there)


# A program; a checker must complain of the lines marked so, and of no other.
TYPED = """import numpy as np
import quillon
from quillon import samples

image, _ = samples.board()
smooth = quillon.mean(image, 9, layout="library")
areas = quillon.blobs(smooth, min_area=5)["area"].sum()
quillon.Finder(image, angle=(-20, 20)).find(image).plot()
verdict: str = quillon.Recipe("x.json").run(image).verdict
with quillon.NccTool() as tool:
    tool.teach(image)
    tool.find(np.zeros((90, 90), np.uint8), max_results=3)
for record in quillon.batch.run("a", ["b"]):
    print(record["verdict"])
quillon.mean(image, "9")  # wrong
quillon.mean(image, 9, radius=3)  # wrong
quillon.nothing(image)  # wrong
quillon.hsi(image, "Hue")  # wrong
tool.find(image, rotate="yes")  # wrong
"""


def test_types_are_strict(tmp_path):
    package = Path(quillon.__file__).parent
    (tmp_path / "typed.py").write_text(TYPED)
    checked = subprocess.run(["mypy", "--python-executable", sys.executable, "--strict",
                              "--cache-dir", os.devnull, package, tmp_path / "typed.py"],
                             capture_output=True, text=True).stdout
    wrong = [n for n, line in enumerate(TYPED.splitlines(), 1) if line.endswith("# wrong")]
    errors = [line.split(":")[:2] for line in checked.splitlines() if ": error: " in line]
    assert errors == [[str(tmp_path / "typed.py"), str(n)] for n in wrong], checked


def test_importing_brings_what_most_programs_need_and_no_more():
    code = """import sys, time, numpy, numpy.typing
begin = time.process_time(); import quillon; took = time.process_time() - begin
assert not {"quillon.batch", "quillon.results", "matplotlib", "distributed"} & {*sys.modules}
assert quillon.batch.run and quillon.results.Inspection and took < 0.060, took"""
    subprocess.run([sys.executable, "-c", code], check=True)


def test_the_command_prints_what_there_is():
    assert "list every function" in run("--help")
    listed = [line.split()[0] for line in run("list").splitlines()]
    assert {*quillon._quillon.OPERATIONS, *quillon.EXPORTS.values(), "Recipe"} <= {*listed}
    assert len(listed) == len({*listed})
    assert run("find", "IxRobert").startswith("quillon.roberts: Edge strength")


def test_the_installed_package_runs(tmp_path):
    build = os.environ["QUILLON_BUILD"]
    version = "python{}.{}".format(*sys.version_info)
    for prefix, site in [("/usr", "usr/lib/python3/dist-packages"),
                         ("/usr/local", f"usr/local/lib/{version}/dist-packages")]:
        root = tmp_path / prefix.replace("/", "_")
        for component in ("library", "python"):
            subprocess.run(["cmake", "--install", build, "--prefix", prefix, "--component",
                            component], check=True, stdout=subprocess.DEVNULL,
                           env=dict(os.environ, DESTDIR=str(root)))
        assert (root / site / "quillon" / "py.typed").exists()
        assert "list every function" in run("--help", path=root / site)
        assert run("--version", path=root / site) == (SOURCE / "VERSION").read_text()
