"""What is scanned: a path, bytes, or a file object that is read in ranges."""
from __future__ import annotations

import io
import os
import threading
from typing import Any, BinaryIO, List, Optional, Union

from ._native import ffi, sized

Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview, BinaryIO]


def _has_buffer(source: Any) -> bool:
    try:
        with memoryview(source):
            return True
    except TypeError:
        return False


class Opened:
    """A source as the C interface takes it, for the length of one call."""

    def __init__(self, source: Source, name: Optional[str]) -> None:
        self.failure: Optional[BaseException] = None
        self._kept: List[Any] = []
        self._buffer: Any = None
        self.input = sized("tavrik_input")
        if isinstance(source, (str, os.PathLike)):
            self._name(os.fspath(source))
        elif _has_buffer(source):
            self._name(name or "")
            self._buffer = ffi.from_buffer(source)
            # An empty buffer still has to be somewhere.
            self.input.bytes = ffi.cast("void *", self._buffer) if len(self._buffer) else self._keep(ffi.new("char[1]"))
            self.input.length = len(self._buffer)
        elif hasattr(source, "read") and hasattr(source, "seek"):
            self._name(name if name is not None else str(getattr(source, "name", "")))
            self._stream(source)
        else:
            raise TypeError(f"a path, a buffer or a binary file object is needed, not {type(source).__name__}")

    def __enter__(self) -> "Opened":
        return self

    def __exit__(self, *_: object) -> None:
        """Lets go of the buffer, so that its owner can close it."""
        if self._buffer is not None:
            ffi.release(self._buffer)

    def _keep(self, value: Any) -> Any:
        self._kept.append(value)
        return value

    def _name(self, name: str) -> None:
        if "\0" in name:
            raise ValueError("a name has no NUL")
        self.input.name = self._keep(ffi.new("char[]", name.encode("utf-8", "surrogateescape")))

    def _stream(self, file: Any) -> None:
        lock = threading.Lock()
        length = file.seek(0, io.SEEK_END)

        def read_at(_context: Any, offset: int, buffer: Any, size: int) -> int:
            try:
                with lock:
                    file.seek(offset)
                    data = file.read(size)
                    while len(data) < min(size, length - offset):  # files without a buffer give what they have
                        more = file.read(size - len(data))
                        if not more:
                            break
                        data += more
                ffi.memmove(buffer, data, len(data))
                return len(data)
            except BaseException as failure:  # nothing may cross the library; it is raised after the call
                self.failure = failure
                return -1

        stream = self._keep(sized("tavrik_stream"))
        stream.length = length
        stream.read_at = self._keep(ffi.callback("int64_t(void *, uint64_t, void *, size_t)", read_at))
        self.input.stream = stream
