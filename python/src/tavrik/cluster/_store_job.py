"""The job that keeps features in stores."""
from __future__ import annotations

import os
import pathlib
import subprocess
import tempfile
from dataclasses import dataclass
from typing import Any, Dict, List, Sequence

import tavrik

from ._folder import is_url
from ._jobs import Job


@dataclass(frozen=True)
class StoreJob(Job):
    """Makes a store of the features of the files: `tavrik-corpus merge` makes one of all parts. Files are local ones. A
    file that ends its worker is in no store; the manifest names it.

    program    `tavrik-corpus`, on the workers
    """

    program: str = "tavrik-corpus"

    suffix = ".store"

    def identity(self) -> Dict[str, Any]:
        return {"job": type(self).__name__, "version": tavrik.__version__}

    def part(self, names: Sequence[str]) -> bytes:
        if any(map(is_url, names)):
            raise ValueError("a store is made of local files only")
        with tempfile.TemporaryDirectory() as folder:
            return self._store(pathlib.Path(folder), names)

    def poison(self, name: str) -> bytes:
        with tempfile.TemporaryDirectory() as folder:
            return self._store(pathlib.Path(folder), [])

    def is_whole(self, part: bytes, files: int) -> bool:
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "part.store")
            path.write_bytes(part)
            return subprocess.run([self.program, "verify", str(path)], capture_output=True, check=False).returncode == 0

    def _store(self, folder: pathlib.Path, names: Sequence[str]) -> bytes:
        path, listed = folder / "part.store", folder / "list"
        listed.write_bytes(b"".join(os.fsencode(name) + b"\n" for name in names))
        command: List[str] = [self.program, "add", str(path), "-q", "-j", "1", "--files-from", str(listed)]
        done = subprocess.run(command, capture_output=True, check=False, text=True, errors="replace")
        if done.returncode not in (0, 1) or not path.is_file():  # 1: files were set aside
            raise RuntimeError(f"{self.program} made no store: {done.stderr.strip()}")
        return path.read_bytes()
