"""The bridge's page, and pages of others, in a real browser over virtual pads."""

import http.server
import os
import pathlib
import re
import struct
import threading
import zlib

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

from bridge_client import LAYOUT, ORIGIN, PATIENCE, Bridge, eventually

SOURCE = pathlib.Path(__file__).parents[2]
SIGNATURE = SOURCE / "emulator" / "signature.txt"
PLAYED = 700


def strokes_of(file):
    strokes = [[]]
    for line in file.read_text().splitlines():
        if line.startswith("#"):
            continue
        if line.strip():
            strokes[-1].append(tuple(int(word) for word in line.split()))
        elif strokes[-1]:
            strokes.append([])
    return [stroke for stroke in strokes if stroke]


STROKES = strokes_of(SIGNATURE)
POINTS = sum(STROKES, [])


@pytest.fixture
def browsers(tmp_path):
    """Makes browsers, each with a profile of its own that is new."""
    made = []

    def make():
        directory = tmp_path / f"browser{len(made)}"
        directory.mkdir()
        options = webdriver.ChromeOptions()
        for argument in ("--headless", *(["--no-sandbox"] if os.geteuid() == 0 else []), "--disable-gpu", "--disable-quic",
                         "--no-first-run", "--disable-background-networking", "--disable-component-update",
                         "--disable-sync", "--disable-dev-shm-usage", f"--user-data-dir={directory / 'profile'}"):
            options.add_argument(argument)
        options.add_experimental_option("prefs", {"download.default_directory": str(directory)})
        driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        driver.set_page_load_timeout(PATIENCE)
        driver.set_script_timeout(PATIENCE)
        driver.directory = directory
        made.append(driver)
        return driver

    yield make
    for driver in made:
        driver.quit()


def complaints(driver):
    return [line for line in driver.get_log("browser") if line["level"] == "SEVERE"]


def text_of(driver, name):
    return driver.execute_script("return document.getElementById(arguments[0]).textContent", name)


def click(driver, name):
    driver.find_element("id", name).click()


def is_enabled(driver, name):
    return driver.execute_script("return !document.getElementById(arguments[0]).disabled", name)


def names_of_pads(driver):
    return driver.execute_script("return [...document.querySelectorAll('#pads button')].map((b) => b.textContent)")


def open_page(driver, bridge):
    driver.get(bridge.address)
    eventually(lambda: text_of(driver, "status") == "connected" and names_of_pads(driver), "the page shows pads")


def start(driver, serial):
    driver.execute_script("[...document.querySelectorAll('#pads button')].find((b) => b.textContent.endsWith(arguments[0]))"
                          ".click()", serial)
    click(driver, "start")
    eventually(lambda: text_of(driver, "status").startswith("receiving"), "it receives")


def stop(driver):
    click(driver, "stop")
    eventually(lambda: text_of(driver, "status") == "stopped", "it stops")


def saved(driver, kind, name):
    click(driver, kind)
    file = driver.directory / name
    eventually(file.exists, name)
    return file


