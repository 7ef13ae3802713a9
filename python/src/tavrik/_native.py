"""The C library: found, declared from its own header, and called."""
from __future__ import annotations

import os
import pathlib
import re
import sys
from typing import Any, Callable

import cffi

_FOLDER = pathlib.Path(__file__).resolve().parent / "lib"


def _declarations(header: str) -> str:
    """The header without what cffi does not read: comments, the preprocessor's lines, inline functions."""
    text = re.sub(r"/\*.*?\*/", "", header, flags=re.S)
    text = re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*$", "", text, flags=re.M)
    text = re.sub(r"static inline .*?\n}\n", "", text, flags=re.S)
    text = text.replace('extern "C" {', "")
    text = re.sub(r"\n}\n(?=\s*$)", "\n", text)
    return text.replace("TAVRIK_PUBLIC", "")


def _library_path() -> str:
    """TAVRIK_LIBRARY, or the library of the package."""
    named = os.environ.get("TAVRIK_LIBRARY")
    if named:
        return named
    pattern = "tavrik*.dll" if sys.platform == "win32" else "libtavrik.*"
    found = sorted(_FOLDER.glob(pattern)) or sorted(_FOLDER.glob("libtavrik*.dll"))
    if not found:
        raise ImportError(f"{_FOLDER} has no {pattern}; install the wheel, or set TAVRIK_LIBRARY to the library")
    return str(found[0])


ffi: Any = cffi.FFI()
ffi.cdef(_declarations((_FOLDER / "tavrik.h").read_text(encoding="utf-8")))
lib: Any = ffi.dlopen(_library_path())


def text(pointer: Any) -> str:
    """A text of the library. Bytes that are not UTF-8 are kept the way of os.fsdecode."""
    return bytes(ffi.string(pointer)).decode("utf-8", "surrogateescape")


def sized(kind: str) -> Any:
    """A zeroed structure of the C interface that knows its size."""
    value = ffi.new(f"{kind} *")
    value.size = ffi.sizeof(kind)
    return value


def filled(kind: str, call: Callable[[Any], int]) -> Any:
    """A structure that the library has filled; None when it refused."""
    value = sized(kind)
    return value if call(value) == lib.TAVRIK_OK else None
