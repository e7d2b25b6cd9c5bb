#!/usr/bin/env python3
"""`ptzctl check` against ptzsim: every make passes, nothing moves unasked, and Ctrl-C leaves a camera where it was.

Usage: check_test.py PTZCTL PTZSIM"""

import concurrent.futures
import html.parser
import json
import os
import pathlib
import signal
import subprocess
import tempfile
import unittest

from ptzctl_test import DEADLINE, ON_HTTP, PTZCTL, Camera, outcomes, ptzctl

CHECKS = ["reached", "login", "make", "position", "pan", "tilt", "zoom", "presets", "continuous", "refusals", "put_back"]
# What can be proved of each make: passed, not provable (?) or skipped (-), in the order above.
PROVABLE = {"axis": "ppppppp-ppp", "bosch": "ppppp?p-ppp", "elmo": "pp??????-p?", "elmo4": "pppppppp-pp",
            "elmo402": "ppppppp--pp", "foscam": "pp????-??p?", "foscamhd": "pp????-??p?", "grandeye": "pppppp?--pp",
            "meritlilin": "ppppppppppp", "panasonic": "pppppp?--pp", "panasonicipro": "ppppppp--pp",
            "panogenics": "pppppppp-pp", "pelco": "?????????p?", "quorvane": "ppp????-?p?", "sanyo": "pppppp?pppp",
            "secubest": "p??????-?p?", "sony": "pppppp--ppp", "toshiba": "pppppp---pp", "toshiba2": "pppppp?--pp",
            "vivotek": "ppp??????p?"}
CAMERAS = ON_HTTP | {name: [name] for name in ("pelco", "secubest")}
CAMERAS["toshiba"] = ["toshiba", "--model", "IK-WB01"]
SIGNS = {"passed": "p", "not_provable": "?", "skipped": "-", "failed": "F"}
PTZ = "/axis-cgi/com/ptz.cgi?"


def check(camera, *arguments):
    """Exit code, the verdicts as above, and each check's text, by name."""
    code, told = outcomes(*camera.options(), "check", *arguments)
    results = [one for one in told if "check" in one["values"]]
    return code, "".join(SIGNS[one["values"]["verdict"]] for one in results), {
        one["values"]["check"]: one["text"] for one in results}, told


def at(state):
    """Where the first head of a camera's state is."""
    if isinstance(state, list):
        return at(state[0])
    if "pan" in state:
        return state["pan"], state["tilt"]
    return next(at(part) for part in state.values() if isinstance(part, (list, dict)) and "pan" in json.dumps(part))


def side_by_side(examine, rows):
    """Each row with what comes of it. Most of the time of a check is waiting."""
    rows = list(rows)
    with concurrent.futures.ThreadPoolExecutor(len(rows)) as pool:
        yield from [(row, pool.submit(examine, row)) for row in rows]


# Heads that nobody sees go back by time, which a busy machine stretches.
BY_TIME = {"foscam", "foscamhd", "pelco", "sanyo", "secubest", "toshiba2", "vivotek"}


class EveryMake(unittest.TestCase):
    def examine(self, name):
        make, *options = CAMERAS[name]
        with Camera(*options, make=make) as camera:
            before = at(camera.ask("state"))
            words = [*camera.options(), "--driver", name, "check", "--move", "--preset", "2"]
            code, told = outcomes(*words)
            camera.wait_for(lambda: not camera.is_moving(), "waited for rest")
            return code, told, before, at(camera.ask("state")), camera.ask("log")["violations"]

    def test_it_passes_and_is_put_back(self):
        for name, done in side_by_side(self.examine, CAMERAS):
            with self.subTest(name):
                code, told, before, after, violations = done.result()
                *results, end = told
                self.assertEqual([one["values"]["check"] for one in results], CHECKS)
                self.assertEqual("".join(SIGNS[one["values"]["verdict"]] for one in results), PROVABLE[name],
                                 [(one["values"]["check"], one["text"]) for one in results])
                self.assertEqual((code, end["exit"], violations), (0, 0, []))
                self.assertTrue(all(one["values"]["finds"] for one in results))
                for was, now in zip(before, after):
                    self.assertAlmostEqual(was, now, delta=10 if name in BY_TIME else 3)


