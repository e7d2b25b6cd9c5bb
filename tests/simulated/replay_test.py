#!/usr/bin/env python3
"""What ptzctl records, ptzsim plays: recordings of ours, and one of every make made here.

Usage: replay_test.py PTZCTL PTZSIM"""

import json
import os
import socket
import subprocess
import tempfile
import unittest

from ptzctl_test import DEADLINE, ON_HTTP, PTZSIM, Camera, outcomes, ptzctl

RECORDINGS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "recordings")
MAKES = ON_HTTP | {"pelco": ["pelco"], "secubest": ["secubest"]}
OPERATIONS = ("info", "move up 2", "move-to 10 5", "zoom in", "zoom-to 2", "iris open", "focus auto", "preset save 1",
              "preset goto 1", "preset list", "home", "position", "continuous 5 0 --for 1ms", "continuous-zoom 1 --for 1ms",
              "stop")


def without_times(told, address):
    """An outcome or a line of a recording but for when, how long and where."""
    if isinstance(told, dict):
        return {key: without_times(value, address) for key, value in told.items() if key not in ("ms", "at", "date")}
    if isinstance(told, list):
        return [without_times(value, address) for value in told]
    return told.replace(address, "CAMERA") if isinstance(told, str) else told


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def file(self, name, text=None):
        path = os.path.join(self.folder, name)
        if text is not None:
            with open(path, "w") as file:
                file.write(text)
        return path

    def read(self, path, address="(none)"):
        """The recording by the numbers of its exchanges; the lines of one that nobody waited for as one."""
        with open(path) as file:
            header, *lines = map(json.loads, file)
        exchanges = {}
        for line in lines:
            exchanges.setdefault(line["number"], {}).update(line)
        return without_times([header] + [exchanges[number] for number in sorted(exchanges)], address)


def options(driver, address, login=""):
    on_line = driver == "pelco"
    feed = ("-o", "Feed=3") if driver == "quorvane" else ()
    return "--driver", driver, "--line" if on_line else "--address", login + address, *feed


class EveryMake(Folder):
    def record(self, camera, driver, name, *more):
        path = self.file(name)
        _, told = outcomes(*options(driver, camera.address), "--record", path, *more, "run", "--keep-going", *OPERATIONS)
        for outcome in told:
            del outcome["exchanges"]  # says of replies that nobody waits for what had come by then
        return without_times(told, camera.address), self.read(path, camera.address)

    def test_a_replay_cannot_be_told_from_the_camera(self):
        for driver, (make, *model) in MAKES.items():
            with self.subTest(driver):
                with Camera(*model, make=make) as camera:
                    first = self.record(camera, driver, driver)
                self.assertGreater(len(first[1]), 3)
                for more in ((), ("--lenient",), ("--speed", "recorded")):
                    with Camera(self.file(driver), *more, make="replay") as camera:
                        again = self.record(camera, driver, "again-" + driver + "".join(more))
                        self.assertEqual(camera.ask("log")["violations"], [], more)
                    self.assertEqual(camera.process.returncode, 0)
                    self.assertEqual(again, first, more)


class Ours(Folder):
    """Recordings that were made once, of simulated cameras."""

    ROWS = (  # file, driver, login, operations, results, and the pan in the end
        ("axis", "axis", "", ("position", "move right 5 --wait", "zoom in", "position"), "done done done done done", -32),
        ("sony-login", "sony", "any:other@", ("move up 5", "zoom in", "stop"), "done done done done", 15.069),
        ("secubest", "secubest", "", ("move left 1", "continuous 5 0 --for 1ms"), "done done done", None),
        ("pelco", "pelco", "", ("preset goto 3", "move right 5", "zoom in"), "done done done done", None))

    def test_they_are_driven_as_the_cameras_were(self):
        for name, driver, login, operations, results, pan in self.ROWS:
            with self.subTest(name), Camera(os.path.join(RECORDINGS, name + ".jsonl"), make="replay") as camera:
                camera_options = options(driver, camera.address, login)
                code, told = outcomes(*camera_options, "run", *operations)
                self.assertEqual((code, " ".join(o["result"] for o in told)), (0, results), told)
                self.assertEqual(told[-1].get("position", {}).get("pan"), pan)
                camera.wait_for(lambda: camera.ask("state")["next"] == "nothing more", "waited for the end")
                self.assertEqual(camera.ask("log")["violations"], [])
                if login:
                    self.assertEqual(outcomes(*options(driver, camera.address), "info")[0], 3)

    def test_strict_or_lenient(self):
        path = os.path.join(RECORDINGS, "axis.jsonl")
        with Camera(path, make="replay") as camera:
            self.assertEqual(ptzctl(*options("axis", camera.address), "move", "left", "5")[0], 1)
            (violation,) = camera.ask("log")["violations"]
            self.assertRegex(violation, r"pan=-42: expected was GET .*query=position \(line \d\)")
        self.assertEqual(camera.process.returncode, 1)
        with Camera(path, "--lenient", make="replay") as camera:
            run = outcomes(*options("axis", camera.address), "run", "move left 5", "move right 5", "position")
            self.assertEqual(run[0], 0)
            self.assertEqual(ptzctl(*options("axis", camera.address), "iris", "open")[0], 1)
            self.assertIn("nothing like it was recorded", camera.ask("log")["violations"][0])

    def test_lines_take_what_was_recorded_in_any_pieces(self):
        path = os.path.join(RECORDINGS, "secubest.jsonl")
        with open(path) as file:
            sent = [bytes.fromhex(line["request"]["hex"]) for line in map(json.loads, list(file)[1:])
                    if "hex" in line["request"]]
        for pieces, more, violations in (([b"".join(sent)], (), 0), ([m[:9] for m in sent[:1]] + [sent[0][9:]], (), 0),
                                         (sent[1:2], (), 1), (sent[::-1], ("--lenient",), 0), ([b"?" * 9], (), 1)):
            with self.subTest(pieces=pieces), Camera(path, *more, make="replay") as unit:
                host, port = unit.address.split(":")
                with socket.create_connection((host, int(port))) as connection:
                    for count, piece in enumerate(pieces):
                        connection.sendall(piece)
                    unit.wait_for(lambda: b"".join(pieces) == "".join(
                        r["raw"] for r in unit.ask("log")["requests"]).encode("latin-1"), "waited for all")
                self.assertEqual(len(unit.ask("log")["violations"]), violations)


