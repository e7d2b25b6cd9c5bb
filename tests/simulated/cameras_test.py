#!/usr/bin/env python3
"""Cameras by name: ptzctl against ptzsim, with files, secrets and terminals as people have them.

Usage: cameras_test.py PTZCTL PTZSIM"""

import json
import os
import pathlib
import pty
import re
import select
import shlex
import shutil
import signal
import subprocess
import tempfile
import unittest
from unittest import mock

import ptzctl_test
from ptzctl_test import DEADLINE, PTZCTL, Camera, outcomes, paths, ptzctl, start

PASSWORD = 'p@ss:w/rd%41+" ?#&'
DOCUMENT = pathlib.Path(__file__).parents[2] / "docs/ptzctl.md"


class Person:
    """Somebody at a terminal of their own, which is ptzctl's, too."""

    def __init__(self, *arguments):
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.execv(PTZCTL[0], [*PTZCTL, *arguments])
        self.seen = ""

    def read_until(self, text):
        while text not in self.seen:
            if not select.select([self.terminal], [], [], DEADLINE)[0]:
                raise AssertionError(f"waited for {text!r}, saw {self.seen!r}")
            try:
                part = os.read(self.terminal, 65536)
            except OSError:
                part = b""
            if not part:
                raise AssertionError(f"ended before {text!r}, saw {self.seen!r}")
            self.seen += part.decode()

    def answer(self, question, line):
        self.read_until(question)
        os.write(self.terminal, line.encode())

    def end(self):
        """The exit code, and all that the terminal showed."""
        while True:
            try:
                part = os.read(self.terminal, 65536)
            except OSError:
                part = b""
            if not part:
                break
            self.seen += part.decode()
        os.close(self.terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1]), self.seen


