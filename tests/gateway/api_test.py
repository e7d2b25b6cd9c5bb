#!/usr/bin/env python3
"""The gateway's JSON over HTTP and WebSocket, and its remote system, with simulated cameras.

Usage: api_test.py PTZGATE PTZSIM PTZCTL"""

import base64
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
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
                self.assertTrue(self.rests(make))
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
        self.gate = self.site("axis", "secubest", settings=self.USERS.format(hash_of("secret")))
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
                ("/presets", {"name": "x" * 65}, 422, "64 bytes"), ("/nothing", None, 404, "there is nothing at"),
                ("/presets", "x" * 100000, 413, "")]:
            with self.subTest(path=path, body=str(body)[:60]):
                status, headers, problem = gate.ask("POST", at + path, body)
                self.assertEqual(status, expected, problem)
                self.assertEqual(headers["Content-Type"], "application/problem+json")
                self.assertIn(text, problem["detail"])
        self.assertEqual(gate.ask("POST", at)[0], 405)
        for foreign in ({"Host": "evil.example"}, {"Host": "127.0.0.1.evil.example"}, {"Sec-Fetch-Site": "cross-site"}):
            self.assertEqual(gate.ask("GET", "/ptz/control.htm?feed=axis&move=offset&pan=5", headers=foreign)[0], 403)
        console = self.socket(gate)
        deep = '{"do": "ping", "id": ' + "[" * 30000 + "]" * 30000 + "}"
        for number, message in enumerate(["{", "[]", deep, {"do": "fly", "camera": "axis"}, {"do": "stop"},
                                          {"do": "drive", "camera": "axis", "pan": "x"},
                                          {"do": "stop", "camera": "none"}, {"do": "renew", "camera": "axis"}]):
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
        gate.ask("POST", API + "/cameras/axis/move", {"by": {"pan": 1}})
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
        status, _, changed = gate.ask("PUT", at, {"user": "root", "password": "pass", "options": {"Reset": True}})
        self.assertEqual(status, 200, changed)
        self.assertNotIn("pass\"", json.dumps(changed))
        with open(gate.path("cameras.toml"), encoding="utf-8") as file:
            self.assertIn("Reset = true", file.read())
        self.assertEqual(gate.ask("POST", API + "/cameras/axis/stop")[0], 200)
        self.assertNotIn("pass\"", json.dumps(gate.lines))

    def test_gateways_chain(self):
        gate = self.site("axis")
        gate.ask("POST", API + "/cameras/axis/presets", {"name": "The door"})
        camera = "--driver", "quorvane", "--address", gate.host, "-o", "Feed=axis"

        def ptzctl(*words):
            done = subprocess.run([PTZCTL, *camera, *words], capture_output=True, text=True, timeout=DEADLINE)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            return done.stdout

        before = self.cameras["axis"].ask("state")["heads"][0]["pan"]
        ptzctl("move", "right", "7")
        wait_for(lambda: abs(self.cameras["axis"].ask("state")["heads"][0]["pan"] - before - 7) < 1, "there")
        self.assertIn("The door", ptzctl("preset", "list"))
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
