#!/usr/bin/env python3
"""The console as a person uses it, in Chromium without a window. Run by hand, since CI has no Chromium:

    tests/gateway/browser/console_browser_test.py PTZGATE PTZSIM [--pictures FOLDER]

With a folder, pictures of the page are put there."""

import json
import os
import select
import socket
import struct
import subprocess
import sys
import threading
import unittest
import zlib
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from browser import Browser
from gate import DEADLINE, Gate, Simulator, wait_for

PICTURES = sys.argv.pop(sys.argv.index("--pictures") + 1) if "--pictures" in sys.argv else None
if PICTURES:
    sys.argv.remove("--pictures")
PTZGATE, PTZSIM = [sys.argv.pop(1) for _ in range(2)]
RIGHT, LEFT, MIDDLE = (0.75, 0.5), (0.25, 0.5), (0.5, 0.5)


class Network:
    """What lies between a browser and the gateway, until it is cut: then nothing comes through any more, and nobody
    is told."""

    def __init__(self, host):
        self.target = host.rsplit(":", 1)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/"
        self.cut = threading.Event()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                near = self.listener.accept()[0]
            except OSError:
                return
            if self.cut.is_set():
                near.close()
                continue
            try:
                far = socket.create_connection((self.target[0], int(self.target[1])))
            except OSError:
                near.close()
                continue
            threading.Thread(target=self.carry, args=(near, far), daemon=True).start()

    def carry(self, near, far):
        with near, far:
            while True:
                for ready in select.select([near, far], [], [], 0.05)[0]:
                    if self.cut.is_set():
                        wait_for(lambda: not self.cut.is_set(), "the network is back")
                        return
                    data = ready.recv(65536)
                    if not data:
                        return
                    (far if ready is near else near).sendall(data)

    def close(self):
        self.cut.clear()
        self.listener.close()


def landscape():
    """A PNG, so that nothing is needed to make it."""
    def colour(x, y):
        band = y // 15
        is_sky = y < 90 + abs(x - 150) // 5
        return bytes((70 + band * 12, 120 + band * 6, 200 - band * 8) if is_sky else (50, 90 + band * 3, 50))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    rows = b"".join(b"\0" + b"".join(colour(x, y) for x in range(320)) for y in range(180))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 320, 180, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class Pictures(BaseHTTPRequestHandler):
    """A camera's snapshot, and its film, which ends twice and then stands still."""
    PICTURE = landscape()
    films = 0
    over = threading.Event()

    def do_GET(self):
        isFilm = self.path == "/film"
        Pictures.films += isFilm
        self.send_response(200)
        self.send_header("Content-Type", "multipart/x-mixed-replace; boundary=part" if isFilm else "image/png")
        self.end_headers()
        head = f"--part\r\nContent-Type: image/png\r\nContent-Length: {len(self.PICTURE)}\r\n\r\n".encode()
        self.wfile.write((head + self.PICTURE + b"\r\n") * 3 if isFilm else self.PICTURE)
        if isFilm and Pictures.films > 2:
            self.over.wait(DEADLINE)

    def log_message(self, *_):
        pass


class ConsoleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.end)

    def site(self, settings="", **makes):
        """A gateway with a camera of each name, {name: (driver, make, ...)}."""
        self.cameras = {}
        lines = {}
        for name, (driver, *make) in makes.items():
            camera = self.cameras[name] = Simulator(PTZSIM, *make)
            self.addCleanup(camera.end)
            lines[name] = f'driver = "{driver}"\naddress = "{camera.address}"'
        self.gate = Gate(PTZGATE, lines, settings)
        self.addCleanup(self.gate.end)

    def page(self, camera, url=None):
        page = self.browser.page((url or self.gate.url) + "#" + camera)
        self.addCleanup(lambda: self.assertEqual(page.faults, []))
        page.size(1100, 800)
        page.wait_text("#name", camera)
        return page

    def axis(self, settings=""):
        """A page with a camera that is driven by speed and tells where it is."""
        self.site(settings, gate=("Axis", "axis"))
        page = self.page("gate")
        page.click("#connect")
        page.wait_text("#said", "connect: the camera took it")
        page.place("#pad")
        return page

    def moves(self, name="gate"):
        return '"moving": true' in json.dumps(self.cameras[name].ask("state"))

    def wait_moving(self, moves, name="gate"):
        wait_for(lambda: self.moves(name) == moves, f"{name} {'moves' if moves else 'rests'}")

    def pan(self, name="gate"):
        state = self.cameras[name].ask("state")
        return (state.get("degrees") or state["heads"][0])["pan"]

    def press(self, page, place=RIGHT):
        for kind in ("Moved", "Pressed"):
            page.mouse(kind, page.place("#pad", *place))
        self.wait_moving(True)

    def test_pressed_dragged_released(self):
        page = self.axis()
        self.press(page)
        before = self.pan()
        wait_for(lambda: self.pan() > before + 45, "to the right, for longer than a lease")
        page.wait_text("#holder", "You hold it")
        page.mouse("Moved", page.place("#pad", *LEFT))
        turned = self.pan()
        wait_for(lambda: self.pan() < turned - 5, "to the left")
        self.assertTrue(self.moves())
        page.mouse("Released", page.place("#pad", *LEFT))
        self.wait_moving(False)
        page.wait_text("#said", "gate: stopped")
        self.assertNotIn("lease", json.dumps([line.get("text", "") for line in self.gate.audits()]))

    def test_whatever_ends_the_hold_stops(self):
        page = self.axis()
        for how, text in (("dispatchEvent(new Event('blur'))", "lost the focus"),
                          ("Object.defineProperty(document, 'hidden', {value: true, configurable: true});"
                           "document.dispatchEvent(new Event('visibilitychange')); delete document.hidden",
                           "was hidden"),
                          ("document.querySelector('#stop').click()", "stopped")):
            with self.subTest(how):
                self.press(page)
                page.run(how)
                self.wait_moving(False)
                page.wait_text("#said", text)
                # The finger that is still there counts for nothing until it is lifted.
                page.mouse("Moved", page.place("#pad", *LEFT))
                page.run("new Promise(requestAnimationFrame)")
                self.assertFalse(self.moves())
                page.mouse("Released", page.place("#pad", *LEFT))
        for key in (" ", "Escape"):
            self.press(page)
            page.key("Down", key)
            self.wait_moving(False)
            page.key("Up", key)
            page.mouse("Released", page.place("#pad", *RIGHT))
        self.press(page)
        page.send("Page.navigate", url="about:blank")
        self.wait_moving(False)

    def test_the_network_is_lost(self):
        self.site(gate=("Axis", "axis"))
        network = Network(self.gate.host)
        self.addCleanup(network.close)
        page = self.page("gate", network.url)
        page.click("#connect")
        page.place("#pad")
        self.press(page)
        network.cut.set()
        self.wait_moving(False)
        page.wait_text("#lost", "cameras that you drove have been stopped")
        rests = self.pan()
        page.mouse("Moved", page.place("#pad", *LEFT))
        page.mouse("Released", page.place("#pad", *LEFT))
        page.key("Down", "ArrowLeft")
        page.click("#stop")
        page.wait_text("#failed", "the stop is not confirmed")
        network.cut.clear()
        page.wait_text("#link", "connected")
        page.wait("document.querySelector('#lost').hidden")
        self.assertEqual((self.pan(), self.moves()), (rests, False))  # nothing was kept for later
        page.key("Up", "ArrowLeft")
        page.key("Down", "ArrowLeft")
        self.wait_moving(True)
        self.gate.kill()
        page.wait_text("#lost", "No connection to the gateway")
        page.key("Up", "ArrowLeft")

    def test_a_second_operator(self):
        first = self.axis()
        second = self.page("gate")
        self.press(first)
        second.wait_text("#holder", "Held by somebody")
        at = second.place("#pad", *LEFT)
        for kind in ("Moved", "Pressed", "Released"):
            second.mouse(kind, at)
        second.wait_text("#failed", "is held by")
        self.assertTrue(self.moves())  # what was refused stops nothing either
        second.click("#take")
        self.wait_moving(False)
        second.wait_text("#holder", "You hold it")
        first.wait_text("#holder", "Held by somebody")
        first.mouse("Moved", first.place("#pad", *LEFT))
        self.assertFalse(self.moves())
        second.click("#release")
        first.wait_text("#holder", "Nobody holds it")

    def test_keys_touch_and_gamepad(self):
        page = self.axis()
        page.key("Down", "ArrowRight")
        self.wait_moving(True)
        page.key("Up", "ArrowRight")
        self.wait_moving(False)
        page.write("#filter", "x")
        page.key("Down", "ArrowRight")  # of somebody who writes
        page.key("Up", "ArrowRight")
        page.size(360, 740, True)
        page.touch("Start", page.place("#pad", *RIGHT))
        self.wait_moving(True)
        page.touch("Move", page.place("#pad", *LEFT))
        page.touch("End")
        self.wait_moving(False)
        page.touch("Start", page.place("#zoom-hold button"))
        self.wait_moving(True)
        page.touch("End")
        self.wait_moving(False)
        stick = ("window.stick = [{x}, 0, 0, 0]; navigator.getGamepads = () => [{{connected: true, mapping: 'standard',"
                 "axes: window.stick, buttons: Array(17).fill({{pressed: false, value: 0}})}}];"
                 "dispatchEvent(new Event('gamepadconnected'))")
        page.run(stick.format(x=0.9))
        page.run("new Promise(requestAnimationFrame)")
        self.assertFalse(self.moves())  # a stick that was held before does not count
        for x, moves in ((0, False), (0.9, True), (0, False), (0.9, True)):
            page.run(f"window.stick[0] = {x};"
                     "new Promise((shown) => requestAnimationFrame(() => requestAnimationFrame(shown)))")
            self.wait_moving(moves)
        page.run("navigator.getGamepads = () => []")
        self.wait_moving(False)

    def test_who_may(self):
        users = "".join(f'[user.{name}]\npassword_hash = "{self.hash(name)}"\nrole = "{role}"\n'
                        for name, role in (("anna", "administrator"), ("vera", "viewer")))
        self.site(users, yard=("Elmo4", "elmo", "--model", "400"))
        page = self.browser.page(self.gate.url + "#yard")
        for password in ("wrong", "anna"):
            page.write("#login [name=user]", "anna")
            page.write("#login [name=password]", password)
            page.click("#login button")
            if password == "wrong":
                page.wait_text("#login .bad", "The user or the password is wrong.")
        page.wait_text("#name", "yard")
        page.wait("document.querySelector('#save').checkVisibility()")
        page.click("#logout")
        page.wait("document.querySelector('#login')?.open")
        page.write("#login [name=user]", "vera")
        page.write("#login [name=password]", "vera")
        page.click("#login button")
        page.wait_text("#name", "yard")
        self.assertTrue(page.run("['#take', '#save', '#connection', '#steps', '#home']"
                                 ".every((each) => !document.querySelector(each).checkVisibility())"))
        self.assertTrue(page.run("document.querySelector('#stop').disabled"))
        self.assertEqual(page.faults, [])

    def hash(self, password):
        return subprocess.run([PTZGATE, "password"], input=password + "\n", capture_output=True, text=True,
                              check=True).stdout.strip()

    def test_steps_and_presets(self):
        self.site(yard=("Elmo4", "elmo", "--model", "400"))
        page = self.page("yard")
        before = self.pan("yard")
        page.click("#move-steps .right")
        page.wait_text("#said", "yard: 5° right: arrived")
        self.assertAlmostEqual(self.pan("yard"), before + 5, delta=0.5)
        page.write("#save [name=name]", "Door")
        page.click("#save button")
        page.wait_text("#preset-list", "Door")
        page.click("#move-steps .left")
        page.wait_text("#said", "5° left: arrived")
        page.click("#preset-list li button")
        page.wait_text("#said", "go to Door: arrived")
        self.assertAlmostEqual(self.pan("yard"), before + 5, delta=0.5)

    def test_the_connection(self):
        page = self.axis()
        page.click("#connection summary")
        save, said = "#connection form button:last-child", "#connection [role=status]"
        page.write("#connection form input[inputmode=url]", "none://elsewhere")
        page.click(save)
        page.wait_text(said, "Nothing was saved: ")
        page.write("#connection form input[inputmode=url]", self.cameras["gate"].address)
        page.write("#option-ZoomStep", "5")
        page.click(save)
        page.wait_text(said, "Saved.")
        page.place("#option-ZoomStep")
        self.assertEqual(page.run("document.querySelector('#option-ZoomStep').value"), "5")
        with open(self.gate.path("cameras.toml")) as file:
            self.assertIn("ZoomStep", file.read())

    def test_pictures(self):
        server = ThreadingHTTPServer(("127.0.0.1", 0), Pictures)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.addCleanup(Pictures.over.set)
        address = f"http://127.0.0.1:{server.server_port}"
        self.site(f'[picture.gate]\nmjpeg = "{address}/film"\n[picture.yard]\nsnapshot = "{address}/"',
                  gate=("Axis", "axis"), yard=("Elmo4", "elmo", "--model", "400"), dome=("Vivotek", "vivotek"))
        page = self.page("gate")
        page.click("#connect")
        page.place("#pad")
        wait_for(lambda: Pictures.films > 2, "a film that ended is fetched again")
        for camera in ("yard", "gate"):
            page.run(f"location.hash = '{camera}'")
            page.wait_text("#name", camera)
            page.wait("document.querySelector('#picture img').naturalWidth === 320")
        for place in (RIGHT, (0.6, 0.2), LEFT):
            self.press(page, place)
            before = self.pan()
            wait_for(lambda: abs(self.pan() - before) > 25, "on its way")
            page.mouse("Released", page.place("#pad", *place))
            self.wait_moving(False)
            page.wait_text("#position", "At pan")
        self.press(page)
        page.run("scrollTo(0, 0)")
        page.wait("document.querySelector('#picture .note').hidden")
        for name, size, scheme in (("light", (1040, 760), "light"), ("dark", (820, 1180), "dark")):
            page.size(*size)
            page.colours(scheme)
            self.photograph(page, name)
        for width in (820, 1040, 1280, 1920):
            page.size(width, 760)
            self.assertTrue(page.run("['#zoom-hold', '.zoom-figure'].every((each) => {"
                                     "const inner = document.querySelector(each); return inner.getBoundingClientRect()"
                                     ".right < inner.closest('section').getBoundingClientRect().right - 8; })"), width)
            self.assertTrue(page.run("(() => { const [one, two] = ['#steering', '#where'].map((each) =>"
                                     "document.querySelector(each).getBoundingClientRect());"
                                     "return one.right <= two.left || one.bottom <= two.top; })()"), width)
        page.mouse("Released", page.place("#pad"))
        page.size(360, 740, True)
        page.click("#list-fold summary")
        page.run("document.querySelector('#steering').scrollIntoView()")
        self.photograph(page, "narrow")
        self.assertEqual(page.run("document.documentElement.scrollWidth"), 360)

    def photograph(self, page, name):
        if PICTURES:
            page.photograph(os.path.join(PICTURES, f"console-{name}.png"))


if __name__ == "__main__":
    unittest.main()
