"""Scans PE files with heuristic rules and payload locators.

    >>> import tavrik
    >>> scanner = tavrik.Scanner()
    >>> report = scanner.scan("setup.exe")

Scanners, rules and results do not change once made and may be used by any number of threads; a scan releases the
interpreter's lock. Failures are `tavrik.Error`; a failure of the file that is scanned is in its report.
"""
from __future__ import annotations

import collections
import concurrent.futures
import os
import pathlib
import time
from types import TracebackType
from typing import Any, Callable, Deque, Dict, Iterable, Iterator, List, Optional, Tuple, Type, TypeVar, Union

from ._batches import Pace, Result, in_order
from ._native import ffi, filled, lib, sized, text
from ._report import Report
from ._results import (Detection, Diagnostic, Error, Explanation, Finding, Locator, NearMiss, Note, Outcome, Payload,
                       Rule, Status, error_line)
from ._source import Opened, Source

__all__ = ["Cancel", "Detection", "Diagnostic", "Error", "Explanation", "Finding", "Locator", "NearMiss", "Note",
           "Outcome", "Payload", "Report", "Rule", "Rules", "Scanner", "Source", "Status", "__version__", "check"]

__version__: str = text(lib.tavrik_version_text())

_NULL: Any = ffi.NULL
_REPORT_PLACE: Any = ffi.typeof("tavrik_report **")
_TEXT: Any = ffi.typeof("char[]")
_INPUT: Any = ffi.typeof("tavrik_input *")
_INPUTS: Any = ffi.typeof("tavrik_input[]")
_REPORTS: Any = ffi.typeof("tavrik_report *[]")
_INPUT_SIZE: int = ffi.sizeof("tavrik_input")

FeatureValue = Union[int, str, List[str]]
_Self = TypeVar("_Self", bound="_Handle")


def _make(call: Callable[[Any, Any], int], kind: str, free: Any) -> Any:
    """Calls a function that makes a handle; raises Error."""
    error = sized("tavrik_error")
    place = ffi.new(f"{kind} **")
    status = call(place, error)
    if status != lib.TAVRIK_OK:
        raise Error(status, text(error.text))
    return ffi.gc(place[0], free)


class _Handle:
    """A handle of the library that a `with` statement or the garbage collector releases."""

    _handle: Any = None

    @property
    def _open(self) -> Any:
        if self._handle is None:
            raise ValueError(f"this {type(self).__name__} is closed")
        return self._handle

    def close(self) -> None:
        """Releases what the library holds. No thread may be using it."""
        handle, self._handle = self._handle, None
        if handle is not None:
            ffi.release(handle)

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()


class Cancel(_Handle):
    """Ends calls that were given it, from any thread."""

    def __init__(self) -> None:
        self._handle = _make(lambda place, _: int(lib.tavrik_cancel_create(place)), "tavrik_cancel",
                             lib.tavrik_cancel_free)

    def request(self) -> None:
        """Calls that were given it end at their next read, with Status.CANCELLED."""
        lib.tavrik_cancel_request(self._open)


class Rules(_Handle):
    """A text of rules, parsed and checked. Any text can be parsed: what is wrong is in `diagnostics`."""

    def __init__(self, source: str, name: str = "rules") -> None:
        data = source.encode("utf-8", "surrogateescape")
        self._handle = _make(
            lambda place, error: int(lib.tavrik_rules_parse(name.encode("utf-8", "surrogateescape"), data, len(data),
                                                            place, error)), "tavrik_rules", lib.tavrik_rules_free)
        self.diagnostics: Tuple[Diagnostic, ...] = tuple(self._diagnostics())

    @classmethod
    def from_file(cls, path: Union[str, "os.PathLike[str]"]) -> "Rules":
        """The rules of a file. Raises OSError."""
        return cls(pathlib.Path(path).read_bytes().decode("utf-8", "surrogateescape"), os.fspath(path))

    def __len__(self) -> int:
        """The number of rules; 0 when the text has errors."""
        return int(lib.tavrik_rules_count(self._open))

    def __bool__(self) -> bool:
        return True

    def __iter__(self) -> Iterator[Rule]:
        """The rules, in the order of the text."""
        for index in range(len(self)):
            one = filled("tavrik_rule", lambda to: int(lib.tavrik_rules_rule(self._open, index, to)))
            yield Rule(one.rule, text(one.name), text(one.metadata))

    @property
    def has_errors(self) -> bool:
        """Whether a scanner refuses them."""
        return any(diagnostic.is_error for diagnostic in self.diagnostics)

    def _diagnostics(self) -> Iterator[Diagnostic]:
        for index in range(lib.tavrik_rules_diagnostic_count(self._open)):
            one = filled("tavrik_diagnostic", lambda to: int(lib.tavrik_rules_diagnostic(self._open, index, to)))
            yield Diagnostic(bool(one.is_error), text(one.code), text(one.message), text(one.help), one.line,
                             one.column, one.offset, one.length, text(one.rendered))


