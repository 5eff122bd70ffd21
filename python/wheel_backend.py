"""Builds the wheel: what `pip install .` and `pip wheel .` call.

The package is installed by CMake, component "wheel": the module, its Python files, and beside them
the library. `--config-settings build-dir=build/linux` takes a build that is there, else one is made
in build/wheel. The wheel is tagged for the oldest C library that has every symbol it asks for.
"""

import base64
import hashlib
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import tomllib
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# The first C library of the distributions that come with these versions of the C++ library.
CXX_COMES_WITH = {(3, 4, 28): (2, 31), (3, 4, 29): (2, 34), (3, 4, 30): (2, 35), (3, 4, 32): (2, 38)}


def version():
    return (ROOT / "VERSION").read_text().strip()


def build(folder):
    """The package as it is installed, in `folder`/quillon."""
    options = ["-DQUILLON_PYTHON=ON"]
    if not (folder / "CMakeCache.txt").exists():
        options += ["-DCMAKE_BUILD_TYPE=Release", "-DQUILLON_TESTS=OFF", "-DQUILLON_APPS=OFF",
                    f"-DPython_EXECUTABLE={sys.executable}"]
        if shutil.which("ninja"):
            options += ["-G", "Ninja"]
    subprocess.run(["cmake", "-S", ROOT, "-B", folder, *options], check=True)
    subprocess.run(["cmake", "--build", folder, "--target", "quillon_python", "--parallel"],
                   check=True)


def symbol_versions(file, family):
    """The versions of a family of symbols that a shared object asks for."""
    text = subprocess.run(["readelf", "--version-info", "--wide", file], check=True, text=True,
                          capture_output=True).stdout
    return {tuple(map(int, found.split(".")))
            for found in re.findall(rf"Name: {family}_([0-9.]+)", text)}


def oldest_c_library(files):
    """The least version of the C library that these shared objects run with."""
    needed = (2, 17)  # the oldest that installers know
    for file in files:
        needed = max(needed, *(version[:2] for version in symbol_versions(file, "GLIBC")))
        newest = max(symbol_versions(file, "GLIBCXX"), default=())
        needed = max([needed, *(library for first, library in CXX_COMES_WITH.items()
                                if newest >= first)])
    return needed


def tag_of(package):
    python = "cp{}{}".format(*sys.version_info)
    machine = sysconfig.get_platform().split("-")[-1]
    library = oldest_c_library([file for file in package.iterdir() if ".so" in file.name])
    return f"{python}-{python}-manylinux_{library[0]}_{library[1]}_{machine}"


def metadata():
    project = tomllib.loads((ROOT / "pyproject.toml").read_text())["project"]
    lines = ["Metadata-Version: 2.1", f"Name: {project['name']}", f"Version: {version()}",
             f"Summary: {project['description']}",
             f"Requires-Python: {project['requires-python']}"]
    lines += [f"Requires-Dist: {name}" for name in project["dependencies"]]
    for extra, names in project["optional-dependencies"].items():
        lines += [f"Provides-Extra: {extra}"]
        lines += [f'Requires-Dist: {name}; extra == "{extra}"' for name in names]
    readme = (ROOT / "docs" / "python.md").read_text()
    return "\n".join([*lines, "Description-Content-Type: text/markdown", "", readme])


def write_wheel(package, target):
    """The files of a package, and what installers ask for, as a wheel; its path."""
    tag, info = tag_of(package), f"quillon-{version()}.dist-info"
    contents = {f"quillon/{file.name}": file.read_bytes() for file in sorted(package.iterdir())}
    contents[f"{info}/METADATA"] = metadata().encode()
    contents[f"{info}/WHEEL"] = (f"Wheel-Version: 1.0\nGenerator: quillon {version()}\n"
                                 f"Root-Is-Purelib: false\nTag: {tag}\n").encode()
    record = "".join(
        "{},sha256={},{}\n".format(name, base64.urlsafe_b64encode(
            hashlib.sha256(data).digest()).rstrip(b"=").decode(), len(data))
        for name, data in contents.items())
    contents[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    path = target / f"quillon-{version()}-{tag}.whl"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as wheel:
        for name, data in contents.items():
            # The same files give the same wheel.
            entry = zipfile.ZipInfo(name, (2020, 1, 1, 0, 0, 0))
            entry.external_attr, entry.compress_type = 0o644 << 16, zipfile.ZIP_DEFLATED
            wheel.writestr(entry, data)
    return path


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    """What installers ask before they build: without it they would build for the answer."""
    info = Path(metadata_directory) / f"quillon-{version()}.dist-info"
    info.mkdir()
    (info / "METADATA").write_text(metadata())
    return info.name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    folder = ROOT / (config_settings or {}).get("build-dir", "build/wheel")
    build(folder)
    with tempfile.TemporaryDirectory() as root:
        subprocess.run(["cmake", "--install", folder, "--component", "wheel", "--strip",
                        "--prefix", root], check=True)
        return write_wheel(Path(root) / "quillon", Path(wheel_directory)).name


def build_sdist(sdist_directory, config_settings=None):
    name = f"quillon-{version()}"
    files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True)
    path = Path(sdist_directory) / f"{name}.tar.gz"
    with tarfile.open(path, "w:gz", format=tarfile.PAX_FORMAT) as archive:
        for file in filter(None, files.stdout.decode().split("\0")):
            archive.add(ROOT / file, os.path.join(name, file))
        head = Path(tempfile.mkdtemp()) / "PKG-INFO"
        head.write_text(metadata())
        archive.add(head, f"{name}/PKG-INFO")
    return path.name
