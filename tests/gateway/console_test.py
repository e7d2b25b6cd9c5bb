#!/usr/bin/env python3
"""What the gateway serves to browsers: types, caching, and that nothing comes from elsewhere.

Usage: console_test.py PTZGATE PTZSIM PTZCTL"""

import os
import re
import shutil
import subprocess
import sys
import unittest

from gate import Gate

PTZGATE, _, _ = [sys.argv.pop(1) for _ in range(3)]
TYPES = {"html": "text/html; charset=utf-8", "css": "text/css; charset=utf-8", "svg": "image/svg+xml",
         "js": "text/javascript; charset=utf-8"}
NAMES = {"http://www.w3.org/2000/svg"}  # of a namespace; nobody goes there


class ConsoleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gate = Gate(PTZGATE, {})
        cls.addClassCleanup(cls.gate.end)
        # All that the page comes to, from what it names, and what that names.
        cls.files, todo = {}, {"/"}
        while todo:
            path = todo.pop()
            cls.files[path] = cls.gate.ask("GET", path)
            text = cls.files[path][2].decode()
            named = re.findall(r'(?:href|src)="([^"#]+)"', text) if path == "/" else \
                ["/console/" + name for name in re.findall(r'^import .* from "\./(.+)";$', text, re.M)]
            todo |= set(named) - set(cls.files)

    def test_all_that_the_page_names_is_there_and_from_here(self):
        self.assertGreater(len(self.files), 10)
        for path, (status, headers, content) in self.files.items():
            with self.subTest(path):
                self.assertEqual(status, 200)
                kind = path.rsplit(".")[-1] if path != "/" else "html"
                self.assertEqual(headers["Content-Type"], TYPES[kind])
                self.assertTrue(headers["Content-Security-Policy"].startswith("default-src 'self';"))
                self.assertNotIn("unsafe", headers["Content-Security-Policy"])
                self.assertEqual(set(re.findall(r"https?://[^\s\"'`)]+", content.decode())) - NAMES, set())
                # What the policy would keep the browser from doing.
                self.assertNotRegex(content.decode(), r'\son[a-z]+="|\sstyle="|<script>')

    def test_every_file_of_the_source_is_served(self):
        folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../gateway/console")
        sources = {name for name in os.listdir(folder) if name.rsplit(".")[-1] in TYPES}
        served = {path.removeprefix("/console/") for path in self.files if path != "/"}
        self.assertEqual(sources, served | {"index.html"})
        for name in sources:
            with open(os.path.join(folder, name), "rb") as file:
                self.assertEqual(file.read(), self.files["/" if name == "index.html" else "/console/" + name][2], name)

    def test_what_a_browser_has_is_not_sent_again(self):
        tag = self.files["/"][1]["ETag"]
        for known, status in ((tag, 304), (f'"other", W/{tag}', 304), ("*", 304), ('"other"', 200),
                              (tag.strip('"'), 200)):
            with self.subTest(known):
                answered, headers, content = self.gate.ask("GET", "/", headers={"If-None-Match": known})
                self.assertEqual((answered, headers["ETag"], len(content) > 0), (status, tag, status == 200))

    def test_nothing_else_is_there(self):
        for method, path, status in (("POST", "/", 405), ("GET", "/console/", 404), ("GET", "/console/none.js", 404),
                                     ("GET", "/index.html", 404)):
            with self.subTest(path):
                self.assertEqual(self.gate.ask(method, path)[0], status)

    @unittest.skipUnless(shutil.which("node"), "no node is there")
    def test_scripts_are_well_formed(self):
        for path, (_, _, content) in self.files.items():
            if path.endswith(".js"):
                with self.subTest(path):
                    subprocess.run(["node", "--check", "--input-type=module"], input=content, check=True)


if __name__ == "__main__":
    unittest.main()
