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


def is_shown(name):
    return name[0] != "_" or name == "__init__"


def stub_functions():
    """The functions of the stub, methods as Class.method: name -> parameters with defaults."""
    tree = ast.parse((Path(quillon.__file__).parent / "_quillon.pyi").read_text())
    for node in tree.body:
        prefix = f"{node.name}." if isinstance(node, ast.ClassDef) else ""
        for function in node.body if prefix else [node]:
            if isinstance(function, ast.FunctionDef) and is_shown(function.name):
                given = function.args
                if any(isinstance(mark, ast.Attribute) for mark in function.decorator_list):
                    continue  # the setter of a property
                names = [row.arg for row in given.args + given.kwonlyargs]
                values = [*given.defaults, *(row for row in given.kw_defaults if row)]
                defaults = dict(zip(names[len(names) - len(values):], map(ast.unparse, values)))
                extra = [row.arg for row in (given.vararg, given.kwarg) if row]
                yield prefix + function.name, (names + extra, defaults)


def native_functions():
    """The same of the native module, from the signatures that it states."""
    classes = [(value, f"{name}.") for name, value in vars(quillon._quillon).items()
               if inspect.isclass(value)]
    for owner, prefix in [(quillon._quillon, ""), *classes]:
        for name, value in vars(owner).items():
            if isinstance(value, property):
                yield prefix + name, (["self"], {})
            elif is_shown(name) and callable(value) and not inspect.isclass(value):
                if value.__text_signature__:
                    rows = inspect.signature(value).parameters.values()
                    yield prefix + name, ([row.name for row in rows], {
                        row.name: repr(row.default) for row in rows if row.default is not row.empty})
                    continue
                text = re.match(rf"{name}\((.*?)\) ->", value.__doc__)[1]
                defaults = re.findall(r"(\w+): [\w.]+(?:\[[^\]]*\])? = (\(.*?\)|[^,]+)", text)
                yield prefix + name, (re.findall(r"(?:^|, )\*{0,2}(\w+)(?=$|[:,])", text),
                                      dict(defaults))


def test_the_stubs_state_the_functions_that_are_there():
    stubs, native = dict(stub_functions()), dict(native_functions())
    assert sorted(stubs) == sorted(native)
    for name, expected in native.items():
        assert stubs[name] == expected, name


def test_the_command_prints_what_there_is():
    assert "list every function" in run("--help")
    listed = [line.split()[0] for line in run("list").splitlines()]
    assert {*quillon._quillon._OPERATIONS, *quillon.EXPORTS.values(), "Recipe"} <= {*listed}
    assert len(listed) == len({*listed})
    assert run("find", "IxRobert").startswith("quillon.roberts: Edge strength")


def test_the_installed_package_runs(tmp_path):
    build = os.environ["QUILLON_BUILD"]
    version = "python{}.{}".format(*sys.version_info)
    for prefix, site in [("/usr", "usr/lib/python3/dist-packages"),
                         ("/usr/local", f"usr/local/lib/{version}/dist-packages")]:
        root = tmp_path / prefix.replace("/", "_")
        subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True,
                       env=dict(os.environ, DESTDIR=str(root)), stdout=subprocess.DEVNULL)
        assert (root / site / "quillon" / "py.typed").exists()
        assert "list every function" in run("--help", path=root / site)
        assert run("--version", path=root / site) == (SOURCE / "VERSION").read_text()
