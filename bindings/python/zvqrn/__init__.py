"""Lets network scanners send push-scan requests to this PC, through ZVQRN.dll or libZVQRN.so.

    import zvqrn

    def on_request(request):
        print(request)
        return zvqrn.Answer.OK

    with zvqrn.Service(on_request=on_request) as service:
        service.wait()

One process runs one service, and one PC one host: the ports are fixed.  `AsyncService` is the same
for asyncio.  What happens beside the calls (a callback that raised, a missing utility library) is
logged under the name "zvqrn".
"""

from ._asyncio import AsyncService
from ._errors import (
    AlreadyRunning,
    Error,
    InsideCallback,
    LibraryError,
    LibraryMissing,
    NotServing,
    RequestClosed,
    StartFailed,
    WrongLibrary,
)
from ._library import STAND_IN, load
from ._records import (
    Answer,
    ColorType,
    Exchange,
    IdRequest,
    ImageFormat,
    LoadPaper,
    PaperType,
    Peer,
    Request,
    SettingsRequest,
    Status,
    StatusCode,
)
from ._service import Service

__version__ = "0"  # the wheel's builder writes the library's version here

__all__ = [
    "STAND_IN",
    "AlreadyRunning",
    "Answer",
    "AsyncService",
    "ColorType",
    "Error",
    "Exchange",
    "IdRequest",
    "ImageFormat",
    "InsideCallback",
    "LibraryError",
    "LibraryMissing",
    "LoadPaper",
    "NotServing",
    "PaperType",
    "Peer",
    "Request",
    "RequestClosed",
    "Service",
    "SettingsRequest",
    "StartFailed",
    "Status",
    "StatusCode",
    "WrongLibrary",
    "load",
]