class Named(unittest.TestCase):
    """Each test has a folder of its own with the user's settings."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.file = self.folder / "ptzd/cameras.toml"
        self.file.parent.mkdir()
        environment = mock.patch.dict(os.environ, {"XDG_CONFIG_HOME": str(self.folder)})
        environment.start()
        self.addCleanup(environment.stop)
        for name in ("PTZD_CAMERAS", "PTZD_PASSWORD"):
            os.environ.pop(name, None)

    def write(self, text, mode=0o600):
        self.file.write_text(text)
        self.file.chmod(mode)

    def gate(self, camera, *lines):
        self.write("\n".join(["# of the site", "[camera.gate]", 'driver = "Axis"', f'address = "{camera.address}"',
                              *lines, ""]))

    def secret(self, text=PASSWORD, mode=0o600):
        file = self.file.parent / "gate.secret"
        file.write_text(text + "\n")
        file.chmod(mode)
        return file


class Site(Named):
    def test_axes_and_position_are_the_sites(self):
        with Camera() as camera:
            self.gate(camera, "invert_pan = true", "invert_tilt = true")
            for operation, sent in (("move-to 10 15", "pan=-10&tilt=-15"), ("move up-left 1", "pan=-9&tilt=-16"),
                                    ("move-by 5 -3", "pan=-14&tilt=-13"),
                                    ("continuous 20 10 --leave", "continuouspantiltmove=-40,-20"), ("stop", "0,0")):
                code, told = outcomes("@gate", *operation.split())
                self.assertEqual(code, 0, told)
                self.assertIn(sent, str(paths(told[-1])), operation)
                if operation.startswith("move"):
                    camera.wait_for(lambda: not camera.is_moving(), "waited for rest")
                    position = outcomes("@gate", "position")[1][-1]["position"]
                    self.assertEqual({**told[-1]["target"], **position}, {**told[-1]["target"], "kind": "read"})
            self.assertEqual((position["pan"], position["tilt"]), (14, 13))

    def test_nothing_goes_beyond_the_limits(self):
        with Camera() as camera:
            self.gate(camera, "pan_limits = [-60, -20]", "tilt_limits = [0, 20]", "zoom_limits = [1, 8]")
            limits = "the limits of this camera"
            for operation, told in (("move-to -61 10", "pan: -61 is not between -60 and -20, " + limits),
                                    ("move right 20", "pan: -17 is not between"),
                                    ("move-by 0 -13", "tilt: -1 is not between"),
                                    ("move up-left 9 --device2", "tilt: 21 is not between"),
                                    ("zoom-to 9", "zoom: 9 is not between 1 and 8, " + limits),
                                    ("zoom in 2", "zoom: 9.25 is not between")):
                before = camera.requests()
                code, _, err = ptzctl("@gate", *operation.split())
                self.assertEqual(code, 2, err)
                self.assertIn(told, err)
                self.assertFalse([r for r in camera.requests()[len(before):] if "pan=" in r or "zoom=" in r])
            # A drive is stopped there, also before its time.
            code, _, err = ptzctl("@gate", "continuous", "50", "0", "--for", "50s")
            self.assertEqual(code, 1)
            self.assertIn("the camera came to the limit that is set for it", err)
            self.assertFalse(camera.is_moving())

    def test_presets_have_names(self):
        with Camera("--head", "relative") as camera:
            self.gate(camera, 'presets = { door = 2, "far yard" = 1 }')
            code, told = outcomes("@gate", "run", "preset goto door", 'preset save "far yard"', "preset goto 1")
            self.assertEqual(code, 0, told)
            self.assertIn("Preset%202", str(paths(told[1])))
            self.assertEqual(told[2]["text"], "Save as preset far yard (1): sent")
            before = camera.requests()
            for operations in (("preset", "goto", "dor"), ("run", "move up", "preset goto dor")):
                code, _, err = ptzctl("@gate", *operations)
                self.assertEqual(code, 2)
                self.assertIn('"dor" is not a whole number, and this camera has no such name; do you mean door?', err)
            self.assertEqual(camera.requests(), before)


class Passwords(Named):
    def setUp(self):
        super().setUp()
        self.camera = self.enter(Camera("--user", "operator", "--password", PASSWORD))

    def enter(self, camera):
        self.addCleanup(camera.__exit__)
        return camera

    def demand_masked(self, *arguments, code=0, **more):
        for extra in (["--trace"], ["--json", "--trace"]):
            ended, out, err = ptzctl(*extra, *arguments, **more)
            self.assertEqual(ended, code, err)
            for secret in (PASSWORD, "p%40ss", "p@ss", "w/rd"):
                self.assertNotIn(secret, out + err)

    def test_come_from_where_they_are_kept(self):
        secret = self.secret()
        for line in ('password_file = "gate.secret"', f'password_file = "{secret}"', 'password_env = "GATE"',
                     f"password = '{PASSWORD}'", ""):
            with self.subTest(line), mock.patch.dict(os.environ, {"GATE": PASSWORD, "PTZD_PASSWORD": PASSWORD} if
                                                     "GATE" in line else {"PTZD_PASSWORD": PASSWORD}):
                if line != "":
                    del os.environ["PTZD_PASSWORD"]
                self.gate(self.camera, 'user = "operator"', line)
                self.demand_masked("@gate", "position")
        with mock.patch.dict(os.environ, {"PTZD_PASSWORD": PASSWORD}):
            self.demand_masked("--driver", "Axis", "--address", self.camera.address, "--user", "operator", "position")
            self.demand_masked("--driver", "Axis", "--address", self.camera.address, "--user", "nobody", "position", code=3)

    def test_that_others_may_read_are_refused(self):
        requests = self.camera.requests()
        for mode, text, told in ((0o644, PASSWORD, "(mode 0644); type: chmod 600 "), (0o640, PASSWORD, "(mode 0640)"),
                                 (0o600, "", "is empty"), (0o600, "a\nb", "more than the one line")):
            secret = self.secret(text, mode)
            self.gate(self.camera, 'user = "operator"', 'password_file = "gate.secret"')
            code, _, err = ptzctl("@gate", "move", "up")
            self.assertEqual(code, 2)
            self.assertIn(told, err)
            self.assertIn(str(secret), err)
        for name, make in (("nothing", lambda path: None), ("folder", os.mkdir), ("pipe", os.mkfifo)):
            make(self.folder / name)
            self.gate(self.camera, 'user = "operator"', f'password_file = "{self.folder / name}"')
            self.assertEqual(ptzctl("@gate", "move", "up")[0], 2)
        self.gate(self.camera, 'user = "operator"', f"password = '{PASSWORD}'")
        self.file.chmod(0o644)
        code, _, err = ptzctl("@gate", "move", "up")
        self.assertEqual(code, 2)
        self.assertIn("cameras.toml:6:12: camera gate, password: no password may stand in this file", err)
        self.assertEqual(self.camera.requests(), requests)

    def test_are_asked_for_without_showing_them(self):
        self.gate(self.camera, 'user = "operator"')
        for arguments in (("@gate",), ("--driver", "Axis", "--address", self.camera.address, "--user", "operator")):
            person = Person("--trace", *arguments, "position")
            person.answer("Password of operator at ", "wrong\x15x" + "\x7f" + PASSWORD + "\r")
            code, seen = person.end()
            self.assertEqual(code, 0, seen)
            self.assertNotIn("wrong", seen)
            self.assertNotIn(PASSWORD, seen)
        for keys, expected in (("nonsense\r", 3), ("abc\x03", 128 + signal.SIGINT), ("\x04", 2)):
            person = Person("@gate", "position")
            person.answer("Password of ", keys)
            self.assertEqual(person.end()[0], expected)
        # Without a terminal nobody can be asked.
        process = subprocess.run([*PTZCTL, "@gate", "position"], stdin=subprocess.DEVNULL, capture_output=True,
                                 text=True, start_new_session=True, timeout=DEADLINE)
        self.assertEqual(process.returncode, 2)
        self.assertIn("no password for gate: there is no terminal to ask at, and PTZD_PASSWORD is not set", process.stderr)

    @unittest.skipUnless(shutil.which("gnome-keyring-daemon") and shutil.which("dbus-run-session"), "no keyring here")
    def test_are_kept_in_the_keyring(self):
        script = ('echo -n unlock | gnome-keyring-daemon --unlock --components=secrets >/dev/null; set -e; '
                  "until dbus-send --session --print-reply --dest=org.freedesktop.DBus / "
                  "org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets | grep -q true; do :; done; "
                  f'"$@" cameras; python3 -c "$ASK" "$@" add gate --driver Axis --address {self.camera.address} '
                  '--user operator --keyring; "$@" @gate position; "$@" remove gate; "$@" cameras')
        ask = ("import os, pty, sys\npid, terminal = pty.fork()\n"
               "if pid == 0: os.execv(sys.argv[1], sys.argv[1:])\n"
               "while b'Password' not in os.read(terminal, 4096): pass\n"
               "os.write(terminal, (os.environ['WORD'] + '\\n').encode())\n"
               "try:\n  while os.read(terminal, 4096): pass\nexcept OSError: pass\n"
               "sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))")
        environment = os.environ | {"ASK": ask, "WORD": PASSWORD, "HOME": str(self.folder),
                                    "XDG_DATA_HOME": str(self.folder), "XDG_RUNTIME_DIR": str(self.folder)}
        done = subprocess.run(["dbus-run-session", "--", "bash", "-c", script, "bash", *PTZCTL], env=environment,
                              capture_output=True, text=True, timeout=DEADLINE)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("pan -37, tilt 12", done.stdout)
        self.assertNotIn("camera.gate", self.file.read_text())


class Adding(Named):
    def test_keeps_what_is_in_the_file(self):
        text = '# of the site\n\n[camera.yard]  # the old one\ndriver = "Pelco"\nline = 1\n\n# the end\n'
        self.write(text, 0o644)
        self.assertEqual(ptzctl("add", "gate", "--driver", "axis", "--address", "10.0.0.5", "-o", "Port=2")[0], 0)
        added = '[camera.gate]\ndriver = "Axis"\naddress = "10.0.0.5"\noptions = { Port = 2 }\n'
        self.assertEqual(self.file.read_text(), text + "\n" + added)
        self.assertEqual(self.file.stat().st_mode & 0o777, 0o644)
        code, _, err = ptzctl("add", "GATE", "--driver", "axis", "--address", "10.0.0.6")
        self.assertEqual(code, 2)
        self.assertIn("--replace", err)
        self.assertEqual(ptzctl("add", "@gate", "--replace", "--driver", "axis", "--address", "10.0.0.6")[0], 0)
        self.assertEqual(outcomes("cameras")[1][0]["values"]["cameras"][0],
                         {"name": "gate", "driver": "Axis", "address": "10.0.0.6", "user": "", "password": "",
                          "file": str(self.file)})
        self.assertEqual(ptzctl("remove", "gate")[0], 0)
        self.assertEqual(ptzctl("remove", "yard")[0], 0)
        self.assertEqual(self.file.read_text().split(), "# of the site # the end".split())

    def test_at_the_same_time_loses_none(self):
        names = {f"camera{number}" for number in range(12)}
        adding = [start("add", name, "--driver", "axis", "--address", "10.0.0.5") for name in names]
        for process in adding:
            process.communicate(timeout=DEADLINE)
            self.assertEqual(process.returncode, 0)
        self.assertEqual({camera["name"] for camera in outcomes("cameras")[1][0]["values"]["cameras"]}, names)
        self.assertEqual([file.name for file in self.file.parent.iterdir()], [self.file.name])
        adding = [start("add", "same", "--driver", "axis", "--address", f"10.0.0.{host}") for host in range(6)]
        for process in adding:
            process.communicate(timeout=DEADLINE)
        self.assertEqual(sorted(process.returncode for process in adding), [0] + [2] * 5)

    def test_asks_for_what_is_missing(self):
        with Camera("--user", "operator", "--password", PASSWORD) as camera:
            person = Person("add", "gate")
            person.answer("Driver", "axs\n")
            person.answer("do you mean Axis?", "Axis\n")
            person.answer("Address", camera.address + "\n")
            person.answer("User", "operator\n")
            person.answer("Password of operator", PASSWORD + "\n")
            person.answer("Options", "Port=2 ZoomStep=500\n")
            code, seen = person.end()
            self.assertEqual(code, 0, seen)
            self.assertNotIn(PASSWORD, seen)
            self.assertEqual(self.file.stat().st_mode & 0o777, 0o600)
            self.assertEqual(ptzctl("@gate", "-o", "Port=1", "position")[0], 0)
            self.assertNotIn("p@ss", str(ptzctl("cameras")) + str(ptzctl("--json", "cameras")))

    def test_finds_out_the_make(self):
        with Camera("--user", "operator", "--password", PASSWORD) as camera:
            who = ["add", "gate", "--address", camera.address, "--user", "operator"]
            self.assertEqual(ptzctl(*who, "--password-file", str(self.secret()))[0], 0)
            self.assertIn('driver = "Axis"', self.file.read_text())
            text = self.file.read_text()
            process = subprocess.run([*PTZCTL, *who, "--replace"], stdin=subprocess.DEVNULL, capture_output=True,
                                     text=True, start_new_session=True, timeout=DEADLINE)
            self.assertEqual(process.returncode, 2)
            self.assertIn("--driver is missing, and could not be found out: ", process.stderr)
            self.assertEqual(self.file.read_text(), text)
            person = Person("add", "yard")
            for question, answer in (("Driver", ""), ("Address", camera.address), ("User", "operator"),
                                     ("Password", PASSWORD), ("Options", "")):
                person.answer(question, answer + "\n")
            code, seen = person.end()
            self.assertEqual(code, 0, seen)
            self.assertEqual(ptzctl("@yard", "position")[0], 0)

    def test_of_what_cannot_be_changes_nothing(self):
        self.write("", 0o644)
        os.environ["LONG"] = "p" * 128
        for arguments, told in ((["gate", "--driver", "axs", "--address", "x"], "do you mean Axis?"),
                                (["../etc", "--driver", "axis", "--address", "x"], "no name for a camera"),
                                (["a]\n[camera.b", "--driver", "axis", "--address", "x"], "no name for a camera"),
                                (["gate", "--driver", "axis", "--address", "u:p@x"], "--user tells who logs in"),
                                (["gate", "--driver", "axis", "--address", 'x"\nuser="y'], "control characters"),
                                (["gate", "--driver", "axis", "--address", "x", "--user", "a", "--password-env",
                                  "LONG"], "the password is too long"),
                                (["gate", "--driver", "axis", "--address", "x", "-o", "ZoomStep=10001"], "10000"),
                                (["gate", "--driver", "axis", "--address", "x", "-o", "Prt=1"], "do you mean Port?"),
                                (["gate", "--driver", "axis", "--address", "x", "--password-env", "A"], "--user is"),
                                (["gate", "--driver", "axis", "--address", "x", "--user", "a", "--password-file",
                                  str(self.secret(mode=0o644))], "chmod 600")):
            code, _, err = ptzctl("add", *arguments)
            self.assertEqual(code, 2, arguments)
            self.assertIn(told, err)
            self.assertEqual(self.file.read_text(), "")
        code, _, err = ptzctl("--cameras", str(self.folder / "gone.toml"), "@gate", "info")
        self.assertEqual(code, 2)
        self.assertIn("gone.toml cannot be read", err)


class Document(Named):
    def test_example_works(self):
        text = DOCUMENT.read_text().split("\n## Cameras by name\n")[1].split("\n## ")[0]
        example = re.search(r"\n    (\[camera\.gate\]\n.*?)\n\n\S", text, re.S)[1].replace("\n    ", "\n")
        commands = re.findall(r"^    ptzctl (@gate .*?)(?: +#.*)?$", text, re.M)
        self.assertGreater(len(commands), 2)
        with Camera("--head", "relative", "--user", "operator", "--password", PASSWORD) as camera:
            self.secret()
            self.write(re.sub(r'(?<=address = ")[^"]*', camera.address, example))
            for command in commands:
                with self.subTest(command):
                    code, out, err = ptzctl(*shlex.split(command))
                    self.assertEqual(code, 0, out + err)


if __name__ == "__main__":
    unittest.main()
