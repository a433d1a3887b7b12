"""Finds and loads the library, once a process."""

import _ctypes
import ctypes
import os
import sys
import tempfile
import threading
from pathlib import Path
from typing import Any, Optional, Union

from ._errors import LibraryError, LibraryMissing, WrongLibrary
from ._records import WINDOWS, EventHeaderRecord, PeerRecord

LIBRARY_NAME = "ZVQRN.dll" if WINDOWS else "libZVQRN.so"
UTILITY_NAME = "DRAVLIB.dll" if WINDOWS else "libDRAVLIB.so"
OWN_BITS = 8 * ctypes.sizeof(ctypes.c_void_p)
_HERE = Path(__file__).parent

_stand_in = _HERE / "stand_in" / UTILITY_NAME
STAND_IN: Optional[str] = str(_stand_in) if _stand_in.exists() else None
"""The stand-in for the maker's utility library that the wheel brings, for load(utility=...).

It reads its scanners from DRAVLIB.txt beside it; copy its folder to change that table.
"""

# The callbacks are cdecl; the exports are stdcall under 32-bit Windows, and called without the
# interpreter's lock, which callbacks need while QRNStopService waits for them.
PEER_FILTER = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.POINTER(PeerRecord), ctypes.c_void_p)
SCAN_EVENT = ctypes.CFUNCTYPE(
    ctypes.c_int32,
    ctypes.c_void_p,
    ctypes.c_int32,
    ctypes.c_void_p,
    ctypes.c_int32,
    ctypes.c_void_p,
)
STATUS = ctypes.CFUNCTYPE(
    ctypes.c_int32, ctypes.c_int32, ctypes.c_int32, ctypes.c_char_p, ctypes.c_void_p
)

_guard = threading.Lock()
_library: Any = None
_loaded_as = ("", "")


def load(
    library: Union[str, "os.PathLike[str]", None] = None,
    utility: Union[str, "os.PathLike[str]", None] = None,
) -> None:
    """Loads the library, which a service otherwise does when it starts; once a process.

    library -- its file; by default the one in this package, or else where the system looks
    utility -- the file of the maker's DRAVLIB, or STAND_IN; by default it is looked for by its name,
               by the system's rules (under Windows beside python.exe, in the current folder and in
               PATH; under Linux beside the library first)
    """
    _load(library, utility)


def loaded() -> Any:
    """The library's functions, loaded now if need be."""
    return _library or _load(None, None)


def _load(
    library: Union[str, "os.PathLike[str]", None], utility: Union[str, "os.PathLike[str]", None]
) -> Any:
    global _library, _loaded_as
    wanted = (
        os.path.abspath(library) if library is not None else "",
        os.path.abspath(utility) if utility is not None else "",
    )
    with _guard:
        if _library is not None:
            for asked, got in zip(wanted, _loaded_as):
                if asked and asked != got:
                    raise LibraryError(
                        f"the library has been loaded already, without {asked}: call load() before "
                        "the first service starts, and once"
                    )
            return _library
        path = wanted[0] or str(_HERE / "lib" / LIBRARY_NAME)
        if not wanted[0] and not os.path.exists(path):
            path = LIBRARY_NAME
        _library = _declare(_open(path, wanted[1]))
        _loaded_as = wanted
        return _library


def utility_found() -> bool:
    """Whether a DRAVLIB is loaded in this process, as the library then has it too."""
    if sys.platform == "win32":
        # Not ctypes.windll, whose functions other packages declare for themselves.
        handle = ctypes.WinDLL("kernel32").GetModuleHandleW
        handle.argtypes, handle.restype = [ctypes.c_wchar_p], ctypes.c_void_p
        return bool(handle(UTILITY_NAME))
    with open("/proc/self/maps", encoding="utf-8", errors="replace") as maps:
        # A link's file may have a version behind that name.
        return any("/" + UTILITY_NAME in line for line in maps)


def _open(path: str, utility: str) -> Any:
    if not utility:
        return _open_one(path)
    if os.path.basename(utility).lower() != UTILITY_NAME.lower():
        raise LibraryError(f"the library looks for {UTILITY_NAME} by its name, not for {utility}")
    kept = _open_one(utility)
    try:
        module = _open_with(path, utility)
    except BaseException:
        # It must not pass for the one that the library has when that is loaded in another way.
        loader: Any = _ctypes
        (loader.FreeLibrary if WINDOWS else loader.dlclose)(kept._handle)
        raise
    module.kept_utility = kept
    return module


def _open_with(path: str, utility: str) -> Any:
    if WINDOWS:  # which gives what is loaded already to whoever asks for the name
        return _open_one(path)
    # Linux does so for a file: the library is loaded from a folder where the file beside it is the
    # one that was asked for.
    if not os.path.exists(path):
        raise LibraryMissing(f"there is no {path}: say where it is, with load(library=...)")
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(utility, os.path.join(folder, UTILITY_NAME))
        link = os.path.join(folder, LIBRARY_NAME)
        os.symlink(path, link)
        return _open_one(link, path)


def _open_one(path: str, shown: str = "") -> Any:
    try:
        if sys.platform == "win32":
            return ctypes.WinDLL(path)
        return ctypes.CDLL(path)
    except OSError as error:
        raise _explain(shown or path, error) from error


def _explain(path: str, error: OSError) -> LibraryError:
    """Why a file cannot be loaded, in words that say what to do."""
    if not os.path.exists(path):
        where = "" if os.path.dirname(path) else " where the system looks for libraries"
        return LibraryMissing(
            f"there is no {path}{where}: install the wheel for this system, or say where it is with "
            f"zvqrn.load(...) ({error})"
        )
    kind = _program_kind(path)
    own = (OWN_BITS, "Windows" if WINDOWS else "Linux")
    if kind not in (None, own):
        return WrongLibrary(
            f"{path} is for {kind[0]}-bit {kind[1]} programs, and this Python is a {own[0]}-bit "
            f"{own[1]} program: take the package for {own[0]} bits, or the other Python"
        )
    return LibraryError(f"{path} cannot be loaded: {error}")


def _program_kind(path: str) -> Any:
    """The bits and the system that a library is for; None when the file is no library."""
    with open(path, "rb") as file:
        head = file.read(4096)
    if head[:4] == b"\x7fELF":
        return ({1: 32, 2: 64}.get(head[4]), "Linux")
    start = int.from_bytes(head[60:64], "little")
    if head[:2] == b"MZ" and head[start : start + 4] == b"PE\0\0":
        machine = int.from_bytes(head[start + 4 : start + 6], "little")
        return ({0x14C: 32, 0x8664: 64}.get(machine), "Windows")
    return None


def _declare(module: Any) -> Any:
    module.QRNStartService.argtypes = [PEER_FILTER, SCAN_EVENT, STATUS] + [ctypes.c_void_p] * 3
    module.QRNStopService.argtypes = []
    module.QRNSendData.argtypes = [
        ctypes.POINTER(EventHeaderRecord),
        ctypes.c_char_p,
        ctypes.c_int32,
    ]
    module.QRNGetPCName.argtypes = [ctypes.c_char_p, ctypes.POINTER(ctypes.c_int32)]
    module.QRNSetPCName.argtypes = [ctypes.c_char_p, ctypes.c_int32]
    for name in (
        "QRNStartService",
        "QRNStopService",
        "QRNSendData",
        "QRNGetPCName",
        "QRNSetPCName",
    ):
        getattr(module, name).restype = ctypes.c_int32
    return module
