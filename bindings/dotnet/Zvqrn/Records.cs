// Requests and searches as a host sees them.  They are read from the library's memory once, so they may
// be kept and used anywhere.  Texts come from scanners: anyone on the network can choose them.
using System;
using System.Runtime.InteropServices;
using System.Text;

namespace Zvqrn {

/// <summary>The answer that a scanner gets.</summary>
public enum Answer {
  Ok = 1, ParamErr = 2, ParseErr = 3, PmExecuteErr = 5, PmNotInstall = 6, TwainNotInstall = 7, Error = 8,
  Busy = 9
}

/// <summary>A request that stands alone, or the START or END of a pair.</summary>
public enum Exchange { Single = 0, Start = 1, End = 2 }

public enum ImageFormat { Pdf = 1, Tiff = 2, Jpeg = 3 }

public enum ColorType { Color = 110, Monochrome = 111 }

/// <summary>Where the paper is.</summary>
public enum LoadPaper { Auto = 0, Flatbed = 1, Single = 2, Double = 3 }

public enum PaperType {
  Auto = 0, User = 1, A3 = 2, A4 = 3, A4Landscape = 4, B4 = 5, B5 = 6, B5Landscape = 7, Letter = 8,
  LetterLandscape = 9, Legal = 10
}

public enum StatusCode {
  /// <summary>This PC has no address but its loopback one; a service that starts so waits for one.
  /// </summary>
  NoNetwork = 769,
  /// <summary>The PC's address has changed, or has come up: the service serves there.</summary>
  Restart = 770
}

/// <summary>One push-scan request: a <see cref="SettingsRequest"/> or an <see cref="IdRequest"/>.
/// </summary>
public abstract class ScanRequest {
  private readonly byte[] header;
  private readonly Action<byte[], byte[]> send;
  internal volatile bool Open = true;

  internal ScanRequest(byte[] header, Action<byte[], byte[]> send) {
    this.header = header;
    this.send = send;
    Exchange = (Exchange)BitConverter.ToInt32(header, 4);
    Uid = CodePage.Text(header, 8, 20);
    ProtocolVersion = CodePage.Text(header, 28, 6);
  }

  /// <summary>The scanner's name for the message; an END has one of its own.</summary>
  public string Uid { get; }
  public Exchange Exchange { get; }
  /// <summary>"1.00" or "2.00".</summary>
  public string ProtocolVersion { get; }
  /// <summary>The TWAIN driver that serves the scanner on this PC.</summary>
  public string DriverName { get; internal set; }
  /// <summary>The scanner's address as it states it.</summary>
  public string Address { get; internal set; }

  /// <summary>Sends data to the scanner that made the request, from any thread.  A single request can
  /// be sent to until its handlers have returned, a START until its END has been answered.  Whether the
  /// data arrives is not told.</summary>
  /// <exception cref="RequestClosedException">It is too late.</exception>
  /// <exception cref="NotServingException">The service has been stopped.</exception>
  public void Send(byte[] data) {
    if (data == null) throw new ArgumentNullException(nameof(data));
    if (data.Length == 0) throw new ArgumentException("There is nothing to send.", nameof(data));
    if (!Open) {
      throw new RequestClosedException("Request " + Uid + " is answered: data for a single request is " +
                                       "sent before its handlers return.");
    }
    send((byte[])header.Clone(), data);  // the library writes into it
  }

  // Reads a request from the library's memory.
  internal static ScanRequest Read(IntPtr header, int kind, IntPtr data, Action<byte[], byte[]> send) {
    byte[] name = Bytes(header, 36);
    if (kind == 3) return new IdRequest(name, Bytes(data, 104), send);
    return new SettingsRequest(name, Bytes(data, 132), send);
  }

  private static byte[] Bytes(IntPtr memory, int count) {
    var bytes = new byte[count];
    Marshal.Copy(memory, bytes, 0, count);
    return bytes;
  }

