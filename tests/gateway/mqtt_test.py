#!/usr/bin/env python3
"""ptzgate at Debian's broker, with the broker's own clients, over simulated cameras.

Usage: mqtt_test.py PTZGATE PTZSIM PTZCTL"""

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

from gate import DEADLINE, Gate, Simulator, wait_for

PTZGATE, PTZSIM, _ = [sys.argv.pop(1) for _ in range(3)]
BROKER = "/usr/sbin/mosquitto"
MAKES = {"axis": 'driver = "Axis"\naddress = "{}"', "pelco": 'driver = "Pelco"\nline = "{}"',
         "secubest": 'driver = "Secubest"\naddress = "{}"'}


class Broker:
    def __init__(self, test, lines="allow_anonymous true"):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.folder = tempfile.TemporaryDirectory()
        self.login = []
        self.file = os.path.join(self.folder.name, "mosquitto.conf")
        with open(self.file, "w", encoding="utf-8") as file:
            file.write(f"listener {self.port} 127.0.0.1\npersistence false\n{lines}\n")
        self.start()
        test.addCleanup(self.folder.cleanup)
        test.addCleanup(self.kill)

    def start(self):
        self.process = subprocess.Popen([BROKER, "-c", self.file], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_for(self.listens, "the broker listens")

    def listens(self):
        with socket.socket() as connection:
            return connection.connect_ex(("127.0.0.1", self.port)) == 0

    def kill(self):
        self.process.kill()
        self.process.wait()

    def client(self, program, *arguments):
        return [program, "-h", "localhost", "-p", str(self.port), "-q", "1", *self.login, *arguments]

    def publish(self, topic, payload="", *options):
        if isinstance(payload, dict):
            payload = json.dumps(payload)
        subprocess.run(self.client("mosquitto_pub", "-t", topic, *(["-s"] if payload else ["-n"]), *options),
                       input=payload, text=True, check=True, timeout=DEADLINE)


class Reader:
    """What is published, as mosquitto_sub tells it."""

    def __init__(self, test, broker):
        self.all = []
        self.latest = {}
        self.process = subprocess.Popen(broker.client("mosquitto_sub", "-t", "#", "-F", "%j"), text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        test.addCleanup(self.end)
        self.thread = threading.Thread(target=self._read, daemon=True)
        self.thread.start()

    def _read(self):
        for line in self.process.stdout:
            message = json.loads(line)
            self.all.append((message["topic"], message["payload"] or ""))
            self.latest[message["topic"]] = message["payload"] or ""

    def end(self):
        self.process.kill()
        self.process.wait()
        self.thread.join()
        self.process.stdout.close()

    def wait(self, topic, payload):
        wait_for(lambda: self.latest.get(topic) == payload, f"waited for {topic} {payload}")

    def state(self, camera):
        return json.loads(self.latest.get(f"ptz/{camera}/state") or "{}")

    def results(self, camera):
        return [json.loads(text) for topic, text in list(self.all) if topic == f"ptz/{camera}/result"]

    def result(self, camera, number):
        """What came of the command with that id."""
        return wait_for(lambda: next((r for r in self.results(camera) if r.get("id") == number), None),
                        f"waited for the result {number} of {camera}")


class MQTTTest(unittest.TestCase):
    def site(self, *makes, settings="", mqtt="", broker=None):
        self.broker = broker or Broker(self)
        self.cameras = {make: Simulator(PTZSIM, make) for make in makes}
        for camera in self.cameras.values():
            self.addCleanup(camera.end)
        self.lines = {make: MAKES[make].format(camera.address) for make, camera in self.cameras.items()}
        self.settings = f'{settings}\n[mqtt]\nbroker = "localhost:{self.broker.port}"\n{mqtt}'
        self.gate = Gate(PTZGATE, self.lines, self.settings)
        self.addCleanup(self.gate.end)
        self.reader = Reader(self, self.broker)
        for make in makes:
            self.reader.wait(f"ptz/{make}/available", "online")

    def send(self, camera, what, payload="", *options):
        self.broker.publish(f"ptz/{camera}/set/{what}", payload, *options)

    def moving(self, make):
        return "true" in re.findall(r'"moving": (\w+)', json.dumps(self.cameras[make].ask("state")))

    def wait_moving(self, make, moves):
        wait_for(lambda: self.moving(make) == moves, f"{make}: moving {moves}")

    def drive(self, make, number, lease=60000):
        self.send(make, "drive", {"part": {"pan": 0.2}, "lease_ms": lease, "id": number})
        self.wait_moving(make, True)


class Commands(MQTTTest):
    def test_three_makes(self):
        self.site(*MAKES)
        for make in MAKES:
            with self.subTest(make):
                self.drive(make, "drive")
                self.assertEqual(self.gate.camera(make)["holder"]["face"], "mqtt")
                self.send(make, "stop", "PRESS")
                self.wait_moving(make, False)
                self.assertEqual(self.reader.result(make, "drive")["result"], "stopped")
                self.send(make, "move", {"by": {"pan": 5, "tilt": 2}, "id": 1})
                self.assertTrue(self.reader.result(make, 1)["done"])
                wait_for(lambda: not self.moving(make), f"{make} rests")
        self.send("pelco", "save", {"preset": "7", "name": "Löwe", "id": 2})
        self.assertTrue(self.reader.result("pelco", 2)["done"])
        self.send("pelco", "move", {"by": {"pan": 4}, "id": 3})
        self.assertTrue(self.reader.result("pelco", 3)["done"])
        self.send("pelco", "go", "Löwe")
        wait_for(lambda: '"do":"go"' in self.reader.latest["ptz/pelco/result"], "the preset")
        self.assertTrue(json.loads(self.reader.latest["ptz/pelco/result"])["done"])
        self.send("axis", "save", {"preset": "7", "id": 5})
        self.assertEqual(self.reader.result("axis", 5)["why"], "unknown")
        self.send("axis", "move", {"to": {"pan": 12, "tilt": 3}, "id": 4})
        self.assertEqual(self.reader.result("axis", 4)["result"], "arrived")
        wait_for(lambda: (self.reader.state("axis")["position"] or {"pan": 0})["pan"] == 12, "the position")
        self.assertEqual(json.loads(self.reader.latest["ptz/axis/about"])["can"]["move_to"], True)
        audits = [line for line in self.gate.audits() if line["face"] == "mqtt"]
        self.assertEqual({line["from"] for line in audits}, {f"localhost:{self.broker.port}"})

    def test_a_relative_move_that_comes_twice_moves_once(self):
        self.site("axis")
        for _ in range(2):
            self.send("axis", "move", {"by": {"pan": 5}, "id": "twice"})
        results = wait_for(lambda: len(found := self.reader.results("axis")) == 2 and found, "both results")
        self.assertEqual(sorted(result["done"] for result in results), [False, True])
        self.assertEqual(len([line for line in self.gate.audits() if line["audit"].startswith("move by")]), 1)

    def test_what_cannot_be_moves_nothing_and_is_told(self):
        self.site("axis")
        before = self.cameras["axis"].ask("state")
        for what, payload, told in (
                ("drive", "", "expected a JSON object"),
                ("drive", "{", "the body is not JSON"),
                ("drive", "{" * 1000, "the body is"),
                ("drive", '{"pan": "1"}', "pan: expected a number"),
                ("drive", '{"pan": 1, "speed": 2}', "speed: there is no such member"),
                ("drive", '{"pan": 1, "lease_ms": 0}', "a lease is more than 0"),
                ("drive", '{"pan": 1e99}', "pan: expected a number"),
                ("drive", '{"pan": 1, "id": {}}', "id: expected"),
                ("drive", " " * 70000, "longer than 65536"),
                ("move", '{"to": {"pan": 1}}', "pan and tilt go together"),
                ("move", "[1]", "expected a JSON object"),
                ("zoom", "in", "expected a number"),
                ("iris", "shut", "expected one of"),
                ("go", "nowhere", "no preset nowhere"),
                ("go", "a\x01b", "expected a text"),
                ("tour", "night", "no tour night"),
                ("home", "now", "expected a JSON object, nothing, or PRESS"),
                ("hoem", "", "do you mean home?")):
            with self.subTest(payload[:40], what=what):
                self.reader.latest.pop("ptz/axis/result", None)
                self.send("axis", what, payload)
                result = json.loads(wait_for(lambda: self.reader.latest.get("ptz/axis/result"), "told"))
                self.assertEqual((result["result"], result["done"]), ("refused", False))
                self.assertIn(told, result["text"])
        self.assertEqual(self.cameras["axis"].ask("state"), before)

    def test_rights_are_those_of_the_user_it_acts_as(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        at = folder.name
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", at + "/key.pem",
                        "-out", at + "/crt.pem"], check=True, capture_output=True)
        subprocess.run(["mosquitto_passwd", "-b", "-c", at + "/users", "gate", "pass word"], check=True,
                       capture_output=True)
        broker = Broker(self, f"allow_anonymous false\npassword_file {at}/users\ncertfile {at}/crt.pem\n"
                              f"keyfile {at}/key.pem\nuser root")
        broker.login = ["-u", "gate", "-P", "pass word", "--cafile", at + "/crt.pem"]
        self.site("axis", broker=broker, settings='[user.anna]\nrole = "viewer"\n',
                  mqtt=f'user = "gate"\npassword = "pass word"\nauthorities = "{at}/crt.pem"\nacts_as = "anna"')
        self.send("axis", "home", {"id": 1})
        self.assertEqual(self.reader.result("axis", 1)["why"], "not-allowed")

    def test_who_may_drive_no_more_cannot_go_on(self):
        user = '[user.anna]\nrole = "{}"\nonvif_password = "secret"\n'
        self.site("axis", settings=user.format("operator"), mqtt='acts_as = "anna"')
        self.drive("axis", 1, 3000)
        self.gate.write(self.lines, self.settings.replace("operator", "viewer"))
        self.gate.process.send_signal(signal.SIGHUP)

        def rests():
            self.send("axis", "drive", {"part": {"pan": 0.2}, "lease_ms": 3000})
            return not self.moving("axis")

        wait_for(rests, "axis rests")


class Away(MQTTTest):
    def test_a_drive_that_nobody_renews_ends_by_its_lease(self):
        self.site("axis")
        speeds = {"part": {"pan": 0.2}, "lease_ms": 1000}
        client = subprocess.Popen(self.broker.client("mosquitto_pub", "-t", "ptz/axis/set/drive", "-l"), text=True,
                                  stdin=subprocess.PIPE)
        self.addCleanup(client.stdin.close)
        for _ in range(3):
            client.stdin.write(json.dumps(speeds) + "\n")
            client.stdin.flush()
        self.wait_moving("axis", True)
        client.kill()
        client.wait()
        self.wait_moving("axis", False)
        wait_for(lambda: "its lease ended" in self.reader.latest.get("ptz/axis/result", ""), "the end of the lease")
        # What was sent again went on, and was no other drive.
        targets = [request["target"] for request in self.cameras["axis"].ask("log")["requests"]]
        self.assertEqual(len([t for t in targets if re.search("continuouspantiltmove=[^0]", t)]), 1, targets)

    def test_cameras_stop_when_the_broker_goes_and_move_when_it_is_back(self):
        self.site("axis", "pelco", "secubest")
        for make in self.cameras:
            self.drive(make, 1)
        self.broker.kill()
        for make in self.cameras:
            self.wait_moving(make, False)
        self.broker.start()
        self.reader = Reader(self, self.broker)
        for make in self.cameras:
            self.reader.wait(f"ptz/{make}/available", "online")
            self.drive(make, 2)
            self.send(make, "stop")
            self.wait_moving(make, False)

    def test_what_the_broker_kept_is_not_obeyed(self):
        broker = Broker(self)
        broker.publish("ptz/axis/set/move", {"by": {"pan": 5}, "id": "old"}, "-r")
        broker.publish("ptz/axis/set/drive", {"pan": 5, "id": "older"}, "-r")
        reader = Reader(self, broker)
        self.site("axis", broker=broker)
        for number in ("old", "older"):
            self.assertIn("retained", reader.result("axis", number)["text"])
        self.assertEqual(self.gate.audits(), [])

    def test_the_end_is_told_and_what_is_driven_stops(self):
        for kill in (False, True):
            with self.subTest(kill=kill):
                self.site("axis")
                self.reader.wait("ptz/gateway/ptzgate/available", "online")
                self.drive("axis", 1)
                self.gate.kill() if kill else self.gate.end()
                self.reader.wait("ptz/gateway/ptzgate/available", "offline")
                if not kill:
                    self.wait_moving("axis", False)


class Site(MQTTTest):
    def configs(self):
        """What Home Assistant would find."""
        latest = dict(self.reader.latest)
        return {topic.split("/")[3]: json.loads(text) for topic, text in latest.items()
                if topic.startswith("homeassistant/") and topic.endswith("/config") and text}

    def test_home_assistant_finds_what_there_is(self):
        self.site("pelco", "axis")
        found = wait_for(lambda: {"axis__stop", "axis__pan", "pelco__link"} <= self.configs().keys() and self.configs(),
                         "discovery")
        stop = found["axis__stop"]
        self.send("axis", "move", {"by": {"pan": 1}, "id": 1})
        self.reader.result("axis", 1)
        self.drive("axis", 2)
        self.broker.publish(stop["command_topic"], stop["payload_press"])
        self.wait_moving("axis", False)
        self.assertIn("position", self.reader.state("axis"))
        for there in stop["availability"]:
            self.assertEqual(self.reader.latest[there["topic"]], "online")

        self.send("pelco", "save", {"preset": "7", "name": "door"})
        button = wait_for(lambda: self.configs().get("pelco__preset_7"), "the preset's button")
        self.assertEqual((button["name"], button["payload_press"]), ("door", "7"))
        self.send("pelco", "forget", "door")
        wait_for(lambda: "pelco__preset_7" not in self.configs(), "the preset's end")

        before = len(self.reader.all)
        self.broker.publish("homeassistant/status", "online")
        wait_for(lambda: any("axis__stop" in topic for topic, _ in self.reader.all[before:]), "told again")

        del self.lines["axis"]
        self.gate.write(self.lines, self.settings)
        self.gate.process.send_signal(signal.SIGHUP)
        wait_for(lambda: not any(name.startswith("axis_") for name in self.configs()), "axis gone")
        for what in ("state", "about", "available", "owner"):
            self.reader.wait(f"ptz/axis/{what}", "")
        # The other one left while the gateway was away.
        self.gate.end()
        self.gate = Gate(PTZGATE, {}, self.settings)
        self.addCleanup(self.gate.end)
        wait_for(lambda: not self.configs(), "pelco gone")
        self.reader.wait("ptz/pelco/owner", "")

    def test_another_prefix_leaves_nothing_behind(self):
        self.site("axis")
        wait_for(self.configs, "discovery")
        self.gate.write(self.lines, self.settings + 'prefix = "cctv"\nhome_assistant = false\n')
        self.gate.process.send_signal(signal.SIGHUP)
        self.reader.wait("cctv/axis/available", "online")
        for what in ("state", "about", "available", "owner"):
            self.reader.wait(f"ptz/axis/{what}", "")
        self.assertEqual(self.configs(), {})

    def test_a_camera_belongs_to_one_gateway(self):
        self.site("axis", "pelco", mqtt='name = "east"')
        other = Gate(PTZGATE, self.lines, self.settings.replace("east", "west"))
        self.addCleanup(other.end)
        wait_for(lambda: any("belongs to the gateway east" in line["text"] for line in other.lines if "text" in line),
                 "the warning")
        self.send("axis", "move", {"by": {"pan": 5}, "id": 1})
        self.assertTrue(self.reader.result("axis", 1)["done"])
        self.assertEqual(other.audits(), [])
        # It is the other's when the first one gives it up.
        pelco = self.lines.pop("pelco")
        self.gate.write(self.lines, self.settings)
        self.gate.process.send_signal(signal.SIGHUP)
        self.reader.wait("ptz/pelco/owner", "west")
        self.reader.wait("ptz/pelco/available", "online")
        self.send("pelco", "move", {"by": {"pan": 5}, "id": 2})
        self.assertTrue(self.reader.result("pelco", 2)["done"])
        # It is so, too, where somebody says that the first one has gone, which takes nothing when it is back.
        self.reader.wait("ptz/gateway/east/cameras", '["axis"]')
        self.gate.kill()
        self.broker.publish("ptz/axis/owner", "", "-r")
        self.reader.wait("ptz/axis/owner", "west")
        self.gate.write({"other": pelco}, self.settings)
        self.gate.start()
        self.reader.wait("ptz/other/owner", "east")
        self.assertEqual((self.reader.latest["ptz/axis/owner"], self.reader.latest["ptz/axis/available"]),
                         ("west", "online"))


if __name__ == "__main__":
    unittest.main()
