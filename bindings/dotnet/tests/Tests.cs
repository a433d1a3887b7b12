// The package against a scanner, in a network of its own, as scripts/check_bindings.sh sets it up:
//
//   scripts/private_network.sh --with-scanner mono Tests.exe
//
// QUORIN_SCANNER names the scanner's program.  Prints a line a case.  With an argument it is one of the
// programs that cases start.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Text;
using System.Text.RegularExpressions;
using System.Threading;
using Zvqrn;

static class Tests {
  const int ACCEPTED = 0, NOTHING_FOUND = 3, REFUSED = 4;
  static readonly string address = Environment.GetEnvironmentVariable("QUORIN_PRIVATE_ADDRESS");
  const string LONGEST = "A driver's name with all 33 bytes";
  static readonly TimeSpan patience = TimeSpan.FromSeconds(60);

  // ---- What the cases are made of ----

  static void Check(bool right, string what) {
    if (!right) throw new Exception(what);
  }

  static void Equal<T>(T wanted, T got, string what = "") {
    Check(EqualityComparer<T>.Default.Equals(wanted, got), what + " gives '" + got + "', not '" + wanted + "'");
  }

  // The words of what an action throws.
  static string Throws<T>(Action action) where T : Exception {
    try {
      action();
    } catch (T error) {
      Check(error.GetType() == typeof(T), "it throws " + error.GetType());
      return error.Message;
    }
    throw new Exception("it does not throw " + typeof(T));
  }

  static Process Begin(string program, string arguments) {
    var start = new ProcessStartInfo(program, arguments) {
      UseShellExecute = false, RedirectStandardOutput = true, RedirectStandardError = true
    };
    return Process.Start(start);
  }

  // How a program ends, and what it has printed.
  static Tuple<int, string> End(Process process) {
    string output = process.StandardOutput.ReadToEnd() + process.StandardError.ReadToEnd();
    Check(process.WaitForExit((int)patience.TotalMilliseconds), "it does not end");
    return Tuple.Create(process.ExitCode, output);
  }

  static Process BeginScanner(string arguments) {
    return Begin(Environment.GetEnvironmentVariable("QUORIN_SCANNER"), arguments);
  }

  // A request, after the service has seen that the scanner before has gone.
  static Tuple<int, string> Scan(string arguments = "") {
    Thread.Sleep(600);
    return End(BeginScanner("push --json --to " + address + " " + arguments));
  }

  static Tuple<int, string> Discover(string arguments = "--timeout=20000") {
    return End(BeginScanner("discover --json --count=1 --from " +
                            Environment.GetEnvironmentVariable("QUORIN_SCANNER_ADDRESS") + " " + arguments));
  }

  // This program again, as one of those below.
  static Process BeginChild(string what, string before = "env") {
    return Begin(before.Split(' ')[0], string.Join(" ", before.Split(' ').Skip(1)) + " mono " +
                                           Assembly.GetExecutingAssembly().Location + " " + what);
  }

  static ScanService Serve(EventHandler<RequestEventArgs> handler = null) {
    var service = new ScanService();
    if (handler != null) service.RequestReceived += handler;
    service.Start();
    return service;
  }

  // ---- The cases ----

