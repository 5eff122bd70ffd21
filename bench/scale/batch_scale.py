#!/usr/bin/python3
"""What a batch costs on a simulated cluster: workers of one thread each on this machine.

  bench/scale/batch_scale.py cost [--images N] [--chunks 1 4 16 64] [--plot FILE.svg]
      the scheduler's and this process's processor time per image, by the chunk size
  bench/scale/batch_scale.py images
      processor time and bytes of an image of 1200 x 900, by its format and the recipe
  bench/scale/batch_scale.py threads
      how many processors one recipe over frames keeps busy, on 1 and on 2 threads
  bench/scale/batch_scale.py books [--images N] [--every IMAGES]
      workers killed and stopped; counts the records of each image

Needs the package on PYTHONPATH and what its tests need. Times are processor times of the processes,
so that other work on the machine changes them little.
"""

import argparse
import collections
import json
import os
import resource
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "python"))

import cv2  # noqa: E402
import distributed  # noqa: E402
import numpy as np  # noqa: E402
import quillon  # noqa: E402
from cluster import Cluster, Trouble  # noqa: E402
from pictures import scene  # noqa: E402
from quillon import batch, samples  # noqa: E402

RECIPE = {"name": "Parts",
          "steps": [{"name": "parts", "operation": "blobs", "input": "image", "min_area": 50}],
          "measurements": [{"name": "parts", "input": "parts", "value": "count", "min": 3}]}


def processor_seconds(process):
    """Of a process and its threads, from the system."""
    fields = Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def make_job(folder, count):
    """A recipe and `count` names of one small image each."""
    (folder / "parts.json").write_text(json.dumps(RECIPE))
    image = scene((80, 120))
    first = folder / "first.pgm"
    first.write_bytes(b"P5\n120 80\n255\n" + np.ascontiguousarray(image).tobytes())
    names = []
    for n in range(count):
        name = folder / f"{n:07}.pgm"
        os.symlink(first, name)
        names.append(str(name))
    return folder / "parts.json", names


def cost(arguments, folder):
    recipe, names = make_job(folder, arguments.images)
    begin = time.process_time()
    assert sum(1 for _ in batch.run(recipe, names[:2000])) == min(2000, len(names))
    inspecting = (time.process_time() - begin) / min(2000, len(names))
    print(f"without a cluster: {inspecting * 1e6:.0f} us an image, in all\n")
    print("| images a task | scheduler, us an image | this process | workers |\n|---|---|---|---|")
    rows = []
    for chunk in arguments.chunks:
        with Cluster(folder, arguments.workers) as made, distributed.Client(made.address) as client:
            list(batch.run(recipe, names[:200], client, chunk=chunk))  # what comes once
            processes = [made.scheduler.pid, os.getpid(), *(worker.pid for worker in made.workers)]
            before = [processor_seconds(process) for process in processes]
            records = sum(1 for _ in batch.run(recipe, names, client, chunk=chunk))
            assert records == len(names)
            used = [after - first for first, after in
                    zip(before, map(processor_seconds, processes))]
            row = [1e6 * seconds / records for seconds in (used[0], used[1], sum(used[2:]))]
        (folder / "scheduler.json").unlink()
        rows.append(row)
        print(f"| {chunk} | {row[0]:.0f} | {row[1]:.0f} | {row[2]:.0f} |", flush=True)
    if arguments.plot:
        plot(arguments, rows)


def plot(arguments, rows):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.hashsalt": "quillon", "svg.fonttype": "none"})
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(figsize=(6, 3.6))
    for name, column in zip(("scheduler", "this process", "workers"), zip(*rows)):
        axes.loglog(arguments.chunks, column, "o-", label=name)
    axes.set_xlabel("images a task")
    axes.set_ylabel("processor time, us an image")
    axes.set_xticks(arguments.chunks, arguments.chunks)
    axes.legend()
    figure.tight_layout()
    figure.savefig(arguments.plot, metadata={"Date": None})


