"""The folder that a run writes to: a local or shared one, or a prefix of an object store."""
from __future__ import annotations

import os
import secrets
from dataclasses import dataclass
from typing import Any, List, Tuple


def file_system(url: str) -> Tuple[Any, str]:
    """fsspec's file system of a URL, and the path there. Raises ImportError for one whose package is missing."""
    import fsspec

    system, path = fsspec.core.url_to_fs(url)
    return system, str(path)


def is_url(name: str) -> bool:
    """Whether a name is a URL. Names of files, even with colons in them, are none."""
    return "://" in name and name.split("://")[0].replace("+", "").replace("-", "").isalnum()


@dataclass(frozen=True)
class Folder:
    """Files appear in it whole or not at all: by renaming, or by one upload. A file that is there is replaced."""

    url: str

    @classmethod
    def of(cls, url: str) -> "Folder":
        """The folder of a URL or path, made where it is not there."""
        if not is_url(url):
            url = os.path.abspath(url)
            os.makedirs(url, exist_ok=True)
        return cls(url.rstrip("/") or "/")

    def write(self, name: str, data: bytes) -> None:
        """Raises OSError."""
        if is_url(self.url):
            system, path = file_system(self.url)
            system.pipe_file(f"{path}/{name}", data)
            return
        path = os.path.join(self.url, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        temporary = f"{path}.{secrets.token_hex(8)}.tmp"
        try:
            with open(temporary, "xb") as file:
                file.write(data)
            os.replace(temporary, path)
        except BaseException:
            if os.path.exists(temporary):
                os.remove(temporary)
            raise

    def read(self, name: str) -> bytes:
        """Raises FileNotFoundError, OSError."""
        if is_url(self.url):
            system, path = file_system(self.url)
            data: bytes = system.cat_file(f"{path}/{name}")
            return data
        with open(os.path.join(self.url, name), "rb") as file:
            return file.read()

    def names(self, below: str) -> List[str]:
        """The names of the files in a folder below this one, sorted."""
        if is_url(self.url):
            system, path = file_system(self.url)
            system.invalidate_cache()
            if not system.exists(f"{path}/{below}"):
                return []
            return sorted(str(one).rsplit("/", 1)[-1] for one in system.ls(f"{path}/{below}", detail=False))
        path = os.path.join(self.url, below)
        return sorted(os.listdir(path)) if os.path.isdir(path) else []

    def remove(self, name: str) -> None:
        """Raises OSError."""
        if is_url(self.url):
            system, path = file_system(self.url)
            system.rm_file(f"{path}/{name}")
        else:
            os.remove(os.path.join(self.url, name))