  // Before anything is loaded: what fails leaves nothing behind.
  static void says_what_is_wrong_with_the_library() {
    string folder = Path.Combine(Path.GetTempPath(), "zvqrn-tests-" + Process.GetCurrentProcess().Id);
    string here = AppDomain.CurrentDomain.BaseDirectory;
    byte[] library = File.ReadAllBytes(Path.Combine(here, "runtimes/linux-x64/native/libZVQRN.so"));
    byte[] small = (byte[])library.Clone();
    small[4] = 1;  // of 32 bits
    var x86 = File.ReadAllBytes(Path.Combine(here, "runtimes/win-x86/native/ZVQRN.dll"));
    var x64 = File.ReadAllBytes(Path.Combine(here, "runtimes/win-x64/native/ZVQRN.dll"));
    Directory.CreateDirectory(Path.Combine(folder, "of"));
    string temporary = Environment.GetEnvironmentVariable("TMPDIR");
    Environment.SetEnvironmentVariable("TMPDIR", folder);
    try {
      foreach (var row in new[] {
                 Tuple.Create("missing.so", (byte[])null, typeof(LibraryMissingException), "There is no "),
                 Tuple.Create("text.so", Encoding.ASCII.GetBytes("text"), typeof(LibraryException), "cannot be loaded"),
                 Tuple.Create("32-bit.so", small, typeof(WrongLibraryException), "is for 32-bit Linux programs"),
                 Tuple.Create("ZVQRN.dll", x86, typeof(WrongLibraryException), "is for 32-bit Windows programs"),
                 Tuple.Create("ZVQRN.dll", x64, typeof(WrongLibraryException), "is for 64-bit Windows programs")
               }) {
        foreach (bool asUtility in new[] { false, true }) {
          string path = Path.Combine(folder, asUtility ? "of/libDRAVLIB.so" : row.Item1);
          if (row.Item2 != null) File.WriteAllBytes(path, row.Item2);
          try {
            if (asUtility) ScanLibrary.Load(null, path);
            else ScanLibrary.Load(path);
            throw new Exception(path + " loads");
          } catch (ScanServiceException error) {
            Equal(row.Item3, error.GetType(), row.Item1);
            Check(error.Message.Contains(row.Item4) && error.Message.Contains(path), error.Message);
          }
        }
      }
      // A utility library whose library was not there is not kept for the next.
      string missing = Path.Combine(folder, "missing.so");
      Throws<LibraryMissingException>(() => ScanLibrary.Load(missing, ScanLibrary.StandIn));
      Check(!File.ReadAllText("/proc/self/maps").Contains("libDRAVLIB.so"), "the stand-in stays");
      string other = Path.Combine(folder, "libOTHER.so");
      Check(Throws<LibraryException>(() => ScanLibrary.Load(null, other)).Contains("by its name"), "another name");
      // A link to a file with a version, as libraries are installed.
      Check(ScanLibrary.StandIn != null, "there is no stand-in");
      string table = Path.Combine(Path.GetDirectoryName(ScanLibrary.StandIn), "DRAVLIB.txt");
      string linked = Path.Combine(folder, "linked");
      Run("mkdir " + linked + "; cp " + table + " " + linked + "; cp " + ScanLibrary.StandIn + " " + linked +
          "/libDRAVLIB.so.1; ln -s libDRAVLIB.so.1 " + linked + "/libDRAVLIB.so");
      File.AppendAllText(Path.Combine(linked, "DRAVLIB.txt"), "XL-33 = " + LONGEST + "\n");
      ScanLibrary.Load(utility: Path.Combine(linked, "libDRAVLIB.so"));
      Equal("linked of", string.Join(" ", Directory.GetDirectories(folder).Select(Path.GetFileName).OrderBy(s => s)));
    } finally {
      Environment.SetEnvironmentVariable("TMPDIR", temporary);
      Directory.Delete(folder, true);
    }
    ScanLibrary.Load();
    Throws<LibraryException>(() => ScanLibrary.Load(Path.Combine(here, "libZVQRN.so")));
    Check(ScanLibrary.UtilityFound, "the stand-in is not loaded");
  }

  // They differ under 32-bit Windows only.
  static void calling_conventions() {
    Type[] types = typeof(ScanService).Assembly.GetTypes().Where(type => type.IsSubclassOf(typeof(Delegate))).ToArray();
    Equal(8, types.Length);
    foreach (Type type in types) {
      var said = type.GetCustomAttribute<UnmanagedFunctionPointerAttribute>();
      Equal(type.Name.EndsWith("Callback") ? CallingConvention.Cdecl : CallingConvention.StdCall,
            said.CallingConvention, type.Name);
    }
  }