  public override string ToString() {
    return "request " + Uid + ": " + (Exchange == Exchange.Single ? "single" : Exchange.ToString().ToUpper()) +
           ", driver \"" + DriverName + "\"";
  }
}

/// <summary>Protocol version 1: the scanner sends settings.  Sizes and positions carry no unit.</summary>
public sealed class SettingsRequest : ScanRequest {
  internal SettingsRequest(byte[] header, byte[] record, Action<byte[], byte[]> send) : base(header, send) {
    DriverName = CodePage.Text(record, 0, 34);
    Address = CodePage.Text(record, 66, 32);
    ImageFormat = (ImageFormat)BitConverter.ToInt32(record, 100);
    ColorType = (ColorType)BitConverter.ToInt32(record, 104);
    LoadPaper = (LoadPaper)BitConverter.ToInt32(record, 108);
    PaperType = (PaperType)BitConverter.ToInt32(record, 112);
    PaperWidth = BitConverter.ToInt32(record, 116);
    PaperHeight = BitConverter.ToInt32(record, 120);
    ScanX = BitConverter.ToInt32(record, 124);
    ScanY = BitConverter.ToInt32(record, 128);
  }

  public ImageFormat ImageFormat { get; }
  public ColorType ColorType { get; }
  public LoadPaper LoadPaper { get; }
  public PaperType PaperType { get; }
  public int PaperWidth { get; }
  public int PaperHeight { get; }
  public int ScanX { get; }
  public int ScanY { get; }
}

/// <summary>Protocol version 2: the scanner names settings that are kept on this PC.</summary>
public sealed class IdRequest : ScanRequest {
  internal IdRequest(byte[] header, byte[] record, Action<byte[], byte[]> send) : base(header, send) {
    ProductName = CodePage.Text(record, 0, 32);
    DriverName = CodePage.Text(record, 32, 34);
    Address = CodePage.Text(record, 66, 32);
    PushScanId = BitConverter.ToInt32(record, 100);
  }

  /// <summary>The scanner's product name as it sent it; may be empty.</summary>
  public string ProductName { get; }
  /// <summary>1 to 3.</summary>
  public int PushScanId { get; }
}

/// <summary>A request that waits for its answer.</summary>
public sealed class RequestEventArgs : EventArgs {
  internal RequestEventArgs(ScanRequest request) { Request = request; }
  public ScanRequest Request { get; }
  /// <summary>What the scanner is answered when all handlers have returned.</summary>
  public Answer Answer { get; set; } = Answer.Ok;
}

/// <summary>A scanner that looks for this PC by its own name.</summary>
public sealed class ScannerEventArgs : EventArgs {
  internal ScannerEventArgs(IntPtr peer) {
    DriverName = CodePage.Text(Marshal.ReadIntPtr(peer));
    ServiceType = Utf8(peer, 1);
    ScopeList = Utf8(peer, 2);
    TagList = Utf8(peer, 3);
  }

  private static string Utf8(IntPtr peer, int place) {
    return Encoding.UTF8.GetString(CodePage.BytesOf(Marshal.ReadIntPtr(peer, place * IntPtr.Size)));
  }

  /// <summary>The TWAIN driver that serves the scanner on this PC.</summary>
  public string DriverName { get; }
  public string ServiceType { get; }
  public string ScopeList { get; }
  public string TagList { get; }
  /// <summary>Whether the scanner may list this PC.</summary>
  public bool Accept { get; set; } = true;
}

/// <summary>A condition of the service.</summary>
public sealed class StatusEventArgs : EventArgs {
  internal StatusEventArgs(StatusCode code, string message) {
    Code = code;
    Message = message;
  }
  public StatusCode Code { get; }
  public string Message { get; }
}

/// <summary>A handler that threw.</summary>
public sealed class HandlerFailedEventArgs : EventArgs {
  internal HandlerFailedEventArgs(string handler, Exception exception) {
    Handler = handler;
    Exception = exception;
  }
  /// <summary>The event whose handler it was.</summary>
  public string Handler { get; }
  public Exception Exception { get; }
}

}  // namespace Zvqrn
