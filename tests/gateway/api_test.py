#!/usr/bin/env python3
"""The gateway's JSON over HTTP and WebSocket, and its remote system, with simulated cameras.

Usage: api_test.py PTZGATE PTZSIM PTZCTL"""

import base64
import http.client
import http.server
import itertools
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

import jsonschema
import websocket

from gate import DEADLINE, Gate, Simulator, wait_for

PTZGATE, PTZSIM, PTZCTL = [sys.argv.pop(1) for _ in range(3)]
HERE = os.path.dirname(os.path.abspath(__file__))
API = "/api/v1"
# A camera that tells where it is over HTTP, one on a serial line, and one on a TCP connection of its own.
MAKES = {"axis": 'driver = "Axis"\naddress = "{}"', "pelco": 'driver = "Pelco"\nline = "{}"',
         "secubest": 'driver = "Secubest"\naddress = "{}"'}


def hash_of(password):
    return subprocess.run([PTZGATE, "password"], input=password + "\n", capture_output=True, text=True,
                          check=True).stdout.strip()


class GateTest(unittest.TestCase):
    def site(self, *makes, settings="", **more):
        """A gateway with a camera of each make, called like it."""
        self.cameras = {make: Simulator(PTZSIM, make) for make in makes}
        for camera in self.cameras.values():
            self.addCleanup(camera.end)
        self.lines = {make: MAKES[make].format(camera.address) for make, camera in self.cameras.items()}
        gate = Gate(PTZGATE, self.lines, settings, **more)
        self.addCleanup(gate.end)
        return gate

    def rests(self, make):
        """Whether the simulated camera itself is at rest."""
        state = self.cameras[make].ask("state")
        return "true" not in re.findall(r'"moving": (\w+)', json.dumps(state))

    def reload(self, gate, settings):
        def done():
            return sum("of them new" in line.get("text", "") for line in gate.lines)
        before = done()
        gate.write(self.lines, settings)
        gate.process.send_signal(signal.SIGHUP)
        wait_for(lambda: done() > before, "it reloads")

    def socket(self, gate, **more):
        connection = websocket.create_connection(f"ws://{gate.host}{API}/socket?console", timeout=DEADLINE, **more)
        self.addCleanup(connection.close)
        self.assertIn("hello", json.loads(connection.recv()))
        return connection

    def told(self, connection, number):
        """What a WebSocket says of the message with that id."""
        while True:
            message = json.loads(connection.recv())
            if message.get("id") == number:
                return message


