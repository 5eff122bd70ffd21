"""`python3 -m quillon`: what the package offers."""

from __future__ import annotations

import argparse
import sys
from typing import List, Optional

import quillon
from quillon import _batch_command


def summary(name: str) -> str:
    """The first line of a description."""
    target: object = quillon
    for part in name.split("."):
        target = getattr(target, part)
    return (target.__doc__ or "").splitlines()[0]


def names() -> List[str]:
    """Every function and object: the operations, and what EXPORTS leads to besides."""
    return list(dict.fromkeys([*quillon._quillon.OPERATIONS, *quillon.recipes.__all__,
                               *quillon.calibration.__all__, *quillon.files.__all__,
                               *quillon.prepared.__all__, *quillon.EXPORTS.values()]))


def list_functions(_: argparse.Namespace) -> None:
    width = max(map(len, names()))
    for name in names():
        print(f"{name:{width}}  {summary(name)}")


def show_export(arguments: argparse.Namespace) -> None:
    name = quillon.EXPORTS.get(arguments.export)
    if name is None:
        sys.exit(f"{arguments.export}: not a function of the C library")
    print(f"quillon.{name}: {summary(name)}")


def main() -> Optional[int]:
    parser = argparse.ArgumentParser(prog="python3 -m quillon", description=quillon.__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--version", action="version", version=quillon.__version__)
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    command = commands.add_parser("list", help="list every function with its first line")
    command.set_defaults(run=list_functions)
    command = commands.add_parser("find", help="the Python name of a function of the C library")
    command.add_argument("export", metavar="NAME", help="a C name, such as IxSobel")
    command.set_defaults(run=show_export)
    _batch_command.add_command(commands)
    arguments = parser.parse_args()
    result: Optional[int] = arguments.run(arguments)
    return result


if __name__ == "__main__":
    sys.exit(main())
