"""The command `python -m tavrik.cluster`."""
from __future__ import annotations

import argparse
import contextlib
import json
import os
import pathlib
import sys
import threading
from typing import Any, Iterator, List, Optional, Sequence

from . import BYTES, FILES, Folder, Job, Lost, ParquetScanJob, ScanJob, StoreJob, run
from ._rate import rate

# How often a cluster of this machine is looked after.
KEEP_SECONDS = 10

EPILOG = """exit codes: 0 done; 2 an error, or files that ended their workers (they are named); 3 the scheduler has gone: the
same command goes on where it was; 130 interrupted: likewise"""


def parser() -> argparse.ArgumentParser:
    made = argparse.ArgumentParser("python -m tavrik.cluster", description="Scans many files by a Dask cluster.")
    commands = made.add_subparsers(dest="command", required=True)
    scan = commands.add_parser("scan", help="scan files, or go on with a scan that was ended", epilog=EPILOG)
    scan.add_argument("inputs", nargs="*", metavar="INPUT", help="a file, a folder, or a URL of either (s3://, https://)")
    scan.add_argument("--files-from", metavar="LIST", help="scan the paths and URLs in LIST, one a line; - is standard input")
    scan.add_argument("-o", "--output", required=True, metavar="FOLDER", help="a folder or URL that all workers see")
    scan.add_argument("--format", choices=("jsonl", "parquet", "store"), default="jsonl",
                      help="store: keep the features instead, by tavrik-corpus of the workers")
    scan.add_argument("--rules", metavar="FILE", help="rules in place of the module's")
    scan.add_argument("--sha256", action="store_true", help="add the digest of each file")
    scan.add_argument("--timeout", type=float, default=0, metavar="SECONDS", help="for a file")
    scan.add_argument("--max-size", type=int, default=0, metavar="BYTES", help="skip larger files")
    scan.add_argument("--partition-files", type=int, default=FILES, metavar="N", help="default %(default)s")
    scan.add_argument("--partition-size", type=int, default=BYTES, metavar="BYTES", help="default %(default)s")
    _cluster_options(scan)
    cat = commands.add_parser("cat", help="print the results of a finished scan in the order of the files' names")
    cat.add_argument("output", metavar="FOLDER")
    measure = commands.add_parser("rate", help="compare a cluster of this machine with the bare scanner")
    measure.add_argument("inputs", nargs="+", metavar="PATH", help="files and folders; they are scanned many times")
    measure.add_argument("--files", type=int, default=100000, metavar="N", help="scans to make (default %(default)s)")
    measure.add_argument("--scanner", default="tavrik-scan", metavar="PROGRAM", help="default %(default)s")
    measure.add_argument("--workers", type=int, default=os.cpu_count() or 1, metavar="N")
    return made


def _cluster_options(to: argparse.ArgumentParser) -> None:
    where = to.add_mutually_exclusive_group()
    where.add_argument("--scheduler", metavar="ADDRESS", help="of a running cluster, such as tcp://host:8786")
    where.add_argument("--scheduler-file", metavar="FILE", help="that the scheduler wrote")
    where.add_argument("--workers", type=int, metavar="N", help="processes on this machine (default: one a processor)")


@contextlib.contextmanager
def local_cluster(workers: int) -> Iterator[Any]:
    """A client of a cluster of processes on this machine, whose scheduler reports a task at once when its worker ends."""
    import dask
    import distributed

    settings = {"distributed.scheduler.allowed-failures": 0, "distributed.deploy.lost-worker-timeout": "60s",
                "distributed.worker.profile.enabled": False}
    with dask.config.set(settings):
        with distributed.LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=":0") as cluster:
            ended = threading.Event()
            keeper = threading.Thread(target=_keep, args=(cluster, workers, ended))
            keeper.start()
            try:
                with distributed.Client(cluster) as client:
                    yield client
            finally:
                ended.set()
                keeper.join()


def _keep(cluster: Any, workers: int, ended: threading.Event) -> None:
    """Replaces workers. Dask itself restarts a process that ends, but not one that ends while it is starting, and gives
    up those that end again soon."""
    while not ended.wait(KEEP_SECONDS):
        cluster.scale(workers)


@contextlib.contextmanager
def _client(arguments: argparse.Namespace) -> Iterator[Any]:
    import distributed

    if arguments.scheduler or arguments.scheduler_file:
        with distributed.Client(arguments.scheduler, scheduler_file=arguments.scheduler_file) as client:
            yield client
    else:
        with local_cluster(arguments.workers or os.cpu_count() or 1) as client:
            yield client


def _listed(path: Optional[str]) -> List[str]:
    if path is None:
        return []
    data = sys.stdin.buffer.read() if path == "-" else pathlib.Path(path).read_bytes()
    return [os.fsdecode(line.rstrip(b"\r")) for line in data.split(b"\n") if line.rstrip(b"\r")]


def _say(done: int, files: int) -> None:
    if sys.stderr.isatty():
        print(f"\r{done} of {files} files", end="" if done < files else "\n", file=sys.stderr, flush=True)


def _scan(arguments: argparse.Namespace) -> int:
    listed = _listed(arguments.files_from)
    if not arguments.inputs and not listed:
        raise ValueError("name files, folders or URLs")
    rules = None
    if arguments.rules:
        rules = pathlib.Path(arguments.rules).read_bytes().decode("utf-8", "surrogateescape")
    settings = (rules, arguments.sha256, arguments.timeout, arguments.max_size)
    job: Job = StoreJob()
    if arguments.format != "store":
        job = ParquetScanJob(*settings) if arguments.format == "parquet" else ScanJob(*settings)
    elif any(settings):
        raise ValueError("--format store takes no options of scans")
    with _client(arguments) as client:
        summary = run(client, arguments.inputs, arguments.output, job, listed=listed, files=arguments.partition_files,
                      size=arguments.partition_size, progress=_say)
    print(f"{summary.files} files in {len(summary.parts)} parts, {summary.resumed} of them by earlier runs",
          file=sys.stderr)
    for name in summary.poison:
        print(f"{name}: each worker that scanned this file ended", file=sys.stderr)
    return 2 if summary.poison else 0


def _cat(output: str) -> int:
    folder = Folder(output.rstrip("/") or "/")
    for name in json.loads(folder.read("manifest.json"))["parts"]:
        if not name.endswith(".jsonl"):
            raise ValueError(f"{output}: has {name}, which other programs read")
        sys.stdout.buffer.write(folder.read(name))
    sys.stdout.flush()
    return 0


def main(argv: Optional[Sequence[str]] = None) -> int:
    arguments = parser().parse_args(argv)
    try:
        if arguments.command == "scan":
            return _scan(arguments)
        if arguments.command == "cat":
            return _cat(arguments.output)
        with local_cluster(arguments.workers) as client:
            print(rate(client, arguments.inputs, arguments.files, arguments.scanner).text)
        return 0
    except Lost as failure:
        print(f"tavrik.cluster: {failure}; the same command goes on from here", file=sys.stderr)
        return 3
    except KeyboardInterrupt:
        print("tavrik.cluster: interrupted; the same command goes on from here", file=sys.stderr)
        return 130
    except (ImportError, OSError, ValueError, RuntimeError) as failure:
        print(f"tavrik.cluster: {failure}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