def check(source: str, name: str = "rules") -> Tuple[Diagnostic, ...]:
    """The errors and warnings about a text of rules, in the order of their places."""
    with Rules(source, name) as rules:
        return rules.diagnostics


class Scanner(_Handle):
    """A module and settings, ready to scan. Make one and share it.

    rules      a text of rules, a path of a `.rules` file, or Rules, in place of the module's
    module     the path of tavrik2.hbx; the package's own without it
    sha256     each report has the digest of the file, which reads all of it
    timeout    seconds for a call; 0 is no limit
    max_size   in bytes; larger files are skipped; 0 is no limit
    add_rules  the rules come after the module's instead of in their place
    near       conditions of a gate that may fail in a near miss, 1 to 64; 0: near misses are not looked for
    inside     files inside payloads and archives are scanned too, within these bounds (0 is the library's own):
               inside_depth of containers within each other, inside_files, inside_bytes that are unpacked, and
               inside_ratio of these to the bytes of the file

    Raises Error when the module cannot be loaded and initialised, or the rules have errors.
    """

    def __init__(self, rules: Union[Rules, str, "os.PathLike[str]", None] = None,
                 module: Union[str, "os.PathLike[str]", None] = None, *, sha256: bool = False, timeout: float = 0,
                 max_size: int = 0, add_rules: bool = False, near: int = 0, inside: bool = False,
                 inside_depth: int = 0, inside_files: int = 0, inside_bytes: int = 0, inside_ratio: int = 0) -> None:
        if rules is not None and not isinstance(rules, Rules):
            rules = Rules(rules) if isinstance(rules, str) and "\n" in rules else Rules.from_file(rules)
        path = ffi.NULL if module is None else os.fsencode(os.fspath(module))
        self._module = _make(lambda place, error: int(lib.tavrik_module_open(path, place, error)), "tavrik_module",
                             lib.tavrik_module_close)
        settings = sized("tavrik_settings")
        settings.sha256 = sha256
        settings.timeout = timeout
        settings.max_size = max_size
        settings.add_rules = add_rules
        settings.near_conditions = near
        settings.inside = inside
        settings.inside_depth = inside_depth
        settings.inside_files = inside_files
        settings.inside_bytes = inside_bytes
        settings.inside_ratio = inside_ratio
        if rules is not None:
            settings.rules = rules._open
        self._handle = _make(
            lambda place, error: int(lib.tavrik_scanner_open(self._module, settings, place, error)), "tavrik_scanner",
            lib.tavrik_scanner_close)

    # ---- Scanning ----

    def scan(self, source: Source, *, name: Optional[str] = None, cancel: Optional[Cancel] = None) -> Report:
        """Scans a path, an object with a buffer, or a binary file object, which is read in ranges only.

        `name` is what the report calls a buffer or a file object. What is wrong with the file is in its report. Raises
        what the file object raised, TypeError for other sources, and Error when there is not enough memory.
        """
        return Report(self._scan(source, name, cancel))

    def scan_json(self, source: Source, *, name: Optional[str] = None, cancel: Optional[Cancel] = None) -> bytes:
        """As `scan`, but returns only the line that `tavrik-scan --json --no-inside` prints, without the line feed; with
        most files that takes half the time."""
        if type(source) is str and cancel is None and "\0" not in source:
            line = self._json_of_path(source)
            if line is not None:
                return line
        try:
            handle = self._scan(source, name, cancel)  # which the text belongs to
            return bytes(ffi.string(lib.tavrik_report_json(handle)))
        except Error as failure:
            if failure.status is not Status.MEMORY:
                raise
            return error_line(name or (source if isinstance(source, str) else ""), "out-of-memory", str(failure))

    def _json_of_path(self, path: str) -> Optional[bytes]:
        """With as few steps as there can be, since most scans take some microseconds; None when there is no report."""
        place = ffi.new(_REPORT_PLACE)
        called = ffi.new(_TEXT, path.encode("utf-8", "surrogateescape"))
        lib.tavrik_scan(self._open, ffi.new(_INPUT, (_INPUT_SIZE, 0, called)), _NULL, place, _NULL)
        handle = place[0]
        if handle == _NULL:
            return None
        try:
            return bytes(ffi.string(lib.tavrik_report_json(handle)))
        finally:
            lib.tavrik_report_free(handle)

    def _scan(self, source: Source, name: Optional[str], cancel: Optional[Cancel]) -> Any:
        """A report's handle, with few steps for paths: each counts beside a scan of some microseconds."""
        place = ffi.new(_REPORT_PLACE)
        token = _NULL if cancel is None else cancel._open
        if isinstance(source, (str, os.PathLike)):
            path = os.fspath(source)
            if "\0" not in path:
                called = ffi.new(_TEXT, path.encode("utf-8", "surrogateescape"))
                lib.tavrik_scan(self._open, ffi.new(_INPUT, (_INPUT_SIZE, 0, called)), token, place, _NULL)
                if place[0] != _NULL:
                    return ffi.gc(place[0], lib.tavrik_report_free)
        error = sized("tavrik_error")
        with Opened(source, name) as opened:
            status = lib.tavrik_scan(self._open, opened.input, token, place, error)
        handle = place[0] if place[0] == _NULL else ffi.gc(place[0], lib.tavrik_report_free)
        if opened.failure is not None:
            raise opened.failure
        if handle == _NULL:
            raise Error(status, text(error.text))
        return handle

    def scan_many(self, sources: Iterable[Source], threads: Optional[int] = None, *,
                  cancel: Optional[Cancel] = None) -> Iterator[Report]:
        """Scans sources by several threads (one for each processor without `threads`) and yields their reports in the
        order of the sources, which are asked for as they are needed. Raises what `scan` raises, at its place.

        Small files are handed to the library many at once, so that the threads seldom wait for the interpreter."""
        count = threads or os.cpu_count() or 1
        pace = Pace()
        batches = pace.batches(sources)
        if count == 1:
            for batch in batches:
                yield from in_order(self._scan_batch(batch, cancel, pace))
            return
        with concurrent.futures.ThreadPoolExecutor(count) as pool:
            ahead: Deque["concurrent.futures.Future[List[Result]]"] = collections.deque()
            try:
                for batch in batches:
                    ahead.append(pool.submit(self._scan_batch, batch, cancel, pace))
                    if len(ahead) >= 2 * count:
                        yield from in_order(ahead.popleft().result())
                while ahead:
                    yield from in_order(ahead.popleft().result())
            finally:
                for future in ahead:
                    future.cancel()

    def _scan_batch(self, sources: List[Source], cancel: Optional[Cancel], pace: Pace) -> "List[Result]":
        started = time.perf_counter()
        results: Dict[int, Result] = {}
        called: List[Any] = []  # the names of those that one call scans
        places: List[int] = []
        for index, source in enumerate(sources):
            path = os.fspath(source) if isinstance(source, (str, os.PathLike)) else "\0"
            if "\0" in path:
                results[index] = self._result(source, cancel)
            else:
                called.append(ffi.new(_TEXT, path.encode("utf-8", "surrogateescape")))
                places.append(index)
        handles = ffi.new(_REPORTS, len(called))
        inputs = ffi.new(_INPUTS, [(_INPUT_SIZE, 0, name) for name in called])
        token = _NULL if cancel is None else cancel._open
        is_ok = lib.tavrik_scan_many(self._open, inputs, len(called), token, handles, _NULL) == lib.TAVRIK_OK
        for index, place in enumerate(places):
            results[place] = Report(ffi.gc(handles[index], lib.tavrik_report_free)) if is_ok else \
                self._result(sources[place], cancel)
        pace.took(len(sources), time.perf_counter() - started)
        return [results[index] for index in range(len(sources))]

    def _result(self, source: Source, cancel: Optional[Cancel]) -> Result:
        try:
            return self.scan(source, cancel=cancel)
        except Exception as failure:  # raised where the report would have been
            return failure

    # ---- Why, and what a file has ----

    def explain(self, source: Source, *, rule: Optional[int] = None, locator: Optional[int] = None,
                cancel: Optional[Cancel] = None) -> Explanation:
        """Shows each condition of a rule, or of a locator, next to what the file has. Raises Error, ValueError."""
        if (rule is None) == (locator is None):
            raise ValueError("name a rule or a locator")
        function, number = (lib.tavrik_explain_rule, rule) if locator is None else (lib.tavrik_explain_locator, locator)
        handle = self._ask(source, cancel, "tavrik_explanation", lib.tavrik_explanation_free,
                           lambda *arguments: int(function(*arguments[:2], number, *arguments[2:])))
        return Explanation(bool(lib.tavrik_explanation_holds(handle)), text(lib.tavrik_explanation_text(handle)))

    def features(self, source: Source, *, cancel: Optional[Cancel] = None) -> Dict[str, FeatureValue]:
        """The values of a file that rules ask for, by the names that rules give them; of names that occur more than
        once, such as those of functions, a list. Empty for files that are not PE. Raises Error."""
        handle = self._ask(source, cancel, "tavrik_features", lib.tavrik_features_free,
                           lambda *arguments: int(lib.tavrik_features_read(*arguments)))
        values: Dict[str, FeatureValue] = {}
        for index in range(lib.tavrik_features_count(handle)):
            one = filled("tavrik_feature", lambda to: int(lib.tavrik_features_get(handle, index, to)))
            name = text(one.name)
            if name.endswith("function"):
                names = values.setdefault(name, [])
                assert isinstance(names, list)
                names.append(text(one.text))
            else:
                values[name] = text(one.text) if one.is_text else int(one.number)
        return values

    def _ask(self, source: Source, cancel: Optional[Cancel], kind: str, free: Any, call: Callable[..., int]) -> Any:
        token = ffi.NULL if cancel is None else cancel._open
        with Opened(source, None) as opened:
            try:
                return _make(lambda place, error: call(self._open, opened.input, token, place, error), kind, free)
            except Error:
                if opened.failure is not None:
                    raise opened.failure from None
                raise

    # ---- The module ----

    @property
    def module_path(self) -> str:
        """The absolute path of the module."""
        return text(lib.tavrik_module_path(self._module))

    def rules(self) -> Iterator[Rule]:
        """The module's rules, in its order."""
        for index in range(lib.tavrik_module_rule_count(self._module)):
            one = filled("tavrik_rule", lambda to: int(lib.tavrik_module_rule(self._module, index, to)))
            yield Rule(one.rule, text(one.name))

    def locators(self) -> List[Locator]:
        """The entries of the locator table."""
        found = []
        for index in range(lib.tavrik_module_locator_count(self._module)):
            one = filled("tavrik_locator", lambda to: int(lib.tavrik_module_locator(self._module, index, to)))
            found.append(Locator(one.entry, one.kind, text(one.kind_name), text(one.description), one.flags,
                                 text(one.gate)))
        return found

    def gates(self) -> Dict[int, str]:
        """The conditions of each locator on a file's headers, a line each, by its entry."""
        return {locator.entry: locator.gate for locator in self.locators()}
