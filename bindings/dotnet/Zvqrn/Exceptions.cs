// What this package throws beside ArgumentException for wrong arguments.
using System;

namespace Zvqrn {

/// <summary>The base of all of them.</summary>
public abstract class ScanServiceException : Exception {
  internal ScanServiceException(string message, Exception inner = null) : base(message, inner) {}
}

/// <summary>The library is there but cannot be used, or not as asked.</summary>
public class LibraryException : ScanServiceException {
  internal LibraryException(string message) : base(message) {}
}

/// <summary>There is no library where it was looked for.</summary>
public sealed class LibraryMissingException : LibraryException {
  internal LibraryMissingException(string message) : base(message) {}
}

/// <summary>The library is for another bitness or another system than this process.</summary>
public sealed class WrongLibraryException : LibraryException {
  internal WrongLibraryException(string message) : base(message) {}
}

/// <summary>The service did not start.</summary>
public sealed class StartFailedException : ScanServiceException {
  internal StartFailedException(string message) : base(message) {}
}

/// <summary>This process runs a service already; there can be one only.</summary>
public sealed class AlreadyRunningException : ScanServiceException {
  internal AlreadyRunningException(string message) : base(message) {}
}

/// <summary>The service does not run, or still waits for this PC to get an address.</summary>
public sealed class NotServingException : ScanServiceException {
  internal NotServingException(string message) : base(message) {}
}

/// <summary>The request is answered, its END has come, or its scanner has gone: nobody is there to
/// send to.</summary>
public sealed class RequestClosedException : ScanServiceException {
  internal RequestClosedException(string message) : base(message) {}
}

/// <summary>A start or stop inside a handler, which it would have to wait for.</summary>
public sealed class InsideCallbackException : ScanServiceException {
  internal InsideCallbackException(string message) : base(message) {}
}

}  // namespace Zvqrn
