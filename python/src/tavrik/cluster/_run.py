"""A run: gives the partitions to workers, halves what ends them, and goes on where an earlier run was ended."""
from __future__ import annotations

import collections
import concurrent.futures
import hashlib
import json
import re
import time
from dataclasses import dataclass
from typing import Any, Callable, Deque, Dict, Iterable, List, Optional, Tuple

import tavrik

from ._folder import Folder
from ._jobs import Job, ScanJob
from ._plan import Plan, Range, cover, cut, make_plan

# A partition, unless the caller says otherwise: as long as it takes some tenths of a second to scan.
FILES = 4096
BYTES = 1 << 30
# Tasks that are given out for each thread of the cluster.
TASKS_PER_THREAD = 2
# A single file has ended its worker when it did so this many times with nothing else at work.
TRIES_ALONE = 2

# A run whose tasks do not end looks for workers this often, and ends when there is none for so long.
LOOK_SECONDS = 20
NO_WORKER_SECONDS = 600

PARTS = "parts"
_PART = re.compile(r"(\d{12})-(\d{12})(-poison)?(\.\w+)")


class Lost(Exception):
    """The scheduler has gone. The same run goes on where this one ended."""


@dataclass(frozen=True)
class Summary:
    """A finished run."""

    files: int
    parts: Tuple[str, ...]  #: their names in the folder, in the order of the files
    poison: Tuple[str, ...]  #: files that ended each worker that read them
    resumed: int  #: as many files were done by earlier runs


@dataclass
class _Run:
    client: Any
    folder: Folder
    job: Job
    plan: Plan
    progress: Optional[Callable[[int, int], None]]
    done: int = 0

    def part_name(self, files: Range, poison: bool = False) -> str:
        return f"{PARTS}/{files.begin:012}-{files.end:012}{'-poison' if poison else ''}{self.job.suffix}"

    def submit(self, files: Range) -> Any:
        return self.client.submit(work, self.job, self.folder, self.part_name(files),
                                  self.plan.names[files.begin:files.end], tavrik.__version__, pure=False)

    def finished(self, files: Range) -> None:
        self.done += len(files)
        if self.progress:
            self.progress(self.done, len(self.plan))

    def scan(self, ranges: Iterable[Range]) -> None:
        """Makes the part of each range."""
        waiting: Deque[Range] = collections.deque(ranges)
        flight: Dict[Any, Range] = {}
        alone: List[Range] = []
        while waiting or flight:
            limit = TASKS_PER_THREAD * max(1, _threads(self.client))
            while waiting and len(flight) < limit:
                files = waiting.popleft()
                flight[self.submit(files)] = files
            for future in _first_done(self.client, list(flight)):
                files = flight.pop(future)
                if not _has_ended_its_worker(future):
                    self.finished(files)
                elif len(files) > 1:
                    waiting.extendleft(reversed(files.halves()))
                else:
                    alone.append(files)
        # Tasks that were only waiting on a worker that ended are blamed too, so a file is tried again by itself.
        for files in alone:
            if all(self._ends_worker(files) for _ in range(TRIES_ALONE)):
                self.folder.write(self.part_name(files, poison=True), self.job.poison(self.plan.names[files.begin]))
            self.finished(files)

    def _ends_worker(self, files: Range) -> bool:
        future = self.submit(files)
        _first_done(self.client, [future])
        return _has_ended_its_worker(future)

    def parts(self) -> Dict[Range, str]:
        """The parts that are in the folder; of a file that ended a worker and was scanned later, the scan."""
        found: Dict[Range, str] = {}
        for name in self.folder.names(PARTS):
            match = _PART.fullmatch(name)
            if match and match[4] == self.job.suffix:
                files = Range(int(match[1]), int(match[2]))
                if files not in found or not match[3]:
                    found[files] = f"{PARTS}/{name}"
        return found


def work(job: Job, folder: Folder, name: str, names: List[str], version: str) -> int:
    """Makes a part, in a worker. Returns its length in bytes."""
    if version != tavrik.__version__:
        raise RuntimeError(f"a worker has version {tavrik.__version__} of the package tavrik, not {version}")
    part = job.part(names)
    if not job.is_whole(part, len(names)):
        raise RuntimeError(f"{type(job).__name__} did not make a record of each of {len(names)} files")
    folder.write(name, part)
    return len(part)


