#!/usr/bin/env python3
"""ptzctl drive in a real terminal, read as a person reads it, against ptzsim.

Usage: drive_test.py PTZCTL PTZSIM"""

import contextlib
import fcntl
import os
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

import pyte

sys.dont_write_bytecode = True
from ptzctl_test import DEADLINE, PTZCTL, Camera, ptzctl  # noqa: E402 (takes the command line)

UP, RIGHT = b"\x1bOA", b"\x1bOC"
# Sequences that tell presses and releases apart, and that the screen's reader does not know.
KEY_PROTOCOL = re.compile(rb"\x1b\[(\?u|>\d+u|<u)")
EV_SYN, EV_KEY, EV_ABS, BTN_A, ABS_X = 0, 1, 3, 0x130, 0


def told(code, kind, modifiers=1, typed=""):
    """A key of a terminal that tells presses (1), repeats (2) and releases (3) apart."""
    return f"\x1b[{code};{modifiers}:{kind}{';' + typed if typed else ''}u".encode()


def arrow(letter, kind):
    return f"\x1b[1;1:{kind}{letter}".encode()


class Window:
    """A terminal and ptzctl in it."""

    def __init__(self, *arguments, rows=24, columns=80, tells=False):
        self.screen = pyte.Screen(columns, rows)
        self.stream = pyte.ByteStream(self.screen)
        self.tells, self.raw, self.closed = tells, b"", False
        self.end, self.terminal = os.openpty()
        self.resize(rows, columns)
        self.settings = termios.tcgetattr(self.terminal)
        self.process = subprocess.Popen(
            [*PTZCTL, *arguments], stdin=self.terminal, stdout=self.terminal, stderr=self.terminal,
            env={**os.environ, "TERM": "xterm-256color", "LC_ALL": "C.UTF-8"}, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.close()
        os.close(self.terminal)

    def close(self):
        if not self.closed:
            os.close(self.end)
        self.closed = True

    def resize(self, rows, columns):
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.screen.resize(rows, columns)

    def type(self, *keys):
        for key in keys:
            os.write(self.end, key)

    def read(self):
        while not self.closed and select.select([self.end], [], [], 0.02)[0]:
            data = os.read(self.end, 65536)
            self.raw += data
            if self.tells and b"\x1b[?u" in data:
                self.type(b"\x1b[?0u")
            self.stream.feed(KEY_PROTOCOL.sub(b"", data))

    def text(self):
        return "\n".join(line.rstrip() for line in self.screen.display).rstrip()

    def wait_for(self, condition, what, holding=b""):
        """Until it is so; a key that is held repeats meanwhile."""
        deadline = time.monotonic() + DEADLINE
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError(f"waited for {what} in vain:\n{self.text()}")
            if holding:
                self.type(holding)
            self.read()

    def wait_for_text(self, *texts, holding=b""):
        self.wait_for(lambda: all(text in self.text() for text in texts), texts, holding)

    def wait_for_ready(self):
        """What is typed while it connects is not heeded."""
        self.wait_for(lambda: "Connecting" not in self.text(), "the connection")

    def wait_for_end(self):
        self.wait_for(lambda: self.process.poll() is not None, "the end")
        self.read()
        return self.process.returncode


@contextlib.contextmanager
def driving(*arguments, make="axis", camera=(), **options):
    with Camera(*camera, make=make) as simulated:
        with Window(*simulated.options(), *arguments, "drive", **options) as window:
            window.wait_for_text("Exchanges", "tells releases" if options.get("tells") else "keyboard")
            window.wait_for_text("link up" if make != "foscam" else "link untried")
            window.wait_for_ready()
            yield simulated, window


class DriveTest(unittest.TestCase):
    def wait_until(self, window, camera, moving, holding=b""):
        window.wait_for(lambda: camera.is_moving() == moving, f"moving: {moving}", holding)

    def wait_for_request(self, window, camera, text, holding=b""):
        window.wait_for(lambda: text in camera.sent(), text, holding)

    def last_motion(self, camera):
        motions = [target for target in camera.requests() if "continuouspantilt" in target]
        return motions[-1].split("=")[-1] if motions else None

    def drive(self, window, camera):
        """Has it driven by a key that is held down."""
        window.type(arrow("A", 1))
        self.wait_until(window, camera, True)

    def quit(self, window):
        window.type(b"q")
        self.assertEqual(window.wait_for_end(), 0)


class Keys(DriveTest):
    def test_a_held_key_moves_until_it_repeats_no_more(self):
        with driving() as (camera, window):
            self.wait_until(window, camera, True, holding=UP)
            window.wait_for_text("DRIVEN", "up, by keyboard", holding=UP)
            self.wait_until(window, camera, False)
            window.wait_for_text("AT REST", "stop: the camera took it")
            self.assertEqual(self.last_motion(camera), "0,0")
            self.assertIn("continuouspantiltmove=0,50", camera.sent())
            self.quit(window)

    def test_keys_that_are_told_move_from_press_to_release(self):
        rows = (  # what is typed, what arrives for it
            ([arrow("A", 1), arrow("C", 1)], "continuouspantiltmove=50,50"),
            ([arrow("A", 3)], "continuouspantiltmove=50,0"),
            ([arrow("C", 3)], "continuouspantiltmove=0,0"),
            ([told(57421, 1)], "continuouspantiltmove=50,50"),  # page up of the number pad
            ([b" "], "continuouspantiltmove=0,0"),
            ([told(57421, 2), told(61, 1, 2, "43")], "continuouszoommove=25"),  # that key was stopped; a plus
            ([told(61, 3)], "continuouszoommove=0"),
            ([told(45, 1, 1, "45")], "continuouszoommove=-25"),
            ([told(45, 3), b"\x1b[5;1:1~", b"\x1b[5;1:1~", told(98, 1, 1, "98")], "continuouspantiltmove=-70,-70"),
            ([told(98, 3), b"\x1b[6;1:1~", arrow("A", 1)], "continuouspantiltmove=0,60"),
            ([arrow("A", 3)], "continuouspantiltmove=0,0"),
        )
        with driving(tells=True) as (camera, window):
            for typed, arrives in rows:
                with self.subTest(arrives=arrives):
                    before = len(camera.requests())
                    window.type(*typed)
                    # Repeats, which are for none of the keys, keep the keyboard from seeming dead.
                    window.wait_for(lambda: any(arrives in r for r in camera.requests()[before:]), arrives,
                                    holding=told(120, 2, 1, "120"))
            window.wait_for_text("6 of 10", "pan 30, tilt 30, zoom 6")
            self.quit(window)

    def test_presets(self):
        rows = ((b"3", "command=37"), (told(51, 1, 2, "35"), "command=36"), (b"s4", "command=38"))
        with driving(make="foscam", tells=True) as (camera, window):
            for typed, arrives in rows:
                window.type(typed)
                self.wait_for_request(window, camera, arrives)
            window.type(b"h")
            window.wait_for_text("go home: unsupported", "one speed only")
            self.quit(window)
        with driving(make="foscam") as (camera, window):
            # Which digit that is depends on the keyboard, so it is asked for.
            window.type(b"#")
            window.wait_for_text("Save as which preset?")
            window.type(b"5")
            self.wait_for_request(window, camera, "command=40")
            self.quit(window)

    def test_a_make_without_continuous_motion_moves_in_steps(self):
        with driving(make="panasonic", tells=True) as (camera, window):
            window.wait_for_text("no continuous motion", "steps of 5 degrees")
            before = camera.ask("state")
            window.type(arrow("C", 1), arrow("C", 3))
            window.wait_for_text("step right by 5 degrees")
            window.wait_for(lambda: camera.ask("state") != before, "a step")
            self.quit(window)

    def test_what_is_not_to_be_seen_is_not_driven(self):
        with driving(tells=True) as (camera, window):
            for typed in (b"\x1b[O", b"?"):  # another window is in front; the help
                self.drive(window, camera)
                window.type(typed)
                self.wait_until(window, camera, False)
                window.type(arrow("A", 3), b"\x1b[I", b" ")
            self.drive(window, camera)
            window.resize(10, 40)
            window.wait_for_text("too small", "40 x 10, needs 64 x 18", "AT REST")
            self.assertFalse(camera.is_moving())
            window.type(arrow("A", 3))
            window.resize(40, 120)
            window.wait_for_text("Position", "Exchanges", "q quit")
            self.quit(window)


class Ends(DriveTest):
    def test_the_camera_rests_and_the_terminal_is_as_it_was(self):
        rows = (  # what ends it, with its exit code
            (lambda w: w.type(b"q"), 0),
            (lambda w: w.type(told(27, 1)), 0),
            (lambda w: w.type(b"\x03"), 130),
            (lambda w: w.type(told(99, 1, 5)), 130),
            (lambda w: w.type(b"\x1a"), 148),
            (lambda w: w.type(told(122, 1, 5)), 148),
            (lambda w: w.process.send_signal(signal.SIGTERM), 143),
            (lambda w: w.process.send_signal(signal.SIGHUP), 129),
            (lambda w: w.process.send_signal(signal.SIGQUIT), 131),
            (lambda w: w.process.send_signal(signal.SIGSEGV), -signal.SIGSEGV),  # the screen crashes
            (lambda w: w.close(), 129),
        )
        for number, (end, code) in enumerate(rows):
            with self.subTest(row=number), driving(tells=True) as (camera, window):
                self.drive(window, camera)
                end(window)
                self.assertEqual(window.wait_for_end(), code)
                self.assertFalse(camera.is_moving())
                self.assertEqual(self.last_motion(camera), "0,0")
                if window.closed:
                    continue
                self.assertEqual(termios.tcgetattr(window.terminal), window.settings)
                self.assertEqual(window.raw.count(b"\x1b[>27u"), window.raw.count(b"\x1b[<u"))
                self.assertLess(window.raw.rindex(b"\x1b[<u"), window.raw.rindex(b"\x1b[?1049l"))
                self.assertLess(window.raw.rindex(b"\x1b[?1004h"), window.raw.rindex(b"\x1b[?1004l"))
                if code > 0:
                    self.assertRegex(window.text(), "interrupted; the camera (was stopped|is at rest)")

    def test_a_screen_that_hangs_lets_the_camera_stop(self):
        with driving(tells=True) as (camera, window):
            self.drive(window, camera)
            window.type(b"\x13")  # the terminal takes no more output
            window.wait_for(lambda: not camera.is_moving(), "the end of the lease", holding=arrow("A", 2))
            window.type(b"\x11", arrow("A", 3))
            window.wait_for_text("AT REST")
            self.quit(window)

    def test_without_a_terminal_or_a_camera_it_says_so(self):
        with Camera() as camera:
            for arguments, told_ in ((["drive"], "drive needs a terminal"), (["--json", "drive"], "--json")):
                code, out, err = ptzctl(*camera.options(), *arguments)
                self.assertEqual((code, told_ in out + err), (2, True), err)
            self.assertEqual(camera.requests(), [])
        with Camera("--fault", "refuse") as gone, Window(*gone.options(), "drive") as window:
            self.assertEqual(window.wait_for_end(), 3)
            self.assertIn("17001 Unable to connect", window.text())

    def test_quitting_while_it_connects(self):
        with socket.create_server(("127.0.0.1", 0)) as silent:
            for key, code in ((b"q", 0), (b"\x03", 130)):
                with self.subTest(code=code), Window("--driver", "Axis", "--address",
                                                     f"127.0.0.1:{silent.getsockname()[1]}", "drive") as window:
                    window.wait_for_text("Connecting")
                    window.type(key)
                    self.assertEqual(window.wait_for_end(), code)
                    self.assertNotIn("Unable to connect", window.text())

    def test_a_recording_that_fails_is_told_on_the_screen_and_behind_it(self):
        with driving("--record", "/dev/full") as (_, window):
            window.wait_for_text("--record /dev/full: the recording is not complete")
            window.type(b"q")
            self.assertEqual(window.wait_for_end(), 1)
            self.assertEqual(window.raw.count(b"warning: --record /dev/full"), 1)
            self.assertLess(window.raw.rindex(b"\x1b[?1049l"), window.raw.index(b"warning: --record"))


class Faults(DriveTest):
    def test_a_stop_that_is_not_taken_is_told_and_repeated(self):
        with driving(tells=True) as (camera, window):
            self.drive(window, camera)
            camera.say("fault at=continuous,status=503 Busy")
            camera.ask("state")  # so the fault is there
            window.type(arrow("A", 3))
            window.wait_for_text("STOP NOT TAKEN", "503 Busy")
            camera.say("clear")
            self.wait_until(window, camera, False)
            window.wait_for_text("AT REST", "stop: the camera took it")
            self.quit(window)

    def test_a_camera_that_is_gone_and_comes_back(self):
        with driving(tells=True) as (camera, window):
            self.drive(window, camera)
            camera.say("fault close-before-reply")
            window.wait_for_text("link lost", holding=arrow("A", 2))
            camera.say("clear")
            window.wait_for_text("link up", holding=arrow("A", 2))
            self.wait_until(window, camera, False)  # what is still held drives it no more
            self.quit(window)

    def test_a_camera_that_cannot_be_stopped_is_told_at_the_end(self):
        with driving("--stop-time", "300ms", tells=True) as (camera, window):
            self.drive(window, camera)
            camera.say("fault refuse")
            window.wait_for_text("link lost")
            window.type(b"q")
            self.assertEqual(window.wait_for_end(), 1)
            self.assertIn("the camera may still be moving", window.text())


class Gamepad(DriveTest):
    def test_sticks_and_buttons(self):
        with tempfile.TemporaryDirectory() as folder:
            pipe = os.path.join(folder, "pad")
            with self.padded(pipe) as (camera, window):
                window.wait_for_text("pad: No such file")
                os.mkfifo(pipe)
                window.wait_for(lambda: "No such file" not in window.text(), "the gamepad")

                def tell(*events):
                    for kind, code, value in (*events, (EV_SYN, 0, 0)):
                        os.write(pad, struct.pack("llHHi", 0, 0, kind, code, value))

                def expect(arrives):
                    window.wait_for(lambda: self.last_motion(camera) == arrives, arrives)

                pad = os.open(pipe, os.O_WRONLY)
                for x, arrives in ((32767, "50,0"), (-18841, "-26,0"), (3000, "0,0"), (32767, "50,0")):
                    tell((EV_ABS, ABS_X, x))  # half way is counted from the dead zone on
                    expect(arrives)
                window.wait_for_text("right, by gamepad")
                os.close(pad)  # unplugged
                expect("0,0")
                pad = os.open(pipe, os.O_WRONLY)
                tell((EV_ABS, ABS_X, -32767))
                expect("-50,0")
                tell((EV_KEY, BTN_A, 1))
                expect("0,0")
                os.close(pad)
                self.quit(window)

    @contextlib.contextmanager
    def padded(self, pipe):
        with Camera() as camera, Window(*camera.options(), "drive", "--gamepad", pipe) as window:
            window.wait_for_text("link up")
            window.wait_for_ready()
            yield camera, window


if __name__ == "__main__":
    unittest.main()
