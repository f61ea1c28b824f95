"""Who gets in, and that whoever should not gets nothing."""

import stat
import subprocess

import pytest

from bridge_client import ORIGIN, PATIENCE, Bridge, read_head


def test_the_address_is_told_to_the_user_only(bridge):
    assert stat.S_IMODE(bridge.address_file.stat().st_mode) == 0o600
    assert stat.S_IMODE(bridge.address_file.parent.stat().st_mode) == 0o700
    assert bridge.address == f"http://127.0.0.1:{bridge.port}/?token={bridge.token}"
    assert len(bridge.token) == 64
    assert bridge.token not in bridge.said + bridge.log()


def test_it_listens_on_the_loopback_interface_only(bridge):
    listens = []
    for table in ("tcp", "tcp6"):
        with open(f"/proc/net/{table}") as lines:
            listens += [line.split()[1] for line in list(lines)[1:] if line.split()[3] == "0A"]
    mine = {place.split(":")[0] for place in listens if int(place.split(":")[1], 16) == bridge.port}
    assert mine <= {"0100007F", "00000000000000000000000001000000"} and "0100007F" in mine


@pytest.mark.parametrize("address", ["0.0.0.0", "::", "192.168.0.1", "localhost", "127.0.0.2", "::ffff:127.0.0.1", ""])
def test_other_addresses_are_refused(address):
    done = subprocess.run(["vxpad-bridge", f"--listen={address}"], stderr=subprocess.PIPE, timeout=PATIENCE)
    assert done.returncode == 2 and b"--listen" in done.stderr


@pytest.mark.parametrize("fields,status", [
    ({}, 101),
    ({"Host": "localhost:{port}"}, 101),
    ({"Host": "LocalHost:{port}"}, 101),
    ({"Host": "[::1]:{port}"}, 101),
    ({"Host": "127.0.0.1"}, 403),
    ({"Host": "127.0.0.1:1"}, 403),
    ({"Host": "attacker.example"}, 403),
    ({"Host": "attacker.example:{port}"}, 403),
    ({"Host": "localhost.attacker.example:{port}"}, 403),
    ({"Host": ""}, 403),
    ({"Host": None}, 403),
    ({"Host": "127.0.0.1:{port}\r\nHost: 127.0.0.1:{port}"}, 403),
    ({"Origin": "http://127.0.0.1:{port}"}, 101),
    ({"Origin": "http://localhost:{port}"}, 101),
    ({"Origin": ORIGIN}, 101),
    ({"Origin": ORIGIN + ".attacker.example"}, 403),
    ({"Origin": ORIGIN + ":444"}, 403),
    ({"Origin": "http://counter.example"}, 403),
    ({"Origin": "https://127.0.0.1:{port}"}, 403),
    ({"Origin": "http://127.0.0.1"}, 403),
    ({"Origin": "null"}, 403),
    ({"Origin": ""}, 403),
    ({"Origin": ORIGIN + "\r\nOrigin: https://attacker.example"}, 403),
    ({"Upgrade": None}, 426),
    ({"Connection": None}, 426),
    ({"target": "/pads"}, 403),
    ({"target": "/pads?token="}, 403),
    ({"target": "/pads?token={token}0"}, 403),
    ({"target": "/pads?token=" + "0" * 64}, 403),
    ({"target": "/pads?Token={token}"}, 403),
    ({"target": "/pads?x=1&token={token}"}, 101),
    ({"target": "/nothing?token={token}"}, 404),
    ({"target": "//pads?token={token}"}, 404),
    ({"target": "http://127.0.0.1:{port}/pads?token={token}"}, 404),
])
def test_who_gets_the_websocket(bridge, fields, status):
    fill = {"port": bridge.port, "token": bridge.token}
    filled = {name: value and value.format(**fill) for name, value in fields.items()}
    assert bridge.status(bridge.head(**filled)) == status


def get(bridge, target="/", method="GET", **fields):
    lines = {"Host": f"127.0.0.1:{bridge.port}", **{name.replace("_", "-"): value for name, value in fields.items()}}
    with bridge.connect() as connection:
        connection.sendall((f"{method} {target} HTTP/1.1\r\n" +
                            "".join(f"{name}: {value}\r\n" for name, value in lines.items()) + "\r\n").encode())
        head = read_head(connection).decode()
        body = b""
        while part := connection.recv(1 << 16):
            body += part
    return int(head.split()[1]), head.lower(), body.decode()


def test_the_page_needs_the_token(bridge):
    assert get(bridge)[0] == 403
    assert get(bridge, "/?token=" + "a" * 64)[0] == 403
    status, head, body = get(bridge, f"/?token={bridge.token}")
    assert status == 200 and "<canvas" in body
    assert bridge.token not in head + body
    assert get(bridge, f"/?token={bridge.token}", "POST")[0] == 405
    assert get(bridge, f"/?token={bridge.token}", "OPTIONS", Origin=ORIGIN)[0] == 405
    assert get(bridge, f"/?token={bridge.token}", Host="attacker.example")[0] == 403
    assert get(bridge, f"/?token={bridge.token}", Origin="https://attacker.example")[0] == 403
    for destination in ("iframe", "script", "empty"):
        assert get(bridge, f"/?token={bridge.token}", Sec_Fetch_Dest=destination)[0] == 403


def test_the_page_is_neither_kept_nor_shared_nor_framed(bridge):
    policies = set()
    for _ in range(2):
        _, head, body = get(bridge, f"/?token={bridge.token}")
        lines = dict(line.split(": ", 1) for line in head.splitlines() if ": " in line)
        assert lines["cache-control"] == "no-store"
        assert lines["x-content-type-options"] == "nosniff"
        assert lines["referrer-policy"] == "no-referrer"
        assert lines["cross-origin-resource-policy"] == "same-origin"
        assert not any(name.startswith("access-control") for name in lines)
        policy = lines["content-security-policy"]
        assert "default-src 'none'" in policy and "frame-ancestors 'none'" in policy
        assert "unsafe" not in policy and "*" not in policy
        assert body.lower().count(policy.split("'nonce-")[1].split("'")[0]) == 2
        policies.add(policy)
    assert len(policies) == 2


def test_a_token_of_ones_own(tmp_path):
    token = "abcdefghijklmnopqrstuvwxyz-_0123456789"
    file = tmp_path / "token"
    file.write_text(token + "\n")
    file.chmod(0o640)
    done = subprocess.run(["vxpad-bridge", f"--token-file={file}"], stderr=subprocess.PIPE, timeout=PATIENCE)
    assert done.returncode == 1 and b"mode 600" in done.stderr
    file.chmod(0o600)
    with Bridge(f"--token-file={file}") as other:
        assert other.token == token
        with other.client():
            pass
