"""The service: one thread of its own starts and stops it and tells of its conditions, so that
nobody's Ctrl-C is lost in a call of the library, and on_status comes without the library's locks.
"""

import atexit
import concurrent.futures
import ctypes
import logging
import os
import queue
import socket
import sys
import threading
import time
from contextlib import contextmanager
from functools import partial
from types import TracebackType
from typing import Any, Callable, Iterator, Optional, Type

from . import _library
from ._errors import AlreadyRunning, InsideCallback, NotServing, RequestClosed, StartFailed
from ._records import (
    WINDOWS,
    Answer,
    EventHeaderRecord,
    Exchange,
    Peer,
    Request,
    Status,
    StatusCode,
    Ticket,
    code_page,
    make_peer,
    make_request,
)

PORT = 2968
NAME_BYTES = 15
BUFFER_TOO_SMALL = 513
log = logging.getLogger("zvqrn")

# The one service of this process, from the beginning of its start to the end of its stop.
_guard = threading.Lock()
_current: "Optional[Service]" = None
_forked = False
# Set when the process ends: nobody is left then whom a callback could wait for.
ending = threading.Event()
# Which callback this thread is in.
_here = threading.local()


class Service:
    """Lets scanners find this PC, and hands their requests to callbacks.

    on_request(request) -- decides about a Request; returns an Answer.  It may take as long as it
        needs (within 300 seconds, after which the scanner's connection is closed), while the scanner
        waits.  What it raises, or a result that is no Answer, is logged and answered ERROR.
    accept_scanner(peer) -- whether a scanner that looks for this PC by its own name may list it:
        True or False.  By default all may.  What it raises is logged, and the scanner gets no reply.
    on_status(status) -- hears that this PC has lost its address, or serves at a new one.  By default
        that is logged.
    name -- the name under which scanners list this PC, at most 15 bytes in its code page; by default
        the computer's own.

    The first two are called on threads of the library, several at once; on_status on a thread of this
    service, one at a time.  `with` starts and stops; stop() waits for callbacks that are running, so
    hold nothing then that they wait for.  A service that still runs when the process ends is stopped.
    """

    def __init__(
        self,
        *,
        on_request: Callable[[Request], Answer],
        accept_scanner: Optional[Callable[[Peer], bool]] = None,
        on_status: Optional[Callable[[Status], object]] = None,
        name: Optional[str] = None,
    ) -> None:
        for argument, callback in (
            ("on_request", on_request),
            ("accept_scanner", accept_scanner),
            ("on_status", on_status),
        ):
            if not callable(callback) and (callback is not None or argument == "on_request"):
                raise TypeError(f"{argument} must be a function, not {callback!r}")
        self._on_request = on_request
        self._accept_scanner = accept_scanner
        self._on_status = on_status
        self._name = None if name is None else encode_name(name)
        self._library: Any = None
        self._starts = 0  # so far: a request belongs to one of them
        self._inbox: "queue.SimpleQueue[Optional[Status]]" = queue.SimpleQueue()
        self.ended = _future()
        self.ended.set_result(None)

    # ---- What a host calls ----

    def start(self) -> None:
        """Starts the service.  It may wait for this PC to get an address first; see `serving`."""
        started = self.begin_start()
        try:
            while not started.done():
                concurrent.futures.wait([started], timeout=0.2)
        except BaseException:  # Ctrl-C
            self.stop()
            raise
        started.result()

    def stop(self) -> None:
        """Stops the service, when it runs; returns once no callback runs or will come."""
        if self.begin_stop():
            self.wait()

    def wait(self, timeout: Optional[float] = None) -> bool:
        """Waits until another thread has stopped the service, or for `timeout` seconds; says whether
        it has ended.  Ctrl-C raises KeyboardInterrupt here, as everywhere.
        """
        end = None if timeout is None else time.monotonic() + timeout
        # In pieces, since under Windows a wait is not interrupted.
        while True:
            left = 0.5 if end is None else min(0.5, end - time.monotonic())
            concurrent.futures.wait([self.ended], max(left, 0))
            if self.ended.done() or left <= 0:
                return self.ended.done()

    @property
    def serving(self) -> bool:
        """Whether scanners are served now; False also while the service waits for an address."""
        length = ctypes.c_int32(0)
        return self._runs() and self._library.QRNGetPCName(None, ctypes.byref(length)) == 1

    @property
    def name(self) -> str:
        """The name under which scanners list this PC.  One that is set stays for later starts, too."""
        buffer = ctypes.create_string_buffer(NAME_BYTES)
        length = ctypes.c_int32(NAME_BYTES)
        result = BUFFER_TOO_SMALL if self._runs() else 0
        while result == BUFFER_TOO_SMALL:
            buffer = ctypes.create_string_buffer(max(length.value, 1))
            result = self._library.QRNGetPCName(buffer, ctypes.byref(length))
        if result != 1:
            raise NotServing(
                "the service has no name yet: it does not run, or waits for an address"
            )
        return buffer.raw[: length.value].decode(code_page(), "replace")

    @name.setter
    def name(self, name: str) -> None:
        self._name = encode_name(name)
        if self.serving and not self._apply_name():
            raise NotServing("the service has just been stopped")

    def __enter__(self) -> "Service":
        self.start()
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.stop()

    # ---- Starting and stopping, for both kinds of service ----

    def begin_start(self) -> "concurrent.futures.Future[None]":
        """Begins to start on the service's thread; the future tells when it has, or why not."""
        global _current
        refuse_inside_callback("start")
        library = _library.loaded()
        with _guard:
            if _forked:
                raise StartFailed(
                    "this process was forked from one whose service ran: it can have none"
                )
            if _current is not None:
                raise AlreadyRunning("this process runs a service already; stop that one first")
            _current = self
        self._library = library
        self._starts += 1
        self._inbox = queue.SimpleQueue()
        self.ended = _future()
        started = _future()
        thread = threading.Thread(
            target=self._run, args=(started,), name="zvqrn service", daemon=True
        )
        try:
            thread.start()
        except RuntimeError:
            self._end()
            raise
        return started

    def begin_stop(self) -> bool:
        """Begins to stop on the service's thread; False when there is nothing to stop."""
        refuse_inside_callback("stop")
        if not self._runs():
            return False
        self._inbox.put(None)
        return True

    def _runs(self) -> bool:
        return _current is self

    def _end(self) -> None:
        global _current
        with _guard:
            _current = None
        self.ended.set_result(None)

    def _run(self, started: "concurrent.futures.Future[None]") -> None:
        try:
            self._start_library()
        except BaseException as error:
            self._end()
            started.set_exception(error)
            return
        started.set_result(None)
        while True:
            status = self._inbox.get()
            if status is None:
                break
            self._tell(status)
        self._library.QRNStopService()
        self._end()

    def _start_library(self) -> None:
        if not _library.utility_found():
            log.warning(
                "no %s was found: every request will be answered with an error, and on_request never "
                "called.  zvqrn.load(utility=...) says where it is",
                _library.UTILITY_NAME,
            )
        if self._library.QRNStartService(_peer, _event, _status, None, None, None) != 1:
            raise StartFailed(f"the service did not start: {why_not_started()}")
        if self.serving and not self._apply_name():
            self._library.QRNStopService()
            raise StartFailed("the service did not take its name")

    def _apply_name(self) -> bool:
        name = self._name
        return name is None or self._library.QRNSetPCName(name, len(name)) == 1

    def _tell(self, status: Status) -> None:
        # A service that has waited for an address has the computer's own name.
        if status.code is StatusCode.RESTART:
            self._apply_name()
        if self._on_status is None:
            log.warning("%s", status.message)
            return
        with inside("on_status"):
            try:
                self._on_status(status)
            except BaseException:
                log.exception("on_status raised")

    def _send(self, start: int, header: bytes, data: bytes) -> None:
        record = EventHeaderRecord.from_buffer_copy(header)
        uid = record.uid.decode("ascii", "replace")
        if not self._runs():
            raise NotServing("the service has been stopped")
        if start != self._starts:
            raise RequestClosed(f"request {uid} ended when the service was stopped")
        if self._library.QRNSendData(ctypes.byref(record), data, len(data)) != 1:
            raise RequestClosed(
                f"request {uid} is no longer open: its END has come, its scanner has gone, or the "
                "service does not serve"
            )


