"""The result of a scan, read out of the library when it is asked for."""
from __future__ import annotations

import json
from typing import Any, Dict, NamedTuple, Optional, Tuple

from ._native import ffi, filled, lib, text
from ._results import Detection, Finding, NearMiss, Note, Outcome, Payload, Status

_SUMMARY: Any = ffi.typeof("tavrik_summary *")
_SUMMARY_START: Any = (ffi.sizeof("tavrik_summary"),)


class _Values(NamedTuple):
    """All of a report but its JSON."""

    name: str
    parent: str
    outcome: Outcome
    status: Status
    text: str
    size: int
    sha256: str
    bytes_read: int
    detections: Tuple[Detection, ...]
    findings: Tuple[Finding, ...]
    payloads: Tuple[Payload, ...]
    near_misses: Tuple[NearMiss, ...]
    notes: Tuple[Note, ...]
    inside: Tuple["Report", ...]


class Report:
    """What a scan found. True in conditions when it found something. Reports are equal when all that they say is; they
    can be pickled.

    Nothing is copied out of the library before it is asked for: most reports of many are only asked whether they found
    something."""

    __slots__ = ("_handle", "_json", "_owner", "_values")

    def __init__(self, handle: Any, owner: Optional["Report"] = None) -> None:
        self._handle = handle
        self._owner = owner  # which the handle of a file inside belongs to
        self._values: Optional[_Values] = None
        self._json: Optional[str] = None

    def __bool__(self) -> bool:
        found = self._values or self._summary()
        return bool(found.detections or found.findings)

    @property
    def name(self) -> str:
        """The path, or what the caller called the source."""
        return self._all().name

    @property
    def parent(self) -> str:
        """The name of the file that this one is inside of; "" for the file itself."""
        return self._all().parent

    @property
    def outcome(self) -> Outcome:
        """How the scan ended."""
        return self._all().outcome

    @property
    def status(self) -> Status:
        """Why it failed; Status.OK when it did not."""
        return self._all().status

    @property
    def text(self) -> str:
        """Why it was skipped or failed; "" when neither."""
        return self._all().text

    @property
    def size(self) -> int:
        """Of the file, in bytes."""
        return self._all().size

    @property
    def sha256(self) -> str:
        """In hexadecimal digits; "" when not asked for or not known."""
        return self._all().sha256

    @property
    def bytes_read(self) -> int:
        """Of the file; all of a buffer counts as read."""
        return self._all().bytes_read

    @property
    def detections(self) -> Tuple[Detection, ...]:
        """The rules that match."""
        return self._all().detections

    @property
    def findings(self) -> Tuple[Finding, ...]:
        """What each locator said."""
        return self._all().findings

    @property
    def payloads(self) -> Tuple[Payload, ...]:
        """The payloads, each once."""
        return self._all().payloads

    @property
    def near_misses(self) -> Tuple[NearMiss, ...]:
        """Payloads that no locator finds; looked for by scanners with `near`."""
        return self._all().near_misses

    @property
    def notes(self) -> Tuple[Note, ...]:
        """What is no failure, such as a bound that ended the scan of what is inside."""
        return self._all().notes

    @property
    def inside(self) -> Tuple["Report", ...]:
        """The reports of the files directly inside this one; by scanners with `inside`."""
        return self._all().inside

    @property
    def json(self) -> str:
        """The line that `tavrik-scan --json` prints, without what is inside."""
        if self._json is None:
            self._json = text(lib.tavrik_report_json(self._handle))
        return self._json

    def as_dict(self) -> Dict[str, Any]:
        """The object of `json`."""
        made: Dict[str, Any] = json.loads(self.json)
        return made

    def _all(self) -> _Values:
        values = self._values
        if values is None:
            values = self._values = self._read()
        return values

    def _read(self) -> _Values:
        handle, summary = self._handle, self._summary()
        return _Values(text(summary.name), text(summary.parent), Outcome(summary.outcome), Status(summary.status),
                       text(summary.text), summary.file_size, text(summary.sha256), summary.bytes_read,
                       tuple(_detection(handle, index) for index in range(summary.detections)),
                       tuple(_finding(handle, index) for index in range(summary.findings)),
                       tuple(_payload(handle, index) for index in range(summary.payloads)),
                       tuple(_near_miss(handle, index) for index in range(summary.near_misses)),
                       tuple(_note(handle, index) for index in range(summary.notes)),
                       tuple(self._inner(index) for index in range(summary.inside)))

    def _summary(self) -> Any:
        summary = ffi.new(_SUMMARY, _SUMMARY_START)
        lib.tavrik_report_summary(self._handle, summary)
        return summary

    def _inner(self, index: int) -> "Report":
        place = ffi.new("const tavrik_report **")
        lib.tavrik_report_inside(self._handle, index, place)
        return Report(place[0], self)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Report) and self._all() == other._all()

    def __hash__(self) -> int:
        return hash(self._all())

    def __reduce__(self) -> Tuple[Any, ...]:
        return _restored, (self._all(), self.json)

    def __repr__(self) -> str:
        values = self._all()
        return (f"Report(name={values.name!r}, outcome={values.outcome}, text={values.text!r}, "
                f"detections={values.detections!r}, findings={values.findings!r}, payloads={values.payloads!r})")


def _restored(values: _Values, line: str) -> Report:
    report = Report(None)
    report._values = values
    report._json = line
    return report


def _detection(handle: Any, index: int) -> Detection:
    one = filled("tavrik_detection", lambda to: int(lib.tavrik_report_detection(handle, index, to)))
    return Detection(one.rule, text(one.name), text(one.action_name), text(one.metadata))


def _finding(handle: Any, index: int) -> Finding:
    one = filled("tavrik_finding", lambda to: int(lib.tavrik_report_finding(handle, index, to)))
    return Finding(one.entry, one.kind, text(one.kind_name), one.offset, one.reported)


def _payload(handle: Any, index: int) -> Payload:
    one = filled("tavrik_payload", lambda to: int(lib.tavrik_report_payload(handle, index, to)))
    return Payload(one.kind, text(one.kind_name), one.offset, one.length, one.present, text(one.sha256),
                   tuple(one.entries[0:one.entry_count]))


def _near_miss(handle: Any, index: int) -> NearMiss:
    one = filled("tavrik_near_miss", lambda to: int(lib.tavrik_report_near_miss(handle, index, to)))
    return NearMiss(bool(one.is_unknown_build), one.entry, one.kind, text(one.kind_name), one.offset, one.length,
                    one.present, text(one.text), tuple(text(one.conditions).splitlines()))


def _note(handle: Any, index: int) -> Note:
    one = filled("tavrik_note", lambda to: int(lib.tavrik_report_note(handle, index, to)))
    return Note(text(one.code), text(one.text))