  static void requests_and_data() {
    var requests = new List<ScanRequest>();
    var service = Serve((sender, e) => {
      requests.Add(e.Request);
      if (e.Request.Exchange == Exchange.Start) {
        // The scanner uses its uid again.
        Throws<RequestClosedException>(() => requests[0].Send(new byte[] { 1 }));
        var late = new Thread(() => {
          Thread.Sleep(100);
          e.Request.Send(new byte[] { (byte)'l', 0, 0xFF });
        });
        late.Start();
      } else if (e.Request.Exchange == Exchange.Single) {
        foreach (string words in new[] { "at once", "twice" }) e.Request.Send(Encoding.ASCII.GetBytes(words));
        Throws<ArgumentNullException>(() => e.Request.Send(null));
        Throws<ArgumentException>(() => e.Request.Send(new byte[0]));
      }
    });
    Tuple<int, string> got = Scan("--uid=one --ip=192.0.2.9 --image-format=TIFF --color=Monochrome " +
                                  "--load-paper=Double --paper-type=B5_Landscape --paper-width=7 " +
                                  "--paper-height=8 --scan-x=9 --scan-y=999999999");
    Equal(ACCEPTED, got.Item1, got.Item2);
    Check(got.Item2.Contains("\"at once\"") && got.Item2.Contains("\"twice\""), got.Item2);
    got = Scan("--uid=one --protocol=2 --pair --hold=700 --id=3 --product=XS-300");
    Equal(ACCEPTED, got.Item1, got.Item2);
    Check(got.Item2.Contains("\"data\":\"l\\u0000\u00FF\"") || got.Item2.Contains("l\\u0000\\u00ff"), got.Item2);

    var single = (SettingsRequest)requests[0];
    Equal("one Single 1.00 Quorin XS-200 192.0.2.9 Tiff Monochrome Double B5Landscape 7 8 9 999999999",
          string.Join(" ", single.Uid, single.Exchange, single.ProtocolVersion, single.DriverName,
                      single.Address, single.ImageFormat, single.ColorType, single.LoadPaper,
                      single.PaperType, single.PaperWidth, single.PaperHeight, single.ScanX, single.ScanY));
    var start = (IdRequest)requests[1];
    Equal("one Start 2.00 Quorin XS-300 192.0.2.10 XS-300 3",
          string.Join(" ", start.Uid, start.Exchange, start.ProtocolVersion, start.DriverName,
                      start.Address, start.ProductName, start.PushScanId));
    Equal(Exchange.End, requests[2].Exchange);
    foreach (string protocol in new[] { "1", "2" }) {
      got = Scan("--product=XL-33 --protocol=" + protocol);
      Equal(LONGEST, requests.Last().DriverName, got.Item2);
    }
    foreach (ScanRequest kept in requests) Throws<RequestClosedException>(() => kept.Send(new byte[] { 1 }));
    service.Stop();
    Throws<NotServingException>(() => start.Send(new byte[] { 1 }));
    // The scanner uses its uid again after a restart.
    service.RequestReceived += (sender, e) => {
      if (e.Request.Exchange == Exchange.Start) Throws<RequestClosedException>(() => start.Send(new byte[] { 1 }));
    };
    using (service) {
      service.Start();
      got = Scan("--uid=one --protocol=2 --pair --hold=700");
      Equal(ACCEPTED, got.Item1, got.Item2);
    }
  }

  static void failing_handlers_are_answered_and_told_of() {
    Action<RequestEventArgs> act = null;
    var told = new ConcurrentQueue<HandlerFailedEventArgs>();
    using (var service = Serve((sender, e) => act(e))) {
      service.HandlerFailed += (sender, e) => {
        told.Enqueue(e);
        throw new Exception("this one is not told of, and harms nobody");
      };
      foreach (var row in new[] {
                 Tuple.Create((Action<RequestEventArgs>)(e => { throw new DivideByZeroException(); }), "ERROR", 1),
                 Tuple.Create((Action<RequestEventArgs>)(e => { e.Answer = (Answer)42; }), "ERROR", 0),
                 Tuple.Create((Action<RequestEventArgs>)(e => { e.Answer = Answer.PmNotInstall; }), "PM_NOT_INSTALL", 0),
                 Tuple.Create((Action<RequestEventArgs>)(e => { e.Answer = Answer.Busy; }), "2001", 0)
               }) {
        act = row.Item1;
        Tuple<int, string> got = Scan();
        Equal(REFUSED, got.Item1, row.Item2);
        Check(got.Item2.Contains("\"" + row.Item2 + "\""), got.Item2);
        Equal(row.Item3, told.Count, row.Item2);
        HandlerFailedEventArgs failure;
        if (told.TryDequeue(out failure)) {
          Equal("RequestReceived", failure.Handler);
          Check(failure.Exception is DivideByZeroException, failure.Exception.ToString());
        }
      }
    }
    using (Serve()) Check(Scan().Item2.Contains("\"ERROR\""), "nobody handles it");
    var trace = new StringWriter();
    Trace.Listeners.Add(new TextWriterTraceListener(trace));
    using (Serve((sender, e) => { throw new DivideByZeroException(); })) Scan();
    Check(trace.ToString().Contains("DivideByZeroException"), "nothing is traced: " + trace);
  }

