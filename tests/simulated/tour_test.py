#!/usr/bin/env python3
"""ptzctl's tours against ptzsim.

Usage: tour_test.py PTZCTL PTZSIM"""

import json
import os
import signal
import subprocess
import tempfile
import unittest

from ptzctl_test import DEADLINE, PTZCTL, Camera


class Tours(unittest.TestCase):
    def command(self, camera, tour, *options, driver="Axis", where="--address"):
        file = tempfile.NamedTemporaryFile("w", suffix=".toml", delete=False)
        self.addCleanup(os.unlink, file.name)
        with file:
            file.write(tour)
        return [*PTZCTL, "--json", "--driver", driver, where, camera, "tour", file.name, *options]

    def run_tour(self, *words, **options):
        done = subprocess.run(self.command(*words, **options), capture_output=True, text=True, timeout=DEADLINE,
                              check=False)
        return done.returncode, [json.loads(line) for line in done.stdout.splitlines()]

    def test_places_a_glide_and_a_stretch(self):
        tour = ("rounds = 2\npause = 0\n[[stop]]\npan = 10\ntilt = -20\nzoom = 1.5\n"
                "[[stop]]\npan = -10\ntilt = 5\nspeed = 20\n[[stop]]\ntilt_speed = 10\nfor = \"300ms\"\n")
        with Camera() as camera:
            code, told = self.run_tour(camera.address, tour)
            self.assertEqual(code, 0)
            self.assertEqual([row["operation"] for row in told],
                             ["connect"] + ["move-to", "move-to", "continuous"] * 2)
            for place, row in (((10, -20), told[4]), ((-10, 5), told[5])):
                self.assertEqual((row["outcome"], row["position"]["pan"], row["position"]["tilt"]), ("arrived", *place))
            sent = [exchange["url"] for exchange in told[5]["exchanges"]]
            self.assertIn("continuouspantiltmove=-", sent[0])
            self.assertTrue(sent[-2].endswith("pan=-10&tilt=5"), sent)
            self.assertFalse(camera.is_moving())
            self.assertIn("continuouspantiltmove=0,20", told[6]["exchanges"][0]["url"])
            self.assertGreater(camera.ask("state")["heads"][0]["tilt"], 5)  # beyond the last place

    def test_what_cannot_tell_where_it_is_is_given_time(self):
        with Camera(make="pelco") as camera:
            code, told = self.run_tour(camera.address, "rounds = 1\ntravel = \"10ms\"\n[[stop]]\npreset = 3\n",
                                       driver="Pelco", where="--line")
            self.assertEqual(code, 0, told)
            self.assertIn("cannot tell whether it is there", told[1]["text"])

    def test_an_interrupted_tour_leaves_the_camera_at_rest(self):
        with Camera() as camera:
            tour = subprocess.Popen(self.command(camera.address, "[[stop]]\npan_speed = 5\nfor = \"200ms\"\n"),
                                    stdout=subprocess.PIPE, text=True)
            for operation in ("connect", "continuous", "continuous"):  # without end
                self.assertEqual(json.loads(tour.stdout.readline())["operation"], operation)
            camera.wait_for(camera.is_moving, "moved")
            tour.send_signal(signal.SIGINT)
            tour.communicate(timeout=DEADLINE)
            self.assertEqual(tour.returncode, 130)
            self.assertFalse(camera.is_moving())

    def test_a_stop_that_is_not_taken_on_the_way_is_told(self):
        with Camera() as camera:
            tour = subprocess.Popen([*self.command(camera.address, "[[stop]]\npan = 100\ntilt = 0\nspeed = 1\n"),
                                     "--stop-time", "1s"], stdout=subprocess.PIPE, text=True)
            camera.wait_for(camera.is_moving, "moved")
            camera.process.kill()
            last = json.loads(tour.communicate(timeout=DEADLINE)[0].splitlines()[-1])
            self.assertEqual((last["operation"], last["exit"]), ("move-to", 1))
            self.assertIn("the camera may still be moving", last["notes"])

    def test_the_tour_of_the_document_is_one(self):
        with open(os.path.join(os.path.dirname(__file__), "../../docs/ptzctl.md"), encoding="utf-8") as document:
            tour = document.read().split("## Tours")[1].split("```toml\n")[1].split("```")[0]
        code, told = self.run_tour("127.0.0.1:1", tour)  # where nobody is: it comes as far as connecting
        self.assertEqual((code, told[0]["operation"]), (3, "connect"))

    def test_a_wrong_file_is_told_before_anything_is_sent(self):
        with Camera() as camera:
            for text, where, expected in (
                    ("[[stop]]\npan = 1\n", "1:1", "both pan and tilt"),
                    ("[[stop]]\npreset = 1\npase = 3\n", "3:1", "do you mean pause?"),
                    ("[[stop]]\npreset = 1\npan = 2\ntilt = 3\n", "1:1", "one of a preset, a place"),
                    ("[[stop]]\npan_speed = 1\n", "1:1", "how long the camera is driven"),
                    ("rounds = \"two\"\n", "1:10", "a whole number"),
                    ("rounds = 1\n[[stop]]\npreset = \"door\"\n", None, "this camera has no such name"),
                    ("pause = \"soon\"\n[[stop]]\npreset = 1\n", "1:9", "is not a time"),
                    ("pause = 1\n", "", "expected stops"),
                    ("[[stop]\n", "1:8", "expected ']'")):
                with self.subTest(text=text):
                    code, told = self.run_tour(camera.address, text)
                    self.assertEqual((code, len(told)), (2, 1))
                    if where is not None:
                        self.assertIn(f".toml:{where}", told[0]["text"])
                    self.assertIn(expected, told[0]["text"])
            self.assertEqual(camera.requests(), [])


if __name__ == "__main__":
    unittest.main()
