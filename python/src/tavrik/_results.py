"""What calls return: plain values that hold nothing of the library."""
from __future__ import annotations

import enum
import json
from dataclasses import dataclass
from typing import Any, Dict, Tuple


class Status(enum.IntEnum):
    """Why something failed."""

    OK = 0
    ARGUMENT = 1
    MEMORY = 2
    INTERNAL = 3
    FILE = 10
    READ = 11
    TOO_LARGE = 12
    TIMEOUT = 13
    CANCELLED = 14
    RULES = 20
    NO_SUCH_RULE = 21
    MODULE_MISSING = 30
    MODULE_UNLOADABLE = 31
    MODULE_FOREIGN = 32
    MODULE_PATH = 33
    COMPANION_MISSING = 34
    COMPANION_UNUSABLE = 35
    MODULE_INIT = 36


class Error(Exception):
    """A failure of the library. The text names the file and the remedy; `status` says which failure it is."""

    def __init__(self, status: int, message: str) -> None:
        super().__init__(message)
        self.status = Status(status)


def _metadata(line: str) -> Dict[str, Any]:
    made: Dict[str, Any] = json.loads(line) if line else {}
    return made


class Outcome(enum.Enum):
    """How a scan ended."""

    SCANNED = 0
    NOT_PE = 1
    SKIPPED = 2
    FAILED = 3


@dataclass(frozen=True)
class Detection:
    """A rule that matches the file."""

    rule: int
    name: str
    action: str  #: the module's for cleaning, such as "quarantine" or "none"
    metadata_json: str = ""

    @property
    def metadata(self) -> Dict[str, Any]:
        """What the text of the rule says about it: `authors`, `date`, `references`, `description`, `samples`; empty
        for the module's rules."""
        return _metadata(self.metadata_json)


@dataclass(frozen=True)
class Finding:
    """What one locator said."""

    entry: int
    kind: int
    kind_name: str
    offset: int
    reported: int  #: the locator's own statement, not the payload's length


@dataclass(frozen=True)
class Payload:
    """A payload, once, whatever number of locators found it."""

    kind: int
    kind_name: str
    offset: int
    length: int  #: by its own structure, in bytes; 0 when that cannot be read
    present: int  #: as many of these bytes are in the file
    sha256: str  #: of the bytes that are there; "" when not known
    entries: Tuple[int, ...]


@dataclass(frozen=True)
class NearMiss:
    """A payload that no locator finds. It is no finding."""

    is_unknown_build: bool  #: where payloads usually begin; False: `entry` would find it but for the conditions
    entry: int
    kind: int
    kind_name: str
    offset: int
    length: int  #: by its own structure, in bytes; 0 when that cannot be read
    present: int  #: as many of these bytes are in the file
    text: str  #: one line for people
    conditions: Tuple[str, ...]  #: of the gate of `entry`, those that fail


@dataclass(frozen=True)
class Note:
    """Something about a file that is no failure."""

    code: str  #: a word such as "inside-bound"
    text: str


def error_line(name: str, code: str, why: str) -> bytes:
    """What `Report.json` would have for a file that could not be scanned."""
    return json.dumps({"schema": 1, "file": name, "size": None, "status": "error", "error": {"code": code, "text": why},
                       "detections": [], "findings": [], "payloads": []}, separators=(",", ":")).encode()


@dataclass(frozen=True)
class Explanation:
    """Why a rule or a locator does or does not recognise a file. True in conditions when it does."""

    holds: bool
    text: str

    def __bool__(self) -> bool:
        return self.holds

    def __str__(self) -> str:
        return self.text


@dataclass(frozen=True)
class Diagnostic:
    """An error or a warning about a text of rules."""

    is_error: bool
    code: str
    message: str
    help: str
    line: int
    column: int
    offset: int
    length: int
    rendered: str  #: as people read it, with the line and a caret below

    def __str__(self) -> str:
        return self.rendered


@dataclass(frozen=True)
class Locator:
    """An entry of the module's locator table."""

    entry: int
    kind: int
    kind_name: str
    description: str
    flags: int
    gate: str  #: the conditions on the headers, a line each


@dataclass(frozen=True)
class Rule:
    """A rule of the module, or of a text."""

    number: int
    name: str
    metadata_json: str = ""

    @property
    def metadata(self) -> Dict[str, Any]:
        """What the text says about it, as in Detection."""
        return _metadata(self.metadata_json)