def _future() -> "concurrent.futures.Future[None]":
    """A future that those who wait for it cannot cancel."""
    future: "concurrent.futures.Future[None]" = concurrent.futures.Future()
    future.set_running_or_notify_cancel()
    return future


def encode_name(name: str) -> bytes:
    """A PC's name as the library takes it."""
    if not isinstance(name, str):
        raise TypeError(f"the name must be a string, not {type(name).__name__}")
    try:
        encoded = name.encode(code_page())
    except UnicodeEncodeError as error:
        raise ValueError(
            f"the name {name!r} has letters that are not in this PC's code page"
        ) from error
    if not 1 <= len(encoded) <= NAME_BYTES or b"\0" in encoded:
        raise ValueError(
            f"the name must be 1 to {NAME_BYTES} bytes in this PC's code page, without a NUL; {name!r} "
            f"has {len(encoded)}"
        )
    return encoded


def why_not_started() -> str:
    """What can be found out from outside: the library says only that it did not."""
    for kind, word in ((socket.SOCK_STREAM, "TCP"), (socket.SOCK_DGRAM, "UDP")):
        with socket.socket(socket.AF_INET, kind) as probe:
            if not WINDOWS and kind == socket.SOCK_STREAM:  # as the library does
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                probe.bind(("", PORT))
            except OSError as error:
                return f"{word} port {PORT} is taken, perhaps by another host ({error.strerror})"
    return "this PC's name or address could not be had"