class Moves(GateTest):
    def test_three_makes(self):
        gate = self.site(*MAKES)
        for make in MAKES:
            with self.subTest(make):
                at = f"{API}/cameras/{make}"
                status, _, moved = gate.ask("POST", at + "/move", {"by": {"pan": 5, "tilt": 2}})
                self.assertEqual((status, moved["done"]), (200, True), moved)
                status, _, saved = gate.ask("POST", at + "/presets", {"name": f"{make}'s door"})
                if make != "secubest":  # which has no presets
                    self.assertEqual(status, 200, saved)
                    named = [p for p in gate.ask("GET", at + "/presets")[2]["presets"] if p["named"]]
                    self.assertEqual([p["name"] for p in named], [f"{make}'s door"])
                    self.assertEqual(gate.ask("POST", f"{at}/presets/{named[0]['token']}/go")[0], 200)
                else:
                    self.assertEqual(status, 501, saved)
                status, _, outcome = gate.ask("POST", at + "/drive", {"part": {"pan": 0.5}, "lease_ms": 300})
                self.assertEqual((status, outcome["result"], outcome["text"]), (200, "stopped", "its lease ended"))
                wait_for(lambda: self.rests(make), "its stop comes")  # by a line that may be slow
        axis = self.cameras["axis"].ask("state")["heads"][0]
        status, _, moved = gate.ask("POST", API + "/cameras/axis/move", {"to": {"pan": 11, "tilt": -7}})
        self.assertEqual((status, moved["result"]), (200, "arrived"))
        position = gate.camera("axis")["position"]
        self.assertEqual((position["kind"], position["pan"], position["tilt"]), ("read", 11, -7), axis)

    def test_a_drive_ends_with_whoever_began_it(self):
        gate = self.site("axis", "pelco", "secubest")
        for make in self.cameras:
            with self.subTest(make + ", HTTP"):
                link = socket.create_connection(gate.host.split(":"))
                body = b'{"part": {"pan": 1}, "lease_ms": 60000}'
                link.sendall(b"POST " + f"{API}/cameras/{make}/drive".encode() + b" HTTP/1.1\r\nHost: " +
                             gate.host.encode() + b"\r\nContent-Length: %d\r\n\r\n" % len(body) + body)
                wait_for(lambda: not self.rests(make), "moving")
                link.close()
                wait_for(lambda: self.rests(make), "at rest")
            with self.subTest(make + ", WebSocket"):
                console = self.socket(gate)
                console.send(json.dumps({"id": 1, "camera": make, "do": "drive", "part": {"pan": 1},
                                         "lease_ms": 60000}))
                self.assertTrue(self.told(console, 1)["taken"])
                wait_for(lambda: not self.rests(make), "moving")
                console.sock.close()
                wait_for(lambda: self.rests(make), "at rest")
                wait_for(lambda: gate.camera(make)["holder"] is None, "free")

    def test_the_gateway_ends_in_mid_drive(self):
        gate = self.site("axis", "pelco")
        for end in (signal.SIGTERM, signal.SIGKILL):
            with self.subTest(end.name):
                for make in self.cameras:  # it was seen at rest before
                    self.assertEqual(gate.ask("POST", f"{API}/cameras/{make}/stop")[0], 200)
                consoles = [self.socket(gate) for _ in self.cameras]
                for number, make in enumerate(self.cameras):
                    consoles[number].send(json.dumps({"id": 1, "camera": make, "do": "drive", "part": {"pan": 1},
                                                      "lease_ms": 60000}))
                    wait_for(lambda: not self.rests(make), "moving")
                gate.process.send_signal(end)
                code = gate.process.wait(DEADLINE)
                if end == signal.SIGKILL:
                    gate.start()
                else:
                    self.assertEqual(code, 0)
                for make in self.cameras:
                    wait_for(lambda: self.rests(make), f"{make} at rest")
                if end == signal.SIGTERM:
                    gate.start()

    def test_a_camera_that_goes_and_comes_back(self):
        gate = self.site("axis")
        console = self.socket(gate)
        console.send(json.dumps({"id": 1, "camera": "axis", "do": "drive", "part": {"pan": 0.04}, "lease_ms": 60000}))
        wait_for(lambda: not self.rests("axis"), "moving")
        self.cameras["axis"].say("fault refuse")
        self.cameras["axis"].ask("state")  # which is answered once that is in force
        console.send(json.dumps({"id": 2, "camera": "axis", "do": "stop"}))
        wait_for(lambda: gate.camera("axis")["stop_tries"] > 0, "a stop that is tried again")
        self.assertFalse(self.rests("axis"))
        self.cameras["axis"].say("clear")
        self.assertTrue(self.told(console, 2)["outcome"]["done"])
        self.assertTrue(self.rests("axis"))


    def test_a_silent_camera_gathers_no_wishes(self):
        gate = self.site("axis")
        console = self.socket(gate)
        self.cameras["axis"].say("fault silent")
        self.cameras["axis"].ask("state")
        for number in range(80):  # wishes of one kind would be one
            wish = {"do": "move", "by": {"pan": 1}} if number % 2 else {"do": "position"}
            console.send(json.dumps(wish | {"id": number, "camera": "axis"}))
        self.assertEqual(self.told(console, 79)["problem"]["type"], "/problems/exhausted")

    def test_a_tour(self):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write("""
[[stop]]
pan = 5
tilt = 5
pause = "10ms"
[[stop]]
pan = -5
tilt = 0
speed = 40
pause = "10ms"
""")
            file.flush()
            gate = self.site("axis", settings=f'[tour.round]\ncamera = "axis"\nfile = "{file.name}"')
            at = API + "/cameras/axis"
            self.assertEqual(gate.ask("POST", at + "/tour", {"name": "round"})[0], 200)
            for pan in (5, -5, 5, -5):
                wait_for(lambda: abs(self.cameras["axis"].ask("state")["heads"][0]["pan"] - pan) < 1, f"at {pan}")
            self.assertEqual(gate.camera("axis")["tour"], "round")
            # Whoever moves the camera ends it.
            self.assertEqual(gate.ask("POST", at + "/move", {"to": {"pan": 30, "tilt": 0}})[2]["result"], "arrived")
            self.assertIsNone(gate.camera("axis")["tour"])
            gate.ask("POST", at + "/tour", {"name": "round"})
            self.assertEqual(gate.ask("DELETE", at + "/tour")[0], 200)
            wait_for(lambda: self.rests("axis"), "at rest")
            self.assertEqual([line for line in gate.audits() if line["outcome"] == "failed"], [])