class Failures(Folder):
    def test_they_are_played_as_they_came(self):
        for fault, failure in (("close-before-reply", "closed"), ("short-body", "broken_off"), ("bare-body", None),
                               ("reset-mid-reply=0", "reset"), ("status=503 Busy", None), ("refuse", "not_connected")):
            with self.subTest(fault):
                path = self.file(fault.replace(" ", "") + ".jsonl")
                with Camera("--fault", fault) as camera:
                    first = outcomes(*options("axis", camera.address), "--record", path, "info")
                    (_, exchange, *_) = self.read(path)
                self.assertEqual(exchange.get("failure"), failure)
                with Camera(path, make="replay") as camera:
                    again = outcomes(*options("axis", camera.address), "info")
                    self.assertEqual(camera.ask("log")["violations"], [])
                self.assertEqual((again[0], again[1][0].get("error")), (first[0], first[1][0].get("error")))

    def test_no_login_is_recorded(self):
        path = self.file("login")
        with Camera("--user", "operator", "--password", "se@cr:et") as camera:
            login = f"operator:se%40cr%3Aet@{camera.address}"
            self.assertEqual(ptzctl(*options("axis", login), "-o", "Password=se@cr:et", "--record", path, "info")[0], 0)
        with open(path) as file:
            text = file.read()
        self.assertIn('"login":true', text)
        for secret in ("operator", "se%40", "se@", "%3Aet", camera.address):
            self.assertNotIn(secret, text)

    def test_files_that_cannot_be_written(self):
        with Camera() as camera:
            taken = self.file("taken", "mine\n")
            for path, code, told in ((taken, 2, "is not written over"), (self.file("no/folder"), 2, "cannot be made: No such"),
                                     ("/dev/full", 1, "cannot be written: No space left")):
                with self.subTest(path):
                    result, _, err = ptzctl(*options("axis", camera.address), "--record", path, "connected")
                    self.assertEqual(result, code)
                    self.assertIn(told, err)
            with open(taken) as file:
                self.assertEqual(file.read(), "mine\n")

    def test_malformed_recordings(self):
        header = '{"ptzd_recording":1,"link":"http"}\n'
        request = '{"number":1,"request":{"method":"GET","target":"/"}'
        rows = (  # text, line, what is told
            ("", 1, "the file is empty"),
            ("{", 1, "column 2: this is no JSON"),
            ("[]", 1, "should be one JSON object"),
            ("{}", 1, '"ptzd_recording" is missing, which should be the number 1'),
            ('{"ptzd_recording":2}', 1, '"ptzd_recording" is 2 and should be the number 1'),
            ('{"ptzd_recording":1,"link":"usb"}', 1, '"link" is "usb" and should be one of http serial tcp'),
            (header, 1, "at least one exchange should follow"),
            (header + "\n{}", 3, '"number" is missing'),
            (header + '{"number":1}', 2, '"request" is missing'),
            (header + '{"number":1,"request":{"target":"/"}}', 2, '"method" is missing'),
            (header + '{"number":1,"request":{"method":"GET","target":"x"}}', 2, "a path that begins with /"),
            (header + request + ',"reply":{"status":20}}', 2, '"status" is 20 and should be a whole number from 100 to 999'),
            (header + request + ',"reply":{"body_hex":"F"}}', 2, '"body_hex" is "F"'),
            (header + request + ',"reply":{"headers":[["a"]]}}', 2, '"headers" is'),
            (header + request + ',"failure":"tired"}', 2, '"failure" is "tired" and should be one of broken_off'),
            (header + request + ',"ms":-1}', 2, '"ms" is -1'),
            (header + request + "}\n" + request + "}", 3, "number 1 is that of the request in line 2"),
            (header.replace("http", "tcp") + '{"number":1,"request":{}}', 2, '"hex" is missing'))
        for text, line, told in rows:
            with self.subTest(text):
                path = self.file("malformed", text)
                done = subprocess.run([*PTZSIM, "replay", path], capture_output=True, text=True, timeout=DEADLINE)
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertIn(f"{path}: line {line}: ", done.stderr)
                self.assertIn(told, done.stderr)
        for words, told in ((["replay", "/dev/zero"], "no plain file"), (["rplay", path], 'no make "rplay"'),
                            (["axis", "--log", "/no/folder"], "--log: /no/folder cannot be written")):
            done = subprocess.run([*PTZSIM, *words], capture_output=True, text=True, timeout=DEADLINE)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertIn(told, done.stderr)


if __name__ == "__main__":
    unittest.main()
