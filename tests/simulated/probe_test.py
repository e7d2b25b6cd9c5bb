#!/usr/bin/env python3
"""ptzctl looking for cameras, against ptzsim and against what is no camera.

Usage: probe_test.py PTZCTL PTZSIM [RUNNER]"""

import http.server
import json
import os
import socket
import socketserver
import sys
import threading
import unittest
from unittest import mock

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
        scheme = "basic" if WINDOWS else "digest"  # which Wine does not know
        with Camera("--user", "root", "--password", "secret", "--auth", scheme) as camera:
            def logins():
                return sum("authorization" in json.dumps(r).lower() for r in camera.ask("log")["requests"])
            # Cameras lock users out. On Windows the system itself goes on with a login that it knows.
            often = 20 if WINDOWS else 1
            for login, told, first, tries in (("", "demanded", "possible", (0, 0)),
                                              ("root:wrong@", "refused", "possible", (1, often)),
                                              ("root:secret@", "not demanded", "proven", (2, 999))):
                with self.subTest(login):
                    _, outcome, verdicts = probe(login + camera.address)
                    self.assertEqual((outcome["values"]["login"], verdicts[0]), (told, ("Axis", first)))
                    self.assertNotIn("secret", json.dumps(outcome))
                    self.assertTrue(tries[0] <= logins() <= tries[1], logins())
            with mock.patch.dict(os.environ, {"PTZD_PASSWORD": "secret"}):  # which need not stand on a command line
                self.assertEqual(probe("--user", "root", camera.address)[2][0], ("Axis", "proven"))

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
        with socket.socket() as closed:
            closed.bind((HOME, 0))  # nobody listens
            code, outcome, verdicts = probe(f"{HOME}:{closed.getsockname()[1]}")
            self.assertEqual((code, outcome["error"]["number"], verdicts), (3, 13104, []))
        dripping = socketserver.ThreadingTCPServer((HOME, 0), Dripping)
        dripping.over, dripping.daemon_threads = threading.Event(), True
        self.addCleanup(dripping.over.set)
        threading.Thread(target=dripping.serve_forever, daemon=True).start()
        code, outcome, _ = probe(self.address_of(dripping), "--time", "500ms")
        self.assertEqual((code, outcome["result"]), (3, "no_connection"))


class Announcer:
    """A member of the group at two ports that nobody else has, which answers whatever is asked there."""

    group = "239.255.255.250"

    def __init__(self, *answers, aloud=()):
        """`answers` go to who asks, `aloud` to all."""
        self.answers, self.aloud = answers, aloud
        self.sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
        member = socket.inet_aton(self.group) + socket.inet_aton(HOME)
        for one in self.sockets:
            one.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            one.bind((self.group, 0))
            one.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, member)
            one.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(HOME))
        self.ports = [str(one.getsockname()[1]) for one in self.sockets]

    def __enter__(self):
        self.threads = [threading.Thread(target=self.answer, args=[one]) for one in self.sockets]
        for thread in self.threads:
            thread.start()
        return self

    def __exit__(self, *_):
        for one, thread, port in zip(self.sockets, self.threads, self.ports):
            one.sendto(b"end", (self.group, int(port)))
            thread.join()
            one.close()

    def answer(self, one):
        while (message := one.recvfrom(65536)) and message[0] != b"end":
            if b"Probe>" not in message[0] and b"M-SEARCH" not in message[0]:
                continue  # said by itself
            for answer in self.answers:
                one.sendto(answer.encode("latin-1"), message[1])
            for answer in self.aloud:
                one.sendto(answer.encode("latin-1"), (self.group, one.getsockname()[1]))

    def hear(self, *options):
        """Waits for somebody's answer, of whom there is one, to what a person would ask."""
        return ask("discover", "--interface", HOME, "--ports", *self.ports, "--time", "2s", *options)


def match(name, identifier="urn:uuid:1", kind="ProbeMatch", addresses="", before=""):
    return (f'{before}<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope" xmlns="http://schemas.xmlsoap.org/'
            f'ws/2005/04/discovery"><e:Body><{kind}><EndpointReference><Address>{identifier}</Address>'
            f"</EndpointReference><Scopes>onvif://www.onvif.org/name/{name}</Scopes><XAddrs>{addresses}</XAddrs></{kind}>"
            "</e:Body></e:Envelope>")


def found(location, usn="uuid:2::upnp:rootdevice", server="Linux"):
    return f"HTTP/1.1 200 OK\r\nST: upnp:rootdevice\r\nUSN: {usn}\r\nSERVER: {server}\r\nLOCATION: {location}\r\n\r\n"


