"""What workers do with the files of a range."""
from __future__ import annotations

import concurrent.futures
import functools
import json
import time
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Sequence

import tavrik
from tavrik._results import error_line

from ._folder import file_system, is_url

# Of a file on a server that does not serve ranges, in bytes.
MAX_WHOLE_READ = 256 << 20
# A remote file is tried again after these seconds.
RETRY_AFTER = (0.2, 1.0)
# Files that one task reads at once from a store, whose answers take long.
REMOTE_THREADS = 8


class Job:
    """Makes a part of the output from files. Jobs travel to the workers, so they are pickled; a class of your own has to
    be importable there. Two runs with equal `identity` go on in the same folder."""

    suffix = ".part"

    def identity(self) -> Dict[str, Any]:
        """What decides about the content of parts, as JSON."""
        raise NotImplementedError

    def part(self, names: Sequence[str]) -> bytes:
        """The part of these files, with one record for each, in this order; equal for equal files. What is wrong with a
        file is in its record; an exception ends the run."""
        raise NotImplementedError

    def poison(self, name: str) -> bytes:
        """The part that stands for a file that ended each worker that read it."""
        raise NotImplementedError

    def is_whole(self, part: bytes, files: int) -> bool:
        """Whether a part has the records of that many files, and is not damaged."""
        raise NotImplementedError


@dataclass(frozen=True)
class ScanJob(Job):
    """Scans: a JSON object a line, as `tavrik-scan --json --no-inside` prints it.

    rules     a text of rules in place of the module's
    others    as for tavrik.Scanner
    """

    rules: Optional[str] = None
    sha256: bool = False
    timeout: float = 0
    max_size: int = 0

    suffix = ".jsonl"

    def identity(self) -> Dict[str, Any]:
        return {"job": type(self).__name__, "version": tavrik.__version__, "rules": self.rules, "sha256": self.sha256,
                "timeout": self.timeout, "max_size": self.max_size}

    def part(self, names: Sequence[str]) -> bytes:
        return b"".join(line + b"\n" for line in self.lines(names))

    def poison(self, name: str) -> bytes:
        return self._poison_line(name) + b"\n"

    def is_whole(self, part: bytes, files: int) -> bool:
        return part.endswith(b"\n") and part.count(b"\n") == files

    def _poison_line(self, name: str) -> bytes:
        return error_line(name, "worker-ended", "each worker that scanned this file ended")

    def lines(self, names: Sequence[str]) -> List[bytes]:
        """The JSON of each file."""
        if not any(map(is_url, names)):
            return [self.line(name) for name in names]
        with concurrent.futures.ThreadPoolExecutor(REMOTE_THREADS) as pool:
            return list(pool.map(self.line, names))

    def line(self, name: str) -> bytes:
        """The JSON of one file, which is read in ranges where it is remote."""
        scanner = _scanner(self)
        if not is_url(name):
            return scanner.scan_json(name)
        for seconds in (*RETRY_AFTER, None):
            try:
                return self._remote(scanner, name)
            except Exception as failure:  # whatever the store's client raises
                if seconds is None or isinstance(failure, (FileNotFoundError, PermissionError)):
                    return error_line(name, "read", f"{type(failure).__name__}: {failure}")
                time.sleep(seconds)
        raise AssertionError("the last try returns")

    def _remote(self, scanner: "tavrik.Scanner", name: str) -> bytes:
        system, path = file_system(name)
        with system.open(path, "rb", cache_type="none") as file:
            try:
                return scanner.scan_json(file, name=name)
            except ValueError:  # how fsspec says that the server sent more than the range
                whole = _whole(system, path)
        if whole is None:
            return error_line(name, "too-large", f"the server serves no ranges, and the file has more than "
                                                 f"{MAX_WHOLE_READ} bytes")
        return scanner.scan_json(whole, name=name)


@dataclass(frozen=True)
class ParquetScanJob(ScanJob):
    """Scans: Parquet with a row for each file, whose columns are the members of the JSON and that itself. Needs
    pyarrow."""

    suffix = ".parquet"

    def part(self, names: Sequence[str]) -> bytes:
        return _parquet(self.lines(names))

    def poison(self, name: str) -> bytes:
        return _parquet([self._poison_line(name)])

    def is_whole(self, part: bytes, files: int) -> bool:
        import pyarrow
        import pyarrow.parquet

        try:
            return bool(pyarrow.parquet.read_metadata(pyarrow.BufferReader(part)).num_rows == files)
        except pyarrow.ArrowException:
            return False


def _whole(system: Any, path: str) -> Optional[bytes]:
    """All of a file of a server that serves no ranges; None when that is too much."""
    with system.open(path, "rb", block_size=0) as file:
        data = bytearray()
        while len(data) <= MAX_WHOLE_READ:
            some = file.read(1 << 20)
            if not some:
                return bytes(data)
            data += some
    return None


@functools.lru_cache(maxsize=4)
def _scanner(job: ScanJob) -> "tavrik.Scanner":
    """The scanner of this process."""
    rules = None if job.rules is None else tavrik.Rules(job.rules)
    return tavrik.Scanner(rules, sha256=job.sha256, timeout=job.timeout, max_size=job.max_size)


def _parquet(lines: Sequence[bytes]) -> bytes:
    import pyarrow
    import pyarrow.parquet

    text, unsigned = pyarrow.string(), pyarrow.uint64()
    number = pyarrow.uint32()
    error = pyarrow.struct([("code", text), ("text", text)])
    finding = pyarrow.struct([("entry", number), ("kind", number), ("kind_name", text), ("offset", unsigned),
                              ("size", number)])
    payload = pyarrow.struct([("entries", pyarrow.list_(number)), ("offset", unsigned), ("format", text),
                              ("description", text), ("length", unsigned), ("complete", pyarrow.bool_()),
                              ("sha256", text)])
    detection = pyarrow.struct([("rule", number), ("name", text), ("action", text)])
    schema = pyarrow.schema([("file", text), ("size", unsigned), ("sha256", text), ("status", text), ("error", error),
                             ("detections", pyarrow.list_(detection)), ("findings", pyarrow.list_(finding)),
                             ("payloads", pyarrow.list_(payload)), ("json", text)])
    texts = [line.decode("utf-8", "replace") for line in lines]
    rows = [{**json.loads(one), "json": one} for one in texts]
    sink = pyarrow.BufferOutputStream()
    pyarrow.parquet.write_table(pyarrow.Table.from_pylist(rows, schema=schema), sink, compression="zstd")
    data: bytes = sink.getvalue().to_pybytes()
    return data