  static void filter() {
    var seen = new BlockingCollection<string>();
    int asked = 0;
    var service = new ScanService { Name = "FILTERED" };
    service.HandlerFailed += (sender, e) => {};
    service.ScannerAsks += (sender, e) => {
      seen.Add(string.Join(" ", e.DriverName, e.ServiceType, e.ScopeList, e.TagList));
      if (++asked == 3) throw new Exception();
      e.Accept = asked == 1;
    };
    service.Start();
    using (service) {
      foreach (int wanted in new[] { ACCEPTED, NOTHING_FOUND, NOTHING_FOUND }) {
        Tuple<int, string> got =
            Discover("--product=XS-300 --tags=a,b --timeout=" + (wanted == ACCEPTED ? "20000" : "900"));
        Equal(wanted, got.Item1, got.Item2);
        Equal(wanted == ACCEPTED, got.Item2.Contains("\"FILTERED\""));
        Equal("Quorin XS-300 service:Quorin-agent XS-300 a,b", seen.Take());
      }
    }
  }

  static void stops_from_where_it_can() {
    var refused = new List<string>();
    var inside = new ManualResetEventSlim();
    ScanService service = null;
    service = Serve((sender, e) => {
      refused.Add(Throws<InsideCallbackException>(() => service.Stop()));
      refused.Add(Throws<InsideCallbackException>(() => service.Start()));
      inside.Set();
      Thread.Sleep(1000);  // the stop waits, and the scanner still gets its answer
    });
    Process scanner = BeginScanner("push --to " + address);
    Check(inside.Wait(patience), "no request came");
    service.Stop();
    Equal(ACCEPTED, End(scanner).Item1);
    Equal("Stop Start", string.Join(" ", refused.Select(words => words.Split(' ')[0])));
    service.Stop();  // nothing to do
    service.Dispose();
    service.Start();  // and again
    service.Dispose();
  }

  static void one_service() {
    using (Serve((sender, e) => {})) {
      Throws<AlreadyRunningException>(() => new ScanService().Start());
      Tuple<int, string> child = End(BeginChild("start"));
      Check(child.Item1 != 0 && child.Item2.Contains("The service did not start: TCP port 2968 is taken"),
            child.Item2);
      Equal(ACCEPTED, Scan().Item1);
    }
  }

  static void names() {
    var service = new ScanService { Name = "FIFTEEN-LETTERS" };
    Throws<NotServingException>(() => service.Name.ToString());
    Check(!service.IsServing, "it does not run");
    foreach (string wrong in new[] { "", "SIXTEEN-LETTERS-", "\u00E9\u00E9\u00E9\u00E9\u00E9\u00E9\u00E9\u00E9",
                                     "A\0B", "\uD800" }) {
      Throws<ArgumentException>(() => service.Name = wrong);
    }
    Throws<ArgumentNullException>(() => service.Name = null);
    foreach (string name in new[] { "FIFTEEN-LETTERS", "B\u00DCRO" }) {
      service.Start();
      Check(service.IsServing, "it runs");
      Equal(name, service.Name);
      service.Name = "B\u00DCRO";  // which stays
      Equal("B\u00DCRO", service.Name);
      service.Stop();
    }
    // Where the process has chosen no code page.
    Tuple<int, string> western = End(BeginChild("western", "env LC_ALL=C"));
    Check(western.Item1 == 0, western.Item2);
  }

  [MethodImpl(MethodImplOptions.NoInlining)]
  static void Forget() {
    Serve((sender, e) => {});
  }

  // Nothing but the library knows of the service any more.
  static void outlives_the_collector() {
    Forget();
    for (int i = 0; i < 3; i++) {
      GC.Collect();
      GC.WaitForPendingFinalizers();
      Equal(ACCEPTED, Scan().Item1);
    }
    FieldInfo current = typeof(ScanService).GetField("current", BindingFlags.NonPublic | BindingFlags.Static);
    ((ScanService)current.GetValue(null)).Dispose();
  }