class Rights(GateTest):
    USERS = """
[groups]
doors = ["axis"]
[user.anna]
password_hash = "{0}"
role = "operator"
priority = 5
[user.bert]
password_hash = "{0}"
roles = {{ doors = "operator" }}
[user.vera]
password_hash = "{0}"
role = "viewer"
"""

    def setUp(self):
        self.users = self.USERS.format(hash_of("secret"))
        self.gate = self.site("axis", "secubest", settings=self.users)
        self.anna, self.bert, self.vera = [(name, "secret") for name in ("anna", "bert", "vera")]

    def test_who_may_do_what(self):
        for path, user, expected in [("/cameras/axis", None, 401), ("/cameras/axis", ("anna", "wrong"), 401),
                                     ("/cameras/axis", ("nobody", "secret"), 401), ("/cameras/axis", self.vera, 200),
                                     ("/cameras/secubest", self.bert, 404), ("/cameras/none", self.bert, 404)]:
            self.assertEqual(self.gate.ask("GET", API + path, user=user)[0], expected, (path, user))
        for path, body, user, expected in [
                ("/cameras/axis/move", {"by": {"pan": 1}}, self.vera, 403), ("/cameras/axis/stop", None, self.vera, 403),
                ("/cameras/axis/presets", {"name": "x"}, self.anna, 403),
                ("/cameras/axis/drive", {"pan": 1}, self.vera, 403),
                ("/cameras/secubest/move", {"by": {"pan": 1}}, self.bert, 404)]:
            status, _, problem = self.gate.ask("POST", API + path, body, user)
            self.assertEqual(status, expected, (path, user, problem))
        self.assertNotIn("pan=", self.cameras["axis"].requests())
        self.assertNotIn(b"secubest", self.gate.ask("GET", "/metrics", user=self.bert)[2])
        refused = [line for line in self.gate.audits() if line["outcome"] == "not allowed"]
        self.assertEqual({line["user"] for line in refused}, {"vera", "anna"})

    def test_one_at_a_time(self):
        at = API + "/cameras/axis"
        self.assertEqual(self.gate.ask("POST", at + "/move", {"by": {"pan": 1}}, self.bert)[0], 200)
        self.assertEqual(self.gate.ask("GET", at, user=self.vera)[2]["holder"]["user"], "bert")
        # What the one drives does not go on under the hands of another.
        bert = self.socket(self.gate, header={"Authorization": "Basic " + base64.b64encode(b"bert:secret").decode()})
        self.assertEqual(self.gate.ask("DELETE", at + "/control", user=self.bert)[0], 200)
        bert.send(json.dumps({"id": 1, "camera": "axis", "do": "drive", "part": {"pan": 0.04}, "lease_ms": 60000}))
        wait_for(lambda: not self.rests("axis"), "moving")
        self.assertEqual(self.gate.ask("POST", at + "/iris", {"level": "auto"}, self.anna)[0], 200)
        wait_for(lambda: self.rests("axis"), "at rest")
        self.assertEqual(self.gate.ask("DELETE", at + "/control", user=self.anna)[0], 200)
        self.assertEqual(self.gate.ask("POST", at + "/move", {"by": {"pan": 1}}, self.bert)[0], 200)
        # The greater priority takes it over; the lesser is told by whom it is held.
        self.assertEqual(self.gate.ask("POST", at + "/move", {"by": {"pan": 1}}, self.anna)[0], 200)
        status, _, problem = self.gate.ask("POST", at + "/move", {"by": {"pan": 1}}, self.bert)
        self.assertEqual((status, problem["type"]), (409, "/problems/held"))
        self.assertIn("anna", problem["detail"])
        self.assertEqual(self.gate.ask("PUT", at + "/control", user=self.bert)[0], 409)
        self.assertEqual(self.gate.ask("POST", at + "/stop", user=self.bert)[0], 200)
        self.assertEqual(self.gate.ask("DELETE", at + "/control", user=self.anna)[0], 200)
        self.assertEqual(self.gate.ask("POST", at + "/move", {"by": {"pan": 1}}, self.bert)[0], 200)

    def test_sessions_and_foreign_pages(self):
        status, headers, _ = self.gate.ask("POST", API + "/login", {"user": "anna", "password": "secret"})
        self.assertEqual(status, 204)
        cookie = headers["Set-Cookie"]
        self.assertTrue({"HttpOnly", "SameSite=Strict", "Path=/"} <= {part.strip() for part in cookie.split(";")})
        cookie = {"Cookie": cookie.split(";")[0]}
        self.assertEqual(self.gate.ask("GET", API + "/me", headers=cookie)[2]["user"], "anna")
        foreign = cookie | {"Origin": "http://elsewhere.example"}
        self.assertEqual(self.gate.ask("POST", API + "/cameras/axis/stop", headers=foreign)[0], 403)
        with self.assertRaises(websocket.WebSocketBadStatusException):
            self.socket(self.gate, header=cookie, origin="http://elsewhere.example")
        self.assertEqual(self.gate.ask("DELETE", API + "/login", headers=cookie)[0], 204)
        self.assertEqual(self.gate.ask("GET", API + "/me", headers=cookie)[0], 401)

    def test_a_reload_takes_rights_away_at_once(self):
        anna = self.users[self.users.index("[user.anna]"):self.users.index("[user.bert]")]
        for what, becomes, status in [
                ("demoted", anna.replace("operator", "viewer"), 200), ("removed", "", 401),
                ("password", anna.replace(re.findall('"(.argon.*)"', anna)[0], hash_of("new")), 401)]:
            with self.subTest(what):
                headers = self.gate.ask("POST", API + "/login", {"user": "anna", "password": "secret"})[1]
                cookie = {"Cookie": headers["Set-Cookie"].split(";")[0]}
                console = self.socket(self.gate, header=cookie)
                console.send(json.dumps({"id": 1, "camera": "axis", "do": "drive", "part": {"pan": 0.04},
                                         "lease_ms": 60000}))
                wait_for(lambda: not self.rests("axis"), "moving")
                self.reload(self.gate, self.users.replace(anna, becomes))
                wait_for(lambda: self.rests("axis"), "at rest")
                while console.connected:
                    console.recv()
                self.assertEqual(self.gate.ask("GET", API + "/me", headers=cookie)[0], status)
                self.reload(self.gate, self.users)

    def test_guessing_is_slowed(self):
        answers = [self.gate.ask("GET", API + "/me", user=("anna", f"guess {n}"))[0] for n in range(8)]
        self.assertEqual(answers[0], 401)
        self.assertEqual(answers[-1], 429)


