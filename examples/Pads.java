// Lists the pads and prints where the pen is in 20 reports of the first one, laid out as emulator/virtual-pad.layout.
// java -cp /usr/share/java/jna.jar Pads.java: with JNA, Debian's libjna-java
import com.sun.jna.*;
import com.sun.jna.ptr.IntByReference;
import java.util.concurrent.*;

public class Pads {
    public interface OnReport extends Callback { void call(Pointer user, int pad, int iface, Pointer data, int size); }
    public interface OnRemoved extends Callback { void call(Pointer user, int pad); }
    public interface Vxpadcom extends Library {
        int Initialize();
        int Deinitialize();
        int GetDeviceCount(IntByReference unused);
        int GetSerialNumber(int pad, byte[] text, int size, IntByReference length); // in 16-bit units
        int SetOnDeviceRemovedHandler(OnRemoved callback, Pointer user);
        int SetOnDataReceivedHandler(int pad, int iface, OnReport callback, Pointer user);
        int SetDataReceivingEnabled(int pad, int iface, int enabled);
    }
    static final BlockingQueue<String> lines = new LinkedBlockingQueue<>();
    static final OnReport onReport = (user, pad, iface, data, length) -> // on a thread of the library
        lines.add("pad " + pad + ": x " + (data.getShort(2) & 0xffff) + ", y " + (data.getShort(4) & 0xffff));
    static final OnRemoved onRemoved = (user, pad) -> fail("pad " + pad + " was removed");
    static void fail(String why) { System.err.println(why); Runtime.getRuntime().halt(1); }

    public static void main(String[] arguments) throws Exception {
        Vxpadcom lib = Native.load("libvxpadcom.so.0", Vxpadcom.class);
        IntByReference length = new IntByReference();
        byte[] text = new byte[512];
        lib.Initialize();
        lib.SetOnDeviceRemovedHandler(onRemoved, null);
        int count = lib.GetDeviceCount(length);
        for (int pad = 1; pad <= count && lib.GetSerialNumber(pad, text, 256, length) == 0; ++pad)
            System.out.println(pad + ": " + new String(text, 0, 2 * length.getValue(), "UTF-16LE"));
        if (count == 0) fail("no pad found: 'vxpadctl list' tells why");
        if (lib.SetOnDataReceivedHandler(1, 0, onReport, null) != 0 || lib.SetDataReceivingEnabled(1, 0, 1) != 0)
            fail("pad 1: receiving cannot be started");
        for (int i = 0; i < 20; ++i) System.out.println(lines.take());
        lib.Deinitialize(); // no callback runs afterwards
    }
}
