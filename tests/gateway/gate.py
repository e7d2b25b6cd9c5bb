"""ptzgate with simulated cameras, as its tests use them."""

import base64
import http.client
import json
import os
import signal
import subprocess
import tempfile
import threading
import time

DEADLINE = 60  # seconds; far more than anything here takes


def wait_for(condition, what):
    deadline = time.monotonic() + DEADLINE
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(what + " in vain")
        time.sleep(0.01)
    return value


class Simulator:
    """ptzsim as a camera."""

    def __init__(self, ptzsim, make, *options):
        self.process = subprocess.Popen([ptzsim, make, "--until-eof", *options], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()
        self.lock = threading.Lock()

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def ask(self, what):
        with self.lock:
            self.say(what)
            text = ""
            for line in self.process.stdout:
                text += line
                if line == "}\n":
                    return json.loads(text)
        raise AssertionError("ptzsim ended")

    def requests(self):
        """What came in, as text."""
        return json.dumps(self.ask("log"))

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        if self.process.poll() is None:
            self.process.communicate(timeout=DEADLINE)
        self.process.stdout.close()


class Gate:
    """ptzgate over cameras {name: TOML lines}, with the lines of a gate.toml. Ends with what it runs. `before`: the
    words of a command that starts it; `descriptors`: those that it inherits."""

    def __init__(self, ptzgate, cameras, settings="", listen='["127.0.0.1:0"]', state=None, before=(), environment=None,
                 descriptors=()):
        self.command = [*before, ptzgate]
        self.popen = {"env": os.environ | (environment or {}), "pass_fds": descriptors}
        self.folder = tempfile.TemporaryDirectory()
        self.state = state or os.path.join(self.folder.name, "state")
        self.write(cameras, settings, listen)
        self.start()

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def write(self, cameras, settings="", listen='["127.0.0.1:0"]'):
        with open(self.path("cameras.toml"), "w", opener=lambda p, f: os.open(p, f, 0o600)) as file:
            for name, lines in cameras.items():
                file.write(f"[camera.{name}]\n{lines}\n")
        with open(self.path("gate.toml"), "w", opener=lambda p, f: os.open(p, f, 0o600)) as file:
            file.write(f'cameras = "cameras.toml"\n{settings}\n[http]\nlisten = {listen}\n')

    def start(self):
        self.lines = []
        self.process = subprocess.Popen([*self.command, "--config", self.path("gate.toml"), "--state", self.state],
                                        stderr=subprocess.PIPE, text=True, **self.popen)
        self.reader = threading.Thread(target=self._read, args=(self.process.stderr,), daemon=True)
        self.reader.start()
        self.url = wait_for(lambda: self.process.poll() is not None or self.said("address"), "ptzgate listens")
        if self.process.poll() is not None:
            self.reader.join(DEADLINE)
            self.folder.cleanup()
            raise AssertionError(f"ptzgate ended: {self.lines}")
        self.host = self.url.split("/")[2]

    def _read(self, stream):
        lines = self.lines
        with stream:
            for line in stream:
                try:
                    lines.append(json.loads(line))
                except json.JSONDecodeError:
                    lines.append({"text": line})

    def said(self, key):
        return next((line[key] for line in reversed(self.lines) if key in line), None)

    def audits(self):
        return [line for line in self.lines if "audit" in line]

    def ask(self, method, path, body=None, user=None, headers=None):
        """The status, the headers and the body, which is JSON where that is said of it."""
        connection = http.client.HTTPConnection(self.host, timeout=DEADLINE)
        headers = dict(headers or {})
        if user:
            headers["Authorization"] = "Basic " + base64.b64encode(":".join(user).encode()).decode()
        if isinstance(body, (dict, list)):
            body = json.dumps(body)
        connection.request(method, path, body, headers)
        reply = connection.getresponse()
        content = reply.read()
        connection.close()
        if "json" in (reply.getheader("Content-Type") or ""):
            content = json.loads(content)
        return reply.status, reply.headers, content

    def camera(self, name, user=None):
        return self.ask("GET", f"/api/v1/cameras/{name}", user=user)[2]

    def kill(self):
        """As a crash, or somebody without patience."""
        self.process.kill()
        self.process.wait()

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(DEADLINE)
        self.reader.join(DEADLINE)
        self.folder.cleanup()
        return code