class Input(GateTest):
    def test_bad_bodies(self):
        gate = self.site("axis", settings="[control]\nlongest_lease = \"60s\"")
        at = API + "/cameras/axis"
        for path, body, expected, text in [
                ("/move", "{", 422, "not JSON"), ("/move", "[]", 422, "not a JSON object"),
                ("/move", "[" * 10000, 422, "nested too deeply"), ("/move", "{}", 422, "either to or by"),
                ("/move", {"to": {"pan": 1}}, 422, "pan and tilt go together"),
                ("/move", {"to": {"pan": "1", "tilt": 2}}, 422, "to.pan: expected a number"),
                ("/move", '{"to": {"pan": 1e400, "tilt": 0}}', 422, ""),
                ("/move", '{"to": {"pan": 1e39, "tilt": 0}}', 422, "to.pan: expected a number"),
                ("/move", '{"to": {"pan": NaN, "tilt": 0}}', 422, "not JSON"),
                ("/move", {"by": {"pan": 1}, "spead": 3}, 422, "spead: there is no such member"),
                ("/iris", {"level": "wide"}, 422, "expected one of auto, open, close"),
                ("/drive", {}, 422, "there is no speed"), ("/drive", {"part": {"pan": 2}}, 422, "expected -1 to 1"),
                ("/drive", {"pan": 1, "lease_ms": 0}, 422, "a lease is"),
                ("/drive", {"pan": 1, "lease_ms": 60001}, 422, "a lease is"),
                ("/drive", {"pan": 1, "lease_ms": 1.5}, 422, "lease_ms: expected a whole number"),
                ("/presets/none/go", None, 404, "has no preset none"), ("/tour", {"name": "x"}, 404, "has no tour x"),
                ("/move", {"to": {"pan": 0, "tilt": -361}}, 422, "tilt: expected -360 to 360"),
                ("/move", {"by": {"pan": 1e6}}, 422, "pan: expected -360 to 360"), ("/presets/", {}, 404, "nothing at"),
                ("/presets", {"name": "a\nb"}, 422, "one line"), ("/presets", {"name": "\uffff"}, 422, "one line"),
                ("/presets", {"name": "x" * 65}, 422, "64 bytes"), ("/nothing", None, 404, "there is nothing at"),
                ("/presets", "x" * 100000, 413, "")]:
            with self.subTest(path=path, body=str(body)[:60]):
                status, headers, problem = gate.ask("POST", at + path, body)
                self.assertEqual(status, expected, problem)
                self.assertEqual(headers["Content-Type"], "application/problem+json")
                self.assertIn(text, problem["detail"])
        for path in (at, "/metrics", "/feedlist.xml", "/"):
            status, headers, _ = gate.ask("POST", path)
            self.assertEqual((status, headers["Allow"]), (405, "GET, HEAD"), path)
        self.assertEqual(gate.ask("GET", API + "/login")[1]["Allow"], "POST, DELETE")
        for foreign in ({"Host": "evil.example"}, {"Host": "127.0.0.1.evil.example"}, {"Sec-Fetch-Site": "cross-site"}):
            self.assertEqual(gate.ask("GET", "/ptz/control.htm?feed=axis&move=offset&pan=5", headers=foreign)[0], 403)
        console = self.socket(gate)
        deep = '{"do": "ping", "id": ' + "[" * 30000 + "]" * 30000 + "}"
        for number, message in enumerate(["{", "[]", deep, {"do": "fly", "camera": "axis"}, {"do": "stop"},
                                          {"do": "drive", "camera": "axis", "pan": "x"},
                                          {"do": "stop", "camera": "none"}, {"do": "renew", "camera": "axis"},
                                          {"do": "follow", "camera": 5}, {"do": "ping", "lease_ms": 5}]):
            console.send(message if isinstance(message, str) else json.dumps(message | {"id": number}))
            answer = json.loads(console.recv())
            while "problem" not in answer:
                self.assertNotIn("outcome", answer)
                answer = json.loads(console.recv())
        self.assertNotIn("move", self.cameras["axis"].requests())

    def test_the_description_holds(self):
        gate = self.site("axis")
        status, _, description = gate.ask("GET", "/openapi.json")
        self.assertEqual(status, 200)
        with open(os.path.join(HERE, "openapi-3.1.json"), encoding="utf-8") as file:
            jsonschema.Draft202012Validator(json.load(file)).validate(description)
        schemas = description["components"]["schemas"]
        for schema in schemas.values():
            jsonschema.Draft202012Validator.check_schema(schema)
        move = description["paths"]["/cameras/{camera}/move"]["post"]["parameters"]
        self.assertEqual([each["name"] for each in move], ["camera", "wait"])
        gate.ask("POST", API + "/cameras/axis/move?wait=done", {"by": {"pan": 1}})
        resolver = jsonschema.RefResolver.from_schema(description)
        for path, operations in description["paths"].items():
            if "get" not in operations or path in ("/events", "/socket"):
                continue
            status, _, answer = gate.ask("GET", API + path.replace("{camera}", "axis"))
            self.assertEqual(status, 200, path)
            schema = operations["get"]["responses"]["200"]["content"]["application/json"]["schema"]
            jsonschema.Draft202012Validator(schema, resolver=resolver).validate(answer)
        status, _, problem = gate.ask("POST", API + "/cameras/axis/move")
        jsonschema.Draft202012Validator(schemas["Problem"], resolver=resolver).validate(problem)