  static void the_process_ends_while_it_serves() {
    foreach (var row in new[] { Tuple.Create("return", 0), Tuple.Create("exit", 3), Tuple.Create("throw", -1),
                                Tuple.Create("inside", 5), Tuple.Create("handler", 0),
                                Tuple.Create("domain", 0) }) {
      Process child = BeginChild(row.Item1), scanner = null;
      if (row.Item1 == "inside" || row.Item1 == "handler") {
        while (child.StandardOutput.ReadLine() != "serving") {}
        scanner = BeginScanner("push --to " + address);
      }
      Tuple<int, string> end = End(child);
      Check(row.Item2 < 0 ? end.Item1 != 0 : end.Item1 == row.Item2, row.Item1 + " ends with " + end.Item1 + end.Item2);
      Check(!end.Item2.Contains("Native stacktrace"), end.Item2);
      if (row.Item1 == "handler") Equal(ACCEPTED, End(scanner).Item1, "the request that was being handled");
    }
  }

  static void waits_for_an_address() {
    Tuple<int, string> child = End(BeginChild("wait", "unshare --net"));
    Equal("NoNetwork False\nRestart True LATER\n", child.Item2);
  }

  // ---- Programs that cases start ----

  static void Run(string program) {
    var done = End(Begin("sh", "-c \"" + program + "\""));
    Check(done.Item1 == 0, program + ": " + done.Item2);
  }

  static int Program(string what) {
    ScanLibrary.Load(utility: ScanLibrary.StandIn);
    if (what == "western") {
      var western = new ScanService { Name = "\u20AC\u0178\u00FF" };
      Throws<ArgumentException>(() => western.Name = "\u0416");
      using (western) {
        western.Start();
        Equal("\u20AC\u0178\u00FF", western.Name);
        // Every letter that has a number of its own in that code page, as the library turns it.
        foreach (string others in new[] { "\u20AC\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030",
                                          "\u0160\u2039\u0152\u017D\u2018\u2019\u201C\u201D\u2022",
                                          "\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\u017E\u0178" }) {
          western.Name = others;
          Tuple<int, string> got = Discover();
          Check(Regex.Unescape(got.Item2).Contains("\"" + others + "\""), got.Item2);
        }
      }
      return 0;
    }
    if (what == "domain") {
      AppDomain domain = AppDomain.CreateDomain("a plug-in's");
      domain.DoCallBack(() => {
        ScanLibrary.Load(utility: ScanLibrary.StandIn);
        Serve((sender, e) => {});
      });
      Equal(ACCEPTED, Scan().Item1);
      AppDomain.Unload(domain);
      Check(Scan().Item1 != ACCEPTED, "it serves without its domain");
      return 0;
    }
    if (what == "wait") {
      var heard = new BlockingCollection<StatusCode>();
      using (var service = new ScanService { Name = "LATER" }) {
        service.StatusChanged += (sender, e) => heard.Add(e.Code);
        Run("ip link set lo up");
        service.Start();
        Console.WriteLine(heard.Take() + " " + service.IsServing);
        Run("ip link add a0 type veth peer name a1; ip link set a1 up; ip address add 10.68.9.2/24 dev a0; " +
            "ip link set a0 up");
        while (heard.Take() != StatusCode.Restart) {}
        Console.WriteLine("Restart " + service.IsServing + " " + service.Name);
      }
      return 0;
    }
    var handling = new ManualResetEventSlim();
    Serve((sender, e) => {
      if (what == "inside") Environment.Exit(5);
      handling.Set();
      Thread.Sleep(1000);
    });
    switch (what) {
      case "handler":
        Console.WriteLine("serving");
        handling.Wait();
        break;
      case "exit": Environment.Exit(3); break;
      case "throw": throw new Exception("on purpose");
      case "inside":
        Console.WriteLine("serving");
        Thread.Sleep(patience);
        break;
    }
    return 0;
  }

  static int Main(string[] arguments) {
    if (arguments.Length > 0) return Program(arguments[0]);
    int failed = 0;
    foreach (Action test in new Action[] {
               says_what_is_wrong_with_the_library, calling_conventions, requests_and_data,
               failing_handlers_are_answered_and_told_of, filter, stops_from_where_it_can, one_service, names, outlives_the_collector,
               the_process_ends_while_it_serves, waits_for_an_address
             }) {
      try {
        test();
        Console.WriteLine("passed  bindings-dotnet-" + test.Method.Name);
      } catch (Exception error) {
        failed++;
        Console.WriteLine("FAILED  bindings-dotnet-" + test.Method.Name + "\n" + error);
      }
    }
    return failed;
  }
}