def checked_answer(answer: object) -> Answer:
    """What on_request returned, if it is an answer."""
    if isinstance(answer, int) and not isinstance(answer, bool):
        return Answer(answer)
    raise TypeError(f"on_request must return a zvqrn.Answer, not {answer!r}")


# ---- Callbacks ----


@contextmanager
def inside(callback: str) -> Iterator[None]:
    _here.callback = callback
    try:
        yield
    finally:
        _here.callback = None


def refuse_inside_callback(what: str) -> None:
    callback = getattr(_here, "callback", None)
    if callback:
        raise InsideCallback(
            f"{what}() would wait for the {callback} that calls it: let another thread do it, such as "
            "the main one, after a threading.Event that the callback sets"
        )


def _on_peer(record: Any, context: Any) -> int:
    service = _current
    with inside("accept_scanner"):
        try:
            if service is None or service._accept_scanner is None:
                return 1
            accepted = service._accept_scanner(make_peer(record.contents))
            if not isinstance(accepted, bool):
                raise TypeError(f"accept_scanner must return True or False, not {accepted!r}")
            return int(accepted)
        except BaseException:
            log.exception("accept_scanner failed; the scanner gets no reply")
            return 0


def _on_event(header: Any, kind: int, data: Any, size: int, context: Any) -> int:
    service = _current
    with inside("on_request"):
        try:
            if service is None:
                return Answer.BUSY
            name = ctypes.string_at(header, ctypes.sizeof(EventHeaderRecord))
            ticket = Ticket(name, partial(service._send, service._starts))
            request = make_request(name, kind, data, ticket)
            try:
                return checked_answer(service._on_request(request))
            finally:
                ticket.open = request.exchange is Exchange.START
        except BaseException:
            log.exception("on_request failed; the scanner is answered ERROR")
            return Answer.ERROR


def _on_status(status_class: int, code: int, message: bytes, context: Any) -> int:
    # Locks of the library are held: the service's thread tells the host.
    service = _current
    if service is not None:
        service._inbox.put(Status(StatusCode(code), message.decode("ascii", "replace")))
    return 0


# The library keeps bare addresses of these: they live as long as the process.
_peer = _library.PEER_FILTER(_on_peer)
_event = _library.SCAN_EVENT(_on_event)
_status = _library.STATUS(_on_status)


# ---- The end of the process ----


def _stop_at_exit() -> None:
    ending.set()
    service = _current
    if service is None:
        return
    try:
        service.stop()
    except KeyboardInterrupt:
        # Callbacks are still in the interpreter, which must not be taken down around them.
        for stream in (sys.stdout, sys.stderr):
            try:
                stream.flush()
            except (AttributeError, OSError, ValueError):
                pass
        os._exit(130)


def _forget_in_child() -> None:
    """A forked process has the parent's service without its threads, and the library serves none."""
    global _current, _forked, _guard
    _guard = threading.Lock()
    if _current is not None:
        _forked = True
        _current.ended = _future()
        _current.ended.set_result(None)
        _current = None


atexit.register(_stop_at_exit)
if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_forget_in_child)
