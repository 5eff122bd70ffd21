"""A Dask cluster on the loopback address whose workers come and go."""

import json
import random
import signal
import subprocess
import sys
import threading
import time

import distributed


class Cluster:
    """A scheduler and worker processes of one thread each, without anything that restarts them."""

    def __init__(self, folder, workers=2):
        self._folder, self._file = folder, folder / "scheduler.json"
        self.scheduler = self._start("dask_scheduler", "--port", "0", "--no-dashboard")
        self.workers = []
        deadline = time.monotonic() + 120
        while not (self._file.exists() and self._file.read_text().endswith("}")):
            assert self.scheduler.poll() is None and time.monotonic() < deadline
            time.sleep(0.05)
        self.address = json.loads(self._file.read_text())["address"]
        for _ in range(workers):
            self.add_worker()
        if workers:
            with distributed.Client(self.address, timeout=120) as client:
                client.wait_for_workers(workers, timeout=120)

    def _start(self, module, *arguments):
        return subprocess.Popen(
            [sys.executable, "-m", f"distributed.cli.{module}", "--host", "127.0.0.1",
             "--scheduler-file", str(self._file), *arguments],
            cwd=self._folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def add_worker(self):
        self.workers.append(self._start("dask_worker", "--no-nanny", "--nthreads", "1",
                                        "--no-dashboard", "--death-timeout", "60"))

    def kill_worker(self, index):
        worker = self.workers.pop(index)
        worker.kill()
        worker.wait()

    def close(self):
        for process in [*self.workers, self.scheduler]:
            process.kill()
            process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Trouble:
    """What may happen to a cluster, in turns: a worker is killed and replaced, another sleeps."""

    def __init__(self, cluster, seed=0):
        self._cluster, self._random = cluster, random.Random(seed)
        self.killed, self.slowed = 0, 0

    def strike(self):
        index = self._random.randrange(len(self._cluster.workers))
        if self.killed <= self.slowed:
            self._cluster.kill_worker(index)
            self._cluster.add_worker()
            self.killed += 1
        else:
            worker = self._cluster.workers[index]
            worker.send_signal(signal.SIGSTOP)
            threading.Timer(0.3, worker.send_signal, [signal.SIGCONT]).start()
            self.slowed += 1
