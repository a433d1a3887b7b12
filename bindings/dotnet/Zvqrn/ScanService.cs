// The service: events for what the library's callbacks tell.
using System;
using System.Collections.Concurrent;
using System.Diagnostics;
using System.Net;
using System.Net.Sockets;
using System.Runtime.InteropServices;
using System.Threading;

namespace Zvqrn {

/// <summary>Lets scanners find this PC, and hands their requests to the handlers of its events.
/// </summary>
/// <remarks>One process has one service at a time.  <see cref="RequestReceived"/> and
/// <see cref="ScannerAsks"/> come on threads of the library, several at once;
/// <see cref="StatusChanged"/> on a thread of this service, one at a time.  <see cref="Stop"/> waits for
/// handlers that are running, so hold nothing then that they wait for (no <c>Invoke</c> to a window's
/// thread that stops).  A service that still runs when the process ends is stopped.</remarks>
public sealed class ScanService : IDisposable {
  private const int PORT = 2968;
  private const int NAME_BYTES = 15;
  private const int BUFFER_TOO_SMALL = 513;

  // Held over a start and over a stop; handlers never take it.
  private static readonly object lifecycle = new object();
  private static volatile ScanService current;
  // The library keeps bare addresses: these fields keep the collector off the delegates.
  private static readonly PeerFilterCallback onPeer = OnPeer;
  private static readonly ScanEventCallback onEvent = OnEvent;
  private static readonly StatusCallback onStatus = OnStatus;
  // The event whose handlers this thread is in.
  [ThreadStatic] private static string inside;

  private byte[] name;
  private int starts;  // requests of an earlier start are closed
  private Functions library;
  private BlockingCollection<StatusEventArgs> statuses;
  private Thread teller;

  static ScanService() {
    EventHandler stop = (sender, e) => {
      ScanService running = current;
      if (running != null && inside == null) running.Stop();
    };
    AppDomain.CurrentDomain.ProcessExit += stop;
    AppDomain.CurrentDomain.DomainUnload += stop;  // the delegates go with their domain
  }

  /// <summary>Decides about a request.  Handlers may take as long as they need (within 300 seconds,
  /// after which the scanner's connection is closed), while the scanner waits.  What they throw is told
  /// by <see cref="HandlerFailed"/> and answered <see cref="Answer.Error"/>, as is a request without
  /// a handler.</summary>
  public event EventHandler<RequestEventArgs> RequestReceived;

  /// <summary>Decides whether a scanner that looks for this PC by its own name may list it.  By default
  /// all may; a handler that throws gets the scanner no reply.</summary>
  public event EventHandler<ScannerEventArgs> ScannerAsks;

  /// <summary>This PC has lost its address, or serves at a new one.</summary>
  public event EventHandler<StatusEventArgs> StatusChanged;

  /// <summary>A handler of another event has thrown.  Without a handler it is told to
  /// <see cref="Trace"/>.</summary>
  public event EventHandler<HandlerFailedEventArgs> HandlerFailed;

  /// <summary>Starts the service.  It may wait for this PC to get an address first; see
  /// <see cref="IsServing"/>.</summary>
  /// <exception cref="StartFailedException">With what could be found out about it.</exception>
  public void Start() {
    RefuseInsideHandler("Start");
    Functions functions = ScanLibrary.Loaded();
    lock (lifecycle) {
      if (current != null) {
        throw new AlreadyRunningException("This process runs a service already; stop that one first.");
      }
      library = functions;
      statuses = new BlockingCollection<StatusEventArgs>();
      starts++;
      current = this;
      if (library.Start(onPeer, onEvent, onStatus, IntPtr.Zero, IntPtr.Zero, IntPtr.Zero) != 1) {
        current = null;
        throw new StartFailedException("The service did not start: " + WhyNotStarted() + ".");
      }
      teller = new Thread(TellStatuses) { IsBackground = true, Name = "Zvqrn status" };
      teller.Start();
      if (IsServing && !ApplyName()) {
        Stop();
        throw new StartFailedException("The service did not take its name.");
      }
    }
  }

  /// <summary>Stops the service, when it runs; returns once no handler runs or will be called.</summary>
  public void Stop() {
    RefuseInsideHandler("Stop");
    lock (lifecycle) {
      if (current != this) return;
      library.Stop();
      statuses.CompleteAdding();
      teller.Join();
      current = null;
    }
  }

  /// <summary>The same.</summary>
  public void Dispose() { Stop(); }

  /// <summary>Whether scanners are served now; false also while the service waits for an address.
  /// </summary>
  public bool IsServing {
    get {
      int length = 0;
      return current == this && library.GetName(null, ref length) == 1;
    }
  }

