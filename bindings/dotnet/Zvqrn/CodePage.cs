// Texts in the PC's ANSI code page, as the library takes and gives them: under Windows the system's,
// under Linux UTF-8 where the process has chosen that, and else Windows-1252.
using System;
using System.Runtime.InteropServices;
using System.Text;

namespace Zvqrn {

internal static class CodePage {
  private static readonly bool windows = Environment.OSVersion.Platform == PlatformID.Win32NT;

  // The characters of 0x80 to 0x9F in Windows-1252; the others have their own numbers.
  private const string WESTERN =
      "\u20AC\x81\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\x8D\u017D\x8F" +
      "\x90\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\x9D\u017E\u0178";

  private const int CODESET = 14;  // of glibc's langinfo.h
  [DllImport("libc", EntryPoint = "nl_langinfo")]
  private static extern IntPtr LanguageInformation(int item);

  private static bool IsUtf8() {
    return Marshal.PtrToStringAnsi(LanguageInformation(CODESET)) == "UTF-8";
  }

  internal static byte[] BytesOf(IntPtr text) {
    int length = 0;
    while (Marshal.ReadByte(text, length) != 0) length++;
    var bytes = new byte[length];
    Marshal.Copy(text, bytes, 0, length);
    return bytes;
  }

  internal static string Text(IntPtr text) { return Decode(BytesOf(text)); }

  // A text in a record's field, which ends with a NUL or with the field.
  internal static string Text(byte[] record, int offset, int size) {
    int end = Array.IndexOf(record, (byte)0, offset, size);
    var bytes = new byte[(end < 0 ? offset + size : end) - offset];
    Array.Copy(record, offset, bytes, 0, bytes.Length);
    return Decode(bytes);
  }

  internal static string Decode(byte[] bytes) {
    if (windows) {
      GCHandle pinned = GCHandle.Alloc(bytes, GCHandleType.Pinned);
      try {
        return Marshal.PtrToStringAnsi(pinned.AddrOfPinnedObject(), bytes.Length);
      } finally {
        pinned.Free();
      }
    }
    if (IsUtf8()) return Encoding.UTF8.GetString(bytes);
    var text = new StringBuilder();
    foreach (byte value in bytes) {
      text.Append(value >= 0x80 && value < 0xA0 ? WESTERN[value - 0x80] : (char)value);
    }
    return text.ToString();
  }

  // Null when the text has letters that are not in the code page.
  internal static byte[] Encode(string text) {
    byte[] bytes;
    if (windows) {
      IntPtr copy = Marshal.StringToHGlobalAnsi(text);
      bytes = BytesOf(copy);
      Marshal.FreeHGlobal(copy);
    } else if (IsUtf8()) {
      bytes = Encoding.UTF8.GetBytes(text);
    } else {
      bytes = new byte[text.Length];
      for (int i = 0; i < text.Length; i++) {
        int western = WESTERN.IndexOf(text[i]);
        bytes[i] = western >= 0 ? (byte)(0x80 + western) : (byte)text[i];
      }
    }
    return Decode(bytes) == text ? bytes : null;
  }
}

}  // namespace Zvqrn