class Asking(unittest.TestCase):
    def test_nothing_moves_unless_it_may(self):
        for make, options, verdicts, pan in (
                ("axis", (), "pppp-------", "--move"), ("vivotek", (), "-----------", "--move"),
                ("foscam", (), "p???-------", "--move"),
                ("foscamhd", ("--fault", "refuse"), "F----------", "the camera was not reached")):
            with self.subTest(make), Camera(*options, make=make) as camera:
                before = camera.ask("state")
                code, told, texts, _ = check(camera, "--preset", "1")
                self.assertEqual((code, told), ("F" in verdicts, verdicts), texts)
                self.assertIn(pan, texts["pan"])
                self.assertEqual(camera.ask("state"), before)

    def test_limits_of_the_site_hold(self):
        with Camera() as camera, tempfile.TemporaryDirectory() as folder:  # at pan -37, tilt 12
            cameras = pathlib.Path(folder, "cameras.toml")
            cameras.write_text(f'[camera.gate]\ndriver = "Axis"\naddress = "{camera.address}"\n'
                               "pan_limits = [-40, -35]\ntilt_limits = [5, 15]\n")
            code, told = outcomes("--cameras", str(cameras), "@gate", "check", "--move")
            texts = {one["values"]["check"]: one["text"] for one in told[:-1]}
            self.assertEqual(code, 0, texts)
            self.assertIn("no room for 5 degrees", texts["pan"])
            self.assertIn("no room", texts["continuous"])
            self.assertIn("tilt=7", camera.sent())
            self.assertNotIn("tilt=17", camera.sent())

    def test_a_terminal_is_asked(self):
        import pty
        for answer, signs in ((b"n\n", "skipped"), (b"y\n", "passed")):
            with self.subTest(answer), Camera() as camera:
                ours, its = pty.openpty()
                os.write(ours, answer)
                done = subprocess.run([*PTZCTL, *camera.options(), "check"], stdin=its, capture_output=True, text=True,
                                      timeout=DEADLINE)
                os.close(ours), os.close(its)
                self.assertIn("Go on? [y/N]", done.stderr)
                self.assertRegex(done.stdout, "pan +" + signs)

    def test_wrong_words_are_told_before_anything_moves(self):
        with Camera(make="meritlilin") as camera:
            for words, told in ((["--preset", "128"], "128 presets, counted from 0"), (["--preset", "-1"], "--preset"),
                                (["--html", "/nowhere/at/all.html"], "/nowhere/at/all.html cannot be written"),
                                (["--html", tempfile.gettempdir()], "is a folder")):
                with self.subTest(words):
                    before = camera.ask("state")
                    code, _, err = ptzctl(*camera.options(), "check", "--move", *words)
                    self.assertEqual(code, 2)
                    self.assertIn(told, err)
                    self.assertEqual(camera.ask("state"), before)


class Interrupting(unittest.TestCase):
    def examine(self, row):
        make, begun = row
        with Camera(make=make) as camera, tempfile.TemporaryDirectory() as folder:
            before, page = at(camera.ask("state")), pathlib.Path(folder, "report.html")
            with subprocess.Popen([*PTZCTL, *camera.options(), "check", "--move", "--preset", "5", "--html", page],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as process:
                camera.wait_for(lambda: begun in camera.sent(), begun)
                process.send_signal(signal.SIGINT)
                out = process.communicate(timeout=DEADLINE)[0]
            camera.wait_for(lambda: not camera.is_moving(), "waited for rest")
            return process.returncode, out, page.read_text(encoding="utf-8"), before, at(camera.ask("state"))

    def test_the_camera_rests_and_is_put_back(self):
        rows = (("axis", "continuouspantiltmove=20,0"), ("axis", PTZ + "pan=-32"), ("axis", PTZ + "zoom="),
                ("meritlilin", "rpan=4"), ("pelco", "1: right"))
        for row, done in side_by_side(self.examine, rows):
            with self.subTest(row):
                code, out, page, before, after = done.result()
                self.assertEqual(code, 130, out)
                self.assertIn("interrupted before all was checked", out)
                self.assertIn("Not complete", page)
                for was, now in zip(before, after):
                    self.assertAlmostEqual(was, now, delta=1)  # a head so near has arrived


class Outline(html.parser.HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.open, self.counts, self.links = [], {}, []
        self.feed(page)

    def handle_starttag(self, tag, attributes):
        self.counts[tag] = self.counts.get(tag, 0) + 1
        self.links += [value for name, value in attributes if name in ("src", "href")]
        if tag != "meta":
            self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        self.counts[tag] = self.counts.get(tag, 0) + 1

    def handle_endtag(self, tag):
        assert self.open.pop() == tag, tag


class Page(unittest.TestCase):
    def test_it_is_whole_stands_alone_and_keeps_secrets(self):
        with Camera("--auth", "basic", "--user", "operator", "--password", "se<cr&et") as camera, \
                tempfile.TemporaryDirectory() as folder:
            page = os.path.join(folder, "report.html")
            code, out, err = ptzctl("--driver", "axis", "--address", "operator:se<cr&et@" + camera.address, "check",
                                    "--move", "--html", page)
            self.assertEqual(code, 0, out + err)
            self.assertEqual(os.listdir(folder), ["report.html"])
            text = pathlib.Path(page).read_text(encoding="utf-8")
            outline = Outline(text)
            self.assertEqual((outline.open, outline.links), ([], []))
            self.assertEqual((outline.counts["tr"], outline.counts["svg"], outline.counts["polyline"]), (12, 1, 3))
            for told in (camera.address, "QVPTZ.Axis", "pan=-32", "No check failed"):
                self.assertIn(told, text)
            for secret in ("operator", "se<cr", "se&lt;cr", "cr&amp;et"):
                self.assertNotIn(secret, text + out + err)


if __name__ == "__main__":
    unittest.main()
