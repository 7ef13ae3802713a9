"""Which files there are, and which of them make a partition."""
from __future__ import annotations

import json
import os
import stat
from dataclasses import dataclass
from typing import Dict, Iterable, Iterator, List, Sequence, Tuple

from ._folder import file_system, is_url

# Folders within each other that a listing follows.
MAX_DEPTH = 64
# Files on a line of the stored plan.
ROWS = 1000


@dataclass(frozen=True, order=True)
class Range:
    """Files of the plan by their numbers, from `begin` up to `end`, which is not one of them."""

    begin: int
    end: int

    def __len__(self) -> int:
        return self.end - self.begin

    def halves(self) -> Tuple["Range", "Range"]:
        middle = (self.begin + self.end) // 2
        return Range(self.begin, middle), Range(middle, self.end)


@dataclass
class Plan:
    """The names of all files, sorted, and their sizes (0 where nothing says)."""

    names: List[str]
    sizes: List[int]

    def __len__(self) -> int:
        return len(self.names)

    def dump(self) -> bytes:
        return b"".join(json.dumps([self.names[at:at + ROWS], self.sizes[at:at + ROWS]]).encode() + b"\n"
                        for at in range(0, len(self), ROWS))

    @classmethod
    def load(cls, data: bytes) -> "Plan":
        plan = cls([], [])
        for line in data.splitlines():
            names, sizes = json.loads(line)
            plan.names += names
            plan.sizes += sizes
        return plan

    def partitions(self, max_files: int, max_bytes: int) -> Iterator[Range]:
        """Ranges of at most that many files and bytes; a larger file is a range of its own."""
        begin, total = 0, 0
        for index, size in enumerate(self.sizes):
            if index > begin and (index - begin >= max_files or total + size > max_bytes):
                yield Range(begin, index)
                begin, total = index, 0
            total += size
        if begin < len(self):
            yield Range(begin, len(self))


def make_plan(inputs: Iterable[str], listed: Iterable[str] = ()) -> Plan:
    """The files of `inputs`: files, folders and URLs of either; `listed` are files, not looked at. A file counts once,
    whatever number of inputs it is in. Raises OSError."""
    found: Dict[str, int] = {name if name.startswith("/") or is_url(name) else os.path.abspath(name): 0
                             for name in listed}
    for name in inputs:
        found.update(_files_of_url(name) if is_url(name) else _files_below(os.path.abspath(name)))
    names = sorted(found)
    return Plan(names, [found[name] for name in names])


def _files_below(path: str) -> Iterator[Tuple[str, int]]:
    """Regular files; symbolic links in folders, devices and pipes are passed over."""
    status = os.stat(path)
    if not stat.S_ISDIR(status.st_mode):
        yield path, status.st_size
        return
    folders: List[Tuple[str, int]] = [(path, 0)]
    while folders:
        folder, depth = folders.pop()
        with os.scandir(folder) as entries:
            for entry in entries:
                if entry.is_dir(follow_symlinks=False) and depth < MAX_DEPTH:
                    folders.append((entry.path, depth + 1))
                elif entry.is_file(follow_symlinks=False):
                    yield entry.path, entry.stat(follow_symlinks=False).st_size


def _files_of_url(url: str) -> Iterator[Tuple[str, int]]:
    system, path = file_system(url)
    found = system.find(path, maxdepth=MAX_DEPTH, detail=True)
    if not found:
        raise FileNotFoundError(f"{url}: no files there")
    for name, about in found.items():
        yield str(system.unstrip_protocol(name)), int(about.get("size") or 0)


def cover(found: Iterable[Range], count: int) -> Tuple[List[Range], List[Range]]:
    """Of the ranges that are there those that together say everything once, and the gaps between them. A range can be
    there twice, whole and in parts, when a worker that was given up finished all the same."""
    chosen: List[Range] = []
    gaps: List[Range] = []
    position = 0
    for one in sorted(found, key=lambda part: (part.begin, -part.end)):
        if one.begin < position or one.end > count:
            continue
        if one.begin > position:
            gaps.append(Range(position, one.begin))
        chosen.append(one)
        position = one.end
    if position < count:
        gaps.append(Range(position, count))
    return chosen, gaps


def cut(gaps: Sequence[Range], partitions: Iterable[Range]) -> Iterator[Range]:
    """What of each partition lies in the gaps. Both are sorted."""
    position = 0
    for partition in partitions:
        while position < len(gaps) and gaps[position].end <= partition.begin:
            position += 1
        index = position
        while index < len(gaps) and gaps[index].begin < partition.end:
            yield Range(max(gaps[index].begin, partition.begin), min(gaps[index].end, partition.end))
            index += 1
