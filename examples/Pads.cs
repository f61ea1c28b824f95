// Lists the pads and prints where the pen is in 20 reports of the first one, laid out as emulator/virtual-pad.layout.
// mcs Pads.cs && mono Pads.exe
using System;
using System.Collections.Concurrent;
using System.Runtime.InteropServices;
using System.Text;

static class Pads {
    const string Library = "libvxpadcom.so.0";
    delegate void OnReport(IntPtr user, uint pad, uint iface, IntPtr data, uint length);
    delegate void OnRemoved(IntPtr user, uint pad);
    [DllImport(Library)] static extern int Initialize();
    [DllImport(Library)] static extern int Deinitialize();
    [DllImport(Library)] static extern int GetDeviceCount(out uint unused);
    [DllImport(Library, CharSet = CharSet.Unicode)]
    static extern int GetSerialNumber(uint pad, StringBuilder text, int size, out uint length);
    [DllImport(Library)] static extern int SetOnDeviceRemovedHandler(OnRemoved callback, IntPtr user);
    [DllImport(Library)] static extern int SetOnDataReceivedHandler(uint pad, uint iface, OnReport call, IntPtr user);
    [DllImport(Library)] static extern int SetDataReceivingEnabled(uint pad, uint iface, uint enabled);

    static readonly BlockingCollection<string> lines = new BlockingCollection<string>();
    static readonly OnReport onReport = (user, pad, iface, data, length) => // on a thread of the library
        lines.Add($"pad {pad}: x {(ushort)Marshal.ReadInt16(data, 2)}, y {(ushort)Marshal.ReadInt16(data, 4)}");
    static readonly OnRemoved onRemoved = (user, pad) => Fail($"pad {pad} was removed");
    static void Fail(string why) { Console.Error.WriteLine(why); Environment.Exit(1); }

    static void Main() {
        var text = new StringBuilder(256);
        Initialize();
        SetOnDeviceRemovedHandler(onRemoved, IntPtr.Zero);
        int count = GetDeviceCount(out uint length);
        for (uint pad = 1; pad <= count && GetSerialNumber(pad, text, 256, out length) == 0; ++pad)
            Console.WriteLine($"{pad}: {text}");
        if (count == 0) Fail("no pad found: 'vxpadctl list' tells why");
        if (SetOnDataReceivedHandler(1, 0, onReport, IntPtr.Zero) != 0 || SetDataReceivingEnabled(1, 0, 1) != 0)
            Fail("pad 1: receiving cannot be started");
        for (int i = 0; i < 20; ++i) Console.WriteLine(lines.Take());
        Deinitialize(); // no callback runs afterwards
    }
}
