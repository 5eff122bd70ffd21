"""What `pip install` gives, in a fresh environment of its own: the wheel, and every notebook run with it."""

import json
import os
import re
import subprocess
import sys
import sysconfig
from pathlib import Path

import nbclient
import nbformat
import pytest

SOURCE = Path(__file__).parents[2]
NOTEBOOKS = SOURCE / "python" / "notebooks"
# What each prints, of the truth of its drawing.
PRINTED = {
    "calibrate-a-camera": ["bent by 6.0 pixels", "225 dots", "within 0.3 pixels"],
    "count-parts": ["28 parts, 28 were drawn", "4 pins", "28 parts after the top-hat"],
    "find-a-pattern": ["4 brackets, 4 were drawn", "4 matches"],
    "find-an-outline": ["x 607.0 y 539.0 angle -32.2", "in half the light: x 607.0 y 539.0"],
    "inspect-a-board": ["0 defects on the board that lies askew", "8 defects, 8 were drawn",
                        "pass fail fail pass fail fail pass fail fail"],
    "measuring": ["8 holes, the farthest from 0.85 mm by less than 0.02 mm",
                  "4.561 mm apart within 0.02 mm: True", "pass, 4.6 mm"],
}


@pytest.fixture(scope="module")
def environment(tmp_path_factory):
    """The interpreter of an environment with the wheel, and NumPy of the system; no other path."""
    folder = tmp_path_factory.mktemp("wheel")
    clean = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    run = lambda *command: subprocess.run(  # noqa: E731
        [*map(str, command)], check=True, cwd=folder, env=clean, capture_output=True)
    build = os.path.relpath(os.environ["QUILLON_BUILD"], SOURCE)
    run(sys.executable, "-m", "pip", "wheel", "--no-index", "--no-deps", "-w", folder,
        "--config-settings", f"build-dir={build}", SOURCE)
    wheel, = folder.glob("*.whl")
    # An environment without an installer of its own is made in a thirtieth of the time.
    run(sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", folder / "venv")
    interpreter = folder / "venv" / "bin" / "python"
    run(sys.executable, "-m", "pip", "--python", interpreter, "install", "--no-index", wheel)
    return wheel, interpreter, folder


def test_the_wheel_says_on_what_it_runs(environment):
    wheel, interpreter, _ = environment
    machine = sysconfig.get_platform().split("-")[-1]
    python = "cp{}{}".format(*sys.version_info)
    major, minor = re.fullmatch(
        rf"quillon-.*-{python}-{python}-manylinux_(\d+)_(\d+)_{machine}\.whl", wheel.name).groups()
    here = os.confstr("CS_GNU_LIBC_VERSION").split()[1].split(".")
    tagged = int(major), int(minor)
    assert (2, 17) <= tagged <= tuple(map(int, here))
    # As new as the symbols ask for that scripts/check-hardening reads, or as what the C++ library comes with.
    package = next(interpreter.parents[1].glob("lib/python*/site-packages/quillon"))
    files = [file for file in package.iterdir() if ".so" in file.name]
    assert len(files) == 2
    told = subprocess.run([SOURCE / "scripts" / "check-hardening", *files], text=True,
                          stdout=subprocess.PIPE).stdout
    asked = max(tuple(map(int, found)) for found in
                re.findall(r"needs the C library (\d+)\.(\d+)", told))
    symbols = subprocess.run(["objdump", "-T", *files], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    newest = max(tuple(map(int, found.split("."))) for found in re.findall(r"GLIBCXX_([\d.]+)", symbols))
    assert newest < (3, 4, 30), "the C++ library of C library 2.34 has all: else renew this bound"
    assert tagged == max(asked, (2, 34) if newest >= (3, 4, 29) else (2, 31))
    code = "import quillon, sys; print(quillon.__file__, quillon.__version__, len(quillon.EXPORTS))"
    told = subprocess.run([interpreter, "-c", code], cwd="/", text=True, check=True,
                          capture_output=True, env={"PATH": os.environ["PATH"]}).stdout.split()
    assert Path(told[0]).is_relative_to(interpreter.parents[1]) and told[2] == "117"
    assert told[1] == (SOURCE / "VERSION").read_text().strip()


# The workbench is a page in a browser: its guide has nothing of Python. Notebooks draw their pictures, so
# that of finding parts in photographs would be the one of finding patterns.
GUIDES = {path.stem for path in SOURCE.glob("docs/guides/*.md")} - {"workbench", "find-in-a-photograph"}


@pytest.mark.parametrize("name", sorted(GUIDES | {path.stem for path in NOTEBOOKS.glob("*.ipynb")}))
def test_a_notebook_of_each_guide_runs(name, environment, monkeypatch):
    _, interpreter, folder = environment
    notebook = nbformat.read(NOTEBOOKS / f"{name}.ipynb", as_version=4)
    assert not any(cell.get("outputs") for cell in notebook.cells), "outputs are not kept"
    kernel = folder / "jupyter" / "kernels" / "wheel"
    kernel.mkdir(parents=True, exist_ok=True)
    (kernel / "kernel.json").write_text(json.dumps({
        "argv": [str(interpreter), "-m", "ipykernel_launcher", "-f", "{connection_file}"],
        "display_name": "wheel", "language": "python"}))
    monkeypatch.setenv("JUPYTER_PATH", str(folder / "jupyter"))
    monkeypatch.delenv("PYTHONPATH", raising=False)
    nbclient.NotebookClient(notebook, kernel_name="wheel", timeout=300,
                            resources={"metadata": {"path": str(folder)}}).execute()
    outputs = [output for cell in notebook.cells for output in cell.get("outputs", ())]
    printed = "".join(output.get("text", "") for output in outputs)
    for text in PRINTED[name]:
        assert text in printed
    kinds = {kind for output in outputs for kind in output.get("data", ())}
    assert "text/html" in kinds
