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
PAIRS = 7
SECONDS = 0.5  # of each run
COUNT = 5_000_000  # additions of a run that only counts
PROGRAM_SIZES = range(100 << 10, 2 << 20)  # of what installers and systems carry


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


def seconds(work):
    started = time.perf_counter()
    work()
    return time.perf_counter() - started


def processes(number):
    """The same amount of counting by that many processes: what the machine has to give."""
    children = []
    for _ in range(number):
        child = os.fork()
        if child == 0:
            sum(range(COUNT // number))
            os._exit(0)
        children.append(child)
    for child in children:
        os.waitpid(child, 0)


def threads(scanner, kind, paths, is_bound, load):
    """How many times as fast two threads on one scanner are as one, by `scan_many` and by threads that call `scan`, and
    two processes that only count: each in turn, the best time of each, since other programs can only take time. The
    bound counts for `scan_many` and, where `is_bound`, for `scan`: beside a scan of some microseconds the interpreter's
    own part of a call is large."""
    names = [str(path) for path in paths]
    names *= max(1, int(SECONDS / seconds(lambda: list(scanner.scan_many(names, threads=1)))))

    def many(number):
        return [report.name for report in scanner.scan_many(names, threads=number) if report]

    def single(number):
        def work(part):
            return [name for name in part if scanner.scan(name)]

        workers = [threading.Thread(target=work, args=(names[first::number],)) for first in range(number)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()

    size = sum(path.stat().st_size for path in paths) // len(paths)
    met = True
    for call, run, bound in (("scan_many", many, True), ("scan", single, is_bound)):
        times = [[seconds(lambda: work(number)) for work in (run, processes) for number in (1, 2)] for _ in range(PAIRS)]
        one, two, alone, both = (min(column) for column in zip(*times))
        print(f"threads: {call}, {kind} ({len(paths)} files of {size // 1024} KiB on average), "
              f"{one / len(names) * 1e6:.0f} us a file: 2 on one scanner are {one / two:.2f} times as fast as 1, "
              f"2 processes that count {alone / both:.2f} times (best of {PAIRS}, {os.cpu_count()} processors, "
              f"load {load:.1f})" + ("; bound 1.8" if bound else ""))
        met = met and (not bound or one / two >= 1.8)
    return met or load > IDLE or (os.cpu_count() or 1) < 2


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
    large = [path for path in paths if path.stat().st_size in PROGRAM_SIZES][:500] or paths
    small = sorted(samples.glob("*.*"))
    met = [threads(tavrik.Scanner(sha256=True), "programs of this machine with their SHA-256", large, True, load),
           threads(scanner, "programs of this machine", large, False, load),
           threads(scanner, "samples", small, False, load), reads(scanner, paths), cluster(paths, sys.argv[2], load)]
    return 0 if all(met) else 1


if __name__ == "__main__":
    sys.exit(main())