@unittest.skipIf(WINDOWS, "tried on Linux only")
class Discover(unittest.TestCase):
    address_of = Probe.address_of

    def devices(self, announcer, *options):
        code, outcome = announcer.hear(*options)
        return code, outcome["values"]["devices"], outcome

    def test_what_announces_itself_is_listed_once_with_the_drivers_that_it_names(self):
        with Announcer() as ground:
            announced = ("--announce", HOME, "--announce-ports", ",".join(ground.ports))
            with Camera(*announced, make="vivotek") as first, Camera(*announced, make="panasonic") as second:
                code, devices, _ = self.devices(ground)
            self.assertEqual(code, 0)
            told = {device["address"]: (sorted(device["found_by"]), device["name"], device["manufacturer"],
                                        device["drivers"]) for device in devices}
            both = ["ssdp", "ws-discovery"]
            self.assertEqual(told, {
                first.address: (both, "vivotek PZ7132", "vivotek", ["Vivotek"]),
                second.address: (both, "panasonic BB-HCM581A", "panasonic", ["Panasonic", "PanasoniciPro"])})

    def test_what_is_said_aloud_is_heard(self):
        with Announcer(aloud=[match("AXIS%20P5512", kind="Hello", addresses=f"http://{HOME}:81/onvif"),
                              "NOTIFY * HTTP/1.1\r\nNTS: ssdp:alive\r\nUSN: uuid:7\r\n\r\n",
                              "NOTIFY * HTTP/1.1\r\nNTS: ssdp:byebye\r\nUSN: uuid:8\r\n\r\n"]) as announcer:
            code, devices, _ = self.devices(announcer)
        self.assertEqual((code, sorted((d["address"], *d["found_by"], d["name"]) for d in devices)),
                         (0, [(HOME, "notify", ""), (f"{HOME}:81", "hello", "AXIS P5512")]))

    def test_nothing_found_and_what_cannot_be_asked_is_told(self):
        with Announcer() as announcer:
            code, devices, outcome = self.devices(announcer)
            self.assertEqual((code, devices), (3, []))
            self.assertIn(HOME, outcome["text"])
        code, _, err = ptzctl("discover", "--interface", "nowhere0")
        self.assertEqual(code, 2)
        self.assertIn('"nowhere0"', err)

    def test_hostile_packets_do_no_harm(self):
        class Tempting(Page):
            asked = []

            def answer(self):
                Tempting.asked.append(self.path)
                return b"<root><device><friendlyName>Elsewhere</friendlyName></device></root>"

        elsewhere = http.server.ThreadingHTTPServer(("127.0.0.2", 0), Tempting)
        threading.Thread(target=elsewhere.serve_forever, daemon=True).start()
        there = self.address_of(elsewhere).replace(HOME, "127.0.0.2")
        large = self.address_of(web_server(body=b"<root>" + b"<friendlyName>Big</friendlyName>" * 99999))
        sent_on = self.address_of(web_server(status=302, fields={"Location": f"http://{there}/sent-on"}))
        entity = '<!DOCTYPE a [<!ENTITY b "bbbb"><!ENTITY c SYSTEM "http://' + there + '/entity">]>'
        with Announcer(match("Bomb", before=entity), match("&c;"), "<a>" * 9999, "\x00" * 60000, "", "HTTP/1.1 200 OK",
                       match("x" * 50000, "urn:uuid:3"), match("Sony%1B%5B2J%0D%0A", "urn:uuid:4"), match("\x9b", "urn:uuid:10"),
                       found(f"http://{there}/description"), found(f"http://{large}/", "uuid:5"),
                       found(f"http://{sent_on}/", "uuid:6"), found("file:///etc/passwd", "uuid:9", "a\x1b[2Jb")) as hostile:
            code, devices, outcome = self.devices(hostile)
            _, text, err = ptzctl("discover", "--interface", HOME, "--ports", *hostile.ports, "--time", "1s")
        self.assertEqual((code, outcome["result"]), (0, "done"))
        self.assertEqual(Tempting.asked, [])
        names = {device["evidence"]["identifier"]: device["name"] for device in devices}
        self.assertEqual(set(names), {"urn:uuid:3", "urn:uuid:4", "uuid:2::upnp:rootdevice", "uuid:5", "uuid:6", "uuid:9"})
        self.assertLessEqual(max(map(len, names.values())), 256)
        self.assertNotIn("Elsewhere", json.dumps(outcome))
        self.assertRegex(text, r"\A[\n -~]*\Z")
        self.assertNotIn("\x1b", err)

    def test_a_flood_ends_in_time_and_is_told(self):
        flood = [match("AXIS", f"urn:uuid:{number}") for number in range(3000)]
        with Announcer(*flood) as announcer:
            code, devices, outcome = self.devices(announcer)
        self.assertEqual(code, 0)
        self.assertLessEqual(len(devices), 256)
        self.assertIn("more was sent than is listened to", "".join(outcome["notes"]))


if __name__ == "__main__":
    if WINDOWS and (code := ptzctl("drivers")[0]):
        sys.exit(code)
    unittest.main()
