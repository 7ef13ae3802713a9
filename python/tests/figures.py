"""Prints what the package promises of threads, of reads and of clusters, next to the bounds, and fails where one is
missed. Bounds on time count only on a machine that has nothing else to do; its load is printed.

Usage: figures.py SAMPLES TAVRIK_SCAN
"""
import io
import os
import pathlib
import sys
import tempfile
import threading
import time

import tavrik

IDLE = 0.7  # of the load that is not ours, in processes
PAIRS = 15


class Counted(io.BytesIO):
    reads = 0

    def read(self, size=-1):
        self.reads += 1
        return super().read(size)


def programs(samples):
    """Programs of this machine, and the clean ones of the sample set."""
    found = [path for path in samples.glob("*.*") if path.name.startswith(("clean-", "near-miss-"))]
    for folder in (sys.prefix, "/usr/share", "/usr/lib"):
        found += [path for end in ("exe", "dll") for path in pathlib.Path(folder).rglob(f"*.{end}") if path.is_file()]
    return found


def reads(scanner, paths):
    counts = []
    for path in paths:
        file = Counted(path.read_bytes())
        report = scanner.scan(file)
        if report.outcome is tavrik.Outcome.SCANNED and not report:
            counts.append(file.reads)
    few = sum(count <= 3 for count in counts)
    print(f"file objects: {few} of {len(counts)} clean PE files ({100 * few / len(counts):.1f} %) cost at most 3 reads; "
          "bound 95 %")
    return few >= 0.95 * len(counts)


def threads(scanner, samples, load):
    """How many times as fast two threads are as one: each in turn, the best time of either, since other programs can
    only take time."""
    data = next(samples.glob("entry01-*")).read_bytes()

    def work(count):
        for _ in range(count):
            scanner.scan(data)

    def seconds(number):
        workers = [threading.Thread(target=work, args=(100 // number,)) for _ in range(number)]
        started = time.perf_counter()
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        return time.perf_counter() - started

    one, two = (min(column) for column in zip(*((seconds(1), seconds(2)) for _ in range(PAIRS))))
    print(f"threads: 2 on one scanner are {one / two:.2f} times as fast as 1 (best of {PAIRS}, {os.cpu_count()} "
          f"processors, load {load:.1f}); bound 1.8")
    return one / two >= 1.8 or load > IDLE or (os.cpu_count() or 1) < 2


def cluster(paths, program, load):
    try:
        from tavrik.cluster.__main__ import local_cluster
        from tavrik.cluster._rate import rate
    except ImportError as failure:
        print(f"cluster: not measured, {failure}")
        return True
    with tempfile.TemporaryDirectory() as folder, local_cluster(2) as client:
        for index, path in enumerate(paths):
            pathlib.Path(folder, str(index)).symlink_to(path.resolve())
        measured = rate(client, [f"{folder}/{index}" for index in range(len(paths))], 50000, program)
    print(f"{measured.text}; bound 85 %")
    return measured.share >= 0.85 or load > IDLE


def main():
    load = os.getloadavg()[0]  # before our own
    samples = pathlib.Path(sys.argv[1])
    scanner = tavrik.Scanner()
    paths = programs(samples)
    if load > IDLE:
        print(f"load {load:.1f}: the bounds on time do not count now")
    met = [threads(scanner, samples, load), reads(scanner, paths), cluster(paths, sys.argv[2], load)]
    return 0 if all(met) else 1


if __name__ == "__main__":
    sys.exit(main())
