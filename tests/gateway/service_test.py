#!/usr/bin/env python3
"""The gateway as a service: what it tells its supervisor, sockets from it, listening elsewhere after a reload, and
what monitoring reads, with the board of docs/grafana.json.

Usage: service_test.py PTZGATE PTZSIM PTZCTL"""

import http.client
import json
import os
import re
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import unittest

from prometheus_client.parser import text_string_to_metric_families

from gate import DEADLINE, Gate, Simulator, wait_for

PTZGATE, PTZSIM, _ = [sys.argv.pop(1) for _ in range(3)]
BOARD = os.path.join(os.path.dirname(__file__), "../../docs/grafana.json")


def free_port():
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return free.getsockname()[1]


def certificate(gate, name):
    """A new key and certificate in place of those of the gateway."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-days", "2", "-subj", f"/CN={name}", "-keyout", gate.path("gate.key"), "-out", gate.path("gate.crt")],
                   check=True, capture_output=True)


def healthy(connection):
    connection.request("GET", "/healthz")
    return connection.getresponse().read() == b"ok\n"


class Service(unittest.TestCase):
    def gate(self, *arguments, **named):
        gate = Gate(PTZGATE, *arguments, **named)
        self.addCleanup(gate.end)
        return gate

    def connect(self, port, secure=False):
        """A connection that stays; for TLS without asking who it is."""
        connection = (http.client.HTTPSConnection("127.0.0.1", port, timeout=DEADLINE,
                                                  context=ssl._create_unverified_context())
                      if secure else http.client.HTTPConnection("127.0.0.1", port, timeout=DEADLINE))
        self.addCleanup(connection.close)
        connection.connect()
        return connection

    def reload(self, gate, text):
        """Until it says so."""
        before = len(gate.lines)
        gate.process.send_signal(signal.SIGHUP)
        return wait_for(lambda: next((line for line in gate.lines[before:] if text in line["text"]), None), text)

    def test_listens_elsewhere_after_a_reload(self):
        one, two, three = free_port(), free_port(), free_port()
        gate = self.gate({"a": 'driver = "Axis"\naddress = "127.0.0.1:9"'}, "[onvif.ports]\na = \"127.0.0.1:%d\"" % two,
                         f'["127.0.0.1:{one}"]')
        cameras = {name: 'driver = "Axis"\naddress = "127.0.0.1:9"' for name in "ab"}
        kept = self.connect(one)
        self.assertTrue(healthy(kept))
        # A port goes from one camera to another, and the gateway's own from one address to all of them.
        gate.write(cameras, "[user.x]\n[onvif.ports]\nb = \"127.0.0.1:%d\"" % two, f'["0.0.0.0:{one}", "127.0.0.1:{three}"]')
        self.assertEqual(self.reload(gate, "no longer listening")["address"], f"http://127.0.0.1:{one}/")
        wait_for(lambda: gate.said("camera") == "b", "the port is b's")
        for connection in (kept, self.connect(one), self.connect(three)):
            self.assertTrue(healthy(connection))
        # What is taken cannot be had, so everything stays: also the users, who are wanted where it still listens.
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            gate.write(cameras, "", f'["127.0.0.1:{three}", "127.0.0.1:{port}"]')
            self.reload(gate, f"nothing was taken over: cannot listen on 127.0.0.1 port {port}: Address already in use")
        self.assertTrue(healthy(self.connect(one)))
        self.assertEqual(gate.ask("GET", "/metrics")[0], 401)
        self.connect(two)
        gate.write(cameras, "[onvif]\nenabled = false", f'["127.0.0.1:{three}"]')
        self.reload(gate, "no longer listening")
        wait_for(lambda: gate.process.poll() is None and healthy(kept), "the old connection goes on")
        for port in (one, two):
            with self.assertRaises(ConnectionRefusedError):
                self.connect(port)

    def test_certificates_after_a_reload(self):
        port = free_port()
        listen = f'["127.0.0.1:{port}"]'
        gate = self.gate({}, listen=listen)
        files = '\ncertificate = "gate.crt"\nkey = "gate.key"'

        def name():
            der = self.connect(port, True).sock.getpeercert(True)
            said = subprocess.run(["openssl", "x509", "-inform", "der", "-noout", "-subject"], input=der,
                                  capture_output=True, check=True).stdout.decode()
            return said.split("=")[-1].strip()

        certificate(gate, "first")
        gate.write({}, listen=listen + files)
        self.assertEqual(self.reload(gate, "listening")["address"][:5], "http:")
        wait_for(lambda: gate.said("address").startswith("https:"), "it speaks TLS")
        self.assertEqual(name(), "first")
        kept = self.connect(port, True)
        certificate(gate, "second")
        gate.process.send_signal(signal.SIGHUP)
        wait_for(lambda: name() == "second", "the new certificate")
        with open(gate.path("gate.key"), "w", encoding="utf-8") as key:
            key.write("half a key")
        self.reload(gate, "nothing was taken over: " + gate.path("gate.key"))
        self.assertEqual(name(), "second")
        self.assertTrue(healthy(kept))

    def test_supervisor(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        supervisor = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(supervisor.close)
        supervisor.bind(os.path.join(folder.name, "notify"))
        supervisor.settimeout(DEADLINE)

        def told(text):
            while text not in (said := supervisor.recv(65536).decode()):
                pass
            return said

        inherited = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(inherited.close)
        port = inherited.getsockname()[1]
        environment = {"NOTIFY_SOCKET": os.path.join(folder.name, "notify"), "WATCHDOG_USEC": "30000000"}
        start = [sys.executable, "-c", "import os, sys\n"
                 f"os.dup2({inherited.fileno()}, 3)\n"
                 "os.environ.update(LISTEN_FDS='1', LISTEN_PID=str(os.getpid()))\n"
                 "os.execv(sys.argv[1], sys.argv[1:])"]
        # The supervisor's socket is in place of this address, which nobody could have.
        gate = self.gate({}, listen='["127.0.0.1:1"]', before=start, environment=environment,
                         descriptors=[inherited.fileno()])
        self.assertEqual(gate.url, f"http://127.0.0.1:{port}/")
        for text in ("WATCHDOG=1", "READY=1"):
            told(text)
        self.assertTrue(healthy(self.connect(port)))
        gate.process.send_signal(signal.SIGHUP)
        self.assertRegex(told("RELOADING=1"), r"^RELOADING=1\nMONOTONIC_USEC=\d+$")
        told("READY=1")
        gate.write({}, "[remote]\nenabled = maybe")
        gate.process.send_signal(signal.SIGHUP)
        self.assertIn("gate.toml:3:11", told("STATUS="))
        gate.process.send_signal(signal.SIGTERM)
        told("STOPPING=1")
        self.assertEqual(gate.process.wait(DEADLINE), 0)

    def test_monitoring(self):
        simulator = Simulator(PTZSIM, "axis")
        self.addCleanup(simulator.end)
        gate = self.gate({"axis": f'driver = "Axis"\naddress = "{simulator.address}"'},
                         f'[mqtt]\nbroker = "127.0.0.1:{free_port()}"')
        gate.ask("POST", "/api/v1/cameras/axis/stop")
        self.assertEqual(gate.ask("GET", "/healthz")[::2], (200, b"ok\nbroker away\n"))
        text = gate.ask("GET", "/metrics")[2].decode()
        labels, values = {}, {}
        for family in text_string_to_metric_families(text):
            self.assertTrue(family.documentation, family.name)
            self.assertNotEqual(family.type, "unknown", family.name)
            for sample in family.samples:
                labels[sample.name] = set(sample.labels)
                values[sample.name, *sample.labels.values()] = sample.value
        self.assertEqual(values["ptzgate_camera_up", "axis", "QVPTZ.Axis"], 1)
        self.assertEqual(values["ptzgate_stop_seconds_count",], 1)
        self.assertEqual(values["ptzgate_broker_connected",], 0)
        self.assertGreaterEqual(values["ptzgate_connections",], 1)

        # The board asks for nothing else than there is.
        with open(BOARD, encoding="utf-8") as file:
            board = json.load(file)
        queries = [target["expr"] for panel in board["panels"] for target in panel.get("targets", [])]
        queries += [variable["query"] for variable in board["templating"]["list"] if variable["type"] == "query"]
        asked = set()
        for query in queries:
            metrics = re.findall(r"(ptzgate_\w+)(?:\{([^}]*)\})?", query)
            self.assertTrue(metrics, query)
            for metric, matchers in metrics:
                self.assertIn(metric, labels, query)
                asked.add(metric)
                wanted = set(re.findall(r"(\w+)\s*[=!]", matchers))
                for group in re.findall(r"by \(([^)]*)\)", query):
                    wanted |= {label.strip() for label in group.split(",")}
                self.assertLessEqual(wanted - {"job", "instance"}, labels[metric], query)
        self.assertEqual({name for name in labels if not name.endswith(("_count", "_sum"))} - asked, set())


if __name__ == "__main__":
    unittest.main(verbosity=2)