class Sites(GateTest):
    def test_many_cameras_are_listed_in_turns(self):
        names = [f"c{number:03}" for number in range(100)]
        gate = Gate(PTZGATE, {name: 'driver = "Elmo"\naddress = "127.0.0.1:1"' for name in names}, "connect = false")
        self.addCleanup(gate.end)
        url = f"ws://{gate.host}{API}/socket"
        sockets = [websocket.create_connection(url, timeout=DEADLINE) for _ in range(3)]
        events = http.client.HTTPConnection(gate.host, timeout=DEADLINE)
        events.request("GET", API + "/events")
        told = [json.loads(line[6:])["name"] for line in itertools.islice(
            (line for line in events.getresponse() if line.startswith(b"data: ")), len(names))]
        self.assertEqual(told, names)
        events.close()
        self.assertEqual([camera["name"] for camera in gate.ask("GET", API + "/cameras")[2]["cameras"]], names)
        for connection in sockets:
            hello = json.loads(connection.recv())["hello"]
            self.assertEqual([camera["name"] for camera in hello["cameras"]], names)
            self.assertIn("user", hello["me"])
            connection.close()

    def test_a_follower_is_told_what_he_shows(self):
        gate = self.site("axis", "pelco")
        self.assertEqual(gate.ask("GET", API + "/events?camera=axis&camera=gone")[0], 404)
        events = http.client.HTTPConnection(gate.host, timeout=DEADLINE)
        events.request("GET", API + "/events?camera=pelco")
        stream = (json.loads(line[6:])["name"] for line in events.getresponse() if line.startswith(b"data: "))
        live = self.socket(gate)

        def ask(number, **message):
            """What is told until the answer."""
            live.send(json.dumps(message | {"id": number}))
            told = []
            while (message := json.loads(live.recv())).get("id") != number:
                told.append(message)
            self.assertNotIn("problem", message)
            return told
        ask(1, do="follow", camera="axis", others="health")
        live.send(json.dumps({"id": 2, "do": "follow", "others": "none"}))
        self.assertEqual(self.told(live, 2)["problem"]["status"], 422)
        told = []
        for number in range(10, 20):
            told += ask(number, camera="axis", do="position") + ask(number + 10, camera="pelco", do="move", by={"pan": 1})
        others = [m["camera"] for m in told if "camera" in m and m["camera"]["name"] == "pelco"]
        shown = [[m[key] for key in ("link", "connected", "motion", "error", "tour")] + [bool(m["holder"])] for m in others]
        self.assertEqual([a for a, b in itertools.pairwise(shown) if a == b], [])
        self.assertIn("axis", [m["seen"]["camera"] for m in told if "seen" in m])
        self.assertIn("pelco", [m["camera"]["name"] for m in ask(40, do="follow") if "camera" in m])
        self.assertEqual(list(itertools.islice(stream, 2)), ["pelco", "pelco"])
        events.close()


