"""The features of many files, which `tavrik-corpus add` keeps in a store, as columns.

    >>> import polars, tavrik.corpus
    >>> polars.DataFrame(tavrik.corpus.Store("clean.store"))

A store is a stream of Arrow tables by the PyCapsule interface, `__arrow_c_stream__`, which pyarrow, Polars, DuckDB and
others read without a copy; this module needs none of them. The columns are `file`, `size`, `sha256`, `pe` and one for
each header value, null where a file has none.
"""
from __future__ import annotations

import ctypes
import os
from typing import Any, Optional, Union

from . import Error
from ._native import ffi, lib, sized, text

__all__ = ["Store"]

_STREAM_NAME = b"arrow_array_stream"
_POINTERS = 5  # of a stream's structure: four functions, the last of which is `release`, and what is private

_new_capsule: Any = ctypes.pythonapi.PyCapsule_New
_new_capsule.restype = ctypes.py_object
_new_capsule.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
_pointer_of: Any = ctypes.pythonapi.PyCapsule_GetPointer
_pointer_of.restype = ctypes.c_void_p
_pointer_of.argtypes = [ctypes.c_void_p, ctypes.c_char_p]

# The structures of the capsules that exist, by their addresses.
_streams: dict[int, Any] = {}


def _release(capsule: int) -> None:
    """Releases the stream, unless whoever took it over has emptied the structure."""
    stream = _streams.pop(_pointer_of(capsule, _STREAM_NAME))
    if stream[3] != ffi.NULL:
        ffi.cast("void (*)(void *)", stream[3])(stream)


_end_of_capsule: Any = ctypes.PYFUNCTYPE(None, ctypes.c_void_p)(_release)


class Store:
    """A store that exists. Each use of it reads it anew; while one reads it, nothing can be added."""

    def __init__(self, path: Union[str, "os.PathLike[str]"]) -> None:
        self.path = os.fspath(path)

    def __arrow_c_stream__(self, requested_schema: Optional[object] = None) -> object:
        """A capsule with an ArrowArrayStream. Another schema than the store's own cannot be had. Raises tavrik.Error."""
        stream = ffi.new(f"void *[{_POINTERS}]")
        error = sized("tavrik_error")
        status = lib.tavrik_corpus_export(os.fsencode(self.path), ffi.cast("struct ArrowArrayStream *", stream), error)
        if status != lib.TAVRIK_OK:
            raise Error(status, text(error.text))
        address = int(ffi.cast("uintptr_t", stream))
        _streams[address] = stream
        return _new_capsule(address, _STREAM_NAME, ctypes.cast(_end_of_capsule, ctypes.c_void_p))

    def write_parquet(self, path: Union[str, "os.PathLike[str]"], compression: str = "zstd") -> None:
        """Writes all of it to a Parquet file, a row group for each table of the stream. Needs pyarrow."""
        import pyarrow
        import pyarrow.parquet

        with pyarrow.RecordBatchReader.from_stream(self) as reader, \
                pyarrow.parquet.ParquetWriter(os.fspath(path), reader.schema, compression=compression) as writer:
            for batch in reader:
                writer.write_batch(batch)
