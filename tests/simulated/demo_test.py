#!/usr/bin/env python3
"""The tour through all makes, that it finds the makes that misbehave, and that all ways to do so are documented.

Usage: demo_test.py DEMO BUILD_FOLDER"""

import os
import re
import subprocess
import sys
import unittest

DEMO, BUILD = sys.argv.pop(1), sys.argv.pop(1)


def run(*arguments):
    done = subprocess.run([sys.executable, DEMO, BUILD, *arguments], capture_output=True, text=True, timeout=300)
    return done.returncode, done.stdout, done.stderr


class Demo(unittest.TestCase):
    def test_every_make_and_what_to_type_next(self):
        code, out, err = run()
        self.assertEqual((code, err), (0, ""), out)
        rows = re.findall(r"^(\w+) +(HTTP|TCP|serial) +yes .* \d+\.\d s$", out, re.M)
        self.assertEqual(len(rows), 20, out)
        self.assertEqual([row[0] for row in rows[:3]], ["Axis", "Bosch", "Elmo"])
        lines = [line.strip() for line in out[out.index("Now yours"):].splitlines() if line.startswith("    ")]
        self.assertRegex(lines[0], r"ptzsim axis --port \d+ &$")
        # As somebody would who looks at what each says.
        ready = 'until exec 3<>/dev/tcp/127.0.0.1/' + lines[0].split()[3] + '; do kill -0 %1 || exit 9; done 2>/dev/null'
        script = "set -em\n" + "\n".join([lines[0], ready, *lines[1:]])
        done = subprocess.run(["bash", "-c", script], input="move up 1\n", capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_who_misbehaves_is_named(self):
        code, out, err = run("--fault", "secubest", "never-read", "--fault", "Sony", "at=ptzf,status=503 Busy",
                             "--fault", "Axis", "at=continuouspantiltmove=0,redirect=/x")
        self.assertEqual(code, 1)
        for make in ("Secubest", "Sony", "Axis"):
            self.assertRegex(out, f"    {make} FAILED: ")
            self.assertIn(make, err)
        self.assertIn("3 of 20 makes misbehaved", err)

    def test_every_fault_is_documented(self):
        with open(os.path.join(os.path.dirname(DEMO), "..", "docs", "ptzsim.md")) as page:
            rows = re.findall(r"^\| `(.*)` \| (.*) \| (.*) \|$", page.read().split("## Faults")[1], re.M)
        for make, line in (("axis", "HTTP"), ("secubest", "TCP"), ("pelco", "serial")):
            told = subprocess.run([os.path.join(BUILD, "simulators", "ptzsim"), make, "--help"], capture_output=True, text=True)
            faults = re.findall(r"^  (\S.*?)  +(.*)$", told.stdout.split("left out):\n")[1], re.M)
            self.assertEqual([(form.replace('"', ""), effect) for form, effect in faults],
                             [(form, effect) for form, on, effect in rows if on == "all" or line in on.split(", ")])


if __name__ == "__main__":
    unittest.main()
