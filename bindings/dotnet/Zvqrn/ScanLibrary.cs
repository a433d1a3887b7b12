// Finds and loads the library, once a process.
using System;
using System.IO;
using System.Runtime.InteropServices;

namespace Zvqrn {

// The callbacks are cdecl, the exports stdcall; zvqrn.h describes them.
[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
internal delegate int PeerFilterCallback(IntPtr peer, IntPtr context);
[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
internal delegate int ScanEventCallback(IntPtr header, int kind, IntPtr data, int size, IntPtr context);
[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
internal delegate int StatusCallback(int statusClass, int code, IntPtr message, IntPtr context);

[UnmanagedFunctionPointer(CallingConvention.StdCall)]
internal delegate int StartFunction(PeerFilterCallback filter, ScanEventCallback requests,
                                    StatusCallback status, IntPtr filterContext, IntPtr eventContext,
                                    IntPtr statusContext);
[UnmanagedFunctionPointer(CallingConvention.StdCall)]
internal delegate int StopFunction();
[UnmanagedFunctionPointer(CallingConvention.StdCall)]
internal delegate int SendFunction(byte[] header, byte[] data, int length);
[UnmanagedFunctionPointer(CallingConvention.StdCall)]
internal delegate int GetNameFunction(byte[] buffer, ref int length);
[UnmanagedFunctionPointer(CallingConvention.StdCall)]
internal delegate int SetNameFunction(byte[] name, int length);

internal sealed class Functions {
  internal StartFunction Start;
  internal StopFunction Stop;
  internal SendFunction Send;
  internal GetNameFunction GetName;
  internal SetNameFunction SetName;
}

/// <summary>The native library in this process.  A service that starts loads it by itself: from the
/// program's folder, from <c>runtimes/…/native</c> there, or where the system looks.</summary>
public static class ScanLibrary {
  private static readonly bool windows = Environment.OSVersion.Platform == PlatformID.Win32NT;
  private static readonly string libraryName = windows ? "ZVQRN.dll" : "libZVQRN.so";
  private static readonly string utilityName = windows ? "DRAVLIB.dll" : "libDRAVLIB.so";
  private static readonly string runtime =
      (windows ? "win-" : "linux-") + (IntPtr.Size == 8 ? "x64" : "x86");
  private static readonly object gate = new object();
  private static Functions functions;
  private static string loadedLibrary = "", loadedUtility = "";

  [DllImport("kernel32", CharSet = CharSet.Unicode, SetLastError = true)]
  private static extern IntPtr LoadLibraryExW(string path, IntPtr reserved, uint flags);
  [DllImport("kernel32", CharSet = CharSet.Unicode)]
  private static extern IntPtr GetModuleHandleW(string name);
  [DllImport("kernel32", CharSet = CharSet.Ansi)]
  private static extern IntPtr GetProcAddress(IntPtr module, string name);
  [DllImport("kernel32")]
  private static extern int FreeLibrary(IntPtr module);
  private const uint LOAD_WITH_ALTERED_SEARCH_PATH = 8;

  [DllImport("libdl.so.2")]
  private static extern IntPtr dlopen(string path, int flags);
  [DllImport("libdl.so.2")]
  private static extern IntPtr dlsym(IntPtr module, string name);
  [DllImport("libdl.so.2")]
  private static extern int dlclose(IntPtr module);
  [DllImport("libdl.so.2")]
  private static extern IntPtr dlerror();
  [DllImport("libc")]
  private static extern int symlink(string target, string path);
  private const int RTLD_NOW = 2;

  /// <summary>The stand-in for the maker's utility library, for <see cref="Load"/>, where the project
  /// asks for it (<c>ZvqrnStandIn</c>); else null.  It reads its scanners from DRAVLIB.txt beside it.
  /// </summary>
  public static string StandIn {
    get {
      string path = Path.Combine(Folder, "stand-in", runtime, utilityName);
      return File.Exists(path) ? path : null;
    }
  }

  /// <summary>Loads the library, which a service otherwise does when it starts; once a process.
  /// </summary>
  /// <param name="library">its file; by default it is looked for</param>
  /// <param name="utility">the file of the maker's DRAVLIB, or <see cref="StandIn"/>; by default it is
  /// looked for by its name, by the system's rules (under Windows beside the program, in the current
  /// folder and in PATH; under Linux beside the library first)</param>
  public static void Load(string library = null, string utility = null) {
    string wantedLibrary = library == null ? "" : Path.GetFullPath(library);
    string wantedUtility = utility == null ? "" : Path.GetFullPath(utility);
    lock (gate) {
      if (functions == null) {
        functions = Open(wantedLibrary != "" ? wantedLibrary : Find(), wantedUtility);
        loadedLibrary = wantedLibrary;
        loadedUtility = wantedUtility;
      } else if ((wantedLibrary != "" && wantedLibrary != loadedLibrary) ||
                 (wantedUtility != "" && wantedUtility != loadedUtility)) {
        throw new LibraryException("The library has been loaded already, in another way: call Load before " +
                                   "the first service starts, and once.");
      }
    }
  }

  internal static Functions Loaded() {
    Load();
    return functions;
  }

  /// <summary>Whether a DRAVLIB is loaded in this process, as the library then has it too.  Without one
  /// every request is answered with an error, and no handler is called.</summary>
  public static bool UtilityFound {
    get {
      Load();
      if (windows) return GetModuleHandleW(utilityName) != IntPtr.Zero;
      foreach (string line in File.ReadAllLines("/proc/self/maps")) {
        if (line.Contains("/" + utilityName)) return true;  // a link's file may have a version behind that
      }
      return false;
    }
  }

  private static string Folder => AppDomain.CurrentDomain.BaseDirectory;

  private static string Find() {
    foreach (string path in new[] { Path.Combine(Folder, libraryName),
                                    Path.Combine(Folder, "runtimes", runtime, "native", libraryName) }) {
      if (File.Exists(path)) return path;
    }
    return libraryName;
  }

  private static Functions Open(string path, string utility) {
    if (utility == "") return Declare(OpenOne(path, path));
    if (!string.Equals(Path.GetFileName(utility), utilityName,
                       windows ? StringComparison.OrdinalIgnoreCase : StringComparison.Ordinal)) {
      throw new LibraryException("The library looks for " + utilityName + " by its name, not for " +
                                 utility + ".");
    }
    IntPtr opened = OpenOne(utility, utility);
    try {
      return Declare(OpenWith(path, utility));
    } catch {
      // It must not pass for the one that the library has when that is loaded in another way.
      if (windows) FreeLibrary(opened);
      else dlclose(opened);
      throw;
    }
  }

  private static IntPtr OpenWith(string path, string utility) {
    // Windows gives what is loaded already to whoever asks for the name.
    if (windows) return OpenOne(path, path);
    // Linux does so for a file: the library is loaded from a folder where the file beside it is the one
    // that was asked for.
    if (!File.Exists(path)) throw Missing(path, "");
    string folder = Path.Combine(Path.GetTempPath(), "zvqrn-" + Guid.NewGuid().ToString("N"));
    Directory.CreateDirectory(folder);
    try {
      string link = Path.Combine(folder, libraryName);
      if (symlink(utility, Path.Combine(folder, utilityName)) != 0 || symlink(path, link) != 0) {
        throw new LibraryException("No links can be made in " + folder + ".");
      }
      return OpenOne(link, path);
    } finally {
      Directory.Delete(folder, true);
    }
  }

  private static IntPtr OpenOne(string path, string shown) {
    string error;
    IntPtr module;
    if (windows) {
      module = LoadLibraryExW(path, IntPtr.Zero, Path.IsPathRooted(path) ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
      error = "error " + Marshal.GetLastWin32Error();
    } else {
      module = dlopen(path, RTLD_NOW);
      error = module == IntPtr.Zero ? Marshal.PtrToStringAnsi(dlerror()) : "";
    }
    if (module != IntPtr.Zero) return module;
    if (!File.Exists(path)) throw Missing(shown, error);
    string kind = ProgramKind(path);
    string own = Kind(8 * IntPtr.Size, windows ? "Windows" : "Linux");
    if (kind != null && kind != own) {
      throw new WrongLibraryException(
          shown + " is for " + kind + " programs, and this process is a " + own + " program: build it for the " +
          "platform target of the library (x86 or x64, not AnyCPU), or take the library of the other bitness.");
    }
    throw new LibraryException(shown + " cannot be loaded: " + error + ".");
  }

  private static LibraryMissingException Missing(string path, string error) {
    string where = Path.IsPathRooted(path) ? "" : " beside the program, or where the system looks for libraries";
    return new LibraryMissingException("There is no " + path + where + ": add the package's library for " +
                                       runtime + ", or say where it is with ScanLibrary.Load. " + error);
  }

  private static string Kind(int bits, string system) { return bits + "-bit " + system; }

  // What a library is for; null when the file is none.
  private static string ProgramKind(string path) {
    var head = new byte[4096];
    using (FileStream file = File.OpenRead(path)) {
      file.Read(head, 0, head.Length);
    }
    if (head[0] == 0x7F && head[1] == 'E' && head[2] == 'L' && head[3] == 'F') {
      return Kind(head[4] == 1 ? 32 : 64, "Linux");
    }
    int start = BitConverter.ToInt32(head, 60);
    if (head[0] != 'M' || head[1] != 'Z' || start < 0 || start > head.Length - 6 || head[start] != 'P' ||
        head[start + 1] != 'E') {
      return null;
    }
    ushort machine = BitConverter.ToUInt16(head, start + 4);
    return machine == 0x14C ? Kind(32, "Windows") : machine == 0x8664 ? Kind(64, "Windows") : null;
  }

  private static Functions Declare(IntPtr module) {
    return new Functions {
      Start = Function<StartFunction>(module, "QRNStartService"),
      Stop = Function<StopFunction>(module, "QRNStopService"),
      Send = Function<SendFunction>(module, "QRNSendData"),
      GetName = Function<GetNameFunction>(module, "QRNGetPCName"),
      SetName = Function<SetNameFunction>(module, "QRNSetPCName"),
    };
  }

  private static T Function<T>(IntPtr module, string name) {
    IntPtr address = windows ? GetProcAddress(module, name) : dlsym(module, name);
    if (address == IntPtr.Zero) throw new LibraryException("The library has no function " + name + ".");
    return Marshal.GetDelegateForFunctionPointer<T>(address);
  }
}

}  // namespace Zvqrn
