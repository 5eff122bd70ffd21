"""`python3 -m quillon`: what the package offers."""

import argparse
import sys

import quillon
from quillon import _batch_command


def summary(name):
    """The first line of a description."""
    target = quillon
    for part in name.split("."):
        target = getattr(target, part)
    # A signature comes first in the description of pybind11's functions.
    lines = [line for line in (target.__doc__).splitlines() if line]
    text = [line for line in lines if "->" not in line] or [""]
    return text[0]


def names():
    """Every function and object: the operations, and what EXPORTS leads to besides."""
    return list(dict.fromkeys([*quillon._quillon._OPERATIONS, "Recipe", "Prepared",
                               "BoardInspector", *quillon.EXPORTS.values()]))


def list_functions(_arguments):
    width = max(map(len, names()))
    for name in names():
        print(f"{name:{width}}  {summary(name)}")


def show_export(arguments):
    name = quillon.EXPORTS.get(arguments.export)
    if name is None:
        sys.exit(f"{arguments.export}: not a function of the C library")
    print(f"quillon.{name}: {summary(name)}")


def main():
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
    return arguments.run(arguments)


if __name__ == "__main__":
    sys.exit(main())
