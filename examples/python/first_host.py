#!/usr/bin/env python3
"""A host program in Python: prints every push-scan request and answers it.

    first_host.py [--library PATH] [--answer CODE] [--seconds N]

CODE is the number of a response code (default 1, OK; 9 declines).  It runs for N seconds, or until
Ctrl-C.  Under Windows Python needs the bitness of ZVQRN.dll: there is a package for each.
"""
import argparse
import ctypes as c
import queue
import signal
import sys
import threading
import time

WINDOWS = sys.platform == "win32"


class EventHeader(c.Structure):
    _fields_ = [("exchange_type", c.c_int32), ("subevent", c.c_int32), ("uid", c.c_char * 20),
                ("protocol_version", c.c_char * 6), ("reserved", c.c_char * 2)]


class PushScanRequestRecord(c.Structure):  # kind 1; the driver's name runs on into reserved1
    _fields_ = [("driver_name", c.c_char * 34), ("reserved1", c.c_char * 32),
                ("ip_address", c.c_char * 32), ("reserved2", c.c_char * 2),
                ("image_format", c.c_int32), ("color_type", c.c_int32), ("load_paper", c.c_int32),
                ("paper_type", c.c_int32), ("paper_width", c.c_int32), ("paper_height", c.c_int32),
                ("scan_x", c.c_int32), ("scan_y", c.c_int32)]


class PushScanIdRecord(c.Structure):  # kind 3
    _fields_ = [("product_name", c.c_char * 32), ("driver_name", c.c_char * 34),
                ("ip_address", c.c_char * 32), ("reserved", c.c_char * 2),
                ("push_scan_id", c.c_int32)]


# The callbacks are cdecl (CFUNCTYPE), the exports stdcall (WinDLL).
Peer = c.CFUNCTYPE(c.c_int32, c.c_void_p, c.c_void_p)
Event = c.CFUNCTYPE(c.c_int32, c.POINTER(EventHeader), c.c_int32, c.c_void_p, c.c_int32, c.c_void_p)
Status = c.CFUNCTYPE(c.c_int32, c.c_int32, c.c_int32, c.c_char_p, c.c_void_p)


def load(path):
    """Loads the library, or ends the program with the reason."""
    try:
        library = (c.WinDLL if WINDOWS else c.CDLL)(path)
    except OSError as error:
        if getattr(error, "winerror", 0) == 193:
            sys.exit(f"{path} is not for this Python, which is a {8 * c.sizeof(c.c_void_p)}-bit "
                     "program: take the package for the other bitness, or the other Python.")
        sys.exit(f"The library {path} cannot be loaded (--library says where it is): {error}")
    library.QRNStartService.argtypes = [Peer, Event, Status] + [c.c_void_p] * 3
    library.QRNStopService.argtypes = []
    return library


def shown(text):
    """Anyone on the network can choose the bytes: what could disturb a terminal becomes '?'."""
    return "".join(chr(b) if 32 <= b <= 126 and b != 34 else "?" for b in text)


def describe(header, record):
    exchange = {1: "START", 2: "END"}.get(header.subevent, "single")
    line = f"request {shown(header.uid)}: {exchange}"
    if record is None:
        return line
    line += f', driver "{shown(record.driver_name)}", scanner {shown(record.ip_address)}, '
    if isinstance(record, PushScanIdRecord):
        return line + f"push-scan ID {record.push_scan_id}"
    return line + (f"format {record.image_format}, colour {record.color_type}, "
                   f"paper {record.paper_type}")


def main():
    parser = argparse.ArgumentParser(description="Prints and answers push-scan requests.")
    parser.add_argument("--library", default="ZVQRN.dll" if WINDOWS else "libZVQRN.so")
    parser.add_argument("--answer", type=int, default=1)
    parser.add_argument("--seconds", type=float, default=float("inf"))
    options = parser.parse_args()
    library = load(options.library)
    lines = queue.Queue()

    # Called on a thread of the library, several at once.  The pointers die when it returns: what
    # goes on is a copy.  (For QRNSendData, too, copy the header, afresh for each call.)
    def on_request(header, kind, data, size, context):
        copy = EventHeader.from_buffer_copy(header.contents)
        layout = {1: PushScanRequestRecord, 3: PushScanIdRecord}.get(kind)
        record = layout and layout.from_buffer_copy(c.string_at(data, size))
        lines.put(describe(copy, record))
        return options.answer

    # Locks of the library are held in here: return soon, and call none of its functions.
    def on_status(status_class, code, message, context):
        waits = "  Waiting until this PC has an address." if code == 769 else ""
        lines.put(f"status {status_class}/{code}: {message.decode('ascii', 'replace')}{waits}")
        return 0

    # The library keeps bare function pointers: these objects must live until the stop.
    callbacks = (Peer(lambda peer, context: 1), Event(on_request), Status(on_status))
    if library.QRNStartService(*callbacks, None, None, None) != 1:
        sys.exit("The service did not start: another host holds port 2968, or the PC's name or "
                 "address could not be had.")
    print("Waiting for requests; Ctrl-C ends.", flush=True)
    interrupted = threading.Event()
    signal.signal(signal.SIGINT, lambda number, frame: interrupted.set())
    end = time.monotonic() + options.seconds
    while not interrupted.is_set() and time.monotonic() < end:
        try:
            print(lines.get(timeout=0.1), flush=True)
        except queue.Empty:
            pass
    library.QRNStopService()  # no callback comes after this; 0 if it was waiting for a network
    while not lines.empty():
        print(lines.get(), flush=True)


if __name__ == "__main__":
    main()
