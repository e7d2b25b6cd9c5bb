#!/usr/bin/env python3
"""ptzctl looking for cameras, against ptzsim and against what is no camera.

Usage: probe_test.py PTZCTL PTZSIM [RUNNER]"""

import http.server
import json
import socket
import socketserver
import threading
import unittest

import ptzctl_test
from ptzctl_test import Camera, ON_HTTP, WINDOWS, ptzctl

# A request that moves or changes something is known by these words, which no question has.
COMMANDS = ("move", "ptz.cgi", "ptzconfig", "preset", "command=", "ope=", "set", "absctrl", "exec?", "pmem", "home",
            "reset", "continuous", "visca=8101", "nphPtzf", "nphControl", "ctrl?", "cmd=ptz", "camctrl", "joystick")
QUESTIONS = ("/rcp.xml?command=0x09A5", "/ptz/listptz.cgi", "/api/wbgetptzposition.cgi", "/cgi-bin/getinfo",
             "/control?cmd=getallposdegree")
HOME = "127.0.0.1"


def ask(*arguments):
    code, out, _ = ptzctl("--json", *arguments)
    return code, json.loads(out)


def probe(*arguments):
    code, outcome = ask("probe", *arguments)
    return code, outcome, [(make["driver"], make["verdict"]) for make in outcome["values"]["makes"]]


class Page(http.server.BaseHTTPRequestHandler):
    status, body, fields = 200, b"", {}

    def do_GET(self):
        body = self.answer()
        self.send_response(self.status)
        for name, value in self.fields.items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def answer(self):
        return self.body

    def version_string(self):
        return self.fields.get("Server", "")

    def log_message(self, *_):
        pass


def web_server(**attributes):
    server = http.server.ThreadingHTTPServer((HOME, 0), type("Handler", (Page,), attributes))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


class Dripping(socketserver.BaseRequestHandler):
    """Sends a header that never ends, a byte whenever the other side may lose its patience."""

    def handle(self):
        try:
            self.request.sendall(b"HTTP/1.1 200 OK\r\nX-Filler: ")
            while not self.server.over.wait(0.2):
                self.request.sendall(b"x")
        except OSError:
            pass


class Probe(unittest.TestCase):
    def address_of(self, server):
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f"{HOME}:{server.server_address[1]}"

    def test_every_make_is_named_first_and_nothing_moves(self):
        makes = dict(ON_HTTP, secubest=["secubest"], **({} if WINDOWS else {"pelco": ["pelco"]}))
        for name, (make, *options) in makes.items():
            with self.subTest(name), Camera(*options, make=make) as camera:
                before = camera.ask("state")
                before.pop("line", None)  # its speed is set by whoever opens it
                code, outcome, verdicts = probe(*(["--line"] if make == "pelco" else []), camera.address)
                (driver, verdict), *others = verdicts
                self.assertEqual(driver.lower(), name)
                expected = {"elmo": (0, "likely"), "secubest": (3, "possible"), "pelco": (1, "possible")}
                self.assertEqual((code, verdict), expected.get(name, (0, "proven")), outcome["text"])
                self.assertNotIn("proven", [verdict for _, verdict in others])
                self.assertNotIn("likely", [verdict for _, verdict in others])
                self.assertEqual(camera.ask("state") | before, camera.ask("state"))
                for request in camera.ask("log")["requests"]:
                    if make in ("secubest", "pelco"):
                        self.assertIn("garbage", request["target"])  # HTTP, which is no frame
                        continue
                    self.assertEqual(request["method"], "GET")
                    if not request["target"].startswith(QUESTIONS):
                        self.assertFalse([c for c in COMMANDS if c in request["target"]], request["target"])

    def test_what_any_web_server_answers_is_no_evidence(self):
        for what, attributes in {
                "no page at all": {"status": 404, "body": b"Not Found"},
                "a page for everything": {"body": b"<html><title>Network Camera</title></html>"},
                "the request in the reply": {"answer": lambda self: f"You asked for {self.path}, OK".encode()},
                "the make's shortest answer to everything": {"body": b"NG"},
                "a word within a word": {"status": 404, "fields": {"Server": "Praxis/1.0 tacticsony"}}}.items():
            with self.subTest(what):
                code, outcome, verdicts = probe(self.address_of(web_server(**attributes)))
                self.assertEqual((code, outcome["result"]), (1, "refused"))
                self.assertEqual({verdict for _, verdict in verdicts}, {"not"})

    def test_a_camera_elsewhere_is_not_asked(self):
        with Camera() as camera:
            location = f"http://{camera.address}/axis-cgi/view/param.cgi?action=list&group=root.PTZ.Support.S1"
            _, _, verdicts = probe(self.address_of(web_server(status=302, fields={"Location": location})))
            self.assertEqual(({verdict for _, verdict in verdicts}, camera.requests()), ({"not"}, []))

    def test_a_login_that_is_wanted_is_told_and_what_the_realm_says(self):
        realm = {"WWW-Authenticate": 'Basic realm="AXIS_00408C123456"'}
        code, outcome, verdicts = probe(self.address_of(web_server(status=401, fields=realm)))
        self.assertEqual((code, verdicts[0], outcome["values"]["realm"]), (0, ("Axis", "likely"), "AXIS_00408C123456"))
        self.assertEqual({verdict for _, verdict in verdicts[1:-2]}, {"possible"})
        with Camera("--user", "root", "--password", "secret") as camera:
            def logins():
                return sum("authorization" in json.dumps(r).lower() for r in camera.ask("log")["requests"])
            for login, told, first, tries in (("", "demanded", "possible", (0, 0)),
                                              ("root:wrong@", "refused", "possible", (1, 1)),  # cameras lock users out
                                              ("root:secret@", "not demanded", "proven", (2, 99))):
                with self.subTest(login):
                    _, outcome, verdicts = probe(login + camera.address)
                    self.assertEqual((outcome["values"]["login"], verdicts[0]), (told, ("Axis", first)))
                    self.assertNotIn("secret", json.dumps(outcome))
                    self.assertTrue(tries[0] <= logins() <= tries[1], logins())

    def test_a_make_that_is_said_but_whose_page_is_not_there_is_only_possible(self):
        server = web_server(status=404, fields={"Server": "Panasonic AVC Server/1.02"})
        _, _, verdicts = probe(self.address_of(server))
        self.assertEqual(verdicts[:3], [("Panasonic", "possible"), ("PanasoniciPro", "possible"), ("Axis", "not")])

    def test_nobody_silence_and_a_reply_without_an_end_are_told_in_time(self):
        with socket.create_server((HOME, 0)) as silent:
            code, outcome, verdicts = probe(f"{HOME}:{silent.getsockname()[1]}", "--time", "300ms")
            self.assertEqual((code, outcome["error"]["number"], verdicts), (3, 13104, [("Secubest", "possible")]))
            for told in ("HTTP", "TCP port", " s; 13104"):
                self.assertIn(told, outcome["text"])
            closed = silent.getsockname()
        code, outcome, verdicts = probe(f"{HOME}:{closed[1]}")
        self.assertEqual((code, outcome["error"]["number"], verdicts), (3, 13104, []))
        dripping = socketserver.ThreadingTCPServer((HOME, 0), Dripping)
        dripping.over, dripping.daemon_threads = threading.Event(), True
        self.addCleanup(dripping.over.set)
        threading.Thread(target=dripping.serve_forever, daemon=True).start()
        code, outcome, _ = probe(self.address_of(dripping), "--time", "500ms")
        self.assertEqual((code, outcome["result"]), (3, "no_connection"))


if __name__ == "__main__":
    unittest.main()
