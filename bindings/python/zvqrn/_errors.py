"""What this package raises beside TypeError and ValueError for wrong arguments."""


class Error(Exception):
    """The base of all of them."""


class LibraryError(Error):
    """The library is there but cannot be used, or not as asked."""


class LibraryMissing(LibraryError):
    """There is no library where it was looked for."""


class WrongLibrary(LibraryError):
    """The library is for another bitness or another system than this Python."""


class StartFailed(Error):
    """The service did not start."""


class AlreadyRunning(Error):
    """This process runs a service already; there can be one only."""


class NotServing(Error):
    """The service does not run, or still waits for this PC to get an address."""


class RequestClosed(Error):
    """The request is answered, its END has come, or its scanner has gone: nobody is there to send to."""


class InsideCallback(Error):
    """A start or stop inside a callback, which it would have to wait for."""
