#!/usr/bin/env python3
"""ptzctl against ptzsim, as a person would use them.

Usage: ptzctl_test.py PTZCTL PTZSIM [RUNNER]

With RUNNER, scripts/wine32 perhaps, the two are Windows programs that it runs. Ends with its exit code 77 when
it cannot run any."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from urllib.parse import urlsplit

PTZCTL, PTZSIM = [sys.argv.pop(1)], [sys.argv.pop(1)]
WINDOWS = len(sys.argv) > 1
if WINDOWS:
    RUNNER = [sys.argv.pop(1)]
    PTZCTL, PTZSIM = RUNNER + PTZCTL, RUNNER + PTZSIM
DEADLINE = 60  # seconds; far more than anything here takes
# Whoever started the test may have these ignored, as a shell has in the background and nohup does, and then its
# children would ignore them too.
for ending in (signal.SIGINT, signal.SIGQUIT, signal.SIGHUP, signal.SIGTSTP):
    signal.signal(ending, signal.default_int_handler if ending == signal.SIGINT else signal.SIG_DFL)
# Makes with continuous motion: what arrives for "continuous 20 0" and for the stop, and whether a step is a motor
# that runs for a time.
DRIVES = {"axis": ("continuouspantiltmove=40,0", "continuouspantiltmove=0,0", False),
          "bosch": ("payload=0x800006011085FF0000", "payload=0x800006011085000000", False),
          "foscam": ("command=6", "command=5", False),
          "foscamhd": ("ptzMoveRight", "ptzStopRun", True),
          "meritlilin": ("rpan=8&rtilt=0", "?stop=1", False),
          "pelco": ("1: right", "1: stop", True),
          "quorvane": ("joystick&x=20&y=0", "joystick&x=0&y=0", False),
          "sanyo": ("cmd=5&p_speed=7", "cmd=12", False),
          "secubest": ("right", "stop", True),
          "sony": ("ContinuousPanTiltZoom=80,0,0", "ContinuousPanTiltZoom=0,0,0", False),
          "vivotek": ("vx=20&vy=0", "vx=0&vy=0", False)}
if WINDOWS:
    del DRIVES["pelco"]  # has no pseudo-terminals
# Every driver of cameras with a web server, and the simulator of a camera that it is for.
ON_HTTP = {name: [name] for name in ("axis", "bosch", "elmo", "foscam", "foscamhd", "grandeye", "meritlilin", "panasonic",
                                     "panasonicipro", "panogenics", "quorvane", "sanyo", "sony", "toshiba", "vivotek")}
ON_HTTP |= {"elmo4": ["elmo", "--model", "400"], "elmo402": ["elmo", "--model", "PTC-402C"],
            "toshiba2": ["toshiba", "--model", "IK-WB15"]}
PTZ, CONFIG = "/axis-cgi/com/ptz.cgi?", "/axis-cgi/com/ptzconfig.cgi?"


class Camera:
    """ptzsim as a camera, an Axis one unless told otherwise."""

    def __init__(self, *options, make="axis"):
        self.make = make
        self.process = subprocess.Popen([*PTZSIM, make, "--until-eof", *options], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.communicate(timeout=DEADLINE)

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def ask(self, what):
        self.say(what)
        text = ""
        for line in self.process.stdout:
            text += line
            if line == "}\n":
                return json.loads(text)
        raise AssertionError("ptzsim ended")

    def wait_for(self, condition, what):
        deadline = time.monotonic() + DEADLINE
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError(f"{self.make}: {what} in vain")

    def wait_for_requests(self, count):
        self.wait_for(lambda: len(self.requests()) >= count, f"waited for {count} requests")

    def is_moving(self):
        return '"moving": true' in json.dumps(self.ask("state"))

    def sent(self):
        """What arrived, in words: targets and bodies, or bytes."""
        return json.dumps([r.get("body") or r["target"] for r in self.ask("log")["requests"]])

    def requests(self):
        return [request["target"] for request in self.ask("log")["requests"]]

    def options(self):
        feed = ("-o", "Feed=3") if self.make == "quorvane" else ()
        return "--driver", self.make, "--line" if self.make == "pelco" else "--address", self.address, *feed


def start(*arguments):
    return subprocess.Popen([*PTZCTL, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)


def ptzctl(*arguments, text=""):
    """Exit code, standard output and standard error stream, in files: under Wine a program may begin the desktop's
    own process, which would hold pipes open long behind its end."""
    with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as err:
        process = subprocess.Popen([*PTZCTL, *arguments], stdin=subprocess.PIPE, stdout=out, stderr=err, text=True)
        process.communicate(text, timeout=DEADLINE)
        out.seek(0), err.seek(0)
        return process.returncode, out.read(), err.read()


def outcomes(*arguments, text=""):
    code, out, _ = ptzctl("--json", *arguments, text=text)
    return code, [json.loads(line) for line in out.splitlines()]


def paths(outcome):
    urls = (urlsplit(exchange["url"]) for exchange in outcome["exchanges"])
    return [url.path + ("?" + url.query if url.query else "") for url in urls]


class ExitCodes(unittest.TestCase):
    def test_wrong_command_lines_are_told_before_anything_is_sent(self):
        with Camera() as camera:
            for arguments, told in (
                    ("mvoe up", "do you mean move?"),
                    ("", "a command is missing"),
                    ("preset", "preset: a command is missing"),
                    ("move", "direction"),
                    ("move sideways", "direction"),
                    ("move up abc", "angle"),
                    ("move up nan", "angle"),
                    ("move up inf", "angle"),
                    ("move up 1e99", "angle"),
                    ("move up 5x", "angle"),
                    ("move-to 1", "tilt"),
                    ("move-to 1 2 3 4", "4"),
                    ("preset goto 1.5", "number"),
                    ("preset goto 3000000000", "number"),
                    ("continuous 1 0 --for 2q", "--for"),
                    ("continuous 1 0 --for -2s", "--for"),
                    ("continuous 1 0 --for 2s --leave", "--leave"),
                    ("move up --wait soon", "--wait"),
                    ("-o Port info", "-o Port: "),
                    ("-o =5 info", "-o =5: "),
                    ("-o Port=two info", "Port"),
                    ("-o ZoomStep=0.5 info", "ZoomStep"),
                    ("-o Reset=maybe info", "Reset"),
                    ("--address 10.0.0.5:99999 info", "a port from 1 to 65535"),
                    ("--driver nobody info", '"nobody"'),
                    ("--driver qvptzsimple.simple info", "not in this build"),  # another library's
            ):
                with self.subTest(arguments):
                    code, _, err = ptzctl(*camera.options(), *arguments.split())
                    self.assertEqual(code, 2, err)
                    self.assertIn(told, err)
            # The second operation is wrong, so the first is not done either.
            self.assertEqual(ptzctl(*camera.options(), "run", "move up", "move up abc")[0], 2)
            self.assertEqual(ptzctl(*camera.options(), "run", 'move "up')[0], 2)
            self.assertEqual(camera.requests(), [])

    def test_no_connection_tells_number_and_text(self):
        with Camera("--fault", "refuse") as gone, Camera("--head", "none") as fixed:
            for address, told in ((gone.address, "17001 Unable to connect to the device"),
                                  (fixed.address, "17002 This device does not support PTZ."),
                                  ("", "17003 No address specified")):
                with self.subTest(told):
                    code, _, err = ptzctl("--driver", "Axis", "--address", address, "info")
                    self.assertEqual(code, 3)
                    self.assertIn(told, err)

    def test_unusual_options_are_warned_of_and_accepted(self):
        with Camera() as camera:
            for option, told in (("zoomstep=1", "do you mean ZoomStep?"), ("ZoomStep=10001", "10000")):
                code, _, err = ptzctl(*camera.options(), "-o", option, "connected")
                self.assertEqual(code, 0)
                self.assertIn(told, err)

    def test_refused_is_told_apart_from_false_on_purpose(self):
        rows = (  # operation, fault, exit code, answer of the member
            ("move-to 10 10", None, 0, False),  # False although the camera moved
            ("move-to 10 10", "at=pan=,close-mid-reply=5", 1, False),
            ("move up", "at=tilt=,close-mid-reply=5", 1, False),
            ("move up", "at=tilt=,status=503 Busy", 1, True),  # True whatever the status
            ("zoom in", "at=zoom=,close-mid-reply=5", 1, True),  # True although the camera did not answer
            ("zoom-to 2", "at=zoom=,close-mid-reply=5", 1, None),
            ("continuous 5 0 --for 60s", "at=continuous,close-mid-reply=5", 1, None),  # not after a minute
            ("stop", "at=continuous,close-mid-reply=5", 1, None),
            ("continuous 101 0 --for 60s", None, 2, None),
            ("move-by 150 0 --wait 1ms", None, 5, True),  # still on its way
            ("move up 1e30", None, 4, None),  # overflow, in the driver
            ("home", None, 1, False),
            ("preset goto 1", None, 1, False),
            ("preset list", None, 1, None),  # no such interface
            ("move-in-image 1 1", None, 1, None),
        )
        for operation, fault, expected, answer in rows:
            with self.subTest(operation, fault=fault), Camera() as camera:
                if fault:
                    camera.say("fault " + fault)
                code, told = outcomes(*camera.options(), "--stop-time", "300ms", *operation.split())
                self.assertEqual(code, expected, told)
                self.assertEqual(len(told), 1)
                self.assertEqual(told[0]["exit"], expected)
                self.assertEqual(told[0].get("answer"), answer)
                if expected == 4:
                    self.assertEqual(told[0]["error"], {"number": 6, "text": "Overflow"})
                if "continuous" in (fault or ""):
                    self.assertIn(PTZ + "continuouszoommove=0", camera.requests())
                    self.assertIn("the camera may still be moving", told[0]["notes"])
                    self.assertGreater(told[0]["stop"]["tries"], 1)

    def test_a_run_ends_with_the_first_failure_and_a_shell_goes_on(self):
        lines = "move up\n# a comment\n\nhome\nmove abc\nzoom in\n"
        with Camera() as camera:
            code, told = outcomes(*camera.options(), "run", text=lines)
            self.assertEqual((code, [o["operation"] for o in told]), (1, ["connect", "move", "home"]))
            code, told = outcomes(*camera.options(), "shell", text=lines)
            self.assertEqual((code, [o["result"] for o in told]), (1, ["done", "done", "refused", "usage", "done"]))


class Operations(unittest.TestCase):
    def check(self, camera, rows, *options):
        """Rows of an operation and the requests that it takes, all on one connection."""
        code, told = outcomes(*camera.options(), *options, "run", *(operation for operation, *_ in rows))
        self.assertEqual(code, 0, told)
        for (operation, *requests), outcome in zip(rows, told[1:], strict=True):
            self.assertEqual(paths(outcome), requests, operation)
        arrived = camera.requests()
        self.assertEqual(arrived[-sum(len(row) - 1 for row in rows):], [r for row in rows for r in row[1:]])
        self.assertEqual(camera.ask("log")["violations"], [])

    def test_each_operation_sends_what_it_is_named_after(self):
        stop = PTZ + "continuouspantiltmove=0,0", PTZ + "continuouszoommove=0", PTZ + "query=position"
        with Camera() as camera:  # at pan -37.25, tilt 12.5, zoom 2345
            self.check(camera, (
                ("connected",),
                ("position", PTZ + "query=position"),
                ("info",),
                ("move up-left", PTZ + "pan=-42&tilt=17"),
                ("move down-right 2 --device2", PTZ + "pan=-40&tilt=15"),
                ("move RIGHT -.6", PTZ + "pan=-41"),
                ("move-by 1 -5", PTZ + "pan=-40&tilt=10"),
                ("move-by -10 5 --device2", PTZ + "pan=-50&tilt=15"),
                ("move-to 190 -20", PTZ + "pan=-170&tilt=-20"),
                ("move-to 10 20 0", PTZ + "pan=10&tilt=20&zoom=1"),
                ("zoom in --device2", PTZ + "zoom=81"),
                ("zoom out", PTZ + "zoom=1"),
                ("zoom in 2", PTZ + "zoom=642"),
                ("zoom-to 0", PTZ + "zoom=1"),
                ("iris open", PTZ + "autoiris=off&riris=1000"),
                ("iris close", PTZ + "autoiris=off&riris=-1000"),
                ("iris auto", PTZ + "autoiris=on"),
                ("focus near", PTZ + "autofocus=off&rfocus=-1000"),
                ("focus far", PTZ + "autofocus=off&rfocus=1000"),
                ("focus auto", PTZ + "autofocus=on"),
                ("preset count",),
                ("continuous 10 -5.5", PTZ + "continuouspantiltmove=20,-11"),
                ("stop", *stop),
                ("continuous 0 3 --zoom -2 --for 1ms", PTZ + "continuouspantiltmove=0,6",
                 PTZ + "continuouszoommove=-4", *stop),
                ("continuous-zoom 3 --for 1ms", PTZ + "continuouszoommove=9", *stop),
                ("set-position 1 2", PTZ + "query=position"),
                ("disconnect",),
                ("connected",),
            ))

    def test_a_relative_head_behind_a_video_server(self):
        with Camera("--head", "multi") as camera:
            third = PTZ + "camera=3&"
            self.check(camera, (
                ("preset save 3", CONFIG + "camera=3&setserverpresetname=Quor-vane%20Preset%203"),
                ("move left 7", third + "rpan=-7"),
                ("preset goto 3", third + "gotoserverpresetname=Quor-vane%20Preset%203"),
                ("set-position 10 20",),
                ("move-to 12 20", third + "rpan=2"),  # which the driver object has to remember
            ), "-o", "Port=3")

    def test_options_are_stored_with_their_type(self):
        with Camera() as camera:
            self.check(camera, (("zoom-to 2", PTZ + "zoom=201"),), "-o", "ZoomStep=100", "-o", "Reset=Yes")
            self.assertIn(PTZ + "pan=0&tilt=0&zoom=1", camera.requests())


class Logins(unittest.TestCase):
    def test_no_make_hides_that_a_login_is_wrong(self):
        for driver, make in ON_HTTP.items():
            with self.subTest(driver), Camera(*make[1:], "--user", "admin", "--password", "secret", "--auth", "basic",
                                              make=make[0]) as camera:
                camera.address = "admin:wrong@" + camera.address
                code, out, err = ptzctl(*camera.options(), "--driver", driver, "move", "up", "5")
                self.assertEqual(code, 1 if driver.startswith("foscam") else 3)
                self.assertIn("the camera demands another login: 401 Unauthorized", err)
                self.assertIn("-> 401 Unauthorized, ", out)
        with Camera("--user", "admin", "--password", "secret", "--auth", "basic") as camera:
            self.assertIn("the camera demands a login: 401 Unauthorized", ptzctl(*camera.options(), "home")[2])

    def test_no_make_hides_that_nothing_answers(self):
        with Camera("--fault", "refuse") as gone:
            for driver, (make, *_) in ON_HTTP.items():
                with self.subTest(driver):
                    asks = not driver.startswith("foscam")
                    feed = ("-o", "Feed=3") if make == "quorvane" else ()
                    camera = "--driver", driver, "--address", gone.address, *feed
                    self.assertEqual(ptzctl(*camera, "move", "up")[0], 3 if asks else 1)
                    code, (info,) = outcomes(*camera, "info")
                    self.assertEqual(code, 3 if asks else 0)
                    if not asks:
                        self.assertEqual(info["values"]["link"], "untried")
                        self.assertEqual(info["position"], {"kind": "unknown"})


def end(camera, way, arguments, begun):
    """Starts ptzctl, ends it in some way once that has arrived, and answers its exit code."""
    streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.DEVNULL}
    if way == "full":
        streams["stdout"] = os.open("/dev/full", os.O_WRONLY)
    if way in ("terminal", "console"):
        import fcntl, pty, termios
        ours, its = pty.openpty()
        streams = {"stdin": its, "stdout": its, "stderr": its, "start_new_session": True,
                   "preexec_fn": lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0)}
    with subprocess.Popen([*PTZCTL, *camera.options(), *arguments], **streams) as process:
        if way == "full":
            os.close(streams["stdout"])
        camera.wait_for(lambda: begun in camera.sent() or process.poll() is not None, begun)
        if way == "pipe":
            process.stdout.close()
        elif way == "terminal":
            os.close(its)
            os.close(ours)
        elif way == "console":
            os.write(ours, b"\x03")
        elif way != "full":
            process.send_signal(getattr(signal, way))
        return process.wait(DEADLINE)


class Motion(unittest.TestCase):
    def check_at_rest(self, camera, stop):
        camera.wait_for(lambda: stop in camera.sent(), "waited for the stop")  # lines may be read late
        camera.wait_for(lambda: not camera.is_moving(), "waited for rest")

    def test_it_does_not_outlive_ptzctl(self):
        ways = {"SIGINT": 130, "SIGTERM": 143, "SIGHUP": 129, "SIGQUIT": 131, "SIGTSTP": 148, "SIGPROF": 155, "pipe": 141, "full": 1, "terminal": 129}
        for make, (drive, stop, timed) in DRIVES.items():
            for operation in ["continuous 20 0", "continuous 20 0 --for 1m"] + timed * ["move right 170"]:
                for way, expected in {"console": 130}.items() if WINDOWS else ways.items():
                    if way == "full" and operation != "continuous 20 0":
                        continue  # says nothing before it is over
                    with self.subTest(make, operation=operation, way=way), Camera(make=make) as camera:
                        code = end(camera, way, operation.split(), drive if "cont" in operation else drive.split("=")[0])
                        self.assertEqual(code, expected)
                        self.check_at_rest(camera, stop)

    @unittest.skipIf(WINDOWS, "only a console can interrupt there")
    def test_waiting_operations_are_interrupted(self):
        for arguments, text in ((["run", "continuous 20 0", "wait 1m"], None),
                                (["shell"], "continuous 20 0\n")):  # then waiting for the next line
            with self.subTest(arguments), Camera() as camera:
                process = start(*camera.options(), "--json", *arguments)
                if text:
                    process.stdin.write(text)
                    process.stdin.flush()
                camera.wait_for(lambda: DRIVES["axis"][0] in camera.sent(), "waited for the drive")
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(DEADLINE), 143)
                last = json.loads(process.communicate()[0].splitlines()[-1])
                # How often it was sent is not told ahead: what ends wishes for a stop, too.
                self.assertEqual((last["result"], last["exit"], last["stop"]["outcome"]), ("interrupted", 143, "sent"))
                self.check_at_rest(camera, DRIVES["axis"][1])

    def test_it_ends_with_the_program_and_its_time_unless_left(self):
        for make, (drive, stop, _) in DRIVES.items():
            for operation in (["continuous 20 0 --for 1ms"], ["run", "continuous 20 0"]):
                with self.subTest(make, operation=operation), Camera(make=make) as camera:
                    words = operation if operation[0] == "run" else operation[0].split()
                    self.assertEqual(ptzctl(*camera.options(), *words)[0], 0)
                    self.check_at_rest(camera, stop)
        with Camera() as camera:
            self.assertEqual(ptzctl(*camera.options(), *"continuous 1 0 --leave".split())[0], 0)
            self.assertTrue(camera.is_moving())
            self.assertNotIn(DRIVES["axis"][1], camera.sent())
            self.assertEqual(ptzctl(*camera.options(), "stop")[0], 0)
            self.check_at_rest(camera, DRIVES["axis"][1])

    def test_a_stop_is_repeated_until_it_is_taken(self):
        with Camera() as camera:
            camera.say("fault next=2,at=continuouspantiltmove=0,status=503 Busy")
            code, (told,) = outcomes(*camera.options(), "continuous", "20", "0", "--for", "1ms")
            self.assertEqual((code, told["stop"]), (0, {"outcome": "sent", "tries": 3}))

    @unittest.skipIf(WINDOWS, "only a console can interrupt there")
    def test_a_stop_that_was_not_taken_is_tried_again_at_the_end(self):
        for way in ("the end", "SIGTERM", "a move that is not taken"):
            with self.subTest(way), Camera() as camera:
                process = start(*camera.options(), "--json", "--stop-time", "1ms", "shell")

                def tell(line):
                    process.stdin.write(line + "\n")
                    process.stdin.flush()
                    return json.loads(process.stdout.readline())

                self.assertEqual(json.loads(process.stdout.readline())["result"], "done")
                tell("continuous 20 0")
                camera.say("fault refuse")
                self.assertTrue(camera.is_moving())
                self.assertIn("the camera may still be moving", tell("stop")["notes"])
                if way == "a move that is not taken":
                    self.assertEqual(tell("move-to 1 1")["exit"], 1)
                camera.say("clear")
                self.assertTrue(camera.is_moving())
                if way == "SIGTERM":
                    process.send_signal(signal.SIGTERM)
                    process.wait(DEADLINE)
                last = json.loads(process.communicate(timeout=DEADLINE)[0].splitlines()[-1])
                self.assertEqual((last["operation"], last["stop"]["outcome"]), ("stop", "sent"))
                self.assertEqual(process.returncode, 143 if way == "SIGTERM" else 1)
                self.assertFalse(camera.is_moving())

    def test_what_became_of_a_move(self):
        target = {"kind": "target", "pan": -32, "tilt": 12, "zoom": 7.25}
        with Camera() as camera:
            code, (told,) = outcomes(*camera.options(), "move", "right", "5", "--wait")
            self.assertEqual((code, told["outcome"], told["target"]), (0, "arrived", target))
            self.assertEqual(told["position"], target | {"kind": "read"})
            code, told = outcomes(*camera.options(), "watch", "1ms")
            self.assertEqual((code, told[0]["position"]), (0, target | {"kind": "read"}))
            code, told = outcomes(*camera.options(), "run", "move-to 10 20", "move-to 10 20")
            self.assertEqual((code, told[2]["outcome"]), (1, "not_sent"))  # there already
        for make, expected, outcome, position in (
                ("foscam", 5, "sent", None),
                ("foscamhd", 0, "sent", {"kind": "estimated", "pan": 5, "tilt": 0})):
            with self.subTest(make), Camera(make=make) as camera:
                code, (told,) = outcomes(*camera.options(), "move", "right", "5", "--wait")
                self.assertEqual((code, told["outcome"], told.get("position")), (expected, outcome, position))
                self.assertEqual(ptzctl(*camera.options(), "watch")[0], 1)

    def test_heads_that_connecting_moves_keep_no_place(self):
        for camera in (Camera(make="vivotek"), Camera("--head", "relative")):
            with self.subTest(camera.make), camera:
                code, (told,) = outcomes(*camera.options(), "preset", "save", "2")
                self.assertEqual(code, 1)
                self.assertIn('run "', told["text"])
                code, told = outcomes(*camera.options(), "run", "preset save 2")
                self.assertEqual(code, 0)
                self.assertIn("connecting has moved the camera", told[0]["notes"][0])


class OtherConnections(unittest.TestCase):
    @unittest.skipIf(WINDOWS, "no pseudo-terminals there")
    def test_a_receiver_on_a_serial_line(self):
        with Camera("--addresses", "1,2", "--baud", "4800", make="pelco") as line:
            camera = "--driver", "pelco", "--line", line.address, "-o", "Baud=4800", "-o", "Port=2"
            self.assertEqual(ptzctl(*camera, "move", "right", "5")[0], 0)
            self.assertEqual(ptzctl(*camera, "run", "preset save 3", "zoom in")[0], 0)
            line.wait_for_requests(5)
            self.assertEqual(line.ask("log")["violations"], [])
            line.say("fault refuse")
            line.ask("state")  # so the fault is there
            code, out, err = ptzctl(*camera, "home")
            self.assertEqual(code, 3)
            self.assertIn(line.address, out + err, "names the line that is not there")
        code, _, err = ptzctl("--driver", "pelco", "--address", "10.0.0.5", "home")
        self.assertEqual(code, 2)
        self.assertIn("--line is missing", err)

    def test_a_make_whose_own_stop_sends_nothing(self):
        with Camera(make="sony") as camera:
            options = "--driver", "sony", "--address", camera.address
            self.assertEqual(ptzctl(*options, "run", "continuous 5 0 --for 1ms", "stop")[0], 0)
            commands = [request["body"] for request in camera.ask("log")["requests"] if request["body"]]
            stop = "ContinuousPanTiltZoom=0,0,0,Image1"
            self.assertEqual(commands, ["ContinuousPanTiltZoom=20,0,0,Image1"] + 4 * [stop])

    def test_a_unit_on_a_raw_connection(self):
        with Camera(make="secubest") as unit:
            camera = "--driver", "secubest", "--address", unit.address
            self.assertEqual(ptzctl(*camera, "-o", "MoveInterval=50", "move", "left", "5")[0], 0)
            unit.wait_for_requests(2)
            self.assertEqual(unit.ask("log")["violations"], [])
        for address in ("http://camera1", "camera1/", "user:pa@camera1/x"):
            self.assertEqual(ptzctl("--driver", "axis", "--address", address, "info")[0], 2, address)
        self.assertEqual(ptzctl("--driver", "secubest", "--address", "camera1", "info")[0], 3)


class JSON(unittest.TestCase):
    def test_what_is_listed(self):
        _, (drivers,) = outcomes("drivers")
        rows = drivers["values"]["drivers"]
        self.assertEqual(rows[2], {"position": 3, "class": "QVPTZ.Axis", "name": "Axis cameras", "available": True})
        self.assertFalse(rows[23]["available"])
        _, (options,) = outcomes("options", "qvptz.axis")
        self.assertEqual(options["values"]["options"], [
            {"name": "ZoomStep", "kind": "integer", "default": 0, "description": "Zoom step value",
             "type": 2, "values": [0, 10000]}])
        self.assertEqual([o["name"] for o in options["values"]["common_options"]], ["Address", "Port", "Reset"])
        ranges = {row.pop("name"): row for row in options["values"]["ranges"]}
        self.assertEqual(list(ranges), ["pan", "tilt", "zoom", "pan_speed", "tilt_speed", "zoom_speed"])
        self.assertEqual(ranges["zoom"], {"least": 0, "greatest": None, "unit": "zoom steps", "beyond": "passed_on",
                                          "depends_on_model": False})
        self.assertEqual({name: options["values"][name] for name in list(options["values"])[-4:]},
                         {"asks_to_connect": True, "connects_unheard": False, "moves_to_connect": "on_some_models",
                          "stops_by_speed_zero": True})

    def test_positions_and_errors(self):
        with Camera() as camera:
            _, (move,) = outcomes(*camera.options(), "move", "up-left", "5")
            self.assertEqual(move["before"], {"kind": "read", "pan": -37, "tilt": 12, "zoom": 7.25})
            self.assertEqual(move["target"], {"kind": "target", "pan": -42, "tilt": 17, "zoom": 7.25})
            self.assertEqual((move["operation"], move["result"], move["outcome"]), ("move", "done", "sent"))
            (exchange,) = move["exchanges"]
            self.assertGreaterEqual(move["ms"], exchange.pop("ms"))
            self.assertEqual(exchange, {
                "link": "http", "where": camera.address, "method": "GET",
                "url": f"http://{camera.address}{PTZ}pan=-42&tilt=17", "status": 204, "reason": "No Content",
                "reply": "", "reply_size": 0})
            _, (info,) = outcomes(*camera.options(), "info")
            self.assertEqual(info["values"]["capabilities"][:4], ["pan", "tilt", "zoom", "absolute_zoom"])
            camera.say("fault refuse")
            camera.ask("state")  # so the fault is there
            code, (lost,) = outcomes(*camera.options(), "info")
        self.assertEqual((code, lost["result"]), (3, "no_connection"))
        self.assertEqual(lost["error"], {"number": 17001, "text": "Unable to connect to the device"})
        code, (usage,) = outcomes("move", "up", "abc")
        self.assertEqual((code, usage["result"]), (2, "usage"))


class ControlCharacters(unittest.TestCase):
    def test_none_of_a_reply_reaches_the_terminal(self):
        with Camera() as camera:
            camera.say("fault close-after-reply")
            camera.say("fault garbage=\x1b]0;\x7f\u008d\u008f\u0090\u009d")
            for form in ([], ["--json"], ["--trace"]):
                with self.subTest(form):
                    _, out, err = ptzctl(*form, *camera.options(), "move", "right")
                    if not WINDOWS:  # WinINet keeps what comes before a status line to itself
                        self.assertRegex(out + err, r"x9D|\\u009d")
                    self.assertNotRegex(out + err, "[\\x00-\\x08\\x0b-\\x1f\\x7f-\\x9f]")


class Credentials(unittest.TestCase):
    def test_they_are_used_and_never_shown(self):
        for scheme in ("basic",) if WINDOWS else ("basic", "digest"):  # Wine answers no Digest challenge
            with Camera("--auth", scheme, "--user", "operator", "--password", "se@cr:et") as camera:
                for password, expected in (("se%40cr%3Aet", 0), ("se%40cr%3Bet", 3)):
                    address = f"operator:{password}@{camera.address}"
                    for form in ([], ["--json"]):
                        with self.subTest(scheme, password=password, form=form):
                            code, out, err = ptzctl("--trace", *form, "--driver", "axis", "--address", address,
                                                    "run", "info", "move up")
                            self.assertEqual(code, expected, err)
                            self.assertIn("trace: Requesting /axis-cgi/", err)
                            for secret in ("operator", "se%40", "se@", "%3Aet", "%3Bet"):
                                self.assertNotIn(secret, out + err)

    def test_blanks_and_second_addresses_hide_nothing(self):
        for driver, feed in (("sony", ()), ("vivotek", ()), ("quorvane", ("-o", "Feed=3"))):
            with Camera(make=driver) as camera:
                login = f"operator:se cr\tet@{camera.address}"
                for form in ([], ["--json"], ["--trace"]):
                    for words in (["run", "info", "move up", "move " + login], ["move", login], [login]):
                        with self.subTest(driver, form=form, words=words):
                            code, out, err = ptzctl(*form, "--driver", driver, *feed, "--address", login, *words)
                            self.assertEqual(code, 2 if login in words[-1] else 0, err)
                            for secret in ("operator", "se cr", "et@"):
                                self.assertNotIn(secret, out + err)


if __name__ == "__main__":
    if WINDOWS and (code := subprocess.run([*PTZCTL, "drivers"], stdout=subprocess.DEVNULL).returncode):
        sys.exit(code)
    unittest.main()