def png_ink(file):
    """Width, and which pixels of a picture with eight bits for each of red, green, blue and opacity are opaque."""
    data = file.read_bytes()
    assert data.startswith(b"\x89PNG\r\n\x1a\n")
    width, height, depth, kind = struct.unpack(">IIBB", data[16:26])
    assert (depth, kind) == (8, 6)
    packed, at = b"", 8
    while at < len(data):
        size, name = struct.unpack(">I4s", data[at:at + 8])
        packed += data[at + 8:at + 8 + size] if name == b"IDAT" else b""
        at += size + 12
    raw, rows, before = zlib.decompress(packed), [], bytearray(4 * width)
    for y in range(height):
        kind, row = raw[y * (4 * width + 1)], bytearray(raw[y * (4 * width + 1) + 1:(y + 1) * (4 * width + 1)])
        for i in range(len(row)):
            left, up, corner = row[i - 4] if i > 3 else 0, before[i], before[i - 4] if i > 3 else 0
            nearest = min((abs(up - corner), 0, left), (abs(left - corner), 1, up),
                          (abs(left + up - 2 * corner), 2, corner))[2]
            row[i] = row[i] + [0, left, up, (left + up) // 2, nearest][kind] & 255
        rows.append([row[i] > 127 for i in range(3, len(row), 4)])
        before = row
    return rows


def places_on(width, height):
    """Where the points of the signature are on a canvas of that size."""
    left, top = min(x for x, _, _ in POINTS), min(y for _, y, _ in POINTS)
    factor = min((width - 40) / (max(x for x, _, _ in POINTS) - left), (height - 40) / (max(y for _, y, _ in POINTS) - top))
    return [(20 + (x - left) * factor, 20 + (y - top) * factor) for x, y, _ in POINTS]


def test_the_page_draws_and_saves_what_the_pad_played(browsers):
    with Bridge("--layout", LAYOUT, pads=("--vcom=type=16,serial=C3,maker=ACME,product=Pad,pen=off",)) as bridge:
        driver = browsers()
        open_page(driver, bridge)
        assert driver.current_url == f"http://127.0.0.1:{bridge.port}/"
        assert names_of_pads(driver) == ["ACME Pad C3"]
        start(driver, "C3")
        bridge.ask_emulator("play 1 once 500")
        eventually(lambda: driver.execute_script("return strokes.flat().length") == len(POINTS), "all points")
        stop(driver)
        eventually(lambda: text_of(driver, "count") == str(len(POINTS) + len(STROKES)), "the count")
        assert complaints(driver) == []

        svg = saved(driver, "svg", "signature.svg").read_text()
        lines = [tuple(map(int, line)) for line in re.findall(r'd="M(\d+) (\d+)L(\d+) (\d+)"', svg)]
        assert lines == [(*stroke[max(i - 1, 0)][:2], *stroke[i][:2]) for stroke in STROKES for i in range(len(stroke))]

        ink = png_ink(saved(driver, "png", "signature.png"))
        places = places_on(len(ink[0]), len(ink))
        assert all(ink[round(y)][round(x)] for x, y in places)
        # Nothing else is drawn: a line is no thicker than this, and its points are near one another.
        near = {(round(x) + a, round(y) + b) for x, y in places for a in range(-12, 13) for b in range(-12, 13)}
        assert all((x, y) in near for y, row in enumerate(ink) for x, is_ink in enumerate(row) if is_ink)

        recording = saved(driver, "recording", "signature.rec").read_text().splitlines()
        assert recording[0] == "vxpadcom-recording 1"
        assert {"maker ACME", "product Pad", "serial C3", "interface 0", "packet-size 64"} <= set(recording)
        packets = [line.split() for line in recording if re.match("[0-9]", line)]
        points = [struct.unpack("<HHH", bytes.fromhex(data)[2:8]) for _, data in packets]
        assert [point for point in points if point[2] > 0] == POINTS
        times = [int(at) for at, _ in packets]
        assert times[0] == 0 and times == sorted(times)
        bridge.ask_emulator(f"replay 1 {driver.directory / 'signature.rec'}")


def test_unplugging_shows(browsers):
    with Bridge("--layout", LAYOUT, pads=("--vcom=type=16,serial=C3,pen=off", "--pad=type=16,serial=A1")) as bridge:
        driver = browsers()
        open_page(driver, bridge)
        assert len(names_of_pads(driver)) == 2
        start(driver, "C3")
        bridge.ask_emulator("unplug 1")
        eventually(lambda: text_of(driver, "status").startswith("unplugged:"), "it is told")
        eventually(lambda: [name[-2:] for name in names_of_pads(driver)] == ["A1"], "one is left")
        assert is_enabled(driver, "start") and not is_enabled(driver, "stop")
        bridge.ask_emulator("plug 1")
        eventually(lambda: len(names_of_pads(driver)) == 2, "it is back")
        assert bridge.end() == 0
        eventually(lambda: text_of(driver, "status").startswith("not connected"), "the end is told")


def test_two_browsers_lose_nothing(browsers):
    with Bridge("--layout", LAYOUT, pads=("--vcom=type=16,serial=C3,pen=off",)) as bridge:
        drivers = [browsers(), browsers()]
        for driver in drivers:
            open_page(driver, bridge)
            start(driver, "C3")
        bridge.ask_emulator(f"play 1 {PLAYED} 500")
        for driver in drivers:
            eventually(lambda: int(text_of(driver, "count")) == PLAYED, "every packet")
            numbers = driver.execute_script("return packets.map((packet) => packet.fields.number)")
            assert numbers == list(range(numbers[0], numbers[0] + PLAYED))


class Pages(http.server.ThreadingHTTPServer):
    """Somebody else's pages, at an origin of their own."""

    def __init__(self, body="<body></body>"):
        self.body = body

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(200)
                self.send_header("Content-Type", "text/html; charset=utf-8")
                self.end_headers()
                self.wfile.write(self.server.body.encode())

            def log_message(self, *_):
                pass

        super().__init__(("127.0.0.1", 0), Handler)
        self.origin = f"http://127.0.0.1:{self.server_port}"
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __exit__(self, *arguments):
        self.shutdown()
        super().__exit__(*arguments)


TRIES = """
const [port, token, done] = arguments;
const tries = {
    socket: (host) => new Promise((resolve) => {
        const socket = new WebSocket(`ws://${host}:${port}/pads?token=${token}`);
        socket.onmessage = (event) => resolve(event.data);
        socket.onclose = () => resolve("closed");
    }),
    page: (host) => fetch(`http://${host}:${port}/?token=${token}`).then((r) => r.text()).catch(() => "failed"),
    blind: (host) => fetch(`http://${host}:${port}/?token=${token}`, {mode: "no-cors"})
        .then((r) => r.text()).then((text) => text === "" ? "failed" : text).catch(() => "failed"),
    frame: (host) => new Promise((resolve) => {
        const frame = document.createElement("iframe");
        frame.src = `http://${host}:${port}/?token=${token}`;
        frame.onload = () => {
            try {
                resolve(frame.contentDocument === null ? "failed" : frame.contentDocument.body.innerHTML);
            } catch {
                resolve("failed");
            }
        };
        document.body.append(frame);
    }),
    script: (host) => new Promise((resolve) => {
        const script = document.createElement("script");
        script.src = `http://${host}:${port}/?token=${token}`;
        script.onload = () => resolve("loaded");
        script.onerror = () => resolve("failed");
        document.body.append(script);
    }),
};
Promise.all(Object.entries(tries).map(async ([name, attempt]) => [name, await attempt("127.0.0.1")]))
    .then((list) => done(Object.fromEntries(list)));
"""


def test_a_foreign_page_gets_nothing(browsers):
    with Bridge() as bridge, Pages() as pages:
        driver = browsers()
        driver.get(pages.origin)
        # Even one that knows the token.
        for token in (bridge.token, "0" * 64):
            assert driver.execute_async_script(TRIES, bridge.port, token) == {
                "socket": "closed", "page": "failed", "blind": "failed", "frame": "failed", "script": "failed"}
        assert f"refused: this origin is not allowed (origin {pages.origin})" in bridge.log()


def test_the_printed_lines_draw_for_an_application_of_ones_own(browsers):
    text = (SOURCE / "docs" / "bridge.md").read_text()
    lines = re.search(r"```js\n(.*?)```", text, re.DOTALL)[1]
    assert len(lines.splitlines()) <= 15
    with Pages() as pages, Bridge("--allow-origin", pages.origin, "--layout", LAYOUT,
                                  pads=("--vcom=type=16,serial=C3,pen=off",)) as bridge:
        assert "7429" in lines
        script = lines.replace("7429", str(bridge.port))
        width, height = max(x for x, _, _ in POINTS) + 1, max(y for _, y, _ in POINTS) + 1
        pages.body = f"<body><canvas width={width} height={height}></canvas></body><script type=module>\n{script}</script>"
        driver = browsers()
        driver.get(f"{pages.origin}/#{bridge.token}")
        with bridge.client() as client:
            pad = client.pads()["C3"]
            eventually(lambda: client.ask(ask="info", pad=pad)["receiving"] == [0], "the page has begun")
        bridge.ask_emulator("play 1 once 500")

        def ink():
            return driver.execute_script("""
                const canvas = document.querySelector("canvas");
                const data = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
                const isInk = (x, y) => data[4 * (y * canvas.width + x) + 3] > 0;
                return arguments[0].filter(([x, y]) => [x - 1, x].some((a) => isInk(a, y - 1) || isInk(a, y))).length;
            """, [[x, y] for x, y, _ in POINTS])
        eventually(lambda: ink() == len(POINTS), "every point is drawn")
        assert complaints(driver) == []