  /// <summary>The name under which scanners list this PC, at most 15 bytes in its code page; by default
  /// the computer's own.  One that is set stays for later starts, too.</summary>
  /// <exception cref="NotServingException">There is none yet.</exception>
  public string Name {
    get {
      var buffer = new byte[NAME_BYTES];
      int length = NAME_BYTES;
      int result = current == this ? library.GetName(buffer, ref length) : 0;
      while (result == BUFFER_TOO_SMALL) {
        buffer = new byte[length];
        result = library.GetName(buffer, ref length);
      }
      if (result != 1) {
        throw new NotServingException("The service has no name yet: it does not run, or waits for an address.");
      }
      Array.Resize(ref buffer, length);
      return CodePage.Decode(buffer);
    }
    set {
      if (value == null) throw new ArgumentNullException(nameof(value));
      byte[] bytes = CodePage.Encode(value);
      if (bytes == null) {
        throw new ArgumentException("The name \"" + value + "\" has letters that are not in this PC's code page.",
                                    nameof(value));
      }
      if (bytes.Length < 1 || bytes.Length > NAME_BYTES || Array.IndexOf(bytes, (byte)0) >= 0) {
        throw new ArgumentException("The name must be 1 to " + NAME_BYTES + " bytes in this PC's code page, " +
                                    "without a NUL; \"" + value + "\" has " + bytes.Length + ".", nameof(value));
      }
      name = bytes;
      if (IsServing && !ApplyName()) throw new NotServingException("The service has just been stopped.");
    }
  }

  private bool ApplyName() {
    byte[] wanted = name;
    return wanted == null || library.SetName(wanted, wanted.Length) == 1;
  }

  private void Send(int start, byte[] header, byte[] data) {
    string uid = CodePage.Text(header, 8, 20);
    if (current != this) throw new NotServingException("The service has been stopped.");
    if (start != starts || library.Send(header, data, data.Length) != 1) {
      throw new RequestClosedException("Request " + uid + " is no longer open: its END has come, its scanner " +
                                       "has gone, or the service does not serve.");
    }
  }

  private static void RefuseInsideHandler(string what) {
    if (inside != null) {
      throw new InsideCallbackException(what + " would wait for the handler of " + inside + " that calls it: " +
                                        "let another thread do it, such as the main one, after an event that " +
                                        "the handler sets.");
    }
  }

  // What can be found out from outside: the library says only that it did not.
  private static string WhyNotStarted() {
    foreach (ProtocolType protocol in new[] { ProtocolType.Tcp, ProtocolType.Udp }) {
      SocketType type = protocol == ProtocolType.Tcp ? SocketType.Stream : SocketType.Dgram;
      using (var probe = new Socket(AddressFamily.InterNetwork, type, protocol)) {
        try {
          probe.Bind(new IPEndPoint(IPAddress.Any, PORT));
        } catch (SocketException error) {
          return protocol.ToString().ToUpper() + " port " + PORT + " is taken, perhaps by another host (" +
                 error.Message + ")";
        }
      }
    }
    return "this PC's name or address could not be had";
  }

  // ---- Handlers ----

  // Runs the handlers of an event; false when one has thrown.
  private bool Handle(string which, Action handlers) {
    inside = which;
    try {
      handlers();
      return true;
    } catch (Exception error) {
      TellFailure(which, error);
      return false;
    } finally {
      inside = null;
    }
  }

  private void TellFailure(string which, Exception error) {
    try {
      EventHandler<HandlerFailedEventArgs> handlers = HandlerFailed;
      if (handlers != null) {
        handlers(this, new HandlerFailedEventArgs(which, error));
      } else {
        Trace.TraceError("Zvqrn: a handler of " + which + " has thrown: " + error);
      }
    } catch (Exception another) {
      Trace.TraceError("Zvqrn: a handler of HandlerFailed has thrown: " + another);
    }
  }

  private void TellStatuses() {
    foreach (StatusEventArgs status in statuses.GetConsumingEnumerable()) {
      // A service that has waited for an address has the computer's own name.
      if (status.Code == StatusCode.Restart) ApplyName();
      Handle(nameof(StatusChanged), () => StatusChanged?.Invoke(this, status));
    }
  }

  private static int OnPeer(IntPtr peer, IntPtr context) {
    ScanService service = current;
    bool accepted = true;
    bool done = service != null && service.Handle(nameof(ScannerAsks), () => {
      var asked = new ScannerEventArgs(peer);
      service.ScannerAsks?.Invoke(service, asked);
      accepted = asked.Accept;
    });
    return done && accepted ? 1 : 0;
  }

  private static int OnEvent(IntPtr header, int kind, IntPtr data, int size, IntPtr context) {
    ScanService service = current;
    var answer = Answer.Error;
    if (service == null) return (int)Answer.Busy;
    bool done = service.Handle(nameof(RequestReceived), () => {
      int start = service.starts;
      ScanRequest request =
          ScanRequest.Read(header, kind, data, (copy, sent) => service.Send(start, copy, sent));
      EventHandler<RequestEventArgs> handlers = service.RequestReceived;
      var received = new RequestEventArgs(request);
      try {
        handlers?.Invoke(service, received);
      } finally {
        request.Open = request.Exchange == Exchange.Start;
      }
      if (handlers != null) answer = received.Answer;
    });
    return done ? (int)answer : (int)Answer.Error;
  }

  private static int OnStatus(int statusClass, int code, IntPtr message, IntPtr context) {
    // Locks of the library are held: the service's own thread tells the host.
    current?.statuses.Add(new StatusEventArgs((StatusCode)code, Marshal.PtrToStringAnsi(message)));
    return 0;
  }
}

}  // namespace Zvqrn
