"""The library's records: as they lie in memory, and as a host sees them.

Texts that come from scanners are what anyone on the network chose to send.  What is no character of
the text's encoding becomes U+FFFD.
"""

import ctypes
import enum
import locale
import sys
from dataclasses import dataclass, field
from typing import Any, Callable, Union

from ._errors import RequestClosed

WINDOWS = sys.platform == "win32"


def code_page() -> str:
    """The encoding of names: the PC's ANSI code page, as the library takes it."""
    if WINDOWS:
        return "mbcs"
    return "utf-8" if locale.nl_langinfo(locale.CODESET) == "UTF-8" else "cp1252"


# ---- As they lie in memory; include/zvqrn/zvqrn.h describes them ----


class EventHeaderRecord(ctypes.Structure):
    _fields_ = [
        ("exchangeType", ctypes.c_int32),
        ("subevent", ctypes.c_int32),
        ("uid", ctypes.c_char * 20),
        ("protocolVersion", ctypes.c_char * 6),
        ("reserved", ctypes.c_char * 2),
    ]


class SettingsRecord(ctypes.Structure):
    """Version 1.  The driver's name runs on into what follows its 32 bytes."""

    _fields_ = [
        ("driverName", ctypes.c_char * 34),
        ("reserved1", ctypes.c_char * 32),
        ("ipAddress", ctypes.c_char * 32),
        ("reserved2", ctypes.c_char * 2),
        ("imageFormat", ctypes.c_int32),
        ("colorType", ctypes.c_int32),
        ("loadPaper", ctypes.c_int32),
        ("paperType", ctypes.c_int32),
        ("paperWidth", ctypes.c_int32),
        ("paperHeight", ctypes.c_int32),
        ("scanX", ctypes.c_int32),
        ("scanY", ctypes.c_int32),
    ]


class IdRecord(ctypes.Structure):
    """Version 2."""

    _fields_ = [
        ("productName", ctypes.c_char * 32),
        ("driverName", ctypes.c_char * 34),
        ("ipAddress", ctypes.c_char * 32),
        ("reserved", ctypes.c_char * 2),
        ("pushScanId", ctypes.c_int32),
    ]


class PeerRecord(ctypes.Structure):
    _fields_ = [
        ("driverName", ctypes.c_char_p),
        ("serviceType", ctypes.c_char_p),
        ("scopeList", ctypes.c_char_p),
        ("tagList", ctypes.c_char_p),
    ]


# ---- As a host sees them ----


class Answer(enum.IntEnum):
    """What on_request returns: the answer that the scanner gets."""

    OK = 1
    PARAM_ERR = 2
    PARSE_ERR = 3
    PM_EXECUTE_ERR = 5
    PM_NOT_INSTALL = 6
    TWAIN_NOT_INSTALL = 7
    ERROR = 8
    BUSY = 9


class Exchange(enum.Enum):
    """A request that stands alone, or the START or END of a pair."""

    SINGLE = 0
    START = 1
    END = 2


class ImageFormat(enum.IntEnum):
    PDF = 1
    TIFF = 2
    JPEG = 3


class ColorType(enum.IntEnum):
    COLOR = 110
    MONOCHROME = 111


class LoadPaper(enum.IntEnum):
    """Where the paper is."""

    AUTO = 0
    FLATBED = 1
    SINGLE = 2
    DOUBLE = 3


class PaperType(enum.IntEnum):
    AUTO = 0
    USER = 1
    A3 = 2
    A4 = 3
    A4_LANDSCAPE = 4
    B4 = 5
    B5 = 6
    B5_LANDSCAPE = 7
    LETTER = 8
    LETTER_LANDSCAPE = 9
    LEGAL = 10


class StatusCode(enum.IntEnum):
    NO_NETWORK = 769
    """This PC has no address but its loopback one; a service that starts so waits for one."""
    RESTART = 770
    """The PC's address has changed, or has come up: the service serves there."""