def run(client: Any, inputs: Iterable[str], output: str, job: Optional[Job] = None, *, listed: Iterable[str] = (),
        files: int = FILES, size: int = BYTES, progress: Optional[Callable[[int, int], None]] = None) -> Summary:
    """Scans files by the workers of a cluster, and returns when all are done.

    client     a distributed.Client
    inputs     files, folders and URLs that fsspec knows; workers have to see them under the same names
    output     the folder or URL for the results, which workers have to see too. When it holds an unfinished run of
               the same job, this one goes on with its list of files, and scans what is missing
    listed     further files, which are not looked for
    files      of a partition at most
    size       of a partition's files at most, in bytes; a larger file is a partition of its own
    progress   called with the files that are done and with all

    Raises ValueError when the folder holds another job's results, Lost when the scheduler or
    all workers have gone, OSError, and what
    a job raises.
    """
    job = job or ScanJob()
    folder = Folder.of(output)
    inputs, listed = list(inputs), list(listed)
    plan = _plan_of(folder, job, inputs, listed, files, size)
    this = _Run(client, folder, job, plan, progress)
    whole = {}
    for span, name in this.parts().items():
        if job.is_whole(folder.read(name), len(span)):
            whole[span] = name
        else:  # cut short when the machine went down
            folder.remove(name)
    chosen, gaps = cover(whole, len(plan))
    resumed = this.done = sum(map(len, chosen))
    while gaps:
        this.scan(cut(gaps, plan.partitions(files, size)))
        chosen, gaps = cover(this.parts(), len(plan))
    return _finish(this, chosen, resumed)


def _plan_of(folder: Folder, job: Job, inputs: List[str], listed: List[str], files: int, size: int) -> Plan:
    """The list of files: of the folder's unfinished run, or made now."""
    about = {"inputs": inputs, "listed": hashlib.sha256("\n".join(listed).encode("utf-8", "surrogateescape")).hexdigest(),
             "files": files, "bytes": size, **job.identity()}
    text = json.dumps(about, indent=1).encode()
    try:
        if json.loads(folder.read("job.json")) != json.loads(text):
            raise ValueError(f"{folder.url}: holds the results of another job, see job.json there; name a new folder")
        return Plan.load(folder.read("plan.jsonl"))
    except FileNotFoundError:
        pass
    if folder.names(PARTS):
        raise ValueError(f"{folder.url}: holds parts of a job that nothing describes; name a new folder")
    plan = make_plan(inputs, listed)
    folder.write("plan.jsonl", plan.dump())
    folder.write("job.json", text)  # last, so that the list is whole where there is a job
    return plan


def _finish(this: _Run, chosen: List[Range], resumed: int) -> Summary:
    """Removes parts that others contain, and writes the manifest."""
    found = this.parts()
    names = tuple(found[files] for files in chosen)
    for name in this.folder.names(PARTS):
        if f"{PARTS}/{name}" not in names:
            this.folder.remove(f"{PARTS}/{name}")
    poison = tuple(this.plan.names[files.begin] for files, name in zip(chosen, names) if "-poison" in name)
    manifest = {"files": len(this.plan), "parts": names, "poison": poison}
    this.folder.write("manifest.json", json.dumps(manifest, indent=1).encode())
    return Summary(len(this.plan), names, poison, resumed)


def _threads(client: Any) -> int:
    """Of all workers that are there. Raises Lost."""
    try:
        return sum(map(int, client.nthreads().values()))
    except OSError as failure:
        raise Lost("the scheduler has gone") from failure


def _first_done(client: Any, futures: List[Any]) -> List[Any]:
    """Waits for the first of them. Raises Lost, also when there is no worker for long."""
    import distributed

    alone_since: Optional[float] = None
    while True:
        try:
            distributed.wait(futures, timeout=LOOK_SECONDS, return_when="FIRST_COMPLETED")
            return [future for future in futures if future.done()]
        except (distributed.TimeoutError, concurrent.futures.TimeoutError):
            if _threads(client):
                alone_since = None
            elif alone_since is None:
                alone_since = time.monotonic()
            elif time.monotonic() - alone_since > NO_WORKER_SECONDS:
                raise Lost("there has been no worker for ten minutes") from None
        except (concurrent.futures.CancelledError, OSError) as failure:
            raise Lost("the scheduler has gone") from failure


def _has_ended_its_worker(future: Any) -> bool:
    """Whether its worker ended, when it did not finish. Raises what it raised, and Lost."""
    import distributed

    if future.status == "finished":
        return False
    if future.status != "error":
        raise Lost("the scheduler has gone")
    failure = future.exception()
    if isinstance(failure, distributed.KilledWorker):
        return True
    raise failure