RECIPES = {
    "count parts": [{"name": "it", "operation": "blobs", "input": "image", "min_area": 300}],
    "find brackets": [{"name": "it", "operation": "find", "input": "image",
                       "template": "bracket.png"}],
}


def tray_recipe(steps):
    return {"name": "Tray", "steps": steps,
            "measurements": [{"name": "it", "input": "it", "value": "count", "min": 1}]}


def images(_, folder):
    cv2.imwrite(str(folder / "bracket.png"), samples.bracket())
    count = 12
    print("| format | recipe | KB an image | ms of processor time |\n|---|---|---|---|")
    for ending in ("png", "jpg", "bmp"):
        names = [str(folder / f"{n}.{ending}") for n in range(count)]
        for n, name in enumerate(names):
            cv2.imwrite(name, samples.tray(n)[0])
        size = sum(os.path.getsize(name) for name in names) / count / 1000
        for title, steps in RECIPES.items():
            recipe = folder / "recipe.json"
            recipe.write_text(json.dumps(tray_recipe(steps)))
            list(batch.run(recipe, names))
            begin = time.process_time()
            assert all(record["verdict"] == "pass" for record in batch.run(recipe, names))
            spent = (time.process_time() - begin) / count * 1000
            print(f"| {ending} | {title} | {size:.0f} | {spent:.1f} |", flush=True)


def threads(_, folder):
    cv2.imwrite(str(folder / "bracket.png"), samples.bracket())
    frames = [samples.tray(n)[0] for n in range(8)]
    print("| recipe | threads | frames a second | processors busy |\n|---|---|---|---|")
    for title, steps in RECIPES.items():
        recipe = quillon.Recipe(tray_recipe(steps), folder)
        for count in (1, 2):
            list(recipe.run_all(frames, count))
            begin, used = time.monotonic(), time.process_time()
            done = sum(1 for _ in recipe.run_all((frames[n % 8] for n in range(60)), count))
            took, used = time.monotonic() - begin, time.process_time() - used
            print(f"| {title} | {count} | {done / took:.0f} | {used / took:.2f} |", flush=True)


def books(arguments, folder):
    recipe, names = make_job(folder, arguments.images)
    begin, seen, verdicts = time.monotonic(), collections.Counter(), collections.Counter()
    with Cluster(folder, arguments.workers) as made:
        trouble = Trouble(made)
        for n, record in enumerate(batch.run(recipe, names, made.address, out=folder / "out",
                                             pages=False)):
            if n % arguments.every == 1:
                trouble.strike()
            seen[record["image"]] += 1
            verdicts[record["verdict"]] += 1
            if n % 1000 == 0:  # the file of a later image vanishes
                later = names[min(n + 500 + 16 * 40, len(names) - 1)]
                Path(later).unlink(missing_ok=True)
    lines = (folder / "out" / "results.jsonl").read_text().splitlines()[1:]
    written = [json.loads(line)["image"] for line in lines]
    print(f"{len(names)} images in {time.monotonic() - begin:.0f} s, {trouble.killed} workers "
          f"killed, {trouble.slowed} stopped for a while: {dict(verdicts)}")
    most = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024 / 1e6
    print(f"this process: {most:.0f} MB at most")
    balanced = set(seen.values()) == {1} and list(seen) == names == written
    print("each image has exactly one record, in order" if balanced else "the books do not balance")
    return 0 if balanced else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=["cost", "images", "threads", "books"])
    parser.add_argument("--images", type=int, default=10000)
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--chunks", type=int, nargs="+", default=[1, 4, 16, 64])
    parser.add_argument("--every", type=int, default=2000, help="images between troubles")
    parser.add_argument("--plot", help="SVG file for the costs")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        return {"cost": cost, "images": images, "threads": threads,
                "books": books}[arguments.what](arguments, Path(folder))


if __name__ == "__main__":
    sys.exit(main())
