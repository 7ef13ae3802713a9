"""How much of the bare scanner's rate a cluster of one machine has."""
from __future__ import annotations

import os
import pathlib
import resource
import subprocess
import tempfile
import time
from dataclasses import dataclass
from typing import Any, Callable, List, Sequence, Tuple

from ._plan import make_plan
from ._run import run

# Each is run this many times, in turn, and the best time counts, since other programs can only take time.
TRIES = 5


@dataclass(frozen=True)
class Rate:
    """What was measured."""

    share: float  #: of the bare scanner's rate
    text: str


def rate(client: Any, inputs: Sequence[str], files: int, scanner: str) -> Rate:
    """Measures both rates. The files are those of `inputs`, as often as it takes to make their number; what a
    repeated name costs is the same in both. The cluster has started, and the system has read the files before."""
    names = make_plan(inputs).names
    if not names:
        raise ValueError("there are no files")
    workers = len(client.nthreads())
    with tempfile.TemporaryDirectory() as place:
        folder = pathlib.Path(place)
        # A plan names a file once, so the files get more names.
        links: List[str] = []
        for index in range(files):
            link = folder / "files" / f"{index // 1000:06}" / f"{index % 1000:03}"
            link.parent.mkdir(parents=True, exist_ok=True)
            link.symlink_to(names[index % len(names)])
            links.append(str(link))
        (folder / "list").write_text("".join(f"{link}\n" for link in links))
        command = [scanner, "--json", "--no-inside", "-q", "--exit-zero", "-j", str(workers), "--files-from",
                   str(folder / "list")]

        def bare() -> None:
            with open(folder / "bare", "wb") as output:
                subprocess.run(command, stdout=output, check=False)

        count = 0

        def spread() -> None:
            nonlocal count
            count += 1
            run(client, [], str(folder / f"out{count}"), listed=links)

        def used() -> float:
            children = resource.getrusage(resource.RUSAGE_CHILDREN)
            return (children.ru_utime + children.ru_stime + time.process_time()
                    + sum(map(float, client.run(time.process_time).values())))

        times = [_measured(bare, used) + _measured(spread, used) for _ in range(TRIES)]
    bare_wall, bare_used, wall, spread_used = (min(column) for column in zip(*times))
    share = bare_wall / wall
    text = (f"bare scanner, -j {workers}: {files / bare_wall:.0f} files a second\n"
            f"cluster of {workers} workers: {files / wall:.0f} files a second, {100 * share:.0f} % of it; "
            f"{100 * bare_used / spread_used:.0f} % by processor time, scheduler included (best of {TRIES}, load "
            f"{os.getloadavg()[0]:.1f})")
    return Rate(share, text)


def _measured(call: Callable[[], None], used: Callable[[], float]) -> Tuple[float, float]:
    """Seconds of the clock and of processors."""
    before, started = used(), time.perf_counter()
    call()
    seconds = time.perf_counter() - started
    return seconds, used() - before
