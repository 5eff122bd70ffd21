#!/usr/bin/env python3
"""Prints what scripts/bench --ports compares, a row an operation, from the built quillon_ports_bench programs:
times at SSE2 and in WebAssembly, in turns so that both see the same machine, and the instructions of ARM64 for a
pixel, counted by a plugin of the emulator as the difference between one call and two.
"""
import subprocess
import sys

PIXELS = 1920 * 1080
TURNS = 3
PROGRAM = "bench/ports/quillon_ports_bench"
LINUX = [f"build/linux/{PROGRAM}"]
WASM = ["node", "--no-experimental-fetch", f"build/wasm/{PROGRAM}.js"]
ARM = ["qemu-aarch64", "-L", "/usr/aarch64-linux-gnu", "-plugin", "build/count_instructions.so",
       f"build/linux-arm64/{PROGRAM}"]


def times(program):
    out = subprocess.run(program, check=True, stdout=subprocess.PIPE, text=True).stdout
    return {name: float(time) for name, time in (line.split() for line in out.splitlines())}


def shortest(runs):
    return {name: min(run[name] for run in runs) for name in runs[0]}


def instructions(name, calls):
    done = subprocess.run([*ARM, name, str(calls)], check=True, stderr=subprocess.PIPE, text=True)
    return int(done.stderr.splitlines()[-1])


def main():
    runs = [(times(LINUX), times(WASM)) for _ in range(TURNS)]
    native, module = shortest([run[0] for run in runs]), shortest([run[1] for run in runs])
    if native.keys() != module.keys():
        sys.exit("bench: the programs have different rows")
    print("| operation | sse2 | wasm | wasm/sse2 | arm64 instructions a pixel |\n|---|---|---|---|---|")
    for name, time in native.items():
        a_pixel = (instructions(name, 2) - instructions(name, 1)) / PIXELS
        print(f"| {name} | {time:.0f} | {module[name]:.0f} | {module[name] / time:.2f} | {a_pixel:.2f} |")


if __name__ == "__main__":
    main()
