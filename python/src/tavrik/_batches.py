"""How many files one call of the library scans: as many as take a time that a call costs little beside."""
from __future__ import annotations

import itertools
from typing import Iterable, Iterator, List, Union

from ._report import Report
from ._source import Source

Result = Union[Report, Exception]

_AIM = 0.01  # seconds a batch; a call, its turn and the wait for the interpreter take some hundredths of it
_MOST = 1024


class Pace:
    """The size of the next batch, by the time that the last one took: files differ, so it at most doubles."""

    def __init__(self) -> None:
        self._size = 1

    def took(self, files: int, seconds: float) -> None:
        """Called by any thread: what another one writes meanwhile is as good."""
        self._size = max(1, min(2 * files, int(files * _AIM / max(seconds, 1e-9)), _MOST))

    def batches(self, sources: Iterable[Source]) -> Iterator[List[Source]]:
        left = iter(sources)
        while batch := list(itertools.islice(left, self._size)):
            yield batch


def in_order(results: List[Result]) -> Iterator[Report]:
    """The reports; raises the exception that there is in place of one."""
    for result in results:
        if isinstance(result, Exception):
            raise result
        yield result