class Pictures(GateTest):
    def test_what_a_camera_s_web_server_may_do(self):
        asked, over = [], threading.Event()

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                asked.append(self.path)
                is_film = self.path == "/film"
                self.send_response(302 if self.path == "/leads" else 200)
                self.send_header("Location", f"http://127.0.0.2:{elsewhere.server_port}/elsewhere")
                self.send_header("Content-Type", "multipart/x-mixed-replace; boundary=b" if is_film else "image/png")
                self.end_headers()
                if is_film:  # with a picture larger than what may wait for a slow viewer
                    self.wfile.write(b"--b\r\nContent-Type: image/png\r\n\r\n" + b"x" * 2000000 + b"\r\n--b\r\n")
                    over.wait(DEADLINE)

            def log_message(self, *_):
                pass

        camera, elsewhere = [http.server.ThreadingHTTPServer((host, 0), Handler) for host in ("127.0.0.1", "127.0.0.2")]
        for server in (camera, elsewhere):
            self.addCleanup(server.server_close)
            threading.Thread(target=server.serve_forever, daemon=True).start()
            self.addCleanup(server.shutdown)
        self.addCleanup(over.set)
        picture = f'[picture.axis]\nsnapshot = "http://127.0.0.1:{camera.server_port}/leads"\n'
        gate = self.site("axis", settings=picture + f'mjpeg = "http://127.0.0.1:{camera.server_port}/film"')
        at = API + "/cameras/axis"
        self.assertEqual(gate.ask("GET", at + "/snapshot")[0], 502)
        self.assertEqual(asked, ["/leads"])
        self.assertEqual(gate.ask("DELETE", at + "/presets/film")[2]["type"], "/problems/unknown")  # a preset's name
        film = socket.create_connection(gate.host.split(":"), timeout=DEADLINE)
        self.addCleanup(film.close)
        film.sendall(f"GET {at}/film HTTP/1.1\r\nHost: {gate.host}\r\n\r\n".encode())
        seen = b""
        while len(seen) < 2000000:
            seen += film.recv(1 << 20) or self.fail(f"it ends after {len(seen)} bytes")
        # A reload without the film ends it.
        self.reload(gate, picture)
        while not seen.endswith(b"\r\n0\r\n\r\n"):
            seen += film.recv(1 << 20) or self.fail("it was cut")


