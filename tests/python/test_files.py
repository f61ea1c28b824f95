import shutil
import subprocess

import pytest

import vxpadcom


def test_fields_are_read_as_their_types_say():
    layout = vxpadcom.Layout("a=0:u8,b=0:i8, c=1:u16le\nd=1:i16be,e=0:u32be,f=3:i32le")
    report = bytes.fromhex("ff80017f")
    assert layout.decode(report) == {"a": 255, "b": -1, "c": 0x0180, "d": -0x7FFF, "e": 0xFF80017F}
    assert [field.name for field in layout] == list("abcdef")


@pytest.mark.parametrize(
    "text", ["", "x", "x=2", "x=2:u64le", "X=2:u8", "x=-1:u8", "x=4096:u8", "x=0:u8,x=1:u8", "x=0:u8le", "x=2:u16le y"]
)
def test_what_is_no_layout_is_refused(text):
    with pytest.raises(ValueError):
        vxpadcom.Layout(text)


def test_a_layout_file_may_have_comments(layout):
    assert {"x", "y", "pressure"} <= {field.name for field in layout}


def recording():
    packets = [vxpadcom.Packet(0, b"\x50\x01"), vxpadcom.Packet(1998, b"\x50")]
    return vxpadcom.Recording(packets, "ACME, Inc.\x1b\u202e\\", "Pad 100", "SN\n1", 1, 64)


def test_a_recording_is_read_as_it_was_saved(tmp_path):
    recording().save(tmp_path / "signature.rec")
    assert vxpadcom.Recording.load(tmp_path / "signature.rec") == recording()
    assert "maker ACME, Inc.\\x1b\\u202e\\\\\n" in (tmp_path / "signature.rec").read_text()


def test_vxpadctl_reads_what_was_saved(tmp_path):
    recording().save(tmp_path / "signature.rec")
    shown = subprocess.run(
        [shutil.which("vxpadctl"), "replay", tmp_path / "signature.rec", "--speed", "100"],
        check=True, capture_output=True, text=True,
    ).stdout
    assert "50 01" in shown


def test_what_vxpadctl_records_is_read(tmp_path, emulator):
    emulator("play 1 loop 100")
    file = tmp_path / "signature.rec"
    subprocess.run([shutil.which("vxpadctl"), "record", "1", "-o", file, "--count", "20"], check=True)
    loaded = vxpadcom.Recording.load(file)
    assert len(loaded.packets) == 20
    assert (loaded.serial, loaded.product, loaded.packet_size) == ("A1", "Classic \ufffd", 64)
    assert loaded.packets[-1].at_us > 0 and len(loaded.packets[0].data) == 64


@pytest.mark.parametrize(
    "text, line",
    [
        ("", 1),
        ("vxpadcom-recording 2\n", 1),
        ("vxpadcom-recording 1\nwho knows\n", 2),
        ("vxpadcom-recording 1\n0 50\nserial late\n", 3),
        ("vxpadcom-recording 1\n\n# well\n5 50\n4 50\n", 5),
        ("vxpadcom-recording 1\n0\n", 2),
        ("vxpadcom-recording 1\n0 5\n", 2),
        ("vxpadcom-recording 1\n0 5g\n", 2),
        ("vxpadcom-recording 1\n604800000001 50\n", 2),
        ("vxpadcom-recording 1\npacket-size 2\n0 505152\n", 3),
        ("vxpadcom-recording 1\npacket-size 0\n", 2),
        ("vxpadcom-recording 1\ninterface 255\n", 2),
        ("vxpadcom-recording 1\n0\u0660 50\n", 2),
    ],
)
def test_a_bad_recording_is_refused_with_its_line(tmp_path, text, line):
    (tmp_path / "bad.rec").write_text(text)
    with pytest.raises(ValueError, match=f"^line {line}: |begins with"):
        vxpadcom.Recording.load(tmp_path / "bad.rec")
