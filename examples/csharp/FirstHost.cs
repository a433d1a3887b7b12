// FirstHost - a host program in C#: prints every push-scan request and answers it.
//
//   FirstHost [ANSWER [SECONDS]]
//
// ANSWER is the number of a response code (default 1, OK; 9 declines).  It runs for SECONDS, or
// until Ctrl-C.  Under Windows build it for the machine of the package that ZVQRN.dll is from, x86 or
// x64.
using System;
using System.Collections.Concurrent;
using System.Runtime.InteropServices;
using System.Threading;

[StructLayout(LayoutKind.Explicit, Size = 36)]
unsafe struct EventHeader {
  [FieldOffset(0)] public int ExchangeType;
  [FieldOffset(4)] public int Subevent;
  [FieldOffset(8)] public fixed byte Uid[20];
}

[StructLayout(LayoutKind.Explicit, Size = 132)]
unsafe struct PushScanRequestRecord {
  [FieldOffset(0)] public fixed byte DriverName[34]; // runs on into reserved1
  [FieldOffset(66)] public fixed byte IpAddress[32];
  [FieldOffset(100)] public int ImageFormat;
  [FieldOffset(104)] public int ColorType;
  [FieldOffset(112)] public int PaperType;
}

[StructLayout(LayoutKind.Explicit, Size = 104)]
unsafe struct PushScanIdRecord {
  [FieldOffset(32)] public fixed byte DriverName[34];
  [FieldOffset(66)] public fixed byte IpAddress[32];
  [FieldOffset(100)] public int PushScanId;
}

// The callbacks are cdecl, the exports stdcall.
[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
delegate int PeerFilterCallback(IntPtr peer, IntPtr context);
[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
unsafe delegate int ScanEventCallback(EventHeader* header, int kind, void* data, int size,
                                      IntPtr context);
[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
delegate int StatusCallback(int statusClass, int code, IntPtr message, IntPtr context);

static unsafe class FirstHost {
  [DllImport("ZVQRN", CallingConvention = CallingConvention.StdCall)]
  static extern int QRNStartService(PeerFilterCallback filter, ScanEventCallback requests,
                                    StatusCallback status, IntPtr filterContext,
                                    IntPtr eventContext, IntPtr statusContext);
  [DllImport("ZVQRN", CallingConvention = CallingConvention.StdCall)]
  static extern int QRNStopService();

  static readonly ConcurrentQueue<string> lines = new ConcurrentQueue<string>();
  static int answer = 1;
  // The library keeps bare function pointers: these fields keep the collector off the delegates.
  static readonly PeerFilterCallback onPeer = (peer, context) => 1; // answer every scanner
  static readonly ScanEventCallback onRequest = OnRequest;
  static readonly StatusCallback onStatus = OnStatus;

  // Anyone on the network can choose the bytes: what could disturb a console becomes '?'.
  static string Shown(byte* text, int limit) {
    string shown = "";
    for (int i = 0; i < limit && text[i] != 0; ++i) {
      shown += text[i] >= ' ' && text[i] <= '~' && text[i] != '"' ? (char)text[i] : '?';
    }
    return shown;
  }

  // Called on a thread of the library, several at once.  The pointers die when it returns, so what
  // goes to the main thread is a copy; for QRNSendData copy the whole *header.
  static int OnRequest(EventHeader* header, int kind, void* data, int size, IntPtr context) {
    string line = "request " + Shown(header->Uid, 20) + ": " +
                  (header->Subevent == 1 ? "START" : header->Subevent == 2 ? "END" : "single");
    if (kind == 1 && size >= sizeof(PushScanRequestRecord)) {
      var record = (PushScanRequestRecord*)data;
      line = line + ", driver \"" + Shown(record->DriverName, 34) + "\", scanner " +
              Shown(record->IpAddress, 32) + ", format " + record->ImageFormat + ", colour " +
              record->ColorType + ", paper " + record->PaperType;
    } else if (kind == 3 && size >= sizeof(PushScanIdRecord)) {
      var record = (PushScanIdRecord*)data;
      line = line + ", driver \"" + Shown(record->DriverName, 34) + "\", scanner " +
              Shown(record->IpAddress, 32) + ", push-scan ID " + record->PushScanId;
    }
    lines.Enqueue(line);
    return answer;
  }

  // Locks of the library are held in here: return soon, and call none of its functions.
  static int OnStatus(int statusClass, int code, IntPtr message, IntPtr context) {
    lines.Enqueue("status " + statusClass + "/" + code + ": " + Marshal.PtrToStringAnsi(message) +
                  (code == 769 ? "  Waiting until this PC has an address." : ""));
    return 0;
  }

  static int Fail(string why) { Console.Error.WriteLine(why); return 1; }
  static void Print() { string line; while (lines.TryDequeue(out line)) Console.WriteLine(line); }

  static int Main(string[] args) {
    answer = args.Length > 0 ? int.Parse(args[0]) : 1;
    int milliseconds = args.Length > 1 ? 1000 * int.Parse(args[1]) : Timeout.Infinite;
    var end = new CancellationTokenSource();
    Console.CancelKeyPress += (sender, key) => { key.Cancel = true; end.Cancel(); };
    try {
      var none = IntPtr.Zero;
      if (QRNStartService(onPeer, onRequest, onStatus, none, none, none) != 1)
        return Fail("The service did not start: another host holds port 2968, or the PC's name " +
                    "or address could not be had.");
    } catch (BadImageFormatException) {
      return Fail("ZVQRN.dll is not for " + 8 * IntPtr.Size + "-bit programs, and this is one: build " +
                  "it for x86 with the package windows-x86, for x64 with windows-x64.");
    } catch (DllNotFoundException) {
      return Fail("ZVQRN.dll (libZVQRN.so) is missing: put it beside this program.");
    }
    Console.WriteLine("Waiting for requests; Ctrl-C ends.");
    end.CancelAfter(milliseconds);
    while (!end.Token.WaitHandle.WaitOne(100)) Print();
    QRNStopService(); // no callback comes after this; 0 if it was still waiting for a network
    Print();
    return 0;
  }
}