class Running(GateTest):
    def test_reload(self):
        gate = self.site("axis", "secubest")
        gate.ask("POST", API + "/cameras/axis/position")
        before = len(self.cameras["axis"].ask("log")["requests"])
        gate.write(self.lines | {"secubest": self.lines["secubest"] + "\ninvert_pan = true"}, "[remote]\nenabled = false")
        gate.process.send_signal(signal.SIGHUP)
        wait_for(lambda: gate.ask("GET", "/feedlist.xml")[0] == 404, "the new settings")
        self.assertEqual(len(self.cameras["axis"].ask("log")["requests"]), before)
        # A faulty file leaves everything as it is, and says where.
        gate.write(self.lines, "[remote]\nenabled = maybe")
        gate.process.send_signal(signal.SIGHUP)
        wait_for(lambda: any("gate.toml:3:11" in line.get("text", "") for line in gate.lines), "a complaint")
        self.assertEqual(gate.ask("GET", "/feedlist.xml")[0], 404)
        del self.lines["secubest"]
        gate.write(self.lines)
        gate.process.send_signal(signal.SIGHUP)
        wait_for(lambda: gate.ask("GET", API + "/cameras/secubest")[0] == 404, "one camera less")

    def test_no_door_without_users(self):
        for settings, listen, text in [("", '["0.0.0.0:0"]', "there must be users"),
                                       ("[user.x]\npassword_hash = \"plain\"", '["127.0.0.1:0"]', "password_hash")]:
            with self.assertRaisesRegex(AssertionError, text):
                Gate(PTZGATE, {}, settings, listen)

    def test_connection_page(self):
        gate = self.site("axis")
        at = API + "/cameras/axis/connection"
        options = {option["name"]: option for option in gate.ask("GET", at)[2]["options"]}
        self.assertIn("Reset", options)
        status, _, problem = gate.ask("PUT", at, {"options": {"Rest": True}})
        self.assertEqual(status, 422)
        self.assertIn("do you mean Reset", problem["detail"])
        # One whose password is nowhere would keep the gateway from starting again.
        status, _, problem = gate.ask("PUT", at, {"user": "root"})
        self.assertEqual((status, gate.ask("GET", at)[2]["user"]), (422, ""))
        self.assertEqual(problem["detail"], "password: expected one beside the user")
        status, _, problem = gate.ask("PUT", at, {"address": "root@127.0.0.1"})  # as no file can have it
        self.assertEqual((status, problem["detail"].split(":")[0]), (422, "camera axis, address"))
        self.assertEqual(subprocess.run([PTZGATE, "--config", gate.path("gate.toml"), "--check"]).returncode, 0)
        status, _, changed = gate.ask("PUT", at, {"user": "root", "password": "pass", "options": {"Reset": True}})
        self.assertEqual(status, 200, changed)
        self.assertNotIn("pass\"", json.dumps(changed))
        with open(gate.path("cameras.toml"), encoding="utf-8") as file:
            self.assertIn("Reset = true", file.read())
        self.assertEqual(gate.ask("POST", API + "/cameras/axis/stop")[0], 200)
        self.assertNotIn("pass\"", json.dumps(gate.lines))

    def test_gateways_chain(self):
        gate = self.site("axis")
        gate.ask("POST", API + "/cameras/axis/presets", {"name": "Die Tür"})
        camera = "--driver", "quorvane", "--address", gate.host, "-o", "Feed=axis"

        def ptzctl(*words):
            done = subprocess.run([PTZCTL, *camera, *words], capture_output=True, text=True, timeout=DEADLINE)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            return done.stdout

        # What somebody stopped does not go on with the next axis.
        link, turns = http.client.HTTPConnection(gate.host, timeout=DEADLINE), []
        for joystick in ("move=joystick&x=1&y=0", "zoom=joystick&level=1"):
            link.request("GET", "/ptz/control.htm?feed=axis&" + joystick)
            self.assertEqual(link.getresponse().read(), b"OK")
            turns.append(self.cameras["axis"].requests().count("continuouspantiltmove=1"))
            self.assertEqual(gate.ask("POST", API + "/cameras/axis/stop")[0], 200)
        link.close()
        self.assertEqual(turns[0], turns[1])
        wait_for(lambda: self.rests("axis"), "at rest")
        before = self.cameras["axis"].ask("state")["heads"][0]["pan"]
        ptzctl("move", "right", "7")
        wait_for(lambda: abs(self.cameras["axis"].ask("state")["heads"][0]["pan"] - before - 7) < 1, "there")
        self.assertIn("Die Tür", ptzctl("preset", "list"))
        ptzctl("continuous", "50", "0", "--for", "200ms")
        wait_for(lambda: self.rests("axis"), "at rest")
        far = Gate(PTZGATE, {"there": f'driver = "Quorvane"\naddress = "{gate.host}"\noptions = {{ Feed = "axis" }}'})
        self.addCleanup(far.end)
        far_socket = self.socket(far)
        far_socket.send(json.dumps({"id": 1, "camera": "there", "do": "drive", "part": {"pan": 1}, "lease_ms": 60000}))
        wait_for(lambda: not self.rests("axis"), "moving")
        far_socket.sock.close()
        wait_for(lambda: self.rests("axis"), "at rest, two gateways away")


if __name__ == "__main__":
    unittest.main(verbosity=2)
