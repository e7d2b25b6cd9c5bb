#!/usr/bin/env python3
"""`ptzctl check` against ptzsim with a fault: each faulty camera fails the check that is there for it.

Usage: check_faults_test.py PTZCTL PTZSIM"""

import http.server
import re
import threading
import unittest
import urllib.error
import urllib.request

from check_test import CHECKS, PTZ, check, side_by_side
from ptzctl_test import DEADLINE, Camera, outcomes


class Tampering(http.server.BaseHTTPRequestHandler):
    """Between driver and camera, with replies that a broken camera would give."""
    def do_GET(self):
        try:
            reply = urllib.request.urlopen(f"http://{self.server.camera}{self.path}", timeout=DEADLINE)
        except urllib.error.HTTPError as error:
            reply = error
        status, body = self.server.tamper(self.path, reply.status, reply.read().decode("latin-1"))
        if status is None:
            return
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body.encode("latin-1"))

    def log_message(self, *_):
        pass


class FaultyCamera(Camera):
    def __init__(self, tamper):
        super().__init__()
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Tampering)
        self.server.camera, self.server.tamper = self.address, tamper
        self.address = "127.0.0.1:%d" % self.server.server_address[1]
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()
        super().__exit__()


def told(pattern, text):
    """Another position, as a function of the right one."""
    return lambda path, status, body: (status, re.sub(pattern, text, body) if "query=position" in path else body)


def silent_from(request):
    """Nothing is answered any more once that was asked."""
    asked = []

    def tamper(path, status, body):
        asked.append(path)
        return (None if any(request in one for one in asked) else status), body
    return tamper


class Faults(unittest.TestCase):
    def test_each_fails_the_check_that_is_there_for_it(self):
        unstopped = "at=continuouspantiltmove=0,redirect=http://{}" + PTZ + "query=position"
        seen = iter(range(1 << 30))
        rows = (  # the camera, what it is told, its verdicts, and what the first failure says
            (lambda: Camera("--fault", "refuse"), None, "F----------", "connection was refused"),
            (lambda: Camera("--fault", "silent"), None, "F----------", "tried for 5"),
            (lambda: Camera("--user", "a", "--password", "b"), None, "pF---------", "401 Unauthorized"),
            (lambda: Camera("--head", "none"), None, "ppF--------", "does not support PTZ"),
            (Camera, "next=99,at=query=position,status=503 Busy", "ppFF-------", None),
            (lambda: FaultyCamera(told("tilt=.*", "tilt=900")), None, "pppF", "tilt 900 is not between"),
            (lambda: FaultyCamera(told("pan=.*", lambda _: f"pan={next(seen) % 90}")), None, "pppF-------", "not at rest"),
            (lambda: FaultyCamera(told("pan=(.*)", "pan=20")), None, "ppppFp", "did not move"),
            (lambda: FaultyCamera(told("pan=(.*)", lambda m: "pan=%g" % (-74.5 - float(m[1])))), None, "ppppF",
             "the axis is turned around"),
            (lambda: FaultyCamera(told("zoom=.*", "zoom=2000")), None, "ppppppF-p", "neither in nor out"),
            (lambda: FaultyCamera(silent_from("?pan=")), None, "ppppF-----F", "13104"),
            (lambda: Camera("--fault", "at=tilt=,status=503 Busy"), None, "ppppp", None),
            (lambda: Camera(make="meritlilin"), "at=goto_preset,redirect=http://{}/control?cmd=getallposdegree",
             "pppppppFppp", "leads to"),
            (Camera, unstopped, "ppppppp-F", "still moves"),
        )
        def examine(row):
            make, fault, *_ = row
            with make() as camera:
                if fault:
                    camera.say("fault " + fault.format(camera.address))
                return check(camera, "--move", "--preset", "1")

        for row, done in side_by_side(examine, rows):
            with self.subTest(row[2], text=row[3]):
                code, verdicts, texts, _ = done.result()
                self.assertEqual(code, 1, texts)
                self.assertEqual(verdicts[:len(row[2])], row[2], texts)
                if row[3]:
                    self.assertIn(row[3], texts[CHECKS[verdicts.index("F")]])

    def test_another_make_is_no_camera_of_this_one(self):
        def examine(row):
            driver, make = row
            with Camera(make=make) as camera:
                return outcomes("--driver", driver, "--address", camera.address, "check", "--move")

        rows = ("axis", "elmo"), ("bosch", "axis"), ("foscam", "axis"), ("elmo4", "panasonic")
        for row, done in side_by_side(examine, rows):
            with self.subTest(row):
                code, told = done.result()
                self.assertEqual((code, told[2]["values"]["verdict"]), (1, "failed"), told[2])
                self.assertNotIn("passed", [one["values"]["verdict"] for one in told[3:-1]])


if __name__ == "__main__":
    unittest.main()
