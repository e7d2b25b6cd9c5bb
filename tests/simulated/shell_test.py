#!/usr/bin/env python3
"""ptzctl's shell at a terminal, and its completion in bash and zsh, as somebody types there.

Usage: shell_test.py PTZCTL PTZSIM"""

import os
import shutil
import signal
import tempfile
import unittest

import pexpect

from ptzctl_test import DEADLINE, PTZCTL, Camera

PROMPT = "ptzctl> "


class AtTerminal(unittest.TestCase):
    def setUp(self):
        self.home = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.home)
        self.environment = {**os.environ, "HOME": self.home, "TERM": "xterm", "LC_ALL": "C.UTF-8"}
        for name in ("XDG_STATE_HOME", "XDG_CONFIG_HOME"):
            self.environment.pop(name, None)

    def name_gate(self, address):
        os.makedirs(os.path.join(self.home, ".config/ptzd"), exist_ok=True)
        with open(os.path.join(self.home, ".config/ptzd/cameras.toml"), "w", encoding="utf-8") as cameras:
            cameras.write(f'[camera.gate]\ndriver = "Axis"\naddress = "{address}"\npresets = {{ door = 3 }}\n')

    def spawn(self, program, *words):
        terminal = pexpect.spawn(program, list(words), env=self.environment, encoding="utf-8", timeout=DEADLINE,
                                 dimensions=(50, 160))
        self.addCleanup(terminal.close, True)
        return terminal


class Shell(AtTerminal):
    def shell(self, camera):
        self.name_gate(camera.address)
        terminal = self.spawn(*PTZCTL, "@gate", "shell")
        terminal.expect("Connected to Axis")
        terminal.expect(PROMPT)
        return terminal

    def test_a_line_is_edited_completed_and_remembered(self):
        with Camera() as camera:
            terminal = self.shell(camera)
            terminal.send("mo\t\t")  # what is common, then what there is
            terminal.expect("move-in-image +Centre on a point")
            terminal.send(" up-l\t3\r")
            terminal.expect("Move up-left by 3 degrees: sent")
            terminal.expect(PROMPT)
            terminal.send("preset goto d\t")  # one of the camera's
            terminal.expect("oor ")
            terminal.send("\x01\x0bzoom i\t\r")  # from the beginning of the line everything is cut
            terminal.expect("Zoom in: sent")
            terminal.expect(PROMPT)
            terminal.send("help\r")
            for operation in ("quit ends", "preset", "continuous-zoom"):
                terminal.expect(operation)
            terminal.expect(PROMPT)
            terminal.send("quit\r")
            terminal.expect(pexpect.EOF)
            terminal.wait()
            self.assertEqual(terminal.exitstatus, 0)
            history = os.path.join(self.home, ".local/state/ptzd/history")
            self.assertEqual(os.stat(history).st_mode & 0o777, 0o600)

            again = self.shell(camera)
            again.send("\x1b[A\x1b[A\x1b[A\r")  # three lines up
            again.expect("Zoom in: sent")
            again.expect(PROMPT)
            again.send("\x04")
            again.expect(pexpect.EOF)

    def test_a_stop_that_was_not_taken_is_tried_again_at_the_end(self):
        with Camera() as camera:
            terminal = self.spawn(*PTZCTL, *camera.options(), "--stop-time", "1s", "shell")
            terminal.expect(PROMPT)
            terminal.send("continuous 1 0\r")
            terminal.expect("GET.*continuouspantiltmove")
            camera.say("fault refuse")
            self.assertTrue(camera.is_moving())
            terminal.send("\x03")
            terminal.expect("may still be moving")
            camera.say("clear")
            self.assertTrue(camera.is_moving())
            terminal.send("quit\r")
            terminal.expect("Stopped")
            terminal.expect(pexpect.EOF)
            self.assertFalse(camera.is_moving())

    def test_ctrl_c_ends_the_motion_and_not_the_shell(self):
        with Camera() as camera:
            terminal = self.shell(camera)
            terminal.send("continuous 10 0\r")  # goes on while the next line is typed
            terminal.expect("sent; it is stopped")
            terminal.expect(PROMPT)
            self.assertTrue(camera.is_moving())
            terminal.send("move up\x03")
            terminal.expect("Stopped")
            terminal.expect(PROMPT)
            self.assertFalse(camera.is_moving())

            terminal.send("continuous 10 0 --for 60m\r")
            terminal.expect("continuous")
            camera.wait_for(camera.is_moving, "moved")
            terminal.send("\x03")
            terminal.expect("interrupted; the camera was stopped")
            terminal.expect(PROMPT)
            self.assertFalse(camera.is_moving())
            terminal.send("\x03")  # nothing moves: only the line is given up
            terminal.expect(PROMPT)
            terminal.send("position\r")
            terminal.expect("pan ")
            terminal.expect(PROMPT)
            terminal.send("quit\r")
            terminal.expect(pexpect.EOF)
            terminal.wait()
            self.assertEqual(terminal.exitstatus, 0)

    def test_other_ends_stop_the_camera_and_give_the_terminal_back(self):
        for end, code in ((lambda t: t.kill(signal.SIGTERM), 143), (lambda t: t.send("\x1a"), 148),
                          (lambda t: t.send("\x1c"), 131)):
            with self.subTest(code=code), Camera() as camera:
                terminal = self.shell(camera)
                terminal.send("continuous 10 0\r")
                terminal.expect("sent; it is stopped")
                terminal.expect(PROMPT)
                end(terminal)
                terminal.expect("the camera was stopped")
                terminal.expect(pexpect.EOF)
                terminal.wait()
                self.assertEqual(terminal.exitstatus, code)
                self.assertFalse(camera.is_moving())


class Completion(AtTerminal):
    # What is typed, and what Tab adds to it.
    TRIED = (("cont", "inuous"),  # which two commands begin with
             ("--driver MeritL", "ilin"),
             ("--driver=MeritL", "ilin"),
             ("--driver Axis -o Zoom", "Step="),
             ("--driver Axis zoom o", "ut"),
             ("--driver Axis preset goto-n", "amed"),
             ("@gate preset goto do", "or"), ("@ga", "(ga)?te"), ("@gate -o Zoom", "Step="))

    def setUp(self):
        super().setUp()
        self.name_gate("192.168.0.90")

    def try_all(self, terminal):
        for typed, added in self.TRIED:
            with self.subTest(typed=typed):
                terminal.send(f"ptzctl {typed}\t")
                terminal.expect(f"{typed}[^a-zA-Z]*{added}")
                terminal.send("\x15")  # the line is cut

    def test_bash(self):
        terminal = self.spawn("bash", "--norc", "--noprofile")
        terminal.sendline(f"PS1='$ '; PATH={os.path.dirname(PTZCTL[0])}:$PATH; bind 'set enable-bracketed-paste off'; "
                          "source <(ptzctl completion bash); echo rea''dy")
        terminal.expect("ready")
        self.try_all(terminal)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh(self):
        terminal = self.spawn("zsh", "-f")
        terminal.sendline(f"PS1='$ '; path=({os.path.dirname(PTZCTL[0])} $path); autoload -Uz compinit; compinit -u -D; "
                          "source <(ptzctl completion zsh); echo rea''dy")
        terminal.expect("ready")
        self.try_all(terminal)


if __name__ == "__main__":
    unittest.main()