@dataclass(frozen=True)
class Status:
    """A condition of the service."""

    code: StatusCode
    message: str


@dataclass(frozen=True)
class Peer:
    """A scanner that looks for this PC by its own name."""

    driver_name: str
    """The TWAIN driver that serves the scanner on this PC."""
    service_type: str
    scope_list: str
    tag_list: str


class Ticket:
    """What it takes to send to a request's scanner: the 36 bytes that name the request."""

    def __init__(self, header: bytes, send: Callable[[bytes, bytes], None]) -> None:
        self.header = header
        self.send = send
        self.open = True


@dataclass(frozen=True)
class Request:
    """One push-scan request: a SettingsRequest or an IdRequest.  It may be kept and used anywhere."""

    uid: str
    """The scanner's name for the message; an END has one of its own."""
    exchange: Exchange
    protocol_version: str
    """"1.00" or "2.00"."""
    driver_name: str
    """The TWAIN driver that serves the scanner on this PC."""
    ip_address: str
    """The scanner's address as it states it."""
    _ticket: Ticket = field(repr=False, compare=False)

    def send(self, data: Union[bytes, bytearray, memoryview]) -> None:
        """Sends data to the scanner that made the request, from any thread.

        A single request can be sent to until its callback has returned, a START until its END has
        been answered; RequestClosed says that it is too late.  Whether the data arrives is not told.
        """
        if not isinstance(data, (bytes, bytearray, memoryview)):
            raise TypeError(f"the data to send must be bytes, not {type(data).__name__}")
        copy = bytes(data)
        if not 1 <= len(copy) <= 0x7FFFFFFF:
            raise ValueError(f"1 to 2147483647 bytes can be sent, not {len(copy)}")
        if not self._ticket.open:
            raise RequestClosed(
                f"request {self.uid} is answered: data for a single request is sent before "
                "on_request returns"
            )
        self._ticket.send(self._ticket.header, copy)


@dataclass(frozen=True)
class SettingsRequest(Request):
    """Protocol version 1: the scanner sends settings.  Sizes and positions carry no unit."""

    image_format: ImageFormat
    color_type: ColorType
    load_paper: LoadPaper
    paper_type: PaperType
    paper_width: int
    paper_height: int
    scan_x: int
    scan_y: int


@dataclass(frozen=True)
class IdRequest(Request):
    """Protocol version 2: the scanner names settings that are kept on this PC."""

    product_name: str
    """The scanner's product name as it sent it; may be empty."""
    push_scan_id: int
    """1 to 3."""


def make_request(header: bytes, kind: int, data: int, ticket: Ticket) -> Request:
    """Reads a request from the library's memory; `data` is the address of its record."""
    event = EventHeaderRecord.from_buffer_copy(header)
    encoding = code_page()

    def text(value: bytes) -> str:
        return value.decode(encoding, "replace")

    layout = {1: SettingsRecord, 3: IdRecord}[kind]
    record: Any = layout.from_buffer_copy(ctypes.string_at(data, ctypes.sizeof(layout)))
    common = (
        text(event.uid),
        Exchange(event.subevent),
        text(event.protocolVersion),
        text(record.driverName),
        text(record.ipAddress),
        ticket,
    )
    if kind == 3:
        return IdRequest(*common, text(record.productName), record.pushScanId)
    return SettingsRequest(
        *common,
        ImageFormat(record.imageFormat),
        ColorType(record.colorType),
        LoadPaper(record.loadPaper),
        PaperType(record.paperType),
        record.paperWidth,
        record.paperHeight,
        record.scanX,
        record.scanY,
    )


def make_peer(record: Any) -> Peer:
    """Reads what a scanner's search said; the driver's name alone is in the PC's code page."""
    return Peer(
        record.driverName.decode(code_page(), "replace"),
        record.serviceType.decode("utf-8", "replace"),
        record.scopeList.decode("utf-8", "replace"),
        record.tagList.decode("utf-8", "replace"),
    )
